#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

// A slow, literal deconvolvePlane built step by step on OpenCV's complex cv::dft: the oracle for
// the fast engine in tests and benchmarks. Also the small helpers the engine tests share.
namespace clarovi::reference {

/// Matrices kept between calls, so that a benchmark measures transforms and loops, not allocation.
struct Workspace {
    cv::Mat padded, complexPlane, scratch, centred, g, h, f;
};

/// With mu = 0, a frequency where S = 0 and the centred PSF is 0 gets W = 0.
cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf,
                        Workspace& ws);

inline cv::Mat randomPlane(cv::Size size, int seed, int type = CV_32F) {
    cv::Mat plane(size, type);
    cv::RNG(seed).fill(plane, cv::RNG::UNIFORM, 0, 255);
    return plane;
}

/// A disk of the given diameter on an odd canvas, antialiased, CV_32F normalised to sum 1: a
/// kernel as the window draws it.
inline cv::Mat diskKernel(int diameter) {
    const int side = diameter + 3 - diameter % 2;
    cv::Mat k = cv::Mat::zeros(side, side, CV_32F);
    cv::circle(k, {side / 2, side / 2}, diameter / 2, cv::Scalar(1), cv::FILLED, cv::LINE_AA);
    return k / cv::sum(k)[0];
}

inline double maxAbs(const cv::Mat& m) {
    return cv::norm(m, cv::NORM_INF);
}

} // namespace clarovi::reference
