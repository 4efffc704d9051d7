// The geometry stage: turns and mirror, keystone and rotation corners, the crop and its defaults,
// keeping a crop inside a turned outline, and hostile records.
#include "render/Geometry.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/imaging/ImageTesting.h"

namespace ql {
namespace {

using img::Image;
using img::Pixel;
using img::Point;
using img::testing::identical;
using img::testing::make;
using img::testing::noise;

constexpr Pixel kRed{1, 0, 0, 1}, kGreen{0, 1, 0, 1}, kBlue{0, 0, 1, 1}, kWhite{1, 1, 1, 1};

// Red top left, green top right, blue bottom right, white bottom left.
Image quadrants(int w, int h) {
    return make(w, h, [&](int x, int y) {
        const bool right = x >= w / 2, bottom = y >= h / 2;
        return bottom ? (right ? kBlue : kWhite) : (right ? kGreen : kRed);
    });
}

// The colours at the centres of the four quadrants, clockwise from the top left.
std::array<Pixel, 4> quadrantColours(const Image& im) {
    const int w = im.width(), h = im.height();
    return {im.at(w / 4, h / 4), im.at(3 * w / 4, h / 4), im.at(3 * w / 4, 3 * h / 4),
            im.at(w / 4, 3 * h / 4)};
}

Adjustments turned(int quarterTurns, bool flip) {
    Adjustments a;
    a.quarterTurns = quarterTurns;
    a.flipHorizontal = flip;
    return a;
}

void expectNear(Point p, double x, double y) {
    EXPECT_NEAR(p.x, x, 1e-9);
    EXPECT_NEAR(p.y, y, 1e-9);
}

bool allFinite(const Image& im) {
    for (size_t i = 0; i < im.pixelCount() * 4; ++i)
        if (!std::isfinite(im.data()[i])) return false;
    return true;
}

TEST(GeometryOrient, QuarterTurnsAndMirrorMoveTheQuadrants) {
    const Image in = quadrants(8, 4);
    struct Case {
        int turns;
        bool flip;
        std::array<Pixel, 4> want;
    };
    const Case cases[] = {
        {1, false, {kWhite, kRed, kGreen, kBlue}}, {2, false, {kBlue, kWhite, kRed, kGreen}},
        {3, false, {kGreen, kBlue, kWhite, kRed}}, {0, true, {kGreen, kRed, kWhite, kBlue}},
        {1, true, {kRed, kWhite, kBlue, kGreen}},  {3, true, {kBlue, kGreen, kRed, kWhite}},
    };
    for (const Case& c : cases) {
        const Image out = Geometry::apply(turned(c.turns, c.flip), in, true);
        EXPECT_EQ(out.width(), c.turns % 2 ? 4 : 8) << c.turns;
        EXPECT_EQ(quadrantColours(out), c.want) << c.turns << " " << c.flip;
        EXPECT_TRUE(identical(out, Geometry::orient(in, turned(c.turns, c.flip))));
    }
    // Every pixel, not only the quadrants: a clockwise turn reads column x from the bottom up.
    const Image n = noise(7, 5, 1);
    const Image cw = Geometry::apply(turned(1, false), n, false);
    for (int y = 0; y < cw.height(); ++y)
        for (int x = 0; x < cw.width(); ++x)
            ASSERT_EQ(cw.at(x, y), n.at(y, n.height() - 1 - x));
    EXPECT_TRUE(identical(Geometry::apply(turned(-3, false), n, false), cw));  // taken modulo 4
}

TEST(GeometryOrient, HalfTurnWithMirrorIsAVerticalFlip) {
    const Image n = noise(9, 6, 2);
    const Image out = Geometry::apply(turned(2, true), n, true);
    ASSERT_EQ(out.width(), 9);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 9; ++x)
            ASSERT_EQ(out.at(x, y), n.at(x, 5 - y));
}

TEST(GeometryCorners, KeystonesAndRotationByHand) {
    Adjustments a;
    a.perspectiveVertical = 50;  // the top widens by 0.1 × 200 on each side
    auto q = Geometry::corners(a, 200, 100);
    expectNear(q[0], -20, 0), expectNear(q[1], 220, 0), expectNear(q[2], 200, 100),
        expectNear(q[3], 0, 100);
    a.perspectiveVertical = -50;
    q = Geometry::corners(a, 200, 100);
    expectNear(q[0], 0, 0), expectNear(q[1], 200, 0), expectNear(q[2], 220, 100),
        expectNear(q[3], -20, 100);
    a = {};
    a.perspectiveHorizontal = 50;  // the right edge grows by 0.1 × 100 at both ends
    q = Geometry::corners(a, 200, 100);
    expectNear(q[1], 200, -10), expectNear(q[2], 200, 110), expectNear(q[0], 0, 0);
    a.perspectiveHorizontal = -50;
    q = Geometry::corners(a, 200, 100);
    expectNear(q[0], 0, -10), expectNear(q[3], 0, 110), expectNear(q[1], 200, 0);

    // 30° clockwise about (100, 50): the top left (-100, -50) from the centre goes to
    // (-100 cos 30 + 50 sin 30, -100 sin 30 - 50 cos 30).
    a = {};
    a.rotation = 30;
    q = Geometry::corners(a, 200, 100);
    expectNear(q[0], 100 - 86.602540378443864 + 25, 50 - 50 - 43.301270189221932);
    expectNear(q[2], 100 + 86.602540378443864 - 25, 50 + 50 + 43.301270189221932);
    a.rotation = 90;
    q = Geometry::corners(a, 200, 100);
    expectNear(q[0], 150, -50), expectNear(q[1], 150, 150), expectNear(q[3], 50, -50);

    // Keystone first, then the turn of the widened quad.
    a.perspectiveVertical = 50;
    q = Geometry::corners(a, 200, 100);
    expectNear(q[0], 150, -70), expectNear(q[1], 150, 170);
}

TEST(GeometryCrop, CroppingFalseKeepsTheTurnButNotTheCrop) {
    const Image n = noise(60, 40, 3);
    Adjustments a;
    a.crop = CropRect{0.25, 0.25, 0.5, 0.5};
    EXPECT_TRUE(Geometry::apply(a, n, false).sharesPixelsWith(n));
    const Image cut = Geometry::apply(a, n, true);
    EXPECT_EQ(cut.width(), 30);
    EXPECT_EQ(cut.height(), 20);
    EXPECT_EQ(cut.at(0, 0), n.at(15, 10));

    a.rotation = 10;
    Adjustments uncut = a;
    uncut.crop.reset();
    const Image turnedOnly = Geometry::apply(a, n, false);
    EXPECT_TRUE(identical(turnedOnly, Geometry::apply(uncut, n, false)));
    EXPECT_GT(turnedOnly.width(), 60);  // the bounding box of the turned picture
    EXPECT_LT(Geometry::apply(a, n, true).width(), turnedOnly.width() / 2 + 2);
}

TEST(GeometryCrop, FractionsLandOnWholePixels) {
    // 0.29 × 100 is 28.999… in doubles; the cut must still start at pixel 29.
    const Image n = noise(100, 100, 11);
    Adjustments a;
    a.crop = CropRect{0.29, 0.57, 0.42, 0.14};
    const Image cut = Geometry::apply(a, n, true);
    EXPECT_EQ(cut.width(), 42);
    EXPECT_EQ(cut.height(), 14);
    EXPECT_EQ(cut.at(0, 0), n.at(29, 57));
    a.quarterTurns = 3;  // cut in the turned frame
    const Image turnedCut = Geometry::apply(a, n, true);
    EXPECT_EQ(turnedCut.at(0, 0), Geometry::orient(n, a).at(29, 57));
    EXPECT_EQ(turnedCut.at(41, 13), Geometry::orient(n, a).at(70, 70));
}

TEST(GeometryCrop, EmptyOrMissingCropsFallBack) {
    const Image n = noise(50, 30, 4);
    Adjustments a;
    for (const CropRect bad :
         {CropRect{0.2, 0.2, 0.5, 0}, CropRect{0.2, 0.2, -1, 0.5}, CropRect{NAN, 0, 1, 1},
          CropRect{3, 3, 0.5, 0.5}, CropRect{0.5, 0.5, 1e-6, 1e-6}}) {
        a.crop = bad;
        const Image out = Geometry::apply(a, n, true);
        ASSERT_FALSE(out.empty()) << bad.x << " " << bad.w << " " << bad.h;
        if (bad.w > 1e-6) {
            EXPECT_TRUE(identical(out, n)) << bad.x << " " << bad.w;
        }
    }
    // A crop thinner than a pixel still keeps one.
    EXPECT_EQ(Geometry::apply(a, n, true).width(), 1);
    // The crop tool's view of a too-thin crop is the whole box.
    EXPECT_EQ(Geometry::fit({0.2, 0.2, 0.5, 0}, Geometry::layout({}, 50, 30).quad), CropRect{});
}

TEST(GeometryCrop, DefaultCropForEachAspect) {
    Adjustments a;
    a.cropAspect = CropAspect::free;
    const GeometryLayout l = Geometry::layout(a, 300, 200);
    EXPECT_DOUBLE_EQ(l.photoAspect, 1.5);
    EXPECT_DOUBLE_EQ(l.boxAspect, 1.5);
    EXPECT_EQ(Geometry::defaultCrop(a, l), CropRect{});
    a.cropAspect = CropAspect::original;
    EXPECT_EQ(Geometry::defaultCrop(a, l), CropRect{});
    a.cropAspect = CropAspect::square;  // narrower than the box: full height, centred
    CropRect c = Geometry::defaultCrop(a, l);
    EXPECT_NEAR(c.x, 1.0 / 6, 1e-12);
    EXPECT_NEAR(c.w, 2.0 / 3, 1e-12);
    EXPECT_EQ(c.h, 1);
    a.cropAspect = CropAspect::r16x9;  // wider: full width, centred
    c = Geometry::defaultCrop(a, l);
    EXPECT_EQ(c.w, 1);
    EXPECT_NEAR(c.h, 1.5 * 9 / 16, 1e-12);
    EXPECT_NEAR(c.y, (1 - c.h) / 2, 1e-12);
    a.cropAspect = CropAspect::square;
    EXPECT_EQ(Geometry::apply(a, noise(300, 200, 5), true).width(), 200);

    // Turned, the box is larger than the photo; `original` keeps the photo's proportions and a
    // quarter turn swaps them.
    a.cropAspect = CropAspect::original;
    a.rotation = 12;
    const GeometryLayout t = Geometry::layout(a, 300, 200);
    EXPECT_GT(t.boxAspect, 1.0);
    EXPECT_LT(t.boxAspect, 1.5);
    EXPECT_NEAR(t.crop.w * t.boxAspect / t.crop.h, 1.5, 1e-12);
    a.quarterTurns = 1;
    EXPECT_NEAR(Geometry::layout(a, 300, 200).photoAspect, 2.0 / 3, 1e-12);
    a.crop = CropRect{0.1, 0.1, 0.3, 0.3};
    EXPECT_EQ(Geometry::layout(a, 300, 200).crop, *a.crop);
}

TEST(GeometryFit, KeepsTheCropInsideTheTurnedOutline) {
    Adjustments a;
    a.rotation = 10;
    const auto quad = Geometry::layout(a, 300, 200).quad;
    for (const Point p : quad)  // the outline touches every side of its box
        EXPECT_TRUE(p.x < 1e-9 || p.x > 1 - 1e-9 || p.y < 1e-9 || p.y > 1 - 1e-9);
    EXPECT_FALSE(Geometry::inside(quad, {}));
    EXPECT_TRUE(Geometry::contains(quad, {0.5, 0.5}));
    EXPECT_FALSE(Geometry::contains(quad, {0.01, 0.01}));

    for (const CropRect start : {CropRect{}, CropRect{0.55, 0.1, 0.45, 0.5}}) {
        const CropRect r = Geometry::fit(start, quad);
        EXPECT_TRUE(Geometry::inside(quad, r)) << start.x;
        EXPECT_NEAR(r.w / r.h, start.w / start.h, 1e-9);          // same proportions
        EXPECT_NEAR(r.x + r.w / 2, start.x + start.w / 2, 1e-9);  // same centre
        EXPECT_GT(r.w, 0.3 * start.w);  // the largest that fits, not any that fits
        const CropRect grown = {r.x - 0.005, r.y - 0.005, r.w + 0.01, r.h + 0.01};
        EXPECT_FALSE(Geometry::inside(quad, grown));
    }
    const CropRect small{0.4, 0.4, 0.2, 0.2};
    EXPECT_EQ(Geometry::fit(small, quad), small);
    // A corner crop whose centre is outside moves to the middle, at its size.
    const CropRect moved = Geometry::fit({0, 0, 0.1, 0.1}, quad);
    EXPECT_NEAR(moved.x, 0.45, 1e-9);
    EXPECT_NEAR(moved.y, 0.45, 1e-9);
    EXPECT_NEAR(moved.w, 0.1, 1e-9);

    // Out of the unit square: clipped first. A quad holding neither centre: the clipped crop.
    const auto unit = Geometry::layout({}, 300, 200).quad;
    const CropRect clipped = Geometry::fit({-0.2, 0.5, 0.5, 0.8}, unit);
    EXPECT_EQ(clipped.x, 0);
    EXPECT_NEAR(clipped.w, 0.3, 1e-12);
    EXPECT_NEAR(clipped.h, 0.5, 1e-12);
    const std::array<Point, 4> corner{Point{0, 0}, {0.1, 0}, {0.1, 0.1}, {0, 0.1}};
    EXPECT_EQ(Geometry::fit({0.6, 0.6, 0.3, 0.3}, corner), (CropRect{0.6, 0.6, 0.3, 0.3}));
    // Either winding.
    const std::array<Point, 4> reversed{corner[3], corner[2], corner[1], corner[0]};
    EXPECT_TRUE(Geometry::contains(reversed, {0.05, 0.05}));
    EXPECT_FALSE(Geometry::contains(reversed, {0.15, 0.05}));
}

TEST(GeometryApply, IdentityIsFree) {
    const Image n = noise(40, 30, 6);
    Adjustments a;
    EXPECT_TRUE(Geometry::apply(a, n, true).sharesPixelsWith(n));
    EXPECT_TRUE(Geometry::apply(a, n, false).sharesPixelsWith(n));
    a.cropAspect = CropAspect::square;  // matters only when cropping
    EXPECT_TRUE(Geometry::apply(a, n, false).sharesPixelsWith(n));
    EXPECT_EQ(Geometry::apply(a, n, true).width(), 30);
    EXPECT_TRUE(Geometry::apply(a, Image{}, true).empty());
}

TEST(GeometryApply, TurnedPictureFillsTheCornersBoundingBox) {
    // A bright dot above the centre; the picture's centre stays put.
    const Image in = make(201, 101, [](int x, int y) {
        const bool dot = std::abs(x - 100) <= 1 && std::abs(y - 15) <= 1;
        return dot ? Pixel{1, 1, 1, 1} : Pixel{0.2f, 0.2f, 0.2f, 1};
    });
    Adjustments a;
    a.rotation = 20;
    a.perspectiveHorizontal = 15;
    const auto q = Geometry::corners(a, 201, 101);
    double x0 = 1e9, x1 = -1e9, y0 = 1e9, y1 = -1e9;
    for (const Point p : q)
        x0 = std::min(x0, p.x), x1 = std::max(x1, p.x), y0 = std::min(y0, p.y),
        y1 = std::max(y1, p.y);
    const Image out = Geometry::apply(a, in, false);
    EXPECT_EQ(out.width(), int(std::ceil(x1) - std::floor(x0)));
    EXPECT_EQ(out.height(), int(std::ceil(y1) - std::floor(y0)));
    EXPECT_TRUE(allFinite(out));
    // Clamped edges: an opaque picture stays opaque, even outside its outline, with no dark rim.
    for (int y = 0; y < out.height(); ++y)
        for (int x = 0; x < out.width(); ++x)
            ASSERT_NEAR(out.at(x, y).a, 1, 1e-6) << x << "," << y;

    // Clockwise: the dot moves right of the centre line; without keystone it stays 35 px away.
    a.perspectiveHorizontal = 0;
    const Image turned = Geometry::apply(a, in, false);
    int bx = 0, by = 0;
    for (int y = 0; y < turned.height(); ++y)
        for (int x = 0; x < turned.width(); ++x)
            if (turned.at(x, y).r > turned.at(bx, by).r) bx = x, by = y;
    const double cx = turned.width() / 2.0, cy = turned.height() / 2.0;
    EXPECT_NEAR(bx + 0.5 - cx, 35 * std::sin(20 * M_PI / 180), 2);
    EXPECT_NEAR(by + 0.5 - cy, -35 * std::cos(20 * M_PI / 180), 2);
}

TEST(GeometryApply, QuarterTurnsBeforeTheWarp) {
    // The turn is folded into the one resampling; it must equal turning first.
    const Image n = noise(30, 20, 12);
    for (int turns : {1, 2, 3}) {
        Adjustments a;
        a.quarterTurns = turns;
        a.rotation = 7, a.perspectiveVertical = -25, a.perspectiveHorizontal = 10;
        const Image once = Geometry::apply(a, n, false);
        const Image upright = Geometry::orient(n, a);
        a.quarterTurns = 0;
        const Image twice = Geometry::apply(a, upright, false);
        EXPECT_LT(img::testing::maxDifference(once, twice), 1e-4) << turns;
    }
}

TEST(GeometryApply, ProxyAndFullSizeCutTheSameFrame) {
    Adjustments a;
    a.rotation = -4.3;
    a.perspectiveVertical = 17;
    a.crop = CropRect{0.13, 0.07, 0.71, 0.8};
    const Image full = Geometry::apply(a, Image(1200, 800), true);
    const Image proxy = Geometry::apply(a, Image(600, 400), true);
    EXPECT_NEAR(full.width(), 2.0 * proxy.width(), 2);
    EXPECT_NEAR(full.height(), 2.0 * proxy.height(), 2);
    EXPECT_NEAR(double(full.width()) / full.height(), double(proxy.width()) / proxy.height(), 0.01);
}

TEST(GeometryApply, MasksFollowThePicture) {
    // A mask is one channel spread over RGBA; its red must come out as the picture's red.
    const Image picture = noise(64, 48, 7);
    const Image mask = make(64, 48, [&](int x, int y) {
        const float v = picture.at(x, y).r;
        return Pixel{v, v, v, 1};
    });
    Adjustments a;
    a.rotation = -6, a.perspectiveVertical = 30, a.quarterTurns = 3, a.flipHorizontal = true;
    a.crop = CropRect{0.1, 0.2, 0.7, 0.6};
    for (bool cropping : {true, false}) {
        const Image p = Geometry::apply(a, picture, cropping),
                    m = Geometry::apply(a, mask, cropping);
        ASSERT_EQ(p.width(), m.width());
        ASSERT_EQ(p.height(), m.height());
        for (int y = 0; y < p.height(); ++y)
            for (int x = 0; x < p.width(); ++x)
                ASSERT_EQ(p.at(x, y).r, m.at(x, y).g);
    }
    a.flipHorizontal = false;  // the turns ride along in the resampling
    EXPECT_TRUE(img::testing::sameForAnyThreads(
        [&](const img::Execution& e) { return Geometry::apply(a, picture, true, e); }));
    const std::atomic<bool> cancel{true};
    EXPECT_TRUE(Geometry::apply(a, picture, true, {1, &cancel}).empty());
}

TEST(GeometryApply, HostileRecordsGiveAPicture) {
    const Image pictures[] = {noise(40, 30, 8), noise(1, 1, 9), noise(1, 37, 10)};
    for (const Image& in : pictures)
        for (double v : {-100.0, 100.0, 1e6, double(NAN)})
            for (double hz : {-100.0, 100.0, -double(INFINITY)})
                for (int turns : {1, 2, 7}) {
                    Adjustments a;
                    a.perspectiveVertical = v, a.perspectiveHorizontal = hz;
                    a.rotation = 45, a.quarterTurns = turns;
                    a.flipHorizontal = turns == 2;
                    a.cropAspect = CropAspect::r9x16;
                    for (bool cropping : {true, false}) {
                        const Image out = Geometry::apply(a, in, cropping);
                        ASSERT_FALSE(out.empty()) << v << " " << hz << " " << in.width();
                        ASSERT_LE(out.width() + out.height(), 2 * (in.width() + in.height()) + 4);
                        ASSERT_TRUE(allFinite(out)) << v << " " << hz;
                    }
                }
    Adjustments a;
    a.rotation = NAN;
    const GeometryLayout l = Geometry::layout(a, 0, NAN);
    EXPECT_EQ(l.crop, CropRect{});
    for (const Point p : Geometry::corners(a, 10, 10))
        EXPECT_TRUE(std::isfinite(p.x) && std::isfinite(p.y));
}

}  // namespace
}  // namespace ql
