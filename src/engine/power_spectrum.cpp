#include "power_spectrum.h"

#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <stdexcept>
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

} // namespace

cv::Mat averagePowerSpectrum(const cv::Mat& grey, int side) {
    if (grey.channels() != 1 || side < 2 || side % 2 != 0 || grey.rows < side || grey.cols < side)
        throw std::invalid_argument("averagePowerSpectrum: one channel, at least side x side");
    cv::Mat hann;
    cv::createHanningWindow(hann, {side, side}, CV_32F);
    const int stride = side / 2;
    const int across = (grey.cols - side) / stride + 1;
    const int down = (grey.rows - side) / stride + 1;
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

} // namespace clarovi::engine
