// Text writer: the exact bytes of each form, and round trips through the reader.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "StreamTestUtil.h"
#include "core/InputStream.h"
#include "core/OutputStream.h"

using streamtest::readFile;
using streamtest::TempDir;

namespace {

// Random values over several magnitudes, so that the text form has to carry all digits.
struct RandomValues {
    std::mt19937_64 engine{20240611};
    double angle() { return std::uniform_real_distribution<double>(-3.1, 3.1)(engine); }
    double number() {
        const double mantissa = std::uniform_real_distribution<double>(-1.0, 1.0)(engine);
        const int exponent = std::uniform_int_distribution<int>(-6, 6)(engine);
        return mantissa * std::pow(10.0, exponent);
    }
};

}  // namespace

TEST(OutputStream, NumbersAreFollowedByOneBlankAndStringsByNothing) {
    TempDir dir;
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        ASSERT_NE(out.file, nullptr);
        out << ORV::CString(L"Version") << 3 << 0.5 << ORV::CString(L"name") << '\n' << -2;
    }
    EXPECT_EQ(readFile(dir.file("out.txt")), "Version3 0.5 name\n-2 ");
}

TEST(OutputStream, NumberTextIsTheHostsTextOfTheValue) {
    TempDir dir;
    const double value = 0.1 + 0.2;
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        out << value;
    }
    const std::string expected = std::string(ORV::CValue(value).GetAsText().GetAsciiString()) + " ";
    EXPECT_EQ(readFile(dir.file("out.txt")), expected);
}

TEST(OutputStream, VectorIsThreeNumbersEachWithABlank) {
    TempDir dir;
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        out << ORV::MATH::CVector3(1.0, -2.5, 0.25);
    }
    EXPECT_EQ(readFile(dir.file("out.txt")), "1 -2.5 0.25 ");
}

TEST(OutputStream, TransformIsSixNumbersWithoutScaling) {
    TempDir dir;
    ORV::MATH::CTransformation t;
    t.SetScalingFromValues(7.0, 7.0, 7.0);
    t.SetTranslationFromValues(1.0, 2.0, 3.0);
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        out << t;
    }
    // Three angles in the host's text (its identity may carry a signed zero), then the
    // translation; nothing of the scaling.
    const ORV::MATH::CVector3 angles = t.GetRotation().GetXYZAngles();
    std::string expected;
    for (double a : {angles.GetX(), angles.GetY(), angles.GetZ()})
        expected += std::string(ORV::CValue(a).GetAsText().GetAsciiString()) + " ";
    EXPECT_EQ(readFile(dir.file("out.txt")), expected + "1 2 3 ");
    EXPECT_EQ(std::atof(expected.c_str()), 0.0);
}

TEST(OutputStream, OpenFailureLeavesANullHandle) {
    TempDir dir;
    ZUK::OutputStream out(dir.wfile("missing_folder/out.txt"));
    EXPECT_EQ(out.file, nullptr);
}

TEST(OutputStream, OpeningTruncatesTheFile) {
    TempDir dir;
    streamtest::writeFile(dir.file("out.txt"), "old content that is long");
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        out << 'x';
    }
    EXPECT_EQ(readFile(dir.file("out.txt")), "x");
}

TEST(OutputStream, DumpWritesTheBytesAsOneBlock) {
    TempDir dir;
    unsigned char bytes[] = {0x00, 0x41, 0xFF, 0x0A};
    {
        ZUK::OutputStream out(dir.wfile("out.bin"));
        out.dump(bytes, 4);
    }
    EXPECT_EQ(readFile(dir.file("out.bin")), std::string("\0A\xFF\n", 4));
}

TEST(OutputStream, StringGoesOutAsManyBytesAsCharacters) {
    TempDir dir;
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        out << ORV::CString(L"a b\tc") << ORV::CString();
    }
    EXPECT_EQ(readFile(dir.file("out.txt")), "a b\tc");
}

// Budget 1e-12: the text form carries every bit of a double, so the only error is the
// rebuilding of a rotation from its Euler angles.
TEST(OutputStream, VectorsRotationsAndTransformsReadBackWithoutLoss) {
    TempDir dir;
    RandomValues rnd;
    std::vector<ORV::MATH::CVector3> vectors;
    std::vector<ORV::MATH::CRotation> rotations;
    std::vector<ORV::MATH::CTransformation> transforms;
    for (int i = 0; i < 200; ++i) {
        vectors.emplace_back(rnd.number(), rnd.number(), rnd.number());
        rotations.emplace_back(rnd.angle(), rnd.angle() / 2.0, rnd.angle());
        ORV::MATH::CTransformation t;
        t.SetRotationFromXYZAnglesValues(rnd.angle(), rnd.angle() / 2.0, rnd.angle());
        t.SetTranslationFromValues(rnd.number(), rnd.number(), rnd.number());
        transforms.push_back(t);
    }
    {
        ZUK::OutputStream out(dir.wfile("values.txt"));
        ASSERT_NE(out.file, nullptr);
        for (int i = 0; i < 200; ++i) out << vectors[i] << rotations[i] << '\n' << transforms[i] << '\n';
    }
    ZUK::InputStream in(dir.wfile("values.txt"));
    ASSERT_NE(in.buffer, nullptr);
    for (int i = 0; i < 200; ++i) {
        ORV::MATH::CVector3 v;
        ORV::MATH::CRotation r;
        ORV::MATH::CTransformation t;
        in >> v >> r >> t;
        EXPECT_EQ(v.GetX(), vectors[i].GetX());
        EXPECT_EQ(v.GetY(), vectors[i].GetY());
        EXPECT_EQ(v.GetZ(), vectors[i].GetZ());
        EXPECT_TRUE(r.GetMatrix().Equals(rotations[i].GetMatrix(), 1e-12)) << i;
        EXPECT_TRUE(t.GetRotation().GetMatrix().Equals(transforms[i].GetRotation().GetMatrix(), 1e-12)) << i;
        EXPECT_TRUE(t.GetTranslation().Equals(transforms[i].GetTranslation(), 0.0)) << i;
    }
    in.skipWhitespace();
    EXPECT_TRUE(in.atEnd());
}

TEST(OutputStream, ExtremeDoublesReadBackExactly) {
    TempDir dir;
    const double values[] = {0.0,
                             -0.0,
                             1e-300,
                             -1.7976931348623157e308,
                             4.9406564584124654e-324,
                             0.1,
                             1.0 / 3.0,
                             123456789.123456789};
    {
        ZUK::OutputStream out(dir.wfile("extreme.txt"));
        for (double v : values) out << v;
    }
    ZUK::InputStream in(dir.wfile("extreme.txt"));
    for (double v : values) {
        double back = 42.0;
        in >> back;
        EXPECT_EQ(back, v);
        EXPECT_EQ(std::signbit(back), std::signbit(v));
    }
}

TEST(OutputStream, IntegersReadBackExactly) {
    TempDir dir;
    const int values[] = {0, 1, -1, 2147483647, -2147483647 - 1};
    {
        ZUK::OutputStream out(dir.wfile("ints.txt"));
        for (int v : values) out << v;
    }
    ZUK::InputStream in(dir.wfile("ints.txt"));
    for (int v : values) {
        int back = 42;
        in >> back;
        EXPECT_EQ(back, v);
    }
}

TEST(OutputStream, WritesOnANullHandleAreDropped) {
    TempDir dir;
    ZUK::OutputStream out(dir.wfile("missing_folder/out.txt"));
    ASSERT_EQ(out.file, nullptr);
    unsigned char bytes[2] = {1, 2};
    out << 'x' << 3 << 0.5 << ORV::CString(L"text") << ORV::MATH::CVector3(1.0, 2.0, 3.0)
        << ORV::MATH::CRotation() << ORV::MATH::CTransformation();
    out.dump(bytes, 2);
    EXPECT_EQ(out.file, nullptr);
}

TEST(OutputStream, RotationIsItsXYZAnglesInRadians) {
    TempDir dir;
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        out << ORV::MATH::CRotation(0.1, -0.2, 0.3);
    }
    const std::string text = readFile(dir.file("out.txt"));
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(text.back(), ' ');
    char* rest = nullptr;
    const double x = std::strtod(text.c_str(), &rest);
    const double y = std::strtod(rest, &rest);
    const double z = std::strtod(rest, &rest);
    EXPECT_NEAR(x, 0.1, 1e-12);
    EXPECT_NEAR(y, -0.2, 1e-12);
    EXPECT_NEAR(z, 0.3, 1e-12);
    EXPECT_EQ(std::string(rest), " ");  // three numbers, each with its blank
}

// A name read from a file in a single-byte encoding comes back out byte for byte: the
// reader widens such bytes by sign extension and the writer takes them back as they were.
TEST(OutputStream, BytesAbove127ReadByTheReaderAreWrittenBackAsTheyWere) {
    TempDir dir;
    streamtest::writeFile(dir.file("in.txt"), "caf\xE9 na\xEFve");
    ZUK::InputStream in(dir.wfile("in.txt"));
    ORV::CString first, second;
    in >> first >> second;
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        out << first << ' ' << second;
    }
    EXPECT_EQ(readFile(dir.file("out.txt")), "caf\xE9 na\xEFve");
}

TEST(OutputStream, CharacterWithoutANarrowFormNeverBecomesAZeroByte) {
    TempDir dir;
    {
        ZUK::OutputStream out(dir.wfile("out.txt"));
        std::wstring text = L"a";
        text += static_cast<wchar_t>(0x10FFFF + 1);  // no character at all
        text += L"b";
        out << ORV::CString(text);
    }
    const std::string written = readFile(dir.file("out.txt"));
    ASSERT_EQ(written.size(), 3u);
    EXPECT_EQ(written, "a?b");
}
