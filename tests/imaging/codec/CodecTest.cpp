// The plain formats: what goes in comes back, colour profiles are honoured, sizes are checked
// before anything is allocated.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "imaging/Orientation.h"
#include "imaging/SrgbTransfer.h"
#include "imaging/codec/DecodeError.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/InputColour.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/codec/OutputSamples.h"
#include "imaging/codec/PngCodec.h"
#include "imaging/codec/TiffCodec.h"
#include "tests/imaging/ImageTesting.h"
#include "tests/support/Fixtures.h"
#include "tests/support/HeifWriter.h"

namespace ql::img {
namespace {

using ql::testing::TempDir;

// A smooth opaque picture in linear light, with values spread over the whole range.
Image ramp(int w, int h) {
    return testing::make(w, h, [&](int x, int y) {
        return Pixel{srgbDecode(float(x) / float(w - 1)), srgbDecode(float(y) / float(h - 1)),
                     srgbDecode(0.5f * float(x + y) / float(w + h)), 1};
    });
}

// The largest difference after sRGB encoding, in 8-bit steps.
float encodedDifference(const Image& a, const Image& b) {
    if (a.width() != b.width() || a.height() != b.height()) return INFINITY;
    float worst = 0;
    for (size_t i = 0; i < a.pixelCount() * 4; ++i)
        worst = std::max(worst, std::abs(srgbEncode(a.data()[i]) - srgbEncode(b.data()[i])) * 255);
    return worst;
}

TEST(Codecs, WrittenFilesReadBackInEveryFormat) {
    TempDir dir;
    const Image original = ramp(97, 61);

    writeTiff16(original, dir.file("a.tif"));
    const Image tiff = decodeTiff(readFileBytes(dir.file("a.tif")));
    EXPECT_LT(encodedDifference(tiff, original), 0.02f) << "16 bits keep the values";

    writePng8(original, dir.file("a.png"));
    EXPECT_LE(encodedDifference(decodePng(readFileBytes(dir.file("a.png"))), original), 0.51f);

    writeJpeg(original, dir.file("a.jpg"), JpegWriteOptions{98, {}, {}});
    const std::vector<uint8_t> jpeg = readFileBytes(dir.file("a.jpg"));
    EXPECT_LT(encodedDifference(decodeJpeg(jpeg), original), 6.0f);
    const ImageHeader header = readImageHeader(jpeg);
    EXPECT_EQ(header.kind, FileKind::jpeg);
    EXPECT_EQ(header.width, 97);

    // Transparency survives PNG and 16-bit TIFF, premultiplied on the way in.
    const Image clear = Image::filled(8, 8, Pixel{0.25f, 0.125f, 0.05f, 0.5f});
    writePng8(clear, dir.file("clear.png"));
    writeTiff16(clear, dir.file("clear.tif"));
    for (const Image& back : {decodePng(readFileBytes(dir.file("clear.png"))),
                              decodeTiff(readFileBytes(dir.file("clear.tif")))}) {
        EXPECT_NEAR(back.at(3, 3).a, 0.5f, 0.003f);
        EXPECT_NEAR(back.at(3, 3).r, 0.25f, 0.004f);
    }

    // The same threads rule as every operation: no result depends on the thread count.
    testing::expectThreadIndependent([&](const Execution& e) { return decodeJpeg(jpeg, 1, e); });
}

// Whatever float a stage leaves, the 8-bit code is defined: NaN is black, not a wild index.
TEST(Codecs, EveryFloatHasAnEightBitCode) {
    const float values[] = {NAN, -INFINITY, -1, 0, 0.5f, 1, 2, INFINITY};
    const uint8_t expected[] = {0, 0, 0, 0, 188, 255, 255, 255};
    Image row(8, 1);
    for (int x = 0; x < 8; ++x)
        row.set(x, 0, {values[x], values[x], values[x], 1});
    uint8_t codes[8 * 3];
    toSrgb8(row.row(0), 8, codes, 3);
    for (int x = 0; x < 8; ++x) {
        EXPECT_EQ(codes[x * 3], expected[x]) << values[x];
        EXPECT_EQ(srgb8(values[x]), expected[x]) << values[x];
    }
}

TEST(Codecs, DctScaledDecodeAndItsChoice) {
    const Image original = ramp(400, 240);
    const std::vector<uint8_t> jpeg = encodeJpeg(original, JpegWriteOptions{90, {}, {}});
    EXPECT_EQ(decodeJpeg(jpeg, 4).width(), 100);
    EXPECT_EQ(decodeJpeg(jpeg, 8).height(), 30);
    EXPECT_EQ(jpegReductionFor(6000, 4000, 2400), 2);
    EXPECT_EQ(jpegReductionFor(6000, 4000, 360), 8);
    EXPECT_EQ(jpegReductionFor(4000, 6000, 3000), 2);
    EXPECT_EQ(jpegReductionFor(300, 200, 360), 1);
    EXPECT_EQ(decodeImage(jpeg, 120).width(), 200);
}

TEST(Codecs, EmbeddedProfilesAreConvertedIntoLinearSrgb) {
    const std::vector<uint8_t> icc = ql::testing::displayP3Profile();
    SampleLayout layout;
    const uint8_t red[3] = {255, 0, 0}, grey[3] = {128, 128, 128};
    float out[4];
    InputColour::fromIcc(icc, layout).convertRow(red, 1, out);
    // P3's red lies outside sRGB: more than full red, a little negative green and blue.
    EXPECT_NEAR(out[0], 1.2249f, 0.01f);
    EXPECT_NEAR(out[1], -0.0421f, 0.005f);
    EXPECT_NEAR(out[2], -0.0196f, 0.005f);
    InputColour::fromIcc(icc, layout).convertRow(grey, 1, out);
    EXPECT_NEAR(out[0], srgbDecode(128 / 255.0f), 0.002f);
    EXPECT_NEAR(out[2], out[0], 0.002f);
    // The colour box of a HEIF says the same thing without a profile.
    InputColour::displayP3(layout).convertRow(red, 1, out);
    EXPECT_NEAR(out[0], 1.2249f, 0.01f);
    // A damaged profile falls back to sRGB.
    const std::vector<uint8_t> junk(200, 7);
    InputColour::fromIcc(junk, layout).convertRow(red, 1, out);
    EXPECT_FLOAT_EQ(out[0], 1.0f);
    EXPECT_FLOAT_EQ(out[1], 0.0f);

    // Through a real file: a JPEG carrying the profile decodes with it.
    TempDir dir;
    const Image pureRed = Image::filled(16, 16, Pixel{1, 0, 0, 1});
    writeJpeg(pureRed, dir.file("p3.jpg"), JpegWriteOptions{100, {}, icc});
    EXPECT_GT(decodeJpeg(readFileBytes(dir.file("p3.jpg"))).at(8, 8).r, 1.15f);
}

TEST(Codecs, HeifDecodesWithItsSize) {
    const std::vector<uint8_t> rgb = ql::testing::quadrantRGB(64, 48);
    const std::vector<uint8_t> heic = ql::testing::encodeHeic(64, 48, rgb, 95);
    const ImageHeader h = readImageHeader(heic);
    EXPECT_EQ(h.kind, FileKind::heif);
    EXPECT_TRUE(h.upright);
    const Image image = decodeImage(heic);
    ASSERT_EQ(image.width(), 64);
    EXPECT_GT(image.at(5, 5).r, 3 * image.at(5, 5).b);  // the red quadrant
}

TEST(Codecs, AbsurdSizesAreRefusedFromTheHeader) {
    // A PNG signature and an IHDR claiming 100000 × 100000 pixels, and nothing else.
    std::vector<uint8_t> png = {0x89, 'P',  'N', 'G', '\r', '\n', 0x1A, '\n', 0,    0, 0,
                                13,   'I',  'H', 'D', 'R',  0,    1,    0x86, 0xA0, 0, 1,
                                0x86, 0xA0, 8,   2,   0,    0,    0,    0,    0,    0, 0};
    EXPECT_THROW(readImageHeader(png), DecodeError);
    EXPECT_THROW(decodePng(png), DecodeError);
    EXPECT_THROW(checkDimensions(65535, 65535), DecodeError);
    EXPECT_NO_THROW(checkDimensions(12000, 8000));
    EXPECT_THROW(readImageHeader(std::vector<uint8_t>{'G', 'I', 'F', '8'}), DecodeError);
}

TEST(Codecs, TruncatedFilesAreErrorsNotGreyPictures) {
    const std::vector<uint8_t> jpeg = encodeJpeg(ramp(200, 150), JpegWriteOptions{90, {}, {}});
    const std::vector<uint8_t> cut(jpeg.begin(), jpeg.begin() + long(jpeg.size() / 2));
    EXPECT_NO_THROW(readJpegHeader(cut));
    EXPECT_THROW(decodeJpeg(cut), DecodeError);
    // Encoding again straight from the samples fails the same way, whether the encoder waits on
    // a decoding thread (upright) or on the whole decode (turned, or one thread).
    EXPECT_THROW(reencodeJpeg(cut, 1, {}), DecodeError);
    EXPECT_THROW(reencodeJpeg(cut, 6, {}), DecodeError);
    EXPECT_THROW(reencodeJpeg(cut, 1, {}, Execution{1}), DecodeError);
    std::atomic<bool> cancel{true};
    EXPECT_FALSE(reencodeJpeg(jpeg, 1, {}, Execution{0, &cancel}).has_value());
    // A detailed picture cut in its middle: the encoder has written far more than a first output
    // buffer's worth when the decoder gives up.
    const std::vector<uint8_t> full =
        encodeJpeg(testing::noise(640, 480, 5), JpegWriteOptions{95, {}, {}});
    ASSERT_GT(full.size(), 200'000u);
    const std::vector<uint8_t> half(full.begin(), full.begin() + long(full.size() / 2));
    EXPECT_THROW(reencodeJpeg(half, 1, {}), DecodeError);
    EXPECT_THROW(reencodeJpeg(half, 3, {}), DecodeError);
    const auto whole = reencodeJpeg(full, 1, {});
    ASSERT_TRUE(whole.has_value());
    EXPECT_EQ(decodeJpeg(*whole).width(), 640);
    TempDir dir;
    writePng8(ramp(50, 40), dir.file("a.png"));
    std::vector<uint8_t> png = readFileBytes(dir.file("a.png"));
    png.resize(png.size() - 30);
    EXPECT_THROW(decodePng(png), DecodeError);
    EXPECT_THROW(readFileBytes(dir.path().string()), DecodeError);
}

TEST(Orientation, EveryValueTurnsTheCornerWhereExifSaysAndInvertsExactly) {
    const Image src = testing::make(3, 2, [](int x, int y) {
        return Pixel{float(x), float(y), 0, 1};
    });
    // Where the stored top-left pixel (0, 0) lands, by orientation.
    struct Where {
        int orientation, x, y;
    };
    for (const Where& w : {Where{1, 0, 0}, Where{2, 2, 0}, Where{3, 2, 1}, Where{4, 0, 1},
                           Where{5, 0, 0}, Where{6, 1, 0}, Where{7, 1, 2}, Where{8, 0, 2}}) {
        const Image out = orient(src, w.orientation);
        EXPECT_EQ(out.width(), swapsAxes(w.orientation) ? 2 : 3);
        EXPECT_EQ(out.at(w.x, w.y), (Pixel{0, 0, 0, 1})) << w.orientation;
    }
    // 6 and 8 undo each other; 2, 3, 4, 5 and 7 undo themselves.
    EXPECT_TRUE(testing::identical(orient(orient(src, 6), 8), src));
    for (int o : {2, 3, 4, 5, 7})
        EXPECT_TRUE(testing::identical(orient(orient(src, o), o), src)) << o;
    EXPECT_TRUE(orient(src, 0).sharesPixelsWith(src));
    EXPECT_EQ(normalizedOrientation(9), 1);
    const Image big = testing::noise(150, 70, 3);
    testing::expectThreadIndependent([&](const Execution& e) { return orient(big, 6, e); });
}

TEST(Orientation, APartIsCutAndTurnedAsTheCutTurned) {
    const Image src = testing::noise(150, 70, 5);
    const PixelRect part{37, 11, 66, 45};
    for (int o = 1; o <= 8; ++o)
        EXPECT_TRUE(testing::identical(orient(src, o, part), orient(crop(src, part), o))) << o;
    // Clipped to the picture; a part that misses it gives nothing.
    EXPECT_TRUE(testing::identical(orient(src, 6, {140, -5, 30, 20}),
                                   orient(crop(src, {140, 0, 10, 15}), 6)));
    EXPECT_TRUE(orient(src, 6, {150, 0, 5, 5}).empty());
    EXPECT_TRUE(orient(src, 1, {0, 0, 150, 70}).sharesPixelsWith(src));
    testing::expectThreadIndependent([&](const Execution& e) { return orient(src, 7, part, e); });
}

}  // namespace
}  // namespace ql::img
