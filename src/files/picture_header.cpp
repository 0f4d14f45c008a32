#include "picture_header.h"

#include "header_walk.h"

namespace clarovi::files {

namespace {

QByteArray formatOf(const QByteArray& start) {
    if (start.startsWith("\x89PNG\r\n\x1a\n"))
        return "png";
    if (start.startsWith("\xff\xd8\xff"))
        return "jpeg";
    if (start.startsWith("II*\0") || start.startsWith(QByteArray("MM\0*", 4)) ||
        start.startsWith("II+\0") || start.startsWith(QByteArray("MM\0+", 4)))
        return "tiff";
    if (start.startsWith("BM"))
        return "bmp";
    if (start.startsWith("GIF87a") || start.startsWith("GIF89a"))
        return "gif";
    if (start.startsWith("RIFF") && start.mid(8, 4) == "WEBP")
        return "webp";
    return {};
}

} // namespace

PictureHeader readPictureHeader(QIODevice& device) {
    const Fields file(device);
    const QByteArray start = file.at(0, std::min<qint64>(file.size(), 16));
    const QByteArray format = formatOf(start);
    if (format == "png")
        return header::readPng(file);
    if (format == "jpeg")
        return header::readJpeg(file);
    if (format == "tiff")
        return start.size() >= 8 ? header::readTiff(file, start)
                                 : header::damaged("tiff", header::truncated());
    if (format == "bmp")
        return header::readBmp(file);
    if (format == "gif")
        return header::readGif(file);
    if (format == "webp")
        return header::readWebp(file);
    return {};
}

} // namespace clarovi::files
