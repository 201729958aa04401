// Reference poses and pose maps: how an ESR rig hangs on a set of C3D markers. Every rig node
// follows a frame spanned by three markers, at a fixed offset; a map is computed once on a take
// over which the rig was posed, saved as a ".c3dpose" file, and loaded for later takes of the
// same marker set.
//
// A rig node is any 3D object below the rig model in the order of a recursive FindChildren with
// the 3D object family, leaving out the connection lines ("crvlist"). Every node index here
// refers to that walk.
#pragma once

#include <orv/ORV.h>

#include "mocap/Mocap.h"

namespace ZUK {

class ThreePointConstraint {
public:
    // Marker indices a, b, c; -1 when not found.
    int markers[3] = {-1, -1, -1};
    // The node's global pose expressed in the frame of the three markers.
    ORV::MATH::CTransformation offset;
    // Where the node's only child stands in the node's own space; zero for other nodes.
    ORV::MATH::CVector3 childPosition;

    // The frame of three markers: origin a, X along b - a, Z along (b - a) x (c - a), Y = Z x X.
    // Markers in a line leave the rotation at identity.
    static ORV::MATH::CTransformation markerFrame(const ORV::MATH::CVector3& a, const ORV::MATH::CVector3& b,
                                                  const ORV::MATH::CVector3& c);
    // The node's global pose over the markers `points` of one frame: Mul(offset, frame). Markers
    // out of range stand at the origin.
    ORV::MATH::CTransformation nodePose(const ORV::MATH::CVector3* points, int count) const;
};

class ReferencePose {
public:
    // One per rig node, owned.
    ThreePointConstraint* constraints = nullptr;
    // Marker names in map order; filled by readFromFile, empty in a map just computed.
    ORV::CStringArray names;
    // Null until createConversionMap; markerCount entries each.
    int* currentToReference = nullptr;
    int* referenceToCurrent = nullptr;
    int markerCount = 0;
    // Global transform of each rig node, owned.
    ORV::MATH::CTransformation* tPose = nullptr;
    // Rig nodes: the length of both node arrays.
    int nodeCount = 0;

    ReferencePose() = default;
    // A map from the rig's current pose over `points` (frame 0 of the take): constraints, T-pose,
    // realignment of one-child nodes, then the rig is laid down in its T-pose.
    ReferencePose(ORV::Model rig, ORV::MATH::CVector3* points, int count);
    ~ReferencePose();
    ReferencePose(const ReferencePose&) = delete;
    ReferencePose& operator=(const ReferencePose&) = delete;

    // The rig nodes of `rig`, in node index order.
    static ORV::CRefArray RigNodes(ORV::Model rig);
    // The node index of `object` in `nodes`, a walk that may hold connection lines, counted as
    // the rig-node walk counts; -1 when it is not there.
    static int findNodeIndex(const ORV::CRefArray& nodes, ORV::X3DObject object);

    // Nearest three markers for every node, then the clean-up of shared markers and flat
    // triangles, node by node.
    void compute3PointConstraint(ORV::Model rig, ORV::MATH::CVector3* points, int count);
    // Stores each rig node's global transform as the T-pose.
    void captureTPose(ORV::Model rig);
    // Lays the rig down in the T-pose, relative to the third node.
    void setTPose(ORV::Model rig);
    // Turns nodes with one child toward that child and corrects their constraints to match.
    void realign(ORV::Model rig);
    // Ties the map's marker order to that of the take under `markers`. Alerts on failure.
    bool createConversionMap(ORV::Model markers);
    // Conversions of one marker index; the index itself without a map. Negative entries are
    // logged and returned.
    int refToCurrent(int index) const;
    int currentToRef(int index) const;
    // The same over the three markers of every constraint.
    void tpcRefToCurrent();
    void tpcCurrentToRef();
    // A ".c3dpose" file: false when it does not read, begins with another version word or
    // holds counts that cannot be.
    bool readFromFile(const ORV::CString& path);
    // False when the rig has no tag property or the file cannot be created.
    bool saveToFile(const ORV::CString& path, ORV::Model rig, ORV::Model markers, UpDirection up);

private:
    void clear();
};

}  // namespace ZUK
