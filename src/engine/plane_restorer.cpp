#include "plane_restorer.h"

#include "deconvolve.h"
#include "edge_preserving.h"
#include "frame_padding.h"
#include "frequency.h"
#include "kernel_spectrum.h"
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
// reach: the output may move by this share of full scale past it.
constexpr double kReachTolerance = 0.5 / 255.0;

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

/// The smallest r such that the impulse response h (centred at the origin, wrapped) holds at
/// most kReachTolerance beyond r along either axis; -1 when the canvas is too small to say.
int tailReach(const cv::Mat& response) {
    const int rows = response.rows, cols = response.cols;
    cv::Mat magnitude = cv::abs(response);
    cv::Mat across, down;
    cv::reduce(magnitude, across, 0, cv::REDUCE_SUM, CV_64F); // 1 x cols: by column offset
    cv::reduce(magnitude, down, 1, cv::REDUCE_SUM, CV_64F);   // rows x 1: by row offset
    const auto reachAlong = [](const cv::Mat& marginal, int length) {
        const auto at = [&](int d) {
            return marginal.at<double>(int(((d % length) + length) % length));
        };
        double tail = 0;
        for (int r = length / 2 - 1; r >= 0; --r) {
            tail += at(r + 1) + at(-r - 1);
            if (tail > kReachTolerance)
                return r == length / 2 - 1 ? -1 : r + 1;
        }
        return 0;
    };
    const int x = reachAlong(across.reshape(1, cols), cols);
    const int y = reachAlong(down, rows);
    return x < 0 || y < 0 ? -1 : std::max(x, y);
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
        deconvolvePlane(mu, canvas.real(), result, *prepared);
        cv::Mat restored;
        result(layout.plane + shift).convertTo(restored, CV_32F);
        return restored;
    }

    cv::Mat restoreRegularised(const cv::Mat& plane) const {
        SpectralPlane canvas(layout.canvas);
        fillCanvas(plane, 1.0, layout, canvas, threads);
        canvas.forward(threads);
        applyRegularisedFilter(canvas, spectrum, gamma, threads);
        canvas.inverse(threads);
        cv::Mat restored;
        canvas.real()(layout.plane).copyTo(restored);
        return restored;
    }
};

PictureStatistics measurePicture(const cv::Mat& plane) {
    if (plane.channels() != 1)
        throw std::invalid_argument("measurePicture: the plane must have one channel");
    const cv::Size measured(std::min(plane.cols, kMeasuredSide),
                            std::min(plane.rows, kMeasuredSide));
    const cv::Mat centre =
        plane(cv::Rect((plane.cols - measured.width) / 2, (plane.rows - measured.height) / 2,
                       measured.width, measured.height));
    PictureStatistics statistics;
    statistics.noiseSigma = estimateNoiseSigma(centre);
    if (centre.rows >= kSpectrumSide && centre.cols >= kSpectrumSide) {
        cv::Mat levels;
        centre.convertTo(levels, CV_32F, 1.0 / unitsPerGreyLevel(plane.depth()));
        statistics.powerSpectrum = powerSpectralDensity(levels, kSpectrumSide);
    }
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
        d.prepared.emplace(kernel, d.layout.canvas);
        d.mu = classicMu(settings.sharpness);
        d.shift = classicReadOffset(kernel, d.layout.canvas);
        break;
    case RestorationFilter::Regularised:
        d.spectrum = kernelSpectrum(kernel, d.layout.canvas, d.threads);
        d.gamma = regularisedWeight(kernel, settings.picture, settings.sharpness);
        break;
    case RestorationFilter::EdgePreserving:
        d.spectrum = kernelSpectrum(kernel, d.layout.canvas, d.threads);
        d.weights = edgePreservingWeights(kernel, settings.picture, settings.sharpness);
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
        return d.restoreRegularised(plane);
    case RestorationFilter::EdgePreserving:
        return restoreEdgePreserving(plane, 1.0 / (255.0 * units), d.layout, d.spectrum, d.weights,
                                     d.threads, cancelled);
    }
    return {};
}

int PlaneRestorer::reach(const cv::Mat& kernel, const RestorationSettings& settings) {
    checkKernel(kernel);
    RestorationSettings linear = settings;
    linear.threads = 1;
    for (int side = cv::getOptimalDFTSize(4 * std::max(kernel.rows, kernel.cols) + 256);;
         side = cv::getOptimalDFTSize(2 * side)) {
        // The response to a unit impulse in the middle of an otherwise flat plane.
        cv::Mat impulse = cv::Mat::zeros(side, side, CV_32F);
        impulse.at<float>(side / 2, side / 2) = 1.0f;
        cv::Mat response;
        if (settings.filter == RestorationFilter::Classic) {
            response = PlaneRestorer(kernel, impulse.size(), linear).restore(impulse);
        } else {
            linear.filter = RestorationFilter::Regularised;
            response = PlaneRestorer(kernel, impulse.size(), linear).restore(impulse);
        }
        // Bring the impulse's place to the origin, as tailReach reads offsets from there.
        cv::Mat centred;
        swapQuadrants(response, centred);
        const int r = tailReach(centred);
        if (r >= 0 || side >= 8192)
            return r >= 0 ? r : side / 2;
    }
}

} // namespace clarovi::engine
