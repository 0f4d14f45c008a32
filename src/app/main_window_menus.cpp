// The window's menus: every command with its shortcut, enabled as what runs allows.
#include "about_box.h"
#include "main_window.h"

#include <QDir>
#include <QFileInfo>
#include <QMenuBar>
#include <QPushButton>
#include <QStatusBar>
#include <QToolButton>

namespace clarovi::app {

void MainWindow::buildMenus() {
    QMenu* file = buildFileMenu();
    buildEditMenu();
    buildPictureMenu();
    buildViewMenu();
    auto* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("Clarovi &Help"), QKeySequence::HelpContents, this, &MainWindow::showHelp);
    help->addAction(tr("&About Clarovi"), this, [this] { showAboutBox(this); });
    file->addSeparator();
    file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);
}

QMenu* MainWindow::buildFileMenu() {
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
    QAction* saveAs = file->addAction(tr("Save &As…"), this, &MainWindow::exportFullSize);
    saveAs->setObjectName(QStringLiteral("saveAsAction"));
    // Not QKeySequence::SaveAs, which some desktops leave without keys.
    saveAs->setShortcuts({QKeySequence(tr("Ctrl+Shift+S")), QKeySequence::Save});
    saveAs->setToolTip(tr("The whole photograph restored at its own size, with its metadata"));
    QAction* preview = file->addAction(tr("Save &Preview…"), QKeySequence(tr("Ctrl+Alt+S")), this,
                                       &MainWindow::SaveImage);
    preview->setObjectName(QStringLiteral("savePreviewAction"));
    file->addSeparator();
    QAction* loadPsf = file->addAction(tr("&Load PSF…"), this, &MainWindow::loadPsf);
    loadPsf->setObjectName(QStringLiteral("loadPsfAction"));
    loadPsf->setToolTip(tr("Restore with a kernel from a grey picture (a star or a bright point "
                           "of the photograph, or one saved before), in pixels of the photograph "
                           "at 2048 on its longer side"));
    QAction* savePsf = file->addAction(tr("Save PS&F…"), this, &MainWindow::savePsf);
    savePsf->setObjectName(QStringLiteral("savePsfAction"));
    m_pictureActions << saveAs << preview << loadPsf << savePsf;
    return file;
}

void MainWindow::buildEditMenu() {
    auto* edit = menuBar()->addMenu(tr("&Edit"));
    QUndoStack& history = m_sequences.history();
    QAction* undo = history.createUndoAction(this, tr("&Undo"));
    undo->setShortcut(QKeySequence::Undo);
    QAction* redo = history.createRedoAction(this, tr("&Redo"));
    redo->setShortcuts({QKeySequence(tr("Ctrl+Shift+Z")), QKeySequence::Redo});
    edit->addActions({undo, redo});
    // Undo and redo enable themselves by the history; the board only takes them away.
    connect(&m_board, &jobs::ActivityBoard::changed, this, [this, undo, redo] {
        QUndoStack& steps = m_sequences.history();
        undo->setEnabled(m_board.controlsFree() && steps.canUndo());
        redo->setEnabled(m_board.controlsFree() && steps.canRedo());
    });
    edit->addSeparator();
    QAction* previous = edit->addAction(tr("Use the &Previous Photograph's Setting"),
                                        m_previousButton, &QPushButton::click);
    m_pictureActions << previous;
}

void MainWindow::buildPictureMenu() {
    auto* picture = menuBar()->addMenu(tr("&Picture"));
    QAction* motion = picture->addAction(tr("&Motion Blur"), QKeySequence(tr("M")),
                                         m_panel->movedSw, &QPushButton::click);
    QAction* colour = picture->addAction(tr("&Colour"), QKeySequence(tr("Ctrl+R")), m_panel->rgbBtn,
                                         &QPushButton::click);
    colour->setCheckable(true);
    connect(m_panel->rgbBtn, &QPushButton::toggled, colour, &QAction::setChecked);
    m_estimateAction = picture->addAction(tr("&Estimate Blur"), QKeySequence(tr("Ctrl+E")),
                                          m_panel->estimateBtn, &QToolButton::click);
    QAction* search = picture->addAction(tr("&Auto Search"), QKeySequence(tr("A")),
                                         m_panel->autobtn, &QPushButton::click);
    QAction* clearRegion =
        picture->addAction(tr("Look at the &Whole Picture"), QKeySequence(tr("Shift+R")), this,
                           [this] { markRegion({}); });
    clearRegion->setObjectName(QStringLiteral("wholePictureAction"));
    clearRegion->setToolTip(tr("Forget the region marked by dragging on the picture: Estimate "
                               "and Auto Search look at all of it"));
    picture->addSeparator();
    m_classicAction =
        picture->addAction(tr("C&lassic Filter"), &m_sequences, &jobs::ControlSequences::settled);
    m_classicAction->setObjectName(QStringLiteral("classicAction"));
    m_classicAction->setCheckable(true);
    m_classicAction->setToolTip(tr("Restore with the Wiener filter of earlier versions, which "
                                   "rings at edges, to compare it with the default one"));
    m_pictureActions << motion << colour << search << clearRegion << m_classicAction;
}

void MainWindow::buildViewMenu() {
    auto* view = menuBar()->addMenu(tr("&View"));
    QAction* zoomIn = view->addAction(tr("Zoom &In"), img01, &ImageView::zoomIn);
    zoomIn->setShortcuts({QKeySequence(Qt::Key_Plus), QKeySequence(Qt::Key_Equal),
                          QKeySequence(QKeySequence::ZoomIn)});
    QAction* zoomOut = view->addAction(tr("Zoom &Out"), img01, &ImageView::zoomOut);
    zoomOut->setShortcuts({QKeySequence(Qt::Key_Minus), QKeySequence(QKeySequence::ZoomOut)});
    view->addAction(tr("&Fit to Window"), QKeySequence(Qt::Key_0), img01, &ImageView::fitToWindow);
    view->addAction(tr("&Actual Size"), QKeySequence(Qt::Key_1), img01, &ImageView::showActualSize);
}

void MainWindow::rebuildRecentMenu() {
    const QStringList missing = m_recent.pruneMissing();
    if (!missing.isEmpty())
        showNote(tr("No longer there, removed from the recent files: %1")
                     .arg(missing.join(QStringLiteral(", "))));
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

} // namespace clarovi::app
