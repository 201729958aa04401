// The field reader of binary files under every read it offers, in an order and with float
// formats drawn from the input's first four bytes; the rest is the file.
#include <cstdlib>
#include <random>
#include <string>

#include "FuzzTarget.h"
#include "StreamReads.h"

TROVO_FUZZ_TARGET(binary_stream) {
    trovofuzz::Prepare();
    std::minstd_rand engine(trovofuzz::TakeSeed(data, size));
    const std::string path = trovofuzz::ScratchFile("input.bin", data, size);
    FileStream in(ORV::CString(path.c_str()));
    if (!in.ok()) return 0;
    const int length = StdFileLength(in.file);
    if (length != static_cast<int>(size)) std::abort();
    trovofuzz::ReadBinaryFields(in, engine, 200, static_cast<unsigned>(size + 16));
    return 0;
}
