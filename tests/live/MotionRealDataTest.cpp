// A real walk (CMU 07_05) recorded through the motion buffer onto a rig built from the clip's
// own skeleton with legs 1.3 times longer: how well planted feet stay planted, and the blob of
// the recorded motion, through a scene file and another process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/InputStream.h"
#include "glue/GlueMap.h"
#include "live/Motion.h"
#include "live/RetargetOp.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "support/BvhRigBuilder.h"
#include "support/CaptureSource.h"

namespace {

using ORV::MATH::CVector3;
using ZUK::ModelMap;
using ZUK::ModelStructure;
using ZUK::Motion;
using ZUK::RetargetOp;
using Bytes = std::vector<unsigned char>;

const std::string kWalk = std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/07_05.bvh";
constexpr double kLegScale = 1.3;

std::string Narrow(const std::wstring& w) { return std::string(w.begin(), w.end()); }

using bvhrig::CaptureSource;

// The rig with longer legs, tagged at rest, measured and paired with the source.
struct TargetRig {
    bvhrig::BvhRig rig;
    std::unique_ptr<ModelStructure> structure;
    std::unique_ptr<ModelMap> map;
    ZUK::GlueMap glue;

    bool Build(const bvhrig::Skeleton& skel, const bvhrig::Tagging& tagging, ModelMap& source) {
        bvhrig::RigOptions options;
        options.legScale = kLegScale;
        bvhrig::BipedLimbs(tagging, options);
        options.ikLegs = options.ikArms = true;
        rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skel, L"Walker", options);
        if (!rig.model.IsValid()) return false;
        structure.reset(ModelStructure::CreateFromFile(L"biped"));
        if (!structure || !bvhrig::TagRigByProperties(rig.model, *structure, tagging)) return false;
        map.reset(new ModelMap(rig.model, structure.get()));
        map->createMap();
        glue.modelMap = map.get();
        return map->BuildRelationshipsWithSrcModelMap(source, glue);
    }
};

class MotionOnRealWalk : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::NewScene();
        std::string error;
        ASSERT_TRUE(bvhrig::ReadBvh(kWalk, skel, &error)) << error;
        tagging = bvhrig::CmuMotionBuilderTagging();
        ASSERT_TRUE(source.Build(kWalk, tagging));
        ASSERT_TRUE(target.Build(skel, tagging, *source.map));
        frames = static_cast<long>(skel.frames.size());
        ASSERT_GT(frames, 100);
    }

    // Copies and records every frame, as a transfer does.
    std::unique_ptr<Motion> Record() {
        std::unique_ptr<Motion> motion(new Motion(frames, target.map.get(), source.map.get()));
        for (long f = 0; f < frames; ++f) {
            target.map->CopyPoseFromSrcModelMap(*source.map, static_cast<double>(f));
            motion->RecordPoseFromModelMap(f);
        }
        return motion;
    }

    int NodeOf(const std::wstring& name) const {
        for (int i = 0; i < target.structure->numNodes; ++i)
            if (std::wstring(target.structure->nodes[i].Name.GetWideString()) == name) return i;
        return -1;
    }

    modelmaptest::FactoryData factory;
    bvhrig::Skeleton skel;
    bvhrig::Tagging tagging;
    CaptureSource source;
    TargetRig target;
    long frames = 0;
};

struct Sliding {
    double source = 0.0, processed = 0.0, raw = 0.0;
    int plantedSteps = 0;
};

// Over the frames in which the source foot's step on an axis is below the planted threshold,
// the sums of the absolute steps on that axis: of the source (from the tests' own forward
// kinematics of the file), of the target after foot processing and before.
Sliding MeasureSliding(const std::vector<CVector3>& src, const std::vector<CVector3>& processed,
                       const std::vector<CVector3>& raw, int axis, double threshold) {
    Sliding s;
    for (size_t f = 1; f < src.size(); ++f) {
        const double step = src[f][axis] - src[f - 1][axis];
        if (!(std::fabs(step) < threshold)) continue;
        ++s.plantedSteps;
        s.source += std::fabs(step);
        s.processed += std::fabs(processed[f][axis] - processed[f - 1][axis]);
        s.raw += std::fabs(raw[f][axis] - raw[f - 1][axis]);
    }
    return s;
}

TEST_F(MotionOnRealWalk, PlantedFeetSlideNoMoreThanTheSourceScaledByTheLegs) {
    std::unique_ptr<Motion> motion = Record();
    const double sourceLeg = source.map->legLength, targetLeg = target.map->legLength;
    ASSERT_GT(sourceLeg, 0.0);
    // The legs are 1.3 times longer, so the leg length (hip height) is at most that.
    EXPECT_LE(targetLeg / sourceLeg, kLegScale * (1.0 + 1e-6));
    EXPECT_GT(targetLeg / sourceLeg, 1.0);

    const wchar_t* feet[2] = {L"lfoot", L"rfoot"};
    std::vector<CVector3> raw[2], src[2];
    int nodes[2], joints[2];
    for (int i = 0; i < 2; ++i) {
        nodes[i] = NodeOf(feet[i]);
        ASSERT_GE(nodes[i], 0);
        joints[i] = skel.find(bvhrig::JointOf(tagging, feet[i]));
        ASSERT_GE(joints[i], 0);
        for (long f = 0; f < frames; ++f) {
            raw[i].push_back(motion->globalPoses[nodes[i]][f].GetTranslation());
            const bvhrig::GlobalPose pose = bvhrig::ForwardKinematics(skel, static_cast<int>(f));
            const auto& p = pose.position[static_cast<size_t>(joints[i])];
            src[i].emplace_back(p[0], p[1], p[2]);
        }
    }
    motion->ProcessFootMovement();

    double totalSource = 0, totalProcessed = 0, totalRaw = 0;
    for (int i = 0; i < 2; ++i) {
        std::vector<CVector3> processed;
        for (long f = 0; f < frames; ++f)
            processed.push_back(motion->globalPoses[nodes[i]][f].GetTranslation());
        // The threshold of the passes: 0.005 of the source foot's limb length.
        const int sourceFoot = target.map->nodes[static_cast<size_t>(nodes[i])].translationSource;
        ASSERT_GE(sourceFoot, 0);
        const double threshold = 0.005 * source.map->nodes[static_cast<size_t>(sourceFoot)].length;
        ASSERT_GT(threshold, 0.0);
        for (int axis = 0; axis < 3; ++axis) {
            const Sliding s = MeasureSliding(src[i], processed, raw[i], axis, threshold);
            EXPECT_GT(s.plantedSteps, 0) << i << " " << axis;
            EXPECT_LE(s.processed, kLegScale * s.source * 1.01) << Narrow(feet[i]) << " axis " << axis;
            totalSource += s.source;
            totalProcessed += s.processed;
            totalRaw += s.raw;
            std::printf(
                "%ls axis %d: %d planted steps; source %.5f, target processed %.5f, raw %.5f leg lengths\n",
                feet[i], axis, s.plantedSteps, s.source / sourceLeg, s.processed / targetLeg,
                s.raw / targetLeg);
        }
    }
    std::printf(
        "both feet: source %.5f, target processed %.5f, raw %.5f leg lengths (source leg %.4f, target "
        "leg %.4f)\n",
        totalSource / sourceLeg, totalProcessed / targetLeg, totalRaw / targetLeg, sourceLeg, targetLeg);
    RecordProperty("source_sliding_leg_lengths", std::to_string(totalSource / sourceLeg));
    RecordProperty("processed_sliding_leg_lengths", std::to_string(totalProcessed / targetLeg));
    RecordProperty("raw_sliding_leg_lengths", std::to_string(totalRaw / targetLeg));
    // Without the passes the retargeted feet slide more than that.
    EXPECT_GT(totalRaw, totalProcessed);
}

// ---- The blob of the recorded walk ---------------------------------------------------------------

template <typename T>
T Get(const Bytes& b, size_t offset) {
    T v;
    std::memcpy(&v, b.data() + offset, sizeof(T));
    return v;
}

Bytes ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const Bytes& b) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

Bytes BlobBytes(ORV::UserDataBlob& blob) {
    const unsigned char* bytes = nullptr;
    unsigned int size = 0;
    blob.GetValue(bytes, size);
    return bytes ? Bytes(bytes, bytes + size) : Bytes();
}

ORV::UserDataBlob FindBlob(ORV::Model model) {
    for (ORV::CRef ref : model.GetProperties()) {
        ORV::Property p(ref);
        if (p.GetName() == RetargetOp::DATA_NAME) return ORV::UserDataBlob(ref);
    }
    return ORV::UserDataBlob();
}

// The quaternion (w, x, y, z) of a rotation matrix whose rows are the images of the axes,
// with w made positive, by the trace method on the largest diagonal term.
void Quaternion(const ORV::MATH::CMatrix3& m, double q[4]) {
    // Column-convention matrix: r[i][j] = m(j, i).
    double r[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r[i][j] = m.Get(j, i);
    const double trace = r[0][0] + r[1][1] + r[2][2];
    if (trace > 0) {
        const double s = 2.0 * std::sqrt(1.0 + trace);
        q[0] = 0.25 * s;
        q[1] = (r[2][1] - r[1][2]) / s;
        q[2] = (r[0][2] - r[2][0]) / s;
        q[3] = (r[1][0] - r[0][1]) / s;
    } else if (r[0][0] > r[1][1] && r[0][0] > r[2][2]) {
        const double s = 2.0 * std::sqrt(1.0 + r[0][0] - r[1][1] - r[2][2]);
        q[0] = (r[2][1] - r[1][2]) / s;
        q[1] = 0.25 * s;
        q[2] = (r[0][1] + r[1][0]) / s;
        q[3] = (r[0][2] + r[2][0]) / s;
    } else if (r[1][1] > r[2][2]) {
        const double s = 2.0 * std::sqrt(1.0 + r[1][1] - r[0][0] - r[2][2]);
        q[0] = (r[0][2] - r[2][0]) / s;
        q[1] = (r[0][1] + r[1][0]) / s;
        q[2] = 0.25 * s;
        q[3] = (r[1][2] + r[2][1]) / s;
    } else {
        const double s = 2.0 * std::sqrt(1.0 + r[2][2] - r[0][0] - r[1][1]);
        q[0] = (r[1][0] - r[0][1]) / s;
        q[1] = (r[0][2] + r[2][0]) / s;
        q[2] = (r[1][2] + r[2][1]) / s;
        q[3] = 0.25 * s;
    }
    if (q[0] < 0)
        for (int i = 0; i < 4; ++i) q[i] = -q[i];
}

TEST_F(MotionOnRealWalk, BlobOfTheWalkHasItsSizeAndSurvivesASceneFileInAnotherProcess) {
    if (const char* scene = std::getenv("TROVO_BLOB_CHILD_SCENE")) {
        // The child: the scene opened anew, the blob dumped as found, then after presynchronize.
        orvhost::ResetScene();
        std::wstring error;
        ASSERT_TRUE(orvhost::OpenScene(scene, error)) << Narrow(error);
        ORV::Model model(ORV::CRef::FromPath(L"Walker"));
        ASSERT_TRUE(model.IsValid());
        ORV::UserDataBlob blob = FindBlob(model);
        ASSERT_TRUE(blob.IsValid());
        WriteFile(std::string(std::getenv("TROVO_BLOB_CHILD_OUT")) + ".saved", BlobBytes(blob));
        RetargetOp::presynchronize(blob);
        ASSERT_EQ(RetargetOp::GetRetargetOpPointer(blob), nullptr);
        ASSERT_EQ(RetargetOp::GetRetargetOpPointer(model), nullptr);
        WriteFile(std::string(std::getenv("TROVO_BLOB_CHILD_OUT")) + ".synced", BlobBytes(blob));
        return;
    }
    std::unique_ptr<Motion> motion = Record();
    motion->ProcessFootMovement();
    ORV::Property property;
    ASSERT_EQ(target.rig.model.AddProperty(L"UserDataBlob", false, RetargetOp::DATA_NAME, property),
              ORV::CStatus::OK);
    ORV::UserDataBlob blob(property.GetRef());
    ASSERT_TRUE(RetargetOp::stuffMotionDataIntoBlob(blob, *motion, 1));

    const Bytes written = BlobBytes(blob);
    const size_t n = static_cast<size_t>(target.structure->numNodes);
    const size_t p = static_cast<size_t>(target.structure->numPlanes);
    const size_t f = static_cast<size_t>(frames);
    ASSERT_EQ(written.size(), 268 + f * (56 * n + 24 * p) + 4 * n + 16 + 8);
    EXPECT_EQ(Get<uint32_t>(written, 0), 0x38DEF311u);
    EXPECT_EQ(Get<uint64_t>(written, 4), 0u);
    EXPECT_EQ(Get<uint32_t>(written, 256), f);
    EXPECT_EQ(Get<uint32_t>(written, 260), n);
    EXPECT_EQ(Get<uint32_t>(written, 264), p);
    // Node 0 at frame 0: translation, then w, x, y, z of its rotation.
    const ORV::MATH::CTransformation& first = motion->globalPoses[0][0];
    EXPECT_EQ(Get<double>(written, 268), first.GetPosX());
    EXPECT_EQ(Get<double>(written, 276), first.GetPosY());
    EXPECT_EQ(Get<double>(written, 284), first.GetPosZ());
    double q[4];
    Quaternion(first.GetRotationMatrix3(), q);
    const double sign = Get<double>(written, 292) < 0 ? -1.0 : 1.0;
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(sign * Get<double>(written, 292 + 8 * i), q[i], 1e-9) << i;
    const size_t trailer = 268 + f * (56 * n + 24 * p) + 4 * n;
    EXPECT_EQ(Get<double>(written, trailer), 1.4);
    EXPECT_EQ(Get<int32_t>(written, trailer + 8), 1);
    EXPECT_EQ(Get<int32_t>(written, trailer + 12), 0);
    EXPECT_EQ(Get<double>(written, trailer + 16), target.map->legScale);

    // Bound to a live operator, then saved: the file holds that address.
    RetargetOp op;
    op.LoadMotionDataFromUDB(blob);
    ASSERT_TRUE(op.loaded);
    ASSERT_EQ(RetargetOp::GetRetargetOpPointer(target.rig.model), &op);
    const Bytes saved = BlobBytes(blob);

    const std::string base =
        std::string(::testing::TempDir()) + "zukblob_child_" + std::to_string(::getpid());
    const std::string scenePath = base + ".orvscene";
    std::wstring error;
    ASSERT_TRUE(orvhost::SaveScene(scenePath, error)) << Narrow(error);
    char self[4096];
    const ssize_t len = ::readlink("/proc/self/exe", self, sizeof self - 1);
    ASSERT_GT(len, 0);
    self[len] = '\0';
    const std::string command =
        "TROVO_BLOB_CHILD_SCENE='" + scenePath + "' TROVO_BLOB_CHILD_OUT='" + base + "' '" +
        std::string(self) +
        "' --gtest_filter=MotionOnRealWalk."
        "BlobOfTheWalkHasItsSizeAndSurvivesASceneFileInAnotherProcess > /dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(ReadFile(base + ".saved"), saved);
    Bytes synced = saved;
    std::memset(synced.data() + 4, 0, 8);
    EXPECT_EQ(ReadFile(base + ".synced"), synced);
    std::remove(scenePath.c_str());
    std::remove((base + ".saved").c_str());
    std::remove((base + ".synced").c_str());
}

}  // namespace
