#include "image_view.h"

#include <QPainter>

namespace clarovi::app {

ImageView::ImageView(QWidget* parent) : QWidget(parent), m_background(Qt::black) {
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void ImageView::setImage(const QImage& image) {
    m_image = image;
    update();
}

void ImageView::setMirrored(bool mirrored) {
    m_mirrored = mirrored;
    update();
}

void ImageView::setBackground(const QColor& colour) {
    m_background = colour;
    update();
}

void ImageView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), m_background);
    if (m_image.isNull())
        return;
    QSizeF fitted = QSizeF(m_image.size()).scaled(QSizeF(size()), Qt::KeepAspectRatio);
    QRectF target(QPointF(0, 0), fitted);
    target.moveCenter(QRectF(rect()).center());
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    if (m_mirrored) {
        painter.translate(width(), 0);
        painter.scale(-1, 1);
    }
    painter.drawImage(target, m_image);
}

} // namespace clarovi::app
