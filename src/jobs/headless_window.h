#pragma once

#include "window_port.h"

#include <QStringList>

namespace clarovi::jobs {

/// A window without widgets: its setting set by the caller, results kept for it to read. Serves
/// the command line and the tests of the jobs.
class HeadlessWindow : public WindowPort {
  public:
    Setting controls;
    bool locked = false;
    int lockCount = 0;
    int unlockCount = 0;
    QImage shown;
    ShownSpectrum spectrum;
    PsfPicture psf;
    QString settings;
    QStringList errors;

    Setting setting() const override { return controls; }
    void showSetting(const Setting& setting) override { controls = setting; }
    bool showsResult() const override { return !shown.isNull(); }
    bool sliderHeld() const override { return false; }
    void lockEverything() override;
    void unlockEverything() override;
    void showResult(const QImage& picture) override { shown = picture; }
    void showSettings(const QString& text) override { settings = text; }
    void showSpectrum(const ShownSpectrum& view) override { spectrum = view; }
    void showPsf(const PsfPicture& picture) override { psf = picture; }
    void reportError(const QString& message) override { errors << message; }
};

} // namespace clarovi::jobs
