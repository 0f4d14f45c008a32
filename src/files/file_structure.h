#pragma once

#include <QByteArray>
#include <QIODevice>

#include <optional>
#include <vector>

// Reading the structure of picture files without trusting it: what the header reader and the
// metadata checks share.
namespace clarovi::files {

/// Reads fields anywhere in a stretch of a random-access device; a field past the stretch's end
/// reads as missing. Reads go through a window of the file, so that walking a picture's many
/// small chunks reads it in large pieces from front to back, as a disk serves best, instead of a
/// few bytes at a time.
class Fields {
  public:
    /// The stretch of size bytes at start of device (to its end when size is negative).
    explicit Fields(QIODevice& device, qint64 start = 0, qint64 size = -1);
    qint64 size() const { return m_size; }
    QIODevice& device() const { return m_device; }
    /// Where position 0 of the stretch lies in the device.
    qint64 start() const { return m_start; }

    /// count bytes at pos, or an empty array when they are not all inside the stretch.
    QByteArray at(qint64 pos, qint64 count) const;
    bool contains(qint64 pos, qint64 count) const {
        return pos >= 0 && count >= 0 && pos <= m_size - count;
    }

  private:
    static constexpr qint64 kWindow = 1 << 20;
    QIODevice& m_device;
    qint64 m_start;
    qint64 m_size;
    mutable QByteArray m_window;
    mutable qint64 m_windowStart = 0;
};

quint16 be16(const QByteArray& b, qint64 at);
quint32 be32(const QByteArray& b, qint64 at);
quint16 le16(const QByteArray& b, qint64 at);
quint32 le32(const QByteArray& b, qint64 at);
quint32 le24(const QByteArray& b, qint64 at);

/// The bytes a value of this TIFF field type takes, 0 for a type TIFF does not define.
int tiffTypeSize(int type);

/// One entry of a TIFF directory.
struct TiffEntry {
    int tag = 0;
    int type = 0;
    qint64 count = 0;
    qint64 valueAt = 0; ///< where the values are: in the entry, or where it points
    /// count times the type's size (times 1 for an unknown type, as readers then take it)
    qint64 bytes() const;
    /// Whether its values lie inside the stretch read.
    bool inside(const Fields& fields) const { return fields.contains(valueAt, bytes()); }
};

/// A TIFF structure (a TIFF file, or the EXIF data of another picture, which is one) in a stretch
/// of a device, offsets counted from the stretch's start.
class TiffStructure {
  public:
    /// Nothing when the stretch does not start with a TIFF header.
    static std::optional<TiffStructure> at(const Fields& fields);

    bool bigEndian() const { return m_big; }
    qint64 firstDirectory() const { return m_first; }
    const Fields& fields() const { return m_fields; }

    /// The entries of the directory at offset, and where the next directory is (0 for none);
    /// nothing when its entry count or entries lie outside the stretch.
    std::optional<std::vector<TiffEntry>> directory(qint64 offset, qint64* next = nullptr) const;

    /// The first values of a SHORT or LONG entry, at most limit of them; empty for other types
    /// or values outside the stretch.
    std::vector<qint64> values(const TiffEntry& entry, qint64 limit) const;

    quint16 u16(const QByteArray& b, qint64 at) const { return m_big ? be16(b, at) : le16(b, at); }
    quint32 u32(const QByteArray& b, qint64 at) const { return m_big ? be32(b, at) : le32(b, at); }

  private:
    TiffStructure(const Fields& fields, bool big, qint64 first)
        : m_fields(fields), m_big(big), m_first(first) {}
    const Fields& m_fields;
    bool m_big;
    qint64 m_first;
};

/// The entry with this tag, or nullptr.
const TiffEntry* findTiffEntry(const std::vector<TiffEntry>& entries, int tag);

/// The EXIF orientation (1 to 8) in the first directory of the TIFF structure in fields; 1 when
/// there is none, it is damaged, or it is out of range.
int exifOrientation(const Fields& fields);

} // namespace clarovi::files
