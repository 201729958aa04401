// Capture maps from the real CMU BVH files: a BVH map file written in the test names the joint
// that plays each node of the factory biped structure; its tags go onto the capture nodes and
// the capture map binds each structure node to the joint the file named, with the file's
// directions.
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include "MapTestSupport.h"
#include "ModelMapTestSupport.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "mocap/RealBvhFiles.h"
#include "mocap/TempFile.h"
#include "support/BvhRigBuilder.h"

using ORV::MATH::CVector3;
using ZUK::ModelMap;

namespace {

struct CmuFile {
    const char* path;
    bvhrig::Tagging tagging;
};

std::vector<CmuFile> CmuFiles() {
    std::vector<CmuFile> files;
    for (const bvhtest::RealBvhFile& f : bvhtest::kRealBvhFiles) {
        const std::string path = f.path;
        if (path.find("cmu_mb2010") != std::string::npos)
            files.push_back({f.path, bvhrig::CmuMotionBuilderTagging(false)});
        else if (path.find("cmu_mb2008") != std::string::npos)
            files.push_back({f.path, bvhrig::CmuMotionBuilderTagging(true)});
        else if (path.find("cmu_3dsmax") != std::string::npos)
            files.push_back({f.path, bvhrig::Cmu3dsMaxTagging()});
    }
    return files;
}

// Distinct, exactly representable directions per entry, so that a mix-up shows.
CVector3 AlignOf(size_t k) { return CVector3(0.125 * static_cast<double>(k), -1, 0.5); }
CVector3 RollOf(size_t k) { return CVector3(1, 0.25 * static_cast<double>(k), -0.75); }

// The text of a BVH map file: the word "BVH", then the tag map's text form.
std::string MapFileText(const bvhrig::Tagging& tagging) {
    std::string text = "BVH\nMapFile2.0\nbiped\n\n" + std::to_string(tagging.size()) + " \n";
    char line[256];
    for (size_t k = 0; k < tagging.size(); ++k) {
        const CVector3 a = AlignOf(k), r = RollOf(k);
        std::snprintf(line, sizeof line, "%s {\n\t%s;\n\t%g %g %g \n\t%g %g %g \n",
                      ORV::CString(tagging[k].first).GetAsciiString(),
                      ORV::CString(tagging[k].second).GetAsciiString(), a.x, a.y, a.z, r.x, r.y, r.z);
        text += line;
        // The hands take the fingers' rotation: an override on the way through.
        if (tagging[k].first == L"lhand") text += "\t*lfingers\n";
        text += "}\n\n";
    }
    return text;
}

}  // namespace

TEST(CaptureMap, EveryCmuFileBindsEachStructureNodeToTheJointItsMapFileNames) {
    modelmaptest::FactoryData factory;
    orvhost::ResetScene();
    for (const CmuFile& file : CmuFiles()) {
        SCOPED_TRACE(file.path);
        orvhost::ClearLog();
        trovotest::TempFile mapFile(MapFileText(file.tagging), ".map");
        ASSERT_TRUE(mapFile.Ok());
        std::unique_ptr<ZUK::TagMap> tags(ZUK::TagMap::createFromMapFile(mapFile.Path()));
        ASSERT_TRUE(tags);
        EXPECT_EQ(maptest::Text(tags->structure_file), L"biped");
        ASSERT_EQ(tags->entries.size(), file.tagging.size());

        const std::string bvh = std::string(TROVO_TEST_DATA) + "/" + file.path;
        std::unique_ptr<ZUK::MocapData> capture(
            ZUK::BvImport::extractMocapData(ORV::CString(bvh.c_str()), ZUK::YUp));
        ASSERT_TRUE(capture);
        EXPECT_TRUE(tags->applyToMocap(capture.get()));
        // Every joint of the file was found: nothing was logged as missing.
        EXPECT_TRUE(maptest::Messages(4).empty());

        std::unique_ptr<ZUK::ModelStructure> structure(
            ZUK::ModelStructure::CreateFromFile(tags->structure_file));
        ASSERT_TRUE(structure);
        ModelMap map(capture.get(), structure.get());
        EXPECT_EQ(map.mocap, capture.get());

        std::map<int, size_t> entryOfNode;
        for (size_t k = 0; k < file.tagging.size(); ++k) {
            const int node = structure->findNodeIndex(file.tagging[k].first);
            ASSERT_GE(node, 0) << modelmaptest::Narrow(file.tagging[k].first);
            entryOfNode[node] = k;
        }
        for (int i = 0; i < structure->numNodes; ++i) {
            SCOPED_TRACE(modelmaptest::Narrow(structure->nodes[i].Name));
            const ZUK::NodeMap& node = map.nodes[static_cast<size_t>(i)];
            auto found = entryOfNode.find(i);
            if (found == entryOfNode.end()) {
                EXPECT_EQ(node.mocapNode, nullptr);
                continue;
            }
            const size_t k = found->second;
            // The joint named in the file, found by its own name in the capture.
            ZUK::MocapNode* joint = nullptr;
            for (int n = 0; n < capture->nodeCount; ++n) {
                if (capture->nodes[n].name == ORV::CString(file.tagging[k].second))
                    joint = &capture->nodes[n];
            }
            ASSERT_NE(joint, nullptr);
            EXPECT_EQ(node.mocapNode, joint);
            EXPECT_TRUE(joint->tagged);
            EXPECT_EQ(maptest::Text(joint->tag), file.tagging[k].first);
            EXPECT_TRUE(node.align.Equals(AlignOf(k), 0.0));
            EXPECT_TRUE(node.roll.Equals(RollOf(k), 0.0));
            EXPECT_FALSE(node.object.IsValid());
        }
        // Joints that no entry names stay untagged.
        int tagged = 0;
        for (int n = 0; n < capture->nodeCount; ++n) tagged += capture->nodes[n].tagged ? 1 : 0;
        EXPECT_EQ(tagged, static_cast<int>(file.tagging.size()));
        ASSERT_EQ(file.tagging[16].first, L"lhand");
        EXPECT_EQ(maptest::Text(tags->entries[16].override), L"lfingers");
    }
}
