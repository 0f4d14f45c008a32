// The restoration jobs end to end, beside the one deconvolution they are built around.
#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"
#include "jobs/job_fixtures.h"

#include <benchmark/benchmark.h>

using clarovi::testing::OpenedPicture;
namespace engine = clarovi::engine;

namespace {

const QImage& photo() {
    static const QImage picture = clarovi::testing::scenePicture(3000, 2000);
    return picture;
}

void BM_DeconvolvePlane2048(benchmark::State& state) {
    OpenedPicture opened(photo());
    const cv::Mat& plane = opened.state.workingGrey;
    const cv::Mat kernel = engine::MakePsfD(opened.window.controls.blur, 1.0);
    cv::Mat result;
    for (auto _ : state)
        engine::deconvolvePlane(0.0035, plane, result, kernel);
}
BENCHMARK(BM_DeconvolvePlane2048)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PreviewJob2048(benchmark::State& state) {
    OpenedPicture opened(photo());
    for (auto _ : state)
        opened.jobs.auxTrueNoMultithread(opened.window.controls);
}
BENCHMARK(BM_PreviewJob2048)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ColourJob2048(benchmark::State& state) {
    OpenedPicture opened(photo());
    for (auto _ : state)
        opened.jobs.auxFalse(opened.window.controls);
}
BENCHMARK(BM_ColourJob2048)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SpectrumJob(benchmark::State& state) {
    OpenedPicture opened(photo());
    for (auto _ : state)
        opened.jobs.spectrumCalculation();
}
BENCHMARK(BM_SpectrumJob)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
