// C3DFile on small files written byte by byte: header, parameters, samples and the clean-up
// of incomplete frames and lost markers.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "C3DTestFiles.h"
#include "HostTesting.h"
#include "TempFile.h"
#include "core/FileStream.h"
#include "mocap/C3DFile.h"

using c3dtest::Builder;
using c3dtest::Logged;
using ORV::MATH::CVector3;
using trovotest::TempFile;

namespace {

// One marker over `frames` frames at (f + 1, 2, 3), float samples.
Builder Track(int frames) {
    Builder b;
    b.pointCount = 1;
    for (int f = 0; f < frames; ++f) b.samples.push_back({static_cast<float>(f + 1), 2.0f, 3.0f});
    return b;
}

class C3DFileTest : public ::testing::Test {
protected:
    void SetUp() override { orvhost::ClearLog(); }

    // Reads `bytes` through a file, as the import does.
    bool Read(const std::string& bytes, C3DFile& file, ZUK::UpDirection up = ZUK::YUp,
              bool truncate = false) {
        TempFile temp(bytes, ".c3d");
        EXPECT_TRUE(temp.Ok());
        FileStream stream(temp.Path());
        EXPECT_TRUE(stream.ok());
        return file.readFromStream(stream, up, truncate);
    }
};

void ExpectNear(const CVector3& v, double x, double y, double z, double tolerance = 1e-9) {
    EXPECT_NEAR(v.x, x, tolerance);
    EXPECT_NEAR(v.y, y, tolerance);
    EXPECT_NEAR(v.z, z, tolerance);
}

}  // namespace

// ---- Header and samples ----------------------------------------------------------------------

TEST_F(C3DFileTest, LastFrameBelowFirstFailsWithNothingAllocated) {
    Builder b = Track(3);
    std::string bytes = b.Build();
    c3dtest::PutWord(bytes, 6, 10);  // first frame 10, last frame 3
    C3DFile file;
    EXPECT_FALSE(Read(bytes, file));
    EXPECT_EQ(file.points, nullptr);
    EXPECT_TRUE(file.groupsById.empty());
    EXPECT_TRUE(file.groupsByName.empty());
    // No message of its own: the caller says nothing further either.
    for (const auto& entry : c3dtest::Log()) EXPECT_EQ(entry.second, 8) << entry.first;
}

TEST_F(C3DFileTest, HeaderIsTracedAtInformationSeverity) {
    Builder b = Track(4);
    b.firstFrame = 5;
    b.rate = 120.0f;
    b.scale = -0.5f;
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    const std::vector<std::pair<std::wstring, int>> expected = {{L"param block offset: 2", 8},
                                                                {L"numPoints: 1", 8},
                                                                {L"numAnalog: 0", 8},
                                                                {L"firstFrame: 5", 8},
                                                                {L"lastFrame: 8", 8},
                                                                {L"interpGap: 10", 8},
                                                                {L"analog samples per frame: 0", 8},
                                                                {L"procType: 84", 8},
                                                                {L"converted frame rate: 120", 8},
                                                                {L"converted scale factor: -0.5", 8},
                                                                {L"numParamBlocks: 1", 8}};
    EXPECT_EQ(c3dtest::Log(), expected);
    EXPECT_EQ(file.pointCount, 1);
    EXPECT_EQ(file.firstFrame, 5);
    EXPECT_EQ(file.lastFrame, 8);
    EXPECT_EQ(file.frameCount, 4);
    EXPECT_EQ(file.interpolationGap, 10);
    EXPECT_EQ(file.frameRate, 120.0f);
    EXPECT_EQ(file.scale, -0.5f);
}

TEST_F(C3DFileTest, FloatSamplesReadAsTheyStandAndResidualIsDropped) {
    Builder b;
    b.pointCount = 2;
    b.samples = {{1.5f, -2.25f, 3.0f}, {10.0f, 20.0f, 30.0f}, {1.75f, -2.5f, 3.25f}, {11.0f, 21.0f, 31.0f}};
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    ASSERT_EQ(file.frameCount, 2);
    ExpectNear(file.sample(0, 0), 1.5, -2.25, 3.0, 0.0);
    ExpectNear(file.sample(1, 0), 10.0, 20.0, 30.0, 0.0);
    ExpectNear(file.sample(0, 1), 1.75, -2.5, 3.25, 0.0);
    ExpectNear(file.sample(1, 1), 11.0, 21.0, 31.0, 0.0);
}

TEST_F(C3DFileTest, IntegerSamplesAreScaledInSinglePrecision) {
    Builder b;
    b.scale = 0.1f;
    b.pointCount = 1;
    b.samples = {{1234.0f, -7.0f, 32767.0f}, {3.0f, 1.0f, -32768.0f}};
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    ASSERT_EQ(file.frameCount, 2);
    // The product is a float: 1234 * 0.1f rounds to float, not to the nearest double of 123.4.
    EXPECT_EQ(file.sample(0, 0).x, static_cast<double>(1234.0f * 0.1f));
    EXPECT_EQ(file.sample(0, 0).y, static_cast<double>(-7.0f * 0.1f));
    EXPECT_EQ(file.sample(0, 0).z, static_cast<double>(32767.0f * 0.1f));
    EXPECT_EQ(file.sample(0, 1).z, static_cast<double>(-32768.0f * 0.1f));
    EXPECT_NE(file.sample(0, 0).x, 123.4);
}

TEST_F(C3DFileTest, DecFileConvertsScaleAndEachFloatSample) {
    Builder b;
    b.processor = 85;
    b.scale = -0.1f;
    b.rate = 50.0f;
    b.pointCount = 1;
    b.samples = {{360.75634765625f, -893.3148193359375f, 0.015625f}, {1.0e-3f, 2.5f, -1.0e5f}};
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    EXPECT_EQ(file.scale, -0.1f);
    EXPECT_EQ(file.frameRate, 50.0f);
    ASSERT_EQ(file.frameCount, 2);
    ExpectNear(file.sample(0, 0), 360.75634765625, -893.3148193359375, 0.015625, 0.0);
    ExpectNear(file.sample(0, 1), 1.0e-3f, 2.5, -1.0e5, 0.0);
    EXPECT_TRUE(Logged(L"procType: 85", 8));
    EXPECT_TRUE(Logged(L"converted scale factor: -0.1", 8));
}

TEST_F(C3DFileTest, DecIntegerFileConvertsOnlyTheScale) {
    Builder b;
    b.processor = 85;
    b.scale = 0.25f;
    b.pointCount = 1;
    b.samples = {{100.0f, -200.0f, 4.0f}, {1.0f, 2.0f, 3.0f}};
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    EXPECT_EQ(file.scale, 0.25f);
    ExpectNear(file.sample(0, 0), 25.0, -50.0, 1.0, 0.0);
}

TEST_F(C3DFileTest, ProcessorTypesOtherThanDecAreReadAsIntel) {
    // A MIPS file keeps its floats as they are: here little-endian bytes, which read exactly.
    Builder b = Track(2);
    b.processor = 86;
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    ExpectNear(file.sample(0, 1), 2.0, 2.0, 3.0, 0.0);
    EXPECT_TRUE(Logged(L"procType: 86", 8));
}

TEST_F(C3DFileTest, AnalogSamplesBehindEachFrameAreSteppedOver) {
    for (float scale : {-1.0f, 0.5f}) {
        orvhost::ClearLog();
        Builder b;
        b.scale = scale;
        b.pointCount = 2;
        b.analogCount = 6;
        for (int f = 0; f < 4; ++f) {
            b.samples.push_back({static_cast<float>(f + 1), 2.0f, 3.0f});
            b.samples.push_back({static_cast<float>(10 * (f + 1)), 20.0f, 30.0f});
        }
        C3DFile file;
        ASSERT_TRUE(Read(b.Build(), file));
        ASSERT_EQ(file.frameCount, 4);
        const double s = scale > 0 ? scale : 1.0;
        for (int f = 0; f < 4; ++f) {
            ExpectNear(file.sample(0, f), (f + 1) * s, 2.0 * s, 3.0 * s, 0.0);
            ExpectNear(file.sample(1, f), 10.0 * (f + 1) * s, 20.0 * s, 30.0 * s, 0.0);
        }
        EXPECT_TRUE(Logged(L"numAnalog: 6", 8));
    }
}

TEST_F(C3DFileTest, ZUpTurnsEveryPointOntoYUp) {
    Builder b = Track(2);
    b.samples = {{1.0f, 2.0f, 3.0f}, {4.0f, 5.0f, 6.0f}};
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file, ZUK::ZUp));
    // -90 degrees about X takes (x, y, z) to (x, z, -y); then -90 degrees about Y takes
    // (x, y, z) to (-z, y, x). Together (1, 2, 3) becomes (2, 3, 1).
    ExpectNear(file.sample(0, 0), 2.0, 3.0, 1.0, 1e-6);
    ExpectNear(file.sample(0, 1), 5.0, 6.0, 4.0, 1e-6);
}

TEST_F(C3DFileTest, XUpTurnsEveryPointOntoYUp) {
    Builder b = Track(2);
    b.samples = {{1.0f, 2.0f, 3.0f}, {4.0f, 5.0f, 6.0f}};
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file, ZUK::XUp));
    // +90 degrees about Z takes (x, y, z) to (-y, x, z); then +90 degrees about Y takes
    // (x, y, z) to (z, y, -x). Together (1, 2, 3) becomes (3, 1, 2).
    ExpectNear(file.sample(0, 0), 3.0, 1.0, 2.0, 1e-6);
    ExpectNear(file.sample(0, 1), 6.0, 4.0, 5.0, 1e-6);
}

// ---- First complete frame --------------------------------------------------------------------

TEST_F(C3DFileTest, TakeStartsBehindTheFirstCompleteFrame) {
    Builder b;
    b.pointCount = 2;
    for (int f = 0; f < 8; ++f) {
        // Marker 1 is at the origin in frames 0 and 1; frame 2 is the first complete one.
        const float x = f < 2 ? 0.0f : 5.0f + f;
        b.samples.push_back({static_cast<float>(f + 1), 1.0f, 1.0f});
        b.samples.push_back({x, f < 2 ? 0.0f : 1.0f, f < 2 ? 0.0f : 1.0f});
    }
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    // The first complete frame goes too: the take starts at the old fourth frame.
    EXPECT_EQ(file.frameCount, 8 - 3);
    ExpectNear(file.sample(0, 0), 4.0, 1.0, 1.0, 0.0);
    ExpectNear(file.sample(1, 0), 8.0, 1.0, 1.0, 0.0);
    ExpectNear(file.sample(0, 4), 8.0, 1.0, 1.0, 0.0);
    // The header's numbers stay.
    EXPECT_EQ(file.firstFrame, 1);
    EXPECT_EQ(file.lastFrame, 8);
}

TEST_F(C3DFileTest, CompleteFirstFrameKeepsEveryFrame) {
    C3DFile file;
    ASSERT_TRUE(Read(Track(5).Build(), file));
    EXPECT_EQ(file.frameCount, 5);
    ExpectNear(file.sample(0, 0), 1.0, 2.0, 3.0, 0.0);
}

TEST_F(C3DFileTest, NoCompleteFrameKeepsAllFrames) {
    Builder b;
    b.pointCount = 2;
    for (int f = 0; f < 6; ++f) {
        b.samples.push_back({static_cast<float>(f + 1), 1.0f, 1.0f});
        b.samples.push_back({0.0f, 0.0f, 0.0f});
    }
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    EXPECT_EQ(file.frameCount, 6);
    ExpectNear(file.sample(0, 0), 1.0, 1.0, 1.0, 0.0);
    ExpectNear(file.sample(0, 5), 6.0, 1.0, 1.0, 0.0);
}

TEST_F(C3DFileTest, CompletenessThresholdIsTenToTheMinusSevenSquared) {
    // A marker of squared length 1e-7 and a bit counts as there for the first complete frame,
    // one just below does not.
    Builder b;
    b.pointCount = 1;
    const float justAbove = static_cast<float>(std::sqrt(1.2e-7));
    const float justBelow = static_cast<float>(std::sqrt(0.8e-7));
    b.samples = {{justBelow, 0.0f, 0.0f}, {justAbove, 0.0f, 0.0f}, {3.0f, 0.0f, 0.0f}, {4.0f, 0.0f, 0.0f}};
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    // Frame 1 is the first complete one: frames 0 and 1 go.
    ASSERT_EQ(file.frameCount, 2);
    ExpectNear(file.sample(0, 0), 3.0, 0.0, 0.0, 0.0);
}

// ---- Lost markers ---------------------------------------------------------------------------

namespace {

// One marker, present at (f, 1, 1) in every frame except those listed.
C3DFile* WithLosses(int frames, const std::vector<int>& lost, bool truncate) {
    C3DFile* file = new C3DFile();
    file->pointCount = 2;
    file->frameCount = static_cast<short>(frames);
    file->points = new CVector3[frames * 2];
    for (int f = 0; f < frames; ++f) {
        file->points[f * 2] = CVector3(f, 1.0, 1.0);
        file->points[f * 2 + 1] = CVector3(100.0 + f, 1.0, 1.0);
    }
    for (int f : lost) file->points[f * 2] = CVector3();
    file->processOccludedPoints(truncate);
    return file;
}

}  // namespace

TEST_F(C3DFileTest, TwoLostFramesAreFilledAtOneAndTwoThirds) {
    std::unique_ptr<C3DFile> file(WithLosses(10, {5, 6}, false));
    ExpectNear(file->sample(0, 4), 4.0, 1.0, 1.0);
    ExpectNear(file->sample(0, 5), 4.0 + 1.0, 1.0, 1.0);  // 2/3 of frame 4 + 1/3 of frame 7
    ExpectNear(file->sample(0, 6), 4.0 + 2.0, 1.0, 1.0);
    ExpectNear(file->sample(0, 7), 7.0, 1.0, 1.0);
    // Weights on a marker that does not move linearly.
    CVector3 track[4] = {CVector3(1, 1, 1), CVector3(3, 0, 0), CVector3(), CVector3(6, 9, 12)};
    C3DFile bent(1, 4, track);
    bent.processOccludedPoints(false);
    ExpectNear(bent.sample(0, 2), 0.5 * 3 + 0.5 * 6, 0.5 * 9, 0.5 * 12);
}

TEST_F(C3DFileTest, MarkerLostFromTheStartTakesItsFirstPresentValue) {
    std::unique_ptr<C3DFile> file(WithLosses(20, {1, 2, 3, 4, 5, 6, 7, 8, 9}, false));
    for (int f = 1; f <= 10; ++f) ExpectNear(file->sample(0, f), 10.0, 1.0, 1.0);
    // Frame 0 keeps its value.
    ExpectNear(file->sample(0, 0), 0.0, 1.0, 1.0);
    ExpectNear(file->sample(0, 11), 11.0, 1.0, 1.0);
}

TEST_F(C3DFileTest, MarkerLostAtFrameZeroIsNeverFilled) {
    std::unique_ptr<C3DFile> file(WithLosses(6, {0, 2}, false));
    EXPECT_EQ(file->sample(0, 0), CVector3());
    ExpectNear(file->sample(0, 2), 2.0, 1.0, 1.0);
}

TEST_F(C3DFileTest, MarkerLostToTheEndHoldsItsLastValue) {
    std::vector<int> lost;
    for (int f = 90; f < 100; ++f) lost.push_back(f);
    std::unique_ptr<C3DFile> file(WithLosses(100, lost, false));
    EXPECT_EQ(file->frameCount, 100);
    for (int f = 90; f < 100; ++f) ExpectNear(file->sample(0, f), 89.0, 1.0, 1.0);
    // The other marker is untouched.
    ExpectNear(file->sample(1, 99), 199.0, 1.0, 1.0);
}

TEST_F(C3DFileTest, MarkerLostToTheEndEndsTheTakeWhenTruncating) {
    std::vector<int> lost;
    for (int f = 90; f < 100; ++f) lost.push_back(f);
    std::unique_ptr<C3DFile> file(WithLosses(100, lost, true));
    EXPECT_EQ(file->frameCount, 90);
    ExpectNear(file->sample(0, 89), 89.0, 1.0, 1.0);
    ExpectNear(file->sample(1, 89), 189.0, 1.0, 1.0);
    EXPECT_EQ(file->sample(1, 90), CVector3());
}

TEST_F(C3DFileTest, TruncationStopsAtTheEarliestLossOfAnyMarker) {
    C3DFile file(3, 10, nullptr);
    for (int f = 0; f < 10; ++f) {
        for (int p = 0; p < 3; ++p) file.points[f * 3 + p] = CVector3(1.0 + p, f + 1.0, 0.0);
    }
    for (int f = 7; f < 10; ++f) file.points[f * 3 + 0] = CVector3();
    for (int f = 4; f < 10; ++f) file.points[f * 3 + 2] = CVector3();
    file.processOccludedPoints(true);
    EXPECT_EQ(file.frameCount, 4);
    ExpectNear(file.sample(1, 3), 2.0, 4.0, 0.0);
}

TEST_F(C3DFileTest, LossThresholdIsTenToTheMinusSixSquared) {
    C3DFile file(1, 4, nullptr);
    file.points[0] = CVector3(1, 0, 0);
    file.points[1] = CVector3(std::sqrt(0.9e-6), 0, 0);  // lost
    file.points[2] = CVector3(std::sqrt(1.1e-6), 0, 0);  // present
    file.points[3] = CVector3(4, 0, 0);
    file.processOccludedPoints(false);
    // Frame 1 was lost from the start of the walk: back-filled from frame 2.
    EXPECT_NEAR(file.sample(0, 1).x, std::sqrt(1.1e-6), 1e-15);
}

TEST_F(C3DFileTest, OneFrameIsNotProcessed) {
    C3DFile file(1, 1, nullptr);
    file.processOccludedPoints(true);
    EXPECT_EQ(file.frameCount, 1);
}

// ---- Lookups --------------------------------------------------------------------------------

TEST_F(C3DFileTest, InterpolateGivesWholeFramesBlendsAndClamps) {
    C3DFile file(1, 4, nullptr);
    for (int f = 0; f < 4; ++f) file.points[f] = CVector3(10.0 * f, 1.0, -2.0 * f);
    ExpectNear(file.interpolate(0, 2.0), 20.0, 1.0, -4.0, 0.0);
    ExpectNear(file.interpolate(0, 1.25), 12.5, 1.0, -2.5);
    ExpectNear(file.interpolate(0, 1e9), 30.0, 1.0, -6.0, 0.0);
    ExpectNear(file.interpolate(0, 3.0), 30.0, 1.0, -6.0, 0.0);
    EXPECT_EQ(file.interpolate(0, -0.5), CVector3());
    EXPECT_EQ(file.interpolate(1, 1.0), CVector3());
    EXPECT_EQ(file.interpolate(-1, 1.0), CVector3());
}

TEST_F(C3DFileTest, SampleWithBadIndexGivesZeroAndDoesNotFail) {
    C3DFile file(2, 3, nullptr);
    for (int i = 0; i < 6; ++i) file.points[i] = CVector3(i + 1.0, 0, 0);
    EXPECT_EQ(file.sample(1, 2), CVector3(6, 0, 0));
    EXPECT_EQ(file.sample(2, 0), CVector3());
    EXPECT_EQ(file.sample(0, 3), CVector3());
    EXPECT_EQ(file.sample(-1, 0), CVector3());
    EXPECT_EQ(file.sample(0, -1), CVector3());
    C3DFile empty;
    EXPECT_EQ(empty.sample(0, 0), CVector3());
    EXPECT_EQ(empty.interpolate(0, 0.0), CVector3());
}

TEST_F(C3DFileTest, PointOnlyObjectHoldsACopy) {
    CVector3 source[4] = {CVector3(1, 2, 3), CVector3(4, 5, 6), CVector3(7, 8, 9), CVector3(10, 11, 12)};
    C3DFile file(2, 2, source);
    source[3] = CVector3();
    EXPECT_EQ(file.sample(1, 1), CVector3(10, 11, 12));
    EXPECT_EQ(file.sample(0, 1), CVector3(7, 8, 9));
    EXPECT_TRUE(file.groupsById.empty());
}

namespace {

// Group POINT (id 1) with LABELS of dimensions (4, 3) and UNITS of dimension 2.
Builder WithLabels() {
    Builder b = Track(2);
    b.parameters = c3dtest::Group("POINT", 1, "3D points") +
                   c3dtest::Parameter("LABELS", 1, -1, {4, 3}, "LFHDRBACC7  ", "marker names") +
                   c3dtest::Parameter("UNITS", 1, -1, {2}, "mm") +
                   c3dtest::Parameter("RATE", 1, 4, {}, c3dtest::IntelFloat(60.0f)) +
                   c3dtest::Group("ANALOG", 2, "", true);
    return b;
}

}  // namespace

TEST_F(C3DFileTest, ParametersAreKeptByGroup) {
    C3DFile file;
    ASSERT_TRUE(Read(WithLabels().Build(), file));
    ASSERT_EQ(file.groupsById.size(), 2u);
    ASSERT_NE(file.findGroupByID(1), nullptr);
    EXPECT_EQ(file.findGroupByID(1)->name, "POINT");
    EXPECT_EQ(file.findGroupByID(1)->description, "3D points");
    EXPECT_EQ(file.findGroupByID(2), file.groupsByName["ANALOG"]);
    EXPECT_EQ(file.findGroupByID(3), nullptr);
    const C3DParameter* labels = file.findGroupByID(1)->findParameter("LABELS");
    ASSERT_NE(labels, nullptr);
    EXPECT_EQ(labels->type, -1);
    EXPECT_EQ(labels->dimensionCount, 2);
    EXPECT_EQ(labels->dimensions[0], 4);
    EXPECT_EQ(labels->dimensions[1], 3);
    EXPECT_EQ(labels->dataSize(), 12);
    EXPECT_EQ(std::string(labels->data, 12), "LFHDRBACC7  ");
    EXPECT_EQ(labels->description, "marker names");
    const C3DParameter* rate = file.findGroupByID(1)->findParameter("RATE");
    ASSERT_NE(rate, nullptr);
    EXPECT_EQ(rate->dimensionCount, 0);
    EXPECT_EQ(rate->dimensions, nullptr);
    EXPECT_EQ(rate->dataSize(), 4);
    EXPECT_EQ(file.findGroupByID(1)->findParameter("labels"), nullptr);
    // The samples behind the section still line up.
    ExpectNear(file.sample(0, 1), 2.0, 2.0, 3.0, 0.0);
}

TEST_F(C3DFileTest, StringValueOfATwoDimensionalParameterCutsTrailingBlanks) {
    C3DFile file;
    ASSERT_TRUE(Read(WithLabels().Build(), file));
    ORV::CString out(L"unchanged");
    ASSERT_TRUE(file.getStringValue("POINT", "LABELS", 2, out));
    EXPECT_EQ(out.std(), L"C7");  // bytes 8 to 11, "C7  "
    ASSERT_TRUE(file.getStringValue("POINT", "LABELS", 1, out));
    EXPECT_EQ(out.std(), L"RBAC");
    ASSERT_TRUE(file.getStringValue("POINT", "LABELS", 0, out));
    EXPECT_EQ(out.std(), L"LFHD");
    // One dimension: the whole text, whatever the index.
    ASSERT_TRUE(file.getStringValue("POINT", "UNITS", 5, out));
    EXPECT_EQ(out.std(), L"mm");
}

TEST_F(C3DFileTest, StringValueFailsWithoutTouchingTheOutput) {
    C3DFile file;
    ASSERT_TRUE(Read(WithLabels().Build(), file));
    ORV::CString out(L"unchanged");
    EXPECT_FALSE(file.getStringValue("POINT", "NAMES", 0, out));
    EXPECT_FALSE(file.getStringValue("point", "LABELS", 0, out));
    EXPECT_FALSE(file.getStringValue("FORCE", "LABELS", 0, out));
    // Entries beyond the data, and a parameter without dimensions, are no strings.
    EXPECT_FALSE(file.getStringValue("POINT", "LABELS", 3, out));
    EXPECT_FALSE(file.getStringValue("POINT", "LABELS", -1, out));
    EXPECT_FALSE(file.getStringValue("POINT", "RATE", 0, out));
    EXPECT_EQ(out.std(), L"unchanged");
}

TEST_F(C3DFileTest, BlankStringValueIsEmptyAndTrue) {
    Builder b = Track(2);
    b.parameters =
        c3dtest::Group("POINT", 1, "") + c3dtest::Parameter("LABELS", 1, -1, {3, 2}, " \t  \n ", "", true);
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    ORV::CString out(L"unchanged");
    ASSERT_TRUE(file.getStringValue("POINT", "LABELS", 1, out));
    EXPECT_TRUE(out.IsEmpty());
}

TEST_F(C3DFileTest, StringBytesAboveAsciiWidenBySignExtension) {
    Builder b = Track(2);
    b.parameters =
        c3dtest::Group("POINT", 1, "") + c3dtest::Parameter("LABELS", 1, -1, {3}, "A\xe9 ", "", true);
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    ORV::CString out;
    ASSERT_TRUE(file.getStringValue("POINT", "LABELS", 0, out));
    ASSERT_EQ(out.Length(), 2u);
    EXPECT_EQ(out[1], static_cast<wchar_t>(static_cast<char>('\xe9')));
}

TEST_F(C3DFileTest, ParameterOfAnUnknownGroupIsDroppedAndLogged) {
    Builder b = Track(2);
    b.parameters = c3dtest::Parameter("EARLY", 1, 2, {}, c3dtest::Word(3)) + c3dtest::Group("POINT", 1, "") +
                   c3dtest::Parameter("STRAY", 5, 2, {1}, c3dtest::Word(4)) +
                   c3dtest::Parameter("USED", 1, 2, {1}, c3dtest::Word(36), "", true);
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    EXPECT_TRUE(Logged(L"  parameter has invalid group ID: 1", 8));
    EXPECT_TRUE(Logged(L"  parameter has invalid group ID: 5", 8));
    ASSERT_NE(file.findGroupByID(1), nullptr);
    EXPECT_EQ(file.findGroupByID(1)->parameters.size(), 1u);
    EXPECT_NE(file.findGroupByID(1)->findParameter("USED"), nullptr);
}

TEST_F(C3DFileTest, ZeroOffsetEndsTheParameterSection) {
    Builder b = Track(2);
    b.parameters = c3dtest::Group("POINT", 1, "", true) + c3dtest::Group("ANALOG", 2, "");
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    EXPECT_EQ(file.groupsById.size(), 1u);
}

TEST_F(C3DFileTest, LaterGroupReplacesOneWithTheSameIdOrName) {
    Builder b = Track(2);
    b.parameters = c3dtest::Group("POINT", 1, "first") + c3dtest::Parameter("OLD", 1, 1, {1}, "x") +
                   c3dtest::Group("SAME", 1, "second") + c3dtest::Group("SAME", 3, "third") +
                   c3dtest::Parameter("NEW", 1, 1, {1}, "y", "", true);
    C3DFile file;
    ASSERT_TRUE(Read(b.Build(), file));
    ASSERT_NE(file.findGroupByID(1), nullptr);
    EXPECT_EQ(file.findGroupByID(1)->description, "second");
    EXPECT_EQ(file.findGroupByID(1)->findParameter("OLD"), nullptr);
    EXPECT_NE(file.findGroupByID(1)->findParameter("NEW"), nullptr);
    // The name now leads to the last group of that name; the replaced "POINT" is gone.
    EXPECT_EQ(file.groupsByName.count("POINT"), 0u);
    EXPECT_EQ(file.groupsByName["SAME"]->description, "third");
    EXPECT_EQ(file.findGroupByID(3), file.groupsByName["SAME"]);
}

TEST(C3DParameter, AddParameterReplacesTheSameNameExactly) {
    C3DParamGroup group;
    C3DParameter* first = new C3DParameter();
    C3DParameter* second = new C3DParameter();
    C3DParameter* other = new C3DParameter();
    group.addParameter("SCALE", first);
    group.addParameter("scale", other);
    group.addParameter("SCALE", second);
    EXPECT_EQ(group.parameters.size(), 2u);
    EXPECT_EQ(group.findParameter("SCALE"), second);
    EXPECT_EQ(group.findParameter("scale"), other);
    EXPECT_EQ(group.findParameter("Scale"), nullptr);
}

TEST(C3DParameter, DataSizeIsTheTypeTimesTheDimensions) {
    C3DParameter p;
    p.type = -1;
    EXPECT_EQ(p.dataSize(), 1);
    p.dimensionCount = 3;
    p.setDimensionSize(0, 4);
    p.setDimensionSize(1, 5);
    p.setDimensionSize(2, 2);
    p.setDimensionSize(3, 99);  // outside: ignored
    EXPECT_EQ(p.dataSize(), 40);
    p.type = 4;
    EXPECT_EQ(p.dataSize(), 160);
    p.setDimensionSize(1, 0);
    EXPECT_EQ(p.dataSize(), 0);
}

TEST(C3DParameter, ReadDataOfSizeZeroReadsNothing) {
    TempFile temp(std::string("abcdef"), ".c3d");
    FileStream stream(temp.Path());
    C3DParameter p;
    p.type = 1;
    p.dimensionCount = 1;
    p.setDimensionSize(0, 0);
    p.readData(stream);
    EXPECT_EQ(p.data, nullptr);
    char next = 0;
    stream >> next;
    EXPECT_EQ(next, 'a');
}

// ---- Damaged files ----------------------------------------------------------------------------

TEST_F(C3DFileTest, ImpossibleCountsFailClearly) {
    {
        Builder b = Track(3);
        std::string bytes = b.Build();
        c3dtest::PutWord(bytes, 2, -5);  // a negative number of markers
        C3DFile file;
        EXPECT_FALSE(Read(bytes, file));
        EXPECT_TRUE(Logged(L"The C3D file's header has impossible counts: -5 points, 3 frames.", 4));
        EXPECT_EQ(file.points, nullptr);
    }
    {
        orvhost::ClearLog();
        Builder b = Track(3);
        std::string bytes = b.Build();
        c3dtest::PutWord(bytes, 6, -32768);  // 65536 frames: no 16-bit count holds them
        c3dtest::PutWord(bytes, 8, 32767);
        C3DFile file;
        EXPECT_FALSE(Read(bytes, file));
        EXPECT_TRUE(Logged(L"The C3D file's header has impossible counts: 1 points, 0 frames.", 4));
    }
    {
        // The largest counts a header can give, over a file of a few blocks: the take is what
        // the file holds, and nothing is sized by the header alone.
        orvhost::ClearLog();
        Builder b = Track(3);
        std::string bytes = b.Build();
        c3dtest::PutWord(bytes, 2, 32767);
        c3dtest::PutWord(bytes, 6, 1);
        c3dtest::PutWord(bytes, 8, 32000);
        C3DFile file;
        EXPECT_TRUE(Read(bytes, file));
        EXPECT_TRUE(Logged(L"The C3D file holds 1 of the 32000 frames its header announces.", 4));
        EXPECT_TRUE(Logged(L"readBytes() failed: expected 524272bytes, got 512", 4));
        EXPECT_EQ(file.frameCount, 1);
    }
    {
        // A data block past the end of the file.
        orvhost::ClearLog();
        Builder b = Track(3);
        std::string bytes = b.Build();
        c3dtest::PutWord(bytes, 16, 200);
        C3DFile file;
        EXPECT_FALSE(Read(bytes, file));
        EXPECT_TRUE(Logged(L"The C3D file holds 0 of the 3 frames its header announces.", 4));
        EXPECT_EQ(file.points, nullptr);
    }
}

TEST_F(C3DFileTest, ParameterWithDamagedDimensionsTakesNoMoreThanTheFile) {
    Builder b = Track(2);
    // 127 dimensions of 255: a size no file can hold.
    std::string record;
    record += static_cast<char>(3);
    record += static_cast<char>(1);
    record += "BIG";
    record += c3dtest::Word(0);
    record += static_cast<char>(4);
    record += static_cast<char>(127);
    record += std::string(127, '\xff');
    b.parameters = c3dtest::Group("POINT", 1, "") + record;
    std::string bytes = b.Build();
    C3DFile file;
    Read(bytes, file);
    const C3DParameter* big = file.findGroupByID(1) ? file.findGroupByID(1)->findParameter("BIG") : nullptr;
    ASSERT_NE(big, nullptr);
    EXPECT_EQ(big->dataSize(), INT_MAX);
    EXPECT_LT(big->dataLength, static_cast<int>(bytes.size()));
}

TEST_F(C3DFileTest, RandomBytesNeverCrash) {
    std::mt19937 random(20261124);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> length(0, 3000);
    const std::string valid = WithLabels().Build();
    for (int i = 0; i < 300; ++i) {
        std::string bytes(static_cast<size_t>(length(random)), '\0');
        for (char& c : bytes) c = static_cast<char>(byte(random));
        // Half of them keep a plausible head, so that the reader gets further in.
        if (i % 2 == 1 && bytes.size() > 24) {
            bytes.replace(0, 24, valid.substr(0, 24));
            bytes[0] = static_cast<char>(1 + i % 3);
        }
        C3DFile file;
        const bool ok = Read(bytes, file, static_cast<ZUK::UpDirection>(i % 3), i % 4 == 0);
        if (ok) {
            EXPECT_GE(file.pointCount, 0);
            EXPECT_GE(file.frameCount, 0);
            // Every held sample can be read.
            for (int f = 0; f < file.frameCount; ++f) {
                for (int p = 0; p < file.pointCount; ++p) (void)file.sample(p, f).GetLengthSquared();
            }
        }
        orvhost::ClearLog();
    }
}

TEST_F(C3DFileTest, CreateFromFileOwnsTheResultOrGivesNull) {
    TempFile temp(Track(3).Build(), ".c3d");
    std::unique_ptr<C3DFile> file(C3DFile::CreateFromFile(temp.Path(), ZUK::YUp, false));
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->frameCount, 3);
    EXPECT_EQ(C3DFile::CreateFromFile(L"/no/such/file.c3d", ZUK::YUp, false), nullptr);
    Builder b = Track(3);
    std::string bytes = b.Build();
    c3dtest::PutWord(bytes, 6, 10);
    TempFile bad(bytes, ".c3d");
    EXPECT_EQ(C3DFile::CreateFromFile(bad.Path(), ZUK::YUp, false), nullptr);
}

TEST_F(C3DFileTest, FileShorterThanAHeaderBlockFails) {
    for (size_t length : {0, 1, 24, 511}) {
        orvhost::ClearLog();
        const std::string bytes = Track(3).Build().substr(0, length);
        C3DFile file;
        EXPECT_FALSE(Read(bytes, file)) << length;
        EXPECT_EQ(
            c3dtest::Log(),
            (std::vector<std::pair<std::wstring, int>>{{L"The C3D file is too short to hold a header.", 4}}))
            << length;
        EXPECT_EQ(file.points, nullptr);
    }
}
