#include "control_sequences.h"

#include "engine/image_bridge.h"
#include "engine/log.h"
#include "psf_view.h"
#include "slider_ranges.h"

#include <functional>

namespace clarovi::jobs {

namespace {
constexpr double kEstimatedLineWidth = 1.0;
} // namespace

ControlSequences::ControlSequences(ControllerState& state, WindowPort& window,
                                   RestorationJobs& jobs)
    : m_state(state), m_window(window), m_jobs(jobs) {
    m_aspectSettled.setSingleShot(true);
    connect(&m_aspectSettled, &QTimer::timeout, this, &ControlSequences::restoreAfterAspectChange);
}

void ControlSequences::setUpDefaults() {
    m_state.setUpDefaults(m_window.sharpness(), kSharpnessRange.minimum, kSharpnessRange.maximum,
                          m_window.psfLength());
    showPsfView();
}

void ControlSequences::scheduleAfter(double seconds, void (RestorationJobs::*job)()) {
    const std::function<void()> run = std::bind(job, &m_jobs);
    if (seconds <= 0)
        run();
    else
        QTimer::singleShot(int(seconds * 1000), this, run);
}

void ControlSequences::useWorkingPicture() {
    m_state.activeImage = m_state.sourceImage;
    m_state.autoSilent = false;
}

void ControlSequences::showPsfView() {
    m_window.showPsf(psfViewOf(m_state, {m_window.psfLength(), m_state.currentAngle},
                               m_state.currentWidth, m_window.motionMode()));
}

void ControlSequences::redrawPsf() {
    m_state.psfImage =
        m_state.MakePsfD(m_window.psfLength(), m_state.currentAngle, m_state.currentWidth, false);
}

void ControlSequences::pickImg(const QImage& photo) {
    m_state.installPicture(photo);
    m_window.showResult(engine::imageWithImage(
        m_state.sourceImage, QSizeF(m_state.displayWidth, m_state.displayHeight)));
    m_jobs.MakeMyPSFinitial();
    showPsfView();
}

void ControlSequences::showFirstRestoration() {
    if (!m_state.freshImage)
        return;
    m_jobs.MakeMyPSFinitial();
    m_window.lockEverything();
    m_jobs.spectrumCalculation();
    useWorkingPicture();
    m_jobs.auxTrueNoMultithread();
    m_state.freshImage = false;
}

void ControlSequences::LengthNew(bool ended) {
    sliderEvent(Setting::Length, ended);
}

void ControlSequences::angleNew(bool ended) {
    sliderEvent(Setting::Angle, ended);
}

void ControlSequences::widthSlider(bool ended) {
    sliderEvent(Setting::Width, ended);
}

// Each move while the mouse holds a PSF slider runs a drag step, a live tiled preview of the
// reduced copy; the release runs the end step, the full preview a second later. The length and
// width sliders record the length for the border padding; the angle slider does not.
void ControlSequences::sliderEvent(Setting setting, bool ended) {
    if (setting != Setting::Angle)
        m_state.eventLength = m_window.psfLength();
    logLine(ended ? "ended" : "dragging");
    if (ended) {
        endStep(setting, kReleaseDelay);
        return;
    }
    if (setting == Setting::Angle)
        m_state.currentAngle = m_window.psfAngle();
    if (setting == Setting::Width)
        m_state.currentWidth = m_window.psfWidth();
    dragStep();
}

void ControlSequences::dragStep() {
    m_jobs.dragStep([this] {
        showPsfView();
        logLine("PSF SIZE %fx%f and IMG %fx%f", double(m_state.psfImage.width()),
                double(m_state.psfImage.height()), double(m_state.jobImage.width()),
                double(m_state.jobImage.height()));
    });
}

void ControlSequences::lengthEndedDragging(double restoreAfter) {
    endStep(Setting::Length, restoreAfter);
}

void ControlSequences::angleEndedDragging(double restoreAfter) {
    endStep(Setting::Angle, restoreAfter);
}

void ControlSequences::widthEndDrag(double restoreAfter) {
    endStep(Setting::Width, restoreAfter);
}

void ControlSequences::muSliderChange(double restoreAfter) {
    endStep(Setting::Sharpness, restoreAfter);
}

// What every release does: lock, take the setting, show its label (and the PSF view when its
// shape changed), redraw the PSF that restores, and restore later.
void ControlSequences::endStep(Setting setting, double restoreAfter) {
    m_window.lockEverything();
    if (setting == Setting::Angle)
        m_state.currentAngle = m_window.psfAngle();
    if (setting == Setting::Width)
        m_state.currentWidth = m_window.psfWidth();
    rewriteSettingsLabel();
    useWorkingPicture();
    if (setting != Setting::Sharpness) {
        showPsfView();
        redrawPsf();
    }
    if (setting != Setting::Angle)
        m_jobs.setSpect();
    scheduleAfter(restoreAfter, &RestorationJobs::auxTrueNoMultithread);
}

void ControlSequences::previewSetting() {
    m_state.currentAngle = m_window.psfAngle();
    m_state.currentWidth = m_window.psfWidth();
    rewriteSettingsLabel();
    showPsfView();
}

void ControlSequences::lengthTyped() {
    m_state.eventLength = m_window.psfLength();
    endStep(Setting::Length, 0);
}

void ControlSequences::widthTyped() {
    m_state.eventLength = m_window.psfLength();
    endStep(Setting::Width, 0);
}

void ControlSequences::movedSwitch(bool motion) {
    m_state.motionBlur = motion;
    m_state.currentAngle = m_window.psfAngle();
    m_state.autoSilent = false;
    showPsfView();
    m_window.lockEverything();
    redrawPsf();
    m_jobs.auxTrueNoMultithread();
    m_jobs.setSpect();
}

void ControlSequences::aspectChange() {
    m_state.keepAspect = !m_state.keepAspect;
    showPsfView(); // Fixed size changes how far the restoration's blur reaches
    scheduleAfter(m_state.jobDelay, &RestorationJobs::runCompTrue);
    m_aspectSettled.start(int(kReleaseDelay * 1000));
}

// The live preview that follows the Fixed size button is made of tiles; once the button has been
// left alone, the full preview of the working picture replaces it. A drag under way restores on
// its own release instead.
void ControlSequences::restoreAfterAspectChange() {
    if (m_window.sliderHeld())
        return;
    useWorkingPicture();
    redrawPsf();
    m_jobs.auxTrueNoMultithread();
}

void ControlSequences::colorize() {
    m_window.lockEverything();
    scheduleAfter(m_state.jobDelay, &RestorationJobs::runCompFalse);
}

// The picked setting is the thumbnail's, sharpness included, and the border follows the picked
// length as after a release of its slider, so that the main view restores as the thumbnail did.
// Its colour restoration is asked for twice, a second after the pick.
void ControlSequences::applyPick(double length, double angle, double width, double sharpness) {
    m_jobs.MakeMyPSFfinal(length, angle);
    m_window.lockEverything();
    m_window.setPsfSliders(float(length), angle, width);
    m_window.setSharpness(float(sharpness));
    m_state.eventLength = m_window.psfLength();
    rewriteSettingsLabel();
    useWorkingPicture();
    showPsfView();
    m_jobs.setSpect();
    logLine("Executing selected prev %d with PSF SEL %f", m_state.workingSide, length);
    scheduleAfter(kReleaseDelay, &RestorationJobs::runCompFalse);
    scheduleAfter(kReleaseDelay, &RestorationJobs::runCompFalse);
}

// As a release of the length slider at the estimate, restoring at once; a line is one pixel wide,
// as a moving point draws it.
void ControlSequences::applyEstimate(const EstimatedSetting& found) {
    const bool motion = found.estimate.kind == engine::BlurKind::Motion;
    m_window.setMotionMode(motion);
    m_state.motionBlur = motion;
    const double width = motion ? kEstimatedLineWidth : m_window.psfWidth();
    m_window.setPsfSliders(found.setting.length, found.setting.angle, width);
    m_state.eventLength = m_window.psfLength();
    m_state.currentAngle = m_window.psfAngle();
    m_state.currentWidth = m_window.psfWidth();
    m_state.estimate =
        engine::shapeOf(found.estimate.kind, found.estimate.length, found.estimate.angle);
    endStep(Setting::Length, 0);
}

} // namespace clarovi::jobs
