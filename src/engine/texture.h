#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace clarovi::engine {

/// Where a grey picture holds detail: the energy of its gradient, read at a quarter of its size
/// (where a camera's noise is four times weaker than the edges) and summed so that any
/// rectangle's share is read at once. A flat sky, a wall or a blank page hold none; the face of a
/// clock, a number plate or a line of text hold much.
class TextureMap {
  public:
    /// grey: one channel, 8 bits; any size (an empty picture holds no detail).
    explicit TextureMap(const cv::Mat& grey);

    cv::Size pictureSize() const { return m_picture; }
    /// The mean gradient energy over r (picture pixels, clipped to the picture); 0 outside it.
    double energy(cv::Rect r) const;
    /// The squares of a given side, half a side apart, within `within` (picture pixels), that
    /// hold the most detail, most detailed first: at most `most`, and none that holds less than a
    /// sixth of what the best ones hold (a flat part of the picture would only add its noise to
    /// what the rest shows).
    std::vector<cv::Rect> detailedSquares(cv::Rect within, int side, int most) const;
    /// The rectangle of a given size within `within` that holds the most detail; `within`
    /// itself, clipped to the picture, when it is no larger than size.
    cv::Rect mostDetailed(cv::Size size, cv::Rect within) const;

  private:
    static constexpr int kReduction = 4;
    cv::Size m_picture;
    cv::Mat m_sums; ///< integral of the gradient energy at a quarter of the size, CV_64F
};

} // namespace clarovi::engine
