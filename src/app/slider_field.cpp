#include "slider_field.h"

#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QLabel>
#include <QSignalBlocker>

namespace clarovi::app {

SliderField::SliderField(const jobs::SliderRange& range, const QString& caption, int decimals,
                         QWidget* parent)
    : QWidget(parent), m_slider(new FloatSlider(range, this)), m_spinBox(new QDoubleSpinBox(this)),
      m_caption(new QLabel(caption, this)) {
    m_spinBox->setRange(range.minimum, range.maximum);
    m_spinBox->setSingleStep(range.step);
    m_spinBox->setDecimals(decimals);
    // A typed value counts once it is confirmed (Enter or leaving the box), not per digit.
    m_spinBox->setKeyboardTracking(false);
    m_spinBox->setAccelerated(true);
    m_spinBox->setFixedWidth(96);
    m_caption->setBuddy(m_spinBox);
    showValueInSpinBox();

    auto* layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_caption, 0, 0);
    layout->addWidget(m_spinBox, 0, 1, Qt::AlignRight);
    layout->addWidget(m_slider, 1, 0, 1, 2);

    connect(m_slider, &QSlider::valueChanged, this, &SliderField::showValueInSpinBox);
    connect(m_slider, &FloatSlider::dragged, this, &SliderField::dragged);
    connect(m_slider, &FloatSlider::released, this, &SliderField::released);
    connect(m_slider, &FloatSlider::stepped, this, &SliderField::edited);
    connect(m_spinBox, &QDoubleSpinBox::valueChanged, this, [this](double value) {
        const int before = m_slider->value();
        m_slider->setFloatValue(float(value));
        if (m_slider->value() != before)
            emit edited();
    });
}

void SliderField::showValueInSpinBox() {
    const QSignalBlocker quiet(m_spinBox);
    m_spinBox->setValue(double(m_slider->floatValue()));
}

void SliderField::setFloatValue(float value) {
    m_slider->setFloatValue(value);
    showValueInSpinBox();
}

void SliderField::setHelp(const QString& tip) {
    for (QWidget* part : std::initializer_list<QWidget*>{m_caption, m_spinBox, m_slider})
        part->setToolTip(tip);
}

} // namespace clarovi::app
