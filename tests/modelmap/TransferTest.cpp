// Motion transfer onto the small rig: which sources each transfer takes, what it installs, the
// play control it leaves behind, and the source key times that a rig-to-rig transfer keeps
// for plotting. The key time rules are checked against lists worked out by hand below.
#include <memory>
#include <string>
#include <vector>

#include "MapTestSupport.h"
#include "glue/GlueMap.h"
#include "live/RetargetOp.h"
#include "mocap/Mocap.h"
#include "shell/Util.h"

using maptest::BuildMiniRig;
using maptest::MapTest;
using maptest::MiniRig;
using ZUK::GlueMap;
using ZUK::ModelMap;
using ZUK::NodeKeyTiming;

namespace {

using Times = std::vector<double>;

Times TimesOf(const ORV::CDoubleArray& a) {
    Times t;
    for (long i = 0; i < a.GetCount(); ++i) t.push_back(a[i]);
    return t;
}

// Keys on one local channel of `object`, each with the value of its time.
void Key(ORV::X3DObject object, const wchar_t* channel, const Times& times) {
    ORV::FCurve curve;
    ASSERT_EQ(object.GetKinematics().GetLocal().GetParameter(channel).AddFCurve(ORV::ovStandardFCurve, curve),
              ORV::CStatus::OK);
    for (double t : times) curve.AddKey(ORV::CTime(t), ORV::CValue(t));
}

Times Every(double first, double last, double step) {
    Times t;
    for (double v = first; v <= last + 1e-9; v += step) t.push_back(v);
    return t;
}

ORV::Property PlayControl() {
    return ORV::Application().GetActiveProject().GetProperties().GetItem(L"Play Control");
}

bool HasProperty(const ORV::X3DObject& object, const wchar_t* name) {
    ORV::Property p;
    return ZUK::Util::findCustomPSet(object, name, p);
}

class KeyTiming : public MapTest {
protected:
    void SetUp() override {
        MapTest::SetUp();
        rig = BuildMiniRig();
        rig.TagAll();
        structure = LoadStructure();
        ASSERT_TRUE(structure);
        map.reset(new ModelMap(rig.model, structure.get()));
    }

    // The times that one channel of one node gets, with the range [start, end].
    Times Extract(ORV::X3DObject object, const Times& keys, int start, int end) {
        Key(object, L"roty", keys);
        map->ExtractSourceKeyTimingFromKinematicsParameters(*map, &dest, start, end);
        if (dest.numKeyTiming < 1 || !dest.keyTiming) return {L'-'};
        return TimesOf(dest.keyTiming[0].times[4]);
    }

    MiniRig rig;
    std::unique_ptr<ZUK::ModelStructure> structure;
    std::unique_ptr<ModelMap> map;
    ModelMap dest;
};

TEST_F(KeyTiming, KeysEveryFiveFramesInsideTheRangeKeepTheirTimesFromTheStart) {
    // Starts on a key: no leading 0 is added.
    EXPECT_EQ(Extract(rig.cog, Every(0, 50, 5), 0, 50), Every(0, 50, 5));
}

TEST_F(KeyTiming, ACurveEnteringAfterTheStartGetsALeadingZeroAndTheClosingValue) {
    // Keys 3, 8, ... 28; the range 0 to 20: 0 first, the keys inside, then 20 for the key at 23
    // whose predecessor lies inside; the key at 28 adds nothing.
    EXPECT_EQ(Extract(rig.cog, Every(3, 28, 5), 0, 20), (Times{0, 3, 8, 13, 18, 20}));
}

TEST_F(KeyTiming, KeysBeforeTheStartEachAddTheClosingValueOncePrecededByAnotherKey) {
    // Keys 0, 5, ... 40, range 12 to 30. Key 0 has no predecessor; keys 5 and 10 lie outside with
    // a predecessor below the end, so each adds 18; key 15 enters the range after a key below
    // the start, so a 0 comes first; key 35 follows the key at the end itself and adds nothing.
    EXPECT_EQ(Extract(rig.cog, Every(0, 40, 5), 12, 30), (Times{18, 18, 0, 3, 8, 13, 18}));
}

TEST_F(KeyTiming, AKeyExactlyAtTheStartGetsNoLeadingZero) {
    EXPECT_EQ(Extract(rig.cog, Times{10, 15, 22}, 10, 30), (Times{0, 5, 12}));
}

TEST_F(KeyTiming, AKeyAtTheStartAfterAKeyBeforeItGetsNoLeadingZero) {
    // The key at 2 lies before the range and has no predecessor; the key at 10 is at the start.
    EXPECT_EQ(Extract(rig.cog, Times{2, 10, 14}, 10, 30), (Times{0, 4}));
}

TEST_F(KeyTiming, ASingleKeyBeforeTheRangeGetsNothing) {
    EXPECT_EQ(Extract(rig.cog, Times{4}, 10, 30), Times{});
    // The node still counts and is named.
    ASSERT_EQ(dest.numKeyTiming, 1);
    EXPECT_EQ(std::wstring(dest.keyTiming[0].name.GetWideString()), L"cog");
}

TEST_F(KeyTiming, FractionalKeyTimesInsideTheRangeSurviveAsTheyAre) {
    EXPECT_EQ(Extract(rig.cog, Times{10, 12.5, 17.25}, 10, 30), (Times{0, 2.5, 7.25}));
}

TEST_F(KeyTiming, ASourceRigWithoutCurvesLeavesNoKeyTiming) {
    // An expression is not a curve.
    ASSERT_EQ(rig.cog.GetKinematics().GetLocal().GetParameter(L"posx").PutExpression(L"(1 + 2) * 3"),
              ORV::CStatus::OK);
    dest.numKeyTiming = 7;
    map->ExtractSourceKeyTimingFromKinematicsParameters(*map, &dest, 0, 100);
    EXPECT_EQ(dest.keyTiming, nullptr);
    EXPECT_EQ(dest.numKeyTiming, 0);
}

TEST_F(KeyTiming, TheCountIsOfAnimatedChannelsAndTheEntriesOnePerNodeInNodeOrder) {
    // Three channels on lshin (node 4), two on cog (node 0), none elsewhere.
    Key(rig.lshin, L"posx", {1, 2});
    Key(rig.lshin, L"rotx", {3});
    Key(rig.lshin, L"rotz", {4, 6});
    Key(rig.cog, L"posz", {0, 5});
    Key(rig.cog, L"roty", {5});
    map->ExtractSourceKeyTimingFromKinematicsParameters(*map, &dest, 0, 10);
    ASSERT_EQ(dest.numKeyTiming, 5);
    ASSERT_NE(dest.keyTiming, nullptr);
    const NodeKeyTiming& cog = dest.keyTiming[0];
    EXPECT_EQ(std::wstring(cog.name.GetWideString()), L"cog");
    EXPECT_EQ(TimesOf(cog.times[0]), Times{});
    EXPECT_EQ(TimesOf(cog.times[2]), (Times{0, 5}));
    EXPECT_EQ(TimesOf(cog.times[4]), (Times{0, 5}));
    const NodeKeyTiming& shin = dest.keyTiming[1];
    EXPECT_EQ(std::wstring(shin.name.GetWideString()), L"lshin");
    EXPECT_EQ(TimesOf(shin.times[0]), (Times{0, 1, 2}));
    EXPECT_EQ(TimesOf(shin.times[3]), (Times{0, 3}));
    EXPECT_EQ(TimesOf(shin.times[5]), (Times{0, 4, 6}));
    EXPECT_EQ(TimesOf(shin.times[1]), Times{});
    // The entries past the last animated node stay empty.
    for (int k = 2; k < 5; ++k) {
        for (int c = 0; c < NodeKeyTiming::NUM_CHANNELS; ++c)
            EXPECT_EQ(dest.keyTiming[k].times[c].GetCount(), 0);
        EXPECT_TRUE(dest.keyTiming[k].name.IsEmpty() || dest.keyTiming[k].name == L"lhand");
    }
}

TEST_F(KeyTiming, ExtractingAgainReplacesTheEarlierTimes) {
    Key(rig.cog, L"posx", {0, 5});
    map->ExtractSourceKeyTimingFromKinematicsParameters(*map, &dest, 0, 10);
    ASSERT_EQ(dest.numKeyTiming, 1);
    map->ExtractSourceKeyTimingFromKinematicsParameters(*map, &dest, 5, 10);
    ASSERT_EQ(dest.numKeyTiming, 1);
    EXPECT_EQ(TimesOf(dest.keyTiming[0].times[0]), (Times{0}));
}

// ---- Counting animated objects for the file writers -----------------------------------------

TEST_F(KeyTiming, EnumerationCountsAnimatedObjectsNotChannels) {
    Key(rig.cog, L"posx", {0, 5});
    Key(rig.cog, L"roty", {0, 5});
    Key(rig.cog, L"rotz", {0, 5});
    Key(rig.lhand, L"rotx", {1});
    int count = 0;
    for (ORV::X3DObject o : {rig.cog, rig.spine, rig.lhand}) map->enumerateFCurveSource(o, count);
    EXPECT_EQ(count, 2);
}

TEST_F(KeyTiming, EnumerationSkipsAnObjectDrivenByAnotherThroughConstraints) {
    Key(rig.lhand, L"posx", {0, 5});
    ORV::Constraint c;
    ASSERT_EQ(rig.lhand.GetKinematics().AddConstraint(L"Position", rig.chest, c), ORV::CStatus::OK);
    int count = 0;
    map->enumerateFCurveSource(rig.lhand, count);
    EXPECT_EQ(count, 0);
    map->enumerateFCurveSource(rig.chest, count);
    EXPECT_EQ(count, 0);
}

TEST_F(KeyTiming, EnumerationIgnoresCurvesOnScaling) {
    Key(rig.cog, L"sclx", {0, 5});
    int count = 0;
    map->enumerateFCurveSource(rig.cog, count);
    EXPECT_EQ(count, 0);
}

// ---- Transfers ------------------------------------------------------------------------------

// A mini rig made ready as tagging leaves it: the stored structure, map and glue.
class Transfer : public MapTest {
protected:
    void SetUp() override {
        MapTest::SetUp();
        rig = BuildMiniRig();
        rig.TagAll();
        std::unique_ptr<ZUK::ModelStructure> s = LoadStructure();
        ASSERT_TRUE(s);
        ModelMap m(rig.model, s.get());
        m.createMap();
        m.SaveToCustomProperty();
        s->SaveToCustomProperty(rig.model);
        std::unique_ptr<GlueMap> g(GlueMap::createFromModelMap(rig.model, &m));
        ASSERT_TRUE(g);
        g->SaveToCustomProperty(rig.model);
        LoadTarget();
    }

    // The target's map as a driver loads it.
    void LoadTarget() {
        targetStructure.reset(ZUK::ModelStructure::CreateFromCustomProperty(rig.model));
        ASSERT_TRUE(targetStructure);
        target.reset(new ModelMap(rig.model, targetStructure.get()));
        target->LoadFromCustomProperty();
        ASSERT_TRUE(target->valid);
        glue.reset(GlueMap::CreateFromCustomProperty(rig.model));
        ASSERT_TRUE(glue);
        glue->applyToModel(rig.model, target.get());
    }

    // A motion map of the mini structure with `frames` frames of the rig's rest pose.
    void MakeMotionSource(int frames) {
        motionStructure = LoadStructure();
        motionSource.structure = motionStructure.get();
        for (int i = 0; i < motionStructure->numNodes; ++i) motionStructure->nodes[i].objIsValid = true;
        motionSource.nodes = std::vector<ZUK::NodeMap>(static_cast<size_t>(motionStructure->numNodes));
        motionSource.planes = std::vector<ZUK::PlaneMap>(static_cast<size_t>(motionStructure->numPlanes));
        motionSource.numFrames = frames;
        motionSource.motion =
            new ORV::MATH::CTransformation[static_cast<size_t>(frames * motionStructure->numNodes) + 1];
        motionSource.legLength = target->legLength;
    }

    // The frame count stored in the blob, -1 without a blob.
    int BlobFrames() {
        ORV::Property p;
        if (!ZUK::Util::findCustomPSet(rig.model, ZUK::RetargetOp::DATA_NAME, p)) return -1;
        ORV::UserDataBlob blob(p.GetRef());
        const unsigned char* data = nullptr;
        unsigned int size = 0;
        blob.GetValue(data, size);
        if (size < ZUK::RetargetOp::HEADER_SIZE + 4) return -2;
        unsigned int frames = 0;
        for (int b = 3; b >= 0; --b) frames = (frames << 8) | data[ZUK::RetargetOp::HEADER_SIZE + b];
        return static_cast<int>(frames);
    }

    MiniRig rig;
    std::unique_ptr<ZUK::ModelStructure> targetStructure, motionStructure;
    std::unique_ptr<ModelMap> target;
    std::unique_ptr<GlueMap> glue;
    ModelMap motionSource;
};

TEST_F(Transfer, AMotionMapWithNoFramesInstallsAnEmptyMotion) {
    MakeMotionSource(0);
    EXPECT_TRUE(target->TransferNormMotion(motionSource, *glue, 5));
    EXPECT_TRUE(HasProperty(rig.model, ZUK::RetargetOp::DATA_NAME));
    EXPECT_EQ(BlobFrames(), 0);
}

TEST_F(Transfer, NormalisedTransferRefusesASourceWithoutMotion) {
    ModelMap notMotion(rig.model, targetStructure.get());
    EXPECT_FALSE(target->TransferNormMotion(notMotion, *glue, 1));
    EXPECT_FALSE(HasProperty(rig.model, ZUK::RetargetOp::DATA_NAME));
}

TEST_F(Transfer, CaptureTransferRefusesASourceWithoutCapture) {
    MakeMotionSource(3);
    EXPECT_FALSE(target->TransferMocapMotion(motionSource, *glue));
    EXPECT_FALSE(HasProperty(rig.model, ZUK::RetargetOp::DATA_NAME));
}

TEST_F(Transfer, NormalisedTransferRecordsEveryFrameUnderItsCaption) {
    MakeMotionSource(4);
    ASSERT_TRUE(target->TransferNormMotion(motionSource, *glue, 1));
    EXPECT_EQ(BlobFrames(), 4);
    ORV::ProgressBar bar = ORV::Application().GetUIToolkit().GetProgressBar();
    EXPECT_EQ(std::wstring(bar.GetCaption().GetWideString()), L"Processing TROVO Data ...");
    EXPECT_EQ(bar.GetMaximum(), 4);
    EXPECT_EQ(bar.GetValue(), 4);
}

TEST_F(Transfer, RigToRigWithStartEqualToEndInstallsAnEmptyMotion) {
    ORV::Model source = BuildMiniRig(L"Source").model;
    ModelMap sourceMap(source, targetStructure.get());
    EXPECT_TRUE(target->TransferRigToRigMotion(sourceMap, *glue, 7, 7));
    EXPECT_EQ(BlobFrames(), 0);
}

TEST_F(Transfer, RigToRigRecordsOneFrameFewerThanTheRangeAndRestoresTheCurrentFrame) {
    MiniRig source = BuildMiniRig(L"Source");
    source.TagAll();
    Key(source.cog, L"posy", {10, 20});
    std::unique_ptr<ZUK::ModelStructure> s = LoadStructure();
    ModelMap sourceMap(source.model, s.get());
    sourceMap.createMap();
    ORV::Property play = PlayControl();
    play.PutParameterValue(L"Current", ORV::CValue(42.0));

    ASSERT_TRUE(target->TransferRigToRigMotion(sourceMap, *glue, 10, 16));
    EXPECT_EQ(BlobFrames(), 6);
    EXPECT_DOUBLE_EQ(static_cast<double>(play.GetParameterValue(L"Current")), 42.0);
    ORV::ProgressBar bar = ORV::Application().GetUIToolkit().GetProgressBar();
    EXPECT_EQ(std::wstring(bar.GetCaption().GetWideString()), L"Processing FCurves ...");
    EXPECT_EQ(bar.GetMaximum(), 6);
    // The key times land on the source map, relative to the start, closed at the last frame
    // recorded (the key at 20 lies past it).
    ASSERT_EQ(sourceMap.numKeyTiming, 1);
    EXPECT_EQ(TimesOf(sourceMap.keyTiming[0].times[1]), (Times{0, 5}));
}

TEST_F(Transfer, RigToRigLeavesBothModelsAtTheOrigin) {
    MiniRig source = BuildMiniRig(L"Source");
    source.TagAll();
    std::unique_ptr<ZUK::ModelStructure> s = LoadStructure();
    ModelMap sourceMap(source.model, s.get());
    sourceMap.createMap();
    ORV::MATH::CTransformation away;
    away.SetTranslationFromValues(50, 0, -20);
    source.model.GetKinematics().GetGlobal().PutTransform(away);
    rig.model.GetKinematics().GetGlobal().PutTransform(away);

    ASSERT_TRUE(target->TransferRigToRigMotion(sourceMap, *glue, 1, 3));
    for (ORV::Model m : {source.model, rig.model}) {
        const ORV::MATH::CVector3 at = maptest::GlobalOf(m).GetTranslation();
        EXPECT_NEAR(at.GetLength(), 0.0, 1e-12) << m.GetName().GetAsciiString();
    }
}

TEST_F(Transfer, RigToRigRefusesASourceOfAnotherStructureType) {
    ORV::Model source = BuildMiniRig(L"Source").model;
    ZUK::ModelStructure other(1, 0, L"quadruped");
    ModelMap sourceMap(source, &other);
    orvhost::ClearLog();
    EXPECT_FALSE(target->TransferRigToRigMotion(sourceMap, *glue, 1, 3));
    EXPECT_FALSE(HasProperty(rig.model, ZUK::RetargetOp::DATA_NAME));
    EXPECT_EQ(
        maptest::Messages(4),
        std::vector<std::wstring>{L"The normalized motion must have the same type as the model structure."});
}

}  // namespace
