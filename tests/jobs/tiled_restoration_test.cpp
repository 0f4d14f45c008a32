#include "job_fixtures.h"

#include "common/log_capture.h"
#include "engine/deconvolve.h"
#include "engine/padding.h"
#include "jobs/plane_restoration.h"
#include "jobs/tiled_restoration.h"

#include <gtest/gtest.h>

using namespace clarovi;
using clarovi::testing::LogCapture;
using clarovi::testing::OpenedPicture;
using clarovi::testing::scenePicture;

namespace {

// A drag step's run: the preview copy, quick, at the fixed tile size.
void dragRun(OpenedPicture& opened) {
    opened.state.activeImage = opened.state.previewSourceImage;
    opened.state.autoSilent = true;
    opened.jobs.runCompTrue();
}

// The side of the joined tiles, which must all be the same square.
int tileSideAfterTrim(const OpenedPicture& opened) {
    const auto& tiles = opened.jobs.tiled().tileOutputs();
    for (const cv::Mat& tile : tiles)
        EXPECT_EQ(tile.size(), cv::Size(tiles[0].rows, tiles[0].rows));
    return tiles[0].rows;
}

} // namespace

TEST(TiledRestoration, SixteenTilesCoverASquareWithoutOverlap) {
    for (const int side : {1024, 1030}) {
        SCOPED_TRACE(side);
        cv::Mat covered(side, side, CV_8U, cv::Scalar(0));
        for (int k = 0; k < jobs::kTileCount; ++k) {
            const cv::Rect tile = jobs::tileRect(k, side);
            EXPECT_EQ(tile.size(), cv::Size(side / 4, side / 4));
            covered(tile) += 1;
        }
        // Sixteen tiles' worth of pixels, each of them in one tile only.
        EXPECT_EQ(cv::countNonZero(covered == 1), 16 * (side / 4) * (side / 4));
    }
    EXPECT_EQ(jobs::tileRect(5, 1024), cv::Rect(256, 256, 256, 256));
    // Columns start at 0, q, h, h + q; rows at 0, q, 2q, 3q.
    EXPECT_EQ(jobs::tileRect(3, 1030), cv::Rect(772, 0, 257, 257));
    EXPECT_EQ(jobs::tileRect(12, 1030), cv::Rect(0, 771, 257, 257));
}

TEST(TiledRestoration, JoinedSizeFollowsKeepAspectAndQuickness) {
    OpenedPicture opened(scenePicture(600, 400));
    int added = 0;
    engine::addPad(cv::Mat(256, 256, CV_8U), 0.1, &added, opened.state.padParameters());

    dragRun(opened);
    EXPECT_EQ(tileSideAfterTrim(opened), 256 - added);
    EXPECT_EQ(opened.window.shown.size(), QSize(1024, 682)) << "longer side 1024 while dragging";
    EXPECT_EQ(opened.window.lockCount, 0);

    opened.state.keepAspect = false;
    dragRun(opened);
    EXPECT_EQ(tileSideAfterTrim(opened), 256) << "the whole border cut";

    opened.state.keepAspect = true;
    opened.state.autoSilent = false;
    opened.jobs.runCompTrue();
    EXPECT_EQ(tileSideAfterTrim(opened), 2048 - added);
    EXPECT_EQ(opened.window.shown.size(), QSize(2048, 1365));
    EXPECT_EQ(opened.window.lockCount, 1);
    EXPECT_EQ(opened.window.unlockCount, 1);
}

TEST(TiledRestoration, EveryTileEqualsRestoringItAlone) {
    OpenedPicture opened(scenePicture(640, 480));
    opened.window.length = 30;
    dragRun(opened);
    const auto kernel = jobs::jobKernel(opened.state.psfImage, 256);
    ASSERT_TRUE(kernel);
    const cv::Mat grey = engine::CVGrayscaleMat(opened.state.previewSourceImage);
    for (int k = 0; k < jobs::kTileCount; ++k) {
        SCOPED_TRACE(k);
        int added = 0;
        const cv::Mat padded = engine::addPad(grey(jobs::tileRect(k, 1024)), 0.1, &added,
                                              opened.state.padParameters());
        cv::Mat restored;
        engine::deconvolvePlane(opened.window.mu, jobs::fitToSide(padded, 256), restored, *kernel);
        const cv::Mat alone = jobs::trimmedEightBit(restored, added);
        const cv::Mat& tiled = opened.jobs.tiled().tileOutputs()[k];
        ASSERT_EQ(tiled.size(), alone.size());
        EXPECT_LE(cv::norm(tiled, alone, cv::NORM_INF), 1.0);
    }
}

TEST(TiledRestoration, ASecondStartWhileRunningIsRefusedAndChangesNothing) {
    // A window that tries to start another run from inside the first one.
    struct ReenteringWindow : jobs::HeadlessWindow {
        std::function<void()> duringLock;
        void lockEverything() override {
            HeadlessWindow::lockEverything();
            if (duringLock)
                duringLock();
        }
    };
    jobs::ControllerState state;
    ReenteringWindow window;
    jobs::RestorationJobs jobs(state, window);
    state.setUpDefaults(window.mu, 0.002f, 0.008f, window.length);
    state.installPicture(scenePicture(300, 200));
    state.keepAspect = false; // small tiles: the point is the guard, not the restoration
    window.shown =
        engine::imageWithImage(state.sourceImage, {state.displayWidth, state.displayHeight});

    LogCapture log;
    window.duringLock = [&] {
        EXPECT_FALSE(jobs.tiledIdle());
        const QImage psf = state.psfImage;
        const int locks = window.lockCount;
        jobs.auxTrue();
        EXPECT_EQ(state.psfImage, psf);
        EXPECT_EQ(window.lockCount, locks);
    };
    jobs.auxTrue();
    EXPECT_EQ(log.count("TRIED TO START BUT OTHER..."), 1);
    EXPECT_EQ(log.count("######TIME ELAPSED"), 1);
    EXPECT_TRUE(jobs.tiledIdle());
}

TEST(TiledRestoration, ARunWithoutAPictureStillDrawsItsPsfAndEndsIdle) {
    OpenedPicture opened(scenePicture(300, 200));
    opened.window.shown = QImage();
    opened.state.activeImage = QImage(2048, 2048, QImage::Format_RGB32);
    LogCapture log;
    opened.jobs.runCompTrue();
    EXPECT_TRUE(opened.jobs.tiledIdle() && log.count("THREAD RUN") == 0);
    EXPECT_EQ(opened.state.psfImage.size(), QSize(256, 256));
    EXPECT_EQ(log.count("NEW PSF IS 5.000000"), 1);
}

// Every length the slider's first sixty steps reach, one run after the other on the same jobs.
TEST(TiledRestoration, SixtyRunsInARowAtEveryLength) {
    OpenedPicture opened(scenePicture(400, 300));
    LogCapture log;
    for (int run = 0; run < 60; ++run) {
        opened.window.length = float(1 + run);
        dragRun(opened);
        ASSERT_TRUE(opened.jobs.tiledIdle() && opened.window.errors.isEmpty()) << run;
    }
    EXPECT_EQ(log.count("######I SIZE"), 60 * 16) << "every tile of every run";
}
