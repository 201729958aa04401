// The capture job and its playback: the CMU capture 01_01 (2752 frames, 31 joints) retargeted
// onto a rig of nulls built from its own skeleton with two-bone IK legs and arms, set up as
// tagging leaves it (structure, measured map and glue stored on the model).
//   BM_RetargetBVH:        "RetargetBVH" as a script runs it: the map file, the BVH file, both
//                          maps, the transfer and the operator installation. Frames per second.
//   BM_TransferMocapMotion: the transfer alone, on a capture read once: relationship, pose copy
//                          and recording of every frame, foot passes, installation.
//   BM_PlaybackOperators:  one iteration evaluates every rig object's global transform at one
//                          frame, the rig driven by the live operators. Time per frame.
//   BM_PlaybackCurves:     the same on the same rig with every object's local channels keyed at
//                          every frame with what the operators produced (a plotted rig).
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "../tests/support/BvhRigBuilder.h"
#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/FileManager.h"
#include "core/InputStream.h"
#include "glue/GlueMap.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"
#include "shell/Retarget.h"

namespace {

const std::string kPath = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2008/01_01.bvh";
const std::string kFactory = std::string(TROVO_TEST_DATA) + "/../../data";
const std::string kTemplate = kFactory + "/Addons/Trovo/Data/TagTemplates/cmu_mb2008.tagt";
const wchar_t* const kChannels[6] = {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"};

void UseFactoryData() {
    orvhost::SetInstallationPath(ORV::ovUserPath, L"");
    orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
    orvhost::SetInstallationPath(ORV::ovFactoryPath, bvhrig::Widen(kFactory));
    ZUK::FileManager::rootsFilled = false;
    ZUK::FileManager refill;
}

// The operators reach the plug-in's callbacks through the host's loader: load the library that
// this program is linked with.
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

int CaptureFrames() {
    bvhrig::Skeleton skel;
    return bvhrig::ReadBvh(kPath, skel) ? static_cast<int>(skel.frames.size()) : 0;
}

// A fresh scene with the rig "Rig" set up as tagging leaves it; invalid when anything failed.
ORV::Model BuildTaggedRig(const wchar_t* name = L"Rig") {
    bvhrig::Skeleton skel;
    if (!bvhrig::ReadBvh(kPath, skel)) return ORV::Model();
    const bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging(true);
    bvhrig::RigOptions options;
    bvhrig::BipedLimbs(tagging, options);
    options.ikLegs = options.ikArms = true;
    bvhrig::BvhRig rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, name, options);
    std::unique_ptr<ZUK::ModelStructure> structure(ZUK::ModelStructure::CreateFromFile(L"biped"));
    if (!rig.model.IsValid() || !structure || !bvhrig::TagRigByProperties(rig.model, *structure, tagging))
        return ORV::Model();
    ZUK::ModelMap map(rig.model, structure.get());
    map.createMap();
    map.SaveToCustomProperty();
    structure->SaveToCustomProperty(rig.model);
    std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::createFromModelMap(rig.model, &map));
    if (!glue) return ORV::Model();
    glue->SaveToCustomProperty(rig.model);
    return rig.model;
}

// Every 3D object of the model in the order of the operators' walk, without connection lines.
std::vector<ORV::X3DObject> RigObjects(ORV::Model model) {
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray found = model.FindChildren(L"", L"", families, true);
    std::vector<ORV::X3DObject> objects;
    for (long i = 0; i < found.GetCount(); ++i) {
        ORV::X3DObject o(found[i]);
        if (o.GetType() != L"crvlist") objects.push_back(o);
    }
    return objects;
}

void BM_RetargetBVH(benchmark::State& state) {
    UseFactoryData();
    orvhost::NewScene();
    const int frames = CaptureFrames();
    ORV::Model rig = BuildTaggedRig();
    if (!rig.IsValid() || frames == 0) {
        state.SkipWithError("the rig or the capture did not build");
        return;
    }
    const ORV::CString bvh(kPath.c_str()), map(kTemplate.c_str());
    for (auto _ : state) {
        if (!ZUK::Retarget::LoadBVHOnToModel(bvh, map, rig)) {
            state.SkipWithError("RetargetBVH failed");
            return;
        }
    }
    state.counters["frames"] = frames;
    state.counters["frames_per_second"] = benchmark::Counter(
        static_cast<double>(frames) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_RetargetBVH)->Unit(benchmark::kMillisecond);

void BM_TransferMocapMotion(benchmark::State& state) {
    UseFactoryData();
    orvhost::NewScene();
    ORV::Model rig = BuildTaggedRig();
    ZUK::InputStream stream{ORV::CString(kTemplate.c_str())};
    std::unique_ptr<ZUK::TagMap> tags;
    if (stream.buffer && ZUK::TagMap::readMapFileHeader(stream, ORV::CString(kTemplate.c_str())))
        tags.reset(ZUK::TagMap::createFromStream(stream));
    std::unique_ptr<ZUK::MocapData> capture(
        ZUK::BvImport::extractMocapData(ORV::CString(kPath.c_str()), ZUK::YUp));
    if (!rig.IsValid() || !tags || !capture) {
        state.SkipWithError("the rig, the map file or the capture did not read");
        return;
    }
    capture->updateTransforms(0);
    tags->applyToMocap(capture.get());
    std::unique_ptr<ZUK::ModelStructure> sourceStructure(
        ZUK::ModelStructure::CreateFromFile(tags->structure_file));
    ZUK::ModelMap source(capture.get(), sourceStructure.get());
    source.createMap();
    const int frames = capture->nodes[0].frameCount;
    for (auto _ : state) {
        // What the driver rebuilds from the model for every transfer.
        state.PauseTiming();
        std::unique_ptr<ZUK::ModelStructure> structure(ZUK::ModelStructure::CreateFromCustomProperty(rig));
        ZUK::ModelMap target(rig, structure.get());
        target.LoadFromCustomProperty();
        std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::CreateFromCustomProperty(rig));
        glue->applyToModel(rig, &target);
        state.ResumeTiming();
        if (!target.TransferMocapMotion(source, *glue)) {
            state.SkipWithError("the transfer failed");
            return;
        }
    }
    state.counters["frames"] = frames;
    state.counters["frames_per_second"] = benchmark::Counter(
        static_cast<double>(frames) * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_TransferMocapMotion)->Unit(benchmark::kMillisecond);

// The rig playing the capture through its operators, and the rig's objects.
struct PlayingRig {
    ORV::Model model;
    std::vector<ORV::X3DObject> objects;
    int frames = 0;
};

PlayingRig RetargetedRig(const wchar_t* name) {
    PlayingRig r;
    r.frames = CaptureFrames();
    r.model = BuildTaggedRig(name);
    if (!r.model.IsValid() || !ZUK::Retarget::LoadBVHOnToModel(ORV::CString(kPath.c_str()),
                                                               ORV::CString(kTemplate.c_str()), r.model))
        return PlayingRig();
    r.objects = RigObjects(r.model);
    return r;
}

// Evaluates every object's global transform at one frame per iteration, frames 1 to the end.
void Play(benchmark::State& state, const std::vector<ORV::X3DObject>& objects, int frames) {
    std::vector<ORV::KinematicState> globals;
    for (const ORV::X3DObject& o : objects) globals.push_back(o.GetKinematics().GetGlobal());
    double frame = 1.0, sink = 0.0;
    for (auto _ : state) {
        for (ORV::KinematicState& g : globals) sink += g.GetTransform(frame).GetPosY();
        frame += 1.0;
        if (frame > frames) frame = 1.0;
    }
    benchmark::DoNotOptimize(sink);
    state.counters["objects"] = static_cast<double>(globals.size());
    state.counters["frames_per_second"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_PlaybackOperators(benchmark::State& state) {
    UseFactoryData();
    if (!LoadPluginOnce()) {
        state.SkipWithError("the plug-in did not load");
        return;
    }
    orvhost::NewScene();
    PlayingRig rig = RetargetedRig(L"Rig");
    if (!rig.model.IsValid()) {
        state.SkipWithError("the capture did not play on the rig");
        return;
    }
    Play(state, rig.objects, rig.frames);
}
BENCHMARK(BM_PlaybackOperators)->Unit(benchmark::kMicrosecond);

void BM_PlaybackCurves(benchmark::State& state) {
    UseFactoryData();
    if (!LoadPluginOnce()) {
        state.SkipWithError("the plug-in did not load");
        return;
    }
    orvhost::NewScene();
    // What the operators make of the capture, sampled once, keyed on a second rig of the same
    // build that has no operators.
    PlayingRig played = RetargetedRig(L"Played");
    ORV::Model keyed = BuildTaggedRig(L"Keyed");
    std::vector<ORV::X3DObject> objects = RigObjects(keyed);
    if (!played.model.IsValid() || !keyed.IsValid() || objects.size() != played.objects.size()) {
        state.SkipWithError("the two rigs did not build alike");
        return;
    }
    for (size_t i = 0; i < objects.size(); ++i) {
        ORV::CTimeArray times;
        std::vector<ORV::CValueArray> values(6);
        ORV::KinematicState local = played.objects[i].GetKinematics().GetLocal();
        for (int f = 1; f <= played.frames; ++f) {
            const ORV::MATH::CTransformation t = local.GetTransform(f);
            const ORV::MATH::CVector3 a = t.GetRotation().GetXYZAngles();
            const double v[6] = {t.GetPosX(),          t.GetPosY(),          t.GetPosZ(),
                                 a.x * 57.29577951308, a.y * 57.29577951308, a.z * 57.29577951308};
            times.Add(ORV::CTime(f));
            for (int c = 0; c < 6; ++c) values[c].Add(ORV::CValue(v[c]));
        }
        for (int c = 0; c < 6; ++c) {
            ORV::FCurve curve;
            objects[i]
                .GetKinematics()
                .GetLocal()
                .GetParameter(kChannels[c])
                .AddFCurve(ORV::ovStandardFCurve, curve);
            curve.SetKeys(times, values[c]);
        }
    }
    Play(state, objects, played.frames);
}
BENCHMARK(BM_PlaybackCurves)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
