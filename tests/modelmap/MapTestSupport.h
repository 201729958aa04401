// Shared scaffolding of the model map tests: a small structure in a scratch add-on root, a rig
// of nulls that plays it, tag properties written directly onto objects, and the host log.
//
// The structure "mini" (file "mini.structure", base "mini.base") has the nodes
//   0 cog (hip), 1 spine (child), 2 chest (free), 3 lthigh (anchor), 4 lshin (child),
//   5 lfoot (friction, Parent 3), 6 lupperarm (anchor), 7 lforearm (child), 8 lhand (ik)
// and the planes 0 (3, 4, 5) and 1 (6, 7, 8), bones [5, 4, 3] and [8, 7, 6]. Its decompose
// block splits lforearm: RX to "ltwist", RtoP_Z to "lslide", RZ to "ltwist" again.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/StructureTestSupport.h"
#include "character/TagMap.h"
#include "modelmap/ModelMap.h"

namespace maptest {

using ORV::MATH::CVector3;

inline const char* MiniBase() {
    return "torso {\n"
           "    world\n"
           "    cog    hip    0 1 0    0 0 1    0 100 0\n"
           "    spine  child  0 1 0    0 0 1    0 10 0\n"
           "    chest  free   0 1 0    0 0 1    0 30 0\n"
           "}\n"
           "leftleg {\n"
           "    cog\n"
           "    lthigh anchor   0 -1 0   0 0 1   10 -5 0\n"
           "    lshin  child    0 -1 0   0 0 1   0 -45 0\n"
           "    lfoot  friction 0 0 1    0 1 0   0 -45 0\n"
           "}\n"
           "leftarm {\n"
           "    chest\n"
           "    lupperarm anchor 1 0 0   0 0 1   15 0 0\n"
           "    lforearm  child  1 0 0   0 0 1   30 0 0\n"
           "    lhand     ik     1 0 0   0 0 1   25 0 0\n"
           "}\n";
}

inline const char* MiniStructure() {
    return "mini\n"
           "twist {\n"
           "    decompose\n"
           "    lforearm\n"
           "    Unused Unused Unused   ltwist Unused ltwist   Unused Unused lslide\n"
           "}\n";
}

// The same body with a decompose block whose source names no node.
inline const char* StrayDecompStructure() {
    return "mini\n"
           "twist {\n"
           "    decompose\n"
           "    nosuchnode\n"
           "    Unused Unused Unused   ltwist Unused Unused   Unused Unused Unused\n"
           "}\n";
}

inline std::wstring Text(const ORV::CString& s) { return s.GetWideString(); }

inline std::vector<std::wstring> Messages(int severity) { return orvhost::LogTexts(severity); }

// Writes the "ZUKTag" property as tagging does: tag name, override, six directions and the
// reference pose text, and optionally "extractNode".
inline ORV::CustomProperty AddTag(ORV::X3DObject object, const ORV::CString& tagName,
                                  const CVector3& align = CVector3(0, 0, 1),
                                  const CVector3& roll = CVector3(0, 1, 0),
                                  const ORV::CString& overrideTag = L"", const ORV::CString& tpose = L"",
                                  const wchar_t* extractNode = nullptr) {
    ORV::CustomProperty p(object.AddProperty(L"CustomProperty", false, ZUK::TagMap::PROPERTY_NAME).GetRef());
    ORV::Parameter ignored;
    p.AddParameter(L"tagname", ORV::ovString, 6, L"", L"", ORV::CValue(tagName), ignored);
    p.AddParameter(L"override", ORV::ovString, 6, L"", L"", ORV::CValue(overrideTag), ignored);
    const wchar_t* names[6] = {L"alignx", L"aligny", L"alignz", L"rollx", L"rolly", L"rollz"};
    const double values[6] = {align.x, align.y, align.z, roll.x, roll.y, roll.z};
    for (int k = 0; k < 6; ++k)
        p.AddParameter(names[k], ORV::ovFloat, 6, L"", L"", ORV::CValue(values[k]), ignored);
    p.AddParameter(L"tpose_transform", ORV::ovString, 6, L"", L"", ORV::CValue(tpose), ignored);
    if (extractNode)
        p.AddParameter(L"extractNode", ORV::ovString, 6, L"", L"", ORV::CValue(extractNode), ignored);
    return p;
}

inline ORV::CustomProperty AddExtractionTag(ORV::X3DObject object, const CVector3& align,
                                            const CVector3& roll) {
    ORV::CustomProperty p(
        object.AddProperty(L"CustomProperty", false, ZUK::TagMap::EXTRACTION_NAME).GetRef());
    ORV::Parameter ignored;
    const wchar_t* names[6] = {L"alignx", L"aligny", L"alignz", L"rollx", L"rolly", L"rollz"};
    const double values[6] = {align.x, align.y, align.z, roll.x, roll.y, roll.z};
    for (int k = 0; k < 6; ++k)
        p.AddParameter(names[k], ORV::ovFloat, 6, L"", L"", ORV::CValue(values[k]), ignored);
    return p;
}

// A null under `parent` at the global position `at`, optionally turned.
inline ORV::Null AddNullAt(ORV::X3DObject parent, const wchar_t* name, const CVector3& at,
                           const ORV::MATH::CRotation& rotation = ORV::MATH::CRotation()) {
    ORV::Null n;
    parent.AddNull(name, n);
    ORV::MATH::CTransformation t;
    t.SetTranslation(at);
    t.SetRotation(rotation);
    n.GetKinematics().GetGlobal().PutTransform(t);
    return n;
}

inline ORV::MATH::CTransformation GlobalOf(const ORV::X3DObject& object) {
    return object.GetKinematics().GetGlobal().GetTransform(ZUK::ModelMap::NOW);
}

// The mini rig: one null per structure node, parents as in the structure, in a model "Rig".
struct MiniRig {
    ORV::Model model;
    ORV::Null cog, spine, chest, lthigh, lshin, lfoot, lupperarm, lforearm, lhand;

    // Every node tagged with its own name and the directions of the structure, in node order.
    void TagAll() {
        AddTag(cog, L"cog", CVector3(0, 1, 0), CVector3(0, 0, 1));
        AddTag(spine, L"spine", CVector3(0, 1, 0), CVector3(0, 0, 1));
        AddTag(chest, L"chest", CVector3(0, 1, 0), CVector3(0, 0, 1));
        AddTag(lthigh, L"lthigh", CVector3(0, -1, 0), CVector3(0, 0, 1));
        AddTag(lshin, L"lshin", CVector3(0, -1, 0), CVector3(0, 0, 1));
        AddTag(lfoot, L"lfoot", CVector3(0, 0, 1), CVector3(0, 1, 0));
        AddTag(lupperarm, L"lupperarm", CVector3(1, 0, 0), CVector3(0, 0, 1));
        AddTag(lforearm, L"lforearm", CVector3(1, 0, 0), CVector3(0, 0, 1));
        AddTag(lhand, L"lhand", CVector3(1, 0, 0), CVector3(0, 0, 1));
    }
};

inline MiniRig BuildMiniRig(const wchar_t* name = L"Rig") {
    MiniRig r;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), name, r.model);
    r.cog = AddNullAt(r.model, L"cog", CVector3(0, 100, 0));
    r.spine = AddNullAt(r.cog, L"spine", CVector3(0, 110, 0));
    r.chest = AddNullAt(r.spine, L"chest", CVector3(0, 140, 0));
    r.lthigh = AddNullAt(r.cog, L"lthigh", CVector3(10, 95, 0));
    // The knee forward, so that the leg bends.
    r.lshin = AddNullAt(r.lthigh, L"lshin", CVector3(10, 50, 5));
    r.lfoot = AddNullAt(r.lshin, L"lfoot", CVector3(10, 5, 0));
    r.lupperarm = AddNullAt(r.chest, L"lupperarm", CVector3(15, 140, 0));
    r.lforearm = AddNullAt(r.lupperarm, L"lforearm", CVector3(45, 140, -3));
    r.lhand = AddNullAt(r.lforearm, L"lhand", CVector3(70, 140, 0));
    return r;
}

// A fresh scene and log, the scratch root with the mini structure files, and the locations
// pointed at it (restored at the end).
class MapTest : public ::testing::Test {
protected:
    void SetUp() override {
        structtest::UseLocations(root.dir, "");
        orvhost::ResetScene();
        orvhost::ClearLog();
        root.Write("Structures/mini.base", MiniBase());
        root.Write("Structures/mini.structure", MiniStructure());
        root.Write("Structures/stray.structure", StrayDecompStructure());
    }
    void TearDown() override { orvhost::ResetScene(); }

    std::unique_ptr<ZUK::ModelStructure> LoadStructure(const char* name = "mini") {
        return std::unique_ptr<ZUK::ModelStructure>(ZUK::ModelStructure::CreateFromFile(ORV::CString(name)));
    }

    structtest::SavedLocations saved;
    structtest::ScratchRoot root;
};

}  // namespace maptest
