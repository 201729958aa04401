// The field reader of binary files under every read it offers, in an order and with float
// formats drawn from the input's first four bytes; the rest is the file.
#include <cstdlib>
#include <random>
#include <string>

#include "FuzzTarget.h"
#include "core/FileStream.h"

TROVO_FUZZ_TARGET(binary_stream) {
    trovofuzz::Prepare();
    std::minstd_rand engine(trovofuzz::TakeSeed(data, size));
    const std::string path = trovofuzz::ScratchFile("input.bin", data, size);
    FileStream in(ORV::CString(path.c_str()));
    if (!in.ok()) return 0;
    const int length = StdFileLength(in.file);
    if (length != static_cast<int>(size)) std::abort();
    in.setFloatFormat(static_cast<FileStream::FloatFormat>(84 + engine() % 3));
    for (int step = 0; step < 200; ++step) {
        switch (engine() % 7) {
            case 0: {
                float f;
                in >> f;
                break;
            }
            case 1: {
                short s;
                in >> s;
                break;
            }
            case 2: {
                unsigned char u;
                in >> u;
                break;
            }
            case 3: {
                char c;
                in >> c;
                break;
            }
            case 4: {
                std::string s;
                in.readString(s, static_cast<int>(engine() % 9) - 1);
                break;
            }
            case 5: {
                char block[64];
                in.readBytes(block, static_cast<int>(engine() % 65));
                break;
            }
            default:
                in.seek(static_cast<int>(engine() % (size + 16)));
                break;
        }
    }
    return 0;
}
