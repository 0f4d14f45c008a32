#pragma once

#include "float_slider.h"

#include <QDoubleSpinBox>
#include <QWidget>

#include <optional>
#include <utility>

class QLabel;

namespace clarovi::app {

/// A number box for one setting. A number typed beyond its range is not cut short to fit (150 in
/// a box that ends at 100 is not 15): it is brought to the nearest end when confirmed, and
/// takeClamped() then tells what was typed. Letters are no part of a number, so they are left to
/// the window's shortcuts (A, M) even while the box has the focus.
class SettingSpinBox : public QDoubleSpinBox {
    Q_OBJECT
  public:
    using QDoubleSpinBox::QDoubleSpinBox;
    /// The number last typed beyond the range, once; empty when none was.
    std::optional<double> takeClamped() { return std::exchange(m_clampedFrom, std::nullopt); }

  protected:
    QValidator::State validate(QString& text, int& position) const override;
    void fixup(QString& text) const override;
    bool event(QEvent* event) override;

  private:
    std::optional<double> typedNumber(const QString& text) const;
    mutable std::optional<double> m_clampedFrom;
};

/// One setting of the side panel: its caption, a spin box for an exact value and the slider,
/// sharing one range and step. The slider reports drags and releases of the mouse; the spin box,
/// the wheel over it and the arrow keys on either report edited(), once per change.
class SliderField : public QWidget {
    Q_OBJECT
  public:
    SliderField(const jobs::SliderRange& range, const QString& caption, int decimals,
                QWidget* parent = nullptr);

    FloatSlider* slider() const { return m_slider; }
    float floatValue() const { return m_slider->floatValue(); }
    /// Moves the slider and the spin box without reporting a change.
    void setFloatValue(float value);
    bool isSliderDown() const { return m_slider->isSliderDown(); }
    void setHelp(const QString& tip);

  signals:
    void dragged();
    void released();
    void edited();
    /// A number typed beyond the range was brought to limit.
    void clamped(double typed, double limit);

  private:
    void showValueInSpinBox();

    FloatSlider* m_slider;
    SettingSpinBox* m_spinBox;
    QLabel* m_caption;
};

} // namespace clarovi::app
