#include "plane_recipe.h"

#include "engine/psf.h"

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

/// The restoration of a copy's planes: one restorer (the copy's statistics set the weights) and
/// the tiles of each plane.
struct PlaneWork {
    engine::RestorationSettings settings;
    std::vector<Tile> tiles;
    std::unique_ptr<engine::PlaneRestorer> restorer;
};

/// Hands out every tile of every plane to the workers and keeps what they report.
class TileRun {
  public:
    TileRun(const std::vector<cv::Mat>& sources, std::vector<cv::Mat>& outputs,
            const PlaneWork& work, const JobControl& control)
        : m_sources(sources), m_outputs(outputs), m_work(work), m_control(control) {
        for (size_t p = 0; p < sources.size(); ++p)
            for (size_t t = 0; t < work.tiles.size(); ++t)
                m_items.emplace_back(p, t);
    }

    int count() const { return int(m_items.size()); }

    /// Restores tiles until none is left, the run is cancelled or a tile failed.
    void work() {
        try {
            for (int k = m_next++; k < count() && !m_stop; k = m_next++) {
                if (!restoreTile(k)) {
                    m_cancelled = true;
                    m_stop = true;
                    return;
                }
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
    bool cancelled() const { return m_control.cancelled && m_control.cancelled(); }

    bool restoreTile(int k) {
        const auto [plane, index] = m_items[size_t(k)];
        const Tile& tile = m_work.tiles[index];
        if (cancelled())
            return false;
        const cv::Mat restored = m_work.restorer->restore(m_sources[plane](tile.restored),
                                                          [this] { return cancelled(); });
        if (restored.empty())
            return false;
        cv::Mat target = m_outputs[plane](tile.core);
        // convertTo rounds and saturates to the plane's depth; nothing is rescaled.
        restored(tile.core - tile.restored.tl()).convertTo(target, m_sources[plane].type());
        return true;
    }

    /// One call at a time, so that what a caller shows never goes back.
    void reportTileDone() {
        const std::lock_guard lock(m_progressMutex);
        ++m_done;
        if (m_control.progress)
            m_control.progress(double(m_done) / count());
    }

    const std::vector<cv::Mat>& m_sources;
    std::vector<cv::Mat>& m_outputs;
    const PlaneWork& m_work;
    const JobControl& m_control;
    std::vector<std::pair<size_t, size_t>> m_items; ///< plane, tile
    std::atomic<int> m_next{0};
    std::mutex m_progressMutex;
    int m_done = 0;
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_cancelled{false};
    std::mutex m_errorMutex;
    std::exception_ptr m_error;
};

/// The statistics of a copy: measured on the luminance of its colours (red, green, blue), or on
/// its one grey plane, never colour by colour. Every colour then gets the same smoothing, so that
/// an edge keeps its hue (colours smoothed apart leave fringes) and a grey picture restored in
/// colour is its grey restoration. Only the centre measurePicture looks at is combined.
engine::PictureStatistics measureCopy(const std::vector<cv::Mat>& planes) {
    const cv::Size size = planes.front().size();
    const cv::Size centre(std::min(size.width, 2048), std::min(size.height, 2048));
    const cv::Rect middle(
        cv::Point((size.width - centre.width) / 2, (size.height - centre.height) / 2), centre);
    if (planes.size() < 3)
        return engine::measurePicture(planes.front()(middle));
    cv::Mat luminance(centre, CV_32F, cv::Scalar(0));
    const double weights[3] = {0.299, 0.587, 0.114};
    for (int c = 0; c < 3; ++c)
        cv::scaleAdd(cv::Mat_<float>(planes[size_t(c)](middle)), weights[c], luminance, luminance);
    return engine::measurePicture(luminance);
}

/// The settings, reach and tiles every plane shares; then, the number of pieces known, how many
/// threads one restoration gets of its own (all of them for a single piece, one when pieces run
/// side by side), and the one restorer all pieces share.
PlaneWork planWork(const std::vector<cv::Mat>& planes, const cv::Mat& kernel,
                   const Setting& setting, const PlaneRecipe& recipe, int threads) {
    const engine::PictureStatistics statistics =
        recipe.statistics ? *recipe.statistics : measureCopy(planes);
    PlaneWork work{restorationSettings(setting, recipe, statistics), {}, {}};
    // The reach is measured only when the plane is tiled: it costs more than a small
    // restoration, and a search restores a thousand thumbnails whole.
    const cv::Size size = planes.front().size();
    const bool whole = qint64(size.width) * size.height <= recipe.wholeUpTo;
    work.tiles =
        tilesOf(size, whole ? 0 : engine::PlaneRestorer::reach(kernel, work.settings), recipe);
    const size_t pieces = work.tiles.size() * planes.size();
    work.settings.threads = std::max(1, threads / int(pieces));
    work.restorer = std::make_unique<engine::PlaneRestorer>(
        kernel, work.tiles.front().restored.size(), work.settings);
    return work;
}

} // namespace

engine::RestorationSettings restorationSettings(const Setting& setting, const PlaneRecipe& recipe,
                                                const engine::PictureStatistics& statistics) {
    using engine::RestorationFilter;
    // The quick pass is the classic filter: the one-pass regularised filter's weight, chosen by
    // the predictive risk, lets the noise and the copy's resampling through at a streak's zeros
    // on reduced copies (a drag step came out 5 dB worse than the blurred copy), where the
    // classic filter's constant bounds them. The regularised pass still starts the iterative one.
    const RestorationFilter filter = setting.classic || recipe.quick
                                         ? RestorationFilter::Classic
                                         : RestorationFilter::EdgePreserving;
    return {filter, setting.sharpness, statistics, 1};
}

std::vector<Tile> tilesOf(cv::Size plane, int reach, const PlaneRecipe& recipe) {
    const cv::Rect whole(cv::Point(), plane);
    if (qint64(plane.width) * plane.height <= recipe.wholeUpTo)
        return {{whole, whole}};
    // A core of at least twice the reach, so that the overlap is no more than the core.
    const int core = std::max({recipe.tileCore, 2 * reach, 1});
    const AxisTiles x = axisTiles(plane.width, reach, core),
                    y = axisTiles(plane.height, reach, core);
    std::vector<Tile> tiles;
    for (size_t j = 0; j < y.cores.size(); ++j)
        for (size_t i = 0; i < x.cores.size(); ++i) {
            const cv::Range cols = x.cores[i], rows = y.cores[j];
            tiles.push_back({cv::Rect(cols.start, rows.start, cols.size(), rows.size()),
                             cv::Rect(x.starts[i], y.starts[j], x.tile, y.tile)});
        }
    return tiles;
}

bool blurBelowAPixel(const engine::BlurOnPhoto& blur, double scale) {
    return engine::MakePsfD(blur, scale).total() == 1;
}

bool restorePlanes(std::vector<cv::Mat>& planes, const Setting& setting, const PlaneRecipe& recipe,
                   const JobControl& control) {
    if (planes.empty() || planes.front().empty())
        return true;
    checkPlanes(planes);
    // Drawn once: the longest kernel at a large photograph's scale takes a while to draw.
    const cv::Mat kernel = engine::MakePsfD(setting.blur, recipe.scale);
    if (kernel.total() == 1)
        return true; // a blur under a pixel: nothing to undo, and nothing sharp to smooth
    const int threads = recipe.threads > 0 ? recipe.threads : QThread::idealThreadCount();
    const PlaneWork work = planWork(planes, kernel, setting, recipe, threads);
    std::vector<cv::Mat> outputs;
    for (const cv::Mat& plane : planes)
        outputs.emplace_back(plane.size(), plane.type());

    TileRun run(planes, outputs, work, control);
    // A pool of its own: the caller may itself be running on the global pool.
    QThreadPool pool;
    for (int h = 1; h < std::min(threads, run.count()); ++h)
        pool.start([&run] { run.work(); });
    run.work();
    pool.waitForDone();
    if (!run.finish())
        return false;
    planes = std::move(outputs);
    return true;
}

} // namespace clarovi::jobs
