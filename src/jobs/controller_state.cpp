#include "controller_state.h"

#include "engine/psf.h"

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

engine::PadParameters ControllerState::padParameters() const {
    return {eventLength, muStart, muMin, muMax};
}

QImage ControllerState::MakePsfD(float length, double angle, double width, bool smallCanvas) const {
    return engine::MakePsfD(length, angle, width, smallCanvas, motionBlur,
                            activeImage.isNull() ? QSize() : activeImage.size());
}

} // namespace clarovi::jobs
