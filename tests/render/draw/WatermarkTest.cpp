// The watermark stamp and what it is drawn with: the Qt image crossing, the text picture, and
// the logo or text placed in each corner.
#include <gtest/gtest.h>

#include <QFont>
#include <QPainterPath>
#include <climits>
#include <cmath>

#include "imaging/codec/OutputSamples.h"
#include "imaging/codec/PngCodec.h"
#include "imaging/draw/QtImage.h"
#include "imaging/draw/TextImage.h"
#include "render/Watermark.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

using img::Image;
using img::Pixel;

struct Box {
    int left = INT_MAX, top = INT_MAX, right = -1, bottom = -1, count = 0;  // right, bottom past
};

// Where the red channel passes `threshold`.
Box brightBox(const Image& image, float threshold) {
    Box b;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.at(x, y).r > threshold) {
                b.left = std::min(b.left, x), b.right = std::max(b.right, x + 1);
                b.top = std::min(b.top, y), b.bottom = std::max(b.bottom, y + 1);
                ++b.count;
            }
    return b;
}

TEST(QtImage, EightBitPremultipliedSrgbAndBack) {
    // Linear 0.2159 is sRGB code 128; under half alpha, 64. Out of range values are clamped.
    Image image(3, 1);
    image.set(0, 0, {0.2159f, 0, 1, 1});
    image.set(1, 0, {0.108f, 0.108f, 0.108f, 0.5f});
    image.set(2, 0, {3, -1, 0.2159f, 1.5f});
    const QImage q = img::toQImage(image);
    ASSERT_EQ(q.format(), QImage::Format_RGBA8888_Premultiplied);
    const uchar* p = q.constScanLine(0);
    EXPECT_EQ(std::vector<int>(p, p + 12),
              (std::vector<int>{128, 0, 255, 255, 64, 64, 64, 128, 255, 0, 128, 255}));

    // A wide row goes several pixels at a time: each pixel as it comes out alone, whatever its
    // neighbours, up to the ragged end.
    Image row(27, 2);
    for (int x = 0; x < row.width(); ++x)
        for (int y = 0; y < 2; ++y)
            row.set(x, y, {x / 26.0f, 1 - x / 26.0f, (x * 7 % 11) / 10.0f, 1});
    row.set(10, 1, {0.1f, 0.2f, 0.3f, 0.5f});
    row.set(12, 1, {NAN, 2, -1, 1});
    const QImage wide = img::toQImage(row);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < row.width(); ++x) {
            Image one(1, 1);
            one.set(0, 0, row.at(x, y));
            const QImage alone = img::toQImage(one);
            EXPECT_EQ(
                std::vector<int>(wide.constScanLine(y) + 4 * x, wide.constScanLine(y) + 4 * x + 4),
                std::vector<int>(alone.constScanLine(0), alone.constScanLine(0) + 4))
                << x << ", " << y;
        }
    EXPECT_EQ(wide.constScanLine(0)[4 * 13 + 1], img::srgb8(1 - 13 / 26.0f));

    QImage straight(1, 1, QImage::Format_ARGB32);
    straight.setPixel(0, 0, qRgba(255, 128, 0, 102));  // alpha 0.4, not premultiplied
    const Pixel s = img::fromQImage(straight).at(0, 0);
    EXPECT_NEAR(s.r, 0.4, 1e-3);
    EXPECT_NEAR(s.g, 0.2158 * 0.4, 1e-3);
    EXPECT_NEAR(s.a, 0.4, 1e-3);

    // Colour under graded alpha survives the round trip within 8 bits.
    Image graded(16, 16);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) {
            const float a = (y + 1) / 16.0f;
            graded.set(x, y, {a * x / 15.0f, a * 0.5f, a * (1 - x / 15.0f), a});
        }
    const Image back = img::fromQImage(img::toQImage(graded));
    ASSERT_EQ(back.pixelCount(), graded.pixelCount());
    for (size_t i = 0; i < graded.pixelCount() * 4; ++i)
        ASSERT_NEAR(back.data()[i], graded.data()[i], 0.012) << i;
}

TEST(TextImage, OutlineBoundsPlusInsetWithTheMarks) {
    QFont font(QStringLiteral("Noto Sans"));
    font.setWeight(QFont::Medium);
    font.setPixelSize(40);
    QPainterPath path;
    path.addText(0, 0, font, QStringLiteral("Studio Ánh Sáng"));
    const Image image = img::textImage("Studio Ánh Sáng", 40);
    EXPECT_NEAR(image.width(), path.boundingRect().width() + 24, 1.0);
    EXPECT_NEAR(image.height(), path.boundingRect().height() + 24, 1.0);

    // The dot under "ị" reaches below the baseline; the mark, not the baseline, sits at the
    // inset (9 pixels at 30).
    const Image marked = img::textImage("Giáo xứ Tân Định", 30);
    EXPECT_GT(marked.height(), img::textImage("Giao xu Tan Dinh", 30).height() + 3);
    const Box ink = brightBox(marked, 0.3f);
    EXPECT_NEAR(marked.height() - ink.bottom, 9, 1.5);
    EXPECT_NEAR(ink.top, 9, 1.5);
    EXPECT_NEAR(ink.left, 9, 1.5);

    for (double height : {40.0, 0.0, double(NAN), 1e9})
        EXPECT_TRUE(img::textImage(height == 40 ? " " : "A", height).empty()) << height;
}

TEST(TextImage, WhiteTextOverAShadowBelow) {
    const Image image = img::textImage("HIH", 40);
    const Box text = brightBox(image, 0.5f);
    ASSERT_GT(text.count, 0);
    const Pixel core = image.at((text.left + text.right) / 2, (text.top + text.bottom) / 2);
    EXPECT_GT(core.a, 0.95);
    EXPECT_NEAR(core.r, core.a, 1e-6);  // white

    // Black shadow just below the glyphs, more of it than just above them, at most 60 %.
    double below = 0, above = 0;
    for (int x = 0; x < image.width(); ++x)
        below += image.at(x, text.bottom + 2).a, above += image.at(x, text.top - 3).a;
    EXPECT_GT(below, 1.5 * above);
    const Pixel shade = image.at((text.left + text.right) / 2, text.bottom + 2);
    EXPECT_GT(shade.a, 0.05);
    EXPECT_LE(shade.a, 0.6f);
    EXPECT_LT(shade.r, 0.01);
}

class WatermarkTest : public ::testing::Test {
  protected:
    void SetUp() override { img::writePng8(Image::filled(40, 20, {1, 1, 1, 1}), logo); }
    Watermark logoMark(Watermark::Corner corner, double size = 0.2) const {
        Watermark w;
        w.imagePath = logo;
        w.text = "stands in for the logo";
        w.corner = corner;
        w.size = size;
        w.opacity = 1;
        return w;
    }
    testing::TempDir dir;
    std::string logo = dir.file("logo.png");
};

TEST_F(WatermarkTest, CornersAndMargins) {
    // 300 × 200: the logo is 0.2 × 300 = 60 wide, 30 high; the margin 0.03 × 200 = 6.
    const Image black = Image::filled(300, 200, {0, 0, 0, 1});
    const struct {
        Watermark::Corner corner;
        int x, y;
    } cases[] = {{Watermark::Corner::bottomRight, 234, 164},
                 {Watermark::Corner::bottomLeft, 6, 164},
                 {Watermark::Corner::topRight, 234, 6},
                 {Watermark::Corner::topLeft, 6, 6},
                 {Watermark::Corner::center, 120, 85}};
    for (const auto& c : cases) {
        SCOPED_TRACE(int(c.corner));
        const auto o = overlay(logoMark(c.corner), 300, 200);
        ASSERT_TRUE(o);
        EXPECT_EQ(o->x, c.x);
        EXPECT_EQ(o->y, c.y);
        const Box b = brightBox(stamp(black, logoMark(c.corner)), 0.5f);
        EXPECT_EQ(b.left, c.x);
        EXPECT_EQ(b.top, c.y);
        EXPECT_EQ(b.right, c.x + 60);
        EXPECT_EQ(b.bottom, c.y + 30);
        EXPECT_EQ(b.count, 60 * 30);
    }
}

TEST_F(WatermarkTest, LogoWidthFollowsTheLongEdge) {
    const auto portrait = overlay(logoMark(Watermark::Corner::topLeft, 0.25), 200, 300);
    ASSERT_TRUE(portrait);
    EXPECT_EQ(portrait->image.width(), 75);
    EXPECT_NEAR(portrait->image.height(), 37.5, 0.5);

    // Absurd sizes are held to four long edges. A logo that loads but comes out under a pixel
    // gives nothing: the text does not stand in for it.
    const auto huge = overlay(logoMark(Watermark::Corner::center, 1e9), 100, 50);
    ASSERT_TRUE(huge);
    EXPECT_LE(huge->image.width(), 400);
    for (double size : {0.0, double(NAN), 0.001, -1.0})
        EXPECT_FALSE(overlay(logoMark(Watermark::Corner::center, size), 100, 50)) << size;
}

TEST_F(WatermarkTest, TextHeightFallbackAndBlank) {
    Watermark w;
    w.text = "© Nhà ảnh Bến Thành";
    w.size = 0.2;
    // 1000 × 600: 600 × 0.2 × 0.35 = 42 pixels; no size at all gives the 12-pixel minimum.
    const auto o = overlay(w, 1000, 600);
    ASSERT_TRUE(o);
    EXPECT_EQ(o->image.height(), img::textImage(w.text, 42).height());
    EXPECT_EQ(o->image.width(), img::textImage(w.text, 42).width());
    for (double size : {0.0, double(NAN)}) {
        Watermark small = w;
        small.size = size;
        ASSERT_TRUE(overlay(small, 1000, 600));
        EXPECT_EQ(overlay(small, 1000, 600)->image.height(), img::textImage(w.text, 12).height());
    }
    Watermark huge = w;
    huge.size = 1e12;
    ASSERT_TRUE(overlay(huge, 300, 200));
    EXPECT_LE(overlay(huge, 300, 200)->image.width(), 1200);

    // A missing or broken logo file leaves the text.
    testing::writeBytes(dir.file("broken.png"), {0x89, 'P', 'N', 'G', 1, 2, 3});
    for (const std::string& path : {dir.file("missing.png"), dir.file("broken.png")}) {
        Watermark fallback = w;
        fallback.imagePath = path;
        ASSERT_TRUE(overlay(fallback, 1000, 600)) << path;
        EXPECT_EQ(overlay(fallback, 1000, 600)->image.width(), o->image.width());
    }
    for (const char* blank : {"", "   ", " \t\n"}) {
        w.text = blank;
        EXPECT_FALSE(overlay(w, 1000, 600)) << '"' << blank << '"';
    }
}

TEST_F(WatermarkTest, OpacityScalesEveryChannel) {
    Watermark w;
    w.text = "Mờ";  // text and shadow: pixels of every colour and alpha
    w.opacity = 1;
    const auto full = overlay(w, 600, 400);
    w.opacity = 0.25;
    const auto faint = overlay(w, 600, 400);
    ASSERT_TRUE(full && faint);
    ASSERT_EQ(faint->image.pixelCount(), full->image.pixelCount());
    for (size_t i = 0; i < full->image.pixelCount() * 4; ++i)
        ASSERT_NEAR(faint->image.data()[i], 0.25f * full->image.data()[i], 1e-6) << i;
    for (double opacity : {0.0, -1.0, double(NAN)}) {
        w.opacity = opacity;
        EXPECT_FALSE(overlay(w, 600, 400)) << opacity;
    }
}

TEST_F(WatermarkTest, StampLaysTheLogoOverThePicture) {
    const Image picture = Image::filled(100, 80, {0.2f, 0.4f, 0.6f, 1});
    Watermark w = logoMark(Watermark::Corner::topLeft);
    w.opacity = 0.5;
    const Image stamped = stamp(picture, w);
    const Pixel inside = stamped.at(10, 5);
    EXPECT_NEAR(inside.r, 0.6, 1e-5);
    EXPECT_NEAR(inside.g, 0.7, 1e-5);
    EXPECT_NEAR(inside.b, 0.8, 1e-5);
    EXPECT_NEAR(inside.a, 1, 1e-5);
    EXPECT_EQ(stamped.at(60, 40), picture.at(60, 40));

    // A stamp wider than the picture is cut off at its edges.
    const Image covered =
        stamp(Image::filled(40, 10, {0, 0, 0, 1}), logoMark(Watermark::Corner::bottomRight, 1.5));
    ASSERT_EQ(covered.width(), 40);
    ASSERT_EQ(covered.height(), 10);
    EXPECT_GT(covered.at(0, 9).r, 0.99);

    w.imagePath.reset();
    w.text = " ";
    EXPECT_TRUE(stamp(picture, w).sharesPixelsWith(picture));
}

}  // namespace
}  // namespace ql
