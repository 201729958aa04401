// The factory BVH tag templates are made by the system itself: a BVH model of a file of each
// skeleton family, tagged through "SetTagValue", applied with "ApplyTagsToRig" and saved with
// "SaveTagTemplateFile". The test writes them into the build folder and compares them with the
// shipped files, so that the two cannot drift; after a deliberate change, copy the generated
// files over the shipped ones (see data/README.md).
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>

#include "TagPanelTestSupport.h"
#include "character/TagMap.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"

namespace {

using tagtest::Log;
using tagtest::ReadAll;
using tagtest::TagPanelTest;

struct Family {
    const char* name;
    // The file the template is made from, then the other files of the family.
    std::vector<const char*> files;
    bvhrig::Tagging tagging;
    ZUK::UpDirection up;
};

// Mixamo-style naming (tests/data/bvh/other_rokoko_mixamo_preset): three spine joints, the
// chest on the top one, fingers on the middle finger's first joint.
bvhrig::Tagging MixamoTagging() {
    return {{L"cog", L"Hips"},
            {L"spine", L"Spine"},
            {L"chest", L"Spine2"},
            {L"neck", L"Neck"},
            {L"head", L"Head"},
            {L"lthigh", L"LeftUpLeg"},
            {L"lshin", L"LeftLeg"},
            {L"lfoot", L"LeftFoot"},
            {L"ltoe", L"LeftToeBase"},
            {L"rthigh", L"RightUpLeg"},
            {L"rshin", L"RightLeg"},
            {L"rfoot", L"RightFoot"},
            {L"rtoe", L"RightToeBase"},
            {L"lclavicle", L"LeftShoulder"},
            {L"lupperarm", L"LeftArm"},
            {L"lforearm", L"LeftForeArm"},
            {L"lhand", L"LeftHand"},
            {L"lfingers", L"LeftHandMiddle1"},
            {L"rclavicle", L"RightShoulder"},
            {L"rupperarm", L"RightArm"},
            {L"rforearm", L"RightForeArm"},
            {L"rhand", L"RightHand"},
            {L"rfingers", L"RightHandMiddle1"}};
}

// The naming of dab.bvh (tests/data/bvh/other_fair_animdrawings): four spine joints, the chest
// on the top one, fingers on the hand's end joint.
bvhrig::Tagging DabTagging() {
    return {{L"cog", L"Hips"},
            {L"spine", L"Spine"},
            {L"chest", L"Spine3"},
            {L"neck", L"Neck"},
            {L"head", L"Head"},
            {L"lthigh", L"LeftUpLeg"},
            {L"lshin", L"LeftLeg"},
            {L"lfoot", L"LeftFoot"},
            {L"ltoe", L"LeftToeBase"},
            {L"rthigh", L"RightUpLeg"},
            {L"rshin", L"RightLeg"},
            {L"rfoot", L"RightFoot"},
            {L"rtoe", L"RightToeBase"},
            {L"lclavicle", L"LeftShoulder"},
            {L"lupperarm", L"LeftArm"},
            {L"lforearm", L"LeftForeArm"},
            {L"lhand", L"LeftHand"},
            {L"lfingers", L"LeftHandEnd"},
            {L"rclavicle", L"RightShoulder"},
            {L"rupperarm", L"RightArm"},
            {L"rforearm", L"RightForeArm"},
            {L"rhand", L"RightHand"},
            {L"rfingers", L"RightHandEnd"}};
}

void PrintTo(const Family& f, std::ostream* os) { *os << f.name; }

std::vector<Family> Families() {
    return {{"cmu_mb2010",
             {"bvh/cmu_mb2010/02_01.bvh", "bvh/cmu_mb2010/02_03.bvh", "bvh/cmu_mb2010/02_04.bvh",
              "bvh/cmu_mb2010/07_05.bvh", "bvh/cmu_mb2010/09_06.bvh"},
             bvhrig::CmuMotionBuilderTagging(),
             ZUK::YUp},
            {"cmu_mb2008", {"bvh/cmu_mb2008/01_01.bvh"}, bvhrig::CmuMotionBuilderTagging(true), ZUK::YUp},
            {"cmu_3dsmax", {"bvh/cmu_3dsmax/01_01.bvh"}, bvhrig::Cmu3dsMaxTagging(), ZUK::YUp},
            {"mixamo", {"bvh/other_rokoko_mixamo_preset/jesse_dance.bvh"}, MixamoTagging(), ZUK::YUp},
            // The AnimatedDrawings skeleton stands Z up.
            {"dab", {"bvh/other_fair_animdrawings/dab.bvh"}, DabTagging(), ZUK::ZUp}};
}

std::string GeneratedFolder() {
    const std::string dir = std::string(TROVO_BIN_DIR) + "/TagTemplates";
    mkdir(dir.c_str(), 0755);
    return dir;
}

std::string ShippedPath(const Family& f) {
    return std::string(TROVO_FACTORY_DATA) + "/Addons/Trovo/Data/TagTemplates/" + f.name + ".tagt";
}

class FactoryTagTemplates : public TagPanelTest, public ::testing::WithParamInterface<Family> {
protected:
    ORV::Model BvhModel(const std::string& file) {
        orvhost::ResetScene();
        ORV::Model model =
            ZUK::BvImport::createBvhModel(ORV::CString(tagtest::DataPath(file).c_str()), GetParam().up);
        orvhost::ClearLog();
        return model;
    }
};

TEST_P(FactoryTagTemplates, TheShippedTemplateIsWhatTheGeneratorMakes) {
    const Family& f = GetParam();
    ORV::Model model = BvhModel(f.files[0]);
    ASSERT_TRUE(model.IsValid());
    ASSERT_TRUE(static_cast<bool>(Exec(L"SetStructureFile", {model.GetRef(), ORV::CString(L"biped")})));
    // Each left pick is followed by its right one at once, so that a wrong guess of the mirror
    // fill is replaced before any other tag is tested against it.
    for (const auto& p : f.tagging) {
        if (p.first[0] == L'r') continue;
        ASSERT_TRUE(SetTag(model, p.first.c_str(), p.second.c_str())) << modelmaptest::Narrow(p.first);
        if (p.first[0] != L'l') continue;
        const std::wstring mirror = L"r" + p.first.substr(1);
        const std::wstring joint = bvhrig::JointOf(f.tagging, mirror);
        ASSERT_FALSE(joint.empty()) << modelmaptest::Narrow(mirror);
        ASSERT_TRUE(SetTag(model, mirror.c_str(), joint.c_str())) << modelmaptest::Narrow(mirror);
    }
    ASSERT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
    const std::string generated = GeneratedFolder() + "/" + f.name + ".tagt";
    ASSERT_TRUE(
        static_cast<bool>(Exec(L"SaveTagTemplateFile", {model.GetRef(), ORV::CString(generated.c_str())})));
    EXPECT_TRUE(Messages().empty());
    const std::string shipped = ReadAll(ShippedPath(f));
    ASSERT_FALSE(shipped.empty()) << "no shipped template " << ShippedPath(f) << "; generated: " << generated;
    EXPECT_EQ(ReadAll(generated), shipped) << "the generator now makes " << generated;
}

TEST_P(FactoryTagTemplates, LoadsOnEveryFileOfItsFamilyWithoutAWarning) {
    const Family& f = GetParam();
    for (const char* file : f.files) {
        SCOPED_TRACE(file);
        ORV::Model model = BvhModel(file);
        ASSERT_TRUE(model.IsValid());
        EXPECT_TRUE(static_cast<bool>(
            Exec(L"LoadTagTemplateFile", {model.GetRef(), ORV::CString(ShippedPath(f).c_str())})));
        EXPECT_TRUE(Messages().empty());
        EXPECT_TRUE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
        for (const auto& p : f.tagging) {
            EXPECT_TRUE(modelmaptest::FindProperty(model.FindChild(p.second.c_str()), L"ZUKTag").IsValid())
                << modelmaptest::Narrow(p.second);
        }
    }
}

TEST_P(FactoryTagTemplates, TagsTheCaptureNodesOfEveryFileOfItsFamily) {
    const Family& f = GetParam();
    std::unique_ptr<ZUK::TagMap> map(ZUK::TagMap::createFromMapFile(ORV::CString(ShippedPath(f).c_str())));
    ASSERT_TRUE(map);
    EXPECT_EQ(map->entries.size(), f.tagging.size());
    for (const char* file : f.files) {
        SCOPED_TRACE(file);
        std::unique_ptr<ZUK::MocapData> mocap(
            ZUK::BvImport::extractMocapData(ORV::CString(tagtest::DataPath(file).c_str()), f.up));
        ASSERT_TRUE(mocap);
        orvhost::ClearLog();
        EXPECT_TRUE(map->applyToMocap(mocap.get()));
        EXPECT_TRUE(Messages().empty());
        for (const auto& p : f.tagging) {
            ZUK::MocapNode* node = mocap->findNode(p.second.c_str());
            ASSERT_NE(node, nullptr) << modelmaptest::Narrow(p.second);
            EXPECT_TRUE(node->tagged);
            EXPECT_EQ(node->tag, ORV::CString(p.first.c_str()));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Bvh, FactoryTagTemplates, ::testing::ValuesIn(Families()),
                         [](const ::testing::TestParamInfo<Family>& info) {
                             return std::string(info.param.name);
                         });

}  // namespace
