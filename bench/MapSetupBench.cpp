// What a command or an operator pays once before its frame loop, on a rig of nulls built from
// the CMU capture 02_01 (31 joints) and tagged for the factory "biped" structure (23 tags):
// building the rig map from the tags, restoring its measures from "ZUKMap", and reading a tag
// map's text.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "../tests/support/BvhRigBuilder.h"
#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/FileManager.h"
#include "core/InputStream.h"
#include "core/OutputStream.h"
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

// The tagged rig; false when the data does not read.
bool BuildTaggedRig(std::unique_ptr<ZUK::ModelStructure>& structure, ORV::Model& model) {
    UseFactoryData();
    orvhost::ResetScene();
    bvhrig::Skeleton skeleton;
    structure.reset(ZUK::ModelStructure::CreateFromFile(L"biped"));
    if (!structure || !bvhrig::ReadBvh(kPath, skeleton)) return false;
    model = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skeleton, L"Cmu").model;
    return bvhrig::TagRigByProperties(model, *structure, bvhrig::CmuMotionBuilderTagging());
}

void BM_RigMapFromTags(benchmark::State& state) {
    std::unique_ptr<ZUK::ModelStructure> structure;
    ORV::Model model;
    if (!BuildTaggedRig(structure, model)) {
        state.SkipWithError("the rig did not build");
        return;
    }
    for (auto _ : state) {
        // Each map needs its own structure (the map splices it); a reload is what a command does.
        std::unique_ptr<ZUK::ModelStructure> own(ZUK::ModelStructure::CreateFromFile(L"biped"));
        ZUK::ModelMap map(model, own.get());
        benchmark::DoNotOptimize(map.nodes[0].global);
    }
    state.counters["maps_per_second"] = benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_RigMapFromTags)->Unit(benchmark::kMicrosecond);

void BM_MapMeasuresFromProperty(benchmark::State& state) {
    std::unique_ptr<ZUK::ModelStructure> structure;
    ORV::Model model;
    if (!BuildTaggedRig(structure, model)) {
        state.SkipWithError("the rig did not build");
        return;
    }
    ZUK::ModelMap map(model, structure.get());
    map.createMap();
    map.SaveToCustomProperty();
    for (auto _ : state) {
        map.LoadFromCustomProperty();
        benchmark::DoNotOptimize(map.legLength);
    }
    state.counters["loads_per_second"] = benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_MapMeasuresFromProperty)->Unit(benchmark::kMicrosecond);

void BM_TagMapTextRead(benchmark::State& state) {
    std::unique_ptr<ZUK::ModelStructure> structure;
    ORV::Model model;
    if (!BuildTaggedRig(structure, model)) {
        state.SkipWithError("the rig did not build");
        return;
    }
    ZUK::ModelMap map(model, structure.get());
    const std::string path = "/tmp/trovo_bench_tags_" + std::to_string(::getpid()) + ".txt";
    {
        ZUK::OutputStream out(ORV::CString(path.c_str()));
        ZUK::TagMap::WriteToStream(out, map);
    }
    for (auto _ : state) {
        ZUK::InputStream in(ORV::CString(path.c_str()));
        std::unique_ptr<ZUK::TagMap> tags(ZUK::TagMap::createFromStream(in));
        benchmark::DoNotOptimize(tags.get());
    }
    std::remove(path.c_str());
    state.counters["entries_per_second"] =
        benchmark::Counter(23, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_TagMapTextRead)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
