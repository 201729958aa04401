// Shared set-up of the tag rule tests: the plug-in loaded through the host, the factory data as
// the add-on root, a rig built from a CMU BVH file, commands run by name and the log read back.
#pragma once

#include <gtest/gtest.h>
#include <orv/ORV.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "HostTesting.h"
#include "modelmap/ModelMapTestSupport.h"
#include "shell/ShellTestSupport.h"
#include "support/BvhRigBuilder.h"

namespace tagtest {

using Log = std::vector<std::pair<std::wstring, int>>;

inline std::string DataPath(const std::string& relative) {
    return std::string(TROVO_TEST_DATA) + "/" + relative;
}

// A file name in a fresh scratch folder, removed with the folder.
class ScratchDir {
public:
    ScratchDir() {
        char pattern[] = "/tmp/trovo_tagt_XXXXXX";
        const char* made = mkdtemp(pattern);
        dir = made ? made : "/tmp";
    }
    ~ScratchDir() {
        for (const std::string& f : files) std::remove(f.c_str());
        rmdir(dir.c_str());
    }
    std::string File(const std::string& name) {
        files.push_back(dir + "/" + name);
        return files.back();
    }
    std::string dir;

private:
    std::vector<std::string> files;
};

inline std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

class TagPanelTest : public ::testing::Test {
public:
    void SetUp() override {
        ASSERT_EQ(shelltest::LoadTrovoOnce(), L"");
        orvhost::ResetScene();
        orvhost::ClearAnswers();
        ORV::CValueArray args;
        args.Add(ORV::CString(L"preferences.scripting.cmdlog"));
        args.Add(false);
        ORV::CValue ignored;
        ORV::Application().ExecuteCommand(L"SetValue", args, ignored);
        orvhost::ClearLog();
    }

    // Runs a command by name; its "ReturnValue".
    static ORV::CValue Exec(const wchar_t* command, std::initializer_list<ORV::CValue> arguments) {
        ORV::CValueArray args;
        for (const ORV::CValue& a : arguments) args.Add(a);
        ORV::CValue result;
        ORV::Application().ExecuteCommand(command, args, result);
        return result;
    }

    static bool SetTag(ORV::Model model, const wchar_t* tag, const wchar_t* value, int type = 1) {
        return static_cast<bool>(
            Exec(L"SetTagValue", {model.GetRef(), ORV::CString(tag), ORV::CString(value), type}));
    }

    // Warnings and errors (severity 2 and 4), in order.
    static Log Messages() {
        Log log;
        for (const orvhost::LogEntry& e : orvhost::LogEntries())
            if (e.severity < 8) log.emplace_back(e.text, e.severity);
        return log;
    }

    // Notes (severity 8), without the one that reading a stored structure writes per
    // decomposition.
    static Log Notes() {
        Log log;
        for (const orvhost::LogEntry& e : orvhost::LogEntries())
            if (e.severity == 8 && e.text.rfind(L"ModelStructure::createFromGrid : ", 0) != 0)
                log.emplace_back(e.text, e.severity);
        return log;
    }

    static ORV::CustomProperty TagProperty(ORV::Model model) {
        return ORV::CustomProperty(modelmaptest::FindProperty(model, L"TagPPG").GetRef());
    }

    static std::wstring Value(ORV::Model model, const wchar_t* parameter) {
        return TagProperty(model).GetParameterValue(parameter).GetAsText().GetWideString();
    }

    static bool Dirty(ORV::Model model) {
        return static_cast<bool>(TagProperty(model).GetParameterValue(L"dirty"));
    }

    // The CMU 02_01 skeleton as a rig of nulls under a model of this name, with the structure
    // "biped" set through the command.
    ORV::Model CmuRig(const wchar_t* name = L"Cmu") {
        if (skeleton.joints.empty()) {
            std::string error;
            EXPECT_TRUE(bvhrig::ReadBvh(DataPath("bvh/cmu_mb2010/02_01.bvh"), skeleton, &error)) << error;
        }
        bvhrig::BvhRig rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skeleton, name);
        EXPECT_TRUE(rig.model.IsValid());
        EXPECT_TRUE(
            static_cast<bool>(Exec(L"SetStructureFile", {rig.model.GetRef(), ORV::CString(L"biped")})));
        orvhost::ClearLog();
        return rig.model;
    }

    modelmaptest::FactoryData factory;
    bvhrig::Skeleton skeleton;
};

}  // namespace tagtest
