// Colour clamp: limits every channel to its own range, e.g. to keep colour inside [0, 1] before
// an operation that needs it.
#pragma once

#include <limits>

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct ColorClampParams {
    // Per-channel lower and upper limits on the unpremultiplied pixel. Any values; a NaN limit
    // counts as no limit, and where min > max the channel becomes max. Neutral: −∞ and +∞.
    static constexpr float kInf = std::numeric_limits<float>::infinity();
    Pixel min{-kInf, -kInf, -kInf, -kInf};
    Pixel max{kInf, kInf, kInf, kInf};
};

/// Each channel of the unpremultiplied pixel clamped to [min, max], alpha included, then
/// premultiplied again by the clamped alpha (transparent pixels get colour 0). No limit at all
/// returns the input.
Image colorClamp(const Image& input, const ColorClampParams& p, const Execution& exec = {});

}  // namespace ql::img
