#include "fftw_plans.h"

#include <map>
#include <mutex>
#include <stdexcept>
#include <tuple>

namespace clarovi::engine::detail {

namespace {

enum class Direction { Forward, Inverse };
using PlanKey = std::tuple<Direction, int, int, int>;

struct PlanCache {
    // FFTW's planner is not thread-safe; executing a finished plan is.
    std::mutex mutex;
    std::map<PlanKey, fftw_plan> plans;
    bool threadsReady = false;

    ~PlanCache() {
        for (auto& [key, plan] : plans)
            fftw_destroy_plan(plan);
    }
};

PlanCache& cache() {
    static PlanCache instance;
    return instance;
}

fftw_plan makePlan(Direction direction, int rows, int cols) {
    const std::size_t half = std::size_t(rows) * std::size_t(cols / 2 + 1);
    FftwBuffer<double> real(static_cast<double*>(fftw_malloc(sizeof(double) * rows * cols)));
    FftwBuffer<fftw_complex> spectrum(
        static_cast<fftw_complex*>(fftw_malloc(sizeof(fftw_complex) * half)));
    if (!real || !spectrum)
        throw std::bad_alloc();
    const unsigned flags = FFTW_ESTIMATE;
    return direction == Direction::Forward
               ? fftw_plan_dft_r2c_2d(rows, cols, real.get(), spectrum.get(), flags)
               : fftw_plan_dft_c2r_2d(rows, cols, spectrum.get(), real.get(), flags);
}

fftw_plan planFor(Direction direction, int rows, int cols, int threads) {
    if (rows <= 0 || cols <= 0)
        throw std::invalid_argument("transform of an empty plane");
    PlanCache& plans = cache();
    std::lock_guard lock(plans.mutex);
    const PlanKey key{direction, rows, cols, threads};
    if (auto found = plans.plans.find(key); found != plans.plans.end())
        return found->second;
    if (!plans.threadsReady) {
        fftw_init_threads();
        plans.threadsReady = true;
    }
    fftw_plan_with_nthreads(threads);
    fftw_plan plan = makePlan(direction, rows, cols);
    if (!plan)
        throw std::runtime_error("FFTW could not plan a transform");
    plans.plans.emplace(key, plan);
    return plan;
}

} // namespace

fftw_plan forwardPlan(int rows, int cols, int threads) {
    return planFor(Direction::Forward, rows, cols, threads);
}

fftw_plan inversePlan(int rows, int cols, int threads) {
    return planFor(Direction::Inverse, rows, cols, threads);
}

void forgetPlans() {
    PlanCache& plans = cache();
    std::lock_guard lock(plans.mutex);
    for (auto& [key, plan] : plans.plans)
        fftw_destroy_plan(plan);
    plans.plans.clear();
}

} // namespace clarovi::engine::detail
