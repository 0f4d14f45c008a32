#pragma once

#include "jobs/slider_ranges.h"

#include <QSlider>

namespace clarovi::app {

/// A horizontal slider over a float range, moved only by the mouse: it takes no keyboard focus
/// and ignores the wheel, so that every change it shows comes with a restoration. A click on the
/// groove jumps to the clicked value. released() follows every mouse release on it, after a drag
/// or after a plain click; dragged() follows every move while the mouse holds the handle.
class FloatSlider : public QSlider {
    Q_OBJECT
  public:
    explicit FloatSlider(const jobs::SliderRange& range, QWidget* parent = nullptr);

    float floatValue() const;
    void setFloatValue(float value);
    float minValue() const { return m_range.minimum; }
    float maxValue() const { return m_range.maximum; }

  signals:
    void dragged(float value);
    void released(float value);

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

  private:
    int stepsOf(float value) const;
    jobs::SliderRange m_range;
};

} // namespace clarovi::app
