// The full-size export's restoration of a large picture, beside the literal whole-plane one it
// replaces. Run one benchmark per process (--benchmark_filter) for a meaningful peak_rss_MiB.
#include "jobs/full_size_restoration.h"
#include "literal_reference.h"

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

jobs::BlurSetting diskOfLength10() {
    jobs::BlurSetting setting;
    setting.length = 10;
    setting.mu = 0.0035;
    setting.pad = {10.0f, 0.0035f, 0.002f, 0.008f};
    return setting;
}

void reportPeakResident(benchmark::State& state) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_rss_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void fullSize(benchmark::State& state, cv::Size size, int channels) {
    const std::vector<cv::Mat> picture = syntheticPicture(size, channels);
    const QSize source(size.width, size.height);
    const cv::Mat kernel = *jobs::fullSizeKernel(diskOfLength10(), source);
    const int border = jobs::fullSizeBorder(diskOfLength10(), source);
    for (auto _ : state) {
        state.PauseTiming();
        std::vector<cv::Mat> planes;
        for (const cv::Mat& plane : picture)
            planes.push_back(plane.clone());
        state.ResumeTiming();
        jobs::restoreFullSize(planes, kernel, 0.0035, border);
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

// Each channel padded by the border and restored whole with OpenCV's complex transforms.
void BM_LiteralWholePlane24MP(benchmark::State& state) {
    const std::vector<cv::Mat> picture = syntheticPicture({6000, 4000}, 3);
    const QSize source(6000, 4000);
    const cv::Mat kernel = *jobs::fullSizeKernel(diskOfLength10(), source);
    const int border = jobs::fullSizeBorder(diskOfLength10(), source);
    reference::Workspace workspace;
    for (auto _ : state) {
        for (const cv::Mat& plane : picture) {
            cv::Mat padded, restored, output;
            cv::copyMakeBorder(plane, padded, border, border, border, border, cv::BORDER_REPLICATE);
            reference::deconvolvePlane(0.0035, padded, restored, kernel, workspace);
            restored(cv::Rect(border, border, plane.cols, plane.rows)).convertTo(output, CV_16U);
            benchmark::DoNotOptimize(output.data);
        }
    }
    reportPeakResident(state);
}
BENCHMARK(BM_LiteralWholePlane24MP)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
