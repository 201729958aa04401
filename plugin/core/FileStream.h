// Field-by-field reader of binary files, used by the C3D reader. Multi-byte integers are
// little-endian; floats go through convertFloat, which knows the DEC (VAX) layout.
#pragma once

#include <orv/ORV.h>

#include <cstdio>
#include <string>

// The length of an open file, by seeking to its end and back; the position is restored.
// A 32-bit signed length: files of 2 GiB or more are beyond the system. -1 when the file
// cannot be measured.
int StdFileLength(FILE* file);

class FileStream {
public:
    // The C3D processor type byte. Any byte a file carries is a valid value (hence the fixed
    // underlying type); only DEC changes anything.
    enum FloatFormat : int {
        INTEL = 84,  // IEEE floats, the value after construction
        DEC = 85,    // VAX floats, converted by convertFloat
        MIPS = 86    // not treated: read as if Intel
    };

    explicit FileStream(const ORV::CString& path);
    ~FileStream();

    FileStream(const FileStream&) = delete;
    FileStream& operator=(const FileStream&) = delete;

    bool ok() const { return file != nullptr; }
    void close();
    // Absolute seek from the start of the file.
    bool seek(int offset);
    void setFloatFormat(FloatFormat format) { floatFormat = format; }
    // Under DEC the 16-bit halves change places and the value is divided by 4; no range
    // checks or reserved operands. Every other format passes the value unchanged.
    float convertFloat(float value) const;

    FileStream& operator>>(float& value);
    FileStream& operator>>(short& value);
    FileStream& operator>>(unsigned char& value);
    FileStream& operator>>(char& value);
    // Appends `length` single bytes; a length below 1 does nothing.
    void readString(std::string& text, int length);
    // One bulk read. A short read is logged and the caller carries on with what it has.
    void readBytes(char* bytes, int count);

    FILE* file = nullptr;
    FloatFormat floatFormat = INTEL;
};
