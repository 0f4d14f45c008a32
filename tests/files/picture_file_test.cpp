#include "files/picture_file.h"

#include "common/file_size_limit.h"
#include "common/hostile_files.h"
#include "common/log_capture.h"

#include <QBuffer>
#include <QColorSpace>
#include <QFile>
#include <QImageWriter>
#include <QTemporaryDir>
#include <QThread>
#include <QtEndian>
#include <gtest/gtest.h>

using namespace clarovi::files;
using clarovi::testing::LogCapture;

namespace {

using namespace clarovi::testing;

QString writeBytes(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes) {
    writeFile(dir.filePath(name), bytes);
    return dir.filePath(name);
}

QByteArray encoded(const char* format) {
    return clarovi::testing::encoded(smallPicture(), format);
}

QByteArray chunk(const QByteArray& type, const QByteArray& data, qint64 length = -1) {
    return pngChunk(type, data, length);
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

// Past its budget the decoder finds the end of its data, which libpng and libtiff (whose failed
// reads once wrote before a buffer) handle as a truncated file.
class DecodingBudget : public ::testing::TestWithParam<const char*> {};

TEST_P(DecodingBudget, ADecodingThatOutlastsItEndsInARefusal) {
    QByteArray bytes = encoded(GetParam());
    SlowDevice slow(&bytes);
    ASSERT_TRUE(slow.open(QIODevice::ReadOnly));
    const LoadedPicture loaded = loadPicture(slow, QStringLiteral("slow"));
    EXPECT_TRUE(loaded.image.isNull());
    EXPECT_TRUE(loaded.error.contains("takes too long")) << loaded.error.toStdString();
}

INSTANTIATE_TEST_SUITE_P(Formats, DecodingBudget, ::testing::Values("png", "tiff"));

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
    EXPECT_TRUE(readFile(dir.filePath("out.tiff")).startsWith("\x89PNG"));

    const QString existing = writeBytes(dir, "kept.png", "old contents");
    const QString error = [&] {
        clarovi::testing::FileSizeLimit fullDisk(1000); // fills up half-way through the write
        return savePng(picture, existing);
    }();
    EXPECT_TRUE(error.contains("kept.png")) << error.toStdString();
    EXPECT_EQ(readFile(existing), QByteArray("old contents"));
}

namespace {

// A structure made to mislead or stall the decoder, and what opening it must come to: a refusal
// saying why, or the picture at its size (turned upright where its EXIF says so).
struct Structure {
    const char* name;
    QByteArray bytes;
    const char* refusal; // nullptr: it opens
    QSize size = {64, 48};
};

QByteArray seed(const char* name) {
    return readFile(QStringLiteral(CLAROVI_SEEDS_DIR "/") + QLatin1String(name));
}

QByteArray patched(QByteArray bytes, qsizetype at, const QByteArray& with) {
    return bytes.replace(at, with.size(), with);
}

/// GIF sub-blocks holding bytes bytes.
QByteArray subBlocks(qsizetype bytes) {
    QByteArray blocks;
    for (; bytes > 0; bytes -= 255)
        blocks += char(255) + QByteArray(255, 'g');
    return blocks;
}

// still.gif: 8 x 4, a colour table of 4, its frame's descriptor at 25, data from 35 to the
// terminator at 49.
QByteArray gifWith(qsizetype at, const QByteArray& inserted) {
    const QByteArray gif = seed("still.gif");
    return gif.left(at) + inserted + gif.mid(at);
}

QByteArray webpWithChunk(const QByteArray& fourcc, const QByteArray& data) {
    return encoded("webp") + fourcc + le(quint32(data.size()), 4) + data +
           QByteArray(data.size() & 1, '\0');
}

QByteArray jpegWithApp1(const QByteArray& exif) {
    const QByteArray jpeg = encoded("jpeg");
    const QByteArray app1 = QByteArray("Exif\0\0", 6) + exif;
    return jpeg.left(2) + "\xff\xe1" + be32(quint32(app1.size() + 2)).right(2) + app1 + jpeg.mid(2);
}

QImage withColourSpace(QImage picture) {
    picture.setColorSpace(QColorSpace::DisplayP3);
    return picture;
}

const QByteArray kTurned = tiffFile({{274, 3, 1, le(6, 2)}});
const QSize kUpright(48, 64);

const Structure kStructures[] = {
    {"TiffStripBeyondTheFile", greyTiff({{279, 4, 1, le(64 * 48 * 100, 4)}}),
     "truncated or damaged"},
    {"TiffClaimingMorePixelsThanItsData",
     greyTiff({{256, 3, 1, le(9000, 2)}, {257, 3, 1, le(9000, 2)}, {278, 3, 1, le(9000, 2)}}),
     "cannot hold 9000 × 9000"},
    {"TiffStripLargerThanItsPixelsNeed",
     greyTiff({{279, 4, 1, le(2 << 20, 4)}}, {},
              greyTiff().right(64 * 48) + QByteArray(2 << 20, '\0')),
     "more picture data"},
    {"TiffOfAnUnreadCompression", greyTiff({{259, 3, 1, le(2, 2)}}), "TIFF compression 2"},
    {"TiffDirectoryOutsideTheFile", patched(greyTiff({}), 4, le(1 << 20, 4)),
     "directory is damaged"},
    {"BigTiff", patched(greyTiff({}), 2, le(43, 2)), "BigTIFF"},
    {"TiffTagsOnOneBlock",
     greyTiff(std::vector<TiffTag>(3000, TiffTag{0x9000, 7, 1 << 20, {}, true}),
              QByteArray(1 << 20, 'b')),
     nullptr},
    {"TiffTurned", greyTiff({{274, 3, 1, le(6, 2)}}), nullptr, kUpright},
    {"BmpClaimingMorePixelsThanItsData", patched(encoded("bmp"), 18, le(9000, 4) + le(9000, 4)),
     "cannot hold 9000 × 9000"},
    {"BmpOfAnUnreadCompression", patched(encoded("bmp"), 30, le(5, 4)), "compression 5"},
    {"BmpOfAnUnknownDepth", patched(encoded("bmp"), 28, le(7, 2)), "BMP header is damaged"},
    {"GifClaimingMorePixelsThanItsData",
     patched(patched(seed("still.gif"), 6, le(9000, 2) + le(9000, 2)), 30,
             le(9000, 2) + le(9000, 2)),
     "cannot hold 9000 × 9000"},
    {"GifWithExtensionsOfSeventeenMebibytes",
     gifWith(25, "\x21\xfe" + subBlocks(17 << 20) + '\0'),
     "MiB of GIF extensions",
     {8, 4}},
    {"GifFrameLargerThanItsPixelsNeed", gifWith(49, subBlocks(2 << 20)), "more picture data"},
    {"GifWithoutAFrame", seed("still.gif").left(25) + ";", "holds no GIF picture"},
    {"WebpTruncated", encoded("webp").left(30), "truncated"},
    {"WebpFrameHeaderDamaged", patched(encoded("webp"), 23, "xyz"), "frame header is damaged"},
    {"WebpFrameLargerThanItsPixelsNeed",
     patched(encoded("webp"), 16, le(4 << 20, 4)) + QByteArray(4 << 20, '\0'), "more picture data"},
    {"WebpTurnedByItsExif", webpWithChunk("EXIF", kTurned), nullptr, kUpright},
    {"WebpWithAProfileTheDecoderIsNotShown",
     clarovi::testing::encoded(withColourSpace(smallPicture()), "webp"), nullptr},
    {"PngDataLargerThanItsPixelsNeed",
     encoded("png").chopped(12) + chunk("IDAT", QByteArray(3 << 19, '\0')) + chunk("IEND", {}),
     "more picture data"},
    {"PngWithMegabytesOfText",
     withPngChunks(encoded("png"), chunk("tEXt", "k\0" + QByteArray(3 << 20, 't'))), nullptr},
    {"PngTurnedByItsExif",
     withPngChunks(encoded("png"), chunk("eXIf", tiffFile({{274, 3, 1, le(8, 2)}}))), nullptr,
     kUpright},
    {"JpegDataLargerThanItsPixelsNeed",
     encoded("jpeg").chopped(2) + QByteArray(2 << 20, '\x11') + "\xff\xd9", "more picture data"},
    {"JpegTurnedByItsExif", jpegWithApp1(kTurned), nullptr, kUpright},
};

class PictureStructure : public ::testing::TestWithParam<Structure> {};

} // namespace

TEST_P(PictureStructure, IsRefusedAtOnceWithItsReasonOrOpensUpright) {
    const Structure& c = GetParam();
    QTemporaryDir dir;
    LogCapture log;
    const LoadedPicture loaded = loadPicture(writeBytes(dir, c.name, c.bytes));
    if (c.refusal) {
        EXPECT_TRUE(loaded.image.isNull());
        EXPECT_TRUE(loaded.error.contains(QString::fromUtf8(c.refusal)))
            << loaded.error.toStdString();
    } else {
        EXPECT_EQ(loaded.image.size(), c.size) << loaded.error.toStdString();
    }
    EXPECT_EQ(log.count(QString()), 0) << log.lines().join('\n').toStdString();
}

INSTANTIATE_TEST_SUITE_P(Formats, PictureStructure, ::testing::ValuesIn(kStructures),
                         [](const ::testing::TestParamInfo<Structure>& row) {
                             return std::string(row.param.name);
                         });
