#include "engine/image_bridge.h"
#include "engine/padding.h"
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

void BM_MakePsfD_Working(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(MakePsfD(10.0f, -45.0, 0.2, false, true, kWorking));
}
BENCHMARK(BM_MakePsfD_Working)->Unit(benchmark::kMillisecond);

void BM_MakePsfD_SmallCanvas(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(MakePsfD(5.0f, -45.0, 0.2, true, true, kWorking));
}
BENCHMARK(BM_MakePsfD_SmallCanvas)->Unit(benchmark::kMillisecond);

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

void BM_addPad_2048(benchmark::State& state) {
    cv::Mat plane(2048, 2048, CV_8UC1);
    cv::randu(plane, 0, 256);
    const PadParameters parameters{
        .eventLength = 10.0f, .muStart = 0.0035f, .muMin = 0.002f, .muMax = 0.008f};
    int added = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(addPad(plane, 0.1, &added, parameters));
}
BENCHMARK(BM_addPad_2048)->Unit(benchmark::kMillisecond);

void BM_imageWithImage_4000x3000_to_2048(benchmark::State& state) {
    cv::Mat rgbx(3000, 4000, CV_8UC4);
    cv::randu(rgbx, 0, 256);
    const QImage photo = imageWithCVMat(rgbx).convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (auto _ : state)
        benchmark::DoNotOptimize(imageWithImage(photo, QSizeF(2048, 2048)));
}
BENCHMARK(BM_imageWithImage_4000x3000_to_2048)->Unit(benchmark::kMillisecond);

} // namespace
