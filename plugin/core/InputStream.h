// Tokenising reader for every text format of the plug-in (structure, base, tag, pose map,
// normalised motion, Acclaim and path-store files). The whole file is read into memory once
// and tokenised in place; nothing is read from the disk after construction.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class InputStream {
public:
    // Reads the whole file. An empty path or a file that does not open leaves all four
    // pointers null; callers test `buffer` right after construction.
    explicit InputStream(const ORV::CString& path);
    ~InputStream();

    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;

    InputStream& operator>>(char& c);
    InputStream& operator>>(int& value);
    InputStream& operator>>(double& value);
    InputStream& operator>>(ORV::CString& token);
    // True exactly when the token is "true" in any case; "1" and "yes" are false.
    InputStream& operator>>(bool& value);
    InputStream& operator>>(ORV::MATH::CVector3& v);
    // Three XYZ Euler angles in radians, in the host's XYZ order.
    InputStream& operator>>(ORV::MATH::CRotation& r);
    // A rotation, then a translation; the scaling of the target is left as it is.
    InputStream& operator>>(ORV::MATH::CTransformation& t);

    // The rest of the line, without leading white space and without a comment. The line
    // feed stays in the stream, a carriage return before it reaches the text. The result
    // carries no meaning.
    bool readLine(ORV::CString& line);
    // Appends one token to `token` (not cleared): stops before white space, "#", any byte of
    // `delimiters`, or the end.
    InputStream& readDelimitedString(ORV::CString& token, const ORV::CString& delimiters);
    // Advances to the next byte of `delimiters`, which is not consumed. True when one was
    // found before the end.
    bool findDelimiters(const ORV::CString& delimiters);
    static bool stringContains(const ORV::CString& text, wchar_t c);
    // Skips white space and "#" comments (a comment runs up to and including its line feed).
    void skipWhitespace();
    // Probes whether only white space stands between here and the next line feed. Keeps the
    // old one-byte lag of its read position: see the implementation.
    bool isCR();
    // Moves back to where the last read began; after a vector that is its third number.
    void resetToPrev();

    bool atEnd() const { return current >= end; }

    char* buffer = nullptr;    // owned block, one zero byte behind `end`; null when unread
    char* previous = nullptr;  // where the last read began
    char* current = nullptr;   // read position
    char* end = nullptr;       // one past the last byte of the file

private:
    // Reads and drops the rest of a number's token (delimiter set " ").
    void discardToken();
};

}  // namespace ZUK
