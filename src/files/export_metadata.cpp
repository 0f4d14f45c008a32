#include "export_metadata.h"

#include "exif_copy.h"
#include "file_structure.h"
#include "metadata_limits.h"

#include <QBuffer>
#include <QFileInfo>
#include <QtEndian>

#include <exiv2/exiv2.hpp>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <mutex>

namespace clarovi::files {

Q_LOGGING_CATEGORY(lcMetadata, "clarovi.metadata", QtCriticalMsg)

namespace {

/// A block's bytes, or why they cannot be had.
struct Bytes {
    QByteArray bytes;
    QString problem;
};

QString tooLarge(qint64 bytes, qint64 most) {
    return QStringLiteral("it holds %1 bytes or more, more than the %2 the export copies")
        .arg(bytes)
        .arg(most);
}

QString damagedData() {
    return QStringLiteral("it is damaged");
}

/// data inflated by zlib, refused as soon as it passes most bytes.
Bytes inflated(const QByteArray& data, qint64 most) {
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK)
        return {{}, damagedData()};
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.constData()));
    stream.avail_in = uInt(data.size());
    QByteArray out;
    int result = Z_OK;
    while (result == Z_OK && out.size() <= most) {
        const qsizetype done = out.size();
        out.resize(std::min<qsizetype>(done + (1 << 16), qsizetype(most) + 1));
        stream.next_out = reinterpret_cast<Bytef*>(out.data() + done);
        stream.avail_out = uInt(out.size() - done);
        result = inflate(&stream, Z_NO_FLUSH);
        out.resize(out.size() - qsizetype(stream.avail_out));
    }
    inflateEnd(&stream);
    if (out.size() > most)
        return {{}, tooLarge(out.size(), most)};
    if (result != Z_STREAM_END)
        return {{}, damagedData()};
    return {out, {}};
}

/// The data of a "Raw profile type" text: a line with its kind, a line with its length, then
/// hexadecimal digits over many lines.
Bytes fromRawProfile(const QByteArray& text, qint64 most) {
    const QList<QByteArray> lines = text.trimmed().split('\n');
    if (lines.size() < 3)
        return {{}, damagedData()};
    bool ok = false;
    const qint64 length = lines[1].trimmed().toLongLong(&ok);
    if (!ok || length < 0)
        return {{}, damagedData()};
    if (length > most)
        return {{}, tooLarge(length, most)};
    QByteArray digits;
    for (qsizetype k = 2; k < lines.size(); ++k)
        digits += lines[k].trimmed();
    const QByteArray bytes = QByteArray::fromHex(digits);
    if (bytes.size() < length)
        return {{}, damagedData()};
    return {bytes.left(length), {}};
}

/// The blocks of a kind read and joined, each inflated or decoded as it is stored.
Bytes readBlocks(QIODevice& device, const std::vector<MetadataBlock>& blocks, MetadataKind kind,
                 qint64 most) {
    const Fields file(device);
    QByteArray joined;
    for (const MetadataBlock& block : blocks) {
        if (block.kind != kind)
            continue;
        // Text in hexadecimal takes two digits a byte, and deflated data may be smaller.
        const qint64 stored = block.rawProfile ? 2 * most + 4096 : most;
        if (block.size > stored)
            return {{}, tooLarge(block.size, stored)};
        Bytes piece{file.at(block.offset, block.size), {}};
        if (block.deflated)
            piece = inflated(piece.bytes, stored);
        if (piece.problem.isEmpty() && block.rawProfile)
            piece = fromRawProfile(piece.bytes, most);
        if (!piece.problem.isEmpty())
            return piece;
        joined += piece.bytes;
        if (joined.size() > most)
            return {{}, tooLarge(joined.size(), most)};
    }
    return {joined, {}};
}

/// The copy of the EXIF data: read where it lies in the file, or from memory when it is stored
/// as text.
ExifCopy readExif(QIODevice& device, const std::vector<MetadataBlock>& blocks, bool turned) {
    const auto found = std::find_if(blocks.begin(), blocks.end(), [](const MetadataBlock& b) {
        return b.kind == MetadataKind::Exif;
    });
    if (found == blocks.end())
        return {};
    if (!found->deflated && !found->rawProfile)
        return copyExif(Fields(device, found->offset, found->size), turned);
    Bytes text = readBlocks(device, {*found}, MetadataKind::Exif, kMostExifValueBytes);
    if (!text.problem.isEmpty())
        return {{}, text.problem};
    if (text.bytes.startsWith(QByteArray("Exif\0\0", 6)))
        text.bytes.remove(0, 6);
    QBuffer buffer(&text.bytes);
    buffer.open(QIODevice::ReadOnly);
    return copyExif(Fields(buffer), turned);
}

/// The IPTC records in Photoshop's image resources, joined.
QByteArray iptcInPhotoshop(const QByteArray& resources) {
    QByteArray iptc;
    const auto* begin = reinterpret_cast<const Exiv2::byte*>(resources.constData());
    const auto* end = begin + resources.size();
    const Exiv2::byte* record = nullptr;
    uint32_t header = 0, size = 0;
    for (const Exiv2::byte* at = begin;
         at < end &&
         Exiv2::Photoshop::locateIptcIrb(at, long(end - at), &record, &header, &size) == 0;
         at = record + header + size + (size & 1))
        iptc.append(reinterpret_cast<const char*>(record + header), qsizetype(size));
    return iptc;
}

Bytes readIptc(QIODevice& device, const std::vector<MetadataBlock>& blocks) {
    Bytes iptc = readBlocks(device, blocks, MetadataKind::Iptc, kMostIptcBytes);
    if (!iptc.problem.isEmpty() || !iptc.bytes.isEmpty())
        return iptc;
    const Bytes resources = readBlocks(device, blocks, MetadataKind::Photoshop, kMostIptcBytes);
    if (!resources.problem.isEmpty())
        return resources;
    return {iptcInPhotoshop(resources.bytes), {}};
}

QString note(const QString& name, const char* what, const QString& why) {
    return QStringLiteral("\u201c%1\u201d was exported without its %2: %3.")
        .arg(name, QLatin1String(what), why);
}

void routeExiv2Message(int level, const char* text) {
    const QString message = QString::fromLocal8Bit(text).trimmed();
    if (level >= Exiv2::LogMsg::warn)
        qCWarning(lcMetadata).noquote() << message;
    else
        qCDebug(lcMetadata).noquote() << message;
}

/// exiv2 prints to the standard error stream unless told otherwise, and its XMP toolkit must be
/// set up before threads use it.
void prepareExiv2() {
    static std::once_flag prepared;
    std::call_once(prepared, [] {
        Exiv2::LogMsg::setHandler(&routeExiv2Message);
        Exiv2::XmpParser::initialize();
    });
}

void setIfPresent(Exiv2::ExifData& exif, const char* key, long value) {
    const auto found = exif.findKey(Exiv2::ExifKey(key));
    if (found != exif.end())
        found->setValue(std::to_string(value));
}

void setIfPresent(Exiv2::XmpData& xmp, const char* key, long value) {
    const auto found = xmp.findKey(Exiv2::XmpKey(key));
    if (found != xmp.end())
        found->setValue(std::to_string(value));
}

/// The target's own EXIF (a TIFF's structure) with the source's copy added, made true of the
/// export.
Exiv2::ExifData exportedExif(const Exiv2::ExifData& target, const QByteArray& copy, QSize size,
                             bool turned) {
    Exiv2::ExifData exif = target;
    if (!copy.isEmpty()) {
        Exiv2::ExifData source;
        Exiv2::ExifParser::decode(source, reinterpret_cast<const Exiv2::byte*>(copy.constData()),
                                  uint32_t(copy.size()));
        // The copy holds no tag of the file's structure, so nothing is there twice.
        for (const Exiv2::Exifdatum& datum : source)
            exif.add(datum);
    }
    if (turned)
        exif["Exif.Image.Orientation"] = uint16_t(1);
    exif["Exif.Image.Software"] = std::string("Clarovi");
    setIfPresent(exif, "Exif.Photo.PixelXDimension", size.width());
    setIfPresent(exif, "Exif.Photo.PixelYDimension", size.height());
    return exif;
}

Exiv2::XmpData exportedXmp(const QByteArray& packet, QSize size, bool turned) {
    Exiv2::XmpData xmp;
    if (Exiv2::XmpParser::decode(xmp, packet.toStdString()) != 0)
        throw Exiv2::Error(Exiv2::kerErrorMessage, "the XMP packet cannot be parsed");
    if (turned)
        setIfPresent(xmp, "Xmp.tiff.Orientation", 1);
    setIfPresent(xmp, "Xmp.tiff.ImageWidth", size.width());
    setIfPresent(xmp, "Xmp.tiff.ImageLength", size.height());
    setIfPresent(xmp, "Xmp.exif.PixelXDimension", size.width());
    setIfPresent(xmp, "Xmp.exif.PixelYDimension", size.height());
    return xmp;
}

Exiv2::IptcData exportedIptc(const QByteArray& records) {
    Exiv2::IptcData iptc;
    if (Exiv2::IptcParser::decode(iptc, reinterpret_cast<const Exiv2::byte*>(records.constData()),
                                  uint32_t(records.size())) != 0)
        throw Exiv2::Error(Exiv2::kerErrorMessage, "the IPTC records cannot be parsed");
    return iptc;
}

/// The parts of the metadata to write.
struct Parts {
    bool exif = false;
    bool xmp = false;
    bool iptc = false;
    QByteArray icc;
};

/// A PNG file with an iCCP chunk of profile after its header. exiv2 writes the chunk with the name
/// the profile was read with, which for a profile it is handed is none, a chunk readers refuse:
/// this one it reads, and writes back as it found it.
QByteArray withPngProfile(const QByteArray& png, const QByteArray& profile) {
    constexpr qsizetype kAfterHeader = 8 + 25; // signature, then IHDR's length, type, data, CRC
    QByteArray compressed(qsizetype(compressBound(uLong(profile.size()))), Qt::Uninitialized);
    uLongf length = uLongf(compressed.size());
    if (compress(reinterpret_cast<Bytef*>(compressed.data()), &length,
                 reinterpret_cast<const Bytef*>(profile.constData()),
                 uLong(profile.size())) != Z_OK)
        throw std::bad_alloc();
    const QByteArray data = QByteArray("ICC profile\0\0", 13) + compressed.left(qsizetype(length));
    QByteArray chunk(4, '\0');
    qToBigEndian(quint32(data.size()), chunk.data());
    chunk += "iCCP" + data;
    const uLong crc =
        crc32(0, reinterpret_cast<const Bytef*>(chunk.constData() + 4), uInt(chunk.size() - 4));
    QByteArray check(4, '\0');
    qToBigEndian(quint32(crc), check.data());
    return png.left(kAfterHeader) + chunk + check + png.mid(kAfterHeader);
}

/// encoded with the parts of metadata written by exiv2; throws what exiv2 throws.
QByteArray written(const QByteArray& encoded, const SourceMetadata& metadata, const Parts& parts,
                   QSize size) {
    const bool png = encoded.startsWith("\x89PNG");
    const QByteArray source =
        png && !parts.icc.isEmpty() ? withPngProfile(encoded, parts.icc) : encoded;
    // Reads source in place; exiv2 writes the result to memory of its own.
    const std::unique_ptr<Exiv2::Image> image = Exiv2::ImageFactory::open(
        reinterpret_cast<const Exiv2::byte*>(source.constData()), long(source.size()));
    image->readMetadata();
    if (parts.exif)
        image->setExifData(exportedExif(image->exifData(), metadata.exif, size, metadata.turned));
    if (parts.xmp)
        image->setXmpData(exportedXmp(metadata.xmp, size, metadata.turned));
    if (parts.iptc)
        image->setIptcData(exportedIptc(metadata.iptc));
    if (!parts.icc.isEmpty() && !png) {
        Exiv2::DataBuf profile(reinterpret_cast<const Exiv2::byte*>(parts.icc.constData()),
                               long(parts.icc.size()));
        image->setIccProfile(profile);
    }
    image->writeMetadata();
    Exiv2::BasicIo& io = image->io();
    if (io.open() != 0)
        throw Exiv2::Error(Exiv2::kerDataSourceOpenFailed, io.path(), "");
    QByteArray result(qsizetype(io.size()), Qt::Uninitialized);
    if (io.read(reinterpret_cast<Exiv2::byte*>(result.data()), long(result.size())) !=
        long(result.size()))
        throw Exiv2::Error(Exiv2::kerFailedToReadImageData);
    return result;
}

QString reasonOf(const std::exception& error) {
    if (dynamic_cast<const std::bad_alloc*>(&error))
        return QStringLiteral("there was not enough memory for it");
    return QStringLiteral("exiv2 could not handle it (%1)")
        .arg(QString::fromLocal8Bit(error.what()).simplified());
}

/// The profile to write for a picture, or none: it must describe the picture's colours.
QByteArray fittingProfile(const SourceMetadata& metadata, bool grey, QStringList& notes) {
    if (metadata.icc.isEmpty())
        return {};
    const QByteArray model = iccColourModel(metadata.icc);
    if (model == (grey ? QByteArray("GRAY") : QByteArray("RGB ")))
        return metadata.icc;
    if (metadata.iccInFile)
        notes << note(metadata.name, "colour profile",
                      QStringLiteral("it describes %1 colours, which a %2 picture does not have")
                          .arg(QString::fromLatin1(model.trimmed()),
                               grey ? QStringLiteral("grey") : QStringLiteral("colour")));
    return {};
}

/// Every kind of metadata into metadata, or a note on why it is left out.
void readKinds(QIODevice& device, const PictureHeader& header, SourceMetadata& metadata) {
    const ExifCopy exif = readExif(device, header.metadata, metadata.turned);
    metadata.exif = exif.tiff;
    if (!exif.problem.isEmpty())
        metadata.notes << note(metadata.name, "EXIF data", exif.problem);
    Bytes xmp = readBlocks(device, header.metadata, MetadataKind::Xmp, kMostXmpBytes);
    if (xmp.problem.isEmpty())
        xmp.problem = xmpProblem(xmp.bytes);
    if (xmp.problem.isEmpty())
        metadata.xmp = xmp.bytes;
    else
        metadata.notes << note(metadata.name, "XMP data", xmp.problem);
    Bytes iptc = readIptc(device, header.metadata);
    if (iptc.problem.isEmpty())
        iptc.problem = iptcProblem(iptc.bytes);
    if (iptc.problem.isEmpty())
        metadata.iptc = iptc.bytes;
    else
        metadata.notes << note(metadata.name, "IPTC data", iptc.problem);
    Bytes icc = readBlocks(device, header.metadata, MetadataKind::Icc, kMostIccBytes);
    if (icc.problem.isEmpty() && !icc.bytes.isEmpty())
        icc.problem = iccProblem(icc.bytes);
    if (icc.problem.isEmpty())
        metadata.icc = icc.bytes;
    else
        metadata.notes << note(metadata.name, "colour profile", icc.problem);
}

} // namespace

SourceMetadata readSourceMetadata(QIODevice& device, const PictureHeader& header,
                                  const QString& name, bool turned) {
    SourceMetadata metadata;
    metadata.name = QFileInfo(name).fileName();
    metadata.turned = turned;
    try {
        readKinds(device, header, metadata);
    } catch (const std::exception& error) { // lack of memory, or exiv2's tag tables
        metadata = {{}, {}, {}, {}, true, turned, metadata.name, {}};
        metadata.notes << note(metadata.name, "metadata", reasonOf(error));
    }
    return metadata;
}

QByteArray withMetadata(const QByteArray& encoded, const SourceMetadata& metadata, QSize size,
                        bool grey, QStringList& notes) {
    const Parts all{!metadata.exif.isEmpty(), !metadata.xmp.isEmpty(), !metadata.iptc.isEmpty(),
                    fittingProfile(metadata, grey, notes)};
    if (!all.exif && !all.xmp && !all.iptc && all.icc.isEmpty())
        return encoded;
    prepareExiv2();
    // Software and, when turned, the orientation go in EXIF data of its own when the photograph
    // has none.
    Parts whole = all;
    whole.exif = true;
    try {
        return written(encoded, metadata, whole, size);
    } catch (const std::exception& error) {
        qCWarning(lcMetadata).noquote() << "Writing all the metadata failed:" << error.what();
    }
    // One part at a time, each kept only when it can be written.
    QByteArray result = encoded;
    const std::pair<const char*, Parts> singles[] = {
        {"colour profile", {false, false, false, all.icc}},
        {"EXIF data", {all.exif, false, false, {}}},
        {"XMP data", {false, all.xmp, false, {}}},
        {"IPTC data", {false, false, all.iptc, {}}}};
    for (const auto& [what, part] : singles) {
        if (!part.exif && !part.xmp && !part.iptc && part.icc.isEmpty())
            continue;
        try {
            result = written(result, metadata, part, size);
        } catch (const std::exception& error) {
            notes << note(metadata.name, what, reasonOf(error));
        }
    }
    return result;
}

} // namespace clarovi::files
