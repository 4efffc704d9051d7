// The engine's pixels to the samples of an sRGB file: unpremultiplied, sRGB-encoded, clamped,
// rounded.
#pragma once

#include <cstdint>

#include "imaging/Image.h"
#include "imaging/Simd.h"

namespace ql::img {

/// True when every pixel's alpha is 1: writers then leave the alpha channel out.
bool isOpaque(const Image& image);

/// The codes toSrgb8 writes, for linear values in steps of 1/65536 (65537 of them): for loops
/// that convert pixels of their own, through srgb8Code.
const uint8_t* srgb8Codes();
/// One linear value to the 8-bit sRGB code toSrgb8 writes for it; NaN gives 0.
inline uint8_t srgb8Code(const uint8_t* codes, float linear) {
    // Compared this way round, NaN fails the first test and lands on 0 (std::max would keep it
    // and make a wild index). The index goes through int: one instruction where size_t is several.
    const float v = linear > 0 ? (linear < 1 ? linear : 1.0f) : 0.0f;
    return codes[int(v * 65536 + 0.5f)];
}
/// srgb8Code of a pixel's three colour channels (`rgba`, four floats) at once, into out[0..2].
inline void srgb8CodesOf(const uint8_t* codes, const float* rgba, uint8_t* out) {
    const simd::v4 zero = simd::splat(0), one = simd::splat(1);
    simd::v4 v = simd::load(rgba);
    v = v > zero ? v : zero;  // NaN fails the test, as in srgb8Code
    v = v < one ? v : one;
    const simd::v4i i = __builtin_convertvector(v * 65536.0f + 0.5f, simd::v4i);
    out[0] = codes[i[0]], out[1] = codes[i[1]], out[2] = codes[i[2]];
}
uint8_t srgb8(float linear);

/// `width` RGBA floats (linear, premultiplied) to 8-bit sRGB with `channels` 3 (alpha dropped)
/// or 4 per pixel.
void toSrgb8(const float* rgba, int width, uint8_t* out, int channels);
/// The same to 16-bit samples in native byte order.
void toSrgb16(const float* rgba, int width, uint16_t* out, int channels);

}  // namespace ql::img
