#include "engine/blur_estimate.h"
#include "engine/image_bridge.h"

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <QImage>

namespace {

using namespace clarovi::engine;

/// A sample photograph brought to the 2048 x 2048 working size, blurred along a line.
cv::Mat workingPicture() {
    const cv::Mat sample = CVGrayscaleMat(QImage(QStringLiteral(CLAROVI_DATA_DIR "/camera.png")));
    cv::Mat working, blurred;
    cv::resize(sample, working, {2048, 2048}, 0, 0, cv::INTER_CUBIC);
    cv::blur(working, blurred, {25, 1});
    return blurred;
}

void BM_EstimateBlur2048(benchmark::State& state) {
    const cv::Mat picture = workingPicture();
    for (auto _ : state)
        benchmark::DoNotOptimize(estimateBlur(picture));
}
BENCHMARK(BM_EstimateBlur2048)->Unit(benchmark::kMillisecond);

} // namespace
