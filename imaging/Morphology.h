// Morphology: per channel minimum (erode), maximum (dilate) and their difference (outline) over
// a disc around each pixel.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct MorphologyParams {
    /// Disc radius in pixels: the disc holds the pixels whose centres lie within radius + ½ of
    /// the centre, so 0.5 is the plus-shaped 4-neighbourhood and 1 the 3×3 square. Below 0.5
    /// (and NaN) neutral. Pixels outside the picture are not part of any disc. Values beyond
    /// the picture's diagonal act as the diagonal.
    float radius = 1;
};

/// Each channel (alpha too) becomes the smallest value in the disc: dark and transparent
/// regions grow. Cost grows with the radius (a sliding pass per distinct span width).
Image morphologyMinimum(const Image& input, const MorphologyParams& p, const Execution& exec = {});
/// Each channel becomes the largest value in the disc: bright and opaque regions grow.
Image morphologyMaximum(const Image& input, const MorphologyParams& p, const Execution& exec = {});
/// rgb = maximum − minimum, bright along edges and dark in flat areas; alpha is the maximum's,
/// so an opaque picture stays opaque.
Image morphologyGradient(const Image& input, const MorphologyParams& p, const Execution& exec = {});

}  // namespace ql::img
