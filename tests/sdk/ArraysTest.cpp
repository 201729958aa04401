// The SDK arrays, CTime and CStatus.
#include <gtest/gtest.h>
#include <orv/Arrays.h>
#include <orv/CStatus.h>
#include <orv/CTime.h>
#include <orv/CValue.h>
#include <orv/Math.h>

using namespace ORV;

TEST(CValueArray, SizedConstructionGivesEmptyValues) {
    CValueArray a(3);
    ASSERT_EQ(a.GetCount(), 3);
    for (long i = 0; i < 3; ++i) EXPECT_TRUE(a[i].IsEmpty());
    EXPECT_EQ(CValueArray().GetCount(), 0);
    EXPECT_EQ(CValueArray(-4).GetCount(), 0);
}

TEST(CValueArray, AddResizeClear) {
    CValueArray a;
    a.Add(1);
    a.Add(L"two");
    a.Add(3.5);
    ASSERT_EQ(a.GetCount(), 3);
    EXPECT_EQ(static_cast<int>(a[0]), 1);
    EXPECT_EQ(CString(a[1]), L"two");
    EXPECT_EQ(static_cast<double>(a[2]), 3.5);
    a[1] = 7;
    EXPECT_EQ(static_cast<int>(a[1]), 7);
    a.Resize(5);
    ASSERT_EQ(a.GetCount(), 5);
    EXPECT_EQ(static_cast<double>(a[2]), 3.5);
    EXPECT_TRUE(a[4].IsEmpty());
    a.Resize(1);
    ASSERT_EQ(a.GetCount(), 1);
    EXPECT_EQ(static_cast<int>(a[0]), 1);
    a.Clear();
    EXPECT_EQ(a.GetCount(), 0);
}

TEST(CValueArray, OutOfRangeIndexTouchesNothing) {
    CValueArray a;
    a.Add(1);
    const CValueArray& c = a;
    EXPECT_TRUE(c[5].IsEmpty());
    EXPECT_TRUE(c[-1].IsEmpty());
    a[9] = 42;  // goes to scratch
    EXPECT_EQ(a.GetCount(), 1);
    EXPECT_TRUE(a[9].IsEmpty());
    EXPECT_EQ(static_cast<int>(a[0]), 1);
}

TEST(CValueArray, EqualityAndCopies) {
    CValueArray a, b;
    a.Add(1);
    a.Add(L"x");
    b = a;
    EXPECT_TRUE(a == b);
    b[0] = 2;
    EXPECT_FALSE(a == b);
    EXPECT_TRUE(a != b);
    EXPECT_EQ(static_cast<int>(a[0]), 1);  // the copy is independent
    CValueArray nested;
    nested.Add(CValue(a));
    CValueArray nested2 = nested;
    EXPECT_TRUE(nested == nested2);
}

TEST(CValueArray, RangeFor) {
    CValueArray a;
    a.Add(1);
    a.Add(2);
    a.Add(3);
    int sum = 0;
    for (const CValue& v : a) sum += static_cast<int>(v);
    EXPECT_EQ(sum, 6);
}

TEST(CRefArray, IndexAddFindClear) {
    CRefArray a;
    a.Add(CRef::FromId(5));
    a.Add(CRef::FromId(8));
    ASSERT_EQ(a.GetCount(), 2);
    EXPECT_EQ(a[1].GetId(), 8u);
    EXPECT_EQ(a.GetItem(0L).GetId(), 5u);
    EXPECT_EQ(a.GetItem(7L).GetId(), 0u);
    EXPECT_EQ(a.GetItem(-1L).GetId(), 0u);
    EXPECT_EQ(a.Find(CRef::FromId(8)), 1);
    EXPECT_EQ(a.Find(CRef::FromId(9)), -1);
    a[0] = CRef::FromId(6);
    EXPECT_EQ(a[0].GetId(), 6u);
    a.Clear();
    EXPECT_EQ(a.GetCount(), 0);
}

TEST(CStringArray, SizedAddAssign) {
    CStringArray a(2);
    EXPECT_EQ(a.GetCount(), 2);
    EXPECT_TRUE(a[0].IsEmpty());
    a[0] = L"first";
    a.Add(L"third");
    CStringArray b;
    b = a;
    ASSERT_EQ(b.GetCount(), 3);
    EXPECT_EQ(b[0], L"first");
    EXPECT_EQ(b[2], L"third");
    EXPECT_TRUE(a == b);
}

TEST(CLongArray, RawArrayIsTheElements) {
    CLongArray a(3);
    long* p = a.GetArray();
    p[0] = 4;
    p[1] = -5;
    p[2] = 6;
    EXPECT_EQ(a[0], 4);
    EXPECT_EQ(a[1], -5);
    a.Add(7);
    EXPECT_EQ(a.GetCount(), 4);
    EXPECT_EQ(a[3], 7);
    EXPECT_EQ(a[4], 0);
    a.Resize(2);
    EXPECT_EQ(a.GetCount(), 2);
}

TEST(CDoubleArray, SizedAndAdd) {
    CDoubleArray a(2);
    EXPECT_EQ(a[0], 0.0);
    a[1] = 2.5;
    a.Add(-1.0);
    ASSERT_EQ(a.GetCount(), 3);
    EXPECT_EQ(a.GetArray()[1], 2.5);
    EXPECT_EQ(a[2], -1.0);
    CDoubleArray b = a;
    b.Clear();
    EXPECT_EQ(a.GetCount(), 3);
    EXPECT_EQ(b.GetCount(), 0);
}

TEST(CTimeArray, HoldsFrames) {
    CTimeArray a(1);
    a[0] = CTime(12.0);
    a.Add(CTime(1.0, ovSeconds, 30.0));
    ASSERT_EQ(a.GetCount(), 2);
    EXPECT_EQ(static_cast<double>(a[0]), 12.0);
    EXPECT_EQ(static_cast<double>(a[1]), 30.0);
}

TEST(VectorArrays, Vector3And4) {
    MATH::CVector3Array a(2);
    a[1].Set(1, 2, 3);
    a.Add(MATH::CVector3(4, 5, 6));
    ASSERT_EQ(a.GetCount(), 3);
    EXPECT_EQ(a[1], MATH::CVector3(1, 2, 3));
    EXPECT_EQ(a.GetArray()[2], MATH::CVector3(4, 5, 6));
    EXPECT_EQ(a[3], MATH::CVector3());
    a[3].Set(9, 9, 9);  // scratch
    EXPECT_EQ(a.GetCount(), 3);
    MATH::CVector3Array b = a;
    EXPECT_TRUE(a == b);
    a.Clear();
    EXPECT_EQ(a.GetCount(), 0);

    MATH::CVector4Array c(1);
    c[0].Set(1, 2, 3, 4);
    c.Add(MATH::CVector4(0, 0, 0, 1));
    ASSERT_EQ(c.GetCount(), 2);
    EXPECT_EQ(c[0].GetW(), 4.0);
    EXPECT_EQ(c[1], MATH::CVector4(0, 0, 0, 1));
    c.Resize(1);
    EXPECT_EQ(c.GetCount(), 1);
}

TEST(CTime, FramesAndSeconds) {
    EXPECT_EQ(static_cast<double>(CTime()), 0.0);
    EXPECT_EQ(static_cast<double>(CTime(12.5)), 12.5);
    EXPECT_EQ(static_cast<double>(CTime(2.0, ovSeconds, 30.0)), 60.0);
    EXPECT_EQ(static_cast<double>(CTime(2.0, ovFrames, 30.0)), 2.0);
    CTime t(50.0);
    EXPECT_EQ(t.GetTime(), 50.0);
    EXPECT_EQ(t.GetTime(ovSeconds, 25.0), 2.0);
    EXPECT_EQ(t.GetTime(ovFrames, 25.0), 50.0);
    EXPECT_EQ(t.GetTime(ovSeconds, 0.0), 0.0);
    t.PutTime(7.0);
    EXPECT_EQ(t.GetTime(), 7.0);
    t.PutTime(0.5, ovSeconds, 24.0);
    EXPECT_EQ(t.GetTime(), 12.0);
    constexpr CTime c(3.0);
    static_assert(c.GetTime() == 3.0);
}

TEST(CStatus, CodesAndComparison) {
    const CStatus ok;
    EXPECT_EQ(ok.GetCode(), CStatus::OK);
    EXPECT_TRUE(ok.Succeeded());
    const CStatus fail(CStatus::Fail);
    EXPECT_FALSE(fail.Succeeded());
    EXPECT_TRUE(fail != CStatus::OK);
    EXPECT_TRUE(CStatus::OK != fail);
    EXPECT_TRUE(ok == CStatus::OK);
    EXPECT_TRUE(CStatus::OK == ok);
    EXPECT_TRUE(ok != fail);
    EXPECT_TRUE(fail == CStatus(CStatus::Fail));
    EXPECT_EQ(CStatus::InvalidArgument, 2);
    EXPECT_EQ(CStatus::NotImpl, 3);
    EXPECT_EQ(CStatus::AccessDenied, 4);
    EXPECT_EQ(CStatus::MemberNotFound, 5);
    EXPECT_EQ(CStatus::Unexpected, 6);
    EXPECT_EQ(CStatus::Abort, 7);
    static_assert(CStatus().Succeeded());
}
