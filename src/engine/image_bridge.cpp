#include "image_bridge.h"

#include <stdexcept>

namespace clarovi::engine {
cv::Mat CVMat(const QImage&) {
    throw std::logic_error("not built yet");
}
cv::Mat CVGrayscaleMat(const QImage&) {
    throw std::logic_error("not built yet");
}
QImage imageWithCVMat(const cv::Mat&) {
    throw std::logic_error("not built yet");
}
QImage imageWithImage(const QImage&, QSizeF) {
    throw std::logic_error("not built yet");
}
QImage flipImage(const QImage&) {
    throw std::logic_error("not built yet");
}
} // namespace clarovi::engine
