// A drag step of the length slider end to end on the real window (offscreen), beside the
// restoration of one tile; and the run that restores every tile at the working size.
#include "app/gallery_window.h"
#include "app/main_window.h"
#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"
#include "qt_bench_main.h"
#include "soak_driver.h"

#include <QApplication>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <sys/resource.h>

using clarovi::app::MainWindow;
using clarovi::bench::residentMiB;
using clarovi::bench::waitFor;

namespace {

struct OpenWindow {
    QTemporaryDir dir;
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    std::unique_ptr<MainWindow> window;

    explicit OpenWindow(bool motion) {
        settings.setValue("firstStartnew2", true);
        window = std::make_unique<MainWindow>(settings);
        window->show();
        window->setImageInputForPictureTaker(
            QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus.png"));
        // The controls come back one event-loop pass after the first restoration.
        auto* motionSwitch = window->findChild<QPushButton*>("movedSw");
        while (!motionSwitch->isEnabled())
            QApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        if (motion)
            motionSwitch->click();
        QApplication::processEvents();
    }
};

void dragSteps(benchmark::State& state, bool motion) {
    OpenWindow open(motion);
    auto* length = open.window->findChild<clarovi::app::SliderField*>("psfCountD");
    int step = 0;
    for (auto _ : state) {
        length->setFloatValue(float(10 + step++ % 40));
        open.window->sequences().LengthNew(false);
    }
}

void BM_DragStepOutOfFocus(benchmark::State& state) {
    dragSteps(state, false);
}
BENCHMARK(BM_DragStepOutOfFocus)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DragStepMotion(benchmark::State& state) {
    dragSteps(state, true);
}
BENCHMARK(BM_DragStepMotion)->Unit(benchmark::kMillisecond)->UseRealTime();

// A slider release's restoration end to end, with the view at 200 %: the job, the result shown,
// the view painted.
void BM_ReleaseRestorationZoomed(benchmark::State& state) {
    OpenWindow open(false);
    MainWindow& window = *open.window;
    window.view()->showActualSize();
    window.view()->zoomIn();
    window.view()->zoomIn();
    for (auto _ : state) {
        window.state().activeImage = window.state().sourceImage;
        window.state().autoSilent = false;
        window.restorationJobs().auxTrueNoMultithread();
        window.view()->repaint();
        QApplication::processEvents();
    }
    state.counters["zoom"] = window.view()->zoomFactor();
}
BENCHMARK(BM_ReleaseRestorationZoomed)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DeconvolveTile256(benchmark::State& state) {
    cv::Mat tile(256, 256, CV_8U);
    cv::randu(tile, 0, 255);
    const QImage psf = clarovi::engine::MakePsfD(5, 0, 0.2, true, false, {});
    const cv::Mat kernel = *clarovi::engine::normalizedKernel(clarovi::engine::CVGrayscaleMat(psf));
    cv::Mat result;
    for (auto _ : state)
        clarovi::engine::deconvolvePlane(0.0035, tile, result, kernel);
}
BENCHMARK(BM_DeconvolveTile256)->Unit(benchmark::kMillisecond)->UseRealTime();

// keepAspect back on after the aspect control turned it off: all 16 tiles restored at 2048.
void BM_TilesAtWorkingSize(benchmark::State& state) {
    OpenWindow open(false);
    for (auto _ : state) {
        open.window->state().keepAspect = true;
        open.window->state().autoSilent = false;
        open.window->restorationJobs().runCompTrue();
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_rss_MiB"] = double(usage.ru_maxrss) / 1024.0;
}
BENCHMARK(BM_TilesAtWorkingSize)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// Three motion searches in a row, each ended with "Keep current settings": what the process holds
// before the first and after the last, once the gallery has closed.
void BM_MemoryAfterMotionSearches(benchmark::State& state) {
    OpenWindow open(true);
    MainWindow& window = *open.window;
    waitFor([&] { return window.findChild<QPushButton*>("autobtn")->isEnabled(); });
    const double before = residentMiB();
    double peak = before;
    for (auto _ : state) {
        for (int run = 0; run < 3; ++run) {
            window.autoBtn();
            waitFor([&] { return window.gallery() && window.gallery()->isVisible(); }, 600000);
            peak = std::max(peak, residentMiB());
            window.gallery()->findChild<QPushButton*>("keepBtn")->click();
            waitFor([&] { return !window.gallery() || !window.gallery()->isVisible(); });
            QApplication::processEvents(); // what waits for the gallery to have closed
        }
    }
    state.counters["rss_before_MiB"] = before;
    state.counters["rss_with_gallery_MiB"] = peak;
    state.counters["rss_after_MiB"] = residentMiB();
    state.counters["after_over_before"] = residentMiB() / before;
}
BENCHMARK(BM_MemoryAfterMotionSearches)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

} // namespace

int main(int argc, char** argv) {
    return runQtBenchmarks<QApplication>(argc, argv);
}
