#include "main_window.h"

#include "about_box.h"
#include "auto/data.h"
#include "auto_overlay.h"
#include "engine/log.h"
#include "gallery_window.h"
#include "help_window.h"
#include "jobs/picture_file.h"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QCloseEvent>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressDialog>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QStatusBar>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

#include <cmath>

namespace clarovi::app {

namespace {

constexpr auto kFirstStartKey = "firstStartnew2";
constexpr auto kOpenFolderKey = "lastOpenFolder";
constexpr auto kSaveFolderKey = "lastSaveFolder";
constexpr auto kExportFolderKey = "lastExportFolder";
constexpr int kProgressSteps = 1000;
constexpr auto kGeometryKey = "windowGeometry";
constexpr auto kWindowStateKey = "windowState";
constexpr int kNoteMilliseconds = 8000;

// The window's own look, on its central widget only so that dialogs keep the application's palette.
const char* const kStyle = R"(
QWidget#central, QWidget#sidePanel, QWidget#neCont { background: #555555; }
QLabel#maintitle { font-size: 26px; font-weight: bold; letter-spacing: 3px; }
QLabel#settingInfo { font-size: 15px; }
QWidget#sidePanel QPushButton, QWidget#sidePanel QToolButton {
    background: #6b6b6b; border: 1px solid #2f2f2f; border-radius: 5px; padding: 6px 12px; }
QWidget#sidePanel QToolButton { padding-right: 24px; }
QWidget#sidePanel QToolButton::menu-button { border-left: 1px solid #2f2f2f; width: 20px; }
QWidget#sidePanel QPushButton:checked { background: #3d7be0; }
QWidget#sidePanel QPushButton:disabled, QWidget#sidePanel QToolButton:disabled { color: #9a9a9a; }
QPushButton#movedSw { border-radius: 20px; padding: 0; font-weight: bold; }
)";

QString pictureFilter() {
    return QObject::tr("Pictures (*.png *.jpg *.jpeg *.tif *.tiff *.bmp *.webp *.gif *.PNG *.JPG "
                       "*.JPEG *.TIF *.TIFF *.BMP *.WEBP *.GIF);;All files (*)");
}

QStringList localFiles(const QMimeData* data) {
    QStringList files;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile())
            files << url.toLocalFile();
    return files;
}

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

// Space belongs to a text field that has the focus; elsewhere in the window it holds Compare.
bool typingInto(const QWidget* focus) {
    return qobject_cast<const QAbstractSpinBox*>(focus) || qobject_cast<const QLineEdit*>(focus);
}

} // namespace

MainWindow::MainWindow(QSettings& settings, QWidget* parent)
    : QMainWindow(parent), m_jobs(m_state, *this), m_sequences(m_state, *this, m_jobs),
      m_settings(settings), m_recent(settings), m_autoRun(m_state, *this) {
    m_openChooser = [this](const QString& folder) {
        return QFileDialog::getOpenFileName(this, tr("Open a photograph"), folder, pictureFilter());
    };
    m_saveChooser = [this](const QString& proposed) {
        return QFileDialog::getSaveFileName(this, tr("Save the restored picture"), proposed,
                                            tr("PNG picture (*.png)"));
    };
    m_exportChooser = [this](const QString& proposed) {
        return QFileDialog::getSaveFileName(
            this, tr("Export the restored photograph at full size"), proposed,
            tr("PNG picture (*.png);;TIFF picture (*.tif *.tiff);;JPEG picture (*.jpg *.jpeg)"));
    };
    m_messageSink = [this](const QString& message) {
        QMessageBox::warning(this, tr("Clarovi"), message);
    };
    setWindowTitle(tr("Clarovi"));
    setAcceptDrops(true);

    auto* central = new QWidget(this);
    central->setObjectName(QStringLiteral("central"));
    central->setStyleSheet(QString::fromLatin1(kStyle));
    setCentralWidget(central);
    auto* layout = new QHBoxLayout(central);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(12);
    img01 = new ImageView(central);
    img01->setObjectName(QStringLiteral("img01"));
    img01->setMinimumSize(560, 420);
    img01->setZoomable(true);
    m_panel = new SidePanel(central);
    layout->addWidget(img01, 1);
    layout->addWidget(m_panel);
    m_overlay = new AutoOverlay(central);
    connect(m_overlay, &AutoOverlay::cancelRequested, &m_autoRun, &autosearch::AutoRun::cancel);

    buildMenus();
    buildStatusBar();
    connectPanel();
    m_editSettled.setSingleShot(true);
    m_editSettled.setInterval(int(jobs::kReleaseDelay * 1000));
    connect(&m_editSettled, &QTimer::timeout, this, [this] { m_pendingRelease(); });
    qApp->installEventFilter(this);
    if (!restoreGeometry(m_settings.value(QLatin1String(kGeometryKey)).toByteArray()))
        resize(1320, 860);
    restoreState(m_settings.value(QLatin1String(kWindowStateKey)).toByteArray());
    viewDidLoad();
}

MainWindow::~MainWindow() {
    qApp->removeEventFilter(this);
    if (m_stopExport)
        *m_stopExport = true;
    m_exportWatcher.waitForFinished();
}

void MainWindow::buildMenus() {
    auto* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&Open…"), QKeySequence::Open, this, &MainWindow::pickIt);
    m_recentMenu = file->addMenu(tr("Open &Recent"));
    m_recentMenu->setObjectName(QStringLiteral("recentMenu"));
    connect(m_recentMenu, &QMenu::aboutToShow, this, &MainWindow::rebuildRecentMenu);
    file->addAction(tr("Open and &Search Automatically…"), this, [this] {
        automatizateIt();
        pickIt();
    });
    file->addSeparator();
    QAction* save = file->addAction(tr("&Save"), QKeySequence::Save, this, [this] {
        if (m_panel->saveBtn->isEnabled())
            SaveImage();
    });
    QAction* exportAction =
        file->addAction(tr("&Export Full Size…"), QKeySequence(tr("Ctrl+Shift+E")),
                        m_panel->exportBtn, &QPushButton::click);
    file->addSeparator();
    file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);

    auto* picture = menuBar()->addMenu(tr("&Picture"));
    QAction* colour = picture->addAction(tr("Restore in &Colour"), QKeySequence(tr("Ctrl+R")),
                                         m_panel->rgbBtn, &QPushButton::click);
    QAction* estimate = picture->addAction(tr("&Estimate Blur"), QKeySequence(tr("Ctrl+E")),
                                           m_panel->estimateBtn, &QToolButton::click);
    QAction* search = picture->addAction(tr("&Auto Search"), QKeySequence(tr("A")),
                                         m_panel->autobtn, &QPushButton::click);
    // The menus offer what the buttons do, when they do it; a shortcut meanwhile clicks a button
    // that may be off, which does nothing.
    const std::tuple<QMenu*, QAction*, QAbstractButton*> mirrors[] = {
        {file, save, m_panel->saveBtn},
        {file, exportAction, m_panel->exportBtn},
        {picture, colour, m_panel->rgbBtn},
        {picture, estimate, m_panel->estimateBtn},
        {picture, search, m_panel->autobtn}};
    for (const auto& [menu, action, button] : mirrors) {
        connect(menu, &QMenu::aboutToShow, action,
                [action, button] { action->setEnabled(button->isEnabled()); });
        connect(menu, &QMenu::aboutToHide, action, [action] { action->setEnabled(true); });
    }

    auto* view = menuBar()->addMenu(tr("&View"));
    QAction* zoomIn = view->addAction(tr("Zoom &In"), img01, &ImageView::zoomIn);
    zoomIn->setShortcuts({QKeySequence(Qt::Key_Plus), QKeySequence(Qt::Key_Equal),
                          QKeySequence(QKeySequence::ZoomIn)});
    QAction* zoomOut = view->addAction(tr("Zoom &Out"), img01, &ImageView::zoomOut);
    zoomOut->setShortcuts({QKeySequence(Qt::Key_Minus), QKeySequence(QKeySequence::ZoomOut)});
    view->addAction(tr("&Fit to Window"), QKeySequence(Qt::Key_0), img01, &ImageView::fitToWindow);
    view->addAction(tr("&Actual Size"), QKeySequence(Qt::Key_1), img01, &ImageView::showActualSize);

    auto* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("Clarovi &Help"), QKeySequence::HelpContents, this, &MainWindow::showHelp);
    help->addAction(tr("&About Clarovi"), this, [this] { showAboutBox(this); });
}

void MainWindow::buildStatusBar() {
    m_fileLabel = new QLabel(this);
    m_zoomLabel = new QLabel(this);
    m_zoomLabel->setObjectName(QStringLiteral("zoomLabel"));
    m_jobLabel = new QLabel(this);
    for (QLabel* label : {m_fileLabel, m_zoomLabel, m_jobLabel})
        statusBar()->addPermanentWidget(label);
    connect(img01, &ImageView::zoomChanged, this, [this](double factor, bool fitting) {
        const long percent = std::lround(factor * 100);
        m_zoomLabel->setText(fitting ? tr("Fit (%1 %)").arg(percent) : tr("%1 %").arg(percent));
    });
}

void MainWindow::connectField(SliderField* field, void (jobs::ControlSequences::*handler)(bool)) {
    const std::function<void(bool)> event = std::bind(handler, &m_sequences, std::placeholders::_1);
    connect(field, &SliderField::dragged, this, [event] { event(false); });
    connect(field, &SliderField::released, this, [event] { event(true); });
}

void MainWindow::connectPanel() {
    connectField(m_panel->psfCountD, &jobs::ControlSequences::LengthNew);
    connectField(m_panel->psfAngle, &jobs::ControlSequences::angleNew);
    connectField(m_panel->anglewidth, &jobs::ControlSequences::widthSlider);
    connect(m_panel->muSlider, &SliderField::released, this, &MainWindow::muSliderChange);
    const std::pair<SliderField*, void (jobs::ControlSequences::*)()> typed[] = {
        {m_panel->psfCountD, &jobs::ControlSequences::lengthTyped},
        {m_panel->psfAngle, &jobs::ControlSequences::angleTyped},
        {m_panel->anglewidth, &jobs::ControlSequences::widthTyped},
        {m_panel->muSlider, &jobs::ControlSequences::sharpnessTyped}};
    for (const auto& [field, release] : typed)
        connect(field, &SliderField::edited, this,
                [this, typedRelease = std::bind(release, &m_sequences)] {
                    settingEdited(typedRelease);
                });

    connect(m_panel->movedSw, &QPushButton::clicked, this, [this] { movedSwitch(motionMode()); });
    connect(m_panel->ofSw, &QPushButton::clicked, this, [this] { movedSwitch(false); });
    connect(m_panel->openBtn, &QPushButton::clicked, this, &MainWindow::pickIt);
    connect(m_panel->saveBtn, &QPushButton::clicked, this, &MainWindow::SaveImage);
    connect(m_panel->exportBtn, &QPushButton::clicked, this, &MainWindow::exportFullSize);
    connect(&m_exportWatcher, &QFutureWatcher<jobs::ExportResult>::progressValueChanged, this,
            [this](int value) {
                if (m_exportProgress)
                    m_exportProgress->setValue(value);
            });
    connect(m_panel->rgbBtn, &QPushButton::clicked, &m_sequences,
            &jobs::ControlSequences::colorize);
    connect(m_panel->autobtn, &QPushButton::clicked, this, &MainWindow::autoBtn);
    connect(m_panel, &SidePanel::estimateRequested, this, &MainWindow::estimateBlur);
    connect(&m_estimation, &jobs::BlurEstimation::finished, this, &MainWindow::takeEstimate);
    connect(&m_estimation, &jobs::BlurEstimation::failed, this, [this](const QString& why) {
        endEstimate();
        reportError(why);
    });
    connect(m_panel->spectrumPreview, &SpectrumPreview::clicked, this,
            &MainWindow::showSpectrumWindow);
    connect(m_panel->aspectBtn, &QPushButton::clicked, &m_sequences,
            &jobs::ControlSequences::aspectChange);
    connect(m_panel->compareBtn, &QPushButton::pressed, this, [this] { setComparing(true); });
    connect(m_panel->compareBtn, &QPushButton::released, this, [this] { setComparing(false); });
}

void MainWindow::viewDidLoad() {
    img01->setBackground(Qt::black);
    img01->setPlaceholderText(tr("Open a photograph to begin"));
    m_sequences.setUpDefaults();
    showFirstStartHelp();
}

void MainWindow::showFirstStartHelp() {
    m_settings.sync();
    if (m_settings.value(QLatin1String(kFirstStartKey), false).toBool())
        return;
    showHelp();
    m_settings.setValue(QLatin1String(kFirstStartKey), true);
    m_settings.sync();
}

void MainWindow::showHelp() {
    if (!m_helpController)
        m_helpController = std::make_unique<HowToViewC>(this);
    m_helpController->showInFront();
}

bool MainWindow::motionMode() const {
    return m_panel->movedSw->isChecked();
}

void MainWindow::setPsfSliders(float length, double angle, double width) {
    m_panel->psfCountD->setFloatValue(length);
    m_panel->psfAngle->setFloatValue(float(angle));
    m_panel->anglewidth->setFloatValue(float(width));
}

void MainWindow::setSharpness(float mu) {
    m_panel->muSlider->setFloatValue(mu);
}

void MainWindow::setMotionMode(bool motion) {
    m_panel->showMotionMode(motion);
    autosearch::Data::getInstance().isMotionSwitchOn = motion;
}

void MainWindow::lockEverything() {
    // A setting changed from the keyboard gets the focus back once the job is done.
    if (QWidget* focus = QApplication::focusWidget(); focus && m_panel->isAncestorOf(focus))
        m_focusAfterJob = focus;
    m_panel->lockEverything();
    m_jobLabel->setText(tr("Restoring…"));
}

void MainWindow::unlockEverything() {
    QTimer::singleShot(0, this, &MainWindow::auxUnlock);
}

void MainWindow::auxUnlock() {
    m_panel->auxUnlock();
    // One estimate at a time: its button comes back when it is done.
    if (estimating())
        m_panel->estimateBtn->setEnabled(false);
    m_jobLabel->setText(tr("Ready"));
    if (m_focusAfterJob && m_focusAfterJob->isEnabled())
        m_focusAfterJob->setFocus();
    m_focusAfterJob.clear();
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
    if (m_spectrumWindowView)
        m_spectrumWindowView->setBlur(psf.blur);
}

void MainWindow::showSpectrum(const jobs::ShownSpectrum& spectrum) {
    m_panel->spectrumPreview->setSpectrum(spectrum);
    if (m_spectrumWindowView)
        m_spectrumWindowView->setSpectrum(spectrum);
}

// The enlarged spectrum: a zoomable view and a line on how to read it, beside the main window
// where the screen has room, otherwise over the picture, so that the sliders stay in view.
void MainWindow::makeSpectrumWindow() {
    auto* window = new QWidget(this, Qt::Window);
    window->setObjectName(QStringLiteral("spectrumWindow"));
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->setWindowTitle(tr("Spectrum — Clarovi"));
    auto* view = new SpectrumPreview(window);
    view->setObjectName(QStringLiteral("spectrumWindowView"));
    view->setZoomable(true);
    view->setMinimumSize(256, 256);
    auto* hint = new QLabel(tr("Dark rings or stripes are where the picture's blur wiped "
                               "frequencies out; the coloured ones are where the sliders' blur "
                               "would. Wheel or + and - to zoom, drag to move, 0 to fit."),
                            window);
    hint->setWordWrap(true);
    auto* layout = new QVBoxLayout(window);
    layout->addWidget(view, 1);
    layout->addWidget(hint);
    window->resize(640, 700);
    const QRect screenArea = screen()->availableGeometry();
    const bool roomRight = frameGeometry().right() + window->width() < screenArea.right();
    window->move(roomRight ? frameGeometry().topRight() + QPoint(8, 0)
                           : frameGeometry().topLeft() + QPoint(24, 48));
    m_spectrumWindow = window;
    m_spectrumWindowView = view;
}

void MainWindow::showSpectrumWindow() {
    if (m_panel->spectrumPreview->image().isNull())
        return;
    if (!m_spectrumWindow)
        makeSpectrumWindow();
    m_spectrumWindowView->setSpectrum(m_panel->spectrumPreview->spectrum());
    if (const auto& blur = m_panel->spectrumPreview->blur())
        m_spectrumWindowView->setBlur(*blur);
    m_spectrumWindow->show();
    m_spectrumWindow->raise();
    m_spectrumWindow->activateWindow();
}

void MainWindow::estimateBlur(engine::KindWanted wanted) {
    if (!m_panel->estimateBtn->isEnabled() || !m_estimation.start(m_state, wanted))
        return;
    m_estimatedPicture = m_state.sourceImage.cacheKey();
    m_panel->estimateBtn->setEnabled(false);
    m_jobLabel->setText(tr("Estimating the blur…"));
}

// The Estimate button comes back as the other controls are.
void MainWindow::endEstimate() {
    m_panel->estimateBtn->setEnabled(m_panel->rgbBtn->isEnabled());
    m_jobLabel->setText(tr("Ready"));
}

// An estimate of a picture no longer open, or arriving while an automatic search covers the
// window, is dropped; a doubtful one leaves the sliders alone.
void MainWindow::takeEstimate(const engine::BlurEstimate& estimate) {
    endEstimate();
    if (m_state.sourceImage.cacheKey() != m_estimatedPicture || m_overlay->isVisible())
        return;
    const jobs::EstimatedSetting found = jobs::settingOf(estimate, m_state);
    if (!found.clear) {
        statusBar()->showMessage(tr("No clear blur found"), kNoteMilliseconds);
        return;
    }
    m_sequences.applyEstimate(found);
    const bool motion = estimate.kind == engine::BlurKind::Motion;
    QString note = motion ? tr("Motion blur found: length %1, angle %2")
                                .arg(double(found.setting.length), 0, 'f', 1)
                                .arg(found.setting.angle, 0, 'f', 1)
                          : tr("Out-of-focus blur found: diameter %1")
                                .arg(double(found.setting.length), 0, 'f', 1);
    note += tr(" (confidence %1)").arg(estimate.confidence, 0, 'f', 2);
    if (found.beyondRange)
        note += tr("; the blur is longer than the length slider reaches, so it is set to its end");
    statusBar()->showMessage(note, kNoteMilliseconds);
}

void MainWindow::reportError(const QString& message) {
    qCWarning(lcClarovi).noquote() << message;
    m_jobLabel->setText(tr("Failed"));
    m_messageSink(message);
}

void MainWindow::settingEdited(const std::function<void()>& release) {
    m_sequences.previewSetting();
    m_pendingRelease = release;
    m_editSettled.start();
}

void MainWindow::muSliderChange() {
    m_sequences.muSliderChange();
    // The sharpness slider stays usable (still dimmed) while the others wait for the restoration.
    m_panel->muSlider->setEnabled(true);
}

void MainWindow::movedSwitch(bool motion) {
    m_panel->showMotionMode(motion);
    autosearch::Data::getInstance().isMotionSwitchOn = motion;
    m_sequences.movedSwitch(motion);
}

void MainWindow::setupBtn() {
    autosearch::Data::getInstance().isMotionSwitchOn = false;
}

void MainWindow::setComparing(bool comparing) {
    img01->setComparing(comparing);
    if (comparing)
        statusBar()->showMessage(tr("Before restoration"));
    else
        statusBar()->clearMessage();
}

// Space held anywhere in the window but in a text field shows the picture before restoration.
bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    const bool press = event->type() == QEvent::KeyPress;
    if (!press && event->type() != QEvent::KeyRelease)
        return false;
    const auto* key = static_cast<QKeyEvent*>(event);
    const auto* widget = qobject_cast<QWidget*>(watched);
    if (key->key() != Qt::Key_Space || !widget || widget->window() != this ||
        typingInto(QApplication::focusWidget()) || m_inputShown.isNull())
        return false;
    if (!key->isAutoRepeat())
        setComparing(press);
    return true;
}

void MainWindow::pickIt() {
    const QString path = m_openChooser(m_settings.value(QLatin1String(kOpenFolderKey)).toString());
    if (!path.isEmpty())
        setImageInputForPictureTaker(path);
}

bool MainWindow::setImageInputForPictureTaker(const QString& path) {
    const jobs::LoadedPicture picture = jobs::loadPicture(path);
    if (picture.image.isNull()) {
        reportError(picture.error);
        return false;
    }
    m_settings.setValue(QLatin1String(kOpenFolderKey), QFileInfo(path).absolutePath());
    m_recent.add(path);
    m_sequences.pickImg(picture.image);
    m_inputShown = img01->image();
    m_inputGrey = {};
    img01->setNaturalSize(m_inputShown.size());
    img01->setCompareImage(m_inputShown);
    img01->fitToWindow();
    autosearch::Data& shared = autosearch::Data::getInstance();
    shared.selectedImg = m_state.sourceImage;
    shared.isMotionSwitchOn = false;
    m_panel->showPictureOpened(m_state.keepAspect);
    showOpenedFile(path, picture.image.size());
    AppearActions();
    return true;
}

void MainWindow::showOpenedFile(const QString& path, const QSize& originalSize) {
    m_openedPath = path;
    const QString name = QFileInfo(path).fileName();
    setWindowTitle(tr("%1 — Clarovi").arg(name));
    m_fileLabel->setText(
        tr("%1  %2 × %3").arg(name).arg(originalSize.width()).arg(originalSize.height()));
}

void MainWindow::AppearActions() {
    autosearch::Data& shared = autosearch::Data::getInstance();
    if (shared.isMotionSwitchOn.load() || motionMode())
        m_state.motionBlur = true;
    if (shared.toPut.load() && !m_state.sourceImage.isNull())
        applyPick();
    if (m_autoRun.autoRequested)
        m_autoRun.MainWrapper();
    m_sequences.showFirstRestoration();
}

void MainWindow::applyPick() {
    autosearch::Data& shared = autosearch::Data::getInstance();
    m_sequences.applyPick(shared.selectedLength.load(), shared.selectedAngle.load(),
                          shared.selectedWidth.load(), shared.selectedSharpness.load());
    shared.toPut = false;
}

// Save writes the main view's picture, at the working size: "<name>-preview.png", so that it
// never takes the name the full-size export proposes for the restored photograph itself.
QString MainWindow::proposedSavePath() const {
    const QFileInfo opened(m_openedPath);
    QString folder = m_settings.value(QLatin1String(kSaveFolderKey)).toString();
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = opened.absolutePath();
    return QDir(folder).filePath(opened.completeBaseName() + QStringLiteral("-preview.png"));
}

void MainWindow::SaveImage() {
    const QString chosen = m_saveChooser(proposedSavePath());
    if (chosen.isEmpty())
        return;
    const QString path = jobs::savePathFor(chosen);
    QString error = jobs::targetProblem(path, m_openedPath);
    if (error.isEmpty())
        error = jobs::savePng(shownImage(), path);
    if (!error.isEmpty()) {
        reportError(error);
        return;
    }
    m_settings.setValue(QLatin1String(kSaveFolderKey), QFileInfo(path).absolutePath());
    statusBar()->showMessage(tr("Saved %1").arg(QDir::toNativeSeparators(path)), kNoteMilliseconds);
}

void MainWindow::exportFullSize() {
    if (exporting() || m_openedPath.isEmpty())
        return;
    QString folder = m_settings.value(QLatin1String(kExportFolderKey)).toString();
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = QFileInfo(m_openedPath).absolutePath();
    const QString chosen = m_exportChooser(jobs::exportName(m_openedPath, folder));
    if (chosen.isEmpty())
        return;
    const jobs::ExportRequest request{
        m_openedPath,
        jobs::savePathFor(chosen),
        jobs::blurSettingOf(m_state, psfLength(), psfAngle(), psfWidth(), sharpness()),
        {}};
    if (const QString error = jobs::exportTargetError(request.target, request.source);
        !error.isEmpty()) {
        reportError(error);
        return;
    }
    m_settings.setValue(QLatin1String(kExportFolderKey), QFileInfo(request.target).absolutePath());
    lockEverything();
    // Fixed size starts a restoration of its own, which would compete with the export.
    m_panel->aspectBtn->setEnabled(false);
    m_jobLabel->setText(tr("Exporting…"));
    startExport(request);
}

// The export runs on a pool thread with a stop flag of its own rather than the future's cancel,
// so that its result always arrives and says whether the file was written.
void MainWindow::startExport(const jobs::ExportRequest& request) {
    auto stop = std::make_shared<std::atomic<bool>>(false);
    m_stopExport = stop;
    m_exportProgress =
        new QProgressDialog(tr("Exporting %1…").arg(QFileInfo(request.target).fileName()),
                            tr("Cancel"), 0, kProgressSteps, this);
    m_exportProgress->setAttribute(Qt::WA_DeleteOnClose);
    m_exportProgress->setWindowModality(Qt::WindowModal);
    m_exportProgress->setMinimumDuration(0);
    m_exportProgress->setAutoClose(false);
    m_exportProgress->setAutoReset(false);
    connect(m_exportProgress, &QProgressDialog::canceled, this, [stop] { *stop = true; });
    disconnect(&m_exportWatcher, &QFutureWatcher<jobs::ExportResult>::finished, this, nullptr);
    connect(&m_exportWatcher, &QFutureWatcher<jobs::ExportResult>::finished, this,
            [this, target = request.target] { finishExport(target); });
    m_exportWatcher.setFuture(
        QtConcurrent::run([request, stop](QPromise<jobs::ExportResult>& promise) {
            promise.setProgressRange(0, kProgressSteps);
            const jobs::JobControl control{
                [&promise](double done) { promise.setProgressValue(int(done * kProgressSteps)); },
                [stop] { return stop->load(); }};
            promise.addResult(jobs::exportFullSize(request, control));
        }));
}

// A written export may carry a note.
void MainWindow::finishExport(const QString& target) {
    if (m_exportProgress)
        m_exportProgress->close();
    m_panel->aspectBtn->setEnabled(true);
    unlockEverything();
    const jobs::ExportResult result = m_exportWatcher.result();
    switch (result.outcome) {
    case jobs::ExportResult::Outcome::Written:
        statusBar()->showMessage(tr("Exported %1").arg(QDir::toNativeSeparators(target)),
                                 kNoteMilliseconds);
        if (!result.message.isEmpty())
            m_messageSink(result.message);
        break;
    case jobs::ExportResult::Outcome::Cancelled:
        statusBar()->showMessage(tr("Export cancelled; nothing was written"), kNoteMilliseconds);
        break;
    case jobs::ExportResult::Outcome::Failed:
        reportError(result.message);
        break;
    }
}

void MainWindow::rebuildRecentMenu() {
    const QStringList missing = m_recent.pruneMissing();
    if (!missing.isEmpty())
        statusBar()->showMessage(tr("No longer there, removed from the recent files: %1")
                                     .arg(missing.join(QStringLiteral(", "))),
                                 kNoteMilliseconds);
    m_recentMenu->clear();
    const QStringList paths = m_recent.paths();
    for (int i = 0; i < paths.size(); ++i) {
        const QString& path = paths[i];
        QAction* action =
            m_recentMenu->addAction(tr("&%1 %2").arg(i + 1).arg(QFileInfo(path).fileName()), this,
                                    [this, path] { setImageInputForPictureTaker(path); });
        action->setToolTip(QDir::toNativeSeparators(path));
    }
    if (paths.isEmpty())
        m_recentMenu->addAction(tr("No recent files"))->setEnabled(false);
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (!m_overlay->isVisible() && !localFiles(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    const QStringList files = localFiles(event->mimeData());
    if (files.isEmpty() || m_overlay->isVisible())
        return;
    event->acceptProposedAction();
    if (setImageInputForPictureTaker(files.first()) && files.size() > 1)
        statusBar()->showMessage(
            tr("Opened %1, the first of the %2 files dropped").arg(files.first()).arg(files.size()),
            kNoteMilliseconds);
}

void MainWindow::rememberWindow() {
    m_settings.setValue(QLatin1String(kGeometryKey), saveGeometry());
    m_settings.setValue(QLatin1String(kWindowStateKey), saveState());
}

void MainWindow::closeEvent(QCloseEvent* event) {
    rememberWindow();
    QMainWindow::closeEvent(event);
}

void MainWindow::showOverlay(bool shown) {
    m_overlay->cover(shown);
    // Opening another picture mid-run would pull the state from under the search.
    menuBar()->setEnabled(!shown);
}

void MainWindow::showProgress(double fraction) {
    m_overlay->showProgress(fraction);
}

void MainWindow::showProgressText(const QString& text) {
    m_overlay->showText(text);
}

void MainWindow::showCv() {
    m_loadingController = std::make_unique<AutoViewController>();
    if (m_galleryTerminator)
        m_loadingController->setTerminator(m_galleryTerminator);
    connect(m_loadingController.get(), &AutoViewController::keepCurrentSettings, &m_autoRun,
            &autosearch::AutoRun::keepCurrentSettings);
    // Once it has closed, the gallery and the results it showed go, and so does their memory.
    connect(
        m_loadingController.get(), &AutoViewController::closed, this,
        [this] {
            m_loadingController.reset();
            m_autoRun.releaseResults();
        },
        Qt::QueuedConnection);
    m_loadingController->show();
    m_loadingController->raise();
}

} // namespace clarovi::app
