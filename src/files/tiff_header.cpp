// The structure of TIFF files, checked before the decoder sees them.
#include "header_walk.h"

namespace clarovi::files::header {

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

} // namespace clarovi::files::header
