// The host's built-in script commands on the scene and the user: selection, framing,
// deletion, element listing, parameter values, property pages, picking and file display.
// Animation commands (curves, expressions, constraints, skeletons) live with the animation
// engine.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cwctype>

#include "Commands.h"
#include "HostUI.h"

using namespace ORV;

namespace orvhost {

namespace {

CStatus Refuse(const std::wstring& text) {
    TheHost().Log(text, ovError);
    return CStatus(CStatus::InvalidArgument);
}

std::wstring Trim(const std::wstring& s) {
    std::size_t a = 0, b = s.size();
    while (a < b && std::iswspace(s[a])) ++a;
    while (b > a && std::iswspace(s[b - 1])) --b;
    return s.substr(a, b - a);
}

std::wstring Upper(std::wstring s) {
    for (wchar_t& c : s) c = static_cast<wchar_t>(std::towupper(c));
    return s;
}

std::wstring Text(const CValue& v) { return v.GetAsText().GetWideString(); }

// The pieces of a comma-separated list of names, blanks around each removed, empty ones left out.
std::vector<std::wstring> SplitList(const std::wstring& text) {
    std::vector<std::wstring> out;
    std::wstring cur;
    for (wchar_t c : text) {
        if (c == L',') {
            if (!Trim(cur).empty()) out.push_back(Trim(cur));
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!Trim(cur).empty()) out.push_back(Trim(cur));
    return out;
}

// One target of a command: a reference, or a scene path / name. Null when it names nothing.
Item* Resolve(const CValue& v) {
    if (v.GetType() == ovRef) return TheStore().Resolve(static_cast<CRef>(v));
    if (v.GetType() == ovString || v.GetType() == ovLPStr) return FindByPath(Text(v));
    return nullptr;
}

// Every target named by an argument: a reference, an array of them, or a list of names. The
// names that resolve to nothing are collected in `missing`.
std::vector<Item*> ResolveAll(const CValue& v, std::vector<std::wstring>& missing) {
    std::vector<Item*> out;
    if (v.GetType() == ovArray) {
        const CValueArray& a = v;
        for (long i = 0; i < a.GetCount(); ++i) {
            std::vector<Item*> part = ResolveAll(a[i], missing);
            out.insert(out.end(), part.begin(), part.end());
        }
        return out;
    }
    if (v.GetType() == ovRef) {
        if (Item* it = Resolve(v))
            out.push_back(it);
        else
            missing.push_back(ArgumentText(v));
        return out;
    }
    for (const std::wstring& name : SplitList(Text(v))) {
        if (Item* it = FindByPath(name))
            out.push_back(it);
        else
            missing.push_back(name);
    }
    return out;
}

const CValue& Arg(const CValueArray& args, long i) { return args[i]; }

bool IsNumber(const CValue& v) {
    switch (v.GetType()) {
        case ovInt2:
        case ovInt4:
        case ovInt8:
        case ovUByte:
        case ovUInt4:
        case ovFloat:
        case ovDouble:
        case ovBool:
            return true;
        default:
            return false;
    }
}

// A time argument: the current frame when left out.
bool TimeArg(const CValue& v, double& time) {
    time = ovNow;
    if (v.IsEmpty()) return true;
    CValue c = v;
    if (c.ChangeType(ovDouble) != CStatus::OK) return false;
    time = static_cast<double>(c);
    return std::isfinite(time);
}

// --- SelectObj, DeselectAll, FrameAll ---------------------------------------------------------

CStatus SelectObj(CValueArray& args, CValue&) {
    const CValue& target = Arg(args, 0);
    if (target.IsEmpty()) return Refuse(L"SelectObj: no object was given.");
    std::wstring level = Upper(Trim(Text(Arg(args, 1))));
    if (!level.empty() && level != L"ASITIS" && level != L"NODE" && level != L"BRANCH" && level != L"MODEL")
        return Refuse(L"SelectObj: unknown selection level \"" + Text(Arg(args, 1)) +
                      L"\"; use NODE, BRANCH or MODEL.");
    std::vector<std::wstring> missing;
    std::vector<Item*> items = ResolveAll(target, missing);
    if (!missing.empty()) return Refuse(L"SelectObj: nothing is named \"" + missing.front() + L"\".");

    // Selecting replaces the selection. A branch is the object and everything below it, in
    // depth-first order, so the object itself always comes first.
    auto& sel = TheHost().scene->selection;
    sel.clear();
    auto add = [&sel](Item* it) {
        if (std::find(sel.begin(), sel.end(), it->id) == sel.end()) sel.push_back(it->id);
    };
    for (Item* it : items) {
        Item* top = it;
        if (level == L"MODEL" && it->IsA(ov3DObjectID)) {
            auto* obj = static_cast<Object3D*>(it);
            if (!obj->IsModel() && obj->Model() && obj->Model() != Root()) top = obj->Model();
        }
        add(top);
        if ((level == L"BRANCH" || level == L"MODEL") && top->IsA(ov3DObjectID))
            WalkObjects(static_cast<Object3D*>(top), true, [&](Object3D* o) { add(o); });
    }
    return CStatus::OK;
}

CStatus DeselectAll(CValueArray&, CValue&) {
    TheHost().scene->selection.clear();
    return CStatus::OK;
}

// There is no viewport: framing records what a view would now show, every object of the scene.
CStatus FrameAll(CValueArray& args, CValue&) {
    const CValue& view = Arg(args, 0);
    if (!view.IsEmpty() && !IsNumber(view)) {
        CValue c = view;
        if (c.ChangeType(ovInt4) != CStatus::OK)
            return Refuse(L"FrameAll: the view must be a number, not \"" + Text(view) + L"\".");
    }
    FrameRecord& rec = LastFrame();
    ++rec.count;
    rec.objects.clear();
    WalkObjects(Root(), true, [&rec](Object3D* o) { rec.objects.push_back(o->Ref()); });
    return CStatus::OK;
}

// --- DeleteObj --------------------------------------------------------------------------------

bool Protected(Item* it) {
    Scene& s = *TheHost().scene;
    return it == s.root.get() || it == s.project.get() || it == s.preferences.get() || !it->owner;
}

CStatus DeleteObj(CValueArray& args, CValue&) {
    const CValue& target = Arg(args, 0);
    if (target.IsEmpty()) return Refuse(L"DeleteObj: no object was given.");
    struct Victim {
        CRef ref;
        bool branch;
    };
    std::vector<Victim> victims;
    std::vector<std::wstring> names;
    if (target.GetType() == ovString || target.GetType() == ovLPStr) names = SplitList(Text(target));
    if (names.empty()) {
        std::vector<std::wstring> missing;
        for (Item* it : ResolveAll(target, missing)) victims.push_back({it->Ref(), false});
        if (!missing.empty()) return Refuse(L"DeleteObj: nothing is named \"" + missing.front() + L"\".");
    } else {
        for (const std::wstring& n : names) {
            // "B:" before a name asks for the whole branch.
            const bool branch = n.size() > 2 && (n[0] == L'B' || n[0] == L'b') && n[1] == L':';
            const std::wstring path = branch ? Trim(n.substr(2)) : n;
            Item* it = FindByPath(path);
            if (!it) return Refuse(L"DeleteObj: nothing is named \"" + path + L"\".");
            victims.push_back({it->Ref(), branch});
        }
    }
    if (victims.empty()) return Refuse(L"DeleteObj: no object was given.");
    for (const Victim& v : victims) {
        Item* it = TheStore().Resolve(v.ref);
        if (it && Protected(it)) return Refuse(L"DeleteObj: \"" + FullName(it) + L"\" cannot be deleted.");
    }
    for (const Victim& v : victims) {
        Item* it = TheStore().Resolve(v.ref);
        if (!it) continue;  // went with an earlier branch
        // A plain object leaves its children to its parent; a model takes its contents along.
        if (!v.branch && it->IsA(ov3DObjectID)) {
            auto* obj = static_cast<Object3D*>(it);
            if (!obj->IsModel() && obj->parent3D) {
                const std::vector<Object3D*> kids = obj->children;
                for (Object3D* k : kids) Reparent(k, obj->parent3D);
            }
        }
        DeleteItem(it);
    }
    return CStatus::OK;
}

// --- EnumElements, GetValue, SetValue ---------------------------------------------------------

CStatus EnumElements(CValueArray& args, CValue& result) {
    const CValue& target = Arg(args, 0);
    Item* it = Resolve(target);
    if (!it) return Refuse(L"EnumElements: nothing is named \"" + ArgumentText(target) + L"\".");
    CValueArray out;
    for (auto& o : it->owned) out.Add(CValue(o->Ref()));
    result = CValue(out);
    return CStatus::OK;
}

CStatus GetValue(CValueArray& args, CValue& result) {
    const CValue& target = Arg(args, 0);
    double time;
    if (!TimeArg(Arg(args, 1), time)) return Refuse(L"GetValue: the time must be a number.");
    Item* it = Resolve(target);
    if (!it) return Refuse(L"GetValue: nothing is named \"" + ArgumentText(target) + L"\".");
    auto* p = dynamic_cast<ParamItem*>(it);
    if (!p) {
        // Anything that is not a parameter answers with itself, as an object would in a script.
        result = CValue(it->Ref());
        return CStatus::OK;
    }
    if (p->type == ovRef) {
        for (auto& o : p->owned)
            if (o->classId == ovGridDataID) {
                result = CValue(o->Ref());
                return CStatus::OK;
            }
        result = CValue(p->Ref());
        return CStatus::OK;
    }
    result = ParamValue(p, time);
    return CStatus::OK;
}

CStatus SetValue(CValueArray& args, CValue&) {
    const CValue& target = Arg(args, 0);
    const CValue& value = Arg(args, 1);
    double time;
    if (!TimeArg(Arg(args, 2), time)) return Refuse(L"SetValue: the time must be a number.");
    if (target.IsEmpty()) return Refuse(L"SetValue: no parameter was given.");
    if (value.IsEmpty()) return Refuse(L"SetValue: no value was given.");
    std::vector<std::wstring> missing;
    std::vector<Item*> items = ResolveAll(target, missing);
    if (!missing.empty()) return Refuse(L"SetValue: nothing is named \"" + missing.front() + L"\".");
    std::vector<ParamItem*> params;
    for (Item* it : items) {
        auto* p = dynamic_cast<ParamItem*>(it);
        if (!p || p->type == ovRef) return Refuse(L"SetValue: \"" + FullName(it) + L"\" is not a parameter.");
        params.push_back(p);
    }
    if (params.empty()) return Refuse(L"SetValue: no parameter was given.");
    // All or nothing: a value that one of the parameters cannot take changes none of them.
    for (ParamItem* p : params)
        if (!AcceptsValue(p, value))
            return Refuse(L"SetValue: \"" + FullName(p) + L"\" does not take the value \"" +
                          ArgumentText(value) + L"\".");
    for (ParamItem* p : params) PutParamValue(p, value, time);
    return CStatus::OK;
}

// --- InspectObj, PickObject, ShowFileForEdit --------------------------------------------------

CStatus InspectObj(CValueArray& args, CValue& result) {
    const CValue& target = Arg(args, 0);
    Item* it = Resolve(target);
    if (!it) {
        std::vector<std::wstring> missing;
        std::vector<Item*> items = ResolveAll(target, missing);
        if (items.empty()) return Refuse(L"InspectObj: nothing is named \"" + ArgumentText(target) + L"\".");
        it = items.front();
    }
    long mode = 0;
    const CValue& modeArg = Arg(args, 3);
    if (!modeArg.IsEmpty()) {
        CValue c = modeArg;
        if (c.ChangeType(ovInt4) != CStatus::OK)
            return Refuse(L"InspectObj: the mode must be a number, not \"" + Text(modeArg) + L"\".");
        mode = static_cast<int>(c);
    }
    const bool throwOnCancel = static_cast<bool>(Arg(args, 4));
    bool cancelled = false;
    InspectItem(it->Ref(), Text(Arg(args, 2)), mode, cancelled);
    result = CValue(cancelled);
    if (cancelled && throwOnCancel) return CStatus(CStatus::Abort);
    return CStatus::OK;
}

// The answer of a pick: an object (path or reference) picked with the left button (1), or an
// array [button, object] naming the button; 0 or an empty answer cancels. The result is the
// array [button, modifier keys, picked element]; the output arguments after the two prompts
// get the picked element, the button and the modifier keys.
CStatus PickObject(CValueArray& args, CValue& result) {
    const std::wstring left = Text(Arg(args, 0)), middle = Text(Arg(args, 1));
    bool answered = false;
    const CValue answer =
        AskQuestion(L"PickObject", middle.empty() ? left : left + L" / " + middle, answered);
    long button = 0;
    CRef picked;
    CValue what = answer;
    if (answer.GetType() == ovArray) {
        const CValueArray& a = answer;
        button = static_cast<long>(a[0]);
        what = a.GetCount() > 1 ? a[1] : CValue();
    } else if (!answer.IsEmpty() && !IsNumber(answer)) {
        button = 1;
    }
    if (button > 0) {
        Item* it = Resolve(what);
        if (!it) {
            TheHost().Log(L"PickObject: the scripted answer \"" + Text(what) +
                              L"\" names no object; the pick is cancelled.",
                          ovWarning);
            button = 0;
        } else {
            picked = it->Ref();
        }
    }
    if (button <= 0) {
        button = 0;
        picked = CRef();
    }
    CValueArray out;
    out.Add(CValue(static_cast<int>(button)));
    out.Add(CValue(0));
    out.Add(button > 0 ? CValue(picked) : CValue());
    result = CValue(out);
    // The same in the output arguments: the picked element, the button, the modifier keys.
    if (args.GetCount() < 5) args.Resize(5);
    args[2] = out[2];
    args[3] = out[0];
    args[4] = out[1];
    return CStatus::OK;
}

CStatus ShowFileForEdit(CValueArray& args, CValue&) {
    const std::wstring file = Text(Arg(args, 0));
    if (file.empty()) return Refuse(L"ShowFileForEdit: no file was given.");
    const CString narrow(file);
    if (access(narrow.GetAsciiString(), R_OK) != 0)
        return Refuse(L"ShowFileForEdit: the file \"" + file + L"\" cannot be read.");
    ShowToUser(L"ShowFileForEdit", file);
    return CStatus::OK;
}

[[maybe_unused]] const bool kRegistered = [] {
    RegisterBuiltin(L"SelectObj", {L"object", L"level", L"checkpresence"}, SelectObj);
    RegisterBuiltin(L"DeselectAll", {}, DeselectAll);
    RegisterBuiltin(L"FrameAll", {L"view"}, FrameAll);
    RegisterBuiltin(L"DeleteObj", {L"object"}, DeleteObj);
    RegisterBuiltin(L"EnumElements", {L"path"}, EnumElements);
    RegisterBuiltin(L"GetValue", {L"target", L"time"}, GetValue);
    RegisterBuiltin(L"SetValue", {L"target", L"value", L"time"}, SetValue);
    RegisterBuiltin(L"InspectObj", {L"object", L"keywords", L"title", L"mode", L"throw"}, InspectObj);
    RegisterBuiltin(
        L"PickObject",
        {L"leftmessage", L"middlemessage", L"pickedelement", L"buttonpressed", L"modifierpressed"},
        PickObject);
    RegisterBuiltin(L"ShowFileForEdit", {L"file"}, ShowFileForEdit);
    return true;
}();

}  // namespace

}  // namespace orvhost
