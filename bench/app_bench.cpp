// A drag step of the length slider and a release's restoration end to end on the real window
// (offscreen), and the memory three motion searches leave behind.
#include "app/gallery_window.h"
#include "app/main_window.h"
#include "qt_bench_main.h"
#include "soak_driver.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

#include <sys/resource.h>

using clarovi::app::MainWindow;
using clarovi::bench::residentMiB;
using clarovi::bench::waitFor;

namespace {

struct OpenWindow {
    QTemporaryDir dir;
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    std::unique_ptr<MainWindow> window;

    // The sample enlarged to 2400 x 1600: its working copy is 2048 pixels long and its live copy
    // 1024, as a camera's photograph has them.
    explicit OpenWindow(bool motion) {
        settings.setValue("firstStartnew2", true);
        const QString photo = dir.filePath("photo.png");
        QImage(QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus.png"))
            .scaled(2400, 1600, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
            .save(photo);
        window = std::make_unique<MainWindow>(settings);
        window->show();
        window->setImageInputForPictureTaker(photo);
        waitFor([this] { return jobLabel()->text() == QLatin1String("Ready"); });
        if (motion)
            window->findChild<QPushButton*>("movedSw")->click();
        waitFor([this] { return jobLabel()->text() == QLatin1String("Ready"); });
    }
    QLabel* jobLabel() const { return window->findChild<QLabel*>("jobLabel"); }
    clarovi::app::ImageView* view() const {
        return window->findChild<clarovi::app::ImageView*>("img01");
    }
};

void dragSteps(benchmark::State& state, bool motion) {
    OpenWindow open(motion);
    auto* length = open.window->findChild<clarovi::app::SliderField*>("psfCountD");
    int step = 0;
    for (auto _ : state) {
        length->setFloatValue(float(10 + step++ % 40));
        emit length->dragged();
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

// A setting released and restored at once end to end (the mode switch, back and forth), with
// the view at 200 %: the job, the result shown, the view painted.
void BM_ReleaseRestorationZoomed(benchmark::State& state) {
    OpenWindow open(false);
    open.view()->showActualSize();
    open.view()->zoomIn();
    open.view()->zoomIn();
    auto* motionSwitch = open.window->findChild<QPushButton*>("movedSw");
    for (auto _ : state) {
        motionSwitch->click();
        open.view()->repaint();
        QApplication::processEvents();
    }
    state.counters["zoom"] = open.view()->zoomFactor();
}
BENCHMARK(BM_ReleaseRestorationZoomed)->Unit(benchmark::kMillisecond)->UseRealTime();

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
            const auto gallery = [&] { return window.findChild<QWidget*>("loadingWindow"); };
            waitFor([&] { return gallery() && gallery()->isVisible(); }, 600000);
            peak = std::max(peak, residentMiB());
            gallery()->findChild<QPushButton*>("keepBtn")->click();
            waitFor([&] { return !gallery(); });
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
