// Base files: the groups that every structure of a family shares, read by name.
#include <vector>

#include "FuzzTarget.h"
#include "character/ModelStructure.h"

TROVO_FUZZ_TARGET(base) {
    trovofuzz::Prepare();
    trovofuzz::UseScratchLocations(false);
    trovofuzz::ScratchFile("user/Addons/Trovo/Data/Structures/fuzzinput.base", data, size);
    std::vector<ZUK::ModelStructure::Group> groups;
    ZUK::ModelStructure::parseBase(L"fuzzinput", groups);
    return 0;
}
