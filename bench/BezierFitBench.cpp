// Key fitting speed on the longest clip of the test data (CMU 01_01 in its 2008 conversion:
// 2752 frames, 31 joints, 96 channels). Plotting fits every channel of a rig this way, with
// features found at 3% of the channel's range and no tolerance (one cubic per stretch, full
// search of tangent lengths); the recursive form halves stretches to a tolerance instead.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "core/BezierCurve.h"

namespace {

const std::string kPath = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2008/01_01.bvh";

struct Channels {
    std::vector<std::string> names;           // "Joint.Channel"
    std::vector<std::vector<double>> values;  // per channel, one value per frame
};

// All motion channels of a BVH file, column by column.
Channels ReadChannels(const std::string& path) {
    Channels out;
    std::ifstream in(path);
    std::string token, joint;
    while (in >> token) {
        if (token == "ROOT" || token == "JOINT") {
            in >> joint;
        } else if (token == "CHANNELS") {
            int n = 0;
            in >> n;
            for (int k = 0; k < n; ++k) {
                in >> token;
                out.names.push_back(joint + "." + token);
            }
        } else if (token == "MOTION") {
            break;
        }
    }
    long frames = 0;
    double frameTime = 0.0;
    in >> token >> frames >> token >> token >> frameTime;
    out.values.assign(out.names.size(), std::vector<double>());
    for (auto& v : out.values) v.reserve(static_cast<std::size_t>(frames));
    double v = 0.0;
    for (long f = 0; f < frames; ++f)
        for (std::size_t c = 0; c < out.names.size(); ++c) {
            if (!(in >> v)) return out;
            out.values[c].push_back(v);
        }
    return out;
}

ORV::FCurve NewCurve() {
    orvhost::ResetScene();
    ORV::Null n;
    ORV::Application().GetActiveSceneRoot().AddNull(L"Channel", n);
    ORV::FCurve curve;
    n.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(ORV::ovStandardFCurve, curve);
    return curve;
}

// The flagged frames and both ends, as plotting builds them.
ORV::CDoubleArray Features(std::vector<double>& values, double tolerance) {
    std::vector<char> flags(values.size(), 0);
    ZUK::BezierCurve::findKeyCurveFeatures(values.data(), reinterpret_cast<bool*>(flags.data()),
                                           static_cast<long>(values.size()), tolerance);
    flags.front() = 1;
    flags.back() = 1;
    ORV::CDoubleArray features;
    for (std::size_t i = 0; i < flags.size(); ++i)
        if (flags[i]) features.Add(static_cast<double>(i));
    return features;
}

double Range(const std::vector<double>& v) {
    return *std::max_element(v.begin(), v.end()) - *std::min_element(v.begin(), v.end());
}

const Channels& Clip() {
    static const Channels clip = ReadChannels(kPath);
    return clip;
}

std::vector<double> Channel(const char* name) {
    const Channels& c = Clip();
    for (std::size_t i = 0; i < c.names.size(); ++i)
        if (c.names[i] == name) return c.values[i];
    return {};
}

// One knee channel, as plotting fits it.
void BM_CurveKeyFitKneePlotting(benchmark::State& state) {
    std::vector<double> v = Channel("RightLeg.Xrotation");
    if (v.size() < 2) {
        state.SkipWithError("the channel did not read");
        return;
    }
    ORV::FCurve curve = NewCurve();
    const double tolerance = Range(v) * 0.03;
    long keys = 0;
    for (auto _ : state) {
        ORV::CDoubleArray features = Features(v, tolerance);
        ZUK::BezierCurve::curveKeyFit(v.data(), static_cast<long>(v.size()), 0, features, curve, -1.0);
        keys = curve.GetNumKeys();
    }
    state.counters["frames"] = static_cast<double>(v.size());
    state.counters["keys"] = static_cast<double>(keys);
}
BENCHMARK(BM_CurveKeyFitKneePlotting)->Unit(benchmark::kMillisecond);

// The same channel halved to a tolerance of 1% of its range.
void BM_CurveKeyFitKneeRecursive(benchmark::State& state) {
    std::vector<double> v = Channel("RightLeg.Xrotation");
    if (v.size() < 2) {
        state.SkipWithError("the channel did not read");
        return;
    }
    ORV::FCurve curve = NewCurve();
    const double tolerance = Range(v) * 0.01;
    long keys = 0;
    for (auto _ : state) {
        ORV::CDoubleArray features = Features(v, tolerance);
        ZUK::BezierCurve::curveKeyFit(v.data(), static_cast<long>(v.size()), 0, features, curve, tolerance);
        keys = curve.GetNumKeys();
    }
    state.counters["frames"] = static_cast<double>(v.size());
    state.counters["keys"] = static_cast<double>(keys);
}
BENCHMARK(BM_CurveKeyFitKneeRecursive)->Unit(benchmark::kMillisecond);

// Every channel of the 31-joint clip, as plotting fits a whole rig.
void BM_CurveKeyFitWholeRigPlotting(benchmark::State& state) {
    Channels clip = Clip();
    if (clip.values.empty() || clip.values[0].size() < 2) {
        state.SkipWithError("the clip did not read");
        return;
    }
    ORV::FCurve curve = NewCurve();
    long keys = 0;
    for (auto _ : state) {
        keys = 0;
        for (std::vector<double>& v : clip.values) {
            ORV::CDoubleArray features = Features(v, Range(v) * 0.03);
            ZUK::BezierCurve::curveKeyFit(v.data(), static_cast<long>(v.size()), 0, features, curve, -1.0);
            keys += curve.GetNumKeys();
        }
    }
    state.counters["channels"] = static_cast<double>(clip.values.size());
    state.counters["frames"] = static_cast<double>(clip.values[0].size());
    state.counters["keys"] = static_cast<double>(keys);
}
BENCHMARK(BM_CurveKeyFitWholeRigPlotting)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
