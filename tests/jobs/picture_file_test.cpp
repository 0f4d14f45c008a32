#include "jobs/picture_file.h"

#include "common/file_size_limit.h"

#include <QBuffer>
#include <QFile>
#include <QImageWriter>
#include <QTemporaryDir>
#include <QtEndian>
#include <gtest/gtest.h>

using namespace clarovi::jobs;

namespace {

QString writeBytes(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
    const QString path = dir.filePath(name);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
    return path;
}

// The start of a PNG whose header claims width x height pixels; its pixel data begins and ends.
QByteArray pngClaiming(quint32 width, quint32 height) {
    QByteArray header("IHDR\0\0\0\0\0\0\0\0\x08\x02\0\0\0", 17); // 8-bit RGB
    qToBigEndian(width, header.data() + 4);
    qToBigEndian(height, header.data() + 8);
    quint32 crc = 0xFFFFFFFFu;
    for (char byte : header) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    QByteArray check(4, '\0');
    qToBigEndian(~crc, check.data());
    return QByteArray("\x89PNG\r\n\x1a\n\0\0\0\x0d", 12) + header + check +
           QByteArray("\0\0\0\0IDAT", 8);
}

} // namespace

TEST(PictureFile, RefusesBadFilesWithAMessageNamingThem) {
    QTemporaryDir dir;
    QImage picture(64, 48, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    QByteArray png;
    QBuffer buffer(&png);
    ASSERT_TRUE(buffer.open(QIODevice::WriteOnly) && picture.save(&buffer, "PNG"));
    const std::pair<const char*, QByteArray> cases[] = {
        {"empty.png", {}},
        {"truncated.png", png.left(png.size() / 2)},
        {"text.jpg", "this is not a photograph"},
        {"enormous.png", pngClaiming(20000, 20000)}};
    for (const auto& [name, bytes] : cases) {
        const LoadedPicture loaded = loadPicture(writeBytes(dir, name, bytes));
        EXPECT_TRUE(loaded.image.isNull()) << name;
        EXPECT_TRUE(loaded.error.contains(name)) << loaded.error.toStdString();
    }
    EXPECT_TRUE(loadPicture(dir.filePath("enormous.png")).error.contains("100 megapixels"));
}

TEST(PictureFile, AcceptsDeepGreyIndexedAndTransparentPicturesAndTheExifOrientation) {
    QTemporaryDir dir;
    QImage base(40, 30, QImage::Format_ARGB32);
    base.fill(QColor(200, 100, 50, 128));
    for (QImage::Format format : {QImage::Format_RGBA64, QImage::Format_Grayscale16,
                                  QImage::Format_Indexed8, QImage::Format_ARGB32}) {
        const QString path = dir.filePath(QStringLiteral("f%1.png").arg(int(format)));
        ASSERT_TRUE(base.convertToFormat(format).save(path));
        const LoadedPicture loaded = loadPicture(path);
        EXPECT_TRUE(loaded.error.isEmpty() && loaded.image.size() == QSize(40, 30)) << int(format);
    }

    QImageWriter turned(dir.filePath("turned.jpg"));
    turned.setTransformation(QImageIOHandler::TransformationRotate90);
    ASSERT_TRUE(turned.write(base.convertToFormat(QImage::Format_RGB32)));
    EXPECT_EQ(loadPicture(dir.filePath("turned.jpg")).image.size(), QSize(30, 40));
}

TEST(PictureFile, SavesPngAndAppendsTheExtensionOnlyWhenThereIsNone) {
    EXPECT_EQ(savePathFor("/tmp/result"), "/tmp/result.png");
    EXPECT_EQ(savePathFor("/tmp/result.tiff"), "/tmp/result.tiff");
    QTemporaryDir dir;
    QImage picture(30, 20, QImage::Format_RGB32);
    picture.fill(Qt::red);
    ASSERT_EQ(savePng(picture, dir.filePath("out.tiff")), QString());
    QFile file(dir.filePath("out.tiff"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.read(8).startsWith("\x89PNG"));
}

TEST(PictureFile, AFailedSaveSaysWhyAndLeavesTheOldFile) {
    QTemporaryDir dir;
    QImage picture(300, 200, QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            picture.setPixel(x, y, qRgb(x * 7 % 256, y * 13 % 256, (x * y) % 256));
    // A disk that fills up half-way through the write.
    const QString existing = writeBytes(dir, "kept.png", "old contents");
    const QString error = [&] {
        clarovi::testing::FileSizeLimit fullDisk(1000);
        return savePng(picture, existing);
    }();
    EXPECT_TRUE(error.contains("kept.png")) << error.toStdString();
    QFile file(existing);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("old contents"));
}
