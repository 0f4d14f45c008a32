#include "literal_reference.h"

#include <complex>

namespace clarovi::reference {

namespace {

// The complex spectrum of source, whose size is one the transform is fast at.
void forwardSpectrum(const cv::Mat& source, cv::Mat& spectrum, Workspace& ws) {
    source.convertTo(ws.scratch, CV_64F);
    cv::dft(ws.scratch, spectrum, cv::DFT_COMPLEX_OUTPUT);
}

// Swaps the quadrants of the even part; on odd sizes the last row and column stay where they are.
void swapQuadrants(cv::Mat& plane, Workspace& ws) {
    const int cx = plane.cols / 2;
    const int cy = plane.rows / 2;
    if (cx == 0 || cy == 0)
        return;
    plane.copyTo(ws.scratch);
    for (int y = 0; y < 2 * cy; ++y)
        for (int x = 0; x < 2 * cx; ++x)
            plane.at<double>(y, x) =
                ws.scratch.at<double>((y + cy) % (2 * cy), (x + cx) % (2 * cx));
}

} // namespace

cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf,
                        Workspace& ws) {
    // The plane grown to the optimal size by repeating its last row and column.
    const int rows = cv::getOptimalDFTSize(plane.rows);
    const int cols = cv::getOptimalDFTSize(plane.cols);
    cv::copyMakeBorder(plane, ws.padded, 0, rows - plane.rows, 0, cols - plane.cols,
                       cv::BORDER_REPLICATE);
    forwardSpectrum(ws.padded, ws.g, ws);
    const int top = (rows - psf.rows) / 2;
    const int left = (cols - psf.cols) / 2;
    cv::copyMakeBorder(psf, ws.centred, top, rows - psf.rows - top, left, cols - psf.cols - left,
                       cv::BORDER_CONSTANT, cv::Scalar::all(0));
    forwardSpectrum(ws.centred, ws.h, ws);

    ws.f.create(rows, cols, CV_64FC2);
    for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) {
            const cv::Vec2d hv = ws.h.at<cv::Vec2d>(i, j);
            const cv::Vec2d gv = ws.g.at<cv::Vec2d>(i, j);
            const std::complex<double> h(hv[0], hv[1]), g(gv[0], gv[1]);
            const double s = std::norm(h);
            const double eps = s < 1e-8 ? 1e-8 : 0.0;
            const double m = ws.centred.at<double>(i, j) > 0.0 ? 1.0 : 0.0;
            const double denominator = m + s + 3.0 * mu;
            const double w = denominator == 0.0 ? 0.0 : std::abs(s / denominator);
            const std::complex<double> shifted = h + std::complex<double>(eps, eps);
            const std::complex<double> f = std::conj(shifted) * g / std::norm(shifted) * w;
            ws.f.at<cv::Vec2d>(i, j) = cv::Vec2d(f.real(), f.imag());
        }
    }
    cv::dft(ws.f, ws.complexPlane, cv::DFT_INVERSE | cv::DFT_SCALE);
    cv::Mat whole;
    cv::extractChannel(ws.complexPlane, whole, 0);
    swapQuadrants(whole, ws);
    whole(cv::Rect(0, 0, plane.cols, plane.rows)).copyTo(result);
    return result;
}

} // namespace clarovi::reference
