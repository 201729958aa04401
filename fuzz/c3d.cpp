// C3D files: header, parameter records and every frame, read as an import reads them with
// the up direction and the loss handling drawn from the input's size; a file that reads
// gives its labels, and every point at its first, middle and last frame.
#include <memory>

#include "FuzzTarget.h"
#include "mocap/C3DFile.h"

TROVO_FUZZ_TARGET(c3d) {
    trovofuzz::Prepare();
    const std::string path = trovofuzz::ScratchFile("input.c3d", data, size);
    const ZUK::UpDirection up = static_cast<ZUK::UpDirection>(size % 3);
    const bool truncateAtLoss = (size / 3) % 2 == 1;
    std::unique_ptr<C3DFile> file(C3DFile::CreateFromFile(ORV::CString(path.c_str()), up, truncateAtLoss));
    if (!file) return 0;
    for (int point = 0; point < file->pointCount; ++point) {
        ORV::CString label;
        file->getStringValue("POINT", "LABELS", point, label);
        for (int frame : {0, file->frameCount / 2, file->frameCount - 1}) {
            file->sample(point, frame);
            file->interpolate(point, frame + 0.5);
        }
    }
    return 0;
}
