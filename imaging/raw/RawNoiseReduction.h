// Noise reduction for a freshly demosaiced RAW image (linear light, white-balanced, before any
// other edit): an edge-preserving luminance pass and a wider, edge-aware colour pass.
#pragma once

#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::img {

struct RawNoiseReductionParams {
    /// 0…1: luminance smoothing. Out-of-range values clamp; NaN acts as 0.
    float luminance = 0;
    /// 0…1: colour (chroma) smoothing. Out-of-range values clamp; NaN acts as 0.
    float color = 0;
    /// Pixels of this image per sensor pixel (0.25 for a quarter-size proxy). Radii and noise
    /// thresholds follow it, so a proxy and a full decode look alike. Clamped to 1/64…4; NaN or
    /// values ≤ 0 act as 1.
    float scale = 1;
    bool isNeutral() const { return luminance <= 0 && color <= 0; }
};

/// Luminance: a self-guided filter on √-encoded luma (where shot noise is nearly level-independent)
/// over 1 + 2·amount sensor pixels; R − Y and B − Y follow the luma change in proportion to their
/// local ratio to luma, so colour ratios hold without a tint from noise, and a variance term keeps
/// the mean linear brightness. Colour: a guided filter on R − Y and B − Y over 8 + 8·amount sensor
/// pixels, explained where possible by the local luma (so colour stays on its side of a luma
/// edge) and otherwise self-guided (so colour edges of equal luma keep), its threshold following
/// brightness like shot noise; luma is unchanged. Both cost O(1) per pixel whatever the radius,
/// the colour pass working on a coarse grid whose coefficients are interpolated back. Results do
/// not depend on the thread count; edges replicate. Works on the stored (premultiplied) colour and
/// keeps alpha. Pixels with a non-finite channel, or one beyond ±65504, pass through unchanged and
/// do not spread. Amounts of 0 in both return the input itself.
Image rawNoiseReduction(const Image& input, const RawNoiseReductionParams& p,
                        const Execution& exec = {});

}  // namespace ql::img
