#pragma once

#include "data.h"
#include "engine/blur.h"
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
    /// Set: search finely around this blur (of the setting's kind) instead of over the grid.
    std::optional<engine::BlurOnPhoto> around;
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
/// 512) restored for every blur of a fixed grid (41 disk diameters from 2 to 82; 42 streak angles
/// across the half turn x 23 lengths from 4 to 92), or, around an estimated blur, for every blur
/// near it (lengths from 0.7 to 1.3 times its own, half a pixel apart for a disk and a pixel for
/// a streak, angles within 6 degrees a degree apart), each with the controls' sharpness, each
/// restored in one quick pass and scored.
/// Runs on a worker thread on its own copy of what it reads.
class AutoSearch {
  public:
    /// restoration replaces the real restoration of the small copy when given.
    explicit AutoSearch(SearchInput input, Restoration restoration = {});
    AutoSearch(const AutoSearch&) = delete;
    AutoSearch& operator=(const AutoSearch&) = delete;

    engine::BlurKind kind() const { return m_input.setting.blur.kind; }

    /// The thumbnail's part of a restored plane: twice the central three quarters of each side.
    static cv::Mat thumbnailCrop(const cv::Mat& restored);
    /// The thumbnail of blur: the small copy restored, its central part brought back to the
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
    std::vector<Step> gridPlan() const;
    std::vector<Step> finePlan() const;
    std::vector<double> fineLengths() const;
    void restoreStep(const Step& step);
    engine::BlurOnPhoto blurOf(double length, double angle) const;

    SearchInput m_input;
    cv::Mat m_smallGrey; ///< the small copy's grey plane: the same for every step
    Restoration m_restore;
    QThreadPool m_pool; ///< restores the blurs of a step side by side, for the whole search
};

} // namespace clarovi::autosearch
