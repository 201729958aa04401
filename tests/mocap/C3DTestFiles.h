// Small C3D files written byte by byte for the reader's tests: a 512-byte header block, the
// parameter records from block 2 on, and the frames from the block after them. The encodings
// are written here from the format's description, independently of the reader.
#pragma once

#include <orv/ORV.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "HostTesting.h"

namespace c3dtest {

inline void PutWord(std::string& bytes, size_t at, int value) {
    if (bytes.size() < at + 2) bytes.resize(at + 2, '\0');
    bytes[at] = static_cast<char>(value & 0xff);
    bytes[at + 1] = static_cast<char>((value >> 8) & 0xff);
}

inline std::string Word(int value) {
    std::string s;
    PutWord(s, 0, value);
    return s;
}

inline std::uint32_t FloatBits(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// IEEE single, little-endian.
inline std::string IntelFloat(float value) {
    const std::uint32_t bits = FloatBits(value);
    std::string s(4, '\0');
    for (int i = 0; i < 4; ++i) s[i] = static_cast<char>((bits >> (8 * i)) & 0xff);
    return s;
}

// VAX F-floating: sign, an 8-bit exponent biased by 128 and a 23-bit fraction behind a hidden
// leading 0.1 (binary), stored as two little-endian 16-bit words, the one with sign and exponent
// first. IEEE 1.M x 2^(E-127) is 0.1M x 2^(E-126), so the VAX exponent is E + 2.
inline std::string DecFloat(float value) {
    if (value == 0.0f) return std::string(4, '\0');
    const std::uint32_t bits = FloatBits(value);
    const std::uint32_t sign = bits >> 31;
    const std::uint32_t exponent = ((bits >> 23) & 0xff) + 2;
    const std::uint32_t fraction = bits & 0x7fffff;
    const std::uint32_t high = (sign << 15) | (exponent << 7) | (fraction >> 16);
    const std::uint32_t low = fraction & 0xffff;
    std::string s(4, '\0');
    s[0] = static_cast<char>(high & 0xff);
    s[1] = static_cast<char>(high >> 8);
    s[2] = static_cast<char>(low & 0xff);
    s[3] = static_cast<char>(low >> 8);
    return s;
}

// A group record; `last` writes a zero offset to the next record.
inline std::string Group(const std::string& name, int id, const std::string& description, bool last = false) {
    std::string r;
    r += static_cast<char>(name.size());
    r += static_cast<char>(-id);
    r += name;
    const int next = 2 + 1 + static_cast<int>(description.size());
    r += Word(last ? 0 : next);
    r += static_cast<char>(description.size());
    r += description;
    return r;
}

// A parameter record of group `id`.
inline std::string Parameter(const std::string& name, int id, int type, const std::vector<int>& dimensions,
                             const std::string& data, const std::string& description = "",
                             bool last = false) {
    std::string r;
    r += static_cast<char>(name.size());
    r += static_cast<char>(id);
    r += name;
    std::string body;
    body += static_cast<char>(type);
    body += static_cast<char>(dimensions.size());
    for (int d : dimensions) body += static_cast<char>(d);
    body += data;
    body += static_cast<char>(description.size());
    body += description;
    r += Word(last ? 0 : 2 + static_cast<int>(body.size()));
    r += body;
    return r;
}

struct Builder {
    int processor = 84;
    // Positive: 16-bit integer samples times the scale. Zero or negative: float samples.
    float scale = -1.0f;
    float rate = 60.0f;
    int firstFrame = 1;
    int pointCount = 1;
    int analogCount = 0;
    // Analog values written behind each frame (the reader must step over them).
    float analogValue = 7777.0f;
    // pointCount samples per frame, frame-major; integer files take the values as they are.
    std::vector<std::array<float, 3>> samples;
    // Parameter records, one behind the other; empty writes an empty section.
    std::string parameters;

    int frameCount() const { return pointCount > 0 ? static_cast<int>(samples.size()) / pointCount : 0; }

    std::string Float(float value) const { return processor == 85 ? DecFloat(value) : IntelFloat(value); }

    std::string Build() const {
        const int parameterBlocks = 1 + static_cast<int>(parameters.size() + 4) / 512;
        const int dataStart = 2 + parameterBlocks;
        std::string b(512, '\0');
        b[0] = 2;
        b[1] = 0x50;
        PutWord(b, 2, pointCount);
        PutWord(b, 4, analogCount);
        PutWord(b, 6, firstFrame);
        PutWord(b, 8, firstFrame + frameCount() - 1);
        PutWord(b, 10, 10);
        b.replace(12, 4, Float(scale));
        PutWord(b, 16, dataStart);
        PutWord(b, 18, analogCount > 0 ? 1 : 0);
        b.replace(20, 4, Float(rate));
        // Parameter section.
        std::string p;
        p += static_cast<char>(1);
        p += static_cast<char>(0x50);
        p += static_cast<char>(parameterBlocks);
        p += static_cast<char>(processor);
        p += parameters;
        p.resize(static_cast<size_t>(parameterBlocks) * 512, '\0');
        b += p;
        // Frames.
        const bool integer = scale > 0.0f;
        for (int f = 0; f < frameCount(); ++f) {
            for (int i = 0; i < pointCount; ++i) {
                const std::array<float, 3>& s = samples[static_cast<size_t>(f * pointCount + i)];
                for (int k = 0; k < 3; ++k) b += integer ? Word(static_cast<int>(s[k])) : Float(s[k]);
                b += integer ? Word(0) : Float(0.0f);
            }
            for (int a = 0; a < analogCount; ++a) {
                b += integer ? Word(static_cast<int>(analogValue)) : Float(analogValue);
            }
        }
        b.resize((b.size() + 511) / 512 * 512, '\0');
        return b;
    }
};

// The host's log as (text, severity) pairs.
inline std::vector<std::pair<std::wstring, int>> Log() {
    std::vector<std::pair<std::wstring, int>> out;
    for (const orvhost::LogEntry& e : orvhost::LogEntries()) out.emplace_back(e.text, e.severity);
    return out;
}

inline bool Logged(const std::wstring& text, int severity) {
    for (const orvhost::LogEntry& e : orvhost::LogEntries()) {
        if (e.text == text && e.severity == severity) return true;
    }
    return false;
}

}  // namespace c3dtest
