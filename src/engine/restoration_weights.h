#pragma once

#include "plane_restorer.h"

#include <opencv2/core.hpp>

#include <vector>

// Internal to the engine: how the sharpness control and the picture set each filter's weights.
namespace clarovi::engine {

/// Classic: mu from 0.008 at kMinSharpness to 0.002 at kMaxSharpness, in equal steps.
double classicMu(double sharpness);

/// The weight gamma of |D|^2 against |K|^2 that minimises the unbiased estimate of the
/// predictive risk |K x' - K x|^2 (Mallows' C_L) on the picture's power spectrum: small where the
/// picture has much detail above its noise, large where it has little; without a spectrum a
/// fixed multiple of sigma^2. The risk barely weighs the kernel's zeros, so this weight alone
/// lets a streak's zeros through; it only sets how the iterative filter's lambda follows the
/// picture.
double leastRiskWeight(const cv::Mat& kernel, const PictureStatistics& picture);

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

/// The one-pass (Regularised) filter's weight gamma: that of the iterative filter's last
/// splitting step, beta / lambda, so that the one pass follows the same sharpness and picture.
/// On reduced copies of photographs blurred at their own size it beat the blurred copy in every
/// case, where the classic filter lost up to 3 dB to it and the least-risk weight let a
/// streak's zeros through.
double onePassWeight(const EdgePreservingWeights& weights);

} // namespace clarovi::engine
