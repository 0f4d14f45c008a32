#include "kernel_transform.h"

#include <stdexcept>

namespace clarovi::engine {

KernelSpectrum kernelSpectrum(const cv::Mat& kernel, cv::Size canvas, int threads) {
    if (kernel.channels() != 1 || kernel.empty())
        throw std::invalid_argument("the kernel must be a non-empty plane of one channel");
    if (kernel.cols > canvas.width || kernel.rows > canvas.height)
        throw std::invalid_argument("the kernel is larger than the canvas");
    KernelSpectrum k{SpectralPlane(canvas), differencePower(canvas.width, canvas.width / 2 + 1),
                     differencePower(canvas.height, canvas.height)};
    cv::Mat real = k.otf.real();
    real.setTo(0);
    cv::Mat values;
    kernel.convertTo(values, CV_32F);
    // Row r of the kernel lands on canvas row r - rows / 2, wrapped; likewise the columns.
    for (int r = 0; r < values.rows; ++r) {
        const float* in = values.ptr<float>(r);
        float* out = k.otf.row((r - values.rows / 2 + canvas.height) % canvas.height);
        for (int c = 0; c < values.cols; ++c)
            out[(c - values.cols / 2 + canvas.width) % canvas.width] = in[c];
    }
    k.otf.forward(threads);
    return k;
}

void applyRegularisedFilter(SpectralPlane& data, const KernelSpectrum& kernel, double gamma,
                            int threads) {
    const float scale = 1.0f / (static_cast<float>(data.rows()) * static_cast<float>(data.cols()));
    const auto g = static_cast<float>(gamma);
    const int half = data.halfCols();
    forRanges(data.rows(), threads, [&](int begin, int end) {
        for (int u = begin; u < end; ++u) {
            std::complex<float>* y = data.spectrumRow(u);
            const std::complex<float>* k = kernel.otf.spectrumRow(u);
            const float down = kernel.downPower[static_cast<std::size_t>(u)];
            for (int v = 0; v < half; ++v) {
                const float denominator =
                    squaredMagnitude(k[v]) +
                    g * (down + kernel.acrossPower[static_cast<std::size_t>(v)]);
                // Only the zero frequency has |D|^2 = 0, and there K = 1.
                y[v] = conjugateTimes(k[v], y[v]) * (scale / denominator);
            }
        }
    });
}

} // namespace clarovi::engine
