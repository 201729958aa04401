// The motion buffer and its foot passes, on hand-made legs whose poses the tests write
// directly: planted runs per axis, the blend back, the bounds remap, the quadruped lift and the
// repair of collapsed limb normals.
#include <gtest/gtest.h>

#include <cmath>

#include "live/LiveTestSupport.h"
#include "live/Motion.h"

namespace {

using livetest::At;
using livetest::Legs;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::Motion;

constexpr double kEps = 1e-12;

// ---- Construction and recording ---------------------------------------------------------------

TEST(Motion, ArraysAreSizedByTheTargetStructureAndFramesOfANodeAreContiguous) {
    Legs legs(2, 2);
    Motion motion(5, &legs.target, &legs.source);
    EXPECT_EQ(motion.frames, 5);
    EXPECT_EQ(motion.targetMap, &legs.target);
    EXPECT_EQ(motion.sourceMap, &legs.source);
    for (int n = 0; n + 1 < legs.structure->numNodes; ++n)
        EXPECT_EQ(motion.globalPoses[n] + 5, motion.globalPoses[n + 1]);
    for (int p = 0; p < 2; ++p)
        for (int f = 0; f < 5; ++f) {
            EXPECT_EQ(motion.planeNormals[p][f], CVector3());
            EXPECT_EQ(motion.goalPositions[p][f], CVector3());
        }
}

TEST(Motion, RecordingCopiesTargetPosesNormalsAndTheSourcePositionOfEachGoal) {
    Legs legs(2, 2);
    legs.target.nodes[static_cast<size_t>(Legs::Foot(1))].translationSource = -1;
    Motion motion(3, &legs.target, &legs.source);
    for (int n = 0; n < legs.structure->numNodes; ++n) {
        legs.target.nodes[static_cast<size_t>(n)].global = At(n, 2.0 * n, 3.0 * n);
        legs.target.nodes[static_cast<size_t>(n)].local = At(-n, 1, 0);
        legs.source.nodes[static_cast<size_t>(n)].global = At(100 + n, 7, 8);
    }
    legs.target.planes[0].normal.Set(0, 0, 1);
    legs.target.planes[1].normal.Set(0, 1, 0);
    orvhost::ClearLog();
    motion.RecordPoseFromModelMap(1);
    motion.RecordPoseFromModelMap(3);  // outside the buffer: ignored
    // No index out of range reached the maps.
    EXPECT_TRUE(livetest::Messages(0).empty());
    for (int n = 0; n < legs.structure->numNodes; ++n) {
        EXPECT_EQ(motion.globalPoses[n][1].GetTranslation(), CVector3(n, 2.0 * n, 3.0 * n));
        EXPECT_EQ(motion.localPoses[n][1].GetTranslation(), CVector3(-n, 1, 0));
        EXPECT_EQ(motion.globalPoses[n][0].GetTranslation(), CVector3());
    }
    EXPECT_EQ(motion.planeNormals[0][1], CVector3(0, 0, 1));
    EXPECT_EQ(motion.planeNormals[1][1], CVector3(0, 1, 0));
    EXPECT_EQ(motion.goalPositions[0][1], CVector3(100 + Legs::Foot(0), 7, 8));
    // A goal with no counterpart keeps its zero position.
    EXPECT_EQ(motion.goalPositions[1][1], CVector3());
}

TEST(Motion, SignIsMinusOneZeroOrOne) {
    EXPECT_EQ(ZUK::mysign(-0.5), -1.0);
    EXPECT_EQ(ZUK::mysign(0.0), 0.0);
    EXPECT_EQ(ZUK::mysign(-0.0), 0.0);
    EXPECT_EQ(ZUK::mysign(3.0), 1.0);
}

// ---- Zero frames --------------------------------------------------------------------------------

TEST(Motion, WithZeroFramesEveryPassLeavesTheBufferAndMaxReachIsZero) {
    for (int friction : {0, 2, 3}) {
        Legs legs(3, friction);
        Motion motion(0, &legs.target, &legs.source);
        for (int p = 0; p < 3; ++p) motion.maxReach[p] = 5.0;
        motion.ProcessFootMovement();
        motion.ScaleFeetLift();
        motion.ClampFootMotionWhilePlanted();
        motion.processBounds();
        motion.processQuadFeet();
        motion.InterpollateBrokenPlaneNormals();
        for (int p = 0; p < 3; ++p) EXPECT_EQ(motion.maxReach[p], 0.0) << friction;
    }
}

// ---- Planted feet (biped) ---------------------------------------------------------------------

// Source positions of foot 0 on one axis; target translations given per frame.
void SetSourceX(Motion& m, const std::vector<double>& x) {
    for (size_t f = 0; f < x.size(); ++f) m.goalPositions[0][f].Set(x[f], 0, 0);
}

TEST(Motion, AFootPlantedToTheEndClosesItsRunAtTheLastFrameWithoutBlend) {
    Legs legs(1, 1);
    legs.target.legLength = 1.3;
    Motion motion(8, &legs.target, &legs.source);
    const int foot = Legs::Foot(0);
    // Moving 1.0 a frame up to frame 3, then 0.001 a frame (planted: below 0.005).
    SetSourceX(motion, {0, 1, 2, 3, 3.001, 3.002, 3.003, 3.004});
    for (int f = 0; f < 8; ++f) motion.globalPoses[foot][f] = At(10.0 * f, 5.0 + 0.1 * f, 0.0);
    motion.ClampFootMotionWhilePlanted();
    for (int f = 0; f < 4; ++f) EXPECT_NEAR(motion.globalPoses[foot][f].GetPosX(), 10.0 * f, kEps) << f;
    for (int f = 4; f < 8; ++f)
        EXPECT_NEAR(motion.globalPoses[foot][f].GetPosX(), 30.0 + 1.3 * 0.001 * (f - 3), 1e-9) << f;
    // The source never moves in y and z: held there from frame 0 on.
    for (int f = 0; f < 8; ++f) {
        EXPECT_NEAR(motion.globalPoses[foot][f].GetPosY(), 5.0, kEps) << f;
        EXPECT_NEAR(motion.globalPoses[foot][f].GetPosZ(), 0.0, kEps) << f;
    }
    // The positions became per-frame steps.
    EXPECT_EQ(motion.goalPositions[0][0], CVector3());
    EXPECT_NEAR(motion.goalPositions[0][5].GetX(), 0.001, 1e-12);
}

TEST(Motion, ARunEndingTwoFramesBeforeTheEndBlendsOverTwoFrames) {
    Legs legs(1, 1);
    Motion motion(10, &legs.target, &legs.source);
    const int foot = Legs::Foot(0);
    // Planted from frame 1 to 7; moving at frames 8 and 9.
    SetSourceX(motion, {0, 0, 0, 0, 0, 0, 0, 0, 1, 2});
    for (int f = 0; f < 10; ++f) motion.globalPoses[foot][f] = At(2.0 + 3.0 * f, 0, 0);
    motion.ClampFootMotionWhilePlanted();
    for (int f = 0; f < 8; ++f) EXPECT_NEAR(motion.globalPoses[foot][f].GetPosX(), 2.0, kEps) << f;
    // Half way from the held 2.0 to the unclamped 29.0 at frame 9, then frame 9 itself.
    EXPECT_NEAR(motion.globalPoses[foot][8].GetPosX(), (2.0 + 29.0) / 2.0, kEps);
    EXPECT_NEAR(motion.globalPoses[foot][9].GetPosX(), 29.0, kEps);
}

TEST(Motion, ARunEndingEarlyBlendsOverFourFrames) {
    Legs legs(1, 1);
    Motion motion(12, &legs.target, &legs.source);
    const int foot = Legs::Foot(0);
    // Planted from frame 1 to 3; moving from frame 4 on.
    SetSourceX(motion, {0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8});
    for (int f = 0; f < 12; ++f) motion.globalPoses[foot][f] = At(4.0 * f, 0, 0);
    motion.ClampFootMotionWhilePlanted();
    for (int f = 0; f < 4; ++f) EXPECT_NEAR(motion.globalPoses[foot][f].GetPosX(), 0.0, kEps) << f;
    // From 0 at frame 3 to the unclamped 28 at frame 7, in quarters.
    for (int k = 1; k <= 4; ++k) EXPECT_NEAR(motion.globalPoses[foot][3 + k].GetPosX(), 7.0 * k, kEps) << k;
    for (int f = 8; f < 12; ++f) EXPECT_NEAR(motion.globalPoses[foot][f].GetPosX(), 4.0 * f, kEps) << f;
}

TEST(Motion, TheBlendKeepsTheFootWithinTheLimbsReachOfItsAnchor) {
    Legs legs(1, 1);
    const int foot = Legs::Foot(0), thigh = Legs::Thigh(0);
    legs.target.nodes[static_cast<size_t>(foot)].length = 5.0;
    Motion motion(8, &legs.target, &legs.source);
    SetSourceX(motion, {0, 0, 0, 1, 2, 3, 4, 5});
    for (int f = 0; f < 8; ++f) {
        motion.globalPoses[thigh][f] = At(0, 10, 0);
        // Unclamped: the foot straight below the thigh, 4 below it.
        motion.globalPoses[foot][f] = At(f == 0 ? 6.0 : 0.0, 6, 0);
    }
    motion.ClampFootMotionWhilePlanted();
    // Frames 1 and 2 held at x = 6, 7.2 from the anchor: pulled in by the blend's clamp only
    // from frame 3 on, along the line to the anchor.
    EXPECT_NEAR(motion.globalPoses[foot][2].GetPosX(), 6.0, kEps);
    // k = 1 of 4 at frame 3: x = 6 + (0 - 6) / 4 = 4.5, |(4.5, -4, 0)| > 5.
    // The clamp moves y as well, but the y run (the source never moves in y) closes at the
    // last frame and puts y back at its frame-0 height.
    const CVector3 d(4.5, -4.0, 0.0);
    EXPECT_NEAR(motion.globalPoses[foot][3].GetPosX(), 4.5 * 5.0 / d.GetLength(), 1e-12);
    EXPECT_NEAR(motion.globalPoses[foot][3].GetPosY(), 6.0, 1e-12);
    // k = 2: x = 3, |(3, -4, 0)| = 5 exactly: no clamp.
    EXPECT_NEAR(motion.globalPoses[foot][4].GetPosX(), 3.0, kEps);
    EXPECT_NEAR(motion.globalPoses[foot][4].GetPosY(), 6.0, kEps);
}

TEST(Motion, AStepExactlyAtTheThresholdIsMovement) {
    Legs legs(1, 1);
    const int foot = Legs::Foot(0);
    // 0.005 of 200 is 1 exactly, and integer positions give steps of exactly 1.
    legs.source.nodes[static_cast<size_t>(foot)].length = 200.0;
    ASSERT_EQ(0.005 * 200.0, 1.0);
    Motion moving(4, &legs.target, &legs.source);
    SetSourceX(moving, {0, 1, 2, 3});
    for (int f = 0; f < 4; ++f) moving.globalPoses[foot][f] = At(10.0 * f, 0, 0);
    moving.ClampFootMotionWhilePlanted();
    for (int f = 0; f < 4; ++f) EXPECT_EQ(moving.globalPoses[foot][f].GetPosX(), 10.0 * f) << f;

    Motion planted(4, &legs.target, &legs.source);
    SetSourceX(planted, {0, 0.999, 1.998, 2.997});
    for (int f = 0; f < 4; ++f) planted.globalPoses[foot][f] = At(10.0 * f, 0, 0);
    planted.ClampFootMotionWhilePlanted();
    EXPECT_NEAR(planted.globalPoses[foot][3].GetPosX(), 3 * 0.999, 1e-9);
}

TEST(Motion, AGoalWithoutSourceCounterpartPassesClampAndBoundsUntouched) {
    for (int pass = 0; pass < 2; ++pass) {
        Legs legs(1, 1);
        const int foot = Legs::Foot(0);
        legs.target.nodes[static_cast<size_t>(foot)].translationSource = -1;
        Motion motion(6, &legs.target, &legs.source);
        for (int f = 0; f < 6; ++f) {
            motion.goalPositions[0][f].Set(0.5 * f, 1, 2);
            motion.globalPoses[foot][f] = At(3.0 * f, 7, 9);
        }
        if (pass == 0)
            motion.ClampFootMotionWhilePlanted();
        else
            motion.processBounds();
        for (int f = 0; f < 6; ++f) {
            EXPECT_EQ(motion.goalPositions[0][f], CVector3(0.5 * f, 1, 2)) << pass;
            EXPECT_EQ(motion.globalPoses[foot][f].GetTranslation(), CVector3(3.0 * f, 7, 9)) << pass;
        }
    }
}

TEST(Motion, FeetLiftIsTheSourceHeightScaledByLegLength) {
    Legs legs(2, 1);  // foot 1 is not a friction node
    legs.target.legLength = 2.0;
    legs.source.legLength = 0.5;
    Motion motion(3, &legs.target, &legs.source);
    for (int f = 0; f < 3; ++f) {
        motion.goalPositions[0][f].Set(1, 0.25 * f, 3);
        motion.goalPositions[1][f].Set(1, 0.25 * f, 3);
        motion.globalPoses[Legs::Foot(0)][f] = At(8, 9, 10);
        motion.globalPoses[Legs::Foot(1)][f] = At(8, 9, 10);
    }
    motion.ScaleFeetLift();
    for (int f = 0; f < 3; ++f) {
        EXPECT_EQ(motion.globalPoses[Legs::Foot(0)][f].GetTranslation(), CVector3(8, 4.0 * 0.25 * f, 10));
        EXPECT_EQ(motion.globalPoses[Legs::Foot(1)][f].GetTranslation(), CVector3(8, 9, 10));
    }
}

// ---- The choice of path ----------------------------------------------------------------------

// Runs the whole processing on legs whose feet stand at height 7 on the target and 1 on the
// source, the target drifting forward while the source stands still; gives the root's height
// at the end and foot 0's x at the last frame.
void RunPath(int friction, double& rootY, double& footX) {
    Legs legs(3, friction);
    legs.target.legLength = 1.3;
    Motion motion(6, &legs.target, &legs.source);
    for (int f = 0; f < 6; ++f) {
        motion.globalPoses[0][f] = At(0, 20, 0);
        for (int leg = 0; leg < 3; ++leg) {
            motion.globalPoses[Legs::Thigh(leg)][f] = At(0, 15, 0);
            motion.globalPoses[Legs::Foot(leg)][f] = At(0.5 * f, 7, 0);
            motion.goalPositions[leg][f].Set(0, 1, 0);
        }
    }
    motion.ProcessFootMovement();
    rootY = motion.globalPoses[0][5].GetPosY();
    footX = motion.globalPoses[Legs::Foot(0)][5].GetPosX();
}

TEST(Motion, TwoFrictionNodesTakeTheBipedPath) {
    double rootY = 0, footX = 0;
    RunPath(2, rootY, footX);
    // The biped passes never move the root, and hold the drifting foot where it stood.
    EXPECT_EQ(rootY, 20.0);
    EXPECT_EQ(footX, 0.0);
}

TEST(Motion, ThreeFrictionNodesTakeTheQuadrupedPath) {
    double rootY = 0, footX = 0;
    RunPath(3, rootY, footX);
    // The whole body is lifted so that the reference foot stands at 1.3 instead of 7; the
    // source standing still on x, the bounds remap keeps the target's frame-0 x on that axis.
    EXPECT_NEAR(rootY, 20.0 + 1.3 - 7.0, 1e-12);
    EXPECT_NEAR(footX, 0.0, 1e-12);
}

TEST(Motion, NoFrictionNodeTakesTheBipedPathAndStillClampsEveryPlane) {
    double rootY = 0, footX = 0;
    RunPath(0, rootY, footX);
    EXPECT_EQ(rootY, 20.0);
    EXPECT_EQ(footX, 0.0);
    // No foot lift without friction: foot 0 keeps its height of 7.
    Legs legs(3, 0);
    Motion motion(4, &legs.target, &legs.source);
    for (int f = 0; f < 4; ++f) {
        motion.globalPoses[Legs::Foot(2)][f] = At(f, 7, 0);
        motion.goalPositions[2][f].Set(0, 1, 0);
    }
    motion.ProcessFootMovement();
    for (int f = 0; f < 4; ++f)
        EXPECT_EQ(motion.globalPoses[Legs::Foot(2)][f].GetTranslation(), CVector3(0, 7, 0)) << f;
}

// ---- Bounds remap (quadruped) -------------------------------------------------------------------

// computeMap over frames 0 to 1 of foot 0 on x: the source moves `source` (leg length 1), the
// target `target` (leg length 2).
double MapScale(double source, double target) {
    Legs legs(1, 1);
    legs.target.legLength = 2.0;
    Motion motion(2, &legs.target, &legs.source);
    motion.goalPositions[0][0].Set(1, 0, 0);
    motion.goalPositions[0][1].Set(1 + source, 0, 0);
    motion.globalPoses[Legs::Foot(0)][0] = At(5, 0, 0);
    motion.globalPoses[Legs::Foot(0)][1] = At(5 + target, 0, 0);
    double srcStart = 0, tgtStart = 0, scale = 0;
    long start = 0, end = 0;
    motion.computeMap(0, 0, srcStart, tgtStart, scale, start, end, 1);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 1);
    EXPECT_EQ(srcStart, 1.0);
    EXPECT_EQ(tgtStart, 5.0);
    return scale;
}

TEST(Motion, ASmallSourceExcursionIsKeptWhenTheTargetsIsLarger) {
    // Source 0.125 leg lengths, target 0.5: the target moves the source's 0.125 of its 2.
    EXPECT_DOUBLE_EQ(MapScale(0.125, 1.0), 0.25 / 0.125);
    // A smaller target excursion in the same direction stays.
    EXPECT_DOUBLE_EQ(MapScale(0.125, 0.125), 1.0);
}

TEST(Motion, ALargerSourceExcursionInTheSameDirectionKeepsTheTargets) {
    EXPECT_DOUBLE_EQ(MapScale(0.5, 3.0), 3.0 / 0.5);
    // Exactly a quarter leg length is not "below a quarter".
    EXPECT_DOUBLE_EQ(MapScale(0.25, 1.0), 1.0 / 0.25);
}

TEST(Motion, ATargetExcursionTheOtherWayBecomesTheSources) {
    EXPECT_DOUBLE_EQ(MapScale(0.5, -1.0), 1.0 / 0.5);
    // No source movement at all: scale 1.
    EXPECT_DOUBLE_EQ(MapScale(0.0, 0.0), 1.0);
}

TEST(Motion, BoundsRemapJoinsSegmentsAtTheSourceTurningPoints) {
    Legs legs(1, 3);  // a single friction foot: tests call the pass itself
    Motion motion(5, &legs.target, &legs.source);
    const int foot = Legs::Foot(0), thigh = Legs::Thigh(0);
    // Source x: 0, 1, 2 (maximum), 1, 0.5; target x: 0, 3, 6, 3, 1 (leg lengths equal: the
    // target's larger excursion at or above a quarter stays).
    const double src[5] = {0, 1, 2, 1, 0.5}, tgt[5] = {0, 3, 6, 3, 1};
    for (int f = 0; f < 5; ++f) {
        motion.goalPositions[0][f].Set(src[f], 0, 0);
        motion.globalPoses[foot][f] = At(tgt[f], 0, 0);
        motion.globalPoses[thigh][f] = At(tgt[f], 0.5 + 0.1 * f, 0);
    }
    motion.processBounds();
    // Segment 0-2 maps 0..2 onto 0..6 (scale 3); segment 2-4 maps 2..0.5 onto 6..1 (scale 10/3).
    const double expected[5] = {0, 3, 6, 6 - 10.0 / 3.0, 1};
    for (int f = 0; f < 5; ++f) EXPECT_NEAR(motion.globalPoses[foot][f].GetPosX(), expected[f], 1e-12) << f;
    // Largest vertical gap between anchor and goal.
    EXPECT_NEAR(motion.maxReach[0], 0.9, 1e-12);
}

// ---- Semi-free nodes and the quadruped lift -----------------------------------------------------

TEST(Motion, SemiFreeNodeIsTheParentOfTheNearestFreeJointAbove) {
    Legs legs(1, 1);
    ZUK::ModelStructure& s = *legs.structure;
    Motion motion(1, &legs.target, &legs.source);
    EXPECT_EQ(motion.FindSemiFreeNode(0), 0);
    EXPECT_EQ(motion.FindSemiFreeNode(Legs::Foot(0)), 0);
    // A free thigh: its parent, the root, is the semi-free node, which counts as none.
    s.nodes[Legs::Thigh(0)].Type = 3;
    EXPECT_EQ(motion.FindSemiFreeNode(Legs::Foot(0)), 0);
    // A free shin under the thigh: the thigh.
    s.nodes[Legs::Thigh(0)].Type = 1;
    s.nodes[Legs::Foot(0)].Parent = Legs::Thigh(0) + 1;
    s.nodes[Legs::Thigh(0) + 1].Type = 3;
    EXPECT_EQ(motion.FindSemiFreeNode(Legs::Foot(0)), Legs::Thigh(0));
    // The node itself counts.
    EXPECT_EQ(motion.FindSemiFreeNode(Legs::Thigh(0) + 1), Legs::Thigh(0));
}

TEST(Motion, QuadrupedFeetBelowAFreeNodeTakeTheSourceHeightDifferenceAndLiftThatNode) {
    // Leg 0 hangs from the root (reference); leg 1 hangs below a free node 4 ("shoulder"
    // = leg 1's thigh made free, under its own parent 0 ... made semi-free through node 1).
    Legs legs(2, 2);
    ZUK::ModelStructure& s = *legs.structure;
    const int refFoot = Legs::Foot(0), thigh1 = Legs::Thigh(1), foot1 = Legs::Foot(1);
    s.nodes[thigh1].Parent = 1;  // below thigh 0
    s.nodes[thigh1].Type = 3;    // free: foot 1 does not inherit from the root
    legs.target.nodes[static_cast<size_t>(refFoot)].length = 2.0;
    legs.source.nodes[static_cast<size_t>(refFoot)].length = 1.0;
    legs.target.legLength = 2.0;
    Motion motion(3, &legs.target, &legs.source);
    const double srcRef[3] = {0.5, 0.2, 0.4}, srcFoot1[3] = {0.9, 0.3, 0.6};
    const double tgtRef[3] = {3, 2, 4}, tgtFoot1[3] = {5, 7, 4};
    for (int f = 0; f < 3; ++f) {
        motion.goalPositions[0][f].Set(0, srcRef[f], 0);
        motion.goalPositions[1][f].Set(0, srcFoot1[f], 0);
        motion.globalPoses[refFoot][f] = At(0, tgtRef[f], 0);
        motion.globalPoses[foot1][f] = At(0, tgtFoot1[f], 0);
        motion.globalPoses[thigh1][f] = At(0, 10, 0);
        motion.globalPoses[0][f] = At(0, 12, 0);
    }
    motion.maxReach[1] = 9.0;
    motion.processQuadFeet();
    // a = 1 (source reference lowest), b = 2 (target foot 1 lowest); ratio 2.
    const double offset = (0.6 - 0.2) * 2.0 - (4.0 - 2.0);
    // Largest gap after the offset: |10 - (4 + offset)|, room = 9 - gap, node 1 lifted by it.
    double gap = 0;
    for (double y : tgtFoot1) gap = std::max(gap, std::fabs(10.0 - (y + offset)));
    const double room = 9.0 - gap;
    ASSERT_GT(room, 0.0);
    const double lift = 0.2 * 2.0 / 1.0 - 2.0;
    for (int f = 0; f < 3; ++f) {
        EXPECT_NEAR(motion.globalPoses[foot1][f].GetPosY(), tgtFoot1[f] + offset + lift, 1e-12) << f;
        EXPECT_NEAR(motion.globalPoses[refFoot][f].GetPosY(), tgtRef[f] + lift, 1e-12) << f;
        EXPECT_NEAR(motion.globalPoses[1][f].GetPosY(), room + lift, 1e-12) << f;
        EXPECT_NEAR(motion.globalPoses[0][f].GetPosY(), 12.0 + lift, 1e-12) << f;
        EXPECT_NEAR(motion.globalPoses[thigh1][f].GetPosY(), 10.0 + lift, 1e-12) << f;
    }
}

// ---- Collapsed limb normals -----------------------------------------------------------------------

TEST(Motion, AStraightLimbInTheMiddleGetsNormalsBlendedInQuarters) {
    Legs legs(1, 1);
    Motion motion(10, &legs.target, &legs.source);
    for (int f = 0; f < 10; ++f) motion.planeNormals[0][f].Set(f < 3 ? 1 : 0, f >= 6 ? 1 : 0, 0);
    motion.InterpollateBrokenPlaneNormals();
    for (int i = 1; i <= 3; ++i) {
        const double t = i / 4.0;
        CVector3 expected(1 - t, t, 0);
        expected.NormalizeInPlace();
        EXPECT_TRUE(motion.planeNormals[0][2 + i].Equals(expected, 1e-12)) << i;
    }
    EXPECT_EQ(motion.planeNormals[0][2], CVector3(1, 0, 0));
    EXPECT_EQ(motion.planeNormals[0][6], CVector3(0, 1, 0));
}

TEST(Motion, AStraightLimbFromTheFirstFrameTakesItsNormalThroughTheAnchor) {
    Legs legs(1, 1);
    const int thigh = Legs::Thigh(0);
    Motion motion(6, &legs.target, &legs.source);
    // The anchor turns 0.1 rad a frame about Y; the limb is straight in frames 0 to 2.
    for (int f = 0; f < 6; ++f) {
        motion.globalPoses[thigh][f].SetRotationFromAxisAngle(CVector3(0, 1, 0), 0.1 * f);
        motion.planeNormals[0][f] = f < 3 ? CVector3(0.1, 0, 0) : CVector3(0.6, 0, 0.8);
    }
    motion.InterpollateBrokenPlaneNormals();
    // Frame k's normal is frame 3's turned back by (3 - k) * 0.1 about Y (right-handed).
    for (int k = 0; k < 3; ++k) {
        const double a = 0.1 * (k - 3);
        const CVector3 expected(0.6 * std::cos(a) + 0.8 * std::sin(a), 0,
                                -0.6 * std::sin(a) + 0.8 * std::cos(a));
        EXPECT_TRUE(motion.planeNormals[0][k].Equals(expected, 1e-12))
            << k << ": " << motion.planeNormals[0][k].GetX() << " " << motion.planeNormals[0][k].GetZ();
    }
}

TEST(Motion, AStraightLimbToTheEndRepeatsTheLastGoodNormal) {
    Legs legs(1, 1);
    Motion motion(10, &legs.target, &legs.source);
    for (int f = 0; f < 10; ++f) motion.planeNormals[0][f] = f < 7 ? CVector3(0, 0.1 * f, 1) : CVector3();
    motion.InterpollateBrokenPlaneNormals();
    for (int f = 7; f < 10; ++f) EXPECT_EQ(motion.planeNormals[0][f], CVector3(0, 0.1 * 6, 1)) << f;
}

TEST(Motion, ALimbStraightInEveryFrameKeepsItsNormals) {
    Legs legs(1, 1);
    Motion motion(4, &legs.target, &legs.source);
    for (int f = 0; f < 4; ++f) motion.planeNormals[0][f].Set(0.1 * f, 0, 0);
    motion.InterpollateBrokenPlaneNormals();
    for (int f = 0; f < 4; ++f) EXPECT_EQ(motion.planeNormals[0][f], CVector3(0.1 * f, 0, 0));
}

}  // namespace
