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
    for (const bool motion : {false, true}) {
        SCOPED_TRACE(motion);
        window.galleries = 0;
        LogCapture log;
        QSignalSpy updates(&run, &AutoRun::updated);
        run.autoRequested = true;
        run.MainWrapper(settingOf(motion));
        EXPECT_TRUE(board.running(clarovi::jobs::Activity::Searching));
        ASSERT_TRUE(waitFor([&] { return window.galleries == 1; }, 60000));
        // A disk's step is one diameter, a streak's one angle's lengths; a disk's steps are
        // logged too.
        const auto results = qsizetype(Data::getInstance().arrayOfData.size());
        EXPECT_GT(updates.count(), 10);
        EXPECT_EQ(results, motion ? std::max(results, updates.count() * 5) : updates.count());
        EXPECT_EQ(log.count("PROGRESS"), motion ? 0 : updates.count());
        EXPECT_NEAR(window.progress, 1.0, 1e-6);
        EXPECT_FALSE(run.autoRequested);
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

// A guess of the mode's kind centres the search on it; one of the other kind is left aside,
// unless the search is to go in the guess's kind.
TEST_F(AutoRunTest, AGuessCentresTheSearchInTheModesKindOrItsOwn) {
    using clarovi::engine::BlurKind;
    opened.state.guess = {{BlurKind::Motion, 24, 30, 1}, 0.8, {}};
    using Case = std::tuple<bool, bool, BlurKind>; // motion mode, kind of the guess, kind searched
    for (const auto& [motion, kindOfGuess, searched] :
         {Case{true, false, BlurKind::Motion}, Case{false, false, BlurKind::OutOfFocus},
          Case{false, true, BlurKind::Motion}}) {
        window.galleries = 0;
        run.MainWrapper(settingOf(motion), kindOfGuess);
        ASSERT_TRUE(waitFor([&] { return window.galleries == 1; }));
        const std::vector<AutoResult>& results = Data::getInstance().arrayOfData;
        ASSERT_FALSE(results.empty());
        for (const AutoResult& result : results) {
            EXPECT_EQ(result.blur.kind, searched);
            if (searched == BlurKind::Motion) {
                EXPECT_NEAR(result.blur.length, 24, 0.35 * 24);
                EXPECT_NEAR(result.blur.angle, 30, 8);
            }
        }
    }
}
