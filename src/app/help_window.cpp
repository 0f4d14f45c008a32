#include "help_window.h"

#include <QAction>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPalette>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

namespace clarovi::app {

namespace {

// Room for the window manager's title bar and borders, which the window's own size leaves out.
const QSize kFrameAllowance(16, 48);

// What the program does and how, control by control, as the window shows it.
constexpr char kHelpHtml[] = R"(
<h2>Clarovi</h2>
<p>Clarovi removes or reduces the blur in a photograph: the blur of a lens out of focus, which
spreads every point into a small disk, and the blur of a camera or subject that moved, which
spreads every point along a streak. You set the blur (or let Clarovi find it), the preview
follows, and you save the whole photograph restored, at its own size and in colour.</p>

<h3>Open a photograph</h3>
<p><b>Open…</b> (Ctrl+O), drop a file on the window, or choose one from <b>File ▸ Open
Recent</b>: PNG, JPEG, TIFF, BMP, WebP or GIF, up to 100 megapixels. A new photograph starts
from the default setting, or from the blur Clarovi finds in it when it finds one clearly; the
status bar offers the previous photograph's setting if you want it.</p>

<h3>Find the blur</h3>
<p><b>Estimate</b> (Ctrl+E) looks for the blur in the photograph and moves the controls to it.
Its arrow chooses what to look for: any blur, out of focus only, or motion only; the button
says which. When it is not sure, the status bar says what the blur may be and how sure it is:
<b>Try it</b> sets the controls to that guess, <b>Search around</b> searches automatically
around it.</p>
<p>To look at one part of the photograph only (a clock's face, a number plate, a line of text
where the rest is sky or wall), drag a rectangle on the picture (with Shift held when you have
zoomed in): Clarovi estimates the blur there at once, and <b>Auto</b> looks there too.
<b>Picture ▸ Look at the Whole Picture</b> (Shift+R) forgets the region.</p>

<h3>Set the blur by hand</h3>
<p><b>Out of focus</b>: set <b>PSF Length / Diameter</b> to the diameter of the blur disk.
<b>Motion blur</b> (the round <b>M</b> button in the panel, or the M key): the length is the
streak's length, <b>PSF Angle</b> its direction in degrees counter-clockwise from horizontal
(0 horizontal, 90 vertical, 45 rising to the right) and <b>PSF Width</b> its thickness.
Lengths are in pixels of the photograph brought to 2048 pixels on its longer side, whatever
its own size. While you drag a slider a quick preview follows; a second after you let go the
full preview replaces it. Each setting has a box for an exact value and takes the arrow keys.</p>
<p><b>Sharpness</b> trades detail against noise, from 0, the smoothest, to 100, the crispest.
At 50 the smoothing suits the noise measured in the photograph; every 10 steps halve or double
it. The restoration keeps edges sharp and flat areas smooth; <b>Picture ▸ Classic Filter</b>
uses the plain Wiener filter instead, for comparison.</p>
<p>The <b>PSF</b> view shows the blur the restoration undoes, enlarged as its corner says. The
<b>Spectrum</b> view shows the photograph's frequencies: a blur leaves dark rings (out of focus)
or stripes (motion) there, and the coloured rings or lines are where the controls' blur puts
them; when they lie on the dark ones, the setting is right. Click it to enlarge it.</p>

<h3>Colour, undo and compare</h3>
<p><b>Colour</b> (Ctrl+R) is a switch: while it is on, every full restoration is in colour;
the quick preview during a drag stays grey. <b>Edit ▸ Undo</b> (Ctrl+Z) and <b>Redo</b>
(Ctrl+Shift+Z) step through the settings you applied. Hold <b>Compare</b> or Space to see the
photograph before restoration at the same place.</p>

<h3>Camera shake</h3>
<p>A shaken camera draws a curved stroke rather than a straight streak. <b>File ▸ Load
PSF…</b> restores with a kernel from a grey picture (a star or a bright point cut from the
photograph, or a kernel saved before), its pixels those of the photograph at 2048 on its longer
side; the <b>Shake</b> switch then holds it while you try the other modes. <b>File ▸ Save
PSF…</b> writes the current blur's kernel as a grey PNG.</p>

<h3>Search automatically</h3>
<p><b>Auto</b> (A) restores a small copy of the photograph at many settings, of the kind of
blur the photograph shows until you set the controls and of the kind the panel shows after,
around the best guess of the blur (sure or not; over every blur of the kind when
there is none), then ever closer around the best-scoring ones, and shows them in a gallery, the
best-scoring one marked; each shows the most detailed part of the photograph, or the region you
marked. <b>File ▸ Open and Search Automatically…</b> searches in the kind of blur the
photograph shows. Double-click a restoration (or choose it and press Enter, or <b>Use this setting</b>) to
apply its setting. <b>Keep current settings</b>, Esc or closing the gallery keeps yours.</p>

<h3>Save</h3>
<p><b>Save As…</b> (Ctrl+Shift+S or Ctrl+S, or the button in the panel) restores the whole photograph at its own
size, in colour, with the setting the window shows, and writes it as PNG, TIFF or JPEG (you
choose the format, the JPEG quality and the bits per channel) with its metadata and colour
profile. <b>Save Preview…</b> (Ctrl+Alt+S) writes the picture the window shows, as PNG.</p>

<h3>View</h3>
<p>The wheel zooms about the cursor, as do + and -; 0 fits the photograph to the window and 1
shows it at 100 %, one pixel of the photograph per screen pixel. Drag to move. A double click
switches between the two. F1 opens this help.</p>
)";

// Light text on dark grey, for the window and everything in it.
QPalette helpPalette(QPalette palette) {
    for (const auto role : {QPalette::Window, QPalette::Base})
        palette.setColor(role, Qt::darkGray);
    for (const auto role : {QPalette::WindowText, QPalette::Text})
        palette.setColor(role, Qt::white);
    return palette;
}

} // namespace

QString helpHtml() {
    return QString::fromUtf8(kHelpHtml);
}

HowToViewC::HowToViewC(QWidget* owner) : QWidget(owner, Qt::Window) {
    setObjectName(QStringLiteral("helpWindow"));
    setWindowTitle(QStringLiteral("Clarovi Help"));
    viewDidLoad();
    fitToScreen();

    auto* closeAction = new QAction(this);
    QList<QKeySequence> closeKeys = QKeySequence::keyBindings(QKeySequence::Close);
    closeKeys << QKeySequence(Qt::Key_Escape);
    closeAction->setShortcuts(closeKeys);
    connect(closeAction, &QAction::triggered, this, &QWidget::close);
    addAction(closeAction);
}

void HowToViewC::showInFront() {
    QWidget* owner = parentWidget();
    if (owner && !owner->isVisible()) {
        // Shown now, it would open first and the owner would then open on top of it.
        owner->installEventFilter(this);
        return;
    }
    show();
    raise();
    activateWindow();
}

bool HowToViewC::eventFilter(QObject* watched, QEvent* event) {
    if (watched == parentWidget() && event->type() == QEvent::Show) {
        watched->removeEventFilter(this);
        // Once the owner's own showing is over, so that the window manager stacks this above it.
        QTimer::singleShot(0, this, &HowToViewC::showInFront);
    }
    return QWidget::eventFilter(watched, event);
}

// 640 x 720 where the screen has room; never taller than the screen leaves for it.
void HowToViewC::fitToScreen() {
    const QRect available = screen()->availableGeometry();
    resize(QSize(640, 720).boundedTo(available.size() - kFrameAllowance));
}

void HowToViewC::viewDidLoad() {
    setPalette(helpPalette(palette()));
    setAutoFillBackground(true);

    auto* txtV = new QLabel(this);
    txtV->setObjectName(QStringLiteral("txtV"));
    txtV->setTextFormat(Qt::RichText);
    txtV->setWordWrap(true);
    txtV->setTextInteractionFlags(Qt::TextSelectableByMouse);
    txtV->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    txtV->setContentsMargins(16, 8, 16, 8);
    txtV->setText(helpHtml());

    auto* textV = new QScrollArea(this);
    textV->setObjectName(QStringLiteral("textV"));
    textV->setFrameShape(QFrame::NoFrame);
    textV->setWidgetResizable(true);
    textV->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    textV->setWidget(txtV);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(textV);
    layout->addWidget(closeRow());
}

QWidget* HowToViewC::closeRow() {
    auto* row = new QWidget(this);
    auto* closeButton = new QPushButton(tr("Close"), row);
    closeButton->setObjectName(QStringLiteral("closeBtn"));
    closeButton->setToolTip(tr("Close the help (Esc)"));
    connect(closeButton, &QPushButton::clicked, this, &QWidget::close);
    auto* layout = new QHBoxLayout(row);
    layout->setContentsMargins(16, 8, 16, 12);
    layout->addStretch();
    layout->addWidget(closeButton);
    return row;
}

} // namespace clarovi::app
