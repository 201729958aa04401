// Which logic function each command reaches, with which values, and what it answers. Every
// command is run as a script runs it, through Application::ExecuteCommand. While a function's
// logic is still a placeholder, what it says (its "is not built yet" line and the values it
// was called with) is the evidence; distinct values for every argument make a swap show.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "ShellTestSupport.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMapTestSupport.h"
#include "plot/PlotTestSupport.h"
#include "shell/Placeholder.h"
#include "support/BvhRigBuilder.h"

namespace {

using shelltest::ShellTest;

using Lines = std::vector<std::pair<std::wstring, int>>;

// The placeholder's two lines: its own at severity 4, the values it got at severity 8.
Lines Placeholder(const std::wstring& function, const std::wstring& values) {
    return {{function + L" is not built yet", 4}, {function + L" was called with (" + values + L")", 8}};
}

class CommandWiring : public ShellTest {
protected:
    void SetUp() override {
        ShellTest::SetUp();
        // A model made first, so that a command that takes "the first model" instead of its
        // argument is caught.
        AddModel(Root(), L"Decoy");
        rig = AddModel(Root(), L"Rig");
        other = AddModel(Root(), L"Other");
    }

    // Runs the command and keeps its status, answer and log.
    void Exec(const wchar_t* command, std::initializer_list<ORV::CValue> values) {
        ORV::CValueArray args;
        for (const ORV::CValue& v : values) {
            args.Add(v);
        }
        orvhost::ClearLog();
        result = ORV::CValue();
        status = Run(command, args, result);
        log.clear();
        for (const orvhost::LogEntry& entry : Log()) {
            log.emplace_back(entry.text, entry.severity);
        }
    }

    void ExpectBoolAnswer(bool expected) {
        EXPECT_EQ(status, ORV::CStatus::OK);
        ASSERT_EQ(result.GetType(), ORV::ovBool);
        EXPECT_EQ(static_cast<bool>(result), expected);
    }

    void ExpectNoAnswer() {
        EXPECT_EQ(status, ORV::CStatus::OK);
        EXPECT_TRUE(result.IsEmpty());
    }

    ORV::Model rig;
    ORV::Model other;
    ORV::CStatus status;
    ORV::CValue result;
    Lines log;
};

ORV::CValue S(const wchar_t* text) { return ORV::CString(text); }

// ---- Retarget drivers -----------------------------------------------------------------------

TEST_F(CommandWiring, RetargetReachesModelToModelWhichReadsTheSourceFirst) {
    // Neither model is set up: the driver speaks of the source, so the first argument went
    // there. (The frames' way through to the operator is checked end to end.)
    orvhost::ClearAnswers();
    Exec(L"Retarget", {other.GetRef(), rig.GetRef(), 3, 7});
    EXPECT_EQ(log, (Lines{{L"Failed to read model map from source model.", 4}}));
    ASSERT_EQ(orvhost::MessageBoxes().size(), 1u);
    EXPECT_EQ(orvhost::MessageBoxes()[0].caption, L"ZUKRetarget");
    ExpectBoolAnswer(false);
}

TEST_F(CommandWiring, RetargetBVHReachesLoadBVHOnToModelWithTheMapFileAsMapFile) {
    // An unreadable map file is the first thing the driver finds; a swap of the two files would
    // have read the real map and then failed on the capture.
    const std::string map =
        std::string(TROVO_FACTORY_DATA) + "/Addons/Trovo/Data/TagTemplates/cmu_mb2010.tagt";
    Exec(L"RetargetBVH", {rig.GetRef(), S(L"walk.bvh"), ORV::CValue(ORV::CString(map.c_str()))});
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), (std::pair<std::wstring, int>{L"Failed to load the BVH file.", 4}));
    ExpectBoolAnswer(false);

    Exec(L"RetargetBVH", {rig.GetRef(), ORV::CValue(ORV::CString(map.c_str())), S(L"walk.map")});
    EXPECT_EQ(log, (Lines{{L"Could not read mapfile.", 4}}));
    ExpectBoolAnswer(false);
}

TEST_F(CommandWiring, RetargetC3DDataCallsLoadC3DOnToESRWithFileAndMap) {
    Exec(L"RetargetC3DData", {S(L"walk.c3d"), S(L"fit.c3dpose")});
    EXPECT_EQ(log, Placeholder(L"LoadC3DOnToESR", L"\"walk.c3d\", \"fit.c3dpose\""));
    ExpectBoolAnswer(false);
}

TEST_F(CommandWiring, ImportC3DFileCallsImportC3DFileWithEveryArgument) {
    Exec(L"ImportC3DFile", {S(L"walk.c3d"), 1, true, S(L"Biped.structure")});
    EXPECT_EQ(log, Placeholder(L"ImportC3DFile", L"\"walk.c3d\", 1, true, \"Biped.structure\""));
    ExpectBoolAnswer(false);

    // Up direction 0 is a value, not a missing one; a false flag with its template.
    Exec(L"ImportC3DFile", {S(L"run.c3d"), 0, false, S(L"Quad.structure")});
    EXPECT_EQ(log, Placeholder(L"ImportC3DFile", L"\"run.c3d\", 0, false, \"Quad.structure\""));
    ExpectBoolAnswer(false);
}

TEST_F(CommandWiring, ImportC3DFileWithOnlyTheFileCallsImportC3DFileWithItsDefaults) {
    Exec(L"ImportC3DFile", {S(L"walk.c3d")});
    EXPECT_EQ(log, Placeholder(L"ImportC3DFile", L"\"walk.c3d\", 2, false, \"\""));
    ExpectBoolAnswer(false);
}

TEST_F(CommandWiring, SaveC3DPoseMapCallsSaveC3DPoseMapFileWithMarkersRigAndFile) {
    Exec(L"SaveC3DPoseMap", {other.GetRef(), rig.GetRef(), S(L"fit.c3dpose")});
    EXPECT_EQ(log, Placeholder(L"SaveC3DPoseMapFile", L"Other, Rig, \"fit.c3dpose\""));
    ExpectBoolAnswer(false);
}

// The file commands work on tagged rigs: two of the same CMU skeleton, beside the untagged
// models of the fixture. The saved file shows the range asked for; a load shows its start
// frame in the blob of the model it was given, and nowhere else.
class TrovoFileWiring : public CommandWiring {
protected:
    void SetUp() override {
        CommandWiring::SetUp();
        bvhrig::Skeleton skel;
        std::string error;
        ASSERT_TRUE(bvhrig::ReadBvh(std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh", skel, &error))
            << error;
        for (ORV::Model* model : {&walker, &runner}) {
            *model = bvhrig::BuildBvhRig(Root(), skel, model == &walker ? L"Walker" : L"Runner").model;
            ASSERT_TRUE(model->IsValid());
            Exec(L"SetStructureFile", {model->GetRef(), S(L"biped")});
            for (const auto& pair : bvhrig::CmuMotionBuilderTagging())
                Exec(L"SetTagValue", {model->GetRef(), S(pair.first.c_str()), S(pair.second.c_str()), 1});
            Exec(L"ApplyTagsToRig", {model->GetRef()});
            ASSERT_TRUE(modelmaptest::FindProperty(*model, L"ZUKGlue").IsValid());
        }
        char folder[] = "/tmp/trovo_wiring_XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        dir = folder;
        file = dir + "/walk.trovo";
    }
    void TearDown() override {
        std::remove(file.c_str());
        rmdir(dir.c_str());
    }

    // The insertion frame stored in the model's motion blob; -1 when it has none. Read from a
    // copy, so that no reader's address is left in the scene's blob.
    static int InsertionFrame(const ORV::Model& model) {
        ORV::Property property;
        for (long i = 0; i < model.GetProperties().GetCount(); ++i)
            if (ORV::Property(model.GetProperties()[i]).GetName() == ORV::CString(ZUK::RetargetOp::DATA_NAME))
                property = ORV::Property(model.GetProperties()[i]);
        if (!property.IsValid()) return -1;
        const unsigned char* bytes = nullptr;
        unsigned int size = 0;
        ORV::UserDataBlob(property.GetRef()).GetValue(bytes, size);
        std::vector<unsigned char> copy(bytes, bytes + size);
        ZUK::RetargetOp op;
        if (!op.LoadMotionDataFromBuffer(copy.data(), size)) return -1;
        return op.insertionFrame;
    }

    modelmaptest::FactoryData factory;
    ORV::Model walker;
    ORV::Model runner;
    std::string dir;
    std::string file;
};

TEST_F(TrovoFileWiring, LoadTrovoFileLoadsTheFileOntoTheTargetFromTheStart) {
    Exec(L"SaveTrovoFile", {walker.GetRef(), S(bvhrig::Widen(file).c_str()), 1, 30});
    ExpectBoolAnswer(true);
    Exec(L"LoadTrovoFile", {runner.GetRef(), S(bvhrig::Widen(file).c_str()), 12});
    ExpectBoolAnswer(true);
    EXPECT_EQ(InsertionFrame(runner), 12);
    EXPECT_EQ(InsertionFrame(walker), -1);
}

TEST_F(TrovoFileWiring, LoadTrovoFileWithoutStartLoadsFromFrameZero) {
    Exec(L"SaveTrovoFile", {walker.GetRef(), S(bvhrig::Widen(file).c_str()), 1, 30});
    Exec(L"LoadTrovoFile", {runner.GetRef(), S(bvhrig::Widen(file).c_str())});
    ExpectBoolAnswer(true);
    EXPECT_EQ(InsertionFrame(runner), 0);
}

TEST_F(TrovoFileWiring, LoadTrovoFileReadsTheFileItNamesBeforeTheTarget) {
    // The file is read first: a missing one is named, then the untagged target is refused.
    Exec(L"LoadTrovoFile", {rig.GetRef(), S(L"walk.trovo"), 12});
    EXPECT_EQ(log, (Lines{{L"Could not read the Trovo file walk.trovo.", 4},
                          {L"Failed to read destmodel map from source model.", 4}}));
    ExpectBoolAnswer(false);
}

TEST_F(TrovoFileWiring, SaveTrovoFileSavesTheModelOverItsRange) {
    Exec(L"SaveTrovoFile", {walker.GetRef(), S(bvhrig::Widen(file).c_str()), 5, 25});
    ExpectBoolAnswer(true);
    std::ifstream in(file);
    const std::string xml((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(xml.find("<AnimationLength>21</AnimationLength>"), std::string::npos);
    EXPECT_NE(xml.find("<POSE time=\"5\">"), std::string::npos);
    EXPECT_NE(xml.find("<POSE time=\"25\">"), std::string::npos);
    EXPECT_EQ(xml.find("<POSE time=\"26\">"), std::string::npos);
    EXPECT_NE(xml.find("name=\"Hips\""), std::string::npos);

    // An untagged model in its place is refused with the structure's words.
    Exec(L"SaveTrovoFile", {rig.GetRef(), S(L"out.trovo"), 5, 25});
    EXPECT_EQ(log, (Lines{{L"Cannot create structure.", 4}}));
    ExpectBoolAnswer(false);
}

// ---- Tag and structure commands -------------------------------------------------------------
// These reach the tag rules. Each test shows which function the command reached and that it
// worked on the model it names (never the decoy made first); the tag panel tests run every one
// of them through the command with real values.

ORV::Property PropertyNamed(const ORV::X3DObject& object, const wchar_t* name) {
    ORV::CRefArray properties = object.GetProperties();
    for (long i = 0; i < properties.GetCount(); ++i)
        if (ORV::Property(properties[i]).GetName() == ORV::CString(name)) return ORV::Property(properties[i]);
    return ORV::Property();
}

bool HasProperty(const ORV::X3DObject& object, const wchar_t* name) {
    return PropertyNamed(object, name).IsValid();
}

TEST_F(CommandWiring, SetTagValueCallsSetTagValueOnTheModelItNames) {
    Exec(L"SetTagValue", {rig.GetRef(), S(L"LeftFoot"), S(L"Rig.LFoot"), 2});
    EXPECT_EQ(log, (Lines{{L"The model Rig has no structure. Please set a structure file first.", 4}}));
    ExpectBoolAnswer(false);
}

TEST_F(CommandWiring, SaveTagTemplateFileCallsSaveTagTemplateFileOnTheModelItNames) {
    // Only the named model has a tag property (and no map yet); any other model is untagged.
    Exec(L"LoadTagTemplateFile", {rig.GetRef(), S(L"absent_biped.tagt")});
    Exec(L"SaveTagTemplateFile", {rig.GetRef(), S(L"rig.tagt")});
    ExpectBoolAnswer(false);
    EXPECT_EQ(log, (Lines{{L"Incorrect tagging. Please re-tag.", 4}}));
    Exec(L"SaveTagTemplateFile", {other.GetRef(), S(L"rig.tagt")});
    EXPECT_EQ(log, (Lines{{L"Model not tagged. Please tag the model.", 4}}));
}

TEST_F(CommandWiring, LoadTagTemplateFileCallsLoadTagTemplateFileWithModelAndTemplate) {
    // A template that is not there is only remembered, on the named model's tag property.
    Exec(L"LoadTagTemplateFile", {rig.GetRef(), S(L"absent_biped.tagt")});
    ExpectBoolAnswer(true);
    EXPECT_TRUE(HasProperty(rig, L"TagPPG"));
    EXPECT_FALSE(HasProperty(other, L"TagPPG"));
    EXPECT_EQ(PropertyNamed(rig, L"TagPPG").GetParameterValue(L"TemplateFile").GetAsText(),
              ORV::CString(L"absent_biped.tagt"));
}

TEST_F(CommandWiring, InheritRetargetSetupCallsLoadTagTemplateFileWithModelAndTemplate) {
    Exec(L"InheritRetargetSetup", {rig.GetRef(), S(L"absent_biped.tagt")});
    ExpectBoolAnswer(true);
    EXPECT_TRUE(HasProperty(rig, L"TagPPG"));
    EXPECT_FALSE(HasProperty(other, L"TagPPG"));
}

TEST_F(CommandWiring, ApplyTagsToRigCallsApplyTagPPGValuesToModelWithTheModel) {
    Exec(L"ApplyTagsToRig", {rig.GetRef()});
    ExpectBoolAnswer(false);
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back().second, 2);
}

TEST_F(CommandWiring, CleanTagsFromRigCallsCleanTagsFromRigWithTheModel) {
    // Cleaning removes the named model's setup and nothing of another model's.
    for (ORV::Model m : {rig, other}) {
        m.AddProperty(L"CustomProperty", false, L"ZUKMap");
        m.AddProperty(L"CustomProperty", false, L"ZUKGlue");
    }
    Exec(L"CleanTagsFromRig", {rig.GetRef()});
    EXPECT_FALSE(HasProperty(rig, L"ZUKMap"));
    EXPECT_FALSE(HasProperty(rig, L"ZUKGlue"));
    EXPECT_TRUE(HasProperty(other, L"ZUKMap"));
    EXPECT_TRUE(HasProperty(other, L"ZUKGlue"));
}

TEST_F(CommandWiring, SetStructureFileCallsSetStructureFileWithModelAndFile) {
    Exec(L"SetStructureFile", {rig.GetRef(), S(L"nosuch.structure")});
    ExpectBoolAnswer(false);
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), (std::pair<std::wstring, int>{L"Error Loading Structure File.", 4}));
    EXPECT_FALSE(HasProperty(other, L"TagPPG"));
}

// ---- Frame range ----------------------------------------------------------------------------

class FrameRange : public CommandWiring {
protected:
    void SetUp() override {
        CommandWiring::SetUp();
        // The rig's curves span frames 3 to 40; the other model's a wider range.
        ORV::X3DObject hips = AddNull(rig, L"Hips");
        ORV::X3DObject spine = AddNull(hips, L"Spine");
        AddCurve(hips, L"posx", {3.0, 20.0});
        AddCurve(spine, L"roty", {10.0, 40.5});
        AddCurve(AddNull(other, L"Hips"), L"posx", {1.0, 90.0});
    }

    static void AddCurve(ORV::X3DObject object, const wchar_t* parameter,
                         std::initializer_list<double> frames) {
        ORV::FCurve curve;
        object.GetKinematics().GetLocal().GetParameter(parameter).AddFCurve(ORV::ovStandardFCurve, curve);
        double value = 0.0;
        for (double frame : frames) {
            curve.AddKey(ORV::CTime(frame), value);
            value += 1.0;
        }
    }

    void ExpectIntAnswer(int expected) {
        EXPECT_EQ(status, ORV::CStatus::OK);
        ASSERT_EQ(result.GetType(), ORV::ovInt4);
        EXPECT_EQ(static_cast<int>(result), expected);
    }
};

TEST_F(FrameRange, RetargetExtractStartFrameAnswersTheFirstKeyedFrameOfTheModel) {
    Exec(L"RetargetExtractStartFrame", {rig.GetRef()});
    ExpectIntAnswer(3);
    EXPECT_TRUE(log.empty());
}

TEST_F(FrameRange, RetargetExtractEndFrameAnswersTheLastKeyedFrameOfTheModel) {
    Exec(L"RetargetExtractEndFrame", {rig.GetRef()});
    ExpectIntAnswer(40);
    EXPECT_TRUE(log.empty());
}

TEST_F(FrameRange, FrameRangeOfAModelWhoseCurvesSpanOneFrameAnswersZero) {
    ORV::Model still = AddModel(Root(), L"Still");
    ORV::X3DObject hips = AddNull(still, L"Hips");
    AddCurve(hips, L"posx", {6.0, 6.5});
    for (const wchar_t* command : {L"RetargetExtractStartFrame", L"RetargetExtractEndFrame"}) {
        Exec(command, {still.GetRef()});
        ExpectIntAnswer(0);
    }
}

// The bytes of a stored motion: `frames` frames of one node and no limb, starting at scene
// frame `insertion`, written here byte by byte.
std::vector<unsigned char> MotionBlob(uint32_t frames, int32_t insertion) {
    std::vector<unsigned char> bytes(268 + 56 * static_cast<size_t>(frames) + 4 + 8 + 4 + 4 + 8, 0);
    auto put = [&bytes](size_t at, const void* value, size_t size) { std::memcpy(&bytes[at], value, size); };
    const uint32_t magic = 0x38DEF311u, nodes = 1, planes = 0;
    put(0, &magic, 4);
    put(256, &frames, 4);
    put(260, &nodes, 4);
    put(264, &planes, 4);
    size_t at = 268 + 56 * static_cast<size_t>(frames) + 4;
    const double version = 1.4, baseScale = 1.0;
    put(at, &version, 8);
    put(at + 8, &insertion, 4);
    put(at + 16, &baseScale, 8);
    return bytes;
}

TEST_F(FrameRange, FrameRangeOfARetargetedModelRunsFromItsStartFrameOverItsMotion) {
    ORV::Property property;
    ASSERT_EQ(rig.AddProperty(L"UserDataBlob", false, L"ZUKRetargetOp", property), ORV::CStatus::OK);
    ORV::UserDataBlob blob(property.GetRef());
    const std::vector<unsigned char> bytes = MotionBlob(21, 7);
    ASSERT_EQ(blob.PutValue(bytes.data(), static_cast<unsigned int>(bytes.size())), ORV::CStatus::OK);
    Exec(L"RetargetExtractStartFrame", {rig.GetRef()});
    ExpectIntAnswer(7);
    Exec(L"RetargetExtractEndFrame", {rig.GetRef()});
    ExpectIntAnswer(7 + 21);
    EXPECT_TRUE(log.empty());
}

TEST_F(FrameRange, FrameRangeOfARetargetedModelWithAnEmptyBlobAnswersZero) {
    ORV::Property blob;
    ASSERT_EQ(rig.AddProperty(L"UserDataBlob", false, L"ZUKRetargetOp", blob), ORV::CStatus::OK);
    for (const wchar_t* command : {L"RetargetExtractStartFrame", L"RetargetExtractEndFrame"}) {
        Exec(command, {rig.GetRef()});
        EXPECT_TRUE(log.empty()) << command;
        ExpectIntAnswer(0);
    }
}

// ---- Removing, plotting and presets ---------------------------------------------------------

TEST_F(CommandWiring, RemoveAllTrovoPropsAndOpsRemovesTheRetargetSetupOfTheNamedModelOnly) {
    const wchar_t* modelProperties[] = {L"RetargetAdjustPPG", L"ZUKStructure",   L"ZUKStructTag", L"ZUKMap",
                                        L"ZUKGlue",           L"PlotRetargetPPG"};
    std::vector<ORV::X3DObject> joints;
    for (ORV::Model m : {rig, other}) {
        for (const wchar_t* name : modelProperties) m.AddProperty(L"CustomProperty", false, name);
        ORV::Property blob;
        m.AddProperty(L"UserDataBlob", false, L"ZUKRetargetOp", blob);
        ORV::X3DObject joint = AddNull(m, L"Hips");
        joint.AddProperty(L"CustomProperty", false, L"ZUKTag");
        joint.AddProperty(L"CustomProperty", false, L"ZUKExtractionTag");
        joints.push_back(joint);
    }
    SetCommandLog(true);
    Exec(L"RemoveAllTrovoPropsAndOps", {rig.GetRef()});
    SetCommandLog(false);
    ExpectNoAnswer();
    for (const wchar_t* name : modelProperties) {
        EXPECT_FALSE(HasProperty(rig, name)) << ORV::CString(name).GetAsciiString();
        EXPECT_TRUE(HasProperty(other, name)) << ORV::CString(name).GetAsciiString();
    }
    EXPECT_FALSE(HasProperty(rig, L"ZUKRetargetOp"));
    EXPECT_TRUE(HasProperty(other, L"ZUKRetargetOp"));
    for (const wchar_t* tag : {L"ZUKTag", L"ZUKExtractionTag"}) {
        EXPECT_FALSE(HasProperty(joints[0], tag));
        EXPECT_TRUE(HasProperty(joints[1], tag));
    }
    // The removal is one step for the user: the host's command log saw none of its deletions.
    for (const auto& line : log)
        EXPECT_EQ(line.first.find(L"DeleteObj"), std::wstring::npos)
            << ORV::CString(line.first.c_str()).GetAsciiString();
    ORV::ProgressBar bar = ORV::Application().GetUIToolkit().GetProgressBar();
    EXPECT_EQ(bar.GetCaption(), ORV::CString(L"Removing TROVO setup data from model ...."));
    EXPECT_FALSE(bar.GetVisible());
}

TEST_F(CommandWiring, RemoveAllTrovoPropsAndOpsRestoresTheCommandLog) {
    for (bool before : {true, false}) {
        SetCommandLog(before);
        Exec(L"RemoveAllTrovoPropsAndOps", {rig.GetRef()});
        ORV::CValueArray args;
        args.Add(ORV::CString(L"preferences.scripting.cmdlog"));
        ORV::CValue now;
        Run(L"GetValue", args, now);
        EXPECT_EQ(static_cast<bool>(now), before);
    }
    SetCommandLog(false);
}

TEST_F(CommandWiring, RemoveTROVOOperatorsCallsCleanupRetargetOpWithTheModel) {
    // The adjustment property marks an installation; the named model's goes, the other's stays.
    for (ORV::Model m : {rig, other}) m.AddProperty(L"CustomProperty", false, L"RetargetAdjustPPG");
    Exec(L"RemoveTROVOOperators", {rig.GetRef()});
    ExpectNoAnswer();
    EXPECT_FALSE(HasProperty(rig, L"RetargetAdjustPPG"));
    EXPECT_TRUE(HasProperty(other, L"RetargetAdjustPPG"));
}

TEST_F(CommandWiring, PlotRetargetMotionPlotsWithItsSevenArgumentsInOrder) {
    // One flag on at a time, so that any exchange of two flags shows; each run on a fresh
    // tagged biped, checked by the keys it leaves.
    plottest::PlainBiped structures;
    auto keyTimes = [](const plottest::TaggedBiped& biped) {
        return plottest::KeyTimes(biped.Object(L"Hips"), L"posx");
    };

    // preserve: the source's keys (relative to the insertion frame 10) with the range's ends.
    plottest::TaggedBiped first;
    ASSERT_TRUE(first.Build(-10, 60, plottest::BipedMotion(), L"Biped"));
    AddCustomProperty(first.model, L"RetargetAdjustPPG");
    plottest::BoundOperator bound;
    bound.op.insertionFrame = 10;
    bound.SetTimings({{L"cog", {{0.0, 7.0, 19.0}, {}, {}, {}, {}, {}}}});
    bound.Bind(first.model);
    Exec(L"PlotRetargetMotion", {first.model.GetRef(), true, false, false, 4, 10, 50});
    ExpectNoAnswer();
    EXPECT_EQ(keyTimes(first), (std::vector<double>{10, 17, 29, 49}));
    // The plot ends by taking the retarget away: the panel property and the blob.
    EXPECT_FALSE(plottest::HasProperty(first.model, L"RetargetAdjustPPG"));
    EXPECT_FALSE(plottest::HasProperty(first.model, ZUK::RetargetOp::DATA_NAME));
    // Only the model named was plotted.
    EXPECT_TRUE(rig.GetAnimatedParameters().GetCount() == 0);

    // inflection: keys at the shape's features over [-5, 30): posx = 0.5 sin(2 pi f / 40) has
    // its maximum at 10 and its minimum at -10 and 30, outside the range.
    orvhost::ResetScene();
    plottest::TaggedBiped second;
    ASSERT_TRUE(second.Build(-10, 60, plottest::BipedMotion(), L"Biped"));
    Exec(L"PlotRetargetMotion", {second.model.GetRef(), false, true, false, 2, -5, 30});
    ExpectNoAnswer();
    const std::vector<double> shape = keyTimes(second);
    ASSERT_GE(shape.size(), 3u);
    EXPECT_EQ(shape.front(), -5.0);
    EXPECT_EQ(shape.back(), 29.0);
    EXPECT_NE(std::find(shape.begin(), shape.end(), 10.0), shape.end());
    EXPECT_LT(shape.size(), 10u);

    // interval: every 7th frame from 1, and the last frame, 8.
    orvhost::ResetScene();
    plottest::TaggedBiped third;
    ASSERT_TRUE(third.Build(-10, 60, plottest::BipedMotion(), L"Biped"));
    Exec(L"PlotRetargetMotion", {third.model.GetRef(), false, false, true, 7, 1, 9});
    ExpectNoAnswer();
    EXPECT_EQ(keyTimes(third), (std::vector<double>{1, 8}));
}

TEST_F(CommandWiring, SaveTROVOAdjustmentPresetFileCallsSavePresetWithModelAndFile) {
    Exec(L"SaveTROVOAdjustmentPresetFile", {rig.GetRef(), S(L"walk.adj")});
    EXPECT_EQ(log, Placeholder(L"SavePreset", L"Rig, \"walk.adj\""));
    ExpectNoAnswer();
}

TEST_F(CommandWiring, LoadTROVOAdjustmentPresetFileCallsLoadPresetAtTheCurrentTime) {
    ORV::Property playControl(ORV::Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    // A frame that a float cannot hold exactly: the time goes through as a double.
    playControl.PutParameterValue(L"Current", 17.3);
    Exec(L"LoadTROVOAdjustmentPresetFile", {rig.GetRef(), S(L"walk.adj")});
    EXPECT_EQ(log, Placeholder(L"LoadPreset", L"Rig, \"walk.adj\", 17.3"));
    ExpectNoAnswer();

    playControl.PutParameterValue(L"Current", -4.0);
    Exec(L"LoadTROVOAdjustmentPresetFile", {rig.GetRef(), S(L"run.adj")});
    EXPECT_EQ(log, Placeholder(L"LoadPreset", L"Rig, \"run.adj\", -4"));
    ExpectNoAnswer();
}

// ---- What a placeholder shows ---------------------------------------------------------------

TEST_F(CommandWiring, PlaceholderCallShowsEveryKindOfValueAsAScriptWouldReadIt) {
    ORV::X3DObject hips = AddNull(rig, L"Hips");
    orvhost::ClearLog();
    ZUK::logPlaceholderCall(L"Something", {hips.GetRef(), ORV::CRef(), S(L"a \"b\""), ORV::CValue("narrow"),
                                           true, false, -12, 0.1, 1e300, 2.5f, ORV::CValue()});
    ZUK::logPlaceholderCall(L"Nothing", {});
    const std::vector<orvhost::LogEntry> entries = Log();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].text,
              L"Something was called with (Rig.Hips, (no object), \"a \"b\"\", \"narrow\", true, "
              L"false, -12, 0.1, 1e+300, 2.5, (empty))");
    EXPECT_EQ(entries[0].severity, 8);
    EXPECT_EQ(entries[1].text, L"Nothing was called with ()");
    EXPECT_EQ(entries[1].severity, 8);
}

}  // namespace
