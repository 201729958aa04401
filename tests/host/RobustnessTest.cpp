// Bad input to the host: every script command fed arguments of the wrong type, empty ones,
// unknown paths and references to deleted objects; and every handle of a deleted object. Nothing
// may crash, and a command that refuses its arguments leaves the scene exactly as it was (the
// scene file of the scene, which holds everything, is the same before and after).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "HostFixture.h"
#include "host/RigBuilders.h"

using namespace ORV;
using namespace ORV::MATH;
using hosttest::HostFixture;

namespace {

std::string ReadAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class Robustness : public HostFixture {
protected:
    void SetUp() override {
        HostFixture::SetUp();
        snapshotPath = std::string(::testing::TempDir()) + "orv_robust_" + std::to_string(::getpid());
        readable = snapshotPath + ".txt";
        std::ofstream(readable) << "some text\n";
        BuildScene();
        orvhost::ClearLog();
    }
    void TearDown() override {
        std::remove(snapshotPath.c_str());
        std::remove(readable.c_str());
    }

    // A bit of everything: a model with two nulls, a curve, an expression, a constraint, a
    // chain, a property with a grid, a blob, and a selection.
    void BuildScene() {
        Model rig = addModel(L"Rig");
        Null a = addNull(rig, L"a");
        Null b = addNull(a, L"b");
        Null c = addNull(rig, L"c");
        FCurve curve;
        ASSERT_EQ(a.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(ovStandardFCurve, curve),
                  CStatus::OK);
        curve.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation);
        curve.AddKey(CTime(10.0), CValue(5.0), ovLinearInterpolation);
        ASSERT_EQ(
            b.GetKinematics().GetLocal().GetParameter(L"posy").PutExpression(L"Rig.a.kine.local.posx * 2"),
            CStatus::OK);
        Constraint cns;
        ASSERT_EQ(c.GetKinematics().AddConstraint(L"Position", a, cns), CStatus::OK);
        ChainRoot chain;
        ASSERT_EQ(rig.Add2DChain(CVector3(0, 0, 0), CVector3(2, 0, 0), CVector3(0, 0, 1), L"Arm", chain),
                  CStatus::OK);
        ChainBone second;
        ASSERT_EQ(chain.AddBone(CVector3(4, 0, 0), L"ArmLower", second), CStatus::OK);
        CustomProperty data;
        ASSERT_EQ(rig.AddCustomProperty(L"Data", false, data), CStatus::OK);
        Parameter p;
        data.AddParameter(L"Name", ovString, ovPersistable, L"", L"", CValue(L"text"), p);
        data.AddParameter(L"Gain", ovDouble, ovPersistable | ovAnimatable, L"", L"", CValue(1.5), p);
        GridData grid(data.AddGridParameter(L"Table").GetValue());
        grid.PutColumnCount(2);
        grid.PutRowCount(1);
        CValueArray cells;
        cells.Add(CValue(L"x"));
        cells.Add(CValue(3));
        grid.PutData(cells);
        Property blob;
        rig.AddProperty(L"UserDataBlob", false, L"Blob", blob);
        const unsigned char bytes[3] = {7, 8, 9};
        UserDataBlob(blob).PutValue(bytes, 3);
        app.GetSelection().Add(a);
        app.GetSelection().Add(c);
        // A deleted object to pass references to.
        Null gone = addNull(rig, L"gone");
        deleted = gone.GetRef();
        orvhost::DeleteItem(orvhost::TheStore().Resolve(deleted));
        ASSERT_FALSE(deleted.IsValid());
    }

    std::string Snapshot() {
        std::wstring error;
        EXPECT_TRUE(orvhost::SaveScene(snapshotPath, error));
        return ReadAll(snapshotPath);
    }

    // Values no command takes where an object, a parameter, a number or a flag belongs.
    std::vector<CValue> BadValues() const {
        CValueArray withDeleted;
        withDeleted.Add(CValue(L"Rig.a"));
        withDeleted.Add(CValue(deleted));
        std::vector<CValue> out = {CValue(),
                                   CValue(3.5),
                                   CValue(-1),
                                   CValue(true),
                                   CValue(L""),
                                   CValue(L"No.Such.Path"),
                                   CValue(L"..."),
                                   CValue(L" , ,"),
                                   CValue("Rig..a"),
                                   CValue(deleted),
                                   CValue(CRef()),
                                   CValue(CVector3(1, 2, 3)),
                                   CValue(withDeleted),
                                   CValue(CValueArray()),
                                   CValue(static_cast<void*>(nullptr)),
                                   CValue(std::wstring(5000, L'x')),
                                   CValue(L"Rig.a.kine.local.posx"),  // a parameter where an object belongs
                                   CValue(L"Rig.a"),                  // an object where a parameter belongs
                                   CValue(L"B:"),
                                   CValue(L"Scene_Root"),
                                   CValue(DBL_MAX),
                                   CValue(std::nan(""))};
        return out;
    }

    // Arguments a command takes, for the positions that are not under test.
    CValueArray GoodArguments(const std::wstring& command) const {
        auto args = [](std::initializer_list<CValue> v) {
            CValueArray a;
            for (const CValue& x : v) a.Add(x);
            return a;
        };
        if (command == L"SelectObj") return args({CValue(L"Rig.a"), CValue(L"BRANCH"), CValue()});
        if (command == L"FrameAll") return args({CValue(0)});
        if (command == L"DeleteObj") return args({CValue(L"Rig.b")});
        if (command == L"EnumElements") return args({CValue(L"Rig.a")});
        if (command == L"GetValue") return args({CValue(L"Rig.a.kine.local.posx"), CValue(5.0)});
        if (command == L"SetValue") return args({CValue(L"Rig.a.kine.local.posy"), CValue(2.0), CValue(5.0)});
        if (command == L"InspectObj")
            return args({CValue(L"Rig.Data"), CValue(L""), CValue(L"Title"), CValue(0), CValue(false)});
        if (command == L"PickObject") return args({CValue(L"Pick"), CValue(L"Cancel")});
        if (command == L"ShowFileForEdit") return args({CValue(CString(readable.c_str()))});
        if (command == L"RemoveAllAnimation")
            return args({CValue(L"Rig.a"), CValue(0), CValue(3), CValue(3), CValue(128)});
        if (command == L"SetExpr") return args({CValue(L"Rig.c.kine.local.posz"), CValue(L"1 + 2")});
        if (command == L"AddExpr")
            return args({CValue(L"Rig.c.kine.local.posz"), CValue(L"Rig.a.kine.local.posx"), CValue(true)});
        if (command == L"GetConstrainedObjects") return args({CValue(L"Rig.a"), CValue()});
        if (command == L"GetSkeleton") return args({CValue(L"Rig.ArmLower"), CValue()});
        return CValueArray();
    }

    std::string snapshotPath, readable;
    CRef deleted;
};

}  // namespace

// Every built-in command, every argument position, every bad value; the other positions empty
// or good. A refusal must leave the scene as it was; nothing may crash.
TEST_F(Robustness, RefusedCommandsLeaveTheSceneAsItWas) {
    const std::string before = Snapshot();
    std::size_t refused = 0, calls = 0;
    for (const orvhost::CommandInfo& info : orvhost::ListCommands()) {
        if (!info.builtin) continue;
        const long positions = static_cast<long>(info.arguments.size()) + 1;  // one past the declared
        for (int others = 0; others < 2; ++others) {
            for (long pos = 0; pos < positions; ++pos) {
                for (const CValue& bad : BadValues()) {
                    CValueArray args = others ? GoodArguments(info.name) : CValueArray();
                    if (args.GetCount() <= pos) args.Resize(pos + 1);
                    args[pos] = bad;
                    // The deleted object and the rest of the scene are rebuilt for every call
                    // that went through, so that each call starts from the same scene.
                    CValue result;
                    const CStatus st = run(info.name.c_str(), args, result);
                    ++calls;
                    const std::string after = Snapshot();
                    if (st != CStatus::OK) {
                        ++refused;
                        EXPECT_EQ(after, before)
                            << hosttest::Narrow(info.name) << " refused argument " << pos << " ("
                            << hosttest::Narrow(bad.GetAsText().std()) << ") and changed the scene";
                        EXPECT_FALSE(Logged(ovError).empty())
                            << hosttest::Narrow(info.name) << " said nothing";
                    } else if (after != before) {
                        orvhost::ResetScene();
                        BuildScene();
                        ASSERT_EQ(Snapshot(), before);
                    }
                    orvhost::ClearLog();
                    orvhost::ClearAnswers();
                }
            }
        }
    }
    EXPECT_GT(calls, 500u);
    EXPECT_GT(refused, calls / 3);
}

TEST_F(Robustness, RefusalsSayWhatWasWrong) {
    struct Case {
        const wchar_t* command;
        CValueArray args;
        const wchar_t* message;
    };
    auto args = [](std::initializer_list<CValue> v) {
        CValueArray a;
        for (const CValue& x : v) a.Add(x);
        return a;
    };
    const CValue gone(deleted);
    const Case cases[] = {
        {L"SetValue", args({CValue(L"Rig.a.kine.local.posy"), CValue(L"abc")}),
         L"SetValue: \"Rig.a.kine.local.posy\" does not take the value \"abc\"."},
        {L"SetValue", args({CValue(L"Rig.a.kine.local.posy")}), L"SetValue: no value was given."},
        {L"SetValue", args({CValue(L"Rig.a.kine.local.posy"), CValue(CVector3(1, 2, 3))}),
         L"SetValue: \"Rig.a.kine.local.posy\" does not take the value \"1,2,3\"."},
        {L"SetValue", args({CValue(L"Rig.Data.Name,Rig.Data.Gain"), CValue(L"abc")}),
         L"SetValue: \"Rig.Data.Gain\" does not take the value \"abc\"."},
        {L"SetValue", args({CValue(L" , "), CValue(1.0)}), L"SetValue: no parameter was given."},
        {L"GetValue", args({gone}), L"GetValue: nothing is named \"(a deleted object)\"."},
        {L"GetValue", args({CValue(L"Rig.a.kine.local.posx"), CValue(L"soon")}),
         L"GetValue: the time must be a number."},
        {L"GetValue", args({CValue(L"Rig.a.kine.local.posx"), CValue(std::nan(""))}),
         L"GetValue: the time must be a number."},
        {L"SetValue", args({CValue(L"Rig.a.kine.local.posx"), CValue(1.0), CValue(HUGE_VAL)}),
         L"SetValue: the time must be a number."},
        {L"EnumElements", args({CValue(3.5)}), L"EnumElements: nothing is named \"3.5\"."},
        {L"EnumElements", args({CValue(CRef())}), L"EnumElements: nothing is named \"(no object)\"."},
        {L"DeleteObj", args({gone}), L"DeleteObj: nothing is named \"(a deleted object)\"."},
        {L"DeleteObj", args({CValue(L"Rig.a,No.Such")}), L"DeleteObj: nothing is named \"No.Such\"."},
        {L"SelectObj", args({CValue(L"Rig.c"), CValue(L"SIDEWAYS")}),
         L"SelectObj: unknown selection level \"SIDEWAYS\"; use NODE, BRANCH or MODEL."},
        {L"RemoveAllAnimation", args({gone}),
         L"RemoveAllAnimation: nothing is named \"(a deleted object)\"."},
        {L"RemoveAllAnimation", args({CValue(4.0)}), L"RemoveAllAnimation: nothing is named \"4\"."},
        {L"RemoveAllAnimation", args({CValue(L"Rig.a"), CValue(L"all")}),
         L"RemoveAllAnimation: the flags must be whole numbers, not \"all\"."},
        {L"SetExpr", args({CValue(L"Rig.b.kine.local.posy"), gone}),
         L"SetExpr: \"(a deleted object)\" is not an expression."},
        {L"SetExpr", args({gone, CValue(L"1")}), L"SetExpr: \"(a deleted object)\" is not a parameter."},
        {L"AddExpr", args({CValue(L"Rig.a"), CValue(L"1")}), L"AddExpr: \"Rig.a\" is not a parameter."},
        {L"GetConstrainedObjects", args({CValue(CRef())}),
         L"GetConstrainedObjects: \"(no object)\" is not an object."},
        {L"GetConstrainedObjects", args({CValue(L"Rig.a"), gone}),
         L"GetConstrainedObjects: \"(a deleted object)\" is not a constraint."},
        {L"GetSkeleton", args({gone}), L"GetSkeleton: \"(a deleted object)\" is not part of a chain."},
        {L"InspectObj", args({gone}), L"InspectObj: nothing is named \"(a deleted object)\"."},
        {L"FrameAll", args({CValue(L"left")}), L"FrameAll: the view must be a number, not \"left\"."},
        {L"ShowFileForEdit", args({CValue(L"")}), L"ShowFileForEdit: no file was given."},
    };
    const std::string before = Snapshot();
    for (const Case& c : cases) {
        orvhost::ClearLog();
        CValue result;
        EXPECT_NE(run(c.command, c.args, result), CStatus::OK) << hosttest::Narrow(c.message);
        EXPECT_EQ(Logged(ovError), std::vector<std::wstring>{c.message});
        EXPECT_EQ(Snapshot(), before) << hosttest::Narrow(c.message);
    }
}

// A reference to a deleted object once made "RemoveAllAnimation" fall back to the selection.
TEST_F(Robustness, RemoveAllAnimationOfADeletedObjectKeepsTheSelectionsAnimation) {
    CValueArray args;
    args.Add(CValue(deleted));
    CValue result;
    EXPECT_NE(run(L"RemoveAllAnimation", args, result), CStatus::OK);
    Parameter posx(CRef::FromPath(L"Rig.a.kine.local.posx"));
    EXPECT_TRUE(posx.IsAnimated(ovFCurveSource));
}

// "DeselectAll" takes no arguments and ignores what it is given.
TEST_F(Robustness, DeselectAllIgnoresArguments) {
    for (const CValue& bad : BadValues()) {
        app.GetSelection().Add(CRef::FromPath(L"Rig.a"));
        CValueArray args;
        args.Add(bad);
        CValue result;
        EXPECT_EQ(run(L"DeselectAll", args, result), CStatus::OK);
        EXPECT_EQ(app.GetSelection().GetCount(), 0);
    }
}

TEST_F(Robustness, ParameterRefusesAValueItCannotTake) {
    Parameter gain(CRef::FromPath(L"Rig.Data.Gain"));
    Parameter name(CRef::FromPath(L"Rig.Data.Name"));
    ASSERT_TRUE(gain.IsValid());
    EXPECT_NE(gain.PutValue(CValue(L"abc")), CStatus::OK);
    EXPECT_NE(gain.PutValue(CValue()), CStatus::OK);
    EXPECT_NE(gain.PutValue(CValue(CRef::FromPath(L"Rig.a"))), CStatus::OK);
    EXPECT_NE(gain.PutValue(CValue(CVector3(1, 0, 0))), CStatus::OK);
    EXPECT_EQ(static_cast<double>(gain.GetValue()), 1.5);
    // Text that reads as a number, a bool or an int is a number.
    EXPECT_EQ(gain.PutValue(CValue(L" 2.25 ")), CStatus::OK);
    EXPECT_EQ(static_cast<double>(gain.GetValue()), 2.25);
    EXPECT_EQ(gain.PutValue(CValue(true)), CStatus::OK);
    EXPECT_EQ(static_cast<double>(gain.GetValue()), 1.0);
    // A text parameter takes any value as its text, but not an empty value.
    EXPECT_EQ(name.PutValue(CValue(7)), CStatus::OK);
    EXPECT_EQ(name.GetValue(), CValue(L"7"));
    EXPECT_NE(name.PutValue(CValue()), CStatus::OK);
    EXPECT_EQ(name.GetValue(), CValue(L"7"));
    // A curve-driven parameter gets no key for a value it cannot take.
    Parameter posx(CRef::FromPath(L"Rig.a.kine.local.posx"));
    EXPECT_NE(posx.PutValue(CValue(L"far"), 3.0), CStatus::OK);
    EXPECT_EQ(FCurve(posx.GetSource()).GetNumKeys(), 2);
    // Nor at a time that is not one; reading there gives the first key's value.
    EXPECT_NE(posx.PutValue(CValue(1.0), std::nan("")), CStatus::OK);
    EXPECT_NE(posx.PutValue(CValue(1.0), -HUGE_VAL), CStatus::OK);
    EXPECT_EQ(FCurve(posx.GetSource()).GetNumKeys(), 2);
    EXPECT_EQ(static_cast<double>(posx.GetValue(std::nan(""))), 0.0);
    KinematicState local = X3DObject(CRef::FromPath(L"Rig.a")).GetKinematics().GetLocal();
    EXPECT_NE(local.PutTransform(CTransformation(), std::nan("")), CStatus::OK);
    EXPECT_EQ(FCurve(posx.GetSource()).GetNumKeys(), 2);
}

// --- Handles of deleted objects -------------------------------------------------------------

// Everything that belongs to a deleted object: its parameters, properties, curves and keys,
// expression, constraints, joint, kinematics, grid, blob, operator, port groups and ports.
TEST_F(Robustness, EveryHandleOfADeletedObjectIsInvalidAndFailsCleanly) {
    Model rig(CRef::FromPath(L"Rig"));
    X3DObject bone(CRef::FromPath(L"Rig.ArmBone"));
    ASSERT_TRUE(bone.IsValid());
    Kinematics kine = bone.GetKinematics();
    KinematicState local = kine.GetLocal(), global = kine.GetGlobal();
    Parameter posx = local.GetParameter(L"posx");
    FCurve curve;
    ASSERT_EQ(posx.AddFCurve(ovStandardFCurve, curve), CStatus::OK);
    curve.AddKey(CTime(1.0), CValue(2.0));
    FCurveKey key = curve.GetKeyAtIndex(0);
    Parameter posz = local.GetParameter(L"posz");
    ASSERT_EQ(posz.PutExpression(L"Rig.a.kine.local.posx"), CStatus::OK);
    Expression expr(posz.GetSource());
    Constraint cns;
    ASSERT_EQ(kine.AddConstraint(L"Orientation", CRef::FromPath(L"Rig.c"), cns), CStatus::OK);
    Joint joint = ChainBone(bone).GetJoint();
    CustomProperty prop;
    ASSERT_EQ(bone.AddCustomProperty(L"Tag", false, prop), CStatus::OK);
    Parameter tag;
    prop.AddParameter(L"node", ovString, ovPersistable, L"", L"", CValue(L"Hips"), tag);
    Parameter gridParam = prop.AddGridParameter(L"Rows");
    GridData grid(gridParam.GetValue());
    UserDataBlob blob(bone.AddProperty(L"UserDataBlob", false, L"Bytes").GetRef());
    CustomOperator op(app.GetFactory().CreateScriptedOp(L"Line", L"", L"JScript"));
    PortGroup group = op.AddPortGroup(L"Main");
    Port out = op.AddOutputPort(global);
    ASSERT_EQ(op.Connect(), CStatus::OK);
    const std::vector<CBase> all = {bone,  kine, local, global,    posx, curve, key, posz,  expr, cns,
                                    joint, prop, tag,   gridParam, grid, blob,  op,  group, out};
    for (const CBase& h : all) ASSERT_TRUE(h.IsValid());

    CValueArray args;
    args.Add(CValue(bone.GetRef()));
    CValue result;
    ASSERT_EQ(run(L"DeleteObj", args, result), CStatus::OK);

    for (std::size_t i = 0; i < all.size(); ++i) EXPECT_FALSE(all[i].IsValid()) << "handle " << i;
    EXPECT_EQ(bone.GetName(), CString());
    EXPECT_EQ(posx.GetFullName(), CString());
    EXPECT_EQ(bone.GetParent(), CRef());
    EXPECT_TRUE(posx.GetValue().IsEmpty());
    EXPECT_NE(posx.PutValue(CValue(1.0)), CStatus::OK);
    EXPECT_NE(posx.PutName(L"x"), CStatus::OK);
    EXPECT_FALSE(posx.GetSource().IsValid());
    EXPECT_NE(posx.AddFCurve(ovStandardFCurve, curve), CStatus::OK);
    EXPECT_NE(curve.AddKey(CTime(1.0), CValue(2.0)), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 0);
    EXPECT_TRUE(curve.Eval(CTime(1.0)).IsEmpty());
    EXPECT_NE(curve.BeginEdit(), CStatus::OK);
    EXPECT_NE(key.PutValue(CValue(1.0)), CStatus::OK);
    EXPECT_NE(key.PutLeftTanX(-1.0), CStatus::OK);
    EXPECT_EQ(key.GetIndex(), -1);
    EXPECT_EQ(expr.GetDefinition(), CString());
    EXPECT_EQ(cns.GetConstraining().GetCount(), 0);
    EXPECT_FALSE(cns.GetConstrained().IsValid());
    EXPECT_FALSE(joint.GetUpVectorReference().IsValid());
    EXPECT_NE(joint.PutUpVectorReference(CRef::FromPath(L"Rig.c")), CStatus::OK);
    EXPECT_EQ(kine.GetConstraints().GetCount(), 0);
    EXPECT_NE(kine.AddConstraint(L"Position", CRef::FromPath(L"Rig.c"), cns), CStatus::OK);
    EXPECT_TRUE(global.GetTransform().Equals(CTransformation()));
    EXPECT_NE(global.PutTransform(CTransformation()), CStatus::OK);
    Parameter p;
    EXPECT_NE(prop.AddParameter(L"more", ovDouble, 0, L"", L"", CValue(1.0), p), CStatus::OK);
    EXPECT_NE(prop.RemoveParameter(tag), CStatus::OK);
    EXPECT_EQ(prop.GetParameters().GetCount(), 0);
    EXPECT_NE(grid.PutRowCount(2), CStatus::OK);
    EXPECT_EQ(grid.GetData().GetCount(), 0);
    const unsigned char byte = 1;
    EXPECT_NE(blob.PutValue(&byte, 1), CStatus::OK);
    const unsigned char* bytes = &byte;
    unsigned int size = 5;
    EXPECT_NE(blob.GetValue(bytes, size), CStatus::OK);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_FALSE(op.AddPortGroup(L"Late").IsValid());
    EXPECT_NE(op.Connect(), CStatus::OK);
    EXPECT_NE(op.PutAlwaysEvaluate(true), CStatus::OK);
    EXPECT_EQ(group.GetIndex(), -1);
    EXPECT_FALSE(out.GetTarget().IsValid());
    EXPECT_EQ(bone.GetChildren().GetCount(), 0);
    EXPECT_EQ(bone.GetProperties().GetCount(), 0);
    EXPECT_FALSE(bone.AddProperty(L"CustomProperty", false, L"Late").IsValid());
    Null n;
    EXPECT_NE(bone.AddNull(L"late", n), CStatus::OK);
    EXPECT_FALSE(n.IsValid());
    EXPECT_NE(rig.AddChild(bone), CStatus::OK);
    // The rest of the scene is untouched.
    EXPECT_TRUE(rig.IsValid());
    EXPECT_TRUE(X3DObject(CRef::FromPath(L"Rig.a")).IsValid());
}

TEST_F(Robustness, HandleEqualityIsObjectIdentity) {
    X3DObject a(CRef::FromPath(L"Rig.a"));
    Null asNull(a.GetRef());
    SceneItem asItem(a.GetRef());
    X3DObject copy = a;
    EXPECT_TRUE(a == asNull);
    EXPECT_TRUE(asItem == copy);
    EXPECT_TRUE(a == a.GetRef());
    EXPECT_FALSE(a != copy);
    X3DObject c(CRef::FromPath(L"Rig.c"));
    EXPECT_TRUE(a != c);
    // A copy is a second reference, not a second object: renaming through one renames both.
    ASSERT_EQ(copy.PutName(L"renamed"), CStatus::OK);
    EXPECT_EQ(a.GetName(), CString(L"renamed"));
    // Two invalid handles are the same nothing; an invalid one is none of the objects.
    EXPECT_TRUE(X3DObject() == Null());
    EXPECT_TRUE(X3DObject(CValue(deleted)) != a);
}
