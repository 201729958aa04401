// ZUK::AdjustPPG: the adjustment panel of a retargeted rig and its presets.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class AdjustPPG {
public:
    // Name of the adjustment property on a retargeted model.
    static const ORV::CString PROPERTY_NAME;
    // Full name of the model whose panel is open; empty when none is.
    static ORV::CString m_currentModel;

    // Closes the adjustment panel of `m_currentModel`; nothing when no panel is open.
    static void closePanel();
    // Saves the adjustment property (and rotation offsets) of `model` as a ".adj" preset.
    static void SavePreset(ORV::Model model, ORV::CString file);
    // Loads a ".adj" preset onto `model`, rebuilding the operator's caches at `time`.
    static void LoadPreset(ORV::Model model, ORV::CString file, double time);
};

}  // namespace ZUK
