#include "image_bridge.h"

#include <QSysInfo>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>

namespace clarovi::engine {

namespace {

// Pictures are held as premultiplied ARGB32: Qt paints it fastest, and on a little-endian machine
// its bytes lie in memory as blue, green, red, alpha with the colour already composited over
// black, which is the colour matrix layout except for the fourth byte.
constexpr QImage::Format kPictureFormat = QImage::Format_ARGB32_Premultiplied;
static_assert(QSysInfo::ByteOrder == QSysInfo::LittleEndian,
              "the colour matrix layout assumes little-endian ARGB32 pixels");

/// image as blue, green, red, alpha bytes over black; shares image's bytes when it is in such a
/// format already (RGB32 is the same layout with alpha 255).
QImage premultiplied(const QImage& image) {
    if (image.format() == kPictureFormat || image.format() == QImage::Format_RGB32)
        return image;
    return image.convertToFormat(kPictureFormat);
}

/// A matrix header over image's pixels, no copy. Only read through, or written to on an image
/// this file has just allocated.
cv::Mat wrap(const QImage& image, int type) {
    return {image.height(), image.width(), type, const_cast<uchar*>(image.constBits()),
            static_cast<size_t>(image.bytesPerLine())};
}

/// Bicubic overshoot can leave a colour above its alpha, which is not a valid premultiplied pixel.
void clampToAlpha(cv::Mat& bgra) {
    for (int y = 0; y < bgra.rows; ++y) {
        auto* row = bgra.ptr<cv::Vec4b>(y);
        for (int x = 0; x < bgra.cols; ++x) {
            const uchar alpha = row[x][3];
            for (int c = 0; c < 3; ++c)
                row[x][c] = std::min(row[x][c], alpha);
        }
    }
}

} // namespace

cv::Mat CVMat(const QImage& image) {
    if (image.isNull())
        return {};
    cv::Mat mat;
    cv::bitwise_or(wrap(premultiplied(image), CV_8UC4), cv::Scalar(0, 0, 0, 255), mat);
    return mat;
}

cv::Mat CVGrayscaleMat(const QImage& image) {
    if (image.isNull())
        return {};
    if (image.format() == QImage::Format_Grayscale8)
        return wrap(image, CV_8UC1).clone();
    cv::Mat grey;
    cv::cvtColor(wrap(premultiplied(image), CV_8UC4), grey, cv::COLOR_BGRA2GRAY);
    return grey;
}

QImage imageWithCVMat(const cv::Mat& mat) {
    if (mat.empty())
        return {};
    QImage::Format format = QImage::Format_Invalid;
    if (mat.dims == 2 && mat.depth() == CV_8U) {
        switch (mat.channels()) {
        case 1:
            format = QImage::Format_Grayscale8;
            break;
        case 3:
            format = QImage::Format_RGB888;
            break;
        case 4:
            format = QImage::Format_RGBX8888;
            break;
        default:
            break;
        }
    }
    if (format == QImage::Format_Invalid)
        throw std::invalid_argument("imageWithCVMat: only 8-bit matrices of 1, 3 or 4 channels");

    QImage image(mat.cols, mat.rows, format);
    if (image.isNull())
        throw std::bad_alloc();
    // One copy straight into the image's own rows, which also handles a matrix with gaps between
    // its rows. RGBX8888 requires the X byte to be 255, and the matrix's fourth byte is no data.
    cv::Mat bits = wrap(image, mat.type());
    if (mat.channels() == 4)
        cv::bitwise_or(mat, cv::Scalar(0, 0, 0, 255), bits);
    else
        mat.copyTo(bits);
    return image;
}

QImage imageWithImage(const QImage& image, QSizeF size) {
    if (image.isNull() || !(size.width() >= 1.0 && size.height() >= 1.0))
        return {};
    constexpr double kIntMax = std::numeric_limits<int>::max();
    if (!(size.width() <= kIntMax && size.height() <= kIntMax))
        throw std::invalid_argument("imageWithImage: size out of range");
    const int width = static_cast<int>(size.width());
    const int height = static_cast<int>(size.height());

    if (width == image.width() && height == image.height()) {
        // Nothing to resample: the same pixels in the format every resampled picture has.
        return image.convertToFormat(kPictureFormat);
    }
    QImage result(width, height, kPictureFormat);
    if (result.isNull())
        throw std::bad_alloc();
    // Area averaging when nothing grows (no aliasing on the usual large photograph to 2048),
    // bicubic otherwise.
    const bool shrinks = width <= image.width() && height <= image.height();
    const int interpolation = shrinks ? cv::INTER_AREA : cv::INTER_CUBIC;
    cv::Mat target = wrap(result, CV_8UC4);
    if (image.format() == QImage::Format_Grayscale8) {
        // A grey picture (every restored preview) gives the same bytes resampled as one plane,
        // at a quarter of the work.
        cv::Mat grey;
        cv::resize(wrap(image, CV_8UC1), grey, target.size(), 0, 0, interpolation);
        cv::cvtColor(grey, target, cv::COLOR_GRAY2BGRA);
        return result;
    }
    // Resampled in premultiplied space so that transparent pixels do not bleed their colour.
    const QImage source = premultiplied(image);
    cv::resize(wrap(source, CV_8UC4), target, target.size(), 0, 0, interpolation);
    if (!shrinks && source.hasAlphaChannel())
        clampToAlpha(target);
    return result;
}

QImage flipImage(const QImage& image) {
    if (image.isNull())
        return {};
    return image.mirrored(true, false);
}

} // namespace clarovi::engine
