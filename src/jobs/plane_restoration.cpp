#include "plane_restoration.h"

#include "engine/image_bridge.h"
#include "engine/padding.h"
#include "engine/psf.h"

#include <opencv2/imgproc.hpp>

namespace clarovi::jobs {

int jobSide(const ControllerState& state) {
    if (!state.keepAspect)
        return 0;
    return state.autoSilent ? state.previewSide : state.workingSide;
}

cv::Mat fitToSide(const cv::Mat& plane, int side) {
    if (side <= 0 || plane.empty() || (plane.rows == side && plane.cols == side))
        return plane;
    cv::Mat fitted;
    cv::resize(plane, fitted, cv::Size(side, side), 0, 0, cv::INTER_CUBIC);
    return fitted;
}

std::optional<cv::Mat> jobKernel(const QImage& psfImage, int side) {
    return engine::normalizedKernel(fitToSide(engine::CVGrayscaleMat(psfImage), side));
}

PaddedPlane padForJob(const cv::Mat& source, int side, const engine::PadParameters& parameters) {
    PaddedPlane padded;
    padded.plane = engine::addPad(source, 0.1, &padded.added, parameters);
    padded.cut = side > 0 ? padded.added : padded.plane.cols - source.cols;
    return padded;
}

cv::Mat trimmedEightBit(const cv::Mat& restored, int added) {
    cv::Mat eightBit;
    restored(engine::trimWindow(restored.size(), added)).convertTo(eightBit, CV_8U);
    return eightBit;
}

} // namespace clarovi::jobs
