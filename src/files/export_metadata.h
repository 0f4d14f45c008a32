#pragma once

#include "picture_header.h"

#include <QByteArray>
#include <QIODevice>
#include <QLoggingCategory>
#include <QSize>
#include <QString>
#include <QStringList>

namespace clarovi::files {

/// What exiv2 says while it writes an export's metadata ("clarovi.metadata"; its warnings are
/// off unless enabled).
Q_DECLARE_LOGGING_CATEGORY(lcMetadata)

/// The metadata an export copies from its photograph, read from the file once and checked
/// against the limits (metadata_limits.h) before exiv2 sees any of it.
struct SourceMetadata {
    QByteArray exif; ///< the copy of the EXIF data (exif_copy.h), or empty
    QByteArray xmp;  ///< the XMP packet, or empty
    QByteArray iptc; ///< IPTC records, or empty
    QByteArray icc;  ///< the ICC profile, or empty
    /// false when the profile is not the file's but one Qt made of its colour chunks (sRGB,
    /// gamma): then it is dropped without a note where it does not fit the picture
    bool iccInFile = true;
    bool turned = false; ///< whether the picture was turned upright by its EXIF orientation
    QString name;        ///< the photograph's file name, for the notes
    QStringList notes;   ///< a sentence for each kind left out, and why
};

/// Reads the metadata of the picture in device (open for reading, random access), whose
/// structure readPictureHeader found; name is what the notes call it; turned says whether the
/// picture was turned upright by its orientation. A kind that is damaged or over its limit is
/// left out with a note; nothing of it fails.
SourceMetadata readSourceMetadata(QIODevice& device, const PictureHeader& header,
                                  const QString& name, bool turned);

/// encoded (a whole PNG, TIFF or JPEG file in memory) with metadata added through exiv2: the
/// EXIF data with Orientation 1 when the picture was turned (otherwise as it was) and Software
/// set to Clarovi, the XMP data likewise, with the picture's size where they give one; the IPTC
/// data; and the profile where it fits the picture (a grey profile for a grey picture, an RGB one
/// for colour). When exiv2 cannot write it all, the profile alone; when not even that, encoded as
/// it is. Every part left out adds a sentence to notes.
QByteArray withMetadata(const QByteArray& encoded, const SourceMetadata& metadata, QSize size,
                        bool grey, QStringList& notes);

} // namespace clarovi::files
