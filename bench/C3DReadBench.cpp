// Reading speed of the C3D reader on CMU 01_01 (42 markers, 2751 float frames, about 1.9 MB):
// header, parameters, samples, the first complete frame and the filling of lost markers.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <memory>
#include <string>

#include "HostTesting.h"
#include "mocap/C3DFile.h"

namespace {

const std::string kPath = std::string(TROVO_TEST_DATA) + "/c3d/cmu/01_01.c3d";

double FileMegabytes() {
    struct stat info;
    return stat(kPath.c_str(), &info) == 0 ? static_cast<double>(info.st_size) / 1.0e6 : 0.0;
}

void ReadCmu(benchmark::State& state, ZUK::UpDirection up) {
    const ORV::CString path(kPath.c_str());
    int frames = 0;
    int points = 0;
    for (auto _ : state) {
        std::unique_ptr<C3DFile> file(C3DFile::CreateFromFile(path, up, false));
        if (!file) {
            state.SkipWithError("the file did not read");
            return;
        }
        // Frames in the file, before the clean-up drops the incomplete start.
        frames = file->lastFrame - file->firstFrame + 1;
        points = file->pointCount;
        benchmark::DoNotOptimize(file->points);
        // The reader traces its header into the host's log; keep the log from growing.
        orvhost::ClearLog();
    }
    using benchmark::Counter;
    state.counters["frames_per_second"] = Counter(frames, Counter::kIsIterationInvariantRate);
    state.counters["marker_frames_per_second"] =
        Counter(static_cast<double>(frames) * points, Counter::kIsIterationInvariantRate);
    state.counters["MB_per_second"] = Counter(FileMegabytes(), Counter::kIsIterationInvariantRate);
}

void BM_ReadCmuC3D(benchmark::State& state) { ReadCmu(state, ZUK::YUp); }
BENCHMARK(BM_ReadCmuC3D)->Unit(benchmark::kMillisecond);

void BM_ReadCmuC3DZUp(benchmark::State& state) { ReadCmu(state, ZUK::ZUp); }
BENCHMARK(BM_ReadCmuC3DZUp)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
