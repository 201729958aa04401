// The host's animation commands: "RemoveAllAnimation", "SetExpr", "AddExpr",
// "GetConstrainedObjects" and "GetSkeleton".
#include <cwctype>

#include "AnimHooks.h"
#include "Commands.h"

using namespace ORV;

namespace orvhost {

namespace {

CStatus Refuse(const std::wstring& text) {
    TheHost().Log(text, ovError);
    return CStatus(CStatus::InvalidArgument);
}

const CValue& Arg(const CValueArray& args, long i) {
    static const CValue empty;
    return i < args.GetCount() ? args[i] : empty;
}

std::wstring Text(const CValue& v) { return v.GetAsText().GetWideString(); }

std::wstring Trim(const std::wstring& s) {
    std::size_t a = 0, b = s.size();
    while (a < b && std::iswspace(s[a])) ++a;
    while (b > a && std::iswspace(s[b - 1])) --b;
    return s.substr(a, b - a);
}

// Items named by a value: a reference, a scene path, a comma-separated list of paths, or an
// array of any of these. Names that match nothing go to `missing`.
void Targets(const CValue& v, std::vector<Item*>& out, std::vector<std::wstring>& missing) {
    switch (v.GetType()) {
        case ovRef:
            if (Item* it = TheStore().Resolve(static_cast<CRef>(v)))
                out.push_back(it);
            else
                missing.push_back(ArgumentText(v));
            return;
        case ovString:
        case ovLPStr: {
            std::wstring cur;
            const std::wstring text = Text(v) + L",";
            for (wchar_t c : text) {
                if (c != L',') {
                    cur += c;
                    continue;
                }
                const std::wstring name = Trim(cur);
                cur.clear();
                if (name.empty()) continue;
                if (Item* it = FindByPath(name))
                    out.push_back(it);
                else
                    missing.push_back(name);
            }
            return;
        }
        case ovArray: {
            const CValueArray& a = v;
            for (long i = 0; i < a.GetCount(); ++i) Targets(a[i], out, missing);
            return;
        }
        case ovEmpty:
            return;
        default:
            // A number, a vector or a pointer names nothing.
            missing.push_back(ArgumentText(v));
            return;
    }
}

Object3D* ObjectArg(const CValue& v) {
    std::vector<Item*> items;
    std::vector<std::wstring> missing;
    Targets(v, items, missing);
    return items.empty() ? nullptr : dynamic_cast<Object3D*>(items.front());
}

ParamItem* ParamArg(const CValue& v) {
    std::vector<Item*> items;
    std::vector<std::wstring> missing;
    Targets(v, items, missing);
    if (items.size() != 1 || !items.front()->IsA(ovParameterID)) return nullptr;
    return dynamic_cast<ParamItem*>(items.front());
}

// A whole-number flag; the fallback when it is left out. False when it is given and is no number.
bool IntArg(const CValue& v, int fallback, int& out) {
    out = fallback;
    if (v.IsEmpty()) return true;
    CValue c = v;
    if (c.ChangeType(ovInt4) != CStatus::OK) return false;
    out = static_cast<int>(c);
    return true;
}

// --- RemoveAllAnimation -------------------------------------------------------------------------

// A removed curve leaves its parameter at the value it had at the current frame.
void StripSource(ParamItem* p, int sourceMask) {
    if (!p->source) return;
    const bool curve = p->source->classId == ovFCurveID;
    const bool expr = p->source->classId == ovExpressionID;
    if ((curve && (sourceMask & 1)) || (expr && (sourceMask & 2))) {
        const CValue now = SourceValue(p, CurrentFrame());
        RemoveParamSource(p);
        p->Store(now);
    }
}

void StripParams(ParamItem* p, int sourceMask) {
    StripSource(p, sourceMask);
    for (ParamItem* sub : p->params) StripParams(sub, sourceMask);
}

void StripObject(Object3D* o, int sourceMask, int scope, bool branch) {
    if (scope & 1) {
        if (o->kine) {
            if (o->kine->local) StripParams(o->kine->local, sourceMask);
            if (o->kine->global) StripParams(o->kine->global, sourceMask);
        }
        if (JointItem* j = JointOf(o)) StripParams(j, sourceMask);
    }
    if (scope & 2) {
        for (PropertyItem* prop : o->properties)
            for (ParamItem* p : prop->params) StripParams(p, sourceMask);
        if (o->primitive)
            for (ParamItem* p : static_cast<PropertyItem*>(o->primitive)->params) StripParams(p, sourceMask);
    }
    if (branch)
        for (Object3D* c : o->children) StripObject(c, sourceMask, scope, true);
}

// Arguments: the objects (empty: the selection), whether to take their branches too (0 or
// empty: the objects alone), the kinds of source to remove (1 function curves, 2 expressions;
// empty: both), the parameters to clear (1 kinematics and joints, 2 properties and primitive;
// empty: both), and a last value that scripts pass and that has no meaning here.
CStatus RemoveAllAnimation(CValueArray& args, CValue&) {
    std::vector<Item*> items;
    std::vector<std::wstring> missing;
    const CValue& what = Arg(args, 0);
    const bool emptyText = (what.GetType() == ovString || what.GetType() == ovLPStr) && Text(what).empty();
    if (what.IsEmpty() || emptyText) {
        for (std::uint64_t id : TheHost().scene->selection)
            if (Item* it = TheStore().Resolve(id)) items.push_back(it);
    } else {
        Targets(Arg(args, 0), items, missing);
        if (!missing.empty())
            return Refuse(L"RemoveAllAnimation: nothing is named \"" + missing.front() + L"\".");
    }
    int branchFlag = 0, mask = 3, scope = 3;
    for (long i = 1; i <= 3; ++i) {
        int& slot = i == 1 ? branchFlag : (i == 2 ? mask : scope);
        if (!IntArg(Arg(args, i), slot, slot))
            return Refuse(L"RemoveAllAnimation: the flags must be whole numbers, not \"" +
                          ArgumentText(Arg(args, i)) + L"\".");
    }
    const bool branch = branchFlag != 0;
    for (Item* it : items) {
        if (auto* o = dynamic_cast<Object3D*>(it))
            StripObject(o, mask, scope, branch);
        else if (auto* p = dynamic_cast<ParamItem*>(it))
            StripParams(p, mask);
        else if (auto* prop = dynamic_cast<PropertyItem*>(it))
            for (ParamItem* q : prop->params) StripParams(q, mask);
    }
    TheHost().Touch();
    return CStatus::OK;
}

// --- SetExpr, AddExpr ---------------------------------------------------------------------------

CStatus PutExpr(const wchar_t* command, CValueArray& args, bool required) {
    const CValue& target = Arg(args, 0);
    if (target.IsEmpty()) return Refuse(std::wstring(command) + L": no parameter was given.");
    ParamItem* p = ParamArg(target);
    if (!p) return Refuse(std::wstring(command) + L": \"" + ArgumentText(target) + L"\" is not a parameter.");
    const CValue& expression = Arg(args, 1);
    const ovValueType kind = expression.GetType();
    const bool usable = kind == ovEmpty || kind == ovString || kind == ovLPStr ||
                        (kind == ovRef && TheStore().Resolve(static_cast<CRef>(expression))) ||
                        (kind != ovRef && kind != ovArray && kind != ovVector3 && kind != ovPtr);
    if (!usable)
        return Refuse(std::wstring(command) + L": \"" + ArgumentText(expression) +
                      L"\" is not an expression.");
    const std::wstring text = Trim(Text(expression));
    if (required && text.empty()) return Refuse(std::wstring(command) + L": no expression was given.");
    std::wstring error;
    if (!SetParamExpression(p, text, error)) return Refuse(std::wstring(command) + L": " + error);
    return CStatus::OK;
}

// "SetExpr" with a parameter and a text puts the expression; with the parameter alone it
// removes the parameter's expression.
CStatus SetExpr(CValueArray& args, CValue&) { return PutExpr(L"SetExpr", args, false); }

// "AddExpr" puts an expression (a text, or a parameter to follow). A third value that scripts
// pass is accepted and changes nothing.
CStatus AddExpr(CValueArray& args, CValue&) { return PutExpr(L"AddExpr", args, true); }

// --- GetConstrainedObjects ----------------------------------------------------------------------

// The objects constrained by `object`: with a constraint as second value, the object that
// constraint drives (when `object` is among its constraining objects); with a kind ("Position",
// "Orientation Cns", ...), the objects that `object` drives by a constraint of that kind; with
// nothing, every object it drives.
CStatus GetConstrainedObjects(CValueArray& args, CValue& result) {
    result = CValue(CValueArray());
    Object3D* driver = ObjectArg(Arg(args, 0));
    if (!driver)
        return Refuse(L"GetConstrainedObjects: \"" + ArgumentText(Arg(args, 0)) + L"\" is not an object.");
    const CValue& which = Arg(args, 1);
    ConstraintItem* only = nullptr;
    std::wstring kind;
    if (which.GetType() == ovRef) {
        only = dynamic_cast<ConstraintItem*>(TheStore().Resolve(static_cast<CRef>(which)));
        if (!only)
            return Refuse(L"GetConstrainedObjects: \"" + ArgumentText(which) + L"\" is not a constraint.");
    } else if (!which.IsEmpty()) {
        kind = Trim(Text(which));
        if (kind == L"Position" || kind == L"Orientation") kind += L" Cns";
    }
    CValueArray out;
    auto visit = [&](Object3D* o) {
        if (!o->kine) return;
        for (ConstraintItem* c : o->kine->constraints) {
            if (only && c != only) continue;
            if (!kind.empty() && c->name != kind) continue;
            bool drives = false;
            for (std::uint64_t id : c->constraining)
                if (id == driver->id) drives = true;
            if (drives) {
                out.Add(CValue(o->Ref()));
                return;
            }
        }
    };
    WalkObjects(Root(), true, visit);
    result = CValue(out);
    return CStatus::OK;
}

// --- GetSkeleton --------------------------------------------------------------------------------

// The bones of the chain an element belongs to, in order; the second value is set to the
// chain's root.
CStatus GetSkeleton(CValueArray& args, CValue& result) {
    result = CValue(CValueArray());
    Object3D* o = ObjectArg(Arg(args, 0));
    ChainParts chain = ChainOf(o);
    if (!chain.root)
        return Refuse(L"GetSkeleton: \"" + ArgumentText(Arg(args, 0)) + L"\" is not part of a chain.");
    CValueArray bones;
    for (Object3D* b : chain.bones) bones.Add(CValue(b->Ref()));
    if (args.GetCount() < 2) args.Resize(2);
    args[1] = CValue(chain.root->Ref());
    result = CValue(bones);
    return CStatus::OK;
}

[[maybe_unused]] const bool kRegistered = [] {
    RegisterBuiltin(L"RemoveAllAnimation", {L"object", L"branch", L"sources", L"parameters", L"flags"},
                    RemoveAllAnimation);
    RegisterBuiltin(L"SetExpr", {L"parameter", L"expression"}, SetExpr);
    RegisterBuiltin(L"AddExpr", {L"parameter", L"expression", L"flag"}, AddExpr);
    RegisterBuiltin(L"GetConstrainedObjects", {L"object", L"constraint"}, GetConstrainedObjects);
    RegisterBuiltin(L"GetSkeleton", {L"object", L"root"}, GetSkeleton);
    return true;
}();

}  // namespace

}  // namespace orvhost
