// The engine's pixels to the samples of an sRGB file: unpremultiplied, sRGB-encoded, clamped,
// rounded.
#pragma once

#include <cstdint>

#include "imaging/Image.h"

namespace ql::img {

/// True when every pixel's alpha is 1: writers then leave the alpha channel out.
bool isOpaque(const Image& image);

/// One linear value to the 8-bit sRGB code toSrgb8 writes for it.
uint8_t srgb8(float linear);

/// `width` RGBA floats (linear, premultiplied) to 8-bit sRGB with `channels` 3 (alpha dropped)
/// or 4 per pixel.
void toSrgb8(const float* rgba, int width, uint8_t* out, int channels);
/// The same to 16-bit samples in native byte order.
void toSrgb16(const float* rgba, int width, uint16_t* out, int channels);

}  // namespace ql::img
