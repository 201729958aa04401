// Per-frame work of a model map on the CMU capture 02_01 (31 joints, 344 frames) and on a rig of
// nulls built from its skeleton, mapped on the factory "biped" structure (23 nodes, 4 limbs):
// reading a frame into the map, taking the rotation offsets out, and the limb plane normals.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "../tests/support/BvhRigBuilder.h"
#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/FileManager.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"

namespace {

const std::string kPath = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh";

void UseFactoryData() {
    orvhost::SetInstallationPath(ORV::ovUserPath, L"");
    orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
    orvhost::SetInstallationPath(ORV::ovFactoryPath,
                                 bvhrig::Widen(std::string(TROVO_TEST_DATA) + "/../../data"));
    ZUK::FileManager::rootsFilled = false;
    ZUK::FileManager refill;
}

void BM_CaptureFrameNormalised(benchmark::State& state) {
    UseFactoryData();
    std::unique_ptr<ZUK::ModelStructure> structure(ZUK::ModelStructure::CreateFromFile(L"biped"));
    std::unique_ptr<ZUK::MocapData> capture(
        ZUK::BvImport::extractMocapData(ORV::CString(kPath.c_str()), ZUK::YUp));
    if (!structure || !capture) {
        state.SkipWithError("the structure or the capture did not read");
        return;
    }
    ZUK::TagMap tags;
    for (const auto& pair : bvhrig::CmuMotionBuilderTagging()) {
        ZUK::TagMap::TagEntry e;
        e.tag_name = pair.first.c_str();
        e.obj_name = pair.second.c_str();
        if (const ZUK::ModelStructure::GroupItem* item = structure->FindTagItem(pair.first.c_str())) {
            e.align = item->Align;
            e.roll = item->Roll;
        }
        tags.entries.push_back(e);
    }
    tags.applyToMocap(capture.get());
    ZUK::ModelMap map(capture.get(), structure.get());
    map.createMap();
    const int frames = capture->nodes[0].frameCount;
    for (auto _ : state) {
        for (int f = 0; f < frames; ++f) {
            map.CopyTransformsToNodeMap(f, true);
            map.addRotationOffsets(true);
            map.computePlaneNormals();
        }
        benchmark::DoNotOptimize(map.planes[0].normal);
    }
    using benchmark::Counter;
    state.counters["frames_per_second"] = Counter(frames, Counter::kIsIterationInvariantRate);
    state.counters["node_frames_per_second"] =
        Counter(static_cast<double>(frames) * structure->numNodes, Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_CaptureFrameNormalised)->Unit(benchmark::kMillisecond);

void BM_RigFrameRead(benchmark::State& state) {
    UseFactoryData();
    orvhost::ResetScene();
    bvhrig::Skeleton skeleton;
    std::unique_ptr<ZUK::ModelStructure> structure(ZUK::ModelStructure::CreateFromFile(L"biped"));
    if (!structure || !bvhrig::ReadBvh(kPath, skeleton)) {
        state.SkipWithError("the structure or the skeleton did not read");
        return;
    }
    const bvhrig::BvhRig rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skeleton, L"Cmu");
    bvhrig::TagRigByProperties(rig.model, *structure, bvhrig::CmuMotionBuilderTagging());
    ZUK::ModelMap map(rig.model, structure.get());
    map.createMap();
    for (auto _ : state) {
        map.CopyTransformsToNodeMap(ZUK::ModelMap::NOW, true);
        map.addRotationOffsets(true);
        benchmark::DoNotOptimize(map.nodes[0].global);
    }
    using benchmark::Counter;
    state.counters["frames_per_second"] = Counter(1, Counter::kIsIterationInvariantRate);
    state.counters["node_frames_per_second"] =
        Counter(structure->numNodes, Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_RigFrameRead)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
