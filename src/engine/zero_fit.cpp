#include "zero_fit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>

namespace clarovi::engine {

namespace {

constexpr double kPi = std::numbers::pi;

constexpr std::array kBesselJ1Zeros{3.8317059702,  7.0155866698,  10.1734681351, 13.3236919363,
                                    16.4706300509, 19.6158585105, 22.7600843806, 25.9036720876};

/// The side lobes of 2 J1(x) / x peak at the zeros of J2.
constexpr std::array kBesselJ2Zeros = {5.1356, 8.4172, 11.6198, 14.7960, 17.9598};
/// The side lobes of sin(x) / x peak where tan x = x.
constexpr std::array kSincPeaks = {4.4934, 7.7253, 10.9041, 14.0662, 17.2208};

template <std::size_t n> bool inTable(const std::array<double, n>&, int k) {
    return k <= static_cast<int>(n);
}

double diskPeak(int k) {
    return inTable(kBesselJ2Zeros, k) ? kBesselJ2Zeros[k - 1] : besselZero(2, k);
}
double lineZero(int k) {
    return k * kPi;
}
double linePeak(int k) {
    const double near = (k + 0.5) * kPi; // tan x = x tends to this less 1 / x
    return inTable(kSincPeaks, k) ? kSincPeaks[k - 1] : near - 1.0 / near;
}

/// Welch's windows overlap by half and each Hann-windowed bin is correlated with its neighbours,
/// so a mean over n bins is about as steady as one over n / 4 independent values.
constexpr double kCorrelatedBins = 4.0;

/// How far a profile strays, in log power, from a straight line in log radius over one side lobe
/// without any zero: the bends of a picture's spectrum, of a blur's side lobes, of the flank of a
/// dip that the window has widened. Added to the standard error, so that however steady the
/// average, a zero must be deeper than such a bend to count.
constexpr double kWander = 0.25;

/// A single zero's say in a pattern's score, in standard errors: one deep dip (the zero of a blur
/// twice as long, an edge's ringing) must not carry a pattern whose other zeros are not there.
constexpr double kZeroSay = 8.0;

/// A pattern needs two zeros this deep (in standard errors). With one it may be a harmonic of a
/// blur that has a single zero in the band, the pattern's other zeros falling on the blur's main
/// lobe where a bend is hard to tell from a dip; its score is then scaled down.
constexpr double kClearZero = 2.5;
constexpr double kLoneZero = 0.5;
/// A first zero that is clear, with the next one dipping at least this much, is no harmonic's
/// (whose first zero would fall on the blur's main lobe): the second zero of a photograph's blur
/// often lies where its noise or compression has filled the dip.
constexpr double kSecondZero = 1.0;

/// A zero's depth below the profile interpolated between the side lobes around it, in standard
/// errors; NaN where the profile has no samples.
double zeroDepth(const LogProfile& profile, double before, double zero, double after) {
    // Interpolated in log radius: a power-law spectrum, like a natural picture's or a PSF's
    // side-lobe envelope, is a straight line there, so it adds no dip of its own.
    const double t = std::log(zero / before) / std::log(after / before);
    const double ea = profile.error(before), ez = profile.error(zero), eb = profile.error(after);
    const double depth =
        (1.0 - t) * profile.mean(before) + t * profile.mean(after) - profile.mean(zero);
    return depth / std::sqrt(ez * ez + (1.0 - t) * (1.0 - t) * ea * ea + t * t * eb * eb +
                             kWander * kWander);
}

} // namespace

double besselZero(double nu, int k) {
    const double beta = (k + 0.5 * nu - 0.25) * kPi;
    return beta - (4.0 * nu * nu - 1.0) / (8.0 * beta);
}

double besselJ1Zero(int k) {
    return k <= int(kBesselJ1Zeros.size()) ? kBesselJ1Zeros[size_t(k - 1)] : besselZero(1, k);
}

const ZeroPattern kDiskZeros{besselJ1Zero, diskPeak};
const ZeroPattern kLineZeros{lineZero, linePeak};

LogProfile::LogProfile(double outerRadius)
    : m_sum(static_cast<std::size_t>(std::ceil(outerRadius * kSamplesPerBin)) + 2, 0.0),
      m_squares(m_sum.size(), 0.0), m_count(m_sum.size(), 0) {}

void LogProfile::finish() {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    m_mean.assign(m_sum.size(), nan);
    m_error.assign(m_sum.size(), nan);
    for (std::size_t i = 0; i < m_sum.size(); ++i) {
        if (m_count[i] < 2)
            continue;
        const double n = m_count[i];
        m_mean[i] = m_sum[i] / n;
        const double variance = std::max(m_squares[i] / n - m_mean[i] * m_mean[i], 0.0);
        m_error[i] = std::sqrt(variance * kCorrelatedBins / n);
    }
}

double LogProfile::interpolate(const std::vector<double>& values, double position) {
    const double at = position * kSamplesPerBin;
    if (!(at >= 0.0 && at + 1.0 < static_cast<double>(values.size())))
        return std::numeric_limits<double>::quiet_NaN();
    const auto i = static_cast<std::size_t>(at);
    const double t = at - static_cast<double>(i);
    return (1.0 - t) * values[i] + t * values[i + 1];
}

ZeroFit fitZeros(const LogProfile& profile, const ZeroPattern& pattern, double binsPerUnit,
                 double inner, double outer) {
    double capped = 0.0, sum = 0.0;
    int zeros = 0, clear = 0;
    double first = 0.0, second = 0.0;
    for (int k = 1;; ++k) {
        const double zero = binsPerUnit * pattern.zero(k);
        const double after = binsPerUnit * pattern.peak(k);
        // The main lobe has no side lobe before the first zero; its mirror image stands in.
        const double before = k == 1 ? 2.0 * zero - after : binsPerUnit * pattern.peak(k - 1);
        if (after > outer)
            break;
        if (before < inner)
            continue;
        const double z = zeroDepth(profile, before, zero, after);
        if (!std::isfinite(z))
            continue;
        capped += std::min(z, kZeroSay);
        sum += z;
        ++zeros;
        clear += z >= kClearZero ? 1 : 0;
        if (zeros == 1)
            first = z;
        else if (zeros == 2)
            second = z;
    }
    if (zeros < 2)
        return {};
    const double root = std::sqrt(zeros);
    const bool repeats = clear >= 2 || (first >= kClearZero && second >= kSecondZero);
    return {(repeats ? 1.0 : kLoneZero) * capped / root, sum / root};
}

} // namespace clarovi::engine
