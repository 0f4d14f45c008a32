#pragma once

#include "blur_geometry.h"
#include "controller_state.h"
#include "window_port.h"

namespace clarovi::jobs {

/// The PSF view's picture for the sliders at setting: the kernel that the main view's
/// restoration draws from them, as it lies on the photograph shown (the square copy's stretch
/// undone, grown as Fixed size grows it), never mirrored, enlarged to fill most of a side x side
/// picture and brightened so that its brightest pixel is white (black for length 0); with the
/// blur it undoes on the photograph.
PsfPicture psfViewOf(const ControllerState& state, const SliderSetting& setting, double width,
                     bool motion, int side = 256);

} // namespace clarovi::jobs
