// Motion transfer: a whole source (a normalised motion, a capture, or a rig in the scene) is
// copied frame by frame onto this map, recorded into a Motion buffer, foot-processed once and
// handed to the live operator. After that the operator plays the motion without the source.
#include "character/ModelStructure.h"
#include "live/Motion.h"
#include "live/RetargetOp.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

ORV::Application app;

ORV::ProgressBar showBar(long maximum, const wchar_t* caption) {
    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutMaximum(maximum);
    bar.PutStep(1);
    bar.PutValue(0);
    bar.PutCaption(caption);
    bar.PutVisible(true);
    return bar;
}

// The capture's frame count is its nodes': every reader gives all nodes the same count.
int captureFrameCount(const MocapData* mocap) {
    if (!mocap || mocap->nodeCount < 1 || !mocap->nodes) return 0;
    return mocap->nodes[0].frameCount;
}

// Records every frame of a source that holds its whole motion (file or capture), runs the foot
// passes and installs the operator.
void recordWholeSource(ModelMap& target, ModelMap& src, GlueMap& glue, int numFrames, int insertionFrame,
                       const wchar_t* caption) {
    ORV::ProgressBar bar = showBar(numFrames, caption);
    Motion motion(numFrames, &target, &src);
    for (int frame = 0; frame < numFrames; ++frame) {
        target.CopyPoseFromSrcModelMap(src, frame);
        motion.RecordPoseFromModelMap(frame);
        bar.Increment();
    }
    motion.ProcessFootMovement();
    RetargetOp::ApplyRetargetOp(glue, motion, insertionFrame);
    target.ResetSrcandTgtModelTransfomsToOriginal(src);
    Util::ForceGlobalEvaluationOnAllNodes(target);
    bar.PutVisible(false);
}

ORV::FCurve channelCurve(const ORV::KinematicState& local, const wchar_t* channel) {
    ORV::Parameter parameter = local.GetParameter(channel);
    if (!parameter.IsValid()) return ORV::FCurve();
    ORV::CRef source = parameter.GetSource();
    if (!source.IsA(ORV::ovFCurveID)) return ORV::FCurve();
    return ORV::FCurve(source);
}

// Appends the key times of one curve that fall in [start, end], relative to start, with the
// boundary values 0 and end - start where the curve enters or leaves the range.
void appendKeyTimes(const ORV::FCurve& curve, double start, double end, ORV::CDoubleArray& times) {
    const long numKeys = curve.GetNumKeys();
    double previous = 0.0;
    for (long j = 0; j < numKeys; ++j) {
        const double t = curve.GetKeyAtIndex(j).GetTime().GetTime();
        if (t >= start && t <= end) {
            // A curve that enters the range after its start gets a key at the start as well.
            if (t > start && (j == 0 || previous < start)) times.Add(0.0);
            times.Add(t - start);
        } else if (j > 0 && previous < end) {
            // The closing value. A curve with several keys before the range adds it once per
            // such key; plotting merges equal times, so the repeats are kept as they come.
            times.Add(end - start);
        }
        previous = t;
    }
}

}  // namespace

bool ModelMap::TransferNormMotion(ModelMap& src, GlueMap& glue, int startFrame) {
    if (!src.motion || !BuildRelationshipsWithSrcModelMap(src, glue)) return false;
    recordWholeSource(*this, src, glue, src.numFrames, startFrame, L"Processing TROVO Data ...");
    return true;
}

bool ModelMap::TransferMocapMotion(ModelMap& src, GlueMap& glue) {
    if (!src.mocap || !BuildRelationshipsWithSrcModelMap(src, glue)) return false;
    // Capture frame f plays at scene frame 1 + f.
    recordWholeSource(*this, src, glue, captureFrameCount(src.mocap), 1, L"Processing Mocap Data ...");
    return true;
}

bool ModelMap::TransferRigToRigMotion(ModelMap& src, GlueMap& glue, int startFrame, int endFrame) {
    // 1. Any map may be the source: the relationship alone decides.
    if (!BuildRelationshipsWithSrcModelMap(src, glue)) return false;

    // 2.-3. The motion holds one frame fewer than the range [startFrame, endFrame] names: the
    // caller passes one past its last frame, and the loop stops below it.
    const int count = endFrame - startFrame;
    ORV::ProgressBar bar = showBar(count, L"Processing FCurves ...");
    Motion motion(count, this, &src);

    // 4. The user's current frame comes back after the walk.
    ORV::Property playControl(app.GetActiveProject().GetProperties().GetItem(L"Play Control"));
    const ORV::CValue kept = playControl.GetParameterValue(L"Current");

    // 5. The source is a live rig: the host evaluates it at each frame.
    for (int i = 0; startFrame + i < endFrame; ++i) {
        bar.Increment();
        playControl.PutParameterValue(L"Current", ORV::CValue(startFrame + i));
        Util::ForceGlobalEvaluationOnAllNodes(src);
        CopyPoseFromSrcModelMap(src, startFrame + i);
        motion.RecordPoseFromModelMap(i);
    }

    // 6.
    playControl.PutParameterValue(L"Current", kept);
    Util::ForceGlobalEvaluationOnAllNodes(src);

    // 7.-9. The key times land on the motion's source map, which is src, where the blob writer
    // looks for them.
    motion.ProcessFootMovement();
    ExtractSourceKeyTimingFromKinematicsParameters(src, motion.sourceMap, startFrame, endFrame - 1);
    RetargetOp::ApplyRetargetOp(glue, motion, startFrame);

    // 10. Both models stay where the relationship put them; nothing resets them here.
    Util::ForceGlobalEvaluationOnAllNodes(*this);
    bar.PutVisible(false);
    return true;
}

void ModelMap::ExtractSourceKeyTimingFromKinematicsParameters(ModelMap& src, ModelMap* dest, int startFrame,
                                                              int endFrame) {
    if (!dest) return;
    delete[] dest->keyTiming;
    dest->keyTiming = nullptr;
    dest->numKeyTiming = 0;

    // 1. The count is of animated channels, while the entries below are one per node: the
    // entries past the last animated node stay empty.
    int total = 0;
    for (const NodeMap& node : src.nodes) {
        if (!node.object.IsValid()) continue;
        const ORV::KinematicState local = node.object.GetKinematics().GetLocal();
        for (const wchar_t* channel : NodeKeyTiming::CHANNEL_NAMES) {
            ORV::Parameter parameter = local.GetParameter(channel);
            if (parameter.IsValid() && parameter.IsAnimated(ORV::ovFCurveSource)) ++total;
        }
    }
    if (total < 1) return;

    // 2.
    dest->keyTiming = new NodeKeyTiming[static_cast<size_t>(total)];
    dest->numKeyTiming = total;

    // 3.-4.
    const double start = startFrame;
    const double end = endFrame;
    int k = 0;
    const int numNodes = static_cast<int>(src.nodes.size());
    for (int n = 0; n < numNodes && k < total; ++n) {
        const NodeMap& node = src.nodes[n];
        if (!node.object.IsValid()) continue;
        const ORV::KinematicState local = node.object.GetKinematics().GetLocal();
        NodeKeyTiming& entry = dest->keyTiming[k];
        bool anyCurve = false;
        for (int c = 0; c < NodeKeyTiming::NUM_CHANNELS; ++c) {
            if (c == 0) entry.name = src.structure->nodes[n].Name;
            const ORV::FCurve curve = channelCurve(local, NodeKeyTiming::CHANNEL_NAMES[c]);
            if (!curve.IsValid()) continue;
            anyCurve = true;
            appendKeyTimes(curve, start, end, entry.times[c]);
        }
        if (anyCurve) ++k;
    }
}

}  // namespace ZUK
