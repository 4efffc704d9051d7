// Colour threshold: every colour channel becomes 0 or 1, split at one level.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct ColorThresholdParams {
    // The level, any value (colour usually lies in 0…1); a NaN level counts as 0.5. There is no
    // neutral value.
    float threshold = 0.5f;
};

/// Each unpremultiplied colour channel becomes 1 where it is above the threshold, else 0, then
/// is premultiplied again (so a channel that passes equals alpha, clamped to [0, 1]). Alpha is
/// kept.
Image colorThreshold(const Image& input, const ColorThresholdParams& p, const Execution& exec = {});

}  // namespace ql::img
