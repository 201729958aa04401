// The adjustments as a user reaches them through `trovo`: the CMU slow walk (07_05) retargeted
// onto a rig with IK legs and arms by "RetargetBVH", then adjustment values set with "SetValue"
// in a run script and the scene saved, and the saved scene evaluated in a fresh process, whose
// operator builds its cached data from those values as it loads.
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "E2ESupport.h"
#include "character/StructureTestSupport.h"
#include "support/BvhRigBuilder.h"

namespace {

using ORV::MATH::CVector3;

const std::string kWalk = e2e::TestData("bvh/cmu_mb2010/07_05.bvh");
const std::string kTemplate = e2e::FactoryTemplate("cmu_mb2010.tagt");
// Scene frames 1 to kLast, every kStep: the walk's first 161 frames.
const int kLast = 161;
const int kStep = 20;
// Positions after the host's IK and constraints, and a trip through the scene file's text.
const double kTolerance = 1e-6;

std::string Narrow(const std::wstring& w) { return std::string(w.begin(), w.end()); }

std::string TaggingScript(const std::string& model, const bvhrig::Tagging& tagging) {
    std::string text = "SetStructureFile " + model + " biped\n";
    for (const auto& pair : tagging)
        text += "SetTagValue " + model + " " + Narrow(pair.first) + " " + Narrow(pair.second) + " 1\n";
    return text + "ApplyTagsToRig " + model + "\n";
}

CVector3 PositionOf(const e2e::EvalPose& pose) {
    return CVector3(pose.position[0], pose.position[1], pose.position[2]);
}

struct Played {
    bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
    bvhrig::Skeleton skel;
    std::string scene;
    e2e::EvalTable plain;
    std::string failure;
};

class AdjustEndToEnd : public e2e::SharedRun<AdjustEndToEnd, Played> {
    friend class e2e::SharedRun<AdjustEndToEnd, Played>;

protected:

    static std::string Trovo(const std::vector<std::string>& args, std::string* out = nullptr) {
        const e2e::TrovoRun run = e2e::RunTrovo(*scratch, args);
        if (out) *out = run.out;
        if (run.status == 0) return "";
        std::string line;
        for (const std::string& a : args) line += " " + a;
        return "trovo" + line + " exited " + std::to_string(run.status) + " printing\n" + run.out + run.err;
    }

    static std::string Eval(const std::string& scene, e2e::EvalTable& table) {
        std::string out;
        const std::string failed = Trovo({"--scene", scene, "eval", "--model", "Rig", "--start", "1", "--end",
                                          std::to_string(kLast), "--step", std::to_string(kStep)},
                                         &out);
        if (!failed.empty()) return failed;
        return e2e::ParseEval(out, table) ? "" : "eval printed what does not read:\n" + out;
    }

    // The rig, tagged, with the walk played on it, and what it shows with no adjustment.
    static std::string Run() {
        if (!bvhrig::ReadBvh(kWalk, p->skel)) return "the walk does not read";
        orvhost::NewScene();
        bvhrig::RigOptions options;
        bvhrig::BipedLimbs(p->tagging, options);
        options.ikLegs = options.ikArms = true;
        bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), p->skel, L"Rig", options);
        std::wstring error;
        if (!orvhost::SaveScene(scratch->File("rig.orvscene"), error)) return "save: " + Narrow(error);
        scratch->Write("tagging.txt", TaggingScript("Rig", p->tagging));
        std::string failed =
            Trovo({"--scene", scratch->File("rig.orvscene"), "--save", scratch->File("tagged.orvscene"),
                   "run", "--strict", scratch->File("tagging.txt")});
        if (!failed.empty()) return failed;
        std::string out;
        failed =
            Trovo({"--scene", scratch->File("tagged.orvscene"), "--save", scratch->File("played.orvscene"),
                   "exec", "RetargetBVH", "targetmodel=Rig", "bvhfile=" + kWalk, "mapfile=" + kTemplate},
                  &out);
        if (!failed.empty()) return failed;
        if (out != "true\n") return "RetargetBVH answered " + out;
        p->scene = scratch->File("played.orvscene");
        return Eval(p->scene, p->plain);
    }

    // The played scene with `script` run on it and saved, evaluated in a fresh process.
    static std::string Adjusted(const std::string& name, const std::string& script, e2e::EvalTable& table) {
        scratch->Write(name + ".txt", script);
        const std::string failed = Trovo({"--scene", p->scene, "--save", scratch->File(name + ".orvscene"),
                                          "run", "--strict", scratch->File(name + ".txt")});
        if (!failed.empty()) return failed;
        return Eval(scratch->File(name + ".orvscene"), table);
    }

    static std::string Object(const wchar_t* node) {
        return "Rig." + Narrow(bvhrig::JointOf(p->tagging, node));
    }

    static const e2e::EvalPose& Pose(const e2e::EvalTable& table, const wchar_t* node, int frame) {
        return table.at(Object(node)).at(frame);
    }
    static CVector3 At(const e2e::EvalTable& table, const wchar_t* node, int frame) {
        return PositionOf(Pose(table, node, frame));
    }
    static std::vector<int> Frames() {
        std::vector<int> frames;
        for (int f = 1; f <= kLast; f += kStep) frames.push_back(f);
        return frames;
    }

};

void ExpectNear(const CVector3& actual, const CVector3& expected, const std::string& what) {
    EXPECT_LT((actual - expected).GetLength(), kTolerance)
        << what << ": (" << actual.x << ", " << actual.y << ", " << actual.z << ") instead of (" << expected.x
        << ", " << expected.y << ", " << expected.z << ")";
}

double KneeAngle(const CVector3& hip, const CVector3& knee, const CVector3& foot) {
    return (hip - knee).GetAngle(foot - knee);
}

TEST_F(AdjustEndToEnd, HipOffsetWithFeetOffsetOffLowersTheRootByFiveKeepsTheFeetAndBendsTheKnees) {
    e2e::EvalTable table;
    ASSERT_EQ(Adjusted("hip_feet_off",
                       "SetValue Rig.RetargetAdjustPPG.offsetFeet false\n"
                       "SetValue Rig.RetargetAdjustPPG.hipY -5.0\n",
                       table),
              "");
    const CVector3 down(0.0, -5.0, 0.0);
    for (int f : Frames()) {
        const std::string at = " at " + std::to_string(f);
        ExpectNear(At(table, L"cog", f), At(p->plain, L"cog", f) + down, "cog" + at);
        ExpectNear(At(table, L"lfoot", f), At(p->plain, L"lfoot", f), "left foot" + at);
        ExpectNear(At(table, L"rfoot", f), At(p->plain, L"rfoot", f), "right foot" + at);
        for (const wchar_t* side : {L"l", L"r"}) {
            const std::wstring thigh = std::wstring(side) + L"thigh", shin = std::wstring(side) + L"shin",
                               foot = std::wstring(side) + L"foot";
            const double before = KneeAngle(At(p->plain, thigh.c_str(), f), At(p->plain, shin.c_str(), f),
                                            At(p->plain, foot.c_str(), f));
            const double after = KneeAngle(At(table, thigh.c_str(), f), At(table, shin.c_str(), f),
                                           At(table, foot.c_str(), f));
            EXPECT_LT(after, before - 0.05) << Narrow(thigh) << at;
        }
    }
}

TEST_F(AdjustEndToEnd, HipOffsetWithFeetOffsetOnMovesTheFeetByFiveToo) {
    e2e::EvalTable table;
    ASSERT_EQ(Adjusted("hip_feet_on", "SetValue Rig.RetargetAdjustPPG.hipY -5.0\n", table), "");
    const CVector3 down(0.0, -5.0, 0.0);
    for (int f : Frames()) {
        const std::string at = " at " + std::to_string(f);
        ExpectNear(At(table, L"cog", f), At(p->plain, L"cog", f) + down, "cog" + at);
        ExpectNear(At(table, L"lfoot", f), At(p->plain, L"lfoot", f) + down, "left foot" + at);
        ExpectNear(At(table, L"rfoot", f), At(p->plain, L"rfoot", f) + down, "right foot" + at);
    }
}

TEST_F(AdjustEndToEnd, StrideOfOneAndAHalfLengthensTheTravelAlongItsDirectionOnly) {
    // The stride paths span the whole clip; the travel is measured over the frames evaluated.
    e2e::EvalTable table;
    ASSERT_EQ(Adjusted("stride", "SetValue Rig.RetargetAdjustPPG.Stride 1.5\n", table), "");
    // The direction of travel is the clip's own, first frame to last, from the file.
    const bvhrig::GlobalPose first = bvhrig::ForwardKinematics(p->skel, 0);
    const bvhrig::GlobalPose last =
        bvhrig::ForwardKinematics(p->skel, static_cast<int>(p->skel.frames.size()) - 1);
    const int root = 0;
    CVector3 dir(last.position[root][0] - first.position[root][0],
                 last.position[root][1] - first.position[root][1],
                 last.position[root][2] - first.position[root][2]);
    if (dir.x > dir.y || dir.z > dir.y) dir.y = 0.0;
    ASSERT_EQ(dir.NormalizeInPlace(), ORV::CStatus::OK);
    const int end = Frames().back();
    const CVector3 travel = At(p->plain, L"cog", end) - At(p->plain, L"cog", 1);
    const CVector3 moved = At(table, L"cog", end) - At(table, L"cog", 1);
    EXPECT_NEAR(moved.Dot(dir), 1.5 * travel.Dot(dir), kTolerance);
    ExpectNear(moved - dir * moved.Dot(dir), travel - dir * travel.Dot(dir), "sideways");
    EXPECT_GT(std::fabs(travel.Dot(dir)), 10.0);
}

TEST_F(AdjustEndToEnd, RollOfThirtyDegreesTurnsTheLegsPlaneAboutItsAnchorGoalAxis) {
    e2e::EvalTable table;
    ASSERT_EQ(Adjusted("roll", "SetValue Rig.RetargetAdjustPPG.lfootRoll 30.0\n", table), "");
    int compared = 0;
    for (int f : Frames()) {
        const CVector3 a = At(p->plain, L"lthigh", f), m = At(p->plain, L"lshin", f),
                       g = At(p->plain, L"lfoot", f);
        const CVector3 m2 = At(table, L"lshin", f);
        CVector3 before, after;
        before.Cross(m - a, g - a);
        after.Cross(m2 - a, g - a);
        before.NormalizeInPlace();
        after.NormalizeInPlace();
        ExpectNear(At(table, L"lthigh", f), a, "anchor at " + std::to_string(f));
        ExpectNear(At(table, L"lfoot", f), g, "goal at " + std::to_string(f));
        // A straight leg has no plane to turn.
        if (KneeAngle(a, m, g) > 3.1415926535897931 - 0.1) continue;
        ++compared;
        EXPECT_NEAR(before.GetAngle(after), 30.0 * 0.017453292519943295, 1e-6) << f;
    }
    EXPECT_GE(compared, 3);
}

TEST_F(AdjustEndToEnd, SpeedTwoPlaysTheBodyAtTwiceThePace) {
    e2e::EvalTable table;
    ASSERT_EQ(Adjusted("speed", "SetValue Rig.RetargetAdjustPPG.Speed 2.0\n", table), "");
    // Scene frame 1 + f plays motion frame 2f. The root's place comes from the stride path,
    // which samples the clip at the scene frame; the body's pose about it is the motion's.
    int compared = 0;
    for (int f : Frames()) {
        const int played = 1 + 2 * (f - 1);
        if (played > kLast || (played - 1) % kStep != 0) continue;
        ++compared;
        ExpectNear(At(table, L"head", f) - At(table, L"cog", f),
                   At(p->plain, L"head", played) - At(p->plain, L"cog", played),
                   "head at " + std::to_string(f));
    }
    EXPECT_GE(compared, 3);
}

}  // namespace
