#include "shell/Util.h"

#include <cfloat>

namespace ZUK {
namespace Util {

namespace {

ORV::Application app;

// The host's marker for "the current time" in every time argument.
const double kNow = DBL_MAX;

ORV::CStringArray threeDFamily() {
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    return families;
}

// All 3D objects under `object`, recursively, in the host's walk order.
ORV::CRefArray allObjectsUnder(const ORV::X3DObject& object) {
    return object.FindChildren(L"", L"", threeDFamily(), true);
}

ORV::CStatus run(const ORV::CString& command, ORV::CValueArray& args, ORV::CValue& result) {
    return app.ExecuteCommand(command, args, result);
}

ORV::CStatus run(const ORV::CString& command, ORV::CValueArray& args) {
    ORV::CValue result;
    return run(command, args, result);
}

// The model a selected item stands for: the item itself when it is a model, else its model.
ORV::Model modelOfItem(const ORV::CRef& item) {
    if (ORV::OVObject(item).GetType() == L"#model") {
        return ORV::Model(item);
    }
    return ORV::ProjectItem(item).GetModel();
}

bool containsRef(const ORV::CRefArray& array, const ORV::CRef& ref) {
    for (long i = 0; i < array.GetCount(); ++i) {
        if (array[i] == ref) {
            return true;
        }
    }
    return false;
}

bool hasProperty(const ORV::X3DObject& object, const ORV::CString& name) {
    ORV::Property property;
    return findCustomPSet(object, name, property);
}

}  // namespace

// ---- Finding things -------------------------------------------------------------------------

ORV::Model getSingleModel() {
    ORV::Model root = app.GetActiveSceneRoot();
    ORV::CRefArray objects = allObjectsUnder(root);
    ORV::CRefArray models;
    for (long i = 0; i < objects.GetCount(); ++i) {
        if (objects[i].IsA(ORV::ovModelID) && ORV::Model(objects[i]) != root) {
            models.Add(objects[i]);
        }
    }
    if (models.GetCount() == 1) {
        return ORV::Model(models[0]);
    }

    ORV::Selection selection = app.GetSelection();
    if (selection.GetCount() == 0) {
        return ORV::Model();
    }
    ORV::CRef item = selection[0];
    bool itemIsModel = ORV::OVObject(item).GetType() == L"#model";
    ORV::Model candidate = modelOfItem(item);
    // A selected root comes back as itself, an object under the root as nothing: kept so.
    if (candidate == root && !itemIsModel) {
        return ORV::Model();
    }
    return candidate;
}

void getSelectedModels(ORV::CRefArray& models) {
    models.Clear();
    ORV::CString rootName = app.GetActiveSceneRoot().GetFullName();
    ORV::Selection selection = app.GetSelection();
    for (long i = 0; i < selection.GetCount(); ++i) {
        ORV::Model model = modelOfItem(selection[i]);
        if (!model.IsValid() || model.GetFullName() == rootName) {
            continue;
        }
        if (!containsRef(models, model.GetRef())) {
            models.Add(model.GetRef());
        }
    }
}

void getSelectedModels(ORV::CRefArray& models, const ORV::CString& propertyName, bool onlySelected) {
    models.Clear();
    ORV::Model root = app.GetActiveSceneRoot();
    ORV::CRefArray objects = allObjectsUnder(root);
    for (long i = 0; i < objects.GetCount(); ++i) {
        if (!objects[i].IsA(ORV::ovModelID)) {
            continue;
        }
        ORV::Model model(objects[i]);
        if (model.GetParent() == root.GetRef() && hasProperty(model, propertyName)) {
            models.Add(objects[i]);
        }
    }
    if (models.GetCount() == 0) {
        return;
    }

    ORV::Selection selection = app.GetSelection();
    if (onlySelected) {
        models.Clear();
        ORV::CString rootName = root.GetFullName();
        for (long i = 0; i < selection.GetCount(); ++i) {
            ORV::Model model = modelOfItem(selection[i]);
            if (!model.IsValid() || model.GetFullName() == rootName) {
                continue;
            }
            if (hasProperty(model, propertyName) && !containsRef(models, model.GetRef())) {
                models.Add(model.GetRef());
            }
        }
        return;
    }

    for (long i = 0; i < selection.GetCount(); ++i) {
        ORV::Model model = modelOfItem(selection[i]);
        for (long j = 0; j < models.GetCount(); ++j) {
            if (ORV::Model(models[j]) == model && hasProperty(model, propertyName)) {
                models.Clear();
                models.Add(model.GetRef());
                return;
            }
        }
    }
}

ORV::Model findModel(ORV::CString name) {
    ORV::Model root = app.GetActiveSceneRoot();
    ORV::CRefArray objects = allObjectsUnder(root);
    for (long i = 0; i < objects.GetCount(); ++i) {
        if (!objects[i].IsA(ORV::ovModelID)) {
            continue;
        }
        ORV::Model model(objects[i]);
        if (model.GetParent() == root.GetRef() && model.GetName() == name) {
            return model;
        }
    }
    return ORV::Model();
}

bool findCustomPSet(const ORV::X3DObject& object, const ORV::CString& name, ORV::Property& property) {
    ORV::CRefArray properties = object.GetProperties();
    for (long i = 0; i < properties.GetCount(); ++i) {
        property = ORV::Property(properties[i]);
        if (property.GetName() == name) {
            return true;
        }
    }
    return false;
}

bool findCustomOp(ORV::CString objectPath, ORV::CString operatorName, ORV::CustomOperator& op) {
    if (objectPath.IsEmpty()) {
        return false;
    }
    ORV::CValueArray args;
    args.Add(objectPath);
    ORV::CValue result;
    run(L"EnumElements", args, result);
    const ORV::CValueArray& elements = result;
    for (long i = 0; i < elements.GetCount(); ++i) {
        ORV::CRef ref = elements[i];
        if (!ref.IsA(ORV::ovCustomOperatorID)) {
            continue;
        }
        ORV::CustomOperator candidate(ref);
        if (candidate.GetName() == operatorName) {
            op = candidate;
            return true;
        }
    }
    return false;
}

bool FindStringInArray(ORV::CStringArray& array, const ORV::CString& text) {
    for (long i = 0; i < array.GetCount(); ++i) {
        if (array[i] == text) {
            return true;
        }
    }
    return false;
}

int CountSeparatingBones(ORV::X3DObject node, ORV::X3DObject ancestor) {
    ORV::Model model = node.GetModel();
    ORV::X3DObject current = node;
    int steps = 0;
    while (current.IsValid()) {
        // The model test comes first, so the model itself as ancestor gives -1.
        if (current == model) {
            return -1;
        }
        if (current == ancestor) {
            return steps;
        }
        ORV::X3DObject parent(current.GetParent());
        if (parent == current) {
            break;
        }
        current = parent;
        ++steps;
    }
    return -1;
}

ORV::X3DObject getMasterNode(ORV::X3DObject& object) {
    ORV::X3DObject result = object;
    ORV::CRefArray constraints = object.GetKinematics().GetConstraints();
    for (long i = 0; i < constraints.GetCount(); ++i) {
        ORV::Constraint constraint(constraints[i]);
        ORV::CString name = constraint.GetName();
        if (name != L"Position Cns" && name != L"Orientation Cns") {
            continue;
        }
        ORV::CRefArray constraining = constraint.GetConstraining();
        if (constraining.GetCount() != 1) {
            continue;
        }
        result = ORV::X3DObject(constraining[0]);
        if (result.IsValid()) {
            result = getMasterNode(result);
        }
    }
    return result;
}

ORV::CString SubString(ORV::CString text, int first, int last) {
    int length = static_cast<int>(text.Length());
    if (last <= 0 || last > length) {
        last = length;
    }
    ORV::CString result;
    for (int i = first < 0 ? 0 : first; i < last; ++i) {
        result += text[i];
    }
    return result;
}

// ---- Script command wrappers ----------------------------------------------------------------

ORV::CStatus deleteObj(ORV::CString name) {
    ORV::CValueArray args;
    args.Add(name);
    return run(L"DeleteObj", args);
}

bool deleteModel(const ORV::CString& name) {
    ORV::X3DObject found = app.GetActiveSceneRoot().FindChild(name, L"", ORV::CStringArray(), true);
    if (!found.IsValid()) {
        return false;
    }
    deleteObj(L"B:" + name);
    return true;
}

void clearAnim(ORV::Model model) {
    ORV::CValueArray select;
    select.Add(model.GetRef());
    select.Add(ORV::CString(L"BRANCH"));
    run(L"SelectObj", select);

    // Works on the selection: the object argument stays empty.
    ORV::CValueArray remove;
    remove.Add(ORV::CValue());
    remove.Add(ORV::CValue());
    remove.Add(3);
    remove.Add(3);
    remove.Add(128);
    run(L"RemoveAllAnimation", remove);

    if (model.GetMixer().IsValid()) {
        ORV::CValueArray enumArgs;
        enumArgs.Add(model.GetName() + L".Mixer.AnimTracks");
        ORV::CValue tracks;
        run(L"EnumElements", enumArgs, tracks);
        const ORV::CValueArray& elements = tracks;
        for (long i = 0; i < elements.GetCount(); ++i) {
            ORV::CValueArray del;
            del.Add(elements[i]);
            run(L"DeleteObj", del);
        }
    }

    ORV::CValueArray none;
    run(L"DeselectAll", none);
}

void clearNodeAnim(ORV::X3DObject node) {
    ORV::CValueArray args;
    args.Add(node.GetFullName());
    args.Add(0);
    args.Add(3);
    args.Add(1);
    args.Add(128);
    run(L"RemoveAllAnimation", args);
}

ORV::CValue getConstrainedObjects(const ORV::CValue& object, const ORV::CRef& constraint) {
    ORV::CValueArray args;
    args.Add(object);
    args.Add(constraint);
    ORV::CValue result;
    run(L"GetConstrainedObjects", args, result);
    return result;
}

ORV::CValue getSkeleton(const ORV::CValue& object, ORV::CValue& root) {
    ORV::CValueArray args;
    args.Add(object);
    args.Add(ORV::CValue());
    ORV::CValue result;
    run(L"GetSkeleton", args, result);
    root = args[1];
    return result;
}

bool logCommands(bool on) {
    const ORV::CString path(L"preferences.scripting.cmdlog");
    ORV::CValueArray getArgs;
    getArgs.Add(path);
    ORV::CValue old;
    run(L"GetValue", getArgs, old);

    ORV::CValueArray setArgs;
    setArgs.Add(path);
    setArgs.Add(on);
    run(L"SetValue", setArgs);
    return static_cast<bool>(old);
}

ORV::CStatus frame(const ORV::CString& propertyName) {
    ORV::CRefArray models;
    getSelectedModels(models, propertyName, false);
    for (long i = 0; i < models.GetCount(); ++i) {
        ORV::CValueArray select;
        select.Add(ORV::Model(models[i]).GetName());
        select.Add(ORV::CString(L"BRANCH"));
        run(L"SelectObj", select);
    }
    ORV::CValueArray frameArgs;
    if (models.GetCount() > 0) {
        frameArgs.Add(0);
    }
    run(L"FrameAll", frameArgs);
    ORV::CValueArray none;
    return run(L"DeselectAll", none);
}

bool inspectObj(const ORV::CValue& object, const ORV::CString& keywords, const ORV::CString& title,
                const ORV::CValue& mode, bool throwOnCancel) {
    ORV::CValueArray args;
    args.Add(object);
    args.Add(keywords);
    args.Add(title);
    args.Add(mode);
    args.Add(throwOnCancel);
    ORV::CValue cancelled;
    run(L"InspectObj", args, cancelled);
    return !static_cast<bool>(cancelled);
}

// ---- Asking the user ------------------------------------------------------------------------

long alert(const ORV::CString& text) {
    app.LogMessage(text, 4);
    long result = 0;
    app.GetUIToolkit().MsgBox(text, ORV::ovMsgExclamation, L"ZUKRetarget", result);
    return result;
}

bool QueryYesNo(const ORV::CString& text) {
    long result = 0;
    app.GetUIToolkit().MsgBox(text, ORV::ovMsgYesNo | ORV::ovMsgQuestion, L"ZUKRetarget", result);
    return result != ORV::ovMsgNo;
}

ORV::CString fileBrowser(const ORV::CString& filter, const ORV::CString& title, const ORV::CString& directory,
                         bool open) {
    ORV::CComAPIHandler toolkit;
    toolkit.CreateInstance(L"ORV.UIToolkit");
    ORV::CComAPIHandler browser(toolkit.GetProperty(L"FileBrowser"));
    browser.PutProperty(L"Filter", filter);
    browser.PutProperty(L"DialogTitle", title);
    browser.PutProperty(L"InitialDirectory", directory);
    ORV::CValue ignored;
    ORV::CValueArray noArgs;
    browser.Call(open ? L"ShowOpen" : L"ShowSave", ignored, noArgs);
    return browser.GetProperty(L"FilePathName").GetAsText();
}

// ---- Play control and keys ------------------------------------------------------------------

double getFrameRate() {
    ORV::Property playControl(app.GetActiveProject().GetProperties().GetItem(L"Play Control"));
    return playControl.GetParameterValue(L"Rate", kNow);
}

float getCurrentFrame() {
    ORV::CValueArray args;
    args.Add(ORV::CString(L"PlayControl.Current"));
    ORV::CValue value;
    run(L"GetValue", args, value);
    return static_cast<float>(static_cast<double>(value));
}

void findStartEnd(ORV::X3DObject object, int& start, int& end) {
    ORV::CRefArray parameters = object.GetAnimatedParameters(ORV::ovAnySource, true);
    for (long i = 0; i < parameters.GetCount(); ++i) {
        ORV::CRef source = ORV::Parameter(parameters[i]).GetSource();
        if (!source.IsA(ORV::ovFCurveID)) {
            continue;
        }
        ORV::FCurve curve(source);
        long keys =
            curve.GetNumKeys(ORV::CTime(kNow, ORV::ovFrames, 1.0), ORV::CTime(kNow, ORV::ovFrames, 1.0));
        // A single key spans no range.
        if (keys < 2) {
            continue;
        }
        int first = static_cast<int>(static_cast<double>(curve.GetKeyAtIndex(0).GetTime()));
        int last = static_cast<int>(static_cast<double>(curve.GetKeyAtIndex(keys - 1).GetTime()));
        if (first < start) {
            start = first;
        }
        if (last > end) {
            end = last;
        }
    }
}

bool extractKeyIndices(ORV::FCurve& curve, int offset, int /*unused*/, ORV::CDoubleArray& times) {
    times.Clear();
    long keys = curve.GetNumKeys(ORV::CTime(kNow, ORV::ovFrames, 1.0), ORV::CTime(kNow, ORV::ovFrames, 1.0));
    for (long i = 0; i < keys; ++i) {
        times.Add(static_cast<double>(curve.GetKeyAtIndex(i).GetTime()) - offset);
    }
    return true;
}

void extractNeutralPose(ORV::X3DObject node, ORV::MATH::CTransformation& pose) {
    const double toRadians = 3.141592653589793 / 180.0;
    ORV::KinematicState local = node.GetKinematics().GetLocal();
    pose.SetScalingFromValues(local.GetParameterValue(L"nsclx", kNow),
                              local.GetParameterValue(L"nscly", kNow),
                              local.GetParameterValue(L"nsclz", kNow));
    pose.SetTranslationFromValues(local.GetParameterValue(L"nposx", kNow),
                                  local.GetParameterValue(L"nposy", kNow),
                                  local.GetParameterValue(L"nposz", kNow));
    int order = local.GetParameterValue(L"rotorder", kNow);
    pose.SetRotationFromXYZAnglesValues(
        static_cast<double>(local.GetParameterValue(L"nrotx", kNow)) * toRadians,
        static_cast<double>(local.GetParameterValue(L"nroty", kNow)) * toRadians,
        static_cast<double>(local.GetParameterValue(L"nrotz", kNow)) * toRadians,
        static_cast<ORV::MATH::RotationOrder>(order));
}

void ForceGlobalEvaluationOnAllNodes(ORV::Model model) {
    ORV::CRefArray objects = allObjectsUnder(model);
    for (long i = 0; i < objects.GetCount(); ++i) {
        ORV::X3DObject(objects[i]).GetKinematics().GetGlobal().GetTransform(kNow);
    }
    ORV::KinematicState global = model.GetKinematics().GetGlobal();
    global.PutTransform(global.GetTransform(kNow), kNow);
}

// ---- Drawing helpers ------------------------------------------------------------------------

ORV::X3DObject drawLine(ORV::X3DObject parent, const ORV::MATH::CVector3& from, const ORV::MATH::CVector3& to,
                        const ORV::CString& name, int colour) {
    ORV::MATH::CVector4Array points;
    points.Add(ORV::MATH::CVector4(from.GetX(), from.GetY(), from.GetZ(), 1.0));
    points.Add(ORV::MATH::CVector4(to.GetX(), to.GetY(), to.GetZ(), 1.0));
    ORV::CDoubleArray knots;
    knots.Add(0.0);
    knots.Add(1.0);
    ORV::X3DObject line;
    // Open, degree 1, parametrisation 1.
    parent.AddNurbsCurve(points, knots, false, 1, 1, ORV::ovSINurbs, name, line);
    ORV::Property display;
    line.AddProperty(L"Display Property", false, L"Display", display);
    display.PutParameterValue(L"wirecol", colour, kNow);
    return line;
}

ORV::X3DObject drawLine(const ORV::MATH::CVector3& from, const ORV::MATH::CVector3& to,
                        const ORV::CString& name, int colour) {
    return drawLine(app.GetActiveSceneRoot(), from, to, name, colour);
}

ORV::X3DObject makeConnectionLine(ORV::X3DObject& parent, ORV::X3DObject& first, ORV::X3DObject& second,
                                  int colour) {
    ORV::X3DObject line =
        drawLine(parent, ORV::MATH::CVector3(1.0, 1.0, 1.0), ORV::MATH::CVector3(0.0, 0.0, 0.0), L"", colour);

    ORV::CString code;
    code += L"var pos1 = ORVMath.CreateVector3();\n";
    code += L"var pos2 = ORVMath.CreateVector3();\n";
    code += L"function ConnectionLine_Update(ctx, Out, InLineGlobal, InGlobal1, InGlobal2){ \n ";
    code += L"var geom = Out.Value.Geometry; \n";
    code += L"var pArray = geom.points.positionarray.toArray(); \n";
    code += L"var t1 = InGlobal1.Value.Transform; \n";
    code += L"var t2 = InGlobal2.Value.Transform; \n";
    code += L"t1.GetTranslation(pos1); \n";
    code += L"t2.GetTranslation(pos2); \n";
    code += L"var ltrans = \tInLineGlobal.Value.Transform; \n";
    code += L"pos1 = ORVMath.MapWorldPositionToObjectSpace (ltrans, pos1); \n";
    code += L"pos2 = ORVMath.MapWorldPositionToObjectSpace (ltrans, pos2); \n";
    code += L"pArray[0] = pos1.x; \n";
    code += L"pArray[1] = pos1.y; \n";
    code += L"pArray[2] = pos1.z; \n";
    code += L"pArray[3] = pos2.x; \n";
    code += L"pArray[4] = pos2.y; \n";
    code += L"pArray[5] = pos2.z;\t \n";
    code += L"Out.Value.Geometry.Points.PositionArray = pArray; \n} \n";

    ORV::CustomOperator op(app.GetFactory().CreateScriptedOp(L"ConnectionLine", code, L"JScript"));
    ORV::PortGroup mainGroup = op.AddPortGroup(L"MainGroup", 1, 1, L"", L"", 0);
    op.AddOutputPort(line.GetActivePrimitive().GetRef(), L"OutCurve", mainGroup.GetIndex(), -1);
    op.AddInputPort(line.GetKinematics().GetGlobal().GetRef(), L"InLineGlobal", mainGroup.GetIndex(), -1);
    ORV::PortGroup objectGroup = op.AddPortGroup(L"ObjectGroup", 1, 1, L"", L"", 0);
    op.AddInputPort(first.GetKinematics().GetGlobal().GetRef(), L"InGlobal1", objectGroup.GetIndex(), -1);
    op.AddInputPort(second.GetKinematics().GetGlobal().GetRef(), L"InGlobal2", objectGroup.GetIndex(), -1);
    op.Connect(ORV::ovConstructionModeAnimation);

    ORV::CValueArray args;
    args.Add(line.GetFullName() + L".visibility.selectability");
    args.Add(false);
    run(L"SetValue", args);
    return line;
}

}  // namespace Util
}  // namespace ZUK
