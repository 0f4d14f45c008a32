#include "engine/image_bridge.h"
#include "engine/psf.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <numbers>

using clarovi::engine::CVGrayscaleMat;
using clarovi::engine::MakePsfD;
using clarovi::engine::normalizedKernel;

namespace {

const QSize kWorking(2048, 2048);

/// Where the light of a grey picture lies: bounding box, covered area in pixels, brightest grey,
/// and how far its grey-weighted centroid is from the canvas centre (pixel i spans [i, i + 1]).
struct Light {
    cv::Rect box;
    double area, maxGrey, offCentre;
};

Light measure(const QImage& image) {
    const cv::Mat grey = CVGrayscaleMat(image);
    const cv::Moments m = cv::moments(grey);
    Light light{
        cv::boundingRect(grey), m.m00 / 255.0, 0.0,
        std::hypot(m.m10 / m.m00 + 0.5 - grey.cols / 2, m.m01 / m.m00 + 0.5 - grey.rows / 2)};
    cv::minMaxLoc(grey, nullptr, &light.maxGrey);
    return light;
}

} // namespace

TEST(Psf, CanvasIsDefaultActiveSizeOrSmall) {
    using Case = std::tuple<QSize, bool, QSize>; // active picture, small, canvas
    for (const auto& [active, small, canvas] :
         {Case{{}, false, {128, 128}}, Case{{300, 200}, false, {300, 200}},
          Case{{}, true, {256, 256}}, Case{kWorking, true, {256, 256}}})
        for (bool motion : {false, true})
            EXPECT_EQ(MakePsfD(10.0f, -45.0, 0.2, small, motion, active).size(), canvas)
                << active.width() << " small " << small << " motion " << motion;
}

TEST(Psf, DiskIsCentredAntialiasedOfTheGivenDiameterAndIgnoresWidthAndAngle) {
    const QImage psf = MakePsfD(10.0f, -45.0, 0.2, false, false, kWorking);
    const Light light = measure(psf);
    // Antialiased edge pixels may reach one pixel beyond the exact 10-pixel span.
    EXPECT_NEAR(light.box.width, 11, 1);
    EXPECT_NEAR(light.box.height, 11, 1);
    EXPECT_LE(light.offCentre, 0.05);
    EXPECT_NEAR(light.area, std::numbers::pi * 25.0, 0.05 * std::numbers::pi * 25.0);
    EXPECT_EQ(light.maxGrey, 255);
    const cv::Mat grey = CVGrayscaleMat(psf);
    EXPECT_GT(cv::countNonZero((grey > 0) & (grey < 255)), 0) << "coverage-weighted edges";
    for (double angle : {0.0, 90.0})
        for (double width : {3.0, 20.0})
            EXPECT_EQ(MakePsfD(10.0f, angle, width, false, false, kWorking), psf) << angle << width;
}

TEST(Psf, HairLineFollowsTheAngleFaintButVisible) {
    for (const double angle : {-45.0, 45.0}) {
        SCOPED_TRACE(testing::Message() << "angle " << angle);
        const Light light = measure(MakePsfD(10.0f, angle, 0.2, false, true, kWorking));
        const cv::Size box =
            angle < 0 ? light.box.size() : cv::Size(light.box.height, light.box.width);
        EXPECT_NEAR(box.height, 15, 1); // 10 * sqrt(2) along the line
        EXPECT_LE(box.width, 2);        // and one or two pixels across it
        EXPECT_LE(light.offCentre, 0.05);
        EXPECT_GT(light.maxGrey, 0);
        EXPECT_LT(light.maxGrey, 128) << "a 0.2-pixel line must not be drawn as a full pixel";
    }
}

TEST(Psf, KernelIsThePlaneOverItsSumAndAZeroLengthIsBlackWithNone) {
    for (bool motion : {false, true}) {
        SCOPED_TRACE(testing::Message() << "motion " << motion);
        const cv::Mat black = CVGrayscaleMat(MakePsfD(0.0f, -45.0, 0.2, false, motion, {64, 64}));
        EXPECT_EQ(cv::countNonZero(black), 0);
        EXPECT_FALSE(normalizedKernel(black).has_value());

        const cv::Mat grey = CVGrayscaleMat(MakePsfD(9.0f, 30.0, 0.7, false, motion, {97, 61}));
        const auto kernel = normalizedKernel(grey);
        ASSERT_TRUE(kernel.has_value() && kernel->type() == CV_32F);
        EXPECT_LE(cv::norm(*kernel * cv::sum(grey)[0], cv::Mat_<float>(grey), cv::NORM_INF), 1e-3);
    }
    EXPECT_FALSE(normalizedKernel(cv::Mat()).has_value());
    EXPECT_THROW(normalizedKernel(cv::Mat(2, 2, CV_32F, cv::Scalar(1))), std::invalid_argument);
}
