// Gaussian blur: every pixel becomes a Gaussian-weighted average of its neighbourhood, all four
// channels alike (premultiplied colour and alpha blur together).
#pragma once

#include <functional>

#include "EdgeMode.h"
#include "Execution.h"
#include "Image.h"
#include "PixelMap.h"

namespace ql::img {

struct GaussianBlurParams {
    /// Standard deviation σ of the Gaussian, in pixels. Below 0.3 (and NaN) the blur is too
    /// small to see: neutral. Values above the long edge act as the long edge.
    float radius = 0;
    /// What lies beyond the border.
    EdgeMode edges = EdgeMode::clamp;
};

/// Separable; the weights always sum to 1 and their variance is σ² in each direction. Below
/// σ = 3 a sampled, normalised Gaussian of support ±3σ; from 3 on, three stacked box filters
/// with fractional end weights (same variance, cost independent of σ).
Image gaussianBlur(const Image& input, const GaussianBlurParams& p, const Execution& exec = {});

namespace detail {

/// Hooks that let an operation built on the blur skip whole passes over memory. `prepare` turns
/// a run of input pixels into the pixels to be blurred (default: the input itself); `finish`
/// receives a run of input pixels and the blur at the same places and writes the output
/// (default: the blur). Runs hold `count` pixels, four floats each; `out` may be `in` itself,
/// so finish reads each pixel of `in` before it writes that pixel, and aliases nothing else.
struct BlurHooks {
    std::function<void(const float* in, float* out, int count)> prepare;
    std::function<void(const float* in, const float* blurred, float* out, int count)> finish;
    /// The caller needs the blur's shape only to within about σ / `coarse` pixels (0: exactly):
    /// where that is 2 pixels or more, with clamped edges, it may be computed on a copy shrunk
    /// by that factor and interpolated back, at a fraction of its passes over memory. At 8
    /// blocks a σ the result stays within one 8-bit level of the exact blur's; at 4, within
    /// 0.3 % of full scale.
    int coarse = 0;
};

/// gaussianBlur with hooks. Always does the work (no neutral shortcut): the caller decides
/// neutrality. σ must be at least 0.3 and finite; it is capped at the long edge. Given the only
/// handle to `input`, the result is written into its pixels.
Image gaussianBlurWith(Image input, const GaussianBlurParams& p, const BlurHooks& hooks,
                       const Execution& exec);

/// The same Gaussian, clamped at the edges, of one plane: a quarter of the work of blurring four
/// channels, and the same floats as the blur of a picture's channel. Empty when cancelled.
Plane blurPlane(const Plane& plane, float sigma, const Execution& exec);

/// For operations that judge luma against its Gaussian mean: f(base pixel, luma, mean luma, out)
/// for every pixel, where `lumas` is the luma of the input and its mean the blur at σ, and `base`
/// (the input or another picture of its size) is the picture f changes. The result is written
/// into the base when that was the only handle (f then reads each base pixel before writing it).
/// Empty when cancelled.
template <class F>
Image withLumaAndMean(const Plane& lumas, Image base, float sigma, const Execution& exec, F f) {
    const int w = base.width(), h = base.height();
    if (lumas.empty()) return Image{};
    const Plane means = blurPlane(lumas, sigma, exec);
    if (means.empty()) return Image{};
    Image out = Image::resultFor(base);
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float *l = lumas.row(y), *m = means.row(y), *b = base.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x, b += 4, o += 4) {
                if (x % 8 == 0) prefetchAhead(b);
                f(b, l[x], m[x], o);
            }
        }
    });
    return done ? out : Image{};
}

/// The same with the luma taken from `input`, which is let go once it is.
template <class F>
Image withLumaAndMean(Image input, Image base, float sigma, const Execution& exec, F f) {
    const Plane lumas = lumaPlane(input, exec);
    input = {};
    return withLumaAndMean(lumas, std::move(base), sigma, exec, f);
}

}  // namespace detail

}  // namespace ql::img
