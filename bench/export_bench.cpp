// The full-size export's restoration of a large picture. Run one benchmark per process
// (--benchmark_filter) for a meaningful peak_rss_MiB.
#include "jobs/plane_recipe.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <sys/resource.h>

namespace {

using namespace clarovi;

/// Edges, text and a fine texture: what a photograph's tiles hold, in 16 bits.
std::vector<cv::Mat> syntheticPicture(cv::Size size, int channels) {
    std::vector<cv::Mat> planes;
    for (int c = 0; c < channels; ++c) {
        cv::Mat plane(size, CV_16U);
        cv::RNG(c + 1).fill(plane, cv::RNG::UNIFORM, 20000, 24000);
        for (int k = 0; k < 200; ++k) {
            const cv::Point at(k * 977 % size.width, (k + c) * 613 % size.height);
            cv::rectangle(plane, at, at + cv::Point(400, 300), cv::Scalar(k % 3 * 30000), 9);
            cv::putText(plane, "export", at, cv::FONT_HERSHEY_SIMPLEX, 4.0, cv::Scalar(60000), 6);
        }
        planes.push_back(plane);
    }
    return planes;
}

const jobs::Setting kDiskOfLength10{{engine::BlurKind::OutOfFocus, 10}};

void reportPeakResident(benchmark::State& state) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_rss_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void fullSize(benchmark::State& state, cv::Size size, int channels) {
    const std::vector<cv::Mat> picture = syntheticPicture(size, channels);
    for (auto _ : state) {
        std::vector<cv::Mat> planes = picture;
        jobs::PlaneRecipe recipe;
        recipe.scale = engine::workingScale(size);
        jobs::restorePlanes(planes, kDiskOfLength10, recipe);
    }
    reportPeakResident(state);
}

void BM_FullSize24MP(benchmark::State& state) {
    fullSize(state, {6000, 4000}, 3);
}
BENCHMARK(BM_FullSize24MP)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FullSize100MPGrey(benchmark::State& state) {
    fullSize(state, {10000, 10000}, 1);
}
BENCHMARK(BM_FullSize100MPGrey)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
