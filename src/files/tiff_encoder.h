#pragma once

#include <QByteArray>
#include <QImage>
#include <QString>

namespace clarovi::files {

/// A picture encoded as a file in memory, or why it could not be.
struct EncodedFile {
    QByteArray bytes; ///< the whole file; empty when encoding failed
    QString error;    ///< the encoder's reason, when encoding failed
};

/// image as a TIFF file in memory, deflate-compressed with horizontal prediction: grey for
/// Grayscale8 and Grayscale16, RGB for RGB32 and RGBX64, RGB with unassociated alpha for ARGB32
/// and RGBA64, with 8 or 16 bits per sample as image has (other formats as RGBX64 or RGBA64). The
/// colour profile is the metadata's to add.
EncodedFile encodeTiff(const QImage& image);

} // namespace clarovi::files
