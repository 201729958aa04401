// The command line of trovo: options, the action, and the command's arguments as text.
#pragma once

#include <string>
#include <vector>

namespace trovo {

struct CliOptions {
    bool help = false;
    bool verbose = false;
    std::string plugin;  // empty: libtrovo.so next to the executable
    std::string user, shared, factory, dataRoot;
    std::string scene, save;
    std::vector<std::string> answers;
    std::string action;  // "commands", "exec", "run", "import", "export", "eval", "hierarchy"
    std::string command;
    std::vector<std::string> arguments;

    // Options of the verbs other than exec.
    std::string file;  // run, import, export: the file
    std::string name, animation, model;
    bool noAnimation = false;
    bool strict = false;
    bool hasStart = false, hasEnd = false, hasStep = false;
    double start = 0.0, end = 0.0, step = 1.0;
    std::vector<double> frames;        // eval --frame, in the order given
    std::vector<std::string> objects;  // eval: objects by name or path
};

// Reads argv. Options may stand before or after the action; "--" ends the options, so that a
// command argument may start with "--". False with a message for the user in `error`.
bool ParseCommandLine(int argc, char** argv, CliOptions& options, std::string& error);

// The help text.
std::string UsageText(const std::string& defaultFactory);

}  // namespace trovo
