#include "blur.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace clarovi::engine {

double workingScale(cv::Size copy) {
    return double(std::max(copy.width, copy.height)) / kWorkingSide;
}

cv::Point2d BlurOnPhoto::extent() const {
    if (kind == BlurKind::OutOfFocus)
        return {length, length};
    const double direction = angle * std::numbers::pi / 180.0;
    // Counter-clockwise on the screen is towards negative y in picture coordinates.
    return {length * std::cos(direction), -length * std::sin(direction)};
}

BlurOnPhoto BlurOnPhoto::normalised() const {
    BlurOnPhoto blur = *this;
    if (kind == BlurKind::OutOfFocus) {
        blur.angle = 0;
        return blur;
    }
    blur.angle = std::remainder(angle, 180.0);
    if (blur.angle <= -90.0)
        blur.angle += 180.0;
    return blur;
}

} // namespace clarovi::engine
