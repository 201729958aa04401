// ZUK::Util: free functions through which every subsystem reaches the scene. Finding models,
// properties and operators, wrapping the host's script commands, asking the user, reading play
// control and keys, and drawing helper lines. The namespace holds no state.
//
// The scene-free math of the same namespace (Euler angles, continuity, plane projection) lives in
// core/UtilMath.h.
#pragma once

#include <orv/ORV.h>

#include "core/UtilMath.h"

namespace ZUK {
namespace Util {

// ---- Finding things -------------------------------------------------------------------------

// The model a panel or menu item works on when the user did not say: the only model of the
// scene, else the model of the first selected item. A selected scene root comes back as itself,
// a plain object directly under the root gives an invalid model.
ORV::Model getSingleModel();

// The models of the selection, each once, in order of first selection; never the scene root.
void getSelectedModels(ORV::CRefArray& models);

// The top-level models that carry the custom property `propertyName`, narrowed by the selection:
// with `onlySelected` the selected models (of any depth) that carry it; without, the one selected
// model that carries it, or all of them when none such is selected. Nothing comes back when no
// top-level model carries the property.
void getSelectedModels(ORV::CRefArray& models, const ORV::CString& propertyName, bool onlySelected);

// The model directly under the scene root named `name`; invalid when there is none.
ORV::Model findModel(ORV::CString name);

// True at the first property of `object` named `name`, with `property` set to it. On false,
// `property` holds whatever was examined last and must not be used.
bool findCustomPSet(const ORV::X3DObject& object, const ORV::CString& name, ORV::Property& property);

// True at the first custom operator named `operatorName` among the elements of `objectPath`.
bool findCustomOp(ORV::CString objectPath, ORV::CString operatorName, ORV::CustomOperator& op);

// Whether an entry of `array` equals `text` exactly, case included.
bool FindStringInArray(ORV::CStringArray& array, const ORV::CString& text);

// Parent steps from `node` up to `ancestor`: 0 for the same object, -1 when the climb meets the
// node's model first. The model test comes before the ancestor test, so the model as ancestor
// gives -1.
int CountSeparatingBones(ORV::X3DObject node, ORV::X3DObject ancestor);

// The object that really drives `object` through position and orientation constraints. The last
// qualifying constraint wins; constraint cycles are not guarded against.
ORV::X3DObject getMasterNode(ORV::X3DObject& object);

// Characters of `text` from `first` up to, not including, `last`; to the end of the text when
// `last` is 0 or less. Ends early at the end of the text.
ORV::CString SubString(ORV::CString text, int first, int last);

// ---- Script command wrappers ----------------------------------------------------------------

// "DeleteObj" on `name`.
ORV::CStatus deleteObj(ORV::CString name);

// Deletes the whole branch of the object `name` found anywhere under the scene root. False, and
// no command run, when there is no such object.
bool deleteModel(const ORV::CString& name);

// Removes all animation of the model's branch, and its mixer tracks.
void clearAnim(ORV::Model model);

// Removes the animation of one object.
void clearNodeAnim(ORV::X3DObject node);

// "GetConstrainedObjects" on the object and constraint; the command's result.
ORV::CValue getConstrainedObjects(const ORV::CValue& object, const ORV::CRef& constraint);

// "GetSkeleton": the chain array of the skeleton of `object`; `root` gets the second argument.
ORV::CValue getSkeleton(const ORV::CValue& object, ORV::CValue& root);

// Switches the host's command log on or off and returns the value it had. Callers restore the
// old value on every path.
bool logCommands(bool on);

// Frames the view on the models that carry `propertyName` (see getSelectedModels).
ORV::CStatus frame(const ORV::CString& propertyName);

// Opens the property page of `object` ("InspectObj"). True when the user pressed OK.
bool inspectObj(const ORV::CValue& object, const ORV::CString& keywords, const ORV::CString& title,
                const ORV::CValue& mode, bool throwOnCancel);

// ---- Asking the user ------------------------------------------------------------------------

// Logs `text` at severity 4 and shows it in a box titled "ZUKRetarget"; the box's answer.
long alert(const ORV::CString& text);

// A yes/no box titled "ZUKRetarget"; true unless the answer is No.
bool QueryYesNo(const ORV::CString& text);

// The host's file browser; the chosen path, empty when the user cancelled.
ORV::CString fileBrowser(const ORV::CString& filter, const ORV::CString& title, const ORV::CString& directory,
                         bool open);

// ---- Play control and keys ------------------------------------------------------------------

// "Rate" of the project's "Play Control".
double getFrameRate();

// The current frame of play control, narrowed to float.
float getCurrentFrame();

// Widens [start, end], which the caller has initialised, to the keys of every animated
// parameter under `object`. Curves with fewer than two keys add nothing.
void findStartEnd(ORV::X3DObject object, int& start, int& end);

// The times of all keys of `curve`, each less `offset`. Always true.
bool extractKeyIndices(ORV::FCurve& curve, int offset, int unused, ORV::CDoubleArray& times);

// The neutral pose of `node` (scaling, rotation in its rotation order, translation).
void extractNeutralPose(ORV::X3DObject node, ORV::MATH::CTransformation& pose);

// Forces the host to evaluate every object under `model`, then marks the model dirty.
void ForceGlobalEvaluationOnAllNodes(ORV::Model model);

// ---- Drawing helpers ------------------------------------------------------------------------

// A straight two-point curve under `parent`, named `name`, with wireframe colour `colour`.
ORV::X3DObject drawLine(ORV::X3DObject parent, const ORV::MATH::CVector3& from, const ORV::MATH::CVector3& to,
                        const ORV::CString& name, int colour);

// The same under the scene root.
ORV::X3DObject drawLine(const ORV::MATH::CVector3& from, const ORV::MATH::CVector3& to,
                        const ORV::CString& name, int colour);

// A line under `parent` whose ends follow `first` and `second`, kept up to date by a scripted
// operator; the line itself cannot be picked. Returns the line.
ORV::X3DObject makeConnectionLine(ORV::X3DObject& parent, ORV::X3DObject& first, ORV::X3DObject& second,
                                  int colour);

}  // namespace Util
}  // namespace ZUK
