#include "search_plan.h"

#include "jobs/slider_ranges.h"

#include <algorithm>
#include <cmath>

namespace clarovi::autosearch {

namespace {

using engine::BlurKind;
using engine::BlurOnPhoto;

/// A guess at least this sure is searched around; a less sure one, like none, leaves the search
/// to cover every blur of its kind.
constexpr double kUsableGuess = 0.2;

/// Every blur: disk diameters from 2 in ratios of 1.1 (41 of them), streak lengths from 4 in
/// ratios of 1.15 (24) at 30 angles 6 degrees apart; all up to the slider's end.
constexpr double kShortestDisk = 2.0;
constexpr double kShortestStreak = 4.0;
constexpr Spacing kEveryDisk{1.1, 0};
constexpr Spacing kEveryStreak{1.15, 6.0};

/// Around a guess: a clear one within about a third of its length and 6 degrees; an unsure one
/// from half to twice its length and within 18 degrees.
struct Neighbourhood {
    Spacing spacing;
    int lengthSteps; ///< either way
    int angleSteps;  ///< either way
};
constexpr Neighbourhood kNearClearDisk{{1.03, 0}, 10, 0};
constexpr Neighbourhood kNearClearStreak{{1.04, 2.0}, 7, 3};
constexpr Neighbourhood kNearUnsureDisk{{1.05, 0}, 14, 0};
constexpr Neighbourhood kNearUnsureStreak{{1.08, 3.0}, 9, 6};

/// A refined pass goes around the two best blurs of the pass before, three steps either way at a
/// third of its spacing.
constexpr int kSeeds = 2;
constexpr int kRefinedSteps = 3;
constexpr double kRefinement = 3.0;

bool isStreak(const BlurOnPhoto& blur) {
    return blur.kind == BlurKind::Motion;
}

BlurOnPhoto withLengthAndAngle(BlurOnPhoto blur, double length, double angle) {
    blur.length = length;
    blur.angle = isStreak(blur) ? angle : 0.0;
    return blur.normalised();
}

double anglesApart(double a, double b) {
    return std::abs(std::remainder(a - b, 180.0));
}

bool sameBlur(const BlurOnPhoto& a, const BlurOnPhoto& b) {
    return std::abs(a.length / b.length - 1.0) < 1e-6 && anglesApart(a.angle, b.angle) < 1e-6;
}

/// The lengths centre * ratio^k for k from -steps to steps, within the length slider's range.
std::vector<double> lengthsAround(double centre, double ratio, int steps) {
    std::vector<double> lengths;
    for (int k = -steps; k <= steps; ++k) {
        const double length = centre * std::pow(ratio, k);
        if (jobs::kLengthRange.contains(length))
            lengths.push_back(length);
    }
    return lengths;
}

/// A disk's diameters one per step; a streak's lengths one angle per step.
void addRow(Pass& pass, std::vector<BlurOnPhoto> row) {
    if (row.empty())
        return;
    if (isStreak(row.front()))
        pass.steps.push_back(std::move(row));
    else
        for (const BlurOnPhoto& blur : row)
            pass.steps.push_back({blur});
}

void addSteps(Pass& pass, const BlurOnPhoto& model, const std::vector<double>& angles,
              const std::vector<double>& lengths) {
    for (const double angle : angles) {
        std::vector<BlurOnPhoto> row;
        for (const double length : lengths)
            row.push_back(withLengthAndAngle(model, length, angle));
        addRow(pass, std::move(row));
    }
}

std::vector<double> anglesAround(double centre, double step, int steps) {
    std::vector<double> angles;
    for (int k = -steps; k <= steps; ++k)
        angles.push_back(centre + k * step);
    return angles;
}

Pass everyBlur(const BlurOnPhoto& model) {
    const bool streak = isStreak(model);
    Pass pass{{}, streak ? kEveryStreak : kEveryDisk};
    std::vector<double> lengths;
    for (double l = streak ? kShortestStreak : kShortestDisk; l <= jobs::kLengthRange.maximum;
         l *= pass.spacing.lengthRatio)
        lengths.push_back(l);
    std::vector<double> angles{0.0};
    if (streak) {
        angles.clear();
        for (double a = 90.0; a > -90.0; a -= pass.spacing.angleStep)
            angles.insert(angles.begin(), a);
    }
    addSteps(pass, model, angles, lengths);
    return pass;
}

Pass around(const BlurOnPhoto& model, const BlurOnPhoto& centre, bool clear) {
    const bool streak = isStreak(model);
    const Neighbourhood& near = streak ? (clear ? kNearClearStreak : kNearUnsureStreak)
                                       : (clear ? kNearClearDisk : kNearUnsureDisk);
    Pass pass{{}, near.spacing};
    addSteps(pass, model, anglesAround(centre.angle, near.spacing.angleStep, near.angleSteps),
             lengthsAround(centre.length, near.spacing.lengthRatio, near.lengthSteps));
    return pass;
}

/// The best-scoring blurs tried, no two within a step of each other.
std::vector<BlurOnPhoto> seedsOf(const std::vector<AutoResult>& tried, const Spacing& spacing) {
    std::vector<const AutoResult*> byScore;
    for (const AutoResult& result : tried)
        byScore.push_back(&result);
    std::stable_sort(byScore.begin(), byScore.end(),
                     [](const AutoResult* a, const AutoResult* b) { return a->score > b->score; });
    std::vector<BlurOnPhoto> seeds;
    const double oneStep = std::log(spacing.lengthRatio) * 1.01;
    for (const AutoResult* result : byScore) {
        const bool near = std::any_of(seeds.begin(), seeds.end(), [&](const BlurOnPhoto& seed) {
            return std::abs(std::log(seed.length / result->blur.length)) < oneStep &&
                   anglesApart(seed.angle, result->blur.angle) <= spacing.angleStep * 1.01;
        });
        if (!near)
            seeds.push_back(result->blur);
        if (int(seeds.size()) == kSeeds)
            break;
    }
    return seeds;
}

} // namespace

int Pass::count() const {
    int blurs = 0;
    for (const auto& step : steps)
        blurs += int(step.size());
    return blurs;
}

bool usableGuess(const engine::BlurEstimate& guess) {
    return guess.blur.length > 0 && guess.confidence >= kUsableGuess;
}

Pass coarsePass(const BlurOnPhoto& model, const engine::BlurEstimate* guess) {
    if (!guess || guess->blur.kind != model.kind || !usableGuess(*guess))
        return everyBlur(model);
    return around(model, guess->blur, guess->confidence >= engine::kClearBlurConfidence);
}

Pass refinedPass(const std::vector<AutoResult>& tried, const Spacing& spacing) {
    const Spacing finer{std::pow(spacing.lengthRatio, 1.0 / kRefinement),
                        spacing.angleStep / kRefinement};
    Pass pass{{}, finer};
    std::vector<BlurOnPhoto> planned;
    for (const BlurOnPhoto& seed : seedsOf(tried, spacing)) {
        const int angleSteps = isStreak(seed) ? kRefinedSteps : 0;
        for (const double angle : anglesAround(seed.angle, finer.angleStep, angleSteps)) {
            std::vector<BlurOnPhoto> row;
            for (const double length :
                 lengthsAround(seed.length, finer.lengthRatio, kRefinedSteps)) {
                const BlurOnPhoto blur = withLengthAndAngle(seed, length, angle);
                const auto done = [&](const BlurOnPhoto& other) { return sameBlur(blur, other); };
                if (std::any_of(planned.begin(), planned.end(), done) ||
                    std::any_of(tried.begin(), tried.end(),
                                [&](const AutoResult& r) { return done(r.blur); }))
                    continue;
                planned.push_back(blur);
                row.push_back(blur);
            }
            addRow(pass, std::move(row));
        }
    }
    return pass;
}

int refinedCountAtMost(BlurKind kind) {
    const int side = 2 * kRefinedSteps + 1;
    return kSeeds * side * (kind == BlurKind::Motion ? side : 1);
}

} // namespace clarovi::autosearch
