// The host application. Every instance is interchangeable: they all reach the one scene.
#pragma once

#include <orv/Operator.h>
#include <orv/Scene.h>
#include <orv/UI.h>

namespace ORV {

class Application {
public:
    // Appends to the host's log with a severity (2 error, 4 warning, 8 info, 16 verbose).
    CStatus LogMessage(const CString& text, int severity = ovInfo) const;
    // Runs a host or plug-in script command by name; result is its return value.
    CStatus ExecuteCommand(const CString& name, const CValueArray& args, CValue& result) const;
    Model GetActiveSceneRoot() const;
    Project GetActiveProject() const;
    Selection GetSelection() const;
    Factory GetFactory() const;
    Desktop GetDesktop() const;
    UIToolkit GetUIToolkit() const;
    // The installation locations: 1 user, 2 shared, 3 factory, 4 data root; may be empty.
    CString GetInstallationPath(int kind) const;
    CString GetVersion() const;
    bool IsValid() const { return true; }
};

class CUtils {
public:
    // Joins up to eight parts with the host's separator; empty parts are skipped.
    static CString BuildPath(const CString& a, const CString& b, const CString& c = L"",
                             const CString& d = L"", const CString& e = L"", const CString& f = L"",
                             const CString& g = L"", const CString& h = L"");
};

}  // namespace ORV
