#include "engine/fourier_plane.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace {

using clarovi::engine::SpectralPlane;

struct TransformCase {
    cv::Size size;
    int threads;
};

class SpectralPlaneTransform : public ::testing::TestWithParam<TransformCase> {};

// Small planes are transformed in split passes, large ones by FFTW's two-dimensional plans; on
// any number of threads each gives OpenCV's spectrum, and the inverse brings the plane back
// times its pixel count.
TEST_P(SpectralPlaneTransform, MatchesOpenCvsSpectrumAndComesBack) {
    const auto [size, threads] = GetParam();
    cv::Mat picture(size, CV_32F);
    cv::RNG(size.area()).fill(picture, cv::RNG::UNIFORM, 0.0, 255.0);
    SpectralPlane plane(size);
    picture.copyTo(plane.real());
    plane.forward(threads);

    cv::Mat expected;
    cv::dft(picture, expected, cv::DFT_COMPLEX_OUTPUT);
    double worst = 0;
    for (int u = 0; u < size.height; ++u)
        for (int v = 0; v < plane.halfCols(); ++v) {
            const cv::Vec2f e = expected.at<cv::Vec2f>(u, v);
            const std::complex<float> got = plane.spectrumRow(u)[v];
            worst = std::max(worst, double(std::abs(got - std::complex<float>(e[0], e[1]))));
        }
    // Single precision over sums of up to 1.5 million values of up to 255.
    EXPECT_LT(worst, 2e-6 * 255.0 * size.area());

    plane.inverse(threads);
    cv::Mat back = plane.real() / double(size.area());
    EXPECT_LT(cv::norm(back, picture, cv::NORM_INF), 1e-2);
}

INSTANTIATE_TEST_SUITE_P(Sizes, SpectralPlaneTransform,
                         ::testing::Values(TransformCase{{33, 21}, 1}, TransformCase{{33, 21}, 2},
                                           TransformCase{{1080, 750}, 2},
                                           TransformCase{{1300, 1250}, 2},
                                           TransformCase{{1300, 1250}, 1}));

// The result of a plane does not depend on the threads it is transformed on.
TEST(SpectralPlaneTransform, ThreadsGiveTheSerialResult) {
    const cv::Size size(1080, 750);
    cv::Mat picture(size, CV_32F);
    cv::RNG(3).fill(picture, cv::RNG::UNIFORM, 0.0, 255.0);
    cv::Mat results[2];
    for (int threads : {1, 2}) {
        SpectralPlane plane(size);
        picture.copyTo(plane.real());
        plane.forward(threads);
        plane.real().copyTo(results[threads - 1]);
    }
    EXPECT_EQ(cv::norm(results[0], results[1], cv::NORM_INF), 0.0);
}

} // namespace
