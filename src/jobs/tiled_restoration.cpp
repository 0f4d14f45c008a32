#include "tiled_restoration.h"

#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/log.h"
#include "engine/memory_policy.h"
#include "engine/padding.h"
#include "plane_restoration.h"

#include <QElapsedTimer>
#include <QSemaphore>
#include <QThread>

#include <cmath>
#include <exception>
#include <optional>

namespace clarovi::jobs {

cv::Rect tileRect(int k, int side) {
    const int q = side / 4;
    const int h = side / 2;
    const int x[] = {0, q, h, h + q};
    const int y[] = {0, q, 2 * q, 3 * q};
    return {x[k % 4], y[k / 4], q, q};
}

/// What the tile tasks of one run share, read-only but for the PSF spectrum, which the first
/// task that needs it makes once the padded tile size is known.
struct TiledRestoration::Run {
    float mu = 0;
    int side = 0; ///< the side tiles are brought to; 0 keeps their padded size
    engine::PadParameters pad;
    cv::Mat kernel;
    std::once_flag prepareOnce;
    std::unique_ptr<engine::PreparedPsf> prepared;
    std::array<std::exception_ptr, kTileCount> failures;
    QSemaphore finished;
};

TiledRestoration::TiledRestoration(ControllerState& state, WindowPort& window, QThreadPool& pool)
    : m_state(state), m_window(window), m_pool(pool) {}

// Every run waits for its own tasks: nothing of this object is in use once a run has returned.
TiledRestoration::~TiledRestoration() = default;

bool TiledRestoration::tiledIdle() const {
    std::lock_guard lock(m_monitor);
    return m_tiledIdle;
}

void TiledRestoration::myString() {
    std::lock_guard lock(m_monitor);
    m_tiledIdle = true;
}

bool TiledRestoration::tryStart() {
    std::lock_guard lock(m_monitor);
    if (!m_tiledIdle)
        return false;
    m_tiledIdle = false;
    return true;
}

void TiledRestoration::auxTrue() {
    if (!tryStart()) {
        logLine("TRIED TO START BUT OTHER...");
        return;
    }
    QElapsedTimer elapsed;
    elapsed.start();
    m_window.showSettings(settingsLabel(m_window.psfLength(), m_state.currentWidth));
    const bool quick = m_state.autoSilent;
    if (!quick)
        m_window.lockEverything();
    drawRunPsf();

    if (m_window.showsResult()) {
        bool joined = false;
        try {
            joined = restoreTiles();
        } catch (const std::exception& error) {
            m_window.reportError(
                QStringLiteral("The live preview failed: %1").arg(QString::fromUtf8(error.what())));
        }
        myString();
        if (joined)
            m_state.resultImage = engine::imageWithCVMat(joinedTiles());
    } else {
        myString();
    }
    showAtDisplaySize();
    engine::giveBackFreedMemoryAbove(kResidentCeiling);
    logLine("######TIME ELAPSED %f", elapsed.nsecsElapsed() / 1e9);
    if (!quick)
        m_window.unlockEverything();
}

// The run's PSF on the fixed tile canvas, its length brought from the working scale to the
// preview scale.
void TiledRestoration::drawRunPsf() {
    const int length = int(m_window.psfLength());
    m_state.autoCounters.length = length;
    const float tileLength =
        float(m_state.previewSide) * float(double(length) / double(m_state.workingSide));
    m_state.psfImage =
        m_state.MakePsfD(tileLength, m_state.currentAngle, m_state.currentWidth, true);
    logLine("NEW PSF IS %f", double(tileLength));
}

bool TiledRestoration::restoreTiles() {
    m_state.jobImage = m_state.previewSourceImage;
    auto run = std::make_shared<Run>();
    run->mu = m_window.sharpness();
    run->side = m_state.keepAspect
                    ? (m_state.autoSilent ? m_state.previewSide / 4 : m_state.workingSide)
                    : 0;
    run->pad = m_state.padParameters();
    std::optional<cv::Mat> kernel = jobKernel(m_state.psfImage, run->side);
    if (!kernel) {
        logLine("PSF IS EMPTY, RESTORATION SKIPPED");
        return false;
    }
    run->kernel = *kernel;

    m_state.workMat = engine::CVGrayscaleMat(m_state.jobImage);
    for (int k = 0; k < kTileCount; ++k)
        m_tileInputs[k] = m_state.workMat(tileRect(k, m_state.workMat.rows));

    m_tilesDone.store(0);
    for (int k = 0; k < kTileCount; ++k) {
        m_pool.start([this, k, run] { restoreTile(k, run); });
        logLine("THREAD RUN");
    }
    logLine("calc");
    run->finished.acquire(kTileCount);
    for (const auto& failure : run->failures)
        if (failure)
            std::rethrow_exception(failure);
    return m_tilesDone.load(std::memory_order_acquire) == kTileCount;
}

// On a pool thread: reads only its own input tile and the run, writes only its own output.
void TiledRestoration::restoreTile(int k, const std::shared_ptr<Run>& run) {
    try {
        const PaddedPlane padded = padForJob(m_tileInputs[k], run->side, run->pad);
        const cv::Mat plane = fitToSide(padded.plane, run->side);
        std::call_once(run->prepareOnce, [&] {
            run->prepared = std::make_unique<engine::PreparedPsf>(run->kernel, plane.size());
        });
        logLine("######I SIZE %d", plane.cols);
        cv::Mat restored;
        engine::deconvolvePlane(run->mu, plane, restored, *run->prepared);
        m_tileOutputs[k] = trimmedEightBit(restored, padded.cut);
        m_tilesDone.fetch_add(1, std::memory_order_release);
    } catch (...) {
        run->failures[k] = std::current_exception();
    }
    run->finished.release();
}

cv::Mat TiledRestoration::joinedTiles() const {
    std::array<cv::Mat, 4> rows;
    for (int r = 0; r < 4; ++r)
        cv::hconcat(&m_tileOutputs[4 * r], 4, rows[r]);
    cv::Mat whole;
    cv::vconcat(rows.data(), rows.size(), whole);
    return whole;
}

// The joined picture at the picture's own aspect: a longer side of previewSide while dragging,
// the display size otherwise. It replaces the result itself.
void TiledRestoration::showAtDisplaySize() {
    QSizeF size(m_state.displayWidth, m_state.displayHeight);
    if (m_state.autoSilent && !m_state.resultImage.isNull())
        size = scaledDisplaySize(m_state.displayWidth, m_state.displayHeight, m_state.previewSide);
    m_state.resultImage = engine::imageWithImage(m_state.resultImage, size);
    if (!m_state.resultImage.isNull())
        m_window.showResult(m_state.resultImage);
    logLine("######FINAL SIZE %fx%f", double(m_state.resultImage.width()),
            double(m_state.resultImage.height()));
}

} // namespace clarovi::jobs
