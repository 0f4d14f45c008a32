#include "deconvolve.h"

#include "fftw_plans.h"
#include "frequency.h"

#include <opencv2/core.hpp>

#include <cmath>
#include <complex>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace clarovi::engine {

using detail::FftwBuffer;
using detail::Workspace;
using Complex = std::complex<double>;

namespace {

int defaultThreads() {
    return std::max(1, int(std::thread::hardware_concurrency()));
}
thread_local int t_threads = defaultThreads();

// Small planes gain nothing from more threads; the tile pools restore 256 x 256 planes.
int threadsFor(cv::Size size) {
    return size.area() >= 512 * 512 ? t_threads : 1;
}

// Buffers of the current thread, reused by every restoration it runs.
struct ThreadWorkspace {
    Workspace<double> real;
    Workspace<fftw_complex> planeSpectrum;
    Workspace<fftw_complex> psfSpectrum;
    Workspace<fftw_complex> filtered;
};
ThreadWorkspace& workspace() {
    thread_local ThreadWorkspace buffers;
    return buffers;
}

/// A half spectrum of an M x N real plane, read at any (a, b) through Hermitian symmetry.
struct HalfSpectrum {
    const fftw_complex* data;
    int rows;
    int cols;
    int half; // cols / 2 + 1

    Complex at(int a, int b) const {
        if (b < half)
            return {data[std::size_t(a) * half + b][0], data[std::size_t(a) * half + b][1]};
        const std::size_t mirrored = std::size_t((rows - a) % rows) * half + (cols - b);
        return {data[mirrored][0], -data[mirrored][1]};
    }
};

// The plane zero-padded at the bottom and right to rows x cols, as doubles, in buffer.
cv::Mat zeroPadded(const cv::Mat& plane, double* buffer, int rows, int cols) {
    cv::Mat padded(rows, cols, CV_64F, buffer);
    cv::Mat window = padded(cv::Rect(0, 0, plane.cols, plane.rows));
    plane.convertTo(window, CV_64F);
    if (cols > plane.cols)
        padded(cv::Rect(plane.cols, 0, cols - plane.cols, plane.rows)).setTo(0);
    if (rows > plane.rows)
        padded.rowRange(plane.rows, rows).setTo(0);
    return padded;
}

} // namespace

TransformThreads::TransformThreads(int threads) : m_previous(t_threads) {
    t_threads = std::max(1, threads);
}

TransformThreads::~TransformThreads() {
    t_threads = m_previous;
}

struct PreparedPsf::Impl {
    cv::Size plane;    // R x C
    int transformRows; // M, the optimal transform size above R
    int transformCols; // N
    cv::Mat psf;       // for the support term: positive where the centred PSF is
    int top = 0;       // where the PSF sits in the R x C field
    int left = 0;
    FftwBuffer<fftw_complex> owned;
    const fftw_complex* spectrum = nullptr; // M x (N / 2 + 1)

    Impl(const cv::Mat& kernel, cv::Size planeSize, fftw_complex* storage) : plane(planeSize) {
        if (kernel.channels() != 1 || kernel.depth() != CV_64F)
            throw std::invalid_argument("the PSF must be one CV_64F plane");
        if (kernel.rows > planeSize.height || kernel.cols > planeSize.width)
            throw std::invalid_argument("the PSF is larger than the plane it restores");
        transformRows = cv::getOptimalDFTSize(planeSize.height);
        transformCols = cv::getOptimalDFTSize(planeSize.width);
        psf = kernel;
        // An odd remainder goes to the bottom and the right.
        top = (planeSize.height - kernel.rows) / 2;
        left = (planeSize.width - kernel.cols) / 2;

        const int half = transformCols / 2 + 1;
        if (!storage) {
            owned.reset(static_cast<fftw_complex*>(
                fftw_malloc(sizeof(fftw_complex) * std::size_t(transformRows) * half)));
            if (!owned)
                throw std::bad_alloc();
            storage = owned.get();
        }
        double* real = workspace().real.get(std::size_t(transformRows) * transformCols);
        cv::Mat field(transformRows, transformCols, CV_64F, real);
        field.setTo(0);
        kernel.copyTo(field(cv::Rect(left, top, kernel.cols, kernel.rows)));
        fftw_execute_dft_r2c(
            detail::forwardPlan(transformRows, transformCols, threadsFor(planeSize)), real,
            storage);
        spectrum = storage;
    }

    // 1 where the centred PSF is positive at (i, j) of the R x C field.
    double support(int i, int j) const {
        const int y = i - top;
        const int x = j - left;
        if (y < 0 || x < 0 || y >= psf.rows || x >= psf.cols)
            return 0.0;
        return psf.at<double>(y, x) > 0.0 ? 1.0 : 0.0;
    }
};

PreparedPsf::PreparedPsf(const cv::Mat& psf, cv::Size planeSize)
    : m_impl(std::make_unique<Impl>(psf, planeSize, nullptr)) {}
PreparedPsf::~PreparedPsf() = default;
PreparedPsf::PreparedPsf(PreparedPsf&&) noexcept = default;
PreparedPsf& PreparedPsf::operator=(PreparedPsf&&) noexcept = default;
cv::Size PreparedPsf::planeSize() const {
    return m_impl->plane;
}

namespace {

// The Wiener-type filter at one frequency: F = G / H' * |S / (m + S + 3 mu)|, with
// H' = H + eps (eps = 1e-8 on both parts where S < 1e-8) and m the PSF's support there.
Complex filtered(Complex g, Complex h, double m, double mu) {
    const double s = std::norm(h);
    const double eps = s < 1e-8 ? 1e-8 : 0.0;
    const double denominator = m + s + 3.0 * mu;
    // Only with mu = 0 can this be 0 / 0; that frequency is dropped rather than made NaN.
    const double w = denominator == 0.0 ? 0.0 : std::abs(s / denominator);
    const double hr = h.real() + eps;
    const double hi = h.imag() + eps;
    const double d = 1.0 / (hr * hr + hi * hi);
    return {(hr * g.real() + hi * g.imag()) * d * w, (hr * g.imag() - hi * g.real()) * d * w};
}

// Fills the half spectrum of the Hermitian part of F, scaled for the unnormalised inverse: the
// real part of the inverse of F is the inverse of that Hermitian part.
void filterRows(const cv::Range& rows, const HalfSpectrum& g, const HalfSpectrum& h,
                const PreparedPsf::Impl& psf, double mu, fftw_complex* out) {
    const int r = psf.plane.height;
    const int c = psf.plane.width;
    const int half = c / 2 + 1;
    const double scale = 0.5 / (double(r) * double(c));
    for (int i = rows.start; i < rows.end; ++i) {
        const int mi = (r - i) % r;
        for (int j = 0; j < half; ++j) {
            const int mj = (c - j) % c;
            const Complex here = filtered(g.at(i, j), h.at(i, j), psf.support(i, j), mu);
            const Complex mirror = filtered(g.at(mi, mj), h.at(mi, mj), psf.support(mi, mj), mu);
            const Complex value = (here + std::conj(mirror)) * scale;
            out[std::size_t(i) * half + j][0] = value.real();
            out[std::size_t(i) * half + j][1] = value.imag();
        }
    }
}

} // namespace

namespace {

cv::Mat restore(double mu, const cv::Mat& plane, cv::Mat& result, const PreparedPsf::Impl& psf) {
    if (plane.channels() != 1 || plane.size() != psf.plane)
        throw std::invalid_argument("the plane does not match the prepared PSF");
    const int m = psf.transformRows;
    const int n = psf.transformCols;
    const int r = plane.rows;
    const int c = plane.cols;
    const int threads = threadsFor(psf.plane);
    ThreadWorkspace& buffers = workspace();

    double* real = buffers.real.get(std::size_t(m) * n);
    zeroPadded(plane, real, m, n);
    fftw_complex* planeSpectrum = buffers.planeSpectrum.get(std::size_t(m) * (n / 2 + 1));
    fftw_execute_dft_r2c(detail::forwardPlan(m, n, threads), real, planeSpectrum);

    const HalfSpectrum g{planeSpectrum, m, n, n / 2 + 1};
    const HalfSpectrum h{psf.spectrum, m, n, n / 2 + 1};
    fftw_complex* out = buffers.filtered.get(std::size_t(r) * (c / 2 + 1));
    const auto body = [&](const cv::Range& rows) { filterRows(rows, g, h, psf, mu, out); };
    if (threads > 1)
        cv::parallel_for_(cv::Range(0, r), body, threads);
    else
        body(cv::Range(0, r));

    fftw_execute_dft_c2r(detail::inversePlan(r, c, threads), out, real);
    // The PSF was centred rather than put at the origin: swap the quadrants back.
    result.create(r, c, CV_64F);
    swapQuadrants(cv::Mat(r, c, CV_64F, real), result);
    return result;
}

} // namespace

cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result,
                        const PreparedPsf& prepared) {
    if (plane.empty()) {
        result = cv::Mat();
        return result;
    }
    return restore(mu, plane, result, prepared.impl());
}

cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf) {
    if (plane.empty()) {
        result = cv::Mat();
        return result;
    }
    // The PSF's spectrum goes into this thread's buffer instead of one of its own.
    fftw_complex* storage =
        workspace().psfSpectrum.get(std::size_t(cv::getOptimalDFTSize(plane.rows)) *
                                    (cv::getOptimalDFTSize(plane.cols) / 2 + 1));
    const PreparedPsf::Impl prepared(psf, plane.size(), storage);
    return restore(mu, plane, result, prepared);
}

} // namespace clarovi::engine
