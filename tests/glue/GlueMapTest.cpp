// The glue's rules one at a time, on small hand-made rigs and maps.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "core/BezierCurve.h"
#include "glue/GlueMap.h"
#include "glue/SpineMap.h"
#include "modelmap/ModelMap.h"

namespace {

using ORV::CValue;
using ORV::CValueArray;
using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::GlueMap;
using ZUK::ModelMap;
using ZUK::ModelStructure;

struct NodeSpec {
    int parent;
    int type;
};

ModelStructure* MakeStructure(const std::vector<NodeSpec>& specs, const std::vector<std::vector<long>>& planes = {}) {
    auto* s = new ModelStructure(static_cast<int>(specs.size()), static_cast<int>(planes.size()), L"test");
    for (size_t i = 0; i < specs.size(); ++i) {
        s->nodes[i].Name = ORV::CString(L"N") + ORV::CString(std::to_wstring(i).c_str());
        s->nodes[i].Parent = specs[i].parent;
        s->nodes[i].Type = specs[i].type;
    }
    for (size_t p = 0; p < planes.size(); ++p) {
        ModelStructure::Plane& plane = s->planes[p];
        for (long b : planes[p]) plane.bones.Add(b);
        plane.Span = static_cast<int>(planes[p].front());
        plane.Mid = static_cast<int>(planes[p][planes[p].size() - 2]);
        plane.AnchorIndex = static_cast<int>(planes[p].back());
        plane.Name = ORV::CString(L"P") + ORV::CString(std::to_wstring(p).c_str());
    }
    return s;
}

CTransformation At(double x, double y, double z) {
    CTransformation t;
    t.SetTranslationFromValues(x, y, z);
    return t;
}

CTransformation GlobalOf(const ORV::X3DObject& o) { return o.GetKinematics().GetGlobal().GetTransform(); }

ORV::Null AddNull(ORV::X3DObject parent, const wchar_t* name, const CVector3& at) {
    ORV::Null n;
    parent.AddNull(name, n);
    n.GetKinematics().GetGlobal().PutTransform(At(at.x, at.y, at.z));
    return n;
}

// A model and a map over a structure; objects are given per node.
struct Rig {
    ORV::Model model;
    ModelStructure* structure;
    ModelMap map;
    Rig(const std::vector<NodeSpec>& specs, const std::vector<std::vector<long>>& planes = {})
        : structure(MakeStructure(specs, planes)) {
        ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Rig", model);
        static_cast<ORV::Model&>(map) = model;
        map.structure = structure;
        map.nodes.resize(specs.size());
        map.planes.resize(planes.size());
        map.legLength = 10.0;
    }
    ~Rig() {
        map.structure = nullptr;
        delete structure;
    }
};

class Glue : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::NewScene();
        orvhost::ClearLog();
    }
};

std::vector<std::wstring> Driven(const GlueMap& glue) {
    std::vector<std::wstring> names;
    for (const auto& c : glue.mocaps) names.push_back(c.rigNodeName.GetWideString());
    return names;
}

// ---- Building

TEST_F(Glue, AChainBoneWithoutAnUpVectorGetsNoPlaneConstraintYetItsBonesStayHandled) {
    Rig rig({{-1, 0}, {0, 1}, {1, 0}, {1, 2}}, {{3, 2, 1}});
    ORV::Null root = AddNull(rig.model, L"Root", CVector3(0, 10, 0));
    ORV::ChainRoot chain;
    root.Add2DChain(CVector3(0, 10, 0), CVector3(0, 5, 0.5), CVector3(1, 0, 0), L"Leg", chain);
    ORV::ChainBone upper(chain.GetBones()[0]), lower;
    chain.AddBone(CVector3(0, 0, 0), L"Lower", lower);
    ORV::Null goal = AddNull(rig.model, L"Goal", CVector3(0, 0, 0));
    rig.map.nodes[0].object = root;
    rig.map.nodes[1].object = upper;
    rig.map.nodes[2].object = lower;
    rig.map.nodes[3].object = goal;
    std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(rig.model, &rig.map));
    EXPECT_TRUE(glue->planes.empty());
    EXPECT_EQ(Driven(*glue), (std::vector<std::wstring>{L"Root", L"Goal"}));
}

TEST_F(Glue, AFreeNodeOneLevelBelowItsParentGetsAPlainConstraint) {
    Rig rig({{-1, 0}, {0, 1}, {1, 3}});
    ORV::Null root = AddNull(rig.model, L"Root", CVector3(0, 10, 0));
    ORV::Null spine = AddNull(root, L"Spine", CVector3(0, 11, 0));
    ORV::Null chest = AddNull(spine, L"Chest", CVector3(0, 13, 0));
    rig.map.nodes[0].object = root;
    rig.map.nodes[1].object = spine;
    rig.map.nodes[2].object = chest;
    std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(rig.model, &rig.map));
    EXPECT_TRUE(glue->spines.empty());
    EXPECT_EQ(Driven(*glue), (std::vector<std::wstring>{L"Root", L"Spine", L"Chest"}));
    EXPECT_EQ(glue->mocaps[2].kind, 2);  // its scene parent is its structure parent's object
}

TEST_F(Glue, AFreeNodeTwoOrMoreLevelsBelowItsParentMakesASpine) {
    Rig rig({{-1, 0}, {0, 1}, {1, 3}});
    ORV::Null root = AddNull(rig.model, L"Root", CVector3(0, 10, 0));
    ORV::Null spine = AddNull(root, L"Spine", CVector3(0, 11, 0));
    ORV::Null mid = AddNull(spine, L"Mid", CVector3(0, 12, 0));
    ORV::Null chest = AddNull(mid, L"Chest", CVector3(0, 13, 0));
    rig.map.nodes[0].object = root;
    rig.map.nodes[1].object = spine;
    rig.map.nodes[2].object = chest;
    rig.map.nodes[2].length = 2.0;
    rig.map.nodes[1].align = CVector3(0, 1, 0);
    rig.map.nodes[2].align = CVector3(0, 0, 1);
    std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(rig.model, &rig.map));
    ASSERT_EQ(glue->spines.size(), 1u);
    EXPECT_EQ(glue->spines[0].baseName, ORV::CString(L"Mid"));
    EXPECT_TRUE(glue->spines[0].atan.Equals(CVector3(0, 0.7, 0)));
    EXPECT_TRUE(glue->spines[0].gtan.Equals(CVector3(0, 0, -0.7)));
    EXPECT_EQ(Driven(*glue), (std::vector<std::wstring>{L"Root", L"Spine"}));
}

TEST_F(Glue, AFreeNodeOutsideItsParentsBranchTakesAwayTheParentsConstraint) {
    Rig rig({{-1, 0}, {0, 1}, {1, 3}});
    ORV::Null root = AddNull(rig.model, L"Root", CVector3(0, 10, 0));
    ORV::Null spine = AddNull(root, L"Spine", CVector3(0, 11, 0));
    ORV::Null chest = AddNull(root, L"Chest", CVector3(0, 13, 0));
    rig.map.nodes[0].object = root;
    rig.map.nodes[1].object = spine;
    rig.map.nodes[2].object = chest;
    std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(rig.model, &rig.map));
    EXPECT_EQ(Driven(*glue), (std::vector<std::wstring>{L"Root", L"Chest"}));
}

TEST_F(Glue, AnObjectWhoseRotationIsDrivenByAnExpressionKeepsItsRotation) {
    Rig rig({{-1, 0}});
    ORV::Null root = AddNull(rig.model, L"Root", CVector3(0, 10, 0));
    rig.map.nodes[0].object = root;
    CValue ignored;
    CValueArray args;
    args.Add(CValue(L"Rig.Root.kine.local.rotx"));
    args.Add(CValue(L"10"));
    ORV::Application().ExecuteCommand(L"SetExpr", args, ignored);
    std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(rig.model, &rig.map));
    ASSERT_EQ(glue->mocaps.size(), 1u);
    EXPECT_EQ(glue->mocaps[0].kind, 1);
}

TEST_F(Glue, ConstraintsOnAnObjectDecideItsKindInTheirOrder) {
    Rig rig({{-1, 0}});
    ORV::Null root = AddNull(rig.model, L"Root", CVector3(0, 10, 0));
    ORV::Null other = AddNull(rig.model, L"Other", CVector3(0, 0, 0));
    rig.map.nodes[0].object = root;
    ORV::Constraint c;
    root.GetKinematics().AddConstraint(L"Orientation", other, c);
    root.GetKinematics().AddConstraint(L"Position", other, c);
    std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(rig.model, &rig.map));
    ASSERT_EQ(glue->mocaps.size(), 1u);
    EXPECT_EQ(glue->mocaps[0].kind, 1);
}

TEST_F(Glue, AStoredGlueReadsBackValueForValue) {
    Rig rig({{-1, 0}});
    GlueMap glue;
    ZUK::MocapConstraint m;
    m.rigNodeName = L"Hips";
    m.tagName = L"cog";
    m.kind = 1;
    glue.mocaps.push_back(m);
    ZUK::PlaneConstraint p;
    p.upVectorName = L"KneeUp";
    p.planeName = L"lshin";
    p.upSign = -1;
    p.upLength = 8.25;
    p.rest.SetTranslation(CVector3(0.5, -1.25, 3.0));
    glue.planes.push_back(p);
    ZUK::SpineConstraint s;
    s.anchorName = L"Spine1";
    s.baseName = L"Spine2";
    s.goalName = L"Chest";
    s.tagName = L"chest";
    s.aaxis = CVector3(0, 1, 0);
    s.aroll = CVector3(0, 0, 1);
    s.axis = CVector3(0.1, 0.9, 0);
    s.roll = CVector3(0, 0.2, 0.8);
    s.atan = CVector3(0, 0.35, 0);
    s.gtan = CVector3(0, -0.7, 0.125);
    glue.spines.push_back(std::move(s));
    glue.SaveToCustomProperty(rig.model);
    glue.SaveToCustomProperty(rig.model);  // replaces, never adds a second

    std::unique_ptr<GlueMap> back(GlueMap::CreateFromCustomProperty(rig.model));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->mocaps.size(), 1u);
    EXPECT_EQ(back->mocaps[0].rigNodeName, ORV::CString(L"Hips"));
    EXPECT_EQ(back->mocaps[0].tagName, ORV::CString(L"cog"));
    EXPECT_EQ(back->mocaps[0].kind, 1);
    ASSERT_EQ(back->planes.size(), 1u);
    EXPECT_EQ(back->planes[0].upVectorName, ORV::CString(L"KneeUp"));
    EXPECT_EQ(back->planes[0].planeName, ORV::CString(L"lshin"));
    EXPECT_EQ(back->planes[0].upSign, -1);
    EXPECT_EQ(back->planes[0].upLength, 8.25);
    EXPECT_TRUE(back->planes[0].rest.GetTranslation().Equals(CVector3(0.5, -1.25, 3.0), 0.0));
    ASSERT_EQ(back->spines.size(), 1u);
    const ZUK::SpineConstraint& r = back->spines[0];
    EXPECT_EQ(r.anchorName, ORV::CString(L"Spine1"));
    EXPECT_EQ(r.baseName, ORV::CString(L"Spine2"));
    EXPECT_EQ(r.goalName, ORV::CString(L"Chest"));
    EXPECT_EQ(r.tagName, ORV::CString(L"chest"));
    EXPECT_TRUE(r.axis.Equals(CVector3(0.1, 0.9, 0), 0.0));
    EXPECT_TRUE(r.roll.Equals(CVector3(0, 0.2, 0.8), 0.0));
    EXPECT_TRUE(r.gtan.Equals(CVector3(0, -0.7, 0.125), 0.0));
    EXPECT_TRUE(r.aroll.Equals(CVector3(0, 0, 1), 0.0));
    int properties = 0;
    ORV::CRefArray all = rig.model.GetProperties();
    for (long i = 0; i < all.GetCount(); ++i)
        if (ORV::Property(all[i]).GetName() == ORV::CString(L"ZUKGlue")) ++properties;
    EXPECT_EQ(properties, 1);
}

TEST_F(Glue, AStoredVersionOtherThanFourIsOutdated) {
    for (const wchar_t* version : {L"3", L"5"}) {
        Rig rig({{-1, 0}});
        GlueMap().SaveToCustomProperty(rig.model);
        ORV::Property property;
        ORV::CRefArray all = rig.model.GetProperties();
        for (long i = 0; i < all.GetCount(); ++i)
            if (ORV::Property(all[i]).GetName() == ORV::CString(L"ZUKGlue")) property = ORV::Property(all[i]);
        property.PutParameterValue(L"Version", CValue(version));
        orvhost::ClearLog();
        EXPECT_EQ(GlueMap::CreateFromCustomProperty(rig.model), nullptr);
        EXPECT_EQ(orvhost::LogTexts(8), std::vector<std::wstring>{L"GlueMap data is outdated - please re-tag."});
        orvhost::NewScene();
    }
}

// ---- Per frame

// An anchor (1), middle joint (2) and goal (3) under a root (0), with an up-vector object.
struct LimbRig : Rig {
    ORV::Null up;
    GlueMap glue;
    explicit LimbRig(std::vector<std::vector<long>> planes = {{3, 2, 1}})
        : Rig({{-1, 0}, {0, 1}, {1, 0}, {1, 2}, {2, 0}}, planes) {
        up = AddNull(model, L"Up", CVector3(0, 0, 0));
        map.nodes[1].global = At(0, 10, 0);
        map.nodes[2].global = At(0, 5, 1);
        map.nodes[3].global = At(0, 0, 0);
        map.nodes[4].global = At(0, 2.5, 0.5);
        map.planes[0].normal = CVector3(1, 0, 0);
        ZUK::PlaneConstraint c;
        c.object = up;
        c.planeIndex = 0;
        c.upLength = 4.0;
        c.upSign = 1;
        c.rest.SetTranslation(CVector3(0, -5, 4));
        glue.planes.push_back(c);
        glue.modelMap = &map;
    }
    CVector3 Solve() {
        glue.applyPlaneConstraint(up.GetKinematics().GetGlobal(), 0, 0.0);
        return GlobalOf(up).GetTranslation();
    }
};

TEST_F(Glue, TheUpVectorStandsOnTheSideOfTheBendAtItsDistance) {
    // d runs down (0,-1,0), n = X: u = n x d = (0,0,-1).
    LimbRig rig;
    EXPECT_TRUE(rig.Solve().Equals(CVector3(0, 10, -4), 1e-12));
    rig.glue.planes[0].upSign = -1;
    EXPECT_TRUE(rig.Solve().Equals(CVector3(0, 10, 4), 1e-12));
}

TEST_F(Glue, AStraightLimbKeepsTheUpVectorAtItsRestOffsetFromTheAnchor) {
    LimbRig rig;
    rig.map.planes[0].normal = CVector3(0, 0, 0);
    EXPECT_TRUE(rig.Solve().Equals(CVector3(0, 5, 4), 1e-12));
    rig.map.nodes[1].global = At(3, 7, 1);  // it moves with the anchor
    EXPECT_TRUE(rig.Solve().Equals(CVector3(3, 2, 5), 1e-12));
}

TEST_F(Glue, AnUpSignOfZeroAppliesNoFlip) {
    LimbRig rig;
    rig.glue.planes[0].upSign = 0;
    EXPECT_TRUE(rig.Solve().Equals(CVector3(0, 10, -4), 1e-12));
}

TEST_F(Glue, ALimbFoldedBackPastItsAnchorIgnoresTheUpSign) {
    // The middle joint above the anchor: w = (A - M) points along d.
    LimbRig rig;
    rig.map.nodes[2].global = At(0, 14, 1);
    const CVector3 plus = rig.Solve();
    rig.glue.planes[0].upSign = -1;
    EXPECT_TRUE(rig.Solve().Equals(plus, 1e-12));
    // u is w without its part along n: (0,-4,-1) normalised, times 4, from the anchor.
    CVector3 u(0, -4, -1);
    u.NormalizeInPlace();
    EXPECT_TRUE(plus.Equals(CVector3(0, 10, 0) + u * 4.0, 1e-12));
}

TEST_F(Glue, AChainOfFourBonesHangsTheUpVectorOffTheMiddleNode) {
    LimbRig rig({{3, 2, 4, 1}});
    rig.map.structure->planes[0].Mid = 4;
    EXPECT_TRUE(rig.Solve().Equals(CVector3(0, 2.5, -3.5), 1e-12));
}

TEST_F(Glue, ANodeWithoutASourceLeavesItsObjectWhereTheUserPutIt) {
    Rig rig({{-1, 0}});
    ORV::Null object = AddNull(rig.model, L"Hand", CVector3(1, 2, 3));
    rig.map.nodes[0].global = At(7, 8, 9);
    rig.map.nodes[0].translationSource = -1;
    GlueMap glue;
    ZUK::MocapConstraint c;
    c.nodeIndex = 0;
    glue.mocaps.push_back(c);
    glue.modelMap = &rig.map;
    glue.applyMocapConstraint(object.GetKinematics().GetGlobal(), 0);
    EXPECT_TRUE(GlobalOf(object).GetTranslation().Equals(CVector3(1, 2, 3), 1e-12));
    rig.map.nodes[0].translationSource = 0;
    glue.applyMocapConstraint(object.GetKinematics().GetGlobal(), 0);
    EXPECT_TRUE(GlobalOf(object).GetTranslation().Equals(CVector3(7, 8, 9), 1e-12));
}

TEST_F(Glue, AMirroredObjectWhoseAxesMapToOneAxisKeepsTheNegatedRows) {
    Rig rig({{-1, 0}});
    ORV::Null object = AddNull(rig.model, L"Mirror", CVector3(0, 0, 0));
    CTransformation mirrored;
    mirrored.SetScaling(CVector3(-1, 1, 1));
    object.GetKinematics().GetGlobal().PutTransform(mirrored);
    rig.map.nodes[0].global.SetRotation(CRotation(0.3, 0.2, 0.1));
    rig.map.nodes[0].translationSource = 0;
    rig.map.nodes[0].align = CVector3(0, 1, 0);
    rig.map.nodes[0].roll = CVector3(0, 2, 0);
    GlueMap glue;
    ZUK::MocapConstraint c;
    c.nodeIndex = 0;
    c.ownNodeIndex = 0;
    c.kind = 2;
    glue.mocaps.push_back(c);
    glue.modelMap = &rig.map;
    glue.applyMocapConstraint(object.GetKinematics().GetGlobal(), 0);
    // The three rows negated are left-handed: the host keeps a mirrored object's rotation as
    // its sign-on-X form, so the object turns exactly as the node, mirrored on X.
    const CTransformation g = GlobalOf(object);
    EXPECT_LT(g.GetScaling().x, 0.0);
    EXPECT_TRUE(g.GetRotation().Equals(rig.map.nodes[0].global.GetRotation(), 1e-9));
}

TEST_F(Glue, DecompositionMaskSevenTakesTranslationOnly) {
    Rig rig({{-1, 0}});
    ORV::Null input = AddNull(rig.model, L"In", CVector3(1, 0, 0));
    ORV::Null out = AddNull(input, L"Out", CVector3(1, 0, 0));
    rig.map.nodes[0].global = At(2, 3, 4);
    rig.map.nodes[0].global.SetRotation(CRotation(0.5, 0.0, 0.0));
    rig.map.nodes[0].translationSource = 0;
    rig.map.nodes[0].decomps.resize(1);
    rig.map.nodes[0].decomps[0].mask = 7;
    GlueMap glue;
    glue.modelMap = &rig.map;
    glue.applyDecompConstraint(input.GetKinematics().GetGlobal(), out.GetKinematics().GetLocal(), 0, 0);
    const CTransformation local = out.GetKinematics().GetLocal().GetTransform();
    EXPECT_TRUE(local.GetTranslation().Equals(CVector3(1, 3, 4), 1e-12));
    EXPECT_TRUE(local.GetRotation().Equals(CRotation(), 1e-12));
}

TEST_F(Glue, DecompositionRotationToPositionReplacesTheTranslationBits) {
    Rig rig({{-1, 0}});
    ORV::Null input = AddNull(rig.model, L"In", CVector3(1, 0, 0));
    ORV::Null out = AddNull(input, L"Out", CVector3(1, 0, 0));
    rig.map.nodes[0].global = At(2, 3, 4);
    rig.map.nodes[0].global.SetRotation(CRotation(CVector3(0, 0, 1), 1.5707963267948966));
    rig.map.nodes[0].translationSource = 0;
    rig.map.nodes[0].decomps.resize(1);
    rig.map.nodes[0].decomps[0].mask = 64 | 7;
    GlueMap glue;
    glue.modelMap = &rig.map;
    glue.applyDecompConstraint(input.GetKinematics().GetGlobal(), out.GetKinematics().GetLocal(), 0, 0);
    // X of the node, (1,0,0) turned a quarter about Z to (0,1,0), at (2,3,4): (2,4,4) in the
    // world, (1,4,4) in the input's space.
    EXPECT_TRUE(out.GetKinematics().GetLocal().GetTransform().GetTranslation().Equals(CVector3(1, 4, 4), 1e-12));
}

TEST_F(Glue, DecompositionOfRotationBitsEightAndSixteenTakesOnlyY) {
    Rig rig({{-1, 0}});
    ORV::Null input = AddNull(rig.model, L"In", CVector3(0, 0, 0));
    ORV::Null out = AddNull(input, L"Out", CVector3(0, 0, 0));
    rig.map.nodes[0].global.SetRotation(CRotation(0.2, 0.3, 0.0));
    rig.map.nodes[0].translationSource = 0;
    rig.map.nodes[0].decomps.resize(1);
    rig.map.nodes[0].decomps[0].mask = 8 | 16;
    GlueMap glue;
    glue.modelMap = &rig.map;
    glue.applyDecompConstraint(input.GetKinematics().GetGlobal(), out.GetKinematics().GetLocal(), 0, 0);
    const CVector3 e = out.GetKinematics().GetLocal().GetTransform().GetRotationXYZAngles();
    EXPECT_NEAR(e.x, 0.0, 1e-12);
    EXPECT_NEAR(e.y, rig.map.nodes[0].global.GetRotationXYZAngles().y, 1e-12);
    EXPECT_NEAR(e.z, 0.0, 1e-12);
}

// ---- Spines

struct SpineRig {
    ORV::Model model;
    ORV::X3DObject anchor, base, goal;
    std::vector<ORV::Null> objects;
    SpineRig(const std::vector<double>& heights) {
        ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Spine", model);
        ORV::X3DObject parent = AddNull(model, L"Anchor", CVector3(0, 0, 0));
        anchor = parent;
        for (size_t i = 0; i < heights.size(); ++i) {
            ORV::Null n = AddNull(parent, (L"S" + std::to_wstring(i)).c_str(), CVector3(0, heights[i], 0));
            objects.push_back(n);
            parent = n;
        }
        base = objects.front();
        goal = objects.back();
    }
    ZUK::SpineMap* Make() {
        CVector3 y(0, 1, 0), z(0, 0, 1);
        return new ZUK::SpineMap(anchor, base, goal, y, z, y, z);
    }
};

TEST_F(Glue, TwoCoincidentSpineObjectsCountAsOne) {
    SpineRig rig({1, 2, 2, 3});
    std::unique_ptr<ZUK::SpineMap> spine(rig.Make());
    EXPECT_EQ(spine->nodes.GetCount(), 3);
    ASSERT_EQ(spine->lengths.GetCount(), 2);
    EXPECT_NEAR(spine->lengths[0], 1.0, 1e-12);
    EXPECT_NEAR(spine->lengths[1], 1.0, 1e-12);
}

TEST_F(Glue, ASpineOfTwoObjectsHasOneSolvedSegment) {
    SpineRig rig({1, 3});
    std::unique_ptr<ZUK::SpineMap> spine(rig.Make());
    ASSERT_EQ(spine->nodes.GetCount(), 2);
    ASSERT_EQ(spine->lengths.GetCount(), 1);
    ZUK::SpineConstraint c;
    c.numNodes = 2;
    spine->anchorTransform = CTransformation();
    spine->baseTransform = At(0, 1, 0);
    // The goal bent over to the side: the one segment points from the base at the goal.
    spine->preSolve(At(2, 1, 0), CVector3(0, 0.5, 0), CVector3(-0.5, 0, 0), 0.0);
    spine->preComputeSegments(c);
    CVector3 laid;
    laid.MulByMatrix3(CVector3(0, 2, 0), spine->segmentTransforms[0].GetRotationMatrix3());
    const CVector3 expected = spine->intersections[0] - CVector3(0, 1, 0);
    EXPECT_NEAR(laid.GetAngle(expected), 0.0, 1e-9);
    EXPECT_GT(std::fabs(laid.x), 0.5);
}

TEST_F(Glue, AGoalTurningPastHalfATurnUnwrapsToTheNearestTurn) {
    SpineRig rig({1, 3});
    std::unique_ptr<ZUK::SpineMap> spine(rig.Make());
    spine->anchorTransform = CTransformation();
    const CRotation before(CVector3(0, 1, 0), 3.1);
    const double spin = spine->getDeltaSpin(before, 0.0);
    EXPECT_NEAR(spin, 3.1, 1e-9);
    const CRotation after(CVector3(0, 1, 0), -3.1);
    const double next = spine->getDeltaSpin(after, spin);
    EXPECT_NEAR(next - spin, 2 * M_PI - 6.2, 1e-6);
    // And the other way round.
    const double back = spine->getDeltaSpin(before, spine->getDeltaSpin(after, 0.0));
    EXPECT_NEAR(back - (-3.1), -(2 * M_PI - 6.2), 1e-6);
}

TEST_F(Glue, KeyedSpineObjectsShareTheirRunsLength) {
    SpineRig rig({1, 2, 4, 5});
    // S1 and S2 are keyed: the run S0-S3 of lengths 1, 2, 1 gets one mean length.
    for (int i : {1, 2}) {
        ORV::FCurve curve;
        rig.objects[i].GetKinematics().GetLocal().GetParameter(L"rotx").AddFCurve(20, curve);
        curve.AddKey(ORV::CTime(1.0), CValue(0.0));
        curve.AddKey(ORV::CTime(10.0), CValue(5.0));
    }
    std::unique_ptr<ZUK::SpineMap> spine(rig.Make());
    ASSERT_EQ(spine->lengths.GetCount(), 3);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(spine->lengths[k], 4.0 / 3.0, 1e-12);
    EXPECT_EQ(spine->animated[0], 0);
    EXPECT_EQ(spine->animated[1], 1);
    EXPECT_EQ(spine->animated[2], 1);
}

}  // namespace

namespace {

TEST_F(Glue, AnUnfedObjectOnALimbsGoalRidesOnTheGoalTurnedByTheirAxes) {
    // Node 4 hangs under the goal (3) and sits on it; it has no source, the goal has one.
    Rig rig({{-1, 0}, {0, 1}, {1, 0}, {1, 2}, {3, 0}}, {{3, 2, 1}});
    ORV::Null goal = AddNull(rig.model, L"Goal", CVector3(1, 0, 0));
    ORV::Null toe = AddNull(goal, L"Toe", CVector3(1, 0, 0.0005));
    ORV::Null far = AddNull(goal, L"Far", CVector3(1, 0, 2));
    rig.map.nodes[3].object = goal;
    rig.map.nodes[4].object = toe;
    rig.map.nodes[3].translationSource = 3;
    rig.map.nodes[3].align = CVector3(0, 0, 1);
    rig.map.nodes[3].roll = CVector3(0, 1, 0);
    rig.map.nodes[4].align = CVector3(1, 0, 0);
    rig.map.nodes[4].roll = CVector3(0, 1, 0);
    GlueMap glue;
    ZUK::MocapConstraint c;
    c.nodeIndex = 4;
    glue.mocaps.push_back(c);
    glue.modelMap = &rig.map;
    glue.syncToModelMap();
    EXPECT_EQ(glue.mocaps[0].nodeIndex, 3);
    CVector3 turned;
    turned.MulByMatrix3(CVector3(1, 0, 0), glue.mocaps[0].rotationOffset.GetMatrix());
    EXPECT_TRUE(turned.Equals(CVector3(0, 0, 1), 1e-12));

    // Farther than a ten-thousandth of the leg length: it keeps its own node.
    rig.map.nodes[4].object = far;
    glue.mocaps[0].nodeIndex = 4;
    glue.mocaps[0].rotationOffset = CRotation();
    glue.syncToModelMap();
    EXPECT_EQ(glue.mocaps[0].nodeIndex, 4);
}

}  // namespace

namespace {

// A leg chain whose first joint is rolled by 30 degrees, under a root that may be mirrored.
double JointRollReadBack(bool mirroredRoot) {
    orvhost::NewScene();
    Rig rig({{-1, 0}, {0, 1}, {1, 0}, {1, 2}}, {{3, 2, 1}});
    ORV::Null root = AddNull(rig.model, L"Root", CVector3(0, 10, 0));
    if (mirroredRoot) {
        CTransformation t = At(0, 10, 0);
        t.SetScaling(CVector3(-1, 1, 1));
        root.GetKinematics().GetGlobal().PutTransform(t);
    }
    ORV::ChainRoot chain;
    root.Add2DChain(CVector3(0, 10, 0), CVector3(0, 5, 0.5), CVector3(1, 0, 0), L"Leg", chain);
    ORV::ChainBone upper(chain.GetBones()[0]), lower;
    chain.AddBone(CVector3(0, 0, 0), L"Lower", lower);
    if (mirroredRoot) {
        CTransformation t = chain.GetKinematics().GetGlobal().GetTransform();
        t.SetScaling(CVector3(-1, 1, 1));
        chain.GetKinematics().GetGlobal().PutTransform(t);
    }
    ORV::Null goal = AddNull(rig.model, L"Goal", CVector3(0, 0, 0));
    ORV::Null up = AddNull(rig.model, L"Up", CVector3(0, 5, 4));
    upper.GetJoint().PutUpVectorReference(up);
    CValue ignored;
    CValueArray args;
    args.Add(CValue(upper.GetFullName() + L".joint.roll"));
    args.Add(CValue(30.0));
    ORV::Application().ExecuteCommand(L"SetValue", args, ignored);
    rig.map.nodes[0].object = root;
    rig.map.nodes[1].object = upper;
    rig.map.nodes[2].object = lower;
    rig.map.nodes[3].object = goal;
    std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(rig.model, &rig.map));
    return glue->planes.empty() ? 0.0 : glue->planes[0].jointRoll;
}

TEST_F(Glue, AMirroredAnchorReversesTheSignOfTheJointRoll) {
    const double plain = JointRollReadBack(false);
    const double mirrored = JointRollReadBack(true);
    // (the anchor reads as mirrored: its global X scaling is below 0)
    EXPECT_NEAR(plain, 30.0 * -0.017453293, 1e-12);
    EXPECT_NEAR(mirrored, 30.0 * 0.017453293, 1e-12);
}

}  // namespace
