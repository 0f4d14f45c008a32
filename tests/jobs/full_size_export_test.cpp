#include "jobs/full_size_export.h"

#include "common/scenes.h"
#include "engine/image_bridge.h"
#include "engine/psf.h"
#include "job_fixtures.h"

#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

using namespace clarovi;
using namespace clarovi::jobs;

namespace {

QString picture(const QTemporaryDir& dir, QSize size, QImage::Format format) {
    QImage image(size, format);
    image.fill(QColor(40, 160, 90));
    for (int y = size.height() / 3; y < size.height() / 2; ++y)
        for (int x = 0; x < size.width() / 2; ++x)
            image.setPixelColor(x, y, QColor(250, 240, 30));
    const QString path = dir.filePath(QStringLiteral("photo%1.png").arg(int(format)));
    image.save(path);
    return path;
}

Setting disk(double diameter) {
    return {{engine::BlurKind::OutOfFocus, diameter, 0, 1}, kSharpnessRange.initial};
}

/// A colour photograph of size, blurred on the photograph (at its own scale) as setting says,
/// with noise of a grey level, saved in dir.
QString blurredPhotograph(const QTemporaryDir& dir, cv::Size size, const Setting& setting) {
    std::vector<cv::Mat> colours;
    for (int c = 0; c < 3; ++c)
        colours.push_back(clarovi::testing::deadLeaves(size, size.area() / 400, 11 + c, 150));
    cv::Mat photo;
    cv::merge(colours, photo);
    const cv::Mat kernel = engine::MakePsfD(setting.blur, engine::workingScale(size));
    photo = clarovi::testing::blurredWithNoise(photo, kernel, 1.0);
    cv::cvtColor(photo, photo, cv::COLOR_BGR2RGB);
    const QString path = dir.filePath(QStringLiteral("photo-%1.png").arg(size.width));
    engine::imageWithCVMat(photo).save(path);
    return path;
}

} // namespace

// The photograph comes back at its own size and depth, its colours restored, grey kept grey.
TEST(FullSizeExport, WritesThePhotographAtItsOwnSizeAndDepth) {
    QTemporaryDir dir;
    // The source's format and the bits per pixel the written file is read back with.
    const std::pair<QImage::Format, int> cases[] = {
        {QImage::Format_RGB32, 32}, {QImage::Format_RGBA64, 64}, {QImage::Format_Grayscale16, 16}};
    for (const auto& [in, depth] : cases) {
        const QString source = picture(dir, {900, 500}, in);
        const QString target = dir.filePath("out.png");
        const ExportResult result = exportFullSize({source, target, disk(20), {}});
        ASSERT_EQ(result.outcome, ExportResult::Outcome::Written) << result.message.toStdString();
        const QImage written(target);
        EXPECT_EQ(written.size(), QSize(900, 500));
        EXPECT_EQ(written.depth(), depth) << int(in);
        EXPECT_EQ(written.isGrayscale(), in == QImage::Format_Grayscale16);
        EXPECT_NE(written.convertToFormat(QImage::Format_RGBA64),
                  QImage(source).convertToFormat(QImage::Format_RGBA64))
            << "restored, not copied";
    }
}

// Refused before any work (no source is even read), or cancelled before writing: each says so,
// none half writes.
TEST(FullSizeExport, RefusesAndCancelsWithoutWriting) {
    QTemporaryDir dir;
    const ExportResult refused =
        exportFullSize({"missing.png", dir.filePath("out.gif"), disk(9), {}});
    EXPECT_TRUE(refused.message.contains(".png, .tif")) << refused.message.toStdString();
    const QString source = picture(dir, {300, 200}, QImage::Format_RGB32);
    const ExportResult cancelled =
        exportFullSize({source, dir.filePath("out.png"), disk(9), {}}, {{}, [] { return true; }});
    EXPECT_EQ(cancelled.outcome, ExportResult::Outcome::Cancelled);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("out.png")));
}

struct AgreementCase {
    cv::Size photo;
    Setting setting;
};

class ExportAgainstPreview : public ::testing::TestWithParam<AgreementCase> {};

// What the user takes home is what the window showed: the export, brought to the window's
// working size and to grey, agrees with the window's grey preview, for photographs larger than
// the working size (restored in tiles at their own scale) and smaller (restored as they are).
TEST_P(ExportAgainstPreview, AgreesWithTheWindowsPreview) {
    const auto& [size, setting] = GetParam();
    QTemporaryDir dir;
    const QString source = blurredPhotograph(dir, size, setting);
    clarovi::testing::OpenedPicture opened{QImage(source)};
    opened.jobs.auxTrueNoMultithread(setting);
    const cv::Mat preview = engine::CVGrayscaleMat(opened.window.shown);

    const QString target = dir.filePath("export.png");
    ASSERT_EQ(exportFullSize({source, target, setting, {}}).outcome,
              ExportResult::Outcome::Written);
    const QImage exported(target);
    const cv::Mat brought =
        engine::CVGrayscaleMat(engine::imageWithImage(exported, opened.state.sourceImage.size()));
    ASSERT_EQ(brought.size(), preview.size());
    EXPECT_GT(clarovi::testing::psnr(brought, preview), 33.0);
}

std::string caseName(const ::testing::TestParamInfo<AgreementCase>& info) {
    const auto& [size, setting] = info.param;
    return std::string(setting.motion() ? "streak" : "disk") + std::to_string(size.width) + "x" +
           std::to_string(size.height);
}

INSTANTIATE_TEST_SUITE_P(
    Photographs, ExportAgainstPreview,
    ::testing::Values(AgreementCase{{2400, 1500}, disk(24)},
                      AgreementCase{{2400, 1500}, {{engine::BlurKind::Motion, 30, 20, 1}, 50}},
                      AgreementCase{{1200, 1800}, disk(16)},
                      AgreementCase{{600, 400}, {{engine::BlurKind::Motion, 24, -60, 1}, 50}}),
    caseName);
