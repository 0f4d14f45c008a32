#include "restoration.h"

#include "deconvolve.h"

#include <stdexcept>

namespace clarovi::engine {

namespace {

/// A transform size fast for FFTW and even: the filter's centring moves odd sizes by a row.
int evenTransformSide(int side) {
    int transform = cv::getOptimalDFTSize(side);
    while (transform % 2 != 0)
        transform = cv::getOptimalDFTSize(transform + 1);
    return transform;
}

/// kernel with a row and a column of zeros before it: on an even canvas its centre pixel then
/// falls where the filter puts the origin, so that the restoration is not shifted.
cv::Mat evenKernel(const cv::Mat& kernel) {
    if (kernel.cols % 2 == 0 || kernel.rows % 2 == 0)
        throw std::invalid_argument("PlaneRestorer: the kernel's sides must be odd");
    cv::Mat even;
    cv::copyMakeBorder(kernel, even, 1, 0, 1, 0, cv::BORDER_CONSTANT, cv::Scalar(0));
    return even;
}

} // namespace

struct PlaneRestorer::Prepared {
    cv::Size plane;
    cv::Rect inside; ///< the plane within the continued one
    cv::Size continued;
    RestorationSettings settings;
    PreparedPsf psf;
};

PlaneRestorer::PlaneRestorer(const cv::Mat& kernel, cv::Size planeSize,
                             const RestorationSettings& settings) {
    // Mirrored, the picture runs on smoothly beyond its frame; the transform's wrap from one side
    // to the other then lies beyond the filter's reach.
    const int margin = reach(kernel.size());
    const cv::Size continued(evenTransformSide(planeSize.width + 2 * margin),
                             evenTransformSide(planeSize.height + 2 * margin));
    const cv::Rect inside(margin, margin, planeSize.width, planeSize.height);
    m_prepared = std::make_unique<Prepared>(planeSize, inside, continued, settings,
                                            PreparedPsf(evenKernel(kernel), continued));
}

PlaneRestorer::~PlaneRestorer() = default;

cv::Size PlaneRestorer::planeSize() const {
    return m_prepared->plane;
}

int PlaneRestorer::reach(cv::Size kernel) {
    // The Wiener filter's response to a disk or a streak at the sharpest setting keeps 1 % of its
    // weight beyond eight kernels and about 0.1 % beyond twelve: a change of a hundred grey
    // levels outside a tile's overlap moves its core by a tenth of a level.
    return 12 * std::max(kernel.width, kernel.height) + 64;
}

cv::Mat PlaneRestorer::restore(const cv::Mat& plane) const {
    const Prepared& p = *m_prepared;
    if (plane.size() != p.plane || plane.channels() != 1)
        throw std::invalid_argument(
            "PlaneRestorer: the plane's size differs from the prepared one");
    if (plane.empty())
        return cv::Mat(plane.size(), CV_32F);
    cv::Mat continued;
    cv::copyMakeBorder(plane, continued, p.inside.y, p.continued.height - p.inside.br().y,
                       p.inside.x, p.continued.width - p.inside.br().x, cv::BORDER_REFLECT);
    cv::Mat restored, result;
    deconvolvePlane(p.settings.sharpness, continued, restored, p.psf);
    restored(p.inside).convertTo(result, CV_32F);
    return result;
}

} // namespace clarovi::engine
