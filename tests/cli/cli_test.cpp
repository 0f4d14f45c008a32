#include "cli/cli_options.h"
#include "cli_run.h"
#include "common/file_size_limit.h"
#include "common/scenes.h"
#include "engine/blur_estimate.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"
#include "engine/shake_kernel.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using clarovi::cli::CliParseResult;
namespace jobs = clarovi::jobs;
using Outcome = CliParseResult::Outcome;

namespace {

CliParseResult parse(QStringList arguments) {
    arguments.prepend(QStringLiteral("clarovi-cli"));
    return clarovi::cli::parseCliOptions(arguments);
}

// motion, rgb, live, length, angle, width, sharpness
auto valuesOf(const clarovi::cli::CliOptions& o) {
    return std::tuple(o.motion, o.rgb, o.live, o.length, o.angle, o.width, o.sharpness);
}

} // namespace

TEST(CliOptions, StartsAtTheSliderValuesAndReadsEveryOption) {
    const CliParseResult plain = parse({"in.png", "out.png"});
    ASSERT_EQ(plain.outcome, Outcome::Run) << plain.message.toStdString();
    const auto& o = plain.options;
    EXPECT_EQ(o.input + ' ' + o.output + o.autoDir, QStringLiteral("in.png out.png"));
    EXPECT_EQ(valuesOf(o), std::tuple(false, false, false, std::nullopt, jobs::kAngleRange.initial,
                                      std::nullopt, jobs::kSharpnessRange.initial));

    // Every option, each at one end of its range; then the other ends.
    const CliParseResult all = parse({"--motion", "--length", "1", "--angle", "90", "--width", "5",
                                      "--sharpness=0", "--rgb", "in.jpg", "out"});
    ASSERT_EQ(all.outcome, Outcome::Run) << all.message.toStdString();
    EXPECT_EQ(valuesOf(all.options),
              std::tuple(true, true, false, std::optional(1.0f), 90.0f, std::optional(5.0f), 0.0f));
    for (const char* end : {"--length=100", "--angle=-90", "--width=0.1", "--sharpness=100"})
        EXPECT_EQ(parse({end, "a", "b"}).outcome, Outcome::Run) << end;
    EXPECT_EQ(parse({"--help"}).outcome, Outcome::Help);
}

TEST(CliOptions, RefusesWithAReason) {
    const std::pair<QStringList, const char*> cases[] = {
        {{"--length", "150", "a", "b"}, "--length 150 is outside 1 to 100"},
        {{"--width", "0.09", "a", "b"}, "--width 0.09 is outside 0.1 to 5"},
        {{"--sharpness", "100.5", "a", "b"}, "--sharpness 100.5 is outside 0 to 100"},
        {{"--filter", "soft", "a", "b"}, "--filter expects edge or classic"},
        {{"--length", "12px", "a", "b"}, "--length expects a number"},
        {{"--width", "nan", "a", "b"}, "--width expects a number"},
        {{"a", "b", "c"}, "expected INPUT and OUTPUT, got 3"},
        {{"--auto", "dir"}, "expected INPUT, got 0"},
        {{"--live", "--rgb", "a", "b"}, "--live goes with"},
        {{"--angle", "120", "a", "b"}, "--angle 120 is outside -90 to 90"},
        {{"--depth", "16", "a", "b"}, "--depth, --quality, --format and --out-dir go with"},
        {{"--full-size", "--depth", "12", "a", "b"}, "--depth expects 8 or 16"},
        {{"--full-size", "--out-dir", "d", "--format", "gif", "a"}, "--format expects png"},
        {{"--full-size", "--live", "a", "b"}, "--full-size goes with neither"},
        {{"--estimate", "--focus", "--motion", "a"}, "--focus and --motion exclude each other"},
        {{"--focus", "a", "b"}, "--focus goes with --estimate or --around-estimate"},
        {{"--around-estimate", "a", "b"}, "--around-estimate goes with --auto"},
        {{"--estimate", "--auto", "d", "a"}, "--estimate goes with neither"},
        {{"--estimate", "--angle", "3", "a"}, "--length, --angle and --width are the estimate's"},
        {{"--blur", "a", "b"}, ""}};
    for (const auto& [arguments, reason] : cases) {
        const CliParseResult result = parse(arguments);
        EXPECT_EQ(result.outcome, Outcome::Error) << reason;
        EXPECT_TRUE(result.message.startsWith(QLatin1String(reason)))
            << result.message.toStdString();
    }
}

namespace {

using clarovi::testing::CliRun;
using clarovi::testing::runCli;

const QString kSample = QStringLiteral(CLAROVI_DATA_DIR "/coffee-defocus.png");

class CliRunTest : public ::testing::Test {
  protected:
    QString path(const char* name) const { return temp.filePath(QLatin1String(name)); }
    QTemporaryDir temp;
};

} // namespace

// The sample is 600 x 400: restored at its own size, which the working and live copies keep.
TEST_F(CliRunTest, RestoresTheSampleInGreyInColourAndAsTheLivePreview) {
    const std::tuple<QStringList, QSize, bool> cases[] = {
        {{}, {600, 400}, true},
        {{"--rgb"}, {600, 400}, false},
        {{"--live", "--length", "30"}, {600, 400}, true}};
    for (const auto& [options, size, grey] : cases) {
        const CliRun run = runCli(options + QStringList{kSample, path("out.png")});
        ASSERT_EQ(run.exitCode, 0) << run.errors.toStdString();
        EXPECT_EQ(run.messages(), 0) << run.errors.toStdString();
        const QImage restored(path("out.png"), "PNG");
        EXPECT_TRUE(restored.size() == size && restored.isGrayscale() == grey) << run.errors.data();
    }
}

// A search whose thumbnails cannot be written takes back what it wrote, folders included.
TEST_F(CliRunTest, AFailedSearchLeavesNoFolderBehind) {
    const CliRun run = [&] {
        clarovi::testing::FileSizeLimit fullDisk(4096);
        return runCli({"--auto", path("made/for/search"), kSample});
    }();
    EXPECT_NE(run.exitCode, 0);
    EXPECT_EQ(run.messages(), 1) << run.errors.toStdString();
    EXPECT_FALSE(QFileInfo::exists(path("made")));
}

// Over the grid, or around the blur found in the picture: every thumbnail and their index, with
// the blur each undoes.
TEST_F(CliRunTest, WritesEveryThumbnailOfTheSearchAndTheirIndex) {
    // The search around its own guess, then around the estimate of a region, in its kind.
    for (const QStringList& asked : {QStringList{"--auto", path("search"), kSample},
                                     QStringList{"--auto", path("around"), "--around-estimate",
                                                 "--region", "100,50,400,300", kSample}}) {
        const CliRun run = runCli(asked);
        ASSERT_EQ(run.exitCode, 0) << run.errors.toStdString();
        QFile index(QDir(asked[1]).filePath("index.csv"));
        ASSERT_TRUE(index.open(QIODevice::ReadOnly));
        const QList<QByteArray> rows = index.readAll().trimmed().split('\n');
        EXPECT_EQ(rows[0], "index,kind,length,angle,score");
        // A disk's every diameter is a step of its own.
        EXPECT_EQ(run.errors.count("Remaining time: "), rows.size() - 1);
        double bestScore = 0, bestLength = 0;
        for (const QByteArray& row : rows.mid(1)) {
            const QList<QByteArray> cells = row.split(',');
            ASSERT_EQ(cells[1], "focus");
            if (cells[4].toDouble() > bestScore)
                std::tie(bestScore, bestLength) =
                    std::pair(cells[4].toDouble(), cells[2].toDouble());
        }
        EXPECT_NEAR(bestLength, 23.9, 2.0) << "the disk of 7 pixels at 600, 23.9 at 2048";
        EXPECT_EQ(QImage(QDir(asked[1]).filePath("0003.png"), "PNG").size(), QSize(512, 341));
    }
}

// A kernel given as a picture restores as the same blur drawn by the program (at 2048 the
// restoration's copy is the working size, so that the two kernels differ only by the picture's
// 8-bit levels); a picture that is no kernel is refused with one line.
TEST_F(CliRunTest, RestoresWithAKernelFromAPicture) {
    const clarovi::engine::BlurOnPhoto disk{clarovi::engine::BlurKind::OutOfFocus, 20};
    const cv::Mat sharp = clarovi::testing::deadLeaves({2048, 1365}, 9000, 5, 150);
    clarovi::engine::imageWithCVMat(
        clarovi::testing::blurredWithNoise(sharp, clarovi::engine::MakePsfD(disk, 1.0), 1.0))
        .save(path("photo.png"));
    clarovi::engine::kernelPicture(clarovi::engine::MakePsfD(disk, 1.0)).save(path("disk.png"));
    ASSERT_EQ(runCli({"--psf", path("disk.png"), path("photo.png"), path("shake.png")}).exitCode,
              0);
    ASSERT_EQ(runCli({"--length", "20", path("photo.png"), path("drawn.png")}).exitCode, 0);
    const auto grey = [](const QString& file) {
        return clarovi::engine::CVGrayscaleMat(QImage(file, "PNG"));
    };
    EXPECT_GT(clarovi::testing::psnr(grey(path("shake.png")), grey(path("drawn.png"))), 45.0);

    QImage(300, 300, QImage::Format_Grayscale8).save(path("huge.png"));
    using Case = std::tuple<QString, int, const char*>;
    for (const auto& [kernel, code, why] :
         {Case{path("huge.png"), 1, "at most 255"}, Case{path("none.png"), 1, "none.png"},
          Case{kSample, 1, "at most 255"}}) {
        const CliRun run = runCli({"--psf", kernel, path("photo.png"), path("out.png")});
        EXPECT_EQ(run.exitCode, code);
        EXPECT_TRUE(run.errors.contains(why)) << run.errors.toStdString();
        EXPECT_EQ(run.messages(), 1);
    }
    EXPECT_EQ(runCli({"--psf", path("disk.png"), "--motion", kSample, path("o.png")}).exitCode, 2);
}

// A region is whole pixels within the photograph, and goes with the estimate or the search.
TEST_F(CliRunTest, RefusesARegionThatIsNotOneOfThePhotograph) {
    using Case = std::tuple<QStringList, int, const char*>;
    for (const auto& [arguments, code, why] :
         {Case{{"--estimate", "--region", "1,2,3", kSample}, 2, "expects X,Y,W,H"},
          Case{{"--estimate", "--region", "10,10,0,5", kSample}, 2, "expects X,Y,W,H"},
          Case{{"--region", "1,2,30,40", kSample, path("out.png")}, 2, "goes with --estimate"},
          Case{{"--estimate", "--region", "500,300,200,50", kSample}, 1, "does not lie within"}}) {
        const CliRun run = runCli(arguments);
        EXPECT_EQ(run.exitCode, code) << run.errors.toStdString();
        EXPECT_TRUE(run.errors.contains(why)) << run.errors.toStdString();
        EXPECT_EQ(run.errors.count('\n'), 1);
    }
}

// One line on stdout with the sliders' values; given OUTPUT, the restoration with them too.
TEST_F(CliRunTest, EstimatesTheBlurAndRestoresWithIt) {
    const CliRun printed = runCli({"--estimate", kSample});
    ASSERT_EQ(printed.exitCode, 0) << printed.errors.toStdString();
    const QList<QByteArray> words = printed.output.trimmed().split(' ');
    ASSERT_EQ(printed.output.count('\n'), 1);
    ASSERT_EQ(words.size(), 3) << printed.output.toStdString();
    EXPECT_EQ(words[0], "focus");
    EXPECT_NEAR(words[1].toDouble(), 23.9, 2.0) << "the disk of 7 pixels at 600, 23.9 at 2048";
    EXPECT_GT(words[2].toDouble(), clarovi::engine::kClearBlurConfidence);

    const CliRun restored = runCli({"--estimate", "--focus", kSample, path("out.png")});
    EXPECT_EQ(restored.exitCode, 0) << restored.errors.toStdString();
    EXPECT_EQ(restored.output, printed.output);
    EXPECT_EQ(QImage(path("out.png")).size(), QSize(600, 400));
}

// A batch goes on past a photograph that fails, writes the others at their own size and ends
// with the list of failures.
TEST_F(CliRunTest, AFullSizeBatchGoesOnPastACorruptFileAndReportsIt) {
    QFile(path("corrupt.png")).open(QIODevice::WriteOnly);
    const CliRun run = runCli(
        {"--full-size", "--length", "12", "--out-dir", path("out"), path("corrupt.png"), kSample});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.errors.contains("1 of 2 photographs failed")) << run.errors.toStdString();
    EXPECT_EQ(QImage(path("out/coffee-defocus-restored.png")).size(), QImage(kSample).size());
    EXPECT_FALSE(QFileInfo::exists(path("out/corrupt-restored.png")));
}

// Each refusal exits non-zero with one line saying why, and nothing else; it leaves an existing
// output alone.
TEST_F(CliRunTest, RefusesWithOneLine) {
    QFile sample(kSample);
    ASSERT_TRUE(sample.open(QIODevice::ReadOnly));
    const QByteArray png = sample.readAll();
    const std::pair<const char*, QByteArray> files[] = {
        {"notes.png", "notes, not a picture\n"},
        {"damaged.png", png.left(png.size() / 2) + QByteArray(100, 'z') + png.mid(png.size() / 2)},
        {"out.png", "keep me"}};
    for (const auto& [name, content] : files) {
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    }
    const std::pair<QStringList, const char*> cases[] = {
        {{path("missing.png"), path("out.png")}, "missing.png"},
        {{path("notes.png"), path("out.png")}, "notes.png"},
        {{path("damaged.png"), path("out.png")}, "damaged.png"},
        {{kSample, path("no-such-dir/out.png")}, "Cannot save"},
        {{kSample}, "expected INPUT and OUTPUT"}};
    for (const auto& [arguments, reason] : cases) {
        const CliRun run = runCli(arguments);
        EXPECT_NE(run.exitCode, 0) << reason;
        EXPECT_EQ(run.errors.count('\n'), 1) << run.errors.toStdString();
        EXPECT_TRUE(run.errors.startsWith("clarovi-cli: ") && run.errors.contains(reason))
            << run.errors.toStdString();
        QFile kept(path("out.png"));
        EXPECT_TRUE(kept.open(QIODevice::ReadOnly) && kept.readAll() == "keep me") << reason;
    }
}
