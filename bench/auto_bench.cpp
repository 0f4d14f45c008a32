// One thumbnail at a short and a long blur, the whole searches on the sample (over the grid and
// around an estimate), and the command line's motion search with its files against the search
// alone.
#include "auto/auto_search.h"
#include "engine/image_bridge.h"
#include "jobs/job_fixtures.h"
#include "jobs/plane_recipe.h"
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

SearchInput sampleInput(bool motion, std::optional<clarovi::engine::BlurEstimate> around = {}) {
    OpenedPicture opened(sample());
    clarovi::jobs::Setting setting;
    setting.blur.kind =
        motion ? clarovi::engine::BlurKind::Motion : clarovi::engine::BlurKind::OutOfFocus;
    return {opened.state.previewSourceImage, setting, around, opened.state.analysisGrey, {},
            opened.state.photoScale(),       false};
}

// One thumbnail's restoration, the small copy of the sample with a disk; argument: its diameter.
void BM_Thumbnail(benchmark::State& state) {
    const cv::Mat small = clarovi::engine::CVGrayscaleMat(
        sample().scaled(512, 512, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    const clarovi::jobs::Setting setting{
        {clarovi::engine::BlurKind::OutOfFocus, double(state.range(0))}};
    for (auto _ : state) {
        std::vector<cv::Mat> planes{small};
        clarovi::jobs::restorePlanes(planes, setting, {0.25, true, {}, 1});
        benchmark::DoNotOptimize(planes.front().data);
    }
}
BENCHMARK(BM_Thumbnail)->Arg(8)->Arg(80)->Unit(benchmark::kMillisecond)->UseRealTime();

void wholeSearch(benchmark::State& state, bool motion,
                 std::optional<clarovi::engine::BlurEstimate> around = {}, bool guessing = true) {
    SearchInput input = sampleInput(motion, around);
    if (!guessing)
        input.analysisGrey = cv::Mat();
    for (auto _ : state) {
        AutoSearch search(input);
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

// Around the sample's own best guess of a streak, estimated first.
void BM_SearchMotion(benchmark::State& state) {
    wholeSearch(state, true);
}
BENCHMARK(BM_SearchMotion)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// The longest search: no guess to go by, every streak then twice refined.
void BM_SearchMotionWithoutGuess(benchmark::State& state) {
    wholeSearch(state, true, std::nullopt, false);
}
BENCHMARK(BM_SearchMotionWithoutGuess)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);

// Around a clear estimate of a streak.
void BM_SearchMotionAroundEstimate(benchmark::State& state) {
    wholeSearch(
        state, true,
        clarovi::engine::BlurEstimate{{clarovi::engine::BlurKind::Motion, 40, 20}, 0.8, {}});
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
