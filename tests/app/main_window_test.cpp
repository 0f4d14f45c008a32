#include "app/recent_files.h"
#include "app/slider_field.h"
#include "common/file_size_limit.h"
#include "gui_helpers.h"

#include <QDoubleSpinBox>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QToolButton>
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
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    for (const char* name : {"muSlider", "psfCountD", "movedSw", "saveBtn", "rgbBtn", "ofSw"}) {
        EXPECT_TRUE(outlet(name)->isEnabled()) << name;
        EXPECT_NEAR(opacityOf(outlet(name)), 1.0, 1e-6) << name;
    }
    EXPECT_FALSE(outlet("psfAngle")->isEnabled());
    EXPECT_EQ(shown().size(), QSize(600, 400)) << "a small photograph as it is";
    EXPECT_EQ(window->windowTitle(), "coffee-defocus.png — Clarovi");
    // Its blur is clear: the photograph starts from it (a disk of 7 pixels at 600, 24 at 2048).
    EXPECT_NEAR(slider("psfCountD")->floatValue(), 23.9, 2.0);
    EXPECT_TRUE(status().startsWith("Out-of-focus blur found")) << status().toStdString();
}

TEST_F(MainWindowTest, ASliderReleaseRestoresOneSecondLaterAndTheLastReleaseWins) {
    openSample();
    const int before = restorations();
    QElapsedTimer clock;
    clock.start();
    clickSlider("psfCountD");
    EXPECT_EQ(title(), "LOADING");
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 1; }, 3000));
    EXPECT_GE(clock.elapsed(), 950) << "not before a second has passed";
    ASSERT_TRUE(waitFor([this] { return idle(); }));

    // Two releases within a second: one restoration, of the second's setting.
    clickSlider("muSlider");
    EXPECT_TRUE(slider("muSlider")->isEnabled()) << "sharpness stays usable while locked";
    EXPECT_FALSE(outlet("psfCountD")->isEnabled());
    clickSlider("muSlider");
    const QString second = outlet<QLabel>("settingInfo")->text();
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 2 && idle(); }, 4000));
    EXPECT_FALSE(waitFor([&] { return restorations() > before + 2; },
                         int(clarovi::jobs::kReleaseDelay * 1000) + 500))
        << "the second release replaced the first's restoration";
    EXPECT_EQ(outlet<QLabel>("settingInfo")->text(), second);
}

// Keys and typed values take effect like a release, once they have been left alone; a value
// typed beyond the range is brought to its end, not cut short, and the status bar says so.
TEST_F(MainWindowTest, KeyedAndTypedChangesRestoreOnceAndOutOfRangeValuesAreClamped) {
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
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 1 && idle(); }, 5000));
    EXPECT_TRUE(length->hasFocus()) << "the keys go on working after the restoration";

    QDoubleSpinBox* box =
        outlet<clarovi::app::SliderField>("psfCountD")->findChild<QDoubleSpinBox*>();
    box->setFocus();
    box->selectAll();
    QTest::keyClicks(box, "150");
    QTest::keyClick(box, Qt::Key_Enter);
    EXPECT_FLOAT_EQ(length->floatValue(), 100.0f) << "not 15";
    EXPECT_TRUE(status().contains("150") && status().contains("100")) << status().toStdString();
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 2 && idle(); }, 5000));
}

// M switches the mode and A starts a search, even from a number box; the mode switch restores at
// once.
TEST_F(MainWindowTest, TheMotionSwitchAndItsKeyRestoreAtOnce) {
    openSample();
    const int before = restorations();
    outlet<clarovi::app::SliderField>("muSlider")->findChild<QDoubleSpinBox*>()->setFocus();
    QTest::keyClick(window.get(), Qt::Key_M);
    EXPECT_EQ(restorations(), before + 1);
    EXPECT_TRUE(window->setting().motion());
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    EXPECT_TRUE(outlet("psfAngle")->isEnabled() && outlet("anglewidth")->isEnabled());
    QTest::mouseClick(outlet("ofSw"), Qt::LeftButton);
    EXPECT_EQ(restorations(), before + 2);
    EXPECT_FALSE(window->setting().motion());
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    EXPECT_FALSE(outlet("psfAngle")->isEnabled()) << "stays off out of focus";
}

// Colour is a switch: while on, every full restoration is in colour; off, grey.
TEST_F(MainWindowTest, ColourStaysOnThroughReleasesAndUndoWalksBack) {
    QImage red(300, 200, QImage::Format_RGB32);
    red.fill(QColor(255, 0, 0));
    const QString path = dir.filePath("red.png");
    ASSERT_TRUE(red.save(path));
    openSample(path);
    EXPECT_NEAR(qRed(shown().pixel(100, 100)), 76, 2) << "grey preview of red";
    const QImage grey = shown();
    QTest::keyClick(window.get(), Qt::Key_R, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    clickSlider("psfCountD");
    ASSERT_TRUE(waitFor([this] { return log.count("RESOLUTION") == 2 && idle(); }, 5000));
    const QColor centre = shown().pixelColor(150, 100);
    EXPECT_GT(centre.red(), 240);
    EXPECT_LT(std::max(centre.green(), centre.blue()), 15);
    // Back to the grey setting: the very picture it gave, and the switch off.
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    EXPECT_FALSE(outlet<QPushButton>("rgbBtn")->isChecked());
    EXPECT_EQ(shown(), grey);
    QTest::keyClick(window.get(), Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    EXPECT_TRUE(outlet<QPushButton>("rgbBtn")->isChecked());
}

// A new photograph starts from the default setting, in the mode and sharpness last used; the
// previous photograph's setting is offered, and applied only when asked for.
TEST_F(MainWindowTest, ANewPhotographStartsFreshAndOffersThePreviousSetting) {
    QImage flat(400, 300, QImage::Format_RGB32);
    flat.fill(Qt::darkGray);
    const QString plain = dir.filePath("flat.png");
    ASSERT_TRUE(flat.save(plain));
    openSample(plain);
    QTest::keyClick(window.get(), Qt::Key_M);
    slider("psfCountD")->setFloatValue(50);
    slider("muSlider")->setFloatValue(62.5f);
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    for (int click = 0; click < 2; ++click) { // out of focus at 50, then motion again
        QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
        ASSERT_TRUE(waitFor([this] { return idle(); }));
    }
    openSample(plain);
    EXPECT_FLOAT_EQ(slider("psfCountD")->floatValue(), clarovi::jobs::kLengthRange.initial);
    EXPECT_TRUE(window->setting().motion()) << "the last mode";
    EXPECT_FLOAT_EQ(slider("muSlider")->floatValue(), 62.5f) << "the last sharpness";
    ASSERT_TRUE(outlet<QPushButton>("previousBtn")->isVisible());
    // Through the Edit menu, which presses the status bar's button.
    QAction* previous = nullptr;
    for (QAction* action : window->findChildren<QAction*>())
        if (action->text().contains("Previous Photograph"))
            previous = action;
    ASSERT_NE(previous, nullptr);
    previous->trigger();
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    EXPECT_FLOAT_EQ(slider("psfCountD")->floatValue(), 50.0f);
}

// Save As writes the photograph restored at its own size where the user chose, off the main
// thread with the controls locked; Save Preview writes the picture shown; their names differ.
TEST_F(MainWindowTest, SaveAsWritesThePhotographAndSavePreviewThePictureShown) {
    openSample();
    QString proposed;
    window->setExportFileChooser([&](const clarovi::app::ExportChoice& choice) {
        proposed = choice.path;
        return clarovi::app::ExportChoice{dir.filePath("full.jpg"), {0, 80}};
    });
    QTest::keyClick(window.get(), Qt::Key_S, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(proposed, QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus-restored.png"));
    EXPECT_FALSE(outlet("psfCountD")->isEnabled());
    EXPECT_EQ(outlet<QLabel>("jobLabel")->text(), "Exporting…");
    ASSERT_TRUE(waitFor([this] { return idle(); }, 60000));
    EXPECT_EQ(QImage(dir.filePath("full.jpg")).size(), QImage(kSample).size());
    EXPECT_TRUE(status().startsWith("Saved ")) << status().toStdString();

    window->setSaveFileChooser([&](const QString& path) {
        proposed = path;
        return dir.filePath("preview");
    });
    window->SaveImage();
    EXPECT_TRUE(proposed.endsWith("coffee-defocus-preview.png")) << proposed.toStdString();
    QImage saved;
    ASSERT_TRUE(saved.load(dir.filePath("preview.png"), "PNG"));
    EXPECT_EQ(saved.convertToFormat(QImage::Format_ARGB32),
              shown().convertToFormat(QImage::Format_ARGB32));
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

// Neither Save Preview nor Save As writes over the photograph, under any name, nor to a name
// that is only an extension; each says so and starts nothing.
TEST_F(MainWindowTest, SavesRefuseThePhotographItselfAndANameWithoutABase) {
    const QString photograph = dir.filePath("photo.png");
    ASSERT_TRUE(QFile::copy(kSample, photograph));
    openSample(photograph);
    const std::pair<QString, const char*> targets[] = {
        {photograph, "the photograph being restored"},
        {dir.filePath("./photo.png"), "the photograph being restored"},
        {dir.filePath(".jpg"), "nothing before its extension"}};
    for (const auto& [target, reason] : targets) {
        window->setSaveFileChooser([&](const QString&) { return target; });
        window->setExportFileChooser([&](const clarovi::app::ExportChoice&) {
            return clarovi::app::ExportChoice{target, {}};
        });
        window->SaveImage();
        QTest::keyClick(window.get(), Qt::Key_S, Qt::ControlModifier | Qt::ShiftModifier);
        EXPECT_TRUE(outlet("psfCountD")->isEnabled()) << "nothing started";
        ASSERT_EQ(messages.size(), 2) << target.toStdString();
        EXPECT_TRUE(messages[0].contains(reason) && messages[1].contains(reason))
            << messages.join(' ').toStdString();
        messages.clear();
    }
    EXPECT_EQ(readFileBytes(photograph), readFileBytes(kSample));
}

// A corrupt file, opened or dropped, is refused with a message; what was open stays.
TEST_F(MainWindowTest, ACorruptFileIsRefusedAndThePreviousPhotoStays) {
    openSample();
    const QImage before = shown();
    const float length = slider("psfCountD")->floatValue();
    const QString corrupt = writeFile(dir.filePath("corrupt.png"), "\x89PNG\r\n\x1a\n garbage");
    window->setOpenFileChooser([&](const QString&) { return corrupt; });
    window->pickIt();
    drop(window.get(), {corrupt});
    ASSERT_EQ(messages.size(), 2);
    EXPECT_TRUE(messages.first().contains("corrupt.png"));
    EXPECT_EQ(messages[0], messages[1]) << "the same message for a drop";
    EXPECT_EQ(shown(), before);
    EXPECT_EQ(slider("psfCountD")->floatValue(), length);
    EXPECT_TRUE(idle());
    EXPECT_EQ(window->windowTitle(), "coffee-defocus.png — Clarovi");

    // Several files dropped: the first opens, and a note says so.
    drop(window.get(), {kSample, corrupt});
    ASSERT_TRUE(waitFor([this] { return idle(); }));
    EXPECT_TRUE(status().contains("first of the 2") || status().contains("found"));
    EXPECT_EQ(messages.size(), 2);
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
    EXPECT_TRUE(waitFor([this] {
        return window->findChild<QWidget*>("helpWindow") &&
               window->findChild<QWidget*>("helpWindow")->isVisible();
    }));
    openSample();
    window->setGeometry(40, 50, 1100, 780);
    const QRect geometry = window->geometry();
    window->close();
    createWindow();
    EXPECT_EQ(window->findChild<QWidget*>("helpWindow"), nullptr);
    EXPECT_EQ(window->geometry().size(), geometry.size());
    QString startedIn;
    window->setOpenFileChooser(
        [&](const QString& folder) { return startedIn = folder, QString(); });
    window->pickIt();
    EXPECT_EQ(startedIn, QStringLiteral(CLAROVI_DATA_DIR));
    EXPECT_EQ(clarovi::app::RecentFiles(*settings).paths().value(0),
              QFileInfo(kSample).absoluteFilePath());
}
