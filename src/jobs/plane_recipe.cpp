#include "plane_recipe.h"

#include "engine/noise_estimate.h"
#include "engine/psf.h"

#include <QThread>
#include <QThreadPool>

#include <algorithm>
#include <array>
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
    /// onePassFrom: the first plane restored by the filter's one pass rather than in full.
    TileRun(const std::vector<cv::Mat>& sources, std::vector<cv::Mat>& outputs,
            const PlaneWork& work, size_t onePassFrom, const JobControl& control)
        : m_sources(sources), m_outputs(outputs), m_work(work), m_onePassFrom(onePassFrom),
          m_control(control) {
        // A whole plane's restoration becomes its output; tiles are copied into one made here.
        m_outputs.assign(sources.size(), cv::Mat());
        if (work.tiles.size() > 1)
            for (size_t p = 0; p < sources.size(); ++p)
                m_outputs[p].create(sources[p].size(), sources[p].type());
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
        const cv::Mat source = m_sources[plane](tile.restored);
        const cv::Mat restored =
            plane >= m_onePassFrom
                ? m_work.restorer->restoreOnePass(source)
                : m_work.restorer->restore(source, [this] { return cancelled(); });
        if (restored.empty())
            return false;
        // convertTo rounds and saturates to the plane's depth; nothing is rescaled.
        const int type = m_sources[plane].type();
        if (m_work.tiles.size() == 1 && type == CV_32FC1) {
            m_outputs[plane] = restored;
        } else if (m_work.tiles.size() == 1) {
            restored.convertTo(m_outputs[plane], type);
        } else {
            cv::Mat target = m_outputs[plane](tile.core);
            restored(tile.core - tile.restored.tl()).convertTo(target, type);
        }
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
    size_t m_onePassFrom;
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

engine::RestorationFilter filterFor(const Setting& setting, const PlaneRecipe& recipe) {
    using engine::RestorationFilter;
    if (setting.classic)
        return RestorationFilter::Classic;
    return recipe.quick ? RestorationFilter::Regularised : RestorationFilter::EdgePreserving;
}

/// Weights of red, green and blue in a mix of the three.
using Mix = std::array<float, 3>;
constexpr Mix kLuminance{0.299f, 0.587f, 0.114f};
constexpr Mix kBlueDifference{-0.299f, -0.587f, 0.886f};
constexpr Mix kRedDifference{0.701f, -0.587f, -0.114f};

/// The mix of red, green and blue (planes of one depth) within area, in grey levels (float,
/// 0 .. 255 for either depth), a row at a time so that no whole plane is converted.
cv::Mat mixOf(const std::vector<cv::Mat>& rgb, const Mix& mix, const cv::Rect& area) {
    const double levels = 1.0 / engine::unitsPerGreyLevel(rgb.front().depth());
    cv::Mat out(area.size(), CV_32F);
    cv::Mat row;
    for (int r = 0; r < area.height; ++r) {
        float* o = out.ptr<float>(r);
        std::fill(o, o + area.width, 0.0f);
        for (size_t c = 0; c < 3; ++c) {
            rgb[c](area).row(r).convertTo(row, CV_32F, mix[c] * levels);
            const float* v = row.ptr<float>();
            for (int j = 0; j < area.width; ++j)
                o[j] += v[j];
        }
    }
    return out;
}

/// Red, green and blue at depth from the luminance and the blue and red differences (grey
/// levels), rounded and saturated.
std::vector<cv::Mat> coloursOf(const cv::Mat& luminance, const cv::Mat& blueDifference,
                               const cv::Mat& redDifference, int depth) {
    const double units = engine::unitsPerGreyLevel(depth);
    std::vector<cv::Mat> rgb(3);
    for (cv::Mat& plane : rgb)
        plane.create(luminance.size(), CV_MAKETYPE(depth, 1));
    const auto cols = static_cast<size_t>(luminance.cols);
    std::vector<float> red(cols), green(cols), blue(cols);
    for (int r = 0; r < luminance.rows; ++r) {
        const float* y = luminance.ptr<float>(r);
        const float* cb = blueDifference.ptr<float>(r);
        const float* cr = redDifference.ptr<float>(r);
        for (size_t j = 0; j < cols; ++j) {
            red[j] = y[j] + cr[j];
            blue[j] = y[j] + cb[j];
            green[j] = (y[j] - kLuminance[0] * red[j] - kLuminance[2] * blue[j]) / kLuminance[1];
        }
        cv::Mat(1, luminance.cols, CV_32F, red.data())
            .convertTo(rgb[0].row(r), rgb[0].type(), units);
        cv::Mat(1, luminance.cols, CV_32F, green.data())
            .convertTo(rgb[1].row(r), rgb[1].type(), units);
        cv::Mat(1, luminance.cols, CV_32F, blue.data())
            .convertTo(rgb[2].row(r), rgb[2].type(), units);
    }
    return rgb;
}

/// The statistics of a copy: measured on the luminance of its colours (red, green, blue), or on
/// its one grey plane, never colour by colour. Every colour then gets the same smoothing, so that
/// an edge keeps its hue (colours smoothed apart leave fringes) and a grey picture restored in
/// colour is its grey restoration. Only the centre measurePicture looks at is combined.
engine::PictureStatistics measureCopy(const std::vector<cv::Mat>& planes) {
    const cv::Rect middle = engine::measuredCentre(planes.front().size());
    if (planes.size() < 3)
        return engine::measurePicture(planes.front()(middle));
    return engine::measurePicture(mixOf(planes, kLuminance, middle));
}

/// The settings, reach and tiles every plane shares; then, the number of pieces known, how many
/// threads one restoration gets of its own (all of them for a single piece, one when pieces run
/// side by side), and the one restorer all pieces share.
PlaneWork planWork(const std::vector<cv::Mat>& planes, const cv::Mat& kernel,
                   const Setting& setting, const PlaneRecipe& recipe, int threads,
                   size_t planesAtOnce) {
    // The classic filter's weight follows the sharpness alone: nothing to measure for it.
    const bool classic = filterFor(setting, recipe) == engine::RestorationFilter::Classic;
    const engine::PictureStatistics statistics =
        recipe.statistics ? *recipe.statistics
                          : (classic ? engine::PictureStatistics{} : measureCopy(planes));
    PlaneWork work{restorationSettings(setting, recipe, statistics), {}, {}};
    // The reach is measured only when the plane is tiled: it costs more than a small
    // restoration, and a search restores a thousand thumbnails whole.
    const cv::Size size = planes.front().size();
    const bool whole = qint64(size.width) * size.height <= recipe.wholeUpTo;
    work.tiles =
        tilesOf(size, whole ? 0 : engine::PlaneRestorer::reach(kernel, work.settings), recipe);
    const size_t pieces = work.tiles.size() * planesAtOnce;
    work.settings.threads = std::max(1, threads / int(pieces));
    work.restorer = std::make_unique<engine::PlaneRestorer>(
        kernel, work.tiles.front().restored.size(), work.settings);
    return work;
}

/// Restores every tile of sources into outputs, the planes from onePassFrom on by the filter's
/// one pass; false when cancelled.
bool runTiles(const std::vector<cv::Mat>& sources, std::vector<cv::Mat>& outputs,
              const PlaneWork& work, size_t onePassFrom, int threads, const JobControl& control) {
    TileRun run(sources, outputs, work, onePassFrom, control);
    // A pool of its own: the caller may itself be running on the global pool.
    QThreadPool pool;
    for (int h = 1; h < std::min(threads, run.count()); ++h)
        pool.start([&run] { run.work(); });
    run.work();
    pool.waitForDone();
    return run.finish();
}

// Of a colour restoration's time, the luminance's share.
constexpr double kLuminanceShare = 0.8;

/// Colour (red, green, blue) restored as its luminance and the differences of blue and red from
/// it: the luminance, where the eye sees the detail, by the iterative filter, and the
/// differences by its one pass, at a third of the cost of three iterative restorations and with
/// a third of their memory. The change of colours is linear, so that a grey picture restored
/// in colour is its grey restoration, and the luminance restored is what the grey preview shows.
bool restoreLuminanceAndColour(std::vector<cv::Mat>& planes, const cv::Mat& kernel,
                               const Setting& setting, const PlaneRecipe& recipe, int threads,
                               const JobControl& control) {
    const cv::Rect whole(cv::Point(), planes.front().size());
    std::vector<cv::Mat> restored;
    PlaneWork work;
    const Mix* mixes[3] = {&kLuminance, &kBlueDifference, &kRedDifference};
    for (size_t k = 0; k < 3; ++k) {
        // Each mix is made only when its turn comes, so that at most one source is held.
        std::vector<cv::Mat> source{mixOf(planes, *mixes[k], whole)}, output;
        if (k == 0)
            work = planWork(source, kernel, setting, recipe, threads, 1);
        const double start = k == 0 ? 0.0 : kLuminanceShare + (k - 1) * (1 - kLuminanceShare) / 2;
        const double share = k == 0 ? kLuminanceShare : (1 - kLuminanceShare) / 2;
        if (!runTiles(source, output, work, k == 0 ? 1 : 0, threads, stage(control, start, share)))
            return false;
        restored.push_back(output.front());
    }
    planes = coloursOf(restored[0], restored[1], restored[2], planes.front().depth());
    return true;
}

} // namespace

JobControl stage(const JobControl& control, double start, double share) {
    JobControl part = control;
    if (control.progress)
        part.progress = [report = control.progress, start, share](double fraction) {
            report(start + share * fraction);
        };
    return part;
}

engine::RestorationSettings restorationSettings(const Setting& setting, const PlaneRecipe& recipe,
                                                const engine::PictureStatistics& statistics) {
    return {filterFor(setting, recipe), setting.sharpness, statistics,
            setting.blur.kind != engine::BlurKind::OutOfFocus, 1};
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
    if (planes.size() == 3 &&
        filterFor(setting, recipe) == engine::RestorationFilter::EdgePreserving)
        return restoreLuminanceAndColour(planes, kernel, setting, recipe, threads, control);
    const PlaneWork work = planWork(planes, kernel, setting, recipe, threads, planes.size());
    std::vector<cv::Mat> outputs;
    if (!runTiles(planes, outputs, work, planes.size(), threads, control))
        return false;
    planes = std::move(outputs);
    return true;
}

} // namespace clarovi::jobs
