#pragma once

#include "export_metadata.h"

#include <QImage>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace clarovi::files {

/// A photograph as the full-size export reads it, or why it could not be read.
struct ExportSource {
    /// Upright (its EXIF orientation applied), at its own size, with its own depth: Grayscale8 or
    /// Grayscale16 for grey pictures, RGBA8888 or RGBA64 otherwise (alpha opaque when the source
    /// has none); null when refused.
    QImage image;
    bool hasAlpha = false;
    int bitsPerChannel = 8; ///< 8, or 16 for sources of more than 8 bits
    QString error;          ///< a sentence naming the file and the reason, when refused
    SourceMetadata metadata;
};

/// Reads path for export with the same refusals as opening it in the window (format by content,
/// structure, size, time), keeping its depth, and reads its metadata (readSourceMetadata), whose
/// profile is the one Qt made of its colour chunks when the file holds none.
ExportSource readExportSource(const QString& path);

enum class ExportFormat { Png, Tiff, Jpeg };

/// The format a target's extension asks for (.png, .tif, .tiff, .jpg, .jpeg, any case);
/// std::nullopt for any other.
std::optional<ExportFormat> exportFormatOf(const QString& path);

struct ExportOptions {
    int depth = 0; ///< bits per channel: 8, 16, or 0 for the source's (JPEG is always 8)
    int jpegQuality = 95;
};

/// Why target cannot be exported to from the photograph at source (its extension names no export
/// format, or targetProblem refuses it); empty when it can.
QString exportTargetError(const QString& target, const QString& source);

/// Writes picture to target in the format of its extension, through a temporary file renamed
/// into place (writeAtomically), so that a failure or a full disk leaves no partial file and an
/// existing file untouched, with the photograph's metadata (withMetadata); what of it is left out
/// adds a sentence to notes. Returns an empty string on success, otherwise a sentence naming the
/// file and the reason. When cancelled() says stop once the file is encoded, nothing is written
/// and the string is empty as well.
QString writeExport(const QImage& picture, const QString& target, const SourceMetadata& metadata,
                    const ExportOptions& options, QStringList& notes,
                    const std::function<bool()>& cancelled = {});

} // namespace clarovi::files
