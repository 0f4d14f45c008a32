#include "deconvolve.h"

#include "fftw_plans.h"

#include <cmath>
#include <cstring>
#include <stdexcept>

namespace clarovi::engine {

struct PreparedPsf::Impl {
    cv::Size size;
    cv::Mat psf;     // CV_64F: its support gives the noise term's PSF part
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

cv::Mat asDouble(const cv::Mat& psf) {
    if (psf.channels() != 1)
        throw std::invalid_argument("the PSF must have one channel");
    cv::Mat result;
    psf.convertTo(result, CV_64F);
    return result;
}

void checkPlane(const cv::Mat& plane) {
    if (plane.channels() != 1)
        throw std::invalid_argument("the plane must have one channel");
}

/// The filtered spectrum F = G / H' * W at frequency (u, v) of the R x C grid, H' = H + eps (1 +
/// i).
std::complex<double> filtered(const fftw::HalfSpectrum& g, const PreparedPsf::Impl& h, double mu3,
                              int u, int v) {
    const std::complex<double> hv = h.spectrum.at(u, v);
    const double s = std::norm(hv);
    // The support test reads the centred PSF in space at the frequency's own index.
    const int pu = u - h.place.y;
    const int pv = v - h.place.x;
    const bool inside = pu >= 0 && pu < h.psf.rows && pv >= 0 && pv < h.psf.cols;
    const double m = inside && h.psf.at<double>(pu, pv) > 0.0 ? 1.0 : 0.0;
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
    const std::complex<double> gv = g.at(u, v);
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
    const std::ptrdiff_t stride = fftw::rowStride(half);
    thread_local fftw::Buffer<fftw_complex> spectrumBuffer;
    auto* f = reinterpret_cast<std::complex<double>*>(spectrumBuffer.reserve(rows * stride));
    const double mu3 = 3.0 * mu;
    const double scale = 0.5 / (static_cast<double>(rows) * cols);
    for (int i = 0; i < rows; ++i) {
        const int mirrorRow = i == 0 ? 0 : rows - i;
        std::complex<double>* target = f + i * stride;
        for (int j = 0; j < half; ++j) {
            const int mirrorCol = j == 0 ? 0 : cols - j;
            target[j] =
                (filtered(g, h, mu3, i, j) + std::conj(filtered(g, h, mu3, mirrorRow, mirrorCol))) *
                scale;
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
    m_impl->psf = asDouble(psf);
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
    if (psf.type() == CV_64F)
        h.psf = psf;
    else
        h.psf = asDouble(psf);
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
