#include "app_icon.h"

namespace clarovi::app {

QIcon appIcon() {
    QIcon icon;
    // Pictures drawn from data/icons/clarovi.svg, so that no SVG plugin is needed to show them.
    for (const int size : {16, 32, 48, 64, 128, 256})
        icon.addFile(QStringLiteral(":/icons/clarovi-%1.png").arg(size), QSize(size, size));
    return icon;
}

} // namespace clarovi::app
