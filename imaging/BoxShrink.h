// Shrinking by whole blocks: each output pixel is the mean of a block of input pixels. Cheap at
// any factor, so a large shrink does its bulk here and leaves the antialiased resampling a small
// last step.
#pragma once

#include <functional>

#include "Execution.h"
#include "Image.h"

namespace ql::img {

/// Turns a run of `count` input pixels (four floats each) into the pixels to be averaged.
using RowPrepare = std::function<void(const float* in, float* out, int count)>;

/// The mean of each kx × ky block, ceil(width / kx) × ceil(height / ky) pixels; the blocks at
/// the right and bottom edges average the pixels they have. `prepare`, when given, transforms
/// each input row first. Factors below 1 count as 1. Empty when cancelled.
Image boxShrink(const Image& input, int kx, int ky, const Execution& exec = {},
                const RowPrepare& prepare = {});

/// Exactly width × height: block means take the bulk of a large shrink while the Lanczos pass
/// that follows (imaging/LanczosScale.h) still shrinks by at least `margin`, so that what the
/// blocks let through lands near the final grid's limit, where the Lanczos removes it.
Image shrinkTo(const Image& input, int width, int height, double margin,
               const Execution& exec = {});

}  // namespace ql::img
