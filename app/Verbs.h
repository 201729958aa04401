// The verbs of trovo besides exec: a file of commands, character import and export, and
// printing what the scene holds. Each runs in the session main has opened.
#pragma once

#include "CliOptions.h"

namespace trovo {

struct VerbResult {
    int code = 0;      // the exit status: 0 done, 1 failed, 2 bad usage
    bool save = true;  // whether --save may write the scene now
};

VerbResult RunFile(const CliOptions& options);
VerbResult ImportVerb(const CliOptions& options);
VerbResult ExportVerb(const CliOptions& options);
VerbResult EvalVerb(const CliOptions& options);
VerbResult HierarchyVerb(const CliOptions& options);

// Splits one line of a command file into words: white space separates them, double quotes
// keep spaces inside one word (\" and \\ stand for themselves there), # outside quotes starts
// a comment. False with a message in `error` for an unclosed quote.
bool SplitCommandLine(const std::string& line, std::vector<std::string>& words, std::string& error);

}  // namespace trovo
