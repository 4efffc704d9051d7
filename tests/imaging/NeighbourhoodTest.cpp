// Small-neighbourhood operations: noise reduction, morphology and edges, each against a slow
// per-pixel computation of what its header says.
#include <gtest/gtest.h>

#include <cmath>

#include "ImageTesting.h"
#include "imaging/Edges.h"
#include "imaging/GaussianBlur.h"
#include "imaging/Morphology.h"
#include "imaging/NoiseReduction.h"

namespace ql::img {
namespace {

using testing::identical;
using testing::make;
using testing::maxDifference;
using testing::noise;
using testing::sameForAnyThreads;

// An image whose pixel is f(x, y, clampedAt), clampedAt(dx, dy) reading the input around it.
Image perPixel(const Image& in, const std::function<Pixel(std::function<Pixel(int, int)>)>& f) {
    return make(in.width(), in.height(), [&](int x, int y) {
        return f([&](int dx, int dy) {
            return in.at(std::clamp(x + dx, 0, in.width() - 1),
                         std::clamp(y + dy, 0, in.height() - 1));
        });
    });
}

// Smoothing over 5 × 5 taps `scale` pixels apart, then edge sharpening against the Gaussian mean
// (the blur is trusted: it has its own tests).
Image referenceNoiseReduction(const Image& in, double level, double sharpness, double scale = 1) {
    const Image mean = gaussianBlur(in, {float(1.2 * scale), EdgeMode::clamp});
    int y = 0, x = 0;
    auto lum = [](Pixel p) { return double(luma(p.r, p.g, p.b)); };
    return perPixel(in, [&](auto at) {
        const double gc = std::sqrt(std::max(lum(at(0, 0)), 0.0));
        double acc[4] = {}, weight = 0, spatialSum = 0;
        const auto tap = [&](int k) { return int(std::lround(k * scale)); };
        for (int dy = -2; dy <= 2; ++dy)
            for (int dx = -2; dx <= 2; ++dx)
                spatialSum +=
                    std::exp(-(std::pow(tap(dx) / scale, 2) + std::pow(tap(dy) / scale, 2)) / 4.5);
        for (int dy = -2; dy <= 2; ++dy)
            for (int dx = -2; dx <= 2; ++dx) {
                const Pixel q = at(tap(dx), tap(dy));
                const double s =
                    std::exp(-(std::pow(tap(dx) / scale, 2) + std::pow(tap(dy) / scale, 2)) / 4.5) /
                    spatialSum;
                const double g = std::sqrt(std::max(lum(q), 0.0));
                const double t = level > 0 ? std::max(0.0, 1 - std::pow((g - gc) / (2 * level), 2))
                                           : (dx == 0 && dy == 0);
                const double w = (level > 0 ? s : 1) * t * t;
                weight += w;
                acc[0] += w * q.r, acc[1] += w * q.g, acc[2] += w * q.b, acc[3] += w * q.a;
            }
        const double yMean = lum(mean.at(x, y));
        const double gMean = std::sqrt(std::max(yMean, 0.0));
        const double e =
            level > 0 ? std::clamp((std::abs(gc - gMean) - level) / level, 0.0, 1.0) : 1;
        const double d = sharpness * e * e * (3 - 2 * e) * (lum(at(0, 0)) - yMean);
        if (++x == in.width()) x = 0, ++y;
        return Pixel{float(acc[0] / weight + d), float(acc[1] / weight + d),
                     float(acc[2] / weight + d), float(acc[3] / weight)};
    });
}

TEST(NoiseReduction, MatchesDirectFormula) {
    const Image a = noise(23, 13, 5, 0.0f, 0.3f);  // odd width: a partial group of four
    EXPECT_TRUE(noiseReduction(a, {0, 0}).sharesPixelsWith(a));
    EXPECT_TRUE(noiseReduction(a, {NAN, NAN}).sharesPixelsWith(a));
    EXPECT_TRUE(noiseReduction(Image{}, {}).empty());
    for (float scale : {1.0f, 2.5f})
        for (auto [level, sharp] :
             {std::pair{0.02f, 0.4f}, {0.06f, 0.0f}, {0.0f, 1.5f}, {1.0f, 9.0f}})
            EXPECT_LT(maxDifference(noiseReduction(a, {level, sharp, scale}),
                                    referenceNoiseReduction(a, std::min(level, 0.1f),
                                                            std::min(sharp, 2.0f), scale)),
                      2e-6f)
                << level << " " << sharp << " " << scale;
    EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) { return noiseReduction(a, {}, x); }));
    EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) {
        return noiseReduction(a, {0.03f, 0.4f, 2.5f}, x);
    }));
}

TEST(NoiseReduction, SmoothsNoiseButNotEdges) {
    // Grey 0.2 | 0.6 with ±0.01 noise: well within a 0.03 level, while the step is far above.
    const Image n = noise(40, 20, 6, -0.01f, 0.01f);
    const Image a = make(40, 20, [&](int x, int y) {
        const float v = (x < 20 ? 0.2f : 0.6f) + n.at(x, y).r;
        return Pixel{v, v, v, 1};
    });
    const Image out = noiseReduction(a, {0.03f, 0});
    double before = 0, after = 0;
    for (int y = 0; y < 20; ++y)
        for (int x = 3; x < 17; ++x)
            before += std::pow(a.at(x, y).g - 0.2, 2), after += std::pow(out.at(x, y).g - 0.2, 2);
    EXPECT_LT(after, before / 4);
    for (int y = 0; y < 20; ++y) {
        EXPECT_NEAR(out.at(19, y).g, 0.2f, 0.015f);
        EXPECT_NEAR(out.at(20, y).g, 0.6f, 0.015f);
    }
}

TEST(Morphology, MatchesBruteForceDisc) {
    const Image a = noise(29, 23, 8);
    for (float r : {0.0f, 0.49f, NAN})
        EXPECT_TRUE(morphologyMaximum(a, {r}).sharesPixelsWith(a));
    for (float r : {0.5f, 1.0f, 1.5f, 2.3f, 4.0f, 7.0f, 30.0f, 1e9f}) {
        const double reach = (r + 0.5) * (r + 0.5);
        Image lo(29, 23), hi(29, 23);
        for (int y = 0; y < 23; ++y)
            for (int x = 0; x < 29; ++x) {
                Pixel mn{INFINITY, INFINITY, INFINITY, INFINITY}, mx{-1, -1, -1, -1};
                for (int v = 0; v < 23; ++v)
                    for (int u = 0; u < 29; ++u) {
                        if ((u - x) * (u - x) + (v - y) * (v - y) > reach) continue;
                        const Pixel q = a.at(u, v);
                        mn = {std::min(mn.r, q.r), std::min(mn.g, q.g), std::min(mn.b, q.b),
                              std::min(mn.a, q.a)};
                        mx = {std::max(mx.r, q.r), std::max(mx.g, q.g), std::max(mx.b, q.b),
                              std::max(mx.a, q.a)};
                    }
                lo.set(x, y, mn), hi.set(x, y, mx);
            }
        EXPECT_TRUE(identical(morphologyMinimum(a, {r}), lo)) << r;
        EXPECT_TRUE(identical(morphologyMaximum(a, {r}), hi)) << r;
        const Image g = morphologyGradient(a, {r});
        EXPECT_EQ(g.at(3, 4).r, hi.at(3, 4).r - lo.at(3, 4).r);
        EXPECT_EQ(g.at(3, 4).a, hi.at(3, 4).a);
    }
    for (auto op : {morphologyMinimum, morphologyMaximum, morphologyGradient})
        EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) { return op(a, {3}, x); }));
}

TEST(Edges, SobelMagnitudeOfEachChannel) {
    const Image a = noise(17, 11, 9);
    EXPECT_TRUE(edges(a, {0}).sharesPixelsWith(a));
    EXPECT_TRUE(edges(a, {NAN}).sharesPixelsWith(a));
    const Image reference = perPixel(a, [](auto at) {
        float out[3];
        for (int c = 0; c < 3; ++c) {
            auto v = [&](int dx, int dy) {
                const Pixel p = at(dx, dy);
                return c == 0 ? p.r : c == 1 ? p.g : p.b;
            };
            const float gx = v(1, -1) + 2 * v(1, 0) + v(1, 1) - v(-1, -1) - 2 * v(-1, 0) - v(-1, 1);
            const float gy = v(-1, 1) + 2 * v(0, 1) + v(1, 1) - v(-1, -1) - 2 * v(0, -1) - v(1, -1);
            out[c] = 0.5f * std::hypot(gx, gy);
        }
        return Pixel{out[0], out[1], out[2], 1};
    });
    EXPECT_LT(maxDifference(edges(a, {0.5f}), reference), 1e-5f);
    const Image step = make(6, 3, [](int x, int) { return Pixel{x < 3 ? 0.0f : 1.0f, 0, 0, 0}; });
    EXPECT_EQ(edges(step, {}).at(2, 1), (Pixel{4, 0, 0, 1}));
    EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) { return edges(a, {2}, x); }));
}

}  // namespace
}  // namespace ql::img
