// Defringing: purple and green colour fringes along high-contrast edges are turned grey, while
// the same colours away from edges are left alone.
#pragma once

#include "edit/LensFix.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::Defringe {

/// One fringe colour: a hue range in turns (0…1, lo above hi wraps through red) and how strongly
/// it is removed, 0…1.
struct HueBand {
    double lo = 0, hi = 0, amount = 0;
};

/// The purple band of the sliders (purpleLo, purpleHi, purple over 100) and the green one.
/// Non-finite values take their defaults (amounts 0); amounts are limited to 0…1.
HueBand purpleBand(const LensFix& lens);
HueBand greenBand(const LensFix& lens);

/// How much each pixel looks like fringe colour, ignoring where it is: on the display-encoded
/// colour (power 1/2.2 of the unpremultiplied colour, negatives as 0), its chroma must pass about
/// 0.03 to count at all and 0.12 to count fully, and its hue must lie in a band (with soft edges
/// 0.025 turns wide); the band's amount scales the result. Grey result, opaque.
img::Image fringeHue(const img::Image& image, const HueBand& purple, const HueBand& green,
                     const img::Execution& exec = {});

/// Where edges are: white along strong luminance edges, widened by L × 0.0015 pixels (at least 2)
/// so that a fringe beside an edge lies inside; black in flat areas. Grey, opaque.
img::Image edges(const img::Image& image, int longEdge, const img::Execution& exec = {});

/// Fringe colours on edges move toward the pixel's own grey, by the hue weight times the edge
/// mask. Returns the input when purple and green are both 0 (or not finite), an empty image when
/// cancelled.
img::Image apply(const img::Image& image, const LensFix& lens, int longEdge,
                 const img::Execution& exec = {});

struct FringeEstimate {
    double purple = 0, green = 0;
};

/// Proposes purple and green (0…100) from the thin bands of fringe colour that lie on edges,
/// judged on a copy at most 800 pixels long with the hue ranges of `lens`. A colour gets the
/// smallest amount that removes most of what was measured; a colour with too little fringe,
/// or whose fringe the correction does not measurably reduce, gets 0.
FringeEstimate estimate(const img::Image& image, const LensFix& lens,
                        const img::Execution& exec = {});

}  // namespace ql::Defringe
