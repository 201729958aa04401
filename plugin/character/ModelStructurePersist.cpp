// The stored form of a ModelStructure: the custom property "ZUKStructure" on a tagged model,
// made of plain parameters and grids. It is a reduced form: what the map, the glue and the
// operators need. Offsets, positions, limits and a decomposition's name are not stored.
#include "character/ModelStructure.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

ORV::Application app;

const int NODE_COLUMNS = 12;
const int NODE_COLUMNS_V7 = 11;  // version 7 had no mirror_node_index
const int PLANE_COLUMNS = 4;
const int DECOMP_COLUMNS = 10;
const int GROUP_COLUMNS = 2;
const int ITEM_COLUMNS = 7;

// The third label is spelled so in every stored scene; readers go by position, writers keep it.
const wchar_t* const NODE_LABELS[NODE_COLUMNS] = {
    L"Parent", L"OffsetParent", L"Name",  L"Type",  L"Friction", L"alignX",
    L"alignY", L"alingZ",       L"rollX", L"rollY", L"rollZ",    L"mirror_node_index"};
const wchar_t* const PLANE_LABELS[PLANE_COLUMNS] = {L"AnchorIndex", L"Mid", L"Span", L"Name"};
const wchar_t* const DECOMP_LABELS[DECOMP_COLUMNS] = {L"SrcName", L"PX", L"PY",     L"PZ",     L"RX",
                                                      L"RY",      L"RZ", L"RtoP_X", L"RtoP_Y", L"RtoP_Z"};
const wchar_t* const GROUP_LABELS[GROUP_COLUMNS] = {L"Name", L"Parent"};
const wchar_t* const ITEM_LABELS[ITEM_COLUMNS] = {L"Name",   L"Type",      L"Align",    L"Roll",
                                                  L"Offset", L"Minlimits", L"Maxlimits"};

const int STORED_CAPABILITIES = 6;

void addValue(ORV::CustomProperty& property, const wchar_t* name, ORV::ovValueType type,
              const ORV::CValue& value, const wchar_t* label, const wchar_t* description) {
    ORV::Parameter parameter;
    property.AddParameter(name, type, STORED_CAPABILITIES, label, description, value, parameter);
}

// Adds a grid parameter and fills it with `rows` rows of the labelled columns.
void addGrid(ORV::CustomProperty& property, const ORV::CString& name, const wchar_t* const* labels,
             int columns, long rows, const ORV::CValueArray& data) {
    ORV::Parameter parameter = property.AddGridParameter(name);
    // A grid comes with the host's default capabilities; the stored ones are those of every
    // parameter of the property.
    const unsigned differ = static_cast<unsigned>(parameter.GetCapabilities() ^ STORED_CAPABILITIES);
    for (int bit = 0; bit < 31; ++bit) {
        const int flag = 1 << bit;
        if (differ & static_cast<unsigned>(flag))
            parameter.PutCapabilityFlag(flag, (STORED_CAPABILITIES & flag) != 0);
    }
    ORV::GridData grid(static_cast<ORV::CRef>(parameter.GetValue()));
    grid.PutColumnCount(columns);
    grid.PutRowCount(rows);
    for (int column = 0; column < columns; ++column) grid.PutColumnLabel(column, labels[column]);
    grid.PutData(data);
}

// The grid held by the parameter `name`; invalid when there is no such parameter.
ORV::GridData gridOf(const ORV::ProjectItem& property, const ORV::CString& name) {
    ORV::Parameter parameter = property.GetParameter(name);
    if (!parameter.IsValid()) return ORV::GridData();
    return ORV::GridData(static_cast<ORV::CRef>(parameter.GetValue()));
}

// A vector as the text of a value holding it: "x,y,z".
ORV::CValue vectorText(const ORV::MATH::CVector3& v) { return ORV::CValue(ORV::CValue(v).GetAsText()); }

bool arrayContains(const ORV::CStringArray& array, const ORV::CString& text) {
    for (long i = 0; i < array.GetCount(); ++i) {
        if (array[i] == text) return true;
    }
    return false;
}

void addGroups(ORV::CustomProperty& property, const std::vector<ModelStructure::Group>& groups,
               const wchar_t* prefix) {
    ORV::CValueArray rows;
    for (const ModelStructure::Group& group : groups) {
        rows.Add(group.Name);
        rows.Add(group.Parent);
    }
    addGrid(property, ORV::CString(prefix) + L"s", GROUP_LABELS, GROUP_COLUMNS,
            static_cast<long>(groups.size()), rows);
    for (const ModelStructure::Group& group : groups) {
        ORV::CValueArray items;
        for (const ModelStructure::GroupItem& item : group.items) {
            items.Add(item.Name);
            items.Add(item.Type);
            items.Add(vectorText(item.Align));
            items.Add(vectorText(item.Roll));
            items.Add(vectorText(item.Offset));
            items.Add(vectorText(item.Minlimits));
            items.Add(vectorText(item.Maxlimits));
        }
        addGrid(property, ORV::CString(prefix) + L"_" + group.Name, ITEM_LABELS, ITEM_COLUMNS,
                static_cast<long>(group.items.size()), items);
    }
}

// Reads the group list `prefix` + "s" and, per row, the item grid `prefix` + "_" + name. A row
// whose item grid is missing is skipped.
void readGroups(const ORV::ProjectItem& property, const wchar_t* prefix,
                std::vector<ModelStructure::Group>& groups) {
    ORV::GridData list = gridOf(property, ORV::CString(prefix) + L"s");
    if (!list.IsValid()) return;
    for (long row = 0; row < list.GetRowCount(); ++row) {
        ORV::CValueArray values = list.GetRowValues(row);
        ModelStructure::Group group;
        group.Name = values[0].GetAsText();
        group.Parent = values[1].GetAsText();
        ORV::GridData itemGrid = gridOf(property, ORV::CString(prefix) + L"_" + group.Name);
        if (!itemGrid.IsValid()) continue;
        for (long itemRow = 0; itemRow < itemGrid.GetRowCount(); ++itemRow) {
            ORV::CValueArray cells = itemGrid.GetRowValues(itemRow);
            ModelStructure::GroupItem item;
            item.Name = cells[0].GetAsText();
            item.Type = cells[1].GetAsText();
            item.Align = StringToVector(cells[2].GetAsText());
            item.Roll = StringToVector(cells[3].GetAsText());
            item.Offset = StringToVector(cells[4].GetAsText());
            item.Minlimits = StringToVector(cells[5].GetAsText());
            item.Maxlimits = StringToVector(cells[6].GetAsText());
            group.items.push_back(item);
        }
        groups.push_back(group);
    }
}

}  // namespace

ORV::MATH::CVector3 StringToVector(ORV::CString text) {
    ORV::CStringArray parts = text.Split(ORV::CString(L","));
    if (parts.GetCount() != 3) {
        app.LogMessage(ORV::CString(L"Error converting string to CVector3  : <") + text, 8);
        return ORV::MATH::CVector3();
    }
    return ORV::MATH::CVector3(static_cast<double>(ORV::CValue(parts[0])),
                               static_cast<double>(ORV::CValue(parts[1])),
                               static_cast<double>(ORV::CValue(parts[2])));
}

void ModelStructure::SaveToCustomProperty(ORV::Model model) {
    // The property is rewritten whole, never patched.
    ORV::Property old;
    if (Util::findCustomPSet(model, PROPERTY_NAME, old)) Util::deleteObj(old.GetFullName());

    ORV::Property added = model.AddProperty(L"CustomProperty", false, PROPERTY_NAME);
    ORV::CustomProperty property(added.GetRef());

    addValue(property, L"Version", ORV::ovInt4, ORV::CValue(CURRENT_VERSION), L"Version",
             L"Version of the structure format");
    addValue(property, L"Type", ORV::ovString, ORV::CValue(Type), L"Type", L"Type of the structure");
    addValue(property, L"Source", ORV::ovString, ORV::CValue(Source), L"Source", L"Source file name");
    addValue(property, L"numNodes", ORV::ovInt4, ORV::CValue(numNodes), L"", L"");
    addValue(property, L"numPlanes", ORV::ovInt4, ORV::CValue(numPlanes), L"", L"");
    addValue(property, L"numDecomps", ORV::ovInt4, ORV::CValue(static_cast<int>(decomps.size())), L"", L"");

    ORV::CValueArray nodeRows;
    for (int i = 0; i < numNodes; ++i) {
        const Node& node = nodes[i];
        nodeRows.Add(node.Parent);
        nodeRows.Add(node.OffsetParent);
        nodeRows.Add(node.Name);
        nodeRows.Add(node.Type);
        nodeRows.Add(node.Friction ? 1 : 0);
        nodeRows.Add(node.align.x);
        nodeRows.Add(node.align.y);
        nodeRows.Add(node.align.z);
        nodeRows.Add(node.roll.x);
        nodeRows.Add(node.roll.y);
        nodeRows.Add(node.roll.z);
        nodeRows.Add(node.mirror_node_index);
    }
    addGrid(property, L"Nodes", NODE_LABELS, NODE_COLUMNS, numNodes, nodeRows);

    ORV::CValueArray planeRows;
    for (int i = 0; i < numPlanes; ++i) {
        planeRows.Add(planes[i].AnchorIndex);
        planeRows.Add(planes[i].Mid);
        planeRows.Add(planes[i].Span);
        planeRows.Add(planes[i].Name);
    }
    addGrid(property, L"Planes", PLANE_LABELS, PLANE_COLUMNS, numPlanes, planeRows);

    if (!decomps.empty()) {
        ORV::CValueArray decompRows;
        for (const Decomp& decomp : decomps) {
            for (const ORV::CString* field :
                 {&decomp.SrcName, &decomp.PX, &decomp.PY, &decomp.PZ, &decomp.RX, &decomp.RY, &decomp.RZ,
                  &decomp.RtoP_X, &decomp.RtoP_Y, &decomp.RtoP_Z})
                decompRows.Add(*field);
        }
        addGrid(property, L"Decomps", DECOMP_LABELS, DECOMP_COLUMNS, static_cast<long>(decomps.size()),
                decompRows);
    }

    addGroups(property, baseGroups, L"BaseGroup");
    addGroups(property, groups, L"Group");
}

ModelStructure* ModelStructure::CreateFromCustomProperty(ORV::Model model) {
    // 1. No property, no structure, and no message.
    ORV::ProjectItem property(model.GetProperties().GetItem(ORV::CString(PROPERTY_NAME)));
    if (!property.IsValid()) return nullptr;

    // 2. Version.
    const int version = static_cast<int>(property.GetParameterValue(L"Version"));
    if (version < OLDEST_VERSION) {
        app.LogMessage(
            L"The embedded model structure has an outdated version number.  Please reload the tag template.",
            8);
        return nullptr;
    }

    // 3. Counts and names. A count beyond the rows its grid holds can only come from a damaged
    // scene; it is cut to the rows so that no absurd array is allocated.
    ORV::GridData nodeGrid = gridOf(property, L"Nodes");
    ORV::GridData planeGrid = gridOf(property, L"Planes");
    int nodeCount = static_cast<int>(property.GetParameterValue(L"numNodes"));
    int planeCount = static_cast<int>(property.GetParameterValue(L"numPlanes"));
    if (nodeCount > nodeGrid.GetRowCount()) nodeCount = static_cast<int>(nodeGrid.GetRowCount());
    if (planeCount > planeGrid.GetRowCount()) planeCount = static_cast<int>(planeGrid.GetRowCount());
    const int decompCount = static_cast<int>(property.GetParameterValue(L"numDecomps"));
    const ORV::CString type = property.GetParameterValue(L"Type").GetAsText();
    ModelStructure* structure = new ModelStructure(nodeCount, planeCount, type);
    structure->Source = property.GetParameterValue(L"Source").GetAsText();
    structure->Type = type;

    // 4. Nodes. Version 7 rows have no mirror column, and those nodes keep -1.
    const long stride = version == 7 ? NODE_COLUMNS_V7 : NODE_COLUMNS;
    if (nodeGrid.IsValid()) {
        ORV::CValueArray cells = nodeGrid.GetData();
        for (int i = 0; i < structure->numNodes && (i + 1) * stride <= cells.GetCount(); ++i) {
            const long at = i * stride;
            Node& node = structure->nodes[i];
            node.Parent = static_cast<int>(cells[at + 0]);
            node.OffsetParent = static_cast<int>(cells[at + 1]);
            node.Name = cells[at + 2].GetAsText();
            const int kind = static_cast<int>(cells[at + 3]);
            node.Type = (kind == 0 || kind == 1 || kind == 2) ? kind : 3;
            node.Friction = static_cast<bool>(cells[at + 4]);
            node.align.Set(static_cast<double>(cells[at + 5]), static_cast<double>(cells[at + 6]),
                           static_cast<double>(cells[at + 7]));
            node.roll.Set(static_cast<double>(cells[at + 8]), static_cast<double>(cells[at + 9]),
                          static_cast<double>(cells[at + 10]));
            if (stride == NODE_COLUMNS) node.mirror_node_index = static_cast<int>(cells[at + 11]);
        }
    }

    // 5. Planes; bones are not stored and run from Span down to AnchorIndex.
    if (planeGrid.IsValid()) {
        ORV::CValueArray cells = planeGrid.GetData();
        for (int i = 0; i < structure->numPlanes && (i + 1) * PLANE_COLUMNS <= cells.GetCount(); ++i) {
            const long at = i * PLANE_COLUMNS;
            Plane& plane = structure->planes[i];
            plane.AnchorIndex = static_cast<int>(cells[at + 0]);
            plane.Mid = static_cast<int>(cells[at + 1]);
            plane.Span = static_cast<int>(cells[at + 2]);
            plane.Name = cells[at + 3].GetAsText();
            plane.bones.Clear();
            for (int bone = plane.Span; bone >= plane.AnchorIndex; --bone) plane.bones.Add(bone);
        }
    }

    // 6. Decompositions. Unlike the file reader, an empty channel counts as a target here, and
    // the first channel enters the targets unconditionally; stored scenes depend on it.
    ORV::GridData decompGrid = gridOf(property, L"Decomps");
    if (decompGrid.IsValid()) {
        const long columns = decompGrid.GetColumnCount();
        const long rows = decompCount < decompGrid.GetRowCount() ? decompCount : decompGrid.GetRowCount();
        for (long row = 0; row < rows; ++row) {
            ORV::CValueArray cells = decompGrid.GetRowValues(row);
            Decomp decomp;
            ORV::CString* fields[6] = {&decomp.PX, &decomp.PY, &decomp.PZ,
                                       &decomp.RX, &decomp.RY, &decomp.RZ};
            decomp.SrcName = cells[0].GetAsText();
            for (int field = 0; field < 6; ++field) *fields[field] = cells[field + 1].GetAsText();
            app.LogMessage(ORV::CString(L"ModelStructure::createFromGrid : ") + decomp.SrcName, 8);
            decomp.targets.Add(decomp.PX);
            for (int field = 1; field < 6; ++field) {
                if (!arrayContains(decomp.targets, *fields[field])) decomp.targets.Add(*fields[field]);
            }
            // The file reader never stores "Unused", so the scan may stop at such a cell.
            ORV::CString* rotationToPosition[3] = {&decomp.RtoP_X, &decomp.RtoP_Y, &decomp.RtoP_Z};
            for (long column = 7; column < columns; ++column) {
                const ORV::CString cell = cells[column].GetAsText();
                if (cell == L"Unused") break;
                if (column - 7 < 3) *rotationToPosition[column - 7] = cell;
                if (!arrayContains(decomp.targets, cell)) decomp.targets.Add(cell);
            }
            structure->decomps.push_back(decomp);
        }
    }

    // 7. Source once more, where it is stored.
    if (property.GetParameter(L"Source").IsValid())
        structure->Source = property.GetParameterValue(L"Source").GetAsText();

    // 8. The groups, base groups first.
    readGroups(property, L"BaseGroup", structure->baseGroups);
    readGroups(property, L"Group", structure->groups);
    return structure;
}

void ModelStructure::cleanup(ORV::Model model) {
    for (const wchar_t* name : {PROPERTY_NAME, TAG_NAME}) {
        ORV::Property property;
        if (Util::findCustomPSet(model, name, property)) Util::deleteObj(property.GetFullName());
    }
}

}  // namespace ZUK
