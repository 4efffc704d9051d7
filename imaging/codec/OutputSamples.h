// The engine's pixels to the samples of an sRGB file: unpremultiplied, sRGB-encoded, clamped,
// rounded.
#pragma once

#include <cstdint>

namespace ql::img {

/// `width` RGBA floats (linear, premultiplied) to 8-bit sRGB with `channels` 3 (alpha dropped)
/// or 4 per pixel.
void toSrgb8(const float* rgba, int width, uint8_t* out, int channels);
/// The same to 16-bit samples in native byte order.
void toSrgb16(const float* rgba, int width, uint16_t* out, int channels);

}  // namespace ql::img
