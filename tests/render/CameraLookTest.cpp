// The camera look: the cube fitted from the plain rendering to the camera's JPEG, the search for
// the largest embedded JPEG in a RAW container, and the look learnt when a RAW file opens.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>

#include "imaging/ColorCube.h"
#include "imaging/LanczosScale.h"
#include "imaging/SrgbTransfer.h"
#include "imaging/codec/JpegCodec.h"
#include "render/CameraLook.h"
#include "render/ImageSource.h"
#include "render/Pipeline.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"
#include "tests/support/Mosaic.h"

namespace ql {
namespace {

using testing::TempDir;

img::Image photo(int width, int height) {
    return testing::sampleMosaic(
        width, height,
        {"party_crowd_indoor.jpg", "three_men_night_flash.jpg", "event_hall_group.jpg"});
}

img::Image noise(int width, int height) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<float> level(0.05f, 0.8f);
    img::Image image(width, height);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            image.set(x, y, {level(rng), level(rng), level(rng), 1});
    return image;
}

// A camera's rendering, in encoded sRGB: a saturating matrix, then an S-shaped tone curve.
std::array<double, 3> cameraRendering(std::array<double, 3> c) {
    static constexpr double m[3][3] = {
        {1.25, -0.18, -0.07}, {-0.10, 1.18, -0.08}, {-0.04, -0.22, 1.26}};
    std::array<double, 3> out{};
    for (size_t k = 0; k < 3; ++k) {
        double v = m[k][0] * c[0] + m[k][1] * c[1] + m[k][2] * c[2];
        v = std::clamp(v, 0.0, 1.0);
        out[k] = v + 0.5 * (v * v * (3 - 2 * v) - v) + 0.03;
    }
    return out;
}

img::Image rendered(const img::Image& linear) {
    img::Image out(linear.width(), linear.height());
    for (int y = 0; y < linear.height(); ++y)
        for (int x = 0; x < linear.width(); ++x) {
            const img::Pixel p = linear.at(x, y);
            const auto c =
                cameraRendering({img::srgbEncode(p.r), img::srgbEncode(p.g), img::srgbEncode(p.b)});
            out.set(x, y,
                    {img::srgbDecode(float(std::clamp(c[0], 0.0, 1.0))),
                     img::srgbDecode(float(std::clamp(c[1], 0.0, 1.0))),
                     img::srgbDecode(float(std::clamp(c[2], 0.0, 1.0))), 1});
        }
    return out;
}

// Mean over the inside of the frame of the channels' absolute differences, encoded sRGB.
double encodedDifference(const img::Image& a, const img::Image& b) {
    double sum = 0;
    size_t n = 0;
    for (int y = a.height() / 8; y < a.height() * 7 / 8; ++y)
        for (int x = a.width() / 8; x < a.width() * 7 / 8; ++x) {
            const img::Pixel p = a.at(x, y), q = b.at(x, y);
            sum += (std::abs(img::srgbEncode(p.r) - img::srgbEncode(q.r)) +
                    std::abs(img::srgbEncode(p.g) - img::srgbEncode(q.g)) +
                    std::abs(img::srgbEncode(p.b) - img::srgbEncode(q.b))) /
                   3;
            ++n;
        }
    return sum / double(n);
}

// 8-bit sRGB rows of a linear picture, as a camera stores its preview.
std::vector<uint8_t> rgb8(const img::Image& linear) {
    std::vector<uint8_t> rgb;
    rgb.reserve(linear.pixelCount() * 3);
    for (size_t i = 0; i < linear.pixelCount(); ++i)
        for (int k = 0; k < 3; ++k)
            rgb.push_back(uint8_t(std::lround(
                std::clamp(img::srgbEncode(linear.data()[i * 4 + size_t(k)]), 0.0f, 1.0f) * 255)));
    return rgb;
}

const std::vector<float>& nodes(const img::CubeData& cube) {
    return *cube;
}

TEST(CameraLookFit, IdenticalPicturesGiveTheIdentityCube) {
    const img::Image plain = photo(600, 400);
    const CameraLook::Fit fit = CameraLook::fit(plain, plain);
    ASSERT_TRUE(fit.lut);
    EXPECT_EQ(fit.before, 0);
    EXPECT_LT(fit.error, 1e-4);
    ASSERT_EQ(nodes(fit.lut).size(), size_t(17 * 17 * 17 * 4));
    double worst = 0;
    for (int b = 0; b < 17; ++b)
        for (int g = 0; g < 17; ++g)
            for (int r = 0; r < 17; ++r) {
                const float* n = &nodes(fit.lut)[size_t((b * 17 + g) * 17 + r) * 4];
                worst = std::max({worst, std::abs(n[0] - r / 16.0), std::abs(n[1] - g / 16.0),
                                  std::abs(n[2] - b / 16.0)});
                ASSERT_EQ(n[3], 1);
            }
    EXPECT_LT(worst, 1e-3);

    // The same pictures give the same cube, bit for bit.
    const CameraLook::Fit again = CameraLook::fit(plain, plain);
    EXPECT_EQ(nodes(again.lut), nodes(fit.lut));
}

TEST(CameraLookFit, LearnsAMatrixAndToneCurveFromARealPhoto) {
    const img::Image plain = photo(900, 600);
    const img::Image camera = rendered(plain);
    const CameraLook::Fit fit = CameraLook::fit(plain, camera);
    ASSERT_TRUE(fit.lut);
    EXPECT_GT(fit.before, 0.03) << "the rendering must differ visibly to test anything";
    EXPECT_LT(fit.error, 0.25 * fit.before);

    // The engine's own cube stage with the learnt nodes reproduces the camera's picture: node
    // order and sRGB encoding agree with how the pipeline applies the cube.
    const img::Image looked = img::colorCube(plain, {17, fit.lut, true});
    EXPECT_LT(encodedDifference(looked, camera), 0.25 * encodedDifference(plain, camera));

    // A camera picture at another resolution of the same frame fits as well.
    const img::Image smaller = img::resize(camera, 450, 300);
    const CameraLook::Fit scaled = CameraLook::fit(plain, smaller);
    ASSERT_TRUE(scaled.lut);
    EXPECT_LT(scaled.error, 0.25 * scaled.before);
}

TEST(CameraLookFit, ColoursNeverSeenComeFromTheAffineBase) {
    // Only dark colours (encoded 0.02 to 0.22: cube cells 0 to 3) under a curved rendering.
    std::mt19937 rng(5);
    std::uniform_real_distribution<float> level(0.02f, 0.22f);
    img::Image plain(400, 300), camera(400, 300);
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 400; ++x) {
            const float e[3] = {level(rng), level(rng), level(rng)};
            plain.set(x, y,
                      {img::srgbDecode(e[0]), img::srgbDecode(e[1]), img::srgbDecode(e[2]), 1});
            const auto curved = [&](int k) {
                return img::srgbDecode(0.7f * std::pow(e[k], 0.9f) + 0.05f * e[(k + 1) % 3]);
            };
            camera.set(x, y, {curved(0), curved(1), curved(2), 1});
        }
    const CameraLook::Fit fit = CameraLook::fit(plain, camera);
    ASSERT_TRUE(fit.lut);
    EXPECT_LT(fit.error, 0.25 * fit.before);
    const auto at = [&](int r, int g, int b, int k) {
        return double(nodes(fit.lut)[size_t((b * 17 + g) * 17 + r) * 4 + size_t(k)]);
    };
    // Three relaxation steps from the last node with data (4) reach node 7; beyond, along any
    // axis, the cube is the affine map itself: its second differences vanish.
    double worstFar = 0, nearData = 0;
    for (int b = 0; b < 17; ++b)
        for (int g = 0; g < 17; ++g)
            for (int r = 1; r < 16; ++r)
                for (int k = 0; k < 3; ++k) {
                    const double second =
                        at(r - 1, g, b, k) - 2 * at(r, g, b, k) + at(r + 1, g, b, k);
                    if (r >= 9 || g >= 8 || b >= 8)
                        worstFar = std::max(worstFar, std::abs(second));
                    else if (r <= 4 && g <= 4 && b <= 4)
                        nearData = std::max(nearData, std::abs(second));
                }
    EXPECT_LT(worstFar, 1e-6);
    EXPECT_GT(nearData, 1e-3) << "the residuals must shape the cube where the data is";
}

TEST(CameraLookFit, FailsForAnotherFormatOrTooSmallAPicture) {
    const img::Image plain = photo(600, 400);                                // 3:2
    EXPECT_FALSE(CameraLook::fit(plain, img::resize(plain, 600, 450)).lut);  // 4:3
    EXPECT_FALSE(CameraLook::fit(plain, img::resize(plain, 600, 393)).lut);  // 1.527: just off
    EXPECT_TRUE(CameraLook::fit(plain, img::resize(plain, 600, 396)).lut);   // 1.515: within
    EXPECT_FALSE(CameraLook::fit(plain, img::Image{}).lut);
    // A panorama whose short edge falls below 33 pixels at the sample size.
    const img::Image strip = noise(1000, 100);
    EXPECT_FALSE(CameraLook::fit(strip, strip).lut);
    const img::Image wider = noise(1000, 104);
    EXPECT_TRUE(CameraLook::fit(wider, wider).lut);
}

// A 320 × 200 picture (no resampling, margin 12) blown everywhere except `valid` pixels inside
// the margins, `negative` pixels below black inside them and `border` pixels within the margins.
img::Image mostlyBlown(int valid, int negative, int border) {
    img::Image image = img::Image::filled(320, 200, {1.5f, 1.5f, 1.5f, 1});
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> level(0.02f, 0.9f);
    int x = 12, y = 12;
    const auto next = [&] {
        if (++x == 320 - 12) x = 12, ++y;
    };
    for (int i = 0; i < valid; ++i, next())
        image.set(x, y, {level(rng), level(rng), level(rng), 1});
    for (int i = 0; i < negative; ++i, next())
        image.set(x, y, {-0.01f, level(rng), level(rng), 1});
    for (int i = 0; i < border; ++i)
        image.set(i % 320, i / 320 % 12, {level(rng), level(rng), level(rng), 1});
    return image;
}

TEST(CameraLookFit, NeedsMoreThanTwoThousandUsableSamplesInsideTheMargins) {
    const img::Image enough = mostlyBlown(2001, 0, 0);
    EXPECT_TRUE(CameraLook::fit(enough, enough).lut);
    const img::Image short1 = mostlyBlown(2000, 0, 0);
    EXPECT_FALSE(CameraLook::fit(short1, short1).lut);
    const img::Image belowBlack = mostlyBlown(2000, 600, 0);
    EXPECT_FALSE(CameraLook::fit(belowBlack, belowBlack).lut);
    const img::Image atTheEdge = mostlyBlown(2000, 0, 3000);
    EXPECT_FALSE(CameraLook::fit(atTheEdge, atTheEdge).lut);

    // A sample clipped in the camera's picture alone does not count either.
    img::Image cameraClipped = enough;
    cameraClipped.set(12, 12, {1, 0.5f, 0.5f, 1});
    EXPECT_FALSE(CameraLook::fit(enough, cameraClipped).lut);

    const img::Image dark = img::Image::filled(300, 200, {-0.001f, -0.001f, -0.001f, 1});
    EXPECT_FALSE(CameraLook::fit(dark, dark).lut);
}

// A JPEG of `w` × `h`: noise when `busy`, otherwise one flat colour.
std::vector<uint8_t> jpeg(int w, int h, bool busy, uint8_t level = 128) {
    std::vector<uint8_t> rgb(size_t(w) * size_t(h) * 3, level);
    std::mt19937 rng(uint32_t(w * 7919 + h));
    if (busy)
        for (uint8_t& v : rgb)
            v = uint8_t(rng());
    return testing::encodeJpeg(w, h, rgb, 90);
}

// `jpeg` with the size its frame header states replaced.
std::vector<uint8_t> claiming(std::vector<uint8_t> jpeg, int w, int h) {
    for (size_t i = 2; i + 9 < jpeg.size(); ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xC0) {
            jpeg[i + 5] = uint8_t(h >> 8), jpeg[i + 6] = uint8_t(h);
            jpeg[i + 7] = uint8_t(w >> 8), jpeg[i + 8] = uint8_t(w);
            return jpeg;
        }
    ADD_FAILURE() << "no baseline frame header";
    return jpeg;
}

// A RAW-like container: junk, then each part in turn with junk between.
std::string container(const TempDir& dir, const std::string& name,
                      const std::vector<std::vector<uint8_t>>& parts) {
    std::mt19937 rng(11);
    std::vector<uint8_t> bytes;
    const auto junk = [&](size_t n) {
        for (size_t i = 0; i < n; ++i)
            bytes.push_back(uint8_t(rng() % 0xD0));  // never a marker byte
    };
    junk(5000);
    for (const auto& part : parts) {
        bytes.insert(bytes.end(), part.begin(), part.end());
        junk(777);
    }
    const std::string path = dir.file(name);
    testing::writeBytes(path, bytes);
    return path;
}

TEST(EmbeddedJpeg, TheLargestPictureWinsAndATieKeepsTheFirst) {
    TempDir dir;
    const auto small = jpeg(64, 48, true), big = jpeg(400, 300, false), other = jpeg(100, 75, true);
    EXPECT_EQ(CameraLook::embeddedJPEG(container(dir, "a.raw", {small, big, other})), big);
    EXPECT_EQ(CameraLook::embeddedJPEG(container(dir, "b.raw", {big, small})), big);
    // By pixels, not bytes: the busy picture is far longer than the flat one.
    const auto busyMedium = jpeg(300, 300, true);
    ASSERT_GT(busyMedium.size(), big.size());
    EXPECT_EQ(CameraLook::embeddedJPEG(container(dir, "c.raw", {busyMedium, big})), big);
    // Same pixel count: a later picture must be strictly larger.
    const auto wide = jpeg(200, 100, false, 40), tall = jpeg(100, 200, false, 200);
    EXPECT_EQ(CameraLook::embeddedJPEG(container(dir, "d.raw", {wide, tall})), wide);
    // A preview whose own metadata holds a thumbnail: the outer picture is the larger.
    const auto nested = testing::withApp1(big, small);
    EXPECT_EQ(CameraLook::embeddedJPEG(container(dir, "e.raw", {nested})), nested);
}

TEST(EmbeddedJpeg, CutAndLyingPicturesArePassedOver) {
    TempDir dir;
    const auto medium = jpeg(160, 120, true), big = jpeg(800, 600, true);
    const std::vector<uint8_t> cut(big.begin(), big.begin() + std::ptrdiff_t(big.size() / 2));
    EXPECT_EQ(CameraLook::embeddedJPEG(container(dir, "cut.raw", {medium, cut})), medium);
    // Cut at the very end of the file, and a bare start marker.
    std::vector<uint8_t> tail = testing::readBytes(container(dir, "x.raw", {medium}));
    tail.insert(tail.end(), cut.begin(), cut.end());
    testing::writeBytes(dir.file("tail.raw"), tail);
    EXPECT_EQ(CameraLook::embeddedJPEG(dir.file("tail.raw")), medium);
    tail.insert(tail.end(), {0xFF, 0xD8, 0xFF});
    testing::writeBytes(dir.file("marker.raw"), tail);
    EXPECT_EQ(CameraLook::embeddedJPEG(dir.file("marker.raw")), medium);

    // A small picture whose header claims 6000 × 4000 pixels.
    const auto liar = claiming(jpeg(64, 48, true), 6000, 4000);
    EXPECT_EQ(CameraLook::embeddedJPEG(container(dir, "liar.raw", {medium, liar})), medium);
    EXPECT_TRUE(CameraLook::embeddedJPEG(container(dir, "alone.raw", {liar})).empty());
    EXPECT_TRUE(CameraLook::decodeEmbedded(liar, 1).empty());
    // A picture that honestly holds few bytes for its size is fine.
    EXPECT_EQ(CameraLook::decodeEmbedded(jpeg(1200, 800, false), 1).width(), 600);
    EXPECT_TRUE(CameraLook::decodeEmbedded(cut, 1).empty());
}

TEST(EmbeddedJpeg, DozensOfSmallPicturesAndFilesWithoutAny) {
    TempDir dir;
    std::vector<std::vector<uint8_t>> parts;
    for (int i = 0; i < 60; ++i)
        parts.push_back(jpeg(16 + i, 16, true));
    parts.insert(parts.begin() + 30, jpeg(320, 240, true));
    EXPECT_EQ(CameraLook::embeddedJPEG(container(dir, "many.raw", parts)), parts[30]);

    EXPECT_TRUE(CameraLook::embeddedJPEG(container(dir, "junk.raw", {})).empty());
    EXPECT_TRUE(CameraLook::embeddedJPEG(dir.file("missing.raw")).empty());
    testing::writeBytes(dir.file("empty.raw"), {});
    EXPECT_TRUE(CameraLook::embeddedJPEG(dir.file("empty.raw")).empty());
    EXPECT_TRUE(CameraLook::embeddedJPEG(dir.path().string()).empty());
    EXPECT_TRUE(CameraLook::embeddedImage(dir.file("missing.raw"), 1).empty());
}

TEST(EmbeddedJpeg, DecodedForTheFitAndTurnedUpright) {
    const auto wide = jpeg(2560, 1280, false);
    const img::Image upright = CameraLook::decodeEmbedded(wide, 1);
    EXPECT_EQ(upright.width(), 320);
    EXPECT_EQ(upright.height(), 160);
    const img::Image turned = CameraLook::decodeEmbedded(wide, 6);
    EXPECT_EQ(turned.width(), 160);
    EXPECT_EQ(turned.height(), 320);
    EXPECT_EQ(CameraLook::decodeEmbedded(wide, 1, 1000).width(), 1280);
}

// A DNG whose sensor saw `scene` and whose preview is the camera's rendering of it.
void writeDngWithPreview(const std::string& path, const img::Image& scene, int orientation,
                         bool preview = true) {
    testing::DngSpec spec;  // its camera sees linear sRGB
    spec.width = scene.width(), spec.height = scene.height();
    spec.asShotNeutral = {1, 1, 1};
    spec.orientation = orientation;
    if (preview) {
        spec.previewWidth = scene.width(), spec.previewHeight = scene.height();
        spec.previewRGB = rgb8(rendered(scene));
    }
    testing::writeDng(path, spec, [&](int x, int y) {
        const img::Pixel p = scene.at(x, y);
        return std::array<float, 3>{p.r, p.g, p.b};
    });
}

TEST(CameraLookSource, ARawWithAPreviewOpensWithItsLookAsTheDefault) {
    TempDir dir;
    const img::Image scene = photo(720, 480);
    for (const int orientation : {1, 6}) {
        SCOPED_TRACE(orientation);
        const std::string path = dir.file("look.dng");
        writeDngWithPreview(path, scene, orientation);
        ImageSource source(path, 600);
        ASSERT_TRUE(source.isRAW());
        ASSERT_TRUE(source.cameraLUT());
        ASSERT_TRUE(source.cameraLookFit());
        EXPECT_LT(source.cameraLookFit()->after, 0.5 * source.cameraLookFit()->before);

        // The default record renders with the camera's look, the plain profile without it.
        const img::Image base = source.previewBase(Adjustments{});
        const img::Image camera = CameraLook::embeddedImage(path, source.orientation());
        const img::Image cameraAtBase = img::resize(camera, base.width(), base.height());
        const Pipeline pipeline;
        const img::Image looked =
            pipeline.apply(Adjustments{}, base, true, source.cameraLUT(), false, {}, nullptr, {});
        Adjustments plainProfile;
        plainProfile.profile = ColorProfile::apple;
        const img::Image plain =
            pipeline.apply(plainProfile, base, true, source.cameraLUT(), false, {}, nullptr, {});
        EXPECT_LT(encodedDifference(looked, cameraAtBase),
                  0.5 * encodedDifference(plain, cameraAtBase));
    }

    writeDngWithPreview(dir.file("bare.dng"), scene, 1, false);
    ImageSource bare(dir.file("bare.dng"), 600);
    EXPECT_FALSE(bare.cameraLUT());
    EXPECT_FALSE(bare.cameraLookFit());
}

TEST(CameraLookSource, APreviewOfAnotherFormatLeavesThePlainLook) {
    TempDir dir;
    testing::DngSpec spec;
    spec.width = 480, spec.height = 320;
    spec.previewWidth = 160, spec.previewHeight = 120;  // a 4:3 thumbnail of a 3:2 frame
    spec.previewRGB.assign(160 * 120 * 3, 90);
    testing::writeDng(dir.file("thumb.dng"), spec, [](int x, int y) {
        return std::array<float, 3>{0.1f + x * 1e-3f, 0.3f, 0.1f + y * 1e-3f};
    });
    ImageSource source(dir.file("thumb.dng"), 600);
    EXPECT_TRUE(source.isRAW());
    EXPECT_FALSE(source.cameraLUT());
    EXPECT_FALSE(source.previewBase(Adjustments{}).empty());
}

TEST(CameraLookSource, ARealSensorFileLearnsTheLookOfAJpegAddedToIt) {
    const std::string real = std::string(QL_SAMPLES_DIR) + "/colorchart_canon550d.dng";
    if (!std::filesystem::exists(real)) GTEST_SKIP() << "sample missing: " << real;
    // The file as published carries no preview.
    ImageSource plainFile(real, 1200);
    ASSERT_TRUE(plainFile.isRAW());
    EXPECT_FALSE(plainFile.cameraLUT());

    // With the camera's rendering of its own development appended, as a container would hold it.
    const img::Image camera = rendered(plainFile.previewBase(Adjustments{}));
    std::vector<uint8_t> bytes = testing::readBytes(real);
    const std::vector<uint8_t> preview = img::encodeJpeg(camera, {92, {}, {}});
    bytes.insert(bytes.end(), preview.begin(), preview.end());
    TempDir dir;
    testing::writeBytes(dir.file("chart.dng"), bytes);
    EXPECT_EQ(CameraLook::embeddedJPEG(dir.file("chart.dng")), preview);
    ImageSource source(dir.file("chart.dng"), 1200);
    ASSERT_TRUE(source.cameraLUT());
    EXPECT_LT(source.cameraLookFit()->after, 0.5 * source.cameraLookFit()->before);
}

}  // namespace
}  // namespace ql
