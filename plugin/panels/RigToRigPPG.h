// ZUK::RigToRigPPG: the Rig to Rig panel, which retargets between two tagged rigs of the scene.
// One-shot: constructing it opens or refreshes the panel.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class RigToRigPPG {
public:
    static const ORV::CString PROPERTY_NAME;

    explicit RigToRigPPG(bool refresh);
};

}  // namespace ZUK
