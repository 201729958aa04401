// Plotting all 2752 frames of cmu_mb2008/01_01.bvh on a 31-joint rig: one null per joint, tagged
// with the biped structure, each joint's local channels animated by the file's values. The plot
// reads every frame through the host's evaluation and writes the driven objects' curves, raw
// (a key per frame) and reduced (Bezier keys at inflections). Seconds per plot.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "../tests/support/BvhRigBuilder.h"
#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "core/FileManager.h"
#include "glue/GlueMap.h"
#include "modelmap/ModelMap.h"
#include "plot/PlotRetarget.h"

namespace {

namespace fs = std::filesystem;

const std::string kPath = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2008/01_01.bvh";

std::string ReadText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The factory biped without its forearm twist blocks, in a scratch add-on root: the hands then
// keep their own curves, as on a rig without twist bones.
std::string PlainBipedRoot() {
    char pattern[] = "/tmp/trovo_plotbench_XXXXXX";
    const char* made = mkdtemp(pattern);
    if (!made) return std::string();
    const fs::path data = fs::path(made) / "Addons" / "Trovo" / "Data" / "Structures";
    fs::create_directories(data / "Mocap");
    const fs::path factory =
        fs::path(TROVO_TEST_DATA) / ".." / ".." / "data" / "Addons" / "Trovo" / "Data" / "Structures";
    std::ofstream(data / "biped.base", std::ios::binary) << ReadText(factory / "biped.base");
    std::string structure = ReadText(factory / "biped.structure");
    const size_t cut = structure.find("leftforearmtwist {");
    if (cut != std::string::npos) structure.erase(cut);
    std::ofstream(data / "biped.structure", std::ios::binary) << structure;
    return made;
}

// Local rotation of a joint at a frame, in the host's row convention, as XYZ angles in degrees.
ORV::MATH::CVector3 LocalAngles(const bvhrig::Skeleton& s, int joint, int frame) {
    const bvhrig::Joint& j = s.joints[static_cast<size_t>(joint)];
    bvhrig::Mat3 r = bvhrig::Identity3();
    for (size_t c = 0; c < j.channels.size(); ++c)
        if (j.channels[c] <= bvhrig::ZROT)
            r = bvhrig::Mul3(r, bvhrig::AxisRotation(j.channels[c],
                                                     s.frames[static_cast<size_t>(frame)][j.firstValue + c]));
    ORV::MATH::CMatrix3 m;
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b) m(a, b) = r[static_cast<size_t>(b)][static_cast<size_t>(a)];
    ORV::MATH::CVector3 angles = ORV::MATH::CRotation(m).GetXYZAngles();
    return angles * (180.0 / 3.14159265358979323846);
}

struct Scene {
    bvhrig::Skeleton skeleton;
    ORV::Model model;
    int frames = 0;
    bool ok = false;
};

Scene& BuildOnce() {
    static Scene scene = [] {
        Scene s;
        const std::string root = PlainBipedRoot();
        orvhost::SetInstallationPath(ORV::ovUserPath, bvhrig::Widen(root));
        orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
        orvhost::SetInstallationPath(ORV::ovFactoryPath, L"");
        ZUK::FileManager::rootsFilled = false;
        ZUK::FileManager refill;
        orvhost::NewScene();
        if (!bvhrig::ReadBvh(kPath, s.skeleton)) return s;
        s.frames = static_cast<int>(s.skeleton.frames.size());
        bvhrig::BvhRig rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), s.skeleton, L"Rig");
        s.model = rig.model;
        std::unique_ptr<ZUK::ModelStructure> structure(ZUK::ModelStructure::CreateFromFile(L"biped"));
        if (!structure ||
            !bvhrig::TagRigByProperties(s.model, *structure, bvhrig::CmuMotionBuilderTagging(true)))
            return s;
        structure->SaveToCustomProperty(s.model);
        ZUK::ModelMap map(s.model, structure.get());
        map.createMap();
        map.SaveToCustomProperty();
        std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::createFromModelMap(s.model, &map));
        if (!glue) return s;
        glue->SaveToCustomProperty(s.model);

        // Every joint's rotation, and the root's position, as linear keys on every frame.
        const wchar_t* const rotations[3] = {L"rotx", L"roty", L"rotz"};
        const wchar_t* const positions[3] = {L"posx", L"posy", L"posz"};
        ORV::CTimeArray times;
        for (int f = 0; f < s.frames; ++f) times.Add(ORV::CTime(f));
        for (size_t j = 0; j < s.skeleton.joints.size(); ++j) {
            ORV::KinematicState local = rig.joints[j].GetKinematics().GetLocal();
            ORV::CValueArray values[3];
            for (int f = 0; f < s.frames; ++f) {
                const ORV::MATH::CVector3 a = LocalAngles(s.skeleton, static_cast<int>(j), f);
                values[0].Add(a.x);
                values[1].Add(a.y);
                values[2].Add(a.z);
            }
            for (int c = 0; c < 3; ++c) {
                ORV::FCurve curve;
                local.GetParameter(rotations[c]).AddFCurve(ORV::ovStandardFCurve, curve);
                curve.PutInterpolation(ORV::ovLinearInterpolation);
                curve.SetKeys(times, values[c]);
            }
            if (s.skeleton.joints[j].parent >= 0) continue;
            for (int c = 0; c < 3; ++c) {
                ORV::CValueArray position;
                for (int f = 0; f < s.frames; ++f) {
                    const bvhrig::Joint& joint = s.skeleton.joints[j];
                    double v = joint.offset[static_cast<size_t>(c)];
                    for (size_t k = 0; k < joint.channels.size(); ++k)
                        if (joint.channels[k] == bvhrig::XPOS + c)
                            v = s.skeleton.frames[static_cast<size_t>(f)][joint.firstValue + k];
                    position.Add(v);
                }
                ORV::FCurve curve;
                local.GetParameter(positions[c]).AddFCurve(ORV::ovStandardFCurve, curve);
                curve.PutInterpolation(ORV::ovLinearInterpolation);
                curve.SetKeys(times, position);
            }
        }
        s.ok = true;
        return s;
    }();
    return scene;
}

void Plot(benchmark::State& state, bool reduced) {
    Scene& scene = BuildOnce();
    if (!scene.ok) {
        state.SkipWithError("the rig could not be built");
        return;
    }
    for (auto _ : state) {
        // Plotting a rig without operators leaves its setup in place, so the same scene plots
        // again; the curves it reads are those the previous plot wrote.
        ZUK::PlotRetarget plotter(scene.model, false, reduced, false, 1, 0, scene.frames);
        plotter.plot();
    }
    state.counters["frames"] = scene.frames;
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(scene.frames), benchmark::Counter::kIsIterationInvariantRate);
}

void BM_PlotRaw(benchmark::State& state) { Plot(state, false); }
void BM_PlotReduced(benchmark::State& state) { Plot(state, true); }

BENCHMARK(BM_PlotRaw)->Unit(benchmark::kSecond)->Iterations(3);
BENCHMARK(BM_PlotReduced)->Unit(benchmark::kSecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
