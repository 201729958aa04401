// Evaluation of parameters and poses. This first version reads static values: the global pose
// is local * neutral * parent global (row convention, the left factor applied first).
#include <cmath>

#include "Host.h"

namespace orvhost {

namespace {

constexpr double kDegToRad = 0.017453292519943295;
constexpr double kRadToDeg = 57.29577951308232;

double Num(Object3D* obj, const wchar_t* name, double time) {
    ParamItem* p = obj->LocalParam(name);
    return p ? static_cast<double>(ParamValue(p, time)) : 0.0;
}

ORV::MATH::RotationOrder Order(Object3D* obj, double time) {
    ParamItem* p = obj->LocalParam(L"rotorder");
    int o = p ? static_cast<int>(ParamValue(p, time)) : 0;
    if (o < 0 || o > 5) o = 0;
    return static_cast<ORV::MATH::RotationOrder>(o);
}

CTransformation FromParams(Object3D* obj, double time, const wchar_t* const names[9]) {
    CTransformation t;
    t.SetScalingFromValues(Num(obj, names[6], time), Num(obj, names[7], time), Num(obj, names[8], time));
    t.SetRotationFromXYZAnglesValues(Num(obj, names[3], time) * kDegToRad, Num(obj, names[4], time) * kDegToRad,
                                     Num(obj, names[5], time) * kDegToRad, Order(obj, time));
    t.SetTranslationFromValues(Num(obj, names[0], time), Num(obj, names[1], time), Num(obj, names[2], time));
    return t;
}

const wchar_t* const kLocalNames[9] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                       L"rotz", L"sclx", L"scly", L"sclz"};
const wchar_t* const kNeutralNames[9] = {L"nposx", L"nposy", L"nposz", L"nrotx", L"nroty",
                                         L"nrotz", L"nsclx", L"nscly", L"nsclz"};

}  // namespace

CValue ParamValue(ParamItem* p, double /*time*/) { return p ? p->value : CValue(); }

bool PutParamValue(ParamItem* p, const CValue& v, double /*time*/) {
    if (!p) return false;
    p->Store(v);
    TheHost().Touch();
    return true;
}

CTransformation LocalTransform(Object3D* obj, double time) {
    if (!obj || !obj->kine) return CTransformation();
    return FromParams(obj, ResolveTime(time), kLocalNames);
}

CTransformation NeutralTransform(Object3D* obj, double time) {
    if (!obj || !obj->kine) return CTransformation();
    return FromParams(obj, ResolveTime(time), kNeutralNames);
}

CTransformation GlobalTransform(Object3D* obj, double time) {
    if (!obj) return CTransformation();
    CTransformation t;
    t.Mul(LocalTransform(obj, time), NeutralTransform(obj, time));
    if (obj->parent3D) {
        CTransformation g;
        g.Mul(t, GlobalTransform(obj->parent3D, time));
        return g;
    }
    return t;
}

void PutLocalTransform(Object3D* obj, const CTransformation& t, double time) {
    if (!obj || !obj->kine) return;
    const ORV::MATH::RotationOrder order = Order(obj, ResolveTime(time));
    ORV::MATH::CRotation r = t.GetRotation();
    r.PutRotationOrder(order);
    const ORV::MATH::CVector3 angles = r.GetXYZAngles();
    const ORV::MATH::CVector3 s = t.GetScaling();
    const ORV::MATH::CVector3 p = t.GetTranslation();
    const double values[9] = {p.x, p.y, p.z, angles.x * kRadToDeg, angles.y * kRadToDeg, angles.z * kRadToDeg,
                              s.x, s.y, s.z};
    for (int i = 0; i < 9; ++i)
        if (ParamItem* prm = obj->LocalParam(kLocalNames[i])) prm->Store(CValue(values[i]));
    TheHost().Touch();
}

void PutGlobalTransform(Object3D* obj, const CTransformation& t, double time) {
    if (!obj) return;
    CTransformation base = NeutralTransform(obj, time);
    if (obj->parent3D) {
        CTransformation b;
        b.Mul(base, GlobalTransform(obj->parent3D, time));
        base = b;
    }
    PutLocalTransform(obj, ORV::MATH::MapWorldPoseToObjectSpace(base, t), time);
}

}  // namespace orvhost
