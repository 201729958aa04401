// The headless host's in-memory scene. Every item the SDK can name (objects, properties,
// parameters, curves, operators, UI records, ...) is an Item registered in one slot table;
// a CRef is its slot and generation, so a deleted item stops resolving at once.
#pragma once

#include <orv/ORV.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvhost {

using ORV::CRef;
using ORV::CString;
using ORV::CValue;
using ORV::CValueArray;
using ORV::MATH::CTransformation;

struct Item;
struct Object3D;
struct PropertyItem;
struct ParamItem;
struct KineItem;
struct KineStateItem;

// ---------------------------------------------------------------------------------------------
// Items

struct Item {
    explicit Item(int classId, std::wstring name = L"");
    virtual ~Item();
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;

    std::uint64_t id = 0;
    int classId = ORV::ovObjectID;
    std::wstring name;
    // Structural owner: the item whose path this item's path extends, and which deletes it.
    Item* owner = nullptr;
    // Items this one owns and deletes (properties, parameters, kinematics, curves, ...).
    std::vector<std::unique_ptr<Item>> owned;
    // Free-form values kept by the host for the item (UI attributes, context data).
    std::map<std::wstring, CValue> attributes;

    bool IsA(int cid) const;
    CRef Ref() const { return CRef::FromId(id); }
    // The segment this item adds to a scene path: its name without spaces.
    std::wstring PathSegment() const;

    // Adds an owned item and gives it back typed.
    template <class T>
    T* Own(std::unique_ptr<T> item) {
        T* raw = item.get();
        raw->owner = this;
        owned.push_back(std::move(item));
        return raw;
    }
    // Deletes an owned item (and everything it owns). False if it is not owned here.
    bool Disown(Item* item);
};

// The class id a class id derives from, 0 at the top.
int ParentClassId(int classId);

// A parameter: a typed value with capabilities, limits and an optional driving source.
struct ParamItem : Item {
    ParamItem(std::wstring name, ORV::ovValueType type, int classId = ORV::ovParameterID);
    ORV::ovValueType type = ORV::ovDouble;
    int caps = ORV::ovPersistable | ORV::ovAnimatable;
    CValue value, def, min, max, smin, smax;
    std::wstring label, description;
    // Driving source (owned): an FCurve or an Expression item, or null.
    Item* source = nullptr;
    // Sub-parameters in order (a kinematic state's posx, ...).
    std::vector<ParamItem*> params;

    ParamItem* AddParam(const std::wstring& name, ORV::ovValueType type, const CValue& value);
    ParamItem* FindParam(const std::wstring& name) const;
    // Stores a value, clamped to [min, max] when limits are set and converted to the type.
    bool Store(const CValue& v);
};

// A grid table, the value of a grid parameter.
struct GridItem : Item {
    GridItem() : Item(ORV::ovGridDataID, L"GridData") {}
    // A table larger than this many rows, columns or cells is refused rather than allocated.
    static constexpr long kMaxSize = 1L << 24;
    static bool Fits(long r, long c) {
        return r >= 0 && c >= 0 && r <= kMaxSize && c <= kMaxSize && (c == 0 || r <= kMaxSize / c);
    }
    long rows = 0, cols = 0;
    std::vector<std::wstring> labels;
    std::vector<CValue> data;  // row by row
    void Reshape(long r, long c);
};

// A property: custom property, user data blob, display, visibility, a plug-in property type,
// or a scene-wide property of the project.
struct PropertyItem : Item {
    PropertyItem(std::wstring type, std::wstring name, int classId);
    std::wstring type;  // "CustomProperty", "UserDataBlob", "Display Property", plug-in type...
    std::vector<ParamItem*> params;
    std::vector<unsigned char> blob;  // user data blobs only
    bool blobSet = false;

    ParamItem* AddParam(const std::wstring& name, ORV::ovValueType type, const CValue& value);
    ParamItem* FindParam(const std::wstring& name) const;
    bool RemoveParam(ParamItem* p);
};

struct KineStateItem : ParamItem {
    KineStateItem(bool global)
        : ParamItem(global ? L"global" : L"local", ORV::ovRef, ORV::ovKinematicStateID), global(global) {}
    bool global;
    Object3D* object = nullptr;
};

struct ConstraintItem : Item {
    ConstraintItem(std::wstring name) : Item(ORV::ovConstraintID, std::move(name)) {}
    // "Position Cns" or "Orientation Cns".
    std::vector<std::uint64_t> constraining;
};

struct KineItem : Item {
    KineItem() : Item(ORV::ovKinematicsID, L"kine") {}
    KineStateItem* local = nullptr;
    KineStateItem* global = nullptr;
    std::vector<ConstraintItem*> constraints;
};

// A 3D object: model, null, mesh primitive, curve list, chain element.
struct Object3D : Item {
    Object3D(int classId, std::wstring type, std::wstring name);
    std::wstring type;  // "#model", "null", "polymsh", "crvlist", "root", "bone", "eff"
    std::wstring family;
    Object3D* parent3D = nullptr;
    std::vector<Object3D*> children;  // owned through `owned` of this object
    KineItem* kine = nullptr;
    Item* primitive = nullptr;  // owned; its params hold "length", "radius"
    std::vector<PropertyItem*> properties;
    Item* mixer = nullptr;
    std::vector<ORV::MATH::CVector4> controlPoints;  // curve lists

    bool IsModel() const { return classId == ORV::ovModelID; }
    // The nearest model above (the scene root for objects under it); the root has none.
    Object3D* Model() const;
    ParamItem* LocalParam(const std::wstring& name) const;
};

// The context of one plug-in callback. "Arguments" and "ReturnValue" live in `attributes`.
struct ContextItem : Item {
    ContextItem() : Item(ORV::ovContextID, L"Context") {}
    CRef source;  // what the callback is about: command, menu, operator, property
    // Where Get/PutUserData read and write: an operator's lasting slot, or this context's own.
    CValue* userData = &ownUserData;
    CValue ownUserData;
    double time = 0.0;  // operator and event contexts: the time of the evaluation
};

// ---------------------------------------------------------------------------------------------
// The registry of all items

class Store {
public:
    std::uint64_t Register(Item* item);
    void Unregister(Item* item);
    Item* Resolve(std::uint64_t id) const;
    Item* Resolve(const CRef& ref) const { return Resolve(ref.GetId()); }
    template <class T>
    T* As(const CRef& ref, int classId) const {
        Item* it = Resolve(ref);
        return it && it->IsA(classId) ? static_cast<T*>(it) : nullptr;
    }

private:
    struct Slot {
        Item* item = nullptr;
        std::uint32_t generation = 0;
    };
    std::vector<Slot> m_slots{Slot{}};  // slot 0 is never used: id 0 is the invalid reference
    std::vector<std::uint32_t> m_free;
};

Store& TheStore();

// ---------------------------------------------------------------------------------------------
// The scene and the host state around it

struct MessageBoxRecord {
    std::wstring text;
    std::wstring caption;
    long flags = 0;
    long result = 0;
};

struct LogEntry {
    std::wstring text;
    int severity;
};

// A scripted answer for a dialog: message boxes take an int, pickers an object path, browsers
// a file path; an empty CValue means "cancel".
struct Scene {
    Scene();
    ~Scene();
    std::unique_ptr<Object3D> root;
    std::unique_ptr<Item> project;      // owns the project properties ("Play Control")
    std::unique_ptr<Item> preferences;  // "preferences.scripting.cmdlog"
    std::vector<std::uint64_t> selection;
    std::uint64_t revision = 1;
};

// The most entries a record of the host keeps (log lines, questions, message boxes).
constexpr std::size_t kRecordLimit = 100000;

// Appends to a bounded record: when it is full, its oldest half goes first (amortised cost of
// one move per entry).
template <typename T>
void AppendBounded(std::vector<T>& record, T entry) {
    if (record.size() >= kRecordLimit)
        record.erase(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(kRecordLimit / 2));
    record.push_back(std::move(entry));
}

struct Host {
    std::unique_ptr<Scene> scene;
    // The lines logged since the last ClearLog, while recordLog is on; at most kRecordLimit of
    // them (the oldest half goes when the record is full), so that a long session stays small.
    std::vector<LogEntry> log;
    bool recordLog = true;
    // Receives every log line as it is written (the front end prints it).
    std::function<void(const LogEntry&)> logSink;
    // Installation locations 1..4.
    std::map<int, std::wstring> installPaths;
    std::wstring version = L"1.0.0";
    // Scripted answers, consumed first in first out; every question asked is logged.
    std::vector<CValue> answers;
    std::vector<std::wstring> questions;
    // Every message box shown, with its caption and flags, in order.
    std::vector<MessageBoxRecord> messageBoxes;
    // Progress bar drawn on a terminal (stderr) when set; silent otherwise.
    bool drawProgress = false;
    std::unique_ptr<Item> uiRoot;  // owns progress bar, layouts, views, COM objects

    // Called for an item and each item it owns just before they are deleted (operators run
    // their _Term from here).
    std::vector<std::function<void(Item*)>> deleteHooks;

    void Log(const std::wstring& text, int severity);
    void Touch() {
        if (scene) ++scene->revision;
    }
};

Host& TheHost();

// Replaces the scene by an empty one (scene root, project with "Play Control", preferences)
// and drops selection, views and layouts. The old scene's operators and plug-in properties
// hear their _Term first. Plug-ins stay loaded. The front end also ends its session with it.
void ResetScene();

// Notes a read of a kinematic state's transform for a TransformReadRecorder of HostTesting.h,
// when one lives; nothing otherwise.
void NoteTransformRead(const Item* state, double time);

// Root of the active scene.
Object3D* Root();
Item* Project();
PropertyItem* PlayControl();

// ---------------------------------------------------------------------------------------------
// Scene operations shared by the SDK handles, the commands and the scene files

// The full scene path of any item ("Model.Obj.kine.local.posx"); empty for null.
std::wstring FullName(const Item* item);
// Resolves a scene path; null when nothing matches.
Item* FindByPath(const std::wstring& path);
// The object that an item belongs to (itself for objects), null otherwise.
Object3D* OwningObject(const Item* item);

// Makes a name unique inside the model that will own an object under `parent`.
std::wstring UniqueName(Object3D* parent, const std::wstring& wanted, const Object3D* self = nullptr);
Object3D* CreateObject(Object3D* parent, int classId, const std::wstring& type, const std::wstring& name);
// As CreateObject, for a caller that has made a non-empty name unique in its model itself (an
// importer filling a new model): the model's names are not searched, which keeps a large
// import linear.
Object3D* CreateObjectWithUniqueName(Object3D* parent, int classId, const std::wstring& type,
                                     const std::wstring& name);
// Deletes an object with its whole branch; everything referring to it stops resolving.
void DeleteItem(Item* item);
// Re-parents keeping the global pose.
bool Reparent(Object3D* obj, Object3D* newParent);
// Depth-first walk of the 3D objects below `from` (not `from` itself), children in order.
void WalkObjects(Object3D* from, bool recursive, const std::function<void(Object3D*)>& visit);
bool MatchesFamilies(const Object3D* obj, const ORV::CStringArray& families);

PropertyItem* AddPropertyTo(Item* owner, const std::wstring& type, const std::wstring& name);
PropertyItem* FindProperty(const Item* owner, const std::wstring& name);

// Kinematics. The global pose is local * neutral * parent global (row convention).
CTransformation LocalTransform(Object3D* obj, double time);
CTransformation NeutralTransform(Object3D* obj, double time);
CTransformation GlobalTransform(Object3D* obj, double time);
void PutLocalTransform(Object3D* obj, const CTransformation& t, double time);
void PutGlobalTransform(Object3D* obj, const CTransformation& t, double time);

// Parameter values at a time: static value or what drives it.
CValue ParamValue(ParamItem* p, double time);
// Stores a value (or keys it on the parameter's curve); false, changing nothing, when the
// parameter cannot take the value (see AcceptsValue).
bool PutParamValue(ParamItem* p, const CValue& v, double time);
// Whether a parameter can take a value: text parameters take any value (as its text), number
// and bool parameters take numbers, bools and text that reads as a number, vector parameters
// vectors and their text; nothing takes an empty value.
bool AcceptsValue(const ParamItem* p, const CValue& v);

// The current frame of Play Control, used for the time "now" (DBL_MAX).
double CurrentFrame();
// The current frame stands for the time being evaluated while an operator runs: what it reads
// "now" is its own evaluation time, not the play head.
double ResolveTime(double time);
// The evaluation time of the innermost running operator; false when none runs.
bool RunningEvaluationTime(double& time);

}  // namespace orvhost
