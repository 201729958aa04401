// The in-memory scene behind the SDK handles: objects, names, paths, properties, parameters,
// grids, blobs, selection, play control and static kinematics.
#include <gtest/gtest.h>

#include <cmath>

#include "Host.h"

using namespace ORV;
using namespace ORV::MATH;

namespace {

class Scene : public ::testing::Test {
protected:
    void SetUp() override { orvhost::ResetScene(); }
    Model root() { return Application().GetActiveSceneRoot(); }
    Null addNull(X3DObject parent, const wchar_t* name) {
        Null n;
        EXPECT_EQ(parent.AddNull(name, n), CStatus::OK);
        return n;
    }
    Model addModel(X3DObject parent, const wchar_t* name) {
        Model m;
        EXPECT_EQ(parent.AddModel(CRefArray(), name, m), CStatus::OK);
        return m;
    }
};

// Budget for static pose algebra: a few products of doubles.
constexpr double kEps = 1e-9;

void ExpectVec(const CVector3& v, double x, double y, double z) {
    EXPECT_NEAR(v.x, x, kEps);
    EXPECT_NEAR(v.y, y, kEps);
    EXPECT_NEAR(v.z, z, kEps);
}

}  // namespace

TEST_F(Scene, RootIsAModelNamedSceneRoot) {
    Model r = root();
    EXPECT_TRUE(r.IsValid());
    EXPECT_TRUE(r.IsA(ovModelID));
    EXPECT_TRUE(r.IsA(ov3DObjectID));
    EXPECT_EQ(r.GetFullName(), CString(L"Scene_Root"));
    EXPECT_EQ(r.GetType(), CString(L"#model"));
}

TEST_F(Scene, HandleToDeletedObjectReportsInvalid) {
    Null n = addNull(root(), L"A");
    Null copy = n;
    ASSERT_TRUE(copy.IsValid());
    orvhost::DeleteItem(orvhost::TheStore().Resolve(n.GetRef()));
    EXPECT_FALSE(n.IsValid());
    EXPECT_FALSE(copy.IsValid());
    EXPECT_EQ(copy.GetName(), CString());
    EXPECT_NE(copy.PutName(L"B"), CStatus::OK);
    // A new object may reuse the slot; the old handle must not see it.
    Null other = addNull(root(), L"C");
    EXPECT_FALSE(n.IsValid());
    EXPECT_NE(other, n);
}

TEST_F(Scene, NameClashesTakeSmallestFreeSuffix) {
    Model m = addModel(root(), L"Rig");
    EXPECT_EQ(addNull(m, L"Name").GetName(), CString(L"Name"));
    EXPECT_EQ(addNull(m, L"Name").GetName(), CString(L"Name1"));
    EXPECT_EQ(addNull(m, L"Name").GetName(), CString(L"Name2"));
    EXPECT_EQ(addNull(m, L"LFHD").GetName(), CString(L"LFHD"));
    EXPECT_EQ(addNull(m, L"LFHD").GetName(), CString(L"LFHD1"));
}

TEST_F(Scene, NamesAreUniqueOnlyInsideAModel) {
    Model a = addModel(root(), L"A");
    Model b = addModel(root(), L"B");
    EXPECT_EQ(addNull(a, L"hip").GetName(), CString(L"hip"));
    EXPECT_EQ(addNull(b, L"hip").GetName(), CString(L"hip"));
    Null deep = addNull(addNull(a, L"spine"), L"hip");
    EXPECT_EQ(deep.GetName(), CString(L"hip1"));
}

TEST_F(Scene, FullNamesFollowTheModel) {
    Model m = addModel(root(), L"Rig");
    Null hip = addNull(m, L"hip");
    Null knee = addNull(hip, L"knee");
    Null top = addNull(root(), L"Loose");
    EXPECT_EQ(m.GetFullName(), CString(L"Rig"));
    EXPECT_EQ(hip.GetFullName(), CString(L"Rig.hip"));
    EXPECT_EQ(knee.GetFullName(), CString(L"Rig.knee"));
    EXPECT_EQ(top.GetFullName(), CString(L"Loose"));
    Model inner = addModel(m, L"Inner");
    EXPECT_EQ(addNull(inner, L"x").GetFullName(), CString(L"Rig.Inner.x"));
    KinematicState local = knee.GetKinematics().GetLocal();
    EXPECT_EQ(local.GetFullName(), CString(L"Rig.knee.kine.local"));
    EXPECT_EQ(local.GetParameter(L"posx").GetFullName(), CString(L"Rig.knee.kine.local.posx"));
    EXPECT_EQ(CRef::FromPath(L"Rig.knee.kine.local.posx"), local.GetParameter(L"posx").GetRef());
    EXPECT_EQ(CRef::FromPath(L"Rig.knee"), knee.GetRef());
    EXPECT_FALSE(CRef::FromPath(L"Rig.nothing").IsValid());
}

TEST_F(Scene, FindChildrenIsDepthFirstInCreationOrder) {
    Model m = addModel(root(), L"Rig");
    Null a = addNull(m, L"a");
    Null b = addNull(m, L"b");
    Null a1 = addNull(a, L"a1");
    Null a2 = addNull(a, L"a2");
    Null b1 = addNull(b, L"b1");
    CStringArray fam;
    fam.Add(ov3DObjectFamily);
    CRefArray all = m.FindChildren(L"", L"", fam, true);
    ASSERT_EQ(all.GetCount(), 5);
    EXPECT_EQ(all[0], a.GetRef());
    EXPECT_EQ(all[1], a1.GetRef());
    EXPECT_EQ(all[2], a2.GetRef());
    EXPECT_EQ(all[3], b.GetRef());
    EXPECT_EQ(all[4], b1.GetRef());
    EXPECT_EQ(m.FindChildren(L"", L"", fam, false).GetCount(), 2);
    EXPECT_EQ(m.FindChild(L"b1", L"", CStringArray(), true), b1);
    EXPECT_FALSE(m.FindChild(L"b1", L"", CStringArray(), false).IsValid());
    EXPECT_EQ(root().FindChildren(L"", L"#model", CStringArray(), true).GetCount(), 1);
    CStringArray meshes;
    meshes.Add(ovMeshFamily);
    EXPECT_EQ(m.FindChildren(L"", L"", meshes, true).GetCount(), 0);
}

TEST_F(Scene, AddChildKeepsTheGlobalPose) {
    Null parent = addNull(root(), L"P");
    parent.GetKinematics().GetLocal().PutParameterValue(L"posx", 2.0);
    parent.GetKinematics().GetLocal().PutParameterValue(L"rotz", 90.0);
    Null child = addNull(root(), L"C");
    child.GetKinematics().GetLocal().PutParameterValue(L"posy", 3.0);
    ASSERT_EQ(parent.AddChild(child), CStatus::OK);
    EXPECT_EQ(OVObject(child.GetParent()), parent);
    ExpectVec(child.GetKinematics().GetGlobal().GetTransform().GetTranslation(), 0, 3, 0);
    // Local: the point (0, 3, 0) seen from a frame at (2, 0, 0) turned 90 degrees about Z.
    ExpectVec(child.GetKinematics().GetLocal().GetTransform().GetTranslation(), 3, 2, 0);
    EXPECT_NE(child.AddChild(parent), CStatus::OK);  // no cycles
}

TEST_F(Scene, GlobalPoseIsLocalThenNeutralThenParent) {
    Null p = addNull(root(), L"P");
    p.GetKinematics().GetLocal().PutParameterValue(L"posx", 10.0);
    Null c = addNull(p, L"C");
    KinematicState l = c.GetKinematics().GetLocal();
    l.PutParameterValue(L"nposy", 1.0);
    l.PutParameterValue(L"nrotz", 90.0);
    l.PutParameterValue(L"posx", 1.0);
    // (1,0,0) turned by the neutral 90 degrees about Z is (0,1,0); plus neutral (0,1,0); plus parent.
    ExpectVec(c.GetKinematics().GetGlobal().GetTransform().GetTranslation(), 10, 2, 0);
    CTransformation g;
    g.SetTranslationFromValues(5, 5, 5);
    c.GetKinematics().GetGlobal().PutTransform(g);
    ExpectVec(c.GetKinematics().GetGlobal().GetTransform().GetTranslation(), 5, 5, 5);
    EXPECT_NEAR(static_cast<double>(l.GetParameterValue(L"nposy")), 1.0, kEps);
}

TEST_F(Scene, LocalRotationUsesDegreesAndRotationOrder) {
    Null n = addNull(root(), L"N");
    KinematicState l = n.GetKinematics().GetLocal();
    l.PutParameterValue(L"rotx", 90.0);
    l.PutParameterValue(L"roty", 90.0);
    // XYZ order: X first then Y. The X axis goes to (0,0,-1) under Y by 90 degrees.
    CVector3 v(1, 0, 0);
    v.MulByTransformationInPlace(l.GetTransform());
    ExpectVec(v, 0, 0, -1);
    l.PutParameterValue(L"rotorder", 5);  // ZYX: Y first, then X
    CVector3 w(1, 0, 0);
    w.MulByTransformationInPlace(l.GetTransform());
    // (1,0,0) by Y 90 gives (0,0,-1); by X 90 gives (0,1,0).
    ExpectVec(w, 0, 1, 0);
}

TEST_F(Scene, PrimitivesHaveLengthAndRadius) {
    X3DObject cube, sphere, bad;
    ASSERT_EQ(root().AddPrimitive(L"Cube", L"Box", cube), CStatus::OK);
    EXPECT_EQ(cube.GetName(), CString(L"Box"));
    EXPECT_EQ(cube.PutParameterValue(L"length", 0.5), CStatus::OK);
    EXPECT_DOUBLE_EQ(static_cast<double>(cube.GetActivePrimitive().GetParameterValue(L"length")), 0.5);
    ASSERT_EQ(root().AddGeometry(L"Sphere", L"MeshSurface", L"Ball", sphere), CStatus::OK);
    EXPECT_EQ(sphere.PutParameterValue(L"radius", 2.0), CStatus::OK);
    EXPECT_DOUBLE_EQ(static_cast<double>(sphere.GetParameterValue(L"radius")), 2.0);
    EXPECT_NE(root().AddPrimitive(L"Teapot", L"T", bad), CStatus::OK);
    EXPECT_FALSE(bad.IsValid());
}

TEST_F(Scene, NurbsCurveListIsACrvlist) {
    CVector4Array pts;
    pts.Add(CVector4(1, 1, 1, 1));
    pts.Add(CVector4(0, 0, 0, 1));
    CDoubleArray knots;
    knots.Add(0.0);
    knots.Add(1.0);
    X3DObject line;
    ASSERT_EQ(root().AddNurbsCurve(pts, knots, false, 1, 1, ovSINurbs, L"", line), CStatus::OK);
    EXPECT_EQ(line.GetType(), CString(L"crvlist"));
    EXPECT_EQ(line.GetActivePrimitive().GetControlPoints().GetCount(), 2);
    CStringArray curves;
    curves.Add(ovCurveFamily);
    EXPECT_EQ(root().FindChildren(L"", L"", curves, true).GetCount(), 1);
}

TEST_F(Scene, ModelHasNoMixerUnlessOneExists) {
    Model m = addModel(root(), L"Rig");
    EXPECT_FALSE(m.GetMixer().IsValid());
    m.AddMixer();
    EXPECT_TRUE(m.GetMixer().IsValid());
}

TEST_F(Scene, GetModelIsTheModelAbove) {
    Model m = addModel(root(), L"Rig");
    Null a = addNull(m, L"a");
    Null loose = addNull(root(), L"loose");
    EXPECT_EQ(a.GetModel(), m);
    EXPECT_EQ(m.GetModel(), root());
    EXPECT_EQ(loose.GetModel(), root());
    CustomProperty p;
    ASSERT_EQ(m.AddCustomProperty(L"Data", false, p), CStatus::OK);
    EXPECT_EQ(p.GetModel(), m);
}

TEST_F(Scene, CustomPropertyParametersKeepTypeLimitsAndCapabilities) {
    Model m = addModel(root(), L"Rig");
    Property prop = m.AddProperty(L"CustomProperty", false, L"ZUKMap");
    CustomProperty cp(prop.GetRef());
    ASSERT_TRUE(cp.IsValid());
    EXPECT_EQ(cp.GetFullName(), CString(L"Rig.ZUKMap"));
    Parameter p;
    ASSERT_EQ(cp.AddParameter(L"Gain", ovDouble, 5, L"Gain", L"How much", 1.5, 0.0, 10.0, 1.0, 2.0, p),
              CStatus::OK);
    EXPECT_EQ(p.GetScriptName(), CString(L"Gain"));
    EXPECT_EQ(p.GetDescription(), CString(L"How much"));
    EXPECT_EQ(p.GetValueType(), ovDouble);
    EXPECT_EQ(p.GetCapabilities(), 5);
    EXPECT_DOUBLE_EQ(static_cast<double>(p.GetDefault()), 1.5);
    EXPECT_DOUBLE_EQ(static_cast<double>(p.GetSuggestedMin()), 1.0);
    EXPECT_DOUBLE_EQ(static_cast<double>(p.GetSuggestedMax()), 2.0);
    p.PutValue(42.0);
    EXPECT_DOUBLE_EQ(static_cast<double>(p.GetValue()), 10.0);  // clamped to the maximum
    p.PutCapabilityFlag(0x800, false);
    EXPECT_FALSE(p.GetCapabilityFlag(0x800));
    p.PutCapabilityFlag(0x800, true);
    EXPECT_TRUE(p.GetCapabilityFlag(0x800));
    Parameter i, s, b;
    cp.AddParameter(L"Count", ovInt4, 6, L"", L"", 3, i);
    cp.AddParameter(L"Name", ovString, 4, L"", L"", CValue(), s);
    cp.AddParameter(L"On", ovBool, 4, L"", L"", true, b);
    EXPECT_EQ(static_cast<int>(m.GetProperties().GetCount() > 0), 1);
    EXPECT_EQ(static_cast<int>(CustomProperty(prop.GetRef()).GetParameterValue(L"Count")), 3);
    EXPECT_EQ(CString(s.GetValue()), CString(L""));
    EXPECT_TRUE(static_cast<bool>(b.GetValue()));
    EXPECT_EQ(cp.GetParameters().GetCount(), 4);
    Parameter dup;
    EXPECT_NE(cp.AddParameter(L"Count", ovInt4, 6, L"", L"", 3, dup), CStatus::OK);
    ASSERT_EQ(cp.RemoveParameter(i), CStatus::OK);
    EXPECT_FALSE(i.IsValid());
    EXPECT_EQ(cp.GetParameters().GetCount(), 3);
    EXPECT_EQ(CValue(s.GetValue()).GetType(), ovString);
}

TEST_F(Scene, GridParameterHoldsATableRowByRow) {
    CustomProperty cp(root().AddProperty(L"CustomProperty", false, L"Grid").GetRef());
    Parameter gp = cp.AddGridParameter(L"Nodes");
    GridData g(CRef(gp.GetValue()));
    ASSERT_TRUE(g.IsValid());
    g.PutColumnCount(2);
    g.PutRowCount(3);
    g.PutColumnLabel(1, L"alingZ");
    CValueArray data;
    for (int i = 0; i < 6; ++i) data.Add(CValue(i * 1.5));
    ASSERT_EQ(g.PutData(data), CStatus::OK);
    EXPECT_EQ(g.GetColumnLabel(1), CString(L"alingZ"));
    CValueArray row = g.GetRowValues(2);
    ASSERT_EQ(row.GetCount(), 2);
    EXPECT_DOUBLE_EQ(static_cast<double>(row[0]), 6.0);
    EXPECT_DOUBLE_EQ(static_cast<double>(row[1]), 7.5);
    EXPECT_EQ(g.GetData().GetCount(), 6);
    CValueArray wrong;
    wrong.Add(CValue(1.0));
    EXPECT_NE(g.PutData(wrong), CStatus::OK);
    EXPECT_EQ(g.GetRowValues(3).GetCount(), 0);
}

TEST_F(Scene, BlobBytesAreWritableInPlace) {
    Model m = addModel(root(), L"Rig");
    UserDataBlob blob(m.AddProperty(L"UserDataBlob", false, L"ZUKRetargetOp").GetRef());
    ASSERT_TRUE(blob.IsValid());
    EXPECT_TRUE(blob.IsEmpty());
    unsigned char* bytes = nullptr;
    unsigned int size = 7;
    blob.GetValue(bytes, size);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(size, 0u);
    const unsigned char src[4] = {1, 2, 3, 4};
    blob.PutValue(src, 4);
    blob.GetValue(bytes, size);
    ASSERT_EQ(size, 4u);
    bytes[2] = 99;
    const unsigned char* again = nullptr;
    blob.GetValue(again, size);
    EXPECT_EQ(again[2], 99);
}

TEST_F(Scene, DisplayPropertyHasWireColour) {
    Null n = addNull(root(), L"N");
    Property d = n.AddProperty(L"Display Property", false, L"Display");
    ASSERT_TRUE(d.IsValid());
    d.PutParameterValue(L"wirecol", 384);
    EXPECT_EQ(static_cast<int>(CRef::FromPath(L"N.Display.wirecol").IsValid()), 1);
    EXPECT_EQ(static_cast<int>(d.GetParameterValue(L"wirecol")), 384);
    EXPECT_FALSE(n.AddProperty(L"NoSuchType", false, L"X").IsValid());
}

TEST_F(Scene, SelectionKeepsOrderAndDropsDeletedItems) {
    Null a = addNull(root(), L"a");
    Null b = addNull(root(), L"b");
    Selection sel = Application().GetSelection();
    sel.Add(b);
    sel.Add(a);
    sel.Add(b);
    ASSERT_EQ(sel.GetCount(), 2);
    EXPECT_EQ(sel[0], b.GetRef());
    EXPECT_TRUE(a.IsSelected());
    orvhost::DeleteItem(orvhost::TheStore().Resolve(b.GetRef()));
    ASSERT_EQ(sel.GetCount(), 1);
    EXPECT_EQ(sel[0], a.GetRef());
    sel.Clear();
    EXPECT_EQ(sel.GetCount(), 0);
}

TEST_F(Scene, PlayControlHasRateInOutCurrent) {
    CRefArray props = Application().GetActiveProject().GetProperties();
    Property pc(props.GetItem(L"Play Control"));
    ASSERT_TRUE(pc.IsValid());
    EXPECT_DOUBLE_EQ(static_cast<double>(pc.GetParameterValue(L"Rate")), 30.0);
    EXPECT_TRUE(pc.GetParameter(L"In").IsValid());
    EXPECT_TRUE(pc.GetParameter(L"Out").IsValid());
    pc.PutParameterValue(L"Current", 12.0);
    EXPECT_EQ(pc.GetParameter(L"Current").GetFullName(), CString(L"PlayControl.Current"));
    EXPECT_DOUBLE_EQ(orvhost::CurrentFrame(), 12.0);
}

TEST_F(Scene, InstallationPathsAndBuildPath) {
    orvhost::TheHost().installPaths[1] = L"/home/u/.trovo";
    EXPECT_EQ(Application().GetInstallationPath(1), CString(L"/home/u/.trovo"));
    EXPECT_EQ(Application().GetInstallationPath(2), CString(L""));
    EXPECT_EQ(CUtils::BuildPath(L"/a/", L"Trovo", L"Data"), CString(L"/a/Trovo/Data"));
    EXPECT_EQ(CUtils::BuildPath(L"/a", L"", L"/b"), CString(L"/a/b"));
}

TEST_F(Scene, DeletingABranchInvalidatesEverythingBelow) {
    Model m = addModel(root(), L"Rig");
    Null a = addNull(m, L"a");
    Null b = addNull(a, L"b");
    Parameter posx = b.GetKinematics().GetLocal().GetParameter(L"posx");
    Property prop = b.AddProperty(L"CustomProperty", false, L"Tag");
    orvhost::DeleteItem(orvhost::TheStore().Resolve(a.GetRef()));
    EXPECT_FALSE(b.IsValid());
    EXPECT_FALSE(posx.IsValid());
    EXPECT_FALSE(prop.IsValid());
    EXPECT_TRUE(m.IsValid());
    EXPECT_EQ(m.GetChildren().GetCount(), 0);
}

TEST_F(Scene, WrongClassReferenceGivesInvalidHandle) {
    Null n = addNull(root(), L"N");
    Model asModel(n.GetRef());
    EXPECT_FALSE(asModel.IsValid());
    Parameter asParam(n.GetRef());
    EXPECT_FALSE(asParam.IsValid());
    X3DObject asObject(n.GetRef());
    EXPECT_TRUE(asObject.IsValid());
}

TEST_F(Scene, RenameKeepsNamesUnique) {
    Null a = addNull(root(), L"a");
    Null b = addNull(root(), L"b");
    b.PutName(L"a");
    EXPECT_EQ(b.GetName(), CString(L"a1"));
    a.PutName(L"a");
    EXPECT_EQ(a.GetName(), CString(L"a"));
}

TEST_F(Scene, FreedSuffixIsTakenAgain) {
    Model m = addModel(root(), L"Rig");
    addNull(m, L"LFHD");
    Null one = addNull(m, L"LFHD");
    addNull(m, L"LFHD");
    ASSERT_EQ(one.GetName(), CString(L"LFHD1"));
    orvhost::DeleteItem(orvhost::TheStore().Resolve(one.GetRef()));
    // The smallest suffix that frees the name, not one past the largest.
    EXPECT_EQ(addNull(m, L"LFHD").GetName(), CString(L"LFHD1"));
    EXPECT_EQ(addNull(m, L"LFHD").GetName(), CString(L"LFHD3"));
    // A model's name lives in the namespace of the model above it, not in its own.
    Model inner = addModel(m, L"LFHD");
    EXPECT_EQ(inner.GetName(), CString(L"LFHD4"));
    EXPECT_EQ(addNull(inner, L"LFHD").GetName(), CString(L"LFHD"));
}

TEST_F(Scene, GetModelsListsModelsBelowDepthFirst) {
    Model a = addModel(root(), L"A");
    Model b = addModel(root(), L"B");
    Null n = addNull(a, L"n");
    Model inner = addModel(n, L"Inner");
    Model deeper = addModel(inner, L"Deeper");
    CRefArray all = root().GetModels(true);
    ASSERT_EQ(all.GetCount(), 4);
    EXPECT_EQ(all[0], a.GetRef());
    EXPECT_EQ(all[1], inner.GetRef());
    EXPECT_EQ(all[2], deeper.GetRef());
    EXPECT_EQ(all[3], b.GetRef());
    CRefArray top = root().GetModels(false);
    ASSERT_EQ(top.GetCount(), 2);
    EXPECT_EQ(top[1], b.GetRef());
    // Not the object itself, and nothing for a plain object without models below it.
    EXPECT_EQ(inner.GetModels(true).GetCount(), 1);
    EXPECT_EQ(b.GetModels(true).GetCount(), 0);
    EXPECT_EQ(Model().GetModels(true).GetCount(), 0);
}

TEST_F(Scene, VersionIsTheHostsVersion) {
    EXPECT_EQ(Application().GetVersion(), CString(orvhost::TheHost().version));
    EXPECT_FALSE(Application().GetVersion().IsEmpty());
}

TEST_F(Scene, TypesTellModelsCurveListsAndNulls) {
    Model m = addModel(root(), L"Rig");
    EXPECT_EQ(m.GetType(), CString(L"#model"));
    EXPECT_EQ(addNull(m, L"n").GetType(), CString(L"null"));
    EXPECT_TRUE(m.IsA(74));
    EXPECT_TRUE(m.IsA(72));
    EXPECT_FALSE(addNull(m, L"m").IsA(74));
    EXPECT_TRUE(addNull(m, L"o").IsA(72));
}

TEST_F(Scene, CustomParametersOfEveryNumberTypeKeepTheirTypeAndLimits) {
    CustomProperty cp;
    ASSERT_EQ(root().AddCustomProperty(L"Types", false, cp), CStatus::OK);
    struct Case {
        const wchar_t* name;
        ovValueType type;
        CValue def, min, max, put, clamped;
    };
    const Case cases[] = {
        {L"f", ovFloat, CValue(0.5f), CValue(0.0f), CValue(1.0f), CValue(7.0), CValue(1.0f)},
        {L"d", ovDouble, CValue(0.5), CValue(-1.0), CValue(1.0), CValue(-3.0), CValue(-1.0)},
        {L"i2", ovInt2, CValue(1), CValue(0), CValue(100), CValue(250), CValue(100)},
        {L"i4", ovInt4, CValue(1), CValue(-5), CValue(5), CValue(-9), CValue(-5)},
        {L"u1", ovUByte, CValue(1), CValue(0), CValue(255), CValue(300), CValue(255)},
        {L"u4", ovUInt4, CValue(1), CValue(0), CValue(10), CValue(11), CValue(10)},
        {L"i8", ovInt8, CValue(1), CValue(0), CValue(10), CValue(12), CValue(10)},
        {L"b", ovBool, CValue(false), CValue(), CValue(), CValue(1), CValue(true)},
    };
    for (const Case& c : cases) {
        Parameter p;
        ASSERT_EQ(cp.AddParameter(c.name, c.type, ovAnimatable | ovPersistable, L"", L"", c.def, c.min, c.max,
                                  c.min, c.max, p),
                  CStatus::OK)
            << CString(c.name).GetAsciiString();
        EXPECT_EQ(p.GetValueType(), c.type);
        EXPECT_EQ(p.GetDefault(), c.def) << CString(c.name).GetAsciiString();
        EXPECT_EQ(p.GetMin(), c.min);
        EXPECT_EQ(p.GetMax(), c.max);
        EXPECT_EQ(p.GetCapabilities(), ovAnimatable | ovPersistable);
        ASSERT_EQ(p.PutValue(c.put), CStatus::OK);
        EXPECT_EQ(p.GetValue(), c.clamped) << CString(c.name).GetAsciiString();
    }
}

TEST_F(Scene, MirroredParentGivesANegativeGlobalXScale) {
    const double c30 = std::cos(PI / 6), s30 = std::sin(PI / 6);
    for (const wchar_t* axis : {L"sclx", L"scly"}) {
        orvhost::ResetScene();
        Null parent = addNull(root(), L"Mirror");
        parent.GetKinematics().GetLocal().PutParameterValue(axis, -1.0);
        Null child = addNull(parent, L"Child");
        KinematicState l = child.GetKinematics().GetLocal();
        l.PutParameterValue(L"posx", 2.0);
        l.PutParameterValue(L"posy", 1.0);
        l.PutParameterValue(L"roty", 30.0);
        const CTransformation g = child.GetKinematics().GetGlobal().GetTransform();
        // Whatever axis the mirror flips, the decomposition puts the sign on X.
        ExpectVec(g.GetScaling(), -1, 1, 1);
        // (1,0,0) turned 30 degrees about Y is (cos 30, 0, -sin 30), moved to (2,1,0) plus that;
        // then the parent flips one axis.
        CVector3 p(1, 0, 0);
        p.MulByTransformationInPlace(g);
        const bool flipX = CString(axis) == CString(L"sclx");
        ExpectVec(p, flipX ? -(2 + c30) : 2 + c30, flipX ? 1 : -1, -s30);
        // The local pose reads back through the mirrored parent.
        ExpectVec(l.GetTransform().GetTranslation(), 2, 1, 0);
    }
}
