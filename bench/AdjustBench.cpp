// Cost of the pose adjustments during playback, on the walking character of the adjustment
// tests (11 nodes, 3 limbs, 21 frames). One iteration is one evaluation of the operator at a
// time that advances by 0.37 frames, wrapping at the clip's end; the counter "evals/s" is
// evaluations per second.
//   BM_PlaybackWithoutAdjustments: applyPose, solveIK and the local poses: what an evaluation
//                                  costs without the adjustment steps.
//   BM_PlaybackDefaults:           computePose with every adjustment parameter at its default.
//   BM_PlaybackAllAdjustments:     computePose with stride, scale, stretch, hip, goal, semi-free
//                                  and rotation offsets, dampening, a held foot (animated clamp)
//                                  and a roll all active.
// And the whole playback through the host, on the CMU slow walk (07_05, 518 frames, 31 joints)
// retargeted onto a rig of nulls of its own skeleton with two-bone IK legs and arms: one
// iteration evaluates every rig object's global transform at one frame ("frames/s").
//   BM_RigPlaybackNoAdjustments:   every adjustment parameter at its default.
//   BM_RigPlaybackAllAdjustments:  stride, hip, goal and chest offsets, stretch, roll, a
//                                  rotation offset with dampening on the head, and a held foot.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "../tests/live/AdjustTestSupport.h"
#include "../tests/support/BvhRigBuilder.h"
#include "core/FileManager.h"
#include "shell/Retarget.h"

namespace {

using namespace adjusttest;

double Advance(double time, const Walker& w) {
    time += 0.37;
    return time >= w.walk.frames - 1 ? time - (w.walk.frames - 1) : time;
}

void BM_PlaybackWithoutAdjustments(benchmark::State& state) {
    Walker w;
    double time = 0.0;
    for (auto _ : state) {
        w.op->computeFrame(time);
        w.op->applyPose();
        w.op->modelMap->solveIK();
        for (int n = 1; n < NODES; ++n) {
            ZUK::NodeMap& node = w.node(n);
            node.local = ORV::MATH::MapWorldPoseToObjectSpace(
                w.node(w.op->modelMap->structure->nodes[n].Parent).global, node.global);
        }
        benchmark::DoNotOptimize(w.node(LFOOT).global);
        time = Advance(time, w);
    }
    state.counters["evals/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PlaybackWithoutAdjustments);

void BM_PlaybackDefaults(benchmark::State& state) {
    Walker w;
    double time = 0.0;
    for (auto _ : state) {
        w.op->computeFrame(time);
        w.op->computePose();
        benchmark::DoNotOptimize(w.node(LFOOT).global);
        time = Advance(time, w);
    }
    state.counters["evals/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PlaybackDefaults);

void BM_PlaybackAllAdjustments(benchmark::State& state) {
    Walker w;
    w.parameter(L"Stride").PutValue(1.3);
    w.parameter(L"Scale").PutValue(1.1);
    w.parameter(L"offsetFeet").PutValue(false);
    w.parameter(L"hipY").PutValue(-1.0);
    w.parameter(L"hipX").PutValue(0.2);
    w.parameter(L"lhandStretch").PutValue(0.9);
    w.parameter(L"lhandX").PutValue(0.5);
    w.parameter(L"rfootZ").PutValue(0.3);
    w.parameter(L"lfootRoll").PutValue(20.0);
    w.parameter(L"spineY").PutValue(0.4);
    w.parameter(L"spineRX").PutValue(10.0);
    w.addRotationOffset(COG, 0.0, 15.0, 0.0, 0.0);
    w.addRotationOffset(SPINE, 5.0, 0.0, 0.0, 0.5);
    w.addRotationOffset(LHAND, 0.0, 0.0, 30.0, 0.2);
    Animate(w.parameter(L"lfootClamp"), {{3.0, 1.0}, {9.0, 0.0}, {14.0, 1.0}, {18.0, 0.0}});
    w.op->updateStride();
    for (int p = 0; p < PLANES; ++p) w.op->updateClampKeys(p, 0.0);
    double time = 0.0;
    for (auto _ : state) {
        w.op->computeFrame(time);
        w.op->computePose();
        benchmark::DoNotOptimize(w.node(LFOOT).global);
        time = Advance(time, w);
    }
    state.counters["evals/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PlaybackAllAdjustments);

// ---- The whole playback ------------------------------------------------------------------------

const std::string kWalk = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/07_05.bvh";
const std::string kFactory = std::string(TROVO_TEST_DATA) + "/../../data";
const std::string kTemplate = kFactory + "/Addons/Trovo/Data/TagTemplates/cmu_mb2010.tagt";

void UseFactoryData() {
    orvhost::SetInstallationPath(ORV::ovUserPath, L"");
    orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
    orvhost::SetInstallationPath(ORV::ovFactoryPath, bvhrig::Widen(kFactory));
    ZUK::FileManager::rootsFilled = false;
    ZUK::FileManager refill;
}

// The operators reach the plug-in's callbacks through the host's loader.
bool LoadPluginOnce() {
    static const bool loaded = [] {
        Dl_info info;
        if (!dladdr(reinterpret_cast<void*>(&ZUK::Retarget::LoadBVHOnToModel), &info) || !info.dli_fname)
            return false;
        std::wstring error;
        return orvhost::LoadPlugin(info.dli_fname, error);
    }();
    return loaded;
}

struct PlayingRig {
    ORV::Model model;
    std::vector<ORV::KinematicState> globals;
    int frames = 0;
    bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
    bvhrig::Skeleton skel;

    ORV::X3DObject object(const wchar_t* node) const {
        return model.FindChild(bvhrig::JointOf(tagging, node).c_str(), L"", ORV::CStringArray(), true);
    }
};

// A fresh scene with the walk retargeted onto "Rig"; `beforePlay` runs after the transfer and
// before the first evaluation. Invalid model when anything failed.
PlayingRig Retargeted(const std::function<void(PlayingRig&)>& beforePlay) {
    PlayingRig r;
    UseFactoryData();
    if (!LoadPluginOnce() || !bvhrig::ReadBvh(kWalk, r.skel)) return r;
    orvhost::NewScene();
    r.frames = static_cast<int>(r.skel.frames.size());
    bvhrig::RigOptions options;
    bvhrig::BipedLimbs(r.tagging, options);
    options.ikLegs = options.ikArms = true;
    bvhrig::BvhRig rig =
        bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), r.skel, L"Rig", options);
    std::unique_ptr<ZUK::ModelStructure> structure(ZUK::ModelStructure::CreateFromFile(L"biped"));
    if (!rig.model.IsValid() || !structure || !bvhrig::TagRigByProperties(rig.model, *structure, r.tagging))
        return r;
    ZUK::ModelMap map(rig.model, structure.get());
    map.createMap();
    map.SaveToCustomProperty();
    structure->SaveToCustomProperty(rig.model);
    std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::createFromModelMap(rig.model, &map));
    if (!glue) return r;
    glue->SaveToCustomProperty(rig.model);
    if (!ZUK::Retarget::LoadBVHOnToModel(ORV::CString(kWalk.c_str()), ORV::CString(kTemplate.c_str()),
                                         rig.model))
        return r;
    r.model = rig.model;
    beforePlay(r);
    if (!r.model.IsValid()) return r;
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray found = r.model.FindChildren(L"", L"", families, true);
    for (long i = 0; i < found.GetCount(); ++i) {
        ORV::X3DObject o(found[i]);
        if (o.GetType() != L"crvlist") r.globals.push_back(o.GetKinematics().GetGlobal());
    }
    // Two passes load the operator and wake the small ones.
    for (int pass = 0; pass < 2; ++pass)
        for (ORV::KinematicState& g : r.globals) g.GetTransform(1.0);
    return r;
}

void PlayRig(benchmark::State& state, PlayingRig& r) {
    if (!r.model.IsValid()) {
        state.SkipWithError("the walk did not play on the rig");
        return;
    }
    double frame = 1.0, sink = 0.0;
    for (auto _ : state) {
        for (ORV::KinematicState& g : r.globals) sink += g.GetTransform(frame).GetPosY();
        frame += 1.0;
        if (frame > r.frames) frame = 1.0;
    }
    benchmark::DoNotOptimize(sink);
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_RigPlaybackNoAdjustments(benchmark::State& state) {
    PlayingRig r = Retargeted([](PlayingRig&) {});
    PlayRig(state, r);
}
BENCHMARK(BM_RigPlaybackNoAdjustments)->Unit(benchmark::kMicrosecond);

void BM_RigPlaybackAllAdjustments(benchmark::State& state) {
    PlayingRig r = Retargeted([](PlayingRig& rig) {
        ORV::CustomProperty offset;
        rig.object(L"head").AddCustomProperty(L"RotationOffsetPPG", false, offset);
        AddDouble(offset, L"X", 10.0);
        AddDouble(offset, L"Y", 0.0);
        AddDouble(offset, L"Z", 5.0);
        AddDouble(offset, L"Reduce", 0.5);
        ORV::CustomProperty adjust;
        for (long i = 0; i < rig.model.GetProperties().GetCount(); ++i) {
            ORV::CustomProperty p(rig.model.GetProperties()[i]);
            if (p.IsValid() && p.GetName() == ORV::CString(L"RetargetAdjustPPG")) adjust = p;
        }
        const std::pair<const wchar_t*, double> values[] = {
            {L"Stride", 1.3},   {L"hipY", -2.0},        {L"hipX", 0.5},       {L"lhandX", 1.0},
            {L"rfootZ", 0.5},   {L"lhandStretch", 0.9}, {L"lfootRoll", 20.0}, {L"chestY", 1.0},
            {L"chestRX", 10.0}, {L"rfootRoll", -10.0}};
        // Without the property nothing would be adjusted: no figure then.
        if (!adjust.IsValid() || !adjust.GetParameter(L"chestRX").IsValid()) {
            rig.model = ORV::Model();
            return;
        }
        for (const auto& v : values) adjust.PutParameterValue(v.first, ORV::CValue(v.second));
        adjust.PutParameterValue(L"offsetFeet", ORV::CValue(false));
        Animate(adjust.GetParameter(L"lfootClamp"), {{40.0, 1.0}, {60.0, 0.0}, {200.0, 1.0}, {260.0, 0.0}});
    });
    // The adjusted root stands 2 lower than the motion puts it.
    if (r.model.IsValid()) {
        ZUK::RetargetOp* op = ZUK::RetargetOp::GetRetargetOpPointer(r.model);
        state.counters["hipY"] =
            op ? static_cast<double>(op->adjustProperty.GetParameterValue(L"hipY")) : 0.0;
    }
    PlayRig(state, r);
}
BENCHMARK(BM_RigPlaybackAllAdjustments)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
