#include "engine/psf.h"
#include "job_fixtures.h"
#include "jobs/blur_estimation.h"
#include "jobs/psf_view.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <numbers>

using clarovi::testing::OpenedPicture;
using clarovi::testing::scenePicture;
using namespace clarovi::jobs;
namespace engine = clarovi::engine;

namespace {

double degreesOf(cv::Point2d line) {
    return std::atan2(-line.y, line.x) * 180 / std::numbers::pi;
}

} // namespace

// Fixed size shrinks the padded copy under the PSF, so the slider undoes a longer blur than its
// value; the square copy stretches a 3:2 photograph, so a disk is an ellipse on it and a line
// turns. Going to the photograph and back gives the sliders again.
TEST(BlurGeometry, SlidersAndTheBlurOnThePhotographGoBothWays) {
    for (const QSize photo : {QSize(600, 400), QSize(500, 500)}) {
        OpenedPicture opened(scenePicture(photo.width(), photo.height()));
        const double across = double(photo.height()) / photo.width(); // height / width shown
        for (const bool keepAspect : {true, false}) {
            opened.state.keepAspect = keepAspect;
            const double undone = restoredBlurLength(24, RestorationScale::of(opened.state));
            EXPECT_TRUE(keepAspect ? undone > 26 : undone == 24) << undone;
            const engine::BlurShape disk = shownBlurOf({24, 0}, false, opened.state);
            EXPECT_NEAR(disk.extent.x, undone, 1e-9);
            EXPECT_NEAR(disk.extent.y, undone * across, 1e-5);
            for (const double angle : {-89.0, -45.0, 0.0, 30.0, 90.0}) {
                SCOPED_TRACE(angle);
                const engine::BlurShape line = shownBlurOf({24, angle}, true, opened.state);
                const SliderSetting back = settingFor(line, opened.state);
                EXPECT_NEAR(back.length, 24, 0.01);
                EXPECT_NEAR(std::remainder(back.angle - angle, 180.0), 0, 1e-6);
                // MakePsfD's rising diagonal (angle 0) is flatter on a wide photograph.
                if (angle == 0.0) {
                    EXPECT_NEAR(degreesOf(line.extent), std::atan(across) * 180 / std::numbers::pi,
                                1e-5);
                }
            }
        }
    }
}

// An estimate the length slider reaches is set as it is; a longer one sets it to its end.
TEST(BlurGeometry, AnEstimateBeyondTheSlidersReachSetsItToItsEnd) {
    OpenedPicture wide(scenePicture(600, 400));
    for (const auto kind : {engine::BlurKind::OutOfFocus, engine::BlurKind::Motion})
        for (const double length : {24.0, 200.0}) {
            const EstimatedSetting found = settingOf({kind, length, 10, 0.9}, wide.state);
            EXPECT_EQ(found.beyondRange, length > 100) << length;
            EXPECT_EQ(found.setting.length == kLengthRange.maximum, length > 100) << length;
        }
}

// The PSF view shows the kernel as it lies on the photograph: never mirrored, a faint hair-line
// made white, and a small disk filling the view as much as a large one, at a larger scale.
TEST(PsfView, ShowsTheKernelAsItLiesOnThePhotographFillingTheView) {
    OpenedPicture wide(scenePicture(600, 400));
    const auto lit = [](const PsfPicture& psf) {
        cv::Mat points;
        cv::findNonZero(engine::CVGrayscaleMat(psf.picture) > 64, points);
        return points;
    };
    cv::Vec4f line;
    cv::fitLine(lit(psfViewOf(wide.state, {30, 0}, 0.2, true)), line, cv::DIST_L2, 0, 0.01, 0.01);
    const cv::Point2d direction = cv::Point2d(line[0], line[1]) * (line[0] < 0 ? -1.0 : 1.0);
    EXPECT_NEAR(degreesOf(direction), std::atan(400.0 / 600) * 180 / std::numbers::pi, 2.0)
        << "rising to the right, as flat as the photograph makes it";

    OpenedPicture square(scenePicture(500, 500));
    const PsfPicture small = psfViewOf(square.state, {10, 0}, 0.2, false);
    const PsfPicture large = psfViewOf(square.state, {100, 0}, 0.2, false);
    for (const PsfPicture* psf : {&small, &large}) {
        const cv::Rect box = cv::boundingRect(lit(*psf));
        EXPECT_GT(box.width, 0.7 * psf->picture.width()) << psf->scale;
    }
    EXPECT_GT(small.scale, 5 * large.scale);
    EXPECT_TRUE(cv::countNonZero(
                    engine::CVGrayscaleMat(psfViewOf(square.state, {0, 0}, 1, true).picture)) == 0);
}

// The spectrum view's zeros lie on the dark rings and stripes of the spectrum of a picture
// blurred by that blur: darker there than half-way between two of them.
TEST(SpectrumView, TheBlursZerosLieOnTheDarkPartsOfThePicturesSpectrum) {
    const cv::Mat sharp = engine::CVGrayscaleMat(QImage(CLAROVI_DATA_DIR "/camera.png"));
    for (const bool motion : {false, true}) {
        SCOPED_TRACE(motion);
        const auto kind = motion ? engine::BlurKind::Motion : engine::BlurKind::OutOfFocus;
        const int canvas = 40;
        const cv::Mat kernel = *engine::normalizedKernel(
            engine::CVGrayscaleMat(engine::MakePsfD(10, 20, 1, false, motion, {canvas, canvas})));
        cv::Mat blurred;
        cv::filter2D(sharp, blurred, -1, kernel, {-1, -1}, 0, cv::BORDER_REFLECT);
        OpenedPicture opened(engine::imageWithCVMat(blurred));
        opened.jobs.spectrumCalculation();
        const ShownSpectrum& spectrum = opened.window.spectrum;
        const cv::Mat picture = engine::CVGrayscaleMat(spectrum.picture);
        const double perCycle = picture.cols / (2 * spectrum.maxFrequency);
        // The 512-pixel sample is four times longer on the working picture.
        const cv::Point2d extent = engine::shapeOf(kind, 40, 20).extent;
        // Mean brightness where the k-th zero lies (k may be fractional: between zeros).
        const auto brightnessAt = [&](double k) {
            double sum = 0;
            for (int step = -20; step <= 20; ++step) {
                const double t = step * std::numbers::pi / 40;
                const cv::Point2d f =
                    motion
                        ? cv::Point2d(extent.x, extent.y) * (k / extent.dot(extent)) +
                              cv::Point2d(-extent.y, extent.x) * (0.004 * step / cv::norm(extent))
                        : cv::Point2d(std::cos(t) / extent.x, std::sin(t) / extent.y) *
                              (k / std::numbers::pi);
                sum += picture.at<uchar>(cv::Point(f * perCycle) +
                                         cv::Point(picture.cols / 2, picture.rows / 2));
            }
            return sum / 41;
        };
        const double firstZero = motion ? 1 : engine::besselJ1Zero(1);
        const double secondZero = motion ? 2 : engine::besselJ1Zero(2);
        EXPECT_LT(brightnessAt(firstZero) + 10, brightnessAt((firstZero + secondZero) / 2));
    }
}
