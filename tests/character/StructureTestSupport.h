// Shared scaffolding of the structure tests: a scratch add-on root in a mkdtemp folder, the
// host's installation locations pointed at it, and the host log.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "core/FileManager.h"

namespace structtest {

namespace fs = std::filesystem;

inline std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// <tmp>/Addons/Trovo/Data/ with Structures/ and Structures/Mocap/, removed again at the end.
class ScratchRoot {
public:
    ScratchRoot() {
        char pattern[] = "/tmp/trovo_structs_XXXXXX";
        const char* made = mkdtemp(pattern);
        dir = made ? made : "";
        fs::create_directories(Data() / "Structures" / "Mocap");
    }
    ~ScratchRoot() {
        std::error_code ignored;
        if (!dir.empty()) fs::remove_all(dir, ignored);
    }
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    fs::path Data() const { return fs::path(dir) / "Addons" / "Trovo" / "Data"; }

    // Writes `text` to Data()/relative, e.g. "Structures/test.structure".
    void Write(const std::string& relative, const std::string& text) const {
        std::ofstream out(Data() / relative, std::ios::binary);
        out << text;
    }

    std::string dir;
};

// Keeps the host's installation locations and puts them back at the end, so that tests of
// other subsystems in the same program find the locations as they were.
class SavedLocations {
public:
    SavedLocations() {
        for (int kind = 1; kind <= 3; ++kind)
            saved[kind] = ORV::Application().GetInstallationPath(kind).std();
    }
    ~SavedLocations() {
        for (int kind = 1; kind <= 3; ++kind) orvhost::SetInstallationPath(kind, saved[kind]);
        ZUK::FileManager::rootsFilled = false;
    }
    SavedLocations(const SavedLocations&) = delete;
    SavedLocations& operator=(const SavedLocations&) = delete;

private:
    std::wstring saved[4];
};

// Points the user location at `user` and the factory location at `factory` (either may be
// empty), with no shared location. FileManager reads the locations once per process, so its
// cache is refilled here.
inline void UseLocations(const std::string& user, const std::string& factory) {
    orvhost::SetInstallationPath(ORV::ovUserPath, Wide(user));
    orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
    orvhost::SetInstallationPath(ORV::ovFactoryPath, Wide(factory));
    ZUK::FileManager::rootsFilled = false;
    ZUK::FileManager refill;
}

inline std::vector<std::wstring> Messages(int severity) { return orvhost::LogTexts(severity); }

inline std::vector<std::wstring> One(const std::wstring& text) { return std::vector<std::wstring>{text}; }

inline std::wstring Text(const ORV::CString& s) { return s.GetWideString(); }

inline void ExpectSameVector(const ORV::MATH::CVector3& a, const ORV::MATH::CVector3& b) {
    EXPECT_DOUBLE_EQ(a.x, b.x);
    EXPECT_DOUBLE_EQ(a.y, b.y);
    EXPECT_DOUBLE_EQ(a.z, b.z);
}

inline void ExpectSameGroups(const std::vector<ZUK::ModelStructure::Group>& a,
                             const std::vector<ZUK::ModelStructure::Group>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t g = 0; g < a.size(); ++g) {
        EXPECT_EQ(Text(a[g].Name), Text(b[g].Name));
        EXPECT_EQ(Text(a[g].Parent), Text(b[g].Parent));
        ASSERT_EQ(a[g].items.size(), b[g].items.size());
        for (size_t i = 0; i < a[g].items.size(); ++i) {
            const ZUK::ModelStructure::GroupItem& x = a[g].items[i];
            const ZUK::ModelStructure::GroupItem& y = b[g].items[i];
            EXPECT_EQ(Text(x.Name), Text(y.Name));
            EXPECT_EQ(Text(x.Type), Text(y.Type));
            ExpectSameVector(x.Align, y.Align);
            ExpectSameVector(x.Roll, y.Roll);
            ExpectSameVector(x.Offset, y.Offset);
            ExpectSameVector(x.Minlimits, y.Minlimits);
            ExpectSameVector(x.Maxlimits, y.Maxlimits);
        }
    }
}

// Every field that the stored form keeps, compared between two structures.
inline void ExpectStoredFieldsEqual(const ZUK::ModelStructure& a, const ZUK::ModelStructure& b) {
    EXPECT_EQ(Text(a.Type), Text(b.Type));
    EXPECT_EQ(Text(a.Source), Text(b.Source));
    ASSERT_EQ(a.numNodes, b.numNodes);
    ASSERT_EQ(a.numPlanes, b.numPlanes);
    for (int i = 0; i < a.numNodes; ++i) {
        SCOPED_TRACE(Text(a.nodes[i].Name));
        EXPECT_EQ(a.nodes[i].Parent, b.nodes[i].Parent);
        EXPECT_EQ(a.nodes[i].OffsetParent, b.nodes[i].OffsetParent);
        EXPECT_EQ(Text(a.nodes[i].Name), Text(b.nodes[i].Name));
        EXPECT_EQ(a.nodes[i].Type, b.nodes[i].Type);
        EXPECT_EQ(a.nodes[i].Friction, b.nodes[i].Friction);
        ExpectSameVector(a.nodes[i].align, b.nodes[i].align);
        ExpectSameVector(a.nodes[i].roll, b.nodes[i].roll);
        EXPECT_EQ(a.nodes[i].mirror_node_index, b.nodes[i].mirror_node_index);
    }
    for (int p = 0; p < a.numPlanes; ++p) {
        EXPECT_EQ(Text(a.planes[p].Name), Text(b.planes[p].Name));
        EXPECT_EQ(a.planes[p].AnchorIndex, b.planes[p].AnchorIndex);
        EXPECT_EQ(a.planes[p].Mid, b.planes[p].Mid);
        EXPECT_EQ(a.planes[p].Span, b.planes[p].Span);
        EXPECT_TRUE(a.planes[p].bones == b.planes[p].bones);
    }
    ASSERT_EQ(a.decomps.size(), b.decomps.size());
    for (size_t d = 0; d < a.decomps.size(); ++d) {
        const ZUK::ModelStructure::Decomp& x = a.decomps[d];
        const ZUK::ModelStructure::Decomp& y = b.decomps[d];
        EXPECT_EQ(Text(x.SrcName), Text(y.SrcName));
        EXPECT_EQ(Text(x.PX), Text(y.PX));
        EXPECT_EQ(Text(x.PY), Text(y.PY));
        EXPECT_EQ(Text(x.PZ), Text(y.PZ));
        EXPECT_EQ(Text(x.RX), Text(y.RX));
        EXPECT_EQ(Text(x.RY), Text(y.RY));
        EXPECT_EQ(Text(x.RZ), Text(y.RZ));
        EXPECT_EQ(Text(x.RtoP_X), Text(y.RtoP_X));
        EXPECT_EQ(Text(x.RtoP_Y), Text(y.RtoP_Y));
        EXPECT_EQ(Text(x.RtoP_Z), Text(y.RtoP_Z));
    }
    ExpectSameGroups(a.baseGroups, b.baseGroups);
    ExpectSameGroups(a.groups, b.groups);
}

}  // namespace structtest
