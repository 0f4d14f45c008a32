#pragma once

namespace clarovi::jobs {

/// Range, starting value and step of one slider of the main window.
struct SliderRange {
    float minimum;
    float maximum;
    float initial;
    float step;

    bool contains(double value) const { return value >= minimum && value <= maximum; }
};

/// A setting of the length and angle sliders.
struct SliderSetting {
    float length = 0;
    double angle = 0;
};

/// The PSF length (disk diameter or line length) in pixels of the 2048-pixel working picture.
inline constexpr SliderRange kLengthRange{1.0f, 100.0f, 10.0f, 0.1f};
/// The sharpness mu. With these values the border multiplier at length 0 is about 0.99.
inline constexpr SliderRange kSharpnessRange{0.002f, 0.008f, 0.0035f, 0.00001f};
/// The motion line's angle in degrees; holds every angle the auto search tries (0 to 328).
inline constexpr SliderRange kAngleRange{-180.0f, 360.0f, -45.0f, 0.1f};
/// The motion line's width in pixels.
inline constexpr SliderRange kWidthRange{0.1f, 5.0f, 0.2f, 0.01f};

} // namespace clarovi::jobs
