// Per-pixel operations: one new image, each pixel a function of the pixels at the same place.
#pragma once

#include <cstdint>
#include <utility>

#include "Execution.h"
#include "Image.h"

namespace ql::img {

/// Asks for the pixels 128 ahead of `at` in a row: loops that do little for each pixel they read
/// otherwise wait on memory, since the processor's own prefetch does not run far enough ahead.
/// Cheap enough to issue every few pixels; an address past the end is harmless.
[[gnu::always_inline]] inline void prefetchAhead(const float* at) {
    // As an address, not a pointer: past the end there is no object to point into.
    __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(at) + 2048));
}

/// out = f(in) pixel by pixel, rows in parallel. `f(const float* in, float* out)` sees four
/// floats each; given the only handle to `input`, out is in, so f reads all four before it
/// writes. Returns an empty image when cancelled.
template <class F>
Image mapPixels(Image input, const Execution& exec, F&& f) {
    Image out = Image::resultFor(input);
    const int w = input.width();
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* in = input.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x) {
                if (x % 8 == 0) prefetchAhead(in + 4 * x);
                f(in + 4 * x, o + 4 * x);
            }
        }
    });
    return done ? out : Image{};
}

/// out = f(a, b) for two images of the same size; the caller checks the sizes. Written into b's
/// pixels, or else a's, when that is the only handle to them.
template <class F>
Image mapPixels2(Image a, Image b, const Execution& exec, F&& f) {
    Image out = Image::resultFor(b, a);
    const int w = a.width();
    const bool done = parallelFor(0, a.height(), exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* pa = a.row(y);
            const float* pb = b.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x) {
                if (x % 8 == 0) prefetchAhead(pa + 4 * x), prefetchAhead(pb + 4 * x);
                f(pa + 4 * x, pb + 4 * x, o + 4 * x);
            }
        }
    });
    return done ? out : Image{};
}

// The alpha rule of the colour operations. They work on unpremultiplied colour: colour is divided
// by alpha where 0 < a < 1 and multiplied by the resulting alpha, clamped to [0, 1], afterwards.
// Alpha at or above 1 leaves the colour as stored; a transparent pixel (a ≤ 0) comes out with
// colour 0.
inline float unpremultiplyScale(float a) {
    return a > 0 && a < 1 ? 1 / a : 1;
}
inline float premultiplyScale(float a) {
    return a > 0 ? (a < 1 ? a : 1) : 0;
}

/// mapPixels for the colour operations that keep alpha: `f(float* rgb)` edits the
/// unpremultiplied colour in place.
template <class F>
Image mapUnpremultiplied(Image input, const Execution& exec, F&& f) {
    return mapPixels(std::move(input), exec, [&f](const float* in, float* out) {
        const float a = in[3];
        if (a >= 1) {  // opaque, nearly every pixel of a photo: no scaling either way
            float c[3] = {in[0], in[1], in[2]};
            f(c);
            out[0] = c[0], out[1] = c[1], out[2] = c[2], out[3] = a;
            return;
        }
        const float u = unpremultiplyScale(a), m = premultiplyScale(a);
        float c[3] = {in[0] * u, in[1] * u, in[2] * u};
        f(c);
        out[0] = c[0] * m;
        out[1] = c[1] * m;
        out[2] = c[2] * m;
        out[3] = a;
    });
}

/// The luma of every pixel's (premultiplied) colour. Empty when cancelled.
inline Plane lumaPlane(const Image& input, const Execution& exec) {
    Plane plane = Plane::forOverwrite(input.width(), input.height());
    const int w = input.width();
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* p = input.row(y);
            float* o = plane.row(y);
            for (int x = 0; x < w; ++x, p += 4) {
                if (x % 8 == 0) prefetchAhead(p);
                o[x] = luma(p[0], p[1], p[2]);
            }
        }
    });
    return done ? plane : Plane{};
}

}  // namespace ql::img
