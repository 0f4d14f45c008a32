#pragma once

#include "engine/blur_shape.h"

#include <QImage>
#include <QString>

namespace clarovi::jobs {

/// The settings label: " Ø: %.1f ⟷ %.1f" with the PSF length and the line width.
inline QString settingsLabel(float length, double width) {
    return QString::asprintf(" Ø: %.1f ⟷ %.1f", double(length), width);
}

/// The PSF view's picture: the kernel that restores, as it lies on the photograph shown, enlarged
/// to fill the picture; and the blur it undoes, whose zeros the spectrum view draws.
struct PsfPicture {
    QImage picture;
    double scale = 1;       ///< pixels of the picture per pixel of the photograph shown
    engine::BlurShape blur; ///< on the photograph shown
};

/// The spectrum view's picture (the zero frequency at its centre) and the frequencies it covers.
struct ShownSpectrum {
    QImage picture;
    double maxFrequency = 0.5; ///< cycles per pixel of the photograph shown, centre to edge
};

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
    virtual void setSharpness(float mu) = 0;
    /// Turns the motion blur switch on or off, without restoring.
    virtual void setMotionMode(bool motion) = 0;

    virtual void lockEverything() = 0;
    /// Unlocks the controls one event-loop pass later, so work queued before it still sees them
    /// locked.
    virtual void unlockEverything() = 0;

    virtual void showResult(const QImage& picture) = 0;
    virtual void showSettings(const QString& text) = 0;
    virtual void showPsf(const PsfPicture& psf) = 0;
    virtual void showSpectrum(const ShownSpectrum& spectrum) = 0;
    /// A job failed; the message says why. What was shown stays.
    virtual void reportError(const QString& message) = 0;
};

} // namespace clarovi::jobs
