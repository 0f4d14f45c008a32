#include "psf.h"

#include <stdexcept>

namespace clarovi::engine {
QImage MakePsfD(float, double, double, bool, bool, QSize) {
    throw std::logic_error("not built yet");
}
std::optional<cv::Mat> normalizedKernel(const cv::Mat&) {
    throw std::logic_error("not built yet");
}
} // namespace clarovi::engine
