// Normalised motion files, text and XML: what a rig's motion map writes comes back from the
// file, key times are kept relative to the start frame, and damaged files are refused or read
// as far as they go, never with a crash. The rig is built from a CMU clip's skeleton, keyed
// from a few of its frames, and the expected poses are the map's own normalised globals read
// from the animated scene frame by frame.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/StructureTestSupport.h"
#include "core/XMLFileStream.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "mocap/TempFile.h"
#include "modelmap/ModelMap.h"
#include "panels/AdjustPPG.h"
#include "shell/Util.h"
#include "support/BvhRigBuilder.h"

namespace {

using ORV::MATH::CMatrix3;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using trovotest::TempFile;
using ZUK::ModelMap;
using ZUK::ModelStructure;

const std::string kWalk = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh";
const int kFirstFrame = 1;
const int kFrames = 6;
const int kClipStep = 10;

const double kRadToDeg = 57.29577951308232;

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string Narrow(const ORV::CString& s) { return std::string(s.GetAsciiString()); }

// Whether a log entry with exactly this text and severity was written.
bool Logged(const std::wstring& text, int severity) {
    for (const auto& e : orvhost::LogEntries())
        if (e.text == text && e.severity == severity) return true;
    return false;
}

// Index of the first entry with this text and severity; -1 when none.
int LogIndex(const std::wstring& text, int severity) {
    const auto& entries = orvhost::LogEntries();
    for (size_t i = 0; i < entries.size(); ++i)
        if (entries[i].text == text && entries[i].severity == severity) return static_cast<int>(i);
    return -1;
}

double MaxRotationDifference(const CTransformation& a, const CTransformation& b) {
    const CMatrix3 ma = a.GetRotationMatrix3(), mb = b.GetRotationMatrix3();
    double worst = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) worst = std::max(worst, std::fabs(ma.Get(i, j) - mb.Get(i, j)));
    return worst;
}

double TranslationDifference(const CTransformation& a, const CTransformation& b) {
    return (a.GetTranslation() - b.GetTranslation()).GetLength();
}

void KeyChannel(ORV::X3DObject object, const wchar_t* channel, double time, double value) {
    ORV::Parameter p = object.GetKinematics().GetLocal().GetParameter(channel);
    ORV::FCurve curve(p.GetSource());
    if (!curve.IsValid()) p.AddFCurve(ORV::ovStandardFCurve, curve);
    curve.AddKey(ORV::CTime(time), ORV::CValue(value));
}

// Reads either form into `read`.
bool XmlOrText(const TempFile& file, ModelMap& read) {
    return ReadAll(file.Narrow()).compare(0, 5, "<?xml") == 0 ? read.loadMotionFromXMLFile(file.Path())
                                                              : read.CreateFromFile(file.Path());
}

// A rig of nulls made from the clip's skeleton, tagged with the biped structure, measured, and
// keyed at frames 1 to 6 with every tenth pose of the clip.
class NormMotionRig : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::NewScene();
        char user[] = "/tmp/trovo_normmotion_user_XXXXXX";
        ASSERT_NE(mkdtemp(user), nullptr);
        userDir = user;
        structtest::UseLocations(userDir, TROVO_FACTORY_DATA);
        std::string error;
        ASSERT_TRUE(bvhrig::ReadBvh(kWalk, skel, &error)) << error;
        tagging = bvhrig::CmuMotionBuilderTagging();
        rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, L"walker");
        ASSERT_TRUE(rig.model.IsValid());
        structure.reset(ModelStructure::CreateFromFile(L"biped"));
        ASSERT_TRUE(structure);
        ASSERT_TRUE(bvhrig::TagRigByProperties(rig.model, *structure, tagging));
        map.reset(new ModelMap(rig.model, structure.get()));
        map->createMap();
        KeyClip();
    }

    void TearDown() override {
        for (const std::string& p : scratch) std::remove(p.c_str());
        rmdir(userDir.c_str());
    }

    // Local pose of every joint from the tests' own forward kinematics, keyed in the host's
    // units (degrees, XYZ order).
    void KeyClip() {
        for (int k = 0; k < kFrames; ++k) {
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
                ORV::X3DObject object = rig.joints[j];
                const double t = kFirstFrame + k;
                KeyChannel(object, L"posx", t, pos[0]);
                KeyChannel(object, L"posy", t, pos[1]);
                KeyChannel(object, L"posz", t, pos[2]);
                KeyChannel(object, L"rotx", t, angles.GetX() * kRadToDeg);
                KeyChannel(object, L"roty", t, angles.GetY() * kRadToDeg);
                KeyChannel(object, L"rotz", t, angles.GetZ() * kRadToDeg);
            }
        }
    }

    // The normalised pose of every node at every frame, read from the scene through the map.
    std::vector<CTransformation> ExpectedMotion(int start, int end) {
        std::vector<CTransformation> out;
        ORV::Property playControl(
            ORV::Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
        for (int f = start; f <= end; ++f) {
            playControl.PutParameterValue(L"Current", ORV::CValue(f));
            ZUK::Util::ForceGlobalEvaluationOnAllNodes(rig.model);
            map->CopyTransformsToNodeMap(f, true);
            map->addRotationOffsets(true);
            for (const auto& n : map->nodes) out.push_back(n.global);
        }
        return out;
    }

    std::string ScratchPath(const char* suffix) {
        char name[] = "/tmp/trovo_normmotion_XXXXXX";
        const int fd = mkstemp(name);
        close(fd);
        std::remove(name);
        scratch.push_back(std::string(name) + suffix);
        return scratch.back();
    }

    int NodeIndex(const wchar_t* name) const { return structure->nodeIndex(name); }

    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging;
    bvhrig::BvhRig rig;
    std::unique_ptr<ModelStructure> structure;
    std::unique_ptr<ModelMap> map;
    std::vector<std::string> scratch;
    std::string userDir;
};

TEST_F(NormMotionRig, KeyedRigPlaysTheClipPoses) {
    // The keyed rig stands where the clip's own forward kinematics puts it.
    const int hips = skel.find(L"Hips");
    ASSERT_GE(hips, 0);
    ORV::Property playControl(ORV::Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    for (int k = 0; k < kFrames; ++k) {
        playControl.PutParameterValue(L"Current", ORV::CValue(kFirstFrame + k));
        ZUK::Util::ForceGlobalEvaluationOnAllNodes(rig.model);
        const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(skel, k * kClipStep);
        for (size_t j = 0; j < skel.joints.size(); ++j) {
            const CVector3 t = rig.joints[j].GetKinematics().GetGlobal().GetTransform().GetTranslation();
            EXPECT_NEAR(t.GetX(), pose.position[j][0], 1e-9);
            EXPECT_NEAR(t.GetY(), pose.position[j][1], 1e-9);
            EXPECT_NEAR(t.GetZ(), pose.position[j][2], 1e-9);
        }
    }
}

void ExpectSameHeader(const ModelMap& written, const ModelStructure& s, const ModelMap& read) {
    EXPECT_EQ(read.legLength, written.legLength);
    EXPECT_EQ(read.hipOffset, written.hipOffset);
    ASSERT_TRUE(read.structure);
    EXPECT_TRUE(read.ownsStructure);
    EXPECT_EQ(Narrow(read.structure->Type), Narrow(s.Type));
    ASSERT_EQ(read.structure->numNodes, s.numNodes);
    ASSERT_EQ(read.structure->numPlanes, s.numPlanes);
    ASSERT_EQ(read.nodes.size(), written.nodes.size());
    for (int i = 0; i < s.numNodes; ++i) {
        EXPECT_EQ(Narrow(read.structure->nodes[i].Name), Narrow(s.nodes[i].Name));
        EXPECT_EQ(read.structure->nodes[i].objIsValid, written.nodes[i].object.IsValid()) << i;
        EXPECT_EQ(read.nodes[i].length, written.nodes[i].length) << i;
    }
    for (int p = 0; p < s.numPlanes; ++p) {
        EXPECT_EQ(Narrow(read.structure->planes[p].Name), Narrow(s.planes[p].Name));
        EXPECT_EQ(read.structure->planes[p].Span, s.planes[p].Span);
        EXPECT_EQ(read.structure->planes[p].Mid, s.planes[p].Mid);
        EXPECT_EQ(read.structure->planes[p].AnchorIndex, s.planes[p].AnchorIndex);
        ASSERT_EQ(read.structure->planes[p].bones.GetCount(), s.planes[p].bones.GetCount());
        for (long k = 0; k < s.planes[p].bones.GetCount(); ++k)
            EXPECT_EQ(read.structure->planes[p].bones[k], s.planes[p].bones[k]);
    }
}

struct MotionErrors {
    double translation = 0.0, rotation = 0.0;
};

MotionErrors CompareMotion(const ModelMap& read, const std::vector<CTransformation>& expected) {
    MotionErrors e;
    for (size_t k = 0; k < expected.size(); ++k) {
        e.translation = std::max(e.translation, TranslationDifference(read.motion[k], expected[k]));
        e.rotation = std::max(e.rotation, MaxRotationDifference(read.motion[k], expected[k]));
    }
    return e;
}

// The clip's key times relative to the start frame: every frame of the range.
void ExpectEveryFrameKeyed(const ModelMap& read, const ModelMap& written, const ModelStructure& s) {
    int keyed = 0;
    for (const auto& n : written.nodes) keyed += n.object.IsValid() ? 1 : 0;
    ASSERT_EQ(read.numKeyTiming, keyed);
    ASSERT_NE(read.keyTiming, nullptr);
    for (int k = 0; k < read.numKeyTiming; ++k) {
        EXPECT_GE(s.nodeIndex(read.keyTiming[k].name), 0);
        for (int c = 0; c < ZUK::NodeKeyTiming::NUM_CHANNELS; ++c) {
            const ORV::CDoubleArray& times = read.keyTiming[k].times[c];
            ASSERT_EQ(times.GetCount(), kFrames) << k << " " << c;
            for (int f = 0; f < kFrames; ++f) EXPECT_EQ(times[f], static_cast<double>(f));
        }
    }
}

TEST_F(NormMotionRig, TextFileGivesBackEveryValueWritten) {
    const std::string path = ScratchPath(".trovo");
    const int end = kFirstFrame + kFrames - 1;
    ASSERT_TRUE(map->saveToFile(path.c_str(), kFirstFrame, end));
    const std::vector<CTransformation> expected = ExpectedMotion(kFirstFrame, end);

    ModelMap read;
    ASSERT_TRUE(read.CreateFromFile(path.c_str()));
    EXPECT_EQ(read.numFrames, kFrames);
    ExpectSameHeader(*map, *structure, read);
    ASSERT_NE(read.motion, nullptr);
    const MotionErrors e = CompareMotion(read, expected);
    EXPECT_LE(e.translation, 1e-12);
    EXPECT_LE(e.rotation, 1e-12);
    ExpectEveryFrameKeyed(read, *map, *structure);
}

TEST_F(NormMotionRig, XmlFileGivesBackEveryValueWithinItsNumberText) {
    const std::string path = ScratchPath(".trovo");
    const int end = kFirstFrame + kFrames - 1;
    ASSERT_TRUE(map->saveMotionToXMLFile(path.c_str(), kFirstFrame, end));
    ASSERT_EQ(ReadAll(path).substr(0, 5), "<?xml");
    const std::vector<CTransformation> expected = ExpectedMotion(kFirstFrame, end);

    ModelMap read;
    ASSERT_TRUE(read.loadMotionFromXMLFile(path.c_str()));
    EXPECT_EQ(read.numFrames, kFrames);
    ExpectSameHeader(*map, *structure, read);
    ASSERT_NE(read.motion, nullptr);
    const MotionErrors e = CompareMotion(read, expected);
    // Shortest round-trip number text; the rotation passes through axis and angle.
    EXPECT_LE(e.translation, 1e-12);
    EXPECT_LE(e.rotation, 1e-12);
    std::printf("XML round trip: translation %.3g, rotation matrix entries %.3g\n", e.translation,
                e.rotation);
    ExpectEveryFrameKeyed(read, *map, *structure);
}

TEST_F(NormMotionRig, XmlFileSpellsEveryElementAndAttribute) {
    const std::string path = ScratchPath(".trovo");
    ASSERT_TRUE(map->saveMotionToXMLFile(path.c_str(), 1, 2));
    const std::string xml = ReadAll(path);
    EXPECT_NE(xml.find("<HEADER>\n    <!--TROVO file Saved out from Orvane using TROVO-->"),
              std::string::npos);
    for (const char* part : {"<VERSION>",
                             "<AnimationLength>2</AnimationLength>",
                             "<legLength>",
                             "<hipOffset>",
                             "<numNodes>23</numNodes>",
                             "<numPlanes>",
                             "<structure_type>biped</structure_type>",
                             "<NODES>",
                             "obj_IsValid=\"true\"",
                             "length=\"",
                             "<PLANES>",
                             "anchor_index=\"",
                             "numbones=\"",
                             "<Bone boneindex=\"",
                             "<POSE_VALUES>",
                             "<POSE time=\"1\">",
                             "<POSE time=\"2\">",
                             "global=\"",
                             "id=\"22\"",
                             "name=\"Hips\"",
                             "<FCURVE_KEYS num_nodes_with_fcurve_keys=\"",
                             "<CURVE name=\"rotz\" numkeys=\"2\">",
                             "<KEY keytime=\"1\"/>"})
        EXPECT_NE(xml.find(part), std::string::npos) << part;
}

TEST_F(NormMotionRig, MapElementsCarryItsMeasures) {
    const std::string path = ScratchPath(".xml");
    {
        XMLFileStream stream(path.c_str(), false, true);
        map->WriteToXMLStream(stream);
    }
    const std::string xml = ReadAll(path);
    for (const char* part :
         {"<MODEL_MAP", "structure_source=\"biped\"", "structure_type=\"biped\"", "hipOffset=\"",
          "legLength=\"", "<NODES num_nodes=\"23\">", "<NODE length=\"", "rot=\"", "name=\"cog\""})
        EXPECT_NE(xml.find(part), std::string::npos) << part;
    // No node of this rig has an extraction object.
    EXPECT_EQ(xml.find("EXTRACTION_NODE"), std::string::npos);
}

TEST_F(NormMotionRig, EitherFormLoadsThroughTheMotionMapEntry) {
    const std::string text = ScratchPath(".trovo"), xml = ScratchPath(".trovo");
    ASSERT_TRUE(map->saveToFile(text.c_str(), 1, 3));
    ASSERT_TRUE(map->saveMotionToXMLFile(xml.c_str(), 1, 3));
    std::unique_ptr<ModelMap> a(ModelMap::CreateMotionMapFromFile(text.c_str()));
    std::unique_ptr<ModelMap> b(ModelMap::CreateMotionMapFromFile(xml.c_str()));
    ASSERT_TRUE(a && b);
    EXPECT_EQ(a->numFrames, 3);
    EXPECT_EQ(b->numFrames, 3);
    for (size_t k = 0; k < 3 * a->nodes.size(); ++k) {
        EXPECT_LE(TranslationDifference(a->motion[k], b->motion[k]), 1e-12);
        EXPECT_LE(MaxRotationDifference(a->motion[k], b->motion[k]), 1e-12);
    }
    EXPECT_EQ(ModelMap::CreateMotionMapFromFile("/nonexistent/motion.trovo"), nullptr);
}

TEST_F(NormMotionRig, TextFileLayoutIsLineByLine) {
    const std::string path = ScratchPath(".trovo");
    ASSERT_TRUE(map->saveToFile(path.c_str(), 2, 4));
    std::istringstream in(ReadAll(path));
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "NormMotion5.0");
    std::getline(in, line);
    EXPECT_EQ(line, "3 ");
    std::getline(in, line);  // legLength
    EXPECT_DOUBLE_EQ(std::stod(line), map->legLength);
    std::getline(in, line);  // hipOffset
    std::getline(in, line);
    EXPECT_EQ(line, std::to_string(structure->numNodes) + " " + std::to_string(structure->numPlanes) + " " +
                        Narrow(structure->Type));
    std::getline(in, line);
    EXPECT_EQ(line.substr(0, 2), map->nodes[0].object.IsValid() ? "v " : "i ");
    EXPECT_EQ(line.substr(2, line.find(' ', 2) - 2), Narrow(structure->nodes[0].Name));
}

TEST_F(NormMotionRig, TextFileOfAnotherKindLogsItsFirstWordThenRefuses) {
    TempFile file("MotionFile9.9\n3\n", ".trovo");
    orvhost::ClearLog();
    ModelMap read;
    EXPECT_FALSE(read.CreateFromFile(file.Path()));
    const int word = LogIndex(L"MotionFile9.9", 8);
    const int refusal = LogIndex(L"Can't parse the Trovo file.", 4);
    ASSERT_GE(word, 0);
    ASSERT_GE(refusal, 0);
    EXPECT_LT(word, refusal);
    EXPECT_EQ(read.motion, nullptr);
    EXPECT_EQ(read.structure, nullptr);
}

TEST_F(NormMotionRig, CaptureMapIsNotSavedInEitherForm) {
    std::unique_ptr<ZUK::MocapData> mocap(ZUK::BvImport::extractMocapData(kWalk.c_str(), ZUK::YUp));
    ASSERT_TRUE(mocap);
    ModelMap capture(mocap.get(), structure.get());
    const std::string text = ScratchPath(".trovo"), xml = ScratchPath(".trovo");
    orvhost::ClearLog();
    EXPECT_FALSE(capture.saveToFile(text.c_str(), 1, 3));
    EXPECT_TRUE(Logged(L"Normalized motion must originate from a rig.", 4));
    orvhost::ClearLog();
    EXPECT_FALSE(capture.saveMotionToXMLFile(xml.c_str(), 1, 3));
    EXPECT_TRUE(Logged(L"Normalized motion must originate from a rig.", 4));
    EXPECT_TRUE(ReadAll(text).empty());
    EXPECT_TRUE(ReadAll(xml).empty());
}

TEST_F(NormMotionRig, MotionMapIsNotSavedAgain) {
    const std::string first = ScratchPath(".trovo"), second = ScratchPath(".trovo");
    ASSERT_TRUE(map->saveToFile(first.c_str(), 1, 2));
    ModelMap read;
    ASSERT_TRUE(read.CreateFromFile(first.c_str()));
    orvhost::ClearLog();
    EXPECT_FALSE(read.saveToFile(second.c_str(), 1, 2));
    EXPECT_TRUE(Logged(L"Normalized motion must originate from a rig.", 4));
}

TEST_F(NormMotionRig, ModelWithoutMapPropertyWritesPosesAsTheyAre) {
    // No "ZUKMap" on the model: no stretch scan, no lift, limbs as they are.
    ORV::Property p;
    ASSERT_FALSE(ZUK::Util::findCustomPSet(rig.model, ModelMap::PROPERTY_NAME, p));
    const std::string path = ScratchPath(".trovo");
    // A shortened shin bends the leg further than measured; untouched without the property.
    const int shin = skel.find(L"LeftLeg");
    ASSERT_GE(shin, 0);
    KeyChannel(rig.joints[skel.find(L"LeftFoot")], L"posy", 3, -20.0);
    ASSERT_TRUE(map->saveToFile(path.c_str(), 1, 6));
    const std::vector<CTransformation> expected = ExpectedMotion(1, 6);
    ModelMap read;
    ASSERT_TRUE(read.CreateFromFile(path.c_str()));
    const MotionErrors e = CompareMotion(read, expected);
    EXPECT_LE(e.translation, 1e-12);
}

TEST_F(NormMotionRig, MeasuredModelLiftsBodyForShortenedLegsAndKeepsFeetDown) {
    map->SaveToCustomProperty();
    // Both shins shortened by a tenth at every frame: the legs are bent further than measured,
    // so at the frame where an anchor stands highest the body must rise.
    for (const wchar_t* name : {L"LeftFoot", L"RightFoot"}) {
        ORV::X3DObject foot = rig.joints[skel.find(name)];
        ORV::FCurve curve(foot.GetKinematics().GetLocal().GetParameter(L"posy").GetSource());
        ASSERT_TRUE(curve.IsValid());
        for (int f = 1; f <= 6; ++f) {
            const double y = static_cast<double>(curve.Eval(ORV::CTime(f)));
            curve.AddKey(ORV::CTime(f), ORV::CValue(0.9 * y));
        }
    }
    const std::string path = ScratchPath(".trovo");
    ASSERT_TRUE(map->saveToFile(path.c_str(), 1, 6));
    ModelMap read;
    ASSERT_TRUE(read.CreateFromFile(path.c_str()));
    const std::vector<CTransformation> plain = ExpectedMotion(1, 6);

    // The independent reckoning: per frame, for each limb, its path length and the height of its
    // anchor above its end; the frame where an anchor stands highest decides the lift.
    const int numNodes = structure->numNodes;
    double best = 0.0, lift = 0.0;
    for (int f = 0; f < 6; ++f) {
        for (int p = 0; p < structure->numPlanes; ++p) {
            const ModelStructure::Plane& plane = structure->planes[p];
            double sum = 0.0;
            for (long k = 1; k < plane.bones.GetCount(); ++k)
                sum += (plain[f * numNodes + plane.bones[k - 1]].GetTranslation() -
                        plain[f * numNodes + plane.bones[k]].GetTranslation())
                           .GetLength();
            const CVector3 d = plain[f * numNodes + plane.Span].GetTranslation() -
                               plain[f * numNodes + plane.AnchorIndex].GetTranslation();
            const double h = -d.GetY();
            const double len = map->nodes[plane.Span].length;
            double h2 = 0.0;
            if (0.99 * len > sum && structure->nodes[plane.Span].Friction &&
                ModelMap::InheritsTranslationFromCOG(map.get(), plane.Span))
                h2 = -(d.GetY() * 0.99 * len / sum);
            if (h > best) {
                best = h;
                lift = h2 > h ? h2 - h : 0.0;
            }
        }
    }
    EXPECT_GT(lift, 0.0);  // the bent leg's frame is the highest anchor
    const int cog = NodeIndex(L"cog"), lfoot = NodeIndex(L"lfoot");
    ASSERT_GE(cog, 0);
    ASSERT_GE(lfoot, 0);
    for (int f = 0; f < 6; ++f) {
        // The body rises by the lift; a grounded foot stays.
        EXPECT_NEAR(read.motion[f * numNodes + cog].GetTranslation().GetY(),
                    plain[f * numNodes + cog].GetTranslation().GetY() + lift, 1e-9);
        EXPECT_NEAR(read.motion[f * numNodes + lfoot].GetTranslation().GetY(),
                    plain[f * numNodes + lfoot].GetTranslation().GetY(), 1e-9);
    }
}

TEST_F(NormMotionRig, RetargetedModelStoresNoKeyTiming) {
    ORV::CustomProperty adjust(
        rig.model.AddProperty(L"CustomProperty", false, ZUK::AdjustPPG::PROPERTY_NAME).GetRef());
    ASSERT_TRUE(adjust.IsValid());
    const std::string text = ScratchPath(".trovo"), xml = ScratchPath(".trovo");
    ASSERT_TRUE(map->saveToFile(text.c_str(), 1, 6));
    ASSERT_TRUE(map->saveMotionToXMLFile(xml.c_str(), 1, 6));
    const std::string content = ReadAll(text);
    EXPECT_EQ(content.substr(content.size() - 3), "0 \n");
    EXPECT_NE(ReadAll(xml).find("num_nodes_with_fcurve_keys=\"0\""), std::string::npos);
    ModelMap a, b;
    ASSERT_TRUE(a.CreateFromFile(text.c_str()));
    ASSERT_TRUE(b.loadMotionFromXMLFile(xml.c_str()));
    // numKeyTiming 0 leaves keyTiming null in both forms.
    EXPECT_EQ(a.numKeyTiming, 0);
    EXPECT_EQ(a.keyTiming, nullptr);
    EXPECT_EQ(b.numKeyTiming, 0);
    EXPECT_EQ(b.keyTiming, nullptr);
}

// Key times of one curve of the hips, written over a range, read back.
class KeyTimingRange : public NormMotionRig {
protected:
    // Keys at 5, 10, 15, 20 on the hips' posx; every other curve of the hips removed.
    void KeyEveryFifthFrame() {
        hips = rig.joints[skel.find(L"Hips")];
        for (const wchar_t* c : ZUK::NodeKeyTiming::CHANNEL_NAMES) {
            ORV::FCurve curve(hips.GetKinematics().GetLocal().GetParameter(c).GetSource());
            curve.RemoveKeys();
            if (std::wstring(c) == L"posx")
                for (int t = 5; t <= 20; t += 5) curve.AddKey(ORV::CTime(t), ORV::CValue(1.0 * t));
        }
    }
    std::vector<double> TimesText(int start, int end) {
        const std::string path = ScratchPath(".trovo");
        EXPECT_TRUE(map->saveToFile(path.c_str(), start, end));
        ModelMap read;
        EXPECT_TRUE(read.CreateFromFile(path.c_str()));
        return Times(read);
    }
    std::vector<double> TimesXml(int start, int end) {
        const std::string path = ScratchPath(".trovo");
        EXPECT_TRUE(map->saveMotionToXMLFile(path.c_str(), start, end));
        xmlText = ReadAll(path);
        ModelMap read;
        EXPECT_TRUE(read.loadMotionFromXMLFile(path.c_str()));
        return Times(read);
    }
    std::vector<double> Times(const ModelMap& read) {
        for (int k = 0; k < read.numKeyTiming; ++k)
            if (std::wstring(read.keyTiming[k].name.GetWideString()) == L"cog") {
                std::vector<double> out;
                for (long j = 0; j < read.keyTiming[k].times[0].GetCount(); ++j)
                    out.push_back(read.keyTiming[k].times[0][j]);
                return out;
            }
        return {-1.0};
    }
    ORV::X3DObject hips;
    std::string xmlText;
};

TEST_F(KeyTimingRange, KeysInsideAreRelativeToStartWithLeadingZeroAndClosingValue) {
    KeyEveryFifthFrame();
    const std::vector<double> expected{0, 2, 7, 9};  // 3..12: 0 added, 5, 10, then closing 12
    EXPECT_EQ(TimesText(3, 12), expected);
    EXPECT_EQ(TimesXml(3, 12), expected);
}

TEST_F(KeyTimingRange, KeyExactlyAtEndIsInsideAndNotRepeated) {
    KeyEveryFifthFrame();
    // The key at 15 is inside; the key at 20 follows a key that is not below the end, so no
    // closing value repeats it.
    const std::vector<double> expected{0, 5, 10};
    EXPECT_EQ(TimesText(5, 15), expected);
    EXPECT_EQ(TimesXml(5, 15), expected);
}

TEST_F(KeyTimingRange, CurveWithFirstKeyAboveEndHasNoKeys) {
    KeyEveryFifthFrame();
    EXPECT_EQ(TimesXml(1, 3), std::vector<double>{});
    EXPECT_NE(xmlText.find("<CURVE name=\"posx\" numkeys=\"0\"/>"), std::string::npos);
    EXPECT_EQ(TimesText(1, 3), std::vector<double>{});
}

TEST_F(KeyTimingRange, CurveWithKeysBeforeStartKeepsReaderInStep) {
    KeyEveryFifthFrame();
    // The first key lies before the range: the curve stores nothing, and the entries after it
    // are still read under their own names.
    const std::string path = ScratchPath(".trovo");
    ASSERT_TRUE(map->saveToFile(path.c_str(), 7, 12));
    ModelMap read;
    ASSERT_TRUE(read.CreateFromFile(path.c_str()));
    EXPECT_EQ(Times(read), std::vector<double>{});
    for (int k = 0; k < read.numKeyTiming; ++k)
        if (std::wstring(read.keyTiming[k].name.GetWideString()) != L"cog") {
            EXPECT_EQ(read.keyTiming[k].times[0].GetCount(), 0) << k;  // frames 1..6 lie before 7
        }
}

TEST(NormMotionUpVector, KeyedUpVectorOfAChainLimbIsStoredUnderThePlaneName) {
    orvhost::NewScene();
    char user[] = "/tmp/trovo_normmotion_user_XXXXXX";
    ASSERT_NE(mkdtemp(user), nullptr);
    structtest::UseLocations(user, TROVO_FACTORY_DATA);
    bvhrig::Skeleton skel;
    ASSERT_TRUE(bvhrig::ReadBvh(kWalk, skel));
    const bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
    bvhrig::RigOptions options;
    bvhrig::BipedLimbs(tagging, options);
    options.ikLegs = true;
    bvhrig::BvhRig rig =
        bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, L"ikwalker", options);
    ASSERT_TRUE(rig.model.IsValid());
    ASSERT_EQ(rig.ikLimbs.size(), 2u);
    std::unique_ptr<ModelStructure> structure(ModelStructure::CreateFromFile(L"biped"));
    ASSERT_TRUE(structure);
    ASSERT_TRUE(bvhrig::TagRigByProperties(rig.model, *structure, tagging));
    ModelMap map(rig.model, structure.get());
    map.createMap();
    // Only the left leg's up-vector object carries keys.
    KeyChannel(rig.ikLimbs[0].upVector, L"posz", 2, 1.0);
    KeyChannel(rig.ikLimbs[0].upVector, L"posz", 4, 3.0);
    TempFile text("", ".trovo"), xml("", ".trovo");
    ASSERT_TRUE(map.saveToFile(text.Path(), 1, 5));
    ASSERT_TRUE(map.saveMotionToXMLFile(xml.Path(), 1, 5));
    const int lshin = structure->nodeIndex(L"lshin");
    int plane = -1;
    for (int p = 0; p < structure->numPlanes; ++p)
        if (structure->planes[p].Mid == lshin) plane = p;
    ASSERT_GE(plane, 0);
    const std::wstring expectedName =
        std::wstring(structure->planes[plane].Name.GetWideString()) + ModelMap::UPVECTORTAG;
    for (const TempFile* file : {&text, &xml}) {
        ModelMap read;
        ASSERT_TRUE(XmlOrText(*file, read));
        ASSERT_EQ(read.numKeyTiming, 1);
        EXPECT_EQ(std::wstring(read.keyTiming[0].name.GetWideString()), expectedName);
        const ORV::CDoubleArray& z = read.keyTiming[0].times[2];
        // 0 before the first key, then 1 and 3; no key lies beyond the range, so no closing value.
        ASSERT_EQ(z.GetCount(), 3);
        EXPECT_EQ(z[0], 0.0);
        EXPECT_EQ(z[1], 1.0);
        EXPECT_EQ(z[2], 3.0);
    }
    rmdir(user);
}

// ---- Hand-written files ---------------------------------------------------------------------

const char* kSmallText =
    "NormMotion5.0\n"
    "2 \n"
    "90 \n"
    "5 \n"
    "2 1 biped\n"
    "v cog 0 \n"
    "v lfoot 45.5 \n"
    "leg\n"
    "1 0 0 2 \n"
    "1 \n"
    "0 \n"
    "0 0 0 1 2 3 0 0 0 4 5 6 \n"
    "0 0 0 7 8 9 0 0 0 10 11 12 \n"
    "2 \n"
    "cog\n"
    "posx 2 \n"
    "0 4 \n"
    "posx\n"
    "roty 1 \n"
    "3 \n";

TEST(NormMotionText, NodeNamedLikeAChannelIsReadAsAChannel) {
    TempFile file(kSmallText, ".trovo");
    ModelMap read;
    ASSERT_TRUE(read.CreateFromFile(file.Path()));
    ASSERT_EQ(read.numKeyTiming, 2);
    // The second entry's name "posx" counts as a channel of the first: its value count is the
    // next token, "roty", read as 0; the "1" after it becomes the second entry's name, and "3",
    // no channel, ends the timing.
    EXPECT_EQ(std::wstring(read.keyTiming[0].name.GetWideString()), L"cog");
    ASSERT_EQ(read.keyTiming[0].times[0].GetCount(), 2);
    EXPECT_EQ(read.keyTiming[0].times[0][1], 4.0);
    EXPECT_EQ(read.keyTiming[0].times[4].GetCount(), 0);
    EXPECT_EQ(std::wstring(read.keyTiming[1].name.GetWideString()), L"1");
    for (int c = 0; c < ZUK::NodeKeyTiming::NUM_CHANNELS; ++c)
        EXPECT_EQ(read.keyTiming[1].times[c].GetCount(), 0);
    EXPECT_EQ(read.motion[3].GetTranslation().GetZ(), 12.0);
}

TEST(NormMotionText, ZeroTimingCountLeavesTimingNull) {
    std::string text(kSmallText);
    text = text.substr(0, text.find("2 \ncog")) + "0 \n";
    TempFile file(text, ".trovo");
    ModelMap read;
    ASSERT_TRUE(read.CreateFromFile(file.Path()));
    EXPECT_EQ(read.numKeyTiming, 0);
    EXPECT_EQ(read.keyTiming, nullptr);
    EXPECT_EQ(read.structure->planes[0].Span, 1);
    EXPECT_EQ(read.nodes[1].length, 45.5);
    EXPECT_TRUE(read.structure->nodes[1].objIsValid);
}

TEST(NormMotionText, InvalidNodeMarkClearsObjectValidity) {
    std::string text(kSmallText);
    text.replace(text.find("v lfoot"), 1, "i");
    TempFile file(text, ".trovo");
    ModelMap read;
    ASSERT_TRUE(read.CreateFromFile(file.Path()));
    EXPECT_TRUE(read.structure->nodes[0].objIsValid);
    EXPECT_FALSE(read.structure->nodes[1].objIsValid);
}

TEST(NormMotionText, MissingFileIsRefusedQuietly) {
    orvhost::ClearLog();
    ModelMap read;
    EXPECT_FALSE(read.CreateFromFile("/nonexistent/folder/motion.trovo"));
    EXPECT_TRUE(orvhost::LogEntries().empty());
}

// ---- Damaged files --------------------------------------------------------------------------

class DamagedMotionFile : public NormMotionRig {};

TEST_F(DamagedMotionFile, TruncatedFilesReadAsFarAsTheyGoInBothForms) {
    const std::string text = ScratchPath(".trovo"), xml = ScratchPath(".trovo");
    ASSERT_TRUE(map->saveToFile(text.c_str(), 1, 6));
    ASSERT_TRUE(map->saveMotionToXMLFile(xml.c_str(), 1, 6));
    for (const std::string& source : {text, xml}) {
        const std::string whole = ReadAll(source);
        for (int cut = 1; cut <= 10; ++cut) {
            const size_t at = whole.size() * cut / 11;
            TempFile file(whole.substr(0, at), ".trovo");
            orvhost::ClearLog();
            std::unique_ptr<ModelMap> read(ModelMap::CreateMotionMapFromFile(file.Path()));
            if (source == xml) {
                // A cut document does not parse: refused with the stream's messages.
                EXPECT_EQ(read, nullptr) << cut;
                EXPECT_FALSE(orvhost::LogEntries().empty()) << cut;
            } else if (read) {
                // The text form reads what is there; what is missing stays as it was.
                EXPECT_LE(read->numFrames, 6);
                EXPECT_TRUE(read->numFrames == 0 || read->structure->numNodes == structure->numNodes);
            }
        }
    }
}

TEST(DamagedMotionText, NodeCountBeyondTheNodesPresentStillReads) {
    std::string text(kSmallText);
    text.replace(text.find("2 1 biped"), 9, "5 1 biped");
    TempFile file(text, ".trovo");
    ModelMap read;
    EXPECT_TRUE(read.CreateFromFile(file.Path()));
    EXPECT_EQ(read.structure->numNodes, 5);
    EXPECT_EQ(read.nodes.size(), 5u);
}

TEST(DamagedMotionText, HugeCountsAreRefusedWithAMessage) {
    std::string text(kSmallText);
    text.replace(text.find("2 1 biped"), 9, "2000000000 1 biped");
    TempFile file(text, ".trovo");
    orvhost::ClearLog();
    ModelMap read;
    EXPECT_FALSE(read.CreateFromFile(file.Path()));
    EXPECT_TRUE(Logged(L"The Trovo file announces more frames, nodes or limbs than it holds.", 8));
    EXPECT_TRUE(Logged(L"Can't parse the Trovo file.", 4));
    EXPECT_EQ(read.structure, nullptr);
}

TEST(DamagedMotionXml, HugeCountsAreRefusedWithAMessage) {
    TempFile file(
        "<?xml version=\"1.0\"?><ROOT><HEADER><VERSION>1</VERSION><AnimationLength>100000"
        "</AnimationLength><legLength>1</legLength><hipOffset>0</hipOffset><numNodes>100000</numNodes>"
        "<numPlanes>0</numPlanes><structure_type>biped</structure_type></HEADER></ROOT>",
        ".trovo");
    ModelMap read;
    EXPECT_FALSE(read.loadMotionFromXMLFile(file.Path()));
    EXPECT_EQ(read.motion, nullptr);
}

TEST(DamagedMotionXml, NodeCountBeyondTheNodesPresentLeavesTheRestAsItWas) {
    TempFile file(
        "<?xml version=\"1.0\"?><ROOT><HEADER><VERSION>99.0</VERSION><AnimationLength>1"
        "</AnimationLength><legLength>90</legLength><hipOffset>5</hipOffset><numNodes>3</numNodes>"
        "<numPlanes>0</numPlanes><structure_type>biped</structure_type></HEADER>"
        "<NODES><NODE obj_IsValid=\"true\" name=\"cog\" length=\"0\"/></NODES><PLANES/>"
        "<POSE_VALUES><POSE time=\"1\"><NODE name=\"a\" global=\"1,0,0,0,7,8,9\" id=\"0\"/></POSE>"
        "</POSE_VALUES><FCURVE_KEYS num_nodes_with_fcurve_keys=\"0\"/></ROOT>",
        ".trovo");
    ModelMap read;
    ASSERT_TRUE(read.loadMotionFromXMLFile(file.Path()));
    EXPECT_EQ(read.nodes.size(), 3u);
    EXPECT_EQ(read.motion[0].GetTranslation().GetY(), 8.0);
    EXPECT_EQ(read.motion[1].GetTranslation().GetY(), 0.0);
    // A later host's VERSION loads.
    EXPECT_EQ(read.legLength, 90.0);
    EXPECT_TRUE(read.structure->nodes[0].objIsValid);
    EXPECT_EQ(read.keyTiming, nullptr);
}

TEST(DamagedMotionBytes, RandomBytesNeverCrash) {
    std::mt19937 random(18);
    for (int round = 0; round < 20; ++round) {
        std::string bytes(64 + random() % 2000, '\0');
        for (char& c : bytes) c = static_cast<char>(random() & 0xff);
        if (round % 2) bytes = "NormMotion5.0\n" + bytes;
        TempFile file(bytes, ".trovo");
        std::unique_ptr<ModelMap> read(ModelMap::CreateMotionMapFromFile(file.Path()));
        if (read) {
            EXPECT_LE(static_cast<long long>(read->numFrames) * read->nodes.size(), bytes.size());
        }
    }
}

TEST(DamagedMotionXml, DocumentOfAnotherKindIsRefused) {
    TempFile file("<?xml version=\"1.0\"?><settings><FILEPATHS/></settings>", ".trovo");
    orvhost::ClearLog();
    ModelMap read;
    EXPECT_FALSE(read.loadMotionFromXMLFile(file.Path()));
    EXPECT_EQ(read.motion, nullptr);
    bool said = false;
    for (const auto& e : orvhost::LogEntries())
        said = said || e.text.find(L"it has no HEADER") != std::wstring::npos;
    EXPECT_TRUE(said);
}

}  // namespace
