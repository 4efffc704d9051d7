// Highlights and shadows: brightens dark regions and darkens bright ones, judged by the
// brightness of each pixel's surroundings, so local contrast survives.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct HighlightShadowParams {
    /// σ in pixels of the surroundings that decide how dark or bright a place is; below 0.3
    /// each pixel is judged alone (a plain tone curve). About 0.006 × the long edge suits
    /// photos. Non-finite: judged alone.
    float radius = 0;
    /// 0…1, neutral 0: how much dark regions are lifted, up to 4× brighter in near-black.
    float shadowAmount = 0;
    /// 0…1, neutral 1: lower values pull bright regions down, white by a third at 0 and
    /// brighter-than-white values harder. Out-of-range values clamp; non-finite is neutral.
    float highlightAmount = 1;
    /// The input's colour is first multiplied by this (alpha untouched): an exposure fused into
    /// the stage's passes instead of a pass of its own. Non-finite or not above 0: 1.
    float inputGain = 1;
};

/// The surroundings' luminance Y (luma of the blurred colour over the blurred alpha, so
/// transparent areas don't count) sets a lightness v = √Y. Its new value is
///   v' = v·(1 + shadowAmount·s(v)) − (1 − highlightAmount)·0.75·h(v),
///   s(v) = (1 − smoothstep(v / 0.5))² below v = 0.5, else 0,
///   h(v) = 0 up to v = 0.5, (v − 0.5)² up to 1, v − 0.75 beyond,
/// and r, g, b are multiplied by the gain (v'/v)², which keeps hue and saturation. Mid-grey
/// (v ≈ 0.42) moves by under 1 %. v' rises with v and with both amounts, so the per-pixel curve
/// never inverts tones. Alpha untouched. Edges clamp.
Image highlightShadowAdjust(Image input, const HighlightShadowParams& p,
                            const Execution& exec = {});

}  // namespace ql::img
