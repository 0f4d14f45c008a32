#include "export_file.h"

#include "picture_file_internal.h"
#include "tiff_encoder.h"

#include <QBuffer>
#include <QFile>
#include <QFileInfo>
#include <QImageWriter>
#include <QLoggingCategory>

#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>

namespace clarovi::jobs {

Q_LOGGING_CATEGORY(lcMetadata, "clarovi.metadata", QtCriticalMsg)

namespace {

bool isGrey(const QImage& image) {
    switch (image.format()) {
    case QImage::Format_Grayscale8:
    case QImage::Format_Grayscale16:
        return true;
    case QImage::Format_Mono:
    case QImage::Format_MonoLSB:
    case QImage::Format_Indexed8:
        return !image.hasAlphaChannel() && image.isGrayscale();
    default:
        return false;
    }
}

const char* formatName(ExportFormat format) {
    switch (format) {
    case ExportFormat::Png:
        return "png";
    case ExportFormat::Tiff:
        return "tiff";
    case ExportFormat::Jpeg:
        break;
    }
    return "jpeg";
}

bool sixteenBitsWanted(const QImage& picture, ExportFormat format, int depth) {
    if (format == ExportFormat::Jpeg || depth == 8)
        return false;
    return depth == 16 || hasMoreThanEightBits(picture.format());
}

bool fullyOpaque(const QImage& image) {
    for (int y = 0; y < image.height(); ++y) {
        if (image.format() == QImage::Format_RGBA64) {
            const auto* line = reinterpret_cast<const QRgba64*>(image.constScanLine(y));
            if (!std::all_of(line, line + image.width(), [](QRgba64 p) { return p.isOpaque(); }))
                return false;
        } else {
            const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
            if (!std::all_of(line, line + image.width(), [](QRgb p) { return qAlpha(p) == 255; }))
                return false;
        }
    }
    return true;
}

/// picture in the format the writer turns into the file wanted: grey stays grey, and alpha is
/// kept where the file format holds it and the picture has any transparency.
QImage writablePicture(const QImage& picture, ExportFormat format, int depth) {
    const bool sixteen = sixteenBitsWanted(picture, format, depth);
    if (picture.format() == QImage::Format_Grayscale8 ||
        picture.format() == QImage::Format_Grayscale16)
        return picture.convertToFormat(sixteen ? QImage::Format_Grayscale16
                                               : QImage::Format_Grayscale8);
    if (!picture.hasAlphaChannel() || format == ExportFormat::Jpeg)
        return picture.convertToFormat(sixteen ? QImage::Format_RGBX64 : QImage::Format_RGB32);
    QImage image = picture.convertToFormat(sixteen ? QImage::Format_RGBA64 : QImage::Format_ARGB32);
    // Opaque pixels are the same with the alpha channel read as padding.
    if (fullyOpaque(image))
        image.reinterpretAsFormat(sixteen ? QImage::Format_RGBX64 : QImage::Format_RGB32);
    return image;
}

constexpr int kPngQuality = 50;

EncodedFile encodeWithQt(const QImage& image, ExportFormat format, int jpegQuality) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, formatName(format));
    if (format == ExportFormat::Jpeg)
        writer.setQuality(jpegQuality);
    // For PNG Qt reads the quality as zlib's effort: 50 encodes a 24-megapixel photograph twice
    // as fast as the default for a file about 3 % larger.
    if (format == ExportFormat::Png)
        writer.setQuality(kPngQuality);
    if (!writer.write(image))
        return {{}, writer.errorString()};
    return {bytes, {}};
}

void routeExiv2Message(int level, const char* text) {
    const QString message = QString::fromLocal8Bit(text).trimmed();
    if (level >= Exiv2::LogMsg::warn)
        qCWarning(lcMetadata).noquote() << message;
    else
        qCDebug(lcMetadata).noquote() << message;
}

/// exiv2 prints to the standard error stream unless told otherwise, and its XMP toolkit must be
/// set up before threads use it.
void prepareExiv2() {
    static std::once_flag prepared;
    std::call_once(prepared, [] {
        Exiv2::LogMsg::setHandler(&routeExiv2Message);
        Exiv2::XmpParser::initialize();
    });
}

/// EXIF tags that describe the source file's pixel data, its layout or other images in it: wrong
/// for the exported picture, and for a TIFF the very structure the writer made.
bool describesSourcePixels(const Exiv2::Exifdatum& datum) {
    const std::string group = datum.groupName();
    if (group == "Thumbnail" || group.rfind("SubImage", 0) == 0 ||
        (group.rfind("Image", 0) == 0 && group != "Image"))
        return true;
    if (group != "Image")
        return false;
    static constexpr std::array<quint16, 31> layout = {
        0x00fe, 0x00ff, 0x0100, 0x0101, 0x0102, 0x0103, 0x0106, 0x010a, 0x0111, 0x0115, 0x0116,
        0x0117, 0x011c, 0x013d, 0x0142, 0x0143, 0x0144, 0x0145, 0x014a, 0x0152, 0x0153, 0x015b,
        0x0201, 0x0202, 0x0211, 0x0212, 0x0213, 0x0214, 0x02bc, 0x83bb, 0x8773};
    // 0x8649 (Photoshop's image resources) may hold a thumbnail and a second copy of the IPTC data.
    return datum.tag() == 0x8649 ||
           std::find(layout.begin(), layout.end(), datum.tag()) != layout.end();
}

void setIfPresent(Exiv2::ExifData& exif, const char* key, long value) {
    const auto found = exif.findKey(Exiv2::ExifKey(key));
    if (found != exif.end())
        found->setValue(std::to_string(value));
}

void setIfPresent(Exiv2::XmpData& xmp, const char* key, long value) {
    const auto found = xmp.findKey(Exiv2::XmpKey(key));
    if (found != xmp.end())
        found->setValue(std::to_string(value));
}

/// The target's own EXIF (a TIFF's structure) with the source's added, made true of the export.
Exiv2::ExifData exportedExif(const Exiv2::ExifData& target, const Exiv2::ExifData& source,
                             QSize size) {
    Exiv2::ExifData exif = target;
    for (const Exiv2::Exifdatum& datum : source) {
        if (describesSourcePixels(datum))
            continue;
        const auto found = exif.findKey(Exiv2::ExifKey(datum.key()));
        if (found != exif.end())
            found->setValue(&datum.value());
        else
            exif.add(datum);
    }
    Exiv2::ExifThumb(exif).erase();
    exif["Exif.Image.Orientation"] = uint16_t(1);
    exif["Exif.Image.Software"] = std::string("Clarovi");
    setIfPresent(exif, "Exif.Photo.PixelXDimension", size.width());
    setIfPresent(exif, "Exif.Photo.PixelYDimension", size.height());
    return exif;
}

Exiv2::XmpData exportedXmp(const Exiv2::XmpData& source, QSize size) {
    Exiv2::XmpData xmp = source;
    setIfPresent(xmp, "Xmp.tiff.Orientation", 1);
    setIfPresent(xmp, "Xmp.tiff.ImageWidth", size.width());
    setIfPresent(xmp, "Xmp.tiff.ImageLength", size.height());
    setIfPresent(xmp, "Xmp.exif.PixelXDimension", size.width());
    setIfPresent(xmp, "Xmp.exif.PixelYDimension", size.height());
    return xmp;
}

bool writable(Exiv2::Image& image, Exiv2::MetadataId kind, const char* name) {
    if (image.checkMode(kind) & Exiv2::amWrite)
        return true;
    qCWarning(lcMetadata) << "The exported format cannot hold" << name << "data; it is left out.";
    return false;
}

/// The source file's metadata, or none when exiv2 cannot read it.
std::unique_ptr<Exiv2::Image> sourceMetadata(const QString& source) {
    try {
        std::unique_ptr<Exiv2::Image> image =
            Exiv2::ImageFactory::open(QFile::encodeName(source).toStdString());
        image->readMetadata();
        return image;
    } catch (const Exiv2::AnyError& error) {
        qCWarning(lcMetadata).noquote()
            << "The metadata of" << source << "cannot be read and is left out:" << error.what();
        return std::unique_ptr<Exiv2::Image>();
    }
}

/// encoded with source's EXIF, XMP and IPTC data added; encoded itself when the source has none,
/// or when they cannot be added. Done in memory: exiv2 does not report a failed write to a file.
QByteArray withMetadata(const QByteArray& encoded, const QString& source, QSize size) {
    prepareExiv2();
    const std::unique_ptr<Exiv2::Image> from = sourceMetadata(source);
    if (!from.get() ||
        (from->exifData().empty() && from->xmpData().empty() && from->iptcData().empty()))
        return encoded;
    try {
        // Reads encoded in place; exiv2 writes the result to memory of its own.
        std::unique_ptr<Exiv2::Image> to = Exiv2::ImageFactory::open(
            reinterpret_cast<const Exiv2::byte*>(encoded.constData()), long(encoded.size()));
        to->readMetadata();
        if (writable(*to, Exiv2::mdExif, "EXIF"))
            to->setExifData(exportedExif(to->exifData(), from->exifData(), size));
        if (!from->xmpData().empty() && writable(*to, Exiv2::mdXmp, "XMP"))
            to->setXmpData(exportedXmp(from->xmpData(), size));
        if (!from->iptcData().empty() && writable(*to, Exiv2::mdIptc, "IPTC"))
            to->setIptcData(from->iptcData());
        to->writeMetadata();
        Exiv2::BasicIo& io = to->io();
        if (io.open() != 0)
            throw Exiv2::Error(Exiv2::kerDataSourceOpenFailed, io.path(), "");
        QByteArray result(qsizetype(io.size()), Qt::Uninitialized);
        if (io.read(reinterpret_cast<Exiv2::byte*>(result.data()), long(result.size())) !=
            long(result.size()))
            throw Exiv2::Error(Exiv2::kerFailedToReadImageData);
        return result;
    } catch (const Exiv2::AnyError& error) {
        qCWarning(lcMetadata).noquote()
            << "The metadata of" << source << "cannot be copied and is left out:" << error.what();
        return encoded;
    }
}

} // namespace

ExportSource readExportSource(const QString& path) {
    LoadedPicture loaded = readPicture(path, PictureDepth::Source);
    if (loaded.image.isNull())
        return {{}, false, 8, loaded.error};
    QImage& image = loaded.image;
    const bool hasAlpha = image.hasAlphaChannel();
    const bool deep = hasMoreThanEightBits(image.format());
    if (isGrey(image))
        image.convertTo(deep ? QImage::Format_Grayscale16 : QImage::Format_Grayscale8);
    else
        image.convertTo(deep ? QImage::Format_RGBA64 : QImage::Format_RGBA8888);
    return {image, hasAlpha, deep ? 16 : 8, {}};
}

std::optional<ExportFormat> exportFormatOf(const QString& path) {
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("png"))
        return ExportFormat::Png;
    if (suffix == QLatin1String("tif") || suffix == QLatin1String("tiff"))
        return ExportFormat::Tiff;
    if (suffix == QLatin1String("jpg") || suffix == QLatin1String("jpeg"))
        return ExportFormat::Jpeg;
    return std::nullopt;
}

QString exportTargetError(const QString& target) {
    if (exportFormatOf(target))
        return {};
    return saveFailure(target, QStringLiteral("Clarovi exports PNG, TIFF and JPEG pictures; the "
                                              "name must end in .png, .tif, .tiff, .jpg or "
                                              ".jpeg."));
}

QString writeExport(const QImage& picture, const QString& target, const QString& source,
                    const ExportOptions& options, const std::function<bool()>& cancelled) {
    const std::optional<ExportFormat> format = exportFormatOf(target);
    if (!format)
        return exportTargetError(target);
    if (picture.isNull())
        return saveFailure(target, QStringLiteral("there is no restored picture yet."));
    // Encoded in memory first: a full disk then fails the write, not the encoder half-way.
    const QImage writable = writablePicture(picture, *format, options.depth);
    const EncodedFile encoded = *format == ExportFormat::Tiff
                                    ? encodeTiff(writable)
                                    : encodeWithQt(writable, *format, options.jpegQuality);
    if (!encoded.error.isEmpty())
        return saveFailure(
            target, QStringLiteral("the picture could not be encoded as %1: %2.")
                        .arg(QString::fromLatin1(formatName(*format)).toUpper(), encoded.error));
    const QByteArray file = withMetadata(encoded.bytes, source, picture.size());
    if (cancelled && cancelled())
        return {};
    return writeAtomically(target, file);
}

} // namespace clarovi::jobs
