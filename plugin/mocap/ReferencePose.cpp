#include "mocap/ReferencePose.h"

#include <cfloat>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <vector>

#include "character/ModelStructure.h"
#include "core/InputStream.h"
#include "core/OutputStream.h"
#include "core/UtilMath.h"
#include "mocap/C3DImport.h"
#include "panels/TagPPG.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

ORV::Application app;

// Two positions closer than this (squared) are one point for a triangle.
constexpr double kSamePointSquared = 1e-6;
// Shortest triangle edge, and the cosine above which two edges count as one line.
constexpr double kShortestEdge = 1e-5;
constexpr double kCollinearCosine = 0.99;
// Limbs this many bones apart must not share a marker.
constexpr int kDistantBranches = 4;

bool isConnectionLine(const ORV::CRef& ref) { return ORV::OVObject(ref).GetType() == L"crvlist"; }

// Every 3D object below `model`, connection lines included, in walk order.
ORV::CRefArray allObjects(const ORV::X3DObject& model) {
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    return model.FindChildren(L"", L"", families, true);
}

// The marker objects of a marker model: the walk from its second entry on (the first is the
// model's own top object), without connection lines.
ORV::CRefArray markerObjects(const ORV::Model& markers) {
    ORV::CRefArray all = allObjects(markers);
    ORV::CRefArray out;
    for (long i = 1; i < all.GetCount(); ++i) {
        if (!isConnectionLine(all[i])) out.Add(all[i]);
    }
    return out;
}

CTransformation globalOf(const ORV::X3DObject& object) {
    return object.GetKinematics().GetGlobal().GetTransform(DBL_MAX);
}

void putGlobal(ORV::X3DObject object, const CTransformation& transform) {
    object.GetKinematics().GetGlobal().PutTransform(transform, DBL_MAX);
}

// A marker position, the origin for an index that names no marker.
CVector3 markerAt(const CVector3* points, int count, int index) {
    return points && index >= 0 && index < count ? points[index] : CVector3();
}

// The nearest three markers to the node that are not the same point, skipping those marked in
// `excluded`. True when all three were found; `out` keeps what was found either way.
bool findThreePointConstraint(const CTransformation& node, CVector3* points, int count,
                              ThreePointConstraint& out, const bool* excluded) {
    // 1.
    out.markers[0] = out.markers[1] = out.markers[2] = -1;
    if (count < 1 || !points) return false;

    // 2. Kept positions start at the origin, so a marker lying there is refused until others
    // fill the slots; that stays.
    double best[3] = {DBL_MAX, DBL_MAX, DBL_MAX};
    CVector3 kept[3];
    const CVector3& position = node.GetTranslation();
    auto distinct = [](const CVector3& a, const CVector3& b) {
        return (a - b).GetLengthSquared() > kSamePointSquared;
    };
    for (int i = 0; i < count; ++i) {
        if (excluded && excluded[i]) continue;
        const CVector3& p = points[i];
        const double d = (p - position).GetLength();
        if (d < best[0] && distinct(p, kept[1]) && distinct(p, kept[2])) {
            best[2] = best[1];
            kept[2] = kept[1];
            out.markers[2] = out.markers[1];
            best[1] = best[0];
            kept[1] = kept[0];
            out.markers[1] = out.markers[0];
            best[0] = d;
            kept[0] = p;
            out.markers[0] = i;
        } else if (d < best[1] && distinct(p, kept[0]) && distinct(p, kept[2])) {
            best[2] = best[1];
            kept[2] = kept[1];
            out.markers[2] = out.markers[1];
            best[1] = d;
            kept[1] = p;
            out.markers[1] = i;
        } else if (d < best[2] && distinct(p, kept[0]) && distinct(p, kept[1])) {
            best[2] = d;
            kept[2] = p;
            out.markers[2] = i;
        }
    }

    // 3.
    if (out.markers[0] < 0 || out.markers[1] < 0 || out.markers[2] < 0) return false;

    // 4.
    const CTransformation frame = ThreePointConstraint::markerFrame(
        points[out.markers[0]], points[out.markers[1]], points[out.markers[2]]);
    out.offset = ORV::MATH::MapWorldPoseToObjectSpace(frame, node);
    return true;
}

// Parent steps between two objects through their nearest common ancestor. Every parent counts,
// also one that sits on its child.
int CountSeparatingBonesBetweenBranches(ORV::X3DObject a, ORV::X3DObject b) {
    const ORV::CRef model = a.GetModel().GetRef();
    std::vector<ORV::CRef> chain;
    for (ORV::CRef current = a.GetRef(); current.IsValid() && !(current == model);
         current = ORV::OVObject(current).GetParent()) {
        chain.push_back(current);
    }
    int steps = 0;
    for (ORV::CRef current = b.GetRef();; current = ORV::OVObject(current).GetParent(), ++steps) {
        for (size_t k = 0; k < chain.size(); ++k) {
            if (chain[k] == current) return steps + static_cast<int>(k);
        }
        if (!current.IsValid() || current == model) return steps + static_cast<int>(chain.size());
    }
}

// Whether a stands at least as far from the point as b does.
bool nodeIsFarther(ORV::X3DObject a, ORV::X3DObject b, CVector3 point) {
    const double da = (globalOf(a).GetTranslation() - point).GetLengthSquared();
    const double db = (globalOf(b).GetTranslation() - point).GetLengthSquared();
    return da >= db;
}

bool usesMarker(const ThreePointConstraint& constraint, int marker) {
    return constraint.markers[0] == marker || constraint.markers[1] == marker ||
           constraint.markers[2] == marker;
}

// Whether the constraint's triangle is too small or too flat to span a frame. A constraint with
// a marker missing has no triangle at all.
bool badTriangle(const ThreePointConstraint& constraint, const CVector3* points, int count) {
    for (int k = 0; k < 3; ++k) {
        if (constraint.markers[k] < 0 || constraint.markers[k] >= count) return true;
    }
    CVector3 e1 =
        markerAt(points, count, constraint.markers[1]) - markerAt(points, count, constraint.markers[0]);
    CVector3 e2 =
        markerAt(points, count, constraint.markers[2]) - markerAt(points, count, constraint.markers[0]);
    if (e1.GetLength() < kShortestEdge || e2.GetLength() < kShortestEdge) return true;
    e1.NormalizeInPlace();
    e2.NormalizeInPlace();
    const double cosine = e1.Dot(e2);
    return cosine > kCollinearCosine || cosine < -kCollinearCosine;
}

// Makes the constraints of distant limbs independent of each other and the node's triangle
// usable. The walk's numbering after a restart lags one entry behind the first pass, and a failed
// search restores the saved copy over the other node j: both are kept as the fit always was.
void cleanupConstraint(ORV::CRefArray nodes, ORV::X3DObject node, CVector3* points, int count, int index,
                       ThreePointConstraint* constraints) {
    if (index < 2) return;
    const ThreePointConstraint saved = constraints[index];
    std::unique_ptr<bool[]> excluded(new bool[count > 0 ? count : 0]());
    const CTransformation nodeGlobal = globalOf(node);
    ThreePointConstraint& mine = constraints[index];

    long entry = 0;
    int j = 0;
    while (entry < nodes.GetCount()) {
        if (isConnectionLine(nodes[entry])) {
            ++entry;
            continue;
        }
        if (j != index && j >= 2) {
            ORV::X3DObject other(nodes[entry]);
            bool searched = false;
            bool found = false;
            // 1. and 2. A marker shared with a distant limb goes to the nearer node.
            const int n = CountSeparatingBonesBetweenBranches(node, other);
            if (n >= kDistantBranches) {
                for (int k = 0; k < 3 && !searched; ++k) {
                    const int marker = mine.markers[k];
                    if (marker < 0 || marker >= count || !usesMarker(constraints[j], marker)) continue;
                    if (!nodeIsFarther(node, other, points[marker])) continue;
                    excluded[marker] = true;
                    searched = true;
                    found = findThreePointConstraint(nodeGlobal, points, count, mine, excluded.get());
                }
            }
            // 3. The triangle itself.
            if (!searched && badTriangle(mine, points, count)) {
                const int c = mine.markers[2];
                if (c >= 0 && c < count) excluded[c] = true;
                searched = true;
                found = findThreePointConstraint(nodeGlobal, points, count, mine, excluded.get());
            }
            if (searched) {
                if (!found) {
                    // 5.
                    app.LogMessage(L"Failed to find a clean three point constraint for the " +
                                       node.GetName() + L" node.",
                                   8);
                    constraints[j] = saved;
                    return;
                }
                // 4. Restart at the second entry with j = 0.
                entry = 1;
                j = 0;
                continue;
            }
        }
        ++entry;
        ++j;
    }
}

// Turns the rotation of g about predicted x actual by the angle between them.
void rotateToward(CTransformation& g, const CVector3& predicted, const CVector3& actual) {
    CVector3 axis;
    axis.Cross(predicted, actual);
    axis.NormalizeInPlace();
    CRotation turn;
    turn.SetFromAxisAngle(axis, predicted.GetAngle(actual));
    CRotation rotation;
    rotation.Mul(g.GetRotation(), turn);
    g.SetRotation(rotation);
}

}  // namespace

// ---- ThreePointConstraint -------------------------------------------------------------------

CTransformation ThreePointConstraint::markerFrame(const CVector3& a, const CVector3& b, const CVector3& c) {
    CVector3 x = b - a;
    CVector3 z;
    z.Cross(b - a, c - a);
    CVector3 y;
    y.Cross(z, x);
    x.NormalizeInPlace();
    y.NormalizeInPlace();
    z.NormalizeInPlace();
    CTransformation frame;
    frame.SetRotationFromXYZAxes(x, y, z);
    frame.SetTranslation(a);
    return frame;
}

CTransformation ThreePointConstraint::nodePose(const CVector3* points, int count) const {
    const CTransformation frame =
        markerFrame(markerAt(points, count, markers[0]), markerAt(points, count, markers[1]),
                    markerAt(points, count, markers[2]));
    CTransformation pose;
    pose.Mul(offset, frame);
    return pose;
}

// ---- ReferencePose --------------------------------------------------------------------------

ReferencePose::ReferencePose(ORV::Model rig, CVector3* points, int count) {
    nodeCount = static_cast<int>(RigNodes(rig).GetCount());
    constraints = new ThreePointConstraint[nodeCount];
    markerCount = count;
    compute3PointConstraint(rig, points, count);
    captureTPose(rig);
    realign(rig);
    setTPose(rig);
}

ReferencePose::~ReferencePose() { clear(); }

void ReferencePose::clear() {
    delete[] constraints;
    constraints = nullptr;
    delete[] currentToReference;
    currentToReference = nullptr;
    delete[] referenceToCurrent;
    referenceToCurrent = nullptr;
    delete[] tPose;
    tPose = nullptr;
    names.Clear();
    markerCount = 0;
    nodeCount = 0;
}

ORV::CRefArray ReferencePose::RigNodes(ORV::Model rig) {
    ORV::CRefArray all = allObjects(rig);
    ORV::CRefArray out;
    for (long i = 0; i < all.GetCount(); ++i) {
        if (!isConnectionLine(all[i])) out.Add(all[i]);
    }
    return out;
}

int ReferencePose::findNodeIndex(const ORV::CRefArray& nodes, ORV::X3DObject object) {
    int index = 0;
    for (long i = 0; i < nodes.GetCount(); ++i) {
        if (isConnectionLine(nodes[i])) continue;
        if (nodes[i] == object.GetRef()) return index;
        ++index;
    }
    return -1;
}

void ReferencePose::compute3PointConstraint(ORV::Model rig, CVector3* points, int count) {
    ORV::CRefArray all = allObjects(rig);
    const int nodes = static_cast<int>(RigNodes(rig).GetCount());
    if (!constraints || nodes != nodeCount) {
        delete[] constraints;
        nodeCount = nodes;
        constraints = new ThreePointConstraint[nodeCount];
    }
    // First pass: every node gets its nearest triangle.
    int index = 0;
    for (long i = 0; i < all.GetCount() && index < nodeCount; ++i) {
        if (isConnectionLine(all[i])) continue;
        findThreePointConstraint(globalOf(ORV::X3DObject(all[i])), points, count, constraints[index],
                                 nullptr);
        ++index;
    }
    // Second pass, only once all nodes have theirs.
    index = 0;
    for (long i = 0; i < all.GetCount() && index < nodeCount; ++i) {
        if (isConnectionLine(all[i])) continue;
        cleanupConstraint(all, ORV::X3DObject(all[i]), points, count, index, constraints);
        ++index;
    }
}

void ReferencePose::captureTPose(ORV::Model rig) {
    ORV::CRefArray nodes = RigNodes(rig);
    delete[] tPose;
    tPose = new CTransformation[nodeCount];
    for (int i = 0; i < nodeCount && i < nodes.GetCount(); ++i) tPose[i] = globalOf(ORV::X3DObject(nodes[i]));
}

void ReferencePose::setTPose(ORV::Model rig) {
    if (!tPose) return;
    ORV::CRefArray nodes = RigNodes(rig);
    // The T-pose is stored in the world of the take and laid down relative to the third node.
    CTransformation base;
    if (nodeCount > 2) base = ORV::MATH::MapWorldPoseToObjectSpace(tPose[2], CTransformation());
    for (int i = 0; i < nodeCount && i < nodes.GetCount(); ++i) {
        CTransformation pose;
        if (i >= 3) pose.Mul(tPose[i], base);
        putGlobal(ORV::X3DObject(nodes[i]), pose);
    }
}

void ReferencePose::realign(ORV::Model rig) {
    if (!constraints) return;
    ORV::CRefArray nodes = RigNodes(rig);
    for (int i = 0; i < nodeCount && i < nodes.GetCount(); ++i) {
        ORV::X3DObject node(nodes[i]);
        // A node with one child and its connection line, tagged.
        ORV::CRefArray children = node.GetChildren();
        if (children.GetCount() != 2) continue;
        const bool firstIsLine = isConnectionLine(children[0]);
        if (firstIsLine == isConnectionLine(children[1])) continue;
        ORV::X3DObject child(children[firstIsLine ? 1 : 0]);
        ORV::Property tag;
        if (!Util::findCustomPSet(node, ModelStructure::TAG_NAME, tag)) continue;

        // 1. The child's direction in the node's space, in the canonical pose.
        const CVector3 direction(static_cast<double>(tag.GetParameterValue(L"childx")),
                                 static_cast<double>(tag.GetParameterValue(L"childy")),
                                 static_cast<double>(tag.GetParameterValue(L"childz")));
        CTransformation g = globalOf(node);
        const CTransformation c = globalOf(child);
        ThreePointConstraint& constraint = constraints[i];

        // 2. The marker frame now.
        CTransformation w;
        w.Mul(Util::invertTransform(constraint.offset), g);

        // 3.
        const CVector3 actual = c.GetTranslation() - g.GetTranslation();
        CVector3 predicted;
        predicted.MulByMatrix3(direction, g.GetRotationMatrix3());

        // 4. The plane to turn in first.
        CVector3 flatPredicted = predicted;
        CVector3 flatActual = actual;
        bool secondStep = false;
        if (direction.y == 0.0 && direction.z == 0.0) {
            flatPredicted.z = flatActual.z = 0.0;
            secondStep = true;
        } else if (direction.x != 0.0) {
            flatPredicted.y = flatActual.y = 0.0;
        } else if (direction.z == 0.0) {
            flatPredicted.z = flatActual.z = 0.0;
            secondStep = true;
        } else if (direction.y == 0.0) {
            flatPredicted.y = flatActual.y = 0.0;
            secondStep = true;
        } else {
            flatPredicted.y = flatActual.y = 0.0;
        }

        // 5. and 6.
        rotateToward(g, flatPredicted, flatActual);
        if (secondStep) {
            predicted.MulByMatrix3(direction, g.GetRotationMatrix3());
            rotateToward(g, predicted, actual);
        }

        // 7.
        putGlobal(node, g);
        putGlobal(child, c);

        // 8.
        constraint.offset.Mul(g, Util::invertTransform(w));
        constraint.childPosition = ORV::MATH::MapWorldPoseToObjectSpace(g, c).GetTranslation();
    }
}

bool ReferencePose::createConversionMap(ORV::Model markers) {
    ORV::CRefArray objects = markerObjects(markers);
    // 1.
    if (objects.GetCount() != markerCount) {
        Util::alert(L"Failed to import the motion.");
        return false;
    }
    // 2.
    delete[] currentToReference;
    delete[] referenceToCurrent;
    currentToReference = new int[markerCount];
    referenceToCurrent = new int[markerCount];
    for (int i = 0; i < markerCount; ++i) currentToReference[i] = referenceToCurrent[i] = -1;

    // 3. An exact name, taken or not; else a free name one character longer or shorter that
    // contains or is contained in it, which tolerates the host's suffix on a clashing name.
    const int named =
        static_cast<int>(names.GetCount()) < markerCount ? static_cast<int>(names.GetCount()) : markerCount;
    for (int k = 0; k < markerCount; ++k) {
        const ORV::CString name = ORV::OVObject(objects[k]).GetName();
        int found = -1;
        for (int r = 0; r < named && found < 0; ++r) {
            if (names[r] == name) found = r;
        }
        for (int r = 0; r < named && found < 0; ++r) {
            if (referenceToCurrent[r] >= 0) continue;
            const long difference = static_cast<long>(names[r].Length()) - static_cast<long>(name.Length());
            if (difference != 1 && difference != -1) continue;
            const ORV::CString& longer = difference > 0 ? names[r] : name;
            const ORV::CString& shorter = difference > 0 ? name : names[r];
            if (std::wcsstr(longer.GetWideString(), shorter.GetWideString())) found = r;
        }
        if (found >= 0) {
            currentToReference[k] = found;
            referenceToCurrent[found] = k;
        } else {
            app.LogMessage(L"Failed to match " + name, 8);
        }
    }
    // 4.
    for (int r = 0; r < markerCount; ++r) {
        if (referenceToCurrent[r] >= 0) continue;
        const ORV::CString name = r < named ? names[r] : ORV::CString();
        Util::alert(L"The reference pose has a node " + name +
                    L" that could not be matched to a point in the motion data.\n" +
                    L"Failed to import the motion.");
        return false;
    }
    return true;
}

int ReferencePose::refToCurrent(int index) const {
    if (!referenceToCurrent) return index;
    const int value = index >= 0 && index < markerCount ? referenceToCurrent[index] : -1;
    if (value < 0) app.LogMessage(L"reftocur oops", 8);
    return value;
}

int ReferencePose::currentToRef(int index) const {
    if (!currentToReference) return index;
    const int value = index >= 0 && index < markerCount ? currentToReference[index] : -1;
    if (value < 0) app.LogMessage(L"curtoref oops", 8);
    return value;
}

void ReferencePose::tpcRefToCurrent() {
    for (int i = 0; i < nodeCount && constraints; ++i) {
        for (int& marker : constraints[i].markers) marker = refToCurrent(marker);
    }
}

void ReferencePose::tpcCurrentToRef() {
    for (int i = 0; i < nodeCount && constraints; ++i) {
        for (int& marker : constraints[i].markers) marker = currentToRef(marker);
    }
}

bool ReferencePose::readFromFile(const ORV::CString& path) {
    InputStream in(path);
    if (!in.buffer) return false;
    ORV::CString token;
    in >> token;
    if (!(token == C3DImport::VERSION)) return false;
    // The structure name and the up direction are for the file's other readers.
    ORV::CString structure;
    int up = 0;
    int markers = 0;
    int nodes = 0;
    in >> structure >> up >> markers >> nodes;
    // The format checks nothing, but counts that the rest of the file cannot hold would only
    // size an allocation: every name takes a byte, every node eighteen numbers.
    const long long left = static_cast<long long>(in.end - in.current);
    if (markers < 0 || nodes < 0 || markers > left || static_cast<long long>(nodes) * 18 > left) {
        app.LogMessage(L"The pose map file " + path + L" holds impossible counts.", 4);
        return false;
    }

    clear();
    markerCount = markers;
    nodeCount = nodes;
    for (int i = 0; i < markerCount; ++i) {
        ORV::CString name;
        in >> name;
        names.Add(name);
    }
    constraints = new ThreePointConstraint[nodeCount];
    tPose = new CTransformation[nodeCount];
    for (int i = 0; i < nodeCount; ++i) {
        ThreePointConstraint& constraint = constraints[i];
        in >> constraint.markers[0] >> constraint.markers[1] >> constraint.markers[2];
        in >> constraint.offset >> constraint.childPosition;
        in >> tPose[i];
    }
    return true;
}

bool ReferencePose::saveToFile(const ORV::CString& path, ORV::Model rig, ORV::Model markers, UpDirection up) {
    // The tag property is looked for first, so that a rig without one leaves no file behind.
    ORV::Property tag;
    if (!Util::findCustomPSet(rig, TagPPG::PROPERTY_NAME, tag)) return false;
    OutputStream out(path);
    if (!out.file) return false;

    out << ORV::CString(C3DImport::VERSION) << '\n';
    out << ORV::CString(tag.GetParameterValue(TagPPG::STRUCTUREFILE_NAME)) << ' ' << static_cast<int>(up)
        << '\n';
    out << markerCount << nodeCount << '\n';
    ORV::CRefArray objects = markerObjects(markers);
    for (long i = 0; i < objects.GetCount(); ++i) out << ORV::OVObject(objects[i]).GetName() << '\n';
    for (int i = 0; i < nodeCount && constraints && tPose; ++i) {
        ThreePointConstraint& constraint = constraints[i];
        out << constraint.markers[0] << constraint.markers[1] << constraint.markers[2] << '\n';
        out << constraint.offset << constraint.childPosition << '\n';
        out << tPose[i] << '\n';
    }
    return true;
}

}  // namespace ZUK
