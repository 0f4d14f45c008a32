#pragma once

#include <opencv2/core.hpp>

#include <functional>
#include <memory>

namespace clarovi::engine {

/// The filters a plane can be restored with.
enum class RestorationFilter {
    Classic,        ///< deconvolvePlane, the filter of earlier versions, kept for comparison
    Regularised,    ///< one pass of Wiener-Hunt with a first-difference regulariser (the
                    ///< quick pass of live previews and thumbnails)
    EdgePreserving, ///< half-quadratic splitting with a hyper-Laplacian prior on the gradients
};

/// The sharpness control runs from kMinSharpness, the smoothest picture, to kMaxSharpness, the
/// crispest. Every 10 steps halve the smoothing weight of the filter (Classic: mu falls from
/// 0.008 to 0.002 in equal steps). At kDefaultSharpness the weight is the filter's estimate for
/// the picture's own noise and spectrum.
inline constexpr double kMinSharpness = 0.0;
inline constexpr double kMaxSharpness = 100.0;
inline constexpr double kDefaultSharpness = 50.0;

/// What the restorations of a picture need to know of it, measured once at the scale it is
/// restored at: the working copy, the preview copy and the full-size photograph each have their
/// own noise per pixel and their own spectrum.
struct PictureStatistics {
    double noiseSigma = 1.0; ///< grey levels, 1/255 of full scale (see unitsPerGreyLevel)
    /// Power spectral density per pixel in grey levels squared (powerSpectralDensity), square,
    /// zero frequency at (0, 0); empty when unknown, which gives weights for an average picture.
    cv::Mat powerSpectrum;
};

/// The part of a plane of this size its statistics are measured on: its centre, at most 2048
/// pixels square, which is plenty for noise and spectrum and keeps a 100-megapixel photograph
/// quick. Whoever mixes or converts a plane before measuring it needs only this part.
cv::Rect measuredCentre(cv::Size plane);

/// Measures a grey plane (one channel, 8 or 16 bits or float): its noise (estimateNoiseSigma)
/// and its power spectral density on a 128 x 128 grid, both from its measuredCentre. Planes
/// smaller than 128 pixels on a side get an empty spectrum.
PictureStatistics measurePicture(const cv::Mat& plane);

/// The statistics of a copy of a photograph reduced to scale (the copy's size over the
/// photograph's, at most 1) by area averaging, for a photograph whose noise was measured as
/// photographNoise grey levels: the spectrum measured on the copy, the noise photographNoise
/// times scale. Averaging leaves the noise correlated, and the estimate on the copy itself reads
/// the finest scale, where averaging removed most of it, so that the filter's weights would
/// amplify what is left at the blur's zeros.
PictureStatistics measureReducedCopy(const cv::Mat& copy, double photographNoise, double scale);

struct RestorationSettings {
    RestorationFilter filter = RestorationFilter::EdgePreserving;
    double sharpness = kDefaultSharpness; ///< kMinSharpness .. kMaxSharpness, clamped
    PictureStatistics picture;
    /// Whether the kernel is a streak or a shake's path. A real motion blur is never quite the
    /// line drawn (or the kernel found) for it, and at its zeros, which cross the whole spectrum,
    /// the difference comes back as a ripple along the streak; the iterative filter's default
    /// weight on the data is then held below what such a difference allows.
    bool streak = false;
    int threads = 1; ///< threads one restore call uses, at least 1
};

/// A restoration prepared once per kernel, plane size and settings: the kernel's spectrum, the
/// transform plans and the filter's weights. restore may be called from several threads at once.
class PlaneRestorer {
  public:
    /// kernel: one channel, any depth, normalised to sum 1, its centre pixel (cols / 2,
    /// rows / 2) the origin; any size, larger than the plane too. Throws std::invalid_argument
    /// for an empty kernel, one that does not sum to a positive value or an empty plane size.
    PlaneRestorer(const cv::Mat& kernel, cv::Size planeSize, const RestorationSettings& settings);
    ~PlaneRestorer();
    PlaneRestorer(PlaneRestorer&&) noexcept;
    PlaneRestorer& operator=(PlaneRestorer&&) noexcept;

    /// Restores one plane of the prepared size (one channel, 8 or 16 bits or float). The frame
    /// does not ring: the plane is continued smoothly past its edges, and the iterative filter
    /// takes what lies beyond them as unknown. Returns CV_32F of the plane's size on the plane's
    /// own scale, neither clipped nor shifted: pixel (x, y) is the restoration of pixel (x, y).
    /// Returns an empty matrix when cancelled() turns true, which is asked between the passes.
    /// Throws std::invalid_argument for a plane of another size, depth or channel count.
    cv::Mat restore(const cv::Mat& plane, const std::function<bool()>& cancelled = {}) const;

    /// restore for a plane whose fine detail the eye barely sees, such as a colour's difference
    /// from the luminance: for the iterative filter, the Regularised filter's one pass at the
    /// same settings, which smooths more than the iterative filter's first step and so reaches
    /// less far than the tiles allow for; the same as restore for the one-pass filters. Its
    /// planes may be negative. On colour photographs this came within 0.8 dB (RGB) of three
    /// iterative restorations, where the first step's weight lost up to 4.7 dB to the noise it
    /// let through.
    cv::Mat restoreOnePass(const cv::Mat& plane) const;

    cv::Size planeSize() const;

    /// The margin, in pixels, a tile needs on each side for its core to agree with the
    /// restoration of the whole plane: past it the filter's response to a unit impulse keeps at
    /// most 0.005 of its energy's square root along either axis, so that what lies beyond moves
    /// the core by at most 1/200 of how far the continuation there strays from the picture.
    /// For the iterative filter it is that of its first x step, the least regularised, whose
    /// influence the later steps carry on; tiles with this margin agreed with the whole plane
    /// to 45 dB or better over disks of 6 to 24 pixels and a streak, noise 1 and 3, sharpness
    /// 30 to 70. It grows faster than the kernel and with the sharpness: for the iterative
    /// filter at the default, about 9 widths of a 6-pixel disk and 30 of a 24-pixel one.
    /// Depends on the kernel and settings only; at most 2048.
    static int reach(const cv::Mat& kernel, const RestorationSettings& settings);

    struct Impl;

  private:
    std::unique_ptr<Impl> m_impl;
};

} // namespace clarovi::engine
