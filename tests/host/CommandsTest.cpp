// The command table: plug-in commands run by name with their arguments, return values, the
// command log, built-ins and their in-out arguments.
#include "HostFixture.h"

using namespace ORV;
using hosttest::HostFixture;

namespace {

class Commands : public HostFixture {};

}  // namespace

TEST_F(Commands, PluginCommandRunsThroughApplication) {
    CValue result;
    EXPECT_EQ(run(L"TestEcho", Args({CValue(5), CValue(L"abc")}), result), CStatus::OK);
    EXPECT_EQ(result, CValue(L"first=3:5;second=8:abc"));
}

TEST_F(Commands, MissingArgumentsArriveEmpty) {
    CValue result;
    EXPECT_EQ(run(L"TestEcho", Args({CValue(5)}), result), CStatus::OK);
    EXPECT_EQ(result, CValue(L"first=3:5;second=0:"));
    EXPECT_EQ(run(L"TestEcho", CValueArray(), result), CStatus::OK);
    EXPECT_EQ(result, CValue(L"first=0:;second=0:"));
}

TEST_F(Commands, PresentFalseAndZeroAreNotMissing) {
    CValue result;
    run(L"TestEcho", Args({CValue(false), CValue(0)}), result);
    EXPECT_EQ(result, CValue(L"first=11:false;second=3:0"));
}

TEST_F(Commands, TooManyArgumentsAreRefused) {
    CValue result;
    EXPECT_EQ(run(L"TestEcho", Args({CValue(1), CValue(2), CValue(3)}), result), CStatus::InvalidArgument);
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_EQ(Logged(ovError),
              std::vector<std::wstring>{L"The command \"TestEcho\" takes 2 arguments; 3 were given."});
}

TEST_F(Commands, ModelArgumentByReferenceOrPath) {
    Model rig = addModel(L"Rig");
    CValue result;
    run(L"TestModelName", Args({CValue(rig.GetRef())}), result);
    EXPECT_EQ(result, CValue(L"Rig"));
    run(L"TestModelName", Args({CValue(L"Rig")}), result);
    EXPECT_EQ(result, CValue(L"Rig"));
}

TEST_F(Commands, MissingModelLogsAndReturnsFalse) {
    CValue result;
    EXPECT_EQ(run(L"TestModelName", CValueArray(), result), CStatus::OK);
    EXPECT_EQ(result.GetType(), ovBool);
    EXPECT_EQ(result, CValue(false));
    EXPECT_EQ(Logged(ovWarning), std::vector<std::wstring>{L"TestModelName command missing target model."});
}

TEST_F(Commands, ReturnValueIsDroppedWhenNotEnabled) {
    CValue result(1);
    EXPECT_EQ(run(L"TestNoLog", Args({CValue(L"hi")}), result), CStatus::OK);
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_EQ(Logged(ovInfo), std::vector<std::wstring>{L"TestNoLog ran with hi"});
}

TEST_F(Commands, SpacedCommandRunsByItsName) {
    CValue result;
    EXPECT_EQ(run(L"Spaced Command", Args({CValue(21)}), result), CStatus::OK);
    EXPECT_EQ(result, CValue(42));
}

TEST_F(Commands, PluginCommandCallsHostCommand) {
    Model rig = addModel(L"Rig");
    Null hips = addNull(rig, L"Hips");
    addNull(hips, L"Spine");
    CValue result;
    run(L"TestSelectBranch", Args({CValue(rig.GetRef())}), result);
    EXPECT_EQ(result, CValue(3));
}

TEST_F(Commands, CommandLogEchoesCommands) {
    ASSERT_TRUE(orvhost::CommandLogOn());
    addModel(L"Rig");
    CValue result;
    run(L"SelectObj", Args({CValue(L"Rig"), CValue(L"BRANCH")}), result);
    run(L"TestEcho", Args({CValue(true), CValue(2.5)}), result);
    run(L"FrameAll", CValueArray(), result);
    EXPECT_EQ(Logged(ovVerbose), (std::vector<std::wstring>{L"SelectObj(\"Rig\", \"BRANCH\")",
                                                            L"TestEcho(true, 2.5)", L"FrameAll()"}));
}

TEST_F(Commands, NoLoggingFlagKeepsCommandOutOfLog) {
    CValue result;
    run(L"TestNoLog", Args({CValue(L"x")}), result);
    EXPECT_TRUE(Logged(ovVerbose).empty());
}

TEST_F(Commands, CommandLogOffStopsEcho) {
    CValue result;
    run(L"SetValue", Args({CValue(L"preferences.scripting.cmdlog"), CValue(false)}), result);
    EXPECT_FALSE(orvhost::CommandLogOn());
    orvhost::ClearLog();
    run(L"DeselectAll", CValueArray(), result);
    EXPECT_TRUE(orvhost::LogEntries().empty());
}

TEST_F(Commands, UnknownCommandIsReported) {
    CValue result;
    EXPECT_EQ(run(L"NoSuchCommand", CValueArray(), result), CStatus::MemberNotFound);
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"Unknown command \"NoSuchCommand\"."});
}

TEST_F(Commands, NamesMatchWithoutCase) {
    CValue result;
    EXPECT_EQ(run(L"testecho", Args({CValue(1)}), result), CStatus::OK);
    EXPECT_EQ(result, CValue(L"first=3:1;second=0:"));
    EXPECT_EQ(run(L"getvalue", Args({CValue(L"PlayControl.Current")}), result), CStatus::OK);
    EXPECT_EQ(result, CValue(1.0));
}

TEST_F(Commands, ListHoldsBuiltinsThenPluginCommandsInOrder) {
    std::vector<orvhost::CommandInfo> all = orvhost::ListCommands();
    std::vector<std::wstring> builtins, plugin;
    for (const auto& c : all) (c.builtin ? builtins : plugin).push_back(c.name);
    // The host's script commands, every one of them.
    const std::vector<std::wstring> host = {
        L"SelectObj",    L"DeselectAll", L"FrameAll", L"DeleteObj",  L"RemoveAllAnimation",
        L"EnumElements", L"GetValue",    L"SetValue", L"InspectObj", L"GetConstrainedObjects",
        L"GetSkeleton",  L"PickObject",  L"SetExpr",  L"AddExpr",    L"ShowFileForEdit"};
    for (const std::wstring& name : host)
        EXPECT_NE(std::find(builtins.begin(), builtins.end(), name), builtins.end())
            << hosttest::Narrow(name);
    EXPECT_EQ(builtins.size(), host.size());
    EXPECT_EQ(plugin, (std::vector<std::wstring>{L"TestEcho", L"TestModelName", L"TestNoLog",
                                                 L"Spaced Command", L"TestSelectBranch", L"TestAsk",
                                                 L"TestBrowse", L"TestProgress", L"TestPath", L"TestTime"}));
}

TEST_F(Commands, FindCommandGivesDeclaredArguments) {
    orvhost::CommandInfo info;
    ASSERT_TRUE(orvhost::FindCommand(L"TestEcho", info));
    EXPECT_FALSE(info.builtin);
    EXPECT_TRUE(info.returnValue);
    EXPECT_EQ(info.arguments, (std::vector<std::wstring>{L"first", L"second"}));
    ASSERT_TRUE(orvhost::FindCommand(L"TestNoLog", info));
    EXPECT_FALSE(info.returnValue);
    ASSERT_TRUE(orvhost::FindCommand(L"SetValue", info));
    EXPECT_TRUE(info.builtin);
    EXPECT_EQ(info.arguments, (std::vector<std::wstring>{L"target", L"value", L"time"}));
    EXPECT_FALSE(orvhost::FindCommand(L"NoSuchCommand", info));
}

TEST_F(Commands, BuiltinWritesInOutArgumentsBack) {
    orvhost::RegisterBuiltin(L"TestInOut", {L"in", L"out"}, [](CValueArray& args, CValue& result) {
        result = args[0];
        args[1] = CValue(L"written");
        return CStatus(CStatus::OK);
    });
    CValueArray args = Args({CValue(3), CValue()});
    CValue result;
    EXPECT_EQ(run(L"TestInOut", args, result), CStatus::OK);
    EXPECT_EQ(result, CValue(3));
    EXPECT_EQ(args[0], CValue(3));
    EXPECT_EQ(args[1], CValue(L"written"));
}

TEST_F(Commands, CommandContextGivesTheCurrentFrameAsAnOperatorContext) {
    Property pc(app.GetActiveProject().GetProperties().GetItem(L"Play Control"));
    ASSERT_EQ(pc.PutParameterValue(L"Current", CValue(12.5)), CStatus::OK);
    CValue result;
    ASSERT_EQ(run(L"TestTime", CValueArray(), result), CStatus::OK);
    EXPECT_EQ(result.GetType(), ovDouble);
    EXPECT_EQ(static_cast<double>(result), 12.5);
}
