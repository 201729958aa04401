// ZUK::Retarget: the end-to-end jobs. Each rebuilds what it needs from the scene or from files,
// hands it to the subsystems and frees it again; no state lasts between calls. Commands and
// panel buttons reach these functions the same way.
#pragma once

#include <orv/ORV.h>

namespace ZUK {
namespace Retarget {

// Rig to rig: plays the motion of `source` over [start, end] on `target`.
bool ModelToModel(ORV::Model source, ORV::Model target, int start, int end);

// Capture to rig: plays a BVH file on `target` through a tag template or BVH map file.
bool LoadBVHOnToModel(const ORV::CString& bvhFile, const ORV::CString& mapFile, ORV::Model target);

// Loads C3D markers and fits the ESR rig that a stored pose map describes.
bool LoadC3DOnToESR(const ORV::CString& c3dFile, const ORV::CString& poseMapFile);

// Imports C3D markers without a target; optionally makes an ESR rig from `structureFile`.
bool ImportC3DFile(ORV::CString c3dFile, int upDirection, bool createESR, ORV::CString structureFile);

// Saves the fit of `esr` on the marker model `c3dModel` as a pose map.
bool SaveC3DPoseMapFile(ORV::Model c3dModel, ORV::Model esr, const ORV::CString& poseMapFile);

// Plays a normalised motion file on `target` from frame `start`.
bool LoadTrovoFile(const ORV::CString& file, ORV::Model target, int start);

// Writes the motion of `source` over [start, end] as a normalised motion file.
bool SaveTrovoFile(ORV::Model source, const ORV::CString& file, int start, int end);

}  // namespace Retarget
}  // namespace ZUK
