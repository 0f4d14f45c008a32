#include "engine/frequency.h"
#include "literal_reference.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace {

using namespace clarovi;

cv::Mat randomPlane(int rows, int cols, int type = CV_32F, int seed = 1) {
    cv::Mat plane(rows, cols, type);
    cv::RNG rng(seed);
    rng.fill(plane, cv::RNG::UNIFORM, 0, 255);
    return plane;
}

double maxAbs(const cv::Mat& m) {
    return cv::norm(m, cv::NORM_INF);
}

TEST(Frequency, InverseOfForwardGivesThePlaneBackAtOptimalSizes) {
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(64, 64), cv::Size(80, 48),
                                cv::Size(1000, 1000), cv::Size(2, 360)}) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat plane = randomPlane(size.height, size.width);
        cv::Mat planes[2], back;
        engine::forwardSpectrum(plane, planes);
        engine::inverseSpectrum(planes, back);
        cv::Mat expected;
        plane.convertTo(expected, CV_64F);
        ASSERT_EQ(back.type(), CV_64F);
        EXPECT_LE(maxAbs(back - expected), 1e-10 * maxAbs(expected));
        EXPECT_LE(maxAbs(planes[1]), 1e-10 * maxAbs(expected)); // a real plane comes back real
    }
}

TEST(Frequency, ForwardKeepsTheFirstCoefficientsOfTheOptimalSizeTransform) {
    reference::Workspace ws;
    for (const cv::Size size :
         {cv::Size(2048, 2048), cv::Size(1000, 1000), cv::Size(1031, 1031), cv::Size(37, 21)}) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat plane = randomPlane(size.height, size.width, CV_8U, size.width);
        cv::Mat fast[2], literal[2];
        engine::forwardSpectrum(plane, fast);
        reference::forwardSpectrum(plane, literal, ws);
        for (int k = 0; k < 2; ++k) {
            ASSERT_EQ(fast[k].size(), size);
            ASSERT_EQ(fast[k].type(), CV_64F);
            EXPECT_LE(maxAbs(fast[k] - literal[k]), 1e-12 * maxAbs(literal[0]));
        }
    }
}

TEST(Frequency, ForwardRejectsEmptyAndMultiChannelPlanes) {
    cv::Mat planes[2];
    EXPECT_THROW(engine::forwardSpectrum(cv::Mat(), planes), std::invalid_argument);
    EXPECT_THROW(engine::forwardSpectrum(cv::Mat(4, 4, CV_8UC3), planes), std::invalid_argument);
}

TEST(Frequency, InverseMatchesTheLiteralTransformAtAnySize) {
    reference::Workspace ws;
    for (const cv::Size size : {cv::Size(17, 37), cv::Size(64, 64), cv::Size(1, 7)}) {
        SCOPED_TRACE(testing::Message() << size);
        cv::Mat fast[2] = {randomPlane(size.height, size.width, CV_64F, 3),
                           randomPlane(size.height, size.width, CV_64F, 4)};
        cv::Mat literal[2] = {fast[0].clone(), fast[1].clone()};
        cv::Mat fastOut, literalOut;
        engine::inverseSpectrum(fast, fastOut);
        reference::inverseSpectrum(literal, literalOut, ws);
        EXPECT_LE(maxAbs(fastOut - literalOut), 1e-12 * maxAbs(literalOut));
        EXPECT_LE(maxAbs(fast[1] - literal[1]), 1e-12 * maxAbs(literalOut));
    }
}

TEST(Frequency, SwapQuadrantsTwiceIsTheIdentityOnEvenSizes) {
    for (const cv::Size size : {cv::Size(64, 64), cv::Size(6, 4), cv::Size(2, 2)}) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat plane = randomPlane(size.height, size.width, CV_64F);
        cv::Mat swapped = plane.clone();
        engine::swapQuadrants(swapped, swapped);
        EXPECT_NE(maxAbs(swapped - plane), 0.0);
        engine::swapQuadrants(swapped, swapped);
        EXPECT_EQ(maxAbs(swapped - plane), 0.0);
    }
}

TEST(Frequency, SwapQuadrantsOnOddSizesKeepsTheSourcesLastRowAndColumn) {
    reference::Workspace ws;
    for (const cv::Size size : {cv::Size(7, 5), cv::Size(8, 5), cv::Size(7, 6), cv::Size(1, 1)}) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat plane = randomPlane(size.height, size.width, CV_32F);
        cv::Mat outOfPlace, inPlace = plane.clone(), literal;
        engine::swapQuadrants(plane, outOfPlace);
        engine::swapQuadrants(inPlace, inPlace);
        reference::swapQuadrants(plane, literal, ws);
        EXPECT_EQ(maxAbs(outOfPlace - literal), 0.0);
        EXPECT_EQ(maxAbs(inPlace - literal), 0.0);
        if (size.height % 2 == 1) {
            EXPECT_EQ(maxAbs(outOfPlace.row(size.height - 1) - plane.row(size.height - 1)), 0.0);
        }
        if (size.width % 2 == 1) {
            EXPECT_EQ(maxAbs(outOfPlace.col(size.width - 1) - plane.col(size.width - 1)), 0.0);
        }
        // The top-left quadrant comes from the bottom-right one.
        const int cx = size.width / 2, cy = size.height / 2;
        if (cx > 0 && cy > 0) {
            EXPECT_EQ(outOfPlace.at<float>(0, 0), plane.at<float>(cy, cx));
        }
    }
}

TEST(Frequency, ConvolveSpectrumGivesTheTopLeftWindowOfTheLinearConvolution) {
    struct Case {
        cv::Size a, b;
    };
    for (const Case c : {Case{{9, 8}, {4, 3}}, Case{{4, 3}, {9, 8}}, Case{{5, 5}, {5, 5}},
                         Case{{3, 10}, {6, 2}}}) {
        SCOPED_TRACE(testing::Message() << c.a << " * " << c.b);
        const cv::Mat a = randomPlane(c.a.height, c.a.width, CV_64F, 5);
        const cv::Mat b = randomPlane(c.b.height, c.b.width, CV_64F, 6);
        cv::Mat result;
        engine::convolveSpectrum(a, b, result);
        ASSERT_EQ(result.rows, std::abs(a.rows - b.rows) + 1);
        ASSERT_EQ(result.cols, std::abs(a.cols - b.cols) + 1);
        ASSERT_EQ(result.type(), a.type());
        for (int y = 0; y < result.rows; ++y) {
            for (int x = 0; x < result.cols; ++x) {
                double sum = 0;
                for (int i = 0; i <= y; ++i)
                    for (int j = 0; j <= x; ++j)
                        if (i < a.rows && j < a.cols && y - i < b.rows && x - j < b.cols)
                            sum += a.at<double>(i, j) * b.at<double>(y - i, x - j);
                EXPECT_NEAR(result.at<double>(y, x), sum, 1e-9 * std::abs(sum) + 1e-9);
            }
        }
        cv::Mat literal;
        reference::convolveSpectrum(a, b, literal);
        EXPECT_LE(maxAbs(result - literal), 1e-12 * maxAbs(literal));
    }
}

} // namespace
