#include "engine/frequency.h"
#include "literal_reference.h"

#include <gtest/gtest.h>

namespace {

using namespace clarovi::engine;
using clarovi::reference::randomPlane;

// The spectrum picture of the colour job is built on this window of the convolution.
TEST(Frequency, ConvolveSpectrumGivesTheTopLeftWindowOfTheLinearConvolution) {
    using Sizes = std::pair<cv::Size, cv::Size>;
    for (const auto& [sizeA, sizeB] :
         {Sizes{{9, 8}, {4, 3}}, Sizes{{4, 3}, {9, 8}}, Sizes{{3, 10}, {6, 2}}}) {
        SCOPED_TRACE(testing::Message() << sizeA << " * " << sizeB);
        const cv::Mat a = randomPlane(sizeA, 5, CV_64F), b = randomPlane(sizeB, 6, CV_64F);
        cv::Mat result;
        convolveSpectrum(a, b, result);
        ASSERT_EQ(result.size(),
                  cv::Size(std::abs(a.cols - b.cols) + 1, std::abs(a.rows - b.rows) + 1));
        ASSERT_EQ(result.type(), CV_64F);
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
