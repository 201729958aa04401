#include "mocap/BvImport.h"

#include <new>

#include "mocap/BvFile.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
ORV::Application app;
}  // namespace

MocapData* BvImport::extractMocapData(const ORV::CString& path, UpDirection up) {
    BvFile file;
    if (!file.Open(path.GetWideString())) return nullptr;
    MocapData* data = new (std::nothrow) MocapData;
    if (!data) return nullptr;
    if (!file.ReadHierarchy(data) || !file.ReadMotionData(data, false, up)) {
        delete data;
        return nullptr;
    }
    return data;
}

ORV::Model BvImport::createBvhModel(const ORV::CString& path, UpDirection up) {
    // Read the skeleton and its first frame before the scene is touched.
    BvFile file;
    MocapData data;
    if (!file.Open(path.GetWideString()) || !file.ReadHierarchy(&data) ||
        !file.ReadMotionData(&data, true, up))
        return ORV::Model();
    data.updateTransforms(0);
    BvHierarchy& hierarchy = *file.hierarchy;
    const int count = hierarchy.count < data.nodeCount ? hierarchy.count : data.nodeCount;

    // The model and its null.
    ORV::Model root = app.GetActiveSceneRoot();
    ORV::Model model;
    root.AddModel(ORV::CRefArray(), LBVHTAG, model);
    ORV::Null null;
    model.AddNull(L"Biovision", null);

    const double cubeSize = 0.1 * file.longestEndSite;

    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutVisible(true);
    bar.PutMaximum(2 * count);
    bar.PutStep(1);
    bar.PutCaption(L"Creating Mocap Reference Model ...");

    // One cube per node, at the node's global pose of frame 0.
    for (int i = 0; i < count; ++i) {
        bar.Increment(1);
        ORV::X3DObject cube;
        root.AddPrimitive(L"Cube", L"Cube", cube);
        cube.PutParameterValue(L"length", cubeSize);
        // The display preset is "Display Property"; the property it makes is named "Display".
        ORV::Property display = cube.AddProperty(L"Display Property", false, L"Display");
        display.PutParameterValue(L"wirecol", 384);
        cube.PutName(hierarchy.nodes[i].name);
        hierarchy.nodes[i].object = cube;
        cube.GetKinematics().GetGlobal().PutTransform(data.nodes[i].global);
    }

    // The hierarchy: root cube under the null, each further cube under its parent's cube, tied
    // by a connection line, with any expression on its position cleared.
    if (count > 0) null.AddChild(hierarchy.nodes[0].object);
    bar.Increment(1);
    ORV::CValue result;
    for (int i = 1; i < count; ++i) {
        bar.Increment(1);
        BvNode& node = hierarchy.nodes[i];
        if (node.parent < 0 || node.parent >= count) continue;
        attachReferenceCube(hierarchy.nodes[node.parent].object, node.object);
    }

    app.ExecuteCommand(L"FrameAll", ORV::CValueArray(), result);

    model.AddProperty(L"CustomProperty", false, MocapData::PROPERTY_NAME);
    model.AddProperty(L"CustomProperty", false, PROPERTY_NAME);
    return model;
}

}  // namespace ZUK
