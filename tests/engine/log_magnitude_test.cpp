#include "engine/log_magnitude.h"

#include <gtest/gtest.h>

using clarovi::engine::logMagnitudeSpectrum;

TEST(Spectrum, SidesAreTheOptimalSizesRoundedDownToEven) {
    using Case = std::pair<cv::Size, cv::Size>;
    for (const auto& [size, expected] :
         {Case{{2048, 2048}, {2048, 2048}}, Case{{750, 1000}, {750, 1000}},
          Case{{1031, 1031}, {1080, 1080}}, Case{{5, 5}, {4, 4}}, Case{{1, 1}, {0, 0}}}) {
        cv::Mat input(size, CV_8U);
        cv::randu(input, 0, 255);
        const cv::Mat spectrum = logMagnitudeSpectrum(input);
        EXPECT_EQ(spectrum.size(), expected) << size;
        EXPECT_TRUE(spectrum.empty() || spectrum.type() == CV_8UC1);
    }
    EXPECT_TRUE(logMagnitudeSpectrum(cv::Mat()).empty());
}

TEST(Spectrum, AFlatSpectrumIsBlackAndAConstantPlaneIsOneDotAtTheCentre) {
    cv::Mat impulse = cv::Mat::zeros(8, 8, CV_32F);
    impulse.at<float>(0, 0) = 5;
    EXPECT_EQ(cv::countNonZero(logMagnitudeSpectrum(impulse)), 0);

    const cv::Mat constant(8, 8, CV_32F, cv::Scalar(3));
    const cv::Mat spectrum = logMagnitudeSpectrum(constant);
    EXPECT_EQ(spectrum.at<uchar>(4, 4), 255);
    EXPECT_EQ(cv::countNonZero(spectrum), 1);
}
