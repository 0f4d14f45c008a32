#include "job_fixtures.h"

#include "engine/psf.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using clarovi::testing::OpenedPicture;
using clarovi::testing::scenePicture;
namespace engine = clarovi::engine;

namespace {

// Mean absolute grey difference over the central half of two pictures of one size.
double centralDifference(const QImage& a, const QImage& b) {
    const cv::Mat ga = engine::CVGrayscaleMat(a);
    const cv::Mat gb = engine::CVGrayscaleMat(b);
    const cv::Rect centre(ga.cols / 4, ga.rows / 4, ga.cols / 2, ga.rows / 2);
    return cv::norm(ga(centre), gb(centre), cv::NORM_L1) / centre.area();
}

QImage blurredBy(const QImage& picture, const QImage& psf) {
    cv::Mat colour = engine::CVMat(picture);
    const cv::Mat kernel = *engine::normalizedKernel(engine::CVGrayscaleMat(psf));
    cv::Mat blurred;
    cv::filter2D(colour, blurred, -1, kernel, cv::Point(-1, -1), 0, cv::BORDER_REPLICATE);
    cv::cvtColor(blurred, blurred, cv::COLOR_BGRA2RGBA);
    return engine::imageWithCVMat(blurred);
}

} // namespace

TEST(PreviewJob, RestoresTheWorkingPlaneAndShowsItAtDisplaySize) {
    OpenedPicture opened(scenePicture(800, 600));
    opened.jobs.auxTrueNoMultithread();
    EXPECT_EQ(opened.state.resultImage.size(), QSize(2048, 2048));
    EXPECT_EQ(opened.window.shown.size(), QSize(2048, 1536));
    EXPECT_EQ(opened.state.jobImage, opened.state.sourceImage);
    EXPECT_EQ(opened.window.settings, QStringLiteral(" Ø: 10.0 ⟷ 0.2"));
    EXPECT_EQ(opened.window.lockCount, 1);
    EXPECT_EQ(opened.window.unlockCount, 1);
    EXPECT_TRUE(opened.window.errors.isEmpty());
}

TEST(PreviewJob, WithoutKeepAspectTheResultKeepsThePaddedSizeLessTheTrim) {
    OpenedPicture opened(scenePicture(600, 400));
    opened.state.keepAspect = false;
    opened.jobs.auxTrueNoMultithread();
    const int padded = opened.state.workMat.rows;
    EXPECT_GT(padded, 2048);
    const int side = opened.state.resultImage.width();
    EXPECT_GT(side, 2048);
    EXPECT_LT(side, padded);
    EXPECT_EQ(opened.window.shown.size(), QSize(2048, 1365));
}

TEST(PreviewJob, QuickJobsNeitherLockNorUnlock) {
    OpenedPicture opened(scenePicture(600, 400));
    opened.state.autoSilent = true;
    opened.state.activeImage = opened.state.previewSourceImage;
    opened.jobs.auxTrueNoMultithread();
    EXPECT_EQ(opened.window.lockCount, 0);
    EXPECT_EQ(opened.window.unlockCount, 0);
    EXPECT_EQ(opened.state.resultImage.size(), QSize(1024, 1024));
}

TEST(PreviewJob, BringsABlurredSceneCloserToTheSharpOne) {
    const QImage sharp = scenePicture(2048, 2048);
    OpenedPicture opened(sharp);
    opened.window.length = 24;
    opened.state.eventLength = 24;
    opened.jobs.MakeMyPSFinitial();
    const QImage blurred = blurredBy(sharp, opened.state.psfImage);
    opened.state.installPicture(blurred);
    opened.state.keepAspect = true;
    opened.jobs.auxTrueNoMultithread();
    const double before = centralDifference(blurred, sharp);
    const double after = centralDifference(opened.state.resultImage, sharp);
    EXPECT_LT(after, 0.6 * before) << "before " << before << ", after " << after;
}

TEST(PreviewJob, ABlackPsfSkipsTheRestorationAndKeepsWhatIsShown) {
    OpenedPicture opened(scenePicture(600, 400));
    opened.jobs.auxTrueNoMultithread();
    const QImage before = opened.window.shown;
    opened.state.psfImage = opened.state.MakePsfD(0, 0, 0.2, false);
    opened.jobs.auxTrueNoMultithread();
    EXPECT_EQ(opened.window.shown, before);
    EXPECT_EQ(opened.window.unlockCount, 2);
    EXPECT_TRUE(opened.window.errors.isEmpty());
}

TEST(PreviewJob, NothingShownMeansNothingRestoredButTheControlsComeBack) {
    OpenedPicture opened(scenePicture(600, 400));
    opened.window.shown = QImage();
    opened.jobs.auxTrueNoMultithread();
    EXPECT_TRUE(opened.state.resultImage.isNull());
    EXPECT_TRUE(opened.window.shown.isNull());
    EXPECT_FALSE(opened.window.locked);
}

TEST(PreviewJob, AFailureIsReportedAndWhatIsShownStays) {
    OpenedPicture opened(scenePicture(600, 400));
    const QImage before = opened.window.shown;
    // A PSF canvas larger than the picture it should restore cannot be centred in it.
    opened.state.keepAspect = false;
    opened.state.activeImage = QImage(5000, 5000, QImage::Format_RGB32);
    opened.jobs.MakeMyPSFinitial();
    opened.state.activeImage = opened.state.sourceImage;
    opened.jobs.auxTrueNoMultithread();
    ASSERT_EQ(opened.window.errors.size(), 1);
    EXPECT_EQ(opened.window.shown, before);
    EXPECT_FALSE(opened.window.locked);
}

TEST(ColourJob, KeepsRedRedAndShowsTheResultAtDisplaySize) {
    QImage red(600, 400, QImage::Format_RGB32);
    red.fill(QColor(255, 0, 0));
    OpenedPicture opened(red);
    opened.jobs.runCompFalse();
    ASSERT_EQ(opened.state.resultImage.size(), QSize(2048, 2048));
    const QColor centre = opened.state.resultImage.pixelColor(1024, 1024);
    EXPECT_GT(centre.red(), 240);
    EXPECT_LT(centre.green(), 15);
    EXPECT_LT(centre.blue(), 15);
    EXPECT_EQ(opened.window.shown.size(), QSize(2048, 1365));
    EXPECT_EQ(opened.window.shown.pixelColor(1000, 600).red(), centre.red());
}

TEST(ColourJob, BuildsTheSpectrumOnlyOncePerOpenedPicture) {
    OpenedPicture opened(scenePicture(600, 400));
    opened.state.keepAspect = false;
    opened.jobs.runCompFalse();
    EXPECT_TRUE(opened.state.spectrumDrawn);
    ASSERT_FALSE(opened.state.spectrumImage.isNull());
    EXPECT_EQ(opened.state.spectrumImage.format(), QImage::Format_Grayscale8);

    // With keepAspect the picture and the PSF have one size: a single value, no spectrum, and
    // no second try for this picture.
    OpenedPicture square(scenePicture(600, 400));
    square.jobs.runCompFalse();
    EXPECT_TRUE(square.state.spectrumImage.isNull());
    EXPECT_TRUE(square.state.spectrumDrawn);
}

TEST(SpectrumJob, LocksAroundItAndShowsWhatItMade) {
    OpenedPicture opened(scenePicture(600, 400));
    opened.jobs.spectrumCalculation();
    EXPECT_EQ(opened.window.lockCount, 1);
    EXPECT_FALSE(opened.window.locked);
    // Right after opening the PSF canvas is the working picture's size: nothing to show.
    EXPECT_TRUE(opened.state.spectrumImage.isNull());
    EXPECT_EQ(opened.state.jobImage, opened.state.sourceImage);

    opened.state.keepAspect = false;
    opened.state.psfImage = opened.state.MakePsfD(40, 0, 0.2, true);
    opened.jobs.spectrumCalculation();
    EXPECT_EQ(opened.window.spectrum.size(), QSize(1792, 1792)) << "optimal size of 1793, even";

    opened.window.shown = QImage();
    opened.jobs.spectrumCalculation();
    EXPECT_TRUE(opened.window.spectrum.isNull());
}
