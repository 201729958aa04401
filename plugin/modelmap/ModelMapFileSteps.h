// Steps shared by the two normalised motion writers and readers (text and XML): the frame
// passes that turn a rig's animation into normalised poses, the key timing count, and the
// bounds that keep a damaged file from asking for more memory than it could ever fill.
#pragma once

#include <orv/ORV.h>

#include <functional>

namespace ZUK {

class ModelMap;

namespace motionfile {

// Runs the stretch scan and the frame pass from `startFrame` to `endFrame` on a rig map,
// calling `writeFrame(frame)` once the map's `global` of every node holds the normalised pose
// of that frame. Keeps and restores the play control's "Current"; the progress bar goes up by
// one per frame of each pass.
void runFramePasses(ModelMap& map, int startFrame, int endFrame, ORV::ProgressBar& bar,
                    const std::function<void(int)>& writeFrame);

// The number of objects whose key timing the writers store.
int countKeyTimingObjects(ModelMap& map);

// The up-vector object of a limb whose anchor object is a chain bone; invalid otherwise.
ORV::X3DObject upVectorOf(const ORV::X3DObject& bone);

// The animation curve that drives a local channel of `object`; invalid when none does.
ORV::FCurve channelCurve(const ORV::X3DObject& object, const wchar_t* channel);

// Whether the model carries a custom property of that name.
bool hasProperty(const ORV::X3DObject& model, const ORV::CString& name);

// The size of a file in bytes; 0 when it cannot be read.
long long fileSize(const ORV::CString& path);

// Whether a count read from a file of `bytes` bytes is one the file could hold: every counted
// item takes at least one byte of it.
bool plausibleCount(long long count, long long bytes);
// Whether a file of `bytes` can hold the frames, nodes and limbs it announces.
bool plausibleCounts(int frames, int numNodes, int numPlanes, long long bytes);
// Makes `map` an empty motion map of the file's shape, over a structure of its own; anything
// the map held is dropped.
void startMotionMap(ModelMap& map, int numNodes, int numPlanes, const ORV::CString& type, int frames,
                    double legLength, double hipOffset);

}  // namespace motionfile
}  // namespace ZUK
