// The SDK's scene handles over the in-memory scene. Every call resolves its reference first;
// a stale or mistyped handle gets an empty answer and a failure status, never a crash.
#include <algorithm>
#include <cmath>

#include "HostTesting.h"

using namespace ORV;

namespace orvhost {
namespace {

template <class T>
T* Get(const CRef& ref) {
    return dynamic_cast<T*>(TheStore().Resolve(ref));
}

CStatus Fail() { return CStatus(CStatus::Fail); }

ParamItem* FindParamOf(Item* it, const std::wstring& name) {
    if (!it) return nullptr;
    if (auto* p = dynamic_cast<ParamItem*>(it)) return p->FindParam(name);
    if (auto* p = dynamic_cast<PropertyItem*>(it)) return p->FindParam(name);
    if (auto* o = dynamic_cast<Object3D*>(it)) {
        if (o->primitive)
            if (ParamItem* p = static_cast<PropertyItem*>(o->primitive)->FindParam(name)) return p;
        return nullptr;
    }
    if (auto* k = dynamic_cast<KineItem*>(it)) return k->local ? k->local->FindParam(name) : nullptr;
    return nullptr;
}

std::vector<ParamItem*> ParamsOf(Item* it) {
    if (auto* p = dynamic_cast<ParamItem*>(it)) return p->params;
    if (auto* p = dynamic_cast<PropertyItem*>(it)) return p->params;
    if (auto* o = dynamic_cast<Object3D*>(it))
        if (o->primitive) return static_cast<PropertyItem*>(o->primitive)->params;
    return {};
}

}  // namespace
}  // namespace orvhost

using namespace orvhost;

// --- CRef and arrays --------------------------------------------------------------------------

bool CRef::IsA(int classId) const {
    Item* it = TheStore().Resolve(*this);
    return it && it->IsA(classId);
}
int CRef::GetClassID() const {
    Item* it = TheStore().Resolve(*this);
    return it ? it->classId : 0;
}
bool CRef::IsValid() const { return TheStore().Resolve(*this) != nullptr; }
CString CRef::GetAsText() const { return CString(FullName(TheStore().Resolve(*this))); }
CRef CRef::FromPath(const CString& path) {
    Item* it = FindByPath(path.GetWideString());
    return it ? it->Ref() : CRef();
}

CRef CRefArray::GetItem(const CString& name) const {
    for (long i = 0; i < GetCount(); ++i) {
        Item* it = TheStore().Resolve((*this)[i]);
        if (it && it->name == name.GetWideString()) return (*this)[i];
    }
    return CRef();
}

// --- OVObject, ProjectItem, SceneItem -----------------------------------------------------------

CString OVObject::GetName() const {
    Item* it = TheStore().Resolve(m_ref);
    return it ? CString(it->name) : CString();
}
CString OVObject::GetFullName() const { return CString(FullName(TheStore().Resolve(m_ref))); }
CRef OVObject::GetParent() const {
    Item* it = TheStore().Resolve(m_ref);
    if (!it) return CRef();
    if (auto* o = dynamic_cast<Object3D*>(it)) return o->parent3D ? o->parent3D->Ref() : CRef();
    return it->owner ? it->owner->Ref() : CRef();
}
CString OVObject::GetType() const {
    Item* it = TheStore().Resolve(m_ref);
    if (!it) return CString();
    if (auto* o = dynamic_cast<Object3D*>(it)) return CString(o->type);
    if (auto* p = dynamic_cast<PropertyItem*>(it)) return CString(p->type);
    if (dynamic_cast<ParamItem*>(it)) return CString(L"Parameter");
    return CString(it->name);
}
CStatus OVObject::PutName(const CString& name) {
    Item* it = TheStore().Resolve(m_ref);
    if (!it || name.IsEmpty() || it == Root()) return Fail();
    if (auto* o = dynamic_cast<Object3D*>(it)) {
        o->name = UniqueName(o->parent3D ? o->parent3D : Root(), name.GetWideString(), o);
    } else {
        it->name = name.GetWideString();
    }
    TheHost().Touch();
    return CStatus::OK;
}

Model ProjectItem::GetModel() const {
    Item* it = TheStore().Resolve(m_ref);
    Object3D* obj = OwningObject(it);
    if (!obj) return Model();
    if (obj == Root()) return Model(obj->Ref());
    // A property or parameter of a model belongs to that model; an object to the model above.
    if (obj->IsModel() && it != obj) return Model(obj->Ref());
    Object3D* m = obj->Model();
    return m ? Model(m->Ref()) : Model();
}
Parameter ProjectItem::GetParameter(const CString& name) const {
    ParamItem* p = FindParamOf(TheStore().Resolve(m_ref), name.GetWideString());
    return p ? Parameter(p->Ref()) : Parameter();
}
CValue ProjectItem::GetParameterValue(const CString& name, double time) const {
    ParamItem* p = FindParamOf(TheStore().Resolve(m_ref), name.GetWideString());
    return p ? ParamValue(p, time) : CValue();
}
CStatus ProjectItem::PutParameterValue(const CString& name, const CValue& value, double time) {
    ParamItem* p = FindParamOf(TheStore().Resolve(m_ref), name.GetWideString());
    if (!p) return Fail();
    return PutParamValue(p, value, time) ? CStatus(CStatus::OK) : Fail();
}
CRefArray ProjectItem::GetParameters() const {
    CRefArray out;
    for (ParamItem* p : ParamsOf(TheStore().Resolve(m_ref))) out.Add(p->Ref());
    return out;
}
PPGLayout ProjectItem::GetPPGLayout() const {
    Item* it = TheStore().Resolve(m_ref);
    if (!it) return PPGLayout();
    // One layout per item, made on first request and owned by the item.
    for (auto& o : it->owned)
        if (o->classId == ovPPGLayoutID) return PPGLayout(o->Ref());
    Item* layout = it->Own(std::make_unique<Item>(ovPPGLayoutID, L"PPGLayout"));
    return PPGLayout(layout->Ref());
}
bool ProjectItem::IsSelected() const {
    const auto& sel = TheHost().scene->selection;
    return std::find(sel.begin(), sel.end(), m_ref.GetId()) != sel.end();
}

CRefArray SceneItem::GetProperties() const {
    CRefArray out;
    if (auto* o = Get<Object3D>(m_ref))
        for (PropertyItem* p : o->properties) out.Add(p->Ref());
    return out;
}
Property SceneItem::AddProperty(const CString& type, bool branch, const CString& name) {
    Property p;
    AddProperty(type, branch, name, p);
    return p;
}
CStatus SceneItem::AddProperty(const CString& type, bool, const CString& name, Property& result) {
    result = Property();
    auto* o = Get<Object3D>(m_ref);
    if (!o) return Fail();
    PropertyItem* p = AddPropertyTo(o, type.GetWideString(), name.GetWideString());
    if (!p) return Fail();
    result = Property(p->Ref());
    return CStatus::OK;
}
CStatus SceneItem::AddCustomProperty(const CString& name, bool branch, CustomProperty& result) {
    Property p;
    CStatus st = AddProperty(L"CustomProperty", branch, name, p);
    result = CustomProperty(p.GetRef());
    return st;
}

// --- X3DObject and kin ------------------------------------------------------------------------

Kinematics X3DObject::GetKinematics() const {
    auto* o = Get<Object3D>(m_ref);
    return o && o->kine ? Kinematics(o->kine->Ref()) : Kinematics();
}
CRefArray X3DObject::GetChildren() const {
    CRefArray out;
    if (auto* o = Get<Object3D>(m_ref))
        for (Object3D* c : o->children) out.Add(c->Ref());
    return out;
}
CRefArray X3DObject::GetModels(bool recursive) const {
    CRefArray out;
    WalkObjects(Get<Object3D>(m_ref), recursive, [&](Object3D* c) {
        if (c->IsModel()) out.Add(c->Ref());
    });
    return out;
}
CRefArray X3DObject::FindChildren(const CString& name, const CString& type, const CStringArray& families,
                                  bool recursive) const {
    CRefArray out;
    const std::wstring n = name.GetWideString(), t = type.GetWideString();
    WalkObjects(Get<Object3D>(m_ref), recursive, [&](Object3D* c) {
        if (!n.empty() && c->name != n) return;
        if (!t.empty() && c->type != t) return;
        if (!MatchesFamilies(c, families)) return;
        out.Add(c->Ref());
    });
    return out;
}
X3DObject X3DObject::FindChild(const CString& name, const CString& type, const CStringArray& families,
                               bool recursive) const {
    CRefArray all = FindChildren(name, type, families, recursive);
    return all.GetCount() ? X3DObject(all[0]) : X3DObject();
}
CStatus X3DObject::AddChild(const CRef& child) {
    auto* self = Get<Object3D>(m_ref);
    auto* c = Get<Object3D>(child);
    return self && c && Reparent(c, self) ? CStatus(CStatus::OK) : Fail();
}
CStatus X3DObject::AddChild(const CRefArray& children) {
    CStatus st = CStatus::OK;
    for (long i = 0; i < children.GetCount(); ++i)
        if (AddChild(children[i]) != CStatus::OK) st = Fail();
    return st;
}
CStatus X3DObject::AddNull(const CString& name, Null& result) {
    result = Null();
    auto* self = Get<Object3D>(m_ref);
    if (!self) return Fail();
    result = Null(CreateObject(self, ovNullID, L"null", name.GetWideString())->Ref());
    return CStatus::OK;
}
CStatus X3DObject::AddModel(const CRefArray& children, const CString& name, Model& result) {
    result = Model();
    auto* self = Get<Object3D>(m_ref);
    if (!self) return Fail();
    Object3D* m = CreateObject(self, ovModelID, L"#model", name.GetWideString());
    for (long i = 0; i < children.GetCount(); ++i)
        if (auto* c = Get<Object3D>(children[i])) Reparent(c, m);
    result = Model(m->Ref());
    return CStatus::OK;
}

namespace {
Object3D* AddMesh(Object3D* parent, const std::wstring& primitive, const std::wstring& name) {
    if (primitive != L"Cube" && primitive != L"Sphere") return nullptr;
    Object3D* o = CreateObject(parent, ov3DObjectID, L"polymsh",
                               name.empty() ? (primitive == L"Cube" ? L"cube" : L"sphere") : name);
    auto prim = std::make_unique<PropertyItem>(primitive, L"polymsh", ovPrimitiveID);
    if (primitive == L"Cube")
        prim->AddParam(L"length", ovDouble, CValue(8.0));
    else
        prim->AddParam(L"radius", ovDouble, CValue(4.0));
    o->primitive = o->Own(std::move(prim));
    return o;
}
}  // namespace

CStatus X3DObject::AddPrimitive(const CString& type, const CString& name, X3DObject& result) {
    result = X3DObject();
    auto* self = Get<Object3D>(m_ref);
    if (!self) return Fail();
    if (type == L"Null") {
        result = X3DObject(CreateObject(self, ovNullID, L"null", name.GetWideString())->Ref());
        return CStatus::OK;
    }
    Object3D* o = AddMesh(self, type.GetWideString(), name.GetWideString());
    if (!o) return Fail();
    result = X3DObject(o->Ref());
    return CStatus::OK;
}
CStatus X3DObject::AddGeometry(const CString& primitive, const CString& converter, const CString& name,
                               X3DObject& result) {
    result = X3DObject();
    auto* self = Get<Object3D>(m_ref);
    if (!self || converter != L"MeshSurface") return Fail();
    Object3D* o = AddMesh(self, primitive.GetWideString(), name.GetWideString());
    if (!o) return Fail();
    result = X3DObject(o->Ref());
    return CStatus::OK;
}
CStatus X3DObject::AddNurbsCurve(const MATH::CVector4Array& points, const CDoubleArray& knots, bool closed,
                                 int degree, int parametrization, int format, const CString& name,
                                 X3DObject& result) {
    result = X3DObject();
    auto* self = Get<Object3D>(m_ref);
    if (!self || points.GetCount() < 2 || degree < 1) return Fail();
    Object3D* o =
        CreateObject(self, ov3DObjectID, L"crvlist", name.IsEmpty() ? L"crvlist" : name.GetWideString());
    auto prim = std::make_unique<PropertyItem>(L"NurbsCurveList", L"crvlist", ovPrimitiveID);
    prim->AddParam(L"degree", ovInt4, CValue(degree));
    prim->AddParam(L"closed", ovBool, CValue(closed));
    prim->AddParam(L"parametrization", ovInt4, CValue(parametrization));
    prim->AddParam(L"format", ovInt4, CValue(format));
    CValueArray k;
    for (long i = 0; i < knots.GetCount(); ++i) k.Add(CValue(knots[i]));
    prim->attributes[L"knots"] = CValue(k);
    o->primitive = o->Own(std::move(prim));
    for (long i = 0; i < points.GetCount(); ++i) o->controlPoints.push_back(points[i]);
    result = X3DObject(o->Ref());
    return CStatus::OK;
}
Primitive X3DObject::GetActivePrimitive() const {
    auto* o = Get<Object3D>(m_ref);
    return o && o->primitive ? Primitive(o->primitive->Ref()) : Primitive();
}

MATH::CVector4Array Primitive::GetControlPoints() const {
    MATH::CVector4Array out;
    Item* it = TheStore().Resolve(m_ref);
    if (auto* o = it ? OwningObject(it) : nullptr)
        for (const auto& p : o->controlPoints) out.Add(p);
    return out;
}

Mixer Model::GetMixer() const {
    auto* o = Get<Object3D>(m_ref);
    return o && o->mixer ? Mixer(o->mixer->Ref()) : Mixer();
}
Mixer Model::AddMixer() {
    auto* o = Get<Object3D>(m_ref);
    if (!o) return Mixer();
    if (!o->mixer) {
        o->mixer = o->Own(std::make_unique<Item>(ovMixerID, L"Mixer"));
        o->mixer->Own(std::make_unique<Item>(ovObjectID, L"AnimTracks"));
    }
    return Mixer(o->mixer->Ref());
}

// --- Parameters -------------------------------------------------------------------------------

CValue Parameter::GetValue(double time) const {
    auto* p = Get<ParamItem>(m_ref);
    if (!p) return CValue();
    if (p->type == ovRef) {
        // A grid parameter's value is its table.
        for (auto& o : p->owned)
            if (o->classId == ovGridDataID) return CValue(o->Ref());
    }
    return ParamValue(p, time);
}
CStatus Parameter::PutValue(const CValue& value, double time) {
    auto* p = Get<ParamItem>(m_ref);
    if (!p || p->type == ovRef) return Fail();
    return PutParamValue(p, value, time) ? CStatus(CStatus::OK) : Fail();
}
CString Parameter::GetScriptName() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? CString(p->name) : CString();
}
CString Parameter::GetDescription() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? CString(p->description) : CString();
}
ovValueType Parameter::GetValueType() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? p->type : ovEmpty;
}
CValue Parameter::GetDefault() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? p->def : CValue();
}
CValue Parameter::GetMin() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? p->min : CValue();
}
CValue Parameter::GetMax() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? p->max : CValue();
}
CValue Parameter::GetSuggestedMin() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? (p->smin.IsEmpty() ? p->min : p->smin) : CValue();
}
CValue Parameter::GetSuggestedMax() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? (p->smax.IsEmpty() ? p->max : p->smax) : CValue();
}
int Parameter::GetCapabilities() const {
    auto* p = Get<ParamItem>(m_ref);
    return p ? p->caps : 0;
}
bool Parameter::GetCapabilityFlag(int flag) const {
    auto* p = Get<ParamItem>(m_ref);
    return p && (p->caps & flag) == flag && flag != 0;
}
CStatus Parameter::PutCapabilityFlag(int flag, bool on) {
    auto* p = Get<ParamItem>(m_ref);
    if (!p) return Fail();
    p->caps = on ? (p->caps | flag) : (p->caps & ~flag);
    TheHost().Touch();
    return CStatus::OK;
}

// --- Custom properties, grids, blobs ----------------------------------------------------------

CStatus CustomProperty::AddParameter(const CString& name, ovValueType type, int caps, const CString& label,
                                     const CString& description, const CValue& def, Parameter& result) {
    return AddParameter(name, type, caps, label, description, def, CValue(), CValue(), CValue(), CValue(),
                        result);
}
CStatus CustomProperty::AddParameter(const CString& name, ovValueType type, int caps, const CString& label,
                                     const CString& description, const CValue& def, const CValue& minValue,
                                     const CValue& maxValue, const CValue& suggestedMin,
                                     const CValue& suggestedMax, Parameter& result) {
    result = Parameter();
    auto* prop = Get<PropertyItem>(m_ref);
    if (!prop || name.IsEmpty() || prop->FindParam(name.GetWideString())) return Fail();
    auto* p = prop->Own(std::make_unique<ParamItem>(name.GetWideString(), type));
    prop->params.push_back(p);
    p->caps = caps;
    p->label = label.GetWideString();
    p->description = description.GetWideString();
    p->min = minValue;
    p->max = maxValue;
    p->smin = suggestedMin;
    p->smax = suggestedMax;
    p->Store(def.IsEmpty() && (type == ovString || type == ovLPStr) ? CValue(CString()) : def);
    p->def = p->value;
    TheHost().Touch();
    result = Parameter(p->Ref());
    return CStatus::OK;
}
Parameter CustomProperty::AddGridParameter(const CString& name) {
    auto* prop = Get<PropertyItem>(m_ref);
    if (!prop || name.IsEmpty() || prop->FindParam(name.GetWideString())) return Parameter();
    auto* p = prop->Own(std::make_unique<ParamItem>(name.GetWideString(), ovRef));
    prop->params.push_back(p);
    p->Own(std::make_unique<GridItem>());
    TheHost().Touch();
    return Parameter(p->Ref());
}
CStatus CustomProperty::RemoveParameter(const Parameter& parameter) {
    auto* prop = Get<PropertyItem>(m_ref);
    auto* p = Get<ParamItem>(parameter.GetRef());
    if (!prop || !p || p->owner != prop) return Fail();
    DeleteItem(p);
    return CStatus::OK;
}

CStatus GridData::PutRowCount(long rows) {
    auto* g = Get<GridItem>(m_ref);
    if (!g || !GridItem::Fits(rows, g->cols)) return Fail();
    g->Reshape(rows, g->cols);
    TheHost().Touch();
    return CStatus::OK;
}
CStatus GridData::PutColumnCount(long cols) {
    auto* g = Get<GridItem>(m_ref);
    if (!g || !GridItem::Fits(g->rows, cols)) return Fail();
    g->Reshape(g->rows, cols);
    TheHost().Touch();
    return CStatus::OK;
}
long GridData::GetRowCount() const {
    auto* g = Get<GridItem>(m_ref);
    return g ? g->rows : 0;
}
long GridData::GetColumnCount() const {
    auto* g = Get<GridItem>(m_ref);
    return g ? g->cols : 0;
}
CStatus GridData::PutColumnLabel(long col, const CString& label) {
    auto* g = Get<GridItem>(m_ref);
    if (!g || col < 0 || col >= g->cols) return Fail();
    g->labels[static_cast<std::size_t>(col)] = label.GetWideString();
    return CStatus::OK;
}
CString GridData::GetColumnLabel(long col) const {
    auto* g = Get<GridItem>(m_ref);
    if (!g || col < 0 || col >= g->cols) return CString();
    return CString(g->labels[static_cast<std::size_t>(col)]);
}
CStatus GridData::PutData(const CValueArray& values) {
    auto* g = Get<GridItem>(m_ref);
    if (!g || values.GetCount() != g->rows * g->cols) return Fail();
    for (long i = 0; i < values.GetCount(); ++i) g->data[static_cast<std::size_t>(i)] = values[i];
    TheHost().Touch();
    return CStatus::OK;
}
CValueArray GridData::GetData() const {
    CValueArray out;
    if (auto* g = Get<GridItem>(m_ref))
        for (const CValue& v : g->data) out.Add(v);
    return out;
}
CValueArray GridData::GetRowValues(long row) const {
    CValueArray out;
    auto* g = Get<GridItem>(m_ref);
    if (!g || row < 0 || row >= g->rows) return out;
    for (long c = 0; c < g->cols; ++c) out.Add(g->data[static_cast<std::size_t>(row * g->cols + c)]);
    return out;
}
CStatus GridData::PutRowValues(long row, const CValueArray& values) {
    auto* g = Get<GridItem>(m_ref);
    if (!g || row < 0 || row >= g->rows || values.GetCount() != g->cols) return Fail();
    for (long c = 0; c < g->cols; ++c) g->data[static_cast<std::size_t>(row * g->cols + c)] = values[c];
    TheHost().Touch();
    return CStatus::OK;
}
CValue GridData::GetCell(long col, long row) const {
    auto* g = Get<GridItem>(m_ref);
    if (!g || row < 0 || row >= g->rows || col < 0 || col >= g->cols) return CValue();
    return g->data[static_cast<std::size_t>(row * g->cols + col)];
}
CStatus GridData::PutCell(long col, long row, const CValue& value) {
    auto* g = Get<GridItem>(m_ref);
    if (!g || row < 0 || row >= g->rows || col < 0 || col >= g->cols) return Fail();
    g->data[static_cast<std::size_t>(row * g->cols + col)] = value;
    TheHost().Touch();
    return CStatus::OK;
}

CStatus UserDataBlob::PutValue(const unsigned char* bytes, unsigned int size) {
    auto* p = Get<PropertyItem>(m_ref);
    if (!p || (!bytes && size)) return Fail();
    // The bytes may be the blob's own (from GetValue): copy them out before replacing.
    std::vector<unsigned char> next(bytes, bytes + size);
    p->blob.swap(next);
    p->blobSet = size > 0;
    TheHost().Touch();
    return CStatus::OK;
}
CStatus UserDataBlob::GetValue(unsigned char*& bytes, unsigned int& size) const {
    bytes = nullptr;
    size = 0;
    auto* p = Get<PropertyItem>(m_ref);
    if (!p) return Fail();
    if (p->blobSet && !p->blob.empty()) {
        bytes = p->blob.data();
        size = static_cast<unsigned int>(p->blob.size());
    }
    return CStatus::OK;
}
CStatus UserDataBlob::GetValue(const unsigned char*& bytes, unsigned int& size) const {
    unsigned char* b = nullptr;
    CStatus st = GetValue(b, size);
    bytes = b;
    return st;
}
bool UserDataBlob::IsEmpty() const {
    auto* p = Get<PropertyItem>(m_ref);
    return !p || p->blob.empty();
}

// --- Kinematics -------------------------------------------------------------------------------

KinematicState Kinematics::GetGlobal() const {
    auto* k = Get<KineItem>(m_ref);
    return k ? KinematicState(k->global->Ref()) : KinematicState();
}
KinematicState Kinematics::GetLocal() const {
    auto* k = Get<KineItem>(m_ref);
    return k ? KinematicState(k->local->Ref()) : KinematicState();
}
MATH::CTransformation KinematicState::GetTransform(double time) const {
    auto* s = Get<KineStateItem>(m_ref);
    if (!s) return MATH::CTransformation();
    NoteTransformRead(s, time);
    return s->global ? GlobalTransform(s->object, time) : LocalTransform(s->object, time);
}
CStatus KinematicState::PutTransform(const MATH::CTransformation& t, double time) {
    auto* s = Get<KineStateItem>(m_ref);
    if (!s || !std::isfinite(ResolveTime(time))) return Fail();
    if (s->global)
        PutGlobalTransform(s->object, t, time);
    else
        PutLocalTransform(s->object, t, time);
    return CStatus::OK;
}
X3DObject KinematicState::GetObject() const {
    auto* s = Get<KineStateItem>(m_ref);
    return s ? X3DObject(s->object->Ref()) : X3DObject();
}
bool KinematicState::IsGlobal() const {
    auto* s = Get<KineStateItem>(m_ref);
    return s && s->global;
}

// --- Project, selection, application ------------------------------------------------------------

CRefArray ORV::Project::GetProperties() const {
    CRefArray out;
    if (auto* p = TheStore().Resolve(m_ref))
        for (auto& o : p->owned)
            if (o->IsA(ovPropertyID)) out.Add(o->Ref());
    return out;
}

long Selection::GetCount() const { return static_cast<long>(TheHost().scene->selection.size()); }
CRef Selection::operator[](long i) const { return GetItem(i); }
CRef Selection::GetItem(long i) const {
    const auto& s = TheHost().scene->selection;
    return i >= 0 && i < static_cast<long>(s.size()) ? CRef::FromId(s[static_cast<std::size_t>(i)]) : CRef();
}
CStatus Selection::Add(const CRef& item) {
    auto& s = TheHost().scene->selection;
    if (!item.IsValid()) return Fail();
    if (std::find(s.begin(), s.end(), item.GetId()) == s.end()) s.push_back(item.GetId());
    return CStatus::OK;
}
CStatus Selection::Remove(const CRef& item) {
    auto& s = TheHost().scene->selection;
    s.erase(std::remove(s.begin(), s.end(), item.GetId()), s.end());
    return CStatus::OK;
}
CStatus Selection::Clear() {
    TheHost().scene->selection.clear();
    return CStatus::OK;
}
CRefArray Selection::GetArray() const {
    CRefArray out;
    for (long i = 0; i < GetCount(); ++i) out.Add(GetItem(i));
    return out;
}

CStatus Application::LogMessage(const CString& text, int severity) const {
    TheHost().Log(text.GetWideString(), severity);
    return CStatus::OK;
}
Model Application::GetActiveSceneRoot() const { return Model(Root()->Ref()); }
ORV::Project Application::GetActiveProject() const { return ORV::Project(orvhost::Project()->Ref()); }
Selection Application::GetSelection() const { return Selection(); }
Factory Application::GetFactory() const { return Factory(); }
Desktop Application::GetDesktop() const { return Desktop(); }
UIToolkit Application::GetUIToolkit() const { return UIToolkit(); }
CString Application::GetInstallationPath(int kind) const {
    auto it = TheHost().installPaths.find(kind);
    return it == TheHost().installPaths.end() ? CString() : CString(it->second);
}
CString Application::GetVersion() const { return CString(TheHost().version); }

CString CUtils::BuildPath(const CString& a, const CString& b, const CString& c, const CString& d,
                          const CString& e, const CString& f, const CString& g, const CString& h) {
    std::wstring out;
    for (const CString* part : {&a, &b, &c, &d, &e, &f, &g, &h}) {
        std::wstring s = part->GetWideString();
        if (s.empty()) continue;
        if (!out.empty() && out.back() != L'/') out += L'/';
        if (!out.empty())
            while (!s.empty() && s.front() == L'/') s.erase(s.begin());
        out += s;
    }
    return CString(out);
}
