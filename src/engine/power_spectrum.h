#pragma once

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// Welch's estimate of a grey picture's power spectrum: the sum of |DFT|^2 over side x side
/// windows taken every side / 2 pixels across and down, each with its mean removed and weighted by
/// a Hann window, so that the picture's borders and one window's speckle do not hide a blur's
/// zeros. Returns side x side CV_32F with the zero frequency at (0, 0) (not centred). grey: one
/// channel, any depth, at least side x side; side even and at least 2. Throws otherwise.
cv::Mat averagePowerSpectrum(const cv::Mat& grey, int side);

} // namespace clarovi::engine
