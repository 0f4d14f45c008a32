#include "engine/deconvolve.h"
#include "engine/fftw_plans.h"
#include "literal_reference.h"

#include <benchmark/benchmark.h>

#include <opencv2/imgproc.hpp>

#include <sys/resource.h>

namespace {

using namespace clarovi;

cv::Mat randomPlane(int side) {
    cv::Mat plane(side, side, CV_32F);
    cv::RNG rng(side);
    rng.fill(plane, cv::RNG::UNIFORM, 0, 255);
    return plane;
}

/// The callers' PSF: a disk drawn on a canvas as large as the plane, normalised to sum 1.
cv::Mat diskPsf(int side) {
    cv::Mat psf = cv::Mat::zeros(side, side, CV_64F);
    cv::circle(psf, {side / 2, side / 2}, side / 32 + 2, cv::Scalar(1), cv::FILLED);
    return psf / cv::sum(psf)[0];
}

long minorFaults() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_minflt;
}

// First call at a size in this process: every plan is dropped before the call, and these run
// before any other benchmark, in growing sizes, so the working buffers are fresh as well.
void BM_DeconvolvePlaneCold(benchmark::State& state) {
    const int side = static_cast<int>(state.range(0));
    const cv::Mat plane = randomPlane(side);
    const cv::Mat psf = diskPsf(side);
    cv::Mat result;
    for (auto _ : state) {
        state.PauseTiming();
        engine::fftw::clearPlans();
        result.release();
        state.ResumeTiming();
        engine::deconvolvePlane(0.005, plane, result, psf);
        benchmark::DoNotOptimize(result.data);
    }
}

// Steady state: the size was seen before, and the result matrix is reused. Minor page faults per
// call are counted to show that nothing is allocated afresh.
void BM_DeconvolvePlaneWarm(benchmark::State& state) {
    const int side = static_cast<int>(state.range(0));
    const cv::Mat plane = randomPlane(side);
    const cv::Mat psf = diskPsf(side);
    cv::Mat result;
    engine::deconvolvePlane(0.005, plane, result, psf);
    const long faults = minorFaults();
    for (auto _ : state) {
        engine::deconvolvePlane(0.005, plane, result, psf);
        benchmark::DoNotOptimize(result.data);
    }
    state.counters["faults/call"] =
        static_cast<double>(minorFaults() - faults) / static_cast<double>(state.iterations());
}

// One tile of the tiled preview, with the PSF's spectrum shared by all tiles.
void BM_DeconvolvePlanePrepared(benchmark::State& state) {
    const int side = static_cast<int>(state.range(0));
    const cv::Mat plane = randomPlane(side);
    const engine::PreparedPsf prepared(diskPsf(side), plane.size());
    cv::Mat result;
    engine::deconvolvePlane(0.005, plane, result, prepared);
    for (auto _ : state) {
        engine::deconvolvePlane(0.005, plane, result, prepared);
        benchmark::DoNotOptimize(result.data);
    }
}

// The literal steps with OpenCV's complex transforms, buffers reused between calls.
void BM_DeconvolvePlaneLiteral(benchmark::State& state) {
    const int side = static_cast<int>(state.range(0));
    const cv::Mat plane = randomPlane(side);
    const cv::Mat psf = diskPsf(side);
    cv::Mat result;
    reference::Workspace ws;
    reference::deconvolvePlane(0.005, plane, result, psf, ws);
    for (auto _ : state) {
        reference::deconvolvePlane(0.005, plane, result, psf, ws);
        benchmark::DoNotOptimize(result.data);
    }
}

void sizes(benchmark::internal::Benchmark* b) {
    for (const int side : {256, 512, 1024, 2048, 2248, 2358})
        b->Arg(side);
}

BENCHMARK(BM_DeconvolvePlaneCold)
    ->Apply(sizes)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_DeconvolvePlaneWarm)->Apply(sizes)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DeconvolvePlanePrepared)->Arg(256)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DeconvolvePlaneLiteral)
    ->Args({256})
    ->Args({512})
    ->Args({1024})
    ->Args({2048})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
// About a second a call at these sizes, where OpenCV's transform is far from its best.
BENCHMARK(BM_DeconvolvePlaneLiteral)
    ->Args({2248})
    ->Args({2358})
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
