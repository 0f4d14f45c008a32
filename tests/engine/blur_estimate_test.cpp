#include "engine/blur_estimate.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"

#include "common/scenes.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <stdexcept>
#include <string>

namespace {

using namespace clarovi::engine;

const cv::Mat& deadLeaves() {
    static const cv::Mat scene = clarovi::testing::deadLeaves({2048, 1365}, 30000);
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
cv::Mat blurred(const cv::Mat& picture, bool motion, double length, double angle) {
    const BlurKind kind = motion ? BlurKind::Motion : BlurKind::OutOfFocus;
    return clarovi::testing::blurredWithNoise(picture, MakePsfD({kind, length, angle, 1.0}, 1.0),
                                              1.0);
}

double angleApart(double a, double b) {
    const double d = std::fmod(std::abs(a - b), 180.0);
    return std::min(d, 180.0 - d);
}

TEST(BlurEstimate, FindsTheKindLengthAndAngleOfClearBlurs) {
    const cv::Mat leaves = deadLeaves();
    struct Case {
        bool motion;
        double length;
        double angle; // counter-clockwise from horizontal; a streak at 134 is one at -46
    };
    const Case cases[] = {
        {false, 12, 0},    {false, 24, 0},    {false, 85, 0},
        {true, 11.3, 15},  {true, 22.6, 45},  {true, 42.4, -134},
        {true, 63.6, -47}, {true, 84.9, -42}, {true, 141.4, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.motion ? "streak " : "disk ") + std::to_string(c.length) +
                     " at " + std::to_string(c.angle));
        const BlurEstimate found = estimateBlur(blurred(leaves, c.motion, c.length, c.angle));
        EXPECT_EQ(found.blur.kind, c.motion ? BlurKind::Motion : BlurKind::OutOfFocus);
        EXPECT_NEAR(found.blur.length, c.length, 0.08 * c.length);
        EXPECT_LT(angleApart(found.blur.angle, c.angle), 2.0);
        EXPECT_GE(found.confidence, kClearBlurConfidence);
    }
    // The sample the program opens: a disk of 7 pixels at its own 600 x 400, 23.9 at 2048.
    const BlurEstimate coffee = estimateBlur(workingSample("coffee-defocus.png"));
    EXPECT_EQ(coffee.blur.kind, BlurKind::OutOfFocus);
    EXPECT_NEAR(coffee.blur.length, 23.9, 1.5);
    EXPECT_GE(coffee.confidence, kClearBlurConfidence);
    // A small photograph shaken along a vertical streak of 35 pixels, then enlarged four times.
    const cv::Mat camera = CVGrayscaleMat(QImage(CLAROVI_DATA_DIR "/camera.png"));
    cv::Mat shaken;
    cv::resize(blurred(camera, true, 35.4, 90), shaken, {2048, 2048}, 0, 0, cv::INTER_CUBIC);
    const BlurEstimate streak = estimateBlur(shaken);
    EXPECT_EQ(streak.blur.kind, BlurKind::Motion);
    EXPECT_NEAR(streak.blur.length, 141.4, 11);
    EXPECT_LT(angleApart(streak.blur.angle, 90), 2.0);
    EXPECT_GE(streak.confidence, kClearBlurConfidence);
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
            EXPECT_LT(estimateBlur(picture, {wanted, {}, 1.0}).confidence,
                      0.5 * kClearBlurConfidence);
        }
}

TEST(BlurEstimate, WantedRestrictsTheKind) {
    const cv::Mat streak = blurred(deadLeaves(), true, 28.3, 35);
    const BlurEstimate asStreak = estimateBlur(streak, {KindWanted::Motion, {}, 1.0});
    const BlurEstimate asDisk = estimateBlur(streak, {KindWanted::OutOfFocus, {}, 1.0});
    EXPECT_EQ(asStreak.blur.kind, BlurKind::Motion);
    EXPECT_NEAR(asStreak.blur.length, 28.3, 2.3);
    EXPECT_EQ(asDisk.blur.kind, BlurKind::OutOfFocus);
    EXPECT_EQ(asDisk.blur.angle, 0.0);
    EXPECT_LT(asDisk.confidence, kClearBlurConfidence);
}

// A streak on a textured part of an otherwise flat sky is found where it lies, whether that part
// is given as the region or the estimate picks it, and the region read holds it; the flat rest
// alone shows nothing.
TEST(BlurEstimate, ReadsTheRegionGivenOrTheDetailedPartOfAFlatPicture) {
    cv::Mat sky(1365, 2048, CV_8U, cv::Scalar(150));
    const cv::Rect patch(1100, 300, 800, 700);
    blurred(deadLeaves(), true, 24, 30)(cv::Rect({0, 0}, patch.size())).copyTo(sky(patch));
    cv::Mat noise(sky.size(), CV_8U);
    cv::randn(noise, 0, 1);
    sky += noise;
    using Case = std::pair<cv::Rect, bool>; // region asked, a streak to find there
    for (const auto& [asked, found] :
         {Case{{}, true}, Case{{1200, 400, 500, 400}, true}, Case{{100, 800, 600, 400}, false}}) {
        SCOPED_TRACE(asked.x);
        const BlurEstimate estimate = estimateBlur(sky, {KindWanted::Any, asked, 1.0});
        EXPECT_EQ(estimate.confidence >= kClearBlurConfidence, found);
        if (!found)
            continue;
        EXPECT_EQ(estimate.blur.kind, BlurKind::Motion);
        EXPECT_NEAR(estimate.blur.length, 24, 2);
        EXPECT_LT(angleApart(estimate.blur.angle, 30), 2.0);
        EXPECT_GT((estimate.region & patch).area(), estimate.region.area() / 2);
    }
}

TEST(BlurEstimate, TinyPicturesGiveNothingAndOtherDepthsThrow) {
    const BlurEstimate tiny = estimateBlur(cv::Mat(63, 500, CV_8U, cv::Scalar(9)));
    EXPECT_EQ(tiny.blur.length, 0.0);
    EXPECT_EQ(tiny.confidence, 0.0);
    EXPECT_THROW(estimateBlur(cv::Mat(100, 100, CV_16U)), std::invalid_argument);
}

} // namespace
