#include "image_view.h"

#include <QCursor>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <array>
#include <cmath>

namespace clarovi::app {

namespace {

constexpr std::array<double, 13> kZoomSteps{
    1.0 / 8, 1.0 / 6, 1.0 / 4, 1.0 / 3, 1.0 / 2, 2.0 / 3, 1.0, 1.5, 2.0, 3.0, 4.0, 6.0, 8.0};
constexpr int kWheelNotch = 120;
// A drag shorter than this either way, in widget pixels, is a click rather than a region.
constexpr double kLeastMarkedSide = 6.0;

// The tolerance lets a factor that is a step up to rounding count as that step.
double stepAbove(double factor) {
    for (double step : kZoomSteps)
        if (step > factor * 1.0001)
            return step;
    return factor;
}

double stepBelow(double factor) {
    for (auto step = kZoomSteps.rbegin(); step != kZoomSteps.rend(); ++step)
        if (*step < factor * 0.9999)
            return *step;
    return factor;
}

QPointF relative(QPointF point, QSizeF size) {
    return {point.x() / size.width(), point.y() / size.height()};
}

QPointF absolute(QPointF fraction, QSizeF size) {
    return {fraction.x() * size.width(), fraction.y() * size.height()};
}

// The centre of a view `view` picture pixels long on a picture `length` long: the picture is
// centred when it is shorter, otherwise it may not be moved out of the view.
QPointF scaled(QPointF point, QPointF by) {
    return {point.x() * by.x(), point.y() * by.y()};
}

double clampAxis(double centre, double length, double view) {
    if (length <= view)
        return length / 2;
    return std::clamp(centre, view / 2, length - view / 2);
}

} // namespace

const QPixmap& ImageView::PixmapCache::of(const QImage& image) {
    if (pixmap.isNull() || key != image.cacheKey()) {
        pixmap = QPixmap::fromImage(image);
        key = image.cacheKey();
    }
    return pixmap;
}

ImageView::ImageView(QWidget* parent) : QWidget(parent), m_background(Qt::black) {
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void ImageView::setImage(const QImage& image) {
    m_image = image;
    m_imagePixmap = {};
    viewChanged();
}

void ImageView::setCompareImage(const QImage& image) {
    m_compareImage = image;
    m_comparePixmap = {};
    viewChanged();
}

void ImageView::setComparing(bool comparing) {
    if (comparing == m_comparing)
        return;
    m_comparing = comparing;
    emit comparingChanged(comparing);
    viewChanged();
}

void ImageView::setMirrored(bool mirrored) {
    m_mirrored = mirrored;
    update();
}

void ImageView::setBackground(const QColor& colour) {
    m_background = colour;
    update();
}

void ImageView::setNaturalSize(const QSize& size) {
    m_naturalSize = size;
    viewChanged();
}

void ImageView::setPlaceholderText(const QString& text) {
    m_placeholder = text;
    update();
}

void ImageView::setZoomable(bool zoomable) {
    m_zoomable = zoomable;
    setFocusPolicy(zoomable ? Qt::StrongFocus : Qt::NoFocus);
    if (!zoomable) {
        m_dragging = false;
        m_fitting = true;
    }
    viewChanged();
}

const QImage& ImageView::shownImage() const {
    return m_comparing && !m_compareImage.isNull() ? m_compareImage : m_image;
}

double ImageView::fitFactor() const {
    const QSizeF picture = shownSize();
    if (picture.isEmpty() || width() <= 0 || height() <= 0)
        return 1.0;
    return std::min(width() / picture.width(), height() / picture.height());
}

double ImageView::zoomFactor() const {
    return m_fitting ? fitFactor() : m_factor;
}

QPointF ImageView::clampedCentre(QPointF centreInPixels, double factor) const {
    const QSizeF picture = shownSize();
    return {clampAxis(centreInPixels.x(), picture.width(), width() / factor),
            clampAxis(centreInPixels.y(), picture.height(), height() / factor)};
}

QPointF ImageView::centreInPicture() const {
    return clampedCentre(absolute(m_centre, shownSize()), zoomFactor());
}

QPointF ImageView::unmirrored(QPointF point) const {
    return m_mirrored ? QPointF(width() - point.x(), point.y()) : point;
}

QPointF ImageView::widgetToPicture(QPointF point) const {
    const QPointF fromViewCentre = unmirrored(point) - QRectF(rect()).center();
    return centreInPicture() + fromViewCentre / zoomFactor();
}

QPointF ImageView::pictureToWidget(QPointF point) const {
    const QPointF fromCentre = (point - centreInPicture()) * zoomFactor();
    return unmirrored(QRectF(rect()).center() + fromCentre);
}

bool ImageView::pannable() const {
    const QSizeF shown = shownSize() * zoomFactor();
    return !m_fitting && (shown.width() > width() + 0.5 || shown.height() > height() + 0.5);
}

void ImageView::zoomAbout(double factor, QPointF widgetPoint) {
    if (!m_zoomable || shownImage().isNull())
        return;
    const QPointF held = widgetToPicture(widgetPoint);
    const QPointF fromViewCentre = unmirrored(widgetPoint) - QRectF(rect()).center();
    m_fitting = false;
    m_factor = factor;
    m_centre = relative(clampedCentre(held - fromViewCentre / factor, factor), shownSize());
    viewChanged();
}

void ImageView::showFitted() {
    if (!m_zoomable)
        return;
    m_fitting = true;
    m_centre = {0.5, 0.5};
    viewChanged();
}

void ImageView::zoomIn() {
    zoomAbout(stepAbove(zoomFactor()), QRectF(rect()).center());
}

void ImageView::zoomOut() {
    zoomAbout(stepBelow(zoomFactor()), QRectF(rect()).center());
}

void ImageView::fitToWindow() {
    showFitted();
}

void ImageView::showActualSize() {
    zoomAbout(1.0, QRectF(rect()).center());
}

void ImageView::viewChanged() {
    update();
    if (!m_zoomable)
        unsetCursor();
    else if (m_dragging)
        setCursor(Qt::ClosedHandCursor);
    else if (pannable())
        setCursor(Qt::OpenHandCursor);
    else
        unsetCursor();
    const double factor = zoomFactor();
    if (qFuzzyCompare(factor, m_notifiedFactor) && m_fitting == m_notifiedFitting)
        return;
    m_notifiedFactor = factor;
    m_notifiedFitting = m_fitting;
    emit zoomChanged(factor, m_fitting);
}

void ImageView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    viewChanged();
}

void ImageView::wheelEvent(QWheelEvent* event) {
    if (!m_zoomable) {
        QWidget::wheelEvent(event);
        return;
    }
    // Touchpads send fractions of a notch; a step is taken once they add up to one.
    m_wheelRemainder += event->angleDelta().y();
    for (; m_wheelRemainder >= kWheelNotch; m_wheelRemainder -= kWheelNotch)
        zoomAbout(stepAbove(zoomFactor()), event->position());
    for (; m_wheelRemainder <= -kWheelNotch; m_wheelRemainder += kWheelNotch)
        zoomAbout(stepBelow(zoomFactor()), event->position());
    event->accept();
}

void ImageView::setRegion(const QRectF& inPicture) {
    m_region = inPicture;
    update();
}

// A drag marks a region where it cannot pan: on a fitted picture, or with Shift held.
bool ImageView::marksOnDrag(const QMouseEvent* event) const {
    return m_zoomable && !shownImage().isNull() &&
           (event->modifiers().testFlag(Qt::ShiftModifier) || !pannable());
}

void ImageView::finishMarking(QPointF end) {
    m_marking = false;
    const QRectF dragged = QRectF(m_markStart, end).normalized();
    update();
    // A click is not a region.
    if (dragged.width() < kLeastMarkedSide || dragged.height() < kLeastMarkedSide)
        return;
    const QRectF inPicture =
        QRectF(widgetToPicture(dragged.topLeft()), widgetToPicture(dragged.bottomRight()))
            .normalized() &
        QRectF(QPointF(0, 0), shownSize());
    if (inPicture.isEmpty())
        return;
    m_region = inPicture;
    emit regionMarked(m_region);
}

void ImageView::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton && marksOnDrag(event)) {
        m_marking = true;
        m_markStart = m_markEnd = event->position();
        return;
    }
    if (!pannable() || event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_dragging = true;
    m_dragStart = event->position();
    m_centreAtDragStart = centreInPicture();
    viewChanged();
}

void ImageView::mouseMoveEvent(QMouseEvent* event) {
    if (m_marking) {
        m_markEnd = event->position();
        update();
        return;
    }
    if (!m_dragging) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    const QPointF moved = unmirrored(event->position()) - unmirrored(m_dragStart);
    const QPointF centre = m_centreAtDragStart - moved / m_factor;
    m_centre = relative(clampedCentre(centre, m_factor), shownSize());
    viewChanged();
}

void ImageView::mouseReleaseEvent(QMouseEvent* event) {
    if (m_marking && event->button() == Qt::LeftButton) {
        finishMarking(event->position());
        return;
    }
    if (!m_dragging || event->button() != Qt::LeftButton) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    m_dragging = false;
    viewChanged();
}

void ImageView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (!m_zoomable || event->button() != Qt::LeftButton) {
        QWidget::mouseDoubleClickEvent(event);
        return;
    }
    if (m_fitting)
        zoomAbout(1.0, event->position());
    else
        showFitted();
}

QPointF ImageView::keyboardAnchor() const {
    const QPointF cursor = mapFromGlobal(QCursor::pos());
    return underMouse() && rect().contains(cursor.toPoint()) ? cursor : QRectF(rect()).center();
}

void ImageView::keyPressEvent(QKeyEvent* event) {
    if (!m_zoomable) {
        QWidget::keyPressEvent(event);
        return;
    }
    switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        zoomAbout(stepAbove(zoomFactor()), keyboardAnchor());
        break;
    case Qt::Key_Minus:
        zoomAbout(stepBelow(zoomFactor()), keyboardAnchor());
        break;
    case Qt::Key_0:
        showFitted();
        break;
    case Qt::Key_1:
        zoomAbout(1.0, keyboardAnchor());
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}

void ImageView::drawPlaceholder(QPainter& painter) {
    if (m_placeholder.isEmpty())
        return;
    painter.setPen(QColor(0xb4, 0xb4, 0xb4));
    painter.drawText(rect().adjusted(16, 16, -16, -16), Qt::AlignCenter | Qt::TextWordWrap,
                     m_placeholder);
}

void ImageView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), m_background);
    if (shownImage().isNull()) {
        drawPlaceholder(painter);
        return;
    }
    painter.save();
    drawPicture(painter);
    painter.restore();
    drawRegion(painter);
}

// The region being marked, or the one marked, dashed black on white so that it shows on any
// picture.
void ImageView::drawRegion(QPainter& painter) const {
    QRectF shown;
    if (m_marking)
        shown = QRectF(m_markStart, m_markEnd).normalized();
    else if (!m_region.isEmpty())
        shown = QRectF(pictureToWidget(m_region.topLeft()), pictureToWidget(m_region.bottomRight()))
                    .normalized();
    if (shown.isEmpty())
        return;
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(Qt::white, 1));
    painter.drawRect(shown);
    painter.setPen(QPen(Qt::black, 1, Qt::DashLine));
    painter.drawRect(shown);
}

void ImageView::drawPicture(QPainter& painter) {
    const QImage& shown = shownImage();
    if (m_mirrored) {
        painter.translate(width(), 0);
        painter.scale(-1, 1);
    }
    // Only the visible part is drawn, widened to whole picture pixels so that each one lands
    // exactly where widgetToPicture() says it is. Layout units are those of shownSize(); a picture
    // of another size has pixelsPerUnit of its pixels to each.
    const double factor = zoomFactor();
    const QPointF pixelsPerUnit(shown.width() / shownSize().width(),
                                shown.height() / shownSize().height());
    const QPointF viewCentre = QRectF(rect()).center();
    const QPointF centre = centreInPicture();
    const QPointF first = scaled(centre - viewCentre / factor, pixelsPerUnit);
    const QPointF last = scaled(centre + viewCentre / factor, pixelsPerUnit);
    const QRectF source(
        QPointF(std::floor(std::max(first.x(), 0.0)), std::floor(std::max(first.y(), 0.0))),
        QPointF(std::ceil(std::min(last.x(), double(shown.width()))),
                std::ceil(std::min(last.y(), double(shown.height())))));
    const QPointF unitsPerPixel(1.0 / pixelsPerUnit.x(), 1.0 / pixelsPerUnit.y());
    const QRectF target(
        viewCentre + (scaled(source.topLeft(), unitsPerPixel) - centre) * factor,
        QSizeF(source.width() * unitsPerPixel.x(), source.height() * unitsPerPixel.y()) * factor);
    const double pixelScale = factor * unitsPerPixel.x();
    // Reduced, neighbouring pixels are blended, or fine detail turns into aliasing; from 100 % up
    // each picture pixel stays a sharp square (nearest neighbour), as one wants when judging a
    // restoration. The small previews are always blended.
    painter.setRenderHint(QPainter::SmoothPixmapTransform, !m_zoomable || pixelScale < 1.0);
    // Reduced, most of the picture is resampled on every paint, which a copy in the screen's
    // format makes several times quicker. From 100 % up only the visible pixels are read, so a
    // new restoration is drawn at once, without first copying all of it.
    if (pixelScale >= 1.0) {
        painter.drawImage(target, shown, source);
        return;
    }
    PixmapCache& cache = &shown == &m_compareImage ? m_comparePixmap : m_imagePixmap;
    painter.drawPixmap(target, cache.of(shown), source);
}

} // namespace clarovi::app
