// RAW noise reduction: statistics of synthetic sensor noise before and after, edges, colour
// means, radii, and the split between the luminance and colour passes.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "../ImageTesting.h"
#include "imaging/raw/RawNoiseReduction.h"

namespace ql::img {
namespace {

using testing::make;
using Params = RawNoiseReductionParams;

// Shot noise plus read noise, independent per channel, like a demosaiced sensor image.
Image withSensorNoise(const Image& clean, float gain, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> n(0, 1);
    auto noisy = [&](float v) { return v + n(rng) * std::sqrt(gain * std::max(v, 0.0f) + 1e-6f); };
    return make(clean.width(), clean.height(), [&](int x, int y) {
        const Pixel p = clean.at(x, y);
        return Pixel{noisy(p.r), noisy(p.g), noisy(p.b), p.a};
    });
}

Image flat(int w, int h, float r, float g, float b) {
    return Image::filled(w, h, {r, g, b, 1});
}

struct Spread {
    double luma = 0, chroma = 0;  // deviations of Y and of (R − Y, B − Y)
    Pixel mean;
};

// Statistics over a rectangle.
Spread spread(const Image& im, int x0, int y0, int x1, int y1) {
    double n = 0, s[6] = {}, q[3] = {};
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) {
            const Pixel p = im.at(x, y);
            const double v[3] = {luma(p.r, p.g, p.b), p.r - v[0], p.b - v[0]};
            for (int i = 0; i < 3; ++i)
                s[i] += v[i], q[i] += v[i] * v[i];
            s[3] += p.r, s[4] += p.g, s[5] += p.b, n += 1;
        }
    auto var = [&](int i) { return q[i] / n - s[i] / n * s[i] / n; };
    return {std::sqrt(var(0)), std::sqrt(var(1) + var(2)),
            Pixel{float(s[3] / n), float(s[4] / n), float(s[5] / n), 1}};
}

TEST(RawNoiseReduction, NeutralAmountsReturnTheInput) {
    const Image in = withSensorNoise(flat(16, 16, 0.2f, 0.2f, 0.2f), 0.002f, 1);
    EXPECT_TRUE(rawNoiseReduction(in, {}).sharesPixelsWith(in));
    EXPECT_TRUE(rawNoiseReduction(in, {-1, NAN, 0.25f}).sharesPixelsWith(in));
    EXPECT_TRUE(rawNoiseReduction(Image{}, {1, 1}).empty());
}

TEST(RawNoiseReduction, EachPassDoesOnlyItsHalf) {
    const Image in = withSensorNoise(flat(96, 96, 0.18f, 0.18f, 0.18f), 0.002f, 2);
    const Spread before = spread(in, 8, 8, 88, 88);
    const Image lum = rawNoiseReduction(in, {1, 0});
    EXPECT_LT(spread(lum, 8, 8, 88, 88).luma, 0.35 * before.luma);
    EXPECT_GT(spread(lum, 8, 8, 88, 88).chroma, 0.9 * before.chroma);
    const Image col = rawNoiseReduction(in, {0, 1});
    EXPECT_LT(spread(col, 8, 8, 88, 88).chroma, 0.25 * before.chroma);
    for (int i = 0; i < 96 * 96; i += 7) {
        const Pixel p = in.at(i % 96, i / 96), q = col.at(i % 96, i / 96);
        ASSERT_NEAR(luma(q.r, q.g, q.b), luma(p.r, p.g, p.b), 1e-5f);
    }
    // Fine stripes of one hue, lighter and darker: smoothing their luma keeps the hue.
    const Image stripes = make(48, 48, [](int x, int y) {
        const float v = (x + y / 2) % 3 ? 1 : 0.6f;
        return Pixel{0.4f * v, 0.1f * v, 0.05f * v, 1};
    });
    const Image smoothed = rawNoiseReduction(stripes, {1, 0});
    for (int y = 8; y < 40; y += 3)
        for (int x = 8; x < 40; ++x) {
            const Pixel p = stripes.at(x, y), q = smoothed.at(x, y);
            EXPECT_NEAR(q.r / q.g, p.r / p.g, 0.1f);
            EXPECT_NEAR(q.b / q.g, p.b / p.g, 0.02f);
        }
}

TEST(RawNoiseReduction, StepEdgesStaySharp) {
    // 10-90 % rise of the mean luma profile across a vertical step.
    auto rise = [](const Image& im) {
        std::vector<double> profile(64);
        for (int x = 0; x < 64; ++x)
            profile[size_t(x)] = spread(im, x, 0, x + 1, 32).mean.g;
        auto crossing = [&](double level) {
            const double v = profile[0] + level * (profile[63] - profile[0]);
            size_t x = 1;
            while (profile[x] < v)
                ++x;
            return double(x) - (profile[x] - v) / (profile[x] - profile[x - 1]);
        };
        return crossing(0.9) - crossing(0.1);
    };
    const Image step = make(64, 32, [](int x, int) {
        const float v = x < 32 ? 0.05f : 0.5f;
        return Pixel{v, v, v, 1};
    });
    for (const float gain : {0.0f, 0.0005f}) {
        const Image in = withSensorNoise(step, gain, 4);
        EXPECT_LT(rise(rawNoiseReduction(in, {1, 1})), rise(in) + 0.5) << gain;
    }
    // Colours of equal luma (red against green) stay within a few percent of the step.
    const Image colour = make(64, 32, [](int x, int) {
        return x < 29 ? Pixel{0.4f, 0.1155f, 0.1f, 1} : Pixel{0.05f, 0.2f, 0.1f, 1};
    });
    const Image out = rawNoiseReduction(colour, {1, 1});
    for (int x : {25, 27, 28, 29, 30, 32}) {
        EXPECT_NEAR(out.at(x, 16).r, colour.at(x, 16).r, 0.02f) << x;
        EXPECT_NEAR(out.at(x, 16).g, colour.at(x, 16).g, 0.01f) << x;
    }
}

TEST(RawNoiseReduction, NoisyEdgeKeepsItsSidesApartAndLosesItsNoise) {
    // Dark grey against bright pink: the pink's chroma (R − Y ≈ 0.11) is far above the dark
    // side's noise but not above the bright side's.
    const Image in = withSensorNoise(
        make(64, 128,
             [](int x, int) {
                 return x < 32 ? Pixel{0.05f, 0.05f, 0.05f, 1} : Pixel{0.6f, 0.45f, 0.5f, 1};
             }),
        0.002f, 9);
    const Image out = rawNoiseReduction(in, {1, 1});
    for (int x = 24; x < 40; ++x) {
        const Spread before = spread(in, x, 0, x + 1, 128), after = spread(out, x, 0, x + 1, 128);
        const float chroma = after.mean.r - luma(after.mean.r, after.mean.g, after.mean.b);
        EXPECT_NEAR(chroma, x < 32 ? 0 : 0.114f, x < 32 ? 0.008f : 0.01f) << x;
        EXPECT_LT(after.chroma, 0.3 * before.chroma) << x;
        if (x >= 30 && x < 34) {
            EXPECT_LT(after.luma, 0.6 * before.luma) << x;
        }
    }
}

TEST(RawNoiseReduction, FlatPatchesKeepTheirMeanColourAndLoseTheirNoise) {
    const Pixel colours[4] = {{0.30f, 0.12f, 0.05f, 1},
                              {0.04f, 0.09f, 0.20f, 1},
                              {0.6f, 0.6f, 0.55f, 1},
                              {0.02f, 0.03f, 0.015f, 1}};
    const Image in = withSensorNoise(
        make(256, 256, [&](int x, int y) { return colours[x / 128 + 2 * (y / 128)]; }), 0.002f, 5);
    const Image out = rawNoiseReduction(in, {1, 1});
    for (int i = 0; i < 4; ++i) {
        const int x0 = (i % 2) * 128 + 32, y0 = (i / 2) * 128 + 32;
        const Spread before = spread(in, x0, y0, x0 + 64, y0 + 64);
        const Spread after = spread(out, x0, y0, x0 + 64, y0 + 64);
        EXPECT_NEAR(after.mean.r, before.mean.r, 0.01f * before.mean.r) << i;
        EXPECT_NEAR(after.mean.g, before.mean.g, 0.01f * before.mean.g) << i;
        EXPECT_NEAR(after.mean.b, before.mean.b, 0.01f * before.mean.b) << i;
        EXPECT_LT(after.luma, 0.35 * before.luma) << i;
        EXPECT_LT(after.chroma, 0.25 * before.chroma) << i;
    }
}

TEST(RawNoiseReduction, ExtendedRangeBadPixelsAndTinyImages) {
    Image in = make(40, 30, [](int x, int y) {
        const float v = (x - 5) * 0.08f + 0.01f * float((x * 7 + y * 3) % 5);
        return Pixel{v, v * 0.5f - 0.02f, 2 - v, y < 15 ? 1.0f : 0.5f};
    });
    in.set(20, 10, {INFINITY, 0.2f, 0.2f, 1});
    in.set(10, 20, {0.2f, NAN, 0.2f, 1});
    const Image out = rawNoiseReduction(in, {1, 1});
    for (int i = 0; i < 40 * 30; ++i) {
        const Pixel p = in.at(i % 40, i / 40), q = out.at(i % 40, i / 40);
        ASSERT_EQ(q.a, p.a);
        const bool bad = i == 10 * 40 + 20 || i == 20 * 40 + 10;
        ASSERT_TRUE(bad || std::isfinite(q.r + q.g + q.b)) << i;
    }
    EXPECT_EQ(out.at(20, 10).r, INFINITY);
    for (const auto& [w, h] :
         {std::pair{1, 1}, std::pair{3, 2}, std::pair{1, 7}, std::pair{6, 1}}) {
        const Image tiny =
            rawNoiseReduction(withSensorNoise(flat(w, h, 0.3f, 0.2f, 0.1f), 0.002f, 10), {1, 1, 4});
        ASSERT_EQ(tiny.width(), w);
        ASSERT_EQ(tiny.height(), h);
        for (int i = 0; i < w * h * 4; ++i)
            EXPECT_TRUE(std::isfinite(tiny.data()[i]));
    }
}

// How far a faint reddish dot in flat grey spreads: the rms distance from it, weighted by the
// change of luma (or of R − Y), changes below rounding ignored.
double reach(const Params& p, bool chroma) {
    Image in = flat(129, 129, 0.18f, 0.18f, 0.18f);
    in.set(64, 64, {0.19f, 0.18f, 0.18f, 1});
    const Image out = rawNoiseReduction(in, p);
    double weight = 0, moment = 0;
    for (int y = 0; y < 129; ++y)
        for (int x = 0; x < 129; ++x) {
            const Pixel a = in.at(x, y), b = out.at(x, y);
            const float ya = luma(a.r, a.g, a.b), yb = luma(b.r, b.g, b.b);
            const double change = std::abs(chroma ? (b.r - yb) - (a.r - ya) : yb - ya);
            if (change < 1e-6 || (x == 64 && y == 64)) continue;
            weight += change;
            moment += change * ((x - 64) * (x - 64) + (y - 64) * (y - 64));
        }
    return std::sqrt(moment / weight);
}

TEST(RawNoiseReduction, ProxiesLookLikeTheFullDecode) {
    for (const bool chroma : {false, true}) {
        auto params = [&](float amount, float scale) {
            return chroma ? Params{0, amount, scale} : Params{amount, 0, scale};
        };
        // Radii grow with the amount and shrink with the scale.
        const double full = reach(params(1, 1), chroma);
        EXPECT_LT(reach(params(0.3f, 1), chroma), 0.8 * full) << chroma;
        EXPECT_NEAR(reach(params(1, 0.5f), chroma), 0.55 * full, 0.15 * full) << chroma;
        // A half-size proxy (2×2 averages) loses the same share of its noise as the full decode
        // does once halved.
        const Image in = withSensorNoise(flat(256, 256, 0.2f, 0.18f, 0.1f), 0.004f, 6);
        auto halve = [](const Image& im) {
            return make(im.width() / 2, im.height() / 2, [&](int x, int y) {
                Pixel s{0, 0, 0, 1};
                for (int k = 0; k < 4; ++k) {
                    const Pixel p = im.at(2 * x + k % 2, 2 * y + k / 2);
                    s.r += p.r / 4, s.g += p.g / 4, s.b += p.b / 4;
                }
                return s;
            });
        };
        auto kept = [&](const Image& filtered) {
            const Spread a = spread(filtered, 16, 16, 112, 112);
            const Spread b = spread(halve(in), 16, 16, 112, 112);
            return chroma ? a.chroma / b.chroma : a.luma / b.luma;
        };
        const double fromFull = kept(halve(rawNoiseReduction(in, params(0.6f, 1))));
        EXPECT_NEAR(kept(rawNoiseReduction(halve(in), params(0.6f, 0.5f))), fromFull,
                    0.3 * fromFull)
            << chroma;
    }
}

TEST(RawNoiseReduction, ThreadIndependentAndCancellable) {
    const Image in = withSensorNoise(testing::noise(157, 93, 7, 0, 0.8f), 0.002f, 8);
    for (const Params p : {Params{0.7f, 1, 1}, Params{0.7f, 1, 0.25f}, Params{0, 0.5f, 1}})
        testing::expectThreadIndependent(
            [&](const Execution& e) { return rawNoiseReduction(in, p, e); });
}

}  // namespace
}  // namespace ql::img
