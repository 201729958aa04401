// MocapData: allocation, the name lookup with its underscore rule, and the evaluation of one
// frame into local and global transforms.
#include <gtest/gtest.h>

#include <cmath>

#include "mocap/Mocap.h"

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::MocapData;

namespace {

void Name(MocapData& data, const wchar_t* const* names, int count) {
    ASSERT_TRUE(data.allocate(count));
    for (int i = 0; i < count; ++i) data.nodes[i].name = names[i];
}

}  // namespace

TEST(MocapData, PropertyName) { EXPECT_TRUE(ORV::CString(MocapData::PROPERTY_NAME) == L"ZUKMocapRef"); }

TEST(MocapData, StartsEmpty) {
    MocapData data;
    EXPECT_EQ(0, data.nodeCount);
    EXPECT_EQ(nullptr, data.nodes);
}

TEST(MocapData, AllocateMakesEmptyNodes) {
    MocapData data;
    ASSERT_TRUE(data.allocate(3));
    ASSERT_EQ(3, data.nodeCount);
    for (int i = 0; i < 3; ++i) {
        const ZUK::MocapNode& n = data.nodes[i];
        EXPECT_TRUE(n.name.IsEmpty());
        EXPECT_TRUE(n.tag.IsEmpty());
        EXPECT_EQ(0, n.frameCount);
        EXPECT_EQ(nullptr, n.frames);
        EXPECT_FALSE(n.tagged);
        EXPECT_TRUE(n.local.Equals(CTransformation(), 0.0));
        EXPECT_TRUE(n.global.Equals(CTransformation(), 0.0));
        EXPECT_TRUE(n.align == CVector3(0, 0, 0));
        EXPECT_TRUE(n.roll == CVector3(0, 0, 0));
    }
}

TEST(MocapData, AllocateAgainDestroysTheOldNodes) {
    MocapData data;
    ASSERT_TRUE(data.allocate(2));
    data.nodes[0].frames = new ZUK::DrvTransform[4];
    data.nodes[0].frameCount = 4;
    data.nodes[0].name = L"old";
    ASSERT_TRUE(data.allocate(1));
    EXPECT_EQ(1, data.nodeCount);
    EXPECT_TRUE(data.nodes[0].name.IsEmpty());
    EXPECT_EQ(nullptr, data.nodes[0].frames);
    ASSERT_TRUE(data.allocate(0));
    EXPECT_EQ(0, data.nodeCount);
    EXPECT_EQ(nullptr, data.nodes);
}

// --- findNode -----------------------------------------------------------------------------------

TEST(MocapData, FindNodeIgnoresCase) {
    const wchar_t* names[] = {L"Hips", L"LeftArm"};
    MocapData data;
    Name(data, names, 2);
    EXPECT_EQ(&data.nodes[1], data.findNode(L"leftarm"));
    EXPECT_EQ(&data.nodes[0], data.findNode(L"HIPS"));
    EXPECT_EQ(nullptr, data.findNode(L"Head"));
}

TEST(MocapData, FindNodeUnderscoreInTheQueryStandsForAnyCharacter) {
    const wchar_t* spaced[] = {L"left arm"};
    MocapData a;
    Name(a, spaced, 1);
    EXPECT_EQ(&a.nodes[0], a.findNode(L"Left_Arm"));

    const wchar_t* dashed[] = {L"LEFT-ARM"};
    MocapData b;
    Name(b, dashed, 1);
    EXPECT_EQ(&b.nodes[0], b.findNode(L"Left_Arm"));
}

TEST(MocapData, FindNodeUnderscoreInTheStoredNameGetsNoFavour) {
    const wchar_t* names[] = {L"Left_Arm"};
    MocapData data;
    Name(data, names, 1);
    EXPECT_EQ(nullptr, data.findNode(L"Left Arm"));
    EXPECT_EQ(&data.nodes[0], data.findNode(L"left_arm"));
}

TEST(MocapData, FindNodeUnderscoreMatchOnAnEarlierNodeWinsOverALaterExactMatch) {
    const wchar_t* names[] = {L"Left-Arm", L"Left_Arm"};
    MocapData data;
    Name(data, names, 2);
    EXPECT_EQ(&data.nodes[0], data.findNode(L"Left_Arm"));
}

TEST(MocapData, FindNodeUnderscoreNeedsTheSameLength) {
    const wchar_t* names[] = {L"Left  Arm", L"LeftArm"};
    MocapData data;
    Name(data, names, 2);
    EXPECT_EQ(nullptr, data.findNode(L"Left_Arm"));
    EXPECT_EQ(nullptr, data.findNode(L"_"));
}

TEST(MocapData, FindNodeOnEmptyDataIsNull) {
    MocapData data;
    EXPECT_EQ(nullptr, data.findNode(L"Hips"));
}

// --- updateTransforms ---------------------------------------------------------------------------

namespace {

// A chain of two nodes with three frames each.
void MakeChain(MocapData& data) {
    ASSERT_TRUE(data.allocate(2));
    for (int i = 0; i < 2; ++i) {
        data.nodes[i].frameCount = 3;
        data.nodes[i].frames = new ZUK::DrvTransform[3];
    }
    data.nodes[0].parent = -1;
    data.nodes[1].parent = 0;
    for (int f = 0; f < 3; ++f) {
        data.nodes[0].frames[f].translation.Set(f, 10, 0);
        data.nodes[0].frames[f].rotation.SetEulerAngles(0, 0, 0.5 * f);
        data.nodes[1].frames[f].translation.Set(0, 2, 0);
        data.nodes[1].frames[f].rotation.SetEulerAngles(0.25 * f, 0, 0);
    }
}

}  // namespace

TEST(MocapData, UpdateTransformsEvaluatesLocalAndGlobal) {
    MocapData data;
    MakeChain(data);
    data.updateTransforms(1);
    // Root: (1, 10, 0), turned 0.5 about Z. Child: (0, 2, 0) in the root's space.
    EXPECT_TRUE(data.nodes[0].local.Equals(data.nodes[0].global, 0.0));
    EXPECT_TRUE(data.nodes[0].global.GetTranslation().Equals(CVector3(1, 10, 0), 1e-12));
    EXPECT_TRUE(data.nodes[1].local.GetTranslation().Equals(CVector3(0, 2, 0), 0.0));
    const CVector3 expected(1 - 2 * std::sin(0.5), 10 + 2 * std::cos(0.5), 0);
    EXPECT_TRUE(data.nodes[1].global.GetTranslation().Equals(expected, 1e-12));
    // Global rotation: the child's X turn first, then the root's Z turn.
    CTransformation child;
    child.SetRotationFromXYZAnglesValues(0.25, 0, 0.5);
    EXPECT_TRUE(data.nodes[1].global.GetRotation().Equals(child.GetRotation(), 1e-12));
}

TEST(MocapData, UpdateTransformsNormalisesTheFrameRotation) {
    MocapData data;
    MakeChain(data);
    ZUK::DrvQuaternion& q = data.nodes[0].frames[2].rotation;
    q.Set(3 * q.x, 3 * q.y, 3 * q.z, 3 * q.w);
    data.updateTransforms(2);
    const ORV::MATH::CQuaternion local = data.nodes[0].local.GetRotationQuaternion();
    EXPECT_NEAR(1.0, local.GetLength(), 1e-12);
    EXPECT_NEAR(std::sin(0.5), local.z, 1e-12);
}

TEST(MocapData, UpdateTransformsOutsideTheFramesLeavesEverythingAsItWas) {
    MocapData data;
    MakeChain(data);
    data.updateTransforms(2);
    const CTransformation local0 = data.nodes[0].local, global1 = data.nodes[1].global;
    data.updateTransforms(-1);
    data.updateTransforms(3);
    data.updateTransforms(1000);
    EXPECT_TRUE(data.nodes[0].local.Equals(local0, 0.0));
    EXPECT_TRUE(data.nodes[1].global.Equals(global1, 0.0));
}

TEST(MocapData, UpdateTransformsSkipsOnlyTheNodesWithoutThatFrame) {
    MocapData data;
    MakeChain(data);
    data.updateTransforms(0);
    const CTransformation rootBefore = data.nodes[0].global;
    data.nodes[0].frameCount = 1;  // the root has frame 0 only
    data.updateTransforms(2);
    EXPECT_TRUE(data.nodes[0].global.Equals(rootBefore, 0.0));
    EXPECT_TRUE(
        data.nodes[1].local.GetRotation().Equals(ORV::MATH::CRotation(0.5, 0, 0, ORV::MATH::ovXYZ), 1e-12));
}
