// The glue on a rig built by hand: two-bone IK legs and arms steered by up-vector nulls, and a
// spine of nulls between the hips and the chest, driven by the poses of real CMU frames copied
// onto its map. What the scene shows afterwards is checked, not the glue's own state.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "HostTesting.h"
#include "host/RigBuilders.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/BezierCurve.h"
#include "core/InputStream.h"
#include "glue/GlueMap.h"
#include "glue/SpineMap.h"
#include "mocap/BvImport.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "support/BvhRigBuilder.h"
#include "support/CaptureSource.h"

namespace {

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::GlueMap;
using ZUK::ModelMap;
using ZUK::ModelStructure;

CTransformation GlobalOf(const ORV::X3DObject& o) { return o.GetKinematics().GetGlobal().GetTransform(); }

// The biped's objects by structure node.
bvhrig::Tagging BipedTagging() {
    return {{L"cog", L"Hips"},           {L"spine", L"Spine1"},        {L"chest", L"Chest"},
            {L"neck", L"Neck"},          {L"head", L"Head"},           {L"lthigh", L"LeftLegBone"},
            {L"lshin", L"LeftLegLower"}, {L"lfoot", L"LeftLegGoal"},   {L"rthigh", L"RightLegBone"},
            {L"rshin", L"RightLegLower"}, {L"rfoot", L"RightLegGoal"}, {L"lupperarm", L"LeftArmBone"},
            {L"lforearm", L"LeftArmLower"}, {L"lhand", L"LeftArmGoal"}, {L"rupperarm", L"RightArmBone"},
            {L"rforearm", L"RightArmLower"}, {L"rhand", L"RightArmGoal"}};
}

// The capture side, with the CMU tagging of the MotionBuilder-named files.
struct Capture : bvhrig::CaptureSource {
    bool Build(const std::string& path) { return CaptureSource::Build(path, bvhrig::CmuMotionBuilderTagging()); }
};

struct GluedRig {
    rigs::IKBiped biped;
    std::unique_ptr<ModelStructure> structure;
    std::unique_ptr<ModelMap> map;
    std::unique_ptr<GlueMap> glue;
    bool Build(ModelMap* source) {
        biped = rigs::BuildIKBiped(ORV::Application().GetActiveSceneRoot());
        structure.reset(ModelStructure::CreateFromFile(L"biped"));
        if (!structure || !bvhrig::TagRigByProperties(biped.model, *structure, BipedTagging())) return false;
        map.reset(new ModelMap(biped.model, structure.get()));
        map->createMap();
        glue.reset(GlueMap::createFromModelMap(biped.model, map.get()));
        if (!glue) return false;
        glue->applyToModel(biped.model, map.get());
        return !source || map->BuildRelationshipsWithSrcModelMap(*source, *glue);
    }
    // What the operators do per frame, in their order: objects, up-vectors, spines.
    void Apply() {
        for (size_t i = 0; i < glue->mocaps.size(); ++i)
            glue->applyMocapConstraint(glue->mocaps[i].object.GetKinematics().GetGlobal(), static_cast<int>(i));
        for (size_t i = 0; i < glue->planes.size(); ++i)
            glue->applyPlaneConstraint(glue->planes[i].object.GetKinematics().GetGlobal(), static_cast<int>(i), 0.0);
        for (size_t s = 0; s < glue->spines.size(); ++s) {
            ZUK::SpineConstraint& c = glue->spines[s];
            glue->updateSpineConstraint(c.anchor.GetKinematics().GetGlobal(), c.base.GetKinematics().GetLocal(),
                                        static_cast<int>(s), 1.0, 1.0);
            for (int k = 0; k < c.numNodes; ++k) {
                ORV::X3DObject object = c.segments[k].object;
                ORV::X3DObject parent(object.GetParent());
                glue->applySpineConstraint(parent.GetKinematics().GetGlobal(), object.GetKinematics().GetLocal(),
                                           static_cast<int>(s), k);
            }
        }
    }
};

class GlueOnRig : public ::testing::Test {
protected:
    void SetUp() override { orvhost::NewScene(); }
    modelmaptest::FactoryData factory;
};

TEST_F(GlueOnRig, TheBipedGetsLimbAndSpineConstraintsAndObjectConstraintsForTheRest) {
    GluedRig rig;
    ASSERT_TRUE(rig.Build(nullptr));
    EXPECT_EQ(rig.glue->planes.size(), 4u);
    ASSERT_EQ(rig.glue->spines.size(), 1u);
    const ZUK::SpineConstraint& spine = rig.glue->spines[0];
    EXPECT_EQ(spine.anchorName, ORV::CString(L"Spine1"));
    EXPECT_EQ(spine.baseName, ORV::CString(L"Spine2"));
    EXPECT_EQ(spine.goalName, ORV::CString(L"Chest"));
    EXPECT_EQ(spine.numNodes, 3);
    // The chains' joints take no direct constraint; the goals, the hips, the spine's anchor,
    // the neck and the head do.
    std::vector<std::wstring> driven;
    for (const auto& c : rig.glue->mocaps) driven.push_back(c.rigNodeName.GetWideString());
    std::sort(driven.begin(), driven.end());
    EXPECT_EQ(driven, (std::vector<std::wstring>{L"Head", L"Hips", L"LeftArmGoal", L"LeftLegGoal", L"Neck",
                                                 L"RightArmGoal", L"RightLegGoal", L"Spine1"}));
}

void DriveWithClip(const std::string& file) {
    modelmaptest::FactoryData factory;
    Capture capture;
    ASSERT_TRUE(capture.Build(std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/" + file));
    GluedRig rig;
    ASSERT_TRUE(rig.Build(capture.map.get()));
    ModelMap& m = *rig.map;
    const ModelStructure& s = *m.structure;
    const double height = 16.5;
    double worstGoal = 0.0, worstSpine = 0.0, worstGoalRotation = 0.0;
    int bends = 0, disagreements = 0;
    const rigs::Limb* limbs[4] = {&rig.biped.leftLeg, &rig.biped.rightLeg, &rig.biped.leftArm, &rig.biped.rightArm};
    for (int f = 1; f <= 20; ++f) {
        m.CopyPoseFromSrcModelMap(*capture.map, f * 5);
        m.solveIK();
        rig.Apply();
        for (int p = 0; p < s.numPlanes; ++p) {
            const ModelStructure::Plane& plane = s.planes[p];
            const rigs::Limb& limb = *limbs[p];
            // The effector lands on the map's goal.
            const CVector3 goal = m.nodes[plane.Span].global.GetTranslation();
            const CVector3 effector = GlobalOf(limb.effector).GetTranslation();
            worstGoal = std::max(worstGoal, (effector - goal).GetLength() / height);
            // The knee or elbow bends to the source's side of the anchor-goal line.
            if (m.planes[p].normal.GetLength() < 0.5) continue;
            const CVector3 A = GlobalOf(limb.upper).GetTranslation();
            const CVector3 M = GlobalOf(limb.lower).GetTranslation();
            CVector3 n;
            n.Cross(effector - A, M - A);
            ++bends;
            if (n.Dot(m.planes[p].normal) <= 0.0) ++disagreements;
        }
        // The spine's objects lie on the curve, and the chest takes the goal's rotation.
        const ZUK::SpineConstraint& spine = rig.glue->spines[0];
        const ZUK::SpineMap& sm = *spine.spineMap;
        for (int k = 1; k < spine.numNodes; ++k) {
            const CVector3 at = GlobalOf(spine.segments[k].object).GetTranslation();
            double nearest = 1e300;
            for (int i = 0; i <= 2000; ++i) nearest = std::min(nearest, (sm.curve->evaluate(i / 2000.0) - at).GetLength());
            worstSpine = std::max(worstSpine, nearest / sm.lengths[k - 1]);
        }
        ORV::MATH::CRotation diff;
        ORV::MATH::CRotation inverse;
        inverse.Invert(m.nodes[spine.nodeIndex].global.GetRotation());
        diff.Mul(GlobalOf(spine.goal).GetRotation(), inverse);
        double angle = 0.0;
        diff.GetAxisAngle(angle);
        worstGoalRotation = std::max(worstGoalRotation, angle);
    }
    EXPECT_LT(worstGoal, 1e-4);
    EXPECT_GT(bends, 20);
    EXPECT_EQ(disagreements, 0);
    // The segment points are found on the curve's 50-sample table, blended by the ratio of the
    // two sample distances rather than at the exact length: the rig's own segments, laid towards
    // them, stay within a few thousandths of a segment of the curve.
    EXPECT_LT(worstSpine, 5e-3);
    EXPECT_LT(worstGoalRotation, 1e-6);
    std::printf("[ %s ] goals %.3g heights, spine %.3g segments, chest %.3g rad, %d bends\n", file.c_str(), worstGoal,
                worstSpine, worstGoalRotation, bends);
}

TEST_F(GlueOnRig, AWalkDrivesEffectorsBendsAndSpineOntoTheMapsPose) { DriveWithClip("02_01.bvh"); }
TEST_F(GlueOnRig, ARunDrivesEffectorsBendsAndSpineOntoTheMapsPose) { DriveWithClip("02_03.bvh"); }

}  // namespace

namespace {

std::string Dump(const GlueMap& g) {
    std::string out;
    char line[512];
    auto narrow = [](const ORV::CString& s) { return std::string(s.GetAsciiString()); };
    auto vec = [&](const CVector3& v) {
        std::snprintf(line, sizeof line, " %.17g %.17g %.17g", v.x, v.y, v.z);
        return std::string(line);
    };
    for (const auto& c : g.mocaps) out += "mocap " + narrow(c.rigNodeName) + " " + narrow(c.tagName) + " " + std::to_string(c.kind) + "\n";
    for (const auto& c : g.planes) {
        std::snprintf(line, sizeof line, " %d %.17g", c.upSign, c.upLength);
        out += "plane " + narrow(c.upVectorName) + " " + narrow(c.planeName) + line + vec(c.rest.GetTranslation()) + "\n";
    }
    for (const auto& c : g.spines)
        out += "spine " + narrow(c.anchorName) + " " + narrow(c.baseName) + " " + narrow(c.goalName) + " " +
               narrow(c.tagName) + vec(c.aaxis) + vec(c.aroll) + vec(c.axis) + vec(c.roll) + vec(c.atan) + vec(c.gtan) +
               "\n";
    return out;
}

std::string ReadAll(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST_F(GlueOnRig, AStoredGlueReadsBackInAnotherProcessWithEveryValueEqual) {
    if (const char* scene = std::getenv("TROVO_GLUE_CHILD_SCENE")) {
        orvhost::ResetScene();
        std::wstring error;
        ASSERT_TRUE(orvhost::OpenScene(scene, error));
        ORV::Model model(ORV::CRef::FromPath(L"Biped"));
        ASSERT_TRUE(model.IsValid());
        std::unique_ptr<GlueMap> glue(GlueMap::CreateFromCustomProperty(model));
        ASSERT_TRUE(glue);
        std::ofstream(std::getenv("TROVO_GLUE_CHILD_OUT")) << Dump(*glue);
        return;
    }
    GluedRig rig;
    ASSERT_TRUE(rig.Build(nullptr));
    rig.glue->SaveToCustomProperty(rig.biped.model);
    const std::string expected = Dump(*rig.glue);
    ASSERT_NE(expected.find("spine Spine1 Spine2 Chest chest"), std::string::npos);

    const std::string base = std::string(::testing::TempDir()) + "zukglue_child_" + std::to_string(::getpid());
    const std::string scenePath = base + ".orvscene", outPath = base + ".txt";
    std::wstring error;
    ASSERT_TRUE(orvhost::SaveScene(scenePath, error));
    char self[4096];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    ASSERT_GT(n, 0);
    self[n] = '\0';
    const std::string command = "TROVO_GLUE_CHILD_SCENE='" + scenePath + "' TROVO_GLUE_CHILD_OUT='" + outPath + "' '" +
                                std::string(self) +
                                "' --gtest_filter=GlueOnRig.AStoredGlueReadsBackInAnotherProcessWithEveryValueEqual "
                                "> /dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(ReadAll(outPath), expected);
    std::remove(scenePath.c_str());
    std::remove(outPath.c_str());
}

}  // namespace
