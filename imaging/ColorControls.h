// Colour controls: the basic saturation, brightness and contrast sliders.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct ColorControlsParams {
    // 0 gives grey, 1 is neutral, above 1 strengthens colour. Negative values count as 0.
    float saturation = 1;
    // Added to every colour channel; typically −1…1, neutral 0.
    float brightness = 0;
    // Slope around mid-grey 0.5: 0 gives flat grey, 1 is neutral. Negative values count as 0.
    float contrast = 1;
    /// The input's colour is first multiplied by this (alpha untouched): an exposure fused into
    /// the same pass. Non-finite or not above 0: 1.
    float inputGain = 1;
};

/// On the unpremultiplied colour, in this order: c ·= inputGain; c = l + (c − l)·saturation with l
/// the luma of the pixel; c += brightness; c = (c − 0.5)·contrast + 0.5. Alpha is kept; a
/// transparent pixel gets colour 0. A non-finite field counts as neutral; all neutral returns the
/// input.
Image colorControls(Image input, const ColorControlsParams& p, const Execution& exec = {});

}  // namespace ql::img
