// Character import and export on the real glTF samples. Expected names, hierarchy, rest
// transforms and animation samples are read here from the files' own JSON and binary chunk,
// independently of Assimp.
//
// Budgets: rest transforms 1e-6 (the file's single-precision floats, composed in double);
// animation samples 1e-5 (single-precision samples through Euler angles and back).
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "AnimHooks.h"
#include "CharacterFiles.h"
#include "HostTesting.h"

using nlohmann::json;

namespace {

std::string Data(const std::string& rel) { return std::string(TROVO_TEST_DATA) + "/" + rel; }

std::vector<unsigned char> ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::uint32_t U32(const std::vector<unsigned char>& b, std::size_t at) {
    return static_cast<std::uint32_t>(b[at]) | static_cast<std::uint32_t>(b[at + 1]) << 8 |
           static_cast<std::uint32_t>(b[at + 2]) << 16 | static_cast<std::uint32_t>(b[at + 3]) << 24;
}

// A binary glTF taken apart: its JSON and its binary chunk.
struct Glb {
    json doc;
    std::vector<unsigned char> bin;
    bool ok = false;
};

Glb ReadGlb(const std::string& path) {
    Glb g;
    const std::vector<unsigned char> b = ReadAll(path);
    if (b.size() < 20 || std::memcmp(b.data(), "glTF", 4) != 0 || U32(b, 4) != 2 || U32(b, 8) != b.size())
        return g;
    const std::uint32_t jsonLength = U32(b, 12);
    if (U32(b, 16) != 0x4E4F534Au || 20 + static_cast<std::size_t>(jsonLength) > b.size()) return g;
    g.doc = json::parse(b.begin() + 20, b.begin() + 20 + jsonLength, nullptr, false);
    if (g.doc.is_discarded()) return g;
    const std::size_t binAt = 20 + jsonLength;
    if (binAt + 8 <= b.size()) {
        const std::uint32_t binLength = U32(b, binAt);
        if (U32(b, binAt + 4) != 0x004E4942u || binAt + 8 + binLength > b.size()) return g;
        g.bin.assign(b.begin() + static_cast<long>(binAt) + 8,
                     b.begin() + static_cast<long>(binAt + 8 + binLength));
    }
    g.ok = true;
    return g;
}

int ComponentCount(const std::string& type) {
    static const std::map<std::string, int> n = {{"SCALAR", 1}, {"VEC2", 2}, {"VEC3", 3}, {"VEC4", 4},
                                                 {"MAT2", 4},   {"MAT3", 9}, {"MAT4", 16}};
    const auto it = n.find(type);
    return it == n.end() ? 0 : it->second;
}

int ComponentSize(int componentType) {
    switch (componentType) {
        case 5120:
        case 5121:
            return 1;
        case 5122:
        case 5123:
            return 2;
        default:
            return 4;
    }
}

// The float values of an accessor, element by element.
std::vector<std::vector<double>> Floats(const Glb& g, int accessor) {
    const json& a = g.doc["accessors"][accessor];
    const json& v = g.doc["bufferViews"][a["bufferView"].get<int>()];
    const int n = ComponentCount(a["type"]);
    const std::size_t stride = v.value("byteStride", static_cast<std::size_t>(n) * 4);
    const std::size_t base = v.value("byteOffset", 0u) + a.value("byteOffset", 0u);
    std::vector<std::vector<double>> out;
    for (int i = 0; i < a["count"].get<int>(); ++i) {
        std::vector<double> e;
        for (int k = 0; k < n; ++k) {
            float f;
            std::memcpy(
                &f,
                g.bin.data() + base + static_cast<std::size_t>(i) * stride + static_cast<std::size_t>(k) * 4,
                4);
            e.push_back(f);
        }
        out.push_back(e);
    }
    return out;
}

using Mat = std::array<double, 16>;  // column convention, m[r * 4 + c]

Mat QuatMatrix(double x, double y, double z, double w) {
    return {1 - 2 * (y * y + z * z),
            2 * (x * y - z * w),
            2 * (x * z + y * w),
            0,
            2 * (x * y + z * w),
            1 - 2 * (x * x + z * z),
            2 * (y * z - x * w),
            0,
            2 * (x * z - y * w),
            2 * (y * z + x * w),
            1 - 2 * (x * x + y * y),
            0,
            0,
            0,
            0,
            1};
}

// A node's rest transform as the file gives it: a matrix, or T * R * S.
Mat RestOf(const json& node) {
    Mat m{};
    if (node.contains("matrix")) {
        for (int c = 0; c < 4; ++c)
            for (int r = 0; r < 4; ++r) m[r * 4 + c] = node["matrix"][c * 4 + r].get<double>();
        return m;
    }
    std::vector<double> t = node.value("translation", std::vector<double>{0, 0, 0});
    std::vector<double> q = node.value("rotation", std::vector<double>{0, 0, 0, 1});
    std::vector<double> s = node.value("scale", std::vector<double>{1, 1, 1});
    m = QuatMatrix(q[0], q[1], q[2], q[3]);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) m[r * 4 + c] *= s[c];
    m[3] = t[0], m[7] = t[1], m[11] = t[2];
    return m;
}

// The host's row-form matrix of a transform, turned to the column convention.
Mat Columns(const ORV::MATH::CTransformation& t) {
    const std::array<double, 16> rows = t.GetMatrix4();
    Mat m;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) m[r * 4 + c] = rows[c * 4 + r];
    return m;
}

// A node's name in the scene: the file's name, or the one Assimp gives an unnamed node, with
// what a scene path cannot hold turned to underscores.
std::string SceneName(const json& doc, int i) {
    const json& n = doc["nodes"][i];
    std::string name = n.contains("name") ? n["name"].get<std::string>() : "nodes[" + std::to_string(i) + "]";
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_') c = '_';
    return name;
}

std::map<std::string, orvhost::Object3D*> ObjectsOf(orvhost::Object3D* model) {
    std::map<std::string, orvhost::Object3D*> out;
    orvhost::WalkObjects(model, true,
                         [&](orvhost::Object3D* o) { out[ORV::CString(o->name).GetAsciiString()] = o; });
    return out;
}

struct Sample {
    std::string file;
    int nodes;
};

class CharacterGltf : public ::testing::TestWithParam<Sample> {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
    }
    void TearDown() override { orvhost::ResetScene(); }

    orvhost::Object3D* Import(const std::string& path, bool animation, const std::wstring& name = L"",
                              const std::wstring& animationName = L"") {
        orvhost::CharacterImportOptions o;
        o.animation = animation;
        o.name = name;
        o.animationName = animationName;
        std::wstring error;
        orvhost::Object3D* m = orvhost::ImportCharacter(path, o, error);
        EXPECT_TRUE(m) << ORV::CString(error).GetAsciiString();
        return m;
    }
};

std::string TempPath(const std::string& name) {
    return std::string(::testing::TempDir()) + "trovo_char_" + std::to_string(::getpid()) + "_" + name;
}

// `relative`: the budget scales with the value (numbers written as text with six significant
// digits, as Assimp's FBX writer does).
void ExpectSameMatrix(const Mat& a, const Mat& b, double tol, const std::string& what,
                      bool relative = false) {
    for (int i = 0; i < 16; ++i)
        EXPECT_NEAR(a[i], b[i], relative ? tol * std::max(1.0, std::fabs(a[i])) : tol)
            << what << " element " << i;
}

}  // namespace

TEST_P(CharacterGltf, JointNamesHierarchyAndRestPoseAreTheFiles) {
    const Glb g = ReadGlb(Data(GetParam().file));
    ASSERT_TRUE(g.ok);
    orvhost::Object3D* model = Import(Data(GetParam().file), false);
    ASSERT_TRUE(model);
    const auto objects = ObjectsOf(model);
    const json& nodes = g.doc["nodes"];
    ASSERT_EQ(GetParam().nodes, static_cast<int>(nodes.size()));
    EXPECT_EQ(nodes.size(), objects.size());
    std::map<int, int> parentOf;
    for (int i = 0; i < static_cast<int>(nodes.size()); ++i)
        for (const json& c : nodes[i].value("children", json::array())) parentOf[c.get<int>()] = i;
    const json& tops = g.doc["scenes"][g.doc.value("scene", 0)]["nodes"];
    for (int i = 0; i < static_cast<int>(nodes.size()); ++i) {
        const std::string name = SceneName(g.doc, i);
        const auto it = objects.find(name);
        ASSERT_NE(it, objects.end()) << name;
        // One top node hangs under the model; several hang there side by side.
        orvhost::Object3D* expectedParent = model;
        if (parentOf.count(i)) expectedParent = objects.at(SceneName(g.doc, parentOf[i]));
        EXPECT_EQ(expectedParent, it->second->parent3D) << name;
        if (!parentOf.count(i)) {
            EXPECT_NE(std::find(tops.begin(), tops.end(), i), tops.end()) << name;
        }
        ExpectSameMatrix(RestOf(nodes[i]), Columns(orvhost::LocalTransform(it->second, 1.0)), 1e-6, name);
    }
}

TEST_P(CharacterGltf, EveryAnimationEvaluatesToTheFilesSamplesAtTheirTimes) {
    const Glb g = ReadGlb(Data(GetParam().file));
    ASSERT_TRUE(g.ok);
    const double rate = 30.0;
    for (const json& anim : g.doc["animations"]) {
        orvhost::ResetScene();
        const std::wstring animName =
            anim.contains("name") ? ORV::CString(anim["name"].get<std::string>().c_str()).GetWideString()
                                  : L"";
        orvhost::Object3D* model = Import(Data(GetParam().file), true, L"", animName);
        ASSERT_TRUE(model);
        const auto objects = ObjectsOf(model);
        int checked = 0;
        for (const json& ch : anim["channels"]) {
            const json& sampler = anim["samplers"][ch["sampler"].get<int>()];
            ASSERT_EQ(sampler.value("interpolation", "LINEAR"), "LINEAR");
            const std::string path = ch["target"]["path"];
            orvhost::Object3D* obj = objects.at(SceneName(g.doc, ch["target"]["node"].get<int>()));
            const auto times = Floats(g, sampler["input"].get<int>());
            const auto values = Floats(g, sampler["output"].get<int>());
            ASSERT_EQ(times.size(), values.size());
            for (std::size_t k = 0; k < times.size(); ++k) {
                const double frame = 1.0 + times[k][0] * rate;
                const ORV::MATH::CTransformation t = orvhost::LocalTransform(obj, frame);
                const std::string where =
                    path + " of " + ORV::CString(obj->name).GetAsciiString() + " at " + std::to_string(frame);
                if (path == "translation") {
                    EXPECT_NEAR(values[k][0], t.GetTranslation().x, 1e-5) << where;
                    EXPECT_NEAR(values[k][1], t.GetTranslation().y, 1e-5) << where;
                    EXPECT_NEAR(values[k][2], t.GetTranslation().z, 1e-5) << where;
                } else if (path == "scale") {
                    EXPECT_NEAR(values[k][0], t.GetScaling().x, 1e-5) << where;
                    EXPECT_NEAR(values[k][1], t.GetScaling().y, 1e-5) << where;
                    EXPECT_NEAR(values[k][2], t.GetScaling().z, 1e-5) << where;
                } else if (path == "rotation") {
                    const auto& q = values[k];
                    const double len = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
                    const Mat want = QuatMatrix(q[0] / len, q[1] / len, q[2] / len, q[3] / len);
                    ORV::MATH::CTransformation r;
                    r.SetRotation(t.GetRotation());
                    ExpectSameMatrix(want, Columns(r), 1e-5, where);
                }
                ++checked;
            }
        }
        EXPECT_GT(checked, 0);
    }
}

TEST_P(CharacterGltf, GlbRoundTripKeepsHierarchyRestPoseAndMotion) {
    const std::string out = TempPath("roundtrip.glb");
    // The motion as the host evaluates it, at every frame of the imported range.
    orvhost::Object3D* model = Import(Data(GetParam().file), true);
    ASSERT_TRUE(model);
    const double in = static_cast<double>(orvhost::ParamValue(orvhost::PlayControl()->FindParam(L"In"), 1.0));
    const double outFrame =
        static_cast<double>(orvhost::ParamValue(orvhost::PlayControl()->FindParam(L"Out"), 1.0));
    ASSERT_LT(in, outFrame);
    std::map<std::string, std::vector<Mat>> motion;
    for (const auto& [name, obj] : ObjectsOf(model))
        for (double f = in; f <= outFrame; f += 1.0)
            motion[name].push_back(Columns(orvhost::LocalTransform(obj, f)));
    std::wstring error;
    ASSERT_TRUE(orvhost::ExportCharacter(out, model, orvhost::CharacterExportOptions(), error))
        << ORV::CString(error).GetAsciiString();

    // The written file holds together: magic, version 2, a JSON chunk that parses, and every
    // accessor inside its buffer view, every view inside its buffer.
    const Glb written = ReadGlb(out);
    ASSERT_TRUE(written.ok);
    EXPECT_EQ("2.0", written.doc["asset"]["version"]);
    for (const json& v : written.doc["bufferViews"]) {
        const std::size_t end = v.value("byteOffset", 0u) + v["byteLength"].get<std::size_t>();
        EXPECT_LE(end, written.doc["buffers"][v.value("buffer", 0)]["byteLength"].get<std::size_t>());
        EXPECT_LE(end, written.bin.size());
    }
    for (const json& a : written.doc["accessors"]) {
        const json& v = written.doc["bufferViews"][a["bufferView"].get<int>()];
        const std::size_t element =
            static_cast<std::size_t>(ComponentCount(a["type"]) * ComponentSize(a["componentType"]));
        const std::size_t stride = v.value("byteStride", element);
        const std::size_t count = a["count"];
        ASSERT_GT(count, 0u);
        EXPECT_LE(a.value("byteOffset", 0u) + (count - 1) * stride + element,
                  v["byteLength"].get<std::size_t>());
    }
    ASSERT_EQ(1u, written.doc["animations"].size());

    // Rest poses of the original and of the written file.
    orvhost::ResetScene();
    orvhost::Object3D* restA = Import(Data(GetParam().file), false, L"A");
    orvhost::Object3D* restB = Import(out, false, L"B");
    ASSERT_TRUE(restA && restB);
    const auto a = ObjectsOf(restA), b = ObjectsOf(restB);
    ASSERT_EQ(a.size(), b.size());
    for (const auto& [name, obj] : a) {
        ASSERT_TRUE(b.count(name)) << name;
        EXPECT_EQ(obj->parent3D == restA, b.at(name)->parent3D == restB) << name;
        if (obj->parent3D != restA) {
            EXPECT_EQ(obj->parent3D->name, b.at(name)->parent3D->name) << name;
        }
        ExpectSameMatrix(Columns(orvhost::LocalTransform(obj, 1.0)),
                         Columns(orvhost::LocalTransform(b.at(name), 1.0)), 1e-6, name);
    }

    // The written motion starts at time 0, which imports at frame 1.
    orvhost::ResetScene();
    orvhost::Object3D* again = Import(out, true);
    ASSERT_TRUE(again);
    for (const auto& [name, obj] : ObjectsOf(again)) {
        ASSERT_TRUE(motion.count(name)) << name;
        const std::vector<Mat>& want = motion.at(name);
        for (std::size_t k = 0; k < want.size(); ++k)
            ExpectSameMatrix(want[k], Columns(orvhost::LocalTransform(obj, 1.0 + static_cast<double>(k))),
                             1e-5, name + " frame " + std::to_string(in + static_cast<double>(k)));
    }
    std::remove(out.c_str());
}

TEST_P(CharacterGltf, FbxAndColladaRoundTripsKeepJointNamesAndRestPose) {
    for (const char* suffix : {"fbx", "dae"}) {
        orvhost::ResetScene();
        const std::string out = TempPath(std::string("roundtrip.") + suffix);
        orvhost::Object3D* model = Import(Data(GetParam().file), true, L"A");
        ASSERT_TRUE(model);
        std::wstring error;
        ASSERT_TRUE(orvhost::ExportCharacter(out, model, orvhost::CharacterExportOptions(), error))
            << suffix << ": " << ORV::CString(error).GetAsciiString();
        orvhost::ResetScene();
        orvhost::Object3D* restA = Import(Data(GetParam().file), false, L"A");
        orvhost::Object3D* restB = Import(out, false, L"B");
        ASSERT_TRUE(restA && restB) << suffix;
        const auto a = ObjectsOf(restA), b = ObjectsOf(restB);
        EXPECT_EQ(a.size(), b.size()) << suffix;
        for (const auto& [name, obj] : a) {
            ASSERT_TRUE(b.count(name)) << suffix << " " << name;
            if (obj->parent3D != restA) {
                EXPECT_EQ(obj->parent3D->name, b.at(name)->parent3D->name) << suffix << " " << name;
            }
            ExpectSameMatrix(Columns(orvhost::LocalTransform(obj, 1.0)),
                             Columns(orvhost::LocalTransform(b.at(name), 1.0)), 1e-5,
                             std::string(suffix) + " " + name, std::string(suffix) == "fbx");
        }
        std::remove(out.c_str());
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, CharacterGltf,
                         ::testing::Values(Sample{"gltf/RiggedSimple/RiggedSimple.glb", 5},
                                           Sample{"gltf/RiggedFigure/RiggedFigure.glb", 22},
                                           Sample{"gltf/Fox/Fox.glb", 26}),
                         [](const auto& info) {
                             std::string f = info.param.file;
                             f = f.substr(f.rfind('/') + 1);
                             return f.substr(0, f.find('.'));
                         });

namespace {

class CharacterFiles : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
    }
    void TearDown() override { orvhost::ResetScene(); }
};

}  // namespace

TEST_F(CharacterFiles, RefusedFileLeavesTheSceneAsItWas) {
    const std::string cut = TempPath("cut.glb");
    {
        const std::vector<unsigned char> whole = ReadAll(Data("gltf/RiggedSimple/RiggedSimple.glb"));
        std::ofstream out(cut, std::ios::binary);
        out.write(reinterpret_cast<const char*>(whole.data()), 6000);
    }
    const std::uint64_t revision = orvhost::TheHost().scene->revision;
    const double out =
        static_cast<double>(orvhost::ParamValue(orvhost::PlayControl()->FindParam(L"Out"), 1.0));
    std::wstring error;
    EXPECT_EQ(nullptr, orvhost::ImportCharacter(cut, orvhost::CharacterImportOptions(), error));
    EXPECT_EQ(L"the file is cut short: it declares 11048 bytes and holds 6000", error);
    orvhost::CharacterImportOptions named;
    named.animationName = L"Trot";
    EXPECT_EQ(nullptr, orvhost::ImportCharacter(Data("gltf/Fox/Fox.glb"), named, error));
    EXPECT_EQ(L"it has no animation named \"Trot\" (its animations: \"Survey\", \"Walk\", \"Run\")", error);
    EXPECT_TRUE(orvhost::Root()->children.empty());
    EXPECT_EQ(revision, orvhost::TheHost().scene->revision);
    EXPECT_EQ(out, static_cast<double>(orvhost::ParamValue(orvhost::PlayControl()->FindParam(L"Out"), 1.0)));
    std::remove(cut.c_str());
}

TEST_F(CharacterFiles, ImportSetsPlayControlToTheAnimationAndLogsRenames) {
    orvhost::ClearLog();
    std::wstring error;
    ASSERT_TRUE(orvhost::ImportCharacter(Data("gltf/RiggedSimple/RiggedSimple.glb"), {}, error));
    // Keys from 1/24 s to 50/24 s (the accessor's min and max) land on frames 2.25 to 63.5 at
    // 30 frames per second.
    EXPECT_EQ(2.0, static_cast<double>(orvhost::ParamValue(orvhost::PlayControl()->FindParam(L"In"), 1.0)));
    EXPECT_EQ(64.0, static_cast<double>(orvhost::ParamValue(orvhost::PlayControl()->FindParam(L"Out"), 1.0)));
    const std::vector<std::wstring> warnings = orvhost::LogTexts(ORV::ovWarning);
    EXPECT_NE(std::find(warnings.begin(), warnings.end(),
                        L"Import: the node \"nodes[3]\" is named \"nodes_3_\" in the scene."),
              warnings.end());
}

// Export samples what the host evaluates, not the curves alone: a null driven by an expression
// moves in the written file.
TEST_F(CharacterFiles, ExportWritesWhatTheHostEvaluates) {
    orvhost::Object3D* model = orvhost::CreateObject(orvhost::Root(), ORV::ovModelID, L"#model", L"Rig");
    orvhost::Object3D* a = orvhost::CreateObject(model, ORV::ovNullID, L"null", L"A");
    orvhost::Object3D* b = orvhost::CreateObject(a, ORV::ovNullID, L"null", L"B");
    orvhost::PutParamValue(b->LocalParam(L"posy"), ORV::CValue(5.0), 1.0);
    orvhost::FCurveItem* curve = orvhost::AddParamCurve(a->LocalParam(L"posx"), ORV::ovStandardFCurve);
    curve->SetKey(1.0, 0.0, ORV::ovLinearInterpolation, DBL_MAX, DBL_MAX, DBL_MAX, DBL_MAX, -1.0);
    curve->SetKey(11.0, 10.0, ORV::ovLinearInterpolation, DBL_MAX, DBL_MAX, DBL_MAX, DBL_MAX, -1.0);
    ORV::CValue result;
    ORV::CValueArray args;
    args.Add(ORV::CValue(L"Rig.B.kine.local.rotz"));
    args.Add(ORV::CValue(L"Rig.A.kine.local.posx * 9"));
    ASSERT_EQ(ORV::CStatus::OK, orvhost::RunCommand(L"SetExpr", args, result));
    const std::string out = TempPath("driven.glb");
    orvhost::CharacterExportOptions range;
    range.range = true;
    range.start = 1.0;
    range.end = 11.0;
    std::wstring error;
    ASSERT_TRUE(orvhost::ExportCharacter(out, model, range, error)) << ORV::CString(error).GetAsciiString();

    orvhost::ResetScene();
    orvhost::Object3D* back = orvhost::ImportCharacter(out, {}, error);
    ASSERT_TRUE(back) << ORV::CString(error).GetAsciiString();
    const auto objects = ObjectsOf(back);
    ASSERT_EQ(2u, objects.size());
    for (int k = 0; k <= 10; ++k) {
        const ORV::MATH::CTransformation g = orvhost::GlobalTransform(objects.at("B"), 1.0 + k);
        // B sits 5 above A, which slides along X; B turns 9 degrees about Z per unit of slide.
        EXPECT_NEAR(static_cast<double>(k), g.GetTranslation().x, 1e-5) << k;
        EXPECT_NEAR(5.0, g.GetTranslation().y, 1e-5) << k;
        EXPECT_NEAR(9.0 * k * 3.14159265358979323846 / 180.0,
                    std::atan2(g.GetRotationMatrix3().Get(0, 1), g.GetRotationMatrix3().Get(0, 0)), 1e-5)
            << k;
    }
    std::remove(out.c_str());
}

// The meshes, skin and materials kept with an imported model survive a saved and reopened
// scene, and export writes them.
TEST_F(CharacterFiles, MeshAndSkinSurviveASavedSceneAndReachTheExport) {
    std::wstring error;
    orvhost::CharacterImportOptions o;
    o.animationName = L"Run";
    ASSERT_TRUE(orvhost::ImportCharacter(Data("gltf/Fox/Fox.glb"), o, error));
    const std::string scene = TempPath("fox.orvscene");
    ASSERT_TRUE(orvhost::SaveScene(scene, error)) << ORV::CString(error).GetAsciiString();
    orvhost::ResetScene();
    ASSERT_TRUE(orvhost::OpenScene(scene, error)) << ORV::CString(error).GetAsciiString();
    orvhost::Object3D* model = dynamic_cast<orvhost::Object3D*>(orvhost::FindByPath(L"Fox"));
    ASSERT_TRUE(model);
    const std::string out = TempPath("fox_again.glb");
    ASSERT_TRUE(orvhost::ExportCharacter(out, model, orvhost::CharacterExportOptions(), error))
        << ORV::CString(error).GetAsciiString();
    const Glb original = ReadGlb(Data("gltf/Fox/Fox.glb"));
    const Glb written = ReadGlb(out);
    ASSERT_TRUE(written.ok);
    EXPECT_EQ(original.doc["meshes"].size(), written.doc["meshes"].size());
    EXPECT_EQ(original.doc["skins"].size(), written.doc["skins"].size());
    EXPECT_EQ(original.doc["skins"][0]["joints"].size(), written.doc["skins"][0]["joints"].size());
    // Assimp may add its default material; the file's own ones are all there.
    for (const json& m : original.doc["materials"]) {
        bool found = false;
        for (const json& w : written.doc["materials"])
            found = found || w.value("name", "") == m.value("name", "");
        EXPECT_TRUE(found) << m.value("name", "");
    }
    ASSERT_EQ(1u, written.doc["animations"].size());
    EXPECT_EQ("Fox", written.doc["animations"][0]["name"]);
    std::remove(scene.c_str());
    std::remove(out.c_str());
}

// Names a model already holds take the host's numeric suffix, as objects made one by one do.
TEST_F(CharacterFiles, TakenNodeNamesGetTheHostsSuffixes) {
    const std::string path = TempPath("names.gltf");
    {
        std::ofstream out(path);
        out << R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[)"
            << R"({"name":"Bone","children":[1,2,3]},{"name":"Bone"},{"name":"Bone1"},{"name":"Arm.L"}]})";
    }
    std::wstring error;
    orvhost::Object3D* model = orvhost::ImportCharacter(path, {}, error);
    ASSERT_TRUE(model) << ORV::CString(error).GetAsciiString();
    std::vector<std::wstring> imported;
    orvhost::WalkObjects(model, true, [&](orvhost::Object3D* o) { imported.push_back(o->name); });

    orvhost::Object3D* byHand = orvhost::CreateObject(orvhost::Root(), ORV::ovModelID, L"#model", L"ByHand");
    std::vector<std::wstring> made;
    orvhost::Object3D* top = orvhost::CreateObject(byHand, ORV::ovNullID, L"null", L"Bone");
    made.push_back(top->name);
    for (const wchar_t* n : {L"Bone", L"Bone1", L"Arm_L"})
        made.push_back(orvhost::CreateObject(top, ORV::ovNullID, L"null", n)->name);
    EXPECT_EQ(made, imported);
    EXPECT_EQ((std::vector<std::wstring>{L"Bone", L"Bone1", L"Bone2", L"Arm_L"}), imported);
    const std::vector<std::wstring> warnings = orvhost::LogTexts(ORV::ovWarning);
    EXPECT_EQ((std::vector<std::wstring>{L"Import: the node \"Bone\" is named \"Bone1\" in the scene.",
                                         L"Import: the node \"Bone1\" is named \"Bone2\" in the scene.",
                                         L"Import: the node \"Arm.L\" is named \"Arm_L\" in the scene."}),
              warnings);
    std::remove(path.c_str());
}

namespace {

// A small sound BVH file: two joints and an end site, two frames.
const char* const kSmallBvh =
    "HIERARCHY\n"
    "ROOT hips\n"
    "{\n"
    "\tOFFSET 0 0 0\n"
    "\tCHANNELS 6 Xposition Yposition Zposition Zrotation Yrotation Xrotation\n"
    "\tJOINT knee\n"
    "\t{\n"
    "\t\tOFFSET 0 -4.5 0.25\n"
    "\t\tCHANNELS 3 Zrotation Yrotation Xrotation\n"
    "\t\tEnd Site\n"
    "\t\t{\n"
    "\t\t\tOFFSET 0. -4 1e-1\n"
    "\t\t}\n"
    "\t}\n"
    "}\n"
    "MOTION\n"
    "Frames: 2\n"
    "Frame Time: 0.0333333\n"
    "0 10 0 0 0 0 0 0 0\n"
    "1 10 0 0 0 0 0 0 45\n";

std::string WriteText(const std::string& name, const std::string& text) {
    const std::string path = TempPath(name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

// Imports `text` as a file named `name`, expecting a refusal with `expected`, the scene as it was.
void ExpectRefused(const std::string& name, const std::string& text, const std::wstring& expected) {
    const std::string path = WriteText(name, text);
    const std::uint64_t revision = orvhost::TheHost().scene->revision;
    std::wstring error;
    EXPECT_EQ(nullptr, orvhost::ImportCharacter(path, orvhost::CharacterImportOptions(), error));
    EXPECT_EQ(expected, error);
    EXPECT_TRUE(orvhost::Root()->children.empty());
    EXPECT_EQ(revision, orvhost::TheHost().scene->revision);
    std::remove(path.c_str());
}

}  // namespace

TEST_F(CharacterFiles, SoundBvhHierarchyImports) {
    const std::string path = WriteText("small.bvh", kSmallBvh);
    std::wstring error;
    orvhost::Object3D* model = orvhost::ImportCharacter(path, orvhost::CharacterImportOptions(), error);
    ASSERT_NE(nullptr, model) << ORV::CString(error).GetAsciiString();
    std::remove(path.c_str());
}

TEST_F(CharacterFiles, BvhHierarchyWithAStrayTokenIsRefused) {
    ExpectRefused(
        "stray.bvh", Replaced(kSmallBvh, "\t\tCHANNELS 3", "\t+\tCHANNELS 3"),
        L"its BVH hierarchy is damaged: line 9 has \"+\" where \"OFFSET\", \"CHANNELS\", \"JOINT\", "
        L"\"End Site\" or \"}\" belongs");
}

TEST_F(CharacterFiles, BvhChannelsAfterAChildJointAreRefused) {
    ExpectRefused(
        "late_channels.bvh", Replaced(kSmallBvh, "\t}\n}\nMOTION", "\t}\n\tCHANNELS 1 Xrotation\n}\nMOTION"),
        L"its BVH hierarchy is damaged: line 15 has \"CHANNELS\" where \"JOINT\", \"End Site\" or \"}\" "
        L"belongs");
}

TEST_F(CharacterFiles, BvhNumbersAndChannelNamesAreChecked) {
    ExpectRefused("number.bvh", Replaced(kSmallBvh, "-4.5", "-4.5x"),
                  L"its BVH hierarchy is damaged: line 8 has \"-4.5x\" where a number of an OFFSET belongs");
    ExpectRefused("channel.bvh", Replaced(kSmallBvh, "3 Zrotation", "3 Zrot"),
                  L"its BVH hierarchy is damaged: line 9 has \"Zrot\" where a channel name (Xposition ... "
                  L"Zrotation) belongs");
    ExpectRefused(
        "cut.bvh", std::string(kSmallBvh).substr(0, std::string(kSmallBvh).find("Yposition")),
        L"its BVH hierarchy is damaged: line 5 has the end of the file where a channel name (Xposition "
        L"... Zrotation) belongs");
}

TEST_F(CharacterFiles, VeryDeepBvhHierarchyIsRefusedBeforeItIsRead) {
    // Deep enough that a reader recursing once per joint would run out of stack.
    std::string text = "HIERARCHY\nROOT j\n{\nOFFSET 0 0 0\n";
    for (int i = 0; i < 150000; ++i) text += "JOINT j\n{\nOFFSET 0 1 0\n";
    ExpectRefused("deep.bvh", text, L"its node hierarchy is deeper than 1000 levels");
}

TEST_F(CharacterFiles, FileIsReadOnlyByTheReaderOfItsSuffix) {
    const std::string path = WriteText("bvh_inside.gltf", kSmallBvh);
    std::wstring error;
    EXPECT_EQ(nullptr, orvhost::ImportCharacter(path, orvhost::CharacterImportOptions(), error));
    EXPECT_EQ(0u, error.rfind(L"Assimp cannot read it: ", 0)) << ORV::CString(error).GetAsciiString();
    EXPECT_TRUE(orvhost::Root()->children.empty());
    std::remove(path.c_str());
}

TEST_F(CharacterFiles, VeryDeepGltfHierarchyIsRefusedBeforeItIsRead) {
    // Deep enough that a reader recursing once per node would run out of stack.
    const int n = 100000;
    std::string text =
        "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":[";
    for (int i = 0; i < n; ++i)
        text += (i ? "," : "") +
                (i < n - 1 ? "{\"children\":[" + std::to_string(i + 1) + "]}" : std::string("{}"));
    text += "]}";
    ExpectRefused("deep.gltf", text, L"its node hierarchy is deeper than 1000 levels");
}

TEST_F(CharacterFiles, GltfNodeAmongItsOwnDescendantsIsRefused) {
    const std::string head =
        "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],\"nodes\":[";
    ExpectRefused("loop.gltf",
                  head +
                      "{\"name\":\"a\",\"children\":[1]},{\"name\":\"b\",\"children\":[2]},{\"name\":\"c\","
                      "\"children\":[1]}]}",
                  L"its node hierarchy loops: node 1 is among its own descendants");
    ExpectRefused("self.gltf", head + "{\"name\":\"a\",\"children\":[0]}]}",
                  L"its node hierarchy loops: node 0 is among its own descendants");
}

TEST_F(CharacterFiles, DeeplyNestedGltfJsonIsRefused) {
    std::string text = "{\"asset\":{\"version\":\"2.0\"},\"extras\":" + std::string(100000, '[') +
                       std::string(100000, ']') + "}";
    ExpectRefused("nested.gltf", text, L"its JSON nests deeper than 1000 levels");
}

TEST_F(CharacterFiles, JointNameInAnotherEncodingImportsAndExportsUnchanged) {
    // "Hüfte" in Latin-1: no UTF-8.
    const std::string latin1 =
        "H\xFC"
        "fte";
    const std::string path = WriteText("latin1.bvh", Replaced(kSmallBvh, "ROOT hips", "ROOT " + latin1));
    std::wstring error;
    orvhost::Object3D* model = orvhost::ImportCharacter(path, orvhost::CharacterImportOptions(), error);
    ASSERT_NE(nullptr, model) << ORV::CString(error).GetAsciiString();
    const std::string out = TempPath("latin1_out.bvh");
    ASSERT_TRUE(orvhost::ExportCharacter(out, model, orvhost::CharacterExportOptions(), error))
        << ORV::CString(error).GetAsciiString();
    const std::vector<unsigned char> written = ReadAll(out);
    EXPECT_NE(std::string(written.begin(), written.end()).find("ROOT " + latin1 + "\n"), std::string::npos);
    std::remove(path.c_str());
    std::remove(out.c_str());
}

TEST_F(CharacterFiles, GltfSkinWithoutInverseBindMatricesIsRefused) {
    const std::string text =
        "{\"asset\":{\"version\":\"2.0\"},\"scene\":0,\"scenes\":[{\"nodes\":[0]}],"
        "\"nodes\":[{\"name\":\"root\",\"children\":[1]},{\"name\":\"bone\"}],"
        "\"skins\":[{\"joints\":[1]}]}";
    ExpectRefused("skin.gltf", text,
                  L"its skin 0 has no inverse bind matrices, which the glTF reader cannot do without");
    // The same with a name that is not UTF-8, which Assimp's JSON parser takes.
    ExpectRefused("skin_latin1.gltf", Replaced(text, "bone", "b\xF6ne"),
                  L"its skin 0 has no inverse bind matrices, which the glTF reader cannot do without");
}
