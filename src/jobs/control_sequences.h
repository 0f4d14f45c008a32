#pragma once

#include "blur_estimation.h"
#include "controller_state.h"
#include "restoration_jobs.h"
#include "setting.h"
#include "window_port.h"

#include <QObject>
#include <QTimer>

namespace clarovi::jobs {

/// Seconds from a slider release to its restoration.
inline constexpr double kReleaseDelay = 1.0;

/// What each control of the main window starts: opening a picture and its first restoration, a
/// drag step, a release, a typed value, the mode switch, the colour restoration, a pick from the
/// gallery and an estimate. Each event takes the setting from the window once (WindowPort) and
/// hands it to the jobs it starts, so that the window, the command line and the tests run the
/// same sequences.
class ControlSequences : public QObject {
    Q_OBJECT
  public:
    ControlSequences(ControllerState& state, WindowPort& window, RestorationJobs& jobs);

    /// The PSF view of the setting the window starts with.
    void setUpDefaults();

    /// Makes photo the current picture: shown, its first computations due.
    void pickImg(const QImage& photo);
    /// The first computations of a fresh picture: the spectrum and the grey preview. Does nothing
    /// once they have run.
    void showFirstRestoration();

    /// A slider moved while held (ended false: the live preview follows) or was let go (ended
    /// true: the full preview follows once the sliders have been left alone for kReleaseDelay).
    void LengthNew(bool ended) { sliderEvent(ended); }
    void angleNew(bool ended) { sliderEvent(ended); }
    void widthSlider(bool ended) { sliderEvent(ended); }
    void muSliderChange(bool ended = true) { sliderEvent(ended); }

    /// The label and the PSF view of the controls' setting, without restoring: a typed or keyed
    /// change waiting to settle.
    void previewSetting();
    /// A typed or keyed change once it has settled, or a setting applied at once: a release that
    /// restores now.
    void settled() { release(0); }

    /// The motion blur switch changed; the window's controls show the new mode.
    void movedSwitch();
    void colorize();
    /// A setting picked in the gallery goes to the controls; its colour restoration follows.
    void applyPick(const Setting& picked);
    /// A blur found in the picture: the mode switch and the sliders move to it, it is kept for
    /// the auto search, and the preview restores at once.
    void applyEstimate(const EstimatedSetting& found);
    /// The PSF view of the controls' setting.
    void showPsfView();

  private:
    void sliderEvent(bool ended);
    void release(double restoreAfter);
    void restorePending();

    ControllerState& m_state;
    WindowPort& m_window;
    RestorationJobs& m_jobs;
    /// The full preview of the last release, once the controls have been left alone; a release
    /// before then replaces the setting it restores.
    QTimer m_releaseSettled;
    Setting m_pending;
};

} // namespace clarovi::jobs
