#include "slider_field.h"

#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QSignalBlocker>

#include <algorithm>

namespace clarovi::app {

std::optional<double> SettingSpinBox::typedNumber(const QString& text) const {
    QString number = text.trimmed();
    number.remove(prefix()).remove(suffix());
    bool ok = false;
    const double value = locale().toDouble(number.trimmed(), &ok);
    return ok ? std::optional(value) : std::nullopt;
}

QValidator::State SettingSpinBox::validate(QString& text, int& position) const {
    const QValidator::State state = QDoubleSpinBox::validate(text, position);
    // Kept while typed, so that the last digit is not refused; fixup brings it into range.
    if (state == QValidator::Invalid && typedNumber(text))
        return QValidator::Intermediate;
    return state;
}

void SettingSpinBox::fixup(QString& text) const {
    const std::optional<double> typed = typedNumber(text);
    if (typed && (*typed > maximum() || *typed < minimum())) {
        m_clampedFrom = *typed;
        text = textFromValue(std::clamp(*typed, minimum(), maximum()));
        return;
    }
    QDoubleSpinBox::fixup(text);
}

bool SettingSpinBox::event(QEvent* event) {
    if (event->type() == QEvent::ShortcutOverride) {
        const auto* key = static_cast<QKeyEvent*>(event);
        const bool letter = !key->text().isEmpty() && key->text().front().isLetter();
        if (letter && !(key->modifiers() & (Qt::ControlModifier | Qt::AltModifier))) {
            event->ignore();
            return true;
        }
    }
    return QDoubleSpinBox::event(event);
}

SliderField::SliderField(const jobs::SliderRange& range, const QString& caption, int decimals,
                         QWidget* parent)
    : QWidget(parent), m_slider(new FloatSlider(range, this)), m_spinBox(new SettingSpinBox(this)),
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
        if (const std::optional<double> typed = m_spinBox->takeClamped())
            emit clamped(*typed, value);
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
