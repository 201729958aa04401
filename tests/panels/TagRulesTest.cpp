// The rules of the tag property, reached through the commands "SetStructureFile", "SetTagValue",
// "ApplyTagsToRig" and "CleanTagsFromRig" on a rig of nulls built from a CMU BVH skeleton.
#include <gtest/gtest.h>

#include "TagPanelTestSupport.h"
#include "panels/TagPPG.h"

namespace {

using tagtest::Log;
using tagtest::TagPanelTest;
using ZUK::TagPPG;

TEST(TagValue, ControlIsTheFirstPartAndExtractionTheSecondOfExactlyTwo) {
    EXPECT_EQ(TagPPG::GetNodeNameFromTagValue(L"Arm", 1), ORV::CString(L"Arm"));
    EXPECT_EQ(TagPPG::GetNodeNameFromTagValue(L"Arm", 2), ORV::CString(L""));
    EXPECT_EQ(TagPPG::GetNodeNameFromTagValue(L"Arm|Twist", 1), ORV::CString(L"Arm"));
    EXPECT_EQ(TagPPG::GetNodeNameFromTagValue(L"Arm|Twist", 2), ORV::CString(L"Twist"));
    EXPECT_EQ(TagPPG::GetNodeNameFromTagValue(L"Arm|Twist", 7), ORV::CString(L"Twist"));
    EXPECT_EQ(TagPPG::GetNodeNameFromTagValue(L"A|B|C", 2), ORV::CString(L""));
    EXPECT_EQ(TagPPG::GetNodeNameFromTagValue(L"", 1), ORV::CString(L""));
}

TEST_F(TagPanelTest, ANewTagPropertyHasItsFourSettingsWithTheirDefaults) {
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Rig", model);
    model.AddProperty(L"TagPPG", false, L"");
    ORV::CRefArray parameters = TagProperty(model).GetParameters();
    ASSERT_EQ(parameters.GetCount(), 4);
    const wchar_t* names[4] = {L"StructureTag", L"StructureFile", L"TemplateFile", L"dirty"};
    for (long k = 0; k < 4; ++k) {
        ORV::Parameter p(parameters[k]);
        EXPECT_EQ(p.GetScriptName(), ORV::CString(names[k]));
    }
    EXPECT_EQ(ORV::Parameter(parameters[0]).GetValueType(), ORV::ovInt4);
    EXPECT_EQ(static_cast<int>(TagProperty(model).GetParameterValue(L"StructureTag")), 0);
    EXPECT_EQ(Value(model, L"StructureFile"), L"*.structure");
    EXPECT_EQ(Value(model, L"TemplateFile"), L"");
    EXPECT_EQ(ORV::Parameter(parameters[3]).GetValueType(), ORV::ovBool);
    EXPECT_FALSE(Dirty(model));
    EXPECT_TRUE(Messages().empty());
}

TEST_F(TagPanelTest, SetStructureFileMakesOneTagPerNodeThenOnePerDecompositionTarget) {
    ORV::Model model = CmuRig();
    EXPECT_EQ(Value(model, L"StructureFile"), L"biped");
    std::unique_ptr<ZUK::ModelStructure> structure = modelmaptest::LoadStructure(L"biped");
    ASSERT_TRUE(structure);
    ORV::CRefArray parameters = TagProperty(model).GetParameters();
    ASSERT_EQ(parameters.GetCount(), 4 + structure->numNodes + 2);
    for (int n = 0; n < structure->numNodes; ++n) {
        EXPECT_EQ(ORV::Parameter(parameters[4 + n]).GetScriptName(), structure->nodes[n].Name);
    }
    EXPECT_EQ(ORV::Parameter(parameters[4 + structure->numNodes]).GetScriptName(),
              ORV::CString(L"lforearmtwist"));
    EXPECT_EQ(ORV::Parameter(parameters[5 + structure->numNodes]).GetScriptName(),
              ORV::CString(L"rforearmtwist"));
    EXPECT_TRUE(modelmaptest::FindProperty(model, L"ZUKStructure").IsValid());
}

TEST_F(TagPanelTest, AnUnknownStructureFileIsAlertedAndAnswersFalse) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"cog", L"Hips"));
    orvhost::ClearLog();
    orvhost::ClearAnswers();
    EXPECT_FALSE(static_cast<bool>(Exec(L"SetStructureFile", {model.GetRef(), ORV::CString(L"nosuch")})));
    const Log log = Messages();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), (std::pair<std::wstring, int>{L"Error Loading Structure File.", 4}));
    ASSERT_EQ(orvhost::MessageBoxes().size(), 1u);
    EXPECT_EQ(orvhost::MessageBoxes()[0].caption, L"ZUKRetarget");
    // The tags of the structure on the model stay.
    EXPECT_EQ(Value(model, L"cog"), L"Hips");
}

TEST_F(TagPanelTest, SetTagValueStoresTheObjectAndMarksTheTagsDirty) {
    ORV::Model model = CmuRig();
    EXPECT_FALSE(Dirty(model));
    EXPECT_TRUE(SetTag(model, L"cog", L"Hips"));
    EXPECT_EQ(Value(model, L"cog"), L"Hips");
    EXPECT_TRUE(Dirty(model));
    EXPECT_TRUE(Messages().empty());
}

TEST_F(TagPanelTest, AnEmptyValueAnswersTrueAndSetsDirtyButRemovesNoTag) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"spine", L"LowerBack"));
    TagProperty(model).PutParameterValue(L"dirty", ORV::CValue(false));
    EXPECT_TRUE(SetTag(model, L"spine", L""));
    EXPECT_EQ(Value(model, L"spine"), L"LowerBack");
    EXPECT_TRUE(Dirty(model));
}

TEST_F(TagPanelTest, AMissingObjectIsLoggedAndTheOldValueStays) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"head", L"Head"));
    TagProperty(model).PutParameterValue(L"dirty", ORV::CValue(false));
    orvhost::ClearLog();
    EXPECT_FALSE(SetTag(model, L"head", L"Nobody"));
    EXPECT_EQ(Messages(), (Log{{L"The Nobody node does not exist", 4}}));
    EXPECT_EQ(Value(model, L"head"), L"Head");
    EXPECT_FALSE(Dirty(model));
}

TEST_F(TagPanelTest, AModelWithoutStructureCannotBeTagged) {
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Bare", model);
    EXPECT_FALSE(SetTag(model, L"cog", L"Hips"));
    EXPECT_EQ(Messages(), (Log{{L"The model Bare has no structure. Please set a structure file first.", 4}}));
}

TEST_F(TagPanelTest, ALimbEndAndItsChildMayShareARigObject) {
    ORV::Model model = CmuRig();
    EXPECT_TRUE(SetTag(model, L"lfoot", L"LeftFoot"));
    EXPECT_TRUE(SetTag(model, L"ltoe", L"LeftFoot"));
    EXPECT_EQ(Value(model, L"ltoe"), L"LeftFoot");
    // And the other way round: the child first.
    EXPECT_TRUE(SetTag(model, L"rtoe", L"RightFoot"));
    EXPECT_TRUE(SetTag(model, L"rfoot", L"RightFoot"));
    EXPECT_TRUE(Messages().empty());
}

TEST_F(TagPanelTest, ANodeAboveALimbEndCannotShareItsObject) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"lfoot", L"LeftFoot"));
    orvhost::ClearLog();
    EXPECT_FALSE(SetTag(model, L"lshin", L"LeftFoot"));
    EXPECT_EQ(Messages(), (Log{{L"The rig node LeftFoot is already associated with the end effector lfoot.\n"
                                L"Only the child of lfoot can be tagged to the same node.",
                                4}}));
    EXPECT_EQ(Value(model, L"lshin"), L"");
    ASSERT_EQ(orvhost::MessageBoxes().size(), 1u);
}

TEST_F(TagPanelTest, AnIkAnchorsObjectIsItsAlone) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"lthigh", L"LeftUpLeg"));
    orvhost::ClearLog();
    EXPECT_FALSE(SetTag(model, L"lshin", L"LeftUpLeg"));
    EXPECT_EQ(Messages(),
              (Log{{L"The rig node LeftUpLeg is already associated with the ik anchor lthigh.", 4}}));
}

TEST_F(TagPanelTest, ALimbEndNeedsAnObjectOfItsOwn) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"lshin", L"LeftLeg"));
    orvhost::ClearLog();
    EXPECT_FALSE(SetTag(model, L"lfoot", L"LeftLeg"));
    EXPECT_EQ(Messages(),
              (Log{{L"The rig node LeftLeg is already associated with node lshin.\n"
                    L"The end effector requires a unique node for tagging (although it can share a "
                    L"node with its child).",
                    4}}));
}

TEST_F(TagPanelTest, AnIkAnchorNeedsAnObjectOfItsOwn) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"cog", L"Hips"));
    orvhost::ClearLog();
    EXPECT_FALSE(SetTag(model, L"lthigh", L"Hips"));
    EXPECT_EQ(Messages(), (Log{{L"The rig node Hips is already associated with node cog.\n"
                                L"The ik anchor requires a unique node for tagging.",
                                4}}));
}

TEST_F(TagPanelTest, TheBaseNodeCannotTakeAnObjectAlreadyPicked) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"spine", L"Hips"));
    orvhost::ClearLog();
    EXPECT_FALSE(SetTag(model, L"cog", L"Hips"));
    EXPECT_EQ(Messages(), (Log{{L"The base node cog requires a rig node that has not been selected.", 4}}));
}

TEST_F(TagPanelTest, SpineNodeAndSpineBaseAreUniquelyTagged) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"chest", L"Spine1"));
    ASSERT_TRUE(SetTag(model, L"spine", L"LowerBack"));
    orvhost::ClearLog();
    EXPECT_FALSE(SetTag(model, L"neck", L"Spine1"));
    EXPECT_FALSE(SetTag(model, L"neck", L"LowerBack"));
    EXPECT_EQ(Messages(),
              (Log{{L"The rig node Spine1 is already associated with the spine node chest.", 4},
                   {L"The rig node LowerBack is already associated with the spine base spine.", 4}}));
}

TEST_F(TagPanelTest, TheSpineNodeRefusesAnObjectOfAPlainNode) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"neck", L"Neck"));
    ASSERT_TRUE(SetTag(model, L"head", L"Head"));
    orvhost::ClearLog();
    EXPECT_FALSE(SetTag(model, L"chest", L"Neck"));
    EXPECT_FALSE(SetTag(model, L"spine", L"Head"));
    EXPECT_EQ(Messages(), (Log{{L"The rig node Neck is already associated with node neck.\n"
                                L"The spine node requires a unique node for tagging.",
                                4},
                               {L"The rig node Head is already associated with node head.\n"
                                L"The spine base requires a unique node for tagging.",
                                4}}));
}

TEST_F(TagPanelTest, TwoPlainNodesMayShareARigObject) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"neck", L"Neck"));
    EXPECT_TRUE(SetTag(model, L"head", L"Neck"));
    EXPECT_TRUE(Messages().empty());
}

TEST_F(TagPanelTest, PickingALeftNodeFillsTheRightOneOnlyWhenItIsEmpty) {
    ORV::Model model = CmuRig();
    EXPECT_TRUE(SetTag(model, L"lthigh", L"LeftUpLeg"));
    EXPECT_EQ(Value(model, L"rthigh"), L"RightUpLeg");
    EXPECT_TRUE(SetTag(model, L"rhand", L"RightHand"));
    EXPECT_EQ(Value(model, L"lhand"), L"LeftHand");
    // A filled mirror tag stays as it is.
    ASSERT_TRUE(SetTag(model, L"rshin", L"RightLeg"));
    ASSERT_TRUE(SetTag(model, L"lshin", L"LeftLeg"));
    ASSERT_TRUE(SetTag(model, L"rshin", L"RightFoot"));
    ASSERT_TRUE(SetTag(model, L"lshin", L"LeftUpLeg") == false);
    EXPECT_TRUE(SetTag(model, L"lshin", L"LeftFoot"));
    EXPECT_EQ(Value(model, L"rshin"), L"RightFoot");
}

// The search scores names, not sides: "RightToeBase" shares five leading letters with
// "RightArm" and lies as deep, "LeftArm" shares only the four letters of "tArm".
TEST_F(TagPanelTest, TheMirrorSearchTakesTheNameWithTheMostCommonLettersAtTheSameDepth) {
    ORV::Model model = CmuRig();
    EXPECT_TRUE(SetTag(model, L"rupperarm", L"RightArm"));
    EXPECT_EQ(Value(model, L"lupperarm"), L"RightToeBase");
}

TEST_F(TagPanelTest, ANodeNotBeginningWithAnLOrAnRFillsNothing) {
    ORV::Model model = CmuRig();
    EXPECT_TRUE(SetTag(model, L"neck", L"Neck"));
    ORV::CRefArray parameters = TagProperty(model).GetParameters();
    int filled = 0;
    for (long k = 4; k < parameters.GetCount(); ++k) {
        if (!ORV::Parameter(parameters[k]).GetValue().GetAsText().IsEmpty()) ++filled;
    }
    EXPECT_EQ(filled, 1);
}

TEST_F(TagPanelTest, AnExtractionObjectBeforeItsControlIsRefused) {
    ORV::Model model = CmuRig();
    EXPECT_FALSE(SetTag(model, L"lhand", L"LeftHandIndex1", 2));
    EXPECT_EQ(Messages(), (Log{{L"The animation control for the lhand node must be set before specifying the "
                                L"extraction node.",
                                4}}));
    EXPECT_EQ(Value(model, L"lhand"), L"");
}

TEST_F(TagPanelTest, AnExtractionObjectIsStoredAfterItsControlAndMirrored) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"lhand", L"LeftHand"));
    ASSERT_EQ(Value(model, L"rhand"), L"RightHand");
    EXPECT_TRUE(SetTag(model, L"lhand", L"LeftHandIndex1", 2));
    EXPECT_EQ(Value(model, L"lhand"), L"LeftHand|LeftHandIndex1");
    EXPECT_EQ(Value(model, L"rhand"), L"RightHand|RightHandIndex1");
    // A new control object drops the extraction object.
    EXPECT_TRUE(SetTag(model, L"lhand", L"LeftHand"));
    EXPECT_EQ(Value(model, L"lhand"), L"LeftHand");
}

TEST_F(TagPanelTest, ASubControllerNeedsAnExistingObjectOfItsOwn) {
    ORV::Model model = CmuRig();
    EXPECT_FALSE(SetTag(model, L"lforearmtwist", L"Nobody"));
    EXPECT_TRUE(SetTag(model, L"lforearmtwist", L"LeftForeArm"));
    EXPECT_EQ(Value(model, L"lforearmtwist"), L"LeftForeArm");
    // Sub controllers take no mirror.
    EXPECT_EQ(Value(model, L"rforearmtwist"), L"");
    EXPECT_FALSE(SetTag(model, L"rforearmtwist", L"LeftForeArm"));
    EXPECT_EQ(Messages(), (Log{{L"The Nobody node does not exist.", 4},
                               {L"The LeftForeArm node is already assigned to a sub controller.", 4}}));
    // A structure node may use a sub controller's object.
    EXPECT_TRUE(SetTag(model, L"lforearm", L"LeftForeArm"));
}

// ---- Validity before applying -------------------------------------------------------------

void TagSpine(ORV::Model model) {
    for (const auto& p : std::vector<std::pair<const wchar_t*, const wchar_t*>>{
             {L"cog", L"Hips"}, {L"spine", L"LowerBack"}, {L"chest", L"Spine1"}}) {
        ASSERT_TRUE(TagPanelTest::SetTag(model, p.first, p.second));
    }
}

TEST_F(TagPanelTest, OneUntaggedChildBetweenTwoTaggedNodesPassesTheCheck) {
    ORV::Model model = CmuRig();
    TagSpine(model);
    ASSERT_TRUE(SetTag(model, L"head", L"Head"));
    orvhost::ClearLog();
    EXPECT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    EXPECT_TRUE(Messages().empty());
    EXPECT_TRUE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
    EXPECT_FALSE(Dirty(model));
}

TEST_F(TagPanelTest, TwoUntaggedChildrenInARowFailAtTheSecond) {
    ORV::Model model = CmuRig();
    TagSpine(model);
    ASSERT_TRUE(SetTag(model, L"lforearm", L"LeftForeArm"));
    ASSERT_TRUE(SetTag(model, L"lhand", L"LeftHand"));
    orvhost::ClearLog();
    // The user has been told; the command itself succeeds and the rig is not touched.
    EXPECT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    EXPECT_EQ(Messages(),
              (Log{{L"Because you tagged the lforearm then you must also tag the lclavicle because it "
                    L"is higher in the hierarchy.",
                    4}}));
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
    EXPECT_FALSE(modelmaptest::FindProperty(model.FindChild(L"Hips"), L"ZUKTag").IsValid());
    EXPECT_TRUE(Dirty(model));
}

TEST_F(TagPanelTest, AnUntaggedNodeOtherThanAChildFailsAtOnce) {
    ORV::Model model = CmuRig();
    ASSERT_TRUE(SetTag(model, L"cog", L"Hips"));
    ASSERT_TRUE(SetTag(model, L"neck", L"Neck"));
    orvhost::ClearLog();
    EXPECT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    EXPECT_EQ(Messages(),
              (Log{{L"Because you tagged the neck then you must also tag the chest because it is higher "
                    L"in the hierarchy.",
                    4}}));
}

TEST_F(TagPanelTest, OneTaggedBoneOfALimbRequiresAllOfThem) {
    ORV::Model model = CmuRig();
    TagSpine(model);
    // Without mirror fill on the left leg: the right side is filled first and then emptied.
    ASSERT_TRUE(SetTag(model, L"lthigh", L"LeftUpLeg"));
    TagProperty(model).PutParameterValue(L"rthigh", ORV::CValue(ORV::CString()));
    orvhost::ClearLog();
    EXPECT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    EXPECT_EQ(Messages(),
              (Log{{L"Incomplete tagging of a bone chain. 'lfoot' must be assigned a rig node.", 4}}));
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
}

TEST_F(TagPanelTest, ApplyingWithoutTagPropertyIsAnErrorOfSeverityTwo) {
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Bare", model);
    EXPECT_FALSE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    EXPECT_EQ(Messages(), (Log{{L"No TagPPG found on Model. Please apply TagPPG", 2}}));
}

TEST_F(TagPanelTest, ApplyingWithAnUnreadableStructureIsAnErrorOfSeverityTwo) {
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Bare", model);
    model.AddProperty(L"TagPPG", false, L"");
    EXPECT_FALSE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    const Log log = Messages();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), (std::pair<std::wstring, int>{L"No Structure Files found.", 2}));
}

TEST_F(TagPanelTest, ApplyingStoresTagsStructureMapAndGlue) {
    ORV::Model model = CmuRig();
    for (const auto& p : bvhrig::CmuMotionBuilderTagging()) {
        ASSERT_TRUE(SetTag(model, p.first.c_str(), p.second.c_str())) << modelmaptest::Narrow(p.first);
    }
    orvhost::ClearLog();
    EXPECT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    EXPECT_TRUE(Messages().empty());
    for (const auto& p : bvhrig::CmuMotionBuilderTagging()) {
        ORV::Property tag = modelmaptest::FindProperty(model.FindChild(p.second.c_str()), L"ZUKTag");
        ASSERT_TRUE(tag.IsValid()) << modelmaptest::Narrow(p.second);
        EXPECT_EQ(tag.GetParameterValue(L"tagname").GetAsText(), ORV::CString(p.first.c_str()));
    }
    for (const wchar_t* name : {L"ZUKMap", L"ZUKStructure", L"ZUKGlue"}) {
        EXPECT_TRUE(modelmaptest::FindProperty(model, name).IsValid())
            << modelmaptest::Narrow(std::wstring(name));
    }
    EXPECT_FALSE(Dirty(model));
}

TEST_F(TagPanelTest, CleaningEmptiesTheTagsAndRemovesTheSetup) {
    ORV::Model model = CmuRig();
    for (const auto& p : bvhrig::CmuMotionBuilderTagging())
        ASSERT_TRUE(SetTag(model, p.first.c_str(), p.second.c_str()));
    ASSERT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    model.AddProperty(L"PlotRetargetPPG", false, L"");
    orvhost::ClearLog();
    EXPECT_TRUE(static_cast<bool>(Exec(L"CleanTagsFromRig", {model.GetRef()})));
    EXPECT_TRUE(Messages().empty());
    ORV::CRefArray parameters = TagProperty(model).GetParameters();
    for (long k = 4; k < parameters.GetCount(); ++k) {
        EXPECT_TRUE(ORV::Parameter(parameters[k]).GetValue().GetAsText().IsEmpty());
    }
    EXPECT_FALSE(modelmaptest::FindProperty(model.FindChild(L"Hips"), L"ZUKTag").IsValid());
    EXPECT_FALSE(modelmaptest::FindProperty(model.FindChild(L"LeftHand"), L"ZUKTag").IsValid());
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKGlue").IsValid());
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"PlotRetargetPPG").IsValid());
    // The structure stays, so that tagging can start again.
    EXPECT_TRUE(modelmaptest::FindProperty(model, L"ZUKStructure").IsValid());
}

TEST_F(TagPanelTest, CleanupRemovesTheTagParametersAndWritesTrueToTheTemplateName) {
    ORV::Model model = CmuRig();
    ZUK::TagPPG::cleanup(model);
    EXPECT_EQ(TagProperty(model).GetParameters().GetCount(), 4);
    EXPECT_TRUE(static_cast<bool>(TagProperty(model).GetParameterValue(L"TemplateFile")));
}

}  // namespace
