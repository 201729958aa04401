// Character files in and out of the scene: glTF, FBX, COLLADA and BVH read through Assimp into
// one model of nulls; a model's hierarchy and its evaluated motion written back out, by Assimp
// for glTF, FBX and COLLADA and by our own writer for BVH.
#pragma once

#include <string>

#include "Host.h"

namespace orvhost {

// Hierarchies beyond these are refused before anything is made in the scene.
constexpr int kMaxCharacterDepth = 1000;
constexpr long kMaxCharacterNodes = 100000;  // this many nodes or more are refused

// The user data blob on an imported model that keeps what export needs from the file: the
// node names as the file has them, their rest transforms, and the file's own bytes when it
// holds meshes, skins or materials.
constexpr const wchar_t* kCharacterBlobName = L"CharacterFile";

struct CharacterImportOptions {
    std::wstring name;           // the model's name; empty: the file's name without its suffix
    bool animation = true;       // false: the rest pose only, no curves
    std::wstring animationName;  // empty: the file's first animation
};

// Reads a character file into a new model under the scene root: one null per node of the
// file, named as the node (host name rules apply, and a changed name is logged), its rest
// transform on the local parameters, the chosen animation as linear function curves at the
// scene's frame rate (file time 0 at frame 1), Play Control's In and Out set to the
// animation's frames. Null, with the reason in `error` and the scene as it was, when the file
// cannot be taken.
Object3D* ImportCharacter(const std::string& path, const CharacterImportOptions& options,
                          std::wstring& error);

struct CharacterExportOptions {
    bool range = false;  // false: Play Control's In to Out
    double start = 0.0, end = 0.0;
};

// Writes a model's hierarchy and its motion, sampled at every frame of the range from the
// host's evaluation, to a file chosen by its suffix: .glb, .gltf, .fbx, .dae or .bvh. An
// imported model keeps the file's meshes, skins, materials and rest transforms; its
// animations are replaced by the sampled one. False with the reason in `error`, the file
// not written, on failure.
bool ExportCharacter(const std::string& path, Object3D* model, const CharacterExportOptions& options,
                     std::wstring& error);

}  // namespace orvhost
