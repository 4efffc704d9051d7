// Opening photos: RAW development and white balance on DNG files the tests write, orientation,
// proxies and caches, the plain formats, and damaged files.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "imaging/codec/JpegCodec.h"
#include "imaging/raw/WhiteBalance.h"
#include "render/ImageSource.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

using testing::DngSpec;
using testing::TempDir;

DngSpec canonSpec(int w, int h) {
    return testing::apscCameraSpec(w, h);
}

img::CameraCalibration calibrationOf(const DngSpec& spec) {
    img::CameraCalibration c;
    c.colorMatrix1 = spec.colorMatrix1;
    c.illuminant1 = 2856;
    c.colorMatrix2 = spec.colorMatrix2;
    c.illuminant2 = 6504;
    return c;
}

// A grey card lit by the given light: the camera sees the light's own neutral.
testing::CameraScene greyUnder(const img::CameraCalibration& c, img::TemperatureTint light,
                               float level = 0.3f) {
    const auto n = img::cameraNeutral(c, img::chromaticity(light));
    return [=](int, int) {
        return std::array<float, 3>{float(n[0]) * level, float(n[1]) * level, float(n[2]) * level};
    };
}

std::array<double, 3> meanRGB(const img::Image& image) {
    std::array<double, 3> sum{};
    for (int y = image.height() / 4; y < image.height() * 3 / 4; ++y)
        for (int x = image.width() / 4; x < image.width() * 3 / 4; ++x) {
            const img::Pixel p = image.at(x, y);
            sum[0] += p.r, sum[1] += p.g, sum[2] += p.b;
        }
    const double n = double(image.width() / 2) * double(image.height() / 2);
    return {sum[0] / n, sum[1] / n, sum[2] / n};
}

TEST(RawSource, AsShotWhiteBalanceKeepsGreyGreyAndHigherKelvinRendersWarmer) {
    TempDir dir;
    DngSpec spec = canonSpec(96, 64);
    const img::CameraCalibration cal = calibrationOf(spec);
    const img::TemperatureTint light{4300, 8};
    spec.asShotNeutral = img::cameraNeutral(cal, img::chromaticity(light));
    testing::writeDng(dir.file("grey.dng"), spec, greyUnder(cal, light));

    ImageSource source(dir.file("grey.dng"), 2400);
    ASSERT_TRUE(source.isRAW());
    EXPECT_NEAR(source.asShotTemperature(), 4300, 4300 * 0.005);
    EXPECT_NEAR(source.asShotTint(), 8, 0.5);

    const auto asShot = meanRGB(source.previewBase(Adjustments{}));
    EXPECT_NEAR(asShot[0] / asShot[1], 1, 0.02);
    EXPECT_NEAR(asShot[2] / asShot[1], 1, 0.02);

    Adjustments warmer;
    warmer.rawTemperature = 6500;
    const auto w = meanRGB(source.previewBase(warmer));
    EXPECT_GT(w[0] / w[2], 1.15 * asShot[0] / asShot[2]);
    Adjustments cooler;
    cooler.rawTemperature = 3000;
    const auto c = meanRGB(source.previewBase(cooler));
    EXPECT_LT(c[0] / c[2], asShot[0] / asShot[2] / 1.15);
    // An explicit white balance equal to the as-shot one decodes to the same colours.
    Adjustments same;
    same.rawTemperature = source.asShotTemperature(), same.rawTint = source.asShotTint();
    const auto s = meanRGB(source.previewBase(same));
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(s[size_t(i)], asShot[size_t(i)], 0.003);
}

TEST(RawSource, EveryMosaicPatternPutsColoursInTheirPlace) {
    TempDir dir;
    for (const char* cfa : {"RGGB", "BGGR", "GRBG", "GBRG"}) {
        DngSpec spec;  // camera sees linear sRGB; neutral white balance
        spec.width = 80, spec.height = 40, spec.cfa = cfa, spec.asShotNeutral = {1, 1, 1};
        const std::string path = dir.file(std::string(cfa) + ".dng");
        testing::writeDng(path, spec, [](int x, int) {
            return x < 40 ? std::array<float, 3>{0.6f, 0.08f, 0.08f}
                          : std::array<float, 3>{0.08f, 0.08f, 0.6f};
        });
        ImageSource source(path, 2400);
        const img::Image full = source.fullBase(Adjustments{});
        ASSERT_EQ(full.width(), 80) << cfa;
        const img::Pixel left = full.at(20, 20), right = full.at(60, 20);
        EXPECT_GT(left.r, 4 * left.b) << cfa;
        EXPECT_GT(right.b, 4 * right.r) << cfa;
        EXPECT_NEAR(left.r, 0.6, 0.06) << cfa;
    }
}

TEST(RawSource, PortraitOrientationSwapsTheSizeAndTurnsThePixels) {
    TempDir dir;
    DngSpec spec;
    spec.width = 64, spec.height = 48, spec.orientation = 6, spec.asShotNeutral = {1, 1, 1};
    // A bright block at the sensor's top-left corner.
    testing::writeDng(dir.file("portrait.dng"), spec, [](int x, int y) {
        const float v = x < 16 && y < 16 ? 0.8f : 0.05f;
        return std::array<float, 3>{v, v, v};
    });
    ImageSource source(dir.file("portrait.dng"), 2400);
    EXPECT_EQ(source.orientation(), 6);
    EXPECT_EQ(source.fullSize(), (PixelSize{48, 64}));
    const img::Image full = source.fullBase(Adjustments{});
    ASSERT_EQ(full.width(), 48);
    ASSERT_EQ(full.height(), 64);
    // A quarter turn clockwise carries the top-left corner to the top-right.
    EXPECT_GT(full.at(40, 6).g, 0.5);
    EXPECT_LT(full.at(6, 6).g, 0.2);
}

TEST(RawSource, ProxyIsScaledDownNeverUpAndCachedByItsKey) {
    TempDir dir;
    DngSpec spec = canonSpec(640, 480);
    testing::writeDng(dir.file("cache.dng"), spec, [](int x, int y) {
        return std::array<float, 3>{0.2f + x * 1e-4f, 0.3f, 0.2f + y * 1e-4f};
    });
    ImageSource small(dir.file("cache.dng"), 200);
    EXPECT_EQ(small.previewBase(Adjustments{}).width(), 200);
    EXPECT_EQ(small.previewBase(Adjustments{}).height(), 150);
    ImageSource large(dir.file("cache.dng"), 1000);
    EXPECT_EQ(large.previewBase(Adjustments{}).width(), 640);

    ImageSource source(dir.file("cache.dng"), 300);
    Adjustments a;
    source.previewBase(a);
    a.exposure = 1.5;
    a.contrast = 40;
    source.previewBase(a);
    EXPECT_EQ(source.decodeCount(), 1) << "sliders after the decode must not decode again";
    a.noiseReduction = 30;
    source.previewBase(a);
    EXPECT_EQ(source.decodeCount(), 2);

    // Full-size cache: two keys, the least recently used one goes.
    Adjustments k1, k2, k3;
    k2.rawTemperature = 4000;
    k3.rawTemperature = 7000;
    const int before = source.decodeCount();
    source.fullBaseCached(k1);
    source.fullBaseCached(k2);
    source.fullBaseCached(k1);  // hit: k1 is now the most recent
    EXPECT_EQ(source.decodeCount(), before + 2);
    source.fullBaseCached(k3);  // pushes out k2
    source.fullBaseCached(k1);  // still cached
    EXPECT_EQ(source.decodeCount(), before + 3);
    source.fullBaseCached(k2);
    EXPECT_EQ(source.decodeCount(), before + 4);
}

TEST(RawSource, NeutralSearchFindsTheLightOfATintedGreyCard) {
    TempDir dir;
    DngSpec spec = canonSpec(120, 80);
    const img::CameraCalibration cal = calibrationOf(spec);
    spec.asShotNeutral = img::cameraNeutral(cal, img::chromaticity({5500, 0}));
    const img::TemperatureTint light{3300, 14};
    testing::writeDng(dir.file("card.dng"), spec, greyUnder(cal, light));
    ImageSource source(dir.file("card.dng"), 2400);
    const auto found = source.rawNeutral({}, meanRGB);
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->temperature, 3300, 3300 * 0.02);
    EXPECT_NEAR(found->tint, 14, 3);
}

TEST(RawSource, LensProfileFollowsTheRecordWhereLensfunKnowsTheLens) {
    TempDir dir;
    DngSpec spec = canonSpec(300, 200);
    spec.lensModel = "Canon EF-S 18-55mm f/3.5-5.6 IS";
    spec.focalLength = 18, spec.fNumber = 3.5;
    spec.asShotNeutral = {1, 1, 1};
    testing::writeDng(dir.file("lens.dng"), spec, [](int x, int y) {
        const float v = (x / 10 + y / 10) % 2 ? 0.5f : 0.1f;
        return std::array<float, 3>{v, v, v};
    });
    ImageSource known(dir.file("lens.dng"), 2400);
    EXPECT_TRUE(known.lensProfileSupported());
    EXPECT_TRUE(known.lensProfileDefault());
    Adjustments on, off;
    on.lens.profile = true;
    off.lens.profile = false;
    const img::Image corrected = known.fullBase(on), plain = known.fullBase(off);
    double difference = 0;
    for (int x = 0; x < 300; ++x)
        difference += std::abs(corrected.at(x, 2).g - plain.at(x, 2).g);
    EXPECT_GT(difference, 1.0) << "the profile must change the frame's edge";

    spec.lensModel = "Nonexistent 12-345mm f/0.7";
    testing::writeDng(dir.file("unknown.dng"), spec, {});
    ImageSource unknown(dir.file("unknown.dng"), 2400);
    EXPECT_FALSE(unknown.lensProfileSupported());
}

TEST(RawSource, NoiseDefaultsRiseWithIsoAndColourNeverBelowNineTenths) {
    TempDir dir;
    int previous = -1;
    float previousLuma = -1;
    for (int iso : {100, 800, 6400}) {
        DngSpec spec = canonSpec(32, 32);
        spec.iso = iso;
        const std::string path = dir.file("iso" + std::to_string(iso) + ".dng");
        testing::writeDng(path, spec, {});
        ImageSource source(path, 2400);
        const auto d = source.rawNoiseDefaults();
        EXPECT_GE(d.color, 0.9f);
        EXPECT_LE(d.luma, 1.0f);
        if (previous >= 0) {
            EXPECT_GT(d.luma, previousLuma) << iso;
        }
        previous = iso, previousLuma = d.luma;
    }
}

// Plain files --------------------------------------------------------------------------------

std::string writeJpeg(const TempDir& dir, const std::string& name, int w, int h, int orientation) {
    img::Image image(w, h);
    const std::vector<uint8_t> rgb = testing::quadrantRGB(w, h);
    const std::vector<uint8_t> jpeg = testing::encodeJpeg(w, h, rgb, 95);
    const std::vector<uint8_t> tagged =
        orientation >= 0 ? testing::withApp1(jpeg, testing::exifWithOrientation(orientation))
                         : jpeg;
    const std::string path = dir.file(name);
    testing::writeBytes(path, tagged);
    return path;
}

TEST(PlainSource, OrientationValuesZeroToNine) {
    TempDir dir;
    for (int o = 0; o <= 9; ++o) {
        ImageSource source(writeJpeg(dir, "o" + std::to_string(o) + ".jpg", 40, 20, o), 2400);
        const int expected = o >= 1 && o <= 8 ? o : 1;
        EXPECT_EQ(source.orientation(), expected);
        const bool swapped = expected >= 5;
        EXPECT_EQ(source.fullSize(), swapped ? (PixelSize{20, 40}) : (PixelSize{40, 20})) << o;
        const img::Image full = source.fullBase(Adjustments{});
        EXPECT_EQ(full.width(), source.fullSize().width) << o;
        // Where the stored top-left (red) quadrant ends up.
        const int w = full.width(), h = full.height();
        const bool redRight = expected == 2 || expected == 3 || expected == 6 || expected == 7;
        const bool redBottom = expected == 3 || expected == 4 || expected == 7 || expected == 8;
        const img::Pixel p = full.at(redRight ? w - 3 : 2, redBottom ? h - 3 : 2);
        EXPECT_GT(p.r, 3 * p.b) << "orientation " << o;
    }
}

TEST(PlainSource, ProxyIsAntialiasedAndNeverEnlarged) {
    TempDir dir;
    const std::string path = writeJpeg(dir, "small.jpg", 320, 240, -1);
    ImageSource big(path, 1000);
    EXPECT_EQ(big.previewBase(Adjustments{}).width(), 320);
    ImageSource small(path, 100);
    const img::Image proxy = small.previewBase(Adjustments{});
    EXPECT_EQ(proxy.width(), 100);
    EXPECT_EQ(proxy.height(), 75);
    small.previewBase(Adjustments{});
    EXPECT_EQ(small.decodeCount(), 1);
}

TEST(PlainSource, RawNameWithPlainContentOpensAsPlainAndJunkThrows) {
    TempDir dir;
    const std::string jpeg = writeJpeg(dir, "photo.jpg", 64, 48, 1);
    std::filesystem::copy_file(jpeg, dir.file("photo.raf"));
    ImageSource renamed(dir.file("photo.raf"), 2400);
    EXPECT_FALSE(renamed.isRAW());
    EXPECT_EQ(renamed.fullSize(), (PixelSize{64, 48}));

    testing::writeBytes(dir.file("notes.jpg"), {'h', 'e', 'l', 'l', 'o'});
    testing::writeBytes(dir.file("empty.png"), {});
    for (const std::string name : {"notes.jpg", "empty.png", "missing.tif", ""}) {
        try {
            ImageSource s(dir.file(name), 2400);
            ADD_FAILURE() << name << " opened";
        } catch (const ImageSourceError& e) {
            EXPECT_NE(std::string(e.what()).find(name), std::string::npos) << e.what();
        }
    }
}

TEST(PlainSource, RealFilesOfEveryFormat) {
    const std::string samples = QL_SAMPLES_DIR;
    struct Case {
        const char* name;
        PixelSize size;
        bool raw;
    };
    for (const Case& c :
         {Case{"iphone7.heic", {4032, 3024}, false}, Case{"sample_16bit.tif", {290, 442}, false},
          Case{"colorchart_canon550d.dng", {1734, 1156}, true},
          Case{"event_hall_group.jpg", {1280, 960}, false}}) {
        ImageSource source(samples + "/" + c.name, 800);
        EXPECT_EQ(source.isRAW(), c.raw) << c.name;
        EXPECT_EQ(source.fullSize(), c.size) << c.name;
        const img::Image proxy = source.previewBase(Adjustments{});
        ASSERT_FALSE(proxy.empty()) << c.name;
        EXPECT_EQ(proxy.longEdge(), std::min(800, c.size.longEdge())) << c.name;
        const auto mean = meanRGB(proxy);
        for (double m : mean)
            EXPECT_TRUE(m > 0.005 && m < 1) << c.name << " mean " << m;
    }
}

}  // namespace
}  // namespace ql
