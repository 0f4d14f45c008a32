#include "jobs/controller_state.h"

#include <gtest/gtest.h>

#include <tuple>

using clarovi::jobs::ControllerState;

// Every copy keeps the photograph's aspect: the working copy is brought down to 2048, never
// enlarged, the live copy to 1024; the analysed grey is at exactly 2048, so that its pixels are
// the working pixels every blur is measured in.
TEST(ControllerState, OpeningMakesCopiesAtThePhotographsOwnAspect) {
    using Case = std::tuple<QSize, QSize, QSize, QSize>; // photograph, working, live, analysed
    for (const auto& [photo, working, live, analysed] :
         {Case{{4000, 3000}, {2048, 1536}, {1024, 768}, {2048, 1536}},
          Case{{500, 1000}, {500, 1000}, {500, 1000}, {1024, 2048}},
          Case{{1500, 1000}, {1500, 1000}, {1024, 683}, {2048, 1365}}}) {
        SCOPED_TRACE(photo.width());
        ControllerState state;
        state.estimate = clarovi::engine::BlurOnPhoto{clarovi::engine::BlurKind::Motion, 20, 10, 1};
        state.resultImage = QImage(8, 8, QImage::Format_RGB32);
        QImage picture(photo, QImage::Format_RGB32);
        picture.fill(Qt::gray);
        state.installPicture(picture);
        EXPECT_EQ(state.photoSize, photo);
        EXPECT_EQ(state.sourceImage.size(), working);
        EXPECT_EQ(state.previewSourceImage.size(), live);
        EXPECT_EQ(state.workingGrey.size(), cv::Size(working.width(), working.height()));
        EXPECT_EQ(state.previewGrey.size(), cv::Size(live.width(), live.height()));
        EXPECT_EQ(state.analysisGrey.size(), cv::Size(analysed.width(), analysed.height()));
        // Nothing of the last photograph stays, and its first computations are due.
        EXPECT_EQ(
            std::tuple(state.resultImage.isNull(), state.estimate.has_value(), state.freshImage),
            std::tuple(true, false, true));
    }
}
