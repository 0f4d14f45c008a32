#pragma once

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// A no-reference quality score of a restored grey picture, higher for better restorations: the
/// ratio of the L2 to the L1 norm of its derivatives across, down and along both diagonals
/// (scaled by the square root of the pixel count, so 1 for even derivatives), averaged. A sharp
/// picture's edges are few and strong, so its derivatives are sparse and the ratio high; blur
/// spreads each edge into many weak ones, and the ringing and noise of a restoration with the
/// wrong PSF add weak ones everywhere: both lower it. Unlike a plain sharpness measure it does not
/// keep growing as a restoration over-sharpens. grey: one channel, any depth (read as 8 bits);
/// a flat picture, or one under 3 x 3, scores 0.
double restorationScore(const cv::Mat& grey);

} // namespace clarovi::engine
