// Reading speed of the BVH reader on the longest file of the test data (CMU 01_01 in its 2008
// conversion: 2752 frames of 31 joints, about 2 MB), and the evaluation of all its frames.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "mocap/BvImport.h"
#include "mocap/Mocap.h"

namespace {

const std::string kPath = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2008/01_01.bvh";

double FileMegabytes() {
    struct stat info;
    return stat(kPath.c_str(), &info) == 0 ? static_cast<double>(info.st_size) / 1.0e6 : 0.0;
}

void BM_ReadLongestBvh(benchmark::State& state) {
    int frames = 0;
    int nodes = 0;
    for (auto _ : state) {
        std::unique_ptr<ZUK::MocapData> data(
            ZUK::BvImport::extractMocapData(ORV::CString(kPath.c_str()), ZUK::YUp));
        if (!data) {
            state.SkipWithError("the file did not read");
            return;
        }
        frames = data->nodes[0].frameCount;
        nodes = data->nodeCount;
        benchmark::DoNotOptimize(data->nodes);
    }
    using benchmark::Counter;
    state.counters["frames_per_second"] = Counter(frames, Counter::kIsIterationInvariantRate);
    state.counters["node_frames_per_second"] =
        Counter(static_cast<double>(frames) * nodes, Counter::kIsIterationInvariantRate);
    state.counters["MB_per_second"] = Counter(FileMegabytes(), Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ReadLongestBvh)->Unit(benchmark::kMillisecond);

void BM_UpdateTransformsAllFrames(benchmark::State& state) {
    std::unique_ptr<ZUK::MocapData> data(
        ZUK::BvImport::extractMocapData(ORV::CString(kPath.c_str()), ZUK::YUp));
    if (!data) {
        state.SkipWithError("the file did not read");
        return;
    }
    const int frames = data->nodes[0].frameCount;
    for (auto _ : state) {
        for (int f = 0; f < frames; ++f) data->updateTransforms(f);
        benchmark::DoNotOptimize(data->nodes[data->nodeCount - 1].global);
    }
    using benchmark::Counter;
    state.counters["frames_per_second"] = Counter(frames, Counter::kIsIterationInvariantRate);
    state.counters["node_frames_per_second"] =
        Counter(static_cast<double>(frames) * data->nodeCount, Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_UpdateTransformsAllFrames)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
