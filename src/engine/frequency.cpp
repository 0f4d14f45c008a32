#include "frequency.h"

#include <stdexcept>

namespace clarovi::engine {
void forwardSpectrum(const cv::Mat&, cv::Mat[2]) {
    throw std::logic_error("not built yet");
}
void inverseSpectrum(cv::Mat[2], cv::Mat&) {
    throw std::logic_error("not built yet");
}
void swapQuadrants(const cv::Mat&, cv::Mat&) {
    throw std::logic_error("not built yet");
}
void convolveSpectrum(const cv::Mat&, const cv::Mat&, cv::Mat&) {
    throw std::logic_error("not built yet");
}
} // namespace clarovi::engine
