// C3DFile on real files: the c3d.org Sample02 recording in its six encodings, and CMU take
// 01_01. Expected values come from the files' bytes, read by hand with a hex dump or decoded
// here independently of the reader.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
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

using ORV::MATH::CVector3;

namespace {

std::string DataPath(const std::string& name) { return std::string(TROVO_TEST_DATA) + "/c3d/" + name; }

std::string Bytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::unique_ptr<C3DFile> Read(const std::string& name, ZUK::UpDirection up = ZUK::YUp,
                              bool truncate = false) {
    orvhost::ClearLog();
    FileStream stream(ORV::CString(DataPath(name).c_str()));
    EXPECT_TRUE(stream.ok()) << name;
    std::unique_ptr<C3DFile> file(new C3DFile());
    if (!file->readFromStream(stream, up, truncate)) return nullptr;
    return file;
}

const char* const kSample02[4] = {"c3d_org_sample02/pc_int.c3d", "c3d_org_sample02/pc_real.c3d",
                                  "c3d_org_sample02/dec_int.c3d", "c3d_org_sample02/dec_real.c3d"};

// Sample02: the scale of its integer files, header bytes 12 to 15 "12 f7 8f 3e" as an Intel float
// (the DEC files hold "8f 3f 12 f7", the same value once the halves are swapped and divided by 4).
const float kSampleScale = [] {
    const unsigned char bytes[4] = {0x12, 0xf7, 0x8f, 0x3e};
    float f;
    std::memcpy(&f, bytes, 4);
    return f;
}();

// File frame 26 is the first in which all 36 markers are there, so the take starts at file frame
// 27: reader frame i is file frame 27 + i, and 89 - 27 = 62 frames remain.
constexpr int kSampleSkipped = 27;
constexpr int kSampleFrames = 62;

struct HandRead {
    int fileFrame;
    int marker;
    short words[3];  // pc_int.c3d at 6144 + frame * 416 + marker * 8 (36 points, 64 analog words)
    double real[3];  // pc_real.c3d at 6144 + frame * 832 + marker * 16
};

// Read with "xxd -s OFFSET -l 12" on each file.
const HandRead kHandRead[] = {
    {27, 0, {1270, 3119, 206}, {357.1009826660156, 877.0062866210938, 57.923465728759766}},
    {27, 17, {366, 1923, 1344}, {102.91256713867188, 540.7127685546875, 377.908447265625}},
    {27, 35, {-145, 2834, 3392}, {-40.77136993408203, 796.8694458007812, 953.7689208984375}},
    {40, 0, {1283, 3177, 240}, {360.75634765625, 893.3148193359375, 67.48365020751953}},
    {40, 17, {441, 4532, 750}, {124.00120544433594, 1274.3162841796875, 210.8863983154297}},
    {40, 35, {-199, 3277, 3516}, {-55.95519256591797, 921.4329833984375, 988.6354370117188}},
    {68, 0, {1418, 7913, 227}, {398.71588134765625, 2224.9921875, 63.828285217285156}},
    {68, 17, {406, 5680, 1106}, {114.15984344482422, 1597.113037109375, 310.9871520996094}},
    {68, 35, {-53, 7505, 3561}, {-14.902639389038086, 2110.27001953125, 1001.2886352539062}},
};

}  // namespace

TEST(C3DFileRealData, Sample02HeadersReadAlikeInIntelAndDecFiles) {
    for (const char* name : kSample02) {
        std::unique_ptr<C3DFile> file = Read(name);
        ASSERT_NE(file, nullptr) << name;
        EXPECT_EQ(file->pointCount, 36) << name;
        EXPECT_EQ(file->analogCount, 64) << name;
        EXPECT_EQ(file->firstFrame, 1) << name;
        EXPECT_EQ(file->lastFrame, 89) << name;
        EXPECT_EQ(file->interpolationGap, 10) << name;
        EXPECT_EQ(file->frameRate, 50.0f) << name;
        EXPECT_EQ(std::fabs(file->scale), kSampleScale) << name;
        EXPECT_EQ(file->scale > 0.0f, std::string(name).find("_int") != std::string::npos) << name;
        EXPECT_EQ(file->frameCount, kSampleFrames) << name;
        ORV::CString label;
        ASSERT_TRUE(file->getStringValue("POINT", "UNITS", 0, label)) << name;
        EXPECT_EQ(label.std(), L"mm");
        EXPECT_EQ(file->groupsById.size(), 5u) << name;
        ASSERT_NE(file->findGroupByID(5), nullptr);
        EXPECT_EQ(file->findGroupByID(5)->name, "SUBJECT") << name;
    }
}

TEST(C3DFileRealData, Sample02LockedRecordEndsTheRecordsBehindIt) {
    // POINT:USED is a locked record (name length -4, "fc 01 55 53 45 44" at 0x1390 of pc_int). The
    // reader takes no name for it and reads on out of step, so the records that follow, LABELS
    // among them, are not found. dec_int stores LABELS before that record.
    ORV::CString label(L"unchanged");
    for (const char* name : {kSample02[0], kSample02[1], kSample02[3]}) {
        std::unique_ptr<C3DFile> file = Read(name);
        ASSERT_NE(file, nullptr) << name;
        EXPECT_FALSE(file->getStringValue("POINT", "LABELS", 0, label)) << name;
        EXPECT_EQ(file->findGroupByID(1)->findParameter("USED"), nullptr) << name;
    }
    EXPECT_EQ(label.std(), L"unchanged");
    std::unique_ptr<C3DFile> file = Read(kSample02[2]);
    ASSERT_NE(file, nullptr);
    ASSERT_TRUE(file->getStringValue("POINT", "LABELS", 0, label));
    EXPECT_EQ(label.std(), L"RFT1");
    ASSERT_TRUE(file->getStringValue("POINT", "LABELS", 35, label));
    EXPECT_EQ(label.std(), L"LFA3");
}

TEST(C3DFileRealData, Sample02MatchesBytesReadByHand) {
    std::unique_ptr<C3DFile> integer = Read(kSample02[0]);
    std::unique_ptr<C3DFile> real = Read(kSample02[1]);
    ASSERT_NE(integer, nullptr);
    ASSERT_NE(real, nullptr);
    for (const HandRead& h : kHandRead) {
        const int frame = h.fileFrame - kSampleSkipped;
        const CVector3& i = integer->sample(h.marker, frame);
        const CVector3& r = real->sample(h.marker, frame);
        EXPECT_EQ(i.x, static_cast<double>(h.words[0] * kSampleScale)) << h.fileFrame << " " << h.marker;
        EXPECT_EQ(i.y, static_cast<double>(h.words[1] * kSampleScale)) << h.fileFrame << " " << h.marker;
        EXPECT_EQ(i.z, static_cast<double>(h.words[2] * kSampleScale)) << h.fileFrame << " " << h.marker;
        EXPECT_EQ(r.x, h.real[0]) << h.fileFrame << " " << h.marker;
        EXPECT_EQ(r.y, h.real[1]) << h.fileFrame << " " << h.marker;
        EXPECT_EQ(r.z, h.real[2]) << h.fileFrame << " " << h.marker;
    }
}

// dec_real.c3d at 6144 + frame * 832 + marker * 16, read with "xxd -s OFFSET -l 12", in the
// order of kHandRead.
const unsigned char kDecBytes[9][12] = {
    {0xb2, 0x44, 0xed, 0x8c, 0x5b, 0x45, 0x67, 0x40, 0x67, 0x43, 0xa1, 0xb1},
    {0xcd, 0x43, 0x3c, 0xd3, 0x07, 0x45, 0x9e, 0x2d, 0xbc, 0x44, 0x48, 0xf4},
    {0x23, 0xc3, 0xe2, 0x15, 0x47, 0x45, 0xa5, 0x37, 0x6e, 0x45, 0x36, 0x71},
    {0xb4, 0x44, 0xd0, 0x60, 0x5f, 0x45, 0x26, 0x54, 0x86, 0x43, 0xa1, 0xf7},
    {0xf8, 0x43, 0x9e, 0x00, 0x9f, 0x45, 0x1f, 0x4a, 0x52, 0x44, 0xeb, 0xe2},
    {0x5f, 0xc3, 0x1e, 0xd2, 0x66, 0x45, 0xb6, 0x5b, 0x77, 0x45, 0xab, 0x28},
    {0xc7, 0x44, 0xa2, 0x5b, 0x0b, 0x46, 0xe0, 0x0f, 0x7f, 0x43, 0x2a, 0x50},
    {0xe4, 0x43, 0xd7, 0x51, 0xc7, 0x45, 0x9e, 0xa3, 0x9b, 0x44, 0x5b, 0x7e},
    {0x6e, 0xc2, 0x36, 0x71, 0x03, 0x46, 0x52, 0xe4, 0x7a, 0x45, 0x79, 0x52},
};

// A VAX F-floating value from its four bytes: two little-endian words, sign, exponent (bias
// 128) and fraction in the first, more fraction in the second; value 0.1f x 2^(e - 128).
double VaxValue(const unsigned char* b) {
    const unsigned high = b[0] | (b[1] << 8);
    const unsigned low = b[2] | (b[3] << 8);
    const int exponent = (high >> 7) & 0xff;
    if (exponent == 0) return 0.0;
    const double fraction = 0.5 + static_cast<double>(((high & 0x7f) << 16) | low) / 16777216.0;
    return ((high >> 15) ? -1.0 : 1.0) * std::ldexp(fraction, exponent - 128);
}

TEST(C3DFileRealData, Sample02DecFileMatchesBytesReadByHand) {
    std::unique_ptr<C3DFile> dec = Read(kSample02[3]);
    ASSERT_NE(dec, nullptr);
    for (int i = 0; i < 9; ++i) {
        const HandRead& h = kHandRead[i];
        const CVector3& v = dec->sample(h.marker, h.fileFrame - kSampleSkipped);
        for (int k = 0; k < 3; ++k) {
            const double expected = VaxValue(kDecBytes[i] + 4 * k);
            EXPECT_EQ(v[k], expected) << h.fileFrame << " " << h.marker << " " << k;
            // The same recording: the Intel float file holds the very same values.
            EXPECT_EQ(expected, h.real[k]) << h.fileFrame << " " << h.marker << " " << k;
        }
    }
}

TEST(C3DFileRealData, Sample02EncodingsAgreeFrameForFrameWithinOneScaleStep) {
    std::unique_ptr<C3DFile> reference = Read(kSample02[0]);
    ASSERT_NE(reference, nullptr);
    for (int k = 1; k < 4; ++k) {
        std::unique_ptr<C3DFile> other = Read(kSample02[k]);
        ASSERT_NE(other, nullptr) << kSample02[k];
        ASSERT_EQ(other->frameCount, reference->frameCount);
        double worst = 0.0;
        for (int f = 0; f < reference->frameCount; ++f) {
            for (int p = 0; p < reference->pointCount; ++p) {
                const CVector3 d = other->sample(p, f) - reference->sample(p, f);
                worst = std::max({worst, std::fabs(d.x), std::fabs(d.y), std::fabs(d.z)});
            }
        }
        // Float samples round the integer ones to the nearest step; allow one step and a float's
        // relative error on coordinates of a few metres.
        EXPECT_LE(worst, kSampleScale * 1.0001) << kSample02[k];
        EXPECT_GT(reference->sample(0, 10).GetLength(), 100.0);
    }
}

TEST(C3DFileRealData, Sample02IntegerFileMatchesAnIndependentDecodeOfEveryPresentSample) {
    // Frames of 36 points (4 words each) and 64 analog words, from block 13 on.
    const std::string bytes = Bytes(DataPath(kSample02[0]));
    std::unique_ptr<C3DFile> file = Read(kSample02[0]);
    ASSERT_NE(file, nullptr);
    int compared = 0;
    for (int f = 0; f < file->frameCount; ++f) {
        const size_t frameAt = 12 * 512 + static_cast<size_t>(f + kSampleSkipped) * (36 * 4 + 64) * 2;
        for (int p = 0; p < 36; ++p) {
            short words[3];
            for (int k = 0; k < 3; ++k) {
                const size_t at = frameAt + p * 8 + k * 2;
                words[k] = static_cast<short>(static_cast<unsigned char>(bytes[at]) |
                                              (static_cast<unsigned char>(bytes[at + 1]) << 8));
            }
            if (words[0] == 0 && words[1] == 0 && words[2] == 0) continue;  // lost here: filled
            ++compared;
            EXPECT_EQ(file->sample(p, f).x, static_cast<double>(words[0] * kSampleScale)) << f << " " << p;
            EXPECT_EQ(file->sample(p, f).y, static_cast<double>(words[1] * kSampleScale)) << f << " " << p;
            EXPECT_EQ(file->sample(p, f).z, static_cast<double>(words[2] * kSampleScale)) << f << " " << p;
        }
    }
    EXPECT_GT(compared, 1500);
}

TEST(C3DFileRealData, Sample02BigEndianFilesAreReadAsIfLittleEndian) {
    // The processor byte 86 gets no treatment: the header's words come out byte-swapped (36
    // points read as 9216, frames 1..89 as 256..22784) and the data block (13, read as 3328)
    // lies far past the end of the file.
    for (const char* name : {"c3d_org_sample02/sgi_int.c3d", "c3d_org_sample02/sgi_real.c3d"}) {
        std::unique_ptr<C3DFile> file = Read(name);
        EXPECT_EQ(file, nullptr) << name;
        EXPECT_TRUE(c3dtest::Logged(L"procType: 86", 8)) << name;
        EXPECT_TRUE(c3dtest::Logged(L"numPoints: 9216", 8)) << name;
        EXPECT_TRUE(c3dtest::Logged(L"firstFrame: 256", 8)) << name;
        EXPECT_TRUE(c3dtest::Logged(L"lastFrame: 22784", 8)) << name;
        EXPECT_TRUE(c3dtest::Logged(L"The C3D file holds 0 of the 22529 frames its header announces.", 4))
            << name;
    }
}

// ---- CMU 01_01 --------------------------------------------------------------------------------

namespace {

// File frame 120 is the first with all 42 markers (RBAC-1 is there only in file frames 120 to
// 127), so reader frame i is file frame 121 + i, and 2751 - 121 = 2630 frames remain.
constexpr int kCmuSkipped = 121;
constexpr int kLFHD = 22;
constexpr int kRBAC = 35;
constexpr int kRBAC1 = 41;

// Float samples read with "xxd -s OFFSET -l 12", OFFSET = 6144 + frame * 42 * 16 + marker * 16.
const double kLFHDAt121[3] = {-768.06640625, 604.039794921875, 1687.294677734375};        // 0x15700
const double kLFHDAt1121[3] = {2378.19677734375, 393.3990478515625, 1694.7071533203125};  // 0xb9800
const double kRBAC1At127[3] = {-1004.27099609375, 456.931396484375, 1440.8143310546875};  // 0x167f0
// RBAC is there up to file frame 2720 (0x1bfe30) and all zero from 2721 to the end.
const double kRBACAt2720[3] = {2055.428466796875, 445.4891357421875, 1442.6224365234375};

void ExpectAt(const CVector3& v, const double (&expected)[3]) {
    EXPECT_EQ(v.x, expected[0]);
    EXPECT_EQ(v.y, expected[1]);
    EXPECT_EQ(v.z, expected[2]);
}

}  // namespace

TEST(C3DFileRealData, CmuTakeReadsWithItsMarkersFramesAndLabels) {
    std::unique_ptr<C3DFile> file = Read("cmu/01_01.c3d");
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->pointCount, 42);
    EXPECT_EQ(file->analogCount, 0);
    EXPECT_EQ(file->firstFrame, 40);
    EXPECT_EQ(file->lastFrame, 2790);
    EXPECT_EQ(file->frameRate, 120.0f);
    EXPECT_EQ(file->scale, -0.05f);
    EXPECT_EQ(file->frameCount, 2751 - kCmuSkipped);
    ORV::CString label;
    ASSERT_TRUE(file->getStringValue("POINT", "LABELS", kRBAC1, label));
    EXPECT_EQ(label.std(), L"RBAC-1");
    ASSERT_TRUE(file->getStringValue("POINT", "LABELS", kRBAC, label));
    EXPECT_EQ(label.std(), L"RBAC");
    ASSERT_TRUE(file->getStringValue("POINT", "LABELS", kLFHD, label));
    EXPECT_EQ(label.std(), L"LFHD");
    ASSERT_TRUE(file->getStringValue("POINT", "LABELS", 0, label));
    EXPECT_EQ(label.std(), L"LBWT");
    EXPECT_FALSE(file->getStringValue("POINT", "LABELS", 42, label));
    EXPECT_TRUE(c3dtest::Logged(L"converted scale factor: -0.05", 8));
}

TEST(C3DFileRealData, CmuMarkerPositionsMatchBytesReadByHand) {
    std::unique_ptr<C3DFile> file = Read("cmu/01_01.c3d");
    ASSERT_NE(file, nullptr);
    ExpectAt(file->sample(kLFHD, 121 - kCmuSkipped), kLFHDAt121);
    ExpectAt(file->sample(kLFHD, 1121 - kCmuSkipped), kLFHDAt1121);
    ExpectAt(file->sample(kRBAC1, 127 - kCmuSkipped), kRBAC1At127);
    ExpectAt(file->sample(kRBAC, 2720 - kCmuSkipped), kRBACAt2720);
}

TEST(C3DFileRealData, CmuMarkersLostToTheEndHoldTheirLastPosition) {
    std::unique_ptr<C3DFile> file = Read("cmu/01_01.c3d");
    ASSERT_NE(file, nullptr);
    const int last = file->frameCount - 1;
    ExpectAt(file->sample(kRBAC1, 128 - kCmuSkipped), kRBAC1At127);
    ExpectAt(file->sample(kRBAC1, last), kRBAC1At127);
    ExpectAt(file->sample(kRBAC, 2721 - kCmuSkipped), kRBACAt2720);
    ExpectAt(file->sample(kRBAC, last), kRBACAt2720);
}

TEST(C3DFileRealData, CmuTakeEndsAtTheFirstLossWhenTruncating) {
    // RBAC-1 is lost from file frame 128 on: the take keeps file frames 121 to 127.
    std::unique_ptr<C3DFile> file = Read("cmu/01_01.c3d", ZUK::YUp, true);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->frameCount, 128 - kCmuSkipped);
    ExpectAt(file->sample(kRBAC1, 127 - kCmuSkipped), kRBAC1At127);
    ExpectAt(file->sample(kLFHD, 0), kLFHDAt121);
}

TEST(C3DFileRealData, CmuZUpTakeStandsOnY) {
    std::unique_ptr<C3DFile> file = Read("cmu/01_01.c3d", ZUK::ZUp);
    ASSERT_NE(file, nullptr);
    // (x, y, z) becomes (y, z, x); the quarter turn is 1.5707963, not pi / 2, hence the tolerance.
    const CVector3& v = file->sample(kLFHD, 0);
    EXPECT_NEAR(v.x, kLFHDAt121[1], 1e-3);
    EXPECT_NEAR(v.y, kLFHDAt121[2], 1e-3);
    EXPECT_NEAR(v.z, kLFHDAt121[0], 1e-3);
}

TEST(C3DFileRealData, TruncatedFilesFailClearlyOrKeepTheFramesTheyHold) {
    // Cut points through the header (0..511), the parameters (512..6143) and the data (6144 on,
    // 416 bytes a frame).
    const std::string whole = Bytes(DataPath(kSample02[0]));
    const size_t cuts[20] = {0,     1,    5,    9,    13,   21,   300,  511,        513,
                             516,   1000, 3000, 5300, 6143, 6144, 6145, 6144 + 416, 6144 + 416 * 30 + 100,
                             40000, 43000};
    for (size_t cut : cuts) {
        const std::string bytes = whole.substr(0, cut);
        trovotest::TempFile temp(bytes, ".c3d");
        orvhost::ClearLog();
        FileStream stream(temp.Path());
        C3DFile file;
        const bool ok = file.readFromStream(stream, ZUK::YUp, false);
        if (cut <= 6144) {
            // Too short for a header, or no frame data at all.
            EXPECT_FALSE(ok) << cut;
            continue;
        }
        ASSERT_TRUE(ok) << cut;
        const size_t data = cut - 6144;
        const long held = static_cast<long>((data + 415) / 416);
        if (held < 89) {
            EXPECT_TRUE(c3dtest::Logged(
                L"The C3D file holds " + std::to_wstring(held) + L" of the 89 frames its header announces.",
                4))
                << cut;
        }
        if (data % 416 != 0) {
            EXPECT_TRUE(c3dtest::Logged(
                L"readBytes() failed: expected 416bytes, got " + std::to_wstring(data % 416), 4))
                << cut;
        }
        // What was held reads as in the whole file.
        if (held > kSampleSkipped + 1) {
            std::unique_ptr<C3DFile> full = Read(kSample02[0]);
            EXPECT_EQ(file.frameCount, held - kSampleSkipped);
            EXPECT_EQ(file.sample(0, 0), full->sample(0, 0)) << cut;
        }
    }
}
