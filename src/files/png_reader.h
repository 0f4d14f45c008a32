#pragma once

#include <QIODevice>
#include <QImage>

namespace clarovi::files {

/// A PNG decoded, or why not.
struct DecodedPng {
    QImage image;          ///< null when the picture could not be decoded
    bool tooLarge = false; ///< refused because its pixels would take more than allowed
};

/// Decodes the PNG held by device (open for reading) with libpng, as Qt's own reader would but with
/// libpng's messages sent to the decoder's logging category rather than the standard error stream:
/// grey pictures of up to 8 bits as Grayscale8 and of 16 as Grayscale16, palettes (and grey of up
/// to 8 bits with a transparent shade) as Indexed8, colour as RGB32 or RGBX64, with alpha ARGB32 or
/// RGBA64; with the colour space its sRGB or gAMA and cHRM chunks give, and its resolution.
/// Reads nothing after the last row. Refuses a picture whose pixels would take more than mostBytes.
DecodedPng decodePng(QIODevice& device, qint64 mostBytes);

} // namespace clarovi::files
