#include "restoration_jobs.h"

#include "blur_estimation.h"
#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/log.h"
#include "engine/memory_policy.h"
#include "engine/padding.h"
#include "plane_restoration.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>
#include <QtConcurrent/QtConcurrentMap>
#include <opencv2/imgproc.hpp>

#include <array>
#include <exception>
#include <numeric>

namespace clarovi::jobs {

RestorationJobs::RestorationJobs(ControllerState& state, WindowPort& window)
    : m_state(state), m_window(window), m_tiled(state, window, m_pool) {
    // Kept threads keep their working buffers, so repeated restorations touch no new memory.
    // Three threads let the three colour planes run side by side instead of in two rounds.
    m_pool.setMaxThreadCount(std::max(3, QThread::idealThreadCount()));
    m_pool.setExpiryTimeout(-1);
}

QString RestorationJobs::settingsText() const {
    return settingsLabel(m_window.psfLength(), m_state.currentWidth);
}

void RestorationJobs::MakeMyPSFinitial() {
    m_state.activeImage = m_state.sourceImage;
    m_state.psfImage =
        m_state.MakePsfD(m_window.psfLength(), m_state.currentAngle, m_state.currentWidth, false);
}

void RestorationJobs::MakeMyPSFfinal(double selectedLength, double selectedAngle) {
    m_state.resultImage = QImage();
    m_state.activeImage = m_state.sourceImage;
    m_state.currentWidth = 0.2;
    m_state.currentAngle = selectedAngle;
    m_state.psfImage = m_state.MakePsfD(float(selectedLength), selectedAngle, 0.2, false);
}

void RestorationJobs::dragStep(const std::function<void()>& showDisplayPsf) {
    m_window.showSettings(settingsText());
    m_state.activeImage = m_state.previewSourceImage;
    m_state.autoSilent = true;
    if (showDisplayPsf)
        showDisplayPsf();
    const float length = m_window.psfLength();
    const float side = float(m_state.workingSide);
    const double width = m_state.previewSide * (m_state.currentWidth / m_state.workingSide) * 0.25;
    m_state.psfImage = m_state.MakePsfD(length / side * 100.0f, m_state.currentAngle, width, true);
    if (m_state.keepAspect)
        logLine("#### %f", double(length / side * 128.0f));
    runCompTrue();
}

// Runs one job's computation; a failure is reported to the window and what is shown stays.
template <typename Work> void RestorationJobs::guarded(const char* what, Work&& work) {
    try {
        work();
    } catch (const std::exception& error) {
        m_window.reportError(QStringLiteral("The %1 failed: %2")
                                 .arg(QString::fromUtf8(what), QString::fromUtf8(error.what())));
    }
}

void RestorationJobs::showResultAtDisplaySize() {
    const QImage shown = engine::imageWithImage(
        m_state.resultImage, QSizeF(m_state.displayWidth, m_state.displayHeight));
    // A missing result must not blank the view: later jobs only run while it shows a picture.
    if (!shown.isNull())
        m_window.showResult(shown);
}

// The frame of the whole-picture jobs: the label, the lock unless the job is a quick one, the
// restoration while a picture is shown, and the result at display size.
template <typename Work> void RestorationJobs::wholePictureJob(const char* what, Work&& restore) {
    m_window.showSettings(settingsText());
    const bool quick = m_state.autoSilent;
    if (!quick)
        m_window.lockEverything();
    if (m_window.showsResult())
        guarded(what, restore);
    showResultAtDisplaySize();
    engine::giveBackFreedMemoryAbove(kResidentCeiling);
    if (!quick)
        m_window.unlockEverything();
}

void RestorationJobs::auxTrueNoMultithread() {
    wholePictureJob("restoration", [this] { restoreGreyPreview(); });
}

void RestorationJobs::restoreGreyPreview() {
    m_state.jobImage = m_state.activeImage;
    const QSizeF jobSize(float(m_state.jobImage.width()), float(m_state.jobImage.height()));
    const double mu = m_window.sharpness();

    const int side = jobSide(m_state);
    PaddedPlane padded =
        padForJob(engine::CVGrayscaleMat(m_state.jobImage), side, m_state.padParameters());
    m_state.workMat = std::move(padded.plane);
    const int added = padded.added;
    logLine("ADDED %d so %dx%d", added, m_state.workMat.cols, m_state.workMat.rows);

    const auto kernel = jobKernel(m_state.psfImage, side);
    if (!kernel) {
        logLine("PSF IS EMPTY, RESTORATION SKIPPED");
        return;
    }
    // The restored plane goes into a buffer kept from the last run: a fresh 2048 x 2048 plane
    // of doubles costs more in first-touch page faults than the transforms that fill it.
    engine::deconvolvePlane(mu, fitToSide(m_state.workMat, side), m_restored[0], *kernel);
    const cv::Mat& restored = m_restored[0];
    logLine("NEW S %dx%d", restored.rows - added, restored.cols - added);

    m_state.resultImage = engine::imageWithCVMat(trimmedEightBit(restored, padded.cut));
    if (m_state.keepAspect)
        m_state.resultImage = engine::imageWithImage(m_state.resultImage, jobSize);
}

void RestorationJobs::ComputateIt(bool tiled) {
    auto job = [this, tiled] {
        if (tiled)
            auxTrue();
        else
            auxFalse();
    };
    QCoreApplication* app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread())
        job();
    else
        QMetaObject::invokeMethod(app, job, Qt::BlockingQueuedConnection);
}

void RestorationJobs::auxFalse() {
    wholePictureJob("colour restoration", [this] { restoreColour(); });
    logLine("RESOLUTION %fx%f", double(m_state.resultImage.width()),
            double(m_state.resultImage.height()));
}

void RestorationJobs::restoreColour() {
    m_state.jobImage = m_state.activeImage;
    const QSizeF jobSize(float(m_state.jobImage.width()), float(m_state.jobImage.height()));

    const int side = jobSide(m_state);
    PaddedPlane padded = padForJob(engine::CVMat(m_state.jobImage), side, m_state.padParameters());
    const int added = padded.added;
    logLine("ADDED %d so %dx%d", added, padded.plane.cols, padded.plane.rows);
    // Red, green, blue, X: the order the picture is put back together in.
    cv::cvtColor(padded.plane, padded.plane, cv::COLOR_BGR2RGBA);
    std::array<cv::Mat, 4> planes;
    cv::split(padded.plane, planes.data());
    padded.plane.release();

    const auto kernel = jobKernel(m_state.psfImage, side);
    if (!kernel) {
        logLine("PSF IS EMPTY, RESTORATION SKIPPED");
        return;
    }
    // The three colour planes share one PSF spectrum and are restored at the same time; the X
    // plane carries no picture data, so it is only given the trimmed size.
    const cv::Size restoredSize = side > 0 ? cv::Size(side, side) : planes[0].size();
    const engine::PreparedPsf prepared(*kernel, restoredSize);
    const double mu = m_window.sharpness();
    std::array<int, 3> colours{0, 1, 2};
    std::array<std::exception_ptr, 3> failures;
    QtConcurrent::blockingMap(&m_pool, colours, [&](int c) {
        try {
            engine::deconvolvePlane(mu, fitToSide(planes[c], side), m_restored[c], prepared);
            planes[c] = trimmedEightBit(m_restored[c], padded.cut);
        } catch (...) {
            failures[c] = std::current_exception();
        }
    });
    for (const auto& failure : failures)
        if (failure)
            std::rethrow_exception(failure);
    planes[3] = cv::Mat(planes[0].size(), CV_8U, cv::Scalar(255));
    for (int c = 0; c < 4; ++c)
        logLine("NEW S %dx%d", restoredSize.height - added, restoredSize.width - added);

    cv::Mat merged;
    cv::merge(planes.data(), planes.size(), merged);
    m_state.resultImage = engine::imageWithCVMat(merged);
    if (m_state.keepAspect)
        m_state.resultImage = engine::imageWithImage(m_state.resultImage, jobSize);
}

void RestorationJobs::spectrumCalculation() {
    m_window.lockEverything();
    logLine("thfg");
    if (!m_window.showsResult()) {
        m_window.unlockEverything();
        m_state.spectrumImage = QImage();
        setSpect();
        return;
    }
    m_state.jobImage = m_state.sourceImage;
    ShownSpectrum spectrum;
    guarded("spectrum", [&] {
        spectrum = pictureSpectrum(shownGreyPicture(
            m_state.jobImage, QSizeF(m_state.displayWidth, m_state.displayHeight)));
    });
    m_window.unlockEverything();
    m_state.spectrumImage = spectrum.picture;
    m_state.spectrumBand = spectrum.maxFrequency;
    setSpect();
}

void RestorationJobs::setSpect() {
    m_window.showSpectrum({m_state.spectrumImage, m_state.spectrumBand});
}

} // namespace clarovi::jobs
