// Character import and export. Assimp reads and writes every format it knows; BVH is written
// here, since Assimp has no BVH writer. Everything is checked before the scene is touched, and
// a file is written whole to a temporary name before it replaces the target.
#include "CharacterFiles.h"

#include <assimp/BaseImporter.h>
#include <assimp/config.h>
#include <assimp/importerdesc.h>
#include <assimp/scene.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cwctype>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "AnimHooks.h"
#include "TextCodec.h"

using namespace ORV;
using nlohmann::json;
using ORV::MATH::CMatrix3;
using ORV::MATH::CQuaternion;
using ORV::MATH::CRotation;
using ORV::MATH::CVector3;

namespace orvhost {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRadToDeg = 57.29577951308232;
constexpr char kBlobMagic[8] = {'T', 'R', 'V', 'C', 'H', 'R', '1', '\n'};

// --- Text -----------------------------------------------------------------------------------

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::string Suffix(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    return Lower(path.substr(dot + 1));
}

std::string Stem(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.erase(dot);
    return name;
}

// Scene paths are split at dots and spaces are dropped from them: a name keeps letters, digits
// and underscores, anything else becomes an underscore.
std::wstring HostName(const std::wstring& wanted, const wchar_t* fallback) {
    std::wstring n;
    for (wchar_t c : wanted) n += (std::iswalnum(c) || c == L'_') ? c : L'_';
    return n.empty() ? fallback : n;
}

void Log(const std::wstring& text, int severity) { TheHost().Log(text, severity); }

// The host's rule for a taken name ("LFHD" becomes "LFHD1", "Cube1" becomes "Cube2"), against
// the names of a model being filled; the name given back is added to them.
std::wstring UniqueAmong(std::set<std::wstring>& taken, const std::wstring& wanted) {
    std::wstring name = wanted;
    if (taken.count(name)) {
        std::wstring base = wanted;
        while (!base.empty() && base.back() >= L'0' && base.back() <= L'9') base.pop_back();
        if (base.empty()) base = wanted;
        for (unsigned long n = 1;; ++n) {
            name = base + std::to_wstring(n);
            if (!taken.count(name)) break;
        }
    }
    taken.insert(name);
    return name;
}

// --- Transforms -----------------------------------------------------------------------------
// Assimp's matrices act on column vectors; the host's on row vectors: one is the other's
// transpose.

CTransformation FromAssimp(const aiMatrix4x4& m) {
    std::array<double, 16> rows;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) rows[r * 4 + c] = m[c][r];
    CTransformation t;
    t.SetMatrix4(rows);
    return t;
}

aiMatrix4x4 ToAssimp(const CTransformation& t) {
    const std::array<double, 16> rows = t.GetMatrix4();
    aiMatrix4x4 m;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) m[c][r] = static_cast<ai_real>(rows[r * 4 + c]);
    return m;
}

CRotation FromAssimp(const aiQuaternion& q) {
    const aiMatrix3x3 m = q.GetMatrix();
    CMatrix3 rows;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) rows.Set(r, c, m[c][r]);
    return CRotation(rows);
}

aiQuaternion ToAssimp(const CRotation& r) {
    const CMatrix3 rows = r.GetMatrix();
    aiMatrix3x3 m;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) m[j][i] = static_cast<ai_real>(rows.Get(i, j));
    return aiQuaternion(m);
}

// The local transform relative to the parent: global * inverse(parent global).
CTransformation Relative(const CTransformation& global, const CTransformation& parentGlobal) {
    return MATH::MapWorldPoseToObjectSpace(parentGlobal, global);
}

// Angles of a rotation, in degrees, for an order, chosen among the equivalent sets so that each
// is nearest `previous`: curves then carry no 360 degree jumps and no flips at 180 degrees.
CVector3 ContinuousAngles(const CRotation& rotation, MATH::RotationOrder order, const CVector3* previous) {
    CRotation r = rotation;
    r.PutRotationOrder(order);
    const CVector3 a = r.GetXYZAngles();
    double first[3] = {a.x * kRadToDeg, a.y * kRadToDeg, a.z * kRadToDeg};
    if (!previous) return CVector3(first[0], first[1], first[2]);
    // The other set: the middle axis of the order mirrored, the two others turned half way.
    static const int kMiddle[6] = {1, 2, 0, 2, 0, 1};  // XYZ XZY YXZ YZX ZXY ZYX
    const int mid = kMiddle[static_cast<int>(order)];
    double second[3];
    for (int i = 0; i < 3; ++i) second[i] = i == mid ? 180.0 - first[i] : first[i] + 180.0;
    const double prev[3] = {previous->x, previous->y, previous->z};
    double best[3] = {0, 0, 0}, bestDistance = -1.0;
    for (double* set : {first, second}) {
        double d = 0.0;
        for (int i = 0; i < 3; ++i) {
            set[i] += 360.0 * std::round((prev[i] - set[i]) / 360.0);
            d += std::fabs(set[i] - prev[i]);
        }
        if (bestDistance < 0.0 || d < bestDistance) {
            bestDistance = d;
            std::copy(set, set + 3, best);
        }
    }
    return CVector3(best[0], best[1], best[2]);
}

// --- Files ----------------------------------------------------------------------------------

bool ReadBytes(const std::string& path, std::vector<unsigned char>& bytes, std::wstring& error) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        error = Wide(std::strerror(errno));
        return false;
    }
    if (S_ISDIR(st.st_mode)) {
        error = L"it is a folder";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = Wide(std::strerror(errno));
        return false;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) {
        error = L"it cannot be read";
        return false;
    }
    if (bytes.empty()) {
        error = L"the file is empty";
        return false;
    }
    return true;
}

// Writes beside the target, then renames: a failed write leaves an older file as it was.
bool WriteWhole(const std::string& path, const void* data, std::size_t size, std::wstring& error) {
    const std::string temp = path + ".trovo-tmp";
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        if (!out) {
            error = L"it cannot be written (" + Wide(std::strerror(errno)) + L")";
            return false;
        }
        out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
        out.flush();
        if (!out) {
            error = L"it cannot be written";
            std::remove(temp.c_str());
            return false;
        }
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        error = L"it cannot be written (" + Wide(std::strerror(errno)) + L")";
        std::remove(temp.c_str());
        return false;
    }
    return true;
}

// Only the readers of the file's suffix stay. Otherwise a file that its own reader refuses is
// offered by content to every other reader Assimp has, formats we never meant to take, with
// bugs of their own on damaged input.
void KeepReadersOf(Assimp::Importer& importer, const std::string& suffix) {
    for (std::size_t i = importer.GetImporterCount(); i-- > 0;) {
        const aiImporterDesc* desc = importer.GetImporterInfo(i);
        std::istringstream extensions(desc && desc->mFileExtensions ? desc->mFileExtensions : "");
        bool reads = false;
        for (std::string extension; extensions >> extension;) reads = reads || Lower(extension) == suffix;
        if (reads) continue;
        Assimp::BaseImporter* reader = importer.GetImporter(i);
        if (reader && importer.UnregisterLoader(reader) == aiReturn_SUCCESS) delete reader;
    }
}

void ConfigureImporter(Assimp::Importer& importer, const std::string& suffix) {
    KeepReadersOf(importer, suffix);
    // Assimp makes a stick-figure mesh for files without meshes (BVH); we want the bones only.
    importer.SetPropertyBool(AI_CONFIG_IMPORT_NO_SKELETON_MESHES, true);
    // FBX pivots would come in as extra helper nodes that the file's author never saw.
    importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
    // COLLADA ids are escaped forms of the names ("a[0]" becomes "aP0R"); the names are the
    // author's.
    importer.SetPropertyBool(AI_CONFIG_IMPORT_COLLADA_USE_COLLADA_NAMES, true);
}

// Depth and count of a hierarchy, without recursion: a hostile file may be very deep.
void Measure(const aiNode* root, int& depth, long& count) {
    depth = 0;
    count = 0;
    std::vector<std::pair<const aiNode*, int>> stack{{root, 1}};
    while (!stack.empty()) {
        const auto [node, d] = stack.back();
        stack.pop_back();
        ++count;
        depth = std::max(depth, d);
        if (count >= kMaxCharacterNodes || depth > kMaxCharacterDepth) return;
        for (unsigned i = 0; i < node->mNumChildren; ++i)
            if (node->mChildren[i]) stack.push_back({node->mChildren[i], d + 1});
    }
}

// The node Assimp puts above the file's own top nodes: "ROOT" when a glTF scene has several
// top nodes (and as such it travels on through COLLADA), "RootNode" of FBX always. It is no
// node of the file, so it makes no null.
bool IsMadeUpRoot(const aiNode* root, const std::string& suffix) {
    const std::string name = root->mName.C_Str();
    const bool named = ((suffix == "glb" || suffix == "gltf" || suffix == "dae") && name == "ROOT") ||
                       (suffix == "fbx" && name == "RootNode");
    return named && root->mNumMeshes == 0 && root->mTransformation.IsIdentity();
}

// --- BVH hierarchy --------------------------------------------------------------------------

// Assimp's BVH reader keeps the joints it has read outside the scene until a node closes, so a
// token that stops it midway loses them, and it goes on writing a joint's channels through a
// reference that reading a deeper joint may have moved. Its recursion also has no depth
// bound. A hierarchy is therefore read here first, by the same tokens but stricter (offsets and
// channels before the joints, plain decimal numbers, bounded depth and size), and only a sound
// one goes on to Assimp. The motion part is left to Assimp, which loses nothing there.
class BvhTokens {
public:
    explicit BvhTokens(const std::vector<unsigned char>& bytes) : m_bytes(bytes) {}

    // The next token: a run of non-blank bytes, or a lone brace at its start; empty at the end.
    std::string Next() {
        while (m_at < m_bytes.size() && std::isspace(m_bytes[m_at])) {
            if (m_bytes[m_at] == '\n') ++m_line;
            ++m_at;
        }
        std::string token;
        while (m_at < m_bytes.size() && !std::isspace(m_bytes[m_at])) {
            token.push_back(static_cast<char>(m_bytes[m_at++]));
            if (token == "{" || token == "}") break;
        }
        m_lineOfLast = m_line;
        return token;
    }
    int Line() const { return m_lineOfLast; }

private:
    const std::vector<unsigned char>& m_bytes;
    std::size_t m_at = 0;
    int m_line = 1;
    int m_lineOfLast = 1;
};

// Digits with an optional sign, fraction and exponent ("1." and ".5" too): the numbers BVH
// writers write.
bool IsBvhNumber(const std::string& token) {
    std::size_t i = 0;
    const auto digits = [&] {
        const std::size_t from = i;
        while (i < token.size() && token[i] >= '0' && token[i] <= '9') ++i;
        return i > from;
    };
    if (token.empty() || token.size() > 64) return false;
    if (token[i] == '-' || token[i] == '+') ++i;
    const bool whole = digits();
    if (i < token.size() && token[i] == '.') {
        ++i;
        if (!digits() && !whole) return false;
    } else if (!whole) {
        return false;
    }
    if (i < token.size() && (token[i] == 'e' || token[i] == 'E')) {
        ++i;
        if (i < token.size() && (token[i] == '-' || token[i] == '+')) ++i;
        if (!digits()) return false;
    }
    return i == token.size();
}

bool IsBvhChannel(const std::string& token) {
    static const std::set<std::string> kChannels = {"Xposition", "Yposition", "Zposition",
                                                    "Xrotation", "Yrotation", "Zrotation"};
    return kChannels.count(token) > 0;
}

// Empty when the hierarchy is sound; else why not, in words for the user.
std::wstring BvhHierarchyFault(const std::vector<unsigned char>& bytes) {
    BvhTokens in(bytes);
    std::string token;
    const auto fault = [&](const std::string& expected) {
        const std::string found = token.empty() ? "the end of the file" : "\"" + token.substr(0, 40) + "\"";
        return L"its BVH hierarchy is damaged: line " + std::to_wstring(in.Line()) + L" has " + Wide(found) +
               L" where " + Wide(expected) + L" belongs";
    };
    const auto numbers = [&](int count) {
        for (int k = 0; k < count; ++k)
            if (!IsBvhNumber(token = in.Next())) return false;
        return true;
    };
    if ((token = in.Next()) != "HIERARCHY") return fault("\"HIERARCHY\"");
    if ((token = in.Next()) != "ROOT") return fault("\"ROOT\"");
    // One entry per open joint: whether one of its children has been read already.
    std::vector<bool> open;
    long nodes = 0;
    std::string kind = "ROOT";
    while (true) {
        // A joint: its name and its opening brace.
        token = in.Next();
        if (token.empty() || token == "{" || token == "}") return fault("the name of a " + kind + " joint");
        if ((token = in.Next()) != "{") return fault("\"{\"");
        open.push_back(false);
        if (static_cast<int>(open.size()) > kMaxCharacterDepth)
            return L"its node hierarchy is deeper than " + std::to_wstring(kMaxCharacterDepth) + L" levels";
        if (++nodes >= kMaxCharacterNodes)
            return L"it has " + std::to_wstring(kMaxCharacterNodes) +
                   L" nodes or more; a model takes at most " + std::to_wstring(kMaxCharacterNodes - 1);
        // Its body, up to the next joint or to the end of the hierarchy.
        bool nextJoint = false;
        while (!nextJoint && !open.empty()) {
            token = in.Next();
            if (token == "OFFSET" && !open.back()) {
                if (!numbers(3)) return fault("a number of an OFFSET");
            } else if (token == "CHANNELS" && !open.back()) {
                token = in.Next();
                if (token.empty() || token.size() > 2 ||
                    !std::all_of(token.begin(), token.end(), [](char c) { return c >= '0' && c <= '9'; }))
                    return fault("the number of CHANNELS");
                const int count = std::stoi(token);
                for (int k = 0; k < count; ++k)
                    if (!IsBvhChannel(token = in.Next()))
                        return fault("a channel name (Xposition ... Zrotation)");
            } else if (token == "JOINT") {
                open.back() = true;
                kind = "JOINT";
                nextJoint = true;
            } else if (token == "End") {
                open.back() = true;
                if ((token = in.Next()) != "Site") return fault("\"Site\" after \"End\"");
                if ((token = in.Next()) != "{") return fault("\"{\"");
                if (++nodes >= kMaxCharacterNodes)
                    return L"it has " + std::to_wstring(kMaxCharacterNodes) +
                           L" nodes or more; a model takes at most " +
                           std::to_wstring(kMaxCharacterNodes - 1);
                while ((token = in.Next()) != "}") {
                    if (token != "OFFSET") return fault("\"OFFSET\" or \"}\" in an End Site");
                    if (!numbers(3)) return fault("a number of an OFFSET");
                }
            } else if (token == "}") {
                open.pop_back();
            } else {
                return fault(open.back() ? "\"JOINT\", \"End Site\" or \"}\""
                                         : "\"OFFSET\", \"CHANNELS\", \"JOINT\", \"End Site\" or \"}\"");
            }
        }
        if (open.empty()) return L"";
    }
}

// --- glTF node hierarchy --------------------------------------------------------------------

// Assimp reads glTF recursively, both the JSON and the node hierarchy, so a file nested a few
// thousand levels deep takes the process down, and a node among its own descendants never
// ends. The JSON's nesting and the hierarchy's depth are measured here first, without
// recursion; a JSON text that does not parse is left to Assimp, which says why.
constexpr int kMaxJsonNesting = 1000;

std::string GltfJson(const std::vector<unsigned char>& bytes) {
    if (bytes.size() < 20 || !std::equal(bytes.begin(), bytes.begin() + 4, "glTF"))
        return std::string(bytes.begin(), bytes.end());
    std::uint32_t length = 0;
    for (int i = 0; i < 4; ++i) length |= static_cast<std::uint32_t>(bytes[12 + i]) << (8 * i);
    const std::size_t end = 20 + std::min<std::size_t>(length, bytes.size() - 20);
    return std::string(bytes.begin() + 20, bytes.begin() + static_cast<std::ptrdiff_t>(end));
}

int JsonNesting(const std::string& text) {
    int depth = 0, deepest = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return deepest;
}

// Empty when the file can go to Assimp; else why not, in words for the user.
std::wstring GltfHierarchyFault(const std::vector<unsigned char>& bytes) {
    const std::string text = GltfJson(bytes);
    if (JsonNesting(text) > kMaxJsonNesting)
        return L"its JSON nests deeper than " + std::to_wstring(kMaxJsonNesting) + L" levels";
    // Only the structure counts here: bytes beyond ASCII, which can stand only inside strings,
    // are made plain, so that text Assimp's parser takes (not all of it UTF-8) parses here too.
    std::string plain = text;
    for (char& c : plain)
        if (static_cast<unsigned char>(c) >= 0x80) c = '?';
    const json doc = json::parse(plain, nullptr, false);
    if (!doc.is_object()) return L"";
    // Assimp's glTF reader follows a skin's inverse bind matrices without looking whether the
    // skin has them (the format lets them out, meaning identities).
    if (doc.contains("skins") && doc["skins"].is_array()) {
        const std::size_t accessors =
            doc.contains("accessors") && doc["accessors"].is_array() ? doc["accessors"].size() : 0;
        for (std::size_t k = 0; k < doc["skins"].size(); ++k) {
            const json& skin = doc["skins"][k];
            if (!skin.is_object()) continue;
            const auto found = skin.find("inverseBindMatrices");
            if (found == skin.end() || !found->is_number_unsigned() || found->get<std::size_t>() >= accessors)
                return L"its skin " + std::to_wstring(k) +
                       L" has no inverse bind matrices, which the glTF reader cannot do without";
        }
    }
    if (!doc.contains("nodes") || !doc["nodes"].is_array()) return L"";
    const json& nodes = doc["nodes"];
    // Children by node; a child index out of range is Assimp's to refuse.
    std::vector<std::vector<std::size_t>> children(nodes.size());
    std::vector<bool> isChild(nodes.size(), false);
    for (std::size_t n = 0; n < nodes.size(); ++n) {
        if (!nodes[n].is_object() || !nodes[n].contains("children") || !nodes[n]["children"].is_array())
            continue;
        for (const json& c : nodes[n]["children"]) {
            if (!c.is_number_unsigned() || c.get<std::size_t>() >= nodes.size()) continue;
            children[n].push_back(c.get<std::size_t>());
            isChild[c.get<std::size_t>()] = true;
        }
    }
    // Depth first from every node that is no child, then from what is left: a node never
    // reached from a top node lies on a loop or below one, and the walk from it meets the loop.
    std::vector<int> state(nodes.size(), 0);                // 0 unseen, 1 on the current path, 2 done
    std::vector<std::pair<std::size_t, std::size_t>> path;  // node, next child to visit
    for (int pass = 0; pass < 2; ++pass) {
        for (std::size_t top = 0; top < nodes.size(); ++top) {
            if (state[top] != 0 || (pass == 0 && isChild[top])) continue;
            path.assign(1, {top, 0});
            state[top] = 1;
            while (!path.empty()) {
                if (static_cast<int>(path.size()) > kMaxCharacterDepth)
                    return L"its node hierarchy is deeper than " + std::to_wstring(kMaxCharacterDepth) +
                           L" levels";
                auto& [node, next] = path.back();
                if (next == children[node].size()) {
                    state[node] = 2;
                    path.pop_back();
                    continue;
                }
                const std::size_t child = children[node][next++];
                if (state[child] == 1)
                    return L"its node hierarchy loops: node " + std::to_wstring(child) +
                           L" is among its own descendants";
                if (state[child] == 0) {
                    state[child] = 1;
                    path.push_back({child, 0});
                }
            }
        }
    }
    return L"";
}

// --- The stored record of an imported file --------------------------------------------------

struct NodeRecord {
    std::string fileName;  // as the file names it
    std::wstring object;   // the null it became
    int parent = -1;       // index in the list, -1 for a top node
    CTransformation rest;  // local rest transform
};

struct CharacterRecord {
    std::string format;                // Assimp's suffix hint for `bytes`
    std::vector<NodeRecord> nodes;     // parents before children
    std::vector<unsigned char> bytes;  // the file, when it holds more than nodes
};

// A name as the file has it: a JSON string when it is UTF-8, else its bytes, so that a name
// in another encoding neither stops the record from being written nor comes back changed.
json NameValue(const std::string& name) {
    try {
        json(name).dump();
        return name;
    } catch (const json::exception&) {
        return json(std::vector<unsigned char>(name.begin(), name.end()));
    }
}

bool ReadName(const json& value, std::string& name) {
    if (value.is_string()) {
        name = value.get<std::string>();
        return true;
    }
    if (!value.is_array()) return false;
    name.clear();
    for (const json& byte : value) {
        if (!byte.is_number_unsigned() || byte.get<unsigned>() > 255) return false;
        name.push_back(static_cast<char>(byte.get<unsigned>()));
    }
    return true;
}

std::vector<unsigned char> PackRecord(const CharacterRecord& rec) {
    json j;
    j["format"] = rec.format;
    json nodes = json::array();
    for (const NodeRecord& n : rec.nodes) {
        const std::array<double, 16> m = n.rest.GetMatrix4();
        nodes.push_back(
            {{"name", NameValue(n.fileName)}, {"object", Utf8(n.object)}, {"parent", n.parent}, {"rest", m}});
    }
    j["nodes"] = nodes;
    const std::string header = j.dump();
    std::vector<unsigned char> out(kBlobMagic, kBlobMagic + 8);
    const std::uint32_t len = static_cast<std::uint32_t>(header.size());
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>((len >> (8 * i)) & 0xFF));
    out.insert(out.end(), header.begin(), header.end());
    out.insert(out.end(), rec.bytes.begin(), rec.bytes.end());
    return out;
}

bool UnpackRecord(const std::vector<unsigned char>& blob, CharacterRecord& rec) {
    if (blob.size() < 12 || !std::equal(kBlobMagic, kBlobMagic + 8, blob.begin())) return false;
    std::uint32_t len = 0;
    for (int i = 0; i < 4; ++i) len |= static_cast<std::uint32_t>(blob[8 + i]) << (8 * i);
    if (len > blob.size() - 12) return false;
    const json j = json::parse(blob.begin() + 12, blob.begin() + 12 + len, nullptr, false);
    if (j.is_discarded() || !j.is_object() || !j.contains("nodes") || !j["nodes"].is_array()) return false;
    if (!j.contains("format") || !j["format"].is_string()) return false;
    rec.format = j["format"].get<std::string>();
    for (const json& n : j["nodes"]) {
        if (!n.is_object() || !n.contains("rest") || !n["rest"].is_array() || n["rest"].size() != 16)
            return false;
        NodeRecord r;
        if (!n.contains("name") || !ReadName(n["name"], r.fileName)) return false;
        if (!n.contains("object") || !n["object"].is_string()) return false;
        r.object = Wide(n["object"].get<std::string>());
        if (!n.contains("parent") || !n["parent"].is_number_integer()) return false;
        r.parent = n["parent"].get<int>();
        if (r.parent >= static_cast<int>(rec.nodes.size())) return false;
        std::array<double, 16> m;
        for (int i = 0; i < 16; ++i) {
            if (!n["rest"][i].is_number()) return false;
            m[i] = n["rest"][i].get<double>();
        }
        r.rest.SetMatrix4(m);
        rec.nodes.push_back(std::move(r));
    }
    rec.bytes.assign(blob.begin() + 12 + len, blob.end());
    return true;
}

// --- Import ---------------------------------------------------------------------------------

double PlayControlValue(const wchar_t* name, double fallback) {
    PropertyItem* pc = PlayControl();
    ParamItem* p = pc ? pc->FindParam(name) : nullptr;
    return p ? static_cast<double>(ParamValue(p, 1.0)) : fallback;
}

void SetPlayControlValue(const wchar_t* name, double value) {
    PropertyItem* pc = PlayControl();
    if (ParamItem* p = pc ? pc->FindParam(name) : nullptr) PutParamValue(p, CValue(value), 1.0);
}

// Linear keys: the curve passes through the file's samples at their times.
void KeyCurve(Object3D* obj, const wchar_t* param, const std::vector<double>& times,
              const std::vector<double>& values) {
    ParamItem* p = obj->LocalParam(param);
    FCurveItem* c = p ? AddParamCurve(p, ovStandardFCurve) : nullptr;
    if (!c) return;
    c->interpolation = ovLinearInterpolation;
    c->keys.reserve(times.size());
    for (std::size_t i = 0; i < times.size(); ++i) {
        if (!c->keys.empty() && times[i] <= c->keys.back().time) continue;
        CurveKey k;
        k.time = times[i];
        k.value = values[i];
        k.interpolation = ovLinearInterpolation;
        k.serial = c->nextSerial++;
        c->keys.push_back(k);
    }
    c->Changed();
}

double LocalValue(Object3D* obj, const wchar_t* name) {
    ParamItem* p = obj->LocalParam(name);
    return p ? static_cast<double>(ParamValue(p, 1.0)) : 0.0;
}

// One channel of the file's animation onto an object's local parameters.
void KeyChannel(Object3D* obj, const aiNodeAnim* ch, double ticksPerSecond, double rate, double& first,
                double& last) {
    auto frameOf = [&](double ticks) {
        const double f = 1.0 + ticks / ticksPerSecond * rate;
        first = std::min(first, f);
        last = std::max(last, f);
        return f;
    };
    std::vector<double> times;
    std::vector<double> v[3];
    // A component group whose every key is its rest value gets no curves (Assimp repeats a
    // BVH joint's offset at every frame).
    auto flush = [&](const wchar_t* const names[3]) {
        bool moves = false;
        for (int i = 0; i < 3 && !moves; ++i) {
            const double rest = LocalValue(obj, names[i]);
            for (double x : v[i]) moves = moves || std::fabs(x - rest) > 1e-9 * (1.0 + std::fabs(rest));
        }
        if (moves)
            for (int i = 0; i < 3; ++i) KeyCurve(obj, names[i], times, v[i]);
    };
    auto reset = [&](std::size_t n) {
        times.clear();
        for (auto& c : v) c.clear();
        times.reserve(n);
        for (auto& c : v) c.reserve(n);
    };

    static const wchar_t* const kPos[3] = {L"posx", L"posy", L"posz"};
    static const wchar_t* const kRot[3] = {L"rotx", L"roty", L"rotz"};
    static const wchar_t* const kScl[3] = {L"sclx", L"scly", L"sclz"};

    if (ch->mNumPositionKeys > 0) {
        reset(ch->mNumPositionKeys);
        for (unsigned i = 0; i < ch->mNumPositionKeys; ++i) {
            const aiVectorKey& k = ch->mPositionKeys[i];
            times.push_back(frameOf(k.mTime));
            v[0].push_back(k.mValue.x);
            v[1].push_back(k.mValue.y);
            v[2].push_back(k.mValue.z);
        }
        flush(kPos);
    }
    if (ch->mNumRotationKeys > 0) {
        reset(ch->mNumRotationKeys);
        ParamItem* order = obj->LocalParam(L"rotorder");
        const int o = order ? static_cast<int>(ParamValue(order, 1.0)) : 0;
        const auto ro = static_cast<MATH::RotationOrder>(o >= 0 && o <= 5 ? o : 0);
        // The rest angles start the chain, so that the first key sits near the rest pose too.
        CVector3 prev(LocalValue(obj, L"rotx"), LocalValue(obj, L"roty"), LocalValue(obj, L"rotz"));
        for (unsigned i = 0; i < ch->mNumRotationKeys; ++i) {
            const aiQuatKey& k = ch->mRotationKeys[i];
            times.push_back(frameOf(k.mTime));
            prev = ContinuousAngles(FromAssimp(k.mValue), ro, &prev);
            v[0].push_back(prev.x);
            v[1].push_back(prev.y);
            v[2].push_back(prev.z);
        }
        flush(kRot);
    }
    if (ch->mNumScalingKeys > 0) {
        reset(ch->mNumScalingKeys);
        for (unsigned i = 0; i < ch->mNumScalingKeys; ++i) {
            const aiVectorKey& k = ch->mScalingKeys[i];
            times.push_back(frameOf(k.mTime));
            v[0].push_back(k.mValue.x);
            v[1].push_back(k.mValue.y);
            v[2].push_back(k.mValue.z);
        }
        flush(kScl);
    }
}

std::wstring AnimationList(const aiScene* scene) {
    std::wstring list;
    for (unsigned i = 0; i < scene->mNumAnimations; ++i)
        list += (i ? L", \"" : L"\"") + Wide(scene->mAnimations[i]->mName.C_Str()) + L"\"";
    return list.empty() ? L"none" : list;
}

// A progress bar on long jobs; drawn only where the front end allows it.
class Progress {
public:
    Progress(const std::wstring& caption, long steps, bool on) : m_on(on) {
        if (!m_on) return;
        m_bar = Application().GetUIToolkit().GetProgressBar();
        m_bar.PutCaption(CString(caption.c_str()));
        m_bar.PutMinimum(0);
        m_bar.PutMaximum(steps);
        m_bar.PutValue(0);
        m_bar.PutVisible(true);
    }
    ~Progress() {
        if (m_on) m_bar.PutVisible(false);
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void Step(long n = 1) {
        if (m_on) m_bar.Increment(n);
    }

private:
    bool m_on;
    ProgressBar m_bar;
};

}  // namespace

Object3D* ImportCharacter(const std::string& path, const CharacterImportOptions& options,
                          std::wstring& error) {
    error.clear();
    std::vector<unsigned char> bytes;
    if (!ReadBytes(path, bytes, error)) return nullptr;

    // A binary glTF states its whole length in its first 12 bytes; a copy cut short says so
    // more plainly than the reader's complaint about whichever chunk it meets first.
    if (bytes.size() >= 12 && std::equal(bytes.begin(), bytes.begin() + 4, "glTF")) {
        std::uint32_t declared = 0;
        for (int i = 0; i < 4; ++i) declared |= static_cast<std::uint32_t>(bytes[8 + i]) << (8 * i);
        if (declared > bytes.size()) {
            error = L"the file is cut short: it declares " + std::to_wstring(declared) +
                    L" bytes and holds " + std::to_wstring(bytes.size());
            return nullptr;
        }
    }

    if (Suffix(path) == "bvh" || Suffix(path) == "gltf" || Suffix(path) == "glb") {
        error = Suffix(path) == "bvh" ? BvhHierarchyFault(bytes) : GltfHierarchyFault(bytes);
        if (!error.empty()) return nullptr;
    }

    Assimp::Importer importer;
    ConfigureImporter(importer, Suffix(path));
    const aiScene* scene = importer.ReadFile(path, 0);
    if (!scene) {
        error = L"Assimp cannot read it: " + Wide(importer.GetErrorString());
        return nullptr;
    }
    if (!scene->mRootNode) {
        error = L"it holds no node hierarchy";
        return nullptr;
    }
    int depth = 0;
    long count = 0;
    Measure(scene->mRootNode, depth, count);
    if (depth > kMaxCharacterDepth) {
        error = L"its node hierarchy is deeper than " + std::to_wstring(kMaxCharacterDepth) + L" levels";
        return nullptr;
    }
    if (count >= kMaxCharacterNodes) {
        error = L"it has " + std::to_wstring(kMaxCharacterNodes) + L" nodes or more; a model takes at most " +
                std::to_wstring(kMaxCharacterNodes - 1);
        return nullptr;
    }
    const aiAnimation* anim = nullptr;
    if (options.animation) {
        if (!options.animationName.empty()) {
            for (unsigned i = 0; i < scene->mNumAnimations && !anim; ++i)
                if (Wide(scene->mAnimations[i]->mName.C_Str()) == options.animationName)
                    anim = scene->mAnimations[i];
            if (!anim) {
                error = L"it has no animation named \"" + options.animationName + L"\" (its animations: " +
                        AnimationList(scene) + L")";
                return nullptr;
            }
        } else if (scene->mNumAnimations > 0) {
            anim = scene->mAnimations[0];
        }
    }

    // What export will need: the file itself when it holds more than nodes. A .gltf may keep
    // its buffers in other files, so it is kept as the one-file form Assimp writes of it.
    CharacterRecord record;
    const std::string suffix = Suffix(path);
    const bool hasMore = scene->mNumMeshes > 0 || scene->mNumMaterials > 0 || scene->mNumTextures > 0;
    if (hasMore) {
        if (suffix == "gltf") {
            Assimp::Exporter exporter;
            const aiExportDataBlob* blob = exporter.ExportToBlob(scene, "glb2");
            if (blob && !blob->next) {
                const auto* d = static_cast<const unsigned char*>(blob->data);
                record.bytes.assign(d, d + blob->size);
                record.format = "glb";
            } else {
                Log(L"Import: the meshes of \"" + Wide(path) + L"\" cannot be kept for export.", ovWarning);
            }
        } else {
            record.bytes = std::move(bytes);
            record.format = suffix;
        }
    }

    // From here on nothing fails: the scene changes.
    // Long means many keys or many nodes.
    long keys = 0;
    for (unsigned i = 0; anim && i < anim->mNumChannels; ++i)
        if (const aiNodeAnim* ch = anim->mChannels[i])
            keys += static_cast<long>(ch->mNumPositionKeys) + ch->mNumRotationKeys + ch->mNumScalingKeys;
    Progress progress(L"Importing " + Wide(Stem(path)),
                      count + (anim ? static_cast<long>(anim->mNumChannels) : 0), count + keys >= 20000);
    const std::wstring wantedModel = options.name.empty() ? Wide(Stem(path)) : options.name;
    Object3D* model = CreateObject(Root(), ovModelID, L"#model", HostName(wantedModel, L"Model"));
    if (model->name != wantedModel)
        Log(L"Import: the model \"" + wantedModel + L"\" is named \"" + model->name + L"\" in the scene.",
            ovWarning);

    std::map<std::string, Object3D*> byFileName;
    std::set<std::wstring> taken;  // the new model's names so far
    struct Pending {
        const aiNode* node;
        Object3D* parent;
        int parentIndex;
    };
    std::vector<Pending> stack;
    if (IsMadeUpRoot(scene->mRootNode, suffix)) {
        for (unsigned i = scene->mRootNode->mNumChildren; i-- > 0;)
            if (scene->mRootNode->mChildren[i]) stack.push_back({scene->mRootNode->mChildren[i], model, -1});
    } else {
        stack.push_back({scene->mRootNode, model, -1});
    }
    while (!stack.empty()) {
        const Pending p = stack.back();
        stack.pop_back();
        const std::string fileName = p.node->mName.C_Str();
        const std::wstring wanted = Wide(fileName);
        Object3D* obj = CreateObjectWithUniqueName(p.parent, ovNullID, L"null",
                                                   UniqueAmong(taken, HostName(wanted, L"null")));
        if (obj->name != wanted)
            Log(L"Import: the node \"" + wanted + L"\" is named \"" + obj->name + L"\" in the scene.",
                ovWarning);
        const CTransformation rest = FromAssimp(p.node->mTransformation);
        PutLocalTransform(obj, rest, 1.0);
        byFileName.emplace(fileName, obj);
        record.nodes.push_back({fileName, obj->name, p.parentIndex, rest});
        const int index = static_cast<int>(record.nodes.size()) - 1;
        // Children in the file's order: the stack takes them last first.
        for (unsigned i = p.node->mNumChildren; i-- > 0;)
            if (p.node->mChildren[i]) stack.push_back({p.node->mChildren[i], obj, index});
        progress.Step();
    }

    if (anim) {
        const double tps = anim->mTicksPerSecond > 0.0 ? anim->mTicksPerSecond : 25.0;
        const double rate = PlayControlValue(L"Rate", 30.0);
        double first = 1e300, last = -1e300;
        for (unsigned i = 0; i < anim->mNumChannels; ++i) {
            const aiNodeAnim* ch = anim->mChannels[i];
            progress.Step();
            if (!ch) continue;
            const auto it = byFileName.find(ch->mNodeName.C_Str());
            if (it == byFileName.end()) {
                Log(L"Import: the animation moves \"" + Wide(ch->mNodeName.C_Str()) +
                        L"\", which is no node of the file; that channel is left out.",
                    ovWarning);
                continue;
            }
            KeyChannel(it->second, ch, tps, rate, first, last);
        }
        if (first <= last) {
            // Whole frames around the keys; a key a hair off a whole frame (a file rate such as
            // 1 / 0.0083333 against a scene at 120) counts as on it.
            const double in = std::floor(first + 1e-3);
            SetPlayControlValue(L"In", in);
            SetPlayControlValue(L"Out", std::max(std::ceil(last - 1e-3), in));
        }
    }

    PropertyItem* blob = AddPropertyTo(model, L"UserDataBlob", kCharacterBlobName);
    if (blob) {
        blob->blob = PackRecord(record);
        blob->blobSet = true;
    }
    TheHost().Touch();
    return model;
}

// --- Export ---------------------------------------------------------------------------------

namespace {

// One exported node: where it comes from in the scene and, for an imported model, in the file.
struct ExportNode {
    std::string name;            // the name written
    Object3D* object = nullptr;  // null: a node of the file whose null is gone (rest pose)
    int parent = -1;
    CTransformation rest;
};

// The nodes to write: an imported model's recorded nodes (matched to its nulls by name), or
// the model's own objects with the pose at the first frame as rest.
bool CollectNodes(Object3D* model, double start, CharacterRecord& record, std::vector<ExportNode>& nodes,
                  bool& imported) {
    std::map<std::wstring, Object3D*> objects;
    std::vector<Object3D*> order;
    WalkObjects(model, true, [&](Object3D* o) {
        if (o->type == L"crvlist") return;
        objects.emplace(o->name, o);
        order.push_back(o);
    });
    imported = false;
    if (PropertyItem* blob = FindProperty(model, kCharacterBlobName))
        imported = UnpackRecord(blob->blob, record);
    if (imported) {
        for (const NodeRecord& n : record.nodes) {
            ExportNode e;
            e.name = n.fileName;
            const auto it = objects.find(n.object);
            e.object = it == objects.end() ? nullptr : it->second;
            e.parent = n.parent;
            e.rest = n.rest;
            nodes.push_back(e);
            if (it != objects.end()) objects.erase(it);
        }
        for (Object3D* o : order)
            if (objects.count(o->name))
                Log(L"Export: \"" + FullName(o) +
                        L"\" is not in the file the model came from; it is left out.",
                    ovWarning);
        return true;
    }
    std::map<Object3D*, int> index;
    for (Object3D* o : order) {
        ExportNode e;
        e.name = Utf8(o->name);
        e.object = o;
        const auto pit = index.find(o->parent3D);
        e.parent = pit == index.end() ? -1 : pit->second;
        const CTransformation parentGlobal =
            o->parent3D ? GlobalTransform(o->parent3D, start) : CTransformation();
        e.rest = Relative(GlobalTransform(o, start), parentGlobal);
        index[o] = static_cast<int>(nodes.size());
        nodes.push_back(e);
    }
    return true;
}

// Local transforms of every node at every frame, frame-major.
std::vector<CTransformation> Sample(const std::vector<ExportNode>& nodes, double start, long frames,
                                    Progress& progress) {
    std::vector<CTransformation> out(nodes.size() * static_cast<std::size_t>(frames));
    for (long f = 0; f < frames; ++f) {
        const double time = start + static_cast<double>(f);
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            const ExportNode& n = nodes[i];
            CTransformation& local = out[static_cast<std::size_t>(f) * nodes.size() + i];
            if (!n.object) {
                local = n.rest;
                continue;
            }
            const CTransformation parentGlobal =
                n.object->parent3D ? GlobalTransform(n.object->parent3D, time) : CTransformation();
            local = Relative(GlobalTransform(n.object, time), parentGlobal);
        }
        progress.Step();
    }
    return out;
}

aiNode* BuildTree(const std::vector<ExportNode>& nodes) {
    std::vector<aiNode*> made(nodes.size(), nullptr);
    std::vector<std::vector<aiNode*>> kids(nodes.size());
    std::vector<aiNode*> tops;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        made[i] = new aiNode(nodes[i].name);
        made[i]->mTransformation = ToAssimp(nodes[i].rest);
        if (nodes[i].parent >= 0)
            kids[static_cast<std::size_t>(nodes[i].parent)].push_back(made[i]);
        else
            tops.push_back(made[i]);
    }
    auto attach = [](aiNode* parent, std::vector<aiNode*>& children) {
        if (children.empty()) return;
        parent->mNumChildren = static_cast<unsigned>(children.size());
        parent->mChildren = new aiNode*[children.size()];
        for (std::size_t k = 0; k < children.size(); ++k) {
            parent->mChildren[k] = children[k];
            children[k]->mParent = parent;
        }
    };
    for (std::size_t i = 0; i < nodes.size(); ++i) attach(made[i], kids[i]);
    if (tops.size() == 1) return tops[0];
    aiNode* root = new aiNode("ROOT");
    attach(root, tops);
    return root;
}

// Key times are frames from the first, in ticks of `rate` per second, or seconds when
// `inSeconds` (the COLLADA writer takes key times as seconds whatever the tick rate).
aiAnimation* BuildAnimation(const std::string& name, const std::vector<ExportNode>& nodes,
                            const std::vector<CTransformation>& locals, long frames, double rate,
                            bool inSeconds) {
    auto* anim = new aiAnimation();
    const double tick = inSeconds ? 1.0 / rate : 1.0;
    anim->mName = aiString(name);
    anim->mTicksPerSecond = inSeconds ? 1.0 : rate;
    anim->mDuration = static_cast<double>(frames - 1) * tick;
    std::vector<aiNodeAnim*> channels;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (!nodes[i].object) continue;
        auto* ch = new aiNodeAnim();
        ch->mNodeName = aiString(nodes[i].name);
        const unsigned n = static_cast<unsigned>(frames);
        ch->mNumPositionKeys = ch->mNumRotationKeys = ch->mNumScalingKeys = n;
        ch->mPositionKeys = new aiVectorKey[n];
        ch->mRotationKeys = new aiQuatKey[n];
        ch->mScalingKeys = new aiVectorKey[n];
        for (unsigned f = 0; f < n; ++f) {
            const CTransformation& t = locals[f * nodes.size() + i];
            const double time = static_cast<double>(f) * tick;
            const CVector3& p = t.GetTranslation();
            const CVector3& s = t.GetScaling();
            ch->mPositionKeys[f] = aiVectorKey(
                time,
                aiVector3D(static_cast<ai_real>(p.x), static_cast<ai_real>(p.y), static_cast<ai_real>(p.z)));
            ch->mRotationKeys[f] = aiQuatKey(time, ToAssimp(t.GetRotation()));
            ch->mScalingKeys[f] = aiVectorKey(
                time,
                aiVector3D(static_cast<ai_real>(s.x), static_cast<ai_real>(s.y), static_cast<ai_real>(s.z)));
        }
        channels.push_back(ch);
    }
    anim->mNumChannels = static_cast<unsigned>(channels.size());
    anim->mChannels = new aiNodeAnim*[channels.size() ? channels.size() : 1];
    std::copy(channels.begin(), channels.end(), anim->mChannels);
    return anim;
}

// --- BVH ------------------------------------------------------------------------------------

// BVH "Zrotation Xrotation Yrotation" turns about Y first, then X, then Z: the host's YXZ order.
constexpr MATH::RotationOrder kBvhOrder = MATH::ovYXZ;

std::string BvhName(const std::string& name) {
    std::string n;
    for (char c : name) n += std::isspace(static_cast<unsigned char>(c)) || c == '{' || c == '}' ? '_' : c;
    return n.empty() ? "joint" : n;
}

std::string Num(double v) {
    char buf[40];
    std::snprintf(buf, sizeof(buf), "%.9g", std::fabs(v) < 1e-12 ? 0.0 : v);
    return buf;
}

bool WriteBvh(const std::string& path, const std::vector<ExportNode>& nodes,
              const std::vector<CTransformation>& locals, long frames, double rate, std::wstring& error) {
    std::vector<std::vector<int>> kids(nodes.size());
    std::vector<int> tops;
    for (std::size_t i = 0; i < nodes.size(); ++i)
        (nodes[i].parent >= 0 ? kids[static_cast<std::size_t>(nodes[i].parent)] : tops)
            .push_back(static_cast<int>(i));
    // One skeleton per file: the top node with the most nodes below it (a mesh's own node
    // beside the skeleton is left out).
    std::vector<long> size(nodes.size(), 1);
    for (std::size_t i = nodes.size(); i-- > 0;)
        if (nodes[i].parent >= 0) size[static_cast<std::size_t>(nodes[i].parent)] += size[i];
    std::stable_sort(tops.begin(), tops.end(), [&](int a, int b) {
        return size[static_cast<std::size_t>(a)] > size[static_cast<std::size_t>(b)];
    });
    for (std::size_t k = 1; k < tops.size(); ++k)
        Log(L"Export: a BVH file holds one skeleton; \"" +
                Wide(nodes[static_cast<std::size_t>(tops[k])].name) +
                L"\" and what is below it are left out.",
            ovWarning);
    if (tops.empty()) {
        error = L"the model holds no skeleton";
        return false;
    }
    // Translation channels where the motion moves a joint off its rest offset; always on the root.
    std::vector<bool> moves(nodes.size(), false);
    std::vector<bool> endSite(nodes.size(), false);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        endSite[i] = nodes[i].parent >= 0 && kids[i].empty() && nodes[i].name.rfind("EndSite_", 0) == 0;
        const CVector3& r = nodes[i].rest.GetTranslation();
        const double tol = 1e-6 * (1.0 + r.GetLength());
        for (long f = 0; f < frames && !moves[i]; ++f) {
            CVector3 d;
            d.Sub(locals[static_cast<std::size_t>(f) * nodes.size() + i].GetTranslation(), r);
            moves[i] = d.GetLength() > tol;
        }
    }
    moves[static_cast<std::size_t>(tops[0])] = true;

    std::ostringstream out;
    std::vector<int> channelOrder;  // joints in the order their channels appear
    out << "HIERARCHY\n";
    std::function<void(int, int)> write = [&](int i, int depth) {
        const std::string pad(static_cast<std::size_t>(depth), '\t');
        const CVector3& o = nodes[static_cast<std::size_t>(i)].rest.GetTranslation();
        if (endSite[static_cast<std::size_t>(i)]) {
            out << pad << "End Site\n" << pad << "{\n";
            out << pad << "\tOFFSET " << Num(o.x) << " " << Num(o.y) << " " << Num(o.z) << "\n"
                << pad << "}\n";
            return;
        }
        out << pad << (depth == 0 ? "ROOT " : "JOINT ") << BvhName(nodes[static_cast<std::size_t>(i)].name)
            << "\n"
            << pad << "{\n";
        out << pad << "\tOFFSET " << Num(o.x) << " " << Num(o.y) << " " << Num(o.z) << "\n";
        if (moves[static_cast<std::size_t>(i)])
            out << pad << "\tCHANNELS 6 Xposition Yposition Zposition Zrotation Xrotation Yrotation\n";
        else
            out << pad << "\tCHANNELS 3 Zrotation Xrotation Yrotation\n";
        channelOrder.push_back(i);
        if (kids[static_cast<std::size_t>(i)].empty())
            out << pad << "\tEnd Site\n" << pad << "\t{\n" << pad << "\t\tOFFSET 0 0 0\n" << pad << "\t}\n";
        for (int k : kids[static_cast<std::size_t>(i)]) write(k, depth + 1);
        out << pad << "}\n";
    };
    write(tops[0], 0);
    out << "MOTION\nFrames: " << frames << "\nFrame Time: " << Num(1.0 / rate) << "\n";
    std::vector<CVector3> prev(nodes.size());
    for (long f = 0; f < frames; ++f) {
        bool firstValue = true;
        auto put = [&](double v) {
            out << (firstValue ? "" : " ") << Num(v);
            firstValue = false;
        };
        for (int i : channelOrder) {
            const CTransformation& t =
                locals[static_cast<std::size_t>(f) * nodes.size() + static_cast<std::size_t>(i)];
            if (moves[static_cast<std::size_t>(i)]) {
                const CVector3& p = t.GetTranslation();
                put(p.x);
                put(p.y);
                put(p.z);
            }
            CVector3& a = prev[static_cast<std::size_t>(i)];
            a = ContinuousAngles(t.GetRotation(), kBvhOrder, f == 0 ? nullptr : &a);
            put(a.z);
            put(a.x);
            put(a.y);
        }
        out << "\n";
    }
    const std::string text = out.str();
    return WriteWhole(path, text.data(), text.size(), error);
}

}  // namespace

bool ExportCharacter(const std::string& path, Object3D* model, const CharacterExportOptions& options,
                     std::wstring& error) {
    error.clear();
    if (!model || !TheStore().Resolve(model->Ref())) {
        error = L"there is no such model";
        return false;
    }
    const std::string suffix = Suffix(path);
    // FBX goes out in its text form: Assimp 5.2's binary FBX writer pads its records wrongly,
    // and no reader (its own included) takes the result.
    static const std::map<std::string, const char*> kFormats = {
        {"glb", "glb2"}, {"gltf", "gltf2"}, {"fbx", "fbxa"}, {"dae", "collada"}, {"bvh", nullptr}};
    const auto format = kFormats.find(suffix);
    if (format == kFormats.end()) {
        error = L"the suffix \"." + Wide(suffix) +
                L"\" names no format that can be written (.glb, .gltf, .fbx, .dae, .bvh)";
        return false;
    }
    const double start = options.range ? options.start : PlayControlValue(L"In", 1.0);
    const double end = options.range ? options.end : PlayControlValue(L"Out", start);
    if (!std::isfinite(start) || !std::isfinite(end) || end < start) {
        error = L"the frame range " + Wide(Num(start)) + L" to " + Wide(Num(end)) + L" is empty";
        return false;
    }
    if (end - start > 1e7) {
        error = L"the frame range " + Wide(Num(start)) + L" to " + Wide(Num(end)) + L" is too long";
        return false;
    }
    const long frames = static_cast<long>(std::floor(end - start + 1e-9)) + 1;
    const double rate = PlayControlValue(L"Rate", 30.0);
    if (!(rate > 0.0)) {
        error = L"the scene's frame rate is not above 0";
        return false;
    }

    CharacterRecord record;
    std::vector<ExportNode> nodes;
    bool imported = false;
    CollectNodes(model, start, record, nodes, imported);
    if (nodes.empty()) {
        error = L"the model \"" + model->name + L"\" holds no objects";
        return false;
    }
    Progress progress(L"Exporting " + model->name, frames, frames * static_cast<long>(nodes.size()) >= 20000);
    const std::vector<CTransformation> locals = Sample(nodes, start, frames, progress);

    if (!format->second) return WriteBvh(path, nodes, locals, frames, rate, error);

    // The scene to write: the stored file (meshes, skins, materials, its own node tree), or
    // the nodes alone.
    Assimp::Importer importer;
    ConfigureImporter(importer, Lower(record.format));
    std::unique_ptr<aiScene> scene;
    if (imported && !record.bytes.empty()) {
        if (importer.ReadFileFromMemory(record.bytes.data(), record.bytes.size(), 0, record.format.c_str()))
            scene.reset(importer.GetOrphanedScene());
        if (!scene)
            Log(L"Export: the meshes kept with \"" + model->name +
                    L"\" cannot be read back; only its nodes are written.",
                ovWarning);
    }
    if (!scene) {
        scene = std::make_unique<aiScene>();
        scene->mRootNode = BuildTree(nodes);
        scene->mFlags |= AI_SCENE_FLAGS_INCOMPLETE;
    }
    for (unsigned i = 0; i < scene->mNumAnimations; ++i) delete scene->mAnimations[i];
    delete[] scene->mAnimations;
    scene->mNumAnimations = 1;
    scene->mAnimations = new aiAnimation*[1];
    scene->mAnimations[0] = BuildAnimation(Utf8(model->name), nodes, locals, frames, rate, suffix == "dae");

    // The FBX writer takes the root for the file's own root and drops its name and transform:
    // a root of the model's own goes one level down.
    const aiNode* root = scene->mRootNode;
    if (suffix == "fbx" && !IsMadeUpRoot(root, "fbx") && !IsMadeUpRoot(root, "glb")) {
        aiNode* top = new aiNode("RootNode");
        top->mNumChildren = 1;
        top->mChildren = new aiNode*[1];
        top->mChildren[0] = scene->mRootNode;
        scene->mRootNode->mParent = top;
        scene->mRootNode = top;
    }

    Assimp::Exporter exporter;
    if (suffix == "gltf") {
        // A .gltf names its buffer file itself; Assimp writes both.
        if (exporter.Export(scene.get(), format->second, path) != aiReturn_SUCCESS) {
            error = L"Assimp cannot write it: " + Wide(exporter.GetErrorString());
            return false;
        }
        return true;
    }
    const aiExportDataBlob* blob = exporter.ExportToBlob(scene.get(), format->second);
    if (!blob) {
        error = L"Assimp cannot write it: " + Wide(exporter.GetErrorString());
        return false;
    }
    return WriteWhole(path, blob->data, blob->size, error);
}

}  // namespace orvhost
