// The two retarget drivers on every way they can fail: each failure in its own words and
// severity, the scene left as it was, and the host's command log as the caller had it. The
// capture driver's steps are driven to fail one after the other with bad files and rigs that
// are set up only so far.
#include <memory>
#include <string>

#include "E2ESupport.h"
#include "character/ModelStructure.h"
#include "character/StructureTestSupport.h"
#include "glue/GlueMap.h"
#include "modelmap/ModelMap.h"
#include "shell/Retarget.h"
#include "shell/Util.h"
#include "support/BvhRigBuilder.h"

namespace {

using e2e::Lines;
using ZUK::ModelMap;
using ZUK::ModelStructure;

const std::string kWalk = e2e::TestData("bvh/cmu_mb2010/02_01.bvh");
const std::string kTemplate = e2e::FactoryTemplate("cmu_mb2010.tagt");

ORV::CString C(const std::string& s) { return ORV::CString(s.c_str()); }

bool HasProperty(const ORV::X3DObject& object, const wchar_t* name) {
    ORV::Property p;
    return ZUK::Util::findCustomPSet(object, name, p);
}

// The log lines meant for the user, at severity 4 and more severe.
Lines Said(const Lines& all = e2e::LogLines()) {
    Lines said;
    for (const auto& line : all)
        if (line.second <= 4) said.push_back(line);
    return said;
}

// The host's echo lines of a log (severity 16).
std::vector<std::wstring> Echoes(const Lines& all) {
    std::vector<std::wstring> echoes;
    for (const auto& line : all)
        if (line.second == 16) echoes.push_back(line.first);
    return echoes;
}

// The echo of switching the command log off from on.
std::vector<std::wstring> SwitchedOff() {
    return {L"GetValue(\"preferences.scripting.cmdlog\")",
            L"SetValue(\"preferences.scripting.cmdlog\", false)"};
}

// How far a target has been set up: nothing, the structure, the structure and the measured map,
// or all of that and the glue.
enum class Ready { None, Structure, Map, Glue };

class Drivers : public ::testing::Test {
protected:
    void SetUp() override {
        structtest::UseLocations(scratch.path, TROVO_FACTORY_DATA);
        orvhost::NewScene();
        orvhost::ClearAnswers();
        ASSERT_TRUE(bvhrig::ReadBvh(kWalk, skel));
    }
    void TearDown() override {
        e2e::SetCommandLog(true);
        orvhost::NewScene();
    }

    // A rig of the capture's skeleton under the scene root, set up as far as `how` says.
    ORV::Model Rig(const wchar_t* name, Ready how) {
        bvhrig::RigOptions options;
        bvhrig::BipedLimbs(tagging, options);
        bvhrig::BvhRig rig =
            bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, name, options);
        EXPECT_TRUE(rig.model.IsValid());
        if (how == Ready::None) return rig.model;
        std::unique_ptr<ModelStructure> structure(ModelStructure::CreateFromFile(L"biped"));
        EXPECT_TRUE(structure && bvhrig::TagRigByProperties(rig.model, *structure, tagging));
        ModelMap map(rig.model, structure.get());
        map.createMap();
        if (how != Ready::Structure) map.SaveToCustomProperty();
        structure->SaveToCustomProperty(rig.model);
        if (how == Ready::Glue) {
            std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::createFromModelMap(rig.model, &map));
            EXPECT_TRUE(glue);
            if (glue) glue->SaveToCustomProperty(rig.model);
        }
        return rig.model;
    }

    // Runs the capture driver with the command log at `before`; its log, and whether the command
    // log came back as it was.
    bool LoadBVH(const std::string& bvh, const std::string& map, ORV::Model target, bool before, Lines& log) {
        e2e::SetCommandLog(before);
        orvhost::ClearLog();
        const bool ok = ZUK::Retarget::LoadBVHOnToModel(C(bvh), C(map), target);
        log = e2e::LogLines();
        EXPECT_EQ(e2e::CommandLogIsOn(), before) << "the command log was left switched";
        e2e::SetCommandLog(false);
        return ok;
    }

    // The capture driver fails with `expected` as its whole log, with the command log either way.
    void ExpectFailure(const std::string& bvh, const std::string& map, ORV::Model target,
                       const Lines& expected) {
        for (bool before : {false, true}) {
            Lines log;
            EXPECT_FALSE(LoadBVH(bvh, map, target, before, log));
            // The words for the user: the notes of the readers it calls (severity 8) and the host's
            // echo of the driver switching the command log (16) are not part of them.
            EXPECT_EQ(Said(log), expected) << "command log " << before;
            // With the log on, the host echoes the commands it runs: the driver's reading and
            // switching of the log, and nothing after it.
            if (before) {
                EXPECT_EQ(Echoes(log), SwitchedOff());
            }
        }
        EXPECT_FALSE(HasProperty(target, L"ZUKRetargetOp"));
        EXPECT_FALSE(HasProperty(target, L"RetargetAdjustPPG"));
    }

    structtest::SavedLocations saved;
    e2e::ScratchDir scratch;
    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
};

// ---- Before the command log ------------------------------------------------------------------

TEST_F(Drivers, AMapFileThatCannotBeReadStopsBeforeTheCommandLogIsTouched) {
    ORV::Model rig = Rig(L"Rig", Ready::Glue);
    Lines log;
    // With the command log on, any switching of it would show as the host's echo of the command.
    EXPECT_FALSE(LoadBVH(kWalk, scratch.File("absent.map"), rig, true, log));
    EXPECT_EQ(log, (Lines{{L"Could not read mapfile.", 4}}));
}

TEST_F(Drivers, AMapFileNotATemplateStartingWithAnotherWordStopsBeforeTheCommandLogIsTouched) {
    ORV::Model rig = Rig(L"Rig", Ready::Glue);
    // A template's text under another suffix: its first word is the structure type, not "BVH".
    scratch.Write("walk.map", e2e::ReadText(kTemplate));
    Lines log;
    EXPECT_FALSE(LoadBVH(kWalk, scratch.File("walk.map"), rig, true, log));
    EXPECT_EQ(log,
              (Lines{{L"To retarget a BVH file the mapfile must be built from the corresponding BVH ref pose",
                      4}}));
}

// ---- After the command log is off -------------------------------------------------------------

TEST_F(Drivers, AMapFileThatDoesNotParseIsReportedByTheTagMapAlone) {
    ORV::Model rig = Rig(L"Rig", Ready::Glue);
    scratch.Write("walk.map", "BVH\nMapFile1.0 biped 1\ncog { Hips; 0 1 0 0 0 1 }\n");
    ExpectFailure(kWalk, scratch.File("walk.map"), rig, Lines{{L"Could not parse the map file", 4}});
}

TEST_F(Drivers, ABvhFileThatDoesNotLoadIsReported) {
    ORV::Model rig = Rig(L"Rig", Ready::Glue);
    scratch.Write("broken.bvh", "HIERARCHY\nROOT Hips\n{\n  OFFSET 0 0\n");
    ExpectFailure(scratch.File("broken.bvh"), kTemplate, rig, Lines{{L"Failed to load the BVH file.", 4}});
}

TEST_F(Drivers, AMapFileNamingAStructureThatDoesNotExistIsReported) {
    ORV::Model rig = Rig(L"Rig", Ready::Glue);
    scratch.Write("walk.map", "BVH\nMapFile2.0 nosuchbody 1\ncog { Hips; 0 1 0 0 0 1 }\n");
    // The structure reader names the file it could not find, then the driver says what failed.
    ExpectFailure(
        kWalk, scratch.File("walk.map"), rig,
        Lines{{L"cannot find structure file: nosuchbody", 4}, {L"Failed to create the structure.", 4}});
}

TEST_F(Drivers, ATargetWithoutAStructureIsReported) {
    ORV::Model rig = Rig(L"Rig", Ready::None);
    ExpectFailure(kWalk, kTemplate, rig,
                  Lines{{L"Failed to create the model map. Possible missing ZUKStructure.", 4}});
}

TEST_F(Drivers, ATargetWithAStructureButNoMapIsNotSetUp) {
    ORV::Model rig = Rig(L"Rig", Ready::Structure);
    ExpectFailure(kWalk, kTemplate, rig, Lines{{L"Destination model is not setup for retargetting.", 4}});
}

TEST_F(Drivers, ATargetWhoseGlueIsMissingIsNotSetUp) {
    ORV::Model rig = Rig(L"Rig", Ready::Map);
    ExpectFailure(kWalk, kTemplate, rig, Lines{{L"Destination model is not setup for retargetting.", 4}});
}

// ---- Rig to rig -------------------------------------------------------------------------------

TEST_F(Drivers, RigToRigOnASourceWithoutAMapAlertsAboutTheSourceAndNeverLooksAtTheTarget) {
    ORV::Model source = Rig(L"Source", Ready::None);
    ORV::Model target = Rig(L"Target", Ready::Glue);
    e2e::SetCommandLog(false);
    orvhost::ClearLog();
    orvhost::TransformReadRecorder reads;
    EXPECT_FALSE(ZUK::Retarget::ModelToModel(source, target, 1, 10));
    EXPECT_EQ(Said(), (Lines{{L"Failed to read model map from source model.", 4}}));
    ASSERT_EQ(orvhost::MessageBoxes().size(), 1u);
    EXPECT_EQ(orvhost::MessageBoxes()[0].text, L"Failed to read model map from source model.");
    EXPECT_EQ(orvhost::MessageBoxes()[0].caption, L"ZUKRetarget");
    for (const orvhost::TransformRead& read : reads.Reads())
        EXPECT_NE(read.state.rfind(L"Target", 0), 0u) << ORV::CString(read.state.c_str()).GetAsciiString();
    EXPECT_FALSE(HasProperty(target, L"ZUKRetargetOp"));
}

TEST_F(Drivers, RigToRigOntoATargetWithoutAMapAlertsAboutTheTarget) {
    ORV::Model source = Rig(L"Source", Ready::Glue);
    ORV::Model target = Rig(L"Target", Ready::Structure);
    e2e::SetCommandLog(false);
    orvhost::ClearLog();
    EXPECT_FALSE(ZUK::Retarget::ModelToModel(source, target, 1, 10));
    EXPECT_EQ(Said(), (Lines{{L"Failed to read model map from target model.", 4}}));
    ASSERT_EQ(orvhost::MessageBoxes().size(), 1u);
    EXPECT_EQ(orvhost::MessageBoxes()[0].text, L"Failed to read model map from target model.");
    EXPECT_FALSE(HasProperty(target, L"ZUKRetargetOp"));
}

TEST_F(Drivers, RigToRigOntoATargetWithoutGlueAlertsThatItIsNotSetUp) {
    ORV::Model source = Rig(L"Source", Ready::Glue);
    ORV::Model target = Rig(L"Target", Ready::Map);
    e2e::SetCommandLog(false);
    orvhost::ClearLog();
    EXPECT_FALSE(ZUK::Retarget::ModelToModel(source, target, 1, 10));
    EXPECT_EQ(Said(), (Lines{{L"Destination model is not setup for retargetting.", 4}}));
    EXPECT_FALSE(HasProperty(target, L"ZUKRetargetOp"));
}

}  // namespace
