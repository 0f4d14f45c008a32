#pragma once

#include "slider_ranges.h"
#include "window_port.h"

#include <QStringList>

namespace clarovi::jobs {

/// A window without widgets: slider values set by the caller, results kept for it to read.
/// Serves the command line and the tests of the jobs.
class HeadlessWindow : public WindowPort {
  public:
    float length = kLengthRange.initial;
    float mu = kSharpnessRange.initial;
    double angle = kAngleRange.initial;
    double width = kWidthRange.initial;
    bool motion = false;
    bool locked = false;
    int lockCount = 0;
    int unlockCount = 0;
    QImage shown;
    ShownSpectrum spectrum;
    PsfPicture psf;
    QString settings;
    QStringList errors;

    float psfLength() const override { return length; }
    float sharpness() const override { return mu; }
    bool showsResult() const override { return !shown.isNull(); }
    double psfAngle() const override { return angle; }
    double psfWidth() const override { return width; }
    bool motionMode() const override { return motion; }
    bool sliderHeld() const override { return false; }
    void setPsfSliders(float newLength, double newAngle, double newWidth) override;
    void setSharpness(float newMu) override { mu = newMu; }
    void setMotionMode(bool on) override { motion = on; }
    void lockEverything() override;
    void unlockEverything() override;
    void showResult(const QImage& picture) override { shown = picture; }
    void showSettings(const QString& text) override { settings = text; }
    void showSpectrum(const ShownSpectrum& view) override { spectrum = view; }
    void showPsf(const PsfPicture& picture) override { psf = picture; }
    void reportError(const QString& message) override { errors << message; }
};

} // namespace clarovi::jobs
