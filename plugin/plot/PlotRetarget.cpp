#include "plot/PlotRetarget.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "character/ModelStructure.h"
#include "core/BezierCurve.h"
#include "glue/GlueMap.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
ORV::Application app;

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

constexpr double kDegrees = 57.29577951308;
// Relative spread below which a channel's values differ by rounding only.
constexpr double kRoundingNoise = 1e-9;

ORV::Property playControl() {
    return ORV::Property(app.GetActiveProject().GetProperties().GetItem(L"Play Control"));
}

// The global pose of the object's parent; identity for an object without one.
ORV::KinematicState parentGlobalState(const ORV::X3DObject& object) {
    ORV::X3DObject parent(object.GetParent());
    if (!parent.IsValid()) return ORV::KinematicState();
    return parent.GetKinematics().GetGlobal();
}

CTransformation transformOf(const ORV::KinematicState& state) {
    return state.IsValid() ? state.GetTransform() : CTransformation();
}

bool isChainElement(const ORV::X3DObject& object) { return object.IsA(ORV::ovChainElementID); }

// Index of the channel in NodeKeyTiming's order, or -1.
int keyTimingChannel(const ORV::CString& channel) {
    for (int c = 0; c < NodeKeyTiming::NUM_CHANNELS; ++c)
        if (channel == ORV::CString(NodeKeyTiming::CHANNEL_NAMES[c])) return c;
    return -1;
}

// Whether a decomposition names an object that takes channels. A structure read back from a
// model counts a decompose block's empty channels as a target, which the first tag without an
// override answers; that entry decomposes nothing, and its node stays driven whole, as the live
// operators drive it.
bool decomposes(const DecompMap& d) { return !d.tagName.IsEmpty() && d.object.IsValid(); }

int decompositionsOf(const NodeMap& node) {
    int count = 0;
    for (const DecompMap& d : node.decomps)
        if (decomposes(d)) ++count;
    return count;
}

// Whether `node` occurs in the plane's bones.
bool inBones(const ModelStructure::Plane& plane, int node) {
    for (long b = 0; b < plane.bones.GetCount(); ++b)
        if (plane.bones[b] == node) return true;
    return false;
}

// Keeps the host's progress bar and command log as they were on every way out of the plot.
class PlotScope {
public:
    explicit PlotScope(ORV::ProgressBar bar) : bar_(bar), logWas_(Util::logCommands(false)) {}
    ~PlotScope() {
        bar_.PutVisible(false);
        Util::logCommands(logWas_);
    }
    PlotScope(const PlotScope&) = delete;
    PlotScope& operator=(const PlotScope&) = delete;

private:
    ORV::ProgressBar bar_;
    bool logWas_;
};
}  // namespace

// ---- PlotData -----------------------------------------------------------------------------

PlotData::PlotData(int frames_, int items_)
    : frames(frames_ > 0 ? frames_ : 0),
      items(items_ > 0 ? items_ : 0),
      data(new CTransformation[static_cast<size_t>(frames) * static_cast<size_t>(items) + 1]) {}

PlotData::~PlotData() { delete[] data; }

// ---- Construction -------------------------------------------------------------------------

PlotRetarget::PlotRetarget(ORV::Model model_, bool preserve_, bool inflection_, bool interval_, int step_,
                           int start_, int end_)
    : start(start_),
      end(end_),
      preserve(preserve_),
      inflection(inflection_),
      interval(interval_),
      step(step_),
      model(model_) {
    const int F = frameCount();
    if (model.IsValid()) {
        structure = ModelStructure::CreateFromCustomProperty(model);
        if (structure) {
            map = new ModelMap(model, structure);
            map->LoadFromCustomProperty();
            glue = GlueMap::CreateFromCustomProperty(model);
            if (glue) glue->applyToModel(model, map);
        }
        op = RetargetOp::GetRetargetOpPointer(model);
    }

    int nodeItems = 0, decompItems = 0, segmentItems = 0, planeItems = 0;
    if (glue) {
        for (const MocapConstraint& c : glue->mocaps) {
            if (!c.object.IsValid()) continue;
            ++nodeItems;
            if (c.ownNodeIndex >= 0 && c.ownNodeIndex < static_cast<int>(map->nodes.size()))
                decompItems += decompositionsOf(map->nodes[static_cast<size_t>(c.ownNodeIndex)]);
        }
        planeItems = static_cast<int>(glue->planes.size());
        for (const SpineConstraint& s : glue->spines) segmentItems += s.numNodes > 0 ? s.numNodes : 0;
    }
    nodeData = new PlotData(F, nodeItems);
    upVectorData = new PlotData(F, planeItems);
    spineData = new PlotData(F, segmentItems);
    decompData = new PlotData(F, decompItems);
    const int planes = structure ? structure->numPlanes : 0;
    planted = new unsigned char[static_cast<size_t>(F) * static_cast<size_t>(planes) + 1]();
    scratchValues = new double[static_cast<size_t>(F) + 1];
    scratchFlags = new bool[static_cast<size_t>(F) + 1];
    for (ORV::CValueArray* a : {&rotx, &roty, &rotz, &posx, &posy, &posz}) a->Resize(F);
}

PlotRetarget::~PlotRetarget() {
    delete nodeData;
    delete upVectorData;
    delete spineData;
    delete decompData;
    delete[] planted;
    delete[] scratchValues;
    delete[] scratchFlags;
    // The glue refers to the map, the map to the structure.
    delete glue;
    delete map;
    delete structure;
}

CTransformation PlotRetarget::baseOf(const CTransformation& neutral, const CTransformation& parentGlobal) {
    CTransformation base;
    base.Mul(neutral, parentGlobal);
    return base;
}

int PlotRetarget::limbPlane(int constraint) const {
    const MocapConstraint& c = glue->mocaps[static_cast<size_t>(constraint)];
    const int n = c.ownNodeIndex;
    if (n < 0 || n >= structure->numNodes) return -1;
    const bool chain = isChainElement(c.object);
    const int parent = structure->nodes[n].Parent;
    for (int p = 0; p < structure->numPlanes; ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        if ((!chain && inBones(plane, n)) || chain) return p;
        if (plane.Span == n || (parent >= 0 && plane.Span == parent)) return p;
    }
    return -1;
}

// ---- The plot -----------------------------------------------------------------------------

void PlotRetarget::plot() {
    if (!model.IsValid()) {
        app.LogMessage(L"PlotRetargetMotion: there is no model to plot.", 4);
        return;
    }
    if (!structure || !map || !glue) {
        app.LogMessage(L"PlotRetargetMotion: " + model.GetName() +
                           L" has no retarget setup to plot; tag the rig and retarget it first.",
                       4);
        return;
    }
    if (end <= start) {
        app.LogMessage(L"PlotRetargetMotion: the end frame must come after the start frame.", 4);
        return;
    }
    if (interval && step < 1) {
        app.LogMessage(L"PlotRetargetMotion: interval keys need a step of 1 or more.", 4);
        return;
    }
    const int F = frameCount();

    // 1. The bar, and whether keys fall on every frame. In sparse mode a limb's bones must not be
    // baked from their solved pose, or their curves would not interpolate into a straight foot
    // path: the goal is keyed, and the bones are solved from it last.
    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    PlotScope scope(bar);
    bar.PutStep(1);
    bar.PutValue(0);
    bar.PutVisible(true);
    const bool sparse = interval ? step != 1 : (preserve || inflection);

    // 2. The poses.
    extractLocal(bar, sparse);

    // 3. Fitting.
    bar.PutValue(0);
    bar.PutMaximum(static_cast<long>(F) * (nodeData->items + upVectorData->items + spineData->items) + F);
    bar.PutCaption(L"Fitting Curves ...");

    // 4. Objects outside the limbs, and decompositions.
    const int constraints = static_cast<int>(glue->mocaps.size());
    int item = 0, decompItem = 0;
    for (int c = 0; c < constraints; ++c) {
        const MocapConstraint& mc = glue->mocaps[static_cast<size_t>(c)];
        if (!mc.object.IsValid()) continue;
        const int index = item++;
        const int n = mc.ownNodeIndex;
        const bool hasNode = n >= 0 && n < structure->numNodes;
        const ORV::CString name = hasNode ? structure->nodes[n].Name : mc.tagName;
        if (hasNode && decompositionsOf(map->nodes[static_cast<size_t>(n)]) > 0) {
            for (const DecompMap& d : map->nodes[static_cast<size_t>(n)].decomps)
                if (decomposes(d)) fitDecompValues(decompItem++, name, d, bar);
            continue;
        }
        if (sparse && limbPlane(c) >= 0) continue;
        // A spine's driver stays dense: the spine is solved from it on every frame.
        bool spineDriver = false;
        if (hasNode && map->nodes[static_cast<size_t>(n)].object.IsValid()) {
            const ORV::CString objectName = map->nodes[static_cast<size_t>(n)].object.GetName();
            for (const SpineConstraint& s : glue->spines)
                if (s.anchorName == objectName) spineDriver = true;
        }
        const bool keptInterval = interval;
        const int keptStep = step;
        if (spineDriver) {
            interval = true;
            step = 1;
        }
        fitMocapValues(index, name, static_cast<DofType>(mc.kind), mc.object, bar, -1);
        interval = keptInterval;
        step = keptStep;
    }

    // 5. Up-vectors.
    for (size_t i = 0; i < glue->planes.size(); ++i) {
        const PlaneConstraint& pc = glue->planes[i];
        const int p = pc.planeIndex;
        const ORV::CString planeName =
            (p >= 0 && p < structure->numPlanes) ? structure->planes[p].Name : pc.planeName;
        fitUpVValues(static_cast<int>(i), planeName + ModelMap::UPVECTORTAG, pc.object, bar);
    }

    // 6. Spines.
    int segment = 0;
    for (const SpineConstraint& s : glue->spines)
        for (int k = 0; k < s.numNodes; ++k) fitSpineValues(segment++, s.segments[k].object, bar);

    // 7. The limbs, from their goals.
    if (sparse) {
        extractEndEffectorLocal();
        item = 0;
        for (int c = 0; c < constraints; ++c) {
            const MocapConstraint& mc = glue->mocaps[static_cast<size_t>(c)];
            if (!mc.object.IsValid()) continue;
            const int index = item++;
            const int plane = limbPlane(c);
            if (plane < 0) continue;
            const int n = mc.ownNodeIndex;
            const bool hasNode = n >= 0 && n < structure->numNodes;
            if (hasNode && decompositionsOf(map->nodes[static_cast<size_t>(n)]) > 0) continue;
            const ORV::CString name = hasNode ? structure->nodes[n].Name : mc.tagName;
            fitMocapValues(index, name, static_cast<DofType>(mc.kind), mc.object, bar, plane);
        }
    }

    // 8. The keys replace the live retarget. The cleanup looks for the main operator under
    // another name than the one it is installed with; left behind, it would play from the blob
    // that the cleanup just deleted, so it goes by its own name too.
    RetargetOp::cleanupRetargetOp(model);
    ORV::CustomOperator main;
    if (Util::findCustomOp(model.GetKinematics().GetLocal().GetFullName(), L"RetargetOp", main))
        Util::deleteObj(main.GetFullName());
    op = nullptr;
}

// ---- Reading the poses --------------------------------------------------------------------

void PlotRetarget::extractLocal(ORV::ProgressBar bar, bool sparse) {
    const int F = frameCount();
    bar.PutValue(0);
    bar.PutMaximum(F);
    bar.PutCaption(L"Calculating Local Transforms ...");

    // Everything the frame loop needs, looked up once.
    struct Driven {
        ORV::KinematicState global, parentGlobal;
        CTransformation neutral;
        // Sparse roles: the plane whose anchor this is, the plane whose goal (or goal's child)
        // this is; -1 for none. `goal` when it is the plane's span itself.
        int anchorPlane = -1, spanPlane = -1;
        bool goal = false;
        double threshold = 0.0;
    };
    std::vector<Driven> nodes, decomps, ups, segments;
    for (const MocapConstraint& c : glue->mocaps) {
        if (!c.object.IsValid()) continue;
        Driven d;
        d.global = c.object.GetKinematics().GetGlobal();
        d.parentGlobal = parentGlobalState(c.object);
        d.neutral = c.neutralPose;
        const int n = c.ownNodeIndex;
        if (n >= 0 && n < structure->numNodes) {
            for (const DecompMap& m : map->nodes[static_cast<size_t>(n)].decomps) {
                if (!decomposes(m)) continue;
                Driven e;
                e.global = m.object.GetKinematics().GetGlobal();
                e.parentGlobal = parentGlobalState(m.object);
                Util::extractNeutralPose(m.object, e.neutral);
                decomps.push_back(e);
            }
            if (sparse) {
                const int parent = structure->nodes[n].Parent;
                for (int p = 0; p < structure->numPlanes && d.anchorPlane < 0; ++p)
                    if (!isChainElement(c.object) && structure->planes[p].AnchorIndex == n) d.anchorPlane = p;
                if (d.anchorPlane < 0) {
                    for (int p = 0; p < structure->numPlanes && d.spanPlane < 0; ++p) {
                        const int span = structure->planes[p].Span;
                        if (span == n || (parent >= 0 && span == parent)) {
                            d.spanPlane = p;
                            d.goal = span == n;
                            if (span >= 0 && span < static_cast<int>(map->nodes.size()))
                                d.threshold = 0.001 * map->nodes[static_cast<size_t>(span)].length;
                        }
                    }
                }
            }
        }
        nodes.push_back(d);
    }
    for (const PlaneConstraint& c : glue->planes) {
        Driven d;
        if (c.object.IsValid()) {
            d.global = c.object.GetKinematics().GetGlobal();
            d.parentGlobal = parentGlobalState(c.object);
        }
        d.neutral = c.neutralPose;
        ups.push_back(d);
    }
    for (const SpineConstraint& s : glue->spines) {
        for (int k = 0; k < s.numNodes; ++k) {
            Driven d;
            if (s.segments[k].object.IsValid()) {
                d.global = s.segments[k].object.GetKinematics().GetGlobal();
                d.parentGlobal = parentGlobalState(s.segments[k].object);
            }
            d.neutral = s.segments[k].neutralPose;
            segments.push_back(d);
        }
    }
    // Without a live operator the normal comes from the map as it was stored.
    ModelMap* normals = (op && op->modelMap) ? op->modelMap : map;

    ORV::Property play = playControl();
    const ORV::CValue current = play.GetParameterValue(L"Current");
    for (int f = start; f < end; ++f) {
        const int i = f - start;
        play.PutParameterValue(L"Current", static_cast<double>(f));
        Util::ForceGlobalEvaluationOnAllNodes(model);

        for (size_t k = 0; k < nodes.size(); ++k) {
            const Driven& d = nodes[k];
            const int item = static_cast<int>(k);
            CTransformation& entry = nodeData->local(item, i);
            if (d.anchorPlane >= 0) {
                entry = CTransformation();
                entry.SetTranslation(normals->planeMap(d.anchorPlane)->normal);
            } else if (d.spanPlane >= 0) {
                entry = d.global.GetTransform();
                if (d.goal) {
                    unsigned char* flags =
                        planted + static_cast<size_t>(d.spanPlane) * static_cast<size_t>(end - start);
                    flags[i] = 0;
                    if (f > start) {
                        const CVector3& now = entry.GetTranslation();
                        const CVector3& before = nodeData->local(item, i - 1).GetTranslation();
                        if (std::fabs(now.x - before.x) < d.threshold &&
                            std::fabs(now.y - before.y) < d.threshold &&
                            std::fabs(now.z - before.z) < d.threshold) {
                            flags[i - 1] = 1;
                            flags[i] = 1;
                        }
                    }
                }
            } else {
                entry = ORV::MATH::MapWorldPoseToObjectSpace(baseOf(d.neutral, transformOf(d.parentGlobal)),
                                                             d.global.GetTransform());
            }
        }
        for (size_t k = 0; k < decomps.size(); ++k) {
            const Driven& d = decomps[k];
            if (!d.global.IsValid()) continue;
            decompData->local(static_cast<int>(k), i) = ORV::MATH::MapWorldPoseToObjectSpace(
                baseOf(d.neutral, transformOf(d.parentGlobal)), d.global.GetTransform());
        }
        for (size_t k = 0; k < ups.size(); ++k) {
            const Driven& d = ups[k];
            if (!d.global.IsValid()) continue;
            upVectorData->local(static_cast<int>(k), i) = ORV::MATH::MapWorldPoseToObjectSpace(
                baseOf(d.neutral, transformOf(d.parentGlobal)), d.global.GetTransform());
        }
        for (size_t k = 0; k < segments.size(); ++k) {
            const Driven& d = segments[k];
            if (!d.global.IsValid()) continue;
            spineData->local(static_cast<int>(k), i) = ORV::MATH::MapWorldPoseToObjectSpace(
                baseOf(d.neutral, transformOf(d.parentGlobal)), d.global.GetTransform());
        }
        bar.Increment(1);
    }
    play.PutParameterValue(L"Current", current);
    Util::ForceGlobalEvaluationOnAllNodes(model);
}

void PlotRetarget::extractEndEffectorLocal() {
    // The limb is solved where the operators keep their pose; without them, in the stored map.
    const bool live = op && op->modelMap;
    ModelMap* ik = live ? op->modelMap : map;

    struct Limb {
        int item = -1, constraint = -1, node = -1;
        ORV::KinematicState global, parentGlobal;
        CTransformation neutral;
        // Whether the node lies past the limb's bones (a goal's child): it keeps its stored pose.
        bool pastBones = false;
    };
    struct Ends {
        int item = -1, node = -1;
        ORV::KinematicState global;
        std::vector<int> anchorOf, spanOf;
    };
    std::vector<Limb> limbs;
    std::vector<Ends> ends;
    int item = 0;
    const int constraints = static_cast<int>(glue->mocaps.size());
    for (int c = 0; c < constraints; ++c) {
        const MocapConstraint& mc = glue->mocaps[static_cast<size_t>(c)];
        if (!mc.object.IsValid()) continue;
        const int index = item++;
        const int n = mc.ownNodeIndex;
        if (n < 0 || n >= structure->numNodes) continue;
        Ends e;
        e.item = index;
        e.node = n;
        e.global = mc.object.GetKinematics().GetGlobal();
        if (!isChainElement(mc.object)) {
            for (int p = 0; p < structure->numPlanes; ++p) {
                if (structure->planes[p].AnchorIndex == n) e.anchorOf.push_back(p);
                if (structure->planes[p].Span == n) e.spanOf.push_back(p);
            }
        }
        if (!e.anchorOf.empty() || !e.spanOf.empty()) ends.push_back(e);
        const int plane = limbPlane(c);
        if (plane < 0) continue;
        Limb l;
        l.item = index;
        l.constraint = c;
        l.node = n;
        l.global = e.global;
        l.parentGlobal = parentGlobalState(mc.object);
        l.neutral = mc.neutralPose;
        l.pastBones = !inBones(structure->planes[plane], n);
        limbs.push_back(l);
    }
    // Without limb objects there is nothing to solve, and no need to play the range again.
    if (limbs.empty()) return;
    std::vector<CTransformation> solved(limbs.size());

    ORV::Property play = playControl();
    const ORV::CValue current = play.GetParameterValue(L"Current");
    for (int f = start; f < end; ++f) {
        const int i = f - start;
        play.PutParameterValue(L"Current", static_cast<double>(f));
        Util::ForceGlobalEvaluationOnAllNodes(model);

        // First pass: anchors and goals into the map, and the limbs solved from them.
        for (size_t k = 0; live && k < ends.size(); ++k) {
            const Ends& e = ends[k];
            for (size_t a = 0; a < e.anchorOf.size(); ++a) {
                ik->planeMap(e.anchorOf[a])->normal = nodeData->local(e.item, i).GetTranslation();
                ik->nodeMap(e.node)->global = e.global.GetTransform();
            }
            if (!e.spanOf.empty()) {
                ik->nodeMap(e.node)->global = nodeData->local(e.item, i);
                ik->solveIK();
            }
        }
        // The solved poses are taken before the scene is written: a write makes the operators
        // evaluate again, and they fill their map anew.
        for (size_t k = 0; k < limbs.size(); ++k) solved[k] = ik->nodeMap(limbs[k].node)->global;

        // Second pass: every object of a limb gets its pose, stored relative to its neutral pose.
        for (size_t k = 0; k < limbs.size(); ++k) {
            Limb& l = limbs[k];
            const CTransformation base = baseOf(l.neutral, transformOf(l.parentGlobal));
            if (!live) {
                // With no operator the scene already shows the pose to keep, and writing it back
                // would only make the host evaluate the rig again.
                nodeData->local(l.item, i) =
                    ORV::MATH::MapWorldPoseToObjectSpace(base, l.global.GetTransform());
                continue;
            }
            CTransformation pose;
            if (l.pastBones) {
                pose = nodeData->local(l.item, i);
            } else {
                pose = solved[k];
                pose.SetTranslation(l.global.GetTransform().GetTranslation());
            }
            l.global.PutTransform(pose);
            nodeData->local(l.item, i) = ORV::MATH::MapWorldPoseToObjectSpace(base, pose);
        }
    }
    play.PutParameterValue(L"Current", current);
    Util::ForceGlobalEvaluationOnAllNodes(model);
}

// ---- Channels -----------------------------------------------------------------------------

namespace {
// After the first frame each angle is kept within half a turn of the previous frame's, so the
// curve does not jump; x, y, z hold the previous frame's angles and receive this frame's.
void keepContinuous(const CVector3& angles, bool first, double& x, double& y, double& z) {
    if (first) {
        x = angles.x;
        y = angles.y;
        z = angles.z;
    } else {
        x = Util::enforceContinuity(angles.x, x);
        y = Util::enforceContinuity(angles.y, y);
        z = Util::enforceContinuity(angles.z, z);
    }
}

// The Euler angles of q in the object's rotation order, in radians, continuous over frames.
void continuousAngles(const ORV::MATH::CQuaternion& q, int order, bool first, double& x, double& y, double& z) {
    ORV::MATH::CRotation r;
    r.PutRotationOrder(static_cast<ORV::MATH::RotationOrder>(order));
    r.SetFromQuaternion(q);
    keepContinuous(r.GetXYZAngles(), first, x, y, z);
}
}  // namespace

void PlotRetarget::fitMocapValues(int item, ORV::CString name, DofType dof, ORV::X3DObject object,
                                  ORV::ProgressBar bar, int plane) {
    const int F = frameCount();
    const bool rotation = dof == ROTATION_AND_POSITION || dof == ROTATION_ONLY;
    const bool position = dof == ROTATION_AND_POSITION || dof == POSITION_ONLY;
    const int order = object.GetKinematics().GetLocal().GetParameterValue(L"rotorder");
    double x = 0.0, y = 0.0, z = 0.0;
    for (int i = 0; i < F; ++i) {
        const CTransformation& entry = nodeData->local(item, i);
        if (rotation) {
            continuousAngles(entry.GetRotationQuaternion(), order, i == 0, x, y, z);
            rotx[i] = x * kDegrees;
            roty[i] = y * kDegrees;
            rotz[i] = z * kDegrees;
        }
        if (position) {
            const CVector3& t = entry.GetTranslation();
            posx[i] = t.x;
            posy[i] = t.y;
            posz[i] = t.z;
        }
        bar.Increment(1);
    }
    if (rotation) {
        fitFCurve(object, name, rotx, L"rotx", -1);
        fitFCurve(object, name, roty, L"roty", -1);
        fitFCurve(object, name, rotz, L"rotz", -1);
    }
    if (position) {
        fitFCurve(object, name, posx, L"posx", plane);
        fitFCurve(object, name, posy, L"posy", plane);
        fitFCurve(object, name, posz, L"posz", plane);
    }
}

void PlotRetarget::fitUpVValues(int item, ORV::CString name, ORV::X3DObject object, ORV::ProgressBar bar) {
    if (!object.IsValid()) return;
    const int F = frameCount();
    for (int i = 0; i < F; ++i) {
        const CVector3& t = upVectorData->local(item, i).GetTranslation();
        posx[i] = t.x;
        posy[i] = t.y;
        posz[i] = t.z;
        bar.Increment(1);
    }
    fitFCurve(object, name, posx, L"posx", -1);
    fitFCurve(object, name, posy, L"posy", -1);
    fitFCurve(object, name, posz, L"posz", -1);
}

void PlotRetarget::fitSpineValues(int item, ORV::X3DObject object, ORV::ProgressBar bar) {
    if (!object.IsValid()) return;
    const int F = frameCount();
    const int order = object.GetKinematics().GetLocal().GetParameterValue(L"rotorder");
    double x = 0.0, y = 0.0, z = 0.0;
    for (int i = 0; i < F; ++i) {
        continuousAngles(spineData->local(item, i).GetRotationQuaternion(), order, i == 0, x, y, z);
        rotx[i] = x * kDegrees;
        roty[i] = y * kDegrees;
        rotz[i] = z * kDegrees;
        bar.Increment(1);
    }
    // Spine segments carry no structure name of their own, so no source key timing reaches them.
    fitFCurve(object, ORV::CString(), rotx, L"rotx", -1);
    fitFCurve(object, ORV::CString(), roty, L"roty", -1);
    fitFCurve(object, ORV::CString(), rotz, L"rotz", -1);
}

void PlotRetarget::fitDecompValues(int item, ORV::CString name, const DecompMap& decomp, ORV::ProgressBar) {
    ORV::X3DObject object = decomp.object;
    if (!decomposes(decomp)) return;
    const int F = frameCount();
    const unsigned int mask = decomp.mask;
    const bool usePosX = (mask & DECOMP_PX) != 0;
    const bool usePosY = (mask & DECOMP_PY) != 0;
    const bool usePosZ = (mask & DECOMP_PZ) != 0;
    const bool useRotY = (mask & DECOMP_RY) != 0;
    const bool useRotXZ = (mask & DECOMP_RX) != 0 && (mask & DECOMP_RZ) != 0;
    double x = 0.0, y = 0.0, z = 0.0;
    for (int i = 0; i < F; ++i) {
        const CTransformation& entry = decompData->local(item, i);
        CVector3 angles(x, y, z);
        if (useRotY) {
            // The heading of the X axis alone; the other two angles are left as they were.
            const ORV::MATH::CMatrix3 m = entry.GetRotationMatrix3();
            angles.y = -std::atan2(m.Get(0, 2), m.Get(0, 0));
        } else {
            Util::getEulerAngles(entry, angles);
        }
        keepContinuous(angles, i == 0, x, y, z);
        rotx[i] = x * kDegrees;
        roty[i] = y * kDegrees;
        rotz[i] = z * kDegrees;
        const CVector3& t = entry.GetTranslation();
        posx[i] = t.x;
        posy[i] = t.y;
        posz[i] = t.z;
    }
    if (useRotXZ) fitFCurve(object, name, rotx, L"rotx", -1);
    if (useRotY) fitFCurve(object, name, roty, L"roty", -1);
    if (useRotXZ) fitFCurve(object, name, rotz, L"rotz", -1);
    if (usePosX) fitFCurve(object, name, posx, L"posx", -1);
    if (usePosY) fitFCurve(object, name, posy, L"posy", -1);
    if (usePosZ) fitFCurve(object, name, posz, L"posz", -1);
}

void PlotRetarget::fitFCurve(ORV::X3DObject object, ORV::CString nodeName, ORV::CValueArray& values,
                             ORV::CString channel, int plane) {
    const int F = frameCount();
    // 1. Raw.
    if ((interval && step == 1) || (!preserve && !inflection && !interval)) {
        fitRaw(object, values, channel);
        return;
    }

    // 2. The values, and the tolerance from their range.
    double low = 0.0, high = 0.0;
    for (int i = 0; i < F; ++i) {
        const double v = values[i];
        scratchValues[i] = v;
        if (i == 0 || v < low) low = v;
        if (i == 0 || v > high) high = v;
    }
    // A channel that changes by rounding alone is constant: noise in the last digits of a
    // matrix inverse would otherwise read as sudden slope changes and make keys.
    const double scale = std::max(1.0, std::max(std::fabs(high), std::fabs(low)));
    if (high - low <= kRoundingNoise * scale) {
        std::fill(scratchValues, scratchValues + F, scratchValues[0]);
        low = high = scratchValues[0];
    }
    const double tolerance = (high - low) * 0.03;

    // 3. Frames that must take a key.
    std::fill(scratchFlags, scratchFlags + F, false);
    if (inflection) BezierCurve::findKeyCurveFeatures(scratchValues, scratchFlags, F, tolerance);
    if (interval && step > 0)
        for (int i = 0; i < F; i += step) scratchFlags[i] = true;
    if (plane >= 0 && structure && plane < structure->numPlanes) {
        const unsigned char* flags = planted + static_cast<size_t>(plane) * static_cast<size_t>(F);
        for (int i = 0; i < F; ++i)
            if (flags[i]) scratchFlags[i] = true;
    }

    // 4. The curve.
    ORV::Parameter parameter = object.GetKinematics().GetLocal().GetParameter(channel);
    ORV::FCurve curve;
    if (parameter.AddFCurve(ORV::ovStandardFCurve, curve) != ORV::CStatus::OK || !curve.IsValid()) return;

    // 5. Features: the flagged frames and both ends.
    auto buildFeatures = [&](ORV::CDoubleArray& out) {
        out.Clear();
        for (int i = 0; i < F; ++i)
            if (i == 0 || i == F - 1 || scratchFlags[i]) out.Add(static_cast<double>(i));
    };
    ORV::CDoubleArray features;
    buildFeatures(features);

    // 6. The source's own key times, moved to the insertion frame.
    bool sourceKeys = false;
    if (preserve && op && op->keyTimings && !nodeName.IsEmpty()) {
        const int c = keyTimingChannel(channel);
        for (int k = 0; k < op->keyTimingCount && c >= 0; ++k) {
            const NodeKeyTiming& timing = op->keyTimings[k];
            if (timing.name != nodeName) continue;
            const ORV::CDoubleArray& times = timing.times[c];
            if (times.GetCount() == 0) break;
            std::vector<double> moved;
            moved.reserve(static_cast<size_t>(times.GetCount()));
            for (long t = 0; t < times.GetCount(); ++t)
                moved.push_back(static_cast<double>(op->insertionFrame) + times[t] -
                                static_cast<double>(start));
            std::sort(moved.begin(), moved.end());
            ORV::CDoubleArray merged;
            long a = 0;
            size_t b = 0;
            auto push = [&](double t) {
                if (t < 0.0) return;
                if (merged.GetCount() > 0 && merged[merged.GetCount() - 1] == t) return;
                merged.Add(t);
            };
            while (a < features.GetCount() || b < moved.size()) {
                if (b >= moved.size() || (a < features.GetCount() && features[a] <= moved[b]))
                    push(features[a++]);
                else
                    push(moved[b++]);
            }
            features = merged;
            sourceKeys = true;
            break;
        }
    }

    // 7. No source keys and no other mode: keys where the shape asks for them.
    if (!sourceKeys && !interval && !inflection) {
        BezierCurve::findKeyCurveFeatures(scratchValues, scratchFlags, F, tolerance);
        buildFeatures(features);
    }

    // 8. Keys exactly on the features, each stretch with its best tangents.
    BezierCurve::curveKeyFit(scratchValues, F, start, features, curve, -1.0);
}

void PlotRetarget::fitRaw(ORV::X3DObject object, ORV::CValueArray& values, ORV::CString channel) {
    const int F = frameCount();
    ORV::CTimeArray times(F);
    for (int i = 0; i < F; ++i) times[i] = ORV::CTime(static_cast<double>(start + i));
    ORV::Parameter parameter = object.GetKinematics().GetLocal().GetParameter(channel);
    ORV::FCurve curve;
    if (parameter.AddFCurve(ORV::ovStandardFCurve, curve) != ORV::CStatus::OK || !curve.IsValid()) return;
    curve.PutInterpolation(ORV::ovLinearInterpolation);
    curve.SetKeys(times, values);
}

}  // namespace ZUK
