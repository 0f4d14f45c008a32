// The structure of BMP, GIF and WebP files, checked before a decoder sees them.
#include "header_walk.h"

namespace clarovi::files::header {

PictureHeader readBmp(const Fields& file) {
    QByteArray head = file.at(0, 26);
    if (head.isEmpty())
        return damaged("bmp", truncated());
    const qint64 dataStart = le32(head, 10);
    const quint32 infoSize = le32(head, 14);
    if (infoSize >= 40)
        head = file.at(0, 34);
    if (head.isEmpty())
        return damaged("bmp", truncated());
    qint64 width = 0, height = 0;
    int bitsPerPixel = 0;
    quint32 compression = 0;
    if (infoSize == 12) {
        width = le16(head, 18);
        height = le16(head, 20);
        bitsPerPixel = le16(head, 24);
    } else if (infoSize >= 40) {
        width = qint32(le32(head, 18));
        height = qint32(le32(head, 22));
        bitsPerPixel = le16(head, 28);
        compression = le32(head, 30);
    } else {
        return damaged("bmp", QStringLiteral("its BMP header is damaged"));
    }
    height = std::abs(height); // negative heights store the rows top down
    const QSize size = sizeOf(width, height);
    const bool knownDepth = bitsPerPixel == 1 || bitsPerPixel == 4 || bitsPerPixel == 8 ||
                            bitsPerPixel == 16 || bitsPerPixel == 24 || bitsPerPixel == 32;
    if (size.isEmpty() || !knownDepth || !file.contains(dataStart, 1))
        return damaged("bmp", QStringLiteral("its BMP header is damaged"));
    if (tooLargeToOpen(size))
        return {"bmp", size, {}, 1, {}, {}};
    const double data = double(file.size() - dataStart);
    const double stride = std::ceil(double(width) * bitsPerPixel / 32.0) * 4.0;
    double needed = 0;
    std::optional<QString> problem;
    switch (compression) {
    case 0: // the last row may go without its padding
    case 3:
    case 6:
        needed = stride * double(height);
        problem = tooLittleData(size, data + stride, needed, 1.0);
        break;
    case 1: // run-length coded: at most two bytes a pixel, and two to end each row
    case 2:
        needed = 2.0 * double(width) * double(height) + 2.0 * double(height) + kMostSlack;
        problem = tooLittleData(size, data, double(width) * double(height), kRleRatio);
        break;
    default:
        return damaged("bmp", QStringLiteral("it is a BMP with compression %1, which Clarovi does "
                                             "not read")
                                  .arg(compression));
    }
    if (problem)
        return damaged("bmp", *problem);
    Walk walk("bmp");
    walk.show(0, std::min(file.size(), dataStart + qint64(needed)));
    return walk.done(size);
}

/// Skips the data sub-blocks at pos; returns the position after them, kEndOfFile when the file
/// ends first, or kTooMuch once their bytes, added to dataBytes, pass most.
qint64 skipSubBlocks(const Fields& file, qint64 pos, qint64& dataBytes, qint64 most) {
    for (;;) {
        const QByteArray length = file.at(pos, 1);
        if (length.isEmpty())
            return kEndOfFile;
        const int count = quint8(length[0]);
        ++pos;
        if (count == 0)
            return pos;
        dataBytes += count;
        if (dataBytes > most)
            return kTooMuch;
        pos += count;
    }
}

PictureHeader readGif(const Fields& file) {
    const QByteArray screen = file.at(6, 7);
    if (screen.isEmpty())
        return damaged("gif", truncated());
    int width = le16(screen, 0), height = le16(screen, 2);
    const int flags = quint8(screen[4]);
    qint64 pos = 13 + ((flags & 0x80) ? 3 * (2 << (flags & 7)) : 0);
    qint64 extensions = 0;
    for (;;) {
        const QByteArray introducer = file.at(pos, 1);
        if (introducer.isEmpty())
            return damaged("gif", truncated());
        switch (quint8(introducer[0])) {
        case 0x21: // an extension: its label, then sub-blocks
            pos = skipSubBlocks(file, pos + 2, extensions, kMostGifExtensionBytes);
            if (pos == kTooMuch)
                return damaged("gif", QStringLiteral("it holds more than %1 MiB of GIF extensions "
                                                     "before its picture: it is damaged or made "
                                                     "to stall the decoder")
                                          .arg(kMostGifExtensionBytes >> 20));
            if (pos < 0)
                return damaged("gif", truncated());
            continue;
        case 0x2C: {
            const QByteArray image = file.at(pos + 1, 9);
            if (image.isEmpty())
                return damaged("gif", truncated());
            const int frameWidth = le16(image, 4), frameHeight = le16(image, 6);
            if (frameWidth == 0 || frameHeight == 0)
                return damaged("gif", QStringLiteral("its first GIF frame has no size"));
            // The decoder makes a picture of the screen, grown to hold the first frame.
            width = std::max(width, le16(image, 0) + frameWidth);
            height = std::max(height, le16(image, 2) + frameHeight);
            const QSize size(width, height);
            if (tooLargeToOpen(size))
                return {"gif", size, {}, 1, {}, {}};
            const int frameFlags = quint8(image[8]);
            pos += 10 + ((frameFlags & 0x80) ? 3 * (2 << (frameFlags & 7)) : 0) + 1;
            const double pixels = double(frameWidth) * frameHeight;
            qint64 data = 0;
            const qint64 end = skipSubBlocks(file, pos, data, qint64(mostData(pixels)));
            if (end == kTooMuch)
                return damaged("gif", tooMuchData(data, size));
            if (end < 0)
                return damaged("gif", truncated());
            if (auto problem = tooLittleData(size, double(data), pixels, kLzwRatio))
                return damaged("gif", *problem);
            // The first frame and the end of the file: the decoder needs nothing after it.
            Walk walk("gif");
            walk.show(0, end);
            walk.showInstead(";");
            return walk.done(size);
        }
        default:
            return damaged("gif", QStringLiteral("it holds no GIF picture"));
        }
    }
}

/// The size in a VP8 or VP8L bitstream's header; empty when it is damaged.
QSize webpFrameSize(const Fields& file, const QByteArray& fourcc, qint64 at) {
    if (fourcc == "VP8 ") {
        const QByteArray header = file.at(at, 10);
        if (header.isEmpty() || (quint8(header[0]) & 1) != 0 || header.mid(3, 3) != "\x9d\x01\x2a")
            return {};
        return sizeOf(le16(header, 6) & 0x3fff, le16(header, 8) & 0x3fff);
    }
    const QByteArray header = file.at(at, 5);
    if (header.isEmpty() || quint8(header[0]) != 0x2f)
        return {};
    const quint32 bits = le32(header, 1);
    return sizeOf((bits & 0x3fff) + 1, ((bits >> 14) & 0x3fff) + 1);
}

/// What the WebP decoder is shown: the RIFF header, its size made that of what is shown, and the
/// chunks of the canvas and its first frame.
PictureHeader readWebp(const Fields& file) {
    Walk walk("webp");
    walk.showInstead(QByteArray("RIFF\0\0\0\0WEBP", 12));
    QSize canvas, picture;
    for (qint64 pos = 12;;) {
        // What follows the picture, even a damaged end, is not the decoder's business.
        const QByteArray chunk = file.at(pos, 8);
        if (chunk.isEmpty() && !picture.isEmpty())
            break;
        if (chunk.isEmpty())
            return damaged("webp", truncated());
        if (!walk.count())
            return damaged("webp", tooManyEntries("WebP chunks"));
        const QByteArray fourcc = chunk.left(4);
        const qint64 length = le32(chunk, 4);
        if (!file.contains(pos + 8, length) && !picture.isEmpty())
            break;
        if (!file.contains(pos + 8, length))
            return damaged("webp", truncated());
        const qint64 whole = std::min(8 + length + (length & 1), file.size() - pos);
        if (fourcc == "VP8X" && picture.isEmpty()) {
            const QByteArray extended = file.at(pos + 8, 10);
            if (extended.isEmpty())
                return damaged("webp", truncated());
            canvas = sizeOf(qint64(le24(extended, 4)) + 1, qint64(le24(extended, 7)) + 1);
            walk.show(pos, whole);
        } else if (fourcc == "ICCP") {
            walk.keep(MetadataKind::Icc, pos + 8, length);
        } else if (fourcc == "ANIM") {
            walk.show(pos, whole);
        } else if ((fourcc == "ALPH" || fourcc == "VP8 " || fourcc == "VP8L" || fourcc == "ANMF") &&
                   picture.isEmpty()) {
            // An animation's frames are drawn on the canvas, which is what the decoder makes.
            const QSize frame = fourcc == "ANMF" ? canvas : webpFrameSize(file, fourcc, pos + 8);
            if (fourcc != "ALPH") {
                if (frame.isEmpty() || (canvas.isValid() && canvas.expandedTo(frame) != canvas))
                    return damaged("webp", QStringLiteral("its WebP frame header is damaged"));
                picture = canvas.isValid() ? canvas : frame;
                if (tooLargeToOpen(picture))
                    return {"webp", picture, {}, 1, {}, {}};
                if (double(length) > mostData(4.0 * picture.width() * picture.height()))
                    return damaged("webp", tooMuchData(length, picture));
            }
            walk.show(pos, whole);
        } else if (fourcc == "EXIF") {
            walk.keepExif(file, pos + 8, length);
        } else if (fourcc == "XMP " && !walk.has(MetadataKind::Xmp)) {
            walk.keep(MetadataKind::Xmp, pos + 8, length);
        }
        pos += 8 + length + (length & 1);
    }
    PictureHeader header = walk.done(picture);
    qint64 shown = 0;
    for (const FilePiece& piece : header.picture)
        shown += piece.size;
    qToLittleEndian(quint32(shown - 8), header.picture.front().replacement.data() + 4);
    return header;
}

} // namespace clarovi::files::header
