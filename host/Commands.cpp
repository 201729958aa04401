// The command table: the host's built-in script commands and the commands of loaded plug-ins,
// run by name through Application::ExecuteCommand.
#include "Commands.h"

#include <algorithm>
#include <cwctype>

#include "HostUI.h"

using namespace ORV;

namespace orvhost {

namespace {

struct Builtin {
    std::wstring name;
    std::vector<std::wstring> args;
    BuiltinCommand fn;
};

// Built-ins register from static initialisers of the command files, so the table must exist
// before any of them runs and must never be destroyed before them.
std::map<std::wstring, Builtin>& Builtins() {
    static auto* table = new std::map<std::wstring, Builtin>;
    return *table;
}

bool SameNoCase(const std::wstring& a, const std::wstring& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::towupper(a[i]) != std::towupper(b[i])) return false;
    return true;
}

const Builtin* FindBuiltin(const std::wstring& name) {
    auto& table = Builtins();
    auto it = table.find(name);
    if (it != table.end()) return &it->second;
    for (const auto& entry : table)
        if (SameNoCase(entry.first, name)) return &entry.second;
    return nullptr;
}

CommandItem* FindPluginCommandNoCase(const std::wstring& name) {
    if (CommandItem* c = FindPluginCommand(name)) return c;
    for (CommandItem* c : PluginCommands())
        if (SameNoCase(c->scriptName, name)) return c;
    return nullptr;
}

// One argument as a script line shows it.
std::wstring ScriptText(const CValue& v) {
    switch (v.GetType()) {
        case ovEmpty:
            return L"null";
        case ovString:
        case ovLPStr:
        case ovRef:
            return L"\"" + std::wstring(v.GetAsText().GetWideString()) + L"\"";
        case ovArray: {
            const CValueArray& a = v;
            std::wstring s = L"[";
            for (long i = 0; i < a.GetCount(); ++i) s += (i ? L", " : L"") + ScriptText(a[i]);
            return s + L"]";
        }
        default:
            return v.GetAsText().GetWideString();
    }
}

void EchoCommand(const std::wstring& name, const CValueArray& args) {
    std::wstring line = name + L"(";
    for (long i = 0; i < args.GetCount(); ++i) line += (i ? L", " : L"") + ScriptText(args[i]);
    TheHost().Log(line + L")", ovVerbose);
}

}  // namespace

void RegisterBuiltin(const std::wstring& name, std::vector<std::wstring> argNames, BuiltinCommand fn) {
    Builtins()[name] = Builtin{name, std::move(argNames), std::move(fn)};
}

std::wstring ArgumentText(const CValue& v) {
    if (v.GetType() == ovRef && !TheStore().Resolve(static_cast<CRef>(v)))
        return static_cast<CRef>(v).GetId() ? L"(a deleted object)" : L"(no object)";
    return v.GetAsText().GetWideString();
}

bool CommandLogOn() {
    auto* p = dynamic_cast<ParamItem*>(FindByPath(L"preferences.scripting.cmdlog"));
    return p && static_cast<bool>(p->value);
}

std::vector<CommandInfo> ListCommands() {
    std::vector<CommandInfo> out;
    for (const auto& entry : Builtins()) {
        CommandInfo info;
        info.name = entry.first;
        info.arguments = entry.second.args;
        info.builtin = true;
        info.returnValue = true;
        out.push_back(info);
    }
    for (CommandItem* c : PluginCommands()) {
        CommandInfo info;
        info.name = c->scriptName;
        info.arguments = c->argNames;
        info.builtin = false;
        info.returnValue = c->returnValue;
        out.push_back(info);
    }
    return out;
}

bool FindCommand(const std::wstring& name, CommandInfo& info) {
    info = CommandInfo();
    if (const Builtin* b = FindBuiltin(name)) {
        info.name = b->name;
        info.arguments = b->args;
        return true;
    }
    if (CommandItem* c = FindPluginCommandNoCase(name)) {
        info.name = c->scriptName;
        info.arguments = c->argNames;
        info.builtin = false;
        info.returnValue = c->returnValue;
        return true;
    }
    return false;
}

CStatus RunCommand(const std::wstring& name, const CValueArray& args, CValue& result) {
    result = CValue();
    if (const Builtin* b = FindBuiltin(name)) {
        if (CommandLogOn()) EchoCommand(b->name, args);
        CStatus injected;
        if (InjectedFailure(b->name, injected)) return injected;
        CValueArray work = args;
        const BuiltinCommand fn = b->fn;  // a command may register others; keep our own copy
        const CStatus st = fn(work, result);
        // In-out arguments ("GetSkeleton" hands back its second one): what the command changed
        // goes back to the caller's array, whose elements are the caller's own values.
        auto& callerArgs = const_cast<CValueArray&>(args);
        for (long i = 0; i < args.GetCount() && i < work.GetCount(); ++i)
            if (work[i].GetType() != args[i].GetType() || work[i] != args[i]) callerArgs[i] = work[i];
        return st;
    }
    if (CommandItem* c = FindPluginCommandNoCase(name)) {
        if (CommandLogOn() && !(c->flags & ovNoLogging)) EchoCommand(c->scriptName, args);
        CStatus injected;
        if (InjectedFailure(c->scriptName, injected)) return injected;
        return ExecutePluginCommand(c, args, result);
    }
    TheHost().Log(L"Unknown command \"" + name + L"\".", ovError);
    return CStatus(CStatus::MemberNotFound);
}

}  // namespace orvhost

CStatus ORV::Application::ExecuteCommand(const CString& name, const CValueArray& args, CValue& result) const {
    return orvhost::RunCommand(name.GetWideString(), args, result);
}
