#pragma once

#include "controller_state.h"
#include "plane_recipe.h"
#include "setting.h"
#include "window_port.h"

#include <QString>

namespace clarovi::jobs {

/// The resident size above which a job gives the freed memory it kept for reuse back to the
/// system when it ends: a long session's work of many sizes would otherwise scatter it ever wider.
inline constexpr std::size_t kResidentCeiling = std::size_t{1} << 30;

/// The restorations of the main window and the spectrum beside them. Every job runs on the
/// thread that owns the window (the main thread), restores with the setting it is handed, and
/// reaches the window only through its WindowPort; a job that fails reports why and leaves what
/// is shown.
class RestorationJobs {
  public:
    RestorationJobs(ControllerState& state, WindowPort& window);

    /// One drag step: the label and the live preview, the preview copy's grey plane restored
    /// whole, without locking the controls.
    void dragPreview(const Setting& setting);

    /// The grey preview: the working copy's grey plane restored and shown. Locks the controls
    /// around it.
    void auxTrueNoMultithread(const Setting& setting);

    /// The colour restoration of the working copy. Locks the controls around it.
    void auxFalse(const Setting& setting);

    /// The spectrum of the photograph; locks around it and shows it.
    void spectrumCalculation();
    void setSpect();

  private:
    template <typename Work> void guarded(const char* what, Work&& work);
    template <typename Work>
    void wholePictureJob(const char* what, const Setting& setting, bool quick, Work&& restore);
    QImage restoredGrey(const cv::Mat& grey, const Setting& setting, const PlaneRecipe& recipe);
    QImage restoredColour(const Setting& setting);

    ControllerState& m_state;
    WindowPort& m_window;
};

} // namespace clarovi::jobs
