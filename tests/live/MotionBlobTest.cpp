// The operator's motion blob: the bytes written for a recorded motion, the older layouts and
// versions read back, the runtime slot, and damaged blobs. Blobs of every layout are built
// byte by byte here, independently of the writer.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "live/LiveTestSupport.h"
#include "live/Motion.h"
#include "live/RetargetOp.h"

namespace {

using livetest::At;
using livetest::Legs;
using livetest::Messages;
using ORV::MATH::CVector3;
using ZUK::Motion;
using ZUK::RetargetOp;
using Bytes = std::vector<unsigned char>;

// ---- An independent writer ----------------------------------------------------------------------

template <typename T>
void Put(Bytes& b, T v) {
    unsigned char raw[sizeof(T)];
    std::memcpy(raw, &v, sizeof(T));
    b.insert(b.end(), raw, raw + sizeof(T));
}

template <typename T>
T Get(const unsigned char* b, size_t offset) {
    T v;
    std::memcpy(&v, b + offset, sizeof(T));
    return v;
}

struct Timing {
    std::wstring name;
    std::vector<double> times[6];
};

// Pose record of node n at frame f, and normal of plane p at frame f, as the tests define them.
double PoseValue(int n, int f, int c) { return 1000.0 * n + 10.0 * f + c + 0.25; }
double NormalValue(int p, int f, int c) { return -100.0 * p - f - 0.125 * c; }

struct BlobSpec {
    uint32_t frames = 3, nodes = 4, planes = 2;
    double version = 1.4;
    int32_t insertion = 0;
    std::vector<Timing> timings;
    double baseScale = 1.0;
};

// The present layout: magic, zero slot and reserved bytes, counts, records, trailer.
Bytes MakeBlob(const BlobSpec& s) {
    Bytes b;
    Put<uint32_t>(b, 0x38DEF311u);
    b.resize(256, 0);
    Put<uint32_t>(b, s.frames);
    Put<uint32_t>(b, s.nodes);
    Put<uint32_t>(b, s.planes);
    for (uint32_t n = 0; n < s.nodes; ++n)
        for (uint32_t f = 0; f < s.frames; ++f)
            for (int c = 0; c < 7; ++c) Put<double>(b, PoseValue(n, f, c));
    for (uint32_t p = 0; p < s.planes; ++p)
        for (uint32_t f = 0; f < s.frames; ++f)
            for (int c = 0; c < 3; ++c) Put<double>(b, NormalValue(p, f, c));
    for (uint32_t n = 0; n < s.nodes; ++n) Put<int32_t>(b, static_cast<int32_t>(n) - 1);
    Put<double>(b, s.version);
    if (s.version >= 1.3) {
        Put<int32_t>(b, s.insertion);
        Put<int32_t>(b, static_cast<int32_t>(s.timings.size()));
        for (const Timing& t : s.timings) {
            Put<uint32_t>(b, static_cast<uint32_t>(t.name.size() + 1));
            for (wchar_t c : t.name) Put<uint32_t>(b, static_cast<uint32_t>(c));
            Put<uint32_t>(b, 0);
            for (const auto& times : t.times) {
                Put<uint32_t>(b, static_cast<uint32_t>(times.size()));
                for (double v : times) Put<double>(b, v);
            }
        }
    }
    if (s.version >= 1.4) Put<double>(b, s.baseScale);
    return b;
}

// The earlier layout of the same blob: 8 bytes of header, then the payload from the counts on.
Bytes OldLayout(const Bytes& present) {
    Bytes b = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    b.insert(b.end(), present.begin() + 256, present.end());
    return b;
}

class MotionBlob : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::NewScene();
        ORV::Null null;
        root().AddNull(L"Body", null);
        ORV::CRefArray children;
        children.Add(null.GetRef());
        ASSERT_EQ(root().AddModel(children, L"Rig", model), ORV::CStatus::OK);
        ORV::Property property;
        ASSERT_EQ(model.AddProperty(L"UserDataBlob", false, RetargetOp::DATA_NAME, property),
                  ORV::CStatus::OK);
        blob = ORV::UserDataBlob(property.GetRef());
        ASSERT_TRUE(blob.IsValid());
        orvhost::ClearLog();
    }
    static ORV::Model root() { return ORV::Application().GetActiveSceneRoot(); }

    void Put(const Bytes& bytes) {
        ASSERT_EQ(blob.PutValue(bytes.data(), static_cast<unsigned int>(bytes.size())), ORV::CStatus::OK);
    }
    Bytes Stored() {
        const unsigned char* bytes = nullptr;
        unsigned int size = 0;
        blob.GetValue(bytes, size);
        return bytes ? Bytes(bytes, bytes + size) : Bytes();
    }
    // Every pose, normal and source of a loaded operator against the tests' definitions.
    void ExpectPlays(const RetargetOp& op, const BlobSpec& s) {
        ASSERT_TRUE(op.loaded);
        ASSERT_EQ(op.numFrames, static_cast<int>(s.frames));
        const auto* poses = reinterpret_cast<const unsigned char*>(op.poses);
        const auto* normals = reinterpret_cast<const unsigned char*>(op.normals);
        const auto* sources = reinterpret_cast<const unsigned char*>(op.sourceNodes);
        for (uint32_t n = 0; n < s.nodes; ++n)
            for (uint32_t f = 0; f < s.frames; ++f)
                for (int c = 0; c < 7; ++c)
                    ASSERT_EQ(Get<double>(poses, ((n * s.frames + f) * 7 + c) * 8), PoseValue(n, f, c));
        for (uint32_t p = 0; p < s.planes; ++p)
            for (uint32_t f = 0; f < s.frames; ++f)
                for (int c = 0; c < 3; ++c)
                    ASSERT_EQ(Get<double>(normals, ((p * s.frames + f) * 3 + c) * 8), NormalValue(p, f, c));
        for (uint32_t n = 0; n < s.nodes; ++n)
            ASSERT_EQ(Get<int32_t>(sources, n * 4), static_cast<int32_t>(n) - 1);
    }

    ORV::Model model;
    ORV::UserDataBlob blob;
};

const std::wstring kDamaged(size_t size) {
    return L"The motion in ZUKRetargetOp is damaged: its counts do not fit its " + std::to_wstring(size) +
           L" bytes. Nothing will play.";
}

// ---- Writing ---------------------------------------------------------------------------------------

// A recorded motion on two legs (7 nodes, 2 planes) with recognisable poses and normals.
void FillMotion(Legs& legs, Motion& motion) {
    for (int n = 0; n < legs.structure->numNodes; ++n)
        for (long f = 0; f < motion.frames; ++f) {
            motion.globalPoses[n][f] = At(n, 2.0 * f, -0.5 * n);
            motion.globalPoses[n][f].SetRotationFromAxisAngle(CVector3(0, 0, 1), 0.1 * (n + f));
        }
    for (int p = 0; p < 2; ++p)
        for (long f = 0; f < motion.frames; ++f) motion.planeNormals[p][f].Set(p, f, 1);
}

TEST_F(MotionBlob, AMotionWithoutKeyTimingStillHasVersionInsertionCountAndBaseScale) {
    Legs legs(2, 2);
    legs.target.legScale = 1.75;
    legs.target.nodes[0].translationSource = 0;
    Motion motion(3, &legs.target, &legs.source);
    FillMotion(legs, motion);
    ASSERT_TRUE(RetargetOp::stuffMotionDataIntoBlob(blob, motion, 12));
    const Bytes b = Stored();
    const size_t tail = 268 + 3 * (56 * 7 + 24 * 2) + 4 * 7;
    ASSERT_EQ(b.size(), tail + 16 + 8);
    EXPECT_EQ(Get<uint32_t>(b.data(), 0), 0x38DEF311u);
    for (size_t i = 4; i < 256; ++i) ASSERT_EQ(b[i], 0) << i;
    EXPECT_EQ(Get<uint32_t>(b.data(), 256), 3u);
    EXPECT_EQ(Get<uint32_t>(b.data(), 260), 7u);
    EXPECT_EQ(Get<uint32_t>(b.data(), 264), 2u);
    // Node 2 at frame 1: translation, then the quaternion w first (turn of 0.3 about Z).
    const size_t pose = 268 + (2 * 3 + 1) * 56;
    EXPECT_DOUBLE_EQ(Get<double>(b.data(), pose), 2.0);
    EXPECT_DOUBLE_EQ(Get<double>(b.data(), pose + 8), 2.0);
    EXPECT_DOUBLE_EQ(Get<double>(b.data(), pose + 16), -1.0);
    EXPECT_NEAR(Get<double>(b.data(), pose + 24), std::cos(0.15), 1e-12);
    EXPECT_NEAR(Get<double>(b.data(), pose + 32), 0.0, 1e-12);
    EXPECT_NEAR(Get<double>(b.data(), pose + 40), 0.0, 1e-12);
    EXPECT_NEAR(Get<double>(b.data(), pose + 48), std::sin(0.15), 1e-12);
    // Plane 1 at frame 2.
    const size_t normal = 268 + 3 * 56 * 7 + (1 * 3 + 2) * 24;
    EXPECT_EQ(Get<double>(b.data(), normal), 1.0);
    EXPECT_EQ(Get<double>(b.data(), normal + 8), 2.0);
    EXPECT_EQ(Get<double>(b.data(), normal + 16), 1.0);
    const size_t sources = 268 + 3 * (56 * 7 + 24 * 2);
    EXPECT_EQ(Get<int32_t>(b.data(), sources), 0);
    EXPECT_EQ(Get<int32_t>(b.data(), sources + 4), -1);
    EXPECT_EQ(Get<int32_t>(b.data(), sources + 4 * Legs::Foot(1)), Legs::Foot(1));
    EXPECT_EQ(Get<double>(b.data(), tail), 1.4);
    EXPECT_EQ(Get<int32_t>(b.data(), tail + 8), 12);
    EXPECT_EQ(Get<int32_t>(b.data(), tail + 12), 0);
    EXPECT_EQ(Get<double>(b.data(), tail + 16), 1.75);
}

TEST_F(MotionBlob, KeyTimingRecordsUse32BitCharactersAndAnEmptyNameHoldsItsTerminatorAlone) {
    Legs legs(1, 1);
    legs.source.keyTiming = new ZUK::NodeKeyTiming[2];
    legs.source.numKeyTiming = 2;
    legs.source.keyTiming[0].name = L"lfoot\u00e9";
    legs.source.keyTiming[0].times[0].Add(1.0);
    legs.source.keyTiming[0].times[0].Add(2.5);
    legs.source.keyTiming[0].times[5].Add(-3.0);
    Motion motion(1, &legs.target, &legs.source);
    ASSERT_TRUE(RetargetOp::stuffMotionDataIntoBlob(blob, motion, -4));
    const Bytes b = Stored();
    const size_t tail = 268 + 1 * (56 * 4 + 24 * 1) + 4 * 4;
    const size_t first = 4 + 7 * 4 + 6 * 4 + 3 * 8, second = 4 + 4 + 6 * 4;
    ASSERT_EQ(b.size(), tail + 16 + first + second + 8);
    EXPECT_EQ(Get<int32_t>(b.data(), tail + 8), -4);
    EXPECT_EQ(Get<int32_t>(b.data(), tail + 12), 2);
    size_t at = tail + 16;
    EXPECT_EQ(Get<uint32_t>(b.data(), at), 7u);
    const wchar_t* name = L"lfoot\u00e9";
    for (int c = 0; c < 7; ++c)
        EXPECT_EQ(Get<uint32_t>(b.data(), at + 4 + 4 * c), static_cast<uint32_t>(name[c]));
    at += 4 + 28;
    const uint32_t counts[6] = {2, 0, 0, 0, 0, 1};
    for (int a = 0; a < 6; ++a) {
        EXPECT_EQ(Get<uint32_t>(b.data(), at), counts[a]) << a;
        at += 4 + 8 * counts[a];
    }
    EXPECT_EQ(Get<double>(b.data(), tail + 16 + 4 + 28 + 4), 1.0);
    EXPECT_EQ(Get<double>(b.data(), tail + 16 + 4 + 28 + 12), 2.5);
    EXPECT_EQ(Get<double>(b.data(), at - 8), -3.0);
    // The empty name: L = 1 and the terminator alone.
    EXPECT_EQ(Get<uint32_t>(b.data(), at), 1u);
    EXPECT_EQ(Get<uint32_t>(b.data(), at + 4), 0u);
    for (int a = 0; a < 6; ++a) EXPECT_EQ(Get<uint32_t>(b.data(), at + 8 + 4 * a), 0u);
    EXPECT_EQ(Get<double>(b.data(), at + second), 1.0);

    // And it reads back.
    RetargetOp op;
    op.LoadMotionDataFromUDB(blob);
    ASSERT_TRUE(op.loaded);
    EXPECT_EQ(op.insertionFrame, -4);
    ASSERT_EQ(op.keyTimingCount, 2);
    EXPECT_EQ(std::wstring(op.keyTimings[0].name.GetWideString()), L"lfoot\u00e9");
    EXPECT_EQ(op.keyTimings[0].times[0], legs.source.keyTiming[0].times[0]);
    EXPECT_EQ(op.keyTimings[0].times[5], legs.source.keyTiming[0].times[5]);
    EXPECT_EQ(op.keyTimings[0].times[1].GetCount(), 0);
    EXPECT_EQ(std::wstring(op.keyTimings[1].name.GetWideString()), L"");
}

// ---- Reading the versions --------------------------------------------------------------------------

TEST_F(MotionBlob, Version14ReadsInsertionFrameKeyTimingAndBaseScale) {
    BlobSpec s;
    s.insertion = 25;
    s.baseScale = 0.8;
    s.timings.resize(1);
    s.timings[0].name = L"rhand";
    s.timings[0].times[3] = {0.0, 4.0, 9.0};
    Put(MakeBlob(s));
    RetargetOp op;
    op.LoadMotionDataFromUDB(blob);
    ExpectPlays(op, s);
    EXPECT_EQ(op.insertionFrame, 25);
    EXPECT_EQ(op.baseScale, 0.8);
    ASSERT_EQ(op.keyTimingCount, 1);
    EXPECT_EQ(std::wstring(op.keyTimings[0].name.GetWideString()), L"rhand");
    ASSERT_EQ(op.keyTimings[0].times[3].GetCount(), 3);
    EXPECT_EQ(op.keyTimings[0].times[3][2], 9.0);
    EXPECT_TRUE(Messages(0).empty());
}

TEST_F(MotionBlob, Version13ReadsInsertionFrameAndKeyTimingButKeepsBaseScaleOne) {
    BlobSpec s;
    s.version = 1.3;
    s.insertion = 7;
    s.timings.resize(2);
    s.timings[1].name = L"cog";
    s.timings[1].times[0] = {1.0};
    Put(MakeBlob(s));
    RetargetOp op;
    op.LoadMotionDataFromUDB(blob);
    ExpectPlays(op, s);
    EXPECT_EQ(op.insertionFrame, 7);
    EXPECT_EQ(op.baseScale, 1.0);
    ASSERT_EQ(op.keyTimingCount, 2);
    EXPECT_EQ(std::wstring(op.keyTimings[1].name.GetWideString()), L"cog");
}

TEST_F(MotionBlob, Version12PlaysWithInsertionFrameZeroBaseScaleOneAndNoKeyTiming) {
    BlobSpec s;
    s.version = 1.2;
    const Bytes bytes = MakeBlob(s);
    ASSERT_EQ(bytes.size(), 268 + 3 * (56 * 4 + 24 * 2) + 4 * 4 + 8u);
    Put(bytes);
    RetargetOp op;
    op.LoadMotionDataFromUDB(blob);
    ExpectPlays(op, s);
    EXPECT_EQ(op.insertionFrame, 0);
    EXPECT_EQ(op.baseScale, 1.0);
    EXPECT_EQ(op.keyTimingCount, 0);
    EXPECT_EQ(op.keyTimings, nullptr);
}

TEST_F(MotionBlob, ABlobOfTheEarlierLayoutGrowsBy248BytesAndPlaysTheSameMotion) {
    for (double version : {1.2, 1.3, 1.4}) {
        BlobSpec s;
        s.version = version;
        s.insertion = 3;
        s.timings.resize(1);
        s.timings[0].name = L"lfoot";
        s.timings[0].times[1] = {2.0, 6.0};
        const Bytes present = MakeBlob(s);
        const Bytes old = OldLayout(present);
        Put(old);
        RetargetOp::presynchronize(blob);
        const Bytes grown = Stored();
        ASSERT_EQ(grown.size(), old.size() + 248);
        EXPECT_EQ(grown, present) << version;
        RetargetOp op;
        op.LoadMotionDataFromUDB(blob);
        ExpectPlays(op, s);
        EXPECT_EQ(op.insertionFrame, version >= 1.3 ? 3 : 0);
    }
}

// ---- The runtime slot -------------------------------------------------------------------------------

TEST_F(MotionBlob, AStaleAddressReadsAsNullAfterPresynchronizeUntilTheLoad) {
    Bytes bytes = MakeBlob(BlobSpec());
    for (int i = 4; i < 12; ++i) bytes[i] = static_cast<unsigned char>(0xA0 + i);
    Put(bytes);
    EXPECT_NE(RetargetOp::GetRetargetOpPointer(blob), nullptr);
    RetargetOp::presynchronize(blob);
    EXPECT_EQ(RetargetOp::GetRetargetOpPointer(blob), nullptr);
    EXPECT_EQ(RetargetOp::GetRetargetOpPointer(model), nullptr);
    EXPECT_EQ(Stored().size(), bytes.size());
    RetargetOp op;
    op.LoadMotionDataFromUDB(blob);
    EXPECT_EQ(RetargetOp::GetRetargetOpPointer(blob), &op);
    EXPECT_EQ(RetargetOp::GetRetargetOpPointer(model), &op);
}

TEST_F(MotionBlob, AnEmptyBlobOrAModelWithoutOneGivesNoOperator) {
    EXPECT_EQ(RetargetOp::GetRetargetOpPointer(blob), nullptr);
    EXPECT_EQ(RetargetOp::GetRetargetOpPointer(model), nullptr);
    ORV::Model other;
    ORV::CRefArray none;
    root().AddModel(none, L"Other", other);
    EXPECT_EQ(RetargetOp::GetRetargetOpPointer(other), nullptr);
    RetargetOp::presynchronize(blob);
    EXPECT_TRUE(Stored().empty());
}

// ---- Damaged blobs ------------------------------------------------------------------------------------

// Loads `bytes` and expects the damage message and an operator that plays nothing.
void ExpectRefused(MotionBlob& test, ORV::UserDataBlob& blob, const Bytes& bytes) {
    orvhost::ClearLog();
    blob.PutValue(bytes.data(), static_cast<unsigned int>(bytes.size()));
    RetargetOp op;
    op.LoadMotionDataFromUDB(blob);
    EXPECT_FALSE(op.loaded);
    EXPECT_EQ(op.poses, nullptr);
    EXPECT_EQ(op.keyTimingCount, 0);
    EXPECT_NE(RetargetOp::GetRetargetOpPointer(blob), &op);
    EXPECT_EQ(Messages(4), std::vector<std::wstring>{kDamaged(bytes.size())});
    (void)test;
}

TEST_F(MotionBlob, CountsTooLargeForTheBlobAreRefusedWithAMessage) {
    Bytes bytes = MakeBlob(BlobSpec());
    for (const uint32_t frames : {4u, 0xFFFFFFFFu, 0x80000000u}) {
        Bytes b = bytes;
        std::memcpy(b.data() + 256, &frames, 4);
        ExpectRefused(*this, blob, b);
    }
    // More frames than an int counts, even with nothing stored per frame.
    BlobSpec empty;
    empty.nodes = 0;
    empty.planes = 0;
    Bytes none = MakeBlob(empty);
    const uint32_t many = 0x80000000u;
    std::memcpy(none.data() + 256, &many, 4);
    ExpectRefused(*this, blob, none);
    // Nodes and planes that multiply past 64 bits.
    Bytes b = bytes;
    const uint32_t huge = 0xFFFFFFFFu;
    std::memcpy(b.data() + 256, &huge, 4);
    std::memcpy(b.data() + 260, &huge, 4);
    std::memcpy(b.data() + 264, &huge, 4);
    ExpectRefused(*this, blob, b);
}

TEST_F(MotionBlob, KeyTimingCountsBeyondTheBlobAreRefusedWithAMessage) {
    BlobSpec s;
    s.timings.resize(1);
    s.timings[0].name = L"x";
    s.timings[0].times[2] = {1.0};
    const Bytes good = MakeBlob(s);
    const size_t records = 268 + 3 * (56 * 4 + 24 * 2) + 4 * 4 + 8;
    const int32_t k = 1 << 30, negative = -1;
    const uint32_t length = 0xFFFFFFF0u, count = 0x40000000u;
    Bytes b = good;
    std::memcpy(b.data() + records + 4, &k, 4);
    ExpectRefused(*this, blob, b);
    b = good;
    std::memcpy(b.data() + records + 4, &negative, 4);
    ExpectRefused(*this, blob, b);
    b = good;
    std::memcpy(b.data() + records + 8, &length, 4);
    ExpectRefused(*this, blob, b);
    b = good;
    std::memcpy(b.data() + records + 8 + 4 + 8 + 8, &count, 4);  // the third array's count
    ExpectRefused(*this, blob, b);
}

TEST_F(MotionBlob, TruncatedBlobsAreRefusedWithAMessage) {
    BlobSpec s;
    s.timings.resize(1);
    s.timings[0].name = L"lfoot";
    s.timings[0].times[0] = {1.0, 2.0};
    const Bytes good = MakeBlob(s);
    for (size_t cut = 1; cut < good.size(); cut += (cut < 64 ? 1 : 37)) {
        Bytes b(good.begin(), good.end() - static_cast<long>(cut));
        ExpectRefused(*this, blob, b);
        if (HasFailure()) FAIL() << "cut " << cut;
    }
    // Even an empty buffer.
    orvhost::ClearLog();
    RetargetOp op;
    EXPECT_FALSE(op.LoadMotionDataFromBuffer(nullptr, 0));
    EXPECT_EQ(Messages(4), std::vector<std::wstring>{kDamaged(0)});
}

TEST_F(MotionBlob, RandomBytesAreRefusedOrReadWithinTheBlob) {
    std::mt19937 random(14);
    for (int round = 0; round < 300; ++round) {
        Bytes b(static_cast<size_t>(random() % 2048));
        for (auto& c : b) c = static_cast<unsigned char>(random());
        // Keep some counts small so that the trailer, not only the counts, is tested.
        if (b.size() >= 268 && round % 2) {
            for (int i = 0; i < 3; ++i) {
                const uint32_t small = random() % 3;
                std::memcpy(b.data() + 256 + 4 * i, &small, 4);
            }
        }
        orvhost::ClearLog();
        Bytes copy = b;
        RetargetOp op;
        const bool loaded = op.LoadMotionDataFromBuffer(copy.data(), static_cast<unsigned int>(copy.size()));
        EXPECT_EQ(loaded, op.loaded);
        if (!loaded) {
            EXPECT_EQ(Messages(4), std::vector<std::wstring>{kDamaged(b.size())});
            EXPECT_EQ(copy, b);
        } else {
            EXPECT_LE(RetargetOp::RequiredBlobSize(copy.data(), static_cast<unsigned int>(copy.size())),
                      copy.size());
        }
    }
}

TEST_F(MotionBlob, AValidBlobNeedsExactlyItsOwnSize) {
    BlobSpec s;
    s.timings.resize(1);
    s.timings[0].times[4] = {5.0};
    const Bytes good = MakeBlob(s);
    EXPECT_EQ(RetargetOp::RequiredBlobSize(good.data(), static_cast<unsigned int>(good.size())), good.size());
    // Extra bytes at the end do no harm.
    Bytes longer = good;
    longer.resize(good.size() + 10, 0xEE);
    EXPECT_EQ(RetargetOp::RequiredBlobSize(longer.data(), static_cast<unsigned int>(longer.size())),
              good.size());
}

}  // namespace
