#include "welch_power.h"

#include "frequency.h"

#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>
#include <vector>

namespace clarovi::engine {

namespace {

// Adds |spectrum|^2 to sum, element by element.
void addPower(const cv::Mat& spectrum, cv::Mat& sum) {
    for (int y = 0; y < sum.rows; ++y) {
        const auto* c = spectrum.ptr<cv::Vec2f>(y);
        auto* s = sum.ptr<float>(y);
        for (int x = 0; x < sum.cols; ++x)
            s[x] += c[x][0] * c[x][0] + c[x][1] * c[x][1];
    }
}

// The value below which the given share of the matrix's values lie.
float percentile(const cv::Mat& values, double share) {
    std::vector<float> sorted(values.begin<float>(), values.end<float>());
    const auto at = sorted.begin() + std::ptrdiff_t(share * double(sorted.size() - 1));
    std::nth_element(sorted.begin(), at, sorted.end());
    return *at;
}

// The frequency, in cycles per pixel, up to which a log power spectrum holds more than noise:
// beyond it the mean over each ring stays within a factor e^2 of the level at the highest
// frequencies. Never below 1/16, so that a blurred-out picture still shows its centre.
double signalBand(const cv::Mat& logPower) {
    const std::vector<double> rings = ringMeans(logPower);
    const int side = logPower.cols;
    const int outer = side / 2 - 1; // the last whole ring
    const double noise = rings[size_t(outer)];
    int edge = outer;
    while (edge > side / 32 && rings[size_t(edge)] < noise + 2.0)
        --edge;
    // A margin past the edge, so that the last ring of signal is not on the border.
    return std::min(0.5, 1.25 * edge / side);
}

/// Windows across and down a picture of the given size, one every side / 2 pixels.
std::pair<int, int> windowCounts(cv::Size picture, int side) {
    const int stride = side / 2;
    return {(picture.width - side) / stride + 1, (picture.height - side) / stride + 1};
}

} // namespace

std::vector<double> ringMeans(const cv::Mat& values) {
    const int side = values.cols;
    const int outer = side / 2;
    std::vector<double> sum(size_t(outer + 1), 0.0);
    std::vector<int> count(sum.size(), 0);
    for (int y = 0; y < side; ++y) {
        const float* row = values.ptr<float>(y);
        const int fy = y <= outer ? y : y - side;
        for (int x = 0; x < side; ++x) {
            const int fx = x <= outer ? x : x - side;
            const auto r = size_t(std::lround(std::hypot(fx, fy)));
            if (r < sum.size()) {
                sum[r] += row[x];
                ++count[r];
            }
        }
    }
    for (size_t r = 0; r < sum.size(); ++r)
        sum[r] /= std::max(count[r], 1);
    return sum;
}

cv::Mat averagePowerSpectrum(const cv::Mat& grey, int side) {
    if (grey.channels() != 1 || side < 2 || side % 2 != 0 || grey.rows < side || grey.cols < side)
        throw std::invalid_argument("averagePowerSpectrum: one channel, at least side x side");
    cv::Mat hann;
    cv::createHanningWindow(hann, {side, side}, CV_32F);
    const int stride = side / 2;
    // Plain ints rather than a structured binding, which clang 14 cannot capture in a lambda.
    const std::pair<int, int> counts = windowCounts(grey.size(), side);
    const int across = counts.first;
    const int down = counts.second;
    // One sum per row of windows, so that the rows run on several cores without sharing a sum.
    std::vector<cv::Mat> rowSums(static_cast<size_t>(down));
    cv::parallel_for_(cv::Range(0, down), [&](const cv::Range& rows) {
        cv::Mat patch, spectrum;
        for (int row = rows.start; row < rows.end; ++row) {
            cv::Mat sum(side, side, CV_32F, cv::Scalar(0));
            for (int col = 0; col < across; ++col) {
                grey(cv::Rect(col * stride, row * stride, side, side)).convertTo(patch, CV_32F);
                // The mean is removed so that the window's own transform does not leak around DC.
                patch -= cv::mean(patch)[0];
                patch = patch.mul(hann);
                cv::dft(patch, spectrum, cv::DFT_COMPLEX_OUTPUT);
                addPower(spectrum, sum);
            }
            rowSums[static_cast<size_t>(row)] = sum;
        }
    });
    cv::Mat total = rowSums.front();
    for (size_t i = 1; i < rowSums.size(); ++i)
        total += rowSums[i];
    return total;
}

cv::Mat powerSpectralDensity(const cv::Mat& grey, int side) {
    const cv::Mat sum = averagePowerSpectrum(grey, side);
    cv::Mat hann;
    cv::createHanningWindow(hann, {side, side}, CV_32F);
    const auto [across, down] = windowCounts(grey.size(), side);
    return sum / (double(across) * down * cv::sum(hann.mul(hann))[0]);
}

SpectrumPicture logPowerPicture(const cv::Mat& power) {
    if (power.empty())
        return {};
    cv::Mat logPower;
    // The floor keeps exact zeros finite, far below anything a picture's spectrum holds.
    cv::log(power + cv::Scalar(1e-12 * cv::mean(power)[0] + 1e-30), logPower);
    const double maxFrequency = signalBand(logPower);
    swapQuadrants(logPower, logPower);
    const int half = std::max(1, int(std::lround(maxFrequency * logPower.cols)));
    const cv::Point centre(logPower.cols / 2, logPower.rows / 2);
    const cv::Mat shown = logPower(cv::Rect(centre.x - half, centre.y - half, 2 * half, 2 * half));
    const float low = percentile(shown, 0.01);
    const double range = std::max(double(percentile(shown, 0.999) - low), 1e-6);
    cv::Mat picture;
    shown.convertTo(picture, CV_8U, 255.0 / range, -255.0 * low / range);
    return {picture, double(half) / logPower.cols};
}

} // namespace clarovi::engine
