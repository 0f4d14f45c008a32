#include "jobs/full_size_export.h"

#include <QFileInfo>
#include <QImage>
#include <QTemporaryDir>
#include <gtest/gtest.h>

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

BlurSetting disk(float length) {
    return {false, length, 0, 0.2, 0.0035, {length, 0.0035f, 0.002f, 0.008f}, 2048};
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

// Refused before any work (no source is even read), cancelled before writing, or written as it
// is when the blur is below a pixel at the photograph's size: each says so, none half writes.
TEST(FullSizeExport, RefusesCancelsAndSaysWhenThereIsNothingToRestore) {
    QTemporaryDir dir;
    const ExportResult refused =
        exportFullSize({"missing.png", dir.filePath("out.gif"), disk(9), {}});
    EXPECT_TRUE(refused.message.contains(".png, .tif")) << refused.message.toStdString();
    const QString source = picture(dir, {300, 200}, QImage::Format_RGB32);
    const ExportResult cancelled =
        exportFullSize({source, dir.filePath("out.png"), disk(9), {}}, {{}, [] { return true; }});
    EXPECT_EQ(cancelled.outcome, ExportResult::Outcome::Cancelled);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("out.png")));
    const ExportResult tiny = exportFullSize({source, dir.filePath("out.png"), disk(1), {}});
    EXPECT_EQ(tiny.outcome, ExportResult::Outcome::Written);
    EXPECT_TRUE(tiny.message.contains("smaller than a pixel")) << tiny.message.toStdString();
    EXPECT_EQ(QImage(dir.filePath("out.png")).convertToFormat(QImage::Format_ARGB32),
              QImage(source).convertToFormat(QImage::Format_ARGB32));
}
