#include "texture.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace clarovi::engine {

namespace {

/// The squares kept hold at least this share of what the best hold, the best being read as the
/// sixth most detailed, so that one bright lamp does not stand for the whole picture.
constexpr int kBestRank = 6;
constexpr double kLeastShare = 1.0 / 6.0;

/// Steps of a sliding rectangle: an eighth of its side.
constexpr int kStepsPerSide = 8;

} // namespace

TextureMap::TextureMap(const cv::Mat& grey) : m_picture(grey.size()) {
    if (grey.empty())
        return;
    cv::Mat small, dx, dy;
    cv::resize(
        grey, small,
        {(grey.cols + kReduction - 1) / kReduction, (grey.rows + kReduction - 1) / kReduction}, 0,
        0, cv::INTER_AREA);
    cv::Sobel(small, dx, CV_32F, 1, 0);
    cv::Sobel(small, dy, CV_32F, 0, 1);
    cv::integral(dx.mul(dx) + dy.mul(dy), m_sums, CV_64F);
}

double TextureMap::energy(cv::Rect r) const {
    r &= cv::Rect({0, 0}, m_picture);
    if (r.empty() || m_sums.empty())
        return 0.0;
    // The reduced pixels the rectangle touches.
    const int x0 = r.x / kReduction, y0 = r.y / kReduction;
    const int x1 = std::min((r.br().x + kReduction - 1) / kReduction, m_sums.cols - 1);
    const int y1 = std::min((r.br().y + kReduction - 1) / kReduction, m_sums.rows - 1);
    const double sum = m_sums.at<double>(y1, x1) - m_sums.at<double>(y0, x1) -
                       m_sums.at<double>(y1, x0) + m_sums.at<double>(y0, x0);
    return sum / std::max(1, (x1 - x0) * (y1 - y0));
}

std::vector<cv::Rect> TextureMap::detailedSquares(cv::Rect within, int side, int most) const {
    within &= cv::Rect({0, 0}, m_picture);
    std::vector<std::pair<double, cv::Rect>> squares;
    const int stride = std::max(1, side / 2);
    for (int y = within.y; y + side <= within.br().y; y += stride)
        for (int x = within.x; x + side <= within.br().x; x += stride) {
            const cv::Rect square(x, y, side, side);
            squares.emplace_back(energy(square), square);
        }
    std::sort(squares.begin(), squares.end(),
              [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<cv::Rect> kept;
    if (squares.empty())
        return kept;
    const double best = squares[std::min(squares.size(), size_t(kBestRank)) - 1].first;
    for (const auto& [energy, square] : squares)
        if (int(kept.size()) < most && energy >= kLeastShare * best && energy > 0.0)
            kept.push_back(square);
    return kept;
}

cv::Rect TextureMap::mostDetailed(cv::Size size, cv::Rect within) const {
    within &= cv::Rect({0, 0}, m_picture);
    if (within.width <= size.width && within.height <= size.height)
        return within;
    size.width = std::min(size.width, within.width);
    size.height = std::min(size.height, within.height);
    const int step = std::max(1, std::min(size.width, size.height) / kStepsPerSide);
    cv::Rect best(within.tl(), size);
    double most = -1.0;
    for (int y = within.y; y + size.height <= within.br().y; y += step)
        for (int x = within.x; x + size.width <= within.br().x; x += step) {
            const double e = energy({{x, y}, size});
            if (e > most) {
                most = e;
                best = {{x, y}, size};
            }
        }
    return best;
}

} // namespace clarovi::engine
