#include "frame_padding.h"

#include <cmath>
#include <numbers>
#include <stdexcept>
#include <vector>

namespace clarovi::engine {

namespace {

/// How the gap of one axis is filled: gap pixel t (0 .. gap - 1, from the plane's last line on)
/// mixes line after[t] with weight 1 - share[t] and line before[t] with weight share[t], both
/// indices into the plane.
struct GapBlend {
    std::vector<int> after, before;
    std::vector<float> share;
};

GapBlend gapBlend(int length, int gap) {
    GapBlend blend;
    for (int t = 0; t < gap; ++t) {
        // BORDER_REFLECT repeats the edge line (abc|cba), as a scene mirrored at the frame would.
        blend.after.push_back(cv::borderInterpolate(length + t, length, cv::BORDER_REFLECT));
        blend.before.push_back(cv::borderInterpolate(t - gap, length, cv::BORDER_REFLECT));
        const double phase = std::numbers::pi * (t + 0.5) / gap;
        blend.share.push_back(static_cast<float>(0.5 - 0.5 * std::cos(phase)));
    }
    return blend;
}

/// Fills the gap of one canvas row that holds a plane row at [left, left + width).
void fillRowGap(float* row, int cols, int left, int width, const GapBlend& blend) {
    const float* plane = row + left;
    for (std::size_t t = 0; t < blend.share.size(); ++t) {
        const float s = blend.share[t];
        const int column = (left + width + static_cast<int>(t)) % cols;
        row[column] = (1.0f - s) * plane[blend.after[t]] + s * plane[blend.before[t]];
    }
}

} // namespace

CanvasLayout canvasLayout(cv::Size plane, int margin) {
    if (plane.width < 1 || plane.height < 1 || margin < 0)
        throw std::invalid_argument("canvasLayout: an empty plane or a negative margin");
    const cv::Size canvas(cv::getOptimalDFTSize(plane.width + 2 * margin),
                          cv::getOptimalDFTSize(plane.height + 2 * margin));
    const cv::Point corner((canvas.width - plane.width) / 2, (canvas.height - plane.height) / 2);
    return {canvas, cv::Rect(corner, plane)};
}

void fillCanvas(const cv::Mat& plane, double scale, const CanvasLayout& layout,
                SpectralPlane& canvas, int threads) {
    const cv::Rect& p = layout.plane;
    const int cols = canvas.cols();
    const int rows = canvas.rows();
    const GapBlend across = gapBlend(p.width, cols - p.width);
    forRanges(p.height, threads, [&](int begin, int end) {
        for (int i = begin; i < end; ++i) {
            float* row = canvas.row(p.y + i);
            cv::Mat target(1, p.width, CV_32F, row + p.x);
            plane.row(i).convertTo(target, CV_32F, scale);
            fillRowGap(row, cols, p.x, p.width, across);
        }
    });
    // The rows above and below, whole rows at a time from rows already filled across.
    const GapBlend down = gapBlend(p.height, rows - p.height);
    forRanges(static_cast<int>(down.share.size()), threads, [&](int begin, int end) {
        for (int t = begin; t < end; ++t) {
            const float s = down.share[static_cast<std::size_t>(t)];
            const float* a = canvas.row(p.y + down.after[static_cast<std::size_t>(t)]);
            const float* b = canvas.row(p.y + down.before[static_cast<std::size_t>(t)]);
            float* out = canvas.row((p.y + p.height + t) % rows);
            for (int j = 0; j < cols; ++j)
                out[j] = (1.0f - s) * a[j] + s * b[j];
        }
    });
}

void forEachFrameRun(const CanvasLayout& layout, const std::function<void(int, int, int)>& visit) {
    const cv::Rect& p = layout.plane;
    const int cols = layout.canvas.width;
    for (int r = 0; r < layout.canvas.height; ++r) {
        if (r < p.y || r >= p.y + p.height) {
            visit(r, 0, cols);
            continue;
        }
        if (p.x > 0)
            visit(r, 0, p.x);
        if (p.x + p.width < cols)
            visit(r, p.x + p.width, cols);
    }
}

} // namespace clarovi::engine
