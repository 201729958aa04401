// Dialogs answered from the queue, the progress bar, property page layouts and their events,
// desktop views, the file browser, the log and installation locations.
#include "HostFixture.h"

using namespace ORV;
using hosttest::HostFixture;

namespace {

class UI : public HostFixture {
protected:
    long msgBox(const wchar_t* text, long flags) {
        long result = -1;
        EXPECT_EQ(app.GetUIToolkit().MsgBox(text, flags, L"ZUKRetarget", result), CStatus::OK);
        return result;
    }

    // A model "Rig" with the test plug-in's property on it.
    Property addTestProp() {
        Model rig = addModel(L"Rig");
        Property prop = rig.AddProperty(L"TestProp");
        orvhost::ClearLog();
        return prop;
    }

    CValue inspect(const CValue& object, const wchar_t* title, int mode, bool throwOnCancel,
                   CStatus* st = nullptr) {
        CValue result;
        const CStatus s =
            run(L"InspectObj",
                Args({object, CValue(L""), CValue(title), CValue(mode), CValue(throwOnCancel)}), result);
        if (st) *st = s;
        return result;
    }

    std::vector<orvhost::Item*> panels(const std::wstring& content) { return orvhost::ViewsShowing(content); }
};

std::vector<std::wstring> Kinds(const PPGLayout& layout) {
    std::vector<std::wstring> out;
    for (long i = 0; i < layout.GetCount(); ++i) out.push_back(layout.GetItem(i).GetKind().GetWideString());
    return out;
}

}  // namespace

// --- Message boxes

TEST_F(UI, MsgBoxTakesQueuedAnswer) {
    orvhost::QueueAnswer(CValue(7));
    EXPECT_EQ(msgBox(L"Delete the rig?", 36), 7);
    EXPECT_EQ(orvhost::Questions(), std::vector<std::wstring>{L"MsgBox: Delete the rig?"});
    EXPECT_EQ(orvhost::PendingAnswers(), 0u);
}

TEST_F(UI, MsgBoxWithEmptyQueueAnswersOkOrYes) {
    EXPECT_EQ(msgBox(L"Select a valid model.", 48), ovMsgOk);
    EXPECT_EQ(msgBox(L"Go on?", 36), ovMsgYes);
    EXPECT_EQ(msgBox(L"Save first?", 3), ovMsgYes);
    EXPECT_EQ(orvhost::Questions().size(), 3u);
}

TEST_F(UI, MsgBoxEmptyAnswerCancels) {
    orvhost::QueueAnswer(CValue());
    orvhost::QueueAnswer(CValue());
    orvhost::QueueAnswer(CValue());
    EXPECT_EQ(msgBox(L"a", 1), ovMsgCancel);
    EXPECT_EQ(msgBox(L"b", 36), ovMsgNo);
    EXPECT_EQ(msgBox(L"c", 48), ovMsgOk);
}

TEST_F(UI, MsgBoxTakesButtonWords) {
    orvhost::QueueAnswer(CValue(L"no"));
    orvhost::QueueAnswer(CValue(L"Cancel"));
    EXPECT_EQ(msgBox(L"a", 36), ovMsgNo);
    EXPECT_EQ(msgBox(L"b", 1), ovMsgCancel);
}

TEST_F(UI, MsgBoxAnswerNotOnTheBoxFallsBackWithWarning) {
    orvhost::QueueAnswer(CValue(7));
    EXPECT_EQ(msgBox(L"Select a valid model.", 48), ovMsgOk);
    EXPECT_EQ(Logged(ovWarning),
              std::vector<std::wstring>{
                  L"MsgBox: the scripted answer \"7\" is not a button of this box (OK); it answers OK."});
}

TEST_F(UI, MsgBoxIntResultOverload) {
    orvhost::QueueAnswer(CValue(L"yes"));
    int result = 0;
    EXPECT_EQ(app.GetUIToolkit().MsgBox(L"Go on?", 36, L"ZUKRetarget", result), CStatus::OK);
    EXPECT_EQ(result, ovMsgYes);
}

TEST_F(UI, AnswersAreTakenFirstInFirstOut) {
    orvhost::QueueAnswer(CValue(6));
    orvhost::QueueAnswer(CValue(7));
    EXPECT_EQ(orvhost::PendingAnswers(), 2u);
    EXPECT_EQ(msgBox(L"first", 4), 6);
    EXPECT_EQ(msgBox(L"second", 4), 7);
    EXPECT_EQ(orvhost::PendingAnswers(), 0u);
    orvhost::QueueAnswer(CValue(6));
    orvhost::ClearAnswers();
    EXPECT_EQ(orvhost::PendingAnswers(), 0u);
    EXPECT_TRUE(orvhost::Questions().empty());
}

TEST_F(UI, PluginCommandAsksThroughTheQueue) {
    orvhost::QueueAnswer(CValue(L"no"));
    CValue result;
    run(L"TestAsk", Args({CValue(L"Go on?")}), result);
    EXPECT_EQ(result, CValue(7));
    run(L"TestAsk", Args({CValue(L"Again?")}), result);
    EXPECT_EQ(result, CValue(6));
    EXPECT_EQ(orvhost::Questions(), (std::vector<std::wstring>{L"MsgBox: Go on?", L"MsgBox: Again?"}));
}

// --- Progress bar

TEST_F(UI, ProgressBarKeepsItsState) {
    ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    ASSERT_TRUE(bar.IsValid());
    EXPECT_EQ(app.GetUIToolkit().GetProgressBar(), bar);
    bar.PutCaption(L"Processing TROVO Data ...");
    bar.PutMaximum(10);
    bar.PutStep(3);
    bar.PutValue(2);
    bar.PutVisible(true);
    bar.PutCancelEnabled(true);
    EXPECT_EQ(bar.GetCaption(), CString(L"Processing TROVO Data ..."));
    EXPECT_EQ(bar.GetMaximum(), 10);
    EXPECT_EQ(bar.Increment(0), 5);  // 0 or less takes the step
    EXPECT_EQ(bar.Increment(2), 7);
    EXPECT_EQ(bar.Increment(9), 10);  // never past the maximum
    EXPECT_TRUE(bar.GetVisible());
    EXPECT_FALSE(bar.IsCancelPressed());
    bar.PutVisible(false);
    EXPECT_FALSE(bar.GetVisible());
}

TEST_F(UI, ProgressBarIsSilentUnlessDrawingIsOn) {
    ::testing::internal::CaptureStderr();
    CValue result;
    run(L"TestProgress", Args({CValue(4)}), result);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(result, CValue(4));
}

TEST_F(UI, ProgressBarDrawsOneLineOnStderr) {
    orvhost::SetDrawProgress(true);
    ::testing::internal::CaptureStderr();
    CValue result;
    run(L"TestProgress", Args({CValue(4)}), result);
    const std::string out = ::testing::internal::GetCapturedStderr();
    orvhost::SetDrawProgress(false);
    // Four steps of a bar of thirty characters: half way is fifteen.
    EXPECT_NE(out.find("\r\033[KTesting ... [###############...............]  50%"), std::string::npos)
        << out;
    EXPECT_NE(out.find("\r\033[KTesting ... [##############################] 100%"), std::string::npos)
        << out;
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out.back(), '\n');
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
}

// --- Property page layouts

TEST_F(UI, LayoutReadsBackItemsInOrder) {
    Property prop = addTestProp();
    PPGLayout layout = prop.GetPPGLayout();
    ASSERT_TRUE(layout.IsValid());
    layout.Clear();
    layout.AddTab(L"Global");
    layout.AddGroup(L"General Settings", true, 250);
    layout.AddRow();
    PPGItem count = layout.AddItem(L"Count", L"Start Frame", L"Number");
    layout.AddButton(L"Save Preset", L"Save");
    CValueArray items = Args({CValue(L"Hips"), CValue(0), CValue(L"Spine"), CValue(1)});
    layout.AddEnumControl(L"Label", items, L"Rotations", L"Combo");
    layout.EndRow();
    layout.AddSpacer(10, 20);
    layout.EndGroup();
    EXPECT_EQ(Kinds(layout), (std::vector<std::wstring>{L"Tab", L"Group", L"Row", L"Item", L"Button", L"Enum",
                                                        L"EndRow", L"Spacer", L"EndGroup"}));
    EXPECT_EQ(layout.GetItem(L"Count"), count);
    EXPECT_EQ(count.GetLabel(), CString(L"Start Frame"));
    EXPECT_EQ(count.GetControlType(), ovControlNumber);
    PPGItem button = layout.GetItem(L"Save Preset");
    EXPECT_EQ(button.GetKind(), CString(L"Button"));
    EXPECT_EQ(button.GetLabel(), CString(L"Save"));
    EXPECT_EQ(button.GetControlType(), ovControlButton);
    PPGItem combo = layout.GetItem(L"Label");
    EXPECT_EQ(combo.GetControlType(), ovControlCombo);
    EXPECT_EQ(combo.GetUIItems(), items);
    PPGItem group = layout.GetItem(1);
    EXPECT_EQ(group.GetName(), CString(L"General Settings"));
    EXPECT_EQ(group.GetAttribute(L"Border"), CValue(true));
    EXPECT_EQ(group.GetAttribute(ovUICX), CValue(250));
    PPGItem spacer = layout.GetItem(7);
    EXPECT_EQ(spacer.GetAttribute(ovUICX), CValue(10));
    EXPECT_EQ(spacer.GetAttribute(L"cy"), CValue(20));
    EXPECT_FALSE(layout.GetItem(L"Nothing").IsValid());
    EXPECT_FALSE(layout.GetItem(9).IsValid());
}

TEST_F(UI, LayoutItemAttributesAndControlNames) {
    Property prop = addTestProp();
    PPGLayout layout = prop.GetPPGLayout();
    layout.Clear();
    PPGItem a = layout.AddItem(L"Count", L" ", L"1");
    PPGItem b = layout.AddItem(L"Label");
    PPGItem c = layout.AddItem(L"Label", L"", L"Nonsense");
    EXPECT_EQ(a.GetControlType(), ovControlString);
    EXPECT_EQ(b.GetControlType(), -1);
    EXPECT_EQ(c.GetControlType(), -1);
    EXPECT_EQ(a.PutAttribute(ovUICX, CValue(160)), CStatus::OK);
    EXPECT_EQ(a.GetAttribute(ovUICX), CValue(160));
    EXPECT_TRUE(a.GetAttribute(ovUINoLabel).IsEmpty());
    EXPECT_EQ(layout.PutAttribute(ovUIHelpFile, CValue(L"help.htm")), CStatus::OK);
    EXPECT_EQ(layout.GetAttribute(ovUIHelpFile), CValue(L"help.htm"));
}

TEST_F(UI, LayoutClearRemovesItemsAndAttributes) {
    Property prop = addTestProp();
    PPGLayout layout = prop.GetPPGLayout();
    PPGItem item = layout.AddItem(L"Count");
    layout.PutAttribute(ovUIHelpFile, CValue(L"help.htm"));
    EXPECT_EQ(layout.Clear(), CStatus::OK);
    EXPECT_EQ(layout.GetCount(), 0);
    EXPECT_FALSE(item.IsValid());
    EXPECT_TRUE(layout.GetAttribute(ovUIHelpFile).IsEmpty());
}

// --- Views

TEST_F(UI, ViewsReadBack) {
    Layout layout = app.GetDesktop().GetActiveLayout();
    ASSERT_TRUE(layout.IsValid());
    View view;
    ASSERT_EQ(layout.CreateView(L"Property Panel", L"RetargetAdjust", view), CStatus::OK);
    EXPECT_EQ(view.GetName(), CString(L"RetargetAdjust"));
    EXPECT_EQ(view.GetType(), CString(L"Property Panel"));
    view.Move(110, 419);
    view.BeginEdit();
    view.PutAttributeValue(L"targetcontent", L"Rig.RetargetAdjustPPG");
    view.Resize(400, 370);
    view.EndEdit();
    view.PutState(2);
    EXPECT_EQ(view.GetAttributeValue(L"targetcontent"), CString(L"Rig.RetargetAdjustPPG"));
    EXPECT_EQ(view.GetAttributeValue(L"left"), CString(L"110"));
    EXPECT_EQ(view.GetAttributeValue(L"top"), CString(L"419"));
    EXPECT_EQ(view.GetAttributeValue(L"width"), CString(L"400"));
    EXPECT_EQ(view.GetAttributeValue(L"height"), CString(L"370"));
    EXPECT_EQ(view.GetState(), 2);
    CRefArray views = app.GetDesktop().GetActiveLayout().GetViews();
    ASSERT_EQ(views.GetCount(), 1);
    EXPECT_EQ(views[0], view.GetRef());
}

TEST_F(UI, ClosedViewIsGone) {
    View view;
    app.GetDesktop().GetActiveLayout().CreateView(L"Property Panel", L"RotateNode", view);
    EXPECT_EQ(view.Close(), CStatus::OK);
    EXPECT_FALSE(view.IsValid());
    EXPECT_EQ(app.GetDesktop().GetActiveLayout().GetViews().GetCount(), 0);
    EXPECT_NE(view.Move(1, 1), CStatus::OK);
}

TEST_F(UI, NewSceneDropsViews) {
    View view;
    app.GetDesktop().GetActiveLayout().CreateView(L"Property Panel", L"RotateNode", view);
    orvhost::ResetScene();
    EXPECT_FALSE(view.IsValid());
    EXPECT_EQ(app.GetDesktop().GetActiveLayout().GetViews().GetCount(), 0);
}

TEST_F(UI, PanelShowingPluginPropertyOpensItsPage) {
    Property prop = addTestProp();
    View view;
    app.GetDesktop().GetActiveLayout().CreateView(L"Property Panel", L"Test", view);
    view.PutAttributeValue(L"targetcontent", L"Rig.TestProp");
    EXPECT_EQ(Logged(ovInfo), (std::vector<std::wstring>{L"TestProp_DefineLayout", L"TestProp_PPGEvent 1"}));
    PPGLayout layout = prop.GetPPGLayout();
    EXPECT_EQ(Kinds(layout), (std::vector<std::wstring>{L"Item", L"Button"}));
    EXPECT_EQ(layout.GetItem(L"Bump").GetLabel(), CString(L"Bump it"));
    orvhost::ClearLog();
    view.Close();
    EXPECT_EQ(Logged(ovInfo), std::vector<std::wstring>{L"TestProp_PPGEvent 2"});
}

TEST_F(UI, PanelEditBracketOpensPageAtEndEdit) {
    addTestProp();
    View view;
    app.GetDesktop().GetActiveLayout().CreateView(L"Property Panel", L"Test", view);
    view.BeginEdit();
    view.PutAttributeValue(L"targetcontent", L"Rig.TestProp");
    EXPECT_TRUE(Logged(ovInfo).empty());
    view.EndEdit();
    EXPECT_EQ(Logged(ovInfo), (std::vector<std::wstring>{L"TestProp_DefineLayout", L"TestProp_PPGEvent 1"}));
}

TEST_F(UI, PanelOnOtherViewTypeOpensNoPage) {
    addTestProp();
    View view;
    app.GetDesktop().GetActiveLayout().CreateView(L"Explorer", L"Ex", view);
    view.PutAttributeValue(L"targetcontent", L"Rig.TestProp");
    EXPECT_TRUE(Logged(ovInfo).empty());
}

// --- Page events

TEST_F(UI, ButtonPressReachesPluginAndUserDataLasts) {
    Property prop = addTestProp();
    EXPECT_TRUE(orvhost::PressPPGButton(prop.GetRef(), L"Bump").called);
    orvhost::PressPPGButton(prop.GetRef(), L"Bump");
    EXPECT_EQ(prop.GetParameterValue(L"Count"), CValue(2));
    EXPECT_EQ(Logged(ovInfo),
              (std::vector<std::wstring>{L"TestProp_PPGEvent 4 Bump", L"TestProp_PPGEvent 4 Bump"}));
}

TEST_F(UI, DeletedPluginPropertyHearsTermWithItsUserData) {
    Property prop = addTestProp();
    orvhost::PressPPGButton(prop.GetRef(), L"Bump");
    orvhost::ClearLog();
    CValue result;
    EXPECT_EQ(run(L"DeleteObj", Args({CValue(L"Rig.TestProp")}), result), CStatus::OK);
    EXPECT_FALSE(prop.IsValid());
    EXPECT_EQ(Logged(ovInfo), std::vector<std::wstring>{L"TestProp_Term 1"});
}

TEST_F(UI, ParameterChangeStoresValueThenFires) {
    Property prop = addTestProp();
    orvhost::PPGEventResult r =
        orvhost::ChangePPGParameter(prop.GetParameter(L"Label").GetRef(), CValue(L"run"));
    EXPECT_TRUE(r.called);
    EXPECT_EQ(prop.GetParameterValue(L"Label"), CValue(L"run"));
    EXPECT_EQ(Logged(ovInfo), std::vector<std::wstring>{L"TestProp_PPGEvent 3 Label"});
}

TEST_F(UI, RefreshAttributeIsReported) {
    Property prop = addTestProp();
    EXPECT_TRUE(orvhost::FirePPGEvent(prop.GetRef(), ovOnInit).refresh);
    EXPECT_FALSE(orvhost::FirePPGEvent(prop.GetRef(), ovOnClosed).refresh);
}

TEST_F(UI, PropertyWithoutEventCallbackHearsNothing) {
    Model rig = addModel(L"Rig");
    CustomProperty plain;
    rig.AddCustomProperty(L"Plain", false, plain);
    orvhost::PPGEventResult r = orvhost::FirePPGEvent(plain.GetRef(), ovOnInit);
    EXPECT_FALSE(r.called);
    EXPECT_EQ(r.status, CStatus::MemberNotFound);
    Property silent = rig.AddProperty(L"Silent Prop");
    EXPECT_FALSE(orvhost::PressPPGButton(silent.GetRef(), L"X").called);
}

// --- InspectObj

TEST_F(UI, InspectObjNonModalOpensPageWithoutAnswer) {
    addTestProp();
    orvhost::QueueAnswer(CValue(false));
    CStatus st;
    EXPECT_EQ(inspect(CValue(L"Rig.TestProp"), L"Rig Tagging Tool", 3, false, &st), CValue(false));
    EXPECT_EQ(st, CStatus::OK);
    EXPECT_EQ(orvhost::PendingAnswers(), 1u);
    ASSERT_EQ(panels(L"Rig.TestProp").size(), 1u);
    EXPECT_EQ(panels(L"Rig.TestProp")[0]->name, L"Rig Tagging Tool");
    EXPECT_EQ(orvhost::Questions(), std::vector<std::wstring>{L"InspectObj: Rig Tagging Tool"});
    EXPECT_EQ(Logged(ovInfo), (std::vector<std::wstring>{L"TestProp_DefineLayout", L"TestProp_PPGEvent 1"}));
}

TEST_F(UI, InspectObjRecyclesAnOpenPage) {
    Property prop = addTestProp();
    inspect(CValue(prop.GetRef()), L"", 3, false);
    inspect(CValue(prop.GetRef()), L"", 3, false);
    EXPECT_EQ(panels(L"Rig.TestProp").size(), 1u);
    EXPECT_EQ(Logged(ovInfo), (std::vector<std::wstring>{L"TestProp_DefineLayout", L"TestProp_PPGEvent 1",
                                                         L"TestProp_PPGEvent 1"}));
    EXPECT_EQ(orvhost::Questions(),
              (std::vector<std::wstring>{L"InspectObj: Rig.TestProp", L"InspectObj: Rig.TestProp"}));
}

TEST_F(UI, InspectObjModalConsumesAnswerAndCloses) {
    addTestProp();
    orvhost::QueueAnswer(CValue(false));
    EXPECT_EQ(inspect(CValue(L"Rig.TestProp"), L"Up direction", 4, false), CValue(true));
    EXPECT_EQ(orvhost::PendingAnswers(), 0u);
    EXPECT_TRUE(panels(L"Rig.TestProp").empty());
    EXPECT_EQ(Logged(ovInfo), (std::vector<std::wstring>{L"TestProp_DefineLayout", L"TestProp_PPGEvent 1",
                                                         L"TestProp_PPGEvent 2"}));
}

TEST_F(UI, InspectObjModalWithEmptyQueueAnswersOk) {
    addTestProp();
    EXPECT_EQ(inspect(CValue(L"Rig.TestProp"), L"", 4, true), CValue(false));
    EXPECT_EQ(orvhost::Questions(), std::vector<std::wstring>{L"InspectObj: Rig.TestProp"});
}

TEST_F(UI, InspectObjModalEmptyAnswerCancels) {
    addTestProp();
    orvhost::QueueAnswer(CValue());
    EXPECT_EQ(inspect(CValue(L"Rig.TestProp"), L"", 4, false), CValue(true));
}

TEST_F(UI, InspectObjModalAnswerFillsThePage) {
    Property prop = addTestProp();
    orvhost::QueueAnswer(CValue(L"Count=5; Label=abc"));
    EXPECT_EQ(inspect(CValue(L"Rig.TestProp"), L"", 4, false), CValue(false));
    EXPECT_EQ(prop.GetParameterValue(L"Count"), CValue(5));
    EXPECT_EQ(prop.GetParameterValue(L"Label"), CValue(L"abc"));
    EXPECT_EQ(Logged(ovInfo),
              (std::vector<std::wstring>{L"TestProp_DefineLayout", L"TestProp_PPGEvent 1",
                                         L"TestProp_PPGEvent 3 Count", L"TestProp_PPGEvent 3 Label",
                                         L"TestProp_PPGEvent 2"}));
}

TEST_F(UI, InspectObjModalAnswerNamingNoParameterWarns) {
    addTestProp();
    orvhost::QueueAnswer(CValue(L"Speed=2"));
    EXPECT_EQ(inspect(CValue(L"Rig.TestProp"), L"", 4, false), CValue(false));
    EXPECT_EQ(Logged(ovWarning),
              std::vector<std::wstring>{
                  L"InspectObj: the page has no parameter \"Speed\"; that part of the answer is left out."});
}

TEST_F(UI, InspectObjCancelWithThrowFlagFails) {
    addTestProp();
    orvhost::QueueAnswer(CValue(L"cancel"));
    CStatus st;
    EXPECT_EQ(inspect(CValue(L"Rig.TestProp"), L"", 4, true, &st), CValue(true));
    EXPECT_EQ(st, CStatus::Abort);
}

TEST_F(UI, InspectObjOfPlainPropertyOpensPanel) {
    Model rig = addModel(L"Rig");
    CustomProperty plain;
    rig.AddCustomProperty(L"Custom_parameter_list", false, plain);
    orvhost::QueueAnswer(CValue(true));
    EXPECT_EQ(inspect(CValue(plain.GetRef()), L"Select File", 4, true), CValue(false));
    EXPECT_EQ(orvhost::Questions(), std::vector<std::wstring>{L"InspectObj: Select File"});
    EXPECT_TRUE(Logged(ovInfo).empty());
}

TEST_F(UI, InspectObjOfUnknownObjectIsRefused) {
    CStatus st;
    inspect(CValue(L"Nobody.Prop"), L"", 3, false, &st);
    EXPECT_EQ(st, CStatus::InvalidArgument);
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"InspectObj: nothing is named \"Nobody.Prop\"."});
}

// --- The file browser

TEST_F(UI, FileBrowserTakesQueuedPath) {
    CComAPIHandler toolkit;
    ASSERT_EQ(toolkit.CreateInstance(L"ORV.UIToolkit"), CStatus::OK);
    CComAPIHandler browser(toolkit.GetProperty(L"FileBrowser"));
    ASSERT_TRUE(browser.GetRef().IsValid());
    browser.PutProperty(L"Filter", CValue(L"Load Template (*.tagt)|*.tagt||"));
    browser.PutProperty(L"DialogTitle", CValue(L"Load Template File"));
    browser.PutProperty(L"InitialDirectory", CValue(L"/data"));
    EXPECT_EQ(browser.GetProperty(L"Filter"), CValue(L"Load Template (*.tagt)|*.tagt||"));
    EXPECT_EQ(browser.GetProperty(L"InitialDirectory"), CValue(L"/data"));
    orvhost::QueueAnswer(CValue(L"/data/biped.tagt"));
    CValue unused;
    EXPECT_EQ(browser.Call(L"ShowOpen", unused), CStatus::OK);
    EXPECT_EQ(browser.GetProperty(L"FilePathName"), CValue(L"/data/biped.tagt"));
    EXPECT_EQ(orvhost::Questions(), std::vector<std::wstring>{L"ShowOpen: Load Template File"});
}

TEST_F(UI, FileBrowserWithoutAnswerCancels) {
    CValue result;
    run(L"TestBrowse", Args({CValue(L"Save Adjustment File"), CValue(false)}), result);
    EXPECT_EQ(result, CValue(L""));
    EXPECT_EQ(orvhost::Questions(), std::vector<std::wstring>{L"ShowSave: Save Adjustment File"});
    orvhost::QueueAnswer(CValue(L"/tmp/a.adj"));
    orvhost::QueueAnswer(CValue());
    run(L"TestBrowse", Args({CValue(L"Save Adjustment File"), CValue(false)}), result);
    EXPECT_EQ(result, CValue(L"/tmp/a.adj"));
    run(L"TestBrowse", Args({CValue(L"Load"), CValue(true)}), result);
    EXPECT_EQ(result, CValue(L""));
}

TEST_F(UI, ScriptingObjectsRefuseWhatTheyDoNotHave) {
    CComAPIHandler other;
    EXPECT_EQ(other.CreateInstance(L"Some.Thing"), CStatus::MemberNotFound);
    EXPECT_FALSE(other.GetRef().IsValid());
    CComAPIHandler toolkit;
    toolkit.CreateInstance(L"ORV.UIToolkit");
    CComAPIHandler browser(toolkit.GetProperty(L"FileBrowser"));
    EXPECT_EQ(browser.PutProperty(L"Colour", CValue(1)), CStatus::MemberNotFound);
    CValue unused;
    EXPECT_EQ(browser.Call(L"ShowFolder", unused), CStatus::MemberNotFound);
    EXPECT_EQ(Logged(ovError),
              (std::vector<std::wstring>{L"CreateInstance: the host has no scripting object \"Some.Thing\".",
                                         L"PutProperty: \"FileBrowser\" has no property \"Colour\".",
                                         L"Call: \"FileBrowser\" has no method \"ShowFolder\"."}));
}

// --- Log and installation locations

TEST_F(UI, LogIsCapturedWithSeverity) {
    app.LogMessage(L"a note", ovInfo);
    app.LogMessage(L"a warning", ovWarning);
    app.LogMessage(L"an error", ovError);
    ASSERT_EQ(orvhost::LogEntries().size(), 3u);
    EXPECT_EQ(orvhost::LogEntries()[1].severity, ovWarning);
    EXPECT_EQ(orvhost::LogTexts(), (std::vector<std::wstring>{L"a note", L"a warning", L"an error"}));
    EXPECT_EQ(orvhost::LogTexts(ovWarning), std::vector<std::wstring>{L"a warning"});
    orvhost::ClearLog();
    EXPECT_TRUE(orvhost::LogEntries().empty());
}

TEST_F(UI, InstallationPathsAreSet) {
    orvhost::SetInstallationPath(ovUserPath, L"/home/me/.trovo");
    orvhost::SetInstallationPath(ovDataRootPath, L"/opt/trovo/data/Addons");
    EXPECT_EQ(app.GetInstallationPath(ovUserPath), CString(L"/home/me/.trovo"));
    EXPECT_EQ(app.GetInstallationPath(ovDataRootPath), CString(L"/opt/trovo/data/Addons"));
}
