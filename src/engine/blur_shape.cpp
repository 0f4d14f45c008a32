#include "blur_shape.h"

#include <array>
#include <cmath>
#include <numbers>

namespace clarovi::engine {

namespace {
constexpr double kDegree = std::numbers::pi / 180.0;

constexpr std::array kBesselJ1Zeros{3.8317059702,  7.0155866698,  10.1734681351, 13.3236919363,
                                    16.4706300509, 19.6158585105, 22.7600843806, 25.9036720876};
} // namespace

double besselZero(double nu, int k) {
    const double beta = (k + 0.5 * nu - 0.25) * std::numbers::pi;
    return beta - (4.0 * nu * nu - 1.0) / (8.0 * beta);
}

double besselJ1Zero(int k) {
    return k <= int(kBesselJ1Zeros.size()) ? kBesselJ1Zeros[size_t(k - 1)] : besselZero(1, k);
}

BlurShape BlurShape::stretched(double sx, double sy) const {
    return {kind, {extent.x * sx, extent.y * sy}};
}

BlurShape shapeOf(BlurKind kind, double length, double angle) {
    if (kind == BlurKind::OutOfFocus)
        return {kind, {length, length}};
    // MakePsfD's line rises at 45 degrees before it is turned by -angle (y up); y runs down here.
    const double direction = (45.0 - angle) * kDegree;
    const double line = length * std::numbers::sqrt2;
    return {kind, {line * std::cos(direction), -line * std::sin(direction)}};
}

PsfArguments psfArgumentsOf(const BlurShape& shape) {
    if (shape.kind == BlurKind::OutOfFocus)
        return {shape.extent.x, 0.0};
    const double direction = std::atan2(-shape.extent.y, shape.extent.x) / kDegree;
    // A line has no head: its angle is kept in (-90, 90].
    double angle = std::remainder(45.0 - direction, 180.0);
    if (angle <= -90.0)
        angle += 180.0;
    return {std::hypot(shape.extent.x, shape.extent.y) / std::numbers::sqrt2, angle};
}

} // namespace clarovi::engine
