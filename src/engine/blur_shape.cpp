#include "blur_shape.h"

#include <cmath>
#include <numbers>

namespace clarovi::engine {

namespace {
constexpr double kDegree = std::numbers::pi / 180.0;
} // namespace

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
