#include "engine/frequency.h"
#include "literal_reference.h"

#include <gtest/gtest.h>

namespace {

using namespace clarovi::engine;
using clarovi::reference::maxAbs;
using clarovi::reference::randomPlane;

TEST(Frequency, InverseOfForwardGivesThePlaneBackAtOptimalSizes) {
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(80, 48), cv::Size(1000, 1000)}) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat plane = randomPlane(size, 1);
        cv::Mat planes[2], back, expected;
        forwardSpectrum(plane, planes);
        ASSERT_EQ(planes[0].size(), size);
        inverseSpectrum(planes, back);
        plane.convertTo(expected, CV_64F);
        ASSERT_EQ(back.type(), CV_64F);
        EXPECT_LE(maxAbs(back - expected), 1e-10 * maxAbs(expected));
        EXPECT_LE(maxAbs(planes[1]), 1e-10 * maxAbs(expected)); // a real plane comes back real
    }
    cv::Mat planes[2];
    EXPECT_THROW(forwardSpectrum(cv::Mat(), planes), std::invalid_argument);
    EXPECT_THROW(forwardSpectrum(cv::Mat(4, 4, CV_8UC3), planes), std::invalid_argument);
}

// Quadrants of the even part trade places; on odd sizes the last row and column stay put.
TEST(Frequency, SwapQuadrantsTradesTheEvenPartsQuadrants) {
    for (const cv::Size size :
         {cv::Size(64, 64), cv::Size(6, 4), cv::Size(7, 5), cv::Size(8, 5), cv::Size(7, 6)}) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat plane = randomPlane(size, 1);
        cv::Mat swapped, inPlace = plane.clone();
        swapQuadrants(plane, swapped);
        swapQuadrants(inPlace, inPlace);
        EXPECT_EQ(maxAbs(inPlace - swapped), 0.0);
        const int cx = size.width / 2, cy = size.height / 2;
        for (int y = 0; y < size.height; ++y)
            for (int x = 0; x < size.width; ++x) {
                const bool kept = y >= 2 * cy || x >= 2 * cx;
                const int sy = kept ? y : (y + cy) % (2 * cy), sx = kept ? x : (x + cx) % (2 * cx);
                ASSERT_EQ(swapped.at<float>(y, x), plane.at<float>(sy, sx)) << x << "," << y;
            }
        if (size.width % 2 == 0 && size.height % 2 == 0) {
            swapQuadrants(swapped, swapped);
            EXPECT_EQ(maxAbs(swapped - plane), 0.0) << "twice is the identity";
        }
    }
}

TEST(Frequency, ConvolveSpectrumGivesTheTopLeftWindowOfTheLinearConvolution) {
    struct Case {
        cv::Size a, b;
    };
    for (const Case c : {Case{{9, 8}, {4, 3}}, Case{{4, 3}, {9, 8}}, Case{{3, 10}, {6, 2}}}) {
        SCOPED_TRACE(testing::Message() << c.a << " * " << c.b);
        const cv::Mat a = randomPlane(c.a, 5, CV_64F), b = randomPlane(c.b, 6, CV_64F);
        cv::Mat result;
        convolveSpectrum(a, b, result);
        ASSERT_EQ(result.size(),
                  cv::Size(std::abs(a.cols - b.cols) + 1, std::abs(a.rows - b.rows) + 1));
        ASSERT_EQ(result.type(), a.type());
        for (int y = 0; y < result.rows; ++y)
            for (int x = 0; x < result.cols; ++x) {
                double sum = 0;
                for (int i = std::max(0, y - b.rows + 1); i <= std::min(y, a.rows - 1); ++i)
                    for (int j = std::max(0, x - b.cols + 1); j <= std::min(x, a.cols - 1); ++j)
                        sum += a.at<double>(i, j) * b.at<double>(y - i, x - j);
                EXPECT_NEAR(result.at<double>(y, x), sum, 1e-9 * std::abs(sum) + 1e-9);
            }
    }
}

} // namespace
