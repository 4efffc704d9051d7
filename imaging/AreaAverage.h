// Area average: the mean colour of a rectangle, e.g. for a white-balance picker or a swatch.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct AreaAverageParams {
    // The rectangle in pixels, top-left corner and size; clamped to the image.
    int x = 0, y = 0, width = 0, height = 0;
};

/// The mean of each premultiplied channel over the rectangle. Every row is summed in double,
/// then the row sums in order, so the result never depends on the threads. An empty rectangle
/// (after clamping) or a cancelled call gives transparent black.
Pixel areaAverage(const Image& input, const AreaAverageParams& p, const Execution& exec = {});

}  // namespace ql::img
