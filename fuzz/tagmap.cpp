// Tag templates (".tagt") and BVH map files: an input that begins with "BVH" is read as a map
// file, anything else as a template, since the reader tells them apart by the suffix.
#include "character/TagMap.h"

#include <cstring>
#include <memory>

#include "FuzzTarget.h"

TROVO_FUZZ_TARGET(tagmap) {
    trovofuzz::Prepare();
    const bool mapFile = size >= 3 && std::memcmp(data, "BVH", 3) == 0;
    const std::string path = trovofuzz::ScratchFile(mapFile ? "input.map" : "input.tagt", data, size);
    std::unique_ptr<ZUK::TagMap> map(ZUK::TagMap::createFromMapFile(ORV::CString(path.c_str())));
    return 0;
}
