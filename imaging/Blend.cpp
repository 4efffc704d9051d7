#include "Blend.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "GaussianBlur.h"
#include "PixelMap.h"

namespace ql::img {

namespace {

float clamp01(float v) {
    return std::clamp(v, 0.0f, 1.0f);
}

float softLight(float b, float t) {
    if (t <= 0.5f) return b - (1 - 2 * t) * b * (1 - b);
    // The polynomial branch also covers negative colour, where the root would fail.
    const float d = b <= 0.25f ? ((16 * b - 12) * b + 4) * b : std::sqrt(b);
    return b + (2 * t - 1) * (d - b);
}

// The bottom colour moved to the top's luma, then brought into [0, 1] without changing its luma
// or hue where that luma allows it.
void luminosity(const float* b, const float* t, float* out) {
    const float shift = luma(t[0], t[1], t[2]) - luma(b[0], b[1], b[2]);
    float c[3] = {b[0] + shift, b[1] + shift, b[2] + shift};
    const float l = luma(c[0], c[1], c[2]);
    const float lo = std::min({c[0], c[1], c[2]});
    const float hi = std::max({c[0], c[1], c[2]});
    // Both tests use the extremes found before either step, as the clip is usually defined.
    if (lo < 0 && l >= 0)
        for (float& v : c)
            v = l + (v - l) * l / (l - lo);
    if (hi > 1 && l <= 1)
        for (float& v : c)
            v = l + (v - l) * (1 - l) / (hi - l);
    std::copy(c, c + 3, out);
}

// The weighted form shared by the blends defined on unpremultiplied colour, for one pixel.
template <class B>
void compositePixel(const float* t, const float* b, float* out, const B& mix) {
    const float at = clamp01(t[3]), ab = clamp01(b[3]);
    const float ut = unpremultiplyScale(t[3]), ub = unpremultiplyScale(b[3]);
    const float tc[3] = {t[0] * ut, t[1] * ut, t[2] * ut};
    const float bc[3] = {b[0] * ub, b[1] * ub, b[2] * ub};
    float m[3];
    mix(bc, tc, m);
    const float both = at * ab;
    for (int c = 0; c < 3; ++c)
        out[c] = t[c] * (1 - ab) + b[c] * (1 - at) + both * m[c];
    out[3] = at + ab - both;
}

template <class B>
Image composite(const Image& top, const Image& bottom, const Execution& exec, B&& mix) {
    return mapPixels2(top, bottom, exec, [&mix](const float* t, const float* b, float* out) {
        compositePixel(t, b, out, mix);
    });
}

template <class F>
Image perChannel(const Image& top, const Image& bottom, const Execution& exec, F&& f) {
    return mapPixels2(top, bottom, exec, [&f](const float* t, const float* b, float* out) {
        for (int c = 0; c < 4; ++c)
            out[c] = f(t[c], b[c]);
    });
}

}  // namespace

Image blend(const Image& input, const Image& background, const BlendParams& p,
            const Execution& exec) {
    if (input.empty()) return input;
    if (input.width() != background.width() || input.height() != background.height())
        return background;
    const auto separable = [&](auto f) {
        return composite(input, background, exec, [f](const float* b, const float* t, float* m) {
            for (int c = 0; c < 3; ++c)
                m[c] = f(b[c], t[c]);
        });
    };
    switch (p.mode) {
        case BlendMode::softLight:
            return separable(softLight);
        case BlendMode::luminosity:
            return composite(input, background, exec, luminosity);
        case BlendMode::multiply:
            return separable([](float b, float t) { return b * t; });
        case BlendMode::difference:
            return separable([](float b, float t) { return std::abs(t - b); });
        case BlendMode::maximum:
            return perChannel(input, background, exec,
                              [](float t, float b) { return std::max(t, b); });
        case BlendMode::minimum:
            return perChannel(input, background, exec,
                              [](float t, float b) { return std::min(t, b); });
        case BlendMode::addition:
            return perChannel(input, background, exec, [](float t, float b) { return t + b; });
    }
    return background;
}

Image blurColourUnderLuminosity(Image input, float radius, float amount, const Execution& exec) {
    const float t = amount > 0 ? std::min(amount, 1.0f) : 0;  // NaN gives 0
    if (input.empty() || t == 0 || !(radius >= 0.3f)) return input;
    detail::BlurHooks hooks;
    // The luminosity blend and the mix, as blend() and dissolve() would give them, made while
    // the blur is written.
    hooks.finish = [t](const float* in, const float* blurred, float* out, int count) {
        for (int i = 0; i < 4 * count; i += 4) {
            float smooth[4] = {0, 0, 0, 1};
            // Opaque pixels, nearly all of a photo, are the blend alone.
            if (in[i + 3] == 1 && blurred[i + 3] == 1)
                luminosity(blurred + i, in + i, smooth);
            else
                compositePixel(in + i, blurred + i, smooth, luminosity);
            for (int c = 0; c < 4; ++c)
                out[i + c] = t == 1 ? smooth[c] : in[i + c] + (smooth[c] - in[i + c]) * t;
        }
    };
    return detail::gaussianBlurWith(std::move(input), {radius, EdgeMode::clamp}, hooks, exec);
}

Image softLightGrey(Image input, const std::function<void(int, float*)>& levels,
                    const Execution& exec, const std::function<void(int, float*)>& baseGains) {
    if (input.empty() || !levels) return input;
    Image out = Image::resultFor(input);
    const int w = input.width();
    const auto mix = [](const float* b, const float* t, float* m) {
        for (int c = 0; c < 3; ++c)
            m[c] = softLight(b[c], t[c]);
    };
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        std::vector<float> level(static_cast<size_t>(w)), gain(baseGains ? size_t(w) : 0);
        for (int y = y0; y < y1; ++y) {
            levels(y, level.data());
            if (baseGains) baseGains(y, gain.data());
            const float* b = input.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x) {
                if (x % 8 == 0) prefetchAhead(b + 4 * x);
                const float v = level[size_t(x)];
                const float grey[4] = {v, v, v, 1};
                const float* base = b + 4 * x;
                float gained[4];
                if (baseGains) {
                    const float g = gain[size_t(x)];
                    gained[0] = base[0] * g, gained[1] = base[1] * g, gained[2] = base[2] * g;
                    gained[3] = base[3];
                    base = gained;
                }
                compositePixel(grey, base, o + 4 * x, mix);
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
