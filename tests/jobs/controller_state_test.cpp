#include "engine/image_bridge.h"
#include "jobs/controller_state.h"

#include <gtest/gtest.h>

#include <tuple>

using clarovi::jobs::ControllerState;

TEST(ControllerState, OpeningKeepsTheAspectForDisplayAndSquaresTheWorkingCopies) {
    using Case = std::tuple<QSize, double, double>; // photo, display width and height
    for (const auto& [size, displayWidth, displayHeight] :
         {Case{{4000, 3000}, 2048, 1536}, Case{{500, 1000}, 1024, 2048},
          Case{{600, 400}, 2048, 1365.3333740234375}}) {
        SCOPED_TRACE(size.width());
        ControllerState state;
        state.setUpDefaults(0.0035f, 0.002f, 0.008f, 10.0f);
        state.motionBlur = true;
        state.autoSilent = true;
        state.estimate = clarovi::engine::shapeOf(clarovi::engine::BlurKind::Motion, 20, 10);
        QImage photo(size, QImage::Format_RGB32);
        photo.fill(Qt::gray);
        state.installPicture(photo);
        EXPECT_DOUBLE_EQ(state.displayWidth, displayWidth);
        EXPECT_DOUBLE_EQ(state.displayHeight, displayHeight);
        EXPECT_EQ(state.sourceImage.size(), QSize(2048, 2048));
        EXPECT_EQ(state.previewSourceImage.size(), QSize(1024, 1024));
        EXPECT_EQ(state.activeImage, state.sourceImage);
        // Fixed size and out of focus again, loud, no estimate of the last picture, fresh.
        EXPECT_EQ(std::tuple(state.keepAspect, state.motionBlur, state.autoSilent,
                             state.estimate.has_value(), state.freshImage),
                  std::tuple(true, false, false, false, true));
    }
}

// The PSF is drawn on the active picture's canvas, as a disk out of focus and a thin line in motion
// mode for the same length and angle.
TEST(ControllerState, PsfFollowsTheActivePictureAndTheMode) {
    ControllerState state;
    state.activeImage = QImage(300, 200, QImage::Format_RGB32);
    const auto light = [&] {
        const QImage psf = state.MakePsfD(20, 0, 1, false);
        EXPECT_EQ(psf.size(), QSize(300, 200));
        return cv::sum(clarovi::engine::CVGrayscaleMat(psf))[0];
    };
    const double disk = light();
    state.motionBlur = true;
    const double line = light();
    EXPECT_TRUE(disk > 4 * line && line > 0) << disk << " " << line;
}
