#include "people/FaceMaskDrawing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "tests/imaging/ImageTesting.h"

namespace ql::FaceParts {
namespace {

using vision::FaceShape;
using vision::Point;
using vision::Rect;

// A closed outline around c, `half` wide each way, `up` above and `down` below the centre.
std::vector<Point> outline(Point c, double half, double up, double down, int n) {
    std::vector<Point> pts;
    for (int k = 0; k < n; ++k) {
        const double t = 2 * std::numbers::pi * k / n, s = std::sin(t);
        pts.push_back({c.x - half * std::cos(t), c.y - (s > 0 ? up : down) * s});
    }
    return pts;
}

// A frontal face in a brows-to-chin box, laid out as people's faces are.
struct Face {
    FaceShape shape;
    Point rightEye, leftEye, leftBrow, mouth;
};

Face frontalFace(Rect b) {
    Face f;
    FaceShape& s = f.shape;
    const double W = b.width, H = b.height;
    s.box = b;
    f.rightEye = {b.midX() - 0.2 * W, b.y + 0.25 * H};
    f.leftEye = {b.midX() + 0.2 * W, b.y + 0.25 * H};
    f.leftBrow = {f.leftEye.x, b.y + 0.1 * H};
    f.mouth = {b.midX(), b.y + 0.75 * H};
    s.rightEye = outline(f.rightEye, 0.1 * W, 0.045 * W, 0.03 * W, 16);
    s.leftEye = outline(f.leftEye, 0.1 * W, 0.045 * W, 0.03 * W, 16);
    s.rightPupil = f.rightEye;
    s.leftPupil = f.leftEye;
    s.rightBrow = outline({f.rightEye.x, f.leftBrow.y}, 0.13 * W, 0.025 * W, 0.015 * W, 10);
    s.leftBrow = outline(f.leftBrow, 0.13 * W, 0.025 * W, 0.015 * W, 10);
    s.outerLips = outline(f.mouth, 0.18 * W, 0.07 * H, 0.07 * H, 20);
    s.innerLips = outline(f.mouth, 0.13 * W, 0.025 * H, 0.025 * H, 20);
    for (int k = 0; k <= 22; ++k) {
        const double t = std::numbers::pi * k / 22;
        s.contour.push_back(
            {b.midX() - 0.5 * W * std::cos(t), b.y + (0.2 + 0.8 * std::sin(t)) * H});
    }
    return f;
}

// The face of a picture: 0.3 of its short edge wide, in the middle, a third of the way down.
Face faceFor(int width, int height) {
    const double fw = 0.3 * std::min(width, height);
    return frontalFace({width / 2.0 - fw / 2, 0.35 * height, fw, 1.13 * fw});
}

float at(const img::Image& m, Point p, int channel = 0) {
    const int x = std::clamp(int(p.x), 0, m.width() - 1),
              y = std::clamp(int(p.y), 0, m.height() - 1);
    return m.row(y)[4 * x + channel];
}

Point offset(Point p, double dx, double dy) {
    return {p.x + dx, p.y + dy};
}

// The value-weighted mean position of a mask.
Point centroid(const img::Image& m) {
    double sx = 0, sy = 0, sum = 0;
    for (int y = 0; y < m.height(); ++y)
        for (int x = 0; x < m.width(); ++x) {
            const double v = m.row(y)[4 * x];
            sx += v * x, sy += v * y, sum += v;
        }
    return {sx / sum + 0.5, sy / sum + 0.5};
}

// The largest value of a mask, whose alpha must be its largest channel throughout: a valid
// premultiplied picture, transparent where black.
float brightest(const img::Image& m) {
    float most = 0;
    bool alphaIsLargest = true;
    for (size_t i = 0; i < m.pixelCount(); ++i) {
        const float* p = m.data() + 4 * i;
        most = std::max(most, p[0]);
        alphaIsLargest = alphaIsLargest && p[3] == std::max({p[0], p[1], p[2]});
    }
    EXPECT_TRUE(alphaIsLargest);
    return most;
}

class PartsOfAFace : public ::testing::TestWithParam<std::pair<int, int>> {
  protected:
    int width = GetParam().first, height = GetParam().second;
    Face face = faceFor(width, height);
    const Rect& b = face.shape.box;
    double W = b.width, H = b.height;

    img::Image draw(Part part) {
        img::Image m = mask(part, {face.shape}, width, height);
        EXPECT_EQ(m.width(), width);
        EXPECT_EQ(m.height(), height);
        EXPECT_GT(brightest(m), 0.2f);
        return m;
    }
};

TEST_P(PartsOfAFace, EyesBrowsAndLidsSitOnTheirLandmarks) {
    const img::Image eyes = draw(Part::eyes), brows = draw(Part::brows);
    EXPECT_GT(at(eyes, face.leftEye), 0.9f);
    EXPECT_GT(at(eyes, face.rightEye), 0.9f);
    EXPECT_LT(at(eyes, face.mouth), 0.02f);
    EXPECT_GT(at(brows, face.leftBrow), 0.9f);
    EXPECT_LT(at(brows, face.leftEye), 0.05f);

    // The lashes lie on the upper lids, the crescents under the lower ones.
    const img::Image lashes = draw(Part::lashes), under = draw(Part::underEyes);
    EXPECT_LT(centroid(lashes).y, face.leftEye.y - 0.02 * W);
    EXPECT_LT(at(lashes, offset(face.leftEye, 0, 0.03 * W)), 0.05f);
    const Point c = centroid(under);
    EXPECT_GT(c.y, face.leftEye.y + 0.03 * W);
    EXPECT_LT(c.y, face.leftEye.y + 0.15 * W);
    EXPECT_NEAR(c.x, b.midX(), 0.05 * W);
    EXPECT_LT(at(under, face.leftEye), 0.05f);

    // Sclera: white either side of the iris, dark on it; iris: the reverse, and nothing beyond the
    // lids.
    const img::Image sclera = draw(Part::sclera), iris = draw(Part::iris);
    EXPECT_LT(at(sclera, face.leftEye), 0.05f);
    EXPECT_GT(at(sclera, offset(face.leftEye, 0.075 * W, 0)), 0.5f);
    EXPECT_GT(at(iris, face.rightEye), 0.9f);
    EXPECT_LT(at(iris, offset(face.rightEye, 0, -0.07 * W)), 0.05f);
    EXPECT_LT(at(iris, offset(face.rightEye, 0.095 * W, 0)), 0.5f);
}

TEST_P(PartsOfAFace, MouthAndSkinLeaveEachOtherOut) {
    const img::Image teeth = draw(Part::teeth), lips = draw(Part::lips);
    EXPECT_GT(at(teeth, face.mouth), 0.9f);
    EXPECT_LT(at(teeth, offset(face.mouth, 0, -0.065 * H)), 0.05f);  // on the upper lip
    EXPECT_GT(at(lips, offset(face.mouth, 0, -0.05 * H)), 0.8f);
    EXPECT_LT(at(lips, face.mouth), 0.05f);

    for (Part part : {Part::clearSkin, Part::faceSkin}) {
        const img::Image skin = draw(part);
        EXPECT_GT(at(skin, {b.midX() - 0.2 * W, b.y + 0.5 * H}), 0.9f);  // a cheek
        EXPECT_LT(at(skin, face.leftEye), 0.05f);
        EXPECT_LT(at(skin, face.leftBrow), 0.5f);  // softened across a thin brow
        EXPECT_LT(at(skin, face.mouth), 0.05f);
        EXPECT_LT(at(skin, {b.x - 0.15 * W, b.y + 0.5 * H}), 0.02f);
    }
    // Only the face skin follows the jaw line down to the chin.
    EXPECT_GT(at(draw(Part::faceSkin), {b.midX(), b.y + 0.93 * H}), 0.9f);
}

TEST_P(PartsOfAFace, HairZonesAndContouring) {
    const img::Image hair = colourMask({face.shape}, width, height);
    const Point forehead{b.midX(), b.y - 0.4 * H}, beside{b.midX() - 0.8 * W, b.y - 0.6 * H};
    EXPECT_GT(std::min(at(hair, forehead, 0), at(hair, forehead, 1)), 0.9f);
    EXPECT_LT(at(hair, beside, 0), 0.05f);
    EXPECT_GT(at(hair, beside, 1), 0.9f);
    EXPECT_LT(std::max(at(hair, face.mouth, 0), at(hair, face.mouth, 1)), 0.02f);

    const img::Image sculpt = sculptMap({face.shape}, width, height);
    const double eyeLine = face.leftEye.y;
    const Point ridge{b.midX(), eyeLine + 0.17 * W}, hollow{b.midX() + 0.3 * W, eyeLine + 0.3 * W};
    EXPECT_GT(at(sculpt, ridge, 0), 0.3f);
    EXPECT_LT(at(sculpt, ridge, 1), 0.02f);
    EXPECT_GT(at(sculpt, hollow, 1), 0.3f);
    EXPECT_LT(at(sculpt, hollow, 0), 0.02f);
    EXPECT_LT(at(sculpt, {b.x - 0.3 * W, b.midY()}, 0), 0.01f);
}

INSTANTIATE_TEST_SUITE_P(Sizes, PartsOfAFace,
                         ::testing::Values(std::pair{300, 200}, std::pair{3000, 2000},
                                           std::pair{800, 1200}));

TEST(FaceMaskDrawing, SofteningGrowsWithThePicture) {
    // σ = 0.0015 of the long edge for the eyes: from 90 % to 10 % over about 2.56 σ, 11.5 pixels on
    // 3000 × 2000, and still a little one σ beyond the shape.
    const Face face = faceFor(3000, 2000);
    const double eyeWidth = 0.2 * face.shape.box.width;
    const img::Image eyes = mask(Part::eyes, {face.shape}, 3000, 2000);
    int first = -1, last = -1;
    for (int x = int(face.leftEye.x); x < int(face.leftEye.x + eyeWidth); ++x) {
        const float v = at(eyes, {double(x), face.leftEye.y});
        if (v < 0.9f && first < 0) first = x;
        if (v > 0.1f) last = x;
    }
    EXPECT_GT(last - first, 7);
    EXPECT_LT(last - first, 17);
    const float past = at(eyes, offset(face.leftEye, 0.75 * eyeWidth + 0.0015 * 3000, 0));
    EXPECT_GT(past, 0.03f);
    EXPECT_LT(past, 0.3f);
}

TEST(FaceMaskDrawing, SmallPicturesKeepThinShapes) {
    // Shrinking the canvas averages it: a thin line keeps its weight wherever it falls between the
    // picture's pixels instead of flickering with the samples.
    std::vector<double> shares;
    for (double shift = 0; shift < 1; shift += 0.125) {
        const Face face = frontalFace({130, 80 + shift, 40, 45});
        shares.push_back(img::testing::mean(mask(Part::lashes, {face.shape}, 300, 200), 0));
    }
    const auto [least, most] = std::minmax_element(shares.begin(), shares.end());
    EXPECT_GT(*least, 0);
    EXPECT_LT(*most / *least, 1.05);
}

TEST(FaceMaskDrawing, ShapesTurnWithTheFace) {
    const Face upright = faceFor(1200, 1200);
    const Point pivot{upright.shape.box.midX(), upright.leftEye.y};
    const double a = 30 * std::numbers::pi / 180, W = upright.shape.box.width;
    const auto turn = [&](Point p) {
        const double dx = p.x - pivot.x, dy = p.y - pivot.y;
        return Point{pivot.x + dx * std::cos(a) - dy * std::sin(a),
                     pivot.y + dx * std::sin(a) + dy * std::cos(a)};
    };
    FaceShape turned = upright.shape;
    for (auto* pts : {&turned.leftEye, &turned.rightEye, &turned.leftBrow, &turned.rightBrow,
                      &turned.outerLips, &turned.innerLips, &turned.nose, &turned.contour})
        for (Point& p : *pts)
            p = turn(p);
    turned.leftPupil = turn(*turned.leftPupil);
    turned.rightPupil = turn(*turned.rightPupil);
    const img::Image sculpt = sculptMap({turned}, 1200, 1200);
    EXPECT_GT(at(sculpt, turn({pivot.x, pivot.y + 0.17 * W}), 0), 0.3f);  // nose ridge
    EXPECT_LT(at(sculpt, {pivot.x, pivot.y + 0.25 * W}, 0), 0.05f);
    EXPECT_GT(at(sculpt, turn({pivot.x, upright.shape.box.maxY() - 0.1 * W}), 0), 0.3f);  // chin
    const img::Image glasses = mask(Part::glasses, {turned}, 1200, 1200);
    EXPECT_GT(at(glasses, turn(upright.leftEye)), 0.9f);
    EXPECT_GT(at(glasses, turn(upright.rightEye)), 0.9f);
    EXPECT_GT(at(glasses, pivot), 0.9f);  // the bridge
    EXPECT_LT(at(glasses, turn(upright.mouth)), 0.02f);
    const double d = 0.15 * upright.shape.box.height;  // from the eye line up to the brows
    EXPECT_LT(at(glasses, turn({pivot.x + 0.2 * W, pivot.y - 1.45 * d})), 0.05f);
}

TEST(FaceMaskDrawing, SkinDiscFallsOffAroundEachBox) {
    const Rect a{100, 100, 200, 240}, b{400, 120, 200, 240};
    const double r = 240;
    const img::Image one = skinDisc({a}, 800, 600), other = skinDisc({b}, 800, 600);
    const Point centre{a.midX(), a.midY() + 0.05 * a.height}, middle{a.midX(), a.midY()};
    EXPECT_GT(at(one, offset(centre, 0.5 * r, 0)), 0.98f);
    EXPECT_NEAR(at(one, offset(centre, 0.7 * r, 0)), 0.5f, 0.06f);
    EXPECT_LT(at(one, offset(centre, 0.9 * r, 0)), 0.02f);
    // Shifted down: the fall-off begins sooner above the box's middle than below it.
    EXPECT_LT(at(one, offset(middle, 0, -0.6 * r)), at(one, offset(middle, 0, 0.6 * r)) - 0.1f);
    // Overlapping discs merge by their maximum, never their sum.
    const Point between{(a.midX() + b.midX()) / 2, centre.y};
    EXPECT_GT(at(one, between), 0.1f);
    EXPECT_NEAR(at(skinDisc({a, b}, 800, 600), between),
                std::max(at(one, between), at(other, between)), 0.01f);
}

TEST(FaceMaskDrawing, MasksFillsEveryFinerPartOfEveryFace) {
    const Face a = frontalFace({50, 100, 200, 226}), b = frontalFace({600, 300, 120, 136});
    FaceMasks skin;
    skin.skin = skinDisc({a.shape.box}, 800, 600);
    skin.person = img::Image::filled(800, 600, {1, 1, 1, 1});
    skin.info = std::make_shared<PortraitInfo>();
    const FaceMasks all = masks({a.shape, b.shape}, 800, 600, skin);
    EXPECT_TRUE(all.skin.sharesPixelsWith(skin.skin));
    EXPECT_TRUE(all.person.sharesPixelsWith(skin.person));
    EXPECT_EQ(all.info, skin.info);
    for (const img::Image* m : {&all.clearSkin, &all.eyes, &all.underEyes, &all.teeth,
                                &all.faceSkin, &all.iris, &all.glasses, &all.hairRegion, &all.lips,
                                &all.brows, &all.lashes, &all.sclera, &all.sculpt}) {
        ASSERT_EQ(m->width(), 800);
        EXPECT_EQ(m->height(), 600);
        EXPECT_GT(brightest(*m), 0.2f);
    }
    for (const Face* f : {&a, &b})
        EXPECT_GT(std::min(at(all.eyes, f->leftEye), at(all.eyes, f->rightEye)), 0.9f);

    // Without faces the set comes back as it was; without a picture there is no mask.
    const FaceMasks none = masks({}, 800, 600, skin);
    EXPECT_TRUE(none.skin.sharesPixelsWith(skin.skin));
    EXPECT_TRUE(none.eyes.empty());
    EXPECT_EQ(brightest(mask(Part::underEyes, {}, 640, 480)), 0.0f);
    EXPECT_EQ(brightest(colourMask({}, 64, 48)), 0.0f);
    EXPECT_TRUE(mask(Part::eyes, {a.shape}, 0, 100).empty());
    EXPECT_TRUE(sculptMap({}, 100, -1).empty());
    const std::atomic<bool> cancel{true};
    EXPECT_TRUE(mask(Part::lips, {a.shape}, 100, 100, {1, &cancel}).empty());
}

TEST(FaceMaskDrawing, IncompleteLandmarksDrawWhatTheyCan) {
    Face face = faceFor(600, 600);
    face.shape.innerLips.resize(2);  // a polygon of two points encloses nothing
    face.shape.leftPupil.reset();
    EXPECT_EQ(brightest(mask(Part::teeth, {face.shape}, 600, 600)), 0.0f);
    // Without its pupil an eye has no iris, and its sclera keeps its middle.
    const img::Image iris = mask(Part::iris, {face.shape}, 600, 600);
    EXPECT_LT(at(iris, face.leftEye), 0.02f);
    EXPECT_GT(at(iris, face.rightEye), 0.9f);
    EXPECT_GT(at(mask(Part::sclera, {face.shape}, 600, 600), face.leftEye), 0.9f);
    // The measured iris radius, when there is one, sets the disc.
    face.shape.rightIrisRadius = 0.03 * face.shape.box.width;
    const Point out = offset(face.rightEye, 0.06 * face.shape.box.width, 0);
    EXPECT_LT(at(mask(Part::iris, {face.shape}, 600, 600), out), 0.05f);
    EXPECT_GT(at(iris, out), 0.5f);
}

TEST(FaceMaskDrawing, FacesAtTheEdgeOrBrokenDoNoHarm) {
    // Half the face beyond the left edge: the softening carries the skin out to the border instead
    // of fading it there.
    const Face edge = frontalFace({-150, 250, 300, 340});
    EXPECT_GT(at(mask(Part::eyes, {edge.shape}, 500, 400), edge.leftEye), 0.9f);
    const img::Image skin = mask(Part::faceSkin, {edge.shape}, 500, 400);
    EXPECT_GT(at(skin, {0, edge.shape.box.y + 0.5 * edge.shape.box.height}), 0.95f);

    FaceShape broken = faceFor(500, 400).shape;
    broken.leftEye[3].x = std::numeric_limits<double>::quiet_NaN();
    broken.rightEye[2].y = 1e300;
    broken.box.width = std::numeric_limits<double>::infinity();
    broken.rightPupil = Point{NAN, 5};
    broken.leftIrisRadius = -3;
    for (int p = 0; p <= int(Part::sclera); ++p)
        EXPECT_EQ(mask(Part(p), {broken}, 500, 400).width(), 500);
    EXPECT_EQ(sculptMap({broken}, 500, 400).width(), 500);
    EXPECT_EQ(skinDisc({{NAN, 0, 10, 10}, {0, 0, 1e308, 1e308}}, 50, 40).width(), 50);
    EXPECT_EQ(mask(Part::faceSkin, {frontalFace({0, 0, 1, 1}).shape}, 1, 1).height(), 1);
}

TEST(FaceMaskDrawing, SameOnAnyThreadCount) {
    const Face face = faceFor(900, 700);
    img::testing::expectThreadIndependent(
        [&](const img::Execution& e) { return mask(Part::faceSkin, {face.shape}, 900, 700, e); });
}

}  // namespace
}  // namespace ql::FaceParts
