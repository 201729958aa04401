// The adjustments on a live retarget of the CMU slow walk (07_05) onto a rig with IK legs and
// arms, read back from the rig's objects as the host evaluates them. Values are set as a user
// or a script sets them: "SetValue" for what is read at every evaluation, and the panel's
// parameter event for what is cached (stride, clamps).
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "live/LiveRigSupport.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"

namespace {

using liverig::GlobalAt;
using liverig::LiveRig;
using ORV::CValue;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

constexpr long kFrames = 80;
// Scene frame of motion frame 0.
constexpr int kInsertion = 1;
// Positions come out of the host's IK and constraint solving in doubles: 1e-6 of a unit.
constexpr double kTolerance = 1e-6;

std::string Text(const CVector3& v) {
    return "(" + std::to_string(v.x) + ", " + std::to_string(v.y) + ", " + std::to_string(v.z) + ")";
}

void ExpectNear(const CVector3& actual, const CVector3& expected, double tolerance, const std::string& what) {
    EXPECT_LT((actual - expected).GetLength(), tolerance)
        << what << ": " << Text(actual) << " instead of " << Text(expected);
}

class LiveAdjust : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(liverig::LoadTrovoOnce(), L"");
        orvhost::NewScene();
        orvhost::ClearLog();
        std::string error;
        ASSERT_TRUE(live.Build(Walk(), L"Walker", bvhrig::RigOptions(), error)) << error;
        live.Record(kFrames);
    }
    static std::string Walk() { return std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/07_05.bvh"; }

    void Install() {
        live.Install(kInsertion);
        live.WarmUp(kInsertion);
        ASSERT_NE(live.Live(), nullptr);
    }

    // "SetValue" on a parameter of the adjustment property.
    void Set(const std::wstring& name, const CValue& value) {
        ORV::CValueArray args;
        args.Add(CValue(ORV::CString((L"Walker.RetargetAdjustPPG." + name).c_str())));
        args.Add(value);
        CValue ignored;
        ASSERT_EQ(ORV::Application().ExecuteCommand(L"SetValue", args, ignored), ORV::CStatus::OK)
            << std::string(name.begin(), name.end());
    }
    // A value set, then the event the adjustment panel passes on for a changed parameter.
    void Change(const std::wstring& name, const CValue& value) {
        Set(name, value);
        ORV::CustomProperty adjust = live.Adjust();
        ORV::Parameter parameter = adjust.GetParameter(name.c_str());
        ASSERT_TRUE(parameter.IsValid());
        live.Live()->AjustmentParameterChanged(parameter, adjust, kInsertion);
    }

    CVector3 At(const wchar_t* node, double time) {
        return GlobalAt(live.ObjectOfNode(node), time).GetTranslation();
    }
    std::map<int, CVector3> Track(const wchar_t* node, const std::vector<int>& times) {
        std::map<int, CVector3> track;
        for (int t : times) track[t] = At(node, t);
        return track;
    }

    LiveRig live;
    modelmaptest::FactoryData factory;
};

std::vector<int> EveryFrame(int step) {
    std::vector<int> times;
    for (int f = 0; f < kFrames; f += step) times.push_back(kInsertion + f);
    times.push_back(kInsertion + kFrames - 1);
    return times;
}

// The angle at the knee between the thigh and the foot.
double KneeAngle(const CVector3& hip, const CVector3& knee, const CVector3& foot) {
    return (hip - knee).GetAngle(foot - knee);
}

TEST_F(LiveAdjust, HipOffsetWithFeetOffsetOffLowersTheRootKeepsTheFeetAndBendsTheKnees) {
    Install();
    const std::vector<int> times = EveryFrame(7);
    const auto cog = Track(L"cog", times), lfoot = Track(L"lfoot", times), rfoot = Track(L"rfoot", times);
    const auto lthigh = Track(L"lthigh", times), lshin = Track(L"lshin", times);
    Set(L"offsetFeet", CValue(false));
    Set(L"hipY", CValue(-5.0));
    for (int t : times) {
        const std::string at = "frame " + std::to_string(t);
        ExpectNear(At(L"cog", t), cog.at(t) + CVector3(0.0, -5.0, 0.0), kTolerance, "cog at " + at);
        ExpectNear(At(L"lfoot", t), lfoot.at(t), kTolerance, "left foot at " + at);
        ExpectNear(At(L"rfoot", t), rfoot.at(t), kTolerance, "right foot at " + at);
        EXPECT_LT(KneeAngle(At(L"lthigh", t), At(L"lshin", t), At(L"lfoot", t)),
                  KneeAngle(lthigh.at(t), lshin.at(t), lfoot.at(t)) - 0.05)
            << at;
    }
}

TEST_F(LiveAdjust, HipOffsetWithFeetOffsetOnMovesTheFeetToo) {
    Install();
    const std::vector<int> times = EveryFrame(13);
    const auto cog = Track(L"cog", times), lfoot = Track(L"lfoot", times), rfoot = Track(L"rfoot", times);
    Set(L"hipY", CValue(-5.0));
    for (int t : times) {
        const std::string at = "frame " + std::to_string(t);
        ExpectNear(At(L"cog", t), cog.at(t) + CVector3(0.0, -5.0, 0.0), kTolerance, "cog at " + at);
        ExpectNear(At(L"lfoot", t), lfoot.at(t) + CVector3(0.0, -5.0, 0.0), kTolerance, "left foot at " + at);
        ExpectNear(At(L"rfoot", t), rfoot.at(t) + CVector3(0.0, -5.0, 0.0), kTolerance,
                   "right foot at " + at);
    }
}

TEST_F(LiveAdjust, ClampHoldsTheLeftFootOverItsKeysAndBlendsBack) {
    Install();
    std::vector<int> times;
    for (int t = 35; t <= 72; ++t) times.push_back(t);
    const auto free = Track(L"lfoot", times);
    // Keys at 40 and 60 hold motion frames 40 to 60, which play at scene frames 41 to 61.
    ORV::Parameter clamp = live.Adjust().GetParameter(L"lfootClamp");
    ORV::FCurve curve;
    clamp.AddFCurve(ORV::ovStandardFCurve, curve);
    curve.AddKey(ORV::CTime(40.0), CValue(1.0), ORV::ovConstantInterpolation);
    curve.AddKey(ORV::CTime(60.0), CValue(0.0), ORV::ovConstantInterpolation);
    Change(L"lfootBlendBack", CValue(4));
    const CVector3 held = At(L"lfoot", 41);
    ExpectNear(held, free.at(41), kTolerance, "the foot where the motion put it at the hold's start");
    for (int t = 41; t <= 61; ++t)
        ExpectNear(At(L"lfoot", t), held, kTolerance, "held at " + std::to_string(t));
    for (int t = 62; t <= 64; ++t) {
        const double blend = (t - kInsertion - 60) / 4.0;
        ExpectNear(At(L"lfoot", t), held * (1.0 - blend) + free.at(t) * blend, kTolerance,
                   "blend at " + std::to_string(t));
    }
    for (int t : {36, 40, 65, 72})
        ExpectNear(At(L"lfoot", t), free.at(t), kTolerance, "free at " + std::to_string(t));
    // The walk plants this foot over these frames, but lets it slide and roll: the hold did
    // something.
    EXPECT_GT((free.at(61) - free.at(41)).GetLength(), 0.05);
}

TEST_F(LiveAdjust, StrideLengthensTheRootsTravelAlongItsDirectionOnly) {
    Install();
    const int first = kInsertion, last = kInsertion + kFrames - 1;
    const CVector3 travel = At(L"cog", last) - At(L"cog", first);
    CVector3 dir = travel;
    if (dir.x > dir.y || dir.z > dir.y) dir.y = 0.0;
    ASSERT_EQ(dir.NormalizeInPlace(), ORV::CStatus::OK);
    Change(L"Stride", CValue(1.5));
    const CVector3 moved = At(L"cog", last) - At(L"cog", first);
    EXPECT_NEAR(moved.Dot(dir), 1.5 * travel.Dot(dir), kTolerance);
    ExpectNear(moved - dir * moved.Dot(dir), travel - dir * travel.Dot(dir), kTolerance, "sideways");
    EXPECT_GT(travel.Dot(dir), 10.0);
}

TEST_F(LiveAdjust, RollTurnsTheLimbPlaneAboutTheAnchorGoalAxis) {
    Install();
    for (int t : {5, 30, 66}) {
        Set(L"lfootRoll", CValue(0.0));
        const CVector3 a = At(L"lthigh", t), m = At(L"lshin", t), g = At(L"lfoot", t);
        CVector3 before;
        before.Cross(m - a, g - a);
        before.NormalizeInPlace();
        Set(L"lfootRoll", CValue(30.0));
        const CVector3 a2 = At(L"lthigh", t), m2 = At(L"lshin", t), g2 = At(L"lfoot", t);
        ExpectNear(a2, a, kTolerance, "anchor");
        ExpectNear(g2, g, kTolerance, "goal");
        CVector3 after;
        after.Cross(m2 - a2, g2 - a2);
        after.NormalizeInPlace();
        EXPECT_NEAR(before.GetAngle(after), 30.0 * 0.017453292519943295, 1e-6) << t;
        CVector3 axis = g - a;
        axis.NormalizeInPlace();
        CVector3 turn;
        turn.Cross(before, after);
        // The turn is about the anchor-goal axis.
        EXPECT_NEAR(std::fabs(turn.Dot(axis)), turn.GetLength(), 1e-9) << t;
    }
}

TEST_F(LiveAdjust, ReduceOneGivesAJointItsTagTimeOrientationRelativeToItsParent) {
    // A rotation offset on the head, before the operator loads, as the panel's "Edit" adds one.
    const ORV::X3DObject head = live.ObjectOfNode(L"head");
    const ORV::X3DObject neck = live.ObjectOfNode(L"neck");
    ASSERT_TRUE(head.IsValid());
    ASSERT_TRUE(neck.IsValid());
    const CTransformation tagged = ORV::MATH::MapWorldPoseToObjectSpace(
        neck.GetKinematics().GetGlobal().GetTransform(ZUK::ModelMap::NOW),
        head.GetKinematics().GetGlobal().GetTransform(ZUK::ModelMap::NOW));
    ORV::CustomProperty offset;
    ORV::X3DObject(head).AddCustomProperty(L"RotationOffsetPPG", false, offset);
    ORV::Parameter p;
    for (const wchar_t* name : {L"X", L"Y", L"Z"})
        offset.AddParameter(name, ORV::ovDouble, 5, L"", L"", CValue(0.0), p);
    offset.AddParameter(L"Reduce", ORV::ovDouble, 5, L"", L"", CValue(1.0), p);
    Install();
    for (int t : {10, 50}) {
        const CTransformation local =
            ORV::MATH::MapWorldPoseToObjectSpace(GlobalAt(neck, t), GlobalAt(head, t));
        EXPECT_LT(liverig::AngleBetween(local.GetRotationMatrix3(), tagged.GetRotationMatrix3()), 1e-6) << t;
    }
    // Without it the head turns on its own.
    offset.PutParameterValue(L"Reduce", CValue(0.0));
    const CTransformation local =
        ORV::MATH::MapWorldPoseToObjectSpace(GlobalAt(neck, 50), GlobalAt(head, 50));
    EXPECT_GT(liverig::AngleBetween(local.GetRotationMatrix3(), tagged.GetRotationMatrix3()), 0.01);
}

TEST_F(LiveAdjust, SpeedTwoPlaysTheClipInHalfTheSceneFramesAndMovesAClampKey) {
    Install();
    ZUK::RetargetOp* op = live.Live();
    EXPECT_EQ(op->getEndFrame(), kInsertion + kFrames - 1);
    const CVector3 end = At(L"lhand", kInsertion + kFrames - 1);
    ORV::Parameter clamp = live.Adjust().GetParameter(L"lfootClamp");
    ORV::FCurve curve;
    clamp.AddFCurve(ORV::ovStandardFCurve, curve);
    curve.AddKey(ORV::CTime(50.0), CValue(1.0), ORV::ovConstantInterpolation);
    curve.AddKey(ORV::CTime(70.0), CValue(0.0), ORV::ovConstantInterpolation);
    // The first event caches the new speed; the keys move on the next one.
    Change(L"Speed", CValue(2.0));
    Change(L"Speed", CValue(2.0));
    EXPECT_DOUBLE_EQ(op->speed, 2.0);
    ASSERT_EQ(curve.GetNumKeys(), 2);
    EXPECT_DOUBLE_EQ(curve.GetKeyAtIndex(0).GetTime().GetTime(), 25.0);
    EXPECT_DOUBLE_EQ(curve.GetKeyAtIndex(1).GetTime().GetTime(), 35.0);
    const int half = kInsertion + (kFrames - 1 + 1) / 2;
    EXPECT_EQ(op->getEndFrame(), half);
    ExpectNear(At(L"lhand", half), end, kTolerance, "the last pose at half the frames");
}

}  // namespace
