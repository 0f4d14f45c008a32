#pragma once

#include "engine/plane_restorer.h"
#include "setting.h"

#include <opencv2/core.hpp>

#include <functional>
#include <optional>
#include <vector>

namespace clarovi::jobs {

/// How a long job reports how far it is (0 to 1) and learns that it should stop. Either may be
/// empty; both may be called from any thread.
struct JobControl {
    std::function<void(double)> progress;
    std::function<bool()> cancelled;
};

/// The part of control's progress from start (0 to 1) on, share long: what a stage of a longer
/// job reports through.
JobControl stage(const JobControl& control, double start, double share);

/// How the planes of one copy of the photograph are restored. Every restoration of the program
/// (the live preview, the full preview, the colour one, the thumbnails of a search and the
/// full-size export) is this one recipe; they differ only in these values.
struct PlaneRecipe {
    /// Pixels of the planes per working pixel (engine::workingScale of the copy): the blur set on
    /// the photograph is drawn at this scale.
    double scale = 1.0;
    /// One quick pass of the regularised filter (the live preview, the thumbnails) rather than
    /// the full, edge-preserving restoration; the classic filter when the setting asks for it
    /// either way.
    bool quick = false;
    /// What the copy is like at this scale (its noise and spectrum), which sets the filter's
    /// weights; when not given, measured on the planes' luminance (red, green, blue in that
    /// order) or on the one grey plane.
    std::optional<engine::PictureStatistics> statistics;
    /// Threads the planes and their tiles are restored on; 0 for as many as the machine has.
    int threads = 0;
    /// Planes of at most this many pixels are restored whole; larger ones in tiles whose cores
    /// are at least this many pixels across, each tile with the filter's reach on every side.
    qint64 wholeUpTo = 36'000'000;
    int tileCore = 2048;
};

/// Restores planes (one channel each, CV_8U or CV_16U, all of one size) of a copy of the
/// photograph blurred as setting says, in place: the kernel drawn at the recipe's scale, the
/// frame continued so that it does not ring, planes larger than a tile restored in overlapping
/// tiles that join as the whole plane's restoration does, and each result brought back to its
/// plane's depth (rounded, saturated, never rescaled). Pixel (x, y) is the restoration of pixel
/// (x, y); a blur under a pixel leaves the planes as they are. Returns false when
/// control.cancelled() said stop (within a tile); the planes are then as they were.
bool restorePlanes(std::vector<cv::Mat>& planes, const Setting& setting, const PlaneRecipe& recipe,
                   const JobControl& control = {});

/// Whether the blur, drawn at this scale (PlaneRecipe::scale), is under a pixel: restorePlanes
/// then leaves the planes as they are.
bool blurBelowAPixel(const engine::BlurOnPhoto& blur, double scale);

/// The filter's settings for setting as recipe restores it, with these statistics.
engine::RestorationSettings restorationSettings(const Setting& setting, const PlaneRecipe& recipe,
                                                const engine::PictureStatistics& statistics);

/// The tiles a plane of this size is restored in when the filter reaches reach pixels: each
/// tile's core (which together cover the plane once) and the rectangle restored for it, all of
/// one size; the whole plane as one tile when recipe says so.
struct Tile {
    cv::Rect core;
    cv::Rect restored;
};
std::vector<Tile> tilesOf(cv::Size plane, int reach, const PlaneRecipe& recipe);

} // namespace clarovi::jobs
