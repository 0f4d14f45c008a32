#include "files/export_file.h"

#include "common/file_size_limit.h"

#include <QColorSpace>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <exiv2/exiv2.hpp>
#include <gtest/gtest.h>
#include <memory>

using namespace clarovi::files;

namespace {

// width x height pixels scattered over 16-bit values, most of which 8 bits cannot hold, and which
// compress badly.
QImage deepPicture(QImage::Format format, int width = 8, int height = 4) {
    QImage picture(width, height, format);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            picture.setPixelColor(x, y,
                                  QColor::fromRgba64(quint16((x * 40503u) ^ (y * 9973u)),
                                                     quint16(x * y * 2654435761u), 0x1234));
    return picture;
}

std::unique_ptr<Exiv2::Image> metadataOf(const QString& path) {
    auto image = Exiv2::ImageFactory::open(QFile::encodeName(path).toStdString());
    image->readMetadata();
    return image;
}

std::string tag(const Exiv2::ExifData& exif, const char* key) {
    const auto found = exif.findKey(Exiv2::ExifKey(key));
    return found == exif.end() ? "" : found->toString();
}

struct DepthCase {
    QImage::Format source;
    const char* target;
    QImage::Format written; // as Qt reads the export back
};

TEST(ExportFile, KeepsTheDepthAndValuesOfTheSourceWhereTheFormatHoldsThem) {
    for (const DepthCase& c : {DepthCase{QImage::Format_RGBX64, "out.png", QImage::Format_RGBX64},
                               {QImage::Format_RGBX64, "out.TIF", QImage::Format_RGBX64},
                               {QImage::Format_Grayscale16, "out.tiff", QImage::Format_Grayscale16},
                               {QImage::Format_Grayscale16, "out.jpeg", QImage::Format_Grayscale8},
                               {QImage::Format_RGBX64, "out.jpg", QImage::Format_RGB32}}) {
        SCOPED_TRACE(c.target);
        const QTemporaryDir dir;
        const QString source = dir.filePath("source.png");
        ASSERT_TRUE(deepPicture(c.source).save(source));
        const ExportSource read = readExportSource(source);
        ASSERT_EQ(read.bitsPerChannel, 16) << read.error.toStdString();
        EXPECT_FALSE(read.hasAlpha);

        QStringList notes;
        ASSERT_EQ(writeExport(read.image, dir.filePath(c.target), read.metadata, {}, notes),
                  QString());
        EXPECT_TRUE(notes.isEmpty()) << notes.join(' ').toStdString();
        const QImage back(dir.filePath(c.target));
        ASSERT_EQ(back.format(), c.written);
        if (back.depth() == deepPicture(c.source).depth()) {
            EXPECT_EQ(back, deepPicture(c.source));
        }
        // The source has no metadata, so the export has only what a TIFF's writer puts in.
        const bool tiff = QString(c.target).contains(".ti", Qt::CaseInsensitive);
        const Exiv2::ExifData exif = metadataOf(dir.filePath(c.target))->exifData();
        EXPECT_EQ(tag(exif, "Exif.Image.Software"), tiff ? "Clarovi" : "");
        EXPECT_EQ(tag(exif, "Exif.Image.Compression"), tiff ? "8" : ""); // deflate
    }
}

// A JPEG photograph from a camera held upright: 8 x 4 as stored, red left, blue right.
QString cameraPhotograph(const QTemporaryDir& dir) {
    QImage stored(8, 4, QImage::Format_RGB32);
    stored.fill(Qt::red);
    for (int y = 0; y < 4; ++y)
        for (int x = 4; x < 8; ++x)
            stored.setPixel(x, y, qRgb(0, 0, 255));
    stored.setColorSpace(QColorSpace::AdobeRgb);
    const QString path = dir.filePath("camera.jpg");
    EXPECT_TRUE(stored.save(path));
    auto image = Exiv2::ImageFactory::open(path.toStdString());
    image->readMetadata();
    Exiv2::ExifData& exif = image->exifData();
    exif["Exif.Image.Orientation"] = uint16_t(6);
    exif["Exif.Image.Make"] = std::string("Pinhole Works");
    exif["Exif.Photo.PixelXDimension"] = uint16_t(8);
    Exiv2::ExifThumb(exif).setJpegThumbnail(path.toStdString()); // itself, as it was
    image->xmpData()["Xmp.tiff.Orientation"] = "6";
    image->writeMetadata();
    return path;
}

TEST(ExportFile, WritesTheUprightPictureWithTheCamerasMetadataTrueOfIt) {
    const QTemporaryDir dir;
    const QString source = cameraPhotograph(dir);
    const ExportSource read = readExportSource(source);
    ASSERT_EQ(read.image.size(), QSize(4, 8)) << read.error.toStdString();
    EXPECT_GT(qRed(read.image.pixel(2, 1)), 200);  // the left half turned to the top
    EXPECT_GT(qBlue(read.image.pixel(2, 6)), 200); // and the right half to the bottom

    for (const char* target : {"out.png", "out.tif", "out.jpg"}) {
        SCOPED_TRACE(target);
        QStringList notes;
        ASSERT_EQ(writeExport(read.image, dir.filePath(target), read.metadata, {}, notes),
                  QString());
        EXPECT_TRUE(notes.isEmpty()) << notes.join(' ').toStdString();
        const auto metadata = metadataOf(dir.filePath(target));
        const Exiv2::ExifData& exif = metadata->exifData();
        EXPECT_EQ(metadata->xmpData()["Xmp.tiff.Orientation"].toString(), "1");
        EXPECT_EQ(tag(exif, "Exif.Image.Orientation"), "1");
        EXPECT_EQ(tag(exif, "Exif.Image.Make"), "Pinhole Works");
        EXPECT_EQ(tag(exif, "Exif.Image.Software"), "Clarovi");
        EXPECT_EQ(tag(exif, "Exif.Photo.PixelXDimension"), "4");
        EXPECT_EQ(Exiv2::ExifThumbC(exif).copy().size_, 0);
        const QImage back(dir.filePath(target));
        ASSERT_EQ(back.size(), QSize(4, 8));
        EXPECT_GT(qRed(back.pixel(2, 1)), 200); // the pixels survived the metadata's writing
        EXPECT_GT(qBlue(back.pixel(2, 6)), 200);
        EXPECT_EQ(back.colorSpace(), QColorSpace(QColorSpace::AdobeRgb));
    }
}

TEST(ExportFile, AFailedOrRefusedWriteLeavesTheFolderAsItWas) {
    const QTemporaryDir dir;
    const QString existing = dir.filePath("kept.tif");
    QFile file(existing);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write("old contents") == 12);
    file.close();
    const QImage picture = deepPicture(QImage::Format_RGBX64, 64, 64);
    QStringList notes;
    const QString error = [&] {
        clarovi::testing::FileSizeLimit fullDisk(1000); // fills up half-way through the write
        return writeExport(picture, existing, {}, {}, notes);
    }();
    EXPECT_TRUE(error.contains("kept.tif")) << error.toStdString();
    EXPECT_FALSE(exportFormatOf(dir.filePath("out.bmp")));
    EXPECT_TRUE(writeExport(picture, dir.filePath("out.bmp"), {}, {}, notes).contains("out.bmp"));

    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("old contents"));
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"kept.tif"});
}

} // namespace
