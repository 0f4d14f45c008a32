#include "restoration_score.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>

namespace clarovi::engine {

namespace {

// Sums of |d| and d^2 of one derivative over a picture.
struct Norms {
    std::int64_t l1 = 0;
    std::int64_t l2Squared = 0;

    void add(int d) {
        l1 += std::abs(d);
        l2Squared += std::int64_t(d) * d;
    }
    // L2 / L1 times the square root of the count: 1 when every value is alike, up to that square
    // root when a single value carries it all. The ratio ignores a common scale, so the diagonal
    // derivatives need not be divided by sqrt(2).
    double sparsity(double count) const {
        return l1 > 0 ? std::sqrt(double(l2Squared) * count) / double(l1) : 0.0;
    }
};

} // namespace

// The normalised sparsity of the gradient, as used in blind deconvolution to tell a sharp picture
// from a blurred one (Krishnan, Tay and Fergus, 2011), inverted so that higher is better, and
// taken along four directions rather than over the gradient as a whole: a line's restoration at
// a wrong angle leaves blur or ringing along one direction only, which the whole gradient dilutes.
// Central differences on the 8-bit values in one pass: a search scores every thumbnail it makes.
double restorationScore(const cv::Mat& grey) {
    if (grey.empty() || grey.channels() != 1 || grey.rows < 3 || grey.cols < 3)
        return 0.0;
    cv::Mat eightBit = grey;
    if (grey.depth() != CV_8U)
        grey.convertTo(eightBit, CV_8U);
    std::array<Norms, 4> norms; // across, down, along each diagonal
    for (int y = 1; y + 1 < eightBit.rows; ++y) {
        const uchar* above = eightBit.ptr<uchar>(y - 1);
        const uchar* row = eightBit.ptr<uchar>(y);
        const uchar* below = eightBit.ptr<uchar>(y + 1);
        for (int x = 1; x + 1 < eightBit.cols; ++x) {
            const int across = row[x + 1] - row[x - 1];
            const int down = below[x] - above[x];
            norms[0].add(across);
            norms[1].add(down);
            norms[2].add(across + down);
            norms[3].add(across - down);
        }
    }
    const double count = double(eightBit.rows - 2) * (eightBit.cols - 2);
    double sum = 0;
    for (const Norms& n : norms)
        sum += n.sparsity(count);
    return sum / 4.0;
}

} // namespace clarovi::engine
