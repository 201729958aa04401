// Scene files: what survives a save and an open, byte-identical saves, bad files.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "HostTesting.h"
#include "host/RigBuilders.h"

using namespace ORV;
using namespace ORV::MATH;

namespace {

std::string TempPath(const char* name) {
    return std::string(::testing::TempDir()) + "orvscene_" + std::to_string(::getpid()) + "_" + name;
}

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class SceneFile : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
    }
    void TearDown() override {
        for (const std::string& f : files) std::remove(f.c_str());
    }
    std::string Path(const char* name) {
        files.push_back(TempPath(name));
        return files.back();
    }
    static void Save(const std::string& path) {
        std::wstring error;
        ASSERT_TRUE(orvhost::SaveScene(path, error)) << CString(error).GetAsciiString();
        EXPECT_TRUE(error.empty());
    }
    static void Open(const std::string& path) {
        std::wstring error;
        ASSERT_TRUE(orvhost::OpenScene(path, error)) << CString(error).GetAsciiString();
    }
    static X3DObject Find(const wchar_t* path) { return X3DObject(CRef::FromPath(path)); }
    static CTransformation Global(const wchar_t* path, double t) {
        return Find(path).GetKinematics().GetGlobal().GetTransform(t);
    }
    std::vector<std::string> files;
};

// A scene with a bit of everything a scene file holds.
void BuildScene() {
    Model sceneRoot = Application().GetActiveSceneRoot();
    rigs::IKBiped b = rigs::BuildIKBiped(sceneRoot, L"Hero");
    // Curves: linear on the hips, cubic with explicit tangents on a goal, constant on the head.
    FCurve c;
    b.hips.GetKinematics().GetLocal().GetParameter(L"posy").AddFCurve(20, c);
    c.PutInterpolation(ovLinearInterpolation);
    CTimeArray times;
    CValueArray values;
    for (int i = 0; i <= 20; i += 5) {
        times.Add(CTime(double(i)));
        values.Add(CValue(-0.1 * i));
    }
    c.SetKeys(times, values);
    FCurve g;
    b.leftLeg.goal.GetKinematics().GetLocal().GetParameter(L"posz").AddFCurve(20, g);
    g.AddKey(CTime(0.0), CValue(0.0), ovCubicInterpolation, -1, 0, 3, 1.5);
    g.AddKey(CTime(12.0), CValue(2.0), ovCubicInterpolation, -4, -0.5, 2, 0.25);
    g.GetKey(CTime(12.0)).PutConstraint(ovTangentContinuityConstraint, true);
    FCurve h;
    b.head.GetKinematics().GetLocal().GetParameter(L"roty").AddFCurve(20, h);
    h.AddKey(CTime(0.0), CValue(10.0), ovConstantInterpolation);
    h.AddKey(CTime(10.0), CValue(-30.0), ovConstantInterpolation);
    // An expression, a roll, an orientation constraint.
    b.neck.GetKinematics().GetLocal().GetParameter(L"rotz").PutExpression(L"Hero.Hips.kine.local.posy * -20");
    b.rightArm.upper.GetJoint().PutParameterValue(L"roll", CValue(25.0));
    Constraint oc;
    b.head.GetKinematics().AddConstraint(L"Orientation", b.hips, oc);
    // A custom property with a grid, typed values and a reference; a blob.
    CustomProperty cp;
    b.model.AddCustomProperty(L"Data", false, cp);
    Parameter p;
    cp.AddParameter(L"Count", ovInt4, ovPersistable, L"Count", L"how many", CValue(3), CValue(0), CValue(10),
                    CValue(0), CValue(5), p);
    cp.AddParameter(L"Name", ovString, ovPersistable, L"", L"", CValue(L"h\u00e9ros"), p);
    cp.AddParameter(L"On", ovBool, ovPersistable, L"", L"", CValue(true), p);
    cp.AddParameter(L"Scale", ovDouble, ovPersistable | ovAnimatable, L"", L"", CValue(0.1), p);
    cp.AddParameter(L"Target", ovString, ovPersistable, L"", L"", CValue(b.head.GetFullName()), p);
    GridData grid(cp.AddGridParameter(L"Table").GetValue());
    grid.PutColumnCount(3);
    grid.PutRowCount(2);
    grid.PutColumnLabel(0, L"name");
    CValueArray cells;
    cells.Add(CValue(L"a"));
    cells.Add(CValue(1));
    cells.Add(CValue(2.5));
    cells.Add(CValue(L"b"));
    cells.Add(CValue(-4));
    cells.Add(CValue(1e-300));
    grid.PutData(cells);
    Property blobProp;
    b.model.AddProperty(L"UserDataBlob", false, L"Blob", blobProp);
    UserDataBlob blob(blobProp);
    unsigned char bytes[257];
    for (int i = 0; i < 257; ++i) bytes[i] = static_cast<unsigned char>((i * 37) & 0xFF);
    blob.PutValue(bytes, sizeof bytes);
    // A scripted operator with two port groups, as connection lines make them.
    CustomOperator op(
        Application().GetFactory().CreateScriptedOp(L"ConnectionLine", L"var x = 1;\n", L"JScript"));
    op.AddPortGroup(L"MainGroup", 1, 1, L"", L"", 0);
    op.AddOutputPort(b.head.GetKinematics().GetLocal(), L"OutCurve", -1, -1, 0);
    op.AddInputPort(b.head.GetKinematics().GetGlobal(), L"InLineGlobal", -1, -1, 0);
    op.AddPortGroup(L"ObjectGroup", 1, 1, L"", L"", 0);
    op.AddInputPort(b.hips.GetKinematics().GetGlobal(), L"InGlobal1", -1, -1, 0);
    op.Connect(ovConstructionModeAnimation);
    // Selection and play control.
    Application().GetSelection().Add(b.leftArm.goal);
    Application().GetSelection().Add(b.chest);
    Property pc(Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    pc.PutParameterValue(L"Current", CValue(7.0));
    pc.PutParameterValue(L"Out", CValue(250.0));
}

}  // namespace

TEST_F(SceneFile, SavingLoadingAndSavingAgainGivesTheSameBytes) {
    BuildScene();
    const std::string first = Path("first.orvscene"), second = Path("second.orvscene");
    Save(first);
    Open(first);
    Save(second);
    const std::string a = ReadAll(first), b = ReadAll(second);
    ASSERT_FALSE(a.empty());
    EXPECT_EQ(a, b);
}

TEST_F(SceneFile, EverythingSurvivesASaveAndAnOpen) {
    BuildScene();
    const std::string path = Path("all.orvscene");
    Save(path);
    orvhost::NewScene();
    EXPECT_FALSE(Find(L"Hero").IsValid());
    Open(path);

    // Objects, hierarchy, names.
    Model hero(CRef::FromPath(L"Hero"));
    ASSERT_TRUE(hero.IsValid());
    EXPECT_EQ(Find(L"Hero.Head").GetParent(), Find(L"Hero.Neck").GetRef());
    EXPECT_EQ(Find(L"Hero.LeftLegLower").GetParent(), Find(L"Hero.LeftLegBone").GetRef());
    EXPECT_EQ(hero.FindChildren(L"", L"", CStringArray(), true).GetCount(), 7 + 4 * 6);
    // Curves with their keys, interpolation and tangents.
    FCurve goal(Find(L"Hero.LeftLegGoal").GetKinematics().GetLocal().GetParameter(L"posz").GetSource());
    ASSERT_TRUE(goal.IsValid());
    ASSERT_EQ(goal.GetNumKeys(), 2);
    FCurveKey k = goal.GetKeyAtIndex(1);
    EXPECT_EQ(static_cast<double>(k.GetTime()), 12.0);
    EXPECT_EQ(k.GetLeftTanX(), -4.0);
    EXPECT_EQ(k.GetLeftTanY(), -0.5);
    EXPECT_EQ(k.GetRightTanX(), 2.0);
    EXPECT_TRUE(k.GetConstraint(ovTangentContinuityConstraint));
    FCurve hips(Find(L"Hero.Hips").GetKinematics().GetLocal().GetParameter(L"posy").GetSource());
    EXPECT_EQ(hips.GetInterpolation(), ovLinearInterpolation);
    EXPECT_EQ(hips.GetNumKeys(), 5);
    // Expression, roll, constraint, chain, up-vector.
    Expression e(Find(L"Hero.Neck").GetKinematics().GetLocal().GetParameter(L"rotz").GetSource());
    ASSERT_TRUE(e.IsValid());
    EXPECT_EQ(e.GetDefinition(), CString(L"Hero.Hips.kine.local.posy * -20"));
    ChainBone upper(Find(L"Hero.RightArmBone"));
    ASSERT_TRUE(upper.IsValid());
    EXPECT_EQ(static_cast<double>(upper.GetJoint().GetParameterValue(L"roll")), 25.0);
    EXPECT_EQ(upper.GetJoint().GetUpVectorReference(), Find(L"Hero.RightArmUp"));
    EXPECT_EQ(upper.GetIndex(), 0);
    EXPECT_EQ(ChainElement(upper).GetEffector(), Find(L"Hero.RightArmEff"));
    CRefArray cns = Find(L"Hero.Head").GetKinematics().GetConstraints();
    ASSERT_EQ(cns.GetCount(), 1);
    EXPECT_EQ(Constraint(cns[0]).GetName(), CString(L"Orientation Cns"));
    EXPECT_EQ(Constraint(cns[0]).GetConstraining()[0], Find(L"Hero.Hips").GetRef());
    // Custom property, typed values, limits, grid, blob.
    CRefArray props = hero.GetProperties();
    Property data(props.GetItem(L"Data"));
    ASSERT_TRUE(data.IsValid());
    EXPECT_EQ(data.GetParameterValue(L"Count").GetType(), ovInt4);
    EXPECT_EQ(static_cast<int>(data.GetParameterValue(L"Count")), 3);
    EXPECT_EQ(static_cast<int>(data.GetParameter(L"Count").GetMax()), 10);
    EXPECT_EQ(data.GetParameter(L"Count").GetDescription(), CString(L"how many"));
    EXPECT_EQ(data.GetParameterValue(L"Name").GetAsText(), CString(L"h\u00e9ros"));
    EXPECT_EQ(static_cast<bool>(data.GetParameterValue(L"On")), true);
    EXPECT_EQ(static_cast<double>(data.GetParameterValue(L"Scale")), 0.1);
    GridData grid(data.GetParameter(L"Table").GetValue());
    ASSERT_TRUE(grid.IsValid());
    EXPECT_EQ(grid.GetRowCount(), 2);
    EXPECT_EQ(grid.GetColumnCount(), 3);
    EXPECT_EQ(grid.GetColumnLabel(0), CString(L"name"));
    EXPECT_EQ(grid.GetCell(0, 1).GetAsText(), CString(L"b"));
    EXPECT_EQ(static_cast<int>(grid.GetCell(1, 1)), -4);
    EXPECT_EQ(static_cast<double>(grid.GetCell(2, 1)), 1e-300);
    UserDataBlob blob(props.GetItem(L"Blob"));
    ASSERT_TRUE(blob.IsValid());
    const unsigned char* bytes = nullptr;
    unsigned int size = 0;
    ASSERT_EQ(blob.GetValue(bytes, size), CStatus::OK);
    ASSERT_EQ(size, 257u);
    for (unsigned i = 0; i < size; ++i) EXPECT_EQ(bytes[i], static_cast<unsigned char>((i * 37) & 0xFF));
    // Selection and play control.
    ASSERT_EQ(Application().GetSelection().GetCount(), 2);
    EXPECT_EQ(Application().GetSelection()[0], Find(L"Hero.LeftArmGoal").GetRef());
    EXPECT_EQ(Application().GetSelection()[1], Find(L"Hero.Chest").GetRef());
    Property pc(Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    EXPECT_EQ(static_cast<double>(pc.GetParameterValue(L"Current")), 7.0);
    EXPECT_EQ(static_cast<double>(pc.GetParameterValue(L"Out")), 250.0);
}

TEST_F(SceneFile, ScriptedOperatorKeepsItsCodeAndPorts) {
    BuildScene();
    const std::string path = Path("op.orvscene");
    Save(path);
    Open(path);
    CustomOperator op(CRef::FromPath(L"Hero.Head.kine.local.ConnectionLine"));
    ASSERT_TRUE(op.IsValid());
    EXPECT_TRUE(op.IsConnected());
    EXPECT_EQ(op.GetCode(), CString(L"var x = 1;\n"));
    EXPECT_EQ(op.GetLanguage(), CString(L"JScript"));
    ASSERT_EQ(op.GetPortGroups().GetCount(), 2);
    EXPECT_EQ(PortGroup(op.GetPortGroups()[1]).GetIndex(), 1);
    ASSERT_EQ(op.GetInputPorts().GetCount(), 2);
    EXPECT_EQ(Port(op.GetInputPorts()[1]).GetTarget(),
              Find(L"Hero.Hips").GetKinematics().GetGlobal().GetRef());
    ASSERT_EQ(op.GetOutputPorts().GetCount(), 1);
    EXPECT_EQ(Port(op.GetOutputPorts()[0]).GetName(), CString(L"OutCurve"));
}

TEST_F(SceneFile, ReopenedSceneEvaluatesToTheSameTransforms) {
    BuildScene();
    const wchar_t* objects[] = {L"Hero.Hips",          L"Hero.Neck",         L"Hero.Head",
                                L"Hero.LeftLegBone",   L"Hero.LeftLegLower", L"Hero.RightArmBone",
                                L"Hero.RightArmLower", L"Hero.LeftLegGoal"};
    std::vector<CTransformation> before;
    for (double t : {0.0, 10.0, 10.5})
        for (const wchar_t* o : objects) before.push_back(Global(o, t));
    const std::string path = Path("eval.orvscene");
    Save(path);
    orvhost::NewScene();
    Open(path);
    std::size_t i = 0;
    for (double t : {0.0, 10.0, 10.5})
        for (const wchar_t* o : objects) {
            EXPECT_TRUE(Global(o, t).Equals(before[i], 1e-12)) << CString(o).GetAsciiString() << " at " << t;
            ++i;
        }
    // And the motion is not static: the hips move between frames 0 and 10.
    EXPECT_NEAR(Global(L"Hero.Hips", 10.0).GetPosY() - Global(L"Hero.Hips", 0.0).GetPosY(), -1.0, 1e-12);
}

TEST_F(SceneFile, MissingFileKeepsTheSceneAndSaysWhy) {
    Null n;
    ASSERT_EQ(Application().GetActiveSceneRoot().AddNull(L"Keep", n), CStatus::OK);
    const std::string path = TempPath("missing.orvscene");
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(path, error));
    EXPECT_EQ(error, L"Cannot read the scene file \"" + std::wstring(CString(path.c_str()).GetWideString()) +
                         L"\".");
    EXPECT_TRUE(n.IsValid());
}

TEST_F(SceneFile, FileThatIsNotJsonIsRefused) {
    const std::string path = Path("text.orvscene");
    std::ofstream(path) << "objects: none\n";
    Null n;
    ASSERT_EQ(Application().GetActiveSceneRoot().AddNull(L"Keep", n), CStatus::OK);
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(path, error));
    EXPECT_EQ(error, L"The file \"" + std::wstring(CString(path.c_str()).GetWideString()) +
                         L"\" is not a scene file.");
    EXPECT_TRUE(n.IsValid());
}

TEST_F(SceneFile, DamagedSceneKeepsTheOpenScene) {
    BuildScene();
    const std::string path = Path("damaged.orvscene");
    Save(path);
    std::string text = ReadAll(path);
    // Break one curve key: its time becomes text.
    const std::size_t at = text.find("\"keys\"");
    ASSERT_NE(at, std::string::npos);
    const std::size_t num = text.find_first_of("-0123456789", text.find('[', text.find('[', at) + 1));
    const std::size_t end = text.find(',', num);
    text.replace(num, end - num, "\"x\"");
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    orvhost::NewScene();
    Null n;
    ASSERT_EQ(Application().GetActiveSceneRoot().AddNull(L"Keep", n), CStatus::OK);
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(path, error));
    EXPECT_EQ(error, L"The scene file \"" + std::wstring(CString(path.c_str()).GetWideString()) +
                         L"\" cannot be opened: a curve key is malformed.");
    EXPECT_TRUE(n.IsValid());
    EXPECT_EQ(Application().GetActiveSceneRoot().GetChildren().GetCount(), 1);
    EXPECT_FALSE(Find(L"Hero").IsValid());
}

TEST_F(SceneFile, FileOfAnotherVersionIsRefused) {
    const std::string path = Path("v9.orvscene");
    std::ofstream(path) << "{\"format\": \"orvscene\", \"version\": 9, \"objects\": []}\n";
    std::wstring error;
    EXPECT_FALSE(orvhost::OpenScene(path, error));
    EXPECT_EQ(error, L"The scene file \"" + std::wstring(CString(path.c_str()).GetWideString()) +
                         L"\" cannot be opened: its format version 9 is not known.");
}

TEST_F(SceneFile, UnwritablePathIsRefused) {
    std::wstring error;
    EXPECT_FALSE(orvhost::SaveScene("/nonexistent-dir/x.orvscene", error));
    EXPECT_EQ(error, L"Cannot write the scene file \"/nonexistent-dir/x.orvscene\".");
}

TEST_F(SceneFile, NotANumberSurvives) {
    CustomProperty cp;
    ASSERT_EQ(Application().GetActiveSceneRoot().AddCustomProperty(L"Odd", false, cp), CStatus::OK);
    Parameter p;
    ASSERT_EQ(cp.AddParameter(L"Nan", ovDouble, ovPersistable, L"", L"", CValue(std::nan("")), p),
              CStatus::OK);
    ASSERT_EQ(cp.AddParameter(L"Inf", ovDouble, ovPersistable, L"", L"", CValue(-HUGE_VAL), p), CStatus::OK);
    const std::string path = Path("nan.orvscene");
    Save(path);
    Open(path);
    Property odd(Application().GetActiveSceneRoot().GetProperties().GetItem(L"Odd"));
    EXPECT_TRUE(std::isnan(static_cast<double>(odd.GetParameterValue(L"Nan"))));
    EXPECT_EQ(static_cast<double>(odd.GetParameterValue(L"Inf")), -HUGE_VAL);
}
