#include "engine/edge_preserving.h"
#include "engine/noise_estimate.h"
#include "engine/plane_restorer.h"
#include "hyper_laplacian_reference.h"
#include "literal_reference.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <limits>
#include <thread>

namespace {

using namespace clarovi;
using engine::PlaneRestorer;
using engine::RestorationFilter;
using reference::diskKernel;

constexpr RestorationFilter kFilters[] = {
    RestorationFilter::Classic, RestorationFilter::Regularised, RestorationFilter::EdgePreserving};

/// Flat patches with straight and round edges, one patch of fine stripes, on 0..255.
cv::Mat edgeAndTextureScene(cv::Size size) {
    cv::Mat scene(size, CV_32F, cv::Scalar(110));
    cv::RNG rng(7);
    for (int i = 0; i < size.area() / 1500; ++i) {
        const cv::Point at(rng.uniform(0, size.width), rng.uniform(0, size.height));
        const cv::Scalar level(rng.uniform(30, 225));
        if (i % 2 == 0)
            cv::circle(scene, at, rng.uniform(4, 30), level, cv::FILLED, cv::LINE_AA);
        else
            cv::rectangle(scene, cv::Rect(at, cv::Size(rng.uniform(8, 50), rng.uniform(8, 50))),
                          level, cv::FILLED);
    }
    const cv::Rect patch(size.width / 2, size.height / 8, size.width / 4, size.height / 4);
    for (int y = patch.y; y < patch.br().y; ++y)
        for (int x = patch.x; x < patch.br().x; ++x)
            scene.at<float>(y, x) = float(128 + 60 * std::sin(0.7 * x + 0.4 * y));
    return scene;
}

cv::Mat lineKernel(int length) {
    const int side = length + 2 - length % 2 + 1;
    cv::Mat k = cv::Mat::zeros(side, side, CV_32F);
    cv::line(k, {1, side / 2 + length / 4}, {side - 2, side / 2 - length / 4}, cv::Scalar(1), 1,
             cv::LINE_AA);
    return k / cv::sum(k)[0];
}

/// scene convolved with kernel (its centre pixel the origin), white noise of sigma added,
/// rounded to 8 bits; the blur reads past the frame as a mirror would.
cv::Mat blurred(const cv::Mat& scene, const cv::Mat& kernel, double sigma) {
    cv::Mat flipped, out, noise(scene.size(), CV_32F), eight;
    cv::flip(kernel, flipped, -1);
    cv::filter2D(scene, out, CV_32F, flipped,
                 {kernel.cols - 1 - kernel.cols / 2, kernel.rows - 1 - kernel.rows / 2}, 0,
                 cv::BORDER_REFLECT);
    cv::RNG(11).fill(noise, cv::RNG::NORMAL, 0, sigma);
    cv::Mat(out + noise).convertTo(eight, CV_8U);
    return eight;
}

double psnr(const cv::Mat& sharp, const cv::Mat& restored, cv::Rect region) {
    cv::Mat a, b;
    sharp(region).convertTo(a, CV_64F);
    restored(region).convertTo(b, CV_64F);
    return 10 * std::log10(255.0 * 255.0 * double(a.total()) / cv::norm(a, b, cv::NORM_L2SQR));
}

cv::Rect centre(cv::Size size) {
    return {size.width / 8, size.height / 8, size.width * 3 / 4, size.height * 3 / 4};
}

engine::RestorationSettings settings(RestorationFilter filter, const cv::Mat& picture) {
    engine::RestorationSettings s;
    s.filter = filter;
    s.picture = engine::measurePicture(picture);
    return s;
}

cv::Mat restore(RestorationFilter filter, const cv::Mat& kernel, const cv::Mat& plane,
                double sharpness = engine::kDefaultSharpness) {
    engine::RestorationSettings s = settings(filter, plane);
    s.sharpness = sharpness;
    return PlaneRestorer(kernel, plane.size(), s).restore(plane);
}

/// The filter's restoration of y at the sharpness (every 10 from the smoothest to the crispest)
/// that brings y closest to sharp within region: filters compared each at its best.
cv::Mat restoredAtBest(RestorationFilter filter, const cv::Mat& kernel, const cv::Mat& y,
                       const cv::Mat& sharp, cv::Rect region) {
    cv::Mat best;
    double bestDistance = std::numeric_limits<double>::infinity();
    for (double s = engine::kMinSharpness; s <= engine::kMaxSharpness; s += 10) {
        cv::Mat x = restore(filter, kernel, y, s), a, b;
        sharp(region).convertTo(a, CV_64F);
        x(region).convertTo(b, CV_64F);
        const double distance = cv::norm(a, b, cv::NORM_L2SQR);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = x;
        }
    }
    return best;
}

TEST(PlaneRestorer, EdgePreservingBeatsTheOnePassFilterWhichBeatsTheBlurredInput) {
    const cv::Mat scene = edgeAndTextureScene({320, 256});
    for (const auto& [name, kernel] :
         {std::pair{"disk 9", diskKernel(9)}, std::pair{"line 13", lineKernel(13)}})
        for (const double sigma : {1.0, 3.0}) {
            SCOPED_TRACE(testing::Message() << name << " sigma " << sigma);
            const cv::Mat y = blurred(scene, kernel, sigma);
            const double input = psnr(scene, y, centre(y.size()));
            const double onePass =
                psnr(scene, restore(RestorationFilter::Regularised, kernel, y), centre(y.size()));
            const double edges = psnr(scene, restore(RestorationFilter::EdgePreserving, kernel, y),
                                      centre(y.size()));
            EXPECT_GT(onePass, input + 1.0);
            EXPECT_GT(edges, onePass + 0.5);
        }
}

TEST(PlaneRestorer, TheIterativePassRestoresTheFrameBetterThanTheOnePassFilter) {
    // The scene goes on past the frame, as a photograph's does: a larger one is blurred and cut.
    const cv::Mat scene = edgeAndTextureScene({352, 288});
    const cv::Rect inner(16, 16, 320, 256);
    cv::Mat band(inner.size(), CV_8U, cv::Scalar(255));
    band(cv::Rect(12, 12, inner.width - 24, inner.height - 24)).setTo(0);
    const auto bandPsnr = [&](const cv::Mat& picture) {
        cv::Mat a, b;
        scene(inner).convertTo(a, CV_64F);
        picture.convertTo(b, CV_64F);
        const double n = cv::countNonZero(band);
        return 10 * std::log10(255.0 * 255.0 * n / cv::norm(a, b, cv::NORM_L2SQR, band));
    };
    // Each filter at its best over the whole picture; the one-pass filter's default is smoother.
    const cv::Rect whole(cv::Point(), inner.size());
    for (const cv::Mat& kernel : {diskKernel(9), lineKernel(13)}) {
        const cv::Mat y = blurred(scene, kernel, 1.0)(inner);
        const double onePass = bandPsnr(
            restoredAtBest(RestorationFilter::Regularised, kernel, y, scene(inner), whole));
        const double edges = bandPsnr(
            restoredAtBest(RestorationFilter::EdgePreserving, kernel, y, scene(inner), whole));
        EXPECT_GT(edges, onePass + 1.0);
        EXPECT_GT(edges, bandPsnr(y) + 0.5);
    }
}

TEST(PlaneRestorer, EdgePreservingOvershootsAStepLessThanTheOnePassFilter) {
    cv::Mat step(128, 160, CV_32F, cv::Scalar(60));
    step.colRange(80, 160).setTo(190);
    const cv::Mat y = blurred(step, diskKernel(9), 1.0);
    const cv::Rect middle(40, 16, 80, 96);
    // Each filter at the sharpness that restores the step best.
    const auto overshoot = [&](RestorationFilter filter) {
        double low = 0, high = 0;
        cv::minMaxLoc(restoredAtBest(filter, diskKernel(9), y, step, middle)(middle), &low, &high);
        return std::max(high - 190, 60 - low);
    };
    const double onePass = overshoot(RestorationFilter::Regularised);
    const double edges = overshoot(RestorationFilter::EdgePreserving);
    EXPECT_GT(onePass, 4.0); // the one-pass filter rings, which is the point
    EXPECT_LT(edges, onePass / 2);
}

TEST(PlaneRestorer, ACropWithReachMarginsAgreesWithTheWholePlaneOnItsCore) {
    const cv::Mat kernel = diskKernel(5);
    const cv::Mat y = blurred(edgeAndTextureScene({448, 448}), kernel, 2.0);
    const cv::Rect core(192, 192, 64, 64);
    for (const RestorationFilter filter : kFilters) {
        SCOPED_TRACE(int(filter));
        const auto s = settings(filter, y);
        const int reach = PlaneRestorer::reach(kernel, s);
        ASSERT_LE(reach, core.x);
        const cv::Rect crop(core.x - reach, core.y - reach, core.width + 2 * reach,
                            core.height + 2 * reach);
        const cv::Mat whole = PlaneRestorer(kernel, y.size(), s).restore(y);
        const cv::Mat part = PlaneRestorer(kernel, crop.size(), s).restore(y(crop));
        EXPECT_GE(psnr(whole(core), part(core - crop.tl()), {{}, core.size()}), 45.0);
    }
}

TEST(PlaneRestorer, PutsARestoredPointWhereItWas) {
    // Far enough from the frame that what the filters make of it does not tilt the balance.
    for (const cv::Size size : {cv::Size(128, 96), cv::Size(127, 97)})
        for (const RestorationFilter filter : kFilters) {
            SCOPED_TRACE(testing::Message() << size << " filter " << int(filter));
            cv::Mat point(size, CV_32F, cv::Scalar(20));
            point.at<float>(45, 60) = 255;
            cv::Mat y;
            cv::filter2D(point, y, CV_32F, diskKernel(7), {-1, -1}, 0, cv::BORDER_REFLECT);
            const cv::Mat restored = restore(filter, diskKernel(7), y) - 20;
            const cv::Moments m = cv::moments(restored(cv::Rect(50, 35, 21, 21)));
            EXPECT_NEAR(m.m10 / m.m00, 10.0, 0.02);
            EXPECT_NEAR(m.m01 / m.m00, 10.0, 0.02);
        }
}

TEST(PlaneRestorer, DegenerateInputsHaveADefinedResult) {
    for (const RestorationFilter filter : kFilters) {
        SCOPED_TRACE(int(filter));
        const auto s = settings(filter, cv::Mat());
        const cv::Mat one(1, 1, CV_8U, cv::Scalar(77));
        // Classic's noise term takes 3 mu off the mean, as it always has.
        EXPECT_NEAR(PlaneRestorer(diskKernel(9), one.size(), s).restore(one).at<float>(0), 77, 2);
        const cv::Mat plane = blurred(edgeAndTextureScene({40, 30}), diskKernel(3), 1.0);
        const cv::Mat identity(1, 1, CV_32F, cv::Scalar(1));
        EXPECT_GT(psnr(plane, PlaneRestorer(identity, plane.size(), s).restore(plane),
                       {{}, plane.size()}),
                  30.0);
        const cv::Mat small = blurred(edgeAndTextureScene({12, 10}), diskKernel(31), 1.0);
        const cv::Mat big = PlaneRestorer(diskKernel(31), small.size(), s).restore(small);
        EXPECT_TRUE(big.size() == small.size() && cv::checkRange(big));
        const cv::Mat zeros = cv::Mat::zeros(20, 30, CV_16U);
        EXPECT_EQ(cv::norm(PlaneRestorer(diskKernel(5), zeros.size(), s).restore(zeros)), 0.0);
        const PlaneRestorer r(diskKernel(5), {20, 30}, s);
        EXPECT_THROW(r.restore(cv::Mat::zeros(21, 30, CV_8U)), std::invalid_argument);
        EXPECT_THROW(r.restore(cv::Mat::zeros(30, 20, CV_64F)), std::invalid_argument);
        EXPECT_TRUE(r.restore(cv::Mat::zeros(30, 20, CV_8U), [] { return true; }).empty());
        EXPECT_THROW(PlaneRestorer(cv::Mat::zeros(3, 3, CV_32F), {8, 8}, s), std::invalid_argument);
    }
}

TEST(PlaneRestorer, ThreadsAndConcurrentCallsGiveTheSerialResult) {
    const cv::Mat y = blurred(edgeAndTextureScene({200, 150}), diskKernel(7), 1.0);
    auto s = settings(RestorationFilter::EdgePreserving, y);
    const cv::Mat serial = PlaneRestorer(diskKernel(7), y.size(), s).restore(y);
    s.threads = 2;
    const PlaneRestorer shared(diskKernel(7), y.size(), s);
    cv::Mat other;
    std::thread thread([&] { other = shared.restore(y); });
    const cv::Mat mine = shared.restore(y);
    thread.join();
    EXPECT_LT(cv::norm(mine, serial, cv::NORM_INF), 1e-3);
    EXPECT_LT(cv::norm(other, serial, cv::NORM_INF), 1e-3);
}

TEST(EdgePreserving, ComesWithinHalfADecibelOfTheSlowReferenceAtTheSameWeight) {
    const cv::Mat scene = edgeAndTextureScene({112, 112});
    const cv::Mat kernel = diskKernel(7);
    const cv::Mat y = blurred(scene, kernel, 2.0);
    cv::Mat unit;
    y.convertTo(unit, CV_64F, 1.0 / 255);
    const auto layout = engine::canvasLayout(y.size(), kernel.cols / 2 + 16);
    const auto spectrum = engine::kernelSpectrum(kernel, layout.canvas, 1);
    auto weights = engine::edgePreservingWeights(kernel, {}, engine::kDefaultSharpness);
    for (const double lambda : {600.0, 3000.0}) {
        SCOPED_TRACE(lambda);
        weights.lambda = lambda;
        const cv::Mat fast =
            engine::restoreEdgePreserving(y, 1.0 / 255, layout, spectrum, weights, 1, {});
        const cv::Mat slow = reference::hyperLaplacianRestore(unit, kernel, lambda) * 255;
        EXPECT_GT(psnr(scene, fast, centre(y.size())), psnr(scene, slow, centre(y.size())) - 0.5);
    }
}

TEST(EdgePreserving, ShrinksAGradientAsTheExactMinimiserDoes) {
    for (const double beta : {16.0, 64.0, 256.0}) {
        SCOPED_TRACE(beta);
        // The exact minimiser jumps from 0 at a threshold, where the table's interpolation
        // spreads the jump over one of its steps; the comparison leaves 2 % around it out.
        double threshold = 0;
        while (reference::exactGradientShrink(threshold, beta, 2.0 / 3.0) == 0)
            threshold += 1e-5;
        for (double v = -0.6; v <= 0.6; v += 0.0013) {
            if (std::abs(std::abs(v) - threshold) < 0.02 * threshold)
                continue;
            EXPECT_NEAR(engine::shrinkGradient(float(v), float(beta)),
                        reference::exactGradientShrink(v, beta, 2.0 / 3.0), 1e-3 * std::abs(v))
                << v;
        }
    }
}

TEST(NoiseEstimate, IsWithinFifteenPercentOnATexturedScene) {
    const cv::Mat scene = edgeAndTextureScene({384, 320});
    for (const double sigma : {0.7, 1.5, 4.0}) {
        cv::Mat noise(scene.size(), CV_32F);
        cv::RNG(3).fill(noise, cv::RNG::NORMAL, 0, sigma);
        EXPECT_NEAR(engine::estimateNoiseSigma(scene + noise), sigma, 0.15 * sigma);
        cv::Mat deep;
        cv::Mat(scene + noise).convertTo(deep, CV_16U, 257);
        EXPECT_NEAR(engine::estimateNoiseSigma(deep), sigma, 0.15 * sigma);
    }
    EXPECT_EQ(engine::estimateNoiseSigma(cv::Mat(5, 5, CV_8U, cv::Scalar(9))), 0.0);
}

} // namespace
