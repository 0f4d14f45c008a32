#include "log_magnitude.h"

#include "frequency.h"

#include <opencv2/core.hpp>

namespace clarovi::engine {

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
    swapQuadrants(s, s); // the zero frequency to the centre
    cv::normalize(s, s, 0, 1, cv::NORM_MINMAX);

    cv::Mat result;
    s.convertTo(result, CV_8U, 255.0);
    return result;
}

} // namespace clarovi::engine
