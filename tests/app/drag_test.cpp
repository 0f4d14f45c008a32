#include "gui_helpers.h"

#include <QPushButton>

using clarovi::app::FloatSlider;

TEST_F(MainWindowTest, DraggingAPsfSliderPreviewsEveryStepWithoutLockingThenEndsOnce) {
    openSample();
    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));

    for (const char* name : {"psfCountD", "psfAngle", "anglewidth"}) {
        SCOPED_TRACE(name);
        const int dragsBefore = log.count("dragging");
        const int endsBefore = log.count("ended");
        const int tiledBefore = log.count("######TIME ELAPSED");
        FloatSlider* slider = this->slider(name);
        drag(slider, 4, [&] {
            EXPECT_EQ(title(), "CLAROVI") << "a drag step does not lock";
            EXPECT_TRUE(outlet("rgbBtn")->isEnabled());
            EXPECT_EQ(window->shownImage().size(), QSize(1024, 682));
            // The label follows the event under way, the width of the width slider's own.
            const QString width = QString::asprintf("%.1f", window->state().currentWidth);
            EXPECT_TRUE(outlet<QLabel>("settingInfo")->text().endsWith(width));
            if (slider == this->slider("anglewidth")) {
                EXPECT_DOUBLE_EQ(window->state().currentWidth, double(slider->floatValue()));
            }
        });
        EXPECT_GE(log.count("dragging") - dragsBefore, 1);
        EXPECT_EQ(log.count("######TIME ELAPSED") - tiledBefore,
                  log.count("dragging") - dragsBefore)
            << "one tiled preview per drag event";
        EXPECT_EQ(log.count("ended") - endsBefore, 1);
        EXPECT_EQ(title(), "LOADING") << "the release locks until the full preview";
        EXPECT_EQ(window->state().psfImage.size(), QSize(2048, 2048));
        ASSERT_TRUE(waitFor([this] { return unlocked(); }));
        EXPECT_EQ(window->shownImage().size(), QSize(2048, 1365));
    }
}

// The view keeps its zoom through a restoration; Space shows the input there, grey beside grey.
TEST_F(MainWindowTest, TheZoomSurvivesARestorationAndSpaceComparesThere) {
    openSample();
    clarovi::app::ImageView* view = window->view();
    QTest::keyClick(window.get(), Qt::Key_1);
    QTest::keyClick(window.get(), Qt::Key_Plus);
    const double zoom = view->zoomFactor();
    EXPECT_GT(zoom, 1.0);
    const int before = restorations();
    clickSlider("psfCountD");
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 1 && unlocked(); }, 5000));
    EXPECT_DOUBLE_EQ(view->zoomFactor(), zoom);
    EXPECT_FALSE(view->isFitting());

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
