#pragma once

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace clarovi::testing {

/// The kernel of a hand-held camera's shake: the path of the image during the exposure, a curved
/// stroke that turns smoothly (its turning rate has inertia), now and then jerks into a hook,
/// and slows where it turns, so that it dwells there. Drawn at even steps of time, each point
/// spread bilinearly over the four pixels around it, scaled so that its longer extent spans
/// extent pixels and moved so that its centre of mass is the middle pixel. CV_32F, odd square,
/// summing to 1; one seed, one path.
inline cv::Mat randomShake(double extent, int seed) {
    constexpr int kSteps = 3000;
    cv::RNG rng(seed);
    std::vector<cv::Point2d> path;
    cv::Point2d at(0, 0);
    double direction = rng.uniform(0.0, 2 * std::numbers::pi), turning = 0;
    double speed = 1, cruise = rng.uniform(0.3, 1.0);
    for (int step = 0; step < kSteps; ++step) {
        turning = 0.995 * turning + rng.gaussian(0.0003);
        if (rng.uniform(0.0, 1.0) < 1.5 / kSteps) { // a hook: the hand stops and turns back
            direction += (rng.uniform(0, 2) ? 1 : -1) * rng.uniform(1.6, 2.8);
            speed = 0.2 * cruise;
        }
        if (rng.uniform(0.0, 1.0) < 2.0 / kSteps)
            cruise = rng.uniform(0.35, 1.0);
        speed += 0.02 * (cruise - speed);
        direction += turning;
        at += speed * cv::Point2d(std::cos(direction), std::sin(direction));
        path.push_back(at);
    }
    cv::Point2d low = path.front(), high = path.front(), mean(0, 0);
    for (const cv::Point2d& p : path) {
        low = {std::min(low.x, p.x), std::min(low.y, p.y)};
        high = {std::max(high.x, p.x), std::max(high.y, p.y)};
        mean += p;
    }
    mean /= static_cast<double>(path.size());
    const double scale = (extent - 1) / std::max({high.x - low.x, high.y - low.y, 1e-9});
    const int half = static_cast<int>(std::ceil(extent)) + 1;
    cv::Mat kernel = cv::Mat::zeros(2 * half + 1, 2 * half + 1, CV_32F);
    for (const cv::Point2d& p : path) {
        const cv::Point2d q = (p - mean) * scale + cv::Point2d(half, half);
        const int x = static_cast<int>(std::floor(q.x)), y = static_cast<int>(std::floor(q.y));
        const double fx = q.x - x, fy = q.y - y;
        kernel.at<float>(y, x) += static_cast<float>((1 - fx) * (1 - fy));
        kernel.at<float>(y, x + 1) += static_cast<float>(fx * (1 - fy));
        kernel.at<float>(y + 1, x) += static_cast<float>((1 - fx) * fy);
        kernel.at<float>(y + 1, x + 1) += static_cast<float>(fx * fy);
    }
    kernel /= cv::sum(kernel)[0];
    // Cut to the smallest odd square about the middle that holds the path.
    const cv::Rect support = cv::boundingRect(kernel > 0);
    const int reach = std::max(
        {half - support.x, support.br().x - 1 - half, half - support.y, support.br().y - 1 - half});
    return kernel(cv::Rect(half - reach, half - reach, 2 * reach + 1, 2 * reach + 1)).clone();
}

/// picture blurred by kernel as a camera blurs it, kernel's pixel (c + dy, c + dx) weighing the
/// scene's point (x - dx, y - dy) (a convolution, unlike cv::filter2D's correlation), the frame
/// mirrored; CV_32F.
inline cv::Mat convolved(const cv::Mat& picture, const cv::Mat& kernel) {
    cv::Mat flipped, result;
    cv::flip(kernel, flipped, -1);
    cv::filter2D(picture, result, CV_32F, flipped, {-1, -1}, 0, cv::BORDER_REFLECT);
    return result;
}

} // namespace clarovi::testing
