// ORV::CValue: every alternative, the empty test, conversions, text form and comparison.
#include <gtest/gtest.h>
#include <orv/ORV.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>

using ORV::CRef;
using ORV::CString;
using ORV::CValue;
using ORV::CValueArray;
using ORV::MATH::CVector3;

namespace {

std::wstring Text(const CValue& v) { return v.GetAsText().std(); }

// Reads a double back with the C library (independent of the code under test).
double ReadBack(const std::wstring& text) {
    const std::string narrow(text.begin(), text.end());
    return std::strtod(narrow.c_str(), nullptr);
}

bool SameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

int SignificantDigits(const std::wstring& text) {
    int digits = 0;
    bool leading = true;
    for (wchar_t c : text) {
        if (c == L'e' || c == L'E') break;
        if (c < L'0' || c > L'9') continue;
        if (leading && c == L'0') continue;
        leading = false;
        ++digits;
    }
    return digits;
}

}  // namespace

// --- What must compile, and do the obvious thing ----------------------------------------

static_assert(std::is_convertible_v<int, CValue>);
static_assert(std::is_convertible_v<double, CValue>);
static_assert(std::is_convertible_v<const char*, CValue>);
static_assert(std::is_convertible_v<const wchar_t*, CValue>);
static_assert(std::is_convertible_v<CRef, CValue>);
static_assert(std::is_convertible_v<ORV::Null&, CValue>);
static_assert(std::is_convertible_v<CValue, bool>);
static_assert(std::is_convertible_v<CValue, int>);
static_assert(std::is_convertible_v<CValue, double>);
static_assert(std::is_convertible_v<CValue, CString>);
static_assert(std::is_convertible_v<const CValue&, CString>);
static_assert(std::is_convertible_v<CValue, CRef>);
static_assert(std::is_convertible_v<CValue, void*>);
static_assert(std::is_convertible_v<CValue, CVector3>);
static_assert(std::is_convertible_v<CValue&, CValueArray&>);
static_assert(std::is_convertible_v<const CValue&, const CValueArray&>);
static_assert(std::is_nothrow_move_constructible_v<CValue>);

TEST(CValueCompile, InitialisationForms) {
    CValue zero = 0;
    EXPECT_EQ(zero.GetType(), ORV::ovInt4);
    EXPECT_EQ(static_cast<int>(zero), 0);
    CValue one(1.0);
    EXPECT_EQ(one.GetType(), ORV::ovDouble);
    CValueArray args;
    args.Add(CValue());
    args.Add(3);
    args.Add(L"w");
    args.Add("n");
    ASSERT_EQ(args.GetCount(), 4);
    EXPECT_TRUE(args[0].IsEmpty());
    EXPECT_EQ(args[1].GetType(), ORV::ovInt4);
    EXPECT_EQ(args[2].GetType(), ORV::ovString);
    EXPECT_EQ(args[3].GetType(), ORV::ovLPStr);
    const CRef ref = CRef::FromId(7);
    CValue r(ref);
    EXPECT_EQ(r.GetType(), ORV::ovRef);
    CValue r2 = ref;
    EXPECT_EQ(r2.GetType(), ORV::ovRef);
}

TEST(CValueCompile, ConversionForms) {
    CValue v = 5;
    bool taken = false;
    if (v) taken = true;
    EXPECT_TRUE(taken);
    int i = v;
    double d = v;
    long l = v;
    float f = v;
    bool b = v;
    CString s = v;
    const CValue cv = 6;
    CString s2 = cv;
    CString s3(v);
    EXPECT_EQ(i, 5);
    EXPECT_EQ(d, 5.0);
    EXPECT_EQ(l, 5L);
    EXPECT_EQ(f, 5.0f);
    EXPECT_TRUE(b);
    EXPECT_EQ(s, L"5");
    EXPECT_EQ(s2, L"6");
    EXPECT_EQ(s3, L"5");
    EXPECT_EQ(v.GetType(), ORV::ovInt4);  // none of these changed it
}

TEST(CValueCompile, ComparisonForms) {
    CValue v = 3;
    EXPECT_TRUE(v == 3);
    EXPECT_TRUE(v == 3.0);
    EXPECT_TRUE(v == 3L);
    EXPECT_TRUE(v == 3u);
    EXPECT_TRUE(v != 4);
    EXPECT_FALSE(v != 3);
    CValue t = L"abc";
    EXPECT_TRUE(t == L"abc");
    EXPECT_TRUE(t == "abc");
    EXPECT_TRUE(t == CString(L"abc"));
    EXPECT_TRUE(t != L"abd");
    EXPECT_TRUE(CString(L"abc") == t);
}

TEST(CValueCompile, IntegerWidthsGoToInt) {
    EXPECT_EQ(CValue(short(-3)).GetType(), ORV::ovInt4);
    EXPECT_EQ(CValue(static_cast<unsigned short>(3)).GetType(), ORV::ovInt4);
    EXPECT_EQ(CValue(3u).GetType(), ORV::ovInt4);
    EXPECT_EQ(CValue(3L).GetType(), ORV::ovInt4);
    EXPECT_EQ(CValue(3LL).GetType(), ORV::ovInt4);
    EXPECT_EQ(CValue(3UL).GetType(), ORV::ovInt4);
    EXPECT_EQ(CValue('a').GetType(), ORV::ovInt4);
    EXPECT_EQ(static_cast<int>(CValue('a')), 97);
    EXPECT_EQ(CValue(static_cast<unsigned char>(200)).GetType(), ORV::ovInt4);
}

TEST(CValueCompile, PointersAndLiteralsDoNotBecomeBool) {
    int object = 0;
    EXPECT_EQ(CValue(static_cast<void*>(&object)).GetType(), ORV::ovPtr);
    EXPECT_EQ(CValue(&object).GetType(), ORV::ovPtr);
    EXPECT_EQ(CValue("x").GetType(), ORV::ovLPStr);
    EXPECT_EQ(CValue(L"x").GetType(), ORV::ovString);
    EXPECT_EQ(CValue(nullptr).GetType(), ORV::ovPtr);
    EXPECT_EQ(CValue(true).GetType(), ORV::ovBool);
}

// --- Alternatives and the empty test ----------------------------------------------------

TEST(CValue, EmptyTestLooksAtTheTag) {
    EXPECT_TRUE(CValue().IsEmpty());
    EXPECT_EQ(CValue().GetType(), ORV::ovEmpty);
    EXPECT_FALSE(CValue(L"").IsEmpty());
    EXPECT_FALSE(CValue("").IsEmpty());
    EXPECT_FALSE(CValue(0).IsEmpty());
    EXPECT_FALSE(CValue(false).IsEmpty());
    EXPECT_FALSE(CValue(0.0).IsEmpty());
    EXPECT_FALSE(CValue(CRef()).IsEmpty());
    EXPECT_FALSE(CValue(static_cast<void*>(nullptr)).IsEmpty());
    EXPECT_FALSE(CValue(CValueArray()).IsEmpty());
}

TEST(CValue, TypeNumbersAreTheHostContract) {
    EXPECT_EQ(ORV::ovEmpty, 0);
    EXPECT_EQ(ORV::ovInt4, 3);
    EXPECT_EQ(ORV::ovDouble, 5);
    EXPECT_EQ(ORV::ovString, 8);
    EXPECT_EQ(ORV::ovBool, 11);
    EXPECT_EQ(ORV::ovRef, 13);
    EXPECT_EQ(ORV::ovPtr, 26);
    EXPECT_EQ(ORV::ovLPStr, 30);
    EXPECT_EQ(ORV::ovArray, 8192);
}

TEST(CValue, EveryAlternativeKeepsItsValue) {
    int object = 0;
    const CVector3 vec(1.0, -2.5, 3.0);
    CValueArray arr;
    arr.Add(1);
    arr.Add(L"two");

    const CValue b(true), i(-42), d(2.5), f(1.5f), n("narrow"), w(L"wide"), s(CString(L"cs")),
        r(CRef::FromId(9)), p(static_cast<void*>(&object)), v(vec), a(arr);
    EXPECT_EQ(b.GetType(), ORV::ovBool);
    EXPECT_EQ(i.GetType(), ORV::ovInt4);
    EXPECT_EQ(d.GetType(), ORV::ovDouble);
    EXPECT_EQ(f.GetType(), ORV::ovFloat);
    EXPECT_EQ(n.GetType(), ORV::ovLPStr);
    EXPECT_EQ(w.GetType(), ORV::ovString);
    EXPECT_EQ(s.GetType(), ORV::ovString);
    EXPECT_EQ(r.GetType(), ORV::ovRef);
    EXPECT_EQ(p.GetType(), ORV::ovPtr);
    EXPECT_EQ(v.GetType(), ORV::ovVector3);
    EXPECT_EQ(a.GetType(), ORV::ovArray);

    EXPECT_TRUE(static_cast<bool>(b));
    EXPECT_EQ(static_cast<int>(i), -42);
    EXPECT_EQ(static_cast<double>(d), 2.5);
    EXPECT_EQ(static_cast<float>(f), 1.5f);
    EXPECT_EQ(CString(n), L"narrow");
    EXPECT_EQ(CString(w), L"wide");
    EXPECT_EQ(CString(s), L"cs");
    EXPECT_EQ(static_cast<CRef>(r).GetId(), 9u);
    EXPECT_EQ(static_cast<void*>(p), static_cast<void*>(&object));
    EXPECT_EQ(static_cast<CVector3>(v), vec);
    const CValueArray& back = a;
    ASSERT_EQ(back.GetCount(), 2);
    EXPECT_EQ(static_cast<int>(back[0]), 1);
    EXPECT_EQ(CString(back[1]), L"two");
}

TEST(CValue, AssignmentFromEveryKind) {
    CValue v;
    v = 3;
    EXPECT_EQ(v.GetType(), ORV::ovInt4);
    v = 2.0;
    EXPECT_EQ(v.GetType(), ORV::ovDouble);
    v = 2.0f;
    EXPECT_EQ(v.GetType(), ORV::ovFloat);
    v = true;
    EXPECT_EQ(v.GetType(), ORV::ovBool);
    v = "n";
    EXPECT_EQ(v.GetType(), ORV::ovLPStr);
    v = L"w";
    EXPECT_EQ(v.GetType(), ORV::ovString);
    v = CString(L"c");
    EXPECT_EQ(v.GetType(), ORV::ovString);
    v = CRef::FromId(3);
    EXPECT_EQ(v.GetType(), ORV::ovRef);
    v = CVector3(1, 2, 3);
    EXPECT_EQ(v.GetType(), ORV::ovVector3);
    v = CValueArray(2);
    EXPECT_EQ(v.GetType(), ORV::ovArray);
    v = nullptr;
    EXPECT_EQ(v.GetType(), ORV::ovPtr);
    v.Clear();
    EXPECT_TRUE(v.IsEmpty());
}

TEST(CValue, LargeIntegersKeepAllBits) {
    const CValue big(5000000000LL);
    EXPECT_EQ(big.GetType(), ORV::ovInt8);
    EXPECT_EQ(Text(big), L"5000000000");
    EXPECT_EQ(static_cast<double>(big), 5e9);
    EXPECT_EQ(static_cast<int>(big), INT_MAX);  // saturates
    EXPECT_EQ(static_cast<long>(big), 5000000000L);
    EXPECT_EQ(CValue(4294967295u).GetType(), ORV::ovInt8);
    EXPECT_EQ(Text(CValue(ULLONG_MAX)), L"9223372036854775807");
    EXPECT_EQ(CValue(INT_MIN).GetType(), ORV::ovInt4);
    EXPECT_EQ(Text(CValue(INT_MIN)), L"-2147483648");
}

// --- Conversions ------------------------------------------------------------------------

TEST(CValue, NumbersConvertByValue) {
    EXPECT_EQ(static_cast<double>(CValue(7)), 7.0);
    EXPECT_EQ(static_cast<double>(CValue(true)), 1.0);
    EXPECT_EQ(static_cast<double>(CValue(0.1f)), static_cast<double>(0.1f));
    EXPECT_EQ(static_cast<float>(CValue(0.1)), 0.1f);
    EXPECT_EQ(static_cast<int>(CValue(true)), 1);
    EXPECT_EQ(static_cast<int>(CValue(false)), 0);
    EXPECT_FALSE(static_cast<bool>(CValue(0)));
    EXPECT_TRUE(static_cast<bool>(CValue(-1)));
    EXPECT_FALSE(static_cast<bool>(CValue(0.0)));
    EXPECT_TRUE(static_cast<bool>(CValue(0.25)));
    EXPECT_FALSE(static_cast<bool>(CValue()));
    EXPECT_EQ(static_cast<int>(CValue()), 0);
    EXPECT_EQ(static_cast<double>(CValue()), 0.0);
}

TEST(CValue, DoubleToIntegerRoundsToNearestAndSaturates) {
    EXPECT_EQ(static_cast<int>(CValue(2.4)), 2);
    EXPECT_EQ(static_cast<int>(CValue(2.5)), 3);
    EXPECT_EQ(static_cast<int>(CValue(-2.5)), -3);
    EXPECT_EQ(static_cast<int>(CValue(2.9999999)), 3);
    EXPECT_EQ(static_cast<int>(CValue(1e20)), INT_MAX);
    EXPECT_EQ(static_cast<int>(CValue(-1e20)), INT_MIN);
    EXPECT_EQ(static_cast<int>(CValue(std::nan(""))), 0);
    EXPECT_EQ(static_cast<long>(CValue(-7.6)), -8L);
}

TEST(CValue, TextParsesInTheCLocale) {
    EXPECT_EQ(static_cast<int>(CValue(L"  42 ")), 42);
    EXPECT_EQ(static_cast<int>(CValue("+7")), 7);
    EXPECT_EQ(static_cast<int>(CValue(L"-13")), -13);
    EXPECT_EQ(static_cast<double>(CValue(L"3.25")), 3.25);
    EXPECT_EQ(static_cast<double>(CValue(L"1e3")), 1000.0);
    EXPECT_EQ(static_cast<double>(CValue(L"-0.5")), -0.5);
    EXPECT_EQ(static_cast<int>(CValue(L"3.5")), 4);
    EXPECT_EQ(static_cast<double>(CValue(L"1e999")), HUGE_VAL);
    EXPECT_EQ(static_cast<double>(CValue(L"1e-999")), 0.0);
    EXPECT_TRUE(std::isnan(static_cast<double>(CValue(L"nan"))));
    // Not a number as a whole: 0.
    EXPECT_EQ(static_cast<double>(CValue(L"3,5")), 0.0);
    EXPECT_EQ(static_cast<double>(CValue(L"abc")), 0.0);
    EXPECT_EQ(static_cast<double>(CValue(L"12abc")), 0.0);
    EXPECT_EQ(static_cast<double>(CValue(L"")), 0.0);
    EXPECT_EQ(static_cast<double>(CValue(L"0x10")), 0.0);
    EXPECT_EQ(static_cast<double>(CValue(L"\u0663")), 0.0);  // a non-ASCII digit
}

TEST(CValue, TextToBool) {
    EXPECT_TRUE(static_cast<bool>(CValue(L"true")));
    EXPECT_TRUE(static_cast<bool>(CValue(L"TRUE")));
    EXPECT_TRUE(static_cast<bool>(CValue("True")));
    EXPECT_FALSE(static_cast<bool>(CValue(L"false")));
    EXPECT_TRUE(static_cast<bool>(CValue(L"1")));
    EXPECT_FALSE(static_cast<bool>(CValue(L"0")));
    EXPECT_FALSE(static_cast<bool>(CValue(L"yes")));
    EXPECT_FALSE(static_cast<bool>(CValue(L"")));
    EXPECT_EQ(static_cast<int>(CValue(L"true")), 1);
}

TEST(CValue, PointerTravelsUnchanged) {
    double payload = 1.0;
    const CValue v(static_cast<void*>(&payload));
    void* back = v;
    EXPECT_EQ(back, &payload);
    EXPECT_TRUE(static_cast<bool>(v));
    EXPECT_FALSE(static_cast<bool>(CValue(nullptr)));
    EXPECT_EQ(static_cast<void*>(CValue(3)), nullptr);
    EXPECT_EQ(static_cast<double>(v), 0.0);
}

TEST(CValue, RefConversions) {
    EXPECT_EQ(static_cast<CRef>(CValue(CRef::FromId(12))).GetId(), 12u);
    EXPECT_TRUE(static_cast<bool>(CValue(CRef::FromId(12))));
    EXPECT_FALSE(static_cast<bool>(CValue(CRef())));
    EXPECT_EQ(static_cast<CRef>(CValue(5)).GetId(), 0u);
    EXPECT_EQ(static_cast<CRef>(CValue(L"")).GetId(), 0u);
}

TEST(CValue, RefOfSceneObjectAsTextAndBack) {
    ORV::Null null;
    ASSERT_EQ(ORV::Application().GetActiveSceneRoot().AddNull(L"ValueBall", null), ORV::CStatus::OK);
    const CValue v(null);  // a handle goes in as its reference
    EXPECT_EQ(v.GetType(), ORV::ovRef);
    const CString path = v.GetAsText();
    EXPECT_FALSE(path.IsEmpty());
    EXPECT_EQ(path, null.GetRef().GetAsText());
    // The path as a value resolves to the same object.
    const CRef back = CValue(path);
    EXPECT_EQ(back, null.GetRef());
    CValue t(path);
    EXPECT_EQ(t.ChangeType(ORV::ovRef), ORV::CStatus::OK);
    EXPECT_EQ(t.GetType(), ORV::ovRef);
    EXPECT_EQ(static_cast<CRef>(t), null.GetRef());
    CValue missing(L"NoSuchModel.NoSuchObject");
    EXPECT_EQ(missing.ChangeType(ORV::ovRef), ORV::CStatus::InvalidArgument);
    EXPECT_EQ(missing.GetType(), ORV::ovString);
}

TEST(CValue, VectorConversions) {
    const CVector3 v(1.0, -2.5, 1e-300);
    EXPECT_EQ(static_cast<CVector3>(CValue(v)), v);
    EXPECT_EQ(static_cast<CVector3>(CValue(L"1,-2.5,1e-300")), v);
    EXPECT_EQ(static_cast<CVector3>(CValue(L" 1 , -2.5 , 1e-300 ")), v);
    EXPECT_EQ(static_cast<CVector3>(CValue(L"1,2")), CVector3());
    EXPECT_EQ(static_cast<CVector3>(CValue(L"1,x,2")), CVector3());
    CValueArray a;
    a.Add(1);
    a.Add(-2.5);
    a.Add(L"1e-300");
    EXPECT_EQ(static_cast<CVector3>(CValue(a)), v);
    EXPECT_EQ(static_cast<CVector3>(CValue(3.0)), CVector3());
}

TEST(CValue, ArrayReferenceConvertsInPlace) {
    CValue v(3);
    CValueArray& a = v;
    EXPECT_EQ(v.GetType(), ORV::ovArray);
    ASSERT_EQ(a.GetCount(), 1);
    EXPECT_EQ(static_cast<int>(a[0]), 3);
    a.Add(L"x");
    const CValueArray& again = static_cast<const CValue&>(v);
    EXPECT_EQ(again.GetCount(), 2);

    CValue e;
    CValueArray& ea = e;
    EXPECT_EQ(ea.GetCount(), 0);
    EXPECT_EQ(e.GetType(), ORV::ovArray);

    const CValue scalar(5);
    const CValueArray& none = scalar;
    EXPECT_EQ(none.GetCount(), 0);
    EXPECT_EQ(scalar.GetType(), ORV::ovInt4);
}

// --- Text form ------------------------------------------------------------------------

TEST(CValue, TextOfSimpleValues) {
    EXPECT_EQ(Text(CValue()), L"");
    EXPECT_EQ(Text(CValue(true)), L"true");
    EXPECT_EQ(Text(CValue(false)), L"false");
    EXPECT_EQ(Text(CValue(0)), L"0");
    EXPECT_EQ(Text(CValue(-17)), L"-17");
    EXPECT_EQ(Text(CValue("n\xC3")), CString("n\xC3").std());
    EXPECT_EQ(Text(CValue(L"w\u00E9")), L"w\u00E9");
    EXPECT_EQ(Text(CValue(nullptr)), L"0x0");
    EXPECT_EQ(Text(CValue(reinterpret_cast<void*>(0xABC0))), L"0xabc0");
}

TEST(CValue, TextOfDoublesIsShortestRoundTrip) {
    EXPECT_EQ(Text(CValue(0.1)), L"0.1");
    EXPECT_EQ(Text(CValue(1.0)), L"1");
    EXPECT_EQ(Text(CValue(100.0)), L"100");
    EXPECT_EQ(Text(CValue(-0.0)), L"-0");
    EXPECT_EQ(Text(CValue(0.0)), L"0");
    EXPECT_EQ(Text(CValue(1e-300)), L"1e-300");
    EXPECT_EQ(Text(CValue(1e21)), L"1e+21");
    EXPECT_EQ(Text(CValue(123456.789)), L"123456.789");
    EXPECT_EQ(Text(CValue(0.1 + 0.2)), L"0.30000000000000004");
    EXPECT_EQ(Text(CValue(1.7976931348623157e308)), L"1.7976931348623157e+308");
    EXPECT_EQ(Text(CValue(3.141592653589793)), L"3.141592653589793");
    EXPECT_EQ(Text(CValue(HUGE_VAL)), L"inf");
    EXPECT_EQ(Text(CValue(-HUGE_VAL)), L"-inf");
    EXPECT_EQ(Text(CValue(std::nan(""))), L"nan");
    EXPECT_EQ(Text(CValue(0.1f)), L"0.1");
    EXPECT_EQ(Text(CValue(16777217.0f)), L"16777216");
}

TEST(CValue, TextOfDoublesReadsBackBitExactly) {
    std::vector<double> values = {0.1,
                                  1e-300,
                                  -0.0,
                                  0.0,
                                  1.7976931348623157e308,
                                  -1.7976931348623157e308,
                                  DBL_MIN,
                                  DBL_TRUE_MIN,
                                  1.0 / 3.0,
                                  2.0 / 3.0,
                                  1e15,
                                  1e16,
                                  1e17,
                                  123456789012345678.0,
                                  5e-324,
                                  9007199254740993.0,
                                  0.3};
    std::mt19937_64 rng(20240611);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::uniform_int_distribution<int> exponent(-300, 300);
    for (int k = 0; k < 20000; ++k) values.push_back(unit(rng) * std::pow(10.0, exponent(rng)));
    for (int k = 0; k < 20000; ++k) {
        // Any bit pattern that is a finite double.
        std::uint64_t bits = rng();
        double d;
        std::memcpy(&d, &bits, sizeof d);
        if (std::isfinite(d)) values.push_back(d);
    }
    for (double d : values) {
        const std::wstring text = Text(CValue(d));
        ASSERT_TRUE(SameBits(ReadBack(text), d)) << std::string(text.begin(), text.end());
        // And through our own reader.
        ASSERT_TRUE(SameBits(static_cast<double>(CValue(text)), d)) << std::string(text.begin(), text.end());
        // Shortest: with 16 or 17 digits, one digit fewer does not read back.
        const int digits = SignificantDigits(text);
        ASSERT_LE(digits, 17);
        if (digits > 15) {
            char shorter[400];
            std::snprintf(shorter, sizeof shorter, "%.*g", digits - 1, d);
            ASSERT_FALSE(SameBits(std::strtod(shorter, nullptr), d)) << shorter;
        }
    }
}

TEST(CValue, TextOfVectorIsCommaSeparated) {
    EXPECT_EQ(Text(CValue(CVector3(1.0, -2.5, 0.1))), L"1,-2.5,0.1");
    EXPECT_EQ(CValue(CVector3(1.0, -2.5, 0.1)).GetAsText().Split(L",").GetCount(), 3);
}

TEST(CValue, TextOfArrayJoinsElements) {
    CValueArray a;
    a.Add(1);
    a.Add(0.5);
    a.Add(L"x");
    a.Add(true);
    EXPECT_EQ(Text(CValue(a)), L"1,0.5,x,true");
    EXPECT_EQ(Text(CValue(CValueArray())), L"");
}

// --- Comparison -----------------------------------------------------------------------

TEST(CValue, EqualityOfSameTypes) {
    EXPECT_TRUE(CValue() == CValue());
    EXPECT_TRUE(CValue(2) == CValue(2));
    EXPECT_FALSE(CValue(2) == CValue(3));
    EXPECT_TRUE(CValue(L"a") == CValue(L"a"));
    EXPECT_FALSE(CValue(L"a") == CValue(L"A"));
    EXPECT_TRUE(CValue(CRef::FromId(4)) == CValue(CRef::FromId(4)));
    EXPECT_FALSE(CValue(CRef::FromId(4)) == CValue(CRef::FromId(5)));
    EXPECT_TRUE(CValue(CVector3(1, 2, 3)) == CValue(CVector3(1, 2, 3)));
    EXPECT_FALSE(CValue(CVector3(1, 2, 3)) == CValue(CVector3(1, 2, 4)));
    EXPECT_TRUE(CValue(nullptr) == CValue(static_cast<void*>(nullptr)));
    CValueArray a, b;
    a.Add(1);
    b.Add(1);
    EXPECT_TRUE(CValue(a) == CValue(b));
    b.Add(2);
    EXPECT_FALSE(CValue(a) == CValue(b));
}

TEST(CValue, NumbersOfDifferentTypesCompareByValue) {
    EXPECT_TRUE(CValue(1) == CValue(1.0));
    EXPECT_TRUE(CValue(1.0) == CValue(1));
    EXPECT_TRUE(CValue(true) == CValue(1));
    EXPECT_TRUE(CValue(0.5f) == CValue(0.5));
    EXPECT_FALSE(CValue(0.1f) == CValue(0.1));
    EXPECT_FALSE(CValue(1) == CValue(1.5));
    EXPECT_TRUE(CValue(5000000000LL) == CValue(5e9));
    EXPECT_FALSE(CValue(9007199254740993LL) == CValue(9007199254740992.0));
    const double nan = std::nan("");
    EXPECT_FALSE(CValue(nan) == CValue(nan));
    EXPECT_TRUE(CValue(nan) != CValue(nan));
}

TEST(CValue, NarrowAndWideTextCompareAsText) {
    EXPECT_TRUE(CValue("abc") == CValue(L"abc"));
    EXPECT_TRUE(CValue(L"abc") == CValue("abc"));
    EXPECT_FALSE(CValue("abc") == CValue(L"abd"));
}

TEST(CValue, DifferentKindsAreNotEqual) {
    EXPECT_FALSE(CValue(L"1") == CValue(1));
    EXPECT_FALSE(CValue() == CValue(0));
    EXPECT_FALSE(CValue(CRef()) == CValue(0));
    EXPECT_FALSE(CValue(nullptr) == CValue(0));
    EXPECT_FALSE(CValue(CVector3()) == CValue(0));
}

// --- ChangeType -----------------------------------------------------------------------

TEST(CValue, ChangeTypeBetweenNumbersAndText) {
    CValue v(L"12");
    EXPECT_EQ(v.ChangeType(ORV::ovInt4), ORV::CStatus::OK);
    EXPECT_EQ(v.GetType(), ORV::ovInt4);
    EXPECT_EQ(static_cast<int>(v), 12);
    EXPECT_EQ(v.ChangeType(ORV::ovDouble), ORV::CStatus::OK);
    EXPECT_EQ(v.GetType(), ORV::ovDouble);
    EXPECT_EQ(static_cast<double>(v), 12.0);
    EXPECT_EQ(v.ChangeType(ORV::ovString), ORV::CStatus::OK);
    EXPECT_EQ(v.GetType(), ORV::ovString);
    EXPECT_EQ(CString(v), L"12");
    EXPECT_EQ(v.ChangeType(ORV::ovLPStr), ORV::CStatus::OK);
    EXPECT_EQ(v.GetType(), ORV::ovLPStr);
    EXPECT_EQ(v.ChangeType(ORV::ovBool), ORV::CStatus::OK);
    EXPECT_EQ(v.GetType(), ORV::ovBool);
    EXPECT_TRUE(static_cast<bool>(v));

    CValue r(2.6);
    EXPECT_EQ(r.ChangeType(ORV::ovInt4), ORV::CStatus::OK);
    EXPECT_EQ(static_cast<int>(r), 3);
    CValue f(0.5);
    EXPECT_EQ(f.ChangeType(ORV::ovFloat), ORV::CStatus::OK);
    EXPECT_EQ(f.GetType(), ORV::ovFloat);
    EXPECT_EQ(static_cast<float>(f), 0.5f);
}

TEST(CValue, ChangeTypeRefusesWhatDoesNotConvert) {
    CValue t(L"abc");
    EXPECT_EQ(t.ChangeType(ORV::ovDouble), ORV::CStatus::InvalidArgument);
    EXPECT_EQ(t.GetType(), ORV::ovString);
    EXPECT_EQ(CString(t), L"abc");
    CValue big(70000);
    EXPECT_EQ(big.ChangeType(ORV::ovInt2), ORV::CStatus::InvalidArgument);
    EXPECT_EQ(static_cast<int>(big), 70000);
    CValue byte(255);
    EXPECT_EQ(byte.ChangeType(ORV::ovUByte), ORV::CStatus::OK);
    EXPECT_EQ(byte.GetType(), ORV::ovUByte);
    EXPECT_EQ(static_cast<int>(byte), 255);
    CValue over(256);
    EXPECT_EQ(over.ChangeType(ORV::ovUByte), ORV::CStatus::InvalidArgument);
    CValue neg(-1);
    EXPECT_EQ(neg.ChangeType(ORV::ovUInt4), ORV::CStatus::InvalidArgument);
    CValue huge(1e300);
    EXPECT_EQ(huge.ChangeType(ORV::ovFloat), ORV::CStatus::InvalidArgument);
    EXPECT_EQ(huge.ChangeType(ORV::ovInt8), ORV::CStatus::InvalidArgument);
    CValue ptr(nullptr);
    EXPECT_EQ(ptr.ChangeType(ORV::ovInt4), ORV::CStatus::InvalidArgument);
    CValue any(3);
    EXPECT_EQ(any.ChangeType(static_cast<ORV::ovValueType>(99)), ORV::CStatus::InvalidArgument);
    EXPECT_EQ(any.ChangeType(ORV::ovPtr), ORV::CStatus::InvalidArgument);
    EXPECT_EQ(any.GetType(), ORV::ovInt4);
}

TEST(CValue, ChangeTypeToVectorArrayAndEmpty) {
    CValue t(L"1,2,3");
    EXPECT_EQ(t.ChangeType(ORV::ovVector3), ORV::CStatus::OK);
    EXPECT_EQ(static_cast<CVector3>(t), CVector3(1, 2, 3));
    EXPECT_EQ(t.ChangeType(ORV::ovString), ORV::CStatus::OK);
    EXPECT_EQ(CString(t), L"1,2,3");
    CValue bad(L"1,2");
    EXPECT_EQ(bad.ChangeType(ORV::ovVector3), ORV::CStatus::InvalidArgument);
    CValue s(4);
    EXPECT_EQ(s.ChangeType(ORV::ovArray), ORV::CStatus::OK);
    EXPECT_EQ(s.GetType(), ORV::ovArray);
    EXPECT_EQ(static_cast<const CValueArray&>(static_cast<const CValue&>(s)).GetCount(), 1);
    EXPECT_EQ(s.ChangeType(ORV::ovEmpty), ORV::CStatus::OK);
    EXPECT_TRUE(s.IsEmpty());
}
