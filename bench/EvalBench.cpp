// Evaluation speed of the headless host: the global transforms of every object of a rig,
// frame after frame, as plotting and playback read them. One iteration is one frame; the
// time per iteration is the time per frame.
//   BM_CurveRig60: 60 nulls in a hierarchy (a spine of 12, four limbs of 12), each with its six
//                  local channels animated by cubic curves of 200 keys.
//   BM_IKBiped:    the IK biped of the tests, hips and the four goals animated.
#include <benchmark/benchmark.h>
#include <orv/ORV.h>

#include <cmath>
#include <string>
#include <vector>

#include "HostTesting.h"

using namespace ORV;
using namespace ORV::MATH;

namespace {

const wchar_t* const kChannels[6] = {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"};

void Animate(X3DObject o, int seed, int keys) {
    for (int c = 0; c < 6; ++c) {
        FCurve curve;
        o.GetKinematics().GetLocal().GetParameter(kChannels[c]).AddFCurve(ovStandardFCurve, curve);
        CTimeArray times;
        CValueArray values;
        for (int k = 0; k < keys; ++k) {
            times.Add(CTime(k * 2.0));
            values.Add(CValue((c < 3 ? 0.5 : 20.0) * std::sin(0.1 * k + seed * 0.7 + c)));
        }
        curve.SetKeys(times, values);
    }
}

std::vector<X3DObject> BuildCurveRig() {
    orvhost::ResetScene();
    Model model;
    Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", model);
    std::vector<X3DObject> all;
    auto add = [&](X3DObject parent, const std::wstring& name) {
        Null n;
        parent.AddNull(name.c_str(), n);
        Animate(n, static_cast<int>(all.size()), 200);
        all.push_back(n);
        return X3DObject(n);
    };
    X3DObject spine = model;
    std::vector<X3DObject> spineNodes;
    for (int i = 0; i < 12; ++i) {
        spine = add(spine, L"Spine" + std::to_wstring(i));
        spineNodes.push_back(spine);
    }
    for (int limb = 0; limb < 4; ++limb) {
        X3DObject p = spineNodes[limb < 2 ? 0 : 9];
        for (int i = 0; i < 12; ++i) p = add(p, L"Limb" + std::to_wstring(limb) + L"_" + std::to_wstring(i));
    }
    return all;
}

void BM_CurveRig60(benchmark::State& state) {
    std::vector<X3DObject> objects = BuildCurveRig();
    std::vector<KinematicState> globals;
    for (X3DObject& o : objects) globals.push_back(o.GetKinematics().GetGlobal());
    double frame = 0.0;
    double sink = 0.0;
    for (auto _ : state) {
        for (KinematicState& g : globals) sink += g.GetTransform(frame).GetPosX();
        frame += 1.0;
        if (frame > 398.0) frame = 0.0;
    }
    benchmark::DoNotOptimize(sink);
    state.counters["objects"] = static_cast<double>(globals.size());
    state.counters["frames_per_second"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_CurveRig60)->Unit(benchmark::kMicrosecond);

void Key(X3DObject o, const wchar_t* channel, double amplitude, double base) {
    FCurve curve;
    o.GetKinematics().GetLocal().GetParameter(channel).AddFCurve(ovStandardFCurve, curve);
    CTimeArray times;
    CValueArray values;
    for (int k = 0; k <= 40; ++k) {
        times.Add(CTime(k * 10.0));
        values.Add(CValue(base + amplitude * std::sin(0.8 * k)));
    }
    curve.SetKeys(times, values);
}

void BM_IKBiped(benchmark::State& state) {
    orvhost::ResetScene();
    Model model;
    Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Biped", model);
    auto place = [&](X3DObject parent, const wchar_t* name, double x, double y, double z) {
        Null n;
        parent.AddNull(name, n);
        CTransformation t;
        t.SetTranslationFromValues(x, y, z);
        n.GetKinematics().GetGlobal().PutTransform(t);
        return n;
    };
    Null hips = place(model, L"Hips", 0, 10, 0);
    Null chest = place(hips, L"Chest", 0, 14, 0);
    struct LimbDef {
        X3DObject parent;
        const wchar_t* name;
        CVector3 a, b, c, up;
    } limbs[4] = {{hips, L"LeftLeg", {1, 10, 0}, {1, 5.5, 0.3}, {1, 1, 0}, {1, 5.5, 4}},
                  {hips, L"RightLeg", {-1, 10, 0}, {-1, 5.5, 0.3}, {-1, 1, 0}, {-1, 5.5, 4}},
                  {chest, L"LeftArm", {2, 14.5, 0}, {4.5, 14.5, -0.3}, {7, 14.5, 0}, {4.5, 14.5, -4}},
                  {chest, L"RightArm", {-2, 14.5, 0}, {-4.5, 14.5, -0.3}, {-7, 14.5, 0}, {-4.5, 14.5, -4}}};
    std::vector<KinematicState> globals;
    for (LimbDef& d : limbs) {
        ChainRoot root;
        d.parent.Add2DChain(d.a, d.b, CVector3(1, 0, 0), d.name, root);
        ChainBone lower;
        root.AddBone(d.c, L"", lower);
        Null goal = place(model, (std::wstring(d.name) + L"Goal").c_str(), d.c.x, d.c.y, d.c.z);
        Null up = place(model, (std::wstring(d.name) + L"Up").c_str(), d.up.x, d.up.y, d.up.z);
        Constraint cns;
        root.GetEffector().GetKinematics().AddConstraint(L"Position", goal, cns);
        ChainBone(root.GetBones()[0]).GetJoint().PutUpVectorReference(up);
        Key(goal, L"posz", 1.5, d.c.z);
        Key(goal, L"posy", 0.5, d.c.y);
    }
    Key(hips, L"posy", 0.8, 9.5);
    CRefArray all = model.FindChildren(L"", L"", CStringArray(), true);
    for (long i = 0; i < all.GetCount(); ++i)
        globals.push_back(X3DObject(all[i]).GetKinematics().GetGlobal());
    double frame = 0.0, sink = 0.0;
    for (auto _ : state) {
        for (KinematicState& g : globals) sink += g.GetTransform(frame).GetPosY();
        frame += 1.0;
        if (frame > 398.0) frame = 0.0;
    }
    benchmark::DoNotOptimize(sink);
    state.counters["objects"] = static_cast<double>(globals.size());
    state.counters["frames_per_second"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_IKBiped)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
