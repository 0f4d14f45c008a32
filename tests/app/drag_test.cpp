#include "gui_helpers.h"

#include <QPushButton>

using clarovi::app::FloatSlider;
using clarovi::testing::waitFor;
using MainWindowTest = clarovi::testing::MainWindowTest;

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

TEST_F(MainWindowTest, TheWidthDragShowsTheWidthOfTheCurrentEvent) {
    openSample();
    QTest::mouseClick(outlet("movedSw"), Qt::LeftButton);
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
    FloatSlider* width = slider("anglewidth");
    QStringList seen;
    drag(width, 5, [&] {
        const QString expected = QString::asprintf("%.1f", double(width->floatValue()));
        EXPECT_TRUE(outlet<QLabel>("settingInfo")->text().endsWith(expected))
            << outlet<QLabel>("settingInfo")->text().toStdString();
        EXPECT_DOUBLE_EQ(window->state().currentWidth, double(width->floatValue()));
        seen << expected;
    });
    EXPECT_GE(seen.size(), 5);
}

TEST_F(MainWindowTest, TheAspectControlRestoresTheTilesAgain) {
    openSample();
    auto* aspect = outlet<QPushButton>("aspectBtn");
    EXPECT_TRUE(aspect->isEnabled());
    const int before = log.count("######TIME ELAPSED");
    QTest::mouseClick(aspect, Qt::LeftButton);
    EXPECT_FALSE(window->state().keepAspect);
    EXPECT_EQ(title(), "CLAROVI") << "no locking before the run";
    ASSERT_TRUE(waitFor([&] { return log.count("######TIME ELAPSED") == before + 1; }));
    EXPECT_EQ(window->shownImage().size(), QSize(2048, 1365));
    ASSERT_TRUE(waitFor([this] { return unlocked(); }));
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
