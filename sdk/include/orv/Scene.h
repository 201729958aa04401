// Object handles of the host's scene. Each is a thin value over a CRef; the host library
// implements the operations. Times default to the largest double, the host's "now".
#pragma once

#include <cfloat>

#include <orv/Arrays.h>
#include <orv/CBase.h>
#include <orv/CStatus.h>
#include <orv/CString.h>
#include <orv/CTime.h>
#include <orv/CValue.h>
#include <orv/Enums.h>
#include <orv/Math.h>

namespace ORV {

// The host's marker for "the current time" in every read or write at a time.
constexpr double ovNow = DBL_MAX;

class Model;
class Parameter;
class Property;
class CustomProperty;
class Kinematics;
class KinematicState;
class Primitive;
class PPGLayout;
class FCurve;
class X3DObject;
class Null;
class ChainRoot;
class ChainBone;
class ChainEffector;
class Constraint;
class Mixer;

class OVObject : public CBase {
public:
    ORV_HANDLE(OVObject, ovObjectID)
    CString GetName() const;
    // The scene path: "Model.Object"; a model under the scene root is its own name.
    CString GetFullName() const;
    CRef GetParent() const;
    CString GetType() const;
    // Renames; the host keeps names unique inside a model, so the name taken may differ.
    CStatus PutName(const CString& name);
};

class ProjectItem : public OVObject {
public:
    ORV_HANDLE(ProjectItem, ovProjectItemID)
    Model GetModel() const;
    Parameter GetParameter(const CString& scriptName) const;
    CValue GetParameterValue(const CString& scriptName, double time = ovNow) const;
    CStatus PutParameterValue(const CString& scriptName, const CValue& value, double time = ovNow);
    CRefArray GetParameters() const;
    PPGLayout GetPPGLayout() const;
    // Parameters driven by a source of the given kind (ovFCurveSource, ovAnySource, ...),
    // this item's own and, when recursive, those of its properties, kinematics and children.
    CRefArray GetAnimatedParameters(int sourceType = ovAnySource, bool recursive = true) const;
    bool IsSelected() const;
};

class SceneItem : public ProjectItem {
public:
    ORV_HANDLE(SceneItem, ovSceneItemID)
    CRefArray GetProperties() const;
    // Adds a property of a registered type or preset ("CustomProperty", "UserDataBlob",
    // "Display Property", or a plug-in property whose _Define then runs).
    Property AddProperty(const CString& type, bool branch = false, const CString& name = L"");
    CStatus AddProperty(const CString& type, bool branch, const CString& name, Property& result);
    CStatus AddCustomProperty(const CString& name, bool branch, CustomProperty& result);
};

class X3DObject : public SceneItem {
public:
    ORV_HANDLE(X3DObject, ov3DObjectID)
    Kinematics GetKinematics() const;
    CRefArray GetChildren() const;
    CRefArray GetModels(bool recursive = true) const;
    // An empty name or type matches all; an empty family list matches all families.
    // Results come in depth-first order of the hierarchy, children in creation order.
    X3DObject FindChild(const CString& name, const CString& type = L"",
                        const CStringArray& families = CStringArray(), bool recursive = true) const;
    CRefArray FindChildren(const CString& name, const CString& type = L"",
                           const CStringArray& families = CStringArray(), bool recursive = true) const;
    // Re-parents under this object, keeping each object's global pose.
    CStatus AddChild(const CRef& child);
    CStatus AddChild(const CRefArray& children);
    CStatus AddNull(const CString& name, Null& result);
    CStatus AddModel(const CRefArray& children, const CString& name, Model& result);
    // Primitive types "Cube" (parameter "length") and "Sphere" (parameter "radius").
    CStatus AddPrimitive(const CString& type, const CString& name, X3DObject& result);
    CStatus AddGeometry(const CString& primitive, const CString& converter, const CString& name,
                        X3DObject& result);
    // A NURBS curve list ("crvlist") of one curve.
    CStatus AddNurbsCurve(const MATH::CVector4Array& controlPoints, const CDoubleArray& knots, bool closed,
                          int degree, int parametrization, int format, const CString& name, X3DObject& result);
    Primitive GetActivePrimitive() const;
    // An IK chain: a root at start, a first bone ending at end, bending in the plane of normal.
    CStatus Add2DChain(const MATH::CVector3& start, const MATH::CVector3& end, const MATH::CVector3& normal,
                       const CString& name, ChainRoot& result);
};

class Model : public X3DObject {
public:
    ORV_HANDLE(Model, ovModelID)
    // The model's animation mixer; invalid unless one exists.
    Mixer GetMixer() const;
    // Host extension: makes the mixer exist (scripts that store clips call it).
    Mixer AddMixer();
};

class Null : public X3DObject {
public:
    ORV_HANDLE(Null, ovNullID)
};

class Mixer : public ProjectItem {
public:
    ORV_HANDLE(Mixer, ovMixerID)
};

class Primitive : public ProjectItem {
public:
    ORV_HANDLE(Primitive, ovPrimitiveID)
    // Control points of a curve primitive, (x, y, z, w) each.
    MATH::CVector4Array GetControlPoints() const;
};

class Parameter : public ProjectItem {
public:
    ORV_HANDLE(Parameter, ovParameterID)
    CValue GetValue(double time = ovNow) const;
    CStatus PutValue(const CValue& value, double time = ovNow);
    CString GetScriptName() const;
    CString GetDescription() const;
    ovValueType GetValueType() const;
    CValue GetDefault() const;
    CValue GetMin() const;
    CValue GetMax() const;
    CValue GetSuggestedMin() const;
    CValue GetSuggestedMax() const;
    int GetCapabilities() const;
    bool GetCapabilityFlag(int flag) const;
    CStatus PutCapabilityFlag(int flag, bool on);
    // The driver of the value: a function curve, an expression, or an invalid reference.
    CRef GetSource() const;
    // sourceType ovFCurveSource (1): a curve drives it; ovAnySource (2): anything does.
    bool IsAnimated(int sourceType = ovAnySource) const;
    CStatus AddFCurve(int type, FCurve& result);
    // Puts an expression on the parameter; an empty text removes it.
    CStatus PutExpression(const CString& text);
};

class Property : public SceneItem {
public:
    ORV_HANDLE(Property, ovPropertyID)
};

class CustomProperty : public Property {
public:
    ORV_HANDLE(CustomProperty, ovCustomPropertyID)
    CStatus AddParameter(const CString& scriptName, ovValueType type, int capabilities, const CString& label,
                         const CString& description, const CValue& defaultValue, Parameter& result);
    CStatus AddParameter(const CString& scriptName, ovValueType type, int capabilities, const CString& label,
                         const CString& description, const CValue& defaultValue, const CValue& minValue,
                         const CValue& maxValue, const CValue& suggestedMin, const CValue& suggestedMax,
                         Parameter& result);
    // A parameter whose value is a reference to a GridData table.
    Parameter AddGridParameter(const CString& scriptName);
    CStatus RemoveParameter(const Parameter& parameter);
};

// A table held by a grid parameter: GridData(parameter.GetValue()).
class GridData : public ProjectItem {
public:
    ORV_HANDLE(GridData, ovGridDataID)
    CStatus PutRowCount(long rows);
    CStatus PutColumnCount(long columns);
    long GetRowCount() const;
    long GetColumnCount() const;
    CStatus PutColumnLabel(long column, const CString& label);
    CString GetColumnLabel(long column) const;
    // The whole table as one array, row by row; the array must hold rows * columns values.
    CStatus PutData(const CValueArray& values);
    CValueArray GetData() const;
    CValueArray GetRowValues(long row) const;
    CStatus PutRowValues(long row, const CValueArray& values);
    CValue GetCell(long column, long row) const;
    CStatus PutCell(long column, long row, const CValue& value);
};

// A property ("UserDataBlob" preset) that stores an untyped byte buffer. The bytes given by
// GetValue stay owned by the blob; they are writable in place until the next PutValue.
class UserDataBlob : public Property {
public:
    ORV_HANDLE(UserDataBlob, ovUserDataBlobID)
    CStatus PutValue(const unsigned char* bytes, unsigned int size);
    CStatus GetValue(unsigned char*& bytes, unsigned int& size) const;
    CStatus GetValue(const unsigned char*& bytes, unsigned int& size) const;
    bool IsEmpty() const;
};

// An expression that drives a parameter; valid exactly when one does.
class Expression : public ProjectItem {
public:
    ORV_HANDLE(Expression, ovExpressionID)
    CString GetDefinition() const;
    // The parameter it drives.
    Parameter GetTarget() const;
};

class FCurveKey : public ProjectItem {
public:
    ORV_HANDLE(FCurveKey, ovFCurveKeyID)
    CTime GetTime() const;
    CStatus PutTime(const CTime& time);
    CValue GetValue() const;
    CStatus PutValue(const CValue& value);
    int GetInterpolation() const;
    CStatus PutInterpolation(int interpolation);
    double GetLeftTanX() const;
    double GetLeftTanY() const;
    double GetRightTanX() const;
    double GetRightTanY() const;
    CStatus PutLeftTanX(double v);
    CStatus PutLeftTanY(double v);
    CStatus PutRightTanX(double v);
    CStatus PutRightTanY(double v);
    bool GetConstraint(int kind) const;
    CStatus PutConstraint(int kind, bool on);
    long GetIndex() const;
};

// A function curve. Tangents are offsets from their key in (frames, value): the left tangent
// points back in time (negative x), the right one forward; a cubic segment from key a to key b
// is the Bezier curve with control points a, a + right(a), b + left(b), b, evaluated at a time
// by solving its x for that time (tangent x extents beyond the segment are shortened along
// their own direction to fit it, so that time runs forward). Each key's interpolation rules
// the segment that starts at it: constant holds the key's value, linear runs straight to the
// next key. Before the first key and after the last the curve keeps their values. A key added
// without tangents gets automatic ones, recomputed whenever the keys change: the slope through
// its two neighbours (at an end, the slope of its one segment), a third of the neighbouring
// interval long; putting a tangent makes the key's tangents its own. With the continuity
// constraint (4) on, putting one tangent gives the other the same slope, keeping its length in
// time.
class FCurve : public ProjectItem {
public:
    ORV_HANDLE(FCurve, ovFCurveID)
    CStatus BeginEdit();
    CStatus EndEdit();
    // Adds or replaces (within tolerance frames; negative = the host's default of 0.5) a key.
    CStatus AddKey(const CTime& time, const CValue& value, int interpolation = ovCubicInterpolation,
                   double leftTanX = DBL_MAX, double leftTanY = DBL_MAX, double rightTanX = DBL_MAX,
                   double rightTanY = DBL_MAX, bool overwrite = true, double tolerance = -1.0);
    // Replaces all keys by keys at the given times and values.
    CStatus SetKeys(const CTimeArray& times, const CValueArray& values, bool fixTangents = true);
    // Removes the keys within [from, to]; both bounds DBL_MAX means all keys.
    CStatus RemoveKeys(const CTime& from = CTime(DBL_MAX), const CTime& to = CTime(DBL_MAX), bool unused = false);
    FCurveKey GetKey(const CTime& time, double tolerance = -1.0) const;
    FCurveKey GetKeyAtIndex(long index) const;
    // Keys within [from, to]; both bounds at DBL_MAX counts the whole curve.
    long GetNumKeys(const CTime& from = CTime(DBL_MAX), const CTime& to = CTime(DBL_MAX)) const;
    bool KeyExists(const CTime& time, double tolerance = -1.0) const;
    long GetKeyIndex(const CTime& time, double tolerance = -1.0) const;
    CRefArray GetKeys() const;
    int GetInterpolation() const;
    CStatus PutInterpolation(int interpolation);
    CValue Eval(const CTime& time) const;
    // The parameter the curve drives.
    Parameter GetParent3DParameter() const;
};

class Kinematics : public ProjectItem {
public:
    ORV_HANDLE(Kinematics, ovKinematicsID)
    KinematicState GetGlobal() const;
    KinematicState GetLocal() const;
    CRefArray GetConstraints() const;
    // "Position" or "Orientation" (or their full names "Position Cns", "Orientation Cns").
    CStatus AddConstraint(const CString& preset, const CRef& constraining, Constraint& result);
};

// The global or local pose of an object. Reading at the current time evaluates whatever drives
// the object (curves, expressions, constraints, chains, operators).
class KinematicState : public Parameter {
public:
    ORV_HANDLE(KinematicState, ovKinematicStateID)
    MATH::CTransformation GetTransform(double time = ovNow) const;
    CStatus PutTransform(const MATH::CTransformation& transform, double time = ovNow);
    // The object the state belongs to.
    X3DObject GetObject() const;
    bool IsGlobal() const;
};

class Constraint : public ProjectItem {
public:
    ORV_HANDLE(Constraint, ovConstraintID)
    CRefArray GetConstraining() const;
    // The object that the constraint drives.
    X3DObject GetConstrained() const;
};

// The joint of a chain bone: its up-vector reference and the parameters "roll" and "chntype".
class Joint : public ProjectItem {
public:
    ORV_HANDLE(Joint, ovJointID)
    X3DObject GetUpVectorReference() const;
    CStatus PutUpVectorReference(const CRef& object);
};

class ChainElement : public X3DObject {
public:
    ORV_HANDLE(ChainElement, ovChainElementID)
    ChainRoot GetRoot() const;
    ChainEffector GetEffector() const;
};

class ChainRoot : public ChainElement {
public:
    ORV_HANDLE(ChainRoot, ovChainRootID)
    CRefArray GetBones() const;
    CStatus AddBone(const MATH::CVector3& end, const CString& name, ChainBone& result);
};

class ChainBone : public ChainElement {
public:
    ORV_HANDLE(ChainBone, ovChainBoneID)
    long GetIndex() const;
    Joint GetJoint() const;
    double GetLength() const;
};

class ChainEffector : public ChainElement {
public:
    ORV_HANDLE(ChainEffector, ovChainEffectorID)
};

class Project : public ProjectItem {
public:
    ORV_HANDLE(Project, ovProjectID)
    CRefArray GetProperties() const;
};

class Selection {
public:
    long GetCount() const;
    CRef operator[](long index) const;
    CRef GetItem(long index) const;
    CStatus Add(const CRef& item);
    CStatus Remove(const CRef& item);
    CStatus Clear();
    CRefArray GetArray() const;
};

}  // namespace ORV
