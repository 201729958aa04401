// Scene events and menu items: the callbacks the host reaches by name outside of commands.
#include <string>
#include <vector>

#include "HostUI.h"
#include "ShellTestSupport.h"
#include "shell/Events.h"

namespace {

using shelltest::ShellTest;

long OpenViewCount() { return ORV::Application().GetDesktop().GetActiveLayout().GetViews().GetCount(); }

// Fires a callback the way the host does: by name, with a fresh context.
ORV::CStatus CallByName(const wchar_t* name) {
    EXPECT_NE(orvhost::FindCallback(name), nullptr) << name;
    return orvhost::RunCallback(name, ORV::CRef());
}

TEST_F(ShellTest, MyNewSceneOnEventWithNoPanelsOpenOpensNothing) {
    ASSERT_EQ(OpenViewCount(), 0);
    orvhost::NewScene();
    EXPECT_EQ(OpenViewCount(), 0);
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(orvhost::Questions().empty());

    EXPECT_EQ(CallByName(L"MyNewScene_OnEvent"), ORV::CStatus::OK);
    EXPECT_EQ(OpenViewCount(), 0);
    EXPECT_TRUE(Log().empty());
}

TEST_F(ShellTest, MyOpenSceneOnEventWithNoPanelsOpenOpensNothing) {
    AddModel(Root(), L"Rig");
    EXPECT_EQ(CallByName(L"MyOpenScene_OnEvent"), ORV::CStatus::OK);
    EXPECT_EQ(OpenViewCount(), 0);
    EXPECT_TRUE(Log().empty());
}

TEST_F(ShellTest, SceneEventsLeaveUnrelatedViewsOpen) {
    ORV::View view;
    ORV::Application().GetDesktop().GetActiveLayout().CreateView(L"Property Panel", L"Other", view);
    view.PutAttributeValue(L"targetcontent", L"Rig.SomethingElse");
    EXPECT_EQ(CallByName(L"MyNewScene_OnEvent"), ORV::CStatus::OK);
    EXPECT_TRUE(view.IsValid());
    EXPECT_TRUE(Log().empty());
}

TEST_F(ShellTest, GooseEvaluatesOnlyModelsWithTheAdjustmentProperty) {
    ORV::Model plain = AddModel(Root(), L"Plain");
    AddNull(plain, L"Hips");
    std::uint64_t before = orvhost::TheHost().scene->revision;
    ZUK::GooseAnyRetargetedModels();
    EXPECT_EQ(orvhost::TheHost().scene->revision, before);

    ORV::Model retargeted = AddModel(Root(), L"Retargeted");
    AddCustomProperty(retargeted, L"RetargetAdjustPPG");
    ORV::MATH::CTransformation pose;
    pose.SetTranslationFromValues(0.5, 1.5, -2.5);
    retargeted.GetKinematics().GetGlobal().PutTransform(pose);
    before = orvhost::TheHost().scene->revision;
    ZUK::GooseAnyRetargetedModels();
    EXPECT_GT(orvhost::TheHost().scene->revision, before);
    // The same pose is written back.
    ORV::MATH::CVector3 t = retargeted.GetKinematics().GetGlobal().GetTransform().GetTranslation();
    EXPECT_NEAR(t.GetX(), 0.5, 1e-12);
    EXPECT_NEAR(t.GetY(), 1.5, 1e-12);
    EXPECT_NEAR(t.GetZ(), -2.5, 1e-12);
    EXPECT_TRUE(Log().empty());
}

TEST_F(ShellTest, MyOpenSceneOnEventEvaluatesRetargetedModelsAndMyNewSceneDoesNot) {
    ORV::Model retargeted = AddModel(Root(), L"Retargeted");
    AddCustomProperty(retargeted, L"RetargetAdjustPPG");
    std::uint64_t before = orvhost::TheHost().scene->revision;
    EXPECT_EQ(CallByName(L"MyNewScene_OnEvent"), ORV::CStatus::OK);
    EXPECT_EQ(orvhost::TheHost().scene->revision, before);
    EXPECT_EQ(CallByName(L"MyOpenScene_OnEvent"), ORV::CStatus::OK);
    EXPECT_GT(orvhost::TheHost().scene->revision, before);
    EXPECT_TRUE(Log().empty());
}

TEST_F(ShellTest, GooseEvaluatesNestedRetargetedModelsToo) {
    ORV::Model outer = AddModel(Root(), L"Outer");
    ORV::Model inner = AddModel(outer, L"Inner");
    AddCustomProperty(inner, L"RetargetAdjustPPG");
    // A null that carries the property is no model and is left alone.
    ORV::X3DObject null = AddNull(Root(), L"Loose");
    AddCustomProperty(null, L"RetargetAdjustPPG");
    std::uint64_t before = orvhost::TheHost().scene->revision;
    ZUK::GooseAnyRetargetedModels();
    EXPECT_GT(orvhost::TheHost().scene->revision, before);

    orvhost::ResetScene();
    ORV::X3DObject lone = AddNull(Root(), L"Loose");
    AddCustomProperty(lone, L"RetargetAdjustPPG");
    before = orvhost::TheHost().scene->revision;
    ZUK::GooseAnyRetargetedModels();
    EXPECT_EQ(orvhost::TheHost().scene->revision, before);
}

TEST_F(ShellTest, MenuItemsAlwaysAnswerOK) {
    const std::vector<std::pair<const wchar_t*, const wchar_t*>> items = {
        {L"Tag Rig", L"Tag Rig"},
        {L"Rig to Rig", L"Rig to Rig"},
        {L"Mocap to Rig", L"Mocap to Rig"},
        {L"SaveTrovoFileMenu", L"Save Motion"},
        {L"LoadTrovoFileMenu", L"Load Motion"},
    };
    for (const auto& item : items) {
        EXPECT_EQ(orvhost::ClickMenuItem(item.first, item.second), ORV::CStatus::OK) << item.second;
    }
}

}  // namespace
