// The stored form of a structure on a model: the property "ZUKStructure", its parameters and
// grids, the reader of versions 7 and 8, and cleanup.
#include <memory>

#include "StructureTestSupport.h"

using structtest::ExpectSameVector;
using structtest::ExpectStoredFieldsEqual;
using structtest::Messages;
using structtest::One;
using structtest::Text;
using ZUK::ModelStructure;

namespace {

const char* const BASE =
    "torso {\n"
    "    world\n"
    "    cog     hip    0 1 0    0 0 1    0 95 0\n"
    "    spine   child  0 1 0    0 0 1    0 10 0\n"
    "    chest   free   0 1 0    0 0 1    0 30 0\n"
    "}\n"
    "leftleg {\n"
    "    cog\n"
    "    lthigh  anchor   0 -1 0  0 0 1   9 -5 0\n"
    "    lshin   child    0 -1 0  0 0 1   0 -42 0   limits: -10 1 1   160 -1 -1\n"
    "    lfoot   friction 0 0 1   0 1 0   0 -40 0\n"
    "}\n";

const char* const STRUCTURE =
    "tb\n"
    "leftarm {\n"
    "    chest\n"
    "    lupperarm anchor  1 0 0   0 0 1   17 10 0\n"
    "    lforearm  child   1 0 0   0 0 1   28 0 0   limits: 1 -160 1  -1 10 -1\n"
    "    lhand     ik      1 0 0   0 0 1   26 0 0\n"
    "}\n"
    "rightarm {\n"
    "    chest\n"
    "    rupperarm anchor -1 0 0   0 0 1  -17 10 0\n"
    "    rforearm  child  -1 0 0   0 0 1  -28.1 0.2 0.30000000000000004   limits: 0.1 -12.5 1  -1 160.75 -1\n"
    "    rhand     ik     -1 0 0   0 0 1  -26 0 0\n"
    "}\n"
    "twist {\n"
    "    decompose\n"
    "    lhand\n"
    "    Unused Unused Unused   ltwist Unused Unused   Unused Unused lslide\n"
    "}\n";

class ModelStructurePersist : public ::testing::Test {
protected:
    void SetUp() override {
        structtest::UseLocations(root.dir, "");
        orvhost::ResetScene();
        orvhost::ClearLog();
        ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Rig", model);
        root.Write("Structures/tb.base", BASE);
        root.Write("Structures/s.structure", STRUCTURE);
        root.Write("Structures/plain.structure", "tb\n");
    }

    std::unique_ptr<ModelStructure> Load(const char* name) {
        return std::unique_ptr<ModelStructure>(ModelStructure::CreateFromFile(ORV::CString(name)));
    }

    std::unique_ptr<ModelStructure> Reload() {
        return std::unique_ptr<ModelStructure>(ModelStructure::CreateFromCustomProperty(model));
    }

    ORV::CustomProperty Property() {
        return ORV::CustomProperty(
            model.GetProperties().GetItem(ORV::CString(ModelStructure::PROPERTY_NAME)));
    }

    ORV::GridData Grid(const wchar_t* name) {
        return ORV::GridData(static_cast<ORV::CRef>(Property().GetParameter(name).GetValue()));
    }

    int CountProperties(const wchar_t* name) {
        int count = 0;
        ORV::CRefArray properties = model.GetProperties();
        for (long i = 0; i < properties.GetCount(); ++i)
            if (ORV::Property(properties[i]).GetName() == name) ++count;
        return count;
    }

    structtest::SavedLocations savedLocations;
    structtest::ScratchRoot root;
    ORV::Model model;
};

std::vector<std::wstring> ParameterNames(const ORV::ProjectItem& item) {
    std::vector<std::wstring> names;
    ORV::CRefArray parameters = item.GetParameters();
    for (long i = 0; i < parameters.GetCount(); ++i)
        names.push_back(Text(ORV::Parameter(parameters[i]).GetScriptName()));
    return names;
}

}  // namespace

TEST_F(ModelStructurePersist, SavedPropertyHasVersion8AndRowsOfTwelveCells) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    ORV::CustomProperty property = Property();
    ASSERT_TRUE(property.IsValid());
    EXPECT_EQ(static_cast<int>(property.GetParameterValue(L"Version")), 8);
    ORV::GridData nodes = Grid(L"Nodes");
    ASSERT_TRUE(nodes.IsValid());
    EXPECT_EQ(nodes.GetColumnCount(), 12);
    EXPECT_EQ(nodes.GetRowCount(), s->numNodes);
    for (long row = 0; row < nodes.GetRowCount(); ++row) EXPECT_EQ(nodes.GetRowValues(row).GetCount(), 12);
    const wchar_t* labels[] = {L"Parent",   L"OffsetParent", L"Name",   L"Type",
                               L"Friction", L"alignX",       L"alignY", L"alingZ",
                               L"rollX",    L"rollY",        L"rollZ",  L"mirror_node_index"};
    for (long c = 0; c < 12; ++c) EXPECT_EQ(Text(nodes.GetColumnLabel(c)), labels[c]);
    // The row of lfoot, cell by cell.
    ORV::CValueArray foot = nodes.GetRowValues(5);
    EXPECT_EQ(static_cast<int>(foot[0]), 3);  // parent: the anchor lthigh
    EXPECT_EQ(static_cast<int>(foot[1]), 4);  // offset parent: lshin
    EXPECT_EQ(Text(foot[2].GetAsText()), L"lfoot");
    EXPECT_EQ(static_cast<int>(foot[3]), 2);
    EXPECT_EQ(static_cast<int>(foot[4]), 1);
    EXPECT_DOUBLE_EQ(static_cast<double>(foot[7]), 1.0);
    EXPECT_DOUBLE_EQ(static_cast<double>(foot[9]), 1.0);
    EXPECT_EQ(static_cast<int>(foot[11]), -1);
}

TEST_F(ModelStructurePersist, SaveAndReloadKeepEveryStoredField) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ExpectStoredFieldsEqual(*s, *back);
    EXPECT_EQ(back->nodes[6].mirror_node_index, 9);  // lupperarm and rupperarm
}

TEST_F(ModelStructurePersist, ParametersComeInTheirOrderWithLabelsAndCapabilities) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    ORV::CustomProperty property = Property();
    ASSERT_TRUE(property.IsValid());
    EXPECT_EQ(Text(property.GetType()), L"CustomProperty");
    EXPECT_EQ(
        ParameterNames(property),
        (std::vector<std::wstring>{L"Version", L"Type", L"Source", L"numNodes", L"numPlanes", L"numDecomps",
                                   L"Nodes", L"Planes", L"Decomps", L"BaseGroups", L"BaseGroup_torso",
                                   L"BaseGroup_leftleg", L"Groups", L"Group_leftarm", L"Group_rightarm"}));

    // The plain parameters, as the host keeps them: kind, label, description, default value
    // (which is also the value), capabilities.
    struct Expected {
        const wchar_t* name;
        ORV::ovValueType type;
        const wchar_t* label;
        const wchar_t* description;
        ORV::CValue value;
    };
    const Expected plain[] = {
        {L"Version", ORV::ovInt4, L"Version", L"Version of the structure format", ORV::CValue(8)},
        {L"Type", ORV::ovString, L"Type", L"Type of the structure", ORV::CValue(L"tb")},
        {L"Source", ORV::ovString, L"Source", L"Source file name", ORV::CValue(L"s")},
        {L"numNodes", ORV::ovInt4, L"", L"", ORV::CValue(12)},
        {L"numPlanes", ORV::ovInt4, L"", L"", ORV::CValue(3)},
        {L"numDecomps", ORV::ovInt4, L"", L"", ORV::CValue(1)},
    };
    for (const Expected& e : plain) {
        SCOPED_TRACE(e.name);
        ORV::Parameter parameter = property.GetParameter(e.name);
        ASSERT_TRUE(parameter.IsValid());
        auto* item = dynamic_cast<orvhost::ParamItem*>(orvhost::TheStore().Resolve(parameter.GetRef()));
        ASSERT_NE(item, nullptr);
        EXPECT_EQ(parameter.GetValueType(), e.type);
        EXPECT_EQ(parameter.GetCapabilities(), 6);
        EXPECT_EQ(item->label, e.label);
        EXPECT_EQ(Text(parameter.GetDescription()), e.description);
        EXPECT_EQ(Text(parameter.GetDefault().GetAsText()), Text(e.value.GetAsText()));
        EXPECT_EQ(Text(parameter.GetValue().GetAsText()), Text(e.value.GetAsText()));
    }
    // The grids have the same capabilities.
    for (const wchar_t* grid :
         {L"Nodes", L"Planes", L"Decomps", L"BaseGroups", L"BaseGroup_torso", L"Groups", L"Group_rightarm"}) {
        SCOPED_TRACE(grid);
        EXPECT_EQ(property.GetParameter(grid).GetCapabilities(), 6);
    }
}

TEST_F(ModelStructurePersist, GridsHoldPlanesDecompositionsAndGroupItemsAsText) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);

    ORV::GridData planes = Grid(L"Planes");
    EXPECT_EQ(planes.GetColumnCount(), 4);
    ORV::CValueArray arm = planes.GetRowValues(1);
    EXPECT_EQ(static_cast<int>(arm[0]), 6);
    EXPECT_EQ(static_cast<int>(arm[1]), 7);
    EXPECT_EQ(static_cast<int>(arm[2]), 8);
    EXPECT_EQ(Text(arm[3].GetAsText()), L"lforearm");

    ORV::GridData decomps = Grid(L"Decomps");
    EXPECT_EQ(decomps.GetColumnCount(), 10);
    EXPECT_EQ(Text(decomps.GetColumnLabel(9)), L"RtoP_Z");
    ORV::CValueArray twist = decomps.GetRowValues(0);
    EXPECT_EQ(Text(twist[0].GetAsText()), L"lhand");
    EXPECT_EQ(Text(twist[1].GetAsText()), L"");
    EXPECT_EQ(Text(twist[4].GetAsText()), L"ltwist");
    EXPECT_EQ(Text(twist[9].GetAsText()), L"lslide");

    ORV::GridData groups = Grid(L"BaseGroups");
    EXPECT_EQ(groups.GetRowCount(), 2);
    EXPECT_EQ(Text(groups.GetRowValues(1)[0].GetAsText()), L"leftleg");
    EXPECT_EQ(Text(groups.GetRowValues(1)[1].GetAsText()), L"cog");

    ORV::GridData items = Grid(L"BaseGroup_leftleg");
    EXPECT_EQ(items.GetColumnCount(), 7);
    EXPECT_EQ(Text(items.GetColumnLabel(6)), L"Maxlimits");
    ORV::CValueArray shin = items.GetRowValues(1);
    EXPECT_EQ(Text(shin[0].GetAsText()), L"lshin");
    EXPECT_EQ(Text(shin[1].GetAsText()), L"child");
    EXPECT_EQ(Text(shin[2].GetAsText()), L"0,-1,0");
    EXPECT_EQ(Text(shin[4].GetAsText()), L"0,-42,0");
    EXPECT_EQ(Text(shin[5].GetAsText()), L"-10,1,1");  // degrees, as in the file
    EXPECT_EQ(Text(shin[6].GetAsText()), L"160,-1,-1");
}

TEST_F(ModelStructurePersist, FractionalGroupVectorsSurviveTheirTextForm) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ModelStructure::GroupItem* forearm = back->FindTagItem(ORV::CString(L"rforearm"));
    ASSERT_NE(forearm, nullptr);
    // Bit for bit: the text of a stored vector carries every digit a double needs.
    EXPECT_EQ(forearm->Offset.x, -28.1);
    EXPECT_EQ(forearm->Offset.y, 0.2);
    EXPECT_EQ(forearm->Offset.z, 0.30000000000000004);
    EXPECT_EQ(forearm->Minlimits, ORV::MATH::CVector3(0.1, -12.5, 1));
    EXPECT_EQ(forearm->Maxlimits, ORV::MATH::CVector3(-1, 160.75, -1));
}

TEST_F(ModelStructurePersist, ReloadedStructureHasNoOffsetsPositionsOrLimits) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    const ORV::MATH::CVector3 zero;
    for (int i = 0; i < back->numNodes; ++i) {
        EXPECT_EQ(back->nodes[i].Offset, zero);
        EXPECT_EQ(back->nodes[i].Position, zero);
        EXPECT_EQ(back->nodes[i].Minlimits, zero);
        EXPECT_EQ(back->nodes[i].Maxlimits, zero);
    }
    EXPECT_TRUE(back->decomps[0].Name.IsEmpty());
    // The groups keep them, for FindTagItem.
    ModelStructure::GroupItem* shin = back->FindTagItem(ORV::CString(L"lshin"));
    ASSERT_NE(shin, nullptr);
    EXPECT_EQ(shin->Offset, ORV::MATH::CVector3(0, -42, 0));
    EXPECT_EQ(shin->Minlimits, ORV::MATH::CVector3(-10, 1, 1));
}

TEST_F(ModelStructurePersist, StoredDecompositionCountsEmptyChannelsAsTargets) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    orvhost::ClearLog();
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->decomps.size(), 1u);
    const ORV::CStringArray& targets = back->decomps[0].targets;
    ASSERT_EQ(targets.GetCount(), 3);
    EXPECT_EQ(Text(targets[0]), L"");  // the first channel, PX, enters unconditionally
    EXPECT_EQ(Text(targets[1]), L"ltwist");
    EXPECT_EQ(Text(targets[2]), L"lslide");
    EXPECT_EQ(Messages(8), One(L"ModelStructure::createFromGrid : lhand"));
}

TEST_F(ModelStructurePersist, StoredVersion7GivesNodesWithoutMirror) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    // Turn the property into the version-7 form: no mirror column.
    ORV::CustomProperty property = Property();
    property.PutParameterValue(L"Version", ORV::CValue(7));
    ORV::GridData nodes = Grid(L"Nodes");
    ORV::CValueArray cells = nodes.GetData();
    ORV::CValueArray eleven;
    for (long i = 0; i < cells.GetCount(); ++i)
        if (i % 12 != 11) eleven.Add(cells[i]);
    nodes.PutColumnCount(11);
    nodes.PutData(eleven);

    auto back = Reload();
    ASSERT_NE(back, nullptr);
    for (int i = 0; i < back->numNodes; ++i) {
        EXPECT_EQ(back->nodes[i].mirror_node_index, -1);
        EXPECT_EQ(Text(back->nodes[i].Name), Text(s->nodes[i].Name));
        EXPECT_EQ(back->nodes[i].Parent, s->nodes[i].Parent);
        ExpectSameVector(back->nodes[i].roll, s->nodes[i].roll);
    }
}

TEST_F(ModelStructurePersist, VersionBelow7IsRefusedWithANote) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    Property().PutParameterValue(L"Version", ORV::CValue(6));
    orvhost::ClearLog();
    EXPECT_EQ(Reload(), nullptr);
    EXPECT_EQ(Messages(8), One(L"The embedded model structure has an outdated version number.  Please reload "
                               L"the tag template."));
    EXPECT_TRUE(Messages(4).empty());
}

TEST_F(ModelStructurePersist, ModelWithoutThePropertyGivesNullWithoutAMessage) {
    EXPECT_EQ(Reload(), nullptr);
    EXPECT_TRUE(Messages(0).empty());
}

TEST_F(ModelStructurePersist, SavingTwiceLeavesOneProperty) {
    auto s = Load("s");
    auto plain = Load("plain");
    ASSERT_NE(s, nullptr);
    ASSERT_NE(plain, nullptr);
    s->SaveToCustomProperty(model);
    plain->SaveToCustomProperty(model);
    EXPECT_EQ(CountProperties(ModelStructure::PROPERTY_NAME), 1);
    // Nothing of the first save survives the second.
    EXPECT_FALSE(Property().GetParameter(L"Decomps").IsValid());
    EXPECT_FALSE(Property().GetParameter(L"Group_leftarm").IsValid());
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ExpectStoredFieldsEqual(*plain, *back);
}

TEST_F(ModelStructurePersist, StructureWithoutDecompositionsReadsBackEmptyWhateverItsCount) {
    auto plain = Load("plain");
    ASSERT_NE(plain, nullptr);
    plain->SaveToCustomProperty(model);
    EXPECT_FALSE(Property().GetParameter(L"Decomps").IsValid());
    EXPECT_EQ(static_cast<int>(Property().GetParameterValue(L"numDecomps")), 0);
    Property().PutParameterValue(L"numDecomps", ORV::CValue(3));
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    EXPECT_TRUE(back->decomps.empty());
}

TEST_F(ModelStructurePersist, NodeKindOutsideZeroToTwoReadsAsFree) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    ORV::GridData nodes = Grid(L"Nodes");
    nodes.PutCell(3, 1, ORV::CValue(7));   // spine
    nodes.PutCell(3, 2, ORV::CValue(-1));  // chest
    nodes.PutCell(4, 3, ORV::CValue(5));   // lthigh: any non-zero friction reads true
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->nodes[1].Type, 3);
    EXPECT_EQ(back->nodes[2].Type, 3);
    EXPECT_EQ(back->nodes[5].Type, 2);
    EXPECT_TRUE(back->nodes[3].Friction);
}

TEST_F(ModelStructurePersist, PlanesReadBackWithBonesFromSpanDownToAnchor) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->numPlanes, 3);
    const ORV::CLongArray& bones = back->planes[2].bones;
    ASSERT_EQ(bones.GetCount(), 3);
    EXPECT_EQ(bones[0], 11);
    EXPECT_EQ(bones[1], 10);
    EXPECT_EQ(bones[2], 9);
}

TEST_F(ModelStructurePersist, GroupRowWithoutItsItemGridIsSkipped) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    ORV::CustomProperty property = Property();
    property.RemoveParameter(property.GetParameter(L"Group_leftarm"));
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->groups.size(), 1u);
    EXPECT_EQ(Text(back->groups[0].Name), L"rightarm");
    EXPECT_EQ(back->FindTagItem(ORV::CString(L"lhand")), nullptr);
}

TEST_F(ModelStructurePersist, VectorCellThatIsNotThreeNumbersReadsAsZeroAndReadingGoesOn) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    Grid(L"Group_leftarm").PutCell(2, 0, ORV::CValue(L"1,0"));  // lupperarm's Align
    orvhost::ClearLog();
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ModelStructure::GroupItem* upper = back->FindTagItem(ORV::CString(L"lupperarm"));
    ASSERT_NE(upper, nullptr);
    EXPECT_EQ(upper->Align, ORV::MATH::CVector3());
    EXPECT_EQ(upper->Roll, ORV::MATH::CVector3(0, 0, 1));
    EXPECT_EQ(back->groups[1].items.size(), 3u);
    const std::vector<std::wstring> notes = Messages(8);
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes[1], L"Error converting string to CVector3  : <1,0");
}

TEST(StringToVector, ThreeCommaSeparatedNumbersGiveTheVector) {
    orvhost::ClearLog();
    EXPECT_EQ(ZUK::StringToVector(ORV::CString(L"1.5,-2,3e2")), ORV::MATH::CVector3(1.5, -2, 300));
    EXPECT_EQ(ZUK::StringToVector(ORV::CString(L"0.1,0.2,0.30000000000000004")),
              ORV::MATH::CVector3(0.1, 0.2, 0.30000000000000004));
    EXPECT_TRUE(Messages(0).empty());
}

TEST(StringToVector, AnyOtherCountGivesZeroAndANote) {
    orvhost::ClearLog();
    EXPECT_EQ(ZUK::StringToVector(ORV::CString(L"1,2")), ORV::MATH::CVector3());
    EXPECT_EQ(ZUK::StringToVector(ORV::CString(L"1,2,3,4")), ORV::MATH::CVector3());
    EXPECT_EQ(Messages(8), (std::vector<std::wstring>{L"Error converting string to CVector3  : <1,2",
                                                      L"Error converting string to CVector3  : <1,2,3,4"}));
}

TEST_F(ModelStructurePersist, CleanupRemovesTheStructureAndItsRigTag) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    model.AddProperty(L"CustomProperty", false, ModelStructure::TAG_NAME);
    model.AddProperty(L"CustomProperty", false, L"Other");
    ModelStructure::cleanup(model);
    EXPECT_EQ(CountProperties(ModelStructure::PROPERTY_NAME), 0);
    EXPECT_EQ(CountProperties(ModelStructure::TAG_NAME), 0);
    EXPECT_EQ(CountProperties(L"Other"), 1);
    EXPECT_EQ(Reload(), nullptr);
}

TEST_F(ModelStructurePersist, CountBeyondTheRowsOfItsGridIsCutToTheRows) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    Property().PutParameterValue(L"numNodes", ORV::CValue(2000000000));
    Property().PutParameterValue(L"numPlanes", ORV::CValue(2000000000));
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->numNodes, 12);
    EXPECT_EQ(back->numPlanes, 3);
    ExpectStoredFieldsEqual(*s, *back);
}

TEST_F(ModelStructurePersist, AVersionAbove8ReadsRowsOfTwelveCells) {
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    Property().PutParameterValue(L"Version", ORV::CValue(9));
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ExpectStoredFieldsEqual(*s, *back);
}

TEST_F(ModelStructurePersist, StoredUnusedWordInALaterChannelEndsTheChannelScan) {
    // The file reader never stores the word, so only a damaged scene has it; reading must
    // still come to an end, with the channels before it in place.
    auto s = Load("s");
    ASSERT_NE(s, nullptr);
    s->SaveToCustomProperty(model);
    ORV::GridData decomps = Grid(L"Decomps");
    decomps.PutCell(7, 0, ORV::CValue(L"lpush"));
    decomps.PutCell(8, 0, ORV::CValue(L"Unused"));
    auto back = Reload();
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(back->decomps.size(), 1u);
    EXPECT_EQ(Text(back->decomps[0].RtoP_X), L"lpush");
    EXPECT_EQ(Text(back->decomps[0].RX), L"ltwist");
}
