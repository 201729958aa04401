// Character files through the host's import: the first byte chooses the suffix, which is how
// the importer picks its reader (glb, gltf, bvh, fbx), the rest is the file. A character that
// imports is written out again as BVH from the model it made (its first frames); a file that is refused
// leaves the scene as it was, with a reason.
#include <cstdlib>
#include <string>

#include "CharacterFiles.h"
#include "FuzzTarget.h"
#include "HostTesting.h"

TROVO_FUZZ_TARGET(character) {
    static const char* const kSuffixes[] = {"glb", "gltf", "bvh", "fbx"};
    if (size == 0) return 0;
    trovofuzz::Prepare();
    orvhost::NewScene();
    const std::string suffix = kSuffixes[data[0] % 4];
    const std::string path = trovofuzz::ScratchFile("input." + suffix, data + 1, size - 1);
    const long before = ORV::Application().GetActiveSceneRoot().GetChildren().GetCount();
    std::wstring error;
    orvhost::Object3D* model = orvhost::ImportCharacter(path, orvhost::CharacterImportOptions(), error);
    if (!model) {
        if (error.empty() || ORV::Application().GetActiveSceneRoot().GetChildren().GetCount() != before)
            std::abort();
        return 0;
    }
    // The first frames only: a damaged file may stretch its animation over millions of frames,
    // which export samples one by one.
    orvhost::CharacterExportOptions range;
    range.range = true;
    range.start = 1.0;
    range.end = 30.0;
    orvhost::ExportCharacter(trovofuzz::ScratchDir() + "/output.bvh", model, range, error);
    orvhost::NewScene();
    return 0;
}
