#include "engine/log.h"
#include "engine/padding.h"

#include <QStringList>
#include <gtest/gtest.h>

#include <cmath>

using clarovi::engine::addPad;
using clarovi::engine::padMultiplier;
using clarovi::engine::PadParameters;
using clarovi::engine::trimWindow;

namespace {

// The sharpness control's range and starting value in the main window.
constexpr float kMuStart = 0.0035f;
constexpr float kMuMin = 0.002f;
constexpr float kMuMax = 0.008f;

/// Collects the program's log lines while it lives.
class LogCapture {
  public:
    LogCapture() {
        s_lines.clear();
        m_previous = qInstallMessageHandler(&LogCapture::handle);
    }
    ~LogCapture() { qInstallMessageHandler(m_previous); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    const QStringList& lines() const { return s_lines; }

  private:
    static void handle(QtMsgType, const QMessageLogContext& context, const QString& text) {
        if (QByteArray(context.category) == clarovi::lcClarovi().categoryName())
            s_lines << text;
    }
    static inline QStringList s_lines;
    QtMessageHandler m_previous = nullptr;
};

/// 0.25 * muMax / muMin is 0.9 (in float), which gives a border of exactly 100 on 2048 rows.
PadParameters hundredOn2048() {
    return {.eventLength = 0.0f, .muStart = 0.0f, .muMin = 1.0f, .muMax = 3.6f};
}

cv::Mat ramp(int rows, int cols) {
    cv::Mat plane(rows, cols, CV_8UC1);
    cv::randu(plane, 0, 256);
    return plane;
}

} // namespace

TEST(Padding, SliderDefaultsGiveMultiplierJustUnderOne) {
    const double multiplier =
        padMultiplier({.eventLength = 0.0f, .muStart = kMuStart, .muMin = kMuMin, .muMax = kMuMax});
    EXPECT_NEAR(multiplier, 0.99114446, 1e-8);

    int added = -1;
    const cv::Mat padded =
        addPad(cv::Mat(2048, 2048, CV_8UC1, cv::Scalar(7)), 0.1, &added,
               {.eventLength = 0.0f, .muStart = kMuStart, .muMin = kMuMin, .muMax = kMuMax});
    EXPECT_EQ(padded.rows, 2048 + 2 * 110);
    EXPECT_EQ(added, 198);
}

TEST(Padding, LengthOf25AddsOneToTheMultiplier) {
    for (float muStart : {0.0f, kMuStart, 0.5f}) {
        SCOPED_TRACE(testing::Message() << "muStart " << muStart);
        PadParameters parameters{
            .eventLength = 0.0f, .muStart = muStart, .muMin = kMuMin, .muMax = kMuMax};
        const double base = padMultiplier(parameters);
        parameters.eventLength = 25.0f;
        EXPECT_DOUBLE_EQ(padMultiplier(parameters) - base, 1.0);
    }
}

TEST(Padding, ZeroStartLeavesTheRatioOfTheRange) {
    EXPECT_DOUBLE_EQ(padMultiplier({.muStart = 0.0f, .muMin = kMuMin, .muMax = kMuMax}),
                     0.25 * static_cast<double>(kMuMax) / static_cast<double>(kMuMin));
}

TEST(Padding, NonPositiveDenominatorFallsBackAndSaysSo) {
    struct Case {
        float muStart, muMin, muMax;
    };
    for (const Case& c :
         {Case{0.0f, 0.0f, kMuMax}, Case{0.0f, -0.5f, 1.0f}, Case{-2.0f, 0.001f, 1.0f}}) {
        SCOPED_TRACE(testing::Message() << c.muStart << " " << c.muMin << " " << c.muMax);
        LogCapture log;
        const double multiplier = padMultiplier(
            {.eventLength = 10.0f, .muStart = c.muStart, .muMin = c.muMin, .muMax = c.muMax});
        EXPECT_DOUBLE_EQ(multiplier, static_cast<double>(10.0f / 25.0f) + 0.25);
        ASSERT_EQ(log.lines().size(), 2);
        EXPECT_TRUE(log.lines()[0].contains("fallback"));
        EXPECT_EQ(log.lines()[1], "MULTIPLIER 0.650000");
    }
}

TEST(Padding, WorkedExampleOf2048RowsAndPad100) {
    LogCapture log;
    const cv::Mat source = ramp(2048, 2048);
    const cv::Mat before = source.clone();
    int added = -1;
    const cv::Mat padded = addPad(source, 0.1, &added, hundredOn2048());
    EXPECT_EQ(padded.size(), cv::Size(2248, 2248));
    EXPECT_EQ(added, 182); // trunc(200 * 2048 / 2248)
    EXPECT_EQ(cv::norm(source, before, cv::NORM_INF), 0.0) << "the source is left alone";
    EXPECT_EQ(log.lines(), QStringList({"MULTIPLIER 0.900000", "FINAL 2248"}));
}

TEST(Padding, BorderReplicatesTheEdgesAndFollowsRowsOnly) {
    // 2048 rows fix a border of 100 on every side however many columns there are.
    const cv::Mat source = ramp(2048, 1000);
    int added = -1;
    const cv::Mat padded = addPad(source, 0.1, &added, hundredOn2048());
    ASSERT_EQ(padded.size(), cv::Size(1200, 2248));
    EXPECT_EQ(added, 166); // trunc(200 * 1000 / 1200)
    EXPECT_EQ(cv::norm(padded(cv::Rect(100, 100, 1000, 2048)), source, cv::NORM_INF), 0.0);
    for (int y : {0, 50, 99}) {
        SCOPED_TRACE(testing::Message() << "border row " << y);
        EXPECT_EQ(cv::norm(padded.row(y).colRange(100, 1100), source.row(0), cv::NORM_INF), 0.0);
        EXPECT_EQ(
            cv::norm(padded.row(2247 - y).colRange(100, 1100), source.row(2047), cv::NORM_INF),
            0.0);
    }
    EXPECT_EQ(padded.at<uchar>(0, 0), source.at<uchar>(0, 0));
    EXPECT_EQ(padded.at<uchar>(2247, 1199), source.at<uchar>(2047, 999));

    // 100 rows: trunc(0.9 * 100 / 18.32) = 4, even with 2048 columns.
    const cv::Mat wide = addPad(ramp(100, 2048), 0.1, &added, hundredOn2048());
    EXPECT_EQ(wide.size(), cv::Size(2056, 108));
}

TEST(Padding, NegativeMultiplierAddsNoBorder) {
    int added = -1;
    const cv::Mat source = ramp(64, 48);
    const cv::Mat padded =
        addPad(source, 0.1, &added, {.eventLength = -100.0f, .muMin = kMuMin, .muMax = kMuMax});
    EXPECT_EQ(padded.size(), source.size());
    EXPECT_EQ(added, 0);
}

TEST(Padding, EmptySourceGivesEmptyPlane) {
    int added = -1;
    EXPECT_TRUE(addPad(cv::Mat(), 0.1, &added, hundredOn2048()).empty());
    EXPECT_EQ(added, 0);
}

TEST(Padding, TrimWindowCutsTheBorderOff) {
    struct Case {
        cv::Size restored;
        int added;
        cv::Rect expected;
    };
    for (const Case& c : {
             Case{{2048, 2048}, 182, {91, 92, 1866, 1866}},
             Case{{2048, 2048}, 183, {91, 92, 1865, 1865}},
             Case{{2048, 2048}, 2, {1, 2, 2046, 2046}},
             // Below 2 the window would run one row past the bottom; it is cut to the plane.
             Case{{2048, 2048}, 1, {0, 1, 2047, 2047}},
             Case{{2048, 2048}, 0, {0, 1, 2048, 2047}},
             Case{{1, 1}, 0, {}},
             Case{{10, 10}, 30, {}},
         }) {
        SCOPED_TRACE(testing::Message() << c.restored << " added " << c.added);
        const cv::Rect window = trimWindow(c.restored, c.added);
        EXPECT_EQ(window, c.expected);
        EXPECT_EQ(window & cv::Rect(cv::Point(), c.restored), window) << "inside the plane";
    }
}
