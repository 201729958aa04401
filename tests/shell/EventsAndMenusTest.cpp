// Scene events and menu items: the callbacks the host reaches by name outside of commands.
#include <string>
#include <utility>
#include <vector>

#include "HostUI.h"
#include "ShellTestSupport.h"
#include "panels/AdjustPPG.h"
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

// Scene events with panels open: the adjustment panel's model is process-wide, so every test
// that sets it puts it back.
class PanelsOpen : public ShellTest {
protected:
    void SetUp() override {
        ShellTest::SetUp();
        rig = AddModel(Root(), L"Rig");
        AddCustomProperty(rig, L"RetargetAdjustPPG");
    }
    void TearDown() override { ZUK::AdjustPPG::m_currentModel = L""; }

    static void OpenView(const wchar_t* name, const wchar_t* content) {
        ORV::View view;
        ORV::Application().GetDesktop().GetActiveLayout().CreateView(L"Property Panel", name, view);
        view.PutAttributeValue(L"targetcontent", content);
    }

    static std::vector<std::pair<std::wstring, int>> Lines() {
        std::vector<std::pair<std::wstring, int>> lines;
        for (const orvhost::LogEntry& entry : Log()) {
            lines.emplace_back(entry.text, entry.severity);
        }
        return lines;
    }

    ORV::Model rig;
};

TEST_F(PanelsOpen, SceneEventsCloseTheAdjustmentPanel) {
    for (const wchar_t* event : {L"MyNewScene_OnEvent", L"MyOpenScene_OnEvent"}) {
        ZUK::AdjustPPG::m_currentModel = L"Rig";
        orvhost::ClearLog();
        EXPECT_EQ(CallByName(event), ORV::CStatus::OK) << event;
        EXPECT_EQ(Lines(), (std::vector<std::pair<std::wstring, int>>{{L"closePanel is not built yet", 4}}))
            << event;
    }
}

TEST_F(PanelsOpen, SceneEventsRefreshTheMocapPanelThenCloseTheAdjustmentAndOffsetPanels) {
    const std::vector<std::pair<std::wstring, int>> steps = {
        {L"MocapToRigPPG is not built yet", 4},
        {L"closePanel is not built yet", 4},
    };
    for (const wchar_t* event : {L"MyNewScene_OnEvent", L"MyOpenScene_OnEvent"}) {
        OpenView(L"Mocap", L"Scene_Root.MocapToRig");
        OpenView(L"Offsets", L"Rig.Hips.RotationOffsetPPG");
        const long before = OpenViewCount();
        ZUK::AdjustPPG::m_currentModel = L"Rig";
        orvhost::ClearLog();
        EXPECT_EQ(CallByName(event), ORV::CStatus::OK) << event;
        EXPECT_EQ(Lines(), steps) << event;
        // The rotation offset panel is closed; the others stay.
        EXPECT_EQ(OpenViewCount(), before - 1) << event;
        ORV::CRefArray views = ORV::Application().GetDesktop().GetActiveLayout().GetViews();
        for (long i = 0; i < views.GetCount(); ++i)
            EXPECT_NE(ORV::View(views[i]).GetName(), ORV::CString(L"Offsets")) << event;
    }
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
