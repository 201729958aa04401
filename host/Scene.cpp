// The active scene: creation, names and paths, deletion, re-parenting, properties.
#include <algorithm>
#include <cwctype>

#include "HostTesting.h"
#include "HostUI.h"

namespace orvhost {

namespace {

std::unique_ptr<Object3D> MakeRoot() {
    auto root = std::make_unique<Object3D>(ORV::ovModelID, L"#model", L"Scene_Root");
    root->family = L"Models";
    return root;
}

void AddKinematics(Object3D* obj) {
    obj->kine = obj->Own(std::make_unique<KineItem>());
    KineItem* k = obj->kine;
    k->local = k->Own(std::make_unique<KineStateItem>(false));
    k->global = k->Own(std::make_unique<KineStateItem>(true));
    k->local->object = obj;
    k->global->object = obj;
    for (const wchar_t* n : {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"})
        k->local->AddParam(n, ORV::ovDouble, CValue(0.0));
    for (const wchar_t* n : {L"sclx", L"scly", L"sclz"}) k->local->AddParam(n, ORV::ovDouble, CValue(1.0));
    ParamItem* order = k->local->AddParam(L"rotorder", ORV::ovInt4, CValue(0));
    order->min = CValue(0);
    order->max = CValue(5);
    for (const wchar_t* n : {L"nposx", L"nposy", L"nposz", L"nrotx", L"nroty", L"nrotz"})
        k->local->AddParam(n, ORV::ovDouble, CValue(0.0));
    for (const wchar_t* n : {L"nsclx", L"nscly", L"nsclz"}) k->local->AddParam(n, ORV::ovDouble, CValue(1.0));
    // The global state's parameters read and write parts of the evaluated global pose.
    for (const wchar_t* n : {L"posx", L"posy", L"posz", L"rotx", L"roty", L"rotz"})
        k->global->AddParam(n, ORV::ovDouble, CValue(0.0));
    for (const wchar_t* n : {L"sclx", L"scly", L"sclz"}) k->global->AddParam(n, ORV::ovDouble, CValue(1.0));
}

bool IsDigit(wchar_t c) { return c >= L'0' && c <= L'9'; }

}  // namespace

Scene::Scene() {
    root = MakeRoot();
    AddKinematics(root.get());
    AddPropertyTo(root.get(), L"Visibility", L"visibility");

    project = std::make_unique<Item>(ORV::ovProjectID, L"Project");
    auto pc = std::make_unique<PropertyItem>(L"Play Control", L"Play Control", ORV::ovPropertyID);
    pc->AddParam(L"Rate", ORV::ovDouble, CValue(30.0));
    pc->AddParam(L"In", ORV::ovDouble, CValue(1.0));
    pc->AddParam(L"Out", ORV::ovDouble, CValue(100.0));
    pc->AddParam(L"Current", ORV::ovDouble, CValue(1.0));
    pc->AddParam(L"GlobalIn", ORV::ovDouble, CValue(1.0));
    pc->AddParam(L"GlobalOut", ORV::ovDouble, CValue(100.0));
    project->Own(std::move(pc));

    preferences = std::make_unique<Item>(ORV::ovObjectID, L"preferences");
    auto scripting = std::make_unique<PropertyItem>(L"Preferences", L"scripting", ORV::ovPropertyID);
    scripting->AddParam(L"cmdlog", ORV::ovBool, CValue(true));
    preferences->Own(std::move(scripting));
}

Scene::~Scene() = default;

Host& TheHost() {
    static Host host;
    static bool started = false;
    if (!started) {
        started = true;  // the scene's own construction calls back in here
        host.scene = std::make_unique<Scene>();
    }
    return host;
}

void Host::Log(const std::wstring& text, int severity) {
    LogEntry entry{text, severity};
    if (logSink) logSink(entry);
    if (recordLog) AppendBounded(log, std::move(entry));
}

static void RunDeleteHooks(Item* item);

void ResetScene() {
    Host& h = TheHost();
    // Properties and operators of the old scene get their _Term as on any deletion, also those
    // on scene-wide properties of the project.
    RunDeleteHooks(h.scene->root.get());
    RunDeleteHooks(h.scene->project.get());
    h.scene.reset();
    h.scene = std::make_unique<Scene>();
    h.uiRoot.reset();
}

Object3D* Root() { return TheHost().scene->root.get(); }
Item* Project() { return TheHost().scene->project.get(); }

PropertyItem* PlayControl() {
    for (auto& p : Project()->owned)
        if (p->name == L"Play Control") return static_cast<PropertyItem*>(p.get());
    return nullptr;
}

double CurrentFrame() {
    PropertyItem* pc = PlayControl();
    ParamItem* cur = pc ? pc->FindParam(L"Current") : nullptr;
    return cur ? static_cast<double>(cur->value) : 0.0;
}

double ResolveTime(double time) {
    if (time != ORV::ovNow) return time;
    double running = 0.0;
    return RunningEvaluationTime(running) ? running : CurrentFrame();
}

// --- Paths ------------------------------------------------------------------------------------

std::wstring FullName(const Item* item) {
    if (!item) return L"";
    Scene& s = *TheHost().scene;
    if (item == s.root.get()) return L"Scene_Root";
    if (item == s.project.get()) return L"Project";
    if (item == s.preferences.get()) return L"preferences";
    if (item->IsA(ORV::ov3DObjectID)) {
        const auto* obj = static_cast<const Object3D*>(item);
        Object3D* model = obj->Model();
        if (!model || model == s.root.get()) return obj->name;
        return FullName(model) + L"." + obj->name;
    }
    if (!item->owner || item->owner == s.project.get()) return item->PathSegment();
    return FullName(item->owner) + L"." + item->PathSegment();
}

Object3D* OwningObject(const Item* item) {
    for (const Item* it = item; it; it = it->owner)
        if (it->IsA(ORV::ov3DObjectID)) return const_cast<Object3D*>(static_cast<const Object3D*>(it));
    return nullptr;
}

void WalkObjects(Object3D* from, bool recursive, const std::function<void(Object3D*)>& visit) {
    if (!from) return;
    // Copy: a visitor may delete or add objects.
    std::vector<Object3D*> kids = from->children;
    for (Object3D* c : kids) {
        if (!TheStore().Resolve(c->Ref())) continue;
        visit(c);
        if (recursive) WalkObjects(c, true, visit);
    }
}

namespace {

// Objects whose names live in the namespace of `model` (those whose nearest model it is).
void NamespaceObjects(Object3D* model, const std::function<void(Object3D*)>& visit) {
    WalkObjects(model, true, [&](Object3D* o) {
        if (o->Model() == model) visit(o);
    });
}

Item* ChildBySegment(Item* cur, const std::wstring& seg) {
    if (cur->IsA(ORV::ov3DObjectID)) {
        auto* obj = static_cast<Object3D*>(cur);
        if (obj->IsModel()) {
            Object3D* hit = nullptr;
            NamespaceObjects(obj, [&](Object3D* o) {
                if (!hit && (o->name == seg || o->PathSegment() == seg)) hit = o;
            });
            if (hit) return hit;
        }
        for (PropertyItem* p : obj->properties)
            if (p->PathSegment() == seg || p->name == seg) return p;
        if (obj->kine && seg == L"kine") return obj->kine;
        if (obj->mixer && seg == L"Mixer") return obj->mixer;
        if (obj->primitive) {
            if (obj->primitive->PathSegment() == seg) return obj->primitive;
            if (auto* ps = static_cast<PropertyItem*>(obj->primitive)->FindParam(seg)) return ps;
        }
    }
    for (auto& o : cur->owned)
        if (o->PathSegment() == seg || o->name == seg) return o.get();
    return nullptr;
}

std::vector<std::wstring> SplitPath(const std::wstring& path) {
    std::vector<std::wstring> parts;
    std::wstring cur;
    for (wchar_t c : path) {
        if (c == L'.') {
            parts.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    parts.push_back(cur);
    return parts;
}

}  // namespace

Item* FindByPath(const std::wstring& rawPath) {
    std::wstring path = rawPath;
    while (!path.empty() && std::iswspace(path.back())) path.pop_back();
    while (!path.empty() && std::iswspace(path.front())) path.erase(path.begin());
    if (path.empty()) return nullptr;
    Scene& s = *TheHost().scene;
    std::vector<std::wstring> parts = SplitPath(path);
    Item* cur = nullptr;
    const std::wstring& first = parts[0];
    if (first == L"Scene_Root") {
        cur = s.root.get();
    } else if (first == L"Project") {
        cur = s.project.get();
    } else if (first == L"preferences") {
        cur = s.preferences.get();
    } else {
        for (auto& p : s.project->owned)
            if (p->PathSegment() == first) cur = p.get();
        if (!cur) cur = ChildBySegment(s.root.get(), first);
    }
    for (std::size_t i = 1; cur && i < parts.size(); ++i) cur = ChildBySegment(cur, parts[i]);
    return cur;
}

// --- Names ------------------------------------------------------------------------------------

std::wstring UniqueName(Object3D* parent, const std::wstring& wanted, const Object3D* self) {
    Object3D* model = parent->IsModel() ? parent : parent->Model();
    if (!model) model = Root();
    auto taken = [&](const std::wstring& n) {
        bool hit = false;
        NamespaceObjects(model, [&](Object3D* o) {
            if (o != self && o->name == n) hit = true;
        });
        return hit;
    };
    if (!taken(wanted)) return wanted;
    // "LFHD" becomes "LFHD1"; "Cube1" becomes "Cube2": the numeric tail is the counter.
    std::wstring base = wanted;
    while (!base.empty() && IsDigit(base.back())) base.pop_back();
    if (base.empty()) base = wanted;
    for (unsigned long n = 1;; ++n) {
        std::wstring candidate = base + std::to_wstring(n);
        if (!taken(candidate)) return candidate;
    }
}

// --- Objects ----------------------------------------------------------------------------------

namespace {

Object3D* MakeObject(Object3D* parent, int classId, const std::wstring& type, const std::wstring& name,
                     bool checkName) {
    if (!parent) parent = Root();
    std::wstring wanted = name;
    if (wanted.empty()) wanted = classId == ORV::ovModelID ? L"Model" : type;
    auto obj = std::make_unique<Object3D>(classId, type, checkName ? UniqueName(parent, wanted) : wanted);
    Object3D* raw = parent->Own(std::move(obj));
    raw->parent3D = parent;
    parent->children.push_back(raw);
    if (classId == ORV::ovModelID)
        raw->family = L"Models";
    else if (type == L"null")
        raw->family = L"Nulls";
    else if (type == L"polymsh")
        raw->family = L"Mesh Geometries";
    else if (type == L"crvlist")
        raw->family = L"Curves";
    else if (raw->IsA(ORV::ovChainElementID))
        raw->family = L"Chain Elements";
    AddKinematics(raw);
    AddPropertyTo(raw, L"Visibility", L"visibility");
    TheHost().Touch();
    return raw;
}

}  // namespace

Object3D* CreateObject(Object3D* parent, int classId, const std::wstring& type, const std::wstring& name) {
    return MakeObject(parent, classId, type, name, true);
}

Object3D* CreateObjectWithUniqueName(Object3D* parent, int classId, const std::wstring& type,
                                     const std::wstring& name) {
    return MakeObject(parent, classId, type, name, false);
}

static void RunDeleteHooks(Item* item) {
    for (auto& o : item->owned) RunDeleteHooks(o.get());
    for (auto& hook : TheHost().deleteHooks) hook(item);
}

void DeleteItem(Item* item) {
    Scene& s = *TheHost().scene;
    if (!item || item == s.root.get() || item == s.project.get() || item == s.preferences.get()) return;
    Item* owner = item->owner;
    if (!owner) return;
    RunDeleteHooks(item);
    if (!TheStore().Resolve(item->Ref())) return;  // a hook may already have removed it
    if (item->IsA(ORV::ov3DObjectID)) {
        auto* obj = static_cast<Object3D*>(item);
        if (obj->parent3D) {
            auto& kids = obj->parent3D->children;
            kids.erase(std::remove(kids.begin(), kids.end(), obj), kids.end());
        }
    }
    if (owner->IsA(ORV::ov3DObjectID)) {
        auto* o = static_cast<Object3D*>(owner);
        auto& props = o->properties;
        props.erase(std::remove(props.begin(), props.end(), item), props.end());
        if (o->mixer == item) o->mixer = nullptr;
        if (o->primitive == item) o->primitive = nullptr;
    }
    if (auto* prop = dynamic_cast<PropertyItem*>(owner)) {
        auto& ps = prop->params;
        ps.erase(std::remove(ps.begin(), ps.end(), item), ps.end());
    }
    if (auto* par = dynamic_cast<ParamItem*>(owner)) {
        auto& ps = par->params;
        ps.erase(std::remove(ps.begin(), ps.end(), item), ps.end());
        if (par->source == item) par->source = nullptr;
    }
    if (auto* k = dynamic_cast<KineItem*>(owner)) {
        auto& cs = k->constraints;
        cs.erase(std::remove(cs.begin(), cs.end(), item), cs.end());
    }
    owner->Disown(item);
    auto& sel = s.selection;
    sel.erase(
        std::remove_if(sel.begin(), sel.end(), [](std::uint64_t id) { return !TheStore().Resolve(id); }),
        sel.end());
    TheHost().Touch();
}

bool Reparent(Object3D* obj, Object3D* newParent) {
    if (!obj || !newParent || obj == Root() || obj == newParent) return false;
    for (Object3D* p = newParent; p; p = p->parent3D)
        if (p == obj) return false;  // would make a cycle
    if (obj->parent3D == newParent) return true;
    const CTransformation global = GlobalTransform(obj, ORV::ovNow);
    Object3D* old = obj->parent3D;
    std::unique_ptr<Item> holder;
    for (auto it = old->owned.begin(); it != old->owned.end(); ++it) {
        if (it->get() == obj) {
            holder = std::move(*it);
            old->owned.erase(it);
            break;
        }
    }
    if (!holder) return false;
    old->children.erase(std::remove(old->children.begin(), old->children.end(), obj), old->children.end());
    obj->parent3D = newParent;
    obj->owner = newParent;
    newParent->owned.push_back(std::move(holder));
    newParent->children.push_back(obj);
    obj->name = UniqueName(newParent, obj->name, obj);
    PutGlobalTransform(obj, global, ORV::ovNow);
    TheHost().Touch();
    return true;
}

bool MatchesFamilies(const Object3D* obj, const ORV::CStringArray& families) {
    if (families.GetCount() == 0) return true;
    for (long i = 0; i < families.GetCount(); ++i) {
        const std::wstring f = families[i].GetWideString();
        if (f == ov3DObjectFamily || f == obj->family) return true;
    }
    return false;
}

// --- Properties -------------------------------------------------------------------------------

PropertyItem* AddPropertyTo(Item* owner, const std::wstring& type, const std::wstring& name) {
    int cid = ORV::ovPropertyID;
    if (type == L"CustomProperty") cid = ORV::ovCustomPropertyID;
    if (type == L"UserDataBlob") cid = ORV::ovUserDataBlobID;
    // Scripts also add parameter lists under preset names of their own making.
    if (type == L"Custom_parameter_list") cid = ORV::ovCustomPropertyID;
    const bool pluginType = IsPluginPropertyType(type);
    if (pluginType) cid = ORV::ovCustomPropertyID;
    const bool known = cid != ORV::ovPropertyID || type == L"Display Property" || type == L"Visibility" ||
                       type == L"Play Control" || type == L"Preferences";
    if (!known) return nullptr;
    std::wstring n = name.empty() ? type : name;
    auto prop = std::make_unique<PropertyItem>(type, n, cid);
    PropertyItem* raw = owner->Own(std::move(prop));
    if (type == L"Display Property") {
        raw->AddParam(L"wirecol", ORV::ovInt4, CValue(0));
    } else if (type == L"Visibility") {
        raw->AddParam(L"viewvis", ORV::ovBool, CValue(true));
        raw->AddParam(L"rendvis", ORV::ovBool, CValue(true));
        raw->AddParam(L"selectability", ORV::ovBool, CValue(true));
    }
    if (owner->IsA(ORV::ov3DObjectID)) static_cast<Object3D*>(owner)->properties.push_back(raw);
    if (pluginType) RunCallback(CallbackName(type, L"_Define"), raw->Ref());
    TheHost().Touch();
    return raw;
}

PropertyItem* FindProperty(const Item* owner, const std::wstring& name) {
    if (owner && owner->IsA(ORV::ov3DObjectID)) {
        for (PropertyItem* p : static_cast<const Object3D*>(owner)->properties)
            if (p->name == name) return p;
        return nullptr;
    }
    if (!owner) return nullptr;
    for (auto& o : owner->owned)
        if (o->IsA(ORV::ovPropertyID) && o->name == name) return static_cast<PropertyItem*>(o.get());
    return nullptr;
}

}  // namespace orvhost
