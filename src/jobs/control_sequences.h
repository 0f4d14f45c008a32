#pragma once

#include "blur_estimation.h"
#include "controller_state.h"
#include "restoration_jobs.h"
#include "window_port.h"

#include <QObject>
#include <QTimer>

namespace clarovi::jobs {

/// Seconds from a slider release to its restoration.
inline constexpr double kReleaseDelay = 1.0;

/// What each control of the main window starts: opening a picture and its first restoration, a
/// drag step, a release, a typed value, the mode switch, the Fixed size button, the colour
/// restoration and a pick from the gallery. Reads the controls and shows results through the
/// WindowPort, so the window, the command line and the tests run the same sequences.
class ControlSequences : public QObject {
    Q_OBJECT
  public:
    ControlSequences(ControllerState& state, WindowPort& window, RestorationJobs& jobs);

    /// The state the window starts with, taken from its controls, and the first PSF shown.
    void setUpDefaults();

    /// Makes photo the current picture: shown at display size, its PSF drawn, its first
    /// computations due.
    void pickImg(const QImage& photo);
    /// The first computations of a fresh picture: the spectrum and the grey preview. Does nothing
    /// once they have run.
    void showFirstRestoration();

    /// A PSF slider moved (ended false) or was let go (ended true).
    void LengthNew(bool ended);
    void angleNew(bool ended);
    void widthSlider(bool ended);

    // Each release locks the controls, takes the new setting and restores after restoreAfter
    // seconds; 0 restores at once.
    void lengthEndedDragging(double restoreAfter = kReleaseDelay);
    void angleEndedDragging(double restoreAfter = kReleaseDelay);
    void widthEndDrag(double restoreAfter = kReleaseDelay);
    void muSliderChange(double restoreAfter = kReleaseDelay);

    /// The label and the PSF view of the controls' setting, without restoring: a typed or keyed
    /// change waiting to settle.
    void previewSetting();
    // A typed or keyed change once it has settled: the release's steps, restoring at once.
    void lengthTyped();
    void angleTyped() { angleEndedDragging(0); }
    void widthTyped();
    void sharpnessTyped() { muSliderChange(0); }

    /// The motion blur switch changed.
    void movedSwitch(bool motion);
    /// The Fixed size button: the live preview at once, the full preview once it is left alone.
    void aspectChange();
    void colorize();
    /// A setting picked in the gallery goes to the sliders and the PSF; its colour restoration
    /// follows a second later.
    void applyPick(double length, double angle, double width, double sharpness);
    /// A blur found in the picture: the mode switch and the sliders move to it, it is kept for
    /// the auto search, and the preview restores at once.
    void applyEstimate(const EstimatedSetting& found);
    /// The PSF view of the sliders' setting.
    void showPsfView();

  private:
    enum class Setting { Length, Angle, Width, Sharpness };
    void sliderEvent(Setting setting, bool ended);
    void endStep(Setting setting, double restoreAfter);
    void dragStep();
    void useWorkingPicture();
    void rewriteSettingsLabel() { m_window.showSettings(m_jobs.settingsText()); }
    void redrawPsf();
    void restoreAfterAspectChange();
    void scheduleAfter(double seconds, void (RestorationJobs::*job)());

    ControllerState& m_state;
    WindowPort& m_window;
    RestorationJobs& m_jobs;
    QTimer m_aspectSettled; ///< the full preview after the Fixed size button was left alone
};

} // namespace clarovi::jobs
