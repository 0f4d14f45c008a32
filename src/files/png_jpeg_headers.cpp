// The structure of PNG and JPEG files, checked before a decoder sees them.
#include "header_walk.h"

namespace clarovi::files::header {

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

} // namespace clarovi::files::header
