// A plain cubic Bezier curve in 3D with a table of chord lengths, and the key fitting that
// turns a dense array of per-frame values into a few keys with Bezier tangents on a host
// function curve. The spine lays its joints along a curve with findIntersection; plotting
// reduces baked channels with findKeyCurveFeatures and curveKeyFit.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class BezierCurve {
public:
    static constexpr int SAMPLE_COUNT = 50;

    // Control points p0 to p3. In key fitting x is the time in frames, y the value, z unused.
    ORV::MATH::CVector3 points[4];
    // Curve points at u = i/50, filled by integrate.
    ORV::MATH::CVector3 samples[SAMPLE_COUNT];
    // distances[i]: chord length from p0 up to the sample at u = (i+1)/50. The point at u = 1
    // has no sample slot: integrate keeps its x, y, z in distances[0..2], and
    // evaluateAtDistance reads them from there.
    double distances[SAMPLE_COUNT];
    // Total chord length; 0 until integrate.
    double length;

    BezierCurve();
    // From an array of four control points.
    explicit BezierCurve(const ORV::MATH::CVector3* controlPoints);
    BezierCurve(const ORV::MATH::CVector3& p0, const ORV::MATH::CVector3& p1, const ORV::MATH::CVector3& p2,
                const ORV::MATH::CVector3& p3);

    // The cubic Bernstein form at u.
    ORV::MATH::CVector3 evaluate(double u) const;
    // Samples the curve at 51 parameters and accumulates the chord lengths.
    void integrate();
    // The point at chord length d from p0, read from the table (see distances).
    ORV::MATH::CVector3 evaluateAtDistance(double d);
    // Appends one point per entry of `lengths`, each at that distance from the point before it
    // (the first from p0). Where the curve runs out, the points go on in straight lines. Needs
    // integrate.
    void findIntersection(ORV::CDoubleArray& lengths, ORV::MATH::CVector3Array& out);

    // Flags the frames where a key must fall: sudden slope changes, extremes, and inflections
    // of stretches that are not straight. flags comes in cleared; frames 0 and count-1 are left
    // to the caller. Always true.
    static bool findKeyCurveFeatures(double* values, bool* flags, long count, double tolerance);
    // Replaces the keys of `curve` by Bezier keys that follow values (values[0] at startFrame),
    // one stretch between each two successive entries of `features` (ascending array
    // positions). With a tolerance above 0 a stretch that one cubic cannot follow is halved until
    // it can; otherwise each stretch gets one cubic with the best tangent lengths found.
    // Always true.
    static bool curveKeyFit(double* values, long count, long startFrame, ORV::CDoubleArray& features,
                            ORV::FCurve& curve, double tolerance);
};

// The array read at a fractional position: linear between samples, and from count-2 on
// extended with the slope of the last step (so a position past the end extrapolates).
double sampleArray(double* values, long count, double position);
// True when the stretch from..to is not a straight line: some step differs from the average
// step by more than tolerance.
bool slopechanges(double* values, long from, long to, double tolerance);
// Vertical distance from point (x in frames from offset) to the polyline of values between
// from and to; 0 when the point lies at or past `to`.
double difference(ORV::MATH::CVector3& point, double* values, long from, long to, long offset);
// Searches the tangent lengths of points[1] and points[2] (directions kept) for a curve that
// stays within tolerance of values between start and end. Returns true at the first that does;
// otherwise false, with points holding the best found.
bool findBestFit(ORV::MATH::CVector3* points, double start, double end, double* values, double tolerance,
                 long offset);
// Fits one stretch between array positions start and end and writes its two keys.
void recursiveFit(double start, double end, long offset, long count, double* values, ORV::FCurve& curve,
                  double tolerance, double tangentScale, bool recurse);

}  // namespace ZUK
