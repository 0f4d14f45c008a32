#pragma once

#include "plane_restorer.h"

#include <opencv2/core.hpp>

#include <vector>

// Internal to the engine: how the sharpness control and the picture set each filter's weights.
namespace clarovi::engine {

/// Classic: mu from 0.008 at kMinSharpness to 0.002 at kMaxSharpness, in equal steps.
double classicMu(double sharpness);

/// Regularised: the weight gamma of |D|^2 against |K|^2. At kDefaultSharpness it is the weight
/// that minimises the unbiased estimate of the predictive risk |K x' - K x|^2 (Mallows' C_L) on
/// the picture's power spectrum, which shrinks noise where the picture has little above it and
/// keeps detail where it has much; without a spectrum it is a fixed multiple of sigma^2.
double regularisedWeight(const cv::Mat& kernel, const PictureStatistics& picture, double sharpness);

/// regularisedWeight at kDefaultSharpness.
double defaultRegularisedWeight(const cv::Mat& kernel, const PictureStatistics& picture);

/// The iterative filter's schedule, on the 0..1 scale of its gradients: it minimises
/// lambda / 2 |K x - y|^2 + sum |D x|^alpha, starting from the one-pass restoration with
/// gamma = startBeta / lambda and raising the splitting weight beta through betas.
struct EdgePreservingWeights {
    double lambda = 0;
    double startBeta = 0;
    std::vector<double> betas;
};

/// lambda falls with the noise and with the one-pass filter's default weight, which is large
/// where the picture has little detail above its noise; for a streak its default is held at
/// most kLargestStreakLambda (see RestorationSettings::streak).
EdgePreservingWeights edgePreservingWeights(const cv::Mat& kernel, const PictureStatistics& picture,
                                            double sharpness, bool streak = false);

} // namespace clarovi::engine
