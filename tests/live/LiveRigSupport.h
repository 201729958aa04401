// A retargeted rig in the headless host, for the tests of every area that plays or bakes the
// live operators (include "live/LiveRigSupport.h").
//
// LiveRig builds what a user has before a transfer: a rig made from the skeleton of a BVH file
// (IK legs and arms by default), tagged in its rest pose with the CMU tagging, measured, with
// "ZUKStructure", "ZUKMap" and "ZUKGlue" stored on the model, and the file's capture paired with
// it, read back from those properties as a transfer reads it. Record() then copies and records the capture's
// frames into a ZUK::Motion as a transfer does, and Install() puts the live operators on the rig. The rig's
// objects are read through the host (GlobalAt), and the source pose comes from the tests' own forward
// kinematics (Expected), never from the plug-in.
#pragma once

#include <gtest/gtest.h>
#include <orv/ORV.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "glue/GlueMap.h"
#include "live/Motion.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "support/BvhRigBuilder.h"
#include "support/CaptureSource.h"

namespace liverig {

using ORV::MATH::CMatrix3;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

inline std::string TrovoLibraryPath() { return std::string(TROVO_BIN_DIR) + "/libtrovo.so"; }

// The operators' callbacks are found by the host through its plug-in loader: libtrovo.so is
// loaded once per process. Empty when it is loaded.
inline const std::wstring& LoadTrovoOnce() {
    static const std::wstring error = [] {
        std::wstring e;
        if (!orvhost::LoadPlugin(TrovoLibraryPath(), e) && e.empty())
            e = L"LoadPlugin failed without a message";
        return e;
    }();
    return error;
}

inline std::string CmuWalk() { return std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh"; }

// Play Control's current frame: what the host plays, and what "now" means to every read.
inline void SetCurrentFrame(double frame) {
    ORV::Property pc(ORV::Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    pc.PutParameterValue(L"Current", ORV::CValue(frame));
}

// The global transform of `object` as the host shows it with the play head at `time`.
inline CTransformation GlobalAt(const ORV::X3DObject& object, double time) {
    SetCurrentFrame(time);
    return object.GetKinematics().GetGlobal().GetTransform(time);
}

// A row matrix of the host from a column matrix of the tests' forward kinematics.
inline CMatrix3 RowMatrix(const bvhrig::Mat3& m) {
    CMatrix3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.Set(i, j, m[j][i]);
    return r;
}

inline CVector3 Vec(const bvhrig::Vec3& v) { return CVector3(v[0], v[1], v[2]); }

// The angle of the rotation that takes a onto b.
inline double AngleBetween(const CMatrix3& a, const CMatrix3& b) {
    double trace = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) trace += a.Get(i, k) * b.Get(i, k);
    return std::acos(std::max(-1.0, std::min(1.0, (trace - 1.0) / 2.0)));
}

// Every custom operator reading or writing the kinematic states of `object`, as "EnumElements"
// lists them.
inline std::vector<ORV::CustomOperator> OperatorsOn(const ORV::KinematicState& state) {
    std::vector<ORV::CustomOperator> out;
    ORV::CValueArray args;
    args.Add(ORV::CValue(state.GetFullName()));
    ORV::CValue result;
    ORV::Application().ExecuteCommand(L"EnumElements", args, result);
    const ORV::CValueArray& elements = result;
    for (long i = 0; i < elements.GetCount(); ++i) {
        ORV::CRef ref = elements[i];
        if (ref.IsA(ORV::ovCustomOperatorID)) out.push_back(ORV::CustomOperator(ref));
    }
    return out;
}

struct LiveRig {
    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging;
    bvhrig::CaptureSource source;
    bvhrig::BvhRig rig;
    std::unique_ptr<ZUK::ModelStructure> structure;
    std::unique_ptr<ZUK::ModelMap> map;
    std::unique_ptr<ZUK::GlueMap> glue;
    std::unique_ptr<ZUK::Motion> motion;
    // Height of the skeleton at rest, for error budgets.
    double height = 0.0;
    // Runs on the built rig before it is tagged (to add objects of its own).
    std::function<void(LiveRig&)> beforeTagging;

    // The rig of the file's skeleton (scaled by `options`), tagged with `tagging` (the CMU
    // MotionBuilder tagging when empty). False, with the reason, when a step fails.
    bool Build(const std::string& bvhPath, const wchar_t* name, bvhrig::RigOptions options,
               std::string& error, bvhrig::Tagging tags = bvhrig::Tagging(), bool ik = true) {
        if (!bvhrig::ReadBvh(bvhPath, skel, &error)) return false;
        tagging = tags.empty() ? bvhrig::CmuMotionBuilderTagging() : tags;
        if (!source.Build(bvhPath, bvhrig::CmuMotionBuilderTagging()))
            return (error = "capture did not build"), false;
        bvhrig::BipedLimbs(bvhrig::CmuMotionBuilderTagging(), options);
        options.ikLegs = options.ikArms = ik;
        rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, name, options);
        if (!rig.model.IsValid()) return (error = "rig did not build"), false;
        const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(skel, -1);
        double low = 1e300, high = -1e300;
        for (const auto& p : rest.position) {
            low = std::min(low, p[1]);
            high = std::max(high, p[1]);
        }
        height = high - low;
        if (beforeTagging) beforeTagging(*this);
        return Tag(error);
    }

    // Tags, measures and stores the maps, as applying tags does, and pairs the rig with the
    // capture.
    bool Tag(std::string& error) {
        structure.reset(ZUK::ModelStructure::CreateFromFile(L"biped"));
        if (!structure) return (error = "no biped structure"), false;
        if (!bvhrig::TagRigByProperties(rig.model, *structure, tagging))
            return (error = "tagging failed"), false;
        map.reset(new ZUK::ModelMap(rig.model, structure.get()));
        map->createMap();
        structure->SaveToCustomProperty(rig.model);
        map->SaveToCustomProperty();
        glue.reset(ZUK::GlueMap::createFromModelMap(rig.model, map.get()));
        if (!glue) return (error = "no glue"), false;
        glue->SaveToCustomProperty(rig.model);
        // A transfer reads the rig back from what tagging stored, as the operator does at load:
        // both must see the same structure.
        glue.reset();
        map.reset();
        structure.reset(ZUK::ModelStructure::CreateFromCustomProperty(rig.model));
        if (!structure) return (error = "no stored structure"), false;
        map.reset(new ZUK::ModelMap(rig.model, structure.get()));
        map->LoadFromCustomProperty();
        if (!map->valid) return (error = "stored map not valid"), false;
        glue.reset(ZUK::GlueMap::CreateFromCustomProperty(rig.model));
        if (!glue) return (error = "no stored glue"), false;
        glue->applyToModel(rig.model, map.get());
        if (!map->BuildRelationshipsWithSrcModelMap(*source.map, *glue))
            return (error = "no relationship"), false;
        return true;
    }

    // Copies and records the first `frames` frames (all when negative), as a transfer does;
    // with `feet`, the foot passes run afterwards.
    void Record(long frames = -1, bool feet = false) {
        const long count = frames < 0 ? static_cast<long>(skel.frames.size())
                                      : std::min(frames, static_cast<long>(skel.frames.size()));
        motion.reset(new ZUK::Motion(count, map.get(), source.map.get()));
        for (long f = 0; f < count; ++f) {
            map->CopyPoseFromSrcModelMap(*source.map, static_cast<double>(f));
            motion->RecordPoseFromModelMap(f);
        }
        if (feet) motion->ProcessFootMovement();
    }

    // The live operators, with motion frame 0 at scene frame `insertion`.
    void Install(int insertion = 1) { ZUK::RetargetOp::ApplyRetargetOp(*glue, *motion, insertion); }

    ORV::X3DObject Object(const std::wstring& joint) const { return rig.object(skel, joint); }
    ORV::X3DObject ObjectOfNode(const std::wstring& node) const {
        return Object(bvhrig::JointOf(tagging, node));
    }

    int NodeIndex(const wchar_t* node) const { return structure->nodeIndex(node); }

    // The live operator of the rig, once an evaluation has loaded it.
    ZUK::RetargetOp* Live() const { return ZUK::RetargetOp::GetRetargetOpPointer(rig.model); }

    ORV::CustomProperty Adjust() const {
        ORV::Property p = modelmaptest::FindProperty(rig.model, L"RetargetAdjustPPG");
        return ORV::CustomProperty(p.GetRef());
    }

    // Reads every object of the rig at `time`, twice: the first evaluation of each small
    // operator does nothing.
    void WarmUp(double time) const {
        ORV::CRefArray objects = rig.model.FindChildren(L"", L"", ORV::CStringArray(), true);
        for (int pass = 0; pass < 2; ++pass) {
            GlobalAt(rig.model, time);
            for (long i = 0; i < objects.GetCount(); ++i) GlobalAt(ORV::X3DObject(objects[i]), time);
        }
    }
};

// The source pose, the rig's tagging pose being the rest pose of the same skeleton, unrotated.
struct Expected {
    bvhrig::GlobalPose pose;
    Expected(const bvhrig::Skeleton& skel, int frame) : pose(bvhrig::ForwardKinematics(skel, frame)) {}
    // The pose blended `t` of the way to the next frame: positions linearly.
    static CVector3 Between(const bvhrig::Skeleton& skel, int joint, int frame, double t) {
        const bvhrig::GlobalPose a = bvhrig::ForwardKinematics(skel, frame);
        const bvhrig::GlobalPose b = bvhrig::ForwardKinematics(skel, frame + 1);
        return Vec(a.position[joint]) * (1.0 - t) + Vec(b.position[joint]) * t;
    }
};

}  // namespace liverig
