#include "literal_reference.h"

#include <cmath>

namespace clarovi::reference {

void forwardSpectrum(const cv::Mat& source, cv::Mat planes[2]) {
    const int m = cv::getOptimalDFTSize(source.rows);
    const int n = cv::getOptimalDFTSize(source.cols);
    cv::Mat padded;
    cv::copyMakeBorder(source, padded, 0, m - source.rows, 0, n - source.cols, cv::BORDER_CONSTANT,
                       cv::Scalar::all(0));
    cv::Mat pair[] = {cv::Mat(), cv::Mat::zeros(padded.size(), CV_64F)};
    padded.convertTo(pair[0], CV_64F);
    cv::Mat complex;
    cv::merge(pair, 2, complex);
    cv::dft(complex, complex, 0, 0);
    cv::split(complex, pair);
    const cv::Rect window(0, 0, source.cols, source.rows);
    pair[0](window).copyTo(planes[0]);
    pair[1](window).copyTo(planes[1]);
}

void inverseSpectrum(cv::Mat planes[2], cv::Mat& out) {
    cv::Mat complex;
    cv::merge(planes, 2, complex);
    cv::dft(complex, complex, cv::DFT_INVERSE | cv::DFT_SCALE, 0);
    cv::split(complex, planes);
    out = planes[0];
}

void swapQuadrants(cv::Mat& matrix) {
    const int cx = matrix.cols / 2;
    const int cy = matrix.rows / 2;
    cv::Mat scratch = matrix.clone();
    matrix(cv::Rect(0, 0, cx, cy)).copyTo(scratch(cv::Rect(cx, cy, cx, cy)));
    matrix(cv::Rect(cx, cy, cx, cy)).copyTo(scratch(cv::Rect(0, 0, cx, cy)));
    matrix(cv::Rect(cx, 0, cx, cy)).copyTo(scratch(cv::Rect(0, cy, cx, cy)));
    matrix(cv::Rect(0, cy, cx, cy)).copyTo(scratch(cv::Rect(cx, 0, cx, cy)));
    matrix = scratch;
}

cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf) {
    const int rows = plane.rows;
    const int cols = plane.cols;
    cv::Mat g[2];
    forwardSpectrum(plane, g);

    const int top = (rows - psf.rows) / 2;
    const int left = (cols - psf.cols) / 2;
    cv::Mat p;
    cv::copyMakeBorder(psf, p, top, (rows - psf.rows) - top, left, (cols - psf.cols) - left,
                       cv::BORDER_CONSTANT, cv::Scalar::all(0));
    cv::Mat h[2];
    forwardSpectrum(p, h);

    cv::Mat f[] = {cv::Mat(rows, cols, CV_64F), cv::Mat(rows, cols, CV_64F)};
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) {
            const double hr = h[0].at<double>(i, j);
            const double hi = h[1].at<double>(i, j);
            const double gr = g[0].at<double>(i, j);
            const double gi = g[1].at<double>(i, j);
            const double s = hr * hr + hi * hi;
            const double eps = s < 1e-8 ? 1e-8 : 0.0;
            const double m = p.at<double>(i, j) > 0.0 ? 1.0 : 0.0;
            const double w = std::abs(s / (m + s + 3.0 * mu));
            const double hr2 = hr + eps;
            const double hi2 = hi + eps;
            const double d = 1.0 / (hr2 * hr2 + hi2 * hi2);
            f[0].at<double>(i, j) = (hr2 * gr + hi2 * gi) * d * w;
            f[1].at<double>(i, j) = (hr2 * gi - hi2 * gr) * d * w;
        }
    }
    inverseSpectrum(f, result);
    swapQuadrants(result);
    return result;
}

} // namespace clarovi::reference
