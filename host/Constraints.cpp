// Constraints on an object's kinematics. "Position Cns" puts the object at its constraining
// object's global position, "Orientation Cns" gives it that object's global orientation; the
// name tells the kind. They are applied in the order they were added (see Kinematics.cpp).
#include "AnimHooks.h"

using namespace ORV;

namespace orvhost {

ConstraintItem* AddObjectConstraint(Object3D* obj, const std::wstring& preset, Object3D* constraining) {
    if (!obj || !obj->kine || !constraining || constraining == obj) return nullptr;
    std::wstring name;
    if (preset == L"Position" || preset == L"Position Cns")
        name = L"Position Cns";
    else if (preset == L"Orientation" || preset == L"Orientation Cns")
        name = L"Orientation Cns";
    else
        return nullptr;
    auto* c = obj->kine->Own(std::make_unique<ConstraintItem>(name));
    c->constraining.push_back(constraining->id);
    obj->kine->constraints.push_back(c);
    TheHost().Touch();
    return c;
}

}  // namespace orvhost

using namespace orvhost;

CRefArray Kinematics::GetConstraints() const {
    CRefArray out;
    auto* k = dynamic_cast<KineItem*>(TheStore().Resolve(m_ref));
    if (!k) return out;
    for (ConstraintItem* c : k->constraints) out.Add(c->Ref());
    return out;
}

CStatus Kinematics::AddConstraint(const CString& preset, const CRef& constraining, Constraint& result) {
    result = Constraint();
    auto* k = dynamic_cast<KineItem*>(TheStore().Resolve(m_ref));
    auto* driver = dynamic_cast<Object3D*>(TheStore().Resolve(constraining));
    Object3D* obj = k ? OwningObject(k) : nullptr;
    if (!obj || !driver) return CStatus(CStatus::InvalidArgument);
    ConstraintItem* c = AddObjectConstraint(obj, preset.GetWideString(), driver);
    if (!c) {
        if (driver != obj)
            TheHost().Log(L"Unknown constraint preset \"" + std::wstring(preset.GetWideString()) + L"\".",
                          ovWarning);
        return CStatus(CStatus::InvalidArgument);
    }
    result = Constraint(c->Ref());
    return CStatus::OK;
}

CRefArray Constraint::GetConstraining() const {
    CRefArray out;
    auto* c = dynamic_cast<ConstraintItem*>(TheStore().Resolve(m_ref));
    if (!c) return out;
    for (std::uint64_t id : c->constraining)
        if (Item* it = TheStore().Resolve(id)) out.Add(it->Ref());
    return out;
}

X3DObject Constraint::GetConstrained() const {
    Item* c = TheStore().Resolve(m_ref);
    Object3D* o = c && c->IsA(ovConstraintID) ? OwningObject(c) : nullptr;
    return o ? X3DObject(o->Ref()) : X3DObject();
}
