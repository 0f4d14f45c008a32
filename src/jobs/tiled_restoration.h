#pragma once

#include "controller_state.h"
#include "window_port.h"

#include <QThreadPool>
#include <opencv2/core.hpp>

#include <array>
#include <atomic>
#include <memory>
#include <mutex>

namespace clarovi::jobs {

inline constexpr int kTileCount = 16;

/// Tile k (0 to 15) of the 4 x 4 grid over a square of the given side: row k / 4, column k % 4,
/// side / 4 on each side, without overlap. Rows and columns beyond 4 * (side / 4) belong to no
/// tile.
cv::Rect tileRect(int k, int side);

/// The live preview while a PSF slider is dragged: the preview copy of the picture cut into 16
/// tiles that are padded, restored and trimmed each on its own, at the same time on a pool of
/// threads, and joined again. The main thread waits for them without spinning.
class TiledRestoration {
  public:
    /// The tiles are restored on pool, which the caller keeps.
    TiledRestoration(ControllerState& state, WindowPort& window, QThreadPool& pool);
    ~TiledRestoration();
    TiledRestoration(const TiledRestoration&) = delete;
    TiledRestoration& operator=(const TiledRestoration&) = delete;

    /// One tiled run; refused with a log line while another is under way.
    void auxTrue();
    /// Marks the tiled restoration idle again.
    void myString();
    bool tiledIdle() const;

    const std::array<cv::Mat, kTileCount>& tileOutputs() const { return m_tileOutputs; }

  private:
    struct Run;
    bool tryStart();
    void drawRunPsf();
    bool restoreTiles();
    void restoreTile(int k, const std::shared_ptr<Run>& run);
    cv::Mat joinedTiles() const;
    void showAtDisplaySize();

    ControllerState& m_state;
    WindowPort& m_window;
    mutable std::mutex m_monitor; // guards m_tiledIdle
    bool m_tiledIdle = true;
    std::array<cv::Mat, kTileCount> m_tileInputs;
    std::array<cv::Mat, kTileCount> m_tileOutputs;
    std::atomic<int> m_tilesDone{0};
    QThreadPool& m_pool;
};

} // namespace clarovi::jobs
