// ZUK::MocapToRigPPG: the Mocap to Rig panel, a property on the scene root that leads a user
// through bringing a capture onto a rig. One-shot: constructing it opens or refreshes the panel.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class MocapToRigPPG {
public:
    // Registered property type of the panel's property on the scene root.
    static const ORV::CString PROPERTY_NAME;

    // Opens the panel; with `refresh` true only refreshes it, and only when it is already open.
    explicit MocapToRigPPG(bool refresh);

    // Removes everything the retarget setup made on `model`.
    static void flushRetargetData(ORV::Model model);
};

}  // namespace ZUK
