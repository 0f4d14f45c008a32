#pragma once

#include <QImage>
#include <QString>

namespace clarovi::jobs {

/// The settings label: " Ø: %.1f ⟷ %.1f" with the PSF length and the line width.
inline QString settingsLabel(float length, double width) {
    return QString::asprintf(" Ø: %.1f ⟷ %.1f", double(length), width);
}

/// What the restoration jobs and the control sequences need of the window that shows them: the
/// values of its controls, the lock of the controls, and the places results go. The main window
/// implements it; the command line and the tests have small ones of their own.
class WindowPort {
  public:
    virtual ~WindowPort() = default;

    virtual float psfLength() const = 0;  ///< the length (diameter) slider's value, pixels
    virtual float sharpness() const = 0;  ///< the sharpness slider's value (mu)
    virtual bool showsResult() const = 0; ///< the result view shows a picture
    virtual double psfAngle() const = 0;  ///< the angle slider's value, degrees
    virtual double psfWidth() const = 0;  ///< the width slider's value, pixels
    virtual bool motionMode() const = 0;  ///< the motion blur switch is on
    virtual bool sliderHeld() const = 0;  ///< the mouse holds one of the sliders
    /// Moves the PSF sliders to a picked setting.
    virtual void setPsfSliders(float length, double angle, double width) = 0;

    virtual void lockEverything() = 0;
    /// Unlocks the controls one event-loop pass later, so work queued before it still sees them
    /// locked.
    virtual void unlockEverything() = 0;

    virtual void showResult(const QImage& picture) = 0;
    virtual void showSettings(const QString& text) = 0;
    /// The PSF view beside the result, drawn as it should look.
    virtual void showPsf(const QImage& psf) = 0;
    virtual void showSpectrum(const QImage& spectrum) = 0;
    /// A job failed; the message says why. What was shown stays.
    virtual void reportError(const QString& message) = 0;
};

} // namespace clarovi::jobs
