#pragma once

#include "blur.h"

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// The kernel of blur on a copy of the photograph that has scale of its pixels per working pixel
/// (workingScale): CV_32F, square with an odd side, its centre pixel the blur's centre, summing
/// to 1. A disk covers each pixel by the share of its area inside the disk. A streak is a segment
/// of the scaled length swept across the scaled width, each of its points spread over the four
/// pixels around it (bilinearly), so that a streak thinner than a pixel is a one-pixel line and
/// every angle is drawn alike. A shake's kernel is resampled to the scale (by area when reduced)
/// and centred on its centre of mass. A blur smaller than a pixel gives the 1 x 1 kernel (no blur).
/// Throws std::invalid_argument for a negative or non-finite size or scale, a shake without a
/// kernel, or a kernel wider than 8193 pixels.
cv::Mat MakePsfD(const BlurOnPhoto& blur, double scale);

} // namespace clarovi::engine
