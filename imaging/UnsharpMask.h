// Unsharp mask: sharpening by adding back the detail a Gaussian blur removes.
#pragma once

#include "EdgeMode.h"
#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct UnsharpMaskParams {
    /// σ of the blur that defines "detail", in pixels; larger reaches coarser detail. Below 0.3
    /// (and NaN) neutral.
    float radius = 2.5f;
    /// How much detail is added: 0 neutral, 0.5 moderate, 2 strong; negative values soften.
    /// Non-finite: neutral.
    float intensity = 0.5f;
    EdgeMode edges = EdgeMode::clamp;
    /// The input's colour is first multiplied by this (alpha untouched): an exposure fused into
    /// the mask's passes instead of a pass of its own. Non-finite or not above 0: 1.
    float inputGain = 1;
};

/// rgb + intensity × (rgb − gaussianBlur(rgb, radius)), of the input's rgb times inputGain;
/// alpha untouched. The blur is linear, so the gain scales the result.
Image unsharpMask(Image input, const UnsharpMaskParams& p, const Execution& exec = {});

}  // namespace ql::img
