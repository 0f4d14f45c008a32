#pragma once

#include <QImage>
#include <QSizeF>
#include <opencv2/core.hpp>

namespace clarovi::engine {

// A QImage's size in points is its size in pixels; a null QImage stands for "no picture".

/// Colour matrix of image: CV_8UC4, channels blue, green, red, X (X = 255, no picture data).
/// Transparent pixels are composited over black. A null image gives an empty matrix.
cv::Mat CVMat(const QImage& image);

/// Grey matrix of image: CV_8UC1 with Rec. 601 luminance weights (0.299 R + 0.587 G + 0.114 B,
/// as OpenCV's BGR2GRAY), transparent pixels composited over black. Null image: empty matrix.
cv::Mat CVGrayscaleMat(const QImage& image);

/// Image of an 8-bit matrix: 1 channel grey, 3 channels red-green-blue, 4 channels
/// red-green-blue-X (the fourth byte ignored, the image opaque). A non-continuous matrix is copied
/// first; an empty matrix gives a null image. Other depths or channel counts throw.
QImage imageWithCVMat(const cv::Mat& mat);

/// image resampled to trunc(size.width) x trunc(size.height) pixels, stretched (the aspect ratio
/// is not kept): area averaging where both sides shrink, bicubic otherwise. RGBA premultiplied.
/// A null source, or a size below one pixel, gives a null image.
QImage imageWithImage(const QImage& image, QSizeF size);

/// image mirrored left to right, same size and format. Null gives null.
QImage flipImage(const QImage& image);

} // namespace clarovi::engine
