// The normalised motion XML file: the same content as the text form, in a document under the
// root that XMLFileStream makes. Numbers are the host's text of the value; transforms use the
// stream's axis-angle attribute form.
#include <memory>

#include "character/ModelStructure.h"
#include "core/XMLFileStream.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapFileSteps.h"
#include "panels/AdjustPPG.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

ORV::Application app;

using ORV::MATH::CTransformation;

const wchar_t* const FILE_COMMENT = L"TROVO file Saved out from Orvane using TROVO";

ORV::CString text(int value) { return ORV::CValue(value).GetAsText(); }
ORV::CString text(double value) { return ORV::CValue(value).GetAsText(); }
ORV::CString text(bool value) { return ORV::CValue(value).GetAsText(); }

int toInt(const ORV::CString& value) { return static_cast<int>(ORV::CValue(value)); }
double toDouble(const ORV::CString& value) { return static_cast<double>(ORV::CValue(value)); }

// A header value; an absent element reads as "0" (and the stream records the miss).
ORV::CString headerValue(XMLFileStream& stream, xercesc::DOMElement* header, const wchar_t* name) {
    ORV::CString value(L"0");
    stream.readElementValue(header, name, value);
    return value;
}

// An attribute that leaves `out` as it was when missing.
void readInt(XMLFileStream& stream, xercesc::DOMElement* element, const wchar_t* name, int& out) {
    ORV::CString value;
    if (stream.GetAttributeValue(element, name, value)) out = toInt(value);
}

void readDouble(XMLFileStream& stream, xercesc::DOMElement* element, const wchar_t* name, double& out) {
    ORV::CString value;
    if (stream.GetAttributeValue(element, name, value)) out = toDouble(value);
}

}  // namespace

// ---- Writer ---------------------------------------------------------------------------------

bool ModelMap::saveMotionToXMLFile(const ORV::CString& path, int startFrame, int endFrame) {
    if (mocap || motion || !structure) {
        app.LogMessage(L"Normalized motion must originate from a rig.", 4);
        return false;
    }
    XMLFileStream stream(path, false, true);
    xercesc::DOMElement* root = stream.GetRootElement();
    if (!stream.ok || !root) return false;

    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutMaximum(2 * (endFrame - startFrame));
    bar.PutStep(1);
    bar.PutCaption(L"Saving Normalized Data ...");
    bar.PutVisible(true);

    const int numNodes = static_cast<int>(nodes.size());
    const int numPlanes = static_cast<int>(planes.size());

    xercesc::DOMElement* header = stream.WriteElement(root, L"HEADER");
    stream.WriteComment(header, FILE_COMMENT);
    stream.WriteElement(header, L"VERSION", app.GetVersion());
    stream.WriteElement(header, L"AnimationLength", text(endFrame - startFrame + 1));
    stream.WriteElement(header, L"legLength", text(legLength));
    stream.WriteElement(header, L"hipOffset", text(hipOffset));
    stream.WriteElement(header, L"numNodes", text(numNodes));
    stream.WriteElement(header, L"numPlanes", text(numPlanes));
    stream.WriteElement(header, L"structure_type", structure->Type);

    xercesc::DOMElement* nodesElement = stream.WriteElement(root, L"NODES");
    for (int i = 0; i < numNodes; ++i) {
        xercesc::DOMElement* node = stream.WriteElement(nodesElement, L"NODE");
        stream.SetAttributeValue(node, L"obj_IsValid", text(nodes[i].object.IsValid()));
        stream.SetAttributeValue(node, L"name", structure->nodes[i].Name);
        stream.SetAttributeValue(node, L"length", text(nodes[i].length));
    }

    xercesc::DOMElement* planesElement = stream.WriteElement(root, L"PLANES");
    for (int p = 0; p < numPlanes; ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        xercesc::DOMElement* element = stream.WriteElement(planesElement, L"PLANE");
        stream.SetAttributeValue(element, L"name", plane.Name);
        stream.SetAttributeValue(element, L"span", text(plane.Span));
        stream.SetAttributeValue(element, L"mid", text(plane.Mid));
        stream.SetAttributeValue(element, L"anchor_index", text(plane.AnchorIndex));
        stream.SetAttributeValue(element, L"numbones", text(static_cast<int>(plane.bones.GetCount())));
        for (long k = 0; k < plane.bones.GetCount(); ++k)
            stream.WriteElement(element, L"Bone", L"boneindex", text(static_cast<int>(plane.bones[k])));
    }

    // Object names are looked up once, not per frame.
    std::vector<ORV::CString> objectNames(static_cast<size_t>(numNodes));
    for (int i = 0; i < numNodes; ++i)
        if (nodes[i].object.IsValid()) objectNames[i] = nodes[i].object.GetName();

    xercesc::DOMElement* poses = stream.WriteElement(root, L"POSE_VALUES");
    motionfile::runFramePasses(*this, startFrame, endFrame, bar, [&](int frame) {
        xercesc::DOMElement* pose = stream.WriteElement(poses, L"POSE", L"time", text(frame));
        for (int i = 0; i < numNodes; ++i) {
            xercesc::DOMElement* node = stream.WriteElement(pose, L"NODE");
            stream.SetAttributeValue(node, L"name", objectNames[i]);
            stream.SetAttributeValue(node, L"global", nodes[i].global);
            stream.SetAttributeValue(node, L"id", text(i));
        }
    });

    xercesc::DOMElement* keys = stream.WriteElement(root, L"FCURVE_KEYS");
    // A retargeted model's curves are not its own animator's.
    if (motionfile::hasProperty(*this, AdjustPPG::PROPERTY_NAME)) {
        stream.SetAttributeValue(keys, L"num_nodes_with_fcurve_keys", text(0));
    } else {
        stream.SetAttributeValue(keys, L"num_nodes_with_fcurve_keys",
                                 text(motionfile::countKeyTimingObjects(*this)));
        for (int i = 0; i < numNodes; ++i)
            if (nodes[i].object.IsValid())
                storeXMLKeyTiming(nodes[i].object, structure->nodes[i].Name, stream, keys, startFrame,
                                  endFrame);
        for (int p = 0; p < numPlanes; ++p) {
            const int anchor = structure->planes[p].AnchorIndex;
            if (anchor < 0 || anchor >= numNodes) continue;
            ORV::X3DObject up = motionfile::upVectorOf(nodes[anchor].object);
            if (up.IsValid())
                storeXMLKeyTiming(up, structure->planes[p].Name + ORV::CString(UPVECTORTAG), stream, keys,
                                  startFrame, endFrame);
        }
    }
    bar.PutVisible(false);
    return true;
}

void ModelMap::storeXMLKeyTiming(ORV::X3DObject object, ORV::CString name, XMLFileStream& stream,
                                 xercesc::DOMElement* parent, int startFrame, int endFrame) {
    if (!(Util::getMasterNode(object) == object)) return;
    xercesc::DOMElement* node = stream.WriteElement(parent, L"NODE", L"name", name);
    const double start = startFrame;
    const double end = endFrame;
    for (const wchar_t* channel : NodeKeyTiming::CHANNEL_NAMES) {
        ORV::FCurve curve = motionfile::channelCurve(object, channel);
        if (!curve.IsValid()) continue;
        xercesc::DOMElement* element = stream.WriteElement(node, L"CURVE", L"name", channel);
        int written = 0;
        auto addKey = [&](const ORV::CString& time) {
            stream.WriteElement(element, L"KEY", L"keytime", time);
            ++written;
        };
        const long numKeys = curve.GetNumKeys();
        for (long j = 0; j < numKeys; ++j) {
            const double t = curve.GetKeyAtIndex(j).GetTime().GetTime();
            const double previous = j > 0 ? curve.GetKeyAtIndex(j - 1).GetTime().GetTime() : 0.0;
            if (t < start || t > end) {
                if (j > 0 && previous < end) addKey(text(endFrame - startFrame));
                break;
            }
            if ((j == 0 && t > start) || (j > 0 && previous < start && t > start)) addKey(text(0));
            addKey(text(t - start));
        }
        stream.SetAttributeValue(element, L"numkeys", text(written));
    }
}

void ModelMap::WriteToXMLStream(XMLFileStream& stream) {
    if (!structure) return;
    xercesc::DOMElement* map = stream.WriteElement(stream.GetRootElement(), L"MODEL_MAP");
    stream.SetAttributeValue(map, L"structure_source", structure->Source);
    stream.SetAttributeValue(map, L"structure_type", structure->Type);
    stream.SetAttributeValue(map, L"hipOffset", text(hipOffset));
    stream.SetAttributeValue(map, L"legLength", text(legLength));
    const int numNodes = static_cast<int>(nodes.size());
    xercesc::DOMElement* nodesElement = stream.WriteElement(map, L"NODES", L"num_nodes", text(numNodes));
    for (int i = 0; i < numNodes; ++i) {
        xercesc::DOMElement* node = stream.WriteElement(nodesElement, L"NODE");
        stream.SetAttributeValue(node, L"name", structure->nodes[i].Name);
        stream.SetAttributeValue(node, L"length", text(nodes[i].length));
        stream.SetAttributeValue(node, L"rot", nodes[i].esrOffset.GetRotation());
        if (nodes[i].extraction) {
            xercesc::DOMElement* extraction = stream.WriteElement(node, L"EXTRACTION_NODE");
            const ORV::X3DObject& object = nodes[i].extraction->object;
            stream.SetAttributeValue(extraction, L"name",
                                     object.IsValid() ? object.GetName() : ORV::CString());
            stream.SetAttributeValue(extraction, L"rot", nodes[i].extraction->esrOffsetInverse.GetRotation());
        }
    }
}

// ---- Reader ---------------------------------------------------------------------------------

bool ModelMap::loadMotionFromXMLFile(const ORV::CString& path) {
    XMLFileStream stream(path, true, false);
    if (!stream.ok) return false;
    xercesc::DOMElement* root = stream.GetRootElement();
    xercesc::DOMElement* header = stream.FindElement(root, L"HEADER");
    if (!header) {
        stream.AddError(L"The file " + path + L" holds no Trovo motion: it has no HEADER.");
        return false;
    }

    ORV::CString version;
    stream.readElementValue(header, L"VERSION", version);  // any host version loads
    const int frameCount = toInt(headerValue(stream, header, L"AnimationLength"));
    const double legs = toDouble(headerValue(stream, header, L"legLength"));
    const double hips = toDouble(headerValue(stream, header, L"hipOffset"));
    const int numNodes = toInt(headerValue(stream, header, L"numNodes"));
    const int numPlanes = toInt(headerValue(stream, header, L"numPlanes"));
    ORV::CString type(L"0");
    stream.readElementValue(header, L"structure_type", type);

    // Counts the file cannot hold would only allocate memory that nothing fills.
    const long long bytes = motionfile::fileSize(path);
    if (!motionfile::plausibleCounts(frameCount, numNodes, numPlanes, bytes)) {
        stream.AddError(L"The file " + path + L" announces more frames, nodes or limbs than it holds.");
        return false;
    }

    // A map from the default constructor is expected; anything it held is dropped.
    motionfile::startMotionMap(*this, numNodes, numPlanes, type, frameCount, legs, hips);

    xercesc::DOMElement* nodesElement = stream.FindElement(root, L"NODES");
    const int nodeChildren = stream.GetNumChildElements(nodesElement);
    for (int i = 0; i < numNodes && i < nodeChildren; ++i) {
        xercesc::DOMElement* node = stream.GetChildElement(nodesElement, i);
        ORV::CString value;
        if (stream.GetAttributeValue(node, L"obj_IsValid", value))
            structure->nodes[i].objIsValid = static_cast<bool>(ORV::CValue(value));
        stream.GetAttributeValue(node, L"name", structure->nodes[i].Name);
        readDouble(stream, node, L"length", nodes[i].length);
    }

    xercesc::DOMElement* planesElement = stream.FindElement(root, L"PLANES");
    for (int p = 0; p < numPlanes; ++p) {
        xercesc::DOMElement* element = stream.GetChildElement(planesElement, p);
        if (!element) break;
        ModelStructure::Plane& plane = structure->planes[p];
        stream.GetAttributeValue(element, L"name", plane.Name);
        readInt(stream, element, L"span", plane.Span);
        readInt(stream, element, L"mid", plane.Mid);
        readInt(stream, element, L"anchor_index", plane.AnchorIndex);
        int numBones = 0;
        readInt(stream, element, L"numbones", numBones);
        for (int k = 0; k < numBones; ++k) {
            xercesc::DOMElement* bone = stream.GetChildElement(element, k);
            if (!bone) break;
            int index = 0;
            readInt(stream, bone, L"boneindex", index);
            plane.bones.Add(index);
        }
    }

    motion = new CTransformation[static_cast<size_t>(static_cast<long long>(numFrames) * numNodes)];
    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutMaximum(numFrames);
    bar.PutStep(1);
    bar.PutCaption(L"Parsing Trovo File ...");
    bar.PutVisible(true);
    xercesc::DOMElement* poses = stream.FindElement(root, L"POSE_VALUES");
    // Walked by sibling rather than by index: a long motion would otherwise count its frames
    // again for every frame.
    xercesc::DOMElement* pose = stream.GetChildElement(poses, 0);
    for (int f = 0; f < numFrames && pose; ++f) {
        CTransformation* frame = motion + static_cast<long>(f) * numNodes;
        xercesc::DOMElement* node = stream.GetChildElement(pose, 0);
        for (int n = 0; n < numNodes && node; ++n) {
            stream.GetAttributeValue(node, L"global", frame[n]);
            node = stream.GetNextSiblingElement(node);
        }
        pose = stream.GetNextSiblingElement(pose);
        bar.Increment();
    }
    bar.PutVisible(false);

    xercesc::DOMElement* keys = stream.FindElement(root, L"FCURVE_KEYS");
    int entries = 0;
    readInt(stream, keys, L"num_nodes_with_fcurve_keys", entries);
    if (entries >= 1 && motionfile::plausibleCount(entries, bytes)) {
        numKeyTiming = entries;
        keyTiming = new NodeKeyTiming[static_cast<size_t>(entries)];
        // The writer leaves a "NODE" for every object it looked at, curves or not, while the
        // count holds only the objects with curves: the empty ones are passed over, so that the
        // entries are the same as the text form's.
        xercesc::DOMElement* node = stream.GetChildElement(keys, 0);
        for (int k = 0; k < entries && node; node = stream.GetNextSiblingElement(node)) {
            if (!stream.GetChildElement(node, 0)) continue;
            stream.GetAttributeValue(node, L"name", keyTiming[k].name);
            for (xercesc::DOMElement* curve = stream.GetChildElement(node, 0); curve;
                 curve = stream.GetNextSiblingElement(curve)) {
                ORV::CString channel;
                stream.GetAttributeValue(curve, L"name", channel);
                int c = 0;
                while (c < NodeKeyTiming::NUM_CHANNELS && channel != NodeKeyTiming::CHANNEL_NAMES[c]) ++c;
                if (c == NodeKeyTiming::NUM_CHANNELS) continue;
                int numKeys = 0;
                readInt(stream, curve, L"numkeys", numKeys);
                xercesc::DOMElement* key = stream.GetChildElement(curve, 0);
                for (int j = 0; j < numKeys && key; ++j, key = stream.GetNextSiblingElement(key)) {
                    double time = 0.0;
                    readDouble(stream, key, L"keytime", time);
                    keyTiming[k].times[c].Add(time);
                }
            }
            ++k;
        }
    } else if (entries >= 1) {
        stream.AddError(L"The file " + path + L" announces more key timing entries than it holds.");
    }
    return true;
}

}  // namespace ZUK
