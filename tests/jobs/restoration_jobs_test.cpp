#include "job_fixtures.h"

#include "engine/psf.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <functional>

using clarovi::testing::OpenedPicture;
using clarovi::testing::scenePicture;
namespace engine = clarovi::engine;

namespace {

// Mean gradient magnitude over the central half of a picture: edges count, flat areas do not.
double sharpness(const QImage& picture) {
    const cv::Mat grey = engine::CVGrayscaleMat(picture);
    const cv::Mat centre =
        grey(cv::Rect(grey.cols / 4, grey.rows / 4, grey.cols / 2, grey.rows / 2));
    cv::Mat dx, dy, magnitude;
    cv::Sobel(centre, dx, CV_32F, 1, 0);
    cv::Sobel(centre, dy, CV_32F, 0, 1);
    cv::magnitude(dx, dy, magnitude);
    return cv::mean(magnitude)[0];
}

// Opens sharp blurred by the PSF that a release of the length slider at 24 draws; returns the
// blurred picture.
QImage openBlurred(OpenedPicture& opened, const QImage& sharp) {
    opened.window.length = 24;
    opened.state.eventLength = 24;
    opened.jobs.MakeMyPSFinitial();
    const cv::Mat kernel = *engine::normalizedKernel(engine::CVGrayscaleMat(opened.state.psfImage));
    cv::Mat blurred;
    cv::filter2D(engine::CVMat(sharp), blurred, -1, kernel, {-1, -1}, 0, cv::BORDER_REPLICATE);
    cv::cvtColor(blurred, blurred, cv::COLOR_BGRA2RGBA);
    opened.state.installPicture(engine::imageWithCVMat(blurred));
    return opened.state.sourceImage;
}

} // namespace

// A full run restores the working plane locked, a quick one (a drag step) the preview copy
// unlocked.
TEST(PreviewJob, RestoresTheWorkingPlaneLockedAndTheQuickCopyUnlocked) {
    for (const bool quick : {false, true}) {
        SCOPED_TRACE(quick);
        OpenedPicture opened(scenePicture(800, 600));
        opened.state.autoSilent = quick;
        if (quick)
            opened.state.activeImage = opened.state.previewSourceImage;
        opened.jobs.auxTrueNoMultithread();
        EXPECT_EQ(opened.state.resultImage.size(), quick ? QSize(1024, 1024) : QSize(2048, 2048));
        EXPECT_EQ(opened.state.jobImage, opened.state.activeImage);
        const int runs = quick ? 0 : 1;
        EXPECT_EQ(std::pair(opened.window.lockCount, opened.window.unlockCount),
                  std::pair(runs, runs));
        EXPECT_TRUE(opened.window.errors.isEmpty());
        if (!quick) {
            EXPECT_EQ(opened.window.shown.size(), QSize(2048, 1536));
            EXPECT_EQ(opened.window.settings, QStringLiteral(" Ø: 10.0 ⟷ 0.2"));
        }
    }
}

// Both restorations sharpen a blurred scene, the fixed-size one at least twofold. Without the fixed
// size the padded plane is restored at its own size, which the transform is not fast at; it must
// come out as well as the fixed-size restoration, with nothing of its border.
TEST(PreviewJob, WithoutFixedSizeRestoresAsWellAsWithIt) {
    const QImage sharp = scenePicture(2048, 2048);
    OpenedPicture opened(sharp);
    const double blurred = sharpness(openBlurred(opened, sharp));
    const cv::Mat expected = engine::CVGrayscaleMat(sharp);
    const cv::Rect centre(512, 512, 1024, 1024);
    double error[2] = {};
    for (const bool fixedSize : {true, false}) {
        SCOPED_TRACE(fixedSize);
        opened.state.keepAspect = fixedSize;
        opened.jobs.auxTrueNoMultithread();
        EXPECT_GT(sharpness(opened.state.resultImage), (fixedSize ? 2.0 : 1.5) * blurred);
        const cv::Mat restored = engine::CVGrayscaleMat(opened.state.resultImage);
        ASSERT_EQ(restored.size(), expected.size());
        error[fixedSize] = cv::norm(restored(centre), expected(centre), cv::NORM_L2) /
                           std::sqrt(double(centre.area()));
    }
    EXPECT_LE(error[false], error[true])
        << "fixed size " << error[true] << " padded " << error[false];
}

// A picture thinner than one pixel at display scale still shows, a pixel thick, in the preview and
// the live preview alike.
TEST(PreviewJob, APanoramaOnePixelHighShowsAPixelHigh) {
    OpenedPicture opened(scenePicture(2049, 1));
    opened.jobs.auxTrueNoMultithread();
    EXPECT_EQ(opened.window.shown.size(), QSize(2048, 1));
    opened.jobs.dragStep();
    EXPECT_EQ(opened.window.shown.size(), QSize(1024, 1));
    EXPECT_TRUE(opened.window.errors.isEmpty());
}

// A black PSF, nothing shown, or a PSF that cannot be centred in the picture: nothing is restored,
// what is shown stays and the controls come back; only the last is reported.
TEST(PreviewJob, WhatCannotBeRestoredKeepsWhatIsShownAndUnlocks) {
    using Spoil = std::function<void(OpenedPicture&)>;
    const std::tuple<const char*, Spoil, qsizetype> cases[] = {
        {"black PSF after a run",
         [](OpenedPicture& o) {
             o.jobs.auxTrueNoMultithread();
             o.state.psfImage = o.state.MakePsfD(0, 0, 0.2, false);
         },
         0},
        {"nothing shown", [](OpenedPicture& o) { o.window.shown = QImage(); }, 0},
        {"PSF larger than the picture",
         [](OpenedPicture& o) {
             o.state.keepAspect = false;
             o.state.activeImage = QImage(5000, 5000, QImage::Format_RGB32);
             o.state.psfImage = o.state.MakePsfD(10, 0, 0.2, false);
             o.state.activeImage = o.state.sourceImage;
         },
         1}};
    for (const auto& [name, spoil, errors] : cases) {
        SCOPED_TRACE(name);
        OpenedPicture opened(scenePicture(600, 400));
        spoil(opened);
        const QImage shown = opened.window.shown, result = opened.state.resultImage;
        opened.jobs.auxTrueNoMultithread();
        EXPECT_EQ(opened.window.shown, shown);
        EXPECT_EQ(opened.state.resultImage.cacheKey(), result.cacheKey());
        EXPECT_EQ(opened.window.errors.size(), errors);
        EXPECT_FALSE(opened.window.locked);
    }
}

// The spectrum of the picture as shown, whatever Fixed size says, cut to the frequencies with
// signal: an enlarged photograph has none near the top.
TEST(SpectrumJob, ShowsThePicturesOwnSpectrumAndClearsItWithoutAPicture) {
    OpenedPicture opened(scenePicture(600, 400));
    for (const bool keepAspect : {true, false}) {
        opened.state.keepAspect = keepAspect;
        opened.jobs.spectrumCalculation();
        const auto& [picture, band] = opened.window.spectrum;
        EXPECT_TRUE(!picture.isNull() && picture.width() == picture.height()) << keepAspect;
        EXPECT_TRUE(band > 0.05 && band < 0.4) << band;
        EXPECT_EQ(opened.state.spectrumImage, picture);
    }
    EXPECT_EQ(std::pair(opened.window.lockCount, opened.window.locked), std::pair(2, false));

    opened.window.shown = QImage();
    opened.jobs.spectrumCalculation();
    EXPECT_TRUE(opened.window.spectrum.picture.isNull());
}
