#include "plane_restorer.h"

#include "deconvolve.h"
#include "edge_preserving.h"
#include "frame_padding.h"
#include "frequency.h"
#include "kernel_transform.h"
#include "noise_estimate.h"
#include "restoration_weights.h"
#include "welch_power.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <stdexcept>

namespace clarovi::engine {

namespace {

// The canvas holds the blur's reach past the frame on each side, and a few pixels more for the
// continuation to turn from one side's mirror to the other's.
constexpr int kExtraMargin = 16;
constexpr int kSpectrumSide = 128;
constexpr int kMeasuredSide = 2048;
// reach: see tailReach. The canvas it is measured on grows up to kLargestReachCanvas, which
// bounds the answer at half of that.
constexpr double kReachTolerance = 0.005;
constexpr int kLargestReachCanvas = 4096;

int canvasMargin(const cv::Mat& kernel) {
    return std::max(kernel.rows, kernel.cols) / 2 + kExtraMargin;
}

void checkKernel(const cv::Mat& kernel) {
    if (kernel.empty() || kernel.channels() != 1)
        throw std::invalid_argument("the kernel must be a non-empty plane of one channel");
    if (!(cv::sum(kernel)[0] > 0))
        throw std::invalid_argument("the kernel must sum to a positive value");
}

/// How far from the plane's own place to read deconvolvePlane's result. It centres the kernel
/// at (size - length) / 2 + length / 2 and takes the origin to be at size / 2; on an even canvas
/// an odd kernel's centre falls one pixel short of it, which moves the result by that pixel.
cv::Point classicReadOffset(const cv::Mat& kernel, cv::Size canvas) {
    const auto along = [](int size, int length) {
        return size / 2 - ((size - length) / 2 + length / 2);
    };
    return {along(canvas.width, kernel.cols), along(canvas.height, kernel.rows)};
}

/// The smallest r such that the part of the impulse response h (centred at the origin, wrapped)
/// beyond r along either axis has an energy of at most kReachTolerance^2: what lies past a
/// tile's margin then moves its core by at most that share of the difference between the
/// picture and the continuation there (an L2 bound, as that difference is no uniform step).
/// -1 when the response does not fall off within the canvas.
int tailReach(const cv::Mat& response) {
    const cv::Mat energy = response.mul(response);
    cv::Mat across, down;
    cv::reduce(energy, across, 0, cv::REDUCE_SUM, CV_64F);
    cv::reduce(energy, down, 1, cv::REDUCE_SUM, CV_64F);
    const auto along = [](const cv::Mat& marginal) {
        const int n = int(marginal.total());
        const auto* e = marginal.ptr<double>();
        double tail = 0;
        for (int r = n / 2 - 1; r >= 0; --r) {
            tail += e[r + 1] + e[(n - r - 1) % n];
            if (tail > kReachTolerance * kReachTolerance)
                return r == n / 2 - 1 ? -1 : r + 1;
        }
        return 0;
    };
    const int x = along(across), y = along(down);
    return x < 0 || y < 0 ? -1 : std::max(x, y);
}

/// The impulse response of the one-pass filter with weight gamma on a side x side canvas,
/// centred at the origin.
cv::Mat onePassResponse(const cv::Mat& kernel, double gamma, int side) {
    const KernelSpectrum spectrum = kernelSpectrum(kernel, {side, side}, 1);
    SpectralPlane impulse({side, side});
    impulse.real().setTo(0);
    impulse.row(0)[0] = 1.0f;
    impulse.forward(1);
    applyRegularisedFilter(impulse, spectrum, gamma, 1);
    impulse.inverse(1);
    return impulse.real().clone();
}

} // namespace

struct PlaneRestorer::Impl {
    RestorationFilter filter = RestorationFilter::EdgePreserving;
    cv::Size planeSize;
    CanvasLayout layout;
    int threads = 1;
    // Classic
    std::optional<PreparedPsf> prepared;
    double mu = 0;
    cv::Point shift;
    // Regularised and EdgePreserving
    KernelSpectrum spectrum;
    double gamma = 0;
    EdgePreservingWeights weights;

    cv::Mat restoreClassic(const cv::Mat& plane) const {
        SpectralPlane canvas(layout.canvas);
        fillCanvas(plane, 1.0, layout, canvas, threads);
        cv::Mat result;
        deconvolvePlane(mu, canvas.real(), result, *prepared, threads);
        cv::Mat restored;
        result(layout.plane + shift).convertTo(restored, CV_32F);
        return restored;
    }

    cv::Mat restoreRegularised(const cv::Mat& plane, double weight) const {
        SpectralPlane canvas(layout.canvas);
        fillCanvas(plane, 1.0, layout, canvas, threads);
        canvas.forward(threads);
        applyRegularisedFilter(canvas, spectrum, weight, threads);
        canvas.inverse(threads);
        cv::Mat restored;
        canvas.real()(layout.plane).copyTo(restored);
        return restored;
    }
};

cv::Rect measuredCentre(cv::Size plane) {
    const cv::Size measured(std::min(plane.width, kMeasuredSide),
                            std::min(plane.height, kMeasuredSide));
    return {(plane.width - measured.width) / 2, (plane.height - measured.height) / 2,
            measured.width, measured.height};
}

PictureStatistics measurePicture(const cv::Mat& plane) {
    if (plane.channels() != 1)
        throw std::invalid_argument("measurePicture: the plane must have one channel");
    const cv::Mat centre = plane(measuredCentre(plane.size()));
    PictureStatistics statistics;
    statistics.noiseSigma = estimateNoiseSigma(centre);
    if (centre.rows >= kSpectrumSide && centre.cols >= kSpectrumSide) {
        cv::Mat levels;
        centre.convertTo(levels, CV_32F, 1.0 / unitsPerGreyLevel(plane.depth()));
        statistics.powerSpectrum = powerSpectralDensity(levels, kSpectrumSide);
    }
    return statistics;
}

PictureStatistics measureReducedCopy(const cv::Mat& copy, double photographNoise, double scale) {
    PictureStatistics statistics = measurePicture(copy);
    statistics.noiseSigma = photographNoise * std::clamp(scale, 0.0, 1.0);
    return statistics;
}

PlaneRestorer::PlaneRestorer(const cv::Mat& kernel, cv::Size planeSize,
                             const RestorationSettings& settings)
    : m_impl(std::make_unique<Impl>()) {
    checkKernel(kernel);
    if (planeSize.width < 1 || planeSize.height < 1)
        throw std::invalid_argument("PlaneRestorer: the plane size is empty");
    Impl& d = *m_impl;
    d.filter = settings.filter;
    d.planeSize = planeSize;
    d.threads = std::max(1, settings.threads);
    d.layout = canvasLayout(planeSize, canvasMargin(kernel));
    switch (settings.filter) {
    case RestorationFilter::Classic:
        d.prepared.emplace(kernel, d.layout.canvas, d.threads);
        d.mu = classicMu(settings.sharpness);
        d.shift = classicReadOffset(kernel, d.layout.canvas);
        break;
    case RestorationFilter::Regularised:
        d.spectrum = kernelSpectrum(kernel, d.layout.canvas, d.threads);
        d.gamma = onePassWeight(
            edgePreservingWeights(kernel, settings.picture, settings.sharpness, settings.streak));
        break;
    case RestorationFilter::EdgePreserving:
        d.spectrum = kernelSpectrum(kernel, d.layout.canvas, d.threads);
        d.weights =
            edgePreservingWeights(kernel, settings.picture, settings.sharpness, settings.streak);
        break;
    }
}

PlaneRestorer::~PlaneRestorer() = default;
PlaneRestorer::PlaneRestorer(PlaneRestorer&&) noexcept = default;
PlaneRestorer& PlaneRestorer::operator=(PlaneRestorer&&) noexcept = default;

cv::Size PlaneRestorer::planeSize() const {
    return m_impl->planeSize;
}

cv::Mat PlaneRestorer::restore(const cv::Mat& plane, const std::function<bool()>& cancelled) const {
    const Impl& d = *m_impl;
    if (plane.channels() != 1 || plane.size() != d.planeSize)
        throw std::invalid_argument(
            "restore: the plane must have one channel and the prepared size");
    const double units = unitsPerGreyLevel(plane.depth()); // throws for other depths
    if (cancelled && cancelled())
        return {};
    switch (d.filter) {
    case RestorationFilter::Classic:
        return d.restoreClassic(plane);
    case RestorationFilter::Regularised:
        return d.restoreRegularised(plane, d.gamma);
    case RestorationFilter::EdgePreserving:
        return restoreEdgePreserving(plane, 1.0 / (255.0 * units), d.layout, d.spectrum, d.weights,
                                     d.threads, cancelled);
    }
    return {};
}

cv::Mat PlaneRestorer::restoreOnePass(const cv::Mat& plane) const {
    const Impl& d = *m_impl;
    if (d.filter != RestorationFilter::EdgePreserving)
        return restore(plane);
    if (plane.channels() != 1 || plane.size() != d.planeSize)
        throw std::invalid_argument(
            "restoreOnePass: the plane must have one channel and the prepared size");
    return d.restoreRegularised(plane, onePassWeight(d.weights));
}

int PlaneRestorer::reach(const cv::Mat& kernel, const RestorationSettings& settings) {
    checkKernel(kernel);
    const int extent = std::max(kernel.rows, kernel.cols);
    for (int side = cv::getOptimalDFTSize(4 * extent + 256);;
         side = cv::getOptimalDFTSize(2 * side)) {
        cv::Mat response;
        switch (settings.filter) {
        case RestorationFilter::Classic: {
            cv::Mat impulse = cv::Mat::zeros(side, side, CV_32F);
            impulse.at<float>(side / 2, side / 2) = 1.0f;
            RestorationSettings one = settings;
            one.threads = 1;
            swapQuadrants(PlaneRestorer(kernel, impulse.size(), one).restore(impulse), response);
            break;
        }
        case RestorationFilter::Regularised:
            response =
                onePassResponse(kernel,
                                onePassWeight(edgePreservingWeights(
                                    kernel, settings.picture, settings.sharpness, settings.streak)),
                                side);
            break;
        case RestorationFilter::EdgePreserving: {
            // The iterations carry the influence of the first x step, the least regularised,
            // onwards through the gradients that pass the shrinkage: measured over disks of 6 to
            // 24 pixels and a streak, tiles with this margin agree with the whole plane to
            // 45 dB or better.
            const EdgePreservingWeights w = edgePreservingWeights(
                kernel, settings.picture, settings.sharpness, settings.streak);
            response = onePassResponse(kernel, w.betas.front() / w.lambda, side);
            break;
        }
        }
        const int r = tailReach(response);
        if (r >= 0)
            return r;
        if (side >= kLargestReachCanvas)
            return side / 2;
    }
}

} // namespace clarovi::engine
