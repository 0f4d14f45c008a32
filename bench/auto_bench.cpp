// One auto restoration at each border stage, the whole searches on the sample (over the grid and
// around an estimate, Fixed size on), the command line's motion search with its files against
// the search alone, and the deconvolutions at the sizes a step restores.
#include "auto/auto_search.h"
#include "engine/deconvolve.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"
#include "jobs/job_fixtures.h"
#include "qt_bench_main.h"

#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <optional>

#include <sys/resource.h>

using namespace clarovi::autosearch;
using clarovi::testing::OpenedPicture;

namespace {

const QImage& sample() {
    static const QImage picture(QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus.png"));
    return picture;
}

SearchInput sampleInput(bool keepAspect, bool motion,
                        std::optional<clarovi::jobs::SliderSetting> around = {}) {
    OpenedPicture opened(sample());
    opened.state.keepAspect = keepAspect;
    opened.state.motionBlur = motion;
    return snapshotOf(opened.state, around);
}

// Arguments: the length (1, 23, 48 or 73 start the four border stages) and keepAspect.
void BM_ComputateAuto(benchmark::State& state) {
    AutoSearch search(sampleInput(state.range(1) != 0, false));
    search.counters.length = int(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(search.ComputateAuto());
}
BENCHMARK(BM_ComputateAuto)
    ->ArgsProduct({{1, 23, 48, 73}, {1, 0}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_Deconvolve(benchmark::State& state) {
    const int side = int(state.range(0));
    cv::Mat plane(side, side, CV_8U);
    cv::randu(plane, 0, 255);
    const QImage psf = clarovi::engine::MakePsfD(5, 0, 0.2, false, false, QSize(512, 512));
    const cv::Mat kernel = *clarovi::engine::normalizedKernel(clarovi::engine::CVGrayscaleMat(psf));
    cv::Mat result;
    for (auto _ : state)
        clarovi::engine::deconvolvePlane(0.0035, plane, result, kernel);
}
BENCHMARK(BM_Deconvolve)
    ->Arg(512)
    ->Arg(712)
    ->Arg(768)
    ->Arg(824)
    ->Arg(880)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void wholeSearch(benchmark::State& state, bool motion,
                 std::optional<clarovi::jobs::SliderSetting> around = {}) {
    for (auto _ : state) {
        AutoSearch search(sampleInput(true, motion, around));
        search.run([](const ProgressUpdate&) {});
        benchmark::DoNotOptimize(search.results.size());
    }
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_rss_MiB"] = double(usage.ru_maxrss) / 1024.0;
}

void BM_SearchOutOfFocus(benchmark::State& state) {
    wholeSearch(state, false);
}
BENCHMARK(BM_SearchOutOfFocus)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_SearchMotion(benchmark::State& state) {
    wholeSearch(state, true);
}
BENCHMARK(BM_SearchMotion)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// Lengths 0.7 to 1.3 times 40 a pixel apart, at 13 angles: 325 restorations.
void BM_SearchMotionAroundEstimate(benchmark::State& state) {
    wholeSearch(state, true, clarovi::jobs::SliderSetting{40.0f, 20.0});
}
BENCHMARK(BM_SearchMotionAroundEstimate)->Unit(benchmark::kMillisecond)->UseRealTime();

// The whole `clarovi-cli --auto DIR --motion` command, thumbnails and index written: compare
// with BM_SearchMotion, the search alone.
void BM_CliAutoMotion(benchmark::State& state) {
    for (auto _ : state) {
        QTemporaryDir folder;
        QProcess cli;
        cli.start(QStringLiteral(CLAROVI_CLI),
                  {QStringLiteral("--auto"), folder.filePath(QStringLiteral("search")),
                   QStringLiteral("--motion"),
                   QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus.png")});
        if (!cli.waitForFinished(300'000) || cli.exitCode() != 0)
            state.SkipWithError("clarovi-cli failed");
    }
}
BENCHMARK(BM_CliAutoMotion)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

} // namespace

int main(int argc, char** argv) {
    return runQtBenchmarks<QGuiApplication>(argc, argv);
}
