// The normalised motion file drivers, reached through their commands "SaveTrovoFile" and
// "LoadTrovoFile": every failure with its words and severity, the scene left as it was after
// one, the saved file's content checked against the rig's own forward kinematics, and files
// damaged in every way read without a crash.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "HostTesting.h"
#include "core/XMLFileStream.h"
#include "glue/GlueMap.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "shell/ShellTestSupport.h"
#include "support/BvhRigBuilder.h"

namespace {

using ORV::MATH::CMatrix3;
using ORV::MATH::CVector3;
using Lines = std::vector<std::pair<std::wstring, int>>;

const std::string kRun = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/09_06.bvh";
// The rig is keyed from every fifth frame of the clip, one key per scene frame 1 to kKeys.
const int kKeys = 8;
const int kClipStep = 5;
const double kRadToDeg = 57.29577951308232;

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void WriteAll(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

void KeyChannel(ORV::X3DObject object, const wchar_t* channel, double time, double value) {
    ORV::Parameter p = object.GetKinematics().GetLocal().GetParameter(channel);
    ORV::FCurve curve(p.GetSource());
    if (!curve.IsValid()) p.AddFCurve(ORV::ovStandardFCurve, curve);
    curve.AddKey(ORV::CTime(time), ORV::CValue(value));
}

// A scratch folder whose files go with it.
class Scratch {
public:
    Scratch() {
        char pattern[] = "/tmp/trovo_filedriver_XXXXXX";
        const char* made = mkdtemp(pattern);
        dir = made ? made : "/tmp";
    }
    ~Scratch() {
        for (const std::string& f : files) std::remove(f.c_str());
        rmdir(dir.c_str());
    }
    std::string File(const std::string& name) {
        files.push_back(dir + "/" + name);
        return files.back();
    }
    std::string dir;

private:
    std::vector<std::string> files;
};

class TrovoFileDriver : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(shelltest::LoadTrovoOnce(), L"");
        orvhost::ResetScene();
        orvhost::ClearAnswers();
        ORV::CValueArray args;
        args.Add(ORV::CString(L"preferences.scripting.cmdlog"));
        args.Add(false);
        ORV::CValue ignored;
        ORV::Application().ExecuteCommand(L"SetValue", args, ignored);
        std::string error;
        ASSERT_TRUE(bvhrig::ReadBvh(kRun, skel, &error)) << error;
        tagging = bvhrig::CmuMotionBuilderTagging();
        orvhost::ClearLog();
    }

    static ORV::CValue Exec(const wchar_t* command, std::initializer_list<ORV::CValue> arguments) {
        ORV::CValueArray args;
        for (const ORV::CValue& a : arguments) args.Add(a);
        ORV::CValue result;
        EXPECT_EQ(ORV::Application().ExecuteCommand(command, args, result), ORV::CStatus::OK);
        return result;
    }

    // Runs one of the two file commands on a clean log: its answer, a bool.
    bool Run(const wchar_t* command, std::initializer_list<ORV::CValue> arguments) {
        orvhost::ClearLog();
        orvhost::ClearAnswers();
        const ORV::CValue result = Exec(command, arguments);
        EXPECT_EQ(result.GetType(), ORV::ovBool) << modelmaptest::Narrow(std::wstring(command));
        return static_cast<bool>(result);
    }

    bool Save(ORV::Model model, const std::string& file, int start, int end) {
        return Run(L"SaveTrovoFile", {model.GetRef(), ORV::CString(file.c_str()), start, end});
    }
    bool Load(ORV::Model model, const std::string& file, int start = 1) {
        return Run(L"LoadTrovoFile", {model.GetRef(), ORV::CString(file.c_str()), start});
    }

    // Warnings and errors (severities 2 and 4), in order, compared whole; notes are looked for
    // one by one, as reading a stored structure writes a note per decomposition.
    static Lines Log() {
        Lines lines;
        for (const orvhost::LogEntry& e : orvhost::LogEntries())
            if (e.severity < 8) lines.emplace_back(e.text, e.severity);
        return lines;
    }

    static bool Noted(const std::wstring& text) {
        for (const orvhost::LogEntry& e : orvhost::LogEntries())
            if (e.severity == 8 && e.text == text) return true;
        return false;
    }

    // The texts of the message boxes shown since the last command.
    static std::vector<std::wstring> Boxes() {
        std::vector<std::wstring> texts;
        for (const auto& box : orvhost::MessageBoxes()) texts.push_back(box.text);
        return texts;
    }

    // A rig of nulls of the clip's skeleton, scaled by `scale`, not tagged.
    bvhrig::BvhRig Rig(const wchar_t* name, double scale = 1.0) {
        bvhrig::RigOptions options;
        options.scale = scale;
        bvhrig::BvhRig rig =
            bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, name, options);
        EXPECT_TRUE(rig.model.IsValid());
        return rig;
    }

    // The same, tagged on the factory biped through the tag commands, in its rest pose.
    bvhrig::BvhRig TaggedRig(const wchar_t* name, double scale = 1.0) {
        bvhrig::BvhRig rig = Rig(name, scale);
        EXPECT_TRUE(
            static_cast<bool>(Exec(L"SetStructureFile", {rig.model.GetRef(), ORV::CString(L"biped")})));
        for (const auto& pair : tagging)
            EXPECT_TRUE(
                static_cast<bool>(Exec(L"SetTagValue", {rig.model.GetRef(), ORV::CString(pair.first.c_str()),
                                                        ORV::CString(pair.second.c_str()), 1})));
        EXPECT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {rig.model.GetRef()})));
        EXPECT_TRUE(modelmaptest::FindProperty(rig.model, L"ZUKMap").IsValid());
        EXPECT_TRUE(modelmaptest::FindProperty(rig.model, L"ZUKGlue").IsValid());
        orvhost::ClearLog();
        return rig;
    }

    // Keys every joint at scene frames 1 to kKeys with the clip's frames 0, 5, 10 ...: the
    // local pose from the tests' own forward kinematics, in degrees and XYZ order.
    void KeyClip(const bvhrig::BvhRig& rig, int sceneStep = 1) {
        for (int k = 0; k < kKeys; ++k) {
            const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(skel, k * kClipStep);
            for (size_t j = 0; j < skel.joints.size(); ++j) {
                const int parent = skel.joints[j].parent;
                bvhrig::Mat3 rot = pose.rotation[j];
                bvhrig::Vec3 pos = pose.position[j];
                if (parent >= 0) {
                    bvhrig::Mat3 pt;
                    for (int a = 0; a < 3; ++a)
                        for (int b = 0; b < 3; ++b) pt[a][b] = pose.rotation[parent][b][a];
                    rot = bvhrig::Mul3(pt, pose.rotation[j]);
                    const bvhrig::Vec3 d{pos[0] - pose.position[parent][0], pos[1] - pose.position[parent][1],
                                         pos[2] - pose.position[parent][2]};
                    pos = bvhrig::Apply3(pt, d);
                }
                CMatrix3 row;
                for (int a = 0; a < 3; ++a)
                    for (int b = 0; b < 3; ++b) row.Set(a, b, rot[b][a]);
                const CVector3 angles = ORV::MATH::CRotation(row).GetXYZAngles();
                const double t = 1 + k * sceneStep;
                const ORV::X3DObject& object = rig.joints[j];
                KeyChannel(object, L"posx", t, pos[0]);
                KeyChannel(object, L"posy", t, pos[1]);
                KeyChannel(object, L"posz", t, pos[2]);
                KeyChannel(object, L"rotx", t, angles.GetX() * kRadToDeg);
                KeyChannel(object, L"roty", t, angles.GetY() * kRadToDeg);
                KeyChannel(object, L"rotz", t, angles.GetZ() * kRadToDeg);
            }
        }
    }

    // The motion stored on the model by a load, read from a copy of its blob so that no reader's
    // address is left in the scene; null when the model has none or it does not read.
    std::unique_ptr<ZUK::RetargetOp> StoredMotion(const ORV::Model& model) {
        const ORV::Property property = modelmaptest::FindProperty(model, ZUK::RetargetOp::DATA_NAME);
        if (!property.IsValid()) return nullptr;
        const unsigned char* bytes = nullptr;
        unsigned int size = 0;
        ORV::UserDataBlob(property.GetRef()).GetValue(bytes, size);
        blobCopies.emplace_back(bytes, bytes + size);
        std::unique_ptr<ZUK::RetargetOp> op(new ZUK::RetargetOp());
        if (!op->LoadMotionDataFromBuffer(blobCopies.back().data(), size)) return nullptr;
        return op;
    }

    // The whole scene as its file: what a failed command must leave exactly as it was.
    std::string Snapshot() {
        const std::string path = scratch.File("snapshot" + std::to_string(snapshots++) + ".orvscene");
        std::wstring error;
        EXPECT_TRUE(orvhost::SaveScene(path, error)) << modelmaptest::Narrow(error);
        return ReadAll(path);
    }

    // A file saved through the command from a keyed, tagged rig over scene frames 1 to kKeys.
    std::string SavedFile(const char* name = "walk.trovo") {
        if (!source.model.IsValid()) {
            source = TaggedRig(L"Source");
            KeyClip(source);
        }
        const std::string path = scratch.File(name);
        EXPECT_TRUE(Save(source.model, path, 1, kKeys));
        EXPECT_EQ(ReadAll(path).compare(0, 5, "<?xml"), 0);
        return path;
    }

    // The same motion in the text form, written through the map's own text writer.
    std::string SavedTextFile(const char* name = "walk_text.trovo") {
        if (!source.model.IsValid()) {
            source = TaggedRig(L"Source");
            KeyClip(source);
        }
        std::unique_ptr<ZUK::ModelStructure> structure(
            ZUK::ModelStructure::CreateFromCustomProperty(source.model));
        EXPECT_TRUE(structure);
        ZUK::ModelMap map(source.model, structure.get());
        map.LoadFromCustomProperty();
        EXPECT_TRUE(map.valid);
        const std::string path = scratch.File(name);
        EXPECT_TRUE(map.saveToFile(path.c_str(), 1, kKeys));
        orvhost::ClearLog();
        return path;
    }

    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging;
    bvhrig::BvhRig source;
    modelmaptest::FactoryData factory;
    Scratch scratch;
    int snapshots = 0;
    std::vector<std::vector<unsigned char>> blobCopies;
};

// ---- Saving -----------------------------------------------------------------------------------

TEST_F(TrovoFileDriver, SavingAModelWithoutStructureAlertsAndWritesNothing) {
    bvhrig::BvhRig rig = Rig(L"Bare");
    const std::string path = scratch.File("bare.trovo");
    EXPECT_FALSE(Save(rig.model, path, 1, 10));
    EXPECT_EQ(Log(), (Lines{{L"Cannot create structure.", 4}}));
    EXPECT_EQ(Boxes(), std::vector<std::wstring>{L"Cannot create structure."});
    EXPECT_FALSE(Exists(path));
}

TEST_F(TrovoFileDriver, SavingAModelWhoseMapIsGoneAlertsAndWritesNothing) {
    bvhrig::BvhRig rig = TaggedRig(L"Walker");
    ZUK::ModelMap::cleanup(rig.model);
    ASSERT_FALSE(modelmaptest::FindProperty(rig.model, L"ZUKMap").IsValid());
    const std::string path = scratch.File("nomap.trovo");
    EXPECT_FALSE(Save(rig.model, path, 1, 10));
    EXPECT_TRUE(Noted(L"ModelMap property not found"));
    EXPECT_EQ(Log(), (Lines{{L"Failed to read the map from the source model.", 4}}));
    EXPECT_EQ(Boxes(), std::vector<std::wstring>{L"Failed to read the map from the source model."});
    EXPECT_FALSE(Exists(path));
}

TEST_F(TrovoFileDriver, SavingReadsTheStructureBeforeTheMap) {
    // Neither is there: only the structure's words.
    ORV::Model empty;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Empty", empty);
    EXPECT_FALSE(Save(empty, scratch.File("empty.trovo"), 1, 2));
    EXPECT_EQ(Log(), (Lines{{L"Cannot create structure.", 4}}));
}

TEST_F(TrovoFileDriver, SavedFileIsTheXmlFormOfTheRangeAskedWithTheRigsPoses) {
    source = TaggedRig(L"Source");
    KeyClip(source);
    const std::string path = scratch.File("range.trovo");
    ASSERT_TRUE(Save(source.model, path, 3, 7));
    const std::string xml = ReadAll(path);
    ASSERT_EQ(xml.compare(0, 5, "<?xml"), 0);
    EXPECT_NE(xml.find("<AnimationLength>5</AnimationLength>"), std::string::npos);
    EXPECT_EQ(Count(xml, "<POSE "), 5u);
    EXPECT_NE(xml.find("<POSE time=\"3\">"), std::string::npos);
    EXPECT_NE(xml.find("<POSE time=\"7\">"), std::string::npos);
    EXPECT_EQ(xml.find("<POSE time=\"8\">"), std::string::npos);

    // The root and the feet stand where the clip puts them at each frame: normalising takes
    // the rig's axes out of the rotation, never the position.
    ZUK::ModelMap read;
    ASSERT_TRUE(read.loadMotionFromXMLFile(path.c_str()));
    ASSERT_EQ(read.numFrames, 5);
    const int numNodes = static_cast<int>(read.nodes.size());
    double worst = 0.0;
    for (const wchar_t* node : {L"cog", L"lfoot", L"rfoot", L"head"}) {
        int n = -1;
        for (int i = 0; i < numNodes; ++i)
            if (read.structure->nodes[i].Name == ORV::CString(node)) n = i;
        ASSERT_GE(n, 0);
        const int joint = skel.find(bvhrig::JointOf(tagging, node));
        ASSERT_GE(joint, 0);
        for (int f = 0; f < 5; ++f) {
            const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(skel, (2 + f) * kClipStep);
            const CVector3 p = read.motion[f * numNodes + n].GetTranslation();
            const CVector3 q(pose.position[joint][0], pose.position[joint][1], pose.position[joint][2]);
            worst = std::max(worst, (p - q).GetLength());
        }
    }
    EXPECT_LE(worst, 1e-9);
}

TEST_F(TrovoFileDriver, SavingToAFolderThatIsNotThereIsReportedYetAnswersThatTheMapWasRead) {
    source = TaggedRig(L"Source");
    const std::string path = scratch.dir + "/no/such/folder/x.trovo";
    EXPECT_TRUE(Save(source.model, path, 1, 2));
    EXPECT_FALSE(Exists(path));
    const std::wstring words = L"Could not write the Trovo file " + bvhrig::Widen(path) + L".";
    EXPECT_EQ(Log(), (Lines{{words, 4}}));
    EXPECT_EQ(Boxes(), std::vector<std::wstring>{words});
}

TEST_F(TrovoFileDriver, SavingOverAFileThatCannotBeWrittenIsReported) {
    source = TaggedRig(L"Source");
    // A folder where the file should be: nothing can be written under that name.
    const std::string path = scratch.dir + "/taken.trovo";
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    EXPECT_TRUE(Save(source.model, path, 1, 2));
    rmdir(path.c_str());
    EXPECT_EQ(Log(), (Lines{{L"Could not write the Trovo file " + bvhrig::Widen(path) + L".", 4}}));
}

TEST_F(TrovoFileDriver, SavingOverAnOlderFileReplacesItSilently) {
    source = TaggedRig(L"Source");
    KeyClip(source);
    const std::string path = scratch.File("older.trovo");
    WriteAll(path, "older content\n");
    EXPECT_TRUE(Save(source.model, path, 1, 3));
    EXPECT_EQ(Log(), Lines{});
    EXPECT_NE(ReadAll(path).find("<AnimationLength>3</AnimationLength>"), std::string::npos);
}

// ---- Loading: the target ----------------------------------------------------------------------

TEST_F(TrovoFileDriver, LoadingOntoAnUntaggedModelAlertsAndChangesNothing) {
    const std::string file = SavedFile();
    bvhrig::BvhRig target = Rig(L"Target");
    const std::string before = Snapshot();
    EXPECT_FALSE(Load(target.model, file));
    EXPECT_EQ(Log(), (Lines{{L"Failed to read destmodel map from source model.", 4}}));
    EXPECT_EQ(Boxes(), std::vector<std::wstring>{L"Failed to read destmodel map from source model."});
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(TrovoFileDriver, LoadingOntoAModelWhoseMapIsGoneAlertsAndChangesNothing) {
    const std::string file = SavedFile();
    bvhrig::BvhRig target = TaggedRig(L"Target");
    ZUK::ModelMap::cleanup(target.model);
    const std::string before = Snapshot();
    EXPECT_FALSE(Load(target.model, file));
    EXPECT_TRUE(Noted(L"ModelMap property not found"));
    EXPECT_EQ(Log(), (Lines{{L"Failed to read destmodel map from source model.", 4}}));
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(TrovoFileDriver, LoadingOntoAModelWithoutGlueStopsWithTheGluesWords) {
    const std::string file = SavedFile();
    bvhrig::BvhRig target = TaggedRig(L"Target");
    ZUK::GlueMap::cleanup(target.model);
    ASSERT_FALSE(modelmaptest::FindProperty(target.model, L"ZUKGlue").IsValid());
    const std::string before = Snapshot();
    EXPECT_FALSE(Load(target.model, file));
    EXPECT_TRUE(Noted(L"GlueMap data is outdated - please re-tag."));
    EXPECT_EQ(Log(), Lines{});
    EXPECT_EQ(Snapshot(), before);
}

// ---- Loading: the file ------------------------------------------------------------------------

TEST_F(TrovoFileDriver, MissingTextFileIsReportedAndTheLoadGoesOnToTheTarget) {
    bvhrig::BvhRig target = Rig(L"Target");
    const std::string missing = scratch.dir + "/missing.trovo";
    EXPECT_FALSE(Load(target.model, missing));
    EXPECT_EQ(Log(), (Lines{{L"Could not read the Trovo file " + bvhrig::Widen(missing) + L".", 4},
                            {L"Failed to read destmodel map from source model.", 4}}));
}

TEST_F(TrovoFileDriver, XmlDocumentOfAnotherKindIsRefusedBeforeTheTargetIsRead) {
    bvhrig::BvhRig target = Rig(L"Target");  // untagged: reading it would alert
    const std::string path = scratch.File("settings.trovo");
    WriteAll(path, "<?xml version=\"1.0\"?><settings><FILEPATHS TROVO_FILES=\"/tmp\"/></settings>\n");
    const std::string before = Snapshot();
    EXPECT_FALSE(Load(target.model, path));
    const Lines log = Log();
    ASSERT_FALSE(log.empty());
    for (const auto& line : log) EXPECT_NE(line.first, L"Failed to read destmodel map from source model.");
    EXPECT_NE(log.back().first.find(L"it has no HEADER"), std::wstring::npos);
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(TrovoFileDriver, XmlFileAnnouncingMoreThanItHoldsIsRefused) {
    bvhrig::BvhRig target = TaggedRig(L"Target");
    const std::string path = scratch.File("huge.trovo");
    WriteAll(path,
             "<?xml version=\"1.0\"?><ROOT><HEADER><VERSION>1</VERSION><AnimationLength>100000"
             "</AnimationLength><legLength>1</legLength><hipOffset>0</hipOffset><numNodes>100000</numNodes>"
             "<numPlanes>0</numPlanes><structure_type>biped</structure_type></HEADER></ROOT>");
    const std::string before = Snapshot();
    EXPECT_FALSE(Load(target.model, path));
    bool said = false;
    for (const auto& line : Log())
        said = said || line.first.find(L"announces more frames") != std::wstring::npos;
    EXPECT_TRUE(said);
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(TrovoFileDriver, XmlFileCutAtTenPointsIsRefusedWithTheStreamsWords) {
    const std::string whole = ReadAll(SavedFile());
    bvhrig::BvhRig target = TaggedRig(L"Target");
    const std::string before = Snapshot();
    for (int cut = 1; cut <= 10; ++cut) {
        const std::string path = scratch.File("cut" + std::to_string(cut) + ".trovo");
        WriteAll(path, whole.substr(0, whole.size() * cut / 11));
        EXPECT_FALSE(Load(target.model, path)) << cut;
        const Lines log = Log();
        ASSERT_FALSE(log.empty()) << cut;
        EXPECT_LE(log.back().second, 4) << cut;
    }
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(TrovoFileDriver, TextFileOfAnotherKindShowsItsFirstWordThenGoesOnToTheTarget) {
    bvhrig::BvhRig target = Rig(L"Target");
    const std::string path = scratch.File("notes.trovo");
    WriteAll(path, "Motion 12\nframes\n");
    EXPECT_FALSE(Load(target.model, path));
    EXPECT_TRUE(Noted(L"Motion"));
    EXPECT_EQ(Log(), (Lines{{L"Can't parse the Trovo file.", 4},
                            {L"Failed to read destmodel map from source model.", 4}}));
}

// ---- Loading: damaged files ----------------------------------------------------------------------

TEST_F(TrovoFileDriver, TextFileCutAtTenPointsIsReadAsFarAsItGoesNeverWithACrash) {
    const std::string whole = ReadAll(SavedTextFile());
    bvhrig::BvhRig target = TaggedRig(L"Target");
    for (int cut = 1; cut <= 10; ++cut) {
        const std::string path = scratch.File("textcut" + std::to_string(cut) + ".trovo");
        WriteAll(path, whole.substr(0, whole.size() * cut / 11));
        ZUK::RetargetOp::cleanupRetargetOp(target.model);
        const std::string before = Snapshot();
        if (Load(target.model, path)) {
            // What the file held plays; the frames it lost are not made up.
            std::unique_ptr<ZUK::RetargetOp> played = StoredMotion(target.model);
            ASSERT_TRUE(played) << cut;
            EXPECT_LE(played->numFrames, kKeys) << cut;
        } else {
            EXPECT_EQ(Snapshot(), before) << cut;
        }
    }
}

TEST_F(TrovoFileDriver, NodeCountBeyondTheNodesPresentIsRefusedOrReadNeverWithACrash) {
    bvhrig::BvhRig target = TaggedRig(L"Target");
    // Text: the count says 40 nodes where 23 follow; the rest of the file is read as nodes.
    std::string text = ReadAll(SavedTextFile());
    const size_t line = text.find(" biped");
    ASSERT_NE(line, std::string::npos);
    const size_t start = text.rfind('\n', line) + 1;
    text.replace(start, text.find(' ', start) - start, "40");
    const std::string textPath = scratch.File("morenodes_text.trovo");
    WriteAll(textPath, text);
    // XML: the header says 40 nodes where 23 "NODE" elements follow.
    std::string xml = ReadAll(SavedFile());
    const size_t at = xml.find("<numNodes>");
    ASSERT_NE(at, std::string::npos);
    xml.replace(at, xml.find("</numNodes>") - at, "<numNodes>40");
    const std::string xmlPath = scratch.File("morenodes.trovo");
    WriteAll(xmlPath, xml);
    for (const std::string& path : {textPath, xmlPath}) {
        ZUK::RetargetOp::cleanupRetargetOp(target.model);
        const std::string before = Snapshot();
        if (Load(target.model, path)) {
            std::unique_ptr<ZUK::RetargetOp> played = StoredMotion(target.model);
            ASSERT_TRUE(played) << path;
            EXPECT_LE(played->numFrames, kKeys) << path;
        } else {
            EXPECT_EQ(Snapshot(), before) << path;
        }
    }
}

TEST_F(TrovoFileDriver, RandomBytesAreRefusedOrReadNeverWithACrash) {
    bvhrig::BvhRig target = TaggedRig(L"Target");
    std::mt19937 random(1807);
    for (int round = 0; round < 12; ++round) {
        std::string bytes(32 + random() % 3000, '\0');
        for (char& c : bytes) c = static_cast<char>(random() & 0xff);
        // Half of them pass the first test of each reader.
        if (round % 3 == 1) bytes = "NormMotion5.0\n" + bytes;
        if (round % 3 == 2) bytes = "<?xml version=\"1.0\"?>" + bytes;
        const std::string path = scratch.File("random" + std::to_string(round) + ".trovo");
        WriteAll(path, bytes);
        ZUK::RetargetOp::cleanupRetargetOp(target.model);
        const std::string before = Snapshot();
        if (Load(target.model, path)) {
            std::unique_ptr<ZUK::RetargetOp> played = StoredMotion(target.model);
            ASSERT_TRUE(played) << round;
            EXPECT_LE(static_cast<size_t>(played->numFrames), bytes.size()) << round;
        } else {
            EXPECT_EQ(Snapshot(), before) << round;
            EXPECT_FALSE(Log().empty()) << round;
        }
    }
}

TEST_F(TrovoFileDriver, FileOfAnotherStructureIsRefusedWithTheTransfersWords) {
    std::string xml = ReadAll(SavedFile());
    const size_t at = xml.find("<structure_type>biped</structure_type>");
    ASSERT_NE(at, std::string::npos);
    xml.replace(at, 38, "<structure_type>quadruped</structure_type>");
    const std::string path = scratch.File("quadruped.trovo");
    WriteAll(path, xml);
    bvhrig::BvhRig target = TaggedRig(L"Target");
    const std::string before = Snapshot();
    EXPECT_FALSE(Load(target.model, path));
    EXPECT_EQ(Log(), (Lines{{L"The normalized motion must have the same type as the model structure.", 4}}));
    EXPECT_EQ(Snapshot(), before);
}

// ---- Loading: what a load installs --------------------------------------------------------------

TEST_F(TrovoFileDriver, BothFormsInstallTheFilesFramesFromTheStartGiven) {
    const std::string xml = SavedFile(), text = SavedTextFile();
    bvhrig::BvhRig target = TaggedRig(L"Target");
    for (const std::string& path : {xml, text}) {
        ZUK::RetargetOp::cleanupRetargetOp(target.model);
        EXPECT_TRUE(Load(target.model, path, 20)) << path;
        // Nothing to say about a good file; adjustments still waiting for their own work may
        // say so as the operators install.
        for (const auto& line : Log())
            EXPECT_NE(line.first.find(L" is not built yet"), std::wstring::npos)
                << modelmaptest::Narrow(line.first);
        std::unique_ptr<ZUK::RetargetOp> played = StoredMotion(target.model);
        ASSERT_TRUE(played) << path;
        EXPECT_EQ(played->numFrames, kKeys) << path;
        EXPECT_EQ(played->insertionFrame, 20) << path;
        // Every tagged object of the source carries curves, so each brings its key times along.
        EXPECT_EQ(played->keyTimingCount, static_cast<int>(tagging.size())) << path;
    }
}

TEST_F(TrovoFileDriver, KeyTimesOfASourceKeyedEveryFiveFramesReachTheBlob) {
    source = TaggedRig(L"Source");
    KeyClip(source, 5);  // keys at scene frames 1, 6, 11 ... 36
    const int end = 1 + 5 * (kKeys - 1);
    const std::string path = scratch.File("every5.trovo");
    ASSERT_TRUE(Save(source.model, path, 1, end));
    // Every tagged object carries six curves keyed at those frames: 0, 5, 10 ... from the start.
    std::vector<double> expected;
    for (int k = 0; k < kKeys; ++k) expected.push_back(5.0 * k);
    {
        ZUK::ModelMap saved;
        ASSERT_TRUE(saved.loadMotionFromXMLFile(path.c_str()));
        ASSERT_EQ(saved.numKeyTiming, static_cast<int>(tagging.size()));
        for (int c = 0; c < ZUK::NodeKeyTiming::NUM_CHANNELS; ++c) {
            std::vector<double> times;
            for (long j = 0; j < saved.keyTiming[0].times[c].GetCount(); ++j)
                times.push_back(saved.keyTiming[0].times[c][j]);
            EXPECT_EQ(times, expected) << c;
        }
    }
    bvhrig::BvhRig target = TaggedRig(L"Target");
    ASSERT_TRUE(Load(target.model, path, 1));
    std::unique_ptr<ZUK::RetargetOp> played = StoredMotion(target.model);
    ASSERT_TRUE(played);
    ASSERT_EQ(played->keyTimingCount, static_cast<int>(tagging.size()));
    std::vector<std::wstring> names;
    for (int k = 0; k < played->keyTimingCount; ++k) {
        const ZUK::NodeKeyTiming& timing = played->keyTimings[k];
        names.push_back(timing.name.GetWideString());
        for (int c = 0; c < ZUK::NodeKeyTiming::NUM_CHANNELS; ++c) {
            std::vector<double> times;
            for (long j = 0; j < timing.times[c].GetCount(); ++j) times.push_back(timing.times[c][j]);
            EXPECT_EQ(times, expected) << modelmaptest::Narrow(names.back()) << " " << c;
        }
    }
    std::vector<std::wstring> tags;
    for (const auto& pair : tagging) tags.push_back(pair.first);
    std::sort(names.begin(), names.end());
    std::sort(tags.begin(), tags.end());
    EXPECT_EQ(names, tags);
}

}  // namespace
