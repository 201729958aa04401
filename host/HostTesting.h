// The host's own API for its front end and for tests: log capture, scripted answers,
// installation locations, plug-in loading, scene files and the command table.
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

}  // namespace orvhost
