// Writer of the plug-in's text formats: numbers in the host's text form followed by one
// blank, strings raw with nothing behind them. Callers test `file` before writing: writes on
// a stream whose open failed are not guarded.
#pragma once

#include <orv/ORV.h>

#include <cstdio>

namespace ZUK {

class OutputStream {
public:
    // Opens the file in text mode for writing, truncating it; `file` stays null on failure.
    explicit OutputStream(const ORV::CString& path);
    ~OutputStream();

    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

    OutputStream& operator<<(char c);
    // Narrowed by the C library; exactly as many bytes as the string has characters.
    OutputStream& operator<<(const ORV::CString& text);
    OutputStream& operator<<(int value);
    OutputStream& operator<<(double value);
    OutputStream& operator<<(const ORV::MATH::CVector3& v);
    // XYZ Euler angles in radians.
    OutputStream& operator<<(const ORV::MATH::CRotation& r);
    // Rotation, then translation: six numbers, no scaling.
    OutputStream& operator<<(const ORV::MATH::CTransformation& t);
    void dump(unsigned char* bytes, int count);

    FILE* file = nullptr;
};

}  // namespace ZUK
