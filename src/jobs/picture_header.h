#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QSize>
#include <QString>

namespace clarovi::jobs {

/// What a picture file's own structure says about it, read without decoding its pixels: which of
/// the formats Clarovi opens it is (by its content, never its name), the size the decoder will
/// produce, and anything that shows it cannot be a sound picture of that size.
struct PictureHeader {
    /// Qt's name of the format: "png", "jpeg", "tiff", "bmp", "webp" or "gif"; empty for any
    /// other content.
    QByteArray format;
    /// The size of the decoded picture before its EXIF orientation is applied.
    QSize size;
    /// Why the file cannot be decoded as it claims, a clause to follow "it is damaged: " or to
    /// stand on its own; empty when nothing is wrong that a look at the structure finds.
    QString problem;
};

/// The largest picture Clarovi opens, in pixels.
inline constexpr qint64 kMaxPicturePixels = 100'000'000;

/// Whether a picture of this size is refused for its size.
inline bool tooLargeToOpen(QSize size) {
    return qint64(size.width()) * size.height() > kMaxPicturePixels;
}

/// The JPEG scans a photograph may hold. Progressive photographs have about ten; a file with
/// hundreds is made to keep the decoder busy, every scan a pass over the whole picture.
inline constexpr int kMaxJpegScans = 100;

/// Reads the structure of the picture in device (open for reading, random access). Walks its
/// chunks, markers, directories or blocks to the pixel data and checks that they lie inside the
/// file, and that the pixel data is large enough for the size claimed: every format's compression
/// has a largest ratio, so a few kilobytes cannot hold a complete picture of a billion pixels.
PictureHeader readPictureHeader(QIODevice& device);

} // namespace clarovi::jobs
