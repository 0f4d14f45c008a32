#pragma once

#include "picture_file.h"

#include <QByteArray>
#include <QFile>
#include <QIODevice>
#include <QImage>
#include <QString>

// What the window's pictures and the full-size export share in reading and writing files.
namespace clarovi::files {

enum class PictureDepth {
    EightBits, ///< pictures of more than 8 bits per channel come down to 8
    Source,    ///< the decoder's format is kept
};

/// Opens path for readPicture; a refusal naming the file when it cannot be, else empty.
QString openPictureFile(const QString& path, QFile& file);

/// loadPicture's reading, with its refusals, keeping the source's depth when asked to; the
/// structure read is handed back in header when given.
LoadedPicture readPicture(const QString& path, PictureDepth depth);
LoadedPicture readPicture(QIODevice& device, const QString& name, PictureDepth depth,
                          PictureHeader* header = nullptr);

/// Whether pictures of this format have more than 8 bits per channel.
bool hasMoreThanEightBits(QImage::Format format);

} // namespace clarovi::files
