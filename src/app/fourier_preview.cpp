#include "fourier_preview.h"

#include "engine/zero_fit.h"

#include <QMouseEvent>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <numbers>

namespace clarovi::app {

namespace {

const QColor kZeroColour(255, 96, 64, 150);
constexpr int kMostZeros = 24;
// Zeros closer together than this, in widget pixels, would fill the view with colour: only the
// first two are drawn then.
constexpr double kClosestZeros = 3.0;

} // namespace

SpectrumPreview::SpectrumPreview(QWidget* parent) : ImageView(parent) {}

void SpectrumPreview::setSpectrum(const jobs::ShownSpectrum& spectrum) {
    m_spectrum = spectrum;
    setImage(spectrum.picture);
}

void SpectrumPreview::setBlur(const engine::BlurOnPhoto& blur) {
    m_blur = blur;
    update();
}

double SpectrumPreview::widgetPixelsPerCycle() const {
    return image().width() / (2.0 * m_spectrum.maxFrequency) * zoomFactor();
}

QPointF SpectrumPreview::widgetPointOf(cv::Point2d frequency) const {
    const double perCycle = image().width() / (2.0 * m_spectrum.maxFrequency);
    // The zero frequency is the pixel just right of and below the middle; its centre is half a
    // pixel further.
    const QPointF centre(image().width() / 2 + 0.5, image().height() / 2 + 0.5);
    return pictureToWidget(centre + QPointF(frequency.x, frequency.y) * perCycle);
}

// A disk's transform vanishes on ellipses |(w fx, h fy)| = j / pi, j the zeros of J1.
void SpectrumPreview::drawRings(QPainter& painter, cv::Point2d extent) const {
    if (!(extent.x > 0 && extent.y > 0))
        return;
    const double reach = m_spectrum.maxFrequency * std::numbers::sqrt2 * 2;
    const QPointF centre = widgetPointOf({0, 0});
    const double perCycle = widgetPixelsPerCycle();
    double previous = 0;
    for (int k = 1; k <= kMostZeros; ++k) {
        const double j = engine::besselJ1Zero(k) / std::numbers::pi;
        const cv::Point2d radius(j / extent.x, j / extent.y);
        if (std::min(radius.x, radius.y) > reach)
            break;
        const double across = std::min(radius.x, radius.y) * perCycle;
        if (k > 2 && across - previous < kClosestZeros)
            break;
        previous = across;
        painter.drawEllipse(centre, radius.x * perCycle, radius.y * perCycle);
    }
}

// A line's transform vanishes on the lines f . extent = k, across the motion, 1 / length apart.
void SpectrumPreview::drawLines(QPainter& painter, cv::Point2d extent) const {
    const double length = std::hypot(extent.x, extent.y);
    if (!(length > 0))
        return;
    const double reach = m_spectrum.maxFrequency * std::numbers::sqrt2 * 2;
    const cv::Point2d across = extent / length;
    const cv::Point2d along(-across.y, across.x);
    const bool crowded = widgetPixelsPerCycle() / length < kClosestZeros;
    for (int k = 1; k <= kMostZeros && k / length <= reach && (k <= 2 || !crowded); ++k)
        for (const int side : {-1, 1}) {
            const cv::Point2d foot = across * (side * k / length);
            painter.drawLine(widgetPointOf(foot - along * reach),
                             widgetPointOf(foot + along * reach));
        }
}

void SpectrumPreview::paintEvent(QPaintEvent* event) {
    ImageView::paintEvent(event);
    // A shake's zeros lie on no simple curve: nothing is drawn for it.
    if (!m_blur || image().isNull() || m_blur->kind == engine::BlurKind::Shake)
        return;
    QPainter painter(this);
    // Over the spectrum only, not the bars beside it.
    painter.setClipRect(QRectF(pictureToWidget({0, 0}),
                               pictureToWidget(QPointF(image().width(), image().height()))));
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(kZeroColour, 1.0));
    painter.setBrush(Qt::NoBrush);
    if (m_blur->kind == engine::BlurKind::OutOfFocus)
        drawRings(painter, m_blur->extent());
    else
        drawLines(painter, m_blur->extent());
}

void SpectrumPreview::mouseReleaseEvent(QMouseEvent* event) {
    ImageView::mouseReleaseEvent(event);
    if (!isZoomable() && event->button() == Qt::LeftButton && rect().contains(event->pos()))
        emit clicked();
}

} // namespace clarovi::app
