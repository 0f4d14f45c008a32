#include "engine/image_bridge.h"
#include "engine/plane_restorer.h"
#include "engine/psf.h"
#include "engine/shake_kernel.h"

#include "common/scenes.h"
#include "common/shake_paths.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <string>

namespace {

using namespace clarovi::engine;

struct NamedKernel {
    std::string name;
    cv::Mat kernel;
};

std::vector<NamedKernel> drawnKernels() {
    return {{"streak", MakePsfD({BlurKind::Motion, 23.5, 31, 1}, 1.0)},
            {"disk", MakePsfD({BlurKind::OutOfFocus, 14, 0, 1}, 1.0)},
            {"shake", clarovi::testing::randomShake(19, 4)}};
}

/// kernel's picture as a file holds it, read back and laid on a frame of kernel's size (the
/// picture leaves out a drawn kernel's empty border).
cv::Mat throughPicture(const cv::Mat& kernel) {
    QString error;
    const cv::Mat loaded = kernelFromPicture(kernelPicture(kernel), &error);
    EXPECT_TRUE(error.isEmpty()) << error.toStdString();
    const int border = (kernel.rows - loaded.rows) / 2;
    cv::Mat framed;
    cv::copyMakeBorder(loaded, framed, border, border, border, border, cv::BORDER_CONSTANT);
    return framed;
}

// 8-bit levels put each weight within half a level of the largest weight's 255; scaling back to
// sum 1 moves them by as little again.
TEST(ShakeKernel, PictureRoundTripKeepsTheKernelWithinItsLevels) {
    for (const auto& [name, kernel] : drawnKernels()) {
        SCOPED_TRACE(name);
        const cv::Mat loaded = throughPicture(kernel);
        ASSERT_EQ(loaded.size(), kernel.size());
        double largest = 0;
        cv::minMaxLoc(kernel, nullptr, &largest);
        EXPECT_LE(cv::norm(loaded, kernel, cv::NORM_INF), largest / 255);
        EXPECT_NEAR(cv::sum(loaded)[0], 1.0, 1e-5);
    }
}

TEST(ShakeKernel, LoadedKernelRestoresAsTheDrawnOne) {
    const cv::Mat scene = clarovi::testing::deadLeaves({300, 200}, 2000);
    for (const auto& [name, kernel] : drawnKernels()) {
        SCOPED_TRACE(name);
        const cv::Mat blurred = clarovi::testing::blurredWithNoise(scene, kernel, 1.0);
        const cv::Mat drawn = PlaneRestorer(kernel, blurred.size(), {}).restore(blurred);
        const cv::Mat loaded =
            PlaneRestorer(throughPicture(kernel), blurred.size(), {}).restore(blurred);
        EXPECT_GT(clarovi::testing::psnr(drawn, loaded), 45.0);
    }
}

// Peak of the normalised cross-correlation of two kernels over every shift.
double matched(const cv::Mat& a, const cv::Mat& b) {
    cv::Mat frame, scores;
    cv::copyMakeBorder(a, frame, b.rows, b.rows, b.cols, b.cols, cv::BORDER_CONSTANT);
    cv::matchTemplate(frame, b, scores, cv::TM_CCORR_NORMED);
    double best = 0;
    cv::minMaxLoc(scores, nullptr, &best);
    return best;
}

// A shake made of a drawn blur's kernel is, on every copy, that blur's kernel on the copy.
TEST(ShakeKernel, ScalesToACopyAsTheDrawnBlursDo) {
    for (const BlurOnPhoto& drawn :
         {BlurOnPhoto{BlurKind::Motion, 30, 20, 1}, BlurOnPhoto{BlurKind::OutOfFocus, 20}}) {
        const BlurOnPhoto shake =
            BlurOnPhoto::shake(std::make_shared<const cv::Mat>(MakePsfD(drawn, 1.0)));
        EXPECT_EQ(shake.extent(), cv::Point2d(MakePsfD(drawn, 1.0).size()));
        for (const double scale : {2.0, 1.0, 0.5, 0.25}) {
            SCOPED_TRACE(testing::Message() << drawn.length << " at scale " << scale);
            const cv::Mat copy = MakePsfD(shake, scale), expected = MakePsfD(drawn, scale);
            EXPECT_NEAR(cv::sum(copy)[0], 1.0, 1e-5);
            // Resampled, a one-pixel line spreads over more pixels than one drawn anew.
            EXPECT_GT(matched(copy, expected), scale == 1 ? 0.999 : 0.9);
        }
    }
    EXPECT_THROW(MakePsfD({BlurKind::Shake, 10}, 1.0), std::invalid_argument);
}

TEST(ShakeKernel, IsCentredOnItsMassAndCutToItsSupport) {
    // Two dots, the heavier three times the lighter, in a frame much larger than they span.
    cv::Mat picture = cv::Mat::zeros(60, 90, CV_8U);
    picture.at<uchar>(20, 30) = 240;
    picture.at<uchar>(20, 38) = 80;
    const cv::Mat kernel = kernelFromPicture(imageWithCVMat(picture));
    // The centre of mass is at x = 32: the square reaches from the lighter dot 6 pixels right
    // to as far left.
    ASSERT_EQ(kernel.size(), cv::Size(13, 13));
    EXPECT_FLOAT_EQ(kernel.at<float>(6, 4), 0.75f);
    EXPECT_FLOAT_EQ(kernel.at<float>(6, 12), 0.25f);
}

TEST(ShakeKernel, StarOnAnEvenSkyLosesTheSky) {
    const cv::Mat star = clarovi::testing::randomShake(15, 9);
    cv::Mat sky(64, 64, CV_32F, cv::Scalar(40)), noise(sky.size(), CV_32F);
    cv::RNG(3).fill(noise, cv::RNG::NORMAL, 0.0, 2.0);
    const cv::Rect middle((64 - star.cols) / 2, (64 - star.rows) / 2, star.cols, star.rows);
    double largest = 0;
    cv::minMaxLoc(star, nullptr, &largest);
    sky(middle) += star * (200 / largest);
    cv::Mat levels;
    cv::add(sky, noise, levels, cv::noArray(), CV_8U);
    const cv::Mat kernel = kernelFromPicture(imageWithCVMat(levels));
    ASSERT_FALSE(kernel.empty());
    cv::Mat matched;
    cv::Mat frame = cv::Mat::zeros(kernel.size() + star.size() * 2, CV_32F);
    kernel.copyTo(frame(cv::Rect(star.cols, star.rows, kernel.cols, kernel.rows)));
    cv::matchTemplate(frame, star, matched, cv::TM_CCORR_NORMED);
    double best = 0;
    cv::minMaxLoc(matched, nullptr, &best);
    EXPECT_GT(best, 0.95);
    EXPECT_LT(kernel.cols, 2 * star.cols) << "the sky's noise is left out, not kept as blur";
}

TEST(ShakeKernel, HostilePicturesAreRefusedWithAReason) {
    QImage frameFilled(9, 9, QImage::Format_Grayscale8);
    frameFilled.fill(200);
    const std::pair<std::string, QImage> refused[] = {
        {"null", QImage()},
        {"wide", QImage(kLargestKernelPicture + 1, 3, QImage::Format_Grayscale8)},
        {"tall", QImage(3, 4000, QImage::Format_RGB32)},
        {"black",
         [] {
             QImage black(40, 30, QImage::Format_RGB32);
             black.fill(Qt::black);
             return black;
         }()},
        {"transparent",
         [] {
             QImage clear(40, 30, QImage::Format_ARGB32);
             clear.fill(QColor(255, 255, 255, 0));
             return clear;
         }()},
    };
    for (const auto& [name, picture] : refused) {
        SCOPED_TRACE(name);
        QString error;
        EXPECT_TRUE(kernelFromPicture(picture, &error).empty());
        EXPECT_FALSE(error.isEmpty());
    }
    // A kernel that fills its frame is a box blur, not a background.
    const cv::Mat box = kernelFromPicture(frameFilled);
    ASSERT_EQ(box.size(), cv::Size(9, 9));
    EXPECT_FLOAT_EQ(box.at<float>(0, 0), 1.0f / 81);
    EXPECT_TRUE(kernelPicture(cv::Mat()).isNull());
    EXPECT_TRUE(kernelPicture(cv::Mat::zeros(3, 3, CV_32F)).isNull());
}

} // namespace
