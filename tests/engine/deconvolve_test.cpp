#include "engine/deconvolve.h"
#include "literal_reference.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include <thread>
#include <vector>

namespace {

using namespace clarovi;
using reference::maxAbs;
using reference::randomPlane;

/// A filled disk of the given diameter centred on a canvas, normalised to sum 1.
cv::Mat diskPsf(cv::Size canvas, int diameter) {
    cv::Mat psf = cv::Mat::zeros(canvas, CV_64F);
    cv::circle(psf, {canvas.width / 2, canvas.height / 2}, diameter / 2, cv::Scalar(1), cv::FILLED);
    return psf / cv::sum(psf)[0];
}

/// A PSF whose positive samples are scattered among zeros and negative ones, so that where the
/// noise term counts the PSF as present follows no simple shape; single precision, as the jobs
/// pass it.
cv::Mat scatteredPsf(cv::Size size) {
    cv::Mat psf(size, CV_32F);
    cv::RNG rng(size.area());
    rng.fill(psf, cv::RNG::UNIFORM, -0.5, 1.0);
    psf.setTo(0, (psf < 0.2) & (psf > -0.2));
    return psf / cv::sum(psf)[0];
}

TEST(Deconvolve, MatchesTheLiteralStepsUpToRounding) {
    // Small PSFs with odd and even remainders, and PSFs as large as the plane at sizes that are
    // optimal for the transform, not optimal, and prime.
    using Case = std::tuple<cv::Size, cv::Mat, double>; // plane, PSF, mu
    for (const auto& [size, psf, mu] :
         {Case{{64, 64}, diskPsf({9, 9}, 7), 0.001}, Case{{77, 50}, diskPsf({8, 11}, 7), 0.01},
          Case{{60, 72}, scatteredPsf({13, 9}), 0.001},
          Case{{1000, 1000}, diskPsf({1000, 1000}, 60), 0.005},
          Case{{1031, 1031}, diskPsf({1031, 1031}, 40), 0.01}}) {
        SCOPED_TRACE(testing::Message() << size << " psf " << psf.size());
        const cv::Mat plane = randomPlane(size, size.width);
        cv::Mat psf64, fast, literal;
        psf.convertTo(psf64, CV_64F);
        reference::Workspace ws;
        const cv::Mat returned = engine::deconvolvePlane(mu, plane, fast, psf);
        reference::deconvolvePlane(mu, plane, literal, psf64, ws);
        ASSERT_TRUE(fast.size() == size && fast.type() == CV_64F && returned.data == fast.data);
        EXPECT_LE(maxAbs(fast - literal), 1e-9 * maxAbs(literal));
    }
}

TEST(Deconvolve, PreparedAndParallelCallsGiveTheSerialResults) {
    const cv::Size tile(256, 256);
    const engine::PreparedPsf prepared(diskPsf(tile, 21), tile);
    // Mixed sizes too, so that threads plan and grow their buffers at the same time.
    const auto size = [&](int t) { return t % 4 == 3 ? cv::Size(100 + t, 90) : tile; };
    constexpr int kTiles = 12;
    std::vector<cv::Mat> serial(kTiles), parallel(kTiles), viaPrepared(kTiles);
    for (int t = 0; t < kTiles; ++t)
        engine::deconvolvePlane(0.005, randomPlane(size(t), t), serial[t], diskPsf(size(t), 21));
    std::vector<std::thread> threads;
    for (int t = 0; t < kTiles; ++t) {
        threads.emplace_back([&, t] {
            const cv::Mat plane = randomPlane(size(t), t);
            engine::deconvolvePlane(0.005, plane, parallel[t], diskPsf(size(t), 21));
            if (size(t) == tile)
                engine::deconvolvePlane(0.005, plane, viaPrepared[t], prepared);
        });
    }
    for (auto& thread : threads)
        thread.join();
    // One plane whose transforms two threads share, the PSF's too: the same numbers.
    const engine::PreparedPsf shared(diskPsf(tile, 21), tile, 2);
    cv::Mat split;
    engine::deconvolvePlane(0.005, randomPlane(tile, 0), split, shared, 2);
    EXPECT_LE(maxAbs(split - serial[0]), 1e-12 * maxAbs(serial[0]));
    for (int t = 0; t < kTiles; ++t) {
        EXPECT_EQ(maxAbs(parallel[t] - serial[t]), 0.0) << t;
        if (size(t) == tile) {
            EXPECT_LE(maxAbs(viaPrepared[t] - serial[t]), 1e-12 * maxAbs(serial[t])) << t;
        }
    }
}

// A single 1 at the centre leaves S = 1 everywhere, so with mu = 0 only the frequency whose index
// is the centre sample's position (where m = 1) is halved.
TEST(Deconvolve, ZeroMuWithAnIdentityPsfHalvesOnlyTheCentralFrequency) {
    const cv::Size size(80, 48);
    cv::Mat psf = cv::Mat::zeros(size, CV_64F);
    const cv::Point centre(size.width / 2, size.height / 2);
    psf.at<double>(centre) = 1.0;
    const cv::Mat plane = randomPlane(size, 3, CV_64F);
    cv::Mat result, in, out;
    engine::deconvolvePlane(0.0, plane, result, psf);
    cv::dft(plane, in, cv::DFT_COMPLEX_OUTPUT);
    cv::dft(result, out, cv::DFT_COMPLEX_OUTPUT);
    const double tolerance = 1e-9 * maxAbs(in);
    EXPECT_GT(cv::norm(in.at<cv::Vec2d>(centre)), 1000 * tolerance); // the halving is visible
    in.at<cv::Vec2d>(centre) *= 0.5;
    EXPECT_LE(maxAbs(out - in), tolerance);

    for (const int diameter : {1, 8, 33}) {
        SCOPED_TRACE(diameter);
        engine::deconvolvePlane(0.0, plane, result, diskPsf(size, diameter));
        EXPECT_TRUE(cv::checkRange(result));
    }
}

TEST(Deconvolve, RejectsPsfsLargerThanThePlaneAndPassesAnEmptyPlaneThrough) {
    cv::Mat result(3, 3, CV_64F);
    EXPECT_TRUE(engine::deconvolvePlane(0.01, cv::Mat(), result, cv::Mat()).empty());
    EXPECT_TRUE(result.empty());
    for (const cv::Size psf : {cv::Size(9, 8), cv::Size(8, 9)}) {
        SCOPED_TRACE(testing::Message() << psf);
        EXPECT_THROW(engine::deconvolvePlane(0.01, randomPlane({8, 8}, 1), result, diskPsf(psf, 3)),
                     std::invalid_argument);
        EXPECT_THROW(engine::PreparedPsf(diskPsf(psf, 3), {8, 8}), std::invalid_argument);
    }
    const engine::PreparedPsf prepared(diskPsf({16, 16}, 5), {16, 16});
    EXPECT_THROW(engine::deconvolvePlane(0.01, randomPlane({8, 8}, 1), result, prepared),
                 std::invalid_argument);
}

} // namespace
