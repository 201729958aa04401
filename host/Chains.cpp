// IK chains: a chain root, bones in a hierarchy under it (each with a joint holding "roll",
// "chntype" and the up-vector reference), and an effector under the root whose position is the
// goal; the effector is usually constrained to a goal object.
//
// The solver works in one plane through the root and the goal. The plane's bend direction is
// the direction of the up-vector reference of the first bone's joint, seen across the root to
// goal axis; without a reference it is the direction of the chain's own bend as its bone
// parameters pose it (the rest pose), and for a straight rest pose the direction that makes
// the bones' Z axis the chain's normal. The first joint's "roll" (degrees) then turns the bend
// direction about the root to goal axis, right-handed, or left-handed when the chain root is
// mirrored (X scaling below 0).
//
// Two bones are solved by the law of cosines: a reachable goal is met exactly. Longer chains
// are solved by forward and backward reaching (FABRIK) in that plane, from the rest shape laid
// into the plane, until the end lies within 1e-7 of the chain's length from the goal (at most
// 500 passes). A goal out of reach leaves the chain straight, pointing at it. Each bone's X
// axis runs along the bone, its Z axis is the plane's normal. A chain with a joint whose
// "chntype" is 2 (FK) is not solved: its bones take their own parameters.
#include <cmath>

#include "AnimHooks.h"
#include "HostTesting.h"

using namespace ORV;
using ORV::MATH::CVector3;

namespace orvhost {

JointItem::JointItem() : ParamItem(L"joint", ovRef, ovJointID) {
    AddParam(L"roll", ovDouble, CValue(0.0));
    AddParam(L"chntype", ovInt4, CValue(1));
}

namespace {

constexpr double kDegToRad = 0.017453292519943295;

Object3D* ChildOfClass(const Object3D* o, int classId) {
    for (Object3D* c : o->children)
        if (c->classId == classId) return c;
    return nullptr;
}

CVector3 Normalized(const CVector3& v, const CVector3& fallback) {
    const double len = v.GetLength();
    return len > 1e-300 && std::isfinite(len) ? v / len : fallback;
}

CVector3 Cross(const CVector3& a, const CVector3& b) {
    CVector3 c;
    c.Cross(a, b);
    return c;
}

// Any unit vector perpendicular to a unit vector.
CVector3 Perpendicular(const CVector3& d) {
    const CVector3 axis = std::fabs(d.x) < 0.9 ? CVector3(1, 0, 0) : CVector3(0, 1, 0);
    return Normalized(Cross(d, axis), CVector3(0, 0, 1));
}

// Rotates v about the unit axis k by angle (right-handed).
CVector3 RotateAbout(const CVector3& v, const CVector3& k, double angle) {
    const double c = std::cos(angle), s = std::sin(angle);
    return v * c + Cross(k, v) * s + k * (k.Dot(v) * (1.0 - c));
}

CVector3 RowOf(const CTransformation& t, int row) { return t.GetRotationMatrix3().GetRow(row); }

// A pose with the X axis along `x`, the Z axis as near to `z` as the X axis allows, at `pos`,
// with the scaling `scale`. A mirrored scaling (X below 0) flips the rotation's X and Z rows so
// that the scaled X axis still runs along `x`.
CTransformation BonePose(const CVector3& pos, const CVector3& x, const CVector3& z, const CVector3& scale) {
    const CVector3 xa = Normalized(x, CVector3(1, 0, 0));
    CVector3 za = z - xa * z.Dot(xa);
    za = Normalized(za, Perpendicular(xa));
    const CVector3 ya = Cross(za, xa);
    CTransformation t;
    t.SetScaling(scale);
    if (scale.x < 0.0)
        t.SetRotationFromXYZAxes(-xa, ya, -za);
    else
        t.SetRotationFromXYZAxes(xa, ya, za);
    t.SetTranslation(pos);
    return t;
}

}  // namespace

ChainParts ChainOf(Object3D* element) {
    ChainParts parts;
    Object3D* root = element;
    while (root && root->classId != ovChainRootID) root = root->parent3D;
    if (!root) return parts;
    parts.root = root;
    for (Object3D* b = ChildOfClass(root, ovChainBoneID); b; b = ChildOfClass(b, ovChainBoneID))
        parts.bones.push_back(b);
    parts.effector = ChildOfClass(root, ovChainEffectorID);
    for (std::size_t i = 0; !parts.effector && i < parts.bones.size(); ++i)
        parts.effector = ChildOfClass(parts.bones[i], ovChainEffectorID);
    return parts;
}

JointItem* JointOf(Object3D* bone) {
    if (!bone) return nullptr;
    for (auto& o : bone->owned)
        if (o->classId == ovJointID) return static_cast<JointItem*>(o.get());
    return nullptr;
}

double BoneLength(Object3D* bone, double time) {
    if (!bone || !bone->primitive) return 0.0;
    ParamItem* p = static_cast<PropertyItem*>(bone->primitive)->FindParam(L"length");
    return p ? static_cast<double>(ParamValue(p, time)) : 0.0;
}

long BoneIndex(Object3D* bone) {
    ChainParts parts = ChainOf(bone);
    for (std::size_t i = 0; i < parts.bones.size(); ++i)
        if (parts.bones[i] == bone) return static_cast<long>(i);
    return -1;
}

void SolveTwoBones(const CVector3& p0, const CVector3& goal, const CVector3& bend, double l1, double l2,
                   std::vector<CVector3>& joints) {
    const CVector3 d = goal - p0;
    const double dist = d.GetLength();
    const CVector3 dhat = Normalized(d, Perpendicular(bend));
    double cosA = dist > 0.0 && l1 > 0.0 ? (l1 * l1 + dist * dist - l2 * l2) / (2.0 * l1 * dist) : 1.0;
    cosA = cosA > 1.0 ? 1.0 : (cosA < -1.0 ? -1.0 : cosA);
    const double sinA = std::sqrt(1.0 - cosA * cosA);
    const CVector3 p1 = p0 + (dhat * cosA + bend * sinA) * l1;
    const bool reachable = dist <= l1 + l2 && dist >= std::fabs(l1 - l2);
    const CVector3 p2 = reachable ? goal : p1 + Normalized(goal - p1, dhat) * l2;
    joints = {p0, p1, p2};
}

void SolveManyBones(const CVector3& p0, const CVector3& goal, const CVector3& bend,
                    const std::vector<double>& lengths, const std::vector<CVector3>& restJoints,
                    double tolerance, int maxIterations, std::vector<CVector3>& joints) {
    const std::size_t n = lengths.size();
    double total = 0.0;
    for (double l : lengths) total += l;
    const CVector3 d = goal - p0;
    const double dist = d.GetLength();
    const CVector3 dhat = Normalized(d, Perpendicular(bend));
    joints.assign(n + 1, p0);
    if (dist >= total) {
        // Out of reach: straight toward the goal.
        double run = 0.0;
        for (std::size_t k = 0; k < n; ++k) {
            run += lengths[k];
            joints[k + 1] = p0 + dhat * run;
        }
        return;
    }
    // Start from the rest shape laid into the plane, bent to the side of `bend`; a rest shape
    // without a bend starts as a bulge toward it.
    bool bent = false;
    double run = 0.0;
    for (std::size_t k = 1; k <= n; ++k) {
        run += lengths[k - 1];
        CVector3 v = k < restJoints.size() ? restJoints[k] - restJoints[0] : dhat * run;
        const double along = v.Dot(dhat);
        const double side = std::fabs(v.Dot(bend));
        if (k < n && side > 1e-6 * total) bent = true;
        joints[k] = p0 + dhat * along + bend * side;
    }
    if (!bent) {
        run = 0.0;
        for (std::size_t k = 1; k <= n; ++k) {
            run += lengths[k - 1];
            const double s = run / total;
            joints[k] = p0 + dhat * (dist * s) + bend * (0.5 * total * s * (1.0 - s));
        }
    }
    for (int it = 0; it < maxIterations; ++it) {
        // Backward: from the goal to the root.
        joints[n] = goal;
        for (std::size_t k = n; k-- > 0;)
            joints[k] = joints[k + 1] + Normalized(joints[k] - joints[k + 1], -dhat) * lengths[k];
        // Forward: from the root to the end.
        joints[0] = p0;
        for (std::size_t k = 0; k < n; ++k)
            joints[k + 1] = joints[k] + Normalized(joints[k + 1] - joints[k], dhat) * lengths[k];
        if ((joints[n] - goal).GetLength() <= tolerance) break;
    }
}

bool SolveChain(const ChainParts& chain, double time, std::vector<CTransformation>& bones) {
    bones.clear();
    const std::size_t n = chain.bones.size();
    if (!chain.root || n == 0 || !chain.effector) return false;
    for (Object3D* b : chain.bones) {
        JointItem* j = JointOf(b);
        ParamItem* type = j ? j->FindParam(L"chntype") : nullptr;
        if (type && static_cast<int>(ParamValue(type, time)) == 2) return false;
    }
    // Rest pose: the bones as their own parameters place them under the evaluated root.
    const CTransformation rootGlobal = EvaluateObject(chain.root, time).global;
    std::vector<CTransformation> fk(n);
    CTransformation parent = rootGlobal;
    for (std::size_t k = 0; k < n; ++k) {
        CTransformation np;
        np.Mul(NeutralTransform(chain.bones[k], time), parent);
        fk[k].Mul(ParamLocalTransform(chain.bones[k], time), np);
        parent = fk[k];
    }
    std::vector<CVector3> rest(n + 1);
    for (std::size_t k = 0; k < n; ++k) rest[k] = fk[k].GetTranslation();
    CVector3 end;
    end.MulByTransformation(CVector3(BoneLength(chain.bones[n - 1], time), 0.0, 0.0), fk[n - 1]);
    rest[n] = end;
    std::vector<double> lengths(n);
    for (std::size_t k = 0; k + 1 < n; ++k) lengths[k] = (rest[k + 1] - rest[k]).GetLength();
    lengths[n - 1] = (rest[n] - rest[n - 1]).GetLength();

    const CVector3 p0 = rest[0];
    const CVector3 goal = EvaluateObject(chain.effector, time).global.GetTranslation();
    const CVector3 restAxis = Normalized(rest[n] - p0, Normalized(RowOf(fk[0], 0), CVector3(1, 0, 0)));
    const CVector3 dhat = Normalized(goal - p0, restAxis);

    // Bend direction: up-vector reference, else the rest bend, else the chain normal.
    const CVector3 normal = Normalized(RowOf(fk[0], 2), Perpendicular(dhat));
    CVector3 bend;
    JointItem* joint = JointOf(chain.bones[0]);
    if (joint && joint->upVector)
        if (auto* up = dynamic_cast<Object3D*>(TheStore().Resolve(joint->upVector))) {
            const CVector3 w = EvaluateObject(up, time).global.GetTranslation() - p0;
            bend = w - dhat * w.Dot(dhat);
        }
    if (!(bend.GetLength() > 1e-9)) {
        bend = CVector3();
        for (std::size_t k = 1; k < n; ++k) {
            const CVector3 v = rest[k] - p0;
            bend += v - dhat * v.Dot(dhat);
        }
    }
    if (!(bend.GetLength() > 1e-9)) bend = Cross(normal, dhat);
    bend = Normalized(bend, Perpendicular(dhat));
    if (joint)
        if (ParamItem* roll = joint->FindParam(L"roll")) {
            const double sign = rootGlobal.GetScaling().x < 0.0 ? -1.0 : 1.0;
            bend = RotateAbout(bend, dhat, sign * static_cast<double>(ParamValue(roll, time)) * kDegToRad);
        }

    std::vector<CVector3> joints;
    if (n == 1) {
        joints = {p0, p0 + dhat * lengths[0]};
    } else if (n == 2) {
        SolveTwoBones(p0, goal, bend, lengths[0], lengths[1], joints);
    } else {
        double total = 0.0;
        for (double l : lengths) total += l;
        SolveManyBones(p0, goal, bend, lengths, rest, 1e-7 * total, 500, joints);
    }
    const CVector3 planeNormal = Normalized(Cross(dhat, bend), normal);
    bones.resize(n);
    for (std::size_t k = 0; k < n; ++k)
        bones[k] = BonePose(joints[k], joints[k + 1] - joints[k], planeNormal, fk[k].GetScaling());
    return true;
}

namespace {

// The global pose of a chain bone from its own parameters (its rest pose).
CTransformation RestGlobal(Object3D* bone) {
    ChainParts parts = ChainOf(bone);
    if (!parts.root) return GlobalTransform(bone, ovNow);
    CTransformation parent = GlobalTransform(parts.root, ovNow);
    for (Object3D* b : parts.bones) {
        CTransformation np, g;
        np.Mul(NeutralTransform(b, ovNow), parent);
        g.Mul(ParamLocalTransform(b, ovNow), np);
        if (b == bone) return g;
        parent = g;
    }
    return GlobalTransform(bone, ovNow);
}

// Makes a bone under `parent` from `start` to `end`, its Z axis near `normal`, and poses it
// through its parameters relative to the parent's rest pose.
Object3D* MakeBone(Object3D* parent, const CVector3& start, const CVector3& end, const CVector3& normal,
                   const std::wstring& name) {
    Object3D* bone = CreateObject(parent, ovChainBoneID, L"bone", name.empty() ? L"bone" : name);
    auto prim = std::make_unique<PropertyItem>(L"bone", L"bone", ovPrimitiveID);
    prim->AddParam(L"length", ovDouble, CValue((end - start).GetLength()));
    bone->primitive = bone->Own(std::move(prim));
    bone->Own(std::make_unique<JointItem>());
    const CTransformation parentRest =
        parent->classId == ovChainBoneID ? RestGlobal(parent) : GlobalTransform(parent, ovNow);
    CTransformation np;
    np.Mul(NeutralTransform(bone, ovNow), parentRest);
    const CTransformation global = BonePose(start, end - start, normal, CVector3(1, 1, 1));
    PutLocalTransform(bone, MATH::MapWorldPoseToObjectSpace(np, global), ovNow);
    return bone;
}

template <class T>
T* Resolve(const CRef& ref) {
    return dynamic_cast<T*>(TheStore().Resolve(ref));
}

}  // namespace

}  // namespace orvhost

using namespace orvhost;

CStatus X3DObject::Add2DChain(const CVector3& start, const CVector3& end, const CVector3& normal,
                              const CString& name, ChainRoot& result) {
    result = ChainRoot();
    auto* self = Resolve<Object3D>(m_ref);
    if (!self || !((end - start).GetLength() > 0.0)) return CStatus(CStatus::InvalidArgument);
    const std::wstring base = name.GetWideString();
    Object3D* root = CreateObject(self, ovChainRootID, L"root", base.empty() ? L"root" : base);
    CTransformation at;
    at.SetTranslation(start);
    PutGlobalTransform(root, at, ovNow);
    Object3D* bone = MakeBone(root, start, end, normal, base.empty() ? L"bone" : base + L"Bone");
    // The effector comes last: until it exists the chain is not solved.
    Object3D* eff = CreateObject(root, ovChainEffectorID, L"eff", base.empty() ? L"eff" : base + L"Eff");
    CTransformation effPose = RestGlobal(bone);
    effPose.SetTranslation(end);
    PutGlobalTransform(eff, effPose, ovNow);
    result = ChainRoot(root->Ref());
    return CStatus::OK;
}

ChainRoot ChainElement::GetRoot() const {
    auto* o = Resolve<Object3D>(m_ref);
    ChainParts parts = ChainOf(o);
    return parts.root ? ChainRoot(parts.root->Ref()) : ChainRoot();
}

ChainEffector ChainElement::GetEffector() const {
    auto* o = Resolve<Object3D>(m_ref);
    ChainParts parts = ChainOf(o);
    return parts.effector ? ChainEffector(parts.effector->Ref()) : ChainEffector();
}

CRefArray ChainRoot::GetBones() const {
    CRefArray out;
    auto* o = Resolve<Object3D>(m_ref);
    for (Object3D* b : ChainOf(o).bones) out.Add(b->Ref());
    return out;
}

CStatus ChainRoot::AddBone(const CVector3& end, const CString& name, ChainBone& result) {
    result = ChainBone();
    auto* root = Resolve<Object3D>(m_ref);
    ChainParts parts = ChainOf(root);
    if (!root || parts.bones.empty()) return CStatus(CStatus::Fail);
    Object3D* last = parts.bones.back();
    const CTransformation lastRest = RestGlobal(last);
    CVector3 start;
    start.MulByTransformation(CVector3(BoneLength(last), 0.0, 0.0), lastRest);
    if (!((end - start).GetLength() > 0.0)) return CStatus(CStatus::InvalidArgument);
    const CVector3 normal = RestGlobal(parts.bones.front()).GetRotationMatrix3().GetRow(2);
    const std::wstring n = name.GetWideString();
    Object3D* bone = MakeBone(last, start, end, normal, n.empty() ? L"bone" : n);
    if (parts.effector) {
        CTransformation effPose = RestGlobal(bone);
        effPose.SetTranslation(end);
        PutGlobalTransform(parts.effector, effPose, ovNow);
    }
    result = ChainBone(bone->Ref());
    return CStatus::OK;
}

long ChainBone::GetIndex() const { return BoneIndex(Resolve<Object3D>(m_ref)); }

Joint ChainBone::GetJoint() const {
    JointItem* j = JointOf(Resolve<Object3D>(m_ref));
    return j ? Joint(j->Ref()) : Joint();
}

double ChainBone::GetLength() const { return BoneLength(Resolve<Object3D>(m_ref)); }

X3DObject Joint::GetUpVectorReference() const {
    auto* j = Resolve<JointItem>(m_ref);
    if (!j || !j->upVector) return X3DObject();
    auto* o = dynamic_cast<Object3D*>(TheStore().Resolve(j->upVector));
    return o ? X3DObject(o->Ref()) : X3DObject();
}

CStatus Joint::PutUpVectorReference(const CRef& object) {
    auto* j = Resolve<JointItem>(m_ref);
    if (!j) return CStatus(CStatus::Fail);
    if (!object.IsValid()) {
        j->upVector = 0;
    } else {
        auto* o = Resolve<Object3D>(object);
        if (!o || o == OwningObject(j)) return CStatus(CStatus::InvalidArgument);
        j->upVector = o->id;
    }
    TheHost().Touch();
    return CStatus::OK;
}
