#pragma once

#include "controller_state.h"
#include "tiled_restoration.h"
#include "window_port.h"

#include <QString>
#include <QThreadPool>

#include <array>
#include <functional>

namespace clarovi::jobs {

/// The restorations of the main window and the spectrum beside them. Every job runs on the
/// thread that owns the window (the main thread) and reaches the window only through its
/// WindowPort; a job that fails reports why and leaves what is shown.
class RestorationJobs {
  public:
    RestorationJobs(ControllerState& state, WindowPort& window);

    /// " Ø: %.1f ⟷ %.1f" with the PSF length and the line width.
    QString settingsText() const;

    /// activeImage = sourceImage and psfImage redrawn from the sliders on its canvas.
    void MakeMyPSFinitial();

    /// Takes a setting picked in the auto gallery: no result yet, activeImage = sourceImage,
    /// width 0.2, the picked angle, and psfImage drawn from the picked length and angle.
    void MakeMyPSFfinal(double selectedLength, double selectedAngle);

    /// One drag step of a PSF slider: the label, the preview copy as a quick job's picture, the
    /// PSF scaled to the preview on the fixed 256 canvas, and the live tiled preview, without
    /// locking. showDisplayPsf, if given, runs once the preview copy is the PSF canvas.
    void dragStep(const std::function<void()>& showDisplayPsf = {});

    /// The grey preview: restores activeImage's grey plane with the current PSF and sharpness
    /// and shows the result at display size. Locks the controls around it unless autoSilent.
    void auxTrueNoMultithread();

    /// The colour restoration of activeImage.
    void auxFalse();

    /// The live preview of the picture's preview copy, restored as 16 tiles at once.
    void auxTrue() { m_tiled.auxTrue(); }
    void myString() { m_tiled.myString(); }
    bool tiledIdle() const { return m_tiled.tiledIdle(); }
    const TiledRestoration& tiled() const { return m_tiled; }

    /// Runs the tiled or the colour job on the main thread and waits for it, from any thread.
    void ComputateIt(bool tiled);
    void runCompTrue() { ComputateIt(true); }
    void runCompFalse() { ComputateIt(false); }

    /// The spectrum of the picture as it is shown; locks around it and shows it.
    void spectrumCalculation();
    void setSpect();

  private:
    void restoreGreyPreview();
    void restoreColour();
    void showResultAtDisplaySize();
    template <typename Work> void guarded(const char* what, Work&& work);
    template <typename Work> void wholePictureJob(const char* what, Work&& restore);

    ControllerState& m_state;
    WindowPort& m_window;
    QThreadPool m_pool;                ///< restores the colour planes and the tiles
    std::array<cv::Mat, 3> m_restored; ///< restored planes, reused between runs
    TiledRestoration m_tiled;
};

} // namespace clarovi::jobs
