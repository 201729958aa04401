// Argument reading of the commands whose arguments have defaults. The commands' _Execute
// callbacks read their arguments through these, so they are the rules a script caller sees.
#pragma once

#include <orv/ORV.h>

namespace ZUK {
namespace Commands {

struct ImportC3DFileArguments {
    ORV::CString c3dFile;
    int upDirection = 2;
    bool createESR = false;
    ORV::CString structureFile;
};

// Reads the arguments of "ImportC3DFile" in declaration order. The structure template is
// required as soon as "create_esr_Optional" is present, whatever its value. On a missing
// argument, logs its message at severity 4 and answers false.
bool ReadImportC3DFileArguments(const ORV::CValueArray& args, ImportC3DFileArguments& out);

struct LoadTrovoFileArguments {
    ORV::Model target;
    ORV::CString file;
    int start = 0;
};

// Reads the arguments of "LoadTrovoFile"; "start" is 0 when missing. On a missing argument,
// logs its message at severity 4 and answers false.
bool ReadLoadTrovoFileArguments(const ORV::CValueArray& args, LoadTrovoFileArguments& out);

}  // namespace Commands
}  // namespace ZUK
