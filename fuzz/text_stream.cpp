// The tokenising text reader under every read it offers, in an order drawn from the input's
// first four bytes; the rest is the file. The read position never leaves the block.
#include <cstdlib>
#include <random>

#include "FuzzTarget.h"
#include "StreamReads.h"

TROVO_FUZZ_TARGET(text_stream) {
    trovofuzz::Prepare();
    std::minstd_rand engine(trovofuzz::TakeSeed(data, size));
    const std::string path = trovofuzz::ScratchFile("input.txt", data, size);
    ZUK::InputStream in(ORV::CString(path.c_str()));
    if (in.buffer == nullptr || in.end != in.buffer + size) std::abort();
    if (!trovofuzz::DrainTextStream(in, engine, 20000)) std::abort();
    return 0;
}
