// Edge detection: bright where a channel changes, black where it is flat.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct EdgesParams {
    /// Scale of the result; 0 neutral (input returned), 1 plain. Non-finite: neutral.
    float intensity = 1;
};

/// Each colour channel becomes intensity × √(gx² + gy²), gx and gy its 3×3 Sobel derivatives
/// (weights 1 2 1; a unit step gives 4). Edges clamp. Alpha becomes 1.
Image edges(const Image& input, const EdgesParams& p, const Execution& exec = {});

}  // namespace ql::img
