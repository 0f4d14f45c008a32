#include "shake_kernel.h"

#include "image_bridge.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace clarovi::engine {

namespace {

// The noise of a frame's pixels from their median absolute deviation: 1.4826 MAD is the standard
// deviation of Gaussian noise, and unlike the deviation itself a few lit pixels of a blur that
// touches the frame do not move it.
constexpr double kMadToSigma = 1.4826;
constexpr double kBackgroundSigmas = 5.0;

/// The grey levels of the outermost ring of picture's pixels.
std::vector<float> frameLevels(const cv::Mat& picture) {
    std::vector<float> levels;
    for (int x = 0; x < picture.cols; ++x) {
        levels.push_back(picture.at<float>(0, x));
        levels.push_back(picture.at<float>(picture.rows - 1, x));
    }
    for (int y = 1; y + 1 < picture.rows; ++y) {
        levels.push_back(picture.at<float>(y, 0));
        levels.push_back(picture.at<float>(y, picture.cols - 1));
    }
    return levels;
}

float median(std::vector<float> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The level under which picture's pixels count as the sky or paper around the blur.
double backgroundLevel(const cv::Mat& picture) {
    std::vector<float> frame = frameLevels(picture);
    const float level = median(frame);
    double brightest = 0;
    cv::minMaxLoc(picture, nullptr, &brightest);
    if (level >= 0.5 * brightest)
        return 0; // the blur fills the frame: its edges are no background
    for (float& value : frame)
        value = std::abs(value - level);
    return level + kBackgroundSigmas * kMadToSigma * median(std::move(frame));
}

void refuse(QString* error, const QString& reason) {
    if (error)
        *error = reason;
}

} // namespace

cv::Mat centredKernel(const cv::Mat& weights) {
    cv::Mat positive;
    weights.convertTo(positive, CV_64F);
    positive.setTo(0, ~(positive > 0)); // negatives and NaN
    const cv::Moments m = cv::moments(positive);
    if (cv::countNonZero(positive) == 0 || m.m00 <= 0)
        return {};
    const cv::Rect support = cv::boundingRect(positive > 0);
    const cv::Point centre(static_cast<int>(std::lround(m.m10 / m.m00)),
                           static_cast<int>(std::lround(m.m01 / m.m00)));
    const int half = std::max({centre.x - support.x, support.br().x - 1 - centre.x,
                               centre.y - support.y, support.br().y - 1 - centre.y});
    cv::Mat kernel = cv::Mat::zeros(2 * half + 1, 2 * half + 1, CV_32F);
    const cv::Point corner(half - centre.x, half - centre.y); // where weights' (0, 0) falls
    positive(support).convertTo(kernel(support + corner), CV_32F, 1.0 / m.m00);
    return kernel;
}

cv::Mat kernelFromPicture(const QImage& picture, QString* error) {
    if (picture.isNull()) {
        refuse(error, QStringLiteral("The kernel file holds no picture that can be read."));
        return {};
    }
    if (picture.width() > kLargestKernelPicture || picture.height() > kLargestKernelPicture) {
        refuse(error, QStringLiteral("The kernel picture is %1 × %2 pixels; a kernel may be at "
                                     "most %3 pixels on a side.")
                          .arg(picture.width())
                          .arg(picture.height())
                          .arg(kLargestKernelPicture));
        return {};
    }
    cv::Mat grey;
    CVGrayscaleMat(picture).convertTo(grey, CV_32F);
    cv::subtract(grey, backgroundLevel(grey), grey);
    cv::Mat kernel = centredKernel(grey);
    if (kernel.empty())
        refuse(error, QStringLiteral("The kernel picture is black: it holds no blur to undo."));
    return kernel;
}

QImage kernelPicture(const cv::Mat& kernel) {
    double largest = 0;
    if (!kernel.empty())
        cv::minMaxLoc(kernel, nullptr, &largest);
    if (largest <= 0)
        return {};
    cv::Mat levels;
    kernel.convertTo(levels, CV_8U, 255.0 / largest); // saturating and rounding to nearest
    return imageWithCVMat(levels);
}

} // namespace clarovi::engine
