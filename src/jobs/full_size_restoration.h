#pragma once

#include "engine/padding.h"

#include <QSize>
#include <opencv2/core.hpp>

#include <functional>
#include <optional>
#include <vector>

namespace clarovi::jobs {

/// The blur model and the sharpness as the window's controls show them, set on the working
/// picture of side workingSide.
struct BlurSetting {
    bool motion = false;
    float length = 0;          ///< disk diameter or line length, pixels of the working picture
    double angle = 0;          ///< degrees
    double width = 0;          ///< line width, pixels of the working picture
    double mu = 0;             ///< the sharpness
    engine::PadParameters pad; ///< what the border rule reads of the controls
    int workingSide = 2048;
};

/// How a long job reports how far it is (0 to 1) and learns that it should stop. Either may be
/// empty; both may be called from any thread.
struct JobControl {
    std::function<void(double)> progress;
    std::function<bool()> cancelled;
};

/// s = the source's longer side / workingSide: what lengths and widths set on the working picture
/// are multiplied by at the source's own size.
double sourceScale(QSize sourceSize, int workingSide);

/// The kernel (one channel, normalised to sum 1) of setting drawn at the scale of a source of
/// sourceSize: length and width times sourceScale, the angle unchanged. std::nullopt when the
/// PSF rounds to nothing at that scale.
std::optional<cv::Mat> fullSizeKernel(const BlurSetting& setting, QSize sourceSize);

/// The replicated border, in source pixels, that the border rule gives a plane of sourceSize.
int fullSizeBorder(const BlurSetting& setting, QSize sourceSize);

/// Restores each plane (CV_8U or CV_16U, all of one size) with kernel and mu: the plane's border
/// replicated outwards by border pixels, restored in overlapping tiles that share one PSF
/// spectrum, on several threads, the result clipped to the depth's range (never rescaled) and
/// cropped back so that pixel (x, y) is the restoration of pixel (x, y). The planes are replaced
/// by their restorations. Returns false when control.cancelled() said stop (within about a
/// second); the planes are then undefined.
bool restoreFullSize(std::vector<cv::Mat>& planes, const cv::Mat& kernel, double mu, int border,
                     const JobControl& control = {});

} // namespace clarovi::jobs
