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
#include <benchmark/benchmark.h>

#include "../tests/live/AdjustTestSupport.h"

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

}  // namespace

BENCHMARK_MAIN();
