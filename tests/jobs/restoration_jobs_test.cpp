#include "job_fixtures.h"

#include "common/scenes.h"
#include "engine/psf.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <limits>

using clarovi::testing::OpenedPicture;
using clarovi::testing::scenePicture;
namespace engine = clarovi::engine;
namespace jobs = clarovi::jobs;

namespace {

jobs::Setting disk(double diameter) {
    return {{engine::BlurKind::OutOfFocus, diameter, 0, 1}, jobs::kSharpnessRange.initial};
}

jobs::Setting streak(double length, double angle) {
    return {{engine::BlurKind::Motion, length, angle, 1}, jobs::kSharpnessRange.initial};
}

// Kernels drawn on their own, 16 times finer and reduced, so that the truth a restoration is
// measured against owes nothing to the program's drawing. cv::circle and cv::line take sixteenths
// of a fine pixel; the kernel's centre pixel is fine pixel 16 c + 7.5.
constexpr int kFine = 16;

cv::Mat reducedKernel(const cv::Mat& fine, int side) {
    cv::Mat kernel;
    cv::resize(fine, kernel, {side, side}, 0, 0, cv::INTER_AREA);
    return kernel / cv::sum(kernel)[0];
}

cv::Mat trueDisk(double diameter) {
    const int side = 2 * int(diameter / 2 + 2) + 1;
    const int centre = cvRound((kFine * (side / 2) + 7.5) * 16);
    cv::Mat fine(kFine * side, kFine * side, CV_32F, cv::Scalar(0));
    cv::circle(fine, {centre, centre}, cvRound(diameter / 2 * kFine * 16), cv::Scalar(1),
               cv::FILLED, cv::LINE_AA, 4);
    return reducedKernel(fine, side);
}

cv::Mat trueStreak(double length, double angle) {
    const int side = 2 * int(length / 2 + 2) + 1;
    const double centre = kFine * (side / 2) + 7.5, t = angle * CV_PI / 180;
    const cv::Point2d half(0.5 * length * kFine * std::cos(t), -0.5 * length * kFine * std::sin(t));
    const auto at = [](cv::Point2d p) { return cv::Point(cvRound(p.x * 16), cvRound(p.y * 16)); };
    cv::Mat fine(kFine * side, kFine * side, CV_32F, cv::Scalar(0));
    cv::line(fine, at(cv::Point2d(centre, centre) - half), at(cv::Point2d(centre, centre) + half),
             cv::Scalar(1), kFine, cv::LINE_AA, 4);
    return reducedKernel(fine, side);
}

/// PSNR of a restoration against the sharp picture, away from the frame.
double centreQuality(const QImage& restored, const cv::Mat& sharp) {
    const cv::Mat grey = engine::CVGrayscaleMat(restored);
    const cv::Rect centre(sharp.cols / 8, sharp.rows / 8, sharp.cols * 3 / 4, sharp.rows * 3 / 4);
    return clarovi::testing::psnr(grey(centre), sharp(centre));
}

} // namespace

// The full preview restores the working copy (brought down to 2048, never enlarged) locked; a
// drag step the live copy (1024) unlocked.
TEST(PreviewJob, RestoresTheWorkingCopyLockedAndTheLiveCopyUnlocked) {
    using Case = std::tuple<QSize, QSize, QSize>; // photograph, working copy, live copy
    for (const auto& [photo, working, live] :
         {Case{{3000, 2000}, {2048, 1365}, {1024, 683}}, Case{{800, 600}, {800, 600}, {800, 600}},
          Case{{2049, 1}, {2048, 1}, {1024, 1}}}) {
        SCOPED_TRACE(photo.width());
        OpenedPicture opened(scenePicture(photo.width(), photo.height()));
        opened.jobs.auxTrueNoMultithread(disk(10));
        EXPECT_EQ(opened.window.shown.size(), working);
        EXPECT_EQ(std::pair(opened.window.lockCount, opened.window.unlockCount), std::pair(1, 1));
        EXPECT_EQ(opened.window.settings, QStringLiteral("Ø 10.0"));
        opened.jobs.dragPreview(streak(12, 30));
        EXPECT_EQ(opened.window.shown.size(), live);
        EXPECT_EQ(opened.window.lockCount, 1);
        EXPECT_EQ(opened.window.settings, QStringLiteral("12.0 px at 30.0°, width 1.0"));
        EXPECT_TRUE(opened.window.errors.isEmpty());
    }
}

// A photograph blurred by a known circular disk, or by a known streak at a known angle, comes
// back best at that disk or streak: the sliders mean the blur on the photograph, in pixels of
// the photograph brought to 2048, whatever its own size (here 1280 x 800).
TEST(PreviewJob, RestoresBestAtTheBlurOnThePhotograph) {
    const double scale = 1280.0 / engine::kWorkingSide;
    const cv::Mat sharp = clarovi::testing::deadLeaves({1280, 800}, 6000, 3, 120);
    struct Case {
        cv::Mat kernel;
        std::vector<jobs::Setting> grid;
        size_t truth;
    };
    const Case cases[] = {
        {trueDisk(20 * scale), {disk(16), disk(18), disk(20), disk(22), disk(24)}, 2},
        {trueStreak(24 * scale, 30),
         {streak(24, 30), streak(20, 30), streak(28, 30), streak(24, 24), streak(24, 36),
          streak(24, -30)},
         0}};
    for (const Case& c : cases) {
        const cv::Mat blurred = clarovi::testing::blurredWithNoise(sharp, c.kernel, 1.0);
        OpenedPicture opened(engine::imageWithCVMat(blurred));
        std::vector<double> quality;
        for (const jobs::Setting& setting : c.grid) {
            opened.jobs.auxTrueNoMultithread(setting);
            quality.push_back(centreQuality(opened.window.shown, sharp));
        }
        SCOPED_TRACE(::testing::PrintToString(quality));
        EXPECT_EQ(size_t(std::max_element(quality.begin(), quality.end()) - quality.begin()),
                  c.truth);
        EXPECT_GT(quality[c.truth], clarovi::testing::psnr(blurred, sharp) + 1.0);
    }
}

// A photograph larger than the working copy, blurred with noise at its own size: the reduced
// copies keep the noise smoothed out of their finest scale, and neither the full preview nor a
// drag step may amplify it into a picture worse than the copy of the blurred photograph.
TEST(PreviewJob, RestoresACopyOfALargerPhotographBetterThanItWasBlurred) {
    const cv::Size photo(3200, 2000);
    const cv::Mat sharp = clarovi::testing::deadLeaves(photo, 24000, 5, 200);
    for (const engine::BlurOnPhoto& blur :
         {engine::BlurOnPhoto{engine::BlurKind::Motion, 24, 30, 1},
          engine::BlurOnPhoto{engine::BlurKind::OutOfFocus, 12}}) {
        const cv::Mat blurred = clarovi::testing::blurredWithNoise(
            sharp, engine::MakePsfD(blur, engine::workingScale(photo)), 1.5);
        OpenedPicture opened(engine::imageWithCVMat(blurred));
        for (const bool drag : {false, true}) {
            SCOPED_TRACE(::testing::Message() << blur.length << (drag ? " drag" : " release"));
            if (drag)
                opened.jobs.dragPreview({blur});
            else
                opened.jobs.auxTrueNoMultithread({blur});
            const QSize shown = opened.window.shown.size();
            cv::Mat sharpCopy, blurredCopy;
            cv::resize(sharp, sharpCopy, {shown.width(), shown.height()}, 0, 0, cv::INTER_AREA);
            cv::resize(blurred, blurredCopy, {shown.width(), shown.height()}, 0, 0, cv::INTER_AREA);
            const QImage blurredShown = engine::imageWithCVMat(blurredCopy);
            EXPECT_GT(centreQuality(opened.window.shown, sharpCopy),
                      centreQuality(blurredShown, sharpCopy) + 1.0);
        }
    }
}

// Nothing shown, or a setting that cannot be drawn: nothing is restored, what is shown stays and
// the controls come back; only the failure is reported.
TEST(PreviewJob, WhatCannotBeRestoredKeepsWhatIsShownAndUnlocks) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const bool shown : {false, true}) {
        SCOPED_TRACE(shown);
        OpenedPicture opened(scenePicture(600, 400));
        if (!shown)
            opened.window.shown = QImage();
        const QImage before = opened.window.shown;
        opened.jobs.auxTrueNoMultithread(disk(nan));
        opened.jobs.auxFalse(disk(nan));
        EXPECT_EQ(opened.window.shown.cacheKey(), before.cacheKey());
        EXPECT_EQ(opened.window.errors.size(), shown ? 2 : 0);
        EXPECT_FALSE(opened.window.locked);
    }
}

// The colour restoration's luminance is the grey restoration, up to the colours' rounding.
TEST(ColourJob, RestoresTheLuminanceAsTheGreyPlane) {
    cv::Mat bgrx = engine::CVMat(scenePicture(700, 500));
    bgrx = clarovi::testing::blurredWithNoise(bgrx, engine::MakePsfD(disk(14).blur, 1.0), 1.0);
    OpenedPicture opened(engine::imageWithCVMat(bgrx));
    opened.jobs.auxFalse(disk(14));
    const QImage colour = opened.window.shown;
    opened.jobs.auxTrueNoMultithread(disk(14));
    const cv::Mat grey = engine::CVGrayscaleMat(opened.window.shown);
    EXPECT_FALSE(colour.isGrayscale());
    EXPECT_GT(clarovi::testing::psnr(engine::CVGrayscaleMat(colour), grey), 48.0);
}

// The spectrum of the photograph at the working scale, cut to the frequencies with signal: an
// enlarged photograph has none near the top.
TEST(SpectrumJob, ShowsThePhotographsOwnSpectrum) {
    OpenedPicture opened(scenePicture(600, 400));
    opened.jobs.spectrumCalculation();
    const auto& [picture, band] = opened.window.spectrum;
    EXPECT_TRUE(!picture.isNull() && picture.width() == picture.height());
    EXPECT_TRUE(band > 0.05 && band < 0.4) << band;
    EXPECT_EQ(opened.state.spectrumImage, picture);
    EXPECT_EQ(std::pair(opened.window.lockCount, opened.window.locked), std::pair(1, false));
}
