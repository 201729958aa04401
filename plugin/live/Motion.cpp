#include "live/Motion.h"

#include <cfloat>
#include <cmath>
#include <vector>

#include "character/ModelStructure.h"
#include "modelmap/ModelMap.h"

namespace ZUK {

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

namespace {
// A step of the source foot below this share of its bone length counts as planted.
constexpr double PLANTED_THRESHOLD = 0.005;
// Frames over which a released foot returns to its own path.
constexpr long BLEND_FRAMES = 4;
// A normal shorter than this came from a straight limb.
constexpr double BROKEN_NORMAL = 0.5;
constexpr int FREE_TYPE = 3;
}  // namespace

double mysign(double value) {
    if (value < 0.0) return -1.0;
    if (value > 0.0) return 1.0;
    return 0.0;
}

Motion::Motion(long frameCount, ModelMap* target, ModelMap* source)
    : frames(frameCount < 0 ? 0 : frameCount), targetMap(target), sourceMap(source) {
    if (target && target->structure) {
        numNodes = target->structure->numNodes;
        numPlanes = target->structure->numPlanes;
    }
    const size_t f = static_cast<size_t>(frames);
    globalBlock = new CTransformation[static_cast<size_t>(numNodes) * f];
    localBlock = new CTransformation[static_cast<size_t>(numNodes) * f];
    normalBlock = new CVector3[static_cast<size_t>(numPlanes) * f];
    goalBlock = new CVector3[static_cast<size_t>(numPlanes) * f];
    globalPoses = new CTransformation*[static_cast<size_t>(numNodes)];
    localPoses = new CTransformation*[static_cast<size_t>(numNodes)];
    for (long n = 0; n < numNodes; ++n) {
        globalPoses[n] = globalBlock + static_cast<size_t>(n) * f;
        localPoses[n] = localBlock + static_cast<size_t>(n) * f;
    }
    planeNormals = new CVector3*[static_cast<size_t>(numPlanes)];
    goalPositions = new CVector3*[static_cast<size_t>(numPlanes)];
    maxReach = new double[static_cast<size_t>(numPlanes)];
    for (long p = 0; p < numPlanes; ++p) {
        planeNormals[p] = normalBlock + static_cast<size_t>(p) * f;
        goalPositions[p] = goalBlock + static_cast<size_t>(p) * f;
        maxReach[p] = 0.0;
    }
}

Motion::~Motion() {
    delete[] globalPoses;
    delete[] localPoses;
    delete[] planeNormals;
    delete[] goalPositions;
    delete[] maxReach;
    delete[] globalBlock;
    delete[] localBlock;
    delete[] normalBlock;
    delete[] goalBlock;
}

int Motion::goalSource(long plane) {
    return targetMap->nodeMap(targetMap->structure->planes[plane].Span)->translationSource;
}

void Motion::RecordPoseFromModelMap(long frame) {
    if (frame < 0 || frame >= frames) return;
    for (long n = 0; n < numNodes; ++n) {
        NodeMap* node = targetMap->nodeMap(static_cast<int>(n));
        globalPoses[n][frame] = node->global;
        localPoses[n][frame] = node->local;
    }
    for (long p = 0; p < numPlanes; ++p) {
        planeNormals[p][frame] = targetMap->planeMap(static_cast<int>(p))->normal;
        const int source = goalSource(p);
        if (source >= 0 && sourceMap)
            goalPositions[p][frame] = sourceMap->nodeMap(source)->global.GetTranslation();
    }
}

void Motion::ProcessFootMovement() {
    const ModelStructure* structure = targetMap->structure;
    int friction = 0;
    for (long n = 0; n < numNodes; ++n)
        if (structure->nodes[n].Friction) ++friction;
    if (friction > 2) {
        processBounds();
        processQuadFeet();
    } else {
        ScaleFeetLift();
        ClampFootMotionWhilePlanted();
    }
    InterpollateBrokenPlaneNormals();
}

void Motion::ScaleFeetLift() {
    const ModelStructure* structure = targetMap->structure;
    const double ratio = targetMap->legLength / sourceMap->legLength;
    for (long p = 0; p < numPlanes; ++p) {
        const int goal = structure->planes[p].Span;
        if (!structure->nodes[goal].Friction || !ModelMap::InheritsTranslationFromCOG(targetMap, goal))
            continue;
        for (long f = 0; f < frames; ++f) globalPoses[goal][f].SetPosY(ratio * goalPositions[p][f].GetY());
    }
}

// After a run of held frames on `axis` that closed at frame i, carries the foot back to its
// unclamped path over the next frames, keeping it within the limb's reach of its anchor.
void Motion::blendBack(long plane, int axis, long i, double reach) {
    const ModelStructure::Plane& limb = targetMap->structure->planes[plane];
    CTransformation* goal = globalPoses[limb.Span];
    const CTransformation* anchor = globalPoses[limb.AnchorIndex];
    const long blend = frames > i + BLEND_FRAMES ? BLEND_FRAMES : frames - i;
    const double a = goal[i - 1].GetTranslation()[axis];
    const double b = goal[i + blend - 1].GetTranslation()[axis];
    for (long k = 1; k <= blend; ++k) {
        const long g = i + k - 1;
        CVector3 v = goal[g].GetTranslation();
        v[axis] = a + (static_cast<double>(k) / static_cast<double>(blend)) * (b - a);
        const CVector3 d = v - anchor[g].GetTranslation();
        const double length = d.GetLength();
        if (length > reach) v = anchor[g].GetTranslation() + d * (reach / length);
        goal[g].SetTranslation(v);
    }
}

void Motion::ClampFootMotionWhilePlanted() {
    const ModelStructure* structure = targetMap->structure;
    // Positions become per-frame steps first, for every plane with a source counterpart.
    for (long p = 0; p < numPlanes; ++p) {
        if (goalSource(p) < 0 || frames == 0) continue;
        CVector3* steps = goalPositions[p];
        for (long f = frames - 1; f > 0; --f) steps[f] -= steps[f - 1];
        steps[0].SetNull();
    }
    const double scale = targetMap->legLength / sourceMap->legLength;
    for (long p = 0; p < numPlanes; ++p) {
        const int source = goalSource(p);
        if (source < 0) continue;
        const int goalNode = structure->planes[p].Span;
        const double threshold = PLANTED_THRESHOLD * sourceMap->nodeMap(source)->length;
        const double reach = targetMap->nodeMap(goalNode)->length;
        const CVector3* delta = goalPositions[p];
        CTransformation* goal = globalPoses[goalNode];
        long start[3] = {-1, -1, -1};
        for (long i = 1; i <= frames; ++i) {
            for (int a = 0; a < 3; ++a) {
                if (i < frames && std::fabs(delta[i][a]) < threshold) {
                    if (start[a] == -1) start[a] = i;
                    continue;
                }
                if (start[a] == -1) continue;
                // The target foot repeats the source's small steps, scaled, from where it stood
                // before the run, instead of drifting with the frame-by-frame retarget.
                for (long f = start[a]; f < i; ++f) {
                    CVector3 t = goal[f].GetTranslation();
                    t[a] = goal[f - 1].GetTranslation()[a] + scale * delta[f][a];
                    goal[f].SetTranslation(t);
                }
                start[a] = -1;
                if (i == frames) continue;
                blendBack(p, a, i, reach);
            }
        }
    }
}

void Motion::computeMap(long plane, short axis, double& srcStart, double& tgtStart, double& scale,
                        long& startFrame, long& endFrame, long newEndFrame) {
    startFrame = endFrame;
    endFrame = newEndFrame;
    double s = 0.0, t = 0.0, a = 0.0, b = 0.0, c = 0.0, d = 0.0;
    if (axis < 0 || axis > 2) {
        srcStart = DBL_MAX;
        tgtStart = DBL_MAX;
    } else {
        const int goal = targetMap->structure->planes[plane].Span;
        a = goalPositions[plane][startFrame][axis];
        b = goalPositions[plane][endFrame][axis];
        c = globalPoses[goal][startFrame].GetTranslation()[axis];
        d = globalPoses[goal][endFrame].GetTranslation()[axis];
        srcStart = a;
        tgtStart = c;
        // Excursions in leg lengths.
        s = (b - a) / sourceMap->legLength;
        t = (d - c) / targetMap->legLength;
    }
    // Where the source hardly moved the target must not move more, and it never moves the
    // other way: the target's excursion becomes the source's.
    if ((std::fabs(t) > std::fabs(s) && std::fabs(s) < 0.25) || mysign(s) != mysign(t))
        d = c + s * targetMap->legLength;
    scale = std::fabs(s) > 1e-7 ? (d - c) / (b - a) : 1.0;
}

void Motion::processBounds() {
    const ModelStructure* structure = targetMap->structure;
    for (long p = 0; p < numPlanes; ++p) {
        if (goalSource(p) < 0) continue;
        const int goal = structure->planes[p].Span;
        const int anchor = structure->planes[p].AnchorIndex;
        const double length = targetMap->nodeMap(goal)->length;
        double reach = 0.0;
        for (long f = 0; f < frames; ++f) {
            const CVector3 d =
                globalPoses[anchor][f].GetTranslation() - globalPoses[goal][f].GetTranslation();
            double dy = d.GetY();
            const double dl = d.GetLength();
            if (dl > length) dy *= length / dl;
            if (std::fabs(dy) > reach) reach = std::fabs(dy);
        }
        maxReach[p] = reach;
        if (frames == 0) continue;

        // Turning points of the source path; a new minimum is not also a maximum candidate.
        long minFrame[3] = {0, 0, 0}, maxFrame[3] = {0, 0, 0};
        for (int a = 0; a < 3; ++a) {
            double low = DBL_MAX, high = -DBL_MAX;
            for (long f = 0; f < frames; ++f) {
                const double v = goalPositions[p][f][a];
                if (v < low) {
                    low = v;
                    minFrame[a] = f;
                } else if (v > high) {
                    high = v;
                    maxFrame[a] = f;
                }
            }
        }
        std::vector<long> keys[3];
        for (int a = 0; a < 3; ++a) {
            keys[a].push_back(0);
            if (minFrame[a] < maxFrame[a]) {
                if (minFrame[a] > 0) keys[a].push_back(minFrame[a]);
                keys[a].push_back(maxFrame[a]);
            } else {
                if (maxFrame[a] > 0) keys[a].push_back(maxFrame[a]);
                keys[a].push_back(minFrame[a]);
            }
            keys[a].push_back(frames - 1);
        }

        double srcStart[3], tgtStart[3], scale[3];
        long startFrame[3] = {0, 0, 0}, endFrame[3] = {0, 0, 0};
        size_t next[3] = {1, 1, 1};
        for (short a = 0; a < 3; ++a)
            computeMap(p, a, srcStart[a], tgtStart[a], scale[a], startFrame[a], endFrame[a], keys[a][0]);
        for (long f = 0; f < frames; ++f) {
            const CVector3& src = goalPositions[p][f];
            globalPoses[goal][f].SetTranslation(
                CVector3((src.GetX() - srcStart[0]) * scale[0] + tgtStart[0],
                         (src.GetY() - srcStart[1]) * scale[1] + tgtStart[1],
                         (src.GetZ() - srcStart[2]) * scale[2] + tgtStart[2]));
            // The next segment starts from the target position just written, so they join.
            for (short a = 0; a < 3; ++a) {
                if (f == endFrame[a] && next[a] < keys[a].size()) {
                    computeMap(p, a, srcStart[a], tgtStart[a], scale[a], startFrame[a], endFrame[a],
                               keys[a][next[a]]);
                    ++next[a];
                }
            }
        }
    }
}

long Motion::FindSemiFreeNode(long node) {
    const ModelStructure* structure = targetMap->structure;
    if (node <= 0 || node >= numNodes) return 0;
    long n = node;
    // Bounded so that a looped hierarchy cannot hang the walk.
    for (long steps = 0; steps <= numNodes; ++steps) {
        if (structure->nodes[n].Type == FREE_TYPE) return structure->nodes[n].Parent;
        n = structure->nodes[n].Parent;
        if (n <= 0 || n >= numNodes) return 0;
    }
    return 0;
}

void Motion::processQuadFeet() {
    if (frames == 0) return;
    const ModelStructure* structure = targetMap->structure;
    std::vector<double> hold(static_cast<size_t>(numNodes), 0.0);
    long reference = -1;
    for (long p = 0; p < numPlanes && reference < 0; ++p) {
        const int goal = structure->planes[p].Span;
        if (structure->nodes[goal].Friction && ModelMap::InheritsTranslationFromCOG(targetMap, goal))
            reference = p;
    }
    double lift = 0.0;
    if (reference >= 0) {
        const int refGoal = structure->planes[reference].Span;
        long a = 0;
        for (long f = 1; f < frames; ++f)
            if (goalPositions[reference][f].GetY() < goalPositions[reference][a].GetY()) a = f;
        const double ratio = targetMap->nodeMap(refGoal)->length / sourceMap->nodeMap(refGoal)->length;
        for (long p = 0; p < numPlanes; ++p) {
            if (p == reference) continue;
            const int goal = structure->planes[p].Span;
            const int anchor = structure->planes[p].AnchorIndex;
            if (!structure->nodes[goal].Friction || ModelMap::InheritsTranslationFromCOG(targetMap, goal))
                continue;
            long b = 0;
            for (long f = 1; f < frames; ++f)
                if (globalPoses[goal][f].GetPosY() < globalPoses[goal][b].GetPosY()) b = f;
            // The difference between the lowest heights of the two feet is made the source's.
            const double offset = (goalPositions[p][b].GetY() - goalPositions[reference][a].GetY()) * ratio -
                                  (globalPoses[goal][b].GetPosY() - globalPoses[refGoal][a].GetPosY());
            for (long f = 0; f < frames; ++f)
                globalPoses[goal][f].SetPosY(globalPoses[goal][f].GetPosY() + offset);
            const long semiFree = FindSemiFreeNode(goal);
            if (semiFree > 0) {
                double maxGap = 0.0;
                for (long f = 0; f < frames; ++f) {
                    const double gap =
                        std::fabs(globalPoses[anchor][f].GetPosY() - globalPoses[goal][f].GetPosY());
                    if (gap > maxGap) maxGap = gap;
                }
                const double room = maxReach[p] - maxGap;
                double& h = hold[static_cast<size_t>(semiFree)];
                if (h == 0.0 || h > room) h = room;
            }
        }
        double lowSource = goalPositions[reference][0].GetY();
        double lowTarget = globalPoses[refGoal][0].GetPosY();
        for (long f = 1; f < frames; ++f) {
            if (goalPositions[reference][f].GetY() < lowSource)
                lowSource = goalPositions[reference][f].GetY();
            if (globalPoses[refGoal][f].GetPosY() < lowTarget) lowTarget = globalPoses[refGoal][f].GetPosY();
        }
        lift = lowSource * targetMap->legLength / sourceMap->legLength - lowTarget;
    }
    // A held node is lifted alone: its descendants are world poses, and the goals are placed.
    for (long n = 0; n < numNodes; ++n) {
        const double h = hold[static_cast<size_t>(n)];
        if (h <= 0.0) continue;
        for (long f = 0; f < frames; ++f) globalPoses[n][f].SetPosY(globalPoses[n][f].GetPosY() + h);
    }
    for (long n = 0; n < numNodes; ++n)
        for (long f = 0; f < frames; ++f) globalPoses[n][f].SetPosY(globalPoses[n][f].GetPosY() + lift);
}

void Motion::InterpollateBrokenPlaneNormals() {
    const ModelStructure* structure = targetMap->structure;
    for (long p = 0; p < numPlanes; ++p) {
        CVector3* normals = planeNormals[p];
        const CTransformation* anchor = globalPoses[structure->planes[p].AnchorIndex];
        long broken = -1;
        for (long f = 0; f < frames; ++f) {
            if (normals[f].GetLength() < BROKEN_NORMAL) {
                if (broken == -1) broken = f;
                continue;
            }
            if (broken == -1) continue;
            if (broken == 0) {
                // Nothing good before the run: the normal follows the anchor's rotation back.
                CTransformation inverse;
                inverse.Invert(anchor[f]);
                CVector3 local;
                local.MulByMatrix3(normals[f], inverse.GetRotationMatrix3());
                for (long k = 0; k < f; ++k) normals[k].MulByMatrix3(local, anchor[k].GetRotationMatrix3());
            } else {
                const long count = f - broken;
                const CVector3 before = normals[broken - 1];
                for (long i = 1; i <= count; ++i) {
                    const double t = static_cast<double>(i) / static_cast<double>(count + 1);
                    CVector3& n = normals[broken + i - 1];
                    n = before * (1.0 - t) + normals[f] * t;
                    n.NormalizeInPlace();
                }
            }
            broken = -1;
        }
        if (broken >= 1)
            for (long f = broken; f < frames; ++f) normals[f] = normals[broken - 1];
    }
}

}  // namespace ZUK
