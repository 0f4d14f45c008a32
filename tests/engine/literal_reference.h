#pragma once

#include <opencv2/core.hpp>

namespace clarovi::reference {

// A plain transcription of the restoration, step by step, with OpenCV's complex transforms and
// the per-frequency loop as written: the oracle for the fast engine. Buffers are reused between
// calls of one size.

void forwardSpectrum(const cv::Mat& source, cv::Mat planes[2]);
void inverseSpectrum(cv::Mat planes[2], cv::Mat& out);
void swapQuadrants(cv::Mat& matrix);
cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf);

} // namespace clarovi::reference
