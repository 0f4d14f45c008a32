#include "app/help_window.h"
#include "app/recent_files.h"
#include "common/file_size_limit.h"
#include "gui_helpers.h"

#include <QDoubleSpinBox>
#include <QElapsedTimer>
#include <QFile>
#include <QMimeData>
#include <QPushButton>
#include <QStatusBar>
#include <QUrl>

using clarovi::testing::opacityOf;

namespace {

// Records what the title showed each time it was painted.
class TitlePaints : public QObject {
  public:
    QStringList texts;
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint)
            texts << static_cast<QLabel*>(watched)->text();
        return false;
    }
};

QByteArray readFileBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString writeFile(const QString& path, const QByteArray& contents) {
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(contents);
    return path;
}

void drop(QWidget* target, const QStringList& files) {
    auto* data = new QMimeData;
    QList<QUrl> urls;
    for (const QString& file : files)
        urls << QUrl::fromLocalFile(file);
    data->setUrls(urls);
    // A drop goes to the widget that accepted the drag's entry.
    QDragEnterEvent enter(QPoint(200, 200), Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &enter);
    QDropEvent event(QPointF(200, 200), Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(target, &event);
    delete data;
}

} // namespace

TEST_F(MainWindowTest, ControlsAreDisabledUntilAPictureIsOpenAndItsFirstRestorationIsDone) {
    for (const char* name : {"muSlider", "psfCountD", "movedSw", "saveBtn", "rgbBtn", "autobtn",
                             "psfAngle", "anglewidth", "ofSw", "compareBtn"}) {
        EXPECT_FALSE(outlet(name)->isEnabled()) << name;
        EXPECT_NEAR(opacityOf(outlet(name)), 0.2, 1e-6) << name << " looks disabled";
    }
    TitlePaints paints;
    outlet("maintitle")->installEventFilter(&paints);
    ASSERT_TRUE(window->setImageInputForPictureTaker(kSample));
    // The restoration held the main thread; the title was painted "LOADING" meanwhile and the
    // controls come back one event-loop pass after it.
    EXPECT_TRUE(paints.texts.contains("LOADING"));
    EXPECT_EQ(title(), "LOADING");
    EXPECT_FALSE(outlet("psfCountD")->isEnabled());
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));

    for (const char* name : {"muSlider", "psfCountD", "movedSw", "saveBtn", "rgbBtn", "ofSw"}) {
        EXPECT_TRUE(outlet(name)->isEnabled()) << name;
        EXPECT_NEAR(opacityOf(outlet(name)), 1.0, 1e-6) << name;
    }
    EXPECT_FALSE(outlet("psfAngle")->isEnabled());
    EXPECT_NEAR(opacityOf(outlet("psfAngle")), 0.2, 1e-6);
    EXPECT_EQ(window->shownImage().size(), QSize(2048, 1365));
    EXPECT_EQ(restorations(), 1);
    EXPECT_EQ(window->windowTitle(), "coffee-defocus.png — Clarovi");
}

TEST_F(MainWindowTest, ASliderReleaseRestoresOneSecondLaterAndEveryReleaseCounts) {
    openSample();
    const int before = restorations();
    QElapsedTimer clock;
    clock.start();
    clickSlider("psfCountD");
    EXPECT_EQ(title(), "LOADING");
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 1; }, 3000));
    EXPECT_GE(clock.elapsed(), 950) << "not before a second has passed";
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));

    // Two releases within a second: two restorations, one after the other.
    clickSlider("muSlider");
    EXPECT_TRUE(slider("muSlider")->isEnabled()) << "sharpness stays usable while locked";
    EXPECT_FALSE(outlet("psfCountD")->isEnabled());
    clickSlider("muSlider");
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 3; }, 4000));
    EXPECT_EQ(log.count("ended"), 1) << "only the PSF sliders log their events";
    EXPECT_EQ(log.count("dragging"), 0) << "a click without a drag runs only the end step";
}

// Keys and typed values take effect like a release, once they have been left alone.
TEST_F(MainWindowTest, KeyedAndTypedChangesRestoreOnceAfterTheyPause) {
    openSample();
    const int before = restorations();
    clarovi::app::FloatSlider* length = slider("psfCountD");
    length->setFocus();
    const float start = length->floatValue();
    for (int i = 0; i < 5; ++i)
        QTest::keyClick(length, Qt::Key_Right);
    EXPECT_NEAR(length->floatValue(), start + 0.5f, 1e-4);
    EXPECT_TRUE(
        outlet<QLabel>("settingInfo")->text().contains(QString::number(start + 0.5, 'f', 1)));
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 1 && unlocked(); }, 5000));
    EXPECT_FLOAT_EQ(window->state().eventLength, length->floatValue());
    EXPECT_TRUE(length->hasFocus()) << "the keys go on working after the restoration";

    auto* sharpness = outlet<clarovi::app::SliderField>("muSlider")->spinBox();
    sharpness->setValue(0.005);
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 2 && unlocked(); }, 5000));
    EXPECT_FLOAT_EQ(slider("muSlider")->floatValue(), 0.005f);
}

TEST_F(MainWindowTest, TheMotionSwitchRestoresBeforeItsHandlerReturns) {
    openSample();
    const int before = restorations();
    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    EXPECT_EQ(restorations(), before + 1);
    EXPECT_TRUE(window->state().motionBlur);
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
    EXPECT_TRUE(outlet("psfAngle")->isEnabled());
    EXPECT_TRUE(outlet("anglewidth")->isEnabled());

    // The out-of-focus button turns motion mode off the same way.
    QTest::mouseClick(outlet("ofSw"), Qt::LeftButton);
    EXPECT_EQ(restorations(), before + 2);
    EXPECT_FALSE(outlet<QPushButton>("movedSw")->isChecked());
    EXPECT_FALSE(window->state().motionBlur);
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
    EXPECT_FALSE(outlet("psfAngle")->isEnabled()) << "stays off out of focus";
}

// Each press restores the tiles at once, unlocked; once the button is left alone the full
// preview of the working picture follows.
TEST_F(MainWindowTest, TheFixedSizeButtonRestoresTheTilesThenTheFullPreview) {
    openSample();
    const int before = restorations();
    const int tiledBefore = log.count("######TIME ELAPSED");
    QTest::mouseClick(outlet("aspectBtn"), Qt::LeftButton);
    EXPECT_FALSE(window->state().keepAspect);
    EXPECT_EQ(title(), "CLAROVI") << "no locking before the run";
    ASSERT_TRUE(waitFor([&] { return log.count("######TIME ELAPSED") == tiledBefore + 1; }));
    QTest::mouseClick(outlet("aspectBtn"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 1 && unlocked(); }));
    EXPECT_TRUE(window->state().keepAspect);
    EXPECT_EQ(window->state().jobImage, window->state().sourceImage) << "not the tiled preview";
    EXPECT_EQ(window->state().resultImage.size(), QSize(2048, 2048));
}

TEST_F(MainWindowTest, RgbGivesTheColourRestorationWithRedKeptRed) {
    QImage red(300, 200, QImage::Format_RGB32);
    red.fill(QColor(255, 0, 0));
    const QString path = dir.filePath("red.png");
    ASSERT_TRUE(red.save(path));
    openSample(path);
    EXPECT_NEAR(qRed(window->shownImage().pixel(100, 100)), 76, 2) << "grey preview of red";

    QTest::keyClick(window.get(), Qt::Key_R, Qt::ControlModifier);
    EXPECT_EQ(title(), "LOADING");
    ASSERT_TRUE(waitFor([this] { return log.count("RESOLUTION") == 1 && unlocked(); }));
    const QColor centre = window->shownImage().pixelColor(1024, 680);
    EXPECT_GT(centre.red(), 240);
    EXPECT_LT(std::max(centre.green(), centre.blue()), 15);
}

// Save proposes "<name>-preview.png" beside the photograph, then in the folder saved to last.
TEST_F(MainWindowTest, SaveProposesANameWritesTheShownPictureAndKeepsAnOldFileOnFailure) {
    openSample();
    QStringList proposals;
    const QString folder = dir.filePath("out");
    QDir().mkpath(folder);
    window->setSaveFileChooser([&](const QString& proposed) {
        proposals << proposed;
        return QDir(folder).filePath("restored");
    });
    QTest::keyClick(window.get(), Qt::Key_S, Qt::ControlModifier);
    QTest::mouseClick(outlet("saveBtn"), Qt::LeftButton);
    ASSERT_EQ(proposals.size(), 2);
    EXPECT_EQ(proposals[0], QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus-preview.png"));
    EXPECT_EQ(proposals[1], QDir(folder).filePath("coffee-defocus-preview.png"));
    QImage saved;
    ASSERT_TRUE(saved.load(QDir(folder).filePath("restored.png"), "PNG"));
    EXPECT_EQ(saved.convertToFormat(QImage::Format_ARGB32),
              window->shownImage().convertToFormat(QImage::Format_ARGB32));
    EXPECT_TRUE(window->statusBar()->currentMessage().startsWith("Saved "));

    // A failed save says why and keeps the file it would have replaced.
    const QString target = writeFile(dir.filePath("kept.png"), "old contents");
    window->setSaveFileChooser([&](const QString&) { return target; });
    {
        clarovi::testing::FileSizeLimit fullDisk(4096);
        window->SaveImage();
    }
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages.first().contains("kept.png"));
    QFile old(target);
    ASSERT_TRUE(old.open(QIODevice::ReadOnly));
    EXPECT_EQ(old.readAll(), QByteArray("old contents"));
}

// A corrupt file, opened or dropped, is refused with a message; what was open stays.
TEST_F(MainWindowTest, ACorruptFileIsRefusedAndThePreviousPhotoStays) {
    openSample();
    clickSlider("psfCountD");
    ASSERT_TRUE(waitFor([this] { return log.count("NEW S") == 2 && unlocked(); }));
    const QImage source = window->state().sourceImage;
    const QImage shown = window->shownImage();
    const float length = slider("psfCountD")->floatValue();

    const QString corrupt = writeFile(dir.filePath("corrupt.png"), "\x89PNG\r\n\x1a\n garbage");
    window->setOpenFileChooser([&](const QString&) { return corrupt; });
    window->pickIt();
    drop(window.get(), {corrupt});

    ASSERT_EQ(messages.size(), 2);
    EXPECT_TRUE(messages.first().contains("corrupt.png"));
    EXPECT_EQ(messages[0], messages[1]) << "the same message for a drop";
    EXPECT_EQ(window->state().sourceImage, source);
    EXPECT_EQ(window->shownImage(), shown);
    EXPECT_EQ(slider("psfCountD")->floatValue(), length);
    EXPECT_TRUE(unlocked());
    EXPECT_EQ(window->windowTitle(), "coffee-defocus.png — Clarovi");

    // Several files dropped: the first opens, and a note says so.
    drop(window.get(), {kSample, corrupt});
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
    EXPECT_TRUE(window->statusBar()->currentMessage().contains("first of the 2"));
    EXPECT_EQ(messages.size(), 2);
}

// The export runs off the main thread with the controls locked and writes the photograph at
// its own size where the user chose, proposed beside the photograph.
TEST_F(MainWindowTest, ExportWritesThePhotographAtItsOwnSizeWithTheControlsLocked) {
    openSample();
    QString proposed;
    window->setExportFileChooser([&](const QString& path) {
        proposed = path;
        return dir.filePath("full.png");
    });
    QTest::keyClick(window.get(), Qt::Key_E, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(proposed, QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus-restored.png"));
    EXPECT_TRUE(window->exporting() && !outlet("psfCountD")->isEnabled() &&
                !outlet("aspectBtn")->isEnabled());
    ASSERT_TRUE(waitFor([this] { return !window->exporting() && unlocked(); }, 60000));
    EXPECT_EQ(QImage(dir.filePath("full.png")).size(), QImage(kSample).size());
    EXPECT_TRUE(window->statusBar()->currentMessage().startsWith("Exported "));
    EXPECT_TRUE(messages.isEmpty()) << messages.join(' ').toStdString();
}

// Neither Save nor the export writes over the photograph, under any name, nor to a name that is
// only an extension; each says so and starts nothing.
TEST_F(MainWindowTest, SaveAndExportRefuseThePhotographItselfAndANameWithoutABase) {
    const QString photograph = dir.filePath("photo.png");
    ASSERT_TRUE(QFile::copy(kSample, photograph));
    openSample(photograph);
    const std::pair<QString, const char*> targets[] = {
        {photograph, "the photograph being restored"},
        {dir.filePath("./photo.png"), "the photograph being restored"},
        {dir.filePath(".jpg"), "nothing before its extension"}};
    for (const auto& [target, reason] : targets) {
        window->setSaveFileChooser([&](const QString&) { return target; });
        window->setExportFileChooser([&](const QString&) { return target; });
        window->SaveImage();
        window->exportFullSize();
        EXPECT_FALSE(window->exporting());
        ASSERT_EQ(messages.size(), 2) << target.toStdString();
        EXPECT_TRUE(messages[0].contains(reason) && messages[1].contains(reason))
            << messages.join(' ').toStdString();
        messages.clear();
    }
    EXPECT_EQ(readFileBytes(photograph), readFileBytes(kSample));
}

TEST_F(MainWindowTest, RecentFilesKeepTheLastEightAndDropMissingOnes) {
    clarovi::app::RecentFiles recent(*settings);
    for (int i = 0; i < 10; ++i)
        recent.add(writeFile(dir.filePath(QString("%1.png").arg(i)), "x"));
    recent.add(dir.filePath("5.png"));
    QStringList expected;
    for (int i : {5, 9, 8, 7, 6, 4, 3, 2})
        expected << dir.filePath(QString("%1.png").arg(i));
    EXPECT_EQ(recent.paths(), expected);
    QFile::remove(dir.filePath("9.png"));
    EXPECT_EQ(recent.pruneMissing(), QStringList{dir.filePath("9.png")});
    expected.removeAt(1);
    EXPECT_EQ(recent.paths(), expected);
}

// The help opens on the first start only; the next start has the window's size, the last folder
// and the recent files.
TEST_F(MainWindowTest, TheNextStartRemembersTheFirstStartTheGeometryAndTheFolder) {
    window.reset();
    settings->remove("firstStartnew2");
    createWindow();
    ASSERT_NE(window->helpWindow(), nullptr);
    EXPECT_TRUE(waitFor([this] { return window->helpWindow()->isVisible(); }));
    openSample();
    window->setGeometry(40, 50, 1100, 780);
    const QRect geometry = window->geometry();
    window->close();
    window.reset();
    createWindow();
    EXPECT_EQ(window->helpWindow(), nullptr);
    EXPECT_EQ(window->geometry().size(), geometry.size());
    QString startedIn;
    window->setOpenFileChooser(
        [&](const QString& folder) { return startedIn = folder, QString(); });
    window->pickIt();
    EXPECT_EQ(startedIn, QStringLiteral(CLAROVI_DATA_DIR));
    EXPECT_EQ(window->recentFiles().paths().value(0), QFileInfo(kSample).absoluteFilePath());
}
