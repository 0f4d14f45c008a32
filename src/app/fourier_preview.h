#pragma once

#include "engine/blur.h"
#include "image_view.h"
#include "jobs/window_port.h"

#include <optional>

namespace clarovi::app {

/// The picture's spectrum with the zeros of a blur drawn over it in a thin translucent colour:
/// rings for a disk, lines across the motion for a line. Where the blur set matches the one in
/// the picture, the drawn zeros lie on the dark rings or stripes of the spectrum.
class SpectrumPreview : public ImageView {
    Q_OBJECT
  public:
    explicit SpectrumPreview(QWidget* parent = nullptr);

    void setSpectrum(const jobs::ShownSpectrum& spectrum);
    const jobs::ShownSpectrum& spectrum() const { return m_spectrum; }
    /// The blur whose zeros are drawn, as it lies on the photograph.
    void setBlur(const engine::BlurOnPhoto& blur);
    const std::optional<engine::BlurOnPhoto>& blur() const { return m_blur; }

    /// Where a frequency (cycles per working pixel, x right, y down) lies in the widget.
    QPointF widgetPointOf(cv::Point2d frequency) const;

  signals:
    /// A click, without a drag.
    void clicked();

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

  private:
    void drawRings(QPainter& painter, cv::Point2d extent) const;
    void drawLines(QPainter& painter, cv::Point2d extent) const;
    double widgetPixelsPerCycle() const;

    jobs::ShownSpectrum m_spectrum;
    std::optional<engine::BlurOnPhoto> m_blur;
};

} // namespace clarovi::app
