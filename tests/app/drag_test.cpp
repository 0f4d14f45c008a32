#include "gui_helpers.h"

#include <QPushButton>

using clarovi::app::FloatSlider;

// While a slider is dragged, the live copy (longer side 1024) follows every step unlocked; the
// release restores the working copy (longer side 2048).
TEST_F(MainWindowTest, DraggingAPsfSliderPreviewsEveryStepWithoutLockingThenEndsOnce) {
    const QString photo = dir.filePath("large.png");
    ASSERT_TRUE(QImage(QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus.png"))
                    .scaled(2400, 1600)
                    .save(photo));
    openSample(photo);
    // 100 % is a pixel of the photograph, whichever copy is shown.
    QTest::keyClick(window.get(), Qt::Key_1);
    EXPECT_EQ(view()->zoomFactor(), 1.0);
    EXPECT_EQ(view()->pictureToWidget({2400, 0}).x() - view()->pictureToWidget({0, 0}).x(), 2400.0);
    EXPECT_EQ(outlet<QLabel>("zoomLabel")->text(), "100 % of full size");
    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));

    for (const char* name : {"psfCountD", "psfAngle", "anglewidth"}) {
        SCOPED_TRACE(name);
        const int dragsBefore = log.count("dragging");
        const int endsBefore = log.count("ended");
        FloatSlider* slider = this->slider(name);
        drag(slider, 4, [&] {
            EXPECT_EQ(title(), "CLAROVI") << "a drag step does not lock";
            EXPECT_TRUE(outlet("rgbBtn")->isEnabled());
            EXPECT_EQ(shown().size(), QSize(1024, 683));
            // The label follows the event under way.
            EXPECT_EQ(outlet<QLabel>("settingInfo")->text(),
                      clarovi::jobs::settingsLabel(window->setting()));
        });
        EXPECT_GE(log.count("dragging") - dragsBefore, 1);
        EXPECT_EQ(log.count("ended") - endsBefore, 1);
        EXPECT_EQ(title(), "LOADING") << "the release locks until the full preview";
        ASSERT_TRUE(waitFor([this] { return unlocked(); }));
        EXPECT_EQ(shown().size(), QSize(2048, 1365));
    }
}

// The view keeps its zoom through a restoration; Space shows the input there, grey beside grey.
TEST_F(MainWindowTest, TheZoomSurvivesARestorationAndSpaceComparesThere) {
    openSample();
    clarovi::app::ImageView* view = this->view();
    QTest::keyClick(window.get(), Qt::Key_1);
    QTest::keyClick(window.get(), Qt::Key_Plus);
    const double zoom = view->zoomFactor();
    EXPECT_GT(zoom, 1.0);
    const int before = restorations();
    clickSlider("psfCountD");
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 1 && unlocked(); }, 5000));
    EXPECT_DOUBLE_EQ(view->zoomFactor(), zoom);
    EXPECT_FALSE(outlet<QLabel>("zoomLabel")->text().startsWith("Fit"));

    QTest::keyPress(window.get(), Qt::Key_Space);
    EXPECT_TRUE(view->comparing());
    EXPECT_EQ(view->compareImage().format(), QImage::Format_Grayscale8) << "the result is grey";
    EXPECT_DOUBLE_EQ(view->zoomFactor(), zoom);
    QTest::keyRelease(window.get(), Qt::Key_Space);
    EXPECT_FALSE(view->comparing());
    QTest::mousePress(outlet("compareBtn"), Qt::LeftButton);
    EXPECT_TRUE(view->comparing());
    QTest::mouseRelease(outlet("compareBtn"), Qt::LeftButton);
    EXPECT_FALSE(view->comparing());
}
