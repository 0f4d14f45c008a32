#pragma once

#include "engine/blur.h"
#include "setting.h"

#include <QImage>
#include <QString>

namespace clarovi::jobs {

/// The PSF view's picture: the kernel that restores, as it lies on the photograph, enlarged to
/// fill the picture; and the blur it undoes, whose zeros the spectrum view draws.
struct PsfPicture {
    QImage picture;
    double scale = 1;         ///< pixels of the picture per working pixel
    engine::BlurOnPhoto blur; ///< on the photograph
};

/// The spectrum view's picture (the zero frequency at its centre) and the frequencies it covers.
struct ShownSpectrum {
    QImage picture;
    double maxFrequency = 0.5; ///< cycles per working pixel, centre to edge
};

/// What the restoration jobs and the control sequences need of the window that shows them: the
/// setting its controls show, the lock of the controls, and the places results go. The main
/// window implements it; the command line and the tests have small ones of their own.
class WindowPort {
  public:
    virtual ~WindowPort() = default;

    /// What the controls say now: the mode, the blur sliders and the sharpness.
    virtual Setting setting() const = 0;
    /// Moves the controls to setting (the mode switch too), without restoring.
    virtual void showSetting(const Setting& setting) = 0;
    virtual bool showsResult() const = 0; ///< the result view shows a picture
    virtual bool sliderHeld() const = 0;  ///< the mouse holds one of the sliders

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
