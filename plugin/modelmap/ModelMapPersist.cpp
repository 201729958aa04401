// The measures of a rig map kept on the model: the custom property "ZUKMap", and the same
// values as text inside tag templates. Only what cannot be rebuilt from the tags is kept: per
// node its length, its axis offset and its extraction's offset and object; per map the leg
// length and hip offset.
#include "character/ModelStructure.h"
#include "core/InputStream.h"
#include "core/OutputStream.h"
#include "modelmap/ModelMap.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

ORV::Application app;

const int NODE_COLUMNS = 11;
const wchar_t* const NODE_LABELS[NODE_COLUMNS] = {L"Name",  L"Length", L"RotW",  L"RotX",  L"RotY", L"RotZ",
                                                  L"eRotW", L"eRotX",  L"eRotY", L"eRotZ", L"eName"};
// Persistable only: the property is data, not a panel.
const int MAP_CAPABILITIES = ORV::ovPersistable;

// An extraction quaternion this long or shorter stands for "no extraction".
const double EXTRACTION_MIN_LENGTH = 0.5;

void addValue(ORV::CustomProperty& property, const wchar_t* name, ORV::ovValueType type,
              const ORV::CValue& value, const wchar_t* description) {
    ORV::Parameter parameter;
    property.AddParameter(name, type, MAP_CAPABILITIES, L"", description, value, parameter);
}

// A cell of a grid row; empty beyond the row's end, so that a short row reads as zeros.
ORV::CValue cell(const ORV::CValueArray& row, long column) {
    return column < row.GetCount() ? row[column] : ORV::CValue();
}

ORV::MATH::CQuaternion quaternionOf(const ORV::CValueArray& row, long first) {
    return ORV::MATH::CQuaternion(
        static_cast<double>(cell(row, first)), static_cast<double>(cell(row, first + 1)),
        static_cast<double>(cell(row, first + 2)), static_cast<double>(cell(row, first + 3)));
}

}  // namespace

void ModelMap::SaveToCustomProperty() {
    if (!structure) return;
    // The property is rewritten whole, never patched.
    cleanup(*this);

    ORV::Property added = AddProperty(L"CustomProperty", false, PROPERTY_NAME);
    ORV::CustomProperty property(added.GetRef());
    addValue(property, L"Version", ORV::ovString, ORV::CValue(VERSION), L"Version of the map format");
    addValue(property, L"Source", ORV::ovString, ORV::CValue(structure->Source),
             L"Source file for the map structure");
    addValue(property, L"Type", ORV::ovString, ORV::CValue(structure->Type),
             L"Type of the simple rig used for mapping");

    ORV::CValueArray rows;
    for (const NodeMap& node : nodes) {
        const size_t i = static_cast<size_t>(&node - nodes.data());
        rows.Add(structure->nodes[i].Name);
        rows.Add(node.length);
        const ORV::MATH::CQuaternion q = node.esrOffset.GetRotationQuaternion();
        rows.Add(q.GetW());
        rows.Add(q.GetX());
        rows.Add(q.GetY());
        rows.Add(q.GetZ());
        if (node.extraction) {
            const ORV::MATH::CQuaternion e = node.extraction->esrOffsetInverse.GetRotationQuaternion();
            rows.Add(e.GetW());
            rows.Add(e.GetX());
            rows.Add(e.GetY());
            rows.Add(e.GetZ());
            rows.Add(node.extraction->object.GetName());
        } else {
            for (int k = 0; k < 4; ++k) rows.Add(0.0);
            rows.Add(ORV::CString());
        }
    }
    ORV::Parameter gridParameter = property.AddGridParameter(L"Nodes");
    ORV::GridData grid(static_cast<ORV::CRef>(gridParameter.GetValue()));
    grid.PutColumnCount(NODE_COLUMNS);
    grid.PutRowCount(static_cast<long>(nodes.size()));
    for (int column = 0; column < NODE_COLUMNS; ++column) grid.PutColumnLabel(column, NODE_LABELS[column]);
    grid.PutData(rows);

    addValue(property, L"HipOffset", ORV::ovDouble, ORV::CValue(hipOffset), L"");
    addValue(property, L"LegLength", ORV::ovDouble, ORV::CValue(legLength), L"");
}

void ModelMap::LoadFromCustomProperty() {
    // 1. The property.
    valid = true;
    ORV::CustomProperty property;
    ORV::CRefArray properties = GetProperties();
    for (long k = 0; k < properties.GetCount(); ++k) {
        ORV::Property candidate(properties[k]);
        if (candidate.GetName() == PROPERTY_NAME) {
            property = ORV::CustomProperty(properties[k]);
            break;
        }
    }
    if (!property.IsValid()) {
        app.LogMessage(L"ModelMap property not found", 8);
        valid = false;
        return;
    }

    // 2.-3. Any version up to the current one loads.
    ORV::Parameter versionParameter = property.GetParameter(L"Version");
    if (!versionParameter.IsValid()) {
        app.LogMessage(L"ModelMap property is missing Version parameter", 8);
        valid = false;
        return;
    }
    const ORV::CValue version = versionParameter.GetValue();
    if (static_cast<int>(version) > VERSION) {
        app.LogMessage(L"ModelMap property has version " + version.GetAsText() + L", was expecting " +
                           ORV::CValue(VERSION).GetAsText() + L" or lower",
                       8);
        valid = false;
        return;
    }

    // 4. The structure type.
    ORV::Parameter typeParameter = property.GetParameter(L"Type");
    if (!typeParameter.IsValid()) {
        app.LogMessage(L"ModelMap property is missing Type parameter", 8);
        valid = false;
        return;
    }
    const ORV::CString type = typeParameter.GetValue().GetAsText();
    const ORV::CString expectedType = structure ? structure->Type : ORV::CString();
    if (!structure || type != expectedType) {
        app.LogMessage(L"ModelMap property has type " + type + L", was expecting " + expectedType, 8);
        valid = false;
        return;
    }

    // 5. One row per structure node, by position; a row named otherwise is logged and taken.
    ORV::GridData grid(static_cast<ORV::CRef>(property.GetParameter(L"Nodes").GetValue()));
    for (size_t i = 0; i < nodes.size(); ++i) {
        NodeMap& node = nodes[i];
        const ORV::CValueArray row = grid.GetRowValues(static_cast<long>(i));
        const ORV::CString name = cell(row, 0).GetAsText();
        const ORV::CString& expected = structure->nodes[i].Name;
        if (name != expected)
            app.LogMessage(L"name mismatch: got " + name + L", was expecting " + expected, 8);

        node.length = static_cast<double>(cell(row, 1));
        node.esrOffset.SetRotationFromQuaternion(quaternionOf(row, 2));
        node.esrOffsetInverse = Util::invertTransform(node.esrOffset);

        const ORV::MATH::CQuaternion e = quaternionOf(row, 6);
        if (e.GetLength() > EXTRACTION_MIN_LENGTH) {
            // The directions of an extraction restored here stay zero: only its offset is kept.
            delete node.extraction;
            node.extraction = new ExtractionMap();
            node.extraction->esrOffsetInverse.SetRotationFromQuaternion(e);
            node.extraction->object = FindChild(cell(row, 10).GetAsText(), L"", ORV::CStringArray(), true);
        }
    }

    // 6. The map's measures.
    hipOffset = static_cast<double>(property.GetParameterValue(L"HipOffset"));
    legLength = static_cast<double>(property.GetParameterValue(L"LegLength"));
}

void ModelMap::WriteToStream(OutputStream& stream) {
    if (!structure) return;
    stream << VERSION << '\n';
    stream << structure->Source << '\n';
    stream << structure->Type << '\n';
    for (size_t i = 0; i < nodes.size(); ++i) {
        const NodeMap& node = nodes[i];
        stream << structure->nodes[i].Name << '\n';
        stream << node.length;
        const ORV::MATH::CQuaternion q = node.esrOffset.GetRotationQuaternion();
        stream << q.GetW() << q.GetX() << q.GetY() << q.GetZ();
        if (node.extraction) {
            const ORV::MATH::CQuaternion e = node.extraction->esrOffsetInverse.GetRotationQuaternion();
            stream << e.GetW() << e.GetX() << e.GetY() << e.GetZ();
            stream << node.extraction->object.GetName();
        } else {
            stream << 0.0 << 0.0 << 0.0 << 0.0 << ORV::CString();
        }
        stream << '\n';
    }
    stream << hipOffset << legLength;
}

void ModelMap::ReadFromStream(InputStream& stream) {
    valid = true;
    if (!structure) {
        valid = false;
        return;
    }

    // 1. Only the current version reads.
    int version = 0;
    stream >> version;
    if (version != VERSION) {
        app.LogMessage(L"Map version mismatch", 8);
        valid = false;
        return;
    }

    // 2. The structure it was measured on.
    ORV::CString source, type;
    stream >> source >> type;
    if (source != structure->Source) {
        app.LogMessage(L"Structure source file mismatch", 8);
        valid = false;
        return;
    }
    if (type != structure->Type) {
        app.LogMessage(L"Structure type mismatch", 8);
        valid = false;
        return;
    }

    // 3. One block per node; a block for another node ends the reading.
    for (size_t i = 0; i < nodes.size(); ++i) {
        NodeMap& node = nodes[i];
        ORV::CString name;
        stream >> name;
        const ORV::CString& expected = structure->nodes[i].Name;
        if (name != expected) {
            app.LogMessage(L"name mismatch: got " + name + L", was expecting " + expected, 8);
            valid = false;
            return;
        }
        double w = 0.0, x = 0.0, y = 0.0, z = 0.0;
        stream >> node.length >> w >> x >> y >> z;
        node.esrOffset.SetRotationFromQuaternion(ORV::MATH::CQuaternion(w, x, y, z));
        node.esrOffsetInverse = Util::invertTransform(node.esrOffset);

        double ew = 0.0, ex = 0.0, ey = 0.0, ez = 0.0;
        stream >> ew >> ex >> ey >> ez;
        const ORV::MATH::CQuaternion e(ew, ex, ey, ez);
        if (e.GetLength() > EXTRACTION_MIN_LENGTH) {
            ORV::CString objectName;
            stream >> objectName;
            delete node.extraction;
            node.extraction = new ExtractionMap();
            node.extraction->esrOffsetInverse.SetRotationFromQuaternion(e);
            node.extraction->object = FindChild(objectName, L"", ORV::CStringArray(), true);
        }
        // Without an extraction the writer left an empty name: nothing stands there to read.
    }

    // 4. The map's measures.
    stream >> hipOffset >> legLength;
}

}  // namespace ZUK
