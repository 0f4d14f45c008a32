#pragma once

#include "engine/blur.h"
#include "jobs/setting.h"

#include <QImage>

#include <atomic>
#include <vector>

namespace clarovi::autosearch {

/// One restoration of the auto search: the thumbnail (8-bit grey, the photograph's aspect, longer
/// side 512), the blur it undoes (what a pick applies and the label shows) and its quality score.
struct AutoResult {
    QImage thumbnail;
    engine::BlurOnPhoto blur;
    double score = 0; ///< higher for a better restoration (restorationScore)
};

/// The one object through which the main window, the auto search and the gallery exchange the
/// results of the latest search and the user's pick. toPut may be read and written from any
/// thread; the rest only on the main thread.
class Data {
  public:
    /// The process-wide instance, made on first use from any thread.
    static Data& getInstance();

    std::vector<AutoResult> arrayOfData; ///< the latest search's results, in search order
    engine::BlurOnPhoto selected;        ///< the picked thumbnail's blur
    std::atomic<bool> toPut{false};      ///< a pick waits to be applied

    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;

  private:
    Data() = default;
};

} // namespace clarovi::autosearch
