#include "edge_preserving.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace clarovi::engine {

namespace {

constexpr double kAlpha = 2.0 / 3.0;
// The table holds g(t) = argmin_u |u|^alpha + (u - t)^2 / 2 for t in [0, kTableEnd] every
// 1 / kTableSteps; beyond it g(t) = t - alpha t^(alpha - 1) is within 0.002 of the minimiser.
constexpr int kTableSteps = 128;
constexpr double kTableEnd = 64.0;
constexpr int kTableSize = static_cast<int>(kTableEnd) * kTableSteps + 2;

/// The exact minimiser for one t >= 0: the largest stationary point of the energy, found by
/// Newton's method from t (the derivative is convex on u > 0, so the steps fall monotonically
/// onto it), if it beats u = 0.
double exactShrink(double t) {
    if (t <= 0)
        return 0;
    double u = t;
    for (int i = 0; i < 100; ++i) {
        const double slope = 1 + kAlpha * (kAlpha - 1) * std::pow(u, kAlpha - 2);
        if (slope <= 0)
            return 0; // past the derivative's minimum without a root: only u = 0 is left
        const double next = u - (u - t + kAlpha * std::pow(u, kAlpha - 1)) / slope;
        if (next <= 0)
            return 0;
        if (std::abs(next - u) < 1e-12 * t)
            break;
        u = next;
    }
    const double energy = std::pow(u, kAlpha) + 0.5 * (u - t) * (u - t);
    return energy < 0.5 * t * t ? u : 0;
}

struct ShrinkTable {
    std::array<float, kTableSize> values{};
    float threshold = 0; ///< the least t with a nonzero minimiser, on the table's grid
    ShrinkTable() {
        for (int i = 0; i < kTableSize; ++i)
            values[size_t(i)] = float(exactShrink(double(i) / kTableSteps));
        int first = 0;
        while (values[size_t(first)] == 0.0f)
            ++first;
        threshold = float(first - 1) / kTableSteps;
    }
};

const ShrinkTable& shrinkTable() {
    static const ShrinkTable table;
    return table;
}

/// shrinkGradient with beta's scale worked out once: w(v) = c g(|v| / c), c = beta^(-1 / (2 -
/// alpha)), which turns |w|^alpha + beta / 2 (w - v)^2 into c^alpha (|u|^alpha + (u - t)^2 / 2).
class Shrink {
  public:
    explicit Shrink(double beta)
        : m_table(shrinkTable()), m_c(float(std::pow(beta, -1.0 / (2.0 - kAlpha)))),
          m_inverseC(1.0f / m_c), m_below(m_table.threshold * m_c) {}

    float operator()(float v) const {
        const float a = std::abs(v);
        if (a <= m_below)
            return 0.0f;
        const float t = a * m_inverseC;
        float u;
        if (t < float(kTableEnd)) {
            const float position = t * kTableSteps;
            const int i = int(position);
            const float f = position - float(i);
            u = m_table.values[size_t(i)] * (1 - f) + m_table.values[size_t(i) + 1] * f;
        } else {
            u = t - float(kAlpha) / std::cbrt(t);
        }
        return std::copysign(u * m_c, v);
    }

  private:
    const ShrinkTable& m_table;
    float m_c, m_inverseC, m_below;
};

/// The shrunk forward differences down from row i of x to the next (periodic) into w.
void shrunkDown(const SpectralPlane& x, int i, const Shrink& shrink, std::vector<float>& w) {
    const float* a = x.row(i);
    const float* b = x.row((i + 1) % x.rows());
    for (int j = 0; j < x.cols(); ++j)
        w[size_t(j)] = shrink(b[j] - a[j]);
}

/// Replaces x by D^T w, w the shrunk forward differences of x across and down, both periodic
/// over the canvas: x = w_x(j - 1) - w_x(j) + w_y(i - 1) - w_y(i). In place, to keep one
/// canvas fewer: each band of rows is written only after its differences are taken, and the
/// differences across the bands' borders, which a neighbouring band would overwrite, are taken
/// before any band starts.
void gradientStep(SpectralPlane& x, const Shrink& shrink, int threads) {
    const int rows = x.rows();
    const int cols = x.cols();
    const auto width = static_cast<std::size_t>(cols);
    const int bands = std::clamp(threads, 1, rows);
    const auto bandStart = [&](int b) { return int(static_cast<long long>(rows) * b / bands); };
    // borders[b]: the differences down from the row above band b into its first row.
    std::vector<std::vector<float>> borders(static_cast<size_t>(bands), std::vector<float>(width));
    for (int b = 0; b < bands; ++b)
        shrunkDown(x, (bandStart(b) - 1 + rows) % rows, shrink, borders[size_t(b)]);
    forRanges(bands, bands, [&](int firstBand, int endBand) {
        std::vector<float> above(width), across(width), below(width);
        for (int b = firstBand; b < endBand; ++b) {
            above = borders[size_t(b)];
            const int end = bandStart(b + 1);
            for (int i = bandStart(b); i < end; ++i) {
                float* r = x.row(i);
                for (int j = 0; j + 1 < cols; ++j)
                    across[size_t(j)] = shrink(r[j + 1] - r[j]);
                across[size_t(cols - 1)] = shrink(r[0] - r[cols - 1]);
                if (i + 1 < end)
                    shrunkDown(x, i, shrink, below);
                else
                    below = borders[size_t((b + 1) % bands)];
                r[0] = across[size_t(cols - 1)] - across[0] + above[0] - below[0];
                for (int j = 1; j < cols; ++j)
                    r[j] = across[size_t(j - 1)] - across[size_t(j)] + above[size_t(j)] -
                           below[size_t(j)];
                std::swap(above, below);
            }
        }
    });
}

/// The canvas around the plane as the continuation filled it, run by run in forEachFrameRun's
/// order.
std::vector<float> frameValues(const SpectralPlane& canvas, const CanvasLayout& layout) {
    std::vector<float> values;
    forEachFrameRun(layout, [&](int r, int begin, int end) {
        values.insert(values.end(), canvas.row(r) + begin, canvas.row(r) + end);
    });
    return values;
}

/// Turns K x (in blurred) into the change of the data the next x step needs: K x minus the
/// continuation around the plane, 0 on the plane itself.
void frameCorrection(SpectralPlane& blurred, const CanvasLayout& layout,
                     const std::vector<float>& continuation) {
    const cv::Rect& p = layout.plane;
    for (int r = p.y; r < p.y + p.height; ++r)
        std::fill(blurred.row(r) + p.x, blurred.row(r) + p.x + p.width, 0.0f);
    std::size_t k = 0;
    forEachFrameRun(layout, [&](int r, int begin, int end) {
        float* row = blurred.row(r);
        for (int j = begin; j < end; ++j)
            row[j] -= continuation[k++];
    });
}

/// The x step: X = (KtY + conj(K) C + (beta / lambda) W) / (|K|^2 + (beta / lambda) |D|^2),
/// with C and W the transforms of the frame's correction and of D^T w, unnormalised; x holds W
/// and is given X. K X, which the next step's correction starts from, replaces C on the way.
void xStep(SpectralPlane& x, const SpectralPlane& data, SpectralPlane& correction,
           const KernelSpectrum& kernel, double ratio, int threads) {
    const float scale = 1.0f / (float(x.rows()) * float(x.cols()));
    const auto g = float(ratio);
    const int half = x.halfCols();
    forRanges(x.rows(), threads, [&](int begin, int end) {
        for (int u = begin; u < end; ++u) {
            const std::complex<float>* kty = data.spectrumRow(u);
            std::complex<float>* c = correction.spectrumRow(u);
            const std::complex<float>* k = kernel.otf.spectrumRow(u);
            std::complex<float>* o = x.spectrumRow(u);
            const float down = kernel.downPower[size_t(u)];
            for (int v = 0; v < half; ++v) {
                const float d2 = down + kernel.acrossPower[size_t(v)];
                const std::complex<float> numerator =
                    kty[v] + (conjugateTimes(k[v], c[v]) + g * o[v]) * scale;
                o[v] = numerator * (1.0f / (squaredMagnitude(k[v]) + g * d2));
                c[v] = times(k[v], o[v]);
            }
        }
    });
}

/// conj(K) Y scaled for the inverse transform, in place of Y.
void backProject(SpectralPlane& y, const KernelSpectrum& kernel, int threads) {
    const float scale = 1.0f / (float(y.rows()) * float(y.cols()));
    const int half = y.halfCols();
    forRanges(y.rows(), threads, [&](int begin, int end) {
        for (int u = begin; u < end; ++u) {
            std::complex<float>* a = y.spectrumRow(u);
            const std::complex<float>* k = kernel.otf.spectrumRow(u);
            for (int v = 0; v < half; ++v)
                a[v] = conjugateTimes(k[v], a[v]) * scale;
        }
    });
}

/// out = a / (|K|^2 + gamma |D|^2), the one-pass restoration of back-projected data a, and
/// blurred = K out.
void onePass(const SpectralPlane& a, const KernelSpectrum& kernel, double gamma, SpectralPlane& out,
             SpectralPlane& blurred, int threads) {
    const auto g = float(gamma);
    const int half = a.halfCols();
    forRanges(a.rows(), threads, [&](int begin, int end) {
        for (int u = begin; u < end; ++u) {
            const std::complex<float>* in = a.spectrumRow(u);
            const std::complex<float>* k = kernel.otf.spectrumRow(u);
            std::complex<float>* o = out.spectrumRow(u);
            std::complex<float>* b = blurred.spectrumRow(u);
            const float down = kernel.downPower[size_t(u)];
            for (int v = 0; v < half; ++v) {
                const float d2 = down + kernel.acrossPower[size_t(v)];
                o[v] = in[v] * (1.0f / (squaredMagnitude(k[v]) + g * d2));
                b[v] = times(k[v], o[v]);
            }
        }
    });
}

} // namespace

float shrinkGradient(float v, float beta) {
    return Shrink(beta)(v);
}

cv::Mat restoreEdgePreserving(const cv::Mat& plane, double scale, const CanvasLayout& layout,
                              const KernelSpectrum& kernel, const EdgePreservingWeights& weights,
                              int threads, const std::function<bool()>& cancelled) {
    const auto stop = [&] { return cancelled && cancelled(); };
    SpectralPlane data(layout.canvas), x(layout.canvas), blurred(layout.canvas);
    fillCanvas(plane, scale, layout, data, threads);
    const std::vector<float> continuation = frameValues(data, layout);
    data.forward(threads);
    backProject(data, kernel, threads);
    onePass(data, kernel, weights.startBeta / weights.lambda, x, blurred, threads);

    for (const double beta : weights.betas) {
        if (stop())
            return {};
        x.inverse(threads);
        blurred.inverse(threads);
        gradientStep(x, Shrink(beta), threads);
        frameCorrection(blurred, layout, continuation);
        x.forward(threads);
        blurred.forward(threads);
        xStep(x, data, blurred, kernel, beta / weights.lambda, threads);
    }
    if (stop())
        return {};
    x.inverse(threads);
    cv::Mat restored;
    x.real()(layout.plane).convertTo(restored, CV_32F, 1.0 / scale);
    return restored;
}

} // namespace clarovi::engine
