// Turning the text of the command line into the values a command receives.
#pragma once

#include <orv/ORV.h>

#include <string>
#include <vector>

namespace trovo {

// "true"/"false" (any case) as a bool, whole numbers as int, decimal numbers as double,
// anything else as text. Numbers with a leading zero ("007") and the empty text stay text.
ORV::CValue ValueFromText(const std::string& text);

// An argument that takes a model: its declared name ends in "model" or "_rig", any case.
bool IsModelArgument(const std::wstring& name);

// The object a name stands for: a model directly under the scene root by its name, else a
// full scene path. Invalid when neither matches.
ORV::CRef FindObject(const std::wstring& name);

// Fills `args` for a command with the declared argument names `declared` from the command
// line's texts (in order, or name=value). False with a message in `error`.
bool BuildArguments(const std::wstring& command, const std::vector<std::wstring>& declared,
                    const std::vector<std::string>& texts, ORV::CValueArray& args, std::string& error);

// Narrow text of a wide string, for the terminal.
std::string Narrow(const std::wstring& text);
std::wstring Widen(const std::string& text);

}  // namespace trovo
