// Colour matrix: every output channel a weighted sum of the input channels plus a constant; the
// general linear colour transform (channel mixing, tints, alpha from colour).
#pragma once

#include "Execution.h"
#include "Image.h"
#include "PixelMap.h"

namespace ql::img {

struct ColorMatrixParams {
    // Row vectors: output red = red·(r, g, b, a) + bias.r, and so on for each channel, on
    // unpremultiplied colour. Any finite values; neutral is the identity below with zero bias.
    Pixel red{1, 0, 0, 0};
    Pixel green{0, 1, 0, 0};
    Pixel blue{0, 0, 1, 0};
    Pixel alpha{0, 0, 0, 1};
    Pixel bias{0, 0, 0, 0};
};

/// out_c = dot(row_c, px) + bias_c on the unpremultiplied pixel, premultiplied again by the new
/// alpha (see the alpha rule above). The identity, or any non-finite coefficient, returns the
/// input.
Image colorMatrix(Image input, const ColorMatrixParams& p, const Execution& exec = {});

}  // namespace ql::img
