// Resampling, affine and perspective transforms, and QR codes.
#include <gtest/gtest.h>

#include <cmath>

#include "ImageTesting.h"
#include "imaging/BoxShrink.h"
#include "imaging/CropRegion.h"
#include "imaging/Displace.h"
#include "imaging/LanczosScale.h"
#include "imaging/QRCode.h"
#include "imaging/Transform.h"

namespace ql::img {
namespace {

using testing::identical;
using testing::make;
using testing::maxDifference;
using testing::noise;
using testing::sameForAnyThreads;

/// A slow Lanczos-3 reference, straight from the definition, for one output pixel.
Pixel referenceResample(const Image& in, int outW, int outH, int ox, int oy) {
    auto kernel = [](double x) {
        x = std::abs(x);
        if (x < 1e-9) return 1.0;
        if (x >= 3) return 0.0;
        return 3 * std::sin(M_PI * x) * std::sin(M_PI * x / 3) / (M_PI * M_PI * x * x);
    };
    const double fx = double(outW) / in.width(), fy = double(outH) / in.height();
    const double sx = fx < 1 ? 1 / fx : 1, sy = fy < 1 ? 1 / fy : 1;
    const double cx = (ox + 0.5) / fx - 0.5, cy = (oy + 0.5) / fy - 0.5;
    double acc[4] = {}, wsum = 0;
    for (int y = int(cy - 3 * sy) - 1; y <= int(cy + 3 * sy) + 1; ++y) {
        for (int x = int(cx - 3 * sx) - 1; x <= int(cx + 3 * sx) + 1; ++x) {
            const double w = kernel((x - cx) / sx) * kernel((y - cy) / sy);
            const Pixel p =
                in.at(std::clamp(x, 0, in.width() - 1), std::clamp(y, 0, in.height() - 1));
            acc[0] += w * p.r, acc[1] += w * p.g, acc[2] += w * p.b, acc[3] += w * p.a;
            wsum += w;
        }
    }
    return {float(acc[0] / wsum), float(acc[1] / wsum), float(acc[2] / wsum), float(acc[3] / wsum)};
}

TEST(BoxShrink, BlockMeansPartialEdgesAndPreparedRows) {
    const Image a = noise(7, 5, 11);
    const Image s = boxShrink(a, 3, 2);
    ASSERT_EQ(s.width(), 3);
    ASSERT_EQ(s.height(), 3);
    // The last column holds one pixel of each row, the last row one row of pixels.
    const auto mean = [&](int x0, int x1, int y0, int y1) {
        double v = 0;
        for (int y = y0; y < y1; ++y)
            for (int x = x0; x < x1; ++x)
                v += a.at(x, y).g;
        return v / ((x1 - x0) * (y1 - y0));
    };
    EXPECT_NEAR(s.at(0, 0).g, mean(0, 3, 0, 2), 1e-6);
    EXPECT_NEAR(s.at(2, 1).g, mean(6, 7, 2, 4), 1e-6);
    EXPECT_NEAR(s.at(1, 2).g, mean(3, 6, 4, 5), 1e-6);
    const Image doubled = boxShrink(a, 3, 2, {}, [](const float* in, float* out, int n) {
        for (int i = 0; i < 4 * n; ++i)
            out[i] = 2 * in[i];
    });
    EXPECT_NEAR(doubled.at(2, 1).g, 2 * s.at(2, 1).g, 1e-6);
    EXPECT_TRUE(sameForAnyThreads([&](const Execution& x) { return boxShrink(a, 2, 2, x); }));
}

TEST(BoxShrink, LargeShrinksLandExactlyAndWithoutAliasing) {
    // A one-pixel checkerboard is finer than any smaller grid: shrunk, it must turn to its mean.
    const Image fine = make(1000, 700, [](int x, int y) {
        const float v = float((x + y) % 2);
        return Pixel{v, v, v, 1};
    });
    const Image small = shrinkTo(fine, 97, 61, 1.5);
    ASSERT_EQ(small.width(), 97);
    ASSERT_EQ(small.height(), 61);
    float worst = 0;
    for (int y = 0; y < 61; ++y)
        for (int x = 0; x < 97; ++x)
            worst = std::max(worst, std::abs(small.at(x, y).r - 0.5f));
    EXPECT_LT(worst, 0.02f);
    EXPECT_TRUE(shrinkTo(fine, 1000, 700, 1.5).sharesPixelsWith(fine));
}

TEST(Lanczos, SizesNeutralAndBadScales) {
    const Image a = noise(40, 30, 1);
    EXPECT_TRUE(lanczosScale(a, {}).sharesPixelsWith(a));
    for (float bad : {0.0f, -1.0f, NAN, INFINITY, 1e9f})
        EXPECT_TRUE(lanczosScale(a, {bad}).sharesPixelsWith(a)) << bad;
    const Image half = lanczosScale(a, {0.5f, 2});
    EXPECT_EQ(half.width(), 40);
    EXPECT_EQ(half.height(), 15);
    EXPECT_EQ(lanczosScale(a, {1e-6f}).width(), 1);  // never below one pixel
    EXPECT_TRUE(lanczosScale(Image{}, {0.5f}).empty());
}

TEST(Lanczos, MatchesTheDefinitionWhenShrinkingAndEnlarging) {
    const Image a = noise(53, 41, 2);
    for (auto [w, h] : {std::pair{20, 17}, std::pair{111, 90}, std::pair{53, 13}}) {
        const Image out = resize(a, w, h);
        for (int y = 0; y < h; y += 3)
            for (int x = 0; x < w; x += 3) {
                const Pixel ref = referenceResample(a, w, h, x, y);
                ASSERT_NEAR(out.at(x, y).g, ref.g, 2e-5)
                    << w << "x" << h << " at " << x << "," << y;
                ASSERT_NEAR(out.at(x, y).a, ref.a, 2e-5);
            }
    }
}

TEST(Lanczos, ConstantStaysConstantAndMeanIsKept) {
    const Image flat = Image::filled(97, 61, {0.3f, 0.6f, 2.5f, 1});
    const Image small = resize(flat, 31, 20);
    EXPECT_LT(maxDifference(small, Image::filled(31, 20, {0.3f, 0.6f, 2.5f, 1})), 1e-5);
    const Image big = resize(flat, 200, 150);
    EXPECT_LT(maxDifference(big, Image::filled(200, 150, {0.3f, 0.6f, 2.5f, 1})), 1e-5);
    const Image n = noise(120, 120, 3);
    EXPECT_NEAR(testing::mean(resize(n, 40, 40), 1), testing::mean(n, 1), 2e-3);
    // An opaque photo stays exactly opaque whatever the scale: a few float steps below 1 would
    // send every later stage down its path for translucent pixels.
    Image opaque = noise(97, 61, 5);
    for (size_t i = 0; i < opaque.pixelCount(); ++i)
        opaque.data()[i * 4 + 3] = 1;
    for (const auto& [w, h] : {std::pair{31, 20}, std::pair{80, 51}, std::pair{200, 150}}) {
        const Image r = resize(opaque, w, h);
        for (size_t i = 0; i < r.pixelCount(); ++i)
            ASSERT_EQ(r.data()[i * 4 + 3], 1.0f) << w << " " << i;
    }
}

TEST(Lanczos, ShrinkingAFineCheckerboardDoesNotAlias) {
    // A one-pixel checkerboard has no detail the smaller grid can hold: it must become flat grey,
    // not a coarse pattern or moiré.
    const Image board = make(300, 200, [](int x, int y) {
        const float v = (x + y) % 2 ? 1.f : 0.f;
        return Pixel{v, v, v, 1};
    });
    for (auto [w, h] : {std::pair{100, 67}, std::pair{77, 51}, std::pair{143, 95}}) {
        const Image out = resize(board, w, h);
        float lo = 1, hi = 0;
        for (int y = 3; y < h - 3; ++y)
            for (int x = 3; x < w - 3; ++x)
                lo = std::min(lo, out.at(x, y).r), hi = std::max(hi, out.at(x, y).r);
        EXPECT_LT(hi - lo, 0.08) << w << "x" << h;
        EXPECT_NEAR((hi + lo) / 2, 0.5, 0.04);
    }
}

TEST(Lanczos, SameResultWhateverTheThreads) {
    const Image a = noise(70, 45, 4);
    const Image one = resize(a, 33, 50, Execution{1});
    EXPECT_TRUE(identical(one, resize(a, 33, 50, Execution{2})));
    EXPECT_TRUE(identical(one, resize(a, 33, 50, Execution{7})));
}

TEST(Affine, TranslationRotationAndBadMatrices) {
    const Image a = noise(20, 16, 5);
    EXPECT_TRUE(affineTransform(a, {}).sharesPixelsWith(a));
    EXPECT_TRUE(affineTransform(a, {0, 0, 0, 0}).sharesPixelsWith(a));  // singular
    EXPECT_TRUE(affineTransform(a, {NAN, 0, 0, 1}).sharesPixelsWith(a));

    const Image moved = affineTransform(a, {1, 0, 0, 1, 3, 2});
    EXPECT_EQ(moved.at(8, 7), a.at(5, 5));
    EXPECT_EQ(moved.at(1, 1), (Pixel{}));  // uncovered: transparent

    // A quarter turn clockwise about the origin, moved back into a canvas of swapped size.
    const Image turned = affineTransform(a, {0, 1, -1, 0, 16, 0, 16, 20});
    EXPECT_NEAR(turned.at(15 - 4, 6).g, a.at(6, 4).g, 1e-6);
    const Image clamped = affineTransform(a, {1, 0, 0, 1, 3, 0, 0, 0, EdgeMode::clamp});
    EXPECT_EQ(clamped.at(0, 5), a.at(0, 5));
}

TEST(Perspective, CornersLandOnTheQuad) {
    const Image a = make(40, 30, [](int x, int y) { return Pixel{float(x), float(y), 0, 1}; });
    EXPECT_TRUE(perspectiveTransform(a, {{0, 0}, {40, 0}, {40, 30}, {0, 30}}).sharesPixelsWith(a));

    PerspectiveParams p{{10, 5}, {70, 0}, {80, 60}, {0, 50}, 90, 70};
    std::array<double, 9> h;
    ASSERT_TRUE(homography(40, 30, {p.topLeft, p.topRight, p.bottomRight, p.bottomLeft}, h));
    auto map = [&](double x, double y) {
        const double w = h[6] * x + h[7] * y + h[8];
        return Point{(h[0] * x + h[1] * y + h[2]) / w, (h[3] * x + h[4] * y + h[5]) / w};
    };
    const Point corners[4] = {map(0, 0), map(40, 0), map(40, 30), map(0, 30)};
    const Point want[4] = {p.topLeft, p.topRight, p.bottomRight, p.bottomLeft};
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(corners[i].x, want[i].x, 1e-9);
        EXPECT_NEAR(corners[i].y, want[i].y, 1e-9);
    }
    // A pixel just inside each output corner shows the matching input corner.
    const Image out = perspectiveTransform(a, p);
    EXPECT_NEAR(out.at(11, 7).r, 0.5, 1.5);
    EXPECT_NEAR(out.at(11, 7).g, 0.5, 1.5);
    EXPECT_NEAR(out.at(77, 57).r, 39.5, 1.5);
    EXPECT_NEAR(out.at(77, 57).g, 29.5, 1.5);
    EXPECT_EQ(out.at(89, 2), (Pixel{}));  // outside the quad

    // Crossed or collapsed corners are no quad.
    EXPECT_TRUE(perspectiveTransform(a, {{0, 0}, {40, 30}, {40, 0}, {0, 30}}).sharesPixelsWith(a));
    EXPECT_TRUE(perspectiveTransform(a, {{0, 0}, {10, 0}, {20, 0}, {0, 30}}).sharesPixelsWith(a));
    EXPECT_TRUE(identical(perspectiveTransform(a, p, Execution{1}),
                          perspectiveTransform(a, p, Execution{7})));
}

/// Bilinear from the definition, in double precision, at the input position of output pixel
/// (ox, oy) under the homography `hm` from the input's frame to the output's.
Pixel referenceWarp(const Image& in, const std::array<double, 9>& hm, int ox, int oy,
                    EdgeMode edges) {
    // The inverse by the adjugate; its scale cancels in the division.
    const auto& m = hm;
    const double inv[9] = {
        m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
        m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
        m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
    const double qx = ox + 0.5, qy = oy + 0.5;
    const double z = inv[6] * qx + inv[7] * qy + inv[8];
    const double fx = (inv[0] * qx + inv[1] * qy + inv[2]) / z - 0.5;
    const double fy = (inv[3] * qx + inv[4] * qy + inv[5]) / z - 0.5;
    const int x0 = int(std::floor(fx)), y0 = int(std::floor(fy));
    double acc[4] = {};
    for (int k = 0; k < 4; ++k) {
        int x = x0 + (k & 1), y = y0 + (k >> 1);
        const double wx = (k & 1) ? fx - x0 : 1 - (fx - x0);
        const double wy = (k >> 1) ? fy - y0 : 1 - (fy - y0);
        if (x < 0 || y < 0 || x >= in.width() || y >= in.height()) {
            if (edges == EdgeMode::transparent) continue;
            x = std::clamp(x, 0, in.width() - 1), y = std::clamp(y, 0, in.height() - 1);
        }
        const Pixel p = in.at(x, y);
        acc[0] += wx * wy * p.r, acc[1] += wx * wy * p.g;
        acc[2] += wx * wy * p.b, acc[3] += wx * wy * p.a;
    }
    return {float(acc[0]), float(acc[1]), float(acc[2]), float(acc[3])};
}

TEST(Perspective, EveryPixelIsTheBilinearBlendOfItsSourcePosition) {
    // The quad reaches past the output on every side, and the output past the quad, so that
    // interior cells, clamped edges, a transparent rim and empty surroundings all occur; sizes
    // that are no multiple of eight leave partial runs.
    for (const auto& [w, h] : {std::pair{37, 23}, std::pair{300, 9}, std::pair{1, 6}})
        for (EdgeMode edges : {EdgeMode::clamp, EdgeMode::transparent}) {
            const Image a = noise(w, h, 4);
            const PerspectiveParams p{
                {-6, 3}, {w + 9.0, -4}, {w + 3.0, h + 8.0}, {-3, h + 5.0}, w + 12, h + 10, edges};
            std::array<double, 9> hm;
            ASSERT_TRUE(homography(w, h, {p.topLeft, p.topRight, p.bottomRight, p.bottomLeft}, hm));
            const Image out = perspectiveTransform(a, p);
            ASSERT_EQ(out.width(), w + 12);
            double worst = 0;
            for (int y = 0; y < out.height(); ++y)
                for (int x = 0; x < out.width(); ++x) {
                    const Pixel got = out.at(x, y), want = referenceWarp(a, hm, x, y, edges);
                    worst = std::max({worst, std::abs(double(got.r) - want.r),
                                      std::abs(double(got.g) - want.g),
                                      std::abs(double(got.a) - want.a)});
                }
            EXPECT_LT(worst, 1e-4) << w << "×" << h << " edges " << int(edges);
        }
}

TEST(QRCode, ModulesFinderPatternsAndLimits) {
    const QRCodeParams p{QRCodeParams::Correction::medium, 3, 4};
    const Image code = qrCode("http://192.168.1.20:8080/", p);
    ASSERT_FALSE(code.empty());
    const int n = qrModules(code, p);
    EXPECT_EQ((n - 21) % 4, 0);  // versions grow by four modules
    auto dark = [&](int mx, int my) {
        return code.at((4 + mx) * 3 + 1, (4 + my) * 3 + 1).r < 0.5f;
    };
    // The three finder patterns: a dark ring of 7, a light ring of 5, a dark core of 3.
    for (auto [ox, oy] : {std::pair{0, 0}, std::pair{n - 7, 0}, std::pair{0, n - 7}}) {
        EXPECT_TRUE(dark(ox, oy) && dark(ox + 6, oy + 6) && dark(ox + 3, oy));
        EXPECT_FALSE(dark(ox + 1, oy + 1) || dark(ox + 5, oy + 3));
        EXPECT_TRUE(dark(ox + 2, oy + 2) && dark(ox + 4, oy + 4));
    }
    for (int i = 0; i < code.width(); ++i)
        EXPECT_EQ(code.at(i, 0), (Pixel{1, 1, 1, 1}));
    EXPECT_TRUE(identical(code, qrCode("http://192.168.1.20:8080/", p)));
    EXPECT_GT(qrModules(qrCode(std::string(500, 'x'), p), p), n);
    EXPECT_TRUE(qrCode("").empty());
    EXPECT_TRUE(qrCode(std::string(8000, 'x')).empty());
}

}  // namespace
}  // namespace ql::img

namespace ql::img {
namespace {

TEST(Crop, ClipsToTheImage) {
    const Image a = testing::noise(10, 8, 6);
    EXPECT_TRUE(crop(a, {0, 0, 10, 8}).sharesPixelsWith(a));
    EXPECT_TRUE(crop(a, {-5, -5, 100, 100}).sharesPixelsWith(a));
    const Image c = crop(a, {3, 2, 4, 100});
    EXPECT_EQ(c.width(), 4);
    EXPECT_EQ(c.height(), 6);
    EXPECT_EQ(c.at(0, 0), a.at(3, 2));
    EXPECT_EQ(c.at(3, 5), a.at(6, 7));
    EXPECT_TRUE(crop(a, {20, 0, 5, 5}).empty());
    EXPECT_TRUE(crop(a, {2, 2, -1, 5}).empty());
    EXPECT_TRUE(crop(a, {2147483000, 0, 2147483000, 5}).empty());
}

TEST(Displace, ShiftsByTheFieldAndHonoursTheMask) {
    const Image a = testing::make(16, 12, [](int x, int y) {
        return Pixel{float(x), float(y), 0, 1};
    });
    const Image field = Image::filled(4, 3, {1, -0.5f, 0, 1});  // stretched over the image
    EXPECT_TRUE(displace(a, field, {0}).sharesPixelsWith(a));
    EXPECT_TRUE(displace(a, Image{}, {2}).sharesPixelsWith(a));
    EXPECT_TRUE(displace(a, field, {NAN}).sharesPixelsWith(a));

    const Image moved = displace(a, field, {2});  // every pixel reads 2 right and 1 up
    EXPECT_FLOAT_EQ(moved.at(5, 6).r, 7);
    EXPECT_FLOAT_EQ(moved.at(5, 6).g, 5);
    EXPECT_FLOAT_EQ(moved.at(15, 0).r, 15);  // clamped at the border
    EXPECT_FLOAT_EQ(moved.at(15, 0).g, 0);

    const Image mask = testing::make(16, 12, [](int x, int) {
        return Pixel{x < 8 ? 0.f : 1.f, 0, 0, 1};
    });
    const Image held = displace(a, field, mask, {2});
    EXPECT_EQ(held.at(3, 6), a.at(3, 6));  // mask 0: still
    EXPECT_FLOAT_EQ(held.at(10, 6).r, 12);
    EXPECT_TRUE(displace(a, field, Image(3, 3), {2}).sharesPixelsWith(a));
    EXPECT_TRUE(testing::identical(displace(a, field, {2}, Execution{1}),
                                   displace(a, field, {2}, Execution{7})));
}

}  // namespace
}  // namespace ql::img

namespace ql::img {
namespace {

TEST(GeometryBadInput, NonFinitePixelsStayLocalAndEmptyImagesPassThrough) {
    Image a = testing::noise(30, 20, 9);
    a.set(3, 3, {NAN, INFINITY, -INFINITY, 1});
    const Image small = resize(a, 10, 7);
    EXPECT_TRUE(std::isfinite(small.at(9, 6).g));  // far from the bad pixel
    const Image moved = affineTransform(a, {1, 0, 0, 1, 0.5, 0.5});
    EXPECT_TRUE(std::isfinite(moved.at(20, 15).r));
    for (const Image& out : {resize(Image{}, 5, 5), affineTransform(Image{}, {2, 0, 0, 2}),
                             perspectiveTransform(Image{}, {}), crop(Image{}, {0, 0, 1, 1}),
                             displace(Image{}, a, {1})})
        EXPECT_TRUE(out.empty());
}

}  // namespace
}  // namespace ql::img
