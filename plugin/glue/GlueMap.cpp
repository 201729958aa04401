#include "glue/GlueMap.h"

#include <algorithm>
#include <utility>

#include "character/ModelStructure.h"
#include "core/UtilMath.h"
#include "glue/SpineMap.h"
#include "modelmap/ModelMap.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

const double NOW = ModelMap::NOW;
const int STORED_CAPABILITIES = 6;
const int VERSION_CAPABILITIES = 4;

const wchar_t* const MOCAP_COLUMNS[] = {L"rignodename", L"TagObj", L"Type"};
const wchar_t* const PLANE_COLUMNS[] = {L"rignodename", L"Mid", L"Sign", L"UpLength", L"defx", L"defy", L"defz"};
const wchar_t* const SPINE_COLUMNS[] = {L"anchor", L"base",   L"end",    L"goal",   L"aaxisX", L"aaxisY",
                                        L"aaxisZ", L"arollX", L"arollY", L"arollZ", L"axisX",  L"axisY",
                                        L"axisZ",  L"rollX",  L"rollY",  L"rollZ",  L"atanX",  L"atanY",
                                        L"atanZ",  L"gtanX",  L"gtanY",  L"gtanZ"};
const int NUM_MOCAP_COLUMNS = 3;
const int NUM_PLANE_COLUMNS = 7;
const int NUM_SPINE_COLUMNS = 22;

CTransformation globalOf(const ORV::X3DObject& object) {
    return object.GetKinematics().GetGlobal().GetTransform(NOW);
}

CVector3 positionOf(const ORV::X3DObject& object) { return globalOf(object).GetTranslation(); }

bool contains(const std::vector<int>& list, int value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

// The first structure node named `name`, or -1.
int nodeNamed(const ModelStructure* structure, const ORV::CString& name) {
    for (int i = 0; i < structure->numNodes; ++i)
        if (structure->nodes[i].Name == name) return i;
    return -1;
}

ORV::X3DObject findObject(ORV::Model model, const ORV::CString& name) {
    return model.FindChild(name, L"", ORV::CStringArray(), true);
}

void addGrid(ORV::CustomProperty& property, const wchar_t* name, const wchar_t* const* labels, int columns,
             long rows, const ORV::CValueArray& data) {
    ORV::Parameter parameter = property.AddGridParameter(name);
    const unsigned differ = static_cast<unsigned>(parameter.GetCapabilities() ^ STORED_CAPABILITIES);
    for (int bit = 0; bit < 31; ++bit) {
        const int flag = 1 << bit;
        if (differ & static_cast<unsigned>(flag)) parameter.PutCapabilityFlag(flag, (STORED_CAPABILITIES & flag) != 0);
    }
    ORV::GridData grid(static_cast<ORV::CRef>(parameter.GetValue()));
    grid.PutColumnCount(columns);
    grid.PutRowCount(rows);
    for (int column = 0; column < columns; ++column) grid.PutColumnLabel(column, labels[column]);
    grid.PutData(data);
}

// The rows of the grid `name`, at most `rows` of them and only those as wide as `columns`.
std::vector<ORV::CValueArray> gridRows(const ORV::ProjectItem& property, const wchar_t* name, long rows,
                                       int columns) {
    std::vector<ORV::CValueArray> result;
    ORV::Parameter parameter = property.GetParameter(name);
    if (!parameter.IsValid()) return result;
    ORV::GridData grid(static_cast<ORV::CRef>(parameter.GetValue()));
    const long available = std::min(rows, grid.GetRowCount());
    for (long row = 0; row < available; ++row) {
        ORV::CValueArray values = grid.GetRowValues(row);
        if (values.GetCount() >= columns) result.push_back(values);
    }
    return result;
}

void appendVector(ORV::CValueArray& row, const CVector3& v) {
    row.Add(ORV::CValue(v.x));
    row.Add(ORV::CValue(v.y));
    row.Add(ORV::CValue(v.z));
}

CVector3 vectorAt(const ORV::CValueArray& row, long column) {
    return CVector3(static_cast<double>(row[column]), static_cast<double>(row[column + 1]),
                    static_cast<double>(row[column + 2]));
}

// The joint roll of a chain bone, in degrees, through the host's script command.
double jointRollDegrees(const ORV::X3DObject& anchor) {
    ORV::CValueArray args;
    args.Add(ORV::CValue(anchor.GetFullName() + L".joint.roll"));
    ORV::CValue result;
    ORV::Application().ExecuteCommand(L"GetValue", args, result);
    return static_cast<double>(result);
}

bool mirrored(const ORV::X3DObject& object) { return globalOf(object).GetScaling().x < 0.0; }

}  // namespace

SpineConstraint::~SpineConstraint() {
    delete spineMap;
    delete[] segments;
}

SpineConstraint::SpineConstraint(SpineConstraint&& other) noexcept { *this = std::move(other); }

SpineConstraint& SpineConstraint::operator=(SpineConstraint&& other) noexcept {
    if (this == &other) return *this;
    delete spineMap;
    delete[] segments;
    anchorName = std::move(other.anchorName);
    baseName = std::move(other.baseName);
    goalName = std::move(other.goalName);
    tagName = std::move(other.tagName);
    nodeIndex = other.nodeIndex;
    anchor = other.anchor;
    base = other.base;
    goal = other.goal;
    numNodes = other.numNodes;
    segments = other.segments;
    aaxis = other.aaxis;
    aroll = other.aroll;
    axis = other.axis;
    roll = other.roll;
    atan = other.atan;
    gtan = other.gtan;
    spin = other.spin;
    spineMap = other.spineMap;
    other.segments = nullptr;
    other.spineMap = nullptr;
    other.numNodes = 0;
    return *this;
}

GlueMap* GlueMap::createFromModelMap(ORV::Model model, ModelMap* map) {
    GlueMap* glue = new GlueMap();
    const ModelStructure* structure = map->structure;
    const int numNodes = static_cast<int>(map->nodes.size());
    std::vector<int> handled;

    // 1. Limbs built as chains get their up-vector steered; their joints no direct constraint.
    for (int p = 0; p < structure->numPlanes; ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        if (plane.AnchorIndex < 0 || plane.AnchorIndex >= numNodes) continue;
        const ORV::X3DObject& anchor = map->nodes[plane.AnchorIndex].object;
        if (!anchor.IsValid() || !anchor.IsA(ORV::ovChainBoneID)) continue;
        ORV::X3DObject up = ORV::ChainBone(anchor).GetJoint().GetUpVectorReference();
        if (up.IsValid()) {
            PlaneConstraint c;
            c.upVectorName = up.GetName();
            c.planeName = plane.Name;
            glue->planes.push_back(std::move(c));
        }
        for (long b = 1; b < plane.bones.GetCount(); ++b) handled.push_back(static_cast<int>(plane.bones[b]));
    }

    // 2. Spines: a free node more than one object below its parent in the scene.
    for (int i = 0; i < numNodes; ++i) {
        const ModelStructure::Node& node = structure->nodes[i];
        const ORV::X3DObject& object = map->nodes[i].object;
        if (node.Type != 3 || !object.IsValid() || map->nodes[i].rotationSource >= 0 || node.Parent < 1) continue;
        const int q = node.Parent;
        const ORV::X3DObject& anchor = map->nodes[q].object;
        ORV::X3DObject current = object;
        ORV::X3DObject last = object;
        int steps = 0;
        bool reached = false;
        while (true) {
            ORV::X3DObject parent(current.GetParent());
            if (!parent.IsValid() || parent == model) break;
            ++steps;
            if (anchor.IsValid() && parent == anchor) {
                reached = true;
                break;
            }
            last = parent;
            current = parent;
        }
        if (!reached) {
            // Kept as it stands: the parent, not the free node, loses its direct constraint.
            handled.push_back(q);
            continue;
        }
        if (steps < 2) continue;
        SpineConstraint c;
        c.anchorName = anchor.GetName();
        c.baseName = last.GetName();
        c.goalName = object.GetName();
        c.tagName = node.Name;
        c.aaxis = map->nodes[q].align;
        c.aroll = map->nodes[q].roll;
        c.axis = map->nodes[i].align;
        c.roll = map->nodes[i].roll;
        c.atan = map->nodes[q].align * (0.35 * map->nodes[i].length);
        c.gtan = map->nodes[i].align * (-0.35 * map->nodes[i].length);
        glue->spines.push_back(std::move(c));
        handled.push_back(i);
    }

    // 3. Every other tagged object takes the node's transform directly, in part or whole.
    for (int i = 0; i < numNodes; ++i) {
        const ORV::X3DObject& object = map->nodes[i].object;
        if (contains(handled, i) || !object.IsValid()) continue;
        const ModelStructure::Node& node = structure->nodes[i];
        MocapConstraint c;
        c.rigNodeName = object.GetName();
        c.tagName = node.Name;
        ORV::Parameter rotx = object.GetKinematics().GetLocal().GetParameter(L"rotx");
        if (node.Type == 1) {
            c.kind = 2;
        } else if (rotx.IsValid() && ORV::Expression(rotx.GetSource()).IsValid()) {
            c.kind = 1;
        } else if (node.Parent >= 0 && node.Parent < numNodes && map->nodes[node.Parent].object.IsValid() &&
                   ORV::X3DObject(object.GetParent()) == map->nodes[node.Parent].object) {
            c.kind = 2;
        } else {
            c.kind = 0;
            ORV::CRefArray constraints = object.GetKinematics().GetConstraints();
            for (long k = 0; k < constraints.GetCount(); ++k) {
                const ORV::CString name = ORV::Constraint(constraints[k]).GetName();
                if (name == L"Position Cns") {
                    c.kind = 2;
                    break;
                }
                if (name == L"Orientation Cns") {
                    c.kind = 1;
                    break;
                }
            }
        }
        glue->mocaps.push_back(std::move(c));
    }

    glue->computeUpVectorSign(model, map);
    return glue;
}

void GlueMap::applyToModel(ORV::Model model, ModelMap* map) {
    modelMap = map;
    const ModelStructure* structure = map->structure;

    for (MocapConstraint& c : mocaps) {
        c.object = findObject(model, c.rigNodeName);
        Util::extractNeutralPose(c.object, c.neutralPose);
        c.nodeIndex = nodeNamed(structure, c.tagName);
        if (c.nodeIndex >= 0) c.ownNodeIndex = c.nodeIndex;
    }

    for (PlaneConstraint& c : planes) {
        c.object = findObject(model, c.upVectorName);
        Util::extractNeutralPose(c.object, c.neutralPose);
        int found = -1;
        for (int p = 0; p < structure->numPlanes && found < 0; ++p)
            if (structure->planes[p].Name == c.planeName) found = p;
        if (found < 0) continue;
        c.planeIndex = found;
        const ModelStructure::Plane& plane = structure->planes[found];
        const ORV::X3DObject& anchor = map->nodes[plane.AnchorIndex].object;
        const double roll = jointRollDegrees(anchor);
        // The host's roll turns the other way round on a mirrored anchor.
        c.jointRoll = mirrored(anchor) ? roll * 0.017453293 : roll * -0.017453293;
        c.upLength = map->nodes[plane.Span].length;
    }

    for (SpineConstraint& c : spines) {
        c.anchor = findObject(model, c.anchorName);
        c.base = findObject(model, c.baseName);
        c.goal = findObject(model, c.goalName);
        c.nodeIndex = nodeNamed(structure, c.tagName);
        delete c.spineMap;
        c.spineMap = new SpineMap(c.anchor, c.base, c.goal, c.aaxis, c.aroll, c.axis, c.roll);
        c.numNodes = static_cast<int>(c.spineMap->nodes.GetCount());
        delete[] c.segments;
        c.segments = c.numNodes > 0 ? new SpineSegment[c.numNodes] : nullptr;
        for (int k = 0; k < c.numNodes; ++k) {
            c.segments[k].object = ORV::X3DObject(c.spineMap->nodes[k]);
            Util::extractNeutralPose(c.segments[k].object, c.segments[k].neutralPose);
            if (c.segments[k].object.IsA(ORV::ovChainBoneID)) {
                ORV::CValueArray args;
                args.Add(ORV::CValue(c.segments[k].object.GetFullName() + L".joint.chntype"));
                args.Add(ORV::CValue(2));
                ORV::CValue ignored;
                ORV::Application().ExecuteCommand(L"SetValue", args, ignored);
            }
        }
    }
}

void GlueMap::syncToModelMap() {
    if (!modelMap) return;
    ModelMap& map = *modelMap;
    const ModelStructure* structure = map.structure;
    const int numNodes = static_cast<int>(map.nodes.size());
    for (MocapConstraint& c : mocaps) {
        const int n = c.nodeIndex;
        if (n < 0 || n >= numNodes || map.nodes[n].translationSource >= 0) continue;
        const int p = structure->nodes[n].Parent;
        if (p < 0 || p >= numNodes || map.nodes[p].translationSource < 0) continue;
        bool isSpan = false;
        for (int q = 0; q < structure->numPlanes && !isSpan; ++q) isSpan = structure->planes[q].Span == p;
        if (!isSpan) continue;
        const ORV::X3DObject& own = map.nodes[n].object;
        const ORV::X3DObject& goal = map.nodes[p].object;
        if (!own.IsValid() || !goal.IsValid()) continue;
        // An object on a limb's goal with no source of its own rides on the goal, turned by
        // the difference between the two nodes' axes.
        if ((positionOf(own) - positionOf(goal)).GetLength() < 0.0001 * map.legLength) {
            c.rotationOffset = Util::BuildRotationBetweenTwoAxisPairs(map.nodes[n].align, map.nodes[n].roll,
                                                                      map.nodes[p].align, map.nodes[p].roll);
            c.nodeIndex = p;
        }
    }
}

void GlueMap::computeUpVectorSign(ORV::Model model, ModelMap* map) {
    applyToModel(model, map);
    const ModelStructure* structure = map->structure;
    for (PlaneConstraint& c : planes) {
        if (c.planeIndex < 0 || !c.object.IsValid()) continue;
        const ModelStructure::Plane& plane = structure->planes[c.planeIndex];
        const ORV::X3DObject& A = map->nodes[plane.AnchorIndex].object;
        const ORV::X3DObject& M = map->nodes[plane.Mid].object;
        ORV::X3DObject S = map->nodes[plane.Span].object;
        if (!A.IsValid() || !M.IsValid() || !S.IsValid()) continue;
        ORV::KinematicState spanState = S.GetKinematics().GetGlobal();

        // Move the goal 1% towards the anchor so that the chain must bend.
        const CTransformation T0 = spanState.GetTransform(NOW);
        const CVector3 PA = positionOf(A);
        const CVector3 g = PA + (T0.GetTranslation() - PA) * 0.99;
        CTransformation moved = T0;
        moved.SetTranslation(g);
        spanState.PutTransform(moved);

        const CVector3 d = g - PA;
        const CVector3 m = positionOf(M) - PA;
        CVector3 nrm, u;
        nrm.Cross(d, m);
        u.Cross(nrm, d);
        u.MulByRotationInPlace(ORV::MATH::CRotation(d, mirrored(A) ? c.jointRoll : -c.jointRoll));
        u.NormalizeInPlace();
        const CVector3 w = positionOf(c.object) - PA;
        c.upSign = w.Dot(u) < 0.0 ? -1 : 1;

        spanState.PutTransform(T0);
        c.rest = ORV::MATH::MapWorldPoseToObjectSpace(globalOf(A), globalOf(c.object));
    }
}

GlueMap* GlueMap::CreateFromCustomProperty(ORV::Model model) {
    ORV::Property property;
    const bool found = Util::findCustomPSet(model, PROPERTY_NAME, property);
    const ORV::CValue version = found ? property.GetParameterValue(L"Version") : ORV::CValue();
    if (version.IsEmpty() || static_cast<int>(version) != VERSION || static_cast<double>(version) != VERSION) {
        ORV::Application().LogMessage(L"GlueMap data is outdated - please re-tag.", 8);
        return nullptr;
    }
    GlueMap* glue = new GlueMap();
    const long numMocaps = static_cast<long>(property.GetParameterValue(L"numMocaps"));
    const long numPlanes = static_cast<long>(property.GetParameterValue(L"numPlanes"));
    const long numSpines = static_cast<long>(property.GetParameterValue(L"numSpines"));

    for (const ORV::CValueArray& row : gridRows(property, L"Mocap", numMocaps, NUM_MOCAP_COLUMNS)) {
        MocapConstraint c;
        c.rigNodeName = row[0].GetAsText();
        c.tagName = row[1].GetAsText();
        const int kind = static_cast<int>(row[2]);
        c.kind = kind == 0 ? 0 : (kind == 1 ? 1 : 2);
        glue->mocaps.push_back(std::move(c));
    }
    for (const ORV::CValueArray& row : gridRows(property, L"Planes", numPlanes, NUM_PLANE_COLUMNS)) {
        PlaneConstraint c;
        c.upVectorName = row[0].GetAsText();
        c.planeName = row[1].GetAsText();
        c.upSign = static_cast<int>(row[2]);
        c.upLength = static_cast<double>(row[3]);
        c.rest.SetTranslation(vectorAt(row, 4));
        glue->planes.push_back(std::move(c));
    }
    for (const ORV::CValueArray& row : gridRows(property, L"Spines", numSpines, NUM_SPINE_COLUMNS)) {
        SpineConstraint c;
        c.anchorName = row[0].GetAsText();
        c.baseName = row[1].GetAsText();
        c.goalName = row[2].GetAsText();
        c.tagName = row[3].GetAsText();
        c.aaxis = vectorAt(row, 4);
        c.aroll = vectorAt(row, 7);
        c.axis = vectorAt(row, 10);
        c.roll = vectorAt(row, 13);
        c.atan = vectorAt(row, 16);
        c.gtan = vectorAt(row, 19);
        c.spin = 0.0;
        glue->spines.push_back(std::move(c));
    }
    return glue;
}

void GlueMap::SaveToCustomProperty(ORV::Model model) {
    ORV::Property old;
    if (Util::findCustomPSet(model, PROPERTY_NAME, old)) Util::deleteObj(old.GetFullName());
    ORV::CustomProperty property(model.AddProperty(L"CustomProperty", false, PROPERTY_NAME));
    ORV::Parameter parameter;
    property.AddParameter(L"Version", ORV::ovString, VERSION_CAPABILITIES, L"", L"Version of the structure format",
                          ORV::CValue(VERSION), parameter);
    property.AddParameter(L"numMocaps", ORV::ovInt4, STORED_CAPABILITIES, L"", L"",
                          ORV::CValue(static_cast<int>(mocaps.size())), parameter);
    property.AddParameter(L"numPlanes", ORV::ovInt4, STORED_CAPABILITIES, L"", L"",
                          ORV::CValue(static_cast<int>(planes.size())), parameter);
    property.AddParameter(L"numSpines", ORV::ovInt4, STORED_CAPABILITIES, L"", L"",
                          ORV::CValue(static_cast<int>(spines.size())), parameter);

    ORV::CValueArray mocapRows;
    for (const MocapConstraint& c : mocaps) {
        mocapRows.Add(ORV::CValue(c.rigNodeName));
        mocapRows.Add(ORV::CValue(c.tagName));
        mocapRows.Add(ORV::CValue(c.kind));
    }
    addGrid(property, L"Mocap", MOCAP_COLUMNS, NUM_MOCAP_COLUMNS, static_cast<long>(mocaps.size()), mocapRows);

    ORV::CValueArray planeRows;
    for (const PlaneConstraint& c : planes) {
        planeRows.Add(ORV::CValue(c.upVectorName));
        planeRows.Add(ORV::CValue(c.planeName));
        planeRows.Add(ORV::CValue(c.upSign));
        planeRows.Add(ORV::CValue(c.upLength));
        appendVector(planeRows, c.rest.GetTranslation());
    }
    addGrid(property, L"Planes", PLANE_COLUMNS, NUM_PLANE_COLUMNS, static_cast<long>(planes.size()), planeRows);

    ORV::CValueArray spineRows;
    for (const SpineConstraint& c : spines) {
        spineRows.Add(ORV::CValue(c.anchorName));
        spineRows.Add(ORV::CValue(c.baseName));
        spineRows.Add(ORV::CValue(c.goalName));
        spineRows.Add(ORV::CValue(c.tagName));
        appendVector(spineRows, c.aaxis);
        appendVector(spineRows, c.aroll);
        appendVector(spineRows, c.axis);
        appendVector(spineRows, c.roll);
        appendVector(spineRows, c.atan);
        appendVector(spineRows, c.gtan);
    }
    addGrid(property, L"Spines", SPINE_COLUMNS, NUM_SPINE_COLUMNS, static_cast<long>(spines.size()), spineRows);
}

void GlueMap::cleanup(ORV::Model model) {
    ORV::Property property;
    if (Util::findCustomPSet(model, PROPERTY_NAME, property)) Util::deleteObj(property.GetFullName());
}

}  // namespace ZUK
