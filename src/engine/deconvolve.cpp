#include "deconvolve.h"

#include "fftw_plans.h"
#include "fourier_plane.h"
#include "memory_policy.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace clarovi::engine {

/// Where the centred PSF is positive, which the noise term reads at every frequency's own index:
/// a mask of the smallest rectangle of the plane that holds every positive sample, stored a
/// column at a time (row k of mask is plane column box.x + k), nonzero where positive.
struct PsfSupport {
    cv::Rect box;
    cv::Mat mask;
};

struct PreparedPsf::Impl {
    cv::Size size;
    PsfSupport support;
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

void checkPsf(const cv::Mat& psf) {
    if (psf.channels() != 1)
        throw std::invalid_argument("the PSF must have one channel");
}

/// The size a plane is restored at: its own size grown to sizes the transform is fast at.
cv::Size transformSize(cv::Size planeSize) {
    return {cv::getOptimalDFTSize(planeSize.width), cv::getOptimalDFTSize(planeSize.height)};
}

/// Makes the spectrum of psf centred in the transform of a plane of the given size, and finds its
/// support on the way through the rows.
void prepare(PreparedPsf::Impl& h, const cv::Mat& psf, cv::Size planeSize, int threads = 1) {
    checkPsf(psf);
    centredPlace(psf, planeSize); // only checks that it fits the plane
    h.size = planeSize;
    h.support.box = {};
    if (planeSize.empty())
        return;
    const cv::Size transform = transformSize(planeSize);
    const cv::Point place = centredPlace(psf, transform);
    int top = psf.rows, bottom = -1, left = psf.cols, right = -1;
    const auto positive = [](double x) { return x > 0.0; };
    fftw::forwardReal(
        psf, place, transform, h.spectrum,
        [&](int row, const double* values) {
            const double* end = values + psf.cols;
            const double* first = std::find_if(values, end, positive);
            if (first == end)
                return;
            const auto last = std::find_if(std::make_reverse_iterator(end),
                                           std::make_reverse_iterator(first + 1), positive);
            top = std::min(top, row);
            bottom = row;
            left = std::min(left, static_cast<int>(first - values));
            right = std::max(right, static_cast<int>(last.base() - values) - 1);
        },
        fftw::Outside::Zero, threads);
    if (bottom < 0)
        return;
    const cv::Rect inPsf(left, top, right - left + 1, bottom - top + 1);
    cv::Mat positiveMask;
    cv::compare(psf(inPsf), 0, positiveMask, cv::CMP_GT);
    cv::transpose(positiveMask, h.support.mask);
    h.support.box = inPsf + place;
}

void checkPlane(const cv::Mat& plane) {
    if (plane.channels() != 1)
        throw std::invalid_argument("the plane must have one channel");
}

/// The noise term's PSF part down one plane column: 1 where the centred PSF is positive.
class SupportColumn {
  public:
    SupportColumn(const PsfSupport& support, int planeColumn) : m_first(support.box.y) {
        const int k = planeColumn - support.box.x;
        if (k < 0 || k >= support.box.width)
            return;
        m_mask = support.mask.ptr<uchar>(k);
        m_count = support.box.height;
    }
    double operator()(int row) const {
        const int k = row - m_first;
        return k >= 0 && k < m_count && m_mask[k] != 0 ? 1.0 : 0.0;
    }

  private:
    const uchar* m_mask = nullptr;
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
    double gain; // W / |H'|^2
    if (s >= 1e-8) {
        // No offset: W / S = 1 / |m + S + 3 mu|, one division.
        gain = 1.0 / std::abs(m + s + mu3);
    } else {
        h.re += 1e-8;
        h.im += 1e-8;
        const double denominator = m + s + mu3;
        // 0 / 0 (mu = 0 outside the PSF's support where H vanishes) removes the frequency.
        const double w = denominator == 0.0 ? 0.0 : std::abs(s / denominator);
        gain = w / (h.re * h.re + h.im * h.im);
    }
    return {(h.re * g.re + h.im * g.im) * gain, (h.re * g.im - h.im * g.re) * gain};
}

Coefficient conjugate(Coefficient c) {
    return {c.re, -c.im};
}

/// One column of the Hermitian part (F[k] + conj F[-k]) / 2 of the filtered spectrum, scaled, in
/// place of G's column: at an optimal size G[-k] = conj G[k] and H[-k] = conj H[k].
void filterSymmetricColumn(std::complex<double>* gColumn, const std::complex<double>* hColumn,
                           int j, double mu3, double scale, const PreparedPsf::Impl& h) {
    const int rows = h.spectrum.rows;
    const int cols = h.spectrum.cols;
    const SupportColumn support(h.support, j);
    const SupportColumn mirrorSupport(h.support, j == 0 ? 0 : cols - j);
    for (int i = 0; i < rows; ++i) {
        const Coefficient g{gColumn[i].real(), gColumn[i].imag()};
        const Coefficient hv{hColumn[i].real(), hColumn[i].imag()};
        const double m = support(i);
        const double mirrorM = mirrorSupport(i == 0 ? 0 : rows - i);
        const double s = hv.re * hv.re + hv.im * hv.im;
        if (s >= 1e-8) {
            // No offset: both terms are G conj(H) / |m + S + 3 mu|, with their own m.
            const double gain =
                (1.0 / std::abs(m + s + mu3) + 1.0 / std::abs(mirrorM + s + mu3)) * scale;
            gColumn[i] = {(hv.re * g.re + hv.im * g.im) * gain,
                          (hv.re * g.im - hv.im * g.re) * gain};
            continue;
        }
        const Coefficient a = filtered(g, hv, m, mu3);
        const Coefficient b = conjugate(filtered(conjugate(g), conjugate(hv), mirrorM, mu3));
        gColumn[i] = {(a.re + b.re) * scale, (a.im + b.im) * scale};
    }
}

/// Writes row i of the inverse transform (rows x cols, the transform's size) to its place in
/// result, which keeps the plane's top-left part of it: the PSF was centred rather than put at the
/// origin, so the picture comes out shifted by half the transform's size, and each row goes
/// straight to its swapped place, exactly as swapQuadrants would move it (the last row and column
/// of odd sizes stay put).
void placeSwapped(cv::Mat& result, int rows, int cols, int i, const double* line) {
    const int cx = cols / 2;
    const int cy = rows / 2;
    const int keep = result.cols;
    if (i == 2 * cy) { // the last row of an odd height
        if (i < result.rows)
            std::memcpy(result.ptr<double>(i), line, keep * sizeof(double));
        return;
    }
    const int target = i < cy ? i + cy : i - cy;
    if (target >= result.rows)
        return;
    auto* out = result.ptr<double>(target);
    std::memcpy(out, line + cx, std::min(cx, keep) * sizeof(double));
    if (keep > cx)
        std::memcpy(out + cx, line, std::min(cx, keep - cx) * sizeof(double));
    if (cols % 2 == 1 && cols - 1 < keep) // the last column of an odd width: same place
        out[cols - 1] = line[cols - 1];
}

/// Restores plane at the transform size of h: the plane's last row and column are repeated up to
/// that size, which the filter and the inverse treat as one periodic picture, and the plane's own
/// part of the result is kept. Restoring only the plane's own coefficients of a larger transform
/// would invert a spectrum that is not the plane's and smear the picture.
void restore(double mu, const cv::Mat& plane, cv::Mat& result, const PreparedPsf::Impl& h,
             int threads) {
    thread_local fftw::HalfSpectrum g;
    fftw::forwardReal(plane, {0, 0}, plane.size(), g, {}, fftw::Outside::Replicate, threads);
    const int rows = g.rows;
    const int cols = g.cols;

    // Only the real part of the inverse is kept, and that is the inverse of the Hermitian part
    // (F[k] + conj F[-k]) / 2, which a complex-to-real transform of half the size computes; the
    // filtered spectrum replaces G in place. The 1 / (R C) scaling of the inverse is folded in.
    const double mu3 = 3.0 * mu;
    const double scale = 0.5 / (static_cast<double>(rows) * cols);
    // A lambda does not capture a thread_local: the workers must reach this thread's spectrum.
    fftw::HalfSpectrum& spectrum = g;
    forRanges(spectrum.halfCols(), threads, [&](int begin, int end) {
        for (int j = begin; j < end; ++j)
            filterSymmetricColumn(spectrum.column(j), h.spectrum.column(j), j, mu3, scale, h);
    });

    const uchar* previous = result.data;
    result.create(plane.rows, plane.cols, CV_64F);
    if (result.data != previous)
        adviseHugePages(result.data, result.total() * result.elemSize());
    fftw::inverseReal(
        g, [&](int i, const double* line) { placeSwapped(result, rows, cols, i, line); }, threads);
}

} // namespace

PreparedPsf::PreparedPsf(const cv::Mat& psf, cv::Size planeSize, int threads) : m_impl(new Impl) {
    prepare(*m_impl, psf, planeSize, threads);
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
    prepare(h, psf, plane.size());
    if (plane.empty()) {
        result.release();
        return result;
    }
    restore(mu, plane, result, h, 1);
    return result;
}

cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result,
                        const PreparedPsf& prepared, int threads) {
    checkPlane(plane);
    if (plane.size() != prepared.planeSize())
        throw std::invalid_argument("the plane's size differs from the prepared PSF's");
    if (plane.empty()) {
        result.release();
        return result;
    }
    restore(mu, plane, result, prepared.impl(), threads);
    return result;
}

} // namespace clarovi::engine
