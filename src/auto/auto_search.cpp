#include "auto_search.h"

#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/log.h"
#include "engine/padding.h"
#include "engine/psf.h"
#include "engine/restoration_score.h"
#include "jobs/slider_ranges.h"

#include <QElapsedTimer>
#include <QException>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <exception>

namespace clarovi::autosearch {

namespace {

constexpr double kAutoSize = 512.0;
constexpr int kMotionLengthEnd = 91;
constexpr int kMotionLengthStride = 4;
constexpr double kMotionWidth = 0.2;
constexpr double kAutoPadBase = 3.599901585052413;
// Around an estimate: lengths within 30 % of its own, half a pixel apart for a disk (whose size
// matters more) and a pixel apart for a line, at angles within 6 degrees a degree apart.
constexpr double kFineSpan = 0.3;
constexpr double kFineDiskStep = 0.5;
constexpr double kFineLineStep = 1.0;
constexpr int kFineAngles = 6;

// Keeps about the central three quarters of each side, as the thumbnail zooms on the centre.
cv::Mat centralPart(const cv::Mat& r) {
    return r(cv::Rect(r.cols / 8, r.rows / 8, r.cols - r.cols / 4, r.rows - r.rows / 4));
}

// A border that grows with the length in steps of 25, whatever the sharpness controls say.
double autoMultiplier(double length) {
    return double(int((length + 2) / 25)) + kAutoPadBase;
}

} // namespace

ShownSettings ShownSettings::of(const jobs::ControllerState& state) {
    return {state.activeImage, state.autoSilent, state.currentAngle, state.currentWidth};
}

void ShownSettings::applyTo(jobs::ControllerState& state) const {
    state.activeImage = activeImage;
    state.autoSilent = autoSilent;
    state.currentAngle = currentAngle;
    state.currentWidth = currentWidth;
}

SearchInput snapshotOf(const jobs::ControllerState& state,
                       std::optional<jobs::SliderSetting> around) {
    return {state.previewSourceImage,
            state.keepAspect,
            state.motionBlur,
            state.workingSide,
            state.displayWidth,
            state.displayHeight,
            state.autoAngleCount,
            ShownSettings::of(state),
            state.autoCounters,
            jobs::RestorationScale::of(state),
            around};
}

AutoSearch::AutoSearch(SearchInput input, Restoration restoration)
    : counters(input.counters), shown(input.shown), m_input(std::move(input)),
      m_restore(std::move(restoration)) {
    m_smallCopy = engine::imageWithImage(m_input.previewSourceImage, QSizeF(kAutoSize, kAutoSize));
    m_smallGrey = engine::CVGrayscaleMat(m_smallCopy);
    if (!m_restore)
        m_restore = [this](double length, double angle) { return thumbnailFor(length, angle); };
    m_pool.setMaxThreadCount(QThread::idealThreadCount());
}

SearchKind AutoSearch::kind() const {
    return m_input.motionBlur ? SearchKind::Motion : SearchKind::OutOfFocus;
}

double AutoSearch::angleOf(int angleIndex) const {
    return double((360 / m_input.angleCount) * angleIndex);
}

cv::Mat AutoSearch::addAutoPad(const cv::Mat& src, double, int* pad) const {
    return autoPadded(src, counters.length, pad);
}

cv::Mat AutoSearch::autoPadded(const cv::Mat& src, double length, int* pad) {
    const double multiplier = autoMultiplier(length);
    logLine("MULTIPLIER %f", multiplier);
    return engine::padByMultiplier(src, multiplier, pad);
}

cv::Mat AutoSearch::thumbnailCrop(const cv::Mat& restored, int pad) {
    return centralPart(centralPart(restored(engine::trimWindow(restored.size(), pad))));
}

// With Fixed size on, the padded small copy is brought back to 512 under a PSF that keeps its
// size, so the thumbnail undoes a longer blur than the length its PSF is drawn with.
double AutoSearch::thumbnailBlurLength(double searchedLength) const {
    if (!m_input.keepAspect)
        return searchedLength;
    return jobs::paddedBlurLength(searchedLength, autoMultiplier(searchedLength), int(kAutoSize));
}

double AutoSearch::searchedLengthFor(double blurLength) const {
    return jobs::solveRising([this](double length) { return thumbnailBlurLength(length); },
                             blurLength, 0.0, blurLength);
}

double AutoSearch::sliderLengthOf(double searchedLength) const {
    const float slider =
        jobs::sliderLengthFor(thumbnailBlurLength(searchedLength), m_input.mainView);
    return std::round(slider * 10.0f) / 10.0;
}

void AutoSearch::beginStep(double label) {
    counters.size = kAutoSize;
    shown.autoSilent = true;
    // The 512 copy of the preview picture is the same at every step: made once per search.
    shown.activeImage = m_smallCopy;
    counters.labelLength = int(label);
}

QImage AutoSearch::ComputateAuto() {
    beginStep(sliderLengthOf(counters.length));
    return m_restore(counters.length, angleOf(counters.angleIndex));
}

// One step's restoration for a length and an angle; reads only what stays fixed during a
// search, so several steps may run at once.
QImage AutoSearch::thumbnailFor(double length, double angle) const {
    const double size = kAutoSize;
    const double psfLength = length / double(m_input.workingSide) * size;
    int pad = 0;
    cv::Mat plane = autoPadded(m_smallGrey, length, &pad);
    const QImage psf = engine::MakePsfD(float(psfLength), angle, kMotionWidth, false,
                                        m_input.motionBlur, m_smallCopy.size());
    cv::Mat kernel = engine::CVGrayscaleMat(psf);
    logLine("### A TO VISUALIZE %d - %d - %f - at %d secOp %f", int(length), m_input.workingSide,
            size, int(sliderLengthOf(length)), psfLength);

    if (m_input.keepAspect) {
        const cv::Size side{int(size), int(size)};
        cv::resize(plane, plane, side, 0, 0, cv::INTER_CUBIC);
        cv::resize(kernel, kernel, side, 0, 0, cv::INTER_CUBIC);
    }
    cv::Mat restored = plane;
    if (const auto normalized = engine::normalizedKernel(kernel)) {
        cv::Mat result;
        engine::deconvolvePlane(kSearchSharpness, plane, result, *normalized);
        result.convertTo(restored, CV_8U);
    }

    const QImage thumbnail = engine::imageWithCVMat(thumbnailCrop(restored, pad));
    return engine::imageWithImage(
        thumbnail, jobs::scaledDisplaySize(m_input.displayWidth, m_input.displayHeight, size));
}

// Out of focus: one diameter per step at the window's angle; motion: every length of an angle.
std::vector<AutoSearch::Step> AutoSearch::gridPlan() const {
    std::vector<Step> steps;
    const auto setting = [this](int length) {
        return Setting{double(length), sliderLengthOf(length)};
    };
    if (kind() == SearchKind::OutOfFocus) {
        for (int length = 1; length < counters.lengthEnd; ++length)
            steps.push_back(
                {length, counters.angleIndex, angleOf(counters.angleIndex), {setting(length)}});
        return steps;
    }
    std::vector<Setting> lengths;
    for (int length = 1; length < kMotionLengthEnd; length += kMotionLengthStride)
        lengths.push_back(setting(length));
    for (int angleIndex = 0; angleIndex < m_input.angleCount; ++angleIndex)
        steps.push_back({angleIndex, angleIndex, angleOf(angleIndex), lengths});
    return steps;
}

// The slider lengths around the estimate, each with the length its thumbnail is drawn with so
// that the thumbnail undoes the blur the main view undoes at that slider length.
std::vector<AutoSearch::Setting> AutoSearch::fineLengths() const {
    const double centre = m_input.around->length;
    const double step = kind() == SearchKind::Motion ? kFineLineStep : kFineDiskStep;
    const int reach = int(kFineSpan * centre / step + 1e-9);
    std::vector<Setting> settings;
    for (int k = -reach; k <= reach; ++k) {
        const float label = float(centre + k * step);
        if (jobs::kLengthRange.contains(label))
            settings.push_back(
                {searchedLengthFor(jobs::restoredBlurLength(label, m_input.mainView)), label});
    }
    return settings;
}

std::vector<AutoSearch::Step> AutoSearch::plan() const {
    if (!m_input.around)
        return gridPlan();
    std::vector<Step> steps;
    const std::vector<Setting> lengths = fineLengths();
    if (kind() == SearchKind::OutOfFocus) {
        for (size_t k = 0; k < lengths.size(); ++k)
            steps.push_back({int(k) + 1, 0, shown.currentAngle, {lengths[k]}});
        return steps;
    }
    for (int j = -kFineAngles; j <= kFineAngles; ++j)
        steps.push_back({j + kFineAngles, 0, m_input.around->angle + j, lengths});
    return steps;
}

// The lengths of a step are restored and scored side by side on the cores (each reads only what
// stays fixed during the search), then recorded in order exactly as one after another would.
void AutoSearch::restoreStep(const Step& step) {
    struct Made {
        QImage thumbnail;
        double score = 0;
    };
    QList<Made> made;
    try {
        made = QtConcurrent::blockingMapped<QList<Made>>(
            &m_pool, step.settings, [this, angle = step.angle](const Setting& setting) {
                // Kept as 8-bit grey: a motion search keeps 966 of them.
                const QImage thumbnail =
                    m_restore(setting.searched, angle).convertToFormat(QImage::Format_Grayscale8);
                return Made{thumbnail, engine::restorationScore(engine::CVGrayscaleMat(thumbnail))};
            });
    } catch (const QUnhandledException& wrapped) {
        // The restoration's own exception, not Qt's wrapper, tells what went wrong.
        if (wrapped.exception())
            std::rethrow_exception(wrapped.exception());
        throw;
    }
    const bool grid = !m_input.around;
    for (size_t k = 0; k < step.settings.size(); ++k) {
        const Setting& setting = step.settings[k];
        if (grid)
            counters.length = int(setting.searched);
        beginStep(setting.label);
        const Made& one = made[qsizetype(k)];
        results.push_back({one.thumbnail, setting.label, float(shown.currentAngle),
                           setting.searched, one.score, kind() == SearchKind::Motion});
    }
    if (grid)
        counters.length = int(step.settings.back().searched) +
                          (kind() == SearchKind::Motion ? kMotionLengthStride : 1);
}

bool AutoSearch::run(const Post& post, const std::function<bool()>& cancelled) {
    results.clear();
    const SearchKind searchKind = kind();
    const bool grid = !m_input.around;
    if (grid) {
        if (searchKind == SearchKind::Motion)
            counters.lengthEnd = kMotionLengthEnd;
        counters.length = 1;
    }
    const std::vector<Step> steps = plan();
    const int count = int(steps.size());
    QElapsedTimer clock;
    clock.start();
    double firstStep = 0;
    for (int k = 0; k < count; ++k) {
        const Step& step = steps[size_t(k)];
        if (grid)
            counters.angleIndex = step.angleIndex;
        if (searchKind == SearchKind::Motion) {
            shown.currentAngle = step.angle;
            shown.currentWidth = kMotionWidth;
        }
        restoreStep(step);
        if (k == 0)
            firstStep = clock.nsecsElapsed() / 1e9;
        counters.progress = float(step.reported * (1.0 / count));
        // The first step's duration for every step left: counted rather than subtracted step by
        // step, so that the last step shows exactly 0.
        post({step.reported, k + 1 == count, (count - 1 - k) * firstStep, counters.progress,
              searchKind});
        if (cancelled && cancelled())
            return false;
    }
    if (grid && searchKind == SearchKind::Motion)
        counters.angleIndex = m_input.angleCount; // as after the last angle
    return true;
}

} // namespace clarovi::autosearch
