// The test rigs built from BVH skeletons: the independent BVH parse agrees with the hand-read
// counts of the real files, every joint has its null at its rest position, scaling reaches the
// offsets it should, IK limbs put their joints where the nulls would stand and follow their
// goals, and tagging writes the properties that tag discovery reads.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "mocap/RealBvhFiles.h"
#include "modelmap/ModelMapTestSupport.h"
#include "support/BvhRigBuilder.h"

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

namespace {

std::string DataPath(const char* relative) { return std::string(TROVO_TEST_DATA) + "/" + relative; }

CVector3 Pos(const ORV::X3DObject& o) {
    return o.GetKinematics().GetGlobal().GetTransform().GetTranslation();
}

CVector3 Vec(const bvhrig::Vec3& v) { return CVector3(v[0], v[1], v[2]); }

class BvhRig : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        root = ORV::Application().GetActiveSceneRoot();
        std::string error;
        ASSERT_TRUE(bvhrig::ReadBvh(DataPath("bvh/cmu_mb2010/02_01.bvh"), skeleton, &error)) << error;
    }
    ORV::Model root;
    bvhrig::Skeleton skeleton;
};

}  // namespace

TEST(BvhRigParse, JointAndFrameCountsOfEveryRealFile) {
    for (const bvhtest::RealBvhFile& f : bvhtest::kRealBvhFiles) {
        bvhrig::Skeleton s;
        std::string error;
        ASSERT_TRUE(bvhrig::ReadBvh(DataPath(f.path), s, &error)) << error;
        EXPECT_EQ(static_cast<int>(s.joints.size()), f.joints) << f.path;
        EXPECT_EQ(static_cast<int>(s.frames.size()), f.frames) << f.path;
    }
}

TEST(BvhRigParse, ReadsOffsetsChannelsAndValuesAsWritten) {
    // By hand from the head of 02_01.bvh: the root's six channels, LHipJoint at offset 0, and
    // LeftUpLeg's offset.
    bvhrig::Skeleton s;
    ASSERT_TRUE(bvhrig::ReadBvh(DataPath("bvh/cmu_mb2010/02_01.bvh"), s));
    ASSERT_EQ(s.joints[0].name, L"Hips");
    EXPECT_EQ(s.joints[0].channels, (std::vector<int>{bvhrig::XPOS, bvhrig::YPOS, bvhrig::ZPOS, bvhrig::ZROT,
                                                      bvhrig::YROT, bvhrig::XROT}));
    EXPECT_EQ(s.joints[1].name, L"LHipJoint");
    EXPECT_EQ(s.joints[1].parent, 0);
    EXPECT_EQ(s.joints[2].name, L"LeftUpLeg");
    EXPECT_EQ(s.joints[2].parent, 1);
    EXPECT_EQ(s.joints[2].channels.size(), 3u);
    EXPECT_EQ(s.joints[2].firstValue, 9);
}

TEST(BvhRigParse, RotationChannelsComposeInFileOrder) {
    // A joint rotated 90 degrees about Z then (in file order) 90 about X: its child at +X moves
    // first about X (stays), then about Z to +Y.
    bvhrig::Skeleton s;
    bvhrig::Joint a;
    a.name = L"a";
    a.channels = {bvhrig::ZROT, bvhrig::XROT};
    bvhrig::Joint b;
    b.name = L"b";
    b.parent = 0;
    b.offset = {1, 0, 0};
    b.firstValue = 2;
    s.joints = {a, b};
    s.valuesPerFrame = 2;
    s.frames = {{90.0, 90.0}};
    const bvhrig::GlobalPose p = bvhrig::ForwardKinematics(s, 0);
    EXPECT_NEAR(p.position[1][0], 0.0, 1e-12);
    EXPECT_NEAR(p.position[1][1], 1.0, 1e-12);
    EXPECT_NEAR(p.position[1][2], 0.0, 1e-12);
}

TEST_F(BvhRig, EveryJointHasANullAtItsRestPosition) {
    const bvhrig::BvhRig rig = bvhrig::BuildBvhRig(root, skeleton, L"Cmu");
    ASSERT_TRUE(rig.model.IsValid());
    const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(skeleton, -1);
    for (size_t i = 0; i < skeleton.joints.size(); ++i) {
        const ORV::X3DObject o = rig.model.FindChild(skeleton.joints[i].name.c_str());
        ASSERT_TRUE(o.IsValid()) << modelmaptest::Narrow(skeleton.joints[i].name);
        EXPECT_TRUE(o.IsA(ORV::ovNullID));
        EXPECT_TRUE(Pos(o).Equals(Vec(rest.position[i]), 1e-12));
        const int parent = skeleton.joints[i].parent;
        if (parent >= 0) {
            EXPECT_EQ(ORV::X3DObject(o.GetParent()), rig.joints[parent]);
        }
    }
}

TEST_F(BvhRig, WholeScaleMultipliesEveryRestPosition) {
    bvhrig::RigOptions o;
    o.scale = 1.7;
    const bvhrig::BvhRig rig = bvhrig::BuildBvhRig(root, skeleton, L"Cmu", o);
    const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(skeleton, -1);
    for (size_t i = 0; i < skeleton.joints.size(); ++i)
        EXPECT_TRUE(Pos(rig.joints[i]).Equals(Vec(rest.position[i]) * 1.7, 1e-12));
}

TEST_F(BvhRig, LimbScalesStretchOnlyTheirLimbs) {
    bvhrig::RigOptions o;
    bvhrig::BipedLimbs(bvhrig::CmuMotionBuilderTagging(), o);
    o.legScale = 2.0;
    o.armScale = 0.5;
    const bvhrig::BvhRig rig = bvhrig::BuildBvhRig(root, skeleton, L"Cmu", o);
    auto at = [&](const wchar_t* n) { return Pos(rig.object(skeleton, n)); };
    const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(skeleton, -1);
    auto restAt = [&](const wchar_t* n) { return Vec(rest.position[skeleton.find(n)]); };
    // The hip joint stays; the thigh doubles; the shoulder stays, the upper arm halves; the
    // spine is untouched.
    EXPECT_TRUE(at(L"LeftUpLeg").Equals(restAt(L"LeftUpLeg"), 1e-12));
    EXPECT_NEAR((at(L"LeftLeg") - at(L"LeftUpLeg")).GetLength(),
                2.0 * (restAt(L"LeftLeg") - restAt(L"LeftUpLeg")).GetLength(), 1e-12);
    EXPECT_NEAR((at(L"RightToeBase") - at(L"RightFoot")).GetLength(),
                2.0 * (restAt(L"RightToeBase") - restAt(L"RightFoot")).GetLength(), 1e-12);
    EXPECT_TRUE(at(L"LeftArm").Equals(restAt(L"LeftArm"), 1e-12));
    EXPECT_NEAR((at(L"LeftForeArm") - at(L"LeftArm")).GetLength(),
                0.5 * (restAt(L"LeftForeArm") - restAt(L"LeftArm")).GetLength(), 1e-12);
    EXPECT_TRUE(at(L"Head").Equals(restAt(L"Head"), 1e-12));
}

TEST_F(BvhRig, IKLimbsStandWhereTheNullsWouldAndFollowTheirGoals) {
    bvhrig::RigOptions o;
    bvhrig::BipedLimbs(bvhrig::CmuMotionBuilderTagging(), o);
    o.ikLegs = true;
    o.ikArms = true;
    const bvhrig::BvhRig rig = bvhrig::BuildBvhRig(root, skeleton, L"Cmu", o);
    ASSERT_TRUE(rig.model.IsValid());
    ASSERT_EQ(rig.ikLimbs.size(), 4u);
    // The CMU knees are all but straight (a bend of some 5e-6 radian), where the solver's arc
    // cosine keeps fewer digits: the solved knee lies within 1e-7 of the rest position.
    const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(skeleton, -1);
    for (size_t i = 0; i < skeleton.joints.size(); ++i) {
        const ORV::X3DObject o2 = rig.model.FindChild(skeleton.joints[i].name.c_str());
        ASSERT_TRUE(o2.IsValid()) << modelmaptest::Narrow(skeleton.joints[i].name);
        EXPECT_LT((Pos(o2) - Vec(rest.position[i])).GetLength(), 1e-7)
            << modelmaptest::Narrow(skeleton.joints[i].name);
    }
    const bvhrig::IKLimb& leg = rig.ikLimbs[0];
    EXPECT_TRUE(leg.upper.IsA(ORV::ovChainBoneID));
    EXPECT_EQ(leg.upper.GetName(), ORV::CString(L"LeftUpLeg"));
    EXPECT_EQ(leg.lower.GetName(), ORV::CString(L"LeftLeg"));
    EXPECT_EQ(leg.goal.GetName(), ORV::CString(L"LeftFoot"));
    EXPECT_EQ(leg.upVector.GetName(), ORV::CString(L"LeftUpLegUp"));
    EXPECT_TRUE(Pos(leg.effector).Equals(Pos(leg.goal), 1e-9));
    // Raising the goal bends the knee and carries the toe, which hangs under the goal.
    const CVector3 toe = Pos(rig.object(skeleton, L"LeftToeBase"));
    CTransformation t = leg.goal.GetKinematics().GetGlobal().GetTransform();
    t.SetTranslation(t.GetTranslation() + CVector3(0, 3, 0));
    leg.goal.GetKinematics().GetGlobal().PutTransform(t);
    EXPECT_TRUE(Pos(leg.effector).Equals(t.GetTranslation(), 1e-9));
    EXPECT_TRUE(Pos(rig.object(skeleton, L"LeftToeBase")).Equals(toe + CVector3(0, 3, 0), 1e-9));
}

TEST_F(BvhRig, TaggingByPropertiesWritesTheTagParameters) {
    const bvhrig::BvhRig rig = bvhrig::BuildBvhRig(root, skeleton, L"Cmu");
    modelmaptest::FactoryData data;
    std::unique_ptr<ZUK::ModelStructure> s(ZUK::ModelStructure::CreateFromFile(L"biped"));
    ASSERT_TRUE(s);
    const bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
    ASSERT_TRUE(bvhrig::TagRigByProperties(rig.model, *s, tagging));
    const ORV::X3DObject thigh = rig.model.FindChild(L"LeftUpLeg");
    ORV::Property tag = modelmaptest::FindProperty(thigh, L"ZUKTag");
    ASSERT_TRUE(tag.IsValid());
    EXPECT_EQ(ORV::CString(tag.GetParameterValue(L"tagname")), ORV::CString(L"lthigh"));
    // An unrotated null carries the canonical directions as they are: the thigh runs down.
    EXPECT_NEAR(static_cast<double>(tag.GetParameterValue(L"aligny")), -1.0, 1e-6);
    EXPECT_NEAR(static_cast<double>(tag.GetParameterValue(L"rollz")), 1.0, 1e-6);
    EXPECT_FALSE(modelmaptest::FindProperty(rig.model.FindChild(L"LHipJoint"), L"ZUKTag").IsValid());
}

TEST(BvhRigFiles, IKRigsOfEveryCmuNamingStandAtTheirRestPositions) {
    struct File {
        const char* path;
        bvhrig::Tagging tagging;
    };
    const File files[] = {{"bvh/cmu_mb2010/09_06.bvh", bvhrig::CmuMotionBuilderTagging(false)},
                          {"bvh/cmu_mb2008/01_01.bvh", bvhrig::CmuMotionBuilderTagging(true)},
                          {"bvh/cmu_3dsmax/01_01.bvh", bvhrig::Cmu3dsMaxTagging()}};
    for (const File& f : files) {
        orvhost::ResetScene();
        bvhrig::Skeleton s;
        ASSERT_TRUE(bvhrig::ReadBvh(DataPath(f.path), s)) << f.path;
        bvhrig::RigOptions o;
        bvhrig::BipedLimbs(f.tagging, o);
        o.ikLegs = true;
        o.ikArms = true;
        o.scale = 2.0;
        const bvhrig::BvhRig rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), s, L"Cmu", o);
        ASSERT_TRUE(rig.model.IsValid()) << f.path;
        EXPECT_EQ(rig.ikLimbs.size(), 4u) << f.path;
        const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(s, -1);
        for (size_t i = 0; i < s.joints.size(); ++i)
            EXPECT_LT((Pos(rig.joints[i]) - Vec(rest.position[i]) * 2.0).GetLength(), 1e-6)
                << f.path << " " << modelmaptest::Narrow(s.joints[i].name);
    }
}
