// Exposure adjust: colour multiplied by 2^ev, as a camera's exposure would change it.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct ExposureParams {
    float ev = 0;  // stops; neutral 0
};

/// rgb × 2^ev; alpha untouched (premultiplied colour scales the same way). A non-finite ev
/// returns the input.
Image exposureAdjust(Image input, const ExposureParams& p, const Execution& exec = {});

}  // namespace ql::img
