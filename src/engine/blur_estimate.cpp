#include "blur_estimate.h"

#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>
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

/// Welch's average of the windowed power spectra over half-overlapping windows: one window's
/// periodogram is too noisy for its zeros to show, and the average keeps them where they are.
cv::Mat averagePowerSpectrum(const cv::Mat& grey, int side) {
    cv::Mat hann;
    cv::createHanningWindow(hann, {side, side}, CV_32F);
    const int stride = side / 2;
    const int across = (grey.cols - side) / stride + 1;
    const int down = (grey.rows - side) / stride + 1;
    std::vector<cv::Mat> rowSums(static_cast<size_t>(down));
    cv::parallel_for_(cv::Range(0, down), [&](const cv::Range& rows) {
        cv::Mat patch, spectrum;
        for (int row = rows.start; row < rows.end; ++row) {
            cv::Mat sum(side, side, CV_32F, cv::Scalar(0));
            for (int col = 0; col < across; ++col) {
                grey(cv::Rect(col * stride, row * stride, side, side)).convertTo(patch, CV_32F);
                // The mean is removed so that the window's own transform does not leak around DC.
                patch -= cv::mean(patch)[0];
                patch = patch.mul(hann);
                cv::dft(patch, spectrum, cv::DFT_COMPLEX_OUTPUT);
                for (int y = 0; y < side; ++y) {
                    const auto* c = spectrum.ptr<cv::Vec2f>(y);
                    auto* s = sum.ptr<float>(y);
                    for (int x = 0; x < side; ++x)
                        s[x] += c[x][0] * c[x][0] + c[x][1] * c[x][1];
                }
            }
            rowSums[static_cast<size_t>(row)] = sum;
        }
    });
    cv::Mat total = rowSums.front().clone();
    for (size_t i = 1; i < rowSums.size(); ++i)
        total += rowSums[i];
    return total;
}

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

struct RingDip {
    double radius = 0;
    double depth = 0;
};

RingDip deepestRing(const Cepstrum& c, RadiusBand band) {
    std::vector<double> sums(static_cast<size_t>(band.outer + 2), 0.0);
    std::vector<int> counts(sums.size(), 0);
    for (int y = -band.outer - 1; y <= band.outer + 1; ++y)
        for (int x = -band.outer - 1; x <= band.outer + 1; ++x) {
            const auto r = static_cast<size_t>(std::lround(std::hypot(x, y)));
            if (r < sums.size()) {
                sums[r] += c.at(x, y);
                ++counts[r];
            }
        }
    const auto mean = [&](int r) { return sums[static_cast<size_t>(r)] / counts[static_cast<size_t>(r)]; };
    int best = band.inner;
    for (int r = band.inner; r <= band.outer; ++r)
        if (mean(r) < mean(best))
            best = r;
    return {best + parabolicOffset(mean(best - 1), mean(best), mean(best + 1)), -mean(best)};
}

double spreadOf(const Cepstrum& c, RadiusBand band) {
    double sum = 0, sumSquares = 0;
    int count = 0;
    for (int y = -band.outer; y <= band.outer; ++y)
        for (int x = -band.outer; x <= band.outer; ++x)
            if (band.holds(std::hypot(x, y))) {
                sum += c.at(x, y);
                sumSquares += double(c.at(x, y)) * c.at(x, y);
                ++count;
            }
    const double mean = sum / count;
    return std::sqrt(std::max(sumSquares / count - mean * mean, 1e-12));
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

int windowSide(const cv::Mat& grey) {
    // Three windows across the shorter side at least; 512 resolves the longest blurs' zeros.
    const int shorter = std::min(grey.rows, grey.cols);
    int side = 512;
    while (side > 64 && side * 3 > shorter * 2)
        side /= 2;
    return side;
}

} // namespace

BlurEstimate estimateBlur(const cv::Mat& grey, KindWanted wanted) {
    const int side = windowSide(grey);
    const Cepstrum cepstrum = cepstrumOf(averagePowerSpectrum(grey, side));
    const RadiusBand band{5, side * 2 / 5};
    const PointDip point = deepestPoint(cepstrum, band);
    const RingDip ring = deepestRing(cepstrum, band);
    const double spread = spreadOf(cepstrum, band);
    (void)spread;
    const bool isDisk = wanted == KindWanted::OutOfFocus ||
                        (wanted == KindWanted::Any && ring.depth > 0.4 * point.depth);
    if (isDisk)
        return {BlurKind::OutOfFocus, ring.radius, 0.0, ring.depth / spread};
    return {BlurKind::Motion, std::hypot(point.x, point.y) / std::numbers::sqrt2,
            sliderAngle(point.x, point.y), point.depth / spread};
}

} // namespace clarovi::engine
