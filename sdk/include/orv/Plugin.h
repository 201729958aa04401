// What a plug-in sees of the host at load time and in its callbacks: the registrar, the
// callback context, commands and their arguments, menus.
#pragma once

#include <orv/Arrays.h>
#include <orv/CBase.h>
#include <orv/CStatus.h>
#include <orv/CString.h>
#include <orv/CValue.h>
#include <orv/Enums.h>

namespace ORV {

// The context a callback receives. Attributes: "Arguments" (the command's arguments, in
// declaration order) and "ReturnValue" (what a script caller of a command receives).
class Context : public CBase {
public:
    Context() noexcept = default;
    Context(const CRef& ref) { Attach(ref, ovContextID); }
    // The item the callback is about: the command, the menu, the operator, the property.
    CRef GetSource() const;
    CValue GetAttribute(const CString& name) const;
    CStatus PutAttribute(const CString& name, const CValue& value);
    // A value kept with the item between callbacks (an operator's pointer between _Init,
    // _Update and _Term).
    CValue GetUserData() const;
    CStatus PutUserData(const CValue& value);
};

class ArgumentArray : public CBase {
public:
    ArgumentArray() noexcept = default;
    ArgumentArray(const CRef& ref) { Attach(ref, ovCommandID); }
    CStatus Add(const CString& name, const CValue& defaultValue = CValue());
    long GetCount() const;
    CString GetName(long index) const;
    CValue GetDefault(long index) const;
};

class Command : public CBase {
public:
    Command() noexcept = default;
    Command(const CRef& ref) { Attach(ref, ovCommandID); }
    CString GetName() const;
    CStatus EnableReturnValue(bool on);
    bool IsReturnValueEnabled() const;
    CStatus SetFlag(int flag, bool on);
    bool GetFlag(int flag) const;
    ArgumentArray GetArguments() const;
};

class MenuItem : public CBase {
public:
    MenuItem() noexcept = default;
    MenuItem(const CRef& ref) { Attach(ref, ovMenuItemID); }
    CString GetLabel() const;
    CString GetCallback() const;
};

class Menu : public CBase {
public:
    Menu() noexcept = default;
    Menu(const CRef& ref) { Attach(ref, ovMenuID); }
    CString GetName() const;
    CStatus AddCallbackItem(const CString& label, const CString& callbackName, MenuItem& item);
    CRefArray GetItems() const;
};

// Given to the plug-in's ORVLoadPlugin; records what the plug-in registers, in order.
class PluginRegistrar : public CBase {
public:
    PluginRegistrar() noexcept = default;
    PluginRegistrar(const CRef& ref);
    CStatus PutAuthor(const CString& author);
    CStatus PutName(const CString& name);
    CStatus PutVersion(long major, long minor);
    CStatus RegisterCommand(const CString& name, const CString& scriptName);
    CStatus RegisterProperty(const CString& name);
    CStatus RegisterMenu(int anchor, const CString& name, bool displayName = false, bool dynamic = false);
    CStatus RegisterOperator(const CString& name);
    CString GetAuthor() const;
    CString GetName() const;
    long GetMajor() const;
    long GetMinor() const;
};

}  // namespace ORV

// The entry point every plug-in exports under this plain name.
// Every other callback (<Item>_Init, _Execute, _Update, _Term, _Define, _DefineLayout,
// _PPGEvent, menu item callbacks, scene events) takes the context reference.
extern "C" {
typedef ORV::CStatus (*ORVLoadPluginFn)(ORV::PluginRegistrar&);
typedef ORV::CStatus (*ORVCallbackFn)(ORV::CRef&);
}
