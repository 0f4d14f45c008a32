#include "deconvolve.h"

#include "fftw_plans.h"

#include <cmath>
#include <cstring>
#include <stdexcept>

namespace clarovi::engine {

struct PreparedPsf::Impl {
    cv::Size size;
    cv::Mat psf;     // CV_32F or CV_64F: its support gives the noise term's PSF part
    cv::Point place; // top-left corner of psf when centred in the plane
    fftw::HalfSpectrum spectrum;
};

namespace {

/// Where psf sits when centred in a plane of the given size: an odd remainder goes to the bottom
/// and right.
cv::Point centredPlace(const cv::Mat& psf, cv::Size planeSize) {
    if (psf.rows > planeSize.height || psf.cols > planeSize.width)
        throw std::invalid_argument("the PSF is larger than the plane");
    return {(planeSize.width - psf.cols) / 2, (planeSize.height - psf.rows) / 2};
}

// Single and double precision kernels are read as they are (widening a float is exact); a
// 2048 x 2048 copy would cost more than the rest of a call's set-up.
cv::Mat asFloating(const cv::Mat& psf) {
    if (psf.channels() != 1)
        throw std::invalid_argument("the PSF must have one channel");
    if (psf.depth() == CV_32F || psf.depth() == CV_64F)
        return psf;
    cv::Mat result;
    psf.convertTo(result, CV_64F);
    return result;
}

void checkPlane(const cv::Mat& plane) {
    if (plane.channels() != 1)
        throw std::invalid_argument("the plane must have one channel");
}

/// The centred PSF read in space at the frequency's own index, as the noise term needs it: the
/// part of one plane row that the PSF covers, for either depth of kernel.
class SupportRow {
  public:
    SupportRow(const PreparedPsf::Impl& h, int planeRow) : m_first(h.place.x) {
        const int psfRow = planeRow - h.place.y;
        if (psfRow < 0 || psfRow >= h.psf.rows)
            return;
        m_data = h.psf.ptr(psfRow);
        m_double = h.psf.depth() == CV_64F;
        m_count = h.psf.cols;
    }
    /// 1 where the centred PSF is positive at this column, else 0.
    double operator()(int column) const {
        const int k = column - m_first;
        if (k < 0 || k >= m_count)
            return 0.0;
        const double value = m_double ? reinterpret_cast<const double*>(m_data)[k]
                                      : double(reinterpret_cast<const float*>(m_data)[k]);
        return value > 0.0 ? 1.0 : 0.0;
    }

  private:
    const uchar* m_data = nullptr;
    bool m_double = false;
    int m_first = 0;
    int m_count = 0;
};

struct Coefficient {
    double re = 0.0;
    double im = 0.0;
};

/// F = G / H' * W for one frequency, with H' = H + eps (1 + i), eps = 1e-8 where S < 1e-8, and
/// W = |S / (m + S + 3 mu)|; written as G conj(H') W / |H'|^2.
inline Coefficient filtered(Coefficient g, Coefficient h, double m, double mu3) {
    const double s = h.re * h.re + h.im * h.im;
    const double eps = s < 1e-8 ? 1e-8 : 0.0;
    const double hr = h.re + eps;
    const double hi = h.im + eps;
    const double denominator = m + s + mu3;
    // 0 / 0 (mu = 0 outside the PSF's support where H vanishes) removes the frequency.
    const double w = denominator == 0.0 ? 0.0 : std::abs(s / denominator);
    const double gain = w / (hr * hr + hi * hi);
    return {(hr * g.re + hi * g.im) * gain, (hr * g.im - hi * g.re) * gain};
}

Coefficient conjugate(Coefficient c) {
    return {c.re, -c.im};
}

Coefficient coefficientAt(const fftw::HalfSpectrum& spectrum, int u, int v) {
    const std::complex<double> c = spectrum.at(u, v);
    return {c.real(), c.imag()};
}

/// One row of the Hermitian part (F[k] + conj F[-k]) / 2 of the filtered spectrum, scaled, in
/// place of G's row: at an optimal size G[-k] = conj G[k] and H[-k] = conj H[k].
void filterSymmetricRow(std::complex<double>* gRow, const std::complex<double>* hRow, int i,
                        int half, double mu3, double scale, const PreparedPsf::Impl& h) {
    const int rows = h.spectrum.rows;
    const int cols = h.spectrum.cols;
    const SupportRow support(h, i);
    const SupportRow mirrorSupport(h, i == 0 ? 0 : rows - i);
    for (int j = 0; j < half; ++j) {
        const Coefficient g{gRow[j].real(), gRow[j].imag()};
        const Coefficient hv{hRow[j].real(), hRow[j].imag()};
        const double m = support(j);
        const double mirrorM = mirrorSupport(j == 0 ? 0 : cols - j);
        const double s = hv.re * hv.re + hv.im * hv.im;
        if (s >= 1e-8) {
            // No offset: both terms are G conj(H) / |m + S + 3 mu|, with their own m.
            const double gain =
                (1.0 / std::abs(m + s + mu3) + 1.0 / std::abs(mirrorM + s + mu3)) * scale;
            gRow[j] = {(hv.re * g.re + hv.im * g.im) * gain, (hv.re * g.im - hv.im * g.re) * gain};
            continue;
        }
        const Coefficient a = filtered(g, hv, m, mu3);
        const Coefficient b = conjugate(filtered(conjugate(g), conjugate(hv), mirrorM, mu3));
        gRow[j] = {(a.re + b.re) * scale, (a.im + b.im) * scale};
    }
}

/// One row of the Hermitian part of the filtered spectrum when G and H are the R x C window of a
/// larger transform, which has no symmetry of its own: both indices are read.
void filterWindowRow(std::complex<double>* target, const fftw::HalfSpectrum& g, int i, int half,
                     double mu3, double scale, const PreparedPsf::Impl& h) {
    const int rows = h.size.height;
    const int cols = h.size.width;
    const int mirrorRow = i == 0 ? 0 : rows - i;
    const SupportRow support(h, i);
    const SupportRow mirrorSupport(h, mirrorRow);
    for (int j = 0; j < half; ++j) {
        const int mirrorCol = j == 0 ? 0 : cols - j;
        const Coefficient a =
            filtered(coefficientAt(g, i, j), coefficientAt(h.spectrum, i, j), support(j), mu3);
        const Coefficient b = conjugate(filtered(coefficientAt(g, mirrorRow, mirrorCol),
                                                 coefficientAt(h.spectrum, mirrorRow, mirrorCol),
                                                 mirrorSupport(mirrorCol), mu3));
        target[j] = {(a.re + b.re) * scale, (a.im + b.im) * scale};
    }
}

void restore(double mu, const cv::Mat& plane, cv::Mat& result, const PreparedPsf::Impl& h) {
    const int rows = plane.rows;
    const int cols = plane.cols;
    thread_local fftw::HalfSpectrum g;
    fftw::forwardReal(plane, {0, 0}, plane.size(), g);

    // Only the real part of the inverse is kept, and that is the inverse of the Hermitian part
    // (F[k] + conj F[-k]) / 2, which a complex-to-real transform of half the size computes.
    // The 1 / (R C) scaling of the inverse is folded in here.
    const int half = cols / 2 + 1;
    const double mu3 = 3.0 * mu;
    const double scale = 0.5 / (static_cast<double>(rows) * cols);
    std::complex<double>* f = nullptr;
    std::ptrdiff_t stride = 0;
    if (g.rows == rows && g.cols == cols) {
        // At an optimal size the transforms are exact, so G[-k] = conj G[k] and H[-k] = conj H[k]:
        // each coefficient of the Hermitian part needs only its own index, and it can replace G
        // in place, which spares a buffer the size of the spectrum.
        f = g.row(0);
        stride = g.stride;
        for (int i = 0; i < rows; ++i)
            filterSymmetricRow(g.row(i), h.spectrum.row(i), i, half, mu3, scale, h);
    } else {
        // The R x C window of a larger transform has no symmetry of its own: read both indices.
        stride = fftw::rowStride(half);
        thread_local fftw::Buffer<fftw_complex> spectrumBuffer;
        f = reinterpret_cast<std::complex<double>*>(spectrumBuffer.reserve(rows * stride));
        for (int i = 0; i < rows; ++i)
            filterWindowRow(f + i * stride, g, i, half, mu3, scale, h);
    }

    auto* spectrum = reinterpret_cast<fftw_complex*>(f);
    fftw::transformColumns(spectrum, rows, half, stride, fftw::Kind::Backward);

    // The PSF was centred rather than put at the origin, so the picture comes out shifted by half
    // its size: each row goes straight to its swapped place, exactly as swapQuadrants would move
    // it (the last row and column of odd sizes stay put).
    result.create(rows, cols, CV_64F);
    thread_local fftw::Buffer<double> lineBuffer;
    double* line = lineBuffer.reserve(cols);
    const fftw_plan rowPlan = fftw::plan(fftw::Kind::ComplexToReal, cols);
    const int cx = cols / 2;
    const int cy = rows / 2;
    for (int i = 0; i < rows; ++i) {
        fftw_execute_dft_c2r(rowPlan, spectrum + i * stride, line);
        if (i == 2 * cy) { // the last row of an odd height
            std::memcpy(result.ptr<double>(i), line, cols * sizeof(double));
            continue;
        }
        auto* out = result.ptr<double>(i < cy ? i + cy : i - cy);
        std::memcpy(out + cx, line, cx * sizeof(double));
        std::memcpy(out, line + cx, cx * sizeof(double));
        if (cols % 2 == 1) // the last column of an odd width: same row, same place
            result.ptr<double>(i)[cols - 1] = line[cols - 1];
    }
}

} // namespace

PreparedPsf::PreparedPsf(const cv::Mat& psf, cv::Size planeSize) : m_impl(new Impl) {
    m_impl->size = planeSize;
    m_impl->psf = asFloating(psf);
    m_impl->place = centredPlace(psf, planeSize);
    if (!planeSize.empty())
        fftw::forwardReal(m_impl->psf, m_impl->place, planeSize, m_impl->spectrum);
}

PreparedPsf::~PreparedPsf() = default;
PreparedPsf::PreparedPsf(PreparedPsf&&) noexcept = default;
PreparedPsf& PreparedPsf::operator=(PreparedPsf&&) noexcept = default;

cv::Size PreparedPsf::planeSize() const {
    return m_impl->size;
}

cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf) {
    checkPlane(plane);
    thread_local PreparedPsf::Impl h;
    h.size = plane.size();
    h.place = centredPlace(psf, plane.size());
    if (plane.empty()) {
        result.release();
        return result;
    }
    h.psf = asFloating(psf);
    fftw::forwardReal(h.psf, h.place, plane.size(), h.spectrum);
    restore(mu, plane, result, h);
    h.psf.release(); // do not keep the caller's PSF alive
    return result;
}

cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result,
                        const PreparedPsf& prepared) {
    checkPlane(plane);
    if (plane.size() != prepared.planeSize())
        throw std::invalid_argument("the plane's size differs from the prepared PSF's");
    if (plane.empty()) {
        result.release();
        return result;
    }
    restore(mu, plane, result, prepared.impl());
    return result;
}

} // namespace clarovi::engine
