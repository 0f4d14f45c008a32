#include "auto/auto_search.h"
#include "engine/psf.h"
#include "jobs/job_fixtures.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>

using namespace clarovi::autosearch;
using namespace clarovi::engine;
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
    input.mainView.pad = {0.0f, 0.0035f, 0.002f, 0.008f}; // the sharpness slider's range
    return input;
}

} // namespace

TEST(AutoSearch, TriesEveryLengthAndAngleOfItsGridInOrder) {
    struct Grid {
        bool motion;
        int lengthEnd, steps, lengthsPerStep; // lengthEnd as the search starts
        double widthAfter;
    };
    // After a motion search the bound stays 91: an out-of-focus search then tries 90 diameters.
    for (const Grid& g :
         {Grid{false, 42, 41, 1, 1.5}, Grid{true, 42, 42, 23, 0.2}, Grid{false, 91, 90, 1, 1.5}}) {
        SCOPED_TRACE(g.lengthEnd * 10 + g.motion);
        AutoSearch search(fakeInput(g.motion, g.lengthEnd), tinyThumbnail);
        std::vector<ProgressUpdate> updates;
        ASSERT_TRUE(search.run([&](const ProgressUpdate& u) { updates.push_back(u); }));
        ASSERT_EQ(search.results.size(), size_t(g.steps * g.lengthsPerStep));
        for (int k = 0; k < int(search.results.size()); ++k) {
            const AutoResult& r = search.results[size_t(k)];
            EXPECT_EQ(r.searchedLength, g.motion ? 1 + 4 * (k % 23) : k + 1) << k;
            EXPECT_FLOAT_EQ(r.angle, g.motion ? float(8 * (k / 23)) : -45.0f) << k;
            EXPECT_EQ(r.motion, g.motion);
            // The label, the slider value a pick applies, grows with the length searched.
            if (k % g.lengthsPerStep > 0 || (!g.motion && k > 0)) {
                EXPECT_GT(r.labelLength, search.results[size_t(k - 1)].labelLength) << k;
            }
        }

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

// Around an estimate: lengths within 30 % of it, half a pixel apart for a disk and a pixel apart
// for a line, the line at 13 angles a degree apart; the grid's bound stays as it was.
TEST(AutoSearch, AroundAnEstimateTriesTheSettingsNearIt) {
    for (const bool motion : {false, true}) {
        SearchInput input = fakeInput(motion, 42);
        input.around = clarovi::jobs::SliderSetting{24.0f, 30.0};
        AutoSearch search(input, tinyThumbnail);
        int updates = 0;
        ASSERT_TRUE(search.run([&](const ProgressUpdate&) { ++updates; }));
        const std::vector<AutoResult>& r = search.results;
        ASSERT_EQ(r.size(), motion ? 15u * 13 : 29u);
        EXPECT_EQ(updates, motion ? 13 : 29);
        EXPECT_EQ(std::pair(r.front().labelLength, r.back().labelLength),
                  motion ? std::pair(17.0, 31.0) : std::pair(17.0, 31.0));
        EXPECT_DOUBLE_EQ(r[1].labelLength - r[0].labelLength, motion ? 1.0 : 0.5);
        EXPECT_EQ(std::pair(r.front().angle, r.back().angle),
                  motion ? std::pair(24.0f, 36.0f) : std::pair(-45.0f, -45.0f));
        EXPECT_EQ(search.counters.lengthEnd, 42);
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

namespace {

// The smallest mean difference between a and b (one size) over shifts of up to 4 pixels: the
// thumbnail's crop is placed to the pixel of its small copy, not of the main view.
double alignedDifference(const cv::Mat& a, const cv::Mat& b) {
    double least = 255;
    const cv::Rect inner(4, 4, a.cols - 8, a.rows - 8);
    for (int dy = -4; dy <= 4; ++dy)
        for (int dx = -4; dx <= 4; ++dx) {
            cv::Mat difference;
            cv::absdiff(a(inner + cv::Point(dx, dy)), b(inner), difference);
            least = std::min(least, cv::mean(difference)[0]);
        }
    return least;
}

QImage blurredSample(const char* name, bool motion, float length, double angle) {
    const cv::Mat sharp = CVGrayscaleMat(QImage(QString(CLAROVI_DATA_DIR "/") + name));
    const int canvas = 2 * int(length) + 5;
    const cv::Mat kernel = *normalizedKernel(
        CVGrayscaleMat(MakePsfD(length, angle, 1.0, false, motion, {canvas, canvas})));
    cv::Mat blurred;
    cv::filter2D(sharp, blurred, -1, kernel, {-1, -1}, 0, cv::BORDER_REFLECT);
    return imageWithCVMat(blurred);
}

} // namespace

// A pick brings back the thumbnail's restoration: the main view restored at the tile's label,
// cropped and scaled as the thumbnail was, matches the thumbnail, and better than a tenth off.
TEST(AutoSearch, APickRestoresTheMainViewAsTheThumbnailShowedIt) {
    using Tile = std::tuple<const char*, bool, int, int>; // picture, motion, length, angle index
    for (const auto& [name, motion, searched, angleIndex] :
         {Tile{"coffee-defocus.png", false, 35, 0}, Tile{"clock_motion.png", true, 41, 5}}) {
        SCOPED_TRACE(name);
        OpenedPicture opened(QImage(QString(CLAROVI_DATA_DIR "/") + name));
        opened.state.motionBlur = opened.window.motion = motion;
        AutoSearch search(snapshotOf(opened.state));
        search.counters.length = searched;
        search.counters.angleIndex = angleIndex;
        const cv::Mat thumbnail = CVGrayscaleMat(search.ComputateAuto());
        const auto differenceAt = [&](double length) {
            opened.sequences.applyPick(length, 8.0 * angleIndex, 0.2, kSearchSharpness);
            opened.jobs.auxTrueNoMultithread();
            const cv::Mat main = AutoSearch::thumbnailCrop(CVGrayscaleMat(opened.window.shown), 0);
            cv::Mat scaled;
            cv::resize(main, scaled, thumbnail.size(), 0, 0, cv::INTER_AREA);
            return alignedDifference(scaled, thumbnail);
        };
        const double label = search.sliderLengthOf(searched);
        const double atLabel = differenceAt(label);
        EXPECT_LT(atLabel, 5.5);
        EXPECT_LT(atLabel, differenceAt(label * 0.9));
        EXPECT_LT(atLabel, differenceAt(label * 1.1));
    }
}

// Searching around a rough estimate, the best score falls on the blur put into the picture.
TEST(AutoSearch, TheBestScoreFallsNearTheBlurPutIn) {
    using Blur = std::tuple<bool, float, double, double, double>; // motion, length, angle, offsets
    for (const auto& [motion, length, angle, longer, turned] :
         {Blur{false, 6, 0, 1.2, 0}, Blur{true, 8, -30, 0.85, -4}, Blur{true, 10, 80, 1.1, 3}}) {
        SCOPED_TRACE(length);
        OpenedPicture opened(blurredSample("camera.png", motion, length, angle));
        opened.state.motionBlur = motion;
        // The sample is 512 pixels wide: its blur is four times longer on the working picture.
        const clarovi::jobs::SliderSetting right = clarovi::jobs::settingFor(
            shapeOf(motion ? BlurKind::Motion : BlurKind::OutOfFocus, 4 * length, angle),
            opened.state);
        AutoSearch search(
            snapshotOf(opened.state, clarovi::jobs::SliderSetting{right.length * float(longer),
                                                                  right.angle + turned}));
        ASSERT_TRUE(search.run([](const ProgressUpdate&) {}));
        const AutoResult& best = *std::max_element(
            search.results.begin(), search.results.end(),
            [](const AutoResult& a, const AutoResult& b) { return a.score < b.score; });
        EXPECT_NEAR(best.labelLength, right.length, 0.08 * right.length);
        EXPECT_NEAR(motion ? best.angle : right.angle, right.angle, 2.5);
    }
}
