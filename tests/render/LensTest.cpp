// Lens corrections: distortion straightens lines and keeps the frame filled, vignetting shades by
// radius, lateral colour scales red and blue about the centre and can be measured back, and the
// defringe greys fringe colours on edges only and can propose its own amounts.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "imaging/ColorControls.h"
#include "imaging/Composite.h"
#include "render/Defringe.h"
#include "render/LensCorrect.h"
#include "tests/imaging/ImageTesting.h"

namespace ql {
namespace {

using img::Image;
using img::Pixel;
using img::testing::make;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

bool allFinite(const Image& image) {
    for (size_t i = 0, n = image.pixelCount() * 4; i < n; ++i)
        if (!std::isfinite(image.data()[i])) return false;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Distortion, vignetting, lateral colour

// Grey horizontal lines 110 pixels above and below the centre, drawn through a pincushion of
// strength c: the point u of the ideal picture shows at u (1 + c |u|²), in units of half the
// diagonal, so every pixel shows the ideal point that maps onto it.
Image pincushionLines(int w, int h, double c) {
    const double cx = w / 2.0, cy = h / 2.0, hd = 0.5 * std::hypot(w, h);
    return make(w, h, [&](int x, int y) {
        const double dx = (x + 0.5 - cx) / hd, dy = (y + 0.5 - cy) / hd;
        const double rd = std::hypot(dx, dy);
        double r = rd;
        for (int i = 0; i < 20; ++i)
            r -= (r * (1 + c * r * r) - rd) / (1 + 3 * c * r * r);
        const double scale = rd > 0 ? r / rd : 1;
        const double iy = dy * scale * hd;
        const double dist = std::min(std::abs(iy - 110), std::abs(iy + 110));
        const float v = float(1 - 0.9 * std::exp(-dist * dist / (2 * 1.2 * 1.2)));
        return Pixel{v, v, v, 1};
    });
}

// How far the upper line bends: it is followed column by column from the centre outward by the
// centroid of its darkness, and the spread of those centroids is the answer, in pixels.
double bend(const Image& image) {
    const int w = image.width(), cx = w / 2;
    int start = 0;
    for (int y = 1; y < image.height() / 2; ++y)
        if (image.at(cx, y).g < image.at(cx, start).g) start = y;
    double lo = INFINITY, hi = -INFINITY;
    for (const int dir : {-1, 1}) {
        double guess = start;
        for (int x = cx; x >= 20 && x < w - 20; x += dir) {
            double sum = 0, weight = 0;
            for (int y = int(std::lround(guess)) - 7; y <= int(std::lround(guess)) + 7; ++y) {
                const double d = 1 - image.at(x, std::clamp(y, 0, image.height() - 1)).g;
                sum += d * y;
                weight += d;
            }
            guess = sum / weight;
            lo = std::min(lo, guess);
            hi = std::max(hi, guess);
        }
    }
    return hi - lo;
}

LensFix distortion(double d) {
    LensFix lens;
    lens.distortion = d;
    return lens;
}

TEST(LensCorrect, NeutralSlidersReturnTheInput) {
    const Image image = img::testing::noise(40, 30, 1);
    LensFix lens;
    lens.vignetteMid = 80;  // shapes a vignette that is not there
    lens.purple = 50;       // defringing is not this stage's business
    EXPECT_TRUE(LensCorrect::apply(image, lens).sharesPixelsWith(image));
    lens.distortion = lens.vignette = lens.caRed = lens.caBlue = kNaN;
    EXPECT_TRUE(LensCorrect::apply(image, lens).sharesPixelsWith(image));
    EXPECT_TRUE(LensCorrect::apply(Image{}, distortion(50)).empty());
}

TEST(LensCorrect, ZoomKeepsTheFrameFilledAndNoMore) {
    EXPECT_EQ(LensCorrect::zoom(0, 300, 200), 1);
    EXPECT_EQ(LensCorrect::zoom(0.1, 0, 200), 1);
    EXPECT_EQ(LensCorrect::zoom(kNaN, 300, 200), 1);
    // Walk each frame's edge densely: every point must sample inside the picture (up to what the
    // zoom's own coarser walk can miss) and some point must touch its edge.
    for (const double k : {-0.18, -0.05, 0.04, 0.18})
        for (const auto& [w, h] : {std::pair{3000.0, 2000.0}, {1000.0, 1500.0}, {500.0, 500.0}}) {
            const double z = LensCorrect::zoom(k, w, h);
            EXPECT_EQ(z > 1, k < 0) << k;
            const double a = w / 2, b = h / 2, D2 = a * a + b * b;
            double worst = 0;  // the largest of |x'| / a and |y'| / b over the edge
            for (int i = 0; i <= 4000; ++i) {
                const double t = i / 4000.0;
                for (const auto& [x, y] : {std::pair{a * t, b}, {a, b * t}}) {
                    const double f = (1 + k * (x * x + y * y) / D2) * z;
                    worst = std::max({worst, x * f / a, y * f / b});
                }
            }
            EXPECT_LT(worst, 1 + 1e-4) << k << " " << w << "x" << h;
            EXPECT_GT(worst, 1 - 1e-6) << k << " " << w << "x" << h;
        }
}

TEST(LensCorrect, FullDistortionKeepsTheCornersInsideThePicture) {
    const int w = 480, h = 320;
    EXPECT_DOUBLE_EQ(LensCorrect::warp(distortion(100), w, h).k, -0.18);
    EXPECT_DOUBLE_EQ(LensCorrect::warp(distortion(-100), w, h).k, 0.18);
    // Each pixel holds its own coordinates, so the output tells where it was read; a read beyond
    // the edge would clamp to exactly 0 or the last index.
    const Image where = make(w, h, [](int x, int y) { return Pixel{float(x), float(y), 0, 1}; });
    for (const double d : {100.0, -100.0}) {
        const Image out = LensCorrect::apply(where, distortion(d));
        for (const auto& [x, y] : {std::pair{0, 0}, {w - 1, 0}, {0, h - 1}, {w - 1, h - 1}}) {
            const Pixel p = out.at(x, y);
            EXPECT_GT(p.r, 0) << d;
            EXPECT_LT(p.r, w - 1) << d;
            EXPECT_GT(p.g, 0) << d;
            EXPECT_LT(p.g, h - 1) << d;
            if (d < 0) {  // a pincushion correction zooms in no further than the corners need
                EXPECT_NEAR(p.r, x, 1.5);
                EXPECT_NEAR(p.g, y, 1.5);
            }
        }
        // The centre stays put: the pixel beside it moves by the zoom's share of half a pixel.
        EXPECT_NEAR(out.at(w / 2, h / 2).r, w / 2, 0.1);
        EXPECT_NEAR(out.at(w / 2, h / 2).g, h / 2, 0.1);
    }
}

TEST(LensCorrect, StraightensAPincushion) {
    const double c = 0.09;  // what distortion −50 undoes
    const Image bent = pincushionLines(480, 320, c);
    const double before = bend(bent);
    EXPECT_GT(before, 4);
    const double after = bend(LensCorrect::apply(bent, distortion(-c / 0.18 * 100)));
    EXPECT_LT(after, 0.3 * before);
    // The other sign bends it further.
    EXPECT_GT(bend(LensCorrect::apply(bent, distortion(c / 0.18 * 100))), 1.5 * before);
}

TEST(LensCorrect, VignetteShadesByRadiusOnly) {
    const int w = 300, h = 200;
    LensFix lens;
    lens.vignette = 50;
    const LensCorrect::Warp warp = LensCorrect::warp(lens, w, h);
    EXPECT_EQ(warp.k, 0);
    EXPECT_EQ(warp.zoom, 1);
    EXPECT_FALSE(warp.moves());

    const Image grey = Image::filled(w, h, {0.25f, 0.25f, 0.25f, 1});
    const Image lighter = LensCorrect::apply(grey, lens);
    // At the corner the radius is about 1: 0.75 stops.
    EXPECT_NEAR(lighter.at(0, 0).g, 0.25 * std::exp2(0.75), 0.01);
    EXPECT_NEAR(lighter.at(w / 2, h / 2).g, 0.25, 1e-4);
    EXPECT_EQ(lighter.at(0, 0).a, 1);
    lens.vignette = -50;
    const Image darker = LensCorrect::apply(grey, lens);
    EXPECT_NEAR(darker.at(w - 1, h - 1).g, 0.25 * std::exp2(-0.75), 0.01);
    // At the default midpoint the stops grow with the square of the radius.
    const int x = w / 2 + 90;  // about half way to the corner
    const double rho = (x + 0.5 - w / 2.0) / (0.5 * std::hypot(w, h));
    EXPECT_NEAR(darker.at(x, h / 2).g, 0.25 * std::exp2(-0.75 * rho * rho), 1e-4);
    // A higher midpoint keeps the shading out of the middle radii.
    lens.vignetteMid = 100;
    const float high = LensCorrect::apply(grey, lens).at(x, h / 2).g;
    lens.vignetteMid = 0;
    const float low = LensCorrect::apply(grey, lens).at(x, h / 2).g;
    EXPECT_LT(low, high);
    EXPECT_LT(high, 0.25f);

    // No pixel moves: every channel of a pixel gets the same factor.
    const Image noise = img::testing::noise(w, h, 7, 0.2f, 1);
    const Image shaded = LensCorrect::apply(noise, lens);
    for (const auto& [px, py] : {std::pair{3, 5}, {150, 100}, {290, 190}, {77, 150}}) {
        const Pixel in = noise.at(px, py), out = shaded.at(px, py);
        EXPECT_NEAR(out.r / in.r, out.g / in.g, 1e-5);
        EXPECT_NEAR(out.b / in.b, out.g / in.g, 1e-5);
    }

    // With distortion the shading belongs to the picture and moves with it: the corner shows a
    // point nearer the centre and is shaded as that point.
    lens = distortion(100);
    lens.vignette = 50;
    const LensCorrect::Warp both = LensCorrect::warp(lens, w, h);
    const double corner = std::hypot(w / 2.0 - 0.5, h / 2.0 - 0.5) / (0.5 * std::hypot(w, h));
    const double seen = corner * (1 + both.k * corner * corner) * both.zoom;
    EXPECT_NEAR(LensCorrect::apply(grey, lens).at(0, 0).g, 0.25 * std::exp2(0.75 * seen * seen),
                1e-3);
}

// A ring of the given radius about the centre, grey, on black.
Image ring(int w, int h, double radius) {
    return make(w, h, [&](int x, int y) {
        const double d = std::hypot(x + 0.5 - w / 2.0, y + 0.5 - h / 2.0) - radius;
        const float v = float(0.05 + 0.8 * std::exp(-d * d / 8));
        return Pixel{v, v, v, 1};
    });
}

// The mean radius of one channel's brightness above the background.
double ringRadius(const Image& image, int channel) {
    double sum = 0, weight = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const Pixel p = image.at(x, y);
            const double v = std::max(0.0, double((&p.r)[channel]) - 0.05);
            sum += v * std::hypot(x + 0.5 - image.width() / 2.0, y + 0.5 - image.height() / 2.0);
            weight += v;
        }
    return sum / weight;
}

TEST(LensCorrect, LateralColourScalesRedAndBlueAboutTheCentre) {
    const Image image = ring(600, 400, 180);
    LensFix lens;
    lens.caRed = 100;  // red read 0.3% nearer the centre: its ring grows
    lens.caBlue = -100;
    const Image out = LensCorrect::apply(image, lens);
    const double green = ringRadius(out, 1);
    EXPECT_NEAR(green, ringRadius(image, 1), 1e-3);
    EXPECT_NEAR(ringRadius(out, 0) - green, 180 * 0.003, 0.08);
    EXPECT_NEAR(ringRadius(out, 2) - green, -180 * 0.003, 0.08);
    lens.caBlue = 0;
    EXPECT_NEAR(ringRadius(LensCorrect::apply(image, lens), 2), green, 1e-3);
}

// A soft checkerboard whose red is magnified by mr about the centre and blue by mb: the lateral
// colour of a lens, which caRed = (1 − mr) / 3e-5 and caBlue likewise take away.
Image lateralColour(int w, int h, double mr, double mb) {
    const double cx = w / 2.0, cy = h / 2.0;
    const auto pattern = [&](double x, double y) {
        const double k = 2 * M_PI / 48;
        return float(0.5 + 0.4 * std::tanh(3 * std::sin(k * x) * std::sin(k * y)));
    };
    return make(w, h, [&](int x, int y) {
        const double dx = x + 0.5 - cx, dy = y + 0.5 - cy;
        return Pixel{pattern(cx + dx / mr, cy + dy / mr), pattern(cx + dx, cy + dy),
                     pattern(cx + dx / mb, cy + dy / mb), 1};
    });
}

// Root mean square difference between a channel and green, inside a margin.
double offGreen(const Image& image, int channel) {
    double sum = 0;
    int n = 0;
    for (int y = 10; y < image.height() - 10; ++y)
        for (int x = 10; x < image.width() - 10; ++x) {
            const Pixel p = image.at(x, y);
            const double d = double((&p.r)[channel]) - p.g;
            sum += d * d;
            ++n;
        }
    return std::sqrt(sum / n);
}

TEST(LensCorrect, EstimateFindsLateralColour) {
    // 1200 pixels long, so the estimate works on a reduced copy.
    const Image fringed = lateralColour(1200, 800, 1.0015, 0.999);
    const LensCorrect::CAEstimate found = LensCorrect::estimateCA(fringed);
    EXPECT_NEAR(found.red, -50, 3);
    EXPECT_NEAR(found.blue, 33.3, 3);
    LensFix lens;
    lens.caRed = found.red;
    lens.caBlue = found.blue;
    const Image fixed = LensCorrect::apply(fringed, lens);
    EXPECT_LT(offGreen(fixed, 0), 0.25 * offGreen(fringed, 0));
    EXPECT_LT(offGreen(fixed, 2), 0.25 * offGreen(fringed, 2));

    const auto expectNothing = [](const Image& image, const img::Execution& exec = {}) {
        const LensCorrect::CAEstimate e = LensCorrect::estimateCA(image, exec);
        EXPECT_EQ(e.red, 0);
        EXPECT_EQ(e.blue, 0);
    };
    // Aligned channels under independent noise: nothing measurable to correct.
    const Image aligned = lateralColour(600, 400, 1, 1);
    const Image grain = img::testing::noise(600, 400, 4, -0.05f, 0.05f);
    expectNothing(make(600, 400, [&](int x, int y) {
        const Pixel a = aligned.at(x, y), n = grain.at(x, y);
        return Pixel{a.r + n.r, a.g + n.g, a.b + n.b, 1};
    }));
    expectNothing(img::testing::noise(600, 400, 9));  // channels that share no detail
    expectNothing(Image::filled(300, 200, {0.4f, 0.5f, 0.6f, 1}));
    const std::atomic<bool> cancel{true};
    expectNothing(fringed, {1, &cancel});
}

TEST(LensCorrect, HostileSlidersAndSizes) {
    const Image image = img::testing::noise(64, 48, 3);
    for (const double v : {kNaN, kInf, -kInf, 1e300, -1e300, 1e-300})
        for (double LensFix::*field : {&LensFix::distortion, &LensFix::vignette,
                                       &LensFix::vignetteMid, &LensFix::caRed, &LensFix::caBlue}) {
            LensFix lens;
            lens.distortion = 30;
            lens.vignette = -20;
            lens.*field = v;
            const Image out = LensCorrect::apply(image, lens);
            ASSERT_EQ(out.width(), 64);
            EXPECT_TRUE(allFinite(out)) << v;
        }
    LensFix all;
    all.distortion = all.vignette = all.caRed = all.caBlue = 100;
    for (const auto& [w, h] : {std::pair{1, 1}, {1, 9}, {9, 1}, {2, 3}}) {
        const Image tiny = img::testing::noise(w, h, 5);
        EXPECT_TRUE(allFinite(LensCorrect::apply(tiny, all)));
        EXPECT_EQ(LensCorrect::estimateCA(tiny).red, 0);
    }
    img::testing::expectThreadIndependent(
        [&](const img::Execution& exec) { return LensCorrect::apply(image, all, exec); });
}

// ---------------------------------------------------------------------------------------------
// Defringing

constexpr Pixel kPurple{0.30f, 0.03f, 0.55f, 1};
constexpr Pixel kGreen{0.55f, 0.95f, 0.45f, 1};
constexpr Pixel kDark{0.02f, 0.02f, 0.02f, 1};
constexpr Pixel kBright{0.9f, 0.9f, 0.9f, 1};

// Dark on the left, bright on the right of x = 200, a purple square in the dark far from that
// edge, and (when asked) a purple fringe on the dark side of the edge and a green one on the
// bright side, three pixels wide each.
Image fringeScene(bool purpleFringe, bool greenFringe, bool square = true) {
    return make(400, 300, [&](int x, int y) {
        if (purpleFringe && x >= 197 && x < 200) return kPurple;
        if (greenFringe && x >= 200 && x < 203) return kGreen;
        if (square && x >= 40 && x < 120 && y >= 100 && y < 180) return kPurple;
        return x < 200 ? kDark : kBright;
    });
}

double chroma(Pixel p) {
    const auto e = [](float v) { return std::pow(std::max(v, 0.0f), 1 / 2.2f); };
    return std::max({e(p.r), e(p.g), e(p.b)}) - std::min({e(p.r), e(p.g), e(p.b)});
}

// Mean display chroma over columns [x0, x1).
double meanChroma(const Image& image, int x0, int x1) {
    double sum = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = x0; x < x1; ++x)
            sum += chroma(image.at(x, y));
    return sum / (image.height() * (x1 - x0));
}

LensFix defringe(double purple, double green) {
    LensFix lens;
    lens.purple = purple;
    lens.green = green;
    return lens;
}

TEST(Defringe, ZeroAmountsReturnTheInput) {
    const Image image = fringeScene(true, true);
    EXPECT_TRUE(Defringe::apply(image, defringe(0, 0), 400).sharesPixelsWith(image));
    EXPECT_TRUE(Defringe::apply(image, defringe(-5, kNaN), 400).sharesPixelsWith(image));
    LensFix lens = defringe(0, 0);
    lens.distortion = 50;  // not this stage's slider
    EXPECT_TRUE(Defringe::apply(image, lens, 400).sharesPixelsWith(image));
}

TEST(Defringe, HueWeightFollowsTheBands) {
    const auto weight = [](Pixel p, const LensFix& lens) {
        const Image one = Image::filled(1, 1, p);
        return Defringe::fringeHue(one, Defringe::purpleBand(lens), Defringe::greenBand(lens))
            .at(0, 0)
            .r;
    };
    const LensFix both = defringe(100, 60);
    EXPECT_NEAR(weight(kPurple, both), 1, 1e-6);
    EXPECT_NEAR(weight(kGreen, both), 0.6, 1e-6);
    EXPECT_NEAR(weight(kPurple, defringe(40, 0)), 0.4, 1e-6);
    EXPECT_EQ(weight(kGreen, defringe(100, 0)), 0);
    EXPECT_EQ(weight(kPurple, defringe(0, 100)), 0);
    EXPECT_EQ(weight({0.5f, 0.5f, 0.5f, 1}, both), 0);                // grey
    EXPECT_EQ(weight({0.9f, 0.3f, 0.02f, 1}, both), 0);               // orange
    EXPECT_EQ(weight({0.21f, 0.2f, 0.2f, 1}, both), 0);               // barely tinted
    EXPECT_NEAR(weight({0.15f, 0.0f, 0.3f, 0.5f}, both), 1, 1e-6);    // premultiplied purple
    EXPECT_NEAR(weight({0.612f, 0.029f, 0.325f, 1}, both), 1, 1e-6);  // magenta, hue 320°
    // Weakly tinted purple counts in part: encoded chroma 0.075 is half way up the ramp.
    EXPECT_NEAR(weight({0.2684f, 0.2176f, 0.2960f, 1}, both), 0.5, 0.05);
    // A band across red wraps: 340° to 20° takes pure red.
    LensFix red = defringe(100, 0);
    red.purpleLo = 340;
    red.purpleHi = 20;
    EXPECT_NEAR(weight({0.8f, 0.02f, 0.02f, 1}, red), 1, 1e-6);
    EXPECT_EQ(weight(kPurple, red), 0);
    red.purpleLo = kNaN;  // back to the default range
    EXPECT_NEAR(weight(kPurple, red), 1, 1e-6);
}

TEST(Defringe, EdgeMaskCoversEdgesAndTheirFringes) {
    const Image scene = fringeScene(false, false, false);
    const Image mask = Defringe::edges(scene, 400);
    EXPECT_EQ(mask.at(199, 150).r, 1);
    EXPECT_EQ(mask.at(197, 150).r, 1);  // widened by at least 2
    EXPECT_EQ(mask.at(100, 150).r, 0);
    EXPECT_EQ(mask.at(300, 150).r, 0);
    // The widening follows the frame's size.
    EXPECT_EQ(mask.at(193, 150).r, 0);
    EXPECT_GT(Defringe::edges(scene, 4000).at(193, 150).r, 0.9f);
    // The widening is a disc: from a lone dot's Sobel ring, radius 2 reaches two pixels
    // straight across but not two pixels along both axes.
    const Image dot = make(40, 40, [](int x, int y) {
        const float v = x == 20 && y == 20 ? 1.0f : 0.0f;
        return Pixel{v, v, v, 1};
    });
    const Image ring = Defringe::edges(dot, 40);
    EXPECT_GT(ring.at(23, 21).r, 0.5f);
    EXPECT_EQ(ring.at(23, 23).r, 0);
    // A moderate edge counts in part.
    const Image moderate = make(100, 100, [](int x, int) {
        const float v = x < 50 ? 0.25f : 0.3f;
        return Pixel{v, v, v, 1};
    });
    const float part = Defringe::edges(moderate, 100).at(50, 50).r;
    EXPECT_GT(part, 0.2f);
    EXPECT_LT(part, 0.7f);
    // Faint texture is not an edge.
    const Image faint = make(100, 100, [](int x, int) {
        const float v = 0.5f + 0.01f * (x % 2);
        return Pixel{v, v, v, 1};
    });
    EXPECT_EQ(Defringe::edges(faint, 100).at(50, 50).r, 0);
}

TEST(Defringe, GreysFringesOnEdgesAndNothingElse) {
    const Image scene = fringeScene(true, true);
    const Image purpleOnly = Defringe::apply(scene, defringe(100, 0), 400);
    EXPECT_LT(meanChroma(purpleOnly, 197, 200), 0.15 * meanChroma(scene, 197, 200));
    EXPECT_NEAR(meanChroma(purpleOnly, 200, 203), meanChroma(scene, 200, 203), 1e-6);
    const Image both = Defringe::apply(scene, defringe(100, 100), 400);
    EXPECT_LT(meanChroma(both, 200, 203), 0.15 * meanChroma(scene, 200, 203));
    const Image half = Defringe::apply(scene, defringe(50, 0), 400);
    const double halfChroma = meanChroma(half, 197, 200) / meanChroma(scene, 197, 200);
    EXPECT_GT(halfChroma, 0.3);
    EXPECT_LT(halfChroma, 0.7);
    // Greying keeps the fringe's luminance.
    const Pixel in = scene.at(198, 150), out = both.at(198, 150);
    EXPECT_NEAR(img::luma(out.r, out.g, out.b), img::luma(in.r, in.g, in.b), 1e-5);
    // The inside of the purple square, away from any edge, is untouched.
    for (int y = 110; y < 170; y += 7)
        for (int x = 50; x < 110; x += 7)
            EXPECT_EQ(both.at(x, y), scene.at(x, y)) << x << "," << y;
}

TEST(Defringe, IsTheGreyVersionBlendedThroughHueTimesEdges) {
    // Fringes, flat colour, texture and partly transparent pixels: the one-pass defringe must
    // agree with its definition built from the separate operations.
    const Image scene = make(160, 120, [](int x, int y) {
        Pixel p = x < 80 ? kDark : kBright;
        if (x >= 76 && x < 80) p = kPurple;
        if (x >= 80 && x < 83) p = kGreen;
        if (y > 90) p = Pixel{0.1f + 0.005f * float(x % 13), 0.4f, 0.6f - 0.003f * float(y), 1};
        if (y > 60 && y <= 90) p = Pixel{0.3f + 0.01f * float(x % 7), 0.05f, 0.5f, 1};
        if (x < 20) p = Pixel{p.r * 0.5f, p.g * 0.5f, p.b * 0.5f, 0.5f};
        return p;
    });
    LensFix lens = defringe(70, 40);
    lens.greenLo = 60;
    const Image hue =
        Defringe::fringeHue(scene, Defringe::purpleBand(lens), Defringe::greenBand(lens));
    const Image edges = Defringe::edges(scene, 160);
    const Image mask = make(160, 120, [&](int x, int y) {
        const float m = hue.at(x, y).r * edges.at(x, y).r;
        return Pixel{m, m, m, 1};
    });
    const Image expected =
        img::blendWithMask(img::colorControls(scene, {.saturation = 0}), scene, mask);
    EXPECT_LT(img::testing::maxDifference(Defringe::apply(scene, lens, 160), expected), 1e-5);
}

TEST(Defringe, EstimateProposesAmountsForFringesOnly) {
    const Image scene = fringeScene(true, false);
    const Defringe::FringeEstimate found = Defringe::estimate(scene, {});
    EXPECT_GT(found.purple, 20);
    EXPECT_LE(found.purple, 100);
    EXPECT_EQ(found.green, 0);
    const Image fixed = Defringe::apply(scene, defringe(found.purple, found.green), 400);
    EXPECT_LT(meanChroma(fixed, 197, 200), 0.3 * meanChroma(scene, 197, 200));

    const Defringe::FringeEstimate greenFound = Defringe::estimate(fringeScene(false, true), {});
    EXPECT_EQ(greenFound.purple, 0);
    EXPECT_GT(greenFound.green, 20);
    // A purple object with edges of its own is not a fringe.
    const Defringe::FringeEstimate clean = Defringe::estimate(fringeScene(false, false), {});
    EXPECT_EQ(clean.purple, 0);
    EXPECT_EQ(clean.green, 0);
    // Thin purple lines barely darker than their surroundings make no edge the correction could
    // work on, so nothing is proposed for them.
    const Image faint = make(400, 300, [](int x, int) {
        return x % 40 < 3 ? Pixel{0.37f, 0.13f, 0.62f, 1} : Pixel{0.2f, 0.2f, 0.2f, 1};
    });
    EXPECT_EQ(Defringe::estimate(faint, {}).purple, 0);
    // The hue ranges of the record decide what counts: a range away from purple sees nothing.
    LensFix elsewhere;
    elsewhere.purpleLo = 20;
    elsewhere.purpleHi = 60;
    EXPECT_EQ(Defringe::estimate(scene, elsewhere).purple, 0);
}

TEST(Defringe, HostileValuesAndSizes) {
    const Image scene = fringeScene(true, true);
    LensFix lens = defringe(1e300, kInf);
    lens.purpleLo = -kInf;
    lens.purpleHi = 1e300;
    lens.greenLo = kNaN;
    lens.greenHi = -720;
    const Image out = Defringe::apply(scene, lens, std::numeric_limits<int>::max());
    ASSERT_EQ(out.width(), 400);
    EXPECT_TRUE(allFinite(out));
    EXPECT_TRUE(allFinite(Defringe::apply(scene, defringe(100, 100), -5)));
    const Image broken = make(20, 20, [](int x, int) {
        const float v = x == 10 ? NAN : (x > 10 ? INFINITY : 0.5f);
        return Pixel{v, 0.2f, v, 1};
    });
    EXPECT_EQ(Defringe::apply(broken, defringe(100, 100), 20).width(), 20);
    EXPECT_LE(Defringe::estimate(broken, {}).purple, 100);
    for (const auto& [w, h] : {std::pair{1, 1}, {1, 9}, {9, 1}}) {
        const Image tiny = img::testing::noise(w, h, 5);
        EXPECT_TRUE(allFinite(Defringe::apply(tiny, defringe(100, 100), w)));
        EXPECT_EQ(Defringe::estimate(tiny, {}).purple, 0);
    }
    img::testing::expectThreadIndependent([&](const img::Execution& exec) {
        return Defringe::apply(scene, defringe(80, 60), 400, exec);
    });
}

}  // namespace
}  // namespace ql
