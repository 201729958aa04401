// ORV::CString: construction, narrow/wide conversion, operators, case-insensitive comparison
// and splitting.
#include <gtest/gtest.h>
#include <orv/Arrays.h>
#include <orv/CString.h>
#include <orv/CValue.h>

#include <clocale>
#include <cstring>
#include <map>
#include <string>

using ORV::CString;
using ORV::CStringArray;

namespace {

// Switches LC_CTYPE for one test and puts the previous one back.
class CtypeLocale {
public:
    explicit CtypeLocale(const char* name) {
        const char* old = std::setlocale(LC_CTYPE, nullptr);
        m_old = old ? old : "C";
        m_ok = std::setlocale(LC_CTYPE, name) != nullptr;
    }
    ~CtypeLocale() { std::setlocale(LC_CTYPE, m_old.c_str()); }
    bool Ok() const { return m_ok; }

private:
    std::string m_old;
    bool m_ok = false;
};

std::wstring Pieces(const CStringArray& a) {
    std::wstring s;
    for (long i = 0; i < a.GetCount(); ++i) s += L"[" + a[i].std() + L"]";
    return s;
}

}  // namespace

TEST(CString, DefaultIsEmpty) {
    CString s;
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_EQ(s.Length(), 0ul);
    EXPECT_STREQ(s.GetWideString(), L"");
    EXPECT_STREQ(s.GetAsciiString(), "");
}

TEST(CString, NullPointersGiveEmpty) {
    EXPECT_TRUE(CString(static_cast<const wchar_t*>(nullptr)).IsEmpty());
    EXPECT_TRUE(CString(static_cast<const char*>(nullptr)).IsEmpty());
    CString s(L"x");
    s += static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(s, L"x");
    s = static_cast<const wchar_t*>(nullptr);
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_TRUE(s == static_cast<const wchar_t*>(nullptr));
}

TEST(CString, NarrowAsciiWidensExactly) {
    const char* text = "Model.Obj.kine.local.posx ~!@#$%^&*()_+{}|:\"<>?`-=[]\\;',./\t\r\n";
    const CString s(text);
    ASSERT_EQ(s.Length(), std::strlen(text));
    for (unsigned long i = 0; i < s.Length(); ++i) EXPECT_EQ(s[i], static_cast<wchar_t>(text[i])) << i;
    EXPECT_STREQ(s.GetAsciiString(), text);
}

TEST(CString, AsciiRoundTripAllCodes) {
    std::string all;
    for (int c = 1; c < 128; ++c) all += static_cast<char>(c);
    CString s;
    s.PutAsciiString(all.c_str());
    ASSERT_EQ(s.Length(), 127ul);
    for (int c = 1; c < 128; ++c) EXPECT_EQ(s[static_cast<unsigned long>(c - 1)], static_cast<wchar_t>(c));
    EXPECT_EQ(std::string(s.GetAsciiString()), all);
}

TEST(CString, NarrowUtf8InUtf8Locale) {
    CtypeLocale loc("C.UTF-8");
    if (!loc.Ok()) GTEST_SKIP() << "no C.UTF-8 locale on this system";
    const CString s("caf\xC3\xA9 \xE2\x82\xAC");  // "café €"
    EXPECT_EQ(s, L"caf\u00E9 \u20AC");
    EXPECT_STREQ(CString(L"caf\u00E9 \u20AC").GetAsciiString(), "caf\xC3\xA9 \xE2\x82\xAC");
}

TEST(CString, InvalidMultibyteKeepsBytesAsLatin1) {
    CtypeLocale loc("C");
    ASSERT_TRUE(loc.Ok());
    // The C locale has no character for byte 0xE9; the byte is kept as U+00E9.
    EXPECT_EQ(CString("a\xE9z"), L"a\u00E9z");
}

TEST(CString, UnconvertibleCharacterNarrowsToQuestionMark) {
    CtypeLocale loc("C");
    ASSERT_TRUE(loc.Ok());
    EXPECT_STREQ(CString(L"a\u20ACz").GetAsciiString(), "a?z");
}

TEST(CString, AsciiBufferFollowsChanges) {
    CString s(L"abc");
    EXPECT_STREQ(s.GetAsciiString(), "abc");
    s += L"def";
    EXPECT_STREQ(s.GetAsciiString(), "abcdef");
    s.PutAsciiString("xyz");
    EXPECT_EQ(s, L"xyz");
    s.PutAsciiString(nullptr);
    EXPECT_TRUE(s.IsEmpty());
}

TEST(CString, ConstructionAndAssignment) {
    const std::wstring w = L"wide";
    CString a(w), b(L"lit"), c("narrow"), d(a);
    EXPECT_EQ(a, L"wide");
    EXPECT_EQ(b, L"lit");
    EXPECT_EQ(c, L"narrow");
    EXPECT_EQ(d, L"wide");
    CString e(std::move(d));
    EXPECT_EQ(e, L"wide");
    CString f;
    f = a;
    EXPECT_EQ(f, L"wide");
    f = L"w2";
    EXPECT_EQ(f, L"w2");
    f = "n2";
    EXPECT_EQ(f, L"n2");
    f = std::wstring(L"s2");
    EXPECT_EQ(f, L"s2");
    f = CString(L"moved");
    EXPECT_EQ(f, L"moved");
    const CString& self = f;
    f = self;  // self-assignment keeps the text
    EXPECT_EQ(f, L"moved");
    EXPECT_EQ(a.std(), w);
}

TEST(CString, ConstructionFromValueIsItsText) {
    EXPECT_EQ(CString(ORV::CValue(42)), L"42");
    EXPECT_EQ(CString(ORV::CValue(0.5)), L"0.5");
    EXPECT_EQ(CString(ORV::CValue(true)), L"true");
    CString s;
    s = ORV::CValue(L"t");
    EXPECT_EQ(s, L"t");
}

TEST(CString, ConcatenationWithEveryKind) {
    const CString a(L"ab");
    EXPECT_EQ(a + CString(L"cd"), L"abcd");
    EXPECT_EQ(a + L"cd", L"abcd");
    EXPECT_EQ(a + L'c', L"abc");
    EXPECT_EQ(a + "cd", L"abcd");
    EXPECT_EQ(L"xy" + a, L"xyab");
    EXPECT_EQ("xy" + a, L"xyab");
    EXPECT_EQ(L'x' + a, L"xab");
    CString s;
    s += a;
    s += L"-";
    s += L'!';
    s += "n";
    EXPECT_EQ(s, L"ab-!n");
    EXPECT_EQ(a, L"ab");  // operands unchanged
}

TEST(CString, ComparisonOperators) {
    const CString a(L"abc"), b(L"abd"), a2("abc");
    EXPECT_TRUE(a == a2);
    EXPECT_FALSE(a != a2);
    EXPECT_TRUE(a != b);
    EXPECT_TRUE(a == L"abc");
    EXPECT_TRUE(L"abc" == a);
    EXPECT_TRUE(a != L"ABC");
    EXPECT_TRUE(L"ABC" != a);
    EXPECT_TRUE(a < b);
    EXPECT_FALSE(b < a);
    EXPECT_FALSE(a < a2);
    std::map<CString, int> m;
    m[b] = 2;
    m[a] = 1;
    EXPECT_EQ(m.begin()->second, 1);
    EXPECT_EQ(m.size(), 2u);
}

TEST(CString, IndexReadsAndWrites) {
    CString s(L"abc");
    const CString& cs = s;
    EXPECT_EQ(cs[0], L'a');
    EXPECT_EQ(cs[2], L'c');
    EXPECT_EQ(cs[3], L'\0');
    EXPECT_EQ(cs[1000], L'\0');
    s[1] = L'X';
    EXPECT_EQ(s, L"aXc");
    s[99] = L'Z';  // outside: the string is untouched
    EXPECT_EQ(s, L"aXc");
    EXPECT_EQ(s.Length(), 3ul);
}

TEST(CString, ClearEmpties) {
    CString s(L"abc");
    EXPECT_FALSE(s.IsEmpty());
    s.Clear();
    EXPECT_TRUE(s.IsEmpty());
    EXPECT_EQ(s.Length(), 0ul);
}

TEST(CString, IsEqualNoCase) {
    EXPECT_TRUE(CString(L"Hello World").IsEqualNoCase(L"hELLO wORLD"));
    EXPECT_TRUE(CString(L"").IsEqualNoCase(L""));
    EXPECT_FALSE(CString(L"Hello").IsEqualNoCase(L"Hell"));
    EXPECT_FALSE(CString(L"Hell").IsEqualNoCase(L"Hello"));
    EXPECT_FALSE(CString(L"abc").IsEqualNoCase(L"abd"));
    EXPECT_TRUE(CString(L"LFHD1").IsEqualNoCase(L"lfhd1"));
}

TEST(CString, SplitKeepsEmptyPiecesBetweenSeparators) {
    EXPECT_EQ(Pieces(CString(L"a,,b").Split(L",")), L"[a][][b]");
    EXPECT_EQ(Pieces(CString(L"1,2.5,-3").Split(L",")), L"[1][2.5][-3]");
}

TEST(CString, SplitOfEmptyStringGivesNoPiece) { EXPECT_EQ(CString().Split(L",").GetCount(), 0); }

TEST(CString, SplitEdgeSeparators) {
    EXPECT_EQ(Pieces(CString(L"a,").Split(L",")), L"[a][]");
    EXPECT_EQ(Pieces(CString(L",a").Split(L",")), L"[][a]");
    EXPECT_EQ(Pieces(CString(L",").Split(L",")), L"[][]");
    EXPECT_EQ(Pieces(CString(L"abc").Split(L",")), L"[abc]");
}

TEST(CString, SplitOnLongerSeparator) {
    EXPECT_EQ(Pieces(CString(L"a::b::c").Split(L"::")), L"[a][b][c]");
    EXPECT_EQ(Pieces(CString(L"a:b").Split(L"::")), L"[a:b]");
    EXPECT_EQ(Pieces(CString(L"::::").Split(L"::")), L"[][][]");
}

TEST(CString, SplitOnEmptySeparatorGivesWholeString) {
    EXPECT_EQ(Pieces(CString(L"a,b").Split(L"")), L"[a,b]");
}
