#include "auto_search.h"

#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/log.h"
#include "engine/padding.h"
#include "engine/psf.h"

#include <QElapsedTimer>
#include <QException>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <exception>

namespace clarovi::autosearch {

namespace {

constexpr double kAutoSize = 512.0;
constexpr double kAutoMu = 0.0035;
constexpr double kLabelFactor = 0.6190476190476191; // 13 / 21
constexpr int kMotionLengthEnd = 91;
constexpr int kMotionLengthStride = 4;
constexpr double kMotionWidth = 0.2;

// Keeps about the central three quarters of each side, as the thumbnail zooms on the centre.
cv::Mat centralPart(const cv::Mat& r) {
    return r(cv::Rect(r.cols / 8, r.rows / 8, r.cols - r.cols / 4, r.rows - r.rows / 4));
}

int labelFor(int length) {
    return std::max(1, int(length * kLabelFactor));
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

SearchInput snapshotOf(const jobs::ControllerState& state) {
    return {state.previewSourceImage, state.keepAspect,         state.motionBlur,
            state.workingSide,        state.displayWidth,       state.displayHeight,
            state.autoAngleCount,     ShownSettings::of(state), state.autoCounters};
}

AutoSearch::AutoSearch(SearchInput input, Restoration restoration)
    : counters(input.counters), shown(input.shown), m_input(std::move(input)),
      m_restore(std::move(restoration)) {
    m_smallCopy = engine::imageWithImage(m_input.previewSourceImage, QSizeF(kAutoSize, kAutoSize));
    m_smallGrey = engine::CVGrayscaleMat(m_smallCopy);
    if (!m_restore)
        m_restore = [this](int length, int angleIndex) { return thumbnailFor(length, angleIndex); };
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

cv::Mat AutoSearch::autoPadded(const cv::Mat& src, int length, int* pad) {
    // A border that grows with the length in steps of 25, whatever the sharpness controls say.
    const double multiplier = double((length + 2) / 25) + 3.599901585052413;
    logLine("MULTIPLIER %f", multiplier);
    return engine::padByMultiplier(src, multiplier, pad);
}

cv::Mat AutoSearch::thumbnailCrop(const cv::Mat& restored, int pad) {
    return centralPart(centralPart(restored(engine::trimWindow(restored.size(), pad))));
}

void AutoSearch::beginStep() {
    counters.size = kAutoSize;
    shown.autoSilent = true;
    // The 512 copy of the preview picture is the same at every step: made once per search.
    shown.activeImage = m_smallCopy;
    counters.labelLength = labelFor(counters.length);
}

QImage AutoSearch::ComputateAuto() {
    beginStep();
    return m_restore(counters.length, counters.angleIndex);
}

// One step's restoration for a length and an angle index; reads only what stays fixed during a
// search, so several steps may run at once.
QImage AutoSearch::thumbnailFor(int length, int angleIndex) const {
    const double size = kAutoSize;
    const double psfLength = length / double(m_input.workingSide) * size;
    int pad = 0;
    cv::Mat plane = autoPadded(m_smallGrey, length, &pad);
    const QImage psf = engine::MakePsfD(float(psfLength), angleOf(angleIndex), 0.2, false,
                                        m_input.motionBlur, m_smallCopy.size());
    cv::Mat kernel = engine::CVGrayscaleMat(psf);
    logLine("### A TO VISUALIZE %d - %d - %f - at %d secOp %f", length, m_input.workingSide, size,
            labelFor(length), psfLength);

    if (m_input.keepAspect) {
        const cv::Size side{int(size), int(size)};
        cv::resize(plane, plane, side, 0, 0, cv::INTER_CUBIC);
        cv::resize(kernel, kernel, side, 0, 0, cv::INTER_CUBIC);
    }
    cv::Mat restored = plane;
    if (const auto normalized = engine::normalizedKernel(kernel)) {
        cv::Mat result;
        engine::deconvolvePlane(kAutoMu, plane, result, *normalized);
        result.convertTo(restored, CV_8U);
    }

    const QImage thumbnail = engine::imageWithCVMat(thumbnailCrop(restored, pad));
    return engine::imageWithImage(
        thumbnail, jobs::scaledDisplaySize(m_input.displayWidth, m_input.displayHeight, size));
}

// Out of focus: one diameter per step at the window's angle; motion: every length of an angle.
std::vector<AutoSearch::Step> AutoSearch::plan() const {
    std::vector<Step> steps;
    if (kind() == SearchKind::OutOfFocus) {
        for (int length = 1; length < counters.lengthEnd; ++length)
            steps.push_back({length, counters.angleIndex, {length}});
        return steps;
    }
    std::vector<int> lengths;
    for (int length = 1; length < kMotionLengthEnd; length += kMotionLengthStride)
        lengths.push_back(length);
    for (int angleIndex = 0; angleIndex < m_input.angleCount; ++angleIndex)
        steps.push_back({angleIndex, angleIndex, lengths});
    return steps;
}

// The lengths of a step are restored side by side on the cores (each reads only what stays
// fixed during the search), then recorded in order exactly as one after another would.
void AutoSearch::restoreStep(const Step& step) {
    QList<QImage> thumbnails;
    try {
        thumbnails = QtConcurrent::blockingMapped<QList<QImage>>(
            &m_pool, step.lengths, [this, angleIndex = step.angleIndex](int length) {
                return m_restore(length, angleIndex);
            });
    } catch (const QUnhandledException& wrapped) {
        // The restoration's own exception, not Qt's wrapper, tells what went wrong.
        if (wrapped.exception())
            std::rethrow_exception(wrapped.exception());
        throw;
    }
    for (size_t k = 0; k < step.lengths.size(); ++k) {
        counters.length = step.lengths[k];
        beginStep();
        record(thumbnails[qsizetype(k)]);
    }
    counters.length =
        step.lengths.back() + (kind() == SearchKind::Motion ? kMotionLengthStride : 1);
}

void AutoSearch::record(const QImage& thumbnail) {
    // Kept as 8-bit grey: a motion search keeps 966 of them.
    results.push_back({thumbnail.convertToFormat(QImage::Format_Grayscale8), counters.labelLength,
                       float(shown.currentAngle), counters.length});
}

bool AutoSearch::run(const Post& post, const std::function<bool()>& cancelled) {
    results.clear();
    const SearchKind searchKind = kind();
    if (searchKind == SearchKind::Motion)
        counters.lengthEnd = kMotionLengthEnd;
    counters.length = 1;
    const std::vector<Step> steps = plan();
    const int count = int(steps.size());
    QElapsedTimer clock;
    clock.start();
    double firstStep = 0;
    for (int k = 0; k < count; ++k) {
        const Step& step = steps[size_t(k)];
        counters.angleIndex = step.angleIndex;
        if (searchKind == SearchKind::Motion) {
            shown.currentAngle = angleOf(step.angleIndex);
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
    if (searchKind == SearchKind::Motion)
        counters.angleIndex = m_input.angleCount; // as after the last angle
    return true;
}

} // namespace clarovi::autosearch
