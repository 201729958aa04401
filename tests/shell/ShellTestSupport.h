// Shared set-up of the shell tests: the plug-in loaded once through the host's loader, a fresh
// scene and an empty log before each test, and small scene builders.
#pragma once

#include <gtest/gtest.h>
#include <orv/ORV.h>

#include <string>
#include <vector>

#include "HostTesting.h"

namespace shelltest {

inline std::string TrovoLibraryPath() { return std::string(TROVO_BIN_DIR) + "/libtrovo.so"; }

// Loads libtrovo.so once per process; the error text of the loader when it fails.
inline const std::wstring& LoadTrovoOnce() {
    static const std::wstring error = [] {
        std::wstring e;
        if (!orvhost::LoadPlugin(TrovoLibraryPath(), e) && e.empty()) {
            e = L"LoadPlugin failed without a message";
        }
        return e;
    }();
    return error;
}

// The loader's record of libtrovo.so; null when it is not loaded.
inline const orvhost::PluginRecord* TrovoRecord() {
    for (const orvhost::PluginRecord& record : orvhost::Plugins()) {
        if (record.path == TrovoLibraryPath()) {
            return &record;
        }
    }
    return nullptr;
}

class ShellTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(LoadTrovoOnce(), L"");
        orvhost::ResetScene();
        orvhost::ClearAnswers();
        // Without the host's echo of every command, the log holds only what the plug-in says.
        SetCommandLog(false);
        orvhost::ClearLog();
    }

    static void SetCommandLog(bool on) {
        ORV::CValueArray args;
        args.Add(ORV::CString(L"preferences.scripting.cmdlog"));
        args.Add(on);
        ORV::CValue ignored;
        ORV::Application().ExecuteCommand(L"SetValue", args, ignored);
    }

    static std::vector<orvhost::LogEntry> Log() { return orvhost::LogEntries(); }

    static ORV::Model Root() { return ORV::Application().GetActiveSceneRoot(); }

    static ORV::Model AddModel(ORV::X3DObject parent, const wchar_t* name) {
        ORV::Model model;
        parent.AddModel(ORV::CRefArray(), name, model);
        return model;
    }

    static ORV::X3DObject AddNull(ORV::X3DObject parent, const wchar_t* name) {
        ORV::Null null;
        parent.AddNull(name, null);
        return null;
    }

    static ORV::CustomProperty AddCustomProperty(ORV::SceneItem owner, const wchar_t* name) {
        ORV::CustomProperty property;
        owner.AddCustomProperty(name, false, property);
        return property;
    }

    static void Select(std::initializer_list<ORV::CRef> items) {
        ORV::Selection selection = ORV::Application().GetSelection();
        selection.Clear();
        for (const ORV::CRef& item : items) {
            selection.Add(item);
        }
    }

    static ORV::CStatus Run(const wchar_t* command, const ORV::CValueArray& args, ORV::CValue& result) {
        return ORV::Application().ExecuteCommand(command, args, result);
    }
};

}  // namespace shelltest
