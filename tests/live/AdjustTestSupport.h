// A small walking character for the tests of the pose adjustments and retiming: a structure of
// a root, a free spine node, two legs and one arm, a motion written into a blob in the present
// layout, and a RetargetOp set up on it the way the operator prepares itself for playback (an
// adjustment property with every parameter at its default, the stride paths, the clamp events,
// one glue constraint per node with a valid object, the spine as a semi-free node).
//
// The motion's poses come from a forward kinematics written here, so that tests can compare
// the operator's map against poses they compute themselves.
#pragma once

#include <orv/ORV.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "glue/GlueMap.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"

namespace adjusttest {

using ORV::CValue;
using ORV::MATH::CQuaternion;
using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

enum Node { COG = 0, SPINE, LTHIGH, LSHIN, LFOOT, RTHIGH, RSHIN, RFOOT, LSHOULDER, LELBOW, LHAND, NODES };
enum Plane { LLEG = 0, RLEG, LARM, PLANES };

constexpr double PI = 3.14159265358979323846;
constexpr double DEG = PI / 180.0;

inline CTransformation Pose(const CVector3& t, const CRotation& r) {
    CTransformation pose;
    pose.SetRotation(r);
    pose.SetTranslation(t);
    return pose;
}

inline CTransformation Mul(const CTransformation& first, const CTransformation& then) {
    CTransformation out;
    out.Mul(first, then);
    return out;
}

// Angle of the rotation that takes a onto b, from the relative quaternion, so that small angles
// keep their precision.
inline double RotationDistance(const CRotation& a, const CRotation& b) {
    const CQuaternion qa = a.GetQuaternion(), qb = b.GetQuaternion();
    CQuaternion inverse;
    inverse.Conjugate(qa);
    CQuaternion relative;
    relative.Mul(inverse, qb);
    const double v = std::sqrt(relative.GetX() * relative.GetX() + relative.GetY() * relative.GetY() +
                               relative.GetZ() * relative.GetZ());
    return 2.0 * std::atan2(v, std::fabs(relative.GetW()));
}

// The walk: the root travels 1 along z per frame with a small sway in x and bob in y, turning
// slowly about y; the legs swing from the hips with bent knees, the arm hangs from the spine.
// Globals of every node at a frame, by forward kinematics over the local offsets below.
struct Walk {
    int frames = 21;
    double heading = 0.02;  // radians per frame about y

    // Local offsets of each node from its physical parent.
    static CVector3 Offset(int n) {
        switch (n) {
            case SPINE:
                return CVector3(0.0, 2.0, 0.0);
            case LTHIGH:
                return CVector3(1.0, -1.0, 0.0);
            case RTHIGH:
                return CVector3(-1.0, -1.0, 0.0);
            case LSHIN:
            case RSHIN:
                return CVector3(0.0, -4.0, 0.8);
            case LFOOT:
            case RFOOT:
                return CVector3(0.0, -4.0, -0.8);
            case LSHOULDER:
                return CVector3(1.5, 3.0, 0.0);
            case LELBOW:
                return CVector3(0.0, -3.0, 0.3);
            case LHAND:
                return CVector3(0.0, -3.0, 0.4);
            default:
                return CVector3();
        }
    }
    // The node that the offset hangs from: limb ends hang from their middle joint.
    static int Physical(int n) {
        switch (n) {
            case SPINE:
            case LTHIGH:
            case RTHIGH:
                return COG;
            case LSHIN:
                return LTHIGH;
            case RSHIN:
                return RTHIGH;
            case LFOOT:
                return LSHIN;
            case RFOOT:
                return RSHIN;
            case LSHOULDER:
                return SPINE;
            case LELBOW:
                return LSHOULDER;
            case LHAND:
                return LELBOW;
            default:
                return -1;
        }
    }
    CRotation LocalRotation(int n, double f) const {
        switch (n) {
            case COG:
                return CRotation(0.0, heading * f, 0.0);
            case SPINE:
                return CRotation(0.05 * std::sin(f), 0.0, 0.1);
            case LTHIGH:
                return CRotation(0.3 * std::sin(0.5 * f), 0.0, 0.0);
            case RTHIGH:
                return CRotation(-0.3 * std::sin(0.5 * f), 0.0, 0.0);
            case LSHIN:
            case RSHIN:
                return CRotation(0.1 + 0.05 * std::cos(f), 0.0, 0.0);
            case LSHOULDER:
                return CRotation(0.2, 0.1, 0.3 * std::sin(0.3 * f));
            case LELBOW:
                return CRotation(0.2, 0.0, 0.0);
            default:
                return CRotation();
        }
    }
    CVector3 RootTranslation(double f) const {
        return CVector3(0.3 * std::sin(0.7 * f), 10.0 + 0.2 * std::cos(f), 1.0 * f);
    }
    std::vector<CTransformation> Globals(double f) const {
        std::vector<CTransformation> g(NODES);
        g[COG] = Pose(RootTranslation(f), LocalRotation(COG, f));
        for (int n = 1; n < NODES; ++n) g[n] = Mul(Pose(Offset(n), LocalRotation(n, f)), g[Physical(n)]);
        return g;
    }
    // Length of a bone, and the path length of a limb end.
    static double Length(int n) {
        if (n == LFOOT || n == RFOOT || n == LHAND)
            return Offset(n).GetLength() + Offset(Physical(n)).GetLength();
        return Offset(n).GetLength();
    }
};

// The blob's bytes in the present layout, version 1.4, without key timing.
inline std::vector<unsigned char> MakeBlob(const Walk& walk, int insertion, double baseScale) {
    std::vector<unsigned char> b;
    auto put = [&b](const void* v, size_t n) {
        const auto* c = static_cast<const unsigned char*>(v);
        b.insert(b.end(), c, c + n);
    };
    auto put32 = [&put](uint32_t v) { put(&v, 4); };
    auto putD = [&put](double v) { put(&v, 8); };
    put32(ZUK::RetargetOp::MAGIC);
    b.resize(256, 0);
    put32(static_cast<uint32_t>(walk.frames));
    put32(NODES);
    put32(PLANES);
    std::vector<std::vector<CTransformation>> frames;
    for (int f = 0; f < walk.frames; ++f) frames.push_back(walk.Globals(f));
    for (int n = 0; n < NODES; ++n)
        for (int f = 0; f < walk.frames; ++f) {
            const CTransformation& g = frames[static_cast<size_t>(f)][static_cast<size_t>(n)];
            const CQuaternion q = g.GetRotationQuaternion();
            for (double v : {g.GetPosX(), g.GetPosY(), g.GetPosZ(), q.GetW(), q.GetX(), q.GetY(), q.GetZ()})
                putD(v);
        }
    // Limbs bend about x in their own frames; the stored normal is the thigh's or shoulder's x.
    for (int p = 0; p < PLANES; ++p)
        for (int f = 0; f < walk.frames; ++f) {
            const int anchor = p == LLEG ? LTHIGH : (p == RLEG ? RTHIGH : LSHOULDER);
            CVector3 x(1.0, 0.0, 0.0);
            x.MulByRotationInPlace(frames[static_cast<size_t>(f)][static_cast<size_t>(anchor)].GetRotation());
            putD(x.x);
            putD(x.y);
            putD(x.z);
        }
    for (int n = 0; n < NODES; ++n) put32(static_cast<uint32_t>(n));
    putD(1.4);
    const int32_t ins = insertion;
    put(&ins, 4);
    put32(0);
    putD(baseScale);
    return b;
}

inline ZUK::ModelStructure* MakeStructure() {
    auto* s = new ZUK::ModelStructure(NODES, PLANES, L"walker");
    const wchar_t* names[NODES] = {L"cog",   L"spine", L"lthigh",    L"lshin",  L"lfoot", L"rthigh",
                                   L"rshin", L"rfoot", L"lshoulder", L"lelbow", L"lhand"};
    // Logical parents: limb ends hang from their anchors.
    const int parents[NODES] = {-1,     COG,    COG,   LTHIGH,    LTHIGH,   COG,
                                RTHIGH, RTHIGH, SPINE, LSHOULDER, LSHOULDER};
    const int types[NODES] = {0, 3, 1, 1, 2, 1, 1, 2, 1, 1, 2};
    for (int n = 0; n < NODES; ++n) {
        s->nodes[n].Name = names[n];
        s->nodes[n].Parent = parents[n];
        s->nodes[n].Type = types[n];
        s->nodes[n].Friction = n == LFOOT || n == RFOOT;
        s->nodes[n].align.Set(0.0, 0.0, 1.0);
        s->nodes[n].roll.Set(0.0, 1.0, 0.0);
    }
    s->nodes[LFOOT].mirror_node_index = RFOOT;
    s->nodes[RFOOT].mirror_node_index = LFOOT;
    const int anchors[PLANES] = {LTHIGH, RTHIGH, LSHOULDER};
    for (int p = 0; p < PLANES; ++p) {
        ZUK::ModelStructure::Plane& plane = s->planes[p];
        plane.AnchorIndex = anchors[p];
        plane.Mid = anchors[p] + 1;
        plane.Span = anchors[p] + 2;
        plane.Name = names[anchors[p] + 1];
        plane.bones.Add(plane.Span);
        plane.bones.Add(plane.Mid);
        plane.bones.Add(plane.AnchorIndex);
    }
    return s;
}

inline ORV::Parameter AddDouble(ORV::CustomProperty& property, const std::wstring& name, double value) {
    ORV::Parameter p;
    property.AddParameter(name.c_str(), ORV::ovDouble, 5, L"", L"", CValue(value), p);
    return p;
}
inline ORV::Parameter AddInt(ORV::CustomProperty& property, const std::wstring& name, int value) {
    ORV::Parameter p;
    property.AddParameter(name.c_str(), ORV::ovInt4, 4, L"", L"", CValue(value), p);
    return p;
}
inline ORV::Parameter AddBool(ORV::CustomProperty& property, const std::wstring& name, bool value) {
    ORV::Parameter p;
    property.AddParameter(name.c_str(), ORV::ovBool, 5, L"", L"", CValue(value), p);
    return p;
}

// Keys on a parameter, with the given interpolation.
inline ORV::FCurve Animate(ORV::Parameter parameter, const std::vector<std::pair<double, double>>& keys,
                           int interpolation = ORV::ovConstantInterpolation) {
    ORV::FCurve curve;
    parameter.AddFCurve(ORV::ovStandardFCurve, curve);
    for (const auto& key : keys) curve.AddKey(ORV::CTime(key.first), CValue(key.second), interpolation);
    return curve;
}

// The character and its operator.
struct Walker {
    Walk walk;
    int insertion = 0;
    double baseScale = 1.0;
    ORV::Model model;
    ORV::CustomProperty property;
    std::vector<ORV::X3DObject> objects;
    // The operator plays in place from these bytes, so they outlive it.
    std::vector<unsigned char> blob;
    std::unique_ptr<ZUK::RetargetOp> op;

    explicit Walker(int insertionFrame = 0, double scaleAtTransfer = 1.0, int frames = 21)
        : insertion(insertionFrame), baseScale(scaleAtTransfer) {
        walk.frames = frames;
        orvhost::NewScene();
        ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Walker", model);
        model.AddCustomProperty(L"RetargetAdjustPPG", false, property);
        AddInt(property, L"InsertionFrame", insertion);
        AddDouble(property, L"Speed", 1.0);
        AddDouble(property, L"Scale", baseScale);
        AddDouble(property, L"Stride", 1.0);
        AddBool(property, L"offsetFeet", true);
        for (const wchar_t* axis : {L"X", L"Y", L"Z"}) AddDouble(property, std::wstring(L"hip") + axis, 0.0);
        for (const wchar_t* axis : {L"X", L"Y", L"Z", L"RX", L"RY", L"RZ"})
            AddDouble(property, std::wstring(L"spine") + axis, 0.0);
        AddBool(property, L"spineoffsetChildren", true);
        for (const wchar_t* goal : {L"lfoot", L"rfoot", L"lhand"}) {
            const std::wstring g = goal;
            for (const wchar_t* axis : {L"X", L"Y", L"Z"}) AddDouble(property, g + axis, 0.0);
            AddDouble(property, g + L"Roll", 0.0);
            AddDouble(property, g + L"Stretch", 1.0);
            AddBool(property, g + L"Clamp", false);
            AddInt(property, g + L"Frame", 0);
            AddInt(property, g + L"BlendBack", 4);
        }
        for (int n = 0; n < NODES; ++n) {
            ORV::Null null;
            model.AddNull((L"obj" + std::to_wstring(n)).c_str(), null);
            objects.push_back(null);
        }

        blob = MakeBlob(walk, insertion, baseScale);
        op.reset(new ZUK::RetargetOp);
        op->LoadMotionDataFromBuffer(blob.data(), static_cast<unsigned int>(blob.size()));

        auto* map = new ZUK::ModelMap();
        map->structure = MakeStructure();
        map->ownsStructure = true;
        map->nodes.resize(NODES);
        map->planes.resize(PLANES);
        map->legLength = 9.0;
        const std::vector<CTransformation> rest = walk.Globals(0.0);
        for (int n = 0; n < NODES; ++n) {
            ZUK::NodeMap& node = map->nodes[static_cast<size_t>(n)];
            node.length = Walk::Length(n);
            node.translationSource = n;
            node.tpose = rest[static_cast<size_t>(n)];
            // The tag-time pose is frame 0's: the canonical directions in the object's own space.
            const CTransformation inverse = Inverse(rest[static_cast<size_t>(n)]);
            node.align.MulByRotation(map->structure->nodes[n].align, inverse.GetRotation());
            node.roll.MulByRotation(map->structure->nodes[n].roll, inverse.GetRotation());
        }
        for (int p = 0; p < PLANES; ++p) {
            map->planes[static_cast<size_t>(p)].spanDirection = Direction(p);
            map->planes[static_cast<size_t>(p)].sign = 1;
        }
        auto* glue = new ZUK::GlueMap();
        for (int n = 0; n < NODES; ++n) {
            ZUK::MocapConstraint c;
            c.object = objects[static_cast<size_t>(n)];
            c.nodeIndex = n;
            c.ownNodeIndex = n;
            glue->mocaps.push_back(c);
        }
        // The nodes outside the limbs can take a rotation offset.
        map->nodes[COG].constraintIndex = COG;
        map->nodes[SPINE].constraintIndex = SPINE;
        map->nodes[LFOOT].constraintIndex = LFOOT;
        map->nodes[RFOOT].constraintIndex = RFOOT;
        map->nodes[LHAND].constraintIndex = LHAND;

        op->modelMap = map;
        op->glueMap = glue;
        op->adjustProperty = property;
        op->speedParameter = property.GetParameter(L"Speed");
        op->speed = 1.0;
        op->previousSpeed = 1.0;
        op->cogPath = new CVector3[static_cast<size_t>(frames)];
        op->footPaths = new CVector3*[PLANES];
        for (int p = 0; p < PLANES; ++p) op->footPaths[p] = new CVector3[static_cast<size_t>(frames)];
        op->clampKeys = new std::vector<ZUK::RetargetOp::ClampItem>[PLANES];
        ZUK::RetargetOp::SemiFree semi;
        semi.name = L"spine";
        semi.node = SPINE;
        semi.offsetChildren = true;
        semi.anchorTangentLength = 1.0;
        semi.goalTangentLength = 1.0;
        op->semiFrees.push_back(semi);
        op->updateStride();
        for (int p = 0; p < PLANES; ++p) op->updateClampKeys(p, 0.0);
    }

    static CTransformation Inverse(const CTransformation& t) {
        CTransformation inverse = t;
        inverse.InvertInPlace();
        return inverse;
    }
    // Unit direction from the middle joint to the limb end, in the middle joint's own space.
    static CVector3 Direction(int plane) {
        CVector3 d = Walk::Offset(plane == LLEG ? LFOOT : (plane == RLEG ? RFOOT : LHAND));
        d.NormalizeInPlace();
        return d;
    }

    ZUK::NodeMap& node(int n) { return op->modelMap->nodes[static_cast<size_t>(n)]; }
    CVector3 position(int n) { return node(n).global.GetTranslation(); }
    ORV::Parameter parameter(const std::wstring& name) { return property.GetParameter(name.c_str()); }

    // Puts the operator at a motion frame and fraction, as the frame computation would.
    void at(int frame, double fraction = 0.0) {
        op->currentFrame = frame;
        op->frameFraction = fraction;
        op->currentTime = insertion + (frame + fraction) / op->speed;
    }
    // The played pose alone.
    void play(int frame, double fraction = 0.0) {
        at(frame, fraction);
        op->applyPose();
    }
    // The pose with every adjustment up to and including the clamps, before IK.
    void adjust(int frame, double fraction = 0.0) {
        play(frame, fraction);
        op->applyStride();
        op->applyStretch();
        op->applyOffset();
        op->DampenMotion();
        op->applyClamp();
    }
    std::vector<CTransformation> globals() {
        std::vector<CTransformation> g;
        for (int n = 0; n < NODES; ++n) g.push_back(node(n).global);
        return g;
    }
    // Gives the node a rotation offset property with the given angles and reduce.
    ORV::CustomProperty addRotationOffset(int n, double x, double y, double z, double reduce) {
        ORV::CustomProperty offset;
        objects[static_cast<size_t>(n)].AddCustomProperty(L"RotationOffsetPPG", false, offset);
        AddDouble(offset, L"X", x);
        AddDouble(offset, L"Y", y);
        AddDouble(offset, L"Z", z);
        AddDouble(offset, L"Reduce", reduce);
        AddBool(offset, L"IsCog", n == 0);
        ZUK::MocapConstraint& c = op->glueMap->mocaps[static_cast<size_t>(n)];
        c.hasRotationOffsetProperty = true;
        c.rotationOffsetProperty = offset;
        return offset;
    }
};

}  // namespace adjusttest
