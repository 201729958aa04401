// Rigs for the plotting tests: the IK biped of the host tests, tagged with the factory "biped"
// structure, its structure, map and glue stored on the model as tagging leaves them, and its
// driven objects animated by curves from formulas the tests know. With no live operator the
// scene itself shows the pose the plot must keep, so each test can compare against the
// formulas and against the globals recorded before plotting.
#pragma once

#include <gtest/gtest.h>
#include <orv/ORV.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/StructureTestSupport.h"
#include "glue/GlueMap.h"
#include "host/RigBuilders.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "support/BvhRigBuilder.h"

namespace plottest {

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

constexpr double kPi = 3.14159265358979323846;

inline bvhrig::Tagging BipedTagging() {
    return {{L"cog", L"Hips"},
            {L"spine", L"Spine1"},
            {L"chest", L"Chest"},
            {L"neck", L"Neck"},
            {L"head", L"Head"},
            {L"lthigh", L"LeftLegBone"},
            {L"lshin", L"LeftLegLower"},
            {L"lfoot", L"LeftLegGoal"},
            {L"rthigh", L"RightLegBone"},
            {L"rshin", L"RightLegLower"},
            {L"rfoot", L"RightLegGoal"},
            {L"lupperarm", L"LeftArmBone"},
            {L"lforearm", L"LeftArmLower"},
            {L"lhand", L"LeftArmGoal"},
            {L"rupperarm", L"RightArmBone"},
            {L"rforearm", L"RightArmLower"},
            {L"rhand", L"RightArmGoal"}};
}

// A channel's value at a frame.
using Motion = std::function<double(double)>;

// What the tests animate: object name, local channel, formula.
struct Channel {
    std::wstring object, channel;
    Motion value;
};

// Left foot: steps forward over frames 0..15, stands still 15..30, steps again 30..45, then
// stands; the hips sway and turn, the other goals and the up-vectors move smoothly.
inline std::vector<Channel> BipedMotion() {
    auto wave = [](double base, double amplitude, double period, double phase = 0.0) -> Motion {
        return [=](double f) { return base + amplitude * std::sin(2.0 * kPi * f / period + phase); };
    };
    Motion step = [](double f) {
        auto ease = [](double u) { return u <= 0.0 ? 0.0 : u >= 1.0 ? 1.0 : 0.5 - 0.5 * std::cos(kPi * u); };
        return 2.0 * ease(f / 15.0) + 2.0 * ease((f - 30.0) / 15.0);
    };
    return {{L"Hips", L"posx", wave(0.0, 0.5, 40.0)},
            {L"Hips", L"posy", wave(10.0, 0.3, 20.0)},
            {L"Hips", L"posz", [](double f) { return 0.1 * f; }},
            {L"Hips", L"roty", wave(0.0, 25.0, 60.0)},
            {L"Hips", L"rotx", wave(0.0, 6.0, 30.0, 1.0)},
            {L"Spine1", L"rotx", wave(0.0, 12.0, 25.0)},
            {L"Spine1", L"rotz", wave(0.0, 8.0, 35.0, 0.5)},
            {L"Neck", L"roty", wave(0.0, 20.0, 45.0)},
            {L"LeftLegGoal", L"posz", step},
            {L"LeftLegGoal", L"posy", wave(1.0, 0.2, 50.0)},
            {L"RightLegGoal", L"posz", wave(0.0, 1.5, 40.0, kPi)},
            {L"RightLegGoal", L"rotx", wave(0.0, 15.0, 40.0)},
            {L"LeftArmGoal", L"posy", wave(14.5, 1.0, 30.0)},
            {L"RightArmGoal", L"posy", wave(14.5, 1.0, 30.0, kPi)},
            {L"LeftLegUp", L"posx", wave(1.0, 0.3, 50.0)},
            {L"RightArmUp", L"posy", wave(14.5, 0.5, 50.0)}};
}

// One linear key per frame over [first, last] from the formula.
inline void Animate(ORV::X3DObject object, const std::wstring& channel, const Motion& value, int first,
                    int last) {
    ORV::Parameter p = object.GetKinematics().GetLocal().GetParameter(channel.c_str());
    ORV::FCurve curve;
    ASSERT_EQ(p.AddFCurve(ORV::ovStandardFCurve, curve), ORV::CStatus::OK);
    ORV::CTimeArray times;
    ORV::CValueArray values;
    for (int f = first; f <= last; ++f) {
        times.Add(ORV::CTime(f));
        values.Add(value(f));
    }
    curve.PutInterpolation(ORV::ovLinearInterpolation);
    curve.SetKeys(times, values);
}

struct TaggedBiped {
    rigs::IKBiped biped;
    ORV::Model model;
    std::unique_ptr<ZUK::ModelStructure> structure;

    // Builds, tags and stores the setup; animates the motion over [first, last].
    bool Build(int first = 0, int last = 60, const std::vector<Channel>& motion = BipedMotion(),
               const wchar_t* name = L"Rig") {
        biped = rigs::BuildIKBiped(ORV::Application().GetActiveSceneRoot(), name);
        model = biped.model;
        structure.reset(ZUK::ModelStructure::CreateFromFile(L"biped"));
        if (!structure || !bvhrig::TagRigByProperties(model, *structure, BipedTagging())) return false;
        structure->SaveToCustomProperty(model);
        ZUK::ModelMap map(model, structure.get());
        map.createMap();
        map.SaveToCustomProperty();
        std::unique_ptr<ZUK::GlueMap> glue(ZUK::GlueMap::createFromModelMap(model, &map));
        if (!glue) return false;
        glue->SaveToCustomProperty(model);
        for (const Channel& c : motion) {
            ORV::X3DObject o = model.FindChild(c.object.c_str());
            if (!o.IsValid()) return false;
            Animate(o, c.channel, c.value, first, last);
        }
        return true;
    }
    ORV::X3DObject Object(const wchar_t* name) const { return model.FindChild(name); }
};

inline ORV::Property PlayControl() {
    return ORV::Property(ORV::Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
}

inline void SetFrame(double f) { PlayControl().PutParameterValue(L"Current", f); }
inline double CurrentFrame() { return PlayControl().GetParameterValue(L"Current"); }

// Every 3D object of the model but connection lines, in hierarchy order.
inline std::vector<ORV::X3DObject> RigObjects(ORV::Model model) {
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray all = model.FindChildren(L"", L"", families, true);
    std::vector<ORV::X3DObject> out;
    for (long i = 0; i < all.GetCount(); ++i) {
        ORV::X3DObject o(all[i]);
        if (o.GetType() != ORV::CString(L"crvlist")) out.push_back(o);
    }
    return out;
}

// Global transforms of the objects at every frame of [first, last), read at those frames.
inline std::vector<std::vector<CTransformation>> RecordGlobals(const std::vector<ORV::X3DObject>& objects,
                                                               int first, int last) {
    std::vector<std::vector<CTransformation>> out;
    for (int f = first; f < last; ++f) {
        std::vector<CTransformation> frame;
        for (const ORV::X3DObject& o : objects)
            frame.push_back(o.GetKinematics().GetGlobal().GetTransform(f));
        out.push_back(frame);
    }
    return out;
}

// Largest position distance and rotation angle (radians) between two recordings.
inline std::pair<double, double> LargestDifference(const std::vector<std::vector<CTransformation>>& a,
                                                   const std::vector<std::vector<CTransformation>>& b,
                                                   size_t* worstRotation = nullptr,
                                                   size_t* worstFrame = nullptr) {
    double position = 0.0, angle = 0.0;
    for (size_t f = 0; f < a.size() && f < b.size(); ++f) {
        for (size_t i = 0; i < a[f].size() && i < b[f].size(); ++i) {
            position = std::max(position, (a[f][i].GetTranslation() - b[f][i].GetTranslation()).GetLength());
            ORV::MATH::CQuaternion p = a[f][i].GetRotationQuaternion(), q = b[f][i].GetRotationQuaternion();
            // The angle between two unit quaternions from their chord, which stays exact for
            // small angles where an arc cosine of the dot product does not.
            const double dot =
                p.GetW() * q.GetW() + p.GetX() * q.GetX() + p.GetY() * q.GetY() + p.GetZ() * q.GetZ();
            const double s = dot < 0.0 ? -1.0 : 1.0;
            const double dw = p.GetW() - s * q.GetW(), dx = p.GetX() - s * q.GetX(),
                         dy = p.GetY() - s * q.GetY(), dz = p.GetZ() - s * q.GetZ();
            const double chord = std::sqrt(dw * dw + dx * dx + dy * dy + dz * dz);
            const double turn = 4.0 * std::asin(std::min(1.0, chord / 2.0));
            if (turn > angle) {
                if (worstRotation) *worstRotation = i;
                if (worstFrame) *worstFrame = f;
            }
            angle = std::max(angle, turn);
        }
    }
    return {position, angle};
}

struct Key {
    double time, value;
    int interpolation;
};

// The keys of a local channel; empty when no curve drives it.
inline std::vector<Key> Keys(const ORV::X3DObject& object, const wchar_t* channel) {
    ORV::Parameter p = object.GetKinematics().GetLocal().GetParameter(channel);
    ORV::FCurve curve(p.GetSource());
    std::vector<Key> out;
    if (!curve.IsValid()) return out;
    for (long i = 0; i < curve.GetNumKeys(); ++i) {
        ORV::FCurveKey k = curve.GetKeyAtIndex(i);
        out.push_back(Key{k.GetTime(), k.GetValue(), k.GetInterpolation()});
    }
    return out;
}

inline std::vector<double> KeyTimes(const ORV::X3DObject& object, const wchar_t* channel) {
    std::vector<double> out;
    for (const Key& k : Keys(object, channel)) out.push_back(k.time);
    return out;
}

inline bool HasProperty(const ORV::X3DObject& object, const wchar_t* name) {
    return modelmaptest::FindProperty(object, name).IsValid();
}

// A RetargetOp bound to the model's blob the way a live operator binds itself (its address
// in the blob's runtime slot), without operators in the scene: enough for the plot to find
// the source's key timing.
struct BoundOperator {
    ZUK::RetargetOp op;
    void Bind(ORV::Model model) {
        ORV::Property p = model.AddProperty(L"UserDataBlob", false, ZUK::RetargetOp::DATA_NAME);
        ORV::UserDataBlob blob(p.GetRef());
        std::vector<unsigned char> bytes(ZUK::RetargetOp::POSES_OFFSET, 0);
        const unsigned int magic = ZUK::RetargetOp::MAGIC;
        std::memcpy(bytes.data(), &magic, 4);
        ZUK::RetargetOp* self = &op;
        std::memcpy(bytes.data() + 4, &self, sizeof self);
        blob.PutValue(bytes.data(), static_cast<unsigned int>(bytes.size()));
    }
    // Key times of one node's channels, in NodeKeyTiming's order posx..rotz.
    void SetTimings(const std::vector<std::pair<std::wstring, std::vector<std::vector<double>>>>& timings) {
        delete[] op.keyTimings;
        op.keyTimings = new ZUK::NodeKeyTiming[timings.size()];
        op.keyTimingCount = static_cast<int>(timings.size());
        for (size_t i = 0; i < timings.size(); ++i) {
            op.keyTimings[i].name = timings[i].first.c_str();
            for (size_t c = 0; c < timings[i].second.size() && c < 6; ++c)
                for (double t : timings[i].second[c]) op.keyTimings[i].times[c].Add(t);
        }
    }
};

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The factory "biped" without its forearm twist blocks, as the only add-on root while it lives.
// A structure read back from a model counts the empty channels of a decompose block as a
// target, which every tag without an override answers; the plain biped keeps the plotting
// tests free of that.
class PlainBiped {
public:
    PlainBiped() {
        const std::string factory = std::string(TROVO_FACTORY_DATA) + "/Addons/Trovo/Data/Structures/";
        root.Write("Structures/biped.base", ReadText(factory + "biped.base"));
        std::string structure = ReadText(factory + "biped.structure");
        const size_t cut = structure.find("leftforearmtwist {");
        if (cut != std::string::npos) structure.erase(cut);
        root.Write("Structures/biped.structure", structure);
        structtest::UseLocations(root.dir, "");
    }

private:
    structtest::SavedLocations saved;
    structtest::ScratchRoot root;
};

class PlotFixture : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::NewScene();
        orvhost::ClearLog();
    }
    PlainBiped structures;
};

}  // namespace plottest
