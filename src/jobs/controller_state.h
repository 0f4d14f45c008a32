#pragma once

#include "engine/blur_shape.h"
#include "engine/padding.h"
#include "slider_ranges.h"

#include <QImage>
#include <opencv2/core.hpp>

#include <optional>

namespace clarovi::jobs {

/// A picture of display size (width x height) scaled to the given longer side, as the live
/// preview and the auto mode show it; each side at least one pixel, so that a panorama a few
/// pixels high still shows.
QSizeF scaledDisplaySize(double width, double height, double longerSide);

/// The counters of the auto mode, which a search leaves behind as a whole.
struct AutoCounters {
    int length = 0;      ///< pixels at workingSide scale: the last tiled or auto length
    int lengthEnd = 42;  ///< exclusive bound of the searched lengths; 91 after a motion search
    int angleIndex = 0;  ///< index of the angle searched last
    int labelLength = 0; ///< label length of the latest auto restoration
    double size = 0;     ///< side of the square copy the auto mode restores
    float progress = 0;  ///< fraction of the latest search done
};

/// The state that the main window and its restoration jobs share: the picture in its working
/// forms, the PSF parameters, the last result, the sizes and the flags. Members start as they are
/// before the window sets itself up (every picture null, workingSide 1024, all else zero);
/// setUpDefaults() gives them the values the window starts with. The PSF length and the sharpness
/// have no member: they are read from their sliders whenever a computation starts.
struct ControllerState {
    // Pictures; a null QImage means "no picture".
    QImage sourceImage;        ///< the opened picture stretched to workingSide x workingSide
    QImage previewSourceImage; ///< sourceImage scaled to previewSide x previewSide
    QImage activeImage;        ///< what the next job restores; also the PSF canvas size
    QImage jobImage;           ///< the picture the running job took at its start
    QImage psfImage;           ///< the current PSF picture, white on black
    QImage spectrumImage;      ///< the picture's spectrum, shown beside the result
    QImage resultImage;        ///< the last restored picture, before display scaling

    // Sizes and timing.
    int workingSide = 1024;  ///< pixels, side of the square working picture
    int previewSide = 0;     ///< pixels, side of the square preview picture
    double displayWidth = 0; ///< pixels, the picture's own size with its longer side workingSide
    double displayHeight = 0;
    double jobDelay = 0.1; ///< seconds between a button press and the job it asks for

    // PSF parameters.
    double currentAngle = 0; ///< degrees, direction of the motion line
    double currentWidth = 0; ///< pixels, stroke width of the motion line
    bool motionBlur = false; ///< true: a line (motion); false: a disk (out of focus)
    float eventLength = 0;   ///< PSF length of the last length or width slider event
    float muStart = 0;       ///< the sharpness control's starting value and range
    float muMin = 0;
    float muMax = 0;

    // Flags.
    bool keepAspect = false; ///< bring working planes to the fixed square side
    bool autoSilent = false; ///< a quick job (drag preview or auto mode): no locking, previewSide

    // Working matrices.
    cv::Mat workMat; ///< the padded grey working picture of the running job

    // The auto mode.
    AutoCounters autoCounters;
    int autoAngleCount = 42; ///< angles of a motion search

    // Per opened picture.
    bool freshImage = false;   ///< a picture was just opened; its first computations are due
    double spectrumBand = 0.5; ///< cycles per pixel that spectrumImage covers, centre to edge
    /// The blur estimated in the picture, as it lies on the photograph shown, when one was found.
    std::optional<engine::BlurShape> estimate;

    /// The window's starting values: sizes 2048 and 1024, angle -45, width 0.2, keepAspect on,
    /// autoSilent off, the sharpness control's value and range, and the PSF of psfLength.
    void setUpDefaults(float muValue, float muMinimum, float muMaximum, float psfLength);

    /// Makes photo the current picture: the display size (its own aspect, longer side
    /// workingSide), the square working and preview copies, activeImage, and the state that
    /// belonged to the previous picture reset (spectrum, estimate, keepAspect on, autoSilent and
    /// motionBlur off). freshImage is set: its first computations are due.
    void installPicture(const QImage& photo);

    /// What the border padding reads.
    engine::PadParameters padParameters() const;

    /// A PSF picture in the current mode, on the canvas of activeImage (128 x 128 without one)
    /// or on the fixed 256 x 256 canvas.
    QImage MakePsfD(float length, double angle, double width, bool smallCanvas) const;
};

} // namespace clarovi::jobs
