#include "blur_estimate.h"

#include "texture.h"
#include "welch_power.h"
#include "zero_fit.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace clarovi::engine {

namespace {

// A blur multiplies the picture's spectrum by the PSF's transform, which is zero on known loci:
// for a line of length l along m where f.m = k / l (straight lines across the spectrum), for a
// disk of diameter d where |f| = j1k / (pi d) (rings; j1k the zeros of Bessel's J1). In the log
// of Welch's averaged power spectrum these loci are dips. A disk is scored on the spectrum's mean
// over rings, a line on its mean over chords perpendicular to the line, each by how far the
// predicted zeros lie below the side lobes around them (zero_fit.h). A wrong size, angle
// or kind puts its zeros on the true blur's side lobes and scores nothing; the picture's smooth
// spectrum, its edges and noise leave no regular dips. The score says how clear the zeros are,
// and so how far to trust the answer.

constexpr double kPi = std::numbers::pi;

/// Log of Welch's averaged power spectrum, and the band of radii worth reading (frequency bins).
struct LogSpectrum {
    cv::Mat values; // side x side, CV_32F, zero frequency at (0, 0), wrapped
    int side = 0;
    double innerRadius = 0;
    double bandRadius = 0;

    float at(int fx, int fy) const {
        return values.at<float>((fy + side) % side, (fx + side) % side);
    }
};

/// Welch's mean removal and Hann window spread the zero frequency over the first bins.
constexpr double kInnerRadius = 3.0;

/// The log of Welch's spectrum of a picture with windows of a given side; no values for a flat
/// picture.
LogSpectrum logSpectrumOf(const cv::Mat& grey, int side) {
    LogSpectrum s;
    s.side = side;
    s.innerRadius = kInnerRadius;
    const cv::Mat power = averagePowerSpectrum(grey, side);
    const double mean = cv::mean(power)[0];
    if (mean > 0.0) // a floor far below the picture's level keeps log finite where power is 0
        cv::log(power + cv::Scalar(1e-9 * mean), s.values);
    return s;
}

// ---------------------------------------------------------------------------------------------
// The band.

/// The spectrum of a blurred or enlarged picture falls to the flat floor of its noise before the
/// highest frequencies: the floor is read from the outer tenth of the radii, and the band ends
/// where the spectrum last stands this far (log power) above it.
constexpr double kAboveFloor = 1.0;

/// An enlarged photograph's spectrum goes on past its own band in the interpolation's images,
/// then falls off a cliff (bicubic: at about 1.5 times the band's edge). Within the images every
/// blur looks like a line of the enlargement factor along the rows and columns, so the band ends
/// at the cliff divided by this. The interpolation is separable: the cliff runs along the rows
/// and columns, falling at one radius along both axes alike while the diagonals, still within
/// the picture's own band, fall less, and alike. A disk's zero falls on the diagonals too; a
/// line's zeros cross the axes at different radii, or the diagonals unlike each other.
constexpr double kCliffToBand = 1.5;
/// Log power lost along both axes from r to 1.12 r, and how much more than along the diagonals.
constexpr double kCliffDrop = 1.5;
constexpr double kCliffOverDiagonals = 1.0;
/// Mean log-power difference between the courses of the two axes from r to 1.5 r, and between
/// those of the two diagonals from r / 2 to 2 r, below which they fall alike (measured on
/// enlarged photographs: about 0.4-0.8 and 0.1-0.35; a diagonal line's diagonals: 0.5 and more).
constexpr double kAxesApart = 1.0;
constexpr double kDiagonalsApart = 0.4;

/// Mean log power along a direction (dx, dy) through the origin, in a strip 5 bins wide, at
/// whole-bin radii.
std::vector<double> directionProfile(const LogSpectrum& s, int dx, int dy) {
    const int outer = s.side / 2;
    const double length = std::hypot(dx, dy);
    std::vector<double> profile(static_cast<size_t>(outer), 0.0);
    for (int r = 0; r < outer; ++r) {
        double sum = 0.0;
        for (int across = -2; across <= 2; ++across) {
            const auto x = static_cast<int>(std::lround((r * dx - across * dy) / length));
            const auto y = static_cast<int>(std::lround((r * dy + across * dx) / length));
            sum += s.at(x, y) + s.at(-x, -y);
        }
        profile[static_cast<size_t>(r)] = sum / 10.0;
    }
    return profile;
}

/// A profile's mean over three radii, against speckle.
double smoothedAt(const std::vector<double>& profile, int r) {
    const auto k = static_cast<size_t>(std::clamp(r, 1, static_cast<int>(profile.size()) - 2));
    return (profile[k - 1] + profile[k] + profile[k + 1]) / 3.0;
}

double dropAt(const std::vector<double>& profile, int r) {
    return smoothedAt(profile, r) - smoothedAt(profile, r + r * 12 / 100 + 1);
}

/// How far apart two profiles' courses run, on average, from `from` to `to`.
double apart(const std::vector<double>& a, const std::vector<double>& b, int from, int to) {
    const double a0 = smoothedAt(a, from), b0 = smoothedAt(b, from);
    double sum = 0.0;
    for (int at = from; at <= to; ++at)
        sum += std::abs((smoothedAt(a, at) - a0) - (smoothedAt(b, at) - b0));
    return sum / (to - from + 1);
}

/// The radius of an enlargement's cliff, or `to` when there is none before it.
double enlargementCliff(const LogSpectrum& s, int to) {
    const auto x = directionProfile(s, 1, 0), y = directionProfile(s, 0, 1);
    const auto rising = directionProfile(s, 1, 1), falling = directionProfile(s, 1, -1);
    for (int r = static_cast<int>(kInnerRadius) + 8; r < to; ++r) {
        const double axes = std::min(dropAt(x, r), dropAt(y, r));
        const double diagonals = std::max(dropAt(rising, r), dropAt(falling, r));
        if (axes >= kCliffDrop && axes - diagonals >= kCliffOverDiagonals &&
            apart(x, y, r, r + r / 2) < kAxesApart &&
            apart(rising, falling, r / 2, 2 * r) < kDiagonalsApart)
            return r;
    }
    return to;
}

double bandRadius(const LogSpectrum& s, const std::vector<double>& rings) {
    const auto outer = rings.size() - 1;
    std::vector<double> tail(rings.begin() + static_cast<long>(outer * 9 / 10), rings.end());
    const auto middle = tail.begin() + static_cast<long>(tail.size() / 2);
    std::nth_element(tail.begin(), middle, tail.end());
    size_t r = outer;
    while (r > kInnerRadius && rings[r] < *middle + kAboveFloor)
        --r;
    const double cliff = enlargementCliff(s, static_cast<int>(r));
    return cliff < static_cast<double>(r) ? cliff / kCliffToBand : static_cast<double>(r);
}

// ---------------------------------------------------------------------------------------------
// Searches.

struct Candidate {
    double size = 0;      // diameter, or the line's own length (pixels)
    double direction = 0; // line direction in image coordinates (y down), radians
    double score = 0;     // ZeroFit::score
};

/// Candidate sizes step by this ratio: finer than a dip's width for every size searched.
constexpr double kSizeStep = 1.015;
/// Around the pattern that fits best, the deepest zeros place it within this many steps (6 %).
constexpr int kPlacingSteps = 4;

/// Parabola vertex through three samples at -1, 0, 1, clamped to +-0.5.
double vertexOffset(double before, double middle, double after) {
    const double curvature = before - 2.0 * middle + after;
    if (!(curvature < 0.0))
        return 0.0;
    return std::clamp(0.5 * (before - after) / curvature, -0.5, 0.5);
}

/// The index of the best of values[from, to), to its parabola's vertex.
double peakOf(const std::vector<double>& values, size_t from, size_t to) {
    const auto best = static_cast<size_t>(std::max_element(values.begin() + static_cast<long>(from),
                                                           values.begin() + static_cast<long>(to)) -
                                          values.begin());
    if (best == 0 || best + 1 >= values.size())
        return static_cast<double>(best);
    return static_cast<double>(best) +
           vertexOffset(values[best - 1], values[best], values[best + 1]);
}

LogProfile ringProfile(const LogSpectrum& s) {
    LogProfile profile(s.bandRadius + 1.0);
    const int outer = static_cast<int>(std::ceil(s.bandRadius)) + 1;
    for (int fy = -outer; fy <= outer; ++fy)
        for (int fx = -outer; fx <= outer; ++fx)
            profile.add(std::hypot(fx, fy), s.at(fx, fy));
    profile.finish();
    return profile;
}

/// The diameter whose rings fit best, from the smallest with two rings in the band to the
/// largest whose first ring lies outside the spectrum's central bins: chosen by the capped score,
/// placed by the depth of its zeros.
Candidate bestDisk(const LogSpectrum& s) {
    const LogProfile profile = ringProfile(s);
    const double binsPerUnit = s.side / kPi; // divided by the diameter
    const auto fit = [&](double d) {
        return fitZeros(profile, kDiskZeros, binsPerUnit / d, s.innerRadius, s.bandRadius);
    };
    const double smallest = std::max(2.0, binsPerUnit * kDiskZeros.peak(2) / s.bandRadius);
    const double largest =
        binsPerUnit * (2.0 * kDiskZeros.zero(1) - kDiskZeros.peak(1)) / s.innerRadius;
    std::vector<double> scores, depths;
    for (double d = smallest; d <= largest; d *= kSizeStep) {
        const ZeroFit f = fit(d);
        scores.push_back(f.score);
        depths.push_back(f.depth);
    }
    if (scores.empty())
        return {};
    const auto best =
        static_cast<size_t>(std::max_element(scores.begin(), scores.end()) - scores.begin());
    const size_t from = best > kPlacingSteps ? best - kPlacingSteps : 0;
    const size_t to = std::min(scores.size(), best + kPlacingSteps + 1);
    const double d = smallest * std::pow(kSizeStep, peakOf(depths, from, to));
    return {d, 0.0, fit(d).score};
}

/// The spectrum less its ring means, over half the band (a real picture's spectrum is
/// symmetric): the picture's fall with frequency goes, a line's straight zeros stay.
struct Whitened {
    std::vector<float> fx, fy, value;
    double bandRadius = 0;
};

Whitened whitened(const LogSpectrum& s, const std::vector<double>& rings) {
    Whitened w;
    w.bandRadius = s.bandRadius;
    const int outer = static_cast<int>(s.bandRadius);
    for (int fy = 0; fy <= outer; ++fy)
        for (int fx = -outer; fx <= outer; ++fx) {
            const double r = std::hypot(fx, fy);
            if ((fy == 0 && fx < 0) || r < s.innerRadius || r > s.bandRadius)
                continue;
            w.fx.push_back(static_cast<float>(fx));
            w.fy.push_back(static_cast<float>(fy));
            w.value.push_back(
                static_cast<float>(s.at(fx, fy) - rings[static_cast<size_t>(std::lround(r))]));
        }
    return w;
}

/// Means of the whitened spectrum along the chords across the band perpendicular to direction.
LogProfile chordProfile(const Whitened& w, double direction) {
    LogProfile profile(w.bandRadius + 1.0);
    const auto c = static_cast<float>(std::cos(direction));
    const auto s = static_cast<float>(std::sin(direction));
    for (size_t i = 0; i < w.value.size(); ++i)
        profile.add(std::abs(w.fx[i] * c + w.fy[i] * s), w.value[i]);
    profile.finish();
    return profile;
}

ZeroFit lineFit(const LogProfile& chords, const LogSpectrum& s, double length) {
    return fitZeros(chords, kLineZeros, s.side / (kPi * length), s.innerRadius, s.bandRadius);
}

/// Lines from 5 to 60 pixels long (slider lengths 3.5 to 42) are searched in every direction, 2
/// degrees apart: for 60 pixels that puts a zero at most a quarter of its spacing off at 120
/// bins. Longer lines are found by the cepstrum, whose peak is sharp for them.
constexpr double kShortestLine = 5.0;
constexpr double kLongestScanned = 60.0;
constexpr double kScanStep = 2.0 * kPi / 180.0;

Candidate scanShortLines(const LogSpectrum& s, const Whitened& w) {
    const double firstPeak = kLineZeros.peak(1);
    const double shortest = std::max(kShortestLine, s.side * firstPeak / (kPi * s.bandRadius));
    const double longest =
        std::min(kLongestScanned, s.side * firstPeak / (kPi * 2.0 * s.innerRadius));
    const int directions = static_cast<int>(std::lround(kPi / kScanStep));
    std::vector<Candidate> best(static_cast<size_t>(directions));
    cv::parallel_for_(cv::Range(0, directions), [&](const cv::Range& range) {
        for (int i = range.start; i < range.end; ++i) {
            const double direction = i * kScanStep;
            const LogProfile chords = chordProfile(w, direction);
            Candidate& b = best[static_cast<size_t>(i)];
            b = {0.0, direction, -std::numeric_limits<double>::infinity()};
            for (double l = shortest; l <= longest; l *= kSizeStep) {
                const double score = lineFit(chords, s, l).score;
                if (score > b.score)
                    b = {l, direction, score};
            }
        }
    });
    return *std::max_element(best.begin(), best.end(), [](const Candidate& a, const Candidate& b) {
        return a.score < b.score;
    });
}

/// Places a line on a grid of directions and lengths around it by the depth of its zeros, then
/// to the parabola's vertex each way, and scores it there.
Candidate refineLine(const LogSpectrum& s, const Whitened& w, Candidate start, double radius,
                     int directionSteps, int lengthSteps) {
    const double step = radius / directionSteps;
    const int across = 2 * directionSteps + 1, along = 2 * lengthSteps + 1;
    std::vector<double> depths(static_cast<size_t>(across * along));
    cv::parallel_for_(cv::Range(0, across), [&](const cv::Range& range) {
        for (int i = range.start; i < range.end; ++i) {
            const LogProfile chords =
                chordProfile(w, start.direction + (i - directionSteps) * step);
            for (int j = 0; j < along; ++j)
                depths[static_cast<size_t>(i * along + j)] =
                    lineFit(chords, s, start.size * std::pow(kSizeStep, j - lengthSteps)).depth;
        }
    });
    const auto at = [&](int i, int j) { return depths[static_cast<size_t>(i * along + j)]; };
    const auto best = std::max_element(depths.begin(), depths.end()) - depths.begin();
    const int bi = static_cast<int>(best) / along, bj = static_cast<int>(best) % along;
    const double di =
        bi > 0 && bi + 1 < across ? vertexOffset(at(bi - 1, bj), at(bi, bj), at(bi + 1, bj)) : 0.0;
    const double dj =
        bj > 0 && bj + 1 < along ? vertexOffset(at(bi, bj - 1), at(bi, bj), at(bi, bj + 1)) : 0.0;
    Candidate placed{start.size * std::pow(kSizeStep, bj - lengthSteps + dj),
                     start.direction + (bi - directionSteps + di) * step, 0.0};
    placed.score = lineFit(chordProfile(w, placed.direction), s, placed.size).score;
    return placed;
}

/// A line's zeros repeat every 1 / l along its direction, so the Fourier transform of the log
/// spectrum (the cepstrum) has a sharp negative pair at +-l along the line: the deepest point
/// from inner (pixels) on is a line to refine.
Candidate cepstralLine(const LogSpectrum& s, double inner) {
    cv::Mat complex, cepstrum;
    cv::dft(s.values, complex, cv::DFT_COMPLEX_OUTPUT | cv::DFT_SCALE);
    cv::extractChannel(complex, cepstrum, 0);
    // Past 2/5 of the window the zeros are too close together for the window to part them.
    const int outer = s.side * 2 / 5;
    int bestX = 0, bestY = 0;
    float best = 0.0f;
    for (int y = -outer; y <= outer; ++y)
        for (int x = 0; x <= outer; ++x) {
            const double r = std::hypot(x, y);
            const float v = cepstrum.at<float>((y + s.side) % s.side, x);
            if (r >= inner && r <= outer && v < best) {
                best = v;
                bestX = x;
                bestY = y;
            }
        }
    return {std::hypot(bestX, bestY), std::atan2(bestY, bestX), 0.0};
}

/// The cepstrum's point, at integer coordinates, gives a line's direction within about 30 / l
/// degrees; the refinement looks twice as far, and no less than 0.6 degrees.
double cepstralDirectionRadius(double length) {
    return std::max(0.6, 60.0 / std::max(length, 1.0)) * kPi / 180.0;
}

/// The line the cepstrum points to, refined; its dips repeat at multiples of the line's length,
/// so the half is tried as well.
Candidate lineFromCepstrum(const LogSpectrum& s, const Whitened& w, double inner) {
    const Candidate point = cepstralLine(s, inner);
    Candidate best;
    for (const double share : {1.0, 0.5}) {
        Candidate start = point;
        start.size *= share;
        const Candidate line = refineLine(s, w, start, cepstralDirectionRadius(start.size), 6, 3);
        if (line.score > best.score)
            best = line;
    }
    return best;
}

// ---------------------------------------------------------------------------------------------
// Scales and answer.

constexpr int kSmallestWindow = 64;

int windowSide(const cv::Mat& grey) {
    // 512 resolves the zeros of the longest blurs; a reduced copy may hold only one row of such
    // windows, the many zeros of a long blur making up for their few number.
    const int shorter = std::min(grey.rows, grey.cols);
    int side = 512;
    while (side > kSmallestWindow && side > shorter)
        side /= 2;
    return side;
}

struct Candidates {
    Candidate disk, line;
};

/// The disk and line that fit a picture best at one scale, in its own pixels; score 0 for a
/// picture too small or flat. Short lines are scanned for at full size only, where their zeros
/// lie furthest within the band; in a reduced copy the cepstrum looks for lines from 10 pixels
/// on, which the narrow band of an enlarged photograph can hide at full size.
Candidates candidatesAt(const cv::Mat& grey, bool wantsDisk, bool wantsLine, bool fullSize) {
    if (std::min(grey.rows, grey.cols) < kSmallestWindow)
        return {};
    LogSpectrum s = logSpectrumOf(grey, windowSide(grey));
    if (s.values.empty())
        return {}; // a flat picture: nothing varies, so nothing was blurred
    const std::vector<double> rings = ringMeans(s.values);
    s.bandRadius = bandRadius(s, rings);

    Candidates found;
    if (wantsDisk)
        found.disk = bestDisk(s);
    if (wantsLine) {
        const Whitened w = whitened(s, rings);
        found.line = lineFromCepstrum(s, w, fullSize ? 0.8 * kLongestScanned : 2.0 * kShortestLine);
        if (fullSize) {
            const Candidate shortLine = refineLine(s, w, scanShortLines(s, w), kScanStep, 8, 3);
            if (shortLine.score > found.line.score)
                found.line = shortLine;
        }
    }
    return found;
}

/// A working picture is often an enlarged small photograph, whose blur is then too long for the
/// window to part its zeros: halved copies bring it back within reach, down to this shorter side
/// (a 3:2 picture's quarter, 512 x 341, still holds three windows of 256).
constexpr int kSmallestReduced = 300;

/// Scores mapped to confidence 0 and 1, so that kClearBlurConfidence falls halfway. A line needs
/// more: its search tries far more patterns (every direction), and a picture's straight
/// structures, or the rows and columns of an enlargement, can imitate a line's zeros. Measured
/// over a table of blurred pictures: sharp, flat and noise pictures score at most about 1.2 as
/// a line and 0.6 as a disk; wrong answers up to about 8 as a line and 2.5 as a disk.
struct Calibration {
    double none, clear;
};
constexpr Calibration kDiskCalibration{2.0, 7.0};
constexpr Calibration kLineCalibration{4.0, 14.0};

double confidenceOf(double score, Calibration c) {
    return std::clamp((score - c.none) / (c.clear - c.none), 0.0, 1.0);
}

BlurEstimate answer(const Candidate& disk, const Candidate& line, KindWanted wanted) {
    const double diskConfidence = confidenceOf(disk.score, kDiskCalibration);
    const double lineConfidence = confidenceOf(line.score, kLineCalibration);
    // When both are equally (un)clear, the score relative to its calibration decides.
    const bool isDisk =
        wanted == KindWanted::OutOfFocus ||
        (wanted == KindWanted::Any &&
         (diskConfidence > lineConfidence ||
          (diskConfidence == lineConfidence &&
           disk.score / kDiskCalibration.clear >= line.score / kLineCalibration.clear)));
    if (isDisk)
        return {{BlurKind::OutOfFocus, disk.size, 0.0, 1.0}, diskConfidence, {}};
    if (!(line.size > 0.0))
        return {{BlurKind::Motion, 0.0, 0.0, 1.0}, 0.0, {}};
    // The direction is in picture coordinates, y down: counter-clockwise is its negative.
    const BlurOnPhoto streak{BlurKind::Motion, line.size, -line.direction * 180.0 / kPi, 1.0};
    return {streak.normalised(), lineConfidence, {}};
}

/// The part of the picture to read: the region asked for, grown around its centre to
/// kLeastRegion where the picture allows, or the whole picture.
cv::Rect readRegion(cv::Size picture, cv::Rect asked) {
    const cv::Rect whole({0, 0}, picture);
    asked &= whole;
    if (asked.empty())
        return whole;
    const int width = std::min(picture.width, std::max(asked.width, kLeastRegion));
    const int height = std::min(picture.height, std::max(asked.height, kLeastRegion));
    const int x = std::clamp(asked.x + asked.width / 2 - width / 2, 0, picture.width - width);
    const int y = std::clamp(asked.y + asked.height / 2 - height / 2, 0, picture.height - height);
    return {x, y, width, height};
}

BlurEstimate estimateIn(const cv::Mat& grey, KindWanted wanted) {
    const bool wantsDisk = wanted != KindWanted::Motion;
    const bool wantsLine = wanted != KindWanted::OutOfFocus;
    Candidate disk, line;
    cv::Mat reduced = grey;
    for (int factor = 1;; factor *= 2) {
        const Candidates found = candidatesAt(reduced, wantsDisk, wantsLine, factor == 1);
        if (found.disk.score > disk.score)
            disk = {found.disk.size * factor, 0.0, found.disk.score};
        if (found.line.score > line.score)
            line = {found.line.size * factor, found.line.direction, found.line.score};
        if (std::min(reduced.rows, reduced.cols) < 2 * kSmallestReduced)
            break;
        cv::resize(reduced, reduced, {}, 0.5, 0.5, cv::INTER_AREA);
    }
    return answer(disk, line, wanted);
}

} // namespace

/// A mostly flat photograph (a sky, a wall, a page's margins around a little detail) is read
/// where its detail is, lest the spectrum of its flat parts, which is the noise's, bury the
/// blur's zeros: the half of each side that holds the most detail, when that holds at least this
/// many times the picture's mean (at most 4, when all of it lies there).
constexpr double kFlatPictureContrast = 2.5;

cv::Rect ownRegion(const cv::Mat& grey) {
    const cv::Rect whole({0, 0}, grey.size());
    const TextureMap texture(grey);
    const cv::Rect detailed = texture.mostDetailed({grey.cols / 2, grey.rows / 2}, whole);
    if (texture.energy(detailed) < kFlatPictureContrast * texture.energy(whole))
        return whole;
    return detailed;
}

BlurEstimate estimateBlur(const cv::Mat& grey, const EstimateRequest& request) {
    if (grey.type() != CV_8UC1)
        throw std::invalid_argument("estimateBlur: the picture must be CV_8UC1");
    const cv::Rect region =
        request.region.empty() ? ownRegion(grey) : readRegion(grey.size(), request.region);
    BlurEstimate estimate = estimateIn(grey(region), request.wanted);
    estimate.region = region;
    return estimate;
}

} // namespace clarovi::engine
