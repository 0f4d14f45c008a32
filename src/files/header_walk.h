#pragma once

// What the readers of each format's structure share: the limits they check against, the
// sentences they refuse with, and the walk that gathers what the decoder is shown.
#include "file_structure.h"
#include "picture_header.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <iterator>
#include <optional>
#include <vector>

namespace clarovi::files::header {

inline constexpr QSize kNoSize;

// The most bytes of pixels one byte of compressed data can stand for, per compression. Deflate
// emits at most 258 bytes per 2-bit code; LZW with codes up to 12 bits at most 4096 values per
// 1.5 bytes; PackBits 128 bytes per 2; baseline and progressive JPEG spend at least one bit per
// 8 x 8 block and component, and subsampled chroma blocks cover 16 x 16 pixels.
inline constexpr double kDeflateRatio = 1032.0;
inline constexpr double kLzwRatio = 2731.0;
inline constexpr double kPackBitsRatio = 64.0;
inline constexpr double kJpegRatio = 2048.0;
inline constexpr double kRleRatio = 128.0; // BMP run-length: 255 pixels per 2 bytes
// Headers, tables and rounding that a small picture's data may save on.
inline constexpr double kSlack = 4096.0;

// The other way round, the most data a picture can need. No sound encoder makes its data larger
// than twice the pixels' own bytes (deflate and PackBits add under 1 %, LZW's 12-bit codes at most
// half), nor a JPEG block larger than 1 KiB (64 coefficients of at most 26 bits, every byte
// stuffed); a megabyte more leaves room for headers and for small pictures.
inline constexpr double kMostExpansion = 2.0;
inline constexpr double kMostJpegBlockBytes = 1024.0;
inline constexpr double kMostSlack = 1 << 20;
// Chunks, segments or blocks of any kind a file may hold: photographs have a few dozen, a PNG of
// 100 megapixels written in 1 KiB pieces a few hundred thousand.
inline constexpr qint64 kMostEntries = 1'000'000;
// What a GIF may hold in extensions before its picture (comments, application data).
inline constexpr qint64 kMostGifExtensionBytes = 16 << 20;
// An ICC profile in JPEG is numbered in at most 255 segments.
inline constexpr int kMostIccSegments = 255;

// What a skip over data returns instead of a position: the file ended, or the data ran past what
// the picture can need.
inline constexpr qint64 kEndOfFile = -1;
inline constexpr qint64 kTooMuch = -2;

inline PictureHeader damaged(const char* format, const QString& why) {
    return {format, kNoSize, why, 1, {}, {}};
}

inline QString truncated() {
    return QStringLiteral("the file is truncated or damaged: it ends inside the picture");
}

inline QString tooManyEntries(const char* what) {
    return QStringLiteral("it holds more than %1 %2: it is damaged or made to stall the decoder")
        .arg(kMostEntries)
        .arg(QLatin1String(what));
}

inline QString tooMuchData(qint64 bytes, QSize size) {
    return QStringLiteral("it holds more picture data (%1 bytes or more) than %2 \u00d7 %3 pixels "
                          "can need: it is damaged or made to stall the decoder")
        .arg(bytes)
        .arg(size.width())
        .arg(size.height());
}

/// The most bytes of data a picture of rawBytes of pixels can need.
inline double mostData(double rawBytes) {
    return rawBytes * kMostExpansion + kMostSlack;
}

/// The problem when the data cannot hold that many pixels of rawBytes at the given ratio, or none.
inline std::optional<QString> tooLittleData(QSize size, double dataBytes, double rawBytes,
                                            double ratio) {
    if (dataBytes * ratio + kSlack >= rawBytes)
        return std::nullopt;
    return QStringLiteral("the file is truncated or damaged: %1 bytes of picture data cannot hold "
                          "%2 \u00d7 %3 pixels")
        .arg(qint64(dataBytes))
        .arg(size.width())
        .arg(size.height());
}

/// A size from header fields, or an empty one when they do not fit a QSize.
inline QSize sizeOf(qint64 width, qint64 height) {
    if (width <= 0 || height <= 0 || width > INT_MAX || height > INT_MAX)
        return {};
    return QSize(int(width), int(height));
}

/// What a format's reader gathers as it walks the file: the pieces the decoder is shown (adjacent
/// ones joined), the metadata's places and the orientation.
class Walk {
  public:
    explicit Walk(const char* format) : m_header{format, kNoSize, {}, 1, {}, {}} {}

    void show(qint64 offset, qint64 size) {
        std::vector<FilePiece>& pieces = m_header.picture;
        if (size <= 0)
            return;
        if (!pieces.empty() && pieces.back().replacement.isEmpty() &&
            pieces.back().offset + pieces.back().size == offset)
            pieces.back().size += size;
        else
            pieces.push_back({offset, size, {}});
    }
    void showInstead(const QByteArray& bytes) {
        m_header.picture.push_back({0, bytes.size(), bytes});
    }
    void keep(MetadataKind kind, qint64 offset, qint64 size, bool deflated = false,
              bool rawProfile = false) {
        if (size > 0)
            m_header.metadata.push_back({kind, offset, size, deflated, rawProfile});
    }
    bool has(MetadataKind kind) const {
        return std::any_of(m_header.metadata.begin(), m_header.metadata.end(),
                           [kind](const MetadataBlock& block) { return block.kind == kind; });
    }
    /// Keeps the first EXIF block and the orientation in it; an "Exif\0\0" prefix, which some
    /// writers put in PNG and WebP files too, is passed over.
    void keepExif(const Fields& file, qint64 offset, qint64 size) {
        if (has(MetadataKind::Exif))
            return;
        if (file.at(offset, 6) == QByteArray("Exif\0\0", 6)) {
            offset += 6;
            size -= 6;
        }
        keep(MetadataKind::Exif, offset, size);
        m_header.orientation = exifOrientation(
            Fields(file.device(), file.start() + offset, std::max<qint64>(size, 0)));
    }
    /// Counts an entry walked; false once there are too many.
    bool count() { return ++m_entries <= kMostEntries; }

    PictureHeader done(QSize size) {
        m_header.size = size;
        return std::move(m_header);
    }
    PictureHeader& header() { return m_header; }

  private:
    PictureHeader m_header;
    qint64 m_entries = 0;
};

PictureHeader readPng(const Fields& file);
PictureHeader readJpeg(const Fields& file);
/// start: the file's first bytes, at least 8.
PictureHeader readTiff(const Fields& file, const QByteArray& start);
PictureHeader readBmp(const Fields& file);
PictureHeader readGif(const Fields& file);
PictureHeader readWebp(const Fields& file);

} // namespace clarovi::files::header
