#include "imaging/raw/LensCorrection.h"

#include <algorithm>
#include <cmath>

#include "tests/imaging/ImageTesting.h"

namespace ql::img {
namespace {

using namespace testing;

// A kit zoom whose calibration has distortion, lateral chromatic aberration and vignetting at
// 18 mm, on the APS-C body it came with.
LensShot kitShot() {
    LensShot s;
    s.cameraMake = "Canon";
    s.cameraModel = "Canon EOS 550D";
    s.lensModel = "Canon EF-S 18-55mm f/3.5-5.6 IS";
    s.focalLength = 18;
    s.aperture = 3.5;
    return s;
}

const LensProfile& kitProfile() {
    static const std::optional<LensProfile> profile = LensProfile::find(kitShot());
    if (!profile) ADD_FAILURE() << "the lens database lacks the kit lens";
    return *profile;
}

LensCorrectionParams only(bool distortion, bool chromatic, bool vignetting) {
    LensCorrectionParams p;
    p.profile = &kitProfile();
    p.shot = kitShot();
    p.distortion = distortion;
    p.chromatic = chromatic;
    p.vignetting = vignetting;
    return p;
}

// Each pixel holds where it lies, relative to the frame: red and blue x, green y. After the
// geometry correction a pixel tells where it was read from.
Image positions(int w, int h) {
    return make(w, h, [&](int x, int y) {
        const float rx = (x + 0.5f) / float(w), ry = (y + 0.5f) / float(h);
        return Pixel{rx, ry, rx, 1};
    });
}

TEST(LensProfile, FindsKnownPairingsOnly) {
    const std::optional<LensProfile> kit = LensProfile::find(kitShot());
    ASSERT_TRUE(kit);
    // Not the IS II or IS STM, whose names hold every word of this one.
    EXPECT_EQ(kit->lensName(), "Canon EF-S 18-55mm f/3.5-5.6 IS");
    EXPECT_EQ(kit->cameraName(), "Canon EOS 550D");
    EXPECT_TRUE(kit->hasDistortion() && kit->hasChromatic() && kit->hasVignetting());

    LensShot unknownLens = kitShot();
    unknownLens.lensModel = "Quillarium Wonder 17mm f/0.7";
    EXPECT_FALSE(LensProfile::find(unknownLens));
    LensShot unknownCamera = kitShot();
    unknownCamera.cameraMake = "Quillarium";
    unknownCamera.cameraModel = "Q-1 Prototype";
    EXPECT_FALSE(LensProfile::find(unknownCamera));
    LensShot noLens = kitShot();
    noLens.lensModel.clear();
    EXPECT_FALSE(LensProfile::find(noLens));
}

TEST(LensCorrection, NothingToDoReturnsTheInput) {
    const Image in = noise(40, 30, 1);
    LensCorrectionParams p = only(true, true, true);
    p.profile = nullptr;
    EXPECT_TRUE(lensCorrection(in, p).sharesPixelsWith(in));
    EXPECT_TRUE(lensCorrection(in, only(false, false, false)).sharesPixelsWith(in));

    LensCorrectionParams unknownFocal = only(true, true, true);
    unknownFocal.shot.focalLength = 0;  // a zoom: no way to pick the calibration
    EXPECT_TRUE(lensCorrection(in, unknownFocal).sharesPixelsWith(in));
    LensCorrectionParams unknownAperture = only(false, false, true);
    unknownAperture.shot.aperture = NAN;
    EXPECT_TRUE(lensCorrection(in, unknownAperture).sharesPixelsWith(in));

    const Image line = noise(1, 30, 2);
    EXPECT_TRUE(lensCorrection(line, only(true, true, true)).sharesPixelsWith(line));
}

// The largest distance, in pixels, between where red and blue were read from, away from the
// border (where clamping makes them meet).
float channelSpread(const Image& out) {
    float spread = 0;
    for (int y = 4; y < out.height() - 4; ++y)
        for (int x = 4; x < out.width() - 4; ++x)
            spread = std::max(spread, std::abs(out.at(x, y).r - out.at(x, y).b) * out.width());
    return spread;
}

TEST(LensCorrection, DistortionMovesTheEdgesNotTheCentre) {
    const int w = 300, h = 200;
    const Image out = lensCorrection(positions(w, h), only(true, false, false));
    ASSERT_EQ(out.width(), w);
    ASSERT_EQ(out.height(), h);
    const auto sourceX = [&](int x, int y) { return out.at(x, y).r * w - 0.5f; };
    const auto sourceY = [&](int x, int y) { return out.at(x, y).g * h - 0.5f; };

    EXPECT_NEAR(sourceX(w / 2, h / 2), w / 2, 0.05);
    EXPECT_NEAR(sourceY(w / 2, h / 2), h / 2, 0.05);
    // Barrel distortion at the short end: the corrected sides and corners are read from inside
    // the frame, alike on either side; the top and bottom centres stay.
    const float left = sourceX(0, h / 2), right = w - 1 - sourceX(w - 1, h / 2);
    EXPECT_GT(left, 1.5);
    EXPECT_NEAR(left, right, 0.02);
    EXPECT_NEAR(sourceY(w / 2, 0), 0, 0.05);
    EXPECT_GT(sourceX(0, 0), left);
    EXPECT_GT(sourceY(0, 0), 1.5);
    EXPECT_NEAR(sourceY(0, 0), h - 1 - sourceY(w - 1, h - 1), 0.02);
    EXPECT_EQ(out.at(0, 0).a, 1);
    // Distortion alone moves every channel alike, and smoothly: no jitter between neighbours.
    EXPECT_LT(channelSpread(out), 1e-3);
    for (int x = 1; x < w - 1; ++x) {
        const float before = sourceX(x, h / 3) - sourceX(x - 1, h / 3);
        const float after = sourceX(x + 1, h / 3) - sourceX(x, h / 3);
        ASSERT_NEAR(before, after, 0.01) << x;
    }
}

TEST(LensCorrection, ChromaticCorrectionSeparatesTheChannels) {
    const int w = 600, h = 400;
    const Image out = lensCorrection(positions(w, h), only(false, true, false));
    const float spread = channelSpread(out);
    EXPECT_GT(spread, 0.1);
    EXPECT_LT(spread, 1);
    const Pixel centre = out.at(w / 2, h / 2);
    EXPECT_NEAR(centre.r * w, centre.b * w, 0.01);
    EXPECT_NEAR(centre.r * w, w / 2 + 0.5, 0.01);
}

TEST(LensCorrection, VignettingLiftsTheCornersOnly) {
    const Image flat = Image::filled(300, 200, {-0.25f, 0.5f, 1.5f, 1});
    const Image out = lensCorrection(flat, only(false, false, true));
    const Pixel centre = out.at(150, 100), top = out.at(150, 0), side = out.at(0, 100),
                corner = out.at(299, 199);
    EXPECT_NEAR(centre.g, 0.5, 0.005);
    EXPECT_GT(top.g, centre.g);
    EXPECT_GT(side.g, top.g);
    EXPECT_GT(corner.g, side.g);
    EXPECT_GT(corner.g, 0.9);  // wide open at 18 mm the corners lose over a stop
    // One gain for every colour, out-of-gamut values included; alpha untouched.
    EXPECT_NEAR(corner.r / -0.25f, corner.g / 0.5f, 1e-4);
    EXPECT_NEAR(corner.b / 1.5f, corner.g / 0.5f, 1e-4);
    EXPECT_EQ(corner.a, 1);
}

TEST(LensCorrection, FocalLengthIsClampedToTheZoomRange) {
    const Image in = noise(60, 40, 3);
    LensCorrectionParams beyond = only(true, true, true), longEnd = beyond;
    beyond.shot.focalLength = 400;
    longEnd.shot.focalLength = 55;
    EXPECT_TRUE(identical(lensCorrection(in, beyond), lensCorrection(in, longEnd)));
}

TEST(LensCorrection, ProxyGetsTheSameCorrection) {
    const int w = 600, h = 400;
    const LensCorrectionParams p = only(true, true, true);
    const Image full = lensCorrection(positions(w, h), p);
    const Image proxy = lensCorrection(positions(w / 2, h / 2), p);
    ASSERT_FALSE(full.empty());
    ASSERT_FALSE(proxy.empty());
    // Box-halving keeps the relative positions the pixels encode.
    const Image halved = make(w / 2, h / 2, [&](int x, int y) {
        Pixel sum;
        for (int k = 0; k < 4; ++k) {
            const Pixel q = full.at(2 * x + (k & 1), 2 * y + (k >> 1));
            sum = {sum.r + q.r / 4, sum.g + q.g / 4, sum.b + q.b / 4, sum.a + q.a / 4};
        }
        return sum;
    });
    EXPECT_LT(maxDifference(halved, proxy), 0.002);                  // vignetting gain included
    EXPECT_GT(maxDifference(proxy, positions(w / 2, h / 2)), 0.01);  // it did correct
}

TEST(LensCorrection, ThreadIndependentAndCancellable) {
    const Image in = noise(97, 64, 4);
    expectThreadIndependent(
        [&](const Execution& e) { return lensCorrection(in, only(true, true, true), e); });
    expectThreadIndependent(
        [&](const Execution& e) { return lensCorrection(in, only(false, false, true), e); });
}

}  // namespace
}  // namespace ql::img
