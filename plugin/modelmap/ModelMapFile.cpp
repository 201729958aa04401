// The normalised motion text file ("NormMotion5.0"): a rig's motion written once, per frame
// and per structure node, with the rig's own proportions and axis conventions taken out, and
// the source animator's key times; read back into a motion map that loads on any rig of the
// same structure. Also the steps both file forms share.
#include <sys/stat.h>

#include <cstdio>
#include <memory>

#include "character/ModelStructure.h"
#include "core/InputStream.h"
#include "core/OutputStream.h"
#include "core/XMLFileStream.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapFileSteps.h"
#include "panels/AdjustPPG.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

ORV::Application app;

// A limb shorter than this share of its measured reach counts as bent.
const double STRAIGHT_SHARE = 0.99;

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

const ModelStructure::Plane& planeOf(const ModelMap& map, int p) { return map.structure->planes[p]; }

bool nodeInRange(const ModelMap& map, int node) {
    return node >= 0 && node < static_cast<int>(map.nodes.size());
}

// The limb's path length through its bones, from the working poses.
double limbPathLength(const ModelMap& map, int p) {
    const ORV::CLongArray& bones = planeOf(map, p).bones;
    double sum = 0.0;
    for (long k = 1; k < bones.GetCount(); ++k) {
        const int a = static_cast<int>(bones[k - 1]);
        const int b = static_cast<int>(bones[k]);
        if (!nodeInRange(map, a) || !nodeInRange(map, b)) continue;
        sum += (map.nodes[a].global.GetTranslation() - map.nodes[b].global.GetTranslation()).GetLength();
    }
    return sum;
}

// Span position less anchor position.
CVector3 limbVector(const ModelMap& map, int p) {
    const ModelStructure::Plane& plane = planeOf(map, p);
    if (!nodeInRange(map, plane.Span) || !nodeInRange(map, plane.AnchorIndex)) return CVector3();
    return map.nodes[plane.Span].global.GetTranslation() -
           map.nodes[plane.AnchorIndex].global.GetTranslation();
}

// Whether the limb is shorter than its reach: bent further than when it was measured. A limb of
// no length at all has no direction to straighten along.
bool limbBent(const ModelMap& map, int p, double sum) {
    const int span = planeOf(map, p).Span;
    if (!nodeInRange(map, span) || sum <= 0.0) return false;
    return STRAIGHT_SHARE * map.nodes[span].length > sum;
}

// A foot on the ground that follows the root through plain bones.
bool groundedSpan(ModelMap& map, int span) {
    return nodeInRange(map, span) && map.structure->nodes[span].Friction &&
           ModelMap::InheritsTranslationFromCOG(&map, span);
}

void putCurrent(ORV::Property& playControl, const ORV::CValue& value, ModelMap& map) {
    playControl.PutParameterValue(L"Current", value);
    Util::ForceGlobalEvaluationOnAllNodes(map);
}

}  // namespace

namespace motionfile {

void runFramePasses(ModelMap& map, int startFrame, int endFrame, ORV::ProgressBar& bar,
                    const std::function<void(int)>& writeFrame) {
    const int numPlanes = static_cast<int>(map.planes.size());
    const int numNodes = static_cast<int>(map.nodes.size());
    ORV::Property playControl(app.GetActiveProject().GetProperties().GetItem(L"Play Control"));
    const ORV::CValue kept = playControl.GetParameterValue(L"Current");
    const bool measured = hasProperty(map, ModelMap::PROPERTY_NAME);

    // Stretch scan: the frame in which an anchor stands highest above its foot decides how far
    // the body must rise for that leg to be fully extended at the same point.
    double hipLift = 0.0;
    if (measured) {
        double best = 0.0;
        for (int frame = startFrame; frame <= endFrame; ++frame) {
            putCurrent(playControl, ORV::CValue(frame), map);
            map.CopyTransformsToNodeMap(frame, true);
            for (int p = 0; p < numPlanes; ++p) {
                const double sum = limbPathLength(map, p);
                const CVector3 d = limbVector(map, p);
                const double h = -d.GetY();
                const int span = planeOf(map, p).Span;
                double h2 = 0.0;
                if (limbBent(map, p, sum) && groundedSpan(map, span))
                    h2 = -(d.GetY() * STRAIGHT_SHARE * map.nodes[span].length / sum);
                if (h > best) {
                    best = h;
                    hipLift = 0.0;
                    if (h2 > h) hipLift = h2 - h;
                }
            }
            bar.Increment();
        }
    }

    // Nodes that stay where they are: grounded feet and everything below them.
    for (int frame = startFrame; frame <= endFrame; ++frame) {
        putCurrent(playControl, ORV::CValue(frame), map);
        map.CopyTransformsToNodeMap(frame, true);
        map.addRotationOffsets(true);
        if (measured) {
            for (int p = 0; p < numPlanes; ++p) {
                const double sum = limbPathLength(map, p);
                if (!limbBent(map, p, sum)) continue;
                const ModelStructure::Plane& plane = planeOf(map, p);
                if (groundedSpan(map, plane.Span)) continue;
                const CVector3 d = limbVector(map, p);
                const CVector3 anchor = map.nodes[plane.AnchorIndex].global.GetTranslation();
                map.nodes[plane.Span].global.SetTranslation(anchor +
                                                            d * (map.nodes[plane.Span].length / sum));
            }
            for (int i = 0; i < numNodes; ++i) {
                bool onGround = false;
                for (int p = 0; p < numPlanes && !onGround; ++p) {
                    const int span = planeOf(map, p).Span;
                    onGround = groundedSpan(map, span) && map.containedByNode(i, span);
                }
                if (onGround) continue;
                CVector3 t = map.nodes[i].global.GetTranslation();
                t.PutY(t.GetY() + hipLift);
                map.nodes[i].global.SetTranslation(t);
            }
        }
        writeFrame(frame);
        bar.Increment();
    }

    putCurrent(playControl, kept, map);
}

ORV::X3DObject upVectorOf(const ORV::X3DObject& bone) {
    if (!bone.IsValid() || !bone.IsA(ORV::ovChainBoneID)) return ORV::X3DObject();
    return ORV::ChainBone(bone.GetRef()).GetJoint().GetUpVectorReference();
}

int countKeyTimingObjects(ModelMap& map) {
    int count = 0;
    for (NodeMap& node : map.nodes)
        if (node.object.IsValid()) map.enumerateFCurveSource(node.object, count);
    for (int p = 0; p < static_cast<int>(map.planes.size()); ++p) {
        const ModelStructure::Plane& plane = planeOf(map, p);
        if (!nodeInRange(map, plane.Mid) || !nodeInRange(map, plane.AnchorIndex)) continue;
        const ORV::X3DObject& mid = map.nodes[plane.Mid].object;
        if (!mid.IsValid() || !mid.IsA(ORV::ovChainBoneID)) continue;
        // The count looks at the middle bone, the store at the anchor bone; a limb where only
        // one of them is a chain bone makes them differ, and the readers take that.
        ORV::X3DObject up = upVectorOf(map.nodes[plane.AnchorIndex].object);
        if (up.IsValid()) map.enumerateFCurveSource(up, count);
    }
    return count;
}

ORV::FCurve channelCurve(const ORV::X3DObject& object, const wchar_t* channel) {
    ORV::Parameter parameter = object.GetKinematics().GetLocal().GetParameter(channel);
    if (!parameter.IsValid()) return ORV::FCurve();
    return ORV::FCurve(parameter.GetSource());
}

bool hasProperty(const ORV::X3DObject& model, const ORV::CString& name) {
    ORV::Property property;
    return Util::findCustomPSet(model, name, property);
}

long long fileSize(const ORV::CString& path) {
    struct stat info;
    if (path.IsEmpty() || stat(path.GetAsciiString(), &info) != 0) return 0;
    return static_cast<long long>(info.st_size);
}

bool plausibleCount(long long count, long long bytes) { return count >= 0 && count <= bytes; }

bool plausibleCounts(int frames, int numNodes, int numPlanes, long long bytes) {
    return plausibleCount(frames, bytes) && plausibleCount(numNodes, bytes) &&
           plausibleCount(numPlanes, bytes) &&
           plausibleCount(static_cast<long long>(frames) * numNodes, bytes);
}

void startMotionMap(ModelMap& map, int numNodes, int numPlanes, const ORV::CString& type, int frames,
                    double legLength, double hipOffset) {
    delete[] map.motion;
    map.motion = nullptr;
    delete[] map.keyTiming;
    map.keyTiming = nullptr;
    map.numKeyTiming = 0;
    if (map.ownsStructure) delete map.structure;
    map.structure = new ModelStructure(numNodes, numPlanes, type);
    map.ownsStructure = true;
    map.nodes = std::vector<NodeMap>(static_cast<size_t>(numNodes));
    map.planes = std::vector<PlaneMap>(static_cast<size_t>(numPlanes));
    map.numFrames = frames;
    map.legLength = legLength;
    map.hipOffset = hipOffset;
}

}  // namespace motionfile

// ---- Small helpers --------------------------------------------------------------------------

bool ModelMap::validParamName(const ORV::CString& name) {
    for (const wchar_t* channel : NodeKeyTiming::CHANNEL_NAMES)
        if (name == channel) return true;
    return false;
}

bool ModelMap::containedByNode(int node, int ancestor) {
    const int numNodes = structure ? structure->numNodes : 0;
    // Bounded: a spliced hierarchy must not loop the climb.
    for (int steps = 0; node >= 0 && node < numNodes && steps <= numNodes; ++steps) {
        if (node == ancestor) return true;
        node = structure->nodes[node].Parent;
    }
    return false;
}

void ModelMap::enumerateFCurveSource(ORV::X3DObject object, int& count) {
    if (!object.IsValid() || !(Util::getMasterNode(object) == object)) return;
    ORV::KinematicState local = object.GetKinematics().GetLocal();
    for (const wchar_t* channel : NodeKeyTiming::CHANNEL_NAMES) {
        if (local.GetParameter(channel).IsAnimated(ORV::ovFCurveSource)) {
            ++count;
            return;
        }
    }
}

// ---- Writer ---------------------------------------------------------------------------------

bool ModelMap::saveToFile(const ORV::CString& path, int startFrame, int endFrame) {
    if (mocap || motion || !structure) {
        app.LogMessage(L"Normalized motion must originate from a rig.", 4);
        return false;
    }
    OutputStream stream(path);
    if (!stream.file) return false;

    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutMaximum(2 * (endFrame - startFrame));
    bar.PutStep(1);
    bar.PutCaption(L"Saving Normalized Data ...");
    bar.PutVisible(true);

    const int numNodes = static_cast<int>(nodes.size());
    const int numPlanes = static_cast<int>(planes.size());
    stream << ORV::CString(NORM_MOTION) << '\n';
    stream << (endFrame - startFrame + 1) << '\n';
    stream << legLength << '\n';
    stream << hipOffset << '\n';
    stream << numNodes << numPlanes << structure->Type << '\n';
    for (int i = 0; i < numNodes; ++i) {
        stream << ORV::CString(nodes[i].object.IsValid() ? L"v " : L"i ");
        stream << structure->nodes[i].Name << ' ' << nodes[i].length << '\n';
    }
    for (int p = 0; p < numPlanes; ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        stream << plane.Name << '\n';
        stream << plane.Span << plane.Mid << plane.AnchorIndex << static_cast<int>(plane.bones.GetCount())
               << '\n';
        for (long k = 0; k < plane.bones.GetCount(); ++k) stream << static_cast<int>(plane.bones[k]) << '\n';
    }

    motionfile::runFramePasses(*this, startFrame, endFrame, bar, [&](int) {
        for (int i = 0; i < numNodes; ++i) stream << nodes[i].global;
        stream << '\n';
    });

    // Key timing. A retargeted model's curves are not its own animator's.
    if (motionfile::hasProperty(*this, AdjustPPG::PROPERTY_NAME)) {
        stream << 0 << '\n';
    } else {
        stream << motionfile::countKeyTimingObjects(*this) << '\n';
        for (int i = 0; i < numNodes; ++i)
            if (nodes[i].object.IsValid())
                storeKeyTiming(nodes[i].object, structure->nodes[i].Name, stream, startFrame, endFrame);
        for (int p = 0; p < numPlanes; ++p) {
            const int anchor = structure->planes[p].AnchorIndex;
            if (anchor < 0 || anchor >= numNodes) continue;
            ORV::X3DObject up = motionfile::upVectorOf(nodes[anchor].object);
            if (up.IsValid())
                storeKeyTiming(up, structure->planes[p].Name + ORV::CString(UPVECTORTAG), stream, startFrame,
                               endFrame);
        }
    }
    bar.PutVisible(false);
    return true;
}

void ModelMap::storeKeyTiming(ORV::X3DObject object, ORV::CString name, OutputStream& stream, int startFrame,
                              int endFrame) {
    if (!(Util::getMasterNode(object) == object)) return;
    const double start = startFrame;
    const double end = endFrame;
    bool named = false;
    for (const wchar_t* channel : NodeKeyTiming::CHANNEL_NAMES) {
        ORV::FCurve curve = motionfile::channelCurve(object, channel);
        if (!curve.IsValid()) continue;
        if (!named) {
            stream << name << '\n';
            named = true;
        }
        const long numKeys = curve.GetNumKeys();
        auto timeOf = [&](long j) { return curve.GetKeyAtIndex(j).GetTime().GetTime(); };
        auto leadingZero = [&](long j, double t) { return t > start && (j == 0 || timeOf(j - 1) < start); };

        // Count pass, up to the first key outside the range.
        int count = 0;
        long stop = numKeys;
        for (long j = 0; j < numKeys; ++j) {
            const double t = timeOf(j);
            if (t < start || t > end) {
                stop = j;
                break;
            }
            count += leadingZero(j, t) ? 2 : 1;
        }
        const bool closing = stop < numKeys && stop > 0 && timeOf(stop - 1) < end;
        if (closing) ++count;

        stream << ORV::CString(channel) << ' ' << count << '\n';
        // The values stop where the count stopped, so that the reader, which trusts the
        // count, stays in step with the file.
        for (long j = 0; j < stop; ++j) {
            const double t = timeOf(j);
            if (leadingZero(j, t)) stream << 0;
            stream << t - start;
        }
        if (closing) stream << endFrame - startFrame;
        stream << '\n';
    }
}

// ---- Reader ---------------------------------------------------------------------------------

bool ModelMap::CreateFromFile(const ORV::CString& path) {
    InputStream stream(path);
    if (!stream.buffer) return false;

    ORV::CString token;
    stream >> token;
    if (token != NORM_MOTION) {
        app.LogMessage(token, 8);
        app.LogMessage(L"Can't parse the Trovo file.", 4);
        return false;
    }

    int frameCount = 0, numNodes = 0, numPlanes = 0;
    double legs = 0.0, hips = 0.0;
    ORV::CString type;
    stream >> frameCount >> legs >> hips >> numNodes >> numPlanes >> type;

    // Counts the file cannot hold would only allocate memory that nothing fills.
    const long long bytes = motionfile::fileSize(path);
    if (!motionfile::plausibleCounts(frameCount, numNodes, numPlanes, bytes)) {
        app.LogMessage(L"The Trovo file announces more frames, nodes or limbs than it holds.", 8);
        app.LogMessage(L"Can't parse the Trovo file.", 4);
        return false;
    }

    // A map from the default constructor is expected; anything it held is dropped.
    motionfile::startMotionMap(*this, numNodes, numPlanes, type, frameCount, legs, hips);

    for (int i = 0; i < numNodes; ++i) {
        ORV::CString validity;
        stream >> validity >> structure->nodes[i].Name >> nodes[i].length;
        structure->nodes[i].objIsValid = validity == L"v";
    }
    for (int p = 0; p < numPlanes; ++p) {
        ModelStructure::Plane& plane = structure->planes[p];
        int count = 0;
        stream >> plane.Name >> plane.Span >> plane.Mid >> plane.AnchorIndex >> count;
        for (int k = 0; k < count && !stream.atEnd(); ++k) {
            int bone = 0;
            stream >> bone;
            plane.bones.Add(bone);
        }
    }

    const long total = static_cast<long>(numFrames) * numNodes;
    motion = new CTransformation[static_cast<size_t>(total)];
    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutMaximum(numFrames);
    bar.PutStep(1);
    bar.PutCaption(L"Parsing Trovo File ...");
    bar.PutVisible(true);
    for (int f = 0; f < numFrames; ++f) {
        for (int n = 0; n < numNodes; ++n) stream >> motion[static_cast<long>(f) * numNodes + n];
        bar.Increment();
    }
    bar.PutVisible(false);

    int entries = 0;
    stream >> entries;
    if (entries >= 1 && motionfile::plausibleCount(entries, bytes)) {
        numKeyTiming = entries;
        keyTiming = new NodeKeyTiming[static_cast<size_t>(entries)];
        for (int k = 0; k < entries; ++k) {
            stream >> keyTiming[k].name;
            ORV::CString channel;
            stream >> channel;
            // Not a channel: the timing ends here.
            if (!validParamName(channel)) break;
            while (validParamName(channel)) {
                int c = 0;
                while (channel != NodeKeyTiming::CHANNEL_NAMES[c]) ++c;
                int count = 0;
                stream >> count;
                for (int v = 0; v < count && !stream.atEnd(); ++v) {
                    double time = 0.0;
                    stream >> time;
                    keyTiming[k].times[c].Add(time);
                }
                channel = ORV::CString();
                stream >> channel;
            }
            // The token that ended the channels is the next entry's name.
            stream.resetToPrev();
        }
    }
    return true;
}

ModelMap* ModelMap::CreateMotionMapFromFile(const ORV::CString& path) {
    std::unique_ptr<ModelMap> map(new ModelMap());
    const bool read =
        XMLFileStream::IsXMLFile(path) ? map->loadMotionFromXMLFile(path) : map->CreateFromFile(path);
    // A text file the stream could not open leaves no motion behind.
    if (!read || !map->motion) return nullptr;
    return map.release();
}

}  // namespace ZUK
