// Gradients: images that blend smoothly from one colour to another, along a line or outward
// from a centre.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

// In both gradients positions are in pixels from the top-left corner, pixel (x, y) is sampled at
// its centre (x + 0.5, y + 0.5), colours are premultiplied and interpolated as they are:
// colour0·(1 − t) + colour1·t with t in [0, 1]. A size below 1 gives an empty image; a
// parameter that makes t undefined (NaN) gives colour0.

struct LinearGradientParams {
    int width = 0, height = 0;
    float x0 = 0, y0 = 0;  // where colour0 is reached
    Pixel colour0{0, 0, 0, 1};
    float x1 = 0, y1 = 0;  // where colour1 is reached
    Pixel colour1{1, 1, 1, 1};
};

/// t is the position projected onto the line from point 0 to point 1, 0 at point 0 and 1 at
/// point 1, clamped: the colours extend unchanged beyond the two points. Coincident points give
/// colour0 everywhere.
Image linearGradient(const LinearGradientParams& p, const Execution& exec = {});

struct RadialGradientParams {
    int width = 0, height = 0;
    float centerX = 0, centerY = 0;
    float radius0 = 0;  // distance where colour0 is reached, and held inside it
    Pixel colour0{1, 1, 1, 1};
    float radius1 = 0;  // distance where colour1 is reached, and held beyond it
    Pixel colour1{0, 0, 0, 1};
};

/// t = (d − radius0) / (radius1 − radius0), clamped, with d the distance from the centre;
/// radius1 may be the smaller. Equal radii give a hard edge: colour0 inside, colour1 from the
/// radius on.
Image radialGradient(const RadialGradientParams& p, const Execution& exec = {});

}  // namespace ql::img
