// Blend modes: how a top image (the input) combines with the image below it (the background).
#pragma once

#include <functional>

#include "Execution.h"
#include "Image.h"

namespace ql::img {

enum class BlendMode {
    // The blends below put B(bottom, top), a function of the two unpremultiplied colours, over
    // the background, weighted by how much the two layers overlap:
    //   colour = top·(1 − αb) + bottom·(1 − αt) + αt·αb·B   (premultiplied colours)
    //   alpha  = αt + αb − αt·αb
    // with both alphas clamped to [0, 1]. On opaque pixels the result is just B.
    softLight,   // darkens where top < 0.5, lightens above, like a diffuse spotlight
    luminosity,  // the bottom's hue and saturation with the top's luma
    multiply,    // B = top·bottom
    difference,  // B = |top − bottom|
    // These act on each of the four premultiplied channels on their own, alpha included.
    maximum,   // max(top, bottom)
    minimum,   // min(top, bottom)
    addition,  // top + bottom
};

struct BlendParams {
    BlendMode mode = BlendMode::multiply;  // no neutral mode
};

/// Soft light, per channel, with t the top and b the bottom colour:
///   t ≤ 0.5: b − (1 − 2t)·b·(1 − b)
///   t > 0.5: b + (2t − 1)·(D(b) − b), D(b) = ((16b − 12)·b + 4)·b for b ≤ 0.25, else √b.
/// Luminosity: the bottom colour shifted by a constant so that its luma (Rec. 709 weights, as
/// everywhere in the engine) equals the top's; a result outside [0, 1] is then pulled toward that
/// luma along the line of constant hue until it fits (a step skipped where the luma itself lies
/// outside [0, 1], so brighter-than-white colour survives).
/// An empty input returns the input; a background of a different size is returned unchanged.
Image blend(const Image& input, const Image& background, const BlendParams& p,
            const Execution& exec = {});

/// The colour of a Gaussian blur of `input` (σ `radius`, clamped edges) under the input's own
/// luminosity, mixed with the input by `amount` in [0, 1]: blend(input, blur, luminosity), then
/// dissolve from the input toward it. Smooths colour noise and keeps detail, in one pass over
/// memory instead of three. Neutral (the input returned) for an amount of 0 or NaN and a radius
/// below 0.3.
Image blurColourUnderLuminosity(Image input, float radius, float amount,
                                const Execution& exec = {});

/// Film grain and the like in one pass: blend(grey, input, softLight) for an opaque grey top whose
/// level along row y `levels(y, out)` writes (input.width() values), without making the grey
/// picture. `baseGains(y, out)`, when given, writes gains that the input's colour along row y is
/// multiplied by first (alpha kept): a vignette riding along. Neutral for an empty input or no
/// level function.
Image softLightGrey(Image input, const std::function<void(int y, float* levels)>& levels,
                    const Execution& exec = {},
                    const std::function<void(int y, float* gains)>& baseGains = {});

}  // namespace ql::img
