#include "auto_overlay.h"

#include <QEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <cmath>

namespace clarovi::app {

namespace {
constexpr int kProgressSteps = 1000; // the fraction 0 to 1, in thousandths
}

AutoOverlay::AutoOverlay(QWidget* parent)
    : QWidget(parent), _pBar(new QProgressBar(this)), _loadLabelNew(new QLabel(this)),
      cancelBtn(new QPushButton(tr("Cancel"), this)) {
    setObjectName(QStringLiteral("neCont"));
    setAutoFillBackground(true);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(120, 0, 120, 0);
    column->addStretch();
    auto* heading = new QLabel(tr("Searching for the best setting"), this);
    heading->setAlignment(Qt::AlignCenter);
    _pBar->setObjectName(QStringLiteral("_pBar"));
    _pBar->setRange(0, kProgressSteps);
    _pBar->setTextVisible(false);
    _loadLabelNew->setObjectName(QStringLiteral("_loadLabelNew"));
    _loadLabelNew->setAlignment(Qt::AlignCenter);
    cancelBtn->setObjectName(QStringLiteral("cancelBtn"));
    cancelBtn->setToolTip(tr("Stop the search and keep the settings you had (Esc)"));
    cancelBtn->setShortcut(QKeySequence::Cancel);
    connect(cancelBtn, &QPushButton::clicked, this, &AutoOverlay::cancelRequested);
    column->addWidget(heading);
    column->addWidget(_pBar);
    column->addWidget(_loadLabelNew);
    column->addWidget(cancelBtn, 0, Qt::AlignHCenter);
    column->addStretch();
    parent->installEventFilter(this);
    hide();
}

void AutoOverlay::showProgress(double fraction) {
    _pBar->setValue(int(std::lround(fraction * kProgressSteps)));
}

void AutoOverlay::showText(const QString& text) {
    _loadLabelNew->setText(text);
}

void AutoOverlay::cover(bool shown) {
    setGeometry(parentWidget()->rect());
    setVisible(shown);
    if (shown)
        raise();
}

// Follows the size of the widget it covers.
bool AutoOverlay::eventFilter(QObject* watched, QEvent* event) {
    if (watched == parentWidget() && event->type() == QEvent::Resize)
        setGeometry(parentWidget()->rect());
    return QWidget::eventFilter(watched, event);
}

} // namespace clarovi::app
