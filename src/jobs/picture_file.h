#pragma once

#include <QImage>
#include <QString>

namespace clarovi::jobs {

/// The largest picture we open, in pixels; larger ones are refused before they are decoded.
inline constexpr qint64 kMaxPicturePixels = 100'000'000;

/// A picture read from a file, or why it could not be.
struct LoadedPicture {
    QImage image;  ///< null when the file was refused
    QString error; ///< a sentence naming the file and the reason, when refused
};

/// Reads a photograph with its EXIF orientation applied: 8 or 16 bits, grey, indexed or with
/// alpha. Refuses a file that does not decode or that holds more than kMaxPicturePixels.
LoadedPicture loadPicture(const QString& path);

/// The file a save goes to: "png" appended to a name without an extension, others unchanged.
QString savePathFor(const QString& chosenPath);

/// Writes picture as PNG to path atomically: on failure the existing file is left untouched.
/// Returns an empty string on success, otherwise a sentence naming the file and the reason.
QString savePng(const QImage& picture, const QString& path);

} // namespace clarovi::jobs
