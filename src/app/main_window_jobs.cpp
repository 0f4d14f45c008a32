// The window's longer jobs: the blur estimate, the automatic search, the full-size export and the
// preview's save, and the enlarged spectrum.
#include "engine/log.h"
#include "files/picture_file.h"
#include "fourier_window.h"
#include "guess_offer.h"
#include "main_window.h"

#include <QDir>
#include <QFileInfo>
#include <QProgressDialog>
#include <QSettings>
#include <QStatusBar>

namespace clarovi::app {

namespace {

constexpr auto kSaveFolderKey = "lastSaveFolder";
constexpr auto kExportFolderKey = "lastExportFolder";
constexpr auto kJpegQualityKey = "lastJpegQuality";
constexpr auto kDepthKey = "lastDepth";

} // namespace

void MainWindow::connectJobs() {
    connect(&m_estimation, &jobs::BlurEstimation::finished, this, &MainWindow::takeEstimate);
    connect(&m_estimation, &jobs::BlurEstimation::failed, this, [this](const QString& why) {
        endEstimate();
        reportError(why);
    });
    connect(&m_export, &jobs::ExportRun::finished, this, &MainWindow::finishExport);
    connect(&m_autoRun, &autosearch::AutoRun::cancelled, this,
            [this] { showNote(tr("Search cancelled; the settings are as they were")); });
}

// The estimate only reads the picture: it may run beside a restoration, not beside a search or
// an export, which hold the window.
void MainWindow::estimateBlur(engine::KindWanted wanted) {
    if (m_board.running(jobs::Activity::Estimating) || m_board.covered() ||
        m_board.running(jobs::Activity::Exporting) || !m_estimation.start(m_state, wanted)) {
        m_openingEstimate = false;
        return;
    }
    m_estimatedPicture = m_state.sourceImage.cacheKey();
    m_estimatedRegion = m_state.region;
    m_board.setRunning(jobs::Activity::Estimating, true);
}

void MainWindow::endEstimate() {
    m_board.setRunning(jobs::Activity::Estimating, false);
}

// An estimate of a picture no longer open, or of another region, is dropped. One arriving while a
// search covers the window, or the one an open started once the user has set the controls, only
// leaves its guess for the search. A doubtful one leaves the sliders alone and is offered.
void MainWindow::takeEstimate(const engine::BlurEstimate& estimate) {
    endEstimate();
    const bool opening = std::exchange(m_openingEstimate, false);
    if (m_state.sourceImage.cacheKey() != m_estimatedPicture)
        return;
    // A region marked while it ran is estimated now, in its place.
    if (m_state.region != m_estimatedRegion) {
        estimateBlur(engine::KindWanted::Any);
        return;
    }
    m_state.guess.reset();
    if (estimate.blur.length > 0)
        m_state.guess = estimate;
    if (m_board.covered() || m_board.running(jobs::Activity::Exporting) ||
        (opening && m_sequences.history().count() > 0))
        return;
    const jobs::EstimatedSetting found = jobs::settingOf(estimate);
    if (!found.clear) {
        offerGuess(estimate);
        return;
    }
    m_guessOffer->hide();
    m_sequences.applyEstimate(found);
    const bool motion = found.blur.kind == engine::BlurKind::Motion;
    QString note =
        motion ? tr("Motion blur found: length %1, angle %2°")
                     .arg(found.blur.length, 0, 'f', 1)
                     .arg(found.blur.angle, 0, 'f', 1)
               : tr("Out-of-focus blur found: diameter %1").arg(found.blur.length, 0, 'f', 1);
    note += tr(" (confidence %1)").arg(estimate.confidence, 0, 'f', 2);
    if (found.beyondRange)
        note += tr("; the blur is longer than the length slider reaches, so it is set to its end");
    showNote(note);
}

void MainWindow::offerGuess(const engine::BlurEstimate& estimate) {
    showNote(tr("No clear blur found"));
    // A guess without any evidence is no offer.
    if (estimate.blur.length > 0 && estimate.confidence > 0)
        m_guessOffer->offer(estimate);
    else
        m_guessOffer->hide();
}

void MainWindow::tryGuess() {
    if (!m_state.guess || !m_board.controlsFree())
        return;
    m_sequences.applyEstimate(jobs::settingOf(*m_state.guess));
}

void MainWindow::searchAroundGuess() {
    if (m_state.guess && m_board.controlsFree())
        m_autoRun.MainWrapper(setting(), true);
}

void MainWindow::markRegion(const QRectF& inPhoto) {
    if (m_state.sourceImage.isNull())
        return;
    m_state.region = m_state.analysedRegion(inPhoto.toAlignedRect());
    img01->setRegion(m_state.region.empty() ? QRectF() : inPhoto);
    // The guess read elsewhere no longer stands for what the search is to look at.
    m_state.guess.reset();
    m_guessOffer->hide();
    showNote(m_state.region.empty() ? tr("Estimate and Auto Search look at the whole picture")
                                    : tr("Estimate and Auto Search look at the marked region"));
    if (!m_state.region.empty())
        estimateBlur(engine::KindWanted::Any);
}

// Until the controls have been set (by hand or by a clear estimate), the search goes in the kind
// of blur the photograph's guess shows; then in the mode's.
void MainWindow::autoBtn() {
    if (m_board.controlsFree())
        m_autoRun.MainWrapper(setting(), m_sequences.history().count() == 0);
}

void MainWindow::applyPick() {
    autosearch::Data& shared = autosearch::Data::getInstance();
    shared.toPut = false;
    m_sequences.applyPick(shared.selected);
}

void MainWindow::showSpectrumWindow() {
    if (m_panel->spectrumPreview->image().isNull())
        return;
    if (!m_spectrumWindow)
        m_spectrumWindow = new SpectrumWindow(this);
    m_spectrumWindow->showFrom(*m_panel->spectrumPreview);
}

// "<name>-<suffix>" in the folder saved to last, or beside the photograph.
QString MainWindow::proposedPath(const char* folderKey, const QString& suffix) const {
    const QFileInfo opened(m_openedPath);
    QString folder = m_settings.value(QLatin1String(folderKey)).toString();
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = opened.absolutePath();
    return QDir(folder).filePath(opened.completeBaseName() + QLatin1Char('-') + suffix);
}

void MainWindow::SaveImage() {
    if (m_openedPath.isEmpty() || !m_board.controlsFree())
        return;
    const QString chosen =
        m_saveChooser(proposedPath(kSaveFolderKey, QStringLiteral("preview.png")));
    if (chosen.isEmpty())
        return;
    const QString path = files::savePathFor(chosen);
    QString error = files::targetProblem(path, m_openedPath);
    if (error.isEmpty())
        error = files::savePng(img01->image(), path);
    if (!error.isEmpty()) {
        reportError(error);
        return;
    }
    m_settings.setValue(QLatin1String(kSaveFolderKey), QFileInfo(path).absolutePath());
    showNote(tr("Saved the preview as %1").arg(QDir::toNativeSeparators(path)));
}

void MainWindow::exportFullSize() {
    if (m_openedPath.isEmpty() || !m_board.controlsFree())
        return;
    const files::ExportOptions remembered{
        m_settings.value(QLatin1String(kDepthKey), 0).toInt(),
        m_settings.value(QLatin1String(kJpegQualityKey), files::ExportOptions{}.jpegQuality)
            .toInt()};
    const std::optional<ExportChoice> chosen = m_exportChooser(
        {proposedPath(kExportFolderKey, QStringLiteral("restored.png")), remembered});
    if (!chosen)
        return;
    const jobs::ExportRequest request{m_openedPath, files::savePathFor(chosen->path), setting(),
                                      chosen->options};
    if (const QString error = files::exportTargetError(request.target, request.source);
        !error.isEmpty()) {
        reportError(error);
        return;
    }
    m_settings.setValue(QLatin1String(kExportFolderKey), QFileInfo(request.target).absolutePath());
    m_settings.setValue(QLatin1String(kJpegQualityKey), chosen->options.jpegQuality);
    m_settings.setValue(QLatin1String(kDepthKey), chosen->options.depth);
    startExport(request);
}

void MainWindow::startExport(const jobs::ExportRequest& request) {
    if (!m_export.start(request))
        return;
    m_board.setRunning(jobs::Activity::Exporting, true);
    m_exportProgress =
        new QProgressDialog(tr("Saving %1…").arg(QFileInfo(request.target).fileName()),
                            tr("Cancel"), 0, jobs::ExportRun::kProgressSteps, this);
    m_exportProgress->setObjectName(QStringLiteral("exportProgress"));
    m_exportProgress->setAttribute(Qt::WA_DeleteOnClose);
    m_exportProgress->setWindowModality(Qt::WindowModal);
    m_exportProgress->setMinimumDuration(0);
    m_exportProgress->setAutoClose(false);
    m_exportProgress->setAutoReset(false);
    connect(m_exportProgress, &QProgressDialog::canceled, &m_export, &jobs::ExportRun::cancel);
    connect(&m_export, &jobs::ExportRun::progressed, m_exportProgress, &QProgressDialog::setValue);
}

// A written export may carry a note.
void MainWindow::finishExport(const jobs::ExportResult& result, const QString& target) {
    if (m_exportProgress)
        m_exportProgress->close();
    m_board.setRunning(jobs::Activity::Exporting, false);
    switch (result.outcome) {
    case jobs::ExportResult::Outcome::Written:
        showNote(tr("Saved %1").arg(QDir::toNativeSeparators(target)));
        if (!result.message.isEmpty())
            m_messageSink(result.message);
        break;
    case jobs::ExportResult::Outcome::Cancelled:
        showNote(tr("Saving cancelled; nothing was written"));
        break;
    case jobs::ExportResult::Outcome::Failed:
        reportError(result.message);
        break;
    }
}

} // namespace clarovi::app
