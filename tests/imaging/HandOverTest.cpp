// Operations that take their input by value work in its pixels when handed the only handle, and
// must give the same floats as when they write a new picture: each reads a pixel before it
// overwrites it.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ImageTesting.h"
#include "imaging/Blend.h"
#include "imaging/ColorControls.h"
#include "imaging/ColorCube.h"
#include "imaging/ColorMatrix.h"
#include "imaging/Composite.h"
#include "imaging/ExposureAdjust.h"
#include "imaging/HighlightShadowAdjust.h"
#include "imaging/NoiseReduction.h"
#include "imaging/SharpenLuminance.h"
#include "imaging/UnsharpMask.h"

namespace ql::img {
namespace {

using testing::identical;
using testing::noise;

// A picture with some alpha below 1 and colour beyond [0, 1], as the pipeline's stages see.
Image scene() {
    Image p = noise(96, 72, 11, -0.1f, 1.3f);
    Image out = Image::forOverwrite(p.width(), p.height());
    for (int y = 0; y < p.height(); ++y)
        for (int x = 0; x < p.width(); ++x) {
            Pixel v = p.at(x, y);
            v.a = (x + y) % 7 == 0 ? 0.5f : 1;
            out.set(x, y, {v.r * v.a, v.g * v.a, v.b * v.a, v.a});
        }
    return out;
}

CubeData warmCube(int n) {
    auto nodes = std::make_shared<std::vector<float>>();
    for (int b = 0; b < n; ++b)
        for (int g = 0; g < n; ++g)
            for (int r = 0; r < n; ++r) {
                const float s = 1.0f / float(n - 1);
                nodes->insert(nodes->end(), {std::min(r * s * 1.1f, 1.0f), g * s, b * s * 0.9f, 1});
            }
    return nodes;
}

TEST(HandOver, EveryOperationGivesTheSameFloatsInItsInputsPixels) {
    using Op = std::function<Image(Image)>;
    ColorMatrixParams matrix;
    matrix.red = {0.9f, 0.1f, 0, 0};
    matrix.alpha = {0, 0, 0, 0.9f};
    matrix.bias = {0.02f, 0, 0, 0};
    const CubeData cube = warmCube(9);
    const Image mask = noise(96, 72, 5);
    const Image other = noise(96, 72, 6);
    const auto levels = [](int y, float* l) {
        for (int x = 0; x < 96; ++x)
            l[x] = float((x * 7 + y * 3) % 11) / 10;
    };
    const std::vector<std::pair<std::string, Op>> ops = {
        {"exposure", [](Image i) { return exposureAdjust(std::move(i), {0.7f}); }},
        {"matrix", [&](Image i) { return colorMatrix(std::move(i), matrix); }},
        {"controls",
         [](Image i) {
             return colorControls(
                 std::move(i),
                 {.saturation = 1.3f, .brightness = 0.05f, .contrast = 1.2f, .inputGain = 1.1f});
         }},
        {"cube linear",
         [&](Image i) {
             return colorCube(std::move(i), {9, cube, false});
         }},
        {"cube sRGB",
         [&](Image i) {
             return colorCube(std::move(i), {9, cube, true});
         }},
        {"recovery",
         [](Image i) {
             return highlightShadowAdjust(std::move(i), {12, 0.4f, 0.6f, 1.2f});
         }},
        {"recovery without radius",
         [](Image i) {
             return highlightShadowAdjust(std::move(i), {0, 0.4f, 0.6f, 1});
         }},
        {"unsharp sampled",
         [](Image i) {
             return unsharpMask(std::move(i), {2, 0.8f});
         }},
        {"unsharp boxes",
         [](Image i) {
             return unsharpMask(std::move(i), {6, 0.8f});
         }},
        {"unsharp coarse",
         [](Image i) {
             return unsharpMask(std::move(i), {40, 0.5f});
         }},
        {"chroma blur", [](Image i) { return blurColourUnderLuminosity(std::move(i), 5, 0.7f); }},
        {"sharpen luma",
         [](Image i) {
             return sharpenLuminance(std::move(i), {0.8f, 2});
         }},
        {"noise reduction",
         [](Image i) {
             return noiseReduction(std::move(i), {0.05f, 0.6f});
         }},
        {"edges only",
         [](Image i) {
             return noiseReduction(std::move(i), {0, 0.6f});
         }},
        {"grain", [&](Image i) { return softLightGrey(std::move(i), levels); }},
        {"mask over", [&](Image i) { return blendWithMask(std::move(i), other, mask); }},
        {"mask under", [&](Image i) { return blendWithMask(other, std::move(i), mask); }},
    };
    for (const auto& [name, op] : ops) {
        SCOPED_TRACE(name);
        const Image shared = scene();
        const Image fresh = op(shared);  // a second handle stays here: new pixels
        ASSERT_FALSE(fresh.sharesPixelsWith(shared));
        EXPECT_TRUE(identical(shared, scene())) << "the shared input was changed";
        Image only = scene();
        const float* pixels = only.data();
        const Image inPlace = op(std::move(only));
        // The smoothing needs its input whole while it writes: its result is new, and the input
        // goes early instead.
        if (name != "noise reduction") {
            EXPECT_EQ(inPlace.data(), pixels) << "the handed-over pixels were not reused";
        }
        EXPECT_TRUE(identical(inPlace, fresh));
    }
}

}  // namespace
}  // namespace ql::img
