#include "engine/deconvolve.h"
#include "engine/padding.h"
#include "jobs/full_size_restoration.h"

#include <QElapsedTimer>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using namespace clarovi;

namespace {

jobs::BlurSetting disk(float length) {
    jobs::BlurSetting setting;
    setting.length = length;
    setting.mu = 0.0035;
    setting.pad = {length, 0.0035f, 0.002f, 0.008f};
    return setting;
}

// Edges and text that cross the tile seams, on a plane of the given depth.
cv::Mat structured(cv::Size size, int type, double white) {
    cv::Mat plane(size, type, cv::Scalar(white * 0.4));
    for (int k = 0; k < 40; ++k) {
        const cv::Point at(k * 977 % size.width, k * 613 % size.height);
        cv::rectangle(plane, at, at + cv::Point(300, 17 * k % 200 + 40), cv::Scalar(k % 2 * white));
        cv::putText(plane, "seam 0123", at + cv::Point(-150, 60), cv::FONT_HERSHEY_SIMPLEX, 3.0,
                    cv::Scalar(white * (0.9 - k % 3 * 0.3)), 4);
    }
    return plane;
}

} // namespace

TEST(FullSizeRestoration, KernelAndBorderGrowWithTheSource) {
    struct Case {
        float length;
        QSize source;
        int diameter;
    };
    for (const Case c :
         {Case{20, {1024, 700}, 10}, Case{10, {3000, 8192}, 40}, Case{9, {6000, 4000}, 28}}) {
        const cv::Mat kernel = *jobs::fullSizeKernel(disk(c.length), c.source);
        const cv::Rect box = cv::boundingRect(kernel > 0);
        EXPECT_NEAR(box.width, c.diameter, 1.5) << c.source.width();
        EXPECT_NEAR(cv::sum(kernel)[0], 1.0, 1e-5);
        // The working picture's border, in proportion to the longer side.
        const double working =
            engine::addPad(cv::Mat(2048, 2048, CV_8U), 0.1, nullptr, disk(c.length).pad).rows -
            2048;
        const double s = std::max(c.source.width(), c.source.height()) / 2048.0;
        EXPECT_NEAR(jobs::fullSizeBorder(disk(c.length), c.source), 0.5 * working * s, s + 1);
    }
    EXPECT_FALSE(jobs::fullSizeKernel(disk(1), {16, 12}));
}

TEST(FullSizeRestoration, TiledAgreesWithTheWholePlaneAcrossSeams) {
    // Either way round, so that seams run both ways.
    for (const cv::Size size : {cv::Size(3000, 2000), cv::Size(2000, 3000)}) {
        const cv::Mat source = structured(size, CV_8U, 255);
        const QSize qsize(size.width, size.height);
        const cv::Mat kernel = *jobs::fullSizeKernel(disk(10), qsize);
        const int border = jobs::fullSizeBorder(disk(10), qsize);
        cv::Mat padded, whole, expected;
        cv::copyMakeBorder(source, padded, border, border, border, border, cv::BORDER_REPLICATE);
        engine::deconvolvePlane(0.0035, padded, whole, kernel);
        whole(cv::Rect({border, border}, size)).convertTo(expected, CV_8U);
        std::vector<cv::Mat> planes{source.clone()};
        double progress = 0;
        ASSERT_TRUE(jobs::restoreFullSize(planes, kernel, 0.0035, border,
                                          {[&](double p) { progress = p; }, {}}));
        EXPECT_GE(cv::PSNR(planes[0], expected), 45.0) << size;
        EXPECT_EQ(progress, 1.0);
    }
}

TEST(FullSizeRestoration, SharpensInPlaceAndClipsSixteenBits) {
    cv::Mat sharp = structured({2600, 500}, CV_16U, 65535);
    sharp(cv::Rect(1700, 100, 500, 350)).setTo(0);
    sharp(cv::Rect(1750, 150, 120, 150)).setTo(10000);
    sharp(cv::Rect(2049, 299, 3, 3)).setTo(65535); // an off-centre dot past a tile seam
    const cv::Mat kernel = *jobs::fullSizeKernel(disk(10), {6000, 4000});
    cv::Mat blurred;
    cv::filter2D(sharp, blurred, -1, kernel, {-1, -1}, 0, cv::BORDER_REPLICATE);
    // The sharp picture restored again overshoots its edges both ways.
    std::vector<cv::Mat> planes{blurred.clone(), sharp.clone()};
    ASSERT_TRUE(jobs::restoreFullSize(planes, kernel, 0.0035, 200));
    ASSERT_EQ(planes[0].type(), CV_16U);
    EXPECT_LT(cv::norm(planes[0], sharp), 0.9 * cv::norm(blurred, sharp));
    EXPECT_NEAR(planes[0].at<ushort>(225, 1810), 10000, 300); // not rescaled
    double low, high;
    cv::minMaxLoc(planes[1], &low, &high);
    EXPECT_EQ(low, 0.0);
    EXPECT_EQ(high, 65535.0);
    const cv::Moments dot = cv::moments(planes[0](cv::Rect(2010, 260, 81, 81)));
    EXPECT_NEAR(dot.m10 / dot.m00, 40, 0.6);
    EXPECT_NEAR(dot.m01 / dot.m00, 40, 0.6);
}

TEST(FullSizeRestoration, CancelsAndTakesDegenerateSizes) {
    std::vector<cv::Mat> planes{cv::Mat(6000, 4000, CV_8U, cv::Scalar(9))};
    const cv::Mat kernel = *jobs::fullSizeKernel(disk(10), {6000, 4000});
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(jobs::restoreFullSize(planes, kernel, 0.0035, 200, {{}, [] { return true; }}));
    EXPECT_LT(timer.elapsed(), 1000);
    for (const cv::Size size :
         {cv::Size(1, 1), cv::Size(2500, 1), cv::Size(1, 7), cv::Size(3, 2)}) {
        std::vector<cv::Mat> grey{cv::Mat(size, CV_8U, cv::Scalar(200))};
        for (const int border : {0, 4}) {
            ASSERT_TRUE(jobs::restoreFullSize(grey, kernel, 0.0035, border));
            EXPECT_EQ(grey[0].size(), size);
            EXPECT_NEAR(cv::mean(grey[0])[0], 200, 10);
        }
    }
}
