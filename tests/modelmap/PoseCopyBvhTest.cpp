// Pose copying on real capture: a CMU clip copied frame by frame onto rigs built from its own
// skeleton. Whatever the shape of the target, the invariants below hold for a correct copy:
// onto the same skeleton it gives back the source pose, onto the skeleton scaled by k it gives
// k times the positions and the same rotations, and a target's bones keep their own lengths.
// The source pose comes from the tests' own forward kinematics of the file, not the plug-in's.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/InputStream.h"
#include "glue/GlueMap.h"
#include "mocap/BvImport.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "support/BvhRigBuilder.h"
#include "support/CaptureSource.h"

namespace {

using ORV::MATH::CMatrix3;
using ORV::MATH::CRotation;
using ORV::MATH::CVector3;
using ZUK::ModelMap;
using ZUK::ModelStructure;

const std::string kWalk = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh";

double RotationAngle(const CMatrix3& m) {
    const double c = (m.Get(0, 0) + m.Get(1, 1) + m.Get(2, 2) - 1.0) / 2.0;
    return std::acos(std::max(-1.0, std::min(1.0, c)));
}

// A column-convention matrix of the tests' forward kinematics as the host's row matrix.
CMatrix3 RowMatrix(const bvhrig::Mat3& m) {
    CMatrix3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.Set(i, j, m[j][i]);
    return r;
}

CMatrix3 Transposed(const CMatrix3& m) {
    CMatrix3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.Set(i, j, m.Get(j, i));
    return r;
}

CVector3 Vec(const bvhrig::Vec3& v) { return CVector3(v[0], v[1], v[2]); }

using bvhrig::CaptureSource;

// A rig built from the skeleton, tagged in its rest pose, measured, and paired with the source.
struct TargetRig {
    bvhrig::BvhRig rig;
    std::unique_ptr<ModelStructure> structure;
    std::unique_ptr<ModelMap> map;
    ZUK::GlueMap glue;

    bool Build(const bvhrig::Skeleton& skel, const bvhrig::Tagging& tagging, bvhrig::RigOptions options,
               const wchar_t* name, ModelMap& source) {
        bvhrig::BipedLimbs(tagging, options);
        options.ikLegs = options.ikArms = true;
        rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, name, options);
        if (!rig.model.IsValid()) return false;
        structure.reset(ModelStructure::CreateFromFile(L"biped"));
        if (!structure || !bvhrig::TagRigByProperties(rig.model, *structure, tagging)) return false;
        map.reset(new ModelMap(rig.model, structure.get()));
        map->createMap();
        glue.modelMap = map.get();
        return map->BuildRelationshipsWithSrcModelMap(source, glue);
    }
};

class PoseCopyOnCapture : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::NewScene();
        std::string error;
        ASSERT_TRUE(bvhrig::ReadBvh(kWalk, skel, &error)) << error;
        tagging = bvhrig::CmuMotionBuilderTagging();
        ASSERT_TRUE(source.Build(kWalk, tagging));
        const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(skel, -1);
        double low = 1e300, high = -1e300;
        for (const auto& p : rest.position) {
            low = std::min(low, p[1]);
            high = std::max(high, p[1]);
        }
        height = high - low;
    }

    int NodeOf(const ModelStructure& s, const std::wstring& name) const {
        for (int i = 0; i < s.numNodes; ++i)
            if (std::wstring(s.nodes[i].Name.GetWideString()) == name) return i;
        return -1;
    }

    // Nodes whose position must follow the source: the root, the chest, hands and feet, and every
    // tagged node whose joint hangs directly below the joint of its tagged parent, when that
    // parent's position follows too. (A node under an untagged joint that turns, such as the CMU
    // neck, cannot know of that turn, and neither can the nodes hung from it.)
    bool PositionChecked(const ModelStructure& s, int node) const {
        static const std::wstring always[] = {L"cog", L"chest", L"lhand", L"rhand", L"lfoot", L"rfoot"};
        const std::wstring name = s.nodes[node].Name.GetWideString();
        for (const auto& a : always)
            if (name == a) return true;
        const int p = s.nodes[node].Parent;
        if (p < 0 || p >= node) return false;
        const std::wstring parentJoint = bvhrig::JointOf(tagging, s.nodes[p].Name.GetWideString());
        const int j = skel.find(bvhrig::JointOf(tagging, name));
        return j >= 0 && skel.joints[j].parent >= 0 && skel.joints[skel.joints[j].parent].name == parentJoint &&
               PositionChecked(s, p);
    }

    // The upper and middle joints of limbs that are straight at this frame: their normal is zero,
    // and the solver then has no plane to bend in.
    bool StraightLimbJoint(const ModelMap& m, int node) const {
        for (int p = 0; p < m.structure->numPlanes; ++p) {
            const ModelStructure::Plane& plane = m.structure->planes[p];
            if (m.planes[p].normal.GetLength() >= 0.5) continue;
            if (node == plane.AnchorIndex || node == plane.Mid) return true;
        }
        return false;
    }

    struct Errors {
        double rotation = 0.0, position = 0.0, straightLimb = 0.0;
        int rotationsChecked = 0, positionsChecked = 0;
        std::wstring worstNode;
        int worstFrame = -1;
    };

    // Copies every frame and compares with the source scaled by k.
    Errors CopyClip(TargetRig& target, double k) {
        Errors e;
        ModelMap& m = *target.map;
        for (size_t f = 0; f < skel.frames.size(); ++f) {
            m.CopyPoseFromSrcModelMap(*source.map, static_cast<double>(f));
            m.solveIK();
            const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(skel, static_cast<int>(f));
            for (const auto& pair : tagging) {
                const int node = NodeOf(*m.structure, pair.first);
                const int joint = skel.find(pair.second);
                if (node < 0 || joint < 0) continue;
                // The node's turn since tagging: the tagging pose first, then the turn.
                const CMatrix3 tagged = m.nodes[node].tpose.GetRotationMatrix3();
                CMatrix3 turn;
                turn.Mul(Transposed(tagged), m.nodes[node].global.GetRotationMatrix3());
                CMatrix3 diff;
                diff.Mul(turn, Transposed(RowMatrix(pose.rotation[joint])));
                const double angle = RotationAngle(diff);
                CVector3 d = m.nodes[node].global.GetTranslation() - Vec(pose.position[joint]) * k;
                const double distance = d.GetLength() / (k * height);
                if (StraightLimbJoint(m, node)) {
                    e.straightLimb = std::max(e.straightLimb, angle);
                    continue;
                }
                e.rotation = std::max(e.rotation, angle);
                ++e.rotationsChecked;
                if (PositionChecked(*m.structure, node)) {
                    if (distance > e.position) {
                        e.worstNode = pair.first;
                        e.worstFrame = static_cast<int>(f);
                    }
                    e.position = std::max(e.position, distance);
                    ++e.positionsChecked;
                }
            }
        }
        return e;
    }

    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging;
    CaptureSource source;
    double height = 0.0;
    modelmaptest::FactoryData factory;
};

TEST_F(PoseCopyOnCapture, ARigOfTheSourcesOwnSkeletonGivesBackTheSourcePose) {
    TargetRig target;
    ASSERT_TRUE(target.Build(skel, tagging, bvhrig::RigOptions(), L"Same", *source.map));
    const Errors e = CopyClip(target, 1.0);
    EXPECT_GT(e.rotationsChecked, 20 * 300);
    EXPECT_GT(e.positionsChecked, 10 * 300);
    EXPECT_LT(e.rotation, 1e-5);
    EXPECT_LT(e.position, 1e-5);
    std::printf("[ identity ] largest rotation error %.3g rad, position %.3g heights (%ls, frame %d); straight limbs %.3g rad\n",
                e.rotation, e.position, e.worstNode.c_str(), e.worstFrame, e.straightLimb);
}

TEST_F(PoseCopyOnCapture, ARigScaledByKGivesKTimesThePositionsAndTheSameRotations) {
    bvhrig::RigOptions options;
    options.scale = 1.5;
    TargetRig target;
    ASSERT_TRUE(target.Build(skel, tagging, options, L"Scaled", *source.map));
    const Errors e = CopyClip(target, 1.5);
    EXPECT_GT(e.positionsChecked, 10 * 300);
    EXPECT_LT(e.rotation, 1e-5);
    EXPECT_LT(e.position, 1e-5);
}

TEST_F(PoseCopyOnCapture, ATargetOfAnotherShapeKeepsItsBonesBendsAlikeAndReachesItsGoals) {
    bvhrig::RigOptions options;
    options.legScale = 1.3;
    options.armScale = 0.8;
    TargetRig target;
    ASSERT_TRUE(target.Build(skel, tagging, options, L"Other", *source.map));
    ModelMap& m = *target.map;
    ModelMap& src = *source.map;
    const ModelStructure& s = *m.structure;

    // The rig's own limb lengths, as built (rest positions of its joints).
    struct LimbLengths {
        int anchor, mid, span;
        double upper, lower;
    };
    std::vector<LimbLengths> limbs;
    for (int p = 0; p < s.numPlanes; ++p) {
        const ModelStructure::Plane& plane = s.planes[p];
        auto rest = [&](int node) {
            return target.rig.rest[skel.find(bvhrig::JointOf(tagging, s.nodes[node].Name.GetWideString()))];
        };
        limbs.push_back({plane.AnchorIndex, plane.Mid, plane.Span, (rest(plane.Mid) - rest(plane.AnchorIndex)).GetLength(),
                         (rest(plane.Span) - rest(plane.Mid)).GetLength()});
    }

    // A limb within 0.1 rad of straight has no plane normal, and the solver then lays it
    // straight along its goal direction: there the end can overshoot the goal by what the
    // source's slight bend took up. Those frames are reported, not held to the bound.
    double worstLength = 0.0, worstReach = 0.0, straightReach = 0.0;
    int reachable = 0, bendsCompared = 0, bendsDisagree = 0;
    for (size_t f = 0; f < skel.frames.size(); ++f) {
        m.CopyPoseFromSrcModelMap(src, static_cast<double>(f));
        m.solveIK();
        for (size_t p = 0; p < limbs.size(); ++p) {
            const LimbLengths& l = limbs[p];
            const CVector3 A = m.nodes[l.anchor].global.GetTranslation();
            const CVector3 M = m.nodes[l.mid].global.GetTranslation();
            const CVector3 S = m.nodes[l.span].global.GetTranslation();
            if ((S - A).GetLength() > l.upper + l.lower - 1e-9 * height) continue;  // out of reach
            const double reach = std::fabs((S - M).GetLength() - l.lower) / height;
            if (m.planes[p].normal.GetLength() < 0.5) {
                straightReach = std::max(straightReach, reach);
                continue;
            }
            ++reachable;
            worstLength = std::max(worstLength, std::fabs((M - A).GetLength() - l.upper) / l.upper);
            // The lower bone, laid from the middle joint along the solved direction, ends on the goal.
            worstReach = std::max(worstReach, reach);
            // The bend: the target's plane, measured afresh, against the source's.
            if (src.planes[p].normal.GetLength() < 0.5) continue;
            CVector3 u = S - A, v = M - A, n;
            n.Cross(u, v);
            if (n.GetLength() < 1e-9) continue;
            ++bendsCompared;
            if (n.Dot(src.planes[p].normal) <= 0.0) ++bendsDisagree;
        }
    }
    EXPECT_GT(reachable, 300);
    EXPECT_GT(bendsCompared, 300);
    EXPECT_LT(worstLength, 1e-6);
    EXPECT_LT(worstReach, 1e-6);
    EXPECT_EQ(bendsDisagree, 0);
    std::printf("[ reshaped ] bone length %.3g relative, reach %.3g heights; straight limbs reach %.3g heights\n",
                worstLength, worstReach, straightReach);
}

}  // namespace
