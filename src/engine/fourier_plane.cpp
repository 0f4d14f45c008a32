#include "fourier_plane.h"

#include "memory_policy.h"

#include <opencv2/core/utility.hpp>

#include <fftw3.h>

#include <cmath>
#include <map>
#include <mutex>
#include <numbers>
#include <stdexcept>
#include <tuple>

namespace clarovi::engine {

namespace {

enum class Direction { Forward, Inverse };

// FFTW's planner is not thread-safe; executing a finished plan on other arrays of the same
// layout and alignment is. The single-precision library keeps a planner of its own.
std::mutex planMutex;

// Plans live as long as the process and are given back at its end, so that leak checkers see
// none lost. FFTW_ESTIMATE plans a size in milliseconds without touching the arrays; measuring
// would cost seconds for each new size, and each PSF length gives a new one.
struct PlanCache {
    std::map<std::tuple<int, int, int, Direction>, fftwf_plan> plans;
    ~PlanCache() {
        for (auto& entry : plans)
            fftwf_destroy_plan(entry.second);
    }
};
PlanCache cache;

fftwf_plan planFor(const SpectralPlane& plane, Direction direction, int threads) {
    const std::lock_guard lock(planMutex);
    static const bool threadsReady = fftwf_init_threads() != 0;
    auto& slot = cache.plans[{plane.rows(), plane.cols(), threads, direction}];
    if (!slot) {
        fftwf_plan_with_nthreads(threadsReady ? threads : 1);
        float* real = plane.row(0);
        auto* spectrum = reinterpret_cast<fftwf_complex*>(real);
        slot =
            direction == Direction::Forward
                ? fftwf_plan_dft_r2c_2d(plane.rows(), plane.cols(), real, spectrum, FFTW_ESTIMATE)
                : fftwf_plan_dft_c2r_2d(plane.rows(), plane.cols(), spectrum, real, FFTW_ESTIMATE);
    }
    if (!slot)
        throw std::runtime_error("FFTW could not plan a transform");
    return slot;
}

} // namespace

SpectralPlane::SpectralPlane(cv::Size size) : m_size(size) {
    if (size.width < 1 || size.height < 1)
        throw std::invalid_argument("a spectral plane needs at least one row and column");
    const auto count = static_cast<std::size_t>(size.height) * static_cast<std::size_t>(stride());
    m_data.reset(static_cast<float*>(allocateWorkingMemory(count * sizeof(float))));
}

void SpectralPlane::Free::operator()(float* p) const {
    freeWorkingMemory(p);
}

cv::Mat SpectralPlane::real() const {
    return {m_size, CV_32F, m_data.get(), static_cast<std::size_t>(stride()) * sizeof(float)};
}

void SpectralPlane::forward(int threads) {
    float* real = m_data.get();
    fftwf_execute_dft_r2c(planFor(*this, Direction::Forward, std::max(threads, 1)), real,
                          reinterpret_cast<fftwf_complex*>(real));
}

void SpectralPlane::inverse(int threads) {
    float* real = m_data.get();
    fftwf_execute_dft_c2r(planFor(*this, Direction::Inverse, std::max(threads, 1)),
                          reinterpret_cast<fftwf_complex*>(real), real);
}

void forRanges(int count, int threads, const std::function<void(int, int)>& body) {
    if (threads <= 1 || count < 2) {
        body(0, count);
        return;
    }
    const int parts = std::min(threads, count);
    cv::parallel_for_(
        cv::Range(0, parts),
        [&](const cv::Range& range) {
            for (int p = range.start; p < range.end; ++p)
                body(static_cast<int>(static_cast<long long>(count) * p / parts),
                     static_cast<int>(static_cast<long long>(count) * (p + 1) / parts));
        },
        parts);
}

std::vector<float> differencePower(int n, int count) {
    std::vector<float> power(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k)
        power[static_cast<std::size_t>(k)] =
            static_cast<float>(2.0 - 2.0 * std::cos(2.0 * std::numbers::pi * k / n));
    return power;
}

} // namespace clarovi::engine
