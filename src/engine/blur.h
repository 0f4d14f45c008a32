#pragma once

#include <opencv2/core.hpp>

#include <memory>

namespace clarovi::engine {

/// Out of focus: a disk. Motion: a straight streak. Shake: a free-form kernel, the path of a
/// shaken camera (loaded from a picture or estimated).
enum class BlurKind { OutOfFocus, Motion, Shake };

/// The longer side, in pixels, of the photograph as every blur is measured on it: a blur's
/// lengths are in pixels of the photograph brought to this size ("working pixels"), whatever
/// size the photograph has and whatever copy of it is restored.
inline constexpr int kWorkingSide = 2048;

/// How many pixels of a copy of the photograph one working pixel is: the copy's longer side over
/// kWorkingSide (0.5 for the 1024-pixel preview copy, 3 for a 6144 x 4096 photograph).
double workingScale(cv::Size copy);

/// The pixels of another copy that a rectangle of one touches: its edges scaled by sx across and
/// sy down, rounded outwards, so that nothing of it is left out.
cv::Rect scaledOutwards(const cv::Rect& r, double sx, double sy);

/// A blur as it lies on the photograph, in working pixels, whichever way the photograph is shaped.
struct BlurOnPhoto {
    BlurKind kind = BlurKind::OutOfFocus;
    double length = 0; ///< a disk's diameter, or a streak's length from end to end
    double angle = 0;  ///< a streak's direction, degrees counter-clockwise from horizontal
    double width = 1;  ///< a streak's thickness
    /// A shake's kernel in working pixels: CV_32F, odd square, centred on its centre of mass,
    /// summing to 1; shared, never changed. Its larger side is the shake's length.
    std::shared_ptr<const cv::Mat> kernel = {};

    /// The streak from one end to the other in picture coordinates (x right, y down); for a disk,
    /// its diameter on both axes; for a shake, its kernel's width and height.
    cv::Point2d extent() const;
    /// The same streak with its angle in (-90, 90]: a streak has no head, so angle and
    /// angle + 180 are one blur. A disk's or a shake's angle is 0.
    BlurOnPhoto normalised() const;
    /// A shake of kernel (see `kernel`), its length the kernel's larger side.
    static BlurOnPhoto shake(std::shared_ptr<const cv::Mat> kernel);
    bool operator==(const BlurOnPhoto&) const = default;
};

} // namespace clarovi::engine
