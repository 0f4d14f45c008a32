#include "deconvolve.h"

#include "fftw_plans.h"
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

/// Makes the spectrum of psf centred in a plane of the given size, and finds its support on the
/// way through the rows.
void prepare(PreparedPsf::Impl& h, const cv::Mat& psf, cv::Size planeSize) {
    checkPsf(psf);
    const cv::Point place = centredPlace(psf, planeSize);
    h.size = planeSize;
    h.support.box = {};
    if (planeSize.empty())
        return;
    int top = psf.rows, bottom = -1, left = psf.cols, right = -1;
    const auto positive = [](double x) { return x > 0.0; };
    fftw::forwardReal(psf, place, planeSize, h.spectrum, [&](int row, const double* values) {
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
    });
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

/// Column v of the full spectrum, read from the half that is stored.
class FullColumn {
  public:
    FullColumn(const fftw::HalfSpectrum& spectrum, int v) : m_rows(spectrum.rows) {
        m_mirrored = 2 * v > spectrum.cols;
        m_data = spectrum.column(m_mirrored ? spectrum.cols - v : v);
    }
    Coefficient operator()(int u) const {
        if (!m_mirrored)
            return {m_data[u].real(), m_data[u].imag()};
        const std::complex<double> c = m_data[u == 0 ? 0 : m_rows - u];
        return {c.real(), -c.imag()};
    }

  private:
    const std::complex<double>* m_data;
    int m_rows;
    bool m_mirrored;
};

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

/// One column of the Hermitian part of the filtered spectrum when G and H are the R x C window
/// of a larger transform, which has no symmetry of its own: both indices are read.
void filterWindowColumn(std::complex<double>* target, const fftw::HalfSpectrum& g, int j,
                        double mu3, double scale, const PreparedPsf::Impl& h) {
    const int rows = h.size.height;
    const int cols = h.size.width;
    const int mirrorCol = j == 0 ? 0 : cols - j;
    const SupportColumn support(h.support, j);
    const SupportColumn mirrorSupport(h.support, mirrorCol);
    const FullColumn gColumn(g, j), gMirror(g, mirrorCol);
    const FullColumn hColumn(h.spectrum, j), hMirror(h.spectrum, mirrorCol);
    for (int i = 0; i < rows; ++i) {
        const int mirrorRow = i == 0 ? 0 : rows - i;
        const Coefficient a = filtered(gColumn(i), hColumn(i), support(i), mu3);
        const Coefficient b = conjugate(
            filtered(gMirror(mirrorRow), hMirror(mirrorRow), mirrorSupport(mirrorRow), mu3));
        target[i] = {(a.re + b.re) * scale, (a.im + b.im) * scale};
    }
}

/// Writes an inverse-transformed row to its place in result: the PSF was centred rather than put
/// at the origin, so the picture comes out shifted by half its size, and each row goes straight to
/// its swapped place, exactly as swapQuadrants would move it (the last row and column of odd
/// sizes stay put).
void placeSwapped(cv::Mat& result, int i, const double* line) {
    const int cols = result.cols;
    const int cx = cols / 2;
    const int cy = result.rows / 2;
    if (i == 2 * cy) { // the last row of an odd height
        std::memcpy(result.ptr<double>(i), line, cols * sizeof(double));
        return;
    }
    auto* out = result.ptr<double>(i < cy ? i + cy : i - cy);
    std::memcpy(out + cx, line, cx * sizeof(double));
    std::memcpy(out, line + cx, cx * sizeof(double));
    if (cols % 2 == 1) // the last column of an odd width: same row, same place
        result.ptr<double>(i)[cols - 1] = line[cols - 1];
}

void restore(double mu, const cv::Mat& plane, cv::Mat& result, const PreparedPsf::Impl& h) {
    const int rows = plane.rows;
    const int cols = plane.cols;
    thread_local fftw::HalfSpectrum g;
    fftw::forwardReal(plane, {0, 0}, plane.size(), g);

    // Only the real part of the inverse is kept, and that is the inverse of the Hermitian part
    // (F[k] + conj F[-k]) / 2, which a complex-to-real transform of half the size computes.
    // The 1 / (R C) scaling of the inverse is folded in here.
    const double mu3 = 3.0 * mu;
    const double scale = 0.5 / (static_cast<double>(rows) * cols);
    fftw::HalfSpectrum* f = &g;
    if (g.rows == rows && g.cols == cols) {
        // At an optimal size the filtered spectrum replaces G in place, which spares a buffer
        // the size of the spectrum.
        for (int j = 0; j < g.halfCols(); ++j)
            filterSymmetricColumn(g.column(j), h.spectrum.column(j), j, mu3, scale, h);
    } else {
        thread_local fftw::HalfSpectrum windowed;
        windowed.reshape(rows, cols);
        for (int j = 0; j < windowed.halfCols(); ++j)
            filterWindowColumn(windowed.column(j), g, j, mu3, scale, h);
        f = &windowed;
    }

    const uchar* previous = result.data;
    result.create(rows, cols, CV_64F);
    if (result.data != previous)
        adviseHugePages(result.data, result.total() * result.elemSize());
    fftw::inverseReal(*f, [&result](int i, const double* line) { placeSwapped(result, i, line); });
}

} // namespace

PreparedPsf::PreparedPsf(const cv::Mat& psf, cv::Size planeSize) : m_impl(new Impl) {
    prepare(*m_impl, psf, planeSize);
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
    restore(mu, plane, result, h);
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
