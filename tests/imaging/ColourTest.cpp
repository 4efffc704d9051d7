// The colour operations: matrix, clamp, controls, vibrance, gamma, the sRGB curve, cube and
// threshold.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "ImageTesting.h"
#include "imaging/ColorClamp.h"
#include "imaging/ColorControls.h"
#include "imaging/ColorCube.h"
#include "imaging/ColorMatrix.h"
#include "imaging/ColorThreshold.h"
#include "imaging/GammaAdjust.h"
#include "imaging/SrgbTransfer.h"
#include "imaging/Vibrance.h"

namespace ql::img {
namespace {

using testing::expectThreadIndependent;
using testing::identical;
using testing::maxDifference;

// Premultiplied noise with alpha from transparent to opaque, colour partly outside [0, 1].
Image translucent(int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> c(-0.2f, 1.3f), a(0, 1);
    return testing::make(w, h, [&](int x, int) {
        const float alpha = x == 0 ? 0 : x == 1 ? 1 : a(rng);
        return Pixel{c(rng) * alpha, c(rng) * alpha, c(rng) * alpha, alpha};
    });
}

// The result is bit-identical for 1, 2 and 7 threads, and empty when cancelled.
// Applies f to the unpremultiplied colour of every pixel the slow way, alpha kept.
Image reference(const Image& in, const std::function<void(float*)>& f) {
    return testing::make(in.width(), in.height(), [&](int x, int y) {
        const Pixel p = in.at(x, y);
        if (p.a <= 0) return Pixel{0, 0, 0, p.a};
        const float a = std::min(p.a, 1.0f);
        float c[3] = {p.r / a, p.g / a, p.b / a};
        f(c);
        return Pixel{c[0] * a, c[1] * a, c[2] * a, p.a};
    });
}

TEST(ColorMatrix, MixesUnpremultipliedChannels) {
    const Image in = translucent(40, 9, 1);
    EXPECT_TRUE(colorMatrix(in, {}).sharesPixelsWith(in));
    ColorMatrixParams bad;
    bad.green.r = NAN;
    EXPECT_TRUE(colorMatrix(in, bad).sharesPixelsWith(in));

    ColorMatrixParams swap{{0, 0, 1, 0}, {0.5f, 0.5f, 0, 0}, {1, 0, 0, 0}, {0, 0, 0, 1}};
    swap.bias = {0.1f, 0, -0.2f, 0};
    const Image expected = reference(in, [](float* c) {
        const float r = c[0];
        c[0] = c[2] + 0.1f;
        c[1] = 0.5f * (r + c[1]);
        c[2] = r - 0.2f;
    });
    EXPECT_LT(maxDifference(colorMatrix(in, swap), expected), 1e-5f);
    // An alpha row makes a new alpha, and the colour is premultiplied by it.
    ColorMatrixParams fromRed;
    fromRed.alpha = {0.5f, 0, 0, 0};
    const Image half = colorMatrix(Image::filled(1, 1, {0.4f, 0.2f, 0, 0.5f}), fromRed);
    EXPECT_NEAR(half.at(0, 0).a, 0.4f, 1e-6f);
    EXPECT_NEAR(half.at(0, 0).g, 0.4f * 0.4f, 1e-6f);
    fromRed.alpha = {-1, 0, 0, 0};
    EXPECT_EQ(colorMatrix(Image::filled(1, 1, {1, 1, 1, 1}), fromRed).at(0, 0),
              (Pixel{0, 0, 0, -1}));
    expectThreadIndependent([&](const Execution& e) { return colorMatrix(in, swap, e); });
}

TEST(ColorClamp, LimitsEachUnpremultipliedChannel) {
    const Image in = translucent(40, 9, 2);
    EXPECT_TRUE(colorClamp(in, {}).sharesPixelsWith(in));
    // (0.6, 1.8, −0.4) at alpha 0.5; the alpha limit then premultiplies by 0.25.
    const Image px = Image::filled(1, 1, {0.3f, 0.9f, -0.2f, 0.5f});
    EXPECT_EQ(colorClamp(px, {{0, 0, 0, 0}, {1, 1, 1, 0.25f}}).at(0, 0),
              (Pixel{0.15f, 0.25f, 0, 0.25f}));
    // NaN limits are no limits; a crossed range gives its maximum.
    EXPECT_EQ(colorClamp(px, {{NAN, 1, 0.9f, NAN}, {NAN, NAN, 0.2f, NAN}}).at(0, 0),
              (Pixel{0.3f, 0.9f, 0.1f, 0.5f}));
    const ColorClampParams p{{0, 0.1f, 0, 0}, {1, 0.5f, 1, 1}};
    const Image expected = reference(in, [](float* c) {
        c[0] = std::clamp(c[0], 0.0f, 1.0f), c[1] = std::clamp(c[1], 0.1f, 0.5f);
        c[2] = std::clamp(c[2], 0.0f, 1.0f);
    });
    EXPECT_LT(maxDifference(colorClamp(in, p), expected), 1e-6f);
    expectThreadIndependent([&](const Execution& e) { return colorClamp(in, p, e); });
}

TEST(ColorControls, SaturationThenBrightnessThenContrast) {
    const Image in = translucent(40, 9, 3);
    EXPECT_TRUE(colorControls(in, {1, 0, 1}).sharesPixelsWith(in));
    EXPECT_TRUE(colorControls(in, {NAN, INFINITY, NAN}).sharesPixelsWith(in));
    const ColorControlsParams p{1.4f, 0.1f, 1.3f};
    const Image expected = reference(in, [](float* c) {
        const float l = luma(c[0], c[1], c[2]);
        for (int i = 0; i < 3; ++i)
            c[i] = (l + (c[i] - l) * 1.4f + 0.1f - 0.5f) * 1.3f + 0.5f;
    });
    EXPECT_LT(maxDifference(colorControls(in, p), expected), 1e-5f);
    const Pixel grey = colorControls(Image::filled(1, 1, {1, 0, 0, 1}), {0, 0, 1}).at(0, 0);
    EXPECT_FLOAT_EQ(grey.r, lumaR);
    EXPECT_FLOAT_EQ(grey.b, lumaR);
    expectThreadIndependent([&](const Execution& e) { return colorControls(in, p, e); });
}

TEST(Vibrance, BoostsDullColoursAndKeepsLuma) {
    const Image in = testing::noise(30, 8, 4);
    EXPECT_TRUE(vibrance(in, {0}).sharesPixelsWith(in));
    EXPECT_TRUE(vibrance(in, {NAN}).sharesPixelsWith(in));
    const Image expected = reference(in, [](float* c) {
        const float hi = std::max({c[0], c[1], c[2]}), lo = std::min({c[0], c[1], c[2]});
        const float k = 1 + 0.8f * std::pow(1 - (hi - lo) / hi, 2.0f), l = luma(c[0], c[1], c[2]);
        for (int i = 0; i < 3; ++i)
            c[i] = l + (c[i] - l) * k;
    });
    const Image out = vibrance(in, {0.8f});
    EXPECT_LT(maxDifference(out, expected), 1e-5f);
    // A fully saturated colour is left alone; amounts beyond 1 count as 1.
    const Image vivid = Image::filled(1, 1, {0.9f, 0.3f, 0, 1});
    EXPECT_LT(maxDifference(vibrance(vivid, {1}), vivid), 1e-6f);
    EXPECT_TRUE(identical(vibrance(in, {5}), vibrance(in, {1})));
    expectThreadIndependent([&](const Execution& e) { return vibrance(in, {-0.6f}, e); });
}

TEST(GammaAdjust, SignPreservingPower) {
    const Image in = translucent(40, 9, 5);
    for (float neutral : {1.0f, 0.0f, -2.0f, NAN, INFINITY})
        EXPECT_TRUE(gammaAdjust(in, {neutral}).sharesPixelsWith(in));
    const Image expected = reference(in, [](float* c) {
        for (int i = 0; i < 3; ++i)
            c[i] = std::copysign(std::sqrt(std::abs(c[i])), c[i]);
    });
    EXPECT_LT(maxDifference(gammaAdjust(in, {0.5f}), expected), 1e-5f);
    expectThreadIndependent([&](const Execution& e) { return gammaAdjust(in, {2.2f}, e); });
}

TEST(SrgbTransfer, CurveTablesAndImages) {
    EXPECT_NEAR(srgbEncode(0.0031308f), 0.04045f, 1e-6f);
    EXPECT_NEAR(srgbEncode(0.18f), 0.461356f, 1e-6f);
    EXPECT_EQ(srgbEncode(1), 1);
    EXPECT_EQ(srgbEncode(-0.3f), -srgbEncode(0.3f));
    for (float x = -2; x < 3; x += 0.01f)
        EXPECT_NEAR(srgbDecode(srgbEncode(x)), x, 2e-6f);

    // The tables against the exact curve, densely and down to the smallest values.
    const SrgbEncodeTable encode;
    const SrgbDecodeTable decode;
    float worst = 0;
    for (int i = 0; i <= 1 << 20; ++i) {
        const float x = float(i) / (1 << 20), tiny = x * x * x * x;
        worst = std::max({worst, std::abs(encode.clamped(x) - srgbEncode(x)),
                          std::abs(encode.clamped(tiny) - srgbEncode(tiny)),
                          std::abs(decode(x) - srgbDecode(x)),
                          std::abs(srgbDecodeUnit(simd::splat(x))[2] - srgbDecode(x))});
    }
    EXPECT_LT(worst, 1e-6f);
    EXPECT_EQ(encode.clamped(NAN), 0);
    // Eight at a time, the same values lane by lane, out of range and NaN included.
    const float lanes[] = {-1, 0, 1e-7f, 0.002f, 0.0031308f, 0.5f, 1, 7, NAN, 0.999999f, 1e-3f};
    for (float x : lanes)
        for (float y : lanes) {
            const simd::v8 v{x, y, x * 0.5f, y * 0.25f, 1 - x, 1 - y, x * y, x + y};
            const simd::v8 e = encode.clamped(v);
            for (int k = 0; k < 8; ++k)
                EXPECT_EQ(e[k], encode.clamped(v[k])) << v[k];
        }
    EXPECT_EQ(encode(-4), srgbEncode(-4));

    const Image in = translucent(40, 9, 6);
    const Image expected = reference(in, [](float* c) {
        for (int i = 0; i < 3; ++i)
            c[i] = srgbEncode(c[i]);
    });
    EXPECT_LT(maxDifference(linearToSRGB(in), expected), 2e-6f);
    EXPECT_LT(maxDifference(srgbToLinear(linearToSRGB(in)), reference(in, [](float*) {})), 1e-5f);
    expectThreadIndependent([&](const Execution& e) { return srgbToLinear(in, e); });
}

// A cube of n³ nodes, node (i, j, k) holding f(i, j, k) / (n − 1).
ColorCubeParams cube(int n, bool srgb, const std::function<Pixel(float, float, float)>& f) {
    auto data = std::make_shared<std::vector<float>>();
    const float s = 1.0f / float(n - 1);
    for (int b = 0; b < n; ++b)
        for (int g = 0; g < n; ++g)
            for (int r = 0; r < n; ++r) {
                const Pixel p = f(float(r) * s, float(g) * s, float(b) * s);
                data->insert(data->end(), {p.r, p.g, p.b, p.a});
            }
    return {n, data, srgb};
}

// Trilinear interpolation written as a weighted sum of the eight corners.
Pixel slowLookup(const ColorCubeParams& p, float r, float g, float b) {
    const int n = p.dimension;
    const float in[3] = {r, g, b};
    int i[3];
    float f[3];
    for (int k = 0; k < 3; ++k) {
        const float t = std::clamp(in[k], 0.0f, 1.0f) * float(n - 1);
        i[k] = std::min(int(std::floor(t)), n - 2);
        f[k] = t - float(i[k]);
    }
    double sum[3] = {};
    for (int corner = 0; corner < 8; ++corner) {
        double w = 1;
        size_t node = 0, stride = 1;
        for (int k = 0; k < 3; ++k, stride *= size_t(n)) {
            const int d = (corner >> k) & 1;
            w *= d ? f[k] : 1 - f[k];
            node += size_t(i[k] + d) * stride;
        }
        for (int c = 0; c < 3; ++c)
            sum[c] += w * (*p.data)[node * 4 + size_t(c)];
    }
    return {float(sum[0]), float(sum[1]), float(sum[2]), 1};
}

TEST(ColorCube, TrilinearLookup) {
    const Image in = translucent(64, 16, 7);
    const auto identity = [](float r, float g, float b) { return Pixel{r, g, b, 1}; };
    EXPECT_TRUE(colorCube(in, {}).sharesPixelsWith(in));
    ColorCubeParams wrong = cube(5, true, identity);
    wrong.dimension = 4;
    EXPECT_TRUE(colorCube(in, wrong).sharesPixelsWith(in));

    // Identity cubes, in both spaces, give back the colour, also outside [0, 1].
    const Image clamped = reference(in, [](float* c) {
        for (int i = 0; i < 3; ++i)
            c[i] = std::clamp(c[i], 0.0f, 1.0f);
    });
    for (int n : {48, 17, 2})
        for (bool srgb : {true, false})
            EXPECT_LT(maxDifference(colorCube(in, cube(n, srgb, identity)), in), 1e-5f)
                << n << (srgb ? " sRGB" : " linear");

    // Outside [0, 1] a channel continues with the slope of the outermost cell along its axis:
    // a gentle ramp keeps its slope, a curve flat at the edge stays flat, and falling nodes
    // never turn the continuation around.
    const auto ramp = [](float r, float g, float b) {
        return Pixel{0.5f * r + 0.25f, std::min(g, 0.8f), 1 - b, 1};
    };
    const Pixel beyond =
        colorCube(Image::filled(1, 1, {1.2f, 1.3f, 1.5f, 1}), cube(17, false, ramp)).at(0, 0);
    EXPECT_NEAR(beyond.r, 0.85f, 1e-5f);
    EXPECT_NEAR(beyond.g, 0.8f, 1e-5f);
    EXPECT_NEAR(beyond.b, 0.0f, 1e-5f);
    const Pixel under =
        colorCube(Image::filled(1, 1, {-0.2f, -0.3f, 0.5f, 1}), cube(17, false, ramp)).at(0, 0);
    EXPECT_NEAR(under.r, 0.15f, 1e-5f);
    EXPECT_NEAR(under.g, -0.3f, 1e-5f);

    std::mt19937 rng(8);
    std::uniform_real_distribution<float> u(-0.1f, 1.1f);
    const auto random = [&](float, float, float) { return Pixel{u(rng), u(rng), u(rng), u(rng)}; };
    for (bool srgb : {false, true}) {
        const ColorCubeParams p = cube(9, srgb, random);
        const auto enc = [&](float v) { return srgb ? srgbEncode(v) : v; };
        const auto dec = [&](float v) { return srgb ? srgbDecode(v) : v; };
        // At the nodes: the node's colour.
        const float atNode = srgb ? 1e-4f : 1e-6f;
        for (size_t node = 0; node < 9 * 9 * 9; node += 7) {
            const auto coord = [&](size_t i) { return dec(float(i % 9) / 8); };
            const Pixel px{coord(node), coord(node / 9), coord(node / 81), 1};
            const Pixel q = colorCube(Image::filled(1, 1, px), p).at(0, 0);
            const float* e = p.data->data() + node * 4;
            EXPECT_NEAR(q.r, dec(e[0]), atNode);
            EXPECT_NEAR(q.g, dec(e[1]), atNode);
            EXPECT_NEAR(q.b, dec(e[2]), atNode);
        }
        // Between the nodes: the slow sum, with the exact curve.
        const Image expected = reference(clamped, [&](float* c) {
            const Pixel e = slowLookup(p, enc(c[0]), enc(c[1]), enc(c[2]));
            c[0] = dec(e.r), c[1] = dec(e.g), c[2] = dec(e.b);
        });
        EXPECT_LT(maxDifference(colorCube(clamped, p), expected), srgb ? 2e-4f : 1e-5f);
        expectThreadIndependent([&](const Execution& e) { return colorCube(in, p, e); });
    }
}

TEST(ColorCube, APixelComesOutAsItWouldAlone) {
    // Wide rows go through the cube several pixels at a time; a pixel must come out as it does on
    // its own, whatever its neighbours, and at a row's ragged end.
    const auto grade = [](float r, float g, float b) {
        return Pixel{std::sqrt(r) * 0.9f + 0.05f * b, g * g, 0.6f * b + 0.3f * r * g, 1};
    };
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> u(0, 1);
    Image in = Image::forOverwrite(37, 6);
    for (int y = 0; y < in.height(); ++y)
        for (int x = 0; x < in.width(); ++x) {
            float* p = in.row(y) + 4 * x;
            p[0] = u(rng), p[1] = u(rng), p[2] = u(rng), p[3] = 1;
        }
    // One unusual pixel a row from the third on: translucent, above white, below black, NaN.
    in.row(2)[4 * 9 + 3] = 0.5f;
    in.row(3)[4 * 20 + 1] = 1.3f;
    in.row(4)[4 * 30 + 2] = -0.2f;
    in.row(5)[4 * 35 + 0] = NAN;
    for (bool srgb : {true, false}) {
        const ColorCubeParams p = cube(48, srgb, grade);
        const Image out = colorCube(in, p);
        int differing = 0;
        for (int y = 0; y < in.height(); ++y)
            for (int x = 0; x < in.width(); ++x) {
                const Pixel alone = colorCube(Image::filled(1, 1, in.at(x, y)), p).at(0, 0);
                const Pixel got = out.at(x, y);
                const float d = std::max({std::abs(got.r - alone.r), std::abs(got.g - alone.g),
                                          std::abs(got.b - alone.b), std::abs(got.a - alone.a)});
                differing += !(d <= 1e-6f);
            }
        EXPECT_EQ(differing, 0) << (srgb ? "sRGB" : "linear");
        // The usual pixels also against the slow sum with the exact curve.
        const Pixel first = in.at(0, 0), got = out.at(0, 0);
        const auto enc = [&](float v) { return srgb ? srgbEncode(v) : v; };
        const auto dec = [&](float v) { return srgb ? srgbDecode(v) : v; };
        const Pixel e = slowLookup(p, enc(first.r), enc(first.g), enc(first.b));
        EXPECT_NEAR(got.r, dec(e.r), 2e-4f);
        EXPECT_NEAR(got.g, dec(e.g), 2e-4f);
        EXPECT_NEAR(got.b, dec(e.b), 2e-4f);
    }
}

TEST(ColorThreshold, ChannelsBecomeZeroOrOne) {
    const Image in = translucent(40, 9, 9);
    const Image expected = reference(in, [](float* c) {
        for (int i = 0; i < 3; ++i)
            c[i] = c[i] > 0.4f ? 1.0f : 0.0f;
    });
    EXPECT_LT(maxDifference(colorThreshold(in, {0.4f}), expected), 1e-6f);
    EXPECT_TRUE(identical(colorThreshold(in, {NAN}), colorThreshold(in, {0.5f})));
    expectThreadIndependent([&](const Execution& e) { return colorThreshold(in, {0.2f}, e); });
}

}  // namespace
}  // namespace ql::img
