#pragma once

#include <QImage>

#include <atomic>
#include <vector>

namespace clarovi::autosearch {

/// One restoration of the auto search: the thumbnail (8-bit grey, the picture's aspect, longer
/// side 512) with the length it is labelled with and the angle it was searched at.
struct AutoResult {
    QImage thumbnail;
    int labelLength = 0;
    float angle = 0;
    int searchedLength = 0; ///< the length that was restored, of which labelLength is 13/21
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

    Data(const Data&) = delete;
    Data& operator=(const Data&) = delete;

  private:
    Data() = default;
};

} // namespace clarovi::autosearch
