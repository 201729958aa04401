// The live retarget at evaluation time: the host's callbacks of the five operators, the load
// of the blob on the first evaluation, and the per-evaluation pose. "RetargetOp" computes the
// pose into its ModelMap and writes nothing; the four small operators write it onto their rig
// objects through the glue. Everything that takes names or memory happens in the load or in a
// panel event; an evaluation touches only the map and the blob's doubles.
#include <cmath>
#include <cstring>
#include <cwchar>
#include <initializer_list>
#include <string>

#include "character/ModelStructure.h"
#include "glue/GlueMap.h"
#include "glue/SpineMap.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "panels/AdjustPPG.h"
#include "panels/RotationOffsetPPG.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
ORV::Application app;

const double NOW = ModelMap::NOW;
const double DEG_TO_RAD = 0.017453292519943295;
constexpr int POSE_DOUBLES = 7;
constexpr int NORMAL_DOUBLES = 3;

// The blob has no padding: its doubles are read by copy.
inline void readDoubles(const double* base, long long index, double* out, int count) {
    std::memcpy(out,
                reinterpret_cast<const unsigned char*>(base) + index * static_cast<long long>(sizeof(double)),
                sizeof(double) * static_cast<size_t>(count));
}

// The text of `name` after the first occurrence of `part`; false when it does not occur.
bool suffixAfter(const ORV::CString& name, const ORV::CString& part, ORV::CString& suffix) {
    if (part.IsEmpty()) return false;
    const wchar_t* whole = name.GetWideString();
    const wchar_t* at = std::wcsstr(whole, part.GetWideString());
    if (!at) return false;
    suffix = ORV::CString(at + part.Length());
    return true;
}

bool isOneOf(const ORV::CString& text, std::initializer_list<const wchar_t*> words) {
    for (const wchar_t* w : words)
        if (text == ORV::CString(w)) return true;
    return false;
}
}  // namespace

// ---- Load -------------------------------------------------------------------------------------

void RetargetOp::PrepareDataForPlayback(ModelMap* map, GlueMap* glue, double time) {
    // 1. The maps, with the translation sources the transfer recorded.
    modelMap = map;
    glueMap = glue;
    const ModelStructure& s = *map->structure;
    for (int i = 0; i < s.numNodes; ++i) {
        int source = -1;
        std::memcpy(&source, reinterpret_cast<const unsigned char*>(sourceNodes) + 4 * static_cast<size_t>(i),
                    4);
        map->nodeMap(i)->translationSource = source;
    }
    glue->syncToModelMap();

    // 2. The adjustment property, and the parameter that every evaluation reads.
    ORV::Property property;
    if (Util::findCustomPSet(*map, AdjustPPG::PROPERTY_NAME, property))
        adjustProperty = ORV::CustomProperty(property.GetRef());
    speedParameter = adjustProperty.GetParameter(L"Speed");
    speed = static_cast<double>(adjustProperty.GetParameterValue(L"Speed", NOW));

    // 3. The caches of the adjustments.
    const int frames = numFrames > 0 ? numFrames : 0;
    cogPath = new ORV::MATH::CVector3[static_cast<size_t>(frames)];
    footPaths = new ORV::MATH::CVector3*[static_cast<size_t>(s.numPlanes)];
    for (int p = 0; p < s.numPlanes; ++p) footPaths[p] = new ORV::MATH::CVector3[static_cast<size_t>(frames)];
    clampKeys = new std::vector<ClampItem>[static_cast<size_t>(s.numPlanes)];

    // 4. Clamp events per limb.
    for (int p = 0; p < s.numPlanes; ++p) updateClampKeys(p, time);

    // 5. Reference frames of a clamp: the world, then every driven object.
    frameSelections = ORV::CValueArray();
    frameSelections.Add(ORV::CValue(ORV::CString(L"Global Frame")));
    frameSelections.Add(ORV::CValue(0));
    int number = 1;
    for (const MocapConstraint& c : glue->mocaps) {
        if (!c.object.IsValid()) continue;
        frameSelections.Add(ORV::CValue(c.object.GetName()));
        frameSelections.Add(ORV::CValue(number++));
    }

    // 6. Objects that can take a rotation offset: fed, rotated, and not inside a limb.
    offsetSelections = ORV::CValueArray();
    number = 0;
    for (size_t ci = 0; ci < glue->mocaps.size(); ++ci) {
        const MocapConstraint& c = glue->mocaps[ci];
        const int n = c.nodeIndex;
        if (n < 0 || n >= s.numNodes || map->nodes[static_cast<size_t>(n)].translationSource < 0) continue;
        if (!c.object.IsValid() || c.kind == 1) continue;
        bool insideLimb = false;
        for (int p = 0; p < s.numPlanes && !insideLimb; ++p) {
            const ORV::CLongArray& bones = s.planes[p].bones;
            for (long b = 1; b < bones.GetCount() && !insideLimb; ++b) insideLimb = bones[b] == n;
        }
        if (insideLimb) continue;
        offsetSelections.Add(ORV::CValue(c.object.GetName()));
        offsetSelections.Add(ORV::CValue(number++));
        map->nodes[static_cast<size_t>(n)].constraintIndex = static_cast<int>(ci);
    }

    // 7. Which objects carry a rotation offset property.
    for (MocapConstraint& c : glue->mocaps) {
        if (!c.object.IsValid() || c.kind == 1) continue;
        ORV::Property offset;
        c.hasRotationOffsetProperty =
            Util::findCustomPSet(c.object, RotationOffsetPPG::PROPERTY_NAME, offset);
        c.rotationOffsetProperty =
            c.hasRotationOffsetProperty ? ORV::CustomProperty(offset.GetRef()) : ORV::CustomProperty();
    }

    // 8. The panel's foot flags, not the structure file's, decide which goals are held.
    AdjustPPG::LoadFootSettingsFromProperty(adjustProperty, this);

    // 9. Stride paths.
    updateStride();

    // 10. The adjustable free nodes.
    semiFrees.clear();
    const int count = static_cast<int>(adjustProperty.GetParameterValue(L"NumSemiFree", NOW));
    for (int i = 0; i < count; ++i) {
        const ORV::CString name =
            adjustProperty
                .GetParameterValue(ORV::CString(L"semiName") + ORV::CString(std::to_wstring(i).c_str()), NOW)
                .GetAsText();
        const int node = map->structure->findNodeIndex(name);
        if (node < 0) continue;
        SemiFree semi;
        semi.changeTime = 0.0;
        semi.name = name;
        semi.node = node;
        semi.anchorTangentLength =
            static_cast<double>(adjustProperty.GetParameterValue(name + L"AnchorTangentLength", NOW));
        semi.goalTangentLength =
            static_cast<double>(adjustProperty.GetParameterValue(name + L"GoalTangentLength", NOW));
        semi.offsetChildren =
            static_cast<bool>(adjustProperty.GetParameterValue(name + L"offsetChildren", NOW));
        semi.offset.Set(static_cast<double>(adjustProperty.GetParameterValue(name + L"X", NOW)),
                        static_cast<double>(adjustProperty.GetParameterValue(name + L"Y", NOW)),
                        static_cast<double>(adjustProperty.GetParameterValue(name + L"Z", NOW)));
        semiFrees.push_back(semi);
    }
}

// ---- Per evaluation ---------------------------------------------------------------------------

void RetargetOp::update(double time) {
    if (warmupCount < 2)
        ++warmupCount;
    else
        notReady = false;
    computeFrame(time);
    if (!notReady) computePose();
}

void RetargetOp::computeFrame(double time) {
    currentTime = time;
    const double rate = static_cast<double>(speedParameter.GetValue(NOW));
    const double elapsed = time - insertionFrame;
    const double x = (elapsed > 0.0 ? elapsed : 0.0) * rate;
    currentFrame = static_cast<int>(std::floor(x));
    frameFraction = x - currentFrame;
    // Before the insertion frame the first pose holds, after the end the last one.
    if (currentFrame >= numFrames - 1) {
        currentFrame = numFrames - 1;
        frameFraction = 0.0;
    }
    notReady = false;
}

void RetargetOp::computePose() {
    applyPose();
    applyStride();
    applyStretch();
    applyOffset();
    DampenMotion();
    applyClamp();
    modelMap->solveIK();
    applyRoll();
    const ModelStructure& s = *modelMap->structure;
    for (int i = 0; i < s.numNodes; ++i) {
        const int parent = s.nodes[i].Parent;
        if (parent < 0) continue;
        NodeMap& node = modelMap->nodes[static_cast<size_t>(i)];
        node.local = ORV::MATH::MapWorldPoseToObjectSpace(modelMap->nodes[static_cast<size_t>(parent)].global,
                                                          node.global);
    }
}

void RetargetOp::applyPose() {
    // A clip without frames has nothing to play.
    if (numFrames <= 0) return;
    const ModelStructure& s = *modelMap->structure;
    ORV::MATH::CQuaternion rotation;
    ORV::MATH::CVector3 translation;
    for (int i = 0; i < s.numNodes; ++i) {
        NodeMap& node = modelMap->nodes[static_cast<size_t>(i)];
        GetGlobalRotation(i, currentFrame, rotation, frameFraction);
        GetGlobalTranslation(i, currentFrame, translation, frameFraction);
        node.global.SetRotationFromQuaternion(rotation);
        node.global.SetTranslation(translation);
        node.global.SetScalingFromValues(1.0, 1.0, 1.0);
        // Parents come before their children in the structure.
        const int parent = s.nodes[i].Parent;
        if (parent >= 0)
            node.local = ORV::MATH::MapWorldPoseToObjectSpace(
                modelMap->nodes[static_cast<size_t>(parent)].global, node.global);
    }
    for (int p = 0; p < s.numPlanes; ++p)
        GetPlaneNormal(p, currentFrame, modelMap->planes[static_cast<size_t>(p)].normal, frameFraction);
}

void RetargetOp::GetGlobalTranslation(int node, int frame, ORV::MATH::CVector3& out, double fraction) {
    const long long record = static_cast<long long>(node) * numFrames + frame;
    double a[POSE_DOUBLES];
    readDoubles(poses, record * POSE_DOUBLES, a, 3);
    out.Set(a[0], a[1], a[2]);
    if (fraction > 0.0) {
        double b[POSE_DOUBLES];
        readDoubles(poses, (record + 1) * POSE_DOUBLES, b, 3);
        out.Set((1.0 - fraction) * a[0] + fraction * b[0], (1.0 - fraction) * a[1] + fraction * b[1],
                (1.0 - fraction) * a[2] + fraction * b[2]);
    }
}

void RetargetOp::GetGlobalRotation(int node, int frame, ORV::MATH::CQuaternion& out, double fraction) {
    const long long record = static_cast<long long>(node) * numFrames + frame;
    double a[4];
    readDoubles(poses, record * POSE_DOUBLES + 3, a, 4);
    out.Set(a[0], a[1], a[2], a[3]);
    if (fraction > 0.0) {
        double b[4];
        readDoubles(poses, (record + 1) * POSE_DOUBLES + 3, b, 4);
        const ORV::MATH::CQuaternion from(a[0], a[1], a[2], a[3]);
        out.Slerp(from, ORV::MATH::CQuaternion(b[0], b[1], b[2], b[3]), fraction);
    }
}

void RetargetOp::GetPlaneNormal(int plane, int frame, ORV::MATH::CVector3& out, double fraction) {
    const long long record = static_cast<long long>(plane) * numFrames + frame;
    double a[NORMAL_DOUBLES];
    readDoubles(normals, record * NORMAL_DOUBLES, a, NORMAL_DOUBLES);
    out.Set(a[0], a[1], a[2]);
    if (fraction > 0.0) {
        // Normals are never interpolated: the second sample is the current frame's own, and
        // the blend is kept unnormalised as it always was.
        double b[NORMAL_DOUBLES];
        const long long current = static_cast<long long>(plane) * numFrames + currentFrame;
        readDoubles(normals, current * NORMAL_DOUBLES, b, NORMAL_DOUBLES);
        out.Set((1.0 - fraction) * a[0] + fraction * b[0], (1.0 - fraction) * a[1] + fraction * b[1],
                (1.0 - fraction) * a[2] + fraction * b[2]);
    }
}

ORV::MATH::CVector3 RetargetOp::GetInterpollatedValue(ORV::MATH::CVector3* path) {
    if (!(frameFraction > 0.0)) return path[currentFrame];
    const double t = frameFraction;
    return path[currentFrame] * (1.0 - t) + path[currentFrame + 1] * t;
}

bool RetargetOp::containsNode(int node, int ancestor) {
    const ModelStructure& s = *modelMap->structure;
    // The climb is bounded by the node count, so a damaged parent list cannot loop.
    for (int steps = 0; node >= 0 && node < s.numNodes && steps <= s.numNodes; ++steps) {
        if (node == ancestor) return true;
        node = s.nodes[node].Parent;
    }
    return false;
}

// ---- The small operators' work ----------------------------------------------------------------

void RetargetOp::ApplyGlobalOpValue(ORV::KinematicState out, int constraint) {
    if (notReady) return;
    glueMap->applyMocapConstraint(out, constraint);
}

void RetargetOp::ApplyUpVectorOpValue(ORV::KinematicState out, int constraint) {
    if (notReady) return;
    // The roll is taken from the plane with the constraint's own number.
    const double roll = constraint >= 0 && constraint < static_cast<int>(modelMap->planes.size())
                            ? modelMap->planes[static_cast<size_t>(constraint)].roll
                            : 0.0;
    glueMap->applyPlaneConstraint(out, constraint, roll * DEG_TO_RAD);
}

void RetargetOp::updateDecomp(ORV::KinematicState in, ORV::KinematicState out, int source, int decomp) {
    if (notReady) return;
    glueMap->applyDecompConstraint(in, out, source, decomp);
}

void RetargetOp::updateSpine(ORV::KinematicState in, ORV::KinematicState out, int spine, int joint) {
    if (notReady) return;
    // The spine's index doubles as its semi-free node's index; the curve is laid once, on the
    // first joint.
    if (spine >= 0 && spine < static_cast<int>(semiFrees.size()) && joint == 0) {
        const SemiFree& semi = semiFrees[static_cast<size_t>(spine)];
        glueMap->updateSpineConstraint(in, out, spine, semi.anchorTangentLength, semi.goalTangentLength);
    }
    glueMap->applySpineConstraint(in, out, spine, joint);
}

// ---- Panel events -----------------------------------------------------------------------------

void RetargetOp::UpdateEntireRig() {
    ORV::Parameter ping = adjustProperty.GetParameter(L"Ping");
    if (!ping.IsValid()) return;
    const int value = static_cast<int>(ping.GetValue(NOW));
    ping.PutValue(ORV::CValue(value + 1));
}

void RetargetOp::AjustmentParameterChanged(ORV::Parameter param, ORV::CustomProperty& property, double time) {
    const ORV::CString name = param.GetScriptName();
    if (name == L"Ping") {
        UpdateEntireRig();
        return;
    }
    if (name == L"InsertionFrame") {
        if (setInsertionFrame(static_cast<int>(param.GetValue(time)))) UpdateEntireRig();
        return;
    }
    if (name == L"Speed") {
        // The first event caches the new speed; the retiming runs on a later one, which finds
        // the value unchanged.
        if (!CheckForSpeedValueChange()) RetimeAllFCurveKeys(time);
        return;
    }
    if (name == L"Scale" || name == L"Stride") {
        updateStride();
        UpdateEntireRig();
        return;
    }
    if (isOneOf(name, {L"offsetFeet", L"hipX", L"hipY", L"hipZ"})) {
        UpdateEntireRig();
        return;
    }

    // The limbs, by their goal's name anywhere in the parameter's name.
    const ModelStructure& s = *modelMap->structure;
    ORV::CString suffix;
    for (int p = 0; p < s.numPlanes; ++p) {
        const int goal = s.planes[p].Span;
        if (goal < 0 || goal >= s.numNodes || !suffixAfter(name, s.nodes[goal].Name, suffix)) continue;
        if (isOneOf(suffix, {L"Roll", L"Stretch", L"X", L"Y", L"Z"})) {
            UpdateEntireRig();
            return;
        }
        if (isOneOf(suffix, {L"Clamp", L"Frame", L"BlendBack"})) {
            updateClampKeys(p, time);
            UpdateEntireRig();
            return;
        }
        // A changed foot flag is only cached here; the stride is rebuilt when the event finds
        // it unchanged, and the walk goes on without asking for a rig update.
        if (suffix == L"Foot" && !CheckForFootValueChange(p)) updateStride();
    }

    // The adjustable free nodes; the last one that matches decides.
    bool changed = false;
    const int count = static_cast<int>(property.GetParameterValue(L"NumSemiFree", NOW));
    for (int i = 0; i < count; ++i) {
        const ORV::CString semiName =
            property
                .GetParameterValue(ORV::CString(L"semiName") + ORV::CString(std::to_wstring(i).c_str()), NOW)
                .GetAsText();
        if (!suffixAfter(name, semiName, suffix)) continue;
        if (suffix == L"offsetChildren")
            changed = testSemiFreeChildren(i);
        else if (suffix == L"AnchorTangentLength")
            changed = testSemiFreeAnchorTangent(i);
        else if (suffix == L"GoalTangentLength")
            changed = testSemiFreeGoalTangent(i);
        else
            changed = isOneOf(suffix, {L"X", L"Y", L"Z", L"RX", L"RY", L"RZ"});
    }
    if (changed) UpdateEntireRig();
}

void RetargetOp::RotationOffsetParameterChanged(ORV::CustomProperty& property) {
    const ORV::X3DObject object(property.GetParent());
    for (MocapConstraint& c : glueMap->mocaps) {
        if (!(c.object == object)) continue;
        if (!c.hasRotationOffsetProperty) {
            ORV::Property found;
            c.hasRotationOffsetProperty =
                Util::findCustomPSet(object, RotationOffsetPPG::PROPERTY_NAME, found);
            if (c.hasRotationOffsetProperty) c.rotationOffsetProperty = ORV::CustomProperty(found.GetRef());
        }
        UpdateEntireRig();
        return;
    }
}

bool RetargetOp::CheckForParamValueChangeAndUpdateCache(ORV::CustomProperty& property,
                                                        const ORV::CString& name, bool& cache,
                                                        double& changeTime) {
    const bool value = static_cast<bool>(property.GetParameterValue(name, currentTime));
    if (value == cache) return false;
    cache = value;
    changeTime = currentTime;
    return true;
}

bool RetargetOp::CheckForParamValueChangeAndUpdateCache(ORV::CustomProperty& property,
                                                        const ORV::CString& name, double& cache,
                                                        double& changeTime) {
    const double value = static_cast<double>(property.GetParameterValue(name, currentTime));
    if (value == cache) return false;
    cache = value;
    changeTime = currentTime;
    return true;
}

bool RetargetOp::CheckForParamValueChangeAndUpdateCache(ORV::CustomProperty& property,
                                                        const ORV::CString& name, short axis,
                                                        ORV::MATH::CVector3& cache, double& changeTime) {
    static const wchar_t* const AXES[3] = {L"X", L"Y", L"Z"};
    if (axis < 0 || axis > 2) return false;
    const double value = static_cast<double>(property.GetParameterValue(name + AXES[axis], currentTime));
    const double old = axis == 0 ? cache.GetX() : (axis == 1 ? cache.GetY() : cache.GetZ());
    if (value == old) return false;
    if (axis == 0)
        cache.PutX(value);
    else if (axis == 1)
        cache.PutY(value);
    else
        cache.PutZ(value);
    changeTime = currentTime;
    return true;
}

bool RetargetOp::CheckForFootValueChange(int plane) {
    ModelStructure& s = *modelMap->structure;
    if (plane < 0 || plane >= s.numPlanes) return false;
    ModelStructure::Node& goal = s.nodes[s.planes[plane].Span];
    double unused = 0.0;
    return CheckForParamValueChangeAndUpdateCache(adjustProperty, goal.Name + L"Foot", goal.Friction, unused);
}

bool RetargetOp::CheckForSpeedValueChange() {
    const double value = static_cast<double>(adjustProperty.GetParameterValue(L"Speed", NOW));
    if (value == speed) return false;
    previousSpeed = speed;
    speed = value;
    app.LogMessage(L"Speed has changed", 8);
    return true;
}

bool RetargetOp::testSemiFreeGoalTangent(int index) {
    if (index < 0 || index >= static_cast<int>(semiFrees.size())) return false;
    SemiFree& semi = semiFrees[static_cast<size_t>(index)];
    return CheckForParamValueChangeAndUpdateCache(adjustProperty, semi.name + L"GoalTangentLength",
                                                  semi.goalTangentLength, semi.changeTime);
}

bool RetargetOp::testSemiFreeAnchorTangent(int index) {
    if (index < 0 || index >= static_cast<int>(semiFrees.size())) return false;
    SemiFree& semi = semiFrees[static_cast<size_t>(index)];
    return CheckForParamValueChangeAndUpdateCache(adjustProperty, semi.name + L"AnchorTangentLength",
                                                  semi.anchorTangentLength, semi.changeTime);
}

bool RetargetOp::testSemiFreeChildren(int index) {
    if (index < 0 || index >= static_cast<int>(semiFrees.size())) return false;
    SemiFree& semi = semiFrees[static_cast<size_t>(index)];
    return CheckForParamValueChangeAndUpdateCache(adjustProperty, semi.name + L"offsetChildren",
                                                  semi.offsetChildren, semi.changeTime);
}

// ---- The main operator's first evaluation ------------------------------------------------------

namespace {

// Finds the model whose property is this very blob, and rebuilds the operator's maps from it.
void loadFromScene(RetargetOp& op, ORV::UserDataBlob& blob, double time) {
    RetargetOp::presynchronize(blob);
    const ORV::CString blobName = blob.GetName();
    ORV::CRefArray models = app.GetActiveSceneRoot().GetModels(true);
    for (long i = 0; i < models.GetCount(); ++i) {
        ORV::Model model(models[i]);
        ORV::Property property;
        if (!Util::findCustomPSet(model, blobName, property) || !(property == blob)) continue;
        ModelStructure* structure = ModelStructure::CreateFromCustomProperty(model);
        if (!structure) return;
        ModelMap* map = new ModelMap(model, structure);
        // The operator's map owns the structure rebuilt for it.
        map->ownsStructure = true;
        map->LoadFromCustomProperty();
        GlueMap* glue = GlueMap::CreateFromCustomProperty(model);
        if (!glue) {
            delete map;
            return;
        }
        glue->applyToModel(model, map);
        op.LoadMotionDataFromUDB(blob);
        if (!op.loaded) {
            delete glue;
            delete map;
            return;
        }
        op.PrepareDataForPlayback(map, glue, time);
        return;
    }
}

template <typename T>
T* userData(ORV::Context& ctxt) {
    return static_cast<T*>(static_cast<void*>(ctxt.GetUserData()));
}

// The live operator behind a small operator's blob input, or null while it must not run.
RetargetOp* liveOperator(ORV::OperatorContext& ctxt, long blobPort) {
    bool* first = userData<bool>(ctxt);
    if (!first) return nullptr;
    ORV::UserDataBlob blob(ctxt.GetInputValue(blobPort));
    // Each small operator sits out its first evaluation.
    if (*first) {
        *first = false;
        return nullptr;
    }
    if (!blob.IsValid()) return nullptr;
    return RetargetOp::GetRetargetOpPointer(blob);
}

ORV::CStatus initFlag(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ctxt.PutUserData(ORV::CValue(static_cast<void*>(new bool(true))));
    return ORV::CStatus::OK;
}

ORV::CStatus termFlag(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    delete userData<bool>(ctxt);
    ctxt.PutUserData(ORV::CValue(static_cast<void*>(nullptr)));
    return ORV::CStatus::OK;
}

}  // namespace

}  // namespace ZUK

// ---- Operator callbacks, found by the host by name ----------------------------------------------

extern "C" ORV::CStatus RetargetOp_Init(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ctxt.PutUserData(ORV::CValue(static_cast<void*>(new ZUK::RetargetOp)));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RetargetOp_Update(ORV::CRef& in_ctxt) {
    ORV::OperatorContext ctxt(in_ctxt);
    ZUK::RetargetOp* op = ZUK::userData<ZUK::RetargetOp>(ctxt);
    if (!op) return ORV::CStatus::OK;
    ORV::UserDataBlob blob(ctxt.GetInputValue(1));
    const double time = static_cast<double>(ctxt.GetTime());
    // The blob is where the poses are read from: without it nothing may run.
    if (!blob.IsValid()) return ORV::CStatus::OK;
    if (!op->loaded) ZUK::loadFromScene(*op, blob, time);
    if (op->loaded) op->update(time);
    // The model's own transform stays as the host has it.
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RetargetOp_Term(ORV::CRef& in_ctxt) {
    ORV::OperatorContext ctxt(in_ctxt);
    ZUK::RetargetOp* op = ZUK::userData<ZUK::RetargetOp>(ctxt);
    if (!op) return ORV::CStatus::OK;
    // The small operators find the operator through the blob: a slot still holding this address
    // is cleared, so that they stop instead of reaching a deleted object.
    ORV::UserDataBlob blob(ctxt.GetInputValue(1));
    if (blob.IsValid() && ZUK::RetargetOp::GetRetargetOpPointer(blob) == op)
        ZUK::RetargetOp::presynchronize(blob);
    delete op;
    ctxt.PutUserData(ORV::CValue(static_cast<void*>(nullptr)));
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RetargetGlobalOp_Init(ORV::CRef& in_ctxt) { return ZUK::initFlag(in_ctxt); }
extern "C" ORV::CStatus RetargetGlobalOp_Update(ORV::CRef& in_ctxt) {
    ORV::OperatorContext ctxt(in_ctxt);
    if (ZUK::RetargetOp* op = ZUK::liveOperator(ctxt, 2))
        op->ApplyGlobalOpValue(ORV::KinematicState(ctxt.GetOutputTarget()),
                               static_cast<int>(ctxt.GetInputValue(1)));
    return ORV::CStatus::OK;
}
extern "C" ORV::CStatus RetargetGlobalOp_Term(ORV::CRef& in_ctxt) { return ZUK::termFlag(in_ctxt); }

extern "C" ORV::CStatus RetargetUpVOp_Init(ORV::CRef& in_ctxt) { return ZUK::initFlag(in_ctxt); }
extern "C" ORV::CStatus RetargetUpVOp_Update(ORV::CRef& in_ctxt) {
    ORV::OperatorContext ctxt(in_ctxt);
    if (ZUK::RetargetOp* op = ZUK::liveOperator(ctxt, 2))
        op->ApplyUpVectorOpValue(ORV::KinematicState(ctxt.GetOutputTarget()),
                                 static_cast<int>(ctxt.GetInputValue(1)));
    return ORV::CStatus::OK;
}
extern "C" ORV::CStatus RetargetUpVOp_Term(ORV::CRef& in_ctxt) { return ZUK::termFlag(in_ctxt); }

extern "C" ORV::CStatus RetargetDecompOp_Init(ORV::CRef& in_ctxt) { return ZUK::initFlag(in_ctxt); }
extern "C" ORV::CStatus RetargetDecompOp_Update(ORV::CRef& in_ctxt) {
    ORV::OperatorContext ctxt(in_ctxt);
    if (ZUK::RetargetOp* op = ZUK::liveOperator(ctxt, 3))
        op->updateDecomp(ORV::KinematicState(ctxt.GetInputValue(0)),
                         ORV::KinematicState(ctxt.GetOutputTarget()), static_cast<int>(ctxt.GetInputValue(1)),
                         static_cast<int>(ctxt.GetInputValue(2)));
    return ORV::CStatus::OK;
}
extern "C" ORV::CStatus RetargetDecompOp_Term(ORV::CRef& in_ctxt) { return ZUK::termFlag(in_ctxt); }

extern "C" ORV::CStatus RetargetSpineOp_Init(ORV::CRef& in_ctxt) { return ZUK::initFlag(in_ctxt); }
extern "C" ORV::CStatus RetargetSpineOp_Update(ORV::CRef& in_ctxt) {
    ORV::OperatorContext ctxt(in_ctxt);
    if (ZUK::RetargetOp* op = ZUK::liveOperator(ctxt, 3))
        op->updateSpine(ORV::KinematicState(ctxt.GetInputValue(0)),
                        ORV::KinematicState(ctxt.GetOutputTarget()), static_cast<int>(ctxt.GetInputValue(1)),
                        static_cast<int>(ctxt.GetInputValue(2)));
    return ORV::CStatus::OK;
}
extern "C" ORV::CStatus RetargetSpineOp_Term(ORV::CRef& in_ctxt) { return ZUK::termFlag(in_ctxt); }
