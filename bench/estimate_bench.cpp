#include "engine/blur_estimate.h"
#include "engine/image_bridge.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <QImage>

namespace {

using namespace clarovi::engine;

/// The sample photograph brought to a working size, blurred along a horizontal line.
cv::Mat workingPicture(cv::Size size) {
    const cv::Mat sample = CVGrayscaleMat(QImage(QStringLiteral(CLAROVI_DATA_DIR "/camera.png")));
    cv::Mat working, blurred;
    cv::resize(sample, working, size, 0, 0, cv::INTER_CUBIC);
    cv::blur(working, blurred, {25, 1});
    return blurred;
}

void BM_EstimateBlur(benchmark::State& state) {
    const cv::Mat picture =
        workingPicture({static_cast<int>(state.range(0)), static_cast<int>(state.range(1))});
    for (auto _ : state)
        benchmark::DoNotOptimize(estimateBlur(picture));
}
// A square photograph and a 3:2 one at the 2048-pixel working size.
BENCHMARK(BM_EstimateBlur)->Args({2048, 2048})->Args({2048, 1365})->Unit(benchmark::kMillisecond);

// A region of the 3:2 picture, as a user marks one; argument: its side.
void BM_EstimateBlurInRegion(benchmark::State& state) {
    const cv::Mat picture = workingPicture({2048, 1365});
    const int side = static_cast<int>(state.range(0));
    const EstimateRequest request{KindWanted::Any, {700, 400, side, side}, 1.0};
    for (auto _ : state)
        benchmark::DoNotOptimize(estimateBlur(picture, request));
}
BENCHMARK(BM_EstimateBlurInRegion)->Arg(512)->Arg(256)->Unit(benchmark::kMillisecond);

} // namespace
