#include "restoration_jobs.h"

#include "blur_estimation.h"
#include "engine/image_bridge.h"
#include "engine/log.h"
#include "engine/memory_policy.h"

#include <array>
#include <exception>

namespace clarovi::jobs {

namespace {

// The live preview keeps one thread for the window's own work while the slider is dragged.
constexpr int kDragThreads = 2;

void logRestored(const QImage& restored) {
    logLine("NEW S %dx%d", restored.height(), restored.width());
}

} // namespace

RestorationJobs::RestorationJobs(ControllerState& state, WindowPort& window)
    : m_state(state), m_window(window) {}

// Runs one job's computation; a failure is reported to the window and what is shown stays.
template <typename Work> void RestorationJobs::guarded(const char* what, Work&& work) {
    try {
        work();
    } catch (const std::exception& error) {
        m_window.reportError(QStringLiteral("The %1 failed: %2")
                                 .arg(QString::fromUtf8(what), QString::fromUtf8(error.what())));
    }
}

// The frame of every job: the label, the lock unless the job is a quick one, the restoration
// while a picture is shown, and the result.
template <typename Work>
void RestorationJobs::wholePictureJob(const char* what, const Setting& setting, bool quick,
                                      Work&& restore) {
    m_window.showSettings(settingsLabel(setting));
    if (!quick)
        m_window.lockEverything();
    if (m_window.showsResult() && !m_state.sourceImage.isNull()) {
        guarded(what, [&] { m_state.resultImage = restore(); });
        // A missing result must not blank the view: later jobs only run while it shows a picture.
        if (!m_state.resultImage.isNull())
            m_window.showResult(m_state.resultImage);
    }
    engine::giveBackFreedMemoryAbove(kResidentCeiling);
    if (!quick)
        m_window.unlockEverything();
}

QImage RestorationJobs::restoredGrey(const cv::Mat& grey, const Setting& setting,
                                     const PlaneRecipe& recipe) {
    std::vector<cv::Mat> planes{grey};
    restorePlanes(planes, setting, recipe);
    return engine::imageWithCVMat(planes.front());
}

void RestorationJobs::dragPreview(const Setting& setting) {
    wholePictureJob("live preview", setting, true, [&] {
        const cv::Mat& grey = m_state.previewGrey;
        return restoredGrey(
            grey, setting,
            {engine::workingScale(grey.size()), true, m_state.previewStatistics, kDragThreads});
    });
}

void RestorationJobs::auxTrueNoMultithread(const Setting& setting) {
    wholePictureJob("restoration", setting, false, [&] {
        const cv::Mat& grey = m_state.workingGrey;
        const QImage restored =
            restoredGrey(grey, setting,
                         {engine::workingScale(grey.size()), false, m_state.workingStatistics, 0});
        logRestored(restored);
        return restored;
    });
}

// Red, green and blue are restored side by side; the picture stays opaque.
QImage RestorationJobs::restoredColour(const Setting& setting) {
    std::array<cv::Mat, 4> bgrx;
    cv::split(engine::CVMat(m_state.sourceImage), bgrx.data());
    std::vector<cv::Mat> planes{bgrx[2], bgrx[1], bgrx[0]};
    restorePlanes(planes, setting,
                  {engine::workingScale(planes.front().size()), false, m_state.workingStatistics});
    planes.push_back(bgrx[3]);
    cv::Mat rgbx;
    cv::merge(planes, rgbx);
    return engine::imageWithCVMat(rgbx);
}

void RestorationJobs::auxFalse(const Setting& setting) {
    wholePictureJob("colour restoration", setting, false, [&] {
        const QImage restored = restoredColour(setting);
        logRestored(restored);
        return restored;
    });
    logLine("RESOLUTION %fx%f", double(m_state.resultImage.width()),
            double(m_state.resultImage.height()));
}

void RestorationJobs::spectrumCalculation() {
    m_window.lockEverything();
    ShownSpectrum spectrum;
    if (!m_state.analysisGrey.empty())
        guarded("spectrum", [&] { spectrum = pictureSpectrum(m_state.analysisGrey); });
    m_window.unlockEverything();
    m_state.spectrumImage = spectrum.picture;
    m_state.spectrumBand = spectrum.maxFrequency;
    setSpect();
}

void RestorationJobs::setSpect() {
    m_window.showSpectrum({m_state.spectrumImage, m_state.spectrumBand});
}

} // namespace clarovi::jobs
