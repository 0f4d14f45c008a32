#pragma once

#include "engine/blur.h"
#include "slider_ranges.h"

#include <QString>

namespace clarovi::jobs {

/// What the controls say at one event: the blur on the photograph, the sharpness and whether the
/// full restorations are in colour. Taken from them once and handed to the jobs that the event
/// starts, so that a job never reads a control that has moved on since.
struct Setting {
    engine::BlurOnPhoto blur{engine::BlurKind::OutOfFocus, kLengthRange.initial,
                             kAngleRange.initial, kWidthRange.initial};
    double sharpness = kSharpnessRange.initial;
    bool colour = false;  ///< full restorations in colour; the live preview stays grey
    bool classic = false; ///< the Wiener filter of earlier versions, for comparison

    bool motion() const { return blur.kind == engine::BlurKind::Motion; }
    bool operator==(const Setting&) const = default;
};

/// The settings label: "Ø 24.0" for a disk, "24.0 px at 30.0°, width 1.0" for a streak, "Shake
/// 31 × 27 px" for a shake.
QString settingsLabel(const Setting& setting);

} // namespace clarovi::jobs
