#include "engine/blur_estimate.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <stdexcept>
#include <string>

namespace {

using namespace clarovi::engine;

/// A sharp 3:2 scene at the working size: overlapping disks of random grey with sizes spread as
/// in natural pictures ("dead leaves"), so that it has detail up to the highest frequencies.
cv::Mat makeDeadLeaves() {
    cv::RNG rng(7);
    cv::Mat scene(1365, 2048, CV_8U, cv::Scalar(128));
    for (int i = 0; i < 30000; ++i) {
        // Radii from 2 to 300 with density r^-3, drawn by inverting its distribution.
        const double r = 1.0 / std::sqrt(0.25 - rng.uniform(0.0, 1.0) * (0.25 - 1.0 / 90000.0));
        const cv::Point centre(rng.uniform(0, scene.cols) * 16, rng.uniform(0, scene.rows) * 16);
        cv::circle(scene, centre, static_cast<int>(r * 16), cv::Scalar(rng.uniform(0, 256)),
                   cv::FILLED, cv::LINE_AA, 4);
    }
    return scene;
}

const cv::Mat& deadLeaves() {
    static const cv::Mat scene = makeDeadLeaves();
    return scene;
}

/// A sample photograph enlarged to the working size, longer side 2048, as the program does.
cv::Mat workingSample(const std::string& name) {
    const cv::Mat sample =
        CVGrayscaleMat(QImage(QString::fromStdString(CLAROVI_DATA_DIR "/" + name)));
    const double scale = 2048.0 / std::max(sample.cols, sample.rows);
    cv::Mat working;
    cv::resize(sample, working, {}, scale, scale, cv::INTER_CUBIC);
    return working;
}

/// picture blurred by the kernel the sliders draw, with a camera's noise of one grey level.
cv::Mat blurred(const cv::Mat& picture, bool motion, float length, double angle) {
    const int canvas = 2 * static_cast<int>(length) + 3;
    const auto kernel = normalizedKernel(
        CVGrayscaleMat(MakePsfD(length, angle, 1.0, false, motion, {canvas, canvas})));
    cv::Mat smooth, noise(picture.size(), CV_32F);
    cv::filter2D(picture, smooth, CV_32F, *kernel, {-1, -1}, 0, cv::BORDER_REFLECT);
    cv::randn(noise, 0.0, 1.0);
    smooth += noise;
    smooth.convertTo(smooth, CV_8U);
    return smooth;
}

double angleApart(double a, double b) {
    const double d = std::fmod(std::abs(a - b), 180.0);
    return std::min(d, 180.0 - d);
}

TEST(BlurEstimate, FindsTheKindLengthAndAngleOfClearBlurs) {
    const cv::Mat leaves = deadLeaves();
    struct Case {
        bool motion;
        float length;
        double angle;
        double expectedAngle; // slider angles name a line two ways: 179 is -1
    };
    const Case cases[] = {
        {false, 12, 0, 0},    {false, 24, 0, 0},  {false, 85, 0, 0},
        {true, 8, 30, 30},    {true, 16, 0, 0},   {true, 30, 179, -1},
        {true, 45, -88, -88}, {true, 60, 87, 87}, {true, 100, 45, 45},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.motion ? "line " : "disk ") + std::to_string(c.length) + " at " +
                     std::to_string(c.angle));
        const BlurEstimate found = estimateBlur(blurred(leaves, c.motion, c.length, c.angle));
        EXPECT_EQ(found.kind, c.motion ? BlurKind::Motion : BlurKind::OutOfFocus);
        EXPECT_NEAR(found.length, c.length, 0.08 * c.length);
        EXPECT_LT(angleApart(found.angle, c.expectedAngle), 2.0);
        EXPECT_GE(found.confidence, kClearBlurConfidence);
    }
    // The sample the program opens: a disk of 7 pixels at its own 600 x 400, 23.9 at 2048.
    const BlurEstimate coffee = estimateBlur(workingSample("coffee-defocus.png"));
    EXPECT_EQ(coffee.kind, BlurKind::OutOfFocus);
    EXPECT_NEAR(coffee.length, 23.9, 1.5);
    EXPECT_GE(coffee.confidence, kClearBlurConfidence);
    // A small photograph shaken along a line of 25 pixels, then enlarged four times.
    const cv::Mat camera = CVGrayscaleMat(QImage(CLAROVI_DATA_DIR "/camera.png"));
    cv::Mat shaken;
    cv::resize(blurred(camera, true, 25, 45), shaken, {2048, 2048}, 0, 0, cv::INTER_CUBIC);
    const BlurEstimate line = estimateBlur(shaken);
    EXPECT_EQ(line.kind, BlurKind::Motion);
    EXPECT_NEAR(line.length, 100, 8);
    EXPECT_LT(angleApart(line.angle, 45), 2.0);
    EXPECT_GE(line.confidence, kClearBlurConfidence);
}

TEST(BlurEstimate, SharpFlatAndNoisePicturesFindNoBlur) {
    cv::Mat noise(1365, 2048, CV_8U);
    cv::randu(noise, 0, 256);
    const cv::Mat pictures[] = {deadLeaves(), workingSample("camera.png"),
                                workingSample("astronaut.png"),
                                cv::Mat(1365, 2048, CV_8U, cv::Scalar(128)), noise};
    for (const cv::Mat& picture : pictures)
        for (KindWanted wanted : {KindWanted::Any, KindWanted::OutOfFocus, KindWanted::Motion}) {
            SCOPED_TRACE(std::to_string(picture.cols) + " x " + std::to_string(picture.rows) +
                         " wanting " + std::to_string(static_cast<int>(wanted)));
            EXPECT_LT(estimateBlur(picture, wanted).confidence, 0.5 * kClearBlurConfidence);
        }
}

TEST(BlurEstimate, WantedRestrictsTheKind) {
    const cv::Mat line = blurred(deadLeaves(), true, 20, 10);
    const BlurEstimate asLine = estimateBlur(line, KindWanted::Motion);
    const BlurEstimate asDisk = estimateBlur(line, KindWanted::OutOfFocus);
    EXPECT_EQ(asLine.kind, BlurKind::Motion);
    EXPECT_NEAR(asLine.length, 20, 1.6);
    EXPECT_EQ(asDisk.kind, BlurKind::OutOfFocus);
    EXPECT_EQ(asDisk.angle, 0.0);
    EXPECT_LT(asDisk.confidence, kClearBlurConfidence);
}

TEST(BlurEstimate, TinyPicturesGiveNothingAndOtherDepthsThrow) {
    const BlurEstimate tiny = estimateBlur(cv::Mat(63, 500, CV_8U, cv::Scalar(9)));
    EXPECT_EQ(tiny.length, 0.0);
    EXPECT_EQ(tiny.confidence, 0.0);
    EXPECT_THROW(estimateBlur(cv::Mat(100, 100, CV_16U)), std::invalid_argument);
}

} // namespace
