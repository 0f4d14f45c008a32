#pragma once

#include <QByteArray>
#include <QString>

// How much metadata the export copies, checked on the raw data before exiv2 parses any of it:
// exiv2's XMP toolkit takes a time that grows with the square of a node's properties (50,000
// take most of a minute, 5,000 about half a second; 60,000 array items three seconds), its
// IPTC writer looks every record up among those before it, its EXIF reader allocates every
// entry's value anew (a thousand entries sharing a 4 MiB value cost 4 GiB), and some of its
// parsers recurse once per level of nesting. Photographs carry far less: a few hundred XMP
// properties (a thousand or two for a heavily edited one), EXIF of tens of kilobytes, IPTC of a
// few dozen records, profiles of a few hundred kilobytes. Metadata over a limit is left out of the
// export, with a note saying so; the picture is never refused for it.
namespace clarovi::files {

inline constexpr qint64 kMostXmpBytes = 2 << 20;
inline constexpr int kMostXmpProperties = 5'000;
inline constexpr int kMostXmpDepth = 64;
/// The EXIF values copied, all entries together.
inline constexpr qint64 kMostExifValueBytes = 16 << 20;
inline constexpr qint64 kMostIptcBytes = 1 << 20;
inline constexpr int kMostIptcRecords = 2'000;
/// What a JPEG can hold: 255 segments of 65,519 bytes.
inline constexpr qint64 kMostIccBytes = 255 * 65'519;

/// Why an XMP packet is not copied (a clause to follow "left out: "), or empty: more than
/// kMostXmpBytes, more than kMostXmpProperties properties (elements, array items among them, and
/// attributes), nesting deeper than kMostXmpDepth, or XML entity declarations, which no XMP writer
/// makes.
QString xmpProblem(const QByteArray& packet);

/// Why IPTC records are not copied, or empty: more than kMostIptcBytes or kMostIptcRecords (exiv2
/// looks up every record among those before it).
QString iptcProblem(const QByteArray& records);

/// Why an ICC profile is not copied, or empty: larger than kMostIccBytes, or not a profile (its
/// header's size and signature are not those of the data).
QString iccProblem(const QByteArray& profile);

/// The colour model an ICC profile describes ("RGB ", "GRAY", "CMYK", ...), from its header.
QByteArray iccColourModel(const QByteArray& profile);

} // namespace clarovi::files
