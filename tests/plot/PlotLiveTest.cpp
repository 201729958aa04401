// Plotting a rig that the live operators drive: the CMU walk (cmu_mb2010/02_01.bvh) recorded
// onto the IK rig built from its own skeleton, installed at frame 1. What the operators showed
// on every frame is recorded first; after the plot the curves alone must show it, with nothing
// of the retarget left, also in a scene saved and opened again by another process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "PlotTestSupport.h"
#include "live/LiveRigSupport.h"
#include "plot/PlotRetarget.h"

namespace {

using namespace plottest;

constexpr long kFrames = 60;
constexpr int kInsertion = 1;

class PlotLive : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(liverig::LoadTrovoOnce(), L"");
        orvhost::NewScene();
        orvhost::ClearLog();
    }
    void Installed(liverig::LiveRig& live) {
        std::string error;
        ASSERT_TRUE(live.Build(liverig::CmuWalk(), L"Walker", bvhrig::RigOptions(), error)) << error;
        live.Record(kFrames);
        live.Install(kInsertion);
        live.WarmUp(kInsertion);
        // One pass over the clip first: what the operators show settles after their first
        // evaluations.
        Play(RigObjects(live.rig.model));
    }
    // Globals of every rig object on every frame of the clip, read as the host plays them.
    static std::vector<std::vector<CTransformation>> Play(const std::vector<ORV::X3DObject>& objects) {
        std::vector<std::vector<CTransformation>> out;
        for (int f = kInsertion; f < kInsertion + kFrames; ++f) {
            SetFrame(f);
            std::vector<CTransformation> frame;
            for (const ORV::X3DObject& o : objects)
                frame.push_back(o.GetKinematics().GetGlobal().GetTransform());
            out.push_back(frame);
        }
        return out;
    }
    static bool AnyOperator(const std::vector<ORV::X3DObject>& objects, ORV::Model model) {
        if (!liverig::OperatorsOn(model.GetKinematics().GetLocal()).empty()) return true;
        for (const ORV::X3DObject& o : objects)
            if (!liverig::OperatorsOn(o.GetKinematics().GetGlobal()).empty() ||
                !liverig::OperatorsOn(o.GetKinematics().GetLocal()).empty())
                return true;
        return false;
    }
    modelmaptest::FactoryData factory;
};

// The up-vector objects of the rig's limbs. Where a limb is straight the glue puts an up-vector
// at its rest offset under the limb's anchor, turned with the anchor; only its position steers
// the chain, and only its position is baked. Their rotations are left out of the comparisons.
std::vector<bool> UpVectors(const std::vector<ORV::X3DObject>& objects, ORV::Model model) {
    std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::CreateFromCustomProperty(model));
    std::vector<bool> out(objects.size(), false);
    if (!glue) return out;
    for (size_t i = 0; i < objects.size(); ++i)
        for (const ZUK::PlaneConstraint& p : glue->planes)
            if (objects[i].GetName() == p.upVectorName) out[i] = true;
    return out;
}

// Both recordings with the rotation of the flagged objects taken from the first.
std::vector<std::vector<CTransformation>> WithRotationsOf(
    const std::vector<std::vector<CTransformation>>& from, std::vector<std::vector<CTransformation>> to,
    const std::vector<bool>& flagged) {
    for (size_t f = 0; f < to.size() && f < from.size(); ++f)
        for (size_t i = 0; i < to[f].size() && i < flagged.size(); ++i)
            if (flagged[i]) to[f][i].SetRotation(from[f][i].GetRotation());
    return to;
}

std::string Write(const std::vector<std::vector<CTransformation>>& frames) {
    std::ostringstream out;
    out.precision(17);
    for (const auto& frame : frames)
        for (const CTransformation& t : frame) {
            const CVector3& p = t.GetTranslation();
            const ORV::MATH::CQuaternion q = t.GetRotationQuaternion();
            out << p.x << ' ' << p.y << ' ' << p.z << ' ' << q.GetW() << ' ' << q.GetX() << ' ' << q.GetY()
                << ' ' << q.GetZ() << '\n';
        }
    return out.str();
}

std::vector<std::vector<CTransformation>> Read(const std::string& text, size_t objects) {
    std::istringstream in(text);
    std::vector<std::vector<CTransformation>> out;
    double v[7];
    std::vector<CTransformation> frame;
    while (in >> v[0] >> v[1] >> v[2] >> v[3] >> v[4] >> v[5] >> v[6]) {
        CTransformation t;
        t.SetTranslationFromValues(v[0], v[1], v[2]);
        t.SetRotationFromQuaternion(ORV::MATH::CQuaternion(v[3], v[4], v[5], v[6]));
        frame.push_back(t);
        if (frame.size() == objects) {
            out.push_back(frame);
            frame.clear();
        }
    }
    return out;
}

TEST_F(PlotLive, ARawBakeKeepsEveryLiveGlobalAndLeavesNothingOfTheRetarget) {
    if (const char* scene = std::getenv("TROVO_PLOT_CHILD_SCENE")) {
        // The child: the saved scene alone, in a fresh process.
        std::wstring error;
        ASSERT_TRUE(orvhost::OpenScene(scene, error)) << modelmaptest::Narrow(error);
        ORV::Model model(ORV::CRef::FromPath(L"Walker"));
        ASSERT_TRUE(model.IsValid());
        std::ofstream(std::getenv("TROVO_PLOT_CHILD_OUT")) << Write(Play(RigObjects(model)));
        return;
    }
    liverig::LiveRig live;
    Installed(live);
    const std::vector<ORV::X3DObject> objects = RigObjects(live.rig.model);
    ASSERT_TRUE(AnyOperator(objects, live.rig.model));
    const auto before = Play(objects);
    ASSERT_EQ(live.glue->planes.size(), 4u);
    const std::vector<bool> ups = UpVectors(objects, live.rig.model);

    ZUK::PlotRetarget plotter(live.rig.model, false, false, true, 1, kInsertion, kInsertion + kFrames);
    ASSERT_NE(plotter.op, nullptr);
    plotter.plot();

    EXPECT_FALSE(AnyOperator(objects, live.rig.model));
    EXPECT_FALSE(HasProperty(live.rig.model, L"RetargetAdjustPPG"));
    EXPECT_FALSE(HasProperty(live.rig.model, ZUK::RetargetOp::DATA_NAME));
    const auto after = WithRotationsOf(before, Play(objects), ups);
    const auto diff = LargestDifference(before, after);
    EXPECT_LT(diff.first, 1e-6 * live.height);
    EXPECT_LT(diff.second, 1e-6);
    std::printf("[ raw bake ] largest difference %.3g heights, %.3g rad over %zu objects x %ld frames\n",
                diff.first / live.height, diff.second, objects.size(), kFrames);

    // Saved, and opened by another process.
    const std::string base = std::string(::testing::TempDir()) + "plot_child_" + std::to_string(::getpid());
    const std::string scenePath = base + ".orvscene", outPath = base + ".txt";
    std::wstring error;
    ASSERT_TRUE(orvhost::SaveScene(scenePath, error)) << modelmaptest::Narrow(error);
    char self[4096];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    ASSERT_GT(n, 0);
    self[n] = '\0';
    const std::string command =
        "TROVO_PLOT_CHILD_SCENE='" + scenePath + "' TROVO_PLOT_CHILD_OUT='" + outPath + "' '" +
        std::string(self) +
        "' --gtest_filter=PlotLive.ARawBakeKeepsEveryLiveGlobalAndLeavesNothingOfTheRetarget > /dev/null "
        "2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0);
    std::ifstream in(outPath);
    const auto reopened = WithRotationsOf(
        before,
        Read(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()),
             objects.size()),
        ups);
    ASSERT_EQ(reopened.size(), before.size());
    size_t worst = 0, frame = 0;
    const auto again = LargestDifference(before, reopened, &worst, &frame);
    std::printf("[ reopened ] worst rotation on %s at frame %zu\n",
                modelmaptest::Narrow(objects[worst].GetName()).c_str(), frame + kInsertion);
    EXPECT_LT(again.first, 1e-6 * live.height);
    EXPECT_LT(again.second, 1e-6);
    std::remove(scenePath.c_str());
    std::remove(outPath.c_str());
}

TEST_F(PlotLive, AReducedBakeStaysNearTheLiveMotionWithFewKeys) {
    liverig::LiveRig live;
    Installed(live);
    const std::vector<ORV::X3DObject> objects = RigObjects(live.rig.model);
    const auto before = Play(objects);
    const std::vector<bool> ups = UpVectors(objects, live.rig.model);
    ZUK::PlotRetarget plotter(live.rig.model, false, true, false, 1, kInsertion, kInsertion + kFrames);
    plotter.plot();
    EXPECT_FALSE(AnyOperator(objects, live.rig.model));

    long keys = 0, channels = 0;
    for (const ORV::X3DObject& o : objects)
        for (const wchar_t* c : {L"rotx", L"roty", L"rotz", L"posx", L"posy", L"posz"}) {
            const std::vector<Key> k = Keys(o, c);
            if (k.empty()) continue;
            keys += static_cast<long>(k.size());
            ++channels;
        }
    const auto after = WithRotationsOf(before, Play(objects), ups);
    size_t worst = 0, frame = 0;
    const auto diff = LargestDifference(before, after, &worst, &frame);
    std::printf("[ reduced ] worst rotation on %s at frame %zu\n",
                modelmaptest::Narrow(objects[worst].GetName()).c_str(), frame + kInsertion);
    std::printf(
        "[ reduced bake ] %ld keys on %ld channels of %ld frames (%.1f%% of a raw bake); largest "
        "difference %.3g heights, %.3g rad\n",
        keys, channels, kFrames, 100.0 * keys / (channels * kFrames), diff.first / live.height, diff.second);
    EXPECT_GT(channels, 0);
    EXPECT_LT(keys, channels * kFrames / 2);
    // Keys fall on every frame the shape asks for, with their exact values; between them a
    // channel departs from its values by a few percent of its range, and the departures add up
    // down the hierarchy and through the IK chains: measured 0.017 heights and 0.10 rad.
    EXPECT_LT(diff.first, 0.05 * live.height);
    EXPECT_LT(diff.second, 0.15);
}

}  // namespace
