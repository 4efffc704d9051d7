// Gaussian blur and the operations built on it, and motion blur: each against a slow direct
// computation, plus the invariants (constant, mass, variance) a blur must keep.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <vector>

#include "ImageTesting.h"
#include "imaging/ExposureAdjust.h"
#include "imaging/GaussianBlur.h"
#include "imaging/HighlightShadowAdjust.h"
#include "imaging/MotionBlur.h"
#include "imaging/SharpenLuminance.h"
#include "imaging/UnsharpMask.h"

namespace ql::img {
namespace {

using testing::identical;
using testing::make;
using testing::maxDifference;
using testing::noise;
using testing::sameForAnyThreads;

// A ramp, a bright square, fine noise and varying alpha: smooth and sharp structure.
Image scene(int w, int h) {
    const Image n = noise(w, h, 7);
    return make(w, h, [&](int x, int y) {
        const float box = (x > w / 3 && x < w / 2 && y > h / 4 && y < h / 2) ? 0.6f : 0;
        const Pixel q = n.at(x, y);
        return Pixel{0.3f * q.r + box, float(x) / w, 0.2f + 0.5f * q.b, 0.5f + 0.5f * q.g};
    });
}

// Direct separable convolution with the sampled Gaussian over ±4σ, in double.
Image referenceBlur(const Image& in, double sigma, EdgeMode edges) {
    const int R = int(std::ceil(4 * sigma)), w = in.width(), h = in.height();
    std::vector<double> k(size_t(2 * R + 1));
    double sum = 0;
    for (int i = -R; i <= R; ++i)
        sum += k[size_t(i + R)] = std::exp(-0.5 * i * i / sigma / sigma);
    for (double& v : k)
        v /= sum;
    auto pass = [&](const std::vector<double>& src, int dx, int dy) {
        std::vector<double> dst(src.size());
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int i = -R; i <= R; ++i) {
                    int sx = x + i * dx, sy = y + i * dy;
                    if (edges == EdgeMode::transparent && (sx < 0 || sx >= w || sy < 0 || sy >= h))
                        continue;
                    sx = std::clamp(sx, 0, w - 1), sy = std::clamp(sy, 0, h - 1);
                    for (int c = 0; c < 4; ++c)
                        dst[size_t((y * w + x) * 4 + c)] +=
                            k[size_t(i + R)] * src[size_t((sy * w + sx) * 4 + c)];
                }
        return dst;
    };
    const std::vector<double> out =
        pass(pass(std::vector<double>(in.data(), in.data() + in.pixelCount() * 4), 1, 0), 0, 1);
    Image result(w, h);
    std::copy(out.begin(), out.end(), result.data());
    return result;
}

TEST(GaussianBlur, NeutralEmptyAndCancelled) {
    const Image a = noise(9, 7, 1);
    for (float r : {0.0f, 0.29f, -5.0f, NAN})
        EXPECT_TRUE(gaussianBlur(a, {r}).sharesPixelsWith(a));
    EXPECT_TRUE(gaussianBlur(Image{}, {4}).empty());
    std::atomic<bool> cancel{true};
    EXPECT_TRUE(gaussianBlur(a, {4}, Execution{2, &cancel}).empty());
}

TEST(GaussianBlur, KeepsConstantsMassAndVarianceOnBothPaths) {
    const Image flat = Image::filled(31, 17, {0.3f, 0.6f, 0.9f, 1});
    for (float r : {0.5f, 2.0f, 3.0f, 7.3f, 200.0f, INFINITY})
        EXPECT_LT(maxDifference(gaussianBlur(flat, {r}), flat), 1e-5f) << r;
    for (double sigma : {0.3, 0.5, 1.0, 2.99, 3.0, 4.7, 12.0, 30.0}) {
        // An impulse far from the border (transparent edges): the blur is the kernel itself.
        const int c = int(4 * sigma) + 8;
        Image impulse(2 * c + 1, 2 * c + 1);
        impulse.set(c, c, {1, 1, 1, 1});
        const Image k = gaussianBlur(impulse, {float(sigma), EdgeMode::transparent});
        double mass = 0, vx = 0, vy = 0;
        for (int y = 0; y < k.height(); ++y)
            for (int x = 0; x < k.width(); ++x) {
                const double v = k.at(x, y).r;
                mass += v, vx += v * (x - c) * (x - c), vy += v * (y - c) * (y - c);
            }
        EXPECT_NEAR(mass, 1, 1e-5) << sigma;
        EXPECT_NEAR(vx / (sigma * sigma), 1, 0.005) << sigma;
        EXPECT_NEAR(vy / (sigma * sigma), 1, 0.005) << sigma;
    }
}

TEST(GaussianBlur, MatchesDirectConvolution) {
    // Within 0.2 % of full scale on the sampled-kernel path (its support ends at ±3σ) and 2 % on
    // the three-box path (box³ is close to, not equal to, a Gaussian: 1.4 % seen here).
    const Image a = scene(67, 53);
    for (EdgeMode e : {EdgeMode::clamp, EdgeMode::transparent})
        for (float sigma : {0.8f, 1.7f, 2.5f, 3.0f, 6.5f, 15.0f})
            EXPECT_LT(maxDifference(gaussianBlur(a, {sigma, e}), referenceBlur(a, sigma, e)),
                      sigma < 3 ? 0.002f : 0.02f)
                << sigma << " " << int(e);
    // Rows and columns long enough that the boxes' running sums are formed afresh on the way.
    const Image wide = scene(700, 9), tall = scene(9, 600);
    for (float sigma : {4.0f, 15.0f}) {
        EXPECT_LT(maxDifference(gaussianBlur(wide, {sigma}), referenceBlur(wide, sigma, {})),
                  0.02f);
        EXPECT_LT(maxDifference(gaussianBlur(tall, {sigma}), referenceBlur(tall, sigma, {})),
                  0.02f);
    }
}

TEST(GaussianBlur, CoarsePathFollowsTheExactBlur) {
    // Operations that need the blur's shape only to within a few pixels may blur a shrunk copy.
    // It must match the exact blur over the whole frame, borders and corners included (where
    // clamping repeats the border's own pixels), on fine noise and on photo-like content (waves
    // and hard-edged patches). Four blocks a σ keep within 0.3 % of full scale, eight within an
    // 8-bit level.
    const auto photoLike = [](int w, int h) {
        return make(w, h, [](int x, int y) {
            const float v = 0.5f + 0.4f * std::sin(x * 0.07f) * std::cos(y * 0.05f) +
                            float((x / 20 + y / 15) % 2) * 0.2f;
            return Pixel{v, 0.8f * v, 1 - v, 1};
        });
    };
    for (int blocks : {4, 8}) {
        detail::BlurHooks coarse;
        coarse.coarse = blocks;
        for (float sigma : {8.0f, 14.4f, 36.0f}) {
            const int w = sigma > 20 ? 901 : 301, h = sigma > 20 ? 599 : 199;
            for (const Image& in : {scene(w, h), photoLike(w, h)})
                EXPECT_LT(maxDifference(detail::gaussianBlurWith(in, {sigma}, coarse, {}),
                                        gaussianBlur(in, {sigma})),
                          blocks == 4 ? 0.003f : 0.0015f)
                    << blocks << " " << sigma;
        }
        EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) {
            return detail::gaussianBlurWith(scene(301, 199), {20.0f}, coarse, x);
        }));
    }
}

TEST(GaussianBlur, TransparentEdgesDarkenTheBorder) {
    const Image one = Image::filled(101, 101, {1, 1, 1, 1});
    const Image b = gaussianBlur(one, {6, EdgeMode::transparent});
    EXPECT_NEAR(b.at(0, 0).a, 0.25f * 1.14f, 0.03f);  // a quarter, plus the half-pixel row
    EXPECT_NEAR(b.at(50, 0).g, 0.5f * 1.07f, 0.03f);
    EXPECT_NEAR(b.at(50, 50).b, 1, 1e-5f);
}

TEST(GaussianBlur, NonFinitePixelsStayLocalAndThreadsAgree) {
    for (float bad : {NAN, INFINITY})
        for (float sigma : {1.5f, 4.0f}) {
            Image a = noise(80, 40, 3);
            a.set(5, 10, {bad, bad, bad, bad});
            const Image b = gaussianBlur(a, {sigma});
            EXPECT_FALSE(std::isfinite(b.at(5, 10).r));
            EXPECT_TRUE(std::isfinite(b.at(40, 10).r) && std::isfinite(b.at(5, 35).g));
        }
    const Image a = scene(70, 45);
    for (float sigma : {2.0f, 20.0f})
        EXPECT_TRUE(
            sameForAnyThreads([&](const Execution& x) { return gaussianBlur(a, {sigma}, x); }));
}

TEST(GaussianBlur, OnePlaneIsTheBlurOfThatChannel) {
    // Ragged on both axes: the last group of four rows and of four columns is partial.
    const Image a = scene(37, 23);
    Plane plane = Plane::forOverwrite(37, 23);
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x)
            plane.row(y)[x] = a.at(x, y).r;  // noise and a box: varies both ways
    for (float sigma : {1.2f, 6.0f}) {       // sampled taps, then boxes
        const Image blur = gaussianBlur(a, {sigma});
        const Plane got = detail::blurPlane(plane, sigma, {});
        const Plane seven = detail::blurPlane(plane, sigma, Execution{7});
        ASSERT_EQ(got.width(), 37);
        ASSERT_EQ(got.height(), 23);
        // The same sums; a build for wider registers may fuse a multiply and an add.
        float worst = 0;
        int threadsDiffer = 0;
        for (int y = 0; y < a.height(); ++y)
            for (int x = 0; x < a.width(); ++x) {
                worst = std::max(worst, std::abs(got.row(y)[x] - blur.at(x, y).r));
                threadsDiffer += seven.row(y)[x] != got.row(y)[x];
            }
        EXPECT_LT(worst, 1e-6f) << sigma;
        EXPECT_EQ(threadsDiffer, 0) << sigma;
    }
    EXPECT_TRUE(detail::blurPlane(Plane{}, 2, {}).empty());
    const std::atomic<bool> stop{true};
    Execution cancelled;
    cancelled.cancel = &stop;
    EXPECT_TRUE(detail::blurPlane(plane, 2, cancelled).empty());
}

TEST(UnsharpMask, AddsBackTheBlurredAwayDetail) {
    const Image a = scene(40, 30);
    EXPECT_TRUE(unsharpMask(a, {2, 0}).sharesPixelsWith(a));
    EXPECT_TRUE(unsharpMask(a, {0.1f, 1}).sharesPixelsWith(a));
    EXPECT_TRUE(unsharpMask(a, {2, NAN}).sharesPixelsWith(a));
    const Image out = unsharpMask(a, {2.5f, 0.8f, EdgeMode::transparent});
    const Image blur = gaussianBlur(a, {2.5f, EdgeMode::transparent});
    float worst = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const Pixel i = a.at(x, y), b = blur.at(x, y), o = out.at(x, y);
            worst = std::max({worst, std::abs(o.r - (i.r + 0.8f * (i.r - b.r))),
                              std::abs(o.b - (i.b + 0.8f * (i.b - b.b))), std::abs(o.a - i.a)});
        }
    EXPECT_LT(worst, 1e-6f);
    EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) { return unsharpMask(a, {9, 1}, x); }));
}

TEST(SharpenLuminance, ChangesBrightnessNotColour) {
    const Image a = scene(40, 30);
    EXPECT_TRUE(sharpenLuminance(a, {0, 2}).sharesPixelsWith(a));
    EXPECT_TRUE(sharpenLuminance(a, {1, 0.2f}).sharesPixelsWith(a));
    const Image out = sharpenLuminance(a, {1.5f, 1.69f});
    const Image blur = gaussianBlur(a, {1.69f});
    float worst = 0;
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const Pixel i = a.at(x, y), b = blur.at(x, y), o = out.at(x, y);
            const float d = 1.5f * (luma(i.r, i.g, i.b) - luma(b.r, b.g, b.b));
            worst = std::max({worst, std::abs(o.r - i.r - d), std::abs(o.g - i.g - d),
                              std::abs(o.b - i.b - d), std::abs(o.a - i.a)});
        }
    EXPECT_LT(worst, 1e-5f);
    EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) { return sharpenLuminance(a, {}, x); }));
}

TEST(HighlightShadow, PerPixelCurveIsMonotonicAndKeepsHue) {
    const Image a = noise(12, 9, 4);
    EXPECT_TRUE(highlightShadowAdjust(a, {5, 0, 1}).sharesPixelsWith(a));
    EXPECT_TRUE(highlightShadowAdjust(a, {5, NAN, NAN}).sharesPixelsWith(a));
    // A grey ramp from black to twice white, one pixel per level.
    const Image ramp = make(401, 1, [](int x, int) {
        const float v = float(x * x) / 80000;
        return Pixel{v, v, v, 1};
    });
    for (float s : {0.0f, 0.5f, 1.0f})
        for (float hl : {0.0f, 0.5f, 1.0f}) {
            const Image o = highlightShadowAdjust(ramp, {0, s, hl});
            if (s == 0 && hl == 1) continue;
            for (int x = 1; x < 401; ++x)
                EXPECT_GE(o.at(x, 0).g, o.at(x - 1, 0).g) << s << hl;
            // More of either amount never darkens.
            const Image more =
                highlightShadowAdjust(ramp, {0, std::min(s + 0.25f, 1.0f), hl + 0.25f});
            for (int x = 0; x < 401; ++x)
                EXPECT_GE(more.at(x, 0).r, o.at(x, 0).r);
        }
    const auto one = [](float v, HighlightShadowParams p) {
        return highlightShadowAdjust(Image::filled(1, 1, {v, 0.5f * v, 0.1f * v, 1}), p).at(0, 0);
    };
    const float grey = 0.18f / luma(1, 0.5f, 0.1f);
    EXPECT_NEAR(one(grey, {0, 1, 0}).r / grey, 1, 0.01f);  // mid-grey barely moves
    EXPECT_GT(one(0.01f, {0, 1, 1}).r, 0.03f);             // shadows lift...
    EXPECT_LT(one(2.0f, {0, 0, 0}).r, 1.5f);               // ...highlights fall
    const Pixel o = one(0.05f, {0, 0.7f, 1});
    EXPECT_NEAR(o.g / o.r, 0.5f, 1e-6f);
    EXPECT_NEAR(o.b / o.r, 0.1f, 1e-6f);
}

TEST(HighlightShadow, SurroundingsDecide) {
    // A bright dot in a dark room: judged alone it is no shadow, judged by its surroundings it
    // is lifted with them.
    const Image room = make(41, 41, [](int x, int y) {
        const float v = (x == 20 && y == 20) ? 0.5f : 0.01f;
        return Pixel{v, v, v, 1};
    });
    EXPECT_NEAR(highlightShadowAdjust(room, {0, 1, 1}).at(20, 20).r, 0.5f, 1e-6f);
    EXPECT_GT(highlightShadowAdjust(room, {6, 1, 1}).at(20, 20).r, 1.0f);
    // Uniform surroundings: the blurred judgement equals the per-pixel one, at every part of
    // the curve (black, the lifted shadows, the pulled highlights, beyond white).
    for (float v : {0.0f, 1e-12f, 0.01f, 0.1f, 0.24f, 0.3f, 0.7f, 1.0f, 1.6f, 5.0f})
        for (float alpha : {1.0f, 0.5f}) {
            const Image flat = Image::filled(30, 20, {v * alpha, v * alpha * 0.5f, 0, alpha});
            const float tolerance = 1e-6f * std::max(v, 1.0f);
            EXPECT_LT(maxDifference(highlightShadowAdjust(flat, {5, 0.8f, 0.2f}),
                                    highlightShadowAdjust(flat, {0, 0.8f, 0.2f})),
                      tolerance)
                << v << " " << alpha;
        }
    const Image a = scene(50, 37);
    EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) {
        return highlightShadowAdjust(a, {4, 0.6f, 0.3f}, x);
    }));
}

// An exposure folded into the stage gives exactly the floats of an exposure pass before it,
// judged alone or by the surroundings, and alone when the stage has nothing else to do.
TEST(HighlightShadow, FoldedExposureIsTheSeparatePass) {
    const Image a = scene(50, 37);
    const Image exposed = exposureAdjust(a, {0.7f});
    for (const HighlightShadowParams p :
         {HighlightShadowParams{4, 0.6f, 0.3f}, HighlightShadowParams{0, 0.6f, 0.3f},
          HighlightShadowParams{4, 0, 1}}) {
        HighlightShadowParams folded = p;
        folded.inputGain = std::exp2(0.7f);
        EXPECT_EQ(
            maxDifference(highlightShadowAdjust(a, folded), highlightShadowAdjust(exposed, p)),
            0.0f)
            << p.radius << " " << p.shadowAmount;
    }
}

TEST(MotionBlur, MatchesDirectLineAverage) {
    const Image a = scene(37, 29);
    EXPECT_TRUE(motionBlur(a, {0, 1}).sharesPixelsWith(a));
    EXPECT_TRUE(motionBlur(a, {NAN, 1}).sharesPixelsWith(a));
    EXPECT_TRUE(motionBlur(a, {5, INFINITY}).sharesPixelsWith(a));
    auto sample = [&](double x, double y, int c) {  // bilinear, clamped at the edges
        x = std::clamp(x, 0.0, a.width() - 1.0), y = std::clamp(y, 0.0, a.height() - 1.0);
        const int x0 = int(x), y0 = int(y);
        const int x1 = std::min(x0 + 1, a.width() - 1), y1 = std::min(y0 + 1, a.height() - 1);
        const double fx = x - x0, fy = y - y0;
        auto v = [&](int px, int py) { return double(a.row(py)[4 * px + c]); };
        return (1 - fy) * ((1 - fx) * v(x0, y0) + fx * v(x1, y0)) +
               fy * ((1 - fx) * v(x0, y1) + fx * v(x1, y1));
    };
    for (double radius : {1.0, 3.5, 7.0})
        for (double angle : {0.0, 0.3, M_PI / 2, 2.5, -1.0}) {
            const Image out = motionBlur(a, {float(radius), float(angle)});
            float worst = 0;
            for (int y = 0; y < a.height(); ++y)
                for (int x = 0; x < a.width(); ++x)
                    for (int c = 0; c < 4; ++c) {
                        double sum = 0, total = 0;
                        for (int k = -8; k <= 8; ++k) {
                            const double w = std::clamp(radius + 1 - std::abs(k), 0.0, 1.0);
                            sum += w * sample(x + k * std::cos(angle), y - k * std::sin(angle), c);
                            total += w;
                        }
                        worst =
                            std::max(worst, float(std::abs(sum / total - out.row(y)[4 * x + c])));
                    }
            EXPECT_LT(worst, 1e-5f) << radius << " " << angle;
        }
    EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) { return motionBlur(a, {6, 0.7f}, x); }));
}

}  // namespace
}  // namespace ql::img
