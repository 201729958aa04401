// Scene events and menu items: the callbacks the host reaches by name outside of commands.
#include <string>
#include <vector>

#include "ShellTestSupport.h"
#include "shell/Events.h"

namespace {

using shelltest::ShellTest;

long OpenViewCount() {
    return ORV::Application().GetDesktop().GetActiveLayout().GetViews().GetCount();
}

ORV::CStatus CallByName(const wchar_t* name) {
    ORVCallbackFn callback = orvhost::FindCallback(name);
    EXPECT_NE(callback, nullptr) << name;
    if (callback == nullptr) {
        return ORV::CStatus::Fail;
    }
    ORV::CRef context;
    return callback(context);
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

TEST_F(ShellTest, MenuItemCallbacksAlwaysAnswerOK) {
    for (const wchar_t* name : {L"TagMenuItem", L"RigToRigMenuItem", L"MocapToRigMenuItem", L"SaveTrovoFileMenuItem",
                                L"LoadTrovoFileMenuItem"}) {
        EXPECT_EQ(CallByName(name), ORV::CStatus::OK) << name;
    }
}

}  // namespace
