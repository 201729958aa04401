// Custom operators of a plug-in: creation, ports, evaluation order, cycles, caching, user data,
// deletion; and a scene with operators, a blob and a grid reopened in a new process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "HostTesting.h"
#include "host/RigBuilders.h"

#ifndef ORV_OPPLUGIN_PATH
#error "host_tests needs the operator plug-in: add_subdirectory(opplugin) in tests/host/CMakeLists.txt"
#endif

using namespace ORV;
using namespace ORV::MATH;

namespace {

std::string Narrow(const std::wstring& w) { return CString(w).GetAsciiString(); }

class Op : public ::testing::Test {
protected:
    void SetUp() override {
        std::wstring error;
        ASSERT_TRUE(orvhost::LoadPlugin(ORV_OPPLUGIN_PATH, error)) << Narrow(error);
        orvhost::ResetScene();
        orvhost::ClearLog();
        Model m;
        ASSERT_EQ(app.GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", m), CStatus::OK);
        rig = m;
        source = rigs::AddNullAt(rig, L"Source", CVector3(1, 2, 3));
        target = rigs::AddNullAt(rig, L"Target", CVector3(-4, 0, 0));
        other = rigs::AddNullAt(rig, L"Other", CVector3(0, 0, 9));
        // The source moves along X over ten frames.
        FCurve c;
        ASSERT_EQ(source.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(20, c), CStatus::OK);
        ASSERT_EQ(c.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation), CStatus::OK);
        ASSERT_EQ(c.AddKey(CTime(10.0), CValue(10.0), ovLinearInterpolation), CStatus::OK);
        orvhost::ClearLog();
    }
    // The operators of a test end with it (their _Term frees what their _Init made).
    void TearDown() override { orvhost::ResetScene(); }
    // An operator of a type with its output on `out` and its inputs in group 0.
    CustomOperator Make(const wchar_t* type, const CRef& out, std::initializer_list<CRef> inputs) {
        CustomOperator op(app.GetFactory().CreateObject(type));
        EXPECT_TRUE(op.IsValid());
        op.AddOutputPort(out);
        for (const CRef& in : inputs) op.AddInputPort(in);
        EXPECT_EQ(op.Connect(), CStatus::OK);
        return op;
    }
    static KinematicState Global(X3DObject o) { return o.GetKinematics().GetGlobal(); }
    static CVector3 Pos(X3DObject o, double t) { return Global(o).GetTransform(t).GetTranslation(); }
    // Verbose log lines of operator updates, in order.
    static std::vector<std::wstring> Updates() { return orvhost::LogTexts(ovVerbose); }
    static std::size_t CountOf(const std::wstring& prefix) {
        std::size_t n = 0;
        for (const std::wstring& s : orvhost::LogTexts(0))
            if (s.rfind(prefix, 0) == 0) ++n;
        return n;
    }
    Application app;
    Model rig;
    Null source, target, other;
};

}  // namespace

TEST_F(Op, FactoryMakesOperatorsOfRegisteredTypesOnly) {
    CRef op = app.GetFactory().CreateObject(L"FollowOp");
    ASSERT_TRUE(op.IsValid());
    EXPECT_TRUE(op.IsA(128));
    EXPECT_EQ(CustomOperator(op).GetName(), CString(L"FollowOp"));
    EXPECT_FALSE(CustomOperator(op).IsConnected());
    EXPECT_FALSE(app.GetFactory().CreateObject(L"NoSuchOp").IsValid());
}

TEST_F(Op, OperatorWritesItsOutputAsAResultNotAnEdit) {
    Make(L"FollowOp", Global(target), {Global(source)});
    const std::uint64_t revision = orvhost::TheHost().scene->revision;
    for (double t : {0.0, 2.5, 7.75}) EXPECT_TRUE(Pos(target, t).Equals(CVector3(t, 2, 3), 1e-12)) << t;
    EXPECT_EQ(orvhost::TheHost().scene->revision, revision);
    // The target's own parameters keep their value.
    auto* posx = dynamic_cast<orvhost::ParamItem*>(
        orvhost::TheStore().Resolve(target.GetKinematics().GetLocal().GetParameter(L"posx")));
    ASSERT_NE(posx, nullptr);
    EXPECT_EQ(static_cast<double>(posx->value), -4.0);
}

TEST_F(Op, OperatorReadingAStateDrivenByAnotherRunsAfterIt) {
    Make(L"FollowOp", Global(target), {Global(source)});
    Make(L"ShiftOp", Global(other), {Global(target)});
    EXPECT_TRUE(Pos(other, 3.0).Equals(CVector3(3, 3, 3), 1e-12));
    const std::vector<std::wstring> updates = Updates();
    ASSERT_EQ(updates.size(), 2u);
    EXPECT_EQ(updates[0], L"FollowOp_Update 1 at 3");
    EXPECT_EQ(updates[1], L"ShiftOp_Update 1 at 3");
}

TEST_F(Op, ReadOfItsOwnOutputGetsTheValueWithoutTheOperator) {
    Make(L"SelfOp", Global(target), {});
    EXPECT_TRUE(Pos(target, 1.0).Equals(CVector3(-4, 0, 1), 1e-12));
    EXPECT_EQ(CountOf(L"SelfOp_Update"), 1u);
}

TEST_F(Op, CycleBetweenTwoOperatorsEndsAtTheRunningOne) {
    Make(L"ShiftOp", Global(target), {Global(other)});
    Make(L"ShiftOp", Global(other), {Global(target)});
    // Reading the target runs its operator, which reads Other, whose operator reads the target
    // while the target's operator runs: that read gets the target without it (y = 0), so Other
    // is at 1 and the target at 2. Each operator ran once.
    EXPECT_NEAR(Pos(target, 0.0).y, 2.0, 1e-12);
    EXPECT_NEAR(Pos(other, 0.0).y, 1.0, 1e-12);
    EXPECT_EQ(CountOf(L"ShiftOp_Update"), 2u);
}

TEST_F(Op, OperatorThatDoesNotWriteLeavesTheValue) {
    Make(L"IdleOp", Global(target), {Global(source)});
    EXPECT_TRUE(Pos(target, 4.0).Equals(CVector3(-4, 0, 0), 1e-12));
    EXPECT_EQ(CountOf(L"IdleOp_Update"), 1u);
}

TEST_F(Op, CachedValueIsReusedUntilAnEdit) {
    Make(L"FollowOp", Global(target), {Global(source)});
    EXPECT_NEAR(Pos(target, 3.0).x, 3.0, 1e-12);
    EXPECT_NEAR(Pos(target, 3.0).x, 3.0, 1e-12);
    EXPECT_EQ(CountOf(L"FollowOp_Update"), 1u);
    // Any edit, even of something the operator does not read, drops the cache.
    ASSERT_EQ(other.GetKinematics().GetLocal().GetParameter(L"posz").PutValue(CValue(1.0)), CStatus::OK);
    EXPECT_NEAR(Pos(target, 3.0).x, 3.0, 1e-12);
    EXPECT_EQ(CountOf(L"FollowOp_Update"), 2u);
    // An edit of its input changes the value.
    ASSERT_EQ(source.GetKinematics().GetLocal().GetParameter(L"posy").PutValue(CValue(-6.0)), CStatus::OK);
    EXPECT_NEAR(Pos(target, 3.0).y, -6.0, 1e-12);
    // Another time is another value.
    EXPECT_NEAR(Pos(target, 3.5).x, 3.5, 1e-12);
    EXPECT_EQ(CountOf(L"FollowOp_Update"), 4u);
}

TEST_F(Op, AlwaysEvaluateRunsAtEveryRead) {
    CustomOperator op = Make(L"FollowOp", Global(target), {Global(source)});
    ASSERT_EQ(op.PutAlwaysEvaluate(true), CStatus::OK);
    EXPECT_TRUE(op.GetAlwaysEvaluate());
    Pos(target, 3.0);
    Pos(target, 3.0);
    Pos(target, 3.0);
    EXPECT_EQ(CountOf(L"FollowOp_Update"), 3u);
}

TEST_F(Op, ParameterInputArrivesAsItsValue) {
    CustomProperty cp;
    ASSERT_EQ(rig.AddCustomProperty(L"Knobs", false, cp), CStatus::OK);
    Parameter shift;
    ASSERT_EQ(cp.AddParameter(L"Shift", ovDouble, ovAnimatable, L"", L"", CValue(2.5), shift), CStatus::OK);
    Make(L"ShiftOp", Global(target), {Global(source), shift});
    EXPECT_NEAR(Pos(target, 1.0).y, 4.5, 1e-12);
    ASSERT_EQ(shift.PutValue(CValue(-1.0)), CStatus::OK);
    EXPECT_NEAR(Pos(target, 1.0).y, 1.0, 1e-12);
}

TEST_F(Op, PortGroupsAndPortsAreIndexedInOrder) {
    CustomOperator op(app.GetFactory().CreateObject(L"ShiftOp"));
    PortGroup g0 = op.AddPortGroup(L"Main", 1, 1, L"", L"", 0);
    PortGroup g1 = op.AddPortGroup(L"More", 1, 1, L"", L"", 0);
    EXPECT_EQ(g0.GetIndex(), 0);
    EXPECT_EQ(g1.GetIndex(), 1);
    Port out = op.AddOutputPort(Global(target), L"Out", 0, -1, 0);
    Port in0 = op.AddInputPort(Global(source), L"In", 0, -1, 0);
    Port in1 = op.AddInputPort(Global(other), L"Late", -1, -1, 0);
    EXPECT_TRUE(out.IsOutput());
    EXPECT_FALSE(in0.IsOutput());
    EXPECT_EQ(in0.GetIndex(), 0);
    EXPECT_EQ(out.GetIndex(), 0);
    EXPECT_EQ(in1.GetIndex(), 0);
    EXPECT_EQ(in1.GetTarget(), Global(other).GetRef());
    EXPECT_EQ(op.GetInputPorts().GetCount(), 2);
    EXPECT_EQ(op.GetOutputPorts().GetCount(), 1);
    ASSERT_EQ(op.Connect(ovConstructionModeAnimation), CStatus::OK);
    // Input 0 of group 0 is the source; group 1's input is not input 1 of group 0.
    EXPECT_TRUE(Pos(target, 2.0).Equals(CVector3(2, 3, 3), 1e-12));
}

TEST_F(Op, OperatorWithoutOutputCannotConnect) {
    CustomOperator op(app.GetFactory().CreateObject(L"FollowOp"));
    op.AddInputPort(Global(source));
    EXPECT_NE(op.Connect(), CStatus::OK);
    EXPECT_FALSE(op.IsConnected());
}

TEST_F(Op, UnconnectedOperatorDoesNothing) {
    CustomOperator op(app.GetFactory().CreateObject(L"FollowOp"));
    op.AddOutputPort(Global(target));
    op.AddInputPort(Global(source));
    EXPECT_TRUE(Pos(target, 5.0).Equals(CVector3(-4, 0, 0), 1e-12));
    EXPECT_EQ(CountOf(L"FollowOp_"), 0u);
}

TEST_F(Op, UserDataLastsFromInitToTerm) {
    CustomOperator op = Make(L"FollowOp", Global(target), {Global(source)});
    EXPECT_EQ(CountOf(L"FollowOp_Init"), 1u);
    Pos(target, 1.0);
    Pos(target, 2.0);
    Pos(target, 3.0);
    CValueArray args;
    args.Add(CValue(op.GetFullName()));
    CValue result;
    ASSERT_EQ(app.ExecuteCommand(L"DeleteObj", args, result), CStatus::OK);
    EXPECT_FALSE(op.IsValid());
    const std::vector<std::wstring> info = orvhost::LogTexts(ovInfo);
    ASSERT_FALSE(info.empty());
    EXPECT_EQ(info.back(), L"FollowOp_Term 3");
    EXPECT_TRUE(Pos(target, 3.0).Equals(CVector3(-4, 0, 0), 1e-12));
}

TEST_F(Op, EnumElementsOnAKinematicStateListsItsOperators) {
    Make(L"FollowOp", Global(target), {Global(source)});
    Make(L"IdleOp", Global(target), {});
    CValueArray args;
    args.Add(CValue(L"Rig.Target.kine.global"));
    CValue result;
    ASSERT_EQ(app.ExecuteCommand(L"EnumElements", args, result), CStatus::OK);
    std::vector<std::wstring> names;
    const CValueArray& items = result;
    for (long i = 0; i < items.GetCount(); ++i) {
        CRef r = items[i];
        if (r.IsA(128)) names.push_back(CustomOperator(r).GetName().GetWideString());
    }
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0], L"FollowOp");
    EXPECT_EQ(names[1], L"IdleOp");
}

TEST_F(Op, DeletingTheDrivenObjectRunsTerm) {
    Make(L"FollowOp", Global(target), {Global(source)});
    Pos(target, 1.0);
    orvhost::DeleteItem(orvhost::TheStore().Resolve(target.GetRef()));
    EXPECT_EQ(orvhost::LogTexts(ovInfo).back(), L"FollowOp_Term 1");
}

TEST_F(Op, DeletedInputLeavesTheOperatorWithoutIt) {
    Make(L"ShiftOp", Global(target), {Global(other)});
    orvhost::DeleteItem(orvhost::TheStore().Resolve(other.GetRef()));
    // The input is gone: the operator reads an invalid state, an identity pose, moved up by 1.
    EXPECT_TRUE(Pos(target, 1.0).Equals(CVector3(0, 1, 0), 1e-12));
}

TEST_F(Op, NowIsTheCurrentFrameOfPlayControl) {
    Make(L"FollowOp", Global(target), {Global(source)});
    Property pc(app.GetActiveProject().GetProperties().GetItem(L"Play Control"));
    ASSERT_EQ(pc.PutParameterValue(L"Current", CValue(6.5)), CStatus::OK);
    EXPECT_NEAR(Global(target).GetTransform().GetPosX(), 6.5, 1e-12);
    EXPECT_EQ(Updates().back(), L"FollowOp_Update 1 at 6.5");
}

TEST_F(Op, NowInsideAnOperatorIsItsOwnEvaluationTime) {
    Make(L"NowOp", Global(target), {Global(source)});
    Property pc(app.GetActiveProject().GetProperties().GetItem(L"Play Control"));
    ASSERT_EQ(pc.PutParameterValue(L"Current", CValue(2.0)), CStatus::OK);
    // A read at frame 7 away from the play head: the operator's "now" is frame 7.
    EXPECT_NEAR(Pos(target, 7.0).GetX(), 7.0, 1e-12);
    EXPECT_NEAR(Global(target).GetTransform().GetPosX(), 2.0, 1e-12);
    // Outside an operator "now" is still the play head.
    EXPECT_NEAR(Global(source).GetTransform(ovNow).GetPosX(), 2.0, 1e-12);
}

TEST_F(Op, ScriptedOperatorIsKeptAndNotRun) {
    CustomOperator op(app.GetFactory().CreateScriptedOp(L"ConnectionLine", L"function x(){}", L"JScript"));
    ASSERT_TRUE(op.IsValid());
    EXPECT_TRUE(op.IsA(128));
    op.AddPortGroup(L"MainGroup", 1, 1, L"", L"", 0);
    op.AddOutputPort(Global(target), L"OutCurve", -1, -1, 0);
    op.AddInputPort(Global(source), L"InGlobal1", -1, -1, 0);
    ASSERT_EQ(op.Connect(4), CStatus::OK);
    EXPECT_EQ(op.GetCode(), CString(L"function x(){}"));
    EXPECT_TRUE(Pos(target, 5.0).Equals(CVector3(-4, 0, 0), 1e-12));
}

TEST_F(Op, OperatorDrivesAnIKGoal) {
    rigs::IKBiped b = rigs::BuildIKBiped(rig, L"Biped");
    // The left hand's goal follows the source (moved to reach): the hand follows both.
    Null reach = rigs::AddNullAt(rig, L"Reach", CVector3(4, 15, 1));
    Make(L"FollowOp", Global(b.leftArm.goal), {Global(reach)});
    CVector3 end;
    end.MulByTransformation(CVector3(b.leftArm.lower.GetLength(), 0, 0),
                            Global(b.leftArm.lower).GetTransform(2.0));
    EXPECT_TRUE(end.Equals(CVector3(4, 15, 1), 1e-9));
}

TEST_F(Op, NewSceneEndsTheOperatorsAndTellsThePlugIns) {
    std::wstring error;
    ASSERT_TRUE(orvhost::LoadPlugin(ORV_TESTPLUGIN_PATH, error)) << Narrow(error);
    Make(L"FollowOp", Global(target), {Global(source)});
    Pos(target, 1.0);
    orvhost::NewScene();
    EXPECT_EQ(orvhost::LogTexts(ovInfo), (std::vector<std::wstring>{L"FollowOp_Init", L"FollowOp_Term 1",
                                                                    L"Test plug-in heard a new scene."}));
}

TEST_F(Op, OpenedSceneStartsItsOperatorsAndTellsThePlugIns) {
    std::wstring error;
    ASSERT_TRUE(orvhost::LoadPlugin(ORV_TESTPLUGIN_PATH, error)) << Narrow(error);
    Make(L"FollowOp", Global(target), {Global(source)});
    const std::string path =
        std::string(::testing::TempDir()) + "orvscene_open_" + std::to_string(::getpid());
    ASSERT_TRUE(orvhost::SaveScene(path, error)) << Narrow(error);
    orvhost::ClearLog();
    ASSERT_TRUE(orvhost::OpenScene(path, error)) << Narrow(error);
    std::remove(path.c_str());
    // The old scene's operator ends, the new one starts, then the plug-ins hear of it.
    EXPECT_EQ(orvhost::LogTexts(ovInfo), (std::vector<std::wstring>{L"FollowOp_Init", L"FollowOp_Term 0",
                                                                    L"Test plug-in heard an opened scene."}));
    X3DObject t(CRef::FromPath(L"Rig.Target"));
    EXPECT_TRUE(Pos(t, 4.0).Equals(CVector3(4, 2, 3), 1e-12));
}

// --- A scene with an operator, a blob and a grid, reopened in a new process ---------------------

namespace {

// The global poses of all objects of the model "Hero" at a time, in full precision.
std::string Dump(double t) {
    std::string out;
    CRefArray all = X3DObject(CRef::FromPath(L"Hero")).FindChildren(L"", L"", CStringArray(), true);
    for (long i = 0; i < all.GetCount(); ++i) {
        X3DObject o(all[i]);
        const CTransformation g = o.GetKinematics().GetGlobal().GetTransform(t);
        const CQuaternion q = g.GetRotationQuaternion();
        const double v[10] = {g.GetPosX(),      g.GetPosY(),      g.GetPosZ(),     q.w, q.x, q.y, q.z,
                              g.GetScaling().x, g.GetScaling().y, g.GetScaling().z};
        out += o.GetName().GetAsciiString();
        for (double d : v) {
            char buf[40];
            std::snprintf(buf, sizeof buf, " %.17g", d);
            out += buf;
        }
        out += ";";
    }
    return out;
}

// The scene: the IK biped; a blob holding (1, 2, 3); a property with a grid whose first cell is
// 2; BlobOp putting the left hand's goal at blob * 2 + (0, t / 2, 0), turned as the head; the
// right hand's goal following the left one's through FollowOp.
void BuildOperatorScene() {
    rigs::IKBiped b = rigs::BuildIKBiped(Application().GetActiveSceneRoot(), L"Hero");
    FCurve c;
    b.head.GetKinematics().GetLocal().GetParameter(L"rotz").AddFCurve(20, c);
    c.AddKey(CTime(0.0), CValue(0.0));
    c.AddKey(CTime(20.0), CValue(40.0));
    Property blobProp;
    b.model.AddProperty(L"UserDataBlob", false, L"Motion", blobProp);
    const double xyz[3] = {1.0, 2.0, 3.0};
    UserDataBlob(blobProp).PutValue(reinterpret_cast<const unsigned char*>(xyz), sizeof xyz);
    CustomProperty cp;
    b.model.AddCustomProperty(L"Table", false, cp);
    Parameter gridParam = cp.AddGridParameter(L"Factors");
    GridData grid(gridParam.GetValue());
    grid.PutColumnCount(1);
    grid.PutRowCount(1);
    CValueArray cells;
    cells.Add(CValue(2.0));
    grid.PutData(cells);
    CustomOperator blobOp(Application().GetFactory().CreateObject(L"BlobOp"));
    blobOp.AddOutputPort(b.leftArm.goal.GetKinematics().GetGlobal());
    blobOp.AddInputPort(blobProp);
    blobOp.AddInputPort(gridParam);
    blobOp.AddInputPort(b.head.GetKinematics().GetGlobal());
    blobOp.PutAlwaysEvaluate(true);
    blobOp.Connect();
    CustomOperator follow(Application().GetFactory().CreateObject(L"FollowOp"));
    follow.AddOutputPort(b.rightArm.goal.GetKinematics().GetGlobal());
    follow.AddInputPort(b.leftArm.goal.GetKinematics().GetGlobal());
    follow.Connect();
}

}  // namespace

TEST_F(Op, SceneWithOperatorsBlobAndGridReopensInANewProcessWithTheSameTransforms) {
    if (const char* scene = std::getenv("ORV_CHILD_SCENE")) {
        // The child: open the scene the parent saved and write what it evaluates.
        std::wstring error;
        ASSERT_TRUE(orvhost::OpenScene(scene, error)) << Narrow(error);
        std::ofstream out(std::getenv("ORV_CHILD_OUT"), std::ios::binary);
        for (double t : {0.0, 10.0, 10.5}) out << Dump(t) << "\n";
        EXPECT_EQ(orvhost::LogTexts(ovInfo).back(), L"BlobOp loaded its blob");
        orvhost::ResetScene();  // the operators end before the process does
        return;
    }
    BuildOperatorScene();
    std::string expected;
    for (double t : {0.0, 10.0, 10.5}) expected += Dump(t) + "\n";
    // The operators did their work: the left goal sits at blob * 2 + (0, t / 2, 0), and the
    // left hand on it.
    X3DObject goal(CRef::FromPath(L"Hero.LeftArmGoal"));
    EXPECT_TRUE(goal.GetKinematics().GetGlobal().GetTransform(10.5).GetTranslation().Equals(
        CVector3(2, 9.25, 6), 1e-12));
    X3DObject right(CRef::FromPath(L"Hero.RightArmGoal"));
    EXPECT_TRUE(right.GetKinematics().GetGlobal().GetTransform(10.0).GetTranslation().Equals(
        CVector3(2, 9, 6), 1e-12));

    const std::string base =
        std::string(::testing::TempDir()) + "orvscene_child_" + std::to_string(::getpid());
    const std::string scenePath = base + ".orvscene", outPath = base + ".txt";
    std::wstring error;
    ASSERT_TRUE(orvhost::SaveScene(scenePath, error)) << Narrow(error);
    char self[4096];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    ASSERT_GT(n, 0);
    self[n] = '\0';
    const std::string command =
        "ORV_CHILD_SCENE='" + scenePath + "' ORV_CHILD_OUT='" + outPath + "' '" + std::string(self) +
        "' --gtest_filter=Op.SceneWithOperatorsBlobAndGridReopensInANewProcessWithTheSameTransforms"
        " > /dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::ifstream in(outPath, std::ios::binary);
    std::stringstream got;
    got << in.rdbuf();
    EXPECT_EQ(got.str(), expected);
    std::remove(scenePath.c_str());
    std::remove(outPath.c_str());
}

TEST_F(Op, MisusedPortsAreRefused) {
    CustomOperator op(app.GetFactory().CreateObject(L"FollowOp"));
    EXPECT_FALSE(op.AddInputPort(CRef()).IsValid());
    EXPECT_FALSE(op.AddOutputPort(Global(target), L"", 3).IsValid());
    EXPECT_TRUE(op.AddOutputPort(Global(target)).IsValid());
    ASSERT_EQ(op.Connect(), CStatus::OK);
    // A connected operator takes no more ports or groups.
    EXPECT_FALSE(op.AddInputPort(Global(source)).IsValid());
    EXPECT_FALSE(op.AddPortGroup(L"Late").IsValid());
    EXPECT_EQ(op.Connect(), CStatus::OK);
}

TEST_F(Op, InputsOutOfRangeAreEmpty) {
    // ShiftOp without a second input moves by 1: input 1 reads as empty.
    Make(L"ShiftOp", Global(target), {Global(source)});
    EXPECT_NEAR(Pos(target, 0.0).y, 3.0, 1e-12);
}

TEST_F(Op, SceneWithPlugInOperatorsSavesTheSameBytesAfterAnOpen) {
    BuildOperatorScene();
    // Evaluate first: what the operators compute and keep is no part of the file.
    X3DObject(CRef::FromPath(L"Hero.RightArmGoal")).GetKinematics().GetGlobal().GetTransform(3.0);
    const std::string base =
        std::string(::testing::TempDir()) + "orvscene_opbytes_" + std::to_string(::getpid());
    const std::string first = base + "_1.orvscene", second = base + "_2.orvscene";
    std::wstring error;
    ASSERT_TRUE(orvhost::SaveScene(first, error)) << Narrow(error);
    ASSERT_TRUE(orvhost::OpenScene(first, error)) << Narrow(error);
    X3DObject(CRef::FromPath(L"Hero.RightArmGoal")).GetKinematics().GetGlobal().GetTransform(3.0);
    ASSERT_TRUE(orvhost::SaveScene(second, error)) << Narrow(error);
    auto read = [](const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    };
    const std::string a = read(first), b = read(second);
    EXPECT_FALSE(a.empty());
    EXPECT_EQ(a, b);
    EXPECT_NE(a.find("\"BlobOp\""), std::string::npos);
    std::remove(first.c_str());
    std::remove(second.c_str());
}
