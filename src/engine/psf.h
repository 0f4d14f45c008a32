#pragma once

#include <QImage>
#include <QSize>
#include <opencv2/core.hpp>

#include <optional>

namespace clarovi::engine {

/// Draws a PSF picture: a white shape on opaque black, RGBA 8 bits per sample, antialiased.
/// Out of focus (motionBlur false): a filled disk of diameter length centred on the canvas.
/// Motion: a line of width width (fractional widths give faint hair-lines), flat caps, along the
/// rising diagonal of a square of side length centred on the canvas, turned by -angle degrees in
/// y-up coordinates: angle -45 gives a vertical line of length * sqrt(2), 45 a horizontal one.
/// Canvas: 128 x 128 when activeSize is empty (no picture), otherwise activeSize; 256 x 256
/// whatever the rest when smallCanvas. Length 0 gives an all-black picture.
QImage MakePsfD(float length, double angle, double width, bool smallCanvas, bool motionBlur,
                QSize activeSize);

/// The kernel rule: an 8-bit grey PSF plane converted to 32-bit float and multiplied by 1 / sum
/// with the sum rounded to single precision (CV_32F; the deconvolution widens it to double
/// exactly, without a copy). std::nullopt when the plane sums to 0 (length 0 or an empty plane),
/// so that the caller can skip the restoration.
std::optional<cv::Mat> normalizedKernel(const cv::Mat& greyPsf);

} // namespace clarovi::engine
