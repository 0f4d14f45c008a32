#include "engine/image_bridge.h"
#include "jobs/controller_state.h"
#include "jobs/slider_ranges.h"

#include <gtest/gtest.h>

using clarovi::jobs::ControllerState;

TEST(ControllerState, OpeningKeepsTheAspectForDisplayAndSquaresTheWorkingCopies) {
    struct Case {
        QSize photo;
        double displayWidth;
        double displayHeight;
    };
    for (const Case& c : {Case{{4000, 3000}, 2048, 1536}, Case{{500, 1000}, 1024, 2048},
                          Case{{600, 400}, 2048, 1365.3333740234375}}) {
        SCOPED_TRACE(c.photo.width());
        ControllerState state;
        state.setUpDefaults(0.0035f, 0.002f, 0.008f, 10.0f);
        state.motionBlur = true;
        state.autoSilent = true;
        state.spectrumDrawn = true;
        QImage photo(c.photo, QImage::Format_RGB32);
        photo.fill(Qt::gray);
        state.installPicture(photo);
        EXPECT_DOUBLE_EQ(state.displayWidth, c.displayWidth);
        EXPECT_DOUBLE_EQ(state.displayHeight, c.displayHeight);
        EXPECT_EQ(state.sourceImage.size(), QSize(2048, 2048));
        EXPECT_EQ(state.previewSourceImage.size(), QSize(1024, 1024));
        EXPECT_EQ(state.activeImage, state.sourceImage);
        EXPECT_TRUE(state.keepAspect);
        EXPECT_FALSE(state.autoSilent);
        EXPECT_FALSE(state.motionBlur);
        EXPECT_FALSE(state.spectrumDrawn);
        EXPECT_TRUE(state.freshImage);
    }
}

TEST(ControllerState, PsfCanvasFollowsTheActivePictureAndTheMode) {
    ControllerState state;
    state.setUpDefaults(0.0035f, 0.002f, 0.008f, 10.0f);
    state.activeImage = QImage(300, 200, QImage::Format_RGB32);
    EXPECT_EQ(state.MakePsfD(10, -45, 0.2, false).size(), QSize(300, 200));
    EXPECT_EQ(state.MakePsfD(10, -45, 0.2, true).size(), QSize(256, 256));

    // The same length and angle draw a disk out of focus and a thin line in motion mode.
    const double disk =
        cv::sum(clarovi::engine::CVGrayscaleMat(state.MakePsfD(20, 0, 1, false)))[0];
    state.motionBlur = true;
    const double line =
        cv::sum(clarovi::engine::CVGrayscaleMat(state.MakePsfD(20, 0, 1, false)))[0];
    EXPECT_GT(disk, 4 * line);
    EXPECT_GT(line, 0);
}
