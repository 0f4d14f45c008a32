#include "control_sequences.h"

#include "engine/log.h"
#include "psf_view.h"

namespace clarovi::jobs {

/// One step of the history: from one setting restored in full to the next. Pushed once the new
/// one has been restored, so that its first redo does nothing.
class ControlSequences::Applied : public QUndoCommand {
  public:
    Applied(ControlSequences& sequences, const Setting& before, const Setting& after)
        : QUndoCommand(settingsLabel(after)), m_sequences(sequences), m_before(before),
          m_after(after) {}
    void undo() override { m_sequences.showAndRestore(m_before); }
    void redo() override {
        if (m_done)
            m_sequences.showAndRestore(m_after);
        m_done = true;
    }

  private:
    ControlSequences& m_sequences;
    Setting m_before, m_after;
    bool m_done = false;
};

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

void ControlSequences::pickImg(const QImage& photo, const Setting& start) {
    m_releaseSettled.stop();
    if (m_restored)
        m_previous = m_restored;
    m_restored.reset();
    m_history.clear();
    m_state.installPicture(photo);
    m_window.showSetting(start);
    m_window.showResult(m_state.sourceImage);
    showPsfView();
}

void ControlSequences::showFirstRestoration() {
    if (!m_state.freshImage)
        return;
    m_window.lockEverything();
    m_jobs.spectrumCalculation();
    m_state.freshImage = false;
    release(0);
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

// The pending setting restored and, when it differs from the last one, recorded.
void ControlSequences::restorePending() {
    const Setting setting = m_pending;
    restore(setting);
    if (m_restored && *m_restored != setting)
        m_history.push(new Applied(*this, *m_restored, setting));
    m_restored = setting;
}

void ControlSequences::restore(const Setting& setting) {
    if (setting.colour)
        m_jobs.auxFalse(setting);
    else
        m_jobs.auxTrueNoMultithread(setting);
}

// Undo and redo: the controls go back to the setting and it is restored, without a new step.
void ControlSequences::showAndRestore(const Setting& setting) {
    m_releaseSettled.stop();
    m_window.showSetting(setting);
    m_window.lockEverything();
    m_window.showSettings(settingsLabel(setting));
    m_window.showPsf(psfViewOf(setting.blur));
    m_jobs.setSpect();
    restore(setting);
    m_restored = setting;
}

// The thumbnails were restored with the controls' sharpness and filter: only the blur changes.
void ControlSequences::applyPick(const engine::BlurOnPhoto& picked) {
    Setting setting = m_window.setting();
    setting.blur = picked;
    m_window.showSetting(setting);
    release(0);
}

// As a release of the length slider at the estimate, restoring at once.
void ControlSequences::applyEstimate(const EstimatedSetting& found) {
    Setting setting = m_window.setting();
    setting.blur = found.blur;
    m_window.showSetting(setting);
    release(0);
}

void ControlSequences::applyPrevious() {
    if (!m_previous)
        return;
    m_window.showSetting(*m_previous);
    release(0);
}

} // namespace clarovi::jobs
