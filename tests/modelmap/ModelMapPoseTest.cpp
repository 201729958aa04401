// Reading a rig's pose into a map: globals with unit scaling, identity for untagged nodes,
// extraction objects on request, proper rotations for mirrored objects, and locals against the
// structure parent.
#include <gtest/gtest.h>

#include <memory>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "host/RigBuilders.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"

using ORV::MATH::CMatrix3;
using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::ModelMap;
using ZUK::ModelStructure;

namespace {

class RigPose : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        root = ORV::Application().GetActiveSceneRoot();
        biped = modelmaptest::LoadStructure(L"biped");
        ASSERT_TRUE(biped);
        root.AddModel(ORV::CRefArray(), L"Rig", model);
        map.structure = biped.get();
        map.nodes.resize(biped->numNodes);
        map.planes.resize(biped->numPlanes);
    }

    // A null under the model with the given global pose.
    ORV::Null Put(const wchar_t* name, const CTransformation& pose) {
        ORV::Null n;
        model.AddNull(name, n);
        n.GetKinematics().GetGlobal().PutTransform(pose);
        return n;
    }

    modelmaptest::FactoryData data;
    ORV::Model root, model;
    std::unique_ptr<ModelStructure> biped;
    ModelMap map;
};

CTransformation Pose(const CVector3& scaling, const CRotation& rotation, const CVector3& translation) {
    return CTransformation(scaling, rotation, translation);
}

// The rotation whose matrix has these rows.
CRotation FromRows(const CVector3& x, const CVector3& y, const CVector3& z) {
    CMatrix3 m;
    m.SetRow(0, x);
    m.SetRow(1, y);
    m.SetRow(2, z);
    return CRotation(m);
}

}  // namespace

TEST_F(RigPose, GlobalsAreReadWithUnitScalingAndUntaggedNodesReadIdentity) {
    const CRotation turn(0.3, -0.2, 1.1);
    ORV::Null a = Put(L"a", Pose(CVector3(2, 3, 0.5), turn, CVector3(1, 2, 3)));
    map.nodes[1].object = a;
    map.nodes[2].global.SetTranslation(CVector3(9, 9, 9));  // no object: becomes identity
    map.CopyTransformsToNodeMap(ModelMap::NOW, false);
    EXPECT_EQ(map.nodes[1].global.GetScaling(), CVector3(1, 1, 1));
    EXPECT_TRUE(map.nodes[1].global.GetRotation().Equals(turn, 1e-12));
    EXPECT_TRUE(map.nodes[1].global.GetTranslation().Equals(CVector3(1, 2, 3), 1e-12));
    EXPECT_TRUE(map.nodes[2].global.Equals(CTransformation(), 0.0));
    EXPECT_TRUE(map.nodes[0].global.Equals(CTransformation(), 0.0));
}

TEST_F(RigPose, ExtractionObjectIsReadOnlyWhenAskedAndWhenItExists) {
    ORV::Null control = Put(L"control", Pose(CVector3(1, 1, 1), CRotation(), CVector3(1, 0, 0)));
    ORV::Null skeleton = Put(L"skeleton", Pose(CVector3(1, 1, 1), CRotation(0, 0.5, 0), CVector3(0, 4, 0)));
    map.nodes[3].object = control;
    map.nodes[3].extraction = new ZUK::ExtractionMap;
    map.nodes[3].extraction->object = skeleton;
    map.CopyTransformsToNodeMap(ModelMap::NOW, false);
    EXPECT_TRUE(map.nodes[3].global.GetTranslation().Equals(CVector3(1, 0, 0), 1e-12));
    map.CopyTransformsToNodeMap(ModelMap::NOW, true);
    EXPECT_TRUE(map.nodes[3].global.GetTranslation().Equals(CVector3(0, 4, 0), 1e-12));
    EXPECT_TRUE(map.nodes[3].global.GetRotation().Equals(CRotation(0, 0.5, 0), 1e-12));
    map.nodes[3].extraction->object = ORV::X3DObject();
    map.CopyTransformsToNodeMap(ModelMap::NOW, true);
    EXPECT_TRUE(map.nodes[3].global.GetTranslation().Equals(CVector3(1, 0, 0), 1e-12));
}

TEST_F(RigPose, MirroredObjectKeepsItsBoneAxesAndTheThirdCarriesTheMirror) {
    const CRotation turn(0.4, 0.9, -0.3);
    const CMatrix3 r = turn.GetMatrix();
    const CVector3 x = r.GetRow(0), y = r.GetRow(1), z = r.GetRow(2);
    // Mirrored in its own X: the object's axes are -x, y, z.
    ORV::Null mirrored = Put(L"mirrored", Pose(CVector3(-1, 1, 1), turn, CVector3(5, 6, 7)));
    ASSERT_LT(mirrored.GetKinematics().GetGlobal().GetTransform().GetScaling().x, 0.0);
    struct Case {
        CVector3 align, roll;
        CRotation want;  // rows: the object's axes with the unmarked one rebuilt
    };
    const Case cases[] = {
        // Along Y with its twist on Z: X is rebuilt as Y x Z, and turns back to +x.
        {CVector3(0, 1, 0), CVector3(0, 0, 1), FromRows(x, y, z)},
        // Along X with its twist on Y: Z is rebuilt as X x Y = -z.
        {CVector3(1, 0, 0), CVector3(0, 1, 0), FromRows(-x, y, -z)},
        // Along Z with its twist on X: Y is rebuilt as Z x X = -y.
        {CVector3(0, 0, 1), CVector3(1, 0, 0), FromRows(-x, -y, z)},
        // Down its -Y: the signed comparison marks X (0 is not below -1, nor below 0), so with
        // the twist on Z it is Y that is rebuilt.
        {CVector3(0, -1, 0), CVector3(0, 0, 1), FromRows(-x, -y, z)},
    };
    for (const Case& c : cases) {
        map.nodes[4].object = mirrored;
        map.nodes[4].align = c.align;
        map.nodes[4].roll = c.roll;
        map.CopyTransformsToNodeMap(ModelMap::NOW, false);
        EXPECT_TRUE(map.nodes[4].global.GetRotation().Equals(c.want, 1e-12))
            << c.align.x << " " << c.align.y << " " << c.align.z << " / " << c.roll.x << " " << c.roll.y
            << " " << c.roll.z;
        EXPECT_TRUE(map.nodes[4].global.GetTranslation().Equals(CVector3(5, 6, 7), 1e-12));
        EXPECT_EQ(map.nodes[4].global.GetScaling(), CVector3(1, 1, 1));
    }
}

TEST_F(RigPose, MirroredObjectWithAlignAndRollOnOneAxisKeepsAllThreeMirroredAxes) {
    ORV::Null mirrored =
        Put(L"mirrored", Pose(CVector3(-1, 1, 1), CRotation(0.4, 0.9, -0.3), CVector3(5, 6, 7)));
    const CTransformation read = mirrored.GetKinematics().GetGlobal().GetTransform();
    map.nodes[4].object = mirrored;
    map.nodes[4].align = CVector3(0, 1, 0);
    map.nodes[4].roll = CVector3(0, 2, 0);
    map.CopyTransformsToNodeMap(ModelMap::NOW, false);
    // Nothing is rebuilt: the rotation stays as the host decomposed the mirrored transform.
    EXPECT_TRUE(map.nodes[4].global.GetRotation().Equals(read.GetRotation(), 1e-12));
}

TEST_F(RigPose, MirroredExtractionIsRebuiltFromTheExtractionsDirections) {
    const CRotation turn(0.4, 0.9, -0.3);
    const CMatrix3 r = turn.GetMatrix();
    ORV::Null control = Put(L"control", Pose(CVector3(1, 1, 1), CRotation(), CVector3()));
    ORV::Null mirrored = Put(L"mirrored", Pose(CVector3(-1, 1, 1), turn, CVector3()));
    map.nodes[4].object = control;
    map.nodes[4].align = CVector3(0, 1, 0);  // would rebuild X
    map.nodes[4].roll = CVector3(0, 0, 1);
    map.nodes[4].extraction = new ZUK::ExtractionMap;
    map.nodes[4].extraction->object = mirrored;
    map.nodes[4].extraction->align = CVector3(1, 0, 0);  // rebuilds Z
    map.nodes[4].extraction->roll = CVector3(0, 1, 0);
    map.CopyTransformsToNodeMap(ModelMap::NOW, true);
    EXPECT_TRUE(
        map.nodes[4].global.GetRotation().Equals(FromRows(-r.GetRow(0), r.GetRow(1), -r.GetRow(2)), 1e-12));
}

TEST_F(RigPose, LocalsAreRelativeToTheStructureParentAndUnparentedNodesKeepTheirs) {
    const int spine = biped->nodeIndex(L"spine"), chest = biped->nodeIndex(L"chest");
    ORV::Null cog = Put(L"cog", Pose(CVector3(1, 1, 1), CRotation(0, 0.3, 0), CVector3(0, 10, 0)));
    ORV::Null back = Put(L"back", Pose(CVector3(1, 1, 1), CRotation(0.2, 0, 0), CVector3(0, 12, 1)));
    map.nodes[0].object = cog;
    map.nodes[spine].object = back;
    const CTransformation kept(CVector3(1, 1, 1), CRotation(1, 2, 3), CVector3(4, 5, 6));
    biped->nodes[chest].Parent = -1;
    map.nodes[chest].local = kept;
    map.CopyTransformsToNodeMap(ModelMap::NOW, false);
    EXPECT_TRUE(map.nodes[0].local.Equals(map.nodes[0].global, 0.0));
    CTransformation rebuilt;
    rebuilt.Mul(map.nodes[spine].local, map.nodes[0].global);
    EXPECT_TRUE(rebuilt.Equals(map.nodes[spine].global, 1e-12));
    EXPECT_FALSE(map.nodes[spine].local.Equals(map.nodes[spine].global, 1e-3));
    EXPECT_TRUE(map.nodes[chest].local.Equals(kept, 0.0));
}

TEST_F(RigPose, PoseIsReadAtTheTimeGiven) {
    ORV::Null a = Put(L"a", Pose(CVector3(1, 1, 1), CRotation(), CVector3()));
    ORV::FCurve curve;
    ASSERT_EQ(a.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(ORV::ovStandardFCurve, curve),
              ORV::CStatus::OK);
    curve.AddKey(ORV::CTime(0.0), ORV::CValue(0.0), ORV::ovLinearInterpolation);
    curve.AddKey(ORV::CTime(10.0), ORV::CValue(10.0), ORV::ovLinearInterpolation);
    map.nodes[1].object = a;
    map.CopyTransformsToNodeMap(4.0, false);
    EXPECT_NEAR(map.nodes[1].global.GetTranslation().x, 4.0, 1e-9);
}
