#include "glue/GlueMap.h"

#include <utility>

#include "character/ModelStructure.h"
#include "core/UtilMath.h"
#include "glue/SpineMap.h"
#include "modelmap/ModelMap.h"

namespace ZUK {

SpineConstraint::~SpineConstraint() {
    delete spineMap;
    delete[] segments;
}

SpineConstraint::SpineConstraint(SpineConstraint&& other) noexcept { *this = std::move(other); }

SpineConstraint& SpineConstraint::operator=(SpineConstraint&& other) noexcept {
    if (this == &other) return *this;
    delete spineMap;
    delete[] segments;
    anchorName = std::move(other.anchorName);
    baseName = std::move(other.baseName);
    goalName = std::move(other.goalName);
    tagName = std::move(other.tagName);
    nodeIndex = other.nodeIndex;
    anchor = other.anchor;
    base = other.base;
    goal = other.goal;
    numNodes = other.numNodes;
    segments = other.segments;
    aaxis = other.aaxis;
    aroll = other.aroll;
    axis = other.axis;
    roll = other.roll;
    atan = other.atan;
    gtan = other.gtan;
    spin = other.spin;
    spineMap = other.spineMap;
    other.segments = nullptr;
    other.spineMap = nullptr;
    other.numNodes = 0;
    return *this;
}

void GlueMap::syncToModelMap() {
    if (!modelMap) return;
    ModelMap& map = *modelMap;
    const ModelStructure* structure = map.structure;
    const int numNodes = static_cast<int>(map.nodes.size());
    for (MocapConstraint& c : mocaps) {
        const int n = c.nodeIndex;
        if (n < 0 || n >= numNodes || map.nodes[n].translationSource >= 0) continue;
        const int p = structure->nodes[n].Parent;
        if (p < 0 || p >= numNodes || map.nodes[p].translationSource < 0) continue;
        bool isSpan = false;
        for (int q = 0; q < structure->numPlanes && !isSpan; ++q) isSpan = structure->planes[q].Span == p;
        if (!isSpan) continue;
        const ORV::X3DObject& own = map.nodes[n].object;
        const ORV::X3DObject& goal = map.nodes[p].object;
        if (!own.IsValid() || !goal.IsValid()) continue;
        // An object on a limb's goal with no source of its own rides on the goal, turned by
        // the difference between the two nodes' axes.
        ORV::MATH::CVector3 d;
        d.Sub(own.GetKinematics().GetGlobal().GetTransform(ModelMap::NOW).GetTranslation(),
              goal.GetKinematics().GetGlobal().GetTransform(ModelMap::NOW).GetTranslation());
        if (d.GetLength() < 0.0001 * map.legLength) {
            c.rotationOffset = Util::BuildRotationBetweenTwoAxisPairs(map.nodes[n].align, map.nodes[n].roll,
                                                                      map.nodes[p].align, map.nodes[p].roll);
            c.nodeIndex = p;
        }
    }
}

}  // namespace ZUK
