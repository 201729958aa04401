// Character import and export speed on the longest BVH file of the test data, CMU 01_01
// (2752 frames of 31 joints at 120 frames per second), the scene at the file's rate.
//   BM_ImportBvh:    the file read through Assimp into a model with its curves.
//   BM_ExportGlb:    that model sampled at every frame and written as a binary glTF.
// One iteration is one whole file; the time per iteration is seconds per file, and the
// counters give frames per second.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "CharacterFiles.h"
#include "HostTesting.h"

namespace {

const std::string kFile = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2008/01_01.bvh";
constexpr double kFrames = 2752.0;

orvhost::Object3D* Import() {
    orvhost::ResetScene();
    orvhost::PutParamValue(orvhost::PlayControl()->FindParam(L"Rate"), ORV::CValue(120.0), 1.0);
    std::wstring error;
    return orvhost::ImportCharacter(kFile, orvhost::CharacterImportOptions(), error);
}

void BM_ImportBvh(benchmark::State& state) {
    for (auto _ : state) {
        orvhost::Object3D* model = Import();
        if (!model) state.SkipWithError("the file did not import");
        benchmark::DoNotOptimize(model);
    }
    state.counters["frames/s"] = benchmark::Counter(kFrames, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ImportBvh)->Unit(benchmark::kMillisecond);

void BM_ExportGlb(benchmark::State& state) {
    orvhost::Object3D* model = Import();
    if (!model) state.SkipWithError("the file did not import");
    const std::string out = "/tmp/trovo_bench_" + std::to_string(getpid()) + ".glb";
    for (auto _ : state) {
        std::wstring error;
        if (!orvhost::ExportCharacter(out, model, orvhost::CharacterExportOptions(), error))
            state.SkipWithError("the model did not export");
    }
    std::remove(out.c_str());
    state.counters["frames/s"] = benchmark::Counter(kFrames, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ExportGlb)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
