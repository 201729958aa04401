// Reader of C3D marker files: the marker trajectories as one frame-major array of points, and
// the parameter section kept for lookups. Markers are named points only, so nothing here
// becomes MocapData. The reader takes from the format what the rig fit needs: the header, the
// parameter records, integer or float point samples for the Intel and DEC processor layouts.
// Analog samples behind each frame are stepped over; residual words and events are not read.
#pragma once

#include <orv/ORV.h>

#include <map>
#include <string>

#include "mocap/Mocap.h"

class FileStream;

// One parameter record: a typed, dimensioned block of bytes.
class C3DParameter {
public:
    std::string name;
    std::string description;
    // -1 text, 1 byte, 2 16-bit integer, 4 float; taken from a signed byte.
    int type = 0;
    int dimensionCount = 0;
    // dimensionCount sizes, owned; null when there are no dimensions.
    int* dimensions = nullptr;
    // The record's bytes, owned; null when empty.
    char* data = nullptr;
    // Bytes held in `data`. Below dataSize() only when the file ended inside the record.
    int dataLength = 0;

    C3DParameter() = default;
    ~C3DParameter();
    C3DParameter(const C3DParameter&) = delete;
    C3DParameter& operator=(const C3DParameter&) = delete;

    // Allocates the dimension array on first use; an index outside it is ignored.
    void setDimensionSize(int index, int size);
    // |type| times the product of the dimensions (1 without dimensions); saturates at the
    // largest int rather than overflow on damaged dimensions.
    int dataSize() const;
    // Allocates dataSize() bytes and reads them; a size below 1 reads nothing. A record is never
    // given more than what is left of the file, so damaged dimensions cannot allocate without
    // bound; what the file lacks is logged as a short read.
    void readData(FileStream& in);
};

class C3DParamGroup {
public:
    std::string name;
    std::string description;
    // Owned.
    std::map<std::string, C3DParameter*> parameters;

    C3DParamGroup() = default;
    ~C3DParamGroup();
    C3DParamGroup(const C3DParamGroup&) = delete;
    C3DParamGroup& operator=(const C3DParamGroup&) = delete;

    // A parameter of the same name (bytes and case) is replaced and freed.
    void addParameter(const std::string& parameterName, C3DParameter* parameter);
    // Exact comparison; null when absent.
    C3DParameter* findParameter(const std::string& parameterName) const;
};

class C3DFile {
public:
    // Markers per frame, from the header.
    short pointCount = 0;
    // From the header; logged, otherwise not used.
    short analogCount = 0;
    // From the header; not changed when leading frames are dropped.
    short firstFrame = 0;
    short lastFrame = 0;
    // Frames held in `points`: last - first + 1 (16 bits), lowered by the clean-up steps.
    short frameCount = 0;
    // From the header; logged, otherwise not used.
    short interpolationGap = 0;
    // Positive means integer samples.
    float scale = 0.0f;
    float frameRate = 0.0f;
    // Owns the groups.
    std::map<int, C3DParamGroup*> groupsById;
    // The same groups, for getStringValue.
    std::map<std::string, C3DParamGroup*> groupsByName;
    // Frame-major: point p of frame f at f * pointCount + p. Owned.
    ORV::MATH::CVector3* points = nullptr;

    C3DFile() = default;
    // A point-only object without parameters, holding a copy of `source` (zeros when null).
    C3DFile(short pointCount, short frameCount, ORV::MATH::CVector3* source);
    ~C3DFile();
    C3DFile(const C3DFile&) = delete;
    C3DFile& operator=(const C3DFile&) = delete;

    // The whole file at `path`, read as readFromStream reads it; null when the file does not
    // open or does not read. Owned by the caller.
    static C3DFile* CreateFromFile(const ORV::CString& path, ZUK::UpDirection up, bool truncateAtLoss);

    // Reads the whole file. False when the last frame is below the first, and when the file is
    // shorter than a header block, the header's counts are impossible or the file holds none of
    // the frames it announces (these three logged).
    // Every other oddity is carried through.
    bool readFromStream(FileStream& in, ZUK::UpDirection up, bool truncateAtLoss);
    // A zero vector held in static storage for a point or frame out of range.
    const ORV::MATH::CVector3& sample(int point, int frame) const;
    // The point at a fractional frame, blended linearly; zero for a bad point or a negative
    // frame; frames past the end give the last frame.
    ORV::MATH::CVector3 interpolate(int point, double frame) const;
    // Text entry `index` of a text parameter, trailing blanks cut. False when the group or the
    // parameter is missing, or the entry lies outside the parameter's data. `out` is set only
    // on success.
    bool getStringValue(const std::string& group, const std::string& parameter, int index,
                        ORV::CString& out) const;
    C3DParamGroup* findGroupByID(int id) const;
    // Reads one group or parameter record; true while more records follow.
    bool readParamOrGroup(FileStream& in);
    // Fills lost samples marker by marker; see the implementation for the rules.
    void processOccludedPoints(bool truncateAtLoss);

    // Logs label + ": " + the value's text at the information severity (8).
    static void LogValue(const ORV::CString& label, ORV::CValue value);

private:
    // Enters a group in both maps; a group with the same id or the same name takes the place.
    void addGroup(int id, C3DParamGroup* group);
    void clear();
};
