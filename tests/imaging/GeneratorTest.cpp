// Generated images (noise, gradients), the vignette and the area average.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "ImageTesting.h"
#include "imaging/AreaAverage.h"
#include "imaging/Gradient.h"
#include "imaging/RandomGenerator.h"
#include "imaging/Vignette.h"

namespace ql::img {
namespace {

using testing::expectThreadIndependent;
using testing::identical;
using testing::noise;

// The correlation of channel c at (x, y) with channel c2 at (x + dx, y + dy).
double correlation(const Image& im, int c, int c2, int dx, int dy) {
    double sa = 0, sb = 0, sab = 0, saa = 0, sbb = 0;
    int n = 0;
    for (int y = 0; y + dy < im.height(); ++y)
        for (int x = 0; x + dx < im.width(); ++x, ++n) {
            const double a = im.row(y)[4 * x + c], b = im.row(y + dy)[4 * (x + dx) + c2];
            sa += a, sb += b, sab += a * b, saa += a * a, sbb += b * b;
        }
    const double cov = sab / n - sa / n * sb / n;
    return cov / std::sqrt((saa / n - sa / n * sa / n) * (sbb / n - sb / n * sb / n));
}

TEST(RandomGenerator, UniformUncorrelatedAndPure) {
    const Image im = randomGenerator({256, 256, 42});
    ASSERT_EQ(im.width(), 256);
    for (int c = 0; c < 4; ++c) {
        const double m = testing::mean(im, c);
        double var = 0;
        for (size_t i = 0; i < im.pixelCount(); ++i)
            var += std::pow(im.data()[4 * i + c] - m, 2);
        EXPECT_NEAR(m, 0.5, 0.005);
        EXPECT_NEAR(var / double(im.pixelCount()), 1.0 / 12, 0.002);
        EXPECT_LT(std::abs(correlation(im, c, c, 1, 0)), 0.02);
        EXPECT_LT(std::abs(correlation(im, c, c, 0, 1)), 0.02);
        EXPECT_LT(std::abs(correlation(im, c, (c + 1) % 4, 0, 0)), 0.02);
    }
    for (size_t i = 0; i < im.pixelCount() * 4; ++i) {
        ASSERT_GE(im.data()[i], 0);
        ASSERT_LT(im.data()[i], 1);
    }
    // A function of (x, y, seed) alone: a smaller image is a corner of the larger.
    const Image small = randomGenerator({9, 5, 42});
    EXPECT_EQ(small.at(8, 4), im.at(8, 4));
    EXPECT_NE(randomGenerator({9, 5, 43}).at(8, 4), im.at(8, 4));
    EXPECT_TRUE(randomGenerator({0, 5, 1}).empty());
    expectThreadIndependent([](const Execution& e) { return randomGenerator({61, 37, 7}, e); });
    // One place at a time, the same values.
    const RandomField field(42);
    for (int y : {0, 3, 255})
        for (int x : {0, 17, 255})
            for (int c = 0; c < 4; ++c)
                EXPECT_EQ(field.at(x, y, c), im.row(y)[4 * x + c]) << x << ", " << y << ", " << c;
}

TEST(Vignette, SmoothTransitionBeyondTheRadius) {
    const Image in = Image::filled(101, 1, {0.5f, 0.4f, 0.2f, 1});
    EXPECT_TRUE(vignette(in, {0, 0, 10, 0, 0.5f}).sharesPixelsWith(in));
    EXPECT_TRUE(vignette(in, {NAN, 0, 10, 1, 0.5f}).sharesPixelsWith(in));
    // Centre on pixel 0's centre: distance d is then x.
    const Image out = vignette(in, {0.5f, 0.5f, 40, 0.8f, 0.5f});
    float previous = 1;
    for (int x = 0; x < 101; ++x) {
        const float d = float(x), u = std::clamp((d - 40) / 20, 0.0f, 1.0f);
        const float gain = 1 - 0.8f * u * u * (3 - 2 * u);
        EXPECT_NEAR(out.at(x, 0).g, 0.4f * gain, 1e-6f);
        EXPECT_LE(gain, previous);
        EXPECT_EQ(out.at(x, 0).a, 1);
        previous = gain;
    }
    // Negative intensity brightens, at most doubling; a zero falloff is a hard edge.
    const Image bright = vignette(in, {0.5f, 0.5f, 40, -5, 0});
    EXPECT_EQ(bright.at(40, 0).r, 0.5f);
    EXPECT_FLOAT_EQ(bright.at(41, 0).r, 1.0f);
    expectThreadIndependent([&](const Execution& e) {
        return vignette(noise(30, 20, 1), {9, 4, 6, 0.7f, 0.4f}, e);
    });
}

TEST(Gradient, LinearAndRadial) {
    const Pixel red{1, 0, 0, 1}, clear{0, 0, 0, 0};
    // Along x from the centre of pixel 2 to that of pixel 6, clamped outside.
    const Image lin = linearGradient({10, 3, 2.5f, 1, red, 6.5f, 1, clear});
    for (int x = 0; x < 10; ++x) {
        const float t = std::clamp((float(x) - 2) / 4, 0.0f, 1.0f);
        EXPECT_FLOAT_EQ(lin.at(x, 2).r, 1 - t);
        EXPECT_FLOAT_EQ(lin.at(x, 0).a, 1 - t);
    }
    // A diagonal projection: pixels on a line perpendicular to the axis share their colour.
    const Image diag = linearGradient({8, 8, 0, 0, red, 8, 8, clear});
    EXPECT_FLOAT_EQ(diag.at(2, 5).r, diag.at(5, 2).r);
    EXPECT_FLOAT_EQ(diag.at(3, 3).r, 1 - 7.0f / 16);
    EXPECT_EQ(linearGradient({4, 4, 1, 1, red, 1, 1, clear}).at(3, 3), red);
    EXPECT_EQ(linearGradient({4, 4, NAN, 1, red, 1, 1, clear}).at(3, 3), red);
    EXPECT_TRUE(linearGradient({0, 4}).empty());

    const Image rad = radialGradient({21, 21, 10.5f, 10.5f, 2, red, 8, clear});
    EXPECT_EQ(rad.at(10, 10), red);
    EXPECT_EQ(rad.at(0, 0), clear);
    EXPECT_FLOAT_EQ(rad.at(15, 10).r, 1 - 3.0f / 6);  // distance 5
    // Reversed radii run the other way; equal radii make a hard edge.
    EXPECT_FLOAT_EQ(radialGradient({21, 21, 10.5f, 10.5f, 8, red, 2, clear}).at(15, 10).r, 0.5f);
    const Image edge = radialGradient({21, 21, 10.5f, 10.5f, 3, red, 3, clear});
    EXPECT_EQ(edge.at(12, 10), red);
    EXPECT_EQ(edge.at(13, 10), clear);
    expectThreadIndependent([&](const Execution& e) {
        return radialGradient({33, 17, 3, 4, 1, red, 20, clear}, e);
    });
    expectThreadIndependent([&](const Execution& e) {
        return linearGradient({33, 17, 3, 4, red, 20, 9, clear}, e);
    });
}

TEST(AreaAverage, MeanOverClampedRectangle) {
    const Image im = noise(57, 43, 9, -1, 2);
    // The rectangle x 5…34, y 7…26 copied out, and the bottom rows 40…42.
    const Image inner = testing::make(30, 20, [&](int x, int y) { return im.at(x + 5, y + 7); });
    const Image bottom = testing::make(57, 3, [&](int x, int y) { return im.at(x, y + 40); });
    const Pixel a = areaAverage(im, {5, 7, 30, 20});
    EXPECT_NEAR(a.r, testing::mean(inner, 0), 1e-6);
    EXPECT_NEAR(a.b, testing::mean(inner, 2), 1e-6);
    EXPECT_EQ(a.a, 1);
    EXPECT_NEAR(areaAverage(im, {-10, 40, 1000, 1 << 30}).g, testing::mean(bottom, 1), 1e-6);
    EXPECT_EQ(areaAverage(im, {60, 0, 5, 5}), Pixel{});
    EXPECT_EQ(areaAverage(im, {3, 3, 0, 5}), Pixel{});
    for (int threads : {2, 7})
        EXPECT_EQ(areaAverage(im, {0, 0, 57, 43}, {threads}), areaAverage(im, {0, 0, 57, 43}, {1}));
    const std::atomic<bool> cancel{true};
    EXPECT_EQ(areaAverage(im, {0, 0, 57, 43}, {1, &cancel}), Pixel{});
}

}  // namespace
}  // namespace ql::img
