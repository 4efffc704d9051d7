// Blend modes and compositing.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "ImageTesting.h"
#include "imaging/Blend.h"
#include "imaging/Composite.h"
#include "imaging/GaussianBlur.h"

namespace ql::img {
namespace {

using testing::expectThreadIndependent;
using testing::identical;
using testing::make;
using testing::maxDifference;
using testing::noise;

Pixel blendPixel(Pixel top, Pixel bottom, BlendMode mode) {
    return blend(Image::filled(1, 1, top), Image::filled(1, 1, bottom), {mode}).at(0, 0);
}

void expectNear(Pixel a, Pixel b, float tolerance = 1e-6f) {
    EXPECT_NEAR(a.r, b.r, tolerance);
    EXPECT_NEAR(a.g, b.g, tolerance);
    EXPECT_NEAR(a.b, b.b, tolerance);
    EXPECT_NEAR(a.a, b.a, tolerance);
}

TEST(Blend, SeparableModesOnOpaquePixels) {
    const Image top = noise(33, 7, 1, -0.2f, 1.5f), bottom = noise(33, 7, 2, -0.2f, 1.5f);
    // Each separable mode against its formula, per channel, with t the top and b the bottom.
    const auto check = [&](BlendMode mode, float (*f)(float t, float b)) {
        const Image out = blend(top, bottom, {mode});
        const Image expected = make(33, 7, [&](int x, int y) {
            const Pixel t = top.at(x, y), b = bottom.at(x, y);
            return Pixel{f(t.r, b.r), f(t.g, b.g), f(t.b, b.b), 1};
        });
        EXPECT_LT(maxDifference(out, expected), 1e-5f) << int(mode);
        expectThreadIndependent([&](const Execution& e) { return blend(top, bottom, {mode}, e); });
    };
    check(BlendMode::softLight, [](float t, float b) {
        const float d = b <= 0.25f ? ((16 * b - 12) * b + 4) * b : std::sqrt(b);
        return t <= 0.5f ? b - (1 - 2 * t) * b * (1 - b) : b + (2 * t - 1) * (d - b);
    });
    check(BlendMode::multiply, [](float t, float b) { return t * b; });
    check(BlendMode::difference, [](float t, float b) { return std::abs(t - b); });
    check(BlendMode::maximum, [](float t, float b) { return std::max(t, b); });
    check(BlendMode::minimum, [](float t, float b) { return std::min(t, b); });

    // Soft light's landmarks: mid-grey leaves the bottom, black squares it, white lifts it.
    expectNear(blendPixel({0.5f, 0, 1, 1}, {0.3f, 0.16f, 0.64f, 1}, BlendMode::softLight),
               {0.3f, 0.16f * 0.16f, 0.8f, 1});
    expectNear(blendPixel({1, 1, 1, 1}, {0.16f, 0, 0, 1}, BlendMode::softLight),
               {0.398336f, 0, 0, 1});
}

TEST(Blend, TranslucentAndPerChannelModes) {
    // Half-covering layers: colour = top·(1 − αb) + bottom·(1 − αt) + αt·αb·B.
    const Pixel top{0.3f, 0.1f, 0.5f, 0.5f}, bottom{0.2f, 0.4f, 0, 0.5f};
    const float both = 0.25f;
    expectNear(
        blendPixel(top, bottom, BlendMode::multiply),
        {0.15f + 0.1f + both * 0.6f * 0.4f, 0.05f + 0.2f + both * 0.2f * 0.8f, 0.25f, 0.75f});
    const float soft = 0.4f + (2 * 0.6f - 1) * (std::sqrt(0.4f) - 0.4f);
    EXPECT_NEAR(blendPixel(top, bottom, BlendMode::softLight).r, 0.15f + 0.1f + both * soft, 1e-6f);
    // The per-channel modes treat alpha like colour.
    expectNear(blendPixel(top, bottom, BlendMode::addition), {0.5f, 0.5f, 0.5f, 1});
    expectNear(blendPixel(top, {0.2f, 0.4f, 0, 0.7f}, BlendMode::maximum),
               {0.3f, 0.4f, 0.5f, 0.7f});
    // A transparent top leaves the bottom.
    expectNear(blendPixel({}, bottom, BlendMode::softLight), bottom);

    const Image a = noise(4, 4, 3);
    const Image other(3, 3);
    EXPECT_TRUE(blend(a, other, {}).sharesPixelsWith(other));
    EXPECT_TRUE(blend(Image{}, a, {}).empty());
}

TEST(Blend, LuminosityTakesTopLumaBottomHue) {
    const Image top = noise(40, 5, 4), bottom = noise(40, 5, 5);
    const Image out = blend(top, bottom, {BlendMode::luminosity});
    for (int x = 0; x < 40; ++x) {
        const Pixel t = top.at(x, 2), b = bottom.at(x, 2), o = out.at(x, 2);
        const float lt = luma(t.r, t.g, t.b), lb = luma(b.r, b.g, b.b), lo = luma(o.r, o.g, o.b);
        EXPECT_NEAR(lo, lt, 1e-5f);
        // Inside [0, 1], and the chroma is the bottom's, scaled by at most 1.
        EXPECT_GE(std::min({o.r, o.g, o.b}), -1e-6f);
        EXPECT_LE(std::max({o.r, o.g, o.b}), 1 + 1e-6f);
        const float k = (o.r - lo) / (b.r - lb);
        EXPECT_LE(k, 1 + 1e-4f);
        EXPECT_NEAR(o.g - lo, k * (b.g - lb), 1e-4f);
        EXPECT_NEAR(o.b - lo, k * (b.b - lb), 1e-4f);
    }
    // In gamut no clipping is needed: a pure shift.
    expectNear(blendPixel({0.5f, 0.5f, 0.5f, 1}, {0.4f, 0.5f, 0.6f, 1}, BlendMode::luminosity),
               {0.4f + 0.5f - luma(0.4f, 0.5f, 0.6f), 0.5f + 0.5f - luma(0.4f, 0.5f, 0.6f),
                0.6f + 0.5f - luma(0.4f, 0.5f, 0.6f), 1},
               1e-6f);
    expectThreadIndependent(
        [&](const Execution& e) { return blend(top, bottom, {BlendMode::luminosity}, e); });
}

TEST(Blend, BlurredColourUnderLuminosityIsTheThreeStepsInOne) {
    // Translucent noise: every branch of the blend's alpha handling is taken. Opaque noise
    // beyond [0, 1] takes the opaque pixels' own way and both clips.
    const Image in = noise(37, 23, 9);
    const Image opaque = make(37, 23, [&](int x, int y) {
        const Pixel p = in.at(x, y);
        return Pixel{2.4f * p.r - 0.7f, p.g, 1.8f * p.b - 0.2f, 1};
    });
    for (const Image& picture : {in, opaque}) {
        const Image blurred = gaussianBlur(picture, {4.6f, EdgeMode::clamp});
        const Image smooth = blend(picture, blurred, {BlendMode::luminosity});
        for (float amount : {0.6f, 1.0f, 3.0f})
            EXPECT_TRUE(identical(blurColourUnderLuminosity(picture, 4.6f, amount),
                                  dissolve(picture, smooth, {amount})))
                << amount;
    }
    EXPECT_TRUE(identical(
        blurColourUnderLuminosity(in, 1.5f, 0.5f),
        dissolve(in, blend(in, gaussianBlur(in, {1.5f}), {BlendMode::luminosity}), {0.5f})));
    for (float amount : {0.0f, -1.0f, float(NAN)})
        EXPECT_TRUE(blurColourUnderLuminosity(in, 4.6f, amount).sharesPixelsWith(in));
    EXPECT_TRUE(blurColourUnderLuminosity(in, 0.2f, 1).sharesPixelsWith(in));
    expectThreadIndependent(
        [&](const Execution& e) { return blurColourUnderLuminosity(in, 4.6f, 0.7f, e); });
}

TEST(Blend, SoftLightGreyIsTheBlendOfTheGreyPicture) {
    const Image in = noise(29, 7, 3);
    const auto level = [](int x, int y) { return float(x * 13 + y * 7) / 120 - 0.2f; };
    Image grey = Image::forOverwrite(in.width(), in.height());
    for (int y = 0; y < in.height(); ++y)
        for (int x = 0; x < in.width(); ++x)
            grey.set(x, y, {level(x, y), level(x, y), level(x, y), 1});
    const auto rows = [&](int y, float* out) {
        for (int x = 0; x < in.width(); ++x)
            out[x] = level(x, y);
    };
    EXPECT_TRUE(identical(softLightGrey(in, rows), blend(grey, in, {BlendMode::softLight})));
    EXPECT_TRUE(softLightGrey(in, {}).sharesPixelsWith(in));
    expectThreadIndependent([&](const Execution& e) { return softLightGrey(in, rows, e); });
}

TEST(Composite, MaskDissolveAndSourceOver) {
    const Image a = noise(20, 6, 6), b = noise(20, 6, 7);
    const Image mask = make(20, 6, [](int x, int) { return Pixel{float(x) / 10 - 0.5f, 9, 9, 9}; });
    const Image masked = blendWithMask(a, b, mask);
    for (int x = 0; x < 20; ++x) {
        const float m = std::clamp(float(x) / 10 - 0.5f, 0.0f, 1.0f);
        EXPECT_NEAR(masked.at(x, 1).g, a.at(x, 1).g * m + b.at(x, 1).g * (1 - m), 1e-6f);
    }
    const Image other(3, 3);
    EXPECT_TRUE(blendWithMask(a, b, Image{}).sharesPixelsWith(b));
    EXPECT_TRUE(blendWithMask(a, other, mask).sharesPixelsWith(other));
    // A mask of another size is stretched over the picture: a 5 × 3 ramp over 20 × 6 pixels
    // lands on the same ramp, bilinear between the mask's pixel centres and held at the edges.
    const Image small = make(5, 3, [](int x, int) { return Pixel{float(x) / 4, 0, 0, 1}; });
    const Image stretched = blendWithMask(a, b, small);
    for (int y : {0, 5})
        for (int x = 0; x < 20; ++x) {
            const float m = std::clamp(((x + 0.5f) / 4 - 0.5f) / 4, 0.0f, 1.0f);
            EXPECT_NEAR(stretched.at(x, y).r, a.at(x, y).r * m + b.at(x, y).r * (1 - m), 1e-5f)
                << x << "," << y;
        }
    const Image rows = make(4, 3, [](int, int y) { return Pixel{y == 1 ? 1.0f : 0.0f, 0, 0, 1}; });
    const Image across = blendWithMask(a, b, rows);  // 3 mask rows over 6: ¼, ¾, ¾, ¼ at rows 1–4
    EXPECT_NEAR(across.at(7, 0).g, b.at(7, 0).g, 1e-6f);
    EXPECT_NEAR(across.at(7, 2).g, a.at(7, 2).g * 0.75f + b.at(7, 2).g * 0.25f, 1e-5f);
    EXPECT_NEAR(across.at(7, 4).g, a.at(7, 4).g * 0.25f + b.at(7, 4).g * 0.75f, 1e-5f);
    expectThreadIndependent([&](const Execution& e) { return blendWithMask(a, b, small, e); });
    expectThreadIndependent([&](const Execution& e) { return blendWithMask(a, b, mask, e); });

    EXPECT_TRUE(dissolve(a, b, {0}).sharesPixelsWith(a));
    EXPECT_TRUE(dissolve(a, b, {NAN}).sharesPixelsWith(a));
    EXPECT_TRUE(dissolve(a, b, {3}).sharesPixelsWith(b));
    EXPECT_TRUE(dissolve(a, Image(1, 1), {0.5f}).sharesPixelsWith(a));
    EXPECT_NEAR(dissolve(a, b, {0.25f}).at(3, 3).r, 0.75f * a.at(3, 3).r + 0.25f * b.at(3, 3).r,
                1e-6f);
    expectThreadIndependent([&](const Execution& e) { return dissolve(a, b, {0.3f}, e); });

    const Pixel s{0.2f, 0.1f, 0, 0.4f}, d{0.5f, 0.5f, 1, 1};
    expectNear(sourceOver(Image::filled(1, 1, s), Image::filled(1, 1, d)).at(0, 0),
               {0.5f, 0.4f, 0.6f, 1});
    EXPECT_TRUE(sourceOver(a, other).sharesPixelsWith(other));
    expectThreadIndependent([&](const Execution& e) { return sourceOver(a, b, e); });
}

}  // namespace
}  // namespace ql::img
