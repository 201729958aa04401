#include "mocap/C3DFile.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "core/FileStream.h"

namespace {

ORV::Application app;

// Below this squared length a sample does not count in the search for the first complete
// frame; the gap filling uses a larger threshold of its own (kLostSquared).
constexpr double kIncompleteSquared = 1e-7;
constexpr double kLostSquared = 1e-6;
// A quarter turn as the up-direction conversion writes it (not pi / 2 to full precision).
constexpr double kQuarterTurn = 1.5707963;
constexpr long kBlockSize = 512;

// Bytes between the read position and the end of the file; -1 when unknown.
long bytesLeft(FileStream& in) {
    if (!in.file) return -1;
    const long position = std::ftell(in.file);
    const int length = StdFileLength(in.file);
    if (position < 0 || length < 0) return -1;
    return std::max(0L, static_cast<long>(length) - position);
}

void logShortRead(long long wanted, long long got) {
    ORV::CString message(L"readBytes() failed: expected ");
    message += ORV::CValue(wanted).GetAsText();
    message += L"bytes, got ";
    message += ORV::CValue(got).GetAsText();
    app.LogMessage(message, 4);
}

short readShort(const unsigned char* bytes) {
    return static_cast<short>(static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8)));
}

float readFloat(const unsigned char* bytes) {
    float value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

}  // namespace

// ---- C3DParameter ---------------------------------------------------------------------------

C3DParameter::~C3DParameter() {
    delete[] dimensions;
    delete[] data;
}

void C3DParameter::setDimensionSize(int index, int size) {
    if (dimensionCount < 1 || index < 0 || index >= dimensionCount) return;
    if (!dimensions) dimensions = new int[dimensionCount]();
    dimensions[index] = size;
}

int C3DParameter::dataSize() const {
    long long size = std::abs(type);
    for (int i = 0; i < dimensionCount && dimensions; ++i) {
        size *= dimensions[i];
        if (size > INT_MAX) return INT_MAX;
        if (size < 0) return 0;
    }
    return static_cast<int>(size);
}

void C3DParameter::readData(FileStream& in) {
    const int wanted = dataSize();
    if (wanted < 1) return;
    long length = wanted;
    const long left = bytesLeft(in);
    if (left >= 0 && left < length) length = left;
    delete[] data;
    data = nullptr;
    dataLength = 0;
    if (length > 0) {
        data = new char[length]();
        dataLength = static_cast<int>(length);
        in.readBytes(data, dataLength);
    }
    if (length < wanted) logShortRead(wanted, length);
}

// ---- C3DParamGroup --------------------------------------------------------------------------

C3DParamGroup::~C3DParamGroup() {
    for (auto& entry : parameters) delete entry.second;
}

void C3DParamGroup::addParameter(const std::string& parameterName, C3DParameter* parameter) {
    auto found = parameters.find(parameterName);
    if (found != parameters.end()) {
        if (found->second != parameter) delete found->second;
        found->second = parameter;
        return;
    }
    parameters[parameterName] = parameter;
}

C3DParameter* C3DParamGroup::findParameter(const std::string& parameterName) const {
    auto found = parameters.find(parameterName);
    return found == parameters.end() ? nullptr : found->second;
}

// ---- C3DFile --------------------------------------------------------------------------------

C3DFile::C3DFile(short pointCount_, short frameCount_, ORV::MATH::CVector3* source)
    : pointCount(pointCount_), frameCount(frameCount_) {
    const long count = static_cast<long>(std::max<short>(pointCount, 0)) * std::max<short>(frameCount, 0);
    points = new ORV::MATH::CVector3[count > 0 ? count : 0];
    if (source && count > 0) std::copy(source, source + count, points);
}

C3DFile::~C3DFile() { clear(); }

void C3DFile::clear() {
    for (auto& entry : groupsById) delete entry.second;
    groupsById.clear();
    groupsByName.clear();
    delete[] points;
    points = nullptr;
}

C3DFile* C3DFile::CreateFromFile(const ORV::CString& path, ZUK::UpDirection up, bool truncateAtLoss) {
    FileStream stream(path);
    if (!stream.ok()) return nullptr;
    C3DFile* file = new C3DFile();
    const bool ok = file->readFromStream(stream, up, truncateAtLoss);
    stream.close();
    if (!ok) {
        delete file;
        return nullptr;
    }
    return file;
}

void C3DFile::LogValue(const ORV::CString& label, ORV::CValue value) {
    ORV::CString text(label);
    text += L": ";
    text += value.GetAsText();
    app.LogMessage(text, 8);
}

bool C3DFile::readFromStream(FileStream& in, ZUK::UpDirection up, bool truncateAtLoss) {
    clear();
    const int fileLength = in.file ? StdFileLength(in.file) : -1;
    // Not even the header block: nothing of this file is C3D.
    if (fileLength >= 0 && fileLength < kBlockSize) {
        app.LogMessage(L"The C3D file is too short to hold a header.", 4);
        return false;
    }

    // 1. Header words. Only the low byte of the first word counts: the parameter block number.
    in.seek(0);
    unsigned char parameterBlock = 0;
    unsigned char key = 0;
    in >> parameterBlock >> key;
    LogValue(L"param block offset", static_cast<int>(parameterBlock));
    in >> pointCount >> analogCount >> firstFrame >> lastFrame >> interpolationGap;
    LogValue(L"numPoints", pointCount);
    LogValue(L"numAnalog", analogCount);
    LogValue(L"firstFrame", firstFrame);
    LogValue(L"lastFrame", lastFrame);
    LogValue(L"interpGap", interpolationGap);
    if (lastFrame < firstFrame) return false;

    // 2. The frame count in 16 bits, as the header field is.
    frameCount = static_cast<short>(lastFrame - firstFrame + 1);

    // 3. Scale and rate are read raw: the float layout is known only from the parameter block.
    float rawScale = 0.0f;
    float rawRate = 0.0f;
    short dataStart = 0;
    short analogSamplesPerFrame = 0;
    in >> rawScale >> dataStart >> analogSamplesPerFrame >> rawRate;
    LogValue(L"analog samples per frame", analogSamplesPerFrame);

    // 4. Keys and label pointers: read past, not used.
    in.seek(294);
    for (int i = 0; i < 5; ++i) {
        short unused = 0;
        in >> unused;
    }

    // 5. Head of the parameter section: the processor type decides the float layout, and DEC
    // is the only one converted.
    in.seek((static_cast<int>(parameterBlock) - 1) * kBlockSize);
    unsigned char ignored = 0;
    unsigned char parameterBlocks = 0;
    unsigned char processor = 0;
    in >> ignored >> ignored >> parameterBlocks >> processor;
    LogValue(L"procType", static_cast<int>(processor));
    in.setFloatFormat(static_cast<FileStream::FloatFormat>(processor));
    frameRate = in.convertFloat(rawRate);
    scale = in.convertFloat(rawScale);
    LogValue(L"converted frame rate", frameRate);
    LogValue(L"converted scale factor", scale);
    // The block count is traced last, after the converted values.
    LogValue(L"numParamBlocks", static_cast<int>(parameterBlocks));

    // 6. Parameter records, one behind the other.
    while (readParamOrGroup(in)) {
    }

    // Counts no file can have: they would only size an allocation.
    if (pointCount < 0 || frameCount < 1) {
        ORV::CString message(L"The C3D file's header has impossible counts: ");
        message += ORV::CValue(pointCount).GetAsText() + L" points, " + ORV::CValue(frameCount).GetAsText() +
                   L" frames.";
        app.LogMessage(message, 4);
        return false;
    }

    // 7. The frames the file really holds. Each frame is followed by its analog samples, which
    // are stepped over so that files with analog data keep their alignment. Frames that would
    // begin past the end of the file are not part of the take.
    const bool integer = scale > 0.0f;
    const long sampleBytes = integer ? 2 : 4;
    const long analogValues = static_cast<unsigned short>(analogCount);
    const long pointBytes = static_cast<long>(pointCount) * 4 * sampleBytes;
    const long frameBytes = pointBytes + analogValues * sampleBytes;
    const long dataOffset = (static_cast<long>(dataStart) - 1) * kBlockSize;
    long held = frameCount;
    if (frameBytes > 0) {
        if (dataOffset < 0 || fileLength < 0 || dataOffset >= fileLength) {
            held = 0;
        } else {
            held = std::min<long>(frameCount, (fileLength - dataOffset + frameBytes - 1) / frameBytes);
        }
    }
    if (held < frameCount) {
        ORV::CString message(L"The C3D file holds ");
        message += ORV::CValue(held).GetAsText() + L" of the " + ORV::CValue(frameCount).GetAsText() +
                   L" frames its header announces.";
        app.LogMessage(message, 4);
        if (held == 0) return false;
        frameCount = static_cast<short>(held);
    }
    in.seek(static_cast<int>(std::max(0L, dataOffset)));
    const long total = static_cast<long>(pointCount) * frameCount;
    points = new ORV::MATH::CVector3[total];

    // 8. and 9. One read per frame; the residual word is dropped. The first complete frame (all
    // points away from the origin) is noted on the way.
    std::vector<unsigned char> buffer(static_cast<size_t>(frameBytes));
    int firstComplete = -1;
    for (int f = 0; f < frameCount; ++f) {
        // The last frame may be cut short by the end of the file: what it lacks reads as zero.
        if (f == frameCount - 1) std::fill(buffer.begin(), buffer.end(), 0);
        if (frameBytes > 0)
            in.readBytes(reinterpret_cast<char*>(buffer.data()), static_cast<int>(frameBytes));
        ORV::MATH::CVector3* frame = points + static_cast<long>(f) * pointCount;
        bool complete = true;
        for (int p = 0; p < pointCount; ++p) {
            ORV::MATH::CVector3& v = frame[p];
            if (integer) {
                const unsigned char* s = buffer.data() + p * 8;
                v.Set(static_cast<float>(readShort(s)) * scale, static_cast<float>(readShort(s + 2)) * scale,
                      static_cast<float>(readShort(s + 4)) * scale);
            } else {
                const unsigned char* s = buffer.data() + p * 16;
                v.Set(in.convertFloat(readFloat(s)), in.convertFloat(readFloat(s + 4)),
                      in.convertFloat(readFloat(s + 8)));
            }
            if (v.GetLengthSquared() < kIncompleteSquared) complete = false;
        }
        if (complete && firstComplete < 0) firstComplete = f;
    }

    // 10. When the take starts incomplete, everything up to and including the first complete
    // frame goes; that frame itself too, as the reader always did.
    if (firstComplete > 0) {
        const long from = static_cast<long>(firstComplete + 1) * pointCount;
        std::copy(points + from, points + total, points);
        frameCount = static_cast<short>(frameCount - firstComplete - 1);
    }

    // 11. Up direction, as for the root of a skeletal capture.
    if (up == ZUK::XUp || up == ZUK::ZUp) {
        ORV::MATH::CTransformation t1;
        ORV::MATH::CTransformation t2;
        if (up == ZUK::XUp) {
            t1.SetRotationFromAxisAngle(ORV::MATH::CVector3(0.0, 0.0, 1.0), kQuarterTurn);
            t2.SetRotationFromAxisAngle(ORV::MATH::CVector3(0.0, 1.0, 0.0), kQuarterTurn);
        } else {
            t1.SetRotationFromAxisAngle(ORV::MATH::CVector3(1.0, 0.0, 0.0), -kQuarterTurn);
            t2.SetRotationFromAxisAngle(ORV::MATH::CVector3(0.0, 1.0, 0.0), -kQuarterTurn);
        }
        const long count = static_cast<long>(pointCount) * frameCount;
        for (long i = 0; i < count; ++i) {
            points[i].MulByTransformationInPlace(t1);
            points[i].MulByTransformationInPlace(t2);
        }
    }

    // 12.
    processOccludedPoints(truncateAtLoss);
    return true;
}

bool C3DFile::readParamOrGroup(FileStream& in) {
    // 1. A zero name length or group id ends the section.
    char nameLength = 0;
    char id = 0;
    in >> nameLength >> id;
    if (nameLength == 0 || id == 0) return false;

    // 2. A negative length marks a locked record; it reads no name, and the record's layout is
    // then lost. That limit stays.
    std::string recordName;
    in.readString(recordName, nameLength);

    short next = 0;
    if (id < 0) {
        // 3. A group.
        C3DParamGroup* group = new C3DParamGroup();
        group->name = recordName;
        unsigned char descriptionLength = 0;
        in >> next >> descriptionLength;
        in.readString(group->description, descriptionLength);
        addGroup(-static_cast<int>(id), group);
    } else {
        // 4. A parameter of an earlier group.
        C3DParameter* parameter = new C3DParameter();
        parameter->name = recordName;
        char type = 0;
        char dimensionCount = 0;
        in >> next >> type >> dimensionCount;
        parameter->type = type;
        parameter->dimensionCount = dimensionCount;
        for (int i = 0; i < dimensionCount; ++i) {
            unsigned char size = 0;
            in >> size;
            parameter->setDimensionSize(i, size);
        }
        parameter->readData(in);
        unsigned char descriptionLength = 0;
        in >> descriptionLength;
        in.readString(parameter->description, descriptionLength);
        C3DParamGroup* group = findGroupByID(id);
        if (group) {
            group->addParameter(parameter->name, parameter);
        } else {
            LogValue(L"  parameter has invalid group ID", static_cast<int>(id));
            delete parameter;
        }
    }
    // 5. The offset to the next record only says whether there is one.
    return next != 0;
}

void C3DFile::addGroup(int id, C3DParamGroup* group) {
    auto byId = groupsById.find(id);
    if (byId != groupsById.end()) {
        // The earlier group of this id goes, with any name entry that still points to it.
        C3DParamGroup* old = byId->second;
        for (auto it = groupsByName.begin(); it != groupsByName.end();) {
            it = it->second == old ? groupsByName.erase(it) : std::next(it);
        }
        delete old;
        byId->second = group;
    } else {
        groupsById[id] = group;
    }
    // An earlier group of this name keeps its id entry, which owns it.
    groupsByName[group->name] = group;
}

C3DParamGroup* C3DFile::findGroupByID(int id) const {
    auto found = groupsById.find(id);
    return found == groupsById.end() ? nullptr : found->second;
}

const ORV::MATH::CVector3& C3DFile::sample(int point, int frame) const {
    static const ORV::MATH::CVector3 zero;
    if (!points || point < 0 || point >= pointCount || frame < 0 || frame >= frameCount) return zero;
    return points[static_cast<long>(frame) * pointCount + point];
}

ORV::MATH::CVector3 C3DFile::interpolate(int point, double frame) const {
    if (point < 0 || point >= pointCount || !(frame >= 0.0) || frameCount < 1) return ORV::MATH::CVector3();
    const double last = frameCount - 1;
    if (frame > last) frame = last;
    if (std::floor(frame + 0.5) == frame) return sample(point, static_cast<int>(frame));
    const double lower = std::floor(frame);
    const double weight = frame - lower;
    const ORV::MATH::CVector3& a = sample(point, static_cast<int>(lower));
    const ORV::MATH::CVector3& b = sample(point, static_cast<int>(std::ceil(frame)));
    return a * (1.0 - weight) + b * weight;
}

bool C3DFile::getStringValue(const std::string& group, const std::string& parameter, int index,
                             ORV::CString& out) const {
    auto found = groupsByName.find(group);
    if (found == groupsByName.end()) return false;
    const C3DParameter* p = found->second->findParameter(parameter);
    if (!p) return false;
    // Not a string without dimensions; an entry outside the data is not there either.
    if (p->dimensionCount < 1 || !p->dimensions) return false;
    const long length = p->dimensions[0];
    long start = 0;
    if (p->dimensionCount > 1) {
        if (index < 0) return false;
        start = static_cast<long>(index) * length;
    }
    if (start + length > p->dataLength) return false;
    long used = length;
    while (used > 0 && std::isspace(static_cast<unsigned char>(p->data[start + used - 1]))) --used;
    ORV::CString text;
    for (long i = 0; i < used; ++i) text += static_cast<wchar_t>(p->data[start + i]);
    out = text;
    return true;
}

void C3DFile::processOccludedPoints(bool truncateAtLoss) {
    if (frameCount <= 1 || !points) return;
    int kept = frameCount;
    auto at = [this](int frame, int point) -> ORV::MATH::CVector3& {
        return points[static_cast<long>(frame) * pointCount + point];
    };
    for (int p = 0; p < pointCount; ++p) {
        int gap = -1;
        // Frame 0 is never looked at.
        for (int f = 1; f < frameCount; ++f) {
            const double length = at(f, p).GetLengthSquared();
            if (length < kLostSquared) {
                if (gap < 0) gap = f;
            } else if (length > kLostSquared && gap >= 0) {
                if (gap == 1) {
                    // Lost from the start: back-fill with the first sample that is there.
                    for (int g = f - 1; g >= 1; --g) at(g, p) = at(f, p);
                } else {
                    // Linear between the frame before the gap and this one.
                    const ORV::MATH::CVector3 before = at(gap - 1, p);
                    const ORV::MATH::CVector3 after = at(f, p);
                    const int n = f - gap + 1;
                    for (int k = 1; k < n; ++k) {
                        const double w = static_cast<double>(k) / n;
                        at(gap + k - 1, p) = before * (1.0 - w) + after * w;
                    }
                }
                gap = -1;
            }
        }
        if (gap >= 0) {
            if (truncateAtLoss) {
                // The count is shared: the take ends at the earliest loss of any marker.
                if (gap < kept) kept = gap;
            } else {
                const ORV::MATH::CVector3 hold = at(gap - 1, p);
                for (int f = gap; f < frameCount; ++f) at(f, p) = hold;
            }
        }
    }
    if (kept < frameCount) {
        const long count = static_cast<long>(kept) * pointCount;
        ORV::MATH::CVector3* shorter = new ORV::MATH::CVector3[count];
        std::copy(points, points + count, shorter);
        delete[] points;
        points = shorter;
        frameCount = static_cast<short>(kept);
    }
}
