// Measures of maps made from the real CMU captures and from rigs built on their skeletons,
// against this test's own reading of the files: its own forward kinematics, and the length
// rules (root: its distance from the origin; plain node: the distance to its parent; limb end:
// the path back through the limb to its anchor; leg length: the longest friction limb; hip
// offset: from the root to the first longest leg's anchor, along the root's bone axis).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "mocap/TempFile.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "support/BvhRigBuilder.h"

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::ModelMap;
using ZUK::ModelStructure;

namespace {

std::string DataPath(const std::string& relative) { return std::string(TROVO_TEST_DATA) + "/" + relative; }

CVector3 Vec(const bvhrig::Vec3& v) { return CVector3(v[0], v[1], v[2]); }

// The CMU files of tests/data, each with the tagging of its naming.
struct CmuFile {
    const char* path;
    bvhrig::Tagging (*tagging)();
};

bvhrig::Tagging MotionBuilder() { return bvhrig::CmuMotionBuilderTagging(false); }
bvhrig::Tagging MotionBuilder2008() { return bvhrig::CmuMotionBuilderTagging(true); }

const CmuFile kCmuFiles[] = {
    {"bvh/cmu_mb2010/02_01.bvh", MotionBuilder},
    {"bvh/cmu_mb2010/02_03.bvh", MotionBuilder},
    {"bvh/cmu_mb2010/02_04.bvh", MotionBuilder},
    {"bvh/cmu_mb2010/07_05.bvh", MotionBuilder},
    {"bvh/cmu_mb2010/09_06.bvh", MotionBuilder},
    {"bvh/cmu_mb2008/01_01.bvh", MotionBuilder2008},
    {"bvh/cmu_3dsmax/01_01.bvh", bvhrig::Cmu3dsMaxTagging},
};

void PrintTo(const CmuFile& f, std::ostream* os) { *os << f.path; }

struct Expected {
    std::vector<double> length;
    double legLength = 0.0;
    double hipOffset = 0.0;
};

// The measures by the length rules, from the positions of the structure's nodes and the root's
// bone axis in the world.
Expected Measure(const ModelStructure& s, const std::vector<CVector3>& at, const CVector3& rootAxis) {
    Expected e;
    e.length.assign(s.numNodes, 0.0);
    for (int i = 0; i < s.numNodes; ++i) {
        const int p = s.nodes[i].Parent;
        if (s.nodes[i].Type != 2) {
            e.length[i] = p < 0 ? at[i].GetLength() : (at[i] - at[p]).GetLength();
        } else if (p >= 0 && p < i) {
            CVector3 last = at[i];
            for (int k = i - 1; k >= p; --k) {
                e.length[i] += (at[k] - last).GetLength();
                last = at[k];
            }
        }
    }
    double best = 0.0;
    for (int i = 0; i < s.numNodes; ++i) {
        if (!s.nodes[i].Friction) continue;
        e.legLength = std::max(e.legLength, e.length[i]);
        if (e.length[i] > best) {
            best = e.length[i];
            e.hipOffset = -((at[s.nodes[i].Parent] - at[0]).Dot(rootAxis));
        }
    }
    return e;
}

void ExpectRelative(double got, double want, double tolerance, const std::string& what) {
    EXPECT_LE(std::fabs(got - want), tolerance * std::fabs(want)) << what << ": " << got << " vs " << want;
}

// A capture map of a CMU file, tagged through a BVH map file written for its joint names.
class CaptureOfFile {
public:
    explicit CaptureOfFile(const CmuFile& f) : tagging(f.tagging()) {
        structure = modelmaptest::LoadStructure(L"biped");
        if (!structure) return;
        trovotest::TempFile mapFile(bvhrig::MapFileText(*structure, tagging), ".map");
        tags.reset(ZUK::TagMap::createFromMapFile(mapFile.Path()));
        capture.reset(ZUK::BvImport::extractMocapData(ORV::CString(DataPath(f.path).c_str()), ZUK::YUp));
        if (!tags || !capture) return;
        tags->applyToMocap(capture.get());
        map = std::make_unique<ModelMap>(capture.get(), structure.get());
    }

    bvhrig::Tagging tagging;
    std::unique_ptr<ModelStructure> structure;
    std::unique_ptr<ZUK::TagMap> tags;
    std::unique_ptr<ZUK::MocapData> capture;
    std::unique_ptr<ModelMap> map;
};

class CaptureMeasures : public ::testing::TestWithParam<CmuFile> {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
    }
    modelmaptest::FactoryData data;
};

}  // namespace

TEST_P(CaptureMeasures, LengthsLegLengthAndHipOffsetFollowTheFilesOwnNumbers) {
    CaptureOfFile c(GetParam());
    ASSERT_TRUE(c.map);
    c.map->createMap();
    EXPECT_TRUE(orvhost::LogTexts(4).empty());

    bvhrig::Skeleton skeleton;
    std::string error;
    ASSERT_TRUE(bvhrig::ReadBvh(DataPath(GetParam().path), skeleton, &error)) << error;
    // A capture map is measured where "now" reads the capture: its frame 0.
    const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(skeleton, 0);
    std::unique_ptr<ModelStructure> s = modelmaptest::LoadStructure(L"biped");
    std::vector<CVector3> at(s->numNodes);
    for (int i = 0; i < s->numNodes; ++i) {
        const int joint = skeleton.find(bvhrig::JointOf(c.tagging, s->nodes[i].Name.GetWideString()));
        ASSERT_GE(joint, 0) << modelmaptest::Narrow(s->nodes[i].Name);
        at[i] = Vec(pose.position[joint]);
    }
    // The root's bone axis: the structure's "cog" direction (0, 1, 0), turned by the root.
    const bvhrig::Vec3 axis = bvhrig::Apply3(pose.rotation[skeleton.find(L"Hips")], bvhrig::Vec3{0, 1, 0});
    const Expected want = Measure(*s, at, Vec(axis));

    // The reader keeps single precision: 1e-6 relative.
    for (int i = 0; i < s->numNodes; ++i)
        ExpectRelative(c.map->nodes[i].length, want.length[i], 1e-6, modelmaptest::Narrow(s->nodes[i].Name));
    ExpectRelative(c.map->legLength, want.legLength, 1e-6, "legLength");
    ExpectRelative(c.map->hipOffset, want.hipOffset, 1e-6, "hipOffset");
    // Measures that could pass by accident: real bones, a real leg.
    EXPECT_GT(want.legLength, 10.0);
    EXPECT_GT(std::fabs(want.hipOffset), 0.5);
}

INSTANTIATE_TEST_SUITE_P(CmuFiles, CaptureMeasures, ::testing::ValuesIn(kCmuFiles));

// ---- The capture frame that a time reads -------------------------------------------------------

namespace {

class CaptureTime : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        ASSERT_TRUE(bvhrig::ReadBvh(DataPath(kCmuFiles[0].path), skeleton));
        capture = std::make_unique<CaptureOfFile>(kCmuFiles[0]);
        ASSERT_TRUE(capture->map);
        hips = capture->structure->nodeIndex(L"cog");
    }

    // Whether the map's root stands where the file puts the hips at `frame`.
    ::testing::AssertionResult AtFrame(int frame) {
        const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(skeleton, frame);
        const CVector3 want = Vec(pose.position[0]);
        const CVector3 got = capture->map->nodes[hips].global.GetTranslation();
        if ((got - want).GetLength() <= 1e-5 * want.GetLength()) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
               << "root at " << got.x << " " << got.y << " " << got.z << ", frame " << frame << " has "
               << want.x << " " << want.y << " " << want.z;
    }

    modelmaptest::FactoryData data;
    bvhrig::Skeleton skeleton;
    std::unique_ptr<CaptureOfFile> capture;
    int hips = 0;
};

}  // namespace

TEST_F(CaptureTime, CurrentTimeReadsTheCapturesFrameZero) {
    capture->map->getMocapTransforms(40);
    ASSERT_TRUE(AtFrame(40));
    capture->map->CopyTransformsToNodeMap(ModelMap::NOW, false);
    EXPECT_TRUE(AtFrame(0));
}

TEST_F(CaptureTime, TimesInsideTheFrameRangeTruncateToTheirFrame) {
    capture->map->CopyTransformsToNodeMap(7.9, false);
    EXPECT_TRUE(AtFrame(7));
    capture->map->CopyTransformsToNodeMap(123.0, false);
    EXPECT_TRUE(AtFrame(123));
    capture->map->CopyTransformsToNodeMap(-0.5, false);  // toward zero
    EXPECT_TRUE(AtFrame(0));
}

TEST_F(CaptureTime, TimesNoFrameNumberHoldsReadFrameZero) {
    for (double t :
         {std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
          std::numeric_limits<double>::quiet_NaN(), 3e9, -3e9, -std::numeric_limits<double>::max()}) {
        capture->map->CopyTransformsToNodeMap(50.0, false);
        ASSERT_TRUE(AtFrame(50));
        capture->map->CopyTransformsToNodeMap(t, false);
        EXPECT_TRUE(AtFrame(0)) << t;
    }
}

TEST_F(CaptureTime, FramesOutsideTheCaptureKeepThePoseLastRead) {
    capture->map->CopyTransformsToNodeMap(12.0, false);
    capture->map->CopyTransformsToNodeMap(-3.0, false);
    EXPECT_TRUE(AtFrame(12));
    capture->map->CopyTransformsToNodeMap(static_cast<double>(skeleton.frames.size()), false);
    EXPECT_TRUE(AtFrame(12));
}

TEST_F(CaptureTime, CaptureLocalsAreRelativeToTheStructureParent) {
    capture->map->CopyTransformsToNodeMap(30.0, false);
    const ModelMap& map = *capture->map;
    EXPECT_TRUE(map.nodes[0].local.Equals(map.nodes[0].global, 0.0));
    for (int i = 1; i < capture->structure->numNodes; ++i) {
        const int p = capture->structure->nodes[i].Parent;
        CTransformation rebuilt;
        rebuilt.Mul(map.nodes[i].local, map.nodes[p].global);
        EXPECT_TRUE(rebuilt.Equals(map.nodes[i].global, 1e-9)) << i;
    }
}

// ---- Capture limbs -----------------------------------------------------------------------------

TEST(CaptureLimbs, EveryLimbNodeIsReadFromTheCaptureWithoutTaggedObjects) {
    orvhost::ResetScene();
    modelmaptest::FactoryData data;
    CaptureOfFile c(kCmuFiles[0]);
    ASSERT_TRUE(c.map);
    c.map->createMap();
    const ModelStructure& s = *c.structure;
    const int foot = s.nodeIndex(L"lfoot"), shin = s.nodeIndex(L"lshin"), thigh = s.nodeIndex(L"lthigh");
    for (const ZUK::NodeMap& n : c.map->nodes) EXPECT_FALSE(n.object.IsValid());
    const CVector3 f = c.map->nodes[foot].mocapNode->global.GetTranslation();
    const CVector3 k = c.map->nodes[shin].mocapNode->global.GetTranslation();
    const CVector3 h = c.map->nodes[thigh].mocapNode->global.GetTranslation();
    EXPECT_NEAR(c.map->nodes[foot].length, (f - k).GetLength() + (k - h).GetLength(), 1e-12);
}

TEST(CaptureLimbs, LimbNodeMissingFromTheCaptureIsSteppedOver) {
    orvhost::ResetScene();
    orvhost::ClearLog();
    modelmaptest::FactoryData data;
    CaptureOfFile c(kCmuFiles[0]);
    ASSERT_TRUE(c.map);
    const ModelStructure& s = *c.structure;
    const int foot = s.nodeIndex(L"lfoot"), shin = s.nodeIndex(L"lshin"), thigh = s.nodeIndex(L"lthigh");
    const int hand = s.nodeIndex(L"rhand");
    // The capture has no knee, and no right hand, for this map.
    c.map->nodes[shin].mocapNode = nullptr;
    c.map->nodes[hand].mocapNode = nullptr;
    c.map->createMap();
    const CVector3 f = c.map->nodes[foot].mocapNode->global.GetTranslation();
    const CVector3 h = c.map->nodes[thigh].mocapNode->global.GetTranslation();
    EXPECT_NEAR(c.map->nodes[foot].length, (f - h).GetLength(), 1e-12);
    EXPECT_EQ(c.map->nodes[hand].length, 0.0);
}

// ---- Rigs built on a CMU skeleton --------------------------------------------------------------

namespace {

class CmuRig : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        root = ORV::Application().GetActiveSceneRoot();
        std::string error;
        ASSERT_TRUE(bvhrig::ReadBvh(DataPath(kCmuFiles[0].path), skeleton, &error)) << error;
    }

    // A rig built with `o`, tagged through a TagMap, its map measured. The map is returned with
    // its own structure.
    std::unique_ptr<ModelMap> Measured(const std::wstring& name, const bvhrig::RigOptions& o,
                                       std::unique_ptr<ModelStructure>& s, bvhrig::BvhRig* built = nullptr) {
        const bvhrig::BvhRig rig = bvhrig::BuildBvhRig(root, skeleton, name, o);
        if (built) *built = rig;
        s = modelmaptest::LoadStructure(L"biped");
        if (!rig.model.IsValid() || !s) return nullptr;
        if (!bvhrig::TagRigFromTagMap(rig.model, *s, tagging)) return nullptr;
        std::unique_ptr<ModelMap> map = std::make_unique<ModelMap>(rig.model, s.get());
        map->createMap();
        return map;
    }

    modelmaptest::FactoryData data;
    ORV::Model root;
    bvhrig::Skeleton skeleton;
    const bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
};

}  // namespace

TEST_F(CmuRig, RigMeasuresFollowTheSkeletonsRestPose) {
    std::unique_ptr<ModelStructure> s;
    std::unique_ptr<ModelMap> map = Measured(L"Cmu", bvhrig::RigOptions(), s);
    ASSERT_TRUE(map);
    const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(skeleton, -1);
    std::vector<CVector3> at(s->numNodes);
    for (int i = 0; i < s->numNodes; ++i)
        at[i] = Vec(rest.position[skeleton.find(bvhrig::JointOf(tagging, s->nodes[i].Name.GetWideString()))]);
    std::unique_ptr<ModelStructure> fresh = modelmaptest::LoadStructure(L"biped");
    const Expected want = Measure(*fresh, at, CVector3(0, 1, 0));
    for (int i = 0; i < s->numNodes; ++i)
        ExpectRelative(map->nodes[i].length, want.length[i], 1e-12, modelmaptest::Narrow(s->nodes[i].Name));
    ExpectRelative(map->legLength, want.legLength, 1e-12, "legLength");
    ExpectRelative(map->hipOffset, want.hipOffset, 1e-12, "hipOffset");
}

TEST_F(CmuRig, ScaledRigHasScaledMeasuresAndTheSameOffsetsAndSigns) {
    std::unique_ptr<ModelStructure> s1, s2;
    std::unique_ptr<ModelMap> plain = Measured(L"Cmu", bvhrig::RigOptions(), s1);
    bvhrig::RigOptions o;
    o.scale = 1.7;
    std::unique_ptr<ModelMap> scaled = Measured(L"CmuLarge", o, s2);
    ASSERT_TRUE(plain && scaled);
    for (size_t i = 0; i < plain->nodes.size(); ++i) {
        ExpectRelative(scaled->nodes[i].length, 1.7 * plain->nodes[i].length, 1e-9,
                       modelmaptest::Narrow(s1->nodes[i].Name));
        EXPECT_TRUE(scaled->nodes[i].esrOffset.Equals(plain->nodes[i].esrOffset, 1e-12)) << i;
        EXPECT_TRUE(scaled->nodes[i].esrOffsetInverse.Equals(plain->nodes[i].esrOffsetInverse, 1e-12)) << i;
    }
    EXPECT_GT(plain->legLength, 10.0);
    ExpectRelative(scaled->legLength, 1.7 * plain->legLength, 1e-9, "legLength");
    EXPECT_GT(std::fabs(plain->hipOffset), 0.5);
    ExpectRelative(scaled->hipOffset, 1.7 * plain->hipOffset, 1e-9, "hipOffset");
    scaled->computeTwoLinkSign();
    plain->computeTwoLinkSign();
    for (size_t p = 0; p < plain->planes.size(); ++p)
        EXPECT_EQ(scaled->planes[p].sign, plain->planes[p].sign) << p;
}

TEST_F(CmuRig, LongerLegsRaiseLegLengthAndLeaveTheArms) {
    std::unique_ptr<ModelStructure> s1, s2;
    std::unique_ptr<ModelMap> plain = Measured(L"Cmu", bvhrig::RigOptions(), s1);
    bvhrig::RigOptions o;
    bvhrig::BipedLimbs(tagging, o);
    o.legScale = 1.25;
    std::unique_ptr<ModelMap> legs = Measured(L"CmuLegs", o, s2);
    ASSERT_TRUE(plain && legs);
    ExpectRelative(legs->legLength, 1.25 * plain->legLength, 1e-9, "legLength");
    const int hand = s1->nodeIndex(L"lhand"), thigh = s1->nodeIndex(L"lthigh");
    ExpectRelative(legs->nodes[hand].length, plain->nodes[hand].length, 1e-12, "lhand");
    // The hip joint is the pelvis's, not the leg's: the anchor stays, and so does the offset.
    ExpectRelative(legs->nodes[thigh].length, plain->nodes[thigh].length, 1e-12, "lthigh");
    ExpectRelative(legs->hipOffset, plain->hipOffset, 1e-12, "hipOffset");
}

TEST_F(CmuRig, IKLegGoalsLieOnTheirEffectorsAndTheSignProbeLeavesEveryObject) {
    std::unique_ptr<ModelStructure> s1, s2;
    std::unique_ptr<ModelMap> plain = Measured(L"Cmu", bvhrig::RigOptions(), s1);
    bvhrig::RigOptions o;
    bvhrig::BipedLimbs(tagging, o);
    o.ikLegs = true;
    bvhrig::BvhRig rig;
    std::unique_ptr<ModelMap> ik = Measured(L"CmuIK", o, s2, &rig);
    ASSERT_TRUE(plain && ik);
    ASSERT_EQ(rig.ikLimbs.size(), 2u);
    for (int plane : {0, 1}) {  // the two legs
        const int span = s2->planes[plane].Span, mid = s2->planes[plane].Mid;
        const std::string leg = modelmaptest::Narrow(s2->nodes[span].Name);
        ASSERT_TRUE(ik->nodes[mid].object.IsA(ORV::ovChainBoneID)) << leg;
        const ORV::X3DObject effector = ORV::ChainBone(ik->nodes[mid].object).GetEffector();
        const CVector3 goal =
            ik->nodes[span].object.GetKinematics().GetGlobal().GetTransform().GetTranslation();
        EXPECT_LE((goal - effector.GetKinematics().GetGlobal().GetTransform().GetTranslation()).GetLength(),
                  1e-6)
            << leg;
        // The chain stands where the nulls would: same measures, to the solver's precision.
        ExpectRelative(ik->nodes[span].length, plain->nodes[span].length, 1e-6, leg);
    }
    ExpectRelative(ik->legLength, plain->legLength, 1e-6, "legLength");
    ExpectRelative(ik->hipOffset, plain->hipOffset, 1e-6, "hipOffset");

    ORV::CRefArray all = root.FindChildren(L"", L"", ORV::CStringArray(), true);
    std::vector<CTransformation> before;
    for (long i = 0; i < all.GetCount(); ++i)
        before.push_back(ORV::X3DObject(all[i]).GetKinematics().GetGlobal().GetTransform());
    ik->computeTwoLinkSign();
    for (long i = 0; i < all.GetCount(); ++i)
        EXPECT_TRUE(ORV::X3DObject(all[i]).GetKinematics().GetGlobal().GetTransform().Equals(before[i], 0.0))
            << modelmaptest::Narrow(ORV::X3DObject(all[i]).GetName());
}
