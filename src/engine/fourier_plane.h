#pragma once

#include <opencv2/core.hpp>

#include <complex>
#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

// Internal to the engine: a real plane and its half spectrum in one single-precision buffer,
// transformed in place by FFTW's two-dimensional plans, and the loops that walk it.
namespace clarovi::engine {

/// A rows x cols real plane stored so that FFTW transforms it in place into the left half
/// (columns 0 .. cols / 2) of its spectrum: each real row is padded to 2 (cols / 2 + 1) floats,
/// which is also one row of the half spectrum. Move-only; the storage is 64-byte aligned.
class SpectralPlane {
  public:
    SpectralPlane() = default;
    explicit SpectralPlane(cv::Size size);

    int rows() const { return m_size.height; }
    int cols() const { return m_size.width; }
    cv::Size size() const { return m_size; }
    int halfCols() const { return m_size.width / 2 + 1; }
    bool empty() const { return m_size.empty(); }

    /// Row i of the real plane (valid while the plane holds real values).
    float* row(int i) const { return m_data.get() + static_cast<std::ptrdiff_t>(i) * stride(); }
    /// Row u of the half spectrum (valid while the plane holds its spectrum).
    std::complex<float>* spectrumRow(int u) const {
        return reinterpret_cast<std::complex<float>*>(row(u));
    }
    /// The real plane as a matrix header over the same storage.
    cv::Mat real() const;

    /// Real plane to half spectrum, unnormalised, with the given number of threads.
    void forward(int threads);
    /// Half spectrum to real plane, unnormalised (the result is rows * cols times the plane).
    void inverse(int threads);

  private:
    std::ptrdiff_t stride() const { return 2 * static_cast<std::ptrdiff_t>(halfCols()); }

    struct Free {
        void operator()(float* p) const;
    };
    cv::Size m_size;
    std::unique_ptr<float, Free> m_data;
};

/// a * b and conj(a) * b written out: std::complex's operators check for infinities and NaN
/// through a library call per product, which costs more than the product itself.
inline std::complex<float> times(std::complex<float> a, std::complex<float> b) {
    return {a.real() * b.real() - a.imag() * b.imag(), a.real() * b.imag() + a.imag() * b.real()};
}
inline std::complex<float> conjugateTimes(std::complex<float> a, std::complex<float> b) {
    return {a.real() * b.real() + a.imag() * b.imag(), a.real() * b.imag() - a.imag() * b.real()};
}
inline float squaredMagnitude(std::complex<float> a) {
    return a.real() * a.real() + a.imag() * a.imag();
}

/// Calls body(begin, end) over [0, count) split into threads parts run at once, or once on the
/// calling thread when threads <= 1. body must only write what its own range owns.
void forRanges(int count, int threads, const std::function<void(int, int)>& body);

/// |1 - e^(-2 pi i k / n)|^2 = 2 - 2 cos(2 pi k / n) for k = 0 .. count - 1: the spectrum of a
/// first difference along an axis of length n.
std::vector<float> differencePower(int n, int count);

} // namespace clarovi::engine
