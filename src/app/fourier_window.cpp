#include "fourier_window.h"

#include <QLabel>
#include <QScreen>
#include <QVBoxLayout>

namespace clarovi::app {

SpectrumWindow::SpectrumWindow(QWidget* owner)
    : QWidget(owner, Qt::Window), m_view(new SpectrumPreview(this)) {
    setObjectName(QStringLiteral("spectrumWindow"));
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr("Spectrum — Clarovi"));
    m_view->setObjectName(QStringLiteral("spectrumWindowView"));
    m_view->setZoomable(true);
    m_view->setMinimumSize(256, 256);
    auto* hint = new QLabel(tr("Dark rings or stripes are where the picture's blur wiped "
                               "frequencies out; the coloured ones are where the sliders' blur "
                               "would. Wheel or + and - to zoom, drag to move, 0 to fit."),
                            this);
    hint->setWordWrap(true);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_view, 1);
    layout->addWidget(hint);
    resize(QSize(640, 700).boundedTo(owner->screen()->availableGeometry().size()));
    placeBesideOwner();
}

void SpectrumWindow::placeBesideOwner() {
    const QWidget* owner = parentWidget();
    const QRect screenArea = owner->screen()->availableGeometry();
    const QRect frame = owner->frameGeometry();
    const bool roomRight = frame.right() + width() < screenArea.right();
    move(roomRight ? frame.topRight() + QPoint(8, 0) : frame.topLeft() + QPoint(24, 48));
}

void SpectrumWindow::showFrom(const SpectrumPreview& panelView) {
    m_view->setSpectrum(panelView.spectrum());
    if (const auto& blur = panelView.blur())
        m_view->setBlur(*blur);
    show();
    raise();
    activateWindow();
}

} // namespace clarovi::app
