// The live operators on a rig built from the skeleton of a real CMU walk: what ApplyRetargetOp
// installs, what the rig shows when the host evaluates it (against the tests' own forward
// kinematics of the file), how time becomes a motion frame, how panel events reach the caches,
// and a saved scene played again in another process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "glue/GlueMap.h"
#include "glue/SpineMap.h"
#include "live/LiveRigSupport.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "panels/AdjustPPG.h"
#include "panels/RotationOffsetPPG.h"
#include "shell/Util.h"

// Counts the allocations of this process while `counting` is set: the per-evaluation code of
// the live operator must make none.
namespace {
bool counting = false;
long allocations = 0;
}  // namespace

// The replacements pair malloc with free themselves; the compiler sees only new with free.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    if (counting) ++allocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
#pragma GCC diagnostic pop

namespace {

using liverig::GlobalAt;
using liverig::LiveRig;
using ORV::MATH::CMatrix3;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::RetargetOp;

constexpr long kFrames = 40;

[[maybe_unused]] std::string Narrow(const ORV::CString& s) { return s.GetAsciiString(); }

class LivePipeline : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(liverig::LoadTrovoOnce(), L"");
        orvhost::NewScene();
        orvhost::ClearLog();
    }

    // The walker rig with the first kFrames frames installed at insertion frame 1.
    void Installed(LiveRig& live, long frames = kFrames) {
        std::string error;
        ASSERT_TRUE(live.Build(liverig::CmuWalk(), L"Walker", bvhrig::RigOptions(), error)) << error;
        live.Record(frames);
        live.Install(1);
    }

    // Ping's value, to count the rig updates that panel events ask for.
    static int Ping(const LiveRig& live) {
        return static_cast<int>(live.Adjust().GetParameterValue(L"Ping"));
    }

    modelmaptest::FactoryData factory;
};

// ---- Playback --------------------------------------------------------------------------------

struct PoseErrors {
    double rotation = 0.0, position = 0.0;
    int rotations = 0, positions = 0;
    std::wstring worst;
};

// The rig's tagged objects at scene frame `time` against the source's frame `frame`: rotations
// of every tagged object outside a limb that is straight at that frame, positions of the root,
// the limb ends, and the knees and elbows of bent limbs.
PoseErrors CompareWithSource(const LiveRig& live, double time, int frame) {
    PoseErrors e;
    const liverig::Expected expected(live.skel, frame);
    const bvhrig::GlobalPose& pose = expected.pose;
    const std::vector<std::wstring> positioned = {
        L"cog",      L"lfoot",    L"rfoot",  L"lhand",  L"rhand",     L"lshin",    L"rshin",
        L"lforearm", L"rforearm", L"lthigh", L"rthigh", L"lupperarm", L"rupperarm"};
    // Limbs that are straight at this frame have no bend plane of their own.
    std::vector<std::wstring> straight;
    for (const auto& limb : {std::vector<std::wstring>{L"lthigh", L"lshin", L"lfoot"},
                             std::vector<std::wstring>{L"rthigh", L"rshin", L"rfoot"},
                             std::vector<std::wstring>{L"lupperarm", L"lforearm", L"lhand"},
                             std::vector<std::wstring>{L"rupperarm", L"rforearm", L"rhand"}}) {
        const CVector3 a =
            liverig::Vec(pose.position[live.skel.find(bvhrig::JointOf(live.tagging, limb[0]))]);
        const CVector3 m =
            liverig::Vec(pose.position[live.skel.find(bvhrig::JointOf(live.tagging, limb[1]))]);
        const CVector3 s =
            liverig::Vec(pose.position[live.skel.find(bvhrig::JointOf(live.tagging, limb[2]))]);
        // A limb counts as straight below 0.1 rad between its two spans; its normal is zero then.
        if ((m - a).GetAngle(s - a) < 0.1) {
            straight.push_back(limb[0]);
            straight.push_back(limb[1]);
        }
    }
    for (const auto& pair : live.tagging) {
        const int joint = live.skel.find(pair.second);
        const ORV::X3DObject object = live.Object(pair.second);
        if (joint < 0 || !object.IsValid()) continue;
        if (std::find(straight.begin(), straight.end(), pair.first) != straight.end()) continue;
        // The rest pose of the rig is unrotated, as is the file's: the object's rotation is its
        // turn since tagging. Chain bones lie along their bone, and are checked by position.
        if (object.IsA(ORV::ovChainBoneID)) continue;
        const CMatrix3 turn = GlobalAt(object, time).GetRotationMatrix3();
        e.rotation =
            std::max(e.rotation, liverig::AngleBetween(turn, liverig::RowMatrix(pose.rotation[joint])));
        ++e.rotations;
    }
    for (const auto& node : positioned) {
        if (std::find(straight.begin(), straight.end(), node) != straight.end()) continue;
        const std::wstring jointName = bvhrig::JointOf(live.tagging, node);
        const int joint = live.skel.find(jointName);
        const ORV::X3DObject object = live.Object(jointName);
        if (joint < 0 || !object.IsValid()) continue;
        const CVector3 d = GlobalAt(object, time).GetTranslation() - liverig::Vec(pose.position[joint]);
        if (d.GetLength() / live.height > e.position) e.worst = node;
        e.position = std::max(e.position, d.GetLength() / live.height);
        ++e.positions;
    }
    return e;
}

TEST_F(LivePipeline, TheRigPlaysTheRecordedFramesFromTheInsertionFrameOn) {
    LiveRig live;
    Installed(live);
    live.WarmUp(1.0);
    PoseErrors worst;
    for (int f : {0, 1, 7, 20, 39}) {
        const PoseErrors e = CompareWithSource(live, 1.0 + f, f);
        worst.rotation = std::max(worst.rotation, e.rotation);
        worst.position = std::max(worst.position, e.position);
        worst.rotations += e.rotations;
        worst.positions += e.positions;
    }
    EXPECT_GT(worst.rotations, 5 * 12);
    EXPECT_GT(worst.positions, 5 * 5);
    EXPECT_LT(worst.rotation, 1e-5);
    EXPECT_LT(worst.position, 1e-5);
    std::printf("[ playback ] largest rotation error %.3g rad, position %.3g heights\n", worst.rotation,
                worst.position);
}

// Hips' world position between two recorded frames, as the tests' own kinematics give it.
CVector3 HipsBetween(const LiveRig& live, int frame, double t) {
    return liverig::Expected::Between(live.skel, live.skel.find(L"Hips"), frame, t);
}

double HipsError(const LiveRig& live, double time, const CVector3& expected) {
    return (GlobalAt(live.Object(L"Hips"), time).GetTranslation() - expected).GetLength() / live.height;
}

TEST_F(LivePipeline, BetweenTwoFramesTheRigIsBlendedByTheFraction) {
    LiveRig live;
    Installed(live);
    live.WarmUp(1.0);
    EXPECT_LT(HipsError(live, 1.0 + 10.25, HipsBetween(live, 10, 0.25)), 1e-6);
    EXPECT_LT(HipsError(live, 1.0 + 3.5, HipsBetween(live, 3, 0.5)), 1e-6);
    // And not the frame itself: the clip moves enough between frames to tell.
    EXPECT_GT(HipsError(live, 1.0 + 3.5, HipsBetween(live, 3, 0.0)), 1e-5);
    // Rotations halfway: the normalised sum of the two frames' quaternions (same hemisphere).
    for (const wchar_t* joint : {L"Hips", L"Head", L"LeftFoot"}) {
        const int j = live.skel.find(joint);
        CTransformation a, b;
        a.SetRotationFromMatrix3(
            liverig::RowMatrix(liverig::Expected(live.skel, 3).pose.rotation[static_cast<size_t>(j)]));
        b.SetRotationFromMatrix3(
            liverig::RowMatrix(liverig::Expected(live.skel, 4).pose.rotation[static_cast<size_t>(j)]));
        ORV::MATH::CQuaternion qa = a.GetRotationQuaternion(), qb = b.GetRotationQuaternion();
        if (qa.Dot(qb) < 0.0) qb.Set(-qb.w, -qb.x, -qb.y, -qb.z);
        ORV::MATH::CQuaternion half(qa.w + qb.w, qa.x + qb.x, qa.y + qb.y, qa.z + qb.z);
        half.NormalizeInPlace();
        CTransformation h;
        h.SetRotationFromQuaternion(half);
        const CMatrix3 shown = GlobalAt(live.Object(joint), 1.0 + 3.5).GetRotationMatrix3();
        EXPECT_LT(liverig::AngleBetween(shown, h.GetRotationMatrix3()), 1e-6) << Narrow(ORV::CString(joint));
        EXPECT_GT(liverig::AngleBetween(shown, a.GetRotationMatrix3()), 1e-4) << Narrow(ORV::CString(joint));
    }
}

// ---- Time to motion frame ------------------------------------------------------------------

TEST_F(LivePipeline, BeforeTheInsertionFrameThePoseIsFrameZeroWithNoFraction) {
    LiveRig live;
    Installed(live);
    live.WarmUp(1.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    for (double time : {0.5, 0.0, -7.25}) {
        op->computeFrame(time);
        EXPECT_EQ(op->currentFrame, 0) << time;
        EXPECT_EQ(op->frameFraction, 0.0) << time;
    }
    live.WarmUp(-3.0);
    EXPECT_LT(HipsError(live, -3.0, HipsBetween(live, 0, 0.0)), 1e-6);
}

TEST_F(LivePipeline, BeyondTheClipThePoseIsTheLastFrameAtAnySpeed) {
    LiveRig live;
    Installed(live);
    live.WarmUp(1.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    ORV::CustomProperty adjust = live.Adjust();
    for (double speed : {1.0, 2.5, 0.3}) {
        adjust.PutParameterValue(L"Speed", ORV::CValue(speed));
        // Within the last frame's reach, at it, and far beyond.
        for (double x : {kFrames - 1 + 0.25, kFrames - 1.0, kFrames + 0.5, 1000.0}) {
            op->computeFrame(1.0 + x / speed);
            EXPECT_EQ(op->currentFrame, kFrames - 1) << speed << " " << x;
            EXPECT_EQ(op->frameFraction, 0.0) << speed << " " << x;
        }
    }
    adjust.PutParameterValue(L"Speed", ORV::CValue(1.0));
    live.WarmUp(500.0);
    EXPECT_LT(HipsError(live, 500.0, HipsBetween(live, kFrames - 1, 0.0)), 1e-6);
}

TEST_F(LivePipeline, AtSpeedTwoTimeInsertionPlusThreeAndAQuarterIsFrameSixAndAHalf) {
    LiveRig live;
    Installed(live);
    live.WarmUp(1.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    live.Adjust().PutParameterValue(L"Speed", ORV::CValue(2.0));
    op->computeFrame(1.0 + 3.25);
    EXPECT_EQ(op->currentFrame, 6);
    EXPECT_DOUBLE_EQ(op->frameFraction, 0.5);
    // The speed is read at every evaluation: the rig follows at once.
    live.WarmUp(4.25);
    EXPECT_LT(HipsError(live, 4.25, HipsBetween(live, 6, 0.5)), 1e-6);
}

TEST_F(LivePipeline, TheWarmUpCountStopsAtTwoAndTheFirstComputedFrameClearsNotReady) {
    LiveRig live;
    Installed(live);
    GlobalAt(live.rig.model, 3.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    EXPECT_TRUE(op->loaded);
    EXPECT_FALSE(op->notReady);
    EXPECT_EQ(op->warmupCount, 1);
    op->update(4.0);
    op->update(5.0);
    op->update(6.0);
    EXPECT_EQ(op->warmupCount, 2);
    EXPECT_EQ(op->currentFrame, 5);
    EXPECT_EQ(op->currentTime, 6.0);
}

// ---- The small operators ---------------------------------------------------------------------

// A null under the rig driven by a new "RetargetGlobalOp" through the constraint of `driver`.
ORV::Null DrivenProbe(LiveRig& live, const wchar_t* driver) {
    ORV::Null probe;
    live.rig.model.AddNull(L"Probe", probe);
    ORV::CustomOperator op(ORV::Application().GetFactory().CreateObject(L"RetargetGlobalOp"));
    ORV::CustomProperty adjust = live.Adjust();
    op.AddOutputPort(probe.GetKinematics().GetGlobal().GetRef());
    op.AddInputPort(live.rig.model.GetKinematics().GetLocal().GetRef());
    op.AddInputPort(adjust.GetParameter(driver).GetRef());
    op.AddInputPort(modelmaptest::FindProperty(live.rig.model, L"ZUKRetargetOp").GetRef());
    op.PutAlwaysEvaluate(true);
    op.Connect();
    return probe;
}

TEST_F(LivePipeline, TheFirstEvaluationOfEachSmallOperatorDoesNothingEvenWithTheMainOneLoaded) {
    LiveRig live;
    Installed(live);
    live.WarmUp(21.0);
    ASSERT_NE(live.Live(), nullptr);
    ASSERT_TRUE(live.Live()->loaded);
    const ORV::Null probe = DrivenProbe(live, L"LeftFoot");
    const CVector3 played = GlobalAt(live.Object(L"LeftFoot"), 21.0).GetTranslation();
    ASSERT_GT(played.GetLength(), 1.0);
    // Its first evaluation leaves the probe where it was made; the next one drives it.
    EXPECT_EQ(GlobalAt(probe, 21.0).GetTranslation(), CVector3(0.0, 0.0, 0.0));
    EXPECT_LT((GlobalAt(probe, 21.0).GetTranslation() - played).GetLength(), 1e-9);
}

TEST_F(LivePipeline, ASpineOperatorBeyondTheSemiFreeNodesSkipsTheCurveAndStillAppliesTheSpine) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    ASSERT_EQ(op->semiFrees.size(), 1u);
    ASSERT_EQ(op->glueMap->spines.size(), 1u);
    ZUK::SpineMap* spine = op->glueMap->spines[0].spineMap;
    ASSERT_NE(spine, nullptr);
    const ORV::X3DObject base = live.Object(L"Spine");
    ORV::KinematicState in = live.Object(L"LowerBack").GetKinematics().GetGlobal();
    ORV::KinematicState out = base.GetKinematics().GetLocal();
    CTransformation marker;
    marker.SetTranslationFromValues(1234.0, 0.0, 0.0);
    CTransformation odd = out.GetTransform();
    odd.SetRotationFromXYZAngles(CVector3(0.7, 0.0, 0.0));

    // In range, on the first joint: the curve is laid anew.
    spine->anchorTransform = marker;
    op->updateSpine(in, out, 0, 0);
    EXPECT_GT((spine->anchorTransform.GetTranslation() - marker.GetTranslation()).GetLength(), 1.0);

    // Beyond the semi-free nodes: the curve stays as it was, the joint is still set.
    const std::vector<RetargetOp::SemiFree> kept = op->semiFrees;
    op->semiFrees.clear();
    spine->anchorTransform = marker;
    out.PutTransform(odd);
    op->updateSpine(in, out, 0, 0);
    EXPECT_EQ(spine->anchorTransform.GetTranslation(), marker.GetTranslation());
    EXPECT_GT(liverig::AngleBetween(out.GetTransform().GetRotationMatrix3(), odd.GetRotationMatrix3()), 0.1);
    op->semiFrees = kept;
}

TEST_F(LivePipeline, SmallOperatorMembersDoNothingWhileNotReady) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    ORV::Null probe;
    live.rig.model.AddNull(L"Loose", probe);
    ORV::KinematicState state = probe.GetKinematics().GetGlobal();
    CTransformation away;
    away.SetTranslationFromValues(500.0, 0.0, 0.0);
    state.PutTransform(away);
    op->notReady = true;
    op->ApplyGlobalOpValue(state, 0);
    op->ApplyUpVectorOpValue(state, 0);
    op->updateDecomp(live.rig.model.GetKinematics().GetGlobal(), state, 0, 0);
    op->updateSpine(live.rig.model.GetKinematics().GetGlobal(), state, 0, 0);
    EXPECT_EQ(state.GetTransform().GetTranslation().x, 500.0);
    op->notReady = false;
    op->ApplyGlobalOpValue(state, 0);
    EXPECT_LT(state.GetTransform().GetTranslation().x, 400.0);
}

// ---- Installation ----------------------------------------------------------------------------

struct Wired {
    std::wstring type, output;
    std::vector<std::wstring> inputs;
};

// Every operator on the rig: its type, output and inputs, parameters shown with their value.
std::vector<Wired> Wiring(const LiveRig& live) {
    std::vector<Wired> out;
    ORV::CRefArray objects = live.rig.model.FindChildren(L"", L"", ORV::CStringArray(), true);
    objects.Add(live.rig.model.GetRef());
    for (long i = 0; i < objects.GetCount(); ++i) {
        ORV::X3DObject o(objects[i]);
        for (const ORV::KinematicState& state :
             {o.GetKinematics().GetLocal(), o.GetKinematics().GetGlobal()}) {
            for (const ORV::CustomOperator& op : liverig::OperatorsOn(state)) {
                Wired w;
                w.type = op.GetName().GetWideString();
                ORV::CRefArray outs = op.GetOutputPorts();
                if (outs.GetCount() == 1)
                    w.output = ORV::OVObject(ORV::Port(outs[0]).GetTarget()).GetFullName().GetWideString();
                ORV::CRefArray ins = op.GetInputPorts();
                for (long k = 0; k < ins.GetCount(); ++k) {
                    const ORV::CRef target = ORV::Port(ins[k]).GetTarget();
                    std::wstring text = ORV::OVObject(target).GetFullName().GetWideString();
                    if (target.IsA(ORV::ovParameterID) && !target.IsA(ORV::ovKinematicStateID)) {
                        const ORV::Parameter p(target);
                        text += L"=" + std::wstring(p.GetValue().GetAsText().GetWideString());
                        // Hidden integer parameters of the adjustment property, except "Ping".
                        if (p.GetScriptName() != ORV::CString(L"Ping")) {
                            EXPECT_EQ(p.GetValueType(), ORV::ovInt4) << text;
                            EXPECT_EQ(p.GetCapabilities(), 8) << text;
                        }
                    }
                    w.inputs.push_back(text);
                }
                EXPECT_TRUE(op.GetAlwaysEvaluate()) << w.type;
                EXPECT_TRUE(op.IsConnected()) << w.type;
                out.push_back(w);
            }
        }
    }
    return out;
}

std::wstring Describe(const Wired& w) {
    std::wstring s = w.type + L" -> " + w.output + L" <-";
    for (const auto& i : w.inputs) s += L" " + i;
    return s;
}

TEST_F(LivePipeline, EveryDrivenObjectGetsItsOperatorWithItsPortsAndIndexParameters) {
    LiveRig live;
    Installed(live);
    std::vector<std::wstring> got;
    for (const Wired& w : Wiring(live)) got.push_back(Describe(w));
    std::sort(got.begin(), got.end());
    // Constraint numbers as the glue of this rig orders them.
    auto mocap = [&](const wchar_t* object) {
        for (size_t i = 0; i < live.glue->mocaps.size(); ++i)
            if (live.glue->mocaps[i].rigNodeName == ORV::CString(object)) return std::to_wstring(i);
        return std::wstring(L"?");
    };
    auto plane = [&](const wchar_t* object) {
        for (size_t i = 0; i < live.glue->planes.size(); ++i)
            if (live.glue->planes[i].upVectorName == ORV::CString(object)) return std::to_wstring(i);
        return std::wstring(L"?");
    };
    std::vector<std::wstring> expected = {
        L"RetargetOp -> Walker.kine.local <- Walker.kine.local Walker.ZUKRetargetOp "
        L"Walker.RetargetAdjustPPG.Ping=0"};
    for (const wchar_t* o : {L"Hips", L"LowerBack", L"Neck1", L"Head", L"LeftShoulder", L"RightShoulder",
                             L"LeftFoot", L"LeftToeBase", L"RightFoot", L"RightToeBase", L"LeftHand",
                             L"LeftHandIndex1", L"RightHand", L"RightHandIndex1"})
        expected.push_back(L"RetargetGlobalOp -> Walker." + std::wstring(o) +
                           L".kine.global <- Walker.kine.local Walker.RetargetAdjustPPG." + o + L"=" +
                           mocap(o) + L" Walker.ZUKRetargetOp");
    for (const wchar_t* o : {L"LeftUpLegUp", L"RightUpLegUp", L"LeftArmUp", L"RightArmUp"})
        expected.push_back(L"RetargetUpVOp -> Walker." + std::wstring(o) +
                           L".kine.global <- Walker.kine.local Walker.RetargetAdjustPPG." + o + L"=" +
                           plane(o) + L" Walker.ZUKRetargetOp");
    expected.push_back(
        L"RetargetSpineOp -> Walker.Spine.kine.local <- Walker.LowerBack.kine.global "
        L"Walker.RetargetAdjustPPG.Spine_spine=0 Walker.RetargetAdjustPPG.Spine=0 Walker.ZUKRetargetOp");
    expected.push_back(
        L"RetargetSpineOp -> Walker.Spine1.kine.local <- Walker.Spine.kine.global "
        L"Walker.RetargetAdjustPPG.Spine1_spine=0 Walker.RetargetAdjustPPG.Spine1=1 Walker.ZUKRetargetOp");
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(got, expected);
    // The up-vector numbers follow the limbs: legs, then arms.
    EXPECT_EQ(plane(L"LeftUpLegUp") + plane(L"RightUpLegUp") + plane(L"LeftArmUp") + plane(L"RightArmUp"),
              L"0123");
}

TEST_F(LivePipeline, ADecomposedNodeGetsDecompOperatorsAndNoGlobalOne) {
    LiveRig live;
    std::string error;
    bvhrig::Tagging tags = bvhrig::CmuMotionBuilderTagging();
    tags.push_back({L"lforearmtwist", L"LeftForeArmTwist"});
    live.beforeTagging = [](LiveRig& r) {
        ORV::X3DObject forearm = r.Object(L"LeftForeArm");
        ORV::Null twist;
        forearm.AddNull(L"LeftForeArmTwist", twist);
        twist.GetKinematics().GetGlobal().PutTransform(forearm.GetKinematics().GetGlobal().GetTransform());
    };
    ASSERT_TRUE(live.Build(liverig::CmuWalk(), L"Walker", bvhrig::RigOptions(), error, tags)) << error;
    live.Record(kFrames);
    live.Install(1);
    const int lhand = live.NodeIndex(L"lhand");
    // The structure read back from the model stores its unused channels as empty targets; they
    // take no object, so the twist is the hand's only decomposition.
    const std::vector<ZUK::DecompMap>& decomps = live.map->nodes[static_cast<size_t>(lhand)].decomps;
    ASSERT_EQ(decomps.size(), 1u);
    EXPECT_EQ(decomps[0].tagName, ORV::CString(L"lforearmtwist"));
    std::vector<std::wstring> onHand, onTwist;
    for (const Wired& w : Wiring(live)) {
        if (w.output == L"Walker.LeftHand.kine.global") onHand.push_back(Describe(w));
        if (w.output == L"Walker.LeftForeArmTwist.kine.local") onTwist.push_back(Describe(w));
    }
    EXPECT_TRUE(onHand.empty());
    EXPECT_EQ(onTwist,
              (std::vector<std::wstring>{
                  L"RetargetDecompOp -> Walker.LeftForeArmTwist.kine.local <- Walker.LeftForeArm.kine.global "
                  L"Walker.RetargetAdjustPPG.LeftHandsrc_lforearmtwist=" +
                  std::to_wstring(lhand) +
                  L" Walker.RetargetAdjustPPG.LeftHanddecomp_lforearmtwist=0 Walker.ZUKRetargetOp"}));
    // It runs: the twist object turns with the hand about the forearm.
    live.WarmUp(21.0);
    const ORV::X3DObject twist = live.rig.model.FindChild(L"LeftForeArmTwist");
    const double turned = twist.GetKinematics().GetLocal().GetTransform(21.0).GetRotation().GetXYZAngles().x;
    live.WarmUp(1.0);
    const double atStart = twist.GetKinematics().GetLocal().GetTransform(1.0).GetRotation().GetXYZAngles().x;
    EXPECT_NE(turned, atStart);
}

TEST_F(LivePipeline, InstallingAgainReplacesTheOperatorsAndPlaysTheNewMotion) {
    LiveRig live;
    Installed(live, 10);
    live.WarmUp(1.0);
    live.Record(kFrames);
    live.Install(1);
    const std::vector<Wired> wiring = Wiring(live);
    long smallOnes = 0;
    for (const Wired& w : wiring)
        if (w.type != L"RetargetOp") ++smallOnes;
    EXPECT_EQ(smallOnes, 20);
    live.WarmUp(31.0);
    ASSERT_NE(live.Live(), nullptr);
    EXPECT_EQ(live.Live()->numFrames, kFrames);
    EXPECT_LT(HipsError(live, 31.0, HipsBetween(live, 30, 0.0)), 1e-6);
}

TEST_F(LivePipeline, CleanupRemovesPropertyBlobSmallOperatorsAndOffsetsAndReportsWhetherThereWasOne) {
    LiveRig live;
    Installed(live);
    ORV::Property offset =
        live.Object(L"Hips").AddProperty(L"RotationOffsetPPG", false, L"RotationOffsetPPG");
    ASSERT_TRUE(offset.IsValid());
    live.WarmUp(5.0);
    EXPECT_TRUE(RetargetOp::cleanupRetargetOp(live.rig.model));
    EXPECT_FALSE(modelmaptest::FindProperty(live.rig.model, L"RetargetAdjustPPG").IsValid());
    EXPECT_FALSE(modelmaptest::FindProperty(live.rig.model, L"ZUKRetargetOp").IsValid());
    EXPECT_FALSE(offset.IsValid());
    // The main operator is looked for under another name, and stays; with its blob gone it
    // does nothing.
    std::vector<std::wstring> left;
    for (const Wired& w : Wiring(live)) left.push_back(w.type);
    EXPECT_EQ(left, std::vector<std::wstring>{L"RetargetOp"});
    const CVector3 hips = GlobalAt(live.Object(L"Hips"), 9.0).GetTranslation();
    EXPECT_EQ(GlobalAt(live.Object(L"Hips"), 30.0).GetTranslation(), hips);
    EXPECT_FALSE(RetargetOp::cleanupRetargetOp(live.rig.model));
}

TEST_F(LivePipeline, CleanupWithoutTheAdjustmentPropertyTouchesNothing) {
    LiveRig live;
    Installed(live);
    ORV::Property adjust = modelmaptest::FindProperty(live.rig.model, L"RetargetAdjustPPG");
    ZUK::Util::deleteObj(adjust.GetFullName());
    EXPECT_FALSE(RetargetOp::cleanupRetargetOp(live.rig.model));
    EXPECT_TRUE(modelmaptest::FindProperty(live.rig.model, L"ZUKRetargetOp").IsValid());
    EXPECT_EQ(Wiring(live).size(), 21u);
}

TEST_F(LivePipeline, PreparingForPlaybackListsClampFramesAndOffsetNodesAndFindsOffsetProperties) {
    LiveRig live;
    std::string error;
    ASSERT_TRUE(live.Build(liverig::CmuWalk(), L"Walker", bvhrig::RigOptions(), error)) << error;
    // An offset property present before the load is found by it.
    ASSERT_TRUE(
        live.Object(L"Head").AddProperty(L"RotationOffsetPPG", false, L"RotationOffsetPPG").IsValid());
    live.Record(kFrames);
    live.Install(1);
    live.WarmUp(1.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    auto pairs = [](const ORV::CValueArray& a) {
        std::wstring s;
        for (long i = 0; i < a.GetCount(); ++i) s += std::wstring(a[i].GetAsText().GetWideString()) + L";";
        return s;
    };
    std::wstring frames = L"Global Frame;0;";
    int k = 1;
    for (const auto& c : op->glueMap->mocaps)
        frames += std::wstring(c.object.GetName().GetWideString()) + L";" + std::to_wstring(k++) + L";";
    EXPECT_EQ(pairs(op->frameSelections), frames);
    EXPECT_EQ(k, 15);
    // Every driven object here is outside the limbs' inner joints (goals are their limb's first
    // bone), and none takes translation alone.
    std::wstring offsets;
    k = 0;
    for (const auto& c : op->glueMap->mocaps)
        offsets += std::wstring(c.object.GetName().GetWideString()) + L";" + std::to_wstring(k++) + L";";
    EXPECT_EQ(pairs(op->offsetSelections), offsets);
    for (size_t i = 0; i < op->glueMap->mocaps.size(); ++i) {
        const ZUK::MocapConstraint& c = op->glueMap->mocaps[i];
        EXPECT_EQ(op->modelMap->nodes[static_cast<size_t>(c.nodeIndex)].constraintIndex, static_cast<int>(i));
        EXPECT_EQ(c.hasRotationOffsetProperty, c.rigNodeName == ORV::CString(L"Head"))
            << Narrow(c.rigNodeName);
    }
    // The inner joints of the limbs take none.
    EXPECT_EQ(op->modelMap->nodes[static_cast<size_t>(live.NodeIndex(L"lshin"))].constraintIndex, -1);
    EXPECT_EQ(op->modelMap->nodes[static_cast<size_t>(live.NodeIndex(L"lupperarm"))].constraintIndex, -1);
    // Caches sized by the clip and the limbs, and the semi-free chest with its panel values.
    EXPECT_EQ(op->speed, 1.0);
    ASSERT_EQ(op->semiFrees.size(), 1u);
    EXPECT_EQ(op->semiFrees[0].name, ORV::CString(L"chest"));
    EXPECT_EQ(op->semiFrees[0].node, live.NodeIndex(L"chest"));
    EXPECT_EQ(op->semiFrees[0].anchorTangentLength, 1.0);
    EXPECT_EQ(op->semiFrees[0].goalTangentLength, 1.0);
    EXPECT_TRUE(op->semiFrees[0].offsetChildren);
    EXPECT_EQ(op->semiFrees[0].changeTime, 0.0);
    EXPECT_TRUE(op->adjustProperty.IsValid());
    EXPECT_NE(op->cogPath, nullptr);
    EXPECT_NE(op->footPaths, nullptr);
    EXPECT_NE(op->clampKeys, nullptr);
}

TEST_F(LivePipeline, ANodeContainsItselfAndWhatLiesOnItsWayToTheRootAndNodeZeroOnlyItself) {
    LiveRig live;
    Installed(live);
    live.WarmUp(1.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    const int cog = live.NodeIndex(L"cog"), lthigh = live.NodeIndex(L"lthigh"),
              lfoot = live.NodeIndex(L"lfoot"), lhand = live.NodeIndex(L"lhand"),
              chest = live.NodeIndex(L"chest");
    EXPECT_TRUE(op->containsNode(lfoot, lfoot));
    EXPECT_TRUE(op->containsNode(lfoot, lthigh));
    EXPECT_TRUE(op->containsNode(lfoot, cog));
    EXPECT_TRUE(op->containsNode(lhand, chest));
    EXPECT_FALSE(op->containsNode(lthigh, lfoot));
    EXPECT_FALSE(op->containsNode(lhand, lthigh));
    EXPECT_TRUE(op->containsNode(cog, cog));
    EXPECT_FALSE(op->containsNode(cog, chest));
}

// ---- Panel events ----------------------------------------------------------------------------

// Ping's change after one event on the named parameter.
int PingsAfter(const LiveRig& live, const wchar_t* name) {
    ORV::CustomProperty adjust = live.Adjust();
    const int before = static_cast<int>(adjust.GetParameterValue(L"Ping"));
    ORV::Parameter parameter = adjust.GetParameter(name);
    EXPECT_TRUE(parameter.IsValid()) << Narrow(ORV::CString(name));
    live.Live()->AjustmentParameterChanged(parameter, adjust, 11.0);
    return static_cast<int>(adjust.GetParameterValue(L"Ping")) - before;
}

TEST_F(LivePipeline, EveryAdjustmentParameterReachesItsRowOfTheDispatch) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    ORV::CustomProperty adjust = live.Adjust();
    // Rows that ask for a rig update every time.
    for (const wchar_t* name :
         {L"Ping",      L"Scale",      L"Stride",       L"offsetFeet",     L"hipX",           L"hipY",
          L"hipZ",      L"lfootRoll",  L"lfootStretch", L"lfootX",         L"lfootY",         L"lfootZ",
          L"rhandRoll", L"lfootClamp", L"lfootFrame",   L"lfootBlendBack", L"rfootBlendBack", L"lhandClamp",
          L"chestX",    L"chestY",     L"chestZ",       L"chestRX",        L"chestRY",        L"chestRZ"})
        EXPECT_EQ(PingsAfter(live, name), 1) << Narrow(ORV::CString(name));
    // Names that match nothing.
    for (const wchar_t* name : {L"RotNodes", L"NumPlanes", L"semiName0", L"name0", L"obj1"})
        EXPECT_EQ(PingsAfter(live, name), 0) << Narrow(ORV::CString(name));
    // The insertion frame asks for an update only when it changed.
    const int insertion = op->insertionFrame;
    adjust.PutParameterValue(L"InsertionFrame", ORV::CValue(insertion + 4));
    const int pings = PingsAfter(live, L"InsertionFrame");
    EXPECT_EQ(pings, op->insertionFrame != insertion ? 1 : 0);
}

TEST_F(LivePipeline, ASpeedChangeIsCachedByItsFirstEventAndNotAgain) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    live.Adjust().PutParameterValue(L"Speed", ORV::CValue(1.5));
    orvhost::ClearLog();
    EXPECT_EQ(PingsAfter(live, L"Speed"), 0);
    EXPECT_EQ(op->speed, 1.5);
    EXPECT_EQ(op->previousSpeed, 1.0);
    EXPECT_EQ(orvhost::LogTexts(8), std::vector<std::wstring>{L"Speed has changed"});
    // The next event finds the value unchanged: nothing is cached, nothing logged at 8.
    orvhost::ClearLog();
    EXPECT_EQ(PingsAfter(live, L"Speed"), 0);
    EXPECT_EQ(op->speed, 1.5);
    EXPECT_EQ(op->previousSpeed, 1.0);
    EXPECT_TRUE(orvhost::LogTexts(8).empty());
}

TEST_F(LivePipeline, AFootFlagChangeIsCachedIntoTheGoalsFrictionWithoutARigUpdate) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    ZUK::ModelStructure& s = *op->modelMap->structure;
    const int lfoot = live.NodeIndex(L"lfoot"), rfoot = live.NodeIndex(L"rfoot");
    ASSERT_TRUE(s.nodes[lfoot].Friction);
    live.Adjust().PutParameterValue(L"lfootFoot", ORV::CValue(false));
    EXPECT_EQ(PingsAfter(live, L"lfootFoot"), 0);
    EXPECT_FALSE(s.nodes[lfoot].Friction);
    EXPECT_TRUE(s.nodes[rfoot].Friction);
    EXPECT_EQ(PingsAfter(live, L"lfootFoot"), 0);
    EXPECT_FALSE(s.nodes[lfoot].Friction);
}

TEST_F(LivePipeline, SemiFreeCurveAndChildrenEventsUpdateTheRigOnlyWhenTheValueChanged) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    ASSERT_EQ(op->semiFrees.size(), 1u);
    ORV::CustomProperty adjust = live.Adjust();
    for (const wchar_t* name :
         {L"chestAnchorTangentLength", L"chestGoalTangentLength", L"chestoffsetChildren"})
        EXPECT_EQ(PingsAfter(live, name), 0) << Narrow(ORV::CString(name));
    adjust.PutParameterValue(L"chestAnchorTangentLength", ORV::CValue(2.5));
    EXPECT_EQ(PingsAfter(live, L"chestAnchorTangentLength"), 1);
    EXPECT_EQ(op->semiFrees[0].anchorTangentLength, 2.5);
    EXPECT_EQ(op->semiFrees[0].changeTime, op->currentTime);
    EXPECT_EQ(PingsAfter(live, L"chestAnchorTangentLength"), 0);
    adjust.PutParameterValue(L"chestGoalTangentLength", ORV::CValue(0.5));
    EXPECT_EQ(PingsAfter(live, L"chestGoalTangentLength"), 1);
    EXPECT_EQ(op->semiFrees[0].goalTangentLength, 0.5);
    adjust.PutParameterValue(L"chestoffsetChildren", ORV::CValue(false));
    EXPECT_EQ(PingsAfter(live, L"chestoffsetChildren"), 1);
    EXPECT_FALSE(op->semiFrees[0].offsetChildren);
    // The tangents reach the curve of the spine at the next evaluation.
    live.WarmUp(12.0);
}

TEST_F(LivePipeline, AParameterNamingTwoGoalsIsHandledAtTheFirstPlaneThatMatches) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    // With the second leg's goal renamed "foot", "lfootRoll" names both legs' goals.
    ZUK::ModelStructure& s = *op->modelMap->structure;
    const int rfoot = live.NodeIndex(L"rfoot");
    s.nodes[rfoot].Name = L"foot";
    EXPECT_EQ(PingsAfter(live, L"lfootRoll"), 1);
    EXPECT_EQ(PingsAfter(live, L"lfootClamp"), 1);
    s.nodes[rfoot].Name = L"rfoot";
}

TEST_F(LivePipeline, UpdatingTheEntireRigAddsOneToPingEachTime) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    EXPECT_EQ(Ping(live), 0);
    op->UpdateEntireRig();
    op->UpdateEntireRig();
    EXPECT_EQ(Ping(live), 2);
}

TEST_F(LivePipeline, ARotationOffsetEventFindsTheNewPropertyOfItsObjectAndUpdatesTheRig) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    ORV::CustomProperty offset(
        live.Object(L"Hips").AddProperty(L"RotationOffsetPPG", false, L"RotationOffsetPPG").GetRef());
    ASSERT_TRUE(offset.IsValid());
    const ZUK::MocapConstraint* hips = nullptr;
    for (const auto& c : op->glueMap->mocaps)
        if (c.rigNodeName == ORV::CString(L"Hips")) hips = &c;
    ASSERT_NE(hips, nullptr);
    EXPECT_FALSE(hips->hasRotationOffsetProperty);
    op->RotationOffsetParameterChanged(offset);
    EXPECT_TRUE(hips->hasRotationOffsetProperty);
    EXPECT_EQ(hips->rotationOffsetProperty, offset);
    EXPECT_EQ(Ping(live), 1);
    // On an object that no constraint drives, nothing happens.
    ORV::CustomProperty stray(
        live.Object(L"Spine").AddProperty(L"RotationOffsetPPG", false, L"RotationOffsetPPG").GetRef());
    op->RotationOffsetParameterChanged(stray);
    EXPECT_EQ(Ping(live), 1);
}

TEST_F(LivePipeline, CachedParameterChecksStoreTheNewValueAndItsTime) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    ORV::CustomProperty adjust = live.Adjust();
    op->currentTime = 7.0;
    double changed = -1.0;
    bool flag = false;
    EXPECT_TRUE(op->CheckForParamValueChangeAndUpdateCache(adjust, L"offsetFeet", flag, changed));
    EXPECT_TRUE(flag);
    EXPECT_EQ(changed, 7.0);
    changed = -1.0;
    EXPECT_FALSE(op->CheckForParamValueChangeAndUpdateCache(adjust, L"offsetFeet", flag, changed));
    EXPECT_EQ(changed, -1.0);
    double stride = 1.0;
    adjust.PutParameterValue(L"Stride", ORV::CValue(1.75));
    EXPECT_TRUE(op->CheckForParamValueChangeAndUpdateCache(adjust, L"Stride", stride, changed));
    EXPECT_EQ(stride, 1.75);
    EXPECT_EQ(changed, 7.0);
    EXPECT_FALSE(op->CheckForParamValueChangeAndUpdateCache(adjust, L"Stride", stride, changed));
    CVector3 hip(0.0, 0.0, 0.0);
    adjust.PutParameterValue(L"hipY", ORV::CValue(2.5));
    op->currentTime = 9.0;
    EXPECT_FALSE(op->CheckForParamValueChangeAndUpdateCache(adjust, L"hip", 0, hip, changed));
    EXPECT_TRUE(op->CheckForParamValueChangeAndUpdateCache(adjust, L"hip", 1, hip, changed));
    EXPECT_EQ(hip, CVector3(0.0, 2.5, 0.0));
    EXPECT_EQ(changed, 9.0);
    EXPECT_FALSE(op->CheckForParamValueChangeAndUpdateCache(adjust, L"hip", 2, hip, changed));
}

// ---- The adjustment property -----------------------------------------------------------------

struct Definition {
    ORV::ovValueType type;
    int capabilities;
    std::wstring value, min, max, uiMin, uiMax;
};

Definition Define(const ORV::CustomProperty& p, const wchar_t* name) {
    ORV::Parameter q = p.GetParameter(name);
    EXPECT_TRUE(q.IsValid()) << Narrow(ORV::CString(name));
    auto text = [](const ORV::CValue& v) { return std::wstring(v.GetAsText().GetWideString()); };
    return Definition{q.GetValueType(), q.GetCapabilities(),       text(q.GetDefault()),     text(q.GetMin()),
                      text(q.GetMax()), text(q.GetSuggestedMin()), text(q.GetSuggestedMax())};
}

void ExpectDefinition(const ORV::CustomProperty& p, const wchar_t* name, ORV::ovValueType type,
                      int capabilities, const ORV::CValue& value) {
    const Definition d = Define(p, name);
    EXPECT_EQ(d.type, type) << Narrow(ORV::CString(name));
    EXPECT_EQ(d.capabilities, capabilities) << Narrow(ORV::CString(name));
    EXPECT_EQ(d.value, std::wstring(value.GetAsText().GetWideString())) << Narrow(ORV::CString(name));
}

void ExpectRange(const ORV::CustomProperty& p, const wchar_t* name, const ORV::CValue& min,
                 const ORV::CValue& max, const ORV::CValue& uiMin, const ORV::CValue& uiMax) {
    const Definition d = Define(p, name);
    EXPECT_EQ(d.min, std::wstring(min.GetAsText().GetWideString())) << Narrow(ORV::CString(name));
    EXPECT_EQ(d.max, std::wstring(max.GetAsText().GetWideString())) << Narrow(ORV::CString(name));
    EXPECT_EQ(d.uiMin, std::wstring(uiMin.GetAsText().GetWideString())) << Narrow(ORV::CString(name));
    EXPECT_EQ(d.uiMax, std::wstring(uiMax.GetAsText().GetWideString())) << Narrow(ORV::CString(name));
}

std::vector<std::wstring> ParameterNames(const ORV::CustomProperty& p) {
    std::vector<std::wstring> names;
    ORV::CRefArray all = p.GetParameters();
    for (long i = 0; i < all.GetCount(); ++i)
        names.push_back(ORV::Parameter(all[i]).GetScriptName().GetWideString());
    return names;
}

TEST_F(LivePipeline, TheAdjustmentPropertyHoldsTheFixedThenTheRigsParametersInOrder) {
    LiveRig live;
    Installed(live);
    const ORV::CustomProperty p = live.Adjust();
    ASSERT_TRUE(p.IsValid());
    const ORV::CValue largest(DBL_MAX), none;
    ExpectDefinition(p, L"InsertionFrame", ORV::ovInt4, 4, ORV::CValue(0));
    ExpectDefinition(p, L"Speed", ORV::ovDouble, 4, ORV::CValue(1.0));
    ExpectRange(p, L"Speed", ORV::CValue(0.01), largest, ORV::CValue(0.01), ORV::CValue(4.0));
    ExpectDefinition(p, L"Scale", ORV::ovDouble, 4, ORV::CValue(1.0));
    ExpectRange(p, L"Scale", ORV::CValue(0.01), largest, ORV::CValue(0.01), ORV::CValue(4.0));
    ExpectDefinition(p, L"Stride", ORV::ovDouble, 5, ORV::CValue(1.0));
    ExpectRange(p, L"Stride", ORV::CValue(0.0), largest, ORV::CValue(0.0), ORV::CValue(4.0));
    ExpectDefinition(p, L"Ping", ORV::ovInt4, 20, ORV::CValue(0));
    ExpectDefinition(p, L"RotNodes", ORV::ovInt4, 20, ORV::CValue(0));

    const double L = live.map->legLength;
    ASSERT_GT(L, 0.0);
    EXPECT_EQ(static_cast<double>(p.GetParameterValue(L"Scale")), live.map->legScale);
    ExpectDefinition(p, L"NumPlanes", ORV::ovInt4, 20, ORV::CValue(4));
    ExpectDefinition(p, L"offsetFeet", ORV::ovBool, 4, ORV::CValue(true));
    for (const wchar_t* hip : {L"hipX", L"hipY", L"hipZ"}) {
        ExpectDefinition(p, hip, ORV::ovDouble, 5, ORV::CValue(0.0));
        ExpectRange(p, hip, ORV::CValue(-DBL_MAX), largest, ORV::CValue(-L), ORV::CValue(L));
    }
    ExpectDefinition(p, L"semiName0", ORV::ovString, 20, ORV::CValue(L"chest"));
    ExpectRange(p, L"chestY", ORV::CValue(-DBL_MAX), largest, ORV::CValue(-L), ORV::CValue(L));
    ExpectDefinition(p, L"chestoffsetChildren", ORV::ovBool, 4, ORV::CValue(true));
    ExpectDefinition(p, L"chestAnchorTangentLength", ORV::ovDouble, 5, ORV::CValue(1.0));
    ExpectRange(p, L"chestGoalTangentLength", ORV::CValue(0.1), largest, ORV::CValue(0.1), ORV::CValue(4.0));
    ExpectDefinition(p, L"chestRZ", ORV::ovDouble, 5, ORV::CValue(0.0));
    ExpectRange(p, L"chestRX", ORV::CValue(-180.0), ORV::CValue(180.0), ORV::CValue(-180.0),
                ORV::CValue(180.0));
    ExpectDefinition(p, L"NumSemiFree", ORV::ovInt4, 20, ORV::CValue(1));
    const wchar_t* goals[4] = {L"lfoot", L"rfoot", L"lhand", L"rhand"};
    const wchar_t* objects[4] = {L"LeftFoot", L"RightFoot", L"LeftHand", L"RightHand"};
    for (int j = 0; j < 4; ++j) {
        const std::wstring g = goals[j], n = std::to_wstring(j);
        const double length = live.map->nodes[static_cast<size_t>(live.NodeIndex(goals[j]))].length;
        ExpectDefinition(p, (L"name" + n).c_str(), ORV::ovString, 20, ORV::CValue(goals[j]));
        ExpectDefinition(p, (L"obj" + n).c_str(), ORV::ovString, 20, ORV::CValue(objects[j]));
        ExpectDefinition(p, (g + L"Z").c_str(), ORV::ovDouble, 5, ORV::CValue(0.0));
        ExpectRange(p, (g + L"X").c_str(), ORV::CValue(-DBL_MAX), largest, ORV::CValue(-length),
                    ORV::CValue(length));
        ExpectDefinition(p, (g + L"Roll").c_str(), ORV::ovDouble, 5, ORV::CValue(0.0));
        ExpectRange(p, (g + L"Roll").c_str(), ORV::CValue(-360.0), ORV::CValue(360.0), ORV::CValue(-360.0),
                    ORV::CValue(360.0));
        ExpectDefinition(p, (g + L"Stretch").c_str(), ORV::ovDouble, 5, ORV::CValue(1.0));
        ExpectRange(p, (g + L"Stretch").c_str(), ORV::CValue(0.1), ORV::CValue(2.0), ORV::CValue(0.1),
                    ORV::CValue(2.0));
        ExpectDefinition(p, (g + L"Clamp").c_str(), ORV::ovBool, 5, ORV::CValue(false));
        ExpectDefinition(p, (g + L"Frame").c_str(), ORV::ovInt4, 4, ORV::CValue(0));
        ExpectDefinition(p, (g + L"BlendBack").c_str(), ORV::ovInt4, 4, ORV::CValue(4));
        ExpectRange(p, (g + L"BlendBack").c_str(), ORV::CValue(0), ORV::CValue(2147483647), ORV::CValue(0),
                    ORV::CValue(10));
        // Feet touch the ground, hands do not: the structure's friction flags.
        ExpectDefinition(p, (g + L"Foot").c_str(), ORV::ovBool, 4, ORV::CValue(j < 2));
    }

    std::vector<std::wstring> expected = {L"InsertionFrame",
                                          L"Speed",
                                          L"Scale",
                                          L"Stride",
                                          L"Ping",
                                          L"RotNodes",
                                          L"NumPlanes",
                                          L"offsetFeet",
                                          L"hipX",
                                          L"hipY",
                                          L"hipZ",
                                          L"semiName0",
                                          L"chestX",
                                          L"chestY",
                                          L"chestZ",
                                          L"chestoffsetChildren",
                                          L"chestAnchorTangentLength",
                                          L"chestGoalTangentLength",
                                          L"chestRX",
                                          L"chestRY",
                                          L"chestRZ",
                                          L"NumSemiFree"};
    for (int j = 0; j < 4; ++j) {
        const std::wstring g = goals[j];
        expected.push_back(L"name" + std::to_wstring(j));
        expected.push_back(L"obj" + std::to_wstring(j));
        for (const wchar_t* suffix :
             {L"X", L"Y", L"Z", L"Roll", L"Stretch", L"Clamp", L"Frame", L"BlendBack", L"Foot"})
            expected.push_back(g + suffix);
    }
    std::vector<std::wstring> names = ParameterNames(p);
    ASSERT_GE(names.size(), expected.size());
    // The operators' index parameters follow.
    names.resize(expected.size());
    EXPECT_EQ(names, expected);
}

// A probe property filled for the rig as the installation fills the adjustment property.
ORV::CustomProperty Probe(LiveRig& live) {
    ORV::CustomProperty probe(live.rig.model.AddProperty(L"CustomProperty", false, L"Probe").GetRef());
    ORV::Parameter unused;
    probe.AddParameter(L"Scale", ORV::ovDouble, 4, L"", L"", ORV::CValue(1.0), unused);
    ZUK::AdjustPPG::addModelSpecificParameters(probe, live.map.get(), live.rig.model);
    return probe;
}

TEST_F(LivePipeline, WithNoLegLengthTheBodyOffsetsSlideTenUnitsEitherWay) {
    LiveRig live;
    std::string error;
    ASSERT_TRUE(live.Build(liverig::CmuWalk(), L"Walker", bvhrig::RigOptions(), error)) << error;
    live.map->legLength = 0.0;
    live.map->SaveToCustomProperty();
    const ORV::CustomProperty p = Probe(live);
    EXPECT_EQ(live.map->legLength, 0.0);
    for (const wchar_t* name : {L"hipX", L"hipY", L"hipZ", L"chestX"}) {
        const ORV::Parameter q = p.GetParameter(name);
        EXPECT_EQ(q.GetSuggestedMin().GetType(), ORV::ovInt4) << Narrow(ORV::CString(name));
        EXPECT_EQ(static_cast<int>(q.GetSuggestedMin()), -10);
        EXPECT_EQ(static_cast<int>(q.GetSuggestedMax()), 10);
    }
}

TEST_F(LivePipeline, ALimbWhoseGoalHasNoObjectGetsNoParametersAndUsesUpNoNumber) {
    LiveRig live;
    std::string error;
    bvhrig::Tagging tags;
    for (const auto& pair : bvhrig::CmuMotionBuilderTagging())
        if (pair.first != L"lhand") tags.push_back(pair);
    ASSERT_TRUE(live.Build(liverig::CmuWalk(), L"Walker", bvhrig::RigOptions(), error, tags, false)) << error;
    const ORV::CustomProperty p = Probe(live);
    EXPECT_EQ(static_cast<int>(p.GetParameterValue(L"NumPlanes")), 3);
    EXPECT_EQ(p.GetParameterValue(L"name2").GetAsText(), ORV::CString(L"rhand"));
    EXPECT_EQ(p.GetParameterValue(L"obj2").GetAsText(), ORV::CString(L"RightHand"));
    EXPECT_FALSE(p.GetParameter(L"name3").IsValid());
    for (const auto& name : ParameterNames(p))
        EXPECT_EQ(name.find(L"lhand"), std::wstring::npos) << Narrow(ORV::CString(name.c_str()));
}

TEST_F(LivePipeline, AFreeNodeOneBoneFromItsParentIsNoSemiFreeNode) {
    LiveRig live;
    std::string error;
    bvhrig::Tagging tags = bvhrig::CmuMotionBuilderTagging();
    for (auto& pair : tags)
        if (pair.first == L"chest") pair.second = L"Spine";
    ASSERT_TRUE(live.Build(liverig::CmuWalk(), L"Walker", bvhrig::RigOptions(), error, tags, false)) << error;
    const ORV::CustomProperty p = Probe(live);
    EXPECT_EQ(static_cast<int>(p.GetParameterValue(L"NumSemiFree")), 0);
    EXPECT_FALSE(p.GetParameter(L"semiName0").IsValid());
    EXPECT_FALSE(p.GetParameter(L"chestX").IsValid());
}

TEST_F(LivePipeline, TheRotationOffsetPropertyHoldsItsAnglesReduceAndCogFlag) {
    ORV::Null holder;
    ORV::Application().GetActiveSceneRoot().AddNull(L"Holder", holder);
    const ORV::CustomProperty p(
        holder.AddProperty(L"RotationOffsetPPG", false, L"RotationOffsetPPG").GetRef());
    ASSERT_TRUE(p.IsValid());
    EXPECT_EQ(ParameterNames(p), (std::vector<std::wstring>{L"X", L"Y", L"Z", L"Reduce", L"IsCog"}));
    for (const wchar_t* axis : {L"X", L"Y", L"Z"}) {
        ExpectDefinition(p, axis, ORV::ovDouble, 5, ORV::CValue(0.0));
        ExpectRange(p, axis, ORV::CValue(-180.0), ORV::CValue(180.0), ORV::CValue(-180.0),
                    ORV::CValue(180.0));
    }
    ExpectDefinition(p, L"Reduce", ORV::ovDouble, 5, ORV::CValue(0.0));
    ExpectRange(p, L"Reduce", ORV::CValue(0.0), ORV::CValue(1.0), ORV::CValue(0.0), ORV::CValue(1.0));
    ExpectDefinition(p, L"IsCog", ORV::ovBool, 20, ORV::CValue(false));
}

// ---- Panels --------------------------------------------------------------------------------

std::vector<std::pair<std::wstring, std::wstring>> Views() {
    std::vector<std::pair<std::wstring, std::wstring>> out;
    ORV::CRefArray views = ORV::Application().GetDesktop().GetActiveLayout().GetViews();
    for (long i = 0; i < views.GetCount(); ++i) {
        ORV::View v(views[i]);
        out.emplace_back(v.GetName().GetWideString(), v.GetAttributeValue(L"targetcontent").GetWideString());
    }
    return out;
}

TEST_F(LivePipeline, ClosingRotationOffsetPanelsLeavesTheOtherViews) {
    ORV::Layout layout = ORV::Application().GetDesktop().GetActiveLayout();
    ORV::View a, b, c;
    layout.CreateView(L"Property Panel", L"RotateNode", a);
    a.PutAttributeValue(L"targetcontent", L"Walker.Hips.RotationOffsetPPG");
    layout.CreateView(L"Property Panel", L"Other", b);
    b.PutAttributeValue(L"targetcontent", L"Walker.RetargetAdjustPPG");
    layout.CreateView(L"Property Panel", L"RotateNode", c);
    c.PutAttributeValue(L"targetcontent", L"Walker.Head.RotationOffsetPPG");
    ZUK::RotationOffsetPPG::closePanels();
    EXPECT_EQ(Views(),
              (std::vector<std::pair<std::wstring, std::wstring>>{{L"Other", L"Walker.RetargetAdjustPPG"}}));
}

TEST_F(LivePipeline, TheAdjustmentPanelOpensOnItsModelAndRefreshesOnlyThere) {
    LiveRig live;
    Installed(live);
    ZUK::AdjustPPG::m_currentModel = L"";
    orvhost::ClearLog();
    // A refresh for a model whose panel is not open does nothing.
    ZUK::AdjustPPG(live.rig.model, true);
    EXPECT_TRUE(Views().empty());
    ZUK::AdjustPPG(live.rig.model, false);
    EXPECT_EQ(ZUK::AdjustPPG::m_currentModel, ORV::CString(L"Walker"));
    ASSERT_EQ(Views(), (std::vector<std::pair<std::wstring, std::wstring>>{
                           {L"RetargetAdjust", L"Walker.RetargetAdjustPPG"}}));
    // Opening again reuses the view; installing again refreshes it.
    ZUK::AdjustPPG(live.rig.model, false);
    live.Install(1);
    EXPECT_EQ(Views().size(), 1u);
    EXPECT_TRUE(orvhost::LogTexts(4).empty() || orvhost::LogTexts(4).front() != L"Select a valid model.");
    // Without a model, or without the property, the user is told.
    orvhost::ClearLog();
    orvhost::QueueAnswer(ORV::CValue(1));
    orvhost::QueueAnswer(ORV::CValue(1));
    ZUK::AdjustPPG(ORV::Model(), false);
    ORV::Model bare;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Bare", bare);
    ZUK::AdjustPPG(bare, false);
    EXPECT_EQ(orvhost::LogTexts(4), (std::vector<std::wstring>{L"Select a valid model.",
                                                               L"Select a model with retargetted motion."}));
    ZUK::AdjustPPG::m_currentModel = L"";
}

// ---- A saved scene in another process ------------------------------------------------------

const std::vector<double> kSavedTimes = {1.0, 6.0, 13.5, 30.0, 39.0};

// Every tagged object's global transform at the saved times, and the friction of the feet.
std::string Snapshot(const LiveRig& live, ORV::Model model) {
    std::ostringstream out;
    out.precision(17);
    for (double t : kSavedTimes) {
        for (const auto& pair : live.tagging) {
            const ORV::X3DObject o = model.FindChild(pair.second.c_str());
            const CTransformation g = GlobalAt(o, t);
            const ORV::MATH::CQuaternion q = g.GetRotationQuaternion();
            out << t << " " << Narrow(ORV::CString(pair.second.c_str())) << " " << g.GetTranslation().x << " "
                << g.GetTranslation().y << " " << g.GetTranslation().z << " " << q.w << " " << q.x << " "
                << q.y << " " << q.z << "\n";
        }
    }
    return out.str();
}

TEST_F(LivePipeline, AReopenedSceneRebuildsOnItsFirstEvaluationAndPlaysTheSameWithThePanelsFootFlags) {
    if (const char* scene = std::getenv("TROVO_LIVE_CHILD_SCENE")) {
        std::wstring error;
        ASSERT_TRUE(orvhost::OpenScene(scene, error));
        ORV::Model model(ORV::CRef::FromPath(L"Walker"));
        ASSERT_TRUE(model.IsValid());
        LiveRig names;
        names.tagging = bvhrig::CmuMotionBuilderTagging();
        // Evaluate twice, as every small operator skips its first.
        Snapshot(names, model);
        std::ofstream out(std::getenv("TROVO_LIVE_CHILD_OUT"));
        out << Snapshot(names, model);
        RetargetOp* op = RetargetOp::GetRetargetOpPointer(model);
        ASSERT_NE(op, nullptr);
        const ZUK::ModelStructure& s = *op->modelMap->structure;
        out << "feet " << s.nodes[s.nodeIndex(L"lfoot")].Friction << " "
            << s.nodes[s.nodeIndex(L"rfoot")].Friction << " frames " << op->numFrames << " insertion "
            << op->insertionFrame << "\n";
        return;
    }
    LiveRig live;
    Installed(live);
    // The panel says the left foot slides, against the structure file.
    live.Adjust().PutParameterValue(L"lfootFoot", ORV::CValue(false));
    live.WarmUp(1.0);
    const std::string expected = Snapshot(live, live.rig.model) + "feet 0 1 frames 40 insertion 1\n";
    // What the parent shows is the source's pose.
    for (double t : kSavedTimes) {
        const PoseErrors e = CompareWithSource(live, t, static_cast<int>(t) - 1);
        if (t != std::floor(t)) continue;
        EXPECT_LT(e.rotation, 1e-5) << t;
        EXPECT_LT(e.position, 1e-5) << t;
    }

    const std::string base =
        std::string(::testing::TempDir()) + "trovo_live_child_" + std::to_string(::getpid());
    const std::string scenePath = base + ".orvscene", outPath = base + ".txt";
    std::wstring error;
    ASSERT_TRUE(orvhost::SaveScene(scenePath, error));
    char self[4096];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    ASSERT_GT(n, 0);
    self[n] = '\0';
    const std::string command =
        "TROVO_LIVE_CHILD_SCENE='" + scenePath + "' TROVO_LIVE_CHILD_OUT='" + outPath + "' '" +
        std::string(self) +
        "' --gtest_filter=LivePipeline."
        "AReopenedSceneRebuildsOnItsFirstEvaluationAndPlaysTheSameWithThePanelsFootFlags > /dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::ifstream in(outPath);
    const std::string got((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(got, expected);
    std::remove(scenePath.c_str());
    std::remove(outPath.c_str());
}

// ---- Cost of an evaluation -------------------------------------------------------------------

TEST_F(LivePipeline, ThePoseOfAnEvaluationIsComputedWithoutAllocating) {
    LiveRig live;
    Installed(live);
    live.WarmUp(1.0);
    RetargetOp* op = live.Live();
    ASSERT_NE(op, nullptr);
    // computeFrame reads "Speed" through the host, whose own bookkeeping is not counted here;
    // everything after it works on the map and the blob alone.
    long total = 0;
    for (double t : {0.0, 1.0, 2.5, 7.25, 20.0, 39.9, 41.0, 500.0}) {
        op->computeFrame(t);
        allocations = 0;
        counting = true;
        op->computePose();
        counting = false;
        total += allocations;
    }
    EXPECT_EQ(total, 0);
    // And the pose it leaves is the last one asked for: the clip's last frame.
    const int hips = live.NodeIndex(L"cog");
    const CVector3 last = liverig::Vec(liverig::Expected(live.skel, kFrames - 1)
                                           .pose.position[static_cast<size_t>(live.skel.find(L"Hips"))]);
    EXPECT_LT((op->modelMap->nodes[static_cast<size_t>(hips)].global.GetTranslation() - last).GetLength() /
                  live.height,
              1e-6);
}

TEST_F(LivePipeline, DeletingTheMainOperatorLeavesTheSmallOnesNothingToReach) {
    LiveRig live;
    Installed(live);
    live.WarmUp(11.0);
    ASSERT_NE(live.Live(), nullptr);
    ORV::CustomOperator main;
    ASSERT_TRUE(ZUK::Util::findCustomOp(live.rig.model.GetKinematics().GetLocal().GetFullName(),
                                        L"RetargetOp", main));
    ZUK::Util::deleteObj(main.GetFullName());
    // The blob no longer names the deleted operator: the small ones write nothing, and the
    // goal stands where its own parameters put it.
    EXPECT_EQ(live.Live(), nullptr);
    live.WarmUp(25.0);
    const CVector3 rest = live.rig.rest[static_cast<size_t>(live.skel.find(L"LeftFoot"))];
    EXPECT_LT((GlobalAt(live.Object(L"LeftFoot"), 25.0).GetTranslation() - rest).GetLength(), 1e-9);
}

TEST_F(LivePipeline, ADamagedBlobPlaysNothingAndSaysSo) {
    LiveRig live;
    Installed(live);
    ORV::UserDataBlob blob(modelmaptest::FindProperty(live.rig.model, L"ZUKRetargetOp").GetRef());
    ASSERT_TRUE(blob.IsValid());
    const unsigned char* bytes = nullptr;
    unsigned int size = 0;
    blob.GetValue(bytes, size);
    ASSERT_GT(size, 300u);
    // The counts stay, the poses they promise are cut off.
    const std::vector<unsigned char> cut(bytes, bytes + 300);
    blob.PutValue(cut.data(), 300);
    orvhost::ClearLog();
    live.WarmUp(11.0);
    const std::vector<std::wstring> said = orvhost::LogTexts(4);
    // Said once, however often the rig is evaluated.
    EXPECT_EQ(said, std::vector<std::wstring>{L"The motion in ZUKRetargetOp is damaged: its counts do not "
                                              L"fit its 300 bytes. Nothing will play."});
    EXPECT_EQ(live.Live(), nullptr);
    const CVector3 rest = live.rig.rest[static_cast<size_t>(live.skel.find(L"LeftFoot"))];
    EXPECT_LT((GlobalAt(live.Object(L"LeftFoot"), 11.0).GetTranslation() - rest).GetLength(), 1e-9);
}

TEST_F(LivePipeline, ABlobOfTheEarlierLayoutIsBroughtUpToDateAndPlaysTheSame) {
    LiveRig live;
    Installed(live);
    ORV::UserDataBlob blob(modelmaptest::FindProperty(live.rig.model, L"ZUKRetargetOp").GetRef());
    const unsigned char* bytes = nullptr;
    unsigned int size = 0;
    blob.GetValue(bytes, size);
    ASSERT_GT(size, 256u);
    // The earlier layout: no magic, the counts at offset 8.
    std::vector<unsigned char> old(8, 0);
    old.insert(old.end(), bytes + 256, bytes + size);
    blob.PutValue(old.data(), static_cast<unsigned int>(old.size()));
    live.WarmUp(1.0);
    blob.GetValue(bytes, size);
    EXPECT_EQ(size, old.size() + 248);
    for (int f : {3, 17}) {
        const PoseErrors e = CompareWithSource(live, 1.0 + f, f);
        EXPECT_GT(e.positions, 5);
        EXPECT_LT(e.rotation, 1e-5) << f;
        EXPECT_LT(e.position, 1e-5) << f;
    }
}

}  // namespace
