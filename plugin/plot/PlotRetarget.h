// ZUK::PlotRetarget: bakes the live retarget result of a model to animation curves and removes
// the operators.
//
// The scene is played frame by frame over [start, end); the pose that the operators give each
// driven object is kept as a local transform relative to the object's neutral pose, and then
// written channel by channel into function curves on the objects' local kinematics: one linear
// key per frame for a raw plot, otherwise Bezier keys at the frames the key modes ask for.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class GlueMap;
class ModelMap;
class ModelStructure;
class RetargetOp;
class DecompMap;

// A frames x items matrix of local transforms, item-major.
class PlotData {
public:
    PlotData(int frames, int items);
    ~PlotData();
    PlotData(const PlotData&) = delete;
    PlotData& operator=(const PlotData&) = delete;

    ORV::MATH::CTransformation& local(int item, int frame) { return data[item * frames + frame]; }

    int frames = 0;
    int items = 0;
    // Owned, frames*items entries.
    ORV::MATH::CTransformation* data = nullptr;
};

class PlotRetarget {
public:
    // The channels of a MocapConstraint: its kind.
    enum DofType { ROTATION_AND_POSITION = 0, POSITION_ONLY = 1, ROTATION_ONLY = 2 };

    // Plots frames [start, end) of `model`. `preserve` keeps the source's key timing,
    // `inflection` keys peaks, valleys and inflection points, `interval` keys every `step` frames.
    // Rebuilds the model's structure, map and glue from its properties and finds its live
    // operator, if any.
    PlotRetarget(ORV::Model model, bool preserve, bool inflection, bool interval, int step, int start,
                 int end);
    ~PlotRetarget();
    PlotRetarget(const PlotRetarget&) = delete;
    PlotRetarget& operator=(const PlotRetarget&) = delete;

    // Does the whole plot: locals, curves, then the operators, the panel property and the blob
    // go. A model that cannot be plotted is reported and left as it was.
    void plot();

    // Plays the range and stores every driven object's pose. In sparse mode a limb's goal keeps
    // its global pose (and the planted test runs on it) and its anchor keeps the plane normal.
    void extractLocal(ORV::ProgressBar bar, bool sparse);
    // Sparse mode only: re-solves each limb from its goal and stores the bones' poses.
    void extractEndEffectorLocal();
    void fitMocapValues(int item, ORV::CString name, DofType dof, ORV::X3DObject object, ORV::ProgressBar bar,
                        int plane);
    void fitUpVValues(int item, ORV::CString name, ORV::X3DObject object, ORV::ProgressBar bar);
    void fitSpineValues(int item, ORV::X3DObject object, ORV::ProgressBar bar);
    void fitDecompValues(int item, ORV::CString name, const DecompMap& decomp, ORV::ProgressBar bar);
    // One channel of F values onto the object's local kinematics, keyed by the key modes.
    void fitFCurve(ORV::X3DObject object, ORV::CString nodeName, ORV::CValueArray& values,
                   ORV::CString channel, int plane);
    // One linear key per frame.
    void fitRaw(ORV::X3DObject object, ORV::CValueArray& values, ORV::CString channel);

    int start;
    int end;
    bool preserve;
    bool inflection;
    bool interval;
    int step;
    ORV::Model model;
    // Owned; rebuilt from the model. Null when the model has no retarget setup.
    GlueMap* glue = nullptr;
    ModelMap* map = nullptr;
    ModelStructure* structure = nullptr;
    // Owned: one item per MocapConstraint with a valid object, per PlaneConstraint, per spine
    // segment (all spines in order), per decomposition (all constraints in order).
    PlotData* nodeData = nullptr;
    PlotData* upVectorData = nullptr;
    PlotData* spineData = nullptr;
    PlotData* decompData = nullptr;
    // The live operator of the model; not owned, may be null.
    RetargetOp* op = nullptr;
    // Owned, (end-start)*planes bytes: per plane and frame, whether the limb's goal stands
    // still; indexed plane*F + frame-start.
    unsigned char* planted = nullptr;

private:
    int frameCount() const { return end > start ? end - start : 0; }
    // The plane whose limb holds the constraint's object, or -1.
    int limbPlane(int constraint) const;
    // The space in which local curves hold an object's pose: its neutral pose under its parent.
    static ORV::MATH::CTransformation baseOf(const ORV::MATH::CTransformation& neutral,
                                             const ORV::MATH::CTransformation& parentGlobal);
    // Scratch of F entries, reused by every channel.
    double* scratchValues = nullptr;
    bool* scratchFlags = nullptr;
    ORV::CValueArray rotx, roty, rotz, posx, posy, posz;
};

}  // namespace ZUK
