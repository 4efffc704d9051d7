// The level finder: tilted horizons and uprights drawn at known angles, and real photos turned by
// the geometry stage, are measured with the slider's sign; level and featureless pictures give
// nothing to do; tiny or cancelled work gives nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "imaging/SrgbTransfer.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "render/Geometry.h"
#include "render/Straighten.h"
#include "tests/imaging/ImageTesting.h"

namespace ql {
namespace {

using img::Image;
using img::Pixel;

// Smooth deterministic texture in [0, 1): hashed lattice values, bilinearly interpolated.
double lattice(int i, int j, unsigned seed) {
    uint32_t h = uint32_t(i) * 0x8da6b343u ^ uint32_t(j) * 0xd8163841u ^ seed * 0xcb1ab31fu;
    h ^= h >> 13, h *= 0x5bd1e995u, h ^= h >> 15;
    return double(h & 0xffffff) / double(0x1000000);
}
double texture(double u, double v, double scale, unsigned seed) {
    u /= scale, v /= scale;
    const int i = int(std::floor(u)), j = int(std::floor(v));
    const double fu = u - i, fv = v - j;
    return (lattice(i, j, seed) * (1 - fu) + lattice(i + 1, j, seed) * fu) * (1 - fv) +
           (lattice(i, j + 1, seed) * (1 - fu) + lattice(i + 1, j + 1, seed) * fu) * fv;
}

// How much of a pixel lies on the positive side of a boundary `t` pixels away: an anti-aliased
// edge.
double cover(double t) {
    return std::clamp(0.5 + t, 0.0, 1.0);
}

struct Scene {
    double tilt = 0;         // degrees; positive: the horizon rises to the right
    bool horizon = true;     // sky over textured ground
    double horizonAt = 0.1;  // below the centre, as a fraction of the height
    int posts = 0;           // dark uprights standing on the horizon
    bool fullPosts = false;  // the uprights run from top to bottom
    double clutter = 0.08;   // amplitude of the ground's texture, encoded
    unsigned seed = 1;
};

// Draws the scene in its own level frame (u across, v down) and turns that frame by the tilt, so
// every edge is exact and anti-aliased without any resampling.
Image draw(int w, int h, const Scene& s) {
    const double a = s.tilt * M_PI / 180, ca = std::cos(a), sa = std::sin(a);
    const double v0 = s.horizonAt * h;
    struct Post {
        double u0, u1, top;
    };
    std::vector<Post> posts;
    for (int j = 0; j < s.posts; ++j) {
        const double u0 = (double(j) + 0.5) / s.posts * 0.8 * w - 0.4 * w;
        posts.push_back({u0, u0 + 6 + 3 * (j % 3), v0 - (0.15 + 0.05 * (j % 4)) * h});
    }
    return img::testing::make(w, h, [&](int x, int y) {
        const double dx = x + 0.5 - 0.5 * w, dy = y + 0.5 - 0.5 * h;
        const double u = dx * ca - dy * sa, v = dx * sa + dy * ca;
        const double sky = 0.72 - 0.15 * (v + 0.5 * h) / h + 0.04 * texture(u, v, 40, s.seed);
        const double ground = 0.3 + s.clutter * (texture(u, v, 5, s.seed + 1) - 0.5) +
                              0.5 * s.clutter * (texture(u, v, 1.7, s.seed + 2) - 0.5);
        const double g = s.horizon ? cover(v - v0) : 0;
        double value = img::srgbDecode(float(sky)) * (1 - g) + img::srgbDecode(float(ground)) * g;
        for (const Post& p : posts) {
            const double c = cover(u - p.u0) * cover(p.u1 - u) *
                             (s.fullPosts ? 1.0 : cover(v - p.top) * cover(v0 + 4 - v));
            value = value * (1 - c) + 0.004 * c;
        }
        const float f = float(value);
        return Pixel{0.9f * f, f, 1.1f * f, 1};
    });
}

std::optional<Straighten::Level> levelOf(int w, int h, const Scene& s) {
    return Straighten::level(draw(w, h, s));
}

// The signed tilts the finder must measure to within 0.2°, both signs, small and large.
const std::vector<double> tilts = {-8, -5.5, -3, -1.2, -0.4, 0.3, 0.8, 2.2, 4.5, 8};

TEST(StraightenTest, MeasuresHorizonsWithTheSliderSign) {
    for (double tilt : tilts) {
        const auto found = levelOf(960, 640, {.tilt = tilt});
        ASSERT_TRUE(found) << tilt;
        EXPECT_NEAR(found->angle, tilt, 0.2) << tilt;
    }
}

TEST(StraightenTest, MeasuresHorizonsAmongUprightsAndClutter) {
    for (double tilt : tilts) {
        const auto found = levelOf(960, 640,
                                   {.tilt = tilt,
                                    .horizonAt = -0.2,
                                    .posts = 5,
                                    .clutter = 0.25,
                                    .seed = unsigned(tilt * 10 + 100)});
        ASSERT_TRUE(found) << tilt;
        EXPECT_NEAR(found->angle, tilt, 0.2) << tilt;
    }
}

// Short posts below a high horizon outweigh it in the histogram, but they are too short to pin
// the angle on their own: the horizon, leaning the same way, must help.
TEST(StraightenTest, AHorizonSharpensTheUprightsItAgreesWith) {
    for (const Scene& s :
         {Scene{.tilt = -6.5, .horizonAt = -0.3, .posts = 3, .clutter = 0.2, .seed = 7},
          Scene{.tilt = -2.3, .horizonAt = -0.3, .posts = 3, .clutter = 0.3, .seed = 33},
          Scene{.tilt = 4.4, .horizonAt = -0.3, .posts = 3, .clutter = 0.3, .seed = 37},
          Scene{.tilt = -2.3, .horizonAt = -0.3, .posts = 7, .clutter = 0.3, .seed = 129}}) {
        const auto found = levelOf(960, 640, s);
        ASSERT_TRUE(found) << s.tilt;
        EXPECT_NEAR(found->angle, s.tilt, 0.2) << s.tilt;
    }
}

TEST(StraightenTest, UprightsAloneAreEnough) {
    for (double tilt : {-6.0, -1.5, 0.7, 3.5}) {
        const auto found =
            levelOf(800, 600, {.tilt = tilt, .horizon = false, .posts = 7, .fullPosts = true});
        ASSERT_TRUE(found) << tilt;
        EXPECT_NEAR(found->angle, tilt, 0.2) << tilt;
    }
}

// The finder and the geometry stage agree on the sign: turning a level picture by the slider gives
// the opposite angle back, and setting the answer as the slider levels a tilted picture.
TEST(StraightenTest, TheAnswerSetAsRotationLevelsThePicture) {
    const Image level = draw(960, 640, {.posts = 3, .clutter = 0.15});
    for (double rotation : {-6.0, 1.8}) {
        Adjustments turn;
        turn.rotation = rotation;
        const auto found = Straighten::level(Geometry::apply(turn, level, true));
        ASSERT_TRUE(found) << rotation;
        EXPECT_NEAR(found->angle, -rotation, 0.2) << rotation;
    }
    for (double tilt : {-3.3, 0.9, 7.0}) {
        const Image tilted = draw(960, 640, {.tilt = tilt, .posts = 3, .clutter = 0.15});
        const auto found = Straighten::level(tilted);
        ASSERT_TRUE(found) << tilt;
        Adjustments straighten;
        straighten.rotation = found->angle;
        const auto after = Straighten::level(Geometry::apply(straighten, tilted, true));
        if (after) {
            EXPECT_NEAR(after->angle, 0, 0.2) << tilt;
        }
    }
}

// Real photos turned by known angles: the answer moves by the same amount. The first has posts,
// benches and a brick wall; the second is an interior whose lines converge in perspective, so
// several directions lie within a few degrees of each other and the answer must stay with the
// one that was found rather than jump to another.
TEST(StraightenTest, FollowsRealPhotosTurnedByKnownAngles) {
    for (const char* name : {"three_men_night_flash.jpg", "event_hall_group.jpg"}) {
        const Image photo =
            img::decodeImage(img::readFileBytes(std::string(QL_SAMPLES_DIR) + "/" + name));
        const auto own = Straighten::level(photo);
        ASSERT_TRUE(own) << name;
        for (double rotation : {-4.0, -1.5, 2.5, 4.5, 6.0}) {
            Adjustments turn;
            turn.rotation = rotation;
            const auto found = Straighten::level(Geometry::apply(turn, photo, true));
            ASSERT_TRUE(found) << name << " " << rotation;
            EXPECT_NEAR(found->angle, own->angle - rotation, 0.2) << name << " " << rotation;
        }
    }
}

TEST(StraightenTest, PortraitPictures) {
    for (double tilt : {-4.0, 2.6, 6.5}) {
        const auto found = levelOf(600, 900, {.tilt = tilt, .posts = 2});
        ASSERT_TRUE(found) << tilt;
        EXPECT_NEAR(found->angle, tilt, 0.2) << tilt;
    }
    // The same when no shrink is needed.
    const auto small = levelOf(300, 450, {.tilt = -3});
    ASSERT_TRUE(small);
    EXPECT_NEAR(small->angle, -3, 0.2);
}

// Odd and even sizes put pixel centres on or between the lines the finder projects onto; neither
// may pull the answer towards or away from level.
TEST(StraightenTest, LevelPicturesNeedNothing) {
    for (const auto& [w, h] : {std::pair{960, 640}, std::pair{747, 858}, std::pair{1201, 801}})
        for (const Scene& s : {Scene{}, Scene{.posts = 7, .clutter = 0.3, .seed = 9},
                               Scene{.tilt = 0.04, .horizonAt = 0.3, .posts = 2}}) {
            const auto found = levelOf(w, h, s);
            if (found) {
                EXPECT_EQ(found->angle, 0) << w << "x" << h;
            }
        }
}

TEST(StraightenTest, NothingWithoutADominantDirection) {
    EXPECT_FALSE(Straighten::level(Image::filled(800, 600, {0.3f, 0.3f, 0.3f, 1})));
    // A soft gradient has no strong edge at all.
    EXPECT_FALSE(Straighten::level(img::testing::make(800, 600, [](int x, int y) {
        const float v = 0.1f + 0.5f * float(x + y) / 1400;
        return Pixel{v, v, v, 1};
    })));
    // Strong edges in every direction, at the working size and shrunk to it.
    EXPECT_FALSE(Straighten::level(img::testing::noise(640, 480, 3)));
    EXPECT_FALSE(Straighten::level(img::testing::noise(1500, 1000, 4)));
    // Blotchy texture without a horizon.
    EXPECT_FALSE(levelOf(900, 600, {.horizon = false, .clutter = 0.6}));
}

TEST(StraightenTest, NothingFromTinyOrEmptyPictures) {
    EXPECT_FALSE(Straighten::level(Image{}));
    EXPECT_FALSE(levelOf(32, 200, {.tilt = 3}));
    EXPECT_FALSE(levelOf(200, 32, {.tilt = 3}));
    // Large enough, but only 29 pixels high once the long edge is 640.
    EXPECT_FALSE(levelOf(2000, 90, {.tilt = 3}));
    // The smallest that works.
    const auto found = levelOf(200, 33, {.tilt = 2, .horizonAt = 0});
    ASSERT_TRUE(found);
    EXPECT_NEAR(found->angle, 2, 0.2);
}

TEST(StraightenTest, ConfidenceFollowsHowCleanTheEdgeIs) {
    const auto clean = levelOf(960, 640, {.tilt = 2, .clutter = 0});
    const auto busy = levelOf(960, 640, {.tilt = 2, .posts = 6, .clutter = 0.4});
    ASSERT_TRUE(clean && busy);
    EXPECT_GT(clean->confidence, busy->confidence);
    for (const auto& l : {*clean, *busy}) {
        EXPECT_GT(l.confidence, 0);
        EXPECT_LT(l.confidence, 1);
    }
}

TEST(StraightenTest, SameOnAnyThreadCountAndCancellable) {
    const Image picture = draw(1200, 800, {.tilt = -2.7, .posts = 3, .clutter = 0.2});
    const auto one = Straighten::level(picture, img::Execution{1});
    ASSERT_TRUE(one);
    for (int threads : {2, 7}) {
        const auto many = Straighten::level(picture, img::Execution{threads});
        ASSERT_TRUE(many);
        EXPECT_EQ(many->angle, one->angle);
        EXPECT_EQ(many->confidence, one->confidence);
    }
    const std::atomic<bool> cancel{true};
    EXPECT_FALSE(Straighten::level(picture, img::Execution{2, &cancel}));
}

}  // namespace
}  // namespace ql
