// Cubic Bezier curve with its chord-length table, and key fitting onto function curves.
#include "core/BezierCurve.h"

#include <cfloat>
#include <cmath>

using ORV::MATH::CVector3;

namespace ZUK {

namespace {

// a + t * (b - a) written as the blend (1-t) a + t b.
CVector3 Blend(const CVector3& a, const CVector3& b, double t) {
    return CVector3((1.0 - t) * a.x + t * b.x, (1.0 - t) * a.y + t * b.y, (1.0 - t) * a.z + t * b.z);
}

double DistanceSquared(const CVector3& a, const CVector3& b) {
    const double dx = a.x - b.x, dy = a.y - b.y, dz = a.z - b.z;
    return dx * dx + dy * dy + dz * dz;
}

// Every key the fit adds takes this time tolerance, so that keys a frame apart stay apart.
constexpr double KEY_TOLERANCE = 0.01;

void AddFitKey(ORV::FCurve& curve, double time, double value) {
    curve.AddKey(ORV::CTime(time), ORV::CValue(value), ORV::ovCubicInterpolation, DBL_MAX, DBL_MAX, DBL_MAX,
                 DBL_MAX, true, KEY_TOLERANCE);
}

// The slope of the array at a stretch's end, and whether the key there is smooth. Inside the
// array it is the mean of the steps on either side when they turn by less than 0.7 radians;
// at a corner the step on the stretch's own side.
void EndSlope(double* values, long count, double position, bool stretchLiesAfter, double& slope,
              bool& smooth) {
    const double s1 = sampleArray(values, count, position) - sampleArray(values, count, position - 1.0);
    const double s2 = sampleArray(values, count, position + 1.0) - sampleArray(values, count, position);
    smooth = std::fabs(std::atan(s1) - std::atan(s2)) < 0.7;
    if (smooth)
        slope = (s1 + s2) * 0.5;
    else
        slope = stretchLiesAfter ? s2 : s1;
}

}  // namespace

// --- The curve ----------------------------------------------------------------------------------

BezierCurve::BezierCurve() : points(), samples(), distances(), length(0.0) {}

BezierCurve::BezierCurve(const CVector3* controlPoints) : BezierCurve() {
    for (int i = 0; i < 4; ++i) points[i] = controlPoints[i];
}

BezierCurve::BezierCurve(const CVector3& p0, const CVector3& p1, const CVector3& p2, const CVector3& p3)
    : BezierCurve() {
    points[0] = p0;
    points[1] = p1;
    points[2] = p2;
    points[3] = p3;
}

CVector3 BezierCurve::evaluate(double u) const {
    const double v = 1.0 - u;
    const double b0 = v * v * v;
    const double b1 = 3.0 * u * v * v;
    const double b2 = 3.0 * u * u * v;
    const double b3 = u * u * u;
    return CVector3(b0 * points[0].x + b1 * points[1].x + b2 * points[2].x + b3 * points[3].x,
                    b0 * points[0].y + b1 * points[1].y + b2 * points[2].y + b3 * points[3].y,
                    b0 * points[0].z + b1 * points[1].z + b2 * points[2].z + b3 * points[3].z);
}

void BezierCurve::integrate() {
    length = 0.0;
    samples[0] = evaluate(0.0);
    CVector3 previous = samples[0];
    for (int i = 0; i < SAMPLE_COUNT; ++i) {
        const CVector3 next = evaluate(static_cast<double>(i + 1) / SAMPLE_COUNT);
        if (i + 1 < SAMPLE_COUNT) {
            samples[i + 1] = next;
        } else {
            // The 51st point goes where the first three distances were.
            distances[0] = next.x;
            distances[1] = next.y;
            distances[2] = next.z;
        }
        length += std::sqrt(DistanceSquared(previous, next));
        distances[i] = length;
        previous = next;
    }
}

CVector3 BezierCurve::evaluateAtDistance(double d) {
    if (d < 0.0) return points[0];
    if (d >= length) return points[3];
    int i = 0;
    while (i < SAMPLE_COUNT && !(distances[i] > d)) ++i;
    if (i == SAMPLE_COUNT) return points[3];
    const CVector3 after =
        i + 1 < SAMPLE_COUNT ? samples[i + 1] : CVector3(distances[0], distances[1], distances[2]);
    if (i > 0) {
        const double t = (d - distances[i - 1]) / (distances[i] - distances[i - 1]);
        return Blend(samples[i], after, t);
    }
    return Blend(samples[0], samples[1], d / distances[0]);
}

void BezierCurve::findIntersection(ORV::CDoubleArray& lengths, ORV::MATH::CVector3Array& out) {
    const long n = lengths.GetCount();
    CVector3 p = points[0];
    int s = 1;
    long found = 0;
    for (long k = 0; k < n; ++k) {
        const double r = lengths[k];
        // The first sample farther from p than r; without one this length is passed over.
        int i = s;
        while (i < SAMPLE_COUNT && !(DistanceSquared(samples[i], p) > r * r)) ++i;
        if (i == SAMPLE_COUNT) continue;
        const CVector3& before = samples[i - 1];
        const double t = std::sqrt(DistanceSquared(before, p)) / std::sqrt(DistanceSquared(samples[i], p));
        p = Blend(before, samples[i], t);
        out.Add(p);
        ++found;
        s = i;
    }
    if (found == n) return;

    // The curve has run out: the first point aims at its end, the later ones follow its end
    // tangent.
    CVector3 dir;
    dir.Sub(points[3], p);
    dir.NormalizeInPlace();
    p.Set(p.x + dir.x * lengths[found], p.y + dir.y * lengths[found], p.z + dir.z * lengths[found]);
    out.Add(p);
    dir.Sub(points[3], points[2]);
    dir.NormalizeInPlace();
    for (long k = found + 1; k < n; ++k) {
        const double r = lengths[k];
        p.Set(p.x + dir.x * r, p.y + dir.y * r, p.z + dir.z * r);
        out.Add(p);
    }
}

// --- Key fitting --------------------------------------------------------------------------------

double sampleArray(double* values, long count, double position) {
    if (count < 2) return count == 1 ? values[0] : 0.0;
    long i = static_cast<long>(position);
    // Positions far outside the array extrapolate from its nearest sample.
    if (i < 0) i = 0;
    if (i > count - 1) i = count - 1;
    if (position < count - 2) return values[i] + (values[i + 1] - values[i]) * (position - i);
    if (i < 1) return values[i] + (values[count - 1] - values[count - 2]) * (position - i);
    return values[i] + (values[i] - values[i - 1]) * (position - i);
}

bool slopechanges(double* values, long from, long to, double tolerance) {
    const double average = (values[to] - values[from]) / static_cast<double>(to - from);
    for (long i = from + 1; i <= to; ++i)
        if (std::fabs(values[i] - values[i - 1] - average) > tolerance) return true;
    return false;
}

double difference(CVector3& point, double* values, long from, long to, long offset) {
    const double x = point.x - static_cast<double>(offset);
    // The smallest i in from+1..to with i > x, found directly rather than by a walk: this runs
    // 2916 times per search.
    if (!(x < static_cast<double>(to)) || from + 1 > to) return 0.0;
    const double above = std::floor(x) + 1.0;
    const long i = above > static_cast<double>(from + 1) ? static_cast<long>(above) : from + 1;
    const double onLine = values[i] - (values[i] - values[i - 1]) * (static_cast<double>(i) - x);
    return std::fabs(point.y - onLine);
}

bool findBestFit(CVector3* points, double start, double end, double* values, double tolerance, long offset) {
    const CVector3 p0 = points[0];
    const CVector3 p3 = points[3];
    const double slope1 = (points[1].y - p0.y) / (points[1].x - p0.x);
    const double slope2 = (p3.y - points[2].y) / (p3.x - points[2].x);
    const double step = (end - start) / 30.0;
    const long from = static_cast<long>(start);
    const long to = static_cast<long>(end + 1.0);
    static const double PARAMETERS[4] = {0.2, 0.4, 0.6, 0.8};

    double best = DBL_MAX;
    BezierCurve trial(p0, p0, p3, p3);
    for (int i = 3; i < 30; ++i) {
        const double dx1 = i * step;
        trial.points[1].Set(p0.x + dx1, p0.y + dx1 * slope1, p0.z);
        for (int j = 3; j < 30; ++j) {
            const double dx2 = j * step;
            trial.points[2].Set(p3.x - dx2, p3.y - dx2 * slope2, p3.z);
            double err = 0.0;
            for (double u : PARAMETERS) {
                CVector3 point = trial.evaluate(u);
                const double e = difference(point, values, from, to, offset);
                if (e > err) err = e;
            }
            if (err < best) {
                points[1] = trial.points[1];
                points[2] = trial.points[2];
                best = err;
                if (err < tolerance) return true;
            }
        }
    }
    return false;
}

void recursiveFit(double start, double end, long offset, long count, double* values, ORV::FCurve& curve,
                  double tolerance, double tangentScale, bool recurse) {
    // End points.
    CVector3 points[4];
    points[0].Set(start + offset, sampleArray(values, count, start), 0.0);
    points[3].Set(end + offset, sampleArray(values, count, end), 0.0);

    // Slopes at both ends; the array's own ends are always smooth.
    double leftSlope = 0.0, rightSlope = 0.0;
    bool leftSmooth = true, rightSmooth = true;
    if (start < 1.0)
        leftSlope = values[1] - values[0];
    else
        EndSlope(values, count, start, true, leftSlope, leftSmooth);
    if (end > count - 2)
        rightSlope = values[count - 1] - values[count - 2];
    else
        EndSlope(values, count, end, false, rightSlope, rightSmooth);

    // First guess of the tangents: 0.333 of the span, not quite a third.
    const double span = end - start;
    points[1].Set(points[0].x + 0.333 * span, points[0].y + 0.333 * span * leftSlope, 0.0);
    points[2].Set(points[3].x - 0.333 * span, points[3].y - 0.333 * span * rightSlope, 0.0);

    // Better tangents, or two halves when no cubic stays within tolerance. Stretches under two
    // frames keep the first guess.
    if (span >= 2.0) {
        if (recurse) {
            if (!findBestFit(points, start, end, values, tolerance, offset)) {
                const double mid = start + span * 0.5;
                recursiveFit(start, mid, offset, count, values, curve, tolerance, tangentScale, true);
                recursiveFit(mid, end, offset, count, values, curve, tolerance, tangentScale, true);
                return;
            }
        } else {
            findBestFit(points, start, end, values, tolerance, offset);
        }
    }

    // Keys at both ends. A key that is already there (the end of the previous stretch) keeps the
    // tangent on its far side.
    const ORV::CTime startTime(points[0].x), endTime(points[3].x);
    double leftX = -1.0, leftY = 0.0;
    if (curve.KeyExists(startTime)) {
        const ORV::FCurveKey key = curve.GetKey(startTime);
        leftX = key.GetLeftTanX();
        leftY = key.GetLeftTanY();
    } else {
        AddFitKey(curve, points[0].x, points[0].y);
    }
    double rightX = 1.0, rightY = 0.0;
    if (curve.KeyExists(endTime)) {
        const ORV::FCurveKey key = curve.GetKey(endTime);
        rightX = key.GetRightTanX();
        rightY = key.GetRightTanY();
    } else {
        AddFitKey(curve, points[3].x, points[3].y);
    }

    // The start key: smooth keys get the continuity constraint, corners keep their far tangent.
    ORV::FCurveKey first = curve.GetKey(startTime);
    first.PutConstraint(ORV::ovAllKeyConstraints, false);
    if (leftSmooth) {
        first.PutConstraint(ORV::ovTangentContinuityConstraint, true);
    } else {
        first.PutLeftTanX(leftX * tangentScale);
        first.PutLeftTanY(leftY);
    }
    first.PutRightTanX((points[1].x - points[0].x) * tangentScale);
    first.PutRightTanY(points[1].y - points[0].y);

    // The end key, the same way round.
    ORV::FCurveKey last = curve.GetKey(endTime);
    last.PutConstraint(ORV::ovAllKeyConstraints, false);
    if (rightSmooth) {
        last.PutConstraint(ORV::ovTangentContinuityConstraint, true);
    } else {
        last.PutRightTanX(rightX * tangentScale);
        last.PutRightTanY(rightY);
    }
    last.PutLeftTanX((points[2].x - points[3].x) * tangentScale);
    last.PutLeftTanY(points[2].y - points[3].y);
}

bool BezierCurve::findKeyCurveFeatures(double* values, bool* flags, long count, double tolerance) {
    if (count < 3) return true;
    long last = 0;
    for (long i = 1; i <= count - 2; ++i) {
        const double d1 = values[i] - values[i - 1];
        const double d2 = values[i + 1] - values[i];

        // Sudden change of slope; strict, so two flat steps are no change.
        const bool sudden = std::fabs(d2) > 5.0 * std::fabs(d1) || std::fabs(d1) > 5.0 * std::fabs(d2);
        if (sudden) flags[i] = true;

        // Too little change since the last feature for any shape to count.
        if (std::fabs(values[i] - values[last]) < tolerance) continue;

        // Extremes, and inflections of stretches that are not straight.
        const bool minimum = d1 <= 0.0 && d2 > 0.0;
        const bool maximum = d1 > 0.0 && d2 <= 0.0;
        bool inflection = false;
        if (!minimum && !maximum && i >= 3) {
            const double c1 = d1 - (values[i - 1] - values[i - 2]);
            const double c2 = d2 - d1;
            const bool concaveUp = c1 <= 0.0 && c2 > 0.0;
            const bool concaveDown = c1 > 0.0 && c2 <= 0.0;
            if ((concaveUp || concaveDown) && slopechanges(values, last, i, tolerance)) inflection = true;
        }
        if (minimum || maximum || inflection) {
            flags[i] = true;
            last = i;
        } else if (sudden) {
            last = i;
        }
    }
    return true;
}

bool BezierCurve::curveKeyFit(double* values, long count, long startFrame, ORV::CDoubleArray& features,
                              ORV::FCurve& curve, double tolerance) {
    if (!values || count < 1) return true;

    // One sample: one key.
    if (count == 1) {
        AddFitKey(curve, static_cast<double>(startFrame), values[0]);
        return true;
    }

    // The unit in which the host reads tangents back, against frames: put -3 frames, read it.
    AddFitKey(curve, 1.0, 10.0);
    AddFitKey(curve, 5.0, 10.0);
    double tangentScale = 1.0;
    ORV::FCurveKey probe = curve.GetKey(ORV::CTime(5.0));
    if (probe.IsValid()) {
        probe.PutLeftTanX(-3.0);
        const double read = probe.GetLeftTanX();
        if (read != 0.0 && std::isfinite(read)) tangentScale = -3.0 / read;
    }
    curve.RemoveKeys();

    // One stretch between each two features, up to the last one inside the array. A stretch that
    // does not move forward, or starts before the array, has nothing to fit.
    curve.BeginEdit();
    if (features.GetCount() > 0) {
        double previous = features[0];
        for (long k = 1; k < features.GetCount(); ++k) {
            const double next = features[k];
            if (next > count - 1) break;
            if (previous >= 0.0 && next > previous)
                recursiveFit(previous, next, startFrame, count, values, curve, tolerance, tangentScale,
                             tolerance > 0.0);
            previous = next;
        }
    }
    curve.EndEdit();
    return true;
}

}  // namespace ZUK
