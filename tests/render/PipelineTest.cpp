// The develop pipeline: stage guards, the signs and meanings of the stages that are not cube
// work, the cube cache, hostile records, and preview against export on real photos.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include "imaging/ColorCube.h"
#include "imaging/GaussianBlur.h"
#include "imaging/LanczosScale.h"
#include "render/ImageSource.h"
#include "render/Pipeline.h"
#include "tests/imaging/ImageTesting.h"
#include "tests/support/ColourDifference.h"
#include "tests/support/Mosaic.h"

namespace ql {
namespace {

using img::Image;
using img::Pixel;
using img::testing::identical;
using img::testing::make;
using img::testing::mean;

// A picture with smooth gradients, edges and fine detail, as a photograph has.
Image scene(int w = 240, int h = 160) {
    return make(w, h, [&](int x, int y) {
        const float u = float(x) / float(w), v = float(y) / float(h);
        const float edge = x > w / 2 ? 0.25f : 0;
        const float fine = ((x / 2 + y / 2) % 2) * 0.04f;
        return Pixel{0.05f + 0.5f * u + edge + fine, 0.1f + 0.4f * v + fine, 0.3f * (1 - u) + edge,
                     1};
    });
}

Image render(const Adjustments& a, const Image& image, bool isRAW = false,
             const Image& person = {}) {
    static const Pipeline pipeline;
    return pipeline.apply(a, image, isRAW, {}, true, person, nullptr, {});
}

Adjustments with(const std::function<void(Adjustments&)>& set) {
    Adjustments a;
    set(a);
    return a;
}

double luminance(const Pixel& p) {
    return img::luma(p.r, p.g, p.b);
}

TEST(PipelineGuards, NeutralValuesAddNoStage) {
    const Image in = scene();
    EXPECT_TRUE(render(Adjustments{}, in).sharesPixelsWith(in));
    EXPECT_TRUE(render(Adjustments{}, in, true).sharesPixelsWith(in));
    // White balance of non-RAW pictures acts in the decoder for RAW ones.
    EXPECT_TRUE(render(with([](auto& a) { a.temperature = 60, a.tint = -20; }), in, true)
                    .sharesPixelsWith(in));
    // A layer that is hidden or edits nothing, and local edits without a person mask, cost nothing.
    Adjustments layered;
    layered.layers.resize(2);
    layered.layers[0].visible = false;
    layered.layers[0].edit.exposure = 1;
    layered.people.exposure = 1;
    EXPECT_TRUE(render(layered, in).sharesPixelsWith(in));
    // Clarity 10 against dehaze −25 leaves no local contrast; only dehaze's cube remains.
    const auto cancelled = with([](auto& a) { a.dehaze = -25, a.clarity = 10; });
    const Pipeline pipeline;
    const Image cubeOnly = img::colorCube(in, {48, pipeline.lutData(LUTKey(cancelled)), true});
    EXPECT_TRUE(identical(render(cancelled, in), cubeOnly));
    EXPECT_FALSE(identical(render(with([](auto& a) { a.dehaze = -25; }), in), cubeOnly));
    EXPECT_FALSE(identical(render(with([](auto& a) { a.clarity = 10; }), in), in));
}

TEST(PipelineStages, WhiteBalanceByMatrixWarmsAndKeepsLuminance) {
    const Image grey = Image::filled(16, 16, {0.2f, 0.2f, 0.2f, 1});
    const Pixel warm = render(with([](auto& a) { a.temperature = 50; }), grey).at(3, 3);
    EXPECT_GT(warm.r, warm.b);
    EXPECT_NEAR(luminance(warm), 0.2, 1e-5);
    const Pixel magenta = render(with([](auto& a) { a.tint = 50; }), grey).at(3, 3);
    EXPECT_GT(magenta.r, magenta.g);
    EXPECT_GT(magenta.b, magenta.g);
    // a = 0.25: red gain e^0.25 / y with y the luma of (e^0.25, 1, e^-0.25).
    const double y = 0.2126 * std::exp(0.25) + 0.7152 + 0.0722 * std::exp(-0.25);
    EXPECT_NEAR(warm.r, 0.2 * std::exp(0.25) / y, 1e-5);
}

TEST(PipelineStages, ExposureIsInStopsAndPositiveHighlightsStayOutOfTheFilter) {
    const Image in = scene();
    const Image brighter = render(with([](auto& a) { a.exposure = 1; }), in);
    EXPECT_NEAR(brighter.at(10, 10).g, 2 * in.at(10, 10).g, 1e-5);
    // Positive highlights are pure cube work: each output pixel depends on its own input only,
    // so a pixel's result does not depend on its neighbours.
    const auto lift = with([](auto& a) { a.highlights = 60; });
    const Image flat = Image::filled(8, 8, in.at(200, 20));
    EXPECT_NEAR(render(lift, in).at(200, 20).g, render(lift, flat).at(3, 3).g, 1e-5);
    // Negative highlights use the surroundings.
    const auto pull = with([](auto& a) { a.highlights = -60; });
    EXPECT_GT(std::abs(render(pull, in).at(200, 20).g - render(pull, flat).at(3, 3).g), 1e-4);
}

TEST(PipelineStages, VignetteSignAndCentre) {
    const Image grey = Image::filled(300, 200, {0.3f, 0.3f, 0.3f, 1});
    const Image dark = render(with([](auto& a) { a.vignette = -100; }), grey);
    const Image light = render(with([](auto& a) { a.vignette = 100; }), grey);
    EXPECT_NEAR(dark.at(150, 100).g, 0.3f, 1e-6);
    EXPECT_LT(dark.at(1, 1).g, 0.15f);
    EXPECT_GT(light.at(1, 1).g, 0.4f);
    EXPECT_NEAR(dark.at(1, 1).g, dark.at(298, 198).g, 1e-3);
    // With grain, the vignette rides along in the grain's pass: the grain of the vignetted
    // picture, both ways and on both kinds of grain (the noise's own pixels, and enlarged).
    for (int w : {300, 3000}) {
        const Image in = scene(w, 200);
        for (double v : {-60.0, 40.0}) {
            const auto vignetted = with([v](auto& a) { a.vignette = v, a.vignetteMidpoint = 30; });
            Adjustments both = vignetted;
            both.grain = 50;
            EXPECT_TRUE(identical(render(both, in),
                                  Pipeline::addGrain(render(vignetted, in), 0.5, in.longEdge())))
                << w << " " << v;
        }
    }
}

TEST(PipelineStages, GrainIsDeterministicMonochromeAndDarkensSlightly) {
    const Image grey = Image::filled(320, 200, {0.2f, 0.2f, 0.2f, 1});
    const auto grainy = with([](auto& a) { a.grain = 60; });
    const Image a = render(grainy, grey), b = render(grainy, grey);
    EXPECT_TRUE(identical(a, b));
    EXPECT_FALSE(identical(a, grey));
    EXPECT_EQ(a.at(17, 9).r, a.at(17, 9).b);
    EXPECT_LT(mean(a, 1), 0.2);
    EXPECT_GT(mean(a, 1), 0.1);
    // A full-size render keeps the grain's size: neighbours correlate more at 2.5 × the edge.
    const Image big = Pipeline::addGrain(Image::filled(6000, 40, {0.2f, 0.2f, 0.2f, 1}), 0.6, 6000);
    double same = 0;
    for (int x = 0; x < 5000; ++x)
        same += std::abs(big.at(x, 20).g - big.at(x + 1, 20).g);
    double apart = 0;
    for (int x = 0; x < 5000; ++x)
        apart += std::abs(a.at(x % 319, 20).g - a.at(x % 319 + 1, 20).g);
    EXPECT_LT(same, apart * 0.7);
}

TEST(PipelineStages, NoiseReductionOnRawKeepsOnlyTheChromaBlur) {
    // Large enough that the chroma blur's radius (scaled by the long edge) is visible.
    const Image in = img::testing::noise(600, 400, 7, 0.1f, 0.5f);
    const auto nr = with([](auto& a) { a.noiseReduction = 60; });
    const Image raw = render(nr, in, true), plain = render(nr, in, false);
    EXPECT_FALSE(identical(raw, in));
    EXPECT_FALSE(identical(raw, plain));
    // The chroma blur keeps each pixel's luminance and pulls its colour toward its neighbours'.
    double lumaShift = 0, chroma = 0, chromaIn = 0;
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 600; ++x) {
            const Pixel p = raw.at(x, y), q = in.at(x, y);
            lumaShift += std::abs(luminance(p) - luminance(q));
            chroma += std::abs(p.r - p.b), chromaIn += std::abs(q.r - q.b);
        }
    EXPECT_LT(lumaShift / (600 * 400), 0.01);
    EXPECT_LT(chroma, 0.7 * chromaIn);
}

TEST(PipelineStages, PeopleAndBackgroundFollowThePersonMask) {
    const Image in = scene();
    const Image mask = make(240, 160, [](int x, int) {
        const float v = x < 120 ? 1.f : 0.f;
        return Pixel{v, v, v, 1};
    });
    const auto edit = with([](auto& a) { a.people.exposure = 1, a.background.exposure = -1; });
    const Image out = render(edit, in, false, mask);
    EXPECT_NEAR(out.at(20, 80).g, 2 * in.at(20, 80).g, 1e-5);
    EXPECT_NEAR(out.at(220, 80).g, 0.5 * in.at(220, 80).g, 1e-5);
    // A mask at the size the people were found at is stretched over the picture.
    const Image small = make(60, 40, [](int x, int) {
        const float v = x < 30 ? 1.f : 0.f;
        return Pixel{v, v, v, 1};
    });
    const Image stretched = render(edit, in, false, small);
    EXPECT_NEAR(stretched.at(20, 80).g, 2 * in.at(20, 80).g, 1e-5);
    EXPECT_NEAR(stretched.at(220, 80).g, 0.5 * in.at(220, 80).g, 1e-5);
    // Pixel 119's centre lies at 119.5 / 4 − 0.5 = 29.375 on the mask: 0.625 of the people's edit.
    EXPECT_NEAR(stretched.at(119, 80).g, (2 * 0.625 + 0.5 * 0.375) * in.at(119, 80).g, 1e-5);
}

TEST(PipelineStages, AHandedOverPictureRendersAsASharedOne) {
    // Every stage that can work in its input's pixels, at once: a handed-over picture must give
    // the same floats, and a shared one must come back untouched.
    const auto edit = with([](auto& a) {
        a.temperature = 20, a.exposure = 0.4, a.highlights = -40, a.shadows = 30;
        a.contrast = 20, a.clarity = 25, a.texture = 30, a.dehaze = 10;
        a.people.exposure = 0.3, a.people.clarity = 20, a.background.saturation = -30;
        a.noiseReduction = 40, a.sharpening = 50, a.vignette = -30, a.grain = 20;
    });
    const Image mask = make(120, 80, [](int x, int y) {
        const float v = std::clamp(1.5f - std::hypot(x - 60.0f, y - 45.0f) / 25, 0.0f, 1.0f);
        return Pixel{v, v, v, 1};
    });
    const Image shared = scene(), original = scene();
    const Image fromShared = render(edit, shared, false, mask);
    EXPECT_TRUE(identical(shared, original));
    EXPECT_FALSE(identical(fromShared, original));
    static const Pipeline pipeline;
    const Image handedOver = pipeline.apply(edit, scene(), false, {}, true, mask, nullptr, {});
    EXPECT_TRUE(identical(handedOver, fromShared));
}

TEST(PipelineStages, ALocalExposureComesFirstWhereverItRidesAlong) {
    // The exposure of a local edit is folded into a later step's pass; the picture must be the
    // one of an exposure pass followed by the rest of the edit.
    const Image in = scene();
    const std::vector<std::function<void(LocalEdit&)>> rests = {
        [](LocalEdit& e) { e.clarity = 40; },
        [](LocalEdit& e) { e.saturation = -50, e.contrast = 30; },
        [](LocalEdit& e) { e.temperature = 30, e.clarity = -20; },
        [](LocalEdit& e) { e.shadows = 40; },
    };
    for (size_t i = 0; i < rests.size(); ++i) {
        LocalEdit exposure, rest;
        exposure.exposure = 0.7;
        rests[i](rest);
        LocalEdit both = rest;
        both.exposure = exposure.exposure;
        const Image expected =
            Pipeline::local(Pipeline::local(in, exposure, 240, {}), rest, 240, {});
        EXPECT_LT(img::testing::maxDifference(Pipeline::local(in, both, 240, {}), expected), 1e-5f)
            << i;
    }
}

TEST(PipelineBadInput, FarOutOfRangeValuesGiveAFinitePicture) {
    const Image in = scene(64, 48);
    Adjustments a;
    a.exposure = 1e9;
    a.contrast = -1e300;
    a.highlights = NAN;
    a.shadows = INFINITY;
    a.clarity = 1e12;
    a.texture = -1e12;
    a.sharpening = 1e9;
    a.noiseReduction = 1e9;
    a.vignette = NAN;
    a.grain = 1e9;
    a.curves.master = {{NAN, 0.5}, {0.5, INFINITY}, {0.2, 0.9}};
    a.curves.red = {};
    a.curves.green = {{0.5, 0.5}};
    a.mixHue[2] = 1e9;
    a.gradeShadows = {1e300, 1e9, -1e9};
    a.people.exposure = 1e9;
    const Image mask = Image::filled(64, 48, {1, 1, 1, 1});
    const Image out = render(a, in, false, mask);
    ASSERT_EQ(out.width(), 64);
    for (size_t i = 0; i < out.pixelCount() * 4; ++i)
        ASSERT_TRUE(std::isfinite(out.data()[i])) << i;
}

TEST(PipelineCube, OneEntryCacheBakedOnceAcrossThreads) {
    const Pipeline pipeline;
    const LUTKey curve(with([](auto& a) { a.contrast = 30; }));
    const LUTKey other(with([](auto& a) { a.contrast = 31; }));
    std::vector<CubeData> seen(4);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&, i] { seen[size_t(i)] = pipeline.lutData(curve); });
    for (auto& t : threads)
        t.join();
    for (const auto& s : seen)
        EXPECT_EQ(s, seen[0]);
    ASSERT_EQ(seen[0]->size(), 48u * 48u * 48u * 4u);
    // An exposure change leaves the key alone, so the cube is not rebaked.
    EXPECT_EQ(pipeline.lutData(LUTKey(with([](auto& a) { a.contrast = 30, a.exposure = 2; }))),
              seen[0]);
    const CubeData next = pipeline.lutData(other);
    EXPECT_NE(next, seen[0]);
    EXPECT_NE(pipeline.lutData(curve), seen[0]);  // one entry: the first cube was dropped
}

TEST(ColourDifference, AgreesWithPublishedPairs) {
    using testing::deltaE2000;
    EXPECT_NEAR(deltaE2000({50, 2.6772, -79.7751}, {50, 0, -82.7485}), 2.0425, 1e-4);
    EXPECT_NEAR(deltaE2000({50, 0, 0}, {50, -1, 2}), 2.3669, 1e-4);
    EXPECT_NEAR(deltaE2000({50, 2.5, 0}, {73, 25, -18}), 27.1492, 1e-4);
    EXPECT_NEAR(deltaE2000({60.2574, -34.0099, 36.2677}, {60.4626, -34.1751, 39.4387}), 1.2644,
                1e-4);
}

// The edits a photographer makes every day, scale-dependent stages included.
std::vector<std::pair<std::string, Adjustments>> typicalEdits() {
    return {
        {"tone", with([](auto& a) {
             a.exposure = 0.4, a.contrast = 20, a.highlights = -30, a.shadows = 30;
             a.whites = 10, a.blacks = -10, a.vibrance = 20;
             a.curves.master = {{0, 0}, {0.25, 0.22}, {0.75, 0.8}, {1, 1}};
         })},
        {"presence", with([](auto& a) { a.clarity = 40, a.texture = 30, a.dehaze = 15; })},
        {"detail", with([](auto& a) { a.noiseReduction = 40, a.sharpening = 60; })},
        {"vignette", with([](auto& a) { a.vignette = -40, a.vignetteMidpoint = 40; })},
        {"geometry", with([](auto& a) {
             a.quarterTurns = 1, a.rotation = 2.5, a.perspectiveVertical = 15;
             a.crop = CropRect{0.1, 0.15, 0.7, 0.6};
         })},
        {"lens", with([](auto& a) {
             a.lens.distortion = 30, a.lens.vignette = 40, a.lens.caRed = 20;
             a.lens.purple = 50;
         })},
    };
}

void expectPreviewMatchesExport(const std::string& what, const Image& full, bool isRAW,
                                const Image& preview) {
    ASSERT_LT(preview.longEdge(), full.longEdge()) << what;
    const Pipeline pipeline;
    for (const auto& [name, edit] : typicalEdits()) {
        const Image fromPreview = pipeline.apply(edit, preview, isRAW, {}, true, {}, nullptr, {});
        const Image fromFull =
            img::resize(pipeline.apply(edit, full, isRAW, {}, true, {}, nullptr, {}),
                        fromPreview.width(), fromPreview.height());
        // Edits that move pixels resample at two scales and crop to whole pixels of each, which
        // places detail up to half a proxy pixel apart: they are held to their look, after a
        // blur of two proxy pixels.
        const bool moves = name == "geometry" || name == "lens";
        const auto soft = [&](const Image& im) {
            return moves ? img::gaussianBlur(im, {2.0f}) : im;
        };
        const auto d = testing::compare(soft(fromPreview), soft(fromFull));
        EXPECT_LE(d.mean, 1.0) << what << " " << name;
        EXPECT_LE(d.p99, 3.0) << what << " " << name;
    }
}

TEST(PreviewAndExport, AgreeOnRealPhotos) {
    // Event photos at their native detail, tiled to a camera's size: the proxy is 2400 pixels
    // and the full picture 2.5 times larger, as with a 24-megapixel camera.
    const Image full = testing::sampleMosaic(
        6000, 4000,
        {"party_crowd_indoor.jpg", "three_men_night_flash.jpg", "event_hall_group.jpg"});
    expectPreviewMatchesExport("event mosaic", full, false, img::resize(full, 2400, 1600));
}

}  // namespace
}  // namespace ql
