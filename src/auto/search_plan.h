#pragma once

#include "data.h"
#include "engine/blur.h"
#include "engine/blur_estimate.h"

#include <vector>

namespace clarovi::autosearch {

/// How far apart the blurs of a pass lie: lengths by a ratio, a streak's angles by a step.
struct Spacing {
    double lengthRatio = 1;
    double angleStep = 0; ///< degrees; 0 for a disk
};

/// The blurs one pass of the search restores, in steps: each step is restored side by side and
/// reported once (a disk's diameter, or one angle's lengths of a streak).
struct Pass {
    std::vector<std::vector<engine::BlurOnPhoto>> steps;
    Spacing spacing;

    int count() const;
};

/// Whether a guess is sure enough to search around (and, when the search follows the guess's
/// kind, to decide it); a less sure one counts as none.
bool usableGuess(const engine::BlurEstimate& guess);

/// The search's coarse pass. Without a guess, or one too unsure to go by, every blur of the
/// kind from the shortest to the longest the length slider reaches, lengths in even ratios, a
/// streak's angles across the half turn. Around a guess, the blurs near it: the surer the guess,
/// the nearer and closer together. model gives the kind and a streak's width.
Pass coarsePass(const engine::BlurOnPhoto& model, const engine::BlurEstimate* guess);

/// A finer pass around the best-scoring blurs of the pass before (`tried`, of `spacing`): three
/// times closer together, reaching as far as one step of the pass before on either side, so
/// that the best lies between two of its blurs. Leaves out the blurs already tried.
Pass refinedPass(const std::vector<AutoResult>& tried, const Spacing& spacing);

/// How many blurs a refined pass tries at most: what the search's time left counts on.
int refinedCountAtMost(engine::BlurKind kind);

/// The refined passes after the coarse one: each about three times finer, so that a streak's
/// angle ends within a degree of the best and its length within a few percent.
inline constexpr int kRefinements = 2;

} // namespace clarovi::autosearch
