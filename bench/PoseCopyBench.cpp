// Pose copying of a whole clip: the CMU capture 01_01 (2752 frames, 31 joints) copied frame by
// frame onto a map of a rig of nulls built from its own skeleton, with two-bone IK legs and
// arms, over the factory "biped" structure: one CopyPoseFromSrcModelMap and one solveIK per
// frame. Reported as frames per second of the whole loop.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "../tests/support/BvhRigBuilder.h"
#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/FileManager.h"
#include "glue/GlueMap.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"

namespace {

const std::string kPath = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2008/01_01.bvh";

void UseFactoryData() {
    orvhost::SetInstallationPath(ORV::ovUserPath, L"");
    orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
    orvhost::SetInstallationPath(ORV::ovFactoryPath, bvhrig::Widen(std::string(TROVO_TEST_DATA) + "/../../data"));
    ZUK::FileManager::rootsFilled = false;
    ZUK::FileManager refill;
}

void BM_CopyClipOntoRig(benchmark::State& state) {
    UseFactoryData();
    orvhost::NewScene();
    const bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging(true);
    std::unique_ptr<ZUK::ModelStructure> srcStructure(ZUK::ModelStructure::CreateFromFile(L"biped"));
    std::unique_ptr<ZUK::ModelStructure> tgtStructure(ZUK::ModelStructure::CreateFromFile(L"biped"));
    std::unique_ptr<ZUK::MocapData> capture(ZUK::BvImport::extractMocapData(ORV::CString(kPath.c_str()), ZUK::YUp));
    bvhrig::Skeleton skel;
    if (!srcStructure || !tgtStructure || !capture || !bvhrig::ReadBvh(kPath, skel)) {
        state.SkipWithError("the structure or the capture did not read");
        return;
    }
    ZUK::TagMap tags;
    for (const auto& pair : tagging) {
        ZUK::TagMap::TagEntry e;
        e.tag_name = pair.first.c_str();
        e.obj_name = pair.second.c_str();
        if (const ZUK::ModelStructure::GroupItem* item = srcStructure->FindTagItem(pair.first.c_str())) {
            e.align = item->Align;
            e.roll = item->Roll;
        }
        tags.entries.push_back(e);
    }
    tags.applyToMocap(capture.get());
    ZUK::ModelMap source(capture.get(), srcStructure.get());
    source.createMap();

    bvhrig::RigOptions options;
    bvhrig::BipedLimbs(tagging, options);
    options.ikLegs = options.ikArms = true;
    bvhrig::BvhRig rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, L"Rig", options);
    if (!rig.model.IsValid() || !bvhrig::TagRigByProperties(rig.model, *tgtStructure, tagging)) {
        state.SkipWithError("the rig did not build");
        return;
    }
    ZUK::ModelMap target(rig.model, tgtStructure.get());
    target.createMap();
    ZUK::GlueMap glue;
    glue.modelMap = &target;
    if (!target.BuildRelationshipsWithSrcModelMap(source, glue)) {
        state.SkipWithError("no relationship");
        return;
    }
    const int frames = capture->nodes[0].frameCount;
    for (auto _ : state) {
        for (int f = 0; f < frames; ++f) {
            target.CopyPoseFromSrcModelMap(source, f);
            target.solveIK();
        }
        benchmark::DoNotOptimize(target.nodes[0].global);
    }
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(frames) * state.iterations(), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CopyClipOntoRig)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
