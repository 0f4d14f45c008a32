#pragma once

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// What the border width depends on: the PSF length of the last slider event and the sharpness
/// control's starting value and range as read at start-up.
struct PadParameters {
    float eventLength = 0.0f;
    float muStart = 0.0f;
    float muMin = 0.0f;
    float muMax = 0.0f;
};

/// The border multiplier: eventLength / 25 + 0.25 * muMax / (muMin + sinh(muStart) / sinh(1) *
/// (muMax - muMin)). When the denominator is not positive or the result not finite it falls back
/// to eventLength / 25 + 0.25 and logs it. Logs "MULTIPLIER %f" unless quiet (a caller that only
/// asks what a restoration would do).
double padMultiplier(const PadParameters& parameters, bool quiet = false);

/// Grows source by a replicated border of trunc(multiplier * rows / 18.32) pixels (never
/// negative) on all four sides and returns the padded matrix; logs "FINAL %d" with its rows.
/// added receives the total border rescaled to the source's width, trunc((Pc - C) * (C / Pc)) in
/// single precision: what the caller removes after bringing the restored plane back to C.
/// The second argument is unused (callers pass 0.1).
cv::Mat addPad(const cv::Mat& source, double unused, int* added, const PadParameters& parameters);

/// The border addPad puts around a plane of the given rows: trunc(multiplier * rows / 18.32),
/// never negative. Throws when it is wider than any picture can use.
int borderWidth(double multiplier, int rows);

/// addPad with the multiplier given rather than computed from the controls (the auto search has
/// its own); logs "FINAL %d" but no multiplier.
cv::Mat padByMultiplier(const cv::Mat& source, double multiplier, int* added);

/// The trim window after restoration of a padded plane of size (rows x cols) with added from
/// addPad: side (size - added), corner at column added / 2 and row added / 2 + 1, clamped to the
/// plane when added < 2.
cv::Rect trimWindow(cv::Size restored, int added);

} // namespace clarovi::engine
