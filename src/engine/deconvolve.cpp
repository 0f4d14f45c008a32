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

/// 1 where the centred PSF is positive at (u, v): the support test reads the PSF in space, at the
/// frequency's own index.
double support(const PreparedPsf::Impl& h, int u, int v) {
    const int pu = u - h.place.y;
    const int pv = v - h.place.x;
    const bool inside = pu >= 0 && pu < h.psf.rows && pv >= 0 && pv < h.psf.cols;
    if (!inside)
        return 0.0;
    const double value =
        h.psf.depth() == CV_64F ? h.psf.at<double>(pu, pv) : double(h.psf.at<float>(pu, pv));
    return value > 0.0 ? 1.0 : 0.0;
}

/// The filtered coefficient F = G / H' * W with H' = H + eps (1 + i) and W = |S / (m + S + 3 mu)|.
std::complex<double> filtered(std::complex<double> gv, std::complex<double> hv, double m,
                              double mu3) {
    const double s = std::norm(hv);
    const double denominator = m + s + mu3;
    double gain; // W * D
    double hr = hv.real();
    double hi = hv.imag();
    if (s < 1e-8) {
        hr += 1e-8;
        hi += 1e-8;
        // 0 / 0 (mu = 0 outside the PSF's support where H vanishes) removes the frequency.
        gain = denominator == 0.0 ? 0.0 : std::abs(s / denominator) / (hr * hr + hi * hi);
    } else {
        // Without the offset D = 1 / S, so W * D = 1 / |m + S + 3 mu|: one division.
        gain = 1.0 / std::abs(denominator);
    }
    return {(hr * gv.real() + hi * gv.imag()) * gain, (hr * gv.imag() - hi * gv.real()) * gain};
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
        for (int i = 0; i < rows; ++i) {
            const int mirrorRow = i == 0 ? 0 : rows - i;
            std::complex<double>* gRow = g.row(i);
            const std::complex<double>* hRow = h.spectrum.row(i);
            for (int j = 0; j < half; ++j) {
                const int mirrorCol = j == 0 ? 0 : cols - j;
                const std::complex<double> gv = gRow[j];
                const std::complex<double> hv = hRow[j];
                gRow[j] = (filtered(gv, hv, support(h, i, j), mu3) +
                           std::conj(filtered(std::conj(gv), std::conj(hv),
                                              support(h, mirrorRow, mirrorCol), mu3))) *
                          scale;
            }
        }
    } else {
        // The R x C window of a larger transform has no symmetry of its own: read both indices.
        stride = fftw::rowStride(half);
        thread_local fftw::Buffer<fftw_complex> spectrumBuffer;
        f = reinterpret_cast<std::complex<double>*>(spectrumBuffer.reserve(rows * stride));
        const auto at = [&](int u, int v) {
            return filtered(g.at(u, v), h.spectrum.at(u, v), support(h, u, v), mu3);
        };
        for (int i = 0; i < rows; ++i) {
            const int mirrorRow = i == 0 ? 0 : rows - i;
            std::complex<double>* target = f + i * stride;
            for (int j = 0; j < half; ++j) {
                const int mirrorCol = j == 0 ? 0 : cols - j;
                target[j] = (at(i, j) + std::conj(at(mirrorRow, mirrorCol))) * scale;
            }
        }
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
