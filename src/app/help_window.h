#pragma once

#include <QWidget>

namespace clarovi::app {
class HowToViewC : public QWidget {
    Q_OBJECT
  public:
    explicit HowToViewC(QWidget* parent = nullptr) : QWidget(parent) {}
};
} // namespace clarovi::app
