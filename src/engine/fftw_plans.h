#pragma once

#include <fftw3.h>

#include <cstddef>
#include <memory>

namespace clarovi::engine::detail {

/// FFTW's aligned memory, released with fftw_free.
struct FftwFree {
    void operator()(void* p) const { fftw_free(p); }
};
template <typename T> using FftwBuffer = std::unique_ptr<T[], FftwFree>;

/// A growing buffer of FFTW-aligned memory, kept between calls so that repeated transforms of
/// one size touch no new pages.
template <typename T> class Workspace {
  public:
    T* get(std::size_t count) {
        if (count > m_capacity) {
            m_buffer.reset(static_cast<T*>(fftw_malloc(count * sizeof(T))));
            if (!m_buffer)
                throw std::bad_alloc();
            m_capacity = count;
        }
        return m_buffer.get();
    }

  private:
    FftwBuffer<T> m_buffer;
    std::size_t m_capacity = 0;
};

/// Out-of-place plans for the 2-D transform of a real rows x cols plane into its rows x
/// (cols / 2 + 1) half spectrum and back. Made once per size and thread count, with an estimated
/// (not measured) plan so that a new size costs milliseconds; safe to call from any thread.
/// The plans are executed with fftw_execute_dft_r2c / _c2r on FFTW-aligned arrays.
fftw_plan forwardPlan(int rows, int cols, int threads);
fftw_plan inversePlan(int rows, int cols, int threads);

/// Drops every plan made so far, so that the next transform of each size plans afresh.
void forgetPlans();

} // namespace clarovi::engine::detail
