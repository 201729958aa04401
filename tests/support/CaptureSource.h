// The capture side of a retarget, built as the capture driver builds it: the plug-in's BVH
// reader, the tags of a BVH map file written for the skeleton (BvhRigBuilder.h's MapFileText),
// and a measured capture map over the structure the map file names. For tests of every area
// that copy real capture onto a rig (include "support/CaptureSource.h").
#pragma once

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/InputStream.h"
#include "mocap/BvImport.h"
#include "modelmap/ModelMap.h"
#include "support/BvhRigBuilder.h"

namespace bvhrig {

struct CaptureSource {
    std::unique_ptr<ZUK::MocapData> mocap;
    std::unique_ptr<ZUK::ModelStructure> structure;
    std::unique_ptr<ZUK::ModelMap> map;

    // False when the file, the structure or the tags do not read.
    bool Build(const std::string& bvhPath, const Tagging& tagging, const wchar_t* structureName = L"biped") {
        mocap.reset(ZUK::BvImport::extractMocapData(ORV::CString(bvhPath.c_str()), ZUK::YUp));
        if (!mocap) return false;
        mocap->updateTransforms(0);
        std::unique_ptr<ZUK::ModelStructure> layout(ZUK::ModelStructure::CreateFromFile(structureName));
        if (!layout) return false;
        char path[] = "/tmp/trovo_capture_map_XXXXXX";
        const int fd = mkstemp(path);
        if (fd < 0) return false;
        close(fd);
        { std::ofstream(path) << MapFileText(*layout, tagging); }
        ZUK::InputStream stream{ORV::CString(path)};
        ORV::CString word;
        stream >> word;  // "BVH"
        std::unique_ptr<ZUK::TagMap> tags(ZUK::TagMap::createFromStream(stream));
        std::remove(path);
        if (!tags || !tags->applyToMocap(mocap.get())) return false;
        structure.reset(ZUK::ModelStructure::CreateFromFile(tags->structure_file));
        if (!structure) return false;
        map.reset(new ZUK::ModelMap(mocap.get(), structure.get()));
        map->createMap();
        return true;
    }
};

}  // namespace bvhrig
