// The scene helpers of ZUK::Util, on a scene of the headless host.
#include <cfloat>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "AnimHooks.h"
#include "HostUI.h"
#include "ShellTestSupport.h"
#include "shell/Util.h"

namespace {

using shelltest::ShellTest;
namespace Util = ZUK::Util;

std::vector<std::wstring> FullNames(const ORV::CRefArray& refs) {
    std::vector<std::wstring> names;
    for (long i = 0; i < refs.GetCount(); ++i) {
        names.push_back(ORV::OVObject(refs[i]).GetFullName().std());
    }
    return names;
}

// The commands the host echoed while its command log was on, as script lines.
std::vector<std::wstring> Echoed() { return orvhost::LogTexts(ORV::ovVerbose); }

bool CommandLog() {
    ORV::CValueArray args;
    args.Add(ORV::CString(L"preferences.scripting.cmdlog"));
    ORV::CValue value;
    ORV::Application().ExecuteCommand(L"GetValue", args, value);
    return static_cast<bool>(value);
}

ORV::FCurve AddCurve(ORV::X3DObject object, const wchar_t* parameter, std::initializer_list<double> frames) {
    ORV::Parameter p = object.GetKinematics().GetLocal().GetParameter(parameter);
    ORV::FCurve curve;
    p.AddFCurve(ORV::ovStandardFCurve, curve);
    double value = 0.0;
    for (double frame : frames) {
        curve.AddKey(ORV::CTime(frame), value);
        value += 1.0;
    }
    return curve;
}

// ---- getSingleModel -------------------------------------------------------------------------

TEST_F(ShellTest, GetSingleModelWithOneModelIgnoresTheSelection) {
    ORV::Model only = AddModel(Root(), L"Only");
    ORV::X3DObject loose = AddNull(Root(), L"Loose");
    Select({loose.GetRef()});
    EXPECT_EQ(Util::getSingleModel(), only);
    Select({});
    EXPECT_EQ(Util::getSingleModel(), only);
}

TEST_F(ShellTest, GetSingleModelWithTwoModelsAndNoSelectionIsInvalid) {
    AddModel(Root(), L"A");
    AddModel(Root(), L"B");
    EXPECT_FALSE(Util::getSingleModel().IsValid());
}

TEST_F(ShellTest, GetSingleModelTakesTheModelOfAPlainNodeSelectedInTheSecondModel) {
    ORV::Model a = AddModel(Root(), L"A");
    ORV::Model b = AddModel(Root(), L"B");
    AddNull(a, L"NodeA");
    ORV::X3DObject nodeB = AddNull(b, L"NodeB");
    Select({nodeB.GetRef(), a.GetRef()});
    EXPECT_EQ(Util::getSingleModel(), b);
}

TEST_F(ShellTest, GetSingleModelWithANodeDirectlyUnderTheSceneRootIsInvalid) {
    AddModel(Root(), L"A");
    AddModel(Root(), L"B");
    ORV::X3DObject loose = AddNull(Root(), L"Loose");
    Select({loose.GetRef()});
    EXPECT_FALSE(Util::getSingleModel().IsValid());
}

TEST_F(ShellTest, GetSingleModelGivesTheSelectedSceneRootBackAsItself) {
    AddModel(Root(), L"A");
    AddModel(Root(), L"B");
    Select({Root().GetRef()});
    EXPECT_EQ(Util::getSingleModel(), Root());
}

TEST_F(ShellTest, GetSingleModelCountsNestedModelsToo) {
    // One top-level model and one inside it are two models: the selection decides.
    ORV::Model outer = AddModel(Root(), L"Outer");
    ORV::Model inner = AddModel(outer, L"Inner");
    EXPECT_FALSE(Util::getSingleModel().IsValid());
    ORV::X3DObject node = AddNull(inner, L"Node");
    Select({node.GetRef()});
    EXPECT_EQ(Util::getSingleModel(), inner);
}

TEST_F(ShellTest, GetSingleModelLooksAtTheFirstSelectedItemOnly) {
    AddModel(Root(), L"A");
    ORV::Model b = AddModel(Root(), L"B");
    ORV::X3DObject loose = AddNull(Root(), L"Loose");
    Select({loose.GetRef(), b.GetRef()});
    EXPECT_FALSE(Util::getSingleModel().IsValid());
}

TEST_F(ShellTest, GetSingleModelTakesASelectedModelItself) {
    AddModel(Root(), L"A");
    ORV::Model b = AddModel(Root(), L"B");
    Select({b.GetRef()});
    EXPECT_EQ(Util::getSingleModel(), b);
}

// ---- getSelectedModels ----------------------------------------------------------------------

TEST_F(ShellTest, GetSelectedModelsListsEachModelOnceInOrderOfFirstSelection) {
    ORV::Model a = AddModel(Root(), L"A");
    ORV::Model b = AddModel(Root(), L"B");
    ORV::X3DObject nodeA = AddNull(a, L"NodeA");
    ORV::X3DObject nodeB = AddNull(b, L"NodeB");
    ORV::X3DObject loose = AddNull(Root(), L"Loose");
    Select({nodeB.GetRef(), loose.GetRef(), nodeA.GetRef(), b.GetRef(), Root().GetRef()});
    ORV::CRefArray models;
    models.Add(Root().GetRef());  // cleared first
    Util::getSelectedModels(models);
    EXPECT_EQ(FullNames(models), (std::vector<std::wstring>{L"B", L"A"}));
}

class SelectedModelsWithProperty : public ShellTest {
protected:
    void SetUp() override {
        ShellTest::SetUp();
        a = AddModel(Root(), L"A");
        b = AddModel(Root(), L"B");
        c = AddModel(Root(), L"C");
        AddCustomProperty(a, L"Marker");
        AddCustomProperty(c, L"Marker");
        nested = AddModel(b, L"Nested");
        AddCustomProperty(nested, L"Marker");
    }
    ORV::Model a, b, c, nested;
};

TEST_F(SelectedModelsWithProperty, WithoutASelectionGivesEveryTopLevelModelThatCarriesIt) {
    ORV::CRefArray models;
    Util::getSelectedModels(models, L"Marker", false);
    EXPECT_EQ(FullNames(models), (std::vector<std::wstring>{L"A", L"C"}));
}

TEST_F(SelectedModelsWithProperty, SelectionInAModelWithoutThePropertyGivesAllThatCarryIt) {
    ORV::X3DObject nodeB = AddNull(b, L"NodeB");
    Select({nodeB.GetRef()});
    ORV::CRefArray models;
    Util::getSelectedModels(models, L"Marker", false);
    EXPECT_EQ(FullNames(models), (std::vector<std::wstring>{L"A", L"C"}));
}

TEST_F(SelectedModelsWithProperty, SelectionInACarryingModelNarrowsToThatModel) {
    ORV::X3DObject nodeC = AddNull(c, L"NodeC");
    Select({nodeC.GetRef()});
    ORV::CRefArray models;
    Util::getSelectedModels(models, L"Marker", false);
    EXPECT_EQ(FullNames(models), (std::vector<std::wstring>{L"C"}));
}

TEST_F(SelectedModelsWithProperty, OnlySelectedGivesTheSelectedCarriersOfAnyDepth) {
    // The scene root is skipped even when it carries the property.
    AddCustomProperty(Root(), L"Marker");
    Select({nested.GetRef(), b.GetRef(), c.GetRef(), Root().GetRef()});
    ORV::CRefArray models;
    Util::getSelectedModels(models, L"Marker", true);
    EXPECT_EQ(FullNames(models), (std::vector<std::wstring>{L"B.Nested", L"C"}));
}

TEST_F(SelectedModelsWithProperty, OnlySelectedListsEachCarrierOnceInSelectionOrder) {
    ORV::X3DObject nodeC = AddNull(c, L"NodeC");
    Select({nodeC.GetRef(), a.GetRef(), c.GetRef()});
    ORV::CRefArray models;
    Util::getSelectedModels(models, L"Marker", true);
    EXPECT_EQ(FullNames(models), (std::vector<std::wstring>{L"C", L"A"}));
}

TEST_F(SelectedModelsWithProperty, WithoutOnlySelectedTheFirstSelectedCarrierWins) {
    ORV::X3DObject nodeC = AddNull(c, L"NodeC");
    Select({b.GetRef(), nodeC.GetRef(), a.GetRef()});
    ORV::CRefArray models;
    Util::getSelectedModels(models, L"Marker", false);
    EXPECT_EQ(FullNames(models), (std::vector<std::wstring>{L"C"}));
}

TEST_F(SelectedModelsWithProperty, WithoutOnlySelectedANestedCarrierNeverWidensTheList) {
    Select({nested.GetRef()});
    ORV::CRefArray models;
    Util::getSelectedModels(models, L"Marker", false);
    EXPECT_EQ(FullNames(models), (std::vector<std::wstring>{L"A", L"C"}));
}

TEST_F(ShellTest, GetSelectedModelsOnlySelectedWithNoTopLevelCarrierGivesNothing) {
    ORV::Model b = AddModel(Root(), L"B");
    ORV::Model nested = AddModel(b, L"Nested");
    AddCustomProperty(nested, L"Marker");
    Select({nested.GetRef()});
    ORV::CRefArray models;
    Util::getSelectedModels(models, L"Marker", true);
    EXPECT_EQ(models.GetCount(), 0);
    Util::getSelectedModels(models, L"Marker", false);
    EXPECT_EQ(models.GetCount(), 0);
}

// ---- findModel, findCustomPSet, findCustomOp ------------------------------------------------

TEST_F(ShellTest, FindModelFindsOnlyModelsDirectlyUnderTheSceneRoot) {
    ORV::Model outer = AddModel(Root(), L"Outer");
    AddModel(outer, L"Inner");
    AddNull(Root(), L"Plain");
    EXPECT_EQ(Util::findModel(L"Outer"), outer);
    EXPECT_FALSE(Util::findModel(L"Inner").IsValid());
    EXPECT_FALSE(Util::findModel(L"Plain").IsValid());
    EXPECT_FALSE(Util::findModel(L"Nobody").IsValid());
}

TEST_F(ShellTest, FindCustomPSetFindsAPropertyByName) {
    ORV::Model model = AddModel(Root(), L"Rig");
    AddCustomProperty(model, L"First");
    ORV::CustomProperty second = AddCustomProperty(model, L"Second");
    ORV::Property found;
    ASSERT_TRUE(Util::findCustomPSet(model, L"Second", found));
    EXPECT_EQ(found, second);
    EXPECT_FALSE(Util::findCustomPSet(model, L"second", found));
    EXPECT_FALSE(Util::findCustomPSet(model, L"Third", found));
}

TEST_F(ShellTest, FindCustomOpWithAnEmptyPathIsFalse) {
    ORV::CustomOperator op;
    EXPECT_FALSE(Util::findCustomOp(L"", L"RetargetOp", op));
    EXPECT_FALSE(op.IsValid());
}

TEST_F(ShellTest, FindCustomOpOnAPathThatNamesNothingIsFalse) {
    ORV::CustomOperator op;
    EXPECT_FALSE(Util::findCustomOp(L"Nobody.kine.local", L"RetargetOp", op));
    EXPECT_FALSE(op.IsValid());
}

TEST_F(ShellTest, FindCustomOpAsksEnumElementsForThePath) {
    AddModel(Root(), L"Rig");
    SetCommandLog(true);
    orvhost::ClearLog();
    ORV::CustomOperator op;
    EXPECT_FALSE(Util::findCustomOp(L"Rig.kine.local", L"RetargetOperator", op));
    EXPECT_EQ(Echoed(), (std::vector<std::wstring>{L"EnumElements(\"Rig.kine.local\")"}));
}

TEST_F(ShellTest, FindCustomOpFindsAnOperatorByNameOnThePath) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::CustomOperator created(ORV::Application().GetFactory().CreateObject(L"RetargetOp"));
    ASSERT_TRUE(created.IsValid());
    ORV::KinematicState local = model.GetKinematics().GetLocal();
    created.AddOutputPort(local.GetRef());
    created.AddInputPort(local.GetRef());
    ASSERT_EQ(created.Connect(), ORV::CStatus::OK);

    ORV::CustomOperator op;
    ASSERT_TRUE(Util::findCustomOp(local.GetFullName(), created.GetName(), op));
    EXPECT_EQ(op, created);
    EXPECT_FALSE(Util::findCustomOp(local.GetFullName(), L"NoSuchOperator", op));
}

TEST_F(ShellTest, FindCustomOpConsidersOnlyCustomOperators) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::CustomOperator created(ORV::Application().GetFactory().CreateObject(L"RetargetOp"));
    ORV::KinematicState local = model.GetKinematics().GetLocal();
    created.AddOutputPort(local.GetRef());
    created.AddInputPort(local.GetRef());
    ASSERT_EQ(created.Connect(), ORV::CStatus::OK);
    // Besides the operator, the kinematic state holds parameters, and the model a property
    // named like an operator.
    ORV::CustomProperty decoy = AddCustomProperty(model, L"RetargetOperator");
    ASSERT_TRUE(decoy.IsValid());

    ORV::CustomOperator op;
    EXPECT_FALSE(Util::findCustomOp(local.GetFullName(), L"posx", op));
    EXPECT_FALSE(op.IsValid());
    EXPECT_FALSE(Util::findCustomOp(model.GetFullName(), L"RetargetOperator", op));
    EXPECT_FALSE(op.IsValid());
    // An empty name matches no operator, and so nothing at all.
    EXPECT_FALSE(Util::findCustomOp(local.GetFullName(), L"", op));
    EXPECT_FALSE(Util::findCustomOp(model.GetFullName(), L"", op));
    EXPECT_FALSE(op.IsValid());
    ASSERT_TRUE(Util::findCustomOp(local.GetFullName(), created.GetName(), op));
    EXPECT_EQ(op, created);
}

// ---- FindStringInArray, SubString, CountSeparatingBones, getMasterNode ----------------------

TEST_F(ShellTest, FindStringInArrayComparesExactlyWithCase) {
    ORV::CStringArray array;
    array.Add(L"LeftFoot");
    array.Add(L"RightFoot");
    EXPECT_TRUE(Util::FindStringInArray(array, L"RightFoot"));
    EXPECT_FALSE(Util::FindStringInArray(array, L"rightfoot"));
    EXPECT_FALSE(Util::FindStringInArray(array, L"Right"));
    ORV::CStringArray empty;
    EXPECT_FALSE(Util::FindStringInArray(empty, L""));
}

TEST_F(ShellTest, SubStringTakesUpToButNotIncludingTheEnd) {
    EXPECT_EQ(Util::SubString(L"abcdef", 2, 4), L"cd");
    EXPECT_EQ(Util::SubString(L"abcdef", 2, 0), L"cdef");
    EXPECT_EQ(Util::SubString(L"abcdef", 2, -3), L"cdef");
    EXPECT_EQ(Util::SubString(L"abcdef", 0, 6), L"abcdef");
    EXPECT_EQ(Util::SubString(L"abcdef", 4, 40), L"ef");  // ends early at the text's end
    EXPECT_EQ(Util::SubString(L"abcdef", 7, 9), L"");
    EXPECT_EQ(Util::SubString(L"abcdef", 3, 3), L"");
}

TEST_F(ShellTest, CountSeparatingBonesCountsParentSteps) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    ORV::X3DObject spine = AddNull(hips, L"Spine");
    ORV::X3DObject chest = AddNull(spine, L"Chest");
    ORV::X3DObject neck = AddNull(chest, L"Neck");
    EXPECT_EQ(Util::CountSeparatingBones(neck, neck), 0);
    EXPECT_EQ(Util::CountSeparatingBones(neck, chest), 1);
    EXPECT_EQ(Util::CountSeparatingBones(neck, hips), 3);
}

TEST_F(ShellTest, CountSeparatingBonesGivesMinusOneWhenTheModelComesFirst) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    ORV::X3DObject spine = AddNull(hips, L"Spine");
    ORV::X3DObject leg = AddNull(hips, L"Leg");
    // The model is tested before the ancestor, so the model as ancestor gives -1.
    EXPECT_EQ(Util::CountSeparatingBones(spine, model), -1);
    // An ancestor that is not above the node.
    EXPECT_EQ(Util::CountSeparatingBones(spine, leg), -1);
}

TEST_F(ShellTest, GetMasterNodeFollowsConstraintsToTheDrivingObject) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject node = AddNull(model, L"Node");
    ORV::X3DObject middle = AddNull(model, L"Middle");
    ORV::X3DObject master = AddNull(model, L"Master");
    ORV::Constraint cns;
    ASSERT_EQ(node.GetKinematics().AddConstraint(L"Position", middle.GetRef(), cns), ORV::CStatus::OK);
    ASSERT_EQ(middle.GetKinematics().AddConstraint(L"Orientation", master.GetRef(), cns), ORV::CStatus::OK);
    EXPECT_EQ(Util::getMasterNode(node), master);
    EXPECT_EQ(Util::getMasterNode(master), master);
}

TEST_F(ShellTest, GetMasterNodeTakesTheLastQualifyingConstraint) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject node = AddNull(model, L"Node");
    ORV::X3DObject first = AddNull(model, L"First");
    ORV::X3DObject last = AddNull(model, L"Last");
    ORV::Constraint cns;
    ASSERT_EQ(node.GetKinematics().AddConstraint(L"Position", first.GetRef(), cns), ORV::CStatus::OK);
    ASSERT_EQ(node.GetKinematics().AddConstraint(L"Orientation", last.GetRef(), cns), ORV::CStatus::OK);
    EXPECT_EQ(Util::getMasterNode(node), last);
}

TEST_F(ShellTest, GetMasterNodeIgnoresOtherConstraintKinds) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject node = AddNull(model, L"Node");
    ORV::X3DObject aim = AddNull(model, L"Aim");
    ORV::Constraint cns;
    ASSERT_EQ(node.GetKinematics().AddConstraint(L"Position", aim.GetRef(), cns), ORV::CStatus::OK);
    // The host makes only position and orientation constraints; rename this one to another kind.
    auto* item = static_cast<orvhost::ConstraintItem*>(orvhost::TheStore().Resolve(cns.GetRef()));
    ASSERT_NE(item, nullptr);
    item->name = L"Direction Cns";
    EXPECT_EQ(Util::getMasterNode(node), node);
}

TEST_F(ShellTest, GetMasterNodeSkipsAConstraintWithMoreThanOneConstrainingObject) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject node = AddNull(model, L"Node");
    ORV::X3DObject single = AddNull(model, L"Single");
    ORV::X3DObject left = AddNull(model, L"Left");
    ORV::X3DObject right = AddNull(model, L"Right");
    ORV::Constraint first;
    ORV::Constraint blended;
    ASSERT_EQ(node.GetKinematics().AddConstraint(L"Orientation", single.GetRef(), first), ORV::CStatus::OK);
    ASSERT_EQ(node.GetKinematics().AddConstraint(L"Position", left.GetRef(), blended), ORV::CStatus::OK);
    auto* item = static_cast<orvhost::ConstraintItem*>(orvhost::TheStore().Resolve(blended.GetRef()));
    ASSERT_NE(item, nullptr);
    item->constraining.push_back(right.GetRef().GetId());
    ASSERT_EQ(blended.GetConstraining().GetCount(), 2);
    // The later constraint does not qualify, so the earlier one stands.
    EXPECT_EQ(Util::getMasterNode(node), single);
}

// ---- Script command wrappers ----------------------------------------------------------------

TEST_F(ShellTest, DeleteObjDeletesTheNamedObject) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject node = AddNull(model, L"Node");
    EXPECT_EQ(Util::deleteObj(L"Rig.Node"), ORV::CStatus::OK);
    EXPECT_FALSE(node.IsValid());
    EXPECT_TRUE(model.IsValid());
}

TEST_F(ShellTest, DeleteModelOfAnUnknownNameRunsNoCommandAndReturnsFalse) {
    AddModel(Root(), L"Rig");
    SetCommandLog(true);
    orvhost::ClearLog();
    EXPECT_FALSE(Util::deleteModel(L"Nobody"));
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(Root().GetChildren().GetCount(), 1);
}

TEST_F(ShellTest, DeleteModelDeletesTheWholeBranch) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    ORV::X3DObject spine = AddNull(hips, L"Spine");
    ORV::Model other = AddModel(Root(), L"Other");
    SetCommandLog(true);
    orvhost::ClearLog();
    EXPECT_TRUE(Util::deleteModel(L"Rig"));
    EXPECT_EQ(Echoed(), (std::vector<std::wstring>{L"DeleteObj(\"B:Rig\")"}));
    EXPECT_FALSE(model.IsValid());
    EXPECT_FALSE(hips.IsValid());
    EXPECT_FALSE(spine.IsValid());
    EXPECT_TRUE(other.IsValid());
}

TEST_F(ShellTest, ClearAnimRemovesTheAnimationOfTheBranchAndLeavesNothingSelected) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    ORV::Model other = AddModel(Root(), L"Other");
    AddCurve(hips, L"posx", {1.0, 10.0});
    AddCurve(other, L"posy", {1.0, 10.0});
    Util::clearAnim(model);
    EXPECT_FALSE(hips.GetKinematics().GetLocal().GetParameter(L"posx").IsAnimated(ORV::ovFCurveSource));
    EXPECT_TRUE(other.GetKinematics().GetLocal().GetParameter(L"posy").IsAnimated(ORV::ovFCurveSource));
    EXPECT_EQ(ORV::Application().GetSelection().GetCount(), 0);
}

TEST_F(ShellTest, ClearAnimIssuesItsCommandsInOrder) {
    ORV::Model model = AddModel(Root(), L"Rig");
    AddNull(model, L"Hips");
    SetCommandLog(true);
    orvhost::ClearLog();
    Util::clearAnim(model);
    // Without a mixer there are no tracks to enumerate.
    EXPECT_EQ(Echoed(),
              (std::vector<std::wstring>{L"SelectObj(\"Rig\", \"BRANCH\")",
                                         L"RemoveAllAnimation(null, null, 3, 3, 128)", L"DeselectAll()"}));
}

TEST_F(ShellTest, ClearAnimDeletesEveryMixerTrack) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ASSERT_TRUE(model.AddMixer().IsValid());
    orvhost::Item* tracks = orvhost::FindByPath(L"Rig.Mixer.AnimTracks");
    ASSERT_NE(tracks, nullptr);
    tracks->Own(std::make_unique<orvhost::Item>(ORV::ovObjectID, L"Walk"));
    tracks->Own(std::make_unique<orvhost::Item>(ORV::ovObjectID, L"Run"));
    SetCommandLog(true);
    orvhost::ClearLog();
    Util::clearAnim(model);
    EXPECT_TRUE(tracks->owned.empty());
    EXPECT_EQ(Echoed(),
              (std::vector<std::wstring>{
                  L"SelectObj(\"Rig\", \"BRANCH\")", L"RemoveAllAnimation(null, null, 3, 3, 128)",
                  L"EnumElements(\"Rig.Mixer.AnimTracks\")", L"DeleteObj(\"Rig.Mixer.AnimTracks.Walk\")",
                  L"DeleteObj(\"Rig.Mixer.AnimTracks.Run\")", L"DeselectAll()"}));
}

TEST_F(ShellTest, ClearNodeAnimRemovesTheAnimationOfOneObject) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    ORV::X3DObject spine = AddNull(model, L"Spine");
    AddCurve(hips, L"posx", {1.0, 10.0});
    AddCurve(spine, L"posx", {1.0, 10.0});
    SetCommandLog(true);
    orvhost::ClearLog();
    Util::clearNodeAnim(hips);
    EXPECT_EQ(Echoed(), (std::vector<std::wstring>{L"RemoveAllAnimation(\"Rig.Hips\", 0, 3, 1, 128)"}));
    EXPECT_FALSE(hips.GetKinematics().GetLocal().GetParameter(L"posx").IsAnimated(ORV::ovFCurveSource));
    EXPECT_TRUE(spine.GetKinematics().GetLocal().GetParameter(L"posx").IsAnimated(ORV::ovFCurveSource));
}

TEST_F(ShellTest, GetConstrainedObjectsGivesWhatAConstraintDrives) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject driver = AddNull(model, L"Driver");
    ORV::X3DObject driven = AddNull(model, L"Driven");
    AddNull(model, L"Bystander");
    ORV::Constraint cns;
    ASSERT_EQ(driven.GetKinematics().AddConstraint(L"Position", driver.GetRef(), cns), ORV::CStatus::OK);
    ORV::CValue result = Util::getConstrainedObjects(driver.GetRef(), cns.GetRef());
    const ORV::CValueArray& objects = result;
    ASSERT_EQ(objects.GetCount(), 1);
    EXPECT_EQ(static_cast<ORV::CRef>(objects[0]), driven.GetRef());
}

TEST_F(ShellTest, GetSkeletonGivesTheChainBonesAndHandsBackTheRoot) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::ChainRoot chainRoot;
    ASSERT_EQ(model.Add2DChain(ORV::MATH::CVector3(0, 0, 0), ORV::MATH::CVector3(0, -4, 0),
                               ORV::MATH::CVector3(0, 0, 1), L"Leg", chainRoot),
              ORV::CStatus::OK);
    ORV::ChainBone shin;
    ASSERT_EQ(chainRoot.AddBone(ORV::MATH::CVector3(0, -8, 1), L"Shin", shin), ORV::CStatus::OK);
    ORV::CValue root;
    ORV::CValue result = Util::getSkeleton(shin.GetRef(), root);
    const ORV::CValueArray& bones = result;
    ASSERT_EQ(bones.GetCount(), 2);
    EXPECT_EQ(static_cast<ORV::CRef>(bones[1]), shin.GetRef());
    EXPECT_EQ(static_cast<ORV::CRef>(root), chainRoot.GetRef());
}

TEST_F(ShellTest, LogCommandsSetsTheCommandLogAndAnswersTheOldValue) {
    SetCommandLog(true);
    EXPECT_TRUE(Util::logCommands(false));
    EXPECT_FALSE(CommandLog());
    EXPECT_FALSE(Util::logCommands(true));
    EXPECT_TRUE(CommandLog());
}

TEST_F(ShellTest, LogCommandsRestoresTheOldValueWhenGivenItBack) {
    for (bool before : {true, false}) {
        SetCommandLog(before);
        const bool old = Util::logCommands(false);
        EXPECT_EQ(old, before);
        EXPECT_FALSE(CommandLog());
        Util::logCommands(old);
        EXPECT_EQ(CommandLog(), before);
    }
}

TEST_F(ShellTest, LogCommandsReadsThenSetsTheCommandLogPreference) {
    SetCommandLog(true);
    orvhost::ClearLog();
    Util::logCommands(false);
    // The second command is echoed before it switches the log off.
    EXPECT_EQ(Echoed(), (std::vector<std::wstring>{L"GetValue(\"preferences.scripting.cmdlog\")",
                                                   L"SetValue(\"preferences.scripting.cmdlog\", false)"}));
}

TEST_F(ShellTest, FrameSelectsEachCarrierByNameThenFramesAll) {
    ORV::Model a = AddModel(Root(), L"A");
    AddModel(Root(), L"B");
    ORV::Model c = AddModel(Root(), L"C");
    AddCustomProperty(a, L"Marker");
    AddCustomProperty(c, L"Marker");
    SetCommandLog(true);
    orvhost::ClearLog();
    EXPECT_EQ(Util::frame(L"Marker"), ORV::CStatus::OK);
    EXPECT_EQ(Echoed(),
              (std::vector<std::wstring>{L"SelectObj(\"A\", \"BRANCH\")", L"SelectObj(\"C\", \"BRANCH\")",
                                         L"FrameAll(0)", L"DeselectAll()"}));
    orvhost::ClearLog();
    EXPECT_EQ(Util::frame(L"Nothing"), ORV::CStatus::OK);
    EXPECT_EQ(Echoed(), (std::vector<std::wstring>{L"FrameAll()", L"DeselectAll()"}));
}

TEST_F(ShellTest, FrameAnswersTheStatusOfDeselectAll) {
    ORV::Model model = AddModel(Root(), L"Rig");
    AddCustomProperty(model, L"Marker");
    for (const wchar_t* property : {L"Marker", L"Nothing"}) {
        {
            orvhost::CommandFailure failure(L"DeselectAll", ORV::CStatus::Fail);
            EXPECT_EQ(Util::frame(property), ORV::CStatus::Fail) << property;
        }
        {
            orvhost::CommandFailure failure(L"FrameAll", ORV::CStatus::Fail);
            EXPECT_EQ(Util::frame(property), ORV::CStatus::OK) << property;
        }
        {
            orvhost::CommandFailure failure(L"SelectObj", ORV::CStatus::InvalidArgument);
            EXPECT_EQ(Util::frame(property), ORV::CStatus::OK) << property;
        }
    }
}

TEST_F(ShellTest, FrameSelectsNothingAfterwardsAndAnswersOK) {
    ORV::Model model = AddModel(Root(), L"Rig");
    AddCustomProperty(model, L"Marker");
    EXPECT_EQ(Util::frame(L"Marker"), ORV::CStatus::OK);
    EXPECT_EQ(ORV::Application().GetSelection().GetCount(), 0);
    EXPECT_EQ(Util::frame(L"Nothing"), ORV::CStatus::OK);
}

TEST_F(ShellTest, InspectObjIsTrueWhenTheUserPressesOK) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::CustomProperty property = AddCustomProperty(model, L"Page");
    const int modal = 4;
    orvhost::QueueAnswer(true);
    EXPECT_TRUE(Util::inspectObj(property.GetFullName(), L"", L"A Title", modal, false));
    orvhost::QueueAnswer(false);
    EXPECT_FALSE(Util::inspectObj(property.GetFullName(), L"", L"A Title", modal, false));
    EXPECT_EQ(orvhost::PendingAnswers(), 0u);
}

TEST_F(ShellTest, InspectObjWithoutAModalPageAsksNothingAndIsTrue) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::CustomProperty property = AddCustomProperty(model, L"Page");
    orvhost::QueueAnswer(false);
    EXPECT_TRUE(Util::inspectObj(property.GetFullName(), L"", L"Rig Tagging Tool", 3, false));
    EXPECT_EQ(orvhost::PendingAnswers(), 1u);
}

// ---- Asking the user ------------------------------------------------------------------------

TEST_F(ShellTest, AlertLogsAtSeverityFourAndShowsTheText) {
    orvhost::QueueAnswer(ORV::CValue(static_cast<int>(ORV::ovMsgOk)));
    EXPECT_EQ(Util::alert(L"Select a valid model."), ORV::ovMsgOk);
    std::vector<orvhost::LogEntry> log = Log();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0].text, L"Select a valid model.");
    EXPECT_EQ(log[0].severity, 4);
    ASSERT_FALSE(orvhost::Questions().empty());
    EXPECT_NE(orvhost::Questions().back().find(L"Select a valid model."), std::wstring::npos);
}

TEST_F(ShellTest, AlertLogsBeforeItShowsTheBox) {
    std::vector<std::size_t> logSizeAtQuestion;
    auto& sink = orvhost::QuestionSink();
    auto saved = sink;
    sink = [&logSizeAtQuestion](const std::wstring&, const std::wstring&) {
        logSizeAtQuestion.push_back(orvhost::LogEntries().size());
    };
    Util::alert(L"Failed to read model map from source model.");
    sink = saved;
    EXPECT_EQ(logSizeAtQuestion, (std::vector<std::size_t>{1u}));
}

TEST_F(ShellTest, AlertShowsABoxWithAnOkButtonOnly) {
    // A No is not a button of an exclamation box: the host answers OK instead.
    orvhost::QueueAnswer(ORV::CValue(static_cast<int>(ORV::ovMsgNo)));
    EXPECT_EQ(Util::alert(L"Select a valid model."), ORV::ovMsgOk);
    EXPECT_EQ(orvhost::Questions(), (std::vector<std::wstring>{L"MsgBox: Select a valid model."}));
}

TEST_F(ShellTest, AlertShowsAnExclamationBoxTitledZUKRetarget) {
    Util::alert(L"Select a valid model.");
    const auto& boxes = orvhost::MessageBoxes();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].text, L"Select a valid model.");
    EXPECT_EQ(boxes[0].caption, L"ZUKRetarget");
    EXPECT_EQ(boxes[0].flags, 48);
}

TEST_F(ShellTest, QueryYesNoAsksAYesNoQuestionTitledZUKRetarget) {
    orvhost::QueueAnswer(ORV::CValue(static_cast<int>(ORV::ovMsgNo)));
    Util::QueryYesNo(L"Overwrite?");
    const auto& boxes = orvhost::MessageBoxes();
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].caption, L"ZUKRetarget");
    EXPECT_EQ(boxes[0].flags, 36);
    EXPECT_EQ(boxes[0].result, ORV::ovMsgNo);
}

TEST_F(ShellTest, QueryYesNoIsTrueUnlessTheAnswerIsNo) {
    orvhost::QueueAnswer(ORV::CValue(static_cast<int>(ORV::ovMsgNo)));
    EXPECT_FALSE(Util::QueryYesNo(L"Overwrite?"));
    orvhost::QueueAnswer(ORV::CValue(static_cast<int>(ORV::ovMsgYes)));
    EXPECT_TRUE(Util::QueryYesNo(L"Overwrite?"));
    // Nobody there to answer: the box answers Yes.
    EXPECT_TRUE(Util::QueryYesNo(L"Overwrite?"));
    EXPECT_TRUE(Log().empty());
    EXPECT_EQ(orvhost::Questions().size(), 3u);
}

TEST_F(ShellTest, FileBrowserGivesThePickedPathOrEmptyOnCancel) {
    orvhost::QueueAnswer(ORV::CString(L"/data/walk.bvh"));
    EXPECT_EQ(Util::fileBrowser(L"Select BVH File (*.bvh)|*.bvh||", L"Select BVH File", L"/data", true),
              L"/data/walk.bvh");
    orvhost::QueueAnswer(ORV::CValue());
    EXPECT_EQ(Util::fileBrowser(L"Save Trovo File (*.trovo)|*.trovo||", L"Save Trovo File", L"/data", false),
              L"");
}

TEST_F(ShellTest, FileBrowserSetsUpTheBrowserAndShowsTheDialogOfItsMode) {
    orvhost::QueueAnswer(ORV::CString(L"/data/walk.bvh"));
    Util::fileBrowser(L"Select BVH File (*.bvh)|*.bvh||", L"Select BVH File", L"/data/in", true);
    orvhost::QueueAnswer(ORV::CString(L"/data/out.trovo"));
    Util::fileBrowser(L"Save Trovo File (*.trovo)|*.trovo||", L"Save Trovo File", L"/data/out", false);
    EXPECT_EQ(orvhost::Questions(),
              (std::vector<std::wstring>{L"ShowOpen: Select BVH File", L"ShowSave: Save Trovo File"}));

    // The host's one browser object keeps what the last call set.
    ORV::CComAPIHandler toolkit;
    ASSERT_EQ(toolkit.CreateInstance(L"ORV.UIToolkit"), ORV::CStatus::OK);
    ORV::CComAPIHandler browser(toolkit.GetProperty(L"FileBrowser"));
    EXPECT_EQ(browser.GetProperty(L"Filter").GetAsText(), L"Save Trovo File (*.trovo)|*.trovo||");
    EXPECT_EQ(browser.GetProperty(L"DialogTitle").GetAsText(), L"Save Trovo File");
    EXPECT_EQ(browser.GetProperty(L"InitialDirectory").GetAsText(), L"/data/out");
}

// ---- Play control and keys ------------------------------------------------------------------

TEST_F(ShellTest, GetFrameRateReadsPlayControlRate) {
    ORV::Property playControl(ORV::Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    ASSERT_TRUE(playControl.IsValid());
    playControl.PutParameterValue(L"Rate", 25.0);
    EXPECT_DOUBLE_EQ(Util::getFrameRate(), 25.0);
}

TEST_F(ShellTest, GetCurrentFrameReadsPlayControlCurrent) {
    ORV::Property playControl(ORV::Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    playControl.PutParameterValue(L"Current", 17.25);
    EXPECT_FLOAT_EQ(Util::getCurrentFrame(), 17.25f);
    // Narrowed to float: a frame that a float cannot hold comes back rounded.
    playControl.PutParameterValue(L"Current", 16777217.0);
    EXPECT_EQ(Util::getCurrentFrame(), 16777216.0f);
}

TEST_F(ShellTest, FindStartEndOnCurvesWithOneKeyEachLeavesBothBoundsUntouched) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    AddCurve(hips, L"posx", {-20.0});
    AddCurve(hips, L"rotz", {500.0});
    int start = 5;
    int end = 8;
    Util::findStartEnd(model, start, end);
    EXPECT_EQ(start, 5);
    EXPECT_EQ(end, 8);
}

TEST_F(ShellTest, FindStartEndWidensToTheTruncatedKeyTimes) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    ORV::X3DObject spine = AddNull(hips, L"Spine");
    AddCurve(hips, L"posx", {3.7, 10.0, 40.9});
    AddCurve(spine, L"roty", {12.0, 55.6});
    int start = 5;
    int end = 8;
    Util::findStartEnd(model, start, end);
    EXPECT_EQ(start, 3);
    EXPECT_EQ(end, 55);

    // Truncation goes toward zero, also below it.
    AddCurve(spine, L"rotx", {-3.7, -1.2});
    Util::findStartEnd(model, start, end);
    EXPECT_EQ(start, -3);
    EXPECT_EQ(end, 55);
}

TEST_F(ShellTest, FindStartEndNeverNarrowsTheRange) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    AddCurve(hips, L"posx", {10.0, 20.0});
    int start = 0;
    int end = 100;
    Util::findStartEnd(model, start, end);
    EXPECT_EQ(start, 0);
    EXPECT_EQ(end, 100);
    // The caller's empty range, as callers start it.
    start = 2147483647;
    end = -2147483647;
    Util::findStartEnd(model, start, end);
    EXPECT_EQ(start, 10);
    EXPECT_EQ(end, 20);
}

TEST_F(ShellTest, ExtractKeyIndicesGivesKeyTimesLessTheOffset) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::FCurve curve = AddCurve(model, L"posx", {10.0, 12.5, 30.0});
    ORV::CDoubleArray times;
    times.Add(99.0);
    EXPECT_TRUE(Util::extractKeyIndices(curve, 10, 0, times));
    ASSERT_EQ(times.GetCount(), 3);
    EXPECT_DOUBLE_EQ(times[0], 0.0);
    EXPECT_DOUBLE_EQ(times[1], 2.5);
    EXPECT_DOUBLE_EQ(times[2], 20.0);
}

TEST_F(ShellTest, ExtractNeutralPoseReadsTheNeutralParametersInTheirRotationOrder) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject node = AddNull(model, L"Node");
    ORV::KinematicState local = node.GetKinematics().GetLocal();
    local.PutParameterValue(L"nposx", 1.0);
    local.PutParameterValue(L"nposy", 2.0);
    local.PutParameterValue(L"nposz", 3.0);
    local.PutParameterValue(L"nrotx", 30.0);
    local.PutParameterValue(L"nroty", -45.0);
    local.PutParameterValue(L"nrotz", 60.0);
    local.PutParameterValue(L"nsclx", 2.0);
    local.PutParameterValue(L"nscly", 3.0);
    local.PutParameterValue(L"nsclz", 4.0);
    local.PutParameterValue(L"rotorder", static_cast<int>(ORV::MATH::ovZXY));

    ORV::MATH::CTransformation pose;
    Util::extractNeutralPose(node, pose);

    const double d = 3.141592653589793 / 180.0;
    ORV::MATH::CRotation expected(30.0 * d, -45.0 * d, 60.0 * d, ORV::MATH::ovZXY);
    ORV::MATH::CQuaternion q = pose.GetRotationQuaternion();
    ORV::MATH::CQuaternion e = expected.GetQuaternion();
    // Same rotation up to the quaternion's sign; 1e-12 covers the trigonometry.
    double dot = q.GetW() * e.GetW() + q.GetX() * e.GetX() + q.GetY() * e.GetY() + q.GetZ() * e.GetZ();
    EXPECT_NEAR(std::fabs(dot), 1.0, 1e-12);
    EXPECT_DOUBLE_EQ(pose.GetTranslation().GetX(), 1.0);
    EXPECT_DOUBLE_EQ(pose.GetTranslation().GetY(), 2.0);
    EXPECT_DOUBLE_EQ(pose.GetTranslation().GetZ(), 3.0);
    EXPECT_DOUBLE_EQ(pose.GetScaling().GetX(), 2.0);
    EXPECT_DOUBLE_EQ(pose.GetScaling().GetY(), 3.0);
    EXPECT_DOUBLE_EQ(pose.GetScaling().GetZ(), 4.0);
}

TEST_F(ShellTest, ForceGlobalEvaluationOnAllNodesWritesTheModelsOwnPoseBack) {
    ORV::Model model = AddModel(Root(), L"Rig");
    AddNull(model, L"Hips");
    ORV::MATH::CTransformation pose;
    pose.SetTranslationFromValues(1.0, -2.0, 3.5);
    pose.SetRotationFromXYZAnglesValues(0.1, 0.2, 0.3);
    ORV::KinematicState global = model.GetKinematics().GetGlobal();
    global.PutTransform(pose);
    std::uint64_t before = orvhost::TheHost().scene->revision;
    Util::ForceGlobalEvaluationOnAllNodes(model);
    EXPECT_GT(orvhost::TheHost().scene->revision, before);
    ORV::MATH::CTransformation after = global.GetTransform();
    EXPECT_NEAR(after.GetTranslation().GetX(), 1.0, 1e-12);
    EXPECT_NEAR(after.GetTranslation().GetY(), -2.0, 1e-12);
    EXPECT_NEAR(after.GetTranslation().GetZ(), 3.5, 1e-12);
    ORV::MATH::CVector3 angles = after.GetRotationXYZAngles();
    EXPECT_NEAR(angles.GetX(), 0.1, 1e-12);
    EXPECT_NEAR(angles.GetY(), 0.2, 1e-12);
    EXPECT_NEAR(angles.GetZ(), 0.3, 1e-12);
}

TEST_F(ShellTest, ForceGlobalEvaluationOnAllNodesReadsEveryObjectsGlobalPoseNowThenTheModels) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject hips = AddNull(model, L"Hips");
    AddNull(hips, L"Spine");
    AddNull(model, L"LeftLeg");
    ORV::Model outside = AddModel(Root(), L"Outside");
    AddNull(outside, L"Hips");
    orvhost::TransformReadRecorder recorder;
    Util::ForceGlobalEvaluationOnAllNodes(model);
    std::vector<std::wstring> states;
    for (const orvhost::TransformRead& read : recorder.Reads()) {
        states.push_back(read.state);
        EXPECT_EQ(read.time, DBL_MAX) << read.state;
    }
    EXPECT_EQ(states, (std::vector<std::wstring>{L"Rig.Hips.kine.global", L"Rig.Spine.kine.global",
                                                 L"Rig.LeftLeg.kine.global", L"Rig.kine.global"}));
}

// ---- Drawing helpers ------------------------------------------------------------------------

TEST_F(ShellTest, DrawLineBuildsAnOpenDegreeOneCurveOnKnotsZeroAndOne) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject line = Util::drawLine(model, ORV::MATH::CVector3(1.0, 2.0, 3.0),
                                         ORV::MATH::CVector3(-4.0, 5.0, -6.0), L"Link", 7);
    orvhost::NurbsCurveData curve;
    ASSERT_TRUE(orvhost::GetNurbsCurveData(line.GetRef(), curve));
    ASSERT_EQ(curve.points.size(), 2u);
    EXPECT_EQ(curve.points[0], ORV::MATH::CVector4(1.0, 2.0, 3.0, 1.0));
    EXPECT_EQ(curve.points[1], ORV::MATH::CVector4(-4.0, 5.0, -6.0, 1.0));
    EXPECT_EQ(curve.knots, (std::vector<double>{0.0, 1.0}));
    EXPECT_FALSE(curve.closed);
    EXPECT_EQ(curve.degree, 1);
    EXPECT_EQ(curve.parametrization, 1);

    // The line under the scene root is built the same way.
    ORV::X3DObject up =
        Util::drawLine(ORV::MATH::CVector3(0.0, 0.0, 0.0), ORV::MATH::CVector3(0.0, 1.0, 0.0), L"Up", 3);
    ASSERT_TRUE(orvhost::GetNurbsCurveData(up.GetRef(), curve));
    EXPECT_EQ(curve.knots, (std::vector<double>{0.0, 1.0}));
    EXPECT_FALSE(curve.closed);
    EXPECT_EQ(curve.degree, 1);
    EXPECT_EQ(curve.parametrization, 1);
}

TEST_F(ShellTest, DrawLineMakesATwoPointCurveWithItsWireColour) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject line = Util::drawLine(model, ORV::MATH::CVector3(1.0, 2.0, 3.0),
                                         ORV::MATH::CVector3(-4.0, 5.0, -6.0), L"Link", 7);
    ASSERT_TRUE(line.IsValid());
    EXPECT_EQ(line.GetType(), L"crvlist");
    EXPECT_EQ(line.GetName(), L"Link");
    EXPECT_EQ(ORV::X3DObject(line.GetParent()), model);
    ORV::MATH::CVector4Array points = line.GetActivePrimitive().GetControlPoints();
    ASSERT_EQ(points.GetCount(), 2);
    EXPECT_EQ(points[0], ORV::MATH::CVector4(1.0, 2.0, 3.0, 1.0));
    EXPECT_EQ(points[1], ORV::MATH::CVector4(-4.0, 5.0, -6.0, 1.0));
    ORV::Property display;
    ASSERT_TRUE(Util::findCustomPSet(line, L"Display", display));
    EXPECT_EQ(static_cast<int>(display.GetParameterValue(L"wirecol")), 7);
}

TEST_F(ShellTest, DrawLineWithoutAParentGoesUnderTheSceneRoot) {
    ORV::X3DObject line =
        Util::drawLine(ORV::MATH::CVector3(0.0, 0.0, 0.0), ORV::MATH::CVector3(0.0, 1.0, 0.0), L"Up", 3);
    ASSERT_TRUE(line.IsValid());
    EXPECT_EQ(ORV::X3DObject(line.GetParent()), Root());
}

TEST_F(ShellTest, MakeConnectionLineConnectsAScriptedOperatorAndCannotBePicked) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject first = AddNull(model, L"First");
    ORV::X3DObject second = AddNull(model, L"Second");
    ORV::X3DObject line = Util::makeConnectionLine(model, first, second, 9);
    ASSERT_TRUE(line.IsValid());
    EXPECT_EQ(line.GetType(), L"crvlist");
    EXPECT_EQ(ORV::X3DObject(line.GetParent()), model);
    ORV::MATH::CVector4Array points = line.GetActivePrimitive().GetControlPoints();
    ASSERT_EQ(points.GetCount(), 2);
    EXPECT_EQ(points[0], ORV::MATH::CVector4(1.0, 1.0, 1.0, 1.0));
    EXPECT_EQ(points[1], ORV::MATH::CVector4(0.0, 0.0, 0.0, 1.0));

    ORV::CValueArray args;
    args.Add(line.GetFullName() + L".visibility.selectability");
    ORV::CValue selectable;
    ORV::Application().ExecuteCommand(L"GetValue", args, selectable);
    EXPECT_EQ(selectable.GetType(), ORV::ovBool);
    EXPECT_FALSE(static_cast<bool>(selectable));

    // The operator that writes the line's curve.
    ORV::CustomOperator op;
    ASSERT_TRUE(Util::findCustomOp(line.GetActivePrimitive().GetFullName(), L"ConnectionLine", op));
    EXPECT_TRUE(op.IsConnected());
    EXPECT_EQ(op.GetLanguage(), L"JScript");
    const wchar_t* expectedCode =
        L"var pos1 = ORVMath.CreateVector3();\n"
        L"var pos2 = ORVMath.CreateVector3();\n"
        L"function ConnectionLine_Update(ctx, Out, InLineGlobal, InGlobal1, InGlobal2){ \n "
        L"var geom = Out.Value.Geometry; \n"
        L"var pArray = geom.points.positionarray.toArray(); \n"
        L"var t1 = InGlobal1.Value.Transform; \n"
        L"var t2 = InGlobal2.Value.Transform; \n"
        L"t1.GetTranslation(pos1); \n"
        L"t2.GetTranslation(pos2); \n"
        L"var ltrans = \tInLineGlobal.Value.Transform; \n"
        L"pos1 = ORVMath.MapWorldPositionToObjectSpace (ltrans, pos1); \n"
        L"pos2 = ORVMath.MapWorldPositionToObjectSpace (ltrans, pos2); \n"
        L"pArray[0] = pos1.x; \n"
        L"pArray[1] = pos1.y; \n"
        L"pArray[2] = pos1.z; \n"
        L"pArray[3] = pos2.x; \n"
        L"pArray[4] = pos2.y; \n"
        L"pArray[5] = pos2.z;\t \n"
        L"Out.Value.Geometry.Points.PositionArray = pArray; \n} \n";
    EXPECT_EQ(op.GetCode(), expectedCode);

    ORV::CRefArray groups = op.GetPortGroups();
    ASSERT_EQ(groups.GetCount(), 2);
    EXPECT_EQ(ORV::PortGroup(groups[0]).GetName(), L"MainGroup");
    EXPECT_EQ(ORV::PortGroup(groups[1]).GetName(), L"ObjectGroup");

    ORV::CRefArray outputs = op.GetOutputPorts();
    ASSERT_EQ(outputs.GetCount(), 1);
    EXPECT_EQ(ORV::Port(outputs[0]).GetName(), L"OutCurve");
    EXPECT_EQ(ORV::Port(outputs[0]).GetTarget(), line.GetActivePrimitive().GetRef());

    ORV::CRefArray inputs = op.GetInputPorts();
    ASSERT_EQ(inputs.GetCount(), 3);
    EXPECT_EQ(ORV::Port(inputs[0]).GetName(), L"InLineGlobal");
    EXPECT_EQ(ORV::Port(inputs[0]).GetTarget(), line.GetKinematics().GetGlobal().GetRef());
    EXPECT_EQ(ORV::Port(inputs[1]).GetName(), L"InGlobal1");
    EXPECT_EQ(ORV::Port(inputs[1]).GetTarget(), first.GetKinematics().GetGlobal().GetRef());
    EXPECT_EQ(ORV::Port(inputs[2]).GetName(), L"InGlobal2");
    EXPECT_EQ(ORV::Port(inputs[2]).GetTarget(), second.GetKinematics().GetGlobal().GetRef());

    // What the SDK handles do not show: construction mode, group bounds and the ports' groups.
    auto* record = static_cast<orvhost::OperatorItem*>(orvhost::TheStore().Resolve(op.GetRef()));
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(record->scripted);
    EXPECT_EQ(record->constructionMode, 4);
    ASSERT_EQ(record->groups.size(), 2u);
    for (const orvhost::PortGroupItem* group : record->groups) {
        EXPECT_EQ(group->minInstances, 1);
        EXPECT_EQ(group->maxInstances, 1);
        EXPECT_EQ(group->filter, L"");
        EXPECT_EQ(group->scriptFilter, L"");
        EXPECT_EQ(group->flags, 0);
    }
    ASSERT_EQ(record->ports.size(), 4u);
    const std::vector<std::pair<std::wstring, long>> portGroups = {
        {L"OutCurve", 0}, {L"InLineGlobal", 0}, {L"InGlobal1", 1}, {L"InGlobal2", 1}};
    for (std::size_t i = 0; i < portGroups.size(); ++i) {
        EXPECT_EQ(record->ports[i]->name, portGroups[i].first);
        EXPECT_EQ(record->ports[i]->group, portGroups[i].second) << portGroups[i].first;
    }
}

TEST_F(ShellTest, MakeConnectionLineIssuesOnlyTheSelectabilityCommand) {
    ORV::Model model = AddModel(Root(), L"Rig");
    ORV::X3DObject first = AddNull(model, L"First");
    ORV::X3DObject second = AddNull(model, L"Second");
    SetCommandLog(true);
    orvhost::ClearLog();
    ORV::X3DObject line = Util::makeConnectionLine(model, first, second, 9);
    ASSERT_TRUE(line.IsValid());
    EXPECT_EQ(Echoed(), (std::vector<std::wstring>{L"SetValue(\"" + line.GetFullName().std() +
                                                   L".visibility.selectability\", false)"}));
    ORV::Property display;
    ASSERT_TRUE(Util::findCustomPSet(line, L"Display", display));
    EXPECT_EQ(static_cast<int>(display.GetParameterValue(L"wirecol")), 9);
}

}  // namespace
