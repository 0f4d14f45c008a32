#pragma once

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// How many of a plane's own units make one grey level, 1/255 of full scale: 1 for 8-bit planes
/// and for float planes (which the engine keeps on the 0..255 scale), 257 for 16-bit planes.
/// Noise and restoration weights are given in grey levels whatever the depth. Throws for other
/// depths.
double unitsPerGreyLevel(int depth);

/// The standard deviation of white noise in a grey plane (one channel, 8 or 16 bits or float),
/// in grey levels. Each 16 x 16 block of the plane's second-difference response (the mask
/// [1 -2 1]^T [1 -2 1] / 6, which has the noise's own variance and does not see flat areas or
/// ramps) gives a variance; texture and edges only add to it, so the estimate reads the blocks
/// with the least, a low quantile calibrated on pure noise. Blocks that touch the ends of the
/// range (0 or full scale) are left out, as clipping flattens them. Under 18 x 18 (one block and
/// its mask), or when no block is left, the result is 0.
double estimateNoiseSigma(const cv::Mat& grey);

} // namespace clarovi::engine
