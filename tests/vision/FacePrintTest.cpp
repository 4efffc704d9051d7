#include "vision/FacePrint.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "imaging/CropRegion.h"
#include "imaging/ExposureAdjust.h"
#include "imaging/codec/ImageDecode.h"
#include "tests/support/Fixtures.h"
#include "vision/Models.h"

namespace ql::vision {
namespace {

img::Image loadSample(const std::string& name) {
    return img::decodeImage(ql::testing::readBytes(std::string(QL_SAMPLES_DIR) + "/" + name));
}

struct Face {
    const char* photo;
    Rect box;  // pixels of the full photo, brows to chin
};

// Five different people, boxes read off the photos.
const std::vector<Face>& faces() {
    static const std::vector<Face> list = {
        {"three_men_night_flash.jpg", {535, 326, 90, 90}},
        {"three_men_night_flash.jpg", {783, 385, 90, 90}},
        {"three_men_night_flash.jpg", {1002, 266, 90, 90}},
        {"event_hall_group.jpg", {362, 263, 75, 75}},
        {"event_hall_group.jpg", {714, 246, 90, 90}},
    };
    return list;
}

const img::Image& photo(const std::string& name) {
    static img::Image threeMen = loadSample("three_men_night_flash.jpg");
    static img::Image hall = loadSample("event_hall_group.jpg");
    return name == "event_hall_group.jpg" ? hall : threeMen;
}

TEST(FacePrint, OneFaceStaysCloserUnderCropScaleAndExposureThanAnyTwoPeople) {
    std::vector<FacePrint> prints;
    float worstSame = 0;
    for (const Face& face : faces()) {
        SCOPED_TRACE(std::string(face.photo) + " x " + std::to_string(int(face.box.x)));
        const img::Image& image = photo(face.photo);
        const auto print = FacePrint::of(Bitmap::of(image), face.box);
        ASSERT_TRUE(print);
        prints.push_back(*print);

        std::vector<std::optional<FacePrint>> variants;
        // The person cut out with a loose frame, and a box that sits a little off.
        const img::PixelRect frame{int(face.box.x - 2 * face.box.width),
                                   int(face.box.y - face.box.height), int(5 * face.box.width),
                                   int(4 * face.box.height)};
        const Rect offBox{2 * face.box.width + 0.08 * face.box.width,
                          face.box.height - 0.06 * face.box.height, 1.1 * face.box.width,
                          1.05 * face.box.height};
        variants.push_back(FacePrint::of(Bitmap::of(img::crop(image, frame)), offBox));
        // The whole photo at 0.6 x.
        const int longEdge = int(std::lround(image.longEdge() * 0.6));
        const Bitmap small = Bitmap::of(image, longEdge);
        const double s = double(small.width) / image.width();
        variants.push_back(FacePrint::of(
            small, {face.box.x * s, face.box.y * s, face.box.width * s, face.box.height * s}));
        // Under- and overexposed.
        for (float ev : {-1.0f, 0.5f})
            variants.push_back(
                FacePrint::of(Bitmap::of(img::exposureAdjust(image, {ev})), face.box));

        for (const auto& v : variants) {
            ASSERT_TRUE(v);
            const float d = FacePrint::distance(*print, *v);
            EXPECT_LT(d, FacePrint::sameFace);
            worstSame = std::max(worstSame, d);
        }
    }

    float closestOthers = 1e9f;
    for (size_t i = 0; i < prints.size(); ++i)
        for (size_t j = i + 1; j < prints.size(); ++j) {
            const float d = FacePrint::distance(prints[i], prints[j]);
            EXPECT_GT(d, FacePrint::sameFace) << "faces " << i << " and " << j;
            closestOthers = std::min(closestOthers, d);
        }
    EXPECT_LT(worstSame, closestOthers);
}

TEST(FacePrint, FaceAtTheEdgeGetsAPrintBadInputNone) {
    // Half of the face cut off by the frame's left edge.
    const Face& face = faces()[0];
    const img::Image cut =
        img::crop(photo(face.photo), {int(face.box.x + face.box.width / 2), 0, 600, 1200});
    const auto print = FacePrint::of(
        Bitmap::of(cut), {-face.box.width / 2, face.box.y, face.box.width, face.box.height});
    ASSERT_TRUE(print);
    EXPECT_TRUE(std::all_of(print->values.begin(), print->values.end(),
                            [](float v) { return std::isfinite(v); }));

    const Bitmap bitmap = Bitmap::of(photo(face.photo), 800);
    EXPECT_FALSE(FacePrint::of(bitmap, {900, 700, 60, 60}));  // outside
    EXPECT_FALSE(FacePrint::of(bitmap, {200, 100, 0, 0}));
    EXPECT_FALSE(FacePrint::of(bitmap, {200, 100, 4, 4}));  // too small to hold a face
    EXPECT_FALSE(FacePrint::of(bitmap, {NAN, 100, 40, 40}));
    Bitmap truncated = bitmap;
    truncated.rgb.resize(100);
    EXPECT_FALSE(FacePrint::of(truncated, {250, 160, 50, 50}));
    const Bitmap one{1, 1, {128, 128, 128}};
    EXPECT_FALSE(FacePrint::of(one, {0, 0, 1, 1}));
}

TEST(FacePrint, MissingModelsGiveNoPrintUntilTheyAreBack) {
    const Bitmap bitmap = Bitmap::of(photo("three_men_night_flash.jpg"));
    const Rect box = faces()[0].box;
    {
        ql::testing::TempDir empty;
        setModelFolder(empty.path().string());
        EXPECT_FALSE(FacePrint::of(bitmap, box));
        setModelFolder({});
    }
    EXPECT_TRUE(FacePrint::of(bitmap, box));
}

}  // namespace
}  // namespace ql::vision
