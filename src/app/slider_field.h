#pragma once

#include "float_slider.h"

#include <QWidget>

class QDoubleSpinBox;
class QLabel;

namespace clarovi::app {

/// One setting of the side panel: its caption, a spin box for an exact value and the slider,
/// sharing one range and step. The slider reports drags and releases of the mouse; the spin box,
/// the wheel over it and the arrow keys on either report edited(), once per change.
class SliderField : public QWidget {
    Q_OBJECT
  public:
    SliderField(const jobs::SliderRange& range, const QString& caption, int decimals,
                QWidget* parent = nullptr);

    FloatSlider* slider() const { return m_slider; }
    QDoubleSpinBox* spinBox() const { return m_spinBox; }
    float floatValue() const { return m_slider->floatValue(); }
    /// Moves the slider and the spin box without reporting a change.
    void setFloatValue(float value);
    bool isSliderDown() const { return m_slider->isSliderDown(); }
    void setHelp(const QString& tip);

  signals:
    void dragged();
    void released();
    void edited();

  private:
    void showValueInSpinBox();

    FloatSlider* m_slider;
    QDoubleSpinBox* m_spinBox;
    QLabel* m_caption;
};

} // namespace clarovi::app
