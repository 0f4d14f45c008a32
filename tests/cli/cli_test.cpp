#include "cli_options.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using clarovi::app::CliParseResult;
using clarovi::app::parseCliOptions;
namespace jobs = clarovi::jobs;

namespace {

using Outcome = CliParseResult::Outcome;

CliParseResult parse(QStringList arguments) {
    arguments.prepend(QStringLiteral("clarovi-cli"));
    return parseCliOptions(arguments);
}

} // namespace

TEST(CliOptions, LeavesEverySliderAtItsStartingValue) {
    const CliParseResult result = parse({"in.png", "out.png"});
    ASSERT_EQ(result.outcome, Outcome::Run) << result.message.toStdString();
    const auto& options = result.options;
    EXPECT_EQ(options.input, QStringLiteral("in.png"));
    EXPECT_EQ(options.output, QStringLiteral("out.png"));
    EXPECT_FALSE(options.motion);
    EXPECT_FALSE(options.rgb);
    EXPECT_FALSE(options.length.has_value());
    EXPECT_FALSE(options.width.has_value());
    EXPECT_EQ(options.lengthOrInitial(), jobs::kLengthRange.initial);
    EXPECT_EQ(options.angle, jobs::kAngleRange.initial);
    EXPECT_EQ(options.widthOrInitial(), jobs::kWidthRange.initial);
    EXPECT_EQ(options.sharpness, jobs::kSharpnessRange.initial);
}

TEST(CliOptions, ReadsEveryOption) {
    const CliParseResult result =
        parse({"--motion", "--length", "25.5", "--angle", "-90", "--width", "1.5",
               "--sharpness=0.005", "--rgb", "in.jpg", "out"});
    ASSERT_EQ(result.outcome, Outcome::Run) << result.message.toStdString();
    const auto& options = result.options;
    EXPECT_TRUE(options.motion);
    EXPECT_TRUE(options.rgb);
    EXPECT_EQ(options.length, 25.5f);
    EXPECT_EQ(options.angle, -90.0f);
    EXPECT_EQ(options.width, 1.5f);
    EXPECT_EQ(options.sharpness, 0.005f);
    EXPECT_EQ(options.output, QStringLiteral("out"));
}

TEST(CliOptions, AcceptsTheEndsOfEveryRangeAndRefusesBeyondThem) {
    const struct {
        const char* name;
        jobs::SliderRange range;
        const char* below;
        const char* above;
    } options[] = {{"--length", jobs::kLengthRange, "0.9", "100.5"},
                   {"--angle", jobs::kAngleRange, "-181", "361"},
                   {"--width", jobs::kWidthRange, "0.09", "5.1"},
                   {"--sharpness", jobs::kSharpnessRange, "0.0019", "0.0081"}};
    for (const auto& option : options) {
        SCOPED_TRACE(option.name);
        for (float end : {option.range.minimum, option.range.maximum})
            EXPECT_EQ(parse({option.name, QString::number(double(end)), "a", "b"}).outcome,
                      Outcome::Run);
        for (const char* outside : {option.below, option.above}) {
            const CliParseResult result = parse({option.name, outside, "a", "b"});
            EXPECT_EQ(result.outcome, Outcome::Error);
            EXPECT_TRUE(result.message.contains(QStringLiteral(" is outside ")))
                << result.message.toStdString();
        }
    }
}

TEST(CliOptions, NamesTheRangeARefusedValueLiesOutside) {
    EXPECT_EQ(parse({"--length", "150", "a", "b"}).message,
              QStringLiteral("--length 150 is outside 1 to 100"));
    EXPECT_EQ(parse({"--sharpness", "0.01", "a", "b"}).message,
              QStringLiteral("--sharpness 0.01 is outside 0.002 to 0.008"));
}

TEST(CliOptions, RefusesWhatIsNotANumber) {
    for (const char* text : {"abc", "", "12px", "1,5", "nan", "inf"}) {
        SCOPED_TRACE(text);
        const CliParseResult result = parse({"--length", text, "a", "b"});
        EXPECT_EQ(result.outcome, Outcome::Error);
        EXPECT_TRUE(result.message.startsWith(QStringLiteral("--length expects a number")))
            << result.message.toStdString();
    }
}

TEST(CliOptions, NeedsExactlyAnInputAndAnOutput) {
    for (const QStringList& files : {QStringList{}, {"a"}, {"a", "b", "c"}}) {
        SCOPED_TRACE(files.join(' ').toStdString());
        const CliParseResult result = parse(files);
        EXPECT_EQ(result.outcome, Outcome::Error);
        EXPECT_TRUE(result.message.contains(QStringLiteral("expected INPUT and OUTPUT")));
    }
}

TEST(CliOptions, RefusesUnknownOptionsAndMissingValues) {
    EXPECT_EQ(parse({"--blur", "a", "b"}).outcome, Outcome::Error);
    EXPECT_EQ(parse({"a", "b", "--length"}).outcome, Outcome::Error);
}

TEST(CliOptions, HelpDescribesTheOptions) {
    const CliParseResult result = parse({"--help"});
    ASSERT_EQ(result.outcome, Outcome::Help);
    for (const char* option :
         {"--motion", "--length", "--angle", "--width", "--sharpness", "--rgb"})
        EXPECT_TRUE(result.message.contains(QLatin1String(option))) << option;
}

namespace {

struct CliRun {
    bool finished = false;
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;

    // The program's own messages; the rest of stderr are the jobs' log lines.
    QList<QByteArray> messages() const {
        QList<QByteArray> lines;
        for (const QByteArray& line : errors.split('\n'))
            if (line.startsWith("clarovi-cli: "))
                lines << line;
        return lines;
    }
};

CliRun runCli(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral(CLAROVI_CLI), arguments);
    CliRun run;
    run.finished = process.waitForFinished(60'000);
    if (!run.finished)
        process.kill();
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.output = process.readAllStandardOutput();
    run.errors = process.readAllStandardError();
    return run;
}

QString sample(const char* name) {
    return QStringLiteral(CLAROVI_DATA_DIR "/") + QLatin1String(name);
}

// A refusal: a non-zero exit and exactly one line saying why.
void expectRefusal(const CliRun& run) {
    ASSERT_TRUE(run.finished);
    EXPECT_NE(run.exitCode, 0);
    EXPECT_EQ(run.messages().size(), 1) << run.errors.toStdString();
}

class CliRunTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(temp.isValid()); }
    QString path(const char* name) const { return temp.filePath(QLatin1String(name)); }

    QTemporaryDir temp;
};

} // namespace

TEST_F(CliRunTest, RestoresTheSampleToAGreyPictureAtDisplaySize) {
    const CliRun run = runCli({sample("coffee-defocus.png"), path("out.png")});
    ASSERT_TRUE(run.finished);
    ASSERT_EQ(run.exitCode, 0) << run.errors.toStdString();
    EXPECT_TRUE(run.output.isEmpty());
    EXPECT_TRUE(run.messages().isEmpty());
    const QImage restored(path("out.png"), "PNG");
    EXPECT_EQ(restored.size(), QSize(2048, 1365));
    EXPECT_TRUE(restored.isGrayscale());
}

TEST_F(CliRunTest, RestoresInColourWithRgb) {
    const CliRun run = runCli({"--rgb", sample("coffee-defocus.png"), path("colour.png")});
    ASSERT_TRUE(run.finished);
    ASSERT_EQ(run.exitCode, 0) << run.errors.toStdString();
    const QImage restored(path("colour.png"), "PNG");
    EXPECT_EQ(restored.size(), QSize(2048, 1365));
    EXPECT_FALSE(restored.isGrayscale());
}

TEST_F(CliRunTest, RestoresMotionBlurWithTheGivenLine) {
    const CliRun run = runCli({"--motion", "--length", "20", "--angle", "30", "--width", "1",
                               sample("coffee-defocus.png"), path("motion.png")});
    ASSERT_TRUE(run.finished);
    ASSERT_EQ(run.exitCode, 0) << run.errors.toStdString();
    EXPECT_EQ(QImage(path("motion.png"), "PNG").size(), QSize(2048, 1365));
}

TEST_F(CliRunTest, WritesTheLivePreviewOfADragWithTiled) {
    const CliRun run =
        runCli({"--tiled", "--length", "30", sample("coffee-defocus.png"), path("tiled.png")});
    ASSERT_TRUE(run.finished);
    ASSERT_EQ(run.exitCode, 0) << run.errors.toStdString();
    EXPECT_EQ(QImage(path("tiled.png"), "PNG").size(), QSize(1024, 682));
    EXPECT_EQ(run.errors.count("THREAD RUN"), 16);
    EXPECT_TRUE(run.errors.contains("NEW PSF IS 15.000000"));
}

TEST_F(CliRunTest, WritesEveryThumbnailOfTheSearchAndTheirIndex) {
    const CliRun run = runCli({"--auto", path("search"), sample("coffee-defocus.png")});
    ASSERT_TRUE(run.finished);
    ASSERT_EQ(run.exitCode, 0) << run.errors.toStdString();
    EXPECT_EQ(run.errors.count("Remaining time: "), 41);
    QFile index(path("search/index.csv"));
    ASSERT_TRUE(index.open(QIODevice::ReadOnly));
    const QList<QByteArray> rows = index.readAll().trimmed().split('\n');
    ASSERT_EQ(rows.size(), 42);
    EXPECT_EQ(rows[0], "index,searched length,label length,angle");
    EXPECT_EQ(rows[1], "0,1,1,-45");
    EXPECT_EQ(rows[41], "40,41,25,-45");
    EXPECT_EQ(QImage(path("search/0040.png"), "PNG").size(), QSize(512, 341));
    expectRefusal(runCli({"--auto", path("search"), "--rgb"}));
}

TEST_F(CliRunTest, RefusesAMissingInputAndLeavesTheOutputAlone) {
    QFile existing(path("out.png"));
    ASSERT_TRUE(existing.open(QIODevice::WriteOnly));
    existing.write("keep me");
    existing.close();
    expectRefusal(runCli({path("missing.png"), path("out.png")}));
    ASSERT_TRUE(existing.open(QIODevice::ReadOnly));
    EXPECT_EQ(existing.readAll(), QByteArray("keep me"));
}

TEST_F(CliRunTest, RefusesFilesThatAreNotPictures) {
    const struct {
        const char* name;
        QByteArray content;
    } files[] = {{"empty.png", {}}, {"notes.png", "these are notes, not a picture\n"}};
    for (const auto& file : files) {
        SCOPED_TRACE(file.name);
        QFile input(path(file.name));
        ASSERT_TRUE(input.open(QIODevice::WriteOnly));
        input.write(file.content);
        input.close();
        const CliRun run = runCli({path(file.name), path("out.png")});
        expectRefusal(run);
        EXPECT_TRUE(run.messages().value(0).contains(file.name));
        EXPECT_FALSE(QFile::exists(path("out.png")));
    }
}

TEST_F(CliRunTest, ReportsAnOutputThatCannotBeWritten) {
    const CliRun run = runCli({sample("coffee-defocus.png"), path("no-such-dir/out.png")});
    expectRefusal(run);
    EXPECT_TRUE(run.messages().value(0).contains("Cannot save")) << run.errors.toStdString();
}

TEST_F(CliRunTest, RefusesBadArguments) {
    for (const QStringList& arguments :
         {QStringList{sample("coffee-defocus.png")},
          QStringList{"--length", "150", sample("coffee-defocus.png"), path("out.png")},
          QStringList{"--sharpness", "sharp", sample("coffee-defocus.png"), path("out.png")}}) {
        SCOPED_TRACE(arguments.join(' ').toStdString());
        expectRefusal(runCli(arguments));
    }
    EXPECT_FALSE(QFile::exists(path("out.png")));
}

TEST_F(CliRunTest, PrintsHelpAndSucceeds) {
    const CliRun run = runCli({"--help"});
    ASSERT_TRUE(run.finished);
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.output.contains("--sharpness"));
}
