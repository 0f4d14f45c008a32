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
    bool locked = false;
    int lockCount = 0;
    int unlockCount = 0;
    QImage shown;
    QImage spectrum;
    QString settings;
    QStringList errors;

    float psfLength() const override { return length; }
    float sharpness() const override { return mu; }
    bool showsResult() const override { return !shown.isNull(); }
    void lockEverything() override;
    void unlockEverything() override;
    void showResult(const QImage& picture) override { shown = picture; }
    void showSettings(const QString& text) override { settings = text; }
    void showSpectrum(const QImage& picture) override { spectrum = picture; }
    void reportError(const QString& message) override { errors << message; }
};

} // namespace clarovi::jobs
