#include "CliOptions.h"

namespace trovo {

namespace {

// Options that take a value, and where it goes.
std::string* ValueSlot(CliOptions& o, const std::string& name) {
    if (name == "--plugin") return &o.plugin;
    if (name == "--user") return &o.user;
    if (name == "--shared") return &o.shared;
    if (name == "--factory") return &o.factory;
    if (name == "--data-root") return &o.dataRoot;
    if (name == "--scene") return &o.scene;
    if (name == "--save") return &o.save;
    return nullptr;
}

}  // namespace

bool ParseCommandLine(int argc, char** argv, CliOptions& o, std::string& error) {
    o = CliOptions();
    std::vector<std::string> positional;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (optionsEnded || arg.size() < 3 || arg.compare(0, 2, "--") != 0) {
            if (arg == "--") {
                optionsEnded = true;
                continue;
            }
            positional.push_back(arg);
            continue;
        }
        std::string name = arg, value;
        bool hasValue = false;
        const std::size_t eq = arg.find('=');
        if (eq != std::string::npos) {
            name = arg.substr(0, eq);
            value = arg.substr(eq + 1);
            hasValue = true;
        }
        if (name == "--help" || name == "--verbose") {
            if (hasValue) {
                error = "the option \"" + name + "\" takes no value";
                return false;
            }
            (name == "--help" ? o.help : o.verbose) = true;
            continue;
        }
        std::string* slot = ValueSlot(o, name);
        if (!slot && name != "--answer") {
            error = "unknown option \"" + name + "\"";
            return false;
        }
        if (!hasValue) {
            if (i + 1 >= argc) {
                error = "the option \"" + name + "\" needs a value";
                return false;
            }
            value = argv[++i];
        }
        if (name == "--answer")
            o.answers.push_back(value);
        else
            *slot = value;
    }
    if (o.help) return true;
    if (positional.empty()) return true;  // the caller shows the usage
    o.action = positional[0];
    if (o.action == "commands") {
        if (positional.size() > 1) {
            error = "\"commands\" takes no arguments";
            return false;
        }
        return true;
    }
    if (o.action == "exec") {
        if (positional.size() < 2) {
            error = "\"exec\" needs the name of a command";
            return false;
        }
        o.command = positional[1];
        o.arguments.assign(positional.begin() + 2, positional.end());
        return true;
    }
    error = "unknown action \"" + o.action + "\"; use \"commands\" or \"exec\"";
    return false;
}

std::string UsageText(const std::string& defaultFactory) {
    return "Usage: trovo [OPTIONS] commands\n"
           "       trovo [OPTIONS] exec NAME [ARG...]\n"
           "\n"
           "Runs the Trovo retargeting plug-in inside a headless animation host: loads the\n"
           "plug-in, optionally opens a scene, runs one command by name and saves the scene.\n"
           "\n"
           "Actions:\n"
           "  commands            List what the plug-in registered (its commands, each with its\n"
           "                      arguments in the order they are declared, property types,\n"
           "                      menus, operators), then the commands of the host.\n"
           "  exec NAME [ARG...]  Run the command NAME and print its return value on stdout.\n"
           "                      Give the arguments in declaration order, or as name=value in\n"
           "                      any order; left-out arguments reach the command empty.\n"
           "                      Values are read as true/false, whole numbers, decimal numbers,\n"
           "                      and otherwise as text; 007 stays text, and name= gives\n"
           "                      empty text (for a model argument: none at all).\n"
           "                      Model arguments (names ending in \"model\" or \"_rig\") take\n"
           "                      the name of a model of the scene or a full path (Rig.Hips);\n"
           "                      an @ before any value passes the object of that name instead.\n"
           "\n"
           "Options:\n"
           "  --plugin PATH       the plug-in library (default: libtrovo.so next to trovo)\n"
           "  --scene FILE        open this scene before running the command (without it the\n"
           "                      command runs in a new, empty scene)\n"
           "  --save FILE         save the scene to this file after the command\n"
           "  --answer VALUE      the answer to the next dialog the command opens; repeat it\n"
           "                      for several dialogs, in the order they come. Message boxes:\n"
           "                      ok, cancel, yes, no (or 1, 2, 6, 7). File browsers: a path.\n"
           "                      Pickers: an object path. Modal pages: ok, cancel, or\n"
           "                      name=value;name=value to fill the page and press OK.\n"
           "                      An empty answer (\"\") cancels. Without answers, message\n"
           "                      boxes press OK or Yes, pages OK, browsers and pickers cancel.\n"
           "  --user DIR          the user location, where TROVO.ini lives (default: ~/.trovo)\n"
           "  --shared DIR        the shared location (default: none)\n"
           "  --factory DIR       the factory location (default: " +
           defaultFactory +
           ")\n"
           "  --data-root DIR     the data root (default: the factory location's Addons folder)\n"
           "  --verbose           also print the command log (severity 16)\n"
           "  --help              show this text\n"
           "\n"
           "Results go to stdout. The log goes to stderr, one line per message with its\n"
           "severity (ERROR, WARNING, INFO), and every dialog shows there as\n"
           "\"? <dialog>: <question> -> <answer taken>\".\n"
           "Exit status: 0 when the command ran, 1 when it or loading or saving failed,\n"
           "2 on bad usage.\n"
           "\n"
           "Examples:\n"
           "  trovo commands\n"
           "  trovo --scene rig.orvscene --save out.orvscene exec RetargetBVH Rig walk.bvh walk.map\n"
           "  trovo --scene rig.orvscene exec GetValue PlayControl.Current\n"
           "  trovo --save new.orvscene exec SetValue PlayControl.Out 200   (a new scene, saved)\n";
}

}  // namespace trovo
