#pragma once

#include <QBuffer>
#include <QByteArray>
#include <QFile>
#include <QImage>
#include <QImageWriter>
#include <QtEndian>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

// Files built byte by byte from a small sound picture, to give the reader and the export what
// an attacker or a damaged disk would.
namespace clarovi::testing {

/// A 64 x 48 picture: red left half, blue top right, green bottom right; grey when asked.
inline QImage smallPicture(bool grey = false) {
    QImage picture(64, 48, QImage::Format_RGB32);
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 64; ++x)
            picture.setPixel(x, y,
                             x < 32   ? qRgb(220, 30, 20)
                             : y < 24 ? qRgb(20, 40, 230)
                                      : qRgb(30, 200, 40));
    return grey ? picture.convertToFormat(QImage::Format_Grayscale8) : picture;
}

inline QByteArray encoded(const QImage& picture, const char* format) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    EXPECT_TRUE(QImageWriter(&buffer, format).write(picture));
    return bytes;
}

inline void writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size())
        << path.toStdString();
}

inline QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(unreadable)");
}

inline quint32 crc32(const QByteArray& bytes) {
    quint32 crc = 0xFFFFFFFFu;
    for (char byte : bytes) {
        crc ^= quint8(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

inline QByteArray be32(quint32 value) {
    QByteArray bytes(4, '\0');
    qToBigEndian(value, bytes.data());
    return bytes;
}

inline QByteArray le(quint32 value, int size) {
    QByteArray bytes(4, '\0');
    qToLittleEndian(value, bytes.data());
    return bytes.left(size);
}

/// A PNG chunk; length, when given, is what its header claims instead of its true length.
inline QByteArray pngChunk(const QByteArray& type, const QByteArray& data, qint64 length = -1) {
    return be32(quint32(length < 0 ? data.size() : length)) + type + data +
           be32(crc32(type + data));
}

/// png with chunks put after its header.
inline QByteArray withPngChunks(const QByteArray& png, const QByteArray& chunks) {
    return png.left(33) + chunks + png.mid(33);
}

/// An entry of a little-endian TIFF directory: its value bytes, put in the entry or after it; or,
/// with shared set, pointing at the block every such entry shares.
struct TiffTag {
    quint16 tag;
    quint16 type;
    quint32 count;
    QByteArray value;
    bool shared = false;
};

/// A little-endian TIFF structure: header, the shared block, then IFD0 with its values after it.
/// An entry whose value is "@pixels" points at pixels, put at the end.
inline QByteArray tiffFile(std::vector<TiffTag> tags, const QByteArray& shared = {},
                           const QByteArray& pixels = {}) {
    std::sort(tags.begin(), tags.end(), [](auto& a, auto& b) { return a.tag < b.tag; });
    const quint32 ifd = 8 + quint32(shared.size());
    QByteArray values;
    const quint32 valuesAt = ifd + 2 + 12 * quint32(tags.size()) + 4;
    for (TiffTag& t : tags)
        if (t.value.size() > 4 && t.value != "@pixels") {
            const quint32 at = valuesAt + quint32(values.size());
            values += t.value + QByteArray(t.value.size() & 1, '\0');
            t.value = le(at, 4);
        }
    const quint32 pixelsAt = valuesAt + quint32(values.size());
    QByteArray out = QByteArray("II*\0", 4) + le(ifd, 4) + shared + le(quint32(tags.size()), 2);
    for (const TiffTag& t : tags) {
        const QByteArray value = t.shared               ? le(8, 4)
                                 : t.value == "@pixels" ? le(pixelsAt, 4)
                                                        : t.value;
        out += le(t.tag, 2) + le(t.type, 2) + le(t.count, 4) + value +
               QByteArray(4 - value.size(), '\0');
    }
    return out + le(0, 4) + values + pixels;
}

/// An uncompressed 8-bit grey TIFF of the small picture (or of pixels), with extra tags added or
/// put in place of its own.
inline QByteArray greyTiff(const std::vector<TiffTag>& extra = {}, const QByteArray& shared = {},
                           QByteArray pixels = "@grey") {
    std::vector<TiffTag> tags = {
        {256, 3, 1, le(64, 2)}, {257, 3, 1, le(48, 2)}, {258, 3, 1, le(8, 2)},
        {259, 3, 1, le(1, 2)},  {262, 3, 1, le(1, 2)},  {273, 4, 1, "@pixels"},
        {277, 3, 1, le(1, 2)},  {278, 3, 1, le(48, 2)}, {279, 4, 1, le(64 * 48, 4)}};
    for (const TiffTag& tag : extra) {
        const auto same = std::find_if(tags.begin(), tags.end(),
                                       [&](const TiffTag& t) { return t.tag == tag.tag; });
        if (same != tags.end() && !tag.shared)
            *same = tag;
        else
            tags.push_back(tag);
    }
    if (pixels == "@grey") {
        const QImage grey = smallPicture(true);
        pixels.clear();
        for (int y = 0; y < grey.height(); ++y)
            pixels.append(reinterpret_cast<const char*>(grey.constScanLine(y)), grey.width());
    }
    return tiffFile(tags, shared, pixels);
}

/// An XMP packet with properties distinct properties of one node.
inline QByteArray xmpPacket(int properties) {
    QByteArray body;
    for (int i = 0; i < properties; ++i)
        body += "<my:p" + QByteArray::number(i) + ">v</my:p" + QByteArray::number(i) + ">";
    return "<?xpacket begin=\"\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?><x:xmpmeta "
           "xmlns:x=\"adobe:ns:meta/\">"
           "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description "
           "rdf:about=\"\" xmlns:my=\"http://example.com/my/1.0/\" "
           "xmlns:dc=\"http://purl.org/dc/elements/1.1/\"><dc:title>kept</dc:title>" +
           body + "</rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end=\"w\"?>";
}

/// An iTXt chunk holding an XMP packet.
inline QByteArray pngXmp(const QByteArray& packet) {
    return pngChunk("iTXt", QByteArray("XML:com.adobe.xmp\0\0\0\0\0", 22) + packet);
}

} // namespace clarovi::testing
