#include "auto/auto_search.h"
#include "engine/image_bridge.h"
#include "jobs/job_fixtures.h"

#include <gtest/gtest.h>

#include <thread>

using namespace clarovi::autosearch;
using clarovi::testing::OpenedPicture;
using clarovi::testing::scenePicture;

namespace {

QImage tinyThumbnail() {
    QImage picture(4, 3, QImage::Format_RGB32);
    picture.fill(Qt::gray);
    return picture;
}

// A search whose steps only record their counters: the grid and the progress without the cost.
struct FakeSearch {
    SearchInput input;
    std::unique_ptr<AutoSearch> search;
    std::vector<ProgressUpdate> updates;
    std::atomic<bool> cancel{false};

    explicit FakeSearch(bool motion, int lengthEnd = 42) {
        input.motionBlur = motion;
        input.autoLengthEnd = lengthEnd;
        input.currentAngle = -45;
        input.currentWidth = 1.5;
        search = std::make_unique<AutoSearch>(input);
        search->setStep([] { return tinyThumbnail(); });
    }
    bool run() {
        return search->run([this](const ProgressUpdate& u) { updates.push_back(u); }, cancel);
    }
};

int labelOf(int length) {
    return std::max(1, int(length * 13 / 21.0));
}

} // namespace

TEST(AutoSearch, OutOfFocusTriesDiametersOneToFortyOne) {
    FakeSearch fake(false);
    ASSERT_TRUE(fake.run());
    const auto& results = fake.search->results;
    ASSERT_EQ(results.size(), 41u);
    const int firstLabels[] = {1, 1, 1, 2, 3, 3, 4, 4, 5, 6};
    for (int k = 0; k < 10; ++k)
        EXPECT_EQ(results[k].labelLength, firstLabels[k]) << k;
    EXPECT_EQ(results.back().labelLength, 25);
    for (const AutoResult& r : results)
        EXPECT_FLOAT_EQ(r.angle, -45.0f) << "the main window's angle at the time";

    ASSERT_EQ(fake.updates.size(), 41u);
    const double t = fake.updates[0].remaining / 40;
    for (int k = 0; k < 41; ++k) {
        SCOPED_TRACE(k);
        EXPECT_EQ(fake.updates[k].step, k + 1);
        EXPECT_EQ(fake.updates[k].last, k == 40);
        EXPECT_FLOAT_EQ(fake.updates[k].fraction, float((k + 1) * (1.0 / 41)));
        EXPECT_NEAR(fake.updates[k].remaining, (40 - k) * t, 1e-9);
        EXPECT_EQ(fake.updates[k].kind, SearchKind::OutOfFocus);
    }
    EXPECT_EQ(fake.search->autoLengthEnd, 42);
    EXPECT_DOUBLE_EQ(fake.search->currentWidth, 1.5) << "out of focus leaves the width";
}

TEST(AutoSearch, MotionTriesFortyTwoAnglesOfTwentyThreeLengths) {
    FakeSearch fake(true);
    std::vector<int> lengths;
    fake.search->setStep([&] {
        lengths.push_back(fake.search->autoLength);
        return tinyThumbnail();
    });
    ASSERT_TRUE(fake.run());
    const auto& results = fake.search->results;
    ASSERT_EQ(results.size(), 966u);
    for (int k = 0; k < 966; ++k) {
        SCOPED_TRACE(k);
        EXPECT_FLOAT_EQ(results[k].angle, float(8 * (k / 23)));
        EXPECT_EQ(lengths[k], 1 + 4 * (k % 23));
        EXPECT_EQ(results[k].labelLength, labelOf(1 + 4 * (k % 23)));
    }
    EXPECT_EQ(results.front().labelLength, 1);
    EXPECT_EQ(results.back().labelLength, 55);

    ASSERT_EQ(fake.updates.size(), 42u);
    for (int a = 0; a < 42; ++a) {
        EXPECT_FLOAT_EQ(fake.updates[a].fraction, float(a * (1.0 / 42))) << a;
        EXPECT_EQ(fake.updates[a].last, a == 41);
    }
    EXPECT_NEAR(fake.updates.back().remaining, 0, 1e-9);
    EXPECT_DOUBLE_EQ(fake.search->currentAngle, 328);
    EXPECT_DOUBLE_EQ(fake.search->currentWidth, 0.2);
    EXPECT_EQ(fake.search->autoLengthEnd, 91);

    // After a motion search the bound stays 91: an out-of-focus search then tries 90 diameters.
    FakeSearch after(false, fake.search->autoLengthEnd);
    ASSERT_TRUE(after.run());
    EXPECT_EQ(after.search->results.size(), 90u);
}

TEST(AutoSearch, CancelStopsAfterTheStepUnderWay) {
    FakeSearch fake(false);
    fake.search->setStep([&] {
        if (fake.search->autoLength == 5)
            fake.cancel = true;
        return tinyThumbnail();
    });
    EXPECT_FALSE(fake.run());
    EXPECT_EQ(fake.search->results.size(), 5u);
}

TEST(AutoSearch, AutoPadGrowsInFourStages) {
    const cv::Mat plane(512, 512, CV_8U, cv::Scalar(7));
    AutoSearch search(SearchInput{});
    struct Stage {
        int length;
        int rows;
        int pad;
    };
    for (const Stage& s :
         {Stage{1, 712, 143}, Stage{22, 712, 143}, Stage{23, 768, 170}, Stage{47, 768, 170},
          Stage{48, 824, 193}, Stage{72, 824, 193}, Stage{73, 880, 214}, Stage{89, 880, 214}}) {
        SCOPED_TRACE(s.length);
        search.autoLength = s.length;
        int pad = 0;
        const cv::Mat padded = search.addAutoPad(plane, 0.1, &pad);
        EXPECT_EQ(padded.rows, s.rows);
        EXPECT_EQ(padded.cols, s.rows);
        EXPECT_EQ(pad, s.pad);
    }
}

TEST(AutoSearch, ThumbnailCropsZoomOnTheCentre) {
    struct Case {
        int side;
        int pad;
        int expected;
    };
    // Restored at 512 (keepAspect) or at the padded size.
    for (const Case& c :
         {Case{512, 143, 208}, Case{512, 170, 193}, Case{512, 193, 180}, Case{512, 214, 168},
          Case{712, 143, 321}, Case{768, 170, 337}, Case{824, 193, 356}, Case{880, 214, 375}}) {
        SCOPED_TRACE(c.side * 1000 + c.pad);
        const cv::Mat crop = AutoSearch::thumbnailCrop(cv::Mat(c.side, c.side, CV_8U), c.pad);
        EXPECT_EQ(crop.rows, c.expected);
        EXPECT_EQ(crop.cols, c.expected);
    }
}

TEST(AutoSearch, ThumbnailsKeepThePicturesAspectWithALongerSideOf512) {
    for (const QSize photo : {QSize(4000, 3000), QSize(3000, 4000)}) {
        SCOPED_TRACE(photo.width());
        OpenedPicture opened(scenePicture(photo.width(), photo.height()));
        AutoSearch search(snapshotOf(opened.state));
        search.autoLength = 20;
        const QImage thumbnail = search.ComputateAuto();
        EXPECT_EQ(thumbnail.size(),
                  photo.width() > photo.height() ? QSize(512, 384) : QSize(384, 512));
        EXPECT_EQ(search.autoLabelLength, 12);
        EXPECT_EQ(search.activeImage.size(), QSize(512, 512));
        EXPECT_TRUE(search.autoSilent);
    }
}

TEST(AutoSearch, MotionStepsRestoredSideBySideEqualThoseRestoredAlone) {
    OpenedPicture opened(scenePicture(640, 480));
    opened.state.motionBlur = true;
    AutoSearch search(snapshotOf(opened.state));
    search.autoAngleCount = 1; // one angle: 23 real restorations
    std::atomic<bool> cancel{false};
    ASSERT_TRUE(search.run([](const ProgressUpdate&) {}, cancel));
    ASSERT_EQ(search.results.size(), 23u);
    EXPECT_EQ(search.autoLength, 93) << "as after the last length, 89, plus 4";

    AutoSearch alone(snapshotOf(opened.state));
    for (int k = 0; k < 23; k += 11) {
        SCOPED_TRACE(k);
        alone.autoLength = 1 + 4 * k;
        const QImage expected = alone.ComputateAuto().convertToFormat(QImage::Format_Grayscale8);
        EXPECT_EQ(search.results[k].thumbnail, expected);
        EXPECT_EQ(search.results[k].searchedLength, 1 + 4 * k);
    }
}

TEST(Data, OneInstanceForEveryThread) {
    std::vector<Data*> seen(8, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&seen, i] { seen[i] = &Data::getInstance(); });
    for (auto& thread : threads)
        thread.join();
    for (Data* instance : seen)
        EXPECT_EQ(instance, &Data::getInstance());
}
