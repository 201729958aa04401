#include "mocap/Mocap.h"

#include <new>
#include <string>

#include "shell/Util.h"

namespace ZUK {

MocapData::~MocapData() { allocate(0); }

bool MocapData::allocate(int count) {
    if (nodes) {
        for (int i = 0; i < nodeCount; ++i) delete[] nodes[i].frames;
        delete[] nodes;
    }
    nodes = nullptr;
    nodeCount = 0;
    if (count <= 0) return true;
    nodes = new (std::nothrow) MocapNode[count];
    if (!nodes) return false;
    nodeCount = count;
    return true;
}

MocapNode* MocapData::findNode(const ORV::CString& name) const {
    const unsigned long length = name.Length();
    for (int i = 0; i < nodeCount; ++i) {
        MocapNode& node = nodes[i];
        if (node.name.IsEqualNoCase(name)) return &node;
        if (node.name.Length() != length) continue;
        // Names that came back from the scene have "_" where the scene refused a character:
        // let each underscore of the query stand for whatever the node has there.
        std::wstring copy = node.name.GetWideString();
        for (unsigned long c = 0; c < length; ++c) {
            if (name[c] == L'_') copy[c] = L'_';
        }
        if (ORV::CString(copy).IsEqualNoCase(name)) return &node;
    }
    return nullptr;
}

void MocapData::updateTransforms(int frame) {
    for (int i = 0; i < nodeCount; ++i) {
        MocapNode& node = nodes[i];
        if (frame < 0 || frame >= node.frameCount || !node.frames) continue;
        const DrvTransform& f = node.frames[frame];
        node.local.SetTranslationFromValues(f.translation.x, f.translation.y, f.translation.z);
        ORV::MATH::CQuaternion q(f.rotation.w, f.rotation.x, f.rotation.y, f.rotation.z);
        q.Normalize();
        node.local.SetRotationFromQuaternion(q);
        // Parents stand before their children, so the parent's global is this frame's already.
        if (node.parent < 0 || node.parent >= nodeCount)
            node.global = node.local;
        else
            node.global.Mul(node.local, nodes[node.parent].global);
    }
}

void attachReferenceCube(ORV::X3DObject parentCube, ORV::X3DObject cube) {
    parentCube.AddChild(cube);
    Util::makeConnectionLine(parentCube, parentCube, cube, 438);
    const ORV::CString fullName = cube.GetFullName();
    static const wchar_t* const positions[3] = {L".kine.local.posx", L".kine.local.posy",
                                                L".kine.local.posz"};
    ORV::Application app;
    ORV::CValue result;
    for (const wchar_t* suffix : positions) {
        ORV::CValueArray args;
        args.Add(ORV::CValue(fullName + suffix));
        app.ExecuteCommand(L"SetExpr", args, result);
    }
}

}  // namespace ZUK
