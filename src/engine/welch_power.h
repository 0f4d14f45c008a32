#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace clarovi::engine {

/// Welch's estimate of a grey picture's power spectrum: the sum of |DFT|^2 over side x side
/// windows taken every side / 2 pixels across and down, each with its mean removed and weighted by
/// a Hann window, so that the picture's borders and one window's speckle do not hide a blur's
/// zeros. Returns side x side CV_32F with the zero frequency at (0, 0) (not centred). grey: one
/// channel, any depth, at least side x side; side even and at least 2. Throws otherwise.
cv::Mat averagePowerSpectrum(const cv::Mat& grey, int side);

/// averagePowerSpectrum divided by the number of windows and the window's energy: the power
/// spectral density per pixel, in the picture's units squared, so that white noise of variance v
/// gives about v at every frequency. Same arguments and throws as averagePowerSpectrum.
cv::Mat powerSpectralDensity(const cv::Mat& grey, int side);

/// The mean of a square spectrum (CV_32F, zero frequency at (0, 0)) over each ring of whole-bin
/// radius, from 0 to side / 2 (the last ring only partly inside).
std::vector<double> ringMeans(const cv::Mat& values);

/// A power spectrum as a picture to look at, and the frequencies it covers.
struct SpectrumPicture {
    cv::Mat picture;         ///< CV_8UC1, square, the zero frequency at its centre
    double maxFrequency = 0; ///< cycles per pixel from the centre to each edge, at most 0.5
};

/// A power spectrum (zero frequency at (0, 0), as averagePowerSpectrum gives it) as a picture:
/// log power with the zero frequency at the centre, cut to the frequencies where the picture has
/// more than noise (an enlarged photograph has nothing near 0.5 cycles per pixel, and a blur's
/// pattern would be lost in the middle of a mostly dark square), stretched to 0..255 between its
/// 1st and 99.9th percentiles so that neither the brightest frequencies nor the deepest zeros take
/// the whole range. An empty input gives an empty picture.
SpectrumPicture logPowerPicture(const cv::Mat& power);

} // namespace clarovi::engine
