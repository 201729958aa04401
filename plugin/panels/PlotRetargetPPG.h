// ZUK::PlotRetargetPPG: the plot options page on a retargeted model.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class PlotRetargetPPG {
public:
    static const ORV::CString PROPERTY_NAME;
    // Deletes the plot options property from the model.
    static void cleanup(ORV::Model model);
};

}  // namespace ZUK
