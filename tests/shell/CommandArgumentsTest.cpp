// Argument checking of the command table, run as a script caller runs it: through
// Application::ExecuteCommand, with arguments left out.
#include <string>
#include <vector>

#include "ShellTestSupport.h"
#include "shell/Commands.h"

namespace {

using shelltest::ShellTest;

enum class Kind { Model, String, Int, Bool };
enum class Answer { BoolFalse, NoneWritten };

struct MissingCase {
    const wchar_t* command;
    std::vector<Kind> arguments;  // declared arguments, in order
    int missing;                  // index of the argument left out
    const wchar_t* message;
    Answer answer;
    const char* name;  // test name suffix
};

// Test output names the case instead of dumping its bytes.
void PrintTo(const MissingCase& c, std::ostream* os) { *os << c.name; }

// Every row of the failure table, one case per message, in the order of the tests.
const std::vector<MissingCase> kFailureTable = {
    {L"Retarget",
     {Kind::Model, Kind::Model, Kind::Int, Kind::Int},
     0,
     L"Retarget command missing source model.",
     Answer::BoolFalse,
     "Retarget_sourcemodel"},
    {L"Retarget",
     {Kind::Model, Kind::Model, Kind::Int, Kind::Int},
     1,
     L"Retarget command missing destination model.",
     Answer::BoolFalse,
     "Retarget_targetmodel"},
    {L"Retarget",
     {Kind::Model, Kind::Model, Kind::Int, Kind::Int},
     2,
     L"Retarget command missing start frame.",
     Answer::BoolFalse,
     "Retarget_strarttime"},
    {L"Retarget",
     {Kind::Model, Kind::Model, Kind::Int, Kind::Int},
     3,
     L"Retarget command missing end frame.",
     Answer::BoolFalse,
     "Retarget_endtime"},
    {L"RetargetBVH",
     {Kind::Model, Kind::String, Kind::String},
     0,
     L"RetargetBVH command missing destination model.",
     Answer::BoolFalse,
     "RetargetBVH_targetmodel"},
    {L"RetargetBVH",
     {Kind::Model, Kind::String, Kind::String},
     1,
     L"RetargetBVH command missing bvhfile.",
     Answer::BoolFalse,
     "RetargetBVH_bvhfile"},
    {L"RetargetBVH",
     {Kind::Model, Kind::String, Kind::String},
     2,
     L"RetargetBVH command missing mapfile.",
     Answer::BoolFalse,
     "RetargetBVH_mapfile"},
    {L"RetargetC3DData",
     {Kind::String, Kind::String},
     0,
     L"RetargetC3DData command missing the c3d file.",
     Answer::BoolFalse,
     "RetargetC3DData_c3dfile"},
    {L"RetargetC3DData",
     {Kind::String, Kind::String},
     1,
     L"RetargetC3DData command missing the map  file.",
     Answer::BoolFalse,
     "RetargetC3DData_mapfile"},
    {L"ImportC3DFile",
     {Kind::String, Kind::Int, Kind::Bool, Kind::String},
     0,
     L"ImportC3DFile command missing the c3d file.",
     Answer::BoolFalse,
     "ImportC3DFile_c3dfile"},
    {L"ImportC3DFile",
     {Kind::String, Kind::Int, Kind::Bool, Kind::String},
     3,
     L"ImportC3DFile command missing the structure file for ESR model.",
     Answer::BoolFalse,
     "ImportC3DFile_esr_structuretemplate_Optional"},
    {L"SaveC3DPoseMap",
     {Kind::Model, Kind::Model, Kind::String},
     0,
     L"SaveC3DPoseMap command missing the c3dmodel",
     Answer::BoolFalse,
     "SaveC3DPoseMap_c3dmodel"},
    {L"SaveC3DPoseMap",
     {Kind::Model, Kind::Model, Kind::String},
     1,
     L"SaveC3DPoseMap command missing the ESR rig",
     Answer::BoolFalse,
     "SaveC3DPoseMap_ESR_rig"},
    {L"SaveC3DPoseMap",
     {Kind::Model, Kind::Model, Kind::String},
     2,
     L"SaveC3DPoseMap command missing the Map file",
     Answer::BoolFalse,
     "SaveC3DPoseMap_Map_file"},
    {L"RetargetExtractStartFrame",
     {Kind::Model},
     0,
     L"RetargetExtractStartFrame command missing source model.",
     Answer::BoolFalse,
     "RetargetExtractStartFrame_model"},
    {L"RetargetExtractEndFrame",
     {Kind::Model},
     0,
     L"RetargetExtractEndFrame command missing source model.",
     Answer::BoolFalse,
     "RetargetExtractEndFrame_model"},
    {L"LoadTrovoFile",
     {Kind::Model, Kind::String, Kind::Int},
     0,
     L"LoadTrovoFile command missing destination model.",
     Answer::BoolFalse,
     "LoadTrovoFile_targetmodel"},
    {L"LoadTrovoFile",
     {Kind::Model, Kind::String, Kind::Int},
     1,
     L"LoadTrovoFile command missing trovofile.",
     Answer::BoolFalse,
     "LoadTrovoFile_trovofile"},
    {L"SaveTrovoFile",
     {Kind::Model, Kind::String, Kind::Int, Kind::Int},
     0,
     L"SaveTrovoFile command missing source model.",
     Answer::BoolFalse,
     "SaveTrovoFile_model"},
    {L"SaveTrovoFile",
     {Kind::Model, Kind::String, Kind::Int, Kind::Int},
     1,
     L"SaveTrovoFile command missing trovofile.",
     Answer::BoolFalse,
     "SaveTrovoFile_trovofile"},
    {L"SaveTrovoFile",
     {Kind::Model, Kind::String, Kind::Int, Kind::Int},
     2,
     L"SaveTrovoFile command missing start frame.",
     Answer::BoolFalse,
     "SaveTrovoFile_start"},
    {L"SaveTrovoFile",
     {Kind::Model, Kind::String, Kind::Int, Kind::Int},
     3,
     L"SaveTrovoFile command missing end frame.",
     Answer::BoolFalse,
     "SaveTrovoFile_end"},
    {L"RemoveAllTrovoPropsAndOps",
     {Kind::Model},
     0,
     L"RemoveAllTrovoPropsAndOps command missing target model.",
     Answer::NoneWritten,
     "RemoveAllTrovoPropsAndOps_model"},
    {L"PlotRetargetMotion",
     {Kind::Model, Kind::Bool, Kind::Bool, Kind::Bool, Kind::Int, Kind::Int, Kind::Int},
     0,
     L"PlotRetargetMotion command missing target model.",
     Answer::NoneWritten,
     "PlotRetargetMotion_model"},
    {L"PlotRetargetMotion",
     {Kind::Model, Kind::Bool, Kind::Bool, Kind::Bool, Kind::Int, Kind::Int, Kind::Int},
     1,
     L"PlotRetargetMotion command missing preserve.",
     Answer::NoneWritten,
     "PlotRetargetMotion_preserve"},
    {L"PlotRetargetMotion",
     {Kind::Model, Kind::Bool, Kind::Bool, Kind::Bool, Kind::Int, Kind::Int, Kind::Int},
     2,
     L"PlotRetargetMotion command missing inflection.",
     Answer::NoneWritten,
     "PlotRetargetMotion_inflection"},
    {L"PlotRetargetMotion",
     {Kind::Model, Kind::Bool, Kind::Bool, Kind::Bool, Kind::Int, Kind::Int, Kind::Int},
     3,
     L"PlotRetargetMotion command missing interval.",
     Answer::NoneWritten,
     "PlotRetargetMotion_interval"},
    {L"PlotRetargetMotion",
     {Kind::Model, Kind::Bool, Kind::Bool, Kind::Bool, Kind::Int, Kind::Int, Kind::Int},
     4,
     L"PlotRetargetMotion command missing step.",
     Answer::NoneWritten,
     "PlotRetargetMotion_step"},
    {L"PlotRetargetMotion",
     {Kind::Model, Kind::Bool, Kind::Bool, Kind::Bool, Kind::Int, Kind::Int, Kind::Int},
     5,
     L"PlotRetargetMotion command missing start.",
     Answer::NoneWritten,
     "PlotRetargetMotion_start"},
    {L"PlotRetargetMotion",
     {Kind::Model, Kind::Bool, Kind::Bool, Kind::Bool, Kind::Int, Kind::Int, Kind::Int},
     6,
     L"PlotRetargetMotion command missing end.",
     Answer::NoneWritten,
     "PlotRetargetMotion_end"},
    {L"RemoveTROVOOperators",
     {Kind::Model},
     0,
     L"RemoveTROVOOperators command missing target model.",
     Answer::NoneWritten,
     "RemoveTROVOOperators_model"},
    {L"SaveTROVOAdjustmentPresetFile",
     {Kind::Model, Kind::String},
     0,
     L"SaveTROVOAdjustmentPresetFile command missing target model.",
     Answer::NoneWritten,
     "SaveTROVOAdjustmentPresetFile_model"},
    {L"SaveTROVOAdjustmentPresetFile",
     {Kind::Model, Kind::String},
     1,
     L"SaveTROVOAdjustmentPresetFile command missing file path.",
     Answer::NoneWritten,
     "SaveTROVOAdjustmentPresetFile_filename"},
    {L"LoadTROVOAdjustmentPresetFile",
     {Kind::Model, Kind::String},
     0,
     L"LoadTROVOAdjustmentPresetFile command missing target model.",
     Answer::NoneWritten,
     "LoadTROVOAdjustmentPresetFile_model"},
    {L"LoadTROVOAdjustmentPresetFile",
     {Kind::Model, Kind::String},
     1,
     L"LoadTROVOAdjustmentPresetFile command missing file path.",
     Answer::NoneWritten,
     "LoadTROVOAdjustmentPresetFile_filename"},
};

// A present value of each kind. Files need not exist: the checks never look at them.
ORV::CValue PresentValue(Kind kind, const ORV::Model& model) {
    switch (kind) {
        case Kind::Model:
            return model.GetRef();
        case Kind::String:
            return ORV::CString(L"missing-file.dat");
        case Kind::Int:
            return 1;
        case Kind::Bool:
            return false;  // false is present, too
    }
    return ORV::CValue();
}

struct Outcome {
    ORV::CStatus status;
    ORV::CValue result;
    std::vector<orvhost::LogEntry> log;
};

class MissingArgument : public ShellTest, public ::testing::WithParamInterface<MissingCase> {
protected:
    // Runs the case's command with the arguments before `missing` present, `missing` left
    // empty, and those after it present (`laterPresent`) or empty too.
    Outcome RunWithMissing(bool laterPresent) {
        orvhost::ClearLog();
        const MissingCase& c = GetParam();
        ORV::Model model = AddModel(Root(), L"Rig");
        ORV::CValueArray args;
        for (int i = 0; i < static_cast<int>(c.arguments.size()); ++i) {
            bool present = i < c.missing || (i > c.missing && laterPresent);
            args.Add(present ? PresentValue(c.arguments[i], model) : ORV::CValue());
        }
        Outcome outcome;
        outcome.status = Run(c.command, args, outcome.result);
        outcome.log = Log();
        return outcome;
    }

    void ExpectOnlyTheMissingMessage(const Outcome& outcome) {
        const MissingCase& c = GetParam();
        EXPECT_EQ(outcome.status, ORV::CStatus::OK);
        ASSERT_EQ(outcome.log.size(), 1u);
        EXPECT_EQ(outcome.log[0].text, c.message);
        EXPECT_EQ(outcome.log[0].severity, 4);
        if (c.answer == Answer::BoolFalse) {
            EXPECT_EQ(outcome.result.GetType(), ORV::ovBool);
            EXPECT_FALSE(static_cast<bool>(outcome.result));
        } else {
            EXPECT_TRUE(outcome.result.IsEmpty());
        }
    }
};

TEST_P(MissingArgument, LogsItsMessageAtSeverityFourAndStops) {
    ExpectOnlyTheMissingMessage(RunWithMissing(true));
}

TEST_P(MissingArgument, ReportsOnlyTheFirstMissingArgument) {
    ExpectOnlyTheMissingMessage(RunWithMissing(false));
}

INSTANTIATE_TEST_SUITE_P(FailureTable, MissingArgument, ::testing::ValuesIn(kFailureTable),
                         [](const ::testing::TestParamInfo<MissingCase>& info) {
                             return std::string(info.param.name);
                         });

// ---- The silent tag and structure commands --------------------------------------------------

struct SilentCase {
    const wchar_t* command;
    std::vector<Kind> arguments;
    const char* name;
};

const std::vector<SilentCase> kSilentCommands = {
    {L"SetTagValue", {Kind::Model, Kind::String, Kind::String, Kind::Int}, "SetTagValue"},
    {L"SaveTagTemplateFile", {Kind::Model, Kind::String}, "SaveTagTemplateFile"},
    {L"LoadTagTemplateFile", {Kind::Model, Kind::String}, "LoadTagTemplateFile"},
    {L"InheritRetargetSetup", {Kind::Model, Kind::String}, "InheritRetargetSetup"},
    {L"ApplyTagsToRig", {Kind::Model}, "ApplyTagsToRig"},
    {L"CleanTagsFromRig", {Kind::Model}, "CleanTagsFromRig"},
    {L"SetStructureFile", {Kind::Model, Kind::String}, "SetStructureFile"},
};

void PrintTo(const SilentCase& c, std::ostream* os) { *os << c.name; }

class SilentCommand : public ShellTest, public ::testing::WithParamInterface<SilentCase> {};

TEST_P(SilentCommand, AnyMissingArgumentSkipsTheLogicWithoutAWord) {
    const SilentCase& c = GetParam();
    ORV::Model model = AddModel(Root(), L"Rig");
    for (int missing = 0; missing < static_cast<int>(c.arguments.size()); ++missing) {
        orvhost::ClearLog();
        ORV::CValueArray args;
        for (int i = 0; i < static_cast<int>(c.arguments.size()); ++i) {
            args.Add(i == missing ? ORV::CValue() : PresentValue(c.arguments[i], model));
        }
        ORV::CValue result;
        EXPECT_EQ(Run(c.command, args, result), ORV::CStatus::OK) << "missing " << missing;
        EXPECT_TRUE(Log().empty()) << "missing " << missing;
        EXPECT_TRUE(result.IsEmpty()) << "missing " << missing;
    }
}

INSTANTIATE_TEST_SUITE_P(TagAndStructureCommands, SilentCommand, ::testing::ValuesIn(kSilentCommands),
                         [](const ::testing::TestParamInfo<SilentCase>& info) {
                             return std::string(info.param.name);
                         });

// ---- With every argument present, the checks pass -------------------------------------------

bool LogHoldsAFailureTableMessage(const std::vector<orvhost::LogEntry>& log) {
    for (const orvhost::LogEntry& entry : log) {
        for (const MissingCase& c : kFailureTable) {
            if (entry.text == c.message) {
                return true;
            }
        }
    }
    return false;
}

enum class Stored { Bool, Int, Nothing };

TEST_F(ShellTest, CommandsWithAllArgumentsPresentPassTheirChecksAndStoreTheirAnswer) {
    struct Full {
        const wchar_t* command;
        std::vector<Kind> arguments;
        Stored answer;
    };
    // All 21 commands, with the "ReturnValue" each writes once its arguments have passed.
    const std::vector<Full> table = {
        {L"Retarget", {Kind::Model, Kind::Model, Kind::Int, Kind::Int}, Stored::Bool},
        {L"RetargetBVH", {Kind::Model, Kind::String, Kind::String}, Stored::Bool},
        {L"RetargetC3DData", {Kind::String, Kind::String}, Stored::Bool},
        {L"ImportC3DFile", {Kind::String, Kind::Int, Kind::Bool, Kind::String}, Stored::Bool},
        {L"SaveC3DPoseMap", {Kind::Model, Kind::Model, Kind::String}, Stored::Bool},
        {L"SetTagValue", {Kind::Model, Kind::String, Kind::String, Kind::Int}, Stored::Bool},
        {L"SaveTagTemplateFile", {Kind::Model, Kind::String}, Stored::Bool},
        {L"LoadTagTemplateFile", {Kind::Model, Kind::String}, Stored::Bool},
        {L"InheritRetargetSetup", {Kind::Model, Kind::String}, Stored::Bool},
        {L"ApplyTagsToRig", {Kind::Model}, Stored::Bool},
        {L"CleanTagsFromRig", {Kind::Model}, Stored::Bool},
        {L"SetStructureFile", {Kind::Model, Kind::String}, Stored::Bool},
        {L"RetargetExtractStartFrame", {Kind::Model}, Stored::Int},
        {L"RetargetExtractEndFrame", {Kind::Model}, Stored::Int},
        {L"LoadTrovoFile", {Kind::Model, Kind::String, Kind::Int}, Stored::Bool},
        {L"SaveTrovoFile", {Kind::Model, Kind::String, Kind::Int, Kind::Int}, Stored::Bool},
        {L"RemoveAllTrovoPropsAndOps", {Kind::Model}, Stored::Nothing},
        {L"PlotRetargetMotion",
         {Kind::Model, Kind::Bool, Kind::Bool, Kind::Bool, Kind::Int, Kind::Int, Kind::Int},
         Stored::Nothing},
        {L"RemoveTROVOOperators", {Kind::Model}, Stored::Nothing},
        {L"SaveTROVOAdjustmentPresetFile", {Kind::Model, Kind::String}, Stored::Nothing},
        {L"LoadTROVOAdjustmentPresetFile", {Kind::Model, Kind::String}, Stored::Nothing},
    };
    ASSERT_EQ(table.size(), 21u);
    ORV::Model model = AddModel(Root(), L"Rig");
    for (const Full& f : table) {
        orvhost::ClearLog();
        ORV::CValueArray args;
        for (Kind kind : f.arguments) {
            args.Add(PresentValue(kind, model));
        }
        ORV::CValue result;
        EXPECT_EQ(Run(f.command, args, result), ORV::CStatus::OK) << f.command;
        EXPECT_FALSE(LogHoldsAFailureTableMessage(Log())) << f.command;
        switch (f.answer) {
            case Stored::Bool:
                EXPECT_EQ(result.GetType(), ORV::ovBool) << f.command;
                break;
            case Stored::Int:
                EXPECT_EQ(result.GetType(), ORV::ovInt4) << f.command;
                break;
            case Stored::Nothing:
                EXPECT_TRUE(result.IsEmpty()) << f.command;
                break;
        }
    }
}

// ---- Edge cases of the command table --------------------------------------------------------

TEST_F(ShellTest, RetargetWithOnlyASourceReportsOnlyTheMissingDestination) {
    ORV::Model source = AddModel(Root(), L"Source");
    ORV::CValueArray args;
    args.Add(source.GetRef());
    ORV::CValue result;
    EXPECT_EQ(Run(L"Retarget", args, result), ORV::CStatus::OK);
    std::vector<orvhost::LogEntry> log = Log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].text, L"Retarget command missing destination model.");
    EXPECT_EQ(log[0].severity, 4);
    EXPECT_EQ(result.GetType(), ORV::ovBool);
    EXPECT_FALSE(static_cast<bool>(result));
}

TEST_F(ShellTest, ImportC3DFileWithAFalseEsrFlagStillRequiresTheTemplate) {
    ORV::CValueArray args;
    args.Add(ORV::CString(L"walk.c3d"));
    args.Add(ORV::CValue());
    args.Add(false);
    ORV::CValue result;
    EXPECT_EQ(Run(L"ImportC3DFile", args, result), ORV::CStatus::OK);
    std::vector<orvhost::LogEntry> log = Log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].text, L"ImportC3DFile command missing the structure file for ESR model.");
    EXPECT_EQ(log[0].severity, 4);
    EXPECT_EQ(result.GetType(), ORV::ovBool);
    EXPECT_FALSE(static_cast<bool>(result));

    orvhost::ClearLog();
    ZUK::Commands::ImportC3DFileArguments read;
    EXPECT_FALSE(ZUK::Commands::ReadImportC3DFileArguments(args, read));
    ASSERT_EQ(Log().size(), 1u);
    EXPECT_EQ(Log()[0].text, L"ImportC3DFile command missing the structure file for ESR model.");
}

TEST_F(ShellTest, ImportC3DFileWithoutTheEsrFlagProceedsWithAnEmptyTemplate) {
    ORV::CValueArray args;
    args.Add(ORV::CString(L"walk.c3d"));
    ZUK::Commands::ImportC3DFileArguments read;
    read.structureFile = L"left over";
    ASSERT_TRUE(ZUK::Commands::ReadImportC3DFileArguments(args, read));
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(read.c3dFile, L"walk.c3d");
    EXPECT_EQ(read.upDirection, 2);
    EXPECT_FALSE(read.createESR);
    EXPECT_EQ(read.structureFile, L"");

    // Through the command: no missing-argument message, and the logic's answer is stored.
    ORV::CValue result;
    EXPECT_EQ(Run(L"ImportC3DFile", args, result), ORV::CStatus::OK);
    EXPECT_FALSE(LogHoldsAFailureTableMessage(Log()));
    EXPECT_EQ(result.GetType(), ORV::ovBool);
}

TEST_F(ShellTest, ImportC3DFileReadsEveryPresentArgument) {
    ORV::CValueArray args;
    args.Add(ORV::CString(L"walk.c3d"));
    args.Add(1);
    args.Add(true);
    args.Add(ORV::CString(L"Biped"));
    ZUK::Commands::ImportC3DFileArguments read;
    ASSERT_TRUE(ZUK::Commands::ReadImportC3DFileArguments(args, read));
    EXPECT_EQ(read.c3dFile, L"walk.c3d");
    EXPECT_EQ(read.upDirection, 1);
    EXPECT_TRUE(read.createESR);
    EXPECT_EQ(read.structureFile, L"Biped");
}

TEST_F(ShellTest, LoadTrovoFileWithoutStartPassesZero) {
    ORV::Model target = AddModel(Root(), L"Rig");
    ORV::CValueArray args;
    args.Add(target.GetRef());
    args.Add(ORV::CString(L"walk.trovo"));
    ZUK::Commands::LoadTrovoFileArguments read;
    read.start = 99;
    ASSERT_TRUE(ZUK::Commands::ReadLoadTrovoFileArguments(args, read));
    EXPECT_EQ(read.start, 0);
    EXPECT_EQ(read.target, target);
    EXPECT_EQ(read.file, L"walk.trovo");

    // An explicitly empty third argument is the same as none.
    args.Add(ORV::CValue());
    read.start = 99;
    ASSERT_TRUE(ZUK::Commands::ReadLoadTrovoFileArguments(args, read));
    EXPECT_EQ(read.start, 0);

    ORV::CValueArray withStart;
    withStart.Add(target.GetRef());
    withStart.Add(ORV::CString(L"walk.trovo"));
    withStart.Add(12);
    ASSERT_TRUE(ZUK::Commands::ReadLoadTrovoFileArguments(withStart, read));
    EXPECT_EQ(read.start, 12);
    EXPECT_TRUE(Log().empty());

    ORV::CValue result;
    EXPECT_EQ(Run(L"LoadTrovoFile", args, result), ORV::CStatus::OK);
    EXPECT_FALSE(LogHoldsAFailureTableMessage(Log()));
    EXPECT_EQ(result.GetType(), ORV::ovBool);
}

TEST_F(ShellTest, RetargetExtractStartFrameWithoutARangeAnswersTheIntZero) {
    ORV::Model model = AddModel(Root(), L"Still");
    AddNull(model, L"Hips");
    for (const wchar_t* command : {L"RetargetExtractStartFrame", L"RetargetExtractEndFrame"}) {
        ORV::CValueArray args;
        args.Add(model.GetRef());
        ORV::CValue result;
        EXPECT_EQ(Run(command, args, result), ORV::CStatus::OK) << command;
        EXPECT_EQ(result.GetType(), ORV::ovInt4) << command;
        EXPECT_EQ(static_cast<int>(result), 0) << command;
    }
}

TEST_F(ShellTest, RetargetExtractStartFrameWithoutAModelAnswersTheBoolFalse) {
    ORV::CValueArray args;
    args.Add(ORV::CValue());
    ORV::CValue result;
    EXPECT_EQ(Run(L"RetargetExtractStartFrame", args, result), ORV::CStatus::OK);
    EXPECT_EQ(result.GetType(), ORV::ovBool);
    EXPECT_FALSE(static_cast<bool>(result));
}

TEST_F(ShellTest, InheritRetargetSetupAndLoadTagTemplateFileBehaveIdentically) {
    ORV::Model model = AddModel(Root(), L"Rig");
    std::vector<ORV::CValueArray> calls(4);
    calls[1].Add(model.GetRef());
    calls[2].Add(model.GetRef());
    calls[2].Add(ORV::CString(L"missing.tagt"));
    calls[3].Add(ORV::CValue());
    calls[3].Add(ORV::CString(L"missing.tagt"));
    for (const ORV::CValueArray& args : calls) {
        std::vector<std::pair<std::wstring, int>> logs[2];
        ORV::CValue results[2];
        ORV::CStatus statuses[2];
        const wchar_t* commands[2] = {L"LoadTagTemplateFile", L"InheritRetargetSetup"};
        for (int k = 0; k < 2; ++k) {
            orvhost::ClearLog();
            statuses[k] = Run(commands[k], args, results[k]);
            for (const orvhost::LogEntry& entry : Log()) {
                logs[k].emplace_back(entry.text, entry.severity);
            }
        }
        EXPECT_EQ(statuses[0], statuses[1]);
        EXPECT_EQ(results[0].GetType(), results[1].GetType());
        EXPECT_EQ(results[0], results[1]);
        EXPECT_EQ(logs[0], logs[1]);
    }
}

TEST_F(ShellTest, RemoveTROVOOperatorsOnAModelWithoutOperatorsStillReturnsOK) {
    ORV::Model model = AddModel(Root(), L"Plain");
    ORV::CValueArray args;
    args.Add(model.GetRef());
    ORV::CValue result;
    EXPECT_EQ(Run(L"RemoveTROVOOperators", args, result), ORV::CStatus::OK);
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_TRUE(model.IsValid());
}

TEST_F(ShellTest, ModelArgumentGivenByNameResolvesToTheModel) {
    ORV::Model model = AddModel(Root(), L"Named");
    ORV::CValueArray args;
    args.Add(ORV::CString(L"Named"));
    args.Add(ORV::CString(L"walk.trovo"));
    ZUK::Commands::LoadTrovoFileArguments read;
    ASSERT_TRUE(ZUK::Commands::ReadLoadTrovoFileArguments(args, read));
    EXPECT_EQ(read.target, model);
}

}  // namespace
