#include "controller_state.h"

#include "engine/image_bridge.h"
#include "engine/noise_estimate.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace clarovi::jobs {

QSize scaledToLongerSide(QSize size, int longerSide) {
    const double factor = double(longerSide) / std::max({size.width(), size.height(), 1});
    return {std::max(1, int(std::lround(size.width() * factor))),
            std::max(1, int(std::lround(size.height() * factor)))};
}

QSize reducedToLongerSide(QSize size, int longerSide) {
    return std::max(size.width(), size.height()) > longerSide ? scaledToLongerSide(size, longerSide)
                                                              : size;
}

double photographNoise(const QImage& photo) {
    // Only the centre the statistics are measured on is brought to grey.
    const cv::Rect middle = engine::measuredCentre({photo.width(), photo.height()});
    return engine::estimateNoiseSigma(
        engine::CVGrayscaleMat(photo.copy(middle.x, middle.y, middle.width, middle.height)));
}

void ControllerState::installPicture(const QImage& photo) {
    photoSize = photo.size();
    sourceImage =
        engine::imageWithImage(photo, reducedToLongerSide(photoSize, engine::kWorkingSide));
    previewSourceImage =
        engine::imageWithImage(sourceImage, reducedToLongerSide(photoSize, kPreviewSide));
    workingGrey = engine::CVGrayscaleMat(sourceImage);
    previewGrey = engine::CVGrayscaleMat(previewSourceImage);
    const double noise = photographNoise(photo);
    const auto scaleOf = [&](const cv::Mat& copy) {
        return double(std::max(copy.cols, copy.rows)) /
               std::max(photoSize.width(), photoSize.height());
    };
    workingStatistics = engine::measureReducedCopy(workingGrey, noise, scaleOf(workingGrey));
    previewStatistics = engine::measureReducedCopy(previewGrey, noise, scaleOf(previewGrey));
    const QSize analysed = scaledToLongerSide(photoSize, engine::kWorkingSide);
    analysisGrey = workingGrey;
    if (analysed != sourceImage.size())
        cv::resize(workingGrey, analysisGrey, {analysed.width(), analysed.height()}, 0, 0,
                   cv::INTER_CUBIC);
    resultImage = QImage();
    spectrumImage = QImage();
    guess.reset();
    region = {};
    freshImage = true;
}

double ControllerState::photoScale() const {
    return std::min(1.0, engine::workingScale({photoSize.width(), photoSize.height()}));
}

cv::Rect ControllerState::analysedRegion(const QRect& inPhoto) const {
    if (inPhoto.isEmpty() || !QRect(QPoint(0, 0), photoSize).contains(inPhoto))
        return {};
    return engine::scaledOutwards({inPhoto.x(), inPhoto.y(), inPhoto.width(), inPhoto.height()},
                                  double(analysisGrey.cols) / photoSize.width(),
                                  double(analysisGrey.rows) / photoSize.height()) &
           cv::Rect(0, 0, analysisGrey.cols, analysisGrey.rows);
}

engine::EstimateRequest ControllerState::estimateRequest(engine::KindWanted wanted) const {
    return {wanted, region, photoScale()};
}

} // namespace clarovi::jobs
