// ZUK::RotationOffsetPPG: the rotation offset panel of a single rig object.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class RotationOffsetPPG {
public:
    // Name of the rotation offset property on a rig object.
    static const ORV::CString PROPERTY_NAME;

    // Closes every open rotation offset panel; nothing when none is open.
    static void closePanels();
};

}  // namespace ZUK
