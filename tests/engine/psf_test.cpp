#include "engine/psf.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>

namespace {

using namespace clarovi::engine;

/// The second moments of a kernel about its centre pixel, and how far its centroid is from it.
struct Spread {
    double along, across; ///< variances along the largest spread and across it
    double direction;     ///< of the largest spread, degrees counter-clockwise, in (-90, 90]
    double offCentre;
};

Spread spreadOf(const cv::Mat& kernel) {
    const cv::Moments m = cv::moments(kernel);
    const double c = kernel.cols / 2;
    const double mx = m.m10 / m.m00, my = m.m01 / m.m00;
    const double xx = m.mu20 / m.m00, yy = m.mu02 / m.m00, xy = m.mu11 / m.m00;
    const double half = std::hypot(0.5 * (xx - yy), xy);
    // y runs down in the kernel, so counter-clockwise is the negative of the picture's angle.
    const double direction = -0.5 * std::atan2(2 * xy, xx - yy) * 180 / std::numbers::pi;
    return {0.5 * (xx + yy) + half, 0.5 * (xx + yy) - half, direction, std::hypot(mx - c, my - c)};
}

double angleApart(double a, double b) {
    const double d = std::fmod(std::abs(a - b), 180.0);
    return std::min(d, 180.0 - d);
}

struct KernelCase {
    BlurOnPhoto blur;
    double scale;
};

class Kernel : public ::testing::TestWithParam<KernelCase> {};

// The drawn kernel has the spread of the continuous shape: a disk of radius R has the variance
// R^2 / 4 on every axis, a streak of length L and width w has L^2 / 12 along and w^2 / 12 across.
// Drawing adds at most the pixel's own footprint: 1/12 for area coverage, 1/6 for the bilinear
// spread.
TEST_P(Kernel, HasTheShapesSpreadAndDirectionCentredOnItsMiddlePixel) {
    const auto& [blur, scale] = GetParam();
    const cv::Mat kernel = MakePsfD(blur, scale);
    ASSERT_EQ(kernel.type(), CV_32F);
    ASSERT_EQ(kernel.rows, kernel.cols);
    ASSERT_EQ(kernel.rows % 2, 1);
    EXPECT_NEAR(cv::sum(kernel)[0], 1.0, 1e-5);
    const Spread spread = spreadOf(kernel);
    EXPECT_LT(spread.offCentre, 0.01);
    const double length = blur.length * scale;
    if (blur.kind == BlurKind::OutOfFocus) {
        const double expected = length * length / 16 + 1.0 / 12;
        EXPECT_NEAR(spread.along, expected, 0.01 * expected);
        EXPECT_NEAR(spread.across, expected, 0.01 * expected);
        return;
    }
    const double width = std::max(blur.width * scale, 0.0);
    EXPECT_NEAR(spread.along, length * length / 12 + 1.0 / 12, 0.02 * length * length / 12 + 0.1);
    EXPECT_NEAR(spread.across, width * width / 12 + 1.0 / 12, 0.1);
    EXPECT_LT(angleApart(spread.direction, blur.angle), 0.5);
}

INSTANTIATE_TEST_SUITE_P(DisksAndStreaks, Kernel,
                         ::testing::Values(KernelCase{{BlurKind::OutOfFocus, 10, 0, 1}, 1.0},
                                           KernelCase{{BlurKind::OutOfFocus, 24, 0, 1}, 0.5},
                                           KernelCase{{BlurKind::OutOfFocus, 33.3, 0, 1}, 2.93},
                                           KernelCase{{BlurKind::Motion, 20, 0, 1}, 1.0},
                                           KernelCase{{BlurKind::Motion, 20, 90, 0.2}, 1.0},
                                           KernelCase{{BlurKind::Motion, 17, 30, 1}, 1.0},
                                           KernelCase{{BlurKind::Motion, 40, -63.5, 3}, 0.5},
                                           KernelCase{{BlurKind::Motion, 60, 135, 2}, 2.5}),
                         [](const ::testing::TestParamInfo<KernelCase>& param) {
                             return (param.param.blur.kind == BlurKind::Motion ? "streak"
                                                                               : "disk") +
                                    std::to_string(param.index);
                         });

TEST(Kernel, ABlurUnderAPixelIsNoBlurAndImpossibleOnesThrow) {
    for (const BlurOnPhoto& tiny :
         {BlurOnPhoto{BlurKind::OutOfFocus, 0, 0, 1}, BlurOnPhoto{BlurKind::OutOfFocus, 3, 0, 1},
          BlurOnPhoto{BlurKind::Motion, 3, 40, 0.5}}) {
        const cv::Mat kernel = MakePsfD(tiny, 0.25);
        ASSERT_EQ(kernel.size(), cv::Size(1, 1));
        EXPECT_EQ(kernel.at<float>(0, 0), 1.0f);
    }
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THROW(MakePsfD({BlurKind::OutOfFocus, -1, 0, 1}, 1), std::invalid_argument);
    EXPECT_THROW(MakePsfD({BlurKind::Motion, 10, 0, nan}, 1), std::invalid_argument);
    EXPECT_THROW(MakePsfD({BlurKind::OutOfFocus, 10, 0, 1}, nan), std::invalid_argument);
    EXPECT_THROW(MakePsfD({BlurKind::OutOfFocus, 1e5, 0, 1}, 1), std::invalid_argument);
}

TEST(BlurOnPhoto, AStreakHasNoHead) {
    for (const double angle : {-270.0, -90.0, 90.0, 200.0, 450.0}) {
        const BlurOnPhoto streak = BlurOnPhoto{BlurKind::Motion, 10, angle, 1}.normalised();
        EXPECT_GT(streak.angle, -90.0);
        EXPECT_LE(streak.angle, 90.0);
        EXPECT_LT(angleApart(streak.angle, angle), 1e-9);
    }
    EXPECT_EQ(workingScale({6144, 4096}), 3.0);
    EXPECT_EQ(workingScale({512, 1024}), 0.5);
}

} // namespace
