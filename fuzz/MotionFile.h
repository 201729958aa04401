// Normalised motion files (".trovo"), text or XML, read as a load reads them; a map that
// reads gives every transform of its first and last frame.
#pragma once

#include <cstdlib>
#include <memory>

#include "FuzzTarget.h"
#include "modelmap/ModelMap.h"

namespace trovofuzz {

inline int ReadMotionFile(const std::uint8_t* data, std::size_t size) {
    Prepare();
    const std::string path = ScratchFile("input.trovo", data, size);
    std::unique_ptr<ZUK::ModelMap> map(ZUK::ModelMap::CreateMotionMapFromFile(ORV::CString(path.c_str())));
    if (!map) return 0;
    if (!map->structure) std::abort();
    const long nodes = static_cast<long>(map->nodes.size());
    volatile double sum = 0.0;
    for (long frame : {0L, static_cast<long>(map->numFrames) - 1L}) {
        if (frame < 0 || frame >= map->numFrames) continue;
        for (long n = 0; n < nodes; ++n) sum = sum + map->motion[frame * nodes + n].GetTranslation().GetX();
    }
    return 0;
}

}  // namespace trovofuzz
