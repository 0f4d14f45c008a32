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
        state.guess = {{clarovi::engine::BlurKind::Motion, 20, 10, 1}, 0.3, {}};
        state.region = {1, 2, 300, 400};
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
        EXPECT_EQ(std::tuple(state.resultImage.isNull(), state.guess.has_value(),
                             state.region.empty(), state.freshImage),
                  std::tuple(true, false, true, true));
    }
}

// A region given in the photograph's pixels is read in the analysed grey's, its edges rounded
// outwards; one reaching outside the photograph, or empty, is none.
TEST(ControllerState, ARegionOfThePhotographIsReadInTheAnalysedPicture) {
    using Case = std::tuple<QSize, QRect, cv::Rect, double>; // photo, region, analysed, photoScale
    for (const auto& [photo, inPhoto, analysed, scale] :
         {Case{{4000, 3000}, {0, 0, 4000, 3000}, {0, 0, 2048, 1536}, 1.0},
          Case{{4000, 3000}, {1000, 1001, 100, 50}, {512, 512, 52, 27}, 1.0},
          Case{{500, 1000}, {10, 10, 20, 20}, {20, 20, 42, 42}, 500.0 / 1024},
          Case{{4000, 3000}, {3950, 0, 100, 100}, {}, 1.0},
          Case{{4000, 3000}, {5, 5, 0, 10}, {}, 1.0}}) {
        SCOPED_TRACE(inPhoto.x());
        ControllerState state;
        QImage picture(photo, QImage::Format_RGB32);
        picture.fill(Qt::gray);
        state.installPicture(picture);
        EXPECT_EQ(state.analysedRegion(inPhoto), analysed);
        EXPECT_DOUBLE_EQ(state.photoScale(), scale);
    }
}
