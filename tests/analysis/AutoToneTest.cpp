// The first correction: the auto tone rules, the neutral white and the Auto command's edit.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/AutoResult.h"
#include "analysis/AutoTone.h"

namespace ql {
namespace {

ImageStats midScene() {
    ImageStats s;
    s.p05 = 0.04, s.p10 = 0.1, s.p50 = 0.45, s.p90 = 0.8, s.p99 = 0.9;
    s.meanSaturation = 0.3;
    return s;
}

FaceInfo face(double luma, double width = 0.1) {
    return {{0.4, 0.3, width, width * 1.3}, luma, 20, 0.3};
}

TEST(AutoTone, ADarkSceneIsLiftedUntilTheGuardSaysNo) {
    ImageStats dark = midScene();
    dark.p99 = 0.3, dark.p50 = 0.1, dark.p05 = 0.01, dark.p10 = 0.02, dark.p90 = 0.25;
    EXPECT_DOUBLE_EQ(AutoTone::suggest(dark, {}).exposure, 0.6);  // the whole cap

    // Half the sample at 0.7 linear: a lift past log2(0.985 / 0.7) ≈ 0.49 EV would clip it.
    std::vector<float> maxLinear(100, 0.05f);
    std::fill(maxLinear.begin() + 50, maxLinear.end(), 0.7f);
    const AutoTone guarded = AutoTone::suggest(dark, maxLinear);
    EXPECT_DOUBLE_EQ(guarded.exposure, 0.5);  // the bisection's 0.4928, in 0.05 steps

    // Bright highlights but a dark middle: a quarter stop.
    ImageStats contrasty = midScene();
    contrasty.p99 = 0.9, contrasty.p50 = 0.15;
    EXPECT_DOUBLE_EQ(AutoTone::suggest(contrasty, {}).exposure, 0.25);
}

TEST(AutoTone, WhiteFrameDarkensAndRecoversHighlights) {
    ImageStats white;
    white.p05 = white.p10 = white.p50 = white.p90 = white.p99 = 1;
    white.clippedHighlights = 1;
    const AutoTone t = AutoTone::suggest(white, std::vector<float>(10, 1.0f));
    EXPECT_DOUBLE_EQ(t.exposure, -0.2);
    EXPECT_DOUBLE_EQ(t.highlights, -40);
    EXPECT_EQ(t.peopleExposure, 0);
}

TEST(AutoTone, BacklitPersonIsLiftedThroughTheMask) {
    ImageStats s = midScene();
    s.faces = {face(0.2), face(0.2), face(0.9, 0.01)};  // the small bright face doesn't count
    s.peopleCoverage = 0.1;
    const AutoTone t = AutoTone::suggest(s, {});
    // ev = min(0.6 log2(0.196 / decoded 0.2), 0.5) = 0.5: the people get 0.6, the frame 0.175.
    EXPECT_DOUBLE_EQ(t.peopleExposure, 0.6);
    EXPECT_DOUBLE_EQ(t.exposure, 0.2);
    EXPECT_DOUBLE_EQ(t.highlights, -10);

    s.peopleCoverage = 0.01;  // no mask worth the name: the frame takes it all
    const AutoTone frame = AutoTone::suggest(s, {});
    EXPECT_EQ(frame.peopleExposure, 0);
    EXPECT_DOUBLE_EQ(frame.exposure, 0.5);

    s.faces = {face(0.5)};  // a well-lit face: nothing to do
    EXPECT_EQ(AutoTone::suggest(s, {}).exposure, 0);
}

TEST(AutoTone, ToneRulesAndRounding) {
    ImageStats flatScene = midScene();
    flatScene.p05 = 0.2, flatScene.p10 = 0.3, flatScene.p90 = 0.6, flatScene.p99 = 0.85;
    flatScene.meanSaturation = 0.1, flatScene.p50 = 0.45;
    const AutoTone t = AutoTone::suggest(flatScene, {});
    EXPECT_EQ(t.exposure, 0);
    EXPECT_EQ(t.contrast, 12);  // (0.5 - 0.3) × 60, capped
    EXPECT_EQ(t.vibrance, 10);
    EXPECT_EQ(t.dehaze, 8);
    EXPECT_EQ(t.blacks, -15);  // lifted blacks are deepened
    EXPECT_EQ(t.shadows, 0);

    ImageStats crushed = midScene();
    crushed.p10 = 0.03, crushed.clippedShadows = 0.025, crushed.p99 = 0.85;
    const AutoTone c = AutoTone::suggest(crushed, {});
    EXPECT_EQ(c.shadows, 25);  // (0.12 - 0.03) × 300 = 27, capped
    EXPECT_EQ(c.blacks, 10);   // 400 × 0.025
    EXPECT_EQ(c.highlights, 0);

    ImageStats clipped = midScene();
    clipped.clippedHighlights = 0.02, clipped.p99 = 0.99;
    EXPECT_EQ(AutoTone::suggest(clipped, {}).highlights, -26);  // 800 × 0.02 + 10
}

TEST(WhiteBalanceNeutralize, LogRatiosInSliderUnits) {
    auto [t0, n0] = WhiteBalance::neutralize(1, 1, 1);
    EXPECT_EQ(t0, 0);
    EXPECT_EQ(n0, 0);
    auto [t, n] = WhiteBalance::neutralize(1, 1, std::exp(0.5));
    EXPECT_NEAR(t, 50, 1e-9);  // a blue neutral asks for warmth
    EXPECT_NEAR(n, -0.5 / 0.016, 1e-9);
    auto [hot, tintClamp] = WhiteBalance::neutralize(0, 1, 1);  // floored, then clamped
    EXPECT_EQ(hot, 100);
    EXPECT_EQ(tintClamp, 100);
    auto [nanT, nanN] = WhiteBalance::neutralize(NAN, 1, 1);
    EXPECT_FALSE(std::isnan(nanT) || std::isnan(nanN));
}

PhotoAnalysis analysisWith(double neutralTemperature, double neutralTint) {
    PhotoAnalysis a;
    a.neutralTemperature = neutralTemperature;
    a.neutralTint = neutralTint;
    a.autoTone.exposure = 0.35;
    a.autoTone.vibrance = 10;
    a.autoTone.peopleExposure = 0.4;
    return a;
}

TEST(AutoResult, SmallCastsStayAndLargeOnesAreHalved) {
    const PhotoFacts jpeg;
    Adjustments current;
    current.exposure = 2;  // a tone value is not carried over
    current.rotation = 3;
    current.crop = CropRect{0.1, 0.1, 0.5, 0.5};
    current.sharpening = 20;
    const Adjustments a = autoResult(current, analysisWith(40, 12), jpeg);
    EXPECT_EQ(a.temperature, 0);
    EXPECT_EQ(a.tint, 0);
    EXPECT_DOUBLE_EQ(a.exposure, 0.35);
    EXPECT_DOUBLE_EQ(a.people.exposure, 0.4);
    EXPECT_EQ(a.rotation, 3);
    EXPECT_EQ(a.crop, current.crop);
    EXPECT_EQ(a.sharpening, 20);
    EXPECT_EQ(a.style, PhotoStyle::natural);
    EXPECT_EQ(a.styleStrength, 100);
    EXPECT_EQ(a.vibrance, 15);  // natural adds 5

    const Adjustments cold = autoResult({}, analysisWith(90, -20), jpeg);
    EXPECT_EQ(cold.temperature, 25);  // (90 - 40) / 2
    EXPECT_EQ(cold.tint, -8);
}

TEST(AutoResult, RawCorrectsInMiredAndKeepsAsShotWithinTolerance) {
    PhotoFacts raw;
    raw.isRAW = true;
    raw.asShotTemperature = 5000;  // 200 mired
    raw.asShotTint = 5;
    // Neutral at 5800 K: 172.4 mired, an error of 27.6, inside the tolerance.
    EXPECT_FALSE(autoResult({}, analysisWith(5800, 5), raw).rawTemperature);
    // Neutral at 3000 K (333.3 mired): error -133.3, correction -46.7 mired → 246.7 → 4050 K.
    const Adjustments warm = autoResult({}, analysisWith(3000, 25), raw);
    ASSERT_TRUE(warm.rawTemperature);
    EXPECT_EQ(*warm.rawTemperature, 4050);
    ASSERT_TRUE(warm.rawTint);
    EXPECT_EQ(*warm.rawTint, 13);  // 0.4 × 20 + 5
    // A camera look's own measure replaces the mired difference.
    PhotoAnalysis looked = analysisWith(3000, 5);
    looked.lookWarmth = 30;
    EXPECT_FALSE(autoResult({}, looked, raw).rawTemperature);
}

TEST(AutoResult, StylesApplyAndMonoKeepsItsColourless) {
    Adjustments vivid;
    vivid.style = PhotoStyle::vivid;
    vivid.styleStrength = 200;  // clamped to 1.5
    PhotoAnalysis a = analysisWith(0, 0);
    a.autoTone.vibrance = 30;
    const Adjustments v = autoResult(vivid, a, PhotoFacts{});
    EXPECT_EQ(v.styleStrength, 150);
    EXPECT_EQ(v.vibrance, 40);  // 30 + 30, capped
    Adjustments mono;
    mono.style = PhotoStyle::mono;
    const Adjustments m = autoResult(mono, a, PhotoFacts{});
    EXPECT_EQ(m.vibrance, 0);
    EXPECT_EQ(m.saturation, -100);
}

TEST(AddWarmth, ShiftsMiredOnRawAndSlidersOtherwise) {
    PhotoFacts raw;
    raw.isRAW = true;
    raw.asShotTemperature = 5000;
    Adjustments a;
    addWarmth(a, raw, 20);  // 200 - 20 = 180 mired = 5556 K → 5550
    EXPECT_EQ(a.rawTemperature, 5550);
    addWarmth(a, raw, 0);
    EXPECT_EQ(a.rawTemperature, 5550);
    Adjustments cold;
    addWarmth(cold, raw, -1000);  // past 500 mired the kelvin stops at 2000
    EXPECT_EQ(cold.rawTemperature, 2000);
    Adjustments hot;
    addWarmth(hot, raw, 190);  // at or below 83.3 mired: the cold end of the scale
    EXPECT_EQ(hot.rawTemperature, 12000);

    Adjustments plain;
    plain.temperature = 95;
    addWarmth(plain, PhotoFacts{}, 14);
    EXPECT_EQ(plain.temperature, 100);
}

}  // namespace
}  // namespace ql
