#include "plane_recipe.h"

#include "engine/psf.h"
#include "engine/restoration.h"

#include <QThread>
#include <QThreadPool>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <stdexcept>

namespace clarovi::jobs {

namespace {

/// The cores along one axis of length pixels and where the tile of each starts; every tile is
/// tile pixels long, so that one prepared restorer serves them all.
struct AxisTiles {
    int tile = 0;
    std::vector<cv::Range> cores;
    std::vector<int> starts;
};

AxisTiles axisTiles(int length, int reach, int core) {
    const int tile = core + 2 * reach;
    if (length <= tile)
        return {length, {cv::Range(0, length)}, {0}};
    const int count = (length + core - 1) / core;
    AxisTiles axis{tile, {}, {}};
    for (int i = 0; i < count; ++i) {
        const int begin = int(qint64(i) * length / count),
                  end = int(qint64(i + 1) * length / count);
        axis.cores.emplace_back(begin, end);
        // Reach on both sides of the core, except where the tile meets the photograph's frame,
        // which the whole plane's restoration meets there too.
        axis.starts.push_back(std::clamp(begin - reach, 0, length - tile));
    }
    return axis;
}

void checkPlanes(const std::vector<cv::Mat>& planes) {
    for (const cv::Mat& plane : planes) {
        if (plane.type() != CV_8UC1 && plane.type() != CV_16UC1)
            throw std::invalid_argument("restorePlanes: planes must be CV_8UC1 or CV_16UC1");
        if (plane.size() != planes.front().size())
            throw std::invalid_argument("restorePlanes: planes differ in size");
    }
}

/// Hands out every tile of every plane to the workers and keeps what they report.
class TileRun {
  public:
    TileRun(const std::vector<cv::Mat>& sources, std::vector<cv::Mat>& outputs,
            const std::vector<Tile>& tiles, const engine::PlaneRestorer& restorer,
            const JobControl& control)
        : m_sources(sources), m_outputs(outputs), m_tiles(tiles), m_restorer(restorer),
          m_control(control), m_total(int(sources.size() * tiles.size())) {}

    /// Restores tiles until none is left, the run is cancelled or a tile failed.
    void work() {
        try {
            for (int k = m_next++; k < m_total && !m_stop; k = m_next++) {
                if (m_control.cancelled && m_control.cancelled()) {
                    m_cancelled = true;
                    m_stop = true;
                    return;
                }
                restoreTile(k);
                reportTileDone();
            }
        } catch (const std::exception&) {
            const std::lock_guard lock(m_errorMutex);
            m_error = std::current_exception();
            m_stop = true;
        }
    }

    /// Whether every tile was restored; rethrows what a tile threw.
    bool finish() const {
        if (m_error)
            std::rethrow_exception(m_error);
        return !m_cancelled;
    }

  private:
    void restoreTile(int k) {
        const Tile& tile = m_tiles[size_t(k) % m_tiles.size()];
        const size_t plane = size_t(k) / m_tiles.size();
        const cv::Mat restored = m_restorer.restore(m_sources[plane](tile.restored));
        cv::Mat target = m_outputs[plane](tile.core);
        // convertTo rounds and saturates to the plane's depth; nothing is rescaled.
        restored(tile.core - tile.restored.tl()).convertTo(target, m_sources[plane].type());
    }

    /// One call at a time, so that what a caller shows never goes back.
    void reportTileDone() {
        const std::lock_guard lock(m_progressMutex);
        ++m_done;
        if (m_control.progress)
            m_control.progress(double(m_done) / m_total);
    }

    const std::vector<cv::Mat>& m_sources;
    std::vector<cv::Mat>& m_outputs;
    const std::vector<Tile>& m_tiles;
    const engine::PlaneRestorer& m_restorer;
    const JobControl& m_control;
    const int m_total;
    std::atomic<int> m_next{0};
    std::mutex m_progressMutex;
    int m_done = 0;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_cancelled{false};
    std::mutex m_errorMutex;
    std::exception_ptr m_error;
};

} // namespace

std::vector<Tile> tilesOf(cv::Size plane, int kernelSide, int tileCore) {
    if (tileCore < 1)
        throw std::invalid_argument("tilesOf: a tile's core must hold a pixel");
    const int reach = engine::PlaneRestorer::reach({kernelSide, kernelSide});
    const AxisTiles x = axisTiles(plane.width, reach, tileCore),
                    y = axisTiles(plane.height, reach, tileCore);
    std::vector<Tile> tiles;
    for (size_t j = 0; j < y.cores.size(); ++j)
        for (size_t i = 0; i < x.cores.size(); ++i) {
            const cv::Range cols = x.cores[i], rows = y.cores[j];
            tiles.push_back({cv::Rect(cols.start, rows.start, cols.size(), rows.size()),
                             cv::Rect(x.starts[i], y.starts[j], x.tile, y.tile)});
        }
    return tiles;
}

bool restorePlanes(std::vector<cv::Mat>& planes, const Setting& setting, const PlaneRecipe& recipe,
                   const JobControl& control) {
    if (planes.empty() || planes.front().empty())
        return true;
    checkPlanes(planes);
    const cv::Mat kernel = engine::MakePsfD(setting.blur, recipe.scale);
    const std::vector<Tile> tiles =
        tilesOf(planes.front().size(), std::max(kernel.rows, kernel.cols), recipe.tileCore);
    const engine::PlaneRestorer restorer(kernel, tiles.front().restored.size(),
                                         {setting.sharpness});
    std::vector<cv::Mat> outputs;
    for (const cv::Mat& plane : planes)
        outputs.emplace_back(plane.size(), plane.type());

    TileRun run(planes, outputs, tiles, restorer, control);
    const int threads = recipe.threads > 0 ? recipe.threads : QThread::idealThreadCount();
    const int items = int(planes.size() * tiles.size());
    // A pool of its own: the caller may itself be running on the global pool.
    QThreadPool pool;
    for (int h = 1; h < std::min(threads, items); ++h)
        pool.start([&run] { run.work(); });
    run.work();
    pool.waitForDone();
    if (!run.finish())
        return false;
    planes = std::move(outputs);
    return true;
}

} // namespace clarovi::jobs
