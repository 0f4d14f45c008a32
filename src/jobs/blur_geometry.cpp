#include "blur_geometry.h"

#include "engine/padding.h"
#include "slider_ranges.h"

#include <algorithm>

namespace clarovi::jobs {

cv::Point2d copyStretch(const ControllerState& state) {
    if (state.displayWidth <= 0 || state.displayHeight <= 0)
        return {1.0, 1.0};
    return {state.workingSide / state.displayWidth, state.workingSide / state.displayHeight};
}

RestorationScale RestorationScale::of(const ControllerState& state) {
    return {state.keepAspect, state.workingSide, state.padParameters()};
}

double paddedBlurLength(double psfLength, double multiplier, int side) {
    const int border = engine::borderWidth(multiplier, side);
    return psfLength * double(side + 2 * border) / side;
}

double solveRising(const std::function<double(double)>& rising, double target, double low,
                   double high) {
    // 40 halvings take any range used here far below a slider's step.
    for (int i = 0; i < 40; ++i) {
        const double middle = 0.5 * (low + high);
        (rising(middle) < target ? low : high) = middle;
    }
    return high;
}

double restoredBlurLength(float sliderLength, const RestorationScale& scale) {
    if (!scale.keepAspect)
        return sliderLength;
    engine::PadParameters pad = scale.pad;
    pad.eventLength = sliderLength;
    return paddedBlurLength(sliderLength, engine::padMultiplier(pad, true), scale.workingSide);
}

float sliderLengthFor(double blurLength, const RestorationScale& scale) {
    // The blur undone grows with the slider, as the border widens with it.
    return float(
        solveRising([&scale](double slider) { return restoredBlurLength(float(slider), scale); },
                    blurLength, kLengthRange.minimum, kLengthRange.maximum));
}

engine::BlurShape shownBlurOf(const SliderSetting& setting, bool motion,
                              const ControllerState& state) {
    const engine::BlurKind kind = motion ? engine::BlurKind::Motion : engine::BlurKind::OutOfFocus;
    const cv::Point2d stretch = copyStretch(state);
    return engine::shapeOf(kind, restoredBlurLength(setting.length, RestorationScale::of(state)),
                           setting.angle)
        .stretched(1.0 / stretch.x, 1.0 / stretch.y);
}

engine::PsfArguments copyPsfOf(const engine::BlurShape& shown, const ControllerState& state) {
    // A disk is measured along the photograph's longer side, where the copy does not stretch it:
    // its other axis grows on the copy, and a disk that large would ring along the longer side.
    engine::BlurShape onCopy = shown;
    if (shown.kind == engine::BlurKind::Motion) {
        const cv::Point2d stretch = copyStretch(state);
        onCopy = shown.stretched(stretch.x, stretch.y);
    } else {
        onCopy.extent.x = std::max(shown.extent.x, shown.extent.y);
    }
    return engine::psfArgumentsOf(onCopy);
}

SliderSetting settingFor(const engine::BlurShape& shown, const ControllerState& state) {
    const engine::PsfArguments psf = copyPsfOf(shown, state);
    return {sliderLengthFor(psf.length, RestorationScale::of(state)), psf.angle};
}

} // namespace clarovi::jobs
