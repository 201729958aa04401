// Tokenising text reader: white space and comments, tokens, numbers, lines, the end-of-line
// probe, and where the position stands after each.
#include <gtest/gtest.h>

#include <cmath>

#include "StreamTestUtil.h"
#include "core/InputStream.h"

using streamtest::TempDir;
using streamtest::writeFile;

namespace {

// A stream over the given bytes, written to a file of the test's temporary folder.
struct TextFile {
    explicit TextFile(const std::string& bytes) {
        writeFile(dir.file("input.txt"), bytes);
        path = dir.wfile("input.txt");
    }
    TempDir dir;
    ORV::CString path;
};

long offset(const ZUK::InputStream& in, const char* p) { return static_cast<long>(p - in.buffer); }

}  // namespace

TEST(InputStream, ZeroLengthFileIsAtEndAtOnceAndNotNull) {
    TextFile f("");
    ZUK::InputStream in(f.path);
    ASSERT_NE(in.buffer, nullptr);
    EXPECT_EQ(in.current, in.buffer);
    EXPECT_EQ(in.end, in.buffer);
    EXPECT_TRUE(in.atEnd());
    ORV::CString token(L"old");
    in >> token;
    EXPECT_EQ(token.std(), L"");
}

TEST(InputStream, MissingFileLeavesAllPointersNull) {
    TempDir dir;
    ZUK::InputStream in(dir.wfile("no_such_file.txt"));
    EXPECT_EQ(in.buffer, nullptr);
    EXPECT_EQ(in.previous, nullptr);
    EXPECT_EQ(in.current, nullptr);
    EXPECT_EQ(in.end, nullptr);
    // Reads on it change nothing and do not crash.
    int i = 5;
    double d = 1.5;
    ORV::CString s(L"keep");
    in >> i >> d >> s;
    EXPECT_EQ(i, 5);
    EXPECT_EQ(d, 1.5);
    EXPECT_EQ(s.std(), L"");
    EXPECT_FALSE(in.isCR());
    in.resetToPrev();
}

TEST(InputStream, EmptyPathLeavesAllPointersNull) {
    ZUK::InputStream in{ORV::CString()};
    EXPECT_EQ(in.buffer, nullptr);
    EXPECT_EQ(in.current, nullptr);
}

TEST(InputStream, DirectoryIsUnreadable) {
    TempDir dir;
    ZUK::InputStream in(ORV::CString(dir.path.c_str()));
    EXPECT_EQ(in.buffer, nullptr);
}

TEST(InputStream, BlockHoldsTheFilesBytesAndOneZeroBehind) {
    TextFile f("ab c");
    ZUK::InputStream in(f.path);
    ASSERT_NE(in.buffer, nullptr);
    EXPECT_EQ(in.end - in.buffer, 4);
    EXPECT_EQ(std::string(in.buffer, 4), "ab c");
    EXPECT_EQ(*in.end, '\0');
}

TEST(InputStream, CommentAsLastLineWithoutLineFeedLeavesPositionAtEnd) {
    TextFile f("word\n# comment");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    EXPECT_EQ(token.std(), L"word");
    in.skipWhitespace();
    EXPECT_EQ(in.current, in.end);
    in >> token;
    EXPECT_EQ(token.std(), L"");
    EXPECT_EQ(in.current, in.end);
}

TEST(InputStream, TokenDirectlyFollowedByHashStopsAtTheHash) {
    TextFile f("abc#comment here\nxyz");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    EXPECT_EQ(token.std(), L"abc");
    EXPECT_EQ(*in.current, '#');
    in >> token;
    EXPECT_EQ(token.std(), L"xyz");
}

TEST(InputStream, CommentRunsThroughItsLineFeed) {
    TextFile f("  # first\n\t# second\r\n  7");
    ZUK::InputStream in(f.path);
    int value = 0;
    in >> value;
    EXPECT_EQ(value, 7);
}

TEST(InputStream, TrueInAnyCaseReadsAsTrue) {
    TextFile f("TRUE True tRuE true");
    ZUK::InputStream in(f.path);
    for (int i = 0; i < 4; ++i) {
        bool value = false;
        in >> value;
        EXPECT_TRUE(value) << i;
    }
}

TEST(InputStream, YesAndOneReadAsFalse) {
    TextFile f("yes 1 truely");
    ZUK::InputStream in(f.path);
    for (int i = 0; i < 3; ++i) {
        bool value = true;
        in >> value;
        EXPECT_FALSE(value) << i;
    }
}

TEST(InputStream, NumberConsumesTheRestOfItsToken) {
    TextFile f("1.5x 2");
    ZUK::InputStream in(f.path);
    double a = 0.0, b = 0.0;
    in >> a >> b;
    EXPECT_EQ(a, 1.5);
    EXPECT_EQ(b, 2.0);
}

TEST(InputStream, IntegerPrefixLeavesPositionBehindTheToken) {
    TextFile f("12abc rest");
    ZUK::InputStream in(f.path);
    int value = 0;
    in >> value;
    EXPECT_EQ(value, 12);
    EXPECT_EQ(offset(in, in.current), 5);  // behind "abc", on the blank
    ORV::CString token;
    in >> token;
    EXPECT_EQ(token.std(), L"rest");
}

TEST(InputStream, TokenThatIsNoNumberReadsAsZeroAndIsConsumed) {
    TextFile f("abc 7");
    ZUK::InputStream in(f.path);
    int value = -1;
    in >> value;
    EXPECT_EQ(value, 0);
    EXPECT_EQ(offset(in, in.current), 3);
    in >> value;
    EXPECT_EQ(value, 7);
}

TEST(InputStream, NumberAtTheVeryEndWithoutLineFeedReadsWhole) {
    TextFile f("0.125 12345");
    ZUK::InputStream in(f.path);
    double d = 0.0;
    int i = 0;
    in >> d >> i;
    EXPECT_EQ(d, 0.125);
    EXPECT_EQ(i, 12345);
    EXPECT_TRUE(in.atEnd());
}

TEST(InputStream, IntegerIsCutTo32Bits) {
    TextFile f("4294967297 -7");
    ZUK::InputStream in(f.path);
    int a = 0, b = 0;
    in >> a >> b;
    EXPECT_EQ(a, 1);  // 2^32 + 1 keeps its low 32 bits
    EXPECT_EQ(b, -7);
}

TEST(InputStream, NumberReadAtEndGivesZero) {
    TextFile f("  ");
    ZUK::InputStream in(f.path);
    double d = 9.0;
    in >> d;
    EXPECT_EQ(d, 0.0);
    EXPECT_TRUE(in.atEnd());
}

TEST(InputStream, ReadLineKeepsTheBlankBeforeAComment) {
    TextFile f("  abc # note\r\nnext");
    ZUK::InputStream in(f.path);
    ORV::CString line;
    in.readLine(line);
    EXPECT_EQ(line.std(), L"abc ");
    EXPECT_EQ(*in.current, '\n');  // the comment is skipped up to, not including, the line feed
    in.readLine(line);
    EXPECT_EQ(line.std(), L"next");
}

TEST(InputStream, ReadLineKeepsTheCarriageReturn) {
    TextFile f("abc\r\n");
    ZUK::InputStream in(f.path);
    ORV::CString line;
    in.readLine(line);
    EXPECT_EQ(line.std(), std::wstring(L"abc\r"));
    EXPECT_EQ(*in.current, '\n');  // the line feed is not consumed
}

TEST(InputStream, ReadLineAtEndGivesEmptyText) {
    TextFile f("one\n");
    ZUK::InputStream in(f.path);
    ORV::CString line;
    in.readLine(line);
    in.readLine(line);
    EXPECT_EQ(line.std(), L"");
}

TEST(InputStream, IsCRBeforeALineFeedStandsBehindIt) {
    TextFile f("a  \nb");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    EXPECT_TRUE(in.isCR());
    EXPECT_EQ(offset(in, in.current), 4);  // just behind the line feed
}

TEST(InputStream, IsCRBeforeWhiteSpaceAndAWordStandsOnTheWord) {
    TextFile f("a  x\n");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    EXPECT_FALSE(in.isCR());
    EXPECT_EQ(offset(in, in.current), 3);
    EXPECT_EQ(*in.current, 'x');
}

TEST(InputStream, IsCRRightBeforeAWordStandsOneByteEarly) {
    TextFile f("ab,x y");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in.readDelimitedString(token, L",");
    EXPECT_EQ(token.std(), L"ab");
    ++in.current;  // step over the delimiter: "x" is right ahead
    ASSERT_EQ(*in.current, 'x');
    EXPECT_FALSE(in.isCR());
    EXPECT_EQ(offset(in, in.current), 2);  // one byte before the "x"
}

TEST(InputStream, IsCRCountsOnlyLineFeeds) {
    TextFile f("a \r\nb");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    EXPECT_TRUE(in.isCR());  // a CR LF line end: the CR is ordinary white space
    in >> token;
    EXPECT_EQ(token.std(), L"b");
}

TEST(InputStream, IsCRAtTheEndIsFalse) {
    TextFile f("a   ");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    EXPECT_FALSE(in.isCR());
    EXPECT_EQ(in.current, in.end);
}

TEST(InputStream, IsCRAtTheFirstByteNeverStepsBeforeTheBlock) {
    TextFile f("xyz");
    ZUK::InputStream in(f.path);
    EXPECT_FALSE(in.isCR());
    EXPECT_EQ(in.current, in.buffer);
    ORV::CString token;
    in >> token;
    EXPECT_EQ(token.std(), L"xyz");
}

TEST(InputStream, ResetAfterAVectorGoesBackToItsThirdNumberOnly) {
    TextFile f("1 2   3.5 next");
    ZUK::InputStream in(f.path);
    ORV::MATH::CVector3 v;
    in >> v;
    EXPECT_EQ(v.GetX(), 1.0);
    EXPECT_EQ(v.GetY(), 2.0);
    EXPECT_EQ(v.GetZ(), 3.5);
    in.resetToPrev();
    EXPECT_EQ(offset(in, in.current), 6);  // the first character of "3.5"
    double again = 0.0;
    in >> again;
    EXPECT_EQ(again, 3.5);
}

TEST(InputStream, ResetAfterANumberGoesBackToItsFirstCharacter) {
    TextFile f("  42 x");
    ZUK::InputStream in(f.path);
    int value = 0;
    in >> value;
    in.resetToPrev();
    EXPECT_EQ(offset(in, in.current), 2);
}

TEST(InputStream, ResetAfterAStringGoesBackBeforeTheWhiteSpace) {
    TextFile f("first   second third");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    in >> token;
    EXPECT_EQ(token.std(), L"second");
    in.resetToPrev();
    EXPECT_EQ(offset(in, in.current), 5);
    in >> token;
    EXPECT_EQ(token.std(), L"second");
}

TEST(InputStream, ResetBeforeAnyReadDoesNothing) {
    TextFile f("abc");
    ZUK::InputStream in(f.path);
    EXPECT_EQ(in.previous, nullptr);
    in.resetToPrev();
    EXPECT_EQ(in.current, in.buffer);
}

TEST(InputStream, DelimitedStringAppendsAndStopsBeforeTheDelimiter) {
    TextFile f(" key=value");
    ZUK::InputStream in(f.path);
    ORV::CString token(L">");
    in.readDelimitedString(token, L"=");
    EXPECT_EQ(token.std(), L">key");
    EXPECT_EQ(*in.current, '=');
}

TEST(InputStream, FindDelimitersStopsOnTheDelimiter) {
    TextFile f("  skip # not a comment here { rest");
    ZUK::InputStream in(f.path);
    EXPECT_TRUE(in.findDelimiters(L"{}"));
    EXPECT_EQ(*in.current, '{');
    EXPECT_FALSE(in.findDelimiters(L"}"));
    EXPECT_EQ(in.current, in.end);
}

TEST(InputStream, StringContainsTestsOneCharacter) {
    EXPECT_TRUE(ZUK::InputStream::stringContains(L"{},", L','));
    EXPECT_FALSE(ZUK::InputStream::stringContains(L"{},", L';'));
    EXPECT_FALSE(ZUK::InputStream::stringContains(L"", L'a'));
}

TEST(InputStream, CharReadSkipsWhiteSpaceAndTakesOneByte) {
    TextFile f("  {x");
    ZUK::InputStream in(f.path);
    char c = 0;
    in >> c;
    EXPECT_EQ(c, '{');
    in >> c;
    EXPECT_EQ(c, 'x');
    in >> c;
    EXPECT_EQ(c, '\0');
    EXPECT_TRUE(in.atEnd());
}

TEST(InputStream, BytesAbove127WidenBySignExtension) {
    TextFile f("caf\xE9");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    ASSERT_EQ(token.Length(), 4u);
    EXPECT_EQ(token[3], static_cast<wchar_t>(-23));
}

TEST(InputStream, RotationReadsXYZAnglesInRadians) {
    TextFile f("0.1 -0.2 0.3");
    ZUK::InputStream in(f.path);
    ORV::MATH::CRotation r;
    in >> r;
    const ORV::MATH::CRotation expected(0.1, -0.2, 0.3);
    EXPECT_TRUE(r.Equals(expected, 1e-12));
}

TEST(InputStream, TransformReadsRotationThenTranslationAndKeepsScaling) {
    TextFile f("0 0 1.5707963267948966  4 5 6");
    ZUK::InputStream in(f.path);
    ORV::MATH::CTransformation t;
    t.SetScalingFromValues(2.0, 3.0, 4.0);
    in >> t;
    EXPECT_EQ(t.GetTranslation().GetX(), 4.0);
    EXPECT_EQ(t.GetTranslation().GetY(), 5.0);
    EXPECT_EQ(t.GetTranslation().GetZ(), 6.0);
    EXPECT_EQ(t.GetScaling().GetX(), 2.0);
    EXPECT_EQ(t.GetScaling().GetZ(), 4.0);
    // A quarter turn about Z carries X onto Y.
    ORV::MATH::CVector3 x(1.0, 0.0, 0.0);
    x.MulByRotationInPlace(t.GetRotation());
    EXPECT_NEAR(x.GetX(), 0.0, 1e-12);
    EXPECT_NEAR(x.GetY(), 1.0, 1e-12);
}

TEST(InputStream, HashRightBehindANumberEndsItsTokenAndOpensAComment) {
    TextFile f("3#comment 99\n4.25# more\n");
    ZUK::InputStream in(f.path);
    int a = 0;
    double b = 0.0;
    in >> a >> b;
    EXPECT_EQ(a, 3);
    EXPECT_EQ(b, 4.25);
    in.skipWhitespace();
    EXPECT_TRUE(in.atEnd());
}

TEST(InputStream, ResetAfterARotationGoesBackToItsThirdNumberOnly) {
    TextFile f("0.1 0.2 # between\n 0.3 x");
    ZUK::InputStream in(f.path);
    ORV::MATH::CRotation r;
    in >> r;
    in.resetToPrev();
    EXPECT_EQ(offset(in, in.current), 19);  // the first character of "0.3"
}

TEST(InputStream, ResetAfterALineGoesBackBeforeTheWhiteSpace) {
    TextFile f("a\n  line two\n");
    ZUK::InputStream in(f.path);
    ORV::CString token;
    in >> token;
    ORV::CString line;
    in.readLine(line);
    EXPECT_EQ(line.std(), L"line two");
    in.resetToPrev();
    EXPECT_EQ(offset(in, in.current), 1);  // on the line feed behind "a"
}

TEST(InputStream, FindDelimitersSkipsALeadingComment) {
    TextFile f("# a { in a comment\n  x { y");
    ZUK::InputStream in(f.path);
    EXPECT_TRUE(in.findDelimiters(L"{"));
    EXPECT_EQ(offset(in, in.current), 23);
    EXPECT_EQ(offset(in, in.previous), 0);
}
