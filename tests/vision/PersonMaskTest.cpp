#include "vision/PersonMask.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numbers>

#include "imaging/codec/ImageDecode.h"
#include "tests/imaging/ImageTesting.h"
#include "tests/support/Fixtures.h"
#include "vision/Models.h"
#include "vision/PersonInstances.h"

namespace ql::vision {
namespace {

img::Image photo(const std::string& path) {
    return img::decodeImage(testing::readBytes(path));
}

const img::Image& men() {
    static const img::Image image = photo(QL_SAMPLES_DIR "/three_men_night_flash.jpg");
    return image;
}

// The mean of the mask over a rectangle given in fractions of the picture.
double meanOver(const img::Image& mask, double x0, double y0, double x1, double y1) {
    double sum = 0;
    int n = 0;
    for (int y = int(y0 * mask.height()); y < int(y1 * mask.height()); ++y)
        for (int x = int(x0 * mask.width()); x < int(x1 * mask.width()); ++x, ++n)
            sum += mask.at(x, y).r;
    return n ? sum / n : NAN;
}

// A picture with nobody in it: a gradient, a dark box and a bright ball.
img::Image emptyRoom(int w, int h) {
    return img::testing::make(w, h, [&](int x, int y) {
        const bool box = x > w / 8 && x < w / 3 && y > h / 2 && y < h * 7 / 8;
        const bool ball = std::hypot(x - 0.7 * w, y - 0.6 * h) < 0.1 * w;
        const float v = box ? 0.05f : ball ? 0.6f : 0.2f + 0.5f * float(y) / float(h);
        return img::Pixel{v, v * 0.9f, v * 0.8f, 1};
    });
}

TEST(PersonMask, CoversThePeopleOfTheCafeAndNotTheWall) {
    const auto mask = PersonMask::compute(photo(QL_LABELLED_DIR "/group_cafe_indoor.jpg"));
    ASSERT_TRUE(mask);
    EXPECT_EQ(mask->width(), 2048);  // 3072 × 2304 scaled to a long edge of 2048
    EXPECT_EQ(mask->height(), 1536);
    // The centres of the four frontal faces (hand-labelled boxes, pixels of the full photo).
    for (const auto& [x, y] : {std::pair{570, 1026}, {1147, 788}, {1951, 712}, {2497, 712}})
        EXPECT_GT(mask->at(x * 2 / 3, y * 2 / 3).r, 0.9f) << x << ", " << y;
    EXPECT_LT(meanOver(*mask, 0.9, 0.05, 1.0, 0.2), 0.05);   // the white wall at the top right
    EXPECT_LT(meanOver(*mask, 0.0, 0.0, 0.05, 0.05), 0.05);  // the window at the top left
    // The people are solid, not the model's soft guess: only their edges are grey.
    size_t inside = 0, solid = 0;
    for (size_t i = 0; i < mask->pixelCount(); ++i) {
        inside += mask->data()[i * 4] >= 0.5f;
        solid += mask->data()[i * 4] == 1.0f;
    }
    EXPECT_GT(solid, inside * 0.98);
    const double c = PersonMask::coverage(*mask);
    EXPECT_GT(c, 0.35);
    EXPECT_LT(c, 0.8);
}

TEST(PersonMask, APanoramaKeepsItsPeopleAsWholeAsTheirOwnPhotoDoes) {
    // The three men on the right third of a wide empty room: squashed into the model's square
    // whole, they would be a third of their width.
    const img::Image& m = men();
    const img::Image room = emptyRoom(2 * m.width(), m.height());
    const img::Image wide = img::testing::make(3 * m.width(), m.height(), [&](int x, int y) {
        return x < room.width() ? room.at(x, y) : m.at(x - room.width(), y);
    });
    const auto alone = PersonMask::compute(m);
    const auto mask = PersonMask::compute(wide);
    ASSERT_TRUE(alone && mask);
    long both = 0, either = 0;
    const int x0 = mask->width() * 2 / 3;
    for (int y = 0; y < mask->height(); ++y)
        for (int x = x0; x < mask->width(); ++x) {
            const bool a = mask->at(x, y).r >= 0.5f;
            const bool b = alone
                               ->at((x - x0) * alone->width() / (mask->width() - x0),
                                    y * alone->height() / mask->height())
                               .r >= 0.5f;
            both += a && b, either += a || b;
        }
    ASSERT_GT(either, 0);
    EXPECT_GT(double(both) / double(either), 0.85);
    EXPECT_LT(meanOver(*mask, 0.0, 0.0, 0.6, 1.0), 0.02);  // the room
}

TEST(PersonMask, GivenFacesArePaintedOverThePicture) {
    const img::Image room = emptyRoom(600, 400);
    // The face is where the segmentation sees no one; a broken box is ignored.
    const std::vector<Rect> faces = {
        {0.45, 0.1, 0.1, 0.15}, {NAN, 0.2, 0.1, 0.1}, {0.2, 0.2, 1e9, 0.1}};
    const auto mask = PersonMask::compute(Bitmap::of(room), &faces);
    ASSERT_TRUE(mask);
    EXPECT_EQ(mask->width(), 600);               // small pictures keep their size
    EXPECT_FLOAT_EQ(mask->at(300, 70).r, 1.0f);  // the face's centre
    EXPECT_LT(mask->at(300, 300).r, 0.1f);
    EXPECT_LT(mask->at(20, 20).r, 0.1f);
    EXPECT_NEAR(PersonMask::coverage(*mask), std::numbers::pi * 30 * 30 / (600 * 400), 0.01);
}

TEST(PersonMask, NobodyOrNoModelMasksNothing) {
    const auto mask = PersonMask::compute(emptyRoom(900, 600));
    EXPECT_TRUE(!mask || PersonMask::coverage(*mask) < 0.01);
    EXPECT_FALSE(PersonMask::compute(img::Image::filled(1, 1, {0.5f, 0.4f, 0.3f, 1})));
    EXPECT_FALSE(PersonMask::compute(img::Image::filled(4000, 3, {0.5f, 0.4f, 0.3f, 1})));
    const auto strip = PersonMask::compute(emptyRoom(4000, 60));  // a strip: a few looks, no more
    EXPECT_TRUE(!strip || PersonMask::coverage(*strip) < 0.01);
    EXPECT_FALSE(PersonMask::compute(img::Image()));

    struct Restore {
        ~Restore() { setModelFolder({}); }
    } restore;
    testing::TempDir empty;
    setModelFolder(empty.path().string());
    EXPECT_FALSE(PersonMask::compute(men()));
    // Faces found before are still people.
    const std::vector<Rect> face = {{0.5, 0.3, 0.05, 0.07}};
    const auto faceOnly = PersonMask::compute(Bitmap::of(men(), 2048), &face);
    ASSERT_TRUE(faceOnly);
    EXPECT_NEAR(PersonMask::coverage(*faceOnly), std::numbers::pi * 0.025 * 0.035, 5e-4);
    setModelFolder({});
    EXPECT_TRUE(PersonMask::compute(men()));
}

TEST(PersonMask, SameMaskOnAnyNumberOfThreadsAndNoneWhenCancelled) {
    const auto one = PersonMask::compute(men(), img::Execution{1});
    const auto three = PersonMask::compute(men(), img::Execution{3});
    ASSERT_TRUE(one && three);
    ASSERT_EQ(one->pixelCount(), three->pixelCount());
    EXPECT_TRUE(std::equal(one->data(), one->data() + one->pixelCount() * 4, three->data()));
    // The three men stand in the middle third, apart from each other.
    EXPECT_GT(meanOver(*one, 0.3, 0.4, 0.7, 0.6), 0.6);
    EXPECT_LT(meanOver(*one, 0.0, 0.0, 0.2, 0.3), 0.05);

    std::atomic<bool> cancel = true;
    EXPECT_FALSE(PersonMask::compute(men(), img::Execution{2, &cancel}));
    EXPECT_TRUE(PersonMask::fitted(*one, 100, 100, true, img::Execution{2, &cancel}).empty());
}

TEST(PersonMask, FittingScalesAndFeatheringSoftensWithoutGrowing) {
    const img::Image mask = img::testing::make(400, 300, [](int x, int y) {
        const float v = std::hypot(x + 0.5 - 200, y + 0.5 - 150) < 100 ? 1 : 0;
        return img::Pixel{v, v, v, 1};
    });
    EXPECT_TRUE(PersonMask::fitted(mask, 400, 300, false).sharesPixelsWith(mask));

    const img::Image plain = PersonMask::fitted(mask, 2000, 1500, false);
    const img::Image soft = PersonMask::fitted(mask, 2000, 1500, true);
    ASSERT_EQ(plain.width(), 2000);
    ASSERT_EQ(soft.height(), 1500);
    EXPECT_FLOAT_EQ(plain.at(1000, 750).r, 1.0f);
    EXPECT_FLOAT_EQ(soft.at(1000, 750).r, 1.0f);
    EXPECT_FLOAT_EQ(soft.at(10, 10).r, 0.0f);
    EXPECT_FLOAT_EQ(soft.at(10, 10).a, 0.0f);  // white at the mask's strength: black is clear
    EXPECT_FLOAT_EQ(soft.at(1000, 750).a, 1.0f);
    EXPECT_NEAR(PersonMask::coverage(plain), std::numbers::pi * 500 * 500 / (2000 * 1500), 0.002);
    EXPECT_LE(PersonMask::coverage(soft), PersonMask::coverage(plain));
    // Along a radius the edge spreads over more pixels, and stays inside the disc's outline.
    int plainEdge = 0, softEdge = 0;
    for (int x = 1000; x < 2000; ++x) {
        plainEdge += plain.at(x, 750).r > 0.02f && plain.at(x, 750).r < 0.98f;
        softEdge += soft.at(x, 750).r > 0.02f && soft.at(x, 750).r < 0.98f;
    }
    EXPECT_GT(softEdge, plainEdge + 5);
    EXPECT_LT(soft.at(1500, 750).r, 0.35f);  // where the outline was
    EXPECT_LT(soft.at(1510, 750).r, 0.05f);

    EXPECT_TRUE(PersonMask::fitted(img::Image(), 10, 10, true).empty());
    EXPECT_TRUE(PersonMask::fitted(mask, 0, 10, false).empty());
    EXPECT_EQ(PersonMask::fitted(mask, 1, 1, true).width(), 1);
    EXPECT_DOUBLE_EQ(PersonMask::coverage(img::Image()), 0.0);
}

// A guide of two blobs and a speck: the left blob 20 × 10 at 0.8, the right 10 × 10 at 0.6.
struct Blobs {
    int w = 40, h = 12;
    std::vector<float> guide = std::vector<float>(size_t(w * h), 0.0f);
    Blobs() {
        for (int y = 1; y < 11; ++y) {
            for (int x = 1; x < 21; ++x)
                guide[size_t(y * w + x)] = 0.8f;
            for (int x = 25; x < 35; ++x)
                guide[size_t(y * w + x)] = 0.6f;
        }
        guide[size_t(5 * w + 38)] = 0.9f;
    }
    int label(int x, int y) const { return instances.labels[size_t(y * w + x)]; }
    PersonInstances instances;
};

TEST(PersonInstances, RegionsBelongToTheSeedsOnThemAndSharedOnesAreCut) {
    Blobs b;
    std::vector<PersonSeed> seeds(2);
    seeds[0].points = {{5, 5}};
    seeds[1].points = {{16, 5}};  // both people on the left blob; no one on the right one
    b.instances = PersonInstances::separate(b.guide.data(), b.w, b.h, 0.5f, seeds, 2);
    ASSERT_EQ(b.instances.instances.size(), 3u);
    const auto& is = b.instances.instances;
    const int left = b.label(2, 5), middle = b.label(19, 5), right = b.label(30, 5);
    ASSERT_TRUE(left && middle && right);
    EXPECT_EQ(is[size_t(left - 1)].person, 0);
    EXPECT_EQ(is[size_t(middle - 1)].person, 1);
    EXPECT_EQ(is[size_t(right - 1)].person, -1);
    // The cut falls between the seeds, on the coarse grid.
    EXPECT_EQ(is[size_t(left - 1)].area + is[size_t(middle - 1)].area, 200);
    EXPECT_NEAR(is[size_t(left - 1)].area, 100, 20);
    EXPECT_EQ(is[size_t(right - 1)].area, 100);
    EXPECT_NEAR(is[size_t(right - 1)].overlap, 60, 1e-3);
    EXPECT_EQ(is[size_t(right - 1)].left, 25);
    EXPECT_EQ(is[size_t(right - 1)].right, 35);
    EXPECT_EQ(is[size_t(middle - 1)].right, 21);
    EXPECT_EQ(b.label(38, 5), 0);  // the speck is too small to be anything
    EXPECT_EQ(b.label(0, 0), 0);
}

TEST(PersonInstances, TheKeepRuleWantsTheGuideOnTheInstance) {
    EXPECT_TRUE(keepInstance({-1, 100, 5, 0, 0, 10, 10}, 0.3));
    EXPECT_FALSE(keepInstance({-1, 100, 3, 0, 0, 10, 10}, 0.3));
    EXPECT_TRUE(keepInstance({-1, 100, 3, 0, 0, 10, 10}, 0.001));  // nothing to test against
    EXPECT_FALSE(keepInstance({0, 0, 0, 0, 0, 0, 0}, 0.001));
}

TEST(PersonInstances, AFaceOnAPosesShouldersIsThatPerson) {
    BodyPose pose;
    pose.leftShoulder = Point{140, 200}, pose.rightShoulder = Point{60, 200};
    pose.neck = Point{100, 200}, pose.root = Point{100, 400};
    const std::vector<Rect> faces = {{80, 120, 40, 50}, {400, 100, 40, 50}};
    const auto seeds = personSeeds(faces, {pose});
    ASSERT_EQ(seeds.size(), 2u);
    auto holds = [](const PersonSeed& s, Point p) {
        return std::find(s.points.begin(), s.points.end(), p) != s.points.end();
    };
    EXPECT_TRUE(holds(seeds[0], {100, 145}));  // the first face, on the pose
    EXPECT_TRUE(holds(seeds[0], {100, 300}));  // halfway down the spine
    EXPECT_TRUE(holds(seeds[1], {420, 125}));
    EXPECT_FALSE(holds(seeds[1], {100, 145}));
}

}  // namespace
}  // namespace ql::vision
