#include "padding.h"

#include <stdexcept>

namespace clarovi::engine {
double padMultiplier(const PadParameters&) {
    throw std::logic_error("not built yet");
}
cv::Mat addPad(const cv::Mat&, double, int*, const PadParameters&) {
    throw std::logic_error("not built yet");
}
cv::Rect trimWindow(cv::Size, int) {
    throw std::logic_error("not built yet");
}
} // namespace clarovi::engine
