// Motion blur: each pixel becomes the average along a straight line through it, as if the
// camera had moved during the exposure.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct MotionBlurParams {
    /// How far the line reaches each side of the pixel, in pixels; 0 neutral, fractional
    /// lengths weight the end samples by the fraction. Capped at the long edge; NaN neutral.
    float radius = 20;
    /// Direction of the line in radians: 0 horizontal, π/2 vertical, counter-clockwise as seen
    /// on screen. Non-finite: neutral.
    float angle = 0;
};

/// Samples at unit steps k = −radius…radius along (cos angle, −sin angle) in row-down pixel
/// coordinates, each a bilinear tap of the picture clamped at its edges, all four channels
/// averaged. Cost grows with the radius.
Image motionBlur(const Image& input, const MotionBlurParams& p, const Execution& exec = {});

}  // namespace ql::img
