#include "auto/auto_run.h"
#include "common/log_capture.h"
#include "common/wait.h"
#include "jobs/job_fixtures.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

using namespace clarovi::autosearch;
using clarovi::testing::LogCapture;
using clarovi::testing::OpenedPicture;
using clarovi::testing::waitFor;

namespace {

struct FakeAutoWindow : AutoWindowPort {
    bool overlay = false;
    double progress = -1;
    QString text;
    int galleries = 0;
    int appearances = 0;
    void showOverlay(bool shown) override { overlay = shown; }
    void showProgress(double fraction) override { progress = fraction; }
    void showProgressText(const QString& t) override { text = t; }
    void showCv() override { ++galleries; }
    void AppearActions() override { ++appearances; }
};

class AutoRunTest : public ::testing::Test {
  protected:
    AutoRunTest() : opened(clarovi::testing::scenePicture(300, 200)), run(opened.state, window) {
        run.setStepForTests([] {
            QThread::msleep(1);
            return QImage(4, 3, QImage::Format_Grayscale8);
        });
        Data::getInstance().toPut = false;
    }

    OpenedPicture opened;
    FakeAutoWindow window;
    AutoRun run;
    LogCapture log;
};

} // namespace

TEST_F(AutoRunTest, AnOutOfFocusRunShowsEveryStepThenTheGalleryAndWaitsFiveSeconds) {
    QSignalSpy updates(&run, &AutoRun::updated);
    run.autoRequested = true;
    run.MainWrapper();
    EXPECT_TRUE(window.overlay);
    ASSERT_TRUE(waitFor([&] { return window.galleries == 1; }));
    EXPECT_EQ(updates.count(), 41);
    EXPECT_EQ(log.count("PROGRESS"), 41);
    EXPECT_DOUBLE_EQ(window.progress, 1.0);
    EXPECT_EQ(window.text, "Waiting for selection...");
    EXPECT_FALSE(run.autoRequested);
    EXPECT_TRUE(run.pickTimer().isActive());
    EXPECT_EQ(run.pickTimer().interval(), 5000);
    EXPECT_FALSE(run.pickTimer().isSingleShot());
    EXPECT_EQ(Data::getInstance().arrayOfData.size(), 41u);
    EXPECT_TRUE(opened.state.autoSilent);
    EXPECT_EQ(opened.state.autoLengthEnd, 42);

    // Ticks without a pick change nothing; the tick after a pick applies it once.
    run.unWrap();
    run.unWrap();
    EXPECT_EQ(window.appearances, 0);
    EXPECT_TRUE(window.overlay);
    Data::getInstance().toPut = true;
    run.unWrap();
    EXPECT_EQ(window.appearances, 1);
    EXPECT_FALSE(window.overlay);
    EXPECT_FALSE(run.pickTimer().isActive());
    Data::getInstance().toPut = false;
}

TEST_F(AutoRunTest, AMotionRunPollsForThePickEveryTwoSeconds) {
    opened.state.motionBlur = true;
    QSignalSpy updates(&run, &AutoRun::updated);
    run.MainWrapper();
    ASSERT_TRUE(waitFor([&] { return window.galleries == 1; }, 60000));
    EXPECT_EQ(updates.count(), 42);
    EXPECT_EQ(log.count("PROGRESS"), 0);
    EXPECT_NEAR(window.progress, 41.0 / 42, 1e-6);
    EXPECT_EQ(run.pickTimer().interval(), 2000);
    EXPECT_DOUBLE_EQ(opened.state.currentAngle, 328);
    EXPECT_DOUBLE_EQ(opened.state.currentWidth, 0.2);
    EXPECT_EQ(opened.state.autoLengthEnd, 91);

    // A pick one second after the gallery opened is applied at the next tick.
    QElapsedTimer sincePick;
    QTest::qWait(1000);
    Data::getInstance().toPut = true;
    sincePick.start();
    ASSERT_TRUE(waitFor([&] { return window.appearances == 1; }, 3000));
    EXPECT_LE(sincePick.elapsed(), 1500);
    Data::getInstance().toPut = false;
}

TEST_F(AutoRunTest, CancelLeavesTheStateAsBeforeTheRun) {
    opened.state.motionBlur = true;
    const QImage active = opened.state.activeImage;
    const double angle = opened.state.currentAngle;
    QSignalSpy cancelled(&run, &AutoRun::cancelled);
    QSignalSpy updates(&run, &AutoRun::updated);
    run.MainWrapper();
    ASSERT_TRUE(waitFor([&] { return updates.count() >= 1; }));
    run.cancel();
    ASSERT_TRUE(waitFor([&] { return cancelled.count() == 1; }));
    EXPECT_FALSE(window.overlay);
    EXPECT_EQ(window.galleries, 0);
    EXPECT_FALSE(run.searching());
    EXPECT_EQ(opened.state.activeImage, active);
    EXPECT_DOUBLE_EQ(opened.state.currentAngle, angle);
    EXPECT_EQ(opened.state.autoLengthEnd, 42);
    EXPECT_FALSE(opened.state.autoSilent);
}
