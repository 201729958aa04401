// Items of the in-memory scene and the slot table that names them.
#include <algorithm>

#include "Host.h"

namespace orvhost {

// --- Class hierarchy ---------------------------------------------------------------------------

int ParentClassId(int classId) {
    using namespace ORV;
    switch (classId) {
        case ovModelID:
        case ovNullID:
        case ovChainElementID:
            return ov3DObjectID;
        case ovChainRootID:
        case ovChainBoneID:
        case ovChainEffectorID:
            return ovChainElementID;
        case ov3DObjectID:
        case ovPropertyID:
            return ovSceneItemID;
        case ovCustomPropertyID:
        case ovUserDataBlobID:
            return ovPropertyID;
        case ovSceneItemID:
        case ovParameterID:
        case ovKinematicsID:
        case ovConstraintID:
        case ovPrimitiveID:
        case ovGridDataID:
        case ovExpressionID:
        case ovProjectID:
        case ovPortGroupID:
        case ovPortID:
        case ovFCurveKeyID:
        case ovFCurveID:
        case ovMixerID:
        case ovJointID:
        case ovOperatorID:
            return ovProjectItemID;
        case ovKinematicStateID:
            return ovParameterID;
        case ovCustomOperatorID:
            return ovOperatorID;
        case ovScriptedOperatorID:
            return ovCustomOperatorID;
        case ovProjectItemID:
        case ovContextID:
        case ovCommandID:
        case ovMenuID:
        case ovMenuItemID:
        case ovPPGLayoutID:
        case ovPPGItemID:
        case ovViewID:
        case ovLayoutID:
        case ovProgressBarID:
            return ovObjectID;
        default:
            return 0;
    }
}

// --- Store -------------------------------------------------------------------------------------

Store& TheStore() {
    // Never destroyed: items of the scene unregister themselves during static destruction.
    static Store* store = new Store;
    return *store;
}

std::uint64_t Store::Register(Item* item) {
    std::uint32_t slot;
    if (!m_free.empty()) {
        slot = m_free.back();
        m_free.pop_back();
    } else {
        slot = static_cast<std::uint32_t>(m_slots.size());
        m_slots.push_back(Slot{});
    }
    m_slots[slot].item = item;
    return (static_cast<std::uint64_t>(m_slots[slot].generation) << 32) | slot;
}

void Store::Unregister(Item* item) {
    const std::uint32_t slot = static_cast<std::uint32_t>(item->id & 0xffffffffu);
    if (slot == 0 || slot >= m_slots.size() || m_slots[slot].item != item) return;
    m_slots[slot].item = nullptr;
    ++m_slots[slot].generation;  // every outstanding reference to the slot goes stale
    m_free.push_back(slot);
}

Item* Store::Resolve(std::uint64_t id) const {
    const std::uint32_t slot = static_cast<std::uint32_t>(id & 0xffffffffu);
    const std::uint32_t gen = static_cast<std::uint32_t>(id >> 32);
    if (slot == 0 || slot >= m_slots.size()) return nullptr;
    const Slot& s = m_slots[slot];
    return s.generation == gen ? s.item : nullptr;
}

// --- Item --------------------------------------------------------------------------------------

Item::Item(int cid, std::wstring n) : classId(cid), name(std::move(n)) { id = TheStore().Register(this); }

Item::~Item() {
    // Owned items go first, so that nothing resolves to a half-destroyed owner.
    while (!owned.empty()) owned.pop_back();
    TheStore().Unregister(this);
}

bool Item::IsA(int cid) const {
    if (cid == ORV::ovObjectID) return true;
    for (int c = classId; c != 0; c = ParentClassId(c))
        if (c == cid) return true;
    return false;
}

std::wstring Item::PathSegment() const {
    std::wstring s;
    for (wchar_t c : name)
        if (c != L' ') s += c;
    return s;
}

bool Item::Disown(Item* item) {
    auto it = std::find_if(owned.begin(), owned.end(), [item](const auto& p) { return p.get() == item; });
    if (it == owned.end()) return false;
    owned.erase(it);
    return true;
}

// --- Parameters ----------------------------------------------------------------------------------

ParamItem::ParamItem(std::wstring n, ORV::ovValueType t, int cid) : Item(cid, std::move(n)), type(t) {}

ParamItem* ParamItem::AddParam(const std::wstring& n, ORV::ovValueType t, const CValue& v) {
    auto* p = Own(std::make_unique<ParamItem>(n, t));
    p->Store(v);
    p->def = p->value;
    params.push_back(p);
    return p;
}

ParamItem* ParamItem::FindParam(const std::wstring& n) const {
    for (ParamItem* p : params)
        if (p->name == n) return p;
    return nullptr;
}

static CValue ConvertTo(const CValue& v, ORV::ovValueType t) {
    using namespace ORV;
    switch (t) {
        case ovBool:
            return CValue(static_cast<bool>(v));
        case ovInt2:
        case ovInt4:
        case ovUByte:
        case ovUInt4:
        case ovInt8:
            return CValue(static_cast<int>(v));
        case ovDouble:
            return CValue(static_cast<double>(v));
        case ovFloat:
            return CValue(static_cast<float>(v));
        case ovString:
        case ovLPStr:
            return CValue(v.GetAsText());
        case ovVector3:
            return CValue(static_cast<ORV::MATH::CVector3>(v));
        default:
            return v;
    }
}

bool ParamItem::Store(const CValue& v) {
    CValue c = ConvertTo(v, type);
    const bool numeric = type == ORV::ovDouble || type == ORV::ovFloat || type == ORV::ovInt4 ||
                         type == ORV::ovInt2 || type == ORV::ovUByte || type == ORV::ovUInt4 ||
                         type == ORV::ovInt8;
    if (numeric) {
        double d = static_cast<double>(c);
        if (!min.IsEmpty() && d < static_cast<double>(min)) d = static_cast<double>(min);
        if (!max.IsEmpty() && d > static_cast<double>(max)) d = static_cast<double>(max);
        c = ConvertTo(CValue(d), type);
    }
    value = c;
    return true;
}

void GridItem::Reshape(long r, long c) {
    r = std::max(0L, r);
    c = std::max(0L, c);
    std::vector<CValue> next(static_cast<std::size_t>(r * c));
    for (long i = 0; i < std::min(r, rows); ++i)
        for (long j = 0; j < std::min(c, cols); ++j)
            next[static_cast<std::size_t>(i * c + j)] = data[static_cast<std::size_t>(i * cols + j)];
    data.swap(next);
    rows = r;
    cols = c;
    labels.resize(static_cast<std::size_t>(c));
}

// --- Properties ----------------------------------------------------------------------------------

PropertyItem::PropertyItem(std::wstring t, std::wstring n, int cid)
    : Item(cid, std::move(n)), type(std::move(t)) {}

ParamItem* PropertyItem::AddParam(const std::wstring& n, ORV::ovValueType t, const CValue& v) {
    auto* p = Own(std::make_unique<ParamItem>(n, t));
    p->Store(v);
    p->def = p->value;
    params.push_back(p);
    return p;
}

ParamItem* PropertyItem::FindParam(const std::wstring& n) const {
    for (ParamItem* p : params)
        if (p->name == n) return p;
    return nullptr;
}

bool PropertyItem::RemoveParam(ParamItem* p) {
    auto it = std::find(params.begin(), params.end(), p);
    if (it == params.end()) return false;
    params.erase(it);
    Disown(p);
    return true;
}

// --- Objects -----------------------------------------------------------------------------------

Object3D::Object3D(int cid, std::wstring t, std::wstring n) : Item(cid, std::move(n)), type(std::move(t)) {}

Object3D* Object3D::Model() const {
    for (Object3D* p = parent3D; p; p = p->parent3D)
        if (p->IsModel()) return p;
    return nullptr;
}

ParamItem* Object3D::LocalParam(const std::wstring& n) const {
    return kine && kine->local ? kine->local->FindParam(n) : nullptr;
}

}  // namespace orvhost
