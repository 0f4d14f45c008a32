#include "restoration_score.h"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <numbers>

namespace clarovi::engine {

namespace {

// L2 / L1 of a derivative, times the square root of its count: 1 when every value is alike, up to
// that square root when a single value carries it all.
double sparsity(const cv::Mat& derivative) {
    const double l1 = cv::norm(derivative, cv::NORM_L1);
    if (!(l1 > 0.0))
        return 0.0;
    return std::sqrt(cv::norm(derivative, cv::NORM_L2SQR) * double(derivative.total())) / l1;
}

} // namespace

// The normalised sparsity of the gradient, as used in blind deconvolution to tell a sharp picture
// from a blurred one (Krishnan, Tay and Fergus, 2011), inverted so that higher is better, and
// taken along four directions rather than over the gradient as a whole: a line's restoration at
// a wrong angle leaves blur or ringing along one direction only, which the whole gradient dilutes.
double restorationScore(const cv::Mat& grey) {
    if (grey.empty() || grey.channels() != 1)
        return 0.0;
    cv::Mat plane, dx, dy;
    grey.convertTo(plane, CV_32F);
    cv::Sobel(plane, dx, CV_32F, 1, 0, 1);
    cv::Sobel(plane, dy, CV_32F, 0, 1, 1);
    const cv::Mat rising = (dx + dy) * (1.0 / std::numbers::sqrt2);
    const cv::Mat falling = (dx - dy) * (1.0 / std::numbers::sqrt2);
    return (sparsity(dx) + sparsity(dy) + sparsity(rising) + sparsity(falling)) / 4.0;
}

} // namespace clarovi::engine
