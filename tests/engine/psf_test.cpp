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

/// Where the light of a grey picture lies: bounding box of the non-black pixels and the
/// grey-weighted centroid in pixel coordinates (pixel i spans [i, i + 1]).
struct Light {
    cv::Rect box;
    double cx = 0;
    double cy = 0;
    double area = 0; // sum of coverage, in pixels
    int maxGrey = 0;
    bool partial = false; // some pixel strictly between black and white
};

Light measure(const QImage& image) {
    const cv::Mat grey = CVGrayscaleMat(image);
    Light light;
    cv::Mat mask = grey > 0;
    light.box = cv::boundingRect(mask);
    double sum = 0, sx = 0, sy = 0;
    for (int y = 0; y < grey.rows; ++y)
        for (int x = 0; x < grey.cols; ++x) {
            const int v = grey.at<uchar>(y, x);
            if (v == 0)
                continue;
            sum += v;
            sx += v * (x + 0.5);
            sy += v * (y + 0.5);
            light.maxGrey = std::max(light.maxGrey, v);
            light.partial = light.partial || v < 255;
        }
    light.area = sum / 255.0;
    if (sum > 0) {
        light.cx = sx / sum;
        light.cy = sy / sum;
    }
    return light;
}

bool allOpaque(const QImage& image) {
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (qAlpha(image.pixel(x, y)) != 255)
                return false;
    return true;
}

} // namespace

TEST(Psf, CanvasIsDefaultActiveSizeOrSmall) {
    struct Case {
        QSize active;
        bool small;
        QSize expected;
    };
    for (const Case& c : {Case{{}, false, {128, 128}}, Case{{300, 200}, false, {300, 200}},
                          Case{{}, true, {256, 256}}, Case{{300, 200}, true, {256, 256}},
                          Case{kWorking, true, {256, 256}}}) {
        for (bool motion : {false, true}) {
            SCOPED_TRACE(testing::Message() << c.active.width() << "x" << c.active.height()
                                            << " small " << c.small << " motion " << motion);
            const QImage psf = MakePsfD(10.0f, -45.0, 0.2, c.small, motion, c.active);
            EXPECT_EQ(psf.size(), c.expected);
            EXPECT_EQ(psf.depth(), 32);
        }
    }
}

TEST(Psf, DiskIsCentredAntialiasedAndOfTheGivenDiameter) {
    const QImage psf = MakePsfD(10.0f, -45.0, 0.2, false, false, kWorking);
    ASSERT_EQ(psf.size(), kWorking);
    EXPECT_TRUE(allOpaque(psf));
    const Light light = measure(psf);
    // Antialiased edge pixels may reach one pixel beyond the exact 10-pixel span.
    EXPECT_GE(light.box.width, 10);
    EXPECT_LE(light.box.width, 12);
    EXPECT_GE(light.box.height, 10);
    EXPECT_LE(light.box.height, 12);
    EXPECT_NEAR(light.cx, 1024.0, 0.05);
    EXPECT_NEAR(light.cy, 1024.0, 0.05);
    EXPECT_NEAR(light.area, std::numbers::pi * 25.0, 0.05 * std::numbers::pi * 25.0);
    EXPECT_EQ(light.maxGrey, 255);
    EXPECT_TRUE(light.partial) << "edges should be coverage-weighted";
}

TEST(Psf, DiskIgnoresWidthAndAngle) {
    const QImage reference = MakePsfD(17.0f, -45.0, 0.2, false, false, {300, 300});
    for (double angle : {0.0, 30.0, 90.0})
        for (double width : {0.2, 3.0, 20.0}) {
            SCOPED_TRACE(testing::Message() << "angle " << angle << " width " << width);
            EXPECT_EQ(MakePsfD(17.0f, angle, width, false, false, {300, 300}), reference);
        }
}

TEST(Psf, MotionLineFollowsTheAngle) {
    const double expectedLength = 10.0 * std::sqrt(2.0);
    struct Case {
        double angle;
        bool vertical;
    };
    for (const Case& c : {Case{-45.0, true}, Case{45.0, false}, Case{135.0, true}}) {
        SCOPED_TRACE(testing::Message() << "angle " << c.angle);
        const Light light = measure(MakePsfD(10.0f, c.angle, 0.2, false, true, kWorking));
        const int along = c.vertical ? light.box.height : light.box.width;
        const int across = c.vertical ? light.box.width : light.box.height;
        EXPECT_GE(along, 14);
        EXPECT_LE(along, 16);
        EXPECT_LE(across, 2);
        // The covered area of a 0.2-wide line is its length times 0.2; the rasteriser's coverage
        // of such a thin shape runs a few percent low.
        EXPECT_NEAR(light.area / 0.2, expectedLength, 0.08 * expectedLength);
        EXPECT_NEAR(light.cx, 1024.0, 0.05);
        EXPECT_NEAR(light.cy, 1024.0, 0.05);
    }
}

TEST(Psf, DiagonalLineAtAngleZero) {
    // Angle 0 leaves the rising diagonal: top-right to bottom-left in image rows.
    const Light light = measure(MakePsfD(20.0f, 0.0, 1.0, false, true, {256, 256}));
    EXPECT_NEAR(light.box.width, 20, 2);
    EXPECT_NEAR(light.box.height, 20, 2);
    const cv::Mat grey = CVGrayscaleMat(MakePsfD(20.0f, 0.0, 1.0, false, true, {256, 256}));
    EXPECT_GT(grey.at<uchar>(128 - 8, 128 + 8), 0) << "upper right of the centre";
    EXPECT_EQ(grey.at<uchar>(128 - 8, 128 - 8), 0) << "upper left of the centre";
}

TEST(Psf, HairLineIsFaintAndWideLineIsBright) {
    const Light hair = measure(MakePsfD(10.0f, -45.0, 0.2, false, true, kWorking));
    EXPECT_GT(hair.maxGrey, 0);
    EXPECT_LT(hair.maxGrey, 128) << "a 0.2-pixel line must not be drawn as a full pixel";

    const Light wide = measure(MakePsfD(10.0f, -45.0, 3.0, false, true, kWorking));
    EXPECT_EQ(wide.maxGrey, 255);
    EXPECT_GE(wide.box.width, 3);
    EXPECT_LE(wide.box.width, 4);
    EXPECT_NEAR(wide.area / 3.0, 10.0 * std::sqrt(2.0), 0.05 * 10.0 * std::sqrt(2.0));

    // The same faintness at angle 0, where the drawing transform has no rotation.
    const Light unrotated = measure(MakePsfD(10.0f, 0.0, 0.2, false, true, kWorking));
    EXPECT_LT(unrotated.maxGrey, 128);
}

TEST(Psf, ZeroLengthIsBlackAndHasNoKernel) {
    for (bool motion : {false, true}) {
        SCOPED_TRACE(testing::Message() << "motion " << motion);
        const QImage psf = MakePsfD(0.0f, -45.0, 0.2, false, motion, {64, 64});
        EXPECT_EQ(cv::countNonZero(CVGrayscaleMat(psf)), 0);
        EXPECT_TRUE(allOpaque(psf));
        EXPECT_FALSE(normalizedKernel(CVGrayscaleMat(psf)).has_value());
    }
    EXPECT_FALSE(normalizedKernel(cv::Mat()).has_value());
    // A line of no width covers nothing either.
    EXPECT_EQ(cv::countNonZero(CVGrayscaleMat(MakePsfD(10.0f, -45.0, 0.0, false, true, {64, 64}))),
              0);
}

TEST(Psf, KernelSumsToOne) {
    for (bool motion : {false, true}) {
        SCOPED_TRACE(testing::Message() << "motion " << motion);
        const cv::Mat grey = CVGrayscaleMat(MakePsfD(9.0f, 30.0, 0.7, false, motion, {97, 61}));
        const auto kernel = normalizedKernel(grey);
        ASSERT_TRUE(kernel.has_value());
        EXPECT_EQ(kernel->type(), CV_32F);
        EXPECT_EQ(kernel->size(), grey.size());
        EXPECT_NEAR(cv::sum(*kernel)[0], 1.0, 1e-5);
    }
}

TEST(Psf, KernelIsThePlaneOverItsSum) {
    const cv::Mat grey = (cv::Mat_<uchar>(2, 3) << 0, 10, 20, 30, 40, 0);
    const auto kernel = normalizedKernel(grey);
    ASSERT_TRUE(kernel.has_value());
    for (int y = 0; y < grey.rows; ++y)
        for (int x = 0; x < grey.cols; ++x)
            EXPECT_FLOAT_EQ(kernel->at<float>(y, x), grey.at<uchar>(y, x) / 100.0f);
    EXPECT_THROW(normalizedKernel(cv::Mat(2, 2, CV_32F, cv::Scalar(1))), std::invalid_argument);
}
