// What a script user of `trovo exec` sees when "Retarget" or "RetargetBVH" cannot do its job:
// each of the drivers' messages with its severity on stderr, and false on stdout. The scenes
// are made here and saved; `trovo` opens them in its own process.
#include <memory>
#include <sstream>
#include <string>

#include "E2ESupport.h"
#include "character/ModelStructure.h"
#include "character/StructureTestSupport.h"
#include "glue/GlueMap.h"
#include "modelmap/ModelMap.h"
#include "support/BvhRigBuilder.h"

namespace {

using ZUK::ModelMap;
using ZUK::ModelStructure;

const std::string kWalk = e2e::TestData("bvh/cmu_mb2010/02_01.bvh");
const std::string kTemplate = e2e::FactoryTemplate("cmu_mb2010.tagt");

// The warnings and errors of a run, whole lines in order; notes and dialogs are left out.
std::string Warnings(const std::string& err) {
    std::istringstream in(err);
    std::string line, kept;
    while (std::getline(in, line))
        if (line.rfind("WARNING: ", 0) == 0 || line.rfind("ERROR: ", 0) == 0) kept += line + "\n";
    return kept;
}

// The dialogs of a run, whole lines in order.
std::string Dialogs(const std::string& err) {
    std::istringstream in(err);
    std::string line, kept;
    while (std::getline(in, line))
        if (line.rfind("? ", 0) == 0) kept += line + "\n";
    return kept;
}

class RetargetMessages : public ::testing::Test {
protected:
    void SetUp() override {
        structtest::UseLocations(scratch.path, TROVO_FACTORY_DATA);
        orvhost::NewScene();
        ASSERT_TRUE(bvhrig::ReadBvh(kWalk, skel));
    }
    void TearDown() override { orvhost::NewScene(); }

    // A rig "name" of the capture's skeleton: bare, with its structure only, or fully set up
    // except for the glue.
    void Rig(const wchar_t* name, int stage) {
        bvhrig::RigOptions options;
        bvhrig::BipedLimbs(tagging, options);
        bvhrig::BvhRig rig =
            bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, name, options);
        ASSERT_TRUE(rig.model.IsValid());
        if (stage == 0) return;
        std::unique_ptr<ModelStructure> structure(ModelStructure::CreateFromFile(L"biped"));
        ASSERT_TRUE(structure && bvhrig::TagRigByProperties(rig.model, *structure, tagging));
        ModelMap map(rig.model, structure.get());
        map.createMap();
        if (stage > 1) map.SaveToCustomProperty();
        structure->SaveToCustomProperty(rig.model);
        if (stage > 2) {
            std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::createFromModelMap(rig.model, &map));
            ASSERT_TRUE(glue);
            glue->SaveToCustomProperty(rig.model);
        }
    }

    std::string SaveScene() {
        const std::string path = scratch.File("scene.orvscene");
        std::wstring error;
        EXPECT_TRUE(orvhost::SaveScene(path, error));
        return path;
    }

    e2e::TrovoRun RetargetBVH(const std::string& bvh, const std::string& map) {
        return e2e::RunTrovo(scratch, {"--scene", SaveScene(), "exec", "RetargetBVH", "targetmodel=Rig",
                                       "bvhfile=" + bvh, "mapfile=" + map});
    }

    structtest::SavedLocations saved;
    e2e::ScratchDir scratch;
    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
};

TEST_F(RetargetMessages, RetargetFromASourceWithoutAMapAlertsAboutTheSource) {
    Rig(L"Source", 0);
    Rig(L"Target", 3);
    const e2e::TrovoRun run =
        e2e::RunTrovo(scratch, {"--scene", SaveScene(), "exec", "Retarget", "sourcemodel=Source",
                                "targetmodel=Target", "strarttime=1", "endtime=20"});
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(run.err,
              "WARNING: Failed to read model map from source model.\n"
              "? MsgBox: Failed to read model map from source model. -> (default)\n");
}

TEST_F(RetargetMessages, RetargetOntoATargetWithoutAMapAlertsAboutTheTarget) {
    Rig(L"Source", 3);
    Rig(L"Target", 1);
    const e2e::TrovoRun run =
        e2e::RunTrovo(scratch, {"--scene", SaveScene(), "exec", "Retarget", "sourcemodel=Source",
                                "targetmodel=Target", "strarttime=1", "endtime=20"});
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(Warnings(run.err), "WARNING: Failed to read model map from target model.\n");
    EXPECT_EQ(Dialogs(run.err), "? MsgBox: Failed to read model map from target model. -> (default)\n");
}

TEST_F(RetargetMessages, RetargetBVHWithAMapFileThatCannotBeRead) {
    Rig(L"Rig", 3);
    const e2e::TrovoRun run = RetargetBVH(kWalk, scratch.File("absent.map"));
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(run.err, "WARNING: Could not read mapfile.\n");
}

TEST_F(RetargetMessages, RetargetBVHWithAMapFileThatIsNotForBvh) {
    Rig(L"Rig", 3);
    scratch.Write("walk.map", "ASF\nMapFile2.0 biped 0\n");
    const e2e::TrovoRun run = RetargetBVH(kWalk, scratch.File("walk.map"));
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(
        run.err,
        "WARNING: To retarget a BVH file the mapfile must be built from the corresponding BVH ref pose\n");
}

TEST_F(RetargetMessages, RetargetBVHWithAMapFileThatDoesNotParse) {
    Rig(L"Rig", 3);
    scratch.Write("walk.map", "BVH\nMapFile1.0 biped 0\n");
    const e2e::TrovoRun run = RetargetBVH(kWalk, scratch.File("walk.map"));
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(run.err, "INFO: MapFile1.0\nWARNING: Could not parse the map file\n");
}

TEST_F(RetargetMessages, RetargetBVHWithABvhFileThatDoesNotLoad) {
    Rig(L"Rig", 3);
    scratch.Write("cut.bvh", e2e::ReadText(kWalk).substr(0, 900));
    const e2e::TrovoRun run = RetargetBVH(scratch.File("cut.bvh"), kTemplate);
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(run.err, "INFO: MapFile2.0\nWARNING: Failed to load the BVH file.\n");
}

TEST_F(RetargetMessages, RetargetBVHWithAMapFileNamingNoStructure) {
    Rig(L"Rig", 3);
    scratch.Write("walk.map", "BVH\nMapFile2.0 nosuchbody 0\n");
    const e2e::TrovoRun run = RetargetBVH(kWalk, scratch.File("walk.map"));
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(Warnings(run.err),
              "WARNING: cannot find structure file: nosuchbody\nWARNING: Failed to create the structure.\n");
}

TEST_F(RetargetMessages, RetargetBVHOntoARigWithoutAStructure) {
    Rig(L"Rig", 0);
    const e2e::TrovoRun run = RetargetBVH(kWalk, kTemplate);
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(Warnings(run.err), "WARNING: Failed to create the model map. Possible missing ZUKStructure.\n");
}

TEST_F(RetargetMessages, RetargetBVHOntoARigThatIsNotSetUp) {
    Rig(L"Rig", 1);
    const e2e::TrovoRun run = RetargetBVH(kWalk, kTemplate);
    EXPECT_EQ(run.out, "false\n");
    EXPECT_EQ(Warnings(run.err), "WARNING: Destination model is not setup for retargetting.\n");
    EXPECT_EQ(Dialogs(run.err), "");
}

}  // namespace
