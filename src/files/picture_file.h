#pragma once

#include "picture_header.h"

#include <QIODevice>
#include <QImage>
#include <QLoggingCategory>
#include <QString>

namespace clarovi::files {

/// What the image libraries say while a picture is decoded: warnings and errors, kept out of the
/// program's own output unless this category's warnings are enabled ("clarovi.decoder").
Q_DECLARE_LOGGING_CATEGORY(lcDecoder)

/// A picture read from a file, or why it could not be.
struct LoadedPicture {
    QImage image;  ///< null when the file was refused
    QString error; ///< a sentence naming the file and the reason, when refused
};

/// Reads a photograph with its EXIF orientation applied. Only PNG, JPEG, TIFF, BMP, WebP and GIF
/// are read, told apart by their content; grey, indexed, deep and transparent pictures are
/// accepted, and pictures of more than 8 bits per channel come back with 8. Refuses, with a
/// sentence naming the file and saying why: a file that is not one of those formats, one larger
/// than kMaxPicturePixels, one whose structure shows it is truncated or damaged (before it is
/// decoded, so that it costs no memory), one that does not decode, and one whose decoding outlasts
/// a time budget that grows with the picture's size.
LoadedPicture loadPicture(const QString& path);

/// The same for a picture held by device (open for reading, random access); name is what the
/// messages call it.
LoadedPicture loadPicture(QIODevice& device, const QString& name);

/// The file a save goes to: "png" appended to a name without an extension, others unchanged.
QString savePathFor(const QString& chosenPath);

/// Writes picture as PNG to path atomically: on failure the existing file is left untouched.
/// Returns an empty string on success, otherwise a sentence naming the file and the reason.
QString savePng(const QImage& picture, const QString& path);

} // namespace clarovi::files
