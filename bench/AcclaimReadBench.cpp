// Reading speed of the Acclaim reader on the longest AMC of the test data (CMU 07_05, a slow
// walk: 517 frames of 31 bones, about 400 kB), with its ASF read once per pass as a caller does.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "mocap/AcclaimFile.h"
#include "mocap/Mocap.h"

namespace {

const std::string kAsf = std::string(TROVO_TEST_DATA) + "/asfamc/07-walk.asf";
const std::string kAmc = std::string(TROVO_TEST_DATA) + "/asfamc/07_05-walk.amc";

double FileMegabytes() {
    struct stat info;
    return stat(kAmc.c_str(), &info) == 0 ? static_cast<double>(info.st_size) / 1.0e6 : 0.0;
}

void BM_ReadLongestAmc(benchmark::State& state) {
    std::unique_ptr<ZUK::AcclaimFile> asf(new ZUK::AcclaimFile);
    if (!asf->readHierarchy(ORV::CString(kAsf.c_str()))) {
        state.SkipWithError("the skeleton did not read");
        return;
    }
    int frames = 0;
    int nodes = 0;
    for (auto _ : state) {
        ZUK::MocapData data;
        if (!asf->readMotion(ORV::CString(kAmc.c_str()), &data, 1)) {
            state.SkipWithError("the motion did not read");
            return;
        }
        frames = data.nodes[0].frameCount - 1;  // the reader keeps one identity frame behind the file's
        nodes = data.nodeCount;
        benchmark::DoNotOptimize(data.nodes);
    }
    using benchmark::Counter;
    state.counters["frames_per_second"] = Counter(frames, Counter::kIsIterationInvariantRate);
    state.counters["node_frames_per_second"] =
        Counter(static_cast<double>(frames) * nodes, Counter::kIsIterationInvariantRate);
    state.counters["MB_per_second"] = Counter(FileMegabytes(), Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ReadLongestAmc)->Unit(benchmark::kMillisecond);

void BM_ReadAsfAndAmc(benchmark::State& state) {
    int frames = 0;
    for (auto _ : state) {
        std::unique_ptr<ZUK::MocapData> data(
            ZUK::AcclaimFile::extractMocapData(ORV::CString(kAsf.c_str()), ORV::CString(kAmc.c_str()), 1));
        if (!data) {
            state.SkipWithError("the files did not read");
            return;
        }
        frames = data->nodes[0].frameCount - 1;
        benchmark::DoNotOptimize(data->nodes);
    }
    state.counters["frames_per_second"] =
        benchmark::Counter(frames, benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_ReadAsfAndAmc)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
