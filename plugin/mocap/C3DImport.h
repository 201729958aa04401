// ZUK::C3DImport: the names under which C3D marker data and its rig fit live in a scene and in
// pose map files. The import operations themselves come with the rig fit.
#pragma once

namespace ZUK {

class C3DImport {
public:
    // Name of the marker model.
    static constexpr const wchar_t* MODEL_NAME = L"C3DData";
    // Name of the ESR rig model made for C3D data.
    static constexpr const wchar_t* ESR_NAME = L"C3DRig";
    // Name of the blob of raw samples.
    static constexpr const wchar_t* UDB_NAME = L"c3dudb";
    // Name of the custom property with the description of the data.
    static constexpr const wchar_t* PROPERTY_NAME = L"c3ddef";
    // First word of a pose map file.
    static constexpr const wchar_t* VERSION = L"Version3";
    // A count used by the tag panel.
    static constexpr int NUM_NON_TAG_PARAMS = 1;
};

}  // namespace ZUK
