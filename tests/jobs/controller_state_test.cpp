#include "engine/image_bridge.h"
#include "jobs/controller_state.h"
#include "jobs/slider_ranges.h"

#include <gtest/gtest.h>

#include <tuple>

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
        // Fixed size and out of focus again, loud, no spectrum yet, fresh.
        EXPECT_EQ(std::tuple(state.keepAspect, state.motionBlur, state.autoSilent,
                             state.spectrumDrawn, state.freshImage),
                  std::tuple(true, false, false, false, true));
    }
}

// The PSF is drawn on the active picture's canvas, as a disk out of focus and a thin line in motion
// mode for the same length and angle.
TEST(ControllerState, PsfFollowsTheActivePictureAndTheMode) {
    ControllerState state;
    state.activeImage = QImage(300, 200, QImage::Format_RGB32);
    const QImage disk = state.MakePsfD(20, 0, 1, false);
    EXPECT_EQ(disk.size(), QSize(300, 200));
    state.motionBlur = true;
    const auto light = [](const QImage& psf) {
        return cv::sum(clarovi::engine::CVGrayscaleMat(psf))[0];
    };
    const double line = light(state.MakePsfD(20, 0, 1, false));
    EXPECT_GT(light(disk), 4 * line);
    EXPECT_GT(line, 0);
}
