// The normalised motion file drivers: a rig's motion saved once, loaded on any rig of the
// same structure.
#include <sys/stat.h>

#include <memory>

#include "character/ModelStructure.h"
#include "core/FileManager.h"
#include "core/XMLFileStream.h"
#include "glue/GlueMap.h"
#include "modelmap/ModelMap.h"
#include "shell/Retarget.h"
#include "shell/Util.h"

namespace ZUK {
namespace Retarget {

namespace {

ORV::Application app;

// A rig's map as every driver reads it: the structure stored on the model, the tags found
// under it, and the measures stored at tagging time. Null structure when the model has none;
// the map's `valid` says whether the measures came back.
struct RigMap {
    std::unique_ptr<ModelStructure> structure;
    std::unique_ptr<ModelMap> map;

    bool load(ORV::Model model) {
        structure.reset(ModelStructure::CreateFromCustomProperty(model));
        if (!structure) return false;
        map.reset(new ModelMap(model, structure.get()));
        map->LoadFromCustomProperty();
        return map->valid;
    }
};

// When a file was last changed, to the nanosecond; false when it is not there.
bool modificationTime(const ORV::CString& path, struct timespec& out) {
    struct stat info;
    if (path.IsEmpty() || ::stat(path.GetAsciiString(), &info) != 0 || !S_ISREG(info.st_mode)) return false;
    out = info.st_mtim;
    return true;
}

}  // namespace

bool LoadTrovoFile(const ORV::CString& file, ORV::Model target, int start) {
    // 1-2. The motion, read into a map of its own: the XML form when the file says so, the
    // text form otherwise.
    ModelMap sourceMap;
    if (XMLFileStream::IsXMLFile(file)) {
        if (!sourceMap.loadMotionFromXMLFile(file)) return false;
    } else if (!sourceMap.CreateFromFile(file) && !FileManager::fileIsReadable(file)) {
        // The text reader says nothing of a file it cannot open; the load goes on, as with any
        // text file, and finds no motion to play.
        app.LogMessage(L"Could not read the Trovo file " + file + L".", 4);
    }

    // 3. The target's map.
    RigMap targetMap;
    if (!targetMap.load(target)) {
        Util::alert(L"Failed to read destmodel map from source model.");
        return false;
    }

    // 4. The glue through which the motion drives the rig. A model without current glue has
    // said so already ("please re-tag").
    std::unique_ptr<GlueMap> glue(GlueMap::CreateFromCustomProperty(target));
    if (!glue) return false;
    glue->applyToModel(target, targetMap.map.get());

    // 5. The transfer installs the live operators; it refuses a file of another structure or
    // one that held no motion.
    return targetMap.map->TransferNormMotion(sourceMap, *glue, start);
}

bool SaveTrovoFile(ORV::Model source, const ORV::CString& file, int start, int end) {
    // 1. The structure stored on the model.
    std::unique_ptr<ModelStructure> structure(ModelStructure::CreateFromCustomProperty(source));
    if (!structure) {
        Util::alert(L"Cannot create structure.");
        return false;
    }

    // 2. The model's map with its stored measures.
    ModelMap map(source, structure.get());
    map.LoadFromCustomProperty();
    if (!map.valid) {
        Util::alert(L"Failed to read the map from the source model.");
        return false;
    }

    // 3. Always the XML form. The answer is whether the map could be read; the document is
    // written as its stream closes, which reports no failure, so a file that is not there
    // afterwards, or was not touched, is told to the user here.
    struct timespec before = {0, 0}, after = {0, 0};
    const bool existed = modificationTime(file, before);
    map.saveMotionToXMLFile(file, start, end);
    if (!modificationTime(file, after) ||
        (existed && after.tv_sec == before.tv_sec && after.tv_nsec == before.tv_nsec))
        Util::alert(L"Could not write the Trovo file " + file + L".");
    return true;
}

}  // namespace Retarget
}  // namespace ZUK
