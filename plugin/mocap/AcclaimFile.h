// Reader of the Acclaim pair of files: an ASF skeleton and AMC motion. Acclaim bones are given
// in global terms (direction, length, axis), so the reader first computes a rest pose per bone
// and expresses every frame against it; the result is the same MocapData as a BVH file gives.
#pragma once

#include <orv/ORV.h>

#include "core/InputStream.h"
#include "mocap/Mocap.h"

namespace ZUK {

// Channel codes as they stand in AcclaimBone::dof.
enum AcclaimChannel { AC_TX = 0, AC_TY = 1, AC_TZ = 2, AC_RX = 3, AC_RY = 4, AC_RZ = 5, AC_END = -1 };

struct AcclaimBone {
    // "root" for bone 0.
    ORV::CString name;
    // Unit direction of the bone in global space; for the root, its "position".
    ORV::MATH::CVector3 direction;
    double length = 0.0;
    // Angles of the bone's axes in global space; for the root, its "orientation".
    ORV::MATH::CVector3 axis;
    // Channel codes in file order, closed by AC_END.
    int dof[7] = {AC_END, AC_END, AC_END, AC_END, AC_END, AC_END, AC_END};
    // Order text given with "axis". Kept, never used: all angles are taken in XYZ order.
    ORV::CString order;
    // Bone index of the parent, -1 for none.
    int parent = -1;
    // Rest rotation and translation relative to the parent, and the rest global pose.
    ORV::MATH::CRotation rotation;
    ORV::MATH::CVector3 offset;
    ORV::MATH::CTransformation global;
    // The cube that createModel made for this bone.
    ORV::X3DObject object;
};

class AcclaimFile {
public:
    // Name of the blob on the reference model that holds the ASF text.
    static constexpr const wchar_t* PROPERTY_NAME = L"asfdef";
    // Name of the reference model and of its null.
    static constexpr const wchar_t* MODEL_NAME = L"ASF";
    static constexpr const wchar_t* NULL_NAME = L"Acclaim";
    static constexpr int MAX_BONES = 500;
    // Degrees to radians, to eleven places as written, not the full-precision value.
    static constexpr double DEGREES = 0.01745329252;

    // The whole ASF text, kept to store it on the model.
    char* text = nullptr;
    int textSize = 0;
    bool modelBuilt = false;
    // From ":units": "angle deg".
    bool degrees = false;
    // Largest "length" seen.
    double longestBone = 0.0;
    AcclaimBone bones[MAX_BONES];
    int boneCount = 0;

    AcclaimFile() = default;
    ~AcclaimFile();
    AcclaimFile(const AcclaimFile&) = delete;
    AcclaimFile& operator=(const AcclaimFile&) = delete;

    // Reads the ASF file at `path`; logs "ASF file is invalid." when it does not open.
    bool readHierarchy(const ORV::CString& path);
    // Parses an ASF text and computes the rest poses. False when no bone was read or on a parse
    // error (logged).
    bool readHierarchy(InputStream& stream);
    // Reads the AMC file into `data`, keeping every step-th frame (a step below 1 counts as 1).
    // A bone that a frame leaves out stays at rest in that frame.
    bool readMotion(const ORV::CString& path, MocapData* data, int step);
    // A model "ASF" under the scene root with one cube per bone at its rest pose; an invalid
    // model when no skeleton has been read (the scene is then untouched).
    ORV::Model createModel();
    // Puts one frame of `data` on the local pose of each bone's cube.
    void pose(MocapData* data, int frame);
    // Bone index by exact, case-sensitive name; -1 when none has it.
    int findBone(const ORV::CString& name) const;
    // Counts the tokens "root" from the stream's position on, then restores the position.
    void extractInitData(InputStream& stream, int& count);

    // Both files at once: a new MocapData owned by the caller, or null on any failure (which
    // the reader has logged). The one entry for drivers and for damaged-input testing.
    static MocapData* extractMocapData(const ORV::CString& asfPath, const ORV::CString& amcPath, int step);

private:
    // A channel list ("dof" or the root's "order") up to its first other word, put back.
    void readChannels(InputStream& stream, int* dof, bool allowLength);
    bool readHierarchySection(InputStream& stream);
    void computeRestPoses();
};

}  // namespace ZUK
