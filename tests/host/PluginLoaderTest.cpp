// The plug-in loader: registration records, callbacks found by name, command declarations,
// contexts and their attributes, menus, scene events.
#include "HostFixture.h"

using namespace ORV;
using hosttest::HostFixture;

namespace {

class PluginLoader : public HostFixture {
protected:
    const orvhost::PluginRecord* testRecord() {
        for (const orvhost::PluginRecord& pr : orvhost::Plugins())
            if (pr.name == L"Test Plug-in") return &pr;
        return nullptr;
    }
};

}  // namespace

TEST_F(PluginLoader, RecordsRegistrationInOrder) {
    const orvhost::PluginRecord* pr = testRecord();
    ASSERT_NE(pr, nullptr);
    EXPECT_EQ(pr->author, L"Trovo tests");
    EXPECT_EQ(pr->major, 1);
    EXPECT_EQ(pr->minor, 2);
    EXPECT_NE(pr->handle, nullptr);
    const std::vector<std::pair<std::wstring, std::wstring>> expected = {
        {L"Command", L"TestEcho"},       {L"Command", L"TestModelName"},    {L"Command", L"TestNoLog"},
        {L"Command", L"Spaced Command"}, {L"Command", L"TestSelectBranch"}, {L"Command", L"TestAsk"},
        {L"Command", L"TestBrowse"},     {L"Command", L"TestProgress"},     {L"Command", L"TestPath"},
        {L"Command", L"TestTime"},       {L"Property", L"TestProp"},        {L"Property", L"Silent Prop"},
        {L"Menu", L"Test Menu"},         {L"Operator", L"TestOp"}};
    ASSERT_EQ(pr->items.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(pr->items[i].kind, expected[i].first) << i;
        EXPECT_EQ(pr->items[i].name, expected[i].second) << i;
    }
    EXPECT_EQ(pr->items[0].scriptName, L"TestEcho");
    EXPECT_EQ(pr->items[12].anchor, 218);
}

TEST_F(PluginLoader, LoadingTwiceKeepsOneRecord) {
    const std::size_t before = orvhost::Plugins().size();
    std::wstring error;
    EXPECT_TRUE(orvhost::LoadPlugin(ORV_TESTPLUGIN_PATH, error));
    EXPECT_TRUE(error.empty());
    EXPECT_EQ(orvhost::Plugins().size(), before);
    EXPECT_EQ(orvhost::PluginCommands().size(), 10u);
}

TEST_F(PluginLoader, MissingLibraryIsRefusedWithMessage) {
    std::wstring error;
    EXPECT_FALSE(orvhost::LoadPlugin("/nonexistent/libnothing.so", error));
    const std::wstring start = L"Cannot load the plug-in \"/nonexistent/libnothing.so\": ";
    EXPECT_EQ(error.substr(0, start.size()), start);
}

TEST_F(PluginLoader, LibraryWithoutEntryPointIsRefused) {
    const std::string lib = std::string(TROVO_BIN_DIR) + "/libovcoresdk.so";
    std::wstring error;
    EXPECT_FALSE(orvhost::LoadPlugin(lib, error));
    EXPECT_EQ(error, L"The library \"" + std::wstring(CString(lib.c_str()).GetWideString()) +
                         L"\" is not a plug-in: it exports no ORVLoadPlugin.");
}

TEST_F(PluginLoader, FindsCallbacksByPlainName) {
    EXPECT_NE(orvhost::FindCallback(L"TestEcho_Init"), nullptr);
    EXPECT_NE(orvhost::FindCallback(L"TestEcho_Execute"), nullptr);
    EXPECT_NE(orvhost::FindCallback(L"TestMenuItem"), nullptr);
    EXPECT_EQ(orvhost::FindCallback(L"NoSuchCallback"), nullptr);
    EXPECT_EQ(orvhost::FindCallback(L"Test Echo_Init"), nullptr);
    EXPECT_EQ(orvhost::FindCallback(L""), nullptr);
}

TEST_F(PluginLoader, CallbackNameDropsSpaces) {
    EXPECT_EQ(orvhost::CallbackName(L"Rig to Rig", L"_Init"), L"RigtoRig_Init");
    EXPECT_EQ(orvhost::CallbackName(L"Spaced Command", L"_Execute"), L"SpacedCommand_Execute");
    EXPECT_NE(orvhost::FindCallback(orvhost::CallbackName(L"Spaced Command", L"_Init")), nullptr);
}

TEST_F(PluginLoader, InitDeclaresArgumentsWithEmptyDefaults) {
    orvhost::CommandItem* cmd = orvhost::FindPluginCommand(L"TestEcho");
    ASSERT_NE(cmd, nullptr);
    Command c(cmd->Ref());
    ASSERT_TRUE(c.IsValid());
    EXPECT_EQ(c.GetName(), CString(L"TestEcho"));
    EXPECT_TRUE(c.IsReturnValueEnabled());
    EXPECT_FALSE(c.GetFlag(ovNoLogging));
    ArgumentArray args = c.GetArguments();
    ASSERT_EQ(args.GetCount(), 2);
    EXPECT_EQ(args.GetName(0), CString(L"first"));
    EXPECT_EQ(args.GetName(1), CString(L"second"));
    EXPECT_TRUE(args.GetDefault(0).IsEmpty());
    EXPECT_TRUE(args.GetDefault(1).IsEmpty());
    EXPECT_TRUE(args.GetName(2).IsEmpty());
}

TEST_F(PluginLoader, InitSetsFlagInsteadOfReturnValue) {
    orvhost::CommandItem* cmd = orvhost::FindPluginCommand(L"TestNoLog");
    ASSERT_NE(cmd, nullptr);
    Command c(cmd->Ref());
    EXPECT_TRUE(c.GetFlag(0x800000));
    EXPECT_FALSE(c.IsReturnValueEnabled());
}

TEST_F(PluginLoader, CommandHandleOnOtherItemIsInvalid) {
    Command c(root().GetRef());
    EXPECT_FALSE(c.IsValid());
    EXPECT_NE(c.EnableReturnValue(true), CStatus::OK);
    EXPECT_NE(c.GetArguments().Add(L"x"), CStatus::OK);
    PluginRegistrar reg(root().GetRef());
    EXPECT_FALSE(reg.IsValid());
    EXPECT_NE(reg.PutName(L"x"), CStatus::OK);
}

TEST_F(PluginLoader, MenuInitAddsCallbackItem) {
    std::vector<orvhost::MenuRecord*> menus = orvhost::PluginMenus();
    ASSERT_EQ(menus.size(), 1u);
    Menu menu(menus[0]->Ref());
    EXPECT_EQ(menu.GetName(), CString(L"Test Menu"));
    EXPECT_EQ(menus[0]->anchor, 218);
    CRefArray items = menu.GetItems();
    ASSERT_EQ(items.GetCount(), 1);
    MenuItem item(items[0]);
    EXPECT_EQ(item.GetLabel(), CString(L"Test Item"));
    EXPECT_EQ(item.GetCallback(), CString(L"TestMenuItem"));
}

TEST_F(PluginLoader, MenuItemClickRunsItsCallback) {
    EXPECT_EQ(orvhost::ClickMenuItem(L"Test Menu", L"Test Item"), CStatus::OK);
    EXPECT_EQ(Logged(ovInfo), std::vector<std::wstring>{L"TestMenuItem ran from Test Item"});
}

TEST_F(PluginLoader, UnknownMenuItemIsReported) {
    EXPECT_EQ(orvhost::ClickMenuItem(L"Test Menu", L"Nope"), CStatus::MemberNotFound);
    EXPECT_EQ(Logged(ovError),
              std::vector<std::wstring>{L"There is no menu item \"Nope\" in the menu \"Test Menu\"."});
}

TEST_F(PluginLoader, SceneEventsFireByName) {
    orvhost::FireSceneEvent(L"MyNewScene_OnEvent");
    orvhost::FireSceneEvent(L"MyOpenScene_OnEvent");
    orvhost::FireSceneEvent(L"NoSuchScene_OnEvent");
    EXPECT_EQ(Logged(ovInfo), (std::vector<std::wstring>{L"Test plug-in heard a new scene.",
                                                         L"Test plug-in heard an opened scene."}));
}

TEST_F(PluginLoader, ContextAttributesReadBack) {
    orvhost::ContextItem item;
    item.source = root().GetRef();
    Context ctx(item.Ref());
    ASSERT_TRUE(ctx.IsValid());
    EXPECT_EQ(ctx.GetSource(), root().GetRef());
    EXPECT_TRUE(ctx.GetAttribute(L"ReturnValue").IsEmpty());
    EXPECT_EQ(ctx.PutAttribute(L"ReturnValue", CValue(12)), CStatus::OK);
    EXPECT_EQ(ctx.GetAttribute(L"ReturnValue"), CValue(12));
    EXPECT_NE(ctx.PutAttribute(L"", CValue(1)), CStatus::OK);
    int x = 0;
    EXPECT_EQ(ctx.PutUserData(CValue(static_cast<void*>(&x))), CStatus::OK);
    EXPECT_EQ(static_cast<void*>(ctx.GetUserData()), &x);
}

TEST_F(PluginLoader, UserDataSlotLastsPerItem) {
    Null n = addNull(root(), L"A");
    CValue* slot = orvhost::UserDataSlot(n.GetRef());
    ASSERT_NE(slot, nullptr);
    *slot = CValue(5);
    EXPECT_EQ(orvhost::UserDataSlot(n.GetRef()), slot);
    EXPECT_EQ(*orvhost::UserDataSlot(n.GetRef()), CValue(5));
    EXPECT_EQ(orvhost::UserDataSlot(CRef()), nullptr);
}

TEST_F(PluginLoader, RunCallbackPassesAttributesBothWays) {
    orvhost::CommandItem* cmd = orvhost::FindPluginCommand(L"Spaced Command");
    ASSERT_NE(cmd, nullptr);
    std::map<std::wstring, CValue> attributes;
    attributes[L"Arguments"] = CValue(Args({CValue(4)}));
    EXPECT_EQ(orvhost::RunCallback(L"SpacedCommand_Execute", cmd->Ref(), &attributes), CStatus::OK);
    EXPECT_EQ(attributes[L"ReturnValue"], CValue(8));
    EXPECT_EQ(orvhost::RunCallback(L"NoSuch_Execute", cmd->Ref()), CStatus::MemberNotFound);
}

TEST_F(PluginLoader, PluginPropertyTypesAreKnown) {
    EXPECT_TRUE(orvhost::IsPluginPropertyType(L"TestProp"));
    EXPECT_TRUE(orvhost::IsPluginPropertyType(L"Silent Prop"));
    EXPECT_FALSE(orvhost::IsPluginPropertyType(L"CustomProperty"));
    EXPECT_FALSE(orvhost::IsPluginPropertyType(L"TestOp"));
}

TEST_F(PluginLoader, AddingPluginPropertyRunsDefine) {
    Model rig = addModel(L"Rig");
    Property prop = rig.AddProperty(L"TestProp");
    ASSERT_TRUE(prop.IsValid());
    EXPECT_TRUE(prop.GetParameter(L"Count").IsValid());
    EXPECT_EQ(prop.GetParameterValue(L"Label"), CValue(L"none"));
    EXPECT_EQ(Logged(ovInfo), std::vector<std::wstring>{L"TestProp_Define"});
}
