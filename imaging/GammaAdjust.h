// Gamma adjust: raises colour to a power, brightening (power < 1) or darkening (power > 1) the
// mid-tones while black and white stay put.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct GammaParams {
    // The exponent, > 0; neutral 1. Zero, negative or non-finite values count as neutral.
    float power = 1;
};

/// c → sign(c)·|c|^power on the unpremultiplied colour (negative values mirror the curve). Alpha
/// is kept; a transparent pixel gets colour 0. Neutral returns the input.
Image gammaAdjust(const Image& input, const GammaParams& p, const Execution& exec = {});

}  // namespace ql::img
