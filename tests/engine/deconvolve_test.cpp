#include "engine/deconvolve.h"
#include "engine/frequency.h"
#include "literal_reference.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <thread>

namespace engine = clarovi::engine;
namespace reference = clarovi::reference;

namespace {

cv::Mat randomPlane(cv::Size size, int seed) {
    cv::RNG rng(seed);
    cv::Mat plane(size, CV_32F);
    rng.fill(plane, cv::RNG::UNIFORM, 0, 255);
    return plane;
}

// A disk kernel of the given side, antialiased by supersampling, summing to 1.
cv::Mat diskKernel(int side, double diameter) {
    cv::Mat big = cv::Mat::zeros(side * 4, side * 4, CV_64F);
    cv::circle(big, cv::Point(side * 2, side * 2), int(diameter * 2), cv::Scalar(1), cv::FILLED);
    cv::Mat kernel;
    cv::resize(big, kernel, cv::Size(side, side), 0, 0, cv::INTER_AREA);
    return kernel / cv::sum(kernel)[0];
}

double maxAbs(const cv::Mat& m) {
    double lo = 0, hi = 0;
    cv::minMaxLoc(m, &lo, &hi);
    return std::max(std::abs(lo), std::abs(hi));
}

struct Case {
    cv::Size plane;
    bool psfAsLargeAsPlane;
    double mu;
};

class DeconvolveAgreement : public ::testing::TestWithParam<Case> {};

} // namespace

TEST_P(DeconvolveAgreement, MatchesTheLiteralStepsWithinRounding) {
    const Case c = GetParam();
    const cv::Mat plane = randomPlane(c.plane, c.plane.area());
    const cv::Mat psf = c.psfAsLargeAsPlane ? diskKernel(std::min(c.plane.width, c.plane.height), 9)
                                            : diskKernel(15, 9);
    // The as-large case keeps the PSF square; it is as large as the plane's shorter side.
    cv::Mat fast, literal;
    engine::deconvolvePlane(c.mu, plane, fast, psf);
    reference::deconvolvePlane(c.mu, plane, literal, psf);
    ASSERT_EQ(fast.size(), literal.size());
    ASSERT_EQ(fast.type(), CV_64F);
    EXPECT_LE(maxAbs(fast - literal), 1e-9 * maxAbs(literal));
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, DeconvolveAgreement,
    ::testing::Values(Case{{64, 64}, false, 0.001}, Case{{64, 64}, true, 0.0035},
                      Case{{1000, 1000}, false, 0.0035}, Case{{1000, 1000}, true, 0.01},
                      Case{{1031, 1031}, false, 0.002}, Case{{1031, 1031}, true, 0.0035},
                      Case{{75, 120}, false, 0.005}, Case{{121, 90}, true, 0.008}));

TEST(Deconvolve, PreparedPsfGivesThePlainResultFromManyThreads) {
    const cv::Mat plane = randomPlane({256, 256}, 7);
    const cv::Mat psf = diskKernel(256, 12);
    cv::Mat plain;
    engine::deconvolvePlane(0.0035, plane, plain, psf);
    const engine::PreparedPsf prepared(psf, plane.size());
    std::vector<cv::Mat> results(8);
    std::vector<std::thread> threads;
    for (auto& result : results)
        threads.emplace_back([&] { engine::deconvolvePlane(0.0035, plane, result, prepared); });
    for (auto& thread : threads)
        thread.join();
    for (const cv::Mat& result : results)
        EXPECT_LE(maxAbs(result - plain), 1e-9 * maxAbs(plain));
}

TEST(Deconvolve, IdentityPsfWithoutRegularisationHalvesOnlyTheCentralFrequency) {
    const cv::Mat plane = randomPlane({64, 64}, 3);
    // Centred in 64 x 64 the single 1 lands at (32, 32): there S = 1 and m = 1, so W = 1/2 at
    // that frequency and 1 at every other. The frequency (32, 32) is the pattern (-1)^(x + y).
    cv::Mat psf = cv::Mat::zeros(2, 2, CV_64F);
    psf.at<double>(1, 1) = 1.0;
    cv::Mat restored;
    engine::deconvolvePlane(0.0, plane, restored, psf);
    ASSERT_TRUE(cv::checkRange(restored));

    double nyquist = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            nyquist += plane.at<float>(y, x) * ((x + y) % 2 == 0 ? 1 : -1);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) {
            const double pattern = (x + y) % 2 == 0 ? 1 : -1;
            const double expected = plane.at<float>(y, x) - 0.5 * nyquist / 4096 * pattern;
            ASSERT_NEAR(restored.at<double>(y, x), expected, 1e-9) << x << "," << y;
        }
}

TEST(Deconvolve, ZeroSharpnessStaysFinite) {
    const cv::Mat plane = randomPlane({96, 80}, 11);
    cv::Mat restored;
    engine::deconvolvePlane(0.0, plane, restored, diskKernel(31, 25));
    EXPECT_TRUE(cv::checkRange(restored));
}

TEST(Deconvolve, MoreSharpnessOnlyDarkensAndSmooths) {
    const cv::Mat plane = randomPlane({128, 128}, 5);
    const cv::Mat psf = diskKernel(21, 11);
    double previousEnergy = std::numeric_limits<double>::max();
    for (const double mu : {0.001, 0.0035, 0.01, 0.1}) {
        cv::Mat restored;
        engine::deconvolvePlane(mu, plane, restored, psf);
        const double energy = cv::norm(restored, cv::NORM_L2);
        EXPECT_LT(energy, previousEnergy) << mu;
        previousEnergy = energy;
    }
}

TEST(Deconvolve, EmptyAndOversizedInput) {
    cv::Mat restored(3, 3, CV_64F);
    engine::deconvolvePlane(0.0035, cv::Mat(), restored, diskKernel(5, 3));
    EXPECT_TRUE(restored.empty());
    EXPECT_THROW(
        engine::deconvolvePlane(0.0035, randomPlane({16, 16}, 1), restored, diskKernel(17, 5)),
        std::invalid_argument);
}
