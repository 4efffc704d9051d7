// Affine and four-corner perspective transforms, sampled bilinearly.
#pragma once

#include <array>

#include "EdgeMode.h"
#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct Point {
    double x = 0, y = 0;
};

/// Maps an input point p (pixels, top-left origin, pixel centres at +0.5) to
/// (a·x + c·y + tx, b·x + d·y + ty) in an output of the given size.
struct AffineParams {
    double a = 1, b = 0, c = 0, d = 1, tx = 0, ty = 0;
    int outWidth = 0, outHeight = 0;  // 0: the input's size
    EdgeMode edges = EdgeMode::transparent;
};

/// Every output pixel takes the input at the inverse-mapped position, bilinearly interpolated;
/// beyond the input it is transparent, or the nearest border pixel with clamped edges. The
/// identity at the input's size returns the input; a singular or non-finite matrix returns it too.
Image affineTransform(const Image& input, const AffineParams& p, const Execution& exec = {});

/// The input's four corners go to these points of the output: the rectangle becomes the quad.
struct PerspectiveParams {
    Point topLeft, topRight, bottomRight, bottomLeft;
    int outWidth = 0, outHeight = 0;  // 0: the input's size
    EdgeMode edges = EdgeMode::transparent;
};

/// The projective map that sends the input's corners to the four points, sampled bilinearly
/// as above. Corners that make no proper quad (three on a line, crossed) return the input.
Image perspectiveTransform(const Image& input, const PerspectiveParams& p,
                           const Execution& exec = {});

/// The 3×3 homography (row-major, h[8] = 1) that maps the rectangle's corners (0,0), (w,0),
/// (w,h), (0,h) to `to`, or nothing when they make no quad.
bool homography(double w, double h, const std::array<Point, 4>& to, std::array<double, 9>& out);

}  // namespace ql::img
