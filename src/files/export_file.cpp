#include "export_file.h"

#include "export_target.h"
#include "library_messages.h"
#include "picture_file_internal.h"
#include "tiff_encoder.h"

#include <QBuffer>
#include <QColorSpace>
#include <QFile>
#include <QFileInfo>
#include <QImageWriter>

#include <algorithm>

namespace clarovi::files {

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
/// kept where the file format holds it and the picture has any transparency. Without its colour
/// space: the profile is the metadata's to write, and only where it fits the picture.
QImage writablePicture(const QImage& picture, ExportFormat format, int depth) {
    const bool sixteen = sixteenBitsWanted(picture, format, depth);
    QImage image;
    if (picture.format() == QImage::Format_Grayscale8 ||
        picture.format() == QImage::Format_Grayscale16)
        image = picture.convertToFormat(sixteen ? QImage::Format_Grayscale16
                                                : QImage::Format_Grayscale8);
    else if (!picture.hasAlphaChannel() || format == ExportFormat::Jpeg)
        image = picture.convertToFormat(sixteen ? QImage::Format_RGBX64 : QImage::Format_RGB32);
    else
        image = picture.convertToFormat(sixteen ? QImage::Format_RGBA64 : QImage::Format_ARGB32);
    // Opaque pixels are the same with the alpha channel read as padding.
    if (image.hasAlphaChannel() && fullyOpaque(image))
        image.reinterpretAsFormat(sixteen ? QImage::Format_RGBX64 : QImage::Format_RGB32);
    image.setColorSpace(QColorSpace());
    return image;
}

constexpr int kPngQuality = 50;

EncodedFile encodeWithQt(const QImage& image, ExportFormat format, int jpegQuality) {
    const LibraryMessages messages; // the encoders' warnings are not the user's business
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

} // namespace

ExportSource readExportSource(const QString& path) {
    QFile file;
    if (const QString error = openPictureFile(path, file); !error.isEmpty())
        return {{}, false, 8, error, {}};
    PictureHeader header;
    LoadedPicture loaded = readPicture(file, path, PictureDepth::Source, &header);
    if (loaded.image.isNull())
        return {{}, false, 8, loaded.error, {}};
    SourceMetadata metadata = readSourceMetadata(file, header, path, header.orientation > 1);
    QImage& image = loaded.image;
    if (metadata.icc.isEmpty() && image.colorSpace().isValid()) {
        metadata.icc = image.colorSpace().iccProfile();
        metadata.iccInFile = false;
    }
    const bool hasAlpha = image.hasAlphaChannel();
    const bool deep = hasMoreThanEightBits(image.format());
    if (isGrey(image))
        image.convertTo(deep ? QImage::Format_Grayscale16 : QImage::Format_Grayscale8);
    else
        image.convertTo(deep ? QImage::Format_RGBA64 : QImage::Format_RGBA8888);
    return {image, hasAlpha, deep ? 16 : 8, {}, std::move(metadata)};
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

QString exportTargetError(const QString& target, const QString& source) {
    if (const QString problem = targetProblem(target, source); !problem.isEmpty())
        return problem;
    if (exportFormatOf(target))
        return {};
    return saveFailure(target, QStringLiteral("Clarovi exports PNG, TIFF and JPEG pictures; the "
                                              "name must end in .png, .tif, .tiff, .jpg or "
                                              ".jpeg."));
}

QString writeExport(const QImage& picture, const QString& target, const SourceMetadata& metadata,
                    const ExportOptions& options, QStringList& notes,
                    const std::function<bool()>& cancelled) {
    const std::optional<ExportFormat> format = exportFormatOf(target);
    if (!format)
        return exportTargetError(target, {});
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
    const bool grey = writable.format() == QImage::Format_Grayscale8 ||
                      writable.format() == QImage::Format_Grayscale16;
    const QByteArray file = withMetadata(encoded.bytes, metadata, picture.size(), grey, notes);
    if (cancelled && cancelled())
        return {};
    return writeAtomically(target, file);
}

} // namespace clarovi::files
