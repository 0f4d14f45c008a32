#include "side_panel.h"

#include <QActionGroup>
#include <QGraphicsDropShadowEffect>
#include <QGraphicsOpacityEffect>
#include <QGridLayout>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace clarovi::app {

namespace {
constexpr double kDimmedOpacity = 0.2;
constexpr int kPanelWidth = 380;
constexpr int kPreviewSide = 180;
} // namespace

void setDimmed(QWidget* control, bool dimmed) {
    auto* effect = qobject_cast<QGraphicsOpacityEffect*>(control->graphicsEffect());
    if (!effect) {
        effect = new QGraphicsOpacityEffect(control);
        control->setGraphicsEffect(effect);
    }
    effect->setOpacity(dimmed ? kDimmedOpacity : 1.0);
}

SidePanel::SidePanel(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("sidePanel"));
    setFixedWidth(kPanelWidth);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);

    maintitle = new QLabel(QStringLiteral("CLAROVI"), this);
    maintitle->setObjectName(QStringLiteral("maintitle"));
    maintitle->setAlignment(Qt::AlignCenter);
    column->addWidget(maintitle);
    addViews(column);
    addSettings(column);
    addButtons(column);
    column->addStretch();
    showActivity(jobs::ActivityBoard(), false);
}

void SidePanel::addViews(QVBoxLayout* column) {
    auto* views = new QGridLayout;
    psfPreview = new PsfPreview(this);
    psfPreview->setObjectName(QStringLiteral("psfPreview"));
    psfPreview->setToolTip(tr("The blur the restoration undoes, as the sliders set it, enlarged "
                              "as the corner says: it points the way the streaks it removes run"));
    spectrumPreview = new SpectrumPreview(this);
    spectrumPreview->setObjectName(QStringLiteral("spectrumPreview"));
    spectrumPreview->setToolTip(
        tr("The picture's spectrum: a blur leaves dark rings (out of focus) "
           "or stripes (motion) in it. The coloured rings or lines are "
           "where the sliders' blur puts them: set the sliders so that "
           "they lie on the dark ones. Click to enlarge."));
    spectrumPreview->setCursor(Qt::PointingHandCursor);
    for (ImageView* view : std::initializer_list<ImageView*>{psfPreview, spectrumPreview})
        view->setFixedSize(kPreviewSide, kPreviewSide);
    views->addWidget(new QLabel(tr("PSF")), 0, 0, Qt::AlignHCenter);
    views->addWidget(new QLabel(tr("Spectrum")), 0, 1, Qt::AlignHCenter);
    views->addWidget(psfPreview, 1, 0);
    views->addWidget(spectrumPreview, 1, 1);
    column->addLayout(views);

    settingInfo = new QLabel(this);
    settingInfo->setObjectName(QStringLiteral("settingInfo"));
    settingInfo->setAlignment(Qt::AlignCenter);
    auto* shadow = new QGraphicsDropShadowEffect(settingInfo);
    shadow->setColor(Qt::black);
    shadow->setOffset(-1, 1);
    shadow->setBlurRadius(0);
    settingInfo->setGraphicsEffect(shadow);
    column->addWidget(settingInfo);
}

void SidePanel::addSettings(QVBoxLayout* column) {
    auto addField = [&](const char* name, const jobs::SliderRange& range, const QString& caption,
                        int decimals, const QString& what) {
        auto* field = new SliderField(range, caption, decimals, this);
        field->setObjectName(QString::fromLatin1(name));
        field->setHelp(tr("%1\nFrom %2 to %3. Drag, click, type a value, or use the arrow keys.")
                           .arg(what)
                           .arg(double(range.minimum))
                           .arg(double(range.maximum)));
        column->addWidget(field);
        return field;
    };
    psfCountD =
        addField("psfCountD", jobs::kLengthRange, tr("PSF Length / Diameter"), 1,
                 tr("How far the blur spreads a point: the disk's diameter, or the streak's "
                    "length, in pixels of the photograph brought to 2048 pixels on its "
                    "longer side, whatever its own size."));
    psfAngle = addField("psfAngle", jobs::kAngleRange, tr("PSF Angle"), 1,
                        tr("The direction of the streak (motion blur only), in degrees "
                           "counter-clockwise from horizontal: 0 is horizontal, 90 vertical, 45 "
                           "rises to the right."));
    anglewidth = addField("anglewidth", jobs::kWidthRange, tr("PSF Width"), 2,
                          tr("The thickness of the streak in the same pixels (motion blur only); "
                             "under 1 it is a one-pixel line."));
    muSlider = addField("muSlider", jobs::kSharpnessRange, tr("Sharpness"), 1,
                        tr("Detail against noise: 0 gives the smoothest picture, 100 the "
                           "crispest. At 50 the restoration suits the noise it measures in the "
                           "photograph; every 10 either way halves or doubles its smoothing."));
}

QPushButton* SidePanel::addButton(const QString& text, const char* name, const QString& tip) {
    auto* button = new QPushButton(text, this);
    button->setObjectName(QString::fromLatin1(name));
    button->setToolTip(tip);
    return button;
}

void SidePanel::addButtons(QVBoxLayout* column) {
    auto* modeRow = new QHBoxLayout;
    movedSw = addButton(QStringLiteral("M"), "movedSw",
                        tr("Motion blur (M): the blur is a streak of the length, angle and width "
                           "set above"));
    movedSw->setCheckable(true);
    movedSw->setFixedSize(40, 40);
    ofSw = addButton(tr("Out of focus"), "ofSw",
                     tr("Out-of-focus blur: the blur is a disk of the diameter set above"));
    shakeSw = addButton(tr("Shake"), "shakeSw",
                        tr("Camera shake: the blur is the free-form kernel loaded (File ▸ Load "
                           "PSF…) or estimated"));
    shakeSw->setCheckable(true);
    modeRow->addWidget(movedSw);
    modeRow->addWidget(new QLabel(tr("Motion blur")));
    modeRow->addStretch();
    modeRow->addWidget(shakeSw);
    modeRow->addWidget(ofSw);
    column->addLayout(modeRow);

    openBtn = addButton(tr("Open…"), "openBtn", tr("Open a photograph (Ctrl+O)"));
    saveBtn = addButton(tr("Save As…"), "saveBtn",
                        tr("Restore the whole photograph at its own size, in colour, and save it "
                           "as PNG, TIFF or JPEG with its metadata (Ctrl+Shift+S)"));
    rgbBtn = addButton(tr("Colour"), "rgbBtn",
                       tr("On: every full restoration is in colour; off: grey (Ctrl+R). The live "
                          "preview while a slider is dragged stays grey."));
    rgbBtn->setCheckable(true);
    autobtn = addButton(tr("Auto"), "autobtn",
                        tr("Restore many settings and pick the best from a gallery (A): around the "
                           "estimated blur once Estimate has found one, otherwise over a coarse "
                           "grid"));
    estimateBtn = makeEstimateButton();
    compareBtn = addButton(tr("Compare"), "compareBtn",
                           tr("Hold to see the picture before restoration at the same place "
                              "(Space)"));
    auto* firstRow = new QHBoxLayout;
    for (QPushButton* button : {openBtn, saveBtn})
        firstRow->addWidget(button);
    auto* secondRow = new QHBoxLayout;
    secondRow->addWidget(estimateBtn);
    for (QPushButton* button : {autobtn, rgbBtn})
        secondRow->addWidget(button);
    auto* thirdRow = new QHBoxLayout;
    thirdRow->addWidget(compareBtn);
    column->addLayout(firstRow);
    column->addLayout(secondRow);
    column->addLayout(thirdRow);
}

// Pressed, it looks for the kind its menu last chose; a choice from the menu looks at once.
QToolButton* SidePanel::makeEstimateButton() {
    auto* button = new QToolButton(this);
    button->setObjectName(QStringLiteral("estimateBtn"));
    button->setText(tr("Estimate: any"));
    button->setToolTip(tr("Find the blur's kind, size and direction in the picture and set the "
                          "sliders to it (Ctrl+E); the arrow chooses which kind to look for"));
    button->setPopupMode(QToolButton::MenuButtonPopup);
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    auto* menu = new QMenu(button);
    menu->setObjectName(QStringLiteral("estimateMenu"));
    auto* kinds = new QActionGroup(menu);
    const std::pair<QString, engine::KindWanted> choices[] = {
        {tr("Any blur"), engine::KindWanted::Any},
        {tr("Out of focus"), engine::KindWanted::OutOfFocus},
        {tr("Motion"), engine::KindWanted::Motion}};
    for (const auto& [text, kind] : choices) {
        QAction* action = menu->addAction(text);
        action->setCheckable(true);
        action->setChecked(kind == m_estimateKind);
        kinds->addAction(action);
        connect(action, &QAction::triggered, this, [this, wanted = kind] {
            m_estimateKind = wanted;
            showEstimateKind();
            emit estimateRequested(wanted);
        });
    }
    button->setMenu(menu);
    connect(button, &QToolButton::clicked, this,
            [this] { emit estimateRequested(m_estimateKind); });
    return button;
}

void SidePanel::showEstimateKind() {
    const QString kinds[] = {tr("Estimate: any"), tr("Estimate: focus"), tr("Estimate: motion")};
    estimateBtn->setText(kinds[int(m_estimateKind)]);
}

void SidePanel::setActive(std::initializer_list<QWidget*> controls, bool active) {
    for (QWidget* control : controls) {
        control->setEnabled(active);
        setDimmed(control, !active);
    }
}

void SidePanel::showActivity(const jobs::ActivityBoard& board, bool pictureOpen) {
    const bool restoring = board.running(jobs::Activity::Restoring);
    const bool working =
        pictureOpen && (board.controlsFree() || (restoring && !board.covered() &&
                                                 !board.running(jobs::Activity::Exporting)));
    m_free = pictureOpen && board.controlsFree();
    maintitle->setText(restoring ? QStringLiteral("LOADING") : QStringLiteral("CLAROVI"));
    if (restoring)
        maintitle->repaint();
    setActive({movedSw, ofSw, rgbBtn, autobtn, compareBtn, saveBtn}, m_free);
    showModeControls();
    setActive({estimateBtn}, m_free && !board.running(jobs::Activity::Estimating));
    // A release of the sharpness slider replaces the restoration it waits for.
    muSlider->setEnabled(working);
    setDimmed(muSlider, !m_free);
    openBtn->setEnabled(!board.covered() && !board.running(jobs::Activity::Exporting));
}

void SidePanel::showMode(engine::BlurKind kind, bool kernelHeld) {
    m_kind = kind;
    m_kernelHeld = kernelHeld;
    movedSw->setChecked(kind == engine::BlurKind::Motion);
    shakeSw->setChecked(kind == engine::BlurKind::Shake);
    showModeControls();
}

void SidePanel::showModeControls() {
    setActive({psfCountD}, m_free && m_kind != engine::BlurKind::Shake);
    setActive({psfAngle, anglewidth}, m_free && m_kind == engine::BlurKind::Motion);
    setActive({shakeSw}, m_free && m_kernelHeld);
}

bool SidePanel::sliderHeld() const {
    for (const SliderField* field : {psfCountD, psfAngle, anglewidth, muSlider})
        if (field->isSliderDown())
            return true;
    return false;
}

} // namespace clarovi::app
