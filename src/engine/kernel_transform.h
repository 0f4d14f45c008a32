#pragma once

#include "fourier_plane.h"

#include <opencv2/core.hpp>

#include <vector>

// Internal to the engine: what the one-pass and iterative filters know of a kernel on a canvas.
namespace clarovi::engine {

/// The half spectrum of a kernel on a canvas, its centre pixel (cols / 2, rows / 2) at the origin
/// so that a restoration with it moves nothing, and the spectra of the first differences across
/// and down the canvas, which the gradient prior weighs.
struct KernelSpectrum {
    SpectralPlane otf;
    std::vector<float> acrossPower; ///< |D_x|^2 at each spectrum column
    std::vector<float> downPower;   ///< |D_y|^2 at each spectrum row
};

/// kernel: one channel, any depth, normalised to sum 1; no larger than the canvas.
KernelSpectrum kernelSpectrum(const cv::Mat& kernel, cv::Size canvas, int threads);

/// Replaces the half spectrum in data (the kernel's canvas size) by that of its one-pass
/// restoration conj(K) Y / (|K|^2 + gamma |D|^2), scaled so that the inverse transform gives the
/// restored plane itself rather than rows * cols times it.
void applyRegularisedFilter(SpectralPlane& data, const KernelSpectrum& kernel, double gamma,
                            int threads);

} // namespace clarovi::engine
