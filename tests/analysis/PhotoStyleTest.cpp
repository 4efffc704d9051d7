#include "analysis/PhotoStyleApply.h"

#include <gtest/gtest.h>

#include <vector>

namespace ql {
namespace {

using Values = std::vector<double>;
constexpr size_t kOrange = 1, kGreen = 3, kBlue = 5;

// Applies a look and records every amount handed to the warmth callback.
struct Applied {
    Adjustments a;
    Values warmth;
};
Applied apply(PhotoStyle style, double strength, Adjustments start = {}) {
    Applied r{std::move(start), {}};
    applyStyle(r.a, style, strength, [&r](Adjustments& a, double amount) {
        r.warmth.push_back(amount);
        a.temperature += amount;
    });
    return r;
}

// exposure, contrast, highlights, shadows, whites, blacks, clarity, vibrance, saturation,
// vignette, grain
Values sliders(const Adjustments& a) {
    return {a.exposure, a.contrast, a.highlights, a.shadows,  a.whites, a.blacks,
            a.clarity,  a.vibrance, a.saturation, a.vignette, a.grain};
}

TEST(PhotoStyleTest, NumbersScaleWithStrength) {
    // Halves round away from zero; exposure goes to the nearest 0.05.
    EXPECT_EQ(sliders(apply(PhotoStyle::bright, 1).a),
              (Values{0.25, -4, -15, 22, 10, 6, -3, 10, 0, 0, 0}));
    EXPECT_EQ(sliders(apply(PhotoStyle::bright, 0.5).a),
              (Values{0.15, -2, -8, 11, 5, 3, -2, 5, 0, 0, 0}));
    EXPECT_EQ(sliders(apply(PhotoStyle::solemn, 1).a),
              (Values{0, 12, -18, 0, 0, -10, 8, 0, -12, -18, 0}));
    EXPECT_EQ(sliders(apply(PhotoStyle::pastel, 0.5).a),
              (Values{0.1, -9, -6, 9, 0, 0, -4, 3, -7, 0, 0}));
    EXPECT_EQ(sliders(apply(PhotoStyle::film, 1).a), (Values{0, -6, 0, 0, 0, 0, 0, 0, -16, 0, 22}));

    const auto [bright, brightWarmth] = apply(PhotoStyle::bright, 0.5);
    EXPECT_EQ(bright.mixSaturation[kOrange], -3);
    EXPECT_EQ(bright.mixLuminance[kOrange], 4);
    EXPECT_EQ(bright.mixSaturation[kBlue], -4);
    EXPECT_EQ(bright.mixLuminance[kBlue], 3);
    EXPECT_EQ(brightWarmth, Values{2});
    EXPECT_EQ(bright.temperature, 2);  // the callback's change is kept

    const auto [warm, warmth] = apply(PhotoStyle::warm, 0.5);
    EXPECT_EQ(warmth, Values{7});
    EXPECT_EQ(warm.gradeShadows, (GradeWheel{25, 4, 0}));
    EXPECT_EQ(warm.gradeHighlights, (GradeWheel{40, 8, 0}));
    EXPECT_EQ(warm.mixLuminance[kOrange], 3);

    const auto [vivid, vividWarmth] = apply(PhotoStyle::vivid, 1);
    EXPECT_TRUE(vividWarmth.empty());
    EXPECT_EQ(vivid.mixSaturation, (BandValues{6, -8, 0, 10, 0, 12, 0, 0}));
    EXPECT_EQ(vivid.mixLuminance[kBlue], -6);
    EXPECT_EQ(vivid.gradeShadows, GradeWheel{});
    EXPECT_EQ(apply(PhotoStyle::cinematic, 1).a.mixHue[kGreen], 15);
}

TEST(PhotoStyleTest, AddsToExistingValuesWithinRange) {
    Adjustments start;
    start.contrast = 95;
    start.saturation = -95;
    start.vibrance = 2.3;
    start.grain = 90;
    start.exposure = 0.33;
    start.mixSaturation[kBlue] = 95;
    start.gradeShadows = {10, 50, 20};

    const Adjustments vivid = apply(PhotoStyle::vivid, 1, start).a;
    EXPECT_EQ(vivid.contrast, 100);
    EXPECT_EQ(vivid.vibrance, 22);
    EXPECT_EQ(vivid.mixSaturation[kBlue], 107);  // mixer entries are not clamped
    EXPECT_EQ(vivid.exposure, 0.33);             // untouched by a look without exposure
    const Adjustments film = apply(PhotoStyle::film, 1, start).a;
    EXPECT_EQ(film.saturation, -100);
    EXPECT_EQ(film.grain, 100);
    EXPECT_DOUBLE_EQ(apply(PhotoStyle::bright, 1, start).a.exposure, 0.6);
    // A grade is set, not added: hue replaced, saturation from the look, luminance kept.
    EXPECT_EQ(apply(PhotoStyle::solemn, 1, start).a.gradeShadows, (GradeWheel{220, 6, 20}));
}

TEST(PhotoStyleTest, MonoSetsColourOff) {
    Adjustments start;
    start.vibrance = 30;
    start.saturation = 20;
    for (const double strength : {1.0, 0.5, 0.0}) {
        const auto [mono, warmth] = apply(PhotoStyle::mono, strength, start);
        EXPECT_EQ(mono.vibrance, 0) << strength;
        EXPECT_EQ(mono.saturation, -100) << strength;
        EXPECT_TRUE(warmth.empty());
    }
    const Adjustments mono = apply(PhotoStyle::mono, 1, start).a;
    EXPECT_EQ(sliders(mono), (Values{0, 18, 0, 0, 8, -8, 12, 0, -100, 0, 0}));
    EXPECT_EQ(mono.mixLuminance, (BandValues{6, 12, 0, 0, 0, -18, 0, 0}));
}

TEST(PhotoStyleTest, Curves) {
    Adjustments custom;
    custom.curves.master = {{0, 0.1}, {1, 0.9}};
    custom.curves.red = {{0, 0.2}, {1, 1}};
    for (const PhotoStyle s :
         {PhotoStyle::natural, PhotoStyle::bright, PhotoStyle::vivid, PhotoStyle::warm})
        EXPECT_EQ(apply(s, 1, custom).a.curves, custom.curves) << enumName(s);

    // The five others replace the master curve; at strength 0 it is the identity on their x.
    for (const auto& [style, size] : {std::pair{PhotoStyle::solemn, 4u},
                                      {PhotoStyle::cinematic, 4u},
                                      {PhotoStyle::film, 4u},
                                      {PhotoStyle::pastel, 3u},
                                      {PhotoStyle::mono, 4u}}) {
        const Adjustments a = apply(style, 0, custom).a;
        ASSERT_EQ(a.curves.master.size(), size) << enumName(style);
        for (const CurvePoint& p : a.curves.master)
            EXPECT_EQ(p.y, p.x) << enumName(style);
        EXPECT_EQ(a.curves.red, custom.curves.red);
    }
    EXPECT_EQ(apply(PhotoStyle::cinematic, 1).a.curves.master,
              (std::vector<CurvePoint>{{0, 0.05}, {0.25, 0.22}, {0.75, 0.78}, {1, 0.96}}));

    // y = x + s (y - x), to three decimals.
    Values ys;
    for (const CurvePoint& p : apply(PhotoStyle::film, 1.0 / 3).a.curves.master)
        ys.push_back(p.y);
    EXPECT_EQ(ys, (Values{0.027, 0.3, 0.707, 0.98}));
    EXPECT_EQ(apply(PhotoStyle::pastel, 1.5).a.curves.master[0].y, 0.105);
}

}  // namespace
}  // namespace ql
