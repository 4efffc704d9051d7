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

/// Luminance: a self-guided filter on √-encoded luma (where sensor noise is nearly
/// level-independent); RGB follow the new luma with their chroma scaled alike, so colour ratios
/// hold; a variance term keeps the mean linear brightness. Colour: a guided filter on the
/// differences R − Y and B − Y over a larger window, computed on a coarse grid with its
/// coefficients interpolated back; its threshold follows the local brightness like sensor noise
/// does; luma stays unchanged. Both are O(1) per pixel in the radius, deterministic for any thread
/// count; edges replicate. Works on the stored (premultiplied) colour; alpha is kept. Pixels with a
/// non-finite channel pass through and do not spread.
Image rawNoiseReduction(const Image& input, const RawNoiseReductionParams& p,
                        const Execution& exec = {});

}  // namespace ql::img
