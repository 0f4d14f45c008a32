#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QSize>
#include <QString>

#include <vector>

namespace clarovi::files {

/// A stretch of the file that the decoder is shown, or bytes shown in its place.
struct FilePiece {
    qint64 offset = 0; ///< where the stretch starts in the file
    qint64 size = 0;
    QByteArray replacement; ///< when not empty, shown instead of the file's bytes (size of them)
};

/// The kinds of metadata a photograph carries into its export.
enum class MetadataKind {
    Exif,      ///< a TIFF structure: IFD0 and the directories it points to
    Xmp,       ///< an XMP packet
    Iptc,      ///< IPTC records
    Photoshop, ///< Photoshop image resources, which may hold IPTC records
    Icc,       ///< an ICC colour profile, or a piece of one
};

/// Where one kind of metadata lies in the file. A profile split over several JPEG segments or
/// image resources over several segments are pieces to join in the order found.
struct MetadataBlock {
    MetadataKind kind = MetadataKind::Exif;
    qint64 offset = 0;
    qint64 size = 0;
    bool deflated = false;   ///< zlib-compressed, as PNG may store profiles and XMP
    bool rawProfile = false; ///< in hexadecimal text, as PNG's "Raw profile type" chunks hold it
};

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
    /// The EXIF orientation of the picture, 1 to 8 (1 when the file has none). The decoder does
    /// not apply it: the orientation is read here once for every format.
    int orientation = 1;
    /// What the decoder is shown, in order: the picture's structure and pixel data, without the
    /// metadata and text it does not need and without anything after the picture.
    std::vector<FilePiece> picture;
    /// Where the EXIF, XMP, IPTC and ICC data are.
    std::vector<MetadataBlock> metadata;
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
/// file, and that the pixel data is neither too small for the size claimed (every format's
/// compression has a largest ratio, so a few kilobytes cannot hold a complete picture of a billion
/// pixels) nor larger than the most a picture of that size can need. It reads no more of the file
/// than the picture can need, so that a file of gigabytes that claims a small picture is refused
/// at once.
PictureHeader readPictureHeader(QIODevice& device);

} // namespace clarovi::files
