#include "grey_png.h"

#include <png.h>
#include <zlib.h>

#include <new>

namespace clarovi::files {

namespace {

void appendBytes(png_structp png, png_bytep data, png_size_t length) {
    auto* bytes = static_cast<QByteArray*>(png_get_io_ptr(png));
    try {
        bytes->append(reinterpret_cast<const char*>(data), qsizetype(length));
    } catch (const std::bad_alloc&) {
        png_error(png, "out of memory");
    }
}

void flushNothing(png_structp) {}

// libpng's own messages would reach stderr; a failure shows as an empty result instead.
void ignoreMessage(png_structp, png_const_charp) {}

[[noreturn]] void stop(png_structp png, png_const_charp) {
    png_longjmp(png, 1);
}

} // namespace

QByteArray encodeGreyPng(const QImage& picture) {
    if (picture.isNull())
        return {};
    const QImage grey = picture.convertToFormat(QImage::Format_Grayscale8);
    QByteArray bytes;
    // Stored, the file is the picture plus a byte a row and a little framing: one allocation.
    bytes.reserve(qsizetype(grey.height()) * (grey.width() + 1) + 1024);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, stop, ignoreMessage);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) {
        png_destroy_write_struct(&png, nullptr);
        return {};
    }
    // Only C calls between here and the end: a failure jumps back here past no C++ object.
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return {};
    }
    png_set_write_fn(png, &bytes, appendBytes, flushNothing);
    png_set_IHDR(png, info, png_uint_32(grey.width()), png_uint_32(grey.height()), 8,
                 PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_NONE);
    png_set_compression_level(png, Z_NO_COMPRESSION);
    png_write_info(png, info);
    for (int y = 0; y < grey.height(); ++y)
        png_write_row(png, grey.constScanLine(y));
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return bytes;
}

} // namespace clarovi::files
