#pragma once

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// The centred log-magnitude spectrum of a one-channel matrix, for display: log(1 + |DFT|) of
/// the input zero-padded at the bottom and right to the optimal DFT size, cropped to even sides,
/// quadrants swapped so that the zero frequency sits at the centre, stretched to 0..255 (CV_8UC1).
/// Its sides are the optimal DFT sizes of the input's rounded down to even: a 1 x 1 or empty
/// input gives an empty matrix; a constant spectrum gives all zeros.
cv::Mat logMagnitudeSpectrum(const cv::Mat& input);

} // namespace clarovi::engine
