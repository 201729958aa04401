// Plotting to keys on a tagged biped whose driven objects carry curves, with no live operator:
// the scene itself shows the pose to keep, so what the plot writes is checked against the
// formulas that animated the rig and against the globals recorded before plotting.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "PlotTestSupport.h"
#include "plot/PlotRetarget.h"

namespace {

using namespace plottest;

const wchar_t* const kChannels[6] = {L"rotx", L"roty", L"rotz", L"posx", L"posy", L"posz"};

// The objects the biped's glue drives directly, with the channels their kind gives.
struct Driven {
    const wchar_t* name;
    bool rotation, position;
};
const Driven kDriven[] = {
    {L"Hips", true, true},        {L"Spine1", true, false},      {L"Neck", true, false},
    {L"Head", true, false},       {L"LeftLegGoal", true, true},  {L"RightLegGoal", true, true},
    {L"LeftArmGoal", true, true}, {L"RightArmGoal", true, true}, {L"LeftLegUp", false, true},
    {L"RightLegUp", false, true}, {L"LeftArmUp", false, true},   {L"RightArmUp", false, true},
    {L"Spine2", true, false},     {L"Spine3", true, false},      {L"Chest", true, false}};

bool Wanted(const Driven& d, int channel) { return channel < 3 ? d.rotation : d.position; }

void Plot(ORV::Model model, bool preserve, bool inflection, bool interval, int step, int start, int end) {
    ZUK::PlotRetarget plotter(model, preserve, inflection, interval, step, start, end);
    plotter.plot();
}

// ---- Raw keys -------------------------------------------------------------------------------

TEST_F(PlotFixture, IntervalStepOneGivesOneLinearKeyPerFrameOnAllChannelsWhateverTheOtherFlags) {
    const bool combos[4][2] = {{false, false}, {true, false}, {false, true}, {true, true}};
    for (const auto& combo : combos) {
        orvhost::NewScene();
        TaggedBiped rig;
        ASSERT_TRUE(rig.Build());
        BoundOperator bound;
        bound.SetTimings({{L"cog", {{0.0, 5.0, 10.0}, {}, {}, {}, {}, {}}}});
        bound.Bind(rig.model);
        Plot(rig.model, combo[0], combo[1], true, 1, 10, 30);
        for (const Driven& d : kDriven) {
            const ORV::X3DObject o = rig.Object(d.name);
            for (int c = 0; c < 6; ++c) {
                const std::vector<Key> keys = Keys(o, kChannels[c]);
                if (!Wanted(d, c)) {
                    EXPECT_TRUE(keys.empty())
                        << "unexpected curve on " << modelmaptest::Narrow(std::wstring(d.name));
                    continue;
                }
                ASSERT_EQ(keys.size(), 20u) << modelmaptest::Narrow(std::wstring(d.name)) << " " << c;
                for (size_t k = 0; k < keys.size(); ++k) {
                    EXPECT_EQ(keys[k].time, 10.0 + static_cast<double>(k));
                    EXPECT_EQ(keys[k].interpolation, ORV::ovLinearInterpolation);
                }
            }
        }
    }
}

TEST_F(PlotFixture, ARawPlotHoldsTheAnimatedValuesAndKeepsEveryGlobalOnEveryFrame) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    const std::vector<ORV::X3DObject> objects = RigObjects(rig.model);
    const auto before = RecordGlobals(objects, 0, 50);
    SetFrame(7.0);
    Plot(rig.model, false, false, false, 1, 0, 50);
    EXPECT_EQ(CurrentFrame(), 7.0);

    // The curves hold the formulas: the biped's objects have no neutral offset, so local values
    // are the values that animated them.
    for (const Channel& ch : BipedMotion()) {
        const std::vector<Key> keys = Keys(rig.Object(ch.object.c_str()), ch.channel.c_str());
        ASSERT_EQ(keys.size(), 50u) << modelmaptest::Narrow(ch.object) << "."
                                    << modelmaptest::Narrow(ch.channel);
        for (const Key& k : keys) EXPECT_NEAR(k.value, ch.value(k.time), 1e-9) << k.time;
    }
    const auto after = RecordGlobals(objects, 0, 50);
    const auto diff = LargestDifference(before, after);
    EXPECT_LT(diff.first, 1e-9);
    EXPECT_LT(diff.second, 1e-9);
}

TEST_F(PlotFixture, ARawPlotHoldsPosesRelativeToTheNeutralPoseInTheObjectsRotationOrder) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    // The neck and an up-vector get neutral poses, turned and moved, so that curves must hold
    // the pose relative to the neutral pose under the parent, in that order.
    ORV::KinematicState neck = rig.Object(L"Neck").GetKinematics().GetLocal();
    neck.PutParameterValue(L"nroty", 30.0);
    neck.PutParameterValue(L"nrotx", -15.0);
    neck.PutParameterValue(L"nposy", 0.5);
    // The hips turn in another rotation order: its curves must be read back in that order.
    rig.Object(L"Hips").GetKinematics().GetLocal().PutParameterValue(L"rotorder", 2);
    ORV::KinematicState up = rig.Object(L"LeftLegUp").GetKinematics().GetLocal();
    up.PutParameterValue(L"nrotz", 40.0);
    up.PutParameterValue(L"nposx", 2.0);
    const std::vector<ORV::X3DObject> objects = RigObjects(rig.model);
    const auto before = RecordGlobals(objects, 0, 30);
    Plot(rig.model, false, false, true, 1, 0, 30);
    const auto diff = LargestDifference(before, RecordGlobals(objects, 0, 30));
    EXPECT_LT(diff.first, 1e-9);
    EXPECT_LT(diff.second, 1e-9);
    // The neck's own turn stays in its curve: 20 sin(2 pi f / 45) about Y, on top of the neutral.
    const std::vector<Key> roty = Keys(rig.Object(L"Neck"), L"roty");
    ASSERT_EQ(roty.size(), 30u);
    EXPECT_NEAR(roty[10].value, 20.0 * std::sin(2.0 * kPi * 10.0 / 45.0), 1e-9);
}

// ---- Reduced keys ---------------------------------------------------------------------------

TEST_F(PlotFixture, ARangeOfOneFrameGivesASingleKeyAtTheStart) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    Plot(rig.model, false, true, false, 1, 7, 8);
    for (const Channel& ch : BipedMotion()) {
        const std::vector<Key> keys = Keys(rig.Object(ch.object.c_str()), ch.channel.c_str());
        ASSERT_EQ(keys.size(), 1u) << modelmaptest::Narrow(ch.object) << "."
                                   << modelmaptest::Narrow(ch.channel);
        EXPECT_EQ(keys[0].time, 7.0);
        EXPECT_NEAR(keys[0].value, ch.value(7.0), 1e-9);
    }
}

TEST_F(PlotFixture, AConstantChannelGetsTwoKeysAtTheEndsOfTheRange) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    Plot(rig.model, false, true, false, 1, 5, 45);
    // The head does not move against its parent: each channel is constant.
    const ORV::X3DObject head = rig.Object(L"Head");
    for (int c = 0; c < 3; ++c) {
        const std::vector<Key> keys = Keys(head, kChannels[c]);
        ASSERT_EQ(keys.size(), 2u) << c;
        EXPECT_EQ(keys[0].time, 5.0);
        EXPECT_EQ(keys[1].time, 44.0);
        EXPECT_NEAR(keys[0].value, 0.0, 1e-9);
        EXPECT_NEAR(keys[1].value, 0.0, 1e-9);
    }
    // Hips posz moves in a straight line: no shape feature, two keys too, on the line.
    const std::vector<Key> line = Keys(rig.Object(L"Hips"), L"posz");
    ASSERT_EQ(line.size(), 2u);
    EXPECT_NEAR(line[0].value, 0.5, 1e-9);
    EXPECT_NEAR(line[1].value, 4.4, 1e-9);
}

TEST_F(PlotFixture, InflectionKeysFallOnTheExtremesAndTheCurveStaysNearTheMotion) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build(0, 80));
    Plot(rig.model, false, true, false, 1, 0, 80);
    // Hips posx = 0.5 sin(2 pi f / 40): maxima at 10 and 50, minima at 30 and 70.
    const ORV::X3DObject hips = rig.Object(L"Hips");
    const std::vector<double> times = KeyTimes(hips, L"posx");
    for (double t : {0.0, 10.0, 30.0, 50.0, 70.0, 79.0})
        EXPECT_NE(std::find(times.begin(), times.end(), t), times.end()) << t;
    EXPECT_LT(times.size(), 20u);
    // Between its keys the fitted curve keeps within a few percent of the motion's range.
    ORV::FCurve curve(hips.GetKinematics().GetLocal().GetParameter(L"posx").GetSource());
    ASSERT_TRUE(curve.IsValid());
    for (int f = 0; f < 80; ++f)
        EXPECT_NEAR(static_cast<double>(curve.Eval(ORV::CTime(f))), 0.5 * std::sin(2.0 * kPi * f / 40.0),
                    0.05)
            << f;
}

TEST_F(PlotFixture, IntervalKeysFallEveryStepFromTheStartAndAtTheLastFrame) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    Plot(rig.model, false, false, true, 4, 10, 31);
    // Hips: outside every limb, so only the interval and the range's ends count.
    EXPECT_EQ(KeyTimes(rig.Object(L"Hips"), L"roty"), (std::vector<double>{10, 14, 18, 22, 26, 30}));
    EXPECT_EQ(KeyTimes(rig.Object(L"LeftLegUp"), L"posx"), (std::vector<double>{10, 14, 18, 22, 26, 30}));
}

TEST_F(PlotFixture, AGoalThatNeverStandsStillGetsOnlyTheKeysItsModeAsks) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    Plot(rig.model, false, false, true, 10, 0, 60);
    // The left foot's height sways on every frame, so it is never planted, even where it
    // stops stepping: interval keys and the range's ends only.
    EXPECT_EQ(KeyTimes(rig.Object(L"LeftLegGoal"), L"posz"),
              (std::vector<double>{0, 10, 20, 30, 40, 50, 59}));
}

TEST_F(PlotFixture, AFootPlantedOverAStretchGetsAKeyOnEachFrameOfIt) {
    TaggedBiped rig;
    std::vector<Channel> motion = BipedMotion();
    // Without the sway the left foot stands still over 15..30 and from 45 on.
    motion.erase(
        std::remove_if(motion.begin(), motion.end(),
                       [](const Channel& c) { return c.object == L"LeftLegGoal" && c.channel == L"posy"; }),
        motion.end());
    ASSERT_TRUE(rig.Build(0, 60, motion));
    Plot(rig.model, false, false, true, 10, 0, 60);
    std::vector<double> expected;
    for (int f = 0; f < 60; ++f)
        if (f % 10 == 0 || (f >= 15 && f <= 30) || f >= 45) expected.push_back(f);
    const ORV::X3DObject goal = rig.Object(L"LeftLegGoal");
    EXPECT_EQ(KeyTimes(goal, L"posx"), expected);
    EXPECT_EQ(KeyTimes(goal, L"posz"), expected);
    // Rotation channels do not take the planted keys.
    EXPECT_EQ(KeyTimes(goal, L"rotx"), (std::vector<double>{0, 10, 20, 30, 40, 50, 59}));
    // And the foot stays where it stood.
    ORV::FCurve posz(goal.GetKinematics().GetLocal().GetParameter(L"posz").GetSource());
    for (int f = 16; f < 29; ++f)
        EXPECT_NEAR(static_cast<double>(posz.Eval(ORV::CTime(f + 0.5))), 2.0, 1e-9) << f;
}

TEST_F(PlotFixture, ASpineDriverGetsAKeyPerFrameInAnyMode) {
    const int modes[3][4] = {{0, 1, 0, 1}, {1, 0, 0, 1}, {0, 0, 1, 5}};
    for (const auto& m : modes) {
        orvhost::NewScene();
        TaggedBiped rig;
        ASSERT_TRUE(rig.Build());
        Plot(rig.model, m[0] != 0, m[1] != 0, m[2] != 0, m[3], 0, 40);
        for (const wchar_t* channel : {L"rotx", L"roty", L"rotz"}) {
            const std::vector<Key> keys = Keys(rig.Object(L"Spine1"), channel);
            ASSERT_EQ(keys.size(), 40u) << modelmaptest::Narrow(std::wstring(channel));
            EXPECT_EQ(keys[0].interpolation, ORV::ovLinearInterpolation);
        }
        // The neck, driven the same way but no spine's anchor, is reduced.
        EXPECT_LT(Keys(rig.Object(L"Neck"), L"roty").size(), 40u);
    }
}

TEST_F(PlotFixture, WithAnOperatorsMapTheLimbsAreSolvedFromTheirGoalsAndKeepTheirPlantedKeys) {
    TaggedBiped rig;
    std::vector<Channel> motion = BipedMotion();
    motion.erase(
        std::remove_if(motion.begin(), motion.end(),
                       [](const Channel& c) { return c.object == L"LeftLegGoal" && c.channel == L"posy"; }),
        motion.end());
    ASSERT_TRUE(rig.Build(0, 60, motion));
    // The operator's map, as the live operator keeps it: the model's own, rebuilt from the
    // stored setup. The structure outlives the operator that owns the map.
    std::unique_ptr<ZUK::ModelStructure> structure(ZUK::ModelStructure::CreateFromCustomProperty(rig.model));
    ASSERT_TRUE(structure);
    BoundOperator bound;
    bound.op.modelMap = new ZUK::ModelMap(rig.model, structure.get());
    bound.op.modelMap->LoadFromCustomProperty();
    bound.Bind(rig.model);
    const std::vector<ORV::X3DObject> objects = RigObjects(rig.model);
    const auto before = RecordGlobals(objects, 0, 60);
    Plot(rig.model, false, false, true, 10, 0, 60);
    std::vector<double> expected;
    for (int f = 0; f < 60; ++f)
        if (f % 10 == 0 || (f >= 15 && f <= 30) || f >= 45) expected.push_back(f);
    const ORV::X3DObject goal = rig.Object(L"LeftLegGoal");
    EXPECT_EQ(KeyTimes(goal, L"posz"), expected);
    // On its keys the goal is where it was; on the frames where every curve of the leg (hips,
    // up-vector, goal) has a key, so is every object of the leg.
    for (const Key& k : Keys(goal, L"posz")) EXPECT_NEAR(k.value, motion[8].value(k.time), 1e-9) << k.time;
    std::vector<ORV::X3DObject> leg{goal, rig.Object(L"LeftLegBone"), rig.Object(L"LeftLegLower")};
    for (int f : {10, 20, 30, 50}) {
        const auto was = RecordGlobals(leg, f, f + 1);
        std::vector<std::vector<CTransformation>> then{{}};
        for (const ORV::X3DObject& o : leg)
            for (size_t i = 0; i < objects.size(); ++i)
                if (objects[i] == o) then[0].push_back(before[static_cast<size_t>(f)][i]);
        const auto diff = LargestDifference(then, was);
        EXPECT_LT(diff.first, 1e-9) << f;
        EXPECT_LT(diff.second, 1e-9) << f;
    }
}

// ---- Source key timing ----------------------------------------------------------------------

TEST_F(PlotFixture, SourceKeysAreMovedToTheInsertionFrameOnTheChannelsThatHaveThem) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    BoundOperator bound;
    bound.op.insertionFrame = 12;
    // Source key times relative to the source's start: hips roty every 5 frames.
    bound.SetTimings({{L"cog", {{}, {}, {}, {}, {0, 5, 10, 15, 20, 25}, {}}}});
    bound.Bind(rig.model);
    Plot(rig.model, true, false, false, 1, 10, 40);
    // t = insertion + k - start, keys at start + t = insertion + k, with the range's ends.
    EXPECT_EQ(KeyTimes(rig.Object(L"Hips"), L"roty"), (std::vector<double>{10, 12, 17, 22, 27, 32, 37, 39}));
}

TEST_F(PlotFixture, ASourceKeyBeforeTheRangeIsDroppedAndOnePastTheEndStopsTheFit) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    BoundOperator bound;
    bound.op.insertionFrame = 0;
    bound.SetTimings({{L"cog", {{-3.0, 2.0, 4.5, 6.0, 25.0, 26.0}, {}, {}, {}, {}, {}}}});
    bound.Bind(rig.model);
    Plot(rig.model, true, false, false, 1, 0, 20);
    // -3 has no place; 25 lies past frame 19, where the fit ends; the subframe key survives.
    const std::vector<Key> keys = Keys(rig.Object(L"Hips"), L"posx");
    std::vector<double> times;
    for (const Key& k : keys) times.push_back(k.time);
    EXPECT_EQ(times, (std::vector<double>{0, 2, 4.5, 6, 19}));
    for (const Key& k : keys)
        EXPECT_NEAR(k.value, 0.5 * std::sin(2.0 * kPi * k.time / 40.0), 0.002) << k.time;
}

TEST_F(PlotFixture, PlottingWithoutALiveOperatorStillFitsAndPreserveFitsByShape) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build(0, 80));
    ASSERT_EQ(ZUK::RetargetOp::GetRetargetOpPointer(rig.model), nullptr);
    Plot(rig.model, true, false, false, 1, 0, 80);
    // The same keys as a plot by shape.
    const std::vector<double> preserved = KeyTimes(rig.Object(L"Hips"), L"posx");
    for (double t : {0.0, 10.0, 30.0, 50.0, 70.0, 79.0})
        EXPECT_NE(std::find(preserved.begin(), preserved.end(), t), preserved.end()) << t;
    EXPECT_LT(preserved.size(), 20u);

    orvhost::NewScene();
    TaggedBiped again;
    ASSERT_TRUE(again.Build(0, 80));
    Plot(again.model, false, true, false, 1, 0, 80);
    EXPECT_EQ(KeyTimes(again.Object(L"Hips"), L"posx"), preserved);
}

TEST_F(PlotFixture, APreservedChannelWithoutSourceKeysIsFittedByShape) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build(0, 80));
    BoundOperator bound;
    // Only posy of the hips has source keys.
    bound.SetTimings({{L"cog", {{}, {0.0, 40.0}, {}, {}, {}, {}}}});
    bound.Bind(rig.model);
    Plot(rig.model, true, false, false, 1, 0, 80);
    EXPECT_EQ(KeyTimes(rig.Object(L"Hips"), L"posy"), (std::vector<double>{0, 40, 79}));
    const std::vector<double> posx = KeyTimes(rig.Object(L"Hips"), L"posx");
    for (double t : {0.0, 10.0, 30.0, 50.0, 70.0, 79.0})
        EXPECT_NE(std::find(posx.begin(), posx.end(), t), posx.end()) << t;
}

// ---- Progress and bad input -----------------------------------------------------------------

TEST_F(PlotFixture, TheProgressBarShowsBothCaptions) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    orvhost::SetDrawProgress(true);
    ::testing::internal::CaptureStderr();
    Plot(rig.model, false, true, false, 1, 0, 20);
    const std::string out = ::testing::internal::GetCapturedStderr();
    orvhost::SetDrawProgress(false);
    const size_t local = out.find("Calculating Local Transforms ...");
    const size_t fitting = out.find("Fitting Curves ...");
    ASSERT_NE(local, std::string::npos) << out;
    ASSERT_NE(fitting, std::string::npos) << out;
    EXPECT_LT(local, fitting);
    EXPECT_FALSE(ORV::Application().GetUIToolkit().GetProgressBar().GetVisible());
}

TEST_F(PlotFixture, AModelWithoutARetargetSetupIsReportedAndLeftAsItWas) {
    rigs::IKBiped biped = rigs::BuildIKBiped(ORV::Application().GetActiveSceneRoot(), L"Bare");
    Animate(
        biped.hips, L"posx", [](double f) { return f; }, 0, 10);
    orvhost::ClearLog();
    Plot(biped.model, false, false, false, 1, 0, 10);
    EXPECT_EQ(
        orvhost::LogTexts(4),
        (std::vector<std::wstring>{L"PlotRetargetMotion: Bare has no retarget setup to plot; tag the rig "
                                   L"and retarget it first."}));
    EXPECT_EQ(Keys(biped.hips, L"posx").size(), 11u);
    EXPECT_TRUE(Keys(biped.hips, L"posy").empty());
}

TEST_F(PlotFixture, AnEmptyRangeOrAStepBelowOneIsReportedAndNothingChanges) {
    TaggedBiped rig;
    ASSERT_TRUE(rig.Build());
    orvhost::ClearLog();
    Plot(rig.model, false, false, false, 1, 20, 20);
    Plot(rig.model, false, false, true, 0, 0, 20);
    Plot(ORV::Model(), false, false, false, 1, 0, 20);
    EXPECT_EQ(orvhost::LogTexts(4), (std::vector<std::wstring>{
                                        L"PlotRetargetMotion: the end frame must come after the start frame.",
                                        L"PlotRetargetMotion: interval keys need a step of 1 or more.",
                                        L"PlotRetargetMotion: there is no model to plot."}));
    // The animation is still the one the rig had.
    EXPECT_EQ(Keys(rig.Object(L"Hips"), L"posx").size(), 61u);
    EXPECT_TRUE(Keys(rig.Object(L"Head"), L"rotx").empty());
}

}  // namespace
