// Compositing: laying one image over another, through a mask, as a cross-fade, or by its alpha.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

/// out = input·m + background·(1 − m) on all four premultiplied channels, with m the mask's red
/// channel clamped to [0, 1] (NaN counts as 0). A mask of another size is stretched over the
/// picture, sampled bilinearly: a person mask can stay at the size it was found at. An empty
/// input returns the input; a background of a different size, or an empty mask, returns the
/// background unchanged. Written into the background's pixels, or else the input's, when given
/// the only handle to them.
Image blendWithMask(Image input, Image background, const Image& mask, const Execution& exec = {});

struct DissolveParams {
    // How far toward the target, 0…1 (clamped; NaN counts as 0). 0 returns the input, 1 the
    // target.
    float amount = 0;
};

/// out = input + (target − input)·amount on all four premultiplied channels. An empty input
/// returns the input; a target of a different size returns the input unchanged.
Image dissolve(const Image& input, const Image& target, const DissolveParams& p,
               const Execution& exec = {});

/// The input laid over the background by its alpha: out = input + background·(1 − input alpha),
/// on premultiplied channels, alpha included. An empty input returns the input; a background of
/// a different size is returned unchanged.
Image sourceOver(const Image& input, const Image& background, const Execution& exec = {});

}  // namespace ql::img
