// ReferencePose and ThreePointConstraint on hand-made rigs of nulls in the headless host: the
// triangle choice, the clean-up between limbs, the T-pose, realignment, marker order conversion,
// and the ".c3dpose" file, also across two processes on a real frame of CMU 01_01.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "C3DTestFiles.h"
#include "HostTesting.h"
#include "TempFile.h"
#include "core/FileStream.h"
#include "mocap/C3DFile.h"
#include "mocap/C3DImport.h"
#include "mocap/ReferencePose.h"
#include "shell/Util.h"

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::ReferencePose;
using ZUK::ThreePointConstraint;

namespace {

ORV::Model Root() { return ORV::Application().GetActiveSceneRoot(); }

ORV::Model AddModel(const wchar_t* name) {
    ORV::Model model;
    Root().AddModel(ORV::CRefArray(), name, model);
    return model;
}

ORV::X3DObject AddNull(ORV::X3DObject parent, const wchar_t* name, const CVector3& at,
                       const CRotation& rotation = CRotation()) {
    ORV::Null n;
    parent.AddNull(name, n);
    CTransformation t;
    t.SetTranslation(at);
    t.SetRotation(rotation);
    n.GetKinematics().GetGlobal().PutTransform(t, DBL_MAX);
    return n;
}

CTransformation Global(const ORV::X3DObject& o) {
    return o.GetKinematics().GetGlobal().GetTransform(DBL_MAX);
}

// A marker model: its top null first, the markers under it in order.
ORV::Model AddMarkers(const wchar_t* name, const std::vector<std::wstring>& names,
                      const std::vector<CVector3>& positions) {
    ORV::Model model = AddModel(name);
    ORV::X3DObject top = AddNull(model, L"MarkerTop", CVector3());
    for (size_t i = 0; i < names.size(); ++i) {
        AddNull(top, names[i].c_str(), i < positions.size() ? positions[i] : CVector3());
    }
    return model;
}

void AddTagProperty(ORV::Model rig, const wchar_t* structure) {
    ORV::CustomProperty tag;
    rig.AddCustomProperty(L"TagPPG", false, tag);
    ORV::Parameter p;
    tag.AddParameter(L"StructureFile", ORV::ovString, ORV::ovPersistable, L"StructureFile", L"",
                     ORV::CValue(structure), p);
}

// Marks `node` as a structure node whose only child lies along `direction` in the canonical pose,
// and gives it the connection line that such nodes carry.
void MakeOneChildNode(ORV::X3DObject node, const CVector3& direction) {
    ORV::CustomProperty tag;
    node.AddCustomProperty(L"ZUKStructTag", false, tag);
    ORV::Parameter p;
    tag.AddParameter(L"childx", ORV::ovDouble, ORV::ovPersistable, L"childx", L"", ORV::CValue(direction.x),
                     p);
    tag.AddParameter(L"childy", ORV::ovDouble, ORV::ovPersistable, L"childy", L"", ORV::CValue(direction.y),
                     p);
    tag.AddParameter(L"childz", ORV::ovDouble, ORV::ovPersistable, L"childz", L"", ORV::CValue(direction.z),
                     p);
    ZUK::Util::drawLine(node, CVector3(0, 0, 0), CVector3(1, 1, 1), L"", 1);
}

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string TempPath(const char* suffix) {
    std::string templ = std::string("/tmp/trovo_pose_XXXXXX") + suffix;
    const int fd = mkstemps(&templ[0], static_cast<int>(std::char_traits<char>::length(suffix)));
    if (fd >= 0) close(fd);
    return templ;
}

class ReferencePoseTest : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearAnswers();
        orvhost::ClearLog();
    }
};

void ExpectMarkers(const ThreePointConstraint& c, int a, int b, int d) {
    EXPECT_EQ(c.markers[0], a);
    EXPECT_EQ(c.markers[1], b);
    EXPECT_EQ(c.markers[2], d);
}

int CountLogged(const std::wstring& text, int severity) {
    int n = 0;
    for (const orvhost::LogEntry& e : orvhost::LogEntries()) n += e.text == text && e.severity == severity;
    return n;
}

}  // namespace

// ---- The frame of three markers ------------------------------------------------------------

TEST_F(ReferencePoseTest, MarkerFrameStandsOnTheFirstMarkerWithXTowardTheSecond) {
    const CVector3 a(1, 2, 3), b(1, 2, 7), c(1, 5, 3);
    const CTransformation frame = ThreePointConstraint::markerFrame(a, b, c);
    const ORV::MATH::CMatrix3 m = frame.GetRotationMatrix3();
    EXPECT_TRUE(frame.GetTranslation().Equals(a));
    // X = (0,0,4) normalised; Z = (0,0,4) x (0,3,0) = (-12,0,0) normalised; Y = Z x X.
    EXPECT_TRUE(m.GetRow(0).Equals(CVector3(0, 0, 1), 1e-12));
    EXPECT_TRUE(m.GetRow(2).Equals(CVector3(-1, 0, 0), 1e-12));
    EXPECT_TRUE(m.GetRow(1).Equals(CVector3(0, 1, 0), 1e-12));
}

TEST_F(ReferencePoseTest, NodePoseIsTheOffsetInTheMarkerFrame) {
    ThreePointConstraint c;
    c.markers[0] = 2;
    c.markers[1] = 0;
    c.markers[2] = 1;
    c.offset.SetTranslation(CVector3(0, 1, 0));
    const CVector3 points[3] = {CVector3(5, 0, 0), CVector3(0, 5, 0), CVector3(0, 0, 0)};
    const CTransformation pose = c.nodePose(points, 3);
    // X along (5,0,0), Z along (5,0,0) x (0,5,0) = +Z, Y = +Y: one unit up from the origin.
    EXPECT_TRUE(pose.GetTranslation().Equals(CVector3(0, 1, 0), 1e-12));
}

// ---- Choosing triangles ----------------------------------------------------------------------

TEST_F(ReferencePoseTest, TwoMarkersAtTheSamePositionNeverBothEnterATriangle) {
    ORV::Model rig = AddModel(L"Rig");
    AddNull(rig, L"Node", CVector3(10, 10, 10));
    CVector3 points[5] = {CVector3(10.5, 10, 10), CVector3(10.5, 10, 10), CVector3(10, 10.7, 10),
                          CVector3(10, 10.7 + 1e-4, 10), CVector3(10, 10, 11)};
    ReferencePose map;
    map.compute3PointConstraint(rig, points, 5);
    ASSERT_EQ(map.nodeCount, 1);
    ExpectMarkers(map.constraints[0], 0, 2, 4);
}

TEST_F(ReferencePoseTest, MarkerAtTheOriginIsRefusedUntilOthersFillTheSlots) {
    ORV::Model rig = AddModel(L"Rig");
    AddNull(rig, L"Node", CVector3(0, 0, 0.1));
    CVector3 points[4] = {CVector3(0, 0, 0), CVector3(1, 0, 0), CVector3(0, 2, 0), CVector3(0, 0, 3)};
    ReferencePose map;
    map.compute3PointConstraint(rig, points, 4);
    ExpectMarkers(map.constraints[0], 1, 2, 3);
}

namespace {

// Top, Hips, Spine, Hand (under Spine), Leg (under Hips), Foot (under Leg): Hand and Foot are
// four bones apart through Hips. The hand stands far out on +X; the marker S lies between hand
// and foot, nearer to the foot, and is the third nearest of both.
struct Limbs {
    ORV::Model rig;
    std::vector<CVector3> points;
};

enum LimbMarker { H1, H2, S, H4, F1, F2, P1, P2, P3, Q1, Q2, Q3, L1, L2, L3, kLimbMarkers };

Limbs BuildLimbs() {
    Limbs l;
    l.rig = AddModel(L"Rig");
    ORV::X3DObject top = AddNull(l.rig, L"Top", CVector3(0, 0, 0));
    ORV::X3DObject hips = AddNull(top, L"Hips", CVector3(0, 10, 0));
    ORV::X3DObject spine = AddNull(hips, L"Spine", CVector3(0, 13, 0));
    AddNull(spine, L"Hand", CVector3(20, 1, 0));
    ORV::X3DObject leg = AddNull(hips, L"Leg", CVector3(1, 5, 0));
    AddNull(leg, L"Foot", CVector3(1, 1, 0));
    l.points.resize(kLimbMarkers);
    l.points[H1] = CVector3(20.5, 1, 0);
    l.points[H2] = CVector3(20, 1.7, 0);
    l.points[S] = CVector3(4, 1, 0);     // 3 from the foot, 16 from the hand
    l.points[H4] = CVector3(20, 1, 17);  // the hand's fourth nearest
    l.points[F1] = CVector3(1.5, 1, 0);
    l.points[F2] = CVector3(1, 1, 0.7);
    l.points[P1] = CVector3(0, 13.5, 0);
    l.points[P2] = CVector3(-0.5, 13, 0);
    l.points[P3] = CVector3(0, 13, 0.6);
    l.points[Q1] = CVector3(0, 10.5, 0);
    l.points[Q2] = CVector3(-0.5, 10, 0);
    l.points[Q3] = CVector3(0, 10, 0.6);
    l.points[L1] = CVector3(1.5, 5, 0);
    l.points[L2] = CVector3(1, 5.5, 0);
    l.points[L3] = CVector3(1, 5, 0.6);
    return l;
}

}  // namespace

TEST_F(ReferencePoseTest, HandGivesUpAMarkerSharedWithANearerFoot) {
    Limbs l = BuildLimbs();
    ReferencePose map;
    map.compute3PointConstraint(l.rig, l.points.data(), kLimbMarkers);
    ASSERT_EQ(map.nodeCount, 6);
    // Hand (3) takes the next nearest, H4, in place of S; Foot (5) keeps S.
    ExpectMarkers(map.constraints[3], H1, H2, H4);
    ExpectMarkers(map.constraints[5], F1, F2, S);
    ExpectMarkers(map.constraints[2], P1, P2, P3);
    ExpectMarkers(map.constraints[4], L1, L2, L3);
    EXPECT_EQ(CountLogged(L"Failed to find a clean three point constraint for the Hand node.", 8), 0);
}

TEST_F(ReferencePoseTest, NodesFewerThanFourBonesApartMayShareAMarker) {
    // With L3 moved away, F1 (4.03 from the leg) becomes the leg's third: leg and foot, one bone
    // apart, both keep it.
    Limbs l = BuildLimbs();
    l.points[L3] = CVector3(1, 5, 9);
    ReferencePose map;
    map.compute3PointConstraint(l.rig, l.points.data(), kLimbMarkers);
    ExpectMarkers(map.constraints[4], L1, L2, F1);
    ExpectMarkers(map.constraints[5], F1, F2, S);
    ExpectMarkers(map.constraints[3], H1, H2, H4);
}

TEST_F(ReferencePoseTest, OffsetPlacesTheNodeInItsMarkerFrame) {
    Limbs l = BuildLimbs();
    ReferencePose map;
    map.compute3PointConstraint(l.rig, l.points.data(), kLimbMarkers);
    ORV::CRefArray nodes = ReferencePose::RigNodes(l.rig);
    for (int i = 0; i < map.nodeCount; ++i) {
        const CTransformation pose = map.constraints[i].nodePose(l.points.data(), kLimbMarkers);
        EXPECT_TRUE(pose.Equals(Global(ORV::X3DObject(nodes[i])), 1e-9)) << i;
    }
}

namespace {

// Top, Hips, Elbow (index 2) and a Wrist below it; the elbow's three nearest markers E1, E2, E3
// stand on a line along Y, E4 is its fourth nearest.
ReferencePose* ElbowWithThirdMarkerAt(const CVector3& e3, ORV::Model& rig) {
    rig = AddModel(L"Rig");
    ORV::X3DObject top = AddNull(rig, L"Top", CVector3(0, 0, 0));
    ORV::X3DObject hips = AddNull(top, L"Hips", CVector3(0, 10, 0));
    ORV::X3DObject elbow = AddNull(hips, L"Elbow", CVector3(0, 13, 0));
    AddNull(elbow, L"Wrist", CVector3(0, 13, 20));
    CVector3 points[7] = {CVector3(0, 13.5, 0), CVector3(0, 14, 0),    e3,
                          CVector3(1.7, 13, 0), CVector3(0.5, 13, 20), CVector3(0, 13.7, 20),
                          CVector3(0, 13, 20.6)};
    ReferencePose* map = new ReferencePose();
    map->compute3PointConstraint(rig, points, 7);
    return map;
}

}  // namespace

TEST_F(ReferencePoseTest, NearlyCollinearTriangleLosesItsThirdMarkerToTheFourthNearest) {
    ORV::Model rig;
    // cosine 1.1 / |(0.15, 1.1)| = 0.9908: above 0.99.
    std::unique_ptr<ReferencePose> map(ElbowWithThirdMarkerAt(CVector3(0.15, 14.6, 0), rig));
    ExpectMarkers(map->constraints[2], 0, 1, 3);
}

TEST_F(ReferencePoseTest, TriangleBelowTheCollinearLimitIsKept) {
    ORV::Model rig;
    // cosine 1.1 / |(0.2, 1.1)| = 0.9839: below 0.99.
    std::unique_ptr<ReferencePose> map(ElbowWithThirdMarkerAt(CVector3(0.2, 14.6, 0), rig));
    ExpectMarkers(map->constraints[2], 0, 1, 2);
}

TEST_F(ReferencePoseTest, FewerThanThreeUsableMarkersLeavesMinusOneAndLogsTheFailure) {
    // Node (index 2) has M1, M2, M3 on a line along Y and further markers only on that line's
    // continuation at Other; a fifth node, Extra, keeps the walk going after each restart.
    ORV::Model rig = AddModel(L"Rig");
    ORV::X3DObject top = AddNull(rig, L"Top", CVector3(0, 0, 0));
    ORV::X3DObject hips = AddNull(top, L"Hips", CVector3(0, 10, 0));
    ORV::X3DObject node = AddNull(hips, L"Node", CVector3(0, 13, 0));
    ORV::X3DObject other = AddNull(node, L"Other", CVector3(0, 30, 0));
    AddNull(other, L"Extra", CVector3(0, 40, 0));
    enum { M1, M2, M3, W1, W2, W3 };
    CVector3 points[6] = {CVector3(0, 13.5, 0), CVector3(0, 14, 0),   CVector3(0, 14.6, 0),
                          CVector3(0.5, 30, 0), CVector3(0, 30.7, 0), CVector3(0, 30, 0.6)};
    ReferencePose map;
    map.compute3PointConstraint(rig, points, 6);
    ExpectMarkers(map.constraints[2], M1, M2, -1);
    EXPECT_EQ(CountLogged(L"Failed to find a clean three point constraint for the Node node.", 8), 1);
    ExpectMarkers(map.constraints[3], W1, W3, W2);
    ExpectMarkers(map.constraints[4], W2, W1, W3);
    EXPECT_EQ(orvhost::LogEntries().size(), 1u);
}

TEST_F(ReferencePoseTest, RestartedWalkRunsOneEntryBehind) {
    // The node of the test above without Extra. After its first new search the walk restarts at
    // the second entry with j = 0, so Other comes up as j = 2, the node's own index, and is
    // skipped: the walk ends there and the nearly straight triangle M1, M2, W1 stays.
    ORV::Model rig = AddModel(L"Rig");
    ORV::X3DObject top = AddNull(rig, L"Top", CVector3(0, 0, 0));
    ORV::X3DObject hips = AddNull(top, L"Hips", CVector3(0, 10, 0));
    ORV::X3DObject node = AddNull(hips, L"Node", CVector3(0, 13, 0));
    AddNull(node, L"Other", CVector3(0, 30, 0));
    enum { M1, M2, M3, W1, W2, W3 };
    CVector3 points[6] = {CVector3(0, 13.5, 0), CVector3(0, 14, 0),   CVector3(0, 14.6, 0),
                          CVector3(0.5, 30, 0), CVector3(0, 30.7, 0), CVector3(0, 30, 0.6)};
    ReferencePose map;
    map.compute3PointConstraint(rig, points, 6);
    ExpectMarkers(map.constraints[2], M1, M2, W1);
    EXPECT_TRUE(orvhost::LogEntries().empty());
}

TEST_F(ReferencePoseTest, NoMarkersLeavesEveryConstraintEmpty) {
    ORV::Model rig = AddModel(L"Rig");
    AddNull(rig, L"A", CVector3(1, 0, 0));
    ReferencePose map;
    map.compute3PointConstraint(rig, nullptr, 0);
    ExpectMarkers(map.constraints[0], -1, -1, -1);
}

// ---- T-pose and realignment ----------------------------------------------------------------

TEST_F(ReferencePoseTest, TPoseIsLaidDownRelativeToTheThirdNode) {
    ORV::Model rig = AddModel(L"Rig");
    ORV::X3DObject a = AddNull(rig, L"A", CVector3(1, 2, 3), CRotation(0.1, 0.2, 0.3));
    ORV::X3DObject b = AddNull(a, L"B", CVector3(2, 2, 3));
    ORV::X3DObject c = AddNull(b, L"C", CVector3(3, 5, 3), CRotation(0.0, 0.5, 0.0));
    ORV::X3DObject d = AddNull(c, L"D", CVector3(3, 9, 4), CRotation(0.3, 0.0, 0.0));
    ORV::X3DObject e = AddNull(rig, L"E", CVector3(-3, 1, 0));
    ReferencePose map;
    map.nodeCount = 5;
    map.captureTPose(rig);
    ASSERT_NE(map.tPose, nullptr);
    EXPECT_TRUE(map.tPose[3].Equals(Global(d), 1e-12));
    const CTransformation capturedC = map.tPose[2];
    const CTransformation capturedD = map.tPose[3];
    const CTransformation capturedE = map.tPose[4];
    // Move everything, then lay the T-pose down.
    CTransformation moved;
    moved.SetTranslation(CVector3(50, 0, 0));
    a.GetKinematics().GetGlobal().PutTransform(moved, DBL_MAX);
    map.setTPose(rig);
    for (ORV::X3DObject o : {a, b, c}) EXPECT_TRUE(Global(o).Equals(CTransformation(), 1e-9));
    CTransformation inverseC;
    inverseC.Invert(capturedC);
    CTransformation expectedD;
    expectedD.Mul(capturedD, inverseC);
    CTransformation expectedE;
    expectedE.Mul(capturedE, inverseC);
    EXPECT_TRUE(Global(d).Equals(expectedD, 1e-9));
    EXPECT_TRUE(Global(e).Equals(expectedE, 1e-9));
}

TEST_F(ReferencePoseTest, RealignTurnsAOneChildNodeTowardItsChild) {
    ORV::Model rig = AddModel(L"Rig");
    ORV::X3DObject node = AddNull(rig, L"Node", CVector3(0, 0, 0));
    ORV::X3DObject child = AddNull(node, L"Child", CVector3(0, 0, 5));
    // Canonically the child lies along +Y of the node; here it stands along +Z.
    MakeOneChildNode(node, CVector3(0, 1, 0));
    ASSERT_EQ(node.GetChildren().GetCount(), 2);
    CVector3 points[3] = {CVector3(1, 0, 0), CVector3(0, 1, 0), CVector3(0, 0, 1)};
    ReferencePose map;
    map.compute3PointConstraint(rig, points, 3);
    ASSERT_EQ(map.nodeCount, 2);
    map.realign(rig);
    const CTransformation g = Global(node);
    CVector3 along;
    along.MulByMatrix3(CVector3(0, 1, 0), g.GetRotationMatrix3());
    EXPECT_TRUE(along.Equals(CVector3(0, 0, 1), 1e-9));
    EXPECT_TRUE(g.GetTranslation().Equals(CVector3(0, 0, 0), 1e-12));
    EXPECT_TRUE(Global(child).GetTranslation().Equals(CVector3(0, 0, 5), 1e-9));
    EXPECT_TRUE(map.constraints[0].childPosition.Equals(CVector3(0, 5, 0), 1e-9));
    // The corrected offset puts the node where it now is over the same markers.
    EXPECT_TRUE(map.constraints[0].nodePose(points, 3).Equals(g, 1e-9));
    // The child itself has no child: untouched.
    EXPECT_TRUE(map.constraints[1].childPosition.Equals(CVector3()));
}

TEST_F(ReferencePoseTest, RealignWorksInTheXYPlaneFirstForAnXDirection) {
    ORV::Model rig = AddModel(L"Rig");
    ORV::X3DObject node = AddNull(rig, L"Node", CVector3(0, 0, 0));
    AddNull(node, L"Child", CVector3(0, 3, 4));
    MakeOneChildNode(node, CVector3(1, 0, 0));
    CVector3 points[3] = {CVector3(1, 0, 0), CVector3(0, 1, 0), CVector3(0, 0, 1)};
    ReferencePose map;
    map.compute3PointConstraint(rig, points, 3);
    map.realign(rig);
    CVector3 along;
    along.MulByMatrix3(CVector3(1, 0, 0), Global(node).GetRotationMatrix3());
    // First in XY: (1,0,0) toward (0,3,0), then on to the full (0,3,4).
    EXPECT_TRUE(along.Equals(CVector3(0, 0.6, 0.8), 1e-9));
}

TEST_F(ReferencePoseTest, RealignLeavesUntaggedNodesAlone) {
    ORV::Model rig = AddModel(L"Rig");
    ORV::X3DObject node = AddNull(rig, L"Node", CVector3(0, 0, 0));
    AddNull(node, L"Child", CVector3(0, 0, 5));
    ZUK::Util::drawLine(node, CVector3(0, 0, 0), CVector3(1, 1, 1), L"", 1);
    CVector3 points[3] = {CVector3(1, 0, 0), CVector3(0, 1, 0), CVector3(0, 0, 1)};
    ReferencePose map;
    map.compute3PointConstraint(rig, points, 3);
    const CTransformation offset = map.constraints[0].offset;
    map.realign(rig);
    EXPECT_TRUE(Global(node).Equals(CTransformation(), 1e-12));
    EXPECT_TRUE(map.constraints[0].offset.Equals(offset, 1e-12));
}

TEST_F(ReferencePoseTest, ConnectionLinesAreNoRigNodes) {
    ORV::Model rig = AddModel(L"Rig");
    ORV::X3DObject node = AddNull(rig, L"Node", CVector3(0, 0, 0));
    ZUK::Util::drawLine(node, CVector3(0, 0, 0), CVector3(1, 1, 1), L"", 1);
    ORV::X3DObject child = AddNull(node, L"Child", CVector3(0, 0, 5));
    ORV::CRefArray nodes = ReferencePose::RigNodes(rig);
    ASSERT_EQ(nodes.GetCount(), 2);
    EXPECT_TRUE(nodes[0] == node.GetRef());
    EXPECT_TRUE(nodes[1] == child.GetRef());
}

TEST_F(ReferencePoseTest, NodeIndexCountsAsTheRigWalkDoes) {
    ORV::Model rig = AddModel(L"Rig");
    ORV::X3DObject node = AddNull(rig, L"Node", CVector3(0, 0, 0));
    ORV::X3DObject line = ZUK::Util::drawLine(node, CVector3(0, 0, 0), CVector3(1, 1, 1), L"", 1);
    ORV::X3DObject child = AddNull(node, L"Child", CVector3(0, 0, 5));
    ORV::X3DObject elsewhere = AddNull(Root(), L"Elsewhere", CVector3());
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    const ORV::CRefArray all = rig.FindChildren(L"", L"", families, true);
    ASSERT_EQ(all.GetCount(), 3);
    EXPECT_EQ(ReferencePose::findNodeIndex(all, node), 0);
    EXPECT_EQ(ReferencePose::findNodeIndex(all, child), 1);
    EXPECT_EQ(ReferencePose::findNodeIndex(all, line), -1);
    EXPECT_EQ(ReferencePose::findNodeIndex(all, elsewhere), -1);
}

// ---- Marker order -----------------------------------------------------------------------------

namespace {

ReferencePose* MapOfNames(const std::vector<std::wstring>& names) {
    ReferencePose* map = new ReferencePose();
    for (const std::wstring& n : names) map->names.Add(n.c_str());
    map->markerCount = static_cast<int>(names.size());
    return map;
}

}  // namespace

TEST_F(ReferencePoseTest, ConversionMapTiesTakeOrderToMapOrder) {
    std::unique_ptr<ReferencePose> map(MapOfNames({L"LFHD", L"RFHD", L"C7"}));
    ORV::Model take = AddMarkers(L"Take", {L"C7", L"LFHD", L"RFHD"}, {});
    ASSERT_TRUE(map->createConversionMap(take));
    EXPECT_EQ(map->refToCurrent(0), 1);
    EXPECT_EQ(map->refToCurrent(1), 2);
    EXPECT_EQ(map->refToCurrent(2), 0);
    EXPECT_EQ(map->currentToRef(0), 2);
    EXPECT_EQ(map->currentToRef(1), 0);
    map->constraints = new ThreePointConstraint[1];
    map->nodeCount = 1;
    map->constraints[0].markers[0] = 2;
    map->constraints[0].markers[1] = 0;
    map->constraints[0].markers[2] = 1;
    map->tpcRefToCurrent();
    ExpectMarkers(map->constraints[0], 0, 1, 2);
    map->tpcCurrentToRef();
    ExpectMarkers(map->constraints[0], 2, 0, 1);
    EXPECT_TRUE(orvhost::LogEntries().empty());
}

TEST_F(ReferencePoseTest, TakeNameWithOneCharacterAddedMatchesAndTwoDoNot) {
    std::unique_ptr<ReferencePose> map(MapOfNames({L"LFHD", L"RFHD", L"C7"}));
    ORV::Model take = AddMarkers(L"Take", {L"LFHD1", L"RFHD22", L"C7"}, {});
    EXPECT_FALSE(map->createConversionMap(take));
    EXPECT_EQ(map->referenceToCurrent[0], 0);
    EXPECT_EQ(map->referenceToCurrent[1], -1);
    EXPECT_EQ(map->referenceToCurrent[2], 2);
    EXPECT_EQ(CountLogged(L"Failed to match RFHD22", 8), 1);
    const std::wstring alert =
        L"The reference pose has a node RFHD that could not be matched to a point in the motion data.\n"
        L"Failed to import the motion.";
    EXPECT_EQ(CountLogged(alert, 4), 1);
    ASSERT_EQ(orvhost::MessageBoxes().size(), 1u);
    EXPECT_EQ(orvhost::MessageBoxes()[0].text, alert);
    EXPECT_EQ(orvhost::MessageBoxes()[0].caption, L"ZUKRetarget");
}

TEST_F(ReferencePoseTest, ShorterTakeNameMatchesTooAndFirstUnmatchedNameIsReported) {
    std::unique_ptr<ReferencePose> map(MapOfNames({L"LFHD1", L"A", L"B"}));
    ORV::Model take = AddMarkers(L"Take", {L"LFHD", L"X", L"Y"}, {});
    EXPECT_FALSE(map->createConversionMap(take));
    EXPECT_EQ(map->currentToReference[0], 0);
    EXPECT_EQ(CountLogged(L"Failed to match X", 8), 1);
    EXPECT_EQ(CountLogged(L"Failed to match Y", 8), 1);
    EXPECT_EQ(
        CountLogged(L"The reference pose has a node A that could not be matched to a point in the motion "
                    L"data.\nFailed to import the motion.",
                    4),
        1);
}

TEST_F(ReferencePoseTest, TakenNameIsNotMatchedAgainByItsSuffix) {
    // The host renames a second "LFHD" to "LFHD1"; a name one character longer matches only a
    // map name that is still free.
    std::unique_ptr<ReferencePose> map(MapOfNames({L"LFHD", L"B"}));
    ORV::Model take = AddMarkers(L"Take", {L"LFHD", L"LFHD"}, {});
    EXPECT_FALSE(map->createConversionMap(take));
    EXPECT_EQ(map->currentToReference[0], 0);
    EXPECT_EQ(map->currentToReference[1], -1);
    EXPECT_EQ(CountLogged(L"Failed to match LFHD1", 8), 1);
}

TEST_F(ReferencePoseTest, TakeWithOneMarkerMoreFailsOnTheCountBeforeAnyName) {
    std::unique_ptr<ReferencePose> map(MapOfNames({L"LFHD", L"RFHD", L"C7"}));
    ORV::Model take = AddMarkers(L"Take", {L"LFHD", L"RFHD", L"C7", L"Q"}, {});
    EXPECT_FALSE(map->createConversionMap(take));
    EXPECT_EQ(map->currentToReference, nullptr);
    EXPECT_EQ(map->referenceToCurrent, nullptr);
    EXPECT_EQ(c3dtest::Log(),
              (std::vector<std::pair<std::wstring, int>>{{L"Failed to import the motion.", 4}}));
    ASSERT_EQ(orvhost::MessageBoxes().size(), 1u);
    EXPECT_EQ(orvhost::MessageBoxes()[0].text, L"Failed to import the motion.");
}

TEST_F(ReferencePoseTest, ConversionWithoutAMapGivesTheIndexItself) {
    ReferencePose map;
    EXPECT_EQ(map.refToCurrent(7), 7);
    EXPECT_EQ(map.currentToRef(-1), -1);
    EXPECT_TRUE(orvhost::LogEntries().empty());
}

TEST_F(ReferencePoseTest, NegativeConversionEntriesAreLoggedAndReturned) {
    std::unique_ptr<ReferencePose> map(MapOfNames({L"A", L"B"}));
    map->referenceToCurrent = new int[2]{1, -1};
    map->currentToReference = new int[2]{-1, 0};
    EXPECT_EQ(map->refToCurrent(1), -1);
    EXPECT_EQ(map->currentToRef(0), -1);
    EXPECT_EQ(map->refToCurrent(0), 1);
    EXPECT_EQ(c3dtest::Log(),
              (std::vector<std::pair<std::wstring, int>>{{L"reftocur oops", 8}, {L"curtoref oops", 8}}));
}

// ---- The pose map file -------------------------------------------------------------------------

namespace {

// A rig over the limb markers with its tag property, and a marker model with those markers.
struct Fitted {
    Limbs limbs;
    ORV::Model markers;
    std::unique_ptr<ReferencePose> map;
};

Fitted FitLimbs() {
    Fitted f;
    f.limbs = BuildLimbs();
    AddTagProperty(f.limbs.rig, L"biped.structure");
    std::vector<std::wstring> names;
    for (int i = 0; i < kLimbMarkers; ++i) names.push_back(L"M" + std::to_wstring(i));
    f.markers = AddMarkers(L"Markers", names, f.limbs.points);
    f.map.reset(new ReferencePose(f.limbs.rig, f.limbs.points.data(), kLimbMarkers));
    return f;
}

void ExpectSameMap(const ReferencePose& loaded, const ReferencePose& made, double tolerance) {
    ASSERT_EQ(loaded.markerCount, made.markerCount);
    ASSERT_EQ(loaded.nodeCount, made.nodeCount);
    for (int i = 0; i < made.nodeCount; ++i) {
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(loaded.constraints[i].markers[k], made.constraints[i].markers[k]) << i;
        EXPECT_TRUE(loaded.constraints[i].offset.Equals(made.constraints[i].offset, tolerance)) << i;
        EXPECT_TRUE(loaded.constraints[i].childPosition.Equals(made.constraints[i].childPosition, tolerance))
            << i;
        EXPECT_TRUE(loaded.tPose[i].Equals(made.tPose[i], tolerance)) << i;
    }
}

}  // namespace

TEST_F(ReferencePoseTest, ComputedMapLaysTheRigDownInItsTPose) {
    Fitted f = FitLimbs();
    ASSERT_EQ(f.map->nodeCount, 6);
    EXPECT_EQ(f.map->markerCount, kLimbMarkers);
    EXPECT_EQ(f.map->names.GetCount(), 0);
    ORV::CRefArray nodes = ReferencePose::RigNodes(f.limbs.rig);
    // Hand at (20, 1, 0) was captured; it now stands relative to Spine at (0, 13, 0).
    EXPECT_TRUE(f.map->tPose[3].GetTranslation().Equals(CVector3(20, 1, 0), 1e-9));
    EXPECT_TRUE(Global(ORV::X3DObject(nodes[3])).GetTranslation().Equals(CVector3(20, -12, 0), 1e-9));
    EXPECT_TRUE(Global(ORV::X3DObject(nodes[2])).Equals(CTransformation(), 1e-9));
}

TEST_F(ReferencePoseTest, SavedFileLoadsBackWithTheSameConstraintsTPoseAndMarkerCount) {
    Fitted f = FitLimbs();
    const std::string path = TempPath(".c3dpose");
    ASSERT_TRUE(f.map->saveToFile(ORV::CString(path.c_str()), f.limbs.rig, f.markers, ZUK::ZUp));
    const std::string text = ReadText(path);
    EXPECT_EQ(text.rfind("Version3\nbiped.structure 2 \n15 6 \nM0\nM1\n", 0), 0u) << text;
    ReferencePose loaded;
    ASSERT_TRUE(loaded.readFromFile(ORV::CString(path.c_str())));
    ExpectSameMap(loaded, *f.map, 1e-12);
    ASSERT_EQ(loaded.names.GetCount(), kLimbMarkers);
    EXPECT_EQ(loaded.names[14].std(), L"M14");
    EXPECT_EQ(loaded.currentToReference, nullptr);
    std::remove(path.c_str());
}

TEST_F(ReferencePoseTest, FileWithAnotherVersionWordIsRefused) {
    Fitted f = FitLimbs();
    const std::string path = TempPath(".c3dpose");
    ASSERT_TRUE(f.map->saveToFile(ORV::CString(path.c_str()), f.limbs.rig, f.markers, ZUK::YUp));
    std::string text = ReadText(path);
    text.replace(0, 8, "Version2");
    trovotest::TempFile older(text, ".c3dpose");
    ReferencePose loaded;
    EXPECT_FALSE(loaded.readFromFile(older.Path()));
    EXPECT_EQ(loaded.constraints, nullptr);
    EXPECT_EQ(loaded.nodeCount, 0);
    EXPECT_FALSE(loaded.readFromFile(L"/no/such/file.c3dpose"));
    std::remove(path.c_str());
}

TEST_F(ReferencePoseTest, FileWithImpossibleCountsIsRefused) {
    trovotest::TempFile bad("Version3\nbiped.structure 1 \n2000000000 3 \nA\n", ".c3dpose");
    ReferencePose loaded;
    EXPECT_FALSE(loaded.readFromFile(bad.Path()));
    EXPECT_EQ(c3dtest::Log(),
              (std::vector<std::pair<std::wstring, int>>{
                  {L"The pose map file " + bad.Path().std() + L" holds impossible counts.", 4}}));
    trovotest::TempFile negative("Version3\nbiped.structure 1 \n2 -3 \nA\nB\n", ".c3dpose");
    EXPECT_FALSE(loaded.readFromFile(negative.Path()));
    EXPECT_EQ(loaded.constraints, nullptr);
}

TEST_F(ReferencePoseTest, SaveWithoutTagPropertyFailsAndWritesNothing) {
    Limbs l = BuildLimbs();
    ORV::Model markers = AddMarkers(L"Markers", {L"A"}, {});
    ReferencePose map(l.rig, l.points.data(), kLimbMarkers);
    const std::string path = TempPath(".c3dpose");
    std::remove(path.c_str());
    EXPECT_FALSE(map.saveToFile(ORV::CString(path.c_str()), l.rig, markers, ZUK::YUp));
    EXPECT_NE(access(path.c_str(), F_OK), 0);
    AddTagProperty(l.rig, L"biped.structure");
    EXPECT_FALSE(map.saveToFile(L"/no/such/folder/map.c3dpose", l.rig, markers, ZUK::YUp));
}

// ---- A real frame, saved in one process and applied in another --------------------------------

namespace {

const char* const kChildEnv = "TROVO_C3DPOSE_CHILD_FILE";
constexpr int kFitFrame = 0;
constexpr int kLaterFrame = 1500;

std::unique_ptr<C3DFile> ReadCmu() {
    FileStream stream(ORV::CString((std::string(TROVO_TEST_DATA) + "/c3d/cmu/01_01.c3d").c_str()));
    std::unique_ptr<C3DFile> file(new C3DFile());
    if (!file->readFromStream(stream, ZUK::ZUp, false)) return nullptr;
    return file;
}

std::vector<std::wstring> Labels(const C3DFile& file) {
    std::vector<std::wstring> labels;
    for (int i = 0; i < file.pointCount; ++i) {
        ORV::CString label;
        file.getStringValue("POINT", "LABELS", i, label);
        labels.push_back(label.std());
    }
    return labels;
}

std::vector<CVector3> Frame(const C3DFile& file, int frame) {
    std::vector<CVector3> points;
    for (int i = 0; i < file.pointCount; ++i) points.push_back(file.sample(i, frame));
    return points;
}

// A rig of nulls posed by hand over the markers of one frame: each node at the mean of a few
// named markers, turned a little so that no offset is trivial. Elbows and knees have one child
// and a connection line, and are tagged for realignment.
ORV::Model BuildBodyRig(const C3DFile& file, int frame) {
    const std::vector<std::wstring> labels = Labels(file);
    auto at = [&](std::initializer_list<const wchar_t*> names) {
        CVector3 sum;
        for (const wchar_t* n : names) {
            for (size_t i = 0; i < labels.size(); ++i) {
                if (labels[i] == n) sum += file.sample(static_cast<int>(i), frame);
            }
        }
        return sum * (1.0 / names.size());
    };
    ORV::Model rig = AddModel(L"Body");
    int turn = 0;
    auto add = [&](ORV::X3DObject parent, const wchar_t* name, const CVector3& where) {
        ++turn;
        return AddNull(parent, name, where, CRotation(0.1 * turn, -0.05 * turn, 0.07 * turn));
    };
    ORV::X3DObject top = add(rig, L"Top", at({L"LBWT", L"RBWT"}) + CVector3(0, -100, 0));
    ORV::X3DObject hips = add(top, L"Hips", at({L"LFWT", L"RFWT", L"LBWT", L"RBWT"}));
    ORV::X3DObject spine = add(hips, L"Spine", at({L"STRN", L"T10", L"CLAV", L"C7"}));
    add(spine, L"Head", at({L"LFHD", L"RFHD", L"LBHD", L"RBHD"}));
    for (int side = 0; side < 2; ++side) {
        const bool left = side == 0;
        ORV::X3DObject shoulder =
            add(spine, left ? L"LShoulder" : L"RShoulder", at({left ? L"LSHO" : L"RSHO"}));
        ORV::X3DObject elbow = add(shoulder, left ? L"LElbow" : L"RElbow",
                                   at({left ? L"LELB" : L"RELB", left ? L"LUPA" : L"RUPA"}));
        add(elbow, left ? L"LHand" : L"RHand",
            at({left ? L"LWRA" : L"RWRA", left ? L"LWRB" : L"RWRB", left ? L"LFIN" : L"RFIN"}));
        MakeOneChildNode(elbow, CVector3(left ? 1 : -1, 0, 0));
        ORV::X3DObject hip =
            add(hips, left ? L"LHip" : L"RHip", at({left ? L"LFWT" : L"RFWT", left ? L"LTHI" : L"RTHI"}));
        ORV::X3DObject knee =
            add(hip, left ? L"LKnee" : L"RKnee", at({left ? L"LKNE" : L"RKNE", left ? L"LSHN" : L"RSHN"}));
        add(knee, left ? L"LFoot" : L"RFoot",
            at({left ? L"LANK" : L"RANK", left ? L"LHEE" : L"RHEE", left ? L"LTOE" : L"RTOE"}));
        MakeOneChildNode(knee, CVector3(0, -1, 0));
    }
    AddTagProperty(rig, L"biped.structure");
    return rig;
}

// The node's global pose as the offset puts it in the frame of markers a, b, c, composed here
// with plain 4 by 4 matrices: rows X = (b - a), Z = (b - a) x (c - a), Y = Z x X, normalised,
// and a as the last row.
std::array<double, 16> ExpectedPose(const CTransformation& offset, const CVector3& a, const CVector3& b,
                                    const CVector3& c) {
    auto cross = [](const CVector3& u, const CVector3& v) {
        return CVector3(u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x);
    };
    auto unit = [](const CVector3& v) { return v * (1.0 / std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z)); };
    const CVector3 x = unit(b - a);
    const CVector3 z = unit(cross(b - a, c - a));
    const CVector3 y = cross(z, x);
    const double frame[16] = {x.x, x.y, x.z, 0, y.x, y.y, y.z, 0, z.x, z.y, z.z, 0, a.x, a.y, a.z, 1};
    const std::array<double, 16> o = offset.GetMatrix4();
    std::array<double, 16> out{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) out[i * 4 + j] += o[i * 4 + k] * frame[k * 4 + j];
    return out;
}

}  // namespace

TEST_F(ReferencePoseTest, PoseMapOfARealFrameLoadsInAnotherProcess) {
    std::unique_ptr<C3DFile> file = ReadCmu();
    ASSERT_NE(file, nullptr);
    const std::vector<std::wstring> labels = Labels(*file);
    std::vector<CVector3> points = Frame(*file, kFitFrame);
    ORV::Model rig = BuildBodyRig(*file, kFitFrame);
    ORV::Model markers = AddMarkers(L"Markers", labels, points);
    ReferencePose map(rig, points.data(), file->pointCount);
    ASSERT_EQ(map.nodeCount, 16);
    for (int i = 0; i < map.nodeCount; ++i) {
        for (int k = 0; k < 3; ++k) ASSERT_GE(map.constraints[i].markers[k], 0) << i;
    }
    const std::string path = TempPath(".c3dpose");
    ASSERT_TRUE(map.saveToFile(ORV::CString(path.c_str()), rig, markers, ZUK::ZUp));

    const std::string output = TempPath(".txt");
    const pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        FILE* out = std::freopen(output.c_str(), "w", stdout);
        (void)out;
        setenv(kChildEnv, path.c_str(), 1);
        execl("/proc/self/exe", "mocap_tests", "--gtest_filter=ReferencePoseChild.*",
              static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    const std::string report = ReadText(output);
    ASSERT_TRUE(WIFEXITED(status)) << report;
    EXPECT_EQ(WEXITSTATUS(status), 0) << report;
    EXPECT_NE(report.find("[  PASSED  ] 1 test."), std::string::npos) << report;
    EXPECT_EQ(report.find("SKIPPED"), std::string::npos) << report;
    std::remove(path.c_str());
    std::remove(output.c_str());
}

// Runs only as the second process of the test above: loads the parent's file, compares it with
// the same map made afresh here, and follows a later frame of the take with it.
TEST(ReferencePoseChild, LoadsTheParentsPoseMapAndFollowsALaterFrame) {
    const char* path = std::getenv(kChildEnv);
    if (!path) GTEST_SKIP() << "run by PoseMapOfARealFrameLoadsInAnotherProcess";
    orvhost::ResetScene();
    orvhost::ClearLog();
    std::unique_ptr<C3DFile> file = ReadCmu();
    ASSERT_NE(file, nullptr);
    const std::vector<std::wstring> labels = Labels(*file);

    // Loaded as a later take loads it: file, conversion to the take's marker order, T-pose.
    ReferencePose loaded;
    ASSERT_TRUE(loaded.readFromFile(ORV::CString(path)));
    EXPECT_EQ(loaded.markerCount, 42);
    ASSERT_EQ(loaded.names.GetCount(), 42);
    EXPECT_EQ(loaded.names[41].std(), L"RBAC-1");

    {
        // The same map, made afresh in this process.
        std::vector<CVector3> points = Frame(*file, kFitFrame);
        ORV::Model rig = BuildBodyRig(*file, kFitFrame);
        ReferencePose made(rig, points.data(), file->pointCount);
        ExpectSameMap(loaded, made, 1e-9);
        ZUK::Util::deleteModel(L"Body");
    }

    // The map's markers, by name, before they are converted to the take's order.
    std::vector<std::array<std::wstring, 3>> triangleNames;
    for (int i = 0; i < loaded.nodeCount; ++i) {
        std::array<std::wstring, 3> names;
        for (int k = 0; k < 3; ++k) names[k] = loaded.names[loaded.constraints[i].markers[k]].std();
        triangleNames.push_back(names);
    }

    // The take lists its markers in reverse order.
    std::vector<std::wstring> reversed(labels.rbegin(), labels.rend());
    const std::vector<CVector3> later = Frame(*file, kLaterFrame);
    std::vector<CVector3> takePoints(later.rbegin(), later.rend());
    ORV::Model take = AddMarkers(L"Take", reversed, takePoints);
    ASSERT_TRUE(loaded.createConversionMap(take));
    loaded.tpcRefToCurrent();
    ORV::Model rig = BuildBodyRig(*file, kLaterFrame);
    loaded.setTPose(rig);

    ORV::CRefArray nodes = ReferencePose::RigNodes(rig);
    ASSERT_EQ(nodes.GetCount(), loaded.nodeCount);
    for (int i = 0; i < loaded.nodeCount; ++i) {
        ORV::X3DObject(nodes[i]).GetKinematics().GetGlobal().PutTransform(
            loaded.constraints[i].nodePose(takePoints.data(), static_cast<int>(takePoints.size())), DBL_MAX);
    }
    for (int i = 0; i < loaded.nodeCount; ++i) {
        // The markers by name in the file's own order, not through the conversion.
        int m[3];
        for (int k = 0; k < 3; ++k) {
            const std::wstring& name = triangleNames[static_cast<size_t>(i)][k];
            m[k] = -1;
            for (size_t j = 0; j < labels.size(); ++j) {
                if (labels[j] == name) m[k] = static_cast<int>(j);
            }
            ASSERT_GE(m[k], 0);
        }
        const std::array<double, 16> expected =
            ExpectedPose(loaded.constraints[i].offset, later[m[0]], later[m[1]], later[m[2]]);
        const std::array<double, 16> actual = Global(ORV::X3DObject(nodes[i])).GetMatrix4();
        for (int k = 0; k < 16; ++k)
            EXPECT_NEAR(actual[k], expected[k], 1e-6) << "node " << i << " element " << k;
    }
}
