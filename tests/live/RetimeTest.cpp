// Retiming: keys of the adjustment curves move with the motion when its speed changes, the
// motion's last frame, and the frame range of a retargeted model.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "live/AdjustTestSupport.h"

namespace {

using namespace adjusttest;
using ZUK::RetargetOp;

std::vector<double> KeyTimes(ORV::Parameter parameter) {
    std::vector<double> times;
    ORV::FCurve curve(parameter.GetSource());
    for (long k = 0; k < curve.GetNumKeys(); ++k) times.push_back(curve.GetKeyAtIndex(k).GetTime().GetTime());
    return times;
}

void SpeedChange(RetargetOp& op, double from, double to) {
    op.previousSpeed = from;
    op.speed = to;
}

TEST(Retiming, SpeedOneToTwoMovesKeysTowardsZeroWalkingFirstToLast) {
    Walker w;
    // Keys 10 and 15: walked from the last, 15 would have to land on 7.5, before 10, and the
    // curve refuses a key that passes its neighbour.
    Animate(w.parameter(L"lfootRoll"), {{10.0, 1.0}, {15.0, 2.0}});
    SpeedChange(*w.op, 1.0, 2.0);
    EXPECT_TRUE(w.op->RetimeFCurveKeys(w.parameter(L"lfootRoll")));
    EXPECT_EQ(KeyTimes(w.parameter(L"lfootRoll")), (std::vector<double>{5.0, 7.5}));
}

TEST(Retiming, SpeedTwoToOneMovesKeysAwayWalkingLastToFirst) {
    Walker w;
    Animate(w.parameter(L"lfootRoll"), {{10.0, 1.0}, {15.0, 2.0}});
    SpeedChange(*w.op, 2.0, 1.0);
    EXPECT_TRUE(w.op->RetimeFCurveKeys(w.parameter(L"lfootRoll")));
    EXPECT_EQ(KeyTimes(w.parameter(L"lfootRoll")), (std::vector<double>{20.0, 30.0}));
}

TEST(Retiming, KeyTimesAreScaledWithoutTakingTheInsertionFrameOff) {
    Walker w(4);
    Animate(w.parameter(L"hipX"), {{12.0, 1.0}});
    SpeedChange(*w.op, 1.0, 4.0);
    EXPECT_TRUE(w.op->RetimeFCurveKeys(w.parameter(L"hipX")));
    EXPECT_EQ(KeyTimes(w.parameter(L"hipX")), (std::vector<double>{3.0}));
}

TEST(Retiming, ParameterWithoutCurveKeepsItsValueAndAnswersFalse) {
    Walker w;
    w.parameter(L"hipX").PutValue(2.5);
    SpeedChange(*w.op, 1.0, 2.0);
    EXPECT_FALSE(w.op->RetimeFCurveKeys(w.parameter(L"hipX")));
    EXPECT_DOUBLE_EQ(static_cast<double>(w.parameter(L"hipX").GetValue()), 2.5);
    EXPECT_FALSE(w.op->RetimeFCurveKeys(ORV::Parameter()));
}

TEST(Retiming, EndFrameAtSpeedOneIsTheInsertionFramePlusTheLastMotionFrame) {
    Walker w(7, 1.0, 100);
    EXPECT_EQ(w.op->getEndFrame(), 7 + 99);
}

TEST(Retiming, EndFrameAtSpeedTwoIsTheInsertionFramePlusFifty) {
    Walker w(7, 1.0, 100);
    w.parameter(L"Speed").PutValue(2.0);
    EXPECT_EQ(w.op->getEndFrame(), 7 + 50);
    w.parameter(L"Speed").PutValue(0.5);
    EXPECT_EQ(w.op->getEndFrame(), 7 + 198);
}

TEST(Retiming, EndFrameOfASingleFrameMotionIsTheInsertionFrame) {
    Walker w(5, 1.0, 1);
    EXPECT_EQ(w.op->getEndFrame(), 5);
}

TEST(Retiming, AllCurvesKeepTheirOrderOfEffectsOnThreeLimbs) {
    Walker w;
    const std::vector<std::wstring> moved = {L"Stride",    L"hipX",         L"hipY",       L"hipZ",
                                             L"lfootRoll", L"lfootStretch", L"lfootClamp", L"lfootBlendBack",
                                             L"lfootX",    L"rfootY",       L"lhandZ"};
    const std::vector<std::wstring> kept = {L"rfootRoll", L"rfootStretch", L"rfootClamp", L"lhandRoll",
                                            L"rfootX",    L"lhandX",       L"lfootY",     L"lfootZ"};
    for (const std::wstring& name : moved) Animate(w.parameter(name), {{10.0, 1.0}, {16.0, 0.0}});
    for (const std::wstring& name : kept) Animate(w.parameter(name), {{10.0, 1.0}, {16.0, 0.0}});
    SpeedChange(*w.op, 1.0, 2.0);
    orvhost::ClearLog();
    w.op->RetimeAllFCurveKeys(0.0);
    for (const std::wstring& name : moved)
        EXPECT_EQ(KeyTimes(w.parameter(name)), (std::vector<double>{5.0, 8.0}))
            << std::string(name.begin(), name.end());
    for (const std::wstring& name : kept)
        EXPECT_EQ(KeyTimes(w.parameter(name)), (std::vector<double>{10.0, 16.0}))
            << std::string(name.begin(), name.end());
    // The stride data and the first limb's clamp events were rebuilt.
    EXPECT_EQ(orvhost::LogTexts(8), std::vector<std::wstring>{L"Constructing Stride Data"});
    ASSERT_EQ(w.op->clampKeys[LLEG].size(), 2u);
    EXPECT_EQ(w.op->clampKeys[LLEG][0].frame, 10);
    EXPECT_EQ(w.op->clampKeys[LLEG][1].frame, 16);
}

TEST(Retiming, ClampKeyAuthoredAtFrameFiftyMovesToTwentyFiveWhenSpeedDoubles) {
    Walker w(0, 1.0, 60);
    Animate(w.parameter(L"lfootClamp"), {{50.0, 1.0}, {55.0, 0.0}});
    w.op->updateClampKeys(LLEG, 0.0);
    SpeedChange(*w.op, 1.0, 2.0);
    w.op->RetimeAllFCurveKeys(0.0);
    EXPECT_EQ(KeyTimes(w.parameter(L"lfootClamp")), (std::vector<double>{25.0, 27.5}));
    // Still the same motion frames: scene frame 25 at speed 2 plays motion frame 50.
    ASSERT_EQ(w.op->clampKeys[LLEG].size(), 2u);
    EXPECT_EQ(w.op->clampKeys[LLEG][0].frame, 50);
    EXPECT_EQ(w.op->clampKeys[LLEG][1].frame, 55);
}

// A rig of `planes` limbs, each an anchor, a middle joint and a goal under the root, with every
// limb's roll and goal offsets keyed at 10 and 16.
struct Limbs {
    ORV::Model model;
    ORV::CustomProperty property;
    std::unique_ptr<RetargetOp> op;

    explicit Limbs(int planes) {
        orvhost::NewScene();
        ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Limbs", model);
        model.AddCustomProperty(L"RetargetAdjustPPG", false, property);
        auto* structure = new ZUK::ModelStructure(1 + 3 * planes, planes, L"limbs");
        structure->nodes[0].Name = L"root";
        for (int p = 0; p < planes; ++p) {
            const int a = 1 + 3 * p;
            structure->nodes[a].Name = (L"a" + std::to_wstring(p)).c_str();
            structure->nodes[a + 1].Name = (L"m" + std::to_wstring(p)).c_str();
            structure->nodes[a + 2].Name = (L"g" + std::to_wstring(p)).c_str();
            structure->nodes[a].Parent = 0;
            structure->nodes[a + 1].Parent = a;
            structure->nodes[a + 2].Parent = a;
            structure->planes[p].AnchorIndex = a;
            structure->planes[p].Mid = a + 1;
            structure->planes[p].Span = a + 2;
            const std::wstring goal = L"g" + std::to_wstring(p);
            for (const wchar_t* suffix : {L"Roll", L"X", L"Y", L"Z"})
                Animate(AddDouble(property, goal + suffix, 0.0), {{10.0, 1.0}, {16.0, 0.0}});
        }
        auto* map = new ZUK::ModelMap();
        map->structure = structure;
        map->ownsStructure = true;
        map->nodes.resize(static_cast<size_t>(structure->numNodes));
        map->planes.resize(static_cast<size_t>(planes));
        op.reset(new RetargetOp);
        op->modelMap = map;
        op->adjustProperty = property;
        op->clampKeys = new std::vector<RetargetOp::ClampItem>[static_cast<size_t>(planes)];
        SpeedChange(*op, 1.0, 2.0);
    }
    std::vector<double> times(int plane, const wchar_t* suffix) {
        return KeyTimes(property.GetParameter((L"g" + std::to_wstring(plane) + suffix).c_str()));
    }
};

TEST(Retiming, FourLimbsRetimeTheFirstLimbsSettingsAndOneOffsetAxisOfEachOfTheFirstThree) {
    Limbs rig(4);
    rig.op->RetimeAllFCurveKeys(0.0);
    const std::vector<double> moved{5.0, 8.0}, kept{10.0, 16.0};
    EXPECT_EQ(rig.times(0, L"Roll"), moved);
    EXPECT_EQ(rig.times(0, L"X"), moved);
    EXPECT_EQ(rig.times(1, L"Y"), moved);
    EXPECT_EQ(rig.times(2, L"Z"), moved);
    for (int p = 1; p < 4; ++p) EXPECT_EQ(rig.times(p, L"Roll"), kept) << p;
    for (const wchar_t* axis : {L"Y", L"Z"}) EXPECT_EQ(rig.times(0, axis), kept);
    for (const wchar_t* axis : {L"X", L"Y", L"Z"}) EXPECT_EQ(rig.times(3, axis), kept);
}

TEST(Retiming, OneLimbRetimesItsSettingsAndItsXOffsetOnly) {
    Limbs rig(1);
    rig.op->RetimeAllFCurveKeys(0.0);
    EXPECT_EQ(rig.times(0, L"Roll"), (std::vector<double>{5.0, 8.0}));
    EXPECT_EQ(rig.times(0, L"X"), (std::vector<double>{5.0, 8.0}));
    EXPECT_EQ(rig.times(0, L"Y"), (std::vector<double>{10.0, 16.0}));
}

TEST(Retiming, FiveLimbsEndWithEveryLimbsCurvesMovedOnce) {
    Limbs rig(5);
    rig.op->RetimeAllFCurveKeys(0.0);
    for (int p = 0; p < 5; ++p)
        for (const wchar_t* suffix : {L"Roll", L"X", L"Y", L"Z"})
            EXPECT_EQ(rig.times(p, suffix), (std::vector<double>{5.0, 8.0})) << p;
}

// ---- Insertion frame and frame range ----------------------------------------------------------

TEST(Retiming, InsertionFrameAnswersWhetherItChanged) {
    Walker w(3);
    EXPECT_FALSE(w.op->setInsertionFrame(3));
    EXPECT_TRUE(w.op->setInsertionFrame(9));
    EXPECT_EQ(w.op->insertionFrame, 9);
}

// A model with the motion blob of a 21-frame walk inserted at `insertion`.
ORV::UserDataBlob AddBlob(ORV::Model model, int insertion) {
    ORV::Property property;
    model.AddProperty(L"UserDataBlob", false, RetargetOp::DATA_NAME, property);
    ORV::UserDataBlob blob(property.GetRef());
    const std::vector<unsigned char> bytes = MakeBlob(Walk(), insertion, 1.0);
    blob.PutValue(bytes.data(), static_cast<unsigned int>(bytes.size()));
    return blob;
}

TEST(Retiming, FrameRangeOfARetargetedModelRunsFromTheLiveStartFrameOverTheMotion) {
    Walker w(2);
    ORV::UserDataBlob blob = AddBlob(w.model, 2);
    int start = 0, end = 0;
    // Before an operator is bound, the blob's own start frame counts.
    EXPECT_TRUE(RetargetOp::findFCurvesStartEnd(w.model, start, end));
    EXPECT_EQ(start, 2);
    EXPECT_EQ(end, 2 + 21);

    RetargetOp op;
    op.LoadMotionDataFromUDB(blob);
    op.adjustProperty = w.property;
    op.insertionFrame = 6;
    EXPECT_TRUE(RetargetOp::findFCurvesStartEnd(w.model, start, end));
    EXPECT_EQ(start, 6);
    EXPECT_EQ(end, 6 + 21);

    // A moved start frame is kept in the blob, so a saved scene starts there too.
    EXPECT_TRUE(op.setInsertionFrame(11));
    RetargetOp::presynchronize(blob);
    EXPECT_TRUE(RetargetOp::findFCurvesStartEnd(w.model, start, end));
    EXPECT_EQ(start, 11);
    EXPECT_EQ(end, 11 + 21);
}

TEST(Retiming, FrameRangeOfADamagedBlobIsRefused) {
    Walker w;
    ORV::Property property;
    w.model.AddProperty(L"UserDataBlob", false, RetargetOp::DATA_NAME, property);
    ORV::UserDataBlob blob(property.GetRef());
    std::vector<unsigned char> bytes = MakeBlob(Walk(), 0, 1.0);
    bytes.resize(400);
    blob.PutValue(bytes.data(), static_cast<unsigned int>(bytes.size()));
    int start = -5, end = -5;
    EXPECT_FALSE(RetargetOp::findFCurvesStartEnd(w.model, start, end));
}

TEST(Retiming, FrameRangeWithoutABlobComesFromTheModelsCurves) {
    Walker w;
    Animate(w.objects[3].GetKinematics().GetLocal().GetParameter(L"posx"), {{4.0, 0.0}, {33.0, 1.0}});
    int start = 0, end = 0;
    EXPECT_TRUE(RetargetOp::findFCurvesStartEnd(w.model, start, end));
    EXPECT_EQ(start, 4);
    EXPECT_EQ(end, 33);
}

}  // namespace
