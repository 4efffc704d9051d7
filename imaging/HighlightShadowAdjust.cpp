#include "HighlightShadowAdjust.h"

#include <algorithm>
#include <cmath>

#include "GaussianBlur.h"
#include "PixelMap.h"
#include "Simd.h"

namespace ql::img {
namespace {

struct Curve {
    float shadow, highlight;

    // The factor for r, g, b of a place whose surroundings have luminance y (see the header).
    float gain(float y) const {
        const float v = std::sqrt(std::max(y, 0.0f));  // NaN stays NaN: only its pixel
        if (!(v > 1e-6f)) return v == v ? (1 + shadow) * (1 + shadow) : v;
        float lifted = v;
        if (v < 0.5f) {
            const float t = 2 * v, smooth = t * t * (3 - 2 * t);
            lifted += v * shadow * (1 - smooth) * (1 - smooth);
        }
        if (v > 0.5f) {
            const float h = v <= 1 ? (v - 0.5f) * (v - 0.5f) : v - 0.75f;
            lifted -= (1 - highlight) * 0.75f * h;
        }
        const float ratio = lifted / v;
        return ratio * ratio;
    }
};

// Luminance over alpha: a half-covered pixel's colour counts as fully as an opaque one's.
float luminance(float premultipliedLuma, float alpha) {
    return alpha > 1e-6f ? premultipliedLuma / alpha : 0.0f;
}

// The colour under the exposure riding along, then the curve's factor g: the products in the
// order a separate exposure pass would form them, so the fused stage gives the same floats.
inline void recovered(const float* in, float gain, float g, float* out) {
    out[0] = in[0] * gain * g, out[1] = in[1] * gain * g, out[2] = in[2] * gain * g;
    out[3] = in[3];
}

// Curve::gain of eight luminances at once, lane by lane the same steps.
[[gnu::always_inline]] inline simd::v8 gains(const Curve& curve, simd::v8 y) {
    using simd::v8;
    v8 v = y < 0.0f ? 0.0f : y;  // NaN stays NaN, as with std::max
    for (int k = 0; k < 8; ++k)
        v[k] = std::sqrt(v[k]);
    const v8 t = 2 * v, smooth = t * t * (3 - 2 * t);
    const v8 low = v * curve.shadow * (1 - smooth) * (1 - smooth);
    v8 lifted = v < 0.5f ? v + low : v;
    const v8 h = v <= 1.0f ? (v - 0.5f) * (v - 0.5f) : v - 0.75f;
    const v8 high = (1 - curve.highlight) * 0.75f * h;
    lifted = v > 0.5f ? lifted - high : lifted;
    const v8 ratio = lifted / v;
    const v8 tiny = v == v ? v8{} + (1 + curve.shadow) * (1 + curve.shadow) : v;
    return v > 1e-6f ? ratio * ratio : tiny;
}

// The recovery of a run of pixels from their surroundings' blurred luma and alpha, eight at a
// time; `gain` is the exposure riding along.
QL_KERNEL_FOR_WIDE_REGISTERS void recoverRun(const Curve& curve, float gain, const float* in,
                                             const float* blurred, float* out, int count) {
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        prefetchAhead(in + 4 * i);
        simd::v8 y;
        for (int k = 0; k < 8; ++k)
            y[k] = luminance(blurred[4 * (i + k)], blurred[4 * (i + k) + 3]);
        const simd::v8 g = gains(curve, y);
        for (int k = 0; k < 8; ++k)
            recovered(in + 4 * (i + k), gain, g[k], out + 4 * (i + k));
    }
    for (; i < count; ++i)
        recovered(in + 4 * i, gain, curve.gain(luminance(blurred[4 * i], blurred[4 * i + 3])),
                  out + 4 * i);
}

}  // namespace

Image highlightShadowAdjust(Image input, const HighlightShadowParams& p, const Execution& exec) {
    const float shadow = std::isfinite(p.shadowAmount) ? std::clamp(p.shadowAmount, 0.0f, 1.0f) : 0;
    const float highlight =
        std::isfinite(p.highlightAmount) ? std::clamp(p.highlightAmount, 0.0f, 1.0f) : 1;
    const float gain = std::isfinite(p.inputGain) && p.inputGain > 0 ? p.inputGain : 1;
    if (input.empty() || (shadow == 0 && highlight == 1 && gain == 1)) return input;
    if (shadow == 0 && highlight == 1)
        return mapPixels(std::move(input), exec,
                         [gain](const float* in, float* out) { recovered(in, gain, 1, out); });
    const Curve curve{shadow, highlight};
    if (!(p.radius >= 0.3f))
        return mapPixels(std::move(input), exec, [&curve, gain](const float* in, float* out) {
            const float y = luminance(luma(in[0] * gain, in[1] * gain, in[2] * gain), in[3]);
            recovered(in, gain, curve.gain(y), out);
        });
    detail::BlurHooks hooks;
    hooks.coarse = 4;  // the surroundings' brightness, not their detail
    // Only premultiplied luma and alpha are blurred; their ratio is the surroundings' luminance.
    hooks.prepare = [gain](const float* in, float* out, int count) {
        for (int i = 0; i < 4 * count; i += 4) {
            out[i] = luma(in[i] * gain, in[i + 1] * gain, in[i + 2] * gain);
            out[i + 1] = out[i + 2] = 0;
            out[i + 3] = in[i + 3];
        }
    };
    hooks.finish = [&curve, gain](const float* in, const float* blurred, float* out, int count) {
        recoverRun(curve, gain, in, blurred, out, count);
    };
    return detail::gaussianBlurWith(std::move(input), {p.radius, EdgeMode::clamp}, hooks, exec);
}

}  // namespace ql::img
