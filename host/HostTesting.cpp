// The host API for its front end and tests: the log, scripted answers, installation
// locations and terminal drawing.
#include "HostTesting.h"

namespace orvhost {

const std::vector<LogEntry>& LogEntries() { return TheHost().log; }

void ClearLog() { TheHost().log.clear(); }

void RecordLog(bool on) {
    TheHost().recordLog = on;
    if (!on) {
        TheHost().log.clear();
        TheHost().log.shrink_to_fit();
    }
}

std::vector<std::wstring> LogTexts(int severity) {
    std::vector<std::wstring> out;
    for (const LogEntry& e : TheHost().log)
        if (severity == 0 || e.severity == severity) out.push_back(e.text);
    return out;
}

void QueueAnswer(const CValue& answer) { TheHost().answers.push_back(answer); }

void ClearAnswers() {
    TheHost().answers.clear();
    TheHost().questions.clear();
    TheHost().messageBoxes.clear();
}

std::size_t PendingAnswers() { return TheHost().answers.size(); }

const std::vector<std::wstring>& Questions() { return TheHost().questions; }

const std::vector<MessageBoxRecord>& MessageBoxes() { return TheHost().messageBoxes; }

void SetInstallationPath(int kind, const std::wstring& path) { TheHost().installPaths[kind] = path; }

void SetDrawProgress(bool on) { TheHost().drawProgress = on; }

}  // namespace orvhost

// --- Observation hooks for tests --------------------------------------------------------------

namespace orvhost {

namespace {

TransformReadRecorder*& ActiveRecorder() {
    static TransformReadRecorder* active = nullptr;
    return active;
}

std::map<std::wstring, ORV::CStatus>& FailingCommands() {
    static std::map<std::wstring, ORV::CStatus> table;
    return table;
}

}  // namespace

TransformReadRecorder::TransformReadRecorder() : previous_(ActiveRecorder()) { ActiveRecorder() = this; }

TransformReadRecorder::~TransformReadRecorder() { ActiveRecorder() = previous_; }

void NoteTransformRead(const Item* state, double time) {
    TransformReadRecorder* recorder = ActiveRecorder();
    if (recorder) recorder->reads_.push_back({FullName(state), time});
}

CommandFailure::CommandFailure(const std::wstring& command, ORV::CStatus status) : command_(command) {
    FailingCommands()[command_] = status;
}

CommandFailure::~CommandFailure() { FailingCommands().erase(command_); }

bool InjectedFailure(const std::wstring& command, ORV::CStatus& status) {
    const auto& table = FailingCommands();
    auto it = table.find(command);
    if (it == table.end()) return false;
    status = it->second;
    return true;
}

bool GetNurbsCurveData(const CRef& object, NurbsCurveData& out) {
    out = NurbsCurveData();
    auto* o = dynamic_cast<Object3D*>(TheStore().Resolve(object));
    auto* prim = o ? dynamic_cast<PropertyItem*>(o->primitive) : nullptr;
    if (!prim || prim->type != L"NurbsCurveList") return false;
    auto number = [prim](const wchar_t* name) {
        ParamItem* p = prim->FindParam(name);
        return p ? static_cast<int>(p->value) : 0;
    };
    ParamItem* closed = prim->FindParam(L"closed");
    out.closed = closed && static_cast<bool>(closed->value);
    out.degree = number(L"degree");
    out.parametrization = number(L"parametrization");
    out.format = number(L"format");
    auto knots = prim->attributes.find(L"knots");
    if (knots != prim->attributes.end()) {
        const CValueArray& k = knots->second;
        for (long i = 0; i < k.GetCount(); ++i) out.knots.push_back(static_cast<double>(k[i]));
    }
    out.points = o->controlPoints;
    return true;
}

}  // namespace orvhost
