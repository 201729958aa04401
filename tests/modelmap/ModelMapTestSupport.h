// Shared scaffolding of the model map tests: the factory data as the add-on root, narrow text
// for failure messages, property lookup, and structures written in a test.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "character/StructureTestSupport.h"

namespace modelmaptest {

inline std::string Narrow(const std::wstring& w) { return std::string(w.begin(), w.end()); }
inline std::string Narrow(const ORV::CString& s) { return Narrow(std::wstring(s.GetWideString())); }

// The factory data of the source tree as the only add-on root, for as long as it lives.
class FactoryData {
public:
    FactoryData() { structtest::UseLocations("", TROVO_FACTORY_DATA); }

private:
    structtest::SavedLocations saved;
};

// A scratch add-on root holding structure files written by the test, for as long as it lives.
class ScratchStructures {
public:
    ScratchStructures() { structtest::UseLocations(root.dir, ""); }
    void Write(const std::string& name, const std::string& text) const {
        root.Write("Structures/" + name, text);
    }

private:
    structtest::SavedLocations saved;
    structtest::ScratchRoot root;
};

inline ORV::Property FindProperty(const ORV::X3DObject& object, const wchar_t* name) {
    if (!object.IsValid()) return ORV::Property();
    ORV::CRefArray properties = object.GetProperties();
    for (long i = 0; i < properties.GetCount(); ++i) {
        ORV::Property p(properties[i]);
        if (p.GetName() == ORV::CString(name)) return p;
    }
    return ORV::Property();
}

inline std::unique_ptr<ZUK::ModelStructure> LoadStructure(const wchar_t* name) {
    return std::unique_ptr<ZUK::ModelStructure>(ZUK::ModelStructure::CreateFromFile(name));
}

}  // namespace modelmaptest
