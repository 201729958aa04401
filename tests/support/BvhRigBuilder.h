// Test rigs made from the skeleton of a BVH file, for the tests of every area that needs a
// character in the headless host (include "support/BvhRigBuilder.h").
//
// - ReadBvh parses a BVH file on its own, in double precision, independently of the plug-in's
//   reader: joints (name, parent, offset, channels) and every frame's values. ForwardKinematics
//   gives each joint's global position and rotation at a frame (or at rest, all channels
//   zero), by the usual BVH reading: a joint's rotation channels compose in file order (for
//   "Zrotation Xrotation Yrotation" a point turns about Y first, then X, then Z), and its
//   position channels give its translation in place of the offset (the plug-in's rule; the
//   two agree where the offset is zero, as at every CMU root).
// - BuildBvhRig makes one model with one null per joint, named as the joint, at its rest
//   position (the sum of the offsets above it), with no rotation. RigOptions scale it: `scale`
//   every offset, `legScale` and `armScale` the offsets below each leg's or arm's upper joint
//   (so a limb gets longer, the pelvis and shoulders stay). With `ikLegs` / `ikArms` the
//   upper and middle joints of each limb are a two-bone IK chain instead: the chain root
//   "<upper>Chain" stands under the upper joint's parent, its bones are named as the upper
//   and the middle joint, its effector is "<upper>ChainEff"; the end joint is a goal null
//   named as the joint, under the model, holding the effector by a position constraint (the
//   joints below the end hang under the goal); the up-vector null "<upper>Up", under the
//   model, stands on the side toward which the middle joint bends (for a straight limb: the
//   limb's `bend` direction), so that the solved chain puts every joint at its rest position.
//   With `poseFrame` the rig is built in the pose of that frame instead: each null turned as its
//   joint is at the frame (the rig's own rest pose is then that pose), the root at the frame's
//   position when `poseRootTranslation`, else at its offset; chains, goals and up-vectors are
//   placed so that the solved chains show that pose (a limb straight at the frame, within
//   `straightAngle`, bends to its rest side, or `bend`, carried by the upper joint's turn).
// - Tagging: the pairs (structure node, joint) of a skeleton, with the tables of the CMU
//   skeletons of tests/data; AlignAndRoll expresses a structure item's canonical directions in
//   an object's own space (negated for a mirrored object); TagRigByProperties writes "ZUKTag"
//   properties directly, TagRigFromTagMap goes through ZUK::TagMap::applyToModel, and
//   MapFileText writes the text of a BVH map file for capture nodes at rest.
#pragma once

#include <orv/ORV.h>

#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "character/ModelStructure.h"
#include "character/TagMap.h"

namespace bvhrig {

// ---- The file ------------------------------------------------------------------------------

enum Channel { XROT = 0, YROT = 1, ZROT = 2, XPOS = 3, YPOS = 4, ZPOS = 5 };

struct Joint {
    std::wstring name;
    int parent = -1;
    std::array<double, 3> offset{0.0, 0.0, 0.0};
    std::vector<int> channels;
    // Index of this joint's first value in a frame.
    int firstValue = 0;
};

struct Skeleton {
    std::vector<Joint> joints;
    int valuesPerFrame = 0;
    double frameTime = 0.0;
    std::vector<std::vector<double>> frames;

    int find(const std::wstring& name) const {
        for (size_t i = 0; i < joints.size(); ++i)
            if (joints[i].name == name) return static_cast<int>(i);
        return -1;
    }
    // Whether `joint` lies strictly below `ancestor`.
    bool below(int joint, int ancestor) const {
        for (int p = joints[joint].parent; p >= 0; p = joints[p].parent)
            if (p == ancestor) return true;
        return false;
    }
};

inline std::wstring Widen(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// False, with the reason in `error`, for a file that isn't a well-formed BVH file.
inline bool ReadBvh(const std::string& path, Skeleton& out, std::string* error = nullptr) {
    auto fail = [&](const std::string& why) {
        if (error) *error = path + ": " + why;
        return false;
    };
    std::ifstream in(path);
    if (!in) return fail("cannot open");
    out = Skeleton();
    std::string word;
    if (!(in >> word) || word != "HIERARCHY") return fail("no HIERARCHY");
    std::vector<int> open;  // joints whose block is open; -1 for an End Site
    int current = -1;
    while (in >> word) {
        if (word == "ROOT" || word == "JOINT") {
            Joint j;
            std::string name;
            in >> name;
            j.name = Widen(name);
            j.parent = open.empty() ? -1 : open.back();
            out.joints.push_back(j);
            current = static_cast<int>(out.joints.size()) - 1;
        } else if (word == "End") {
            in >> word;  // "Site"
            current = -1;
        } else if (word == "{") {
            open.push_back(current);
        } else if (word == "}") {
            if (open.empty()) return fail("unbalanced braces");
            open.pop_back();
            current = open.empty() ? -1 : open.back();
        } else if (word == "OFFSET") {
            std::array<double, 3> v{};
            if (!(in >> v[0] >> v[1] >> v[2])) return fail("bad OFFSET");
            if (!open.empty() && open.back() >= 0 && open.back() == current) out.joints[current].offset = v;
        } else if (word == "CHANNELS") {
            int n = 0;
            if (!(in >> n) || current < 0) return fail("bad CHANNELS");
            Joint& j = out.joints[current];
            j.firstValue = out.valuesPerFrame;
            for (int c = 0; c < n; ++c) {
                in >> word;
                static const char* const names[6] = {"Xrotation", "Yrotation", "Zrotation",
                                                     "Xposition", "Yposition", "Zposition"};
                int code = -1;
                for (int k = 0; k < 6; ++k)
                    if (word == names[k]) code = k;
                if (code < 0) return fail("unknown channel " + word);
                j.channels.push_back(code);
            }
            out.valuesPerFrame += n;
        } else if (word == "MOTION") {
            break;
        } else {
            return fail("unexpected word " + word);
        }
    }
    int frames = 0;
    if (!(in >> word) || word != "Frames:" || !(in >> frames)) return fail("no Frames:");
    if (!(in >> word) || word != "Frame" || !(in >> word) || word != "Time:" || !(in >> out.frameTime))
        return fail("no Frame Time:");
    out.frames.assign(frames, std::vector<double>(out.valuesPerFrame, 0.0));
    for (int f = 0; f < frames; ++f)
        for (int v = 0; v < out.valuesPerFrame; ++v)
            if (!(in >> out.frames[f][v])) return fail("frame " + std::to_string(f) + " is short");
    return true;
}

// ---- Forward kinematics, in the column convention (p' = R p + t) ----------------------------

using Mat3 = std::array<std::array<double, 3>, 3>;
using Vec3 = std::array<double, 3>;

inline Mat3 Identity3() { return Mat3{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}; }

inline Mat3 Mul3(const Mat3& a, const Mat3& b) {
    Mat3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r[i][j] = a[i][0] * b[0][j] + a[i][1] * b[1][j] + a[i][2] * b[2][j];
    return r;
}

inline Vec3 Apply3(const Mat3& m, const Vec3& v) {
    return Vec3{m[0][0] * v[0] + m[0][1] * v[1] + m[0][2] * v[2],
                m[1][0] * v[0] + m[1][1] * v[1] + m[1][2] * v[2],
                m[2][0] * v[0] + m[2][1] * v[1] + m[2][2] * v[2]};
}

// Right-handed rotation by `degrees` about axis 0 (X), 1 (Y) or 2 (Z).
inline Mat3 AxisRotation(int axis, double degrees) {
    const double a = degrees * 3.14159265358979323846 / 180.0;
    const double c = std::cos(a), s = std::sin(a);
    if (axis == 0) return Mat3{{{1, 0, 0}, {0, c, -s}, {0, s, c}}};
    if (axis == 1) return Mat3{{{c, 0, s}, {0, 1, 0}, {-s, 0, c}}};
    return Mat3{{{c, -s, 0}, {s, c, 0}, {0, 0, 1}}};
}

struct GlobalPose {
    std::vector<Vec3> position;
    std::vector<Mat3> rotation;
};

// Global pose of every joint at `frame`; a frame of -1 is the rest pose (offsets only).
inline GlobalPose ForwardKinematics(const Skeleton& s, int frame) {
    GlobalPose pose;
    const size_t n = s.joints.size();
    pose.position.resize(n);
    pose.rotation.resize(n);
    for (size_t i = 0; i < n; ++i) {
        const Joint& j = s.joints[i];
        Vec3 t = j.offset;
        Mat3 r = Identity3();
        if (frame >= 0) {
            const std::vector<double>& values = s.frames[frame];
            for (size_t c = 0; c < j.channels.size(); ++c) {
                const double v = values[j.firstValue + c];
                if (j.channels[c] <= ZROT)
                    r = Mul3(r, AxisRotation(j.channels[c], v));
                else
                    t[j.channels[c] - XPOS] = v;
            }
        }
        if (j.parent < 0) {
            pose.position[i] = t;
            pose.rotation[i] = r;
        } else {
            const Vec3 moved = Apply3(pose.rotation[j.parent], t);
            const Vec3& base = pose.position[j.parent];
            pose.position[i] = Vec3{base[0] + moved[0], base[1] + moved[1], base[2] + moved[2]};
            pose.rotation[i] = Mul3(pose.rotation[j.parent], r);
        }
    }
    return pose;
}

// ---- Rigs ------------------------------------------------------------------------------------

struct Limb {
    std::wstring upper, mid, end;
    // Where the middle joint bends to when the limb is straight at rest.
    ORV::MATH::CVector3 bend;
};

struct RigOptions {
    double scale = 1.0;
    double legScale = 1.0;
    double armScale = 1.0;
    std::vector<Limb> legs, arms;
    bool ikLegs = false;
    bool ikArms = false;
    // The frame whose pose the rig is built in; -1 for the rest pose (offsets only, no turns).
    int poseFrame = -1;
    // With `poseFrame`: the root stands at the frame's position channels (scaled) rather than at
    // its offset.
    bool poseRootTranslation = false;
    // With `poseFrame`: a limb whose middle joint lies closer than this angle (radians, seen from
    // the upper joint) to the line to its end joint counts as straight: a capture's straight
    // limbs are rarely straight to the last digit, and the side their noise points to is no bend.
    double straightAngle = 1e-3;
    // With `poseFrame`: a limb straight at the frame bends to the side it bends to at the first
    // later frame where it is bent by `bendAngle` or more, that side kept in the upper joint's
    // axes, rather than to its rest side.
    bool bendFromMotion = false;
    double bendAngle = 0.1;
};

struct IKLimb {
    ORV::ChainRoot root;
    ORV::ChainBone upper, lower;
    ORV::ChainEffector effector;
    ORV::Null goal, upVector;
};

struct BvhRig {
    ORV::Model model;
    // The object of each joint, by the joint's index in the skeleton.
    std::vector<ORV::X3DObject> joints;
    // Rest position of each joint, as built (in the pose of `poseFrame` when one was given).
    std::vector<ORV::MATH::CVector3> rest;
    // Global rotation of each joint's null as built, in the host's row convention (identity
    // unless built in a frame's pose; for the bones of a chain, the joint's, not the bone's).
    std::vector<ORV::MATH::CMatrix3> restRotation;
    // Legs first, then arms, in the order of the options; only those built as chains.
    std::vector<IKLimb> ikLimbs;

    ORV::X3DObject object(const Skeleton& s, const std::wstring& name) const {
        const int i = s.find(name);
        return i < 0 ? ORV::X3DObject() : joints[i];
    }
};

inline ORV::Null AddNullAtPosition(ORV::X3DObject parent, const std::wstring& name,
                                   const ORV::MATH::CVector3& at) {
    ORV::Null n;
    parent.AddNull(name.c_str(), n);
    ORV::MATH::CTransformation t;
    t.SetTranslation(at);
    n.GetKinematics().GetGlobal().PutTransform(t);
    return n;
}

// A null at a global position and rotation (a row-convention matrix).
inline ORV::Null AddNullAtPose(ORV::X3DObject parent, const std::wstring& name, const ORV::MATH::CVector3& at,
                               const ORV::MATH::CMatrix3& rotation) {
    ORV::Null n;
    parent.AddNull(name.c_str(), n);
    ORV::MATH::CTransformation t;
    t.SetRotationFromMatrix3(rotation);
    t.SetTranslation(at);
    n.GetKinematics().GetGlobal().PutTransform(t);
    return n;
}

// A column-convention matrix of the forward kinematics as the host's row matrix.
inline ORV::MATH::CMatrix3 HostMatrix(const Mat3& m) {
    ORV::MATH::CMatrix3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.Set(i, j, m[j][i]);
    return r;
}

// The factor on the offset of each joint: the whole scale, times the limb scale below a
// limb's upper joint.
inline std::vector<double> OffsetFactors(const Skeleton& s, const RigOptions& o) {
    std::vector<double> f(s.joints.size(), o.scale);
    for (size_t i = 0; i < s.joints.size(); ++i) {
        for (const Limb& l : o.legs)
            if (s.find(l.upper) >= 0 && s.below(static_cast<int>(i), s.find(l.upper))) f[i] *= o.legScale;
        for (const Limb& l : o.arms)
            if (s.find(l.upper) >= 0 && s.below(static_cast<int>(i), s.find(l.upper))) f[i] *= o.armScale;
    }
    return f;
}

// An invalid model when a limb's joints are missing or do not follow each other directly.
inline BvhRig BuildBvhRig(ORV::X3DObject parent, const Skeleton& s, const std::wstring& name,
                          const RigOptions& o = RigOptions()) {
    using ORV::MATH::CVector3;
    BvhRig rig;
    const size_t n = s.joints.size();
    rig.joints.resize(n);
    rig.rest.resize(n);
    const std::vector<double> factor = OffsetFactors(s, o);
    // Rest positions (offsets only) and, when posed, the frame's global pose, offsets scaled.
    std::vector<CVector3> atRest(n);
    std::vector<Mat3> turn(n, Identity3());
    const bool posed = o.poseFrame >= 0 && o.poseFrame < static_cast<int>(s.frames.size());
    for (size_t i = 0; i < n; ++i) {
        const Joint& j = s.joints[i];
        const CVector3 offset(j.offset[0] * factor[i], j.offset[1] * factor[i], j.offset[2] * factor[i]);
        atRest[i] = j.parent < 0 ? offset : atRest[j.parent] + offset;
        if (!posed) {
            rig.rest[i] = atRest[i];
            continue;
        }
        const std::vector<double>& values = s.frames[o.poseFrame];
        Vec3 t{offset.x, offset.y, offset.z};
        Mat3 r = Identity3();
        for (size_t c = 0; c < j.channels.size(); ++c) {
            const double v = values[j.firstValue + c];
            if (j.channels[c] <= ZROT)
                r = Mul3(r, AxisRotation(j.channels[c], v));
            else if (j.parent >= 0 || o.poseRootTranslation)
                t[j.channels[c] - XPOS] = v * factor[i];
        }
        if (j.parent < 0) {
            rig.rest[i] = CVector3(t[0], t[1], t[2]);
            turn[i] = r;
        } else {
            const Vec3 moved = Apply3(turn[j.parent], t);
            rig.rest[i] = rig.rest[j.parent] + CVector3(moved[0], moved[1], moved[2]);
            turn[i] = Mul3(turn[j.parent], r);
        }
    }
    rig.restRotation.resize(n);
    for (size_t i = 0; i < n; ++i) rig.restRotation[i] = HostMatrix(turn[i]);

    // Joints that a chain or a goal replaces, by index: the limb they belong to.
    std::vector<const Limb*> chainUpper(n, nullptr), chainPart(n, nullptr), goalOf(n, nullptr);
    std::vector<const Limb*> chained;
    if (o.ikLegs)
        for (const Limb& l : o.legs) chained.push_back(&l);
    if (o.ikArms)
        for (const Limb& l : o.arms) chained.push_back(&l);
    for (const Limb* l : chained) {
        const int u = s.find(l->upper), m = s.find(l->mid), e = s.find(l->end);
        if (u < 0 || m < 0 || e < 0 || s.joints[m].parent != u || s.joints[e].parent != m) return BvhRig();
        chainUpper[u] = l;
        chainPart[m] = l;
        goalOf[e] = l;
    }

    if (parent.AddModel(ORV::CRefArray(), name.c_str(), rig.model) != ORV::CStatus::OK) return BvhRig();
    for (size_t i = 0; i < n; ++i) {
        const Joint& j = s.joints[i];
        ORV::X3DObject under = j.parent < 0 ? ORV::X3DObject(rig.model) : rig.joints[j.parent];
        // The middle joint and the goal are made with their chain (the upper joint comes first).
        if (chainPart[i] || goalOf[i]) continue;
        if (!chainUpper[i]) {
            rig.joints[i] = AddNullAtPose(under, j.name, rig.rest[i], rig.restRotation[i]);
            continue;
        }
        const Limb& l = *chainUpper[i];
        const int m = s.find(l.mid), e = s.find(l.end);
        const CVector3 start = rig.rest[i], mid = rig.rest[m], end = rig.rest[e];
        const CVector3 along = end - start;
        // The side the middle joint lies on, across the line from start to end.
        auto across = [](const CVector3& v, const CVector3& line) {
            return v - line * (v.Dot(line) / line.GetLengthSquared());
        };
        const double straight = posed ? std::sin(o.straightAngle) : 1e-9;
        CVector3 side = across(mid - start, along);
        if (side.GetLength() < straight * along.GetLength()) {
            // Straight: the side it bends to at rest, turned as the upper joint is turned; with
            // `bendFromMotion`, the side it bends to at the next frame where it bends, as the upper
            // joint sees it there.
            const CVector3 restAlong = atRest[e] - atRest[i];
            CVector3 restSide = across(atRest[m] - atRest[i], restAlong);
            if (restSide.GetLength() < straight * restAlong.GetLength()) restSide = across(l.bend, restAlong);
            for (size_t f = o.poseFrame + 1; o.bendFromMotion && f < s.frames.size(); ++f) {
                const GlobalPose later = ForwardKinematics(s, static_cast<int>(f));
                const CVector3 a(later.position[i][0], later.position[i][1], later.position[i][2]);
                const CVector3 b(later.position[m][0], later.position[m][1], later.position[m][2]);
                const CVector3 c(later.position[e][0], later.position[e][1], later.position[e][2]);
                if (std::fabs((b - a).GetAngle(c - a)) < o.bendAngle) continue;
                const CVector3 w = across(b - a, c - a);
                // Into the upper joint's own axes at that frame: the transpose of its rotation.
                const Mat3& r = later.rotation[i];
                restSide.Set(r[0][0] * w.x + r[1][0] * w.y + r[2][0] * w.z,
                             r[0][1] * w.x + r[1][1] * w.y + r[2][1] * w.z,
                             r[0][2] * w.x + r[1][2] * w.y + r[2][2] * w.z);
                break;
            }
            const Vec3 turned = Apply3(turn[i], Vec3{restSide.x, restSide.y, restSide.z});
            side = across(CVector3(turned[0], turned[1], turned[2]), along);
        }
        side.NormalizeInPlace();
        CVector3 normal;
        normal.Cross(side, along);
        IKLimb limb;
        if (under.Add2DChain(start, mid, normal, (j.name + L"Chain").c_str(), limb.root) != ORV::CStatus::OK)
            return BvhRig();
        limb.upper = ORV::ChainBone(limb.root.GetBones()[0]);
        limb.upper.PutName(j.name.c_str());
        if (limb.root.AddBone(end, s.joints[m].name.c_str(), limb.lower) != ORV::CStatus::OK) return BvhRig();
        limb.effector = limb.root.GetEffector();
        // The goal stands under the model, so that it stays where it is put.
        limb.goal = AddNullAtPose(rig.model, l.end, end, rig.restRotation[e]);
        limb.upVector = AddNullAtPosition(rig.model, j.name + L"Up", mid + side * (mid - start).GetLength());
        ORV::Constraint c;
        limb.effector.GetKinematics().AddConstraint(L"Position", limb.goal, c);
        limb.upper.GetJoint().PutUpVectorReference(limb.upVector);
        rig.joints[i] = limb.upper;
        rig.joints[m] = limb.lower;
        rig.joints[e] = limb.goal;
        rig.ikLimbs.push_back(limb);
    }
    return rig;
}

// ---- Tagging ---------------------------------------------------------------------------------

// (structure node, joint name) pairs.
using Tagging = std::vector<std::pair<std::wstring, std::wstring>>;

// The biped tagging of the CMU skeletons in MotionBuilder naming (tests/data/bvh/cmu_mb2010);
// the older files (cmu_mb2008) name the finger joints LFingers and RFingers.
inline Tagging CmuMotionBuilderTagging(bool olderFingers = false) {
    return Tagging{{L"cog", L"Hips"},
                   {L"spine", L"LowerBack"},
                   {L"chest", L"Spine1"},
                   {L"neck", L"Neck1"},
                   {L"head", L"Head"},
                   {L"lthigh", L"LeftUpLeg"},
                   {L"lshin", L"LeftLeg"},
                   {L"lfoot", L"LeftFoot"},
                   {L"ltoe", L"LeftToeBase"},
                   {L"rthigh", L"RightUpLeg"},
                   {L"rshin", L"RightLeg"},
                   {L"rfoot", L"RightFoot"},
                   {L"rtoe", L"RightToeBase"},
                   {L"lclavicle", L"LeftShoulder"},
                   {L"lupperarm", L"LeftArm"},
                   {L"lforearm", L"LeftForeArm"},
                   {L"lhand", L"LeftHand"},
                   {L"lfingers", olderFingers ? L"LFingers" : L"LeftHandIndex1"},
                   {L"rclavicle", L"RightShoulder"},
                   {L"rupperarm", L"RightArm"},
                   {L"rforearm", L"RightForeArm"},
                   {L"rhand", L"RightHand"},
                   {L"rfingers", olderFingers ? L"RFingers" : L"RightHandIndex1"}};
}

// The biped tagging of the CMU skeleton in 3ds Max naming (tests/data/bvh/cmu_3dsmax).
inline Tagging Cmu3dsMaxTagging() {
    return Tagging{{L"cog", L"Hips"},
                   {L"spine", L"lowerback"},
                   {L"chest", L"Chest2"},
                   {L"neck", L"Neck"},
                   {L"head", L"Head"},
                   {L"lthigh", L"LeftHip"},
                   {L"lshin", L"LeftKnee"},
                   {L"lfoot", L"LeftAnkle"},
                   {L"ltoe", L"LeftToe"},
                   {L"rthigh", L"RightHip"},
                   {L"rshin", L"RightKnee"},
                   {L"rfoot", L"RightAnkle"},
                   {L"rtoe", L"RightToe"},
                   {L"lclavicle", L"LeftCollar"},
                   {L"lupperarm", L"LeftShoulder"},
                   {L"lforearm", L"LeftElbow"},
                   {L"lhand", L"LeftWrist"},
                   {L"lfingers", L"LFingers"},
                   {L"rclavicle", L"RightCollar"},
                   {L"rupperarm", L"RightShoulder"},
                   {L"rforearm", L"RightElbow"},
                   {L"rhand", L"RightWrist"},
                   {L"rfingers", L"RFingers"}};
}

inline std::wstring JointOf(const Tagging& t, const std::wstring& node) {
    for (const auto& p : t)
        if (p.first == node) return p.second;
    return std::wstring();
}

// Legs and arms of a biped tagging, for RigOptions: knees bend forward (+Z), elbows back (-Z),
// in the canonical pose's facing.
inline void BipedLimbs(const Tagging& t, RigOptions& o) {
    o.legs = {Limb{JointOf(t, L"lthigh"), JointOf(t, L"lshin"), JointOf(t, L"lfoot"), {0, 0, 1}},
              Limb{JointOf(t, L"rthigh"), JointOf(t, L"rshin"), JointOf(t, L"rfoot"), {0, 0, 1}}};
    o.arms = {Limb{JointOf(t, L"lupperarm"), JointOf(t, L"lforearm"), JointOf(t, L"lhand"), {0, 0, -1}},
              Limb{JointOf(t, L"rupperarm"), JointOf(t, L"rforearm"), JointOf(t, L"rhand"), {0, 0, -1}}};
}

// The structure item's canonical directions in the object's own space at the current time,
// negated for a mirrored object; zero for an item the structure does not have.
inline void AlignAndRoll(ZUK::ModelStructure& s, const std::wstring& tag, const ORV::X3DObject& object,
                         ORV::MATH::CVector3& align, ORV::MATH::CVector3& roll) {
    align = ORV::MATH::CVector3();
    roll = ORV::MATH::CVector3();
    const ZUK::ModelStructure::GroupItem* item = s.FindTagItem(tag.c_str());
    if (!item) return;
    const ORV::MATH::CTransformation g = object.GetKinematics().GetGlobal().GetTransform();
    // Into the object's space: the transpose of its rotation matrix, as row vectors.
    ORV::MATH::CMatrix3 back;
    back.Transpose(g.GetRotationMatrix3());
    align.MulByMatrix3(item->Align, back);
    roll.MulByMatrix3(item->Roll, back);
    if (g.GetScaling().x < 0.0) {
        align.NegateInPlace();
        roll.NegateInPlace();
    }
}

inline void AddFloat(ORV::CustomProperty& p, const wchar_t* name, double value) {
    ORV::Parameter unused;
    const double limit = ZUK::TagMap::FLOAT_LIMIT;
    p.AddParameter(name, ORV::ovFloat, 6, L"", L"", ORV::CValue(value), ORV::CValue(-limit),
                   ORV::CValue(limit), ORV::CValue(-limit), ORV::CValue(limit), unused);
}

inline void AddText(ORV::CustomProperty& p, const wchar_t* name, const std::wstring& value) {
    ORV::Parameter unused;
    p.AddParameter(name, ORV::ovString, 6, L"", L"", ORV::CValue(ORV::CString(value.c_str())), unused);
}

// Writes "ZUKTag" on the object of every pair (found by name under the model) as tagging does:
// "tagname", "override", the six directions, and the pose as "tpose_transform". A second tag
// on one object becomes its "override" (except "cog"). False when an object is missing.
inline bool TagRigByProperties(ORV::Model model, ZUK::ModelStructure& s, const Tagging& t) {
    for (const auto& pair : t) {
        ORV::X3DObject o = model.FindChild(pair.second.c_str());
        if (!o.IsValid()) return false;
        ORV::CRefArray properties = o.GetProperties();
        bool tagged = false;
        for (long i = 0; i < properties.GetCount(); ++i) {
            ORV::Property p(properties[i]);
            if (p.IsValid() && p.GetName() == ORV::CString(ZUK::TagMap::PROPERTY_NAME)) {
                tagged = true;
                if (pair.first != L"cog")
                    p.PutParameterValue(L"override", ORV::CValue(ORV::CString(pair.first.c_str())));
            }
        }
        if (tagged) continue;
        ORV::MATH::CVector3 align, roll;
        AlignAndRoll(s, pair.first, o, align, roll);
        ORV::CustomProperty p;
        if (o.AddCustomProperty(ZUK::TagMap::PROPERTY_NAME, false, p) != ORV::CStatus::OK) return false;
        AddText(p, L"tagname", pair.first);
        AddText(p, L"override", L"");
        AddFloat(p, L"alignx", align.x);
        AddFloat(p, L"aligny", align.y);
        AddFloat(p, L"alignz", align.z);
        AddFloat(p, L"rollx", roll.x);
        AddFloat(p, L"rolly", roll.y);
        AddFloat(p, L"rollz", roll.z);
        const ORV::MATH::CTransformation g = o.GetKinematics().GetGlobal().GetTransform();
        double angle = 0.0;
        const ORV::MATH::CVector3 axis = g.GetRotation().GetAxisAngle(angle);
        const ORV::MATH::CVector3& at = g.GetTranslation();
        std::wostringstream pose;
        pose.precision(17);
        pose << axis.x << L"," << axis.y << L"," << axis.z << L"," << angle << L"," << at.x << L"," << at.y
             << L"," << at.z;
        AddText(p, L"tpose_transform", pose.str());
    }
    return true;
}

// A TagMap of the pairs, with the directions of each object as it stands now.
inline void FillTagMap(ORV::Model model, ZUK::ModelStructure& s, const Tagging& t, ZUK::TagMap& map) {
    map.entries.clear();
    map.structure_file = s.Source;
    for (const auto& pair : t) {
        ZUK::TagMap::TagEntry e;
        e.tag_name = pair.first.c_str();
        e.obj_name = pair.second.c_str();
        ORV::X3DObject o = model.FindChild(pair.second.c_str());
        if (o.IsValid()) AlignAndRoll(s, pair.first, o, e.align, e.roll);
        map.entries.push_back(e);
    }
}

// Tags the rig through the system's own TagMap::applyToModel.
inline bool TagRigFromTagMap(ORV::Model model, ZUK::ModelStructure& s, const Tagging& t) {
    ZUK::TagMap map;
    FillTagMap(model, s, t, map);
    return map.applyToModel(model);
}

// The text of a BVH map file ("BVH", then the tag map text) for a capture of this skeleton at
// rest: each node's canonical directions as they stand in the structure, since a BVH joint at
// rest is unrotated.
inline std::string MapFileText(ZUK::ModelStructure& s, const Tagging& t) {
    std::ostringstream out;
    out.precision(17);
    out << "BVH\nMapFile2.0\n" << s.Source.GetAsciiString() << "\n\n" << t.size() << " \n";
    for (const auto& pair : t) {
        ORV::MATH::CVector3 align, roll;
        if (const ZUK::ModelStructure::GroupItem* item = s.FindTagItem(pair.first.c_str())) {
            align = item->Align;
            roll = item->Roll;
        }
        out << std::string(pair.first.begin(), pair.first.end()) << " {\n\t"
            << std::string(pair.second.begin(), pair.second.end()) << ";\n\t" << align.x << " " << align.y
            << " " << align.z << " \n\t" << roll.x << " " << roll.y << " " << roll.z << " \n}\n\n";
    }
    return out.str();
}

}  // namespace bvhrig
