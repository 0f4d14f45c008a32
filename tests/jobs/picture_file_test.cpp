#include "jobs/picture_file.h"

#include "common/file_size_limit.h"
#include "common/log_capture.h"

#include <QBuffer>
#include <QFile>
#include <QImageWriter>
#include <QTemporaryDir>
#include <QThread>
#include <QtEndian>
#include <gtest/gtest.h>

using namespace clarovi::jobs;
using clarovi::testing::LogCapture;

namespace {

QString writeBytes(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
    QFile file(dir.filePath(name));
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    return file.fileName();
}

QByteArray readBytes(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
}

// A 64 x 48 picture written in format.
QByteArray encoded(const char* format) {
    QImage picture(64, 48, QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    EXPECT_TRUE(buffer.open(QIODevice::WriteOnly) && picture.save(&buffer, format));
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

// A PNG chunk; length, when given, is what its header claims instead of its true length.
QByteArray chunk(const QByteArray& type, const QByteArray& data, qint64 length = -1) {
    QByteArray bytes(4, '\0');
    qToBigEndian(quint32(length < 0 ? data.size() : length), bytes.data());
    QByteArray check(4, '\0');
    qToBigEndian(crc32(type + data), check.data());
    return bytes + type + data + check;
}

// A PNG whose header claims width x height pixels of 8-bit RGB, with the chunks given.
QByteArray pngClaiming(quint32 width, quint32 height, const QByteArray& chunks) {
    QByteArray header("\0\0\0\0\0\0\0\0\x08\x02\0\0\0", 13);
    qToBigEndian(width, header.data());
    qToBigEndian(height, header.data() + 4);
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) + chunks + chunk("IEND", {});
}

// A progressive JPEG whose last scan comes again and again.
QByteArray jpegWithScans(int scans) {
    QImage picture(16, 16, QImage::Format_RGB32);
    picture.fill(Qt::gray);
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    QImageWriter writer(&buffer, "jpeg");
    writer.setProgressiveScanWrite(true);
    EXPECT_TRUE(writer.write(picture));
    const qsizetype lastScan = jpeg.lastIndexOf("\xff\xda");
    const QByteArray scan = jpeg.mid(lastScan, jpeg.size() - 2 - lastScan);
    QByteArray result = jpeg.left(jpeg.size() - 2);
    for (int k = 0; k < scans; ++k)
        result += scan;
    return result + "\xff\xd9";
}

} // namespace

// Each refusal names the file and the reason; the image libraries' own complaints stay out of the
// program's output.
TEST(PictureFile, RefusesBadFilesWithAMessageNamingThemAndWhy) {
    QTemporaryDir dir;
    const QByteArray png = encoded("PNG"), xpm = encoded("XPM");
    const QByteArray someData = chunk("IDAT", QByteArray(2000, 'x'));
    const std::tuple<const char*, QByteArray, const char*> cases[] = {
        {"empty.png", {}, "empty"},
        {"truncated.png", png.left(png.size() / 2), "truncated or damaged"},
        {"text.jpg", "this is not a photograph", "not a PNG, JPEG, TIFF, BMP, WebP or GIF"},
        {"xpm.png", xpm, "not a PNG"},
        {"enormous.png", pngClaiming(20000, 20000, someData), "100 megapixels"},
        {"hollow.png", pngClaiming(9000, 9000, someData), "cannot hold 9000 \u00d7 9000"},
        {"lying.png", pngClaiming(8, 8, chunk("tEXt", "a", 0x7ffffff0) + someData), "tEXt"},
        {"scans.jpg", jpegWithScans(kMaxJpegScans), "scans"},
        {"damaged.png", png.left(png.size() - 20) + QByteArray(8, 'z') + png.right(12), "damaged"}};
    LogCapture log;
    for (const auto& [name, bytes, reason] : cases) {
        const LoadedPicture loaded = loadPicture(writeBytes(dir, name, bytes));
        EXPECT_TRUE(loaded.image.isNull()) << name;
        EXPECT_TRUE(loaded.error.contains(name) && loaded.error.contains(QString::fromUtf8(reason)))
            << loaded.error.toStdString();
    }
    EXPECT_EQ(log.count(QString()), 0) << log.lines().join('\n').toStdString();
}

// A device that takes its time over every read, as a file on a stalled network share would.
class SlowDevice : public QBuffer {
  public:
    using QBuffer::QBuffer;

  protected:
    qint64 readData(char* data, qint64 maxSize) override {
        QThread::msleep(250);
        return QBuffer::readData(data, maxSize);
    }
};

TEST(PictureFile, ADecodingThatOutlastsItsBudgetEndsInARefusal) {
    QByteArray png = encoded("PNG");
    SlowDevice slow(&png);
    ASSERT_TRUE(slow.open(QIODevice::ReadOnly));
    const LoadedPicture loaded = loadPicture(slow, QStringLiteral("slow.png"));
    EXPECT_TRUE(loaded.image.isNull());
    EXPECT_TRUE(loaded.error.contains("takes too long")) << loaded.error.toStdString();
}

TEST(PictureFile, AcceptsDeepGreyIndexedAndTransparentPicturesAndTheExifOrientation) {
    QTemporaryDir dir;
    QImage base(40, 30, QImage::Format_ARGB32);
    base.fill(QColor(200, 100, 50, 128));
    for (QImage::Format format : {QImage::Format_RGBA64, QImage::Format_Grayscale16,
                                  QImage::Format_Indexed8, QImage::Format_ARGB32})
        for (const char* type : {"png", "tif"}) { // a TIFF's last strip is a short one
            const QString path = dir.filePath(QStringLiteral("f%1.%2").arg(int(format)).arg(type));
            ASSERT_TRUE(base.convertToFormat(format).save(path));
            const LoadedPicture loaded = loadPicture(path);
            EXPECT_TRUE(loaded.error.isEmpty() && loaded.image.size() == QSize(40, 30))
                << loaded.error.toStdString();
        }

    QImageWriter turned(dir.filePath("turned.jpg"));
    turned.setTransformation(QImageIOHandler::TransformationRotate90);
    ASSERT_TRUE(turned.write(base.convertToFormat(QImage::Format_RGB32)));
    EXPECT_EQ(loadPicture(dir.filePath("turned.jpg")).image.size(), QSize(30, 40));
}

// Whatever the name says, the file is a PNG; a failed save says why and leaves the old file.
TEST(PictureFile, SavesPngAndAFailedSaveLeavesTheOldFile) {
    EXPECT_EQ(savePathFor("/tmp/result"), "/tmp/result.png");
    EXPECT_EQ(savePathFor("/tmp/result.tiff"), "/tmp/result.tiff");
    QTemporaryDir dir;
    QImage picture(300, 200, QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x)
            picture.setPixel(x, y, qRgb(x * 7 % 256, y * 13 % 256, (x * y) % 256));
    ASSERT_EQ(savePng(picture, dir.filePath("out.tiff")), QString());
    EXPECT_TRUE(readBytes(dir.filePath("out.tiff")).startsWith("\x89PNG"));

    const QString existing = writeBytes(dir, "kept.png", "old contents");
    const QString error = [&] {
        clarovi::testing::FileSizeLimit fullDisk(1000); // fills up half-way through the write
        return savePng(picture, existing);
    }();
    EXPECT_TRUE(error.contains("kept.png")) << error.toStdString();
    EXPECT_EQ(readBytes(existing), QByteArray("old contents"));
}
