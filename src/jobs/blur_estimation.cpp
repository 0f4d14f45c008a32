#include "blur_estimation.h"

#include "engine/image_bridge.h"
#include "engine/welch_power.h"
#include "slider_ranges.h"

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

EstimatedSetting settingOf(const engine::BlurEstimate& estimate) {
    EstimatedSetting found{estimate, estimate.blur, false, false};
    if (!(estimate.blur.length > 0))
        return found;
    found.clear = estimate.confidence >= engine::kClearBlurConfidence;
    found.beyondRange = estimate.blur.length > kLengthRange.maximum;
    found.blur.length = std::clamp(estimate.blur.length, double(kLengthRange.minimum),
                                   double(kLengthRange.maximum));
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
    if (running() || state.analysisGrey.empty())
        return false;
    // The worker gets its own references to what it reads: opening another picture meanwhile
    // replaces the state's, not these.
    const cv::Mat grey = state.analysisGrey;
    const engine::EstimateRequest request = state.estimateRequest(wanted);
    m_running = true;
    m_watcher.setFuture(QtConcurrent::run([grey, request] {
        Outcome outcome;
        try {
            outcome.estimate = engine::estimateBlur(grey, request);
        } catch (const std::exception& error) {
            outcome.failure = QStringLiteral("The blur estimate failed: %1")
                                  .arg(QString::fromLocal8Bit(error.what()));
        }
        return outcome;
    }));
    return true;
}

} // namespace clarovi::jobs
