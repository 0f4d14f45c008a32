#include "main_window.h"

#include "auto_overlay.h"
#include "engine/log.h"
#include "files/picture_file.h"
#include "gallery_window.h"
#include "guess_offer.h"
#include "help_window.h"

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
#include <QPushButton>
#include <QSettings>
#include <QStatusBar>
#include <QToolButton>

#include <cmath>

namespace clarovi::app {

namespace {

constexpr auto kFirstStartKey = "firstStartnew2";
constexpr auto kOpenFolderKey = "lastOpenFolder";
constexpr auto kGeometryKey = "windowGeometry";
constexpr auto kWindowStateKey = "windowState";
// What a new photograph starts with, as the last one was left.
constexpr auto kMotionKey = "lastMotion";
constexpr auto kSharpnessKey = "lastSharpness";
constexpr auto kColourKey = "lastColour";
constexpr int kNoteMilliseconds = 8000;

// The window's own look, on its central widget only so that dialogs keep the application's palette.
const char* const kStyle = R"(
QWidget#central, QWidget#sidePanel { background: #555555; }
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

// Space belongs to a text field that has the focus; elsewhere in the window it holds Compare.
bool typingInto(const QWidget* focus) {
    return qobject_cast<const QAbstractSpinBox*>(focus) || qobject_cast<const QLineEdit*>(focus);
}

} // namespace

MainWindow::MainWindow(QSettings& settings, autosearch::Restoration thumbnails, QWidget* parent)
    : QMainWindow(parent), m_settings(settings), m_jobs(m_state, *this),
      m_sequences(m_state, *this, m_jobs), m_recent(settings),
      m_autoRun(m_state, m_board, *this, std::move(thumbnails)) {
    m_openChooser = [this](const QString& folder) {
        return QFileDialog::getOpenFileName(this, tr("Open a photograph"), folder, pictureFilter());
    };
    m_saveChooser = [this](const QString& proposed) {
        return QFileDialog::getSaveFileName(this, tr("Save the preview shown"), proposed,
                                            tr("PNG picture (*.png)"));
    };
    m_exportChooser = [this](const ExportChoice& proposed) -> std::optional<ExportChoice> {
        ExportDialog dialog(proposed, this);
        if (dialog.exec() != QDialog::Accepted)
            return std::nullopt;
        return dialog.choice();
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
    img01->setBackground(Qt::black);
    img01->setPlaceholderText(tr("Open a photograph to begin"));
    m_panel = new SidePanel(central);
    layout->addWidget(img01, 1);
    layout->addWidget(m_panel);
    // Over the picture only: the panel stays in view, dimmed, while a search runs.
    m_overlay = new AutoOverlay(img01);
    connect(m_overlay, &AutoOverlay::cancelRequested, &m_autoRun, &autosearch::AutoRun::cancel);

    // The status bar first: the Edit menu's action presses its button.
    buildStatusBar();
    buildMenus();
    connectPanel();
    connectJobs();
    connect(&m_board, &jobs::ActivityBoard::changed, this, &MainWindow::showActivity);
    m_editSettled.setSingleShot(true);
    m_editSettled.setInterval(int(jobs::kReleaseDelay * 1000));
    connect(&m_editSettled, &QTimer::timeout, &m_sequences, &jobs::ControlSequences::settled);
    qApp->installEventFilter(this);
    if (!restoreGeometry(m_settings.value(QLatin1String(kGeometryKey)).toByteArray()))
        resize(1320, 860);
    restoreState(m_settings.value(QLatin1String(kWindowStateKey)).toByteArray());
    showSetting(startSetting());
    m_sequences.setUpDefaults();
    showActivity();
    showFirstStartHelp();
}

MainWindow::~MainWindow() {
    qApp->removeEventFilter(this);
}

void MainWindow::buildStatusBar() {
    m_fileLabel = new QLabel(this);
    m_zoomLabel = new QLabel(this);
    m_zoomLabel->setObjectName(QStringLiteral("zoomLabel"));
    m_jobLabel = new QLabel(this);
    m_jobLabel->setObjectName(QStringLiteral("jobLabel"));
    m_previousButton = new QPushButton(tr("Use the previous photograph's setting"), this);
    m_previousButton->setObjectName(QStringLiteral("previousBtn"));
    m_previousButton->setFlat(true);
    m_previousButton->hide();
    connect(m_previousButton, &QPushButton::clicked, this, [this] {
        m_previousButton->hide();
        m_sequences.applyPrevious();
    });
    m_guessOffer = new GuessOffer(this);
    m_guessOffer->setObjectName(QStringLiteral("guessOffer"));
    connect(m_guessOffer, &GuessOffer::tryIt, this, &MainWindow::tryGuess);
    connect(m_guessOffer, &GuessOffer::searchAround, this, &MainWindow::searchAroundGuess);
    statusBar()->addPermanentWidget(m_guessOffer);
    statusBar()->addPermanentWidget(m_previousButton);
    for (QLabel* label : {m_fileLabel, m_zoomLabel, m_jobLabel})
        statusBar()->addPermanentWidget(label);
    connect(img01, &ImageView::regionMarked, this, &MainWindow::markRegion);
    connect(img01, &ImageView::zoomChanged, this, [this](double factor, bool fitting) {
        // The view lays the photograph out at its own size: 100 % is one of its pixels.
        const long percent = std::lround(factor * 100);
        m_zoomLabel->setText(fitting ? tr("Fit: %1 % of full size").arg(percent)
                                     : tr("%1 % of full size").arg(percent));
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
    connect(m_panel->muSlider, &SliderField::released, &m_sequences,
            [this] { m_sequences.muSliderChange(); });
    for (SliderField* field :
         {m_panel->psfCountD, m_panel->psfAngle, m_panel->anglewidth, m_panel->muSlider}) {
        connect(field, &SliderField::edited, this, &MainWindow::settingEdited);
        connect(field, &SliderField::clamped, this, [this](double typed, double limit) {
            showNote(tr("%1 is beyond what the setting takes: set to %2").arg(typed).arg(limit));
        });
    }
    const auto switchTo = [this](engine::BlurKind kind) {
        m_panel->showMode(kind, m_shakeKernel != nullptr);
        m_sequences.movedSwitch();
    };
    connect(m_panel->movedSw, &QPushButton::clicked, this, [this, switchTo] {
        switchTo(m_panel->movedSw->isChecked() ? engine::BlurKind::Motion
                                               : engine::BlurKind::OutOfFocus);
    });
    connect(m_panel->ofSw, &QPushButton::clicked, this,
            [switchTo] { switchTo(engine::BlurKind::OutOfFocus); });
    connect(m_panel->shakeSw, &QPushButton::clicked, this,
            [switchTo] { switchTo(engine::BlurKind::Shake); });
    connect(m_panel->rgbBtn, &QPushButton::clicked, &m_sequences,
            &jobs::ControlSequences::colorize);
    connect(m_panel->openBtn, &QPushButton::clicked, this, &MainWindow::pickIt);
    connect(m_panel->saveBtn, &QPushButton::clicked, this, &MainWindow::exportFullSize);
    connect(m_panel->autobtn, &QPushButton::clicked, this, &MainWindow::autoBtn);
    connect(m_panel, &SidePanel::estimateRequested, this, &MainWindow::estimateBlur);
    connect(m_panel->spectrumPreview, &SpectrumPreview::clicked, this,
            &MainWindow::showSpectrumWindow);
    connect(m_panel->compareBtn, &QPushButton::pressed, this, [this] { setComparing(true); });
    connect(m_panel->compareBtn, &QPushButton::released, this, [this] { setComparing(false); });
}

// Everything that shows what runs follows the board: the panel, the menus, the status bar and
// the overlay.
void MainWindow::showActivity() {
    const bool pictureOpen = !m_state.sourceImage.isNull();
    m_panel->showActivity(m_board, pictureOpen);
    for (QAction* action : m_pictureActions)
        action->setEnabled(pictureOpen && m_board.controlsFree());
    m_estimateAction->setEnabled(m_panel->estimateBtn->isEnabled());
    m_jobLabel->setText(m_board.summary());
    m_overlay->cover(m_board.covered());
    menuBar()->setEnabled(!m_board.covered());
    // A setting changed from the keyboard gets the focus back once the job is done.
    if (m_board.controlsFree() && m_focusAfterJob && m_focusAfterJob->isEnabled()) {
        m_focusAfterJob->setFocus();
        m_focusAfterJob.clear();
    }
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
    if (!m_help)
        m_help = new HowToViewC(this);
    m_help->showInFront();
}

// The default blur, in the mode, sharpness and colour the user last had.
jobs::Setting MainWindow::startSetting() const {
    jobs::Setting start;
    if (m_settings.value(QLatin1String(kMotionKey), false).toBool())
        start.blur.kind = engine::BlurKind::Motion;
    start.sharpness = m_settings.value(QLatin1String(kSharpnessKey), start.sharpness).toDouble();
    start.colour = m_settings.value(QLatin1String(kColourKey), false).toBool();
    return start;
}

void MainWindow::rememberSetting() const {
    const jobs::Setting now = setting();
    m_settings.setValue(QLatin1String(kMotionKey), now.motion());
    m_settings.setValue(QLatin1String(kSharpnessKey), now.sharpness);
    m_settings.setValue(QLatin1String(kColourKey), now.colour);
}

void MainWindow::settingEdited() {
    m_sequences.previewSetting();
    m_editSettled.start();
}

void MainWindow::setComparing(bool comparing) {
    img01->setComparing(comparing);
    if (comparing)
        statusBar()->showMessage(tr("Before restoration"));
    else
        statusBar()->clearMessage();
}

void MainWindow::showNote(const QString& text) {
    statusBar()->showMessage(text, kNoteMilliseconds);
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

// A new photograph starts from the default setting in the last mode, sharpness and colour; its
// estimate, when clear, moves it there; the previous photograph's setting is offered.
bool MainWindow::setImageInputForPictureTaker(const QString& path) {
    if (!m_board.controlsFree() && !m_state.sourceImage.isNull())
        return false;
    const files::LoadedPicture picture = files::loadPicture(path);
    if (picture.image.isNull()) {
        reportError(picture.error);
        return false;
    }
    rememberSetting();
    m_settings.setValue(QLatin1String(kOpenFolderKey), QFileInfo(path).absolutePath());
    m_recent.add(path);
    m_sequences.pickImg(picture.image, startSetting());
    m_inputShown = img01->image();
    m_inputGrey = {};
    // 100 % is a pixel of the photograph, whichever copy of it the view shows.
    img01->setNaturalSize(m_state.photoSize);
    img01->setCompareImage(m_inputShown);
    img01->fitToWindow();
    showOpenedFile(path, picture.image.size());
    offerPreviousSetting();
    m_guessOffer->hide();
    img01->setRegion({});
    AppearActions();
    m_openingEstimate = true;
    estimateBlur(engine::KindWanted::Any);
    return true;
}

void MainWindow::showOpenedFile(const QString& path, const QSize& originalSize) {
    m_openedPath = path;
    const QString name = QFileInfo(path).fileName();
    setWindowTitle(tr("%1 — Clarovi").arg(name));
    m_fileLabel->setText(
        tr("%1  %2 × %3").arg(name).arg(originalSize.width()).arg(originalSize.height()));
}

void MainWindow::offerPreviousSetting() {
    const std::optional<jobs::Setting>& previous = m_sequences.previousSetting();
    m_previousButton->setVisible(previous.has_value());
    if (previous)
        m_previousButton->setToolTip(tr("Restore this photograph with the setting the previous one "
                                        "was left at: %1")
                                         .arg(jobs::settingsLabel(*previous)));
}

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (m_board.controlsFree() && !localFiles(event->mimeData()).isEmpty())
        event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
    const QStringList files = localFiles(event->mimeData());
    if (files.isEmpty() || !m_board.controlsFree())
        return;
    event->acceptProposedAction();
    if (setImageInputForPictureTaker(files.first()) && files.size() > 1)
        showNote(tr("Opened %1, the first of the %2 files dropped")
                     .arg(files.first())
                     .arg(files.size()));
}

void MainWindow::rememberWindow() {
    m_settings.setValue(QLatin1String(kGeometryKey), saveGeometry());
    m_settings.setValue(QLatin1String(kWindowStateKey), saveState());
    rememberSetting();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    rememberWindow();
    QMainWindow::closeEvent(event);
}

} // namespace clarovi::app
