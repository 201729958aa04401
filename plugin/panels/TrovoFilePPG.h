// ZUK::TrovoFilePPG: the page that saves or loads a normalised motion file. One-shot:
// constructing it opens the page.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class TrovoFilePPG {
public:
    static const ORV::CString PROPERTY_NAME;

    // Opens the page on `model` (or the selected tagged model), in save mode when `save`, else
    // in load mode, browsing from `folder`.
    TrovoFilePPG(ORV::CString& folder, ORV::Model model, bool save);
};

}  // namespace ZUK
