// Cutting a rectangle out of an image.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

/// Whole pixels, top-left origin.
struct PixelRect {
    int x = 0, y = 0, width = 0, height = 0;
};

/// The part of the image inside `r`, clipped to the image; a rectangle that misses the image
/// gives an empty image, one that covers it whole returns the input.
Image crop(const Image& input, const PixelRect& r, const Execution& exec = {});

}  // namespace ql::img
