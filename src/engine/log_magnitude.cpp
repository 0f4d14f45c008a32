#include "log_magnitude.h"

#include <opencv2/core.hpp>

namespace clarovi::engine {

namespace {

// Exchanges the block at (0, 0) with the one at (cx, cy) and the one at (cx, 0) with (0, cy).
void centreZeroFrequency(cv::Mat& s) {
    const int cx = s.cols / 2;
    const int cy = s.rows / 2;
    cv::Mat q0(s, cv::Rect(0, 0, cx, cy));
    cv::Mat q1(s, cv::Rect(cx, 0, cx, cy));
    cv::Mat q2(s, cv::Rect(0, cy, cx, cy));
    cv::Mat q3(s, cv::Rect(cx, cy, cx, cy));
    cv::Mat temp;
    q0.copyTo(temp);
    q3.copyTo(q0);
    temp.copyTo(q3);
    q1.copyTo(temp);
    q2.copyTo(q1);
    temp.copyTo(q2);
}

} // namespace

cv::Mat logMagnitudeSpectrum(const cv::Mat& input) {
    if (input.empty())
        return {};
    const int m = cv::getOptimalDFTSize(input.rows);
    const int n = cv::getOptimalDFTSize(input.cols);
    cv::Mat extended;
    cv::copyMakeBorder(input, extended, 0, m - input.rows, 0, n - input.cols, cv::BORDER_CONSTANT,
                       cv::Scalar::all(0));

    cv::Mat planes[] = {cv::Mat(), cv::Mat::zeros(extended.size(), CV_32F)};
    extended.convertTo(planes[0], CV_32F);
    cv::Mat complex;
    cv::merge(planes, 2, complex);
    cv::dft(complex, complex);
    cv::split(complex, planes);

    cv::Mat s;
    cv::magnitude(planes[0], planes[1], s);
    s += cv::Scalar::all(1);
    cv::log(s, s);

    // The sides with their lowest bit cleared, so that the quadrants have equal sizes.
    s = s(cv::Rect(0, 0, s.cols & -2, s.rows & -2));
    if (s.empty())
        return {};
    centreZeroFrequency(s);
    cv::normalize(s, s, 0, 1, cv::NORM_MINMAX);

    cv::Mat result;
    s.convertTo(result, CV_8U, 255.0);
    return result;
}

} // namespace clarovi::engine
