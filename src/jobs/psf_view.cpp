#include "psf_view.h"

#include "engine/image_bridge.h"
#include "engine/psf.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace clarovi::jobs {

namespace {

constexpr double kFilled = 0.8; // of the picture's side that the kernel's longer extent takes
constexpr int kMargin = 4;

// The smallest window centred on the canvas that holds every lit pixel of grey, so that the
// kernel stays centred in the view as it is on its canvas.
cv::Rect centredSupport(const cv::Mat& grey) {
    const cv::Rect lit = cv::boundingRect(grey);
    const int cx = grey.cols / 2, cy = grey.rows / 2;
    const int halfWidth = std::max(cx - lit.x, lit.br().x - cx);
    const int halfHeight = std::max(cy - lit.y, lit.br().y - cy);
    return cv::Rect(cx - halfWidth, cy - halfHeight, 2 * halfWidth, 2 * halfHeight) &
           cv::Rect(0, 0, grey.cols, grey.rows);
}

} // namespace

PsfPicture psfViewOf(const ControllerState& state, const SliderSetting& setting, double width,
                     bool motion, int side) {
    const engine::BlurShape blur = shownBlurOf(setting, motion, state);
    cv::Mat view(side, side, CV_8U, cv::Scalar(0));
    const double extent = motion ? setting.length * std::numbers::sqrt2 + width : setting.length;
    // An even canvas puts the shape on the pixel grid exactly as the even working canvas does.
    const int canvas = 2 * int(std::ceil(extent / 2)) + 2 * kMargin;
    const cv::Mat kernel = engine::CVGrayscaleMat(
        engine::MakePsfD(setting.length, setting.angle, width, false, motion, {canvas, canvas}));
    if (cv::countNonZero(kernel) == 0)
        return {engine::imageWithCVMat(view), 1.0, blur};

    const double grown =
        restoredBlurLength(setting.length, RestorationScale::of(state)) / double(setting.length);
    const cv::Point2d stretch = copyStretch(state);
    const cv::Point2d onPhoto(grown / stretch.x, grown / stretch.y);
    const cv::Rect support = centredSupport(kernel);
    const double zoom =
        kFilled * side / std::max({support.width * onPhoto.x, support.height * onPhoto.y, 1.0});
    const cv::Size shown(std::clamp(int(std::lround(support.width * onPhoto.x * zoom)), 1, side),
                         std::clamp(int(std::lround(support.height * onPhoto.y * zoom)), 1, side));
    // Each kernel pixel becomes a block, so that the view shows the kernel as it is drawn.
    cv::Mat enlarged;
    cv::resize(kernel(support), enlarged, shown, 0, 0, cv::INTER_NEAREST);
    double brightest = 0;
    cv::minMaxLoc(enlarged, nullptr, &brightest);
    enlarged.convertTo(enlarged, CV_8U, 255.0 / brightest);
    enlarged.copyTo(view(
        cv::Rect((side - shown.width) / 2, (side - shown.height) / 2, shown.width, shown.height)));
    return {engine::imageWithCVMat(view), zoom, blur};
}

} // namespace clarovi::jobs
