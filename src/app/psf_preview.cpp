#include "psf_preview.h"

#include <QPainter>

namespace clarovi::app {

PsfPreview::PsfPreview(QWidget* parent) : ImageView(parent) {}

void PsfPreview::setPsf(const jobs::PsfPicture& psf) {
    m_scale = psf.scale;
    setImage(psf.picture);
}

QString PsfPreview::scaleText() const {
    const double scale = m_scale * zoomFactor();
    return QStringLiteral("×%1").arg(scale, 0, 'f', scale < 10 ? 1 : 0);
}

void PsfPreview::paintEvent(QPaintEvent* event) {
    ImageView::paintEvent(event);
    if (image().isNull())
        return;
    QPainter painter(this);
    painter.setPen(QColor(0xd0, 0xd0, 0xd0));
    painter.drawText(rect().adjusted(4, 4, -6, -4), Qt::AlignRight | Qt::AlignBottom, scaleText());
}

} // namespace clarovi::app
