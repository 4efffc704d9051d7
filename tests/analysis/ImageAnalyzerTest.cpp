// The measures of a picture, on synthetic buffers whose answers are known.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "analysis/Histogram.h"
#include "analysis/Hsl.h"
#include "analysis/ImageAnalyzer.h"
#include "imaging/SrgbTransfer.h"

namespace ql {
namespace {

using Colour = std::array<float, 3>;

/// A buffer whose pixels are given in encoded values.
PixelBuffer bufferOf(int width, int height, const std::function<Colour(int, int)>& encoded) {
    PixelBuffer b;
    b.width = width, b.height = height;
    b.pixels.resize(size_t(width) * height * 4);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const Colour c = encoded(x, y);
            float* p = b.pixels.data() + (size_t(y) * width + x) * 4;
            for (int i = 0; i < 3; ++i)
                p[i] = img::srgbDecode(c[i]);
            p[3] = 1;
        }
    return b;
}

PixelBuffer flat(Colour c, int width = 64, int height = 48) {
    return bufferOf(width, height, [c](int, int) { return c; });
}

TEST(ImageStats, GrayCardOnePixelAndWhite) {
    const ImageStats gray = ImageAnalyzer::stats(flat({0.5f, 0.5f, 0.5f}));
    EXPECT_EQ(gray.meanSaturation, 0);
    EXPECT_EQ(gray.skin, 0);
    EXPECT_DOUBLE_EQ(gray.castR, 1);
    EXPECT_DOUBLE_EQ(gray.castB, 1);
    EXPECT_NEAR(gray.p50, 0.5, 1e-5);
    EXPECT_EQ(gray.clippedHighlights, 0);

    const PixelBuffer one = flat({0.3f, 0.6f, 0.2f}, 1, 1);
    const ImageStats s = ImageAnalyzer::stats(one);
    EXPECT_EQ(s.p1, s.p99);
    EXPECT_TRUE(ImageAnalyzer::dominantColors(one, 5).empty());

    const ImageStats white = ImageAnalyzer::stats(flat({1, 1, 1}));
    EXPECT_EQ(white.clippedHighlights, 1);
    EXPECT_EQ(white.clippedShadows, 0);

    const ImageStats none = ImageAnalyzer::stats(PixelBuffer{});
    EXPECT_EQ(none.p50, 0);
    EXPECT_EQ(none.castR, 1);
}

TEST(ImageStats, PercentilesTakeTheTruncatedIndexWithoutInterpolation) {
    // 100 grey levels, one per pixel: percentile q is element trunc(q × 99).
    const PixelBuffer b = bufferOf(100, 1, [](int x, int) {
        return Colour{x / 100.f, x / 100.f, x / 100.f};
    });
    const ImageStats s = ImageAnalyzer::stats(b);
    EXPECT_NEAR(s.p50, 0.49, 1e-5);
    EXPECT_NEAR(s.p99, 0.98, 1e-5);
    EXPECT_NEAR(s.p05, 0.00, 1e-5);
    EXPECT_NEAR(s.p995, 0.98, 1e-5);
    EXPECT_NEAR(s.p10, 0.09, 1e-5);
    EXPECT_NEAR(s.mean, 0.495, 1e-5);
    // Up to 0.015 counts as crushed: levels 0 and 0.01.
    EXPECT_NEAR(s.clippedShadows, 0.02, 1e-9);
}

TEST(ImageStats, ColourBoxes) {
    const Colour skin{0.8f, 0.6f, 0.5f}, sky{0.35f, 0.6f, 0.9f}, leaf{0.2f, 0.6f, 0.2f};
    EXPECT_EQ(ImageAnalyzer::stats(flat(skin)).skin, 1);
    EXPECT_EQ(ImageAnalyzer::stats(flat(leaf)).foliage, 1);
    // Sky counts only in the upper half: a lake that mirrors it does not.
    const auto skyAt = [&](bool top) {
        return bufferOf(40, 40, [&, top](int, int y) {
            return (y < 20) == top ? sky : Colour{0.5f, 0.5f, 0.5f};
        });
    };
    EXPECT_NEAR(ImageAnalyzer::stats(skyAt(true)).sky, 0.5, 1e-9);
    EXPECT_EQ(ImageAnalyzer::stats(skyAt(false)).sky, 0);
    // Saturation: HSL S of (0.8, 0.6, 0.5) is 0.3 / (2 - 1.3) with L 0.65.
    EXPECT_NEAR(ImageAnalyzer::stats(flat(skin)).meanSaturation, 0.3 / 0.7, 1e-4);
}

TEST(NeutralEstimate, FollowsACastAndBlendsNearNeutrals) {
    // A warm cast on a grey scene: red high, blue low.
    const auto n = ImageAnalyzer::neutralEstimate(flat({0.6f, 0.5f, 0.4f}));
    const double r = img::srgbDecode(0.6f) / img::srgbDecode(0.5f);
    const double b = img::srgbDecode(0.4f) / img::srgbDecode(0.5f);
    EXPECT_EQ(n[1], 1);
    EXPECT_NEAR(n[0], r, 1e-4);  // near-neutral and gray-world agree on a flat picture
    EXPECT_NEAR(n[2], b, 1e-4);

    // A saturated red half and a bright grey half: the grey dominates the blend, so the
    // estimate stays much nearer neutral than gray-world alone.
    const PixelBuffer mixed = bufferOf(40, 40, [](int x, int) {
        return x < 20 ? Colour{0.8f, 0.1f, 0.1f} : Colour{0.7f, 0.7f, 0.7f};
    });
    const auto m = ImageAnalyzer::neutralEstimate(mixed);
    const double grayWorldR = (img::srgbDecode(0.8f) + img::srgbDecode(0.7f)) /
                              (img::srgbDecode(0.1f) + img::srgbDecode(0.7f));
    EXPECT_NEAR(m[0], 0.35 * grayWorldR + 0.65 * 1.0, 1e-4);

    // Nothing qualifies in a black picture.
    const auto black = ImageAnalyzer::neutralEstimate(flat({0, 0, 0}));
    EXPECT_EQ(black[0], 1);
    EXPECT_EQ(black[2], 1);
}

TEST(FaceInfo, MeasuresTheMiddleAndDropsTooSmallFaces) {
    // A face whose border is dark hair and whose middle is skin.
    const PixelBuffer b = bufferOf(100, 100, [](int x, int y) {
        const bool middle = x >= 35 && x < 65 && y >= 34 && y < 66;
        return middle ? Colour{0.8f, 0.6f, 0.5f} : Colour{0.1f, 0.1f, 0.1f};
    });
    const auto faces =
        ImageAnalyzer::faceInfo({{0.25, 0.25, 0.5, 0.5}, {0.5, 0.5, 0.004, 0.004}}, b);
    ASSERT_EQ(faces.size(), 1u);
    EXPECT_NEAR(faces[0].luma, lumaOf(0.8, 0.6, 0.5), 1e-4);
    EXPECT_NEAR(faces[0].hue, 20, 0.1);
    EXPECT_EQ(faces[0].rect.width, 0.5);  // the rectangle as found, not the shrunk one
    // A face outside the frame leaves nothing to sample.
    EXPECT_TRUE(ImageAnalyzer::faceInfo({{1.2, 0.2, 0.3, 0.3}}, b).empty());
}

TEST(Sharpness, EdgesScoreAndFlatAreasDont) {
    EXPECT_NEAR(ImageAnalyzer::sharpness(flat({0.5f, 0.5f, 0.5f}), {}), 0, 1e-6);
    const PixelBuffer checker = bufferOf(64, 64, [](int x, int y) {
        const float v = (x + y) % 2 ? 0.9f : 0.1f;
        return Colour{v, v, v};
    });
    const PixelBuffer soft = bufferOf(64, 64, [](int x, int) {
        const float v = 0.3f + 0.4f * float(x) / 63;
        return Colour{v, v, v};
    });
    const double sharp = ImageAnalyzer::sharpness(checker, {});
    EXPECT_GT(sharp, 2.0);
    EXPECT_LT(ImageAnalyzer::sharpness(soft, {}), 0.01);
    // Regions average; a region outside the picture is ignored.
    EXPECT_NEAR(ImageAnalyzer::sharpness(checker, {{0, 0, 1, 1}, {2, 2, 0.1, 0.1}}), sharp, 1e-3);
}

TEST(DominantColors, ClustersShareAndNames) {
    const PixelBuffer b = bufferOf(100, 100, [](int x, int y) {
        if (x < 70) return Colour{0.85f, 0.1f, 0.1f};
        return y < 98 ? Colour{0.1f, 0.3f, 0.8f} : Colour{0.5f, 0.5f, 0.5f};
    });
    const auto colours = ImageAnalyzer::dominantColors(b, 5);
    ASSERT_EQ(colours.size(), 2u);  // repeated starting centres end empty and are dropped
    EXPECT_EQ(colours[0].name, "đỏ");
    EXPECT_NEAR(colours[0].share, 0.7, 0.01);
    EXPECT_NEAR(colours[0].r, 0.85, 1e-3);
    EXPECT_EQ(colours[1].name, "xanh dương");
    EXPECT_GT(colours[0].share, colours[1].share);
}

TEST(ColorName, TableInOrder) {
    EXPECT_EQ(ImageAnalyzer::colorName(0.95, 0.95, 0.9), "trắng");
    EXPECT_EQ(ImageAnalyzer::colorName(0.05, 0.1, 0.05), "đen");
    EXPECT_EQ(ImageAnalyzer::colorName(0.5, 0.5, 0.5), "xám");
    EXPECT_EQ(ImageAnalyzer::colorName(0.7, 0.7, 0.72), "xám sáng");
    EXPECT_EQ(ImageAnalyzer::colorName(0.9, 0.5, 0.2), "cam");
    EXPECT_EQ(ImageAnalyzer::colorName(0.5, 0.3, 0.1), "nâu");
    EXPECT_EQ(ImageAnalyzer::colorName(0.9, 0.8, 0.1), "vàng");
    EXPECT_EQ(ImageAnalyzer::colorName(0.2, 0.7, 0.2), "xanh lá");
    EXPECT_EQ(ImageAnalyzer::colorName(0.1, 0.6, 0.6), "xanh ngọc");
    EXPECT_EQ(ImageAnalyzer::colorName(0.6, 0.2, 0.8), "tím");
    EXPECT_EQ(ImageAnalyzer::colorName(0.9, 0.3, 0.6), "hồng");
    EXPECT_EQ(ImageAnalyzer::colorName(0.8, 0.1, 0.15), "đỏ");  // hue ≥ 345 wraps to red
}

TEST(PixelBufferMake, ShrinksNeverEnlargesAndAverages) {
    const img::Image big = img::Image::filled(1000, 500, {0.25f, 0.5f, 0.75f, 1});
    const auto b = PixelBuffer::make(big, 640);
    ASSERT_TRUE(b);
    EXPECT_EQ(b->width, 640);
    EXPECT_EQ(b->height, 320);
    const auto same = PixelBuffer::make(img::Image::filled(30, 20, {0, 0, 0, 1}), 640);
    ASSERT_TRUE(same);
    EXPECT_EQ(same->width, 30);
    EXPECT_FALSE(PixelBuffer::make(img::Image{}, 640));
    const auto mean = b->average({0.5, 0.5}, 3);
    EXPECT_NEAR(mean[0], 0.25, 1e-4);
    EXPECT_NEAR(mean[2], 0.75, 1e-4);
    // A corner window is clamped to the picture, not padded with black.
    EXPECT_NEAR(b->average({0, 0}, 10)[1], 0.5, 1e-4);
}

TEST(Histogram, ClippedSpikesNeitherScaleNorHide) {
    QImage image(200, 100, QImage::Format_RGB32);
    image.fill(QColor(128, 128, 128));
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 150; ++x)
            image.setPixelColor(x, y, QColor(255, 255, 255));
    const auto h = Histogram::compute(image);
    ASSERT_TRUE(h);
    EXPECT_TRUE(h->clippedHighlights);
    EXPECT_FALSE(h->clippedShadows);
    EXPECT_FLOAT_EQ(h->green[128], 1);  // the tallest inner bin sets the scale
    EXPECT_FLOAT_EQ(h->green[255], 1);  // the larger clipped spike is clamped, not the scale
    EXPECT_FALSE(Histogram::compute(QImage()));
}

}  // namespace
}  // namespace ql
