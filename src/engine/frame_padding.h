#pragma once

#include "fourier_plane.h"

#include <opencv2/core.hpp>

#include <functional>

// Internal to the engine: the canvas a plane is restored on, and what lies around the plane in it.
namespace clarovi::engine {

/// Where a plane sits in the canvas it is restored on.
struct CanvasLayout {
    cv::Size canvas;
    cv::Rect plane;
};

/// The canvas for a plane of the given size with at least margin pixels on each side: each side
/// grown to a length FFTW transforms fast (2^a 3^b 5^c), the plane in the middle.
CanvasLayout canvasLayout(cv::Size plane, int margin);

/// Writes plane * scale (one channel, 8 or 16 bits or float) into canvas at layout.plane and fills
/// the rest with a continuation that has no step anywhere, across the canvas's own edges
/// included, which the transforms see as joined: along each axis the gap between the plane's
/// last and first line holds the plane mirrored at both, cross-faded by a raised cosine. A step
/// there would ring through the whole restoration; a mirror keeps the texture and the level that
/// the blur carried over the frame.
void fillCanvas(const cv::Mat& plane, double scale, const CanvasLayout& layout,
                SpectralPlane& canvas, int threads);

/// Calls visit(row, firstColumn, endColumn) for each run of canvas pixels outside the plane, row
/// by row from the top, left run before right run.
void forEachFrameRun(const CanvasLayout& layout, const std::function<void(int, int, int)>& visit);

} // namespace clarovi::engine
