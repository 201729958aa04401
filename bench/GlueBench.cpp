// The glue of an IK biped (two-bone legs and arms with up-vector nulls, a spine of nulls between
// the hips and the chest) applied for one frame: every object, up-vector and spine constraint,
// as the operators do per evaluation, on the map pose of a CMU walk frame. Microseconds per
// frame; the host's evaluation of what the glue writes is not part of it.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "../tests/host/RigBuilders.h"
#include "../tests/support/BvhRigBuilder.h"
#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/FileManager.h"
#include "core/InputStream.h"
#include "glue/GlueMap.h"
#include "mocap/BvImport.h"
#include "modelmap/ModelMap.h"

namespace {

const std::string kPath = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh";

void BM_GlueOneFrame(benchmark::State& state) {
    orvhost::SetInstallationPath(ORV::ovUserPath, L"");
    orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
    orvhost::SetInstallationPath(ORV::ovFactoryPath, bvhrig::Widen(std::string(TROVO_TEST_DATA) + "/../../data"));
    ZUK::FileManager::rootsFilled = false;
    ZUK::FileManager refill;
    orvhost::NewScene();

    std::unique_ptr<ZUK::MocapData> mocap(ZUK::BvImport::extractMocapData(ORV::CString(kPath.c_str()), ZUK::YUp));
    std::unique_ptr<ZUK::ModelStructure> srcStructure(ZUK::ModelStructure::CreateFromFile(L"biped"));
    std::unique_ptr<ZUK::ModelStructure> structure(ZUK::ModelStructure::CreateFromFile(L"biped"));
    if (!mocap || !srcStructure || !structure) {
        state.SkipWithError("inputs did not read");
        return;
    }
    ZUK::TagMap tags;
    for (const auto& pair : bvhrig::CmuMotionBuilderTagging()) {
        ZUK::TagMap::TagEntry e;
        e.tag_name = pair.first.c_str();
        e.obj_name = pair.second.c_str();
        if (const auto* item = srcStructure->FindTagItem(pair.first.c_str())) {
            e.align = item->Align;
            e.roll = item->Roll;
        }
        tags.entries.push_back(e);
    }
    tags.applyToMocap(mocap.get());
    ZUK::ModelMap source(mocap.get(), srcStructure.get());
    source.createMap();

    rigs::IKBiped biped = rigs::BuildIKBiped(ORV::Application().GetActiveSceneRoot());
    const bvhrig::Tagging tagging = {
        {L"cog", L"Hips"},         {L"spine", L"Spine1"},         {L"chest", L"Chest"},          {L"neck", L"Neck"},
        {L"head", L"Head"},        {L"lthigh", L"LeftLegBone"},   {L"lshin", L"LeftLegLower"},   {L"lfoot", L"LeftLegGoal"},
        {L"rthigh", L"RightLegBone"}, {L"rshin", L"RightLegLower"}, {L"rfoot", L"RightLegGoal"}, {L"lupperarm", L"LeftArmBone"},
        {L"lforearm", L"LeftArmLower"}, {L"lhand", L"LeftArmGoal"}, {L"rupperarm", L"RightArmBone"},
        {L"rforearm", L"RightArmLower"}, {L"rhand", L"RightArmGoal"}};
    bvhrig::TagRigByProperties(biped.model, *structure, tagging);
    ZUK::ModelMap map(biped.model, structure.get());
    map.createMap();
    std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::createFromModelMap(biped.model, &map));
    glue->applyToModel(biped.model, &map);
    map.BuildRelationshipsWithSrcModelMap(source, *glue);
    map.CopyPoseFromSrcModelMap(source, 100);
    map.solveIK();

    // The states each operator is handed, found once as the operators find theirs.
    std::vector<ORV::KinematicState> mocapStates, planeStates;
    for (auto& c : glue->mocaps) mocapStates.push_back(c.object.GetKinematics().GetGlobal());
    for (auto& c : glue->planes) planeStates.push_back(c.object.GetKinematics().GetGlobal());
    struct SpineStates {
        ORV::KinematicState anchor, base;
        std::vector<ORV::KinematicState> in, out;
    };
    std::vector<SpineStates> spines;
    for (auto& c : glue->spines) {
        SpineStates s{c.anchor.GetKinematics().GetGlobal(), c.base.GetKinematics().GetLocal(), {}, {}};
        for (int k = 0; k < c.numNodes; ++k) {
            s.in.push_back(ORV::X3DObject(c.segments[k].object.GetParent()).GetKinematics().GetGlobal());
            s.out.push_back(c.segments[k].object.GetKinematics().GetLocal());
        }
        spines.push_back(s);
    }
    for (auto _ : state) {
        for (size_t i = 0; i < mocapStates.size(); ++i) glue->applyMocapConstraint(mocapStates[i], static_cast<int>(i));
        for (size_t i = 0; i < planeStates.size(); ++i) glue->applyPlaneConstraint(planeStates[i], static_cast<int>(i), 0.0);
        for (size_t s = 0; s < spines.size(); ++s) {
            glue->updateSpineConstraint(spines[s].anchor, spines[s].base, static_cast<int>(s), 1.0, 1.0);
            for (size_t k = 0; k < spines[s].in.size(); ++k)
                glue->applySpineConstraint(spines[s].in[k], spines[s].out[k], static_cast<int>(s), static_cast<int>(k));
        }
    }
    state.counters["constraints"] = static_cast<double>(glue->mocaps.size() + glue->planes.size() + glue->spines.size());
}
BENCHMARK(BM_GlueOneFrame)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
