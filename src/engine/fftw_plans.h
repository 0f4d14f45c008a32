#pragma once

#include "memory_policy.h"

#include <opencv2/core.hpp>

#include <fftw3.h>

#include <complex>
#include <cstddef>
#include <functional>
#include <memory>

// Internal to the engine: 2-D transforms built from cached 1-D FFTW plans.
namespace clarovi::engine::fftw {

enum class Kind {
    RealToComplex, ///< out of place, n reals to n / 2 + 1 complex values
    ComplexToReal, ///< out of place, n / 2 + 1 complex values to n reals; destroys its input
    Forward,       ///< in place, complex, sign -1
    Backward,      ///< in place, complex, sign +1, unscaled
};

/// The 1-D plan of this kind and length, made on first use and kept for the life of the process.
/// Arrays passed to fftw_execute_* with it must be 16-byte aligned, as every row of a Buffer is.
fftw_plan plan(Kind kind, int n);

/// Destroys every cached plan, so that the next transform of any size pays its planning again.
/// For benchmarks of a first call only; no transform may be running.
void clearPlans();

/// Grow-only working storage, kept between calls so that steady state does not touch fresh pages.
template <typename T> class Buffer {
  public:
    T* reserve(std::size_t count) {
        if (count > m_capacity) {
            m_data.reset(static_cast<T*>(allocateWorkingMemory(count * sizeof(T))));
            m_capacity = count;
        }
        return m_data.get();
    }
    T* data() const { return m_data.get(); }

  private:
    struct Free {
        void operator()(T* p) const { freeWorkingMemory(p); }
    };
    std::unique_ptr<T, Free> m_data;
    std::size_t m_capacity = 0;
};

/// Row stride, in complex values, for rows of count values: whole cache lines, and not a multiple
/// of 4 KiB so that walking down a column does not hit one cache set.
std::ptrdiff_t rowStride(int count);

/// The left half (columns 0 .. cols / 2) of the spectrum of a real rows x cols array; the other
/// half follows from Hermitian symmetry. It is stored a column at a time, so that the transforms
/// down the columns run on contiguous memory.
struct HalfSpectrum {
    int rows = 0;
    int cols = 0;
    std::ptrdiff_t pitch = 0; ///< complex values from the start of one column to the next
    Buffer<fftw_complex> buffer;

    /// Shapes the storage for the half spectrum of a rows x cols array.
    void reshape(int rowCount, int colCount);
    int halfCols() const { return cols / 2 + 1; }
    std::complex<double>* column(int v) const {
        return reinterpret_cast<std::complex<double>*>(buffer.data() + v * pitch);
    }
    /// Coefficient (u, v) of the full rows x cols spectrum, 0 <= u < rows, 0 <= v < cols.
    std::complex<double> at(int u, int v) const {
        if (2 * v <= cols)
            return column(v)[u];
        return std::conj(column(cols - v)[u == 0 ? 0 : rows - u]);
    }
};

/// Hands over one row of real values: (row index, values).
using RowCallback = std::function<void(int, const double*)>;

/// What lies outside the source within the transform.
enum class Outside {
    Zero,      ///< zeros
    Replicate, ///< the source's last row and column repeated (offset must be 0, 0)
};

/// Spectrum of source (one channel, any depth) placed with its top-left corner at offset in a
/// canvas grown to the optimal DFT size of canvas, the rest filled as outside says. Rows that are
/// all zero skip their row transform; observeRow, if given, is handed each source row that is
/// not, as doubles, one row at a time. threads share the column transforms, and the row
/// transforms too when no observeRow is given.
void forwardReal(const cv::Mat& source, cv::Point offset, cv::Size canvas, HalfSpectrum& out,
                 const RowCallback& observeRow = {}, Outside outside = Outside::Zero,
                 int threads = 1);

/// The real rows x cols array whose half spectrum is given (the inverse transform, unscaled):
/// transforms the columns in place, then hands each row of the result to takeRow(i, values).
/// The spectrum is destroyed. With threads > 1, takeRow is called from several threads at once,
/// never twice for one row.
void inverseReal(HalfSpectrum& spectrum, const RowCallback& takeRow, int threads = 1);

/// Transforms each of the cols columns (length rows, row stride in complex values) of data in
/// place, a block of columns at a time through a contiguous scratch so that memory is read in
/// whole cache lines. kind is Forward or Backward.
void transformColumns(fftw_complex* data, int rows, int cols, std::ptrdiff_t stride, Kind kind);

} // namespace clarovi::engine::fftw
