// The animation side of the headless host: function curves, expressions, chains and custom
// operators as scene items, and the evaluation entry points that the core, the commands and
// the scene files share. Internal to the host library.
//
// What the core calls: DeleteItem and ResetScene run the delete hooks, and the one installed
// here runs an operator's _Term before it goes.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Host.h"

namespace orvhost {

struct OperatorItem;

// ---------------------------------------------------------------------------------------------
// Function curves

// One key. Tangents are offsets from the key in (frames, value): the left one points back in
// time, the right one forward. The segment from this key to the next is interpolated as this
// key says. A key whose tangents are automatic has them recomputed whenever the keys change.
struct CurveKey {
    double time = 0.0;
    double value = 0.0;
    int interpolation = ORV::ovCubicInterpolation;
    double leftX = 0.0, leftY = 0.0, rightX = 0.0, rightY = 0.0;
    bool autoTangents = true;
    int constraints = 0;  // ovFCurveKeyConstraint bits
    std::uint64_t serial = 0;
};

struct FCurveKeyItem;

struct FCurveItem : Item {
    FCurveItem();
    ~FCurveItem() override;

    int curveType = ORV::ovStandardFCurve;
    // Interpolation of new keys; PutInterpolation also sets it on every key.
    int interpolation = ORV::ovCubicInterpolation;
    std::vector<CurveKey> keys;  // ordered by time
    int editDepth = 0;
    // Automatic tangents to recompute: all of them, or only the keys from dirtyLo to dirtyHi
    // (an added key changes its own and its neighbours' alone).
    bool tangentsDirty = false;
    bool rangeDirty = false;
    std::size_t dirtyLo = 0, dirtyHi = 0;
    std::uint64_t nextSerial = 1;
    // Handles given out for keys, made on request; a removed key's handle is deleted with it.
    std::map<std::uint64_t, std::unique_ptr<FCurveKeyItem>> keyHandles;
    // Set by the edits that take keys away, so that Changed() looks for handles to drop only
    // then: a fit that adds keys and puts tangents one by one stays linear in the keys.
    bool keysRemoved = false;

    // The value at a time (frames, subframes included). A curve without keys has no value of
    // its own: `has` is false then.
    double Eval(double time, bool* has = nullptr) const;
    // Recomputes automatic tangents when keys changed (at once, or at the end of an edit).
    void FixTangents();
    void Changed();  // after any edit of the keys: tangents, handles, revision
    // After an edit that leaves every automatic tangent as it is (an explicit tangent, a
    // constraint other than the horizontal one on a key without automatic tangents): revision.
    void TangentsEdited();
    // After an edit that marked its own tangents to recompute: handles, revision.
    void ChangedKeys();
    long FindKey(double time, double tolerance) const;  // index or -1
    long IndexOfSerial(std::uint64_t serial) const;
    // Adds or replaces a key; gives its index.
    long SetKey(double time, double value, int interpolation, double lx, double ly, double rx, double ry,
                double tolerance);
    FCurveKeyItem* Handle(long index);
};

struct FCurveKeyItem : Item {
    FCurveKeyItem(FCurveItem* curve, std::uint64_t serial);
    FCurveItem* curve;
    std::uint64_t serial;
    // The key's index when last found: tried first, since keys mostly stay where they are.
    mutable long indexHint = -1;
    CurveKey* Key() const;
};

// The default key tolerance in frames, used when a caller passes a negative one.
constexpr double kDefaultKeyTolerance = 0.5;

// Evaluates a cubic segment from key a to key b at a time between them: the Bezier curve with
// control points a, a + right(a), b + left(b), b, whose time is solved for `time`. Tangent x
// extents are clamped into the segment so that time runs forward along it.
double EvalCubicSegment(const CurveKey& a, const CurveKey& b, double time);

// ---------------------------------------------------------------------------------------------
// Expressions

struct ExprNode;

struct ExpressionItem : Item {
    ExpressionItem();
    ~ExpressionItem() override;
    std::wstring text;
    std::unique_ptr<ExprNode> tree;
};

// Parses an expression: numbers, parameter paths, + - * / and parentheses, unary signs.
// Null with a message in `error` when the text is not an expression.
std::unique_ptr<ExprNode> ParseExpression(const std::wstring& text, std::wstring& error);
// Evaluates at a time; a path that no longer names a parameter gives false.
bool EvalExpression(const ExprNode& node, double time, double& out);
// The parameters an expression reads, in order of appearance (paths as written).
void ExpressionPaths(const ExprNode& node, std::vector<std::wstring>& out);

// Puts an expression on a parameter (replacing any source); an empty text removes the
// expression. False with a message when the text does not parse.
bool SetParamExpression(ParamItem* p, const std::wstring& text, std::wstring& error);
// Replaces the parameter's source by a new empty curve.
FCurveItem* AddParamCurve(ParamItem* p, int type);
// Removes the source (curve or expression) of a parameter.
void RemoveParamSource(ParamItem* p);

// Value of a parameter from its own value or its source, before operators (no kinematics).
CValue SourceValue(ParamItem* p, double time);
// Converts a number to the parameter's value type, within its limits.
CValue NumberAsParamValue(const ParamItem* p, double v);

// True when the parameter is driven by a source of that kind (ovFCurveSource, ovAnySource,
// ovExpressionSource, ovConstraintSource, ovOperatorSource).
bool IsParamAnimated(const ParamItem* p, int sourceType);

// ---------------------------------------------------------------------------------------------
// Chains

// A chain bone's joint: parameters "roll" (degrees) and "chntype" (1 IK, 2 FK), and the
// up-vector reference that sets the bend plane.
struct JointItem : ParamItem {
    JointItem();
    std::uint64_t upVector = 0;
};

// The chain of a chain element: its root, its bones in order, its effector (any may be null).
struct ChainParts {
    Object3D* root = nullptr;
    std::vector<Object3D*> bones;
    Object3D* effector = nullptr;
};
ChainParts ChainOf(Object3D* element);
JointItem* JointOf(Object3D* bone);
double BoneLength(Object3D* bone, double time = ORV::ovNow);
long BoneIndex(Object3D* bone);

// Solves a chain at a time. `fk` are the bones' global poses from their own parameters, with
// the chain root's global pose first (fk[0] is the root, fk[i+1] bone i). Gives the bones'
// solved global poses; false when the chain is not solved (FK chain, no effector, no bones).
bool SolveChain(const ChainParts& chain, double time, std::vector<CTransformation>& bones);

// Planar solvers, exposed for tests. Positions of the joints from the root P0 to the end; the
// bend lies in the plane of `axis` (root to goal) and `bend` (unit, perpendicular to it).
// Two bones: the law of cosines. More: forward and backward reaching in the plane until the
// end lies within `tolerance` of the goal or `maxIterations` passes are done.
void SolveTwoBones(const ORV::MATH::CVector3& p0, const ORV::MATH::CVector3& goal,
                   const ORV::MATH::CVector3& bend, double l1, double l2,
                   std::vector<ORV::MATH::CVector3>& joints);
void SolveManyBones(const ORV::MATH::CVector3& p0, const ORV::MATH::CVector3& goal,
                    const ORV::MATH::CVector3& bend, const std::vector<double>& lengths,
                    const std::vector<ORV::MATH::CVector3>& restJoints, double tolerance, int maxIterations,
                    std::vector<ORV::MATH::CVector3>& joints);

// ---------------------------------------------------------------------------------------------
// Constraints

// "Position" and "Orientation" presets, also by their full names. Null for an unknown preset.
ConstraintItem* AddObjectConstraint(Object3D* obj, const std::wstring& preset, Object3D* constraining);

// ---------------------------------------------------------------------------------------------
// Operators

struct PortGroupItem : Item {
    PortGroupItem(std::wstring name) : Item(ORV::ovPortGroupID, std::move(name)) {}
    long index = 0;
    long minInstances = 1, maxInstances = 1;
    std::wstring filter, scriptFilter;
    long flags = 0;
};

struct PortItem : Item {
    PortItem(std::wstring name) : Item(ORV::ovPortID, std::move(name)) {}
    bool output = false;
    std::uint64_t target = 0;
    long group = 0;
    long index = 0;  // within its group, among ports of the same direction
    long flags = 0;
};

struct OperatorItem : Item {
    OperatorItem(std::wstring type, bool scripted);
    ~OperatorItem() override;

    std::wstring type;  // the registered name; callbacks are <type>_Init, _Update, _Term
    bool scripted = false;
    std::wstring code, language;
    bool alwaysEvaluate = false;
    bool connected = false;
    int constructionMode = 0;
    std::uint64_t connectOrder = 0;  // operators on one target run in this order
    std::vector<PortGroupItem*> groups;
    std::vector<PortItem*> ports;  // in the order they were added
    CValue userData;
    bool initDone = false;
    bool termDone = false;

    // Evaluation state.
    bool running = false;
    struct Result {
        bool written = false;
        CTransformation transform;
        CValue value;
    };
    std::map<std::uint64_t, Result> results;  // by output target id
    double cacheTime = 0.0;
    std::uint64_t cacheRevision = 0;
    std::uint64_t cachePass = 0;
    bool cacheVolatile = false;
    bool cacheValid = false;

    std::vector<PortItem*> Inputs() const;
    std::vector<PortItem*> Outputs() const;
};

// Operators connected with an output on `target`, in the order they run.
std::vector<OperatorItem*> OperatorsWriting(const Item* target);
// Whether any connected operator writes the item; allocates nothing (evaluation asks it per
// parameter per read).
bool HasOperatorsWriting(const Item* target);
// Runs an operator at a time for the output `target` whose value before the operator is
// `before`. Gives whether the operator wrote that output, and what. A read that comes back to
// a running operator gets false: the value without it.
bool RunOperatorFor(OperatorItem* op, const Item* target, double time, OperatorItem::Result& out);
// The operator whose _Update is running now, if any.
OperatorItem* RunningOperator();
// Runs _Init of a connected operator once (when its plug-in is loaded).
void InitOperator(OperatorItem* op);
// Runs _Term once.
void TermOperator(OperatorItem* op);
// Runs _Term of every operator of the scene (before the scene goes away).
void TermAllOperators();
// Connects an operator: moves it under its first output's target and starts it.
bool ConnectOperator(OperatorItem* op, int mode);
// The holder of operators that are not yet connected.
Item* PendingOperators();

// ---------------------------------------------------------------------------------------------
// Evaluation (Kinematics.cpp)

// Marks the evaluation in progress as not cacheable beyond the present pass (an operator that
// always evaluates took part).
void MarkVolatile();
// Opens a frame of the evaluation stack; closing it tells whether what was computed inside
// depended on such an operator (and passes that on to the enclosing frames).
void PushEvalFrame();
bool PopEvalFrame();
// The evaluated pose of an object at a (resolved) time.
struct EvalPose {
    CTransformation local, global;
    bool localFromParams = true;  // nothing changed the pose its parameters give
};
EvalPose EvaluateObject(Object3D* obj, double time);
// The local pose that an object's own parameters give (their values, sources and operators
// that write them), before constraints, chains and operators on the object.
CTransformation ParamLocalTransform(Object3D* obj, double time);
// The index of the evaluation pass; a pass is one read from outside the evaluation.
std::uint64_t EvaluationPass();

}  // namespace orvhost
