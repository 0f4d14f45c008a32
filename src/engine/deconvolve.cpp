#include "deconvolve.h"

#include <stdexcept>

namespace clarovi::engine {
struct PreparedPsf::Impl {
    cv::Size size;
};
PreparedPsf::PreparedPsf(const cv::Mat&, cv::Size planeSize) : m_impl(new Impl{planeSize}) {}
PreparedPsf::~PreparedPsf() = default;
PreparedPsf::PreparedPsf(PreparedPsf&&) noexcept = default;
PreparedPsf& PreparedPsf::operator=(PreparedPsf&&) noexcept = default;
cv::Size PreparedPsf::planeSize() const {
    return m_impl->size;
}
cv::Mat deconvolvePlane(double, const cv::Mat&, cv::Mat&, const cv::Mat&) {
    throw std::logic_error("not built yet");
}
cv::Mat deconvolvePlane(double, const cv::Mat&, cv::Mat&, const PreparedPsf&) {
    throw std::logic_error("not built yet");
}
} // namespace clarovi::engine
