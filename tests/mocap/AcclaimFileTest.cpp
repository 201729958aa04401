// AcclaimFile: the ASF skeleton and its rest poses, AMC frames expressed against them, the
// reference model, and the real CMU takes checked against the format's own convention.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "TempFile.h"
#include "core/InputStream.h"
#include "mocap/AcclaimFile.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "shell/Util.h"

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using trovotest::TempFile;
using ZUK::AcclaimFile;
using ZUK::MocapData;

namespace {

constexpr double kDeg = 0.017453292519943295;

// Three bones under the root. Rest pose by hand: hip starts at the root's (1, 2, 3) and turns a
// quarter turn about Z; knee starts at the hip's end (1, 0, 3) and is unturned; back starts at
// the root. The root's length is 0, so its children start where it stands.
const char* const kAsf =
    "# a small skeleton\n"
    ":version 1.10\n"
    ":name test\n"
    ":units\n"
    "  mass 1.0\n"
    "  length 1.0\n"
    "  angle deg\n"
    ":documentation\n"
    "  two bones and a back\n"
    ":root\n"
    "  order TX TY TZ RX RY RZ\n"
    "  axis XYZ\n"
    "  position 1 2 3\n"
    "  orientation 0 0 0\n"
    ":bonedata\n"
    "  begin\n"
    "    id 1\n"
    "    name hip\n"
    "    direction 0 -1 0\n"
    "    length 2\n"
    "    axis 0 0 90 XYZ\n"
    "    dof rx ry rz\n"
    "    limits (-160.0 20.0)\n"
    "           (-70.0 70.0)\n"
    "           (-60.0 70.0)\n"
    "  end\n"
    "  begin\n"
    "    id 2\n"
    "    name knee\n"
    "    direction 1 0 0\n"
    "    length 3\n"
    "    axis 0 0 0 XYZ\n"
    "    dof RX\n"
    "  end\n"
    "  begin\n"
    "    id 3\n"
    "    name back\n"
    "    direction 0 1 0\n"
    "    length 4\n"
    "    axis 0 0 0 ZYX\n"
    "    dof rz l\n"
    "  end\n"
    ":hierarchy\n"
    "  begin\n"
    "    root hip back\n"
    "    hip knee\n"
    "  end\n";

// Two frames in degrees; the second leaves out nothing.
const char* const kAmc =
    "#!OML:ASF test.asf\n"
    ":FULLY-SPECIFIED\n"
    ":DEGREES\n"
    "1\n"
    "root 10 20 30 0 0 90\n"
    "hip 0 0 0\n"
    "knee 90\n"
    "back 0 45\n"
    "2\n"
    "root 5 5 5 0 0 0\n"
    "hip 30 0 0\n"
    "knee 0\n"
    "back 0 0\n";

std::string Replace(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string DataPath(const char* relative) { return std::string(TROVO_TEST_DATA) + "/" + relative; }

// Severity-4 log texts, narrowed.
std::vector<std::string> Errors() {
    std::vector<std::string> out;
    for (const std::wstring& w : orvhost::LogTexts(4)) out.push_back(ORV::CString(w).GetAsciiString());
    return out;
}

bool Near(const CVector3& a, const CVector3& b, double eps) {
    return std::fabs(a.x - b.x) <= eps && std::fabs(a.y - b.y) <= eps && std::fabs(a.z - b.z) <= eps;
}

CRotation Rot(double xDeg, double yDeg, double zDeg) {
    return CRotation(xDeg * kDeg, yDeg * kDeg, zDeg * kDeg);
}

class AcclaimTest : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
    }

    // Reads an ASF text; the file object is large, so it lives on the heap.
    std::unique_ptr<AcclaimFile> Skeleton(const std::string& text, bool expect = true) {
        TempFile file(text, ".asf");
        EXPECT_TRUE(file.Ok());
        std::unique_ptr<AcclaimFile> asf(new AcclaimFile);
        EXPECT_EQ(expect, asf->readHierarchy(file.Path()));
        return asf;
    }

    std::unique_ptr<MocapData> Motion(AcclaimFile& asf, const std::string& text, int step = 1,
                                      bool expect = true) {
        TempFile file(text, ".amc");
        EXPECT_TRUE(file.Ok());
        std::unique_ptr<MocapData> data(new MocapData);
        EXPECT_EQ(expect, asf.readMotion(file.Path(), data.get(), step));
        return data;
    }

    // AMC text of `frames` frames in which the root's X translation is the frame number.
    static std::string NumberedFrames(int frames) {
        std::string text = ":FULLY-SPECIFIED\n:DEGREES\n";
        for (int i = 1; i <= frames; ++i) {
            text += std::to_string(i) + "\nroot " + std::to_string(i) +
                    " 0 0 0 0 0\nhip 0 0 0\nknee 0\nback 0 0\n";
        }
        return text;
    }
};

// ---- The skeleton ------------------------------------------------------------------------------

TEST_F(AcclaimTest, BlobNameIsAsfdef) { EXPECT_TRUE(ORV::CString(AcclaimFile::PROPERTY_NAME) == L"asfdef"); }

TEST_F(AcclaimTest, BonesStandInFileOrderWithTheirFields) {
    auto asf = Skeleton(kAsf);
    ASSERT_EQ(4, asf->boneCount);
    EXPECT_TRUE(asf->bones[0].name == L"root");
    EXPECT_TRUE(asf->bones[1].name == L"hip");
    EXPECT_TRUE(asf->bones[2].name == L"knee");
    EXPECT_TRUE(asf->bones[3].name == L"back");
    EXPECT_TRUE(asf->degrees);
    // The root keeps its position and orientation in the direction and axis fields.
    EXPECT_TRUE(asf->bones[0].direction.Equals(CVector3(1, 2, 3), 0.0));
    EXPECT_TRUE(asf->bones[0].order == L"XYZ");
    EXPECT_TRUE(asf->bones[1].direction.Equals(CVector3(0, -1, 0), 0.0));
    EXPECT_EQ(2.0, asf->bones[1].length);
    EXPECT_TRUE(asf->bones[1].axis.Equals(CVector3(0, 0, 90), 0.0));
    EXPECT_TRUE(asf->bones[3].order == L"ZYX");
    EXPECT_EQ(4.0, asf->longestBone);
    EXPECT_EQ(-1, asf->bones[0].parent);
    EXPECT_EQ(0, asf->bones[1].parent);
    EXPECT_EQ(1, asf->bones[2].parent);
    EXPECT_EQ(0, asf->bones[3].parent);
    EXPECT_TRUE(Errors().empty());
}

TEST_F(AcclaimTest, ChannelWordsIgnoreCaseAndLengthLandsInTheZRotation) {
    auto asf = Skeleton(kAsf);
    const int root[7] = {0, 1, 2, 3, 4, 5, -1};
    const int hip[7] = {3, 4, 5, -1, -1, -1, -1};
    const int knee[7] = {3, -1, -1, -1, -1, -1, -1};
    const int back[7] = {5, 5, -1, -1, -1, -1, -1};
    for (int c = 0; c < 7; ++c) {
        EXPECT_EQ(root[c], asf->bones[0].dof[c]) << c;
        EXPECT_EQ(hip[c], asf->bones[1].dof[c]) << c;
        EXPECT_EQ(knee[c], asf->bones[2].dof[c]) << c;
        EXPECT_EQ(back[c], asf->bones[3].dof[c]) << c;
    }
}

TEST_F(AcclaimTest, RootOrderTakesNoLengthChannel) {
    // "l" closes the root's list: it is no channel word there.
    auto asf = Skeleton(Replace(kAsf, "order TX TY TZ RX RY RZ", "order tx Ty l RZ"));
    EXPECT_EQ(0, asf->bones[0].dof[0]);
    EXPECT_EQ(1, asf->bones[0].dof[1]);
    EXPECT_EQ(-1, asf->bones[0].dof[2]);
}

TEST_F(AcclaimTest, RestPoseStartsEachBoneAtItsParentsEnd) {
    auto asf = Skeleton(kAsf);
    // Root: at its position, unturned.
    EXPECT_TRUE(Near(asf->bones[0].global.GetTranslation(), CVector3(1, 2, 3), 1e-9));
    EXPECT_TRUE(Near(asf->bones[0].offset, CVector3(1, 2, 3), 1e-9));
    EXPECT_TRUE(asf->bones[0].rotation.Equals(CRotation(), 1e-9));
    // Hip: on the root (whose length is 0), turned by its axis.
    EXPECT_TRUE(Near(asf->bones[1].global.GetTranslation(), CVector3(1, 2, 3), 1e-9));
    EXPECT_TRUE(Near(asf->bones[1].offset, CVector3(0, 0, 0), 1e-9));
    EXPECT_TRUE(asf->bones[1].global.GetRotation().Equals(Rot(0, 0, 90), 1e-9));
    EXPECT_TRUE(asf->bones[1].rotation.Equals(Rot(0, 0, 90), 1e-9));
    // Knee: at the hip's end, 2 down; in the hip's turned axes that is 2 along -X.
    EXPECT_TRUE(Near(asf->bones[2].global.GetTranslation(), CVector3(1, 0, 3), 1e-9));
    EXPECT_TRUE(Near(asf->bones[2].offset, CVector3(-2, 0, 0), 1e-9));
    EXPECT_TRUE(asf->bones[2].global.GetRotation().Equals(CRotation(), 1e-9));
    EXPECT_TRUE(asf->bones[2].rotation.Equals(Rot(0, 0, -90), 1e-9));
}

TEST_F(AcclaimTest, AxisIsTakenInXyzOrderWhateverItsOrderText) {
    // The same angles under "ZYX" give the rotation of "XYZ": the order text is not used.
    auto asf = Skeleton(Replace(kAsf, "axis 0 0 0 ZYX", "axis 30 40 50 ZYX"));
    EXPECT_TRUE(asf->bones[3].global.GetRotation().Equals(Rot(30, 40, 50), 1e-9));
}

TEST_F(AcclaimTest, AngleOtherThanDegLeavesTheFactorAtOne) {
    auto radians =
        Skeleton(Replace(Replace(kAsf, "angle deg", "angle rad"), "axis 0 0 90 XYZ", "axis 0 0 1.5 XYZ"));
    EXPECT_FALSE(radians->degrees);
    EXPECT_TRUE(radians->bones[1].global.GetRotation().Equals(CRotation(0, 0, 1.5), 1e-9));
    auto degrees = Skeleton(Replace(kAsf, "axis 0 0 90 XYZ", "axis 0 0 1.5 XYZ"));
    EXPECT_TRUE(degrees->bones[1].global.GetRotation().Equals(CRotation(0, 0, 1.5 * kDeg), 1e-10));
    // Without any ":units" the angles are radians as well.
    auto bare = Skeleton(Replace(Replace(kAsf, "angle deg", ""), "axis 0 0 90 XYZ", "axis 0 0 1.5 XYZ"));
    EXPECT_TRUE(bare->bones[1].global.GetRotation().Equals(CRotation(0, 0, 1.5), 1e-9));
}

TEST_F(AcclaimTest, FileWithoutRootOrBonesFails) {
    auto asf = Skeleton(":version 1.10\n:name nobody\n:units\n  angle deg\n:documentation\n  empty\n", false);
    EXPECT_EQ(0, asf->boneCount);
    EXPECT_EQ(std::vector<std::string>{"ASF file is invalid."}, Errors());
    // From a stream as well.
    TempFile empty("", ".asf");
    ZUK::InputStream stream(empty.Path());
    ASSERT_NE(nullptr, stream.buffer);
    EXPECT_FALSE(asf->readHierarchy(stream));
}

TEST_F(AcclaimTest, MissingAsfFileLogsThatItIsInvalid) {
    std::unique_ptr<AcclaimFile> asf(new AcclaimFile);
    EXPECT_FALSE(asf->readHierarchy(L"/nonexistent/folder/skeleton.asf"));
    EXPECT_EQ(std::vector<std::string>{"ASF file is invalid."}, Errors());
    const std::vector<orvhost::LogEntry>& log = orvhost::LogEntries();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(4, log.back().severity);
}

TEST_F(AcclaimTest, HierarchyNamingAnUnknownChildFails) {
    auto asf = Skeleton(Replace(kAsf, "hip knee\n", "hip knee foot\n"), false);
    EXPECT_EQ(std::vector<std::string>{"Parse error: could not find foot."}, Errors());
    EXPECT_EQ(0, asf->boneCount);
}

TEST_F(AcclaimTest, HierarchyNamingAnUnknownParentFails) {
    Skeleton(Replace(kAsf, "hip knee\n", "thigh knee\n"), false);
    EXPECT_EQ(std::vector<std::string>{"Parse error: could not find thigh."}, Errors());
}

TEST_F(AcclaimTest, ChildListedBeforeItsParentFails) {
    // Frames are evaluated in bone order, parents first: a file that inverts that is refused.
    Skeleton(Replace(Replace(kAsf, "root hip back", "root knee back"), "hip knee\n", "knee hip\n"), false);
    EXPECT_EQ(std::vector<std::string>{"Parse error: hip is listed before its parent knee."}, Errors());
}

TEST_F(AcclaimTest, FileWithoutItsHierarchyFails) {
    const std::string text = kAsf;
    Skeleton(text.substr(0, text.find(":hierarchy")), false);
    EXPECT_EQ(std::vector<std::string>{"ASF file is invalid."}, Errors());
    orvhost::ClearLog();
    // A hierarchy that the file cuts before its "end".
    Skeleton(text.substr(0, text.find("  end\n", text.find(":hierarchy"))), false);
    EXPECT_EQ(std::vector<std::string>{"ASF file is invalid."}, Errors());
}

TEST_F(AcclaimTest, SkinWordBehindAHierarchyLineTakesOneTokenWithIt) {
    auto asf = Skeleton(Replace(kAsf, "    hip knee\n", ":skin hip.skin\n    hip knee\n"));
    ASSERT_EQ(4, asf->boneCount);
    EXPECT_EQ(1, asf->bones[2].parent);
}

TEST_F(AcclaimTest, UnknownSectionsAndBlockWordsAreSkipped) {
    auto asf = Skeleton(Replace(Replace(kAsf, ":documentation", ":weird 1 2 3\n:documentation"),
                                "    length 3\n", "    length 3\n    bodymass 12 x\n"));
    ASSERT_EQ(4, asf->boneCount);
    EXPECT_EQ(3.0, asf->bones[2].length);
    EXPECT_EQ(3, asf->bones[2].dof[0]);
}

TEST_F(AcclaimTest, CarriageReturnLineEndsReadTheSame) {
    std::string crlf;
    for (char c : std::string(kAsf)) {
        if (c == '\n') crlf += '\r';
        crlf += c;
    }
    auto asf = Skeleton(crlf);
    ASSERT_EQ(4, asf->boneCount);
    EXPECT_EQ(1, asf->bones[2].parent);
    EXPECT_EQ(0, asf->bones[3].parent);
    EXPECT_TRUE(asf->bones[3].order == L"ZYX");
    EXPECT_EQ(5, asf->bones[3].dof[1]);
}

TEST_F(AcclaimTest, FindBoneIsCaseSensitive) {
    auto asf = Skeleton(kAsf);
    EXPECT_EQ(2, asf->findBone(L"knee"));
    EXPECT_EQ(0, asf->findBone(L"root"));
    EXPECT_EQ(-1, asf->findBone(L"Knee"));
    EXPECT_EQ(-1, asf->findBone(L"ROOT"));
    EXPECT_EQ(-1, asf->findBone(L"kne"));
}

TEST_F(AcclaimTest, ReadingAgainStartsFromACleanSkeleton) {
    auto asf = Skeleton(kAsf);
    TempFile other(Replace(Replace(kAsf, "name back", "name spine"), "root hip back", "root hip spine"),
                   ".asf");
    ASSERT_TRUE(asf->readHierarchy(other.Path()));
    EXPECT_EQ(4, asf->boneCount);
    EXPECT_EQ(3, asf->findBone(L"spine"));
    EXPECT_EQ(-1, asf->findBone(L"back"));
}

TEST_F(AcclaimTest, KeepsTheWholeAsfText) {
    auto asf = Skeleton(kAsf);
    ASSERT_NE(nullptr, asf->text);
    EXPECT_EQ(std::string(kAsf), std::string(asf->text, static_cast<size_t>(asf->textSize)));
}

TEST_F(AcclaimTest, ExtractInitDataCountsRootsAndRestoresThePosition) {
    TempFile file(kAmc, ".amc");
    ZUK::InputStream stream(file.Path());
    ORV::CString word;
    stream >> word >> word;
    char* const at = stream.current;
    AcclaimFile* asf = new AcclaimFile;
    int count = -1;
    asf->extractInitData(stream, count);
    delete asf;
    EXPECT_EQ(2, count);
    EXPECT_EQ(at, stream.current);
}

// ---- Motion ------------------------------------------------------------------------------------

TEST_F(AcclaimTest, FramesAreExpressedAgainstTheRestPose) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, kAmc);
    ASSERT_EQ(4, data->nodeCount);
    EXPECT_TRUE(data->nodes[2].name == L"knee");
    EXPECT_EQ(-1, data->nodes[0].parent);
    EXPECT_EQ(1, data->nodes[2].parent);
    EXPECT_EQ(0, data->nodes[3].parent);
    // Root: the channel values plus its position; R followed by its rest rotation.
    const CTransformation root = data->nodes[0].frames[0].GetCTransformation();
    EXPECT_TRUE(Near(root.GetTranslation(), CVector3(11, 22, 33), 1e-9));
    EXPECT_TRUE(root.GetRotation().Equals(Rot(0, 0, 90), 1e-9));
    // Knee: R = 90 degrees about X, then the rest rotation (a quarter turn back about Z).
    const CTransformation knee = data->nodes[2].frames[0].GetCTransformation();
    CRotation expected;
    expected.Mul(Rot(90, 0, 0), Rot(0, 0, -90));
    EXPECT_TRUE(knee.GetRotation().Equals(expected, 1e-9));
    EXPECT_TRUE(Near(knee.GetTranslation(), CVector3(-2, 0, 0), 1e-9));
    // Back: "rz l", and the length channel's 45 overrides the 0 of rz.
    EXPECT_TRUE(data->nodes[3].frames[0].GetCTransformation().GetRotation().Equals(Rot(0, 0, 45), 1e-9));
    // Frame 2: 30 degrees about X on the hip.
    CRotation hip;
    hip.Mul(Rot(30, 0, 0), Rot(0, 0, 90));
    EXPECT_TRUE(data->nodes[1].frames[1].GetCTransformation().GetRotation().Equals(hip, 1e-9));
}

TEST_F(AcclaimTest, GlobalPositionsFollowTheTurnedParent) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, kAmc);
    data->updateTransforms(0);
    // The root turns a quarter about Z: the hip's end, 2 down at rest, goes 2 along +X.
    EXPECT_TRUE(Near(data->nodes[1].global.GetTranslation(), CVector3(11, 22, 33), 1e-9));
    EXPECT_TRUE(Near(data->nodes[2].global.GetTranslation(), CVector3(13, 22, 33), 1e-9));
}

TEST_F(AcclaimTest, FrameCountIsOneMoreThanTheFramesAndTheLastStaysIdentity) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, kAmc);
    for (int b = 0; b < data->nodeCount; ++b) ASSERT_EQ(3, data->nodes[b].frameCount);
    const ZUK::DrvTransform& last = data->nodes[2].frames[2];
    EXPECT_EQ(0.0, last.translation.x);
    EXPECT_EQ(1.0, last.rotation.w);
}

TEST_F(AcclaimTest, FrameThatLeavesOutABoneKeepsItAtRest) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, Replace(kAmc, "hip 30 0 0\nknee 0\n", "hip 30 0 0\n"));
    const CTransformation knee = data->nodes[2].frames[1].GetCTransformation();
    EXPECT_TRUE(knee.GetRotation().Equals(asf->bones[2].rotation, 1e-9));
    EXPECT_TRUE(Near(knee.GetTranslation(), asf->bones[2].offset, 1e-9));
    // The bones behind the gap still land on their own nodes.
    CRotation hip;
    hip.Mul(Rot(30, 0, 0), Rot(0, 0, 90));
    EXPECT_TRUE(data->nodes[1].frames[1].GetCTransformation().GetRotation().Equals(hip, 1e-9));
    EXPECT_TRUE(data->nodes[3].frames[1].GetCTransformation().GetRotation().Equals(CRotation(), 1e-9));
}

TEST_F(AcclaimTest, BoneLeftOutOfTheFirstFrameStaysAtRestThere) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, Replace(kAmc, "knee 90\n", ""));
    EXPECT_TRUE(
        data->nodes[2].frames[0].GetCTransformation().GetRotation().Equals(asf->bones[2].rotation, 1e-9));
    EXPECT_TRUE(data->nodes[3].frames[0].GetCTransformation().GetRotation().Equals(Rot(0, 0, 45), 1e-9));
    // The second frame, which lists the knee, still reads it.
    EXPECT_TRUE(
        data->nodes[2].frames[1].GetCTransformation().GetRotation().Equals(asf->bones[2].rotation, 1e-9));
    EXPECT_TRUE(data->nodes[3].frames[1].GetCTransformation().GetRotation().Equals(CRotation(), 1e-9));
}

TEST_F(AcclaimTest, LaterFrameInAnotherOrderStillReachesItsBones) {
    auto asf = Skeleton(kAsf);
    auto data =
        Motion(*asf, Replace(kAmc, "hip 30 0 0\nknee 0\nback 0 0\n", "back 0 10\nknee 20\nhip 30 0 0\n"));
    EXPECT_TRUE(data->nodes[3].frames[1].GetCTransformation().GetRotation().Equals(Rot(0, 0, 10), 1e-9));
    CRotation knee, hip;
    knee.Mul(Rot(20, 0, 0), Rot(0, 0, -90));
    hip.Mul(Rot(30, 0, 0), Rot(0, 0, 90));
    EXPECT_TRUE(data->nodes[2].frames[1].GetCTransformation().GetRotation().Equals(knee, 1e-9));
    EXPECT_TRUE(data->nodes[1].frames[1].GetCTransformation().GetRotation().Equals(hip, 1e-9));
}

TEST_F(AcclaimTest, MotionWithoutTheDegreesWordIsInRadians) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, Replace(Replace(kAmc, ":DEGREES", ":RADIANS"), "knee 90", "knee 1.25"));
    CRotation knee;
    knee.Mul(CRotation(1.25, 0, 0), Rot(0, 0, -90));
    EXPECT_TRUE(data->nodes[2].frames[0].GetCTransformation().GetRotation().Equals(knee, 1e-9));
}

TEST_F(AcclaimTest, StepTwoOnTenFramesAllocatesSix) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, NumberedFrames(10), 2);
    ASSERT_EQ(6, data->nodes[0].frameCount);
    // Frames 1, 3, 5, 7, 9 are kept; the root's X is the frame number plus its position's 1.
    for (int k = 0; k < 5; ++k) EXPECT_DOUBLE_EQ(2.0 * k + 2.0, data->nodes[0].frames[k].translation.x) << k;
    // The sixth finds no kept frame behind frame 10: it holds the rest pose.
    EXPECT_DOUBLE_EQ(1.0, data->nodes[0].frames[5].translation.x);
}

TEST_F(AcclaimTest, StepThreeKeepsEveryThirdFrameFromTheFirst) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, NumberedFrames(10), 3);
    ASSERT_EQ(4, data->nodes[0].frameCount);
    const double kept[4] = {1, 4, 7, 10};
    for (int k = 0; k < 4; ++k) EXPECT_DOUBLE_EQ(kept[k] + 1.0, data->nodes[0].frames[k].translation.x) << k;
}

TEST_F(AcclaimTest, StepBelowOneCountsAsOne) {
    auto asf = Skeleton(kAsf);
    for (int step : {0, -3}) {
        auto data = Motion(*asf, NumberedFrames(4), step);
        ASSERT_EQ(5, data->nodes[0].frameCount);
        for (int k = 0; k < 4; ++k) EXPECT_DOUBLE_EQ(k + 2.0, data->nodes[0].frames[k].translation.x) << k;
    }
}

TEST_F(AcclaimTest, ShowsTheProgressBarForTheSamples) {
    auto asf = Skeleton(kAsf);
    Motion(*asf, kAmc);
    ORV::ProgressBar bar = ORV::Application().GetUIToolkit().GetProgressBar();
    EXPECT_TRUE(bar.GetCaption() == L"Reading AMC Samples ...");
    EXPECT_EQ(3, bar.GetMaximum());
}

TEST_F(AcclaimTest, MissingAmcFileLogsThatItIsInvalid) {
    auto asf = Skeleton(kAsf);
    MocapData data;
    EXPECT_FALSE(asf->readMotion(L"/nonexistent/folder/motion.amc", &data, 1));
    EXPECT_EQ(std::vector<std::string>{"AMC file is invalid"}, Errors());
    EXPECT_EQ(0, data.nodeCount);
}

TEST_F(AcclaimTest, AmcWithoutAnyFrameFailsAndLeavesTheDataAsItWas) {
    auto asf = Skeleton(kAsf);
    MocapData data;
    ASSERT_TRUE(data.allocate(2));
    TempFile file(":FULLY-SPECIFIED\n:DEGREES\n", ".amc");
    EXPECT_FALSE(asf->readMotion(file.Path(), &data, 1));
    EXPECT_EQ(std::vector<std::string>{"AMC file is invalid"}, Errors());
    EXPECT_EQ(2, data.nodeCount);
}

TEST_F(AcclaimTest, MotionNeedsASkeletonFirst) {
    std::unique_ptr<AcclaimFile> asf(new AcclaimFile);
    TempFile file(kAmc, ".amc");
    MocapData data;
    EXPECT_FALSE(asf->readMotion(file.Path(), &data, 1));
    EXPECT_FALSE(asf->readMotion(file.Path(), nullptr, 1));
    EXPECT_EQ(0, data.nodeCount);
}

TEST_F(AcclaimTest, TruncatedAmcEndsTheFrameLoopAndKeepsWhatItRead) {
    auto asf = Skeleton(kAsf);
    const std::string text = kAmc;
    // Cut inside the second frame, behind the hip: knee and back stay at rest there.
    auto data = Motion(*asf, text.substr(0, text.find("knee 0")));
    ASSERT_EQ(3, data->nodes[0].frameCount);
    EXPECT_TRUE(
        Near(data->nodes[0].frames[1].GetCTransformation().GetTranslation(), CVector3(6, 7, 8), 1e-9));
    EXPECT_TRUE(
        data->nodes[2].frames[1].GetCTransformation().GetRotation().Equals(asf->bones[2].rotation, 1e-9));
    EXPECT_EQ(1.0, data->nodes[2].frames[2].rotation.w);
}

// ---- Damaged files: a clear failure, never a crash ---------------------------------------------

TEST_F(AcclaimTest, TruncatedAsfFailsAtEveryCut) {
    const std::string text = ReadText(DataPath("asfamc/07-walk.asf"));
    ASSERT_FALSE(text.empty());
    const size_t hierarchyEnd = text.rfind("end");
    for (size_t cut = 0; cut < hierarchyEnd + 2; cut += 37) {
        orvhost::ClearLog();
        TempFile file(text.substr(0, cut), ".asf");
        std::unique_ptr<AcclaimFile> asf(new AcclaimFile);
        EXPECT_FALSE(asf->readHierarchy(file.Path())) << cut;
        EXPECT_EQ(0, asf->boneCount) << cut;
        EXPECT_EQ(1u, Errors().size()) << cut;
    }
}

TEST_F(AcclaimTest, TruncatedRealAmcReadsWithoutHarm) {
    std::unique_ptr<AcclaimFile> asf(new AcclaimFile);
    ASSERT_TRUE(asf->readHierarchy(ORV::CString(DataPath("asfamc/09-run.asf").c_str())));
    const std::string text = ReadText(DataPath("asfamc/09_06-run.amc"));
    for (size_t cut = 0; cut < text.size(); cut += 1777) {
        TempFile file(text.substr(0, cut), ".amc");
        MocapData data;
        if (asf->readMotion(file.Path(), &data, 1)) {
            ASSERT_EQ(asf->boneCount, data.nodeCount) << cut;
            for (int f = 0; f < data.nodes[0].frameCount; ++f) data.updateTransforms(f);
        } else {
            EXPECT_EQ(0, data.nodeCount) << cut;
        }
    }
}

TEST_F(AcclaimTest, RandomBytesGiveAClearFailure) {
    std::mt19937 random(21);
    std::unique_ptr<AcclaimFile> asf(new AcclaimFile);
    for (int trial = 0; trial < 40; ++trial) {
        std::string bytes(static_cast<size_t>(200 + trial * 97), '\0');
        for (char& c : bytes) c = static_cast<char>(random() & 0xff);
        orvhost::ClearLog();
        TempFile file(bytes, ".asf");
        EXPECT_FALSE(asf->readHierarchy(file.Path())) << trial;
        EXPECT_FALSE(Errors().empty()) << trial;
    }
    // Random motion for a good skeleton: no "root", no frames.
    ASSERT_TRUE(asf->readHierarchy(ORV::CString(DataPath("asfamc/09-run.asf").c_str())));
    for (int trial = 0; trial < 40; ++trial) {
        std::string bytes(static_cast<size_t>(300 + trial * 131), '\0');
        for (char& c : bytes) c = static_cast<char>(random() & 0xff);
        orvhost::ClearLog();
        TempFile file(bytes, ".amc");
        MocapData data;
        EXPECT_FALSE(asf->readMotion(file.Path(), &data, 1)) << trial;
        EXPECT_EQ(std::vector<std::string>{"AMC file is invalid"}, Errors()) << trial;
    }
}

TEST_F(AcclaimTest, RandomBytesInsideRealFilesNeverCrash) {
    std::mt19937 random(23);
    const std::string asfText = ReadText(DataPath("asfamc/09-run.asf"));
    const std::string amcText = ReadText(DataPath("asfamc/09_06-run.amc")).substr(0, 20000);
    for (int trial = 0; trial < 30; ++trial) {
        std::string asfDamaged = asfText, amcDamaged = amcText;
        for (int k = 0; k < 20; ++k) {
            asfDamaged[random() % asfDamaged.size()] = static_cast<char>(random() & 0xff);
            amcDamaged[random() % amcDamaged.size()] = static_cast<char>(random() & 0xff);
        }
        TempFile asfFile(asfDamaged, ".asf"), amcFile(amcDamaged, ".amc");
        std::unique_ptr<MocapData> data(
            AcclaimFile::extractMocapData(asfFile.Path(), amcFile.Path(), 1 + trial % 3));
        if (data) {
            for (int f = 0; f < data->nodes[0].frameCount; ++f) data->updateTransforms(f);
        }
    }
}

TEST_F(AcclaimTest, TooManyBonesFails) {
    std::string text = ":root\n  order TX TY TZ RX RY RZ\n  position 0 0 0\n  orientation 0 0 0\n:bonedata\n";
    for (int i = 1; i <= AcclaimFile::MAX_BONES; ++i)
        text += "begin\nid " + std::to_string(i) + "\nname b" + std::to_string(i) + "\nend\n";
    Skeleton(text, false);
    EXPECT_EQ(std::vector<std::string>{"ASF file is invalid."}, Errors());
}

TEST_F(AcclaimTest, ExtractMocapDataReadsBothFilesOrNothing) {
    TempFile asfFile(kAsf, ".asf"), amcFile(kAmc, ".amc");
    std::unique_ptr<MocapData> data(AcclaimFile::extractMocapData(asfFile.Path(), amcFile.Path(), 1));
    ASSERT_NE(nullptr, data);
    EXPECT_EQ(4, data->nodeCount);
    EXPECT_EQ(3, data->nodes[0].frameCount);
    EXPECT_EQ(nullptr, AcclaimFile::extractMocapData(amcFile.Path(), amcFile.Path(), 1));
    EXPECT_EQ(nullptr, AcclaimFile::extractMocapData(asfFile.Path(), L"/nonexistent/folder/m.amc", 1));
}

// ---- The reference model -----------------------------------------------------------------------

class AcclaimModel : public AcclaimTest {
protected:
    static ORV::Model Root() { return ORV::Application().GetActiveSceneRoot(); }
    static ORV::X3DObject Find(const ORV::X3DObject& under, const wchar_t* name) {
        return under.FindChild(name, L"", ORV::CStringArray(), true);
    }
    static ORV::Property PropertyNamed(const ORV::SceneItem& item, const wchar_t* name) {
        const ORV::CRefArray properties = item.GetProperties();
        for (long i = 0; i < properties.GetCount(); ++i)
            if (ORV::Property(properties[i]).GetName() == name) return ORV::Property(properties[i]);
        return ORV::Property();
    }
    static CVector3 GlobalPosition(const ORV::X3DObject& object) {
        return object.GetKinematics().GetGlobal().GetTransform(ORV::ovNow).GetTranslation();
    }
};

TEST_F(AcclaimModel, BuildsCubesNamedAfterTheBonesAtTheirRestPoses) {
    auto asf = Skeleton(kAsf);
    ORV::Model model = asf->createModel();
    ASSERT_TRUE(model.IsValid());
    EXPECT_TRUE(asf->modelBuilt);
    EXPECT_TRUE(model.GetName() == L"ASF");
    EXPECT_TRUE(ORV::X3DObject(model.GetParent()) == Root());
    ORV::X3DObject null = Find(model, L"Acclaim");
    ASSERT_TRUE(null.IsValid());
    ORV::X3DObject root = Find(model, L"root"), hip = Find(model, L"hip"), knee = Find(model, L"knee"),
                   back = Find(model, L"back");
    ASSERT_TRUE(root.IsValid() && hip.IsValid() && knee.IsValid() && back.IsValid());
    EXPECT_TRUE(ORV::X3DObject(root.GetParent()) == null);
    EXPECT_TRUE(ORV::X3DObject(hip.GetParent()) == root);
    EXPECT_TRUE(ORV::X3DObject(knee.GetParent()) == hip);
    EXPECT_TRUE(ORV::X3DObject(back.GetParent()) == root);
    EXPECT_TRUE(asf->bones[2].object == knee);
    EXPECT_TRUE(Near(GlobalPosition(knee), CVector3(1, 0, 3), 1e-9));
    EXPECT_TRUE(Near(GlobalPosition(hip), CVector3(1, 2, 3), 1e-9));
    EXPECT_TRUE(
        hip.GetKinematics().GetGlobal().GetTransform(ORV::ovNow).GetRotation().Equals(Rot(0, 0, 90), 1e-9));
}

TEST_F(AcclaimModel, CubesAreATenthOfTheLongestBoneWithWireColour384AndLinesOf438) {
    auto asf = Skeleton(kAsf);
    ORV::Model model = asf->createModel();
    ASSERT_TRUE(model.IsValid());
    for (const wchar_t* name : {L"root", L"hip", L"knee", L"back"}) {
        ORV::X3DObject cube = Find(model, name);
        EXPECT_NEAR(0.4, static_cast<double>(cube.GetActivePrimitive().GetParameterValue(L"length")), 1e-9);
        EXPECT_EQ(384, static_cast<int>(PropertyNamed(cube, L"Display").GetParameterValue(L"wirecol")));
    }
    const ORV::CRefArray lines = model.FindChildren(L"", L"crvlist", ORV::CStringArray(), true);
    ASSERT_EQ(3, lines.GetCount());
    for (long i = 0; i < lines.GetCount(); ++i)
        EXPECT_EQ(438,
                  static_cast<int>(
                      PropertyNamed(ORV::X3DObject(lines[i]), L"Display").GetParameterValue(L"wirecol")));
}

TEST_F(AcclaimModel, HoldsTheAsfTextInItsBlobAndIsMarkedAsACaptureReference) {
    auto asf = Skeleton(kAsf);
    ORV::Model model = asf->createModel();
    ASSERT_TRUE(model.IsValid());
    EXPECT_TRUE(PropertyNamed(model, L"ZUKMocapRef").GetType() == L"CustomProperty");
    ORV::UserDataBlob blob(PropertyNamed(model, L"asfdef").GetRef());
    ASSERT_TRUE(blob.IsValid());
    const unsigned char* bytes = nullptr;
    unsigned int size = 0;
    blob.GetValue(bytes, size);
    EXPECT_EQ(std::string(kAsf), std::string(reinterpret_cast<const char*>(bytes), size));
}

TEST_F(AcclaimModel, ShowsTheProgressBarToTwiceTheBoneCount) {
    auto asf = Skeleton(kAsf);
    ORV::Application().GetUIToolkit().GetProgressBar().PutValue(0);
    ASSERT_TRUE(asf->createModel().IsValid());
    ORV::ProgressBar bar = ORV::Application().GetUIToolkit().GetProgressBar();
    EXPECT_TRUE(bar.GetCaption() == L"Creating Mocap Reference Model ...");
    EXPECT_EQ(8, bar.GetMaximum());
    EXPECT_EQ(8, bar.GetValue());
}

TEST_F(AcclaimModel, WithoutASkeletonTheSceneIsUntouched) {
    std::unique_ptr<AcclaimFile> asf(new AcclaimFile);
    EXPECT_FALSE(asf->createModel().IsValid());
    EXPECT_FALSE(asf->modelBuilt);
    EXPECT_EQ(0, Root().FindChildren(L"", L"", ORV::CStringArray(), true).GetCount());
}

TEST_F(AcclaimModel, PosePutsAFrameOnTheCubes) {
    auto asf = Skeleton(kAsf);
    auto data = Motion(*asf, kAmc);
    ORV::Model model = asf->createModel();
    ASSERT_TRUE(model.IsValid());
    asf->pose(data.get(), 0);
    // The same global positions as the capture's own evaluation.
    data->updateTransforms(0);
    for (int b = 0; b < 4; ++b)
        EXPECT_TRUE(Near(GlobalPosition(asf->bones[b].object), data->nodes[b].global.GetTranslation(), 1e-9))
            << b;
    // Frames outside the data change nothing.
    const CVector3 before = GlobalPosition(asf->bones[2].object);
    asf->pose(data.get(), 3);
    asf->pose(data.get(), -1);
    EXPECT_TRUE(Near(GlobalPosition(asf->bones[2].object), before, 0.0));
}

// ---- Real CMU takes against the format's published convention -------------------------------------

// An independent reading of an ASF/AMC pair and the world positions of each bone's start and end,
// after the Acclaim definition: C is the rotation of the bone's axis angles in the axis' own
// order, M that of the frame's angles in the order of the bone's dof list, and a bone's rotation
// in the world is the parent's times C M C^-1 (column vectors). A bone starts at its parent's
// end, and ends at its start plus that rotation applied to direction times length.
struct Mat3 {
    double m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
};
struct Vec3 {
    double x = 0, y = 0, z = 0;
};

Mat3 MulM(const Mat3& a, const Mat3& b) {
    Mat3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
    return r;
}
Mat3 TransposeM(const Mat3& a) {
    Mat3 r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.m[i][j] = a.m[j][i];
    return r;
}
Vec3 Apply(const Mat3& a, const Vec3& v) {
    return {a.m[0][0] * v.x + a.m[0][1] * v.y + a.m[0][2] * v.z,
            a.m[1][0] * v.x + a.m[1][1] * v.y + a.m[1][2] * v.z,
            a.m[2][0] * v.x + a.m[2][1] * v.y + a.m[2][2] * v.z};
}
// Right-handed rotation about one axis, for column vectors.
Mat3 AxisRotation(char axis, double radians) {
    const double c = std::cos(radians), s = std::sin(radians);
    Mat3 r;
    if (axis == 'x' || axis == 'X') {
        r.m[1][1] = c, r.m[1][2] = -s, r.m[2][1] = s, r.m[2][2] = c;
    } else if (axis == 'y' || axis == 'Y') {
        r.m[0][0] = c, r.m[0][2] = s, r.m[2][0] = -s, r.m[2][2] = c;
    } else {
        r.m[0][0] = c, r.m[0][1] = -s, r.m[1][0] = s, r.m[1][1] = c;
    }
    return r;
}

struct RefBone {
    std::string name;
    Vec3 direction;
    double length = 0;
    double axis[3] = {0, 0, 0};
    std::string axisOrder = "XYZ";
    std::vector<std::string> dof;  // lower case
    std::string parent;
    std::vector<std::string> children;
};

struct RefSkeleton {
    bool degrees = false;
    Vec3 position;
    std::map<std::string, RefBone> bones;
    std::vector<std::string> order;  // file order
};

std::vector<std::vector<std::string>> Lines(const std::string& text) {
    std::vector<std::vector<std::string>> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        const size_t hash = line.find('#');
        if (hash != std::string::npos) line.resize(hash);
        std::istringstream words(line);
        std::vector<std::string> tokens;
        std::string w;
        while (words >> w) tokens.push_back(w);
        if (!tokens.empty()) lines.push_back(tokens);
    }
    return lines;
}

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

RefSkeleton ParseAsf(const std::string& text) {
    RefSkeleton sk;
    std::string section;
    RefBone* bone = nullptr;
    RefBone root;
    root.name = "root";
    for (const auto& t : Lines(text)) {
        if (t[0][0] == ':') {
            section = t[0];
            if (section == ":root") {
                sk.bones["root"] = root;
                sk.order.push_back("root");
            }
            continue;
        }
        if (section == ":units" && t[0] == "angle") sk.degrees = t[1] == "deg";
        if (section == ":root") {
            RefBone& r = sk.bones["root"];
            if (t[0] == "position") sk.position = {std::stod(t[1]), std::stod(t[2]), std::stod(t[3])};
            if (t[0] == "orientation")
                for (int k = 0; k < 3; ++k) r.axis[k] = std::stod(t[1 + k]);
            if (t[0] == "axis") r.axisOrder = t[1];
            if (t[0] == "order")
                for (size_t k = 1; k < t.size(); ++k) r.dof.push_back(Lower(t[k]));
        }
        if (section == ":bonedata") {
            if (t[0] == "begin") {
                bone = nullptr;
            } else if (t[0] == "name") {
                sk.order.push_back(t[1]);
                bone = &sk.bones[t[1]];
                bone->name = t[1];
            } else if (bone && t[0] == "direction") {
                bone->direction = {std::stod(t[1]), std::stod(t[2]), std::stod(t[3])};
            } else if (bone && t[0] == "length") {
                bone->length = std::stod(t[1]);
            } else if (bone && t[0] == "axis") {
                for (int k = 0; k < 3; ++k) bone->axis[k] = std::stod(t[1 + k]);
                bone->axisOrder = t[4];
            } else if (bone && t[0] == "dof") {
                for (size_t k = 1; k < t.size(); ++k) bone->dof.push_back(Lower(t[k]));
            }
        }
        if (section == ":hierarchy" && t[0] != "begin" && t[0] != "end") {
            for (size_t k = 1; k < t.size(); ++k) {
                sk.bones[t[k]].parent = t[0];
                sk.bones[t[0]].children.push_back(t[k]);
            }
        }
    }
    return sk;
}

// Frames of an AMC file: per frame, each bone's values in file order.
std::vector<std::map<std::string, std::vector<double>>> ParseAmc(const std::string& text, bool& degrees) {
    std::vector<std::map<std::string, std::vector<double>>> frames;
    degrees = false;
    for (const auto& t : Lines(text)) {
        if (t[0] == ":DEGREES") degrees = true;
        if (t[0][0] == ':') continue;
        if (t.size() == 1 && std::isdigit(static_cast<unsigned char>(t[0][0]))) {
            frames.emplace_back();
            continue;
        }
        std::vector<double> values;
        for (size_t k = 1; k < t.size(); ++k) values.push_back(std::stod(t[k]));
        frames.back()[t[0]] = values;
    }
    return frames;
}

Mat3 AnglesInOrder(const std::string& order, const double angles[3], double factor) {
    Mat3 r;
    for (char axis : order) {
        const int k = (axis == 'x' || axis == 'X') ? 0 : (axis == 'y' || axis == 'Y') ? 1 : 2;
        r = MulM(AxisRotation(axis, angles[k] * factor), r);  // each later axis applies after
    }
    return r;
}

struct BonePositions {
    Vec3 start, end;
};

// World start and end of every bone in one frame (an empty frame gives the rest pose).
std::map<std::string, BonePositions> Reference(const RefSkeleton& sk,
                                               const std::map<std::string, std::vector<double>>& frame,
                                               bool amcDegrees) {
    const double pi = std::acos(-1.0);
    const double axisFactor = sk.degrees ? pi / 180 : 1.0, motionFactor = amcDegrees ? pi / 180 : 1.0;
    std::map<std::string, BonePositions> out;
    std::map<std::string, Mat3> world;
    // Walk from the root, parents first.
    std::vector<std::string> todo = {"root"};
    while (!todo.empty()) {
        const std::string name = todo.back();
        todo.pop_back();
        const RefBone& b = sk.bones.at(name);
        double angles[3] = {0, 0, 0};
        Vec3 move;
        std::string motionOrder;
        auto it = frame.find(name);
        for (size_t k = 0; k < b.dof.size(); ++k) {
            const double v = (it != frame.end() && k < it->second.size()) ? it->second[k] : 0.0;
            const std::string& d = b.dof[k];
            if (d == "tx") move.x = v;
            if (d == "ty") move.y = v;
            if (d == "tz") move.z = v;
            if (d[0] == 'r') {
                angles[d[1] - 'x'] = v;
                motionOrder += d[1];
            }
        }
        const Mat3 c = AnglesInOrder(b.axisOrder, b.axis, axisFactor);
        const Mat3 m = AnglesInOrder(motionOrder, angles, motionFactor);
        const Mat3 local = MulM(c, MulM(m, TransposeM(c)));
        BonePositions p;
        if (b.parent.empty()) {
            world[name] = local;
            p.start = {sk.position.x + move.x, sk.position.y + move.y, sk.position.z + move.z};
        } else {
            world[name] = MulM(world.at(b.parent), local);
            p.start = out.at(b.parent).end;
        }
        const Vec3 d = Apply(world[name],
                             {b.direction.x * b.length, b.direction.y * b.length, b.direction.z * b.length});
        p.end = {p.start.x + d.x, p.start.y + d.y, p.start.z + d.z};
        out[name] = p;
        for (const std::string& child : b.children) todo.push_back(child);
    }
    return out;
}

double Height(const std::map<std::string, BonePositions>& rest) {
    double lo = 1e300, hi = -1e300;
    for (const auto& kv : rest) {
        lo = std::min(lo, std::min(kv.second.start.y, kv.second.end.y));
        hi = std::max(hi, std::max(kv.second.start.y, kv.second.end.y));
    }
    return hi - lo;
}

struct RealPair {
    const char* asf;
    const char* amc;
    int frames;  // frame numbers in the AMC, read by hand
    const char* bvh;
};

const RealPair kRealPairs[] = {
    {"asfamc/07-walk.asf", "asfamc/07_05-walk.amc", 517, "bvh/cmu_mb2010/07_05.bvh"},
    {"asfamc/09-run.asf", "asfamc/09_06-run.amc", 141, "bvh/cmu_mb2010/09_06.bvh"},
};

TEST_F(AcclaimTest, RealPairsMatchTheAcclaimConventionAtFirstMiddleAndLastFrames) {
    for (const RealPair& pair : kRealPairs) {
        const RefSkeleton sk = ParseAsf(ReadText(DataPath(pair.asf)));
        bool amcDegrees = false;
        const auto frames = ParseAmc(ReadText(DataPath(pair.amc)), amcDegrees);
        ASSERT_EQ(static_cast<size_t>(pair.frames), frames.size()) << pair.amc;
        ASSERT_EQ(31u, sk.bones.size());
        const double height = Height(Reference(sk, {}, amcDegrees));
        ASSERT_GT(height, 10.0);

        std::unique_ptr<MocapData> data(AcclaimFile::extractMocapData(
            ORV::CString(DataPath(pair.asf).c_str()), ORV::CString(DataPath(pair.amc).c_str()), 1));
        ASSERT_NE(nullptr, data) << pair.asf;
        ASSERT_EQ(31, data->nodeCount);
        ASSERT_EQ(pair.frames + 1, data->nodes[0].frameCount);

        for (int k : {0, pair.frames / 2, pair.frames - 1}) {
            const auto expected = Reference(sk, frames[static_cast<size_t>(k)], amcDegrees);
            data->updateTransforms(k);
            for (int n = 0; n < data->nodeCount; ++n) {
                const std::string name = data->nodes[n].name.GetAsciiString();
                const RefBone& b = sk.bones.at(name);
                const BonePositions& e = expected.at(name);
                const CTransformation& g = data->nodes[n].global;
                // The bone's own vector in its rest axes, then through the reader's global pose.
                const double pi = std::acos(-1.0);
                const Mat3 c = AnglesInOrder(b.axisOrder, b.axis, sk.degrees ? pi / 180 : 1.0);
                const Vec3 u = Apply(TransposeM(c), {b.direction.x * b.length, b.direction.y * b.length,
                                                     b.direction.z * b.length});
                CVector3 end;
                end.MulByRotation(CVector3(u.x, u.y, u.z), g.GetRotation());
                end.AddInPlace(g.GetTranslation());
                const double eps = 1e-4 * height;
                EXPECT_TRUE(Near(g.GetTranslation(), CVector3(e.start.x, e.start.y, e.start.z), eps))
                    << pair.amc << " frame " << k << " " << name;
                EXPECT_TRUE(Near(end, CVector3(e.end.x, e.end.y, e.end.z), eps))
                    << pair.amc << " frame " << k << " " << name;
            }
        }
    }
}

// The same takes as BVH (CMU's 2010 conversion), compared joint by joint at every 10th frame.
// The BVH holds one more frame in front (a T-pose), so AMC frame k is BVH frame k + 1. Units and
// a fixed rotation between the files are taken out by the best similarity fit (Horn's
// quaternion method, about the origin, since both files place the root in the same world). The
// conversion leaves out the lengths of "thorax" and of both wrists (its Neck, shoulders, finger
// bases and thumbs sit at the start of those bones, not their end), so the joints behind those
// bones are reported on their own, and the upper-body bones that the BVH keeps whole are compared
// as world vectors. The figures are printed, not asserted: they describe the
// data, not the reader.
struct JointPair {
    const char* asfBone;  // the BVH joint stands at this bone's start
    const char* bvhJoint;
    bool behindADroppedBone;
};

const JointPair kJointPairs[] = {
    {"root", "Hips", false},
    {"lhipjoint", "LHipJoint", false},
    {"lfemur", "LeftUpLeg", false},
    {"ltibia", "LeftLeg", false},
    {"lfoot", "LeftFoot", false},
    {"ltoes", "LeftToeBase", false},
    {"rhipjoint", "RHipJoint", false},
    {"rfemur", "RightUpLeg", false},
    {"rtibia", "RightLeg", false},
    {"rfoot", "RightFoot", false},
    {"rtoes", "RightToeBase", false},
    {"lowerback", "LowerBack", false},
    {"upperback", "Spine", false},
    {"thorax", "Spine1", false},
    {"lowerneck", "Neck", true},
    {"upperneck", "Neck1", true},
    {"head", "Head", true},
    {"lclavicle", "LeftShoulder", true},
    {"lhumerus", "LeftArm", true},
    {"lradius", "LeftForeArm", true},
    {"lwrist", "LeftHand", true},
    {"lhand", "LeftFingerBase", true},
    {"lfingers", "LeftHandIndex1", true},
    {"lthumb", "LThumb", true},
    {"rclavicle", "RightShoulder", true},
    {"rhumerus", "RightArm", true},
    {"rradius", "RightForeArm", true},
    {"rwrist", "RightHand", true},
    {"rhand", "RightFingerBase", true},
    {"rfingers", "RightHandIndex1", true},
    {"rthumb", "RThumb", true},
};

// Upper-body bones whose vector the BVH keeps whole: the bone runs from the first joint to the
// second in both files, so their world vectors compare although the joints themselves are moved.
struct SegmentPair {
    const char* asfFrom;
    const char* asfTo;
    const char* bvhFrom;
    const char* bvhTo;
};

const SegmentPair kSegmentPairs[] = {
    {"lowerneck", "upperneck", "Neck", "Neck1"},
    {"upperneck", "head", "Neck1", "Head"},
    {"lclavicle", "lhumerus", "LeftShoulder", "LeftArm"},
    {"lhumerus", "lradius", "LeftArm", "LeftForeArm"},
    {"lradius", "lwrist", "LeftForeArm", "LeftHand"},
    {"lhand", "lfingers", "LeftFingerBase", "LeftHandIndex1"},
    {"rclavicle", "rhumerus", "RightShoulder", "RightArm"},
    {"rhumerus", "rradius", "RightArm", "RightForeArm"},
    {"rradius", "rwrist", "RightForeArm", "RightHand"},
    {"rhand", "rfingers", "RightFingerBase", "RightHandIndex1"},
};

// Unit quaternion (w, x, y, z) of the rotation R that best carries each a onto its b, with the
// scale s = sum(b . R a) / sum(|a|^2).
void FitSimilarity(const std::vector<Vec3>& a, const std::vector<Vec3>& b, Mat3& rotation, double& scale) {
    double s[3][3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    for (size_t i = 0; i < a.size(); ++i) {
        const double av[3] = {a[i].x, a[i].y, a[i].z}, bv[3] = {b[i].x, b[i].y, b[i].z};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) s[r][c] += av[r] * bv[c];
    }
    const double n[4][4] = {
        {s[0][0] + s[1][1] + s[2][2], s[1][2] - s[2][1], s[2][0] - s[0][2], s[0][1] - s[1][0]},
        {s[1][2] - s[2][1], s[0][0] - s[1][1] - s[2][2], s[0][1] + s[1][0], s[2][0] + s[0][2]},
        {s[2][0] - s[0][2], s[0][1] + s[1][0], -s[0][0] + s[1][1] - s[2][2], s[1][2] + s[2][1]},
        {s[0][1] - s[1][0], s[2][0] + s[0][2], s[1][2] + s[2][1], -s[0][0] - s[1][1] + s[2][2]}};
    // Power iteration on N + cI, whose largest eigenvalue is N's largest shifted above all others.
    double shift = 0;
    for (const auto& row : n)
        for (double v : row) shift += std::fabs(v);
    double q[4] = {1, 0, 0, 0};
    for (int it = 0; it < 5000; ++it) {
        double next[4] = {0, 0, 0, 0};
        for (int r = 0; r < 4; ++r) {
            for (int c = 0; c < 4; ++c) next[r] += n[r][c] * q[c];
            next[r] += shift * q[r];
        }
        const double len =
            std::sqrt(next[0] * next[0] + next[1] * next[1] + next[2] * next[2] + next[3] * next[3]);
        for (int r = 0; r < 4; ++r) q[r] = next[r] / len;
    }
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    rotation.m[0][0] = w * w + x * x - y * y - z * z, rotation.m[0][1] = 2 * (x * y - w * z),
    rotation.m[0][2] = 2 * (x * z + w * y);
    rotation.m[1][0] = 2 * (x * y + w * z), rotation.m[1][1] = w * w - x * x + y * y - z * z,
    rotation.m[1][2] = 2 * (y * z - w * x);
    rotation.m[2][0] = 2 * (x * z - w * y), rotation.m[2][1] = 2 * (y * z + w * x),
    rotation.m[2][2] = w * w - x * x - y * y + z * z;
    double num = 0, den = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        const Vec3 ra = Apply(rotation, a[i]);
        num += ra.x * b[i].x + ra.y * b[i].y + ra.z * b[i].z;
        den += a[i].x * a[i].x + a[i].y * a[i].y + a[i].z * a[i].z;
    }
    scale = num / den;
}

TEST_F(AcclaimTest, SameTakeAsBvhReportsTheLargestJointDifference) {
    for (const RealPair& pair : kRealPairs) {
        std::unique_ptr<MocapData> amc(AcclaimFile::extractMocapData(
            ORV::CString(DataPath(pair.asf).c_str()), ORV::CString(DataPath(pair.amc).c_str()), 1));
        std::unique_ptr<MocapData> bvh(
            ZUK::BvImport::extractMocapData(ORV::CString(DataPath(pair.bvh).c_str()), ZUK::YUp));
        ASSERT_NE(nullptr, amc);
        ASSERT_NE(nullptr, bvh);
        ASSERT_EQ(pair.frames + 1, bvh->nodes[0].frameCount);
        const double height = Height(Reference(ParseAsf(ReadText(DataPath(pair.asf))), {}, true));

        // Joint positions of both readers, kept and dropped-bone joints apart.
        std::vector<Vec3> a[2], b[2];
        std::vector<Vec3> segA, segB;
        for (int k = 0; k < pair.frames; k += 10) {
            amc->updateTransforms(k);
            bvh->updateTransforms(k + 1);
            for (const JointPair& j : kJointPairs) {
                const ZUK::MocapNode* an = amc->findNode(ORV::CString(j.asfBone));
                const ZUK::MocapNode* bn = bvh->findNode(ORV::CString(j.bvhJoint));
                ASSERT_NE(nullptr, an);
                ASSERT_NE(nullptr, bn);
                const CVector3& ap = an->global.GetTranslation();
                const CVector3& bp = bn->global.GetTranslation();
                a[j.behindADroppedBone].push_back({ap.x, ap.y, ap.z});
                b[j.behindADroppedBone].push_back({bp.x, bp.y, bp.z});
            }
            for (const SegmentPair& sp : kSegmentPairs) {
                const CVector3& a0 = amc->findNode(ORV::CString(sp.asfFrom))->global.GetTranslation();
                const CVector3& a1 = amc->findNode(ORV::CString(sp.asfTo))->global.GetTranslation();
                const CVector3& b0 = bvh->findNode(ORV::CString(sp.bvhFrom))->global.GetTranslation();
                const CVector3& b1 = bvh->findNode(ORV::CString(sp.bvhTo))->global.GetTranslation();
                segA.push_back({a1.x - a0.x, a1.y - a0.y, a1.z - a0.z});
                segB.push_back({b1.x - b0.x, b1.y - b0.y, b1.z - b0.z});
            }
        }
        Mat3 rotation;
        double scale = 1;
        FitSimilarity(a[0], b[0], rotation, scale);
        double largest[2] = {0, 0};
        for (int set = 0; set < 2; ++set) {
            for (size_t i = 0; i < a[set].size(); ++i) {
                const Vec3 ra = Apply(rotation, a[set][i]);
                const double dx = scale * ra.x - b[set][i].x, dy = scale * ra.y - b[set][i].y,
                             dz = scale * ra.z - b[set][i].z;
                largest[set] = std::max(largest[set], std::sqrt(dx * dx + dy * dy + dz * dz));
            }
        }
        double largestSegment = 0;
        for (size_t i = 0; i < segA.size(); ++i) {
            const Vec3 ra = Apply(rotation, segA[i]);
            const double dx = scale * ra.x - segB[i].x, dy = scale * ra.y - segB[i].y,
                         dz = scale * ra.z - segB[i].z;
            largestSegment = std::max(largestSegment, std::sqrt(dx * dx + dy * dy + dz * dz));
        }
        const double angle =
            std::acos(std::min(1.0, (rotation.m[0][0] + rotation.m[1][1] + rotation.m[2][2] - 1) / 2));
        std::printf(
            "[ figures  ] %s vs %s: %zu joint pairs; fit scale %.6f, fit rotation %.4f degrees; largest "
            "difference %.3g skeleton heights (joints with every bone in the BVH), %.3g (joints behind the "
            "dropped thorax and wrist lengths), %.3g (upper-body bone vectors the BVH keeps); height %.3f\n",
            pair.amc, pair.bvh, a[0].size() + a[1].size(), scale, angle / kDeg, largest[0] / height,
            largest[1] / height, largestSegment / height, height);
        RecordProperty(std::string(pair.amc) + " largest difference in skeleton heights",
                       std::to_string(largest[0] / height));
        // The fit must find the same world: near unit scale and no turn beyond a degree.
        EXPECT_NEAR(1.0, scale, 0.05);
        EXPECT_LT(angle / kDeg, 1.0);
    }
}

}  // namespace
