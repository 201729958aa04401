#include "panels/TagPPG.h"

#include <memory>
#include <vector>

#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/InputStream.h"
#include "core/OutputStream.h"
#include "core/XMLFileStream.h"
#include "glue/GlueMap.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "panels/PlotRetargetPPG.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}

// Capabilities of every parameter of the tag property: 4, with the keyable flag off.
const int PARAM_CAPABILITIES = 4 & ~0x800;

bool findTagProperty(ORV::Model model, ORV::CustomProperty& property) {
    ORV::Property found;
    if (!Util::findCustomPSet(model, TagPPG::PROPERTY_NAME, found)) return false;
    property = ORV::CustomProperty(found.GetRef());
    return property.IsValid();
}

ORV::CustomProperty findOrAddTagProperty(ORV::Model model, bool* added = nullptr) {
    ORV::CustomProperty property;
    if (added) *added = false;
    if (findTagProperty(model, property)) return property;
    if (added) *added = true;
    return ORV::CustomProperty(model.AddProperty(TagPPG::PROPERTY_NAME, false, L"").GetRef());
}

ORV::CString textOf(const ORV::CustomProperty& property, const ORV::CString& name) {
    return property.GetParameterValue(name).GetAsText();
}

bool isDirty(const ORV::CustomProperty& property) {
    return static_cast<bool>(property.GetParameterValue(TagPPG::DIRTY_NAME));
}

void putDirty(ORV::CustomProperty& property, bool dirty) {
    property.PutParameterValue(TagPPG::DIRTY_NAME, ORV::CValue(dirty));
}

ORV::X3DObject findObject(ORV::Model model, const ORV::CString& name) {
    return model.FindChild(name, L"", ORV::CStringArray(), true);
}

bool hasParameter(const ORV::CustomProperty& property, const ORV::CString& name) {
    return property.GetParameter(name).IsValid();
}

// Restores the command log to what it was, on every way out of a scope.
class CommandLogOff {
public:
    CommandLogOff() : previous(Util::logCommands(false)) {}
    ~CommandLogOff() { Util::logCommands(previous); }
    CommandLogOff(const CommandLogOff&) = delete;
    CommandLogOff& operator=(const CommandLogOff&) = delete;

private:
    bool previous;
};

ORV::ProgressBar showBar(long maximum, const wchar_t* caption, bool cancel) {
    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutMaximum(maximum);
    bar.PutStep(1);
    bar.PutValue(0);
    bar.PutCancelEnabled(cancel);
    bar.PutCaption(caption);
    bar.PutVisible(true);
    return bar;
}

// The part of a value that a tag type compares: the control object for 1, else the
// extraction object.
ORV::CString partOf(const ORV::CString& value, int type) {
    return TagPPG::GetNodeNameFromTagValue(value, type == 1 ? 1 : 2);
}

// The alert of a collision on a limb or a spine, or empty when the pair may share the object.
ORV::CString collisionMessage(ModelStructure* structure, int index, const ORV::CString& other,
                              const ORV::CString& value) {
    const int otherIndex = structure->findNodeIndex(other);
    for (int p = 0; p < structure->numPlanes; ++p) {
        const int s = structure->planes[p].Span;
        const int a = structure->planes[p].AnchorIndex;
        if (other == structure->nodes[s].Name && index < s) {
            return L"The rig node " + value + L" is already associated with the end effector " + other +
                   L".\n" + L"Only the child of " + other + L" can be tagged to the same node.";
        }
        if (other == structure->nodes[a].Name) {
            return L"The rig node " + value + L" is already associated with the ik anchor " + other + L".";
        }
        if (index == s && otherIndex != s + 1) {
            return L"The rig node " + value + L" is already associated with node " + other + L".\n" +
                   L"The end effector requires a unique node for tagging (although it can share a node with "
                   L"its child).";
        }
        if (index == a) {
            return L"The rig node " + value + L" is already associated with node " + other + L".\n" +
                   L"The ik anchor requires a unique node for tagging.";
        }
    }
    for (int i = 0; i < structure->numNodes; ++i) {
        if (structure->nodes[i].Type != 3) continue;
        const int b = structure->nodes[i].Parent;
        if (other == structure->nodes[i].Name) {
            return L"The rig node " + value + L" is already associated with the spine node " + other + L".";
        }
        if (b >= 0 && other == structure->nodes[b].Name) {
            return L"The rig node " + value + L" is already associated with the spine base " + other + L".";
        }
        if (index == i) {
            return L"The rig node " + value + L" is already associated with node " + other + L".\n" +
                   L"The spine node requires a unique node for tagging.";
        }
        if (index == b) {
            return L"The rig node " + value + L" is already associated with node " + other + L".\n" +
                   L"The spine base requires a unique node for tagging.";
        }
    }
    return ORV::CString();
}

}  // namespace

const ORV::CString TagPPG::PROPERTY_NAME(L"TagPPG");
const ORV::CString TagPPG::DATA_NAME(L"TagData");
const ORV::CString TagPPG::emptystring(L"<EmptyFieldorv>");

ORV::CString TagPPG::GetNodeNameFromTagValue(ORV::CString value, int type) {
    ORV::CStringArray parts = value.Split(L"|");
    if (parts.GetCount() == 0) return ORV::CString();
    if (type == 1) return parts[0];
    return parts.GetCount() == 2 ? parts[1] : ORV::CString();
}

// ---- Tag rules ---------------------------------------------------------------------------------

bool CheckAndApplyTagValue(ORV::CustomProperty& tagProperty, ORV::CString& tagName, ORV::CString& value,
                           ModelStructure* structure, ORV::Model model, ORV::CString currentValue,
                           int tagType) {
    const int index = structure->findNodeIndex(tagName);

    // 1. Nothing to store.
    if (value.IsEmpty()) return true;

    // 2. Sub controllers: one object each, and no rules of the skeleton.
    if (index < 0) {
        if (!findObject(model, value).IsValid()) {
            tagProperty.PutParameterValue(tagName, ORV::CValue(ORV::CString()));
            app.LogMessage(L"The " + value + L" node does not exist.", 4);
            return false;
        }
        ORV::CRefArray parameters = tagProperty.GetParameters();
        for (long k = 0; k < parameters.GetCount(); ++k) {
            ORV::Parameter parameter(parameters[k]);
            const ORV::CString name = parameter.GetScriptName();
            if (name == tagName || structure->findNodeIndex(name) >= 0) continue;
            if (parameter.GetValue().GetAsText() == value) {
                Util::alert(L"The " + value + L" node is already assigned to a sub controller.");
                return false;
            }
        }
        tagProperty.PutParameterValue(tagName, ORV::CValue(value));
        return true;
    }

    // 3. An extraction object needs its control object first.
    const ORV::CString control = TagPPG::GetNodeNameFromTagValue(currentValue, 1);
    if (tagType == 2 && control.IsEmpty()) {
        Util::alert(L"The animation control for the " + tagName +
                    L" node must be set before specifying the extraction node.");
        return false;
    }

    // 4. Collisions with other tags of the same kind.
    ORV::CRefArray parameters = tagProperty.GetParameters();
    for (long k = TagPPG::NUM_NON_TAG_PARAMS; k < parameters.GetCount(); ++k) {
        ORV::Parameter parameter(parameters[k]);
        if (partOf(parameter.GetValue().GetAsText(), tagType) != value) continue;
        const ORV::CString other = parameter.GetScriptName();
        if (other == tagName) continue;
        if (index == 0) {
            Util::alert(L"The base node " + tagName + L" requires a rig node that has not been selected.");
            return false;
        }
        const ORV::CString message = collisionMessage(structure, index, other, value);
        if (!message.IsEmpty()) {
            Util::alert(message);
            return false;
        }
    }

    // 5. The object must exist.
    ORV::X3DObject object = findObject(model, value);
    if (!object.IsValid()) {
        tagProperty.PutParameterValue(tagName, ORV::CValue(ORV::CString()));
        app.LogMessage(L"The " + value + L" node does not exist", 4);
        return false;
    }

    // 6. Store it; a new control object drops the extraction object.
    tagProperty.PutParameterValue(tagName, ORV::CValue(tagType == 1 ? value : control + L"|" + value));

    // 7.-8. The other side of the body, when it is still open.
    ORV::CString mirror = tagName;
    if (tagName[0] == L'l') {
        mirror[0] = L'r';
    } else if (tagName[0] == L'r') {
        mirror[0] = L'l';
    } else {
        return true;
    }
    if (!hasParameter(tagProperty, mirror)) return true;
    const ORV::CString mirrorValue = textOf(tagProperty, mirror);
    const ORV::CString mirrorPart =
        tagType == 1 ? mirrorValue : TagPPG::GetNodeNameFromTagValue(mirrorValue, 2);
    if (!mirrorPart.IsEmpty()) return true;
    ORV::CString found;
    int best = 2;
    FindSymmetricNode(model, object, found, best);
    if (tagType == 1) {
        tagProperty.PutParameterValue(mirror, ORV::CValue(found));
    } else {
        const ORV::CString mirrorControl = TagPPG::GetNodeNameFromTagValue(mirrorValue, 1);
        if (!mirrorControl.IsEmpty())
            tagProperty.PutParameterValue(mirror, ORV::CValue(mirrorControl + L"|" + found));
    }
    return true;
}

int CountMatchingChars(ORV::X3DObject a, ORV::X3DObject b, bool fromStart) {
    const ORV::CString x = a.GetName(), y = b.GetName();
    const unsigned long n = x.Length() < y.Length() ? x.Length() : y.Length();
    unsigned long count = 0;
    while (count < n) {
        const wchar_t cx = fromStart ? x[count] : x[x.Length() - 1 - count];
        const wchar_t cy = fromStart ? y[count] : y[y.Length() - 1 - count];
        if (cx != cy) break;
        ++count;
    }
    return static_cast<int>(count);
}

bool CountDepthToCommonAncestor(ORV::X3DObject a, ORV::X3DObject b) {
    const ORV::CRef model = a.GetModel().GetRef();
    ORV::CRef x = a.GetRef(), y = b.GetRef();
    while (x.IsValid() && y.IsValid()) {
        if (x == y) return true;
        // One more step would leave the model.
        if (x == model || y == model) return false;
        x = ORV::X3DObject(x).GetParent();
        y = ORV::X3DObject(y).GetParent();
    }
    return false;
}

void FindSymmetricNode(ORV::X3DObject current, ORV::X3DObject target, ORV::CString& found, int& best) {
    const ORV::CString currentName = current.GetName(), targetName = target.GetName();
    if (currentName == targetName) return;
    const int p = CountMatchingChars(current, target, true);
    const int q = CountMatchingChars(current, target, false);
    if (p > 0 || q > 0) {
        const int currentLength = static_cast<int>(currentName.Length());
        const int targetLength = static_cast<int>(targetName.Length());
        if (p + q == currentLength || p + q == targetLength) return;
        const int shorter = currentLength < targetLength ? currentLength : targetLength;
        const int score = p + q + (shorter - p - q == 1 ? 1 : 0);
        if (score > best && CountDepthToCommonAncestor(current, target)) {
            best = score;
            found = currentName;
        }
    }
    ORV::CRefArray children = current.GetChildren();
    for (long k = 0; k < children.GetCount(); ++k) {
        if (children[k].IsA(ORV::ov3DObjectID))
            FindSymmetricNode(ORV::X3DObject(children[k]), target, found, best);
    }
}

bool CheckTagValidity(ModelStructure* structure, ORV::CustomProperty& tagProperty) {
    // 1. Every tagged node needs its ancestors, but one untagged child joint may stand between.
    for (int n = 0; n < structure->numNodes; ++n) {
        if (textOf(tagProperty, structure->nodes[n].Name).IsEmpty()) continue;
        bool mark = false;
        for (int a = structure->nodes[n].Parent; a >= 0; a = structure->nodes[a].Parent) {
            if (!textOf(tagProperty, structure->nodes[a].Name).IsEmpty()) {
                mark = false;
                continue;
            }
            if (structure->nodes[a].Type != 1 || mark) {
                Util::alert(L"Because you tagged the " + structure->nodes[n].Name +
                            L" then you must also tag the " + structure->nodes[a].Name +
                            L" because it is higher in the hierarchy.");
                return false;
            }
            mark = true;
        }
    }
    // 2. A limb is tagged whole or not at all.
    for (int p = 0; p < structure->numPlanes; ++p) {
        const ORV::CLongArray& bones = structure->planes[p].bones;
        long first = -1;
        for (long k = 0; k < bones.GetCount() && first < 0; ++k) {
            if (!textOf(tagProperty, structure->nodes[bones[k]].Name).IsEmpty()) first = k;
        }
        if (first < 0) continue;
        for (long k = 0; k < bones.GetCount(); ++k) {
            if (k == first) continue;
            const ORV::CString& name = structure->nodes[bones[k]].Name;
            if (textOf(tagProperty, name).IsEmpty()) {
                Util::alert(L"Incomplete tagging of a bone chain. '" + name +
                            L"' must be assigned a rig node.");
                return false;
            }
        }
    }
    return true;
}

void CreateTagPPGPropertyFromStructure(ORV::Model model, ModelStructure* structure) {
    bool added = false;
    ORV::CustomProperty property = findOrAddTagProperty(model, &added);
    ORV::CRefArray parameters = property.GetParameters();
    for (long k = parameters.GetCount() - 1; k >= TagPPG::NUM_NON_TAG_PARAMS; --k) {
        property.RemoveParameter(ORV::Parameter(parameters[k]));
    }
    ORV::Parameter parameter;
    for (int n = 0; n < structure->numNodes; ++n) {
        property.AddParameter(structure->nodes[n].Name, ORV::ovString, PARAM_CAPABILITIES, L"", L"",
                              ORV::CValue(ORV::CString()), parameter);
    }
    for (const ModelStructure::Decomp& decomp : structure->decomps) {
        for (long t = 0; t < decomp.targets.GetCount(); ++t) {
            property.AddParameter(decomp.targets[t], ORV::ovString, PARAM_CAPABILITIES, L"", L"",
                                  ORV::CValue(ORV::CString()), parameter);
        }
    }
    if (added) property.PutParameterValue(TagPPG::STRUCTUREFILE_NAME, ORV::CValue(structure->Source));
}

// ---- The property's operations -----------------------------------------------------------------

bool TagPPG::SetTagValue(ORV::Model model, ORV::CString tagName, ORV::CString value, int tagType) {
    ORV::CustomProperty property = findOrAddTagProperty(model);
    std::unique_ptr<ModelStructure> structure(ModelStructure::CreateFromCustomProperty(model));
    if (!structure) {
        // The rules are those of a structure: without one there is nothing to test against.
        app.LogMessage(
            L"The model " + model.GetName() + L" has no structure. Please set a structure file first.", 4);
        return false;
    }
    const ORV::CString old = textOf(property, tagName);
    const bool ok = CheckAndApplyTagValue(property, tagName, value, structure.get(), model, old, tagType);
    if (ok) {
        putDirty(property, true);
    } else {
        property.PutParameterValue(tagName, ORV::CValue(old));
    }
    return ok;
}

bool TagPPG::ApplyTagPPGValuesToModel(ORV::Model model) {
    ORV::CustomProperty property;
    if (!findTagProperty(model, property)) {
        app.LogMessage(L"No TagPPG found on Model. Please apply TagPPG", 2);
        return false;
    }
    std::unique_ptr<ModelStructure> structure(
        ModelStructure::CreateFromFile(textOf(property, STRUCTUREFILE_NAME)));
    if (!structure) {
        app.LogMessage(L"No Structure Files found.", 2);
        return false;
    }
    ORV::ProgressBar bar = showBar(8, L"Check Tag Validity ...", false);
    // The user has seen why; the rig stays as it was.
    if (!CheckTagValidity(structure.get(), property)) {
        bar.PutVisible(false);
        return true;
    }
    {
        CommandLogOff logOff;
        bar.PutCaption(L"Applying tags to Model ...");
        TagMap::ApplyTagsToModel(model, structure.get(), property, false);
        bar.Increment();
        ModelMap map(model, structure.get());
        bar.Increment();
        map.createMap();
        bar.Increment();
        map.SaveToCustomProperty();
        bar.Increment();
        structure->SaveToCustomProperty(model);
        bar.Increment();
        std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(model, &map));
        bar.Increment();
        if (glue) glue->SaveToCustomProperty(model);
        bar.Increment();
        putDirty(property, false);
    }
    bar.PutVisible(false);
    return true;
}

bool TagPPG::CleanTagsFromRig(ORV::Model model) {
    ORV::ProgressBar bar = showBar(6, L"Removing TROVO setup data from model ...", false);
    ORV::CustomProperty property = findOrAddTagProperty(model);
    ORV::CRefArray parameters = property.GetParameters();
    for (long k = NUM_NON_TAG_PARAMS; k < parameters.GetCount(); ++k) {
        ORV::Parameter(parameters[k]).PutValue(ORV::CValue(ORV::CString()));
    }
    RetargetOp::cleanupRetargetOp(model);
    bar.Increment(2);
    TagMap::cleanup(model);
    bar.Increment();
    GlueMap::cleanup(model);
    bar.Increment();
    ModelMap::cleanup(model);
    bar.Increment();
    PlotRetargetPPG::cleanup(model);
    bar.Increment();
    bar.PutVisible(false);
    return true;
}

bool TagPPG::SetStructureFile(ORV::Model model, ORV::CString file) {
    ORV::CustomProperty property = findOrAddTagProperty(model);
    const ORV::CString old = textOf(property, STRUCTUREFILE_NAME);
    if (old != file) property.PutParameterValue(STRUCTUREFILE_NAME, ORV::CValue(file));
    std::unique_ptr<ModelStructure> structure;
    if (!file.IsEmpty()) {
        structure.reset(ModelStructure::CreateFromFile(file));
        if (!structure) Util::alert(L"Error Loading Structure File.");
    }
    if (old != file && structure) {
        structure->SaveToCustomProperty(model);
        CreateTagPPGPropertyFromStructure(model, structure.get());
    }
    return structure != nullptr;
}

bool TagPPG::SaveTagTemplateFile(ORV::Model model, ORV::CString file) {
    ORV::CustomProperty property;
    if (!findTagProperty(model, property)) {
        app.LogMessage(L"Model not tagged. Please tag the model.", 4);
        return false;
    }
    // A template always matches what the panel shows.
    if (isDirty(property)) ApplyTagPPGValuesToModel(model);

    ORV::Property mapProperty;
    std::unique_ptr<ModelStructure> structure;
    if (Util::findCustomPSet(model, ModelMap::PROPERTY_NAME, mapProperty)) {
        structure.reset(ModelStructure::CreateFromCustomProperty(model));
    }
    if (!structure) {
        app.LogMessage(L"Incorrect tagging. Please re-tag.", 4);
        return false;
    }
    ModelMap map(model, structure.get());
    map.LoadFromCustomProperty();
    if (file.IsEmpty()) return false;

    OutputStream stream(file);
    if (!stream.file) {
        app.LogMessage(L"You do not have permission to save to this directory.  File not saved.", 4);
        return false;
    }
    ORV::CRefArray parameters = property.GetParameters();
    const long count = parameters.GetCount() - NUM_NON_TAG_PARAMS;
    stream << structure->Type << '\n';
    stream << static_cast<int>(count < 0 ? 0 : count) << '\n';
    for (long k = NUM_NON_TAG_PARAMS; k < parameters.GetCount(); ++k) {
        ORV::Parameter parameter(parameters[k]);
        const ORV::CString value = parameter.GetValue().GetAsText();
        stream << parameter.GetScriptName() << ' ' << (value.IsEmpty() ? emptystring : value) << '\n';
    }
    stream << structure->Source << '\n';
    stream << ModelStructure::CURRENT_VERSION << '\n';
    TagMap::WriteToStream(stream, map);
    map.WriteToStream(stream);
    property.PutParameterValue(TEMPLATEFILE_NAME, ORV::CValue(file));
    return true;
}

bool TagPPG::LoadTagTemplateFile(ORV::Model model, ORV::CString file) {
    if (!model.IsValid()) {
        Util::alert(
            L"It is ambiguous which character is to receive the inheritance.  Please select the desired "
            L"character.");
        return false;
    }
    if (file.IsEmpty()) {
        Util::alert(L"Please specify a tag template file (*.tagt)");
        return false;
    }
    // The XML form of a template carries nothing yet.
    if (XMLFileStream::IsXMLFile(file)) return true;

    ORV::ProgressBar bar = showBar(8, L"Reading Tag Template File ...", false);
    ORV::CustomProperty property = findOrAddTagProperty(model);
    InputStream stream(file);
    // A missing file is not reported.
    if (!stream.buffer || stream.atEnd()) {
        property.PutParameterValue(TEMPLATEFILE_NAME, ORV::CValue(file));
        bar.PutVisible(false);
        return true;
    }

    RetargetOp::cleanupRetargetOp(model);
    PlotRetargetPPG::cleanup(model);
    GlueMap::cleanup(model);

    // The header: structure type, the tag values, the structure's source.
    ORV::CString type;
    stream >> type;
    int count = 0;
    stream >> count;
    std::vector<ORV::CString> names, values;
    for (int k = 0; k < count && !stream.atEnd(); ++k) {
        ORV::CString name, value;
        stream >> name >> value;
        names.push_back(name);
        values.push_back(value);
    }
    bar.Increment();
    ORV::CString source;
    stream >> source;
    SetStructureFile(model, source);

    std::unique_ptr<ModelStructure> structure(ModelStructure::CreateFromCustomProperty(model));
    bar.Increment();
    if (!structure) {
        bar.PutVisible(false);
        Util::alert(L"Cannot find orriginal structure file :" + source);
        return false;
    }

    // Values go by position; a name that differs only warns.
    bar.PutCaption(L"Applying Tags to Model ...");
    bar.PutMaximum(static_cast<long>(names.size()));
    bar.PutStep(1);
    ORV::CRefArray parameters = property.GetParameters();
    for (size_t i = 0; i < names.size(); ++i) {
        bar.Increment();
        if (values[i].IsEmpty()) continue;
        const ORV::CString control = GetNodeNameFromTagValue(values[i], 1);
        const ORV::CString extraction = GetNodeNameFromTagValue(values[i], 2);
        if (!findObject(model, control).IsValid()) {
            app.LogMessage(L"Node " + control + L" is missing.", 8);
            values[i].Clear();
        } else if (!extraction.IsEmpty() && !findObject(model, extraction).IsValid()) {
            app.LogMessage(L"Extraction node " + extraction + L" is missing.", 8);
            values[i] = control;
        }
        const long at = static_cast<long>(i) + NUM_NON_TAG_PARAMS;
        if (at < parameters.GetCount()) {
            ORV::Parameter parameter(parameters[at]);
            if (parameter.GetScriptName() != names[i]) {
                Util::alert(L"Failed to load template file: Tag name " + names[i] + L" is missing.");
            }
            parameter.PutValue(ORV::CValue(values[i]));
        }
    }

    bar.PutMaximum(4);
    bar.PutStep(1);
    bar.PutValue(0);
    int version = 0;
    stream >> version;
    if (version < 7) {
        bar.PutVisible(false);
        Util::alert(L"Failed to inherit the template data. Template is out of date.");
        putDirty(property, true);
        return false;
    }

    std::unique_ptr<TagMap> tagMap(TagMap::createFromStream(stream));
    if (!tagMap) {
        property.PutParameterValue(TEMPLATEFILE_NAME, ORV::CValue(file));
        bar.PutVisible(false);
        return true;
    }
    if (!tagMap->applyToModel(model)) {
        bar.PutVisible(false);
        Util::alert(L"Failed to inherit the template data.  Template does not match the rig.");
        putDirty(property, true);
        return false;
    }

    // Sub controllers, which the map's entries don't cover, get a tag holding only their name.
    for (size_t i = 0; i < names.size(); ++i) {
        if (values[i].IsEmpty() || values[i] == emptystring) continue;
        ORV::X3DObject object = findObject(model, values[i]);
        ORV::Property existing;
        if (!object.IsValid() || Util::findCustomPSet(object, TagMap::PROPERTY_NAME, existing)) continue;
        ORV::CustomProperty tag(object.AddProperty(L"CustomProperty", false, TagMap::PROPERTY_NAME).GetRef());
        ORV::Parameter parameter;
        tag.AddParameter(L"tagname", ORV::ovString, 6, L"", L"", ORV::CValue(names[i]), parameter);
    }

    ModelMap map(model, structure.get());
    map.ReadFromStream(stream);
    if (!map.valid) {
        // A damaged measure block is not stored: the tags are in place, the user can apply them.
        bar.PutVisible(false);
        Util::alert(L"Failed to inherit the template data.  The measures in " + file + L" are damaged.");
        putDirty(property, true);
        return false;
    }
    map.synchronizeLengths();
    map.SaveToCustomProperty();
    bar.Increment();
    structure->SaveToCustomProperty(model);
    bar.Increment();
    std::unique_ptr<GlueMap> glue(GlueMap::createFromModelMap(model, &map));
    bar.Increment();
    if (glue) glue->SaveToCustomProperty(model);
    bar.Increment();
    property.PutParameterValue(TEMPLATEFILE_NAME, ORV::CValue(file));
    bar.PutVisible(false);
    return true;
}

void TagPPG::cleanup(ORV::Model model) {
    ORV::Property blob;
    if (Util::findCustomPSet(model, DATA_NAME, blob)) Util::deleteObj(blob.GetFullName());
    ORV::CustomProperty property;
    if (!findTagProperty(model, property)) return;
    ORV::CRefArray parameters = property.GetParameters();
    for (long k = parameters.GetCount() - 1; k >= NUM_NON_TAG_PARAMS; --k) {
        property.RemoveParameter(ORV::Parameter(parameters[k]));
    }
    // The panel has always written this bool here; readers of the name only test for a file.
    property.PutParameterValue(TEMPLATEFILE_NAME, ORV::CValue(true));
}

bool TagPPG::CreateTagPPG(ORV::Model, bool) {
    app.LogMessage(L"CreateTagPPG is not built yet", 4);
    return false;
}

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus TagPPG_Define(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CustomProperty property(ctxt.GetSource());
    const int caps = ZUK::PARAM_CAPABILITIES;
    ORV::Parameter parameter;
    property.AddParameter(ZUK::TagPPG::STRUCTUREFILE_INDEX, ORV::ovInt4, caps, L"", L"", ORV::CValue(0),
                          ORV::CValue(0), ORV::CValue(2000), ORV::CValue(0), ORV::CValue(2000), parameter);
    property.AddParameter(ZUK::TagPPG::STRUCTUREFILE_NAME, ORV::ovString, caps, L"", L"",
                          ORV::CValue(ORV::CString(L"*.structure")), parameter);
    property.AddParameter(ZUK::TagPPG::TEMPLATEFILE_NAME, ORV::ovString, caps, L"", L"",
                          ORV::CValue(ORV::CString()), parameter);
    property.AddParameter(ZUK::TagPPG::DIRTY_NAME, ORV::ovBool, caps, L"", L"", ORV::CValue(false),
                          parameter);
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus TagPPG_DefineLayout(ORV::CRef& in_ctxt) {
    // The page depends on the structure, so SetStructureFile builds it, not this callback.
    ORV::Context ctxt(in_ctxt);
    ORV::PPGLayout layout(ctxt.GetSource());
    if (layout.IsValid()) layout.Clear();
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus TagPPG_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"TagPPG_PPGEvent is not built yet");
}

extern "C" ORV::CStatus TagPPG_Term(ORV::CRef& in_ctxt) {
    // Only a panel that has loaded a structure holds user data; nothing sets it yet.
    ORV::Context ctxt(in_ctxt);
    if (static_cast<void*>(ctxt.GetUserData()) != nullptr) {
        return ZUK::notBuilt(L"TagPPG_Term is not built yet");
    }
    return ORV::CStatus::OK;
}
