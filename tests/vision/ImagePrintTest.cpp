#include "vision/ImagePrint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "imaging/CropRegion.h"
#include "imaging/ExposureAdjust.h"
#include "imaging/codec/ImageDecode.h"
#include "tests/support/Fixtures.h"

namespace ql::vision {
namespace {

const std::vector<std::string> samples = {"three_men_night_flash.jpg", "event_hall_group.jpg",
                                          "party_crowd_indoor.jpg", "sample_16bit.tif"};

img::Image loadSample(const std::string& name) {
    return img::decodeImage(ql::testing::readBytes(std::string(QL_SAMPLES_DIR) + "/" + name));
}

// The image with `fraction` of its width and height cut off: from the left and top when `leading`,
// else from the right and bottom.
img::Image reframed(const img::Image& image, double fraction, bool leading) {
    const int dx = int(image.width() * fraction), dy = int(image.height() * fraction);
    return img::crop(image,
                     {leading ? dx : 0, leading ? dy : 0, image.width() - dx, image.height() - dy});
}

// Sensor-like noise on the 8-bit codes.
Bitmap noisy(Bitmap b, float sigma, unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<float> n(0, sigma);
    for (uint8_t& v : b.rgb)
        v = uint8_t(std::clamp(std::lround(v + n(rng)), 0L, 255L));
    return b;
}

TEST(ImagePrint, FramesOfOneBurstStayBelowSameShotAndDifferentPhotosAbove) {
    std::vector<ImagePrint> prints;
    for (const std::string& name : samples) {
        SCOPED_TRACE(name);
        const img::Image image = loadSample(name);
        ASSERT_FALSE(image.empty());
        const ImagePrint print = ImagePrint::of(Bitmap::of(image, 2048));
        prints.push_back(print);

        const std::vector<Bitmap> burst = {
            Bitmap::of(reframed(image, 0.03, true), 2048),
            Bitmap::of(reframed(image, 0.03, false), 2048),
            Bitmap::of(img::exposureAdjust(image, {0.3f}), 2048),
            // An exposure bracket is a burst too.
            Bitmap::of(img::exposureAdjust(image, {-1.0f}), 2048),
            Bitmap::of(img::exposureAdjust(image, {1.0f}), 2048),
            noisy(Bitmap::of(img::exposureAdjust(reframed(image, 0.03, false), {-0.3f}), 2048), 6,
                  1),
            noisy(Bitmap::of(img::exposureAdjust(reframed(image, 0.02, true), {0.3f}), 2048), 6, 2),
        };
        for (const Bitmap& frame : burst) {
            const float d = ImagePrint::distance(print, ImagePrint::of(frame));
            EXPECT_GT(d, 0.0f);
            EXPECT_LT(d, ImagePrint::sameShot);
        }
    }
    for (size_t i = 0; i < prints.size(); ++i)
        for (size_t j = i + 1; j < prints.size(); ++j)
            EXPECT_GT(ImagePrint::distance(prints[i], prints[j]), ImagePrint::sameShot)
                << samples[i] << " vs " << samples[j];
}

TEST(ImagePrint, LayoutCountsNotJustColours) {
    // The same pixels upside down are another shot.
    const Bitmap b = Bitmap::of(loadSample("three_men_night_flash.jpg"), 1024);
    Bitmap flipped = b;
    for (int y = 0; y < b.height; ++y)
        std::copy_n(b.row(b.height - 1 - y), 3 * b.width, flipped.row(y));
    EXPECT_GT(ImagePrint::distance(ImagePrint::of(b), ImagePrint::of(flipped)),
              ImagePrint::sameShot);
}

TEST(ImagePrint, TinyOrEmptyBitmapsGiveFiniteComparablePrints) {
    const ImagePrint red = ImagePrint::of({1, 1, {200, 40, 40}});
    const ImagePrint flat = ImagePrint::of({1, 1, {128, 128, 128}});
    for (float v : red.values)
        EXPECT_TRUE(std::isfinite(v));
    EXPECT_GT(ImagePrint::distance(red, flat), 0.1f);  // colour still tells them apart

    for (const Bitmap& bad : {Bitmap{}, Bitmap{4, 4, {1, 2, 3}}})
        for (float v : ImagePrint::of(bad).values)
            EXPECT_EQ(v, 0.0f);
}

}  // namespace
}  // namespace ql::vision
