// Imports a BVH file: either all of its motion as MocapData, or a reference model of its
// skeleton in the scene (the model that a user tags).
#pragma once

#include <orv/ORV.h>

#include "mocap/Mocap.h"

namespace ZUK {

class BvImport {
public:
    // Name of the reference model, and the first word of a BVH map file.
    static constexpr const wchar_t* LBVHTAG = L"BVH";
    // Custom property that marks a model as coming from a BVH file.
    static constexpr const wchar_t* PROPERTY_NAME = L"bvh";

    // All frames of the file as a new MocapData owned by the caller; null on any failure,
    // reported by the caller.
    static MocapData* extractMocapData(const ORV::CString& path, UpDirection up);
    // A model named LBVHTAG under the scene root with one cube per node at its frame-0 pose;
    // an invalid model when the file fails to read (the scene is then untouched).
    static ORV::Model createBvhModel(const ORV::CString& path, UpDirection up);
};

}  // namespace ZUK
