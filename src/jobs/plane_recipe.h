#pragma once

#include "setting.h"

#include <opencv2/core.hpp>

#include <functional>
#include <vector>

namespace clarovi::jobs {

/// How a long job reports how far it is (0 to 1) and learns that it should stop. Either may be
/// empty; both may be called from any thread.
struct JobControl {
    std::function<void(double)> progress;
    std::function<bool()> cancelled;
};

/// How the planes of one copy of the photograph are restored. Every restoration of the program
/// (the live preview, the full preview, the colour one, the thumbnails of a search and the
/// full-size export) is this one recipe; they differ only in these values.
struct PlaneRecipe {
    /// Pixels of the planes per working pixel (engine::workingScale of the copy): the blur set on
    /// the photograph is drawn at this scale.
    double scale = 1.0;
    /// Threads the planes and their tiles are restored on; 0 for as many as the machine has.
    int threads = 0;
    /// The side of a tile's core: a plane no larger than a core and the overlap it needs is
    /// restored whole. 2048 restores a working copy whole and keeps a tile's buffers near 150 MiB.
    int tileCore = 2048;
};

/// Restores planes (one channel each, CV_8U or CV_16U, all of one size) of a copy of the
/// photograph blurred as setting says, in place: the kernel drawn at the recipe's scale, the
/// frame continued so that it does not ring, planes larger than a tile restored in overlapping
/// tiles that join as the whole plane's restoration does, and each result brought back to its
/// plane's depth (rounded, saturated, never rescaled). Pixel (x, y) is the restoration of pixel
/// (x, y). Returns false when control.cancelled() said stop (within a tile); the planes are then
/// as they were.
bool restorePlanes(std::vector<cv::Mat>& planes, const Setting& setting, const PlaneRecipe& recipe,
                   const JobControl& control = {});

/// The tiles a plane of this size is restored in when its kernel is kernelSide pixels across:
/// each tile's core (which together cover the plane once) and the rectangle restored for it, all
/// of one size.
struct Tile {
    cv::Rect core;
    cv::Rect restored;
};
std::vector<Tile> tilesOf(cv::Size plane, int kernelSide, int tileCore);

} // namespace clarovi::jobs
