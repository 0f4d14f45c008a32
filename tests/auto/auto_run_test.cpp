#include "auto/auto_run.h"
#include "common/log_capture.h"
#include "common/wait.h"
#include "jobs/job_fixtures.h"

#include <QSignalSpy>
#include <QThread>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace clarovi::autosearch;
using clarovi::testing::LogCapture;
using clarovi::testing::OpenedPicture;
using clarovi::testing::waitFor;

namespace {

struct FakeAutoWindow : AutoWindowPort {
    double progress = -1;
    QString text, failure;
    int galleries = 0, appearances = 0;
    void showProgress(double fraction, const QString& line) override {
        progress = fraction;
        text = line;
    }
    void showCv() override { ++galleries; }
    void AppearActions() override { ++appearances; }
    void showSearchFailure(const QString& why) override { failure = why; }
};

QImage quickThumbnail(const clarovi::engine::BlurOnPhoto&) {
    QThread::msleep(1); // long enough for a cancel to land mid-run
    return QImage(4, 3, QImage::Format_Grayscale8);
}

QImage failingThumbnail(const clarovi::engine::BlurOnPhoto&) {
    throw std::runtime_error("no memory left");
}

class AutoRunTest : public ::testing::Test {
  protected:
    AutoRunTest() : opened(clarovi::testing::scenePicture(300, 200)) {
        Data::getInstance().toPut = false;
    }

    OpenedPicture opened;
    clarovi::jobs::ActivityBoard board;
    FakeAutoWindow window;
    AutoRun run{opened.state, board, window, quickThumbnail};
};

clarovi::jobs::Setting settingOf(bool motion) {
    clarovi::jobs::Setting setting;
    setting.blur.kind =
        motion ? clarovi::engine::BlurKind::Motion : clarovi::engine::BlurKind::OutOfFocus;
    return setting;
}

} // namespace

// Searching, then awaiting a pick, is on the board throughout; the pick is applied once.
TEST_F(AutoRunTest, ACompletedRunShowsEveryStepThenTheGallery) {
    // motion, updates and PROGRESS lines.
    for (const auto& [motion, updateCount, progressLines] :
         {std::tuple{false, 41, 41}, std::tuple{true, 42, 0}}) {
        SCOPED_TRACE(motion);
        window.galleries = 0;
        LogCapture log;
        QSignalSpy updates(&run, &AutoRun::updated);
        run.autoRequested = true;
        run.MainWrapper(settingOf(motion));
        EXPECT_TRUE(board.running(clarovi::jobs::Activity::Searching));
        ASSERT_TRUE(waitFor([&] { return window.galleries == 1; }, 60000));
        EXPECT_EQ(updates.count(), updateCount);
        EXPECT_EQ(log.count("PROGRESS"), progressLines);
        EXPECT_NEAR(window.progress, 1.0, 1e-6);
        EXPECT_FALSE(run.autoRequested);
        EXPECT_EQ(Data::getInstance().arrayOfData.size(), size_t(updateCount * (motion ? 23 : 1)));
        EXPECT_TRUE(board.running(clarovi::jobs::Activity::AwaitingPick) && board.covered());
        EXPECT_FALSE(board.running(clarovi::jobs::Activity::Searching));
    }

    // Without a pick nothing is applied; with one, it is applied once and the wait ends.
    run.unWrap();
    EXPECT_EQ(window.appearances, 0);
    Data::getInstance().toPut = true;
    run.unWrap();
    EXPECT_EQ(window.appearances, 1);
    EXPECT_FALSE(board.covered());
    Data::getInstance().toPut = false;
    EXPECT_EQ(remainingText(11.4), "About 11 s left");
}

TEST_F(AutoRunTest, ACancelledOrFailedRunLeavesTheResultsAsBefore) {
    Data::getInstance().arrayOfData.assign(1, AutoResult{});
    QSignalSpy cancelled(&run, &AutoRun::cancelled);
    QSignalSpy updates(&run, &AutoRun::updated);

    run.MainWrapper(settingOf(true));
    ASSERT_TRUE(waitFor([&] { return updates.count() >= 1; }));
    run.cancel();
    ASSERT_TRUE(waitFor([&] { return cancelled.count() == 1; }));
    EXPECT_TRUE(window.failure.isEmpty());

    AutoRun failing(opened.state, board, window, failingThumbnail);
    QSignalSpy failedRun(&failing, &AutoRun::failed);
    failing.MainWrapper(settingOf(true));
    ASSERT_TRUE(waitFor([&] { return failedRun.count() == 1; }));
    EXPECT_TRUE(window.failure.contains("no memory left")) << window.failure.toStdString();
    EXPECT_EQ(cancelled.count(), 1);

    EXPECT_FALSE(board.covered() || run.searching() || failing.searching());
    EXPECT_EQ(window.galleries, 0);
    EXPECT_EQ(Data::getInstance().arrayOfData.size(), 1u);
    Data::getInstance().arrayOfData.clear();

    // Left under way: destroying it must stop the search before the state it reads goes.
    run.MainWrapper(settingOf(true));
    ASSERT_TRUE(waitFor([&] { return updates.count() >= 2; }));
}

// An estimate of the mode's kind centres the search on it; one of the other kind is left aside.
TEST_F(AutoRunTest, AnEstimateOfTheModesKindCentresTheSearch) {
    opened.state.estimate = {clarovi::engine::BlurKind::Motion, 24, 30, 1};
    for (const bool motion : {true, false}) {
        window.galleries = 0;
        run.MainWrapper(settingOf(motion));
        ASSERT_TRUE(waitFor([&] { return window.galleries == 1; }));
        EXPECT_EQ(Data::getInstance().arrayOfData.size(), motion ? 15u * 13 : 41u);
    }
}
