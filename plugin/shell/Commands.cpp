// The 21 script commands: declaration (_Init) and argument checking in front of one logic
// function each (_Execute). Every callback answers OK; a script learns of a failure through
// "ReturnValue" and the log.
#include "shell/Commands.h"

#include <initializer_list>

#include "live/RetargetOp.h"
#include "panels/AdjustPPG.h"
#include "panels/MocapToRigPPG.h"
#include "panels/TagPPG.h"
#include "plot/PlotRetarget.h"
#include "shell/Retarget.h"

namespace ZUK {
namespace Commands {

namespace {

ORV::Application app;

// An argument is missing when its value is of the empty type; every argument is declared with
// an empty default, so that is what a script caller who leaves it out gives.
bool isMissing(const ORV::CValueArray& args, long index) {
    return index >= args.GetCount() || args[index].IsEmpty();
}

// True when the argument is present; otherwise logs `message` at severity 4.
bool require(const ORV::CValueArray& args, long index, const wchar_t* message) {
    if (!isMissing(args, index)) {
        return true;
    }
    app.LogMessage(message, 4);
    return false;
}

ORV::Model toModel(const ORV::CValue& value) {
    ORV::CRef ref = value;
    return ORV::Model(ref);
}

ORV::CString toString(const ORV::CValue& value) { return static_cast<ORV::CString>(value); }

int toInt(const ORV::CValue& value) { return static_cast<int>(value); }

bool toBool(const ORV::CValue& value) { return static_cast<bool>(value); }

// The command's arguments, in the order in which _Init declared them.
ORV::CValueArray arguments(ORV::Context& ctxt) {
    const ORV::CValue value = ctxt.GetAttribute(L"Arguments");
    const ORV::CValueArray& args = value;
    return args;
}

void putReturn(ORV::Context& ctxt, const ORV::CValue& value) { ctxt.PutAttribute(L"ReturnValue", value); }

// Declares the arguments with empty defaults and enables the return value.
ORV::CStatus declare(ORV::CRef& in_ctxt, std::initializer_list<const wchar_t*> names) {
    ORV::Context ctxt(in_ctxt);
    ORV::Command command(ctxt.GetSource());
    command.EnableReturnValue(true);
    ORV::ArgumentArray args = command.GetArguments();
    for (const wchar_t* name : names) {
        args.Add(name, ORV::CValue());
    }
    return ORV::CStatus::OK;
}

// The failure path of a command with a bool return value.
ORV::CStatus failed(ORV::Context& ctxt) {
    putReturn(ctxt, false);
    return ORV::CStatus::OK;
}

}  // namespace

bool ReadImportC3DFileArguments(const ORV::CValueArray& args, ImportC3DFileArguments& out) {
    if (!require(args, 0, L"ImportC3DFile command missing the c3d file.")) {
        return false;
    }
    out.c3dFile = toString(args[0]);
    out.upDirection = isMissing(args, 1) ? 2 : toInt(args[1]);
    out.createESR = false;
    out.structureFile = ORV::CString();
    // The template becomes required when the flag is present, also when it is false.
    if (!isMissing(args, 2)) {
        out.createESR = toBool(args[2]);
        if (!require(args, 3, L"ImportC3DFile command missing the structure file for ESR model.")) {
            return false;
        }
        out.structureFile = toString(args[3]);
    }
    return true;
}

bool ReadLoadTrovoFileArguments(const ORV::CValueArray& args, LoadTrovoFileArguments& out) {
    if (!require(args, 0, L"LoadTrovoFile command missing destination model.")) {
        return false;
    }
    out.target = toModel(args[0]);
    if (!require(args, 1, L"LoadTrovoFile command missing trovofile.")) {
        return false;
    }
    out.file = toString(args[1]);
    out.start = isMissing(args, 2) ? 0 : toInt(args[2]);
    return true;
}

}  // namespace Commands
}  // namespace ZUK

using ZUK::Commands::arguments;
using ZUK::Commands::declare;
using ZUK::Commands::failed;
using ZUK::Commands::isMissing;
using ZUK::Commands::putReturn;
using ZUK::Commands::require;
using ZUK::Commands::toBool;
using ZUK::Commands::toInt;
using ZUK::Commands::toModel;
using ZUK::Commands::toString;

// ---- Retarget -------------------------------------------------------------------------------

extern "C" ORV::CStatus Retarget_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"sourcemodel", L"targetmodel", L"strarttime", L"endtime"});
}

extern "C" ORV::CStatus Retarget_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"Retarget command missing source model.")) {
        return failed(ctxt);
    }
    ORV::Model source = toModel(args[0]);
    if (!require(args, 1, L"Retarget command missing destination model.")) {
        return failed(ctxt);
    }
    ORV::Model target = toModel(args[1]);
    if (!require(args, 2, L"Retarget command missing start frame.")) {
        return failed(ctxt);
    }
    int start = toInt(args[2]);
    if (!require(args, 3, L"Retarget command missing end frame.")) {
        return failed(ctxt);
    }
    int end = toInt(args[3]);
    putReturn(ctxt, ZUK::Retarget::ModelToModel(source, target, start, end));
    return ORV::CStatus::OK;
}

// ---- RetargetBVH ----------------------------------------------------------------------------

extern "C" ORV::CStatus RetargetBVH_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"targetmodel", L"bvhfile", L"mapfile"});
}

extern "C" ORV::CStatus RetargetBVH_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"RetargetBVH command missing destination model.")) {
        return failed(ctxt);
    }
    ORV::Model target = toModel(args[0]);
    if (!require(args, 1, L"RetargetBVH command missing bvhfile.")) {
        return failed(ctxt);
    }
    ORV::CString bvhFile = toString(args[1]);
    if (!require(args, 2, L"RetargetBVH command missing mapfile.")) {
        return failed(ctxt);
    }
    ORV::CString mapFile = toString(args[2]);
    putReturn(ctxt, ZUK::Retarget::LoadBVHOnToModel(bvhFile, mapFile, target));
    return ORV::CStatus::OK;
}

// ---- RetargetC3DData ------------------------------------------------------------------------

extern "C" ORV::CStatus RetargetC3DData_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"c3dfile", L"mapfile"});
}

extern "C" ORV::CStatus RetargetC3DData_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"RetargetC3DData command missing the c3d file.")) {
        return failed(ctxt);
    }
    ORV::CString c3dFile = toString(args[0]);
    // The two blanks are the command's own words.
    if (!require(args, 1, L"RetargetC3DData command missing the map  file.")) {
        return failed(ctxt);
    }
    ORV::CString mapFile = toString(args[1]);
    putReturn(ctxt, ZUK::Retarget::LoadC3DOnToESR(c3dFile, mapFile));
    return ORV::CStatus::OK;
}

// ---- ImportC3DFile --------------------------------------------------------------------------

extern "C" ORV::CStatus ImportC3DFile_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt,
                   {L"c3dfile", L"updir", L"create_esr_Optional", L"esr_structuretemplate_Optional"});
}

extern "C" ORV::CStatus ImportC3DFile_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ZUK::Commands::ImportC3DFileArguments in;
    if (!ZUK::Commands::ReadImportC3DFileArguments(arguments(ctxt), in)) {
        return failed(ctxt);
    }
    putReturn(ctxt, ZUK::Retarget::ImportC3DFile(in.c3dFile, in.upDirection, in.createESR, in.structureFile));
    return ORV::CStatus::OK;
}

// ---- SaveC3DPoseMap -------------------------------------------------------------------------

extern "C" ORV::CStatus SaveC3DPoseMap_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"c3dmodel", L"ESR_rig", L"Map_file"});
}

extern "C" ORV::CStatus SaveC3DPoseMap_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"SaveC3DPoseMap command missing the c3dmodel")) {
        return failed(ctxt);
    }
    ORV::Model c3dModel = toModel(args[0]);
    if (!require(args, 1, L"SaveC3DPoseMap command missing the ESR rig")) {
        return failed(ctxt);
    }
    ORV::Model esr = toModel(args[1]);
    if (!require(args, 2, L"SaveC3DPoseMap command missing the Map file")) {
        return failed(ctxt);
    }
    ORV::CString file = toString(args[2]);
    putReturn(ctxt, ZUK::Retarget::SaveC3DPoseMapFile(c3dModel, esr, file));
    return ORV::CStatus::OK;
}

// ---- Tag and structure commands -------------------------------------------------------------
// Silent by design: a missing argument skips the logic, logs nothing and writes no return value.

extern "C" ORV::CStatus SetTagValue_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"model", L"tagname", L"tagvalue", L"tagtype"});
}

extern "C" ORV::CStatus SetTagValue_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    for (long i = 0; i < 4; ++i) {
        if (isMissing(args, i)) {
            return ORV::CStatus::OK;
        }
    }
    putReturn(ctxt, ZUK::TagPPG::SetTagValue(toModel(args[0]), toString(args[1]), toString(args[2]),
                                             toInt(args[3])));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus SaveTagTemplateFile_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"model", L"tag_template_filename"});
}

extern "C" ORV::CStatus SaveTagTemplateFile_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (isMissing(args, 0) || isMissing(args, 1)) {
        return ORV::CStatus::OK;
    }
    putReturn(ctxt, ZUK::TagPPG::SaveTagTemplateFile(toModel(args[0]), toString(args[1])));
    return ORV::CStatus::OK;
}

namespace {
// "LoadTagTemplateFile" and "InheritRetargetSetup" are one command under two names.
ORV::CStatus loadTagTemplate(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (isMissing(args, 0) || isMissing(args, 1)) {
        return ORV::CStatus::OK;
    }
    putReturn(ctxt, ZUK::TagPPG::LoadTagTemplateFile(toModel(args[0]), toString(args[1])));
    return ORV::CStatus::OK;
}
}  // namespace

extern "C" ORV::CStatus LoadTagTemplateFile_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"targetmodel", L"template"});
}

extern "C" ORV::CStatus LoadTagTemplateFile_Execute(ORV::CRef& in_ctxt) { return loadTagTemplate(in_ctxt); }

extern "C" ORV::CStatus InheritRetargetSetup_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"targetmodel", L"template"});
}

extern "C" ORV::CStatus InheritRetargetSetup_Execute(ORV::CRef& in_ctxt) { return loadTagTemplate(in_ctxt); }

extern "C" ORV::CStatus ApplyTagsToRig_Init(ORV::CRef& in_ctxt) { return declare(in_ctxt, {L"targetmodel"}); }

extern "C" ORV::CStatus ApplyTagsToRig_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (isMissing(args, 0)) {
        return ORV::CStatus::OK;
    }
    putReturn(ctxt, ZUK::TagPPG::ApplyTagPPGValuesToModel(toModel(args[0])));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus CleanTagsFromRig_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"targetmodel"});
}

extern "C" ORV::CStatus CleanTagsFromRig_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (isMissing(args, 0)) {
        return ORV::CStatus::OK;
    }
    putReturn(ctxt, ZUK::TagPPG::CleanTagsFromRig(toModel(args[0])));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus SetStructureFile_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"targetmodel", L"structurefile"});
}

extern "C" ORV::CStatus SetStructureFile_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (isMissing(args, 0) || isMissing(args, 1)) {
        return ORV::CStatus::OK;
    }
    putReturn(ctxt, ZUK::TagPPG::SetStructureFile(toModel(args[0]), toString(args[1])));
    return ORV::CStatus::OK;
}

// ---- Frame range of a model -----------------------------------------------------------------

namespace {
// The int answer is the start or end frame on success and 0 on failure; a missing model answers
// the bool false.
ORV::CStatus extractFrame(ORV::CRef& in_ctxt, const wchar_t* missingMessage, bool wantStart) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, missingMessage)) {
        return failed(ctxt);
    }
    ORV::Model model = toModel(args[0]);
    int start = 0;
    int end = 0;
    int answer = 0;
    if (ZUK::RetargetOp::findFCurvesStartEnd(model, start, end)) {
        answer = wantStart ? start : end;
    }
    putReturn(ctxt, answer);
    return ORV::CStatus::OK;
}
}  // namespace

extern "C" ORV::CStatus RetargetExtractStartFrame_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"model"});
}

extern "C" ORV::CStatus RetargetExtractStartFrame_Execute(ORV::CRef& in_ctxt) {
    return extractFrame(in_ctxt, L"RetargetExtractStartFrame command missing source model.", true);
}

extern "C" ORV::CStatus RetargetExtractEndFrame_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"model"});
}

extern "C" ORV::CStatus RetargetExtractEndFrame_Execute(ORV::CRef& in_ctxt) {
    return extractFrame(in_ctxt, L"RetargetExtractEndFrame command missing source model.", false);
}

// ---- Normalised motion files ----------------------------------------------------------------

extern "C" ORV::CStatus LoadTrovoFile_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"targetmodel", L"trovofile", L"start"});
}

extern "C" ORV::CStatus LoadTrovoFile_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ZUK::Commands::LoadTrovoFileArguments in;
    if (!ZUK::Commands::ReadLoadTrovoFileArguments(arguments(ctxt), in)) {
        return failed(ctxt);
    }
    putReturn(ctxt, ZUK::Retarget::LoadTrovoFile(in.file, in.target, in.start));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus SaveTrovoFile_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"model", L"trovofile", L"start", L"end"});
}

extern "C" ORV::CStatus SaveTrovoFile_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"SaveTrovoFile command missing source model.")) {
        return failed(ctxt);
    }
    ORV::Model model = toModel(args[0]);
    if (!require(args, 1, L"SaveTrovoFile command missing trovofile.")) {
        return failed(ctxt);
    }
    ORV::CString file = toString(args[1]);
    if (!require(args, 2, L"SaveTrovoFile command missing start frame.")) {
        return failed(ctxt);
    }
    int start = toInt(args[2]);
    if (!require(args, 3, L"SaveTrovoFile command missing end frame.")) {
        return failed(ctxt);
    }
    int end = toInt(args[3]);
    putReturn(ctxt, ZUK::Retarget::SaveTrovoFile(model, file, start, end));
    return ORV::CStatus::OK;
}

// ---- Removing and plotting ------------------------------------------------------------------

extern "C" ORV::CStatus RemoveAllTrovoPropsAndOps_Init(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::Command command(ctxt.GetSource());
    // This command has no return value; it carries the host's flag 0x800000 instead.
    command.SetFlag(ORV::ovNoLogging, true);
    ORV::ArgumentArray args = command.GetArguments();
    args.Add(L"model", ORV::CValue());
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RemoveAllTrovoPropsAndOps_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"RemoveAllTrovoPropsAndOps command missing target model.")) {
        return ORV::CStatus::OK;
    }
    ZUK::MocapToRigPPG::flushRetargetData(toModel(args[0]));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus PlotRetargetMotion_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"model", L"preserve", L"inflection", L"interval", L"step", L"start", L"end"});
}

extern "C" ORV::CStatus PlotRetargetMotion_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"PlotRetargetMotion command missing target model.")) {
        return ORV::CStatus::OK;
    }
    ORV::Model model = toModel(args[0]);
    if (!require(args, 1, L"PlotRetargetMotion command missing preserve.")) {
        return ORV::CStatus::OK;
    }
    bool preserve = toBool(args[1]);
    if (!require(args, 2, L"PlotRetargetMotion command missing inflection.")) {
        return ORV::CStatus::OK;
    }
    bool inflection = toBool(args[2]);
    if (!require(args, 3, L"PlotRetargetMotion command missing interval.")) {
        return ORV::CStatus::OK;
    }
    bool interval = toBool(args[3]);
    if (!require(args, 4, L"PlotRetargetMotion command missing step.")) {
        return ORV::CStatus::OK;
    }
    int step = toInt(args[4]);
    if (!require(args, 5, L"PlotRetargetMotion command missing start.")) {
        return ORV::CStatus::OK;
    }
    int start = toInt(args[5]);
    if (!require(args, 6, L"PlotRetargetMotion command missing end.")) {
        return ORV::CStatus::OK;
    }
    int end = toInt(args[6]);
    ZUK::PlotRetarget plotter(model, preserve, inflection, interval, step, start, end);
    plotter.plot();
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RemoveTROVOOperators_Init(ORV::CRef& in_ctxt) { return declare(in_ctxt, {L"model"}); }

extern "C" ORV::CStatus RemoveTROVOOperators_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"RemoveTROVOOperators command missing target model.")) {
        return ORV::CStatus::OK;
    }
    ZUK::RetargetOp::cleanupRetargetOp(toModel(args[0]));
    return ORV::CStatus::OK;
}

// ---- Adjustment presets ---------------------------------------------------------------------

extern "C" ORV::CStatus SaveTROVOAdjustmentPresetFile_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"model", L"filename"});
}

extern "C" ORV::CStatus SaveTROVOAdjustmentPresetFile_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"SaveTROVOAdjustmentPresetFile command missing target model.")) {
        return ORV::CStatus::OK;
    }
    ORV::Model model = toModel(args[0]);
    if (!require(args, 1, L"SaveTROVOAdjustmentPresetFile command missing file path.")) {
        return ORV::CStatus::OK;
    }
    ZUK::AdjustPPG::SavePreset(model, toString(args[1]));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus LoadTROVOAdjustmentPresetFile_Init(ORV::CRef& in_ctxt) {
    return declare(in_ctxt, {L"model", L"filename"});
}

extern "C" ORV::CStatus LoadTROVOAdjustmentPresetFile_Execute(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CValueArray args = arguments(ctxt);
    if (!require(args, 0, L"LoadTROVOAdjustmentPresetFile command missing target model.")) {
        return ORV::CStatus::OK;
    }
    ORV::Model model = toModel(args[0]);
    if (!require(args, 1, L"LoadTROVOAdjustmentPresetFile command missing file path.")) {
        return ORV::CStatus::OK;
    }
    ORV::CString file = toString(args[1]);
    // The preset's parameters are applied at the time the command runs.
    double time = static_cast<double>(ORV::OperatorContext(in_ctxt).GetTime());
    ZUK::AdjustPPG::LoadPreset(model, file, time);
    return ORV::CStatus::OK;
}
