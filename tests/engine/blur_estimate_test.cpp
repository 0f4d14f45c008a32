#include "engine/blur_estimate.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>

namespace {

using namespace clarovi::engine;

/// A sharp 512-pixel sample at 1024: enlarged more, it keeps too little detail for small blurs.
cv::Mat workingPicture(const char* name) {
    const cv::Mat sample = CVGrayscaleMat(QImage(QString(CLAROVI_DATA_DIR "/") + name));
    cv::Mat working;
    cv::resize(sample, working, {1024, 1024}, 0, 0, cv::INTER_CUBIC);
    return working;
}

/// picture blurred by the kernel the sliders draw, with a little noise as a camera adds.
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

double angleError(double a, double b) {
    const double d = std::fmod(std::abs(a - b), 180.0);
    return std::min(d, 180.0 - d);
}

TEST(BlurEstimate, FindsTheKindLengthAndAngleOfKnownBlurs) {
    struct Case {
        const char* picture;
        bool motion;
        float length;
        double angle;
    };
    const Case cases[] = {
        {"camera.png", false, 8, 0},   {"astronaut.png", false, 20, 0},
        {"camera.png", false, 40, 0},  {"astronaut.png", true, 10, 0},
        {"camera.png", true, 25, 30},  {"astronaut.png", true, 50, 90},
        {"camera.png", true, 25, 170}, {"astronaut.png", true, 25, -45},
        {"camera.png", true, 10, 30},  {"camera.png", true, 50, -45},
    };
    for (const Case& c : cases) {
        const BlurEstimate found =
            estimateBlur(blurred(workingPicture(c.picture), c.motion, c.length, c.angle));
        EXPECT_EQ(found.kind, c.motion ? BlurKind::Motion : BlurKind::OutOfFocus) << c.length;
        EXPECT_NEAR(found.length, c.length, 0.1 * c.length) << c.motion << ' ' << c.angle;
        EXPECT_LT(c.motion ? angleError(found.angle, c.angle) : 0.0, 3.0) << c.angle;
        EXPECT_GT(found.confidence, 0.2) << c.motion << ' ' << c.length << ' ' << c.angle;
    }
    cv::Mat noise(1024, 1024, CV_8U);
    cv::randu(noise, 0, 256);
    const cv::Mat unblurred[] = {workingPicture("camera.png"), workingPicture("astronaut.png"),
                                 cv::Mat(1024, 1024, CV_8U, cv::Scalar(128)), noise};
    for (const cv::Mat& picture : unblurred)
        EXPECT_LT(estimateBlur(picture).confidence, 0.3) << picture.at<uchar>(0, 0);
}

} // namespace
