// The text and binary readers under every read they offer, in an order drawn from a random
// engine. One body for the fuzz entries and for the stream tests of the normal build.
#pragma once

#include <string>

#include "core/FileStream.h"
#include "core/InputStream.h"

namespace trovofuzz {

// Reads of the text reader, one drawn at a time, until its end or `steps` reads. Reads that
// stop before a byte they do not take (a delimiter, a line feed) are moved on by hand, so that
// every input ends. False as soon as the read position leaves the block.
template <class Engine>
bool DrainTextStream(ZUK::InputStream& in, Engine& engine, int steps) {
    const auto inside = [&in] { return in.current >= in.buffer && in.current <= in.end; };
    for (int step = 0; step < steps && !in.atEnd(); ++step) {
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
        if (!inside()) return false;
        if (engine() % 7 == 0) in.resetToPrev();
        if (!inside()) return false;
        if (in.current <= before && !in.atEnd()) in.current = const_cast<char*>(before) + 1;
    }
    return true;
}

// A float format, then `steps` reads of the binary reader, one drawn at a time: numbers,
// strings, blocks of up to 64 bytes and seeks to below `seekLimit`.
template <class Engine>
void ReadBinaryFields(FileStream& in, Engine& engine, int steps, unsigned seekLimit) {
    in.setFloatFormat(static_cast<FileStream::FloatFormat>(84 + engine() % 3));
    for (int step = 0; step < steps; ++step) {
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
                in.seek(static_cast<int>(engine() % seekLimit));
                break;
        }
    }
}

}  // namespace trovofuzz
