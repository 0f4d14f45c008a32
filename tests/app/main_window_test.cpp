#include "app/help_window.h"
#include "common/file_size_limit.h"
#include "gui_helpers.h"

#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

using clarovi::app::FloatSlider;
using clarovi::app::MainWindow;

using clarovi::testing::kSample;
using clarovi::testing::opacityOf;
using clarovi::testing::waitFor;
using MainWindowTest = clarovi::testing::MainWindowTest;

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

const char* const kControls[] = {"muSlider", "psfCountD", "movedSw",    "saveBtn", "rgbBtn",
                                 "autobtn",  "psfAngle",  "anglewidth", "ofSw"};

} // namespace

TEST_F(MainWindowTest, EveryOutletExistsUnderItsName) {
    for (const char* name :
         {"maintitle", "muSlider", "psfCountD", "psfAngle", "anglewidth", "img01", "psfPreview",
          "spectrumPreview", "movedSw", "ofSw", "saveBtn", "rgbBtn", "autobtn", "settingInfo",
          "_loadLabelNew", "_pBar", "neCont"})
        outlet(name);
}

TEST_F(MainWindowTest, ControlsAreDisabledUntilAPictureIsOpenAndItsFirstRestorationIsDone) {
    for (const char* name : kControls)
        EXPECT_FALSE(outlet(name)->isEnabled()) << name;
    EXPECT_NEAR(opacityOf(outlet("psfAngle")), 0.2, 1e-6);
    EXPECT_NEAR(opacityOf(outlet("anglewidth")), 0.2, 1e-6);
    EXPECT_FALSE(window->state().psfImage.isNull());

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
}

TEST_F(MainWindowTest, ASliderReleaseRestoresOneSecondLaterAndEveryReleaseCounts) {
    openSample();
    const int before = restorations();
    clickSlider("psfCountD");
    EXPECT_EQ(title(), "LOADING");
    QTest::qWait(700);
    EXPECT_EQ(restorations(), before) << "not before a second has passed";
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 1; }, 3000));
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));

    // Two releases within a second: two restorations, one after the other.
    clickSlider("muSlider");
    EXPECT_TRUE(outlet("muSlider")->isEnabled()) << "sharpness stays usable while locked";
    EXPECT_FALSE(outlet("psfCountD")->isEnabled());
    QTest::qWait(300);
    clickSlider("muSlider");
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 3; }, 4000));
    EXPECT_EQ(log.count("ended"), 1) << "only the PSF sliders log their events";
}

TEST_F(MainWindowTest, TheMotionSwitchRestoresBeforeItsHandlerReturns) {
    openSample();
    int before = restorations();
    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    EXPECT_EQ(restorations(), before + 1);
    EXPECT_TRUE(window->state().motionBlur);
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
    EXPECT_TRUE(outlet("psfAngle")->isEnabled());
    EXPECT_TRUE(outlet("anglewidth")->isEnabled());

    before = restorations();
    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    EXPECT_EQ(restorations(), before + 1);
    EXPECT_FALSE(window->state().motionBlur);
    EXPECT_FALSE(outlet("psfAngle")->isEnabled());
    EXPECT_FALSE(outlet("anglewidth")->isEnabled());
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
    EXPECT_FALSE(outlet("psfAngle")->isEnabled()) << "stays off out of focus";

    // The out-of-focus button turns motion mode off the same way.
    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
    QTest::mouseClick(outlet("ofSw"), Qt::LeftButton);
    EXPECT_FALSE(outlet<QPushButton>("movedSw")->isChecked());
    EXPECT_FALSE(window->state().motionBlur);
}

TEST_F(MainWindowTest, TheFixedSizeButtonEndsInAFullRestorationOnceLeftAlone) {
    openSample();
    const int before = restorations();
    QTest::mouseClick(outlet("aspectBtn"), Qt::LeftButton);
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

    QTest::mouseClick(outlet("rgbBtn"), Qt::LeftButton);
    EXPECT_EQ(title(), "LOADING");
    ASSERT_TRUE(waitFor([this] { return log.count("RESOLUTION") == 1 && unlocked(); }));
    const QColor centre = window->shownImage().pixelColor(1024, 680);
    EXPECT_GT(centre.red(), 240);
    EXPECT_LT(centre.green(), 15);
    EXPECT_LT(centre.blue(), 15);
}

TEST_F(MainWindowTest, SaveWritesTheShownPictureAsPng) {
    openSample();
    window->setSaveFileChooser([this] { return dir.filePath("restored"); });
    QTest::mouseClick(outlet("saveBtn"), Qt::LeftButton);
    QImage saved;
    ASSERT_TRUE(saved.load(dir.filePath("restored.png"), "PNG"));
    EXPECT_EQ(saved.size(), QSize(2048, 1365));
    EXPECT_EQ(saved.convertToFormat(QImage::Format_ARGB32),
              window->shownImage().convertToFormat(QImage::Format_ARGB32));
    EXPECT_TRUE(messages.isEmpty());
}

TEST_F(MainWindowTest, AFailedSaveSaysSoAndKeepsTheOldFile) {
    openSample();
    const QString target = dir.filePath("kept.png");
    {
        QFile old(target);
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write("old contents");
    }
    window->setSaveFileChooser([&] { return target; });
    {
        clarovi::testing::FileSizeLimit fullDisk(4096);
        window->SaveImage();
    }
    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages.first().contains("kept.png"));
    QFile old(target);
    ASSERT_TRUE(old.open(QIODevice::ReadOnly));
    EXPECT_EQ(old.readAll(), QByteArray("old contents"));

    window->setSaveFileChooser([this] { return dir.filePath("not-a-folder.png/inside"); });
    QFile(dir.filePath("not-a-folder.png")).open(QIODevice::WriteOnly);
    window->SaveImage();
    EXPECT_EQ(messages.size(), 2);
}

TEST_F(MainWindowTest, ACorruptFileIsRefusedAndThePreviousPhotoStays) {
    openSample();
    clickSlider("psfCountD");
    ASSERT_TRUE(waitFor([this] { return log.count("NEW S") == 2 && unlocked(); }));
    const QImage source = window->state().sourceImage;
    const QImage shown = window->shownImage();
    const float length = outlet<FloatSlider>("psfCountD")->floatValue();

    const QString corrupt = dir.filePath("corrupt.png");
    QFile file(corrupt);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("\x89PNG\r\n\x1a\n garbage");
    file.close();
    window->setOpenFileChooser([&] { return corrupt; });
    window->pickIt();

    ASSERT_EQ(messages.size(), 1);
    EXPECT_TRUE(messages.first().contains("corrupt.png"));
    EXPECT_EQ(window->state().sourceImage, source);
    EXPECT_EQ(window->shownImage(), shown);
    EXPECT_EQ(outlet<FloatSlider>("psfCountD")->floatValue(), length);
    EXPECT_TRUE(unlocked());
    EXPECT_TRUE(outlet("rgbBtn")->isEnabled());
}

TEST_F(MainWindowTest, TheHelpWindowOpensOnTheFirstStartOnly) {
    window.reset();
    settings->remove("firstStartnew2");
    createWindow();
    ASSERT_NE(window->helpWindow(), nullptr);
    EXPECT_TRUE(window->helpWindow()->isVisible());
    EXPECT_TRUE(settings->value("firstStartnew2").toBool());

    window.reset();
    createWindow();
    EXPECT_EQ(window->helpWindow(), nullptr);
}
