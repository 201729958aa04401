// Binary field reader of the C3D files: byte order, the DEC float conversion, short reads.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "HostTesting.h"
#include "StreamTestUtil.h"
#include "core/FileStream.h"

using streamtest::TempDir;
using streamtest::writeFile;

namespace {

std::uint32_t bitsOf(float f) {
    std::uint32_t b;
    std::memcpy(&b, &f, 4);
    return b;
}

float floatOf(std::uint32_t b) {
    float f;
    std::memcpy(&f, &b, 4);
    return f;
}

std::string littleEndian(std::uint32_t b) {
    std::string s;
    for (int i = 0; i < 4; ++i) s += static_cast<char>((b >> (8 * i)) & 0xFF);
    return s;
}

}  // namespace

TEST(FileStream, StartsWithTheIntelFormat) {
    TempDir dir;
    writeFile(dir.file("a.bin"), "abcd");
    FileStream in(dir.wfile("a.bin"));
    EXPECT_TRUE(in.ok());
    EXPECT_EQ(in.floatFormat, 84);
}

TEST(FileStream, MissingFileIsNotOkAndReadsDoNotCrash) {
    TempDir dir;
    FileStream in(dir.wfile("none.bin"));
    EXPECT_FALSE(in.ok());
    EXPECT_FALSE(in.seek(0));
    short s = 0;
    float f = 0.0f;
    in >> s >> f;
    std::string text;
    in.readString(text, 2);
    in.close();
    EXPECT_FALSE(in.ok());
}

TEST(FileStream, CloseClearsTheHandleAndMayBeRepeated) {
    TempDir dir;
    writeFile(dir.file("a.bin"), "abcd");
    FileStream in(dir.wfile("a.bin"));
    in.close();
    EXPECT_FALSE(in.ok());
    EXPECT_EQ(in.file, nullptr);
    in.close();
}

TEST(FileStream, ReadStringWithLengthZeroLeavesTheString) {
    TempDir dir;
    writeFile(dir.file("a.bin"), "abcd");
    FileStream in(dir.wfile("a.bin"));
    std::string text = "keep";
    in.readString(text, 0);
    EXPECT_EQ(text, "keep");
    in.readString(text, -3);
    EXPECT_EQ(text, "keep");
    in.readString(text, 3);
    EXPECT_EQ(text, "keepabc");
}

TEST(FileStream, ShortIsLittleEndianWhateverTheFormat) {
    TempDir dir;
    writeFile(dir.file("a.bin"), std::string("\x34\x12\xFF\xFF\x34\x12", 6));
    FileStream in(dir.wfile("a.bin"));
    short a = 0, b = 0, c = 0;
    in >> a >> b;
    in.setFloatFormat(FileStream::DEC);
    in >> c;
    EXPECT_EQ(a, 0x1234);
    EXPECT_EQ(b, -1);
    EXPECT_EQ(c, 0x1234);
}

TEST(FileStream, BytesAndCharactersReadOneByteEach) {
    TempDir dir;
    writeFile(dir.file("a.bin"), std::string("\xF0\x41", 2));
    FileStream in(dir.wfile("a.bin"));
    unsigned char u = 0;
    char c = 0;
    in >> u >> c;
    EXPECT_EQ(u, 0xF0);
    EXPECT_EQ(c, 'A');
}

TEST(FileStream, DecFloatIsAQuarterOfTheReadingWithHalvesSwapped) {
    // Bytes whose two 16-bit halves, swapped, are the IEEE single 12.5.
    const std::uint32_t ieee = bitsOf(12.5f);
    const std::uint32_t stored = (ieee >> 16) | (ieee << 16);
    TempDir dir;
    writeFile(dir.file("dec.bin"), littleEndian(stored) + littleEndian(stored) + littleEndian(stored));

    FileStream in(dir.wfile("dec.bin"));
    in.setFloatFormat(FileStream::DEC);
    float dec = 0.0f, intel = 0.0f, mips = 0.0f;
    in >> dec;
    in.setFloatFormat(FileStream::INTEL);
    in >> intel;
    in.setFloatFormat(FileStream::MIPS);
    in >> mips;
    EXPECT_EQ(dec, 3.125f);  // 12.5 / 4
    EXPECT_EQ(intel, floatOf(stored));
    EXPECT_EQ(bitsOf(mips), stored);
}

TEST(FileStream, ConvertFloatChangesOnlyDecValues) {
    TempDir dir;
    writeFile(dir.file("a.bin"), "x");
    FileStream in(dir.wfile("a.bin"));
    const float value = floatOf(0x00004180u);  // halves of 16.0f (0x41800000) swapped
    EXPECT_EQ(bitsOf(in.convertFloat(value)), 0x00004180u);
    in.setFloatFormat(FileStream::DEC);
    EXPECT_EQ(in.convertFloat(value), 4.0f);
    in.setFloatFormat(static_cast<FileStream::FloatFormat>(99));
    EXPECT_EQ(bitsOf(in.convertFloat(value)), 0x00004180u);
}

TEST(FileStream, SeekIsAbsolute) {
    TempDir dir;
    writeFile(dir.file("a.bin"), "0123456789");
    FileStream in(dir.wfile("a.bin"));
    char c = 0;
    ASSERT_TRUE(in.seek(7));
    in >> c;
    EXPECT_EQ(c, '7');
    ASSERT_TRUE(in.seek(2));
    in >> c;
    EXPECT_EQ(c, '2');
    EXPECT_FALSE(in.seek(-5));
}

TEST(FileStream, ReadBytesReadsOneBlock) {
    TempDir dir;
    writeFile(dir.file("a.bin"), "abcdefgh");
    FileStream in(dir.wfile("a.bin"));
    orvhost::ClearLog();
    char bytes[8] = {};
    in.readBytes(bytes, 8);
    EXPECT_EQ(std::string(bytes, 8), "abcdefgh");
    EXPECT_TRUE(orvhost::LogTexts(4).empty());
}

TEST(FileStream, ShortReadLogsTheCountsWithoutABlankBeforeBytes) {
    TempDir dir;
    writeFile(dir.file("a.bin"), "abc");
    FileStream in(dir.wfile("a.bin"));
    orvhost::ClearLog();
    char bytes[10] = {};
    in.readBytes(bytes, 10);
    EXPECT_EQ(std::string(bytes, 3), "abc");  // the caller carries on with what arrived
    const std::vector<std::wstring> warnings = orvhost::LogTexts(4);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0], L"readBytes() failed: expected 10bytes, got 3");
}

TEST(FileStream, StdFileLengthRestoresThePosition) {
    TempDir dir;
    writeFile(dir.file("a.bin"), "0123456789");
    FILE* f = std::fopen(dir.file("a.bin").c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::fseek(f, 3, SEEK_SET);
    EXPECT_EQ(StdFileLength(f), 10);
    EXPECT_EQ(std::ftell(f), 3);
    std::fclose(f);
    EXPECT_EQ(StdFileLength(nullptr), -1);
}

// VAX F-floats written out by hand from their definition (sign, 8-bit exponent excess 128,
// fraction 0.1fff... with a hidden bit; stored as two little-endian 16-bit words, the word with
// sign and exponent first), not from the conversion under test.
TEST(FileStream, DecFloatsWrittenByHandReadAsTheirValues) {
    // 1.0 = 0.5 * 2^1: exponent 129, fraction 0 -> word 0x4080.
    // -2.5 = -0.625 * 2^2: sign, exponent 130, fraction bits 01 -> word 0xC120.
    // 0.5 = 0.5 * 2^0: exponent 128 -> word 0x4000.
    // pi = 0.7853981... * 2^2: exponent 130, fraction bits 1001001 0000111111011011
    //      -> words 0x4149, 0x0FDB.
    const std::string bytes(
        "\x80\x40\x00\x00"
        "\x20\xC1\x00\x00"
        "\x00\x40\x00\x00"
        "\x49\x41\xDB\x0F"
        "\x00\x00\x00\x00",
        20);
    TempDir dir;
    writeFile(dir.file("vax.bin"), bytes);
    FileStream in(dir.wfile("vax.bin"));
    in.setFloatFormat(FileStream::DEC);
    float one = 0.0f, minus = 0.0f, half = 0.0f, pi = 0.0f, zero = 1.0f;
    in >> one >> minus >> half >> pi >> zero;
    EXPECT_EQ(one, 1.0f);
    EXPECT_EQ(minus, -2.5f);
    EXPECT_EQ(half, 0.5f);
    EXPECT_EQ(pi, 3.14159274f);  // pi rounded to a single, exactly
    EXPECT_EQ(zero, 0.0f);

    // Under Intel the first four bytes are the little-endian IEEE bits 0x00004080 as they are.
    ASSERT_TRUE(in.seek(0));
    in.setFloatFormat(FileStream::INTEL);
    float plain = 1.0f;
    in >> plain;
    EXPECT_EQ(bitsOf(plain), 0x00004080u);
}

TEST(FileStream, AnyProcessorByteIsAFormatAndOnlyDecConverts) {
    TempDir dir;
    writeFile(dir.file("a.bin"), std::string("\x80\x40\x00\x00", 4));
    FileStream in(dir.wfile("a.bin"));
    in.setFloatFormat(static_cast<FileStream::FloatFormat>(200));
    EXPECT_EQ(in.floatFormat, 200);
    float value = 0.0f;
    in >> value;
    EXPECT_EQ(bitsOf(value), 0x00004080u);
}

TEST(FileStream, ReadBytesOnAMissingFileLogsNothingReceived) {
    TempDir dir;
    FileStream in(dir.wfile("none.bin"));
    orvhost::ClearLog();
    char bytes[4] = {'k', 'e', 'e', 'p'};
    in.readBytes(bytes, 4);
    EXPECT_EQ(std::string(bytes, 4), "keep");
    const std::vector<std::wstring> warnings = orvhost::LogTexts(4);
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0], L"readBytes() failed: expected 4bytes, got 0");
}

TEST(FileStream, StdFileLengthOfAnEmptyFileIsZeroAndKeepsTheEndPosition) {
    TempDir dir;
    writeFile(dir.file("empty.bin"), "");
    writeFile(dir.file("a.bin"), "0123456789");
    FILE* empty = std::fopen(dir.file("empty.bin").c_str(), "rb");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(StdFileLength(empty), 0);
    std::fclose(empty);
    FILE* f = std::fopen(dir.file("a.bin").c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::fseek(f, 0, SEEK_END);
    EXPECT_EQ(StdFileLength(f), 10);
    EXPECT_EQ(std::ftell(f), 10);
    std::fclose(f);
}
