// Custom operators: made by the factory for a type a plug-in registered (or as a scripted
// operator, whose code is kept and saved but never run), given port groups and ports, and
// connected. A connected operator is owned by the target of its first output, so that the
// generic "EnumElements" on that kinematic state or parameter lists it and "DeleteObj" on it
// (which runs its _Term) removes it.
//
// Evaluation calls the plug-in's <type>_Update through a context whose time is the time of
// the read and whose user data is the operator's own slot, kept between _Init, _Update and
// _Term. Ports index within their group and direction: input 0 of group 0 is the first input
// port added to the first group.
#include <algorithm>

#include "AnimHooks.h"
#include "HostTesting.h"

using namespace ORV;

namespace orvhost {

namespace {

std::uint64_t& ConnectCounter() {
    static std::uint64_t counter = 0;
    return counter;
}

std::vector<OperatorItem*>& RunningStack() {
    static std::vector<OperatorItem*> stack;
    return stack;
}

// The time each running operator is evaluated at, parallel to RunningStack.
std::vector<double>& RunningTimes() {
    static std::vector<double> times;
    return times;
}

// Operators whose second and later outputs point at other targets than the owning one.
std::multimap<std::uint64_t, std::uint64_t>& ExtraOutputs() {
    static std::multimap<std::uint64_t, std::uint64_t> m;
    return m;
}

std::wstring CallbackName(const std::wstring& type, const wchar_t* suffix) {
    std::wstring out;
    for (wchar_t c : type)
        if (c != L' ') out += c;
    return out + suffix;
}

bool RegisteredOperator(const std::wstring& type) {
    for (const PluginRecord& pr : Plugins())
        for (const RegisteredItem& ri : pr.items)
            if (ri.kind == L"Operator" && ri.name == type) return true;
    return false;
}

CStatus Call(OperatorItem* op, ORVCallbackFn fn, double time) {
    ContextItem ctx;
    ctx.source = op->Ref();
    ctx.userData = &op->userData;
    ctx.time = time;
    CRef ref = ctx.Ref();
    return fn(ref);
}

bool MoveTo(Item* item, Item* newOwner) {
    Item* old = item->owner;
    if (!old || old == newOwner) return old == newOwner;
    for (auto it = old->owned.begin(); it != old->owned.end(); ++it) {
        if (it->get() != item) continue;
        std::unique_ptr<Item> holder = std::move(*it);
        old->owned.erase(it);
        holder->owner = newOwner;
        newOwner->owned.push_back(std::move(holder));
        return true;
    }
    return false;
}

void CollectOperators(Item* item, std::vector<OperatorItem*>& out) {
    if (auto* op = dynamic_cast<OperatorItem*>(item)) out.push_back(op);
    for (auto& o : item->owned) CollectOperators(o.get(), out);
}

template <class T>
T* Resolve(const CRef& ref) {
    return dynamic_cast<T*>(TheStore().Resolve(ref));
}

// Deleting an operator (alone or with what owns it) runs its _Term first.
struct DeleteHookInstaller {
    DeleteHookInstaller() {
        TheHost().deleteHooks.push_back([](Item* item) {
            if (auto* op = dynamic_cast<OperatorItem*>(item)) TermOperator(op);
        });
    }
};
const DeleteHookInstaller installer;

}  // namespace

OperatorItem::OperatorItem(std::wstring t, bool isScripted)
    : Item(isScripted ? ovScriptedOperatorID : ovCustomOperatorID, t),
      type(std::move(t)),
      scripted(isScripted) {}

OperatorItem::~OperatorItem() {
    auto& extra = ExtraOutputs();
    for (auto it = extra.begin(); it != extra.end();) {
        if (it->second == id)
            it = extra.erase(it);
        else
            ++it;
    }
}

std::vector<PortItem*> OperatorItem::Inputs() const {
    std::vector<PortItem*> out;
    for (PortItem* p : ports)
        if (!p->output) out.push_back(p);
    return out;
}

std::vector<PortItem*> OperatorItem::Outputs() const {
    std::vector<PortItem*> out;
    for (PortItem* p : ports)
        if (p->output) out.push_back(p);
    return out;
}

Item* PendingOperators() { return Project(); }

std::vector<OperatorItem*> OperatorsWriting(const Item* target) {
    std::vector<OperatorItem*> out;
    if (!target) return out;
    for (const auto& o : target->owned) {
        if (o->classId != ovCustomOperatorID && o->classId != ovScriptedOperatorID) continue;
        auto* op = static_cast<OperatorItem*>(o.get());
        if (op->connected) out.push_back(op);
    }
    auto range = ExtraOutputs().equal_range(target->id);
    for (auto it = range.first; it != range.second; ++it)
        if (auto* op = dynamic_cast<OperatorItem*>(TheStore().Resolve(it->second)))
            if (op->connected && std::find(out.begin(), out.end(), op) == out.end()) out.push_back(op);
    if (out.size() > 1)
        std::stable_sort(out.begin(), out.end(), [](const OperatorItem* a, const OperatorItem* b) {
            return a->connectOrder < b->connectOrder;
        });
    return out;
}

bool HasOperatorsWriting(const Item* target) {
    if (!target) return false;
    for (const auto& o : target->owned)
        if ((o->classId == ovCustomOperatorID || o->classId == ovScriptedOperatorID) &&
            static_cast<const OperatorItem*>(o.get())->connected)
            return true;
    auto range = ExtraOutputs().equal_range(target->id);
    for (auto it = range.first; it != range.second; ++it)
        if (auto* op = dynamic_cast<OperatorItem*>(TheStore().Resolve(it->second)))
            if (op->connected) return true;
    return false;
}

OperatorItem* RunningOperator() { return RunningStack().empty() ? nullptr : RunningStack().back(); }

bool RunningEvaluationTime(double& time) {
    if (RunningTimes().empty()) return false;
    time = RunningTimes().back();
    return true;
}

void InitOperator(OperatorItem* op) {
    if (!op || op->initDone || op->scripted || !op->connected) return;
    ORVCallbackFn init = FindCallback(CallbackName(op->type, L"_Init"));
    ORVCallbackFn update = FindCallback(CallbackName(op->type, L"_Update"));
    if (!init && !update) return;  // its plug-in is not loaded (yet): try again later
    op->initDone = true;
    if (init) Call(op, init, CurrentFrame());
}

void TermOperator(OperatorItem* op) {
    if (!op || !op->initDone || op->termDone) return;
    op->termDone = true;
    if (ORVCallbackFn term = FindCallback(CallbackName(op->type, L"_Term"))) Call(op, term, CurrentFrame());
}

void TermAllOperators() {
    std::vector<OperatorItem*> ops;
    CollectOperators(Root(), ops);
    CollectOperators(Project(), ops);
    for (OperatorItem* op : ops) TermOperator(op);
}

bool ConnectOperator(OperatorItem* op, int mode) {
    if (!op || op->connected) return false;
    std::vector<PortItem*> outs = op->Outputs();
    if (outs.empty()) return false;
    Item* first = TheStore().Resolve(outs[0]->target);
    if (!first) return false;
    for (std::size_t i = 1; i < outs.size(); ++i)
        if (outs[i]->target != outs[0]->target) ExtraOutputs().emplace(outs[i]->target, op->id);
    if (!MoveTo(op, first)) return false;
    op->connected = true;
    op->constructionMode = mode;
    op->connectOrder = ++ConnectCounter();
    TheHost().Touch();
    InitOperator(op);
    return true;
}

bool RunOperatorFor(OperatorItem* op, const Item* target, double time, OperatorItem::Result& out) {
    out = OperatorItem::Result();
    if (!op || !target || !op->connected || op->scripted) return false;
    if (op->running) return false;  // a cycle: the value without this operator
    const std::uint64_t revision = TheHost().scene->revision;
    const bool vol = op->alwaysEvaluate || op->cacheVolatile;
    if (op->cacheValid && op->cacheTime == time && op->cacheRevision == revision &&
        (!vol || op->cachePass == EvaluationPass())) {
        if (vol) MarkVolatile();
        auto it = op->results.find(target->id);
        if (it == op->results.end()) return false;
        out = it->second;
        return out.written;
    }
    InitOperator(op);
    ORVCallbackFn update = FindCallback(CallbackName(op->type, L"_Update"));
    op->results.clear();
    PushEvalFrame();
    if (update) {
        op->running = true;
        // Inputs first, so that what drives them has run before this operator.
        for (PortItem* in : op->Inputs()) {
            Item* it = TheStore().Resolve(in->target);
            if (auto* state = dynamic_cast<KineStateItem*>(it)) {
                if (state->object) EvaluateObject(state->object, time);
            } else if (auto* p = dynamic_cast<ParamItem*>(it)) {
                if (p->IsA(ovParameterID)) ParamValue(p, time);
            }
        }
        RunningStack().push_back(op);
        RunningTimes().push_back(time);
        Call(op, update, time);
        RunningTimes().pop_back();
        RunningStack().pop_back();
        op->running = false;
    }
    const bool readVolatile = PopEvalFrame();
    op->cacheValid = TheHost().scene->revision == revision;
    op->cacheTime = time;
    op->cacheRevision = revision;
    op->cachePass = EvaluationPass();
    op->cacheVolatile = op->alwaysEvaluate || readVolatile;
    if (op->alwaysEvaluate) MarkVolatile();
    auto it = op->results.find(target->id);
    if (it == op->results.end()) return false;
    out = it->second;
    return out.written;
}

}  // namespace orvhost

using namespace orvhost;

// --- Factory ------------------------------------------------------------------------------------

CRef Factory::CreateObject(const CString& type) const {
    const std::wstring t = type.GetWideString();
    if (t.empty() || !RegisteredOperator(t)) return CRef();
    OperatorItem* op = PendingOperators()->Own(std::make_unique<OperatorItem>(t, false));
    TheHost().Touch();
    return op->Ref();
}

CRef Factory::CreateScriptedOp(const CString& name, const CString& code, const CString& language) const {
    const std::wstring n = name.GetWideString();
    if (n.empty()) return CRef();
    OperatorItem* op = PendingOperators()->Own(std::make_unique<OperatorItem>(n, true));
    op->code = code.GetWideString();
    op->language = language.GetWideString();
    TheHost().Touch();
    return op->Ref();
}

// --- Operators, groups, ports -------------------------------------------------------------------

long PortGroup::GetIndex() const {
    auto* g = Resolve<PortGroupItem>(m_ref);
    return g ? g->index : -1;
}

CRef Port::GetTarget() const {
    auto* p = Resolve<PortItem>(m_ref);
    Item* t = p ? TheStore().Resolve(p->target) : nullptr;
    return t ? t->Ref() : CRef();
}

bool Port::IsOutput() const {
    auto* p = Resolve<PortItem>(m_ref);
    return p && p->output;
}

long Port::GetIndex() const {
    auto* p = Resolve<PortItem>(m_ref);
    return p ? p->index : -1;
}

CStatus Operator::Connect(int constructionMode) {
    auto* op = Resolve<OperatorItem>(m_ref);
    if (!op) return CStatus(CStatus::Fail);
    if (op->connected) return CStatus::OK;
    return ConnectOperator(op, constructionMode) ? CStatus(CStatus::OK) : CStatus(CStatus::Fail);
}

bool Operator::IsConnected() const {
    auto* op = Resolve<OperatorItem>(m_ref);
    return op && op->connected;
}

CRefArray Operator::GetInputPorts() const {
    CRefArray out;
    if (auto* op = Resolve<OperatorItem>(m_ref))
        for (PortItem* p : op->Inputs()) out.Add(p->Ref());
    return out;
}

CRefArray Operator::GetOutputPorts() const {
    CRefArray out;
    if (auto* op = Resolve<OperatorItem>(m_ref))
        for (PortItem* p : op->Outputs()) out.Add(p->Ref());
    return out;
}

CRefArray Operator::GetPortGroups() const {
    CRefArray out;
    if (auto* op = Resolve<OperatorItem>(m_ref))
        for (PortGroupItem* g : op->groups) out.Add(g->Ref());
    return out;
}

PortGroup CustomOperator::AddPortGroup(const CString& name, long minInstances, long maxInstances,
                                       const CString& filter, const CString& scriptFilter, long flags) {
    auto* op = Resolve<OperatorItem>(m_ref);
    if (!op || op->connected) return PortGroup();
    std::wstring n = name.GetWideString();
    if (n.empty()) n = L"Group" + std::to_wstring(op->groups.size());
    auto* g = op->Own(std::make_unique<PortGroupItem>(n));
    g->index = static_cast<long>(op->groups.size());
    g->minInstances = minInstances;
    g->maxInstances = maxInstances;
    g->filter = filter.GetWideString();
    g->scriptFilter = scriptFilter.GetWideString();
    g->flags = flags;
    op->groups.push_back(g);
    TheHost().Touch();
    return PortGroup(g->Ref());
}

namespace {

Port AddPort(const CRef& opRef, const CRef& target, const CString& name, long groupIndex, long indexInGroup,
             long flags, bool output) {
    auto* op = Resolve<OperatorItem>(opRef);
    Item* t = TheStore().Resolve(target);
    if (!op || !t || op->connected) return Port();
    if (op->groups.empty()) {
        auto* g = op->Own(std::make_unique<PortGroupItem>(L"Group0"));
        op->groups.push_back(g);
    }
    if (groupIndex < 0) groupIndex = static_cast<long>(op->groups.size()) - 1;
    if (groupIndex >= static_cast<long>(op->groups.size())) return Port();
    long count = 0;
    for (PortItem* p : op->ports)
        if (p->group == groupIndex && p->output == output) ++count;
    std::wstring n = name.GetWideString();
    if (n.empty()) n = (output ? L"Out" : L"In") + std::to_wstring(op->ports.size());
    auto* port = op->Own(std::make_unique<PortItem>(n));
    port->output = output;
    port->target = t->id;
    port->group = groupIndex;
    port->index = indexInGroup < 0 ? count : indexInGroup;
    port->flags = flags;
    op->ports.push_back(port);
    TheHost().Touch();
    return Port(port->Ref());
}

}  // namespace

Port CustomOperator::AddInputPort(const CRef& target, const CString& name, long groupIndex, long indexInGroup,
                                  long flags) {
    return AddPort(m_ref, target, name, groupIndex, indexInGroup, flags, false);
}

Port CustomOperator::AddOutputPort(const CRef& target, const CString& name, long groupIndex,
                                   long indexInGroup, long flags) {
    return AddPort(m_ref, target, name, groupIndex, indexInGroup, flags, true);
}

CStatus CustomOperator::PutAlwaysEvaluate(bool on) {
    auto* op = Resolve<OperatorItem>(m_ref);
    if (!op) return CStatus(CStatus::Fail);
    op->alwaysEvaluate = on;
    TheHost().Touch();
    return CStatus::OK;
}

bool CustomOperator::GetAlwaysEvaluate() const {
    auto* op = Resolve<OperatorItem>(m_ref);
    return op && op->alwaysEvaluate;
}

CString CustomOperator::GetCode() const {
    auto* op = Resolve<OperatorItem>(m_ref);
    return op ? CString(op->code) : CString();
}

CString CustomOperator::GetLanguage() const {
    auto* op = Resolve<OperatorItem>(m_ref);
    return op ? CString(op->language) : CString();
}

// --- Operator context ---------------------------------------------------------------------------

namespace {

OperatorItem* ContextOperator(const CRef& ctxRef) {
    auto* ctx = Resolve<ContextItem>(ctxRef);
    return ctx ? Resolve<OperatorItem>(ctx->source) : nullptr;
}

CValue InputValue(const PortItem* port, double time) {
    Item* t = TheStore().Resolve(port->target);
    if (!t) return CValue();
    if (t->IsA(ovParameterID) && !t->IsA(ovKinematicStateID)) {
        auto* p = static_cast<ParamItem*>(t);
        if (p->type != ovRef) return ParamValue(p, time);
    }
    return CValue(t->Ref());
}

}  // namespace

CTime OperatorContext::GetTime() const {
    auto* ctx = Resolve<ContextItem>(m_ref);
    return ctx ? CTime(ctx->time) : CTime();
}

CValue OperatorContext::GetInputValue(long port, long group, long instance) const {
    auto* ctx = Resolve<ContextItem>(m_ref);
    OperatorItem* op = ContextOperator(m_ref);
    if (!op || instance != 0) return CValue();
    for (PortItem* p : op->ports)
        if (!p->output && p->group == group && p->index == port) return InputValue(p, ctx->time);
    return CValue();
}

CValue OperatorContext::GetInputValue(const CString& portName) const {
    auto* ctx = Resolve<ContextItem>(m_ref);
    OperatorItem* op = ContextOperator(m_ref);
    if (!op) return CValue();
    for (PortItem* p : op->ports)
        if (!p->output && p->name == portName.GetWideString()) return InputValue(p, ctx->time);
    return CValue();
}

CRef OperatorContext::GetOutputTarget() const {
    OperatorItem* op = ContextOperator(m_ref);
    if (!op) return CRef();
    for (PortItem* p : op->ports)
        if (p->output)
            if (Item* t = TheStore().Resolve(p->target)) return t->Ref();
    return CRef();
}

CustomOperator OperatorContext::GetOperator() const {
    OperatorItem* op = ContextOperator(m_ref);
    return op ? CustomOperator(op->Ref()) : CustomOperator();
}
