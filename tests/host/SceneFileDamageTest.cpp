// Damaged scene files: a saved scene with one value of its document replaced at a time, at
// positions spread over the whole file, and a few damages aimed at what a loader must never
// trust (class ids, sizes, indices, times). Opening such a file never crashes; when it fails it
// says so in the host's words and the scene that was open stays exactly as it was; when it
// succeeds the scene evaluates and saves.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "HostTesting.h"

using namespace ORV;
using namespace ORV::MATH;
using nlohmann::json;

namespace {

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void WriteAll(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

class SceneFileDamage : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        base = std::string(::testing::TempDir()) + "orvscene_damage_" + std::to_string(::getpid());
        original = base + "_original.orvscene";
        damaged = base + "_damaged.orvscene";
        snapshot = base + "_snapshot.orvscene";
        Build();
        std::wstring error;
        ASSERT_TRUE(orvhost::SaveScene(original, error));
        ASSERT_TRUE(orvhost::OpenScene(original, error));
        before = Snapshot();
        doc = json::parse(ReadAll(original));
    }
    void TearDown() override {
        for (const std::string& f : {original, damaged, snapshot}) std::remove(f.c_str());
    }

    // A small scene with every kind of thing a scene file holds.
    static void Build() {
        Application app;
        Model rig;
        app.GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", rig);
        Null a, b, up, goal;
        rig.AddNull(L"a", a);
        a.AddNull(L"b", b);
        rig.AddNull(L"up", up);
        rig.AddNull(L"goal", goal);
        a.GetKinematics().GetLocal().PutParameterValue(L"posy", CValue(2.0));
        goal.GetKinematics().GetLocal().PutParameterValue(L"posx", CValue(3.0));
        FCurve c;
        a.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(ovStandardFCurve, c);
        c.AddKey(CTime(0.0), CValue(0.0), ovCubicInterpolation, -1, 0, 2, 1);
        c.AddKey(CTime(10.0), CValue(4.0), ovLinearInterpolation);
        b.GetKinematics().GetLocal().GetParameter(L"rotz").PutExpression(L"Rig.a.kine.local.posx * 10");
        ChainRoot chain;
        rig.Add2DChain(CVector3(0, 0, 0), CVector3(1, 1, 0), CVector3(0, 0, 1), L"Arm", chain);
        ChainBone lower;
        chain.AddBone(CVector3(2, 0, 0), L"ArmLower", lower);
        ChainBone(chain.GetBones()[0]).GetJoint().PutUpVectorReference(up);
        Constraint cns;
        chain.GetEffector().GetKinematics().AddConstraint(L"Position", goal, cns);
        CustomProperty data;
        rig.AddCustomProperty(L"Data", false, data);
        Parameter p;
        data.AddParameter(L"Count", ovInt4, ovPersistable, L"", L"", CValue(3), CValue(0), CValue(9),
                          CValue(1), CValue(5), p);
        data.AddParameter(L"Target", ovString, ovPersistable, L"", L"", CValue(L"Rig.a"), p);
        GridData grid(data.AddGridParameter(L"Table").GetValue());
        grid.PutColumnCount(2);
        grid.PutRowCount(2);
        CValueArray cells;
        for (int i = 0; i < 4; ++i) cells.Add(i % 2 ? CValue(i) : CValue(a.GetRef()));
        grid.PutData(cells);
        Property blob;
        rig.AddProperty(L"UserDataBlob", false, L"Blob", blob);
        const unsigned char bytes[5] = {0, 1, 2, 254, 255};
        UserDataBlob(blob).PutValue(bytes, 5);
        CustomOperator op(app.GetFactory().CreateScriptedOp(L"Line", L"var x;", L"JScript"));
        op.AddPortGroup(L"Main", 1, 1, L"", L"", 0);
        op.AddOutputPort(b.GetKinematics().GetLocal());
        op.AddInputPort(a.GetKinematics().GetGlobal());
        op.Connect(ovConstructionModeAnimation);
        app.GetSelection().Add(b);
    }

    std::string Snapshot() {
        std::wstring error;
        EXPECT_TRUE(orvhost::SaveScene(snapshot, error));
        return ReadAll(snapshot);
    }

    // Opens the damaged document and checks what the host did with it. Gives whether it opened.
    bool Try(const json& damagedDoc, const std::string& what) {
        WriteAll(damaged, damagedDoc.dump(1));
        std::wstring error;
        const bool opened = orvhost::OpenScene(damaged, error);
        if (!opened) {
            const std::wstring file = CString(damaged.c_str()).GetWideString();
            const std::wstring prefix = L"The scene file \"" + file + L"\" cannot be opened: ";
            const bool known =
                error.rfind(prefix, 0) == 0 || error == L"The file \"" + file + L"\" is not a scene file.";
            EXPECT_TRUE(known) << what << ": " << CString(error).GetAsciiString();
            EXPECT_EQ(Snapshot(), before) << what << " changed the open scene";
            return false;
        }
        // It opened: every object evaluates, and the scene saves.
        CRefArray all = Application().GetActiveSceneRoot().FindChildren(L"", L"", CStringArray(), true);
        for (long i = 0; i < all.GetCount(); ++i) {
            X3DObject o(all[i]);
            for (double t : {0.0, 10.5}) {
                const CTransformation g = o.GetKinematics().GetGlobal().GetTransform(t);
                (void)g;
            }
            CRefArray params = o.GetKinematics().GetLocal().GetParameters();
            for (long k = 0; k < params.GetCount(); ++k) Parameter(params[k]).GetValue(5.0);
        }
        Snapshot();
        // Back to the scene the next damage is tried on.
        EXPECT_TRUE(orvhost::OpenScene(original, error));
        EXPECT_EQ(Snapshot(), before);
        return true;
    }

    std::string base, original, damaged, snapshot, before;
    json doc;
};

// Every node of the document, as a JSON pointer, in document order.
void Pointers(const json& j, const json::json_pointer& at, std::vector<json::json_pointer>& out) {
    out.push_back(at);
    if (j.is_object()) {
        for (auto it = j.begin(); it != j.end(); ++it) Pointers(it.value(), at / it.key(), out);
    } else if (j.is_array()) {
        for (std::size_t i = 0; i < j.size(); ++i) Pointers(j[i], at / i, out);
    }
}

}  // namespace

TEST_F(SceneFileDamage, AnyOneDamagedValueIsRefusedOrOpensAndNeverHurtsTheOpenScene) {
    std::vector<json::json_pointer> all;
    Pointers(doc, json::json_pointer(), all);
    ASSERT_GT(all.size(), 500u);
    const json replacements[] = {json(nullptr), json("x"),      json(-1),          json(1e300),
                                 json::array(), json::object(), json(4294967297LL)};
    // About 150 places spread evenly over the file, the root itself excepted.
    const std::size_t stride = all.size() / 150 + 1;
    std::size_t tried = 0, refused = 0;
    for (std::size_t i = 1; i < all.size(); i += stride) {
        for (const json& r : replacements) {
            json d = doc;
            d[all[i]] = r;
            if (!Try(d, all[i].to_string() + " = " + r.dump())) ++refused;
            ++tried;
        }
    }
    EXPECT_GT(tried, 700u);
    EXPECT_GT(refused, tried / 4);
}

TEST_F(SceneFileDamage, ClassIdsFromTheFileAreChecked) {
    // A property that calls itself a model, an object that calls itself a property, a
    // primitive that calls itself a blob: each is refused, none is believed.
    std::size_t objectWithProperty = 0;
    for (std::size_t i = 0; i < doc["objects"].size(); ++i)
        if (!doc["objects"][i]["properties"].empty()) objectWithProperty = i;
    json d = doc;
    d["objects"][objectWithProperty]["properties"][0]["class"] = ovModelID;
    EXPECT_FALSE(Try(d, "property class 74"));
    d = doc;
    d["objects"][1]["class"] = ovPropertyID;
    EXPECT_FALSE(Try(d, "object class 5"));
    d = doc;
    d["objects"][1]["class"] = 99999999;
    EXPECT_FALSE(Try(d, "object class unknown"));
    for (std::size_t i = 0; i < doc["objects"].size(); ++i)
        if (doc["objects"][i].contains("primitive")) {
            d = doc;
            d["objects"][i]["primitive"]["class"] = ovUserDataBlobID;
            EXPECT_FALSE(Try(d, "primitive class 12"));
            break;
        }
}

TEST_F(SceneFileDamage, SizesIndicesAndTimesFromTheFileAreChecked) {
    // Find the grid, the curve and an operator port in the document.
    json::json_pointer grid, keys, port;
    std::vector<json::json_pointer> all;
    Pointers(doc, json::json_pointer(), all);
    for (const json::json_pointer& p : all) {
        const std::string s = p.to_string();
        if (grid.empty() && s.size() > 5 && s.compare(s.size() - 5, 5, "/grid") == 0) grid = p;
        if (keys.empty() && s.size() > 5 && s.compare(s.size() - 5, 5, "/keys") == 0) keys = p;
    }
    ASSERT_FALSE(grid.empty());
    ASSERT_FALSE(keys.empty());
    json d = doc;
    d[grid]["rows"] = 1000000000000LL;
    d[grid]["cols"] = 1000000000000LL;
    EXPECT_FALSE(Try(d, "a huge grid"));
    d = doc;
    d[grid]["rows"] = 4611686018427387904LL;  // rows * cols wraps around to 0 in 64 bits
    d[grid]["cols"] = 4;
    d[grid]["data"] = json::array();
    EXPECT_FALSE(Try(d, "a grid whose size wraps"));
    d = doc;
    d[keys][0][0] = "nan";
    EXPECT_FALSE(Try(d, "a key at no time"));
    d = doc;
    d[keys][1][0] = d[keys][0][0];
    EXPECT_FALSE(Try(d, "two keys at one time"));
    d = doc;
    d["objects"][2]["parent"] = 5;  // a parent that comes later
    EXPECT_FALSE(Try(d, "a forward parent"));
    d = doc;
    d["operators"][0]["ports"][0]["target"]["object"] = 1000;
    EXPECT_FALSE(Try(d, "a port on nothing"));
    d = doc;
    d["objects"][1]["name"] = "";
    EXPECT_FALSE(Try(d, "an object without a name"));
}

TEST_F(SceneFileDamage, TruncatedFileIsRefusedAtAnyLength) {
    const std::string text = ReadAll(original);
    for (std::size_t n = 0; n < text.size(); n += text.size() / 60 + 1) {
        WriteAll(damaged, text.substr(0, n));
        std::wstring error;
        EXPECT_FALSE(orvhost::OpenScene(damaged, error)) << n;
        EXPECT_EQ(error, L"The file \"" + std::wstring(CString(damaged.c_str()).GetWideString()) +
                             L"\" is not a scene file.");
        EXPECT_EQ(Snapshot(), before);
    }
}

namespace {

// The text of a value of `levels` arrays, each holding the next, around one integer, as the
// file writes it. Built as text: copying a deep document copies it level by level.
std::string NestedValueText(int levels) {
    std::string text = "[" + std::to_string(ovInt4) + ",7]";
    const std::string open = "[" + std::to_string(ovArray) + ",[";
    std::string head, tail;
    for (int i = 0; i < levels; ++i) {
        head += open;
        tail += "]]";
    }
    return head + text + tail;
}

// The document's text with the value of the first object's attribute "deep" spliced in.
std::string WithDeepAttribute(json d, const std::string& valueText) {
    d["objects"][1]["attributes"]["deep"] = "@deep@";
    std::string text = d.dump();
    text.replace(text.find("\"@deep@\""), 8, valueText);
    return text;
}

// Plain arrays `levels` deep.
json NestedArrays(int levels) {
    json v = json::array();
    for (int i = 1; i < levels; ++i) v = json::array({v});
    return v;
}

}  // namespace

TEST_F(SceneFileDamage, ParameterListedTwiceInOneKinematicStateIsRefused) {
    // The first entry's grid holds a reference that waits for every object to exist; the second
    // entry of the same name would shrink that grid under it.
    WriteAll(damaged, R"({"format": "orvscene", "version": 1, "objects": [{"class": 74, "type": "#model", )"
                      R"("name": "Scene_Root", "parent": -1, "kine": {"local": [{"name": "posx", "type": 5, )"
                      R"("grid": {"rows": 2, "cols": 2, "data": [[0], [0], [0], [13, {"object": 0}]]}}, )"
                      R"({"name": "posx", "type": 5, "grid": {"rows": 1, "cols": 1, "data": [[0]]}}]}}]})");
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(damaged, error));
    EXPECT_EQ(error, L"The scene file \"" + std::wstring(CString(damaged.c_str()).GetWideString()) +
                         L"\" cannot be opened: the parameter \"posx\" is listed twice.");
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(SceneFileDamage, ParameterListedTwiceInACustomPropertyIsRefused) {
    json d = doc;
    bool done = false;
    for (json& o : d["objects"])
        for (json& p : o["properties"])
            if (!done && p["name"] == "Data") {
                p["params"].push_back(p["params"][0]);
                done = true;
            }
    ASSERT_TRUE(done);
    WriteAll(damaged, d.dump(1));
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(damaged, error));
    EXPECT_EQ(error, L"The scene file \"" + std::wstring(CString(damaged.c_str()).GetWideString()) +
                         L"\" cannot be opened: the parameter \"Count\" is listed twice.");
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(SceneFileDamage, GridWhoseDataDoesNotMatchItsSizeIsRefused) {
    std::vector<json::json_pointer> all;
    Pointers(doc, json::json_pointer(), all);
    json::json_pointer grid;
    for (const json::json_pointer& p : all) {
        const std::string s = p.to_string();
        if (grid.empty() && s.size() > 5 && s.compare(s.size() - 5, 5, "/grid") == 0) grid = p;
    }
    ASSERT_FALSE(grid.empty());
    ASSERT_EQ(doc[grid]["data"].size(), 4u);  // 2 x 2
    const std::wstring expected = L"The scene file \"" +
                                  std::wstring(CString(damaged.c_str()).GetWideString()) +
                                  L"\" cannot be opened: a grid is malformed.";
    for (std::size_t cells : {3u, 5u, 0u}) {
        json d = doc;
        json data = json::array();
        for (std::size_t i = 0; i < cells; ++i) data.push_back(json::array({static_cast<int>(ovInt4), 1}));
        d[grid]["data"] = data;
        WriteAll(damaged, d.dump(1));
        std::wstring error;
        EXPECT_FALSE(orvhost::OpenScene(damaged, error)) << cells;
        EXPECT_EQ(error, expected) << cells;
        EXPECT_EQ(Snapshot(), before);
    }
    // Rows and columns that multiply to the same count do not match either.
    json d = doc;
    d[grid]["rows"] = 1;
    d[grid]["cols"] = 3;
    WriteAll(damaged, d.dump(1));
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(damaged, error));
    EXPECT_EQ(error, expected);
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(SceneFileDamage, ValuesNestedThousandsOfArraysDeepAreRefused) {
    WriteAll(damaged, WithDeepAttribute(doc, NestedValueText(5000)));
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(damaged, error));
    EXPECT_EQ(error, L"The scene file \"" + std::wstring(CString(damaged.c_str()).GetWideString()) +
                         L"\" cannot be opened: it nests deeper than 1000 levels.");
    EXPECT_EQ(Snapshot(), before);
}

TEST_F(SceneFileDamage, NestingUpToAThousandLevelsOpens) {
    // The document itself is the first level: 999 arrays below it make 1000.
    json d = doc;
    d["padding"] = NestedArrays(999);
    WriteAll(damaged, d.dump());
    std::wstring error;
    EXPECT_TRUE(orvhost::OpenScene(damaged, error)) << CString(error).GetAsciiString();
    d["padding"] = NestedArrays(1000);
    WriteAll(damaged, d.dump());
    EXPECT_FALSE(orvhost::OpenScene(damaged, error));
    EXPECT_EQ(error, L"The scene file \"" + std::wstring(CString(damaged.c_str()).GetWideString()) +
                         L"\" cannot be opened: it nests deeper than 1000 levels.");
}

TEST_F(SceneFileDamage, DeepButAllowedValueSurvivesSaveAndOpen) {
    WriteAll(damaged, WithDeepAttribute(doc, NestedValueText(400)));
    std::wstring error;
    ASSERT_TRUE(orvhost::OpenScene(damaged, error)) << CString(error).GetAsciiString();
    const std::string saved = Snapshot();
    EXPECT_NE(saved.find("\"deep\""), std::string::npos);
    ASSERT_TRUE(orvhost::OpenScene(snapshot, error)) << CString(error).GetAsciiString();
    EXPECT_EQ(Snapshot(), saved);
}

TEST_F(SceneFileDamage, FloatBeyondItsRangeIsRefused) {
    json d = doc;
    d["objects"][1]["attributes"]["f"] = json::array({static_cast<int>(ovFloat), 1e300});
    WriteAll(damaged, d.dump());
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(damaged, error));
    EXPECT_EQ(error, L"The scene file \"" + std::wstring(CString(damaged.c_str()).GetWideString()) +
                         L"\" cannot be opened: a value is malformed.");
    EXPECT_EQ(Snapshot(), before);
    d["objects"][1]["attributes"]["f"] = json::array({static_cast<int>(ovFloat), "inf"});
    WriteAll(damaged, d.dump());
    EXPECT_TRUE(orvhost::OpenScene(damaged, error)) << CString(error).GetAsciiString();
}
