#include "blur.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace clarovi::engine {

double workingScale(cv::Size copy) {
    return double(std::max(copy.width, copy.height)) / kWorkingSide;
}

cv::Rect scaledOutwards(const cv::Rect& r, double sx, double sy) {
    const int left = int(std::floor(r.x * sx)), top = int(std::floor(r.y * sy));
    return {left, top, int(std::ceil(r.br().x * sx)) - left, int(std::ceil(r.br().y * sy)) - top};
}

cv::Point2d BlurOnPhoto::extent() const {
    if (kind == BlurKind::OutOfFocus)
        return {length, length};
    if (kind == BlurKind::Shake)
        return kernel ? cv::Point2d(kernel->cols, kernel->rows) : cv::Point2d();
    const double direction = angle * std::numbers::pi / 180.0;
    // Counter-clockwise on the screen is towards negative y in picture coordinates.
    return {length * std::cos(direction), -length * std::sin(direction)};
}

BlurOnPhoto BlurOnPhoto::normalised() const {
    BlurOnPhoto blur = *this;
    if (kind != BlurKind::Motion) {
        blur.angle = 0;
        return blur;
    }
    blur.angle = std::remainder(angle, 180.0);
    if (blur.angle <= -90.0)
        blur.angle += 180.0;
    return blur;
}

BlurOnPhoto BlurOnPhoto::shake(std::shared_ptr<const cv::Mat> kernel) {
    const double side = kernel ? std::max(kernel->cols, kernel->rows) : 0;
    return {BlurKind::Shake, side, 0, 1, std::move(kernel)};
}

} // namespace clarovi::engine
