#pragma once

#include "controller_state.h"
#include "engine/blur_shape.h"
#include "slider_ranges.h"

#include <functional>

namespace clarovi::jobs {

// The sliders set the PSF that restores the square working copy of the photograph. With Fixed
// size on, a job pads that copy and brings it back to workingSide, so the picture shrinks under a
// PSF that keeps its size: the blur undone is longer than the slider's value. And the square copy
// stretches a photograph that is not square, so a blur on the photograph as shown has another
// length and angle on the copy. These functions go between the two.

/// What the blur the main view's restoration undoes depends on besides the sliders.
struct RestorationScale {
    bool keepAspect = true;
    int workingSide = 2048;
    engine::PadParameters pad;

    static RestorationScale of(const ControllerState& state);
};

/// The blur that a PSF of psfLength undoes on a square picture of side that Fixed size pads with
/// multiplier's border and brings back to side: longer by the border's share.
double paddedBlurLength(double psfLength, double multiplier, int side);

/// The lowest x in [low, high] with rising(x) >= target, found by halving; rising must not fall.
double solveRising(const std::function<double(double)>& rising, double target, double low,
                   double high);

/// The PSF length, in working pixels, that the main view's restoration undoes with the length
/// slider at sliderLength once it has been let go there.
double restoredBlurLength(float sliderLength, const RestorationScale& scale);

/// The slider length whose restoration undoes a blur of this PSF length (working pixels), within
/// the slider's range.
float sliderLengthFor(double blurLength, const RestorationScale& scale);

/// How much the square working copy stretches the photograph shown, across and down (1 along its
/// longer side).
cv::Point2d copyStretch(const ControllerState& state);

/// The blur that the sliders at setting undo, as it lies on the photograph shown (its own aspect
/// ratio, longer side workingSide).
engine::BlurShape shownBlurOf(const SliderSetting& setting, bool motion,
                              const ControllerState& state);

/// The PSF that undoes a blur lying on the photograph shown, on the square working copy: a line
/// stretched with the copy, a disk of the width it has along the photograph's longer side.
engine::PsfArguments copyPsfOf(const engine::BlurShape& shown, const ControllerState& state);

/// The sliders that undo a blur lying on the photograph shown; the inverse of shownBlurOf where
/// the slider's range allows.
SliderSetting settingFor(const engine::BlurShape& shown, const ControllerState& state);

} // namespace clarovi::jobs
