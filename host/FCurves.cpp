// Function curves: keys with interpolation and tangents, their evaluation, and the parameter
// operations that give a parameter a source (curve or expression) or ask about it.
#include <algorithm>
#include <cfloat>
#include <cmath>

#include "AnimHooks.h"

using namespace ORV;

namespace orvhost {

// --- Curve items --------------------------------------------------------------------------------

FCurveItem::FCurveItem() : Item(ovFCurveID, L"FCurve") {}

FCurveItem::~FCurveItem() { keyHandles.clear(); }

FCurveKeyItem::FCurveKeyItem(FCurveItem* c, std::uint64_t s)
    : Item(ovFCurveKeyID, L"Key"), curve(c), serial(s) {
    owner = c;
}

CurveKey* FCurveKeyItem::Key() const {
    std::vector<CurveKey>& keys = curve->keys;
    if (indexHint >= 0 && indexHint < static_cast<long>(keys.size()) &&
        keys[static_cast<std::size_t>(indexHint)].serial == serial)
        return &keys[static_cast<std::size_t>(indexHint)];
    indexHint = curve->IndexOfSerial(serial);
    return indexHint < 0 ? nullptr : &keys[static_cast<std::size_t>(indexHint)];
}

namespace {

double Clamp(double v, double lo, double hi) { return v < lo ? lo : (v > hi ? hi : v); }

// Cubic Bezier in one dimension.
double Bezier(double p0, double p1, double p2, double p3, double s) {
    const double u = 1.0 - s;
    return u * u * u * p0 + 3.0 * u * u * s * p1 + 3.0 * u * s * s * p2 + s * s * s * p3;
}

double BezierSlope(double p0, double p1, double p2, double p3, double s) {
    const double u = 1.0 - s;
    return 3.0 * (u * u * (p1 - p0) + 2.0 * u * s * (p2 - p1) + s * s * (p3 - p2));
}

}  // namespace

double EvalCubicSegment(const CurveKey& a, const CurveKey& b, double time) {
    const double h = b.time - a.time;
    if (!(h > 0.0)) return a.value;
    // Tangent handles are kept inside the segment in time, scaled along their own direction,
    // so that the curve's time runs forward and a time meets the curve once.
    double rx = a.rightX, ry = a.rightY;
    if (rx > h) {
        ry *= h / rx;
        rx = h;
    } else if (rx < 0.0) {
        rx = 0.0;
    }
    double lx = b.leftX, ly = b.leftY;
    if (lx < -h) {
        ly *= -h / lx;
        lx = -h;
    } else if (lx > 0.0) {
        lx = 0.0;
    }
    const double x0 = a.time, x1 = a.time + rx, x2 = b.time + lx, x3 = b.time;
    const double y0 = a.value, y1 = a.value + ry, y2 = b.value + ly, y3 = b.value;
    // Solve x(s) = time: Newton steps kept inside a shrinking bracket, bisection otherwise.
    double lo = 0.0, hi = 1.0;
    double s = Clamp((time - x0) / h, 0.0, 1.0);
    for (int i = 0; i < 100; ++i) {
        const double x = Bezier(x0, x1, x2, x3, s);
        const double err = x - time;
        if (std::fabs(err) <= 1e-15 * h) break;
        if (err < 0.0)
            lo = s;
        else
            hi = s;
        const double dx = BezierSlope(x0, x1, x2, x3, s);
        double next = dx > 0.0 ? s - err / dx : -1.0;
        if (!(next > lo && next < hi)) next = 0.5 * (lo + hi);
        if (next == s) break;
        s = next;
    }
    return Bezier(y0, y1, y2, y3, s);
}

double FCurveItem::Eval(double time, bool* has) const {
    if (has) *has = !keys.empty();
    if (keys.empty()) return 0.0;
    if (std::isnan(time) || time <= keys.front().time) return keys.front().value;
    if (time >= keys.back().time) return keys.back().value;
    const_cast<FCurveItem*>(this)->FixTangents();
    auto it = std::upper_bound(keys.begin(), keys.end(), time,
                               [](double t, const CurveKey& k) { return t < k.time; });
    // Keys out of order (a damaged file's times, a NaN among them) can leave the search at
    // either end.
    if (it == keys.end()) return keys.back().value;
    if (it == keys.begin()) return keys.front().value;
    const CurveKey& b = *it;
    const CurveKey& a = *(it - 1);
    switch (a.interpolation) {
        case ovConstantInterpolation:
            return a.value;
        case ovLinearInterpolation: {
            const double h = b.time - a.time;
            return h > 0.0 ? a.value + (b.value - a.value) * (time - a.time) / h : a.value;
        }
        default:
            return EvalCubicSegment(a, b, time);
    }
}

// Automatic tangents: the slope through the two neighbours (the one segment's slope at either
// end of the curve), a third of the neighbouring interval long on each side. A key with the
// horizontal constraint stays flat.
void FCurveItem::FixTangents() {
    if (!tangentsDirty && !rangeDirty) return;
    const std::size_t n = keys.size();
    std::size_t first = 0, last = n;
    if (!tangentsDirty) {
        first = dirtyLo;
        last = dirtyHi + 1 < n ? dirtyHi + 1 : n;
    }
    tangentsDirty = false;
    rangeDirty = false;
    for (std::size_t i = first; i < last; ++i) {
        CurveKey& k = keys[i];
        if (!k.autoTangents) continue;
        const double dtPrev = i > 0 ? k.time - keys[i - 1].time : 0.0;
        const double dtNext = i + 1 < n ? keys[i + 1].time - k.time : 0.0;
        double slope = 0.0;
        if (i > 0 && i + 1 < n) {
            const double span = keys[i + 1].time - keys[i - 1].time;
            slope = span > 0.0 ? (keys[i + 1].value - keys[i - 1].value) / span : 0.0;
        } else if (i + 1 < n) {
            slope = dtNext > 0.0 ? (keys[i + 1].value - k.value) / dtNext : 0.0;
        } else if (i > 0) {
            slope = dtPrev > 0.0 ? (k.value - keys[i - 1].value) / dtPrev : 0.0;
        }
        if (k.constraints & ovHorizontalTangentConstraint) slope = 0.0;
        const double lenPrev = (dtPrev > 0.0 ? dtPrev : (dtNext > 0.0 ? dtNext : 1.0)) / 3.0;
        const double lenNext = (dtNext > 0.0 ? dtNext : (dtPrev > 0.0 ? dtPrev : 1.0)) / 3.0;
        k.leftX = -lenPrev;
        k.leftY = -slope * lenPrev;
        k.rightX = lenNext;
        k.rightY = slope * lenNext;
    }
}

void FCurveItem::Changed() {
    tangentsDirty = true;
    ChangedKeys();
}

void FCurveItem::ChangedKeys() {
    if (editDepth == 0) FixTangents();
    // Handles of keys that no longer exist go away with them.
    if (keysRemoved) {
        keysRemoved = false;
        for (auto it = keyHandles.begin(); it != keyHandles.end();) {
            if (IndexOfSerial(it->first) < 0)
                it = keyHandles.erase(it);
            else
                ++it;
        }
    }
    TheHost().Touch();
}

void FCurveItem::TangentsEdited() { TheHost().Touch(); }

long FCurveItem::FindKey(double time, double tolerance) const {
    if (tolerance < 0.0) tolerance = kDefaultKeyTolerance;
    // Keys are ordered by time: only those from time - tolerance on can be within reach. One
    // key more on the early side keeps a key exactly at the tolerance despite rounding.
    std::size_t i =
        static_cast<std::size_t>(std::lower_bound(keys.begin(), keys.end(), time - tolerance,
                                                  [](const CurveKey& k, double t) { return k.time < t; }) -
                                 keys.begin());
    if (i > 0) --i;
    long best = -1;
    double bestDist = 0.0;
    for (; i < keys.size(); ++i) {
        if (keys[i].time - time > tolerance) break;
        const double d = std::fabs(keys[i].time - time);
        if (d <= tolerance && (best < 0 || d < bestDist)) {
            best = static_cast<long>(i);
            bestDist = d;
        }
    }
    return best;
}

long FCurveItem::IndexOfSerial(std::uint64_t s) const {
    for (std::size_t i = 0; i < keys.size(); ++i)
        if (keys[i].serial == s) return static_cast<long>(i);
    return -1;
}

long FCurveItem::SetKey(double time, double value, int interp, double lx, double ly, double rx, double ry,
                        double tolerance) {
    long i = FindKey(time, tolerance);
    if (i < 0) {
        CurveKey k;
        k.time = time;
        k.serial = nextSerial++;
        auto it = std::upper_bound(keys.begin(), keys.end(), time,
                                   [](double t, const CurveKey& key) { return t < key.time; });
        i = static_cast<long>(it - keys.begin());
        keys.insert(it, k);
        // Keys from the insertion on moved up by one.
        if (rangeDirty) {
            if (dirtyLo >= static_cast<std::size_t>(i)) ++dirtyLo;
            if (dirtyHi >= static_cast<std::size_t>(i)) ++dirtyHi;
        }
    }
    CurveKey& k = keys[static_cast<std::size_t>(i)];
    k.value = value;
    k.interpolation = interp;
    const bool given = lx != DBL_MAX || ly != DBL_MAX || rx != DBL_MAX || ry != DBL_MAX;
    k.autoTangents = true;
    // The key's own automatic tangents and its neighbours' are all it can change.
    const std::size_t lo = i > 0 ? static_cast<std::size_t>(i - 1) : 0;
    const std::size_t hi = static_cast<std::size_t>(i + 1);
    if (!tangentsDirty) {
        dirtyLo = rangeDirty && dirtyLo < lo ? dirtyLo : lo;
        dirtyHi = rangeDirty && dirtyHi > hi ? dirtyHi : hi;
        rangeDirty = true;
    }
    if (given) {
        // Components left out keep what the automatic rule gives them now.
        FixTangents();
        CurveKey& kk = keys[static_cast<std::size_t>(i)];
        kk.autoTangents = false;
        if (lx != DBL_MAX) kk.leftX = lx;
        if (ly != DBL_MAX) kk.leftY = ly;
        if (rx != DBL_MAX) kk.rightX = rx;
        if (ry != DBL_MAX) kk.rightY = ry;
    }
    ChangedKeys();
    return i;
}

FCurveKeyItem* FCurveItem::Handle(long index) {
    if (index < 0 || index >= static_cast<long>(keys.size())) return nullptr;
    const std::uint64_t s = keys[static_cast<std::size_t>(index)].serial;
    auto& h = keyHandles[s];
    if (!h) h = std::make_unique<FCurveKeyItem>(this, s);
    return h.get();
}

// --- Parameter sources --------------------------------------------------------------------------

void RemoveParamSource(ParamItem* p) {
    if (!p || !p->source) return;
    Item* old = p->source;
    p->source = nullptr;
    p->Disown(old);
    TheHost().Touch();
}

FCurveItem* AddParamCurve(ParamItem* p, int type) {
    if (!p || type != ovStandardFCurve) return nullptr;
    RemoveParamSource(p);
    FCurveItem* c = p->Own(std::make_unique<FCurveItem>());
    c->curveType = type;
    p->source = c;
    TheHost().Touch();
    return c;
}

CValue NumberAsParamValue(const ParamItem* p, double v) {
    if (!p) return CValue(v);
    if (!p->min.IsEmpty() && v < static_cast<double>(p->min)) v = static_cast<double>(p->min);
    if (!p->max.IsEmpty() && v > static_cast<double>(p->max)) v = static_cast<double>(p->max);
    switch (p->type) {
        case ovBool:
            return CValue(static_cast<bool>(CValue(v)));
        case ovInt2:
        case ovInt4:
        case ovUByte:
        case ovUInt4:
        case ovInt8:
            return CValue(static_cast<int>(CValue(v)));
        case ovFloat:
            return CValue(static_cast<float>(v));
        default:
            return CValue(v);
    }
}

bool IsParamAnimated(const ParamItem* p, int sourceType) {
    if (!p) return false;
    const bool curve = p->source && p->source->classId == ovFCurveID;
    const bool expr = p->source && p->source->classId == ovExpressionID;
    switch (sourceType) {
        case ovFCurveSource:
            return curve;
        case ovExpressionSource:
            return expr;
        case ovOperatorSource:
            return !OperatorsWriting(p).empty();
        case ovConstraintSource: {
            auto* state = dynamic_cast<const KineStateItem*>(p->owner);
            if (!state || !state->object || !state->object->kine) return false;
            const bool pos = p->name.rfind(L"pos", 0) == 0;
            const bool rot = p->name.rfind(L"rot", 0) == 0 && p->name != L"rotorder";
            for (ConstraintItem* c : state->object->kine->constraints) {
                if (pos && c->name == L"Position Cns") return true;
                if (rot && c->name == L"Orientation Cns") return true;
            }
            return false;
        }
        case ovAnySource:
            return curve || expr || !OperatorsWriting(p).empty();
        default:
            return false;
    }
}

namespace {

void CollectParams(ParamItem* p, int sourceType, CRefArray& out) {
    if (IsParamAnimated(p, sourceType)) out.Add(p->Ref());
    for (ParamItem* sub : p->params) CollectParams(sub, sourceType, out);
}

void CollectObject(Object3D* o, int sourceType, bool recursive, CRefArray& out) {
    if (o->primitive)
        for (ParamItem* p : static_cast<PropertyItem*>(o->primitive)->params)
            CollectParams(p, sourceType, out);
    if (!recursive) return;
    if (o->kine) {
        if (o->kine->local) CollectParams(o->kine->local, sourceType, out);
        if (o->kine->global) CollectParams(o->kine->global, sourceType, out);
    }
    if (JointItem* j = JointOf(o)) CollectParams(j, sourceType, out);
    for (PropertyItem* prop : o->properties)
        for (ParamItem* p : prop->params) CollectParams(p, sourceType, out);
    for (Object3D* c : o->children) CollectObject(c, sourceType, true, out);
}

template <class T>
T* Resolve(const CRef& ref) {
    return dynamic_cast<T*>(TheStore().Resolve(ref));
}

CStatus Failed() { return CStatus(CStatus::Fail); }

}  // namespace

}  // namespace orvhost

using namespace orvhost;

// --- Parameter handle operations ----------------------------------------------------------------

CRef Parameter::GetSource() const {
    auto* p = Resolve<ParamItem>(m_ref);
    return p && p->source ? p->source->Ref() : CRef();
}

bool Parameter::IsAnimated(int sourceType) const {
    return IsParamAnimated(Resolve<ParamItem>(m_ref), sourceType);
}

CStatus Parameter::AddFCurve(int type, FCurve& result) {
    result = FCurve();
    auto* p = Resolve<ParamItem>(m_ref);
    if (!p || p->type == ovRef || p->type == ovString || p->type == ovLPStr) return Failed();
    FCurveItem* c = AddParamCurve(p, type);
    if (!c) return CStatus(CStatus::InvalidArgument);
    result = FCurve(c->Ref());
    return CStatus::OK;
}

CStatus Parameter::PutExpression(const CString& text) {
    auto* p = Resolve<ParamItem>(m_ref);
    if (!p) return Failed();
    std::wstring error;
    if (!SetParamExpression(p, text.GetWideString(), error)) {
        TheHost().Log(error, ovWarning);
        return CStatus(CStatus::InvalidArgument);
    }
    return CStatus::OK;
}

CRefArray ProjectItem::GetAnimatedParameters(int sourceType, bool recursive) const {
    CRefArray out;
    Item* it = TheStore().Resolve(m_ref);
    if (!it) return out;
    if (auto* o = dynamic_cast<Object3D*>(it)) {
        CollectObject(o, sourceType, recursive, out);
    } else if (auto* p = dynamic_cast<ParamItem*>(it)) {
        for (ParamItem* sub : p->params) {
            if (recursive)
                CollectParams(sub, sourceType, out);
            else if (IsParamAnimated(sub, sourceType))
                out.Add(sub->Ref());
        }
    } else if (auto* prop = dynamic_cast<PropertyItem*>(it)) {
        for (ParamItem* p : prop->params) {
            if (recursive)
                CollectParams(p, sourceType, out);
            else if (IsParamAnimated(p, sourceType))
                out.Add(p->Ref());
        }
    } else if (auto* k = dynamic_cast<KineItem*>(it)) {
        if (k->local) CollectParams(k->local, sourceType, out);
        if (k->global) CollectParams(k->global, sourceType, out);
    }
    return out;
}

// --- FCurve -------------------------------------------------------------------------------------

namespace {

// Bounds of a key range; the largest double on one side leaves that side open, on both sides
// it means the whole curve.
bool InRange(double t, double from, double to) {
    const bool openLow = from == DBL_MAX;
    const bool openHigh = to == DBL_MAX;
    return (openLow || t >= from) && (openHigh || t <= to);
}

}  // namespace

CStatus FCurve::BeginEdit() {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return Failed();
    ++c->editDepth;
    return CStatus::OK;
}

CStatus FCurve::EndEdit() {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c || c->editDepth == 0) return Failed();
    if (--c->editDepth == 0) c->FixTangents();
    TheHost().Touch();
    return CStatus::OK;
}

CStatus FCurve::AddKey(const CTime& time, const CValue& value, int interpolation, double leftTanX,
                       double leftTanY, double rightTanX, double rightTanY, bool overwrite,
                       double tolerance) {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return Failed();
    if (interpolation < ovConstantInterpolation || interpolation > ovCubicInterpolation)
        return CStatus(CStatus::InvalidArgument);
    const double t = static_cast<double>(time);
    if (!std::isfinite(t)) return CStatus(CStatus::InvalidArgument);
    if (!overwrite && c->FindKey(t, tolerance) >= 0) return CStatus::OK;
    c->SetKey(t, static_cast<double>(value), interpolation, leftTanX, leftTanY, rightTanX, rightTanY,
              tolerance);
    return CStatus::OK;
}

CStatus FCurve::SetKeys(const CTimeArray& times, const CValueArray& values, bool fixTangents) {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return Failed();
    if (times.GetCount() != values.GetCount()) return CStatus(CStatus::InvalidArgument);
    std::vector<CurveKey> next;
    next.reserve(static_cast<std::size_t>(times.GetCount()));
    for (long i = 0; i < times.GetCount(); ++i) {
        CurveKey k;
        k.time = static_cast<double>(times[i]);
        if (!std::isfinite(k.time)) return CStatus(CStatus::InvalidArgument);
        k.value = static_cast<double>(values[i]);
        k.interpolation = c->interpolation;
        k.autoTangents = fixTangents;
        k.leftX = -1.0 / 3.0;
        k.rightX = 1.0 / 3.0;
        next.push_back(k);
    }
    std::stable_sort(next.begin(), next.end(),
                     [](const CurveKey& a, const CurveKey& b) { return a.time < b.time; });
    // One key per time: a later entry of the arrays wins.
    std::vector<CurveKey> unique;
    for (const CurveKey& k : next) {
        if (!unique.empty() && unique.back().time == k.time)
            unique.back() = k;
        else
            unique.push_back(k);
    }
    for (CurveKey& k : unique) k.serial = c->nextSerial++;
    c->keys.swap(unique);
    c->keysRemoved = true;
    c->Changed();
    return CStatus::OK;
}

CStatus FCurve::RemoveKeys(const CTime& from, const CTime& to, bool) {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return Failed();
    const double f = static_cast<double>(from), t = static_cast<double>(to);
    const auto gone = std::remove_if(c->keys.begin(), c->keys.end(),
                                     [&](const CurveKey& k) { return InRange(k.time, f, t); });
    if (gone != c->keys.end()) c->keysRemoved = true;
    c->keys.erase(gone, c->keys.end());
    c->Changed();
    return CStatus::OK;
}

FCurveKey FCurve::GetKey(const CTime& time, double tolerance) const {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return FCurveKey();
    FCurveKeyItem* h = c->Handle(c->FindKey(static_cast<double>(time), tolerance));
    return h ? FCurveKey(h->Ref()) : FCurveKey();
}

FCurveKey FCurve::GetKeyAtIndex(long index) const {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return FCurveKey();
    FCurveKeyItem* h = c->Handle(index);
    return h ? FCurveKey(h->Ref()) : FCurveKey();
}

long FCurve::GetNumKeys(const CTime& from, const CTime& to) const {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return 0;
    const double f = static_cast<double>(from), t = static_cast<double>(to);
    long n = 0;
    for (const CurveKey& k : c->keys)
        if (InRange(k.time, f, t)) ++n;
    return n;
}

bool FCurve::KeyExists(const CTime& time, double tolerance) const {
    auto* c = Resolve<FCurveItem>(m_ref);
    return c && c->FindKey(static_cast<double>(time), tolerance) >= 0;
}

long FCurve::GetKeyIndex(const CTime& time, double tolerance) const {
    auto* c = Resolve<FCurveItem>(m_ref);
    return c ? c->FindKey(static_cast<double>(time), tolerance) : -1;
}

CRefArray FCurve::GetKeys() const {
    CRefArray out;
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return out;
    for (long i = 0; i < static_cast<long>(c->keys.size()); ++i) out.Add(c->Handle(i)->Ref());
    return out;
}

int FCurve::GetInterpolation() const {
    auto* c = Resolve<FCurveItem>(m_ref);
    return c ? c->interpolation : 0;
}

CStatus FCurve::PutInterpolation(int interpolation) {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return Failed();
    if (interpolation < ovConstantInterpolation || interpolation > ovCubicInterpolation)
        return CStatus(CStatus::InvalidArgument);
    c->interpolation = interpolation;
    for (CurveKey& k : c->keys) k.interpolation = interpolation;
    c->Changed();
    return CStatus::OK;
}

CValue FCurve::Eval(const CTime& time) const {
    auto* c = Resolve<FCurveItem>(m_ref);
    if (!c) return CValue();
    bool has = false;
    const double v = c->Eval(ResolveTime(static_cast<double>(time)), &has);
    if (has) return CValue(v);
    auto* p = dynamic_cast<ParamItem*>(c->owner);
    return p ? p->value : CValue(0.0);
}

Parameter FCurve::GetParent3DParameter() const {
    auto* c = Resolve<FCurveItem>(m_ref);
    return c && c->owner ? Parameter(c->owner->Ref()) : Parameter();
}

// --- FCurveKey ----------------------------------------------------------------------------------

namespace {

struct KeyRef {
    FCurveKeyItem* handle = nullptr;
    CurveKey* key = nullptr;
    explicit operator bool() const { return key != nullptr; }
};

KeyRef ResolveKey(const CRef& ref) {
    KeyRef r;
    r.handle = Resolve<FCurveKeyItem>(ref);
    if (r.handle) r.key = r.handle->Key();
    return r;
}

// After a tangent of a key with the continuity constraint changed, the other tangent keeps its
// time extent and takes the same slope, so that the curve stays smooth through the key.
void KeepContinuity(CurveKey& k, bool leftChanged) {
    if (k.constraints & ovHorizontalTangentConstraint) {
        k.leftY = 0.0;
        k.rightY = 0.0;
    }
    if (!(k.constraints & ovTangentContinuityConstraint)) return;
    if (leftChanged) {
        if (k.leftX == 0.0) return;
        const double slope = k.leftY / k.leftX;
        if (k.rightX <= 0.0) k.rightX = -k.leftX;
        k.rightY = slope * k.rightX;
    } else {
        if (k.rightX == 0.0) return;
        const double slope = k.rightY / k.rightX;
        if (k.leftX >= 0.0) k.leftX = -k.rightX;
        k.leftY = slope * k.leftX;
    }
}

CStatus PutTangent(const CRef& ref, double v, bool left, bool x) {
    KeyRef r = ResolveKey(ref);
    if (!r) return Failed();
    if (!std::isfinite(v)) return CStatus(CStatus::InvalidArgument);
    r.handle->curve->FixTangents();
    CurveKey& k = *r.key;
    k.autoTangents = false;
    (left ? (x ? k.leftX : k.leftY) : (x ? k.rightX : k.rightY)) = v;
    KeepContinuity(k, left);
    // An explicit tangent changes no automatic one: those depend on key times and values.
    r.handle->curve->TangentsEdited();
    return CStatus::OK;
}

double GetTangent(const CRef& ref, bool left, bool x) {
    KeyRef r = ResolveKey(ref);
    if (!r) return 0.0;
    r.handle->curve->FixTangents();
    const CurveKey& k = *r.key;
    return left ? (x ? k.leftX : k.leftY) : (x ? k.rightX : k.rightY);
}

}  // namespace

CTime FCurveKey::GetTime() const {
    KeyRef r = ResolveKey(m_ref);
    return r ? CTime(r.key->time) : CTime();
}

CStatus FCurveKey::PutTime(const CTime& time) {
    KeyRef r = ResolveKey(m_ref);
    if (!r) return Failed();
    const double t = static_cast<double>(time);
    if (!std::isfinite(t)) return CStatus(CStatus::InvalidArgument);
    FCurveItem* c = r.handle->curve;
    const long i = c->IndexOfSerial(r.handle->serial);
    // Keys keep their order: a key may not reach or pass its neighbours.
    if (i > 0 && t <= c->keys[static_cast<std::size_t>(i - 1)].time) return Failed();
    if (i + 1 < static_cast<long>(c->keys.size()) && t >= c->keys[static_cast<std::size_t>(i + 1)].time)
        return Failed();
    r.key->time = t;
    c->Changed();
    return CStatus::OK;
}

CValue FCurveKey::GetValue() const {
    KeyRef r = ResolveKey(m_ref);
    return r ? CValue(r.key->value) : CValue();
}

CStatus FCurveKey::PutValue(const CValue& value) {
    KeyRef r = ResolveKey(m_ref);
    if (!r) return Failed();
    r.key->value = static_cast<double>(value);
    r.handle->curve->Changed();
    return CStatus::OK;
}

int FCurveKey::GetInterpolation() const {
    KeyRef r = ResolveKey(m_ref);
    return r ? r.key->interpolation : 0;
}

CStatus FCurveKey::PutInterpolation(int interpolation) {
    KeyRef r = ResolveKey(m_ref);
    if (!r) return Failed();
    if (interpolation < ovConstantInterpolation || interpolation > ovCubicInterpolation)
        return CStatus(CStatus::InvalidArgument);
    r.key->interpolation = interpolation;
    r.handle->curve->Changed();
    return CStatus::OK;
}

double FCurveKey::GetLeftTanX() const { return GetTangent(m_ref, true, true); }
double FCurveKey::GetLeftTanY() const { return GetTangent(m_ref, true, false); }
double FCurveKey::GetRightTanX() const { return GetTangent(m_ref, false, true); }
double FCurveKey::GetRightTanY() const { return GetTangent(m_ref, false, false); }
CStatus FCurveKey::PutLeftTanX(double v) { return PutTangent(m_ref, v, true, true); }
CStatus FCurveKey::PutLeftTanY(double v) { return PutTangent(m_ref, v, true, false); }
CStatus FCurveKey::PutRightTanX(double v) { return PutTangent(m_ref, v, false, true); }
CStatus FCurveKey::PutRightTanY(double v) { return PutTangent(m_ref, v, false, false); }

bool FCurveKey::GetConstraint(int kind) const {
    KeyRef r = ResolveKey(m_ref);
    return r && kind != 0 && (r.key->constraints & kind) == kind;
}

CStatus FCurveKey::PutConstraint(int kind, bool on) {
    KeyRef r = ResolveKey(m_ref);
    if (!r) return Failed();
    if (kind <= 0 || kind > ovAllKeyConstraints) return CStatus(CStatus::InvalidArgument);
    if (on)
        r.key->constraints |= kind;
    else
        r.key->constraints &= ~kind;
    if (on && (kind & ovHorizontalTangentConstraint)) {
        r.handle->curve->FixTangents();
        r.key->leftY = 0.0;
        r.key->rightY = 0.0;
    }
    // Of the constraints only the horizontal one enters automatic tangents, and only the key's own.
    if (r.key->autoTangents && (kind & ovHorizontalTangentConstraint))
        r.handle->curve->Changed();
    else
        r.handle->curve->TangentsEdited();
    return CStatus::OK;
}

long FCurveKey::GetIndex() const {
    KeyRef r = ResolveKey(m_ref);
    return r ? r.handle->curve->IndexOfSerial(r.handle->serial) : -1;
}
