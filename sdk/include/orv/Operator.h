// Operators: custom operators evaluated by the host, their ports, and the context of their
// callbacks (_Init, _Update, _Term).
#pragma once

#include <orv/Plugin.h>
#include <orv/Scene.h>

namespace ORV {

class PortGroup : public ProjectItem {
public:
    ORV_HANDLE(PortGroup, ovPortGroupID)
    // Index of the group in its operator, in the order the groups were added.
    long GetIndex() const;
};

class Port : public ProjectItem {
public:
    ORV_HANDLE(Port, ovPortID)
    CRef GetTarget() const;
    bool IsOutput() const;
    long GetIndex() const;
};

class Operator : public ProjectItem {
public:
    ORV_HANDLE(Operator, ovOperatorID)
    // Connects the ports to their targets; the operator starts driving its output.
    CStatus Connect(int constructionMode = ovConstructionModeDefault);
    bool IsConnected() const;
    CRefArray GetInputPorts() const;
    CRefArray GetOutputPorts() const;
    CRefArray GetPortGroups() const;
};

class CustomOperator : public Operator {
public:
    ORV_HANDLE(CustomOperator, ovCustomOperatorID)
    PortGroup AddPortGroup(const CString& name, long minInstances = 1, long maxInstances = 1,
                           const CString& filter = L"", const CString& scriptFilter = L"", long flags = 0);
    // groupIndex -1 takes the last group added; indexInGroup -1 appends to the group.
    Port AddInputPort(const CRef& target, const CString& name = L"", long groupIndex = -1,
                      long indexInGroup = -1, long flags = ovDefaultPort);
    Port AddOutputPort(const CRef& target, const CString& name = L"", long groupIndex = -1,
                       long indexInGroup = -1, long flags = ovDefaultPort);
    CStatus PutAlwaysEvaluate(bool on);
    bool GetAlwaysEvaluate() const;
    // Scripted operators keep their code and language; they are stored, never run.
    CString GetCode() const;
    CString GetLanguage() const;
};

// The context of an operator callback. Inputs are read at the context's time.
class OperatorContext : public Context {
public:
    OperatorContext() noexcept = default;
    OperatorContext(const CRef& ref) : Context(ref) {}
    CTime GetTime() const;
    // A kinematic state or blob input comes as a reference to it; a parameter input as its
    // value at the context's time.
    CValue GetInputValue(long port, long group = 0, long instance = 0) const;
    CValue GetInputValue(const CString& portName) const;
    // The item the operator writes: a kinematic state, a primitive or a parameter.
    CRef GetOutputTarget() const;
    // The operator being evaluated.
    CustomOperator GetOperator() const;
};

class Factory {
public:
    // A custom operator of a type the plug-in registered; invalid for an unknown type.
    CRef CreateObject(const CString& type) const;
    CRef CreateScriptedOp(const CString& name, const CString& code, const CString& language) const;
};

}  // namespace ORV
