// The channels a decomposition object takes from its mask, and how its rotation is read: the
// heading of its X axis when "roty" is in use, all three angles otherwise; unwrapped from frame
// to frame, in degrees.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "PlotTestSupport.h"
#include "plot/PlotRetarget.h"

namespace {

using namespace plottest;

class PlotDecomposition : public PlotFixture {
protected:
    void SetUp() override {
        PlotFixture::SetUp();
        ASSERT_TRUE(rig.Build());
        ORV::Null n;
        ASSERT_EQ(rig.model.AddNull(L"Twist", n), ORV::CStatus::OK);
        twist = n;
    }
    // Raw keys over frames 0..9 of the entries `pose(f)`, for a decomposition with `mask`.
    void Fit(unsigned int mask, const std::function<CTransformation(int)>& pose) {
        ZUK::PlotRetarget plotter(rig.model, false, false, true, 1, 0, 10);
        delete plotter.decompData;
        plotter.decompData = new ZUK::PlotData(10, 1);
        for (int f = 0; f < 10; ++f) plotter.decompData->local(0, f) = pose(f);
        ZUK::DecompMap decomp;
        decomp.object = twist;
        decomp.mask = mask;
        decomp.tagName = L"lforearmtwist";
        plotter.fitDecompValues(0, L"lhand", decomp, ORV::Application().GetUIToolkit().GetProgressBar());
    }
    std::vector<std::wstring> Channels() const {
        std::vector<std::wstring> out;
        for (const wchar_t* c : {L"rotx", L"roty", L"rotz", L"posx", L"posy", L"posz"})
            if (!Keys(twist, c).empty()) out.push_back(c);
        return out;
    }
    TaggedBiped rig;
    ORV::X3DObject twist;
};

CTransformation Pose(double x, double y, double z, const CVector3& at) {
    CTransformation t;
    t.SetRotationFromXYZAngles(CVector3(x, y, z));
    t.SetTranslation(at);
    return t;
}

TEST_F(PlotDecomposition, HeadingBitTakesTheTurnOfTheXAxisUnwrappedPastHalfATurn) {
    // A pure turn about Y by 0.5 rad a frame: the X axis heads to (cos a, 0, -sin a).
    Fit(ZUK::DECOMP_RY | ZUK::DECOMP_PX,
        [](int f) { return Pose(0.0, 0.5 * f, 0.0, CVector3(f, 2.0 * f, 3.0)); });
    EXPECT_EQ(Channels(), (std::vector<std::wstring>{L"roty", L"posx"}));
    const std::vector<Key> roty = Keys(twist, L"roty"), posx = Keys(twist, L"posx");
    ASSERT_EQ(roty.size(), 10u);
    for (int f = 0; f < 10; ++f) {
        EXPECT_NEAR(roty[f].value, 0.5 * f * 180.0 / kPi, 1e-6) << f;
        EXPECT_NEAR(posx[f].value, f, 1e-12);
    }
}

TEST_F(PlotDecomposition, HeadingIgnoresTheOtherTwoAnglesAndLeavesThemUnkeyed) {
    // A tilt about X does not move the X axis: the heading is the Y turn alone.
    Fit(ZUK::DECOMP_RY, [](int f) { return Pose(0.4, 0.1 * f, 0.0, CVector3()); });
    EXPECT_EQ(Channels(), (std::vector<std::wstring>{L"roty"}));
    const std::vector<Key> roty = Keys(twist, L"roty");
    for (int f = 0; f < 10; ++f) EXPECT_NEAR(roty[f].value, 0.1 * f * 180.0 / kPi, 1e-6) << f;
}

TEST_F(PlotDecomposition, XAndZRotationNeedBothTheirBits) {
    Fit(ZUK::DECOMP_RX, [](int f) { return Pose(0.05 * f, 0.0, 0.0, CVector3()); });
    EXPECT_TRUE(Channels().empty());
    Fit(ZUK::DECOMP_RX | ZUK::DECOMP_RZ, [](int f) { return Pose(0.05 * f, 0.0, -0.03 * f, CVector3()); });
    EXPECT_EQ(Channels(), (std::vector<std::wstring>{L"rotx", L"rotz"}));
    const std::vector<Key> rotx = Keys(twist, L"rotx"), rotz = Keys(twist, L"rotz");
    for (int f = 0; f < 10; ++f) {
        EXPECT_NEAR(rotx[f].value, 0.05 * f * 180.0 / kPi, 1e-6) << f;
        EXPECT_NEAR(rotz[f].value, -0.03 * f * 180.0 / kPi, 1e-6) << f;
    }
}

TEST_F(PlotDecomposition, PositionBitsPickTheirOwnAxes) {
    Fit(ZUK::DECOMP_PY | ZUK::DECOMP_PZ,
        [](int f) { return Pose(0.0, 0.0, 0.0, CVector3(f, 2.0 * f, -3.0 * f)); });
    EXPECT_EQ(Channels(), (std::vector<std::wstring>{L"posy", L"posz"}));
    const std::vector<Key> posy = Keys(twist, L"posy"), posz = Keys(twist, L"posz");
    for (int f = 0; f < 10; ++f) {
        EXPECT_NEAR(posy[f].value, 2.0 * f, 1e-12);
        EXPECT_NEAR(posz[f].value, -3.0 * f, 1e-12);
    }
}

TEST_F(PlotDecomposition, AnEmptyDecompositionTargetTakesNoObjectAndTheHipsKeepTheirPose) {
    // The factory biped's forearm twist, read back from the model, has empty targets; every tag
    // without an override (the hips first) would answer them. None may be taken, and the hips
    // keep their own pose.
    orvhost::NewScene();
    modelmaptest::FactoryData factory;
    TaggedBiped biped;
    std::vector<Channel> motion = BipedMotion();
    // A roll as well, so that the heading of the X axis is not the Y angle.
    motion.push_back({L"Hips", L"rotz", [](double f) { return 20.0 * std::sin(f / 7.0); }});
    ASSERT_TRUE(biped.Build(0, 60, motion));
    {
        ZUK::PlotRetarget probe(biped.model, false, false, false, 1, 0, 40);
        bool emptyTarget = false;
        for (const auto& node : probe.map->nodes)
            for (const ZUK::DecompMap& d : node.decomps)
                if (d.tagName.IsEmpty()) emptyTarget = true;
        ASSERT_FALSE(emptyTarget);
    }
    const std::vector<ORV::X3DObject> objects{biped.Object(L"Hips")};
    const auto before = RecordGlobals(objects, 0, 40);
    ZUK::PlotRetarget plotter(biped.model, false, false, false, 1, 0, 40);
    plotter.plot();
    const auto diff = LargestDifference(before, RecordGlobals(objects, 0, 40));
    EXPECT_LT(diff.first, 1e-9);
    EXPECT_LT(diff.second, 1e-9);
}

}  // namespace
