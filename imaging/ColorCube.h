// Colour cube: a 3-D lookup table from colour to colour, sampled trilinearly; the usual carrier
// of a film look or any other colour grade too irregular for a formula.
#pragma once

#include <memory>
#include <vector>

#include "Execution.h"
#include "Image.h"

namespace ql::img {

/// Baked cube nodes, shared between the baker's cache and every render that uses them.
using CubeData = std::shared_ptr<const std::vector<float>>;

struct ColorCubeParams {
    // Nodes per axis, ≥ 2.
    int dimension = 0;
    // dimension³ RGBA nodes, four floats each, red index fastest, then green, then blue: node
    // (i, j, k) is the colour for input (i, j, k) / (dimension − 1). Only its colour is used.
    // Missing data, a dimension below 2 or a size other than 4·dimension³ is neutral.
    CubeData data;
    // True: the cube maps sRGB-encoded colour to sRGB-encoded colour (input encoded before the
    // lookup, the result decoded after). False: it maps linear colour directly.
    bool sRGBSpace = true;
};

/// The unpremultiplied colour (sRGB-encoded if asked) clamped to [0, 1] and looked up
/// trilinearly; the result is decoded if asked, then premultiplied again. A channel outside
/// [0, 1] continues linearly (in linear light) from the edge with the slope of the cube's
/// outermost cell along its axis (never negative), so extended-range values are not flattened.
/// Alpha is kept; a transparent pixel gets colour 0. The sRGB curve is evaluated by table, within
/// 1e-6. An unusable cube returns the input.
Image colorCube(Image input, const ColorCubeParams& p, const Execution& exec = {});

}  // namespace ql::img
