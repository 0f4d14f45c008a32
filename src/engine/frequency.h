#pragma once

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// Exchanges diagonally opposite quadrants (cx = cols / 2, cy = rows / 2, rounded down); the
/// usual centre-to-corner shift on even sizes, its own inverse there. On odd sizes the last row
/// and column, which no quadrant covers, keep the source's values. destination may be source.
void swapQuadrants(const cv::Mat& source, cv::Mat& destination);

/// Linear convolution through the DFT, cropped to the "valid" size: C becomes
/// (|A.rows - B.rows| + 1) x (|A.cols - B.cols| + 1) of A's type, the top-left window of the full
/// product. A and B are one-channel float planes of the same type.
void convolveSpectrum(const cv::Mat& A, const cv::Mat& B, cv::Mat& C);

} // namespace clarovi::engine
