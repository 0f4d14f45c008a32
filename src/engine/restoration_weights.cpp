#include "restoration_weights.h"

#include "fourier_plane.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace clarovi::engine {

namespace {

// Noise below this (8-bit quantisation alone gives 0.29 grey levels) would let the weights run
// towards the unregularised inverse.
constexpr double kNoiseFloor = 0.25;
// Without a spectrum: gamma = kFallbackGammaPerNoisePower * sigma^2, between what a detailed
// and a smooth photograph want.
constexpr double kFallbackGammaPerNoisePower = 0.01;
// The default lambda = 2^kDefaultLog2Lambda / sqrt(sigma gamma), sigma in grey levels and gamma
// the one-pass filter's default weight: fitted on eight photographs from a sky with a kite to a
// field of grass, under disks of 4 to 16 pixels and a streak, noise 0.5 to 4 grey levels. It
// loses 0.5 dB on average against each case's best lambda and beats the blurred input by at
// least 1 dB; lambda * sigma^2 alone, at its best, loses 1.5 dB on average.
constexpr double kDefaultLog2Lambda = 8.25;
// A streak's default lambda at most: photographs blurred at their full size by a thin line and
// restored with the streak drawn on a reduced copy wanted lambda of 5,000 to 8,500 at any
// noise, where the default rose to 23,000 on a textured one and rippled (4 dB under its best).
// Disks, drawn closer to the blur they stand for, kept gaining up to twice their default.
constexpr double kLargestStreakLambda = 8192.0;
// Splitting weights after Krishnan and Fergus (2009), who start at 1 and end at 256 in steps of
// 2 sqrt 2. Up to beta = 4 the shrinkage keeps only steps of more than half the range, and the x
// steps are one-pass restorations with gamma = beta / lambda; starting from the one at beta = 4
// measured the same PSNR to 0.1 dB, and steps of 4 lose under 0.15 dB against 2 sqrt 2, so
// three steps do the work of six. Starting from the smoother one at beta = 16 restores the
// middle of photographs the same to 0.05 dB and the frame of a streaked picture better: its
// outermost 12 pixels came 1.5 dB under the blurred input from beta = 4 and 0.9 dB over it
// from 16, as the first estimate of what lies past the frame rings less.
constexpr double kStartBeta = 16.0;
constexpr double kBetas[] = {16.0, 64.0, 256.0};

double noisePower(const PictureStatistics& picture) {
    const double sigma = std::max(picture.noiseSigma, kNoiseFloor);
    return sigma * sigma;
}

/// 2^((kDefaultSharpness - sharpness) / 10): the factor on a smoothing weight.
double smoothingFactor(double sharpness) {
    const double s = std::clamp(sharpness, kMinSharpness, kMaxSharpness);
    return std::exp2((kDefaultSharpness - s) / 10.0);
}

/// |K|^2 of the kernel at the frequencies of a side x side grid: the kernel's transform on a
/// canvas of a whole multiple of side that holds it, read every multiple-th frequency.
cv::Mat kernelPowerOnGrid(const cv::Mat& kernel, int side) {
    const int multiple = (std::max(kernel.rows, kernel.cols) + side - 1) / side;
    cv::Mat canvas = cv::Mat::zeros(side * multiple, side * multiple, CV_64F);
    kernel.convertTo(canvas(cv::Rect(0, 0, kernel.cols, kernel.rows)), CV_64F);
    cv::Mat spectrum;
    cv::dft(canvas, spectrum, cv::DFT_COMPLEX_OUTPUT);
    cv::Mat power(side, side, CV_64F);
    for (int u = 0; u < side; ++u)
        for (int v = 0; v < side; ++v) {
            const auto c = spectrum.at<cv::Vec2d>(u * multiple, v * multiple);
            power.at<double>(u, v) = c[0] * c[0] + c[1] * c[1];
        }
    return power;
}

/// Mallows' C_L for the one-pass filter with weight gamma, up to a constant: the mean over the
/// grid of (1 - H)^2 P + 2 sigma^2 H, H = |K|^2 / (|K|^2 + gamma |D|^2). All three are even in
/// the frequency, so the left half of the grid stands for the whole, its inner columns twice.
class PredictiveRisk {
  public:
    PredictiveRisk(const cv::Mat& kernel, const cv::Mat& density, double noisePower)
        : m_noisePower(noisePower) {
        const int side = density.cols;
        const cv::Mat k2 = kernelPowerOnGrid(kernel, side);
        const std::vector<float> d = differencePower(side, side);
        for (int u = 0; u < side; ++u)
            for (int v = 0; v <= side / 2; ++v)
                m_terms.push_back({k2.at<double>(u, v), double(d[size_t(u)] + d[size_t(v)]),
                                   double(density.at<float>(u, v)),
                                   v == 0 || 2 * v == side ? 1.0 : 2.0});
    }

    double operator()(double gamma) const {
        double sum = 0;
        for (const Term& t : m_terms) {
            const double denominator = t.k2 + gamma * t.d2;
            const double h = denominator > 0 ? t.k2 / denominator : 1.0;
            sum += t.count * ((1 - h) * (1 - h) * t.power + 2 * m_noisePower * h);
        }
        return sum;
    }

  private:
    struct Term {
        double k2, d2, power, count;
    };
    double m_noisePower;
    std::vector<Term> m_terms;
};

/// The gamma in [1e-8, 100] with the least risk: a search over decades, then finer around the
/// best.
double leastRisk(const PredictiveRisk& risk) {
    const auto search = [&](double from, double to, double step) {
        double best = from, least = std::numeric_limits<double>::infinity();
        for (double e = from; e <= to + 1e-9; e += step) {
            const double r = risk(std::pow(10.0, e));
            if (r < least) {
                least = r;
                best = e;
            }
        }
        return best;
    };
    // 42 evaluations (each over the whole grid) to 0.05 of a decade, which moves lambda by 6 %:
    // a live preview step weighs its kernel anew.
    const double coarse = search(-8.0, 2.0, 0.5);
    return std::pow(10.0, search(coarse - 0.5, coarse + 0.5, 0.05));
}

} // namespace

double classicMu(double sharpness) {
    const double s = std::clamp(sharpness, kMinSharpness, kMaxSharpness);
    return 0.008 - 0.006 * (s - kMinSharpness) / (kMaxSharpness - kMinSharpness);
}

double leastRiskWeight(const cv::Mat& kernel, const PictureStatistics& picture) {
    const double n2 = noisePower(picture);
    const cv::Mat& density = picture.powerSpectrum;
    if (density.empty())
        return kFallbackGammaPerNoisePower * n2;
    if (density.type() != CV_32FC1 || density.rows != density.cols)
        throw std::invalid_argument("a picture's power spectrum must be square CV_32FC1");
    return leastRisk(PredictiveRisk(kernel, density, n2));
}

double onePassWeight(const EdgePreservingWeights& weights) {
    return weights.betas.back() / weights.lambda;
}

EdgePreservingWeights edgePreservingWeights(const cv::Mat& kernel, const PictureStatistics& picture,
                                            double sharpness, bool streak) {
    const double sigma = std::sqrt(noisePower(picture));
    const double gamma = leastRiskWeight(kernel, picture);
    double lambda = std::exp2(kDefaultLog2Lambda) / std::sqrt(sigma * gamma);
    if (streak)
        lambda = std::min(lambda, kLargestStreakLambda);
    EdgePreservingWeights weights;
    weights.lambda = lambda / smoothingFactor(sharpness);
    weights.startBeta = kStartBeta;
    weights.betas.assign(std::begin(kBetas), std::end(kBetas));
    return weights;
}

} // namespace clarovi::engine
