// The tokenising text reader under every read it offers, in an order drawn from the input's
// first four bytes; the rest is the file. The read position never leaves the block.
#include <cstdlib>
#include <random>

#include "FuzzTarget.h"
#include "core/InputStream.h"

namespace {

void Check(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

TROVO_FUZZ_TARGET(text_stream) {
    trovofuzz::Prepare();
    std::minstd_rand engine(trovofuzz::TakeSeed(data, size));
    const std::string path = trovofuzz::ScratchFile("input.txt", data, size);
    ZUK::InputStream in(ORV::CString(path.c_str()));
    Check(in.buffer != nullptr);
    Check(in.end == in.buffer + size);
    for (int step = 0; step < 20000 && !in.atEnd(); ++step) {
        const char* before = in.current;
        switch (engine() % 12) {
            case 0: {
                int i;
                in >> i;
                break;
            }
            case 1: {
                double d;
                in >> d;
                break;
            }
            case 2: {
                ORV::CString s;
                in >> s;
                break;
            }
            case 3: {
                bool b;
                in >> b;
                break;
            }
            case 4: {
                ORV::MATH::CVector3 v;
                in >> v;
                break;
            }
            case 5: {
                ORV::MATH::CRotation r;
                in >> r;
                break;
            }
            case 6: {
                ORV::MATH::CTransformation t;
                in >> t;
                break;
            }
            case 7: {
                ORV::CString line;
                in.readLine(line);
                break;
            }
            case 8: {
                ORV::CString s;
                in.readDelimitedString(s, L",{}");
                break;
            }
            case 9:
                in.findDelimiters(L"}");
                break;
            case 10:
                in.isCR();
                break;
            default: {
                char c;
                in >> c;
                break;
            }
        }
        Check(in.current >= in.buffer && in.current <= in.end);
        if (engine() % 7 == 0) in.resetToPrev();
        Check(in.current >= in.buffer && in.current <= in.end);
        // Reads that stop before a byte they do not take (a delimiter, a line feed) are moved
        // on by hand, so that every input ends.
        if (in.current <= before && !in.atEnd()) in.current = const_cast<char*>(before) + 1;
    }
    return 0;
}
