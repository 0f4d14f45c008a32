#include "auto_search.h"

#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/log.h"
#include "engine/padding.h"
#include "engine/psf.h"

#include <QElapsedTimer>
#include <QThread>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentMap>
#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace clarovi::autosearch {

namespace {

constexpr double kAutoSize = 512.0;
constexpr double kAutoMu = 0.0035;
constexpr double kLabelFactor = 0.6190476190476191; // 13 / 21

// Keeps about the central three quarters of each side, as the thumbnail zooms on the centre.
cv::Mat centralPart(const cv::Mat& r) {
    return r(cv::Rect(r.rows / 8, r.cols / 8, r.rows - r.rows / 4, r.cols - r.cols / 4));
}

} // namespace

SearchInput snapshotOf(const jobs::ControllerState& state) {
    SearchInput input;
    input.previewSourceImage = state.previewSourceImage;
    input.keepAspect = state.keepAspect;
    input.motionBlur = state.motionBlur;
    input.workingSide = state.workingSide;
    input.displayWidth = state.displayWidth;
    input.displayHeight = state.displayHeight;
    input.currentAngle = state.currentAngle;
    input.currentWidth = state.currentWidth;
    input.autoLengthEnd = state.autoLengthEnd;
    input.autoAngleIndex = state.autoAngleIndex;
    return input;
}

AutoSearch::AutoSearch(SearchInput input)
    : autoLengthEnd(input.autoLengthEnd), autoAngleIndex(input.autoAngleIndex),
      currentAngle(input.currentAngle), currentWidth(input.currentWidth),
      m_input(std::move(input)) {
    m_smallCopy = engine::imageWithImage(m_input.previewSourceImage, QSizeF(kAutoSize, kAutoSize));
    m_smallGrey = engine::CVGrayscaleMat(m_smallCopy);
    m_step = [this] { return thumbnailFor(autoLength, autoAngleIndex); };
}

int AutoSearch::labelFor(int length) {
    return std::max(1, int(length * kLabelFactor));
}

double AutoSearch::angleOf(int angleIndex) const {
    return double((360 / autoAngleCount) * angleIndex);
}

cv::Mat AutoSearch::addAutoPad(const cv::Mat& src, double unused, int* pad) const {
    return autoPadded(src, unused, pad, autoLength);
}

cv::Mat AutoSearch::autoPadded(const cv::Mat& src, double, int* pad, int length) {
    const double multiplier = double((length + 2) / 25) + 3.599901585052413;
    logLine("MULTIPLIER %f", multiplier);
    const int border = int(multiplier * (src.rows / 18.32));
    cv::Mat dst;
    cv::copyMakeBorder(src, dst, border, border, border, border, cv::BORDER_REPLICATE);
    logLine("FINAL %d", dst.rows);
    *pad = int(float(dst.cols - src.cols) * (float(src.cols) / float(dst.cols)));
    return dst;
}

void AutoSearch::beginStep() {
    autoSize = kAutoSize;
    autoSilent = true;
    // The 512 copy of the preview picture is the same at every step: made once per search.
    activeImage = m_smallCopy;
    autoLabelLength = labelFor(autoLength);
}

QImage AutoSearch::ComputateAuto() {
    beginStep();
    return m_step();
}

// One step's restoration for a length and an angle index; reads only what stays fixed during a
// search, so several steps may run at once.
QImage AutoSearch::thumbnailFor(int length, int angleIndex) const {
    const double size = kAutoSize;
    const double psfLength = length / double(m_input.workingSide) * size;
    const int labelLength = labelFor(length);
    int pad = 0;
    cv::Mat plane = autoPadded(m_smallGrey, 0.1, &pad, length);
    const QImage psf = engine::MakePsfD(float(psfLength), angleOf(angleIndex), 0.2, false,
                                        m_input.motionBlur, m_smallCopy.size());
    cv::Mat kernel = engine::CVGrayscaleMat(psf);
    logLine("### A TO VISUALIZE %d - %d - %f - at %d secOp %f", length, m_input.workingSide, size,
            labelLength, psfLength);

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

cv::Mat AutoSearch::thumbnailCrop(const cv::Mat& restored, int pad) {
    const int h = pad / 2;
    const cv::Rect trim(h, h + 1, restored.rows - pad, restored.cols - pad);
    // Clamped: the window reaches one row beyond the plane when pad is below 2.
    return centralPart(centralPart(restored(trim & cv::Rect(0, 0, restored.cols, restored.rows))));
}

// The lengths of one angle: restored side by side on the cores (each step reads only what
// stays fixed during the search), then recorded in order exactly as one after another would.
bool AutoSearch::appendAngle(const std::vector<int>& lengths, const std::atomic<bool>& cancel) {
    if (m_customStep) {
        for (const int length : lengths) {
            autoLength = length;
            appendStep();
            if (cancel.load())
                return false;
        }
    } else {
        QThreadPool pool;
        pool.setMaxThreadCount(QThread::idealThreadCount());
        const int angleIndex = autoAngleIndex;
        const QList<QImage> thumbnails = QtConcurrent::blockingMapped<QList<QImage>>(
            &pool, lengths,
            [this, angleIndex](int length) { return thumbnailFor(length, angleIndex); });
        for (size_t k = 0; k < lengths.size(); ++k) {
            autoLength = lengths[k];
            beginStep();
            record(thumbnails[qsizetype(k)]);
        }
        if (cancel.load())
            return false;
    }
    autoLength = lengths.empty() ? 1 : lengths.back() + 4;
    return true;
}

void AutoSearch::record(const QImage& thumbnail) {
    // Kept as 8-bit grey: a motion search keeps 966 of them.
    results.push_back({thumbnail.convertToFormat(QImage::Format_Grayscale8), autoLabelLength,
                       float(currentAngle), autoLength});
}

void AutoSearch::appendStep() {
    record(ComputateAuto());
}

bool AutoSearch::run(const std::function<void(const ProgressUpdate&)>& post,
                     const std::atomic<bool>& cancel) {
    results.clear();
    return m_input.motionBlur ? runMotion(post, cancel) : runOutOfFocus(post, cancel);
}

bool AutoSearch::runOutOfFocus(const std::function<void(const ProgressUpdate&)>& post,
                               const std::atomic<bool>& cancel) {
    QElapsedTimer clock;
    clock.start();
    double firstStep = 0;
    autoLength = 1;
    if (autoLengthEnd < 2)
        return true;
    do {
        appendStep();
        if (autoLength == 1)
            firstStep = clock.nsecsElapsed() / 1e9;
        autoProgress = float(autoLength * (1.0 / (autoLengthEnd - 1)));
        // The first step's duration for every step left: counted rather than subtracted step by
        // step, so that the last step shows exactly 0.
        post({autoLength, autoLength + 1 >= autoLengthEnd,
              (autoLengthEnd - 1 - autoLength) * firstStep, autoProgress, SearchKind::OutOfFocus});
        ++autoLength;
        if (cancel.load())
            return false;
    } while (autoLength < autoLengthEnd);
    return true;
}

bool AutoSearch::runMotion(const std::function<void(const ProgressUpdate&)>& post,
                           const std::atomic<bool>& cancel) {
    QElapsedTimer clock;
    clock.start();
    double firstAngle = 0;
    autoLengthEnd = 91;
    autoAngleIndex = 0;
    if (autoAngleCount < 1)
        return true;
    for (; autoAngleIndex < autoAngleCount; ++autoAngleIndex) {
        currentAngle = angleOf(autoAngleIndex);
        autoProgress = float(autoAngleIndex * (1.0 / autoAngleCount));
        currentWidth = 0.2;
        std::vector<int> lengths;
        if (autoLengthEnd >= 2)
            for (int length = 1; length < autoLengthEnd; length += 4)
                lengths.push_back(length);
        if (!appendAngle(lengths, cancel))
            return false;
        if (autoAngleIndex == 0)
            firstAngle = clock.nsecsElapsed() / 1e9;
        post({autoAngleIndex, autoAngleIndex + 1 >= autoAngleCount,
              (autoAngleCount - 1 - autoAngleIndex) * firstAngle, autoProgress,
              SearchKind::Motion});
    }
    return true;
}

} // namespace clarovi::autosearch
