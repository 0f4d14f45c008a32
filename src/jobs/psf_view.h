#pragma once

#include "window_port.h"

namespace clarovi::jobs {

/// The PSF view's picture of blur: the kernel that the full restoration draws for it on the
/// working copy, as it lies on the photograph (never mirrored), each kernel pixel enlarged to a
/// block so that it fills most of a side x side picture, brightened so that its brightest pixel
/// is white; with the blur itself.
PsfPicture psfViewOf(const engine::BlurOnPhoto& blur, int side = 256);

} // namespace clarovi::jobs
