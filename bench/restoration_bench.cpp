#include "engine/deconvolve.h"
#include "engine/plane_restorer.h"
#include "literal_reference.h"

#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include <sys/resource.h>

#include <atomic>
#include <map>
#include <memory>
#include <thread>
#include <vector>

namespace {

using namespace clarovi;
using engine::RestorationFilter;
using reference::diskKernel;

/// A blurred, noisy scene of overlapping disks: content on which the edge-preserving filter's
/// gradient step does its usual share of work.
cv::Mat scene(cv::Size size, int diameter, int seed) {
    cv::Mat picture(size, CV_32F, cv::Scalar(128));
    cv::RNG rng(seed);
    for (int i = 0; i < size.area() / 2000; ++i)
        cv::circle(picture, {rng.uniform(0, size.width), rng.uniform(0, size.height)},
                   rng.uniform(3, 80), cv::Scalar(rng.uniform(20, 235)), cv::FILLED);
    cv::Mat blurred, noise(size, CV_32F), out;
    cv::blur(picture, blurred, {diameter, diameter});
    rng.fill(noise, cv::RNG::NORMAL, 0, 1.5);
    cv::Mat(blurred + noise).convertTo(out, CV_8U);
    return out;
}

engine::RestorationSettings settingsFor(RestorationFilter filter, const cv::Mat& plane,
                                        int threads) {
    engine::RestorationSettings settings;
    settings.filter = filter;
    settings.picture = engine::measurePicture(plane);
    settings.threads = threads;
    return settings;
}

/// The peak resident size of the process, for a run of one benchmark on its own.
double peakMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

const cv::Size kPreview(1024, 640);   // the drag's copy of a 16:10 photograph
const cv::Size kWorking(2048, 1280);  // the release preview's
const cv::Size kFullSize(6000, 4000); // 24 megapixels

// One drag step: a new kernel, so the restorer (kernel spectrum and weights) is made afresh.
void BM_RegularisedDragStep(benchmark::State& state) {
    const cv::Mat plane = scene(kPreview, 5, 1);
    const cv::Mat kernel = diskKernel(5);
    const auto settings = settingsFor(RestorationFilter::Regularised, plane, 2);
    for (auto _ : state) {
        const engine::PlaneRestorer restorer(kernel, plane.size(), settings);
        benchmark::DoNotOptimize(restorer.restore(plane).data);
    }
    state.counters["peak_MiB"] = peakMiB();
}
BENCHMARK(BM_RegularisedDragStep)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same with the restorer made once, as for the auto thumbnails of one setting.
void BM_RegularisedPrepared(benchmark::State& state) {
    const cv::Mat plane = scene(kPreview, 5, 1);
    const engine::PlaneRestorer restorer(diskKernel(5), plane.size(),
                                         settingsFor(RestorationFilter::Regularised, plane, 2));
    for (auto _ : state)
        benchmark::DoNotOptimize(restorer.restore(plane).data);
}
BENCHMARK(BM_RegularisedPrepared)->Unit(benchmark::kMillisecond)->UseRealTime();

// Today's filter at the drag's and the release preview's sizes, kernel spectrum included.
void BM_DeconvolvePlane(benchmark::State& state) {
    const bool preview = state.range(0) == 1024;
    const cv::Mat plane = scene(preview ? kPreview : kWorking, preview ? 5 : 10, 1);
    const cv::Mat kernel = diskKernel(preview ? 5 : 10);
    cv::Mat result;
    for (auto _ : state) {
        engine::deconvolvePlane(0.005, plane, result, kernel);
        benchmark::DoNotOptimize(result.data);
    }
    state.counters["peak_MiB"] = peakMiB();
}
BENCHMARK(BM_DeconvolvePlane)->Arg(1024)->Arg(2048)->Unit(benchmark::kMillisecond)->UseRealTime();

// The release preview: one grey plane of the working copy, restorer made per release.
void BM_EdgePreservingGrey(benchmark::State& state) {
    const cv::Mat plane = scene(kWorking, 10, 2);
    const cv::Mat kernel = diskKernel(10);
    const auto settings =
        settingsFor(RestorationFilter::EdgePreserving, plane, int(state.range(0)));
    for (auto _ : state) {
        const engine::PlaneRestorer restorer(kernel, plane.size(), settings);
        benchmark::DoNotOptimize(restorer.restore(plane).data);
    }
    state.counters["peak_MiB"] = peakMiB();
}
BENCHMARK(BM_EdgePreservingGrey)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

// Three colour planes sharing one restorer: two planes at once on their own threads, then the
// third with both threads.
void BM_EdgePreservingColour(benchmark::State& state) {
    std::vector<cv::Mat> planes;
    for (int c = 0; c < 3; ++c)
        planes.push_back(scene(kWorking, 10, 3 + c));
    const cv::Mat kernel = diskKernel(10);
    auto settings = settingsFor(RestorationFilter::EdgePreserving, planes[1], 1);
    for (auto _ : state) {
        const engine::PlaneRestorer single(kernel, kWorking, settings);
        std::vector<cv::Mat> restored(3);
        std::thread other([&] { restored[0] = single.restore(planes[0]); });
        restored[1] = single.restore(planes[1]);
        other.join();
        settings.threads = 2;
        restored[2] = engine::PlaneRestorer(kernel, kWorking, settings).restore(planes[2]);
        settings.threads = 1;
        benchmark::DoNotOptimize(restored[2].data);
    }
    state.counters["peak_MiB"] = peakMiB();
}
BENCHMARK(BM_EdgePreservingColour)->Unit(benchmark::kMillisecond)->UseRealTime();

/// Restores a plane in tiles of core side core plus the restorer's reach on each side (cut at
/// the frame), two threads taking tiles in turn, one restorer per tile size.
class TiledExport {
  public:
    TiledExport(const cv::Mat& kernel, const engine::RestorationSettings& settings, int core)
        : m_kernel(kernel), m_settings(settings), m_core(core),
          m_reach(engine::PlaneRestorer::reach(kernel, settings)) {}

    void restore(const std::vector<cv::Mat>& planes, std::vector<cv::Mat>& out) {
        std::vector<std::pair<int, cv::Rect>> tiles;
        for (int p = 0; p < int(planes.size()); ++p)
            for (int y = 0; y < planes[0].rows; y += m_core)
                for (int x = 0; x < planes[0].cols; x += m_core)
                    tiles.push_back(
                        {p, cv::Rect(x, y, m_core, m_core) & cv::Rect({}, planes[0].size())});
        out.assign(planes.size(), cv::Mat());
        for (auto& o : out)
            o.create(planes[0].size(), CV_32F);
        for (const auto& [p, core] : tiles)
            restorerFor(withReach(core, planes[0].size()).size());
        std::atomic<int> next{0};
        const auto work = [&] {
            for (int k = next++; k < int(tiles.size()); k = next++) {
                const auto& [p, core] = tiles[size_t(k)];
                const cv::Rect tile = withReach(core, planes[0].size());
                const cv::Mat restored =
                    m_restorers.at({tile.width, tile.height})->restore(planes[size_t(p)](tile));
                restored(core - tile.tl()).copyTo(out[size_t(p)](core));
            }
        };
        std::thread helper(work);
        work();
        helper.join();
    }

  private:
    cv::Rect withReach(cv::Rect core, cv::Size plane) const {
        const cv::Rect grown(core.x - m_reach, core.y - m_reach, core.width + 2 * m_reach,
                             core.height + 2 * m_reach);
        return grown & cv::Rect({}, plane);
    }
    void restorerFor(cv::Size size) {
        auto& slot = m_restorers[{size.width, size.height}];
        if (!slot)
            slot = std::make_unique<engine::PlaneRestorer>(m_kernel, size, m_settings);
    }

    cv::Mat m_kernel;
    engine::RestorationSettings m_settings;
    int m_core;
    int m_reach;
    std::map<std::pair<int, int>, std::unique_ptr<engine::PlaneRestorer>> m_restorers;
};

/// The three planes of a 24-megapixel photograph under the full-size kernel of a 10-pixel disk
/// on the 2048-pixel working copy.
std::vector<cv::Mat> fullSizePlanes() {
    std::vector<cv::Mat> planes;
    for (int c = 0; c < 3; ++c)
        planes.push_back(scene(kFullSize, 29, 6 + c));
    return planes;
}

// A 24-megapixel colour photograph restored in tiles for the export, restorers included.
void BM_EdgePreservingExport24MP(benchmark::State& state) {
    const std::vector<cv::Mat> planes = fullSizePlanes();
    const cv::Mat kernel = diskKernel(29);
    const auto settings = settingsFor(RestorationFilter::EdgePreserving, planes[1], 1);
    std::vector<cv::Mat> out;
    for (auto _ : state) {
        TiledExport tiled(kernel, settings, int(state.range(0)));
        tiled.restore(planes, out);
        benchmark::DoNotOptimize(out[0].data);
    }
    state.counters["reach"] = engine::PlaneRestorer::reach(kernel, settings);
    state.counters["peak_MiB"] = peakMiB();
}
BENCHMARK(BM_EdgePreservingExport24MP)
    ->Arg(1024)
    ->Arg(2048)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The same photograph a whole plane at a time, on both threads: no overlap to restore twice.
void BM_EdgePreservingExport24MPWholePlanes(benchmark::State& state) {
    const std::vector<cv::Mat> planes = fullSizePlanes();
    const cv::Mat kernel = diskKernel(29);
    const auto settings = settingsFor(RestorationFilter::EdgePreserving, planes[1], 2);
    for (auto _ : state) {
        const engine::PlaneRestorer restorer(kernel, kFullSize, settings);
        for (const cv::Mat& plane : planes) {
            cv::Mat restored = restorer.restore(plane), eight;
            restored.convertTo(eight, CV_8U);
            benchmark::DoNotOptimize(eight.data);
        }
    }
    state.counters["peak_MiB"] = peakMiB();
}
BENCHMARK(BM_EdgePreservingExport24MPWholePlanes)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
