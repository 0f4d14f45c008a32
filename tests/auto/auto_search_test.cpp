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

SearchInput fakeInput(BlurKind kind, std::optional<BlurEstimate> around = {}) {
    SearchInput input;
    input.setting.blur = {kind, 10, 0, 1.5};
    input.around = around;
    return input;
}

const AutoResult& best(const std::vector<AutoResult>& results) {
    return *std::max_element(
        results.begin(), results.end(),
        [](const AutoResult& a, const AutoResult& b) { return a.score < b.score; });
}

double anglesApart(double a, double b) {
    return std::abs(std::remainder(a - b, 180.0));
}

// Thumbnails of an edge that is the sharper, and so scores the better, the nearer a blur is to
// target: a smooth landscape of scores whose best is the target.
Restoration sharpestAt(const BlurOnPhoto& target) {
    return [target](const BlurOnPhoto& blur) {
        const double off = 30.0 * std::abs(std::log(blur.length / target.length)) +
                           anglesApart(blur.angle, target.angle);
        QImage edge(96, 64, QImage::Format_Grayscale8);
        for (int y = 0; y < edge.height(); ++y)
            for (int x = 0; x < edge.width(); ++x)
                edge.scanLine(y)[x] = uchar(std::clamp((x - 48) * 200.0 / (1.0 + off), 0.0, 200.0));
        return edge;
    };
}

} // namespace

// Whether there is a guess to go by or not, the search ends on the best blur within a degree and
// 3 %, trying each blur once, within the slider's range, with the setting's width, in no more
// than the 966 restorations the fixed grid took.
TEST(AutoSearch, RefinesToTheBestFromAGuessOrFromNone) {
    using Case = std::tuple<BlurOnPhoto, std::optional<BlurEstimate>>; // target, guess
    const BlurOnPhoto disk{BlurKind::OutOfFocus, 23.7}, streak{BlurKind::Motion, 37.3, 41.3, 1.5};
    for (const auto& [target, guess] :
         {Case{disk, std::nullopt}, Case{disk, BlurEstimate{{BlurKind::OutOfFocus, 16}, 0.3, {}}},
          Case{disk, BlurEstimate{{BlurKind::OutOfFocus, 25}, 0.8, {}}}, Case{streak, std::nullopt},
          Case{streak, BlurEstimate{{BlurKind::Motion, 28, 50, 1}, 0.3, {}}},
          Case{streak, BlurEstimate{{BlurKind::Motion, 35, 39, 1}, 0.8, {}}},
          Case{{BlurKind::Motion, 6.2, -88.6, 1.5}, std::nullopt}}) {
        SCOPED_TRACE(testing::Message() << target.length << " guess " << guess.has_value());
        AutoSearch search(fakeInput(target.kind, guess), sharpestAt(target));
        std::vector<ProgressUpdate> updates;
        ASSERT_TRUE(search.run([&](const ProgressUpdate& u) { updates.push_back(u); }));
        const std::vector<AutoResult>& tried = search.results;
        EXPECT_LE(tried.size(), 966u);
        const BlurOnPhoto found = best(tried).blur;
        EXPECT_NEAR(found.length, target.length, 0.03 * target.length);
        EXPECT_LT(anglesApart(found.angle, target.angle), 1.0);
        for (size_t k = 0; k < tried.size(); ++k) {
            const BlurOnPhoto& blur = tried[k].blur;
            EXPECT_EQ(blur.kind, target.kind);
            EXPECT_EQ(blur.width, 1.5);
            EXPECT_TRUE(clarovi::jobs::kLengthRange.contains(blur.length)) << blur.length;
            for (size_t j = 0; j < k; ++j)
                ASSERT_FALSE(std::abs(blur.length - tried[j].blur.length) < 1e-9 &&
                             anglesApart(blur.angle, tried[j].blur.angle) < 1e-9)
                    << "tried twice: " << blur.length << " at " << blur.angle;
        }
        ASSERT_FALSE(updates.empty());
        EXPECT_TRUE(updates.back().last);
        EXPECT_EQ(std::count_if(updates.begin(), updates.end(), [](auto& u) { return u.last; }), 1);
        EXPECT_EQ(updates.back().remaining, 0.0);
        EXPECT_FLOAT_EQ(updates.back().fraction, 1.0f);
        EXPECT_EQ(updates.back().step, int(tried.size()));
        EXPECT_TRUE(std::is_sorted(updates.begin(), updates.end(),
                                   [](auto& a, auto& b) { return a.fraction < b.fraction; }));
    }
}

// Without a guess given, the search estimates one in the picture: of the kind searched, or with
// kindOfGuess of any kind, which the search then takes when it is sure enough to go by.
TEST(AutoSearch, WithoutAGuessItEstimatesOneInTheKindAsked) {
    const BlurOnPhoto streak{BlurKind::Motion, 28.3, 35, 1};
    const cv::Mat picture = clarovi::testing::blurredWithNoise(
        clarovi::testing::deadLeaves({2048, 1365}, 12000, 9, 150), MakePsfD(streak, 1.0), 1.0);
    for (const bool kindOfGuess : {false, true}) {
        SearchInput input = fakeInput(BlurKind::OutOfFocus);
        input.analysisGrey = picture;
        input.kindOfGuess = kindOfGuess;
        AutoSearch search(input, sharpestAt(streak));
        ASSERT_TRUE(search.run([](const ProgressUpdate&) {}));
        EXPECT_EQ(search.kind(), kindOfGuess ? BlurKind::Motion : BlurKind::OutOfFocus);
        // No disk explains a streak well enough to search around it.
        ASSERT_EQ(search.guess().has_value(), kindOfGuess);
        if (kindOfGuess) {
            EXPECT_EQ(search.guess()->blur.kind, BlurKind::Motion);
            EXPECT_NEAR(search.guess()->blur.length, streak.length, 0.1 * streak.length);
        }
    }
}

TEST(AutoSearch, CancelStopsAfterTheStepUnderWay) {
    for (const BlurKind kind : {BlurKind::OutOfFocus, BlurKind::Motion}) {
        AutoSearch search(fakeInput(kind), sharpestAt({kind, 20}));
        int updates = 0;
        EXPECT_FALSE(
            search.run([&](const ProgressUpdate&) { ++updates; }, [&] { return updates == 3; }));
        EXPECT_EQ(search.results.size(), kind == BlurKind::Motion ? 3u * 24 : 3u);
    }
}

// The thumbnails show the most detailed part of the picture away from its frame, or the region
// marked, grown to a quarter of each side at least, at the picture's aspect.
TEST(AutoSearch, ThumbnailsShowTheDetailedPartOrTheRegion) {
    cv::Mat picture(1280, 2048, CV_8U, cv::Scalar(120));
    const cv::Rect detailed(1300, 150, 500, 400);
    clarovi::testing::deadLeaves(detailed.size(), 400, 3, 30).copyTo(picture(detailed));
    OpenedPicture opened(imageWithCVMat(picture));
    const auto partFor = [&](cv::Rect region) {
        SearchInput input{opened.state.previewSourceImage, {}, {}, {}, region, 1.0, false};
        return AutoSearch(input).thumbnailPart();
    };
    // The small copy is 512 x 320: a quarter of the working picture.
    const cv::Rect own = partFor({});
    EXPECT_EQ(own.size(), cv::Size(288, 180));
    EXPECT_EQ((own & cv::Rect(325, 38, 125, 100)).area(), 125 * 100) << "the textured patch";
    EXPECT_GE(std::min(own.x, own.y), 20) << "away from the frame";
    const cv::Rect region = partFor({200, 800, 100, 40});
    EXPECT_EQ(region.size(), cv::Size(128, 80));
    EXPECT_EQ((region & cv::Rect(50, 200, 25, 10)).area(), 25 * 10);
    EXPECT_EQ(partFor({0, 0, 2048, 1280}), cv::Rect(0, 0, 512, 320));
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
            const AutoSearch search(
                {opened.state.previewSourceImage, {tried}, {}, {}, {}, 1.0, false});
            opened.jobs.auxTrueNoMultithread({blur});
            // Both at the resolution the thumbnail was restored at, before its enlargement.
            const cv::Mat shown = CVGrayscaleMat(search.thumbnail(tried));
            const cv::Size restored = search.thumbnailPart().size();
            cv::Mat thumbnail, main;
            cv::resize(shown, thumbnail, restored, 0, 0, cv::INTER_AREA);
            const cv::Mat view = CVGrayscaleMat(opened.window.shown);
            const double toView = double(view.cols) / kThumbnailSide;
            const cv::Rect part = search.thumbnailPart();
            cv::resize(view(cv::Rect(cvRound(part.x * toView), cvRound(part.y * toView),
                                     cvRound(part.width * toView), cvRound(part.height * toView))),
                       main, restored, 0, 0, cv::INTER_AREA);
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
        const AutoSearch search({opened.state.previewSourceImage, {disk}, {}, {}, {}, 1.0, false});
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
        AutoSearch search({opened.state.previewSourceImage,
                           {blur},
                           BlurEstimate{rough, 0.8, {}},
                           {},
                           {},
                           1.0,
                           false});
        ASSERT_TRUE(search.run([](const ProgressUpdate&) {}));
        const BlurOnPhoto found = best(search.results).blur;
        EXPECT_NEAR(found.length, blur.length, 0.08 * blur.length);
        EXPECT_NEAR(found.angle, blur.angle, 2.5);
    }
}
