#include "control_sequences.h"

#include "engine/log.h"
#include "psf_view.h"

namespace clarovi::jobs {

ControlSequences::ControlSequences(ControllerState& state, WindowPort& window,
                                   RestorationJobs& jobs)
    : m_state(state), m_window(window), m_jobs(jobs) {
    m_releaseSettled.setSingleShot(true);
    connect(&m_releaseSettled, &QTimer::timeout, this, &ControlSequences::restorePending);
}

void ControlSequences::setUpDefaults() {
    showPsfView();
}

void ControlSequences::showPsfView() {
    m_window.showPsf(psfViewOf(m_window.setting().blur));
}

void ControlSequences::pickImg(const QImage& photo) {
    m_releaseSettled.stop();
    m_state.installPicture(photo);
    m_window.showResult(m_state.sourceImage);
    showPsfView();
}

void ControlSequences::showFirstRestoration() {
    if (!m_state.freshImage)
        return;
    m_window.lockEverything();
    m_jobs.spectrumCalculation();
    m_jobs.auxTrueNoMultithread(m_window.setting());
    m_state.freshImage = false;
}

// Each move while the mouse holds a slider runs the live preview of the reduced copy; the
// release runs the full preview once the sliders have been left alone.
void ControlSequences::sliderEvent(bool ended) {
    logLine(ended ? "ended" : "dragging");
    if (ended) {
        release(kReleaseDelay);
        return;
    }
    const Setting setting = m_window.setting();
    m_window.showPsf(psfViewOf(setting.blur));
    m_jobs.dragPreview(setting);
}

void ControlSequences::previewSetting() {
    const Setting setting = m_window.setting();
    m_window.showSettings(settingsLabel(setting));
    m_window.showPsf(psfViewOf(setting.blur));
}

// What every release does: lock, show the setting's label and PSF, and restore it later (or at
// once); a later release before then replaces it.
void ControlSequences::release(double restoreAfter) {
    m_window.lockEverything();
    m_pending = m_window.setting();
    m_window.showSettings(settingsLabel(m_pending));
    m_window.showPsf(psfViewOf(m_pending.blur));
    m_jobs.setSpect();
    if (restoreAfter <= 0) {
        m_releaseSettled.stop();
        restorePending();
        return;
    }
    m_releaseSettled.start(int(restoreAfter * 1000));
}

void ControlSequences::restorePending() {
    m_jobs.auxTrueNoMultithread(m_pending);
}

void ControlSequences::movedSwitch() {
    release(0);
}

void ControlSequences::colorize() {
    m_jobs.auxFalse(m_window.setting());
}

// The picked setting is the thumbnail's, sharpness included, so that the main view restores as
// the thumbnail did; in colour, as the gallery shows what a pick brings.
void ControlSequences::applyPick(const Setting& picked) {
    m_releaseSettled.stop();
    m_window.showSetting(picked);
    m_window.showSettings(settingsLabel(picked));
    m_window.showPsf(psfViewOf(picked.blur));
    m_jobs.setSpect();
    m_jobs.auxFalse(picked);
}

// As a release of the length slider at the estimate, restoring at once.
void ControlSequences::applyEstimate(const EstimatedSetting& found) {
    Setting setting = m_window.setting();
    setting.blur = found.blur;
    m_window.showSetting(setting);
    m_state.estimate = found.estimate.blur;
    release(0);
}

} // namespace clarovi::jobs
