// Speed of the once-per-transfer work of the motion buffer, on a hand-made character of 61
// nodes and four legs (two friction feet for the biped passes, all four for the quadruped
// ones), with a walk-like path on every foot. One iteration is one whole clip; the argument is
// its frame count.
//   BM_BipedFootPasses: ProcessFootMovement on two friction feet (lift, planted runs, normals).
//   BM_QuadFootPasses:  ProcessFootMovement on four friction feet (bounds, lift, normals).
//   BM_WriteBlob:       stuffMotionDataIntoBlob of the clip into a scene blob.
//   BM_LoadBlob:        LoadMotionDataFromUDB of that blob (size check, key timing, slot).
#include <benchmark/benchmark.h>
#include <orv/ORV.h>

#include <cmath>
#include <memory>
#include <string>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "live/Motion.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"

namespace {

using ORV::MATH::CVector3;

constexpr int kNodes = 61;
constexpr int kLegs = 4;

struct Character {
    std::unique_ptr<ZUK::ModelStructure> structure;
    ZUK::ModelMap target, source;

    explicit Character(int friction) {
        structure.reset(new ZUK::ModelStructure(kNodes, kLegs, L"bench"));
        ZUK::ModelStructure& s = *structure;
        for (int n = 1; n < kNodes; ++n) s.nodes[n].Parent = n - 1 < 13 ? n - 1 : 0;
        for (int leg = 0; leg < kLegs; ++leg) {
            const int thigh = 13 + 3 * leg;
            s.nodes[thigh].Parent = 0;
            s.nodes[thigh + 1].Parent = thigh;
            s.nodes[thigh + 2].Parent = thigh;
            s.nodes[thigh + 2].Type = 2;
            s.nodes[thigh + 2].Friction = leg < friction;
            s.planes[leg].AnchorIndex = thigh;
            s.planes[leg].Mid = thigh + 1;
            s.planes[leg].Span = thigh + 2;
        }
        for (ZUK::ModelMap* m : {&target, &source}) {
            m->structure = structure.get();
            m->nodes.resize(kNodes);
            m->planes.resize(kLegs);
            m->legLength = 1.0;
        }
        target.legLength = 1.3;
        for (int leg = 0; leg < kLegs; ++leg) {
            const int foot = 15 + 3 * leg;
            target.nodes[foot].translationSource = foot;
            target.nodes[foot].length = 1.2;
            source.nodes[foot].length = 1.0;
        }
    }
};

// A walk: each foot alternates half a cycle planted and half a cycle swinging forward.
void Fill(ZUK::Motion& m) {
    for (long f = 0; f < m.frames; ++f) {
        for (int n = 0; n < kNodes; ++n) m.globalPoses[n][f].SetTranslationFromValues(0.01 * f, 1.0, 0.1 * n);
        for (int leg = 0; leg < kLegs; ++leg) {
            const double phase = std::fmod(f / 60.0 + 0.5 * leg, 1.0);
            const double z = phase < 0.5 ? std::floor(f / 60.0) : std::floor(f / 60.0) + (phase - 0.5) * 2.0;
            const double y = phase < 0.5 ? 0.0 : 0.2 * std::sin((phase - 0.5) * 6.283185307179586);
            m.goalPositions[leg][f].Set(0.3 * leg, y, z);
            m.globalPoses[15 + 3 * leg][f].SetTranslationFromValues(0.3 * leg, 1.3 * y,
                                                                    1.3 * z + 0.01 * (f % 7));
            m.planeNormals[leg][f] = (f % 50) < 3 ? CVector3() : CVector3(1, 0, 0);
        }
    }
}

void FootPasses(benchmark::State& state, int friction) {
    Character c(friction);
    ZUK::Motion motion(state.range(0), &c.target, &c.source);
    for (auto _ : state) {
        state.PauseTiming();
        Fill(motion);
        state.ResumeTiming();
        motion.ProcessFootMovement();
        benchmark::DoNotOptimize(motion.globalPoses[15][0]);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_BipedFootPasses(benchmark::State& state) { FootPasses(state, 2); }
void BM_QuadFootPasses(benchmark::State& state) { FootPasses(state, 4); }

ORV::UserDataBlob MakeBlob() {
    orvhost::ResetScene();
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Rig", model);
    ORV::Property property;
    model.AddProperty(L"UserDataBlob", false, ZUK::RetargetOp::DATA_NAME, property);
    return ORV::UserDataBlob(property.GetRef());
}

void BM_WriteBlob(benchmark::State& state) {
    Character c(2);
    ZUK::Motion motion(state.range(0), &c.target, &c.source);
    Fill(motion);
    ORV::UserDataBlob blob = MakeBlob();
    for (auto _ : state) benchmark::DoNotOptimize(ZUK::RetargetOp::stuffMotionDataIntoBlob(blob, motion, 1));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_LoadBlob(benchmark::State& state) {
    Character c(2);
    c.source.keyTiming = new ZUK::NodeKeyTiming[kNodes];
    c.source.numKeyTiming = kNodes;
    for (int n = 0; n < kNodes; ++n) {
        c.source.keyTiming[n].name = (L"node" + std::to_wstring(n)).c_str();
        for (auto& times : c.source.keyTiming[n].times)
            for (long k = 0; k < state.range(0) / 10; ++k) times.Add(10.0 * k);
    }
    ZUK::Motion motion(state.range(0), &c.target, &c.source);
    Fill(motion);
    ORV::UserDataBlob blob = MakeBlob();
    ZUK::RetargetOp::stuffMotionDataIntoBlob(blob, motion, 1);
    for (auto _ : state) {
        ZUK::RetargetOp op;
        op.LoadMotionDataFromUDB(blob);
        benchmark::DoNotOptimize(op.loaded);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(BM_BipedFootPasses)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_QuadFootPasses)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_WriteBlob)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LoadBlob)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
