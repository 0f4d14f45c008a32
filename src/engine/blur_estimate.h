#pragma once

#include <opencv2/core.hpp>

namespace clarovi::engine {

enum class BlurKind { OutOfFocus, Motion };
enum class KindWanted { Any, OutOfFocus, Motion };

/// The confidence from which an estimate counts as a blur found.
inline constexpr double kClearBlurConfidence = 0.35;

/// What blurs a picture, in the units of the PSF sliders.
struct BlurEstimate {
    BlurKind kind;
    double length;     ///< disk diameter, or the motion slider length (the line is length * sqrt 2)
    double angle;      ///< motion slider angle in degrees, in (-90, 90]; 0 for a disk
    double confidence; ///< 0 (no blur found: sharp, flat or pure noise) to 1
};

/// grey: one-channel 8-bit working picture (longer side 2048). length and angle are the values
/// that, given to MakePsfD(length, angle, width, false, motion, canvas), draw the blur. wanted
/// restricts the answer to one kind of blur. A flat picture, or one under 64 pixels on a side,
/// gives length 0 and confidence 0. Other than CV_8UC1 throws std::invalid_argument.
BlurEstimate estimateBlur(const cv::Mat& grey, KindWanted wanted = KindWanted::Any);

} // namespace clarovi::engine
