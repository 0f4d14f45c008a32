// What the jobs and the automatic search see of the window: its setting, its lock and the places
// results go.
#include "auto_overlay.h"
#include "engine/log.h"
#include "fourier_window.h"
#include "gallery_window.h"
#include "main_window.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>

namespace clarovi::app {

namespace {

// Whether a shown picture is a grey restoration: every grey result has equal channels. A sparse
// sample decides it; a colour picture whose samples are all grey looks the same either way.
bool looksGrey(const QImage& picture) {
    if (picture.format() == QImage::Format_Grayscale8)
        return true;
    const qint64 pixels = qint64(picture.width()) * picture.height();
    const qint64 stride = std::max<qint64>(1, pixels / 4096);
    for (qint64 i = 0; i < pixels; i += stride) {
        const QRgb pixel = picture.pixel(int(i % picture.width()), int(i / picture.width()));
        if (qRed(pixel) != qGreen(pixel) || qGreen(pixel) != qBlue(pixel))
            return false;
    }
    return true;
}

} // namespace

jobs::Setting MainWindow::setting() const {
    const engine::BlurKind kind = m_panel->mode();
    const engine::BlurOnPhoto blur =
        kind == engine::BlurKind::Shake && m_shakeKernel
            ? engine::BlurOnPhoto::shake(m_shakeKernel)
            : engine::BlurOnPhoto{kind == engine::BlurKind::Shake ? engine::BlurKind::OutOfFocus
                                                                  : kind,
                                  m_panel->psfCountD->floatValue(), m_panel->psfAngle->floatValue(),
                                  m_panel->anglewidth->floatValue()};
    return {blur, m_panel->muSlider->floatValue(), m_panel->rgbBtn->isChecked(),
            m_classicAction->isChecked()};
}

// A disk leaves the angle and width sliders where they were, ready for motion mode; a shake
// leaves all three, and its kernel is held for the Shake switch.
void MainWindow::showSetting(const jobs::Setting& setting) {
    if (setting.blur.kind == engine::BlurKind::Shake)
        m_shakeKernel = setting.blur.kernel;
    m_panel->showMode(setting.blur.kind, m_shakeKernel != nullptr);
    if (setting.blur.kind != engine::BlurKind::Shake)
        m_panel->psfCountD->setFloatValue(float(setting.blur.length));
    if (setting.motion()) {
        m_panel->psfAngle->setFloatValue(float(setting.blur.angle));
        m_panel->anglewidth->setFloatValue(float(setting.blur.width));
    }
    m_panel->muSlider->setFloatValue(float(setting.sharpness));
    m_panel->rgbBtn->setChecked(setting.colour);
    m_classicAction->setChecked(setting.classic);
}

void MainWindow::lockEverything() {
    if (QWidget* focus = QApplication::focusWidget(); focus && m_panel->isAncestorOf(focus))
        m_focusAfterJob = focus;
    m_board.setRunning(jobs::Activity::Restoring, true);
}

void MainWindow::unlockEverything() {
    QTimer::singleShot(0, this, [this] { m_board.setRunning(jobs::Activity::Restoring, false); });
}

void MainWindow::showResult(const QImage& picture) {
    img01->setImage(picture);
    // Compare shows the input as the result is shown: grey beside grey, colour beside colour.
    const bool grey = looksGrey(picture);
    if (grey && m_inputGrey.isNull() && !m_inputShown.isNull())
        m_inputGrey = m_inputShown.convertToFormat(QImage::Format_Grayscale8);
    const QImage& input = grey ? m_inputGrey : m_inputShown;
    if (img01->compareImage().cacheKey() != input.cacheKey())
        img01->setCompareImage(input);
}

void MainWindow::showSettings(const QString& text) {
    m_panel->settingInfo->setText(text);
}

void MainWindow::showPsf(const jobs::PsfPicture& psf) {
    m_panel->psfPreview->setPsf(psf);
    m_panel->spectrumPreview->setBlur(psf.blur);
    if (m_spectrumWindow)
        m_spectrumWindow->view()->setBlur(psf.blur);
}

void MainWindow::showSpectrum(const jobs::ShownSpectrum& spectrum) {
    m_panel->spectrumPreview->setSpectrum(spectrum);
    if (m_spectrumWindow)
        m_spectrumWindow->view()->setSpectrum(spectrum);
}

void MainWindow::reportError(const QString& message) {
    qCWarning(lcClarovi).noquote() << message;
    showNote(tr("Failed: %1").arg(message));
    m_messageSink(message);
}

void MainWindow::showProgress(double fraction, const QString& text) {
    m_overlay->showProgress(fraction);
    m_overlay->showText(text);
}

void MainWindow::showSearchFailure(const QString& why) {
    reportError(why);
}

void MainWindow::showCv() {
    m_gallery = new AutoViewController(this);
    m_gallery->setAttribute(Qt::WA_DeleteOnClose);
    connect(m_gallery, &AutoViewController::picked, &m_autoRun, &autosearch::AutoRun::unWrap);
    connect(m_gallery, &AutoViewController::keepCurrentSettings, this, [this] {
        m_autoRun.keepCurrentSettings();
        showNote(tr("The settings are as they were"));
    });
    // The results it shows go with it, and so does their memory: not before, as its model reads
    // them, and not later, so that no search's results outlive the gallery that shows them.
    connect(m_gallery, &QObject::destroyed, &m_autoRun, &autosearch::AutoRun::releaseResults);
    m_gallery->show();
    m_gallery->raise();
}

// What a pick or an open asks for once the window is free: the pick applied, or the search asked
// for with the open started, and the first restoration of a fresh picture.
void MainWindow::AppearActions() {
    if (autosearch::Data::getInstance().toPut.load() && !m_state.sourceImage.isNull())
        applyPick();
    // Opened to be searched: in the kind of blur the photograph shows.
    if (m_autoRun.autoRequested)
        m_autoRun.MainWrapper(setting(), true);
    m_sequences.showFirstRestoration();
}

} // namespace clarovi::app
