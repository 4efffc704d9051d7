// Random generator: an image of independent uniform noise, the raw material of grain and
// dithering.
#pragma once

#include <cstdint>

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct RandomParams {
    // The size of the image; a size below 1 gives an empty image.
    int width = 0, height = 0;
    // Selects the pattern; any value.
    uint32_t seed = 0;
};

/// Every channel, alpha included, uniform in [0, 1) with 24 random bits, a pure function of
/// (x, y, channel, seed) through an integer hash, so any pixel can be recomputed alone and the
/// result never depends on the threads. Not premultiplied in any meaningful sense: colour may
/// exceed alpha.
Image randomGenerator(const RandomParams& p, const Execution& exec = {});

}  // namespace ql::img
