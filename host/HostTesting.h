// The host's own API for its front end and for tests: log capture, scripted answers,
// installation locations, plug-in loading, scene files, the command table, and observation
// hooks for tests (transform reads, failing commands, curve data).
#pragma once

#include <string>
#include <vector>

#include "Host.h"

namespace orvhost {

// --- Log. The host keeps the lines it logs so that callers can read them back, the newest
// kRecordLimit at most. A caller that only needs the sink (the front end, a fuzzer) turns the
// record off; that drops what was kept. The sink hears every line either way.
void RecordLog(bool on);
const std::vector<LogEntry>& LogEntries();
void ClearLog();
// Log entries with the given severity, in order (all severities when severity is 0).
std::vector<std::wstring> LogTexts(int severity = 0);

// --- Scripted answers for dialogs. Message boxes take an int (ovMsgBoxResult); "PickObject"
// and "InspectObj" take an object path (pick) or a bool (inspect: true = OK); file browsers take
// a path. An empty CValue answers "cancel". With an empty queue: message boxes answer OK (or
// Yes for yes/no boxes), pickers and browsers cancel, "InspectObj" answers OK.
void QueueAnswer(const CValue& answer);
// Drops the queued answers and the record of questions asked so far.
void ClearAnswers();
std::size_t PendingAnswers();
// Every question asked, as "<kind>: <text>" ("MsgBox: ...", "PickObject: ...", ...).
const std::vector<std::wstring>& Questions();
// Every message box shown since the last ClearAnswers: text, caption, flags and the answer.
const std::vector<MessageBoxRecord>& MessageBoxes();

// --- Installation locations (1 user, 2 shared, 3 factory, 4 data root).
void SetInstallationPath(int kind, const std::wstring& path);

// --- Progress bar on a terminal (the front end turns it on for a TTY).
void SetDrawProgress(bool on);

// --- Plug-ins
struct RegisteredItem {
    std::wstring kind;  // "Command", "Property", "Menu", "Operator"
    std::wstring name;
    std::wstring scriptName;  // commands
    int anchor = 0;           // menus
};
struct PluginRecord {
    std::string path;
    void* handle = nullptr;
    std::wstring author, name;
    long major = 0, minor = 0;
    std::vector<RegisteredItem> items;  // in registration order
};
// Loads a shared library, calls its ORVLoadPlugin, runs every command's and menu's _Init.
// False with a message in `error` when the library or its entry point cannot be found.
bool LoadPlugin(const std::string& path, std::wstring& error);
const std::vector<PluginRecord>& Plugins();
// Finds an exported callback of a loaded plug-in by its plain name; null when none has it.
ORVCallbackFn FindCallback(const std::wstring& name);
// Calls the scene event callback of that name (MyNewScene_OnEvent, MyOpenScene_OnEvent) in
// every loaded plug-in that exports it, in load order.
void FireSceneEvent(const std::wstring& callbackName);

// --- Commands
struct CommandInfo {
    std::wstring name;
    std::vector<std::wstring> arguments;  // declared names, in order
    bool builtin = true;
    bool returnValue = true;
};
std::vector<CommandInfo> ListCommands();
bool FindCommand(const std::wstring& name, CommandInfo& info);
// Same as Application::ExecuteCommand.
ORV::CStatus RunCommand(const std::wstring& name, const CValueArray& args, CValue& result);

// --- Scene lifecycle. A new scene and an opened scene fire MyNewScene_OnEvent and
// MyOpenScene_OnEvent in every loaded plug-in that exports them.
void NewScene();
bool OpenScene(const std::string& path, std::wstring& error);
bool SaveScene(const std::string& path, std::wstring& error);

// --- Transform reads. While a recorder lives, every read of a kinematic state's transform
// through the SDK (KinematicState::GetTransform) is noted in order, with the time argument as
// the caller gave it (1.7976931348623157e308 for "now"). A recorder made while another lives
// takes over until it ends. Reads of the host's own evaluation are not noted.
struct TransformRead {
    std::wstring state;  // full name of the kinematic state: "Rig.Hips.kine.global"
    double time = 0.0;
};
class TransformReadRecorder {
public:
    TransformReadRecorder();
    ~TransformReadRecorder();
    TransformReadRecorder(const TransformReadRecorder&) = delete;
    TransformReadRecorder& operator=(const TransformReadRecorder&) = delete;

    const std::vector<TransformRead>& Reads() const { return reads_; }
    void Clear() { reads_.clear(); }

private:
    friend void NoteTransformRead(const Item* state, double time);
    std::vector<TransformRead> reads_;
    TransformReadRecorder* previous_ = nullptr;
};

// --- Failing commands. While a CommandFailure lives, the command of that name (as the command
// table spells it, built-in or plug-in) answers `status` without running and leaves its result
// empty; it is still echoed to the command log. For testing how callers treat a failure.
class CommandFailure {
public:
    CommandFailure(const std::wstring& command, ORV::CStatus status);
    ~CommandFailure();
    CommandFailure(const CommandFailure&) = delete;
    CommandFailure& operator=(const CommandFailure&) = delete;

private:
    std::wstring command_;
};
// The status a failing command answers; false when the command is not made to fail.
bool InjectedFailure(const std::wstring& command, ORV::CStatus& status);

// --- Curves. What X3DObject::AddNurbsCurve built an object's curve from.
struct NurbsCurveData {
    std::vector<ORV::MATH::CVector4> points;  // x, y, z, w
    std::vector<double> knots;
    bool closed = false;
    int degree = 0;
    int parametrization = 0;
    int format = 0;
};
// False (and `out` emptied) when the object has no NURBS curve.
bool GetNurbsCurveData(const CRef& object, NurbsCurveData& out);

}  // namespace orvhost
