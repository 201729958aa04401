// ORV::MATH::CTransformation and the pose mapping functions against hand-computed poses.
//
// Error budget: 1e-12 for exact algebra (products of a few rotations and scales of size ~10).
#include <gtest/gtest.h>
#include <orv/Math.h>

#include <cmath>
#include <random>

using namespace ORV::MATH;
using ORV::CStatus;

namespace {

constexpr double kExact = 1e-12;

void ExpectVector(const CVector3& v, double x, double y, double z, double eps = kExact) {
    EXPECT_NEAR(v.x, x, eps);
    EXPECT_NEAR(v.y, y, eps);
    EXPECT_NEAR(v.z, z, eps);
}

CTransformation Make(const CVector3& s, const CRotation& r, const CVector3& t) {
    return CTransformation(s, r, t);
}

CVector3 Apply(const CTransformation& t, const CVector3& p) {
    CVector3 v;
    return v.MulByTransformation(p, t);
}

const CRotation kZ90(CVector3(0, 0, 1), PI / 2);

}  // namespace

TEST(CTransformation, DefaultsToIdentity) {
    const CTransformation t;
    EXPECT_EQ(t.GetScaling(), CVector3(1, 1, 1));
    EXPECT_EQ(t.GetTranslation(), CVector3());
    EXPECT_EQ(t.GetRotationMatrix3(), CMatrix3());
    const std::array<double, 16> m = t.GetMatrix4();
    for (int i = 0; i < 16; ++i) EXPECT_EQ(m[i], (i % 5 == 0) ? 1.0 : 0.0) << i;
}

TEST(CTransformation, TranslationAccessors) {
    CTransformation t;
    t.SetTranslation(CVector3(1, 2, 3));
    EXPECT_EQ(t.GetTranslation(), CVector3(1, 2, 3));
    t.SetTranslationFromValues(4, 5, 6);
    EXPECT_EQ(t.GetTranslation(), CVector3(4, 5, 6));
    t.SetPosX(7).SetPosY(8).SetPosZ(9);
    EXPECT_EQ(t.GetPosX(), 7.0);
    EXPECT_EQ(t.GetPosY(), 8.0);
    EXPECT_EQ(t.GetPosZ(), 9.0);
}

TEST(CTransformation, ScalingAccessors) {
    CTransformation t;
    t.SetScalingFromValues(2, 3, 4);
    EXPECT_EQ(t.GetScaling(), CVector3(2, 3, 4));
    t.SetScaling(CVector3(-1, 1, 1));
    EXPECT_EQ(t.GetScaling(), CVector3(-1, 1, 1));
    t.SetIdentity();
    EXPECT_EQ(t.GetScaling(), CVector3(1, 1, 1));
}

TEST(CTransformation, RotationAccessors) {
    CTransformation t;
    t.SetRotationFromAxisAngle(CVector3(0, 0, 1), PI / 2);
    EXPECT_TRUE(t.GetRotationMatrix3().Equals(CMatrix3(0, 1, 0, -1, 0, 0, 0, 0, 1), kExact));
    const double h = std::sqrt(0.5);
    EXPECT_TRUE(t.GetRotationQuaternion().Equals(CQuaternion(h, 0, 0, h), kExact));
    ExpectVector(t.GetRotationXYZAngles(), 0, 0, PI / 2);

    t.SetRotationFromXYZAngles(CVector3(0.1, 0.2, 0.3), ovZXY);
    EXPECT_EQ(t.GetRotation().GetRotationOrder(), ovZXY);
    ExpectVector(t.GetRotationXYZAngles(), 0.1, 0.2, 0.3);
    EXPECT_TRUE(t.GetRotation().Equals(CRotation(0.1, 0.2, 0.3, ovZXY), kExact));

    t.SetRotationFromXYZAnglesValues(-0.4, 0.5, 0.6);
    EXPECT_EQ(t.GetRotation().GetRotationOrder(), ovXYZ);
    ExpectVector(t.GetRotationXYZAngles(), -0.4, 0.5, 0.6);
    t.SetRotationFromXYZAnglesValues(-0.4, 0.5, 0.6, ovYZX);
    EXPECT_TRUE(t.GetRotation().Equals(CRotation(-0.4, 0.5, 0.6, ovYZX), kExact));

    t.SetRotationFromQuaternion(CQuaternion(0, 1, 0, 0));
    EXPECT_TRUE(t.GetRotationMatrix3().Equals(CMatrix3(1, 0, 0, 0, -1, 0, 0, 0, -1), kExact));
    t.SetRotation(kZ90);
    EXPECT_TRUE(t.GetRotation().Equals(kZ90, kExact));
}

TEST(CTransformation, RotationFromXYZAxes) {
    CTransformation t;
    // Rows of the matrix: X goes to (0,1,0), Y to (-1,0,0): a quarter turn about Z.
    EXPECT_EQ(t.SetRotationFromXYZAxes(CVector3(0, 2, 0), CVector3(-1, 0, 0), CVector3(0, 0, 3)),
              CStatus::OK);
    EXPECT_TRUE(t.GetRotation().Equals(kZ90, kExact));
    // Slightly off axes give the nearest rotation.
    EXPECT_EQ(t.SetRotationFromXYZAxes(CVector3(1, 1e-10, 0), CVector3(0, 1, 0), CVector3(0, 0, 1)),
              CStatus::OK);
    EXPECT_TRUE(t.GetRotation().Equals(CRotation(), 1e-9));
}

TEST(CTransformation, RotationFromBadAxesIsRefused) {
    CTransformation t;
    t.SetRotation(kZ90);
    EXPECT_EQ(t.SetRotationFromXYZAxes(CVector3(1, 0, 0), CVector3(0, 1, 0), CVector3(0, 0, -1)),
              CStatus::InvalidArgument);  // left-handed
    EXPECT_EQ(t.SetRotationFromXYZAxes(CVector3(1, 0, 0), CVector3(), CVector3(0, 0, 1)),
              CStatus::InvalidArgument);
    EXPECT_EQ(t.SetRotationFromXYZAxes(CVector3(1, 0, 0), CVector3(2, 0, 0), CVector3(0, 0, 1)),
              CStatus::InvalidArgument);  // parallel
    EXPECT_TRUE(t.GetRotation().Equals(kZ90, kExact));
}

TEST(CTransformation, Matrix4LayoutIsRowVectorWithTranslationLast) {
    const CTransformation t = Make(CVector3(2, 3, 4), kZ90, CVector3(5, 6, 7));
    const std::array<double, 16> m = t.GetMatrix4();
    const double want[16] = {0, 2, 0, 0, -3, 0, 0, 0, 0, 0, 4, 0, 5, 6, 7, 1};
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(m[i], want[i], kExact) << i;
    CTransformation back;
    EXPECT_EQ(back.SetMatrix4(m), CStatus::OK);
    EXPECT_TRUE(back.Equals(t, kExact));
}

TEST(CTransformation, Matrix4RoundTripWithNonUniformScale) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> angle(-PI, PI), scale(0.2, 5.0), pos(-100, 100);
    for (int k = 0; k < 100; ++k) {
        const CTransformation t =
            Make(CVector3(scale(rng), scale(rng), scale(rng)),
                 CRotation(angle(rng), angle(rng) / 2, angle(rng)), CVector3(pos(rng), pos(rng), pos(rng)));
        CTransformation back;
        ASSERT_EQ(back.SetMatrix4(t.GetMatrix4()), CStatus::OK);
        EXPECT_TRUE(back.Equals(t, kExact));
    }
    std::array<double, 16> singular{};
    CTransformation keep = Make(CVector3(2, 2, 2), kZ90, CVector3(1, 2, 3));
    EXPECT_EQ(keep.SetMatrix4(singular), CStatus::Fail);
    EXPECT_TRUE(keep.Equals(Make(CVector3(2, 2, 2), kZ90, CVector3(1, 2, 3)), 0.0));
}

TEST(CTransformation, MulAppliesFirstOperandFirst) {
    const CTransformation move = Make(CVector3(1, 1, 1), CRotation(), CVector3(1, 0, 0));
    const CTransformation turn = Make(CVector3(1, 1, 1), kZ90, CVector3());
    CTransformation moveThenTurn, turnThenMove;
    moveThenTurn.Mul(move, turn);
    turnThenMove.Mul(turn, move);
    // The origin: moved to (1,0,0) then turned to (0,1,0); or turned (stays) then moved.
    ExpectVector(moveThenTurn.GetTranslation(), 0, 1, 0);
    ExpectVector(turnThenMove.GetTranslation(), 1, 0, 0);
    EXPECT_TRUE(moveThenTurn.GetRotation().Equals(kZ90, kExact));
    EXPECT_TRUE(turnThenMove.GetRotation().Equals(kZ90, kExact));
    // (1,0,0): moved (2,0,0) then turned (0,2,0); turned (0,1,0) then moved (1,1,0).
    ExpectVector(Apply(moveThenTurn, CVector3(1, 0, 0)), 0, 2, 0);
    ExpectVector(Apply(turnThenMove, CVector3(1, 0, 0)), 1, 1, 0);
    CTransformation inPlace = move;
    inPlace.MulInPlace(turn);
    EXPECT_TRUE(inPlace.Equals(moveThenTurn, kExact));
}

TEST(CTransformation, MulWithUniformScales) {
    const CTransformation a = Make(CVector3(2, 2, 2), CRotation(), CVector3(1, 0, 0));
    const CTransformation b = Make(CVector3(3, 3, 3), kZ90, CVector3(0, 0, 5));
    CTransformation ab;
    ab.Mul(a, b);
    // Scale 2*3; translation (1,0,0) scaled by 3 -> (3,0,0), turned -> (0,3,0), moved -> (0,3,5).
    ExpectVector(ab.GetScaling(), 6, 6, 6);
    ExpectVector(ab.GetTranslation(), 0, 3, 5);
    EXPECT_TRUE(ab.GetRotation().Equals(kZ90, kExact));
}

TEST(CTransformation, MulMatchesApplyingOneAfterTheOther) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> angle(-PI, PI), scale(0.5, 2.0), pos(-10, 10);
    for (int k = 0; k < 100; ++k) {
        // a with any scale, b with a uniform positive one: the product is exact.
        const CTransformation a =
            Make(CVector3(scale(rng), scale(rng), -scale(rng)), CRotation(angle(rng), angle(rng), angle(rng)),
                 CVector3(pos(rng), pos(rng), pos(rng)));
        const double s = scale(rng);
        const CTransformation b =
            Make(CVector3(s, s, s), CRotation(angle(rng), angle(rng), angle(rng), ovZYX),
                 CVector3(pos(rng), pos(rng), pos(rng)));
        CTransformation ab;
        ab.Mul(a, b);
        const CVector3 p(pos(rng), pos(rng), pos(rng));
        const CVector3 want = Apply(b, Apply(a, p));
        ExpectVector(Apply(ab, p), want.x, want.y, want.z, 1e-11);  // values up to ~100
    }
}

TEST(CTransformation, MulWithNonUniformScaleDecomposes) {
    // A quarter turn about Z, then a stretch of 2 along X: the stretch lands on the object's Y.
    const CTransformation a = Make(CVector3(1, 1, 1), kZ90, CVector3());
    const CTransformation b = Make(CVector3(2, 1, 1), CRotation(), CVector3(1, 0, 0));
    CTransformation ab;
    ab.Mul(a, b);
    ExpectVector(ab.GetScaling(), 1, 2, 1);
    EXPECT_TRUE(ab.GetRotation().Equals(kZ90, kExact));
    ExpectVector(ab.GetTranslation(), 1, 0, 0);
    // (1,1,1): turned (-1,1,1), stretched (-2,1,1), moved (-1,1,1).
    ExpectVector(Apply(ab, CVector3(1, 1, 1)), -1, 1, 1);
}

TEST(CTransformation, MirrorPutsNegativeScaleOnX) {
    // A quarter turn about Z followed by a mirror across the YZ plane.
    const CTransformation a = Make(CVector3(1, 1, 1), kZ90, CVector3());
    const CTransformation mirror = Make(CVector3(-1, 1, 1), CRotation(), CVector3());
    CTransformation m;
    m.Mul(a, mirror);
    ExpectVector(m.GetScaling(), -1, 1, 1);
    EXPECT_TRUE(m.GetRotation().Equals(CRotation(CVector3(0, 0, 1), -PI / 2), kExact));
    // (1,0,0) -> (0,1,0) -> mirrored (0,1,0); (0,1,0) -> (-1,0,0) -> mirrored (1,0,0).
    ExpectVector(Apply(m, CVector3(1, 0, 0)), 0, 1, 0);
    ExpectVector(Apply(m, CVector3(0, 1, 0)), 1, 0, 0);

    // A mirror through the origin, from a 4 by 4 matrix: only X carries the sign.
    CTransformation flip;
    const std::array<double, 16> minusOne = {-1, 0, 0, 0, 0, -1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1};
    ASSERT_EQ(flip.SetMatrix4(minusOne), CStatus::OK);
    ExpectVector(flip.GetScaling(), -1, 1, 1);
    EXPECT_TRUE(flip.GetRotation().Equals(CRotation(CVector3(1, 0, 0), PI), kExact));
    ExpectVector(Apply(flip, CVector3(1, 2, 3)), -1, -2, -3);
}

TEST(CTransformation, InvertUniformByHand) {
    CTransformation t = Make(CVector3(2, 2, 2), kZ90, CVector3(1, 2, 3));
    const CTransformation original = t;
    ASSERT_EQ(t.InvertInPlace(), CStatus::OK);
    // Scale 1/2, a quarter turn back, translation -(t R^T)/2 = -((2,-1,3))/2.
    ExpectVector(t.GetScaling(), 0.5, 0.5, 0.5);
    EXPECT_TRUE(t.GetRotation().Equals(CRotation(CVector3(0, 0, 1), -PI / 2), kExact));
    ExpectVector(t.GetTranslation(), -1, 0.5, -1.5);
    EXPECT_TRUE(CTransformation().Mul(original, t).Equals(CTransformation(), kExact));
    EXPECT_TRUE(CTransformation().Mul(t, original).Equals(CTransformation(), kExact));
}

TEST(CTransformation, InvertNonUniformByHand) {
    CTransformation t = Make(CVector3(1, 2, 4), CRotation(), CVector3(1, 1, 1));
    ASSERT_EQ(t.InvertInPlace(), CStatus::OK);
    ExpectVector(t.GetScaling(), 1, 0.5, 0.25);
    ExpectVector(t.GetTranslation(), -1, -0.5, -0.25);
    // Under a quarter turn: the inverse is R^T S^-1, whose rows (0,-1/2,0), (1,0,0), (0,0,1/4)
    // are still orthogonal, so it is exact: scale (1/2, 1, 1/4), a quarter turn back.
    CTransformation u = Make(CVector3(1, 2, 4), kZ90, CVector3());
    ASSERT_EQ(u.InvertInPlace(), CStatus::OK);
    ExpectVector(u.GetScaling(), 0.5, 1, 0.25);
    EXPECT_TRUE(u.GetRotation().Equals(CRotation(CVector3(0, 0, 1), -PI / 2), kExact));
    ExpectVector(Apply(u, Apply(Make(CVector3(1, 2, 4), kZ90, CVector3()), CVector3(3, -2, 5))), 3, -2, 5);
}

TEST(CTransformation, InvertOfZeroScaleFails) {
    CTransformation t = Make(CVector3(1, 0, 1), kZ90, CVector3(1, 2, 3));
    const CTransformation before = t;
    EXPECT_EQ(t.InvertInPlace(), CStatus::Fail);
    EXPECT_TRUE(t.Equals(before, 0.0));
}

TEST(CTransformation, EqualsComparesAllParts) {
    const CTransformation a = Make(CVector3(1, 2, 3), kZ90, CVector3(4, 5, 6));
    EXPECT_TRUE(a.Equals(a));
    EXPECT_FALSE(a.Equals(Make(CVector3(1, 2, 3.1), kZ90, CVector3(4, 5, 6))));
    EXPECT_FALSE(a.Equals(Make(CVector3(1, 2, 3), CRotation(), CVector3(4, 5, 6))));
    EXPECT_FALSE(a.Equals(Make(CVector3(1, 2, 3), kZ90, CVector3(4, 5, 7))));
}

TEST(PoseMapping, WorldPoseToObjectSpaceByHand) {
    const CTransformation parent = Make(CVector3(1, 1, 1), kZ90, CVector3(10, 0, 0));
    const CTransformation global = Make(CVector3(1, 1, 1), kZ90, CVector3(10, 5, 0));
    // The child sits 5 from the parent along world +Y, which is the parent's local +X after
    // its quarter turn about Z: the local position is (5,0,0), with no rotation of its own.
    const CTransformation local = MapWorldPoseToObjectSpace(parent, global);
    ExpectVector(local.GetTranslation(), 5, 0, 0);
    EXPECT_TRUE(local.GetRotation().Equals(CRotation(), kExact));
    ExpectVector(local.GetScaling(), 1, 1, 1);
    EXPECT_TRUE(MapObjectPoseToWorldSpace(parent, local).Equals(global, kExact));
}

TEST(PoseMapping, WorldPoseToObjectSpaceWithParentScale) {
    const CTransformation parent = Make(CVector3(2, 2, 2), kZ90, CVector3(10, 0, 0));
    const CTransformation global = Make(CVector3(1, 1, 1), kZ90, CVector3(10, 5, 0));
    // p * 2 * Rz90 + (10,0,0) = (10,5,0) gives p = (2.5,0,0); the scale is 1/2.
    const CTransformation local = MapWorldPoseToObjectSpace(parent, global);
    ExpectVector(local.GetTranslation(), 2.5, 0, 0);
    ExpectVector(local.GetScaling(), 0.5, 0.5, 0.5);
    EXPECT_TRUE(local.GetRotation().Equals(CRotation(), kExact));
    EXPECT_TRUE(MapObjectPoseToWorldSpace(parent, local).Equals(global, kExact));

    // A non-uniform parent scale: the child at (0,4,0) with scale (1,2,1) is local (0,2,0),
    // scale 1.
    const CTransformation stretched = Make(CVector3(1, 2, 1), CRotation(), CVector3());
    const CTransformation child = Make(CVector3(1, 2, 1), CRotation(), CVector3(0, 4, 0));
    const CTransformation l2 = MapWorldPoseToObjectSpace(stretched, child);
    ExpectVector(l2.GetTranslation(), 0, 2, 0);
    ExpectVector(l2.GetScaling(), 1, 1, 1);
    EXPECT_TRUE(l2.GetRotation().Equals(CRotation(), kExact));
}

TEST(PoseMapping, RandomRoundTrip) {
    std::mt19937 rng(9);
    std::uniform_real_distribution<double> angle(-PI, PI), scale(0.5, 2.0), pos(-10, 10);
    for (int k = 0; k < 100; ++k) {
        const double s = scale(rng);
        const CTransformation parent = Make(CVector3(s, s, s), CRotation(angle(rng), angle(rng), angle(rng)),
                                            CVector3(pos(rng), pos(rng), pos(rng)));
        const CTransformation global =
            Make(CVector3(scale(rng), scale(rng), scale(rng)), CRotation(angle(rng), angle(rng), angle(rng)),
                 CVector3(pos(rng), pos(rng), pos(rng)));
        const CTransformation local = MapWorldPoseToObjectSpace(parent, global);
        EXPECT_TRUE(MapObjectPoseToWorldSpace(parent, local).Equals(global, 1e-11));
    }
}

TEST(PoseMapping, SingularParentGivesTheGlobalPose) {
    const CTransformation parent = Make(CVector3(0, 1, 1), CRotation(), CVector3(1, 0, 0));
    const CTransformation global = Make(CVector3(1, 1, 1), kZ90, CVector3(3, 4, 5));
    EXPECT_TRUE(MapWorldPoseToObjectSpace(parent, global).Equals(global, 0.0));
}

TEST(PoseMapping, Positions) {
    const CTransformation t = Make(CVector3(2, 3, 4), kZ90, CVector3(10, 20, 30));
    ExpectVector(MapObjectPositionToWorldSpace(t, CVector3(1, 1, 1)), 7, 22, 34);
    ExpectVector(MapWorldPositionToObjectSpace(t, CVector3(7, 22, 34)), 1, 1, 1);
    ExpectVector(MapWorldPositionToObjectSpace(t, CVector3(10, 20, 30)), 0, 0, 0);
}
