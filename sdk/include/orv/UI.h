// The host's user interface as the plug-in reaches it: message boxes, the progress bar,
// property page layouts, views of the desktop, and the late-bound scripting objects (the file
// browser). The headless host answers dialogs from a queue of scripted answers and records
// what pages and views are built.
#pragma once

#include <orv/Plugin.h>
#include <orv/Scene.h>

namespace ORV {

class ProgressBar : public CBase {
public:
    ProgressBar() noexcept = default;
    ProgressBar(const CRef& ref) { Attach(ref, ovProgressBarID); }
    CStatus PutCaption(const CString& caption);
    CString GetCaption() const;
    CStatus PutMinimum(long v);
    CStatus PutMaximum(long v);
    long GetMaximum() const;
    CStatus PutStep(long v);
    CStatus PutValue(long v);
    long GetValue() const;
    // Advances by n steps (the bar's step when n is 0 or less) and gives the new value.
    long Increment(long n = 1);
    CStatus PutVisible(bool on);
    bool GetVisible() const;
    CStatus PutCancelEnabled(bool on);
    bool IsCancelPressed() const;
};

class UIToolkit {
public:
    // result is one of ovMsgBoxResult (OK 1, Cancel 2, Yes 6, No 7).
    CStatus MsgBox(const CString& text, long flags, const CString& caption, long& result) const;
    CStatus MsgBox(const CString& text, long flags, const CString& caption, int& result) const;
    ProgressBar GetProgressBar() const;
};

class PPGItem : public CBase {
public:
    PPGItem() noexcept = default;
    PPGItem(const CRef& ref) { Attach(ref, ovPPGItemID); }
    CStatus PutAttribute(const CString& name, const CValue& value);
    CValue GetAttribute(const CString& name) const;
    CString GetName() const;
    CString GetLabel() const;
    // "Item", "Button", "Group", "EndGroup", "Row", "EndRow", "Tab", "Spacer", "Enum"
    CString GetKind() const;
    int GetControlType() const;
    CValueArray GetUIItems() const;
};

class PPGLayout : public CBase {
public:
    PPGLayout() noexcept = default;
    PPGLayout(const CRef& ref) { Attach(ref, ovPPGLayoutID); }
    CStatus Clear();
    PPGItem AddTab(const CString& name);
    PPGItem AddGroup(const CString& name = L"", bool border = true, long width = 0);
    PPGItem EndGroup();
    PPGItem AddRow();
    PPGItem EndRow();
    PPGItem AddItem(const CString& parameter, const CString& label = L"", const CString& control = L"");
    PPGItem AddButton(const CString& name, const CString& label = L"");
    PPGItem AddEnumControl(const CString& parameter, const CValueArray& items, const CString& label = L"",
                           const CString& control = L"");
    PPGItem AddSpacer(long width = 0, long height = 0);
    PPGItem GetItem(const CString& name) const;
    PPGItem GetItem(long index) const;
    long GetCount() const;
    CStatus PutAttribute(const CString& name, const CValue& value);
    CValue GetAttribute(const CString& name) const;
};

class PPGEventContext : public Context {
public:
    PPGEventContext() noexcept = default;
    PPGEventContext(const CRef& ref) : Context(ref) {}
    int GetEventID() const;
};

class View : public CBase {
public:
    View() noexcept = default;
    View(const CRef& ref) { Attach(ref, ovViewID); }
    CString GetName() const;
    CString GetType() const;
    CStatus BeginEdit();
    CStatus EndEdit();
    CStatus Move(long x, long y);
    CStatus Resize(long width, long height);
    CStatus PutState(long state);
    long GetState() const;
    CString GetAttributeValue(const CString& name) const;
    CStatus PutAttributeValue(const CString& name, const CString& value);
    // Closes the view; its handle becomes invalid.
    CStatus Close();
};

class Layout : public CBase {
public:
    Layout() noexcept = default;
    Layout(const CRef& ref) { Attach(ref, ovLayoutID); }
    CStatus CreateView(const CString& type, const CString& name, View& result);
    CRefArray GetViews() const;
};

class Desktop {
public:
    Layout GetActiveLayout() const;
};

// Late-bound access to an object of the host's scripting layer ("ORV.UIToolkit" and its
// "FileBrowser"). Properties and calls are looked up by name.
class CComAPIHandler {
public:
    CComAPIHandler() noexcept = default;
    CComAPIHandler(const CValue& value);
    CStatus CreateInstance(const CString& name);
    CValue GetProperty(const CString& name) const;
    CStatus PutProperty(const CString& name, const CValue& value);
    CStatus Call(const CString& name, CValue& result, const CValueArray& args = CValueArray());
    CRef GetRef() const { return m_ref; }
    operator CValue() const;

private:
    CRef m_ref;
};

}  // namespace ORV
