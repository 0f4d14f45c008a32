#pragma once

#include "data.h"
#include "engine/blur.h"
#include "engine/blur_estimate.h"
#include "engine/plane_restorer.h"
#include "jobs/setting.h"

#include <QImage>
#include <QThreadPool>
#include <opencv2/core.hpp>

#include <functional>
#include <optional>
#include <vector>

namespace clarovi::autosearch {

/// The longer side of the copy of the photograph the thumbnails are restored from.
inline constexpr int kThumbnailSide = 512;

/// What the search reads, copied on the main thread when a run starts.
struct SearchInput {
    QImage previewSourceImage; ///< the preview copy, the photograph at its own aspect
    /// The controls' setting: the kind of blur searched, a streak's width and the sharpness the
    /// thumbnails start from.
    jobs::Setting setting;
    /// The guess to search around, of the setting's kind. Unset: the search estimates the blur
    /// in analysisGrey first when it has one.
    std::optional<engine::BlurEstimate> around;
    /// The photograph's grey at the working size (ControllerState::analysisGrey), shared.
    cv::Mat analysisGrey;
    /// The part of the photograph to look at, in working pixels; empty for all of it.
    cv::Rect region;
    double photoScale = 1.0; ///< as ControllerState::photoScale
    /// Search in the kind of the blur the estimate finds rather than the setting's.
    bool kindOfGuess = false;
};

/// Sent to the main thread after every step: everything it shows travels with it.
struct ProgressUpdate {
    int step = 0;         ///< steps done
    bool last = false;    ///< the search's last step
    double remaining = 0; ///< seconds
    float fraction = 0;   ///< of the search done, 0 to 1
    engine::BlurKind kind = engine::BlurKind::OutOfFocus;
};

/// The thumbnail of one blur. Called from several threads at once.
using Restoration = std::function<QImage(const engine::BlurOnPhoto& blur)>;

/// The restorations of the auto mode: a small copy of the photograph (its own aspect, longer side
/// 512) restored in one quick pass for blurs near the best guess of the photograph's blur (or
/// every blur of the kind, when there is no guess to go by: search_plan.h), then for blurs ever
/// closer around the best-scoring ones, each scored on its most detailed part.
/// Runs on a worker thread on its own copy of what it reads.
class AutoSearch {
  public:
    /// restoration replaces the real restoration of the small copy when given.
    explicit AutoSearch(SearchInput input, Restoration restoration = {});
    AutoSearch(const AutoSearch&) = delete;
    AutoSearch& operator=(const AutoSearch&) = delete;

    /// The kind searched: the setting's, or the guess's once the search has estimated it.
    engine::BlurKind kind() const { return m_kind; }
    /// The guess the search went around, once it has started; unset for none (or one too unsure
    /// to go by).
    const std::optional<engine::BlurEstimate>& guess() const { return m_input.around; }

    /// The part of the small copy a thumbnail shows, in its pixels: the region's, or the most
    /// detailed part away from the frame, about 9/16 of each side (at least a quarter around a
    /// small region), at the copy's aspect.
    cv::Rect thumbnailPart() const { return m_part; }
    /// The thumbnail of blur: the small copy restored, its thumbnail part brought back to the
    /// copy's size. Reads only what stays fixed during a search: several may run at once.
    QImage thumbnail(const engine::BlurOnPhoto& blur) const;

    using Post = std::function<void(const ProgressUpdate&)>;
    /// Runs the whole search, calling post after every step. Stops after the step under way once
    /// cancelled returns true. Returns false when cancelled. Throws what a restoration throws.
    bool run(const Post& post, const std::function<bool()>& cancelled = {});

    std::vector<AutoResult> results;

  private:
    /// What one progress update covers: blurs restored side by side.
    using Step = std::vector<engine::BlurOnPhoto>;
    void estimateGuess();
    void restoreStep(const Step& step);

    SearchInput m_input;
    engine::BlurKind m_kind;
    cv::Mat m_smallGrey; ///< the small copy's grey plane: the same for every step
    cv::Rect m_part;
    Restoration m_restore;
    QThreadPool m_pool; ///< restores the blurs of a step side by side, for the whole search
};

} // namespace clarovi::autosearch
