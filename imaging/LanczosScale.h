// Resampling with a Lanczos-3 kernel, antialiased when it shrinks.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct LanczosScaleParams {
    float scale = 1;        // output height over input height; neutral 1
    float aspectRatio = 1;  // extra horizontal factor: output width = width × scale × aspectRatio
};

/// Resamples to round(width × scale × aspectRatio) by round(height × scale) pixels (at least 1),
/// with pixel centres mapped onto each other. Enlarging interpolates with the Lanczos-3 kernel;
/// shrinking widens the kernel by the shrink factor so that detail finer than the new pixel grid
/// is averaged away instead of aliasing. Edges are clamped. Scales that are not positive and
/// finite, or that would give more than 2^30 pixels, return the input.
Image lanczosScale(const Image& input, const LanczosScaleParams& p, const Execution& exec = {});

/// The same resampling to an exact size.
Image resize(const Image& input, int width, int height, const Execution& exec = {});

}  // namespace ql::img
