// Small hand-made characters for the motion buffer's tests: a structure of legs (each a thigh,
// a shin and a foot hanging from the thigh), with a target and a source map over it whose
// fields the tests set directly, without a rig in the scene.
#pragma once

#include <orv/ORV.h>

#include <memory>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "modelmap/ModelMap.h"

namespace livetest {

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

// Node 0 is the root; leg i has its thigh at 1 + 3i, shin at 2 + 3i, foot at 3 + 3i; plane i
// is leg i. The first `friction` feet are friction nodes, the others plain limb ends.
struct Legs {
    std::unique_ptr<ZUK::ModelStructure> structure;
    ZUK::ModelMap target, source;

    Legs(int legs, int friction) {
        structure.reset(new ZUK::ModelStructure(1 + 3 * legs, legs, L"legs"));
        ZUK::ModelStructure& s = *structure;
        s.nodes[0].Name = L"cog";
        for (int i = 0; i < legs; ++i) {
            const int thigh = Thigh(i), shin = thigh + 1, foot = thigh + 2;
            s.nodes[thigh].Parent = 0;
            s.nodes[thigh].Type = 1;
            s.nodes[shin].Parent = thigh;
            s.nodes[shin].Type = 1;
            s.nodes[foot].Parent = thigh;
            s.nodes[foot].Type = 2;
            s.nodes[foot].Friction = i < friction;
            s.nodes[thigh].Name = (L"thigh" + std::to_wstring(i)).c_str();
            s.nodes[shin].Name = (L"shin" + std::to_wstring(i)).c_str();
            s.nodes[foot].Name = (L"foot" + std::to_wstring(i)).c_str();
            s.planes[i].AnchorIndex = thigh;
            s.planes[i].Mid = shin;
            s.planes[i].Span = foot;
        }
        for (ZUK::ModelMap* m : {&target, &source}) {
            m->structure = structure.get();
            m->nodes.resize(static_cast<size_t>(s.numNodes));
            m->planes.resize(static_cast<size_t>(s.numPlanes));
            m->legLength = 1.0;
        }
        // Every foot fed by the source's foot of the same index; long limbs unless a test
        // wants the reach to matter.
        for (int i = 0; i < legs; ++i) {
            target.nodes[static_cast<size_t>(Foot(i))].translationSource = Foot(i);
            target.nodes[static_cast<size_t>(Foot(i))].length = 1000.0;
            source.nodes[static_cast<size_t>(Foot(i))].length = 1.0;
        }
    }
    static int Thigh(int leg) { return 1 + 3 * leg; }
    static int Foot(int leg) { return 3 + 3 * leg; }
};

inline CTransformation At(double x, double y, double z) {
    CTransformation t;
    t.SetTranslationFromValues(x, y, z);
    return t;
}

// Log entries of one severity, in order.
inline std::vector<std::wstring> Messages(int severity) { return orvhost::LogTexts(severity); }

}  // namespace livetest
