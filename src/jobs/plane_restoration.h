#pragma once

#include "controller_state.h"
#include "engine/padding.h"

#include <QImage>
#include <opencv2/core.hpp>

#include <cstddef>
#include <optional>

namespace clarovi::jobs {

/// The resident size above which a job gives the freed memory it kept for reuse back to the
/// system when it ends: a long session's work of many sizes would otherwise scatter it ever wider.
inline constexpr std::size_t kResidentCeiling = std::size_t{1} << 30;

/// The square side a job brings its plane and kernel to: with keepAspect, previewSide for a quick
/// job (autoSilent) and workingSide otherwise; 0 (keep the sizes) without keepAspect.
int jobSide(const ControllerState& state);

/// plane resized to side x side with bicubic interpolation; plane itself when side is 0.
cv::Mat fitToSide(const cv::Mat& plane, int side);

/// The kernel of a PSF picture: its grey plane brought to side (see fitToSide) and normalised to
/// sum 1, CV_64F. std::nullopt when the picture is missing or black (length 0).
std::optional<cv::Mat> jobKernel(const QImage& psfImage, int side);

/// A job's plane grown by the replicated border, and what to cut off its restoration.
struct PaddedPlane {
    cv::Mat plane; ///< the source with its border
    int added = 0; ///< what addPad reports: the border once the plane is brought back to its size
    /// The border to cut after restoration: added when the job brings the padded plane to a
    /// side, the whole border when it restores it at its padded size, so that nothing of the
    /// border shows (tiles then join without seams).
    int cut = 0;
};

/// source padded as addPad pads it, for a job that brings its planes to side (0: keeps sizes).
PaddedPlane padForJob(const cv::Mat& source, int side, const engine::PadParameters& parameters);

/// A restored CV_64F plane as 8 bits (saturating, rounded) without its border: the window of side
/// (size - added) one row lower than it is to the right. A matrix of its own.
cv::Mat trimmedEightBit(const cv::Mat& restored, int added);

} // namespace clarovi::jobs
