// The automatic level finder: the rotation that makes a tilted horizon, or tilted upright
// structures, straight again.
#pragma once

#include <optional>

#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::Straighten {

struct Level {
    /// Degrees in -10…10, in the sense of the `rotation` slider: set as `rotation` it levels the
    /// picture. A horizon that rises to the right by α degrees gives +α. Exactly 0 when the
    /// picture is level to within a tenth of a degree.
    double angle = 0;
    /// How clearly one direction dominates, in (0, 1): 1 − 1.8 / r, where r is the height of the
    /// smoothed histogram peak that was found over the mean of its bins. A peak that just passes
    /// (r = 1.8) gives 0; a single long straight edge gives about 0.9.
    double confidence = 0;
};

/// Finds the dominant near-horizontal or near-vertical straight edges of the picture at a long
/// edge of at most 640 pixels and measures how far they lean. Edges are judged on sRGB-encoded
/// luminance, as the eye sees them, so that a horizon against a dark foreground counts as much as
/// one against a bright sky. Horizontal and upright edges are counted apart; the family with more
/// weight behind its peak sets the angle, and the other one helps sharpen it only when it leans
/// the same way (not when its lines converge in perspective). Nothing when the picture is smaller
/// than 33 pixels on a side (after the shrink), has no strong edges, has no dominant direction
/// within ±10°, or when cancelled. Pure; the same answer on any number of threads.
std::optional<Level> level(const img::Image& image, const img::Execution& exec = {});

}  // namespace ql::Straighten
