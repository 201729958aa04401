#include "CliOptions.h"

#include <cmath>
#include <cstdlib>
#include <map>
#include <set>

namespace trovo {

namespace {

// Options of one verb or a few, and the verbs that take them.
const std::map<std::string, std::set<std::string>>& VerbOptions() {
    static const std::map<std::string, std::set<std::string>> table = {{"--name", {"import"}},
                                                                       {"--animation", {"import"}},
                                                                       {"--no-animation", {"import"}},
                                                                       {"--model", {"export", "eval"}},
                                                                       {"--start", {"export", "eval"}},
                                                                       {"--end", {"export", "eval"}},
                                                                       {"--step", {"eval"}},
                                                                       {"--frame", {"eval"}},
                                                                       {"--strict", {"run"}}};
    return table;
}

bool ReadNumber(const std::string& option, const std::string& text, double& value, std::string& error) {
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    if (text.empty() || !end || *end != '\0' || !std::isfinite(value)) {
        error = "the option \"" + option + "\" needs a number, not \"" + text + "\"";
        return false;
    }
    return true;
}

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
    std::vector<std::string> verbOptions;  // in the order given, for the check against the verb
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
        const bool flag =
            name == "--help" || name == "--verbose" || name == "--no-animation" || name == "--strict";
        if (flag) {
            if (hasValue) {
                error = "the option \"" + name + "\" takes no value";
                return false;
            }
            if (name == "--help") o.help = true;
            if (name == "--verbose") o.verbose = true;
            if (name == "--no-animation") o.noAnimation = true;
            if (name == "--strict") o.strict = true;
            if (VerbOptions().count(name)) verbOptions.push_back(name);
            continue;
        }
        const bool verbOption = VerbOptions().count(name) > 0;
        std::string* slot = ValueSlot(o, name);
        if (!slot && name != "--answer" && !verbOption) {
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
        if (name == "--answer") {
            o.answers.push_back(value);
        } else if (verbOption) {
            verbOptions.push_back(name);
            double number = 0.0;
            if (name == "--name") {
                o.name = value;
            } else if (name == "--animation") {
                o.animation = value;
            } else if (name == "--model") {
                o.model = value;
            } else {
                if (!ReadNumber(name, value, number, error)) return false;
                if (name == "--start") o.start = number, o.hasStart = true;
                if (name == "--end") o.end = number, o.hasEnd = true;
                if (name == "--step") o.step = number, o.hasStep = true;
                if (name == "--frame") o.frames.push_back(number);
            }
        } else {
            *slot = value;
        }
    }
    if (o.help) return true;
    if (positional.empty()) return true;  // the caller shows the usage
    o.action = positional[0];
    for (const std::string& v : verbOptions)
        if (!VerbOptions().at(v).count(o.action)) {
            error = "the option \"" + v + "\" does not apply to \"" + o.action + "\"";
            return false;
        }
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
    if (o.action == "run" || o.action == "import" || o.action == "export") {
        if (positional.size() != 2) {
            error = "\"" + o.action + "\" needs one file";
            return false;
        }
        o.file = positional[1];
        if (o.action == "export" && o.model.empty()) {
            error = "\"export\" needs --model NAME";
            return false;
        }
        if (o.action == "import" && o.noAnimation && !o.animation.empty()) {
            error = "\"--no-animation\" and \"--animation\" exclude each other";
            return false;
        }
    } else if (o.action == "hierarchy") {
        if (positional.size() != 2) {
            error = "\"hierarchy\" needs one model";
            return false;
        }
        o.model = positional[1];
    } else if (o.action == "eval") {
        o.objects.assign(positional.begin() + 1, positional.end());
        if (o.objects.empty() && o.model.empty()) {
            error = "\"eval\" needs an object or --model NAME";
            return false;
        }
        if (o.hasStep && !(o.step > 0.0)) {
            error = "the option \"--step\" needs a number above 0";
            return false;
        }
        if (o.hasStep && !o.hasStart) {
            error = "\"--step\" needs --start and --end";
            return false;
        }
        if ((o.hasStart || o.hasEnd || o.hasStep) && !o.frames.empty()) {
            error = "\"--frame\" and a range (--start, --end, --step) exclude each other";
            return false;
        }
    } else {
        error =
            "unknown action \"" + o.action + "\"; use commands, exec, run, import, export, eval or hierarchy";
        return false;
    }
    if (o.hasStart != o.hasEnd) {
        error = "\"--start\" and \"--end\" go together";
        return false;
    }
    if (o.hasStart && o.end < o.start) {
        error = "the range ends before it starts";
        return false;
    }
    return true;
}

std::string UsageText(const std::string& defaultFactory) {
    return "Usage: trovo [OPTIONS] commands\n"
           "       trovo [OPTIONS] exec NAME [ARG...]\n"
           "       trovo [OPTIONS] run FILE [--strict]\n"
           "       trovo [OPTIONS] import FILE [--name NAME] [--no-animation] [--animation NAME]\n"
           "       trovo [OPTIONS] export FILE --model NAME [--start F --end F]\n"
           "       trovo [OPTIONS] eval OBJECT... [--frame F]... | [--start F --end F [--step S]]\n"
           "       trovo [OPTIONS] eval --model NAME [--frame F]... | [--start F --end F [--step S]]\n"
           "       trovo [OPTIONS] hierarchy MODEL\n"
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
           "  run FILE            Run the commands of FILE in one session, one per line as for\n"
           "                      exec (NAME, then its arguments); \"double quotes\" keep spaces\n"
           "                      in one value, # starts a comment, blank lines are skipped.\n"
           "                      Every line runs; with --strict the run stops at the first\n"
           "                      command that fails, returns false or logs a warning (severity\n"
           "                      4), names it as FILE:LINE, and the scene is not saved.\n"
           "  import FILE         Read a character file (.glb, .gltf, .fbx, .dae, .bvh and what\n"
           "                      else Assimp reads) into one new model under the scene root,\n"
           "                      named after the file or --name NAME: one null per node, its\n"
           "                      rest pose on the local parameters, the file's first animation\n"
           "                      (or --animation NAME; none with --no-animation) as curves at\n"
           "                      the scene's frame rate, file time 0 at frame 1, and Play\n"
           "                      Control's In and Out set to it. Meshes, skins and materials\n"
           "                      stay with the model for export. Prints the model's name.\n"
           "  export FILE         Write the model --model NAME by the suffix of FILE (.glb,\n"
           "                      .gltf, .fbx, .dae, .bvh): its hierarchy and its motion sampled\n"
           "                      at every frame from Play Control's In to Out (or --start to\n"
           "                      --end), frame start at time 0. An imported model keeps its\n"
           "                      meshes, skins and rest pose; its motion replaces the file's\n"
           "                      animations. BVH rotations are written Z, X, Y.\n"
           "  eval                Print global transforms: of each OBJECT (a model's name or a\n"
           "                      full path), or of the model --model NAME and every object\n"
           "                      below it, at the current frame, at each --frame F, or from\n"
           "                      --start to --end every --step frames (default 1). One line\n"
           "                      per object and frame:\n"
           "                      NAME FRAME posx posy posz rotx roty rotz qw qx qy qz sclx scly sclz\n"
           "                      rotations as X, Y, Z angles in degrees (order XYZ) and as a\n"
           "                      quaternion, numbers with 9 significant digits.\n"
           "  hierarchy MODEL     Print the model and every object below it, one per line,\n"
           "                      indented by two spaces per level: NAME (TYPE).\n"
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
           "A failed import or export, and a run stopped by --strict, leave the scene file\n"
           "unsaved.\n"
           "\n"
           "Examples:\n"
           "  trovo commands\n"
           "  trovo --scene rig.orvscene --save out.orvscene exec RetargetBVH Rig walk.bvh walk.map\n"
           "  trovo --scene rig.orvscene exec GetValue PlayControl.Current\n"
           "  trovo --save new.orvscene exec SetValue PlayControl.Out 200   (a new scene, saved)\n"
           "  trovo --save fox.orvscene import Fox.glb --animation Walk\n"
           "  trovo --scene fox.orvscene export walk.glb --model Fox\n"
           "  trovo --scene fox.orvscene eval --model Fox --start 1 --end 300 --step 10\n"
           "  trovo --scene rig.orvscene --save out.orvscene run --strict steps.txt\n";
}

}  // namespace trovo
