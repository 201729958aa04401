// Baking to keys as a user runs it, each step in its own `trovo` process: a rig of the CMU walk's
// skeleton with IK legs and arms, tagged by a run script, plays the walk through "RetargetBVH";
// "PlotRetargetMotion" bakes it, the scene is saved, and another process opens it and prints
// the rig's world transforms, which must be those the live operators printed before.
//
// A raw bake (interval keys at step 1) must match exactly; a reduced bake (inflection keys)
// within what fitting allows, with its keys counted. And from a rig-to-rig retarget whose
// source has keys every 5 frames, a bake that keeps the source's timing keys exactly there.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "E2ESupport.h"
#include "character/StructureTestSupport.h"
#include "glue/GlueMap.h"
#include "live/RetargetOp.h"
#include "shell/Util.h"
#include "support/BvhRigBuilder.h"

namespace {

using ORV::MATH::CMatrix3;
using ORV::MATH::CQuaternion;
using ORV::MATH::CRotation;
using ORV::MATH::CVector3;

const std::string kWalk = e2e::TestData("bvh/cmu_mb2010/02_01.bvh");
const std::string kTemplate = e2e::FactoryTemplate("cmu_mb2010.tagt");
// Source keys of the rig-to-rig source fall every kKeyStep frames.
const int kKeyStep = 5;

std::string Narrow(const std::wstring& w) { return std::string(w.begin(), w.end()); }

std::string TaggingScript(const std::string& model, const bvhrig::Tagging& tagging) {
    std::string text = "SetStructureFile " + model + " biped\n";
    for (const auto& pair : tagging)
        text += "SetTagValue " + model + " " + Narrow(pair.first) + " " + Narrow(pair.second) + " 1\n";
    return text + "ApplyTagsToRig " + model + "\n";
}

CMatrix3 RowMatrix(const bvhrig::Mat3& m) {
    CMatrix3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.Set(i, j, m[j][i]);
    return r;
}

CMatrix3 Transposed(const CMatrix3& m) {
    CMatrix3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.Set(i, j, m.Get(j, i));
    return r;
}

// The angle between two printed rotations, from their chord (exact for small angles).
double Angle(const e2e::EvalPose& a, const e2e::EvalPose& b) {
    double dot = 0.0;
    for (int i = 0; i < 4; ++i) dot += a.quaternion[i] * b.quaternion[i];
    const double s = dot < 0.0 ? -1.0 : 1.0;
    double chord = 0.0;
    for (int i = 0; i < 4; ++i)
        chord += (a.quaternion[i] - s * b.quaternion[i]) * (a.quaternion[i] - s * b.quaternion[i]);
    return 4.0 * std::asin(std::min(1.0, std::sqrt(chord) / 2.0));
}

double Distance(const e2e::EvalPose& a, const e2e::EvalPose& b) {
    double d = 0.0;
    for (int i = 0; i < 3; ++i) d += (a.position[i] - b.position[i]) * (a.position[i] - b.position[i]);
    return std::sqrt(d);
}

struct Difference {
    double position = 0.0, rotation = 0.0;
    int compared = 0;
    std::string worst;
};

// Every object and frame of `live` against `baked`. Up-vector objects are compared by position:
// where a limb is straight the glue hangs its up-vector at a rest offset under the anchor, turned
// with it, and only the position, which is all the chain reads, is baked.
Difference Compare(const e2e::EvalTable& live, const e2e::EvalTable& baked,
                   const std::set<std::string>& ups) {
    Difference d;
    for (const auto& object : live) {
        const auto other = baked.find(object.first);
        if (other == baked.end()) {
            d.worst = "missing " + object.first;
            d.position = d.rotation = 1e300;
            return d;
        }
        for (const auto& frame : object.second) {
            const auto at = other->second.find(frame.first);
            if (at == other->second.end()) continue;
            ++d.compared;
            d.position = std::max(d.position, Distance(frame.second, at->second));
            if (ups.count(object.first)) continue;
            const double angle = Angle(frame.second, at->second);
            if (angle > d.rotation) d.worst = object.first + " at " + std::to_string(frame.first);
            d.rotation = std::max(d.rotation, angle);
        }
    }
    return d;
}

struct Pipeline {
    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
    double height = 0.0;
    int frames = 0;
    std::set<std::string> ups;
    // The spine's run from its base, and everything that hangs from it.
    std::set<std::string> spineRun;
    e2e::EvalTable live, raw, reduced;
    // Left after the raw bake: operators, the blob, the adjustment property.
    int operatorsLeft = -1, blobsLeft = -1, adjustLeft = -1;
    long reducedKeys = 0, reducedChannels = 0;
    // Largest difference between a reduced key's value and the raw bake's value at its frame,
    // relative to the channel's range (at least 1).
    double keyError = -1.0;
    // Rig to rig: key times of the target's hips and neck after a preserving bake, and the
    // source's.
    std::map<std::string, std::vector<double>> preservedTimes;
    std::vector<double> sourceTimes;
    std::string failure;
};

class PlotEndToEnd : public e2e::SharedRun<PlotEndToEnd, Pipeline> {
    friend class e2e::SharedRun<PlotEndToEnd, Pipeline>;

protected:

    static std::string Trovo(const std::vector<std::string>& args, const std::string& expected,
                             std::string* out = nullptr) {
        const e2e::TrovoRun run = e2e::RunTrovo(*scratch, args);
        if (out) *out = run.out;
        if (run.status != 0 || (!expected.empty() && run.out != expected)) {
            std::string line;
            for (const std::string& a : args) line += " " + a;
            return "trovo" + line + " exited " + std::to_string(run.status) + " printing\n" + run.out +
                   run.err;
        }
        return "";
    }

    static std::string Eval(const std::string& scene, const std::string& model, e2e::EvalTable& table) {
        std::string out;
        const std::string failed = Trovo(
            {"--scene", scene, "eval", "--model", model, "--start", "1", "--end", std::to_string(p->frames)},
            "", &out);
        if (!failed.empty()) return failed;
        return e2e::ParseEval(out, table) ? "" : "eval printed what does not read:\n" + out;
    }

    static bvhrig::BvhRig BuildRig(const wchar_t* name, bool plain) {
        bvhrig::RigOptions options;
        bvhrig::BipedLimbs(p->tagging, options);
        options.ikLegs = options.ikArms = !plain;
        return bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), p->skel, name, options);
    }

    static std::string Save(const std::string& name) {
        std::wstring error;
        return orvhost::SaveScene(scratch->File(name), error) ? scratch->File(name) : std::string();
    }

    static std::string Plot(const std::string& scene, const std::string& model, const std::string& flags,
                            const std::string& saveAs) {
        std::vector<std::string> args = {
            "--scene", scene, "--save", scratch->File(saveAs), "exec", "PlotRetargetMotion", model};
        std::istringstream words(flags);
        std::string w;
        while (words >> w) args.push_back(w);
        args.push_back("1");
        args.push_back(std::to_string(p->frames + 1));
        return Trovo(args, "");
    }

    // What of the retarget is left on the model of the scene.
    static std::string CountLeft(const std::string& scene) {
        std::wstring error;
        if (!orvhost::OpenScene(scene, error)) return "open: " + Narrow(error);
        ORV::Model rig = ZUK::Util::findModel(L"Rig");
        ORV::Property property;
        p->blobsLeft = ZUK::Util::findCustomPSet(rig, ZUK::RetargetOp::DATA_NAME, property) ? 1 : 0;
        p->adjustLeft = ZUK::Util::findCustomPSet(rig, L"RetargetAdjustPPG", property) ? 1 : 0;
        p->operatorsLeft = 0;
        std::vector<ORV::KinematicState> states = {rig.GetKinematics().GetLocal(),
                                                   rig.GetKinematics().GetGlobal()};
        ORV::CRefArray all = rig.FindChildren(L"", L"", ORV::CStringArray(), true);
        for (long i = 0; i < all.GetCount(); ++i) {
            ORV::X3DObject o(all[i]);
            states.push_back(o.GetKinematics().GetLocal());
            states.push_back(o.GetKinematics().GetGlobal());
        }
        for (const ORV::KinematicState& s : states) {
            ORV::CValueArray args;
            args.Add(ORV::CValue(s.GetFullName()));
            ORV::CValue result;
            ORV::Application().ExecuteCommand(L"EnumElements", args, result);
            const ORV::CValueArray& elements = result;
            for (long e = 0; e < elements.GetCount(); ++e)
                if (ORV::CRef(elements[e]).IsA(ORV::ovCustomOperatorID)) ++p->operatorsLeft;
        }
        return "";
    }

    // Per channel (object and parameter), the raw bake's value at each frame, then the reduced
    // bake's keys.
    static std::string CountKeys(const std::string& rawScene, const std::string& scene) {
        std::map<std::string, std::map<int, double>> raw;
        std::wstring error;
        const wchar_t* const channels[6] = {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"};
        if (!orvhost::OpenScene(rawScene, error)) return "open: " + Narrow(error);
        ORV::CRefArray all = ZUK::Util::findModel(L"Rig").FindChildren(L"", L"", ORV::CStringArray(), true);
        for (long i = 0; i < all.GetCount(); ++i)
            for (const wchar_t* c : channels) {
                ORV::X3DObject o(all[i]);
                ORV::FCurve curve(o.GetKinematics().GetLocal().GetParameter(c).GetSource());
                if (!curve.IsValid()) continue;
                auto& values = raw[Narrow(o.GetFullName().GetWideString()) + "." + Narrow(c)];
                for (long k = 0; k < curve.GetNumKeys(); ++k) {
                    ORV::FCurveKey key = curve.GetKeyAtIndex(k);
                    values[static_cast<int>(static_cast<double>(key.GetTime()))] = key.GetValue();
                }
            }
        if (!orvhost::OpenScene(scene, error)) return "open: " + Narrow(error);
        all = ZUK::Util::findModel(L"Rig").FindChildren(L"", L"", ORV::CStringArray(), true);
        p->keyError = 0.0;
        for (long i = 0; i < all.GetCount(); ++i)
            for (const wchar_t* c : channels) {
                ORV::X3DObject o(all[i]);
                ORV::FCurve curve(o.GetKinematics().GetLocal().GetParameter(c).GetSource());
                if (!curve.IsValid()) continue;
                p->reducedKeys += curve.GetNumKeys();
                ++p->reducedChannels;
                const auto& values = raw[Narrow(o.GetFullName().GetWideString()) + "." + Narrow(c)];
                if (values.empty()) return "the raw bake has no curve for a reduced channel";
                double low = 1e300, high = -1e300;
                for (const auto& v : values) low = std::min(low, v.second), high = std::max(high, v.second);
                const double range = std::max(1.0, high - low);
                for (long k = 0; k < curve.GetNumKeys(); ++k) {
                    ORV::FCurveKey key = curve.GetKeyAtIndex(k);
                    const auto at = values.find(static_cast<int>(static_cast<double>(key.GetTime())));
                    if (at == values.end()) return "a reduced key off the frames";
                    p->keyError = std::max(
                        p->keyError, std::fabs(static_cast<double>(key.GetValue()) - at->second) / range);
                }
            }
        return "";
    }

    static std::string UpVectors(const std::string& scene) {
        std::wstring error;
        if (!orvhost::OpenScene(scene, error)) return "open: " + Narrow(error);
        std::unique_ptr<ZUK::GlueMap> glue(
            ZUK::GlueMap::CreateFromCustomProperty(ZUK::Util::findModel(L"Rig")));
        if (!glue) return "no glue on the tagged rig";
        for (const ZUK::PlaneConstraint& c : glue->planes)
            p->ups.insert("Rig." + Narrow(c.upVectorName.GetWideString()));
        ORV::Model rig = ZUK::Util::findModel(L"Rig");
        for (const ZUK::SpineConstraint& c : glue->spines) {
            ORV::X3DObject base = rig.FindChild(c.baseName, L"", ORV::CStringArray(), true);
            if (!base.IsValid()) continue;
            p->spineRun.insert("Rig." + Narrow(c.baseName.GetWideString()));
            ORV::CRefArray below = base.FindChildren(L"", L"", ORV::CStringArray(), true);
            for (long i = 0; i < below.GetCount(); ++i)
                p->spineRun.insert(Narrow(ORV::X3DObject(below[i]).GetFullName().GetWideString()));
        }
        return p->ups.size() == 4 ? "" : "the rig does not have four up-vectors";
    }

    // The walk as keys every kKeyStep frames on a rig of plain nulls: each joint's local rotation
    // and the root's position, capture frame f at scene frame 1 + f.
    static void KeyTheWalk(const std::vector<ORV::X3DObject>& joints) {
        const size_t n = p->skel.joints.size();
        const wchar_t* channels[6] = {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"};
        std::vector<std::vector<ORV::CValueArray>> values(n, std::vector<ORV::CValueArray>(6));
        ORV::CTimeArray times;
        for (int f = 0; f < p->frames; f += kKeyStep) {
            times.Add(ORV::CTime(1.0 + f));
            p->sourceTimes.push_back(1.0 + f);
            const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(p->skel, f);
            for (size_t j = 0; j < n; ++j) {
                const int parent = p->skel.joints[j].parent;
                CMatrix3 local = RowMatrix(pose.rotation[j]);
                if (parent >= 0) local.Mul(local, Transposed(RowMatrix(pose.rotation[parent])));
                const CVector3 angles = CRotation(local).GetXYZAngles();
                const double deg = 57.29577951308232;
                const double v[6] = {pose.position[j][0], pose.position[j][1], pose.position[j][2],
                                     angles.x * deg,      angles.y * deg,      angles.z * deg};
                for (int c = parent < 0 ? 0 : 3; c < 6; ++c) values[j][c].Add(ORV::CValue(v[c]));
            }
        }
        for (size_t j = 0; j < n; ++j)
            for (int c = p->skel.joints[j].parent < 0 ? 0 : 3; c < 6; ++c) {
                ORV::FCurve curve;
                joints[j]
                    .GetKinematics()
                    .GetLocal()
                    .GetParameter(channels[c])
                    .AddFCurve(ORV::ovStandardFCurve, curve);
                curve.SetKeys(times, values[j][c]);
            }
    }

    static std::string RigToRig() {
        orvhost::NewScene();
        BuildRig(L"Source", true);
        BuildRig(L"Target", false);
        const std::string rigs = Save("r2r_rigs.orvscene");
        scratch->Write("r2r_tagging.txt",
                       TaggingScript("Source", p->tagging) + TaggingScript("Target", p->tagging));
        std::string failed = Trovo({"--scene", rigs, "--save", scratch->File("r2r_tagged.orvscene"), "run",
                                    "--strict", scratch->File("r2r_tagging.txt")},
                                   "");
        if (!failed.empty()) return failed;
        std::wstring error;
        if (!orvhost::OpenScene(scratch->File("r2r_tagged.orvscene"), error)) return "open: " + Narrow(error);
        ORV::Model source = ZUK::Util::findModel(L"Source");
        std::vector<ORV::X3DObject> joints;
        for (const bvhrig::Joint& j : p->skel.joints) {
            joints.push_back(source.FindChild(j.name.c_str(), L"", ORV::CStringArray(), true));
            if (!joints.back().IsValid()) return "a joint of the source went missing";
        }
        KeyTheWalk(joints);
        const std::string keyed = Save("r2r_keyed.orvscene");
        failed = Trovo({"--scene", keyed, "--save", scratch->File("r2r_played.orvscene"), "exec", "Retarget",
                        "sourcemodel=Source", "targetmodel=Target", "strarttime=1",
                        "endtime=" + std::to_string(p->frames)},
                       "true\n");
        if (!failed.empty()) return failed;
        failed =
            Plot(scratch->File("r2r_played.orvscene"), "Target", "true false false 1", "r2r_baked.orvscene");
        if (!failed.empty()) return failed;
        if (!orvhost::OpenScene(scratch->File("r2r_baked.orvscene"), error)) return "open: " + Narrow(error);
        ORV::Model target = ZUK::Util::findModel(L"Target");
        for (const char* object : {"Hips", "Neck1", "Head", "LowerBack"})
            for (const char* channel : {"rotx", "roty", "rotz", "posx"}) {
                ORV::X3DObject o =
                    target.FindChild(bvhrig::Widen(object).c_str(), L"", ORV::CStringArray(), true);
                ORV::FCurve curve(
                    o.GetKinematics().GetLocal().GetParameter(bvhrig::Widen(channel).c_str()).GetSource());
                if (!curve.IsValid()) continue;
                std::vector<double>& times = p->preservedTimes[std::string(object) + "." + channel];
                for (long k = 0; k < curve.GetNumKeys(); ++k)
                    times.push_back(curve.GetKeyAtIndex(k).GetTime());
            }
        return "";
    }

    static std::string Run() {
        std::string error;
        if (!bvhrig::ReadBvh(kWalk, p->skel, &error)) return error;
        p->frames = static_cast<int>(p->skel.frames.size());
        const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(p->skel, -1);
        double low = 1e300, high = -1e300;
        for (const auto& q : rest.position) {
            low = std::min(low, q[1]);
            high = std::max(high, q[1]);
        }
        p->height = high - low;

        orvhost::NewScene();
        BuildRig(L"Rig", false);
        const std::string rig = Save("rig.orvscene");
        scratch->Write("tagging.txt", TaggingScript("Rig", p->tagging));
        std::string failed = Trovo({"--scene", rig, "--save", scratch->File("tagged.orvscene"), "run",
                                    "--strict", scratch->File("tagging.txt")},
                                   "");
        if (failed.empty()) failed = UpVectors(scratch->File("tagged.orvscene"));
        if (failed.empty())
            failed = Trovo(
                {"--scene", scratch->File("tagged.orvscene"), "--save", scratch->File("played.orvscene"),
                 "exec", "RetargetBVH", "targetmodel=Rig", "bvhfile=" + kWalk, "mapfile=" + kTemplate},
                "true\n");
        if (failed.empty()) failed = Eval(scratch->File("played.orvscene"), "Rig", p->live);
        if (failed.empty())
            failed = Plot(scratch->File("played.orvscene"), "Rig", "false false true 1", "raw.orvscene");
        if (failed.empty()) failed = Eval(scratch->File("raw.orvscene"), "Rig", p->raw);
        if (failed.empty()) failed = CountLeft(scratch->File("raw.orvscene"));
        if (failed.empty())
            failed = Plot(scratch->File("played.orvscene"), "Rig", "false true false 1", "reduced.orvscene");
        if (failed.empty()) failed = Eval(scratch->File("reduced.orvscene"), "Rig", p->reduced);
        if (failed.empty())
            failed = CountKeys(scratch->File("raw.orvscene"), scratch->File("reduced.orvscene"));
        if (failed.empty()) failed = RigToRig();
        return failed;
    }

};

TEST_F(PlotEndToEnd, ARawBakeLeavesNothingOfTheRetargetBehind) {
    EXPECT_EQ(p->operatorsLeft, 0);
    EXPECT_EQ(p->blobsLeft, 0);
    EXPECT_EQ(p->adjustLeft, 0);
}

// The tables without (or with only) the objects of `names`.
e2e::EvalTable Only(const e2e::EvalTable& table, const std::set<std::string>& names, bool inside) {
    e2e::EvalTable out;
    for (const auto& object : table)
        if (names.count(object.first) == (inside ? 1u : 0u)) out.insert(object);
    return out;
}

TEST_F(PlotEndToEnd, ARawBakeReopenedInAnotherProcessShowsWhatTheOperatorsShowedOnEveryFrame) {
    ASSERT_FALSE(p->spineRun.empty());
    const Difference d = Compare(Only(p->live, p->spineRun, false), p->raw, p->ups);
    std::printf(
        "[ raw bake ] %d poses of %zu objects over %d frames: largest difference %.3g heights, %.3g rad\n",
        d.compared, p->live.size(), p->frames, d.position / p->height, d.rotation);
    EXPECT_EQ(d.compared, static_cast<int>(p->live.size() - p->spineRun.size()) * p->frames);
    // eval prints 9 significant digits: below a millionth of the height, a millionth of a radian.
    EXPECT_LT(d.position, 1e-6 * p->height) << d.worst;
    EXPECT_LT(d.rotation, 1e-6) << d.worst;
}

// The spine's run, and what hangs from it: its operators read their inputs at the frame being
// evaluated, not at the play head, so the bake reopened elsewhere shows what `trovo eval` printed.
TEST_F(PlotEndToEnd, TheSpinesRunBakedAndReopenedShowsWhatTheOperatorsShowed) {
    const Difference d = Compare(Only(p->live, p->spineRun, true), p->raw, p->ups);
    std::printf("[ raw bake, spine run ] %d poses: largest difference %.3g heights, %.3g rad (%s)\n",
                d.compared, d.position / p->height, d.rotation, d.worst.c_str());
    EXPECT_EQ(d.compared, static_cast<int>(p->spineRun.size()) * p->frames);
    EXPECT_LT(d.position, 1e-6 * p->height) << d.worst;
    EXPECT_LT(d.rotation, 1e-6) << d.worst;
}

TEST_F(PlotEndToEnd, AReducedBakeFollowsTheLiveMotionWithFewKeys) {
    const Difference d = Compare(p->live, p->reduced, p->ups);
    const double share =
        static_cast<double>(p->reducedKeys) / (static_cast<double>(p->reducedChannels) * p->frames);
    std::printf(
        "[ reduced bake ] %ld keys on %ld channels over %d frames (%.1f%% of a raw bake); largest difference "
        "%.3g heights, %.3g rad (%s)\n",
        p->reducedKeys, p->reducedChannels, p->frames, 100.0 * share, d.position / p->height, d.rotation,
        d.worst.c_str());
    EXPECT_GT(p->reducedChannels, 0);
    EXPECT_LT(share, 0.5);
    // Keys fall on the features with the values the raw bake holds there. Between keys nothing
    // bounds the fit (the search has no tolerance), and where a channel jumps (an up-vector
    // moving to its straight-limb place) the cubic overshoots: the global errors are reported,
    // not asserted.
    std::printf("[ reduced bake ] largest key error %.3g of the channel's range\n", p->keyError);
    EXPECT_GE(p->keyError, 0.0);
    EXPECT_LT(p->keyError, 1e-9);
}

TEST_F(PlotEndToEnd, APreservingBakeKeysOnlyAtTheSourcesKeyTimesOnTheChannelsItAnimated) {
    ASSERT_FALSE(p->preservedTimes.empty());
    std::set<double> allowed(p->sourceTimes.begin(), p->sourceTimes.end());
    allowed.insert(1.0);
    allowed.insert(static_cast<double>(p->frames));
    for (const auto& channel : p->preservedTimes) {
        // The spine's driver keeps a key on every frame, whatever the mode.
        if (channel.first.rfind("LowerBack.", 0) == 0) {
            EXPECT_EQ(channel.second.size(), static_cast<size_t>(p->frames)) << channel.first;
            continue;
        }
        EXPECT_GE(channel.second.size(), p->sourceTimes.size() - 1) << channel.first;
        for (double t : channel.second)
            EXPECT_TRUE(allowed.count(t)) << channel.first << " has a key at " << t;
    }
}

}  // namespace
