#include "picture_header.h"

#include "file_structure.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <iterator>
#include <optional>
#include <vector>

namespace clarovi::files {

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

// The other way round, the most data a picture can need. No sound encoder makes its data larger
// than twice the pixels' own bytes (deflate and PackBits add under 1 %, LZW's 12-bit codes at most
// half), nor a JPEG block larger than 1 KiB (64 coefficients of at most 26 bits, every byte
// stuffed); a megabyte more leaves room for headers and for small pictures.
constexpr double kMostExpansion = 2.0;
constexpr double kMostJpegBlockBytes = 1024.0;
constexpr double kMostSlack = 1 << 20;
// Chunks, segments or blocks of any kind a file may hold: photographs have a few dozen, a PNG of
// 100 megapixels written in 1 KiB pieces a few hundred thousand.
constexpr qint64 kMostEntries = 1'000'000;
// What a GIF may hold in extensions before its picture (comments, application data).
constexpr qint64 kMostGifExtensionBytes = 16 << 20;
// An ICC profile in JPEG is numbered in at most 255 segments.
constexpr int kMostIccSegments = 255;

PictureHeader damaged(const char* format, const QString& why) {
    return {format, kNoSize, why, 1, {}, {}};
}

QString truncated() {
    return QStringLiteral("the file is truncated or damaged: it ends inside the picture");
}

QString tooManyEntries(const char* what) {
    return QStringLiteral("it holds more than %1 %2: it is damaged or made to stall the decoder")
        .arg(kMostEntries)
        .arg(QLatin1String(what));
}

QString tooMuchData(qint64 bytes, QSize size) {
    return QStringLiteral("it holds more picture data (%1 bytes or more) than %2 \u00d7 %3 pixels "
                          "can need: it is damaged or made to stall the decoder")
        .arg(bytes)
        .arg(size.width())
        .arg(size.height());
}

/// The most bytes of data a picture of rawBytes of pixels can need.
double mostData(double rawBytes) {
    return rawBytes * kMostExpansion + kMostSlack;
}

/// The problem when the data cannot hold that many pixels of rawBytes at the given ratio, or none.
std::optional<QString> tooLittleData(QSize size, double dataBytes, double rawBytes, double ratio) {
    if (dataBytes * ratio + kSlack >= rawBytes)
        return std::nullopt;
    return QStringLiteral("the file is truncated or damaged: %1 bytes of picture data cannot hold "
                          "%2 \u00d7 %3 pixels")
        .arg(qint64(dataBytes))
        .arg(size.width())
        .arg(size.height());
}

/// A size from header fields, or an empty one when they do not fit a QSize.
QSize sizeOf(qint64 width, qint64 height) {
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

/// Whether the PNG decoder is shown a chunk: the critical ones (unknown critical chunks make it
/// refuse the file, as it should) and the ancillary ones that change the pixels or say what their
/// colours are short of a profile. Text, EXIF, XMP, the profile (the export's to copy as it is,
/// and megabytes of it would take the decoder's time) and unknown ancillary chunks are not its
/// business.
bool pngDecoderNeeds(const QByteArray& type) {
    static const char* const kept[] = {"tRNS", "gAMA", "cHRM", "sRGB", "sBIT", "pHYs"};
    return (type[0] >= 'A' && type[0] <= 'Z') ||
           std::any_of(std::begin(kept), std::end(kept), [&](const char* t) { return type == t; });
}

/// The zero-terminated keyword at the start of a chunk of length bytes at pos, or empty.
QByteArray pngKeyword(const Fields& file, qint64 pos, qint64 length) {
    const QByteArray start = file.at(pos, std::min<qint64>(length, 80));
    const qsizetype end = start.indexOf('\0');
    return end > 0 ? start.left(end) : QByteArray();
}

/// An iTXt chunk holding XMP: keyword, compression flag and method, language tag and translated
/// keyword (both zero-terminated), then the text.
void keepPngXmp(const Fields& file, qint64 pos, qint64 length, Walk& walk) {
    static const QByteArray keyword("XML:com.adobe.xmp");
    if (walk.has(MetadataKind::Xmp) || pngKeyword(file, pos, length) != keyword)
        return;
    const QByteArray head = file.at(pos, std::min<qint64>(length, 4096));
    const qsizetype language = keyword.size() + 3;
    const qsizetype translated = head.indexOf('\0', language) + 1;
    const qsizetype text = translated > 0 ? head.indexOf('\0', translated) + 1 : 0;
    if (text > 0 && head.size() > language)
        walk.keep(MetadataKind::Xmp, pos + text, length - text, head[keyword.size() + 1] != 0);
}

/// A tEXt or zTXt chunk holding metadata as ImageMagick and exiv2 write it into PNG files: the
/// keyword "Raw profile type " and the kind, then the data in hexadecimal text (deflated in
/// zTXt). The orientation in such EXIF data is not read (it would take decompressing it): the
/// picture is not turned by it, and the export keeps it as it was.
void keepPngRawProfile(const Fields& file, qint64 pos, qint64 length, bool deflated, Walk& walk) {
    static const std::pair<const char*, MetadataKind> profiles[] = {
        {"exif", MetadataKind::Exif},
        {"APP1", MetadataKind::Exif},
        {"xmp", MetadataKind::Xmp},
        {"iptc", MetadataKind::Photoshop}};
    const QByteArray keyword = pngKeyword(file, pos, length);
    const qint64 text = keyword.size() + 1 + (deflated ? 1 : 0);
    for (const auto& [name, kind] : profiles)
        if (keyword == QByteArray("Raw profile type ") + name && !walk.has(kind))
            walk.keep(kind, pos + text, length - text, deflated, true);
}

PictureHeader readPng(const Fields& file) {
    Walk walk("png");
    walk.show(0, 8);
    qint64 pos = 8;
    qint64 idat = 0;
    double mostIdat = 0;
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
        if (!walk.count())
            return damaged("png", tooManyEntries("PNG chunks"));
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
                return {"png", size, {}, 1, {}, {}};
            // Interlaced rows carry a filter byte per pass and row: at most seven times as many.
            const double rowBytes = std::ceil(double(size.width()) * bitsPerPixel / 8.0) + 7.0;
            mostIdat = mostData(rowBytes * size.height());
        } else if (type == "IDAT") {
            idat += length;
            if (double(idat) > mostIdat)
                return damaged("png", tooMuchData(idat, size));
        } else if (type == "eXIf") {
            walk.keepExif(file, pos + 8, length);
        } else if (type == "iTXt") {
            keepPngXmp(file, pos + 8, length, walk);
        } else if (type == "tEXt" || type == "zTXt") {
            keepPngRawProfile(file, pos + 8, length, type == "zTXt", walk);
        } else if (type == "iCCP") { // name, compression method, deflated profile
            const qint64 name = pngKeyword(file, pos + 8, length).size();
            if (name > 0)
                walk.keep(MetadataKind::Icc, pos + 8 + name + 2, length - name - 2, true);
        }
        if (pngDecoderNeeds(type))
            walk.show(pos, 12 + length);
        if (type == "IEND")
            break;
        pos += 12 + length;
    }
    if (idat == 0)
        return damaged("png", QStringLiteral("it holds no picture data"));
    const double rowBytes = std::ceil(double(size.width()) * bitsPerPixel / 8.0) + 1.0;
    if (auto problem = tooLittleData(size, double(idat), rowBytes * size.height(), kDeflateRatio))
        return damaged("png", *problem);
    return walk.done(size);
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

constexpr qint64 kEndOfFile = -1;
constexpr qint64 kTooMuch = -2;

/// Skips the entropy-coded data (or stray bytes) at start, adding the bytes passed to skipped;
/// returns where the next marker's 0xFF is, kEndOfFile when the file ends first, or kTooMuch as
/// soon as skipped passes most.
qint64 skipEntropyData(const Fields& file, qint64 start, qint64& skipped, double most) {
    constexpr qint64 kChunk = 1 << 16;
    bool pendingFF = false;
    for (qint64 pos = start;;) {
        if (double(skipped + pos - start) > most) {
            skipped += pos - start;
            return kTooMuch;
        }
        const QByteArray chunk = file.at(pos, std::min(kChunk, file.size() - pos));
        if (chunk.isEmpty())
            return kEndOfFile;
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
                skipped += marker - start;
                return marker;
            }
        }
        pos += chunk.size();
    }
}

/// An APPn segment's signature: what it holds.
enum class JpegApp { Jfif, Exif, Xmp, Icc, Photoshop, Adobe, Other };
constexpr size_t kJpegApps = size_t(JpegApp::Other) + 1;

JpegApp jpegApp(int marker, const QByteArray& start) {
    if (marker == 0xE0 && start.startsWith("JFIF"))
        return JpegApp::Jfif;
    if (marker == 0xE1 && start.startsWith(QByteArray("Exif\0\0", 6)))
        return JpegApp::Exif;
    if (marker == 0xE1 && start.startsWith(QByteArray("http://ns.adobe.com/xap/1.0/\0", 29)))
        return JpegApp::Xmp;
    if (marker == 0xE2 && start.startsWith(QByteArray("ICC_PROFILE\0", 12)))
        return JpegApp::Icc;
    if (marker == 0xED && start.startsWith(QByteArray("Photoshop 3.0\0", 14)))
        return JpegApp::Photoshop;
    if (marker == 0xEE && start.startsWith("Adobe"))
        return JpegApp::Adobe;
    return JpegApp::Other;
}

/// An APPn or COM segment of length bytes (its length field included) at pos: its metadata kept,
/// and shown to the decoder when it needs it (JFIF, and the first Adobe segment, which says how
/// the colours are coded). The decoder is shown no EXIF, whose orientation is read here, and no
/// profile, which is the export's to copy.
void walkJpegApp(const Fields& file, int marker, qint64 pos, qint64 length, Walk& walk,
                 std::array<int, kJpegApps>& seen) {
    const JpegApp app = jpegApp(marker, file.at(pos + 2, std::min<qint64>(length - 2, 29)));
    const int count = seen[size_t(app)]++; // of this kind before it
    const bool first = count == 0;
    switch (app) {
    case JpegApp::Exif:
        walk.keepExif(file, pos + 2, length - 2);
        return;
    case JpegApp::Xmp:
        if (first)
            walk.keep(MetadataKind::Xmp, pos + 2 + 29, length - 2 - 29);
        return;
    case JpegApp::Icc: // signature, sequence number and count before each piece
        if (count < kMostIccSegments)
            walk.keep(MetadataKind::Icc, pos + 2 + 14, length - 2 - 14);
        return;
    case JpegApp::Photoshop:
        walk.keep(MetadataKind::Photoshop, pos + 2 + 14, length - 2 - 14);
        return;
    case JpegApp::Jfif:
    case JpegApp::Adobe:
        if (first)
            walk.show(pos - 2, length + 2);
        return;
    case JpegApp::Other:
        return;
    }
}

PictureHeader readJpeg(const Fields& file) {
    Walk walk("jpeg");
    walk.show(0, 2);
    JpegFrame frame;
    std::array<int, kJpegApps> seen{}; // APPn segments of each kind so far
    int scans = 0;
    qint64 dataBytes = 0; // of the scans
    qint64 skipped = 0;   // of the scans and stray bytes
    // Stray bytes between segments are allowed a megabyte before the frame says how much the
    // picture can need.
    double most = kMostSlack;
    qint64 pos = 2;
    for (;;) {
        const QByteArray prefix = file.at(pos, 2);
        if (prefix.isEmpty())
            break; // no end marker: the decoder copes, and the data check below still holds
        if (!walk.count())
            return damaged("jpeg", tooManyEntries("JPEG segments"));
        if (quint8(prefix[0]) != 0xFF) { // stray bytes between segments
            pos = skipEntropyData(file, pos, skipped, most);
            if (pos == kTooMuch)
                return damaged("jpeg", tooMuchData(skipped, QSize(frame.width, frame.height)));
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
        if (marker == 0xD9) {
            walk.show(pos - 2, 2);
            break;
        }
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8))
            continue;
        const QByteArray lengthField = file.at(pos, 2);
        const qint64 length = lengthField.isEmpty() ? 0 : be16(lengthField, 0);
        if (length < 2 || !file.contains(pos, length))
            return damaged("jpeg", truncated());
        if ((marker >= 0xE0 && marker <= 0xEF) || marker == 0xFE) {
            walkJpegApp(file, marker, pos, length, walk, seen);
            pos += length;
            continue;
        }
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
                return {"jpeg", QSize(frame.width, frame.height), {}, 1, {}, {}};
            most += jpegBlocks(frame) * kMostJpegBlockBytes;
        }
        const qint64 segment = pos - 2;
        pos += length;
        if (marker == 0xDA) {
            if (++scans > kMaxJpegScans)
                return damaged("jpeg", QStringLiteral("it holds more than %1 JPEG scans where "
                                                      "photographs hold a few: it is damaged or "
                                                      "made to stall the decoder")
                                           .arg(kMaxJpegScans));
            const qint64 end = skipEntropyData(file, pos, skipped, most);
            if (end == kTooMuch)
                return damaged("jpeg", tooMuchData(skipped, QSize(frame.width, frame.height)));
            if (end >= 0)
                dataBytes += end - pos;
            walk.show(segment, (end < 0 ? file.size() : end) - segment);
            pos = end;
            if (pos < 0)
                break;
            continue;
        }
        walk.show(segment, pos - segment);
    }
    if (frame.width == 0)
        return damaged("jpeg", QStringLiteral("it holds no JPEG frame"));
    if (scans == 0)
        return damaged("jpeg", QStringLiteral("it holds no picture data"));
    const QSize size(frame.width, frame.height);
    // At least one bit per block, a byte of data for every 8 blocks, unless arithmetic coding,
    // which can spend less than a bit on a block.
    if (!frame.arithmetic)
        if (auto problem = tooLittleData(size, double(dataBytes), jpegBlocks(frame), 8.0))
            return damaged("jpeg", *problem);
    return walk.done(size);
}

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

/// The picture's directory, with the checks a decoder needs before it trusts a field.
class TiffDirectory {
  public:
    TiffDirectory(const TiffStructure& tiff, std::vector<TiffEntry> entries)
        : m_tiff(tiff), m_entries(std::move(entries)) {}

    const std::vector<TiffEntry>& entries() const { return m_entries; }
    bool has(int tag) const { return findTiffEntry(m_entries, tag) != nullptr; }
    std::vector<qint64> values(int tag, qint64 limit) const {
        const TiffEntry* entry = findTiffEntry(m_entries, tag);
        return entry ? m_tiff.values(*entry, limit) : std::vector<qint64>();
    }
    /// The largest of the field's first values (a field of several is one per sample).
    qint64 value(int tag, qint64 fallback) const {
        const std::vector<qint64> v = values(tag, 1 << 16);
        return v.empty() ? fallback : *std::max_element(v.begin(), v.end());
    }

  private:
    const TiffStructure& m_tiff;
    std::vector<TiffEntry> m_entries;
};

// Tags of the picture's directory that hold metadata.
constexpr int kOrientationTag = 274;
constexpr int kXmpTag = 700;
constexpr int kIptcTag = 33723;
constexpr int kPhotoshopTag = 34377;
constexpr int kIccTag = 34675;

// The tags of the picture's directory that the decoder needs: the size, samples and their
// format, compression and its tables, photometric interpretation, colours, strips or tiles, and
// resolution. The decoder is not shown the others (text, EXIF, XMP, the profile and the like, and
// the orientation, which is read here for every format): it would read all their values, and a
// thousand tags pointing at one large block would keep it reading for ever.
constexpr std::array<int, 35> kDecoderTiffTags = {
    254, 256, 257, 258, 259, 262, 266, 273, 277, 278, 279, 280, 281, 282, 283, 284, 296, 317,
    318, 319, 320, 322, 323, 324, 325, 332, 338, 339, 340, 341, 347, 529, 530, 531, 532};

std::vector<TiffEntry> decoderEntries(const std::vector<TiffEntry>& entries) {
    std::vector<TiffEntry> kept;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(kept), [](const TiffEntry& e) {
        return std::find(kDecoderTiffTags.begin(), kDecoderTiffTags.end(), e.tag) !=
               kDecoderTiffTags.end();
    });
    return kept;
}

/// Why the entries the decoder is shown cannot be those of a sound file, or nothing: a type TIFF
/// does not define, values outside the file, or values that overlap to more than the file holds.
std::optional<QString> tiffDirectoryProblem(const std::vector<TiffEntry>& entries,
                                            const Fields& file) {
    double values = 0;
    for (const TiffEntry& entry : entries) {
        if (tiffTypeSize(entry.type) == 0 || !entry.inside(file))
            return QStringLiteral("its TIFF directory is damaged");
        if (entry.bytes() > 4)
            values += double(entry.bytes());
    }
    if (values > double(file.size()))
        return QStringLiteral("the values of its TIFF directory overlap to more bytes than the "
                              "file holds: it is damaged or made to stall the decoder");
    return std::nullopt;
}

/// Shows the decoder the file with its picture's directory holding only the entries it needs,
/// rewritten in place (the same bytes or fewer, the rest zeros, no next directory).
void showTiff(const Fields& file, const TiffStructure& tiff, const std::vector<TiffEntry>& all,
              Walk& walk) {
    const qint64 at = tiff.firstDirectory();
    const qint64 length = std::min(2 + 12 * qint64(all.size()) + 4, file.size() - at);
    QByteArray directory(length, '\0');
    qint64 kept = 0;
    for (size_t e = 0; e < all.size(); ++e)
        if (std::find(kDecoderTiffTags.begin(), kDecoderTiffTags.end(), all[e].tag) !=
                kDecoderTiffTags.end() &&
            2 + 12 * (kept + 1) + 4 <= length)
            directory.replace(2 + 12 * kept++, 12, file.at(at + 2 + 12 * qint64(e), 12));
    const quint16 count = quint16(kept);
    tiff.bigEndian() ? qToBigEndian(count, directory.data())
                     : qToLittleEndian(count, directory.data());
    walk.show(0, at);
    walk.showInstead(directory);
    walk.show(at + length, file.size() - at - length);
}

void keepTiffMetadata(const TiffDirectory& ifd, const Fields& file, Walk& walk) {
    walk.keep(MetadataKind::Exif, 0, file.size());
    const std::pair<int, MetadataKind> kinds[] = {{kXmpTag, MetadataKind::Xmp},
                                                  {kIptcTag, MetadataKind::Iptc},
                                                  {kPhotoshopTag, MetadataKind::Photoshop},
                                                  {kIccTag, MetadataKind::Icc}};
    for (const auto& [tag, kind] : kinds)
        if (const TiffEntry* entry = findTiffEntry(ifd.entries(), tag);
            entry && entry->inside(file))
            walk.keep(kind, entry->valueAt, entry->bytes());
    const qint64 orientation = ifd.value(kOrientationTag, 1);
    walk.header().orientation = orientation >= 1 && orientation <= 8 ? int(orientation) : 1;
}

PictureHeader readTiff(const Fields& file, const QByteArray& start) {
    const bool big = start.startsWith("MM");
    if ((big ? be16(start, 2) : le16(start, 2)) == 43)
        return damaged("tiff", QStringLiteral("it is a BigTIFF file, which Clarovi does not open; "
                                              "save it as a standard TIFF"));
    const std::optional<TiffStructure> tiff = TiffStructure::at(file);
    const auto entries = tiff ? tiff->directory(tiff->firstDirectory()) : std::nullopt;
    if (!entries || entries->empty())
        return damaged("tiff", QStringLiteral("its TIFF directory is damaged"));
    const std::vector<TiffEntry> needed = decoderEntries(*entries);
    if (auto problem = tiffDirectoryProblem(needed, file))
        return damaged("tiff", *problem);
    const TiffDirectory ifd(*tiff, needed);
    const QSize size = sizeOf(ifd.value(256, 0), ifd.value(257, 0));
    if (size.isEmpty())
        return damaged("tiff", QStringLiteral("its TIFF directory gives no size"));
    if (tooLargeToOpen(size))
        return {"tiff", size, {}, 1, {}, {}};
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
    // Tiles are stored whole; strips only as far as the picture goes.
    const double bitsPerSample = double(samples / planes * bits);
    const double pieceBytes = std::ceil(pieceWidth * bitsPerSample / 8.0) * pieceHeight;
    // A JPEG-compressed piece may take more than its samples' own bytes.
    const double mostPerPiece = compression == 7
                                    ? pieceBytes / 64.0 * kMostJpegBlockBytes + kMostSlack
                                    : mostData(pieceBytes);
    double data = 0;
    for (qint64 k = 0; k < expected; ++k) {
        if (!file.contains(offsets[size_t(k)], counts[size_t(k)]))
            return damaged("tiff", truncated());
        if (double(counts[size_t(k)]) > mostPerPiece)
            return damaged("tiff", tooMuchData(counts[size_t(k)], size));
        data += double(counts[size_t(k)]);
    }
    const double rawBytes =
        tiled ? pieceBytes * pieces
              : std::ceil(size.width() * bitsPerSample / 8.0) * size.height() * double(planes);
    if (auto problem = tooLittleData(size, data, rawBytes, ratio))
        return damaged("tiff", *problem);
    Walk walk("tiff");
    showTiff(file, *tiff, *entries, walk);
    keepTiffMetadata(TiffDirectory(*tiff, *entries), file, walk);
    return walk.done(size);
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
        return {"bmp", size, {}, 1, {}, {}};
    const double data = double(file.size() - dataStart);
    const double stride = std::ceil(double(width) * bitsPerPixel / 32.0) * 4.0;
    double needed = 0;
    std::optional<QString> problem;
    switch (compression) {
    case 0: // the last row may go without its padding
    case 3:
    case 6:
        needed = stride * double(height);
        problem = tooLittleData(size, data + stride, needed, 1.0);
        break;
    case 1: // run-length coded: at most two bytes a pixel, and two to end each row
    case 2:
        needed = 2.0 * double(width) * double(height) + 2.0 * double(height) + kMostSlack;
        problem = tooLittleData(size, data, double(width) * double(height), kRleRatio);
        break;
    default:
        return damaged("bmp", QStringLiteral("it is a BMP with compression %1, which Clarovi does "
                                             "not read")
                                  .arg(compression));
    }
    if (problem)
        return damaged("bmp", *problem);
    Walk walk("bmp");
    walk.show(0, std::min(file.size(), dataStart + qint64(needed)));
    return walk.done(size);
}

/// Skips the data sub-blocks at pos; returns the position after them, kEndOfFile when the file
/// ends first, or kTooMuch once their bytes, added to dataBytes, pass most.
qint64 skipSubBlocks(const Fields& file, qint64 pos, qint64& dataBytes, qint64 most) {
    for (;;) {
        const QByteArray length = file.at(pos, 1);
        if (length.isEmpty())
            return kEndOfFile;
        const int count = quint8(length[0]);
        ++pos;
        if (count == 0)
            return pos;
        dataBytes += count;
        if (dataBytes > most)
            return kTooMuch;
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
    qint64 extensions = 0;
    for (;;) {
        const QByteArray introducer = file.at(pos, 1);
        if (introducer.isEmpty())
            return damaged("gif", truncated());
        switch (quint8(introducer[0])) {
        case 0x21: // an extension: its label, then sub-blocks
            pos = skipSubBlocks(file, pos + 2, extensions, kMostGifExtensionBytes);
            if (pos == kTooMuch)
                return damaged("gif", QStringLiteral("it holds more than %1 MiB of GIF extensions "
                                                     "before its picture: it is damaged or made "
                                                     "to stall the decoder")
                                          .arg(kMostGifExtensionBytes >> 20));
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
            const QSize size(width, height);
            if (tooLargeToOpen(size))
                return {"gif", size, {}, 1, {}, {}};
            const int frameFlags = quint8(image[8]);
            pos += 10 + ((frameFlags & 0x80) ? 3 * (2 << (frameFlags & 7)) : 0) + 1;
            const double pixels = double(frameWidth) * frameHeight;
            qint64 data = 0;
            const qint64 end = skipSubBlocks(file, pos, data, qint64(mostData(pixels)));
            if (end == kTooMuch)
                return damaged("gif", tooMuchData(data, size));
            if (end < 0)
                return damaged("gif", truncated());
            if (auto problem = tooLittleData(size, double(data), pixels, kLzwRatio))
                return damaged("gif", *problem);
            // The first frame and the end of the file: the decoder needs nothing after it.
            Walk walk("gif");
            walk.show(0, end);
            walk.showInstead(";");
            return walk.done(size);
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

/// What the WebP decoder is shown: the RIFF header, its size made that of what is shown, and the
/// chunks of the canvas and its first frame.
PictureHeader readWebp(const Fields& file) {
    Walk walk("webp");
    walk.showInstead(QByteArray("RIFF\0\0\0\0WEBP", 12));
    QSize canvas, picture;
    for (qint64 pos = 12;;) {
        // What follows the picture, even a damaged end, is not the decoder's business.
        const QByteArray chunk = file.at(pos, 8);
        if (chunk.isEmpty() && !picture.isEmpty())
            break;
        if (chunk.isEmpty())
            return damaged("webp", truncated());
        if (!walk.count())
            return damaged("webp", tooManyEntries("WebP chunks"));
        const QByteArray fourcc = chunk.left(4);
        const qint64 length = le32(chunk, 4);
        if (!file.contains(pos + 8, length) && !picture.isEmpty())
            break;
        if (!file.contains(pos + 8, length))
            return damaged("webp", truncated());
        const qint64 whole = std::min(8 + length + (length & 1), file.size() - pos);
        if (fourcc == "VP8X" && picture.isEmpty()) {
            const QByteArray extended = file.at(pos + 8, 10);
            if (extended.isEmpty())
                return damaged("webp", truncated());
            canvas = sizeOf(qint64(le24(extended, 4)) + 1, qint64(le24(extended, 7)) + 1);
            walk.show(pos, whole);
        } else if (fourcc == "ICCP") {
            walk.keep(MetadataKind::Icc, pos + 8, length);
        } else if (fourcc == "ANIM") {
            walk.show(pos, whole);
        } else if ((fourcc == "ALPH" || fourcc == "VP8 " || fourcc == "VP8L" || fourcc == "ANMF") &&
                   picture.isEmpty()) {
            // An animation's frames are drawn on the canvas, which is what the decoder makes.
            const QSize frame = fourcc == "ANMF" ? canvas : webpFrameSize(file, fourcc, pos + 8);
            if (fourcc != "ALPH") {
                if (frame.isEmpty() || (canvas.isValid() && canvas.expandedTo(frame) != canvas))
                    return damaged("webp", QStringLiteral("its WebP frame header is damaged"));
                picture = canvas.isValid() ? canvas : frame;
                if (tooLargeToOpen(picture))
                    return {"webp", picture, {}, 1, {}, {}};
                if (double(length) > mostData(4.0 * picture.width() * picture.height()))
                    return damaged("webp", tooMuchData(length, picture));
            }
            walk.show(pos, whole);
        } else if (fourcc == "EXIF") {
            walk.keepExif(file, pos + 8, length);
        } else if (fourcc == "XMP " && !walk.has(MetadataKind::Xmp)) {
            walk.keep(MetadataKind::Xmp, pos + 8, length);
        }
        pos += 8 + length + (length & 1);
    }
    PictureHeader header = walk.done(picture);
    qint64 shown = 0;
    for (const FilePiece& piece : header.picture)
        shown += piece.size;
    qToLittleEndian(quint32(shown - 8), header.picture.front().replacement.data() + 4);
    return header;
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
        return readJpeg(file);
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

} // namespace clarovi::files
