// ZUK::AdjustPPG: the adjustment panel of a retargeted rig and its presets.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class ModelMap;
class RetargetOp;

class AdjustPPG {
public:
    // Opens the adjustment panel of `model`, or with refresh true, refreshes it if it is the
    // one open.
    AdjustPPG(ORV::Model model, bool refresh);

    // Name of the adjustment property on a retargeted model.
    static const ORV::CString PROPERTY_NAME;
    // Full name of the model whose panel is open; empty when none is.
    static ORV::CString m_currentModel;

    // Adds the parameters that depend on the rig: offsets, semi-free nodes, and per limb goal
    // its offsets, roll, stretch, clamp and foot flag.
    static void addModelSpecificParameters(ORV::CustomProperty property, ModelMap* map, ORV::Model model);
    // Reads each plane's "Foot" flag into the operator's structure as its goal's Friction.
    static void LoadFootSettingsFromProperty(ORV::CustomProperty property, RetargetOp* op);
    // Closes the adjustment panel of `m_currentModel`; nothing when no panel is open.
    static void closePanel();
    // Saves the adjustment property (and rotation offsets) of `model` as a ".adj" preset.
    static void SavePreset(ORV::Model model, ORV::CString file);
    // Loads a ".adj" preset onto `model`, rebuilding the operator's caches at `time`.
    static void LoadPreset(ORV::Model model, ORV::CString file, double time);
};

}  // namespace ZUK
