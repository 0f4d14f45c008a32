#include "float_slider.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QWheelEvent>

#include <cmath>

namespace clarovi::app {

FloatSlider::FloatSlider(const jobs::SliderRange& range, QWidget* parent)
    : QSlider(Qt::Horizontal, parent), m_range(range) {
    setRange(0, stepsOf(range.maximum));
    setSingleStep(1);
    setPageStep(0);
    setFocusPolicy(Qt::StrongFocus);
    setValue(stepsOf(range.initial));
    // The slider moves its value only after announcing the move; take the new position first so
    // that a drag step reads the value of its own event.
    connect(this, &QSlider::sliderMoved, this, [this](int position) {
        setValue(position);
        emit dragged(floatValue());
    });
}

int FloatSlider::stepsOf(float value) const {
    return int(std::lround((value - m_range.minimum) / m_range.step));
}

float FloatSlider::floatValue() const {
    return m_range.minimum + float(value()) * m_range.step;
}

void FloatSlider::setFloatValue(float value) {
    setValue(stepsOf(value));
}

void FloatSlider::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        QStyleOptionSlider option;
        initStyleOption(&option);
        const QRect handle =
            style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, this);
        if (!handle.contains(event->position().toPoint())) {
            // Jump to the clicked value and go on as if the handle had been grabbed there.
            const int span = width() - handle.width();
            const int x = int(event->position().x()) - handle.width() / 2;
            setValue(QStyle::sliderValueFromPosition(minimum(), maximum(), x, span));
        }
    }
    QSlider::mousePressEvent(event);
}

void FloatSlider::mouseReleaseEvent(QMouseEvent* event) {
    QSlider::mouseReleaseEvent(event);
    if (event->button() == Qt::LeftButton && isEnabled())
        emit released(floatValue());
}

void FloatSlider::keyPressEvent(QKeyEvent* event) {
    const int before = value();
    QSlider::keyPressEvent(event);
    if (value() != before)
        emit stepped(floatValue());
}

void FloatSlider::wheelEvent(QWheelEvent* event) {
    event->ignore();
}

} // namespace clarovi::app
