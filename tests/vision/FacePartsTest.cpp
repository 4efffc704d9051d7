#include "vision/FaceParts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "imaging/codec/ImageDecode.h"
#include "tests/support/Fixtures.h"
#include "tests/vision/PartialModels.h"
#include "vision/Models.h"

namespace ql::vision {
namespace {

// The people facing the camera in the cafe photo (3072 × 2304), labelled by hand: box, the
// subject's left and right pupils, mean eye width.
struct Label {
    Rect box;
    Point leftPupil, rightPupil;
    double eyeWidth;
};
const Label cafeFrontal[] = {{{380, 860, 380, 332}, {655, 894}, {491, 891}, 79},
                             {{950, 625, 395, 327}, {1270, 672}, {1138, 649}, 68},
                             {{1747, 557, 408, 310}, {2018, 585}, {1876, 590}, 64},
                             {{2312, 565, 370, 295}, {2532, 607}, {2404, 599}, 58}};

const img::Image& cafe() {
    static const img::Image image =
        img::decodeImage(testing::readBytes(QL_LABELLED_DIR "/group_cafe_indoor.jpg"));
    return image;
}

const Bitmap& cafeBitmap() {
    static const Bitmap bitmap = Bitmap::of(cafe());
    return bitmap;
}

bool inside(const std::vector<Point>& loop, Point p) {
    bool in = false;  // even-odd rule
    for (size_t i = 0, j = loop.size() - 1; i < loop.size(); j = i++)
        if ((loop[i].y > p.y) != (loop[j].y > p.y) &&
            p.x < loop[i].x + (loop[j].x - loop[i].x) * (p.y - loop[i].y) / (loop[j].y - loop[i].y))
            in = !in;
    return in;
}

Rect bounds(const std::vector<Point>& loop) {
    const auto [x0, x1] =
        std::minmax_element(loop.begin(), loop.end(), [](Point a, Point b) { return a.x < b.x; });
    const auto [y0, y1] =
        std::minmax_element(loop.begin(), loop.end(), [](Point a, Point b) { return a.y < b.y; });
    return {x0->x, y0->y, x1->x - x0->x, y1->y - y0->y};
}

double distance(Point a, Point b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

const FaceShape* shapeAt(const std::vector<FaceShape>& shapes, const Rect& box, double scale = 1) {
    for (const FaceShape& s : shapes)
        if (box.contains({s.box.midX() / scale, s.box.midY() / scale})) return &s;
    return nullptr;
}

TEST(FaceParts, CafeLandmarksLieOnTheirFeatures) {
    const std::vector<FaceShape> shapes = FaceParts::detect(cafeBitmap());
    EXPECT_EQ(shapes.size(), 4u);  // the two profiles behind are not meshed
    for (const Label& label : cafeFrontal) {
        const FaceShape* s = shapeAt(shapes, label.box);
        ASSERT_TRUE(s) << label.box.x;
        // The subject's left eye on the image right, each brow above its eye.
        const Point left = centroid(s->leftEye), right = centroid(s->rightEye);
        EXPECT_GT(left.x, right.x);
        EXPECT_LT(centroid(s->leftBrow).y, left.y);
        EXPECT_LT(centroid(s->rightBrow).y, right.y);
        EXPECT_GT(centroid(s->leftBrow).x, centroid(s->rightBrow).x);
        // Eye loops start at the outer corner and pass the inner one halfway, an eye apart.
        EXPECT_GT(s->leftEye[0].x, s->leftEye[8].x);
        EXPECT_LT(s->rightEye[0].x, s->rightEye[8].x);
        for (const auto* eye : {&s->leftEye, &s->rightEye})
            EXPECT_NEAR(distance((*eye)[0], (*eye)[8]), label.eyeWidth, 0.25 * label.eyeWidth);

        // Pupils inside their eyes, within 15 % of the eye's width of the labels.
        ASSERT_TRUE(s->leftPupil && s->rightPupil);
        EXPECT_TRUE(inside(s->leftEye, *s->leftPupil));
        EXPECT_TRUE(inside(s->rightEye, *s->rightPupil));
        EXPECT_LT(distance(*s->leftPupil, label.leftPupil), 0.15 * label.eyeWidth);
        EXPECT_LT(distance(*s->rightPupil, label.rightPupil), 0.15 * label.eyeWidth);
        for (double r : {s->leftIrisRadius, s->rightIrisRadius})
            EXPECT_TRUE(r > 0.12 * label.eyeWidth && r < 0.35 * label.eyeWidth) << r;

        // The mouth opening within the lips; nose, eyes and mouth inside the outline.
        const Rect lips = bounds(s->outerLips);
        for (const Point& p : s->innerLips)
            EXPECT_TRUE(lips.contains(p));
        const Point nose = centroid(s->nose);
        EXPECT_TRUE(nose.y > left.y && nose.y < centroid(s->outerLips).y);
        EXPECT_TRUE(nose.x > right.x && nose.x < left.x);
        EXPECT_LT(s->noseCrest.front().y, s->noseCrest.back().y);
        for (Point p : {left, right, nose, centroid(s->outerLips)})
            EXPECT_TRUE(inside(s->contour, p));
    }
}

TEST(FaceParts, AScaledCopyGivesTheSameLandmarks) {
    const double scale = 1200.0 / 3072;
    const std::vector<FaceShape> full = FaceParts::detect(cafeBitmap());
    const std::vector<FaceShape> small = FaceParts::detect(Bitmap::of(cafe(), 1200));
    ASSERT_EQ(small.size(), full.size());
    for (const Label& label : cafeFrontal) {
        const FaceShape *a = shapeAt(full, label.box), *b = shapeAt(small, label.box, scale);
        ASSERT_TRUE(a && b && b->leftPupil && b->rightPupil);
        auto up = [&](Point p) { return Point{p.x / scale, p.y / scale}; };
        EXPECT_LT(distance(*a->leftPupil, up(*b->leftPupil)), 0.2 * label.eyeWidth);
        EXPECT_LT(distance(*a->rightPupil, up(*b->rightPupil)), 0.2 * label.eyeWidth);
        for (size_t i = 0; i < a->outerLips.size(); i += 5)
            EXPECT_LT(distance(a->outerLips[i], up(b->outerLips[i])), 0.2 * label.eyeWidth);
    }
}

TEST(FaceParts, PassesOverWhatItCannotUse) {
    DetectedFace face{{0.1, 0.05, 0.005, 0.005}, 0.9f, {Point{0.1, 0.06}, Point{0.103, 0.06}}};
    EXPECT_TRUE(FaceParts::detect(cafeBitmap(), {face}).empty());  // under 1 % of the width
    face = {{0.88, 0.05, 0.1, 0.12}, 0.9f, {Point{0.91, 0.09}, Point{0.95, 0.09}}};
    EXPECT_TRUE(FaceParts::detect(cafeBitmap(), {face}).empty());  // bare wall
    face.box = {NAN, 0.2, INFINITY, 0.1};
    EXPECT_TRUE(FaceParts::detect(cafeBitmap(), {face}).empty());
    EXPECT_TRUE(FaceParts::detect(Bitmap{}, {face}).empty());
    EXPECT_TRUE(FaceParts::detect(Bitmap{1, 1, {10, 20, 30}}).empty());

    // A face cut by the frame edge through the nose, as found and as a box reaching outside.
    Bitmap cut{1400, 900, std::vector<uint8_t>(1400 * 900 * 3)};
    for (int y = 0; y < cut.height; ++y)
        std::copy_n(cafeBitmap().row(600 + y) + 570 * 3, 1400 * 3, cut.row(y));
    std::vector<DetectedFace> faces = FaceDetector::find(cut, 0.5f);
    faces.push_back({{-0.1, 0.29, 0.27, 0.37}, 0.9f, {Point{-0.05, 0.32}, Point{0.06, 0.32}}});
    for (const FaceShape& s : FaceParts::detect(cut, faces))
        for (const auto* loop : {&s.leftEye, &s.rightEye, &s.contour, &s.innerLips})
            for (const Point& p : *loop)
                EXPECT_TRUE(std::isfinite(p.x) && std::isfinite(p.y));
}

TEST(FaceParts, MissingModelsLeaveOutWhatNeedsThem) {
    const std::vector<DetectedFace> faces = FaceDetector::find(cafeBitmap(), 0.6f);
    {
        PartialModels models({ModelFile::faceDetector, ModelFile::faceMesh});
        const std::vector<FaceShape> shapes = FaceParts::detect(cafeBitmap(), faces);
        ASSERT_EQ(shapes.size(), 4u);
        for (const FaceShape& s : shapes) {  // pupils from the eye contours, radii unknown
            ASSERT_TRUE(s.leftPupil && s.rightPupil);
            EXPECT_LT(distance(*s.leftPupil, centroid(s.leftEye)), 1e-6);
            EXPECT_LT(distance(*s.rightPupil, centroid(s.rightEye)), 1e-6);
            EXPECT_EQ(s.leftIrisRadius + s.rightIrisRadius, 0);
        }
    }
    {
        PartialModels models({ModelFile::faceDetector, ModelFile::iris});
        EXPECT_TRUE(FaceParts::detect(cafeBitmap(), faces).empty());
    }
    PartialModels none({});
    EXPECT_TRUE(FaceParts::detect(cafeBitmap()).empty());
}

}  // namespace
}  // namespace ql::vision
