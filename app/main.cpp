// trovo: the command-line front end of the headless host. Loads the plug-in, opens a scene,
// runs one command by name (or a file of them, or a character import or export, or prints
// what the scene holds), prints its result and saves the scene.
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "CliOptions.h"
#include "CliValues.h"
#include "HostUI.h"
#include "Verbs.h"

#ifndef TROVO_DEFAULT_FACTORY_DIR
#define TROVO_DEFAULT_FACTORY_DIR "data"
#endif

namespace {

constexpr int kOk = 0;
constexpr int kFailed = 1;
constexpr int kBadUsage = 2;

int BadUsage(const std::string& message) {
    std::cerr << "trovo: " << message << "\nTry \"trovo --help\".\n";
    return kBadUsage;
}

int Failed(const std::string& message) {
    std::cerr << "trovo: " << message << "\n";
    return kFailed;
}

const char* SeverityWord(int severity) {
    switch (severity) {
        case ORV::ovError:
            return "ERROR";
        case ORV::ovWarning:
            return "WARNING";
        case ORV::ovInfo:
            return "INFO";
        case ORV::ovVerbose:
            return "VERBOSE";
        default:
            return "LOG";
    }
}

std::string ExecutableFolder() {
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0) return ".";
    std::string path(buf, static_cast<std::size_t>(n));
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool IsFolder(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string HomeFolder() {
    const char* home = std::getenv("HOME");
    return home && *home ? home : ".";
}

// An array prints one element per line; a command that returns nothing prints nothing.
void PrintValue(const ORV::CValue& v) {
    if (v.IsEmpty()) return;
    if (v.GetType() == ORV::ovArray) {
        const ORV::CValueArray& a = v;
        for (long i = 0; i < a.GetCount(); ++i) PrintValue(a[i]);
        return;
    }
    std::cout << trovo::Narrow(v.GetAsText().GetWideString()) << "\n";
}

int ListCommands(const std::string& pluginPath) {
    const std::vector<orvhost::CommandInfo> all = orvhost::ListCommands();
    for (const orvhost::PluginRecord& pr : orvhost::Plugins()) {
        std::cout << "Commands of the plug-in " << trovo::Narrow(pr.name) << " " << pr.major << "."
                  << pr.minor << " (" << pr.path << "):\n";
        for (const orvhost::RegisteredItem& ri : pr.items) {
            if (ri.kind != L"Command") continue;
            orvhost::CommandInfo info;
            if (!orvhost::FindCommand(ri.scriptName, info)) continue;
            std::cout << "  " << trovo::Narrow(info.name);
            for (const std::wstring& a : info.arguments) std::cout << " " << trovo::Narrow(a);
            std::cout << "\n";
        }
        // The rest of what it registered, in registration order.
        const struct {
            const wchar_t* kind;
            const char* title;
        } others[] = {{L"Property", "Property types"}, {L"Menu", "Menus"}, {L"Operator", "Operators"}};
        for (const auto& other : others) {
            std::string names;
            for (const orvhost::RegisteredItem& ri : pr.items) {
                if (ri.kind != other.kind) continue;
                names += (names.empty() ? "" : ", ") + trovo::Narrow(ri.name);
                if (ri.kind == L"Menu") names += " (anchor " + std::to_string(ri.anchor) + ")";
            }
            if (!names.empty()) std::cout << other.title << " of the plug-in: " << names << "\n";
        }
    }
    if (orvhost::Plugins().empty()) std::cout << "No plug-in is loaded (" << pluginPath << ").\n";
    std::cout << "Commands of the host:\n";
    for (const orvhost::CommandInfo& info : all) {
        if (!info.builtin) continue;
        std::cout << "  " << trovo::Narrow(info.name);
        for (const std::wstring& a : info.arguments) std::cout << " " << trovo::Narrow(a);
        std::cout << "\n";
    }
    return kOk;
}

int Exec(const trovo::CliOptions& opt);
int OpenSession(const trovo::CliOptions& opt);
int SaveSession(const trovo::CliOptions& opt);

}  // namespace

int main(int argc, char** argv) {
    // Wide text reaches the terminal in the user's encoding; numbers stay in the C locale.
    std::setlocale(LC_CTYPE, "");

    trovo::CliOptions opt;
    std::string error;
    if (!trovo::ParseCommandLine(argc, argv, opt, error)) return BadUsage(error);
    const std::string defaultFactory = TROVO_DEFAULT_FACTORY_DIR;
    if (opt.help) {
        std::cout << trovo::UsageText(defaultFactory);
        return kOk;
    }
    if (opt.action.empty()) {
        std::cerr << trovo::UsageText(defaultFactory);
        return kBadUsage;
    }

    // Installation locations. The default user location is made when it is missing; one that
    // was asked for must exist.
    std::string user = opt.user;
    if (user.empty()) {
        user = HomeFolder() + "/.trovo";
        if (!IsFolder(user)) mkdir(user.c_str(), 0755);
    } else if (!IsFolder(user)) {
        return BadUsage("the user location \"" + user + "\" is not a folder");
    }
    const std::string factory = opt.factory.empty() ? defaultFactory : opt.factory;
    const std::string dataRoot = opt.dataRoot.empty() ? factory + "/Addons" : opt.dataRoot;
    for (const auto& [flag, path] : {std::pair<const char*, const std::string&>{"--shared", opt.shared},
                                     {"--factory", opt.factory},
                                     {"--data-root", opt.dataRoot}})
        if (!path.empty() && !IsFolder(path))
            return BadUsage("the " + std::string(flag) + " location \"" + path + "\" is not a folder");
    orvhost::SetInstallationPath(ORV::ovUserPath, trovo::Widen(user));
    orvhost::SetInstallationPath(ORV::ovSharedPath, trovo::Widen(opt.shared));
    orvhost::SetInstallationPath(ORV::ovFactoryPath, trovo::Widen(factory));
    orvhost::SetInstallationPath(ORV::ovDataRootPath, trovo::Widen(dataRoot));

    // The log and the dialogs go to stderr as they happen.
    // On a terminal a line of text first wipes the progress bar; the bar redraws on its next step.
    const bool verbose = opt.verbose;
    const bool terminal = isatty(STDERR_FILENO) == 1;
    const char* const wipe = terminal ? "\r\033[K" : "";
    orvhost::TheHost().logSink = [verbose, wipe](const orvhost::LogEntry& e) {
        if (e.severity == ORV::ovVerbose && !verbose) return;
        std::cerr << wipe << SeverityWord(e.severity) << ": " << trovo::Narrow(e.text) << std::endl;
    };
    // Every line is printed as it comes; a batch over many files need not keep them too.
    orvhost::RecordLog(false);
    orvhost::QuestionSink() = [wipe](const std::wstring& question, const std::wstring& answer) {
        std::cerr << wipe << "? " << trovo::Narrow(question);
        if (!answer.empty()) std::cerr << " -> " << trovo::Narrow(answer);
        std::cerr << std::endl;
    };
    orvhost::SetDrawProgress(terminal);

    // The plug-in. The default one may be missing; the host's own commands still run then.
    const bool pluginGiven = !opt.plugin.empty();
    const std::string pluginPath = pluginGiven ? opt.plugin : ExecutableFolder() + "/libtrovo.so";
    std::wstring loadError;
    if (!orvhost::LoadPlugin(pluginPath, loadError)) {
        if (pluginGiven) return Failed(trovo::Narrow(loadError));
        std::cerr << "trovo: " << trovo::Narrow(loadError) << " Only the host's commands are available.\n";
    }

    if (opt.action == "commands") return ListCommands(pluginPath);

    // The session ends as a host closes its scene: its operators and plug-in properties hear
    // their _Term.
    int code = OpenSession(opt);
    if (code == kOk) {
        trovo::VerbResult r;
        if (opt.action == "exec") {
            code = Exec(opt);
        } else {
            if (opt.action == "run")
                r = trovo::RunFile(opt);
            else if (opt.action == "import")
                r = trovo::ImportVerb(opt);
            else if (opt.action == "export")
                r = trovo::ExportVerb(opt);
            else if (opt.action == "eval")
                r = trovo::EvalVerb(opt);
            else
                r = trovo::HierarchyVerb(opt);
            std::cout.flush();
            code = r.code;
            if (r.save) {
                const int saved = SaveSession(opt);
                if (saved != kOk) code = saved;
            }
        }
    }
    orvhost::ResetScene();
    return code;
}

namespace {

// Opens the scene of --scene, or starts a new one.
int OpenSession(const trovo::CliOptions& opt) {
    if (opt.action == "exec") {
        orvhost::CommandInfo info;
        if (!orvhost::FindCommand(trovo::Widen(opt.command), info))
            return BadUsage("unknown command \"" + opt.command + "\"; \"trovo commands\" lists them");
    }
    if (!opt.scene.empty()) {
        std::wstring sceneError;
        if (!orvhost::OpenScene(opt.scene, sceneError))
            return Failed("cannot open the scene \"" + opt.scene + "\": " + trovo::Narrow(sceneError));
    } else {
        // A session without a scene file starts a new scene, and the plug-ins hear of it.
        orvhost::NewScene();
    }
    return kOk;
}

int SaveSession(const trovo::CliOptions& opt) {
    if (opt.save.empty()) return kOk;
    std::wstring saveError;
    if (!orvhost::SaveScene(opt.save, saveError))
        return Failed("cannot save the scene to \"" + opt.save + "\": " + trovo::Narrow(saveError));
    return kOk;
}

// Runs the command, prints its result and saves the scene.
int Exec(const trovo::CliOptions& opt) {
    std::string error;
    orvhost::CommandInfo info;
    orvhost::FindCommand(trovo::Widen(opt.command), info);

    ORV::CValueArray args;
    if (!trovo::BuildArguments(info.name, info.arguments, opt.arguments, args, error)) return BadUsage(error);
    for (const std::string& a : opt.answers)
        orvhost::QueueAnswer(a.empty() ? ORV::CValue() : trovo::ValueFromText(a));

    ORV::CValue result;
    const ORV::CStatus status = orvhost::RunCommand(info.name, args, result);
    PrintValue(result);
    std::cout.flush();

    if (orvhost::PendingAnswers() > 0)
        std::cerr << "trovo: " << orvhost::PendingAnswers() << " answer"
                  << (orvhost::PendingAnswers() == 1 ? " was" : "s were") << " not asked for.\n";

    const int saved = SaveSession(opt);
    if (saved != kOk) return saved;
    return status == ORV::CStatus::OK ? kOk : kFailed;
}

}  // namespace
