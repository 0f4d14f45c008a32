#include "psf_view.h"

#include "engine/image_bridge.h"
#include "engine/psf.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace clarovi::jobs {

namespace {

constexpr double kFilled = 0.8; // of the picture's side that the kernel's longer extent takes

// The smallest window centred on the kernel's centre that holds every lit pixel, so that the
// kernel stays centred in the view as it is on its canvas.
cv::Rect centredSupport(const cv::Mat& kernel) {
    cv::Mat lit;
    cv::compare(kernel, 0, lit, cv::CMP_GT);
    const cv::Rect box = cv::boundingRect(lit);
    const int c = kernel.cols / 2;
    const int half = std::max({c - box.x, box.br().x - 1 - c, c - box.y, box.br().y - 1 - c});
    return {c - half, c - half, 2 * half + 1, 2 * half + 1};
}

} // namespace

PsfPicture psfViewOf(const engine::BlurOnPhoto& blur, int side) {
    const cv::Mat kernel = engine::MakePsfD(blur, 1.0);
    const cv::Rect support = centredSupport(kernel);
    // Whole blocks of one size for every kernel pixel, as large as fill the picture.
    const int block = std::max(1, int(kFilled * side / support.width));
    const int shown = std::min(side, block * support.width);
    cv::Mat enlarged;
    cv::resize(kernel(support), enlarged, cv::Size(shown, shown), 0, 0, cv::INTER_NEAREST);
    double brightest = 0;
    cv::minMaxLoc(enlarged, nullptr, &brightest);
    cv::Mat view(side, side, CV_8U, cv::Scalar(0));
    enlarged.convertTo(view(cv::Rect((side - shown) / 2, (side - shown) / 2, shown, shown)), CV_8U,
                       255.0 / brightest);
    return {engine::imageWithCVMat(view), double(shown) / support.width, blur};
}

} // namespace clarovi::jobs
