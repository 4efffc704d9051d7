// The tone and colour cube: the sampled curves, every slider's response against values worked
// out independently of this code, the mixer and grading wheels, and the baked cube's layout.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>

#include "render/ColorLUT.h"
#include "render/SampledCurve.h"

namespace ql {
namespace {

using Triple = std::array<double, 3>;

Triple mapped(const Adjustments& a, const Triple& in) {
    return ColorLUT::Params(LUTKey(a)).apply(in[0], in[1], in[2]);
}

void expectNear(const Triple& got, const Triple& want, const std::string& what) {
    for (size_t c = 0; c < 3; ++c)
        EXPECT_NEAR(got[c], want[c], 1e-9) << what << ", channel " << c;
}

bool monotone(const SampledCurve& curve) {
    const auto& t = curve.table();
    for (size_t i = 0; i + 1 < t.size(); ++i)
        if (!(t[i] <= t[i + 1])) return false;
    return true;
}

TEST(SampledCurve, DegenerateAndUnorderedPoints) {
    // None or one point: the plain ramp, but not identity, so the cube still gets baked.
    for (const auto& points : {std::vector<CurvePoint>{}, std::vector<CurvePoint>{{0.3, 0.8}}}) {
        const SampledCurve c(points);
        EXPECT_FALSE(c.isIdentity());
        for (int i = 0; i < 1024; ++i)
            ASSERT_EQ(c.table()[size_t(i)], i / 1023.0) << points.size() << " points";
    }
    EXPECT_TRUE(SampledCurve(ToneCurves::straight).isIdentity());
    EXPECT_TRUE(SampledCurve({{1, 1}, {0, 0}}).isIdentity());
    EXPECT_FALSE(SampledCurve({{0, 0}, {1, 0.999}}).isIdentity());

    const SampledCurve sorted({{0, 0}, {0.5, 0.7}, {1, 1}});
    EXPECT_EQ(SampledCurve({{1, 1}, {0, 0}, {0.5, 0.7}}).table(), sorted.table());
    EXPECT_NEAR(sorted.table()[256], 0.375366545003, 1e-9);
    EXPECT_NEAR(sorted.table()[767], 0.87487778645, 1e-9);

    // Coincident x: the floored width keeps the jump finite.
    const SampledCurve step({{0, 0}, {0.5, 0.2}, {0.5, 0.8}, {1, 1}});
    EXPECT_TRUE(monotone(step));
    EXPECT_NEAR(step.table()[511], 0.199414062874, 1e-9);
    EXPECT_NEAR(step.table()[512], 0.800585937126, 1e-9);
    EXPECT_NEAR(step.table()[600], 0.886886547145, 1e-9);

    // Non-finite points are dropped rather than allowed to break the sort.
    EXPECT_EQ(SampledCurve({{NAN, 0.5}, {0, 0}, {0.5, 0.7}, {1, 1}, {0.2, INFINITY}}).table(),
              sorted.table());
}

TEST(SampledCurve, FlatEndsClampAndMonotoneLimit) {
    const SampledCurve inner({{0.2, 0.1}, {0.8, 0.9}});
    EXPECT_EQ(inner.table()[0], 0.1);
    EXPECT_EQ(inner.table()[204], 0.1);  // x = 0.1994, left of the first point
    EXPECT_EQ(inner.table()[1023], 0.9);
    EXPECT_NEAR(inner.table()[512], 0.500651678071, 1e-9);

    const SampledCurve beyond({{0, -0.5}, {1, 1.5}});
    EXPECT_EQ(beyond.table()[0], 0);
    EXPECT_EQ(beyond.table()[1023], 1);
    EXPECT_NEAR(beyond.table()[512], 0.500977517107, 1e-9);

    // Averaged tangents alone overshoot on a steep middle; the limit keeps it rising.
    EXPECT_TRUE(monotone(SampledCurve({{0, 0}, {0.45, 0.05}, {0.55, 0.95}, {1, 1}})));
    EXPECT_TRUE(monotone(SampledCurve({{0, 0}, {0.1, 0.02}, {0.15, 0.9}, {0.9, 0.95}, {1, 1}})));

    // Lookup: clamped ends and linear between entries.
    const SampledCurve c({{0, 0}, {0.5, 0.7}, {1, 1}});
    const auto& t = c.table();
    EXPECT_EQ(c.lookup(-3), t[0]);
    EXPECT_EQ(c.lookup(1), t[1023]);
    EXPECT_EQ(c.lookup(7), t[1023]);
    EXPECT_EQ(c.lookup(NAN), t[0]);
    EXPECT_NEAR(c.lookup(100.25 / 1023), 0.75 * t[100] + 0.25 * t[101], 1e-15);
    EXPECT_NEAR(c.lookup(0.3), 0.448799945069, 1e-9);
}

TEST(ColorLUT, ParamsFromKey) {
    Adjustments a;
    a.contrast = 50;
    a.gradeShadows = {90, 100, 0};
    a.gradeMidtones = {-30, 100, 0};
    a.gradeHighlights = {750, 40, -20};
    a.gradeGlobal = {123, 0, 0};  // a hue alone grades nothing
    ColorLUT::Params p{LUTKey(a)};
    EXPECT_EQ(p.contrast, 0.5);
    EXPECT_EQ(p.blending, 0.5);
    EXPECT_FALSE(p.hasMix);
    EXPECT_TRUE(p.hasGrade);
    // Pure colours of 90°, 330° and 30°, less their luminance.
    const std::array<Triple, 3> want{Triple{-0.3215, 0.1785, -0.8215},
                                     Triple{0.7513, -0.2487, 0.2513},
                                     Triple{0.17192, -0.02808, -0.22808}};
    for (size_t i = 0; i < 3; ++i)
        expectNear(p.wheels[i], want[i], "wheel " + std::to_string(i));
    EXPECT_EQ(p.wheels[3], (Triple{0, 0, 0}));
    EXPECT_EQ(p.wheelLum[2], -0.2);

    a.gradeShadows = a.gradeMidtones = a.gradeHighlights = {};
    EXPECT_FALSE(ColorLUT::Params(LUTKey(a)).hasGrade);
    a.mixLuminance[3] = -1;
    EXPECT_TRUE(ColorLUT::Params(LUTKey(a)).hasMix);
}

TEST(ColorLUT, DefaultKeyIsExactIdentity) {
    const ColorLUT::Params p{LUTKey(Adjustments::defaults())};
    for (int r = 0; r <= 20; ++r)
        for (int g = 0; g <= 20; ++g)
            for (int b = 0; b <= 20; ++b) {
                const Triple in{r / 20.0, std::sqrt(g / 20.0), b * b / 400.0};
                ASSERT_EQ(p.apply(in[0], in[1], in[2]), in);
            }
}

TEST(ColorLUT, SliderResponse) {
    struct Case {
        double Adjustments::*field;
        double value;
        Triple in, want;
    };
    using A = Adjustments;
    const Case cases[] = {
        {&A::contrast, -100, {0.1, 0.5, 0.9}, {0.1514519106, 0.5, 0.8485480894}},
        {&A::contrast, 40, {0.1, 0.5, 0.9}, {0.07941923576, 0.5, 0.9205807642}},
        {&A::contrast, 100, {0.1, 0.5, 0.9}, {0.04854808939, 0.5, 0.9514519106}},
        // Lowered highlights and raised shadows are not the cube's.
        {&A::highlights, -100, {0.6, 0.72, 1}, {0.6, 0.72, 1}},
        {&A::highlights, 50, {0.1, 0.5, 0.9}, {0.1000053644, 0.5238557824, 0.9355886453}},
        {&A::highlights, 50, {0.6, 0.72, 1}, {0.6558141061, 0.8, 1}},
        {&A::highlights, 100, {0.1, 0.5, 0.9}, {0.1000107288, 0.5477115647, 0.9711772906}},
        {&A::highlights, 100, {0.6, 0.72, 1}, {0.7116282122, 0.88, 1}},
        {&A::shadows, -100, {0.1, 0.5, 0.9}, {0.0288227094, 0.4522884353, 0.8999892712}},
        {&A::shadows, -100, {0, 0.28, 0.4}, {0, 0.12, 0.2883717878}},
        {&A::shadows, -30, {0, 0.28, 0.4}, {0, 0.232, 0.3665115363}},
        {&A::shadows, 100, {0, 0.28, 0.4}, {0, 0.28, 0.4}},
        {&A::whites, -100, {0.1, 0.5, 0.9}, {0.099982, 0.48875, 0.781902}},
        {&A::whites, 60, {0.1, 0.5, 0.9}, {0.1000108, 0.50675, 0.9708588}},
        {&A::whites, 100, {0.1, 0.5, 0.9}, {0.100018, 0.51125, 1}},
        {&A::blacks, -100, {0.1, 0.5, 0.9}, {0, 0.48875, 0.899982}},
        {&A::blacks, -40, {0.1, 0.5, 0.9}, {0.0527608, 0.4955, 0.8999928}},
        {&A::blacks, 100, {0.1, 0.5, 0.9}, {0.218098, 0.51125, 0.900018}},
        {&A::dehaze, -100, {0.8, 0.3, 0.2}, {0.7517499568, 0.3837732599, 0.3064485165}},
        {&A::dehaze, 50, {0.8, 0.3, 0.2}, {0.8283009682, 0.2512812071, 0.1415437468}},
        {&A::dehaze, 100, {0.8, 0.3, 0.2}, {0.8593119678, 0.1979767089, 0.08052790977}},
        // Dehaze lifts the black point below 0; the result is clamped, not negative.
        {&A::dehaze, 100, {0, 0, 0}, {0, 0, 0}},
        {&A::dehaze, 100, {0.05, 0.06, 0.5}, {0, 0, 0.4637261592}},
        {&A::vibrance, -100, {0.8, 0.3, 0.2}, {0.7218605796, 0.352092947, 0.2781394204}},
        {&A::vibrance, -100, {0.2, 0.4, 0.9}, {0.2712915954, 0.4305535409, 0.8287084046}},
        {&A::vibrance, 50, {0.8, 0.3, 0.2}, {0.8468836523, 0.2687442318, 0.1531163477}},
        {&A::vibrance, 50, {0.2, 0.4, 0.9}, {0.1572250428, 0.3816678755, 0.9427749572}},
        {&A::vibrance, 100, {0.8, 0.3, 0.2}, {0.8937673045, 0.2374884637, 0.1062326955}},
        {&A::vibrance, 100, {0.2, 0.4, 0.9}, {0.1144500855, 0.3633357509, 0.9855499145}},
        {&A::vibrance, 100, {0.4, 0.4, 0.4}, {0.4, 0.4, 0.4}},
        {&A::saturation, -100, {0.8, 0.3, 0.2}, {0.5, 0.5, 0.5}},
        {&A::saturation, 30, {0.8, 0.3, 0.2}, {0.89, 0.24, 0.11}},
        {&A::saturation, 100, {0.8, 0.3, 0.2}, {1, 0.1666666667, 0}},
    };
    for (const Case& c : cases) {
        Adjustments a;
        a.*c.field = c.value;
        expectNear(mapped(a, c.in), c.want, "slider " + std::to_string(c.value));
    }
}

TEST(ColorLUT, CurvesMasterFirst) {
    Adjustments a;
    a.curves.red = {{0, 0.2}, {1, 1}};
    expectNear(mapped(a, {0.3, 0.3, 0.6}), {0.44, 0.3, 0.6}, "red only");
    a.curves.master = {{0, 0}, {0.5, 0.7}, {1, 1}};
    expectNear(mapped(a, {0.3, 0.3, 0.6}), {0.559039956055, 0.448799945069, 0.785599828624},
               "master then red");
}

TEST(ColorLUT, Mixer) {
    // Saturation on green alone turns the mixer on everywhere: its neighbours get half of it at
    // the midpoints, red gets nothing, and grey stays grey.
    Adjustments a;
    a.mixSaturation[size_t(ColorBand::green)] = 50;
    expectNear(mapped(a, {0.6, 0.9, 0.3}), {0.6, 0.975, 0.225}, "90°");
    expectNear(mapped(a, {0.3, 0.9, 0.6}), {0.225, 0.975, 0.6}, "150°");
    expectNear(mapped(a, {0.9, 0.3, 0.3}), {0.9, 0.3, 0.3}, "red");
    expectNear(mapped(a, {0.5, 0.5, 0.5}), {0.5, 0.5, 0.5}, "grey");
    expectNear(mapped(a, {0.5, 0.51, 0.5}), {0.499936868687, 0.510063131313, 0.499936868687},
               "nearly grey");

    // At 359° the hue sits almost entirely in red, wrapping past magenta.
    Adjustments h;
    h.mixHue[size_t(ColorBand::red)] = -100;
    h.mixHue[size_t(ColorBand::magenta)] = 100;
    expectNear(mapped(h, {0.8, 0.2, 0.21}), {0.8, 0.2, 0.509505555556}, "hue at 359°");
    Adjustments l;
    l.mixLuminance[size_t(ColorBand::magenta)] = 100;
    expectNear(mapped(l, {0.8, 0.2, 0.21}), {0.800098888889, 0.200395555556, 0.210390611111},
               "luminance at 359°");
    expectNear(mapped(l, {0.8, 0.2, 0.79}), {0.919901111111, 0.679604444444, 0.915896166667},
               "luminance at 301°");
}

TEST(ColorLUT, Grading) {
    Adjustments a;
    a.gradeShadows = {90, 100, 0};
    expectNear(mapped(a, {0.1, 0.1, 0.1}), {0, 0.1581887152, 0}, "shadows");
    expectNear(mapped(a, {0.5, 0.5, 0.5}), {0.4882974, 0.5064974, 0.4700974}, "midtones");
    expectNear(mapped(a, {0.9, 0.9, 0.9}), {0.9, 0.9, 0.9}, "highlights");

    Adjustments b;
    b.gradeMidtones = {200, 60, -20};
    b.gradeHighlights = {30, 80, 40};
    b.gradeGlobal = {0, 0, -10};
    b.gradeBlending = 20;
    b.gradeBalance = -40;
    expectNear(mapped(b, {0.1, 0.2, 0.3}), {0, 0.161845856413, 0.298255111103}, "dark");
    expectNear(mapped(b, {0.5, 0.45, 0.4}), {0.346641187068, 0.409753041502, 0.409715218865},
               "middle");
    expectNear(mapped(b, {0.9, 0.8, 0.95}), {1, 0.842007252852, 0.875992742965}, "bright");
}

TEST(ColorLUT, HslToRGB) {
    EXPECT_DOUBLE_EQ(ColorLUT::hslToRGB(0.2, 0.8, -0.1), 0.2);
    EXPECT_DOUBLE_EQ(ColorLUT::hslToRGB(0.2, 0.8, 0.1), 0.56);
    EXPECT_DOUBLE_EQ(ColorLUT::hslToRGB(0.2, 0.8, 0.3), 0.8);
    EXPECT_DOUBLE_EQ(ColorLUT::hslToRGB(0.2, 0.8, 0.6), 0.44);
    EXPECT_DOUBLE_EQ(ColorLUT::hslToRGB(0.2, 0.8, 1.1), 0.56);
    EXPECT_DOUBLE_EQ(ColorLUT::hslToRGB(0.2, 0.8, 0.9), 0.2);
}

TEST(ColorLUT, BuildLayoutAndThreads) {
    constexpr int n = ColorLUT::kCubeSize;
    const std::vector<float> identity = ColorLUT::build(LUTKey(Adjustments::defaults()));
    ASSERT_EQ(identity.size(), size_t(n) * n * n * 4);
    for (int b = 0; b < n; b += 5)
        for (int g = 0; g < n; g += 3)
            for (int r = 0; r < n; ++r) {
                const float* t = &identity[((size_t(b) * n + g) * n + r) * 4];
                ASSERT_EQ(t[0], float(r / 47.0));
                ASSERT_EQ(t[1], float(g / 47.0));
                ASSERT_EQ(t[2], float(b / 47.0));
                ASSERT_EQ(t[3], 1.0f);
            }

    Adjustments a;
    a.contrast = 30;
    a.dehaze = 20;
    a.vibrance = 40;
    a.curves.master = {{0, 0.05}, {0.4, 0.35}, {1, 0.95}};
    a.curves.blue = {{0, 0}, {0.5, 0.6}, {1, 1}};
    a.mixHue[2] = 40;
    a.gradeHighlights = {40, 30, 10};
    const LUTKey key(a);
    const std::vector<float> one = ColorLUT::build(key, {1});
    const std::vector<float> two = ColorLUT::build(key, {2});
    ASSERT_EQ(one.size(), identity.size());
    ASSERT_EQ(two.size(), one.size());
    EXPECT_EQ(std::memcmp(one.data(), two.data(), one.size() * sizeof(float)), 0);
    // Every texel is apply at its grid point.
    const ColorLUT::Params p(key);
    for (int b = 0; b < n; b += 7)
        for (int g = 0; g < n; g += 2)
            for (int r = 0; r < n; ++r) {
                const Triple want = p.apply(r / 47.0, g / 47.0, b / 47.0);
                const float* t = &one[((size_t(b) * n + g) * n + r) * 4];
                for (size_t c = 0; c < 3; ++c)
                    ASSERT_EQ(t[c], float(want[c])) << r << ' ' << g << ' ' << b;
                ASSERT_EQ(t[3], 1.0f);
            }

    std::atomic<bool> cancel{true};
    EXPECT_TRUE(ColorLUT::build(key, {2, &cancel}).empty());
}

}  // namespace
}  // namespace ql
