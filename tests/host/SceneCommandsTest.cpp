// The host's built-in scene commands, each through Application::ExecuteCommand.
#include <cstdio>
#include <fstream>

#include "HostFixture.h"

using namespace ORV;
using hosttest::HostFixture;

namespace {

// Rig (a model) holds Hips at x 5 with Spine below it at x 1, and Leg; a custom property
// "Props" with "Speed" and "Name".
class SceneCommands : public HostFixture {
protected:
    void SetUp() override {
        HostFixture::SetUp();
        rig = addModel(L"Rig");
        hips = addNull(rig, L"Hips");
        spine = addNull(hips, L"Spine");
        leg = addNull(rig, L"Leg");
        hips.GetKinematics().GetLocal().PutParameterValue(L"posx", CValue(5.0));
        spine.GetKinematics().GetLocal().PutParameterValue(L"posx", CValue(1.0));
        ASSERT_EQ(rig.AddCustomProperty(L"Props", false, props), CStatus::OK);
        Parameter p;
        props.AddParameter(L"Speed", ovDouble, ovAnimatable, L"Speed", L"", CValue(1.0), p);
        props.AddParameter(L"Name", ovString, ovPersistable, L"Name", L"", CValue(L"walk"), p);
        orvhost::ClearLog();
    }

    std::vector<CRef> selection() {
        std::vector<CRef> out;
        Selection sel = app.GetSelection();
        for (long i = 0; i < sel.GetCount(); ++i) out.push_back(sel[i]);
        return out;
    }

    CStatus exec(const wchar_t* name, std::initializer_list<CValue> args) {
        result = CValue();
        return run(name, Args(args), result);
    }

    Model rig;
    Null hips, spine, leg;
    CustomProperty props;
    CValue result;
};

double GlobalX(const X3DObject& o) { return o.GetKinematics().GetGlobal().GetTransform().GetTranslation().x; }

}  // namespace

// --- SelectObj, DeselectAll, FrameAll

TEST_F(SceneCommands, SelectObjBranchSelectsObjectAndItsHierarchy) {
    EXPECT_EQ(exec(L"SelectObj", {CValue(rig.GetRef()), CValue(L"BRANCH")}), CStatus::OK);
    EXPECT_EQ(selection(), (std::vector<CRef>{rig.GetRef(), hips.GetRef(), spine.GetRef(), leg.GetRef()}));
}

TEST_F(SceneCommands, SelectObjByNameWithoutLevelSelectsObjectOnly) {
    EXPECT_EQ(exec(L"SelectObj", {CValue(L"Rig.Hips")}), CStatus::OK);
    EXPECT_EQ(selection(), std::vector<CRef>{hips.GetRef()});
}

TEST_F(SceneCommands, SelectObjReplacesSelection) {
    exec(L"SelectObj", {CValue(L"Rig.Hips")});
    exec(L"SelectObj", {CValue(L"Rig.Leg")});
    EXPECT_EQ(selection(), std::vector<CRef>{leg.GetRef()});
}

TEST_F(SceneCommands, SelectObjTakesCommaSeparatedNames) {
    EXPECT_EQ(exec(L"SelectObj", {CValue(L"Rig.Spine, Rig.Leg")}), CStatus::OK);
    EXPECT_EQ(selection(), (std::vector<CRef>{spine.GetRef(), leg.GetRef()}));
}

TEST_F(SceneCommands, SelectObjModelLevelSelectsWholeModel) {
    exec(L"SelectObj", {CValue(L"Rig.Spine"), CValue(L"MODEL")});
    EXPECT_EQ(selection(), (std::vector<CRef>{rig.GetRef(), hips.GetRef(), spine.GetRef(), leg.GetRef()}));
}

TEST_F(SceneCommands, SelectObjUnknownNameLeavesSelectionAndReports) {
    exec(L"SelectObj", {CValue(L"Rig.Leg")});
    orvhost::ClearLog();
    EXPECT_EQ(exec(L"SelectObj", {CValue(L"Rig.Leg,Nobody")}), CStatus::InvalidArgument);
    EXPECT_EQ(selection(), std::vector<CRef>{leg.GetRef()});
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"SelectObj: nothing is named \"Nobody\"."});
}

TEST_F(SceneCommands, SelectObjUnknownLevelIsRefused) {
    EXPECT_EQ(exec(L"SelectObj", {CValue(L"Rig"), CValue(L"TWIG")}), CStatus::InvalidArgument);
    EXPECT_EQ(Logged(ovError),
              std::vector<std::wstring>{
                  L"SelectObj: unknown selection level \"TWIG\"; use NODE, BRANCH or MODEL."});
    EXPECT_TRUE(selection().empty());
}

TEST_F(SceneCommands, DeselectAllEmptiesSelection) {
    exec(L"SelectObj", {CValue(L"Rig"), CValue(L"BRANCH")});
    ASSERT_FALSE(selection().empty());
    EXPECT_EQ(exec(L"DeselectAll", {}), CStatus::OK);
    EXPECT_TRUE(selection().empty());
}

TEST_F(SceneCommands, FrameAllFramesEveryObject) {
    const long before = orvhost::LastFrame().count;
    EXPECT_EQ(exec(L"FrameAll", {}), CStatus::OK);
    EXPECT_EQ(exec(L"FrameAll", {CValue(0)}), CStatus::OK);
    EXPECT_EQ(orvhost::LastFrame().count, before + 2);
    EXPECT_EQ(orvhost::LastFrame().objects,
              (std::vector<CRef>{rig.GetRef(), hips.GetRef(), spine.GetRef(), leg.GetRef()}));
}

TEST_F(SceneCommands, FrameAllRefusesAViewThatIsNoNumber) {
    const long before = orvhost::LastFrame().count;
    EXPECT_EQ(exec(L"FrameAll", {CValue(L"left")}), CStatus::InvalidArgument);
    EXPECT_EQ(orvhost::LastFrame().count, before);
    EXPECT_EQ(Logged(ovError),
              std::vector<std::wstring>{L"FrameAll: the view must be a number, not \"left\"."});
}

// --- DeleteObj

TEST_F(SceneCommands, DeleteObjByNameKeepsChildrenWhereTheyAre) {
    EXPECT_EQ(exec(L"DeleteObj", {CValue(L"Rig.Hips")}), CStatus::OK);
    EXPECT_FALSE(hips.IsValid());
    ASSERT_TRUE(spine.IsValid());
    EXPECT_EQ(spine.GetParent(), rig.GetRef());
    EXPECT_NEAR(GlobalX(spine), 6.0, 1e-9);
}

TEST_F(SceneCommands, DeleteObjBranchPrefixDeletesWholeBranch) {
    EXPECT_EQ(exec(L"DeleteObj", {CValue(L"B:Rig.Hips")}), CStatus::OK);
    EXPECT_FALSE(hips.IsValid());
    EXPECT_FALSE(spine.IsValid());
    EXPECT_TRUE(leg.IsValid());
}

TEST_F(SceneCommands, DeleteObjByReference) {
    EXPECT_EQ(exec(L"DeleteObj", {CValue(leg.GetRef())}), CStatus::OK);
    EXPECT_FALSE(leg.IsValid());
    EXPECT_TRUE(hips.IsValid());
}

TEST_F(SceneCommands, DeleteObjModelTakesItsContents) {
    EXPECT_EQ(exec(L"DeleteObj", {CValue(L"Rig")}), CStatus::OK);
    EXPECT_FALSE(rig.IsValid());
    EXPECT_FALSE(hips.IsValid());
    EXPECT_FALSE(props.IsValid());
}

TEST_F(SceneCommands, DeleteObjDeletesPropertyByPath) {
    EXPECT_EQ(exec(L"DeleteObj", {CValue(L"Rig.Props")}), CStatus::OK);
    EXPECT_FALSE(props.IsValid());
    EXPECT_TRUE(rig.IsValid());
}

TEST_F(SceneCommands, DeleteObjRefusesSceneRoot) {
    EXPECT_EQ(exec(L"DeleteObj", {CValue(L"Scene_Root")}), CStatus::InvalidArgument);
    EXPECT_TRUE(root().IsValid());
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"DeleteObj: \"Scene_Root\" cannot be deleted."});
}

TEST_F(SceneCommands, DeleteObjUnknownNameDeletesNothing) {
    EXPECT_EQ(exec(L"DeleteObj", {CValue(L"Rig.Leg,Nobody")}), CStatus::InvalidArgument);
    EXPECT_TRUE(leg.IsValid());
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"DeleteObj: nothing is named \"Nobody\"."});
}

TEST_F(SceneCommands, DeleteObjWithoutObjectIsRefused) {
    EXPECT_EQ(exec(L"DeleteObj", {CValue(L" , ")}), CStatus::InvalidArgument);
    EXPECT_EQ(exec(L"DeleteObj", {}), CStatus::InvalidArgument);
    EXPECT_EQ(Logged(ovError), (std::vector<std::wstring>{L"DeleteObj: no object was given.",
                                                          L"DeleteObj: no object was given."}));
}

// --- EnumElements

TEST_F(SceneCommands, EnumElementsListsOwnedItemsInOrder) {
    EXPECT_EQ(exec(L"EnumElements", {CValue(L"Rig.Props")}), CStatus::OK);
    const CValueArray& elements = result;
    ASSERT_EQ(elements.GetCount(), 2);
    EXPECT_EQ(static_cast<CRef>(elements[0]), props.GetParameter(L"Speed").GetRef());
    EXPECT_EQ(static_cast<CRef>(elements[1]), props.GetParameter(L"Name").GetRef());
}

TEST_F(SceneCommands, EnumElementsListsOperatorsOfAKinematicState) {
    // Operators belong to the item they write; a stand-in operator owned by the global state.
    auto* state = orvhost::TheStore().Resolve(hips.GetKinematics().GetGlobal().GetRef());
    ASSERT_NE(state, nullptr);
    orvhost::Item* op = state->Own(std::make_unique<orvhost::Item>(ovCustomOperatorID, L"RetargetGlobalOp"));
    EXPECT_EQ(exec(L"EnumElements", {CValue(L"Rig.Hips.kine.global")}), CStatus::OK);
    const CValueArray& elements = result;
    bool found = false;
    for (long i = 0; i < elements.GetCount(); ++i)
        if (static_cast<CRef>(elements[i]) == op->Ref())
            found = static_cast<CRef>(elements[i]).IsA(ovCustomOperatorID);
    EXPECT_TRUE(found);
}

TEST_F(SceneCommands, EnumElementsUnknownPathIsRefused) {
    EXPECT_EQ(exec(L"EnumElements", {CValue(L"Rig.Nothing")}), CStatus::InvalidArgument);
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"EnumElements: nothing is named \"Rig.Nothing\"."});
}

// --- GetValue, SetValue

TEST_F(SceneCommands, GetValueReadsParametersByPath) {
    EXPECT_EQ(exec(L"GetValue", {CValue(L"PlayControl.Current")}), CStatus::OK);
    EXPECT_EQ(result, CValue(1.0));
    EXPECT_EQ(exec(L"GetValue", {CValue(L"Rig.Hips.kine.local.posx")}), CStatus::OK);
    EXPECT_EQ(result, CValue(5.0));
    EXPECT_EQ(exec(L"GetValue", {CValue(L"Rig.Props.Name")}), CStatus::OK);
    EXPECT_EQ(result, CValue(L"walk"));
    EXPECT_EQ(exec(L"GetValue", {CValue(props.GetParameter(L"Speed").GetRef())}), CStatus::OK);
    EXPECT_EQ(result, CValue(1.0));
}

TEST_F(SceneCommands, GetValueReadsCommandLogPreference) {
    EXPECT_EQ(exec(L"GetValue", {CValue(L"preferences.scripting.cmdlog")}), CStatus::OK);
    EXPECT_EQ(result.GetType(), ovBool);
    EXPECT_EQ(result, CValue(true));
}

TEST_F(SceneCommands, GetValueOfAnObjectAnswersTheObject) {
    EXPECT_EQ(exec(L"GetValue", {CValue(L"Rig.Hips")}), CStatus::OK);
    EXPECT_EQ(static_cast<CRef>(result), hips.GetRef());
}

TEST_F(SceneCommands, GetValueUnknownPathIsRefused) {
    EXPECT_EQ(exec(L"GetValue", {CValue(L"Rig.Props.Nope")}), CStatus::InvalidArgument);
    EXPECT_TRUE(result.IsEmpty());
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"GetValue: nothing is named \"Rig.Props.Nope\"."});
}

TEST_F(SceneCommands, SetValueWritesParameterByPath) {
    EXPECT_EQ(exec(L"SetValue", {CValue(L"Rig.Props.Speed"), CValue(2.5)}), CStatus::OK);
    EXPECT_EQ(props.GetParameterValue(L"Speed"), CValue(2.5));
    EXPECT_EQ(exec(L"SetValue", {CValue(L"PlayControl.Current"), CValue(12)}), CStatus::OK);
    EXPECT_EQ(orvhost::CurrentFrame(), 12.0);
}

TEST_F(SceneCommands, SetValueConvertsToTheParameterType) {
    EXPECT_EQ(exec(L"SetValue", {CValue(L"preferences.scripting.cmdlog"), CValue(L"false")}), CStatus::OK);
    EXPECT_FALSE(orvhost::CommandLogOn());
    EXPECT_EQ(exec(L"SetValue", {CValue(L"Rig.Props.Name"), CValue(7)}), CStatus::OK);
    EXPECT_EQ(props.GetParameterValue(L"Name"), CValue(L"7"));
}

TEST_F(SceneCommands, SetValueWritesEachOfAList) {
    EXPECT_EQ(exec(L"SetValue", {CValue(L"Rig.Hips.kine.local.posy,Rig.Leg.kine.local.posy"), CValue(3.0)}),
              CStatus::OK);
    EXPECT_EQ(hips.GetKinematics().GetLocal().GetParameterValue(L"posy"), CValue(3.0));
    EXPECT_EQ(leg.GetKinematics().GetLocal().GetParameterValue(L"posy"), CValue(3.0));
}

TEST_F(SceneCommands, SetValueMakesLineUnpickable) {
    EXPECT_EQ(exec(L"SetValue", {CValue(L"Rig.Leg.visibility.selectability"), CValue(false)}), CStatus::OK);
    EXPECT_EQ(exec(L"GetValue", {CValue(L"Rig.Leg.visibility.selectability")}), CStatus::OK);
    EXPECT_EQ(result, CValue(false));
}

TEST_F(SceneCommands, SetValueOnNonParameterIsRefused) {
    EXPECT_EQ(exec(L"SetValue", {CValue(L"Rig.Hips"), CValue(1)}), CStatus::InvalidArgument);
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"SetValue: \"Rig.Hips\" is not a parameter."});
}

TEST_F(SceneCommands, SetValueUnknownPathIsRefused) {
    EXPECT_EQ(exec(L"SetValue", {CValue(L"Rig.Props.Nope"), CValue(1)}), CStatus::InvalidArgument);
    EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{L"SetValue: nothing is named \"Rig.Props.Nope\"."});
}

// --- PickObject

TEST_F(SceneCommands, PickObjectAnswerPicksWithLeftButton) {
    orvhost::QueueAnswer(CValue(L"Rig.Hips"));
    EXPECT_EQ(exec(L"PickObject", {CValue(L"Select Control Node"), CValue(L"Select Extraction Node")}),
              CStatus::OK);
    const CValueArray& out = result;
    ASSERT_EQ(out.GetCount(), 3);
    EXPECT_EQ(out[0], CValue(1));
    EXPECT_EQ(static_cast<CRef>(out[2]), hips.GetRef());
    EXPECT_EQ(orvhost::Questions(),
              std::vector<std::wstring>{L"PickObject: Select Control Node / Select Extraction Node"});
    EXPECT_EQ(orvhost::PendingAnswers(), 0u);
}

TEST_F(SceneCommands, PickObjectArrayAnswerNamesTheButton) {
    CValueArray answer = Args({CValue(2), CValue(leg.GetRef())});
    orvhost::QueueAnswer(CValue(answer));
    exec(L"PickObject", {CValue(L"Select Control Node"), CValue(L"Select Extraction Node")});
    const CValueArray& out = result;
    EXPECT_EQ(out[0], CValue(2));
    EXPECT_EQ(static_cast<CRef>(out[2]), leg.GetRef());
}

TEST_F(SceneCommands, PickObjectGivesItsResultInTheOutputArguments) {
    orvhost::QueueAnswer(CValue(L"Rig.Hips"));
    CValueArray args = Args({CValue(L"Pick the hips"), CValue(L"Cancel"), CValue(), CValue(), CValue()});
    CValue out;
    ASSERT_EQ(app.ExecuteCommand(L"PickObject", args, out), CStatus::OK);
    EXPECT_EQ(static_cast<CRef>(args[2]), hips.GetRef());
    EXPECT_EQ(args[3], CValue(1));
    EXPECT_EQ(args[4], CValue(0));
    // Cancelled: no element, button 0.
    args = Args({CValue(L"Pick again"), CValue(L""), CValue(L"stale"), CValue(9), CValue(9)});
    ASSERT_EQ(app.ExecuteCommand(L"PickObject", args, out), CStatus::OK);
    EXPECT_TRUE(args[2].IsEmpty());
    EXPECT_EQ(args[3], CValue(0));
    EXPECT_EQ(args[4], CValue(0));
}

TEST_F(SceneCommands, PickObjectWithoutAnswerIsCancelled) {
    exec(L"PickObject", {CValue(L"Select Target Rig"), CValue(L"Select Target Rig")});
    const CValueArray& out = result;
    ASSERT_EQ(out.GetCount(), 3);
    EXPECT_EQ(out[0], CValue(0));
    EXPECT_TRUE(out[2].IsEmpty());
}

TEST_F(SceneCommands, PickObjectOfUnknownObjectIsCancelledWithWarning) {
    orvhost::QueueAnswer(CValue(L"Nobody"));
    exec(L"PickObject", {CValue(L"Select Target Rig")});
    const CValueArray& out = result;
    EXPECT_EQ(out[0], CValue(0));
    EXPECT_EQ(Logged(ovWarning),
              std::vector<std::wstring>{
                  L"PickObject: the scripted answer \"Nobody\" names no object; the pick is cancelled."});
    EXPECT_EQ(orvhost::Questions(), std::vector<std::wstring>{L"PickObject: Select Target Rig"});
}

// --- ShowFileForEdit

TEST_F(SceneCommands, ShowFileForEditShowsReadableFile) {
    const std::string path = ::testing::TempDir() + "trovo_show.structure";
    std::ofstream(path) << "Base biped.base\n";
    const std::wstring wpath = CString(path.c_str()).GetWideString();
    EXPECT_EQ(exec(L"ShowFileForEdit", {CValue(wpath)}), CStatus::OK);
    EXPECT_EQ(orvhost::Questions(), std::vector<std::wstring>{L"ShowFileForEdit: " + wpath});
    std::remove(path.c_str());
}

TEST_F(SceneCommands, ShowFileForEditRefusesMissingFile) {
    EXPECT_EQ(exec(L"ShowFileForEdit", {CValue(L"/nonexistent/a.structure")}), CStatus::InvalidArgument);
    EXPECT_TRUE(orvhost::Questions().empty());
    EXPECT_EQ(
        Logged(ovError),
        std::vector<std::wstring>{L"ShowFileForEdit: the file \"/nonexistent/a.structure\" cannot be read."});
}
