#pragma once

#include <QImage>

#include <atomic>
#include <vector>

namespace clarovi::autosearch {

/// One restoration of the auto search: the thumbnail (8-bit grey, the picture's aspect, longer
/// side 512), the setting that made it and its quality score.
struct AutoResult {
    QImage thumbnail;
    /// The length slider's value that restores the main view as the thumbnail was restored: what
    /// a pick applies and the label shows.
    double labelLength = 0;
    float angle = 0;
    double searchedLength = 0; ///< the length the thumbnail's PSF was drawn with (working pixels)
    double score = 0;          ///< higher for a better restoration (restorationScore)
    bool motion = false;       ///< a line's thumbnail: its label names the angle too
};

/// The one object through which the main window, the auto search and the gallery exchange the
/// results of the latest search and the user's pick. The scalar fields may be read and written
/// from any thread; the pictures and the results only on the main thread.
class Data {
  public:
    /// The process-wide instance, made on first use from any thread.
    static Data& getInstance();

    std::vector<AutoResult> arrayOfData; ///< the latest search's results, in search order
    QImage selectedImg;                  ///< the working picture of the opened photograph
    QImage putImg;                       ///< the picked thumbnail
    std::atomic<bool> toPut{false};      ///< a pick waits to be applied
    std::atomic<bool> isMotionSwitchOn{false};
    std::atomic<double> selectedLength{0.0};
    std::atomic<double> rw{0.0};
    std::atomic<double> rh{0.0};
    std::atomic<double> selectedAngle{0.0};
    std::atomic<double> selectedWidth{0.0};
    /// The sharpness the picked thumbnail was made with.
    std::atomic<double> selectedSharpness{0.0};

    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;

  private:
    Data() = default;
};

} // namespace clarovi::autosearch
