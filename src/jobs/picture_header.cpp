#include "picture_header.h"

#include <QtEndian>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

namespace clarovi::jobs {

namespace {

constexpr QSize kNoSize;

// The most bytes of pixels one byte of compressed data can stand for, per compression. Deflate
// emits at most 258 bytes per 2-bit code; LZW with codes up to 12 bits at most 4096 values per
// 1.5 bytes; PackBits 128 bytes per 2; baseline and progressive JPEG spend at least one bit per
// 8 x 8 block and component, and subsampled chroma blocks cover 16 x 16 pixels.
constexpr double kDeflateRatio = 1032.0;
constexpr double kLzwRatio = 2731.0;
constexpr double kPackBitsRatio = 64.0;
constexpr double kJpegRatio = 2048.0;
constexpr double kRleRatio = 128.0; // BMP run-length: 255 pixels per 2 bytes
// Headers, tables and rounding that a small picture's data may save on.
constexpr double kSlack = 4096.0;

/// Reads fields anywhere in a random-access device; a field past the end reads as missing. Reads
/// go through a window of the file, so that walking a picture's many small chunks reads it in
/// large pieces from front to back, as a disk serves best, instead of a few bytes at a time.
class Fields {
  public:
    explicit Fields(QIODevice& device) : m_device(device), m_size(device.size()) {}
    qint64 size() const { return m_size; }

    /// count bytes at pos, or an empty array when they are not all inside the file.
    QByteArray at(qint64 pos, qint64 count) const {
        if (count <= 0 || !contains(pos, count))
            return {};
        if (pos < m_windowStart || pos + count > m_windowStart + m_window.size()) {
            if (!m_device.seek(pos))
                return {};
            m_window = m_device.read(std::max(count, kWindow));
            m_windowStart = pos;
            if (m_window.size() < count)
                return {};
        }
        return m_window.mid(pos - m_windowStart, count);
    }
    bool contains(qint64 pos, qint64 count) const {
        return pos >= 0 && count >= 0 && pos <= m_size - count;
    }

  private:
    static constexpr qint64 kWindow = 1 << 20;
    QIODevice& m_device;
    qint64 m_size;
    mutable QByteArray m_window;
    mutable qint64 m_windowStart = 0;
};

// Fields of a block read from the file; a field beyond the block reads as 0, which the callers'
// checks of the block's size rule out anyway.
template <typename T, bool bigEndian> T field(const QByteArray& b, int at) {
    if (at < 0 || at + qsizetype(sizeof(T)) > b.size())
        return 0;
    return bigEndian ? qFromBigEndian<T>(b.constData() + at)
                     : qFromLittleEndian<T>(b.constData() + at);
}
quint16 be16(const QByteArray& b, int at) {
    return field<quint16, true>(b, at);
}
quint32 be32(const QByteArray& b, int at) {
    return field<quint32, true>(b, at);
}
quint16 le16(const QByteArray& b, int at) {
    return field<quint16, false>(b, at);
}
quint32 le32(const QByteArray& b, int at) {
    return field<quint32, false>(b, at);
}
quint32 le24(const QByteArray& b, int at) {
    return quint32(le16(b, at)) | quint32(field<quint8, false>(b, at + 2)) << 16;
}

PictureHeader damaged(const char* format, const QString& why) {
    return {format, kNoSize, why};
}

QString truncated() {
    return QStringLiteral("the file is truncated or damaged: it ends inside the picture");
}

/// The size, or a problem when the data cannot hold that many pixels of rawBytes at the given
/// ratio.
PictureHeader sized(const char* format, QSize size, double dataBytes, double rawBytes,
                    double ratio) {
    if (dataBytes * ratio + kSlack < rawBytes)
        return damaged(format,
                       QStringLiteral("the file is truncated or damaged: %1 bytes of picture data "
                                      "cannot hold %2 \u00d7 %3 pixels")
                           .arg(qint64(dataBytes))
                           .arg(size.width())
                           .arg(size.height()));
    return {format, size, {}};
}

/// A size from header fields, or an empty one when they do not fit a QSize.
QSize sizeOf(qint64 width, qint64 height) {
    if (width <= 0 || height <= 0 || width > INT_MAX || height > INT_MAX)
        return {};
    return QSize(int(width), int(height));
}

int pngBitsPerPixel(int depth, int colourType) {
    static const std::pair<int, int> channels[] = {{0, 1}, {2, 3}, {3, 1}, {4, 2}, {6, 4}};
    for (const auto& [type, count] : channels)
        if (type == colourType)
            return depth * count;
    return 0;
}

/// A chunk's type as it reads, or in hexadecimal when it is not four letters.
QString chunkName(const QByteArray& type) {
    const bool letters = std::all_of(type.begin(), type.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    });
    return letters ? QString::fromLatin1(type) : QString::fromLatin1("0x" + type.toHex());
}

PictureHeader readPng(const Fields& file) {
    qint64 pos = 8;
    qint64 idat = 0;
    QSize size;
    int bitsPerPixel = 0;
    for (bool first = true;; first = false) {
        const QByteArray head = file.at(pos, 8);
        if (head.isEmpty())
            return damaged("png", truncated());
        const qint64 length = be32(head, 0);
        const QByteArray type = head.mid(4, 4);
        if (length > 0x7fffffff || !file.contains(pos + 8, length + 4))
            return damaged("png", QStringLiteral("the file is truncated or damaged: its %1 chunk "
                                                 "claims %2 bytes")
                                      .arg(chunkName(type), QString::number(length)));
        if (first) {
            const QByteArray ihdr = file.at(pos + 8, 13);
            if (type != "IHDR" || length != 13 || ihdr.isEmpty())
                return damaged("png", QStringLiteral("it does not begin with a PNG header"));
            size = sizeOf(be32(ihdr, 0), be32(ihdr, 4));
            const int depth = quint8(ihdr[8]);
            if (depth == 1 || depth == 2 || depth == 4 || depth == 8 || depth == 16)
                bitsPerPixel = pngBitsPerPixel(depth, quint8(ihdr[9]));
            if (size.isEmpty() || bitsPerPixel == 0)
                return damaged("png", QStringLiteral("its PNG header is damaged"));
            if (tooLargeToOpen(size))
                return {"png", size, {}};
        } else if (type == "IDAT") {
            idat += length;
        } else if (type == "IEND") {
            break;
        }
        pos += 12 + length;
    }
    if (idat == 0)
        return damaged("png", QStringLiteral("it holds no picture data"));
    const double rowBytes = std::ceil(double(size.width()) * bitsPerPixel / 8.0) + 1.0;
    return sized("png", size, double(idat), rowBytes * size.height(), kDeflateRatio);
}

struct JpegFrame {
    int width = 0;
    int height = 0;
    bool arithmetic = false;
    std::vector<std::pair<int, int>> sampling; // horizontal, vertical factor per component
};

bool isStartOfFrame(int marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

/// Entropy-coded blocks of the frame: its data holds at least one bit for each.
double jpegBlocks(const JpegFrame& frame) {
    int hMax = 1, vMax = 1;
    for (const auto& [h, v] : frame.sampling) {
        hMax = std::max(hMax, h);
        vMax = std::max(vMax, v);
    }
    double blocks = 0;
    for (const auto& [h, v] : frame.sampling) {
        const double columns = std::ceil(std::ceil(double(frame.width) * h / hMax) / 8.0);
        const double rows = std::ceil(std::ceil(double(frame.height) * v / vMax) / 8.0);
        blocks += columns * rows;
    }
    return blocks;
}

/// Skips the entropy-coded data that follows a scan header at pos, counting its bytes; returns
/// where the next marker's 0xFF is, or -1 when the file ends first.
qint64 skipEntropyData(QIODevice& device, qint64 pos, qint64& dataBytes) {
    constexpr qint64 kChunk = 1 << 16;
    const qint64 start = pos;
    bool pendingFF = false;
    if (!device.seek(pos))
        return -1;
    for (;;) {
        const QByteArray chunk = device.read(kChunk);
        if (chunk.isEmpty())
            return -1;
        const char* data = chunk.constData();
        for (qsizetype i = 0; i < chunk.size(); ++i) {
            if (!pendingFF) {
                const void* ff = std::memchr(data + i, 0xFF, size_t(chunk.size() - i));
                if (!ff)
                    break;
                i = static_cast<const char*>(ff) - data;
                pendingFF = true;
                continue;
            }
            const int byte = quint8(data[i]);
            // 0xFF00 is a stuffed byte, 0xFFD0 to 0xFFD7 restart markers, 0xFFFF fill.
            if (byte == 0x00 || (byte >= 0xD0 && byte <= 0xD7)) {
                pendingFF = false;
            } else if (byte != 0xFF) {
                const qint64 marker = pos + i - 1;
                dataBytes += marker - start;
                return marker;
            }
        }
        pos += chunk.size();
    }
}

PictureHeader readJpeg(const Fields& file, QIODevice& device) {
    JpegFrame frame;
    int scans = 0;
    qint64 dataBytes = 0;
    qint64 pos = 2;
    for (;;) {
        const QByteArray prefix = file.at(pos, 2);
        if (prefix.isEmpty())
            break; // no end marker: the decoder copes, and the data check below still holds
        if (quint8(prefix[0]) != 0xFF) { // stray bytes between segments
            qint64 ignored = 0;
            pos = skipEntropyData(device, pos, ignored);
            if (pos < 0)
                break;
            continue;
        }
        const int marker = quint8(prefix[1]);
        if (marker == 0xFF) {
            ++pos;
            continue;
        }
        pos += 2;
        if (marker == 0xD9)
            break;
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8))
            continue;
        const QByteArray lengthField = file.at(pos, 2);
        const qint64 length = lengthField.isEmpty() ? 0 : be16(lengthField, 0);
        if (length < 2 || !file.contains(pos, length))
            return damaged("jpeg", truncated());
        if (isStartOfFrame(marker)) {
            const QByteArray sof = file.at(pos + 2, length - 2);
            const int components = sof.size() >= 6 ? quint8(sof[5]) : 0;
            if (frame.width != 0 || components == 0 || sof.size() < 6 + 3 * components)
                return damaged("jpeg", QStringLiteral("its JPEG frame header is damaged"));
            frame.height = be16(sof, 1);
            frame.width = be16(sof, 3);
            frame.arithmetic = marker >= 0xC9;
            for (int c = 0; c < components; ++c) {
                const int factors = quint8(sof[7 + 3 * c]);
                frame.sampling.emplace_back(std::max(1, factors >> 4), std::max(1, factors & 15));
            }
            if (frame.width == 0 || frame.height == 0)
                return damaged("jpeg", QStringLiteral("its JPEG frame header gives no size"));
            if (tooLargeToOpen(QSize(frame.width, frame.height)))
                return {"jpeg", QSize(frame.width, frame.height), {}};
        }
        pos += length;
        if (marker == 0xDA) {
            if (++scans > kMaxJpegScans)
                return damaged("jpeg", QStringLiteral("it holds more than %1 JPEG scans where "
                                                      "photographs hold a few: it is damaged or "
                                                      "made to stall the decoder")
                                           .arg(kMaxJpegScans));
            pos = skipEntropyData(device, pos, dataBytes);
            if (pos < 0)
                break;
        }
    }
    if (frame.width == 0)
        return damaged("jpeg", QStringLiteral("it holds no JPEG frame"));
    if (scans == 0)
        return damaged("jpeg", QStringLiteral("it holds no picture data"));
    const QSize size(frame.width, frame.height);
    if (frame.arithmetic) // arithmetic coding can spend less than a bit on a block
        return {"jpeg", size, {}};
    // At least one bit per block: a byte of data for every 8 blocks.
    return sized("jpeg", size, double(dataBytes), jpegBlocks(frame), 8.0);
}

struct TiffField {
    int type = 0;
    qint64 count = 0;
    qint64 valueAt = 0; ///< where the values are: in the entry, or where it points
};

int tiffTypeSize(int type) {
    switch (type) {
    case 1:
    case 2:
    case 6:
    case 7:
        return 1;
    case 3:
    case 8:
        return 2;
    case 4:
    case 9:
    case 11:
    case 13:
        return 4;
    case 5:
    case 10:
    case 12:
        return 8;
    default:
        return 0;
    }
}

class TiffDirectory {
  public:
    TiffDirectory(const Fields& file, bool bigEndian) : m_file(file), m_big(bigEndian) {}

    /// Reads the directory at offset; false when it does not lie inside the file.
    bool read(qint64 offset) {
        const QByteArray countField = m_file.at(offset, 2);
        if (countField.isEmpty())
            return false;
        const int count = u16(countField, 0);
        const QByteArray entries = m_file.at(offset + 2, qint64(count) * 12);
        if (count == 0 || entries.isEmpty())
            return false;
        for (int e = 0; e < count; ++e) {
            const int tag = u16(entries, 12 * e);
            TiffField field{u16(entries, 12 * e + 2), u32(entries, 12 * e + 4), 0};
            const qint64 bytes = field.count * tiffTypeSize(field.type);
            field.valueAt = bytes <= 4 ? offset + 2 + 12 * e + 8 : u32(entries, 12 * e + 8);
            if (tiffTypeSize(field.type) == 0 || !m_file.contains(field.valueAt, bytes))
                return false;
            m_fields.emplace_back(tag, field);
        }
        return true;
    }

    bool has(int tag) const { return find(tag) != nullptr; }

    /// The first values of a SHORT or LONG field, at most limit of them; empty when missing.
    std::vector<qint64> values(int tag, qint64 limit) const {
        const TiffField* field = find(tag);
        if (!field || (field->type != 3 && field->type != 4))
            return {};
        const int size = tiffTypeSize(field->type);
        const qint64 count = std::min(field->count, limit);
        const QByteArray bytes = m_file.at(field->valueAt, count * size);
        std::vector<qint64> result;
        for (qint64 k = 0; k < count && !bytes.isEmpty(); ++k)
            result.push_back(size == 2 ? u16(bytes, int(2 * k)) : u32(bytes, int(4 * k)));
        return result;
    }
    qint64 value(int tag, qint64 fallback) const {
        const std::vector<qint64> v = values(tag, 1 << 16);
        return v.empty() ? fallback : *std::max_element(v.begin(), v.end());
    }

  private:
    const TiffField* find(int tag) const {
        for (const auto& [t, field] : m_fields)
            if (t == tag)
                return &field;
        return nullptr;
    }
    int u16(const QByteArray& b, int at) const { return m_big ? be16(b, at) : le16(b, at); }
    qint64 u32(const QByteArray& b, int at) const { return m_big ? be32(b, at) : le32(b, at); }

    const Fields& m_file;
    bool m_big;
    std::vector<std::pair<int, TiffField>> m_fields;
};

/// The most bytes of samples one byte of data can stand for, or 0 for a compression we refuse.
double tiffRatio(qint64 compression) {
    switch (compression) {
    case 1:
        return 1.0;
    case 5:
        return kLzwRatio;
    case 7:
        return kJpegRatio;
    case 8:
    case 32946:
        return kDeflateRatio;
    case 32773:
        return kPackBitsRatio;
    default:
        return 0.0;
    }
}

PictureHeader readTiff(const Fields& file, const QByteArray& start) {
    const bool big = start.startsWith("MM");
    if ((big ? be16(start, 2) : le16(start, 2)) == 43)
        return damaged("tiff", QStringLiteral("it is a BigTIFF file, which Clarovi does not open; "
                                              "save it as a standard TIFF"));
    TiffDirectory ifd(file, big);
    if (!ifd.read(big ? be32(start, 4) : le32(start, 4)))
        return damaged("tiff", QStringLiteral("its TIFF directory is damaged"));
    const QSize size = sizeOf(ifd.value(256, 0), ifd.value(257, 0));
    if (size.isEmpty())
        return damaged("tiff", QStringLiteral("its TIFF directory gives no size"));
    if (tooLargeToOpen(size))
        return {"tiff", size, {}};
    const qint64 compression = ifd.value(259, 1);
    const double ratio = tiffRatio(compression);
    if (ratio == 0.0)
        return damaged("tiff", QStringLiteral("it uses TIFF compression %1, which Clarovi does not "
                                              "read; save it uncompressed or with LZW, Deflate, "
                                              "PackBits or JPEG")
                                   .arg(compression));
    const qint64 samples = std::clamp<qint64>(ifd.value(277, 1), 1, 16);
    const qint64 bits = std::clamp<qint64>(ifd.value(258, 1), 1, 64);
    const qint64 planes = ifd.value(284, 1) == 2 ? samples : 1;

    const bool tiled = ifd.has(322) || ifd.has(323);
    double pieceWidth = size.width(), pieceHeight = 0, pieces = 0;
    if (tiled) {
        const qint64 tileWidth = ifd.value(322, 0), tileHeight = ifd.value(323, 0);
        if (tileWidth <= 0 || tileHeight <= 0 || tileWidth * tileHeight > (qint64(1) << 26))
            return damaged("tiff", QStringLiteral("its TIFF tiles of %1 \u00d7 %2 pixels are "
                                                  "damaged")
                                       .arg(tileWidth)
                                       .arg(tileHeight));
        pieceWidth = double(tileWidth);
        pieceHeight = double(tileHeight);
        pieces = std::ceil(size.width() / pieceWidth) * std::ceil(size.height() / pieceHeight);
    } else {
        pieceHeight = double(std::min<qint64>(ifd.value(278, size.height()), size.height()));
        if (pieceHeight <= 0)
            return damaged("tiff", QStringLiteral("its TIFF strips are damaged"));
        pieces = std::ceil(size.height() / pieceHeight);
    }
    pieces *= double(planes);
    const qint64 expected = qint64(pieces);
    const std::vector<qint64> offsets = ifd.values(tiled ? 324 : 273, expected);
    const std::vector<qint64> counts = ifd.values(tiled ? 325 : 279, expected);
    if (qint64(offsets.size()) != expected || qint64(counts.size()) != expected)
        return damaged("tiff", QStringLiteral("its TIFF directory does not locate every part of "
                                              "the picture"));
    double data = 0;
    for (qint64 k = 0; k < expected; ++k) {
        if (!file.contains(offsets[size_t(k)], counts[size_t(k)]))
            return damaged("tiff", truncated());
        data += double(counts[size_t(k)]);
    }
    // Tiles are stored whole; strips only as far as the picture goes.
    const double bitsPerSample = double(samples / planes * bits);
    const double rawBytes =
        tiled ? std::ceil(pieceWidth * bitsPerSample / 8.0) * pieceHeight * pieces
              : std::ceil(size.width() * bitsPerSample / 8.0) * size.height() * double(planes);
    return sized("tiff", size, data, rawBytes, ratio);
}

PictureHeader readBmp(const Fields& file) {
    QByteArray head = file.at(0, 26);
    if (head.isEmpty())
        return damaged("bmp", truncated());
    const qint64 dataStart = le32(head, 10);
    const quint32 infoSize = le32(head, 14);
    if (infoSize >= 40)
        head = file.at(0, 34);
    if (head.isEmpty())
        return damaged("bmp", truncated());
    qint64 width = 0, height = 0;
    int bitsPerPixel = 0;
    quint32 compression = 0;
    if (infoSize == 12) {
        width = le16(head, 18);
        height = le16(head, 20);
        bitsPerPixel = le16(head, 24);
    } else if (infoSize >= 40) {
        width = qint32(le32(head, 18));
        height = qint32(le32(head, 22));
        bitsPerPixel = le16(head, 28);
        compression = le32(head, 30);
    } else {
        return damaged("bmp", QStringLiteral("its BMP header is damaged"));
    }
    height = std::abs(height); // negative heights store the rows top down
    const QSize size = sizeOf(width, height);
    const bool knownDepth = bitsPerPixel == 1 || bitsPerPixel == 4 || bitsPerPixel == 8 ||
                            bitsPerPixel == 16 || bitsPerPixel == 24 || bitsPerPixel == 32;
    if (size.isEmpty() || !knownDepth || !file.contains(dataStart, 1))
        return damaged("bmp", QStringLiteral("its BMP header is damaged"));
    if (tooLargeToOpen(size))
        return {"bmp", size, {}};
    const double data = double(file.size() - dataStart);
    const double stride = std::ceil(double(width) * bitsPerPixel / 32.0) * 4.0;
    switch (compression) {
    case 0: // the last row may go without its padding
    case 3:
    case 6:
        return sized("bmp", size, data + stride, stride * double(height), 1.0);
    case 1: // run-length coded
    case 2:
        return sized("bmp", size, data, double(width) * double(height), kRleRatio);
    default:
        return damaged("bmp", QStringLiteral("it is a BMP with compression %1, which Clarovi does "
                                             "not read")
                                  .arg(compression));
    }
}

/// Skips the data sub-blocks at pos; returns the position after them (-1 if the file ends first)
/// and adds their bytes to dataBytes.
qint64 skipSubBlocks(const Fields& file, qint64 pos, qint64& dataBytes) {
    for (;;) {
        const QByteArray length = file.at(pos, 1);
        if (length.isEmpty())
            return -1;
        const int count = quint8(length[0]);
        ++pos;
        if (count == 0)
            return pos;
        dataBytes += count;
        pos += count;
    }
}

PictureHeader readGif(const Fields& file) {
    const QByteArray screen = file.at(6, 7);
    if (screen.isEmpty())
        return damaged("gif", truncated());
    int width = le16(screen, 0), height = le16(screen, 2);
    const int flags = quint8(screen[4]);
    qint64 pos = 13 + ((flags & 0x80) ? 3 * (2 << (flags & 7)) : 0);
    for (;;) {
        const QByteArray introducer = file.at(pos, 1);
        if (introducer.isEmpty())
            return damaged("gif", truncated());
        qint64 ignored = 0;
        switch (quint8(introducer[0])) {
        case 0x21: // an extension: its label, then sub-blocks
            pos = skipSubBlocks(file, pos + 2, ignored);
            if (pos < 0)
                return damaged("gif", truncated());
            continue;
        case 0x2C: {
            const QByteArray image = file.at(pos + 1, 9);
            if (image.isEmpty())
                return damaged("gif", truncated());
            const int frameWidth = le16(image, 4), frameHeight = le16(image, 6);
            if (frameWidth == 0 || frameHeight == 0)
                return damaged("gif", QStringLiteral("its first GIF frame has no size"));
            // The decoder makes a picture of the screen, grown to hold the first frame.
            width = std::max(width, le16(image, 0) + frameWidth);
            height = std::max(height, le16(image, 2) + frameHeight);
            if (tooLargeToOpen(QSize(width, height)))
                return {"gif", QSize(width, height), {}};
            const int frameFlags = quint8(image[8]);
            pos += 10 + ((frameFlags & 0x80) ? 3 * (2 << (frameFlags & 7)) : 0) + 1;
            qint64 data = 0;
            if (skipSubBlocks(file, pos, data) < 0)
                return damaged("gif", truncated());
            return sized("gif", QSize(width, height), double(data),
                         double(frameWidth) * frameHeight, kLzwRatio);
        }
        default:
            return damaged("gif", QStringLiteral("it holds no GIF picture"));
        }
    }
}

/// The size in a VP8 or VP8L bitstream's header; empty when it is damaged.
QSize webpFrameSize(const Fields& file, const QByteArray& fourcc, qint64 at) {
    if (fourcc == "VP8 ") {
        const QByteArray header = file.at(at, 10);
        if (header.isEmpty() || (quint8(header[0]) & 1) != 0 || header.mid(3, 3) != "\x9d\x01\x2a")
            return {};
        return sizeOf(le16(header, 6) & 0x3fff, le16(header, 8) & 0x3fff);
    }
    const QByteArray header = file.at(at, 5);
    if (header.isEmpty() || quint8(header[0]) != 0x2f)
        return {};
    const quint32 bits = le32(header, 1);
    return sizeOf((bits & 0x3fff) + 1, ((bits >> 14) & 0x3fff) + 1);
}

PictureHeader readWebp(const Fields& file) {
    QSize canvas;
    for (qint64 pos = 12;;) {
        const QByteArray chunk = file.at(pos, 8);
        if (chunk.isEmpty())
            return damaged("webp", truncated());
        const QByteArray fourcc = chunk.left(4);
        const qint64 length = le32(chunk, 4);
        if (!file.contains(pos + 8, length))
            return damaged("webp", truncated());
        if (fourcc == "VP8X") {
            const QByteArray extended = file.at(pos + 8, 10);
            if (extended.isEmpty())
                return damaged("webp", truncated());
            canvas = sizeOf(qint64(le24(extended, 4)) + 1, qint64(le24(extended, 7)) + 1);
        } else if (fourcc == "VP8 " || fourcc == "VP8L" || fourcc == "ANMF") {
            // An animation's frames are drawn on the canvas, which is what the decoder makes.
            const QSize frame = fourcc == "ANMF" ? canvas : webpFrameSize(file, fourcc, pos + 8);
            if (frame.isEmpty() || (canvas.isValid() && canvas.expandedTo(frame) != canvas))
                return damaged("webp", QStringLiteral("its WebP frame header is damaged"));
            return {"webp", canvas.isValid() ? canvas : frame, {}};
        }
        pos += 8 + length + (length & 1);
    }
}

QByteArray formatOf(const QByteArray& start) {
    if (start.startsWith("\x89PNG\r\n\x1a\n"))
        return "png";
    if (start.startsWith("\xff\xd8\xff"))
        return "jpeg";
    if (start.startsWith("II*\0") || start.startsWith(QByteArray("MM\0*", 4)) ||
        start.startsWith("II+\0") || start.startsWith(QByteArray("MM\0+", 4)))
        return "tiff";
    if (start.startsWith("BM"))
        return "bmp";
    if (start.startsWith("GIF87a") || start.startsWith("GIF89a"))
        return "gif";
    if (start.startsWith("RIFF") && start.mid(8, 4) == "WEBP")
        return "webp";
    return {};
}

} // namespace

PictureHeader readPictureHeader(QIODevice& device) {
    const Fields file(device);
    const QByteArray start = file.at(0, std::min<qint64>(file.size(), 16));
    const QByteArray format = formatOf(start);
    if (format == "png")
        return readPng(file);
    if (format == "jpeg")
        return readJpeg(file, device);
    if (format == "tiff")
        return start.size() >= 8 ? readTiff(file, start) : damaged("tiff", truncated());
    if (format == "bmp")
        return readBmp(file);
    if (format == "gif")
        return readGif(file);
    if (format == "webp")
        return readWebp(file);
    return {};
}

} // namespace clarovi::jobs
