#include "png_reader.h"

#include "picture_file.h"

#include <QColorSpace>
#include <QPointF>

#include <png.h>

#include <climits>
#include <csetjmp>
#include <vector>

namespace clarovi::files {

namespace {

void readFromDevice(png_structp png, png_bytep data, size_t length) {
    auto* device = static_cast<QIODevice*>(png_get_io_ptr(png));
    while (length > 0) {
        const qint64 read = device->read(reinterpret_cast<char*>(data), qint64(length));
        if (read <= 0)
            png_error(png, "the file ends inside the picture");
        data += read;
        length -= size_t(read);
    }
}

// libpng's own handlers print to the standard error stream, which a program that prints one line
// per failure must keep to itself; these pass the words on as decoder messages.
[[noreturn]] void onError(png_structp png, png_const_charp message) {
    qCWarning(lcDecoder, "libpng: %s", message);
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp message) {
    qCWarning(lcDecoder, "libpng: %s", message);
}

// The steps that can fail run libpng alone under its error handler, with no C++ object in their
// frames for the jump back to skip.
bool readInfo(png_structp png, png_infop info) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_info(png, info);
    return true;
}

bool updateInfo(png_structp png, png_infop info) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    return true;
}

bool readRows(png_structp png, png_bytepp rows) {
    if (setjmp(png_jmpbuf(png)))
        return false;
    png_read_image(png, rows);
    return true;
}

class PngStruct {
  public:
    PngStruct()
        : m_png(png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, &onError, &onWarning)),
          m_info(m_png ? png_create_info_struct(m_png) : nullptr) {}
    ~PngStruct() { png_destroy_read_struct(&m_png, &m_info, nullptr); }
    PngStruct(const PngStruct&) = delete;
    PngStruct& operator=(const PngStruct&) = delete;
    png_structp png() const { return m_png; }
    png_infop info() const { return m_info; }
    bool has(png_uint_32 chunk) const { return png_get_valid(m_png, m_info, chunk) != 0; }

  private:
    png_structp m_png;
    png_infop m_info;
};

/// A palette, or the shades of a grey picture of up to 8 bits with a transparent one.
QList<QRgb> colourTable(const PngStruct& s, int colourType, int depth) {
    png_bytep alpha = nullptr;
    int alphas = 0;
    png_color_16p shade = nullptr;
    png_get_tRNS(s.png(), s.info(), &alpha, &alphas, &shade);
    QList<QRgb> table;
    if (colourType == PNG_COLOR_TYPE_PALETTE) {
        png_colorp palette = nullptr;
        int entries = 0;
        png_get_PLTE(s.png(), s.info(), &palette, &entries);
        for (int i = 0; i < entries; ++i)
            table << qRgba(palette[i].red, palette[i].green, palette[i].blue,
                           alpha && i < alphas ? alpha[i] : 255);
        return table;
    }
    const int shades = 1 << depth;
    for (int i = 0; i < shades; ++i) {
        const int grey = i * 255 / (shades - 1);
        table << qRgba(grey, grey, grey, shade && shade->gray == i ? 0 : 255);
    }
    return table;
}

/// Sets libpng's transformations for the picture and returns the format its rows then have.
QImage::Format transformFor(const PngStruct& s, int colourType, int depth) {
    png_structp png = s.png();
    const bool transparentShade = s.has(PNG_INFO_tRNS);
    if (colourType == PNG_COLOR_TYPE_PALETTE ||
        (colourType == PNG_COLOR_TYPE_GRAY && depth <= 8 && transparentShade)) {
        png_set_packing(png); // an index a byte
        return QImage::Format_Indexed8;
    }
    if (Q_BYTE_ORDER == Q_LITTLE_ENDIAN && depth == 16)
        png_set_swap(png);
    if (colourType == PNG_COLOR_TYPE_GRAY && !transparentShade) {
        if (depth == 16)
            return QImage::Format_Grayscale16;
        png_set_expand_gray_1_2_4_to_8(png);
        return QImage::Format_Grayscale8;
    }
    if (!(colourType & PNG_COLOR_MASK_COLOR))
        png_set_gray_to_rgb(png);
    const bool alpha = (colourType & PNG_COLOR_MASK_ALPHA) || transparentShade;
    if (transparentShade)
        png_set_tRNS_to_alpha(png);
    if (depth == 16) {
        if (!alpha)
            png_set_filler(png, 0xffff, PNG_FILLER_AFTER);
        return alpha ? QImage::Format_RGBA64 : QImage::Format_RGBX64;
    }
    // Qt's 32-bit formats are 0xAARRGGBB words.
    if (Q_BYTE_ORDER == Q_LITTLE_ENDIAN)
        png_set_bgr(png);
    if (!alpha)
        png_set_filler(png, 0xff,
                       Q_BYTE_ORDER == Q_LITTLE_ENDIAN ? PNG_FILLER_AFTER : PNG_FILLER_BEFORE);
    else if (Q_BYTE_ORDER == Q_BIG_ENDIAN)
        png_set_swap_alpha(png);
    return alpha ? QImage::Format_ARGB32 : QImage::Format_RGB32;
}

/// The colour space the file's sRGB chunk, or its gamma (and chromaticities), describe; none when
/// it says nothing or what it says cannot be used. A profile is not read here: it is the export's
/// to copy as the file holds it.
QColorSpace colourSpaceOf(const PngStruct& s) {
    if (s.has(PNG_INFO_sRGB))
        return QColorSpace::SRgb;
    double gamma = 0;
    if (!s.has(PNG_INFO_gAMA) || !png_get_gAMA(s.png(), s.info(), &gamma) || gamma <= 0)
        return {};
    double wx = 0, wy = 0, rx = 0, ry = 0, gx = 0, gy = 0, bx = 0, by = 0;
    if (s.has(PNG_INFO_cHRM) &&
        png_get_cHRM(s.png(), s.info(), &wx, &wy, &rx, &ry, &gx, &gy, &bx, &by)) {
        const QColorSpace space(QPointF(wx, wy), QPointF(rx, ry), QPointF(gx, gy), QPointF(bx, by),
                                QColorSpace::TransferFunction::Gamma, float(1.0 / gamma));
        if (space.isValid())
            return space;
    }
    return QColorSpace(QColorSpace::Primaries::SRgb, QColorSpace::TransferFunction::Gamma,
                       float(1.0 / gamma));
}

void setResolution(const PngStruct& s, QImage& image) {
    png_uint_32 x = 0, y = 0;
    int unit = 0;
    if (png_get_pHYs(s.png(), s.info(), &x, &y, &unit) && unit == PNG_RESOLUTION_METER && x > 0 &&
        y > 0 && x <= INT_MAX && y <= INT_MAX) {
        image.setDotsPerMeterX(int(x));
        image.setDotsPerMeterY(int(y));
    }
}

} // namespace

DecodedPng decodePng(QIODevice& device, qint64 mostBytes) {
    const PngStruct s;
    if (!s.info())
        return {};
    png_set_read_fn(s.png(), &device, &readFromDevice);
    png_set_benign_errors(s.png(), 1);
    if (!readInfo(s.png(), s.info()))
        return {};
    png_uint_32 width = 0, height = 0;
    int depth = 0, colourType = 0;
    png_get_IHDR(s.png(), s.info(), &width, &height, &depth, &colourType, nullptr, nullptr,
                 nullptr);
    const QImage::Format format = transformFor(s, colourType, depth);
    if (!updateInfo(s.png(), s.info()))
        return {};
    const QSize size{int(width), int(height)};
    const qint64 rowBytes = qint64(png_get_rowbytes(s.png(), s.info()));
    if (qint64(QImage::toPixelFormat(format).bitsPerPixel()) * width / 8 < rowBytes)
        return {}; // libpng's rows would not fit the picture's
    if (rowBytes * qint64(height) > mostBytes)
        return {{}, true};
    QImage image(size, format);
    if (image.isNull()) // not enough memory
        return {{}, true};
    std::vector<png_bytep> rows(height);
    for (png_uint_32 y = 0; y < height; ++y)
        rows[y] = image.scanLine(int(y));
    if (!readRows(s.png(), rows.data()))
        return {};
    if (format == QImage::Format_Indexed8) {
        const QList<QRgb> table = colourTable(s, colourType, depth);
        if (table.isEmpty())
            return {};
        image.setColorTable(table);
        // An index past the palette reads as its first colour.
        for (int y = 0; y < image.height(); ++y)
            for (uchar *p = image.scanLine(y), *end = p + image.width(); p < end; ++p)
                if (*p >= table.size())
                    *p = 0;
    }
    image.setColorSpace(colourSpaceOf(s));
    setResolution(s, image);
    return {image, false};
}

} // namespace clarovi::files
