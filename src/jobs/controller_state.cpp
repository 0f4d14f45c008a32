#include "controller_state.h"

#include "engine/image_bridge.h"
#include "engine/psf.h"

#include <algorithm>

namespace clarovi::jobs {

void ControllerState::setUpDefaults(float muValue, float muMinimum, float muMaximum,
                                    float psfLength) {
    muStart = muValue;
    muMin = muMinimum;
    muMax = muMaximum;
    workingSide = 2048;
    previewSide = 1024;
    keepAspect = true;
    autoSilent = false;
    currentAngle = -45.0;
    currentWidth = 0.2;
    psfImage = MakePsfD(psfLength, currentAngle, currentWidth, false);
}

QSizeF scaledDisplaySize(double width, double height, double longerSide) {
    const double f = std::max(width, height) / longerSide;
    return {std::max(1.0, width / f), std::max(1.0, height / f)};
}

void ControllerState::installPicture(const QImage& photo) {
    // One factor for both sides, in single precision, so the longer side is exactly workingSide.
    // The shorter side keeps at least a pixel: a picture thinner than 1 : workingSide still shows.
    const float width = float(photo.width());
    const float height = float(photo.height());
    const float factor = std::max(width, height) / float(workingSide);
    displayWidth = double(std::max(1.0f, width / factor));
    displayHeight = double(std::max(1.0f, height / factor));

    sourceImage = engine::imageWithImage(photo, QSizeF(workingSide, workingSide));
    keepAspect = true;
    spectrumImage = QImage();
    estimate.reset();
    autoSilent = false;
    activeImage = sourceImage;
    previewSourceImage = engine::imageWithImage(sourceImage, QSizeF(previewSide, previewSide));
    freshImage = true;
    motionBlur = false;
}

engine::PadParameters ControllerState::padParameters() const {
    return {eventLength, muStart, muMin, muMax};
}

QImage ControllerState::MakePsfD(float length, double angle, double width, bool smallCanvas) const {
    return engine::MakePsfD(length, angle, width, smallCanvas, motionBlur,
                            activeImage.isNull() ? QSize() : activeImage.size());
}

} // namespace clarovi::jobs
