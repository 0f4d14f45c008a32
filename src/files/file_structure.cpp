#include "file_structure.h"

#include <QtEndian>

#include <algorithm>

namespace clarovi::files {

namespace {

// A field of a block read from the file; a field beyond the block reads as 0, which the callers'
// checks of the block's size rule out anyway.
template <typename T, bool bigEndian> T field(const QByteArray& b, qint64 at) {
    if (at < 0 || at + qint64(sizeof(T)) > b.size())
        return 0;
    return bigEndian ? qFromBigEndian<T>(b.constData() + at)
                     : qFromLittleEndian<T>(b.constData() + at);
}

constexpr int kOrientationTag = 274;
constexpr int kShort = 3;
constexpr int kLong = 4;

} // namespace

Fields::Fields(QIODevice& device, qint64 start, qint64 size)
    : m_device(device), m_start(start),
      m_size(std::clamp<qint64>(size < 0 ? device.size() - start : size, 0,
                                std::max<qint64>(device.size() - start, 0))) {}

QByteArray Fields::at(qint64 pos, qint64 count) const {
    if (count <= 0 || !contains(pos, count))
        return {};
    if (pos < m_windowStart || pos + count > m_windowStart + m_window.size()) {
        if (!m_device.seek(m_start + pos))
            return {};
        m_window = m_device.read(std::min(std::max(count, kWindow), m_size - pos));
        m_windowStart = pos;
        if (m_window.size() < count)
            return {};
    }
    return m_window.mid(pos - m_windowStart, count);
}

quint16 be16(const QByteArray& b, qint64 at) {
    return field<quint16, true>(b, at);
}
quint32 be32(const QByteArray& b, qint64 at) {
    return field<quint32, true>(b, at);
}
quint16 le16(const QByteArray& b, qint64 at) {
    return field<quint16, false>(b, at);
}
quint32 le32(const QByteArray& b, qint64 at) {
    return field<quint32, false>(b, at);
}
quint32 le24(const QByteArray& b, qint64 at) {
    return quint32(le16(b, at)) | quint32(field<quint8, false>(b, at + 2)) << 16;
}

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

qint64 TiffEntry::bytes() const {
    return count * std::max(1, tiffTypeSize(type));
}

std::optional<TiffStructure> TiffStructure::at(const Fields& fields) {
    const QByteArray header = fields.at(0, 8);
    if (header.startsWith("II*\0"))
        return TiffStructure(fields, false, le32(header, 4));
    if (header.startsWith(QByteArray("MM\0*", 4)))
        return TiffStructure(fields, true, be32(header, 4));
    return std::nullopt;
}

std::optional<std::vector<TiffEntry>> TiffStructure::directory(qint64 offset, qint64* next) const {
    const QByteArray countField = m_fields.at(offset, 2);
    if (countField.isEmpty())
        return std::nullopt;
    const int count = u16(countField, 0);
    const QByteArray entries = m_fields.at(offset + 2, qint64(count) * 12);
    if (count > 0 && entries.isEmpty())
        return std::nullopt;
    std::vector<TiffEntry> result;
    result.reserve(size_t(count));
    for (int e = 0; e < count; ++e) {
        TiffEntry entry{u16(entries, 12 * e), u16(entries, 12 * e + 2), u32(entries, 12 * e + 4),
                        0};
        entry.valueAt = entry.bytes() <= 4 ? offset + 2 + 12 * e + 8 : u32(entries, 12 * e + 8);
        result.push_back(entry);
    }
    if (next) // a directory that ends the file without its link has no next one
        *next = u32(m_fields.at(offset + 2 + qint64(count) * 12, 4), 0);
    return result;
}

std::vector<qint64> TiffStructure::values(const TiffEntry& entry, qint64 limit) const {
    if (entry.type != kShort && entry.type != kLong)
        return {};
    const int size = tiffTypeSize(entry.type);
    const qint64 count = std::min(entry.count, limit);
    const QByteArray bytes = m_fields.at(entry.valueAt, count * size);
    std::vector<qint64> result;
    if (bytes.isEmpty())
        return result;
    result.reserve(size_t(count));
    for (qint64 k = 0; k < count; ++k)
        result.push_back(size == 2 ? u16(bytes, 2 * k) : u32(bytes, 4 * k));
    return result;
}

const TiffEntry* findTiffEntry(const std::vector<TiffEntry>& entries, int tag) {
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [tag](const TiffEntry& entry) { return entry.tag == tag; });
    return found == entries.end() ? nullptr : &*found;
}

int exifOrientation(const Fields& fields) {
    const std::optional<TiffStructure> tiff = TiffStructure::at(fields);
    if (!tiff)
        return 1;
    const auto entries = tiff->directory(tiff->firstDirectory());
    const TiffEntry* entry = entries ? findTiffEntry(*entries, kOrientationTag) : nullptr;
    const std::vector<qint64> value = entry ? tiff->values(*entry, 1) : std::vector<qint64>();
    return value.empty() || value[0] < 1 || value[0] > 8 ? 1 : int(value[0]);
}

} // namespace clarovi::files
