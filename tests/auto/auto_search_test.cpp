#include "auto/auto_search.h"
#include "jobs/job_fixtures.h"

#include <gtest/gtest.h>

using namespace clarovi::autosearch;
using clarovi::testing::OpenedPicture;
using clarovi::testing::scenePicture;

namespace {

QImage tinyThumbnail(int, int) {
    return QImage(4, 3, QImage::Format_Grayscale8);
}

SearchInput fakeInput(bool motion, int lengthEnd) {
    SearchInput input;
    input.motionBlur = motion;
    input.counters.lengthEnd = lengthEnd;
    input.shown.currentAngle = -45;
    input.shown.currentWidth = 1.5;
    return input;
}

} // namespace

TEST(AutoSearch, TriesEveryLengthAndAngleOfItsGridInOrder) {
    struct Grid {
        bool motion;
        int lengthEnd, steps, lengthsPerStep, lastLabel; // lengthEnd as the search starts
        double widthAfter;
    };
    // After a motion search the bound stays 91: an out-of-focus search then tries 90 diameters.
    for (const Grid& g : {Grid{false, 42, 41, 1, 25, 1.5}, Grid{true, 42, 42, 23, 55, 0.2},
                          Grid{false, 91, 90, 1, 55, 1.5}}) {
        SCOPED_TRACE(g.lengthEnd * 10 + g.motion);
        AutoSearch search(fakeInput(g.motion, g.lengthEnd), tinyThumbnail);
        std::vector<ProgressUpdate> updates;
        ASSERT_TRUE(search.run([&](const ProgressUpdate& u) { updates.push_back(u); }));
        ASSERT_EQ(search.results.size(), size_t(g.steps * g.lengthsPerStep));
        for (int k = 0; k < int(search.results.size()); ++k) {
            const AutoResult& r = search.results[size_t(k)];
            EXPECT_EQ(r.searchedLength, g.motion ? 1 + 4 * (k % 23) : k + 1) << k;
            EXPECT_FLOAT_EQ(r.angle, g.motion ? float(8 * (k / 23)) : -45.0f) << k;
        }
        EXPECT_EQ(search.results[g.motion ? 5 : 20].labelLength, 13) << "13/21 of length 21";
        EXPECT_EQ(search.results.back().labelLength, g.lastLabel);

        ASSERT_EQ(updates.size(), size_t(g.steps));
        EXPECT_TRUE(updates.back().last && !updates[g.steps - 2].last);
        EXPECT_EQ(updates.back().remaining, 0.0);
        // Out of focus counts the step just done, motion the angles before the one just done.
        EXPECT_FLOAT_EQ(updates.back().fraction, g.motion ? 41.0f / 42 : 1.0f);
        EXPECT_EQ(search.counters.lengthEnd, g.motion ? 91 : g.lengthEnd);
        EXPECT_DOUBLE_EQ(search.shown.currentAngle, g.motion ? 328 : -45);
        EXPECT_DOUBLE_EQ(search.shown.currentWidth, g.widthAfter);
    }
}

TEST(AutoSearch, CancelStopsAfterTheStepUnderWay) {
    for (const bool motion : {false, true}) {
        AutoSearch search(fakeInput(motion, 42), tinyThumbnail);
        int updates = 0;
        EXPECT_FALSE(
            search.run([&](const ProgressUpdate&) { ++updates; }, [&] { return updates == 3; }));
        EXPECT_EQ(search.results.size(), motion ? 3u * 23 : 3u);
    }
}

// The padding and the crop fix which pixels a thumbnail shows: their sizes and the crop's
// corner (one row lower than it is to the right) are pinned for every border stage.
TEST(AutoSearch, AutoPadAndThumbnailCropAtEveryBorderStage) {
    struct Stage {
        int first, last, padded, pad, cropAt512, leftAt512, cropPadded, leftPadded;
    };
    const cv::Mat plane(512, 512, CV_8U, cv::Scalar(7));
    AutoSearch search(SearchInput{});
    for (const Stage& s :
         {Stage{1, 22, 712, 143, 208, 151, 321, 195}, Stage{23, 47, 768, 170, 193, 159, 337, 215},
          Stage{48, 72, 824, 193, 180, 165, 356, 233}, Stage{73, 89, 880, 214, 168, 172, 375, 252}})
        for (const int length : {s.first, s.last}) {
            SCOPED_TRACE(length);
            search.counters.length = length;
            int pad = 0;
            const cv::Mat padded = search.addAutoPad(plane, 0.1, &pad);
            EXPECT_EQ(padded.size(), cv::Size(s.padded, s.padded));
            EXPECT_EQ(pad, s.pad);
            // Restored at 512 (keepAspect) or at the padded size.
            for (const auto& [side, crop, left] :
                 {std::tuple{512, s.cropAt512, s.leftAt512},
                  std::tuple{s.padded, s.cropPadded, s.leftPadded}}) {
                const cv::Mat cropped = AutoSearch::thumbnailCrop(cv::Mat(side, side, CV_8U), pad);
                cv::Size whole;
                cv::Point corner;
                cropped.locateROI(whole, corner);
                EXPECT_EQ(cropped.size(), cv::Size(crop, crop));
                EXPECT_EQ(corner, cv::Point(left, left + 1));
            }
        }
}

TEST(AutoSearch, ThumbnailsKeepThePicturesAspectWithALongerSideOf512) {
    for (const QSize photo : {QSize(4000, 3000), QSize(3000, 4000)}) {
        OpenedPicture opened(scenePicture(photo.width(), photo.height()));
        AutoSearch search(snapshotOf(opened.state));
        search.counters.length = 20;
        EXPECT_EQ(search.ComputateAuto().size(), photo.scaled(512, 512, Qt::KeepAspectRatio));
    }
}

TEST(AutoSearch, MotionStepsRestoredSideBySideEqualThoseRestoredAlone) {
    OpenedPicture opened(scenePicture(640, 480));
    opened.state.motionBlur = true;
    opened.state.autoAngleCount = 1; // one angle: 23 real restorations
    AutoSearch search(snapshotOf(opened.state));
    ASSERT_TRUE(search.run([](const ProgressUpdate&) {}));
    ASSERT_EQ(search.results.size(), 23u);

    AutoSearch alone(snapshotOf(opened.state));
    for (int k = 0; k < 23; k += 11) {
        alone.counters.length = 1 + 4 * k;
        EXPECT_EQ(search.results[k].thumbnail,
                  alone.ComputateAuto().convertToFormat(QImage::Format_Grayscale8))
            << k;
    }
}
