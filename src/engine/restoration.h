#pragma once

#include <opencv2/core.hpp>

#include <memory>

namespace clarovi::engine {

/// What a restoration is asked for besides the plane and the blur.
struct RestorationSettings {
    double sharpness = 0.0035; ///< the Wiener filter's mu: larger is smoother
};

/// Restores planes of one size blurred by one kernel. Made once per kernel, plane size and
/// settings (the kernel's spectrum is kept), then shared read-only: restore may run on several
/// threads at once.
class PlaneRestorer {
  public:
    /// kernel: one channel, odd sides, its centre pixel the blur's centre, summing to 1 (as
    /// MakePsfD draws it). planeSize: the size of every plane restore will take.
    PlaneRestorer(const cv::Mat& kernel, cv::Size planeSize, const RestorationSettings& settings);
    ~PlaneRestorer();
    PlaneRestorer(const PlaneRestorer&) = delete;
    PlaneRestorer& operator=(const PlaneRestorer&) = delete;

    cv::Size planeSize() const;

    /// The restoration of plane (one channel, CV_8U, CV_16U or CV_32F, planeSize) as CV_32F on the
    /// plane's own scale, unclipped; pixel (x, y) is the restoration of pixel (x, y). The frame is
    /// continued outwards smoothly before the transform, so that the picture's edges do not ring.
    cv::Mat restore(const cv::Mat& plane) const;

    /// How far, in pixels, a change of the input reaches in the restoration of a kernel this size:
    /// tiles that overlap by it join as the whole plane's restoration does.
    static int reach(cv::Size kernel);

  private:
    struct Prepared;
    std::unique_ptr<Prepared> m_prepared;
};

} // namespace clarovi::engine
