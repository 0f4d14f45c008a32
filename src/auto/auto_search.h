#pragma once

#include "data.h"
#include "jobs/blur_geometry.h"
#include "jobs/controller_state.h"

#include <QImage>
#include <QThreadPool>
#include <opencv2/core.hpp>

#include <functional>
#include <optional>
#include <vector>

namespace clarovi::autosearch {

enum class SearchKind { OutOfFocus, Motion };

/// The sharpness every thumbnail is restored with, whatever the sharpness slider says.
inline constexpr double kSearchSharpness = 0.0035;

/// The part of the controller state that the window's controls stand for and that a search
/// changes: what a completed search leaves there, and what keeping the current settings puts back.
struct ShownSettings {
    QImage activeImage;
    bool autoSilent = false;
    double currentAngle = 0;
    double currentWidth = 0;

    static ShownSettings of(const jobs::ControllerState& state);
    void applyTo(jobs::ControllerState& state) const;
};

/// What the search reads of the controller state, copied on the main thread when a run starts.
struct SearchInput {
    QImage previewSourceImage;
    bool keepAspect = true;
    bool motionBlur = false;
    int workingSide = 2048;
    double displayWidth = 0;
    double displayHeight = 0;
    int angleCount = 42; ///< angles of a motion search
    ShownSettings shown;
    jobs::AutoCounters counters;
    jobs::RestorationScale mainView; ///< what the main view's length slider undoes
    /// Set: search finely around this setting of the sliders instead of over the fixed grid.
    std::optional<jobs::SliderSetting> around;
};

/// The search's copy of the state it reads; around as SearchInput::around.
SearchInput snapshotOf(const jobs::ControllerState& state,
                       std::optional<jobs::SliderSetting> around = {});

/// Sent to the main thread after every step: everything it shows travels with it.
struct ProgressUpdate {
    int step = 0;         ///< the length just restored (out of focus) or the angle index
    bool last = false;    ///< the search's last step
    double remaining = 0; ///< seconds
    float fraction = 0;   ///< of the search done, 0 to 1
    SearchKind kind = SearchKind::OutOfFocus;
};

/// The thumbnail of one setting: the PSF length in working pixels and the angle in degrees.
/// Called from several threads at once.
using Restoration = std::function<QImage(double length, double angle)>;

/// The restorations of the auto mode: one small copy of the picture restored for every setting
/// of a fixed grid (disk diameters 1 to 41, or 90 after a motion search; 42 angles x 23 lengths
/// for motion blur), or, around an estimated blur, for every setting near it (lengths from 0.7 to
/// 1.3 times its own, angles within 6 degrees), each with a fixed sharpness of 0.0035 at
/// 512 x 512, and each scored. Runs on a worker thread on its own copy of the state; what it
/// leaves behind goes back to the controller state on the main thread when the run completes.
class AutoSearch {
  public:
    /// restoration replaces the deconvolution of the small copy when given.
    explicit AutoSearch(SearchInput input, Restoration restoration = {});
    AutoSearch(const AutoSearch&) = delete;
    AutoSearch& operator=(const AutoSearch&) = delete;

    SearchKind kind() const;

    /// One auto restoration for the current counters.length and angleIndex, counters and shown
    /// settings updated as a step of the search updates them.
    QImage ComputateAuto();

    /// Grows src by a replicated border of trunc(multiplier * rows / 18.32) pixels, the
    /// multiplier 3.599901585052413 plus 1 for every 25 of (counters.length + 2); pad receives
    /// the border that remains once the padded plane is scaled back to src's width.
    cv::Mat addAutoPad(const cv::Mat& src, double unused, int* pad) const;

    /// The thumbnail's part of a restored square plane: the trim window of the padding, then
    /// twice the central three quarters of each side.
    static cv::Mat thumbnailCrop(const cv::Mat& restored, int pad);

    /// The length slider's value, to a tenth, whose restoration of the main view undoes the blur
    /// that the thumbnail of this length undoes.
    double sliderLengthOf(double searchedLength) const;

    using Post = std::function<void(const ProgressUpdate&)>;
    /// Runs the whole search, calling post after every step. Stops after the step under way once
    /// cancelled returns true. Returns false when cancelled. Throws what a restoration throws.
    bool run(const Post& post, const std::function<bool()>& cancelled = {});

    std::vector<AutoResult> results;
    jobs::AutoCounters counters;
    ShownSettings shown;

  private:
    /// One thumbnail to make: the length its PSF is drawn with and the slider value it stands for.
    struct Setting {
        double searched;
        double label;
    };
    /// What one progress update covers: lengths restored side by side at one angle.
    struct Step {
        int reported; ///< ProgressUpdate::step
        int angleIndex;
        double angle;
        std::vector<Setting> settings;
    };
    std::vector<Step> gridPlan() const;
    std::vector<Step> plan() const;
    std::vector<Setting> fineLengths() const;
    void restoreStep(const Step& step);
    void beginStep(double label);
    QImage thumbnailFor(double length, double angle) const;
    static cv::Mat autoPadded(const cv::Mat& src, double length, int* pad);
    double thumbnailBlurLength(double searchedLength) const;
    double searchedLengthFor(double blurLength) const;
    double angleOf(int angleIndex) const;

    SearchInput m_input;
    QImage m_smallCopy; ///< previewSourceImage at 512 x 512: the same for every step
    cv::Mat m_smallGrey;
    Restoration m_restore;
    QThreadPool m_pool; ///< restores the lengths of a step side by side, for the whole search
};

} // namespace clarovi::autosearch
