#include "main_window.h"

#include "engine/image_bridge.h"
#include "engine/log.h"
#include "gallery_window.h"
#include "help_window.h"
#include "jobs/picture_file.h"

#include "auto/data.h"

#include <QAction>
#include <QFileDialog>
#include <QGraphicsDropShadowEffect>
#include <QGraphicsOpacityEffect>
#include <QGridLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QResizeEvent>
#include <QSettings>
#include <QTimer>
#include <QVBoxLayout>

namespace clarovi::app {

namespace {

constexpr auto kFirstStartKey = "firstStartnew2";
constexpr double kReleaseDelay = 1.0; // seconds from a slider release to its restoration
constexpr float kDimmed = 0.2f;

const char* const kStyle = R"(
QWidget#central, QWidget#sidePanel { background: #555555; }
QWidget { color: white; }
QLabel#maintitle { font-size: 26px; font-weight: bold; letter-spacing: 3px; }
QLabel#settingInfo { font-size: 15px; }
QPushButton { background: #6b6b6b; border: 1px solid #2f2f2f; border-radius: 5px;
              padding: 6px 12px; }
QPushButton:checked { background: #3d7be0; }
QPushButton#movedSw { border-radius: 20px; padding: 0; font-weight: bold; }
QWidget#neCont { background: #555555; }
QMenuBar, QMenu { background: #4a4a4a; }
)";

QString sliderValueText(const FloatSlider* slider, int decimals) {
    return QString::number(double(slider->floatValue()), 'f', decimals);
}

} // namespace

MainWindow::MainWindow(QSettings& settings, QWidget* parent)
    : QMainWindow(parent), m_jobs(m_state, *this), m_settings(settings), m_autoRun(m_state, *this) {
    m_openChooser = [this] {
        return QFileDialog::getOpenFileName(
            this, tr("Open a photograph"), QString(),
            tr("Pictures (*.png *.jpg *.jpeg *.tif *.tiff *.bmp *.webp *.gif *.PNG *.JPG *.JPEG "
               "*.TIF *.TIFF *.BMP *.WEBP *.GIF);;All files (*)"));
    };
    m_saveChooser = [this] {
        return QFileDialog::getSaveFileName(this, tr("Save the restored picture"), QString(),
                                            tr("PNG picture (*.png);;All files (*)"));
    };
    m_messageSink = [this](const QString& message) {
        QMessageBox::warning(this, tr("Clarovi"), message);
    };
    buildControls();
    viewDidLoad();
    m_aspectSettled.setSingleShot(true);
    connect(&m_aspectSettled, &QTimer::timeout, this, &MainWindow::restoreAfterAspectChange);
}

MainWindow::~MainWindow() = default;

// ---------------------------------------------------------------------------------------------
// Set-up

void MainWindow::buildControls() {
    setWindowTitle(tr("Clarovi"));
    setStyleSheet(QString::fromLatin1(kStyle));
    resize(1320, 860);

    auto* central = new QWidget(this);
    central->setObjectName(QStringLiteral("central"));
    setCentralWidget(central);
    auto* layout = new QHBoxLayout(central);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(12);

    img01 = new ImageView(central);
    img01->setObjectName(QStringLiteral("img01"));
    img01->setMinimumSize(560, 420);
    layout->addWidget(img01, 1);
    layout->addWidget(buildSidePanel());

    buildOverlay(central);

    auto* fileMenu = menuBar()->addMenu(tr("&File"));
    fileMenu->addAction(tr("&Open…"), QKeySequence::Open, this, &MainWindow::pickIt);
    fileMenu->addAction(tr("Open and &Search Automatically…"), this, [this] {
        automatizateIt();
        pickIt();
    });
    fileMenu->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);
    auto* helpMenu = menuBar()->addMenu(tr("&Help"));
    helpMenu->addAction(tr("Clarovi &Help"), QKeySequence::HelpContents, this,
                        &MainWindow::showHelp);
}

// The auto mode's overlay: it covers every control while a search runs.
void MainWindow::buildOverlay(QWidget* central) {
    neCont = new QWidget(central);
    neCont->setObjectName(QStringLiteral("neCont"));
    neCont->setAttribute(Qt::WA_StyledBackground);
    auto* overlay = new QVBoxLayout(neCont);
    overlay->setContentsMargins(120, 0, 120, 0);
    overlay->addStretch();
    auto* heading = new QLabel(tr("Searching for the best setting"), neCont);
    heading->setAlignment(Qt::AlignCenter);
    _pBar = new QProgressBar(neCont);
    _pBar->setObjectName(QStringLiteral("_pBar"));
    _pBar->setRange(0, 1000); // the fraction 0 to 1, in thousandths
    _pBar->setTextVisible(false);
    _loadLabelNew = new QLabel(neCont);
    _loadLabelNew->setObjectName(QStringLiteral("_loadLabelNew"));
    _loadLabelNew->setAlignment(Qt::AlignCenter);
    cancelBtn = new QPushButton(tr("Cancel"), neCont);
    cancelBtn->setObjectName(QStringLiteral("cancelBtn"));
    connect(cancelBtn, &QPushButton::clicked, &m_autoRun, &autosearch::AutoRun::cancel);
    overlay->addWidget(heading);
    overlay->addWidget(_pBar);
    overlay->addWidget(_loadLabelNew);
    overlay->addWidget(cancelBtn, 0, Qt::AlignHCenter);
    overlay->addStretch();
    neCont->hide();
}

void MainWindow::resizeEvent(QResizeEvent* event) {
    QMainWindow::resizeEvent(event);
    neCont->setGeometry(centralWidget()->rect());
}

QWidget* MainWindow::buildSidePanel() {
    auto* panel = new QWidget;
    panel->setObjectName(QStringLiteral("sidePanel"));
    panel->setFixedWidth(380);
    auto* column = new QVBoxLayout(panel);
    column->setContentsMargins(0, 0, 0, 0);

    maintitle = new QLabel(QStringLiteral("CLAROVI"), panel);
    maintitle->setObjectName(QStringLiteral("maintitle"));
    maintitle->setAlignment(Qt::AlignCenter);
    column->addWidget(maintitle);

    auto* views = new QGridLayout;
    psfPreview = new ImageView(panel);
    psfPreview->setObjectName(QStringLiteral("psfPreview"));
    spectrumPreview = new ImageView(panel);
    spectrumPreview->setObjectName(QStringLiteral("spectrumPreview"));
    spectrumPreview->setMirrored(true);
    for (ImageView* view : {psfPreview, spectrumPreview})
        view->setFixedSize(180, 180);
    views->addWidget(new QLabel(tr("PSF")), 0, 0, Qt::AlignHCenter);
    views->addWidget(new QLabel(tr("Spectrum")), 0, 1, Qt::AlignHCenter);
    views->addWidget(psfPreview, 1, 0);
    views->addWidget(spectrumPreview, 1, 1);
    column->addLayout(views);

    settingInfo = new QLabel(panel);
    settingInfo->setObjectName(QStringLiteral("settingInfo"));
    settingInfo->setAlignment(Qt::AlignCenter);
    auto* shadow = new QGraphicsDropShadowEffect(settingInfo);
    shadow->setColor(Qt::black);
    shadow->setOffset(-1, 1);
    shadow->setBlurRadius(0);
    settingInfo->setGraphicsEffect(shadow);
    column->addWidget(settingInfo);

    auto addSlider = [&](FloatSlider*& slider, const char* name, const jobs::SliderRange& range,
                         const QString& caption, int decimals) {
        slider = new FloatSlider(range, panel);
        slider->setObjectName(QString::fromLatin1(name));
        auto* captionRow = new QHBoxLayout;
        auto* value = new QLabel(sliderValueText(slider, decimals));
        captionRow->addWidget(new QLabel(caption));
        captionRow->addStretch();
        captionRow->addWidget(value);
        connect(slider, &QSlider::valueChanged, value,
                [value, slider, decimals] { value->setText(sliderValueText(slider, decimals)); });
        column->addLayout(captionRow);
        column->addWidget(slider);
    };
    addSlider(psfCountD, "psfCountD", jobs::kLengthRange, tr("PSF Length / Diameter"), 1);
    addSlider(psfAngle, "psfAngle", jobs::kAngleRange, tr("PSF Angle"), 1);
    addSlider(anglewidth, "anglewidth", jobs::kWidthRange, tr("PSF Width"), 2);
    addSlider(muSlider, "muSlider", jobs::kSharpnessRange, tr("Sharpness"), 5);

    connect(psfCountD, &FloatSlider::dragged, this, [this] { LengthNew(false); });
    connect(psfCountD, &FloatSlider::released, this, [this] { LengthNew(true); });
    connect(psfAngle, &FloatSlider::dragged, this, [this] { angleNew(false); });
    connect(psfAngle, &FloatSlider::released, this, [this] { angleNew(true); });
    connect(anglewidth, &FloatSlider::dragged, this, [this] { widthSlider(false); });
    connect(anglewidth, &FloatSlider::released, this, [this] { widthSlider(true); });
    connect(muSlider, &FloatSlider::released, this, &MainWindow::muSliderChange);

    auto* modeRow = new QHBoxLayout;
    movedSw = new QPushButton(QStringLiteral("M"), panel);
    movedSw->setObjectName(QStringLiteral("movedSw"));
    movedSw->setCheckable(true);
    movedSw->setFixedSize(40, 40);
    movedSw->setToolTip(tr("Motion blur mode"));
    ofSw = new QPushButton(tr("Out of focus"), panel);
    ofSw->setObjectName(QStringLiteral("ofSw"));
    ofSw->setToolTip(tr("Out-of-focus blur mode"));
    modeRow->addWidget(movedSw);
    modeRow->addWidget(new QLabel(tr("Motion blur")));
    modeRow->addStretch();
    modeRow->addWidget(ofSw);
    column->addLayout(modeRow);
    connect(movedSw, &QPushButton::clicked, this, &MainWindow::movedSwitch);
    connect(ofSw, &QPushButton::clicked, this, &MainWindow::outOfFocusSelected);

    auto* buttons = new QHBoxLayout;
    openBtn = new QPushButton(tr("Open…"), panel);
    openBtn->setObjectName(QStringLiteral("openBtn"));
    saveBtn = new QPushButton(tr("Save"), panel);
    saveBtn->setObjectName(QStringLiteral("saveBtn"));
    rgbBtn = new QPushButton(QStringLiteral("RGB"), panel);
    rgbBtn->setObjectName(QStringLiteral("rgbBtn"));
    autobtn = new QPushButton(tr("Auto"), panel);
    autobtn->setObjectName(QStringLiteral("autobtn"));
    aspectBtn = new QPushButton(tr("Fixed size"), panel);
    aspectBtn->setObjectName(QStringLiteral("aspectBtn"));
    aspectBtn->setCheckable(true);
    aspectBtn->setChecked(true);
    aspectBtn->setEnabled(false);
    aspectBtn->setToolTip(tr("On: restore at the fixed working size. Off: restore at the "
                             "padded size and show the live preview of it."));
    for (QPushButton* button : {openBtn, saveBtn, rgbBtn, aspectBtn, autobtn})
        buttons->addWidget(button);
    column->addLayout(buttons);
    column->addStretch();
    connect(openBtn, &QPushButton::clicked, this, &MainWindow::pickIt);
    connect(saveBtn, &QPushButton::clicked, this, &MainWindow::SaveImage);
    connect(rgbBtn, &QPushButton::clicked, this, &MainWindow::colorize);
    connect(autobtn, &QPushButton::clicked, this, &MainWindow::autoBtn);
    connect(aspectBtn, &QPushButton::clicked, this, &MainWindow::aspectChange);
    return panel;
}

void MainWindow::viewDidLoad() {
    psfAngle->setEnabled(false);
    anglewidth->setEnabled(false);
    setDimmed(psfAngle, true);
    setDimmed(anglewidth, true);
    img01->setBackground(Qt::black);
    m_state.setUpDefaults(muSlider->floatValue(), muSlider->minValue(), muSlider->maxValue(),
                          psfCountD->floatValue());
    psfPreview->setImage(engine::flipImage(m_state.psfImage));
    for (QWidget* control : std::initializer_list<QWidget*>{
             muSlider, psfCountD, movedSw, saveBtn, rgbBtn, autobtn, psfAngle, anglewidth, ofSw})
        control->setEnabled(false);
    showFirstStartHelp();
}

void MainWindow::showFirstStartHelp() {
    m_settings.sync();
    if (m_settings.value(QLatin1String(kFirstStartKey), false).toBool())
        return;
    showHelp();
    m_settings.setValue(QLatin1String(kFirstStartKey), true);
    m_settings.sync();
    if (isVisible()) {
        raise();
        activateWindow();
    }
}

void MainWindow::showHelp() {
    if (!m_helpController)
        m_helpController = std::make_unique<HowToViewC>();
    m_helpController->show();
    m_helpController->raise();
}

// ---------------------------------------------------------------------------------------------
// Locking

void MainWindow::setDimmed(QWidget* control, bool dimmed) {
    auto* effect = qobject_cast<QGraphicsOpacityEffect*>(control->graphicsEffect());
    if (!effect) {
        effect = new QGraphicsOpacityEffect(control);
        control->setGraphicsEffect(effect);
    }
    effect->setOpacity(dimmed ? kDimmed : 1.0);
}

void MainWindow::lockEverything() {
    maintitle->setText(QStringLiteral("LOADING"));
    // Jobs hold the main thread; paint the title now so that "LOADING" is seen while they run.
    maintitle->repaint();
    for (QWidget* control : std::initializer_list<QWidget*>{psfCountD, movedSw, muSlider}) {
        control->setEnabled(false);
        setDimmed(control, true);
    }
    saveBtn->setEnabled(false);
    rgbBtn->setEnabled(false);
    autobtn->setEnabled(false);
    for (QWidget* control :
         std::initializer_list<QWidget*>{ofSw, rgbBtn, autobtn, anglewidth, psfAngle}) {
        control->setEnabled(false);
        setDimmed(control, true);
    }
}

void MainWindow::unlockEverything() {
    QTimer::singleShot(0, this, &MainWindow::auxUnlock);
}

void MainWindow::auxUnlock() {
    maintitle->setText(QStringLiteral("CLAROVI"));
    for (QWidget* control : std::initializer_list<QWidget*>{psfCountD, movedSw, muSlider}) {
        control->setEnabled(true);
        setDimmed(control, false);
    }
    saveBtn->setEnabled(true);
    for (QWidget* control : std::initializer_list<QWidget*>{ofSw, rgbBtn, autobtn}) {
        control->setEnabled(true);
        setDimmed(control, false);
    }
    if (movedSw->isChecked()) {
        for (QWidget* control : std::initializer_list<QWidget*>{anglewidth, psfAngle}) {
            control->setEnabled(true);
            setDimmed(control, false);
        }
    }
}

void MainWindow::showSettings(const QString& text) {
    settingInfo->setText(text);
}

void MainWindow::reportError(const QString& message) {
    qCWarning(lcClarovi).noquote() << message;
    m_messageSink(message);
}

// ---------------------------------------------------------------------------------------------
// Shared rules of the handlers

void MainWindow::scheduleAfter(double seconds, void (jobs::RestorationJobs::*job)()) {
    QTimer::singleShot(int(seconds * 1000), this, [this, job] { (m_jobs.*job)(); });
}

// The PSF picture beside the result: in motion mode six times longer and twenty times wider
// than the one that restores, so that a thin line can be seen.
QImage MainWindow::showDisplayPsf(double angle, double width) {
    const float length = psfCountD->floatValue();
    const QImage psf = movedSw->isChecked()
                           ? m_state.MakePsfD(length * 6.0f, angle, width * 20.0, false)
                           : m_state.MakePsfD(length, angle, width, false);
    psfPreview->setImage(engine::flipImage(psf));
    return psf;
}

void MainWindow::redrawPsf() {
    m_state.psfImage = m_state.MakePsfD(psfCountD->floatValue(), m_state.currentAngle,
                                        m_state.currentWidth, false);
}

void MainWindow::useWorkingPicture() {
    m_state.activeImage = m_state.sourceImage;
    m_state.autoSilent = false;
}

// ---------------------------------------------------------------------------------------------
// Slider handlers: each move while the mouse holds a PSF slider runs a drag step, a live tiled
// preview of the reduced copy; the release runs the end step, the full preview a second later.

void MainWindow::LengthNew(bool ended) {
    m_state.eventLength = psfCountD->floatValue();
    logLine(ended ? "ended" : "dragging");
    if (ended)
        lengthEndedDragging();
    else
        lengthDrag();
}

void MainWindow::angleNew(bool ended) {
    logLine(ended ? "ended" : "dragging");
    if (ended)
        angleEndedDragging();
    else
        angleDrag();
}

void MainWindow::widthSlider(bool ended) {
    m_state.eventLength = psfCountD->floatValue();
    logLine(ended ? "ended" : "dragging");
    if (ended)
        widthEndDrag();
    else
        widthDrag();
}

void MainWindow::lengthDrag() {
    dragStep();
}

void MainWindow::angleDrag() {
    m_state.currentAngle = psfAngle->floatValue();
    dragStep();
}

void MainWindow::widthDrag() {
    m_state.currentWidth = anglewidth->floatValue();
    dragStep();
}

void MainWindow::dragStep() {
    m_jobs.dragStep([this] {
        const QImage displayPsf = showDisplayPsf();
        logLine("PSF SIZE %fx%f and IMG %fx%f", double(displayPsf.width()),
                double(displayPsf.height()), double(m_state.jobImage.width()),
                double(m_state.jobImage.height()));
    });
}

void MainWindow::lengthEndedDragging() {
    lockEverything();
    rewriteSettingsLabel();
    useWorkingPicture();
    showDisplayPsf();
    redrawPsf();
    scheduleAfter(kReleaseDelay, &jobs::RestorationJobs::auxTrueNoMultithread);
    m_jobs.setSpect();
}

void MainWindow::angleEndedDragging() {
    lockEverything();
    m_state.currentAngle = psfAngle->floatValue();
    rewriteSettingsLabel();
    useWorkingPicture();
    redrawPsf();
    scheduleAfter(kReleaseDelay, &jobs::RestorationJobs::auxTrueNoMultithread);
}

void MainWindow::widthEndDrag() {
    lockEverything();
    useWorkingPicture();
    m_state.currentWidth = anglewidth->floatValue();
    rewriteSettingsLabel();
    showDisplayPsf();
    redrawPsf();
    scheduleAfter(kReleaseDelay, &jobs::RestorationJobs::auxTrueNoMultithread);
    m_jobs.setSpect();
}

void MainWindow::muSliderChange() {
    lockEverything();
    rewriteSettingsLabel();
    useWorkingPicture();
    // The sharpness slider stays usable (still dimmed) while the others wait for the restoration.
    muSlider->setEnabled(false);
    scheduleAfter(kReleaseDelay, &jobs::RestorationJobs::auxTrueNoMultithread);
    m_jobs.setSpect();
    muSlider->setEnabled(true);
}

void MainWindow::movedSwitch() {
    const bool motion = movedSw->isChecked();
    m_state.motionBlur = motion;
    autosearch::Data::getInstance().isMotionSwitchOn = motion;
    psfAngle->setEnabled(motion);
    anglewidth->setEnabled(motion);
    m_state.currentAngle = psfAngle->floatValue();
    m_state.autoSilent = false;
    showDisplayPsf();
    lockEverything();
    redrawPsf();
    m_jobs.auxTrueNoMultithread();
    m_jobs.setSpect();
}

void MainWindow::setupBtn() {
    autosearch::Data::getInstance().isMotionSwitchOn = false;
}

void MainWindow::outOfFocusSelected() {
    movedSw->setChecked(false);
    movedSwitch();
}

void MainWindow::aspectChange() {
    m_state.keepAspect = !m_state.keepAspect;
    scheduleAfter(m_state.jobDelay, &jobs::RestorationJobs::runCompTrue);
    m_aspectSettled.start(int(kReleaseDelay * 1000));
}

// The live preview that follows the Fixed size button is made of tiles; once the button has been
// left alone, the full preview of the working picture replaces it. A drag under way restores on
// its own release instead.
void MainWindow::restoreAfterAspectChange() {
    for (const FloatSlider* slider : {psfCountD, psfAngle, anglewidth, muSlider})
        if (slider->isSliderDown())
            return;
    useWorkingPicture();
    redrawPsf();
    m_jobs.auxTrueNoMultithread();
}

void MainWindow::colorize() {
    lockEverything();
    scheduleAfter(m_state.jobDelay, &jobs::RestorationJobs::runCompFalse);
}

// ---------------------------------------------------------------------------------------------
// Opening, the first computations, saving

void MainWindow::pickIt() {
    const QString path = m_openChooser();
    if (!path.isEmpty())
        setImageInputForPictureTaker(path);
}

bool MainWindow::setImageInputForPictureTaker(const QString& path) {
    const jobs::LoadedPicture picture = jobs::loadPicture(path);
    if (picture.image.isNull()) {
        reportError(picture.error);
        return false;
    }
    pickImg(picture.image);
    AppearActions();
    return true;
}

void MainWindow::pickImg(const QImage& photo) {
    m_state.installPicture(photo);
    autosearch::Data& shared = autosearch::Data::getInstance();
    shared.selectedImg = m_state.sourceImage;
    shared.isMotionSwitchOn = false;
    psfAngle->setEnabled(false);
    anglewidth->setEnabled(false);
    img01->setImage(engine::imageWithImage(m_state.sourceImage,
                                           QSizeF(m_state.displayWidth, m_state.displayHeight)));
    psfPreview->setImage(engine::flipImage(m_state.psfImage));
    for (QWidget* control :
         std::initializer_list<QWidget*>{muSlider, psfCountD, saveBtn, movedSw, rgbBtn})
        control->setEnabled(true);
    aspectBtn->setEnabled(true);
    aspectBtn->setChecked(m_state.keepAspect);
    m_jobs.MakeMyPSFinitial();
    AppearActions();
}

void MainWindow::AppearActions() {
    autosearch::Data& shared = autosearch::Data::getInstance();
    if (shared.isMotionSwitchOn.load() || movedSw->isChecked())
        m_state.motionBlur = true;
    if (shared.toPut.load() && !m_state.sourceImage.isNull())
        applyPick();
    if (m_autoRun.autoRequested)
        m_autoRun.MainWrapper();
    if (m_state.freshImage) {
        m_jobs.MakeMyPSFinitial();
        lockEverything();
        m_jobs.spectrumCalculation();
        useWorkingPicture();
        m_jobs.auxTrueNoMultithread();
        m_state.freshImage = false;
    }
}

// The setting picked in the gallery goes to the sliders and the PSF; its colour restoration
// follows a second later (asked for twice).
void MainWindow::applyPick() {
    autosearch::Data& shared = autosearch::Data::getInstance();
    const double length = shared.selectedLength.load();
    const double angle = shared.selectedAngle.load();
    m_jobs.MakeMyPSFfinal(length, angle);
    lockEverything();
    psfCountD->setFloatValue(float(length));
    psfAngle->setFloatValue(float(angle));
    anglewidth->setFloatValue(float(shared.selectedWidth.load()));
    rewriteSettingsLabel();
    useWorkingPicture();
    const float shownLength = psfCountD->floatValue();
    const QImage displayPsf = movedSw->isChecked()
                                  ? m_state.MakePsfD(shownLength * 6.0f, angle, 4.0, false)
                                  : m_state.MakePsfD(shownLength, angle, 0.2, false);
    psfPreview->setImage(engine::flipImage(displayPsf));
    m_state.psfImage = m_state.MakePsfD(float(length), angle, 0.2, false);
    m_jobs.MakeMyPSFfinal(length, angle);
    m_jobs.setSpect();
    logLine("Executing selected prev %d with PSF SEL %f", m_state.workingSide, length);
    shared.toPut = false;
    scheduleAfter(kReleaseDelay, &jobs::RestorationJobs::runCompFalse);
    scheduleAfter(kReleaseDelay, &jobs::RestorationJobs::runCompFalse);
}

// ---------------------------------------------------------------------------------------------
// The auto run's window

void MainWindow::showOverlay(bool shown) {
    neCont->setGeometry(centralWidget()->rect());
    neCont->setVisible(shown);
    if (shown)
        neCont->raise();
    // Opening another picture mid-run would pull the state from under the search.
    menuBar()->setEnabled(!shown);
}

void MainWindow::showProgress(double fraction) {
    _pBar->setValue(int(std::lround(fraction * 1000)));
}

void MainWindow::showProgressText(const QString& text) {
    _loadLabelNew->setText(text);
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

void MainWindow::SaveImage() {
    const QString chosen = m_saveChooser();
    if (chosen.isEmpty())
        return;
    const QString error = jobs::savePng(shownImage(), jobs::savePathFor(chosen));
    if (!error.isEmpty())
        reportError(error);
}

} // namespace clarovi::app
