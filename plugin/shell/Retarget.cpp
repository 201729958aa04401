#include "shell/Retarget.h"

#include <memory>

#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "core/InputStream.h"
#include "glue/GlueMap.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"
#include "shell/Placeholder.h"
#include "shell/Util.h"

namespace ZUK {
namespace Retarget {

namespace {

ORV::Application app;

// Switches the command log off for a scope and restores the value it had on every way out.
class CommandLogOff {
public:
    CommandLogOff() : previous(Util::logCommands(false)) {}
    ~CommandLogOff() { Util::logCommands(previous); }
    CommandLogOff(const CommandLogOff&) = delete;
    CommandLogOff& operator=(const CommandLogOff&) = delete;

private:
    bool previous;
};

// A rig's map loaded from its custom properties: the structure, the map built on it and the
// stored measures. The map is invalid when any of the three is missing. The structure outlives
// the map that points at it.
struct RigMap {
    explicit RigMap(ORV::Model model)
        : structure(ModelStructure::CreateFromCustomProperty(model)),
          map(new ModelMap(model, structure.get())) {
        if (map->valid) map->LoadFromCustomProperty();
    }
    std::unique_ptr<ModelStructure> structure;
    std::unique_ptr<ModelMap> map;
};

}  // namespace

bool ModelToModel(ORV::Model source, ORV::Model target, int start, int end) {
    // 1.-2. The source first: a source that was never set up says so before the target is read.
    RigMap sourceRig(source);
    if (!sourceRig.map->valid) {
        Util::alert(L"Failed to read model map from source model.");
        return false;
    }
    RigMap targetRig(target);
    if (!targetRig.map->valid) {
        Util::alert(L"Failed to read model map from target model.");
        return false;
    }

    // 3.
    std::unique_ptr<GlueMap> glue(GlueMap::CreateFromCustomProperty(target));
    if (!glue) {
        Util::alert(L"Destination model is not setup for retargetting.");
        return false;
    }
    glue->applyToModel(target, targetRig.map.get());

    // 4. The one place where the caller's last frame becomes one past it.
    return targetRig.map->TransferRigToRigMotion(*sourceRig.map, *glue, start, end + 1);
}

bool LoadBVHOnToModel(const ORV::CString& bvhFile, const ORV::CString& mapFile, ORV::Model target) {
    // 1.-2. Both reads come before anything touches the scene or its command log.
    InputStream stream(mapFile);
    if (!stream.buffer) {
        app.LogMessage(L"Could not read mapfile.", 4);
        return false;
    }
    if (!TagMap::readMapFileHeader(stream, mapFile)) return false;

    // 3. From here on the command log comes back on every way out.
    CommandLogOff logOff;

    // 4. The tag map reports its own failure.
    std::unique_ptr<TagMap> tagMap(TagMap::createFromStream(stream));
    if (!tagMap) return false;

    // 5.-7.
    std::unique_ptr<MocapData> mocap(BvImport::extractMocapData(bvhFile, YUp));
    if (!mocap) {
        app.LogMessage(L"Failed to load the BVH file.", 4);
        return false;
    }
    mocap->updateTransforms(0);
    if (!tagMap->applyToMocap(mocap.get())) {
        app.LogMessage(L"Failed the mocap tag process.", 4);
        return false;
    }

    // 8.-10. The capture seen through the structure that the map file names.
    std::unique_ptr<ModelStructure> sourceStructure(ModelStructure::CreateFromFile(tagMap->structure_file));
    if (!sourceStructure) {
        app.LogMessage(L"Failed to create the structure.", 4);
        return false;
    }
    ModelMap sourceMap(mocap.get(), sourceStructure.get());
    if (!sourceMap.valid) {
        app.LogMessage(L"Failed to create the model map.", 4);
        return false;
    }
    sourceMap.createMap();

    // 11.-12. The target as its tagging left it.
    std::unique_ptr<ModelStructure> targetStructure(ModelStructure::CreateFromCustomProperty(target));
    if (!targetStructure) {
        app.LogMessage(L"Failed to create the model map. Possible missing ZUKStructure.", 4);
        return false;
    }
    ModelMap targetMap(target, targetStructure.get());
    targetMap.LoadFromCustomProperty();
    if (!targetMap.valid) {
        app.LogMessage(L"Destination model is not setup for retargetting.", 4);
        return false;
    }

    // 13. A rig whose glue is gone is not set up either.
    std::unique_ptr<GlueMap> glue(GlueMap::CreateFromCustomProperty(target));
    if (!glue) {
        app.LogMessage(L"Destination model is not setup for retargetting.", 4);
        return false;
    }
    glue->applyToModel(target, &targetMap);

    // 14.-15. The log comes back as logOff ends.
    return targetMap.TransferMocapMotion(sourceMap, *glue);
}

bool LoadC3DOnToESR(const ORV::CString& c3dFile, const ORV::CString& poseMapFile) {
    app.LogMessage(L"LoadC3DOnToESR is not built yet", 4);
    logPlaceholderCall(L"LoadC3DOnToESR", {c3dFile, poseMapFile});
    return false;
}

bool ImportC3DFile(ORV::CString c3dFile, int upDirection, bool createESR, ORV::CString structureFile) {
    app.LogMessage(L"ImportC3DFile is not built yet", 4);
    logPlaceholderCall(L"ImportC3DFile", {c3dFile, upDirection, createESR, structureFile});
    return false;
}

bool SaveC3DPoseMapFile(ORV::Model c3dModel, ORV::Model esr, const ORV::CString& poseMapFile) {
    app.LogMessage(L"SaveC3DPoseMapFile is not built yet", 4);
    logPlaceholderCall(L"SaveC3DPoseMapFile", {c3dModel.GetRef(), esr.GetRef(), poseMapFile});
    return false;
}

}  // namespace Retarget
}  // namespace ZUK
