// The pose adjustments on a walking character: each step against poses computed here from the
// walk's own forward kinematics, with the parameters set the way the panel sets them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "live/AdjustTestSupport.h"

namespace {

using namespace adjusttest;
using ZUK::RetargetOp;

// Poses of a character about 17 units high: 1e-9 of its height.
constexpr double POSITION_TOLERANCE = 17.0 * 1e-9;
constexpr double ANGLE_TOLERANCE = 1e-9;

void ExpectNear(const CVector3& actual, const CVector3& expected, double tolerance, const std::string& what) {
    EXPECT_NEAR(actual.x, expected.x, tolerance) << what;
    EXPECT_NEAR(actual.y, expected.y, tolerance) << what;
    EXPECT_NEAR(actual.z, expected.z, tolerance) << what;
}

void ExpectSamePose(const CTransformation& actual, const CTransformation& expected, const std::string& what) {
    ExpectNear(actual.GetTranslation(), expected.GetTranslation(), POSITION_TOLERANCE, what);
    EXPECT_LT(RotationDistance(actual.GetRotation(), expected.GetRotation()), ANGLE_TOLERANCE) << what;
}

std::string Where(int frame, int node) {
    return "frame " + std::to_string(frame) + " node " + std::to_string(node);
}

// The walker moves a unit per frame, so a held foot soon leaves its reach; long legs keep the
// hold from being pulled back where reach is not what a test is about.
void LongLegs(Walker& w) { w.node(LFOOT).length = w.node(RFOOT).length = 1000.0; }

// The walk's pose at a whole frame, as the blob holds it.
CVector3 Played(const Walker& w, int node, int frame) {
    return w.walk.Globals(frame)[static_cast<size_t>(node)].GetTranslation();
}

// ---- Defaults ---------------------------------------------------------------------------------

TEST(PoseAdjustments, DefaultParametersLeaveThePlayedPoseUnchangedAtEveryFrame) {
    Walker w;
    // Rotation offsets at zero and a semi-free node take their own paths through the steps.
    w.addRotationOffset(COG, 0.0, 0.0, 0.0, 0.0);
    w.addRotationOffset(SPINE, 0.0, 0.0, 0.0, 0.0);
    w.addRotationOffset(LFOOT, 0.0, 0.0, 0.0, 0.0);
    for (int f = 0; f < w.walk.frames; ++f) {
        for (double fraction : {0.0, 0.25, 0.5}) {
            if (f == w.walk.frames - 1 && fraction > 0.0) continue;
            w.play(f, fraction);
            const std::vector<CTransformation> played = w.globals();
            std::vector<CVector3> normals;
            for (int p = 0; p < PLANES; ++p)
                normals.push_back(w.op->modelMap->planes[static_cast<size_t>(p)].normal);
            w.adjust(f, fraction);
            w.op->applyRoll();
            for (int n = 0; n < NODES; ++n)
                ExpectSamePose(w.node(n).global, played[static_cast<size_t>(n)], Where(f, n));
            for (int p = 0; p < PLANES; ++p)
                ExpectNear(w.op->modelMap->planes[static_cast<size_t>(p)].normal,
                           normals[static_cast<size_t>(p)], 1e-12, "normal");
        }
    }
}

// ---- Stride -----------------------------------------------------------------------------------

TEST(PoseAdjustments, StrideOneWithScaleAtBaseScaleReproducesTheMotion) {
    Walker w(0, 1.7);
    for (int f = 0; f < w.walk.frames; ++f) {
        w.play(f, 0.5 * (f % 2) * (f + 1 < w.walk.frames));
        const std::vector<CTransformation> played = w.globals();
        w.op->applyStride();
        for (int n = 0; n < NODES; ++n)
            ExpectSamePose(w.node(n).global, played[static_cast<size_t>(n)], Where(f, n));
    }
}

TEST(PoseAdjustments, StrideLengthensTravelAlongTheDirectionAndKeepsTheSidewaysPart) {
    Walker w;
    // Long legs, so that no foot meets its reach here.
    w.node(LFOOT).length = w.node(RFOOT).length = 1000.0;
    w.parameter(L"Stride").PutValue(1.5);
    w.op->updateStride();

    const int last = w.walk.frames - 1;
    CVector3 dir = Played(w, COG, last) - Played(w, COG, 0);
    if (dir.x > dir.y || dir.z > dir.y) dir.y = 0.0;
    dir.NormalizeInPlace();
    auto along = [&dir](const CVector3& v) { return dir * v.Dot(dir); };

    for (int f = 0; f <= last; ++f) {
        w.play(f);
        w.op->applyStride();
        const CVector3 travel = Played(w, COG, f) - Played(w, COG, 0);
        const CVector3 expectedCog = Played(w, COG, 0) + travel - along(travel) + along(travel) * 1.5;
        ExpectNear(w.position(COG), expectedCog, POSITION_TOLERANCE, Where(f, COG));
        // A foot's place relative to the hips stretches with the stride; the hand's does not.
        const CVector3 foot = Played(w, LFOOT, f) - Played(w, COG, f);
        ExpectNear(w.position(LFOOT), expectedCog + foot - along(foot) + along(foot) * 1.5,
                   POSITION_TOLERANCE, Where(f, LFOOT));
        const CVector3 hand = Played(w, LHAND, f) - Played(w, COG, f);
        ExpectNear(w.position(LHAND), expectedCog + hand, POSITION_TOLERANCE, Where(f, LHAND));
    }
    const CVector3 travel = Played(w, COG, last) - Played(w, COG, 0);
    w.play(last);
    w.op->applyStride();
    const CVector3 moved = w.position(COG) - Played(w, COG, 0);
    EXPECT_NEAR(moved.Dot(dir), 1.5 * travel.Dot(dir), POSITION_TOLERANCE);
    ExpectNear(moved - along(moved), travel - along(travel), POSITION_TOLERANCE, "sideways");
}

// The root path at another speed: motion frame i takes the root's step from frame j - 1 to j,
// with j = truncate(i / speed + 0.1), and the goals their place relative to the root at j.
// Samples stay inside the clip, so past its end the root stands still.
void ExpectStridePathsAtSpeed(Walker& w, double speed) {
    w.op->speed = speed;
    w.op->updateStride();
    const int last = w.walk.frames - 1;
    auto clip = [last](int f) { return std::max(0, std::min(f, last)); };
    CVector3 root = Played(w, COG, 0);
    for (int i = 0; i < w.walk.frames; ++i) {
        const int j = static_cast<int>(std::trunc(i / speed + 0.1));
        if (i > 0) root += Played(w, COG, clip(j)) - Played(w, COG, clip(j - 1));
        ExpectNear(w.op->cogPath[i], root, POSITION_TOLERANCE, Where(i, COG));
        const CVector3 foot = root + Played(w, RFOOT, clip(j)) - Played(w, COG, clip(j));
        ExpectNear(w.op->footPaths[RLEG][i], foot, POSITION_TOLERANCE, Where(i, RFOOT));
    }
}

TEST(PoseAdjustments, StridePathsAtSpeedTwoStepThroughTheClipAtTheSceneFrame) {
    Walker w;
    ExpectStridePathsAtSpeed(w, 2.0);
}

TEST(PoseAdjustments, StridePathsPastTheClipStandStill) {
    Walker w;
    ExpectStridePathsAtSpeed(w, 0.5);
}

TEST(PoseAdjustments, ScaleAgainstBaseScaleScalesTheRootPath) {
    Walker w;
    w.parameter(L"Scale").PutValue(2.0);
    w.op->updateStride();
    for (int f = 0; f < w.walk.frames; ++f) {
        w.play(f);
        w.op->applyStride();
        ExpectNear(w.position(COG), Played(w, COG, f) * 2.0, POSITION_TOLERANCE, Where(f, COG));
    }
}

TEST(PoseAdjustments, StrideUpdateSaysWhatItDoes) {
    Walker w;
    orvhost::ClearLog();
    w.op->updateStride();
    EXPECT_EQ(orvhost::LogTexts(8), std::vector<std::wstring>{L"Constructing Stride Data"});
    EXPECT_TRUE(orvhost::LogTexts(4).empty());
}

TEST(PoseAdjustments, StrideCurveOfOneKeyBecomesLinearAndIsKeyedNow) {
    Walker w;
    ORV::FCurve curve = Animate(w.parameter(L"Stride"), {{2.0, 1.25}}, ORV::ovCubicInterpolation);
    curve.PutInterpolation(ORV::ovCubicInterpolation);
    w.at(10);
    w.op->updateStride();
    EXPECT_EQ(curve.GetInterpolation(), ORV::ovLinearInterpolation);
    ASSERT_EQ(curve.GetNumKeys(), 2);
    EXPECT_DOUBLE_EQ(curve.GetKeyAtIndex(1).GetTime().GetTime(), 10.0);
    EXPECT_DOUBLE_EQ(static_cast<double>(curve.GetKeyAtIndex(1).GetValue()), 1.25);
}

TEST(PoseAdjustments, FootBeyondItsReachStopsAtReachInStride) {
    Walker w;
    const double reach = 5.0;
    w.node(LFOOT).length = reach;
    for (int f = 0; f < w.walk.frames; ++f) {
        w.play(f);
        w.op->applyStride();
        const CVector3 anchor = Played(w, LTHIGH, f);
        CVector3 d = Played(w, LFOOT, f) - anchor;
        ASSERT_GT(d.GetLength(), reach);
        d.NormalizeInPlace();
        ExpectNear(w.position(LFOOT), anchor + d * reach, POSITION_TOLERANCE, Where(f, LFOOT));
    }
}

// ---- Stretch ----------------------------------------------------------------------------------

TEST(PoseAdjustments, StretchScalesTheGoalFromItsAnchor) {
    Walker w;
    w.parameter(L"lhandStretch").PutValue(0.5);
    w.play(7);
    w.op->applyStretch();
    const CVector3 anchor = Played(w, LSHOULDER, 7);
    ExpectNear(w.position(LHAND), anchor + (Played(w, LHAND, 7) - anchor) * 0.5, POSITION_TOLERANCE, "hand");
    EXPECT_DOUBLE_EQ(w.op->modelMap->planes[LARM].stretch, 0.5);
    // The goal's local pose is relative to its anchor.
    const CTransformation local = w.node(LHAND).local;
    const CTransformation expected =
        ORV::MATH::MapWorldPoseToObjectSpace(w.node(LSHOULDER).global, w.node(LHAND).global);
    ExpectSamePose(local, expected, "local");
}

TEST(PoseAdjustments, FootBeyondItsReachStopsAtReachInStretch) {
    Walker w;
    w.parameter(L"lfootStretch").PutValue(2.0);
    for (int f : {0, 5, 13}) {
        w.play(f);
        w.op->applyStretch();
        const CVector3 anchor = Played(w, LTHIGH, f);
        CVector3 d = Played(w, LFOOT, f) - anchor;
        d.NormalizeInPlace();
        ExpectNear(w.position(LFOOT), anchor + d * Walk::Length(LFOOT), POSITION_TOLERANCE, Where(f, LFOOT));
    }
}

// ---- Offset -----------------------------------------------------------------------------------

TEST(PoseAdjustments, HipOffsetWithFeetOffsetOffMovesTheBodyKeepsTheFeetAndIKBendsTheKnees) {
    Walker w;
    w.parameter(L"offsetFeet").PutValue(false);
    w.parameter(L"hipY").PutValue(-5.0);
    const CVector3 down(0.0, -5.0, 0.0);
    for (int f = 0; f < w.walk.frames; ++f) {
        w.adjust(f);
        ExpectNear(w.position(COG), Played(w, COG, f) + down, POSITION_TOLERANCE, Where(f, COG));
        ExpectNear(w.position(LTHIGH), Played(w, LTHIGH, f) + down, POSITION_TOLERANCE, Where(f, LTHIGH));
        ExpectNear(w.position(LFOOT), Played(w, LFOOT, f), POSITION_TOLERANCE, Where(f, LFOOT));
        ExpectNear(w.position(RFOOT), Played(w, RFOOT, f), POSITION_TOLERANCE, Where(f, RFOOT));
        // A hand carries nothing, so it goes with the body.
        ExpectNear(w.position(LHAND), Played(w, LHAND, f) + down, POSITION_TOLERANCE, Where(f, LHAND));

        w.op->modelMap->solveIK();
        for (int thigh : {LTHIGH, RTHIGH}) {
            // The shin reaches the foot again, and the knee angle closes.
            const CVector3 hip = w.position(thigh), solvedKnee = w.position(thigh + 1),
                           foot = w.position(thigh + 2);
            EXPECT_NEAR((solvedKnee - hip).GetLength(), Walk::Offset(thigh + 1).GetLength(), 1e-9)
                << Where(f, thigh);
            EXPECT_NEAR((foot - solvedKnee).GetLength(), Walk::Offset(thigh + 2).GetLength(), 1e-9)
                << Where(f, thigh);
            const CVector3 playedHip = Played(w, thigh, f), playedKnee = Played(w, thigh + 1, f);
            const double before = (playedHip - playedKnee).GetAngle(Played(w, thigh + 2, f) - playedKnee);
            const double after = (hip - solvedKnee).GetAngle(foot - solvedKnee);
            EXPECT_LT(after, before - 0.3) << Where(f, thigh);
        }
    }
}

TEST(PoseAdjustments, HipOffsetWithFeetOffsetOnMovesTheFeetToo) {
    Walker w;
    w.parameter(L"hipY").PutValue(-5.0);
    w.parameter(L"hipX").PutValue(0.5);
    const CVector3 shift(0.5, -5.0, 0.0);
    for (int f = 0; f < w.walk.frames; ++f) {
        w.adjust(f);
        for (int n : {COG, LFOOT, RFOOT, LHAND, LSHIN})
            ExpectNear(w.position(n), Played(w, n, f) + shift, POSITION_TOLERANCE, Where(f, n));
    }
}

TEST(PoseAdjustments, GoalOffsetHasNoReachLimit) {
    Walker w;
    w.parameter(L"lfootX").PutValue(100.0);
    w.parameter(L"lfootZ").PutValue(-2.0);
    w.adjust(4);
    ExpectNear(w.position(LFOOT), Played(w, LFOOT, 4) + CVector3(100.0, 0.0, -2.0), POSITION_TOLERANCE,
               "foot");
    EXPECT_GT((w.position(LFOOT) - w.position(LTHIGH)).GetLength(), Walk::Length(LFOOT) + 50.0);
}

TEST(PoseAdjustments, RootRotationOffsetTurnsTheRootAboutTheWorldOriginAndTheLimbPlanes) {
    Walker w;
    w.addRotationOffset(COG, 0.0, 90.0, 0.0, 0.0);
    const CRotation turn(0.0, 90.0 * DEG, 0.0);
    for (int f : {0, 6, 20}) {
        w.play(f);
        std::vector<CVector3> normals;
        for (int p = 0; p < PLANES; ++p)
            normals.push_back(w.op->modelMap->planes[static_cast<size_t>(p)].normal);
        w.adjust(f);
        const std::vector<CTransformation> g = w.walk.Globals(f);
        const CTransformation root = Mul(g[COG], Pose(CVector3(), turn));
        ExpectSamePose(w.node(COG).global, root, Where(f, COG));
        // The body follows its root.
        const CTransformation spine = Mul(ORV::MATH::MapWorldPoseToObjectSpace(g[COG], g[SPINE]), root);
        ExpectSamePose(w.node(SPINE).global, spine, Where(f, SPINE));
        for (int p = 0; p < PLANES; ++p) {
            CVector3 expected;
            expected.MulByRotation(normals[static_cast<size_t>(p)], turn);
            ExpectNear(w.op->modelMap->planes[static_cast<size_t>(p)].normal, expected, 1e-12, "normal");
        }
    }
}

TEST(PoseAdjustments, RotationOffsetOfAnotherNodeTurnsItInItsOwnAxes) {
    Walker w;
    w.addRotationOffset(LHAND, 0.0, 0.0, 45.0, 0.0);
    w.adjust(9);
    const std::vector<CTransformation> g = w.walk.Globals(9);
    const CTransformation expected = Mul(Pose(CVector3(), CRotation(0.0, 0.0, 45.0 * DEG)), g[LHAND]);
    ExpectSamePose(w.node(LHAND).global, expected, "hand");
}

TEST(PoseAdjustments, SemiFreeOffsetMovesTheNodeAndCarriesItsChildren) {
    Walker w;
    w.parameter(L"spineY").PutValue(1.0);
    w.parameter(L"spineRZ").PutValue(90.0);
    w.adjust(3);
    const std::vector<CTransformation> g = w.walk.Globals(3);
    CTransformation spine = Mul(Pose(CVector3(), CRotation(0.0, 0.0, 90.0 * DEG)), g[SPINE]);
    spine.SetTranslation(g[SPINE].GetTranslation() + CVector3(0.0, 1.0, 0.0));
    ExpectSamePose(w.node(SPINE).global, spine, "spine");
    ExpectNear(w.op->semiFrees[0].offset, CVector3(0.0, 1.0, 0.0), 0.0, "cached offset");
    for (int n : {LSHOULDER, LHAND}) {
        const CTransformation local =
            ORV::MATH::MapWorldPoseToObjectSpace(g[SPINE], g[static_cast<size_t>(n)]);
        ExpectSamePose(w.node(n).global, Mul(local, spine), Where(3, n));
    }
    // The legs hang from the root, which did not move.
    ExpectNear(w.position(LFOOT), Played(w, LFOOT, 3), POSITION_TOLERANCE, "foot");
}

TEST(PoseAdjustments, SemiFreeOffsetLeavesLimbEndsWhenItsChildrenAreNotOffset) {
    Walker w;
    w.op->semiFrees[0].offsetChildren = false;
    w.parameter(L"spineY").PutValue(1.0);
    w.adjust(3);
    ExpectNear(w.position(LSHOULDER), Played(w, LSHOULDER, 3) + CVector3(0.0, 1.0, 0.0), POSITION_TOLERANCE,
               "shoulder");
    ExpectNear(w.position(LHAND), Played(w, LHAND, 3), POSITION_TOLERANCE, "hand");
}

// ---- Dampening ----------------------------------------------------------------------------------

TEST(PoseAdjustments, ReduceOneGivesTheTagTimeOrientationRelativeToTheParent) {
    Walker w;
    w.addRotationOffset(SPINE, 0.0, 0.0, 0.0, 1.0);
    // The tag-time pose is frame 0's.
    const std::vector<CTransformation> rest = w.walk.Globals(0);
    const CTransformation restLocal = ORV::MATH::MapWorldPoseToObjectSpace(rest[COG], rest[SPINE]);
    for (int f : {4, 11, 17}) {
        w.adjust(f);
        const std::vector<CTransformation> g = w.walk.Globals(f);
        const CTransformation local =
            ORV::MATH::MapWorldPoseToObjectSpace(w.node(COG).global, w.node(SPINE).global);
        EXPECT_LT(RotationDistance(local.GetRotation(), restLocal.GetRotation()), ANGLE_TOLERANCE) << f;
        ExpectNear(w.position(SPINE), Played(w, SPINE, f), POSITION_TOLERANCE, Where(f, SPINE));
        // The frame's own spine bend differs from the rest pose, so the reduction did something.
        EXPECT_GT(RotationDistance(ORV::MATH::MapWorldPoseToObjectSpace(g[COG], g[SPINE]).GetRotation(),
                                   restLocal.GetRotation()),
                  0.02);
        // Children keep their poses relative to the spine.
        const CTransformation childLocal = ORV::MATH::MapWorldPoseToObjectSpace(g[SPINE], g[LSHOULDER]);
        ExpectSamePose(w.node(LSHOULDER).global, Mul(childLocal, w.node(SPINE).global), Where(f, LSHOULDER));
    }
}

TEST(PoseAdjustments, ReduceKeepsTheOffsetsOfTheNodesBelow) {
    Walker w;
    // The hand's own rotation offset turns it before the spine is reduced; the hand keeps that
    // turn relative to its parent.
    w.addRotationOffset(SPINE, 0.0, 0.0, 0.0, 1.0);
    w.addRotationOffset(LHAND, 0.0, 0.0, 45.0, 0.0);
    w.adjust(9);
    const std::vector<CTransformation> g = w.walk.Globals(9);
    const CTransformation turned = Mul(Pose(CVector3(), CRotation(0.0, 0.0, 45.0 * DEG)), g[LHAND]);
    const CTransformation expected = ORV::MATH::MapWorldPoseToObjectSpace(g[LSHOULDER], turned);
    const CTransformation local =
        ORV::MATH::MapWorldPoseToObjectSpace(w.node(LSHOULDER).global, w.node(LHAND).global);
    ExpectSamePose(local, expected, "hand under its shoulder");
}

TEST(PoseAdjustments, ReduceHalfTurnsHalfwayToTheRestOrientation) {
    Walker w;
    w.addRotationOffset(SPINE, 0.0, 0.0, 0.0, 0.5);
    const std::vector<CTransformation> rest = w.walk.Globals(0);
    const CRotation restLocal = ORV::MATH::MapWorldPoseToObjectSpace(rest[COG], rest[SPINE]).GetRotation();
    w.adjust(8);
    const std::vector<CTransformation> g = w.walk.Globals(8);
    const CRotation played = ORV::MATH::MapWorldPoseToObjectSpace(g[COG], g[SPINE]).GetRotation();
    const CRotation local =
        ORV::MATH::MapWorldPoseToObjectSpace(w.node(COG).global, w.node(SPINE).global).GetRotation();
    const double whole = RotationDistance(played, restLocal);
    EXPECT_NEAR(RotationDistance(played, local), 0.5 * whole, 1e-6);
    EXPECT_NEAR(RotationDistance(local, restLocal), 0.5 * whole, 1e-6);
}

// ---- Clamp ------------------------------------------------------------------------------------

TEST(PoseAdjustments, AnimatedClampHoldsTheFootFromItsKeyAndBlendsBackOverBlendBackFrames) {
    Walker w;
    LongLegs(w);
    Animate(w.parameter(L"lfootClamp"), {{5.0, 1.0}, {10.0, 0.0}});
    w.op->updateClampKeys(LLEG, 0.0);
    const std::vector<RetargetOp::ClampItem>& items = w.op->clampKeys[LLEG];
    ASSERT_EQ(items.size(), 2u);
    EXPECT_TRUE(items[0].clamp);
    EXPECT_EQ(items[0].frame, 5);
    EXPECT_FALSE(items[1].clamp);
    EXPECT_EQ(items[1].frame, 10);
    EXPECT_EQ(items[1].blendBack, 4);

    const CVector3 held = Played(w, LFOOT, 5);
    for (int f = 5; f <= 10; ++f) {
        w.adjust(f);
        ExpectNear(w.position(LFOOT), held, POSITION_TOLERANCE, Where(f, LFOOT));
    }
    w.adjust(7, 0.5);
    ExpectNear(w.position(LFOOT), held, POSITION_TOLERANCE, "between frames");
    // Over the four frames after the release the foot returns to its own motion.
    for (double at : {11.0, 12.5, 13.0}) {
        const int f = static_cast<int>(at);
        w.play(f, at - f);
        const CVector3 free = w.position(LFOOT);
        w.adjust(f, at - f);
        const double t = (at - 10.0) / 4.0;
        ExpectNear(w.position(LFOOT), held * (1.0 - t) + free * t, POSITION_TOLERANCE, "blend");
    }
    for (int f : {4, 14, 18}) {
        w.adjust(f);
        ExpectNear(w.position(LFOOT), Played(w, LFOOT, f), POSITION_TOLERANCE, Where(f, LFOOT));
    }
    // The other foot was never held.
    w.adjust(7);
    ExpectNear(w.position(RFOOT), Played(w, RFOOT, 7), POSITION_TOLERANCE, "right foot");
}

TEST(PoseAdjustments, ClampCurveWithOneKeyIsItsValueHeldFromTheInsertionFrame) {
    Walker w(3);
    LongLegs(w);
    Animate(w.parameter(L"lfootClamp"), {{12.0, 1.0}});
    // With one key the map's present pose is the one held.
    w.play(8);
    const CVector3 held = w.position(LFOOT);
    w.op->updateClampKeys(LLEG, 20.0);
    const std::vector<RetargetOp::ClampItem>& items = w.op->clampKeys[LLEG];
    ASSERT_EQ(items.size(), 1u);
    EXPECT_TRUE(items[0].clamp);
    EXPECT_EQ(items[0].frame, 3);
    EXPECT_DOUBLE_EQ(w.op->currentTime, 20.0);
    w.adjust(2);
    ExpectNear(w.position(LFOOT), Played(w, LFOOT, 2), POSITION_TOLERANCE, "before");
    for (int f : {3, 9, 20}) {
        w.adjust(f);
        ExpectNear(w.position(LFOOT), held, POSITION_TOLERANCE, Where(f, LFOOT));
    }
}

TEST(PoseAdjustments, ClampOffWithoutCurveGivesNoEvents) {
    Walker w;
    w.op->updateClampKeys(LLEG, 0.0);
    EXPECT_TRUE(w.op->clampKeys[LLEG].empty());
    w.parameter(L"lfootClamp").PutValue(true);
    w.play(6);
    w.op->updateClampKeys(LLEG, 0.0);
    ASSERT_EQ(w.op->clampKeys[LLEG].size(), 1u);
    EXPECT_EQ(w.op->clampKeys[LLEG][0].frame, 0);
    ExpectNear(w.op->clampKeys[LLEG][0].position, Played(w, LFOOT, 6), POSITION_TOLERANCE, "held");
}

TEST(PoseAdjustments, OffKeyWithBlendBackZeroReleasesAtOnce) {
    Walker w;
    LongLegs(w);
    w.parameter(L"lfootBlendBack").PutValue(0);
    Animate(w.parameter(L"lfootClamp"), {{5.0, 1.0}, {10.0, 0.0}});
    w.op->updateClampKeys(LLEG, 0.0);
    ASSERT_EQ(w.op->clampKeys[LLEG].size(), 2u);
    EXPECT_EQ(w.op->clampKeys[LLEG][1].blendBack, 0);
    w.adjust(9, 0.5);
    ExpectNear(w.position(LFOOT), Played(w, LFOOT, 5), POSITION_TOLERANCE, "held");
    for (int f : {10, 11}) {
        w.adjust(f);
        ExpectNear(w.position(LFOOT), Played(w, LFOOT, f), POSITION_TOLERANCE, Where(f, LFOOT));
    }
}

TEST(PoseAdjustments, ClampOnOffOnLeavesTheFootFreeBetweenTheBlendWindowAndTheNextHold) {
    Walker w;
    LongLegs(w);
    w.parameter(L"lfootBlendBack").PutValue(2);
    Animate(w.parameter(L"lfootClamp"), {{2.0, 1.0}, {6.0, 0.0}, {12.0, 1.0}});
    w.op->updateClampKeys(LLEG, 0.0);
    ASSERT_EQ(w.op->clampKeys[LLEG].size(), 3u);
    for (int f = 2; f <= 6; ++f) {
        w.adjust(f);
        ExpectNear(w.position(LFOOT), Played(w, LFOOT, 2), POSITION_TOLERANCE, Where(f, LFOOT));
    }
    w.adjust(7);
    ExpectNear(w.position(LFOOT), (Played(w, LFOOT, 2) + Played(w, LFOOT, 7)) * 0.5, POSITION_TOLERANCE,
               "blend");
    for (int f = 8; f <= 11; ++f) {
        w.adjust(f);
        ExpectNear(w.position(LFOOT), Played(w, LFOOT, f), POSITION_TOLERANCE, Where(f, LFOOT));
    }
    for (int f = 12; f < w.walk.frames; ++f) {
        w.adjust(f);
        ExpectNear(w.position(LFOOT), Played(w, LFOOT, 12), POSITION_TOLERANCE, Where(f, LFOOT));
    }
}

TEST(PoseAdjustments, FrameSelectionHoldsTheFootRelativeToThatNode) {
    Walker w;
    LongLegs(w);
    // The first constraint with an object is the root's.
    w.parameter(L"lfootFrame").PutValue(1);
    Animate(w.parameter(L"lfootClamp"), {{5.0, 1.0}, {15.0, 0.0}});
    w.op->updateClampKeys(LLEG, 0.0);
    ASSERT_EQ(w.op->clampKeys[LLEG].size(), 2u);
    EXPECT_EQ(w.op->clampKeys[LLEG][0].referenceFrame, 1);
    EXPECT_EQ(w.op->clampKeys[LLEG][0].node, COG);
    const CVector3 local =
        ORV::MATH::MapWorldPositionToObjectSpace(w.walk.Globals(5)[COG], Played(w, LFOOT, 5));
    for (int f : {5, 8, 12}) {
        w.adjust(f);
        const CVector3 expected = ORV::MATH::MapObjectPositionToWorldSpace(w.walk.Globals(f)[COG], local);
        ExpectNear(w.position(LFOOT), expected, POSITION_TOLERANCE, Where(f, LFOOT));
    }
}

TEST(PoseAdjustments, FrameBeyondTheValidConstraintsHoldsInWorldSpace) {
    Walker w;
    LongLegs(w);
    w.parameter(L"lfootFrame").PutValue(99);
    Animate(w.parameter(L"lfootClamp"), {{5.0, 1.0}, {15.0, 0.0}});
    w.op->updateClampKeys(LLEG, 0.0);
    ASSERT_EQ(w.op->clampKeys[LLEG].size(), 2u);
    EXPECT_EQ(w.op->clampKeys[LLEG][0].referenceFrame, 99);
    ExpectNear(w.op->clampKeys[LLEG][0].position, Played(w, LFOOT, 5), POSITION_TOLERANCE, "stored");
    for (int f : {5, 9, 14}) {
        w.adjust(f);
        ExpectNear(w.position(LFOOT), Played(w, LFOOT, 5), POSITION_TOLERANCE, Where(f, LFOOT));
    }
}

TEST(PoseAdjustments, FootBeyondItsReachStopsAtReachInClamp) {
    Walker w;
    RetargetOp::ClampItem hold;
    hold.clamp = true;
    hold.frame = 0;
    hold.position.Set(100.0, 0.0, 0.0);
    w.op->clampKeys[LLEG].push_back(hold);
    w.adjust(6);
    const CVector3 anchor = Played(w, LTHIGH, 6);
    CVector3 d = hold.position - anchor;
    d.NormalizeInPlace();
    ExpectNear(w.position(LFOOT), anchor + d * Walk::Length(LFOOT), POSITION_TOLERANCE, "foot");
}

TEST(PoseAdjustments, ClampKeyPastTheClipHoldsThePoseAtItsEnd) {
    Walker w;
    Animate(w.parameter(L"lfootClamp"), {{15.0, 0.0}, {40.0, 1.0}});
    w.op->updateClampKeys(LLEG, 0.0);
    ASSERT_EQ(w.op->clampKeys[LLEG].size(), 2u);
    EXPECT_EQ(w.op->clampKeys[LLEG][1].frame, 40);
    ExpectNear(w.op->clampKeys[LLEG][1].position, Played(w, LFOOT, w.walk.frames - 1), POSITION_TOLERANCE,
               "end");
}

// ---- Roll -------------------------------------------------------------------------------------

TEST(PoseAdjustments, RollTurnsTheLimbPlaneAboutItsAnchorGoalAxis) {
    Walker w;
    for (int f : {2, 10}) {
        w.parameter(L"lfootRoll").PutValue(0.0);
        w.adjust(f);
        w.op->modelMap->solveIK();
        w.op->applyRoll();
        const CVector3 a = w.position(LTHIGH), g = w.position(LFOOT);
        CVector3 before;
        before.Cross(w.position(LSHIN) - a, g - a);
        before.NormalizeInPlace();

        w.parameter(L"lfootRoll").PutValue(30.0);
        w.adjust(f);
        w.op->modelMap->solveIK();
        w.op->applyRoll();
        EXPECT_DOUBLE_EQ(w.op->modelMap->planes[LLEG].roll, 30.0);
        CVector3 after;
        after.Cross(w.position(LSHIN) - w.position(LTHIGH), w.position(LFOOT) - w.position(LTHIGH));
        after.NormalizeInPlace();
        CVector3 axis = g - a;
        axis.NormalizeInPlace();
        CVector3 expected;
        expected.MulByRotation(before, CRotation(axis, 30.0 * DEG));
        EXPECT_NEAR(before.GetAngle(after), 30.0 * DEG, 1e-6) << f;
        ExpectNear(after, expected, 1e-6, "normal");
    }
}

// ---- Mirror -----------------------------------------------------------------------------------

// The reflection through x = 0 of a rotation matrix: S m S with S = diag(-1, 1, 1).
ORV::MATH::CMatrix3 Reflect(const ORV::MATH::CMatrix3& m, int axis) {
    ORV::MATH::CMatrix3 out;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const double left = i == 0 ? -1.0 : 1.0;
            const double right = (axis == 0 ? j == 0 : j == 2) ? -1.0 : 1.0;
            out.Set(i, j, left * m.Get(i, j) * right);
        }
    return out;
}

TEST(PoseAdjustments, MirrorTransformReflectsThroughThePlaneXZero) {
    CTransformation t = Pose(CVector3(1.5, 2.0, -3.0), CRotation(0.3, -0.7, 1.1));
    const ORV::MATH::CMatrix3 m = t.GetRotationMatrix3();
    ZUK::mirrorTransform(t, 0, CTransformation());
    ExpectNear(t.GetTranslation(), CVector3(-1.5, 2.0, -3.0), 1e-12, "translation");
    EXPECT_TRUE(t.GetRotationMatrix3().Equals(Reflect(m, 0), 1e-12));

    CTransformation z = Pose(CVector3(1.5, 2.0, -3.0), CRotation(0.3, -0.7, 1.1));
    ZUK::mirrorTransform(z, 2, CTransformation());
    ExpectNear(z.GetTranslation(), CVector3(-1.5, 2.0, -3.0), 1e-12, "translation");
    EXPECT_TRUE(z.GetRotationMatrix3().Equals(Reflect(m, 2), 1e-12));

    CTransformation y = Pose(CVector3(1.5, 2.0, -3.0), CRotation(0.3, -0.7, 1.1));
    ZUK::mirrorTransform(y, 1, Pose(CVector3(4.0, 5.0, 6.0), CRotation()));
    ExpectNear(y.GetTranslation(), CVector3(1.5, 2.0, -3.0), 1e-12, "translation");
    EXPECT_TRUE(y.GetRotationMatrix3().Equals(m, 1e-12));
}

TEST(PoseAdjustments, MirrorTransformKeepsAPoseThatIsItsReference) {
    // A pose standing as its reference stands keeps that orientation on the other side.
    const CRotation reference(0.4, 0.2, -0.6);
    CTransformation t = Pose(CVector3(2.0, 1.0, 3.0), reference);
    ZUK::mirrorTransform(t, 0, Pose(CVector3(7.0, 7.0, 7.0), reference));
    ExpectNear(t.GetTranslation(), CVector3(-2.0, 1.0, 3.0), 1e-12, "translation");
    EXPECT_LT(RotationDistance(t.GetRotation(), reference), 1e-9);
    // Any other pose does not.
    CTransformation u = Pose(CVector3(), CRotation(0.1, 0.9, 0.3));
    ZUK::mirrorTransform(u, 0, Pose(CVector3(), reference));
    EXPECT_GT(RotationDistance(u.GetRotation(), CRotation(0.1, 0.9, 0.3)), 0.1);
}

TEST(PoseAdjustments, MirrorPoseSwapsLeftAndRightAndMirrorsTheMiddle) {
    Walker w;
    w.play(5);
    for (int n = 0; n < NODES; ++n) w.node(n).tpose = CTransformation();
    const std::vector<CTransformation> before = w.globals();
    w.op->mirrorPose();
    auto mirrored = [](CTransformation t) {
        ZUK::mirrorTransform(t, 0, CTransformation());
        return t;
    };
    ExpectSamePose(w.node(LFOOT).global, mirrored(before[RFOOT]), "left from right");
    ExpectSamePose(w.node(RFOOT).global, mirrored(before[LFOOT]), "right from left");
    ExpectSamePose(w.node(COG).global, mirrored(before[COG]), "middle");
}

}  // namespace
