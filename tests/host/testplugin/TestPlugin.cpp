// A plug-in for the host's own tests: commands that show what arguments they receive, ask the
// user, call host commands, drive the progress bar and read the installation locations; a property type with
// a page; a menu; an operator name; the two scene events. Every callback says in the log that it ran.
#include <orv/ORV.h>

#define TEST_EXPORT extern "C" __attribute__((visibility("default")))

using namespace ORV;

namespace {

Application app;

CValueArray Arguments(CRef& ref) {
    Context ctx(ref);
    return ctx.GetAttribute(L"Arguments");
}

void Return(CRef& ref, const CValue& value) {
    Context ctx(ref);
    ctx.PutAttribute(L"ReturnValue", value);
}

CStatus Declare(CRef& ref, std::initializer_list<const wchar_t*> names, bool returnValue = true) {
    Context ctx(ref);
    Command cmd(ctx.GetSource());
    if (returnValue) cmd.EnableReturnValue(true);
    ArgumentArray args = cmd.GetArguments();
    for (const wchar_t* n : names) args.Add(n, CValue());
    return CStatus::OK;
}

CString Number(long v) {
    CValue c(v);
    return c.GetAsText();
}

}  // namespace

TEST_EXPORT CStatus ORVLoadPlugin(PluginRegistrar& reg) {
    reg.PutAuthor(L"Trovo tests");
    reg.PutName(L"Test Plug-in");
    reg.PutVersion(1, 2);
    reg.RegisterCommand(L"TestEcho", L"TestEcho");
    reg.RegisterCommand(L"TestModelName", L"TestModelName");
    reg.RegisterCommand(L"TestNoLog", L"TestNoLog");
    reg.RegisterCommand(L"Spaced Command", L"Spaced Command");
    reg.RegisterCommand(L"TestSelectBranch", L"TestSelectBranch");
    reg.RegisterCommand(L"TestAsk", L"TestAsk");
    reg.RegisterCommand(L"TestBrowse", L"TestBrowse");
    reg.RegisterCommand(L"TestProgress", L"TestProgress");
    reg.RegisterCommand(L"TestPath", L"TestPath");
    reg.RegisterCommand(L"TestTime", L"TestTime");
    reg.RegisterProperty(L"TestProp");
    reg.RegisterProperty(L"Silent Prop");
    reg.RegisterMenu(ovMenuTbAnimateActionsStoreID, L"Test Menu", false, false);
    reg.RegisterOperator(L"TestOp");
    return CStatus::OK;
}

// --- TestEcho: each argument's type tag and text, "first=<type>:<text>;second=<type>:<text>".

TEST_EXPORT CStatus TestEcho_Init(CRef& ref) { return Declare(ref, {L"first", L"second"}); }

TEST_EXPORT CStatus TestEcho_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    CString out = L"first=";
    out += Number(args[0].GetType()) + L":" + args[0].GetAsText();
    out += L";second=";
    out += Number(args[1].GetType()) + L":" + args[1].GetAsText();
    Return(ref, CValue(out));
    return CStatus::OK;
}

// --- TestModelName: the name of the model argument, or the usual missing-argument message.

TEST_EXPORT CStatus TestModelName_Init(CRef& ref) { return Declare(ref, {L"targetmodel"}); }

TEST_EXPORT CStatus TestModelName_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    if (args[0].IsEmpty()) {
        app.LogMessage(L"TestModelName command missing target model.", ovWarning);
        Return(ref, CValue(false));
        return CStatus::OK;
    }
    Model model(static_cast<CRef>(args[0]));
    Return(ref, model.IsValid() ? CValue(model.GetName()) : CValue(L"invalid"));
    return CStatus::OK;
}

// --- TestNoLog: no return value, kept out of the command log; writes one all the same.

TEST_EXPORT CStatus TestNoLog_Init(CRef& ref) {
    Declare(ref, {L"text"}, false);
    Context ctx(ref);
    Command cmd(ctx.GetSource());
    return cmd.SetFlag(ovNoLogging, true);
}

TEST_EXPORT CStatus TestNoLog_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    app.LogMessage(L"TestNoLog ran with " + args[0].GetAsText(), ovInfo);
    Return(ref, CValue(99));
    return CStatus::OK;
}

// --- "Spaced Command": found as SpacedCommand_*; doubles its value.

TEST_EXPORT CStatus SpacedCommand_Init(CRef& ref) { return Declare(ref, {L"value"}); }

TEST_EXPORT CStatus SpacedCommand_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    Return(ref, CValue(static_cast<int>(args[0]) * 2));
    return CStatus::OK;
}

// --- TestSelectBranch: selects a model's branch through the host command; the selection size.

TEST_EXPORT CStatus TestSelectBranch_Init(CRef& ref) { return Declare(ref, {L"model"}); }

TEST_EXPORT CStatus TestSelectBranch_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    CValueArray cmdArgs;
    cmdArgs.Add(args[0]);
    cmdArgs.Add(CValue(L"BRANCH"));
    CValue unused;
    app.ExecuteCommand(L"SelectObj", cmdArgs, unused);
    Return(ref, CValue(static_cast<int>(app.GetSelection().GetCount())));
    return CStatus::OK;
}

// --- TestAsk: a yes/no box; the button pressed.

TEST_EXPORT CStatus TestAsk_Init(CRef& ref) { return Declare(ref, {L"text"}); }

TEST_EXPORT CStatus TestAsk_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    long result = 0;
    app.GetUIToolkit().MsgBox(args[0].GetAsText(), 36, L"ZUKRetarget", result);
    Return(ref, CValue(static_cast<int>(result)));
    return CStatus::OK;
}

// --- TestBrowse: the host's file browser in open (true) or save mode; the chosen path.

TEST_EXPORT CStatus TestBrowse_Init(CRef& ref) { return Declare(ref, {L"title", L"open"}); }

TEST_EXPORT CStatus TestBrowse_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    CComAPIHandler toolkit;
    toolkit.CreateInstance(L"ORV.UIToolkit");
    CComAPIHandler browser(toolkit.GetProperty(L"FileBrowser"));
    browser.PutProperty(L"Filter", CValue(L"Motion (*.bvh)|*.bvh||"));
    browser.PutProperty(L"DialogTitle", args[0]);
    browser.PutProperty(L"InitialDirectory", CValue(L"/tmp"));
    CValue unused;
    browser.Call(static_cast<bool>(args[1]) ? L"ShowOpen" : L"ShowSave", unused);
    Return(ref, CValue(browser.GetProperty(L"FilePathName").GetAsText()));
    return CStatus::OK;
}

// --- TestProgress: steps the host's progress bar; the value reached.

TEST_EXPORT CStatus TestProgress_Init(CRef& ref) { return Declare(ref, {L"steps"}); }

TEST_EXPORT CStatus TestProgress_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    const long steps = static_cast<long>(args[0]);
    ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutMaximum(steps);
    bar.PutStep(1);
    bar.PutValue(0);
    bar.PutCaption(L"Testing ...");
    bar.PutVisible(true);
    for (long i = 0; i < steps; ++i) bar.Increment();
    bar.PutVisible(false);
    Return(ref, CValue(static_cast<int>(bar.GetValue())));
    return CStatus::OK;
}

// --- TestPath: the host's installation location of a kind (1 user, 2 shared, 3 factory, 4 data
// root), as the front end's options set them.

TEST_EXPORT CStatus TestPath_Init(CRef& ref) { return Declare(ref, {L"kind"}); }

TEST_EXPORT CStatus TestPath_Execute(CRef& ref) {
    CValueArray args = Arguments(ref);
    Return(ref, CValue(app.GetInstallationPath(static_cast<int>(args[0]))));
    return CStatus::OK;
}

// --- TestTime: a command's context read as an operator context, as a command that needs the
// time does; the time it gives, in frames.

TEST_EXPORT CStatus TestTime_Init(CRef& ref) { return Declare(ref, {}); }

TEST_EXPORT CStatus TestTime_Execute(CRef& ref) {
    OperatorContext ctx(ref);
    Return(ref, CValue(static_cast<double>(ctx.GetTime())));
    return CStatus::OK;
}

// --- TestProp: two parameters, a page with one item and one button; "Bump" counts presses in
// the property's user data and shows the count in "Count".

TEST_EXPORT CStatus TestProp_Define(CRef& ref) {
    Context ctx(ref);
    CustomProperty prop(ctx.GetSource());
    Parameter p;
    prop.AddParameter(L"Count", ovInt4, ovAnimatable | ovPersistable, L"Count", L"", CValue(0), p);
    prop.AddParameter(L"Label", ovString, ovPersistable, L"Label", L"", CValue(L"none"), p);
    app.LogMessage(L"TestProp_Define", ovInfo);
    return CStatus::OK;
}

TEST_EXPORT CStatus TestProp_DefineLayout(CRef& ref) {
    Context ctx(ref);
    PPGLayout layout(ctx.GetSource());
    layout.Clear();
    layout.AddItem(L"Count", L"How many");
    layout.AddButton(L"Bump", L"Bump it");
    app.LogMessage(L"TestProp_DefineLayout", ovInfo);
    return CStatus::OK;
}

TEST_EXPORT CStatus TestProp_PPGEvent(CRef& ref) {
    PPGEventContext ctx(ref);
    const int id = ctx.GetEventID();
    CString line = L"TestProp_PPGEvent " + Number(id);
    if (id == ovOnInit) {
        ctx.PutAttribute(L"Refresh", CValue(true));
    } else if (id == ovParameterChange) {
        line += L" " + Parameter(ctx.GetSource()).GetScriptName();
    } else if (id == ovButtonClicked) {
        const CString button = ctx.GetAttribute(L"Button").GetAsText();
        line += L" " + button;
        if (button == L"Bump") {
            const int count = static_cast<int>(ctx.GetUserData()) + 1;
            ctx.PutUserData(CValue(count));
            CustomProperty(ctx.GetSource()).PutParameterValue(L"Count", CValue(count));
        }
    }
    app.LogMessage(line, ovInfo);
    return CStatus::OK;
}

TEST_EXPORT CStatus TestProp_Term(CRef& ref) {
    Context ctx(ref);
    app.LogMessage(L"TestProp_Term " + ctx.GetUserData().GetAsText(), ovInfo);
    return CStatus::OK;
}

// --- The menu and its item.

TEST_EXPORT CStatus TestMenu_Init(CRef& ref) {
    Context ctx(ref);
    Menu menu(ctx.GetSource());
    MenuItem item;
    return menu.AddCallbackItem(L"Test Item", L"TestMenuItem", item);
}

TEST_EXPORT CStatus TestMenuItem(CRef& ref) {
    Context ctx(ref);
    MenuItem item(ctx.GetSource());
    app.LogMessage(L"TestMenuItem ran from " + item.GetLabel(), ovInfo);
    return CStatus::OK;
}

// --- Scene events.

TEST_EXPORT CStatus MyNewScene_OnEvent(CRef&) {
    app.LogMessage(L"Test plug-in heard a new scene.", ovInfo);
    return CStatus::OK;
}

TEST_EXPORT CStatus MyOpenScene_OnEvent(CRef&) {
    app.LogMessage(L"Test plug-in heard an opened scene.", ovInfo);
    return CStatus::OK;
}
