// Vibrance: a saturation change that favours the dull colours, leaving the already vivid ones
// (and skin) nearly untouched.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct VibranceParams {
    // −1…1 (clamped): positive strengthens colour, negative mutes it. Neutral 0.
    float amount = 0;
};

/// On the unpremultiplied colour: sat = (max − min) / max(max, 1e-6), clamped to [0, 1], from
/// the largest and smallest channel; k = 1 + amount·(1 − sat)²; c = l + (c − l)·k with l the
/// pixel's luma, which is therefore kept. Alpha is kept; a transparent pixel gets colour 0. A
/// non-finite amount counts as neutral; neutral returns the input.
Image vibrance(const Image& input, const VibranceParams& p, const Execution& exec = {});

}  // namespace ql::img
