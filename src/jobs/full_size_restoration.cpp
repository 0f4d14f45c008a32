#include "full_size_restoration.h"

#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/padding.h"
#include "engine/psf.h"

#include <QThread>
#include <QThreadPool>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <exception>
#include <limits>
#include <mutex>
#include <stdexcept>

namespace clarovi::jobs {

namespace {

// Sides FFTW transforms fast (2^a 3^b 5^c), from which the one that restores the fewest pixels
// is chosen: tiles of 2304 cover 6000 x 4000 in 3 x 2 where tiles of 2048 need 4 x 3. The
// largest keeps a tile's buffers per thread near 300 MiB.
constexpr int kTileSides[] = {1024, 1536, 2048, 2304, 2560, 3072};
// The Wiener filter's response reaches beyond the PSF; an overlap of this many PSF extents plus
// a margin keeps each tile's core as the whole-plane restoration has it (within about 70 dB).
constexpr int kOverlapPerExtent = 2;
constexpr int kOverlapMargin = 64;

/// The canvas side that holds the PSF of setting at scale s with a pixel of antialiasing to
/// spare; even, as the working canvases are, so that the shape's centre falls where theirs does.
int psfCanvasSide(const BlurSetting& setting, double s) {
    const double length = setting.length * s;
    const double halfWidth = 0.5 * setting.width * s;
    // The motion line runs along the diagonal of a square of side length, turned about its centre.
    const double radius =
        setting.motion ? std::hypot(length / std::sqrt(2.0), halfWidth) : 0.5 * length;
    return 2 * (static_cast<int>(std::ceil(radius)) + 1);
}

/// How the tiles lie along one axis of the plane. The tiles read the padded plane as the
/// whole-plane restoration sees it: the border replicated, the last row or column repeated up to
/// the transform size, and that repeated periodically.
struct Axis {
    int length = 0; ///< source pixels
    int border = 0; ///< replicated pixels before and after
    int tile = 0;   ///< tile side
    int lead = 0;   ///< tile pixels before the core
    int core = 0;   ///< core pixels per tile (the last may have fewer)
    int count = 0;  ///< tiles along the axis
    int period = 0; ///< period of the padded plane as the transform repeats it
    int padded() const { return length + 2 * border; }

    cv::Range coreRange(int i) const { return {i * core, std::min(length, (i + 1) * core)}; }
    /// The source index that tile i's pixel t reads.
    int sourceIndex(int i, int t) const {
        const int start = border + i * core - lead; // in padded coordinates
        int p = (start + t) % period;
        if (p < 0)
            p += period;
        return std::clamp(std::min(p, padded() - 1) - border, 0, length - 1);
    }
};

Axis makeAxis(int length, int border, int tileSide, int overlap, int kernelSide) {
    Axis axis;
    axis.length = length;
    axis.border = border;
    if (axis.padded() <= tileSide) {
        // One tile: the padded plane itself, as the whole-plane restoration takes it (grown to
        // the kernel when the kernel is larger, which the restoration needs).
        axis.tile = std::max(axis.padded(), kernelSide);
        axis.lead = border;
        axis.core = length;
        axis.count = 1;
        axis.period = axis.tile;
        return axis;
    }
    axis.tile = tileSide;
    axis.lead = overlap;
    const int widest = tileSide - 2 * overlap;
    axis.count = (length + widest - 1) / widest;
    axis.core = (length + axis.count - 1) / axis.count; // evens out the last tile
    axis.period = cv::getOptimalDFTSize(axis.padded());
    return axis;
}

/// The axes of the tiling that restores the fewest pixels, all tiles of one size. The overlap
/// grows with the kernel and the tile with it, so that a core is at least half its tile.
std::pair<Axis, Axis> chooseTiling(cv::Size plane, int border, cv::Size kernel) {
    const int overlap = kOverlapPerExtent * std::max(kernel.width, kernel.height) + kOverlapMargin;
    std::pair<Axis, Axis> best;
    double fewest = std::numeric_limits<double>::infinity();
    const auto consider = [&](int side) {
        const Axis x = makeAxis(plane.width, border, side, overlap, kernel.width);
        const Axis y = makeAxis(plane.height, border, side, overlap, kernel.height);
        const double pixels = double(x.tile) * y.tile * x.count * y.count;
        if (pixels < fewest) {
            fewest = pixels;
            best = {x, y};
        }
    };
    for (const int side : kTileSides)
        if (side >= 4 * overlap)
            consider(side);
    if (!std::isfinite(fewest))
        consider(cv::getOptimalDFTSize(4 * overlap));
    return best;
}

std::vector<int> sourceIndices(const Axis& axis, int i) {
    std::vector<int> indices(axis.tile);
    for (int t = 0; t < axis.tile; ++t)
        indices[t] = axis.sourceIndex(i, t);
    return indices;
}

template <typename T>
void gatherRows(const cv::Mat& source, const std::vector<int>& rows, const std::vector<int>& cols,
                cv::Mat& tile) {
    for (int r = 0; r < tile.rows; ++r) {
        const T* in = source.ptr<T>(rows[r]);
        T* out = tile.ptr<T>(r);
        for (int c = 0; c < tile.cols; ++c)
            out[c] = in[cols[c]];
    }
}

/// Tile (i, j) of source as the padded plane shows it, at the source's depth.
void gatherTile(const cv::Mat& source, const Axis& x, const Axis& y, int i, int j, cv::Mat& tile) {
    tile.create(y.tile, x.tile, source.type());
    const std::vector<int> rows = sourceIndices(y, j);
    const std::vector<int> cols = sourceIndices(x, i);
    if (source.depth() == CV_8U)
        gatherRows<uchar>(source, rows, cols, tile);
    else
        gatherRows<ushort>(source, rows, cols, tile);
}

void checkPlanes(const std::vector<cv::Mat>& planes) {
    for (const cv::Mat& plane : planes) {
        if (plane.type() != CV_8UC1 && plane.type() != CV_16UC1)
            throw std::invalid_argument("restoreFullSize: planes must be CV_8UC1 or CV_16UC1");
        if (plane.size() != planes.front().size())
            throw std::invalid_argument("restoreFullSize: planes differ in size");
    }
}

/// Hands out the tiles of every plane to the workers and keeps what they report.
class TileRun {
  public:
    TileRun(const std::vector<cv::Mat>& sources, std::vector<cv::Mat>& outputs,
            const engine::PreparedPsf& psf, double mu, Axis x, Axis y, const JobControl& control)
        : m_sources(sources), m_outputs(outputs), m_psf(psf), m_mu(mu), m_x(x), m_y(y),
          m_control(control), m_total(static_cast<int>(sources.size()) * x.count * y.count) {}

    /// Restores tiles until none is left, the run is cancelled or a tile failed.
    void work() {
        cv::Mat tile, restored;
        try {
            for (int k = m_next++; k < m_total && !m_stop; k = m_next++) {
                if (m_control.cancelled && m_control.cancelled()) {
                    m_cancelled = true;
                    m_stop = true;
                    return;
                }
                restoreTile(k, tile, restored);
                reportTileDone();
            }
        } catch (...) {
            const std::lock_guard lock(m_errorMutex);
            m_error = std::current_exception();
            m_stop = true;
        }
    }

    bool finish() const {
        if (m_error)
            std::rethrow_exception(m_error);
        return !m_cancelled;
    }

  private:
    /// One call at a time, so that what a caller shows never goes back.
    void reportTileDone() {
        const std::lock_guard lock(m_progressMutex);
        ++m_done;
        if (m_control.progress)
            m_control.progress(static_cast<double>(m_done) / m_total);
    }

    void restoreTile(int k, cv::Mat& tile, cv::Mat& restored) {
        const int perPlane = m_x.count * m_y.count;
        const int i = k % perPlane % m_x.count;
        const int j = k % perPlane / m_x.count;
        const cv::Mat& source = m_sources[k / perPlane];
        gatherTile(source, m_x, m_y, i, j, tile);
        engine::deconvolvePlane(m_mu, tile, restored, m_psf);
        const cv::Range cols = m_x.coreRange(i);
        const cv::Range rows = m_y.coreRange(j);
        const cv::Rect core(m_x.lead, m_y.lead, cols.size(), rows.size());
        // convertTo saturates to the depth's range and rounds; nothing is rescaled.
        cv::Mat target = m_outputs[k / perPlane](rows, cols);
        restored(core).convertTo(target, source.type());
    }

    const std::vector<cv::Mat>& m_sources;
    std::vector<cv::Mat>& m_outputs;
    const engine::PreparedPsf& m_psf;
    double m_mu;
    Axis m_x, m_y;
    const JobControl& m_control;
    int m_total;
    std::atomic<int> m_next{0};
    std::mutex m_progressMutex;
    int m_done = 0;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_cancelled{false};
    std::mutex m_errorMutex;
    std::exception_ptr m_error;
};

} // namespace

double sourceScale(QSize sourceSize, int workingSide) {
    if (workingSide <= 0)
        throw std::invalid_argument("sourceScale: the working side must be positive");
    return static_cast<double>(std::max(sourceSize.width(), sourceSize.height())) / workingSide;
}

std::optional<cv::Mat> fullSizeKernel(const BlurSetting& setting, QSize sourceSize) {
    const double s = sourceScale(sourceSize, setting.workingSide);
    const int side = psfCanvasSide(setting, s);
    const QImage psf =
        engine::MakePsfD(static_cast<float>(setting.length * s), setting.angle, setting.width * s,
                         /*smallCanvas*/ false, setting.motion, {side, side});
    return engine::normalizedKernel(engine::CVGrayscaleMat(psf));
}

int fullSizeBorder(const BlurSetting& setting, QSize sourceSize) {
    // The working picture is a square of side workingSide, so its rows stand for the longer side
    // that the picture was brought to; the source's longer side keeps the border in proportion
    // whichever way the source is turned.
    const int longer = std::max(sourceSize.width(), sourceSize.height());
    return engine::borderWidth(engine::padMultiplier(setting.pad), longer);
}

bool restoreFullSize(std::vector<cv::Mat>& planes, const cv::Mat& kernel, double mu, int border,
                     const JobControl& control) {
    if (planes.empty() || planes.front().empty())
        return true;
    checkPlanes(planes);
    const auto [x, y] = chooseTiling(planes.front().size(), border, kernel.size());
    const engine::PreparedPsf psf(kernel, cv::Size(x.tile, y.tile));

    std::vector<cv::Mat> outputs;
    for (const cv::Mat& plane : planes)
        outputs.emplace_back(plane.size(), plane.type());
    TileRun run(planes, outputs, psf, mu, x, y, control);
    // A pool of its own: the caller may itself be running on the global pool.
    QThreadPool pool;
    const int helpers = std::max(0, QThread::idealThreadCount() - 1);
    for (int h = 0; h < helpers; ++h)
        pool.start([&run] { run.work(); });
    run.work();
    pool.waitForDone();
    if (!run.finish())
        return false;
    planes = std::move(outputs);
    return true;
}

} // namespace clarovi::jobs
