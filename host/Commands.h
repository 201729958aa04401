// The host's built-in script commands, and the table that also holds plug-in commands.
#pragma once

#include <functional>
#include <string>

#include "Host.h"

namespace orvhost {

using BuiltinCommand = std::function<ORV::CStatus(CValueArray& args, CValue& result)>;

// Registers a built-in command (called once at start-up by the command files).
void RegisterBuiltin(const std::wstring& name, std::vector<std::wstring> argNames, BuiltinCommand fn);

// True while "preferences.scripting.cmdlog" is on: commands then echo to the log at severity 16.
bool CommandLogOn();

// An argument as a message quotes it: its text, or "(a deleted object)" for a reference that
// no longer names anything ("(no object)" for the empty reference).
std::wstring ArgumentText(const CValue& v);

}  // namespace orvhost
