#pragma once

#include <opencv2/core.hpp>

// A slow, literal restoration with a hyper-Laplacian prior: the oracle for the engine's
// edge-preserving filter in tests and in the quality tool.
namespace clarovi::reference {

/// Krishnan and Fergus (2009), "Fast image deconvolution using hyper-Laplacian priors", as
/// published: minimises lambda / 2 |k * x - y|^2 + sum |x(i, j + 1) - x(i, j)|^alpha +
/// |x(i + 1, j) - x(i, j)|^alpha by half-quadratic splitting from x = y, one w step and one x step
/// for each beta = 1, 2 sqrt 2, 8, ... up to 256. Everything in double with cv::dft; the plane is
/// mirrored to twice its size along each axis first, so that the transform's periodic convolution
/// sees no step at the frame. Each w is the exact minimiser, found by bisection. blurred: one
/// channel on the 0..1 scale; kernel: sums to 1, centre pixel (cols / 2, rows / 2). Returns
/// CV_64F of the blurred plane's size.
cv::Mat hyperLaplacianRestore(const cv::Mat& blurred, const cv::Mat& kernel, double lambda,
                              double alpha = 2.0 / 3.0);

/// The w that minimises |w|^alpha + beta / 2 (w - v)^2: 0, or the larger root of the stationary
/// condition if it does better, found by bisection.
double exactGradientShrink(double v, double beta, double alpha);

} // namespace clarovi::reference
