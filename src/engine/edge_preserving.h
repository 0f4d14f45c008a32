#pragma once

#include "frame_padding.h"
#include "kernel_transform.h"
#include "restoration_weights.h"

#include <opencv2/core.hpp>

#include <functional>

// Internal to the engine: the iterative edge-preserving restoration of one plane.
namespace clarovi::engine {

/// The minimiser of |w|^(2/3) + beta / 2 (w - v)^2 over w: 0 for small |v|, close to v for
/// large, from a table of the exact solution scaled to beta.
float shrinkGradient(float v, float beta);

/// Restores plane (one channel, layout.plane's size) by half-quadratic splitting after Krishnan
/// and Fergus (2009) with alpha = 2/3: from the one-pass restoration with gamma = startBeta /
/// lambda,
/// each beta of weights.betas alternates the gradients w that minimise |w|^alpha + beta / 2
/// |w - D x|^2 with the x that minimises lambda / 2 |K x - y|^2 + beta / 2 |w - D x|^2. What lies
/// outside the plane is not data (as in Almeida and Figueiredo, 2013, who solve for it by ADMM):
/// before each x step the canvas around the plane is replaced by K x of the last step, so that
/// the frame is restored from what the plane holds rather than from the continuation. plane is
/// read at scale (which brings it to 0..1); the result is divided by it again. Returns an empty
/// matrix when cancelled() turns true between steps.
cv::Mat restoreEdgePreserving(const cv::Mat& plane, double scale, const CanvasLayout& layout,
                              const KernelSpectrum& kernel, const EdgePreservingWeights& weights,
                              int threads, const std::function<bool()>& cancelled);

} // namespace clarovi::engine
