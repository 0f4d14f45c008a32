#pragma once

#include <QImage>
#include <QString>
#include <opencv2/core.hpp>

namespace clarovi::engine {

/// The largest side, in pixels, of a kernel picture kernelFromPicture accepts: more than twice
/// the largest shake the window looks for, and small enough that a mistaken photograph is refused
/// rather than taken for a blur.
inline constexpr int kLargestKernelPicture = 255;

/// A free-form kernel from weights (one channel, any depth): what is not positive is dropped, and
/// the rest is cut to the smallest square with odd sides whose centre pixel is the weights'
/// centre of mass rounded to the nearest pixel, scaled to sum 1, as CV_32F. Weights with nothing
/// positive give an empty matrix.
cv::Mat centredKernel(const cv::Mat& weights);

/// The kernel a grey picture of a blur (a saved kernel, or a star or bright point cut from a
/// photograph) draws: its grey levels (colour read as luminance, transparency over black) less
/// the background around the frame, as centredKernel shapes them. The background is the median of
/// the frame's outermost pixels plus five times their noise, and only where it is under half the
/// brightest level: a kernel that fills its frame keeps its own edges. A null picture, one larger
/// than kLargestKernelPicture on a side, or one with nothing above the background gives an empty
/// matrix, and *error (when given) says why in one sentence.
cv::Mat kernelFromPicture(const QImage& picture, QString* error = nullptr);

/// The picture kernel (one channel, non-negative) is saved as: 8-bit grey, the kernel's largest
/// weight white and the others in proportion, rounded to the nearest level. An empty or all-zero
/// kernel gives a null image.
QImage kernelPicture(const cv::Mat& kernel);

} // namespace clarovi::engine
