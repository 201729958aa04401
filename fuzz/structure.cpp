// Structure files, read by name with the factory base files beside them, then stored on a
// model and rebuilt from it as a tagged rig keeps its structure.
#include "FuzzTarget.h"
#include "character/ModelStructure.h"

TROVO_FUZZ_TARGET(structure) {
    trovofuzz::Prepare();
    trovofuzz::UseScratchLocations(true);
    trovofuzz::ScratchFile("user/Addons/Trovo/Data/Structures/fuzzinput.structure", data, size);
    ZUK::ModelStructure* structure = ZUK::ModelStructure::CreateFromFile(L"fuzzinput");
    if (!structure) return 0;
    ORV::Model root = ORV::Application().GetActiveSceneRoot();
    structure->SaveToCustomProperty(root);
    delete ZUK::ModelStructure::CreateFromCustomProperty(root);
    ZUK::ModelStructure::cleanup(root);
    delete structure;
    return 0;
}
