#include "jobs/plane_recipe.h"

#include "common/scenes.h"
#include "engine/psf.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using namespace clarovi;
using jobs::PlaneRecipe;
using jobs::Setting;
using jobs::Tile;

namespace {

/// A plane with sharp detail everywhere, at 8 or 16 bits.
cv::Mat scene(cv::Size size, int depth) {
    cv::Mat plane = clarovi::testing::deadLeaves(size, size.area() / 150, 5, 80);
    if (depth == CV_16U)
        plane.convertTo(plane, CV_16U, 257.0);
    return plane;
}

cv::Mat restored(const cv::Mat& plane, const Setting& setting, const PlaneRecipe& recipe) {
    std::vector<cv::Mat> planes{plane};
    EXPECT_TRUE(jobs::restorePlanes(planes, setting, recipe));
    return planes.front();
}

struct TileCase {
    engine::BlurOnPhoto blur;
    double scale;
    int depth;
};

class TiledRestoration : public ::testing::TestWithParam<TileCase> {};

// Restored in small tiles, a blurred plane comes out as restored whole, within a grey level
// nearly everywhere: no tile boundary shows.
// The blurs are short so that the filter's reach leaves room for several tiles on the plane.
TEST_P(TiledRestoration, JoinsAsTheWholePlane) {
    const auto& [blur, scale, depth] = GetParam();
    const cv::Mat kernel = engine::MakePsfD(blur, scale);
    cv::Mat plane = clarovi::testing::blurredWithNoise(scene({1900, 900}, CV_8U), kernel, 1.0);
    if (depth == CV_16U)
        plane.convertTo(plane, CV_16U, 257.0);
    const Setting setting{blur, jobs::kSharpnessRange.initial};
    PlaneRecipe whole{scale, false, {}, 2};
    PlaneRecipe tiled = whole;
    tiled.wholeUpTo = 0;
    tiled.tileCore = 300;
    const int reach = engine::PlaneRestorer::reach(
        kernel, jobs::restorationSettings(setting, tiled, engine::measurePicture(plane)));
    ASSERT_GT(jobs::tilesOf(plane.size(), reach, tiled).size(), 3u);
    const cv::Mat wholePlane = restored(plane, setting, whole);
    const cv::Mat pieces = restored(plane, setting, tiled);
    const double full = depth == CV_16U ? 65535.0 : 255.0;
    // Within a grey level of 8 bits anywhere (a step at a boundary would exceed it), and far
    // closer on the whole.
    cv::Mat difference;
    cv::absdiff(wholePlane, pieces, difference);
    const double stray = cv::countNonZero(difference > full / 255.0) / double(plane.total());
    // The edge-preserving pass keeps or drops a faint gradient by a threshold, so a pixel here
    // and there comes out differently; tiles with too little overlap stray far more (42 dB or
    // less, 5 % or more of the pixels).
    EXPECT_GT(cv::PSNR(wholePlane, pieces, full), 48.0);
    EXPECT_LT(stray, 0.04);
}

INSTANTIATE_TEST_SUITE_P(
    ShortBlurs, TiledRestoration,
    ::testing::Values(TileCase{{engine::BlurKind::OutOfFocus, 12, 0, 1}, 0.5, CV_8U},
                      TileCase{{engine::BlurKind::Motion, 14, 35, 1}, 0.5, CV_16U},
                      TileCase{{engine::BlurKind::Motion, 5, -80, 3}, 1.5, CV_8U}),
    [](const ::testing::TestParamInfo<TileCase>& param) {
        return std::string(param.param.depth == CV_8U ? "eightBit" : "sixteenBit") +
               std::to_string(param.index);
    });

// A blurred picture is restored where it was: shifted by a pixel either way it is further from
// the sharp picture.
TEST(PlaneRecipe, RestoresWithoutShifting) {
    const cv::Mat sharp = scene({400, 300}, CV_8U);
    for (const engine::BlurOnPhoto& blur :
         {engine::BlurOnPhoto{engine::BlurKind::OutOfFocus, 9},
          engine::BlurOnPhoto{engine::BlurKind::Motion, 14, 60}}) {
        const cv::Mat blurred =
            clarovi::testing::blurredWithNoise(sharp, engine::MakePsfD(blur, 1.0), 0.5);
        const cv::Mat back = restored(blurred, {blur, 60}, {1.0, false, {}, 1});
        const cv::Rect inner(20, 20, 360, 260);
        const auto errorAt = [&](int dx, int dy) {
            return cv::norm(back(inner + cv::Point(dx, dy)), sharp(inner), cv::NORM_L2);
        };
        for (const cv::Point shift :
             {cv::Point(1, 0), cv::Point(-1, 0), cv::Point(0, 1), cv::Point(0, -1)})
            EXPECT_LT(errorAt(0, 0), errorAt(shift.x, shift.y)) << shift;
    }
}

// Empty and 1 x 1 planes, and cancelling before the first tile: defined, nothing half done.
TEST(PlaneRecipe, DegenerateInputsAndCancelling) {
    const Setting setting{{engine::BlurKind::OutOfFocus, 30}};
    std::vector<cv::Mat> none;
    EXPECT_TRUE(jobs::restorePlanes(none, setting, {}));
    const cv::Mat dot(1, 1, CV_8U, cv::Scalar(77));
    EXPECT_EQ(restored(dot, setting, {}).size(), cv::Size(1, 1));
    std::vector<cv::Mat> planes{scene({64, 48}, CV_8U)};
    const cv::Mat before = planes.front().clone();
    EXPECT_FALSE(jobs::restorePlanes(planes, setting, {}, {{}, [] { return true; }}));
    EXPECT_EQ(cv::norm(planes.front(), before, cv::NORM_INF), 0.0);
    std::vector<cv::Mat> mixed{cv::Mat(8, 8, CV_8U), cv::Mat(8, 8, CV_32F)};
    EXPECT_THROW(jobs::restorePlanes(mixed, setting, {}), std::invalid_argument);
}

} // namespace
