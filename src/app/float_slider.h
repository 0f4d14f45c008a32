#pragma once

#include "jobs/slider_ranges.h"

#include <QSlider>

namespace clarovi::app {

/// A horizontal slider over a float range. A click on the groove jumps to the clicked value.
/// released() follows every mouse release on it, after a drag or after a plain click; dragged()
/// follows every move while the mouse holds the handle; stepped() follows every change made with
/// the keyboard while it has the focus. It ignores the wheel, which belongs to the spin box beside
/// it, so that a wheel turn over the panel does not change a setting by accident.
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
    void stepped(float value);

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

  private:
    int stepsOf(float value) const;
    jobs::SliderRange m_range;
};

} // namespace clarovi::app
