// BVH through the host's character import (Assimp's reader) and export (the host's own
// writer), checked against the plug-in's BVH reader: two independent readers of one file.
//
// Budget: 1e-4 of the skeleton's height, as for the plug-in reader itself (single-precision
// values along chains of a dozen joints).
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cwctype>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "AnimHooks.h"
#include "CharacterFiles.h"
#include "HostTesting.h"
#include "RealBvhFiles.h"
#include "mocap/BvFile.h"
#include "mocap/Mocap.h"

namespace {

using Case = bvhtest::RealBvhFile;

std::string Data(const std::string& rel) { return std::string(TROVO_TEST_DATA) + "/" + rel; }

// The frame rate the file states ("Frame Time:"), read from its text.
double FileRate(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("Frame Time:", 0) == 0) return 1.0 / std::stod(line.substr(11));
    return 0.0;
}

bool ReadWithPlugin(const std::string& path, ZUK::MocapData& data) {
    ZUK::BvFile file;
    return file.Open(ORV::CString(path.c_str()).GetWideString()) && file.ReadHierarchy(&data) &&
           file.ReadMotionData(&data, false, ZUK::YUp);
}

// The name a joint takes in the scene: what a scene path cannot hold becomes an underscore.
std::wstring SceneName(const ORV::CString& name) {
    std::wstring n = name.GetWideString();
    for (wchar_t& c : n)
        if (!std::iswalnum(c) && c != L'_') c = L'_';
    return n;
}

double Height(ZUK::MocapData& data) {
    data.updateTransforms(0);
    double lo[3] = {1e300, 1e300, 1e300}, hi[3] = {-1e300, -1e300, -1e300};
    for (int i = 0; i < data.nodeCount; ++i) {
        const ORV::MATH::CVector3 p = data.nodes[i].global.GetTranslation();
        const double v[3] = {p.x, p.y, p.z};
        for (int a = 0; a < 3; ++a) lo[a] = std::min(lo[a], v[a]), hi[a] = std::max(hi[a], v[a]);
    }
    return std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
}

// The scene at the file's own rate, so that the file's frame k lands on frame 1 + k.
orvhost::Object3D* ImportAtFileRate(const std::string& path) {
    orvhost::ResetScene();
    orvhost::PutParamValue(orvhost::PlayControl()->FindParam(L"Rate"), ORV::CValue(FileRate(path)), 1.0);
    std::wstring error;
    orvhost::Object3D* model = orvhost::ImportCharacter(path, orvhost::CharacterImportOptions(), error);
    EXPECT_TRUE(model) << path << ": " << ORV::CString(error).GetAsciiString();
    return model;
}

std::map<std::wstring, orvhost::Object3D*> ObjectsOf(orvhost::Object3D* model) {
    std::map<std::wstring, orvhost::Object3D*> out;
    orvhost::WalkObjects(model, true, [&](orvhost::Object3D* o) { out[o->name] = o; });
    return out;
}

class CharacterBvh : public ::testing::TestWithParam<Case> {
protected:
    void TearDown() override { orvhost::ResetScene(); }
};

std::string CaseName(const ::testing::TestParamInfo<Case>& info) {
    std::string name = info.param.path;
    name = name.substr(4, name.size() - 8);
    for (char& ch : name)
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return name;
}

}  // namespace

TEST_P(CharacterBvh, ImportedJointsStandWhereThePluginReaderPutsThem) {
    const Case& c = GetParam();
    const std::string path = Data(c.path);
    ZUK::MocapData data;
    ASSERT_TRUE(ReadWithPlugin(path, data));
    orvhost::Object3D* model = ImportAtFileRate(path);
    ASSERT_TRUE(model);
    const auto objects = ObjectsOf(model);
    const double tolerance = 1e-4 * Height(data);
    for (int frame : {0, c.frames / 2, c.frames - 1}) {
        data.updateTransforms(frame);
        for (int i = 0; i < data.nodeCount; ++i) {
            const auto it = objects.find(SceneName(data.nodes[i].name));
            ASSERT_NE(it, objects.end()) << data.nodes[i].name.GetAsciiString();
            const ORV::MATH::CVector3 want = data.nodes[i].global.GetTranslation();
            const ORV::MATH::CVector3 got =
                orvhost::GlobalTransform(it->second, 1.0 + frame).GetTranslation();
            EXPECT_NEAR(want.x, got.x, tolerance)
                << c.path << " frame " << frame << " " << data.nodes[i].name.GetAsciiString();
            EXPECT_NEAR(want.y, got.y, tolerance)
                << c.path << " frame " << frame << " " << data.nodes[i].name.GetAsciiString();
            EXPECT_NEAR(want.z, got.z, tolerance)
                << c.path << " frame " << frame << " " << data.nodes[i].name.GetAsciiString();
        }
    }
    // The whole motion is in the range.
    EXPECT_EQ(1.0, static_cast<double>(orvhost::ParamValue(orvhost::PlayControl()->FindParam(L"In"), 1.0)));
    EXPECT_EQ(static_cast<double>(c.frames),
              static_cast<double>(orvhost::ParamValue(orvhost::PlayControl()->FindParam(L"Out"), 1.0)));
}

TEST_P(CharacterBvh, RotationCurvesCarryNoFullTurnJumps) {
    orvhost::Object3D* model = ImportAtFileRate(Data(GetParam().path));
    ASSERT_TRUE(model);
    int curves = 0;
    for (const auto& [name, obj] : ObjectsOf(model))
        for (const wchar_t* p : {L"rotx", L"roty", L"rotz"}) {
            orvhost::ParamItem* param = obj->LocalParam(p);
            auto* curve = param ? dynamic_cast<orvhost::FCurveItem*>(param->source) : nullptr;
            if (!curve) continue;
            ++curves;
            // Capture at 30 frames per second or more turns no joint by half a turn in a frame.
            for (std::size_t k = 1; k < curve->keys.size(); ++k)
                ASSERT_LT(std::fabs(curve->keys[k].value - curve->keys[k - 1].value), 180.0)
                    << ORV::CString(name).GetAsciiString() << "." << ORV::CString(p).GetAsciiString()
                    << " key " << k;
        }
    EXPECT_GT(curves, 0);
}

TEST_P(CharacterBvh, ExportedBvhReadsBackToTheSameMotionAtEveryFrame) {
    const Case& c = GetParam();
    const std::string path = Data(c.path);
    ZUK::MocapData original;
    ASSERT_TRUE(ReadWithPlugin(path, original));
    orvhost::Object3D* model = ImportAtFileRate(path);
    ASSERT_TRUE(model);
    const std::string out = std::string(::testing::TempDir()) + "trovo_char_bvh_" + CaseName({c, 0}) + ".bvh";
    std::wstring error;
    ASSERT_TRUE(orvhost::ExportCharacter(out, model, orvhost::CharacterExportOptions(), error))
        << ORV::CString(error).GetAsciiString();
    ZUK::MocapData back;
    ASSERT_TRUE(ReadWithPlugin(out, back));
    std::remove(out.c_str());
    ASSERT_EQ(original.nodeCount, back.nodeCount);
    std::map<std::wstring, int> byName;
    for (int i = 0; i < back.nodeCount; ++i) byName[back.nodes[i].name.GetWideString()] = i;
    ASSERT_EQ(c.frames, back.nodes[0].frameCount);
    const double tolerance = 1e-4 * Height(original);
    for (int frame = 0; frame < c.frames; ++frame) {
        original.updateTransforms(frame);
        back.updateTransforms(frame);
        for (int i = 0; i < original.nodeCount; ++i) {
            const auto it = byName.find(SceneName(original.nodes[i].name));
            ASSERT_NE(it, byName.end()) << original.nodes[i].name.GetAsciiString();
            const ORV::MATH::CVector3 want = original.nodes[i].global.GetTranslation();
            const ORV::MATH::CVector3 got = back.nodes[it->second].global.GetTranslation();
            ASSERT_NEAR(want.x, got.x, tolerance)
                << "frame " << frame << " " << original.nodes[i].name.GetAsciiString();
            ASSERT_NEAR(want.y, got.y, tolerance)
                << "frame " << frame << " " << original.nodes[i].name.GetAsciiString();
            ASSERT_NEAR(want.z, got.z, tolerance)
                << "frame " << frame << " " << original.nodes[i].name.GetAsciiString();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllFiles, CharacterBvh, ::testing::ValuesIn(bvhtest::kRealBvhFiles), CaseName);
