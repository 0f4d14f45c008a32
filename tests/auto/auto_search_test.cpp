#include "auto/auto_search.h"
#include "common/scenes.h"
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

QImage tinyThumbnail(const BlurOnPhoto&) {
    return QImage(4, 3, QImage::Format_Grayscale8);
}

SearchInput fakeInput(bool motion, std::optional<BlurOnPhoto> around = {}) {
    SearchInput input;
    input.setting.blur = {motion ? BlurKind::Motion : BlurKind::OutOfFocus, 10, 0, 1.5};
    input.around = around;
    return input;
}

const AutoResult& best(const std::vector<AutoResult>& results) {
    return *std::max_element(
        results.begin(), results.end(),
        [](const AutoResult& a, const AutoResult& b) { return a.score < b.score; });
}

} // namespace

// 41 diameters from 2 to 82; 42 angles across the half turn, each with 23 lengths from 4 to 92.
TEST(AutoSearch, TriesEveryBlurOfItsGridInOrder) {
    for (const bool motion : {false, true}) {
        SCOPED_TRACE(motion);
        AutoSearch search(fakeInput(motion), tinyThumbnail);
        std::vector<ProgressUpdate> updates;
        ASSERT_TRUE(search.run([&](const ProgressUpdate& u) { updates.push_back(u); }));
        const int steps = motion ? 42 : 41, perStep = motion ? 23 : 1;
        ASSERT_EQ(search.results.size(), size_t(steps * perStep));
        for (int k = 0; k < int(search.results.size()); ++k) {
            const BlurOnPhoto& blur = search.results[size_t(k)].blur;
            EXPECT_EQ(blur.kind, motion ? BlurKind::Motion : BlurKind::OutOfFocus);
            EXPECT_DOUBLE_EQ(blur.length, motion ? 4.0 * (1 + k % 23) : 2.0 * (k + 1)) << k;
            EXPECT_NEAR(blur.angle, motion ? -90.0 + (1 + k / 23) * 180.0 / 42 : 0.0, 1e-9) << k;
            EXPECT_EQ(blur.width, 1.5);
        }
        ASSERT_EQ(updates.size(), size_t(steps));
        EXPECT_TRUE(updates.back().last && !updates[steps - 2].last);
        EXPECT_EQ(updates.back().remaining, 0.0);
        EXPECT_FLOAT_EQ(updates.back().fraction, 1.0f);
    }
}

// Around an estimate: lengths within 30 % of it, half a pixel apart for a disk and a pixel apart
// for a streak, the streak at 13 angles a degree apart.
TEST(AutoSearch, AroundAnEstimateTriesTheBlursNearIt) {
    for (const bool motion : {false, true}) {
        const BlurOnPhoto estimate{motion ? BlurKind::Motion : BlurKind::OutOfFocus, 24, 88, 1};
        AutoSearch search(fakeInput(motion, estimate), tinyThumbnail);
        int updates = 0;
        ASSERT_TRUE(search.run([&](const ProgressUpdate&) { ++updates; }));
        const std::vector<AutoResult>& r = search.results;
        ASSERT_EQ(r.size(), motion ? 15u * 13 : 29u);
        EXPECT_EQ(updates, motion ? 13 : 29);
        EXPECT_EQ(std::pair(r.front().blur.length, r.back().blur.length), std::pair(17.0, 31.0));
        EXPECT_DOUBLE_EQ(r[1].blur.length - r[0].blur.length, motion ? 1.0 : 0.5);
        // A streak has no head: 94 degrees is -86.
        EXPECT_EQ(std::pair(r.front().blur.angle, r.back().blur.angle),
                  motion ? std::pair(82.0, -86.0) : std::pair(0.0, 0.0));
    }
}

TEST(AutoSearch, CancelStopsAfterTheStepUnderWay) {
    for (const bool motion : {false, true}) {
        AutoSearch search(fakeInput(motion), tinyThumbnail);
        int updates = 0;
        EXPECT_FALSE(
            search.run([&](const ProgressUpdate&) { ++updates; }, [&] { return updates == 3; }));
        EXPECT_EQ(search.results.size(), motion ? 3u * 23 : 3u);
    }
}

// A pick brings back the thumbnail's restoration: the main view of a blurred photograph restored
// at the tile's blur, cropped and brought to the thumbnail's size, matches the thumbnail, better
// than the thumbnails a tenth off (restored at a quarter of the scale, never equal to it).
TEST(AutoSearch, APickRestoresTheMainViewAsTheThumbnailShowedIt) {
    const cv::Mat sharp = clarovi::testing::deadLeaves({2048, 1365}, 12000, 9, 150);
    for (const BlurOnPhoto& blur :
         {BlurOnPhoto{BlurKind::OutOfFocus, 24}, BlurOnPhoto{BlurKind::Motion, 30, 10, 1}}) {
        OpenedPicture opened(
            imageWithCVMat(clarovi::testing::blurredWithNoise(sharp, MakePsfD(blur, 1.0), 1.0)));
        const auto differenceAt = [&](double length) {
            BlurOnPhoto tried = blur;
            tried.length = length;
            const AutoSearch search({opened.state.previewSourceImage, {tried}, {}});
            opened.jobs.auxTrueNoMultithread({blur});
            // Both at the resolution the thumbnail was restored at, before its enlargement.
            const cv::Mat shown = CVGrayscaleMat(search.thumbnail(tried));
            const cv::Size restored(shown.cols * 9 / 16, shown.rows * 9 / 16);
            cv::Mat thumbnail, main;
            cv::resize(shown, thumbnail, restored, 0, 0, cv::INTER_AREA);
            cv::resize(AutoSearch::thumbnailCrop(CVGrayscaleMat(opened.window.shown)), main,
                       restored, 0, 0, cv::INTER_AREA);
            const cv::Rect inner(4, 4, main.cols - 8, main.rows - 8);
            return cv::norm(main(inner), thumbnail(inner), cv::NORM_L1) / inner.area();
        };
        SCOPED_TRACE(blur.length);
        const double atBlur = differenceAt(blur.length);
        // The thumbnail is the classic one-pass filter, the view the edge-preserving pass.
        EXPECT_LT(atBlur, 12.0);
        EXPECT_LT(atBlur, differenceAt(blur.length * 0.9));
        EXPECT_LT(atBlur, differenceAt(blur.length * 1.1));
    }
}

// The thumbnails keep the photograph's aspect, longer side 512, and a small photograph its own
// size, as the main view does.
TEST(AutoSearch, ThumbnailsKeepThePhotographsAspect) {
    for (const auto& [photo, shown] : {std::pair(QSize(4000, 3000), QSize(512, 384)),
                                       std::pair(QSize(300, 450), QSize(300, 450))}) {
        OpenedPicture opened(scenePicture(photo.width(), photo.height()));
        const BlurOnPhoto disk{BlurKind::OutOfFocus, 20};
        const AutoSearch search({opened.state.previewSourceImage, {disk}, {}});
        EXPECT_EQ(search.thumbnail(disk).size(), shown);
    }
}

// Searching around a rough estimate, the best score falls on the blur put into the photograph.
TEST(AutoSearch, TheBestScoreFallsNearTheBlurPutIn) {
    const cv::Mat sharp = CVGrayscaleMat(QImage(CLAROVI_DATA_DIR "/camera.png"));
    using Case =
        std::tuple<BlurOnPhoto, double, double>; // the blur put in, and the estimate's error
    for (const auto& [blur, longer, turned] :
         {Case{{BlurKind::OutOfFocus, 24}, 1.2, 0}, Case{{BlurKind::Motion, 40, 80, 1}, 1.1, 3}}) {
        SCOPED_TRACE(blur.length);
        // The sample is 512 pixels wide: a working pixel is a quarter of one of its own.
        const cv::Mat blurred =
            clarovi::testing::blurredWithNoise(sharp, MakePsfD(blur, 0.25), 0.5);
        OpenedPicture opened(imageWithCVMat(blurred));
        BlurOnPhoto rough = blur;
        rough.length *= longer;
        rough.angle += turned;
        AutoSearch search({opened.state.previewSourceImage, {blur}, rough});
        ASSERT_TRUE(search.run([](const ProgressUpdate&) {}));
        const BlurOnPhoto found = best(search.results).blur;
        EXPECT_NEAR(found.length, blur.length, 0.08 * blur.length);
        EXPECT_NEAR(found.angle, blur.angle, 2.5);
    }
}
