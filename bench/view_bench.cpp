// One frame of the main viewer: a 2048 x 2048 restoration painted into a 1200 x 800 view at fit,
// 100 % and 4x; once with the same picture every frame (as while zooming and panning), once with
// a new picture every frame (as while a slider is dragged and the picture is restored again).
#include "app/image_view.h"
#include "qt_bench_main.h"

#include <QApplication>
#include <QPainter>
#include <benchmark/benchmark.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

using clarovi::app::ImageView;

namespace {

// Noise in the format the window shows every restoration in, opaque ARGB32 premultiplied: the
// same value in the three channels for a grey one.
QImage restoration(bool colour, int seed) {
    cv::theRNG().state = uint64_t(seed + 1);
    cv::Mat noise(2048, 2048, colour ? CV_8UC3 : CV_8UC1);
    cv::randu(noise, 0, 255);
    cv::Mat pixels;
    cv::cvtColor(noise, pixels, colour ? cv::COLOR_BGR2BGRA : cv::COLOR_GRAY2BGRA);
    return QImage(pixels.data, pixels.cols, pixels.rows, int(pixels.step),
                  QImage::Format_ARGB32_Premultiplied)
        .copy();
}

void showAt(ImageView& view, int zoom) {
    view.setZoomable(true);
    view.resize(1200, 800);
    if (zoom == 1)
        view.showActualSize();
    if (zoom == 4) {
        view.showActualSize();
        while (view.zoomFactor() < 4.0)
            view.zoomIn();
    }
}

// Arguments: 0 fit, 1 100 %, 4 4x; grey or colour; a new picture for every frame or not.
void BM_PaintView(benchmark::State& state) {
    const bool colour = state.range(1) != 0, newEachFrame = state.range(2) != 0;
    const QImage pictures[] = {restoration(colour, 0), restoration(colour, 1)};
    ImageView view;
    view.setImage(pictures[0]);
    showAt(view, int(state.range(0)));
    QImage frame(view.size(), QImage::Format_ARGB32_Premultiplied);
    int count = 0;
    for (auto _ : state) {
        if (newEachFrame)
            view.setImage(pictures[++count % 2]);
        view.render(&frame);
        benchmark::DoNotOptimize(frame.constBits());
    }
}
BENCHMARK(BM_PaintView)
    ->ArgNames({"zoom", "colour", "new"})
    ->ArgsProduct({{0, 1, 4}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    return runQtBenchmarks<QApplication>(argc, argv);
}
