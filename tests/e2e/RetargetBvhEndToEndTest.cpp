// The whole job as a user runs it, each step in its own `trovo` process: a rig of the CMU
// walk's skeleton with IK legs and arms, built in the pose the capture is measured in (its
// frame 0), is tagged in that pose by a run script of "SetTagValue" and "ApplyTagsToRig",
// "RetargetBVH" plays the walk on it through the factory template of its family and saves the
// scene, and another process opens that scene and prints the rig's world transforms. The
// printed poses are held against forward kinematics of the file computed here: at scene frame
// 1 + f the rig shows capture frame f, each object turned from its tagging pose as its joint
// is turned from frame 0, and standing where the joint stands (times the rig's scale).
//
// Then rig to rig: a rig of plain nulls carries the walk as keys written here, and "Retarget"
// plays it on the rig scaled by 1.5; that must give what the capture gave the same rig, and
// the source's key times must reach the operator's blob.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "E2ESupport.h"
#include "character/ModelStructure.h"
#include "character/StructureTestSupport.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "shell/Util.h"
#include "support/BvhRigBuilder.h"

namespace {

using ORV::MATH::CMatrix3;
using ORV::MATH::CQuaternion;
using ORV::MATH::CRotation;
using ORV::MATH::CVector3;

const std::string kWalk = e2e::TestData("bvh/cmu_mb2010/02_01.bvh");
const std::string kTemplate = e2e::FactoryTemplate("cmu_mb2010.tagt");
const int kStep = 10;

std::string Narrow(const std::wstring& w) { return std::string(w.begin(), w.end()); }

double RotationAngle(const CMatrix3& m) {
    const double c = (m.Get(0, 0) + m.Get(1, 1) + m.Get(2, 2) - 1.0) / 2.0;
    return std::acos(std::max(-1.0, std::min(1.0, c)));
}

// A column-convention matrix of the forward kinematics as the host's row matrix.
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

CMatrix3 MatrixOf(const e2e::EvalPose& pose) {
    CQuaternion q;
    q.Set(pose.quaternion[0], pose.quaternion[1], pose.quaternion[2], pose.quaternion[3]);
    return CRotation(q).GetMatrix();
}

CVector3 PositionOf(const e2e::EvalPose& pose) {
    return CVector3(pose.position[0], pose.position[1], pose.position[2]);
}

// The run script that tags `model` on the factory biped, one "SetTagValue" per tagged joint.
std::string TaggingScript(const std::string& model, const bvhrig::Tagging& tagging) {
    std::string text = "SetStructureFile " + model + " biped\n";
    for (const auto& pair : tagging)
        text += "SetTagValue " + model + " " + Narrow(pair.first) + " " + Narrow(pair.second) + " 1\n";
    return text + "ApplyTagsToRig " + model + "\n";
}

// Largest errors of one rig against the capture, over the frames seen. Held to the identity's
// bounds: the turns of every tagged object outside the limbs' upper and middle bones and the
// chest, and the positions of the root and the spine. Measured: the limb bones (apart where
// the limb is straight at the frame), the chest (the spine curve stands for the capture's
// untagged middle spine joint), and the positions of the other objects of the identity check.
struct Errors {
    double rotation = 0.0, position = 0.0, root = 0.0;
    int rotations = 0, positions = 0, roots = 0, framesSeen = 0;
    std::string worstRotation, worstPosition;
    double straightLimb = 0.0, straightLimbPosition = 0.0;
    int straightSeen = 0;
    std::string worstStraight;
    // Largest turn (rad) and position (heights; -1 where not checked) error of each node, frames
    // where its limb is straight left out.
    std::map<std::wstring, std::pair<double, double>> byNode;
};

// Everything the tests compare, made once: the scenes, the runs, and what they printed.
struct Pipeline {
    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
    std::unique_ptr<ZUK::ModelStructure> biped;
    double height = 0.0;
    int frames = 0;
    // Each rig object's global rotation as tagged, by full name.
    std::map<std::string, CMatrix3> tagged;
    e2e::EvalTable identity, scaled, rigToRig;
    // What failed on the way, empty when all ran.
    std::string failure;
    // The key timing of the rig-to-rig blob.
    std::vector<std::pair<std::wstring, std::vector<std::vector<double>>>> blobTimings;
    int blobFrames = -1, blobInsertion = -1;
};

class RetargetEndToEnd : public e2e::SharedRun<RetargetEndToEnd, Pipeline> {
    friend class e2e::SharedRun<RetargetEndToEnd, Pipeline>;

protected:

    // A rig of the walk's skeleton named `name` under the scene root; with IK legs and arms
    // unless `plain`.
    static bvhrig::BvhRig BuildRig(const wchar_t* name, double scale, bool plain) {
        bvhrig::RigOptions options;
        bvhrig::BipedLimbs(p->tagging, options);
        options.scale = scale;
        options.ikLegs = options.ikArms = !plain;
        // The capture is measured at its frame 0, so the rig stands in that pose when tagged.
        options.poseFrame = 0;
        options.poseRootTranslation = true;
        options.bendFromMotion = true;
        bvhrig::BvhRig rig =
            bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), p->skel, name, options);
        return rig;
    }

    static std::string Save(const std::string& name) {
        std::wstring error;
        if (!orvhost::SaveScene(scratch->File(name), error)) return "";
        return scratch->File(name);
    }

    // Runs trovo; an empty text when it printed `expected` and exited 0.
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

    // Keeps each object's global rotation at frame 1 of a scene with no motion yet as its
    // tagging pose: the host's evaluation, IK chains solved, as tagging saw it.
    static std::string EvalRest(const std::string& scene, const std::string& model) {
        std::string out;
        const std::string failed =
            Trovo({"--scene", scene, "eval", "--model", model, "--frame", "1"}, "", &out);
        if (!failed.empty()) return failed;
        e2e::EvalTable table;
        if (!e2e::ParseEval(out, table)) return "eval printed what does not read:\n" + out;
        for (const auto& object : table) p->tagged[object.first] = MatrixOf(object.second.begin()->second);
        return "";
    }

    static std::string Eval(const std::string& scene, const std::string& model, e2e::EvalTable& table) {
        std::string out;
        const std::string failed = Trovo({"--scene", scene, "eval", "--model", model, "--start", "1", "--end",
                                          std::to_string(p->frames), "--step", std::to_string(kStep)},
                                         "", &out);
        if (!failed.empty()) return failed;
        return e2e::ParseEval(out, table) ? "" : "eval printed what does not read:\n" + out;
    }

    // Tags, retargets and evaluates a rig scaled by `scale`.
    static std::string CapturePath(double scale, const std::string& tag, e2e::EvalTable& table) {
        orvhost::NewScene();
        BuildRig(L"Rig", scale, false);
        const std::string rig = Save(tag + "_rig.orvscene");
        scratch->Write(tag + "_tagging.txt", TaggingScript("Rig", p->tagging));
        std::string failed = Trovo({"--scene", rig, "--save", scratch->File(tag + "_tagged.orvscene"), "run",
                                    "--strict", scratch->File(tag + "_tagging.txt")},
                                   "");
        if (!failed.empty()) return failed;
        failed = EvalRest(scratch->File(tag + "_tagged.orvscene"), "Rig");
        if (!failed.empty()) return failed;
        failed = Trovo({"--scene", scratch->File(tag + "_tagged.orvscene"), "--save",
                        scratch->File(tag + "_played.orvscene"), "exec", "RetargetBVH", "targetmodel=Rig",
                        "bvhfile=" + kWalk, "mapfile=" + kTemplate},
                       "true\n");
        if (!failed.empty()) return failed;
        return Eval(scratch->File(tag + "_played.orvscene"), "Rig", table);
    }

    // The walk as keys on a rig of plain nulls: every joint's local rotation at every frame,
    // and the root's position, capture frame f at scene frame 1 + f.
    static void KeyTheWalk(const bvhrig::BvhRig& rig) {
        const size_t n = p->skel.joints.size();
        std::vector<std::vector<ORV::FCurve>> curves(n, std::vector<ORV::FCurve>(6));
        const wchar_t* channels[6] = {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"};
        for (size_t j = 0; j < n; ++j)
            for (int c = p->skel.joints[j].parent < 0 ? 0 : 3; c < 6; ++c)
                rig.joints[j]
                    .GetKinematics()
                    .GetLocal()
                    .GetParameter(channels[c])
                    .AddFCurve(ORV::ovStandardFCurve, curves[j][c]);
        std::vector<std::vector<ORV::CTimeArray>> times(n, std::vector<ORV::CTimeArray>(6));
        std::vector<std::vector<ORV::CValueArray>> values(n, std::vector<ORV::CValueArray>(6));
        for (int f = 0; f < p->frames; ++f) {
            const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(p->skel, f);
            for (size_t j = 0; j < n; ++j) {
                const int parent = p->skel.joints[j].parent;
                CMatrix3 local = RowMatrix(pose.rotation[j]);
                if (parent >= 0) local.Mul(local, Transposed(RowMatrix(pose.rotation[parent])));
                const CVector3 angles = CRotation(local).GetXYZAngles();
                const double rad = 57.29577951308232;
                const double v[6] = {pose.position[j][0], pose.position[j][1], pose.position[j][2],
                                     angles.x * rad,      angles.y * rad,      angles.z * rad};
                for (int c = parent < 0 ? 0 : 3; c < 6; ++c) {
                    times[j][c].Add(ORV::CTime(1.0 + f));
                    values[j][c].Add(ORV::CValue(v[c]));
                }
            }
        }
        for (size_t j = 0; j < n; ++j)
            for (int c = p->skel.joints[j].parent < 0 ? 0 : 3; c < 6; ++c)
                curves[j][c].SetKeys(times[j][c], values[j][c]);
    }

    static std::string RigToRigPath() {
        orvhost::NewScene();
        BuildRig(L"Source", 1.0, true);
        BuildRig(L"Target", 1.5, false);
        const std::string rigs = Save("r2r_rigs.orvscene");
        scratch->Write("r2r_tagging.txt",
                       TaggingScript("Source", p->tagging) + TaggingScript("Target", p->tagging));
        std::string failed = Trovo({"--scene", rigs, "--save", scratch->File("r2r_tagged.orvscene"), "run",
                                    "--strict", scratch->File("r2r_tagging.txt")},
                                   "");
        if (!failed.empty()) return failed;

        failed = EvalRest(scratch->File("r2r_tagged.orvscene"), "Source");
        if (failed.empty()) failed = EvalRest(scratch->File("r2r_tagged.orvscene"), "Target");
        if (!failed.empty()) return failed;

        // The keys go on after tagging, which reads the rest pose.
        std::wstring error;
        if (!orvhost::OpenScene(scratch->File("r2r_tagged.orvscene"), error)) return "open: " + Narrow(error);
        bvhrig::BvhRig source;
        ORV::Model model = ZUK::Util::findModel(L"Source");
        for (const bvhrig::Joint& j : p->skel.joints)
            source.joints.push_back(model.FindChild(j.name.c_str(), L"", ORV::CStringArray(), true));
        for (const ORV::X3DObject& o : source.joints)
            if (!o.IsValid()) return "a joint of the source went missing";
        KeyTheWalk(source);
        // The keyed rig must show the walk before it is used as a source.
        for (int f : {0, 100, 343}) {
            const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(p->skel, f);
            for (size_t j = 0; j < source.joints.size(); ++j) {
                const CVector3 at =
                    source.joints[j].GetKinematics().GetGlobal().GetTransform(1.0 + f).GetTranslation();
                const CVector3 want(pose.position[j][0], pose.position[j][1], pose.position[j][2]);
                if ((at - want).GetLength() > 1e-9 * p->height)
                    return "the keyed source misses the walk at frame " + std::to_string(f);
            }
        }
        const std::string keyed = Save("r2r_keyed.orvscene");

        failed = Trovo({"--scene", keyed, "--save", scratch->File("r2r_played.orvscene"), "exec", "Retarget",
                        "sourcemodel=Source", "targetmodel=Target", "strarttime=1",
                        "endtime=" + std::to_string(p->frames)},
                       "true\n");
        if (!failed.empty()) return failed;
        failed = Eval(scratch->File("r2r_played.orvscene"), "Target", p->rigToRig);
        if (!failed.empty()) return failed;
        return ReadBlob(scratch->File("r2r_played.orvscene"));
    }

    static std::string ReadBlob(const std::string& scene) {
        std::wstring error;
        if (!orvhost::OpenScene(scene, error)) return "open: " + Narrow(error);
        ORV::Property property;
        if (!ZUK::Util::findCustomPSet(ZUK::Util::findModel(L"Target"), ZUK::RetargetOp::DATA_NAME, property))
            return "the target has no blob";
        const unsigned char* bytes = nullptr;
        unsigned int size = 0;
        ORV::UserDataBlob(property.GetRef()).GetValue(bytes, size);
        std::vector<unsigned char> copy(bytes, bytes + size);
        ZUK::RetargetOp op;
        if (!op.LoadMotionDataFromBuffer(copy.data(), size)) return "the blob does not load";
        p->blobFrames = op.numFrames;
        p->blobInsertion = op.insertionFrame;
        for (int k = 0; k < op.keyTimingCount; ++k) {
            std::vector<std::vector<double>> channels;
            for (const ORV::CDoubleArray& a : op.keyTimings[k].times)
                channels.emplace_back(a.GetArray(), a.GetArray() + a.GetCount());
            p->blobTimings.emplace_back(op.keyTimings[k].name.GetWideString(), channels);
        }
        return "";
    }

    static std::string Run() {
        std::string error;
        if (!bvhrig::ReadBvh(kWalk, p->skel, &error)) return error;
        p->frames = static_cast<int>(p->skel.frames.size());
        p->biped.reset(ZUK::ModelStructure::CreateFromFile(L"biped"));
        if (!p->biped) return "no biped structure";
        const bvhrig::GlobalPose rest = bvhrig::ForwardKinematics(p->skel, -1);
        double low = 1e300, high = -1e300;
        for (const auto& q : rest.position) {
            low = std::min(low, q[1]);
            high = std::max(high, q[1]);
        }
        p->height = high - low;
        std::string failed = CapturePath(1.0, "identity", p->identity);
        if (failed.empty()) failed = CapturePath(1.5, "scaled", p->scaled);
        if (failed.empty()) failed = RigToRigPath();
        return failed;
    }

    static int NodeOf(const std::wstring& name) {
        for (int i = 0; i < p->biped->numNodes; ++i)
            if (std::wstring(p->biped->nodes[i].Name.GetWideString()) == name) return i;
        return -1;
    }

    // Nodes whose position must follow the source: the root, the chest, hands and feet, and every
    // tagged node whose joint hangs directly below the joint of its tagged parent, when that
    // parent's position follows too. (A node below an untagged joint that turns, such as the
    // CMU neck, cannot know of that turn, and neither can the nodes hung from it.)
    static bool PositionChecked(int node) {
        static const std::wstring always[] = {L"cog", L"chest", L"lhand", L"rhand", L"lfoot", L"rfoot"};
        const std::wstring name = p->biped->nodes[node].Name.GetWideString();
        for (const auto& a : always)
            if (name == a) return true;
        const int parent = p->biped->nodes[node].Parent;
        if (parent < 0 || parent >= node) return false;
        const std::wstring parentJoint =
            bvhrig::JointOf(p->tagging, p->biped->nodes[parent].Name.GetWideString());
        const int j = p->skel.find(bvhrig::JointOf(p->tagging, name));
        return j >= 0 && p->skel.joints[j].parent >= 0 &&
               p->skel.joints[p->skel.joints[j].parent].name == parentJoint && PositionChecked(parent);
    }

    // The upper and middle nodes of the limbs that are straight in the capture at this frame
    // (within 0.1 rad): their plane comes from the foot pass then, not from the capture.
    static bool StraightLimbNode(const bvhrig::GlobalPose& pose, int node) {
        for (int plane = 0; plane < p->biped->numPlanes; ++plane) {
            const ZUK::ModelStructure::Plane& limb = p->biped->planes[plane];
            if (node != limb.AnchorIndex && node != limb.Mid) continue;
            auto at = [&](int n) {
                const int j =
                    p->skel.find(bvhrig::JointOf(p->tagging, p->biped->nodes[n].Name.GetWideString()));
                return CVector3(pose.position[j][0], pose.position[j][1], pose.position[j][2]);
            };
            CVector3 u, v;
            u.Normalize(at(limb.Span) - at(limb.AnchorIndex));
            v.Normalize(at(limb.Mid) - at(limb.AnchorIndex));
            if (std::fabs(u.GetAngle(v)) < 0.1) return true;
        }
        return false;
    }

    // Whether the node is the upper or the middle bone of a limb: those are solved by IK from
    // the goal and the limb's plane, not copied.
    static bool LimbBone(int node) {
        for (int plane = 0; plane < p->biped->numPlanes; ++plane)
            if (node == p->biped->planes[plane].AnchorIndex || node == p->biped->planes[plane].Mid)
                return true;
        return false;
    }

    // Every 10th frame of the rig against the capture scaled by k: each object's turn from its
    // tagging pose against its joint's turn from frame 0, both in world axes.
    static Errors Compare(const e2e::EvalTable& table, const std::string& model, double k) {
        Errors e;
        const bvhrig::GlobalPose first = bvhrig::ForwardKinematics(p->skel, 0);
        for (int frame = 1; frame <= p->frames; frame += kStep) {
            const int f = frame - 1;
            const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(p->skel, f);
            ++e.framesSeen;
            for (const auto& pair : p->tagging) {
                const int node = NodeOf(pair.first);
                const int joint = p->skel.find(pair.second);
                const std::string name = model + "." + Narrow(pair.second);
                auto object = table.find(name);
                auto tagged = p->tagged.find(name);
                if (node < 0 || joint < 0 || object == table.end() || tagged == p->tagged.end()) continue;
                auto at = object->second.find(frame);
                if (at == object->second.end()) continue;
                CMatrix3 turn, wantTurn, diff;
                turn.Mul(Transposed(tagged->second), MatrixOf(at->second));
                wantTurn.Mul(Transposed(RowMatrix(first.rotation[joint])), RowMatrix(pose.rotation[joint]));
                diff.Mul(turn, Transposed(wantTurn));
                const double angle = RotationAngle(diff);
                const CVector3 want(pose.position[joint][0] * k, pose.position[joint][1] * k,
                                    pose.position[joint][2] * k);
                const double distance = (PositionOf(at->second) - want).GetLength() / (k * p->height);
                const std::string where = name + " at frame " + std::to_string(frame);
                if (StraightLimbNode(pose, node)) {
                    ++e.straightSeen;
                    if (angle > e.straightLimb) e.worstStraight = where;
                    e.straightLimb = std::max(e.straightLimb, angle);
                    e.straightLimbPosition = std::max(e.straightLimbPosition, distance);
                    continue;
                }
                auto worst = e.byNode.emplace(pair.first, std::make_pair(0.0, -1.0)).first;
                worst->second.first = std::max(worst->second.first, angle);
                if (PositionChecked(node)) worst->second.second = std::max(worst->second.second, distance);
                if (pair.first == L"cog") {
                    e.root = std::max(e.root, distance);
                    ++e.roots;
                }
                if (LimbBone(node) || pair.first == L"chest") continue;
                if (angle > e.rotation) e.worstRotation = where;
                e.rotation = std::max(e.rotation, angle);
                ++e.rotations;
                if (pair.first != L"cog" && pair.first != L"spine") continue;
                if (distance > e.position) e.worstPosition = where;
                e.position = std::max(e.position, distance);
                ++e.positions;
            }
        }
        return e;
    }

    static void Report(const char* what, const Errors& e) {
        std::printf(
            "[ %s ] held: turns %.3g rad (%s), root and spine positions %.3g heights (%s); straight limbs "
            "(%d object frames) %.3g rad (%s), %.3g heights\n",
            what, e.rotation, e.worstRotation.c_str(), e.position, e.worstPosition.c_str(), e.straightSeen,
            e.straightLimb, e.worstStraight.c_str(), e.straightLimbPosition);
        for (const auto& node : e.byNode)
            std::printf("[ %s ]   %-10s turn %.3g rad, position %.3g heights\n", what,
                        Narrow(node.first).c_str(), node.second.first, node.second.second);
    }

};

// Over every 10th frame: the turns of the 14 objects outside the limb bones and the chest, the
// positions of the root and the spine.
void ExpectTheCapture(const Errors& e, int frames) {
    EXPECT_EQ(e.framesSeen, (frames + kStep - 1) / kStep);
    EXPECT_EQ(e.roots, e.framesSeen);
    EXPECT_EQ(e.rotations, 14 * e.framesSeen);
    EXPECT_EQ(e.positions, 2 * e.framesSeen);
    EXPECT_LT(e.rotation, 1e-5) << e.worstRotation;
    EXPECT_LT(e.position, 1e-5) << e.worstPosition;
    EXPECT_LT(e.root, 1e-5);
}

TEST_F(RetargetEndToEnd, ARigOfTheCapturesOwnSkeletonShowsTheCaptureFrameForFrame) {
    const Errors e = Compare(p->identity, "Rig", 1.0);
    ExpectTheCapture(e, p->frames);
    Report("identity", e);
}

TEST_F(RetargetEndToEnd, ARigScaledByOneAndAHalfShowsTheCaptureAtOneAndAHalfTimesItsPositions) {
    const Errors e = Compare(p->scaled, "Rig", 1.5);
    ExpectTheCapture(e, p->frames);
    Report("scaled 1.5", e);
}

TEST_F(RetargetEndToEnd, RigToRigOntoTheScaledRigGivesWhatTheCaptureGaveItFrameForFrame) {
    const Errors e = Compare(p->rigToRig, "Target", 1.5);
    ExpectTheCapture(e, p->frames);
    Report("rig to rig", e);

    // Frames at which a limb of the capture is straight: the straight limb's bend side there is
    // each rig's own, measured apart.
    std::map<int, bool> straight;
    for (int frame = 1; frame <= p->frames; frame += kStep) {
        const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(p->skel, frame - 1);
        for (int node = 0; node < p->biped->numNodes; ++node)
            straight[frame] = straight[frame] || StraightLimbNode(pose, node);
    }
    double worst = 0.0, worstStraight = 0.0;
    std::string where, whereStraight;
    int seen = 0;
    for (const auto& object : p->scaled) {
        const size_t dot = object.first.find('.');
        if (dot == std::string::npos) continue;
        const std::string name = "Target" + object.first.substr(dot);
        auto other = p->rigToRig.find(name);
        ASSERT_NE(other, p->rigToRig.end()) << name;
        for (const auto& frame : object.second) {
            auto at = other->second.find(frame.first);
            ASSERT_NE(at, other->second.end()) << name << " " << frame.first;
            const double d =
                (PositionOf(at->second) - PositionOf(frame.second)).GetLength() / (1.5 * p->height);
            const bool bent = !straight[frame.first];
            double& w = bent ? worst : worstStraight;
            if (d > w) (bent ? where : whereStraight) = name + " at frame " + std::to_string(frame.first);
            w = std::max(w, d);
            seen += bent ? 1 : 0;
        }
    }
    EXPECT_GT(seen, 23 * (e.framesSeen - 5));
    EXPECT_LT(worst, 1e-6) << where;
    int straightFrames = 0;
    for (const auto& f : straight) straightFrames += f.second ? 1 : 0;
    std::printf(
        "[ rig to rig ] against the capture path: largest difference of any object %.3g heights (%s); at the "
        "%d frames with a straight limb %.3g heights (%s)\n",
        worst, where.c_str(), straightFrames, worstStraight, whereStraight.c_str());
}

TEST_F(RetargetEndToEnd, RigToRigKeepsTheSourcesKeyTimesInTheBlob) {
    EXPECT_EQ(p->blobFrames, p->frames);
    EXPECT_EQ(p->blobInsertion, 1);
    // Every frame of the source is a key: the times run 0 to frames - 1 from the start frame.
    std::vector<double> everyFrame;
    for (int f = 0; f < p->frames; ++f) everyFrame.push_back(f);
    // Entries with a name, one per tagged node whose object carries curves, in structure order.
    std::vector<std::wstring> named;
    for (const auto& entry : p->blobTimings) {
        if (entry.first.empty()) continue;
        bool any = false;
        for (const auto& channel : entry.second) any = any || !channel.empty();
        if (!any) continue;
        named.push_back(entry.first);
        const bool root = entry.first == L"cog";
        for (int c = 0; c < 6; ++c) {
            if (c < 3 && !root)
                EXPECT_TRUE(entry.second[c].empty()) << Narrow(entry.first) << " channel " << c;
            else
                EXPECT_EQ(entry.second[c], everyFrame) << Narrow(entry.first) << " channel " << c;
        }
    }
    std::vector<std::wstring> expected;
    for (int i = 0; i < p->biped->numNodes; ++i) {
        const std::wstring name = p->biped->nodes[i].Name.GetWideString();
        if (!bvhrig::JointOf(p->tagging, name).empty()) expected.push_back(name);
    }
    EXPECT_EQ(named, expected);
}

}  // namespace
