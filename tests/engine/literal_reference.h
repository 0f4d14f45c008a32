#pragma once

#include <opencv2/core.hpp>

// Slow, literal versions of the frequency toolkit and of deconvolvePlane, step by step with
// OpenCV's complex cv::dft: the oracle for the fast engine in tests and benchmarks.
namespace clarovi::reference {

/// Matrices kept between calls, so that a benchmark of the literal steps measures transforms and
/// loops rather than allocation.
struct Workspace {
    cv::Mat padded, complexPlane, scratch, centred;
    cv::Mat split[2], g[2], h[2], f[2];
};

void forwardSpectrum(const cv::Mat& source, cv::Mat planes[2], Workspace& ws);
void inverseSpectrum(cv::Mat planes[2], cv::Mat& out, Workspace& ws);
/// On odd sizes the last row and column keep the source's values.
void swapQuadrants(const cv::Mat& source, cv::Mat& destination, Workspace& ws);
/// Each forward transform is hinted with its own matrix's row count.
void convolveSpectrum(const cv::Mat& A, const cv::Mat& B, cv::Mat& C);
/// With mu = 0, a frequency where S = 0 and the centred PSF is 0 gets W = 0.
cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf,
                        Workspace& ws);

} // namespace clarovi::reference
