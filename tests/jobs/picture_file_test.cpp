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

QByteArray pngBytes(const QImage& image) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

quint32 crc32(const QByteArray& bytes) {
    quint32 crc = 0xFFFFFFFFu;
    for (char byte : bytes) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

QByteArray pngChunk(const char* type, const QByteArray& data) {
    QByteArray chunk(4, '\0');
    qToBigEndian<quint32>(quint32(data.size()), chunk.data());
    const QByteArray body = QByteArray(type) + data;
    QByteArray crc(4, '\0');
    qToBigEndian<quint32>(crc32(body), crc.data());
    return chunk + body + crc;
}

// A valid PNG header that claims width x height pixels, with almost no pixel data behind it.
QByteArray pngClaiming(quint32 width, quint32 height) {
    QByteArray header(13, '\0');
    qToBigEndian<quint32>(width, header.data());
    qToBigEndian<quint32>(height, header.data() + 4);
    header[8] = 8; // bits per sample
    header[9] = 2; // RGB
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + pngChunk("IHDR", header) +
           pngChunk("IDAT", qCompress(QByteArray(100, '\0')).mid(4)) + pngChunk("IEND", {});
}

} // namespace

TEST(PictureFile, RefusesBadFilesWithAMessageNamingThem) {
    QTemporaryDir dir;
    QImage picture(64, 48, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    const QByteArray png = pngBytes(picture);
    const struct {
        const char* name;
        QByteArray bytes;
    } cases[] = {{"empty.png", {}},
                 {"truncated.png", png.left(png.size() / 2)},
                 {"text.jpg", "this is not a photograph"},
                 {"enormous.png", pngClaiming(20000, 20000)}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const LoadedPicture loaded = loadPicture(writeBytes(dir, c.name, c.bytes));
        EXPECT_TRUE(loaded.image.isNull());
        EXPECT_TRUE(loaded.error.contains(QString::fromLatin1(c.name)))
            << loaded.error.toStdString();
    }
    EXPECT_TRUE(loadPicture(dir.filePath("enormous.png")).error.contains("100 megapixels"));
    EXPECT_FALSE(loadPicture(dir.filePath("missing.png")).error.isEmpty());
}

TEST(PictureFile, AcceptsDeepGreyIndexedAndTransparentPictures) {
    QTemporaryDir dir;
    QImage base(40, 30, QImage::Format_ARGB32);
    base.fill(QColor(200, 100, 50, 128));
    for (QImage::Format format :
         {QImage::Format_RGBA64, QImage::Format_Grayscale16, QImage::Format_Grayscale8,
          QImage::Format_Indexed8, QImage::Format_ARGB32}) {
        SCOPED_TRACE(int(format));
        const QString path = dir.filePath(QStringLiteral("f%1.png").arg(int(format)));
        ASSERT_TRUE(base.convertToFormat(format).save(path));
        const LoadedPicture loaded = loadPicture(path);
        EXPECT_EQ(loaded.image.size(), QSize(40, 30));
        EXPECT_TRUE(loaded.error.isEmpty());
    }
}

TEST(PictureFile, AppliesTheExifOrientation) {
    QTemporaryDir dir;
    const QString path = dir.filePath("turned.jpg");
    QImage picture(80, 40, QImage::Format_RGB32);
    picture.fill(Qt::white);
    QImageWriter writer(path);
    writer.setTransformation(QImageIOHandler::TransformationRotate90);
    ASSERT_TRUE(writer.write(picture));
    EXPECT_EQ(loadPicture(path).image.size(), QSize(40, 80));
}

TEST(PictureFile, SavesPngAndAppendsTheExtensionOnlyWhenThereIsNone) {
    EXPECT_EQ(savePathFor("/tmp/result"), "/tmp/result.png");
    EXPECT_EQ(savePathFor("/tmp/result.tiff"), "/tmp/result.tiff");

    QTemporaryDir dir;
    QImage picture(30, 20, QImage::Format_RGB32);
    picture.fill(Qt::red);
    const QString path = dir.filePath("out.tiff");
    ASSERT_EQ(savePng(picture, path), QString());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_TRUE(file.read(8).startsWith("\x89PNG"));
}

TEST(PictureFile, AFailedSaveSaysWhyAndLeavesTheOldFile) {
    QTemporaryDir dir;
    QImage picture(300, 200, QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            picture.setPixel(x, y, qRgb(x * 7 % 256, y * 13 % 256, (x * y) % 256));

    const QString inFile = writeBytes(dir, "file", "not a folder");
    EXPECT_TRUE(savePng(picture, inFile + "/out.png").contains("out.png"));
    EXPECT_FALSE(savePng(QImage(), dir.filePath("x.png")).isEmpty());

    // A disk that fills up half-way through the write.
    const QString existing = writeBytes(dir, "kept.png", "old contents");
    QString error;
    {
        clarovi::testing::FileSizeLimit fullDisk(1000);
        error = savePng(picture, existing);
    }
    EXPECT_TRUE(error.contains("kept.png")) << error.toStdString();
    QFile file(existing);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("old contents"));
}
