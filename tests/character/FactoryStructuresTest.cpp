// The factory structures under data/: they load cleanly, agree with the node tables of
// data/README.md, pair left with right, survive the stored form, hold the shape the rest of
// the system expects (cog, spine, limbs, canonical directions), and fit the real skeletons of
// the test data the way the README's tagging tables say.
#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "StructureTestSupport.h"

using structtest::ExpectStoredFieldsEqual;
using structtest::Messages;
using structtest::Text;
using ZUK::ModelStructure;

namespace {

const char* const FACTORY_STRUCTURES[] = {"biped", "quadruped", "bipedcapture"};

const double kPi = 3.141592653589793;

std::string Narrow(const ORV::CString& s) {
    const std::wstring w = s.GetWideString();
    return std::string(w.begin(), w.end());
}

std::string ReadText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
}

// ---- data/README.md ------------------------------------------------------------------------

struct ReadmeNode {
    int index;
    std::string name, kind, parent, mirror;
};

struct ReadmePlane {
    std::string name;
    int anchor, mid, span;
};

struct ReadmeStructure {
    int nodes = -1, planes = -1, decomps = -1;
    std::string family;
    std::vector<ReadmeNode> table;
    std::vector<ReadmePlane> planeList;
};

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::stringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> Cells(const std::string& row) {
    std::vector<std::string> cells;
    std::stringstream in(row);
    std::string cell;
    std::getline(in, cell, '|');  // before the first bar
    while (std::getline(in, cell, '|')) {
        const size_t first = cell.find_first_not_of(' ');
        const size_t last = cell.find_last_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
    }
    if (!cells.empty() && cells.back().empty()) cells.pop_back();
    return cells;
}

// The table whose header row starts with `header`: its data rows, as cells.
std::vector<std::vector<std::string>> TableAfter(const std::vector<std::string>& lines, size_t from,
                                                 const std::string& header) {
    std::vector<std::vector<std::string>> rows;
    size_t i = from;
    while (i < lines.size() && lines[i].rfind(header, 0) != 0) ++i;
    for (i += 2; i < lines.size() && !lines[i].empty() && lines[i][0] == '|'; ++i)
        rows.push_back(Cells(lines[i]));
    return rows;
}

// What the README says of the structure `name`: the counts in the line "Structure `name` (...)",
// its node table and its plane list.
ReadmeStructure ReadmeFor(const std::string& name) {
    ReadmeStructure out;
    const std::vector<std::string> lines = Lines(ReadText(std::string(TROVO_FACTORY_DATA) + "/README.md"));
    size_t at = 0;
    while (at < lines.size() && lines[at].rfind("Structure `" + name + "` (", 0) != 0) ++at;
    if (at == lines.size()) return out;
    // "Structure `name` (family `f`...): N nodes, P planes, D decompositions." over up to three lines.
    std::string head;
    for (size_t i = at; i < lines.size() && i < at + 3; ++i) head += lines[i] + " ";
    std::smatch m;
    const std::regex counts(
        "\\(family `(\\w+)`[^)]*\\): (\\d+) nodes, (\\d+) planes, (\\d+|no)\\s+decompositions");
    if (std::regex_search(head, m, counts)) {
        out.family = m[1];
        out.nodes = std::stoi(m[2]);
        out.planes = std::stoi(m[3]);
        out.decomps = m[4] == "no" ? 0 : std::stoi(m[4]);
    }
    for (const auto& cells : TableAfter(lines, at, "| index | name | kind | parent | mirror |")) {
        if (cells.size() != 5) continue;
        out.table.push_back(ReadmeNode{std::stoi(cells[0]), cells[1], cells[2], cells[3], cells[4]});
    }
    // "Planes (name, anchor, mid, span): `lshin` 5 6 7, ..." may run over two lines.
    size_t p = at;
    while (p < lines.size() && lines[p].rfind("Planes (name, anchor, mid, span):", 0) != 0) ++p;
    std::string paragraph;
    for (; p < lines.size() && !lines[p].empty(); ++p) paragraph += lines[p] + " ";
    const std::regex plane("`(\\w+)` (\\d+) (\\d+) (\\d+)");
    for (std::sregex_iterator it(paragraph.begin(), paragraph.end(), plane), end; it != end; ++it)
        out.planeList.push_back(
            ReadmePlane{(*it)[1], std::stoi((*it)[2]), std::stoi((*it)[3]), std::stoi((*it)[4])});
    return out;
}

// ---- Skeletons of the test data --------------------------------------------------------------

struct Skeleton {
    std::vector<std::string> names;
    std::vector<int> parent;
    std::vector<std::array<double, 3>> position;  // rest pose, global

    int Find(const std::string& name) const {
        for (size_t i = 0; i < names.size(); ++i)
            if (names[i] == name) return static_cast<int>(i);
        return -1;
    }
    // Parent steps from `joint` up to `ancestor`, or -1 when it is not above it.
    int StepsUp(int joint, int ancestor) const {
        int steps = 0;
        for (int j = joint; j >= 0; j = parent[static_cast<size_t>(j)], ++steps)
            if (j == ancestor) return steps;
        return -1;
    }
};

// The hierarchy of a BVH file: joints, their parents and rest positions (offsets summed).
Skeleton ReadBvhSkeleton(const std::string& path) {
    Skeleton s;
    std::stringstream in(ReadText(path));
    std::vector<int> open;
    int last = -1;
    for (std::string word; in >> word && word != "MOTION";) {
        if (word == "ROOT" || word == "JOINT" || word == "End") {
            std::string name;
            in >> name;
            if (word == "End") name = "";  // an end site
            s.names.push_back(name);
            s.parent.push_back(open.empty() ? -1 : open.back());
            s.position.push_back(open.empty() ? std::array<double, 3>{0, 0, 0}
                                              : s.position[size_t(open.back())]);
            last = static_cast<int>(s.names.size()) - 1;
        } else if (word == "{") {
            open.push_back(last);
        } else if (word == "}") {
            if (!open.empty()) open.pop_back();
        } else if (word == "OFFSET") {
            double x = 0, y = 0, z = 0;
            in >> x >> y >> z;
            if (last >= 0) {
                s.position[size_t(last)][0] += x;
                s.position[size_t(last)][1] += y;
                s.position[size_t(last)][2] += z;
            }
        }
    }
    return s;
}

using Matrix = std::array<double, 16>;  // column-major, as glTF stores it

Matrix Multiply(const Matrix& a, const Matrix& b) {
    Matrix m{};
    for (int c = 0; c < 4; ++c)
        for (int r = 0; r < 4; ++r)
            for (int k = 0; k < 4; ++k) m[size_t(c * 4 + r)] += a[size_t(k * 4 + r)] * b[size_t(c * 4 + k)];
    return m;
}

Matrix LocalMatrix(const nlohmann::json& node) {
    if (node.contains("matrix")) {
        Matrix m{};
        for (size_t i = 0; i < 16; ++i) m[i] = node["matrix"][i].get<double>();
        return m;
    }
    std::array<double, 3> t{0, 0, 0}, s{1, 1, 1};
    std::array<double, 4> q{0, 0, 0, 1};
    if (node.contains("translation"))
        for (size_t i = 0; i < 3; ++i) t[i] = node["translation"][i].get<double>();
    if (node.contains("scale"))
        for (size_t i = 0; i < 3; ++i) s[i] = node["scale"][i].get<double>();
    if (node.contains("rotation"))
        for (size_t i = 0; i < 4; ++i) q[i] = node["rotation"][i].get<double>();
    const double x = q[0], y = q[1], z = q[2], w = q[3];
    const double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    Matrix m{};
    for (int c = 0; c < 3; ++c)
        for (int row = 0; row < 3; ++row) m[size_t(c * 4 + row)] = r[row][c] * s[size_t(c)];
    m[12] = t[0];
    m[13] = t[1];
    m[14] = t[2];
    m[15] = 1;
    return m;
}

// The node hierarchy of a binary glTF file with global rest positions. A node without a name
// goes by its index.
Skeleton ReadGlbSkeleton(const std::string& path) {
    Skeleton s;
    const std::string bytes = ReadText(path);
    if (bytes.size() < 20) return s;
    uint32_t length = 0;
    for (int i = 3; i >= 0; --i) length = (length << 8) | static_cast<unsigned char>(bytes[size_t(12 + i)]);
    const nlohmann::json gltf = nlohmann::json::parse(bytes.substr(20, length));
    const nlohmann::json& nodes = gltf["nodes"];
    const size_t count = nodes.size();
    s.names.resize(count);
    s.parent.assign(count, -1);
    s.position.resize(count);
    for (size_t i = 0; i < count; ++i) {
        const std::string name = nodes[i].value("name", std::string());
        s.names[i] = name.empty() ? std::to_string(i) : name;
        if (nodes[i].contains("children"))
            for (const auto& child : nodes[i]["children"])
                s.parent[child.get<size_t>()] = static_cast<int>(i);
    }
    for (size_t i = 0; i < count; ++i) {
        Matrix global = LocalMatrix(nodes[i]);
        for (int p = s.parent[i]; p >= 0; p = s.parent[size_t(p)])
            global = Multiply(LocalMatrix(nodes[size_t(p)]), global);
        s.position[i] = {global[12], global[13], global[14]};
    }
    return s;
}

// node name -> joint name; "-" (untagged) rows are left out.
using Tagging = std::map<std::string, std::string>;

Tagging TaggingColumn(const std::string& header, size_t column, bool rightFromLeft) {
    Tagging tags;
    const std::vector<std::string> lines = Lines(ReadText(std::string(TROVO_FACTORY_DATA) + "/README.md"));
    for (const auto& cells : TableAfter(lines, 0, header)) {
        if (cells.size() <= column || cells[column] == "-") continue;
        tags[cells[0]] = cells[column];
        if (rightFromLeft && cells[0][0] == 'l') {
            // "Right" for "Left", or else an initial "R" for "L" (LFingers, RFingers).
            std::string right = cells[column];
            const size_t at = right.find("Left");
            if (at != std::string::npos) {
                right.replace(at, 4, "Right");
            } else if (!right.empty() && right[0] == 'L') {
                right[0] = 'R';
            }
            tags["r" + cells[0].substr(1)] = right;
        }
    }
    return tags;
}

// Tagging `skeleton` by `tags` on `structure` meets the rules of a valid tagging, and agrees
// with the skeleton's hierarchy and, where its rest pose stands upright facing +Z, its sides.
void ExpectTaggingFits(const ModelStructure& s, const Skeleton& skeleton, const Tagging& tags,
                       bool spineSpansJoints, bool checkSides = true) {
    std::vector<int> joint(size_t(s.numNodes), -1);
    for (const auto& [node, jointName] : tags) {
        int index = -1;
        for (int i = 0; i < s.numNodes; ++i)
            if (Narrow(s.nodes[i].Name) == node) index = i;
        ASSERT_GE(index, 0) << "no node " << node;
        joint[size_t(index)] = skeleton.Find(jointName);
        ASSERT_GE(joint[size_t(index)], 0) << "no joint " << jointName;
    }
    auto isSpan = [&](int node) {
        for (int p = 0; p < s.numPlanes; ++p)
            if (s.planes[p].Span == node) return true;
        return false;
    };
    for (int n = 0; n < s.numNodes; ++n) {
        if (joint[size_t(n)] < 0) continue;
        SCOPED_TRACE(Narrow(s.nodes[n].Name));
        // Climbing to the nearest tagged ancestor passes at most one untagged "child" at a time.
        bool skipped = false;
        int p = s.nodes[n].Parent;
        for (; p >= 0 && joint[size_t(p)] < 0; p = s.nodes[p].Parent) {
            EXPECT_EQ(s.nodes[p].Type, 1);
            EXPECT_FALSE(skipped);
            skipped = true;
        }
        if (p < 0) continue;
        const int steps = skeleton.StepsUp(joint[size_t(n)], joint[size_t(p)]);
        if (steps == 0) {
            // Only the child after a limb end may share its object.
            EXPECT_TRUE(s.nodes[n].Parent == p && isSpan(p));
        } else {
            EXPECT_GT(steps, 0) << "joint not below " << Narrow(s.nodes[p].Name) << "'s joint";
        }
        // Sides: a left joint never lies right of its counterpart (a clavicle joint may sit on
        // the midline, at the spine).
        const int m = s.nodes[n].mirror_node_index;
        if (checkSides && s.nodes[n].Name[0] == L'l' && m >= 0 && joint[size_t(m)] >= 0) {
            EXPECT_GE(skeleton.position[size_t(joint[size_t(n)])][0],
                      skeleton.position[size_t(joint[size_t(m)])][0]);
        }
    }
    for (int p = 0; p < s.numPlanes; ++p) {
        const ORV::CLongArray& bones = s.planes[p].bones;
        for (long b = 0; b < bones.GetCount(); ++b)
            ASSERT_GE(joint[size_t(bones[b])], 0) << "limb not complete";
        for (long b = 0; b + 1 < bones.GetCount(); ++b)
            EXPECT_GT(skeleton.StepsUp(joint[size_t(bones[b])], joint[size_t(bones[b + 1])]), 0);
        // Limb joints lie clearly on their own side: left on +X, right on -X.
        const bool left = s.nodes[s.planes[p].Span].Name[0] == L'l';
        for (long b = 0; checkSides && b < bones.GetCount(); ++b) {
            const double x = skeleton.position[size_t(joint[size_t(bones[b])])][0];
            if (left) {
                EXPECT_GT(x, 0.0) << Narrow(s.nodes[bones[b]].Name);
            } else {
                EXPECT_LT(x, 0.0) << Narrow(s.nodes[bones[b]].Name);
            }
        }
    }
    const int spine = s.nodeIndex(ORV::CString(L"spine"));
    const int chest = s.nodeIndex(ORV::CString(L"chest"));
    const int between = skeleton.StepsUp(joint[size_t(chest)], joint[size_t(spine)]);
    if (spineSpansJoints) {
        EXPECT_GE(between, 2);
    } else {
        EXPECT_EQ(between, 1);
    }
}

// The joint of each structure node under `tags`, or -1.
std::vector<int> JointsOf(const ModelStructure& s, const Skeleton& skeleton, const Tagging& tags) {
    std::vector<int> joint(size_t(s.numNodes), -1);
    for (const auto& [node, jointName] : tags) {
        const int index = s.nodeIndex(ORV::CString(std::wstring(node.begin(), node.end()).c_str()));
        if (index >= 0) joint[size_t(index)] = skeleton.Find(jointName);
    }
    return joint;
}

// The signed angle that turns `from` into `to` about the canonical axis `axis` (0 X, 1 Y, 2 Z),
// from their parts in the plane normal to it; false when either lies mostly along the axis.
bool BendAbout(int axis, const std::array<double, 3>& from, const std::array<double, 3>& to, double& angle) {
    const size_t i = size_t((axis + 1) % 3), j = size_t((axis + 2) % 3);
    const double inPlaneFrom = std::hypot(from[i], from[j]), inPlaneTo = std::hypot(to[i], to[j]);
    const double lengthFrom = std::hypot(inPlaneFrom, from[size_t(axis)]);
    const double lengthTo = std::hypot(inPlaneTo, to[size_t(axis)]);
    if (inPlaneFrom < 0.3 * lengthFrom || inPlaneTo < 0.3 * lengthTo) return false;
    angle = std::atan2(from[i] * to[j] - from[j] * to[i], from[i] * to[i] + from[j] * to[j]);
    return true;
}

std::array<double, 3> Between(const std::array<double, 3>& a, const std::array<double, 3>& b) {
    return {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
}

// For every limited axis of a node that has a child: the rest pose of a real skeleton, read as
// the bend from the bone before the node to the node's own bone about that canonical axis,
// and measured from the same bend in the structure's own rest pose, lies within the limits.
// A limit with the wrong sign would shut out the pose in which the skeleton stands. Gives the
// number of bends checked.
int ExpectRestBendsWithinLimits(const ModelStructure& s, const Skeleton& skeleton, const Tagging& tags) {
    const std::vector<int> joint = JointsOf(s, skeleton, tags);
    auto position = [](const ORV::MATH::CVector3& v) { return std::array<double, 3>{v.x, v.y, v.z}; };
    int checked = 0;
    for (int n = 0; n < s.numNodes; ++n) {
        const int before = s.nodes[n].OffsetParent;
        int child = -1;
        for (int c = s.numNodes - 1; c > n; --c)
            if (s.nodes[c].OffsetParent == n) child = c;
        if (before < 0 || child < 0) continue;
        const int a = joint[size_t(before)], b = joint[size_t(n)], c = joint[size_t(child)];
        if (a < 0 || b < 0 || c < 0 || a == b || b == c) continue;
        const double min[3] = {s.nodes[n].Minlimits.x, s.nodes[n].Minlimits.y, s.nodes[n].Minlimits.z};
        const double max[3] = {s.nodes[n].Maxlimits.x, s.nodes[n].Maxlimits.y, s.nodes[n].Maxlimits.z};
        for (int axis = 0; axis < 3; ++axis) {
            if (max[axis] < min[axis]) continue;  // not limited
            double rig = 0, rest = 0;
            if (!BendAbout(axis, Between(skeleton.position[size_t(a)], skeleton.position[size_t(b)]),
                           Between(skeleton.position[size_t(b)], skeleton.position[size_t(c)]), rig) ||
                !BendAbout(axis, Between(position(s.nodes[before].Position), position(s.nodes[n].Position)),
                           Between(position(s.nodes[n].Position), position(s.nodes[child].Position)), rest))
                continue;
            double bend = rig - rest;
            if (bend > kPi) bend -= 2 * kPi;
            if (bend < -kPi) bend += 2 * kPi;
            SCOPED_TRACE(Narrow(s.nodes[n].Name) + " axis " + std::to_string(axis));
            EXPECT_GE(bend, min[axis]);
            EXPECT_LE(bend, max[axis]);
            ++checked;
        }
    }
    return checked;
}

// ---- Fixture ---------------------------------------------------------------------------------

class FactoryStructures : public ::testing::Test {
protected:
    void SetUp() override {
        structtest::UseLocations(emptyUser.dir, TROVO_FACTORY_DATA);
        orvhost::ResetScene();
        orvhost::ClearLog();
    }

    std::unique_ptr<ModelStructure> Load(const char* name) {
        return std::unique_ptr<ModelStructure>(ModelStructure::CreateFromFile(ORV::CString(name)));
    }

    structtest::SavedLocations savedLocations;
    structtest::ScratchRoot emptyUser;
};

ORV::MATH::CVector3 Unit(const ORV::MATH::CVector3& v) {
    const double length = v.GetLength();
    return length > 0 ? v / length : v;
}

}  // namespace

TEST_F(FactoryStructures, EachLoadsWithoutAMessage) {
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        orvhost::ClearLog();
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        EXPECT_TRUE(Messages(0).empty());
        EXPECT_EQ(Text(s->Source), structtest::Wide(name));
    }
}

TEST_F(FactoryStructures, NodesAndPlanesAreThoseOfTheDataReadme) {
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        const ReadmeStructure readme = ReadmeFor(name);
        EXPECT_EQ(s->numNodes, readme.nodes);
        EXPECT_EQ(s->numPlanes, readme.planes);
        EXPECT_EQ(static_cast<int>(s->decomps.size()), readme.decomps);
        EXPECT_EQ(Narrow(s->Type), readme.family);
        ASSERT_EQ(static_cast<int>(readme.table.size()), s->numNodes);
        for (const ReadmeNode& row : readme.table) {
            SCOPED_TRACE(row.name);
            ASSERT_LT(row.index, s->numNodes);
            const ModelStructure::Node& node = s->nodes[row.index];
            EXPECT_EQ(Narrow(node.Name), row.name);
            const ModelStructure::GroupItem* item = s->FindTagItem(node.Name);
            ASSERT_NE(item, nullptr);
            EXPECT_EQ(Narrow(item->Type), row.kind);
            EXPECT_EQ(node.Parent < 0 ? "-" : Narrow(s->nodes[node.Parent].Name), row.parent);
            EXPECT_EQ(node.mirror_node_index < 0 ? "-" : Narrow(s->nodes[node.mirror_node_index].Name),
                      row.mirror);
        }
        ASSERT_EQ(static_cast<int>(readme.planeList.size()), s->numPlanes);
        for (int p = 0; p < s->numPlanes; ++p) {
            EXPECT_EQ(Narrow(s->planes[p].Name), readme.planeList[size_t(p)].name);
            EXPECT_EQ(s->planes[p].AnchorIndex, readme.planeList[size_t(p)].anchor);
            EXPECT_EQ(s->planes[p].Mid, readme.planeList[size_t(p)].mid);
            EXPECT_EQ(s->planes[p].Span, readme.planeList[size_t(p)].span);
        }
    }
}

TEST_F(FactoryStructures, EveryLeftAndRightNodeHasItsMirror) {
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        int sided = 0;
        for (int i = 0; i < s->numNodes; ++i) {
            const std::string own = Narrow(s->nodes[i].Name);
            if (own[0] != 'l' && own[0] != 'r') {
                EXPECT_EQ(s->nodes[i].mirror_node_index, -1) << own;
                continue;
            }
            ++sided;
            const int m = s->nodes[i].mirror_node_index;
            ASSERT_GE(m, 0) << own;
            EXPECT_EQ(s->nodes[m].mirror_node_index, i);
            EXPECT_EQ(Narrow(s->nodes[m].Name), std::string(own[0] == 'l' ? "r" : "l") + own.substr(1));
        }
        EXPECT_GT(sided, 0);
    }
}

TEST_F(FactoryStructures, EachSurvivesASaveToThePropertyAndAReload) {
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Rig", model);
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        s->SaveToCustomProperty(model);
        std::unique_ptr<ModelStructure> back(ModelStructure::CreateFromCustomProperty(model));
        ASSERT_NE(back, nullptr);
        ExpectStoredFieldsEqual(*s, *back);
    }
}

TEST_F(FactoryStructures, NodeZeroIsTheCogAndTheSpineIsAFreeChainAboveIt) {
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(Text(s->nodes[0].Name), L"cog");
        EXPECT_EQ(Text(s->FindTagItem(ORV::CString(L"cog"))->Type), L"hip");
        EXPECT_EQ(s->nodes[0].Parent, -1);
        int free = 0;
        for (int i = 0; i < s->numNodes; ++i) {
            if (s->nodes[i].Type != 3) continue;
            ++free;
            // A spine curve needs its base at index 1 or above, under the cog.
            const int base = s->nodes[i].Parent;
            EXPECT_EQ(Text(s->nodes[i].Name), L"chest");
            EXPECT_EQ(Text(s->nodes[base].Name), L"spine");
            EXPECT_GE(base, 1);
            EXPECT_EQ(s->nodes[base].Parent, 0);
        }
        EXPECT_EQ(free, 1);
        EXPECT_GE(s->nodeIndex(ORV::CString(L"neck")), 0);
        EXPECT_GE(s->nodeIndex(ORV::CString(L"head")), 0);
    }
}

TEST_F(FactoryStructures, EveryLimbEndIsFollowedByItsChild) {
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        int friction = 0;
        for (int p = 0; p < s->numPlanes; ++p) {
            const int span = s->planes[p].Span;
            SCOPED_TRACE(Narrow(s->nodes[span].Name));
            EXPECT_GE(s->planes[p].bones.GetCount(), 3);
            ASSERT_LT(span + 1, s->numNodes);
            EXPECT_EQ(s->nodes[span + 1].Parent, span);
            EXPECT_EQ(s->nodes[span + 1].Type, 1);
            if (s->nodes[span].Friction) ++friction;
        }
        // Feet touch the ground: two on a biped, four on the quadruped. The rest are hands.
        EXPECT_EQ(friction, std::string(name) == "quadruped" ? 4 : 2);
    }
}

TEST_F(FactoryStructures, AlignAndRollAreUnitPerpendicularAndAlignRunsTowardAChild) {
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        for (int i = 0; i < s->numNodes; ++i) {
            const ModelStructure::Node& node = s->nodes[i];
            SCOPED_TRACE(Narrow(node.Name));
            EXPECT_NEAR(node.align.GetLength(), 1.0, 1e-12);
            EXPECT_NEAR(node.roll.GetLength(), 1.0, 1e-12);
            EXPECT_NEAR(node.align.Dot(node.roll), 0.0, 1e-12);
            bool hasChild = false, alongChild = false;
            for (int c = 0; c < s->numNodes; ++c) {
                if (s->nodes[c].OffsetParent != i) continue;
                hasChild = true;
                if (Unit(s->nodes[c].Offset).Equals(node.align, 1e-12)) alongChild = true;
            }
            if (hasChild) {
                EXPECT_TRUE(alongChild);
            }
        }
    }
}

TEST_F(FactoryStructures, MirroredNodesMirrorOffsetsDirectionsAndLimits) {
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        for (int i = 0; i < s->numNodes; ++i) {
            const int m = s->nodes[i].mirror_node_index;
            if (m < 0) continue;
            const ModelStructure::Node& a = s->nodes[i];
            const ModelStructure::Node& b = s->nodes[m];
            SCOPED_TRACE(Narrow(a.Name));
            // Mirroring across the YZ plane negates X of positions and directions; an angle
            // about X keeps its sign, angles about Y and Z change sign, which swaps their limits.
            EXPECT_EQ(b.Offset, ORV::MATH::CVector3(-a.Offset.x, a.Offset.y, a.Offset.z));
            EXPECT_EQ(b.align, ORV::MATH::CVector3(-a.align.x, a.align.y, a.align.z));
            EXPECT_EQ(b.roll, ORV::MATH::CVector3(-a.roll.x, a.roll.y, a.roll.z));
            EXPECT_EQ(b.Type, a.Type);
            EXPECT_EQ(b.Friction, a.Friction);
            EXPECT_DOUBLE_EQ(b.Minlimits.x, a.Minlimits.x);
            EXPECT_DOUBLE_EQ(b.Maxlimits.x, a.Maxlimits.x);
            EXPECT_DOUBLE_EQ(b.Minlimits.y, -a.Maxlimits.y);
            EXPECT_DOUBLE_EQ(b.Maxlimits.y, -a.Minlimits.y);
            EXPECT_DOUBLE_EQ(b.Minlimits.z, -a.Maxlimits.z);
            EXPECT_DOUBLE_EQ(b.Maxlimits.z, -a.Minlimits.z);
        }
    }
}

TEST_F(FactoryStructures, NoTwoNodesShareARestPositionAndTheFiguresStandOnTheGround) {
    for (const char* name : FACTORY_STRUCTURES) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        double lowest = 1e9;
        for (int i = 0; i < s->numNodes; ++i) {
            lowest = std::min(lowest, s->nodes[i].Position.y);
            for (int j = i + 1; j < s->numNodes; ++j)
                EXPECT_FALSE(s->nodes[i].Position == s->nodes[j].Position)
                    << Narrow(s->nodes[i].Name) << " and " << Narrow(s->nodes[j].Name);
        }
        EXPECT_GT(lowest, 0.0);
        EXPECT_LT(lowest, 10.0);
    }
}

TEST_F(FactoryStructures, KneesAndElbowsBendOneWayAboutOneAxis) {
    auto s = Load("biped");
    ASSERT_NE(s, nullptr);
    const double DEG = 0.017453292519943295;
    const ModelStructure::Node& knee = s->nodes[s->nodeIndex(ORV::CString(L"lshin"))];
    EXPECT_DOUBLE_EQ(knee.Minlimits.x, -10 * DEG);
    EXPECT_DOUBLE_EQ(knee.Maxlimits.x, 160 * DEG);
    EXPECT_GT(knee.Minlimits.y, knee.Maxlimits.y);  // not limited
    EXPECT_GT(knee.Minlimits.z, knee.Maxlimits.z);
    const ModelStructure::Node& elbow = s->nodes[s->nodeIndex(ORV::CString(L"lforearm"))];
    EXPECT_GT(elbow.Minlimits.x, elbow.Maxlimits.x);
    EXPECT_DOUBLE_EQ(elbow.Minlimits.y, -160 * DEG);
    EXPECT_DOUBLE_EQ(elbow.Maxlimits.y, 10 * DEG);
    EXPECT_GT(elbow.Minlimits.z, elbow.Maxlimits.z);
    const ModelStructure::Node& wrist = s->nodes[s->nodeIndex(ORV::CString(L"lhand"))];
    EXPECT_GT(wrist.Minlimits.x, wrist.Maxlimits.x);  // the forearm's twist stays free
    EXPECT_DOUBLE_EQ(wrist.Minlimits.y, -40 * DEG);
    EXPECT_DOUBLE_EQ(wrist.Maxlimits.z, 80 * DEG);
    for (const wchar_t* free : {L"chest", L"lthigh", L"lupperarm"}) {
        const ModelStructure::Node& ball = s->nodes[s->nodeIndex(ORV::CString(free))];
        EXPECT_GT(ball.Minlimits.x, ball.Maxlimits.x);  // the spine, hips and shoulders are free
        EXPECT_GT(ball.Minlimits.y, ball.Maxlimits.y);
        EXPECT_GT(ball.Minlimits.z, ball.Maxlimits.z);
    }
}

TEST_F(FactoryStructures, BipedTwistTargetsAreExtraTagsOnTheHands) {
    auto s = Load("biped");
    ASSERT_NE(s, nullptr);
    ASSERT_EQ(s->decomps.size(), 2u);
    const wchar_t* sources[] = {L"lhand", L"rhand"};
    const wchar_t* targets[] = {L"lforearmtwist", L"rforearmtwist"};
    for (size_t d = 0; d < 2; ++d) {
        const ModelStructure::Decomp& decomp = s->decomps[d];
        EXPECT_EQ(Text(decomp.SrcName), sources[d]);
        EXPECT_GE(s->nodeIndex(decomp.SrcName), 0);
        EXPECT_EQ(Text(decomp.RX), targets[d]);
        ASSERT_EQ(decomp.targets.GetCount(), 1);
        EXPECT_EQ(s->nodeIndex(decomp.targets[0]), -1);  // a target is no node
    }
}

TEST_F(FactoryStructures, CaptureStructureSharesTheBipedFamilyAndNames) {
    auto capture = Load("bipedcapture");
    auto biped = Load("biped");
    ASSERT_NE(capture, nullptr);
    ASSERT_NE(biped, nullptr);
    EXPECT_EQ(Text(capture->Type), L"biped");
    EXPECT_EQ(Text(biped->Type), L"biped");
    EXPECT_EQ(Text(capture->nodes[0].Name), Text(biped->nodes[0].Name));
    EXPECT_TRUE(capture->decomps.empty());
    for (int i = 0; i < capture->numNodes; ++i) {
        const int same = biped->nodeIndex(capture->nodes[i].Name);
        ASSERT_GE(same, 0) << Narrow(capture->nodes[i].Name);
        EXPECT_EQ(biped->nodes[same].Type, capture->nodes[i].Type);
        EXPECT_EQ(biped->nodes[same].align, capture->nodes[i].align);
        EXPECT_EQ(biped->nodes[same].roll, capture->nodes[i].roll);
        // Same rest position where the biped has no clavicle in between.
        EXPECT_EQ(biped->nodes[same].Position, capture->nodes[i].Position);
    }
}

TEST_F(FactoryStructures, BipedFitsTheCmuMotionBuilderSkeleton) {
    auto s = Load("biped");
    ASSERT_NE(s, nullptr);
    const Skeleton skeleton = ReadBvhSkeleton(std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh");
    ASSERT_EQ(skeleton.Find("Hips"), 0);
    const Tagging tags = TaggingColumn("| node | CMU MotionBuilder |", 1, true);
    EXPECT_EQ(tags.size(), 23u);
    ExpectTaggingFits(*s, skeleton, tags, true);
}

TEST_F(FactoryStructures, BipedFitsTheAnimatedDrawingsSkeleton) {
    auto s = Load("biped");
    ASSERT_NE(s, nullptr);
    const Skeleton skeleton =
        ReadBvhSkeleton(std::string(TROVO_TEST_DATA) + "/bvh/other_fair_animdrawings/dab.bvh");
    ASSERT_EQ(skeleton.Find("Hips"), 0);
    const Tagging tags = TaggingColumn("| node | CMU MotionBuilder |", 4, true);
    EXPECT_EQ(tags.size(), 23u);
    ExpectTaggingFits(*s, skeleton, tags, true);
}

TEST_F(FactoryStructures, BipedFitsTheRiggedFigure) {
    auto s = Load("biped");
    ASSERT_NE(s, nullptr);
    const Skeleton skeleton =
        ReadGlbSkeleton(std::string(TROVO_TEST_DATA) + "/gltf/RiggedFigure/RiggedFigure.glb");
    ASSERT_GT(skeleton.names.size(), 20u);
    const Tagging tags = TaggingColumn("| node | RiggedFigure joint |", 1, false);
    EXPECT_EQ(tags.size(), 21u);  // both clavicles untagged
    ExpectTaggingFits(*s, skeleton, tags, false);
}

TEST_F(FactoryStructures, QuadrupedFitsTheFox) {
    auto s = Load("quadruped");
    ASSERT_NE(s, nullptr);
    const Skeleton skeleton = ReadGlbSkeleton(std::string(TROVO_TEST_DATA) + "/gltf/Fox/Fox.glb");
    ASSERT_GE(skeleton.Find("b_Hip_01"), 0);
    const Tagging tags = TaggingColumn("| node | Fox joint |", 1, false);
    EXPECT_EQ(tags.size(), 26u);  // both scapulae untagged
    ExpectTaggingFits(*s, skeleton, tags, false);
}

TEST_F(FactoryStructures, BipedFitsTheCmu3dsMaxSkeleton) {
    auto s = Load("biped");
    ASSERT_NE(s, nullptr);
    const Skeleton skeleton = ReadBvhSkeleton(std::string(TROVO_TEST_DATA) + "/bvh/cmu_3dsmax/01_01.bvh");
    ASSERT_EQ(skeleton.Find("Hips"), 0);
    const Tagging tags = TaggingColumn("| node | CMU MotionBuilder |", 2, true);
    EXPECT_EQ(tags.size(), 23u);
    EXPECT_EQ(tags.at("rfingers"), "RFingers");
    ExpectTaggingFits(*s, skeleton, tags, true);
}

TEST_F(FactoryStructures, BipedFitsTheMixamoStyleSkeleton) {
    auto s = Load("biped");
    ASSERT_NE(s, nullptr);
    const Skeleton skeleton =
        ReadBvhSkeleton(std::string(TROVO_TEST_DATA) + "/bvh/other_rokoko_mixamo_preset/jesse_dance.bvh");
    ASSERT_EQ(skeleton.Find("Hips"), 0);
    const Tagging tags = TaggingColumn("| node | CMU MotionBuilder |", 3, true);
    EXPECT_EQ(tags.size(), 23u);
    // With all channels at zero this file lays its bones out along X, not standing: its sides
    // are known by name only.
    ExpectTaggingFits(*s, skeleton, tags, true, false);
}

TEST_F(FactoryStructures, BipedLimitsHoldTheRestPosesOfRealSkeletons) {
    auto s = Load("biped");
    ASSERT_NE(s, nullptr);
    const Skeleton cmu = ReadBvhSkeleton(std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/02_01.bvh");
    // neck X Z, and on both sides knee X, ankle X, elbow Y, wrist Y Z (the ankle's other axes
    // and the neck's Y have a bone along them)
    EXPECT_EQ(ExpectRestBendsWithinLimits(*s, cmu, TaggingColumn("| node | CMU MotionBuilder |", 1, true)),
              12);
    const Skeleton figure =
        ReadGlbSkeleton(std::string(TROVO_TEST_DATA) + "/gltf/RiggedFigure/RiggedFigure.glb");
    // The same but the wrists: the figure's hand joint plays the fingers too.
    EXPECT_EQ(
        ExpectRestBendsWithinLimits(*s, figure, TaggingColumn("| node | RiggedFigure joint |", 1, false)), 8);
}

TEST_F(FactoryStructures, QuadrupedLegHingesHoldTheFoxRestPose) {
    auto s = Load("quadruped");
    ASSERT_NE(s, nullptr);
    const Skeleton fox = ReadGlbSkeleton(std::string(TROVO_TEST_DATA) + "/gltf/Fox/Fox.glb");
    const Tagging tags = TaggingColumn("| node | Fox joint |", 1, false);
    // neck X Z, and on both sides the front elbow, the stifle and the hock, each about X
    EXPECT_EQ(ExpectRestBendsWithinLimits(*s, fox, tags), 8);
    // The fox stands with its stifles folded back and its hocks folded forward, as the
    // limits have it: the rest bend about X, from the hand-read joint positions.
    const std::vector<int> joint = JointsOf(*s, fox, tags);
    auto bendAt = [&](const char* before, const char* node, const char* after) {
        const auto at = [&](const char* name) {
            return fox.position[size_t(joint[size_t(s->nodeIndex(ORV::CString(name)))])];
        };
        double angle = 0;
        EXPECT_TRUE(BendAbout(0, Between(at(before), at(node)), Between(at(node), at(after)), angle));
        return angle;
    };
    EXPECT_GT(bendAt("lthigh", "lshin", "lhock"), 0.5);
    EXPECT_LT(bendAt("lshin", "lhock", "lhindfoot"), -0.5);
    EXPECT_GT(bendAt("rthigh", "rshin", "rhock"), 0.5);
    EXPECT_LT(bendAt("rshin", "rhock", "rhindfoot"), -0.5);
}

TEST_F(FactoryStructures, CaptureStructureHasTheLimitsOfTheBiped) {
    auto capture = Load("bipedcapture");
    auto biped = Load("biped");
    ASSERT_NE(capture, nullptr);
    ASSERT_NE(biped, nullptr);
    int limited = 0;
    for (int i = 0; i < capture->numNodes; ++i) {
        const ModelStructure::Node& node = capture->nodes[i];
        const ModelStructure::Node& same = biped->nodes[biped->nodeIndex(node.Name)];
        SCOPED_TRACE(Narrow(node.Name));
        EXPECT_EQ(node.Minlimits, same.Minlimits);
        EXPECT_EQ(node.Maxlimits, same.Maxlimits);
        if (node.Maxlimits.x >= node.Minlimits.x || node.Maxlimits.y >= node.Minlimits.y ||
            node.Maxlimits.z >= node.Minlimits.z)
            ++limited;
    }
    EXPECT_EQ(limited, 10);  // neck, head, knees, ankles, elbows, wrists
}

TEST_F(FactoryStructures, MainReadmeLinksTheDataReadmeWithTheSameCounts) {
    const std::string readme = ReadText(std::string(TROVO_FACTORY_DATA) + "/../README.md");
    EXPECT_NE(readme.find("(data/README.md)"), std::string::npos);
    const std::pair<const char*, const char*> rows[] = {
        {"biped", "`Structures/biped.structure`"},
        {"quadruped", "`Structures/quadruped.structure`"},
        {"bipedcapture", "`Structures/Mocap/bipedcapture.structure`"}};
    for (const auto& [name, file] : rows) {
        SCOPED_TRACE(name);
        auto s = Load(name);
        ASSERT_NE(s, nullptr);
        const size_t at = readme.find("| " + std::string(file));
        ASSERT_NE(at, std::string::npos);
        const std::vector<std::string> cells = Cells(readme.substr(at, readme.find('\n', at) - at));
        ASSERT_GE(cells.size(), 4u);
        EXPECT_EQ(cells[2], std::to_string(s->numNodes));
        EXPECT_EQ(cells[3], std::to_string(s->numPlanes));
    }
}
