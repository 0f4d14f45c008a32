#pragma once

#include <QImage>
#include <QLoggingCategory>
#include <QString>

#include <functional>
#include <optional>

namespace clarovi::jobs {

/// Why a photograph's metadata was left out of its export, and what exiv2 says while reading and
/// writing it ("clarovi.metadata"; its warnings are off unless enabled).
Q_DECLARE_LOGGING_CATEGORY(lcMetadata)

/// A photograph as the full-size export reads it, or why it could not be read.
struct ExportSource {
    /// Upright (its EXIF orientation applied), at its own size, with its own depth: Grayscale8 or
    /// Grayscale16 for grey pictures, RGBA8888 or RGBA64 otherwise (alpha opaque when the source
    /// has none); null when refused.
    QImage image;
    bool hasAlpha = false;
    int bitsPerChannel = 8; ///< 8, or 16 for sources of more than 8 bits
    QString error;          ///< a sentence naming the file and the reason, when refused
};

/// Reads path for export with the same refusals as opening it in the window (format by content,
/// structure, size, time), keeping its depth.
ExportSource readExportSource(const QString& path);

enum class ExportFormat { Png, Tiff, Jpeg };

/// The format a target's extension asks for (.png, .tif, .tiff, .jpg, .jpeg, any case);
/// std::nullopt for any other.
std::optional<ExportFormat> exportFormatOf(const QString& path);

struct ExportOptions {
    int depth = 0; ///< bits per channel: 8, 16, or 0 for the source's (JPEG is always 8)
    int jpegQuality = 95;
};

/// Why target cannot be exported to (its extension names no export format); empty when it can.
QString exportTargetError(const QString& target);

/// Writes picture to target in the format of its extension, through a temporary file renamed
/// into place, so that a failure or a full disk leaves no partial file and an existing file
/// untouched. Copies the EXIF, XMP and IPTC data of source with the Orientation set to 1, the
/// EXIF thumbnail dropped and Software set to Clarovi, and keeps picture's colour space (the ICC
/// profile). Metadata that cannot be read is skipped with a warning. Returns an empty string on
/// success, otherwise a sentence naming the file and the reason. When cancelled() says stop once
/// the file is encoded, nothing is written and the string is empty as well.
QString writeExport(const QImage& picture, const QString& target, const QString& source,
                    const ExportOptions& options, const std::function<bool()>& cancelled = {});

} // namespace clarovi::jobs
