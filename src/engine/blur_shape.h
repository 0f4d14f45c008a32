#pragma once

#include "blur_estimate.h"

#include <opencv2/core.hpp>

namespace clarovi::engine {

/// A blur as it lies on a picture, in that picture's pixels (x right, y down): a disk, which turns
/// into an axis-aligned ellipse where a picture is stretched more one way than the other, or a
/// straight line.
struct BlurShape {
    BlurKind kind = BlurKind::OutOfFocus;
    /// Out of focus: the disk's width and height. Motion: the line from one end to the other.
    cv::Point2d extent;

    /// The same blur on the picture stretched by sx across and sy down.
    BlurShape stretched(double sx, double sy) const;
};

/// The shape MakePsfD draws from length and angle: a disk of diameter length, or a line of
/// length * sqrt(2) at 45 - angle degrees counter-clockwise from the x axis.
BlurShape shapeOf(BlurKind kind, double length, double angle);

/// MakePsfD's length and angle for a shape on an unstretched picture: a line's length / sqrt(2)
/// and its angle in (-90, 90]; a disk's width and angle 0.
struct PsfArguments {
    double length = 0;
    double angle = 0;
};
PsfArguments psfArgumentsOf(const BlurShape& shape);

/// The k-th zero (k from 1) of the Bessel function J_nu by McMahon's expansion: within 1e-3 from
/// the third zero on.
double besselZero(double nu, int k);

/// The k-th zero (k from 1) of the Bessel function J1: a disk of diameter d blurs away the
/// frequencies on the ring of radius besselJ1Zero(k) / (pi d) cycles per pixel.
double besselJ1Zero(int k);

} // namespace clarovi::engine
