// Per-pixel operations: one new image, each pixel a function of the pixels at the same place.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

/// out = f(in) pixel by pixel, rows in parallel. `f(const float* in, float* out)` sees four
/// floats each. Returns an empty image when cancelled.
template <class F>
Image mapPixels(const Image& input, const Execution& exec, F&& f) {
    Image out(input.width(), input.height());
    const int w = input.width();
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* in = input.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x) f(in + 4 * x, o + 4 * x);
        }
    });
    return done ? out : Image{};
}

/// out = f(a, b) for two images of the same size; the caller checks the sizes.
template <class F>
Image mapPixels2(const Image& a, const Image& b, const Execution& exec, F&& f) {
    Image out(a.width(), a.height());
    const int w = a.width();
    const bool done = parallelFor(0, a.height(), exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* pa = a.row(y);
            const float* pb = b.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x) f(pa + 4 * x, pb + 4 * x, o + 4 * x);
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
