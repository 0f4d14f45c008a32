#include "exif_copy.h"

#include "metadata_limits.h"

#include <QtEndian>

#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <vector>

namespace clarovi::files {

namespace {

constexpr int kExifPointer = 0x8769;
constexpr int kGpsPointer = 0x8825;
constexpr int kLong = 4;

// IFD0's tags that describe the photograph: document name, description, make, model, orientation
// (made 1 when the picture was turned by it), resolution and its unit, date, artist, computer,
// rating and its percent, copyright, and Windows' title, comment, author, keywords and subject.
// Everything else there describes the file (its layout, compression, strips, colours) or points
// elsewhere, and a copy would be false of the export.
constexpr std::array<int, 19> kDescriptiveImageTags = {
    0x010d, 0x010e, 0x010f, 0x0110, 0x0112, 0x011a, 0x011b, 0x0128, 0x0132, 0x013b,
    0x013c, 0x4746, 0x4749, 0x8298, 0x9c9b, 0x9c9c, 0x9c9d, 0x9c9e, 0x9c9f};
// Tags of the EXIF directory that describe the file's pixels (components configuration,
// compressed bits per pixel) or point elsewhere (maker note, interoperability directory).
constexpr std::array<int, 4> kFileExifTags = {0x9101, 0x9102, 0x927c, 0xa005};
// The subject's area and location, in the pixels of the photograph as stored.
constexpr std::array<int, 2> kSubjectTags = {0x9214, 0xa214};

template <size_t n> bool among(const std::array<int, n>& tags, int tag) {
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

bool bothAmong(std::initializer_list<int> types, int a, int b) {
    return std::find(types.begin(), types.end(), a) != types.end() &&
           std::find(types.begin(), types.end(), b) != types.end();
}

/// Whether exiv2 knows the tag in group, and the entry's type is the tag's, or one readers take
/// for it: an unsigned or signed integer of another width, text as undefined bytes.
bool knownWithItsType(const TiffEntry& entry, const char* group) {
    const Exiv2::ExifKey key(uint16_t(entry.tag), group);
    if (key.tagName().rfind("0x", 0) == 0)
        return false;
    int wanted = int(key.defaultTypeId());
    if (wanted == int(Exiv2::comment))
        wanted = int(Exiv2::undefined);
    return entry.type == wanted || bothAmong({1, 3, 4}, entry.type, wanted) ||
           bothAmong({6, 8, 9}, entry.type, wanted) || bothAmong({2, 7}, entry.type, wanted);
}

/// An entry to write: its values as the photograph stores them, in its byte order.
struct Copied {
    TiffEntry entry;
    QByteArray value;
};

using Directory = std::vector<Copied>;

/// The entries of the directory pointed to by pointerTag in IFD0, as a list; empty when there is
/// none or it is damaged.
std::vector<TiffEntry> pointedDirectory(const TiffStructure& tiff,
                                        const std::vector<TiffEntry>& ifd0, int pointerTag) {
    const TiffEntry* pointer = findTiffEntry(ifd0, pointerTag);
    const std::vector<qint64> offset = pointer ? tiff.values(*pointer, 1) : std::vector<qint64>();
    if (offset.empty())
        return {};
    return tiff.directory(offset[0]).value_or(std::vector<TiffEntry>());
}

class Writer {
  public:
    explicit Writer(bool big) : m_big(big) {
        m_out = big ? QByteArray("MM\0*", 4) : QByteArray("II*\0", 4);
        put32(8);
    }
    /// The bytes a directory takes with its values.
    static qint64 size(const Directory& directory, int pointers) {
        qint64 bytes = 2 + 12 * qint64(directory.size() + size_t(pointers)) + 4;
        for (const Copied& copied : directory)
            if (copied.value.size() > 4)
                bytes += copied.value.size() + (copied.value.size() & 1);
        return bytes;
    }
    /// Writes directory with pointer entries (tag, offset) among its own, in tag order.
    void write(Directory directory, const std::vector<std::pair<int, qint64>>& pointers) {
        for (const auto& [tag, offset] : pointers) {
            QByteArray value(4, '\0');
            m_big ? qToBigEndian(quint32(offset), value.data())
                  : qToLittleEndian(quint32(offset), value.data());
            directory.push_back({TiffEntry{tag, kLong, 1, 0}, value});
        }
        std::sort(directory.begin(), directory.end(),
                  [](const Copied& a, const Copied& b) { return a.entry.tag < b.entry.tag; });
        qint64 values = m_out.size() + 2 + 12 * qint64(directory.size()) + 4;
        put16(quint16(directory.size()));
        QByteArray outside;
        for (const Copied& copied : directory) {
            put16(quint16(copied.entry.tag));
            put16(quint16(copied.entry.type));
            put32(quint32(copied.entry.count));
            if (copied.value.size() <= 4) {
                m_out += copied.value + QByteArray(4 - copied.value.size(), '\0');
                continue;
            }
            put32(quint32(values + outside.size()));
            outside += copied.value;
            if (copied.value.size() & 1)
                outside += '\0';
        }
        put32(0);
        m_out += outside;
    }
    qint64 position() const { return m_out.size(); }
    QByteArray bytes() const { return m_out; }

  private:
    void put16(quint16 v) {
        char b[2];
        m_big ? qToBigEndian(v, b) : qToLittleEndian(v, b);
        m_out.append(b, 2);
    }
    void put32(quint32 v) {
        char b[4];
        m_big ? qToBigEndian(v, b) : qToLittleEndian(v, b);
        m_out.append(b, 4);
    }
    bool m_big;
    QByteArray m_out;
};

/// The entries of a directory that pass keep, with their values, adding their bytes to total.
template <typename Keep>
Directory copied(const Fields& block, const std::vector<TiffEntry>& entries, Keep keep,
                 qint64& total) {
    Directory directory;
    for (const TiffEntry& entry : entries) {
        if (entry.count <= 0 || !entry.inside(block) || !keep(entry))
            continue;
        total += entry.bytes();
        // Values are read only while the total stays within what the block can hold.
        if (total > std::min(block.size(), kMostExifValueBytes))
            return {};
        directory.push_back({entry, block.at(entry.valueAt, entry.bytes())});
    }
    return directory;
}

} // namespace

ExifCopy copyExif(const Fields& block, bool turned) {
    const std::optional<TiffStructure> tiff = TiffStructure::at(block);
    const auto ifd0 = tiff ? tiff->directory(tiff->firstDirectory()) : std::nullopt;
    if (!ifd0)
        return {{}, QStringLiteral("it is damaged")};
    qint64 total = 0;
    const Directory image = copied(
        block, *ifd0,
        [](const TiffEntry& e) {
            return among(kDescriptiveImageTags, e.tag) && knownWithItsType(e, "Image");
        },
        total);
    const Directory photo = copied(
        block, pointedDirectory(*tiff, *ifd0, kExifPointer),
        [turned](const TiffEntry& e) {
            return !among(kFileExifTags, e.tag) && !(turned && among(kSubjectTags, e.tag)) &&
                   knownWithItsType(e, "Photo");
        },
        total);
    const Directory gps = copied(
        block, pointedDirectory(*tiff, *ifd0, kGpsPointer),
        [](const TiffEntry& e) { return knownWithItsType(e, "GPSInfo"); }, total);
    if (total > std::min(block.size(), kMostExifValueBytes))
        return {{},
                QStringLiteral("its entries would hold %1 bytes or more, more than %2 (entries "
                               "that share one value, or more than the export copies)")
                    .arg(total)
                    .arg(std::min(block.size(), kMostExifValueBytes))};
    if (image.empty() && photo.empty() && gps.empty())
        return {};
    Writer writer(tiff->bigEndian());
    const int pointers = (photo.empty() ? 0 : 1) + (gps.empty() ? 0 : 1);
    const qint64 photoAt = writer.position() + Writer::size(image, pointers);
    const qint64 gpsAt = photoAt + (photo.empty() ? 0 : Writer::size(photo, 0));
    std::vector<std::pair<int, qint64>> links;
    if (!photo.empty())
        links.emplace_back(kExifPointer, photoAt);
    if (!gps.empty())
        links.emplace_back(kGpsPointer, gpsAt);
    writer.write(image, links);
    if (!photo.empty())
        writer.write(photo, {});
    if (!gps.empty())
        writer.write(gps, {});
    return {writer.bytes(), {}};
}

} // namespace clarovi::files
