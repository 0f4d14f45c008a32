#include "blur_estimation.h"

#include "engine/image_bridge.h"
#include "engine/welch_power.h"

#include <QtConcurrent/QtConcurrentRun>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace clarovi::jobs {

namespace {

// The window of the averaged spectrum: 512 resolves the zeros of the longest blurs; smaller for a
// picture too thin for two windows across.
constexpr int kSpectrumWindow = 512;
constexpr int kSmallestWindow = 64;

} // namespace

cv::Mat shownGreyPicture(const QImage& sourceImage, QSizeF displaySize) {
    const cv::Mat grey = engine::CVGrayscaleMat(sourceImage);
    const cv::Size shown(std::max(1, int(std::lround(displaySize.width()))),
                         std::max(1, int(std::lround(displaySize.height()))));
    if (grey.empty() || grey.size() == shown)
        return grey;
    cv::Mat picture;
    cv::resize(grey, picture, shown, 0, 0, cv::INTER_AREA);
    return picture;
}

ShownSpectrum pictureSpectrum(const cv::Mat& grey) {
    const int shorter = std::min(grey.rows, grey.cols);
    int side = kSpectrumWindow;
    while (side > kSmallestWindow && 3 * side > 2 * shorter)
        side /= 2;
    if (shorter < side)
        return {};
    const engine::SpectrumPicture spectrum =
        engine::logPowerPicture(engine::averagePowerSpectrum(grey, side));
    return {engine::imageWithCVMat(spectrum.picture), spectrum.maxFrequency};
}

EstimatedSetting settingOf(const engine::BlurEstimate& estimate, const ControllerState& state) {
    EstimatedSetting found{estimate, {}, false, false};
    if (!(estimate.length > 0))
        return found;
    const engine::BlurShape shown = engine::shapeOf(estimate.kind, estimate.length, estimate.angle);
    found.setting = settingFor(shown, state);
    found.clear = estimate.confidence >= engine::kClearBlurConfidence;
    const double reach = restoredBlurLength(kLengthRange.maximum, RestorationScale::of(state));
    found.beyondRange = copyPsfOf(shown, state).length > reach;
    return found;
}

BlurEstimation::BlurEstimation() {
    connect(&m_watcher, &QFutureWatcher<Outcome>::finished, this, [this] {
        m_running = false;
        const Outcome outcome = m_watcher.result();
        if (outcome.failure.isEmpty())
            emit finished(outcome.estimate);
        else
            emit failed(outcome.failure);
    });
}

BlurEstimation::~BlurEstimation() {
    m_watcher.waitForFinished();
}

bool BlurEstimation::start(const ControllerState& state, engine::KindWanted wanted) {
    if (running() || state.sourceImage.isNull())
        return false;
    // The worker gets its own references to what it reads: opening another picture meanwhile
    // replaces the state's, not these.
    const QImage source = state.sourceImage;
    const QSizeF shown(state.displayWidth, state.displayHeight);
    m_running = true;
    m_watcher.setFuture(QtConcurrent::run([source, shown, wanted] {
        Outcome outcome;
        try {
            outcome.estimate = engine::estimateBlur(shownGreyPicture(source, shown), wanted);
        } catch (const std::exception& error) {
            outcome.failure = QStringLiteral("The blur estimate failed: %1")
                                  .arg(QString::fromLocal8Bit(error.what()));
        }
        return outcome;
    }));
    return true;
}

} // namespace clarovi::jobs
