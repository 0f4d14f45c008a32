// Feeds bytes through the full-size export's metadata path, as the export reads a photograph's
// file: its structure, then its EXIF, XMP, IPTC and profile read and checked against the limits,
// then written by exiv2 into a small PNG, TIFF or JPEG in memory (the input's last byte chooses
// which, and whether grey), so that every input runs in milliseconds.
#include "files/export_metadata.h"
#include "files/picture_header.h"

#include <QBuffer>
#include <QImage>

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

using namespace clarovi;

constexpr QSize kTargetSize(8, 8);

QByteArray encoded(const char* format, bool grey) {
    QImage picture(kTargetSize, grey ? QImage::Format_Grayscale8 : QImage::Format_RGB32);
    picture.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, format);
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::array<QByteArray, 6> targets = {
        encoded("png", false), encoded("tiff", false), encoded("jpeg", false),
        encoded("png", true),  encoded("tiff", true),  encoded("jpeg", true)};
    if (size == 0)
        return 0;
    QByteArray bytes =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    const files::PictureHeader header = files::readPictureHeader(buffer);
    if (header.format.isEmpty())
        return 0;
    const files::SourceMetadata metadata =
        files::readSourceMetadata(buffer, header, QStringLiteral("input"), header.orientation > 1);
    const size_t choice = data[size - 1] % targets.size();
    QStringList notes;
    files::withMetadata(targets[choice], metadata, kTargetSize, choice >= 3, notes);
    return 0;
}
