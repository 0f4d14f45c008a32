#include "frequency.h"

#include "fftw_plans.h"

#include <opencv2/core.hpp>

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
    C.create(std::abs(A.rows - B.rows) + 1, std::abs(A.cols - B.cols) + 1, A.type());
    const cv::Size size(cv::getOptimalDFTSize(A.cols + B.cols - 1),
                        cv::getOptimalDFTSize(A.rows + B.rows - 1));
    cv::Mat tempA(size, A.type(), cv::Scalar::all(0));
    cv::Mat tempB(size, B.type(), cv::Scalar::all(0));
    A.copyTo(tempA(cv::Rect(0, 0, A.cols, A.rows)));
    B.copyTo(tempB(cv::Rect(0, 0, B.cols, B.rows)));
    // Each hint is the matrix's own row count: the rows below it are zero padding. (A's count for
    // B would drop B's lower rows whenever B is the taller one.)
    cv::dft(tempA, tempA, 0, A.rows);
    cv::dft(tempB, tempB, 0, B.rows);
    cv::mulSpectrums(tempA, tempB, tempA, 0, false);
    cv::dft(tempA, tempA, cv::DFT_INVERSE + cv::DFT_SCALE, 0);
    tempA(cv::Rect(0, 0, C.cols, C.rows)).copyTo(C);
}

} // namespace clarovi::engine
