// Luminance sharpening: an unsharp mask on brightness alone, so edges gain contrast without
// colour fringes.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct SharpenLuminanceParams {
    /// How much luma detail is added: 0 neutral, 0.4 moderate, 2 strong; negative softens.
    /// Non-finite: neutral.
    float sharpness = 0.4f;
    /// σ of the blur that defines detail, in pixels. Below 0.3 (and NaN) neutral.
    float radius = 1.69f;
};

/// d = sharpness × (luma − luma of the Gaussian blur) is added to r, g and b alike, so each
/// pixel's colour differences stay as they were; alpha untouched. Edges clamp.
Image sharpenLuminance(Image input, const SharpenLuminanceParams& p, const Execution& exec = {});

}  // namespace ql::img
