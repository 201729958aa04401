// Shared set-up of the host tests that use the test plug-in: it is loaded once per process,
// and every test starts from an empty scene, an empty log and an empty answer queue.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "Commands.h"
#include "HostUI.h"

namespace hosttest {

inline std::string Narrow(const std::wstring& w) { return ORV::CString(w).GetAsciiString(); }

class HostFixture : public ::testing::Test {
protected:
    void SetUp() override {
        std::wstring error;
        ASSERT_TRUE(orvhost::LoadPlugin(ORV_TESTPLUGIN_PATH, error)) << Narrow(error);
        orvhost::ResetScene();
        orvhost::ClearLog();
        orvhost::ClearAnswers();
    }

    ORV::Model root() { return app.GetActiveSceneRoot(); }

    ORV::Model addModel(const wchar_t* name) {
        ORV::Model m;
        EXPECT_EQ(root().AddModel(ORV::CRefArray(), name, m), ORV::CStatus::OK);
        return m;
    }

    ORV::Null addNull(ORV::X3DObject parent, const wchar_t* name) {
        ORV::Null n;
        EXPECT_EQ(parent.AddNull(name, n), ORV::CStatus::OK);
        return n;
    }

    ORV::CStatus run(const wchar_t* name, const ORV::CValueArray& args, ORV::CValue& result) {
        return app.ExecuteCommand(name, args, result);
    }

    static ORV::CValueArray Args(std::initializer_list<ORV::CValue> values) {
        ORV::CValueArray a;
        for (const ORV::CValue& v : values) a.Add(v);
        return a;
    }

    // Log texts of one severity, in order.
    static std::vector<std::wstring> Logged(int severity) { return orvhost::LogTexts(severity); }

    ORV::Application app;
};

}  // namespace hosttest
