#pragma once

#include <cstddef>
#include <vector>

namespace clarovi::engine {

// How well the zeros of a blur's transform fit a profile of a log power spectrum; engine-internal
// but for the zeros themselves, which the spectrum view draws.

/// The k-th zero (k from 1) of the Bessel function J_nu by McMahon's expansion: within 1e-3 from
/// the third zero on.
double besselZero(double nu, int k);

/// The k-th zero (k from 1) of the Bessel function J1: a disk of diameter d blurs away the
/// frequencies on the ring of radius besselJ1Zero(k) / (pi d) cycles per pixel.
double besselJ1Zero(int k);

/// Where a PSF's transform is zero and where its side lobes peak, in units of pi * size * |f|
/// for a disk of diameter size (zeros of Bessel's J1) or pi * length * (f . direction) for a line
/// (multiples of pi). k counts from 1; peak(k) is the side lobe after zero k.
struct ZeroPattern {
    double (*zero)(int k);
    double (*peak)(int k);
};
extern const ZeroPattern kDiskZeros;
extern const ZeroPattern kLineZeros;

/// Means of the log power spectrum over rings or chords, sampled every half frequency bin, with
/// their standard errors. Positions are in frequency bins, 0 or more.
class LogProfile {
  public:
    explicit LogProfile(double outerRadius);

    void add(double position, double value) {
        const auto i = static_cast<std::size_t>(position * kSamplesPerBin + 0.5);
        if (i < m_sum.size()) {
            m_sum[i] += value;
            m_squares[i] += value * value;
            ++m_count[i];
        }
    }
    /// Turns the sums into means and errors; call once, after the last add.
    void finish();

    /// Linear interpolation; NaN where the profile has no samples.
    double mean(double position) const { return interpolate(m_mean, position); }
    double error(double position) const { return interpolate(m_error, position); }

  private:
    static constexpr double kSamplesPerBin = 2.0;
    static double interpolate(const std::vector<double>& values, double position);

    std::vector<double> m_sum, m_squares;
    std::vector<int> m_count;
    std::vector<double> m_mean, m_error;
};

struct ZeroFit {
    double score = 0.0; ///< which pattern fits: each zero's say capped
    double depth = 0.0; ///< where exactly it fits: uncapped, led by the deepest zeros
};

/// How far the zeros of pattern, drawn at binsPerUnit frequency bins per unit of the pattern, lie
/// below the profile between the side lobes around them, from inner to outer (bins). Both scores
/// are sums of each zero's depth in standard errors over the root of the number of zeros: a
/// z-score if the zeros were no deeper than their surroundings. Fewer than two zeros in the band
/// show no repetition and score 0.
ZeroFit fitZeros(const LogProfile& profile, const ZeroPattern& pattern, double binsPerUnit,
                 double inner, double outer);

} // namespace clarovi::engine
