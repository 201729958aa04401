// Evaluation of parameters and poses at a time. A read evaluates what drives the value, in this
// order: the parameters' own values or their sources (curves, expressions), then constraints
// (position, orientation), then IK chains, then the custom operators that write the object,
// each after its inputs. The global pose is local * neutral * parent global (row convention,
// the left factor applied first).
//
// Results are cached per object for one time and one scene revision: any edit bumps the
// revision and so drops every cached value, while an operator's write to its own output is a
// result of the evaluation and bumps nothing. An operator that always evaluates runs again in
// every pass (one read from outside the evaluation), and so does everything that depended on
// it. A read that comes back to an object being evaluated (a cycle) gets the pose reached so
// far, that is the pose without the stage that is running.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <unordered_map>

#include "AnimHooks.h"

using namespace ORV;
using ORV::MATH::CRotation;
using ORV::MATH::CVector3;

namespace orvhost {

namespace {

constexpr double kDegToRad = 0.017453292519943295;
constexpr double kRadToDeg = 57.29577951308232;

const wchar_t* const kTransformNames[9] = {L"posx", L"posy", L"posz", L"rotx", L"roty",
                                           L"rotz", L"sclx", L"scly", L"sclz"};
const wchar_t* const kNeutralNames[9] = {L"nposx", L"nposy", L"nposz", L"nrotx", L"nroty",
                                         L"nrotz", L"nsclx", L"nscly", L"nsclz"};

int TransformIndex(const std::wstring& name) {
    for (int i = 0; i < 9; ++i)
        if (name == kTransformNames[i]) return i;
    return -1;
}

struct ObjectCache {
    double time = 0.0;
    std::uint64_t revision = 0;
    std::uint64_t pass = 0;
    bool isVolatile = false;
    EvalPose pose;
    // While the object is being evaluated: the pose reached so far, which a read that comes
    // back to it (a cycle) gets.
    bool running = false;
    EvalPose partial;
};

struct ChainCache {
    double time = 0.0;
    std::uint64_t revision = 0;
    std::uint64_t pass = 0;
    bool isVolatile = false;
    bool solved = false;
    std::vector<CTransformation> bones;
};

struct Frame {
    bool isVolatile = false;
};

struct EvalState {
    const Scene* scene = nullptr;
    std::uint64_t clearedRevision = 0;
    std::unordered_map<std::uint64_t, ObjectCache> objects;
    std::unordered_map<std::uint64_t, ChainCache> chains;
    std::vector<Frame> frames;
    std::uint64_t pass = 0;
    int depth = 0;
};

EvalState& State() {
    static EvalState s;
    return s;
}

std::uint64_t Revision() { return TheHost().scene->revision; }

// Enters an evaluation; the outermost one starts a pass and drops what an edit made stale.
class Enter {
public:
    Enter() {
        EvalState& s = State();
        if (s.depth++ == 0) {
            ++s.pass;
            const Scene* scene = TheHost().scene.get();
            if (s.scene != scene || s.clearedRevision != scene->revision) {
                s.objects.clear();
                s.chains.clear();
                s.scene = scene;
                s.clearedRevision = scene->revision;
            }
        }
    }
    ~Enter() { --State().depth; }
    Enter(const Enter&) = delete;
    Enter& operator=(const Enter&) = delete;
};

// A frame of the evaluation stack, to learn whether what it computed may be cached.
class FrameGuard {
public:
    FrameGuard() { State().frames.push_back(Frame{}); }
    ~FrameGuard() {
        EvalState& s = State();
        const bool vol = s.frames.back().isVolatile;
        s.frames.pop_back();
        if (vol) MarkVolatile();
    }
    bool IsVolatile() const { return State().frames.back().isVolatile; }
    FrameGuard(const FrameGuard&) = delete;
    FrameGuard& operator=(const FrameGuard&) = delete;
};

bool CacheHit(double time, std::uint64_t revision, std::uint64_t pass, bool isVolatile, double t) {
    const EvalState& s = State();
    return time == t && revision == Revision() && (!isVolatile || pass == s.pass);
}

// A parameter's value from its own value, its source, and operators that write it.
CValue DrivenValue(ParamItem* p, double time) {
    CValue v = SourceValue(p, time);
    if (!HasOperatorsWriting(p)) return v;
    for (OperatorItem* op : OperatorsWriting(p)) {
        OperatorItem::Result r;
        if (RunOperatorFor(op, p, time, r)) v = r.value;
    }
    return v;
}

// The local parameters that evaluation reads, looked up by name once per kinematic state:
// 0 to 8 the pose (kTransformNames), 9 to 17 the neutral pose, 18 the rotation order.
struct ParamSlots {
    ParamItem* param[19] = {};
    std::uint64_t id[19] = {};
    std::size_t count = 0;
    std::uint64_t checkedRevision = 0;  // parameters only come and go with an edit
};

const ParamSlots& Slots(Object3D* obj) {
    static const ParamSlots none;
    KineStateItem* local = obj->kine ? obj->kine->local : nullptr;
    if (!local) return none;
    static std::unordered_map<std::uint64_t, ParamSlots> cache;
    static const Scene* cachedScene = nullptr;
    if (cachedScene != TheHost().scene.get()) {
        cache.clear();
        cachedScene = TheHost().scene.get();
    }
    ParamSlots& slots = cache[local->id];
    const std::uint64_t revision = Revision();
    if (slots.checkedRevision == revision && slots.count > 0) return slots;
    bool valid = slots.count == local->params.size() && slots.count > 0;
    for (int i = 0; valid && i < 19; ++i)
        if (slots.param[i] && TheStore().Resolve(slots.id[i]) != slots.param[i]) valid = false;
    if (valid) {
        slots.checkedRevision = revision;
        return slots;
    }
    slots = ParamSlots();
    slots.checkedRevision = revision;
    slots.count = local->params.size();
    for (ParamItem* p : local->params) {
        for (int i = 0; i < 9; ++i) {
            if (p->name == kTransformNames[i]) slots.param[i] = p;
            if (p->name == kNeutralNames[i]) slots.param[9 + i] = p;
        }
        if (p->name == L"rotorder") slots.param[18] = p;
    }
    for (int i = 0; i < 19; ++i) slots.id[i] = slots.param[i] ? slots.param[i]->id : 0;
    return slots;
}

double Num(ParamItem* p, double time) { return p ? static_cast<double>(DrivenValue(p, time)) : 0.0; }

MATH::RotationOrder Order(Object3D* obj, double time) {
    ParamItem* p = Slots(obj).param[18];
    int o = p ? static_cast<int>(DrivenValue(p, time)) : 0;
    if (o < 0 || o > 5) o = 0;
    return static_cast<MATH::RotationOrder>(o);
}

CTransformation FromValues(const double v[9], MATH::RotationOrder order) {
    CTransformation t;
    t.SetScalingFromValues(v[6], v[7], v[8]);
    t.SetRotationFromXYZAnglesValues(v[3] * kDegToRad, v[4] * kDegToRad, v[5] * kDegToRad, order);
    t.SetTranslationFromValues(v[0], v[1], v[2]);
    return t;
}

// Components of a pose as its parameters hold them: translation, angles in degrees in the
// given order, scaling.
void ToValues(const CTransformation& t, MATH::RotationOrder order, double v[9]) {
    CRotation r = t.GetRotation();
    r.PutRotationOrder(order);
    const CVector3 a = r.GetXYZAngles();
    const CVector3& p = t.GetTranslation();
    const CVector3& s = t.GetScaling();
    v[0] = p.x;
    v[1] = p.y;
    v[2] = p.z;
    v[3] = a.x * kRadToDeg;
    v[4] = a.y * kRadToDeg;
    v[5] = a.z * kRadToDeg;
    v[6] = s.x;
    v[7] = s.y;
    v[8] = s.z;
}

// The local pose (neutral: the neutral pose) that an object's parameters give.
CTransformation FromParams(Object3D* obj, double time, bool neutral) {
    const ParamSlots& slots = Slots(obj);
    double v[9];
    for (int i = 0; i < 9; ++i) v[i] = Num(slots.param[neutral ? 9 + i : i], time);
    return FromValues(v, Order(obj, time));
}

CTransformation Product(const CTransformation& a, const CTransformation& b) {
    CTransformation t;
    t.Mul(a, b);
    return t;
}

// Global parameters with a source replace that component of the global pose.
bool ApplyGlobalSources(Object3D* obj, double time, CTransformation& global) {
    KineStateItem* g = obj->kine ? obj->kine->global : nullptr;
    if (!g || g->params.empty()) return false;
    bool any = false;
    double v[9];
    bool decomposed = false;
    const MATH::RotationOrder order = Order(obj, time);
    for (ParamItem* p : g->params) {
        if (!p->source && !HasOperatorsWriting(p)) continue;  // the common case, kept cheap
        const int i = TransformIndex(p->name);
        if (i < 0) continue;
        if (!decomposed) {
            ToValues(global, order, v);
            decomposed = true;
        }
        v[i] = static_cast<double>(DrivenValue(p, time));
        any = true;
    }
    if (any) global = FromValues(v, order);
    return any;
}

Object3D* ConstrainingObject(std::uint64_t id) { return dynamic_cast<Object3D*>(TheStore().Resolve(id)); }

// Position constraints put the object at the (mean) position of their constraining objects;
// orientation constraints give it their (mean) orientation. Constraining objects that are gone
// count for nothing.
bool ApplyConstraints(Object3D* obj, double time, CTransformation& global) {
    if (!obj->kine || obj->kine->constraints.empty()) return false;
    bool any = false;
    for (ConstraintItem* c : obj->kine->constraints) {
        if (c->name == L"Position Cns") {
            CVector3 sum;
            std::size_t n = 0;
            for (std::uint64_t id : c->constraining)
                if (Object3D* d = ConstrainingObject(id)) {
                    sum += EvaluateObject(d, time).global.GetTranslation();
                    ++n;
                }
            if (n == 0) continue;
            global.SetTranslation(sum / static_cast<double>(n));
            any = true;
        } else if (c->name == L"Orientation Cns") {
            MATH::CQuaternion first, sum;
            std::size_t n = 0;
            for (std::uint64_t id : c->constraining) {
                Object3D* d = ConstrainingObject(id);
                if (!d) continue;
                const MATH::CQuaternion q = EvaluateObject(d, time).global.GetRotationQuaternion();
                if (n++ == 0) {
                    first = sum = q;
                    continue;
                }
                const double sign = q.Dot(first) < 0.0 ? -1.0 : 1.0;
                sum.Set(sum.w + sign * q.w, sum.x + sign * q.x, sum.y + sign * q.y, sum.z + sign * q.z);
            }
            if (n == 0) continue;
            sum.NormalizeInPlace();
            global.SetRotationFromQuaternion(sum);
            any = true;
        }
    }
    return any;
}

const std::vector<CTransformation>* SolvedChain(const ChainParts& chain, double time) {
    EvalState& s = State();
    ChainCache& c = s.chains[chain.root->id];
    if (CacheHit(c.time, c.revision, c.pass, c.isVolatile, time)) {
        if (c.isVolatile) MarkVolatile();
        return c.solved ? &c.bones : nullptr;
    }
    const std::uint64_t rev = Revision();
    std::vector<CTransformation> bones;
    bool solved;
    bool vol;
    {
        FrameGuard frame;
        solved = SolveChain(chain, time, bones);
        vol = frame.IsVolatile();
    }
    ChainCache& entry = s.chains[chain.root->id];  // the map may have grown meanwhile
    entry.time = time;
    entry.revision = Revision() == rev ? rev : 0;
    entry.pass = s.pass;
    entry.isVolatile = vol;
    entry.solved = solved;
    entry.bones = std::move(bones);
    return entry.solved ? &entry.bones : nullptr;
}

EvalPose Compute(Object3D* obj, double time, EvalPose& partial) {
    EvalPose pose;
    CTransformation parent;
    if (obj->parent3D) parent = EvaluateObject(obj->parent3D, time).global;
    const CTransformation np = Product(NeutralTransform(obj, time), parent);
    pose.local = FromParams(obj, time, false);
    pose.global = Product(pose.local, np);
    partial = pose;

    auto fromGlobal = [&](const CTransformation& g) {
        pose.global = g;
        pose.local = MATH::MapWorldPoseToObjectSpace(np, g);
        pose.localFromParams = false;
        partial = pose;
    };

    // 1. Sources on the global parameters.
    CTransformation g = pose.global;
    if (ApplyGlobalSources(obj, time, g)) fromGlobal(g);
    // 2. Constraints.
    g = pose.global;
    if (ApplyConstraints(obj, time, g)) fromGlobal(g);
    // 3. IK chains.
    if (obj->classId == ovChainBoneID) {
        ChainParts chain = ChainOf(obj);
        if (chain.root) {
            const long index = BoneIndex(obj);
            const std::vector<CTransformation>* bones = SolvedChain(chain, time);
            if (bones && index >= 0 && index < static_cast<long>(bones->size()))
                fromGlobal((*bones)[static_cast<std::size_t>(index)]);
        }
    }
    // 4. Custom operators writing the local or the global state, in the order they were
    // connected.
    if (obj->kine) {
        std::vector<OperatorItem*> ops = OperatorsWriting(obj->kine->local);
        for (OperatorItem* op : OperatorsWriting(obj->kine->global)) ops.push_back(op);
        std::stable_sort(ops.begin(), ops.end(), [](const OperatorItem* a, const OperatorItem* b) {
            return a->connectOrder < b->connectOrder;
        });
        for (OperatorItem* op : ops) {
            const bool global = std::find_if(op->ports.begin(), op->ports.end(), [&](const PortItem* p) {
                                    return p->output && p->target == obj->kine->global->id;
                                }) != op->ports.end();
            const Item* target = global ? static_cast<Item*>(obj->kine->global) : obj->kine->local;
            OperatorItem::Result r;
            if (!RunOperatorFor(op, target, time, r)) continue;
            if (global) {
                fromGlobal(r.transform);
            } else {
                pose.local = r.transform;
                pose.global = Product(r.transform, np);
                pose.localFromParams = false;
                partial = pose;
            }
        }
    }
    return pose;
}

// The running operator's own output: its write is a result of the evaluation.
bool CaptureOutput(const Item* target, const CTransformation* t, const CValue* v) {
    OperatorItem* op = RunningOperator();
    if (!op || !target) return false;
    for (PortItem* port : op->ports) {
        if (!port->output || port->target != target->id) continue;
        OperatorItem::Result& r = op->results[target->id];
        r.written = true;
        if (t) r.transform = *t;
        if (v) r.value = *v;
        return true;
    }
    return false;
}

// Writes a parameter's value as an edit: a parameter driven by a curve gets a key at the time.
void StoreParam(ParamItem* p, const CValue& v, double time) {
    if (p->source && p->source->classId == ovFCurveID) {
        auto* c = static_cast<FCurveItem*>(p->source);
        const double value = static_cast<double>(NumberAsParamValue(p, static_cast<double>(v)));
        c->SetKey(ResolveTime(time), value, c->interpolation, DBL_MAX, DBL_MAX, DBL_MAX, DBL_MAX, -1.0);
    }
    p->Store(v);
}

void WriteLocalParams(Object3D* obj, const CTransformation& t, double time) {
    double v[9];
    ToValues(t, Order(obj, ResolveTime(time)), v);
    const ParamSlots& slots = Slots(obj);
    for (int i = 0; i < 9; ++i)
        if (ParamItem* p = slots.param[i]) StoreParam(p, CValue(v[i]), time);
    TheHost().Touch();
}

}  // namespace

bool AcceptsValue(const ParamItem* p, const CValue& v) {
    if (!p || v.IsEmpty()) return false;
    switch (p->type) {
        case ovString:
        case ovLPStr:
            return true;
        case ovBool:
        case ovInt2:
        case ovInt4:
        case ovUByte:
        case ovUInt4:
        case ovInt8:
        case ovFloat:
        case ovDouble: {
            // Numbers, bools and text that reads as one; not a reference, a vector or an array.
            CValue c = v;
            return c.ChangeType(ovDouble) == CStatus::OK;
        }
        case ovVector3: {
            CValue c = v;
            return c.ChangeType(ovVector3) == CStatus::OK;
        }
        default:
            return true;
    }
}

// --- Entry points -------------------------------------------------------------------------------

void MarkVolatile() {
    for (Frame& f : State().frames) f.isVolatile = true;
}

std::uint64_t EvaluationPass() { return State().pass; }

void PushEvalFrame() { State().frames.push_back(Frame{}); }

bool PopEvalFrame() {
    EvalState& s = State();
    if (s.frames.empty()) return false;
    const bool vol = s.frames.back().isVolatile;
    s.frames.pop_back();
    if (vol) MarkVolatile();
    return vol;
}

EvalPose EvaluateObject(Object3D* obj, double time) {
    if (!obj) return EvalPose();
    Enter enter;
    EvalState& s = State();
    // The entry stays where it is while other objects are added (the map's nodes do not move),
    // and the map is only cleared when an outermost read starts.
    ObjectCache& c = s.objects[obj->id];
    if (CacheHit(c.time, c.revision, c.pass, c.isVolatile, time)) {
        if (c.isVolatile) MarkVolatile();
        return c.pose;
    }
    if (c.running) return c.partial;  // a cycle: the pose so far

    const std::uint64_t rev = Revision();
    EvalPose pose;
    bool vol;
    c.running = true;
    {
        FrameGuard frame;
        pose = Compute(obj, time, c.partial);
        vol = frame.IsVolatile();
    }
    c.running = false;
    if (Revision() == rev) {
        c.time = time;
        c.revision = rev;
        c.pass = s.pass;
        c.isVolatile = vol;
        c.pose = pose;
    }
    return pose;
}

CTransformation ParamLocalTransform(Object3D* obj, double time) {
    if (!obj || !obj->kine) return CTransformation();
    Enter enter;
    return FromParams(obj, ResolveTime(time), false);
}

CValue ParamValue(ParamItem* p, double time) {
    if (!p) return CValue();
    Enter enter;
    time = ResolveTime(time);
    if (auto* state = dynamic_cast<KineStateItem*>(p->owner)) {
        const int i = TransformIndex(p->name);
        if (i >= 0 && state->object) {
            const EvalPose pose = EvaluateObject(state->object, time);
            if (!state->global && pose.localFromParams) return DrivenValue(p, time);
            double v[9];
            ToValues(state->global ? pose.global : pose.local, Order(state->object, time), v);
            return NumberAsParamValue(p, v[i]);
        }
    }
    return DrivenValue(p, time);
}

bool PutParamValue(ParamItem* p, const CValue& v, double time) {
    if (!p || !AcceptsValue(p, v)) return false;
    // A curve-driven parameter is keyed at the time, which must then be one.
    if (!std::isfinite(ResolveTime(time))) return false;
    if (CaptureOutput(p, nullptr, &v)) return true;
    if (auto* state = dynamic_cast<KineStateItem*>(p->owner)) {
        const int i = TransformIndex(p->name);
        if (i >= 0 && state->global && state->object) {
            Object3D* obj = state->object;
            const double t = ResolveTime(time);
            const MATH::RotationOrder order = Order(obj, t);
            double values[9];
            ToValues(GlobalTransform(obj, t), order, values);
            values[i] = static_cast<double>(v);
            PutGlobalTransform(obj, FromValues(values, order), time);
            return true;
        }
    }
    StoreParam(p, v, time);
    TheHost().Touch();
    return true;
}

CTransformation LocalTransform(Object3D* obj, double time) {
    if (!obj || !obj->kine) return CTransformation();
    return EvaluateObject(obj, ResolveTime(time)).local;
}

CTransformation NeutralTransform(Object3D* obj, double time) {
    if (!obj || !obj->kine) return CTransformation();
    Enter enter;
    return FromParams(obj, ResolveTime(time), true);
}

CTransformation GlobalTransform(Object3D* obj, double time) {
    if (!obj) return CTransformation();
    return EvaluateObject(obj, ResolveTime(time)).global;
}

void PutLocalTransform(Object3D* obj, const CTransformation& t, double time) {
    if (!obj || !obj->kine) return;
    if (CaptureOutput(obj->kine->local, &t, nullptr)) return;
    WriteLocalParams(obj, t, time);
}

void PutGlobalTransform(Object3D* obj, const CTransformation& t, double time) {
    if (!obj || !obj->kine) return;
    if (CaptureOutput(obj->kine->global, &t, nullptr)) return;
    const double rt = ResolveTime(time);
    CTransformation parent;
    if (obj->parent3D) parent = GlobalTransform(obj->parent3D, rt);
    const CTransformation np = Product(NeutralTransform(obj, rt), parent);
    WriteLocalParams(obj, MATH::MapWorldPoseToObjectSpace(np, t), time);
}

}  // namespace orvhost
