#include "help_window.h"

#include <QAction>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPalette>
#include <QPushButton>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

namespace clarovi::app {

namespace {

// The paragraphs follow one another with nothing in between: the text is the 21 paragraphs.
constexpr char kHelpHtml[] =
    "<p><font face=\"Helvetica\" style=\"font-size:20px\">Clarovi is a professional tool that lets "
    "you remove the blur from the majority of photos. Please follow this introduction carefully "
    "since the app is not easy to use.</font></p>"
    "<p><font face=\"Helvetica\" style=\"font-size:16px\">This app can remove or reduce two kinds "
    "of blur:</font></p>"
    "<p><font face=\"Helvetica\" style=\"font-size:16px\">- Out of Focus Blur;</font></p>"
    "<p><font face=\"Helvetica\" style=\"font-size:16px\">- Motion Blur;</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:20px\">Out of Focus "
    "Blur</font></p>"
    "<p><font face=\"Helvetica\" style=\"font-size:16px\">Working with this kind of blur is easy, "
    "just set the PSF Length/Diameter. Increase it or decrease it, as soon as you start seeing the "
    "details on the image proceed slowly in order to find the best value. After that just set the "
    "sharpness as you prefer. To find the Diameter you can help yourself with the Spectrum, try "
    "resizing the PSF to the same size of the dot at the center of the Spectrum.</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:20px\">Save</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:16px\">You can save the image "
    "as Grayscale just by tapping on Save, or you can get the RGB version by tapping on the RGB "
    "button.</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:20px\">Motion Blur</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:16px\">Removing or reducing "
    "the Motion Blur is much more difficult than removing the O.F. Blur. This time you will have "
    "to turn on the Motion Blur mode, click on the round button on your left.</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:16px\">PSF Angle and PSF Width "
    "controls will now be enabled.</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:20px\">What is the PSF "
    "Angle?</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:16px\">If you look carefully "
    "at your image you will see that the blur has an angle, this is the angle you should try to "
    "reach.</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:20px\">What is the PSF "
    "Length?</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:16px\">After you have "
    "identified the blur angle you will have to try different lengths. In few words this is the "
    "blur strength.</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:20px\">Is the PSF Width "
    "needed?</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:16px\">You will need it in "
    "rare cases. Leave it at 0.2 as default or try different values to see if the image "
    "improves.</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:20px\">Additional "
    "tips</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:16px\">Be patient, when "
    "working on certain kinds of images it might be hard to restore them. The computation speed "
    "depends on your device speed. Sometimes computation might be slow, don't worry, the app is "
    "calculating, it didn't freeze.Check the Spectrum, try to keep the PSF angle and length "
    "similar to it! The algorithm can restore almost all the images affected by these two kinds of "
    "blur, however some images cannot be restored if there is too much blur, if there is too much "
    "noise or if the motion trajectory is complex. Multiple subjects in one image might have "
    "different blur angles and lengths. You cannot deblur all of them at the same time, you will "
    "have to repeat the process for every subject. If you are trying to deblur a particular object "
    "in your image you should crop your image, putting that object at the center. Doing this will "
    "increase the deblur quality.</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:20px\">Auto Mode</font></p>"
    "<p><font face=\"Helvetica\" align=\"center\" style=\"font-size:16px\">Please keep in mind "
    "that Auto Mode gives you some of the possible restorations of your image, however manual "
    "settings will always be more precise. Sometimes Auto Mode could even not find a good "
    "restoration, in these cases you will have to adjust the image manually. Remember that images "
    "affected by severe blur can't be restored completely! To enable the Auto Mode just click on "
    "the Auto Button. You will be shown different restored images, select the best and wait for it "
    "to be loaded. You can now save it or tweak it as you like.</font></p>";

// Qt's HTML reader ignores align on a font element, so the text view gets the alignment moved to
// the paragraph that holds it; helpHtml() itself stays the text as written.
QString htmlForQtText(QString html) {
    return html.replace(QStringLiteral("<p><font face=\"Helvetica\" align=\"center\""),
                        QStringLiteral("<p align=\"center\"><font face=\"Helvetica\""));
}

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
    return QString::fromLatin1(kHelpHtml);
}

HowToViewC::HowToViewC(QWidget* owner) : QWidget(owner, Qt::Window) {
    setWindowTitle(QStringLiteral("Clarovi Help"));
    resize(640, 720);
    viewDidLoad();

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

void HowToViewC::viewDidLoad() {
    setPalette(helpPalette(palette()));
    setAutoFillBackground(true);

    txtV = new QLabel(this);
    txtV->setObjectName(QStringLiteral("txtV"));
    txtV->setTextFormat(Qt::RichText);
    txtV->setWordWrap(true);
    txtV->setTextInteractionFlags(Qt::TextSelectableByMouse);
    txtV->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    txtV->setContentsMargins(16, 8, 16, 8);
    txtV->setText(htmlForQtText(helpHtml()));

    textV = new QScrollArea(this);
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
