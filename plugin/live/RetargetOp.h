// ZUK::RetargetOp: the live retarget operator of a model and its installation.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class RetargetOp {
public:
    // Name of the blob on a retargeted model that holds its recorded motion.
    static const ORV::CString DATA_NAME;

    // Removes a previous installation from `model`: operators, adjustment property and blob.
    // True if there was one.
    static bool cleanupRetargetOp(ORV::Model model);

    // The frame range of the model's motion: from its blob when retargeted, else from its curves.
    static bool findFCurvesStartEnd(ORV::Model model, int& start, int& end);
};

}  // namespace ZUK
