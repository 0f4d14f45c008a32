#include "tiff_encoder.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace clarovi::files {

namespace {

/// The file libtiff writes, growing as it goes, so that the metadata can be added in memory and
/// the result written to disk at once.
struct MemoryFile {
    QByteArray bytes;
    qint64 position = 0;
};

MemoryFile& fileOf(thandle_t handle) {
    return *static_cast<MemoryFile*>(handle);
}

tmsize_t readMemory(thandle_t handle, void* data, tmsize_t size) {
    MemoryFile& file = fileOf(handle);
    const qint64 count = std::clamp<qint64>(file.bytes.size() - file.position, 0, size);
    std::memcpy(data, file.bytes.constData() + file.position, size_t(count));
    file.position += count;
    return tmsize_t(count);
}

tmsize_t writeMemory(thandle_t handle, void* data, tmsize_t size) {
    MemoryFile& file = fileOf(handle);
    const qint64 end = file.position + size;
    // A seek past the end leaves a gap, which is zeros in a file.
    if (end > file.bytes.size())
        file.bytes.resize(qsizetype(end), '\0');
    std::memcpy(file.bytes.data() + file.position, data, size_t(size));
    file.position = end;
    return size;
}

toff_t seekMemory(thandle_t handle, toff_t offset, int whence) {
    MemoryFile& file = fileOf(handle);
    const qint64 base = whence == SEEK_CUR   ? file.position
                        : whence == SEEK_END ? file.bytes.size()
                                             : 0;
    const qint64 position = base + qint64(offset);
    if (position < 0)
        return toff_t(-1);
    file.position = position;
    return toff_t(position);
}

toff_t sizeOfMemory(thandle_t handle) {
    return toff_t(fileOf(handle).bytes.size());
}

int closeMemory(thandle_t) {
    return 0;
}

int mapNothing(thandle_t, void**, toff_t*) {
    return 0; // libtiff then reads through readMemory
}

void unmapNothing(thandle_t, void*, toff_t) {}

int keepError(TIFF*, void* error, const char*, const char* format, va_list arguments) {
    *static_cast<QString*>(error) = QString::vasprintf(format, arguments);
    return 1;
}

// libtiff's default handler would print its warnings; a picture written here has none worth one.
int ignoreWarning(TIFF*, void*, const char*, const char*, va_list) {
    return 1;
}

struct SampleLayout {
    uint16_t channels = 3;
    uint16_t bits = 8;
};

SampleLayout layoutOf(QImage::Format format) {
    switch (format) {
    case QImage::Format_Grayscale8:
        return {1, 8};
    case QImage::Format_Grayscale16:
        return {1, 16};
    case QImage::Format_ARGB32:
        return {4, 8};
    case QImage::Format_RGBX64:
        return {3, 16};
    case QImage::Format_RGBA64:
        return {4, 16};
    default:
        return {3, 8};
    }
}

bool setFields(TIFF* tiff, const QImage& image, SampleLayout layout) {
    const bool grey = layout.channels == 1;
    bool set =
        TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, uint32_t(image.width())) &&
        TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, uint32_t(image.height())) &&
        TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, layout.bits) &&
        TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, layout.channels) &&
        TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB) &&
        TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE) &&
        TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) &&
        TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0)) &&
        TIFFSetField(tiff, TIFFTAG_SOFTWARE, "Clarovi");
    if (set && layout.channels == 4) {
        const uint16_t alpha[] = {EXTRASAMPLE_UNASSALPHA};
        set = TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, uint16_t(1), alpha);
    }
    return set;
}

/// Writes image row by row, each turned into rowLength samples of the file by toSamples.
template <typename Sample, typename ToSamples>
bool writeRows(TIFF* tiff, const QImage& image, size_t rowLength, ToSamples toSamples) {
    // A row of its own even where the samples are the image's: the predictor works in place.
    std::vector<Sample> row(rowLength);
    for (int y = 0; y < image.height(); ++y) {
        toSamples(image.constScanLine(y), row.data());
        if (TIFFWriteScanline(tiff, row.data(), uint32_t(y), 0) != 1)
            return false;
    }
    return true;
}

bool writePixels(TIFF* tiff, const QImage& image, SampleLayout layout) {
    const int width = image.width();
    const size_t rowLength = size_t(width) * layout.channels;
    const bool alpha = layout.channels == 4;
    if (layout.channels == 1) {
        const size_t bytes = rowLength * layout.bits / 8;
        return writeRows<uchar>(tiff, image, bytes, [bytes](const uchar* line, uchar* row) {
            std::memcpy(row, line, bytes);
        });
    }
    if (layout.bits == 16)
        return writeRows<quint16>(tiff, image, rowLength,
                                  [width, alpha](const uchar* line, quint16* row) {
                                      const auto* pixels = reinterpret_cast<const QRgba64*>(line);
                                      for (int x = 0; x < width; ++x) {
                                          *row++ = pixels[x].red();
                                          *row++ = pixels[x].green();
                                          *row++ = pixels[x].blue();
                                          if (alpha)
                                              *row++ = pixels[x].alpha();
                                      }
                                  });
    return writeRows<uchar>(tiff, image, rowLength, [width, alpha](const uchar* line, uchar* row) {
        const auto* pixels = reinterpret_cast<const QRgb*>(line);
        for (int x = 0; x < width; ++x) {
            *row++ = uchar(qRed(pixels[x]));
            *row++ = uchar(qGreen(pixels[x]));
            *row++ = uchar(qBlue(pixels[x]));
            if (alpha)
                *row++ = uchar(qAlpha(pixels[x]));
        }
    });
}

bool writeTiff(const QImage& image, MemoryFile& file, QString& error) {
    const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(
        TIFFOpenOptionsAlloc(), &TIFFOpenOptionsFree);
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), &keepError, &error);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), &ignoreWarning, nullptr);
    const std::unique_ptr<TIFF, decltype(&TIFFClose)> tiff(
        TIFFClientOpenExt("export", "w", &file, &readMemory, &writeMemory, &seekMemory,
                          &closeMemory, &sizeOfMemory, &mapNothing, &unmapNothing, options.get()),
        &TIFFClose);
    const SampleLayout layout = layoutOf(image.format());
    return tiff && setFields(tiff.get(), image, layout) && writePixels(tiff.get(), image, layout) &&
           TIFFWriteDirectory(tiff.get());
}

bool hasSamplesOfItsOwn(QImage::Format format) {
    switch (format) {
    case QImage::Format_Grayscale8:
    case QImage::Format_Grayscale16:
    case QImage::Format_RGB32:
    case QImage::Format_ARGB32:
    case QImage::Format_RGBX64:
    case QImage::Format_RGBA64:
        return true;
    default:
        return false;
    }
}

} // namespace

EncodedFile encodeTiff(const QImage& image) {
    if (!hasSamplesOfItsOwn(image.format()))
        return encodeTiff(image.convertToFormat(image.hasAlphaChannel() ? QImage::Format_RGBA64
                                                                        : QImage::Format_RGBX64));
    MemoryFile file;
    QString error;
    if (!writeTiff(image, file, error))
        return {{}, error.isEmpty() ? QStringLiteral("libtiff could not write it") : error};
    return {file.bytes, {}};
}

} // namespace clarovi::files
