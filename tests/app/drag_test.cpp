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
        auto* slider = outlet<FloatSlider>(name);
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
    auto* width = outlet<FloatSlider>("anglewidth");
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

TEST_F(MainWindowTest, TwoLengthReleasesWithinASecondRestoreTwice) {
    openSample();
    const int before = restorations();
    clickSlider("psfCountD");
    QTest::qWait(200);
    // Locked now; the release must still be counted, as the window would on a real click.
    window->LengthNew(true);
    ASSERT_TRUE(waitFor([&] { return restorations() == before + 2; }, 5000));
    EXPECT_EQ(log.count("dragging"), 0) << "a click without a drag runs only the end step";
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
