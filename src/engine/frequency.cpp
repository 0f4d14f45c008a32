#include "frequency.h"

#include <opencv2/core.hpp>

#include <cstdlib>
#include <stdexcept>

namespace clarovi::engine {

void forwardSpectrum(const cv::Mat& source, cv::Mat planes[2]) {
    if (source.empty() || source.channels() != 1)
        throw std::invalid_argument("forwardSpectrum needs one non-empty plane");
    const int m = cv::getOptimalDFTSize(source.rows);
    const int n = cv::getOptimalDFTSize(source.cols);
    cv::Mat padded;
    cv::copyMakeBorder(source, padded, 0, m - source.rows, 0, n - source.cols, cv::BORDER_CONSTANT,
                       cv::Scalar::all(0));
    cv::Mat pair[] = {cv::Mat(), cv::Mat::zeros(padded.size(), CV_64F)};
    padded.convertTo(pair[0], CV_64F);
    cv::Mat complex;
    cv::merge(pair, 2, complex);
    cv::dft(complex, complex);
    cv::split(complex, pair);
    const cv::Rect window(0, 0, source.cols, source.rows);
    pair[0](window).copyTo(planes[0]);
    pair[1](window).copyTo(planes[1]);
}

void inverseSpectrum(cv::Mat planes[2], cv::Mat& out) {
    cv::Mat complex;
    cv::merge(planes, 2, complex);
    cv::dft(complex, complex, cv::DFT_INVERSE | cv::DFT_SCALE);
    cv::split(complex, planes);
    out = planes[0];
}

void swapQuadrants(const cv::Mat& source, cv::Mat& destination) {
    const int cx = source.cols / 2;
    const int cy = source.rows / 2;
    // Starting from the source leaves the last row and column of an odd size as they were.
    cv::Mat scratch = source.clone();
    source(cv::Rect(0, 0, cx, cy)).copyTo(scratch(cv::Rect(cx, cy, cx, cy)));
    source(cv::Rect(cx, cy, cx, cy)).copyTo(scratch(cv::Rect(0, 0, cx, cy)));
    source(cv::Rect(cx, 0, cx, cy)).copyTo(scratch(cv::Rect(0, cy, cx, cy)));
    source(cv::Rect(0, cy, cx, cy)).copyTo(scratch(cv::Rect(cx, 0, cx, cy)));
    destination = scratch;
}

void convolveSpectrum(const cv::Mat& A, const cv::Mat& B, cv::Mat& C) {
    if (A.type() != B.type() || A.channels() != 1)
        throw std::invalid_argument("convolveSpectrum needs two planes of one type");
    const int rows = std::abs(A.rows - B.rows) + 1;
    const int cols = std::abs(A.cols - B.cols) + 1;
    // The top-left rows x cols of the full product depend only on the top-left rows x cols of
    // each factor, so a transform of twice that window gives them exactly, however large A and
    // B are.
    const cv::Rect window(0, 0, std::min({cols, A.cols, B.cols}), std::min({rows, A.rows, B.rows}));
    const cv::Size size(cv::getOptimalDFTSize(2 * cols - 1), cv::getOptimalDFTSize(2 * rows - 1));
    cv::Mat tempA = cv::Mat::zeros(size, A.type());
    cv::Mat tempB = cv::Mat::zeros(size, B.type());
    A(window).copyTo(tempA(window));
    B(window).copyTo(tempB(window));
    cv::dft(tempA, tempA, 0, window.height);
    cv::dft(tempB, tempB, 0, window.height);
    cv::mulSpectrums(tempA, tempB, tempA, 0, false);
    cv::dft(tempA, tempA, cv::DFT_INVERSE | cv::DFT_SCALE);
    C.create(rows, cols, A.type());
    tempA(cv::Rect(0, 0, cols, rows)).copyTo(C);
}

} // namespace clarovi::engine
