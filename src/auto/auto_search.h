#pragma once

#include "data.h"
#include "jobs/controller_state.h"

#include <QImage>
#include <opencv2/core.hpp>

#include <atomic>
#include <functional>
#include <vector>

namespace clarovi::autosearch {

enum class SearchKind { OutOfFocus, Motion };

/// What the search reads of the controller state, copied on the main thread when a run starts.
struct SearchInput {
    QImage previewSourceImage;
    bool keepAspect = true;
    bool motionBlur = false;
    int workingSide = 2048;
    double displayWidth = 0;
    double displayHeight = 0;
    double currentAngle = 0;
    double currentWidth = 0;
    int autoLengthEnd = 42;
    int autoAngleIndex = 0;
};

/// The search's copy of the state it reads.
SearchInput snapshotOf(const jobs::ControllerState& state);

/// Sent to the main thread after every step: everything it shows travels with it.
struct ProgressUpdate {
    int step = 0;         ///< the length just restored (out of focus) or the angle index
    bool last = false;    ///< the search's last step
    double remaining = 0; ///< seconds
    float fraction = 0;   ///< of the search done, 0 to 1
    SearchKind kind = SearchKind::OutOfFocus;
};

/// The restorations of the auto mode: one small copy of the picture restored for every setting
/// of a fixed grid (disk diameters 1 to 41, or 90 after a motion search; 42 angles x 23 lengths
/// for motion blur), each with a fixed sharpness of 0.0035 at 512 x 512. Runs on a worker
/// thread on its own copy of the state; the counters it leaves behind go back to the controller
/// state on the main thread when the run completes.
class AutoSearch {
  public:
    explicit AutoSearch(SearchInput input);

    /// One auto restoration for the current autoLength, autoAngleIndex and mode.
    QImage ComputateAuto();

    /// Grows src by a replicated border of trunc(multiplier * rows / 18.32) pixels, the
    /// multiplier 3.599901585052413 plus 1 for every 25 of (autoLength + 2); pad receives the
    /// border that remains once the padded plane is scaled back to src's width.
    cv::Mat addAutoPad(const cv::Mat& src, double unused, int* pad) const;

    /// The thumbnail's part of a restored plane: the border cut off (the window one row lower
    /// than it is to the right), then twice the central three quarters of each side.
    static cv::Mat thumbnailCrop(const cv::Mat& restored, int pad);

    using Step = std::function<QImage()>;
    /// Replaces the restoration of one step (what ComputateAuto does after setting the counters
    /// and the label), for tests of the grid and the progress.
    void setStep(Step step) {
        m_step = std::move(step);
        m_customStep = true;
    }

    /// Runs the whole grid, calling post after every step. Stops after the step under way once
    /// cancel is set. Returns false when cancelled.
    bool run(const std::function<void(const ProgressUpdate&)>& post,
             const std::atomic<bool>& cancel);

    std::vector<AutoResult> results;

    // The counters and the state the search leaves behind.
    int autoLength = 0;
    int autoLengthEnd = 42;
    int autoAngleIndex = 0;
    int autoAngleCount = 42;
    int autoLabelLength = 0;
    double autoSize = 0;
    float autoProgress = 0;
    double currentAngle = 0;
    double currentWidth = 0;
    bool autoSilent = false;
    QImage activeImage;

  private:
    bool runOutOfFocus(const std::function<void(const ProgressUpdate&)>& post,
                       const std::atomic<bool>& cancel);
    bool runMotion(const std::function<void(const ProgressUpdate&)>& post,
                   const std::atomic<bool>& cancel);
    void beginStep();
    void record(const QImage& thumbnail);
    void appendStep();
    bool appendAngle(const std::vector<int>& lengths, const std::atomic<bool>& cancel);
    QImage thumbnailFor(int length, int angleIndex) const;
    static cv::Mat autoPadded(const cv::Mat& src, double unused, int* pad, int length);
    static int labelFor(int length);
    double angleOf(int angleIndex) const;

    SearchInput m_input;
    QImage m_smallCopy; ///< previewSourceImage at 512 x 512: the same for every step
    cv::Mat m_smallGrey;
    Step m_step;
    bool m_customStep = false;
};

} // namespace clarovi::autosearch
