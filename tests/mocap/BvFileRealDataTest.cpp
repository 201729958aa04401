// Every BVH file of the test data reads, and its joints stand where an independent forward
// kinematics puts them: the file parsed again here, 4 by 4 matrices in double precision,
// degrees to radians, each joint's rotations composed in its own channel order.
//
// Budget: 1e-4 of the skeleton's height. The reader keeps values in single precision
// (7 significant digits), which over a chain of a dozen joints stays far below that.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "mocap/BvFile.h"
#include "mocap/Mocap.h"
#include "RealBvhFiles.h"

namespace {

using Mat4 = std::array<double, 16>;  // column convention, row-major storage: m[r * 4 + c]

Mat4 Identity() { return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }

Mat4 Mul(const Mat4& a, const Mat4& b) {
    Mat4 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double s = 0;
            for (int k = 0; k < 4; ++k) s += a[i * 4 + k] * b[k * 4 + j];
            r[i * 4 + j] = s;
        }
    return r;
}

Mat4 Translation(double x, double y, double z) {
    Mat4 m = Identity();
    m[3] = x;
    m[7] = y;
    m[11] = z;
    return m;
}

Mat4 Rotation(char axis, double degrees) {
    const double a = degrees * 3.14159265358979323846 / 180.0;
    const double c = std::cos(a), s = std::sin(a);
    Mat4 m = Identity();
    if (axis == 'X') {
        m[5] = c, m[6] = -s, m[9] = s, m[10] = c;
    } else if (axis == 'Y') {
        m[0] = c, m[2] = s, m[8] = -s, m[10] = c;
    } else {
        m[0] = c, m[1] = -s, m[4] = s, m[5] = c;
    }
    return m;
}

struct Joint {
    std::string name;
    int parent = -1;
    double offset[3] = {0, 0, 0};
    std::vector<std::string> channels;
    int firstValue = 0;  // index of its first channel within a frame
};

struct Reference {
    std::vector<Joint> joints;
    int valuesPerFrame = 0;
    int frames = 0;
    std::vector<double> values;  // frames * valuesPerFrame
    bool ok = false;
};

bool ParseJoint(std::istringstream& in, Reference& ref, int parent) {
    Joint j;
    j.parent = parent;
    std::string word;
    in >> j.name >> word;
    if (word != "{") return false;
    const int index = static_cast<int>(ref.joints.size());
    ref.joints.push_back(j);
    while (in >> word) {
        if (word == "OFFSET") {
            in >> ref.joints[index].offset[0] >> ref.joints[index].offset[1] >> ref.joints[index].offset[2];
        } else if (word == "CHANNELS") {
            int n = 0;
            in >> n;
            ref.joints[index].firstValue = ref.valuesPerFrame;
            for (int c = 0; c < n; ++c) {
                in >> word;
                ref.joints[index].channels.push_back(word);
            }
            ref.valuesPerFrame += n;
        } else if (word == "JOINT") {
            if (!ParseJoint(in, ref, index)) return false;
        } else if (word == "End") {
            std::string site, brace, offset, close;
            double x, y, z;
            in >> site >> brace >> offset >> x >> y >> z >> close;
        } else {
            return word == "}";
        }
    }
    return false;
}

Reference Parse(const std::string& path) {
    Reference ref;
    std::ifstream file(path, std::ios::binary);
    std::stringstream buffer;
    buffer << file.rdbuf();
    std::istringstream in(buffer.str());
    std::string word;
    in >> word;
    if (word != "HIERARCHY") return ref;
    in >> word;  // ROOT
    if (!ParseJoint(in, ref, -1)) return ref;
    in >> word;                  // MOTION
    in >> word >> ref.frames;    // Frames:
    in >> word >> word >> word;  // Frame Time: t
    ref.values.reserve(static_cast<size_t>(ref.frames) * ref.valuesPerFrame);
    for (long i = 0; i < static_cast<long>(ref.frames) * ref.valuesPerFrame; ++i) {
        in >> word;
        ref.values.push_back(std::strtod(word.c_str(), nullptr));
    }
    ref.ok = static_cast<bool>(in);
    return ref;
}

std::vector<Mat4> Globals(const Reference& ref, int frame) {
    std::vector<Mat4> g(ref.joints.size());
    const double* v = &ref.values[static_cast<size_t>(frame) * ref.valuesPerFrame];
    for (size_t i = 0; i < ref.joints.size(); ++i) {
        const Joint& j = ref.joints[i];
        double pos[3] = {j.offset[0], j.offset[1], j.offset[2]};
        Mat4 rot = Identity();
        for (size_t c = 0; c < j.channels.size(); ++c) {
            const std::string& ch = j.channels[c];
            const double value = v[j.firstValue + c];
            if (ch.size() > 1 && ch.substr(1) == "position")
                pos[ch[0] - 'X'] = value;
            else
                rot = Mul(rot, Rotation(ch[0], value));
        }
        const Mat4 local = Mul(Translation(pos[0], pos[1], pos[2]), rot);
        g[i] = j.parent < 0 ? local : Mul(g[j.parent], local);
    }
    return g;
}

double Height(const std::vector<Mat4>& g) {
    double lo[3] = {1e300, 1e300, 1e300}, hi[3] = {-1e300, -1e300, -1e300};
    for (const Mat4& m : g)
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], m[a * 4 + 3]);
            hi[a] = std::max(hi[a], m[a * 4 + 3]);
        }
    return std::max({hi[0] - lo[0], hi[1] - lo[1], hi[2] - lo[2]});
}

using Case = bvhtest::RealBvhFile;

class BvFileRealData : public ::testing::TestWithParam<Case> {};

}  // namespace

TEST_P(BvFileRealData, JointsStandWhereIndependentForwardKinematicsPutsThem) {
    const Case& c = GetParam();
    const std::string path = std::string(TROVO_TEST_DATA) + "/" + c.path;

    const Reference ref = Parse(path);
    ASSERT_TRUE(ref.ok) << path;
    ASSERT_EQ(c.joints, static_cast<int>(ref.joints.size()));
    ASSERT_EQ(c.frames, ref.frames);

    ZUK::BvFile file;
    ZUK::MocapData data;
    ASSERT_TRUE(file.Open(ORV::CString(path.c_str()).GetWideString()));
    ASSERT_TRUE(file.ReadHierarchy(&data));
    ASSERT_TRUE(file.ReadMotionData(&data, false, ZUK::YUp));
    ASSERT_EQ(c.joints, data.nodeCount);

    for (int i = 0; i < data.nodeCount; ++i) {
        EXPECT_TRUE(data.nodes[i].name == ORV::CString(ref.joints[i].name.c_str())) << i;
        EXPECT_EQ(ref.joints[i].parent, data.nodes[i].parent) << i;
        EXPECT_EQ(c.frames, data.nodes[i].frameCount) << i;
    }

    const double tolerance = 1e-4 * Height(Globals(ref, 0));
    for (int frame : {0, c.frames / 2, c.frames - 1}) {
        const std::vector<Mat4> g = Globals(ref, frame);
        data.updateTransforms(frame);
        for (int i = 0; i < data.nodeCount; ++i) {
            const ORV::MATH::CVector3 p = data.nodes[i].global.GetTranslation();
            EXPECT_NEAR(g[i][3], p.x, tolerance)
                << c.path << " frame " << frame << " joint " << ref.joints[i].name;
            EXPECT_NEAR(g[i][7], p.y, tolerance)
                << c.path << " frame " << frame << " joint " << ref.joints[i].name;
            EXPECT_NEAR(g[i][11], p.z, tolerance)
                << c.path << " frame " << frame << " joint " << ref.joints[i].name;
            // The host's matrix is the row form: the transpose of the column form above.
            const ORV::MATH::CMatrix3 m = data.nodes[i].global.GetRotationMatrix3();
            for (int r = 0; r < 3; ++r)
                for (int k = 0; k < 3; ++k)
                    EXPECT_NEAR(g[i][k * 4 + r], m.Get(r, k), 1e-4)
                        << c.path << " frame " << frame << " joint " << ref.joints[i].name;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllFiles, BvFileRealData, ::testing::ValuesIn(bvhtest::kRealBvhFiles), [](const auto& info) {
    std::string name = info.param.path;
    name = name.substr(4, name.size() - 8);  // drop "bvh/" and ".bvh"
    for (char& ch : name)
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
    return name;
});
