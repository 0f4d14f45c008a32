#pragma once

#include "blur.h"

#include <opencv2/core.hpp>

namespace clarovi::engine {

enum class KindWanted { Any, OutOfFocus, Motion };

/// Confidence at and above which an estimate counts as a blur found. Over tables of blurred
/// pictures (sharp scenes and enlarged photographs, disks 5 to 90, lines 5 to 100 in ten
/// directions, noise 0.5 to 2 grey levels; 1400 cases) no answer this confident was off by more
/// than 8 % in length or 2 degrees in angle, or of the wrong kind; wrong answers stayed under
/// 0.46, sharp, flat and noise pictures at 0.
inline constexpr double kClearBlurConfidence = 0.5;

/// What the estimate is asked.
struct EstimateRequest {
    KindWanted wanted = KindWanted::Any; ///< restricts the answer to one kind of blur
    /// The part of the picture to read, in its pixels: a textured part (the face of a clock, a
    /// number plate, a line of text) where the rest is flat or blurred otherwise. Empty: the
    /// estimate reads the picture's detailed parts, wherever they are.
    cv::Rect region;
    /// The photograph's own pixels per pixel of the picture when it was enlarged to it (0.5 for
    /// a photograph 1024 pixels long): nothing of it lies past photoScale / 2 cycles per pixel.
    /// 1 when it was not enlarged, or when that is not known.
    double photoScale = 1.0;
};

/// What most likely blurs a picture, and how sure the estimate is of it.
struct BlurEstimate {
    /// The best guess, however unsure: a streak's angle in (-90, 90], its width 1 (what a moving
    /// point draws). Length 0 when the picture shows nothing to go by.
    BlurOnPhoto blur;
    double confidence = 0; ///< 0 (nothing found: sharp, flat or pure noise) to 1
    cv::Rect region; ///< the part of the picture read: the one asked for, or the estimate's own
};

/// grey: one-channel 8-bit picture of the photograph at its own aspect, longer side kWorkingSide,
/// so that the blur found is in working pixels, read in the request's region (at least
/// kLeastRegion pixels on a side around it, where the picture allows); without one, in the whole
/// picture, or in its most detailed half of each side when the rest is mostly flat. The confidence
/// says how clearly the picture's spectrum shows the blur's zeros: it stays low for a blur too
/// short for the picture's band (an enlarged photograph's, say) to show two of them. A flat
/// picture, or one under 64 pixels on a side, gives length 0 and confidence 0. Other than CV_8UC1
/// throws std::invalid_argument.
BlurEstimate estimateBlur(const cv::Mat& grey, const EstimateRequest& request = {});

/// A region is read as at least this much of the picture around it: a smaller one holds too few
/// windows to steady the spectrum.
inline constexpr int kLeastRegion = 256;

} // namespace clarovi::engine
