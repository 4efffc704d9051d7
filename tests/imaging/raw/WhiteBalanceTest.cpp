// The raw white-balance model: temperature and tint from chromaticity and back, and through a
// camera's colour matrices to RGB multipliers and back.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <utility>

#include "imaging/raw/WhiteBalance.h"

namespace ql::img {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// Canon EOS 550D, XYZ to camera under Standard A and D65.
const Matrix3 kCanonA{0.7755, -0.2449, -0.0349, -0.4470, 1.2136, 0.1969, -0.0757, 0.1669, 0.6954};
const Matrix3 kCanonD65{0.6941, -0.1164, -0.0857, -0.3825, 1.1597, 0.2534, -0.0416, 0.1540, 0.6039};
const CameraCalibration kDual{kCanonA, 2856, kCanonD65, 6504};
const CameraCalibration kSingle{kCanonD65, 6504, std::nullopt, 2856};

// Kim et al.'s cubic fit of the Planckian locus, good to a few tenths of a percent in CCT.
Chromaticity planckian(double t) {
    const double s = 1e3 / t;
    const double x = t <= 4000 ? ((-0.2661239 * s - 0.2343589) * s + 0.8776956) * s + 0.179910
                               : ((-3.0258469 * s + 2.1070379) * s + 0.2226347) * s + 0.240390;
    if (t <= 2222) return {x, ((-1.1063814 * x - 1.34811020) * x + 2.18555832) * x - 0.20219683};
    if (t <= 4000) return {x, ((-0.9549476 * x - 1.37418593) * x + 2.09137015) * x - 0.16748867};
    return {x, ((3.0817580 * x - 5.87338670) * x + 3.75112997) * x - 0.37001483};
}

void expectSame(Chromaticity a, Chromaticity b, double tolerance = 1e-12) {
    EXPECT_NEAR(a.x, b.x, tolerance);
    EXPECT_NEAR(a.y, b.y, tolerance);
}

TEST(TemperatureTint, ReadsKnownIlluminants) {
    // Standard A, and Planckian radiators at 3000 K and 5000 K.
    for (auto [xy, kelvin] : {std::pair{Chromaticity{0.44757, 0.40745}, 2856.0},
                              {{0.43693, 0.40407}, 3000.0},
                              {{0.34510, 0.35162}, 5000.0}}) {
        EXPECT_NEAR(temperatureTint(xy).temperature, kelvin, 2);
        EXPECT_NEAR(temperatureTint(xy).tint, 0, 0.3);
    }
    for (double t = 1700; t <= 25000; t *= 1.1) {
        EXPECT_NEAR(temperatureTint(planckian(t)).temperature / t, 1, 0.004) << t;
        EXPECT_NEAR(temperatureTint(planckian(t)).tint, 0, 0.5) << t;
    }
    // Daylight lies on the green side of the locus: positive tint, about 3000 · Duv.
    const TemperatureTint d65 = temperatureTint(kD65White);
    EXPECT_NEAR(d65.temperature, 6504, 5);
    EXPECT_NEAR(d65.tint, 10, 1);
    EXPECT_NEAR(temperatureTint(kD50White).temperature, 5003, 5);
    EXPECT_GT(temperatureTint(kD50White).tint, 7);
}

TEST(TemperatureTint, IsothermsCrossTheLocusSquarely) {
    // Step 0.01 in CIE 1960 uv off the locus along its normal, towards green (up) and magenta:
    // the temperature stays, the tint is ±30.
    auto uv = [](Chromaticity c) {
        const double w = -2 * c.x + 12 * c.y + 3;
        return std::array<double, 2>{4 * c.x / w, 6 * c.y / w};
    };
    for (double t = 1700; t < 12500; t *= 1.07) {
        const double onLocus = temperatureTint(planckian(t)).temperature;
        const auto p = uv(planckian(t)), a = uv(planckian(t * 0.99)), b = uv(planckian(t * 1.01));
        const double du = b[0] - a[0], dv = b[1] - a[1], len = std::hypot(du, dv);
        for (double side : {1.0, -1.0}) {
            const double u = p[0] - side * 0.01 * std::abs(dv) / len;
            const double v = p[1] + side * 0.01 * std::abs(du) / len;
            const double s = 2 * u - 8 * v + 4;
            const TemperatureTint tt = temperatureTint(Chromaticity{3 * u / s, 2 * v / s});
            EXPECT_NEAR(tt.temperature / onLocus, 1, 0.0015) << t;
            EXPECT_NEAR(tt.tint, side * 30, 0.5) << t;
        }
    }
}

TEST(TemperatureTint, ChromaticityIsItsInverse) {
    for (double t = 2000; t <= 50000; t *= 1.013) {
        for (double tint = -150; tint <= 150; tint += 7.5) {
            const TemperatureTint back = temperatureTint(chromaticity({t, tint}));
            ASSERT_NEAR(back.temperature / t, 1, 1e-9) << t << " " << tint;
            ASSERT_NEAR(back.tint, tint, 1e-7) << t << " " << tint;
        }
    }
    for (double t = 1700; t < 90000; t *= 1.7) {
        for (double tint : {-280.0, 0.0, 290.0}) {
            const Chromaticity xy = chromaticity({t, tint});
            expectSame(chromaticity(temperatureTint(xy)), xy, 1e-10);
        }
    }
}

TEST(TemperatureTint, ClampsOutsideTheTable) {
    expectSame(chromaticity({500, 0}), chromaticity({kMinKelvin, 0}));
    expectSame(chromaticity({kInf, 1000}), chromaticity({kMaxKelvin, kMaxTint}));
    expectSame(chromaticity({-3, -kInf}), chromaticity({kMinKelvin, -kMaxTint}));
    expectSame(chromaticity({kNaN, kNaN}), chromaticity({6504, 0}));
    // Deep red, bluer than any temperature, far off the locus, and no colour at all.
    EXPECT_NEAR(temperatureTint(Chromaticity{0.65, 0.34}).temperature, kMinKelvin, 1e-9);
    EXPECT_EQ(temperatureTint(Chromaticity{0.2, 0.2}).temperature, kMaxKelvin);
    EXPECT_EQ(temperatureTint(Chromaticity{0.25, 0.7}).tint, kMaxTint);
    for (Chromaticity bad : {Chromaticity{kNaN, 0.3}, Chromaticity{0.3, 0}, Chromaticity{2, -1}})
        EXPECT_EQ(temperatureTint(bad).tint, temperatureTint(kD65White).tint);
}

TEST(WhiteBalance, IlluminantKelvin) {
    EXPECT_EQ(illuminantKelvin(17), 2856);
    EXPECT_EQ(illuminantKelvin(21), 6504);
    EXPECT_EQ(illuminantKelvin(23), 5003);
    for (int code : {1, 2, 3, 4, 9, 10, 11, 12, 13, 14, 15, 16, 18, 19, 20, 22, 24})
        EXPECT_TRUE(illuminantKelvin(code) > 2500 && illuminantKelvin(code) < 8000) << code;
    for (int code : {0, 5, 8, 25, 255, -1})
        EXPECT_EQ(illuminantKelvin(code), 0) << code;
}

TEST(WhiteBalance, InterpolatesMatricesInMired) {
    auto expectMatrix = [](const CameraCalibration& cal, double kelvin, const Matrix3& want) {
        const Matrix3 got = colorMatrixAt(cal, chromaticity({kelvin, 30}));
        for (int i = 0; i < 9; ++i)
            EXPECT_NEAR(got[i], want[i], 1e-9) << kelvin << " " << i;
    };
    Matrix3 mid;
    for (int i = 0; i < 9; ++i)
        mid[i] = 0.5 * (kCanonA[i] + kCanonD65[i]);
    const double halfway = 2e6 / (1e6 / 2856 + 1e6 / 6504);
    const CameraCalibration swapped{kCanonD65, 6504, kCanonA, 2856};
    for (const CameraCalibration& cal : {kDual, swapped}) {
        expectMatrix(cal, 2856, kCanonA);
        expectMatrix(cal, 6504, kCanonD65);
        expectMatrix(cal, halfway, mid);
        expectMatrix(cal, 2000, kCanonA);
        expectMatrix(cal, 20000, kCanonD65);
    }
    // One matrix, or two that cannot be told apart, is used as it is.
    expectMatrix(kSingle, 2856, kCanonD65);
    for (double t2 : {6504.0, 0.0, kNaN})
        expectMatrix({kCanonD65, 6504, kCanonA, t2}, 2856, kCanonD65);
}

TEST(WhiteBalance, NeutralsOfKnownCameras) {
    // XYZ to linear sRGB: a "camera" that sees D65 as grey.
    CameraCalibration srgb;
    srgb.colorMatrix1 = {3.2404542, -1.5371385, -0.4985314, -0.9692660, 1.8760108,
                         0.0415560, 0.0556434,  -0.2040259, 1.0572252};
    for (double c : cameraNeutral(srgb, kD65White))
        EXPECT_NEAR(c, 1, 2e-3);
    EXPECT_NEAR(temperatureTint(srgb, {1, 1, 1}).temperature, 6504, 6);
    EXPECT_NEAR(temperatureTint(srgb, {1, 1, 1}).tint, 10, 1);

    for (const CameraCalibration& cal : {kSingle, kDual}) {
        // The 550D in daylight needs about twice the red and half again the blue.
        const std::array<double, 3> m = multipliers(cal, {6504, 10});
        EXPECT_EQ(m[1], 1);
        EXPECT_TRUE(m[0] > 1.8 && m[0] < 2.6 && m[2] > 1.2 && m[2] < 1.7) << m[0] << " " << m[2];
        // A higher setting renders warmer: more red against blue.
        double previous = 0;
        for (double t = 2000; t <= 20000; t *= 1.05) {
            const std::array<double, 3> w = multipliers(cal, {t, 0});
            EXPECT_GT(w[0] / w[2], previous) << t;
            previous = w[0] / w[2];
        }
        // Greener light needs magenta: red and blue both rise against green.
        const std::array<double, 3> plain = multipliers(cal, {5000, 0});
        const std::array<double, 3> green = multipliers(cal, {5000, 30});
        EXPECT_TRUE(green[0] > plain[0] && green[2] > plain[2]);
    }
}

TEST(WhiteBalance, MultipliersRoundTrip) {
    for (const CameraCalibration& cal : {kSingle, kDual}) {
        int capped = 0;
        for (double t = 2500; t <= 12000; t *= 1.02) {
            for (double tint = -100; tint <= 100; tint += 5) {
                const std::array<double, 3> m = multipliers(cal, {t, tint});
                if (m[0] == kMaxMultiplier || m[2] == kMaxMultiplier) {
                    // Only strongly green, warm light lies beyond what the camera sees.
                    EXPECT_TRUE(t < 2700 && tint > 80) << t << " " << tint;
                    ++capped;
                    continue;
                }
                // Any scale of the multipliers reads the same.
                const TemperatureTint back = temperatureTint(cal, {3 * m[0], 3 * m[1], 3 * m[2]});
                ASSERT_NEAR(back.temperature / t, 1, 1e-8) << t << " " << tint;
                ASSERT_NEAR(back.tint, tint, 1e-6) << t << " " << tint;
            }
        }
        EXPECT_LT(capped, 10);
        const Chromaticity xy = chromaticity({4200, -20});
        expectSame(neutralChromaticity(cal, cameraNeutral(cal, xy)), xy, 1e-10);
    }
}

TEST(WhiteBalance, SurvivesHopelessInput) {
    const TemperatureTint d65 = temperatureTint(kD65White);
    for (std::array<double, 3> bad :
         {std::array<double, 3>{0, 1, 1}, {1, -1, 1}, {1, 1, kNaN}, {kInf, 1, 1}}) {
        expectSame(neutralChromaticity(kDual, bad), kD65White, 0);
        EXPECT_EQ(temperatureTint(kDual, bad).temperature, d65.temperature);
    }
    CameraCalibration singular;
    singular.colorMatrix1 = {};
    expectSame(neutralChromaticity(singular, {1, 1, 1}), kD65White, 0);
    EXPECT_EQ(multipliers(singular, {5000, 0}), (std::array<double, 3>{1, 1, 1}));

    // Lopsided but positive multipliers and wild settings still give answers in range.
    for (double r : {1e-300, 1e-6, 0.5, 100.0, 1e300}) {
        for (double b : {1e-300, 1e-4, 5.0, 1e300}) {
            const TemperatureTint tt = temperatureTint(kDual, {r, 1, b});
            EXPECT_TRUE(tt.temperature >= kMinKelvin - 1e-9 && tt.temperature <= kMaxKelvin);
            EXPECT_TRUE(std::abs(tt.tint) <= kMaxTint);
        }
    }
    const std::array<double, 3> m = multipliers(kDual, {2000, 300});
    EXPECT_TRUE(m[2] == kMaxMultiplier && m[0] > 0 && m[0] <= kMaxMultiplier);
}

}  // namespace
}  // namespace ql::img
