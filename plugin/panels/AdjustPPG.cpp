#include "panels/AdjustPPG.h"

#include <cfloat>
#include <string>

#include "character/ModelStructure.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "shell/Placeholder.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

const ORV::CString AdjustPPG::PROPERTY_NAME(L"RetargetAdjustPPG");
ORV::CString AdjustPPG::m_currentModel;

namespace {

const double NOW = ModelMap::NOW;
// Capability words of the property's parameters.
const int KEPT = ORV::ovPersistable;
const int ANIMATED = ORV::ovPersistable | ORV::ovAnimatable;
const int HIDDEN = ORV::ovPersistable | ORV::ovSilent;

ORV::CString numbered(const wchar_t* base, int index) {
    return ORV::CString(base) + ORV::CString(std::to_wstring(index).c_str());
}

void addPlain(ORV::CustomProperty& property, const ORV::CString& name, ORV::ovValueType type,
              int capabilities, const ORV::CValue& value) {
    ORV::Parameter unused;
    property.AddParameter(name, type, capabilities, L"", L"", value, unused);
}

void addRanged(ORV::CustomProperty& property, const ORV::CString& name, ORV::ovValueType type,
               int capabilities, const ORV::CValue& value, const ORV::CValue& min, const ORV::CValue& max,
               const ORV::CValue& uiMin, const ORV::CValue& uiMax) {
    ORV::Parameter unused;
    property.AddParameter(name, type, capabilities, L"", L"", value, min, max, uiMin, uiMax, unused);
}

// An offset in scene units: no hard bounds, a slider of +-`range`.
void addOffset(ORV::CustomProperty& property, const ORV::CString& name, const ORV::CValue& low,
               const ORV::CValue& high) {
    addRanged(property, name, ORV::ovDouble, ANIMATED, ORV::CValue(0.0), ORV::CValue(-DBL_MAX),
              ORV::CValue(DBL_MAX), low, high);
}

bool isFree(const ModelStructure& s, int node) { return s.nodes[node].Type == 3; }

// The first ancestor of `node` that is a free joint, or node 0.
int FindSemiFreeNode(ModelMap* map, int node) {
    const ModelStructure& s = *map->structure;
    int steps = 0;
    for (int n = s.nodes[node].Parent; n >= 0 && n < s.numNodes && steps <= s.numNodes;
         n = s.nodes[n].Parent, ++steps)
        if (isFree(s, n)) return n;
    return 0;
}

// Whether some limb hangs from `node`: its anchor's nearest free ancestor is `node`.
bool HasIKChainsAttached(ModelMap* map, int node) {
    const ModelStructure& s = *map->structure;
    for (int p = 0; p < s.numPlanes; ++p) {
        const int anchor = s.planes[p].AnchorIndex;
        if (anchor >= 0 && anchor < s.numNodes && FindSemiFreeNode(map, anchor) == node) return true;
    }
    return false;
}

// A free node whose object is at least two bones from its parent's (or whose parent's object
// is not found above it) takes an offset of its own.
bool isSemiFree(ModelMap* map, int node) {
    const ModelStructure& s = *map->structure;
    const ORV::X3DObject& object = map->nodes[static_cast<size_t>(node)].object;
    if (!object.IsValid() || !isFree(s, node)) return false;
    const int parent = s.nodes[node].Parent;
    const ORV::X3DObject parentObject = parent >= 0 && parent < s.numNodes
                                            ? map->nodes[static_cast<size_t>(parent)].object
                                            : ORV::X3DObject();
    const int bones = Util::CountSeparatingBones(object, parentObject);
    return bones != 0 && bones != 1;
}

}  // namespace

AdjustPPG::AdjustPPG(ORV::Model model, bool refresh) {
    if (!model.IsValid()) {
        Util::alert(L"Select a valid model.");
        return;
    }
    if (refresh && !(model.GetFullName() == m_currentModel)) return;
    if (!refresh) m_currentModel = model.GetFullName();
    ORV::Property property;
    if (!Util::findCustomPSet(model, PROPERTY_NAME, property)) {
        if (!refresh) Util::alert(L"Select a model with retargetted motion.");
        return;
    }
    const ORV::CString name = model.GetName() + L"." + PROPERTY_NAME;
    ORV::Layout layout = app.GetDesktop().GetActiveLayout();
    ORV::View view;
    ORV::CRefArray views = layout.GetViews();
    for (long i = 0; i < views.GetCount() && !view.IsValid(); ++i) {
        ORV::View candidate(views[i]);
        if (candidate.GetType() == L"Property Panel" && candidate.GetAttributeValue(L"targetcontent") == name)
            view = candidate;
    }
    if (!view.IsValid()) {
        if (refresh) return;
        if (layout.CreateView(L"Property Panel", L"RetargetAdjust", view) != ORV::CStatus::OK) return;
        view.Move(110, 419);
    }
    view.BeginEdit();
    view.PutAttributeValue(L"targetcontent", property.GetFullName());
    view.Resize(400, 370);
    view.EndEdit();
}

void AdjustPPG::addModelSpecificParameters(ORV::CustomProperty property, ModelMap* map, ORV::Model) {
    map->LoadFromCustomProperty();
    property.PutParameterValue(L"Scale", ORV::CValue(map->legScale));
    const ModelStructure& s = *map->structure;
    // Slider range of the body offsets; a rig without a measured leg gets whole units.
    const bool measured = map->legLength > 0.0;
    const ORV::CValue low = measured ? ORV::CValue(-map->legLength) : ORV::CValue(-10);
    const ORV::CValue high = measured ? ORV::CValue(map->legLength) : ORV::CValue(10);

    int planes = 0;
    for (int p = 0; p < s.numPlanes; ++p)
        if (map->nodes[static_cast<size_t>(s.planes[p].Span)].object.IsValid()) ++planes;
    addPlain(property, L"NumPlanes", ORV::ovInt4, HIDDEN, ORV::CValue(planes));
    addPlain(property, L"offsetFeet", ORV::ovBool, KEPT, ORV::CValue(true));
    addOffset(property, L"hipX", low, high);
    addOffset(property, L"hipY", low, high);
    addOffset(property, L"hipZ", low, high);

    int semiFrees = 0;
    for (int n = 0; n < s.numNodes; ++n) {
        if (!isSemiFree(map, n)) continue;
        const ORV::CString& node = s.nodes[n].Name;
        addPlain(property, numbered(L"semiName", semiFrees++), ORV::ovString, HIDDEN, ORV::CValue(node));
        addOffset(property, node + L"X", low, high);
        addOffset(property, node + L"Y", low, high);
        addOffset(property, node + L"Z", low, high);
        if (HasIKChainsAttached(map, n))
            addPlain(property, node + L"offsetChildren", ORV::ovBool, KEPT, ORV::CValue(true));
        for (const wchar_t* tangent : {L"AnchorTangentLength", L"GoalTangentLength"})
            addRanged(property, node + tangent, ORV::ovDouble, ANIMATED, ORV::CValue(1.0), ORV::CValue(0.1),
                      ORV::CValue(DBL_MAX), ORV::CValue(0.1), ORV::CValue(4.0));
        for (const wchar_t* axis : {L"RX", L"RY", L"RZ"})
            addRanged(property, node + axis, ORV::ovDouble, ANIMATED, ORV::CValue(0.0), ORV::CValue(-180.0),
                      ORV::CValue(180.0), ORV::CValue(-180.0), ORV::CValue(180.0));
    }
    addPlain(property, L"NumSemiFree", ORV::ovInt4, HIDDEN, ORV::CValue(semiFrees));

    // Per limb with a goal object; limbs without one use up no number.
    int j = 0;
    for (int p = 0; p < s.numPlanes; ++p) {
        const int span = s.planes[p].Span;
        const NodeMap& goalMap = map->nodes[static_cast<size_t>(span)];
        if (!goalMap.object.IsValid()) continue;
        const ORV::CString& goal = s.nodes[span].Name;
        addPlain(property, numbered(L"name", j), ORV::ovString, HIDDEN, ORV::CValue(goal));
        addPlain(property, numbered(L"obj", j), ORV::ovString, HIDDEN, ORV::CValue(goalMap.object.GetName()));
        ++j;
        for (const wchar_t* axis : {L"X", L"Y", L"Z"})
            addOffset(property, goal + axis, ORV::CValue(-goalMap.length), ORV::CValue(goalMap.length));
        addRanged(property, goal + L"Roll", ORV::ovDouble, ANIMATED, ORV::CValue(0.0), ORV::CValue(-360.0),
                  ORV::CValue(360.0), ORV::CValue(-360.0), ORV::CValue(360.0));
        addRanged(property, goal + L"Stretch", ORV::ovDouble, ANIMATED, ORV::CValue(1.0), ORV::CValue(0.1),
                  ORV::CValue(2.0), ORV::CValue(0.1), ORV::CValue(2.0));
        addPlain(property, goal + L"Clamp", ORV::ovBool, ANIMATED, ORV::CValue(false));
        addPlain(property, goal + L"Frame", ORV::ovInt4, KEPT, ORV::CValue(0));
        addRanged(property, goal + L"BlendBack", ORV::ovInt4, KEPT, ORV::CValue(4), ORV::CValue(0),
                  ORV::CValue(2147483647), ORV::CValue(0), ORV::CValue(10));
        addPlain(property, goal + L"Foot", ORV::ovBool, KEPT,
                 ORV::CValue(static_cast<bool>(s.nodes[span].Friction)));
    }
}

void AdjustPPG::LoadFootSettingsFromProperty(ORV::CustomProperty property, RetargetOp* op) {
    ModelStructure& s = *op->modelMap->structure;
    const int count = static_cast<int>(property.GetParameterValue(L"NumPlanes", NOW));
    for (int i = 0; i < count && i < s.numPlanes; ++i) {
        const ORV::CString name = property.GetParameterValue(numbered(L"name", i), NOW).GetAsText();
        s.nodes[s.planes[i].Span].Friction =
            static_cast<bool>(property.GetParameterValue(name + L"Foot", NOW));
    }
}

void AdjustPPG::closePanel() {
    // No panel has been opened in this process.
    if (m_currentModel.IsEmpty()) {
        return;
    }
    app.LogMessage(L"closePanel is not built yet", 4);
}

void AdjustPPG::SavePreset(ORV::Model model, ORV::CString file) {
    app.LogMessage(L"SavePreset is not built yet", 4);
    logPlaceholderCall(L"SavePreset", {model.GetRef(), file});
}

void AdjustPPG::LoadPreset(ORV::Model model, ORV::CString file, double time) {
    app.LogMessage(L"LoadPreset is not built yet", 4);
    logPlaceholderCall(L"LoadPreset", {model.GetRef(), file, time});
}

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus RetargetAdjustPPG_Define(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CustomProperty property(ctxt.GetSource());
    const ORV::CValue largest(DBL_MAX);
    ZUK::addPlain(property, L"InsertionFrame", ORV::ovInt4, ZUK::KEPT, ORV::CValue(0));
    ZUK::addRanged(property, L"Speed", ORV::ovDouble, ZUK::KEPT, ORV::CValue(1.0), ORV::CValue(0.01), largest,
                   ORV::CValue(0.01), ORV::CValue(4.0));
    ZUK::addRanged(property, L"Scale", ORV::ovDouble, ZUK::KEPT, ORV::CValue(1.0), ORV::CValue(0.01), largest,
                   ORV::CValue(0.01), ORV::CValue(4.0));
    ZUK::addRanged(property, L"Stride", ORV::ovDouble, ZUK::ANIMATED, ORV::CValue(1.0), ORV::CValue(0.0),
                   largest, ORV::CValue(0.0), ORV::CValue(4.0));
    ZUK::addPlain(property, L"Ping", ORV::ovInt4, ZUK::HIDDEN, ORV::CValue(0));
    ZUK::addPlain(property, L"RotNodes", ORV::ovInt4, ZUK::HIDDEN, ORV::CValue(0));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RetargetAdjustPPG_DefineLayout(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetAdjustPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus RetargetAdjustPPG_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetAdjustPPG_PPGEvent is not built yet");
}
