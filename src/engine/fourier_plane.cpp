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
template <typename Key> struct PlanCache {
    std::map<Key, fftwf_plan> plans;
    ~PlanCache() {
        for (auto& entry : plans)
            fftwf_destroy_plan(entry.second);
    }
};
PlanCache<std::tuple<int, int, int, Direction>> cache; ///< rows, cols, threads, direction

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

/// Plans of one-dimensional transforms for the split passes: each row's real transform, and a
/// band of columns of the half spectrum. FFTW_UNALIGNED, as rows and bands start anywhere.
enum class Pass { RowsForward, RowsInverse, ColumnsForward, ColumnsInverse };
PlanCache<std::tuple<int, int, int, Pass>> passes; ///< length, band, stride, pass

fftwf_plan passPlan(const SpectralPlane& plane, Pass pass, int band) {
    const std::lock_guard lock(planMutex);
    const int stride = 2 * plane.halfCols();
    auto& slot =
        passes.plans[{pass <= Pass::RowsInverse ? plane.cols() : plane.rows(), band, stride, pass}];
    if (slot)
        return slot;
    fftwf_plan_with_nthreads(1);
    const unsigned flags = FFTW_ESTIMATE | FFTW_UNALIGNED;
    float* real = plane.row(0);
    auto* spectrum = reinterpret_cast<fftwf_complex*>(real);
    int n = plane.cols();
    switch (pass) {
    case Pass::RowsForward:
        slot =
            fftwf_plan_many_dft_r2c(1, &n, 1, real, nullptr, 1, 0, spectrum, nullptr, 1, 0, flags);
        break;
    case Pass::RowsInverse:
        slot =
            fftwf_plan_many_dft_c2r(1, &n, 1, spectrum, nullptr, 1, 0, real, nullptr, 1, 0, flags);
        break;
    default: {
        n = plane.rows();
        const int step = stride / 2; // complex numbers from one row to the next
        const int sign = pass == Pass::ColumnsForward ? FFTW_FORWARD : FFTW_BACKWARD;
        slot = fftwf_plan_many_dft(1, &n, band, spectrum, nullptr, step, 1, spectrum, nullptr, step,
                                   1, sign, flags);
    }
    }
    if (!slot)
        throw std::runtime_error("FFTW could not plan a transform");
    return slot;
}

/// The transforms of the rows [begin, end) (real to half spectrum or back) one by one.
void rowPass(const SpectralPlane& plane, Pass pass, int begin, int end) {
    const fftwf_plan plan = passPlan(plane, pass, 1);
    for (int i = begin; i < end; ++i) {
        float* real = plane.row(i);
        auto* spectrum = reinterpret_cast<fftwf_complex*>(real);
        if (pass == Pass::RowsForward)
            fftwf_execute_dft_r2c(plan, real, spectrum);
        else
            fftwf_execute_dft_c2r(plan, spectrum, real);
    }
}

/// The transforms along the columns [begin, end) of the half spectrum, as one band.
void columnPass(const SpectralPlane& plane, Pass pass, int begin, int end) {
    if (end <= begin)
        return;
    auto* band = reinterpret_cast<fftwf_complex*>(plane.spectrumRow(0) + begin);
    fftwf_execute_dft(passPlan(plane, pass, end - begin), band, band);
}

// Planes of at most this many pixels are transformed in split passes (see splitTransform).
constexpr double kLargestSplitPlane = 1.5e6;

/// Whether a plane of this size is transformed in split passes, on any number of threads, so
/// that its results do not depend on the threads. FFTW's own threaded two-dimensional plans took
/// 4.2 ms for a live preview's 1080 x 750 plane on two threads, no quicker than on one, and the
/// split passes 2.5 ms; on a 24-megapixel plane the passes along its columns, far apart in
/// memory, lost a third to FFTW's plans.
bool splitsTransforms(cv::Size size) {
    return double(size.width) * size.height <= kLargestSplitPlane;
}

/// The two-dimensional transform split into passes of one-dimensional ones (the rows, then
/// bands of the half spectrum's columns) run on threads of OpenCV's pool.
void splitTransform(SpectralPlane& plane, Direction direction, int threads) {
    const auto rows = [&](Pass pass) {
        forRanges(plane.rows(), threads, [&](int b, int e) { rowPass(plane, pass, b, e); });
    };
    const auto columns = [&](Pass pass) {
        forRanges(plane.halfCols(), threads, [&](int b, int e) { columnPass(plane, pass, b, e); });
    };
    if (direction == Direction::Forward) {
        rows(Pass::RowsForward);
        columns(Pass::ColumnsForward);
    } else {
        columns(Pass::ColumnsInverse);
        rows(Pass::RowsInverse);
    }
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
    if (splitsTransforms(m_size)) {
        splitTransform(*this, Direction::Forward, threads);
        return;
    }
    float* real = m_data.get();
    fftwf_execute_dft_r2c(planFor(*this, Direction::Forward, std::max(threads, 1)), real,
                          reinterpret_cast<fftwf_complex*>(real));
}

void SpectralPlane::inverse(int threads) {
    if (splitsTransforms(m_size)) {
        splitTransform(*this, Direction::Inverse, threads);
        return;
    }
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
