// A blur's kernel as a picture: a shake loaded from a grey PNG, and the current kernel saved as
// one.
#include "engine/psf.h"
#include "engine/shake_kernel.h"
#include "files/picture_file.h"
#include "main_window.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace clarovi::app {

namespace {

constexpr char kPsfFolderKey[] = "psfFolder";

} // namespace

void MainWindow::loadPsf() {
    if (m_state.sourceImage.isNull() || !m_board.controlsFree())
        return;
    const QString path = m_openChooser(m_settings.value(QLatin1String(kPsfFolderKey)).toString());
    if (path.isEmpty())
        return;
    const files::LoadedPicture picture = files::loadPicture(path);
    QString error = picture.error;
    const cv::Mat kernel =
        picture.image.isNull() ? cv::Mat() : engine::kernelFromPicture(picture.image, &error);
    if (kernel.empty()) {
        reportError(error);
        return;
    }
    m_settings.setValue(QLatin1String(kPsfFolderKey), QFileInfo(path).absolutePath());
    const engine::BlurOnPhoto shake =
        engine::BlurOnPhoto::shake(std::make_shared<const cv::Mat>(kernel));
    m_sequences.applyPick(shake);
    showNote(tr("Restoring with the kernel of %1 (%2 × %3 pixels)")
                 .arg(QFileInfo(path).fileName())
                 .arg(kernel.cols)
                 .arg(kernel.rows));
}

void MainWindow::savePsf() {
    if (m_openedPath.isEmpty() || !m_board.controlsFree())
        return;
    const QString chosen = m_saveChooser(
        QDir(m_settings.value(QLatin1String(kPsfFolderKey), QFileInfo(m_openedPath).absolutePath())
                 .toString())
            .filePath(QFileInfo(m_openedPath).completeBaseName() + QStringLiteral("-psf.png")));
    if (chosen.isEmpty())
        return;
    const QString path = files::savePathFor(chosen);
    QString error = files::targetProblem(path, m_openedPath);
    if (error.isEmpty())
        error = files::savePng(engine::kernelPicture(engine::MakePsfD(setting().blur, 1.0)), path);
    if (!error.isEmpty()) {
        reportError(error);
        return;
    }
    m_settings.setValue(QLatin1String(kPsfFolderKey), QFileInfo(path).absolutePath());
    showNote(tr("Saved the blur's kernel as %1").arg(QDir::toNativeSeparators(path)));
}

} // namespace clarovi::app
