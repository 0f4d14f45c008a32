#include "engine/deconvolve.h"
#include "engine/frequency.h"
#include "literal_reference.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include <string>
#include <thread>
#include <vector>

namespace {

using namespace clarovi;

cv::Mat randomPlane(cv::Size size, int seed) {
    cv::Mat plane(size, CV_32F);
    cv::RNG rng(seed);
    rng.fill(plane, cv::RNG::UNIFORM, 0, 255);
    return plane;
}

/// A filled disk of the given diameter centred on a canvas, normalised to sum 1.
cv::Mat diskPsf(cv::Size canvas, int diameter) {
    cv::Mat psf = cv::Mat::zeros(canvas, CV_64F);
    cv::circle(psf, {canvas.width / 2, canvas.height / 2}, diameter / 2, cv::Scalar(1), cv::FILLED);
    return psf / cv::sum(psf)[0];
}

double maxAbs(const cv::Mat& m) {
    return cv::norm(m, cv::NORM_INF);
}

struct Case {
    cv::Size plane;
    cv::Size psf; // canvas of the disk
    int diameter;
    double mu;
};

class DeconvolveMatchesLiteral : public testing::TestWithParam<Case> {};

TEST_P(DeconvolveMatchesLiteral, UpToRounding) {
    const Case c = GetParam();
    const cv::Mat plane = randomPlane(c.plane, c.plane.width);
    const cv::Mat psf = diskPsf(c.psf, c.diameter);
    cv::Mat fast, literal;
    reference::Workspace ws;
    const cv::Mat returned = engine::deconvolvePlane(c.mu, plane, fast, psf);
    reference::deconvolvePlane(c.mu, plane, literal, psf, ws);
    ASSERT_EQ(fast.size(), c.plane);
    ASSERT_EQ(fast.type(), CV_64F);
    EXPECT_EQ(returned.data, fast.data);
    EXPECT_LE(maxAbs(fast - literal), 1e-9 * maxAbs(literal));
}

// One case at the prime size 1031: the literal inverse transform there is slow.
INSTANTIATE_TEST_SUITE_P(Deconvolve, DeconvolveMatchesLiteral,
                         testing::Values(Case{{64, 64}, {9, 9}, 7, 0.001},
                                         Case{{64, 64}, {64, 64}, 20, 0.01},
                                         Case{{1000, 1000}, {31, 31}, 25, 0.005},
                                         Case{{1000, 1000}, {1000, 1000}, 60, 0.001},
                                         Case{{1031, 1031}, {1031, 1031}, 40, 0.01},
                                         Case{{200, 120}, {200, 120}, 30, 0.002},
                                         Case{{77, 50}, {8, 11}, 7, 0.01},
                                         Case{{1, 1}, {1, 1}, 1, 0.01}));

TEST(Deconvolve, PreparedPsfGivesThePlainResult) {
    for (const cv::Size size : {cv::Size(256, 256), cv::Size(77, 50)}) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat psf = diskPsf(size, 15);
        const engine::PreparedPsf prepared(psf, size);
        EXPECT_EQ(prepared.planeSize(), size);
        for (int seed = 0; seed < 3; ++seed) {
            const cv::Mat plane = randomPlane(size, seed);
            cv::Mat plain, viaPrepared;
            engine::deconvolvePlane(0.004, plane, plain, psf);
            engine::deconvolvePlane(0.004, plane, viaPrepared, prepared);
            EXPECT_LE(maxAbs(plain - viaPrepared), 1e-12 * maxAbs(plain));
        }
        cv::Mat wrongSize;
        EXPECT_THROW(engine::deconvolvePlane(0.004, randomPlane({8, 8}, 1), wrongSize, prepared),
                     std::invalid_argument);
    }
}

TEST(Deconvolve, ZeroMuStaysFinite) {
    for (const int diameter : {1, 8, 33}) {
        SCOPED_TRACE(diameter);
        cv::Mat result;
        engine::deconvolvePlane(0.0, randomPlane({96, 64}, 2), result, diskPsf({96, 64}, diameter));
        EXPECT_TRUE(cv::checkRange(result));
    }
}

// A single 1 at the centre leaves S = 1 everywhere, so only the frequency whose index is the
// centre sample's position (where m = 1) is halved.
TEST(Deconvolve, IdentityPsfHalvesOnlyTheCentralFrequency) {
    for (const cv::Size size : {cv::Size(64, 64), cv::Size(80, 48)}) {
        SCOPED_TRACE(testing::Message() << size);
        cv::Mat psf = cv::Mat::zeros(size, CV_64F);
        const cv::Point centre(size.width / 2, size.height / 2);
        psf.at<double>(centre) = 1.0;
        const cv::Mat plane = randomPlane(size, 3);
        cv::Mat result;
        engine::deconvolvePlane(0.0, plane, result, psf);
        cv::Mat in[2], out[2];
        engine::forwardSpectrum(plane, in);
        engine::forwardSpectrum(result, out);
        const double tolerance = 1e-9 * maxAbs(in[0]);
        for (int k = 0; k < 2; ++k) {
            cv::Mat expected = in[k].clone();
            expected.at<double>(centre) *= 0.5;
            EXPECT_LE(maxAbs(out[k] - expected), tolerance);
        }
        EXPECT_GT(std::abs(in[0].at<double>(centre)), 1000 * tolerance); // the test can see it
    }
}

TEST(Deconvolve, LargerMuOnlyDarkensAndSmooths) {
    const cv::Mat plane = randomPlane({128, 128}, 4);
    const cv::Mat psf = diskPsf({128, 128}, 12);
    double lastEnergy = std::numeric_limits<double>::infinity();
    double lastMean = lastEnergy;
    for (const double mu : {0.001, 0.003, 0.01, 0.03, 0.1}) {
        SCOPED_TRACE(mu);
        cv::Mat result;
        engine::deconvolvePlane(mu, plane, result, psf);
        const double energy = result.dot(result);
        const double mean = cv::mean(result)[0];
        EXPECT_LT(energy, lastEnergy);
        EXPECT_LT(mean, lastMean);
        lastEnergy = energy;
        lastMean = mean;
    }
}

// With R - r odd the spare row goes below the PSF; a 3-row identity PSF in 64 rows then lands one
// row above the centre, and the restored picture comes out one row lower.
TEST(Deconvolve, OddRemainderPutsThePsfOneRowNearerTheTop) {
    const cv::Size size(64, 64);
    cv::Mat small = cv::Mat::zeros(3, 2, CV_64F);
    small.at<double>(1, 1) = 1.0;
    cv::Mat placed = cv::Mat::zeros(size, CV_64F);
    placed.at<double>(31, 32) = 1.0; // 30 rows above the small PSF, 31 below
    const cv::Mat plane = randomPlane(size, 5) / 255;
    cv::Mat fromSmall, fromPlaced;
    engine::deconvolvePlane(0.0, plane, fromSmall, small);
    engine::deconvolvePlane(0.0, plane, fromPlaced, placed);
    EXPECT_LE(maxAbs(fromSmall - fromPlaced), 1e-12);

    cv::Mat movedDown, expected;
    cv::vconcat(plane.rowRange(63, 64), plane.rowRange(0, 63), movedDown);
    movedDown.convertTo(expected, CV_64F);
    EXPECT_LE(maxAbs(fromSmall - expected), 0.01); // all but the halved frequency
}

TEST(Deconvolve, EmptyPlaneGivesEmptyResult) {
    cv::Mat result(3, 3, CV_64F);
    const cv::Mat returned = engine::deconvolvePlane(0.01, cv::Mat(), result, cv::Mat());
    EXPECT_TRUE(result.empty());
    EXPECT_TRUE(returned.empty());
}

TEST(Deconvolve, PsfLargerThanThePlaneThrows) {
    cv::Mat result;
    for (const cv::Size psf : {cv::Size(9, 8), cv::Size(8, 9)}) {
        SCOPED_TRACE(testing::Message() << psf);
        EXPECT_THROW(engine::deconvolvePlane(0.01, randomPlane({8, 8}, 1), result, diskPsf(psf, 3)),
                     std::invalid_argument);
        EXPECT_THROW(engine::PreparedPsf(diskPsf(psf, 3), {8, 8}), std::invalid_argument);
    }
}

TEST(Deconvolve, ParallelCallsGiveTheSerialResults) {
    const cv::Size tile(256, 256);
    const cv::Mat psf = diskPsf(tile, 21);
    const engine::PreparedPsf prepared(psf, tile);
    constexpr int kTiles = 16;
    std::vector<cv::Mat> planes, serial(kTiles);
    for (int t = 0; t < kTiles; ++t) {
        // Mixed sizes too, so that threads plan and grow their buffers at the same time.
        planes.push_back(randomPlane(t % 4 == 3 ? cv::Size(100 + t, 90) : tile, t));
        engine::deconvolvePlane(0.005, planes[t], serial[t],
                                planes[t].size() == tile ? psf : diskPsf(planes[t].size(), 9));
    }
    std::vector<cv::Mat> plain(kTiles), viaPrepared(kTiles);
    std::vector<std::thread> threads;
    for (int t = 0; t < kTiles; ++t) {
        threads.emplace_back([t, &planes, &plain, &viaPrepared, &prepared, psf, tile] {
            const bool full = planes[t].size() == tile;
            engine::deconvolvePlane(0.005, planes[t], plain[t],
                                    full ? psf : diskPsf(planes[t].size(), 9));
            if (full)
                engine::deconvolvePlane(0.005, planes[t], viaPrepared[t], prepared);
        });
    }
    for (auto& thread : threads)
        thread.join();
    for (int t = 0; t < kTiles; ++t) {
        SCOPED_TRACE(t);
        EXPECT_EQ(maxAbs(plain[t] - serial[t]), 0.0);
        if (!viaPrepared[t].empty()) {
            EXPECT_LE(maxAbs(viaPrepared[t] - serial[t]), 1e-12 * maxAbs(serial[t]));
        }
    }
}

} // namespace
