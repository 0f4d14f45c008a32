#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>

namespace clarovi::testing {

/// A sharp scene with detail at every scale: overlapping disks of random grey whose sizes are
/// spread as in natural pictures ("dead leaves"), radii from 2 to maxRadius with density r^-3.
inline cv::Mat deadLeaves(cv::Size size, int count, int seed = 7, double maxRadius = 300) {
    cv::RNG rng(seed);
    cv::Mat scene(size, CV_8U, cv::Scalar(128));
    const double low = 0.25, high = 1.0 / (maxRadius * maxRadius);
    for (int i = 0; i < count; ++i) {
        const double r = 1.0 / std::sqrt(low - rng.uniform(0.0, 1.0) * (low - high));
        const cv::Point centre(rng.uniform(0, size.width) * 16, rng.uniform(0, size.height) * 16);
        cv::circle(scene, centre, static_cast<int>(r * 16), cv::Scalar(rng.uniform(0, 256)),
                   cv::FILLED, cv::LINE_AA, 4);
    }
    return scene;
}

/// picture (any depth) filtered by kernel about its centre pixel, the frame mirrored, plus
/// Gaussian noise of sigma grey levels, rounded to 8 bits.
inline cv::Mat blurredWithNoise(const cv::Mat& picture, const cv::Mat& kernel, double sigma,
                                int seed = 1) {
    cv::Mat smooth, noise(picture.size(), CV_MAKETYPE(CV_32F, picture.channels()));
    cv::filter2D(picture, smooth, CV_32F, kernel, {-1, -1}, 0, cv::BORDER_REFLECT);
    cv::RNG(seed).fill(noise, cv::RNG::NORMAL, 0.0, sigma);
    cv::Mat result;
    cv::add(smooth, noise, smooth);
    smooth.convertTo(result, CV_8U);
    return result;
}

/// Peak signal to noise ratio of two 8-bit pictures, in dB.
inline double psnr(const cv::Mat& a, const cv::Mat& b) {
    return cv::PSNR(a, b, 255.0);
}

} // namespace clarovi::testing
