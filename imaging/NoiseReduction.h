// Noise reduction: smooths small brightness differences, keeps and lightly sharpens edges.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct NoiseReductionParams {
    /// 0…0.1: the size of brightness differences treated as noise, on a √luminance scale (at
    /// mid-grey 0.02 is a luminance change of about 10 %). Out-of-range values clamp; NaN acts
    /// as 0.
    float noiseLevel = 0.02f;
    /// 0…2: how much edges (differences above the noise level) are sharpened. Out-of-range
    /// values clamp; NaN acts as 0. Neutral when both are 0.
    float sharpness = 0.4f;
    /// ≥ 1: how many of this picture's pixels span one pixel of the picture the look was judged
    /// on (a full-size export of a 2400-pixel preview has 2.5). The edge sharpening then reaches
    /// as far on the subject, so both look alike; the smoothing stays at pixel scale, where the
    /// noise is. Values below 1 or not finite count as 1.
    float scale = 1;
};

/// Over a 5×5 window (Gaussian spatial weights, σ = 1.5 px; taps `scale` pixels apart), each
/// neighbour's weight is further scaled by (1 − (Δ / 2·noiseLevel)²)², zero beyond, where Δ is its
/// difference of √luma from the centre: the colour and alpha average only over neighbours that
/// differ by noise. Then where the input's √luma differs from that of its Gaussian mean
/// (σ = 1.2 × scale px) by more than the noise level (fully from twice it), sharpness × (luma −
/// mean luma) is added to r, g and b of the smoothed picture. Deterministic; edges clamp.
Image noiseReduction(Image input, const NoiseReductionParams& p, const Execution& exec = {});

}  // namespace ql::img
