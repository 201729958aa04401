// The BVH reader on small files written here: grammar, channel layouts, the order string,
// end sites, the up-direction conversion and every way a file can fail.
//
// Expected rotations are built in the test from axis quaternions, with the angles converted as
// the format is read: the value as a float times 0.017453292 in single precision.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "TempFile.h"
#include "mocap/BvFile.h"
#include "mocap/Mocap.h"

using trovotest::TempFile;
using ZUK::BvFile;
using ZUK::DrvQuaternion;
using ZUK::DrvVector;
using ZUK::MocapData;

namespace {

struct Q {
    double x, y, z, w;
};

Q Hamilton(const Q& a, const Q& b) {
    return {a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
            a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

// Degrees as the reader converts them.
double Rad(double degrees) { return static_cast<double>(static_cast<float>(degrees) * 0.017453292f); }

Q Axis(int axis, double radians) {
    const double s = std::sin(radians / 2.0), c = std::cos(radians / 2.0);
    if (axis == 0) return {s, 0, 0, c};
    if (axis == 1) return {0, s, 0, c};
    return {0, 0, s, c};
}
Q Xd(double deg) { return Axis(0, Rad(deg)); }
Q Yd(double deg) { return Axis(1, Rad(deg)); }
Q Zd(double deg) { return Axis(2, Rad(deg)); }

DrvVector Rotate(const Q& q, const DrvVector& v) {
    const Q r = Hamilton(Hamilton(q, Q{v.x, v.y, v.z, 0.0}), Q{-q.x, -q.y, -q.z, q.w});
    return DrvVector(r.x, r.y, r.z);
}

void ExpectQuat(const Q& e, const DrvQuaternion& q, double tol = 1e-12) {
    EXPECT_NEAR(e.x, q.x, tol);
    EXPECT_NEAR(e.y, q.y, tol);
    EXPECT_NEAR(e.z, q.z, tol);
    EXPECT_NEAR(e.w, q.w, tol);
}

void ExpectVec(const DrvVector& e, const DrvVector& v, double tol = 1e-12) {
    EXPECT_NEAR(e.x, v.x, tol);
    EXPECT_NEAR(e.y, v.y, tol);
    EXPECT_NEAR(e.z, v.z, tol);
}

// A root with positions first and two children.
const char* const kTwoChildren =
    "HIERARCHY\n"
    "ROOT Hips\n"
    "{\n"
    "\tOFFSET 1 2 3\n"
    "\tCHANNELS 6 Xposition Yposition Zposition Zrotation Xrotation Yrotation\n"
    "\tJOINT Spine\n"
    "\t{\n"
    "\t\tOFFSET 0 5 0\n"
    "\t\tCHANNELS 3 Zrotation Xrotation Yrotation\n"
    "\t\tEnd Site\n"
    "\t\t{\n"
    "\t\t\tOFFSET 0 4 0\n"
    "\t\t}\n"
    "\t}\n"
    "\tJOINT Leg\n"
    "\t{\n"
    "\t\tOFFSET 2 -3 0\n"
    "\t\tCHANNELS 3 Zrotation Xrotation Yrotation\n"
    "\t\tEnd Site\n"
    "\t\t{\n"
    "\t\t\tOFFSET 0 -6 0\n"
    "\t\t}\n"
    "\t}\n"
    "}\n"
    "MOTION\n"
    "Frames: 2\n"
    "Frame Time: 0.033333\n"
    "10 20 30 15 25 35 1 2 3 4 5 6\n"
    "11 21 31 16 26 36 7 8 9 10 11 12\n";

// Reads a whole text; the file object is kept for a look at the hierarchy.
struct Read {
    explicit Read(const std::string& text, bool firstFrameOnly = false, ZUK::UpDirection up = ZUK::YUp)
        : file(text) {
        opened = bvh.Open(file.Path().GetWideString());
        hierarchyOk = opened && bvh.ReadHierarchy(&data);
        motionOk = hierarchyOk && bvh.ReadMotionData(&data, firstFrameOnly, up);
    }
    TempFile file;
    BvFile bvh;
    MocapData data;
    bool opened = false;
    bool hierarchyOk = false;
    bool motionOk = false;
};

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

}  // namespace

// --- Reading a good file -------------------------------------------------------------------------

TEST(BvFile, ReadsNodesInDepthFirstOrderWithParents) {
    Read r(kTwoChildren);
    ASSERT_TRUE(r.motionOk);
    ASSERT_EQ(3, r.data.nodeCount);
    EXPECT_TRUE(r.data.nodes[0].name == L"Hips");
    EXPECT_TRUE(r.data.nodes[1].name == L"Spine");
    EXPECT_TRUE(r.data.nodes[2].name == L"Leg");
    EXPECT_EQ(-1, r.data.nodes[0].parent);
    EXPECT_EQ(0, r.data.nodes[1].parent);
    EXPECT_EQ(0, r.data.nodes[2].parent);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(2, r.data.nodes[i].frameCount);

    const ZUK::BvHierarchy& h = *r.bvh.hierarchy;
    EXPECT_EQ(3, h.count);
    EXPECT_EQ(2, h.nodes[0].childCount);
    EXPECT_EQ(0, h.nodes[1].childCount);
    EXPECT_EQ(6, h.nodes[0].channelCount);
    const int rootChannels[6] = {3, 4, 5, 2, 0, 1};
    for (int c = 0; c < 6; ++c) EXPECT_EQ(rootChannels[c], h.nodes[0].channels[c]);
    ExpectVec(DrvVector(1, 2, 3), h.nodes[0].offset, 0.0);
    ExpectVec(DrvVector(2, -3, 0), h.nodes[2].offset, 0.0);
}

TEST(BvFile, PositionChannelReplacesOffset) {
    Read r(kTwoChildren);
    ASSERT_TRUE(r.motionOk);
    ExpectVec(DrvVector(10, 20, 30), r.data.nodes[0].frames[0].translation, 0.0);
    ExpectVec(DrvVector(11, 21, 31), r.data.nodes[0].frames[1].translation, 0.0);
}

TEST(BvFile, RotationOnlyJointKeepsItsOffsetInEveryFrame) {
    Read r(kTwoChildren);
    ASSERT_TRUE(r.motionOk);
    for (int f = 0; f < 2; ++f) {
        ExpectVec(DrvVector(0, 5, 0), r.data.nodes[1].frames[f].translation, 0.0);
        ExpectVec(DrvVector(2, -3, 0), r.data.nodes[2].frames[f].translation, 0.0);
    }
}

TEST(BvFile, SixChannelRootWithPositionsFirstGetsOrderZxy) {
    Read r(kTwoChildren);
    ASSERT_TRUE(r.motionOk);
    // Zrotation 15, Xrotation 25, Yrotation 35: qZ * (qX * qY).
    ExpectQuat(Hamilton(Zd(15), Hamilton(Xd(25), Yd(35))), r.data.nodes[0].frames[0].rotation);
    ExpectQuat(Hamilton(Zd(16), Hamilton(Xd(26), Yd(36))), r.data.nodes[0].frames[1].rotation);
    // Joints: Zrotation Xrotation Yrotation as well.
    ExpectQuat(Hamilton(Zd(1), Hamilton(Xd(2), Yd(3))), r.data.nodes[1].frames[0].rotation);
    ExpectQuat(Hamilton(Zd(10), Hamilton(Xd(11), Yd(12))), r.data.nodes[2].frames[1].rotation);
}

TEST(BvFile, SixChannelRootWithRotationsFirstGetsOrderZxy) {
    const std::string text =
        "HIERARCHY ROOT Hips { OFFSET 1 2 3\n"
        "CHANNELS 6 Zrotation Xrotation Yrotation Xposition Yposition Zposition\n"
        "End Site { OFFSET 0 1 0 } }\n"
        "MOTION Frames: 1 Frame Time: 0.01\n"
        "15 25 35 10 20 30\n";
    Read r(text);
    ASSERT_TRUE(r.motionOk);
    ExpectQuat(Hamilton(Zd(15), Hamilton(Xd(25), Yd(35))), r.data.nodes[0].frames[0].rotation);
    ExpectVec(DrvVector(10, 20, 30), r.data.nodes[0].frames[0].translation, 0.0);
}

TEST(BvFile, OffsetsAndValuesAreReadInSinglePrecision) {
    const std::string text =
        "HIERARCHY ROOT Hips { OFFSET 0.1 0.2 0.3\n"
        "CHANNELS 1 Xrotation\n"
        "End Site { OFFSET 0 1 0 } }\n"
        "MOTION Frames: 1 Frame Time: 0.01\n"
        "33.3\n";
    Read r(text);
    ASSERT_TRUE(r.motionOk);
    ExpectVec(DrvVector(0.1f, 0.2f, 0.3f), r.bvh.hierarchy->nodes[0].offset, 0.0);
    ExpectVec(DrvVector(0.1f, 0.2f, 0.3f), r.data.nodes[0].frames[0].translation, 0.0);
    const double angle = static_cast<double>(33.3f * 0.017453292f);
    EXPECT_EQ(std::sin(angle / 2.0), r.data.nodes[0].frames[0].rotation.x);
    EXPECT_EQ(std::cos(angle / 2.0), r.data.nodes[0].frames[0].rotation.w);
}

TEST(BvFile, OrderStringCarriesOverToNodesWithFewerRotationChannels) {
    // B writes x and y over the "zyx" of A and keeps A's last letter: "xyx".
    const std::string text =
        "HIERARCHY\nROOT A\n{\nOFFSET 0 0 0\nCHANNELS 3 Zrotation Yrotation Xrotation\n"
        "JOINT B\n{\nOFFSET 0 1 0\nCHANNELS 2 Xrotation Yrotation\n"
        "End Site\n{\nOFFSET 0 1 0\n}\n}\n}\n"
        "MOTION\nFrames: 1\nFrame Time: 0.1\n"
        "0 0 0 10 20\n";
    Read r(text);
    ASSERT_TRUE(r.motionOk);
    ExpectQuat(Hamilton(Xd(10), Hamilton(Yd(20), Xd(10))), r.data.nodes[1].frames[0].rotation);
}

TEST(BvFile, ParentEndSiteIsTheMeanOfItsChildrenFirstFrameTranslations) {
    Read r(kTwoChildren);
    ASSERT_TRUE(r.motionOk);
    // Hips has no End Site in the file; its children stand at (0, 5, 0) and (2, -3, 0).
    ExpectVec(DrvVector(1, 1, 0), r.bvh.hierarchy->nodes[0].endSite, 1e-7);
}

TEST(BvFile, LeafKeepsItsEndSite) {
    Read r(kTwoChildren);
    ASSERT_TRUE(r.motionOk);
    ExpectVec(DrvVector(0, 4, 0), r.bvh.hierarchy->nodes[1].endSite, 0.0);
    ExpectVec(DrvVector(0, -6, 0), r.bvh.hierarchy->nodes[2].endSite, 0.0);
    EXPECT_EQ(6.0, r.bvh.longestEndSite);
}

TEST(BvFile, ParentEndSiteReplacesWhatTheFileSays) {
    // A joint with a child and an End Site of its own: the child's translation wins; the mean
    // is taken with the reciprocal in single precision.
    const std::string text =
        "HIERARCHY ROOT A { OFFSET 0 0 0 CHANNELS 0\n"
        "JOINT B { OFFSET 0.3 0 0 CHANNELS 0 End Site { OFFSET 0 1 0 } }\n"
        "JOINT C { OFFSET 0 0.3 0 CHANNELS 0 End Site { OFFSET 0 1 0 } }\n"
        "JOINT D { OFFSET 0 0 0.3 CHANNELS 0 End Site { OFFSET 0 1 0 } }\n"
        "End Site { OFFSET 9 9 9 } }\n"
        "MOTION Frames: 1 Frame Time: 0.1\n\n";
    Read r(text);
    ASSERT_TRUE(r.motionOk);
    const double third = static_cast<double>(1.0f / 3.0f);
    const double v = static_cast<double>(0.3f) * third;
    ExpectVec(DrvVector(v, v, v), r.bvh.hierarchy->nodes[0].endSite, 0.0);
}

TEST(BvFile, FirstFrameOnlyReadsOneFrame) {
    // The second frame is not even valid: it is never read.
    std::string text = Replace(kTwoChildren, "11 21 31 16 26 36 7 8 9 10 11 12", "not numbers at all");
    Read r(text, true);
    ASSERT_TRUE(r.motionOk);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(1, r.data.nodes[i].frameCount);
    ExpectVec(DrvVector(10, 20, 30), r.data.nodes[0].frames[0].translation, 0.0);
    ExpectQuat(Hamilton(Zd(15), Hamilton(Xd(25), Yd(35))), r.data.nodes[0].frames[0].rotation);
}

TEST(BvFile, ZeroFramesGivesNodesWithoutFramesAndSucceeds) {
    const std::string text = Replace(Replace(kTwoChildren, "Frames: 2", "Frames: 0"),
                                     "10 20 30 15 25 35 1 2 3 4 5 6\n11 21 31 16 26 36 7 8 9 10 11 12\n", "");
    Read r(text);
    ASSERT_TRUE(r.motionOk);
    ASSERT_EQ(3, r.data.nodeCount);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0, r.data.nodes[i].frameCount);
        EXPECT_EQ(nullptr, r.data.nodes[i].frames);
    }
    EXPECT_TRUE(r.data.nodes[1].name == L"Spine");
    // Without frames the file's End Sites stay.
    ExpectVec(DrvVector(0, 0, 0), r.bvh.hierarchy->nodes[0].endSite, 0.0);
}

TEST(BvFile, ZeroFramesThenUpdateTransformsChangesNothing) {
    const std::string text = Replace(Replace(kTwoChildren, "Frames: 2", "Frames: 0"),
                                     "10 20 30 15 25 35 1 2 3 4 5 6\n11 21 31 16 26 36 7 8 9 10 11 12\n", "");
    Read r(text);
    ASSERT_TRUE(r.motionOk);
    ORV::MATH::CTransformation marker;
    marker.SetTranslationFromValues(7, 8, 9);
    for (int i = 0; i < 3; ++i) {
        r.data.nodes[i].local = marker;
        r.data.nodes[i].global = marker;
    }
    r.data.updateTransforms(0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(r.data.nodes[i].local.Equals(marker, 0.0));
        EXPECT_TRUE(r.data.nodes[i].global.Equals(marker, 0.0));
    }
}

TEST(BvFile, ExtraTextAfterTheLastFrameDoesNoHarm) {
    Read r(std::string(kTwoChildren) + "99 99 trailing words }{\n");
    EXPECT_TRUE(r.motionOk);
}

TEST(BvFile, CrLfLineEndsAndTabsReadAlike) {
    std::string text;
    for (const char* p = kTwoChildren; *p; ++p) {
        if (*p == '\n') text += '\r';
        text += *p;
    }
    text = Replace(text, "Frame Time: ", "Frame Time:\t");
    Read r(text);
    ASSERT_TRUE(r.motionOk);
    ExpectVec(DrvVector(11, 21, 31), r.data.nodes[0].frames[1].translation, 0.0);
}

// --- Up direction ----------------------------------------------------------------------------------

namespace {
const char* const kRootOnly =
    "HIERARCHY ROOT R { OFFSET 0 0 0\n"
    "CHANNELS 6 Xposition Yposition Zposition Zrotation Yrotation Xrotation\n"
    "JOINT C { OFFSET 0 2 0 CHANNELS 3 Zrotation Yrotation Xrotation End Site { OFFSET 0 1 0 } } }\n"
    "MOTION Frames: 2 Frame Time: 0.01\n"
    "1 2 3 10 20 30 5 6 7\n"
    "4 5 6 40 50 60 8 9 10\n";

void ExpectConverted(ZUK::UpDirection up, const Q& a, const Q& b) {
    Read y(kRootOnly, false, ZUK::YUp);
    Read r(kRootOnly, false, up);
    ASSERT_TRUE(y.motionOk);
    ASSERT_TRUE(r.motionOk);
    const Q ba = Hamilton(b, a);
    for (int f = 0; f < 2; ++f) {
        const ZUK::DrvTransform& t = y.data.nodes[0].frames[f];
        const Q q{t.rotation.x, t.rotation.y, t.rotation.z, t.rotation.w};
        ExpectQuat(Hamilton(ba, q), r.data.nodes[0].frames[f].rotation);
        ExpectVec(Rotate(ba, t.translation), r.data.nodes[0].frames[f].translation);
        // Only the root turns.
        const ZUK::DrvTransform& c = y.data.nodes[1].frames[f];
        ExpectQuat(Q{c.rotation.x, c.rotation.y, c.rotation.z, c.rotation.w},
                   r.data.nodes[1].frames[f].rotation, 0.0);
        ExpectVec(c.translation, r.data.nodes[1].frames[f].translation, 0.0);
    }
}
}  // namespace

TEST(BvFile, YUpLeavesTheRootAsRead) {
    Read r(kRootOnly, false, ZUK::YUp);
    ASSERT_TRUE(r.motionOk);
    ExpectVec(DrvVector(1, 2, 3), r.data.nodes[0].frames[0].translation, 0.0);
    ExpectQuat(Hamilton(Zd(10), Hamilton(Yd(20), Xd(30))), r.data.nodes[0].frames[0].rotation);
}

TEST(BvFile, XUpTurnsTheRootAboutZThenY) {
    ExpectConverted(ZUK::XUp, Axis(2, 1.5707963), Axis(1, 1.5707963));
}

TEST(BvFile, ZUpTurnsTheRootAboutXThenY) {
    ExpectConverted(ZUK::ZUp, Axis(0, -1.5707963), Axis(1, -1.5707963));
}

TEST(BvFile, UnknownUpDirectionMultipliesByIdentity) {
    Read y(kRootOnly, false, ZUK::YUp);
    Read r(kRootOnly, false, static_cast<ZUK::UpDirection>(7));
    ASSERT_TRUE(r.motionOk);
    ExpectVec(y.data.nodes[0].frames[1].translation, r.data.nodes[0].frames[1].translation, 0.0);
    const DrvQuaternion& q = y.data.nodes[0].frames[1].rotation;
    ExpectQuat(Q{q.x, q.y, q.z, q.w}, r.data.nodes[0].frames[1].rotation, 0.0);
}

// --- File states -------------------------------------------------------------------------------------

TEST(BvFile, OpenFailsForAMissingFile) {
    BvFile bvh;
    EXPECT_FALSE(bvh.Open(L"/nonexistent/folder/missing.bvh"));
    EXPECT_FALSE(bvh.Close());
}

TEST(BvFile, OpenFailsWhenAFileIsAlreadyOpen) {
    TempFile file(kTwoChildren);
    BvFile bvh;
    ASSERT_TRUE(bvh.Open(file.Path().GetWideString()));
    EXPECT_FALSE(bvh.Open(file.Path().GetWideString()));
    EXPECT_TRUE(bvh.Close());
    EXPECT_FALSE(bvh.Close());
}

TEST(BvFile, ReadHierarchyTwiceFailsTheSecondTime) {
    TempFile file(kTwoChildren);
    BvFile bvh;
    MocapData data;
    ASSERT_TRUE(bvh.Open(file.Path().GetWideString()));
    EXPECT_TRUE(bvh.ReadHierarchy(&data));
    EXPECT_FALSE(bvh.ReadHierarchy(&data));
    EXPECT_TRUE(bvh.ReadMotionData(&data, false, ZUK::YUp));
}

TEST(BvFile, ReadingWithoutAnOpenFileOrHierarchyFails) {
    BvFile bvh;
    MocapData data;
    EXPECT_FALSE(bvh.ReadHierarchy(&data));
    EXPECT_FALSE(bvh.ReadMotionData(&data, false, ZUK::YUp));
    TempFile file(kTwoChildren);
    ASSERT_TRUE(bvh.Open(file.Path().GetWideString()));
    EXPECT_FALSE(bvh.ReadMotionData(&data, false, ZUK::YUp));
}

// --- Failures --------------------------------------------------------------------------------------

TEST(BvFile, WrongFirstWordFails) {
    EXPECT_FALSE(Read(Replace(kTwoChildren, "HIERARCHY", "HIERARCHIE")).hierarchyOk);
    // Section words are case sensitive.
    EXPECT_FALSE(Read(Replace(kTwoChildren, "HIERARCHY", "hierarchy")).hierarchyOk);
    EXPECT_FALSE(Read("").hierarchyOk);
}

TEST(BvFile, FileWithoutMotionWordFailsInReadMotionData) {
    Read r(Replace(kTwoChildren, "MOTION", ""));
    EXPECT_TRUE(r.hierarchyOk);
    EXPECT_FALSE(r.motionOk);
    Read lower(Replace(kTwoChildren, "MOTION", "Motion"));
    EXPECT_TRUE(lower.hierarchyOk);
    EXPECT_FALSE(lower.motionOk);
    const std::string text = kTwoChildren;
    Read cut(text.substr(0, text.find("MOTION")));
    EXPECT_TRUE(cut.hierarchyOk);
    EXPECT_FALSE(cut.motionOk);
}

TEST(BvFile, UnknownChannelNameFails) {
    EXPECT_FALSE(Read(Replace(kTwoChildren, "Zrotation Xrotation Yrotation\n\t\tEnd",
                              "Zrotation Wrotation Yrotation\n\t\tEnd"))
                     .hierarchyOk);
    EXPECT_FALSE(Read(Replace(kTwoChildren, "Xposition", "xposition")).hierarchyOk);
}

TEST(BvFile, BlockNotClosedFails) {
    const std::string text = kTwoChildren;
    // The file ends inside the root.
    EXPECT_FALSE(Read(text.substr(0, text.find("}\nMOTION"))).hierarchyOk);
    // A block ended by another word.
    EXPECT_FALSE(Read(Replace(text, "}\nMOTION", "]\nMOTION")).hierarchyOk);
    // An unknown keyword inside a block.
    EXPECT_FALSE(Read(Replace(text, "\tOFFSET 1 2 3", "\tPOSITION 1 2 3")).hierarchyOk);
}

TEST(BvFile, TruncatedMotionFailsEvenAfterWholeFrames) {
    const std::string text = kTwoChildren;
    // One whole frame and part of the second.
    EXPECT_FALSE(Read(text.substr(0, text.size() - 10)).motionOk);
    // Exactly one whole frame of two.
    EXPECT_FALSE(Read(text.substr(0, text.find("11 21 31"))).motionOk);
    // A frame count far beyond the file.
    EXPECT_FALSE(Read(Replace(text, "Frames: 2", "Frames: 2000000000")).motionOk);
}

TEST(BvFile, ValueThatDoesNotScanFails) {
    EXPECT_FALSE(Read(Replace(kTwoChildren, "15 25 35", "15 x5 35")).motionOk);
    EXPECT_FALSE(Read(Replace(kTwoChildren, "Frames: 2", "Frames: two")).motionOk);
}

TEST(BvFile, NegativeFrameCountFails) {
    EXPECT_FALSE(Read(Replace(kTwoChildren, "Frames: 2", "Frames: -2")).motionOk);
}

TEST(BvFile, MoreNodesThanTheTableHoldsFailsCleanly) {
    std::string text = "HIERARCHY ROOT J0 { OFFSET 0 0 0 CHANNELS 0\n";
    for (int i = 1; i <= 200; ++i) text += "JOINT J" + std::to_string(i) + " { OFFSET 0 1 0 CHANNELS 0 }\n";
    text += "}\nMOTION Frames: 1 Frame Time: 0.1\n\n";
    EXPECT_FALSE(Read(text).hierarchyOk);
    // Two hundred in all still read.
    std::string fits = "HIERARCHY ROOT J0 { OFFSET 0 0 0 CHANNELS 0\n";
    for (int i = 1; i < 200; ++i) fits += "JOINT J" + std::to_string(i) + " { OFFSET 0 1 0 CHANNELS 0 }\n";
    fits += "}\nMOTION Frames: 1 Frame Time: 0.1\n\n";
    Read r(fits);
    EXPECT_TRUE(r.motionOk);
    EXPECT_EQ(200, r.data.nodeCount);
}

TEST(BvFile, MoreChannelsThanTheTableHoldsFailsCleanly) {
    EXPECT_FALSE(
        Read(Replace(kTwoChildren, "CHANNELS 6 Xposition Yposition Zposition Zrotation Xrotation Yrotation",
                     "CHANNELS 8 Xposition Yposition Zposition Zrotation Xrotation Yrotation "
                     "Xrotation Yrotation"))
            .hierarchyOk);
}

TEST(BvFile, OverlongWordFailsCleanly) {
    EXPECT_FALSE(Read(Replace(kTwoChildren, "ROOT Hips", "ROOT " + std::string(3000, 'H'))).hierarchyOk);
}

TEST(BvFile, ReadsFromAPipeWhereNoSizeIsKnown) {
    // A named pipe has no size to check the frame count against; the frames still read.
    char folder[] = "/tmp/trovo_fifo_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(folder));
    const std::string path = std::string(folder) + "/motion.bvh";
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    const pid_t writer = fork();
    ASSERT_NE(-1, writer);
    if (writer == 0) {
        FILE* out = std::fopen(path.c_str(), "w");
        if (out) {
            std::fputs(kTwoChildren, out);
            std::fclose(out);
        }
        _exit(0);
    }
    bool read = false;
    int frames = 0;
    {
        BvFile bvh;
        MocapData data;
        const bool opened = bvh.Open(ORV::CString(path.c_str()).GetWideString());
        if (!opened) kill(writer, SIGKILL);  // it would wait for a reader for ever
        read = opened && bvh.ReadHierarchy(&data) && bvh.ReadMotionData(&data, false, ZUK::YUp);
        if (read) frames = data.nodes[0].frameCount;
    }
    int status = 0;
    waitpid(writer, &status, 0);
    std::remove(path.c_str());
    rmdir(folder);
    EXPECT_TRUE(read);
    EXPECT_EQ(2, frames);
}
