// A thousand (by default) random presses, drags and clicks on the real window (offscreen), with the
// resident size before, at its peak and once the window has settled. CLAROVI_SOAK_SEED picks the
// sequence, CLAROVI_SOAK_EVENTS its length.
#include "app/main_window.h"
#include "qt_bench_main.h"
#include "soak_driver.h"

#include <QApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

using namespace clarovi::bench;

namespace {

void BM_SoakRandomEvents(benchmark::State& state) {
    QTemporaryDir dir;
    QSettings settings(dir.filePath("settings.ini"), QSettings::IniFormat);
    settings.setValue("firstStartnew2", true);
    clarovi::app::MainWindow window(settings);
    int messages = 0;
    window.setMessageSink([&messages](const QString&) { ++messages; });
    window.show();
    if (!QTest::qWaitForWindowExposed(&window) ||
        !window.setImageInputForPictureTaker(
            QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus.png")) ||
        !waitUntilSettled(window)) {
        state.SkipWithError("the sample did not open");
        return;
    }
    const double before = residentMiB();
    for (auto _ : state) {
        SoakDriver(window, soakSeed()).run(soakEvents());
        if (!waitUntilSettled(window))
            state.SkipWithError("the window did not settle");
    }
    state.counters["rss_before_MiB"] = before;
    state.counters["rss_peak_MiB"] = peakResidentMiB();
    state.counters["rss_after_MiB"] = residentMiB();
    state.counters["messages"] = messages;
}
BENCHMARK(BM_SoakRandomEvents)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(1);

} // namespace

int main(int argc, char** argv) {
    return runQtBenchmarks<QApplication>(argc, argv);
}
