#include "hyper_laplacian_reference.h"

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>

#include <cmath>
#include <complex>

namespace clarovi::reference {

namespace {

using Complex = std::complex<double>;

cv::Mat spectrum(const cv::Mat& real) {
    cv::Mat out;
    cv::dft(real, out, cv::DFT_COMPLEX_OUTPUT);
    return out;
}

cv::Mat realInverse(const cv::Mat& spectrumOf) {
    cv::Mat out;
    cv::dft(spectrumOf, out, cv::DFT_INVERSE | cv::DFT_SCALE | cv::DFT_REAL_OUTPUT);
    return out;
}

Complex at(const cv::Mat& c, int i, int j) {
    const cv::Vec2d v = c.at<cv::Vec2d>(i, j);
    return {v[0], v[1]};
}

/// The transform of an image that holds filter f with its tap (cx, cy) at the origin, wrapped.
cv::Mat transferFunction(const cv::Mat& f, cv::Point centre, cv::Size size) {
    cv::Mat image = cv::Mat::zeros(size, CV_64F);
    for (int r = 0; r < f.rows; ++r)
        for (int c = 0; c < f.cols; ++c)
            image.at<double>(((r - centre.y) % size.height + size.height) % size.height,
                             ((c - centre.x) % size.width + size.width) % size.width) +=
                f.at<double>(r, c);
    return spectrum(image);
}

} // namespace

double exactGradientShrink(double v, double beta, double alpha) {
    const double a = std::abs(v);
    const auto energy = [&](double w) { return std::pow(w, alpha) + beta / 2 * (w - a) * (w - a); };
    // For w > 0 a stationary point has beta (a - w) w^(1 - alpha) = alpha. The left side rises
    // from 0 to its top at w = (1 - alpha) a / (2 - alpha) and falls back to 0 at a.
    const auto left = [&](double w) { return beta * (a - w) * std::pow(w, 1 - alpha); };
    double low = (1 - alpha) * a / (2 - alpha), high = a;
    if (a == 0 || left(low) < alpha)
        return 0;
    for (int i = 0; i < 40; ++i) {
        const double mid = 0.5 * (low + high);
        (left(mid) >= alpha ? low : high) = mid;
    }
    return energy(low) < energy(0) ? std::copysign(low, v) : 0;
}

cv::Mat hyperLaplacianRestore(const cv::Mat& blurred, const cv::Mat& kernel, double lambda,
                              double alpha) {
    cv::Mat y, k;
    blurred.convertTo(y, CV_64F);
    kernel.convertTo(k, CV_64F);
    cv::Mat mirrored;
    cv::copyMakeBorder(y, mirrored, 0, y.rows, 0, y.cols, cv::BORDER_REFLECT);
    const cv::Size size = mirrored.size();
    const cv::Mat K = transferFunction(k, {k.cols / 2, k.rows / 2}, size);
    // Forward differences as convolutions: tap -1 is +1 and tap 0 is -1.
    const cv::Mat Dx = transferFunction((cv::Mat_<double>(1, 2) << 1, -1), {1, 0}, size);
    const cv::Mat Dy = transferFunction((cv::Mat_<double>(2, 1) << 1, -1), {0, 1}, size);
    const cv::Mat Y = spectrum(mirrored);

    cv::Mat x = mirrored.clone();
    for (double beta = 1; beta <= 256 * (1 + 1e-9); beta *= 2 * std::sqrt(2.0)) {
        // w step: each forward difference, periodic, shrunk on its own; rows on all cores.
        cv::Mat wx(size, CV_64F), wy(size, CV_64F);
        cv::parallel_for_(cv::Range(0, size.height), [&](const cv::Range& rows) {
            for (int i = rows.start; i < rows.end; ++i)
                for (int j = 0; j < size.width; ++j) {
                    const double here = x.at<double>(i, j);
                    wx.at<double>(i, j) = exactGradientShrink(
                        x.at<double>(i, (j + 1) % size.width) - here, beta, alpha);
                    wy.at<double>(i, j) = exactGradientShrink(
                        x.at<double>((i + 1) % size.height, j) - here, beta, alpha);
                }
        });
        // x step: (lambda K* Y + beta (Dx* Wx + Dy* Wy)) / (lambda |K|^2 + beta (|Dx|^2 + |Dy|^2)).
        const cv::Mat Wx = spectrum(wx), Wy = spectrum(wy);
        cv::Mat X(size, CV_64FC2);
        for (int i = 0; i < size.height; ++i)
            for (int j = 0; j < size.width; ++j) {
                const Complex kk = at(K, i, j), dx = at(Dx, i, j), dy = at(Dy, i, j);
                const Complex numerator =
                    lambda * std::conj(kk) * at(Y, i, j) +
                    beta * (std::conj(dx) * at(Wx, i, j) + std::conj(dy) * at(Wy, i, j));
                const double denominator =
                    lambda * std::norm(kk) + beta * (std::norm(dx) + std::norm(dy));
                const Complex value = numerator / denominator;
                X.at<cv::Vec2d>(i, j) = {value.real(), value.imag()};
            }
        x = realInverse(X);
    }
    return x(cv::Rect(0, 0, y.cols, y.rows)).clone();
}

} // namespace clarovi::reference
