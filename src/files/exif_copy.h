#pragma once

#include "file_structure.h"

#include <QByteArray>
#include <QString>

namespace clarovi::files {

/// The EXIF data an export copies from its photograph, or why none is copied.
struct ExifCopy {
    QByteArray tiff; ///< a TIFF structure of the copied entries; empty when none are copied
    QString problem; ///< why the EXIF data is left out, a clause to follow "left out: "
};

/// Copies from the EXIF data in block (a TIFF structure) what describes the photograph rather
/// than the file: an allow-list of descriptive tags of IFD0 (camera, orientation, date, author,
/// copyright, resolution, rating), the tags of the EXIF directory (exposure, lens, dates...) except
/// those describing the file's pixels or pointing elsewhere, and the GPS directory. Unknown tags,
/// entries whose type is not their tag's (an integer of another width, or text held as
/// undefined bytes, pass), the maker note (a vendor's binary structure, which exiv2 would parse
/// and where damage hides) and the pixel coordinates of the subject (when turned) are left out.
/// The copy is built anew, so that exiv2 never parses the photograph's own structure: the whole
/// EXIF data is refused when the entries copied would hold more bytes than the block (values
/// shared by many entries) or than kMostExifValueBytes.
ExifCopy copyExif(const Fields& block, bool turned);

} // namespace clarovi::files
