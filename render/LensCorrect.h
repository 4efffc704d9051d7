// The lens sliders that move or shade pixels about the frame's centre: radial distortion,
// vignetting and lateral chromatic aberration, all in one resampling pass.
#pragma once

#include "edit/LensFix.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::LensCorrect {

/// The numbers of the warp for one frame. Positions are measured from the frame's centre in units
/// of half its diagonal, so the corners lie at radius 1.
struct Warp {
    double k = 0;        // an output point d samples the picture at d (1 + k |d|²) zoom
    double zoom = 1;     // see zoom() below
    double red = 1;      // the red channel samples at that position times this...
    double blue = 1;     // ...and the blue channel at this
    double stops = 0;    // brightening at radius 1, in stops (negative darkens)
    double falloff = 2;  // the brightening grows with the radius to this power

    bool moves() const { return k != 0 || red != 1 || blue != 1; }
    bool isIdentity() const { return !moves() && stops == 0; }
};

/// The warp the sliders ask for on a frame of the given size. A slider that is not finite counts
/// as 0 (vignetteMid as 50); the others are limited to ±100 (vignetteMid to 0…100).
Warp warp(const LensFix& lens, int width, int height);

/// Distortion, vignetting and lateral colour: per output pixel, green and alpha are read at the
/// warped position, red and blue at that position scaled by their own factors, each bilinearly
/// with clamped edges, and the colour is multiplied by the vignetting gain. Returns the input when
/// the four sliders are 0 and an empty image when cancelled.
img::Image apply(const img::Image& image, const LensFix& lens, const img::Execution& exec = {});

/// The enlargement of the sampling positions for which the distortion k leaves no empty border:
/// every point of the output frame's edge samples inside the picture, and at least one samples on
/// its edge (below 1 for k > 0, above 1 for k < 0). 1 when k is 0 or a size is not positive.
double zoom(double k, double width, double height);

struct CAEstimate {
    double red = 0, blue = 0;
};

/// Proposes caRed and caBlue: the radial scales of red and blue that best line their fine detail
/// up with green's, searched on a copy at most 800 pixels long. A channel whose fit does not
/// improve measurably on 0 gets 0; so does everything when cancelled.
CAEstimate estimateCA(const img::Image& image, const img::Execution& exec = {});

}  // namespace ql::LensCorrect
