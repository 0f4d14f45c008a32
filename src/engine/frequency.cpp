#include "frequency.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <stdexcept>

namespace clarovi::engine {

void swapQuadrants(const cv::Mat& source, cv::Mat& destination) {
    const int cx = source.cols / 2;
    const int cy = source.rows / 2;
    // Starting from a copy leaves the last row and column of odd sizes, which no quadrant
    // covers, with the source's values.
    cv::Mat scratch = source.clone();
    if (cx > 0 && cy > 0) {
        source(cv::Rect(0, 0, cx, cy)).copyTo(scratch(cv::Rect(cx, cy, cx, cy)));
        source(cv::Rect(cx, cy, cx, cy)).copyTo(scratch(cv::Rect(0, 0, cx, cy)));
        source(cv::Rect(cx, 0, cx, cy)).copyTo(scratch(cv::Rect(0, cy, cx, cy)));
        source(cv::Rect(0, cy, cx, cy)).copyTo(scratch(cv::Rect(cx, 0, cx, cy)));
    }
    destination = scratch;
}

void convolveSpectrum(const cv::Mat& A, const cv::Mat& B, cv::Mat& C) {
    if (A.type() != B.type() || A.channels() != 1)
        throw std::invalid_argument("convolveSpectrum needs two planes of one type");
    const int rows = std::abs(A.rows - B.rows) + 1;
    const int cols = std::abs(A.cols - B.cols) + 1;
    // The top-left rows x cols of the full product depend only on the top-left rows x cols of
    // each factor: a transform of twice that window gives them exactly, however large A and B
    // are (a picture and a PSF of one size need a single product, not a 4096 x 4096 transform).
    const cv::Rect windowA(0, 0, std::min(cols, A.cols), std::min(rows, A.rows));
    const cv::Rect windowB(0, 0, std::min(cols, B.cols), std::min(rows, B.rows));
    const cv::Size size(cv::getOptimalDFTSize(2 * cols - 1), cv::getOptimalDFTSize(2 * rows - 1));
    cv::Mat tempA(size, A.type(), cv::Scalar::all(0));
    cv::Mat tempB(size, B.type(), cv::Scalar::all(0));
    A(windowA).copyTo(tempA(windowA));
    B(windowB).copyTo(tempB(windowB));
    cv::dft(tempA, tempA);
    cv::dft(tempB, tempB);
    cv::mulSpectrums(tempA, tempB, tempA, 0, false);
    cv::dft(tempA, tempA, cv::DFT_INVERSE + cv::DFT_SCALE);
    C.create(rows, cols, A.type());
    tempA(cv::Rect(0, 0, cols, rows)).copyTo(C);
}

} // namespace clarovi::engine
