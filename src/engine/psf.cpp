#include "psf.h"

#include <QPainter>
#include <QPainterPath>
#include <QPainterPathStroker>
#include <QTransform>

#include <cmath>
#include <numbers>
#include <stdexcept>

namespace clarovi::engine {

namespace {

constexpr int kDefaultSide = 128;
constexpr int kSmallSide = 256;

QSize canvasSize(bool smallCanvas, QSize activeSize) {
    if (smallCanvas)
        return {kSmallSide, kSmallSide};
    return activeSize.isEmpty() ? QSize(kDefaultSide, kDefaultSide) : activeSize;
}

} // namespace

QImage MakePsfD(float length, double angle, double width, bool smallCanvas, bool motionBlur,
                QSize activeSize) {
    const QSize canvas = canvasSize(smallCanvas, activeSize);
    // Premultiplied ARGB is what the raster engine paints fastest and what the image bridge reads
    // without converting; every pixel is opaque, so the bytes equal those of plain ARGB32.
    QImage image(canvas, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::black);
    if (!(length > 0.0f))
        return image;

    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    // Shapes are placed in y-up coordinates with the origin at the bottom-left corner.
    painter.setTransform(QTransform(1, 0, 0, -1, 0, canvas.height()));
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);

    const float cx = 0.5f * static_cast<float>(canvas.width());
    const float cy = 0.5f * static_cast<float>(canvas.height());
    const float r = 0.5f * length;
    if (!motionBlur) {
        painter.drawEllipse(QRectF(cx - r, cy - r, length, length));
        return image;
    }

    if (!(width > 0.0))
        return image; // a line without width covers nothing
    // theta is computed in double and deliberately rounded to single precision: that rounding
    // is part of how an angle is drawn. Its cos and sin give a counter-clockwise turn (y up).
    const float theta = static_cast<float>(-std::numbers::pi * angle / 180.0);
    const QTransform rotation(std::cos(theta), std::sin(theta), -std::sin(theta), std::cos(theta),
                              0, 0);
    painter.translate(cx, cy);
    painter.setTransform(rotation, true);
    painter.translate(-cx, -cy);

    // The stroke's outline is filled rather than drawn with a QPen: the raster engine draws pens
    // of at most one pixel as one-pixel lines dimmed by the width whenever the transform has no
    // rotation, so the shape of a hair-line would depend on the angle. A filled outline is
    // coverage-weighted at every angle.
    QPainterPath segment;
    segment.moveTo(cx - r, cy - r);
    segment.lineTo(cx + r, cy + r);
    QPainterPathStroker stroker;
    stroker.setWidth(width);
    stroker.setCapStyle(Qt::FlatCap);
    stroker.setJoinStyle(Qt::MiterJoin);
    painter.drawPath(stroker.createStroke(segment));
    return image;
}

std::optional<cv::Mat> normalizedKernel(const cv::Mat& greyPsf) {
    if (greyPsf.empty())
        return std::nullopt;
    if (greyPsf.type() != CV_8UC1)
        throw std::invalid_argument("normalizedKernel: the PSF plane must be CV_8UC1");
    // The sum is rounded to single precision before its reciprocal is taken.
    const float sum = static_cast<float>(cv::sum(greyPsf)[0]);
    if (!(sum > 0.0f))
        return std::nullopt;
    cv::Mat kernel;
    greyPsf.convertTo(kernel, CV_32F, 1.0f / sum);
    return kernel;
}

} // namespace clarovi::engine
