#include "engine/padding.h"
#include "literal_reference.h"

#include <gtest/gtest.h>

using clarovi::engine::addPad;
using clarovi::engine::padMultiplier;
using clarovi::engine::PadParameters;
using clarovi::engine::trimWindow;

namespace {

// The sharpness control's starting value and range in the main window.
constexpr PadParameters kSliderDefaults{.muStart = 0.0035f, .muMin = 0.002f, .muMax = 0.008f};
// 0.25 * muMax / muMin is 0.9 (in float), which gives a border of exactly 100 on 2048 rows.
constexpr PadParameters kHundredOn2048{.muMin = 1.0f, .muMax = 3.6f};

} // namespace

// One more per 25 of length; a zero range bottom, or a start below it, falls back to a ratio of 1.
TEST(Padding, MultiplierGrowsByOnePer25OfLengthAndFallsBackToAFiniteOne) {
    using Case = std::pair<PadParameters, double>;
    for (const auto& [p, expected] :
         {Case{kSliderDefaults, 0.99114446}, Case{{25.0f, 0.0035f, 0.002f, 0.008f}, 1.99114446},
          Case{{10.0f, 0.0f, 0.0f, 0.008f}, 0.65}, Case{{10.0f, -2.0f, 0.001f, 1.0f}, 0.65}})
        EXPECT_NEAR(padMultiplier(p), expected, 1e-7) << p.eventLength << ' ' << p.muStart;
}

TEST(Padding, AddPadReplicatesAnEqualBorderSetByTheRows) {
    // Source size, parameters, padded size, and the border added as the caller is told.
    using Case = std::tuple<cv::Size, PadParameters, cv::Size, int>;
    for (const auto& [size, parameters, paddedSize, expectedAdded] : {
             Case{{2048, 2048}, kHundredOn2048, {2248, 2248}, 182}, // trunc(200 * 2048 / 2248)
             Case{{1000, 2048}, kHundredOn2048, {1200, 2248}, 166}, // the same border on the sides
             Case{{2048, 100}, kHundredOn2048, {2056, 108}, 7},     // trunc(0.9 * 100 / 18.32) = 4
             Case{{2048, 2048}, kSliderDefaults, {2268, 2268}, 198},
             Case{
                 {48, 64}, {.eventLength = -100.0f, .muMin = 0.002f, .muMax = 0.008f}, {48, 64}, 0},
             Case{{}, kHundredOn2048, {}, 0},
         }) {
        SCOPED_TRACE(testing::Message() << size);
        const cv::Mat source =
            size.empty() ? cv::Mat() : clarovi::reference::randomPlane(size, 1, CV_8U);
        const cv::Mat before = source.clone();
        int added = -1;
        const cv::Mat padded = addPad(source, 0.1, &added, parameters);
        ASSERT_EQ(padded.size(), paddedSize);
        EXPECT_EQ(added, expectedAdded);
        EXPECT_EQ(cv::norm(source, before, cv::NORM_INF), 0.0) << "the source is left alone";
        if (source.empty())
            continue;
        const int border = (paddedSize.height - size.height) / 2;
        cv::Mat expected;
        cv::copyMakeBorder(source, expected, border, border, border, border, cv::BORDER_REPLICATE);
        EXPECT_EQ(cv::norm(padded, expected, cv::NORM_INF), 0.0);
    }
}

TEST(Padding, TrimWindowCutsTheBorderOffWithinThePlane) {
    using Case = std::tuple<cv::Size, int, cv::Rect>; // restored, added, window
    for (const auto& [restored, added, expected] : {
             Case{{2048, 2048}, 182, {91, 92, 1866, 1866}},
             Case{{2048, 2048}, 2, {1, 2, 2046, 2046}},
             // Below 2 the window would run one row past the bottom; it is cut to the plane.
             Case{{2048, 2048}, 1, {0, 1, 2047, 2047}},
             Case{{2048, 2048}, 0, {0, 1, 2048, 2047}},
             Case{{1, 1}, 0, {}},
             Case{{10, 10}, 30, {}},
         }) {
        EXPECT_EQ(trimWindow(restored, added), expected) << restored << " added " << added;
    }
}
