// Shared scaffolding of the end-to-end tests: a scratch folder, running the `trovo` program
// as a user does (stdout and stderr kept apart), the host's command log switch, and reading
// back what `trovo eval` prints.
#pragma once

#include <gtest/gtest.h>
#include <orv/ORV.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/StructureTestSupport.h"

namespace e2e {

inline std::string TrovoProgram() { return std::string(TROVO_BIN_DIR) + "/trovo"; }
inline std::string TestData(const std::string& relative) {
    return std::string(TROVO_TEST_DATA) + "/" + relative;
}
inline std::string FactoryTemplate(const std::string& name) {
    return std::string(TROVO_FACTORY_DATA) + "/Addons/Trovo/Data/TagTemplates/" + name;
}

// A mkdtemp folder, removed with everything in it at the end.
class ScratchDir {
public:
    ScratchDir() {
        char pattern[] = "/tmp/trovo_e2e_XXXXXX";
        if (mkdtemp(pattern)) path = pattern;
    }
    ~ScratchDir() {
        if (!path.empty()) std::system(("rm -rf '" + path + "'").c_str());
    }
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    std::string File(const std::string& name) const { return path + "/" + name; }
    void Write(const std::string& name, const std::string& text) const { std::ofstream(File(name)) << text; }

    std::string path;
};

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline std::string Quote(const std::string& s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

struct TrovoRun {
    int status = -1;
    std::string out, err;
};

// Runs `trovo --user <dir> ARGS...` with stdin closed; the user location is the scratch folder,
// so that no test reads or writes the home folder.
inline TrovoRun RunTrovo(const ScratchDir& dir, const std::vector<std::string>& args) {
    std::string command = Quote(TrovoProgram()) + " --user " + Quote(dir.path);
    for (const std::string& a : args) command += " " + Quote(a);
    const std::string out = dir.File(".out"), err = dir.File(".err");
    command += " </dev/null >" + Quote(out) + " 2>" + Quote(err);
    TrovoRun run;
    const int raw = std::system(command.c_str());
    run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    run.out = ReadText(out);
    run.err = ReadText(err);
    return run;
}

inline bool CommandLogIsOn() {
    ORV::CValueArray args;
    args.Add(ORV::CString(L"preferences.scripting.cmdlog"));
    ORV::CValue value;
    ORV::Application().ExecuteCommand(L"GetValue", args, value);
    return static_cast<bool>(value);
}

inline void SetCommandLog(bool on) {
    ORV::CValueArray args;
    args.Add(ORV::CString(L"preferences.scripting.cmdlog"));
    args.Add(on);
    ORV::CValue ignored;
    ORV::Application().ExecuteCommand(L"SetValue", args, ignored);
}

using Lines = std::vector<std::pair<std::wstring, int>>;

inline Lines LogLines() {
    Lines lines;
    for (const orvhost::LogEntry& e : orvhost::LogEntries()) lines.emplace_back(e.text, e.severity);
    return lines;
}

// One line of `trovo eval`: the global transform of one object at one frame.
struct EvalPose {
    double position[3] = {0, 0, 0};
    // w, x, y, z
    double quaternion[4] = {1, 0, 0, 0};
};

// By full object name, then by frame.
using EvalTable = std::map<std::string, std::map<int, EvalPose>>;

// False when a line does not read as NAME FRAME and thirteen numbers.
inline bool ParseEval(const std::string& text, EvalTable& table) {
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty()) continue;
        std::istringstream in(line);
        std::string name;
        double frame = 0.0, angles[3], scale[3];
        EvalPose pose;
        in >> name >> frame >> pose.position[0] >> pose.position[1] >> pose.position[2] >> angles[0] >>
            angles[1] >> angles[2] >> pose.quaternion[0] >> pose.quaternion[1] >> pose.quaternion[2] >>
            pose.quaternion[3] >> scale[0] >> scale[1] >> scale[2];
        if (!in) return false;
        table[name][static_cast<int>(frame + (frame < 0 ? -0.5 : 0.5))] = pose;
    }
    return true;
}

// A suite whose tests all look at one run of the `trovo` chain, made once for the suite:
// Derived::Run() fills `p` and answers "" or what failed, with the user location in a scratch
// folder. Each test stops at once if the run failed.
template <class Derived, class Data>
class SharedRun : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        p = new Data();
        scratch = new ScratchDir();
        structtest::SavedLocations saved;
        structtest::UseLocations(scratch->path, TROVO_FACTORY_DATA);
        p->failure = Derived::Run();
        orvhost::NewScene();
    }
    static void TearDownTestSuite() {
        delete p;
        delete scratch;
        p = nullptr;
        scratch = nullptr;
    }
    void SetUp() override { ASSERT_EQ(p->failure, ""); }

    static inline Data* p = nullptr;
    static inline ScratchDir* scratch = nullptr;
};

}  // namespace e2e
