#include "engine/image_bridge.h"
#include "engine/psf.h"

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

namespace {

using namespace clarovi::engine;

const QSize kWorking(2048, 2048);

/// A 2048 x 2048 working picture as the open path makes it (premultiplied ARGB32), with content
/// that no conversion can shortcut.
QImage workingPicture() {
    cv::Mat rgbx(kWorking.height(), kWorking.width(), CV_8UC4);
    cv::randu(rgbx, 0, 256);
    return imageWithImage(imageWithCVMat(rgbx), QSizeF(kWorking));
}

// The kernels of the longest blurs the sliders allow, at the scale of a 24-megapixel photograph.
void BM_MakePsfD_LongestDisk24MP(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(MakePsfD({BlurKind::OutOfFocus, 100, 0, 1}, 6000.0 / 2048));
}
BENCHMARK(BM_MakePsfD_LongestDisk24MP)->Unit(benchmark::kMillisecond);

void BM_MakePsfD_LongestStreak24MP(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(MakePsfD({BlurKind::Motion, 100, 30, 5}, 6000.0 / 2048));
}
BENCHMARK(BM_MakePsfD_LongestStreak24MP)->Unit(benchmark::kMillisecond);

void BM_CVGrayscaleMat_2048(benchmark::State& state) {
    const QImage picture = workingPicture();
    for (auto _ : state)
        benchmark::DoNotOptimize(CVGrayscaleMat(picture));
}
BENCHMARK(BM_CVGrayscaleMat_2048)->Unit(benchmark::kMillisecond);

void BM_CVMat_2048(benchmark::State& state) {
    const QImage picture = workingPicture();
    for (auto _ : state)
        benchmark::DoNotOptimize(CVMat(picture));
}
BENCHMARK(BM_CVMat_2048)->Unit(benchmark::kMillisecond);

// The slow path: a picture with straight alpha has to be premultiplied first.
void BM_CVMat_2048_StraightAlpha(benchmark::State& state) {
    const QImage picture = workingPicture().convertToFormat(QImage::Format_RGBA8888);
    for (auto _ : state)
        benchmark::DoNotOptimize(CVMat(picture));
}
BENCHMARK(BM_CVMat_2048_StraightAlpha)->Unit(benchmark::kMillisecond);

void BM_imageWithImage_4000x3000_to_2048(benchmark::State& state) {
    cv::Mat rgbx(3000, 4000, CV_8UC4);
    cv::randu(rgbx, 0, 256);
    const QImage photo = imageWithCVMat(rgbx).convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state)
        benchmark::DoNotOptimize(imageWithImage(photo, QSizeF(2048, 2048)));
}
BENCHMARK(BM_imageWithImage_4000x3000_to_2048)->Unit(benchmark::kMillisecond);

} // namespace
