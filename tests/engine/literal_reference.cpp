#include "literal_reference.h"

#include <cmath>

namespace clarovi::reference {

void forwardSpectrum(const cv::Mat& source, cv::Mat planes[2], Workspace& ws) {
    const int m = cv::getOptimalDFTSize(source.rows);
    const int n = cv::getOptimalDFTSize(source.cols);
    cv::copyMakeBorder(source, ws.padded, 0, m - source.rows, 0, n - source.cols,
                       cv::BORDER_CONSTANT, cv::Scalar::all(0));
    ws.padded.convertTo(ws.split[0], CV_64F);
    ws.split[1] = cv::Mat::zeros(ws.split[0].size(), CV_64F);
    cv::merge(ws.split, 2, ws.complexPlane);
    cv::dft(ws.complexPlane, ws.complexPlane, 0, 0);
    cv::split(ws.complexPlane, ws.split);
    const cv::Rect window(0, 0, source.cols, source.rows);
    ws.split[0](window).copyTo(planes[0]);
    ws.split[1](window).copyTo(planes[1]);
}

void inverseSpectrum(cv::Mat planes[2], cv::Mat& out, Workspace& ws) {
    cv::merge(planes, 2, ws.complexPlane);
    cv::dft(ws.complexPlane, ws.complexPlane, cv::DFT_INVERSE + cv::DFT_SCALE, 0);
    cv::split(ws.complexPlane, planes);
    planes[0].copyTo(out);
}

void swapQuadrants(const cv::Mat& source, cv::Mat& destination, Workspace& ws) {
    const int cx = source.cols / 2;
    const int cy = source.rows / 2;
    source.copyTo(ws.scratch);
    if (cx == 0 || cy == 0) {
        ws.scratch.copyTo(destination);
        return;
    }
    source(cv::Rect(0, 0, cx, cy)).copyTo(ws.scratch(cv::Rect(cx, cy, cx, cy)));
    source(cv::Rect(cx, cy, cx, cy)).copyTo(ws.scratch(cv::Rect(0, 0, cx, cy)));
    source(cv::Rect(cx, 0, cx, cy)).copyTo(ws.scratch(cv::Rect(0, cy, cx, cy)));
    source(cv::Rect(0, cy, cx, cy)).copyTo(ws.scratch(cv::Rect(cx, 0, cx, cy)));
    ws.scratch.copyTo(destination);
}

void convolveSpectrum(const cv::Mat& A, const cv::Mat& B, cv::Mat& C) {
    C.create(std::abs(A.rows - B.rows) + 1, std::abs(A.cols - B.cols) + 1, A.type());
    const cv::Size size(cv::getOptimalDFTSize(A.cols + B.cols - 1),
                        cv::getOptimalDFTSize(A.rows + B.rows - 1));
    cv::Mat tempA(size, A.type(), cv::Scalar::all(0));
    cv::Mat tempB(size, B.type(), cv::Scalar::all(0));
    A.copyTo(tempA(cv::Rect(0, 0, A.cols, A.rows)));
    B.copyTo(tempB(cv::Rect(0, 0, B.cols, B.rows)));
    cv::dft(tempA, tempA, 0, A.rows);
    cv::dft(tempB, tempB, 0, B.rows);
    cv::mulSpectrums(tempA, tempB, tempA, 0, false);
    cv::dft(tempA, tempA, cv::DFT_INVERSE + cv::DFT_SCALE, 0);
    tempA(cv::Rect(0, 0, C.cols, C.rows)).copyTo(C);
}

cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf,
                        Workspace& ws) {
    const int rows = plane.rows;
    const int cols = plane.cols;
    forwardSpectrum(plane, ws.g, ws);

    const int top = (rows - psf.rows) / 2;
    const int bottom = (rows - psf.rows) - top;
    const int left = (cols - psf.cols) / 2;
    const int right = (cols - psf.cols) - left;
    cv::copyMakeBorder(psf, ws.centred, top, bottom, left, right, cv::BORDER_CONSTANT,
                       cv::Scalar::all(0));
    forwardSpectrum(ws.centred, ws.h, ws);

    ws.f[0].create(rows, cols, CV_64F);
    ws.f[1].create(rows, cols, CV_64F);
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) {
            const double hr = ws.h[0].at<double>(i, j);
            const double hi = ws.h[1].at<double>(i, j);
            const double gr = ws.g[0].at<double>(i, j);
            const double gi = ws.g[1].at<double>(i, j);
            const double s = hr * hr + hi * hi;
            const double eps = s < 1e-8 ? 1e-8 : 0.0;
            const double m = ws.centred.at<double>(i, j) > 0.0 ? 1.0 : 0.0;
            const double denominator = m + s + 3.0 * mu;
            const double w = denominator == 0.0 ? 0.0 : std::abs(s / denominator);
            const double hr2 = hr + eps;
            const double hi2 = hi + eps;
            const double d = 1.0 / (hr2 * hr2 + hi2 * hi2);
            ws.f[0].at<double>(i, j) = (hr2 * gr + hi2 * gi) * d * w;
            ws.f[1].at<double>(i, j) = (hr2 * gi - hi2 * gr) * d * w;
        }
    }
    inverseSpectrum(ws.f, result, ws);
    swapQuadrants(result, result, ws);
    return result;
}

} // namespace clarovi::reference
