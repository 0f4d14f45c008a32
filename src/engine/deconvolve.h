#pragma once

#include <opencv2/core.hpp>

#include <memory>

namespace clarovi::engine {

/// Restores one plane (one channel, R x C, any depth, read as double) blurred by psf (one
/// channel, any depth, read as double a row at a time; r x c with r <= R and c <= C,
/// normalised to sum 1) with the Wiener-type filter
/// W = |S / (m + S + 3 mu)|, S = |H|^2, m = 1 where the centred PSF is positive. The work is done
/// at the optimal transform size (cv::getOptimalDFTSize) of each side, the plane's last row and
/// column repeated up to it and the PSF centred in it; result receives the plane's R x C part of
/// the restoration as CV_64F, neither clipped nor scaled; the return value shares its data.
/// An empty plane gives an empty result. With mu = 0, frequencies where S = 0 and the centred PSF
/// is 0 are set to 0 rather than 0 / 0. A PSF larger than the plane throws.
cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result, const cv::Mat& psf);

/// The spectrum of one PSF centred in a plane of a given size, made once and shared read-only by
/// several restorations of that size (the colour planes of a picture, the tiles of a preview).
class PreparedPsf {
  public:
    /// psf: one channel, no larger than the plane; nothing of it is kept but its spectrum and
    /// where it is positive.
    /// threads share the transform of the PSF.
    PreparedPsf(const cv::Mat& psf, cv::Size planeSize, int threads = 1);
    ~PreparedPsf();
    PreparedPsf(PreparedPsf&&) noexcept;
    PreparedPsf& operator=(PreparedPsf&&) noexcept;
    PreparedPsf(const PreparedPsf&) = delete;
    PreparedPsf& operator=(const PreparedPsf&) = delete;

    cv::Size planeSize() const;

    struct Impl;
    const Impl& impl() const { return *m_impl; }

  private:
    std::unique_ptr<Impl> m_impl;
};

/// As deconvolvePlane above with the PSF's spectrum already made; gives the same result as the
/// plain call up to rounding. The plane must have prepared.planeSize(). Safe to call from several
/// threads at once with one PreparedPsf; threads share each of its transforms.
cv::Mat deconvolvePlane(double mu, const cv::Mat& plane, cv::Mat& result,
                        const PreparedPsf& prepared, int threads = 1);

} // namespace clarovi::engine
