// The plug-in as the host sees it at load time: what ORVLoadPlugin registers, in which order,
// and which callbacks the host can find by name.
#include <string>
#include <vector>

#include "HostUI.h"
#include "ShellTestSupport.h"

namespace {

using shelltest::ShellTest;

const std::vector<std::wstring> kCommands = {
    L"Retarget",
    L"RetargetBVH",
    L"RetargetC3DData",
    L"ImportC3DFile",
    L"SaveC3DPoseMap",
    L"SetTagValue",
    L"SaveTagTemplateFile",
    L"LoadTagTemplateFile",
    L"InheritRetargetSetup",
    L"ApplyTagsToRig",
    L"CleanTagsFromRig",
    L"SetStructureFile",
    L"RetargetExtractStartFrame",
    L"RetargetExtractEndFrame",
    L"LoadTrovoFile",
    L"SaveTrovoFile",
    L"RemoveAllTrovoPropsAndOps",
    L"PlotRetargetMotion",
    L"RemoveTROVOOperators",
    L"SaveTROVOAdjustmentPresetFile",
    L"LoadTROVOAdjustmentPresetFile",
};

const std::vector<std::wstring> kProperties = {
    L"MocapToRig",      L"TagPPG",   L"RetargetAdjustPPG", L"TrovoFilePPG", L"RotationOffsetPPG",
    L"PlotRetargetPPG", L"MocapPPG", L"TagRigPPG",         L"RigToRigPPG",  L"MocapToRigPPG",
};

const std::vector<std::wstring> kMenus = {
    L"Tag Rig", L"Rig to Rig", L"Mocap to Rig", L"SaveTrovoFileMenu", L"LoadTrovoFileMenu",
};

const std::vector<std::wstring> kOperators = {
    L"RetargetOp",         L"RetargetUpVOp",   L"RetargetGlobalOp",
    L"RetargetDecompOp",   L"RetargetSpineOp", L"RetargetSymmetrySpecialOp",
    L"RetargetSymmetryOp",
};

std::vector<orvhost::RegisteredItem> ItemsOfKind(const wchar_t* kind) {
    std::vector<orvhost::RegisteredItem> items;
    for (const orvhost::RegisteredItem& item : shelltest::TrovoRecord()->items) {
        if (item.kind == kind) {
            items.push_back(item);
        }
    }
    return items;
}

std::vector<std::wstring> Names(const std::vector<orvhost::RegisteredItem>& items) {
    std::vector<std::wstring> names;
    for (const orvhost::RegisteredItem& item : items) {
        names.push_back(item.name);
    }
    return names;
}

class PluginRegistration : public ShellTest {
protected:
    void SetUp() override {
        ShellTest::SetUp();
        ASSERT_NE(shelltest::TrovoRecord(), nullptr);
    }
};

TEST_F(PluginRegistration, NamesItselfTrovoVersionThreeZeroWithAnAuthor) {
    const orvhost::PluginRecord& record = *shelltest::TrovoRecord();
    EXPECT_EQ(record.name, L"TROVO Plug-in");
    EXPECT_EQ(record.major, 3);
    EXPECT_EQ(record.minor, 0);
    EXPECT_FALSE(record.author.empty());
}

TEST_F(PluginRegistration, RegistersCommandsPropertiesMenusOperatorsInThatOrder) {
    std::vector<std::wstring> expected;
    for (const auto& n : kCommands) expected.push_back(L"Command " + n);
    for (const auto& n : kProperties) expected.push_back(L"Property " + n);
    for (const auto& n : kMenus) expected.push_back(L"Menu " + n);
    for (const auto& n : kOperators) expected.push_back(L"Operator " + n);

    std::vector<std::wstring> actual;
    for (const orvhost::RegisteredItem& item : shelltest::TrovoRecord()->items) {
        actual.push_back(item.kind + L" " + item.name);
    }
    EXPECT_EQ(actual, expected);
}

TEST_F(PluginRegistration, RegistersTheTwentyOneCommandsUnderTheirOwnScriptNames) {
    std::vector<orvhost::RegisteredItem> commands = ItemsOfKind(L"Command");
    ASSERT_EQ(Names(commands), kCommands);
    for (const orvhost::RegisteredItem& command : commands) {
        EXPECT_EQ(command.scriptName, command.name);
    }
}

TEST_F(PluginRegistration, RegistersTheTenPropertyTypesKeepingTheTwoWithoutCallbacks) {
    EXPECT_EQ(Names(ItemsOfKind(L"Property")), kProperties);
    // Registered, yet with no callbacks at all.
    for (const wchar_t* name : {L"TagRigPPG", L"MocapToRigPPG"}) {
        for (const wchar_t* suffix : {L"_Define", L"_DefineLayout", L"_PPGEvent", L"_Term"}) {
            EXPECT_EQ(orvhost::FindCallback(std::wstring(name) + suffix), nullptr) << name << suffix;
        }
    }
}

TEST_F(PluginRegistration, RegistersTheFiveMenusAtTheAnimationAnchor) {
    std::vector<orvhost::RegisteredItem> menus = ItemsOfKind(L"Menu");
    EXPECT_EQ(Names(menus), kMenus);
    for (const orvhost::RegisteredItem& menu : menus) {
        EXPECT_EQ(menu.anchor, 218) << menu.name;
    }
}

TEST_F(PluginRegistration, RegistersTheSevenOperators) {
    EXPECT_EQ(Names(ItemsOfKind(L"Operator")), kOperators);
}

TEST_F(PluginRegistration, DeclaresEveryCommandsArgumentsInOrder) {
    struct Declared {
        const wchar_t* command;
        std::vector<std::wstring> arguments;
    };
    const std::vector<Declared> table = {
        {L"Retarget", {L"sourcemodel", L"targetmodel", L"strarttime", L"endtime"}},
        {L"RetargetBVH", {L"targetmodel", L"bvhfile", L"mapfile"}},
        {L"RetargetC3DData", {L"c3dfile", L"mapfile"}},
        {L"ImportC3DFile", {L"c3dfile", L"updir", L"create_esr_Optional", L"esr_structuretemplate_Optional"}},
        {L"SaveC3DPoseMap", {L"c3dmodel", L"ESR_rig", L"Map_file"}},
        {L"SetTagValue", {L"model", L"tagname", L"tagvalue", L"tagtype"}},
        {L"SaveTagTemplateFile", {L"model", L"tag_template_filename"}},
        {L"LoadTagTemplateFile", {L"targetmodel", L"template"}},
        {L"InheritRetargetSetup", {L"targetmodel", L"template"}},
        {L"ApplyTagsToRig", {L"targetmodel"}},
        {L"CleanTagsFromRig", {L"targetmodel"}},
        {L"SetStructureFile", {L"targetmodel", L"structurefile"}},
        {L"RetargetExtractStartFrame", {L"model"}},
        {L"RetargetExtractEndFrame", {L"model"}},
        {L"LoadTrovoFile", {L"targetmodel", L"trovofile", L"start"}},
        {L"SaveTrovoFile", {L"model", L"trovofile", L"start", L"end"}},
        {L"RemoveAllTrovoPropsAndOps", {L"model"}},
        {L"PlotRetargetMotion",
         {L"model", L"preserve", L"inflection", L"interval", L"step", L"start", L"end"}},
        {L"RemoveTROVOOperators", {L"model"}},
        {L"SaveTROVOAdjustmentPresetFile", {L"model", L"filename"}},
        {L"LoadTROVOAdjustmentPresetFile", {L"model", L"filename"}},
    };
    ASSERT_EQ(table.size(), kCommands.size());
    for (const Declared& declared : table) {
        orvhost::CommandInfo info;
        ASSERT_TRUE(orvhost::FindCommand(declared.command, info)) << declared.command;
        EXPECT_FALSE(info.builtin) << declared.command;
        EXPECT_EQ(info.arguments, declared.arguments) << declared.command;
    }
}

TEST_F(PluginRegistration, EnablesTheReturnValueOfEveryCommandButRemoveAllTrovoPropsAndOps) {
    for (const std::wstring& name : kCommands) {
        orvhost::CommandInfo info;
        ASSERT_TRUE(orvhost::FindCommand(name, info)) << name;
        EXPECT_EQ(info.returnValue, name != L"RemoveAllTrovoPropsAndOps") << name;
    }
}

TEST_F(PluginRegistration, FlagsOnlyRemoveAllTrovoPropsAndOpsWith0x800000) {
    for (const std::wstring& name : kCommands) {
        orvhost::CommandItem* command = orvhost::FindPluginCommand(name);
        ASSERT_NE(command, nullptr) << name;
        EXPECT_EQ((command->flags & 0x800000) != 0, name == L"RemoveAllTrovoPropsAndOps") << name;
    }
}

TEST_F(PluginRegistration, DeclaresEveryArgumentWithAnEmptyDefault) {
    for (const std::wstring& name : kCommands) {
        orvhost::CommandItem* command = orvhost::FindPluginCommand(name);
        ASSERT_NE(command, nullptr) << name;
        ASSERT_EQ(command->argDefaults.size(), command->argNames.size()) << name;
        for (const ORV::CValue& value : command->argDefaults) {
            EXPECT_TRUE(value.IsEmpty()) << name;
        }
    }
}

TEST_F(PluginRegistration, GivesEachMenuOneItemWithItsLabelAndCallback) {
    struct Expected {
        const wchar_t* menu;
        const wchar_t* label;
        const wchar_t* callback;
    };
    const std::vector<Expected> table = {
        {L"Tag Rig", L"Tag Rig", L"TagMenuItem"},
        {L"Rig to Rig", L"Rig to Rig", L"RigToRigMenuItem"},
        {L"Mocap to Rig", L"Mocap to Rig", L"MocapToRigMenuItem"},
        {L"SaveTrovoFileMenu", L"Save Motion", L"SaveTrovoFileMenuItem"},
        {L"LoadTrovoFileMenu", L"Load Motion", L"LoadTrovoFileMenuItem"},
    };
    std::vector<orvhost::MenuRecord*> menus = orvhost::PluginMenus();
    ASSERT_EQ(menus.size(), table.size());
    for (std::size_t i = 0; i < table.size(); ++i) {
        EXPECT_EQ(menus[i]->name, table[i].menu);
        std::vector<orvhost::MenuItemRecord*> items;
        for (const auto& owned : menus[i]->owned) {
            if (auto* item = dynamic_cast<orvhost::MenuItemRecord*>(owned.get())) {
                items.push_back(item);
            }
        }
        ASSERT_EQ(items.size(), 1u) << table[i].menu;
        EXPECT_EQ(items[0]->label, table[i].label);
        EXPECT_EQ(items[0]->callback, table[i].callback);
    }
}

TEST_F(PluginRegistration, ExportsEveryCallbackUnderItsPlainName) {
    std::vector<std::wstring> names;
    for (const std::wstring& command : kCommands) {
        names.push_back(command + L"_Init");
        names.push_back(command + L"_Execute");
    }
    for (const wchar_t* name : {L"TagRig_Init",
                                L"RigtoRig_Init",
                                L"MocaptoRig_Init",
                                L"SaveTrovoFileMenu_Init",
                                L"LoadTrovoFileMenu_Init",
                                L"TagMenuItem",
                                L"RigToRigMenuItem",
                                L"MocapToRigMenuItem",
                                L"SaveTrovoFileMenuItem",
                                L"LoadTrovoFileMenuItem",
                                L"TagPPG_Define",
                                L"TagPPG_DefineLayout",
                                L"TagPPG_PPGEvent",
                                L"TagPPG_Term",
                                L"RetargetAdjustPPG_Define",
                                L"RetargetAdjustPPG_DefineLayout",
                                L"RetargetAdjustPPG_PPGEvent",
                                L"RotationOffsetPPG_Define",
                                L"RotationOffsetPPG_DefineLayout",
                                L"RotationOffsetPPG_PPGEvent",
                                L"MocapToRig_Define",
                                L"MocapToRig_DefineLayout",
                                L"MocapToRig_PPGEvent",
                                L"MocapPPG_Define",
                                L"MocapPPG_DefineLayout",
                                L"MocapPPG_PPGEvent",
                                L"RigToRigPPG_Define",
                                L"RigToRigPPG_DefineLayout",
                                L"RigToRigPPG_PPGEvent",
                                L"TrovoFilePPG_Define",
                                L"TrovoFilePPG_DefineLayout",
                                L"TrovoFilePPG_PPGEvent",
                                L"PlotRetargetPPG_Define",
                                L"PlotRetargetPPG_DefineLayout",
                                L"PlotRetargetPPG_PPGEvent",
                                L"RetargetOp_Init",
                                L"RetargetOp_Update",
                                L"RetargetOp_Term",
                                L"RetargetUpVOp_Init",
                                L"RetargetUpVOp_Update",
                                L"RetargetUpVOp_Term",
                                L"RetargetGlobalOp_Init",
                                L"RetargetGlobalOp_Update",
                                L"RetargetGlobalOp_Term",
                                L"RetargetDecompOp_Init",
                                L"RetargetDecompOp_Update",
                                L"RetargetDecompOp_Term",
                                L"RetargetSpineOp_Init",
                                L"RetargetSpineOp_Update",
                                L"RetargetSpineOp_Term",
                                L"RetargetSymmetryOp_Update",
                                L"RetargetSymmetrySpecialOp_Update",
                                L"MyNewScene_OnEvent",
                                L"MyOpenScene_OnEvent"}) {
        names.push_back(name);
    }
    for (const std::wstring& name : names) {
        EXPECT_NE(orvhost::FindCallback(name), nullptr) << name;
    }
    // The symmetry operators have an update callback alone.
    for (const wchar_t* name : {L"RetargetSymmetryOp_Init", L"RetargetSymmetryOp_Term",
                                L"RetargetSymmetrySpecialOp_Init", L"RetargetSymmetrySpecialOp_Term"}) {
        EXPECT_EQ(orvhost::FindCallback(name), nullptr) << name;
    }
}

}  // namespace
