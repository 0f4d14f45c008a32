#pragma once

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// Forward DFT of a one-channel plane of any depth, R x C. The plane is zero-padded at the bottom
/// and right to the optimal DFT size (cv::getOptimalDFTSize) and transformed; planes[0] (real) and
/// planes[1] (imaginary) receive the first R x C coefficients as CV_64F. Empty or multi-channel
/// input throws.
void forwardSpectrum(const cv::Mat& source, cv::Mat planes[2]);

/// Inverse DFT, scaled by 1 / (R * C), of the spectrum held in planes (two R x C CV_64F planes,
/// real and imaginary), computed at exactly R x C. out receives the real part; planes are
/// overwritten with the transformed planes.
void inverseSpectrum(cv::Mat planes[2], cv::Mat& out);

/// Exchanges diagonally opposite quadrants (cx = cols / 2, cy = rows / 2, rounded down); the
/// usual centre-to-corner shift on even sizes, its own inverse there. On odd sizes the last row
/// and column, which no quadrant covers, keep the source's values. destination may be source.
void swapQuadrants(const cv::Mat& source, cv::Mat& destination);

/// Linear convolution through the DFT, cropped to the "valid" size: C becomes
/// (|A.rows - B.rows| + 1) x (|A.cols - B.cols| + 1) of A's type, the top-left window of the full
/// product. A and B are one-channel float planes of the same type.
void convolveSpectrum(const cv::Mat& A, const cv::Mat& B, cv::Mat& C);

} // namespace clarovi::engine
