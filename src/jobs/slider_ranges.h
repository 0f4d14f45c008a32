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

/// A disk's diameter or a streak's length, in working pixels (the photograph brought to 2048
/// pixels on its longer side).
inline constexpr SliderRange kLengthRange{1.0f, 100.0f, 10.0f, 0.1f};
/// The sharpness: 0 the smoothest picture, 100 the crispest; at 50 the filter's weight suits the
/// noise and the spectrum measured in the photograph, and every 10 either way halve or double it.
inline constexpr SliderRange kSharpnessRange{0.0f, 100.0f, 50.0f, 0.5f};
/// A streak's direction, degrees counter-clockwise from horizontal: 0 horizontal, 90 vertical. A
/// streak has no head, so these hold every direction once (-90 and 90 are the same one).
inline constexpr SliderRange kAngleRange{-90.0f, 90.0f, 0.0f, 0.1f};
/// A streak's thickness in working pixels; under a pixel it is a one-pixel line.
inline constexpr SliderRange kWidthRange{0.1f, 5.0f, 1.0f, 0.01f};

} // namespace clarovi::jobs
