// The host's observation hooks for tests: recorded transform reads, commands made to fail and
// the data a curve was built from.
#include <cfloat>
#include <memory>

#include "HostFixture.h"

namespace {

using hosttest::HostFixture;

// ---- Transform reads ------------------------------------------------------------------------

TEST_F(HostFixture, TransformReadRecorderNotesEveryReadInOrderWithItsTime) {
    ORV::Model rig = addModel(L"Rig");
    ORV::Null hips = addNull(rig, L"Hips");
    orvhost::TransformReadRecorder recorder;
    hips.GetKinematics().GetGlobal().GetTransform(DBL_MAX);
    rig.GetKinematics().GetLocal().GetTransform(12.5);
    hips.GetKinematics().GetGlobal().GetTransform();
    const std::vector<orvhost::TransformRead>& reads = recorder.Reads();
    ASSERT_EQ(reads.size(), 3u);
    EXPECT_EQ(reads[0].state, L"Rig.Hips.kine.global");
    EXPECT_EQ(reads[0].time, DBL_MAX);
    EXPECT_EQ(reads[1].state, L"Rig.kine.local");
    EXPECT_EQ(reads[1].time, 12.5);
    EXPECT_EQ(reads[2].state, L"Rig.Hips.kine.global");
    recorder.Clear();
    EXPECT_TRUE(recorder.Reads().empty());
}

TEST_F(HostFixture, TransformReadRecorderNotesNothingBeforeItExistsNorWritesNorOtherReads) {
    ORV::Model rig = addModel(L"Rig");
    ORV::Null hips = addNull(rig, L"Hips");
    auto recorder = std::make_unique<orvhost::TransformReadRecorder>();
    ORV::MATH::CTransformation pose;
    pose.SetTranslationFromValues(1.0, 2.0, 3.0);
    rig.GetKinematics().GetGlobal().PutTransform(pose);
    hips.GetKinematics().GetLocal().GetParameterValue(L"posx");
    EXPECT_TRUE(recorder->Reads().empty());
    recorder.reset();
    // With no recorder alive, reads go unnoted and nothing breaks.
    EXPECT_NEAR(hips.GetKinematics().GetGlobal().GetTransform().GetTranslation().GetX(), 1.0, 1e-12);
}

TEST_F(HostFixture, ALaterTransformReadRecorderTakesOverUntilItEnds) {
    ORV::Model rig = addModel(L"Rig");
    orvhost::TransformReadRecorder outer;
    {
        orvhost::TransformReadRecorder inner;
        rig.GetKinematics().GetGlobal().GetTransform();
        EXPECT_EQ(inner.Reads().size(), 1u);
        EXPECT_TRUE(outer.Reads().empty());
    }
    rig.GetKinematics().GetLocal().GetTransform();
    ASSERT_EQ(outer.Reads().size(), 1u);
    EXPECT_EQ(outer.Reads()[0].state, L"Rig.kine.local");
}

// ---- Failing commands -----------------------------------------------------------------------

TEST_F(HostFixture, CommandFailureMakesABuiltinCommandAnswerItsStatusWithoutRunning) {
    ORV::Model rig = addModel(L"Rig");
    ORV::Selection selection = app.GetSelection();
    selection.Add(rig.GetRef());
    ORV::CValue result;
    {
        orvhost::CommandFailure failure(L"DeselectAll", ORV::CStatus::Fail);
        EXPECT_EQ(run(L"DeselectAll", ORV::CValueArray(), result), ORV::CStatus::Fail);
        EXPECT_EQ(selection.GetCount(), 1);
        // Other commands run as always.
        EXPECT_EQ(run(L"FrameAll", ORV::CValueArray(), result), ORV::CStatus::OK);
    }
    EXPECT_EQ(run(L"DeselectAll", ORV::CValueArray(), result), ORV::CStatus::OK);
    EXPECT_EQ(selection.GetCount(), 0);
}

TEST_F(HostFixture, CommandFailureLeavesTheResultEmptyAndIsStillEchoed) {
    addModel(L"Rig");
    ORV::CValueArray on = Args({ORV::CString(L"preferences.scripting.cmdlog"), true});
    ORV::CValue ignored;
    ASSERT_EQ(run(L"SetValue", on, ignored), ORV::CStatus::OK);
    orvhost::ClearLog();
    orvhost::CommandFailure failure(L"EnumElements", ORV::CStatus::InvalidArgument);
    ORV::CValue result = 5;
    EXPECT_EQ(run(L"EnumElements", Args({ORV::CString(L"Rig")}), result), ORV::CStatus::InvalidArgument);
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_EQ(Logged(ORV::ovVerbose), (std::vector<std::wstring>{L"EnumElements(\"Rig\")"}));
}

TEST_F(HostFixture, CommandFailureMakesAPluginCommandFailWithoutCallingIt) {
    ORV::CValue result;
    {
        orvhost::CommandFailure failure(L"TestEcho", ORV::CStatus::Fail);
        EXPECT_EQ(run(L"TestEcho", Args({1, 2}), result), ORV::CStatus::Fail);
        EXPECT_TRUE(result.IsEmpty());
    }
    EXPECT_EQ(run(L"TestEcho", Args({1, 2}), result), ORV::CStatus::OK);
    EXPECT_FALSE(result.IsEmpty());
}

// ---- Curve data -----------------------------------------------------------------------------

TEST_F(HostFixture, GetNurbsCurveDataGivesWhatTheCurveWasBuiltFrom) {
    ORV::Model rig = addModel(L"Rig");
    ORV::MATH::CVector4Array points;
    points.Add(ORV::MATH::CVector4(1.0, 2.0, 3.0, 1.0));
    points.Add(ORV::MATH::CVector4(4.0, 5.0, 6.0, 0.5));
    points.Add(ORV::MATH::CVector4(7.0, 8.0, 9.0, 1.0));
    ORV::CDoubleArray knots;
    for (double k : {0.0, 0.0, 0.0, 1.0, 1.0, 1.0}) knots.Add(k);
    ORV::X3DObject curve;
    ASSERT_EQ(rig.AddNurbsCurve(points, knots, true, 2, 0, ORV::ovSINurbs, L"Arc", curve), ORV::CStatus::OK);

    orvhost::NurbsCurveData data;
    ASSERT_TRUE(orvhost::GetNurbsCurveData(curve.GetRef(), data));
    ASSERT_EQ(data.points.size(), 3u);
    EXPECT_EQ(data.points[1], ORV::MATH::CVector4(4.0, 5.0, 6.0, 0.5));
    EXPECT_EQ(data.knots, (std::vector<double>{0.0, 0.0, 0.0, 1.0, 1.0, 1.0}));
    EXPECT_TRUE(data.closed);
    EXPECT_EQ(data.degree, 2);
    EXPECT_EQ(data.parametrization, 0);
    EXPECT_EQ(data.format, static_cast<int>(ORV::ovSINurbs));
}

TEST_F(HostFixture, GetNurbsCurveDataOfAnObjectWithoutACurveIsFalseAndEmpty) {
    ORV::Model rig = addModel(L"Rig");
    ORV::Null hips = addNull(rig, L"Hips");
    orvhost::NurbsCurveData data;
    data.degree = 3;
    data.knots = {1.0};
    EXPECT_FALSE(orvhost::GetNurbsCurveData(hips.GetRef(), data));
    EXPECT_EQ(data.degree, 0);
    EXPECT_TRUE(data.knots.empty());
    EXPECT_FALSE(orvhost::GetNurbsCurveData(ORV::CRef(), data));
}

}  // namespace
