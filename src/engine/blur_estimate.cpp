#include "blur_estimate.h"

#include "power_spectrum.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace clarovi::engine {

namespace {

// Why the cepstrum: a blur multiplies the spectrum by the PSF's transform, so the log spectrum is
// the picture's log spectrum plus the PSF's. The PSF's log spectrum dives to -infinity at its
// zeros, which repeat with a period of 1/L along the motion (a line of length L: sinc zeros at
// k/L) or, for a disk of diameter d, on rings whose spacing tends to 1/d (J1's zeros tend to a
// spacing of pi in pi*d*f). The Fourier transform of the log spectrum (the cepstrum) turns that
// period into a deep negative pair at +-L along the motion, or a negative ring of radius about d,
// while a natural picture's smooth log spectrum stays near the origin.

struct Cepstrum {
    cv::Mat values; // side x side, CV_32F, origin at (0, 0), wrapped
    int side = 0;

    float at(int x, int y) const {
        return values.at<float>((y % side + side) % side, (x % side + side) % side);
    }
};

Cepstrum cepstrumOf(const cv::Mat& power) {
    // A floor far below the picture's level keeps log finite where the spectrum is exactly 0.
    cv::Mat logPower;
    cv::log(power + cv::Scalar(1e-9 * cv::mean(power)[0] + 1e-30), logPower);
    cv::Mat complex;
    cv::dft(logPower, complex, cv::DFT_COMPLEX_OUTPUT | cv::DFT_SCALE);
    Cepstrum cepstrum;
    cv::extractChannel(complex, cepstrum.values, 0);
    cepstrum.side = power.rows;
    return cepstrum;
}

/// Offset of a parabola's vertex through three samples from the middle one, within +-0.5.
double parabolicOffset(double before, double middle, double after) {
    const double curvature = before - 2.0 * middle + after;
    if (!(std::abs(curvature) > 1e-12))
        return 0.0;
    return std::clamp(0.5 * (before - after) / curvature, -0.5, 0.5);
}

struct RadiusBand {
    int inner;
    int outer;
    bool holds(double r) const { return r >= inner && r <= outer; }
};

struct PointDip {
    double x = 0, y = 0; // image coordinates, y down
    double depth = 0;
};

PointDip deepestPoint(const Cepstrum& c, RadiusBand band) {
    int bestX = 0, bestY = 0;
    float best = 0.0f;
    for (int y = -band.outer; y <= band.outer; ++y)
        for (int x = 0; x <= band.outer; ++x)
            if (band.holds(std::hypot(x, y)) && c.at(x, y) < best) {
                best = c.at(x, y);
                bestX = x;
                bestY = y;
            }
    PointDip dip;
    dip.depth = -best;
    dip.x = bestX + parabolicOffset(c.at(bestX - 1, bestY), best, c.at(bestX + 1, bestY));
    dip.y = bestY + parabolicOffset(c.at(bestX, bestY - 1), best, c.at(bestX, bestY + 1));
    return dip;
}

/// Mean and spread of the cepstrum on each ring of integer radius.
struct RingProfile {
    std::vector<double> mean, spread;
};

RingProfile ringProfile(const Cepstrum& c, int outer) {
    const auto rings = static_cast<size_t>(outer + 2);
    std::vector<double> sums(rings, 0.0), squares(rings, 0.0);
    std::vector<int> counts(rings, 0);
    for (int y = -outer - 1; y <= outer + 1; ++y)
        for (int x = -outer - 1; x <= outer + 1; ++x) {
            const auto r = static_cast<size_t>(std::lround(std::hypot(x, y)));
            if (r < rings) {
                const double v = c.at(x, y);
                sums[r] += v;
                squares[r] += v * v;
                ++counts[r];
            }
        }
    RingProfile profile{std::vector<double>(rings), std::vector<double>(rings)};
    for (size_t r = 0; r < rings; ++r) {
        profile.mean[r] = sums[r] / counts[r];
        profile.spread[r] =
            std::sqrt(std::max(squares[r] / counts[r] - profile.mean[r] * profile.mean[r], 1e-12));
    }
    return profile;
}

/// The first zeros of a disk's spectrum lie further apart than 1/d (the first at 1.22/d), so the
/// cepstrum's ring sits a little inside the diameter: measured at 0.95 d for diameters 8 to 40.
constexpr double kRingToDiameter = 1.0 / 0.95;

/// Prominences (in spreads of the cepstrum around the dip) mapped to confidence 0 and 1: sharp
/// pictures stay below about 2.5, blurs from 8 pixels up reach 4.5 and more.
constexpr double kNoDip = 2.5;
constexpr double kClearDip = 5.0;

/// Pure noise has points nearly as prominent in their ring as a short line's, since its whole
/// cepstrum is noise: up to about 4 spreads of the ring. A point is a line's when it stands out of
/// its ring further than that, or when it stands out of its ring and far out of the whole band,
/// where noise's deepest point lies about 5 spreads of the band below the mean and a line's
/// (synthetic, 10 to 70 pixels) 17 or more.
constexpr double kNoisyRingDip = 4.5;
constexpr double kClearRingDip = 7.0;
constexpr double kNoisyBandDip = 6.0;
constexpr double kClearBandDip = 12.0;

/// Spread of the cepstrum over the band.
double bandSpread(const Cepstrum& c, RadiusBand band) {
    double sum = 0, squares = 0;
    int count = 0;
    for (int y = -band.outer; y <= band.outer; ++y)
        for (int x = -band.outer; x <= band.outer; ++x)
            if (band.holds(std::hypot(x, y))) {
                const double v = c.at(x, y);
                sum += v;
                squares += v * v;
                ++count;
            }
    const double mean = sum / count;
    return std::sqrt(std::max(squares / count - mean * mean, 1e-12));
}

double ramp(double value, double from, double to) {
    return std::clamp((value - from) / (to - from), 0.0, 1.0);
}

struct RingDip {
    double radius = 0;
    double prominence = 0; // how far the ring lies below its neighbours, in their spread
};

RingDip deepestRing(const RingProfile& p, RadiusBand band) {
    const auto at = [&](int r) { return p.mean[static_cast<size_t>(r)]; };
    int best = band.inner;
    for (int r = band.inner; r <= band.outer; ++r)
        if (at(r) < at(best))
            best = r;
    const int step = std::max(2, best / 4);
    // The lower neighbour counts, so that the foot of the picture's own peak at the origin,
    // which only slopes down to the band's inner edge, is no dip.
    const double around =
        std::min(at(std::max(1, best - step)), at(std::min(band.outer + 1, best + step)));
    return {kRingToDiameter * (best + parabolicOffset(at(best - 1), at(best), at(best + 1))),
            (around - at(best)) / p.spread[static_cast<size_t>(best)]};
}

/// How far a point lies below the rest of its ring, in the ring's spread.
double pointProminence(const RingProfile& p, const PointDip& dip) {
    const auto r = static_cast<size_t>(std::lround(std::hypot(dip.x, dip.y)));
    return (p.mean[r] + dip.depth) / p.spread[r];
}

/// The slider angle of a line along (x, y) in image coordinates: MakePsfD's line runs at
/// 45 - angle degrees in y-up coordinates. A line has no head, so the angle is kept in (-90, 90].
double sliderAngle(double x, double y) {
    const double upDegrees = std::atan2(-y, x) * 180.0 / std::numbers::pi;
    double angle = std::fmod(45.0 - upDegrees, 180.0);
    if (angle <= -90.0)
        angle += 180.0;
    if (angle > 90.0)
        angle -= 180.0;
    return angle;
}

constexpr int kSmallestWindow = 64;

int windowSide(const cv::Mat& grey) {
    // Two windows across the shorter side at least; 512 resolves the zeros of the longest blurs.
    const int shorter = std::min(grey.rows, grey.cols);
    int side = 512;
    while (side > kSmallestWindow && side * 3 > shorter * 2)
        side /= 2;
    return side;
}

/// Reduced copies stop at this shorter side: below it there are too few windows to average.
constexpr int kSmallestReduced = 384;
/// What a reduced copy's answer must gain in confidence over a finer one, whose few windows make
/// it noisier.
constexpr double kCoarseMargin = 0.3;
/// Blurs longer than this share of the window have zeros too close together for it to part well.
constexpr double kLongBlurShare = 0.2;

BlurEstimate estimateAtFullSize(const cv::Mat& grey, KindWanted wanted) {
    const BlurEstimate none{BlurKind::OutOfFocus, 0.0, 0.0, 0.0};
    if (std::min(grey.rows, grey.cols) < kSmallestWindow)
        return none;
    const int side = windowSide(grey);
    const cv::Mat power = averagePowerSpectrum(grey, side);
    if (!(cv::sum(power)[0] > 0.0))
        return none; // a flat picture: nothing varies, so nothing was blurred
    const Cepstrum cepstrum = cepstrumOf(power);
    // The picture's own smooth spectrum fills the first few quefrencies, so blurs under 5 pixels
    // are not looked for; beyond 2/5 of the window the zeros are too close for the window to part.
    const RadiusBand band{5, side * 2 / 5};
    const PointDip point = deepestPoint(cepstrum, band);
    const RingProfile profile = ringProfile(cepstrum, band.outer);
    const RingDip ring = deepestRing(profile, band);
    const double pointZ = pointProminence(profile, point);
    // Each model's dip is measured against what surrounds it: a disk's ring stands out from the
    // neighbouring rings by many of their (small) spreads, while a line's pair barely moves its
    // ring's mean; a line's pair stands out from its own ring, a disk's ring point does not.
    const bool isDisk =
        wanted == KindWanted::OutOfFocus || (wanted == KindWanted::Any && ring.prominence > pointZ);
    if (isDisk) {
        return {BlurKind::OutOfFocus, ring.radius, 0.0, ramp(ring.prominence, kNoDip, kClearDip)};
    }
    const double bandZ = point.depth / bandSpread(cepstrum, band);
    const double confidence = std::max(
        ramp(pointZ, kNoisyRingDip, kClearRingDip),
        std::min(ramp(pointZ, kNoDip, kClearDip), ramp(bandZ, kNoisyBandDip, kClearBandDip)));
    return {BlurKind::Motion, std::hypot(point.x, point.y) / std::numbers::sqrt2,
            sliderAngle(point.x, point.y), confidence};
}

} // namespace

BlurEstimate estimateBlur(const cv::Mat& grey, KindWanted wanted) {
    if (grey.type() != CV_8UC1)
        throw std::invalid_argument("estimateBlur: the picture must be CV_8UC1");
    // A working picture is often an enlarged small photograph, whose blur is then too long for a
    // window to resolve; reduced copies bring such a blur back within reach. They answer only for
    // blurs longer than the full size resolves well, since on short ones they see the picture's
    // own structure or a harmonic, and only when clearly more confident.
    BlurEstimate best = estimateAtFullSize(grey, wanted);
    const double longBlur = windowSide(grey) * kLongBlurShare;
    cv::Mat reduced = grey;
    for (int factor = 2; std::min(reduced.rows, reduced.cols) >= 2 * kSmallestReduced;
         factor *= 2) {
        cv::resize(reduced, reduced, {}, 0.5, 0.5, cv::INTER_AREA);
        BlurEstimate coarse = estimateAtFullSize(reduced, wanted);
        coarse.length *= factor;
        const double extent =
            coarse.kind == BlurKind::Motion ? coarse.length * std::numbers::sqrt2 : coarse.length;
        if (extent > longBlur && coarse.confidence > best.confidence + kCoarseMargin)
            best = coarse;
    }
    return best;
}

} // namespace clarovi::engine
