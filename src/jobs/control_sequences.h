#pragma once

#include "blur_estimation.h"
#include "controller_state.h"
#include "restoration_jobs.h"
#include "setting.h"
#include "window_port.h"

#include <QObject>
#include <QTimer>
#include <QUndoStack>

#include <optional>

namespace clarovi::jobs {

/// Seconds from a slider release to its restoration.
inline constexpr double kReleaseDelay = 1.0;

/// What each control of the main window starts: opening a picture and its first restoration, a
/// drag step, a release, a typed value, the mode and colour switches, a pick from the gallery, an
/// estimate, undo and redo. Each event takes the setting from the window once (WindowPort) and
/// hands it to the jobs it starts, so that the window, the command line and the tests run the
/// same sequences. Every setting restored in full goes into the history, which undo and redo
/// walk.
class ControlSequences : public QObject {
    Q_OBJECT
  public:
    ControlSequences(ControllerState& state, WindowPort& window, RestorationJobs& jobs);

    /// The PSF view of the setting the window starts with.
    void setUpDefaults();

    /// Makes photo the current picture with the controls at start: shown, its history begun
    /// afresh, its first computations due. The setting the last photograph was left at is kept
    /// to be offered (previousSetting), never imposed.
    void pickImg(const QImage& photo, const Setting& start);
    /// The first computations of a fresh picture: the spectrum and the full preview. Does nothing
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
    /// A typed or keyed change once it has settled, the mode switch or the colour switch: a
    /// release that restores now.
    void settled() { release(0); }
    void movedSwitch() { release(0); }
    void colorize() { release(0); }

    /// A blur picked in the gallery goes to the controls and is restored with their sharpness and
    /// colour, as its thumbnail was.
    void applyPick(const engine::BlurOnPhoto& picked);
    /// A blur found in the picture: the mode switch and the sliders move to it, it is kept for
    /// the auto search, and the preview restores at once.
    void applyEstimate(const EstimatedSetting& found);
    /// The setting the previous photograph was left at, applied to this one.
    void applyPrevious();
    const std::optional<Setting>& previousSetting() const { return m_previous; }
    /// The PSF view of the controls' setting.
    void showPsfView();

    /// The settings restored since the photograph was opened; undoing one shows and restores the
    /// one before it.
    QUndoStack& history() { return m_history; }

  private:
    class Applied;
    void sliderEvent(bool ended);
    void release(double restoreAfter);
    void restorePending();
    void restore(const Setting& setting);
    void showAndRestore(const Setting& setting);

    ControllerState& m_state;
    WindowPort& m_window;
    RestorationJobs& m_jobs;
    /// The full preview of the last release, once the controls have been left alone; a release
    /// before then replaces the setting it restores.
    QTimer m_releaseSettled;
    Setting m_pending;
    QUndoStack m_history;
    std::optional<Setting> m_restored; ///< the setting the shown picture was restored with
    std::optional<Setting> m_previous; ///< the last photograph's, when there was one
};

} // namespace clarovi::jobs
