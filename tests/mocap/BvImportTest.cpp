// BvImport: the whole file as MocapData, and the reference model built in the scene.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "RealBvhFiles.h"
#include "TempFile.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "shell/Util.h"

using trovotest::TempFile;
using ZUK::BvImport;
using ZUK::MocapData;

namespace {

// Frame 0: the root at (1, 2, 3) turned a quarter turn about Z; Spine and Leg unturned.
const char* const kSample =
    "HIERARCHY\n"
    "ROOT Hips\n"
    "{\n"
    "  OFFSET 0 0 0\n"
    "  CHANNELS 6 Xposition Yposition Zposition Zrotation Xrotation Yrotation\n"
    "  JOINT Spine\n"
    "  {\n"
    "    OFFSET 0 5 0\n"
    "    CHANNELS 3 Zrotation Xrotation Yrotation\n"
    "    End Site\n"
    "    {\n"
    "      OFFSET 0 4 0\n"
    "    }\n"
    "  }\n"
    "  JOINT Leg\n"
    "  {\n"
    "    OFFSET 2 -3 0\n"
    "    CHANNELS 3 Zrotation Xrotation Yrotation\n"
    "    End Site\n"
    "    {\n"
    "      OFFSET 0 -6 0\n"
    "    }\n"
    "  }\n"
    "}\n"
    "MOTION\n"
    "Frames: 2\n"
    "Frame Time: 0.0333333\n"
    "1 2 3 90 0 0 0 0 0 0 0 0\n"
    "9 9 9 0 0 0 0 0 0 0 0 0\n";

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

std::unique_ptr<MocapData> Extract(const std::string& text, ZUK::UpDirection up = ZUK::YUp) {
    TempFile file(text);
    EXPECT_TRUE(file.Ok());
    return std::unique_ptr<MocapData>(BvImport::extractMocapData(file.Path(), up));
}

}  // namespace

// --- extractMocapData ------------------------------------------------------------------------------

TEST(BvImport, Constants) {
    EXPECT_TRUE(ORV::CString(BvImport::LBVHTAG) == L"BVH");
    EXPECT_TRUE(ORV::CString(BvImport::PROPERTY_NAME) == L"bvh");
}

TEST(BvImport, ExtractMocapDataHoldsAllFrames) {
    std::unique_ptr<MocapData> data = Extract(kSample);
    ASSERT_NE(nullptr, data);
    ASSERT_EQ(3, data->nodeCount);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(2, data->nodes[i].frameCount);
    EXPECT_EQ(9.0, data->nodes[0].frames[1].translation.x);
    data->updateTransforms(0);
    // Spine: (0, 5, 0) turned a quarter turn about Z, then moved by (1, 2, 3).
    EXPECT_TRUE(data->nodes[1].global.GetTranslation().Equals(ORV::MATH::CVector3(-4, 2, 3), 1e-6));
    EXPECT_TRUE(data->nodes[2].global.GetTranslation().Equals(ORV::MATH::CVector3(4, 4, 3), 1e-6));
}

TEST(BvImport, ExtractMocapDataPassesTheUpDirection) {
    std::unique_ptr<MocapData> z = Extract(kSample, ZUK::ZUp);
    ASSERT_NE(nullptr, z);
    // Z up: a quarter turn about -X, then one about -Y: (1, 2, 3) -> (1, 3, -2) -> (2, 3, 1).
    const ZUK::DrvVector& t = z->nodes[0].frames[0].translation;
    EXPECT_NEAR(2.0, t.x, 1e-6);
    EXPECT_NEAR(3.0, t.y, 1e-6);
    EXPECT_NEAR(1.0, t.z, 1e-6);
}

TEST(BvImport, ExtractMocapDataOfAMissingFileIsNull) {
    EXPECT_EQ(nullptr, BvImport::extractMocapData(L"/nonexistent/folder/missing.bvh", ZUK::YUp));
    EXPECT_EQ(nullptr, BvImport::extractMocapData(L"", ZUK::YUp));
}

TEST(BvImport, ExtractMocapDataWithAWrongFirstWordIsNull) {
    EXPECT_EQ(nullptr, Extract(Replace(kSample, "HIERARCHY", "HIERARCH")));
}

TEST(BvImport, ExtractMocapDataWithoutMotionIsNull) {
    EXPECT_EQ(nullptr, Extract(Replace(kSample, "MOTION", "MOVEMENT")));
}

TEST(BvImport, ExtractMocapDataWithAnUnknownChannelIsNull) {
    EXPECT_EQ(nullptr, Extract(Replace(kSample, "Yposition", "Wposition")));
}

TEST(BvImport, ExtractMocapDataWithAnUnclosedBlockIsNull) {
    const std::string text = kSample;
    EXPECT_EQ(nullptr, Extract(text.substr(0, text.find("  JOINT Leg"))));
}

TEST(BvImport, ExtractMocapDataWithTruncatedMotionIsNull) {
    const std::string text = kSample;
    EXPECT_EQ(nullptr, Extract(text.substr(0, text.find("9 9 9"))));
    EXPECT_EQ(nullptr, Extract(text.substr(0, text.size() - 4)));
}

TEST(BvImport, ExtractMocapDataWithAValueThatDoesNotScanIsNull) {
    EXPECT_EQ(nullptr, Extract(Replace(kSample, "9 9 9 0", "9 9 9 zero")));
}

TEST(BvImport, ExtractMocapDataReadsEveryRealFile) {
    for (const auto& f : bvhtest::kRealBvhFiles) {
        const std::string path = std::string(TROVO_TEST_DATA) + "/" + f.path;
        std::unique_ptr<MocapData> data(BvImport::extractMocapData(ORV::CString(path.c_str()), ZUK::YUp));
        ASSERT_NE(nullptr, data) << f.path;
        EXPECT_EQ(f.joints, data->nodeCount) << f.path;
        EXPECT_EQ(f.frames, data->nodes[f.joints - 1].frameCount) << f.path;
    }
}

// --- createBvhModel ----------------------------------------------------------------------------

namespace {

class CreateBvhModel : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        ASSERT_TRUE(file.Ok());
    }

    static ORV::Model Root() { return ORV::Application().GetActiveSceneRoot(); }

    static ORV::X3DObject Find(const ORV::X3DObject& under, const wchar_t* name) {
        return under.FindChild(name, L"", ORV::CStringArray(), true);
    }

    static bool HasProperty(const ORV::SceneItem& item, const wchar_t* name) {
        const ORV::CRefArray properties = item.GetProperties();
        for (long i = 0; i < properties.GetCount(); ++i)
            if (ORV::Property(properties[i]).GetName() == name) return true;
        return false;
    }

    static ORV::Property PropertyNamed(const ORV::SceneItem& item, const wchar_t* name) {
        const ORV::CRefArray properties = item.GetProperties();
        for (long i = 0; i < properties.GetCount(); ++i)
            if (ORV::Property(properties[i]).GetName() == name) return ORV::Property(properties[i]);
        return ORV::Property();
    }

    static ORV::MATH::CVector3 GlobalPosition(const ORV::X3DObject& object) {
        return object.GetKinematics().GetGlobal().GetTransform(ORV::ovNow).GetTranslation();
    }

    TempFile file{kSample};
};

}  // namespace

TEST_F(CreateBvhModel, BuildsTheModelAndItsNull) {
    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    EXPECT_TRUE(model.GetName() == L"BVH");
    EXPECT_TRUE(ORV::X3DObject(model.GetParent()) == Root());
    ORV::X3DObject null = Find(model, L"Biovision");
    ASSERT_TRUE(null.IsValid());
    EXPECT_TRUE(ORV::X3DObject(null.GetParent()) == model);
}

TEST_F(CreateBvhModel, CubesCarryTheNodeNamesInTheSkeletonHierarchy) {
    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    ORV::X3DObject hips = Find(model, L"Hips"), spine = Find(model, L"Spine"), leg = Find(model, L"Leg");
    ASSERT_TRUE(hips.IsValid());
    ASSERT_TRUE(spine.IsValid());
    ASSERT_TRUE(leg.IsValid());
    EXPECT_TRUE(ORV::X3DObject(hips.GetParent()) == Find(model, L"Biovision"));
    EXPECT_TRUE(ORV::X3DObject(spine.GetParent()) == hips);
    EXPECT_TRUE(ORV::X3DObject(leg.GetParent()) == hips);
    EXPECT_TRUE(spine.GetFullName() == L"BVH.Spine");
}

TEST_F(CreateBvhModel, CubesStandAtTheJointsOfFrameZero) {
    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    EXPECT_TRUE(GlobalPosition(Find(model, L"Hips")).Equals(ORV::MATH::CVector3(1, 2, 3), 1e-6));
    EXPECT_TRUE(GlobalPosition(Find(model, L"Spine")).Equals(ORV::MATH::CVector3(-4, 2, 3), 1e-6));
    EXPECT_TRUE(GlobalPosition(Find(model, L"Leg")).Equals(ORV::MATH::CVector3(4, 4, 3), 1e-6));
}

TEST_F(CreateBvhModel, CubeSizeIsATenthOfTheLongestEndSiteAndTheWireColourIs384) {
    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    for (const wchar_t* name : {L"Hips", L"Spine", L"Leg"}) {
        ORV::X3DObject cube = Find(model, name);
        // The longest end site is Leg's (0, -6, 0).
        EXPECT_NEAR(0.6, static_cast<double>(cube.GetActivePrimitive().GetParameterValue(L"length")), 1e-6)
            << ORV::CString(name).GetAsciiString();
        ORV::Property display = PropertyNamed(cube, L"Display");
        ASSERT_TRUE(display.IsValid());
        EXPECT_EQ(384, static_cast<int>(display.GetParameterValue(L"wirecol")));
    }
}

TEST_F(CreateBvhModel, ConnectionLinesJoinEachParentToItsChild) {
    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    const ORV::X3DObject hips = Find(model, L"Hips"), spine = Find(model, L"Spine"), leg = Find(model, L"Leg");
    const ORV::CRefArray lines = model.FindChildren(L"", L"crvlist", ORV::CStringArray(), true);
    ASSERT_EQ(2, lines.GetCount());
    bool toSpine = false, toLeg = false;
    for (long i = 0; i < lines.GetCount(); ++i) {
        const ORV::X3DObject line(lines[i]);
        ORV::Property display = PropertyNamed(line, L"Display");
        ASSERT_TRUE(display.IsValid());
        EXPECT_EQ(438, static_cast<int>(display.GetParameterValue(L"wirecol")));
        // The line's operator follows the parent's and the child's global transforms.
        ORV::CustomOperator op;
        ASSERT_TRUE(ZUK::Util::findCustomOp(line.GetActivePrimitive().GetFullName(), L"ConnectionLine", op));
        const ORV::CRefArray inputs = op.GetInputPorts();
        ASSERT_EQ(3, inputs.GetCount());
        const ORV::CRef first = ORV::Port(inputs[1]).GetTarget(), second = ORV::Port(inputs[2]).GetTarget();
        EXPECT_TRUE(first == hips.GetKinematics().GetGlobal().GetRef());
        if (second == spine.GetKinematics().GetGlobal().GetRef()) toSpine = true;
        if (second == leg.GetKinematics().GetGlobal().GetRef()) toLeg = true;
    }
    EXPECT_TRUE(toSpine);
    EXPECT_TRUE(toLeg);
}

TEST_F(CreateBvhModel, MarksTheModelWithBothProperties) {
    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    EXPECT_TRUE(HasProperty(model, L"ZUKMocapRef"));
    EXPECT_TRUE(HasProperty(model, L"bvh"));
    EXPECT_TRUE(PropertyNamed(model, L"ZUKMocapRef").GetType() == L"CustomProperty");
    EXPECT_TRUE(PropertyNamed(model, L"bvh").GetType() == L"CustomProperty");
}

TEST_F(CreateBvhModel, ShowsTheProgressBarToTwiceTheNodeCount) {
    ORV::Application().GetUIToolkit().GetProgressBar().PutValue(0);
    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    ORV::ProgressBar bar = ORV::Application().GetUIToolkit().GetProgressBar();
    EXPECT_TRUE(bar.GetVisible());
    EXPECT_TRUE(bar.GetCaption() == L"Creating Mocap Reference Model ...");
    EXPECT_EQ(6, bar.GetMaximum());
    EXPECT_EQ(6, bar.GetValue());
}

TEST_F(CreateBvhModel, ClearsThePositionExpressionsAndFramesTheView) {
    // With the command log on, every command the import runs shows in the log.
    ORV::CValueArray args;
    args.Add(ORV::CValue(L"preferences.scripting.cmdlog"));
    args.Add(ORV::CValue(true));
    ORV::CValue result;
    ORV::Application().ExecuteCommand(L"SetValue", args, result);
    orvhost::ClearLog();

    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    // In node order, x, y, z for each cube below the root, then one "FrameAll".
    const std::vector<std::wstring> expected = {
        L"BVH.Spine.kine.local.posx", L"BVH.Spine.kine.local.posy", L"BVH.Spine.kine.local.posz",
        L"BVH.Leg.kine.local.posx",   L"BVH.Leg.kine.local.posy",   L"BVH.Leg.kine.local.posz", L"FrameAll"};
    std::vector<std::wstring> seen;
    for (const std::wstring& line : orvhost::LogTexts()) {
        if (line.find(L"FrameAll") != std::wstring::npos) seen.push_back(L"FrameAll");
        if (line.find(L"SetExpr") == std::wstring::npos) continue;
        for (size_t k = 0; k + 1 < expected.size(); ++k)
            if (line.find(expected[k]) != std::wstring::npos) seen.push_back(expected[k]);
    }
    EXPECT_EQ(expected, seen);
}

TEST_F(CreateBvhModel, FailingFileLeavesTheSceneUntouched) {
    TempFile broken(Replace(kSample, "Xrotation", "Xrot"));
    EXPECT_FALSE(BvImport::createBvhModel(broken.Path(), ZUK::YUp).IsValid());
    EXPECT_FALSE(BvImport::createBvhModel(L"/nonexistent/folder/missing.bvh", ZUK::YUp).IsValid());
    EXPECT_EQ(0, Root().FindChildren(L"", L"", ORV::CStringArray(), true).GetCount());
}

TEST_F(CreateBvhModel, ReadsOnlyTheFirstFrame) {
    // A second frame that would not scan is never read.
    TempFile firstOnly(Replace(kSample, "9 9 9 0 0 0 0 0 0 0 0 0", "9 9 9 broken"));
    ASSERT_TRUE(firstOnly.Ok());
    ORV::Model model = BvImport::createBvhModel(firstOnly.Path(), ZUK::YUp);
    ASSERT_TRUE(model.IsValid());
    EXPECT_TRUE(GlobalPosition(Find(model, L"Hips")).Equals(ORV::MATH::CVector3(1, 2, 3), 1e-6));
}

TEST_F(CreateBvhModel, PassesTheUpDirection) {
    // Z up: (1, 2, 3) -> (1, 3, -2) -> (2, 3, 1), as for extractMocapData.
    ORV::Model model = BvImport::createBvhModel(file.Path(), ZUK::ZUp);
    ASSERT_TRUE(model.IsValid());
    EXPECT_TRUE(GlobalPosition(Find(model, L"Hips")).Equals(ORV::MATH::CVector3(2, 3, 1), 1e-6));
}
