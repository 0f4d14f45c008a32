#include "setting.h"

namespace clarovi::jobs {

QString settingsLabel(const Setting& setting) {
    const engine::BlurOnPhoto& blur = setting.blur;
    if (blur.kind == engine::BlurKind::Shake)
        return QString::asprintf("Shake %.0f \u00d7 %.0f px", blur.extent().x, blur.extent().y);
    if (!setting.motion())
        return QString::asprintf("\u00d8 %.1f", blur.length);
    return QString::asprintf("%.1f px at %.1f\u00b0, width %.1f", blur.length, blur.angle,
                             blur.width);
}

} // namespace clarovi::jobs
