// Everything that moves the picture in its frame: quarter turns, mirror, perspective keystone,
// straightening and the crop, in one stage, plus the outline the crop tool draws from.
//
// Frames. All points are top-left origin, y down. `corners` works in pixels of the oriented
// picture (after quarter turns and mirror). The layout is normalised to the "box": the bounding
// box of those corners, the frame of the straightened picture, which is also the frame of the
// crop rectangle (fractions of the box's width and height).
#pragma once

#include <array>

#include "edit/Adjustments.h"
#include "edit/Crop.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"
#include "imaging/Transform.h"

namespace ql {

/// What the crop tool draws: the photo's outline inside the straightened box, and the crop.
struct GeometryLayout {
    /// The oriented photo's corners (top left, top right, bottom right, bottom left) in the box,
    /// 0…1 on both axes; the unit square when nothing warps. Always convex.
    std::array<img::Point, 4> quad{img::Point{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    /// Width over height of the box (the corners' bounding box) and of the oriented photo.
    double boxAspect = 1;
    double photoAspect = 1;
    /// The record's crop when it has one with an area, otherwise the default crop.
    CropRect crop;
};

namespace Geometry {

/// Quarter turns, mirror, keystone and rotation, then (with `cropping`) the crop. An edit without
/// any of them (with `cropping`, also `cropAspect` original) returns the input itself. The
/// perspective and rotation are one resampling with clamped edges, cut to the integral bounding
/// box of the corners; the crop's fractions are of that box before rounding, so a proxy and the
/// full-size picture cut the same part. A crop that ends up empty is ignored. The result depends
/// on pixel positions only, so masks go through the same call and stay aligned. Cancelled: empty.
img::Image apply(const Adjustments& adjustments, const img::Image& image, bool cropping,
                 const img::Execution& exec = {});

/// Clockwise quarter turns (`quarterTurns` modulo 4), then the horizontal mirror.
img::Image orient(const img::Image& image, const Adjustments& adjustments,
                  const img::Execution& exec = {});

/// Where the oriented picture's corners (top left, top right, bottom right, bottom left) land in
/// its own pixel frame of w × h. A positive `perspectiveVertical` widens the top edge (negative:
/// the bottom) by a fifth of the width at 100, a positive `perspectiveHorizontal` the right edge
/// (negative: the left) by a fifth of the height; then the quad turns about the centre by
/// `rotation` degrees, clockwise on screen when positive. Sliders that are not finite count as 0;
/// the keystones are held within ±100.
std::array<img::Point, 4> corners(const Adjustments& adjustments, double w, double h);

/// The layout for a photo of photoW × photoH as it enters the stage (before quarter turns).
/// A size that is not positive gives the unit layout.
GeometryLayout layout(const Adjustments& adjustments, double photoW, double photoH);

/// The largest centred rectangle of the wanted proportions in the box: the photo's own for `free`
/// and `original`, the fixed ratio otherwise.
CropRect defaultCrop(const Adjustments& adjustments, const GeometryLayout& layout);

/// Point in a convex quad (either winding), edges included.
bool contains(const std::array<img::Point, 4>& quad, img::Point p);

/// All of the rectangle in a convex quad.
bool inside(const std::array<img::Point, 4>& quad, const CropRect& rect);

/// Keeps a crop inside the photo's outline: clipped to the unit square (a missing or thinner than
/// 0.01 one becomes the whole square); if it sticks out of the quad, shrunk about its centre, or
/// failing that about the box's centre, to the largest copy that fits (30 bisections). When the
/// quad does not hold either centre, the clipped rectangle comes back.
CropRect fit(CropRect rect, const std::array<img::Point, 4>& quad);

}  // namespace Geometry
}  // namespace ql
