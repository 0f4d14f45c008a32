#include "fftw_plans.h"

#include "fourier_plane.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace clarovi::engine::fftw {

namespace {

// FFTW's planner is not thread-safe; executing a finished plan on new arrays is.
std::mutex planMutex;

// Plans are kept for the life of the process and given back at its end, so that leak checkers
// see no plan lost.
struct PlanCache {
    std::map<std::pair<Kind, int>, fftw_plan> plans;
    void clear() {
        for (auto& entry : plans)
            fftw_destroy_plan(entry.second);
        plans.clear();
    }
    ~PlanCache() { clear(); }
};
PlanCache cache;

// Columns moved to the scratch at a time: 16 complex values are four cache lines per row, and
// 16 columns of 2400 values stay within the L2 cache.
constexpr int kColumnBlock = 16;

fftw_plan makePlan(Kind kind, int n) {
    // FFTW_ESTIMATE plans in microseconds. Measuring would cost up to seconds for each new length,
    // and almost every PSF length gives a new one; for 1-D transforms of contiguous rows the
    // estimated plans are close to measured ones, which is why 2-D transforms are built from them.
    const unsigned flags = FFTW_ESTIMATE;
    Buffer<fftw_complex> a, b;
    // Planning arrays from fftw_malloc, like every array the plans are later executed on.
    auto* in = a.reserve(std::max(n, 1));
    auto* out = b.reserve(std::max(n, 1));
    switch (kind) {
    case Kind::RealToComplex:
        return fftw_plan_dft_r2c_1d(n, reinterpret_cast<double*>(in), out, flags);
    case Kind::ComplexToReal:
        return fftw_plan_dft_c2r_1d(n, in, reinterpret_cast<double*>(out), flags);
    case Kind::Forward:
        return fftw_plan_dft_1d(n, in, in, FFTW_FORWARD, flags);
    case Kind::Backward:
        return fftw_plan_dft_1d(n, in, in, FFTW_BACKWARD, flags);
    }
    return nullptr;
}

} // namespace

fftw_plan plan(Kind kind, int n) {
    std::lock_guard lock(planMutex);
    auto& slot = cache.plans[{kind, n}];
    if (!slot)
        slot = makePlan(kind, n);
    if (!slot)
        throw std::runtime_error("FFTW could not plan a transform");
    return slot;
}

void clearPlans() {
    std::lock_guard lock(planMutex);
    cache.clear();
}

std::ptrdiff_t rowStride(int count) {
    std::ptrdiff_t stride = (count + 3) / 4 * 4;
    if (stride * sizeof(fftw_complex) % 4096 == 0)
        stride += 4;
    return stride;
}

void HalfSpectrum::reshape(int rowCount, int colCount) {
    rows = rowCount;
    cols = colCount;
    pitch = rowStride(rowCount);
    buffer.reserve(static_cast<std::size_t>(halfCols()) * pitch);
}

namespace {

/// Rows are transformed a block at a time into this many rows of scratch, from which each column
/// takes its values as one contiguous run (and back again for the inverse).
constexpr int kRowBlock = 16;

struct RowBlock {
    std::ptrdiff_t stride;
    fftw_complex* data;

    explicit RowBlock(int half) : stride(rowStride(half)) {
        thread_local Buffer<fftw_complex> buffer;
        data = buffer.reserve(kRowBlock * stride);
    }
    fftw_complex* row(int b) const { return data + b * stride; }
};

void transformEachColumn(HalfSpectrum& spectrum, Kind kind, int threads) {
    const fftw_plan columnPlan = plan(kind, spectrum.rows);
    forRanges(spectrum.halfCols(), threads, [&](int begin, int end) {
        for (int j = begin; j < end; ++j) {
            auto* column = reinterpret_cast<fftw_complex*>(spectrum.column(j));
            fftw_execute_dft(columnPlan, column, column);
        }
    });
}

/// The number of blocks of kRowBlock rows in rows.
int rowBlocks(int rows) {
    return (rows + kRowBlock - 1) / kRowBlock;
}

} // namespace

void forwardReal(const cv::Mat& source, cv::Point offset, cv::Size canvas, HalfSpectrum& out,
                 const RowCallback& observeRow, Outside outside, int threads) {
    out.reshape(cv::getOptimalDFTSize(canvas.height), cv::getOptimalDFTSize(canvas.width));
    const int cols = out.cols;
    const int half = out.halfCols();
    const bool replicate = outside == Outside::Replicate && !source.empty();
    const fftw_plan rowPlan = plan(Kind::RealToComplex, cols);
    // Each thread its own line and block of rows; an observer sees the rows one at a time.
    const auto transformBlocks = [&](int firstBlock, int endBlock) {
        const RowBlock block(half);
        thread_local Buffer<double> line;
        double* real = line.reserve(cols);
        std::fill(real, real + cols, 0.0);
        cv::Mat lineHeader(1, std::max(source.cols, 1), CV_64F, real + offset.x);
        for (int i0 = firstBlock * kRowBlock; i0 < std::min(endBlock * kRowBlock, out.rows);
             i0 += kRowBlock) {
            const int height = std::min(kRowBlock, out.rows - i0);
            for (int b = 0; b < height; ++b) {
                int s = i0 + b - offset.y;
                if (replicate)
                    s = std::min(s, source.rows - 1);
                bool zero = s < 0 || s >= source.rows;
                if (!zero) {
                    source.row(s).convertTo(lineHeader, CV_64F);
                    // What lies beyond the source's columns is zero or a copy of its last one.
                    zero = std::all_of(real + offset.x, real + offset.x + source.cols,
                                       [](double x) { return x == 0.0; });
                    if (replicate)
                        std::fill(real + source.cols, real + cols, real[source.cols - 1]);
                }
                if (zero) {
                    std::memset(block.row(b), 0, half * sizeof(fftw_complex));
                    continue;
                }
                if (observeRow && s == i0 + b - offset.y)
                    observeRow(s, real + offset.x);
                fftw_execute_dft_r2c(rowPlan, real, block.row(b));
            }
            for (int j = 0; j < half; ++j) {
                auto* to = reinterpret_cast<fftw_complex*>(out.column(j)) + i0;
                for (int b = 0; b < height; ++b)
                    std::memcpy(to[b], block.row(b)[j], sizeof(fftw_complex));
            }
        }
    };
    forRanges(rowBlocks(out.rows), observeRow ? 1 : threads, transformBlocks);
    transformEachColumn(out, Kind::Forward, threads);
}

void inverseReal(HalfSpectrum& spectrum, const RowCallback& takeRow, int threads) {
    transformEachColumn(spectrum, Kind::Backward, threads);
    const int half = spectrum.halfCols();
    const fftw_plan rowPlan = plan(Kind::ComplexToReal, spectrum.cols);
    forRanges(rowBlocks(spectrum.rows), threads, [&](int firstBlock, int endBlock) {
        const RowBlock block(half);
        thread_local Buffer<double> line;
        double* real = line.reserve(spectrum.cols);
        for (int i0 = firstBlock * kRowBlock; i0 < std::min(endBlock * kRowBlock, spectrum.rows);
             i0 += kRowBlock) {
            const int height = std::min(kRowBlock, spectrum.rows - i0);
            for (int j = 0; j < half; ++j) {
                const auto* from = reinterpret_cast<const fftw_complex*>(spectrum.column(j)) + i0;
                for (int b = 0; b < height; ++b)
                    std::memcpy(block.row(b)[j], from[b], sizeof(fftw_complex));
            }
            for (int b = 0; b < height; ++b) {
                fftw_execute_dft_c2r(rowPlan, block.row(b), real);
                takeRow(i0 + b, real);
            }
        }
    });
}

void transformColumns(fftw_complex* data, int rows, int cols, std::ptrdiff_t stride, Kind kind) {
    // The scratch columns lie a padded length apart, so that the 16 values copied from one row
    // do not all fall into one cache set.
    const std::ptrdiff_t pitch = rowStride(rows);
    thread_local Buffer<fftw_complex> scratchBuffer;
    fftw_complex* scratch = scratchBuffer.reserve(kColumnBlock * pitch);
    const fftw_plan columnPlan = plan(kind, rows);
    for (int j0 = 0; j0 < cols; j0 += kColumnBlock) {
        const int width = std::min(kColumnBlock, cols - j0);
        for (int i = 0; i < rows; ++i) {
            const fftw_complex* from = data + i * stride + j0;
            for (int b = 0; b < width; ++b)
                std::memcpy(scratch[b * pitch + i], from[b], sizeof(fftw_complex));
        }
        for (int b = 0; b < width; ++b)
            fftw_execute_dft(columnPlan, scratch + b * pitch, scratch + b * pitch);
        for (int i = 0; i < rows; ++i) {
            fftw_complex* to = data + i * stride + j0;
            for (int b = 0; b < width; ++b)
                std::memcpy(to[b], scratch[b * pitch + i], sizeof(fftw_complex));
        }
    }
}

} // namespace clarovi::engine::fftw
