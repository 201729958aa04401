// Normalised motion files of 100 frames from a rig of nulls built from the CMU capture 02_01
// (31 joints, tagged for the factory "biped" structure), every joint keyed on six channels at
// every frame: writing and reading the text form and the XML form.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "../tests/support/BvhRigBuilder.h"
#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "core/FileManager.h"
#include "modelmap/ModelMap.h"

namespace {

const std::string kPath = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh";
const int kFrames = 100;

struct KeyedRig {
    std::unique_ptr<ZUK::ModelStructure> structure;
    std::unique_ptr<ZUK::ModelMap> map;

    bool Build() {
        orvhost::SetInstallationPath(ORV::ovUserPath, L"");
        orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
        orvhost::SetInstallationPath(ORV::ovFactoryPath,
                                     bvhrig::Widen(std::string(TROVO_TEST_DATA) + "/../../data"));
        ZUK::FileManager::rootsFilled = false;
        ZUK::FileManager refill;
        orvhost::ResetScene();
        bvhrig::Skeleton skeleton;
        structure.reset(ZUK::ModelStructure::CreateFromFile(L"biped"));
        if (!structure || !bvhrig::ReadBvh(kPath, skeleton)) return false;
        bvhrig::BvhRig rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skeleton, L"Cmu");
        if (!bvhrig::TagRigByProperties(rig.model, *structure, bvhrig::CmuMotionBuilderTagging()))
            return false;
        map.reset(new ZUK::ModelMap(rig.model, structure.get()));
        map->createMap();
        // Channel values from the clip, not a faithful pose: the file work is what is measured.
        for (size_t j = 0; j < rig.joints.size(); ++j) {
            for (int c = 0; c < 6; ++c) {
                ORV::Parameter p = rig.joints[j].GetKinematics().GetLocal().GetParameter(
                    ZUK::NodeKeyTiming::CHANNEL_NAMES[c]);
                ORV::FCurve curve;
                p.AddFCurve(ORV::ovStandardFCurve, curve);
                for (int f = 1; f <= kFrames; ++f)
                    curve.AddKey(ORV::CTime(f), ORV::CValue(0.1 * ((f * 7 + j * 3 + c) % 50)));
            }
        }
        return true;
    }
};

std::string Scratch() {
    char name[] = "/tmp/trovo_bench_motion_XXXXXX";
    const int fd = mkstemp(name);
    close(fd);
    return name;
}

void BM_SaveText(benchmark::State& state) {
    KeyedRig rig;
    if (!rig.Build()) return state.SkipWithError("the rig did not build");
    const std::string path = Scratch();
    for (auto _ : state) benchmark::DoNotOptimize(rig.map->saveToFile(path.c_str(), 1, kFrames));
    std::remove(path.c_str());
}
BENCHMARK(BM_SaveText)->Unit(benchmark::kMillisecond);

void BM_SaveXml(benchmark::State& state) {
    KeyedRig rig;
    if (!rig.Build()) return state.SkipWithError("the rig did not build");
    const std::string path = Scratch();
    for (auto _ : state) benchmark::DoNotOptimize(rig.map->saveMotionToXMLFile(path.c_str(), 1, kFrames));
    std::remove(path.c_str());
}
BENCHMARK(BM_SaveXml)->Unit(benchmark::kMillisecond);

void BM_LoadText(benchmark::State& state) {
    KeyedRig rig;
    if (!rig.Build()) return state.SkipWithError("the rig did not build");
    const std::string path = Scratch();
    rig.map->saveToFile(path.c_str(), 1, kFrames);
    for (auto _ : state) {
        ZUK::ModelMap read;
        benchmark::DoNotOptimize(read.CreateFromFile(path.c_str()));
    }
    std::remove(path.c_str());
}
BENCHMARK(BM_LoadText)->Unit(benchmark::kMillisecond);

void BM_LoadXml(benchmark::State& state) {
    KeyedRig rig;
    if (!rig.Build()) return state.SkipWithError("the rig did not build");
    const std::string path = Scratch();
    rig.map->saveMotionToXMLFile(path.c_str(), 1, kFrames);
    for (auto _ : state) {
        ZUK::ModelMap read;
        benchmark::DoNotOptimize(read.loadMotionFromXMLFile(path.c_str()));
    }
    std::remove(path.c_str());
}
BENCHMARK(BM_LoadXml)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
