#include "padding.h"

#include "log.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace clarovi::engine {

namespace {

constexpr double kE = 2.718281828459045;
constexpr double kSinhOneTimesTwo = 2.3504023872876028; // e - 1/e
constexpr double kRowsPerMultiplier = 18.32;
// Far beyond any border the controls can ask for, and small enough that the int conversion and
// the allocation of the padded plane stay sane.
constexpr double kMaxPad = 1 << 16;

} // namespace

double padMultiplier(const PadParameters& parameters, bool quiet) {
    // The single-precision steps are deliberate: they fix the last digits of the border width.
    const double range = static_cast<double>(parameters.muMax - parameters.muMin);
    const double a = std::pow(kE, static_cast<double>(parameters.muStart));
    const double b = std::pow(kE, static_cast<double>(-parameters.muStart));
    const double lengthTerm = static_cast<double>(parameters.eventLength / 25.0f);
    const double denominator =
        static_cast<double>(parameters.muMin) + (a - b) * range / kSinhOneTimesTwo;
    double multiplier = lengthTerm + (static_cast<double>(parameters.muMax) / denominator) * 0.25;
    if (!(denominator > 0.0) || !std::isfinite(multiplier)) {
        // A sharpness range starting at 0 would divide by zero; the ratio term then counts as 1.
        multiplier = lengthTerm + 0.25;
        if (!quiet)
            logLine("MULTIPLIER fallback: sharpness range gives denominator %f, ratio taken as 1",
                    denominator);
    }
    if (!quiet)
        logLine("MULTIPLIER %f", multiplier);
    return multiplier;
}

cv::Mat addPad(const cv::Mat& source, double /*unused*/, int* added,
               const PadParameters& parameters) {
    // An empty source has nothing to pad and logs no multiplier.
    const double multiplier = source.empty() ? 0.0 : padMultiplier(parameters);
    return padByMultiplier(source, multiplier, added);
}

int borderWidth(double multiplier, int rows) {
    const double wanted = std::max(0.0, std::trunc(multiplier * (rows / kRowsPerMultiplier)));
    if (!(wanted <= kMaxPad))
        throw std::invalid_argument("addPad: border wider than any picture can use");
    return static_cast<int>(wanted);
}

cv::Mat padByMultiplier(const cv::Mat& source, double multiplier, int* added) {
    if (added)
        *added = 0;
    if (source.empty())
        return {};
    const int pad = borderWidth(multiplier, source.rows);

    cv::Mat padded;
    cv::copyMakeBorder(source, padded, pad, pad, pad, pad, cv::BORDER_REPLICATE);
    logLine("FINAL %d", padded.rows);

    // The border as it remains after the padded plane is resized back to the source's width,
    // computed in single precision and truncated.
    const float sourceCols = static_cast<float>(source.cols);
    const float paddedCols = static_cast<float>(padded.cols);
    if (added)
        *added = static_cast<int>((paddedCols - sourceCols) * (sourceCols / paddedCols));
    return padded;
}

cv::Rect trimWindow(cv::Size restored, int added) {
    added = std::max(added, 0);
    // The window's top row is offset one more than its left column; with added 0 or 1 that would
    // run past the bottom of the plane, so the window is cut to the plane (empty at worst).
    const cv::Rect window(added / 2, added / 2 + 1, restored.width - added,
                          restored.height - added);
    return window & cv::Rect(cv::Point(), restored);
}

} // namespace clarovi::engine
