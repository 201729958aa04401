#include "core/FileStream.h"

#include <cstdint>
#include <cstring>

int StdFileLength(FILE* file) {
    if (!file) return -1;
    const long position = std::ftell(file);
    if (position < 0 || std::fseek(file, 0, SEEK_END) != 0) return -1;
    const long length = std::ftell(file);
    std::fseek(file, position, SEEK_SET);
    if (length < 0) return -1;
    return static_cast<int>(length);
}

FileStream::FileStream(const ORV::CString& path) {
    if (!path.IsEmpty()) file = std::fopen(path.GetAsciiString(), "rb");
}

FileStream::~FileStream() { close(); }

void FileStream::close() {
    if (!file) return;
    std::fclose(file);
    file = nullptr;
}

bool FileStream::seek(int offset) { return file && std::fseek(file, offset, SEEK_SET) == 0; }

float FileStream::convertFloat(float value) const {
    if (floatFormat != DEC) return value;
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    bits = (bits << 16) | (bits >> 16);
    float swapped;
    std::memcpy(&swapped, &bits, sizeof swapped);
    return swapped * 0.25f;
}

namespace {

// The small reads do not check for the end of the file: a failed read leaves zero bytes.
void readRaw(FILE* file, unsigned char* bytes, size_t count) {
    std::memset(bytes, 0, count);
    if (file) {
        const size_t got = std::fread(bytes, 1, count, file);
        (void)got;
    }
}

}  // namespace

FileStream& FileStream::operator>>(float& value) {
    unsigned char bytes[4];
    readRaw(file, bytes, 4);
    float raw;
    std::memcpy(&raw, bytes, sizeof raw);
    value = convertFloat(raw);
    return *this;
}

FileStream& FileStream::operator>>(short& value) {
    unsigned char bytes[2];
    readRaw(file, bytes, 2);
    value = static_cast<short>(static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8)));
    return *this;
}

FileStream& FileStream::operator>>(unsigned char& value) {
    readRaw(file, &value, 1);
    return *this;
}

FileStream& FileStream::operator>>(char& value) {
    unsigned char byte;
    readRaw(file, &byte, 1);
    value = static_cast<char>(byte);
    return *this;
}

void FileStream::readString(std::string& text, int length) {
    for (int i = 0; i < length; ++i) {
        char c;
        *this >> c;
        text += c;
    }
}

void FileStream::readBytes(char* bytes, int count) {
    if (count < 1) return;
    size_t got = 0;
    if (file) got = std::fread(bytes, 1, static_cast<size_t>(count), file);
    if (got < static_cast<size_t>(count)) {
        ORV::CString message(L"readBytes() failed: expected ");
        message += ORV::CValue(count).GetAsText();
        message += L"bytes, got ";
        message += ORV::CValue(static_cast<int>(got)).GetAsText();
        ORV::Application().LogMessage(message, 4);
    }
}
