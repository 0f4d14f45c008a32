#include "frequency.h"

#include "fftw_plans.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <stdexcept>

namespace clarovi::engine {

void forwardSpectrum(const cv::Mat& source, cv::Mat planes[2]) {
    if (source.empty() || source.channels() != 1)
        throw std::invalid_argument("forwardSpectrum needs a non-empty one-channel plane");
    // A real input needs only half of the transform; the other half is its mirror image.
    thread_local fftw::HalfSpectrum half;
    fftw::forwardReal(source, {0, 0}, source.size(), half);
    planes[0].create(source.size(), CV_64F);
    planes[1].create(source.size(), CV_64F);
    for (int u = 0; u < source.rows; ++u) {
        auto* re = planes[0].ptr<double>(u);
        auto* im = planes[1].ptr<double>(u);
        for (int v = 0; v < source.cols; ++v) {
            const std::complex<double> value = half.at(u, v);
            re[v] = value.real();
            im[v] = value.imag();
        }
    }
}

void inverseSpectrum(cv::Mat planes[2], cv::Mat& out) {
    const int rows = planes[0].rows;
    const int cols = planes[0].cols;
    if (rows == 0 || cols == 0) {
        out.release();
        return;
    }
    CV_Assert(planes[0].type() == CV_64F && planes[1].type() == CV_64F &&
              planes[1].size() == planes[0].size());
    thread_local fftw::Buffer<fftw_complex> buffer;
    const std::ptrdiff_t stride = fftw::rowStride(cols);
    fftw_complex* data = buffer.reserve(rows * stride);
    const fftw_plan rowPlan = fftw::plan(fftw::Kind::Backward, cols);
    for (int i = 0; i < rows; ++i) {
        fftw_complex* row = data + i * stride;
        const auto* re = planes[0].ptr<double>(i);
        const auto* im = planes[1].ptr<double>(i);
        for (int j = 0; j < cols; ++j) {
            row[j][0] = re[j];
            row[j][1] = im[j];
        }
        fftw_execute_dft(rowPlan, row, row);
    }
    fftw::transformColumns(data, rows, cols, stride, fftw::Kind::Backward);
    const double scale = 1.0 / (static_cast<double>(rows) * cols);
    for (int i = 0; i < rows; ++i) {
        const fftw_complex* row = data + i * stride;
        auto* re = planes[0].ptr<double>(i);
        auto* im = planes[1].ptr<double>(i);
        for (int j = 0; j < cols; ++j) {
            re[j] = row[j][0] * scale;
            im[j] = row[j][1] * scale;
        }
    }
    planes[0].copyTo(out);
}

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
