#pragma once

#include "engine/blur.h"
#include "engine/blur_estimate.h"
#include "engine/plane_restorer.h"

#include <QImage>
#include <QRect>
#include <QSize>
#include <opencv2/core.hpp>

#include <optional>

namespace clarovi::jobs {

/// The longer side of the copy the live preview restores while a slider is dragged.
inline constexpr int kPreviewSide = 1024;

/// size scaled by one factor so that its longer side is longerSide, each side at least one pixel
/// (a panorama a few pixels high still shows).
QSize scaledToLongerSide(QSize size, int longerSide);
/// size brought down so that its longer side is at most longerSide; a smaller size unchanged.
QSize reducedToLongerSide(QSize size, int longerSide);

/// The state that the main window and its restoration jobs share: the opened photograph in the
/// forms the jobs restore, the last result, the spectrum and the blur estimated in it. What the
/// controls say is not kept here: each event takes it from them once (Setting).
/// The noise of a photograph at its own size, in grey levels, measured on the grey of its centre
/// as the export measures its own planes: the noise of every copy of it follows from this one.
double photographNoise(const QImage& photo);

struct ControllerState {
    /// The photograph at its own aspect ratio, brought down to engine::kWorkingSide on its longer
    /// side where it is larger, never enlarged: the copy the full restorations work on and the
    /// view shows, so that a small photograph's export is exactly what the window showed. Null
    /// until a photograph is opened.
    QImage sourceImage;
    /// The same brought down to kPreviewSide, for the live preview.
    QImage previewSourceImage;
    cv::Mat workingGrey; ///< sourceImage's grey plane, made once per photograph
    cv::Mat previewGrey; ///< previewSourceImage's grey plane
    /// The grey photograph at exactly engine::kWorkingSide on its longer side (enlarged where it is
    /// smaller), whose pixels are working pixels: what the spectrum and the blur estimate read.
    cv::Mat analysisGrey;
    QSize photoSize; ///< the photograph's own size, in its pixels
    /// The grey working and preview copies' noise and spectrum, which set the filters' weights.
    engine::PictureStatistics workingStatistics;
    engine::PictureStatistics previewStatistics;

    QImage resultImage;        ///< the last restored picture
    QImage spectrumImage;      ///< the photograph's spectrum, shown beside the result
    double spectrumBand = 0.5; ///< cycles per pixel that spectrumImage covers, centre to edge

    /// A photograph was just opened; its first computations are due.
    bool freshImage = false;
    /// The latest estimate of the photograph's blur however unsure, with its confidence: what
    /// the automatic search goes around.
    std::optional<engine::BlurEstimate> guess;
    /// The part of the photograph the estimate and the search look at, in analysisGrey's pixels;
    /// empty for the whole photograph (analysedRegion makes it from the photograph's pixels).
    cv::Rect region;

    /// The photograph's own pixels per pixel of analysisGrey, at most 1: under 1 when a small
    /// photograph was enlarged to it.
    double photoScale() const;
    /// A rectangle in the photograph's own pixels as a region of analysisGrey: scaled, its edges
    /// rounded outwards. Empty when it is empty or reaches outside the photograph.
    cv::Rect analysedRegion(const QRect& inPhoto) const;
    /// What an estimate of the photograph's blur of the kind wanted reads: its region, and how far
    /// it was enlarged.
    engine::EstimateRequest estimateRequest(engine::KindWanted wanted) const;

    /// Makes photo the current photograph: its working and preview copies and their grey planes,
    /// and the state that belonged to the previous photograph reset (result, spectrum, estimate,
    /// guess and region).
    /// freshImage is set: its first computations are due.
    void installPicture(const QImage& photo);
};

} // namespace clarovi::jobs
