#pragma once

#include "controller_state.h"
#include "engine/blur_estimate.h"
#include "window_port.h"

#include <QFutureWatcher>
#include <QObject>
#include <opencv2/core.hpp>

namespace clarovi::jobs {

/// The spectrum view of a grey picture: its averaged log power spectrum cut to the frequencies
/// that hold signal. An empty picture when the picture is too small to average.
ShownSpectrum pictureSpectrum(const cv::Mat& grey);

/// An estimated blur brought to the sliders.
struct EstimatedSetting {
    engine::BlurEstimate estimate;
    engine::BlurOnPhoto blur; ///< the estimate within the sliders' ranges
    bool clear = false;       ///< confident enough to move the sliders to it
    bool beyondRange = false; ///< longer than the length slider reaches: blur stops at its end
};
EstimatedSetting settingOf(const engine::BlurEstimate& estimate);

/// The estimate of the opened picture's blur, one at a time, off the main thread; its outcome is
/// reported on the thread that started it.
class BlurEstimation : public QObject {
    Q_OBJECT
  public:
    BlurEstimation();
    /// Waits for an estimate under way.
    ~BlurEstimation() override;

    /// Starts estimating the blur of the state's working copy, of the kind wanted, in its region
    /// if it has one. Does nothing and returns false while an estimate runs or without a picture.
    bool start(const ControllerState& state, engine::KindWanted wanted);
    /// From start until its outcome has been reported.
    bool running() const { return m_running; }

  signals:
    void finished(const clarovi::engine::BlurEstimate& estimate);
    void failed(const QString& why);

  private:
    struct Outcome {
        engine::BlurEstimate estimate{};
        QString failure;
    };
    QFutureWatcher<Outcome> m_watcher;
    bool m_running = false;
};

} // namespace clarovi::jobs
