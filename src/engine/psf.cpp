#include "psf.h"

#include "shake_kernel.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace clarovi::engine {

namespace {

// Sub-pixel samples per pixel side where a disk's edge crosses a pixel: 256 per pixel put the
// covered share within 1/256 of the exact area, far below what the restoration can tell.
constexpr int kEdgeSamples = 16;
// Spacing, in pixels, of the points a streak is swept with: much finer than the pixels they are
// spread over, so that the drawn streak is as smooth as the bilinear spread allows.
constexpr double kStreakSpacing = 1.0 / 8.0;
constexpr int kLargestSide = 8193;

cv::Mat emptyKernel(int half) {
    const int side = 2 * half + 1;
    if (side > kLargestSide)
        throw std::invalid_argument("MakePsfD: the blur is wider than any photograph can hold");
    return cv::Mat::zeros(side, side, CV_32F);
}

cv::Mat noBlur() {
    return cv::Mat::ones(1, 1, CV_32F);
}

/// The share of the pixel centred at (x, y) that lies inside the disk of radius r about the
/// origin.
float diskCoverage(double x, double y, double r) {
    const double nearX = std::max(std::abs(x) - 0.5, 0.0), nearY = std::max(std::abs(y) - 0.5, 0.0);
    if (nearX * nearX + nearY * nearY >= r * r)
        return 0.0f;
    const double farX = std::abs(x) + 0.5, farY = std::abs(y) + 0.5;
    if (farX * farX + farY * farY <= r * r)
        return 1.0f;
    int inside = 0;
    for (int i = 0; i < kEdgeSamples; ++i) {
        const double sy = y - 0.5 + (i + 0.5) / kEdgeSamples;
        for (int j = 0; j < kEdgeSamples; ++j) {
            const double sx = x - 0.5 + (j + 0.5) / kEdgeSamples;
            inside += sx * sx + sy * sy <= r * r ? 1 : 0;
        }
    }
    return float(inside) / float(kEdgeSamples * kEdgeSamples);
}

cv::Mat disk(double diameter) {
    const double r = 0.5 * diameter;
    const int half = int(std::ceil(r + 0.5));
    cv::Mat kernel = emptyKernel(half);
    for (int i = 0; i < kernel.rows; ++i)
        for (int j = 0; j < kernel.cols; ++j)
            kernel.at<float>(i, j) = diskCoverage(j - half, i - half, r);
    return kernel;
}

/// Adds weight at (x, y), spread over the four pixels around it.
void spread(cv::Mat& kernel, double x, double y, double weight) {
    const int x0 = int(std::floor(x)), y0 = int(std::floor(y));
    const double fx = x - x0, fy = y - y0;
    kernel.at<float>(y0, x0) += float(weight * (1 - fx) * (1 - fy));
    kernel.at<float>(y0, x0 + 1) += float(weight * fx * (1 - fy));
    kernel.at<float>(y0 + 1, x0) += float(weight * (1 - fx) * fy);
    kernel.at<float>(y0 + 1, x0 + 1) += float(weight * fx * fy);
}

/// Sample positions, the midpoints of count equal parts of [-extent / 2, extent / 2].
int sampleCount(double extent) {
    return std::max(1, int(std::ceil(extent / kStreakSpacing)));
}

cv::Mat streak(double length, double width, double angle) {
    const int half = int(std::ceil(0.5 * std::hypot(length, width))) + 1;
    cv::Mat kernel = emptyKernel(half);
    const double direction = angle * std::numbers::pi / 180.0;
    // Along the streak, and across it; y runs down, so counter-clockwise is towards negative y.
    const cv::Point2d along(std::cos(direction), -std::sin(direction));
    const cv::Point2d across(-along.y, along.x);
    const int alongCount = sampleCount(length), acrossCount = sampleCount(width);
    for (int a = 0; a < alongCount; ++a) {
        const double t = length * ((a + 0.5) / alongCount - 0.5);
        for (int c = 0; c < acrossCount; ++c) {
            const double u = width * ((c + 0.5) / acrossCount - 0.5);
            const cv::Point2d at = along * t + across * u;
            spread(kernel, half + at.x, half + at.y, 1.0);
        }
    }
    return kernel;
}

void checkFinite(double value, const char* what) {
    if (!std::isfinite(value) || value < 0)
        throw std::invalid_argument(std::string("MakePsfD: the ") + what +
                                    " must be a finite number of 0 or more");
}

/// A shake's kernel at a scale: resampled (by area when reduced), then centred on its centre of
/// mass again, so that every copy's kernel moves the picture alike.
cv::Mat scaledShake(const cv::Mat& kernel, double scale) {
    if (scale == 1.0)
        return centredKernel(kernel);
    const cv::Size size(std::max(1, int(std::lround(kernel.cols * scale))),
                        std::max(1, int(std::lround(kernel.rows * scale))));
    cv::Mat scaled;
    cv::resize(kernel, scaled, size, 0, 0, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    scaled = centredKernel(scaled);
    return scaled.empty() ? noBlur() : scaled;
}

} // namespace

cv::Mat MakePsfD(const BlurOnPhoto& blur, double scale) {
    checkFinite(blur.length, "length");
    checkFinite(scale, "scale");
    if (blur.kind == BlurKind::Shake) {
        if (!blur.kernel || blur.kernel->empty() || !(scale > 0))
            throw std::invalid_argument("MakePsfD: a shake needs a kernel and a scale above 0");
        return scaledShake(*blur.kernel, scale);
    }
    const double length = blur.length * scale;
    cv::Mat kernel;
    if (blur.kind == BlurKind::OutOfFocus) {
        // A disk no wider than a pixel lies inside the centre pixel.
        if (length <= 1.0)
            return noBlur();
        kernel = disk(length);
    } else {
        checkFinite(blur.width, "width");
        const double width = blur.width * scale;
        if (std::max(length, width) < 1.0)
            return noBlur();
        kernel = streak(length, width, blur.angle);
    }
    kernel /= cv::sum(kernel)[0];
    return kernel;
}

} // namespace clarovi::engine
